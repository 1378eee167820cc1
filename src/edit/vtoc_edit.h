// Changing the VTOC: adding, removing and renaming data sets, keeping the
// free-space records and the Format-4 DSCB in step.
//
// A VtocEditor reads the DSCB records (key 44, data 96) of every track of
// the VTOC's extent through a StagedTracks, so it sees the changes staged
// before it, and stages its own: nothing is written here. The data sets it
// knows start as the VtocInfo of a scan of the volume and follow its own
// changes (that list is what the free space is computed from).
//
// The records it writes (offsets within the 140 bytes, big-endian):
//   Format-0 (empty): 140 zero bytes.
//   Format-1: 0 name, EBCDIC, blank padded | 44 F1 | 45 volume serial |
//     51 volume sequence 1 | 53 created (year - 1900, day) | 56 expires
//     (0) | 59 extent count | 60 bytes used in the last directory block |
//     62 system code | 82 DSORG | 84 RECFM | 86 BLKSIZE | 88 LRECL |
//     90 key length | 93 DSIND (80: last volume of the data set) | 94
//     secondary allocation: unit flags (C0 cylinders, 80 tracks), 95
//     quantity (3 bytes) | 98 last used block TTR | 101 track balance |
//     105 three extents of 10 bytes (type, sequence, low CCHH, high CCHH)
//     | 135 CCHHR of the first Format-3 DSCB, zero when there is none.
//     (allocate.h fills everything but the extents and the chain.)
//   Format-3: 0 key 03 03 03 03 | 4 extents 4-7 | 44 F3 | 45 extents
//     8-16 | 135 CCHHR of the next Format-3 DSCB (zero at the end). A
//     data set has at most 16 extents: 3 in its Format-1 DSCB, 13 in one
//     Format-3 DSCB.
//   Format-5: 0 key 05 05 05 05 | 4 eight free extents | 44 F5 | 45
//     eighteen free extents | 135 CCHHR of the next Format-5 DSCB. A free
//     extent is 5 bytes: relative track of its start (u16), whole
//     cylinders (u16), further tracks (u8); unused entries are zero. The
//     extents are written in track order; the first Format-5 DSCB keeps its
//     place (the second record of a fresh VTOC), further ones take empty
//     DSCBs, and Format-5 DSCBs no longer needed become empty.
//   Format-4, after every change: 45 the CCHHR of the highest-addressed
//     Format-1 or Format-8 DSCB (zero when there is none, as on a fresh
//     volume); the VTOC walk of the volume classes reads every track up to
//     and including that DSCB's track | 50 the number of empty DSCBs | 58
//     bit 80 (free space not maintained) cleared once the Format-5 DSCBs
//     have been rewritten.
// A volume whose free extents cannot be told in Format-5 terms (more than
// 65535 tracks, so relative tracks beyond 16 bits) keeps its Format-5 and
// Format-7 DSCBs as they are and gets bit 80 set instead: readers then
// compute the free space, as free_space.h does.
//
// New DSCBs take the lowest-addressed empty ones. A change that needs more
// empty DSCBs than the VTOC has (for the Format-1, its Format-3 and any
// further Format-5 DSCBs) is refused before anything is staged. On a
// damaged VTOC (two DSCBs of a track with one record number) the count of
// empty DSCBs can be wrong and the refusal comes while the Format-5 DSCBs
// are rewritten, with part of the change staged: after any refusal a caller
// drops the StagedTracks, as the tool does.
//
// Thread safety: none; one thread per object and per StagedTracks.
#ifndef CKDVOL_EDIT_VTOC_EDIT_H_
#define CKDVOL_EDIT_VTOC_EDIT_H_

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "common/export.h"
#include "dataset/vtoc_scan.h"
#include "edit/free_space.h"
#include "edit/staged_tracks.h"

namespace ckdvol {

using DscbBytes = std::array<unsigned char, kDscbSize>;

// The most extents a data set can have here: 3 + 13 in one Format-3 DSCB.
constexpr size_t kMaxDataSetExtents = 16;
// Free extents one Format-5 DSCB holds.
constexpr size_t kFormat5Extents = 26;
// DS4VTOCI bit: the Format-5 DSCBs do not describe the free space.
constexpr unsigned char kFreeSpaceNotMaintained = 0x80;

// One DSCB record of the VTOC.
struct DscbSlot {
  uint32_t track = 0;  // absolute track (cylinder * heads + head)
  uint8_t record = 0;
  RecordAddress at;    // cylinder, head and record number
  int format = -1;  // 0 empty (all zero), 1 to 9 from the format identifier F1..F9, -1 anything else
};

// Writes a data set name (ASCII: A-Z 0-9 @ # $ - .) as 44 EBCDIC bytes, blank padded.
CKDVOL_EXPORT void encodeDataSetName(const std::string& name, unsigned char* out44);
// Writes `text` as `length` EBCDIC bytes of code page 037, blank padded (cut when longer).
CKDVOL_EXPORT void encodeEbcdic(const std::string& text, unsigned char* out, size_t length);
// Writes one extent (10 bytes) with its type and sequence number.
CKDVOL_EXPORT void encodeExtent(const Extent& e, bool largeCylinders, unsigned char* out10);

class CKDVOL_EXPORT VtocEditor {
 public:
  explicit VtocEditor(StagedTracks& staged);

  // Reads the DSCB records of the VTOC's tracks (vtoc.vtocFirstTrack to
  // vtocLastTrack) through the staged images. `vtoc` is a scan of the same
  // volume. False with `error` when a track cannot be read or holds no
  // Format-4 DSCB at vtoc.format4At.
  bool load(const VtocInfo& vtoc, std::string& error);

  // The data sets as changed so far, and the free space they leave.
  const VtocInfo& vtoc() const { return vtoc_; }
  StagedTracks& staged() { return staged_; }
  FreeSpace freeSpace() const;
  const std::vector<DscbSlot>& slots() const { return slots_; }
  size_t emptyDscbs() const;

  // The data set called `name` (exact), or null.
  const DataSetInfo* find(const std::string& name) const;

  // Adds a data set: `f1` is its Format-1 DSCB with every field but the
  // extent count, the extents and the Format-3 address, which are set here
  // from `extents` (1 to 16, type and sequence as given). Stages it and
  // its Format-3 DSCB, then the free space (rewriteFreeSpace). `at`
  // receives the Format-1 DSCB's address. False with `error`, nothing
  // staged, when the name is in use, the extents overlap used space or
  // leave the volume, or the VTOC has too few empty DSCBs.
  bool addDataSet(const DscbBytes& f1, const std::vector<Extent>& extents, RecordAddress& at, std::string& error);

  // Removes a data set: its Format-1/8 DSCB and every Format-3/9 DSCB of its
  // chain become empty, then the free space is rewritten. The data tracks
  // are left as they are. False with `error` when there is no such data set.
  bool removeDataSet(const std::string& name, std::string& error);

  // Gives a data set a new name (the key of its Format-1/8 DSCB). False
  // with `error` when `from` is not there or `to` is in use.
  bool renameDataSet(const std::string& from, const std::string& to, std::string& error);

  // Stages a new image of the DSCB at `slot` (its 140 bytes).
  bool writeDscb(const DscbSlot& slot, const unsigned char* bytes, std::string& error);
  // Reads the DSCB at `slot` as staged so far.
  bool readDscb(const DscbSlot& slot, DscbBytes& out, std::string& error);

  // The free space the Format-5 DSCBs record (every Format-5 DSCB of the
  // VTOC, in VTOC order; unused entries left out), and whether the Format-4
  // DSCB says they are not maintained (bit 80 of offset 58).
  bool recordedFreeSpace(std::vector<TrackRun>& out, bool& notMaintained, std::string& error);

  // Rewrites the Format-5 DSCBs from the computed free space and the
  // Format-4 DSCB's fields (see above). Called by every change here.
  bool rewriteFreeSpace(std::string& error);

 private:
  // Format-5 DSCBs that the free space needs, 0 when it is not kept in them.
  size_t format5Needed(const FreeSpace& fs) const;
  size_t format5Present() const;
  int takeEmpty();  // index into slots_ of the lowest empty DSCB, marked used; -1 when none
  int slotAt(const RecordAddress& a) const;
  std::vector<int> chainOf(const DataSetInfo& ds, std::string& error);

  StagedTracks& staged_;
  VtocInfo vtoc_;
  std::vector<DscbSlot> slots_;
  int format4_ = -1;
  bool large_ = false;
  uint32_t volumeTracks_ = 0;
};

}  // namespace ckdvol

#endif  // CKDVOL_EDIT_VTOC_EDIT_H_
