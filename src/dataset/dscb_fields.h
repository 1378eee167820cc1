// Internal header (not installed): byte offsets of the DSCB fields the
// data-set layer reads, taken once from the DSCB classes' own descriptor
// tables (by label), so the layouts have one home, in dscb/.
//
//   Format-1/8: 0 name (44) | 44 format id | 53 created | 56 expires |
//     59 extent count | 60 bytes used in the last directory block |
//     61 DS1FLAG1 (08: large format) | 75 last referenced | 82 DSORG (2) |
//     84 RECFM | 86 BLKSIZE | 88 LRECL | 90 key length | 98 DS1LSTAR last
//     used block TTR | 101 DS1TRBAL track balance | 104 DS1TTTHI high byte
//     of the last used track (large format) | 105 three extents |
//     135 CCHHR of the first Format-3 (format 1) or Format-9 (format 8) DSCB
//   Format-3: 4 extents 1-4 | 44 format id | 45 extents 5-13 | 135 next F3
//   Format-4: 45 DS4HPCHR last active DSCB | 74 DS4DEVDT DSCBs per track |
//     105 DS4VTOCE the VTOC's own extent
//   Format-9: 45 count of Format-3 addresses | 46 ten Format-3 CCHHRs |
//     135 CCHHR of the next Format-9 (or the first Format-3) DSCB
#ifndef CKDVOL_DATASET_DSCB_FIELDS_H_
#define CKDVOL_DATASET_DSCB_FIELDS_H_

namespace ckdvol {

constexpr int kDscbKeyLength = 44;
constexpr int kDscbDataLength = 96;
constexpr int kDscbFormatId = 44;  // EBCDIC digit F0..F9
constexpr int kF3Extents = 13;
constexpr int kF9Format3Slots = 10;
constexpr unsigned char kLargeFormatFlag = 0x08;  // DS1FLAG1: large-format data set

struct DataSetDscbFields {
  int name, created, expires, extentCount, lastDirBytes, flag1, referenced, dsorg, recfm, blksize,
      lrecl, keyLength, lastBlock, trackBalance, lastTrackHigh, extents, next;
};

struct DscbFields {
  DataSetDscbFields f1;
  DataSetDscbFields f8;
  int f3Extent[kF3Extents];  // offset of each Format-3 extent
  int f3Next;
  int f4LastActive, f4DscbsPerTrack, f4VtocExtent;
  int f9Format3Count, f9Format3First, f9Next;
};

// The offsets, resolved on first use (thread-safe static initialisation).
const DscbFields& dscbFields();

}  // namespace ckdvol

#endif  // CKDVOL_DATASET_DSCB_FIELDS_H_
