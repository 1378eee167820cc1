// RecordReader: the logical records of a data set, deblocked from the blocks
// of a BlockReader by the data set's record format.
//
// Record formats (RECFM byte, DataSetInfo::recfm):
//   F, FB (80, 90): every block holds whole records of LRECL bytes (an F
//     block exactly one; the last block of FB may be short, by whole records).
//   V, VB (40, 50): a block starts with a block descriptor word (BDW: LL u16
//     including itself, 00 00; with bit 8000 of LL set, the 4 bytes hold a
//     31-bit length), then records, each with a record descriptor word (RDW:
//     LL u16 including itself, 00 00). The BDW's length must equal the
//     block's data length; the records must fill the block exactly.
//   VS, VBS (48, 58): as V, but each descriptor is a segment descriptor word
//     (SDW: LL u16, segment control byte, 00). Control bits 03 of byte 2:
//     00 a complete record, 01 its first segment, 10 its last segment, 11 a
//     middle segment. The segments of one record (across blocks) are joined.
//   U (C0) and no format given (00): every block is one record.
// Keys: when a block has a key, each record of the block carries the block's
// key separately (`key`, `keyLength`); the key is never part of the data.
// Raw mode hands out every block whole, as one record, whatever the format.
//
// Records are handed out without their descriptor words. A record's bytes
// are valid until the next call of next() or any other read of a track of
// the same volume file (they point into the track buffer, or for joined
// spanned records into the reader's own buffer).
//
// A block whose lengths contradict the record format is an error that names
// the block's address (cylinder/head/record) and the contradiction, for
// example "block 0/3/2: BDW says 812 but the block has 800 bytes"; nothing is
// skipped silently.
//
// Thread safety: none; one thread per reader (and per file object).
#ifndef CKDVOL_DATASET_RECORD_READER_H_
#define CKDVOL_DATASET_RECORD_READER_H_

#include <cstdint>
#include <string>
#include <vector>

#include "common/export.h"
#include "dataset/block_reader.h"

namespace ckdvol {

// One logical record.
struct LogicalRecord {
  const unsigned char* data = nullptr;  // null only when `length` is 0
  uint32_t length = 0;
  const unsigned char* key = nullptr;  // the block's key; null when none
  uint32_t keyLength = 0;
  // The block that held it. For a joined spanned record: the address of its
  // first segment's block, with `block.key` and `block.data` null (that
  // block is gone; the record's own `key` is a copy of its key).
  Block block;
  bool firstInBlock = false;  // the first record handed out from `block`
};

// How a RecordReader cuts blocks.
enum class Deblocking {
  kFixed,            // F, FB
  kVariable,         // V, VB
  kVariableSpanned,  // VS, VBS
  kUndefined,        // U: one record per block
  kRaw               // whole blocks, whatever the format
};

// The deblocking that a RECFM byte asks for (U for 00 and C0).
CKDVOL_EXPORT Deblocking deblockingFor(uint8_t recfm);

// Results of RecordReader::next beyond the BlockResult codes it passes on.
enum RecordResult {
  kRecordBadBlock = -10,    // a block's lengths contradict the record format
  kRecordBadSegment = -11,  // a spanned record's segments are out of order
  kRecordTooLong = -12,     // a spanned record would exceed kMaxSpannedRecord
  kRecordBadLrecl = -13     // fixed-length records with LRECL 0
};

// Longest joined spanned record accepted (bounds memory on hostile volumes).
constexpr uint32_t kMaxSpannedRecord = 16u * 1024 * 1024;

class CKDVOL_EXPORT RecordReader {
 public:
  // Deblocks the blocks of `blocks` (positioned by the caller; the reader
  // only calls next() on it). `lrecl` is used by kFixed only.
  RecordReader(BlockReader& blocks, Deblocking mode, uint32_t lrecl);
  // Convenience: the deblocking and LRECL of `ds` (kRaw when `raw`).
  RecordReader(BlockReader& blocks, const DataSetInfo& ds, bool raw = false);
  RecordReader(const RecordReader&) = delete;
  RecordReader& operator=(const RecordReader&) = delete;

  // The next record into `r`: 1 a record, 0 end of data, negative on error:
  // a BlockResult from the block reader (its error() text is taken over) or
  // a RecordResult. error() names the block's address and the cause. After 0
  // or a negative result every further call returns the same result.
  // Passing the same `r` to consecutive calls is cheapest: fields that did
  // not change since the reader last filled that object (key, keyLength,
  // block) are not written again, so a caller that changes them itself
  // passes another object next time.
  int next(LogicalRecord& r) {
    // The common case inline: the next fixed-length record of the current
    // block; everything else (and every error) in nextSlow().
    if (fastPos_ < fastEnd_) {
      r.data = fastPos_;
      r.length = lrecl_;
      if (&r != filled_) {  // another object: give it the block's fields too
        r.key = block_.key;
        r.keyLength = block_.keyLength;
        r.block = block_;
        filled_ = &r;
      }
      r.firstInBlock = false;
      fastPos_ += lrecl_;
      return kBlockRead;
    }
    return nextSlow(r);
  }
  const std::string& error() const { return error_; }
  uint64_t blocksRead() const { return blocksRead_; }  // blocks taken from the block reader
  uint64_t bytesRead() const { return bytesRead_; }    // the sum of their data lengths

 private:
  int nextSlow(LogicalRecord& r);
  int fail(int code, const std::string& text);
  int nextBlock();
  std::string where() const;

  BlockReader& blocks_;
  Deblocking mode_;
  uint32_t lrecl_;
  Block block_;                             // the block being cut
  uint32_t pos_ = 0;                        // next byte of block_.data
  uint32_t end_ = 0;                        // end of the records in block_.data
  const unsigned char* fastPos_ = nullptr;  // fixed-length records left in block_:
  const unsigned char* fastEnd_ = nullptr;  //   [fastPos_, fastEnd_), handed out by next()
  const LogicalRecord* filled_ = nullptr;   // the object whose block fields are current
  bool haveBlock_ = false;
  bool firstOfBlock_ = false;
  std::vector<unsigned char> joined_;      // spanned record being assembled
  std::vector<unsigned char> joinedKey_;   //   and its first block's key
  Block joinedFrom_;                       //   and that block's address (no pointers)
  bool spanOpen_ = false;                  // a first segment was met, its last not yet
  std::vector<unsigned char> spannedOut_;  // the joined record last handed out
  std::vector<unsigned char> spannedKey_;  //   and its key
  int state_ = 1;
  uint64_t blocksRead_ = 0;
  uint64_t bytesRead_ = 0;
  std::string error_;
};

}  // namespace ckdvol

#endif  // CKDVOL_DATASET_RECORD_READER_H_
