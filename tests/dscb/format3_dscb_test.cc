// Format3DSCB: its constant type, the next-DSCB address and the dump of its
// 13 extents.
#include "dscb/format3_dscb.h"

#include <cstring>
#include <string>

#include <gtest/gtest.h>

namespace {

// A Format-3 record: key identifier 03030303; extent n (1 to 13) of type 80,
// sequence n + 2, from cylinder n head 0 to cylinder n head 14; next
// Format-3 DSCB at 0001 0002 07.
struct Format3Record {
  unsigned char bytes[140] = {};
  Format3Record() {
    std::memset(bytes, 0x03, 4);  // key identifier
    bytes[44] = 0xF3;             // format identifier
    for (int n = 1; n <= 13; ++n) {
      unsigned char* e = bytes + (n <= 4 ? 4 + 10 * (n - 1) : 45 + 10 * (n - 5));
      e[0] = 0x80;                               // extent type
      e[1] = static_cast<unsigned char>(n + 2);  // sequence number
      e[3] = static_cast<unsigned char>(n);      // low CC 000n, HH 0000
      e[7] = static_cast<unsigned char>(n);      // high CC 000n
      e[9] = 14;                                 // high HH 000E
    }
    const unsigned char next[5] = {0x00, 0x01, 0x00, 0x02, 0x07};  // CC HH R
    std::memcpy(bytes + 135, next, 5);
  }
};

TEST(Format3DSCBTest, TypeIsThreeWhateverByte44Holds) {
  Format3Record r;
  r.bytes[44] = 0xF1;  // damaged identifier
  Format3DSCB d(r.bytes);
  EXPECT_EQ(d.getType(), 3);
  EXPECT_EQ(d.raw, d.dscb);
  EXPECT_EQ(d.cyl, -1);
}

TEST(Format3DSCBTest, NextDscbAddress) {
  Format3Record r;
  Format3DSCB d(r.bytes);
  int cyl = 9, head = 9, rec = 9;
  EXPECT_TRUE(d.getF3dscbLoc(cyl, head, rec));
  EXPECT_EQ(cyl, 1);
  EXPECT_EQ(head, 2);
  EXPECT_EQ(rec, 7);

  // 0003 0021 05 on a volume with 28-bit cylinders: 0x20003, head 1.
  const unsigned char large[5] = {0x00, 0x03, 0x00, 0x21, 0x05};
  std::memcpy(r.bytes + 135, large, 5);
  Format3DSCB l(r.bytes);
  l.largeCylinders = true;
  EXPECT_TRUE(l.getF3dscbLoc(cyl, head, rec));
  EXPECT_EQ(cyl, 131075);
  EXPECT_EQ(head, 1);
  EXPECT_EQ(rec, 5);
  l.largeCylinders = false;
  EXPECT_TRUE(l.getF3dscbLoc(cyl, head, rec));
  EXPECT_EQ(cyl, 3);
  EXPECT_EQ(head, 0x21);

  // The end of a chain reads as zeros.
  std::memset(r.bytes + 135, 0, 5);
  Format3DSCB end(r.bytes);
  EXPECT_TRUE(end.getF3dscbLoc(cyl, head, rec));
  EXPECT_EQ(cyl + head + rec, 0);
}

TEST(Format3DSCBTest, ExtentLabelsAndOffsets) {
  Format3Record r;
  Format3DSCB d(r.bytes);
  EXPECT_EQ(d.getFieldAddr("ExtLoCCHH-1"), d.dscb + 6);
  EXPECT_EQ(d.getFieldAddr("ExtLoCCHH-4"), d.dscb + 36);
  EXPECT_EQ(d.getFieldAddr("ExtLoCCHH-5"), d.dscb + 47);
  EXPECT_EQ(d.getFieldAddr("ExtLoCCHH-D"), d.dscb + 127);
  EXPECT_EQ(d.getFieldAddr("ExtHiCCHH-D"), d.dscb + 131);
}

TEST(Format3DSCBTest, Dump) {
  Format3Record r;
  Format3DSCB d(r.bytes);
  d.cyl = 0;
  d.head = 0;
  d.rec = 5;
  RexxString out;
  d.print(out, 4);
  EXPECT_STREQ(out.text(),
               "Format 3 DSCB at 0/0/5 (000000/00/05) --\n"
               "        DSCBKey: 03030303\n"
               "      ExtType-1: 1000 0000,   ExtSeq-1: 3,   ExtLoCCHH-1: 0001 0000,  ExtHiCCHH-1: "
               "0001 000E\n"
               "      ExtType-2: 1000 0000,   ExtSeq-2: 4,   ExtLoCCHH-2: 0002 0000,  ExtHiCCHH-2: "
               "0002 000E\n"
               "      ExtType-3: 1000 0000,   ExtSeq-3: 5,   ExtLoCCHH-3: 0003 0000,  ExtHiCCHH-3: "
               "0003 000E\n"
               "      ExtType-4: 1000 0000,   ExtSeq-4: 6,   ExtLoCCHH-4: 0004 0000,  ExtHiCCHH-4: "
               "0004 000E\n"
               "          FmtID: F3\n"
               "      ExtType-5: 1000 0000,   ExtSeq-5: 7,   ExtLoCCHH-5: 0005 0000,  ExtHiCCHH-5: "
               "0005 000E\n"
               "      ExtType-6: 1000 0000,   ExtSeq-6: 8,   ExtLoCCHH-6: 0006 0000,  ExtHiCCHH-6: "
               "0006 000E\n"
               "      ExtType-7: 1000 0000,   ExtSeq-7: 9,   ExtLoCCHH-7: 0007 0000,  ExtHiCCHH-7: "
               "0007 000E\n"
               "      ExtType-8: 1000 0000,   ExtSeq-8: 10,  ExtLoCCHH-8: 0008 0000,  ExtHiCCHH-8: "
               "0008 000E\n"
               "      ExtType-9: 1000 0000,   ExtSeq-9: 11,  ExtLoCCHH-9: 0009 0000,  ExtHiCCHH-9: "
               "0009 000E\n"
               "      ExtType-A: 1000 0000,   ExtSeq-A: 12,  ExtLoCCHH-A: 000A 0000,  ExtHiCCHH-A: "
               "000A 000E\n"
               "      ExtType-B: 1000 0000,   ExtSeq-B: 13,  ExtLoCCHH-B: 000B 0000,  ExtHiCCHH-B: "
               "000B 000E\n"
               "      ExtType-C: 1000 0000,   ExtSeq-C: 14,  ExtLoCCHH-C: 000C 0000,  ExtHiCCHH-C: "
               "000C 000E\n"
               "      ExtType-D: 1000 0000,   ExtSeq-D: 15,  ExtLoCCHH-D: 000D 0000,  ExtHiCCHH-D: "
               "000D 000E\n"
               "      NxtF3dscb: 0001 0002 07\n");
}

TEST(Format3DSCBTest, DescriptionCoversTheRecord) {
  Format3Record r;
  Format3DSCB d(r.bytes);
  RexxString out;
  d.printDesc(out);
  std::string text = out.text();
  // 55 entries, then the total; the widest label is 11 characters.
  EXPECT_NE(text.find("ExtLoCCHH-5: Offset-47(0x2F), Length-4, Type-9, NL-No\n"),
            std::string::npos);
  EXPECT_NE(text.find("  NxtF3dscb: Offset-135(0x87), Length-5, Type-9, NL-Yes\n"),
            std::string::npos);
  EXPECT_EQ(text.substr(text.size() - 31), "             Total length: 140\n");
}

}  // namespace
