// Test-side helpers for the data-set layer's tests: bytes written by hand
// (independently of the layer's decoders), Format-1 layouts, a checked scan.
#ifndef CKDVOL_TESTS_DATASET_DATASET_BUILDER_H_
#define CKDVOL_TESTS_DATASET_DATASET_BUILDER_H_

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "dataset/vtoc_scan.h"
#include "support/pds_builder.h"
#include "support/volume_builder.h"

namespace ckdvol_test {

inline Bytes cat(const std::vector<Bytes>& parts) {
  Bytes all;
  for (const Bytes& p : parts) all.insert(all.end(), p.begin(), p.end());
  return all;
}
// BDW / RDW: LL (u16, the 4 bytes included), 00 00. SDW: LL, segment control
// (00 complete, 01 first, 02 last, 03 middle), 00.
inline Bytes word(uint16_t ll, uint8_t control = 0) { return {uint8_t(ll >> 8), uint8_t(ll), control, 0}; }
inline Bytes ascii(const std::string& s) { return Bytes(s.begin(), s.end()); }
inline DataSetLayout layout(const std::string& name, std::vector<ExtentSpec> extents, int nbrExts = -1,
                            Cchhr next = Cchhr(), uint8_t recfm = 0x90, uint16_t lrecl = 80) {
  DataSetLayout l;
  l.name = name, l.extents = std::move(extents), l.nbrExts = nbrExts, l.next = next, l.recfm = recfm, l.lrecl = lrecl;
  return l;
}
// scanVtoc, expecting success.
inline ckdvol::VtocInfo scan(EmulatedCKDfile& file) {
  ckdvol::VtocInfo v;
  std::string error;
  EXPECT_EQ(ckdvol::scanVtoc(file, v, error), ckdvol::kScanOk) << error;
  return v;
}

}  // namespace ckdvol_test

#endif  // CKDVOL_TESTS_DATASET_DATASET_BUILDER_H_
