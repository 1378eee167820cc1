// Test helper: track images written byte by byte, independent of the
// library's encoders, for the positioning, record-writing and initialisation
// tests. Numbers are big-endian as on the volume; no large-cylinder encoding
// is applied (a test that wants it writes the HH it means).
#ifndef CKDVOL_TESTS_CKDFILE_TRACK_IMAGE_BUILDER_H_
#define CKDVOL_TESTS_CKDFILE_TRACK_IMAGE_BUILDER_H_

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "ckdfile/emulated_ckd_file.h"

namespace ckdvol_test {

using Bytes = std::vector<unsigned char>;

// "00 0A ff" -> {0x00, 0x0A, 0xFF}; blanks separate bytes.
inline Bytes hex(const char* text) {
  Bytes out;
  const char* p = text;
  while (*p != '\0') {
    if (*p == ' ') {
      ++p;
      continue;
    }
    char digits[3] = {p[0], p[1], '\0'};
    out.push_back(static_cast<unsigned char>(std::strtoul(digits, nullptr, 16)));
    p += 2;
  }
  return out;
}

inline Bytes repeat(unsigned char byte, size_t count) { return Bytes(count, byte); }

inline Bytes concat(std::initializer_list<Bytes> parts) {
  Bytes out;
  for (const Bytes& b : parts) out.insert(out.end(), b.begin(), b.end());
  return out;
}

// Builds the front of a track image: home address, records, end marker.
// `offset()` is the slot offset of the next byte, so a test can remember
// where each record starts.
class TrackImage {
 public:
  // Home address: flag 0, CC, HH.
  TrackImage(uint16_t cc, uint16_t hh) { put({0, hi(cc), lo(cc), hi(hh), lo(hh)}); }

  // A count field CC HH R KL DL, then the key, then `dl` data bytes (taken
  // from `data`, padded with `fill`).
  TrackImage& record(uint16_t cc, uint16_t hh, uint8_t r, const Bytes& key, uint16_t dl,
                     const Bytes& data = {}, unsigned char fill = 0) {
    put({hi(cc), lo(cc), hi(hh), lo(hh), r, static_cast<unsigned char>(key.size()), hi(dl),
         lo(dl)});
    bytes_.insert(bytes_.end(), key.begin(), key.end());
    for (size_t i = 0; i < dl; ++i) bytes_.push_back(i < data.size() ? data[i] : fill);
    return *this;
  }
  // Raw bytes, for damaged count fields.
  TrackImage& raw(const Bytes& b) {
    bytes_.insert(bytes_.end(), b.begin(), b.end());
    return *this;
  }
  TrackImage& marker() { return raw(Bytes(8, 0xFF)); }

  size_t offset() const { return bytes_.size(); }
  const Bytes& bytes() const { return bytes_; }

  // Replaces the object's whole track buffer: this image, then zeros.
  void loadInto(EmulatedCKDfile& f) const {
    std::memset(f.trackBuffer, 0, f.trackSlotSize);
    std::memcpy(f.trackBuffer, bytes_.data(), bytes_.size());
  }
  // The whole slot: this image, then zeros.
  Bytes slot(size_t slotSize) const {
    Bytes s(slotSize, 0);
    std::memcpy(s.data(), bytes_.data(), bytes_.size());
    return s;
  }

 private:
  static unsigned char hi(uint16_t v) { return static_cast<unsigned char>(v >> 8); }
  static unsigned char lo(uint16_t v) { return static_cast<unsigned char>(v); }
  void put(std::initializer_list<unsigned char> b) { bytes_.insert(bytes_.end(), b); }
  Bytes bytes_;
};

// An empty formatted track: home address, record zero with 8 zero data
// bytes, the end marker at offset 21.
inline TrackImage emptyTrack(uint16_t cc, uint16_t hh) {
  TrackImage t(cc, hh);
  t.record(cc, hh, 0, {}, 8).marker();
  return t;
}

// The bytes of `f`'s track buffer from `from`, `length` long.
inline Bytes bufferBytes(const EmulatedCKDfile& f, size_t from, size_t length) {
  return Bytes(f.trackBuffer + from, f.trackBuffer + from + length);
}

inline size_t offsetOf(const EmulatedCKDfile& f, const void* ref) {
  return static_cast<size_t>(static_cast<const unsigned char*>(ref) - f.trackBuffer);
}

}  // namespace ckdvol_test

#endif  // CKDVOL_TESTS_CKDFILE_TRACK_IMAGE_BUILDER_H_
