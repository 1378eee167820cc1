// Track verification: every verifyCode, each repair as it lands in the slot,
// the diagnostic line on standard output, the verifyTracks hooks of the track
// I/O, and damaged images that must not lead outside the buffers.
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "ckdfile/emulated_ckd_file.h"
#include "ckdfile/track_image_builder.h"
#include "ckdfile/volume_file_builder.h"
#include "support/temp_dir.h"

namespace {

using ckdvol_test::Bytes;
using ckdvol_test::emptyTrack;
using ckdvol_test::fileSize;
using ckdvol_test::hex;
using ckdvol_test::kD600Heads;
using ckdvol_test::kD600Slot;
using ckdvol_test::readFileBytes;
using ckdvol_test::ScopedTempDir;
using ckdvol_test::TrackImage;
using ckdvol_test::writeFileBytes;

constexpr size_t kDataLimit = kD600Slot - 24;
constexpr unsigned int kNone = 0xFFFFFFFFu;

unsigned long long slotOffset(unsigned int cyl, unsigned int head) {
  return 512ULL + (static_cast<unsigned long long>(cyl) * kD600Heads + head) * kD600Slot;
}

// The 16 trailer bytes: "VER0", version (BE16), reserved 0, link (BE64).
Bytes trailer(uint16_t version, unsigned long long link) {
  Bytes t = {'V', 'E', 'R', '0', static_cast<unsigned char>(version >> 8),
             static_cast<unsigned char>(version), 0, 0};
  for (int i = 7; i >= 0; --i) t.push_back(static_cast<unsigned char>(link >> (8 * i)));
  return t;
}

// The slot of an empty track as formatTrack writes it: home address, record
// zero (8 zero data bytes), the end marker at 21, then zeros to the end.
Bytes formattedSlot(uint16_t cc, uint16_t hh) {
  Bytes s(kD600Slot, 0);
  s[0] = 0;                      // HA flag
  s[1] = static_cast<unsigned char>(cc >> 8);
  s[2] = static_cast<unsigned char>(cc);
  s[3] = static_cast<unsigned char>(hh >> 8);
  s[4] = static_cast<unsigned char>(hh);  // HA CC HH
  std::memcpy(&s[5], &s[1], 4);  // R0 CC HH
  s[9] = 0;                      // R
  s[10] = 0;                     // KL
  s[11] = 0;
  s[12] = 8;                     // DL 8
  std::memset(&s[21], 0xFF, 8);  // end marker
  return s;
}

class Verification : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(ckdvol_test::writeD600Volume(path, 2));
    for (unsigned int c = 0; c < 2; ++c) {
      for (unsigned int h = 0; h < kD600Heads; ++h) {
        Bytes s = emptyTrack(static_cast<uint16_t>(c), static_cast<uint16_t>(h)).slot(kD600Slot);
        ASSERT_TRUE(writeFileBytes(path, slotOffset(c, h), s.data(), s.size()));
      }
    }
    ASSERT_EQ(0, f.open(path.c_str(), false));
  }
  void TearDown() override { f.trackDirty = 0; }

  // Makes (cyl, head) current and puts `image` (then zeros) into the buffer,
  // with `trail` as trailer when given. The slot in the file is not changed.
  void load(unsigned int cyl, unsigned short head, const TrackImage& image, const Bytes& trail = {}) {
    ASSERT_EQ(0, f.readTrack(cyl, head, 0));
    image.loadInto(f);
    if (!trail.empty()) std::memcpy(f.trackBuffer + kD600Slot - 16, trail.data(), 16);
  }
  Bytes buffer() const { return Bytes(f.trackBuffer, f.trackBuffer + kD600Slot); }
  Bytes slot(unsigned int cyl, unsigned int head) const {
    return readFileBytes(path, slotOffset(cyl, head), kD600Slot);
  }
  bool forgotten() const {
    return f.currentCyl == kNone && f.currentHead == 0xFFFF && f.currentCell == 0xFFFF;
  }

  ScopedTempDir dir;
  std::string path = dir.file("vol");
  EmulatedCKDfile f;
};

TEST_F(Verification, SoundTracks) {
  load(0, 3, emptyTrack(0, 3));
  EXPECT_TRUE(f.verifyTrack(false));
  EXPECT_EQ(0, f.verifyCode);

  // Records need not carry the track's own address, only all the same one;
  // count-only records (R 0 included) are not examined.
  TrackImage rich(0, 3);
  rich.record(0, 3, 0, {}, 8)
      .record(7, 9, 1, hex("C1C2"), 20)
      .record(0, 0, 0, {}, 0)
      .record(7, 9, 2, {}, 100)
      .record(1, 1, 0, {}, 0)
      .marker();
  load(0, 3, rich);
  EXPECT_TRUE(f.verifyTrack(false));
  EXPECT_EQ(0, f.verifyCode);

  // A record ending exactly at dataLimit, followed by the marker.
  TrackImage full(1, 14);
  full.record(1, 14, 0, {}, 8);
  full.record(1, 14, 1, {}, static_cast<uint16_t>(kDataLimit - full.offset() - 8)).marker();
  ASSERT_EQ(kDataLimit + 8, full.offset());
  load(1, 14, full);
  EXPECT_TRUE(f.verifyTrack(false));
}

TEST_F(Verification, NoCurrentTrack) {
  EXPECT_FALSE(f.verifyTrack(true));  // right after open
  EXPECT_EQ(1, f.verifyCode);
  EmulatedCKDfile idle;
  EXPECT_FALSE(idle.verifyTrack(false));
  EXPECT_EQ(1, idle.verifyCode);
}

TEST_F(Verification, HomeAddressOfAnotherTrackIsReformattedOnRepair) {
  TrackImage t(0, 4);  // home address names head 4 on track (0, 5)
  t.record(0, 5, 0, {}, 8).record(0, 5, 1, {}, 30, {}, 0x44).marker();
  load(0, 5, t);
  EXPECT_FALSE(f.verifyTrack(false));
  EXPECT_EQ(2, f.verifyCode);
  EXPECT_EQ(emptyTrack(0, 5).slot(kD600Slot), slot(0, 5));  // nothing written

  f.trackDirty = 1;
  EXPECT_FALSE(f.verifyTrack(true));
  EXPECT_EQ(2, f.verifyCode);
  EXPECT_EQ(1, f.trackDirty);
  EXPECT_TRUE(forgotten());
  EXPECT_EQ(formattedSlot(0, 5), slot(0, 5));
  EXPECT_EQ(t.slot(kD600Slot), buffer());  // the buffer is not touched
  EXPECT_EQ(0, f.writeTrack());            // no current track: nothing written
  EXPECT_EQ(formattedSlot(0, 5), slot(0, 5));
  EXPECT_FALSE(f.verifyTrack(false));
  EXPECT_EQ(1, f.verifyCode);
}

TEST_F(Verification, RecordZeroNotNamingTheTrack) {
  TrackImage r1(1, 2);
  r1.record(1, 2, 1, {}, 8).marker();  // record number 1
  load(1, 2, r1);
  EXPECT_FALSE(f.verifyTrack(false));
  EXPECT_EQ(3, f.verifyCode);

  TrackImage cyl(1, 2);
  cyl.record(0, 2, 0, {}, 8).marker();  // cylinder 0
  load(1, 2, cyl);
  EXPECT_FALSE(f.verifyTrack(false));
  EXPECT_EQ(3, f.verifyCode);

  Bytes junk = hex("DEADBEEF");
  ASSERT_TRUE(writeFileBytes(path, slotOffset(1, 2) + 600, junk.data(), junk.size()));
  load(1, 2, cyl);
  EXPECT_FALSE(f.verifyTrack(true));
  EXPECT_EQ(3, f.verifyCode);
  EXPECT_TRUE(forgotten());
  EXPECT_EQ(formattedSlot(1, 2), slot(1, 2));
}

TEST_F(Verification, RecordPastDataLimitIsCutBackToRecordZero) {
  TrackImage t(0, 8);
  t.record(0, 8, 0, {}, 8, hex("0102030405060708"));
  const size_t afterR0 = t.offset();
  t.record(0, 8, 1, {}, 50, {}, 0x11);
  // One byte more than fits: ends at dataLimit + 1.
  t.record(0, 8, 2, hex("AA"), static_cast<uint16_t>(kDataLimit + 1 - t.offset() - 9), {}, 0x22);
  load(0, 8, t);
  std::memset(f.trackBuffer + kDataLimit + 1, 0x33, 7);  // junk between the limit and the trailer
  EXPECT_FALSE(f.verifyTrack(false));
  EXPECT_EQ(4, f.verifyCode);

  Bytes expect = buffer();
  std::memset(&expect[afterR0], 0, kDataLimit - afterR0);
  std::memset(&expect[afterR0], 0xFF, 8);
  EXPECT_FALSE(f.verifyTrack(true));
  EXPECT_EQ(4, f.verifyCode);
  EXPECT_EQ(expect, buffer());
  EXPECT_EQ(expect, slot(0, 8));
  EXPECT_EQ(0, f.currentCyl);  // still current
  EXPECT_TRUE(f.verifyTrack(false));
}

TEST_F(Verification, RecordZeroPastDataLimitReformatsTheTrack) {
  // Record zero: CC 0001 HH 0000 R 00 KL FF DL FFFF, far longer than the slot.
  load(1, 0, TrackImage(1, 0).raw(hex("0001 0000 00 FF FFFF")));
  EXPECT_FALSE(f.verifyTrack(false));
  EXPECT_EQ(4, f.verifyCode);
  EXPECT_FALSE(f.verifyTrack(true));
  EXPECT_EQ(4, f.verifyCode);
  EXPECT_TRUE(forgotten());
  EXPECT_EQ(formattedSlot(1, 0), slot(1, 0));
}

TEST_F(Verification, BadCountFields) {
  TrackImage first(0, 1);  // first record after R0 has R 0 and data
  first.record(0, 1, 0, {}, 8).record(0, 1, 0, {}, 10).marker();
  load(0, 1, first);
  EXPECT_FALSE(f.verifyTrack(false));
  EXPECT_EQ(105, f.verifyCode);

  TrackImage second(0, 1);  // second record on another cylinder
  second.record(0, 1, 0, {}, 8).record(0, 1, 1, {}, 10).record(1, 1, 2, {}, 10).marker();
  load(0, 1, second);
  EXPECT_FALSE(f.verifyTrack(false));
  EXPECT_EQ(205, f.verifyCode);

  TrackImage head(0, 1);  // third record on another head
  head.record(0, 1, 0, {}, 8).record(0, 1, 1, {}, 1).record(0, 1, 2, {}, 1).record(0, 2, 3, {}, 1).marker();
  load(0, 1, head);
  EXPECT_FALSE(f.verifyTrack(false));
  EXPECT_EQ(305, f.verifyCode);
}

TEST_F(Verification, BadCountRepairKeepsEarlierRecordsAndTheLink) {
  TrackImage t(0, 2);
  t.record(0, 2, 0, {}, 8).record(0, 2, 1, hex("C1"), 12, {}, 0x55);
  const size_t bad = t.offset();
  t.record(0, 3, 2, {}, 12, {}, 0x66).record(0, 2, 3, {}, 12, {}, 0x77).marker();
  load(0, 2, t, trailer(3, 0x0102030405060708ULL));

  Bytes expect = buffer();
  std::memset(&expect[bad], 0xFF, 8);
  std::memset(&expect[bad + 8], 0, kD600Slot - 8 - (bad + 8));  // trailer marker/version too
  EXPECT_FALSE(f.verifyTrack(true));
  EXPECT_EQ(205, f.verifyCode);
  EXPECT_EQ(expect, buffer());
  EXPECT_EQ(expect, slot(0, 2));
  // Link bytes kept: 0102030405060708.
  EXPECT_EQ(hex("00000000 0000 0000 0102030405060708"), Bytes(expect.end() - 16, expect.end()));
  EXPECT_TRUE(f.verifyTrack(false));
}

TEST_F(Verification, BadCountCodeWrapsModulo65536) {
  TrackImage t(1, 7);
  t.record(1, 7, 0, {}, 8);
  for (int i = 0; i < 655; ++i) t.record(1, 7, 0, {}, 0);  // count-only records pass
  t.record(1, 7, 0, {}, 1).marker();                        // record 656 is bad
  ASSERT_LT(t.offset(), kDataLimit);
  load(1, 7, t);
  EXPECT_FALSE(f.verifyTrack(false));
  EXPECT_EQ((656 * 100 + 5) % 65536, f.verifyCode);  // 69
}

TEST_F(Verification, TrailerLinkCodes) {
  const unsigned long long own = slotOffset(0, 9);
  const long long length = fileSize(path);

  load(0, 9, emptyTrack(0, 9), trailer(1, 0));
  EXPECT_FALSE(f.verifyTrack(false));
  EXPECT_EQ(10, f.verifyCode);

  // 8: the slot at the link (another track, never versioned) lacks "VER0".
  load(0, 9, emptyTrack(0, 9), trailer(1, slotOffset(1, 1)));
  EXPECT_FALSE(f.verifyTrack(false));
  EXPECT_EQ(8, f.verifyCode);

  // A copy at the end of the file that links back: sound. One that links to
  // another track: 9.
  Bytes copy = emptyTrack(0, 9).slot(kD600Slot);
  Bytes back = trailer(0, own);
  std::memcpy(&copy[kD600Slot - 16], back.data(), 16);
  ASSERT_TRUE(writeFileBytes(path, length, copy.data(), copy.size()));
  load(0, 9, emptyTrack(0, 9), trailer(1, length));
  EXPECT_TRUE(f.verifyTrack(false));
  EXPECT_EQ(0, f.verifyCode);

  Bytes elsewhere = trailer(0, slotOffset(0, 10));
  ASSERT_TRUE(writeFileBytes(path, length + kD600Slot - 16, elsewhere.data(), 16));
  EXPECT_FALSE(f.verifyTrack(false));
  EXPECT_EQ(9, f.verifyCode);

  // Link 0 in the copy: its home address decides.
  Bytes zero = trailer(0, 0);
  ASSERT_TRUE(writeFileBytes(path, length + kD600Slot - 16, zero.data(), 16));
  EXPECT_TRUE(f.verifyTrack(false));
  Bytes head10 = hex("000A");
  ASSERT_TRUE(writeFileBytes(path, length + 3, head10.data(), 2));
  EXPECT_FALSE(f.verifyTrack(false));
  EXPECT_EQ(9, f.verifyCode);

  // A committed track links to its own slot.
  Bytes self = emptyTrack(0, 9).slot(kD600Slot);
  Bytes selfTrailer = trailer(1, own);
  std::memcpy(&self[kD600Slot - 16], selfTrailer.data(), 16);
  ASSERT_TRUE(writeFileBytes(path, own, self.data(), self.size()));
  ASSERT_EQ(0, f.readTrack(0, 9, 0));
  EXPECT_TRUE(f.verifyTrack(false));
}

// A track whose cylinder no longer lies in the volume (the cylinder count was
// lowered) has no computable slot offset; its copy's home address names the
// same track, so the home computed from it fails the same way and matches.
TEST_F(Verification, UncomputableOwnOffsetIsNotExamined) {
  const long long length = fileSize(path);
  Bytes copy = emptyTrack(1, 4).slot(kD600Slot);
  Bytes linkZero = trailer(0, 0);  // home taken from the copy's home address
  std::memcpy(&copy[kD600Slot - 16], linkZero.data(), 16);
  ASSERT_TRUE(writeFileBytes(path, length, copy.data(), copy.size()));
  load(1, 4, emptyTrack(1, 4), trailer(1, length));
  f.cylinders = 1;
  EXPECT_TRUE(f.verifyTrack(false));
  EXPECT_EQ(0, f.verifyCode);
  // A copy naming a track that does lie in the volume: 9.
  Bytes head5 = hex("0000 0005");
  ASSERT_TRUE(writeFileBytes(path, length + 1, head5.data(), 4));
  EXPECT_FALSE(f.verifyTrack(false));
  EXPECT_EQ(9, f.verifyCode);
  f.cylinders = 2;
}

TEST_F(Verification, UnreadableCopyPrintsTheSlotOffset) {
  const unsigned long long own = slotOffset(1, 3);
  const std::string line = "This is it;; ofs = " + std::to_string(own) + "\n";
  for (unsigned long long link : {1ULL << 40, ~0ULL, static_cast<unsigned long long>(fileSize(path) - 100)}) {
    load(1, 3, emptyTrack(1, 3), trailer(1, link));
    testing::internal::CaptureStdout();
    EXPECT_FALSE(f.verifyTrack(false));
    EXPECT_EQ(line, testing::internal::GetCapturedStdout());
    EXPECT_EQ(7, f.verifyCode);
  }
  EXPECT_EQ(emptyTrack(1, 3).slot(kD600Slot), slot(1, 3));  // without repair nothing written
}

TEST_F(Verification, TrailerRepairsMakeTheTrackUnversioned) {
  struct Case {
    unsigned long long link;
    unsigned short code;
  } cases[] = {{0, 10}, {1ULL << 40, 7}, {slotOffset(1, 1), 8}};
  for (const Case& c : cases) {
    TrackImage t(0, 11);
    t.record(0, 11, 0, {}, 8).record(0, 11, 1, {}, 40, {}, 0x4B).marker();
    load(0, 11, t, trailer(2, c.link));
    testing::internal::CaptureStdout();
    EXPECT_FALSE(f.verifyTrack(true));
    std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(c.code, f.verifyCode);
    EXPECT_EQ(c.code == 7 ? "This is it;; ofs = " + std::to_string(slotOffset(0, 11)) + "\n" : "", out);
    EXPECT_EQ(t.slot(kD600Slot), buffer());
    EXPECT_EQ(t.slot(kD600Slot), slot(0, 11));
    EXPECT_TRUE(f.verifyTrack(false));
  }
}

TEST_F(Verification, VerifyTracksHooksIntoReadAndWriteBack) {
  TrackImage bad(1, 5);
  bad.record(1, 5, 0, {}, 8).record(1, 5, 0, {}, 3).marker();  // code 105
  Bytes s = bad.slot(kD600Slot);
  ASSERT_TRUE(writeFileBytes(path, slotOffset(1, 5), s.data(), s.size()));
  f.verifyTracks = 1;
  EXPECT_EQ(-4, f.readTrack(1, 5, 0));
  EXPECT_EQ(105, f.verifyCode);
  EXPECT_EQ(1u, f.currentCyl);
  EXPECT_EQ(5, f.currentHead);
  EXPECT_EQ(s, buffer());

  EXPECT_EQ(0, f.readTrack(1, 6, 0));
  Bytes before = slot(1, 6);
  f.trackBuffer[2] = 0x07;  // the home address now names cylinder 7
  f.trackDirty = 1;
  EXPECT_EQ(-4, f.writeTrack());
  EXPECT_EQ(2, f.verifyCode);
  EXPECT_EQ(1, f.trackDirty);
  EXPECT_EQ(before, slot(1, 6));
  EXPECT_EQ(-3, f.readTrack(0, 0, 0));  // the write-back keeps failing
  f.trackDirty = 0;
}

TEST_F(Verification, RepairOnAReadOnlyVolumeWritesNothing) {
  ASSERT_EQ(0, f.close());
  ASSERT_EQ(0, f.open(path.c_str(), true));
  TrackImage t(0, 12);
  t.record(0, 12, 0, {}, 8).record(0, 12, 0, {}, 3).marker();
  load(0, 12, t, trailer(1, 0));
  Bytes before = slot(0, 12);
  EXPECT_FALSE(f.verifyTrack(true));
  EXPECT_EQ(105, f.verifyCode);
  EXPECT_EQ(before, slot(0, 12));
  TrackImage other(0, 11);
  load(0, 12, other.record(0, 11, 0, {}, 8).marker());
  EXPECT_FALSE(f.verifyTrack(true));
  EXPECT_EQ(2, f.verifyCode);
  EXPECT_EQ(before, slot(0, 12));
}

// Damaged images of every kind: the result is one of the documented codes,
// and (under the sanitizers) nothing is read or written outside the buffers.
TEST_F(Verification, RandomDamageStaysInBounds) {
  std::mt19937 rng(12345);
  auto byte = [&] { return static_cast<unsigned char>(rng()); };
  const long long length = fileSize(path);
  for (int round = 0; round < 400; ++round) {
    const unsigned short head = static_cast<unsigned short>(round % kD600Heads);
    ASSERT_EQ(0, f.readTrack(round % 2, head, 0));
    unsigned char* b = f.trackBuffer;
    // A plausible front (so the walk is reached) with random records behind it.
    TrackImage front(static_cast<uint16_t>(round % 2), head);
    front.record(static_cast<uint16_t>(round % 2), head, 0, {}, 8);
    front.loadInto(f);
    size_t p = front.offset();
    while (p + 8 < kD600Slot - 16 && rng() % 8 != 0) {
      for (int i = 0; i < 8; ++i) b[p + i] = byte();
      if (rng() % 2) b[p + 5] = 0;           // often no key
      if (rng() % 2) b[p + 6] = 0;           // often short data
      p += 8 + b[p + 5] + ((b[p + 6] << 8) | b[p + 7]);
    }
    if (rng() % 3 == 0 && p + 8 <= kD600Slot - 16) std::memset(b + p, 0xFF, 8);
    if (rng() % 4 == 0) std::memset(b, 0xFF, 29);  // a wrecked front now and then
    for (int i = 0; i < 16; ++i) b[kD600Slot - 16 + i] = byte();
    if (rng() % 2) std::memcpy(b + kD600Slot - 16, "VER0", 4);
    if (rng() % 3 == 0) {  // a link somewhere inside the file
      unsigned long long link = rng() % static_cast<unsigned long long>(length);
      for (int i = 0; i < 8; ++i) b[kD600Slot - 8 + i] = static_cast<unsigned char>(link >> (56 - 8 * i));
    }
    const bool repair = rng() % 2 == 0;
    testing::internal::CaptureStdout();
    bool ok = f.verifyTrack(repair);
    (void)testing::internal::GetCapturedStdout();
    const unsigned short code = f.verifyCode;
    EXPECT_EQ(ok, code == 0);
    EXPECT_TRUE(code == 0 || code == 2 || code == 3 || code == 4 || code == 7 || code == 8 ||
                code == 9 || code == 10 || code >= 105)
        << code;
  }
  EXPECT_EQ(length, fileSize(path));  // repairs write only whole slots in place
}

}  // namespace
