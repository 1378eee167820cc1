// Stand-in for the host's byte-order service. The `m` functions take a value
// that was loaded from big-endian ("mainframe") storage with a plain memory
// copy and return it in host order; the `i` functions do the same for
// little-endian ("Intel") storage. Callers that hold a pointer into a record
// copy the bytes into a value first (memcpy), so unaligned fields are safe.
#ifndef CKDVOL_COMMON_ARCHITECTURE_TRANSLATION_H_
#define CKDVOL_COMMON_ARCHITECTURE_TRANSLATION_H_

#include <cstring>

#include "common/export.h"

class CKDVOL_EXPORT ArchitectureTranslation {
 public:
  static unsigned short mtohs(unsigned short value);
  static unsigned int mtohi(unsigned int value);
  static unsigned long long mtohll(unsigned long long value);
  static unsigned short itohs(unsigned short value);
  static unsigned int itohi(unsigned int value);
  static unsigned long long itohll(unsigned long long value);
};

#endif  // CKDVOL_COMMON_ARCHITECTURE_TRANSLATION_H_
