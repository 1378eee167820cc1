// Test-side partitioned data set builder, on top of the volume builder:
// directory entries and blocks composed byte by byte from the layout named
// below (independently of the library's DirEnt code), and a layout helper
// that puts a directory and members onto a data set's tracks.
//
// Directory block (data length 256, key 8 = name of the block's last entry):
//   0 bytes used u16 BE (these two included) | 2 entries back to back
// Entry: 0 name (8, EBCDIC, blank padded) | 8 TT u16 BE | 10 R | 11 indicator
//        (low 5 bits: halfwords of user data) | 12 user data
//
// Like the volume builder, everything that cannot be done throws
// std::runtime_error naming the step.
#ifndef CKDVOL_TESTS_SUPPORT_PDS_BUILDER_H_
#define CKDVOL_TESTS_SUPPORT_PDS_BUILDER_H_

#include <cstdint>
#include <string>
#include <vector>

#include "support/volume_builder.h"

namespace ckdvol_test {

namespace pds_layout {
constexpr int kBlockSize = 256;  // directory block data length
constexpr int kKeySize = 8;      // directory block key
constexpr int kUsed = 0;         // u16 BE bytes used
constexpr int kFirstEntry = 2;
constexpr int kName = 0;  // 8 bytes
constexpr int kTT = 8;    // u16 BE
constexpr int kR = 10;
constexpr int kIndicator = 11;
constexpr int kUserData = 12;
constexpr int kFixed = 12;
constexpr uint16_t kDsorgPO = 0x0200;
}  // namespace pds_layout

using Bytes = std::vector<unsigned char>;

// An entry: `name` in EBCDIC padded with blanks to 8, TT, R, indicator
// = flags | (userData.size() / 2), then the user data (even length, <= 62).
Bytes dirEntry(const std::string& name, uint16_t tt, uint8_t r, const Bytes& userData = {},
               uint8_t flags = 0);
// The end-of-directory entry: 8 x FF, TTR 0, indicator 0.
Bytes endEntry();
// A 256-byte block: bytes used = 2 + the entries' lengths (unless `used` >= 0),
// the entries back to back, zero behind them.
Bytes directoryBlock(const std::vector<Bytes>& entries, int used = -1);
// The block as a record with an 8-byte key (`key` padded with zeros / cut).
Record directoryRecord(uint8_t rec, const Bytes& key, const Bytes& block);

// A DataSetLayout for a partitioned data set: DSORG 0200, RECFM FB.
DataSetLayout pdsDataSet(const std::string& name, uint16_t lrecl, uint16_t blksize,
                       const std::vector<ExtentSpec>& extents);

// A member: its blocks (data records, no key) in order, closed by an
// end-of-file record. An empty `blocks` gives a member of only the EOF.
struct PdsMember {
  std::string name;
  std::vector<Bytes> blocks;
  Bytes userData;              // even length, at most 62
  uint8_t indicatorFlags = 0;  // ORed into the indicator byte (bits 80, 40, 20)
  int entryTT = -1;            // >= 0: the directory entry names this TT instead (a damaged entry)
};

// `count` logical records of `lrecl` bytes, record i filled with text
// "<tag> i" in EBCDIC followed by EBCDIC blanks, cut into blocks of at most
// `perBlock` records.
std::vector<Bytes> textBlocks(const std::string& tag, int count, int lrecl, int perBlock);
// The text of record i of textBlocks(tag, ...) as ASCII, without padding.
std::string textRecord(const std::string& tag, int i);

struct PdsLayoutOptions {
  int directoryBlocks = 1;  // blocks written (unused ones carry only bytes used = 2)
  int recordsPerTrack = 0;  // cap of records per track; 0: as many as fit
};

// Where things went.
struct PdsPlacement {
  std::vector<Cchhr> tracks;       // relative track -> cylinder/head (real heads per cylinder)
  std::vector<Cchhr> memberStart;  // first block (or EOF) of each member, in member order
  std::vector<uint16_t> memberTT;  // the TT of each member's first block
  std::vector<uint8_t> memberR;    //   and its R
  Cchhr directoryEof;              // the EOF record closing the directory
};

// The data set's tracks, extent after extent, each extent walked from its
// low to its high CCHH with the volume's real heads per cylinder.
std::vector<Cchhr> dataSetTracks(TestVolume& vol, const std::vector<ExtentSpec>& extents);

// Writes the directory (entries in member order, then the end entry; as
// many blocks as `options.directoryBlocks`), its EOF record, then each
// member's blocks and EOF record, onto the tracks of `extents` from relative
// track 0. Does not touch the VTOC.
PdsPlacement writePds(TestVolume& vol, const std::vector<ExtentSpec>& extents,
                      const std::vector<PdsMember>& members, const PdsLayoutOptions& options = {});

// The whole volume file's bytes (to compare before and after).
Bytes fileBytes(const std::string& path);

}  // namespace ckdvol_test

#endif  // CKDVOL_TESTS_SUPPORT_PDS_BUILDER_H_
