// Device table, models, slot offsets, the track-address step and the reference accessors.
#include <cstring>
#include <vector>

#include <gtest/gtest.h>

#include "ckdfile/emulated_ckd_file.h"
#include "support/temp_dir.h"
#include "support/track_builder.h"

namespace {

using T = EmulatedCKDfile;
using namespace ckdvol_test;

TEST(DeviceTable, EveryRowAndTheIdleState) {
  struct Row { uint32_t type; unsigned char code; unsigned cyls, heads, slot, capacity, cells, model; };
  const Row rows[] = {
      {0xD100, 0xA1, 48, 8, 14848, 14660, 1, 1},    {0xD130, 0xA2, 200, 10, 4096, 3625, 1, 0},
      {0xD160, 0xA3, 200, 20, 7680, 7294, 1, 0},    {0xD200, 0xA4, 5, 20, 2560, 2000, 10, 0},
      {0xD300, 0xA5, 404, 19, 13312, 13030, 1, 1},  {0xD400, 0xA6, 348, 12, 8704, 8368, 1, 35},
      {0xD430, 0xA7, 555, 30, 19456, 19069, 1, 0},  {0xD460, 0xA8, 959, 12, 35840, 35616, 1, 0},
      {0xD500, 0xA9, 885, 15, 47616, 47476, 1, 1},  {0xD600, 0xAA, 1113, 15, 56832, 56664, 1, 1},
      {0xD700, 0xAB, 1440, 15, 46592, 46456, 1, 1},
  };
  for (int i = 0; i < 11; ++i) {
    const Row& r = rows[i];
    T f;  // the members init() leaves alone start at 0
    EXPECT_EQ(0u, f.trackCapacity + f.headerCylinders + static_cast<unsigned>(f.latestVersion));
    ASSERT_TRUE(f.setType(T::CKDtype(r.type)));
    const T::DeviceInfo* byCode = T::findDeviceByFileCode(r.code);
    EXPECT_EQ((std::vector<unsigned>{r.type, r.type, r.cyls, r.heads, r.slot, r.capacity, r.cells, r.model}),
              (std::vector<unsigned>{T::deviceTable[i].type, byCode ? byCode->type : 0, f.cylinders,
                                     f.tracksPerCylinder, f.trackSlotSize, f.trackCapacity, f.cellCount, f.model}))
        << std::hex << r.type;  // the table's fixed order, the file code, the geometry
    EXPECT_TRUE(f.fileDescriptor == -1 && f.currentCyl == 0xFFFFFFFFu) << std::hex << r.type;
  }
  EXPECT_TRUE(T::deviceTable[11].type == 0 && !T::findDevice(0) && !T::findDevice(0xD650));  // the closing row
  EXPECT_TRUE(!T::findDeviceByFileCode(0) && !T::findDeviceByFileCode(0xAC));  // is no match
  T f;  // unknown types leave the object idle; a typed object is never retyped
  EXPECT_FALSE(f.setType(T::CKDtype(0xD650)));
  ASSERT_TRUE(f.setType(T::D500));
  f.setCylinders(1000);
  EXPECT_TRUE(!f.setType(T::D600) && f.setType(T::D500) && f.cylinders == 1000);
}

TEST(SetModel, BoundsAndLargeCylinders) {
  struct Case { uint32_t type; unsigned cyls; unsigned short model; unsigned char large; };
  const Case cases[] = {
      {0xD600, 1113, 1, 0}, {0xD600, 1114, 2, 0},   {0xD600, 2226, 2, 0},   {0xD600, 2227, 3, 0},
      {0xD600, 10016, 3, 0}, {0xD600, 10017, 9, 0}, {0xD600, 65520, 9, 0},  {0xD600, 65521, 9, 1},
      {0xD100, 48, 1, 0},   {0xD100, 49, 2, 0},     {0xD300, 404, 1, 0},    {0xD300, 405, 11, 0},
      {0xD400, 348, 35, 0}, {0xD400, 349, 70, 0},   {0xD500, 885, 1, 0},    {0xD500, 886, 2, 0},
      {0xD500, 1770, 2, 0}, {0xD500, 1771, 3, 0},   {0xD700, 1440, 1, 0},   {0xD700, 1441, 2, 0},
      {0xD130, 999, 0, 0},  {0xD460, 5000, 0, 0},
  };
  for (const Case& c : cases) {
    T f;
    ASSERT_TRUE(f.setType(T::CKDtype(c.type)));
    f.setCylinders(c.cyls);
    EXPECT_EQ((std::vector<int>{c.model, c.large, c.large}), (std::vector<int>{f.model, f.largeCylinders, f.extendedVolume}))
        << std::hex << c.type << std::dec << " " << c.cyls;
  }
  T f;  // only init clears the flags; it leaves latestVersion alone
  ASSERT_TRUE(f.setType(T::D600));
  f.setCylinders(70000), f.setCylinders(100);
  EXPECT_EQ(1, f.largeCylinders);
  f.latestVersion = 7, f.readOnly = 1;
  f.init(true);
  EXPECT_EQ((std::vector<int>{0, 0, 0, -1, 7}),
            (std::vector<int>{f.largeCylinders, f.extendedVolume, f.readOnly, f.activeVersion, f.latestVersion}));
}

// Slot offsets and the address step, on header-only volumes (offsets need a descriptor).
TEST(Offsets, D600AndD200ThreeCoordinates) {
  ScopedTempDir dir;
  T big, d600, d200;
  ASSERT_EQ(0, big.create(dir.file("big").c_str(), T::D600, 262668));  // 236 x 1113: 64-bit offsets
  ASSERT_EQ(0, d600.create(dir.file("d600").c_str(), T::D600, 1113));
  ASSERT_EQ(0, d200.create(dir.file("d200").c_str(), T::D200, 5));
  struct Case { T* f; unsigned cyl, head, cell; bool check; long long index; };  // index -1: refused (-2)
  const Case cases[] = {
      {&d600, 0, 0, 0, true, 0}, {&d600, 1, 2, 0, true, 17}, {&d600, 1112, 14, 0, true, 1112 * 15 + 14},
      {&d600, 1113, 0, 0, true, -1}, {&d600, 0, 15, 0, true, -1}, {&d600, 0, 0, 1, true, -1},
      {&d600, 0, 0, 7, false, 0}, {&big, 262667, 14, 0, true, 262667LL * 15 + 14},
      // D200: index = cell*20000 + CChigh*1000 + CClow*100 + HHhigh*20 + HHlow
      {&d200, 0x1309, 0x0413, 9, true, 199999}, {&d200, 0x0102, 0x0304, 1, true, 21264},
      {&d200, 0x000A, 0, 0, true, -1}, {&d200, 0x1400, 0, 0, true, -1}, {&d200, 0, 0x0014, 0, true, -1},
      {&d200, 0, 0x0500, 0, true, -1}, {&d200, 0, 0, 10, true, -1},
  };
  for (const Case& c : cases) {
    const long long want = c.index < 0 ? -2 : 512 + c.index * c.f->trackSlotSize;
    EXPECT_EQ(want, c.f->getOffset(c.cyl, c.head, c.cell, c.check)) << c.cyl << "/" << c.head << "/" << c.cell;
  }
  T none;  // no file: -1
  ASSERT_TRUE(none.setType(T::D600));
  EXPECT_EQ((std::vector<long long>{512 + 1113LL * 15 * 56832, 512 + 262668LL * 15 * 56832, 512 + 200000LL * 2560, -1}),
            (std::vector<long long>{d600.getMaxOffset(), big.getMaxOffset(), d200.getMaxOffset(), none.getMaxOffset()}));

  // Stepping from the first track visits every slot in file order, then reports the end.
  for (T* f : {&d200, &d600}) {
    unsigned short cell = 0, head = 0;
    unsigned int cyl = 0;
    long long expected = 512, steps = 0;  // the end: getMaxOffset
    for (bool beyond = false; !beyond; ++steps, expected += f->trackSlotSize) {
      ASSERT_EQ(expected, f->getOffset(cyl, head, cell, true)) << steps;
      beyond = f->increment(cell, cyl, head);
    }
    EXPECT_TRUE(f->getMaxOffset() == expected && steps == (f == &d200 ? 200000 : 16695));
  }
}

// HA 7/3, R0 (DL 8) @5, R1 (KL 4, DL 80) @21, marker @113; every accessor at
// every kind of place.
TEST(Refs, AccessorsAtEveryPlace) {
  T f;
  ASSERT_TRUE(f.setType(T::D600));
  const long s = f.trackSlotSize;
  const TrackImage img = TrackImage(7, 3).record(7, 3, 0, {}, 8).record(7, 3, 1, repeat(0xC1, 4), 80, {}, 0x5A).marker();
  Bytes slot = img.slot(s);
  std::memcpy(slot.data() + s - 8, hex("0002 0001 09 00 0004").data(), 8);  // a count in the trailer
  std::memcpy(f.trackBuffer, slot.data(), s);
  auto at = [&](long off) { return static_cast<const void*>(f.trackBuffer + off); };
  struct Case { long off; int type, cc, hh, r, kl, dl; long key, data; bool count; };
  const Case cases[] = {  // key/data: offset handed out, -1 null
      {0, T::ORIENT_HA, 7, 3, -1, -1, -1, -1, -1, false},
      {5, T::ORIENT_COUNT, 7, 3, 0, 0, 8, -1, 13, true},
      {21, T::ORIENT_COUNT, 7, 3, 1, 4, 80, 29, 33, true},
      {113, T::ORIENT_EOT, -1, -1, -1, -1, -1, -1, -1, false},
      {6, 0, 1792, 768, 0, 0, 2048, -1, 14, true},  // inside a count field: decoded, but no place
      {s - 16, T::ORIENT_END, 0, 0, 0, 0, 0, -1, -1, false},
      {s - 8, 0, 2, 1, 9, 0, 4, -1, -1, false},  // count readers reach the last 8 bytes
      {s - 7, 0, -1, -1, -1, -1, -1, -1, -1, false},
      {s, 0, -1, -1, -1, -1, -1, -1, -1, false},
      {-1, 0, -1, -1, -1, -1, -1, -1, -1, false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.off);
    const void* ref = at(c.off);
    EXPECT_EQ((std::vector<int>{c.type, c.cc, c.hh, c.r, c.kl, c.dl}),
              (std::vector<int>{f.getRefType(ref), f.getRefCC(ref), f.getRefHH(ref), f.getRefR(ref), f.getRefKL(ref), f.getRefDL(ref)}));
    EXPECT_TRUE(f.getRefKey(ref) == (c.key < 0 ? nullptr : f.trackBuffer + c.key) &&
                f.getRefData(ref) == (c.data < 0 ? nullptr : f.trackBuffer + c.data));
    int v[5] = {11, 11, 11, 11, 11};
    EXPECT_EQ(c.count, f.getRefCount(ref, v[0], v[1], v[2], v[3], v[4]));
    EXPECT_EQ((c.count ? std::vector<int>{c.cc, c.hh, c.r, c.kl, c.dl} : std::vector<int>(5, 11)), std::vector<int>(v, v + 5));
  }
  int v = 0;
  EXPECT_TRUE(f.getRefType(nullptr) == 0 && f.getRefCount(at(s - 17), v, v, v, v, v) && !f.getRefCount(at(s - 16), v, v, v, v, v));

  // Key and data are handed out while they end inside the buffer, into the trailer included.
  struct Area { long off; const char* count; long key, data; };
  const Area areas[] = {
      {s - 40, "0000 0000 01 04 0014", s - 32, s - 28},  // ends at s - 8
      {s - 40, "0000 0000 01 FF 0000", -1, -1},          // 255-byte key: past the buffer
      {s - 17, "0000 0000 01 09 0000", s - 9, -1},       // key ends at s exactly
      {s - 17, "0000 0000 01 0A 0000", -1, -1},          // one byte more
      {s - 17, "0000 0000 01 00 0009", -1, s - 9},       // data ends at s exactly
      {s - 17, "0000 0000 01 00 000A", -1, -1},
      {s - 17, "0000 0000 01 01 0008", s - 9, s - 8},    // key and data end at s
      {s - 17, "0000 0000 01 01 0009", s - 9, -1},       // the data one byte more
  };
  for (const Area& a : areas) {
    std::memcpy(f.trackBuffer + a.off, hex(a.count).data(), 8);
    EXPECT_TRUE(f.getRefKey(at(a.off)) == (a.key < 0 ? nullptr : f.trackBuffer + a.key) &&
                f.getRefData(at(a.off)) == (a.data < 0 ? nullptr : f.trackBuffer + a.data)) << a.count;
  }

  // The walk of getRefType stops at the record area's end (s - 24).
  std::memcpy(f.trackBuffer, img.slot(s).data(), s);
  f.trackBuffer[113] = 0;  // no marker; R1 now ends at s - 25
  std::memcpy(f.trackBuffer + 27, be(s - 25 - 33, 2).data(), 2);
  EXPECT_TRUE(f.getRefType(at(s - 25)) == T::ORIENT_COUNT && f.getRefType(at(s - 24)) == 0);
  f.trackBuffer[27] = f.trackBuffer[28] = 0xFF;
  EXPECT_EQ(0, f.getRefType(at(s - 25)));

  f.setCylinders(70000);  // large cylinders decode through the references too
  std::memcpy(f.trackBuffer + 21, hex("86A0 0015").data(), 4);
  EXPECT_EQ(100000 << 4 | 5, f.getRefCC(at(21)) << 4 | f.getRefHH(at(21)));
  T idle;
  EXPECT_TRUE(idle.getRefType(f.trackBuffer) == 0 && idle.getRefCC(f.trackBuffer) == -1);
}

}  // namespace
