// initialize, format_labels and format_vtoc against hand-written bytes.
#include <fcntl.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "ckdfile/emulated_ckd_file.h"
#include "ckdfile/track_image_builder.h"
#include "ckdfile/volume_file_builder.h"
#include "support/temp_dir.h"

namespace {

using namespace ckdvol_test;
using T = EmulatedCKDfile;

constexpr size_t kSlot = kD600Slot;

void putAt(Bytes& b, size_t at, const Bytes& what) { std::copy(what.begin(), what.end(), b.begin() + at); }
Bytes slice(const Bytes& b, size_t from, size_t to) { return Bytes(b.begin() + from, b.begin() + to); }

// ---- the records of cylinder 0, written out by hand ---------------------------

// format_labels: records 1 to 3 of track 0/0, 284 bytes from image offset 21.
Bytes labelRecords() {
  return concat({
      hex("0000 0000 01 04 0018"),  // R1 count: CC 0 HH 0 R 1 KL 4 DL 24  (@21)
      hex("C9D7D3F1"),              // key "IPL1"
      hex("000A0000 0000000F 03000000 00000001"), repeat(0, 8),
      hex("0000 0000 02 04 0090"),  // R2 count: KL 4 DL 144  (@57)
      hex("C9D7D3F2"),              // key "IPL2"
      repeat(0, 144),
      hex("0000 0000 03 04 0050"),  // R3 count: KL 4 DL 80  (@213)
      hex("E5D6D3F1"),              // key "VOL1"
      hex("E5D6D3F1"),              // data 0-3: "VOL1"
      hex("F0E7F0F1F2F3"),          // 4-9: serial "0X0123"
      hex("40"),                    // 10: security
      hex("0000 0001 01"),          // 11-15: VTOC at CC 0, HH 1, R 1
      repeat(0x40, 64),             // 16-79: blanks
  });
}

// The Format-4 DSCB (140 bytes) of a volume with `cyls` <= 65520 cylinders,
// 15 heads, slot size 56832, model 1 to 3.
Bytes format4(uint16_t cyls) {
  return concat({
      repeat(0x04, 44),                         // 0-43 DSCBKey
      hex("F4"),                                // 44 FmtID
      repeat(0, 5),                             // 45-49 LastDSCB
      hex("000A"),                              // 50-51 DSCBcnt 10
      repeat(0, 6),                             // 52-57 NextAltTrk, RemAltTrks
      hex("00"),                                // 58 VTOCind
      hex("01"),                                // 59 VTOCexts
      repeat(0, 2),                             // 60-61 SMSind, AltCyls
      Bytes{static_cast<unsigned char>(cyls >> 8), static_cast<unsigned char>(cyls)},  // 62-63 NbrCyls
      hex("000F"),                              // 64-65 Trks/Cyl
      hex("DE00"),                              // 66-67 TrkLen 56832
      repeat(0, 3),                             // 68-70 overheads
      hex("30"),                                // 71 DevFlag-1
      repeat(0, 2),                             // 72-73 DevTolerance
      hex("0C"),                                // 74 DSCBs/trk 12
      repeat(0, 30),                            // 75-104
      hex("01 00 0000 0001 0000 0001"),         // 105-114 VTOCextDesc
      repeat(0, 10),                            // 115-124
      hex("07"),                                // 125 FreeSpcMgtLvl
      hex("0000 0001 03"),                      // 126-130 ExtdFreeSpc
      hex("00"),                                // 131 MinCylAlloc
      hex("0000"), Bytes{static_cast<unsigned char>(cyls >> 8), static_cast<unsigned char>(cyls)},  // 132-135
      repeat(0, 2),                             // 136-137
      hex("40"),                                // 138 DevFlag-2
      hex("00"),                                // 139
  });
}

Bytes format5(uint16_t cylCount) {
  return concat({
      hex("05050505"),                          // 0-3 DSCBKey
      hex("0002"),                              // 4-5 TrkBgn-01
      Bytes{static_cast<unsigned char>(cylCount >> 8), static_cast<unsigned char>(cylCount)},  // 6-7
      hex("0D"),                                // 8 TrkCnt-01 13
      repeat(0, 35),                            // 9-43
      hex("F5"),                                // 44 FmtID
      repeat(0, 95),                            // 45-139
  });
}

// The twelve VTOC records (1776 bytes from image offset 21) with the given
// first three DSCBs.
Bytes vtocRecords(const Bytes& d1, const Bytes& d2, const Bytes& d3) {
  Bytes out;
  for (unsigned char n = 1; n <= 12; ++n) {
    const Bytes count = {0x00, 0x00, 0x00, 0x01, n, 0x2C, 0x00, 0x60};  // CC 0 HH 1 R n KL 44 DL 96
    const Bytes& body = n == 1 ? d1 : n == 2 ? d2 : n == 3 ? d3 : repeat(0, 140);
    out = concat({out, count, body});
  }
  return out;
}

// ---- format_labels and format_vtoc into a buffer ----------------------------

TEST(FormatLabels, WritesTheThreeLabelRecords) {
  T f;
  ASSERT_TRUE(f.setType(T::D600));
  Bytes buf(400, 0xEE);
  unsigned char* p = buf.data() + 21;
  f.format_labels(p);
  EXPECT_EQ(buf.data() + 305, p);
  EXPECT_EQ(labelRecords(), Bytes(buf.begin() + 21, buf.begin() + 305));
  EXPECT_EQ(repeat(0xEE, 95), Bytes(buf.begin() + 305, buf.end()));
}

TEST(FormatVtoc, WritesFormat4And5ForASmallVolume) {
  T f;
  ASSERT_TRUE(f.setType(T::D600));
  f.setCylinders(2);
  Bytes buf(1900, 0xEE);
  unsigned char* p = buf.data() + 21;
  f.format_vtoc(p);
  EXPECT_EQ(buf.data() + 1797, p);
  EXPECT_EQ(vtocRecords(format4(2), format5(1), repeat(0, 140)), Bytes(buf.begin() + 21, buf.begin() + 1797));
  EXPECT_EQ(repeat(0xEE, 103), Bytes(buf.begin() + 1797, buf.end()));
}

// Record `n`'s 140 bytes out of format_vtoc's output for a model set by hand.
Bytes vtocDscb(T::CKDtype type, unsigned cylinders, int n) {
  T f;
  EXPECT_TRUE(f.setType(type));
  f.setCylinders(cylinders);
  Bytes buf(1776, 0xEE);
  unsigned char* p = buf.data();
  f.format_vtoc(p);
  const size_t at = (n - 1) * 148 + 8;
  return Bytes(buf.begin() + at, buf.begin() + at + 140);
}

TEST(FormatVtoc, ModelsAbove3GetAFormat7AndTheVtocIndicator) {
  // D600 of 10017 cylinders: model 9.
  Bytes f4 = vtocDscb(T::D600, 10017, 1);
  EXPECT_EQ(0xA0, f4[58]);
  EXPECT_EQ(hex("2721"), slice(f4, 62, 64));  // NbrCyls 10017
  const Bytes f7 = concat({
      hex("07070707"),   // 0-3 key
      hex("00000002"),   // 4-7 first free relative track
      hex("00024AEF"),   // 8-11 15 * 10017 = 150255 tracks
      repeat(0, 32),     // 12-43
      hex("F7"),         // 44 FmtID
      repeat(0, 95),
  });
  EXPECT_EQ(f7, vtocDscb(T::D600, 10017, 3));
  // D600 of 3339 cylinders: model 3, no Format-7.
  EXPECT_EQ(0x00, vtocDscb(T::D600, 3339, 1)[58]);
  EXPECT_EQ(repeat(0, 140), vtocDscb(T::D600, 3339, 3));
  EXPECT_EQ(repeat(0, 140), vtocDscb(T::D600, 10016, 3));
  // D400 (models 35 and 70), D300 above 404 cylinders (model 11).
  EXPECT_EQ(hex("07070707 00000002 00001050"), slice(vtocDscb(T::D400, 348, 3), 0, 12));
  EXPECT_EQ(0xA0, vtocDscb(T::D400, 348, 1)[58]);
  EXPECT_EQ(0xF7, vtocDscb(T::D400, 700, 3)[44]);
  EXPECT_EQ(0xF7, vtocDscb(T::D300, 405, 3)[44]);
  EXPECT_EQ(0x00, vtocDscb(T::D300, 404, 3)[44]);
  // Types whose model is 0, and models 2 and 3 elsewhere: none.
  EXPECT_EQ(repeat(0, 140), vtocDscb(T::D130, 200, 3));
  EXPECT_EQ(repeat(0, 140), vtocDscb(T::D500, 2655, 3));
  EXPECT_EQ(repeat(0, 140), vtocDscb(T::D100, 49, 3));
}

TEST(FormatVtoc, LargeVolumesMarkTheCylinderCount) {
  const Bytes f4 = vtocDscb(T::D600, 65667, 1);
  EXPECT_EQ(hex("FFFE"), slice(f4, 62, 64));      // NbrCyls
  EXPECT_EQ(hex("00010083"), slice(f4, 132, 136)); // ExtNbrCyls 65667
  EXPECT_EQ(0xA0, f4[58]);
  const Bytes f5 = vtocDscb(T::D600, 65667, 2);
  EXPECT_EQ(hex("0082"), slice(f5, 6, 8));  // CylCnt-01: low 16 bits of 65666
  EXPECT_EQ(hex("000F07AD"), slice(vtocDscb(T::D600, 65667, 3), 8, 12));
  // Either side of the threshold.
  EXPECT_EQ(hex("FFF0"), slice(vtocDscb(T::D600, 65520, 1), 62, 64));
  EXPECT_EQ(hex("FFFE"), slice(vtocDscb(T::D600, 65521, 1), 62, 64));
}

// ---- initialize ----------------------------------------------------------------

using Position = std::tuple<uint32_t, unsigned, unsigned, unsigned>;  // type, cell, cyl, head

void recordProgress(void* context, T::CKDtype type, unsigned short cell, unsigned int cyl,
                    unsigned int head) {
  static_cast<std::vector<Position>*>(context)->emplace_back(type, cell, cyl, head);
}

Bytes slotOf(const std::string& path, size_t slotSize, unsigned heads, unsigned cyl, unsigned head) {
  return readFileBytes(path, 512 + (uint64_t{cyl} * heads + head) * slotSize, slotSize);
}

class Initialize : public ::testing::Test {
 protected:
  std::string path(const char* name) { return dir_.file(name); }
  ScopedTempDir dir_;
};

TEST_F(Initialize, FullFormatD600) {
  const std::string p = path("full.ckd");
  std::vector<Position> progress;
  {
    T f;
    ASSERT_EQ(0, f.create(p.c_str(), T::D600, 2));
    ASSERT_EQ(0, f.initialize(recordProgress, &progress, true));
    EXPECT_EQ(3, f.formatLevel);
    EXPECT_EQ(0u, f.currentCyl);  // track 0/0 is loaded
    EXPECT_EQ(0, f.currentHead);
    EXPECT_EQ(0, f.currentCell);
  }
  EXPECT_EQ((std::vector<Position>{{0xD600, 0, 1, 0}, {0xD600, 0, 2, 0}}), progress);
  EXPECT_EQ(static_cast<long long>(512 + 30 * kSlot), fileSize(p));
  const Bytes header = readFileBytes(p, 0, 26);
  EXPECT_EQ(hex("434B445F58564F4C"   // "CKD_XVOL"
                "0F000000"           // heads 15
                "00DE0000"           // slot size 56832
                "AA 03"              // device code, level 3
                "02000000 02000000"),  // cylinders twice
            header);
  T g;
  EXPECT_EQ(0, g.open(p.c_str(), true));

  // Track 0/0: IPL1, IPL2, VOL1, fillers 4 to 12, marker at 37241.
  TrackImage t00(0, 0);
  t00.record(0, 0, 0, {}, 8).raw(labelRecords());
  for (int n = 4; n <= 12; ++n) t00.record(0, 0, static_cast<uint8_t>(n), {}, 4096);
  t00.marker();
  ASSERT_EQ(37249u, t00.offset());
  const Bytes slot00 = t00.slot(kSlot);
  EXPECT_EQ(slot00, slotOf(p, kSlot, 15, 0, 0));

  // Track 0/1: twelve DSCBs, marker at 1797.
  TrackImage t01(0, 1);
  t01.record(0, 1, 0, {}, 8).raw(vtocRecords(format4(2), format5(1), repeat(0, 140))).marker();
  ASSERT_EQ(1805u, t01.offset());
  const Bytes slot01 = t01.slot(kSlot);
  EXPECT_EQ(slot01, slotOf(p, kSlot, 15, 0, 1));

  // Every other track: fillers 1 to 12, marker at 49269, data zero.
  for (unsigned c = 0; c < 2; ++c) {
    for (unsigned h = 2; h < 15; ++h) {  // tracks 1/0 and 1/1: below
      TrackImage t(static_cast<uint16_t>(c), static_cast<uint16_t>(h));
      t.record(c, h, 0, {}, 8);
      for (int n = 1; n <= 12; ++n) t.record(c, h, static_cast<uint8_t>(n), {}, 4096);
      t.marker();
      ASSERT_EQ(49277u, t.offset());
      EXPECT_EQ(t.slot(kSlot), slotOf(p, kSlot, 15, c, h)) << c << "/" << h;
    }
  }

  // Cylinder 1, tracks 0 and 1: the filler records' data areas carry what
  // cylinder 0 had at those positions (labels, DSCBs, count fields, markers).
  for (unsigned h = 0; h < 2; ++h) {
    Bytes expected = h == 0 ? slot00 : slot01;
    putAt(expected, 0, {0x00, 0x00, 0x01, 0x00, static_cast<unsigned char>(h)});  // HA 1/h
    putAt(expected, 5, {0x00, 0x01, 0x00, static_cast<unsigned char>(h), 0x00, 0x00, 0x00, 0x08});
    for (unsigned char n = 1; n <= 12; ++n) {
      putAt(expected, 21 + (n - 1) * 4104u,
            {0x00, 0x01, 0x00, static_cast<unsigned char>(h), n, 0x00, 0x10, 0x00});
    }
    putAt(expected, 49269, repeat(0xFF, 8));
    const Bytes actual = slotOf(p, kSlot, 15, 1, h);
    EXPECT_EQ(expected, actual) << "1/" << h;
    // Spot checks of the carried bytes.
    if (h == 0) {
      EXPECT_EQ(hex("C9D7D3F1"), slice(actual, 29, 33));  // IPL1 key
      EXPECT_EQ(repeat(0xFF, 8), slice(actual, 37241, 37249));
    } else {
      EXPECT_EQ(hex("04040404"), slice(actual, 29, 33));  // Format-4 key
      EXPECT_EQ(repeat(0xFF, 8), slice(actual, 1797, 1805));
    }
  }
}

TEST_F(Initialize, WithoutFullFormatEveryTrackIsEmpty) {
  const std::string p = path("bare.ckd");
  {
    T f;
    ASSERT_EQ(0, f.create(p.c_str(), T::D600, 2));
    ASSERT_EQ(0, f.initialize(nullptr, nullptr, false));
  }
  for (unsigned c = 0; c < 2; ++c) {
    for (unsigned h = 0; h < 15; ++h) {
      EXPECT_EQ(emptyTrack(static_cast<uint16_t>(c), static_cast<uint16_t>(h)).slot(kSlot),
                slotOf(p, kSlot, 15, c, h))
          << c << "/" << h;
    }
  }
  EXPECT_EQ(hex("434B445F58564F4C"), readFileBytes(p, 0, 8));
}

TEST_F(Initialize, TypesWithFewFillerRecords) {
  struct Case {
    T::CKDtype type;
    size_t slot;
    unsigned heads;
    int fillers;
  };
  for (const Case& c : {Case{T::D100, 14848, 8, 3}, Case{T::D130, 4096, 10, 0}, Case{T::D160, 7680, 20, 1}}) {
    SCOPED_TRACE(c.type);
    const std::string p = path(c.type == T::D100 ? "d100" : c.type == T::D130 ? "d130" : "d160");
    {
      T f;
      ASSERT_EQ(0, f.create(p.c_str(), c.type, 1));
      ASSERT_EQ(0, f.initialize(nullptr, nullptr, true));
    }
    TrackImage t00(0, 0);
    t00.record(0, 0, 0, {}, 8).raw(labelRecords()).marker();  // no fillers after the labels
    EXPECT_EQ(t00.slot(c.slot), slotOf(p, c.slot, c.heads, 0, 0));
    EXPECT_EQ(0xFF, slotOf(p, c.slot, c.heads, 0, 1).at(1797));
    for (unsigned h = 2; h < c.heads; ++h) {
      TrackImage t(0, static_cast<uint16_t>(h));
      t.record(0, h, 0, {}, 8);
      for (int n = 1; n <= c.fillers; ++n) t.record(0, h, static_cast<uint8_t>(n), {}, 4096);
      t.marker();
      EXPECT_EQ(t.slot(c.slot), slotOf(p, c.slot, c.heads, 0, h)) << h;
    }
  }
}

TEST_F(Initialize, Failures) {
  T idle;
  EXPECT_EQ(T::kInitNoOffset, idle.initialize(nullptr, nullptr, true));
  T typed;
  ASSERT_TRUE(typed.setType(T::D600));
  EXPECT_EQ(T::kInitNoOffset, typed.initialize(nullptr, nullptr, true));

  // A descriptor that cannot be positioned: a pipe.
  int fds[2];
  ASSERT_EQ(0, ::pipe(fds));
  typed.fileDescriptor = fds[1];
  EXPECT_EQ(T::kInitSeek, typed.initialize(nullptr, nullptr, true));
  typed.fileDescriptor = -1;
  ::close(fds[0]);
  ::close(fds[1]);

  // Cylinder writes refused: -1, header untouched.
  const std::string p = path("ro.ckd");
  T f;
  ASSERT_EQ(0, f.create(p.c_str(), T::D600, 1));
  const int rw = f.fileDescriptor;
  f.fileDescriptor = ::open(p.c_str(), O_RDONLY);
  std::vector<Position> progress;
  EXPECT_EQ(T::kInitWrite, f.initialize(recordProgress, &progress, true));
  EXPECT_TRUE(progress.empty());
  ::close(f.fileDescriptor);
  EXPECT_EQ(hex("434B445F494E4954"), readFileBytes(p, 0, 8));  // "CKD_INIT"

  // The header cannot be read back: -5 after all cylinders, header untouched.
  f.fileDescriptor = ::open(p.c_str(), O_WRONLY);
  EXPECT_EQ(T::kInitReadHeader, f.initialize(recordProgress, &progress, true));
  EXPECT_EQ(1u, progress.size());
  ::close(f.fileDescriptor);
  f.fileDescriptor = rw;
  EXPECT_EQ(hex("434B445F494E4954"), readFileBytes(p, 0, 8));
  EXPECT_EQ(static_cast<long long>(512 + 15 * kSlot), fileSize(p));
  T g;
  EXPECT_EQ(T::kOpenBadHeader, g.open(p.c_str(), true));
}

TEST_F(Initialize, TrackZeroCannotBeLoaded) {
  // A caller that breaks the calling order: a changed current track that
  // fails verification, so the final readTrack cannot write it back.
  const std::string p = path("dirty.ckd");
  T f;
  ASSERT_EQ(0, f.create(p.c_str(), T::D600, 1));
  std::memset(f.trackBuffer, 0xAB, f.trackSlotSize);
  f.currentCyl = 0, f.currentHead = 3, f.currentCell = 0;
  f.trackDirty = 1;
  f.verifyTracks = 1;
  EXPECT_EQ(T::kInitLoadTrack, f.initialize(nullptr, nullptr, true));
  EXPECT_EQ(hex("434B445F58564F4C"), readFileBytes(p, 0, 8));  // stamped before the load
  EXPECT_EQ(hex("00 0000 0003"), slice(slotOf(p, kSlot, 15, 0, 3), 0, 5));  // not overwritten
  f.trackDirty = 0;
}

}  // namespace
