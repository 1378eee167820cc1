// Internal header (not installed): fixed-width loads and stores for the two
// byte orders the volume file uses. The file header is little-endian; track
// images, labels, DSCBs and directory blocks are big-endian and unaligned.
// All helpers work byte by byte on unsigned bytes, so host byte order and
// alignment never matter. Precondition of every helper: the N bytes at `p`
// are inside the caller's buffer.
#ifndef CKDVOL_COMMON_BYTE_ORDER_H_
#define CKDVOL_COMMON_BYTE_ORDER_H_

#include <cstdint>

namespace ckdvol {

inline uint16_t loadBe16(const unsigned char* p) {
  return static_cast<uint16_t>((p[0] << 8) | p[1]);
}
inline uint32_t loadBe32(const unsigned char* p) {
  return (static_cast<uint32_t>(p[0]) << 24) | (static_cast<uint32_t>(p[1]) << 16) |
         (static_cast<uint32_t>(p[2]) << 8) | static_cast<uint32_t>(p[3]);
}
inline uint64_t loadBe64(const unsigned char* p) {
  return (static_cast<uint64_t>(loadBe32(p)) << 32) | loadBe32(p + 4);
}
inline void storeBe16(unsigned char* p, uint16_t v) {
  p[0] = static_cast<unsigned char>(v >> 8);
  p[1] = static_cast<unsigned char>(v);
}
inline void storeBe32(unsigned char* p, uint32_t v) {
  p[0] = static_cast<unsigned char>(v >> 24);
  p[1] = static_cast<unsigned char>(v >> 16);
  p[2] = static_cast<unsigned char>(v >> 8);
  p[3] = static_cast<unsigned char>(v);
}
inline void storeBe64(unsigned char* p, uint64_t v) {
  storeBe32(p, static_cast<uint32_t>(v >> 32));
  storeBe32(p + 4, static_cast<uint32_t>(v));
}

inline uint16_t loadLe16(const unsigned char* p) {
  return static_cast<uint16_t>(p[0] | (p[1] << 8));
}
inline uint32_t loadLe32(const unsigned char* p) {
  return static_cast<uint32_t>(p[0]) | (static_cast<uint32_t>(p[1]) << 8) |
         (static_cast<uint32_t>(p[2]) << 16) | (static_cast<uint32_t>(p[3]) << 24);
}
inline uint64_t loadLe64(const unsigned char* p) {
  return static_cast<uint64_t>(loadLe32(p)) | (static_cast<uint64_t>(loadLe32(p + 4)) << 32);
}
inline void storeLe16(unsigned char* p, uint16_t v) {
  p[0] = static_cast<unsigned char>(v);
  p[1] = static_cast<unsigned char>(v >> 8);
}
inline void storeLe32(unsigned char* p, uint32_t v) {
  p[0] = static_cast<unsigned char>(v);
  p[1] = static_cast<unsigned char>(v >> 8);
  p[2] = static_cast<unsigned char>(v >> 16);
  p[3] = static_cast<unsigned char>(v >> 24);
}
inline void storeLe64(unsigned char* p, uint64_t v) {
  storeLe32(p, static_cast<uint32_t>(v));
  storeLe32(p + 4, static_cast<uint32_t>(v >> 32));
}

}  // namespace ckdvol

#endif  // CKDVOL_COMMON_BYTE_ORDER_H_
