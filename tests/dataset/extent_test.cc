// Extents, relative tracks and dates, against values computed by hand.
#include "dataset/extent.h"

#include <gtest/gtest.h>

#include "dataset/dates.h"

namespace ckdvol {
namespace {

// Extents 1/(H-2) .. 2/1 (4 tracks, across the cylinder) and 5/3 .. 5/4:
// relative tracks 0-5 are 1/(H-2), 1/(H-1), 2/0, 2/1, 5/3, 5/4.
TEST(ExtentMapTest, RelativeTracksUseTheRealHeadsPerCylinder) {
  for (uint32_t heads : {10u, 15u, 19u, 20u, 30u}) {
    SCOPED_TRACE(heads);
    const uint32_t want[6][2] = {{1, heads - 2}, {1, heads - 1}, {2, 0}, {2, 1}, {5, 3}, {5, 4}};
    ExtentMap map({{1, 0, 1, heads - 2, 2, 1}, {1, 1, 5, 3, 5, 4}}, heads);
    ASSERT_EQ(map.tracks(), 6u);
    for (uint32_t t = 0; t < 6; ++t) {
      uint32_t cyl = 99, head = 99, back = 99;
      ASSERT_TRUE(map.toCylHead(t, cyl, head));
      EXPECT_EQ(cyl * 100 + head, want[t][0] * 100 + want[t][1]);
      ASSERT_TRUE(map.toRelative(cyl, head, back));
      EXPECT_EQ(back, t);
    }
    uint32_t cyl = 7, head = 7, rel = 7;
    EXPECT_FALSE(map.toCylHead(6, cyl, head));
    EXPECT_FALSE(map.toRelative(2, 2, rel));  // between the extents
    EXPECT_FALSE(map.toRelative(1, heads, rel));
    EXPECT_EQ(cyl + head + rel, 21u);
  }
  // Head 15 of 15 and a high track before the low one count no track; the
  // good extent 4/14 .. 5/1 follows them.
  ExtentMap map({{1, 0, 2, 15, 2, 15}, {1, 1, 3, 5, 3, 4}, {1, 2, 4, 14, 5, 1}}, 15);
  EXPECT_EQ(map.tracks() * 10 + map.badExtents(), 32u);
  uint32_t cyl = 0, head = 0;
  ASSERT_TRUE(map.toCylHead(2, cyl, head));
  EXPECT_EQ(cyl * 100 + head, 501u);
  EXPECT_EQ(extentTracks({1, 0, 0, 0, 0, 0}, 0), 0u);
}

// Dates decoded in the tests of the VTOC and of directory statistics are not
// repeated here: these are the remaining corners.
TEST(DatesTest, DscbAndPackedDates) {
  struct {
    unsigned char b[3];
    int yyyyddd;
    bool valid;
  } dscb[] = {
      {{0x63, 0x01, 0x6D}, 1999365, true},  // 99365, the "never" expiry
      {{0xFF, 0x01, 0x6E}, 2155366, true},  // the last year a byte holds
      {{0x7D, 0x01, 0x6F}, 0, false},       // day 367
      {{0x7D, 0x00, 0x00}, 0, false},       // day 0 of a year
  };
  for (const auto& c : dscb) {
    bool valid = !c.valid;
    const YearDay d = decodeDscbDate(c.b, &valid);
    EXPECT_EQ(d.year * 1000 + d.day, c.yyyyddd);
    EXPECT_EQ(valid, c.valid);
  }
  struct {
    unsigned char b[4];
    bool ok;
    int yyyyddd;
  } packed[] = {
      {{0x00, 0x99, 0x36, 0x6C}, true, 1999366},  // century 0, sign C accepted
      {{0x00, 0x00, 0x00, 0x0F}, true, 0},        // no date
      {{0x01, 0x00, 0x00, 0x1F}, true, 2000001},  // the first day
      {{0x02, 0x24, 0x03, 0x2F}, false, 0},       // century 2
      {{0x01, 0x24, 0x03, 0x2D}, false, 0},       // sign D
      {{0x01, 0x24, 0x3A, 0x1F}, false, 0},       // digit A in the day
      {{0x01, 0x2A, 0x03, 0x2F}, false, 0},       // digit A in the year
  };
  for (const auto& c : packed) {
    YearDay d;
    d.year = 7;
    EXPECT_EQ(decodePackedDate(c.b, d), c.ok);
    EXPECT_EQ(d.year * 1000 + d.day, c.yyyyddd);
  }
}

}  // namespace
}  // namespace ckdvol
