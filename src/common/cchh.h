// Internal header (not installed): the one home of the large-cylinder rule
// for a CC/HH pair (two big-endian halfwords on the volume).
//
// On volumes whose cylinder numbers have 28 bits, CC holds the cylinder's low
// 16 bits and HH holds bits 16..27 of the cylinder in its upper 12 bits and
// the head in its low 4 bits:
//
//     CC = cyl & 0xFFFF            HH = ((cyl >> 16) << 4) | (head & 0xF)
//     cyl = CC | ((HH >> 4) << 16)  head = HH & 0xF
//
// Without the large-cylinder flag CC and HH are cylinder and head as they are.
#ifndef CKDVOL_COMMON_CCHH_H_
#define CKDVOL_COMMON_CCHH_H_

#include <cstdint>

namespace ckdvol {

struct CylHead {
  uint32_t cyl;
  uint32_t head;
};

// Decodes a CC/HH pair. With `large` clear the values pass through unchanged.
inline CylHead decodeCchh(uint16_t cc, uint16_t hh, bool large) {
  if (!large) return CylHead{cc, hh};
  return CylHead{static_cast<uint32_t>(cc) | (static_cast<uint32_t>(hh >> 4) << 16),
                 static_cast<uint32_t>(hh & 0x000F)};
}

// The HH half of the large-cylinder encoding of (cyl, head).
inline uint16_t encodeLargeHh(uint32_t cyl, uint32_t head) {
  return static_cast<uint16_t>(((cyl >> 16) << 4) | (head & 0x000F));
}

}  // namespace ckdvol

#endif  // CKDVOL_COMMON_CCHH_H_
