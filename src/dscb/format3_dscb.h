// Format3DSCB: a Format-3 DSCB, 13 further extents of a data set whose
// Format-1 or Format-8 DSCB holds only three, and the address of the next
// Format-3 DSCB of the chain.
//
// Layout (offsets in bytes; each extent is 10 bytes: type 1, sequence 1,
// low CCHH 4, high CCHH 4):
//   0 key id (4) | 4 extents 1-4 (40) | 44 format id F3 | 45 extents 5-D (90)
//   | 135 next Format-3 CCHHR (5; all zero at the end of the chain)
//
// One thread per object.
#ifndef CKDVOL_DSCB_FORMAT3_DSCB_H_
#define CKDVOL_DSCB_FORMAT3_DSCB_H_

#include "common/export.h"
#include "dscb/generic_dscb.h"

class CKDVOL_EXPORT Format3DSCB : public GenericDSCB {
 public:
  const unsigned char* raw;  // points at the base's `dscb` copy

  // Copies the 140 bytes at `dscb`; location -1/-1/-1.
  explicit Format3DSCB(const unsigned char* dscb);
  ~Format3DSCB() override;
  Format3DSCB(const Format3DSCB&) = delete;
  Format3DSCB& operator=(const Format3DSCB&) = delete;

  // Always 3, whatever byte 44 holds.
  int getType() const override;
  const StructureField* getDesc() const override;

  // The next Format-3 DSCB's address ("NxtF3dscb"); the outputs are zeroed
  // first, the 28-bit decoding applies when `largeCylinders` is set. True
  // (false only if the label were missing from the table). 0/0/0 means the
  // end of the chain; the caller decides.
  bool getF3dscbLoc(int& cyl, int& head, int& rec) const;
};

#endif  // CKDVOL_DSCB_FORMAT3_DSCB_H_
