// Format4DSCB: the Format-4 DSCB, first record of the VTOC: the last used
// DSCB, the DSCB count, device constants, VTOC indicators and extended
// free-space information.
//
// Layout (offsets in bytes; see the table in format4_dscb.cc for every field):
//   0 key (44, all 04) | 44 format id F4 | 45 last DSCB CCHHR (5)
//   | 50 DSCB count (2) | ... | 62 device constants (14) | ... | 139
//
// One thread per object.
#ifndef CKDVOL_DSCB_FORMAT4_DSCB_H_
#define CKDVOL_DSCB_FORMAT4_DSCB_H_

#include "common/export.h"
#include "dscb/generic_dscb.h"

class CKDVOL_EXPORT Format4DSCB : public GenericDSCB {
 public:
  const unsigned char* raw;  // points at the base's `dscb` copy

  // Copies the 140 bytes at `dscb`; location -1/-1/-1.
  explicit Format4DSCB(const unsigned char* dscb);
  ~Format4DSCB() override;
  Format4DSCB(const Format4DSCB&) = delete;
  Format4DSCB& operator=(const Format4DSCB&) = delete;

  const StructureField* getDesc() const override;

  // "DSCBcnt" (offset 50), 0 to 65535; -1 only if the label were missing.
  int getDSCBcount() const;
  // The last used DSCB's address ("LastDSCB", offset 45). The outputs are
  // zeroed first; true (false only if the label were missing). The 28-bit
  // decoding applies when `largeCylinders` is set.
  bool getLastdscb(int& cyl, int& head, int& rec) const;
};

#endif  // CKDVOL_DSCB_FORMAT4_DSCB_H_
