// Resolves the data-set layer's DSCB field offsets from the descriptor
// tables of the DSCB classes.
#include "dataset/dscb_fields.h"

#include <cstdio>

#include "dscb/format1_dscb.h"
#include "dscb/format3_dscb.h"
#include "dscb/format4_dscb.h"
#include "dscb/format8_dscb.h"
#include "dscb/format9_dscb.h"
#include "dscb/generic_dscb.h"

namespace ckdvol {
namespace {

int offsetOf(const GenericDSCB& d, const char* label) {
  return static_cast<int>(d.getFieldAddr(label) - d.dscb);
}

DataSetDscbFields dataSetFields(const GenericDSCB& d, const char* nextLabel) {
  DataSetDscbFields f;
  f.name = offsetOf(d, "DSname");
  f.created = offsetOf(d, "DateCreated");
  f.expires = offsetOf(d, "DateExpired");
  f.extentCount = offsetOf(d, "NbrExts");
  f.lastDirBytes = offsetOf(d, "LastDirBytes");
  f.flag1 = offsetOf(d, "Flags");
  f.referenced = offsetOf(d, "DateRefed");
  f.dsorg = offsetOf(d, "DSorg");
  f.recfm = offsetOf(d, "RecFmt");
  f.blksize = offsetOf(d, "BlkSize");
  f.lrecl = offsetOf(d, "Lrecl");
  f.keyLength = offsetOf(d, "KeyLen");
  f.lastBlock = offsetOf(d, "LastTTR");
  f.trackBalance = offsetOf(d, "TrkBal");
  f.lastTrackHigh = offsetOf(d, "EAVhiTrk");
  f.extents = offsetOf(d, "ExtType-1");
  f.next = offsetOf(d, nextLabel);
  return f;
}

DscbFields resolve() {
  const unsigned char zero[140] = {};
  DscbFields f{};
  f.f1 = dataSetFields(Format1DSCB(zero), "F3-Dscb");
  f.f8 = dataSetFields(Format8DSCB(zero), "F9-Dscb");
  const Format3DSCB f3(zero);
  for (int i = 0; i < kF3Extents; ++i) {
    char label[16];
    std::snprintf(label, sizeof label, "ExtType-%X", i + 1);
    f.f3Extent[i] = offsetOf(f3, label);
  }
  f.f3Next = offsetOf(f3, "NxtF3dscb");
  const Format4DSCB f4(zero);
  f.f4LastActive = offsetOf(f4, "LastDSCB");
  f.f4DscbsPerTrack = offsetOf(f4, "DSCBs/trk");
  f.f4VtocExtent = offsetOf(f4, "VTOCextDesc");
  const Format9DSCB f9(zero);
  f.f9Format3Count = offsetOf(f9, "F3count");
  f.f9Format3First = offsetOf(f9, "F3cchhr-01");
  f.f9Next = offsetOf(f9, "NxtF9dscb");
  return f;
}

}  // namespace

const DscbFields& dscbFields() {
  static const DscbFields fields = resolve();
  return fields;
}

}  // namespace ckdvol
