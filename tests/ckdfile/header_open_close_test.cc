#include <fcntl.h>
#include <sys/stat.h>
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

TEST(Create, WritesTheHeaderByteForByte) {
  ScopedTempDir dir;
  const std::string path = dir.file("v.ckd");
  T f;
  ASSERT_EQ(T::kCreateOk, f.create(path.c_str(), T::D600, 1113));
  EXPECT_GE(f.fileDescriptor, 0);
  EXPECT_EQ(0, f.readOnly);
  EXPECT_EQ(0, f.formatLevel);  // the object keeps level 0
  EXPECT_EQ(0, f.activeVersion);
  EXPECT_EQ(0, f.latestVersion);
  EXPECT_EQ(1113u, f.cylinders);
  EXPECT_EQ(0xFFFFFFFFu, f.currentCyl);  // no current track
  ASSERT_EQ(0, f.close());

  const unsigned char expected[26] = {
      0x43, 0x4B, 0x44, 0x5F, 0x49, 0x4E, 0x49, 0x54,  // magic "CKD_INIT"
      0x0F, 0x00, 0x00, 0x00,                          // heads 15
      0x00, 0xDE, 0x00, 0x00,                          // slot size 56832
      0xAA,                                            // file code of D600
      0x03,                                            // format level 3
      0x59, 0x04, 0x00, 0x00,                          // created cylinders 1113
      0x59, 0x04, 0x00, 0x00,                          // cylinders 1113
  };
  std::vector<unsigned char> bytes = readFileBytes(path, 0, 1024);
  ASSERT_EQ(512u, bytes.size());
  EXPECT_EQ(0, std::memcmp(expected, bytes.data(), sizeof expected));
  for (size_t i = sizeof expected; i < bytes.size(); ++i) ASSERT_EQ(0, bytes[i]) << "byte " << i;
}

TEST(Create, NeverOverwritesAnExistingFile) {
  ScopedTempDir dir;
  const std::string path = dir.file("v.ckd");
  int fd = ::open(path.c_str(), O_WRONLY | O_CREAT, 0644);
  ASSERT_GE(fd, 0);
  ASSERT_EQ(5, ::write(fd, "hello", 5));
  ::close(fd);
  T f;
  EXPECT_EQ(T::kCreateIo, f.create(path.c_str(), T::D600, 10));
  EXPECT_EQ(EEXIST, errno);
  EXPECT_EQ(0u, static_cast<uint32_t>(f.deviceType));
  EXPECT_EQ(std::vector<unsigned char>({'h', 'e', 'l', 'l', 'o'}), readFileBytes(path, 0, 100));
}

TEST(Create, CylinderCounts) {
  ScopedTempDir dir;
  {
    T f;  // above 65520 on D600: rounded up to a multiple of 1113, large cylinders
    ASSERT_EQ(T::kCreateOk, f.create(dir.file("big").c_str(), T::D600, 65521));
    EXPECT_EQ(65667u, f.cylinders);
    EXPECT_EQ(1, f.cylindersRounded);
    EXPECT_EQ(1, f.largeCylinders);
    EXPECT_EQ(1, f.extendedVolume);
    f.close();
    std::vector<unsigned char> h = readFileBytes(dir.file("big"), 0, 512);
    ASSERT_EQ(512u, h.size());
    EXPECT_EQ(4, h[17]);  // level 4
    const unsigned char count[4] = {0x83, 0x00, 0x01, 0x00};  // 65667 little-endian
    EXPECT_EQ(0, std::memcmp(count, &h[18], 4));
    EXPECT_EQ(0, std::memcmp(count, &h[22], 4));
  }
  {
    T f;  // an exact multiple is not rounded
    ASSERT_EQ(T::kCreateOk, f.create(dir.file("exact").c_str(), T::D600, 1113 * 60));
    EXPECT_EQ(66780u, f.cylinders);
    EXPECT_EQ(0, f.cylindersRounded);
    EXPECT_EQ(1, f.largeCylinders);
  }
  {
    T f;  // 65520 is the largest small volume
    ASSERT_EQ(T::kCreateOk, f.create(dir.file("edge").c_str(), T::D600, 65520));
    EXPECT_EQ(65520u, f.cylinders);
    EXPECT_EQ(0, f.largeCylinders);
    EXPECT_EQ(0, f.cylindersRounded);
  }
  {
    T f;
    ASSERT_EQ(T::kCreateOk, f.create(dir.file("twice").c_str(), T::D600, -2));
    EXPECT_EQ(2226u, f.cylinders);
    EXPECT_EQ(2, f.model);
  }
  T f;
  EXPECT_EQ(T::kCreateTooLarge, f.create(dir.file("d500").c_str(), T::D500, 65521));
  EXPECT_EQ(T::kCreateTooLarge, f.create(dir.file("d100").c_str(), T::D100, -1366));  // 65568
  EXPECT_EQ(T::kCreateZeroCylinders, f.create(dir.file("zero").c_str(), T::D600, 0));
  EXPECT_EQ(T::kCreateBadType, f.create(dir.file("bad").c_str(), T::CKDtype(0xD650), 10));
  EXPECT_EQ(0u, static_cast<uint32_t>(f.deviceType));
  EXPECT_EQ(nullptr, f.trackBuffer);
  for (const char* name : {"d500", "d100", "zero", "bad"}) {
    EXPECT_EQ(-1, fileSize(dir.file(name))) << name << " must not be created";
  }
}

// A negative count times the default count is a signed 32-bit product: it
// wraps, and only a wrapped value above 65520 is refused for types other
// than D600.
TEST(Create, NegativeCountsWrapAsSigned32Bit) {
  ScopedTempDir dir;
  {
    T f;  // D100: 89478486 * 48 = 4294967328 = 2^32 + 32, so 32 cylinders
    ASSERT_EQ(T::kCreateOk, f.create(dir.file("wrap32").c_str(), T::D100, -89478486));
    EXPECT_EQ(32u, f.cylinders);
    EXPECT_EQ(1, f.model);
  }
  {
    T f;  // D300: 5315764 * 404 = 2147568656, negative as a signed 32-bit value
    ASSERT_EQ(T::kCreateOk, f.create(dir.file("negative").c_str(), T::D300, -5315764));
    EXPECT_EQ(2147568656u, f.cylinders);
    EXPECT_EQ(0, f.largeCylinders);  // only D600 has large cylinders
    f.close();
    std::vector<unsigned char> h = readFileBytes(dir.file("negative"), 0, 512);
    ASSERT_EQ(512u, h.size());
    EXPECT_EQ(3, h[17]);  // level 3
    const unsigned char count[4] = {0x10, 0x4C, 0x01, 0x80};  // 0x80014C10 little-endian
    EXPECT_EQ(0, std::memcmp(count, &h[18], 4));
    EXPECT_EQ(0, std::memcmp(count, &h[22], 4));
  }
  T f;  // D100: 1366 * 48 = 65568 does not wrap and is too large
  EXPECT_EQ(T::kCreateTooLarge, f.create(dir.file("big").c_str(), T::D100, -1366));
  EXPECT_EQ(-1, fileSize(dir.file("big")));
}

TEST(Create, ClosesWhatTheObjectHeld) {
  ScopedTempDir dir;
  T f;
  ASSERT_EQ(T::kCreateOk, f.create(dir.file("a").c_str(), T::D600, 100));
  ASSERT_EQ(T::kCreateOk, f.create(dir.file("b").c_str(), T::D300, 10));
  EXPECT_EQ(T::D300, f.deviceType);
  EXPECT_EQ(13312u, f.trackSlotSize);
}

// ---- open ---------------------------------------------------------------------

class OpenTest : public testing::Test {
 protected:
  std::string path(const char* name = "v.ckd") { return dir_.file(name); }
  // Opens and checks that a failure left the object idle with `text`.
  void expectFailure(int code, const char* text, bool readOnly = false) {
    T f;
    EXPECT_EQ(code, f.open(path().c_str(), readOnly));
    EXPECT_STREQ(text, f.errorText);
    EXPECT_EQ(0u, static_cast<uint32_t>(f.deviceType));
    EXPECT_EQ(-1, f.fileDescriptor);
    EXPECT_EQ(nullptr, f.trackBuffer);
  }
  ScopedTempDir dir_;
};

TEST_F(OpenTest, MissingFileAndDirectory) {
  T f;
  EXPECT_EQ(T::kOpenCannotOpen, f.open(path("absent").c_str(), true));
  EXPECT_EQ(ENOENT, errno);
  EXPECT_STREQ("", f.errorText);
  EXPECT_EQ(T::kOpenCannotOpen, f.open(dir_.path().c_str(), false));  // EISDIR
  EXPECT_STREQ("", f.errorText);
  // Read-only, a directory opens but its header cannot be read.
  EXPECT_EQ(T::kOpenBadHeader, f.open(dir_.path().c_str(), true));
  EXPECT_STREQ("Unable to read file", f.errorText);
}

TEST_F(OpenTest, UnreadableOrForeignHeader) {
  ASSERT_TRUE(writeVolumeFile(path(), {}, 0));  // zero-length
  expectFailure(T::kOpenBadHeader, "Unable to read file");
  ASSERT_TRUE(writeVolumeFile(path(), std::vector<unsigned char>(300, 0), 300));  // short header
  expectFailure(T::kOpenBadHeader, "Unable to read file");
  HeaderSpec s;
  s.cylinders = 1;
  s.magic = "CKD_XVOX";
  ASSERT_TRUE(writeVolumeFile(path(), headerBytes(s), volumeBytes(kD600Slot, kD600Heads, 1)));
  expectFailure(T::kOpenBadHeader, "Unable to read file");
  s.magic = "CKD_INIT";  // created but never initialised
  ASSERT_TRUE(writeVolumeFile(path(), headerBytes(s), volumeBytes(kD600Slot, kD600Heads, 1)));
  expectFailure(T::kOpenBadHeader, "Unable to read file", true);
}

TEST_F(OpenTest, FreshlyCreatedFileIsRefused) {
  T f;
  ASSERT_EQ(T::kCreateOk, f.create(path().c_str(), T::D600, 1113));
  ASSERT_EQ(0, f.close());
  EXPECT_EQ(512, fileSize(path()));
  expectFailure(T::kOpenBadHeader, "Unable to read file");
}

TEST_F(OpenTest, HeaderFieldChecks) {
  const uint64_t size = volumeBytes(kD600Slot, kD600Heads, 2);
  HeaderSpec s;
  s.cylinders = 2;
  s.formatLevel = 2;
  ASSERT_TRUE(writeVolumeFile(path(), headerBytes(s), size));
  expectFailure(T::kOpenLevel2, "Invalid file header");

  s.formatLevel = 3;
  s.deviceCode = 0xAC;
  ASSERT_TRUE(writeVolumeFile(path(), headerBytes(s), size));
  expectFailure(T::kOpenBadDevice, "Invalid CKD device type in the file");

  s.deviceCode = kD600Code;
  s.trackSize = kD600Slot + 512;
  ASSERT_TRUE(writeVolumeFile(path(), headerBytes(s), size));
  expectFailure(T::kOpenBadTrackSize, "Inconsistant device track size");

  s.trackSize = kD600Slot;
  s.formatLevel = 0;
  s.activeVersion = 1;
  s.latestVersion = 1;
  ASSERT_TRUE(writeVolumeFile(path(), headerBytes(s), size));
  expectFailure(T::kOpenCorruptVersioned, "Corrupted header on versioned file");
}

TEST_F(OpenTest, FileSizeChecks) {
  HeaderSpec s;
  s.cylinders = 2;
  const uint64_t size = volumeBytes(kD600Slot, kD600Heads, 2);
  ASSERT_TRUE(writeVolumeFile(path(), headerBytes(s), size + 1));
  expectFailure(T::kOpenBadSize, "Unable to determine file size");
  ASSERT_TRUE(writeVolumeFile(path(), headerBytes(s), size + 7 * kD600Slot));  // half a cylinder
  expectFailure(T::kOpenNotCylinders, "File size is not a track size multiple");
  s.formatLevel = 0;  // the level-0 path applies the same checks
  ASSERT_TRUE(writeVolumeFile(path(), headerBytes(s), size + 1));
  expectFailure(T::kOpenBadSize, "Unable to determine file size");
  ASSERT_TRUE(writeVolumeFile(path(), headerBytes(s), size + 7 * kD600Slot));
  expectFailure(T::kOpenNotCylinders, "File size is not a track size multiple");
}

TEST_F(OpenTest, CylinderCountFollowsTheFileSize) {
  HeaderSpec s;
  s.createdCylinders = s.cylinders = 3;
  const std::vector<unsigned char> header = headerBytes(s);
  ASSERT_TRUE(writeVolumeFile(path(), header, volumeBytes(kD600Slot, kD600Heads, 2)));
  T f;
  ASSERT_EQ(T::kOpenOk, f.open(path().c_str(), false));
  EXPECT_EQ(2u, f.cylinders);
  EXPECT_EQ(1, f.cylindersCorrected);
  EXPECT_EQ(3u, f.headerCylinders);
  EXPECT_EQ(3, f.formatLevel);
  EXPECT_EQ(0, f.activeVersion);
  EXPECT_EQ(0, f.latestVersion);
  EXPECT_STREQ("", f.errorText);
  ASSERT_EQ(0, f.close());
  EXPECT_EQ(header, readFileBytes(path(), 0, 512));  // not rewritten

  // A matching size is not a correction; other non-zero levels pass like 3.
  s.formatLevel = 7;
  ASSERT_TRUE(writeVolumeFile(path(), headerBytes(s), volumeBytes(kD600Slot, kD600Heads, 3)));
  ASSERT_EQ(T::kOpenOk, f.open(path().c_str(), true));
  EXPECT_EQ(3u, f.cylinders);
  EXPECT_EQ(0, f.cylindersCorrected);
  EXPECT_EQ(7, f.formatLevel);
  EXPECT_EQ(1, f.readOnly);
  EXPECT_EQ(T::D600, f.deviceType);
  EXPECT_EQ(1, f.model);
}

TEST_F(OpenTest, LevelZeroFileIsUpgradedOnlyWhenWritable) {
  HeaderSpec s;
  s.formatLevel = 0;
  s.cylinders = 99;  // ignored: the size decides
  const std::vector<unsigned char> header = headerBytes(s);
  ASSERT_TRUE(writeVolumeFile(path(), header, volumeBytes(kD600Slot, kD600Heads, 2)));

  T f;
  EXPECT_EQ(T::kOpenReadOnlyPending, f.open(path().c_str(), true));
  EXPECT_EQ(2u, f.cylinders);
  EXPECT_EQ(3, f.formatLevel);
  EXPECT_EQ(0, f.cylindersCorrected);
  ASSERT_EQ(0, f.close());
  EXPECT_EQ(header, readFileBytes(path(), 0, 512));

  ASSERT_EQ(T::kOpenOk, f.open(path().c_str(), false));
  EXPECT_EQ(2u, f.cylinders);
  EXPECT_EQ(3, f.formatLevel);
  ASSERT_EQ(0, f.close());
  std::vector<unsigned char> expected = header;
  expected[17] = 0x03;  // level 3
  expected[22] = 0x02;  // cylinders 2, little-endian
  expected[23] = expected[24] = expected[25] = 0x00;
  EXPECT_EQ(expected, readFileBytes(path(), 0, 512));
}

TEST_F(OpenTest, PendingVersionIsActivatedOnlyWhenWritable) {
  HeaderSpec s;
  s.cylinders = 1;
  s.versionMarker = true;
  s.activeVersion = 2;
  s.latestVersion = 3;
  const std::vector<unsigned char> header = headerBytes(s);
  // Saved copies behind the last slot: the size is not checked on versioned files.
  ASSERT_TRUE(writeVolumeFile(path(), header, volumeBytes(kD600Slot, kD600Heads, 1) + 2 * kD600Slot));

  T f;
  EXPECT_EQ(T::kOpenReadOnlyPending, f.open(path().c_str(), true));
  EXPECT_EQ(2, f.activeVersion);
  EXPECT_EQ(3, f.latestVersion);
  EXPECT_EQ(1u, f.cylinders);
  ASSERT_EQ(0, f.close());
  EXPECT_EQ(header, readFileBytes(path(), 0, 512));

  ASSERT_EQ(T::kOpenOk, f.open(path().c_str(), false));
  EXPECT_EQ(3, f.activeVersion);
  EXPECT_EQ(3, f.latestVersion);
  ASSERT_EQ(0, f.close());
  std::vector<unsigned char> expected = header;
  expected[30] = 0x03;  // active version 3
  EXPECT_EQ(expected, readFileBytes(path(), 0, 512));
}

TEST_F(OpenTest, LevelZeroWithPendingVersionUpgradesAndActivates) {
  HeaderSpec s;
  s.formatLevel = 0;
  s.latestVersion = 4;  // active 0
  ASSERT_TRUE(writeVolumeFile(path(), headerBytes(s), volumeBytes(kD600Slot, kD600Heads, 1)));
  T f;
  ASSERT_EQ(T::kOpenOk, f.open(path().c_str(), false));
  EXPECT_EQ(4, f.activeVersion);
  f.close();
  std::vector<unsigned char> h = readFileBytes(path(), 0, 512);
  ASSERT_EQ(512u, h.size());
  EXPECT_EQ(3, h[17]);  // level
  EXPECT_EQ(1, h[22]);  // cylinders
  EXPECT_EQ(4, h[30]);  // active version
}

TEST_F(OpenTest, BusyObjectKeepsItsVolume) {
  ASSERT_TRUE(writeD600Volume(path(), 2));
  ASSERT_TRUE(writeD600Volume(path("other"), 3));
  T f;
  ASSERT_EQ(T::kOpenOk, f.open(path().c_str(), false));
  const int fd = f.fileDescriptor;
  EXPECT_EQ(T::kOpenBusy, f.open(path("other").c_str(), false));
  EXPECT_STREQ("", f.errorText);
  EXPECT_EQ(fd, f.fileDescriptor);
  EXPECT_EQ(2u, f.cylinders);
  EXPECT_EQ(T::kTrackOk, f.readTrack(1, 14, 0));  // still usable

  T typed;  // a type without a file counts as held too
  ASSERT_TRUE(typed.setType(T::D300));
  EXPECT_EQ(T::kOpenBusy, typed.open(path().c_str(), false));
  EXPECT_EQ(T::D300, typed.deviceType);
}

TEST_F(OpenTest, FailureAfterSuccessClearsTheObject) {
  ASSERT_TRUE(writeD600Volume(path(), 1));
  T f;
  ASSERT_EQ(T::kOpenOk, f.open(path().c_str(), false));
  ASSERT_EQ(0, f.close());
  ASSERT_TRUE(writeVolumeFile(path("bad"), {}, 0));
  EXPECT_EQ(T::kOpenBadHeader, f.open(path("bad").c_str(), false));
  EXPECT_EQ(-1, f.activeVersion);
  ASSERT_EQ(T::kOpenOk, f.open(path().c_str(), false));
  EXPECT_STREQ("", f.errorText);  // a success leaves no old text behind
}

// ---- close --------------------------------------------------------------------

TEST(Close, IdleObjectReturnsZero) {
  T f;
  EXPECT_EQ(0, f.close());
  EXPECT_EQ(0, f.close());
}

TEST(Close, FailedWriteBackIsReportedOnStderr) {
  ScopedTempDir dir;
  const std::string path = dir.file("v.ckd");
  ASSERT_TRUE(writeD600Volume(path, 1));
  T f;
  ASSERT_EQ(T::kOpenOk, f.open(path.c_str(), true));
  ASSERT_EQ(T::kTrackOk, f.readTrack(0, 3, 0));
  f.trackBuffer[100] = 0x42;
  f.trackDirty = 1;  // as a record writer would; the descriptor is read-only
  testing::internal::CaptureStderr();
  const int rc = f.close();
  const std::string err = testing::internal::GetCapturedStderr();
  EXPECT_EQ(0, rc);  // the descriptor itself closed fine
  EXPECT_EQ("CKDFILE::close - I/O write error, RC=-1, ERRNO=" + std::to_string(EBADF) + ", VCODE=0\n", err);
  EXPECT_EQ(0u, static_cast<uint32_t>(f.deviceType));
  EXPECT_EQ(std::vector<unsigned char>(1, 0), readFileBytes(path, 512 + 3 * kD600Slot + 100, 1));
}

TEST(Close, WritesBackAChangedTrack) {
  ScopedTempDir dir;
  const std::string path = dir.file("v.ckd");
  ASSERT_TRUE(writeD600Volume(path, 1));
  T f;
  ASSERT_EQ(T::kOpenOk, f.open(path.c_str(), false));
  ASSERT_EQ(T::kTrackOk, f.readTrack(0, 3, 0));
  f.trackBuffer[100] = 0x42;
  f.trackDirty = 1;
  EXPECT_EQ(0, f.close());
  EXPECT_EQ(std::vector<unsigned char>(1, 0x42), readFileBytes(path, 512 + 3 * kD600Slot + 100, 1));
}

}  // namespace
