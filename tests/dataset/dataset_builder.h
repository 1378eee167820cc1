// Test-side builders for the data-set layer's tests, written byte by byte
// from the on-volume layouts (independently of the layer's decoders):
// descriptor words of variable-length blocks, a Format-4 DSCB with its VTOC
// extent, a VTOC laid on chosen tracks, and a sparse volume of more than
// 65520 cylinders whose few used tracks are composed here.
#ifndef CKDVOL_TESTS_DATASET_DATASET_BUILDER_H_
#define CKDVOL_TESTS_DATASET_DATASET_BUILDER_H_

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "support/pds_builder.h"
#include "support/volume_builder.h"

namespace ckdvol_test {

// The bytes of `parts` back to back.
Bytes cat(const std::vector<Bytes>& parts);
// BDW or RDW: LL (u16, including the 4 bytes), 00 00.
Bytes word(uint16_t length);
// SDW: LL (u16), segment control byte (00 complete, 01 first, 02 last, 03
// middle), 00.
Bytes sdw(uint16_t length, uint8_t control);
// The EBCDIC bytes of `text` (volume builder's table).
inline Bytes text(const std::string& t) { return ebcdic(t); }

// A Format-4 DSCB: key 44 x 04, F4 at 44, DS4HPCHR (last active DSCB) at 45,
// DS4DEVDT (DSCBs per track) at 74, DS4VTOCE (type 01, the VTOC's extent)
// at 105.
Dscb format4Dscb(Cchhr lastActive, uint8_t perTrack, Cchhr vtocLow, Cchhr vtocHigh,
                 bool large = false);

// Points the label at `format4` and writes each track's DSCBs (records 1, 2,
// ... after record zero), replacing what the tracks held.
void layVtoc(TestVolume& vol, Cchhr format4,
             const std::vector<std::pair<Cchhr, std::vector<Dscb>>>& tracks);

// A D600 volume of more than 65520 cylinders (28-bit cylinder numbers) as a
// sparse file: header, then only the tracks given to setTrack() hold bytes.
class SparseLargeVolume {
 public:
  explicit SparseLargeVolume(uint32_t cylinders);
  // Composes the track image: home address and count fields in the 28-bit
  // form (CC = cyl & FFFF, HH = (cyl >> 16) << 4 | head), record zero of 8
  // zero bytes, `records`, the end marker. Before open() only.
  void setTrack(uint32_t cyl, uint16_t head, const std::vector<Record>& records);
  // Opens the file read-only into file().
  EmulatedCKDfile& open();
  uint32_t cylinders() const { return cylinders_; }

 private:
  ScopedTempDir dir_;
  std::string path_;
  uint32_t cylinders_ = 0;
  EmulatedCKDfile file_;
};

}  // namespace ckdvol_test

#endif  // CKDVOL_TESTS_DATASET_DATASET_BUILDER_H_
