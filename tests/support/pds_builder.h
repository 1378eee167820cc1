// Test-side partitioned data set builder on top of the volume builder:
// directory entries and blocks composed byte by byte (independently of the
// library's DirEnt code), and writePds, which puts a directory and members onto
// a data set's tracks. Failures throw std::runtime_error naming the step.
//
// Directory block (data 256, key 8 = name of the block's last entry): bytes
// used u16 (these two included), then the entries. Entry: name (8, EBCDIC,
// blank padded), TT u16, R, indicator (low 5 bits: halfwords of user data),
// user data.
#ifndef CKDVOL_TESTS_SUPPORT_PDS_BUILDER_H_
#define CKDVOL_TESTS_SUPPORT_PDS_BUILDER_H_

#include <cstdint>
#include <string>
#include <vector>

#include "support/volume_builder.h"

namespace ckdvol_test {

using Bytes = std::vector<unsigned char>;

// An entry: indicator = flags | (userData.size() / 2); user data even, <= 62.
Bytes dirEntry(const std::string& name, uint16_t tt, uint8_t r, const Bytes& userData = {}, uint8_t flags = 0);
Bytes endEntry();  // 8 x FF, TTR 0, indicator 0
// A 256-byte block: bytes used = 2 + the entries' lengths unless `used` >= 0.
Bytes directoryBlock(const std::vector<Bytes>& entries, int used = -1);
Record directoryRecord(uint8_t rec, const Bytes& key, const Bytes& block);  // key zero padded or cut to 8
// DSORG 0200, RECFM FB.
DataSetLayout pdsDataSet(const std::string& name, uint16_t lrecl, uint16_t blksize,
                         const std::vector<ExtentSpec>& extents);

struct PdsMember {  // its blocks in order, then an EOF record
  std::string name;
  std::vector<Bytes> blocks;
  Bytes userData;              // even length, at most 62
  uint8_t indicatorFlags = 0;  // ORed into the indicator (bits 80, 40, 20)
  int entryTT = -1;            // >= 0: the entry names this TT instead (a damaged entry)
};
// `count` records of `lrecl` bytes, record i "<tag> i" in EBCDIC blank padded,
// at most `perBlock` a block; textRecord gives record i's ASCII text.
std::vector<Bytes> textBlocks(const std::string& tag, int count, int lrecl, int perBlock);
std::string textRecord(const std::string& tag, int i);

struct PdsLayoutOptions {
  int directoryBlocks = 1;  // unused ones hold only bytes used = 2
  int recordsPerTrack = 0;  // 0: as many as fit
};
struct PdsPlacement {
  std::vector<Cchhr> tracks;       // relative track -> cylinder/head (the real heads)
  std::vector<uint16_t> memberTT;  // each member's first block (or EOF): TT
  std::vector<uint8_t> memberR;    //   and R
  Cchhr directoryEof;              // the EOF record closing the directory
};
// Writes the directory (entries in member order and the end entry, in
// `directoryBlocks` blocks) and its EOF, then each member's blocks and EOF,
// from relative track 0 of `extents` (low to high CCHH, real heads). The VTOC
// is not touched.
PdsPlacement writePds(TestVolume& vol, const std::vector<ExtentSpec>& extents,
                      const std::vector<PdsMember>& members, const PdsLayoutOptions& options = {});

Bytes fileBytes(const std::string& path);  // the whole file

}  // namespace ckdvol_test

#endif  // CKDVOL_TESTS_SUPPORT_PDS_BUILDER_H_
