#include "common/architecture_translation.h"

#include <cstring>

#include <gtest/gtest.h>

#include "common/byte_order.h"
#include "common/cchh.h"

namespace {

TEST(ArchitectureTranslation, BigAndLittleEndianLoads) {
  const unsigned char b[8] = {0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08};
  unsigned short s;
  unsigned int i;
  unsigned long long l;
  std::memcpy(&s, b, 2);
  std::memcpy(&i, b, 4);
  std::memcpy(&l, b, 8);
  EXPECT_EQ(0x0102, ArchitectureTranslation::mtohs(s));
  EXPECT_EQ(0x01020304u, ArchitectureTranslation::mtohi(i));
  EXPECT_EQ(0x0102030405060708ull, ArchitectureTranslation::mtohll(l));
  EXPECT_EQ(0x0201, ArchitectureTranslation::itohs(s));
  EXPECT_EQ(0x04030201u, ArchitectureTranslation::itohi(i));
  EXPECT_EQ(0x0807060504030201ull, ArchitectureTranslation::itohll(l));
}

TEST(ByteOrder, StoresWriteTheDocumentedBytes) {
  unsigned char b[8];
  ckdvol::storeBe16(b, 0x1234);
  EXPECT_EQ(0x12, b[0]);
  EXPECT_EQ(0x34, b[1]);
  ckdvol::storeLe32(b, 0x0000DE00);  // D600 slot size in the header
  const unsigned char le[4] = {0x00, 0xDE, 0x00, 0x00};
  EXPECT_EQ(0, std::memcmp(b, le, 4));
  ckdvol::storeBe64(b, 948810752ull);  // 0x388DB400
  const unsigned char be[8] = {0, 0, 0, 0, 0x38, 0x8D, 0xB4, 0x00};
  EXPECT_EQ(0, std::memcmp(b, be, 8));
  EXPECT_EQ(948810752ull, ckdvol::loadBe64(b));
}

TEST(Cchh, LargeCylinderRule) {
  // CC 0005, HH 0012 on a large volume: cylinder 65541, head 2.
  ckdvol::CylHead ch = ckdvol::decodeCchh(0x0005, 0x0012, true);
  EXPECT_EQ(65541u, ch.cyl);
  EXPECT_EQ(2u, ch.head);
  ch = ckdvol::decodeCchh(0x0005, 0x0012, false);
  EXPECT_EQ(5u, ch.cyl);
  EXPECT_EQ(18u, ch.head);
  EXPECT_EQ(0x0015, ckdvol::encodeLargeHh(100000, 5));  // cylinder 0x186A0
}

}  // namespace
