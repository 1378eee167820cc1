// locate, locateNext, searchKey, searchRecord, writeCKD and writeD on hand-built track images.
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "ckdfile/emulated_ckd_file.h"
#include "support/temp_dir.h"
#include "support/track_builder.h"

namespace {

using T = EmulatedCKDfile;
using namespace ckdvol_test;

constexpr long kLimit = kSlot - 24;  // end of the record area (dataLimit)
constexpr long kTrailer = kSlot - 16;

// A formatted 2-cylinder D600 volume, open read-write, track (0, 2) current.
class Records : public testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(writeD600(path_, 2) && f.open(path_.c_str(), false) == 0 && f.readTrack(0, 2, 0) == 0); }
  void TearDown() override { f.trackDirty = 0; }
  // The buffer becomes `t`, zeros, and a trailer pattern no writer may touch.
  void load(const TrackImage& t) { std::memcpy(f.trackBuffer, t.slot(kSlot, repeat(0x77, 16)).data(), kSlot); }
  const void* at(long off) const { return off < 0 ? nullptr : f.trackBuffer + off; }
  long offsetOf(const void* p) const { return p == nullptr ? -1 : static_cast<const unsigned char*>(p) - f.trackBuffer; }
  Bytes image() const { return Bytes(f.trackBuffer, f.trackBuffer + kSlot); }
  ScopedTempDir dir_;
  std::string path_ = dir_.file("v");
  T f;
};

// HA 5/1; R0 @5; R1 (count says 9/9, key C1C2C3C4, DL 80) @21; a second
// R1 (3/3) @113; R2 @125; marker @143.
TEST_F(Records, PositioningOutcomes) {
  load(TrackImage(5, 1).record(5, 1, 0, {}, 8).record(9, 9, 1, hex("C1C2C3C4"), 80).record(3, 3, 1, {}, 4).record(5, 1, 2, {}, 10).marker());
  struct Loc { int orient; unsigned cyl, head, rec; long want; };
  // Count rows 5/1/1 and 9/9/1: the home address or the record's own count field matches; 9/1/1 neither;
  // 3/3/1: only the first record numbered 1 is a candidate.
  const Loc locs[] = {
      {T::ORIENT_HA, 7, 7, 7, 0}, {T::ORIENT_END, 0, 0, 0, kLimit}, {T::ORIENT_EOT, 0, 0, 0, 143}, {T::ORIENT_COUNT, 5, 1, 0, 5},
      {T::ORIENT_COUNT, 5, 1, 1, 21}, {T::ORIENT_COUNT, 9, 9, 1, 21}, {T::ORIENT_COUNT, 9, 1, 1, -1}, {T::ORIENT_COUNT, 3, 3, 1, -1},
      {T::ORIENT_COUNT, 5, 1, 2, 125}, {T::ORIENT_COUNT, 5, 1, 3, -1}, {3, 0, 0, 0, -1}, {0, 0, 0, 0, -1},
  };
  for (const Loc& l : locs) {
    EXPECT_EQ(l.want, offsetOf(f.locate(T::CKDorient(l.orient), l.cyl, l.head, l.rec))) << l.orient << " " << l.cyl << "/" << l.head << "/" << l.rec;
  }
  struct Search { long from; unsigned cyl, head, rec; long want; };  // searchRecord: own count field only
  const Search searches[] = {{-1, 5, 1, 1, -1}, {-1, 9, 9, 1, 21}, {-1, 3, 3, 1, 113}, {21, 9, 9, 1, -1},
                              {-1, 5, 1, 0, 5},  {5, 5, 1, 0, -1},  {-1, 5, 1, 9, -1},  {113, 5, 1, 2, 125}};
  for (const Search& s : searches) EXPECT_EQ(s.want, offsetOf(f.searchRecord(at(s.from), s.cyl, s.head, s.rec))) << s.from << " " << s.rec;
  const long steps[][2] = {{0, 5}, {5, 21}, {21, 113}, {113, 125}, {125, 143}, {143, -1}, {kTrailer, -1}, {kSlot - 1, -1}, {-1, -1}};
  for (const auto& s : steps) EXPECT_EQ(s[1], offsetOf(f.locateNext(at(s[0]), false))) << s[0];

  // searchKey: whole keys of the requested length, after `ref`, never `ref` itself.
  // @5 record zero is examined too, @25 longer, @40 shorter, @53 lower, @67 higher, @81 equal, marker @95.
  load(TrackImage(0, 2).record(0, 2, 0, hex("C1C2C3C4"), 8).record(0, 2, 1, hex("C1C2C3C4C5"), 2).record(0, 2, 2, hex("C1C2C3"), 2)
           .record(0, 2, 3, hex("C1C2C3C3"), 2).record(0, 2, 4, hex("C1C2C3C5"), 2).record(0, 2, 5, hex("C1C2C3C4"), 2).marker());
  const Bytes abcd = hex("C1C2C3C4"), low = hex("00000000");
  struct Key { long from; const Bytes* key; bool lower; long want; };
  const Key ks[] = {{-1, &abcd, false, 5}, {5, &abcd, false, 81}, {5, &abcd, true, 53}, {53, &abcd, true, 81},
                    {81, &abcd, false, -1}, {-1, &low, true, -1}};
  for (const Key& k : ks) EXPECT_EQ(k.want, offsetOf(f.searchKey(at(k.from), k.key->data(), 4, k.lower))) << k.from << " " << k.lower;
  EXPECT_EQ(25, offsetOf(f.searchKey(nullptr, hex("C1C2C3C4C5").data(), 5, false)));

  // Record 1 ends exactly at the record area's end, its marker fills the 8 bytes before the trailer.
  load(TrackImage(0, 2).record(0, 2, 0, {}, 8).record(0, 2, 1, {}, kLimit - 29).marker());
  EXPECT_EQ((std::vector<long>{kLimit, -1, 21}),  // the walk ends at the area's end
            (std::vector<long>{offsetOf(f.locateNext(at(21), false)), offsetOf(f.locate(T::ORIENT_EOT, 0, 0, 0)),
                               offsetOf(f.locate(T::ORIENT_COUNT, 0, 2, 1))}));

  T idle, typed;  // no current track: null everywhere
  ASSERT_TRUE(typed.setType(T::D600));
  for (T* g : {&idle, &typed}) {
    EXPECT_TRUE(!g->locate(T::ORIENT_HA, 0, 0, 0) && !g->locateNext(g->trackBuffer, true) &&
                !g->searchKey(nullptr, abcd.data(), 4, true) && !g->searchRecord(nullptr, 0, 0, 0));
  }
}

TEST(RecordsLarge, CylindersAbove65535) {
  ScopedTempDir dir;
  T f;  // a type and a buffer suffice for the writers
  ASSERT_TRUE(f.setType(T::D600));
  f.setCylinders(65667);
  std::memcpy(f.trackBuffer, TrackImage(0x86A0, 0x0015).bytes().data(), 5);  // HA of cylinder 100000, head 5
  const Bytes zero(8, 0);
  EXPECT_EQ(T::kWriteHaMismatch, f.writeCKD(f.trackBuffer, 0x86A0, 0x15, 0, 0, 8, zero.data()));
  ASSERT_EQ(0, f.writeCKD(f.trackBuffer, 100000, 5, 0, 0, 8, zero.data()));
  ASSERT_EQ(0, f.writeCKD(f.trackBuffer + 5, 100000, 5, 1, 0, 0, nullptr));
  EXPECT_EQ(hex("86A0 0015 00 00 0008 0000000000000000 86A0 0015 01 00 0000 FFFFFFFFFFFFFFFF"),
            Bytes(f.trackBuffer + 5, f.trackBuffer + 37));
  const Bytes img(f.trackBuffer, f.trackBuffer + 45);
  Header h;
  h.level = 4, h.created = h.cyls = 65667;
  ASSERT_TRUE(writeVolume(dir.file("big"), h.bytes(), slotAt(65667, 0)));
  T g;
  ASSERT_EQ(0, g.open(dir.file("big").c_str(), false));
  ASSERT_EQ(0, g.readTrack(0, 0, 0));
  std::memcpy(g.trackBuffer, img.data(), img.size());
  EXPECT_TRUE(g.searchRecord(nullptr, 100000, 5, 1) == g.trackBuffer + 21 && !g.searchRecord(nullptr, 0x86A0, 5, 1) &&
              g.locate(T::ORIENT_COUNT, 100000, 5, 1) == g.trackBuffer + 21);  // all 32 bits compared
}

TEST_F(Records, WriteCkdAndWriteD) {
  load(TrackImage(0, 2).record(0, 2, 0, {}, 8, {}, 0x11).record(0, 2, 1, hex("C1"), 300, {}, 0x22).marker());
  const Bytes r0 = hex("0102030405060708");
  ASSERT_TRUE(f.writeCKD(f.trackBuffer, 0, 2, 0, 0, 8, r0.data()) == 0 && f.trackDirty);  // R0: the rest is erased
  EXPECT_EQ(cat({hex("00 0000 0002"),           // HA unchanged
                 hex("0000 0002 00 00 0008"),   // R0 count: CC HH R KL DL
                 r0, repeat(0xFF, 8),           // R0 data, marker at 21
                 repeat(0, kTrailer - 29),      // erased up to the record area's end
                 repeat(0x77, 16)}),            // the trailer untouched
            image());

  const Bytes kd = hex("C1C2 D1D2D3");
  ASSERT_EQ(0, f.writeCKD(at(5), 0, 2, 1, 2, 3, kd.data()));
  ASSERT_EQ(0, f.writeCKD(at(21), 0x1234, 0x0BAD, 0xEE, 0, 4, hex("09080706").data()));
  EXPECT_EQ(hex("0000 0002 01 02 0003 C1C2 D1D2D3"  // R1 @21: KL 2 DL 3
                "1234 0BAD EE 00 0004 09080706"     // R2 @34: as passed, unchecked
                "FFFFFFFFFFFFFFFF 00"),             // marker @46
            Bytes(f.trackBuffer + 21, f.trackBuffer + 55));
  ASSERT_EQ(0, f.writeD(at(21), hex("AABBCCDDEE").data()));  // exactly the data area: DL bytes after the key
  EXPECT_EQ(hex("0003 C1C2 AABBCC 1234"), Bytes(f.trackBuffer + 27, f.trackBuffer + 36));
  ASSERT_EQ(0, f.writeCKD(at(21), 0, 2, 2, 0, 0, nullptr));  // after R1 again: R2 is erased
  EXPECT_EQ(hex("0000 0002 02 00 0000 FFFFFFFFFFFFFFFF 0000"), Bytes(f.trackBuffer + 34, f.trackBuffer + 52));

  ASSERT_EQ(0, f.readTrack(1, 0, 0));  // the change reaches the file with the buffer's trailer
  EXPECT_EQ(hex("0000 0002 01 02 0003 C1C2 AABBCC"), readAt(path_, slotAt(0, 2) + 21, 13));
  EXPECT_EQ(repeat(0x77, 16), readAt(path_, slotAt(0, 2) + kTrailer, 16));
}

}  // namespace
