// Track images built by TrackBuilder against hand-laid bytes, the limits of a
// track, and StagedTracks reading through its staged images and keeping the
// slot's trailer when it writes.
#include "edit/staged_tracks.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "support/temp_dir.h"
#include "support/track_builder.h"

namespace {

using namespace ckdvol_test;
using ckdvol::StagedTracks;
using ckdvol::TrackBuilder;

struct OpenD600 {
  ScopedTempDir dir;
  std::string path = dir.file("v.ckd");
  EmulatedCKDfile file;
  explicit OpenD600(uint32_t cyls = 2) {
    if (!writeD600(path, cyls) || file.open(path.c_str(), false) != 0) throw std::runtime_error("no volume");
  }
};

TEST(TrackBuilderTest, LaysOutRecordsMarkerAndZerosByHand) {
  OpenD600 v;
  TrackBuilder b(v.file, 1, 2);
  const Bytes key = hex("C1C2");
  const Bytes data = hex("0102 0304 05");
  EXPECT_EQ(b.add(key.data(), 2, data.data(), 5), 1);
  EXPECT_EQ(b.addEndOfFile(), 2);
  const Bytes expected = cat({
      hex("00 0001 0002"),                          // home address: flag, CC, HH
      hex("0001 0002 00 00 0008"), repeat(0, 8),    // record zero: 8 data bytes of zero
      hex("0001 0002 01 02 0005"), key, data,       // record 1: key C1C2, 5 data bytes
      hex("0001 0002 02 00 0000"),                  // record 2: end of file
      repeat(0xFF, 8)});                            // end marker
  const std::vector<unsigned char>& image = b.image();
  ASSERT_EQ(image.size(), kSlot);
  EXPECT_EQ(Bytes(image.begin(), image.begin() + expected.size()), expected);
  EXPECT_EQ(Bytes(image.begin() + expected.size(), image.end()), repeat(0, kSlot - expected.size()));
}

TEST(TrackBuilderTest, TrackLimits) {
  OpenD600 v;
  // HA 5 + R0 16 = 21; the marker may begin at slot - 24 at the latest.
  const uint32_t room = kSlot - 24 - 21 - 8;  // data bytes of one record filling the track
  struct Case {
    const char* what;
    uint32_t first;  // data length of a first record (0: none)
    uint32_t kl, dl;
    bool fits;
  } cases[] = {
      {"largest record the device allows", 0, 0, 56664, true},
      {"one byte above the track capacity", 0, 0, 56665, false},
      {"marker exactly at slot - 24", room - 56664 - 8, 0, 56664, true},
      {"marker one byte later", room - 56664 - 8 + 1, 0, 56664, false},
      {"a key counts as well", room - 56664 - 8, 1, 56664, false},
  };
  for (const Case& c : cases) {
    TrackBuilder b(v.file, 0, 1);
    if (c.first > 0) b.add(nullptr, 0, nullptr, c.first);
    EXPECT_EQ(b.fits(c.kl, c.dl), c.fits) << c.what;
  }
  TrackBuilder full(v.file, 0, 1);
  for (int i = 0; i < 255; ++i) full.add(nullptr, 0, nullptr, 1);
  EXPECT_FALSE(full.fits(0, 1)) << "record numbers stop at 255";
  EXPECT_EQ(full.balance(), 0u);
  TrackBuilder empty(v.file, 0, 1);
  EXPECT_EQ(empty.balance(), 56664u) << "one record can take the device's capacity";
}

TEST(TrackBuilderTest, KeepCutsAfterARecordAndRefusesWhatIsNotThere) {
  OpenD600 v;
  TrackBuilder b(v.file, 0, 3);
  for (int i = 0; i < 3; ++i) b.add(nullptr, 0, nullptr, 100);
  const std::vector<unsigned char> three = b.image();
  TrackBuilder k(v.file, 0, 3);
  ASSERT_TRUE(k.keep(three.data(), 2));
  EXPECT_EQ(k.lastRecord(), 2);
  EXPECT_EQ(k.add(nullptr, 0, nullptr, 7), 3);
  const std::vector<unsigned char>& image = k.image();
  const size_t r3 = 21 + 2 * 108;
  EXPECT_EQ(Bytes(image.begin() + r3, image.begin() + r3 + 8), hex("0000 0003 03 00 0007"));
  EXPECT_EQ(Bytes(image.begin() + r3 + 15, image.begin() + r3 + 23), repeat(0xFF, 8));
  EXPECT_FALSE(k.keep(three.data(), 4)) << "record 4 is not on the track";
  Bytes broken = three;
  broken[21 + 4] = 9;  // record 1 numbered 9: out of order
  EXPECT_FALSE(k.keep(broken.data(), 2));
  EXPECT_EQ(k.lastRecord(), 3) << "a refused keep leaves the builder as it was";
}

TEST(StagedTracksTest, ReadsThroughStagingAndKeepsTheSlotsTrailer) {
  OpenD600 v;
  StagedTracks staged(v.file);
  std::string error;
  EXPECT_EQ(staged.trackCount(), 30u);
  EXPECT_EQ(staged.image(30, error), nullptr);
  EXPECT_NE(error.find("cylinder 2 head 0"), std::string::npos) << error;
  const unsigned char* before = staged.image(17, error);
  ASSERT_NE(before, nullptr);
  EXPECT_EQ(before[5 + 8], 2) << "record zero's data of head 2 as the builder wrote it";
  unsigned char* mine = staged.stage(17, error);
  mine[100] = 0x5A;
  EXPECT_EQ(staged.image(17, error)[100], 0x5A) << "reads see the staged image";
  EXPECT_EQ(readAt(v.path, slotAt(1, 2) + 100, 1), hex("00")) << "nothing written yet";
  Bytes other(kSlot, 0x11);
  ASSERT_TRUE(staged.put(3, other.data(), error));
  EXPECT_EQ(staged.slots(), (std::vector<uint64_t>{slotAt(0, 3), slotAt(1, 2)}));
  // A trailer put on disk after staging (as the journal does) survives the write.
  ASSERT_TRUE(writeAt(v.path, slotAt(0, 3) + kSlot - 16, trailer(1, 0x1234)));
  EXPECT_EQ(staged.writeAll(), "");
  EXPECT_EQ(readAt(v.path, slotAt(0, 3), kSlot - 16), repeat(0x11, kSlot - 16));
  EXPECT_EQ(readAt(v.path, slotAt(0, 3) + kSlot - 16, 16), trailer(1, 0x1234));
  EXPECT_EQ(readAt(v.path, slotAt(1, 2) + 100, 1), hex("5A"));
  EXPECT_EQ(readAt(v.path, slotAt(1, 2) + kSlot - 16, 16), repeat(0, 16));
}

// putEmpty stages the empty formatted track without holding an image: it is
// made when read, staged for a change or written; a moved-in image must be a
// whole slot.
TEST(StagedTracksTest, EmptyTracksAreMadeWhenNeeded) {
  OpenD600 v;
  StagedTracks staged(v.file);
  std::string error;
  ASSERT_TRUE(writeAt(v.path, slotAt(1, 5) + 200, hex("77")));
  ASSERT_TRUE(writeAt(v.path, slotAt(1, 5) + kSlot - 16, trailer(2, 0x55)));
  ASSERT_TRUE(staged.putEmpty(20, error));
  EXPECT_FALSE(staged.putEmpty(30, error));
  // HA: flag 00, CC 0001, HH 0005; R0 count: CC HH R 00, KL 00, DL 0008;
  // 8 data bytes of zero; the end marker.
  const Bytes empty = hex("00 0001 0005 0001 0005 00 00 0008 0000000000000000 FFFFFFFFFFFFFFFF");
  const unsigned char* image = staged.image(20, error);
  ASSERT_NE(image, nullptr);
  EXPECT_EQ(Bytes(image, image + empty.size()), empty);
  EXPECT_EQ(image[200], 0);
  EXPECT_EQ(staged.writeAll(), "");
  EXPECT_EQ(readAt(v.path, slotAt(1, 5), empty.size()), empty);
  EXPECT_EQ(readAt(v.path, slotAt(1, 5) + 200, 1), hex("00"));
  EXPECT_EQ(readAt(v.path, slotAt(1, 5) + kSlot - 16, 16), trailer(2, 0x55)) << "the slot's trailer stays";
  unsigned char* changed = staged.stage(20, error);
  ASSERT_NE(changed, nullptr);
  EXPECT_EQ(Bytes(changed, changed + empty.size()), empty);
  EXPECT_FALSE(staged.put(21, std::vector<unsigned char>(kSlot - 1), error));
  EXPECT_FALSE(staged.staged(21));
}

// Zeros at an image's end are not written over holes, so an allocation on
// a sparse volume keeps it sparse; over data they are written, so nothing
// of a former track survives.
TEST(StagedTracksTest, TrailingZerosStayHolesButOverwriteData) {
  OpenD600 v;  // sparse: each track's head written, the rest holes
  const int fd = ::open(v.path.c_str(), O_RDONLY);
  ASSERT_GE(fd, 0);
  // Where the file's next data is, from `at`: its block's start (4096).
  const auto dataFrom = [&](uint64_t at) { return static_cast<int64_t>(::lseek(fd, static_cast<off_t>(at), SEEK_DATA)); };
  const auto blockOf = [](uint64_t at) { return static_cast<int64_t>(at / 4096 * 4096); };
  if (dataFrom(slotAt(0, 5) + 4096) != blockOf(slotAt(0, 6))) {
    ::close(fd);
    GTEST_SKIP() << "the file system does not report holes";
  }
  ASSERT_TRUE(writeAt(v.path, slotAt(0, 7) + 30000, hex("77")));  // a former track's data
  ASSERT_TRUE(writeAt(v.path, slotAt(0, 7) + kSlot - 17, hex("66")));
  StagedTracks staged(v.file);
  std::string error;
  Bytes partial(kSlot, 0);
  std::fill(partial.begin(), partial.begin() + 10000, 0x42);
  ASSERT_TRUE(staged.putEmpty(5, error));
  ASSERT_TRUE(staged.putEmpty(7, error));
  ASSERT_TRUE(staged.put(9, partial.data(), error));
  EXPECT_EQ(staged.writeAll(), "");
  const Bytes empty5 = hex("00 0000 0005 0000 0005 00 00 0008 0000000000000000 FFFFFFFFFFFFFFFF");
  EXPECT_EQ(readAt(v.path, slotAt(0, 5), empty5.size()), empty5);
  EXPECT_EQ(dataFrom(slotAt(0, 5) + 4096), blockOf(slotAt(0, 6))) << "the empty track's tail stays a hole";
  EXPECT_EQ(readAt(v.path, slotAt(0, 7) + 29, kSlot - 16 - 29), repeat(0, kSlot - 16 - 29)) << "old data zeroed";
  EXPECT_EQ(readAt(v.path, slotAt(0, 9), 10000), repeat(0x42, 10000));
  EXPECT_EQ(readAt(v.path, slotAt(0, 9) + 10000, kSlot - 10016), repeat(0, kSlot - 10016));
  EXPECT_EQ(dataFrom(slotAt(0, 9) + 16384), blockOf(slotAt(0, 10)));
  ::close(fd);
}

}  // namespace

namespace {

TEST(StagedTracksTest, StageRecordFindsARecordByNumber) {
  OpenD600 v;
  TrackBuilder b(v.file, 0, 4);
  const Bytes key = hex("C1C1C1C1");
  b.add(nullptr, 0, nullptr, 10);
  b.add(key.data(), 4, nullptr, 96);
  StagedTracks staged(v.file);
  std::string error;
  ASSERT_TRUE(staged.put(4, b.image().data(), error));
  uint32_t kl = 0, dl = 0;
  unsigned char* r2 = staged.stageRecord(4, 2, kl, dl, error);
  ASSERT_NE(r2, nullptr) << error;
  EXPECT_EQ(kl, 4u);
  EXPECT_EQ(dl, 96u);
  EXPECT_EQ(r2 - staged.image(4, error), 21 + 18 + 8) << "behind record 1 and record 2's count field";
  EXPECT_EQ(staged.stageRecord(4, 3, kl, dl, error), nullptr);
  EXPECT_NE(error.find("record 3 is not on cylinder 0 head 4"), std::string::npos) << error;
}

}  // namespace
