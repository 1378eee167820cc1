// The free space of a volume, computed from what is really allocated.
//
// A track is in use when it is the label track (cylinder 0 head 0: IPL
// records and the VOL1 label), lies in the VTOC's own extent, or lies in an
// extent of a data set (Format-1 DSCBs with their Format-3 DSCBs, Format-8
// DSCBs with theirs). Every other track is free. Tracks are absolute
// numbers, cylinder * heads + head, with the device's real heads per
// cylinder; a free extent is a run of free tracks.
//
// Outside data is taken as it is found: extents that overlap each other
// are counted once, extents that reach past the end of the volume are cut
// at its end, extents that are not well formed (a head not below the heads
// per cylinder, the high end before the low one) count for nothing; each
// such case is reported in `notes`. Free plus allocated tracks is always
// the volume's track count.
//
// The Format-5 DSCBs describe free space in the same terms: for each free
// extent the relative track where it begins (the absolute track number
// above), the whole cylinders it spans (its tracks / heads) and the tracks
// beyond them (its tracks % heads); see vtoc_edit.h for how they are kept.
//
// Nothing here touches a file; thread-safe (no state).
#ifndef CKDVOL_EDIT_FREE_SPACE_H_
#define CKDVOL_EDIT_FREE_SPACE_H_

#include <cstdint>
#include <string>
#include <vector>

#include "common/export.h"
#include "dataset/vtoc_scan.h"

namespace ckdvol {

// A run of tracks: `count` tracks from absolute track `first`.
struct TrackRun {
  uint32_t first = 0;
  uint32_t count = 0;
  uint32_t end() const { return first + count; }  // one past the last track
};

// A run of tracks in use and who uses it ("the label track", "the VTOC",
// or a data set's name).
struct UsedRun {
  TrackRun run;
  std::string owner;
};

struct FreeSpace {
  uint32_t volumeTracks = 0;
  uint32_t heads = 0;
  std::vector<TrackRun> extents;  // ascending, never adjacent, never empty
  uint32_t freeTracks = 0;
  uint32_t freeCylinders = 0;     // whole cylinders (head 0 to the last head) that are free
  uint32_t largestTracks = 0;     // the longest free extent, in tracks
  uint32_t largestCylinders = 0;  // the most whole cylinders inside one free extent
  std::vector<std::string> notes;  // overlaps, extents cut at the volume's end, bad extents

  uint32_t allocatedTracks() const { return volumeTracks - freeTracks; }
};

// The tracks in use on a volume of `volumeTracks` tracks as `vtoc` describes
// it: the label track, the VTOC's extent (as scanned: vtocFirstTrack to
// vtocLastTrack) and every data set's extents. Extents that are not well
// formed are left out and named in `notes`.
CKDVOL_EXPORT std::vector<UsedRun> usedRuns(const VtocInfo& vtoc, std::vector<std::string>& notes);

// The extents of one data set as runs (extents not well formed left out,
// named in `notes` when given).
CKDVOL_EXPORT std::vector<UsedRun> dataSetRuns(const DataSetInfo& ds, uint32_t heads,
                                                std::vector<std::string>* notes = nullptr);

// The free space left by `used` on a volume of `volumeTracks` tracks with
// `heads` heads per cylinder (runs cut at the volume's end, overlaps
// counted once, both noted).
CKDVOL_EXPORT FreeSpace computeFreeSpace(const std::vector<UsedRun>& used, uint32_t volumeTracks, uint32_t heads);

// computeFreeSpace(usedRuns(vtoc)) on the volume vtoc describes
// (vtoc.cylinders * vtoc.heads tracks).
CKDVOL_EXPORT FreeSpace freeSpaceOf(const VtocInfo& vtoc);

}  // namespace ckdvol

#endif  // CKDVOL_EDIT_FREE_SPACE_H_
