// create, open (refusals) and close, against volume files written here byte by byte.
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
#include "support/temp_dir.h"
#include "support/track_builder.h"

namespace {

using T = EmulatedCKDfile;
using namespace ckdvol_test;

TEST(Create, HeaderBytesCylinderCountsAndRefusals) {
  ScopedTempDir dir;
  struct Case { const char* name; uint32_t type; int count; int rc; unsigned cyls; unsigned char rounded, large; const char* bytes; };
  const Case cases[] = {
      {"d600", 0xD600, 1113, 0, 1113, 0, 0,  // magic "CKD_INIT", 15 heads, slot 56832, code AA, level 3, cylinders
       "434B445F494E4954 0F000000 00DE0000 AA 03 59040000 59040000"},  // created and now: 1113
      {"one", 0xD600, 1, 0, 1, 0, 0, nullptr}, {"edge", 0xD600, 65520, 0, 65520, 0, 0, nullptr},
      {"big", 0xD600, 65521, 0, 65667, 1, 1, "0F000000 00DE0000 AA 04 83000100 83000100"},  // level 4
      {"exact", 0xD600, 66780, 0, 66780, 0, 1, nullptr},  // a multiple of 1113 is not rounded
      {"twice", 0xD600, -2, 0, 2226, 0, 0, nullptr},      // -N: N times the default count
      {"wrap", 0xD100, -89478486, 0, 32, 0, 0, nullptr},  // 89478486 * 48 = 2^32 + 32
      {"neg", 0xD300, -5315764, 0, 2147568656u, 0, 0,     // the product is negative as int32
       "13000000 00340000 A5 03 104C0180 104C0180"},
      {"toolarge", 0xD500, 65521, T::kCreateTooLarge, 0, 0, 0, nullptr},
      {"toolarge2", 0xD100, -1366, T::kCreateTooLarge, 0, 0, 0, nullptr},  // 65568
      {"zero", 0xD600, 0, T::kCreateZeroCylinders, 0, 0, 0, nullptr}, {"bad", 0xD650, 10, T::kCreateBadType, 0, 0, 0, nullptr},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    T f;
    ASSERT_EQ(c.rc, f.create(dir.file(c.name).c_str(), T::CKDtype(c.type), c.count));
    EXPECT_EQ((std::vector<unsigned>{c.cyls, c.rounded, c.large}), (std::vector<unsigned>{f.cylinders, f.cylindersRounded, f.largeCylinders}));
    if (c.rc != 0) {
      EXPECT_TRUE(fileSize(dir.file(c.name)) == -1 && f.trackBuffer == nullptr);
      continue;
    }
    EXPECT_TRUE(f.currentCyl == 0xFFFFFFFFu && f.activeVersion == 0 && f.close() == 0);
    const Bytes want = hex(c.bytes == nullptr ? "" : c.bytes), h = readAt(dir.file(c.name), 0, 1024);
    ASSERT_EQ(512u, h.size());
    if (c.bytes != nullptr) { EXPECT_EQ(want, Bytes(h.begin() + 26 - want.size(), h.begin() + 26)); }
    EXPECT_EQ(repeat(0, 486), Bytes(h.begin() + 26, h.end()));
  }
  T f;  // an existing file is never overwritten
  ASSERT_EQ(0, ::close(::open(dir.file("old").c_str(), O_CREAT | O_WRONLY, 0644)));
  EXPECT_EQ(T::kCreateIo, f.create(dir.file("old").c_str(), T::D600, 10));
  EXPECT_TRUE(errno == EEXIST && fileSize(dir.file("old")) == 0);
  ASSERT_EQ(0, f.create(dir.file("a").c_str(), T::D600, 10));  // create closes what the object held
  ASSERT_EQ(0, f.create(dir.file("b").c_str(), T::D300, 10));
  EXPECT_EQ(13312u, f.trackSlotSize);
}

// Every open failure: the code, errorText, and an idle object afterwards.
TEST(Open, RefusedFiles) {
  ScopedTempDir dir;
  const std::string path = dir.file("v");
  struct Case { const char* name; Header h; uint64_t extra; int headerBytes; bool ro; int rc; const char* text; };
  auto with = [](void (*edit)(Header&)) { Header h; h.cyls = 2; edit(h); return h; };
  const Case cases[] = {
      {"empty", Header(), 0, 0, false, T::kOpenBadHeader, "Unable to read file"},
      {"short", Header(), 0, 300, false, T::kOpenBadHeader, "Unable to read file"},
      {"magic", with([](Header& h) { h.magic = "CKD_XVOX"; }), 0, 512, false, T::kOpenBadHeader, "Unable to read file"},
      {"init", with([](Header& h) { h.magic = "CKD_INIT"; }), 0, 512, true, T::kOpenBadHeader, "Unable to read file"},
      {"level2", with([](Header& h) { h.level = 2; }), 0, 512, false, T::kOpenLevel2, "Invalid file header"},
      {"code", with([](Header& h) { h.code = 0xAC; }), 0, 512, false, T::kOpenBadDevice, "Invalid CKD device type in the file"},
      {"slot", with([](Header& h) { h.trackSize += 512; }), 0, 512, false, T::kOpenBadTrackSize, "Inconsistant device track size"},
      {"level0active", with([](Header& h) { h.level = 0, h.active = h.latest = 1; }), 0, 512, false,
       T::kOpenCorruptVersioned, "Corrupted header on versioned file"},
      {"size", with([](Header&) {}), 1, 512, false, T::kOpenBadSize, "Unable to determine file size"},
      {"halfcyl", with([](Header&) {}), 7 * kSlot, 512, false, T::kOpenNotCylinders, "File size is not a track size multiple"},
      {"level0size", with([](Header& h) { h.level = 0; }), 1, 512, false, T::kOpenBadSize, "Unable to determine file size"},
      {"level0halfcyl", with([](Header& h) { h.level = 0; }), 7 * kSlot, 512, false, T::kOpenNotCylinders,
       "File size is not a track size multiple"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const Bytes header = c.h.bytes();
    const uint64_t size = c.headerBytes < 512 ? c.headerBytes : slotAt(2, 0) + c.extra;
    ASSERT_TRUE(writeVolume(path, Bytes(header.begin(), header.begin() + c.headerBytes), size));
    T f;
    EXPECT_EQ(c.rc, f.open(path.c_str(), c.ro));
    EXPECT_STREQ(c.text, f.errorText);
    EXPECT_TRUE(f.deviceType == 0 && f.fileDescriptor == -1 && f.trackBuffer == nullptr && f.activeVersion == -1);
  }
  T f;
  EXPECT_TRUE(f.open(dir.file("absent").c_str(), true) == T::kOpenCannotOpen && errno == ENOENT);
  EXPECT_TRUE(f.open(dir.path().c_str(), false) == T::kOpenCannotOpen && f.errorText[0] == '\0');  // a directory
  EXPECT_EQ(T::kOpenBadHeader, f.open(dir.path().c_str(), true));
  // A level-0 file whose upgraded header cannot be written (a file size limit below 512): -9.
  ASSERT_TRUE(writeVolume(path, with([](Header& h) { h.level = 0; }).bytes(), slotAt(2, 0)));
  struct rlimit saved, capped;
  struct sigaction ignore = {}, old = {};
  ignore.sa_handler = SIG_IGN;
  ASSERT_EQ(0, ::getrlimit(RLIMIT_FSIZE, &saved) + ::sigaction(SIGXFSZ, &ignore, &old));
  capped = saved, capped.rlim_cur = 100;
  ASSERT_EQ(0, ::setrlimit(RLIMIT_FSIZE, &capped));
  const int rc = f.open(path.c_str(), false);
  ::setrlimit(RLIMIT_FSIZE, &saved), ::sigaction(SIGXFSZ, &old, nullptr);
  EXPECT_EQ(T::kOpenHeaderWrite, rc);
  EXPECT_STREQ("I/O error updating file header", f.errorText);
  ASSERT_TRUE(f.create(dir.file("new").c_str(), T::D600, 1) == 0 && f.close() == 0);  // created, never initialised
  EXPECT_EQ(T::kOpenBadHeader, f.open(dir.file("new").c_str(), false));
}

}  // namespace
