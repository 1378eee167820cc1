#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "ckdfile/emulated_ckd_file.h"
#include "support/temp_dir.h"

namespace {

using T = EmulatedCKDfile;

// An object holding a freshly created volume (a header-only file is enough
// for offsets and for work on the track buffer).
class Volume {
 public:
  Volume(T::CKDtype type, int cylinders) {
    EXPECT_EQ(T::kCreateOk, f.create(dir_.file("v.ckd").c_str(), type, cylinders));
    std::memset(f.trackBuffer, 0, f.trackSlotSize);
  }

 private:
  ckdvol_test::ScopedTempDir dir_;  // outlives f

 public:
  T f;
};

TEST(Codec, HomeAddressAndCountFieldBytes) {
  T f;
  ASSERT_TRUE(f.setType(T::D600));
  unsigned char buf[16];
  std::memset(buf, 0xEE, sizeof buf);
  unsigned char* p = buf;
  f.putHA(p, 0, 1, 2);
  EXPECT_EQ(buf + 5, p);
  f.putCount(p, 0x1234, 5, 3, 4, 300);
  EXPECT_EQ(buf + 13, p);
  const unsigned char expected[14] = {
      0x00, 0x00, 0x01, 0x00, 0x02,              // HA: flag, CC 1, HH 2
      0x12, 0x34, 0x00, 0x05, 0x03, 0x04, 0x01, 0x2C,  // CC, HH 5, R 3, KL 4, DL 300
      0xEE,                                      // untouched
  };
  EXPECT_EQ(0, std::memcmp(expected, buf, sizeof expected));

  const unsigned char* q = buf;
  unsigned char flag = 9;
  unsigned int cyl = 0, head = 0;
  f.getHA(q, flag, cyl, head);
  EXPECT_EQ(buf + 5, q);
  EXPECT_EQ(0, flag);
  EXPECT_EQ(1u, cyl);
  EXPECT_EQ(2u, head);
  unsigned short r = 0, kl = 0, dl = 0;
  f.getCount(q, cyl, head, r, kl, dl);
  EXPECT_EQ(buf + 13, q);
  EXPECT_EQ(0x1234u, cyl);
  EXPECT_EQ(5u, head);
  EXPECT_EQ(3, r);
  EXPECT_EQ(4, kl);
  EXPECT_EQ(300, dl);
}

TEST(Codec, LargeCylinderEncoding) {
  T f;
  ASSERT_TRUE(f.setType(T::D600));
  unsigned char buf[8];
  unsigned char* p = buf;
  f.putCount(p, 100000, 5, 1, 0, 0);  // flag clear: HH is the head, CC the low bits
  EXPECT_EQ(0x86, buf[0]);
  EXPECT_EQ(0xA0, buf[1]);
  EXPECT_EQ(0x00, buf[2]);
  EXPECT_EQ(0x05, buf[3]);

  f.setCylinders(70000);
  ASSERT_EQ(1, f.largeCylinders);
  p = buf;
  f.putCount(p, 100000, 5, 1, 0, 0);
  const unsigned char expected[8] = {0x86, 0xA0, 0x00, 0x15, 0x01, 0x00, 0x00, 0x00};  // CC, HH, R, KL, DL
  EXPECT_EQ(0, std::memcmp(expected, buf, 8));
  const unsigned char* q = buf;
  unsigned int cyl, head;
  unsigned short r, kl, dl;
  f.getCount(q, cyl, head, r, kl, dl);
  EXPECT_EQ(100000u, cyl);
  EXPECT_EQ(5u, head);

  p = buf;  // count fields use the large form even for small cylinders
  f.putCount(p, 3, 20, 1, 0, 0);
  EXPECT_EQ(0x00, buf[2]);
  EXPECT_EQ(0x04, buf[3]);  // 20 & 0xF

  p = buf;  // a home address of a small cylinder keeps the plain head
  f.putHA(p, 0, 65535, 20);
  const unsigned char ha[5] = {0x00, 0xFF, 0xFF, 0x00, 0x14};
  EXPECT_EQ(0, std::memcmp(ha, buf, 5));
  p = buf;
  f.putHA(p, 0, 0x0FFFFFFF, 14);  // the largest 28-bit cylinder
  const unsigned char haLarge[5] = {0x00, 0xFF, 0xFF, 0xFF, 0xFE};
  EXPECT_EQ(0, std::memcmp(haLarge, buf, 5));
  unsigned char flag;
  q = buf;
  f.getHA(q, flag, cyl, head);
  EXPECT_EQ(0x0FFFFFFFu, cyl);
  EXPECT_EQ(14u, head);

  T small;  // without the flag, HH 0x0015 is head 21
  ASSERT_TRUE(small.setType(T::D600));
  q = expected;
  small.getCount(q, cyl, head, r, kl, dl);
  EXPECT_EQ(0x86A0u, cyl);
  EXPECT_EQ(21u, head);
}

TEST(Offsets, D600) {
  Volume v(T::D600, 1113);
  T& f = v.f;
  EXPECT_EQ(512, f.getOffset(0, 0, 0, true));
  EXPECT_EQ(512 + 17LL * 56832, f.getOffset(1, 2, 0, true));
  EXPECT_EQ(512 + (1112LL * 15 + 14) * 56832, f.getOffset(1112, 14, 0, true));
  EXPECT_EQ(-2, f.getOffset(1113, 0, 0, true));
  EXPECT_EQ(-2, f.getOffset(0, 15, 0, true));
  EXPECT_EQ(-2, f.getOffset(0, 0, 1, true));
  EXPECT_EQ(512, f.getOffset(0, 0, 7, false));  // cell ignored unchecked
  EXPECT_EQ(f.getMaxOffset(), f.getOffset(1113, 0, 0, false));
  EXPECT_EQ(512 + 1113LL * 15 * 56832, f.getMaxOffset());
}

TEST(Offsets, LargeVolumeNeedsSixtyFourBits) {
  Volume v(T::D600, 262668);  // 236 x 1113
  EXPECT_EQ(512 + (262667LL * 15 + 14) * 56832, v.f.getOffset(262667, 14, 0, true));
  EXPECT_EQ(512 + 262668LL * 15 * 56832, v.f.getMaxOffset());
}

TEST(Offsets, D200) {
  Volume v(T::D200, 5);
  T& f = v.f;
  EXPECT_EQ(512, f.getOffset(0, 0, 0, true));
  EXPECT_EQ(512 + 199999LL * 2560, f.getOffset(0x1309, 0x0413, 9, true));
  EXPECT_EQ(512 + (20000LL + 1000 + 200 + 60 + 4) * 2560, f.getOffset(0x0102, 0x0304, 1, true));
  EXPECT_EQ(-2, f.getOffset(0x000A, 0, 0, true));
  EXPECT_EQ(-2, f.getOffset(0x1400, 0, 0, true));
  EXPECT_EQ(-2, f.getOffset(0, 0x0014, 0, true));
  EXPECT_EQ(-2, f.getOffset(0, 0x0500, 0, true));
  EXPECT_EQ(-2, f.getOffset(0, 0, 10, true));
  EXPECT_EQ(512 + 200000LL * 2560, f.getMaxOffset());
}

TEST(Offsets, NoFileGivesMinusOne) {
  T f;
  EXPECT_EQ(-1, f.getOffset(0, 0, 0, false));
  EXPECT_EQ(-1, f.getMaxOffset());
  ASSERT_TRUE(f.setType(T::D600));  // typed but no file
  EXPECT_EQ(-1, f.getOffset(0, 0, 0, true));
  EXPECT_EQ(-1, f.getMaxOffset());
}

TEST(Increment, D600Steps) {
  Volume v(T::D600, 1113);
  unsigned short cell = 0, head = 14;
  unsigned int cyl = 0;
  EXPECT_FALSE(v.f.increment(cell, cyl, head));
  EXPECT_EQ(1u, cyl);
  EXPECT_EQ(0, head);
  cyl = 1112;
  head = 14;
  EXPECT_TRUE(v.f.increment(cell, cyl, head));
  EXPECT_EQ(1113u, cyl);
  EXPECT_EQ(0, head);
  EXPECT_EQ(0, cell);
}

TEST(Increment, D200Steps) {
  Volume v(T::D200, 5);
  unsigned short cell = 0, head = 0x0413;
  unsigned int cyl = 0x1309;
  EXPECT_FALSE(v.f.increment(cell, cyl, head));
  EXPECT_EQ(0, head);
  EXPECT_EQ(0u, cyl);
  EXPECT_EQ(1, cell);
  cell = 9;
  head = 0x0413;
  cyl = 0x1309;
  EXPECT_TRUE(v.f.increment(cell, cyl, head));
  EXPECT_EQ(10, cell);
  head = 0x0013;  // head low byte wraps into the high byte
  cyl = 0;
  cell = 0;
  EXPECT_FALSE(v.f.increment(cell, cyl, head));
  EXPECT_EQ(0x0100, head);
  head = 0x0413;  // cylinder low byte
  cyl = 0x0003;
  EXPECT_FALSE(v.f.increment(cell, cyl, head));
  EXPECT_EQ(0x0004u, cyl);
  EXPECT_EQ(0, head);
  head = 0x0413;  // cylinder high byte
  cyl = 0x0209;
  EXPECT_FALSE(v.f.increment(cell, cyl, head));
  EXPECT_EQ(0x0300u, cyl);
}

// Stepping from the first track visits every slot of the file in order.
TEST(Increment, FollowsTheSlotOrder) {
  for (T::CKDtype type : {T::D200, T::D130}) {
    SCOPED_TRACE(type);
    Volume v(type, type == T::D200 ? 5 : 3);
    T& f = v.f;
    unsigned short cell = 0, head = 0;
    unsigned int cyl = 0;
    long long expected = 512;
    long long steps = 0;
    bool beyond = false;
    while (!beyond) {
      ASSERT_EQ(expected, f.getOffset(cyl, head, cell, true)) << steps;
      expected += f.trackSlotSize;
      ++steps;
      beyond = f.increment(cell, cyl, head);
    }
    EXPECT_EQ(f.getMaxOffset(), expected);
    EXPECT_EQ(type == T::D200 ? 200000 : 30, steps);
  }
}

// ---- references -----------------------------------------------------------------

// Home address (cyl 7, head 3), record zero (DL 8), record 1 (KL 4, DL 80),
// end-of-track marker at 113.
class RefTest : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(f.setType(T::D600));
    std::memset(f.trackBuffer, 0, f.trackSlotSize);
    const unsigned char image[] = {
        0x00, 0x00, 0x07, 0x00, 0x03,                    // 0: HA flag, CC 7, HH 3
        0x00, 0x07, 0x00, 0x03, 0x00, 0x00, 0x00, 0x08,  // 5: R0 count: CC HH R0 KL0 DL8
        1, 2, 3, 4, 5, 6, 7, 8,                          // 13: R0 data
        0x00, 0x07, 0x00, 0x03, 0x01, 0x04, 0x00, 0x50,  // 21: R1 count: R1 KL4 DL80
    };
    std::memcpy(f.trackBuffer, image, sizeof image);
    std::memset(f.trackBuffer + 29, 0xC1, 4);   // key
    std::memset(f.trackBuffer + 33, 0x5A, 80);  // data
    std::memset(f.trackBuffer + 113, 0xFF, 8);  // marker
  }
  const unsigned char* at(long offset) const { return f.trackBuffer + offset; }
  T f;
};

TEST_F(RefTest, RefTypeWalk) {
  const long end = f.trackSlotSize - 16;
  EXPECT_EQ(T::ORIENT_HA, f.getRefType(at(0)));
  EXPECT_EQ(T::ORIENT_COUNT, f.getRefType(at(5)));
  EXPECT_EQ(T::ORIENT_COUNT, f.getRefType(at(21)));
  EXPECT_EQ(T::ORIENT_EOT, f.getRefType(at(113)));
  EXPECT_EQ(T::ORIENT_END, f.getRefType(at(end)));
  EXPECT_EQ(0, f.getRefType(at(6)));
  EXPECT_EQ(0, f.getRefType(at(29)));   // inside a record
  EXPECT_EQ(0, f.getRefType(at(121)));  // behind the marker
  EXPECT_EQ(0, f.getRefType(at(f.trackSlotSize - 1)));
  EXPECT_EQ(0, f.getRefType(at(f.trackSlotSize)));
  EXPECT_EQ(0, f.getRefType(at(-1)));
  EXPECT_EQ(0, f.getRefType(nullptr));
}

TEST_F(RefTest, AccessorsOnRecords) {
  EXPECT_EQ(at(29), f.getRefKey(at(21)));
  EXPECT_EQ(at(33), f.getRefData(at(21)));
  EXPECT_EQ(nullptr, f.getRefKey(at(5)));  // KL 0
  EXPECT_EQ(at(13), f.getRefData(at(5)));
  EXPECT_EQ(1, f.getRefR(at(21)));
  EXPECT_EQ(4, f.getRefKL(at(21)));
  EXPECT_EQ(80, f.getRefDL(at(21)));
  EXPECT_EQ(7, f.getRefCC(at(21)));
  EXPECT_EQ(3, f.getRefHH(at(21)));
  // The home address: cylinder and head, but no record fields.
  EXPECT_EQ(7, f.getRefCC(at(0)));
  EXPECT_EQ(3, f.getRefHH(at(0)));
  EXPECT_EQ(-1, f.getRefR(at(0)));
  EXPECT_EQ(-1, f.getRefKL(at(0)));
  EXPECT_EQ(-1, f.getRefDL(at(0)));
  EXPECT_EQ(nullptr, f.getRefData(at(0)));
  int c = 11, h = 11, r = 11, kl = 11, dl = 11;
  EXPECT_FALSE(f.getRefCount(at(0), c, h, r, kl, dl));
  EXPECT_EQ(11, c);  // outputs untouched
  EXPECT_EQ(11, dl);
  EXPECT_TRUE(f.getRefCount(at(21), c, h, r, kl, dl));
  EXPECT_EQ(7, c);
  EXPECT_EQ(3, h);
  EXPECT_EQ(1, r);
  EXPECT_EQ(4, kl);
  EXPECT_EQ(80, dl);
}

TEST_F(RefTest, MarkerAndOutsideReferencesFail) {
  for (long off : {113L, -1L, -8L, static_cast<long>(f.trackSlotSize)}) {
    SCOPED_TRACE(off);
    EXPECT_EQ(-1, f.getRefCC(at(off)));
    EXPECT_EQ(-1, f.getRefHH(at(off)));
    EXPECT_EQ(-1, f.getRefR(at(off)));
    EXPECT_EQ(-1, f.getRefDL(at(off)));
    EXPECT_EQ(nullptr, f.getRefKey(at(off)));
    EXPECT_EQ(nullptr, f.getRefData(at(off)));
    int c = 11, h = 11, r = 11, kl = 11, dl = 11;
    EXPECT_FALSE(f.getRefCount(at(off), c, h, r, kl, dl));
    EXPECT_EQ(55, c + h + r + kl + dl);  // untouched
  }
}

// References near the end of the slot: the count-field readers accept the
// trailer area but never read past the buffer; key/data/count only before
// the trailer.
TEST_F(RefTest, ReferencesNearTheEndOfTheBuffer) {
  const long s = f.trackSlotSize;
  unsigned char* tail = f.trackBuffer + s - 8;
  const unsigned char count[8] = {0x00, 0x02, 0x00, 0x01, 0x09, 0x00, 0x00, 0x04};
  std::memcpy(tail, count, 8);
  EXPECT_EQ(2, f.getRefCC(tail));
  EXPECT_EQ(9, f.getRefR(tail));
  EXPECT_EQ(4, f.getRefDL(tail));
  EXPECT_EQ(nullptr, f.getRefData(tail));  // inside the trailer
  for (long off = s - 7; off < s; ++off) {  // fewer than 8 bytes left: rejected
    EXPECT_EQ(-1, f.getRefCC(at(off))) << off;
    EXPECT_EQ(-1, f.getRefR(at(off))) << off;
    EXPECT_EQ(-1, f.getRefDL(at(off))) << off;
  }
  int c, h, r, kl, dl;
  EXPECT_FALSE(f.getRefCount(at(s - 16), c, h, r, kl, dl));
  EXPECT_TRUE(f.getRefCount(at(s - 17), c, h, r, kl, dl));
}

// Key and data are handed out for every reference before the trailer, even
// when a damaged count field makes them reach into the trailer; only a key or
// data area that would run past the end of the buffer gives null.
TEST_F(RefTest, KeyOrDataRunningPastTheBufferIsRefused) {
  const long s = f.trackSlotSize;
  unsigned char* rec = f.trackBuffer + s - 40;
  const unsigned char intoTrailer[8] = {0, 0, 0, 0, 1, 4, 0x00, 20};  // 8 + 4 + 20: ends at s - 8
  std::memcpy(rec, intoTrailer, 8);
  EXPECT_EQ(rec + 12, f.getRefData(rec));
  EXPECT_EQ(rec + 8, f.getRefKey(rec));
  rec[5] = 255;  // key of 255 bytes: runs 223 bytes past the buffer
  EXPECT_EQ(nullptr, f.getRefKey(rec));
  EXPECT_EQ(nullptr, f.getRefData(rec));

  // s - 17 is the last accepted place; 9 bytes are left behind its count.
  unsigned char* last = f.trackBuffer + s - 17;
  const unsigned char key9[8] = {0, 0, 0, 0, 1, 9, 0x00, 0x00};  // KL 9, DL 0: ends at s
  std::memcpy(last, key9, 8);
  EXPECT_EQ(last + 8, f.getRefKey(last));
  EXPECT_EQ(nullptr, f.getRefData(last));  // DL 0
  last[5] = 10;                            // one byte past the buffer
  EXPECT_EQ(nullptr, f.getRefKey(last));
  const unsigned char data9[8] = {0, 0, 0, 0, 1, 0, 0x00, 0x09};  // KL 0, DL 9: ends at s
  std::memcpy(last, data9, 8);
  EXPECT_EQ(last + 8, f.getRefData(last));
  EXPECT_EQ(nullptr, f.getRefKey(last));  // KL 0
  last[7] = 10;
  EXPECT_EQ(nullptr, f.getRefData(last));
}

// The walk stops at the end of the record area (slot - 24), however the
// lengths send it there.
TEST_F(RefTest, RefTypeWalkStopsAtTheDataLimit) {
  const long s = f.trackSlotSize;
  f.trackBuffer[113] = 0;  // no marker
  const long dl = s - 25 - 33;  // record 1 now ends at slot - 25
  f.trackBuffer[27] = static_cast<unsigned char>(dl >> 8);
  f.trackBuffer[28] = static_cast<unsigned char>(dl);
  EXPECT_EQ(T::ORIENT_COUNT, f.getRefType(at(s - 25)));
  EXPECT_EQ(0, f.getRefType(at(s - 24)));
  EXPECT_EQ(0, f.getRefType(at(s - 17)));
  f.trackBuffer[27] = f.trackBuffer[28] = 0xFF;  // runs far beyond the slot
  EXPECT_EQ(0, f.getRefType(at(s - 25)));
  EXPECT_EQ(T::ORIENT_COUNT, f.getRefType(at(21)));
}

TEST_F(RefTest, LargeCylinderReferencesDecode) {
  f.setCylinders(70000);
  ASSERT_EQ(1, f.largeCylinders);
  unsigned char* p = f.trackBuffer + 21;
  f.putCount(p, 100000, 5, 1, 4, 80);
  EXPECT_EQ(100000, f.getRefCC(at(21)));
  EXPECT_EQ(5, f.getRefHH(at(21)));
  int c, h, r, kl, dl;
  ASSERT_TRUE(f.getRefCount(at(21), c, h, r, kl, dl));
  EXPECT_EQ(100000, c);
  EXPECT_EQ(5, h);
}

TEST(Refs, IdleObjectRejectsEverything) {
  T f;
  unsigned char other[16] = {};
  EXPECT_EQ(0, f.getRefType(other));
  EXPECT_EQ(-1, f.getRefCC(other));
  EXPECT_EQ(nullptr, f.getRefKey(other));
}

}  // namespace
