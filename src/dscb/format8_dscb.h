// Format8DSCB: a Format-8 DSCB, one data set, with the layout of a Format-1
// DSCB except around offsets 91-97 (key position 1 byte, data set indicators
// at 92, secondary allocation parameters at 93) and with the address of its
// first Format-9 DSCB at offset 135.
//
// Ownership: `f9List` and `f3List` own the DSCBs appended to them (deleted
// by this object's destructor, `f9List` first), so each chained DSCB is
// freed exactly once. One thread per object.
#ifndef CKDVOL_DSCB_FORMAT8_DSCB_H_
#define CKDVOL_DSCB_FORMAT8_DSCB_H_

#include "common/dynamic_typed_pointer_array.h"
#include "common/export.h"
#include "dscb/format3_dscb.h"
#include "dscb/format9_dscb.h"
#include "dscb/generic_dscb.h"

class CKDVOL_EXPORT Format8DSCB : public GenericDSCB {
 public:
  const unsigned char* raw;                            // points at the base's `dscb` copy
  DynamicTypedPointerArray<Format3DSCB const> f3List;  // Format-3 DSCBs reached through
                                                       // the Format-9 DSCBs; owning
  DynamicTypedPointerArray<Format9DSCB const> f9List;  // chained Format-9 DSCBs in
                                                       // chain order; owning, step 32
  short nbrExts;  // extent count ("NbrExts", offset 59), copied at construction

  // Copies the 140 bytes at `dscb`; location -1/-1/-1; empty owning lists.
  explicit Format8DSCB(const unsigned char* dscb);
  // Deletes the chained Format-9 DSCBs, then the Format-3 DSCBs.
  ~Format8DSCB() override;
  Format8DSCB(const Format8DSCB&) = delete;
  Format8DSCB& operator=(const Format8DSCB&) = delete;

  const StructureField* getDesc() const override;
  // Title and dump, then for each chained Format-9 DSCB and then each
  // Format-3 DSCB a line end and its own print with `indent` + 6.
  RexxString& print(RexxString& out, int indent) const override;

  unsigned short getBlkSize() const;  // "BlkSize", offset 86
  unsigned short getDSorg() const;    // "DSorg", offset 82
  unsigned short getLrecl() const;    // "Lrecl", offset 88
  unsigned char getRecfm() const;     // "RecFmt", offset 84

  // As Format1DSCB::getExtent, the Format-3 DSCBs being those of `f3List`.
  int getExtent(int i, int& loCyl, int& loHead, int& hiCyl, int& hiHead, int& loTrk,
                int& hiTrk) const;
  // The first Format-9 DSCB's address ("F9-Dscb"). The outputs are zeroed
  // first; true (false only if the label were missing).
  bool getF9dscbLoc(int& cyl, int& head, int& rec) const;
};

#endif  // CKDVOL_DSCB_FORMAT8_DSCB_H_
