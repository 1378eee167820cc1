// Extents, relative tracks and dates, against values computed by hand.
#include "dataset/extent.h"

#include <gtest/gtest.h>

#include "dataset/dates.h"

namespace ckdvol {
namespace {

// Two extents that cross cylinders: 1/(H-2) .. 2/1 (4 tracks), then 5/3 ..
// 5/4 (2 tracks); relative track -> (cyl, head), written out for each count.
TEST(ExtentMapTest, RelativeTracksUseTheRealHeadsPerCylinder) {
  struct Case {
    uint32_t heads;
    uint32_t cyl[6], head[6];
  } cases[] = {
      {10, {1, 1, 2, 2, 5, 5}, {8, 9, 0, 1, 3, 4}},
      {15, {1, 1, 2, 2, 5, 5}, {13, 14, 0, 1, 3, 4}},
      {19, {1, 1, 2, 2, 5, 5}, {17, 18, 0, 1, 3, 4}},
      {20, {1, 1, 2, 2, 5, 5}, {18, 19, 0, 1, 3, 4}},
      {30, {1, 1, 2, 2, 5, 5}, {28, 29, 0, 1, 3, 4}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.heads);
    ExtentMap map({{1, 0, 1, c.heads - 2, 2, 1}, {1, 1, 5, 3, 5, 4}}, c.heads);
    ASSERT_EQ(map.tracks(), 6u);
    for (uint32_t t = 0; t < 6; ++t) {
      uint32_t cyl = 99, head = 99, back = 99;
      ASSERT_TRUE(map.toCylHead(t, cyl, head));
      EXPECT_EQ(cyl, c.cyl[t]);
      EXPECT_EQ(head, c.head[t]);
      ASSERT_TRUE(map.toRelative(cyl, head, back));
      EXPECT_EQ(back, t);
    }
    uint32_t cyl = 7, head = 7, rel = 7;
    EXPECT_FALSE(map.toCylHead(6, cyl, head));
    EXPECT_FALSE(map.toRelative(2, 2, rel));  // between the extents
    EXPECT_FALSE(map.toRelative(1, c.heads, rel));
    EXPECT_EQ(cyl, 7u);
  }
}

TEST(ExtentMapTest, ExtentsThatAreNotRunsOfTracksContributeNone) {
  // head 15 on 15 heads; high before low; a good one of 3 tracks at 4/14 .. 5/1.
  ExtentMap map({{1, 0, 2, 15, 2, 15}, {1, 1, 3, 5, 3, 4}, {1, 2, 4, 14, 5, 1}}, 15);
  EXPECT_EQ(map.tracks(), 3u);
  EXPECT_EQ(map.badExtents(), 2u);
  uint32_t cyl = 0, head = 0;
  ASSERT_TRUE(map.toCylHead(0, cyl, head));
  EXPECT_EQ(cyl * 100 + head, 414u);
  ASSERT_TRUE(map.toCylHead(2, cyl, head));
  EXPECT_EQ(cyl * 100 + head, 501u);
  EXPECT_EQ(extentTracks({1, 0, 0, 0, 0, 0}, 0), 0u);
}

TEST(ExtentTest, DecodesSmallAndLargeCylinderForms) {
  // type 01, seq 02, low 1170 0013 (70000 = 0x11170, head 3), high 1171 0012
  const unsigned char bytes[10] = {0x01, 0x02, 0x11, 0x70, 0x00, 0x13, 0x11, 0x71, 0x00, 0x12};
  const Extent large = decodeExtent(bytes, true);
  EXPECT_EQ(large.type, 0x01);
  EXPECT_EQ(large.sequence, 0x02);
  EXPECT_EQ(large.lowCyl, 70000u);
  EXPECT_EQ(large.lowHead, 3u);
  EXPECT_EQ(large.highCyl, 70001u);
  EXPECT_EQ(large.highHead, 2u);
  const Extent small = decodeExtent(bytes, false);
  EXPECT_EQ(small.lowCyl, 0x1170u);
  EXPECT_EQ(small.lowHead, 0x13u);
}

TEST(DatesTest, DscbAndPackedDates) {
  struct Dscb {
    unsigned char b[3];
    uint16_t year, day;
    bool valid;
  } dscb[] = {
      {{0x00, 0x00, 0x00}, 0, 0, true},      // no date
      {{0x7C, 0x00, 0x20}, 2024, 32, true},  // 124 -> 2024, day 32
      {{0x63, 0x01, 0x6D}, 1999, 365, true}, // 99365, the "never" expiry
      {{0x7D, 0x01, 0x6F}, 0, 0, false},     // day 367
      {{0x7D, 0x00, 0x00}, 0, 0, false},     // day 0 of a year
  };
  for (const Dscb& c : dscb) {
    bool valid = !c.valid;
    const YearDay d = decodeDscbDate(c.b, &valid);
    EXPECT_EQ(d.year, c.year);
    EXPECT_EQ(d.day, c.day);
    EXPECT_EQ(valid, c.valid);
  }
  struct Packed {
    unsigned char b[4];
    bool ok;
    uint16_t year, day;
  } packed[] = {
      {{0x01, 0x24, 0x03, 0x2F}, true, 2024, 32},   // 0c=1, yy=24, ddd=032, F
      {{0x00, 0x99, 0x36, 0x6C}, true, 1999, 366},  // sign C accepted
      {{0x00, 0x00, 0x00, 0x0F}, true, 0, 0},       // no date
      {{0x02, 0x24, 0x03, 0x2F}, false, 0, 0},      // century 2
      {{0x01, 0x2A, 0x03, 0x2F}, false, 0, 0},      // digit A
      {{0x01, 0x24, 0x36, 0x7F}, false, 0, 0},      // day 367
      {{0x01, 0x24, 0x03, 0x2D}, false, 0, 0},      // sign D
  };
  for (const Packed& c : packed) {
    YearDay d;
    d.year = 7;
    EXPECT_EQ(decodePackedDate(c.b, d), c.ok);
    EXPECT_EQ(d.year, c.year);
    EXPECT_EQ(d.day, c.day);
  }
  EXPECT_EQ(packedByte(0x59), 59);
  EXPECT_EQ(packedByte(0x5A), -1);
  EXPECT_EQ(packedByte(0xA5), -1);
}

}  // namespace
}  // namespace ckdvol
