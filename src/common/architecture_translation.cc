#include "common/architecture_translation.h"

#include "common/byte_order.h"

namespace {

template <class T>
void toBytes(T value, unsigned char* bytes) {
  std::memcpy(bytes, &value, sizeof value);
}

}  // namespace

unsigned short ArchitectureTranslation::mtohs(unsigned short value) {
  unsigned char b[2];
  toBytes(value, b);
  return ckdvol::loadBe16(b);
}

unsigned int ArchitectureTranslation::mtohi(unsigned int value) {
  unsigned char b[4];
  toBytes(value, b);
  return ckdvol::loadBe32(b);
}

unsigned long long ArchitectureTranslation::mtohll(unsigned long long value) {
  unsigned char b[8];
  toBytes(value, b);
  return ckdvol::loadBe64(b);
}

unsigned short ArchitectureTranslation::itohs(unsigned short value) {
  unsigned char b[2];
  toBytes(value, b);
  return ckdvol::loadLe16(b);
}

unsigned int ArchitectureTranslation::itohi(unsigned int value) {
  unsigned char b[4];
  toBytes(value, b);
  return ckdvol::loadLe32(b);
}

unsigned long long ArchitectureTranslation::itohll(unsigned long long value) {
  unsigned char b[8];
  toBytes(value, b);
  return ckdvol::loadLe64(b);
}
