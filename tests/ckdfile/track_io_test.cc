#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "ckdfile/emulated_ckd_file.h"
#include "ckdfile/volume_file_builder.h"
#include "support/temp_dir.h"

namespace {

using T = EmulatedCKDfile;
using namespace ckdvol_test;

uint64_t slotOffset(unsigned int cyl, unsigned int head) {
  return 512 + (static_cast<uint64_t>(cyl) * kD600Heads + head) * kD600Slot;
}

// A 2-cylinder D600 volume whose every slot starts with a distinct byte
// pattern (its track number), opened read-write.
class TrackIoTest : public testing::Test {
 protected:
  void SetUp() override {
    path_ = dir_.file("v.ckd");
    ASSERT_TRUE(writeD600Volume(path_, 2));
    for (unsigned int t = 0; t < 2 * kD600Heads; ++t) {
      const unsigned char mark[4] = {0xAB, static_cast<unsigned char>(t), 0xCD, 0xEF};
      ASSERT_TRUE(writeFileBytes(path_, 512 + t * kD600Slot, mark, 4));
    }
    ASSERT_EQ(T::kOpenOk, f.open(path_.c_str(), false));
  }
  std::vector<unsigned char> slot(unsigned int cyl, unsigned int head) {
    return readFileBytes(path_, slotOffset(cyl, head), kD600Slot);
  }
  bool isCurrent(unsigned int cyl, unsigned short head) {
    return f.currentCyl == cyl && f.currentHead == head && f.currentCell == 0;
  }
  bool noCurrentTrack() { return f.currentCyl == 0xFFFFFFFFu && f.currentHead == 0xFFFF && f.currentCell == 0xFFFF; }

  ScopedTempDir dir_;
  std::string path_;
  T f;
};

TEST_F(TrackIoTest, ReadTrackLoadsTheSlot) {
  EXPECT_TRUE(noCurrentTrack());
  EXPECT_EQ(T::kTrackOk, f.writeTrack());  // nothing to write after open
  ASSERT_EQ(T::kTrackOk, f.readTrack(1, 2, 0));
  EXPECT_TRUE(isCurrent(1, 2));
  EXPECT_EQ(slotOffset(1, 2), f.lastReadOffset);
  EXPECT_EQ(0xAB, f.trackBuffer[0]);
  EXPECT_EQ(17, f.trackBuffer[1]);
  EXPECT_EQ(0, f.trackDirty);
  EXPECT_EQ(0, std::memcmp(slot(1, 2).data(), f.trackBuffer, kD600Slot));
}

TEST_F(TrackIoTest, ReadOfTheCurrentTrackRereadsTheFile) {
  ASSERT_EQ(T::kTrackOk, f.readTrack(0, 1, 0));
  const unsigned char changed = 0x77;
  ASSERT_TRUE(writeFileBytes(path_, slotOffset(0, 1) + 9, &changed, 1));
  ASSERT_EQ(T::kTrackOk, f.readTrack(0, 1, 0));
  EXPECT_EQ(0x77, f.trackBuffer[9]);
}

TEST_F(TrackIoTest, OutOfRangeKeepsTheCurrentTrack) {
  ASSERT_EQ(T::kTrackOk, f.readTrack(0, 5, 0));
  EXPECT_EQ(T::kTrackRange, f.readTrack(2, 0, 0));  // cylinders == 2
  EXPECT_EQ(T::kTrackRange, f.readTrack(0, 15, 0));
  EXPECT_EQ(T::kTrackRange, f.readTrack(0, 0, 1));
  EXPECT_TRUE(isCurrent(0, 5));
  EXPECT_EQ(5, f.trackBuffer[1]);
  EXPECT_EQ(slotOffset(0, 5), f.lastReadOffset);  // no I/O was attempted
}

TEST_F(TrackIoTest, ChangedTrackIsWrittenBackBeforeTheNextRead) {
  ASSERT_EQ(T::kTrackOk, f.readTrack(0, 3, 0));
  f.trackBuffer[200] = 0x99;
  f.trackDirty = 1;
  ASSERT_EQ(T::kTrackOk, f.readTrack(1, 0, 0));
  EXPECT_EQ(0, f.trackDirty);
  EXPECT_TRUE(isCurrent(1, 0));
  EXPECT_EQ(15, f.trackBuffer[1]);
  std::vector<unsigned char> a = slot(0, 3);
  EXPECT_EQ(3, a[1]);
  EXPECT_EQ(0x99, a[200]);
  EXPECT_EQ(0, slot(1, 0)[200]);
  // Zero trailer: no versioning, so no stamp.
  EXPECT_EQ(std::vector<unsigned char>(16, 0), std::vector<unsigned char>(a.end() - 16, a.end()));
}

TEST_F(TrackIoTest, WriteTrackWritesOnlyAChangedTrack) {
  ASSERT_EQ(T::kTrackOk, f.readTrack(0, 4, 0));
  f.trackBuffer[300] = 0x11;  // changed in memory, but not marked
  EXPECT_EQ(T::kTrackOk, f.writeTrack());
  EXPECT_EQ(0, slot(0, 4)[300]);
  f.trackDirty = 1;
  EXPECT_EQ(T::kTrackOk, f.writeTrack());
  EXPECT_EQ(0, f.trackDirty);
  EXPECT_EQ(0x11, slot(0, 4)[300]);
  EXPECT_TRUE(isCurrent(0, 4));
}

// The write-back has the codes 0, -4, -1 and -2 only: a current track that
// the caller's smaller cylinder count puts outside the volume cannot be
// positioned at (-2), and nothing is written.
TEST_F(TrackIoTest, WriteBackOfATrackOutsideTheVolumeIsAPositioningFailure) {
  ASSERT_EQ(T::kTrackOk, f.readTrack(1, 6, 0));
  f.trackBuffer[400] = 0x3C;
  f.trackDirty = 1;
  f.setCylinders(1);
  EXPECT_EQ(T::kTrackSeek, f.writeTrack());
  EXPECT_EQ(1, f.trackDirty);
  EXPECT_TRUE(isCurrent(1, 6));
  EXPECT_EQ(0, slot(1, 6)[400]);
  EXPECT_EQ(T::kTrackWriteBack, f.readTrack(0, 0, 0));
  f.trackDirty = 0;  // let close() go quietly
}

TEST_F(TrackIoTest, ShortFileGivesMinusOneAndForgetsTheTrack) {
  ASSERT_EQ(T::kTrackOk, f.readTrack(0, 2, 0));
  f.trackBuffer[50] = 0x5E;
  f.trackDirty = 1;
  // The file loses its second cylinder under the open volume.
  ASSERT_EQ(0, ::truncate(path_.c_str(), static_cast<off_t>(slotOffset(1, 0) + 1000)));
  EXPECT_EQ(T::kTrackShort, f.readTrack(1, 0, 0));
  EXPECT_EQ(0x5E, slot(0, 2)[50]);  // the changed track was written first
  EXPECT_EQ(slotOffset(1, 0), f.lastReadOffset);
  EXPECT_TRUE(noCurrentTrack());
  // The buffer now holds part of slot (1, 0): it must never land on (0, 2).
  f.trackBuffer[60] = 0x6F;
  f.trackDirty = 1;
  EXPECT_EQ(T::kTrackOk, f.writeTrack());
  EXPECT_EQ(0, slot(0, 2)[60]);
  EXPECT_EQ(2, slot(0, 2)[1]);
  EXPECT_EQ(0, f.close());  // and close has nothing to write either
  EXPECT_EQ(0, slot(0, 2)[60]);
}

TEST_F(TrackIoTest, FailedWriteBackKeepsTheTrackChanged) {
  T ro;
  ASSERT_EQ(T::kOpenOk, ro.open(path_.c_str(), true));
  ASSERT_EQ(T::kTrackOk, ro.readTrack(0, 6, 0));
  ro.trackBuffer[70] = 0x70;
  ro.trackDirty = 1;
  EXPECT_EQ(T::kTrackShort, ro.writeTrack());  // EBADF on a read-only descriptor
  EXPECT_EQ(EBADF, errno);
  EXPECT_EQ(T::kTrackWriteBack, ro.readTrack(1, 1, 0));
  EXPECT_EQ(T::kTrackWriteBack, ro.readTrack(1, 1, 0));  // retried, fails again
  EXPECT_EQ(1, ro.trackDirty);
  EXPECT_EQ(0x70, ro.trackBuffer[70]);
  EXPECT_EQ(6, ro.trackBuffer[1]);
  EXPECT_EQ(ro.currentCyl, 0u);
  EXPECT_EQ(ro.currentHead, 6);
  testing::internal::CaptureStderr();
  ro.close();
  EXPECT_NE(std::string::npos, testing::internal::GetCapturedStderr().find("I/O write error"));
  EXPECT_EQ(0, slot(0, 6)[70]);
}

TEST_F(TrackIoTest, RawTransfers) {
  std::vector<unsigned char> buf(kD600Slot, 0x3C);
  EXPECT_EQ(T::kTrackOk, f.writeRawTrack(slotOffset(1, 14), buf.data()));
  EXPECT_EQ(buf, slot(1, 14));
  EXPECT_TRUE(noCurrentTrack());
  EXPECT_EQ(0u, f.lastReadOffset);  // writes do not record an offset

  // Past the end: a write extends the file, a read comes up short.
  const uint64_t end = slotOffset(2, 0);
  EXPECT_EQ(T::kTrackShort, f.readRawTrack(end, buf.data()));
  EXPECT_EQ(end, f.lastReadOffset);
  EXPECT_EQ(T::kTrackOk, f.writeRawTrack(end, buf.data()));
  EXPECT_EQ(static_cast<long long>(end + kD600Slot), fileSize(path_));
  std::vector<unsigned char> back(kD600Slot, 0);
  EXPECT_EQ(T::kTrackOk, f.readRawTrack(end, back.data()));
  EXPECT_EQ(buf, back);
  // An offset the system cannot position at.
  EXPECT_EQ(T::kTrackSeek, f.readRawTrack(0x8000000000000000ull, back.data()));
  EXPECT_EQ(T::kTrackSeek, f.writeRawTrack(0x8000000000000000ull, back.data()));
  // All ones: lseek's own failure value -1 must not pass for a position.
  EXPECT_EQ(T::kTrackSeek, f.readRawTrack(~0ull, back.data()));
  EXPECT_EQ(T::kTrackSeek, f.writeRawTrack(~0ull, back.data()));
}

TEST(TrackIo, NoFileGivesOutOfRange) {
  T f;
  EXPECT_EQ(T::kTrackRange, f.readTrack(0, 0, 0));
  EXPECT_EQ(T::kTrackOk, f.writeTrack());
  ASSERT_TRUE(f.setType(T::D600));
  EXPECT_EQ(T::kTrackRange, f.readTrack(0, 0, 0));
}

// With versioning in effect, a write-back whose former image cannot be saved
// writes nothing and leaves the track changed. The saved copy goes behind the
// last slot, so a file size limit at the current size makes it impossible
// while the slot itself can still be rewritten in place.
TEST(TrackIo, WriteBackWithoutSavedCopyFails) {
  ScopedTempDir dir;
  const std::string path = dir.file("v.ckd");
  HeaderSpec s;
  s.cylinders = s.createdCylinders = 1;
  s.versionMarker = true;
  s.activeVersion = s.latestVersion = 1;
  const uint64_t size = volumeBytes(kD600Slot, kD600Heads, 1);
  ASSERT_TRUE(writeVolumeFile(path, headerBytes(s), size));
  T f;
  ASSERT_EQ(T::kOpenOk, f.open(path.c_str(), false));
  ASSERT_EQ(1, f.activeVersion);
  ASSERT_EQ(T::kTrackOk, f.readTrack(0, 7, 0));
  f.trackBuffer[10] = 0x10;
  f.trackDirty = 1;

  struct rlimit saved;
  ASSERT_EQ(0, ::getrlimit(RLIMIT_FSIZE, &saved));
  struct sigaction ignore = {}, old = {};
  ignore.sa_handler = SIG_IGN;
  ASSERT_EQ(0, ::sigaction(SIGXFSZ, &ignore, &old));
  struct rlimit capped = saved;
  capped.rlim_cur = size;
  ASSERT_EQ(0, ::setrlimit(RLIMIT_FSIZE, &capped));
  const int rc = f.writeTrack();
  const unsigned char dirty = f.trackDirty;
  ::setrlimit(RLIMIT_FSIZE, &saved);
  ::sigaction(SIGXFSZ, &old, nullptr);

  EXPECT_EQ(T::kTrackNoCopy, rc);
  EXPECT_EQ(1, dirty);
  std::vector<unsigned char> onDisk = readFileBytes(path, slotOffset(0, 7), kD600Slot);
  EXPECT_EQ(std::vector<unsigned char>(kD600Slot, 0), onDisk);  // nothing written, trailer untouched
  EXPECT_EQ(0, f.trackBuffer[kD600Slot - 16]);                  // no stamp in memory either
  EXPECT_EQ(static_cast<long long>(size), fileSize(path));
  f.trackDirty = 0;  // drop the change; close would otherwise write it
}

// With versioning in effect the written slot's trailer links it to the saved
// copy of its former image; a second write in the same version makes no copy.
TEST(TrackIo, WriteBackStampsTheTrailer) {
  ScopedTempDir dir;
  const std::string path = dir.file("v.ckd");
  HeaderSpec s;
  s.cylinders = s.createdCylinders = 1;
  s.versionMarker = true;
  s.activeVersion = s.latestVersion = 1;
  const uint64_t size = volumeBytes(kD600Slot, kD600Heads, 1);
  ASSERT_TRUE(writeVolumeFile(path, headerBytes(s), size));
  T f;
  ASSERT_EQ(T::kOpenOk, f.open(path.c_str(), false));
  ASSERT_EQ(T::kTrackOk, f.readTrack(0, 7, 0));
  f.trackBuffer[10] = 0x10;
  f.trackDirty = 1;
  ASSERT_EQ(T::kTrackOk, f.writeTrack());
  EXPECT_EQ(static_cast<long long>(size + kD600Slot), fileSize(path));  // one saved copy

  const unsigned char trailer[16] = {
      'V', 'E', 'R', '0',                                // marker
      0x00, 0x01,                                        // version 1
      0x00, 0x00,                                        // reserved
      0x00, 0x00, 0x00, 0x00, 0x00, 0x0D, 0x04, 0x00,    // link: the copy at 512 + 15 slots
  };
  static_assert(512 + 15 * 56832 == 0x0D0400, "copy offset");
  std::vector<unsigned char> onDisk = readFileBytes(path, slotOffset(0, 7), kD600Slot);
  ASSERT_EQ(kD600Slot, onDisk.size());
  EXPECT_EQ(0x10, onDisk[10]);
  EXPECT_EQ(0, std::memcmp(trailer, onDisk.data() + kD600Slot - 16, 16));

  f.trackBuffer[11] = 0x11;
  f.trackDirty = 1;
  ASSERT_EQ(T::kTrackOk, f.writeTrack());
  EXPECT_EQ(static_cast<long long>(size + kD600Slot), fileSize(path));  // no second copy
  onDisk = readFileBytes(path, slotOffset(0, 7), kD600Slot);
  EXPECT_EQ(0x11, onDisk[11]);
  EXPECT_EQ(0, std::memcmp(trailer, onDisk.data() + kD600Slot - 16, 16));
}

}  // namespace
