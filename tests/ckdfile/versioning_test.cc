// Track versioning: saved copies, their trailers, the version numbers in the
// header, commit, rollback and verify, checked against bytes read back from
// the volume file and against slot images built here by hand.
#include <fcntl.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "ckdfile/emulated_ckd_file.h"
#include "ckdfile/volume_file_builder.h"
#include "support/temp_dir.h"

namespace {

using ckdvol_test::fileSize;
using ckdvol_test::kD600Heads;
using ckdvol_test::kD600Slot;
using ckdvol_test::readFileBytes;
using ckdvol_test::ScopedTempDir;
using ckdvol_test::writeFileBytes;
using Bytes = std::vector<unsigned char>;

constexpr unsigned long long slotOffset(unsigned int cyl, unsigned int head) {
  return 512ULL + (static_cast<unsigned long long>(cyl) * kD600Heads + head) * kD600Slot;
}

// An empty D600 track written by hand: home address, record zero whose eight
// data bytes are `fill`, the end-of-track marker, zeros, a zero trailer.
Bytes trackImage(unsigned int cyl, unsigned int head, unsigned char fill) {
  Bytes t(kD600Slot, 0);
  t[0] = 0;                                                       // HA flag
  t[1] = static_cast<unsigned char>(cyl >> 8);                    // HA CC
  t[2] = static_cast<unsigned char>(cyl);
  t[3] = static_cast<unsigned char>(head >> 8);                   // HA HH
  t[4] = static_cast<unsigned char>(head);
  t[5] = t[1]; t[6] = t[2]; t[7] = t[3]; t[8] = t[4];             // R0 CC HH
  t[9] = 0;                                                       // R0 R
  t[10] = 0;                                                      // R0 KL
  t[11] = 0; t[12] = 8;                                           // R0 DL 8
  std::memset(&t[13], fill, 8);                                   // R0 data
  std::memset(&t[21], 0xFF, 8);                                   // end marker
  return t;
}

// The 16 trailer bytes: "VER0", version (BE16), reserved 0, link (BE64).
Bytes trailerBytes(uint16_t version, unsigned long long link) {
  Bytes t = {'V', 'E', 'R', '0', static_cast<unsigned char>(version >> 8),
             static_cast<unsigned char>(version), 0, 0};
  for (int i = 7; i >= 0; --i) t.push_back(static_cast<unsigned char>(link >> (8 * i)));
  return t;
}

Bytes slotBytes(const std::string& path, unsigned long long offset) {
  return readFileBytes(path, offset, kD600Slot);
}
Bytes trailerAt(const std::string& path, unsigned long long slot) {
  return readFileBytes(path, slot + kD600Slot - 16, 16);
}
Bytes headerVersionBytes(const std::string& path) { return readFileBytes(path, 26, 8); }

// Changes the current track in the buffer: record zero's data becomes `fill`.
void changeCurrent(EmulatedCKDfile& f, unsigned char fill) {
  std::memset(f.trackBuffer + 13, fill, 8);
  f.trackDirty = 1;
}

// readTrack + change + writeTrack, asserting each step.
void rewrite(EmulatedCKDfile& f, unsigned int cyl, unsigned short head, unsigned char fill) {
  ASSERT_EQ(0, f.readTrack(cyl, head, 0));
  changeCurrent(f, fill);
  ASSERT_EQ(0, f.writeTrack());
}

class Versioning : public ::testing::Test {
 protected:
  static constexpr unsigned int kCylinders = 2;
  void SetUp() override { makeVolume(kCylinders); }

  // A D600 volume of `cylinders` whose every track is trackImage(c, h, h).
  void makeVolume(unsigned int cylinders) {
    cylinders_ = cylinders;
    ASSERT_TRUE(ckdvol_test::writeD600Volume(path, cylinders));
    for (unsigned int c = 0; c < cylinders; ++c) {
      for (unsigned int h = 0; h < kD600Heads; ++h) {
        Bytes t = trackImage(c, h, static_cast<unsigned char>(h));
        ASSERT_TRUE(writeFileBytes(path, slotOffset(c, h), t.data(), t.size()));
      }
    }
  }
  unsigned long long dataEnd() const { return slotOffset(cylinders_, 0); }

  // enableVersion, then close and open read-write so that it becomes active.
  void activateNextVersion(EmulatedCKDfile& f) {
    ASSERT_EQ(0, f.enableVersion());
    ASSERT_EQ(0, f.close());
    ASSERT_EQ(0, f.open(path.c_str(), false));
  }

  ScopedTempDir dir;
  std::string path = dir.file("vol");
  unsigned int cylinders_ = 0;
};

TEST_F(Versioning, EnableIsPendingUntilTheNextReadWriteOpen) {
  EmulatedCKDfile f;
  ASSERT_EQ(0, f.open(path.c_str(), false));
  EXPECT_EQ(0, f.activeVersion);
  EXPECT_EQ(0, f.enableVersion());
  EXPECT_EQ(1, f.latestVersion);
  EXPECT_EQ(0, f.activeVersion);
  // Header bytes 26..33: marker "VER0", activeVersion 0, latestVersion 1 (LE).
  EXPECT_EQ((Bytes{'V', 'E', 'R', '0', 0x00, 0x00, 0x01, 0x00}), headerVersionBytes(path));
  int version = -7, copies = -7;
  EXPECT_EQ(1, f.queryVersion(version, copies));
  EXPECT_EQ(0, version);
  EXPECT_EQ(0, copies);
  EXPECT_EQ(-5, f.enableVersion());  // already pending
  EXPECT_EQ(-6, f.disableVersion()); // nothing active yet

  // No copies while pending.
  rewrite(f, 0, 1, 0xAA);
  EXPECT_EQ(static_cast<long long>(dataEnd()), fileSize(path));

  ASSERT_EQ(0, f.close());
  ASSERT_EQ(0, f.open(path.c_str(), false));
  EXPECT_EQ(1, f.activeVersion);
  EXPECT_EQ(1, f.latestVersion);
  EXPECT_EQ((Bytes{'V', 'E', 'R', '0', 0x01, 0x00, 0x01, 0x00}), headerVersionBytes(path));
  EXPECT_EQ(0, f.queryVersion(version, copies));
  EXPECT_EQ(1, version);
  EXPECT_EQ(0, copies);
}

TEST_F(Versioning, RefusalsWithoutAFileOrReadOnly) {
  EmulatedCKDfile idle;
  int version, copies;
  EXPECT_EQ(-1, idle.enableVersion());
  EXPECT_EQ(-1, idle.disableVersion());
  EXPECT_EQ(-1, idle.clearVersionInHeader());
  EXPECT_EQ(-1, idle.queryVersion(version, copies));
  EXPECT_EQ(-1, idle.doVersion(-1, 1));
  EXPECT_EQ(0, idle.clearTrackVersion());
  EXPECT_EQ(0, idle.versionTrack(512));  // idle: activeVersion -1 makes no copies

  EmulatedCKDfile ro;
  ASSERT_EQ(0, ro.open(path.c_str(), true));
  Bytes before = readFileBytes(path, 0, 512);
  EXPECT_EQ(-2, ro.enableVersion());
  EXPECT_EQ(-2, ro.disableVersion());
  EXPECT_EQ(-2, ro.clearVersionInHeader());
  EXPECT_EQ(-2, ro.commitVersion(-1));
  EXPECT_EQ(-2, ro.rollbackVersion(-1));
  EXPECT_EQ(-2, ro.verifyVersion(-1));
  EXPECT_EQ(before, readFileBytes(path, 0, 512));
}

TEST_F(Versioning, BadHeaderMagic) {
  EmulatedCKDfile f;
  ASSERT_EQ(0, f.open(path.c_str(), false));
  ASSERT_TRUE(writeFileBytes(path, 0, "CKD_INIT", 8));
  EXPECT_EQ(-3, f.enableVersion());
  EXPECT_EQ(-3, f.clearVersionInHeader());
  ASSERT_TRUE(writeFileBytes(path, 0, "CKD_XVOL", 8));
  activateNextVersion(f);
  ASSERT_TRUE(writeFileBytes(path, 0, "CKD_INIT", 8));
  EXPECT_EQ(-3, f.disableVersion());
}

TEST_F(Versioning, FirstWriteUnderAVersionSavesTheFormerImageOnce) {
  EmulatedCKDfile f;
  ASSERT_EQ(0, f.open(path.c_str(), false));
  activateNextVersion(f);
  const unsigned long long home = slotOffset(1, 3);
  const Bytes former = slotBytes(path, home);

  rewrite(f, 1, 3, 0x5A);
  ASSERT_EQ(static_cast<long long>(dataEnd() + kD600Slot), fileSize(path));
  // The copy: the former image with trailer "VER0", version 0, link = home.
  Bytes copy = slotBytes(path, dataEnd());
  Bytes expect = former;
  Bytes t = trailerBytes(0, home);
  std::copy(t.begin(), t.end(), expect.end() - 16);
  EXPECT_EQ(expect, copy);
  // The home slot: the new image with "VER0", version 1, link = the copy.
  Bytes now = slotBytes(path, home);
  Bytes changed = trackImage(1, 3, 0x5A);
  EXPECT_TRUE(std::equal(changed.begin(), changed.end() - 16, now.begin()));
  EXPECT_EQ(trailerBytes(1, dataEnd()), trailerAt(path, home));

  // Written again under the same version: no second copy, same trailer.
  rewrite(f, 1, 3, 0x6B);
  EXPECT_EQ(static_cast<long long>(dataEnd() + kD600Slot), fileSize(path));
  EXPECT_EQ(trailerBytes(1, dataEnd()), trailerAt(path, home));
  EXPECT_EQ(0x6B, slotBytes(path, home)[13]);

  // A second track gets the next copy slot.
  rewrite(f, 0, 0, 0x11);
  EXPECT_EQ(static_cast<long long>(dataEnd() + 2 * kD600Slot), fileSize(path));
  EXPECT_EQ(trailerBytes(0, slotOffset(0, 0)), trailerAt(path, dataEnd() + kD600Slot));
  EXPECT_EQ(trailerBytes(1, dataEnd() + kD600Slot), trailerAt(path, slotOffset(0, 0)));

  int version, copies;
  EXPECT_EQ(0, f.queryVersion(version, copies));
  EXPECT_EQ(1, version);
  EXPECT_EQ(2, copies);
  EXPECT_EQ(-5, f.disableVersion());
  EXPECT_EQ(2, f.verifyVersion(-1));
}

TEST_F(Versioning, FailedCopyLeavesTheTrackDirtyAndUnwritten) {
  EmulatedCKDfile f;
  ASSERT_EQ(0, f.open(path.c_str(), false));
  activateNextVersion(f);
  ASSERT_EQ(0, f.readTrack(1, 14, 0));
  changeCurrent(f, 0x77);
  // The slot can no longer be read for its copy: the file ends before it.
  ASSERT_EQ(0, ::truncate(path.c_str(), static_cast<off_t>(slotOffset(1, 14) + 100)));
  EXPECT_EQ(-6, f.writeTrack());
  EXPECT_EQ(1, f.trackDirty);
  EXPECT_EQ(static_cast<long long>(slotOffset(1, 14) + 100), fileSize(path));
  // Trailer in the buffer untouched: still the zero trailer it was read with.
  EXPECT_EQ(Bytes(16, 0), Bytes(f.trackBuffer + kD600Slot - 16, f.trackBuffer + kD600Slot));
  f.trackDirty = 0;  // let close() go quietly
}

// The worked example: a full-size D600 volume (sparse), tracks (0, 5) and (3, 2).
class VersioningD600Example : public ::testing::Test {
 protected:
  static constexpr unsigned long long kDataEnd = 948810752ULL;  // 512 + 16695 * 56832
  static constexpr unsigned long long kHome05 = 284672;         // 512 + 5 * 56832
  static constexpr unsigned long long kHome32 = 2671616;        // 512 + 47 * 56832

  void SetUp() override {
    EmulatedCKDfile c;
    ASSERT_EQ(0, c.create(path.c_str(), EmulatedCKDfile::D600, 1113));
    ASSERT_EQ(0, c.close());
    ASSERT_EQ(0, ::truncate(path.c_str(), static_cast<off_t>(kDataEnd)));
    ASSERT_TRUE(writeFileBytes(path, 0, "CKD_XVOL", 8));
    former05 = trackImage(0, 5, 0x05);
    former32 = trackImage(3, 2, 0x32);
    ASSERT_TRUE(writeFileBytes(path, kHome05, former05.data(), former05.size()));
    ASSERT_TRUE(writeFileBytes(path, kHome32, former32.data(), former32.size()));

    ASSERT_EQ(0, f.open(path.c_str(), false));
    ASSERT_EQ(0, f.enableVersion());
    ASSERT_EQ(0, f.close());
    ASSERT_EQ(0, f.open(path.c_str(), false));
    ASSERT_EQ(1, f.activeVersion);
    rewrite(f, 0, 5, 0xE5);
    rewrite(f, 3, 2, 0xE2);
    ASSERT_EQ(0, f.writeTrack());
  }

  ScopedTempDir dir;
  std::string path = dir.file("d600");
  EmulatedCKDfile f;
  Bytes former05, former32;
};

TEST_F(VersioningD600Example, CopiesAndLinks) {
  EXPECT_EQ(static_cast<long long>(kDataEnd + 2 * kD600Slot), fileSize(path));
  Bytes copy = slotBytes(path, kDataEnd);
  EXPECT_TRUE(std::equal(former05.begin(), former05.end() - 16, copy.begin()));
  // "VER0" 0000 0000 0000000000045800
  EXPECT_EQ((Bytes{'V', 'E', 'R', '0', 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x04, 0x58, 0x00}),
            trailerAt(path, kDataEnd));
  // "VER0" 0001 0000 00000000388DB400
  EXPECT_EQ((Bytes{'V', 'E', 'R', '0', 0, 1, 0, 0, 0, 0, 0, 0, 0x38, 0x8D, 0xB4, 0x00}),
            trailerAt(path, kHome05));
  EXPECT_EQ(trailerBytes(0, kHome32), trailerAt(path, 948867584ULL));
  EXPECT_EQ(trailerBytes(1, 948867584ULL), trailerAt(path, kHome32));
  int version, copies;
  EXPECT_EQ(0, f.queryVersion(version, copies));
  EXPECT_EQ(2, copies);
  EXPECT_EQ(2, f.verifyVersion(-1));
  EXPECT_EQ(static_cast<long long>(kDataEnd + 2 * kD600Slot), fileSize(path));
}

TEST_F(VersioningD600Example, RollbackRestoresFormerImagesAndLength) {
  EXPECT_EQ(2, f.rollbackVersion(-1));
  EXPECT_EQ(static_cast<long long>(kDataEnd), fileSize(path));
  EXPECT_EQ(former05, slotBytes(path, kHome05));  // zero trailer: never versioned before
  EXPECT_EQ(former32, slotBytes(path, kHome32));
  int version, copies;
  EXPECT_EQ(0, f.queryVersion(version, copies));
  EXPECT_EQ(0, copies);
  EXPECT_EQ(0, f.disableVersion());
  EXPECT_EQ(Bytes(8, 0), headerVersionBytes(path));
  EXPECT_EQ(0, f.activeVersion);
  EXPECT_EQ(0, f.latestVersion);
}

TEST_F(VersioningD600Example, CommitKeepsNewContentsAndDropsCopies) {
  EXPECT_EQ(2, f.commitVersion(-1));
  EXPECT_EQ(static_cast<long long>(kDataEnd), fileSize(path));
  EXPECT_EQ(trackImage(0, 5, 0xE5), slotBytes(path, kHome05));
  EXPECT_EQ(trackImage(3, 2, 0xE2), slotBytes(path, kHome32));
  // The next change under the same version makes a new copy of the committed image.
  rewrite(f, 0, 5, 0xF5);
  EXPECT_EQ(static_cast<long long>(kDataEnd + kD600Slot), fileSize(path));
  Bytes copy = slotBytes(path, kDataEnd);
  EXPECT_EQ(0xE5, copy[13]);
}

TEST_F(Versioning, RollbackRestoresEveryChangedTrackExactly) {
  // 7 cylinders: 105 tracks, 100 of them changed, so commit and rollback pass
  // the periodic sync point (every 93 slots on D600).
  makeVolume(7);
  // Former images carry bytes in the free space too, which must come back.
  for (unsigned int h = 0; h < kD600Heads; ++h) {
    unsigned char junk[4] = {0xDE, 0xAD, static_cast<unsigned char>(h), 0x01};
    ASSERT_TRUE(writeFileBytes(path, slotOffset(2, h) + 4000, junk, 4));
  }
  const long long length = fileSize(path);
  std::map<unsigned long long, Bytes> before;
  for (unsigned int c = 0; c < 7; ++c)
    for (unsigned int h = 0; h < kD600Heads; ++h) before[slotOffset(c, h)] = slotBytes(path, slotOffset(c, h));

  EmulatedCKDfile f;
  ASSERT_EQ(0, f.open(path.c_str(), false));
  activateNextVersion(f);
  int changed = 0;
  for (unsigned int c = 0; c < 7 && changed < 100; ++c) {
    for (unsigned int h = 0; h < kD600Heads && changed < 100; ++h, ++changed) {
      rewrite(f, c, static_cast<unsigned short>(h), static_cast<unsigned char>(0x80 + changed));
      if (changed % 3 == 0) rewrite(f, c, static_cast<unsigned short>(h), 0xEE);  // twice
    }
  }
  EXPECT_EQ(length + 100LL * kD600Slot, fileSize(path));
  EXPECT_EQ(100, f.verifyVersion(-1));
  EXPECT_EQ(100, f.rollbackVersion(-1));
  EXPECT_EQ(length, fileSize(path));
  for (const auto& entry : before) {
    EXPECT_EQ(entry.second, slotBytes(path, entry.first)) << "slot at " << entry.first;
  }
}

TEST_F(Versioning, CommitKeepsEveryChangeAndCutsTheCopies) {
  makeVolume(7);
  const long long length = fileSize(path);
  EmulatedCKDfile f;
  ASSERT_EQ(0, f.open(path.c_str(), false));
  activateNextVersion(f);
  for (int n = 0; n < 100; ++n) rewrite(f, n / 15, static_cast<unsigned short>(n % 15), 0x40 + n);
  EXPECT_EQ(100, f.commitVersion(-1));
  EXPECT_EQ(length, fileSize(path));
  for (int n = 0; n < 105; ++n) {
    unsigned int c = n / 15, h = n % 15;
    Bytes want = trackImage(c, h, n < 100 ? static_cast<unsigned char>(0x40 + n) : static_cast<unsigned char>(h));
    EXPECT_EQ(want, slotBytes(path, slotOffset(c, h))) << "track " << c << "/" << h;
  }
  EXPECT_EQ(0, f.disableVersion());
}

TEST_F(Versioning, DoVersionTargetsAndNoOps) {
  EmulatedCKDfile f;
  ASSERT_EQ(0, f.open(path.c_str(), false));
  EXPECT_EQ(0, f.commitVersion(-1));  // versioning off: nothing, file untouched
  activateNextVersion(f);
  rewrite(f, 0, 1, 0x01);
  rewrite(f, 0, 2, 0x02);
  const long long length = fileSize(path);
  EXPECT_EQ(0, f.commitVersion(2));    // above the active version
  EXPECT_EQ(0, f.rollbackVersion(5));
  EXPECT_EQ(length, fileSize(path));
  EXPECT_EQ(0, f.verifyVersion(0));    // target 0 processes nothing
  EXPECT_EQ(0, f.commitVersion(0));    // ... and truncates to the present length
  EXPECT_EQ(length, fileSize(path));
  EXPECT_EQ(trailerBytes(1, dataEnd()), trailerAt(path, slotOffset(0, 1)));
  EXPECT_EQ(2, f.verifyVersion(1));
  EXPECT_EQ(2, f.commitVersion(1));
  EXPECT_EQ(static_cast<long long>(dataEnd()), fileSize(path));
}

TEST_F(Versioning, DoVersionFindsBrokenLinks) {
  EmulatedCKDfile f;
  ASSERT_EQ(0, f.open(path.c_str(), false));
  activateNextVersion(f);
  rewrite(f, 0, 1, 0x01);  // copy at dataEnd
  rewrite(f, 0, 2, 0x02);  // copy at dataEnd + slot: the newest
  const unsigned long long c1 = dataEnd(), c2 = dataEnd() + kD600Slot;
  const long long length = fileSize(path);

  {  // -6: the newest copy lacks "VER0".
    Bytes keep = trailerAt(path, c2);
    ASSERT_TRUE(writeFileBytes(path, c2 + kD600Slot - 16, "VERX", 4));
    EXPECT_EQ(-6, f.verifyVersion(-1));
    EXPECT_EQ(-6, f.commitVersion(-1));
    ASSERT_TRUE(writeFileBytes(path, c2 + kD600Slot - 16, keep.data(), 16));
  }
  {  // -9: the home slot links elsewhere (rewritten with another link).
    Bytes other = trailerBytes(1, 12345);
    ASSERT_TRUE(writeFileBytes(path, slotOffset(0, 2) + kD600Slot - 16, other.data(), 16));
    EXPECT_EQ(-9, f.verifyVersion(-1));
    Bytes back = trailerBytes(1, c2);
    ASSERT_TRUE(writeFileBytes(path, slotOffset(0, 2) + kD600Slot - 16, back.data(), 16));
  }
  {  // -8: the home slot lacks "VER0" (its trailer was cleared).
    ASSERT_EQ(0, f.readTrack(0, 2, 0));
    ASSERT_EQ(0, f.clearTrackVersion());
    EXPECT_EQ(Bytes(16, 0), trailerAt(path, slotOffset(0, 2)));
    EXPECT_EQ(-8, f.verifyVersion(-1));
    Bytes back = trailerBytes(1, c2);
    ASSERT_TRUE(writeFileBytes(path, slotOffset(0, 2) + kD600Slot - 16, back.data(), 16));
  }
  {  // -7: the copy's link points past the end of the file.
    Bytes far = trailerBytes(0, 1ULL << 40);
    ASSERT_TRUE(writeFileBytes(path, c2 + kD600Slot - 16, far.data(), 16));
    EXPECT_EQ(-7, f.verifyVersion(-1));
    Bytes hostile = trailerBytes(0, ~0ULL);
    ASSERT_TRUE(writeFileBytes(path, c2 + kD600Slot - 16, hostile.data(), 16));
    EXPECT_EQ(-7, f.verifyVersion(-1));
    Bytes back = trailerBytes(0, slotOffset(0, 2));
    ASSERT_TRUE(writeFileBytes(path, c2 + kD600Slot - 16, back.data(), 16));
  }
  {  // -10: the copy's home address names another track.
    unsigned char head3[2] = {0x00, 0x03};
    ASSERT_TRUE(writeFileBytes(path, c2 + 3, head3, 2));
    EXPECT_EQ(-10, f.verifyVersion(-1));
    unsigned char head2[2] = {0x00, 0x02};
    ASSERT_TRUE(writeFileBytes(path, c2 + 3, head2, 2));
  }
  {  // A zero link is resolved through the copy's home address.
    Bytes zero = trailerBytes(0, 0);
    ASSERT_TRUE(writeFileBytes(path, c2 + kD600Slot - 16, zero.data(), 16));
    EXPECT_EQ(2, f.verifyVersion(-1));
  }
  EXPECT_EQ(length, fileSize(path));  // verify changed nothing

  // An error stops the walk after the newer copy was already processed, and
  // nothing is truncated: the older copy's home links elsewhere.
  Bytes other = trailerBytes(1, 999);
  ASSERT_TRUE(writeFileBytes(path, slotOffset(0, 1) + kD600Slot - 16, other.data(), 16));
  EXPECT_EQ(-9, f.rollbackVersion(-1));
  EXPECT_EQ(length, fileSize(path));
  EXPECT_EQ(trackImage(0, 2, 2), slotBytes(path, slotOffset(0, 2)));  // rolled back already
  (void)c1;
}

TEST_F(Versioning, NestedVersionsCountOnlyCopiesOfTheActiveVersion) {
  EmulatedCKDfile f;
  ASSERT_EQ(0, f.open(path.c_str(), false));
  activateNextVersion(f);               // version 1
  rewrite(f, 0, 4, 0x41);               // c1: image of version 0
  activateNextVersion(f);               // version 2 nests over 1
  EXPECT_EQ(2, f.activeVersion);
  EXPECT_EQ((Bytes{'V', 'E', 'R', '0', 0x02, 0x00, 0x02, 0x00}), headerVersionBytes(path));
  int version, copies;
  EXPECT_EQ(0, f.queryVersion(version, copies));
  EXPECT_EQ(2, version);
  EXPECT_EQ(0, copies);                 // c1 belongs to version 1

  rewrite(f, 0, 4, 0x42);               // c2: image of version 1
  EXPECT_EQ(trailerBytes(1, slotOffset(0, 4)), trailerAt(path, dataEnd() + kD600Slot));
  EXPECT_EQ(trailerBytes(2, dataEnd() + kD600Slot), trailerAt(path, slotOffset(0, 4)));
  EXPECT_EQ(0, f.queryVersion(version, copies));
  EXPECT_EQ(1, copies);
  EXPECT_EQ(-5, f.disableVersion());

  // c1's home now links to c2: walking on from c2 meets a broken back link.
  EXPECT_EQ(-9, f.verifyVersion(-1));

  // Enabling while active: pending, and disable refuses while pending.
  EXPECT_EQ(0, f.enableVersion());
  EXPECT_EQ(3, f.latestVersion);
  EXPECT_EQ(1, f.queryVersion(version, copies));
  EXPECT_EQ(-5, f.enableVersion());
}

TEST_F(Versioning, DisableStepsDownAndClearsTheMarkerAtZero) {
  EmulatedCKDfile f;
  ASSERT_EQ(0, f.open(path.c_str(), false));
  activateNextVersion(f);
  activateNextVersion(f);
  ASSERT_EQ(2, f.activeVersion);
  EXPECT_EQ(0, f.disableVersion());
  EXPECT_EQ(1, f.activeVersion);
  EXPECT_EQ(1, f.latestVersion);
  EXPECT_EQ((Bytes{'V', 'E', 'R', '0', 0x01, 0x00, 0x01, 0x00}), headerVersionBytes(path));
  EXPECT_EQ(0, f.disableVersion());
  EXPECT_EQ(0, f.activeVersion);
  EXPECT_EQ(Bytes(8, 0), headerVersionBytes(path));
  EXPECT_EQ(-6, f.disableVersion());
  // Off again: the file opens with its size checked.
  ASSERT_EQ(0, f.close());
  EXPECT_EQ(0, f.open(path.c_str(), false));
}

TEST_F(Versioning, ClearVersionInHeaderLeavesMembersAndCopies) {
  EmulatedCKDfile f;
  ASSERT_EQ(0, f.open(path.c_str(), false));
  activateNextVersion(f);
  rewrite(f, 1, 1, 0x11);
  const long long length = fileSize(path);
  EXPECT_EQ(0, f.clearVersionInHeader());
  EXPECT_EQ(Bytes(8, 0), headerVersionBytes(path));
  EXPECT_EQ(1, f.activeVersion);
  EXPECT_EQ(1, f.latestVersion);
  EXPECT_EQ(length, fileSize(path));
  EXPECT_EQ(trailerBytes(1, dataEnd()), trailerAt(path, slotOffset(1, 1)));
}

TEST_F(Versioning, ClearTrackVersionWritesTheBufferWithAZeroTrailer) {
  EmulatedCKDfile f;
  ASSERT_EQ(0, f.open(path.c_str(), false));
  activateNextVersion(f);
  rewrite(f, 0, 7, 0x70);
  ASSERT_EQ(0, f.readTrack(0, 7, 0));
  changeCurrent(f, 0x71);  // not written back yet
  EXPECT_EQ(0, f.clearTrackVersion());
  EXPECT_EQ(1, f.trackDirty);
  EXPECT_EQ(trackImage(0, 7, 0x71), slotBytes(path, slotOffset(0, 7)));
  EXPECT_EQ(static_cast<long long>(dataEnd() + kD600Slot), fileSize(path));  // no copy
  f.trackDirty = 0;
}

// A commit that stopped part-way: its newer copies' home slots were already
// written when the process ended. What the volume then offers: every track
// still verifies, no track lost its new contents, and once the copies that
// were processed are gone (the cut the commit did not reach) the rest commits.
TEST_F(Versioning, InterruptedCommitCanBeVerifiedAndCommittedAgain) {
  EmulatedCKDfile f;
  ASSERT_EQ(0, f.open(path.c_str(), false));
  activateNextVersion(f);
  const unsigned short heads[4] = {1, 4, 9, 13};
  for (int i = 0; i < 4; ++i) rewrite(f, 1, heads[i], static_cast<unsigned char>(0xC0 + i));
  ASSERT_EQ(0, f.close());

  // The interrupted commit: the two newest copies were processed (their home
  // slots got the committed trailer, zero here), then the process stopped.
  for (int i = 2; i < 4; ++i) {
    Bytes zero(16, 0);
    ASSERT_TRUE(writeFileBytes(path, slotOffset(1, heads[i]) + kD600Slot - 16, zero.data(), 16));
  }
  ASSERT_EQ(0, f.open(path.c_str(), false));
  ASSERT_EQ(1, f.activeVersion);
  for (int i = 0; i < 4; ++i) {
    ASSERT_EQ(0, f.readTrack(1, heads[i], 0));
    EXPECT_TRUE(f.verifyTrack(false)) << "code " << f.verifyCode;
    EXPECT_EQ(0xC0 + i, f.trackBuffer[13]);
  }
  // A repeated call meets the processed copies first and stops, changing nothing.
  const long long length = fileSize(path);
  EXPECT_EQ(-8, f.verifyVersion(-1));
  EXPECT_EQ(-8, f.commitVersion(-1));
  EXPECT_EQ(length, fileSize(path));

  // With the processed copies cut off, verify and commit finish the job.
  ASSERT_EQ(0, ::truncate(path.c_str(), static_cast<off_t>(dataEnd() + 2 * kD600Slot)));
  EXPECT_EQ(2, f.verifyVersion(-1));
  EXPECT_EQ(2, f.commitVersion(-1));
  EXPECT_EQ(static_cast<long long>(dataEnd()), fileSize(path));
  for (int i = 0; i < 4; ++i) {
    EXPECT_EQ(trackImage(1, heads[i], static_cast<unsigned char>(0xC0 + i)),
              slotBytes(path, slotOffset(1, heads[i])));
  }
  EXPECT_EQ(0, f.disableVersion());
}

// The copy area cut inside a copy. The walks step back in whole slots from
// the end of the file, so after the cut they meet slots that straddle two
// copies: the count of queryVersion looks only at the version bytes (zero in
// those straddling slots, so they count as copies of version 1), while
// verify and commit stop with -6 at the first one that lacks "VER0".
TEST_F(Versioning, CopyAreaCutInsideACopy) {
  EmulatedCKDfile f;
  ASSERT_EQ(0, f.open(path.c_str(), false));
  activateNextVersion(f);
  rewrite(f, 0, 3, 0x33);  // copy at dataEnd
  rewrite(f, 0, 6, 0x66);  // copy at dataEnd + slot
  rewrite(f, 0, 9, 0x99);  // copy at dataEnd + 2 slots, cut to its first 1000 bytes
  const unsigned long long cutEnd = dataEnd() + 2 * kD600Slot + 1000;
  ASSERT_EQ(0, ::truncate(path.c_str(), static_cast<off_t>(cutEnd)));

  // Slots at cutEnd - slot and cutEnd - 2 slots: their last 16 bytes are
  // bytes 984..999 of the copies of (0, 9) and (0, 6), all zero.
  int version, copies;
  EXPECT_EQ(0, f.queryVersion(version, copies));
  EXPECT_EQ(2, copies);
  EXPECT_EQ(-6, f.verifyVersion(-1));
  EXPECT_EQ(-6, f.commitVersion(-1));
  EXPECT_EQ(static_cast<long long>(cutEnd), fileSize(path));

  // The track whose copy is gone: code 7, the line, and a cleared trailer.
  ASSERT_EQ(0, f.readTrack(0, 9, 0));
  testing::internal::CaptureStdout();
  EXPECT_FALSE(f.verifyTrack(true));
  std::string out = testing::internal::GetCapturedStdout();
  EXPECT_EQ(7, f.verifyCode);
  EXPECT_EQ("This is it;; ofs = " + std::to_string(slotOffset(0, 9)) + "\n", out);
  EXPECT_EQ(Bytes(16, 0), trailerAt(path, slotOffset(0, 9)));

  // The next copy goes at the end of the file, behind the stump.
  rewrite(f, 1, 0, 0x10);
  EXPECT_EQ(static_cast<long long>(cutEnd + kD600Slot), fileSize(path));
  EXPECT_EQ(trailerBytes(0, slotOffset(1, 0)), trailerAt(path, cutEnd));
  EXPECT_EQ(trailerBytes(1, cutEnd), trailerAt(path, slotOffset(1, 0)));

  // Commit handles that newest copy (its version 0 gives a zero trailer),
  // then meets the straddling slot: -6, and nothing is cut.
  EXPECT_EQ(-6, f.commitVersion(-1));
  EXPECT_EQ(static_cast<long long>(cutEnd + kD600Slot), fileSize(path));
  EXPECT_EQ(trackImage(1, 0, 0x10), slotBytes(path, slotOffset(1, 0)));
  // A repeated call meets the processed copy again: its home lacks "VER0".
  EXPECT_EQ(-8, f.commitVersion(-1));
}

// A file that ends short of dataEnd (the last cylinder cut off): the copy
// still goes at the end of the file, into the place of the missing slot
// (1, 0); it lies below dataEnd, so the walks do not see it.
TEST_F(Versioning, FileEndingShortOfTheCopyAreaGetsItsCopyAtTheEnd) {
  EmulatedCKDfile f;
  ASSERT_EQ(0, f.open(path.c_str(), false));
  activateNextVersion(f);
  ASSERT_EQ(0, ::truncate(path.c_str(), static_cast<off_t>(slotOffset(1, 0))));  // cylinder 1 gone
  rewrite(f, 0, 2, 0x22);
  EXPECT_EQ(static_cast<long long>(slotOffset(1, 1)), fileSize(path));
  EXPECT_EQ(trailerBytes(1, slotOffset(1, 0)), trailerAt(path, slotOffset(0, 2)));
  EXPECT_EQ(trailerBytes(0, slotOffset(0, 2)), trailerAt(path, slotOffset(1, 0)));
  EXPECT_TRUE(f.verifyTrack(false));

  int version, copies;
  EXPECT_EQ(0, f.queryVersion(version, copies));
  EXPECT_EQ(0, copies);
  EXPECT_EQ(0, f.rollbackVersion(-1));  // nothing at or above dataEnd
  EXPECT_EQ(static_cast<long long>(slotOffset(1, 1)), fileSize(path));
  EXPECT_EQ(0x22, slotBytes(path, slotOffset(0, 2))[13]);
}

TEST(VersioningD200, CopyAreaBeginsBehindAllTenCells) {
  ScopedTempDir dir;
  std::string path = dir.file("d200");
  constexpr unsigned long long kSlot = 2560;
  constexpr unsigned long long kDataEnd = 512 + 200000 * kSlot;
  {
    EmulatedCKDfile c;
    ASSERT_EQ(0, c.create(path.c_str(), EmulatedCKDfile::D200, 5));
  }
  ASSERT_EQ(0, ::truncate(path.c_str(), static_cast<off_t>(kDataEnd)));
  ASSERT_TRUE(writeFileBytes(path, 0, "CKD_XVOL", 8));
  // The last track: cell 9, cylinder 0x1309, head 0x0413.
  const unsigned long long last = 512 + 199999 * kSlot;
  unsigned char image[29] = {0, 0x13, 0x09, 0x04, 0x13,               // HA
                             0x13, 0x09, 0x04, 0x13, 0, 0, 0, 8,      // R0 count
                             1, 2, 3, 4, 5, 6, 7, 8,                  // R0 data
                             0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
  ASSERT_TRUE(writeFileBytes(path, last, image, sizeof image));

  EmulatedCKDfile f;
  ASSERT_EQ(0, f.open(path.c_str(), false));
  ASSERT_EQ(0, f.enableVersion());
  ASSERT_EQ(0, f.close());
  ASSERT_EQ(0, f.open(path.c_str(), false));
  ASSERT_EQ(0, f.readTrack(0x1309, 0x0413, 9));
  f.trackBuffer[13] = 0xAB;
  f.trackDirty = 1;
  ASSERT_EQ(0, f.writeTrack());
  EXPECT_EQ(static_cast<long long>(kDataEnd + kSlot), fileSize(path));
  EXPECT_EQ(trailerBytes(1, kDataEnd), readFileBytes(path, last + kSlot - 16, 16));
  EXPECT_EQ(1, f.rollbackVersion(-1));
  EXPECT_EQ(static_cast<long long>(kDataEnd), fileSize(path));
  EXPECT_EQ(Bytes(image, image + sizeof image), readFileBytes(path, last, sizeof image));
  EXPECT_EQ(Bytes(16, 0), readFileBytes(path, last + kSlot - 16, 16));
}

}  // namespace
