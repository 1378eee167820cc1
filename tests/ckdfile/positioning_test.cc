// locate, locateNext, searchKey and searchRecord on hand-built track images.
#include <cstring>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "ckdfile/emulated_ckd_file.h"
#include "ckdfile/track_image_builder.h"
#include "ckdfile/volume_file_builder.h"
#include "support/temp_dir.h"

namespace {

using namespace ckdvol_test;
using T = EmulatedCKDfile;

constexpr size_t kSlot = kD600Slot;
constexpr size_t kRecordAreaEnd = kSlot - 24;  // 56808
constexpr size_t kTrailer = kSlot - 16;

// A sparse D600 volume of two cylinders (slots zero), open read-write, with
// track (0, 0) current.
class Positioning : public ::testing::Test {
 protected:
  void SetUp() override {
    path_ = dir_.file("vol.ckd");
    ASSERT_TRUE(writeD600Volume(path_, 2));
    ASSERT_EQ(0, f_.open(path_.c_str(), false));
    ASSERT_EQ(0, f_.readTrack(0, 0, 0));
  }
  // Writes `image` (then zeros) into the slot of track (cyl, head).
  void writeSlot(unsigned cyl, unsigned head, const TrackImage& image) {
    const Bytes s = image.slot(kSlot);
    ASSERT_TRUE(writeFileBytes(path_, 512 + (cyl * kD600Heads + head) * kSlot, s.data(), s.size()));
  }
  const void* at(size_t off) const { return f_.trackBuffer + off; }

  ScopedTempDir dir_;
  std::string path_;
  T f_;
};

// HA 0/0, R0 (DL 8) @5, R1 (KL 4, DL 80) @21, R2 (DL 10) @113, marker @131.
TrackImage threeRecords() {
  TrackImage t(0, 0);
  t.record(0, 0, 0, {}, 8).record(0, 0, 1, hex("C1 C2 C3 C4"), 80).record(0, 0, 2, {}, 10).marker();
  return t;
}

TEST_F(Positioning, NoCurrentTrackGivesNullEverywhere) {
  ScopedTempDir dir;
  T g;
  ASSERT_EQ(0, g.create(dir.file("new.ckd").c_str(), T::D600, 1));  // buffer, no track
  const unsigned char key[4] = {0xC1, 0xC2, 0xC3, 0xC4};
  EXPECT_EQ(nullptr, g.locate(T::ORIENT_HA, 0, 0, 0));
  EXPECT_EQ(nullptr, g.locate(T::ORIENT_END, 0, 0, 0));
  EXPECT_EQ(nullptr, g.locateNext(g.trackBuffer, false));
  EXPECT_EQ(nullptr, g.locateNext(g.trackBuffer, true));
  EXPECT_EQ(nullptr, g.searchKey(nullptr, key, 4, false));
  EXPECT_EQ(nullptr, g.searchRecord(nullptr, 0, 0, 0));

  T idle;  // no buffer at all
  EXPECT_EQ(nullptr, idle.locate(T::ORIENT_HA, 0, 0, 0));
  EXPECT_EQ(nullptr, idle.locateNext(nullptr, true));
  EXPECT_EQ(nullptr, idle.searchKey(nullptr, key, 4, true));
  EXPECT_EQ(nullptr, idle.searchRecord(nullptr, 0, 0, 0));
}

TEST_F(Positioning, LocateFixedPlacesAndRecords) {
  threeRecords().loadInto(f_);
  EXPECT_EQ(at(0), f_.locate(T::ORIENT_HA, 7, 7, 7));
  EXPECT_EQ(at(kRecordAreaEnd), f_.locate(T::ORIENT_END, 0, 0, 0));
  EXPECT_EQ(at(131), f_.locate(T::ORIENT_EOT, 0, 0, 0));
  EXPECT_EQ(at(5), f_.locate(T::ORIENT_COUNT, 0, 0, 0));
  EXPECT_EQ(at(113), f_.locate(T::ORIENT_COUNT, 0, 0, 2));
  EXPECT_EQ(nullptr, f_.locate(T::ORIENT_COUNT, 0, 0, 3));
  EXPECT_EQ(nullptr, f_.locate(T::ORIENT_COUNT, 0, 1, 2));  // neither address matches
  EXPECT_EQ(nullptr, f_.locate(T::CKDorient(3), 0, 0, 0));
  EXPECT_EQ(nullptr, f_.locate(T::CKDorient(0), 0, 0, 0));
}

TEST_F(Positioning, LocateAcceptsTheHomeAddressOrTheCountFieldAddress) {
  // HA cylinder 5 head 1; record 1's count field says cylinder 9 head 9.
  TrackImage t(5, 1);
  t.record(5, 1, 0, {}, 8).record(9, 9, 1, {}, 4).marker();
  t.loadInto(f_);
  EXPECT_EQ(at(21), f_.locate(T::ORIENT_COUNT, 5, 1, 1));
  EXPECT_EQ(at(21), f_.locate(T::ORIENT_COUNT, 9, 9, 1));
  EXPECT_EQ(nullptr, f_.locate(T::ORIENT_COUNT, 9, 1, 1));
  // searchRecord looks at the record's own count field only.
  EXPECT_EQ(nullptr, f_.searchRecord(nullptr, 5, 1, 1));
  EXPECT_EQ(at(21), f_.searchRecord(nullptr, 9, 9, 1));
}

TEST_F(Positioning, LocateStopsAtTheFirstRecordWithTheNumber) {
  // Two records numbered 1: the first with a foreign address.
  TrackImage t(5, 1);
  t.record(5, 1, 0, {}, 8).record(9, 9, 1, {}, 4).record(3, 3, 1, {}, 4).marker();
  t.loadInto(f_);
  EXPECT_EQ(nullptr, f_.locate(T::ORIENT_COUNT, 3, 3, 1));
  EXPECT_EQ(at(33), f_.searchRecord(nullptr, 3, 3, 1));
}

TEST_F(Positioning, LocateNextWithinTheTrack) {
  threeRecords().loadInto(f_);
  EXPECT_EQ(at(5), f_.locateNext(f_.trackBuffer, false));
  EXPECT_EQ(at(21), f_.locateNext(at(5), false));
  EXPECT_EQ(at(113), f_.locateNext(at(21), false));
  const void* eot = f_.locateNext(at(113), false);
  EXPECT_EQ(at(131), eot);
  EXPECT_EQ(T::ORIENT_EOT, f_.getRefType(eot));
  EXPECT_EQ(nullptr, f_.locateNext(eot, false));
  EXPECT_EQ(nullptr, f_.locateNext(at(kTrailer), false));
  EXPECT_EQ(nullptr, f_.locateNext(at(kSlot - 1), false));  // too close to the end
  EXPECT_EQ(nullptr, f_.locateNext(nullptr, false));
}

TEST_F(Positioning, MarkerAtTheRecordAreaEnd) {
  // Record 1 ends exactly at the end of the record area: its marker fills
  // the 8 bytes before the trailer.
  TrackImage t(0, 0);
  t.record(0, 0, 0, {}, 8).record(0, 0, 1, {}, static_cast<uint16_t>(kRecordAreaEnd - 29)).marker();
  ASSERT_EQ(kRecordAreaEnd + 8, t.offset());
  t.loadInto(f_);
  EXPECT_EQ(at(kRecordAreaEnd), f_.locateNext(at(21), false));  // at the end: still returned
  // locate's walk ends when it reaches the end of the record area.
  EXPECT_EQ(nullptr, f_.locate(T::ORIENT_EOT, 0, 0, 0));
  EXPECT_EQ(at(21), f_.locate(T::ORIENT_COUNT, 0, 0, 1));
}

TEST_F(Positioning, LocateNextMultitrackMovesToTheNextTrack) {
  TrackImage t00(0, 0);
  t00.record(0, 0, 0, {}, 8).record(0, 0, 1, {}, 4).marker();
  TrackImage t01(0, 1);
  t01.record(0, 1, 0, {}, 8).record(0, 1, 1, hex("D2"), 20).marker();
  writeSlot(0, 0, t00);
  writeSlot(0, 1, t01);
  ASSERT_EQ(0, f_.readTrack(0, 0, 0));

  const void* r1 = f_.locateNext(at(5), true);  // R1 of the same track
  EXPECT_EQ(at(21), r1);
  EXPECT_EQ(0, f_.currentHead);
  const void* next = f_.locateNext(r1, true);  // skips the marker and R0 of 0/1
  ASSERT_NE(nullptr, next);
  EXPECT_EQ(1, f_.currentHead);
  EXPECT_EQ(0u, f_.currentCyl);
  EXPECT_EQ(at(21), next);
  EXPECT_EQ(1, f_.getRefR(next));
  EXPECT_EQ(1, f_.getRefKL(next));

  // From the marker itself, likewise.
  ASSERT_EQ(0, f_.readTrack(0, 0, 0));
  EXPECT_EQ(at(21), f_.locateNext(at(33), true));
  EXPECT_EQ(1, f_.currentHead);
}

TEST_F(Positioning, LocateNextMultitrackWritesBackAChangedTrack) {
  writeSlot(0, 0, emptyTrack(0, 0));
  TrackImage t01(0, 1);
  t01.record(0, 1, 0, {}, 8).record(0, 1, 1, {}, 4).marker();
  writeSlot(0, 1, t01);
  ASSERT_EQ(0, f_.readTrack(0, 0, 0));
  f_.trackBuffer[13] = 0x5A;  // record zero's data, changed in memory
  f_.trackDirty = 1;
  ASSERT_NE(nullptr, f_.locateNext(at(21), true));
  EXPECT_EQ(1, f_.currentHead);
  EXPECT_EQ(0x5A, readFileBytes(path_, 512 + 13, 1).at(0));
}

TEST_F(Positioning, LocateNextMultitrackEndsAtTheVolumeEndOrADamagedTrack) {
  // Last track of the volume: nothing follows.
  writeSlot(1, 14, emptyTrack(1, 14));
  ASSERT_EQ(0, f_.readTrack(1, 14, 0));
  EXPECT_EQ(nullptr, f_.locateNext(at(5), true));
  EXPECT_EQ(nullptr, f_.locateNext(at(21), true));

  // A following track whose record zero names another track (and whose home
  // address does too): no record zero, so null.
  writeSlot(0, 0, emptyTrack(0, 0));
  writeSlot(0, 1, emptyTrack(7, 7));
  ASSERT_EQ(0, f_.readTrack(0, 0, 0));
  EXPECT_EQ(nullptr, f_.locateNext(at(21), true));
  EXPECT_EQ(1, f_.currentHead);  // it was read
}

// A D130 volume (slot 4096, 10 heads) of 200 cylinders: 2000 tracks that
// hold only record zero, except the very last one, which holds record 1.
TEST(PositioningLongRun, CrossesTracksHoldingOnlyRecordZero) {
  ScopedTempDir dir;
  const std::string path = dir.file("d130.ckd");
  constexpr uint32_t kCyls = 200, kHeads = 10, kD130Slot = 4096;
  HeaderSpec h;
  h.heads = kHeads;
  h.trackSize = kD130Slot;
  h.deviceCode = 0xA2;
  h.createdCylinders = h.cylinders = kCyls;
  ASSERT_TRUE(writeVolumeFile(path, headerBytes(h), volumeBytes(kD130Slot, kHeads, kCyls)));
  for (uint32_t c = 0; c < kCyls; ++c) {
    for (uint32_t hd = 0; hd < kHeads; ++hd) {
      TrackImage t = emptyTrack(static_cast<uint16_t>(c), static_cast<uint16_t>(hd));
      if (c == kCyls - 1 && hd == kHeads - 1) {
        t = TrackImage(static_cast<uint16_t>(c), static_cast<uint16_t>(hd));
        t.record(c, hd, 0, {}, 8).record(c, hd, 1, hex("E7"), 3).marker();
      }
      ASSERT_TRUE(writeFileBytes(path, 512 + (c * kHeads + hd) * uint64_t{kD130Slot},
                                 t.bytes().data(), t.bytes().size()));
    }
  }
  T f;
  ASSERT_EQ(0, f.open(path.c_str(), true));
  ASSERT_EQ(0, f.readTrack(0, 0, 0));
  const void* r = f.locateNext(f.trackBuffer + 5, true);
  ASSERT_NE(nullptr, r);
  EXPECT_EQ(kCyls - 1, f.currentCyl);
  EXPECT_EQ(kHeads - 1, f.currentHead);
  EXPECT_EQ(1, f.getRefR(r));
  EXPECT_EQ(512 + (uint64_t{kCyls} * kHeads - 1) * kD130Slot, f.lastReadOffset);
  EXPECT_EQ(nullptr, f.locateNext(r, true));  // end of the volume
}

TEST_F(Positioning, SearchKeyComparesWholeKeysOfTheRequestedLength) {
  TrackImage t(0, 0);
  t.record(0, 0, 0, {}, 8)                           // @5
      .record(0, 0, 1, hex("C1 C2 C3 C4 C5"), 2)    // @21 "ABCDE": longer
      .record(0, 0, 2, hex("C1 C2 C3"), 2)          // @36 "ABC": shorter
      .record(0, 0, 3, hex("C1 C2 C3 C3"), 2)       // @49 "ABCC": lower
      .record(0, 0, 4, hex("C1 C2 C3 C5"), 2)       // @63 "ABCE": higher
      .record(0, 0, 5, hex("C1 C2 C3 C4"), 2)       // @77 "ABCD"
      .record(0, 0, 6, hex("C1 C2 C3 C4"), 2)       // @91 "ABCD" again
      .marker();
  t.loadInto(f_);
  const unsigned char abcd[4] = {0xC1, 0xC2, 0xC3, 0xC4};
  EXPECT_EQ(at(77), f_.searchKey(nullptr, abcd, 4, false));
  EXPECT_EQ(at(49), f_.searchKey(nullptr, abcd, 4, true));  // lower, not higher
  EXPECT_EQ(at(77), f_.searchKey(at(49), abcd, 4, true));   // skips the higher ABCE
  EXPECT_EQ(at(91), f_.searchKey(at(77), abcd, 4, false));  // after ref, never ref
  EXPECT_EQ(nullptr, f_.searchKey(at(91), abcd, 4, false));
  EXPECT_EQ(at(21), f_.searchKey(nullptr, hex("C1 C2 C3 C4 C5").data(), 5, false));
  const unsigned char low[4] = {0x00, 0x00, 0x00, 0x00};
  EXPECT_EQ(nullptr, f_.searchKey(nullptr, low, 4, true));
}

TEST_F(Positioning, SearchKeyExaminesRecordZeroFirst) {
  TrackImage t(0, 0);
  t.record(0, 0, 0, hex("E5 D6 D3 F1"), 8).record(0, 0, 1, hex("E5 D6 D3 F1"), 8).marker();
  t.loadInto(f_);
  EXPECT_EQ(at(5), f_.searchKey(nullptr, hex("E5 D6 D3 F1").data(), 4, false));
}

TEST_F(Positioning, SearchRecordReturnsALaterRecordOnly) {
  TrackImage t(0, 0);
  t.record(0, 0, 0, {}, 8).record(0, 0, 1, {}, 4).record(0, 0, 1, {}, 4).marker();
  t.loadInto(f_);
  EXPECT_EQ(at(5), f_.searchRecord(nullptr, 0, 0, 0));
  EXPECT_EQ(at(21), f_.searchRecord(nullptr, 0, 0, 1));
  EXPECT_EQ(at(33), f_.searchRecord(at(21), 0, 0, 1));
  EXPECT_EQ(nullptr, f_.searchRecord(at(33), 0, 0, 1));
  EXPECT_EQ(nullptr, f_.searchRecord(nullptr, 0, 0, 9));
}

TEST(PositioningLarge, SearchRecordComparesAll32CylinderBits) {
  ScopedTempDir dir;
  const std::string path = dir.file("big.ckd");
  HeaderSpec h;
  h.formatLevel = 4;
  h.createdCylinders = h.cylinders = 65667;
  ASSERT_TRUE(writeVolumeFile(path, headerBytes(h), volumeBytes(kD600Slot, kD600Heads, 65667)));
  T f;
  ASSERT_EQ(0, f.open(path.c_str(), false));
  ASSERT_TRUE(f.largeCylinders);
  ASSERT_EQ(0, f.readTrack(0, 0, 0));
  // Record 1 at cylinder 100000 (0x186A0), head 5: CC 86A0, HH 0015.
  TrackImage t(0, 0);
  t.record(0, 0, 0, {}, 8).raw(hex("86 A0 00 15 01 00 00 02 00 00")).marker();
  t.loadInto(f);
  EXPECT_EQ(f.trackBuffer + 21, f.searchRecord(nullptr, 100000, 5, 1));
  EXPECT_EQ(nullptr, f.searchRecord(nullptr, 0x86A0, 5, 1));
  EXPECT_EQ(f.trackBuffer + 21, f.locate(T::ORIENT_COUNT, 100000, 5, 1));
}

// ---- damaged images: never a read outside the track buffer ------------------

TEST_F(Positioning, HugeLengthsEndTheWalk) {
  TrackImage t(0, 0);
  t.record(0, 0, 0, {}, 8).raw(hex("00 00 00 00 01 FF FF FF"));  // R1: KL 255, DL 65535
  t.loadInto(f_);
  const unsigned char key[4] = {1, 2, 3, 4};
  EXPECT_EQ(nullptr, f_.locate(T::ORIENT_EOT, 0, 0, 0));
  EXPECT_EQ(nullptr, f_.locate(T::ORIENT_COUNT, 0, 0, 2));
  EXPECT_EQ(nullptr, f_.locateNext(at(21), false));
  EXPECT_EQ(nullptr, f_.locateNext(at(21), true));
  EXPECT_EQ(0, f_.currentHead);  // no track was read
  EXPECT_EQ(nullptr, f_.searchKey(nullptr, key, 4, true));
  EXPECT_EQ(nullptr, f_.searchRecord(nullptr, 0, 0, 2));
}

TEST_F(Positioning, KeyRunningPastTheRecordAreaIsNotCompared) {
  // A record 12 bytes before the end of the record area with a 255-byte
  // key: its key would run through the trailer and beyond the slot.
  const size_t at0 = kRecordAreaEnd - 12;
  TrackImage t(0, 0);
  t.record(0, 0, 0, {}, static_cast<uint16_t>(at0 - 13));
  ASSERT_EQ(at0, t.offset());
  t.raw(hex("00 00 00 00 01 FF 00 00"));
  t.loadInto(f_);
  std::memset(f_.trackBuffer + at0 + 8, 0xAA, kSlot - at0 - 8);  // key bytes up to the end
  Bytes key(255, 0xAA);
  EXPECT_EQ(at(at0), f_.locateNext(at(5), false));
  EXPECT_EQ(nullptr, f_.searchKey(nullptr, key.data(), 255, true));
}

TEST_F(Positioning, TrackWithoutMarkerOrFullOfGarbage) {
  const unsigned char key[8] = {0, 0, 0, 0, 0, 0, 0, 0};
  // All zero after the home address: 8-byte records of R 0 up to the end.
  std::memset(f_.trackBuffer, 0, kSlot);
  EXPECT_EQ(nullptr, f_.locate(T::ORIENT_EOT, 0, 0, 0));
  EXPECT_EQ(nullptr, f_.searchKey(nullptr, key, 8, true));
  EXPECT_EQ(nullptr, f_.searchRecord(nullptr, 1, 1, 1));

  std::mt19937 rng(1234);
  for (int round = 0; round < 200; ++round) {
    for (size_t i = 0; i < kSlot; ++i) f_.trackBuffer[i] = static_cast<unsigned char>(rng());
    if (round % 2 == 0) std::memset(f_.trackBuffer + 5, 0, 8);  // a small record zero
    const unsigned char r = static_cast<unsigned char>(rng());
    f_.locate(T::ORIENT_EOT, 0, 0, 0);
    f_.locate(T::ORIENT_COUNT, 0, 0, r);
    f_.searchKey(nullptr, f_.trackBuffer + (rng() % kSlot) / 2, static_cast<int>(rng() % 256), true);
    f_.searchRecord(nullptr, 0, 0, r);
    for (const void* p = f_.trackBuffer; p != nullptr; p = f_.locateNext(p, false)) {
      EXPECT_LE(offsetOf(f_, p), kRecordAreaEnd);
    }
    const void* q = f_.trackBuffer + (rng() % kSlot);
    f_.locateNext(q, false);
  }
}

}  // namespace
