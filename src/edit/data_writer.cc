// Blocking records and placing blocks on a data set's tracks.
#include "edit/data_writer.h"

#include <algorithm>
#include <cstdio>

#include "dataset/dscb_fields.h"

namespace ckdvol {
namespace {

constexpr uint32_t kDescriptor = 4;         // BDW or RDW
constexpr uint32_t kLargestVBlock = 32760;  // a BDW without its 31-bit form
constexpr uint32_t kFirstCylinderManaged = 65520;

std::string recfmName(uint8_t recfm) {
  const uint8_t f = recfm & kRecfmFormatMask;
  std::string s = f == kRecfmF ? "F" : f == kRecfmV ? "V" : f == kRecfmU ? "U" : "(none)";
  if (recfm & kRecfmBlocked) s += "B";
  if (recfm & kRecfmSpanned) s += "S";
  return s;
}

void putBe16(unsigned char* p, uint32_t v) {
  p[0] = static_cast<unsigned char>(v >> 8);
  p[1] = static_cast<unsigned char>(v);
}

}  // namespace

// ---- blocking ------------------------------------------------------------------

Blocker::Blocker(uint8_t recfm, uint32_t lrecl, uint32_t blksize)
    : kind_(recfm & kRecfmFormatMask), blocked_((recfm & kRecfmBlocked) != 0), lrecl_(lrecl), blksize_(blksize) {
  const std::string name = "RECFM " + recfmName(recfm);
  if (kind_ == 0) kind_ = kRecfmU;  // no format given: every record a block
  if (kind_ == kRecfmF) {
    if (lrecl_ == 0) problem_ = name + " with LRECL 0";
    if (!blocked_ || blksize_ == 0) blksize_ = lrecl_;
    if (problem_.empty() && blksize_ < lrecl_) {
      problem_ = name + " with BLKSIZE " + std::to_string(blksize_) + " below LRECL " + std::to_string(lrecl_);
    }
    maxRecord_ = lrecl_;
  } else if (kind_ == kRecfmV) {
    if (recfm & kRecfmSpanned) problem_ = "spanned records (" + name + ") are not written";
    if (blksize_ == 0) blksize_ = lrecl_ + kDescriptor;
    if (lrecl_ == 0) lrecl_ = blksize_ - kDescriptor;
    if (problem_.empty() && (lrecl_ <= kDescriptor || blksize_ <= 2 * kDescriptor)) {
      problem_ = name + " with LRECL " + std::to_string(lrecl_) + " and BLKSIZE " + std::to_string(blksize_) +
                 " leaves no room for a record";
    }
    if (problem_.empty() && blksize_ > kLargestVBlock) {
      problem_ = name + " with BLKSIZE " + std::to_string(blksize_) + " above " + std::to_string(kLargestVBlock);
    }
    if (problem_.empty()) maxRecord_ = std::min(lrecl_ - kDescriptor, blksize_ - 2 * kDescriptor);
  } else {
    if (blksize_ == 0) problem_ = name + " with BLKSIZE 0";
    maxRecord_ = blksize_;
  }
}

bool Blocker::add(const unsigned char* data, size_t length, std::string& error) {
  const uint64_t number = records_ + 1;
  if (!problem_.empty()) {
    error = problem_;
    return false;
  }
  if (kind_ == kRecfmF && length != lrecl_) {
    error = "record " + std::to_string(number) + " has " + std::to_string(length) +
            " bytes; fixed-length records have exactly LRECL " + std::to_string(lrecl_);
    return false;
  }
  if (kind_ == kRecfmU && length == 0) {
    error = "record " + std::to_string(number) + " is empty; an undefined-length block has at least one byte";
    return false;
  }
  if (length > maxRecord_) {
    error = "record " + std::to_string(number) + " has " + std::to_string(length) + " bytes, more than the " +
            std::to_string(maxRecord_) + " that LRECL " + std::to_string(lrecl_) + " and BLKSIZE " +
            std::to_string(blksize_) + " allow";
    return false;
  }
  ++records_;
  if (kind_ == kRecfmF) {
    open_.insert(open_.end(), data, data + length);
    if (++inOpen_ >= blksize_ / lrecl_) close();
  } else if (kind_ == kRecfmV) {
    const uint32_t size = static_cast<uint32_t>(length) + kDescriptor;
    if (!open_.empty() && (!blocked_ || open_.size() + size > blksize_)) close();
    if (open_.empty()) open_.assign(kDescriptor, 0);  // the BDW, set when the block closes
    const size_t at = open_.size();
    open_.resize(at + kDescriptor, 0);
    putBe16(&open_[at], size);
    open_.insert(open_.end(), data, data + length);
    ++inOpen_;
  } else {
    blocks_.emplace_back(data, data + length);
  }
  return true;
}

void Blocker::close() {
  if (open_.empty()) return;
  if (kind_ == kRecfmV) putBe16(open_.data(), static_cast<uint32_t>(open_.size()));
  blocks_.push_back(std::move(open_));
  open_.clear();
  inOpen_ = 0;
}

void Blocker::finish() { close(); }

// ---- placing -------------------------------------------------------------------

DataWriter::DataWriter(StagedTracks& staged, const DataSetInfo& ds)
    : staged_(staged), ds_(ds), map_(ds.extents, staged.heads()) {
  const uint32_t addressable = ds.largeFormat ? (1u << 24) : (1u << 16);
  limit_ = std::min(map_.tracks(), addressable);
}

DataWriter::~DataWriter() = default;

std::string DataWriter::problem() const {
  if (!ds_.damage.empty()) return "data set " + ds_.name + " is damaged: " + ds_.damage;
  if (map_.tracks() == 0) return "data set " + ds_.name + " has no usable extent";
  if (map_.badExtents() != 0) return "data set " + ds_.name + " has an extent that is not well formed";
  for (const Extent& e : map_.extents()) {
    if (e.highCyl >= kFirstCylinderManaged) {
      return "data set " + ds_.name + " has an extent at or above cylinder " +
             std::to_string(kFirstCylinderManaged) + ", which is not written";
    }
  }
  return "";
}

std::string DataWriter::fullText() const {
  if (limit_ < map_.tracks()) {
    return "no space left in " + ds_.name + ": relative track " + std::to_string(limit_) +
           " cannot be addressed in a TTR";
  }
  return "no space left in " + ds_.name + ": " + std::to_string(map_.tracks()) + " tracks allocated, all used";
}

bool DataWriter::open(uint32_t track, std::string& error) {
  uint32_t cyl = 0, head = 0;
  if (track >= limit_ || !map_.toCylHead(track, cyl, head)) {
    error = fullText();
    return false;
  }
  track_ = track;
  // A streamed change builds every track in the buffer of one written
  // before it (and a planning run copies no bytes at all).
  current_.reset(new TrackBuilder(staged_.file(), cyl, head, staged_.buffer(), staged_.planning()));
  return true;
}

bool DataWriter::start(uint32_t track, uint8_t afterRecord, std::string& error) {
  const std::string p = problem();
  if (!p.empty()) {
    error = p;
    return false;
  }
  done_.clear();
  stagedDone_ = 0;
  current_.reset();
  if (!open(track, error)) return false;
  if (afterRecord > 0) {
    uint32_t cyl = 0, head = 0;
    map_.toCylHead(track, cyl, head);
    const unsigned char* image = staged_.image(cyl * staged_.heads() + head, error);
    if (image == nullptr) return false;
    if (!current_->keep(image, afterRecord)) {
      error = "the records of " + staged_.trackText(cyl * staged_.heads() + head) + " (relative track " +
              std::to_string(track) + " of " + ds_.name + ") cannot be walked up to record " +
              std::to_string(afterRecord);
      current_.reset();
      return false;
    }
  }
  last_ = Ttr{track, afterRecord};
  lastBalance_ = current_->balance();
  return true;
}

bool DataWriter::add(const unsigned char* key, uint32_t keyLength, const unsigned char* data, uint32_t dataLength,
                     Ttr& at, std::string& error) {
  if (!current_) {
    error = "nothing to write into: the writer was not started";
    return false;
  }
  if (!current_->fits(keyLength, dataLength)) {
    const bool fresh = current_->lastRecord() == 0;
    if (fresh || track_ + 1 >= limit_) {
      error = fresh ? "a block of " + std::to_string(dataLength) + " bytes does not fit on a track" : fullText();
      return false;
    }
    uint32_t cyl = 0, head = 0;
    map_.toCylHead(track_, cyl, head);
    const uint32_t full = cyl * staged_.heads() + head;
    std::vector<unsigned char> image = current_->take();
    current_.reset();
    if (staged_.streaming()) {
      // Streamed: the full track goes on at once and is not held.
      if (!staged_.put(full, std::move(image), error)) return false;
      ++stagedDone_;
    } else {
      done_.emplace_back(full, std::move(image));
    }
    if (!open(track_ + 1, error)) return false;
    if (!current_->fits(keyLength, dataLength)) {
      error = "a block of " + std::to_string(dataLength) + " bytes does not fit on a track";
      return false;
    }
  }
  const uint8_t r = current_->add(key, keyLength, data, dataLength);
  at = Ttr{track_, r};
  last_ = at;
  lastBalance_ = current_->balance();
  return true;
}

bool DataWriter::finish(std::string& error) {
  // The full tracks' images move into the staging (the current one is
  // copied: the writer may go on with it).
  for (auto& t : done_) {
    if (!staged_.put(t.first, std::move(t.second), error)) return false;
    ++stagedDone_;
  }
  done_.clear();
  if (current_) {
    uint32_t cyl = 0, head = 0;
    map_.toCylHead(track_, cyl, head);
    if (!staged_.put(cyl * staged_.heads() + head, current_->image().data(), error)) return false;
  }
  return true;
}

// ---- end of data ------------------------------------------------------------

bool stageEndOfData(StagedTracks& staged, const DataSetInfo& ds, Ttr last, uint32_t balance, int directoryBytes,
                    std::string& error) {
  const DataSetDscbFields& f = ds.format == 8 ? dscbFields().f8 : dscbFields().f1;
  if (last.track > (ds.largeFormat ? 0xFFFFFFu : 0xFFFFu)) {
    error = "relative track " + std::to_string(last.track) + " of " + ds.name + " cannot be recorded as its end";
    return false;
  }
  uint32_t keyLength = 0, dataLength = 0;
  unsigned char* p = staged.stageRecord(ds.address.cyl * staged.heads() + ds.address.head, ds.address.record,
                                        keyLength, dataLength, error);
  if (p == nullptr) return false;
  if (keyLength != static_cast<uint32_t>(kDscbKeyLength) || dataLength != static_cast<uint32_t>(kDscbDataLength)) {
    error = "the DSCB of " + ds.name + " is no longer a 44/96 record";
    return false;
  }
  putBe16(p + f.lastBlock, last.track & 0xFFFF);
  p[f.lastBlock + 2] = last.record;
  putBe16(p + f.trackBalance, std::min<uint32_t>(balance, 0xFFFF));
  if (ds.largeFormat) p[f.lastTrackHigh] = static_cast<unsigned char>(last.track >> 16);
  if (directoryBytes >= 0) p[f.lastDirBytes] = static_cast<unsigned char>(std::min(directoryBytes, 255));
  return true;
}

bool writeSequential(StagedTracks& staged, const DataSetInfo& ds, const std::vector<Bytes>& blocks,
                     WriteSummary& summary, std::string& error) {
  if (!ds.sequential() || ds.vsam()) {
    char dsorg[8];
    std::snprintf(dsorg, sizeof dsorg, "%04X", ds.dsorg);
    error = ds.name + " is not a sequential data set (DSORG " + dsorg + ")";
    return false;
  }
  if (ds.keyLength != 0) {
    error = ds.name + " has keyed blocks (key length " + std::to_string(ds.keyLength) + "), which are not written";
    return false;
  }
  DataWriter w(staged, ds);
  if (!w.start(0, 0, error)) return false;
  WriteSummary s;
  Ttr at, lastBlock;
  uint32_t balance = 0;
  for (const Bytes& b : blocks) {
    if (!w.add(nullptr, 0, b.data(), static_cast<uint32_t>(b.size()), at, error)) return false;
    if (s.blocks++ == 0) s.first = at;
    lastBlock = at;
    balance = w.lastBalance();
  }
  Ttr eof;
  if (!w.addEndOfFile(eof, error)) return false;
  if (s.blocks == 0) {
    s.first = eof;
    balance = w.lastBalance();
  } else if (eof.track == lastBlock.track) {
    balance = w.lastBalance();
  }
  if (!w.finish(error) || !stageEndOfData(staged, ds, lastBlock, balance, -1, error)) return false;
  s.last = lastBlock;
  s.tracks = w.tracksWritten();
  summary = s;
  return true;
}

}  // namespace ckdvol
