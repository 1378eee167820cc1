// create, open, close and the track I/O, against volume files written here byte by byte.
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

// Accepted headers: the cylinder count, the version numbers and what is
// written back to the header (a read-only open writes nothing and returns 1).
TEST(Open, AcceptedHeadersAndTheirUpdates) {
  ScopedTempDir dir;
  const std::string path = dir.file("v");
  struct Case {
    const char* name; Header h; unsigned fileCyls; uint64_t extra; bool ro;
    int rc; unsigned cyls; unsigned char corrected; int active, latest;
    const char* after;  // header bytes 17..33 once closed (level, created, cylinders, marker, active, latest)
  };
  auto with = [](void (*edit)(Header&)) { Header h; edit(h); return h; };
  const Case cases[] = {
      {"corrected", with([](Header& h) { h.created = h.cyls = 3; }), 2, 0, false, 0, 2, 1, 0, 0, nullptr},
      {"level7", with([](Header& h) { h.cyls = 3, h.level = 7; }), 3, 0, true, 0, 3, 0, 0, 0, nullptr},
      {"level0ro", with([](Header& h) { h.level = 0, h.cyls = 99; }), 2, 0, true, 1, 2, 0, 0, 0, nullptr},
      {"level0", with([](Header& h) { h.level = 0, h.cyls = 99; }), 2, 0, false, 0, 2, 0, 0, 0,
       "03 00000000 02000000 00000000 0000 0000"},
      {"pendingro", with([](Header& h) { h.cyls = 1, h.marker = true, h.active = 2, h.latest = 3; }), 1, 2 * kSlot,
       true, 1, 1, 0, 2, 3, nullptr},  // saved copies behind the slots: the size is not checked
      {"pending", with([](Header& h) { h.cyls = 1, h.marker = true, h.active = 2, h.latest = 3; }), 1, 2 * kSlot,
       false, 0, 1, 0, 3, 3, "03 00000000 01000000 56455230 0300 0300"},
      {"level0pending", with([](Header& h) { h.level = 0, h.latest = 4; }), 1, 0, false, 0, 1, 0, 4, 4,
       "03 00000000 01000000 00000000 0400 0400"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const Bytes header = c.h.bytes();
    ASSERT_TRUE(writeVolume(path, header, slotAt(c.fileCyls, 0) + c.extra));
    T f;
    ASSERT_EQ(c.rc, f.open(path.c_str(), c.ro));
    EXPECT_EQ((std::vector<int>{int(c.cyls), c.corrected, c.corrected ? 3 : 0, c.active, c.latest, c.h.level == 0 ? 3 : c.h.level, c.ro, 0}),
              (std::vector<int>{int(f.cylinders), f.cylindersCorrected, int(f.headerCylinders), f.activeVersion, f.latestVersion,
                                f.formatLevel, f.readOnly != 0, f.errorText[0]}));
    ASSERT_EQ(0, f.close());
    const Bytes after = hex(c.after == nullptr ? "" : c.after);
    EXPECT_EQ(cat({Bytes(header.begin(), header.begin() + 17), after, Bytes(header.begin() + 17 + after.size(), header.end())}),
              readAt(path, 0, 512));
  }
}

TEST(Open, BusyObjectKeepsItsVolumeAndCloseWritesBack) {
  ScopedTempDir dir;
  ASSERT_TRUE(writeD600(dir.file("v"), 1));
  T f;
  ASSERT_EQ(0, f.open(dir.file("v").c_str(), false));
  EXPECT_TRUE(f.open(dir.file("v").c_str(), false) == T::kOpenBusy && f.cylinders == 1);
  T typed;  // a type without a file counts as held too
  ASSERT_TRUE(typed.setType(T::D300));
  EXPECT_TRUE(typed.open(dir.file("v").c_str(), false) == T::kOpenBusy && typed.deviceType == T::D300);

  ASSERT_EQ(0, f.readTrack(0, 3, 0));
  f.trackBuffer[100] = 0x42, f.trackDirty = 1;
  EXPECT_TRUE(f.close() == 0 && f.close() == 0);
  EXPECT_EQ(Bytes{0x42}, readAt(dir.file("v"), slotAt(0, 3) + 100, 1));

  ASSERT_EQ(0, f.open(dir.file("v").c_str(), true));  // a failed write-back is reported on stderr
  ASSERT_EQ(0, f.readTrack(0, 3, 0));
  f.trackBuffer[100] = 0x43, f.trackDirty = 1;
  testing::internal::CaptureStderr();
  EXPECT_EQ(0, f.close());  // still 0
  EXPECT_EQ("CKDFILE::close - I/O write error, RC=-1, ERRNO=" + std::to_string(EBADF) + ", VCODE=0\n",
            testing::internal::GetCapturedStderr());
  EXPECT_EQ(0, f.readOnly);  // and the file keeps the first change
  EXPECT_EQ(Bytes{0x42}, readAt(dir.file("v"), slotAt(0, 3) + 100, 1));
}

// A 2-cylinder D600 volume, every slot formatted (record zero's data = head).
class TrackIo : public testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(writeD600(path_, 2) && f.open(path_.c_str(), false) == 0); }
  Bytes slot(unsigned cyl, unsigned head) { return readAt(path_, slotAt(cyl, head), kSlot); }
  bool current(unsigned cyl, unsigned head) { return f.currentCyl == cyl && f.currentHead == head && f.currentCell == (head == 0xFFFF ? 0xFFFF : 0); }
  ScopedTempDir dir_;
  std::string path_ = dir_.file("v");
  T f;
};

TEST_F(TrackIo, ReadWriteBackAndRange) {
  EXPECT_TRUE(current(0xFFFFFFFF, 0xFFFF) && f.writeTrack() == 0);  // nothing to write after open
  ASSERT_EQ(0, f.readTrack(1, 2, 0));
  EXPECT_EQ(slot(1, 2), Bytes(f.trackBuffer, f.trackBuffer + kSlot));
  // Out of range: nothing read, the track stays current.
  EXPECT_EQ((std::vector<int>{T::kTrackRange, T::kTrackRange, T::kTrackRange}), (std::vector<int>{f.readTrack(2, 0, 0), f.readTrack(0, 15, 0), f.readTrack(0, 0, 1)}));
  EXPECT_TRUE(current(1, 2) && f.lastReadOffset == slotAt(1, 2));

  f.trackBuffer[300] = 0x11;  // changed but not marked: not written
  EXPECT_TRUE(f.writeTrack() == 0 && slot(1, 2)[300] == 0);
  f.trackDirty = 1;
  ASSERT_EQ(0, f.readTrack(0, 3, 0));  // written back before the next read, without a trailer stamp
  EXPECT_TRUE(f.trackDirty == 0 && slot(1, 2)[300] == 0x11);
  EXPECT_EQ(repeat(0, 16), readAt(path_, slotAt(1, 2) + kSlot - 16, 16));
  EXPECT_TRUE(current(0, 3));
  ASSERT_TRUE(writeAt(path_, slotAt(0, 3) + 9, {0x77}));  // a read of the current track rereads the file
  ASSERT_EQ(0, f.readTrack(0, 3, 0));
  EXPECT_EQ(0x77, f.trackBuffer[9]);

  // The current track outside the volume (the count was lowered): -2, nothing written.
  ASSERT_EQ(0, f.readTrack(1, 6, 0));
  f.trackBuffer[400] = 0x3C, f.trackDirty = 1;
  f.setCylinders(1);
  EXPECT_TRUE(f.writeTrack() == T::kTrackSeek && f.readTrack(0, 0, 0) == T::kTrackWriteBack);
  EXPECT_TRUE(f.trackDirty == 1 && current(1, 6) && slot(1, 6)[400] == 0);
  f.trackDirty = 0;
}

TEST_F(TrackIo, ShortFileAndFailedWriteBack) {
  T ro;
  ASSERT_EQ(0, ro.open(path_.c_str(), true));
  ASSERT_EQ(0, f.readTrack(0, 2, 0));
  f.trackBuffer[50] = 0x5E, f.trackDirty = 1;
  ASSERT_EQ(0, ::truncate(path_.c_str(), static_cast<off_t>(slotAt(1, 0) + 1000)));
  EXPECT_EQ(T::kTrackShort, f.readTrack(1, 0, 0));  // the changed track was written first
  EXPECT_TRUE(slot(0, 2)[50] == 0x5E && f.lastReadOffset == slotAt(1, 0));
  EXPECT_TRUE(current(0xFFFFFFFF, 0xFFFF));  // part of slot (1, 0) must never land anywhere
  f.trackBuffer[60] = 0x6F, f.trackDirty = 1;
  EXPECT_TRUE(f.writeTrack() == 0 && slot(0, 2)[60] == 0);

  ASSERT_EQ(0, ro.readTrack(0, 6, 0));
  ro.trackBuffer[70] = 0x70, ro.trackDirty = 1;
  EXPECT_TRUE(ro.writeTrack() == T::kTrackShort && ro.readTrack(1, 1, 0) == T::kTrackWriteBack);  // EBADF
  EXPECT_TRUE(ro.currentCyl == 0 && ro.currentHead == 6 && ro.trackDirty == 1);
  ro.trackDirty = 0;
}

TEST_F(TrackIo, RawTransfers) {
  Bytes buf(kSlot, 0x3C), back(kSlot, 0);
  EXPECT_TRUE(f.writeRawTrack(slotAt(1, 14), buf.data()) == 0 && f.lastReadOffset == 0);  // writes record no offset
  EXPECT_EQ(buf, slot(1, 14));
  const uint64_t end = slotAt(2, 0);  // past the end: a read is short, a write extends
  EXPECT_TRUE(f.readRawTrack(end, back.data()) == T::kTrackShort && f.lastReadOffset == end);
  EXPECT_TRUE(f.writeRawTrack(end, buf.data()) == 0 && fileSize(path_) == static_cast<long long>(end + kSlot));
  EXPECT_TRUE(f.readRawTrack(end, back.data()) == 0 && buf == back);
  for (unsigned long long off : {0x8000000000000000ull, ~0ull}) {  // cannot be positioned at
    EXPECT_EQ(T::kTrackSeek, f.readRawTrack(off, back.data()));
    EXPECT_EQ(T::kTrackSeek, f.writeRawTrack(off, back.data()));
  }
  T none;
  EXPECT_TRUE(none.readTrack(0, 0, 0) == T::kTrackRange && none.writeTrack() == 0);
}

}  // namespace
