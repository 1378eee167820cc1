// Writing data into a data set's space: records blocked by the data set's
// record format, blocks placed on its relative tracks, the end of data
// recorded in its Format-1 DSCB.
//
// Blocking (Blocker), by the RECFM byte:
//   F   one record of exactly LRECL bytes per block.
//   FB  BLKSIZE / LRECL records of exactly LRECL bytes per block; the last
//       block holds what is left (whole records).
//   V   one record per block: BDW (block length u16 including the BDW, 00 00),
//       RDW (record length u16 including the RDW, 00 00), the record.
//   VB  as many records (each behind its RDW) as fit BLKSIZE behind one BDW.
//   U   every record is a block of 1..BLKSIZE bytes.
// A record too long for the format is refused with its number (1-based);
// records of F and FB must have exactly LRECL bytes (a caller writing text
// pads lines with EBCDIC blanks first). Spanned formats (VS, VBS) and
// keyed data sets are not written.
//
// Placing (DataWriter): blocks follow one another on the data set's relative
// tracks (ExtentMap, the device's real heads per cylinder), starting at
// record 1 of a relative track or behind a given record of it (the records
// before it kept). A block that does not fit on the current track goes to
// the next one; record numbers stop at 255. Every track the writer fills is
// rewritten whole; tracks behind the last one it wrote are not touched.
// Nothing is staged before finish(): a refusal leaves the StagedTracks as it
// was. A streamed StagedTracks (edit/staged_tracks.h) is the exception: each
// track goes on as soon as it is full, so that no image is held.
//
// Thread safety: none; one thread per object and per file.
#ifndef CKDVOL_EDIT_DATA_WRITER_H_
#define CKDVOL_EDIT_DATA_WRITER_H_

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "common/export.h"
#include "dataset/extent.h"
#include "dataset/vtoc_scan.h"
#include "edit/staged_tracks.h"

namespace ckdvol {

using Bytes = std::vector<unsigned char>;

// Cuts records into blocks for one record format.
class CKDVOL_EXPORT Blocker {
 public:
  Blocker(uint8_t recfm, uint32_t lrecl, uint32_t blksize);
  // Empty when records can be blocked for this format, else why not
  // ("spanned records (RECFM VBS) are not written", "LRECL 0", ...).
  const std::string& problem() const { return problem_; }
  // The longest record add() takes (F/FB: exactly this long).
  uint32_t maxRecord() const { return maxRecord_; }

  // Adds the next record. False with `error` naming the record's number
  // when it has the wrong length; nothing is added then.
  bool add(const unsigned char* data, size_t length, std::string& error);
  // Closes the block being filled (call once after the last record).
  void finish();
  std::vector<Bytes>& blocks() { return blocks_; }
  uint64_t records() const { return records_; }

 private:
  void close();
  uint8_t kind_;  // kRecfmF, kRecfmV or kRecfmU (0 when refused)
  bool blocked_;
  uint32_t lrecl_;
  uint32_t blksize_;
  uint32_t maxRecord_ = 0;
  std::string problem_;
  std::vector<Bytes> blocks_;
  Bytes open_;  // block being filled
  uint32_t inOpen_ = 0;
  uint64_t records_ = 0;
};

// A record's place in a data set: relative track and record number.
struct Ttr {
  uint32_t track = 0;
  uint8_t record = 0;
};
inline bool operator<(const Ttr& a, const Ttr& b) {
  return a.track != b.track ? a.track < b.track : a.record < b.record;
}
inline bool operator==(const Ttr& a, const Ttr& b) { return a.track == b.track && a.record == b.record; }

// Places blocks on a data set's tracks.
class CKDVOL_EXPORT DataWriter {
 public:
  // Writes into `ds` (its extents, with the volume's real heads) through
  // `staged`; both must outlive the writer.
  DataWriter(StagedTracks& staged, const DataSetInfo& ds);
  ~DataWriter();
  DataWriter(const DataWriter&) = delete;
  DataWriter& operator=(const DataWriter&) = delete;

  // Empty when the data set can be written, else why not (damaged, keyed,
  // no extents, extents above cylinder 65519).
  std::string problem() const;
  // Positions behind record `afterRecord` of relative track `track` (0:
  // the track's records are all replaced). The track's image is read
  // through `staged`. False with `error` when the track lies outside the
  // extents or its records cannot be walked up to that record.
  bool start(uint32_t track, uint8_t afterRecord, std::string& error);
  // Appends a block (keyLength 0 for none); `at` gets its place. False
  // with `error` when the extents are full ("no space left in DSN: N
  // tracks allocated, all used") or the block fits no track.
  bool add(const unsigned char* key, uint32_t keyLength, const unsigned char* data, uint32_t dataLength,
           Ttr& at, std::string& error);
  bool addEndOfFile(Ttr& at, std::string& error) { return add(nullptr, 0, nullptr, 0, at, error); }
  // Stages every track written so far (the current one included). The
  // writer may go on afterwards; the current track is staged again then.
  bool finish(std::string& error);

  // The last record written (block or end of file) and the bytes still
  // free on its track (TrackBuilder::balance()).
  Ttr last() const { return last_; }
  uint32_t lastBalance() const { return lastBalance_; }
  // Tracks written (each counted once).
  uint32_t tracksWritten() const { return stagedDone_ + static_cast<uint32_t>(done_.size()) + (current_ ? 1 : 0); }

 private:
  bool open(uint32_t track, std::string& error);
  std::string fullText() const;

  StagedTracks& staged_;
  const DataSetInfo& ds_;
  ExtentMap map_;
  uint32_t limit_;  // relative tracks that can be addressed (TT or TTT)
  uint32_t track_ = 0;
  std::unique_ptr<TrackBuilder> current_;
  std::vector<std::pair<uint32_t, Bytes>> done_;  // absolute track, image
  uint32_t stagedDone_ = 0;                      // full tracks finish() staged already
  Ttr last_;
  uint32_t lastBalance_ = 0;
};

// Records the end of data in the data set's Format-1/8 DSCB (staged in
// place at ds.address): DS1LSTAR = `last` (TT; its high byte DS1TTTHI for
// large-format data sets), DS1TRBAL = `balance`, and when `directoryBytes`
// >= 0 the bytes used in the last directory block. False with `error` when
// the DSCB is not where the scan found it, or `last` cannot be stored.
CKDVOL_EXPORT bool stageEndOfData(StagedTracks& staged, const DataSetInfo& ds, Ttr last, uint32_t balance,
                                  int directoryBytes, std::string& error);

// What a write did.
struct WriteSummary {
  uint64_t records = 0;
  uint64_t blocks = 0;
  uint32_t tracks = 0;  // tracks written
  Ttr first;            // the first block (or the EOF record for no data)
  Ttr last;             // DS1LSTAR as stored
};

// Replaces the whole contents of the sequential data set `ds`: `blocks` from
// relative track 0 record 1, an end-of-file record behind them, the end of
// data in the DSCB (the last block; TTR 0 when there is none). False with
// `error` (and nothing staged) when it is not sequential or does not fit.
CKDVOL_EXPORT bool writeSequential(StagedTracks& staged, const DataSetInfo& ds, const std::vector<Bytes>& blocks,
                                   WriteSummary& summary, std::string& error);

}  // namespace ckdvol

#endif  // CKDVOL_EDIT_DATA_WRITER_H_
