// Format5DSCB: a Format-5 DSCB, up to 26 free-space extents and the address
// of the next Format-5 DSCB.
//
// Layout (offsets in bytes; each extent is 5 bytes: first relative track 2,
// whole free cylinders 2, further free tracks 1):
//   0 key id (4) | 4 extents 1-8 (40) | 44 format id F5 | 45 extents 9-26 (90)
//   | 135 next Format-5 CCHHR (5; all zero at the end of the chain)
//
// One thread per object.
#ifndef CKDVOL_DSCB_FORMAT5_DSCB_H_
#define CKDVOL_DSCB_FORMAT5_DSCB_H_

#include "common/export.h"
#include "dscb/generic_dscb.h"

class CKDVOL_EXPORT Format5DSCB : public GenericDSCB {
 public:
  const unsigned char* raw;  // points at the base's `dscb` copy

  // Copies the 140 bytes at `dscb`; location -1/-1/-1.
  explicit Format5DSCB(const unsigned char* dscb);
  ~Format5DSCB() override;
  Format5DSCB(const Format5DSCB&) = delete;
  Format5DSCB& operator=(const Format5DSCB&) = delete;

  const StructureField* getDesc() const override;

  // The next Format-5 DSCB's address ("NxtF5dscb", offset 135). The outputs
  // are zeroed first; true (false only if the label were missing). The
  // 28-bit decoding applies when `largeCylinders` is set.
  bool getF5dscbLoc(int& cyl, int& head, int& rec) const;
};

#endif  // CKDVOL_DSCB_FORMAT5_DSCB_H_
