// Format1DSCB: a Format-1 DSCB, one data set: its name (the key), its
// attributes, its first three extents and the address of the first Format-3
// DSCB that holds further extents.
//
// Layout (offsets in bytes; see the table in format1_dscb.cc for every field):
//   0 data set name (44) | 44 format id F1 | 45 volser (6) | ... | 59 extent
//   count | ... | 82 DSORG (2) | 84 RECFM | 86 BLKSIZE (2) | 88 LRECL (2)
//   | ... | 105 three extents (10 each: type, sequence, low CCHH, high CCHH)
//   | 135 first Format-3 CCHHR (5)
//
// Ownership: `f3List` owns the Format-3 DSCBs appended to it (they are
// deleted by this object's destructor, or when a slot is overwritten), so
// each chained DSCB is freed exactly once. One thread per object.
#ifndef CKDVOL_DSCB_FORMAT1_DSCB_H_
#define CKDVOL_DSCB_FORMAT1_DSCB_H_

#include "common/dynamic_typed_pointer_array.h"
#include "common/export.h"
#include "dscb/format3_dscb.h"
#include "dscb/generic_dscb.h"

class CKDVOL_EXPORT Format1DSCB : public GenericDSCB {
 public:
  const unsigned char* raw;                            // points at the base's `dscb` copy
  DynamicTypedPointerArray<Format3DSCB const> f3List;  // chained Format-3 DSCBs in
                                                       // chain order; owning, step 32
  short nbrExts;  // extent count ("NbrExts", offset 59), copied at construction

  // Copies the 140 bytes at `dscb`; location -1/-1/-1; empty owning f3List.
  explicit Format1DSCB(const unsigned char* dscb);
  // Deletes the chained Format-3 DSCBs and releases the list.
  ~Format1DSCB() override;
  Format1DSCB(const Format1DSCB&) = delete;
  Format1DSCB& operator=(const Format1DSCB&) = delete;

  const StructureField* getDesc() const override;
  // Title and dump, then for each chained Format-3 DSCB a line end and its
  // own print with `indent` + 4; returns `out`.
  RexxString& print(RexxString& out, int indent) const override;

  unsigned short getBlkSize() const;  // "BlkSize", offset 86
  unsigned short getDSorg() const;    // "DSorg", offset 82, both bytes big-endian
  unsigned short getLrecl() const;    // "Lrecl", offset 88
  unsigned char getRecfm() const;     // "RecFmt", offset 84, the raw byte

  // Extent `i` (0-based) of the data set: 0 to 2 in this record, 3 and up
  // in the chained Format-3 DSCBs (13 each: i = 3 + 13k + m is extent m of
  // f3List[k]). Sets the low and high cylinder and head and the track
  // numbers cyl * 15 + head (15 tracks per cylinder whatever the device),
  // and returns hiTrk - loTrk + 1. When `i` is negative, not below
  // `nbrExts`, or its Format-3 DSCB is not chained, returns 0 with all six
  // outputs -1. The 28-bit decoding applies when `largeCylinders` is set.
  int getExtent(int i, int& loCyl, int& loHead, int& hiCyl, int& hiHead, int& loTrk,
                int& hiTrk) const;
  // The first Format-3 DSCB's address ("F3-Dscb"); true. 0/0/0 means none.
  bool getF3dscbLoc(int& cyl, int& head, int& rec) const;
};

#endif  // CKDVOL_DSCB_FORMAT1_DSCB_H_
