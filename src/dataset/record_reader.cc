// Deblocking a data set's blocks into logical records.
#include "dataset/record_reader.h"

#include "common/byte_order.h"

namespace ckdvol {
namespace {

constexpr uint32_t kDescriptor = 4;           // BDW, RDW and SDW are 4 bytes
constexpr uint16_t kExtendedBdw = 0x8000;     // BDW bit: 31-bit block length
constexpr unsigned char kSegmentMask = 0x03;  // SDW byte 2: segment position
constexpr unsigned char kSegmentComplete = 0x00;
constexpr unsigned char kSegmentFirst = 0x01;
constexpr unsigned char kSegmentLast = 0x02;
constexpr unsigned char kSegmentMiddle = 0x03;

std::string blockText(const Block& b) {
  return "block " + std::to_string(b.cyl) + "/" + std::to_string(b.head) + "/" +
         std::to_string(b.record);
}

}  // namespace

Deblocking deblockingFor(uint8_t recfm) {
  switch (recfm & kRecfmFormatMask) {
    case kRecfmF:
      return Deblocking::kFixed;
    case kRecfmV:
      return (recfm & kRecfmSpanned) != 0 ? Deblocking::kVariableSpanned : Deblocking::kVariable;
    default:
      return Deblocking::kUndefined;
  }
}

RecordReader::RecordReader(BlockReader& blocks, Deblocking mode, uint32_t lrecl)
    : blocks_(blocks), mode_(mode), lrecl_(lrecl) {}

RecordReader::RecordReader(BlockReader& blocks, const DataSetInfo& ds, bool raw)
    : RecordReader(blocks, raw ? Deblocking::kRaw : deblockingFor(ds.recfm), ds.lrecl) {}

int RecordReader::fail(int code, const std::string& text) {
  state_ = code;
  error_ = text;
  return code;
}

std::string RecordReader::where() const { return blockText(block_); }

// Takes the next block and checks its outer lengths: 1, or the block
// reader's 0 / negative result.
int RecordReader::nextBlock() {
  const int rc = blocks_.next(block_);
  if (rc != kBlockRead) {
    if (rc < 0) return fail(rc, blocks_.error());
    if (spanOpen_) {
      return fail(kRecordBadSegment,
                  "the data ends inside a spanned record begun in " + blockText(joinedFrom_));
    }
    state_ = kBlockEnd;
    return kBlockEnd;
  }
  ++blocksRead_;
  bytesRead_ += block_.dataLength;
  haveBlock_ = true;
  firstOfBlock_ = true;
  pos_ = 0;
  end_ = block_.dataLength;
  switch (mode_) {
    case Deblocking::kFixed:
      if (lrecl_ == 0) return fail(kRecordBadLrecl, "fixed-length records with LRECL 0");
      if (block_.dataLength % lrecl_ != 0) {
        return fail(kRecordBadBlock, where() + ": " + std::to_string(block_.dataLength) +
                                         " bytes are not a multiple of LRECL " +
                                         std::to_string(lrecl_));
      }
      break;
    case Deblocking::kVariable:
    case Deblocking::kVariableSpanned: {
      if (block_.dataLength < kDescriptor) {
        return fail(kRecordBadBlock, where() + ": " + std::to_string(block_.dataLength) +
                                         " bytes are too short for a BDW");
      }
      const uint16_t ll = loadBe16(block_.data);
      const uint32_t length = (ll & kExtendedBdw) != 0 ? loadBe32(block_.data) & 0x7FFFFFFF : ll;
      if (length != block_.dataLength) {
        return fail(kRecordBadBlock, where() + ": BDW says " + std::to_string(length) +
                                         " but the block has " + std::to_string(block_.dataLength) +
                                         " bytes");
      }
      pos_ = kDescriptor;
      break;
    }
    case Deblocking::kUndefined:
    case Deblocking::kRaw:
      break;
  }
  return kBlockRead;
}

int RecordReader::nextSlow(LogicalRecord& r) {
  fastPos_ = fastEnd_ = nullptr;
  filled_ = &r;  // every field of `r` is written below
  if (state_ != kBlockRead) return state_;
  for (;;) {
    if (!haveBlock_ || pos_ >= end_) {
      haveBlock_ = false;
      const int rc = nextBlock();
      if (rc != kBlockRead) return rc;
    }
    r.key = block_.keyLength > 0 ? block_.key : nullptr;
    r.keyLength = block_.keyLength;
    r.block = block_;
    r.firstInBlock = firstOfBlock_;
    switch (mode_) {
      case Deblocking::kUndefined:
      case Deblocking::kRaw:
        r.data = block_.data;
        r.length = block_.dataLength;
        haveBlock_ = false;
        firstOfBlock_ = false;
        return kBlockRead;
      case Deblocking::kFixed:
        // The first record of the block; next() hands out the rest.
        r.data = block_.data + pos_;
        r.length = lrecl_;
        fastPos_ = block_.data + pos_ + lrecl_;
        fastEnd_ = block_.data + end_;
        pos_ = end_;
        firstOfBlock_ = false;
        return kBlockRead;
      case Deblocking::kVariable:
      case Deblocking::kVariableSpanned:
        break;
    }
    // A record (or segment) descriptor word at pos_.
    const bool spanned = mode_ == Deblocking::kVariableSpanned;
    const char* word = spanned ? "SDW" : "RDW";
    if (end_ - pos_ < kDescriptor) {
      return fail(kRecordBadBlock, where() + ": " + std::to_string(end_ - pos_) +
                                       " bytes at offset " + std::to_string(pos_) +
                                       " are too short for an " + word);
    }
    const unsigned char* p = block_.data + pos_;
    const uint32_t ll = loadBe16(p);
    if (ll < kDescriptor || ll > end_ - pos_) {
      return fail(kRecordBadBlock, where() + ": " + word + " at offset " + std::to_string(pos_) +
                                       " says " + std::to_string(ll) + " but " +
                                       std::to_string(end_ - pos_) + " bytes remain in the block");
    }
    const unsigned char* data = p + kDescriptor;
    const uint32_t length = ll - kDescriptor;
    pos_ += ll;
    if (!spanned) {
      r.data = data;
      r.length = length;
      firstOfBlock_ = false;
      return kBlockRead;
    }
    const unsigned char segment = p[2] & kSegmentMask;
    const bool open = spanOpen_;
    if (segment == kSegmentComplete || segment == kSegmentFirst) {
      if (open) {
        return fail(kRecordBadSegment, where() + ": a " +
                                           (segment == kSegmentFirst ? "first" : "complete") +
                                           " segment at offset " + std::to_string(pos_ - ll) +
                                           " while the record begun in " + blockText(joinedFrom_) +
                                           " has no last segment");
      }
      if (segment == kSegmentComplete) {
        r.data = data;
        r.length = length;
        firstOfBlock_ = false;
        return kBlockRead;
      }
      // The first segment's block goes away with the next block read: keep
      // its address and a copy of its key.
      joinedFrom_ = block_;
      joinedFrom_.data = nullptr;
      joinedFrom_.dataLength = 0;
      joinedKey_.assign(block_.key, block_.key + block_.keyLength);
      joinedFrom_.key = nullptr;
      joined_.assign(data, data + length);
      spanOpen_ = true;
      firstOfBlock_ = false;
      continue;
    }
    if (!open) {
      return fail(kRecordBadSegment, where() + ": a " +
                                         (segment == kSegmentLast ? "last" : "middle") +
                                         " segment at offset " + std::to_string(pos_ - ll) +
                                         " without a first segment");
    }
    if (joined_.size() + length > kMaxSpannedRecord) {
      return fail(kRecordTooLong, "the spanned record begun in " + blockText(joinedFrom_) +
                                      " grows beyond " + std::to_string(kMaxSpannedRecord) +
                                      " bytes");
    }
    joined_.insert(joined_.end(), data, data + length);
    firstOfBlock_ = false;
    if (segment == kSegmentMiddle) continue;
    // The last segment: hand out the joined record; it stays in joined_
    // until the next call.
    r.block = joinedFrom_;
    spannedKey_.swap(joinedKey_);
    r.key = spannedKey_.empty() ? nullptr : spannedKey_.data();
    r.keyLength = static_cast<uint32_t>(spannedKey_.size());
    r.firstInBlock = false;
    spannedOut_.swap(joined_);
    joined_.clear();
    spanOpen_ = false;
    r.data = spannedOut_.empty() ? nullptr : spannedOut_.data();
    r.length = static_cast<uint32_t>(spannedOut_.size());
    return kBlockRead;
  }
}

}  // namespace ckdvol
