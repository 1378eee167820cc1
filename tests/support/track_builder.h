// Test helper: volume files and track images written byte by byte, independent
// of the library's encoders. Track numbers are big-endian as on the volume,
// header numbers little-endian; no large-cylinder encoding is applied.
#ifndef CKDVOL_TESTS_SUPPORT_TRACK_BUILDER_H_
#define CKDVOL_TESTS_SUPPORT_TRACK_BUILDER_H_

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace ckdvol_test {

using Bytes = std::vector<unsigned char>;

// "00 0A ff" -> {0x00, 0x0A, 0xFF}; blanks are ignored.
inline Bytes hex(const char* text) {
  Bytes out;
  for (const char* p = text; *p != '\0'; p += *p == ' ' ? 1 : 2) {
    if (*p != ' ') out.push_back(static_cast<unsigned char>(std::stoul(std::string(p, 2), nullptr, 16)));
  }
  return out;
}
inline Bytes repeat(unsigned char byte, size_t count) { return Bytes(count, byte); }
inline Bytes cat(std::initializer_list<Bytes> parts) {
  Bytes out;
  for (const Bytes& b : parts) out.insert(out.end(), b.begin(), b.end());
  return out;
}
inline Bytes be(uint64_t v, int width) {
  Bytes out(width);
  for (int i = 0; i < width; ++i) out[i] = static_cast<unsigned char>(v >> (8 * (width - 1 - i)));
  return out;
}

// The front of a track image: home address (flag 0), records, end marker.
class TrackImage {
 public:
  TrackImage(uint16_t cc, uint16_t hh) { bytes_ = cat({{0}, be(cc, 2), be(hh, 2)}); }
  // Count field CC HH R KL DL, the key, then `dl` data bytes (`data`, padded with `fill`).
  TrackImage& record(uint16_t cc, uint16_t hh, uint8_t r, const Bytes& key, uint16_t dl,
                     const Bytes& data = {}, unsigned char fill = 0) {
    raw(cat({be(cc, 2), be(hh, 2), {r, static_cast<unsigned char>(key.size())}, be(dl, 2), key}));
    for (size_t i = 0; i < dl; ++i) bytes_.push_back(i < data.size() ? data[i] : fill);
    return *this;
  }
  TrackImage& raw(const Bytes& b) { return bytes_.insert(bytes_.end(), b.begin(), b.end()), *this; }
  TrackImage& marker() { return raw(repeat(0xFF, 8)); }
  const Bytes& bytes() const { return bytes_; }
  // The whole slot: this image, then zeros (and `trailer` in the last 16 bytes when given).
  Bytes slot(size_t size, const Bytes& trailer = {}) const {
    Bytes s(size, 0);
    std::memcpy(s.data(), bytes_.data(), bytes_.size());
    if (!trailer.empty()) std::memcpy(s.data() + size - 16, trailer.data(), 16);
    return s;
  }

 private:
  Bytes bytes_;
};

// An empty formatted track: HA, record zero with 8 data bytes `fill`, marker at 21.
inline TrackImage emptyTrack(uint16_t cc, uint16_t hh, unsigned char fill = 0) {
  return TrackImage(cc, hh).record(cc, hh, 0, {}, 8, {}, fill).marker();
}

// The 16 trailer bytes: "VER0", version (BE16), reserved 0, link (BE64).
inline Bytes trailer(uint16_t version, uint64_t link) {
  return cat({{'V', 'E', 'R', '0'}, be(version, 2), {0, 0}, be(link, 8)});
}

// D600 geometry, the type most tests use: 15 heads, 56832-byte slots, file code AA.
constexpr uint32_t kHeads = 15;
constexpr uint32_t kSlot = 56832;
constexpr uint64_t slotAt(uint64_t cyl, uint64_t head) { return 512 + (cyl * kHeads + head) * kSlot; }

// The 512 header bytes, each field little-endian at its offset.
struct Header {
  const char* magic = "CKD_XVOL";  // 0, 8 bytes
  uint32_t heads = kHeads;         // 8
  uint32_t trackSize = kSlot;      // 12
  unsigned char code = 0xAA;       // 16 device code
  unsigned char level = 3;         // 17 format level
  uint32_t created = 0, cyls = 0;  // 18, 22
  bool marker = false;             // 26 "VER0"
  uint16_t active = 0, latest = 0; // 30, 32
  Bytes bytes() const {
    Bytes h(512, 0);
    auto le = [&h](size_t at, uint64_t v, int w) {
      for (int i = 0; i < w; ++i) h[at + i] = static_cast<unsigned char>(v >> (8 * i));
    };
    std::memcpy(h.data(), magic, 8);
    le(8, heads, 4), le(12, trackSize, 4), h[16] = code, h[17] = level;
    le(18, created, 4), le(22, cyls, 4), le(30, active, 2), le(32, latest, 2);
    if (marker) std::memcpy(h.data() + 26, "VER0", 4);
    return h;
  }
};

inline Bytes readAt(const std::string& path, uint64_t offset, size_t length) {
  Bytes out(length, 0);
  int fd = ::open(path.c_str(), O_RDONLY);
  ssize_t n = fd < 0 ? -1 : ::pread(fd, out.data(), length, static_cast<off_t>(offset));
  if (fd >= 0) ::close(fd);
  return out.resize(n < 0 ? 0 : static_cast<size_t>(n)), out;
}
// Writes `b` at `offset`; with `size` >= 0 the file is first emptied and extended (sparse) to it.
inline bool writeAt(const std::string& path, uint64_t offset, const Bytes& b, long long size = -1) {
  int fd = ::open(path.c_str(), O_WRONLY | O_CREAT, 0644);
  bool ok = fd >= 0 && (size < 0 || (::ftruncate(fd, 0) == 0 && ::ftruncate(fd, static_cast<off_t>(size)) == 0)) &&
            ::pwrite(fd, b.data(), b.size(), static_cast<off_t>(offset)) == static_cast<ssize_t>(b.size());
  if (fd >= 0) ::close(fd);
  return ok;
}
inline bool writeVolume(const std::string& path, const Bytes& header, uint64_t size) { return writeAt(path, 0, header, static_cast<long long>(size)); }
// A D600 volume of `cyls` cylinders; every track empty with record zero's data = head number.
inline bool writeD600(const std::string& path, uint32_t cyls) {
  Header h;
  h.created = h.cyls = cyls;
  bool ok = writeVolume(path, h.bytes(), slotAt(cyls, 0));  // then track by track
  for (uint32_t t = 0; ok && t < cyls * kHeads; ++t) {
    ok = writeAt(path, slotAt(0, t), emptyTrack(static_cast<uint16_t>(t / kHeads), t % kHeads, t % kHeads).bytes());
  }
  return ok;
}
inline long long fileSize(const std::string& path) {
  struct stat st;
  return ::stat(path.c_str(), &st) == 0 ? static_cast<long long>(st.st_size) : -1;
}

}  // namespace ckdvol_test

#endif  // CKDVOL_TESTS_SUPPORT_TRACK_BUILDER_H_
