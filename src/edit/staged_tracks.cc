#include "edit/staged_tracks.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace ckdvol {

namespace {

constexpr uint32_t kHeaderBytes = 512;
constexpr uint32_t kTrailerBytes = 16;
constexpr uint32_t kMarkerBytes = 8;
constexpr uint32_t kCountBytes = 8;
constexpr uint32_t kHomeAddressBytes = 5;
constexpr uint32_t kRecordZeroData = 8;

// The length of `p` without its trailing zero bytes. Half a track of zeros
// is common (a member's last track), so whole 64-byte runs are tested at a
// time before the last one with data is looked at byte by byte.
size_t usedLength(const unsigned char* p, size_t n) {
  while (n >= 64) {
    uint64_t w[8];
    std::memcpy(w, p + n - 64, sizeof w);
    if ((w[0] | w[1] | w[2] | w[3] | w[4] | w[5] | w[6] | w[7]) != 0) break;
    n -= 64;
  }
  while (n > 0 && p[n - 1] == 0) --n;
  return n;
}

}  // namespace

StagedTracks::StagedTracks(EmulatedCKDfile& file)
    : file_(file),
      heads_(file.tracksPerCylinder),
      slot_(file.trackSlotSize),
      tracks_(static_cast<uint32_t>(std::min<uint64_t>(static_cast<uint64_t>(file.cylinders) * file.tracksPerCylinder,
                                                       UINT32_MAX))),
      scratch_(file.trackSlotSize) {}

std::string StagedTracks::trackText(uint32_t track) const {
  if (heads_ == 0) return "track " + std::to_string(track);
  return "cylinder " + std::to_string(track / heads_) + " head " + std::to_string(track % heads_);
}

void StagedTracks::makeEmpty(uint32_t track, unsigned char* out) {
  TrackBuilder empty(file_, track / heads_, track % heads_);
  std::memcpy(out, empty.image().data(), slot_);
}

const unsigned char* StagedTracks::image(uint32_t track, std::string& error) {
  auto it = staged_.find(track);
  if (it != staged_.end()) {
    if (!it->second.empty()) return it->second.data();
    makeEmpty(track, scratch_.data());
    return scratch_.data();
  }
  if (track >= tracks_ || heads_ == 0) {
    error = trackText(track) + " is not on the volume";
    return nullptr;
  }
  const uint64_t offset = kHeaderBytes + static_cast<uint64_t>(track) * slot_;
  errno = 0;
  if (file_.readRawTrack(offset, scratch_.data()) != EmulatedCKDfile::kTrackOk) {
    error = "cannot read " + trackText(track) + (errno != 0 ? std::string(": ") + std::strerror(errno) : "");
    return nullptr;
  }
  return scratch_.data();
}

unsigned char* StagedTracks::stage(uint32_t track, std::string& error) {
  auto it = staged_.find(track);
  if (it != staged_.end()) {
    if (it->second.empty()) {
      it->second.resize(slot_);
      makeEmpty(track, it->second.data());
    }
    return it->second.data();
  }
  const unsigned char* current = image(track, error);
  if (current == nullptr) return nullptr;
  std::vector<unsigned char>& copy = staged_[track];
  copy.assign(current, current + slot_);
  return copy.data();
}

unsigned char* StagedTracks::stageRecord(uint32_t track, uint8_t record, uint32_t& keyLength,
                                         uint32_t& dataLength, std::string& error) {
  unsigned char* image = stage(track, error);
  if (image == nullptr) return nullptr;
  const uint32_t limit = slot_ - kTrailerBytes - kMarkerBytes;
  for (uint32_t at = kHomeAddressBytes; at + kCountBytes <= limit;) {
    const unsigned char* c = image + at;
    if (std::all_of(c, c + kCountBytes, [](unsigned char b) { return b == 0xFF; })) break;
    const uint32_t kl = c[5], dl = (static_cast<uint32_t>(c[6]) << 8) | c[7];
    if (at + kCountBytes + kl + dl > limit) break;
    if (c[4] == record) {
      keyLength = kl;
      dataLength = dl;
      return image + at + kCountBytes;
    }
    at += kCountBytes + kl + dl;
  }
  error = "record " + std::to_string(record) + " is not on " + trackText(track);
  return nullptr;
}

bool StagedTracks::put(uint32_t track, const unsigned char* image, std::string& error) {
  if (track >= tracks_ || heads_ == 0) {
    error = trackText(track) + " is not on the volume";
    return false;
  }
  if (streaming()) return pass(track, image, error);
  staged_[track].assign(image, image + slot_);
  return true;
}

bool StagedTracks::put(uint32_t track, std::vector<unsigned char>&& image, std::string& error) {
  if (image.size() != slot_) {
    error = "an image of " + std::to_string(image.size()) + " bytes for " + trackText(track) + ", whose slot holds " +
            std::to_string(slot_);
    return false;
  }
  if (track >= tracks_ || heads_ == 0) {
    error = trackText(track) + " is not on the volume";
    return false;
  }
  if (streaming()) {
    const bool ok = pass(track, image.data(), error);
    spare_ = std::move(image);  // the next builder's buffer
    return ok;
  }
  staged_[track] = std::move(image);
  return true;
}

bool StagedTracks::putEmpty(uint32_t track, std::string& error) {
  if (track >= tracks_ || heads_ == 0) {
    error = trackText(track) + " is not on the volume";
    return false;
  }
  if (streaming()) {
    if (mode_ == Mode::kWriteThrough) makeEmpty(track, scratch_.data());
    return pass(track, scratch_.data(), error);
  }
  std::vector<unsigned char>().swap(staged_[track]);
  return true;
}

bool StagedTracks::pass(uint32_t track, const unsigned char* image, std::string& error) {
  if (mode_ == Mode::kWriteThrough) {
    if (allowed_.count(track) == 0) {
      error = trackText(track) + " was not part of the planned change";
      return false;
    }
    error = writeSlot(track, image);
    if (!error.empty()) return false;
  }
  // A whole new image supersedes one staged before.
  staged_.erase(track);
  passed_.insert(track);
  return true;
}

bool StagedTracks::planOnly(std::string& error) {
  if (size() != 0 || mode_ != Mode::kHold) {
    error = "a change can be planned only before anything is staged";
    return false;
  }
  mode_ = Mode::kPlan;
  return true;
}

bool StagedTracks::writeThrough(const std::vector<uint64_t>& slots, std::string& error) {
  if (size() != 0 || mode_ != Mode::kHold) {
    error = "a change can be written through only before anything is staged";
    return false;
  }
  allowed_.clear();
  for (uint64_t offset : slots) {
    if (offset < kHeaderBytes || slot_ == 0 || (offset - kHeaderBytes) % slot_ != 0 ||
        (offset - kHeaderBytes) / slot_ >= tracks_) {
      error = "file offset " + std::to_string(offset) + " is not a track slot of the volume";
      return false;
    }
    allowed_.insert(static_cast<uint32_t>((offset - kHeaderBytes) / slot_));
  }
  mode_ = Mode::kWriteThrough;
  return true;
}

std::vector<unsigned char> StagedTracks::buffer() {
  if (streaming() && spare_.size() == slot_) return std::move(spare_);
  return std::vector<unsigned char>(slot_);
}

size_t StagedTracks::size() const {
  size_t n = passed_.size();
  for (const auto& s : staged_) n += passed_.count(s.first) == 0 ? 1 : 0;
  return n;
}

std::vector<uint64_t> StagedTracks::slots() const {
  std::set<uint32_t> tracks(passed_);
  for (const auto& s : staged_) tracks.insert(s.first);
  std::vector<uint64_t> out;
  out.reserve(tracks.size());
  for (uint32_t t : tracks) out.push_back(kHeaderBytes + static_cast<uint64_t>(t) * slot_);
  return out;
}

std::string StagedTracks::writeRange(uint32_t track, const unsigned char* image, size_t from, size_t to) {
  const uint64_t offset = kHeaderBytes + static_cast<uint64_t>(track) * slot_;
  for (size_t done = from; done < to;) {
    errno = 0;
    const ssize_t n = ::pwrite(file_.fileDescriptor, image + done, to - done, static_cast<off_t>(offset + done));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return "cannot write " + trackText(track) + (errno != 0 ? std::string(": ") + std::strerror(errno) : "");
    done += static_cast<size_t>(n);
  }
  return std::string();
}

std::string StagedTracks::writeSlot(uint32_t track, const unsigned char* image) {
  // The image goes over its slot but for the trailer, which stays as the
  // slot holds it. Zeros at its end are not written over holes of the file:
  // they read as zeros already, and a sparse volume's unused tracks stay
  // holes (an allocation writes its empty tracks' heads only). The file
  // system is asked from the block behind the last byte written on; where
  // it has data there, or cannot say, the zeros are written.
  const size_t length = slot_ - kTrailerBytes;
  constexpr size_t kBlock = 4096;
  const size_t used = usedLength(image, length);
  const uint64_t offset = kHeaderBytes + static_cast<uint64_t>(track) * slot_;
  const size_t head = std::min<size_t>(length, static_cast<size_t>((offset + used + kBlock - 1) / kBlock * kBlock - offset));
  if (head >= length) return writeRange(track, image, 0, length);
  errno = 0;
  const off_t data = ::lseek(file_.fileDescriptor, static_cast<off_t>(offset + head), SEEK_DATA);
  size_t from = head;  // the tail is written from here
  if (data >= 0) {
    from = std::max<size_t>(head, static_cast<uint64_t>(data) >= offset + length ? length
                                                                                  : static_cast<size_t>(data - offset));
  } else if (errno == ENXIO) {
    // No data behind: holes inside the file, or its end.
    struct stat st;
    if (::fstat(file_.fileDescriptor, &st) == 0 && static_cast<uint64_t>(st.st_size) >= offset + slot_) from = length;
  }
  if (from == head) return writeRange(track, image, 0, length);  // data right behind: one write
  std::string error = writeRange(track, image, 0, head);
  if (error.empty()) error = writeRange(track, image, from, length);
  return error;
}

std::string StagedTracks::writeAll() {
  if (mode_ == Mode::kPlan) return "a planned change is not written";
  for (auto& s : staged_) {
    const unsigned char* image = s.second.data();
    if (s.second.empty()) {
      makeEmpty(s.first, scratch_.data());
      image = scratch_.data();
    }
    std::string error = writeSlot(s.first, image);
    if (!error.empty()) return error;
  }
  return std::string();
}

// ---- TrackBuilder ------------------------------------------------------------------

TrackBuilder::TrackBuilder(EmulatedCKDfile& file, uint32_t cyl, uint32_t head)
    : TrackBuilder(file, cyl, head, std::vector<unsigned char>(file.trackSlotSize, 0), false) {}

TrackBuilder::TrackBuilder(EmulatedCKDfile& file, uint32_t cyl, uint32_t head, std::vector<unsigned char>&& buffer,
                           bool layoutOnly)
    : file_(file), cyl_(cyl), head_(head), image_(std::move(buffer)), layoutOnly_(layoutOnly) {
  image_.resize(file.trackSlotSize);
  unsigned char* p = image_.data();
  file_.putHA(p, 0, cyl_, static_cast<unsigned short>(head_));
  file_.putCount(p, static_cast<int>(cyl_), static_cast<unsigned short>(head_), 0, 0, kRecordZeroData);
  std::memset(p, 0, kRecordZeroData);  // record zero's data: zeros
  p += kRecordZeroData;
  end_ = static_cast<uint32_t>(p - image_.data());
  last_ = 0;
}

bool TrackBuilder::keep(const unsigned char* image, uint8_t lastRecord) {
  const uint32_t slot = file_.trackSlotSize;
  const uint32_t limit = slot - kTrailerBytes - kMarkerBytes;  // the marker begins here at the latest
  uint32_t at = kHomeAddressBytes;
  int expected = 0;
  while (true) {
    if (at + kCountBytes > limit) return false;
    const unsigned char* c = image + at;
    if (std::all_of(c, c + kCountBytes, [](unsigned char b) { return b == 0xFF; })) return false;
    const int record = c[4];
    const uint32_t next = at + kCountBytes + c[5] + ((static_cast<uint32_t>(c[6]) << 8) | c[7]);
    if (record != expected || next > limit) return false;
    if (record == lastRecord) {
      std::memset(image_.data(), 0, slot);
      std::memcpy(image_.data(), image, next);
      end_ = next;
      last_ = lastRecord;
      return true;
    }
    at = next;
    ++expected;
  }
}

bool TrackBuilder::fits(uint32_t keyLength, uint32_t dataLength) const {
  if (last_ == 255 || keyLength > 255 || dataLength > 0xFFFF || dataLength > file_.trackCapacity) return false;
  const uint64_t markerAt = static_cast<uint64_t>(end_) + kCountBytes + keyLength + dataLength;
  return markerAt <= static_cast<uint64_t>(file_.trackSlotSize) - kTrailerBytes - kMarkerBytes;
}

uint32_t TrackBuilder::balance(uint32_t keyLength) const {
  const uint64_t limit = static_cast<uint64_t>(file_.trackSlotSize) - kTrailerBytes - kMarkerBytes;
  const uint64_t used = static_cast<uint64_t>(end_) + kCountBytes + keyLength;
  if (last_ == 255 || keyLength > 255 || used > limit) return 0;
  return static_cast<uint32_t>(std::min<uint64_t>({limit - used, file_.trackCapacity, 0xFFFF}));
}

uint8_t TrackBuilder::add(const unsigned char* key, uint32_t keyLength, const unsigned char* data,
                          uint32_t dataLength) {
  unsigned char* p = image_.data() + end_;
  const uint8_t record = static_cast<uint8_t>(last_ + 1);
  file_.putCount(p, static_cast<int>(cyl_), static_cast<unsigned short>(head_), record,
                 static_cast<unsigned char>(keyLength), static_cast<unsigned short>(dataLength));
  if (!layoutOnly_) {
    if (keyLength > 0) std::memcpy(p, key, keyLength);
    if (dataLength > 0 && data != nullptr) std::memcpy(p + keyLength, data, dataLength);
    if (dataLength > 0 && data == nullptr) std::memset(p + keyLength, 0, dataLength);
  }
  p += keyLength + dataLength;
  end_ = static_cast<uint32_t>(p - image_.data());
  last_ = record;
  return record;
}

std::vector<unsigned char> TrackBuilder::take() {
  image();
  std::vector<unsigned char> out = std::move(image_);
  // Spent: nothing more fits, and image() is all zeros but the marker.
  image_.clear();
  end_ = 0;
  last_ = 255;
  return out;
}

const std::vector<unsigned char>& TrackBuilder::image() {
  const uint32_t slot = file_.trackSlotSize;
  if (image_.size() != slot) image_.assign(slot, 0);
  if (layoutOnly_) return image_;  // its bytes mean nothing
  std::memset(image_.data() + end_, 0xFF, kMarkerBytes);
  std::memset(image_.data() + end_ + kMarkerBytes, 0, slot - end_ - kMarkerBytes);
  return image_;
}

}  // namespace ckdvol
