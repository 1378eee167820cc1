// Allocating a new, empty data set: checking the request, finding its space,
// writing its Format-1 DSCB (and Format-3 DSCB) and formatting its tracks.
//
// Space. The primary quantity is in tracks or in cylinders. It is taken
// from the free space below cylinder 65520 (the track-managed part of a
// large volume): one contiguous extent when a free extent is large enough
// (the lowest-addressed one that is; cylinder-aligned when the unit is
// cylinders), otherwise up to 5 extents, the largest free extents first,
// listed in track order. With `placed` the space is one extent starting at
// `atTrack` (for cylinders a track at head 0), refused when any of its
// tracks is not free. Extents of type 01 (tracks) or 81 (cylinders), with
// sequence numbers 0, 1, ...
//
// Formatting. Every allocated track is rewritten empty: home address and
// record zero (8 bytes of zero), then the end marker. What a reader needs
// to see an empty data set follows, and the Format-1 DSCB's end-of-data
// fields say where it is:
//   PS: an end-of-file record (R1, no key, data length 0) on the first
//     track. Last used block TTR (offset 98) 000000: nothing written; track
//     balance (101) the room left on that first track behind the
//     end-of-file record; offset 60 zero.
//   PO: `directoryBlocks` directory blocks (key 8, data 256, each in the
//     unused form of directory_block.h: key FF x 8, bytes used 14, the end
//     entry) as records 1, 2, ... of the first tracks, as many per track as
//     fit, then an end-of-file record behind the last block (on the next
//     track when that one is full). Last used block TTR = the last
//     directory block (relative track, record); track balance = the room
//     left on that track behind what was written there; offset 60 = 14,
//     the bytes used in the directory's last active block (the first: it
//     holds the end entry). Members are written behind the end-of-file
//     record; an empty directory lists no members.
// Both dataset/ readers and the volume classes' partitioned access read the
// result as an empty data set.
//
// Nothing is written: the change is staged in a StagedTracks and committed
// by the caller. Every refusal happens before anything is staged.
//
// Thread safety: none; one thread per StagedTracks.
#ifndef CKDVOL_EDIT_ALLOCATE_H_
#define CKDVOL_EDIT_ALLOCATE_H_

#include <cstdint>
#include <string>
#include <vector>

#include "common/export.h"
#include "dataset/vtoc_scan.h"
#include "edit/free_space.h"
#include "edit/staged_tracks.h"
#include "edit/vtoc_edit.h"

namespace ckdvol {

struct AllocationRequest {
  std::string name;           // 1-44 characters, see validateDataSetName
  uint16_t dsorg = kDsorgPS;  // kDsorgPS or kDsorgPO
  uint8_t recfm = kRecfmF | kRecfmBlocked;
  uint16_t lrecl = 80;
  uint16_t blksize = 0;       // 0: defaultBlockSize()
  uint8_t keyLength = 0;      // only 0 is allowed
  bool cylinders = false;     // unit of primary and secondary: cylinders, else tracks
  uint32_t primary = 0;
  uint32_t secondary = 0;     // kept in the Format-1 DSCB (at most 0xFFFFFF)
  uint32_t directoryBlocks = 0;  // PO only: at least 1
  bool placed = false;        // start at atTrack
  uint32_t atTrack = 0;       // absolute track (cylinder * heads + head) of the first extent
};

struct AllocationResult {
  RecordAddress format1;       // where the new Format-1 DSCB lies
  std::vector<Extent> extents;  // in data set order
  uint32_t tracks = 0;
  uint16_t blksize = 0;         // as written (the default filled in)
};

// Most extents a new allocation takes.
constexpr size_t kMaxAllocationExtents = 5;
// Cylinders below which data sets are allocated (track-managed space).
constexpr uint32_t kTrackManagedCylinders = 65520;
// The largest block size.
constexpr uint16_t kMaxBlockSize = 32760;

// A data set name: 1 to 44 characters; qualifiers of 1 to 8 characters
// separated by single dots; each begins with a letter or @ # $ and goes on
// with letters, digits, @ # $ or hyphens. Upper case only (callers upper-case
// what users type). False with `error` saying what is wrong.
CKDVOL_EXPORT bool validateDataSetName(const std::string& name, std::string& error);

// A volume serial: 1 to 6 characters of the qualifier rule above.
CKDVOL_EXPORT bool validateVolumeSerial(const std::string& serial, std::string& error);

// RECFM text (F, FB, V, VB, U, each optionally followed by A or M; any
// case) to its byte. False when it is none of these.
CKDVOL_EXPORT bool parseRecfm(const std::string& text, uint8_t& recfm);

// The block size used when none is given: for F, LRECL; for FB, the largest
// multiple of LRECL that fits half a track (two blocks per track; at most
// 32760 and at least LRECL); for V and VB, the largest block that fits half
// a track (at most 32760); for U, the same.
CKDVOL_EXPORT uint16_t defaultBlockSize(const EmulatedCKDfile& file, uint8_t recfm, uint16_t lrecl);

// Checks name, DSORG, RECFM/LRECL/BLKSIZE (BLKSIZE already filled in), key
// length and directory blocks against the device. False with `error`.
CKDVOL_EXPORT bool validateAllocation(const EmulatedCKDfile& file, const AllocationRequest& request, std::string& error);

// Chooses the space for `tracks` tracks (with `cylinders`, whole cylinders:
// `tracks` is then a multiple of the heads) from `fs`, below track `limit`,
// as described above. False with `error` ("no room: ...").
CKDVOL_EXPORT bool chooseSpace(const FreeSpace& fs, uint32_t tracks, bool cylinders, bool placed, uint32_t atTrack,
                               uint32_t limit, std::vector<TrackRun>& out, std::string& error);

// Allocates the data set `request` describes on the volume of `editor`
// (loaded), staging its DSCBs and tracks. False with `error`, nothing staged
// (but see vtoc_edit.h on a damaged VTOC).
CKDVOL_EXPORT bool allocateDataSet(VtocEditor& editor, const AllocationRequest& request, AllocationResult& result,
                                   std::string& error);

// The same on the volume of `staged`, whose scan is `vtoc`.
CKDVOL_EXPORT bool allocateDataSet(StagedTracks& staged, const VtocInfo& vtoc, const AllocationRequest& request,
                                   AllocationResult& result, std::string& error);

}  // namespace ckdvol

#endif  // CKDVOL_EDIT_ALLOCATE_H_
