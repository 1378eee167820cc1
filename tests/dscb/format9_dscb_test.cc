// Format9DSCB: its constant type, the Format-3 slots, the next-DSCB address
// and the dump.
#include "dscb/format9_dscb.h"

#include <cstring>

#include <gtest/gtest.h>

namespace {

// A Format-9 record with two Format-3 addresses in use, slot 10 set too, and
// a next Format-9 DSCB.
struct Format9Record {
  unsigned char bytes[140] = {};
  Format9Record() {
    bytes[0] = 0x09;  // key identifier
    bytes[1] = 0x01;  // subtype
    bytes[2] = 0x01;  // F9 count
    bytes[3] = 0x80;  // flags
    const unsigned char job[8] = {0xD1, 0xD6, 0xC2, 0xD5, 0xC1, 0xD4, 0xC5, 0xF1};   // JOBNAME1
    const unsigned char step[8] = {0xE2, 0xE3, 0xC5, 0xD7, 0xF1, 0x40, 0x40, 0x40};  // STEP1
    std::memcpy(bytes + 4, job, 8);
    std::memcpy(bytes + 12, step, 8);
    for (int i = 0; i < 6; ++i) bytes[20 + i] = static_cast<unsigned char>(0x20 + i);  // time
    bytes[44] = 0xF9;                                                // format identifier
    bytes[45] = 0x02;                                                // F3 count
    const unsigned char slot1[5] = {0x00, 0x00, 0x00, 0x01, 0x05};   // offset 46
    const unsigned char slot2[5] = {0x00, 0x00, 0x00, 0x01, 0x06};   // offset 51
    const unsigned char slot10[5] = {0x00, 0x12, 0x00, 0x03, 0x09};  // offset 91
    std::memcpy(bytes + 46, slot1, 5);
    std::memcpy(bytes + 51, slot2, 5);
    std::memcpy(bytes + 91, slot10, 5);
    for (int i = 0; i < 20; ++i)
      bytes[96 + i] = static_cast<unsigned char>(0xA0 + i);        // attributes
    const unsigned char next[5] = {0x00, 0x00, 0x00, 0x02, 0x01};  // offset 135
    std::memcpy(bytes + 135, next, 5);
  }
};

TEST(Format9DSCBTest, TypeAndCount) {
  Format9Record r;
  r.bytes[44] = 0x00;  // damaged identifier
  Format9DSCB d(r.bytes);
  EXPECT_EQ(d.getType(), 9);
  EXPECT_EQ(d.getF3count(), 2);
  EXPECT_EQ(d.raw, d.dscb);
}

TEST(Format9DSCBTest, Format3Slots) {
  Format9Record r;
  Format9DSCB d(r.bytes);
  int cyl = 7, head = 7, rec = 7;
  EXPECT_FALSE(d.getF3dscbLoc(10, cyl, head, rec));
  EXPECT_EQ(cyl + head + rec, 0);
  cyl = head = rec = 7;
  EXPECT_FALSE(d.getF3dscbLoc(-1, cyl, head, rec));
  EXPECT_EQ(cyl, 0);
  EXPECT_EQ(head, 0);
  EXPECT_EQ(rec, 0);

  EXPECT_TRUE(d.getF3dscbLoc(0, cyl, head, rec));  // offset 46
  EXPECT_EQ(cyl, 0);
  EXPECT_EQ(head, 1);
  EXPECT_EQ(rec, 5);
  EXPECT_TRUE(d.getF3dscbLoc(1, cyl, head, rec));  // offset 51
  EXPECT_EQ(rec, 6);
  EXPECT_TRUE(d.getF3dscbLoc(9, cyl, head, rec));  // offset 91
  EXPECT_EQ(cyl, 0x12);
  EXPECT_EQ(head, 3);
  EXPECT_EQ(rec, 9);
  EXPECT_TRUE(d.getF3dscbLoc(4, cyl, head, rec));  // unused slot reads as zeros
  EXPECT_EQ(cyl + head + rec, 0);

  d.largeCylinders = true;  // HH 0003: no upper cylinder bits
  EXPECT_TRUE(d.getF3dscbLoc(9, cyl, head, rec));
  EXPECT_EQ(cyl, 0x12);
  EXPECT_EQ(head, 3);
}

TEST(Format9DSCBTest, NextFormat9Address) {
  Format9Record r;
  const unsigned char next[5] = {0x00, 0x03, 0x00, 0x21, 0x05};
  std::memcpy(r.bytes + 135, next, 5);
  Format9DSCB d(r.bytes);
  int cyl = 1, head = 1, rec = 1;
  EXPECT_TRUE(d.getF9dscbLoc(cyl, head, rec));
  EXPECT_EQ(cyl, 3);
  EXPECT_EQ(head, 0x21);
  EXPECT_EQ(rec, 5);
  d.largeCylinders = true;
  EXPECT_TRUE(d.getF9dscbLoc(cyl, head, rec));
  EXPECT_EQ(cyl, 131075);
  EXPECT_EQ(head, 1);
}

TEST(Format9DSCBTest, DuplicateLabelFindsTheFirst) {
  Format9Record r;
  Format9DSCB d(r.bytes);
  int index = 0;
  const StructureField* f = StructureField::locateField("Reserved", d.getDesc(), &index);
  ASSERT_NE(f, nullptr);
  EXPECT_EQ(index, 7);
  EXPECT_EQ(f->offset, 26);
  EXPECT_EQ(d.getFieldAddr("Reserved"), d.dscb + 26);
}

TEST(Format9DSCBTest, Dump) {
  Format9Record r;
  Format9DSCB d(r.bytes);
  RexxString out;
  d.print(out, 0);
  EXPECT_STREQ(
      out.text(),
      "Format 9 DSCB --\n"
      "   DSCBKey: 09\n"
      "   SubType: 01,     F9count: 01,   Flag1: 1000 0000\n"
      "   JobName: JOBNAME1,    StepName: STEP1   ,      Time: 20212223 2425\n"
      "  Reserved: 00000000 00000000 00000000 00000000 0000\n"
      "     FmtID: F9\n"
      "   F3count: 02\n"
      "F3cchhr-01: 0000 0001 05,     F3cchhr-02: 0000 0001 06,     F3cchhr-03: 0000 0000 00\n"
      "F3cchhr-04: 0000 0000 00,     F3cchhr-05: 0000 0000 00,     F3cchhr-06: 0000 0000 00\n"
      "F3cchhr-07: 0000 0000 00,     F3cchhr-08: 0000 0000 00,     F3cchhr-09: 0000 0000 00\n"
      "F3cchhr-10: 0012 0003 09\n"
      "Attributes: A0A1A2A3 A4A5A6A7 A8A9AAAB ACADAEAF B0B1B2B3\n"
      "  Reserved: 00000000 00000000 00000000 00000000 000000\n"
      " NxtF9dscb: 0000 0002 01\n");
}

}  // namespace
