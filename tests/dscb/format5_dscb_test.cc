// Format5DSCB: the table built by rule (82 entries, the label numbering of
// the 26 extents), the next-DSCB address and the dump.
#include "dscb/format5_dscb.h"

#include <cstring>
#include <string>

#include <gtest/gtest.h>

namespace {

// A Format-5 record: extent n (1 to 26) begins at relative track 100 * n,
// with n whole cylinders and n mod 15 further tracks; next Format-5 DSCB at
// 0000 0001 04.
struct Format5Record {
  unsigned char bytes[140] = {};
  Format5Record() {
    std::memset(bytes, 0x05, 4);  // key identifier
    bytes[44] = 0xF5;             // format identifier
    for (int n = 1; n <= 26; ++n) {
      unsigned char* e = bytes + (n <= 8 ? 4 + 5 * (n - 1) : 45 + 5 * (n - 9));
      e[0] = static_cast<unsigned char>((100 * n) >> 8);  // first track
      e[1] = static_cast<unsigned char>(100 * n);
      e[3] = static_cast<unsigned char>(n);       // cylinders
      e[4] = static_cast<unsigned char>(n % 15);  // tracks
    }
    const unsigned char next[5] = {0x00, 0x00, 0x00, 0x01, 0x04};
    std::memcpy(bytes + 135, next, 5);
  }
};

TEST(Format5DSCBTest, TableBuiltByRule) {
  Format5Record r;
  Format5DSCB d(r.bytes);
  const StructureField* table = d.getDesc();
  int entries = 0;
  while (table[entries].type != StructureField::SfldEnd) ++entries;
  EXPECT_EQ(entries + 1, 82);  // with the terminator
  EXPECT_EQ(table[81].name, nullptr);

  struct Expected {
    int index;
    const char* name;
    int offset, length;
    bool newLine;
  };
  const Expected expected[] = {
      {0, "DSCBKey", 0, 4, true},       {1, "TrkBgn-01", 4, 2, false},
      {2, "CylCnt-01", 6, 2, false},    {3, "TrkCnt-01", 8, 1, false},
      {6, "TrkCnt-02", 13, 1, true},    {22, "TrkBgn-08", 39, 2, false},
      {24, "TrkCnt-08", 43, 1, true},   {25, "FmtID", 44, 1, true},
      {26, "TrkBgn-08", 45, 2, false},  // the ninth extent reuses 08
      {28, "TrkCnt-08", 49, 1, false},  {29, "TrkBgn-09", 50, 2, false},
      {31, "TrkCnt-09", 54, 1, true},   {77, "TrkBgn-25", 130, 2, false},
      {78, "CylCnt-25", 132, 2, false}, {79, "TrkCnt-25", 134, 1, true},
      {80, "NxtF5dscb", 135, 5, true},
  };
  for (const Expected& e : expected) {
    const StructureField& f = table[e.index];
    EXPECT_STREQ(f.name, e.name) << e.index;
    EXPECT_EQ(f.offset, e.offset) << e.index;
    EXPECT_EQ(f.length, e.length) << e.index;
    EXPECT_EQ(f.newLine, e.newLine) << e.index;
  }
  EXPECT_EQ(table[80].type, StructureField::SfldHexHalfwords);
  EXPECT_EQ(table[79].type, StructureField::SfldUint);

  // A label ending in 08 finds the eighth extent, in the key.
  int index = -5;
  const StructureField* f = StructureField::locateField("TrkBgn-08", table, &index);
  ASSERT_NE(f, nullptr);
  EXPECT_EQ(index, 22);
  EXPECT_EQ(d.getFieldAddr("TrkBgn-08"), d.dscb + 39);
  EXPECT_EQ(StructureField::locateField("TrkBgn-26", table, &index), nullptr);

  RexxString out;
  d.printDesc(out);
  std::string text = out.text();
  EXPECT_EQ(text.substr(text.size() - 29), "           Total length: 140\n");
}

TEST(Format5DSCBTest, NextDscbAddress) {
  Format5Record r;
  Format5DSCB d(r.bytes);
  int cyl = 9, head = 9, rec = 9;
  EXPECT_TRUE(d.getF5dscbLoc(cyl, head, rec));
  EXPECT_EQ(cyl, 0);
  EXPECT_EQ(head, 1);
  EXPECT_EQ(rec, 4);
  EXPECT_EQ(d.getType(), 5);
}

TEST(Format5DSCBTest, DumpShowsTwoExtentsPerLine) {
  Format5Record r;
  RexxString out;
  Format5DSCB(r.bytes).print(out, 0);
  EXPECT_STREQ(
      out.text(),
      "Format 5 DSCB --\n"
      "  DSCBKey: 05050505\n"
      "TrkBgn-01: 100,     CylCnt-01: 1,  TrkCnt-01: 1,  TrkBgn-02: 200,     CylCnt-02: 2,"
      "  TrkCnt-02: 2\n"
      "TrkBgn-03: 300,     CylCnt-03: 3,  TrkCnt-03: 3,  TrkBgn-04: 400,     CylCnt-04: 4,"
      "  TrkCnt-04: 4\n"
      "TrkBgn-05: 500,     CylCnt-05: 5,  TrkCnt-05: 5,  TrkBgn-06: 600,     CylCnt-06: 6,"
      "  TrkCnt-06: 6\n"
      "TrkBgn-07: 700,     CylCnt-07: 7,  TrkCnt-07: 7,  TrkBgn-08: 800,     CylCnt-08: 8,"
      "  TrkCnt-08: 8\n"
      "    FmtID: F5\n"
      "TrkBgn-08: 900,     CylCnt-08: 9,  TrkCnt-08: 9,  TrkBgn-09: 1000,    CylCnt-09: 10,"
      "      TrkCnt-09: 10\n"
      "TrkBgn-10: 1100,    CylCnt-10: 11,      TrkCnt-10: 11,      TrkBgn-11: 1200,"
      "    CylCnt-11: 12,      TrkCnt-11: 12\n"
      "TrkBgn-12: 1300,    CylCnt-12: 13,      TrkCnt-12: 13,      TrkBgn-13: 1400,"
      "    CylCnt-13: 14,      TrkCnt-13: 14\n"
      "TrkBgn-14: 1500,    CylCnt-14: 15,      TrkCnt-14: 0,  TrkBgn-15: 1600,"
      "    CylCnt-15: 16,      TrkCnt-15: 1\n"
      "TrkBgn-16: 1700,    CylCnt-16: 17,      TrkCnt-16: 2,  TrkBgn-17: 1800,"
      "    CylCnt-17: 18,      TrkCnt-17: 3\n"
      "TrkBgn-18: 1900,    CylCnt-18: 19,      TrkCnt-18: 4,  TrkBgn-19: 2000,"
      "    CylCnt-19: 20,      TrkCnt-19: 5\n"
      "TrkBgn-20: 2100,    CylCnt-20: 21,      TrkCnt-20: 6,  TrkBgn-21: 2200,"
      "    CylCnt-21: 22,      TrkCnt-21: 7\n"
      "TrkBgn-22: 2300,    CylCnt-22: 23,      TrkCnt-22: 8,  TrkBgn-23: 2400,"
      "    CylCnt-23: 24,      TrkCnt-23: 9\n"
      "TrkBgn-24: 2500,    CylCnt-24: 25,      TrkCnt-24: 10,      TrkBgn-25: 2600,"
      "    CylCnt-25: 26,      TrkCnt-25: 11\n"
      "NxtF5dscb: 0000 0001 04\n");
}

}  // namespace
