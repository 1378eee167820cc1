// Internal header (not installed): helpers shared by the dscb/ sources.
// Appending text to a caller's RexxString, and reading the CCHH and CCHHR
// addresses that DSCBs carry (big-endian halfwords, with the large-cylinder
// decoding of common/cchh.h when the volume uses 28-bit cylinder numbers).
#ifndef CKDVOL_DSCB_DSCB_UTIL_H_
#define CKDVOL_DSCB_DSCB_UTIL_H_

#include "common/byte_order.h"
#include "common/cchh.h"
#include "common/rexx_string.h"

namespace ckdvol {

// Appends a NUL-terminated text: `out + text` is formed and copied back into
// `out`, the one way every dump and listing grows its output.
inline void appendText(RexxString& out, const char* text) { out.copy((out + text).text(), -1); }

// Appends `count` spaces (nothing when count is not above 0).
inline void appendSpaces(RexxString& out, int count) {
  static const char kSpaces[] = "                                ";  // 32
  constexpr int kChunk = static_cast<int>(sizeof kSpaces) - 1;
  while (count > 0) {
    int n = count < kChunk ? count : kChunk;
    appendText(out, kSpaces + (kChunk - n));
    count -= n;
  }
}

// Reads the 4-byte CCHH at `p` into cylinder and head.
// Precondition: 4 readable bytes at `p`.
inline void readCchh(const unsigned char* p, bool largeCylinders, int& cyl, int& head) {
  CylHead ch = decodeCchh(loadBe16(p), loadBe16(p + 2), largeCylinders);
  cyl = static_cast<int>(ch.cyl);
  head = static_cast<int>(ch.head);
}

// Reads the 5-byte CCHHR at `p` into cylinder, head and record number.
// Precondition: 5 readable bytes at `p`.
inline void readCchhr(const unsigned char* p, bool largeCylinders, int& cyl, int& head, int& rec) {
  readCchh(p, largeCylinders, cyl, head);
  rec = p[4];
}

}  // namespace ckdvol

#endif  // CKDVOL_DSCB_DSCB_UTIL_H_
