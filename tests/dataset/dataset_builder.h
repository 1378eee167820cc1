// Test-side builders for the data-set layer's tests, written byte by byte
// from the on-volume layouts (independently of the layer's decoders).
#ifndef CKDVOL_TESTS_DATASET_DATASET_BUILDER_H_
#define CKDVOL_TESTS_DATASET_DATASET_BUILDER_H_

#include <string>
#include <utility>
#include <vector>

#include "dataset/vtoc_scan.h"
#include "support/pds_builder.h"
#include "support/volume_builder.h"

namespace ckdvol_test {

Bytes cat(const std::vector<Bytes>& parts);
// BDW / RDW: LL (u16, the 4 bytes included), 00 00. SDW: LL, segment control
// (00 complete, 01 first, 02 last, 03 middle), 00.
inline Bytes word(uint16_t ll, uint8_t control = 0) { return {uint8_t(ll >> 8), uint8_t(ll), control, 0}; }
inline Bytes text(const std::string& t) { return ebcdic(t); }
inline Bytes ascii(const std::string& s) { return Bytes(s.begin(), s.end()); }
DataSetLayout layout(const std::string& name, std::vector<ExtentSpec> extents, int nbrExts = -1,
                     Cchhr next = Cchhr(), uint8_t recfm = 0x90, uint16_t lrecl = 80);
// scanVtoc, expecting success.
ckdvol::VtocInfo scan(EmulatedCKDfile& file);
// Format-4 DSCB: key 44 x 04 | 44 F4 | 45 DS4HPCHR last active DSCB | 74
// DS4DEVDT DSCBs per track | 105 DS4VTOCE: type 01, sequence 0, low and high CCHH.
Dscb format4Dscb(Cchhr lastActive, uint8_t perTrack, Cchhr vtocLow, Cchhr vtocHigh, bool large = false);
// Points the label at `format4`; writes each track's DSCBs as records 1, 2, ...
void layVtoc(TestVolume& vol, Cchhr format4, const std::vector<std::pair<Cchhr, std::vector<Dscb>>>& tracks);

// A D600 volume of more than 65520 cylinders as a sparse file: only the
// tracks given to setTrack() (before open()) hold bytes, composed here with
// the 28-bit CC/HH (CC = cyl & FFFF, HH = (cyl >> 16) << 4 | head).
class SparseLargeVolume {
 public:
  explicit SparseLargeVolume(uint32_t cylinders);
  void setTrack(uint32_t cyl, uint16_t head, const std::vector<Record>& records);
  EmulatedCKDfile& open();  // read-only

 private:
  ScopedTempDir dir_;
  std::string path_;
  EmulatedCKDfile file_;
};

}  // namespace ckdvol_test

#endif  // CKDVOL_TESTS_DATASET_DATASET_BUILDER_H_
