// Track verification (every verifyCode, its repair) and versioning (copies, trailers,
// header version numbers, commit, rollback, verify) against slot bytes built here.
#include <unistd.h>

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

constexpr long kLimit = kSlot - 24;

// A formatted D600 volume (every track empty, record zero's data = head), open read-write.
class Volume : public testing::Test {
 protected:
  void SetUp() override { make(2); }
  void TearDown() override { f.trackDirty = 0; }
  void make(unsigned cyls) {
    f.close();
    cyls_ = cyls;
    ASSERT_TRUE(writeD600(path, cyls) && f.open(path.c_str(), false) == 0);
  }
  void reopen() { ASSERT_TRUE(f.close() == 0 && f.open(path.c_str(), false) == 0); }
  void activate() { ASSERT_TRUE(f.enableVersion() == 0 && f.close() == 0 && f.open(path.c_str(), false) == 0); }
  // readTrack, record zero's data := fill, writeTrack.
  void rewrite(unsigned cyl, unsigned short head, unsigned char fill) {
    ASSERT_EQ(0, f.readTrack(cyl, head, 0));
    std::memset(f.trackBuffer + 13, fill, 8), f.trackDirty = 1;
    ASSERT_EQ(0, f.writeTrack());
  }
  uint64_t dataEnd() const { return slotAt(cyls_, 0); }
  Bytes slot(uint64_t at) { return readAt(path, at, kSlot); }
  Bytes trailerAt(uint64_t at) { return readAt(path, at + kSlot - 16, 16); }
  Bytes versionBytes() { return readAt(path, 26, 8); }  // "VER0", active u16 LE, latest u16 LE
  Bytes buffer() const { return Bytes(f.trackBuffer, f.trackBuffer + kSlot); }
  // Makes (cyl, head) current with `image` (and `trail`) in the buffer only.
  void load(unsigned cyl, unsigned short head, const TrackImage& image, const Bytes& trail = {}) {
    ASSERT_EQ(0, f.readTrack(cyl, head, 0));
    std::memcpy(f.trackBuffer, image.slot(kSlot, trail).data(), kSlot);
  }

  ScopedTempDir dir;
  std::string path = dir.file("v");
  unsigned cyls_ = 0;
  T f;
};

using Verify = Volume;

// The image checks, each without and with repair: the code, and what the slot and buffer hold afterwards.
TEST_F(Verify, ImageCodesAndRepairs) {
  enum After { kSound, kReformatted, kCutToR0, kMarkerAtBad };
  struct Case { const char* name; TrackImage image; unsigned short code; After after; long bad; };
  auto track = [](std::initializer_list<std::pair<uint16_t, uint16_t>> ids) {  // R0 at 0/5, then (cyl, R) with DL 10
    TrackImage t = TrackImage(0, 5).record(0, 5, 0, {}, 8);
    for (auto id : ids) t.record(id.first, 5, static_cast<uint8_t>(id.second), {}, 10, {}, 0x44);
    return t.marker();
  };
  // full: a record ending exactly at the limit, then the marker; over: one byte more; rich: records of
  // another address (all the same one), count-only records anywhere; wrap: 655 count-only records
  // pass, record 656 is bad: 65605 wraps to 69.
  const TrackImage r0 = TrackImage(0, 5).record(0, 5, 0, {}, 8), full = TrackImage(r0).record(0, 5, 1, {}, kLimit - 29).marker(),
      over = TrackImage(r0).record(0, 5, 1, {}, 50, {}, 0x11).record(0, 5, 2, hex("AA"), kLimit + 1 - 79 - 9),
      rich = TrackImage(r0).record(7, 9, 1, hex("C1C2"), 20).record(0, 0, 0, {}, 0).record(7, 9, 2, {}, 100).record(1, 1, 0, {}, 0).marker();
  TrackImage wrap = r0;
  for (int i = 0; i < 655; ++i) wrap.record(0, 5, 0, {}, 0);
  wrap.record(0, 5, 0, {}, 1).marker();
  const Case cases[] = {
      {"empty", emptyTrack(0, 5), 0, kSound, 0}, {"rich", rich, 0, kSound, 0}, {"full", full, 0, kSound, 0},
      {"HA names head 4", TrackImage(0, 4).record(0, 5, 0, {}, 8).marker(), 2, kReformatted, 0},
      {"R0 numbered 1", TrackImage(0, 5).record(0, 5, 1, {}, 8).marker(), 3, kReformatted, 0},
      {"R0 on cylinder 1", TrackImage(0, 5).record(1, 5, 0, {}, 8).marker(), 3, kReformatted, 0},
      {"R0 past the limit", TrackImage(0, 5).raw(hex("0000 0005 00 FF FFFF")), 4, kReformatted, 0},
      {"record past the limit", over, 4, kCutToR0, 0},
      {"R1 numbered 0", track({{0, 0}}), 105, kMarkerAtBad, 21},
      {"R2 on another cylinder", track({{0, 1}, {1, 2}}), 205, kMarkerAtBad, 39},
      {"R3 on another cylinder", track({{0, 1}, {0, 2}, {2, 3}}), 305, kMarkerAtBad, 57},
      {"code wraps", wrap, 69, kMarkerAtBad, 21 + 655 * 8},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    load(0, 5, c.image, trailer(3, 0x0102030405060708ULL));
    const Bytes before = buffer(), onDisk = slot(slotAt(0, 5));
    if (c.code == 0) std::memset(f.trackBuffer + kSlot - 16, 0, 16);  // a sound image goes on to the trailer
    EXPECT_TRUE(f.verifyTrack(false) == (c.code == 0) && f.verifyCode == c.code);
    EXPECT_EQ(onDisk, slot(slotAt(0, 5)));  // nothing written without repair
    if (c.code == 0) continue;
    EXPECT_EQ(before, buffer());
    f.trackDirty = 1;
    EXPECT_TRUE(!f.verifyTrack(true) && f.verifyCode == c.code);
    Bytes want = before;
    if (c.after == kReformatted) {  // the buffer is not touched, but stands for no track: nothing to write
      EXPECT_TRUE(f.currentCyl == 0xFFFFFFFFu && f.currentHead == 0xFFFF && f.currentCell == 0xFFFF && before == buffer());
      EXPECT_EQ(0, f.writeTrack());
      EXPECT_EQ(emptyTrack(0, 5).slot(kSlot), slot(slotAt(0, 5)));
      continue;
    }
    const long bad = c.after == kCutToR0 ? 21 : c.bad;  // the marker over the bad count field, then zeros
    std::fill_n(want.begin() + bad, 8, 0xFF);
    std::fill(want.begin() + bad + 8, c.after == kCutToR0 ? want.begin() + kLimit : want.end() - 8, 0);  // up to the link
    EXPECT_EQ(want, buffer());
    EXPECT_EQ(want, slot(slotAt(0, 5)));  // still current:
    if (c.after == kMarkerAtBad) { EXPECT_TRUE(f.verifyTrack(false)); }  // the link kept, the marker gone
  }
  f.close();
  ASSERT_EQ(0, f.open(path.c_str(), true));  // no current track after open; read-only: a repair writes nothing
  EXPECT_TRUE(!f.verifyTrack(true) && f.verifyCode == 1);
  load(0, 6, track({{0, 0}}), trailer(1, 0));  // HA 0/5 on track 0/6: code 2
  EXPECT_FALSE(f.verifyTrack(true));
  EXPECT_EQ(emptyTrack(0, 6, 6).slot(kSlot), slot(slotAt(0, 6)));
}

// The trailer checks: link, the copy's marker, the copy's link back (or its home address).
TEST_F(Verify, TrailerCodes) {
  const uint64_t own = slotAt(0, 9), end = fileSize(path), cut = slotAt(1, 9);  // cut: a copy inside the volume
  ASSERT_TRUE(writeAt(path, end, emptyTrack(0, 9).slot(kSlot, trailer(0, own))));  // a copy linking back
  ASSERT_TRUE(writeAt(path, cut, emptyTrack(1, 9).slot(kSlot, trailer(0, 0))));    // a copy with link 0
  struct Case { const char* name; uint64_t link; Bytes copyTrailer; unsigned short code; };
  const Case cases[] = {
      {"no link", 0, {}, 10}, {"copy lacks VER0", slotAt(1, 1), {}, 8}, {"links back", end, {}, 0},
      {"links elsewhere", end, trailer(0, slotAt(0, 10)), 9},
      {"link 0, HA 1/9 (another track)", cut, {}, 9},
      {"unreadable: past the end", 1ULL << 40, {}, 7}, {"unreadable: all ones", ~0ULL, {}, 7},
      {"unreadable: short", end + kSlot - 100, {}, 7},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    if (!c.copyTrailer.empty()) { ASSERT_TRUE(writeAt(path, end + kSlot - 16, c.copyTrailer)); }
    const TrackImage t = TrackImage(0, 9).record(0, 9, 0, {}, 8).record(0, 9, 1, {}, 40, {}, 0x4B).marker();
    for (bool repair : {false, true}) {
      load(0, 9, t, trailer(2, c.link));
      testing::internal::CaptureStdout();
      EXPECT_TRUE(f.verifyTrack(repair) == (c.code == 0) && c.code == f.verifyCode);
      EXPECT_EQ(c.code == 7 ? "This is it;; ofs = " + std::to_string(own) + "\n" : "", testing::internal::GetCapturedStdout());
      // Repair makes the track unversioned: the zero trailer, in the buffer and the slot.
      const Bytes want = t.slot(kSlot, repair && c.code != 0 ? repeat(0, 16) : trailer(2, c.link));
      EXPECT_TRUE(want == buffer() && (!repair || c.code == 0 || want == slot(own)));
    }
    ASSERT_TRUE(writeAt(path, end + kSlot - 16, trailer(0, own)));
  }
  // Link 0 in the copy: its home address decides; the own offset of a track
  // outside the volume is not computable, and neither is the home of its copy.
  ASSERT_TRUE(writeAt(path, end + kSlot - 16, trailer(0, 0)));
  load(0, 9, emptyTrack(0, 9), trailer(1, end));
  EXPECT_TRUE(f.verifyTrack(false));
  ASSERT_TRUE(writeAt(path, cut + 1, hex("0001 0004")));
  load(1, 4, emptyTrack(1, 4), trailer(1, cut));
  f.cylinders = 1;  // (1, 4) now outside
  EXPECT_TRUE(f.verifyTrack(false));
  ASSERT_TRUE(writeAt(path, cut + 1, hex("0000 0005")));  // a copy naming a track in the volume
  EXPECT_TRUE(!f.verifyTrack(false) && f.verifyCode == 9);
  f.cylinders = 2;
}

TEST_F(Verify, HooksIntoReadAndWriteBack) {
  ASSERT_TRUE(writeAt(path, slotAt(1, 5), TrackImage(1, 5).record(1, 5, 0, {}, 8).record(1, 5, 0, {}, 3).marker().bytes()));
  f.verifyTracks = 1;  // read, current, but code 105
  EXPECT_TRUE(f.readTrack(1, 5, 0) == T::kTrackVerify && f.verifyCode == 105 && f.currentCyl == 1 && f.currentHead == 5);
  ASSERT_EQ(0, f.readTrack(1, 6, 0));
  f.trackBuffer[2] = 0x07, f.trackDirty = 1;  // the home address now names cylinder 7
  EXPECT_TRUE(f.writeTrack() == T::kTrackVerify && f.verifyCode == 2);
  EXPECT_EQ(emptyTrack(1, 6, 6).slot(kSlot), slot(slotAt(1, 6)));
  EXPECT_EQ(T::kTrackWriteBack, f.readTrack(0, 0, 0));
}

using Versioning = Volume;

TEST_F(Versioning, EnableDisableAndTheHeader) {
  int version = -7, copies = -7;
  T idle, ro;  // no file: -1; read-only: -2 and the header unchanged
  ASSERT_EQ(0, ro.open(path.c_str(), true));
  EXPECT_EQ(0, f.enableVersion());
  EXPECT_EQ(hex("56455230 0000 0100"), versionBytes());  // "VER0", active 0, latest 1
  const int pending = f.queryVersion(version, copies);
  EXPECT_EQ((std::vector<int>{1, 0, 1, 0, -5, -6}), (std::vector<int>{f.latestVersion, f.activeVersion, pending, version,
                                                                      f.enableVersion(), f.disableVersion()}));
  rewrite(0, 1, 0xAA);
  EXPECT_EQ(static_cast<long long>(dataEnd()), fileSize(path));  // no copies while pending
  reopen();
  EXPECT_EQ(hex("56455230 0100 0100"), versionBytes());
  EXPECT_TRUE(f.activeVersion == 1 && f.queryVersion(version, copies) == 0 && version == 1);
  activate();
  EXPECT_EQ(hex("56455230 0200 0200"), versionBytes());
  ASSERT_TRUE(writeAt(path, 0, Bytes{'C', 'K', 'D', '_', 'I', 'N', 'I', 'T'}));  // header unreadable: -3
  EXPECT_EQ((std::vector<int>{-3, -3, -3}), (std::vector<int>{f.enableVersion(), f.clearVersionInHeader(), f.disableVersion()}));
  ASSERT_TRUE(writeAt(path, 0, Bytes{'C', 'K', 'D', '_', 'X', 'V', 'O', 'L'}));
  EXPECT_TRUE(f.disableVersion() == 0 && f.activeVersion == 1 && f.latestVersion == 1);  // steps down
  EXPECT_EQ(hex("56455230 0100 0100"), versionBytes());  // the marker stays while above 0
  EXPECT_TRUE(f.disableVersion() == 0 && versionBytes() == repeat(0, 8) && f.disableVersion() == -6);
  activate();
  rewrite(1, 1, 0x11);
  EXPECT_TRUE(f.clearVersionInHeader() == 0 && f.activeVersion == 1);  // the header only: members and copies stay
  EXPECT_EQ(cat({repeat(0, 8), trailer(1, dataEnd())}), cat({versionBytes(), trailerAt(slotAt(1, 1))}));

  const Bytes header = readAt(path, 0, 512);
  const int refusals[][2] = {
      {-1, idle.enableVersion()}, {-1, idle.disableVersion()}, {-1, idle.clearVersionInHeader()},
      {-1, idle.queryVersion(version, copies)}, {-1, idle.doVersion(-1, 1)}, {-2, ro.enableVersion()},
      {-2, ro.disableVersion()}, {-2, ro.clearVersionInHeader()}, {-2, ro.commitVersion(-1)},
      {-2, ro.rollbackVersion(-1)}, {-2, ro.verifyVersion(-1)}, {0, idle.clearTrackVersion()},
      {0, static_cast<int>(idle.versionTrack(512))},
  };
  for (const auto& r : refusals) EXPECT_EQ(r[0], r[1]) << &r - refusals;
  EXPECT_EQ(header, readAt(path, 0, 512));
}

TEST_F(Versioning, SavedCopiesAndTrailers) {
  activate();
  const uint64_t home = slotAt(1, 3);
  rewrite(1, 3, 0x5A);  // the former image saved once, at dataEnd, linking back
  EXPECT_EQ(emptyTrack(1, 3, 3).slot(kSlot, trailer(0, home)), slot(dataEnd()));
  EXPECT_EQ(emptyTrack(1, 3, 0x5A).slot(kSlot, trailer(1, dataEnd())), slot(home));
  static_assert(slotAt(2, 0) == 0x1A0600, "dataEnd of 2 cylinders");
  EXPECT_EQ(hex("56455230 0001 0000 00000000001A0600"), trailerAt(home));  // VER0, version 1, reserved, link
  rewrite(1, 3, 0x6B);  // again under the same version: no second copy
  EXPECT_TRUE(fileSize(path) == static_cast<long long>(dataEnd() + kSlot) && trailerAt(home) == trailer(1, dataEnd()));
  rewrite(0, 0, 0x11);  // the next track: the next copy slot
  EXPECT_EQ(cat({trailer(0, slotAt(0, 0)), trailer(1, dataEnd() + kSlot)}), cat({trailerAt(dataEnd() + kSlot), trailerAt(slotAt(0, 0))}));
  int version, copies;
  EXPECT_TRUE(f.queryVersion(version, copies) == 0 && copies == 2 && f.disableVersion() == -5 && f.verifyVersion(-1) == 2);

  ASSERT_EQ(0, f.readTrack(0, 7, 0));  // clearTrackVersion writes the buffer with a zero trailer
  std::memcpy(f.trackBuffer + kSlot - 16, trailer(1, 99).data(), 16), std::memset(f.trackBuffer + 13, 0x71, 8);
  EXPECT_TRUE(f.clearTrackVersion() == 0 && fileSize(path) == static_cast<long long>(dataEnd() + 2 * kSlot));
  EXPECT_EQ(emptyTrack(0, 7, 0x71).slot(kSlot), slot(slotAt(0, 7)));

  // Nested: version 2 counts only copies of version 1 images.
  activate();
  EXPECT_TRUE(f.queryVersion(version, copies) == 0 && copies == 0);
  rewrite(1, 3, 0x42);
  EXPECT_EQ(trailer(1, home), trailerAt(dataEnd() + 2 * kSlot));
  EXPECT_TRUE(f.queryVersion(version, copies) == 0 && copies == 1);
  EXPECT_EQ(-9, f.verifyVersion(-1));  // the first copy's home now links to the newer one

  // The copy cannot be made (the file ends inside the slot): -6, nothing written, still changed.
  ASSERT_EQ(0, f.readTrack(1, 14, 0));
  std::memset(f.trackBuffer + 13, 0x77, 8), f.trackDirty = 1;
  ASSERT_EQ(0, ::truncate(path.c_str(), static_cast<off_t>(slotAt(1, 14) + 100)));
  EXPECT_TRUE(f.writeTrack() == T::kTrackNoCopy && f.trackDirty == 1 && fileSize(path) == static_cast<long long>(slotAt(1, 14) + 100));
  EXPECT_EQ(repeat(0, 16), Bytes(f.trackBuffer + kSlot - 16, f.trackBuffer + kSlot));
}

// 7 cylinders, 100 of 105 tracks changed (some twice): commit and rollback
// pass the sync point (every 93 slots) and restore or keep every byte.
TEST_F(Versioning, CommitAndRollbackEveryTrack) {
  for (bool rollback : {true, false}) {
    SCOPED_TRACE(rollback ? "rollback" : "commit");
    make(7);
    std::vector<Bytes> before;
    for (unsigned t = 0; t < 105; ++t) {
      ASSERT_TRUE(writeAt(path, slotAt(0, t) + 4000, {0xDE, 0xAD, static_cast<unsigned char>(t)}));
      before.push_back(slot(slotAt(0, t)));
    }
    activate();
    for (unsigned t = 0; t < 100; ++t) {
      rewrite(t / 15, t % 15, static_cast<unsigned char>(0x80 + t));
      if (t % 3 == 0) rewrite(t / 15, t % 15, static_cast<unsigned char>(0x80 + t));
    }
    EXPECT_EQ(static_cast<long long>(dataEnd() + 100 * kSlot), fileSize(path));
    EXPECT_TRUE(f.commitVersion(2) == 0 && f.verifyVersion(0) == 0 && f.verifyVersion(-1) == 100);  // 2: above the active one
    EXPECT_TRUE((rollback ? f.rollbackVersion(-1) : f.commitVersion(1)) == 100 && fileSize(path) == static_cast<long long>(dataEnd()));
    for (unsigned t = 0; t < 105; ++t) {
      Bytes want = before[t];
      if (!rollback && t < 100) std::fill_n(want.begin() + 13, 8, 0x80 + t);
      ASSERT_EQ(want, slot(slotAt(0, t))) << t;
    }
    EXPECT_EQ(0, f.disableVersion());
  }
}

// A commit interrupted after its two newest copies: every track still
// verifies; once those copies are cut off, the rest commits.
TEST_F(Versioning, InterruptedCommitAndCutCopyArea) {
  activate();
  const unsigned short heads[4] = {1, 4, 9, 13};
  for (int i = 0; i < 4; ++i) rewrite(1, heads[i], static_cast<unsigned char>(0xC0 + i));
  for (int i = 2; i < 4; ++i) ASSERT_TRUE(writeAt(path, slotAt(1, heads[i]) + kSlot - 16, repeat(0, 16)));
  for (int i = 0; i < 4; ++i) EXPECT_TRUE(f.readTrack(1, heads[i], 0) == 0 && f.verifyTrack(false)) << f.verifyCode;
  EXPECT_EQ(-8, f.commitVersion(-1));
  ASSERT_EQ(0, ::truncate(path.c_str(), static_cast<off_t>(dataEnd() + 2 * kSlot)));
  EXPECT_TRUE(f.commitVersion(-1) == 2 && fileSize(path) == static_cast<long long>(dataEnd()));
  for (int i = 0; i < 4; ++i) EXPECT_EQ(emptyTrack(1, heads[i], 0xC0 + i).slot(kSlot), slot(slotAt(1, heads[i])));

  // The copy area cut inside a copy: the walks step back in whole slots from
  // the file's end and meet slots straddling two copies (zero trailers).
  for (unsigned short h : {3, 6, 9}) rewrite(0, h, static_cast<unsigned char>(h * 0x11));
  const uint64_t cutEnd = dataEnd() + 2 * kSlot + 1000;
  ASSERT_EQ(0, ::truncate(path.c_str(), static_cast<off_t>(cutEnd)));
  int version, copies;  // query looks only at the version bytes
  EXPECT_TRUE(f.queryVersion(version, copies) == 0 && copies == 2 && f.verifyVersion(-1) == -6);
  rewrite(1, 0, 0x10);  // the next copy goes behind the stump
  EXPECT_EQ(trailer(0, slotAt(1, 0)), trailerAt(cutEnd));
  EXPECT_TRUE(f.commitVersion(-1) == -6 && fileSize(path) == static_cast<long long>(cutEnd + kSlot));  // then a straddling slot
  EXPECT_EQ(emptyTrack(1, 0, 0x10).slot(kSlot), slot(slotAt(1, 0)));
}

}  // namespace
