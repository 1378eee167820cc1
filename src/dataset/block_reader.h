// BlockReader: the data blocks of one data set, in data set order.
//
// A data set's blocks are the data records of its tracks (record zero
// excluded), track after track in relative-track order (ExtentMap: the
// extents in sequence, with the device's real heads per cylinder; never the
// volume file's plain track order), each track's records in the order they
// lie on the track. Reading starts at the data set's first block (relative
// track 0) or at a given relative track and record (a member's TTR) and ends
// at the end of data:
//   - an end-of-file record (data length 0) always ends the data;
//   - for sequential data sets read from their start, the DSCB's last-block
//     pointer (TTR, TTTR for large-format data sets) also ends it: the block
//     it names is the last one returned. When both are present, whichever
//     comes first wins: an EOF record before the pointer's block ends the
//     data there (nothing after an EOF record is data), and blocks after the
//     pointer's block are never returned (the pointer marks the last block
//     written; what lies behind it is residue). A zero pointer sets no limit.
//   - the end of the extents ends it too (no EOF record was written).
// A track holding no data records is passed over.
//
// Blocks are handed out as pointers into the volume file's track buffer:
// they stay valid until the next call of next(), or any other use of the
// same EmulatedCKDfile that reads a track. A track that is already the file's
// current track is not read again.
//
// Every length is checked against the track image: a count field whose key
// and data would run past the end of the track's record area is an error,
// never read. Reading is bounded by the extents' track count.
//
// Thread safety: none; one thread per reader and per file object.
#ifndef CKDVOL_DATASET_BLOCK_READER_H_
#define CKDVOL_DATASET_BLOCK_READER_H_

#include <cstdint>
#include <string>

#include "ckdfile/emulated_ckd_file.h"
#include "common/export.h"
#include "dataset/extent.h"
#include "dataset/vtoc_scan.h"

namespace ckdvol {

// One block (data record) of a data set.
struct Block {
  uint32_t relTrack = 0;  // relative track within the data set
  uint32_t cyl = 0;       // its absolute address
  uint32_t head = 0;
  uint8_t record = 0;                  // record number R from the count field
  const unsigned char* key = nullptr;  // null when the key length is 0
  uint32_t keyLength = 0;
  const unsigned char* data = nullptr;  // never null for a returned block
  uint32_t dataLength = 0;              // > 0 (a length of 0 is the EOF record)
};

// Results of BlockReader::next (and of the readers built on it).
enum BlockResult {
  kBlockRead = 1,             // a block was returned
  kBlockEnd = 0,              // end of data; see endReason()
  kBlockUnreadable = -1,      // a track could not be read
  kBlockOutsideExtents = -2,  // the start track is not inside the extents
  kBlockMissing = -3,         // the start record is not on its track
  kBlockBadTrack = -4,        // a count field runs past the track's record area
  kBlockDamagedDataSet = -5   // the data set's DSCB chain is damaged (DataSetInfo::damage)
};

// Why reading ended (valid after next() returned 0).
enum class EndOfData { kNotYet, kEofRecord, kLastBlock, kExtents };

class CKDVOL_EXPORT BlockReader {
 public:
  // Reads `ds` on the open volume `file`. Copies what it needs from `ds`;
  // `file` must stay open for the reader's life. Starts as startDataSet().
  BlockReader(EmulatedCKDfile& file, const DataSetInfo& ds);
  BlockReader(const BlockReader&) = delete;
  BlockReader& operator=(const BlockReader&) = delete;

  // Positions at the data set's first block. With `useLastBlockPointer` (and
  // a sequential data set whose pointer is not zero) the pointer ends the data.
  void startDataSet(bool useLastBlockPointer = true);
  // Positions at record `record` of relative track `relTrack` (a member's
  // TTR): that record is the first block; only an EOF record or the end of
  // the extents ends the data.
  void startAt(uint32_t relTrack, uint8_t record);

  // The next block into `b`: kBlockRead (1), kBlockEnd (0), or a negative
  // BlockResult with error() naming the place and the cause. After 0 or a
  // negative result every further call returns the same result.
  int next(Block& b);

  const std::string& error() const { return error_; }
  EndOfData endReason() const { return end_; }
  const ExtentMap& extentMap() const { return map_; }
  // Address of the last block returned, or where an error was found.
  const Block& position() const { return last_; }

 private:
  int fail(int code, const std::string& text);
  int loadTrack(uint32_t relTrack);

  EmulatedCKDfile& file_;
  ExtentMap map_;
  std::string damage_;
  bool sequential_ = false;
  uint32_t pointerTrack_ = 0;  // last-block pointer (TTT) and record
  uint8_t pointerRecord_ = 0;
  bool pointerSet_ = false;
  bool usePointer_ = false;

  uint32_t relTrack_ = 0;  // the track being read
  uint32_t cyl_ = 0;
  uint32_t head_ = 0;
  uint32_t nextOffset_ = 0;  // slot offset of the next count field on that track
  bool trackLoaded_ = false;
  uint8_t startRecord_ = 0;  // > 0: the first block must be this record
  int state_ = kBlockRead;   // kBlockRead while reading; else the final result
  EndOfData end_ = EndOfData::kNotYet;
  Block last_;
  std::string error_;
};

}  // namespace ckdvol

#endif  // CKDVOL_DATASET_BLOCK_READER_H_
