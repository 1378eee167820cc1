#include "common/data_translator.h"

#include <cstring>

#include <gtest/gtest.h>

namespace {

TEST(DataTranslator, KnownCodePoints) {
  // EBCDIC 037: C1 'A', 81 'a', F0 '0', 40 blank, 4B '.', 5B '$', 7B '#', 7C '@'
  const unsigned char e[] = {0xC1, 0x81, 0xF0, 0x40, 0x4B, 0x5B, 0x7B, 0x7C, 0xE5, 0xD6, 0xD3, 0xF1};
  char a[sizeof e + 1] = {};
  Xlater.copyE2A(a, e, sizeof e);
  EXPECT_STREQ("Aa0 .$#@VOL1", a);
  // Bracket placement differs between EBCDIC code pages: 037 has BA/BB.
  unsigned char br[2];
  Xlater.copyA2E(br, "[]", 2);
  EXPECT_EQ(0xBA, br[0]);
  EXPECT_EQ(0xBB, br[1]);
}

TEST(DataTranslator, TablesAreInverseBijections) {
  DataTranslator t(DataTranslator::XLATE_EBCDIC_ASCII);
  unsigned char all[256], there[256], back[256];
  for (int i = 0; i < 256; ++i) all[i] = static_cast<unsigned char>(i);
  t.copyE2A(there, all, 256);
  bool seen[256] = {};
  for (int i = 0; i < 256; ++i) {
    EXPECT_FALSE(seen[there[i]]) << "E2A maps two codes to " << int(there[i]);
    seen[there[i]] = true;
  }
  t.copyA2E(back, there, 256);
  EXPECT_EQ(0, std::memcmp(all, back, 256));
}

TEST(DataTranslator, InPlaceTranslation) {
  unsigned char buf[4] = {0xC8, 0xC9, 0x5A, 0x00};  // "HI!" and NUL
  Xlater.xlateE2A(buf, 3);
  EXPECT_EQ(0, std::memcmp(buf, "HI!", 3));
  Xlater.xlateA2E(buf, 3);
  EXPECT_EQ(0xC8, buf[0]);
  EXPECT_EQ(0x5A, buf[2]);
}

}  // namespace
