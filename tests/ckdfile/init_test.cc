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
  return cat({hex("0000 0000 01 04 0018 C9D7D3F1"),  // R1 count: CC 0 HH 0 R 1 KL 4 DL 24, key "IPL1"
              hex("000A0000 0000000F 03000000 00000001"), repeat(0, 8),
              hex("0000 0000 02 04 0090 C9D7D3F2"), repeat(0, 144),  // R2: KL 4 DL 144, key "IPL2", zero data
              hex("0000 0000 03 04 0050 E5D6D3F1"),  // R3: KL 4 DL 80, key "VOL1"; data:
              hex("E5D6D3F1 F0E7F0F1F2F3 40 0000000101"),  // "VOL1", serial "0X0123", security, VTOC at 0/1 R1
              repeat(0x40, 64)});                          // 16-79: blanks
}

// The Format-4 DSCB of a D600 volume of `cyls` cylinders (<= 65520), model 1 to 3.
Bytes format4(uint16_t cyls) {
  return cat({repeat(0x04, 44),                                    // 0-43 key
              hex("F4 0000000000 000A 000000000000 00 01 0000"),   // 44 id, last DSCB, 10 DSCBs, alt, indicator, 1 extent
              be(cyls, 2), hex("000F DE00 000000 30 0000 0C"),     // 62 cylinders, 15 heads, 56832, overheads, flag, 12/track
              repeat(0, 30), hex("01 00 0000 0001 0000 0001"),     // 75-104, 105 VTOC extent: type 1, 0/1 to 0/1
              repeat(0, 10), hex("07 0000000103 00"), be(cyls, 4),  // 125 free-space level 7, 0/1 R3, 132 cylinders
              hex("0000 40 00")});                                 // 136-137, 138 device flag 2, 139
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

  // Format 5: key, first free relative track 2, cylinders - 1, tracks 13; 44 format identifier.
  const Bytes format5 = cat({hex("05050505 0002 0001 0D"), repeat(0, 35), hex("F5"), repeat(0, 95)});
  buf.assign(1800, 0xEE);
  p = buf.data();
  f.format_vtoc(p);
  EXPECT_EQ(cat({vtocRecords(format4(2), format5, repeat(0, 140)), repeat(0xEE, 24)}), buf);

  // Models above 3 get a Format-7 DSCB as record 3 and the VTOC indicator A0.
  // Format 7: key, extent from relative track 2 to 15 * 10017 = 150255; 44 format identifier.
  const Bytes format7 = cat({hex("07070707 00000002 00024AEF"), repeat(0, 32), hex("F7"), repeat(0, 95)});
  EXPECT_EQ(format7, vtocDscb(T::D600, 10017, 3));
  EXPECT_EQ(hex("A0 01 0000 2721"), slice(vtocDscb(T::D600, 10017, 1), 58, 64));  // indicator, extents, cylinders
  EXPECT_EQ(hex("07070707 00000002 00001050"), slice(vtocDscb(T::D400, 348, 3), 0, 12));  // model 35: 12 * 348
  struct Case { T::CKDtype type; unsigned cyls; unsigned char fmt7, indicator; };
  const Case cases[] = {{T::D600, 3339, 0, 0}, {T::D600, 10016, 0, 0}, {T::D400, 700, 0xF7, 0xA0},
                        {T::D300, 405, 0xF7, 0xA0}, {T::D300, 404, 0, 0}, {T::D130, 200, 0, 0},
                        {T::D500, 2655, 0, 0}, {T::D100, 49, 0, 0}};
  for (const Case& c : cases) {
    EXPECT_TRUE(c.fmt7 == vtocDscb(c.type, c.cyls, 3)[44] && c.indicator == vtocDscb(c.type, c.cyls, 1)[58]) << std::hex << c.type << std::dec << " " << c.cyls;
  }
  EXPECT_EQ(repeat(0, 140), vtocDscb(T::D600, 10016, 3));

  // Large volumes: cylinders FFFE and the count in the extended field.
  const Bytes f4 = vtocDscb(T::D600, 65667, 1);
  EXPECT_EQ(hex("FFFE 00010083"), cat({slice(f4, 62, 64), slice(f4, 132, 136)}));
  EXPECT_EQ(hex("0082"), slice(vtocDscb(T::D600, 65667, 2), 6, 8));  // low 16 bits of 65666
  EXPECT_EQ(hex("000F07AD"), slice(vtocDscb(T::D600, 65667, 3), 8, 12));
  EXPECT_EQ(hex("FFF0"), slice(vtocDscb(T::D600, 65520, 1), 62, 64));
}

struct Progress { uint32_t type; unsigned cell, cyl, head; bool operator==(const Progress& o) const {
  return type == o.type && cell == o.cell && cyl == o.cyl && head == o.head; } };
void record(void* context, T::CKDtype type, unsigned short cell, unsigned int cyl, unsigned int head) {
  static_cast<std::vector<Progress>*>(context)->push_back({type, cell, cyl, head});
}

TEST(Initialize, Failures) {
  ScopedTempDir dir;
  T typed;
  ASSERT_TRUE(typed.setType(T::D600));  // codes by value: -3 no first slot offset
  EXPECT_TRUE(T().initialize(nullptr, nullptr, true) == -3 && typed.initialize(nullptr, nullptr, true) == -3);
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
  EXPECT_TRUE(f.initialize(record, &progress, true) == -1 && progress.empty());  // -1 cylinder write
  ::close(f.fileDescriptor);
  f.fileDescriptor = ::open(p.c_str(), O_WRONLY);  // the header cannot be read back
  EXPECT_TRUE(f.initialize(record, &progress, true) == -5 && progress.size() == 2);  // -5 header read, after 2 cylinders
  ::close(f.fileDescriptor);
  f.fileDescriptor = rw;
  EXPECT_TRUE(hex("434B445F494E4954") == readAt(p, 0, 8) && fileSize(p) == static_cast<long long>(slotAt(2, 0)));  // still "CKD_INIT"

  // A changed current track that fails verification cannot be written back before 0/0 is loaded.
  std::memset(f.trackBuffer, 0xAB, f.trackSlotSize);
  f.currentCyl = 0, f.currentHead = 3, f.currentCell = 0, f.trackDirty = f.verifyTracks = 1;
  EXPECT_EQ(-7, f.initialize(nullptr, nullptr, true));  // -7 load of 0/0
  EXPECT_EQ(hex("434B445F58564F4C"), readAt(p, 0, 8));  // stamped before the load
  EXPECT_EQ(hex("00 0000 0003"), readAt(p, slotAt(0, 3), 5));
  f.trackDirty = 0;
}

}  // namespace
