// initialize, format_labels and format_vtoc against hand-written bytes.
#include <fcntl.h>
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

// Records 1 to 3 of track 0/0 (IPL1, IPL2, VOL1), 284 bytes from offset 21.
Bytes labelRecords() {
  return cat({
      hex("0000 0000 01 04 0018"),  // R1 count: CC 0 HH 0 R 1 KL 4 DL 24
      hex("C9D7D3F1"),              // key "IPL1"
      hex("000A0000 0000000F 03000000 00000001"), repeat(0, 8),
      hex("0000 0000 02 04 0090"),  // R2 count: KL 4 DL 144
      hex("C9D7D3F2"), repeat(0, 144),  // key "IPL2", zero data
      hex("0000 0000 03 04 0050"),  // R3 count: KL 4 DL 80
      hex("E5D6D3F1"),              // key "VOL1"
      hex("E5D6D3F1"),              // data 0-3: "VOL1"
      hex("F0E7F0F1F2F3"),          // 4-9: serial "0X0123"
      hex("40"),                    // 10: security
      hex("0000 0001 01"),          // 11-15: VTOC at CC 0, HH 1, R 1
      repeat(0x40, 64),             // 16-79: blanks
  });
}

// The Format-4 DSCB of a D600 volume of `cyls` cylinders (<= 65520), model 1 to 3.
Bytes format4(uint16_t cyls) {
  return cat({
      repeat(0x04, 44),                    // 0-43 key
      hex("F4"),                           // 44 format identifier
      repeat(0, 5),                        // 45-49 last DSCB
      hex("000A"),                         // 50-51 DSCB count 10
      repeat(0, 6),                        // 52-57 alternate tracks
      hex("00"),                           // 58 VTOC indicator
      hex("01"),                           // 59 VTOC extents
      repeat(0, 2),                        // 60-61
      be(cyls, 2),                         // 62-63 cylinders
      hex("000F"),                         // 64-65 tracks per cylinder
      hex("DE00"),                         // 66-67 track length 56832
      repeat(0, 3),                        // 68-70 overheads
      hex("30"),                           // 71 device flag 1
      repeat(0, 2),                        // 72-73 tolerance
      hex("0C"),                           // 74 DSCBs per track 12
      repeat(0, 30),                       // 75-104
      hex("01 00 0000 0001 0000 0001"),    // 105-114 VTOC extent: type 1, seq 0, 0/1 to 0/1
      repeat(0, 10),                       // 115-124
      hex("07"),                           // 125 free-space management level
      hex("0000 0001 03"),                 // 126-130 extended free space: 0/1 record 3
      hex("00"),                           // 131
      be(cyls, 4),                         // 132-135 extended cylinder count
      repeat(0, 2),                        // 136-137
      hex("40"),                           // 138 device flag 2
      hex("00"),                           // 139
  });
}

// The twelve VTOC records from offset 21 of track 0/1: count CC 0 HH 1 R n KL 44 DL 96, then 140 bytes.
Bytes vtocRecords(const Bytes& d1, const Bytes& d2, const Bytes& d3) {
  Bytes out;
  for (unsigned char n = 1; n <= 12; ++n) {
    out = cat({out, hex("0000 0001"), {n}, hex("2C 0060"), n == 1 ? d1 : n == 2 ? d2 : n == 3 ? d3 : repeat(0, 140)});
  }
  return out;
}

// DSCB `n` (140 bytes) out of format_vtoc for a type and cylinder count.
Bytes vtocDscb(T::CKDtype type, unsigned cylinders, int n) {
  T f;
  EXPECT_TRUE(f.setType(type));
  f.setCylinders(cylinders);
  Bytes buf(1776, 0xEE);
  unsigned char* p = buf.data();
  f.format_vtoc(p);
  EXPECT_EQ(buf.data() + 1776, p);
  return Bytes(buf.begin() + (n - 1) * 148 + 8, buf.begin() + n * 148);
}
Bytes slice(const Bytes& b, size_t from, size_t to) { return Bytes(b.begin() + from, b.begin() + to); }

TEST(FormatVtoc, LabelsAndDscbs) {
  T f;
  ASSERT_TRUE(f.setType(T::D600));
  f.setCylinders(2);
  Bytes buf(400, 0xEE);
  unsigned char* p = buf.data() + 21;
  f.format_labels(p);
  EXPECT_EQ(buf.data() + 305, p);
  EXPECT_EQ(cat({repeat(0xEE, 21), labelRecords(), repeat(0xEE, 95)}), buf);

  const Bytes format5 = cat({
      hex("05050505"),  // 0-3 key
      hex("0002"),      // 4-5 first free relative track 2
      hex("0001"),      // 6-7 cylinders - 1
      hex("0D"),        // 8 tracks 13
      repeat(0, 35),    // 9-43
      hex("F5"),        // 44 format identifier
      repeat(0, 95),    // 45-139
  });
  buf.assign(1800, 0xEE);
  p = buf.data();
  f.format_vtoc(p);
  EXPECT_EQ(cat({vtocRecords(format4(2), format5, repeat(0, 140)), repeat(0xEE, 24)}), buf);

  // Models above 3 get a Format-7 DSCB as record 3 and the VTOC indicator A0.
  const Bytes format7 = cat({
      hex("07070707"),  // 0-3 key
      hex("00000002"),  // 4-7 extent start: relative track 2
      hex("00024AEF"),  // 8-11 extent end: 15 * 10017 = 150255 tracks
      repeat(0, 32),    // 12-43
      hex("F7"),        // 44 format identifier
      repeat(0, 95),    // 45-139
  });
  EXPECT_EQ(format7, vtocDscb(T::D600, 10017, 3));
  EXPECT_EQ(hex("A0 01 0000 2721"), slice(vtocDscb(T::D600, 10017, 1), 58, 64));  // indicator, extents, cylinders
  EXPECT_EQ(hex("07070707 00000002 00001050"), slice(vtocDscb(T::D400, 348, 3), 0, 12));  // model 35: 12 * 348
  struct Case { T::CKDtype type; unsigned cyls; unsigned char fmt7, indicator; };
  const Case cases[] = {{T::D600, 3339, 0, 0}, {T::D600, 10016, 0, 0}, {T::D400, 700, 0xF7, 0xA0},
                        {T::D300, 405, 0xF7, 0xA0}, {T::D300, 404, 0, 0}, {T::D130, 200, 0, 0},
                        {T::D500, 2655, 0, 0}, {T::D100, 49, 0, 0}};
  for (const Case& c : cases) {
    EXPECT_EQ(c.fmt7, vtocDscb(c.type, c.cyls, 3)[44]) << std::hex << c.type << std::dec << " " << c.cyls;
    EXPECT_EQ(c.indicator, vtocDscb(c.type, c.cyls, 1)[58]) << std::hex << c.type << std::dec << " " << c.cyls;
  }
  EXPECT_EQ(repeat(0, 140), vtocDscb(T::D600, 10016, 3));

  // Large volumes: cylinders FFFE and the count in the extended field.
  const Bytes f4 = vtocDscb(T::D600, 65667, 1);
  EXPECT_EQ(hex("FFFE"), slice(f4, 62, 64));
  EXPECT_EQ(hex("00010083"), slice(f4, 132, 136));
  EXPECT_EQ(hex("0082"), slice(vtocDscb(T::D600, 65667, 2), 6, 8));  // low 16 bits of 65666
  EXPECT_EQ(hex("000F07AD"), slice(vtocDscb(T::D600, 65667, 3), 8, 12));
  EXPECT_EQ(hex("FFF0"), slice(vtocDscb(T::D600, 65520, 1), 62, 64));
}

struct Progress { uint32_t type; unsigned cell, cyl, head; bool operator==(const Progress& o) const {
  return type == o.type && cell == o.cell && cyl == o.cyl && head == o.head; } };
void record(void* context, T::CKDtype type, unsigned short cell, unsigned int cyl, unsigned int head) {
  static_cast<std::vector<Progress>*>(context)->push_back({type, cell, cyl, head});
}

// A track of fillers `from`..`to` (KL 0, DL 4096) after `front`, then the marker.
Bytes fillerSlot(TrackImage t, unsigned cyl, unsigned head, int from, int to, size_t slot) {
  for (int n = from; n <= to; ++n) t.record(cyl, head, static_cast<uint8_t>(n), {}, 4096);
  return t.marker().slot(slot);
}

TEST(Initialize, FullFormatD600) {
  ScopedTempDir dir;
  const std::string p = dir.file("v");
  std::vector<Progress> progress;
  T f;
  ASSERT_EQ(0, f.create(p.c_str(), T::D600, 2));
  ASSERT_EQ(0, f.initialize(record, &progress, true));
  EXPECT_EQ(3, f.formatLevel);
  EXPECT_TRUE(f.currentCyl == 0 && f.currentHead == 0 && f.currentCell == 0);  // track 0/0 loaded
  EXPECT_EQ((std::vector<Progress>{{0xD600, 0, 1, 0}, {0xD600, 0, 2, 0}}), progress);
  EXPECT_EQ(static_cast<long long>(slotAt(2, 0)), fileSize(p));
  EXPECT_EQ(hex("434B445F58564F4C"  // "CKD_XVOL"
                "0F000000 00DE0000 AA 03 02000000 02000000"), readAt(p, 0, 26));

  // 0/0: IPL1, IPL2, VOL1, fillers 4 to 12; 0/1: the VTOC; the rest fillers 1 to 12.
  const Bytes s00 = fillerSlot(TrackImage(0, 0).record(0, 0, 0, {}, 8).raw(labelRecords()), 0, 0, 4, 12, kSlot);
  const Bytes format5 = cat({hex("05050505 0002 0001 0D"), repeat(0, 35), hex("F5"), repeat(0, 95)});
  const Bytes s01 = TrackImage(0, 1).record(0, 1, 0, {}, 8).raw(vtocRecords(format4(2), format5, repeat(0, 140))).marker().slot(kSlot);
  EXPECT_EQ(s00, readAt(p, slotAt(0, 0), kSlot));
  EXPECT_EQ(0xFF, s00[37241]);  // marker after the last filler
  EXPECT_EQ(s01, readAt(p, slotAt(0, 1), kSlot));
  for (unsigned t = 2; t < 30; ++t) {
    const unsigned c = t / 15, h = t % 15;
    if (t == 15 || t == 16) continue;
    EXPECT_EQ(fillerSlot(TrackImage(c, h).record(c, h, 0, {}, 8), c, h, 1, 12, kSlot), readAt(p, slotAt(c, h), kSlot)) << t;
  }
  // Cylinder 1, tracks 0 and 1: the fillers' data areas carry what cylinder 0 had there.
  for (unsigned h = 0; h < 2; ++h) {
    Bytes want = h == 0 ? s00 : s01;
    const Bytes front = fillerSlot(TrackImage(1, h).record(1, h, 0, {}, 8), 1, h, 1, 12, kSlot);
    for (unsigned n = 0; n < 12; ++n) std::copy_n(front.begin() + 21 + n * 4104, 8, want.begin() + 21 + n * 4104);
    std::copy_n(front.begin(), 21, want.begin());
    std::fill_n(want.begin() + 49269, 8, 0xFF);
    EXPECT_EQ(want, readAt(p, slotAt(1, h), kSlot)) << h;
  }
}

TEST(Initialize, OtherTypesAndBareFormat) {
  ScopedTempDir dir;
  struct Case { T::CKDtype type; bool full; size_t slot; unsigned heads; int fillers; };
  const Case cases[] = {{T::D600, false, 56832, 15, 0}, {T::D100, true, 14848, 8, 3},
                        {T::D130, true, 4096, 10, 0}, {T::D160, true, 7680, 20, 1}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.type);
    const std::string p = dir.file(std::to_string(c.type));
    {
      T f;
      ASSERT_EQ(0, f.create(p.c_str(), c.type, 2));
      ASSERT_EQ(0, f.initialize(nullptr, nullptr, c.full));
    }
    EXPECT_EQ(hex("434B445F58564F4C"), readAt(p, 0, 8));
    for (unsigned h = 0; h < c.heads; ++h) {
      TrackImage t(0, h);
      t.record(0, h, 0, {}, 8);
      if (c.full && h == 0) t.raw(labelRecords());  // no fillers after the labels
      if (c.full && h == 1) t.raw(vtocRecords(repeat(0, 140), repeat(0, 140), repeat(0, 140)));
      const Bytes want = fillerSlot(t, 0, h, 1, c.full && h > 1 ? c.fillers : 0, c.slot);
      const Bytes got = readAt(p, 512 + h * c.slot, c.slot);
      if (c.full && h == 1) {
        EXPECT_EQ(0xFF, got.at(1797)) << h;  // the marker behind 12 DSCBs
      } else {
        EXPECT_EQ(want, got) << h;
      }
    }
  }
}

TEST(Initialize, Failures) {
  ScopedTempDir dir;
  T typed;
  EXPECT_EQ(-3, T().initialize(nullptr, nullptr, true));  // codes by value: -3 no first slot offset
  ASSERT_TRUE(typed.setType(T::D600));
  EXPECT_EQ(-3, typed.initialize(nullptr, nullptr, true));
  int fds[2];  // a descriptor that cannot be positioned
  ASSERT_EQ(0, ::pipe(fds));
  typed.fileDescriptor = fds[1];
  EXPECT_EQ(-4, typed.initialize(nullptr, nullptr, true));  // -4 positioning
  typed.fileDescriptor = -1;
  ::close(fds[0]), ::close(fds[1]);

  const std::string p = dir.file("v");
  T f;
  ASSERT_EQ(0, f.create(p.c_str(), T::D600, 2));
  const int rw = f.fileDescriptor;
  std::vector<Progress> progress;
  f.fileDescriptor = ::open(p.c_str(), O_RDONLY);  // cylinder writes refused
  EXPECT_EQ(-1, f.initialize(record, &progress, true));  // -1 cylinder write
  EXPECT_TRUE(progress.empty());
  ::close(f.fileDescriptor);
  f.fileDescriptor = ::open(p.c_str(), O_WRONLY);  // the header cannot be read back
  EXPECT_EQ(-5, f.initialize(record, &progress, true));  // -5 header read
  EXPECT_EQ(2u, progress.size());  // after every cylinder
  ::close(f.fileDescriptor);
  f.fileDescriptor = rw;
  EXPECT_EQ(hex("434B445F494E4954"), readAt(p, 0, 8));  // still "CKD_INIT"
  EXPECT_EQ(static_cast<long long>(slotAt(2, 0)), fileSize(p));

  // A changed current track that fails verification cannot be written back before 0/0 is loaded.
  std::memset(f.trackBuffer, 0xAB, f.trackSlotSize);
  f.currentCyl = 0, f.currentHead = 3, f.currentCell = 0;
  f.trackDirty = f.verifyTracks = 1;
  EXPECT_EQ(-7, f.initialize(nullptr, nullptr, true));  // -7 load of 0/0
  EXPECT_EQ(hex("434B445F58564F4C"), readAt(p, 0, 8));  // stamped before the load
  EXPECT_EQ(hex("00 0000 0003"), readAt(p, slotAt(0, 3), 5));
  f.trackDirty = 0;
}

}  // namespace
