// Format9DSCB: a Format-9 DSCB, following a Format-8 DSCB: job and step
// names, a time stamp, attribute bytes, up to ten Format-3 DSCB addresses and
// the address of the next Format-9 DSCB.
//
// Layout (offsets in bytes):
//   0 key id | 1 subtype | 2 F9 count | 3 flags | 4 job (8) | 12 step (8)
//   | 20 time (6) | 26 reserved (18) | 44 format id F9 | 45 F3 count
//   | 46 ten Format-3 CCHHRs (5 each) | 96 attributes (20) | 116 reserved (19)
//   | 135 next Format-9 CCHHR (5)
//
// One thread per object.
#ifndef CKDVOL_DSCB_FORMAT9_DSCB_H_
#define CKDVOL_DSCB_FORMAT9_DSCB_H_

#include "common/export.h"
#include "dscb/generic_dscb.h"

class CKDVOL_EXPORT Format9DSCB : public GenericDSCB {
 public:
  const unsigned char* raw;  // points at the base's `dscb` copy

  // Copies the 140 bytes at `dscb`; location -1/-1/-1.
  explicit Format9DSCB(const unsigned char* dscb);
  ~Format9DSCB() override;
  Format9DSCB(const Format9DSCB&) = delete;
  Format9DSCB& operator=(const Format9DSCB&) = delete;

  // Always 9, whatever byte 44 holds.
  int getType() const override;
  const StructureField* getDesc() const override;

  // The byte "F3count" (offset 45): how many Format-3 addresses are used.
  unsigned char getF3count() const;
  // The address of the Format-3 DSCB in slot `i` (0 to 9, "F3cchhr-01" to
  // "F3cchhr-10"). The outputs are zeroed first; false when `i` is outside
  // 0..9, else true. The 28-bit decoding applies when `largeCylinders` is set.
  bool getF3dscbLoc(int i, int& cyl, int& head, int& rec) const;
  // The next Format-9 DSCB's address ("NxtF9dscb"), as
  // Format3DSCB::getF3dscbLoc.
  bool getF9dscbLoc(int& cyl, int& head, int& rec) const;
};

#endif  // CKDVOL_DSCB_FORMAT9_DSCB_H_
