// Extents and relative tracks of a data set.
//
// A data set's space is a list of extents, each a run of tracks from a low
// CCHH to a high CCHH inclusive; its relative tracks number the tracks of
// the extents one after the other, in extent order, from 0. Cylinder and head
// are converted with the device's real heads per cylinder (19 on D300, 30 on
// D430, 20 on D160 and D200, ...), never with a fixed 15.
//
// On the volume an extent is 10 bytes (DSCBs of formats 1, 3, 4 and 8):
//   0 type u8 | 1 sequence u8 | 2 low CC u16 | 4 low HH u16 | 6 high CC u16 |
//   8 high HH u16
// with the 28-bit large-cylinder form of CC/HH on volumes that use it.
//
// Thread safety: none; one thread per object. Nothing here touches a file.
#ifndef CKDVOL_DATASET_EXTENT_H_
#define CKDVOL_DATASET_EXTENT_H_

#include <cstddef>
#include <cstdint>
#include <vector>

#include "common/export.h"

namespace ckdvol {

// The address of one record on the volume (cylinder, head, record number).
struct RecordAddress {
  uint32_t cyl = 0;
  uint32_t head = 0;
  uint8_t record = 0;
};

// One extent as a DSCB holds it, decoded.
struct Extent {
  uint8_t type = 0;      // 00: unused slot; 01 data; 40 user labels; 80/81 cylinder bound
  uint8_t sequence = 0;  // the extent's sequence number as stored
  uint32_t lowCyl = 0;   // first track of the extent
  uint32_t lowHead = 0;
  uint32_t highCyl = 0;  // last track of the extent (inclusive)
  uint32_t highHead = 0;
};

// Extent type that marks an unused extent slot.
constexpr uint8_t kExtentUnused = 0x00;
// Size of an extent on the volume.
constexpr int kExtentSize = 10;

// Decodes the 10 bytes at `p` (28-bit cylinders when `largeCylinders`).
// Precondition: 10 readable bytes at `p`.
CKDVOL_EXPORT Extent decodeExtent(const unsigned char* p, bool largeCylinders);

// Number of tracks of `e` with `heads` heads per cylinder: (high cylinder
// * heads + high head) - (low cylinder * heads + low head) + 1. 0 when the
// extent is not well formed: a head not below `heads`, the high track before
// the low one, or `heads` 0.
CKDVOL_EXPORT uint32_t extentTracks(const Extent& e, uint32_t heads);

// The relative tracks of a data set: its extents in order, each contributing
// extentTracks() tracks. An extent that is not well formed contributes none
// (and is counted by badExtents()). Lookups cost O(log extents).
class CKDVOL_EXPORT ExtentMap {
 public:
  ExtentMap() = default;
  // Copies `extents`. `heads` is the device's real heads per cylinder
  // (EmulatedCKDfile::tracksPerCylinder).
  ExtentMap(const std::vector<Extent>& extents, uint32_t heads);

  // Total number of tracks (bounded to 2^32 - 1).
  uint32_t tracks() const { return total_; }
  uint32_t heads() const { return heads_; }
  const std::vector<Extent>& extents() const { return extents_; }
  // Extents that contribute no track because they are not well formed.
  size_t badExtents() const { return bad_; }

  // Relative track -> cylinder and head. False (outputs unchanged) when
  // `relTrack` is not below tracks().
  bool toCylHead(uint32_t relTrack, uint32_t& cyl, uint32_t& head) const;
  // Cylinder and head -> relative track: the first extent, in extent order,
  // that holds the track. False (output unchanged) when no extent holds it.
  bool toRelative(uint32_t cyl, uint32_t head, uint32_t& relTrack) const;

 private:
  std::vector<Extent> extents_;
  std::vector<uint32_t> first_;  // relative track of each extent's first track
  uint32_t heads_ = 0;
  uint32_t total_ = 0;
  size_t bad_ = 0;
};

}  // namespace ckdvol

#endif  // CKDVOL_DATASET_EXTENT_H_
