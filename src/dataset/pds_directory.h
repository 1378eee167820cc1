// The directory of a partitioned data set, every entry with what it says.
//
// The directory is the data set's first blocks, from relative track 0: 256-
// byte data blocks with an 8-byte key, up to the end-of-file record that
// closes it.
//   block: 0 bytes used u16 (including these two, 2..256) | 2 entries
//   entry: 0 name (8, EBCDIC, blank padded) | 8 TT u16 | 10 R | 11 indicator
//          | 12 user data, 2 x (indicator & 1F) bytes
//   indicator: 80 alias | 60 number of user TTRs in the user data (load
//          modules) | 1F halfwords of user data
// An entry whose name is eight bytes FF ends the directory.
//
// Common statistics layout of the user data: 30 bytes (indicator low bits
// 0F), or 40 bytes (low bits 14) in the extended form (flag 20 set):
//    0 version u8 | 1 modification level u8 | 2 flags (80 SCLM, 20 extended)
//    3 changed seconds, packed | 4 created date 0cyydddF | 8 changed date
//      0cyydddF | 12 changed hour, packed | 13 changed minute, packed
//   14 current lines u16 | 16 initial lines u16 | 18 modified lines u16
//   20 user id (8, EBCDIC) | 28 (30-byte form) 2 reserved bytes
//   extended form: 28 current lines u32 | 32 initial lines u32 |
//   36 modified lines u32, which replace the 16-bit counts.
// User data that does not fit this layout (another length, user TTRs, a
// digit that is not a digit, an impossible date or time) gives no
// statistics: `hasStatistics` is false and nothing is guessed.
//
// Thread safety: none; the functions use the file's track buffer.
#ifndef CKDVOL_DATASET_PDS_DIRECTORY_H_
#define CKDVOL_DATASET_PDS_DIRECTORY_H_

#include <cstdint>
#include <string>
#include <vector>

#include "ckdfile/emulated_ckd_file.h"
#include "common/export.h"
#include "dataset/dates.h"
#include "dataset/extent.h"
#include "dataset/vtoc_scan.h"

namespace ckdvol {

// Directory statistics in the common layout, decoded.
struct MemberStatistics {
  uint8_t version = 0;       // 0..99
  uint8_t modification = 0;  // 0..99
  uint8_t flags = 0;         // byte 2 as stored
  bool extended = false;     // 40-byte form with 32-bit line counts
  YearDay created;           // empty when stored as zero
  YearDay changed;
  uint8_t changedHour = 0;    // 0..23
  uint8_t changedMinute = 0;  // 0..59
  uint8_t changedSecond = 0;  // 0..59 (0 where the writer kept no seconds)
  uint32_t currentLines = 0;
  uint32_t initialLines = 0;
  uint32_t modifiedLines = 0;
  std::string userId;  // ASCII, trailing blanks removed
};

// One directory entry.
struct MemberInfo {
  std::string name;       // ASCII (code page 037), trailing blanks removed
  uint16_t track = 0;     // TT: relative track of the first block
  uint8_t record = 0;     // R: its record number
  uint8_t indicator = 0;  // as stored
  bool alias = false;     // indicator bit 80
  // For an alias: the name of the first entry in directory order that is not
  // an alias and has the same TTR; empty when there is none.
  std::string aliasOf;
  uint8_t userTtrs = 0;                 // (indicator >> 5) & 3: user TTRs in the user data
  std::vector<unsigned char> userData;  // 2 x (indicator & 1F) bytes as stored
  bool hasStatistics = false;
  MemberStatistics statistics;   // valid when hasStatistics
  RecordAddress directoryBlock;  // the directory block that holds the entry
};

// Results of readDirectory and memberSize beyond the BlockResult codes.
enum DirectoryResult {
  kDirectoryOk = 0,
  kDirectoryNotPartitioned = -20,  // DSORG is not PO
  kDirectoryMalformed = -21        // a block that is not a well-formed directory block
};

// Reads the directory of the partitioned data set `ds` on the open volume
// `file` into `members` (replaced), in directory order, with aliases resolved.
// Returns 0 when the end entry was met, or when the directory's EOF record
// or the end of the extents came first (every block read was well formed).
// Negative: kDirectoryNotPartitioned, a BlockResult of the block walk, or
// kDirectoryMalformed for a block whose data length is not 256, whose bytes
// used are not 2..256, or whose entry runs past the bytes used; `error` names
// the block's address and the cause, and `members` keeps the entries of the
// blocks before it.
CKDVOL_EXPORT int readDirectory(EmulatedCKDfile& file, const DataSetInfo& ds,
                                std::vector<MemberInfo>& members, std::string& error);

// Decodes `userData` in the common statistics layout. False (and `stats`
// unspecified) when it does not fit; `indicator` is the entry's indicator.
CKDVOL_EXPORT bool decodeStatistics(uint8_t indicator, const std::vector<unsigned char>& userData,
                                    MemberStatistics& stats);

// A member's size.
struct MemberSize {
  uint64_t blocks = 0;   // data blocks up to the member's EOF record
  uint64_t records = 0;  // logical records (F, V, VS formats; for U the blocks)
  uint64_t bytes = 0;    // sum of the blocks' data lengths
};

// Reads member `m` of `ds` from its TTR to its EOF record and counts it.
// 0 and `size`; negative: a BlockResult or RecordResult, with `error`
// naming the block and the cause (`size` then counts what came before).
CKDVOL_EXPORT int memberSize(EmulatedCKDfile& file, const DataSetInfo& ds, const MemberInfo& m,
                             MemberSize& size, std::string& error);

}  // namespace ckdvol

#endif  // CKDVOL_DATASET_PDS_DIRECTORY_H_
