// Internal header (not installed): the records of the volume file's current
// track, walked with the file's own reference accessors and checked against
// the track's record area, so that no count field, key or data area is ever
// read beyond it.
//
//   slot: 0 home address (5) | 5 record zero | records ... | 8 x FF marker,
//   beginning at slot - 24 at the latest | ... | slot - 16 trailer
#ifndef CKDVOL_DATASET_TRACK_RECORDS_H_
#define CKDVOL_DATASET_TRACK_RECORDS_H_

#include <cstdint>

#include "ckdfile/emulated_ckd_file.h"

namespace ckdvol {

struct TrackRecord {
  uint32_t offset = 0;    // slot offset of the count field
  int cyl = 0, head = 0;  // from the count field (large-cylinder decoding applied)
  int record = 0;
  int keyLength = 0;
  int dataLength = 0;
  const unsigned char* key = nullptr;   // null when keyLength is 0
  const unsigned char* data = nullptr;  // null when dataLength is 0
};

enum TrackWalk { kWalkRecord = 1, kWalkEnd = 0, kWalkOverrun = -1 };

// Slot offset of the first record after record zero: kWalkRecord and
// `offset`; kWalkOverrun when record zero runs past the record area or is
// the marker itself.
int firstRecordOffset(const EmulatedCKDfile& file, uint32_t& offset);

// The record whose count field is at `offset`: kWalkRecord, `r` filled and
// `offset` moved past the record; kWalkEnd at the end-of-track marker;
// kWalkOverrun when the count field, key or data would end beyond the record
// area (slot size - 24) or `offset` is not inside it.
int readRecordAt(const EmulatedCKDfile& file, uint32_t& offset, TrackRecord& r);

}  // namespace ckdvol

#endif  // CKDVOL_DATASET_TRACK_RECORDS_H_
