// writeCKD, writeD and formatTrack against hand-written track bytes.
#include <fcntl.h>
#include <unistd.h>

#include <cstring>
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
constexpr size_t kDataLimit = kSlot - 24;  // 56808
constexpr size_t kTrailer = kSlot - 16;

uint64_t slotOffset(unsigned cyl, unsigned head) { return 512 + (cyl * kD600Heads + head) * kSlot; }

// A sparse D600 volume of two cylinders, open read-write, with track (0, 2)
// current and holding an empty track; its trailer carries a pattern that no
// writer may touch.
class RecordWriting : public ::testing::Test {
 protected:
  void SetUp() override {
    path_ = dir_.file("vol.ckd");
    ASSERT_TRUE(writeD600Volume(path_, 2));
    ASSERT_EQ(0, f_.open(path_.c_str(), false));
    ASSERT_EQ(0, f_.readTrack(0, 2, 0));
    load(emptyTrack(0, 2));
  }
  void load(const TrackImage& t) {
    t.loadInto(f_);
    std::memset(f_.trackBuffer + kTrailer, 0x77, 16);
  }
  const void* at(size_t off) const { return f_.trackBuffer + off; }
  Bytes image() const { return bufferBytes(f_, 0, kSlot); }
  bool trailerIntact() const { return bufferBytes(f_, kTrailer, 16) == repeat(0x77, 16); }
  bool zeroFrom(size_t from, size_t to) const { return bufferBytes(f_, from, to - from) == repeat(0, to - from); }

  ScopedTempDir dir_;
  std::string path_;
  T f_;
};

TEST_F(RecordWriting, RecordZeroReplacementErasesTheTrack) {
  TrackImage t(0, 2);
  t.record(0, 2, 0, {}, 8, {}, 0x11).record(0, 2, 1, hex("C1"), 300, {}, 0x22).record(0, 2, 2, {}, 50, {}, 0x33).marker();
  load(t);
  const Bytes r0data = hex("01 02 03 04 05 06 07 08");
  ASSERT_EQ(0, f_.writeCKD(f_.trackBuffer, 0, 2, 0, 0, 8, r0data.data()));
  EXPECT_TRUE(f_.trackDirty);
  const Bytes expected = concat({
      hex("00 0000 0002"),             // home address: flag, CC, HH (unchanged)
      hex("0000 0002 00 00 0008"),     // R0 count: CC HH R KL DL
      r0data,                          // R0 data
      repeat(0xFF, 8),                 // end marker at 21
  });
  EXPECT_EQ(expected, bufferBytes(f_, 0, 29));
  EXPECT_TRUE(zeroFrom(29, kDataLimit));
  EXPECT_TRUE(trailerIntact());
}

TEST_F(RecordWriting, AppendAfterARecordAndEraseWhatFollowed) {
  const Bytes kd = hex("C1 C2 D1 D2 D3");  // key "AB", data 3 bytes
  ASSERT_EQ(0, f_.writeCKD(at(5), 0, 2, 1, 2, 3, kd.data()));
  ASSERT_EQ(0, f_.writeCKD(at(21), 0x1234, 0x0BAD, 0xEE, 0, 4, hex("09 08 07 06").data()));
  Bytes expected = concat({
      emptyTrack(0, 2).bytes(),
  });
  expected.resize(21);
  expected = concat({expected,
                     hex("0000 0002 01 02 0003 C1C2 D1D2D3"),  // R1 @21: KL 2 DL 3
                     hex("1234 0BAD EE 00 0004 09080706"),     // R2 @34: as passed, unchecked
                     repeat(0xFF, 8)});                        // marker @46
  EXPECT_EQ(expected, bufferBytes(f_, 0, expected.size()));
  EXPECT_TRUE(zeroFrom(expected.size(), kDataLimit));

  // Writing after R1 again erases R2.
  ASSERT_EQ(0, f_.writeCKD(at(21), 0, 2, 2, 0, 0, nullptr));  // count field alone
  EXPECT_EQ(hex("0000 0002 02 00 0000 FFFFFFFFFFFFFFFF"), bufferBytes(f_, 34, 16));
  EXPECT_TRUE(zeroFrom(50, kDataLimit));
  EXPECT_TRUE(trailerIntact());
}

TEST_F(RecordWriting, RecordEndingExactlyAtDataLimit) {
  const uint16_t fits = static_cast<uint16_t>(kDataLimit - 21 - 8);  // 56779
  Bytes data(fits + 1, 0x5C);
  const Bytes before = image();
  EXPECT_EQ(T::kWriteNoRoom, f_.writeCKD(at(5), 0, 2, 1, 0, fits + 1, data.data()));
  EXPECT_EQ(before, image());
  EXPECT_FALSE(f_.trackDirty);
  EXPECT_EQ(T::kWriteNoRoom, f_.writeCKD(at(5), 0, 2, 1, 1, fits, data.data()));  // key counts too

  ASSERT_EQ(0, f_.writeCKD(at(5), 0, 2, 1, 0, fits, data.data()));
  EXPECT_EQ(hex("0000 0002 01 00 DDCB"), bufferBytes(f_, 21, 8));  // DL 56779
  EXPECT_EQ(repeat(0xFF, 8), bufferBytes(f_, kDataLimit, 8));      // marker just before the trailer
  EXPECT_TRUE(trailerIntact());
  // writeD refuses it: at-or-beyond.
  EXPECT_EQ(T::kWriteDataEnd, f_.writeD(at(21), data.data()));
  // One byte shorter is fine for writeD.
  load(emptyTrack(0, 2));
  ASSERT_EQ(0, f_.writeCKD(at(5), 0, 2, 1, 0, fits - 1, data.data()));
  Bytes other(fits - 1, 0x3D);
  EXPECT_EQ(0, f_.writeD(at(21), other.data()));
  EXPECT_EQ(0x3D, f_.trackBuffer[kDataLimit - 2]);
  EXPECT_EQ(0xFF, f_.trackBuffer[kDataLimit - 1]);  // the marker behind it is untouched
}

TEST_F(RecordWriting, WriteDReplacesExactlyTheDataArea) {
  TrackImage t(0, 2);
  t.record(0, 2, 0, {}, 8).record(0, 2, 1, hex("C1 C2"), 4, hex("A1 A2 A3 A4")).record(0, 2, 2, {}, 3, hex("B1 B2 B3")).marker();
  load(t);
  Bytes before = image();
  ASSERT_EQ(0, f_.writeD(at(21), hex("01 02 03 04 05 06").data()));  // only 4 taken
  EXPECT_TRUE(f_.trackDirty);
  before[31] = 1, before[32] = 2, before[33] = 3, before[34] = 4;  // data of R1 at 21+8+2
  EXPECT_EQ(before, image());
}

TEST_F(RecordWriting, ReferencesOutsideTheRecordArea) {
  const Bytes d(8, 0);
  EXPECT_EQ(T::kWriteBadRef, f_.writeCKD(at(kDataLimit), 0, 2, 1, 0, 0, nullptr));
  EXPECT_EQ(T::kWriteBadRef, f_.writeD(at(kDataLimit), d.data()));
  EXPECT_EQ(T::kWriteBadRef, f_.writeCKD(at(kTrailer), 0, 2, 1, 0, 0, nullptr));
  EXPECT_EQ(T::kWriteBadRef, f_.writeCKD(nullptr, 0, 2, 1, 0, 0, nullptr));
  EXPECT_EQ(T::kWriteBadRef, f_.writeD(nullptr, d.data()));
  EXPECT_EQ(T::kWriteBadRef, f_.writeCKD(d.data(), 0, 2, 1, 0, 0, nullptr));  // not in the buffer
  EXPECT_FALSE(f_.trackDirty);
}

TEST_F(RecordWriting, ReferenceAtTheEndMarker) {
  // The marker decodes as KL 255, DL 65535.
  const Bytes before = image();
  const Bytes d(8, 0);
  EXPECT_EQ(T::kWriteNoRoom, f_.writeCKD(at(21), 0, 2, 1, 0, 0, nullptr));
  EXPECT_EQ(T::kWriteDataEnd, f_.writeD(at(21), d.data()));
  EXPECT_EQ(before, image());
}

TEST_F(RecordWriting, HomeAddressChecks) {
  const Bytes before = image();
  const Bytes d(8, 0);
  EXPECT_EQ(T::kWriteHaMismatch, f_.writeCKD(f_.trackBuffer, 0, 3, 0, 0, 8, d.data()));
  EXPECT_EQ(T::kWriteHaMismatch, f_.writeCKD(f_.trackBuffer, 1, 2, 0, 0, 8, d.data()));
  EXPECT_EQ(T::kWriteHaMismatch, f_.writeCKD(f_.trackBuffer, 1, 2, 1, 0, 8, d.data()));  // -4 first
  EXPECT_EQ(T::kWriteNotR0, f_.writeCKD(f_.trackBuffer, 0, 2, 1, 0, 8, d.data()));
  EXPECT_EQ(before, image());
  EXPECT_FALSE(f_.trackDirty);
}

TEST_F(RecordWriting, WriteDAtTheHomeAddressStaysInTheBuffer) {
  // At the home address writeD decodes HA and R0's CC as a count field:
  // KL = byte 5, DL = bytes 6-7.
  load(TrackImage(0, 2).raw(hex("00 08 00")));  // byte 5 KL 0, bytes 6-7 DL 0x0800
  const Bytes d(0x800, 0x44);
  EXPECT_EQ(0, f_.writeD(f_.trackBuffer, d.data()));  // data area 8 .. 2055
  EXPECT_EQ(0x44, f_.trackBuffer[2055]);
  EXPECT_EQ(0x00, f_.trackBuffer[2056]);
  load(TrackImage(0xFFFF, 0xFFFF).raw(hex("FF FF FF FF FF FF FF FF")));  // KL 255, DL 65535
  EXPECT_EQ(T::kWriteDataEnd, f_.writeD(f_.trackBuffer, d.data()));
  EXPECT_TRUE(trailerIntact());
}

TEST_F(RecordWriting, ChangesReachTheFileThroughTheWriteBack) {
  ASSERT_EQ(0, f_.writeCKD(at(5), 0, 2, 1, 4, 4, hex("E5D6D3F1 01020304").data()));
  ASSERT_EQ(0, f_.readTrack(1, 0, 0));  // writes (0, 2) back
  const Bytes slot = readFileBytes(path_, slotOffset(0, 2), kSlot);
  ASSERT_EQ(kSlot, slot.size());
  EXPECT_EQ(hex("0000 0002 01 04 0004 E5D6D3F1 01020304 FFFFFFFFFFFFFFFF"), Bytes(slot.begin() + 21, slot.begin() + 45));
  EXPECT_EQ(repeat(0x77, 16), Bytes(slot.end() - 16, slot.end()));  // the buffer's trailer went along
}

TEST(RecordWritingLarge, CountFieldsUseTheLargeCylinderEncoding) {
  T f;  // a type and a buffer, no file: writeCKD needs neither file nor track
  ASSERT_TRUE(f.setType(T::D600));
  f.setCylinders(65667);
  ASSERT_TRUE(f.largeCylinders);
  // Home address of cylinder 100000 (0x186A0), head 5: CC 86A0, HH 0015.
  TrackImage(0x86A0, 0x0015).loadInto(f);
  EXPECT_EQ(T::kWriteHaMismatch, f.writeCKD(f.trackBuffer, 0x86A0, 0x15, 0, 0, 8, Bytes(8).data()));
  ASSERT_EQ(0, f.writeCKD(f.trackBuffer, 100000, 5, 0, 0, 8, Bytes(8, 0).data()));
  ASSERT_EQ(0, f.writeCKD(f.trackBuffer + 5, 100000, 5, 1, 0, 0, nullptr));
  EXPECT_EQ(hex("86A0 0015 00 00 0008 0000000000000000 86A0 0015 01 00 0000 FFFFFFFFFFFFFFFF"),
            bufferBytes(f, 5, 32));
}

// ---- formatTrack --------------------------------------------------------------

TEST_F(RecordWriting, FormatTrackWritesTheEmptyImage) {
  // Slot (1, 3) holds garbage, including its trailer.
  const Bytes junk(kSlot, 0xA5);
  ASSERT_TRUE(writeFileBytes(path_, slotOffset(1, 3), junk.data(), junk.size()));
  f_.trackDirty = 1;
  const Bytes before = image();
  ASSERT_EQ(0, f_.formatTrack(1, 3, 0));
  Bytes expected(kSlot, 0);
  const Bytes front = hex(
      "00 0001 0003"           // home address: flag, CC 1, HH 3
      " 0001 0003 00 00 0008"  // R0 count: CC HH R KL DL
      " 0000000000000000"      // R0 data
      " FFFFFFFFFFFFFFFF");    // end marker at 21
  std::memcpy(expected.data(), front.data(), front.size());
  ASSERT_EQ(29u, front.size());
  EXPECT_EQ(expected, readFileBytes(path_, slotOffset(1, 3), kSlot));  // trailer zero too
  // The buffer and the current-track state are left alone.
  EXPECT_EQ(before, image());
  EXPECT_EQ(0u, f_.currentCyl);
  EXPECT_EQ(2, f_.currentHead);
  EXPECT_TRUE(f_.trackDirty);
  f_.trackDirty = 0;
}

TEST_F(RecordWriting, FormatTrackRefusals) {
  EXPECT_EQ(T::kFormatRange, f_.formatTrack(2, 0, 0));   // past the last cylinder
  EXPECT_EQ(T::kFormatRange, f_.formatTrack(0, 15, 0));  // no such head
  EXPECT_EQ(T::kFormatRange, f_.formatTrack(0, 0, 1));   // no such cell
  EXPECT_EQ(512 + 2 * 15 * kSlot, static_cast<size_t>(fileSize(path_)));  // nothing appended
  ASSERT_EQ(0, f_.close());

  T ro;
  ASSERT_EQ(0, ro.open(path_.c_str(), true));
  EXPECT_EQ(T::kFormatNoFile, ro.formatTrack(0, 0, 0));
  T none;
  EXPECT_EQ(T::kFormatNoFile, none.formatTrack(0, 0, 0));

  // A descriptor that cannot be written: -1.
  T bad;
  ASSERT_EQ(0, bad.open(path_.c_str(), false));
  const int rw = bad.fileDescriptor;
  bad.fileDescriptor = ::open(path_.c_str(), O_RDONLY);
  EXPECT_EQ(T::kFormatIo, bad.formatTrack(0, 0, 0));
  ::close(bad.fileDescriptor);
  bad.fileDescriptor = rw;
}

}  // namespace
