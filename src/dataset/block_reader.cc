// Reading a data set's blocks through its extents.
#include "dataset/block_reader.h"

#include "dataset/track_records.h"

namespace ckdvol {
namespace {

std::string trackText(uint32_t cyl, uint32_t head, uint32_t relTrack) {
  return "track " + std::to_string(cyl) + "/" + std::to_string(head) + " (relative track " +
         std::to_string(relTrack) + ")";
}

}  // namespace

BlockReader::BlockReader(EmulatedCKDfile& file, const DataSetInfo& ds)
    : file_(file),
      map_(ds.extents, file.tracksPerCylinder),
      damage_(ds.damage),
      sequential_(ds.sequential() && !ds.vsam()),
      pointerTrack_(ds.lastBlockTrack),
      pointerRecord_(ds.lastBlockRecord),
      pointerSet_(ds.lastBlockTrack != 0 || ds.lastBlockRecord != 0) {
  startDataSet();
}

void BlockReader::startDataSet(bool useLastBlockPointer) {
  usePointer_ = useLastBlockPointer && sequential_ && pointerSet_;
  relTrack_ = 0;
  startRecord_ = 0;
  trackLoaded_ = false;
  state_ = kBlockRead;
  end_ = EndOfData::kNotYet;
  last_ = Block();
  error_.clear();
}

void BlockReader::startAt(uint32_t relTrack, uint8_t record) {
  startDataSet(false);
  relTrack_ = relTrack;
  startRecord_ = record;
}

int BlockReader::fail(int code, const std::string& text) {
  state_ = code;
  error_ = text;
  return code;
}

// Makes relative track `relTrack` the file's current track (reading it only
// when it is not already) and positions after its record zero.
int BlockReader::loadTrack(uint32_t relTrack) {
  uint32_t cyl = 0, head = 0;
  if (!map_.toCylHead(relTrack, cyl, head)) {
    return fail(kBlockOutsideExtents, "relative track " + std::to_string(relTrack) +
                                          " lies outside the data set's " +
                                          std::to_string(map_.tracks()) + " tracks");
  }
  cyl_ = cyl;
  head_ = head;
  if (file_.currentCyl != cyl || file_.currentHead != head || file_.currentCell != 0) {
    const int rc = file_.readTrack(cyl, static_cast<unsigned short>(head), 0);
    if (rc != 0) {
      return fail(kBlockUnreadable, trackText(cyl, head, relTrack) + " cannot be read (code " +
                                        std::to_string(rc) + ")");
    }
  }
  if (firstRecordOffset(file_, nextOffset_) != kWalkRecord) {
    return fail(kBlockBadTrack,
                trackText(cyl, head, relTrack) + ": record zero runs past the end of the track");
  }
  trackLoaded_ = true;
  return kBlockRead;
}

int BlockReader::next(Block& b) {
  if (state_ != kBlockRead) return state_;
  if (!damage_.empty()) return fail(kBlockDamagedDataSet, "the data set is damaged: " + damage_);
  for (;;) {
    if (relTrack_ >= map_.tracks()) {
      if (startRecord_ != 0) {
        return fail(kBlockOutsideExtents, "relative track " + std::to_string(relTrack_) +
                                              " lies outside the data set's " +
                                              std::to_string(map_.tracks()) + " tracks");
      }
      end_ = EndOfData::kExtents;
      return state_ = kBlockEnd;
    }
    if (usePointer_ && relTrack_ > pointerTrack_) {
      end_ = EndOfData::kLastBlock;
      return state_ = kBlockEnd;
    }
    if (!trackLoaded_) {
      if (loadTrack(relTrack_) != kBlockRead) return state_;
    } else if (file_.currentCyl != cyl_ || file_.currentHead != head_ || file_.currentCell != 0) {
      // Someone else read another track with the same file: read ours again
      // and go on from the same place.
      const uint32_t keep = nextOffset_;
      if (loadTrack(relTrack_) != kBlockRead) return state_;
      nextOffset_ = keep;
    }
    TrackRecord r;
    const int walk = readRecordAt(file_, nextOffset_, r);
    if (walk == kWalkOverrun) {
      return fail(kBlockBadTrack, trackText(cyl_, head_, relTrack_) +
                                      ": the count field at offset " + std::to_string(nextOffset_) +
                                      " runs past the end of the track");
    }
    if (walk == kWalkEnd) {
      if (startRecord_ != 0) {
        return fail(kBlockMissing, "record " + std::to_string(startRecord_) + " is not on " +
                                       trackText(cyl_, head_, relTrack_));
      }
      ++relTrack_;
      trackLoaded_ = false;
      continue;
    }
    if (startRecord_ != 0) {
      if (r.record != startRecord_) continue;
      startRecord_ = 0;
    }
    if (r.dataLength == 0) {
      end_ = EndOfData::kEofRecord;
      return state_ = kBlockEnd;
    }
    if (usePointer_ && relTrack_ == pointerTrack_ && r.record > pointerRecord_) {
      end_ = EndOfData::kLastBlock;
      return state_ = kBlockEnd;
    }
    b.relTrack = relTrack_;
    b.cyl = cyl_;
    b.head = head_;
    b.record = static_cast<uint8_t>(r.record);
    b.key = r.key;
    b.keyLength = static_cast<uint32_t>(r.keyLength);
    b.data = r.data;
    b.dataLength = static_cast<uint32_t>(r.dataLength);
    last_ = b;
    return kBlockRead;
  }
}

}  // namespace ckdvol
