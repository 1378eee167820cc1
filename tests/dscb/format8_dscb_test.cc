// Format8DSCB: the fields where its layout differs from Format-1, the
// Format-9 address, extents, the dump order of its chained DSCBs and their
// ownership.
#include "dscb/format8_dscb.h"

#include <cstring>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "dscb_test_records.h"

namespace {

using dscb_test::ChainedFormat3Record;
using dscb_test::DataSetRecord;

const char kFormat8Dump[] =
    "Format 8 DSCB at 0/0/6 (000000/00/06) --\n"
    "          DSname: SYS1.TEST.PDS                               \n"
    "           FmtID: F8,    VolSer: VOL001,     VolSeq: 1,     DateCreated: 2022/032,"
    "   DateExpired: 1900/001\n"
    "         NbrExts: 3,     LastDirBytes: 0,    Flags: 0100 0000,"
    "   SysCode: 00000000 00000000 00000000 00\n"
    "       DateRefed: 2023/301,   SMSind: 0000 1000\n"
    "  SecSpcExtFlags: 0000 0000,  SecSpcExtVal: 0,    DSorg: 02 00,  RecFmt: 90,"
    "    OptCD: 0000 0000\n"
    "         BlkSize: 6400,  Lrecl: 80\n"
    "          KeyLen: 0,     KeyPos: 0,     DSind: 0000 0000,   SecAllocSpcParms: 80 C0 00 00\n"
    "       AllocFlag: 0000 1010,  LastTTR: 000005,    TrkBal: 4660,  Resv: 00,"
    "      EAVhiTrk: 00\n"
    "       ExtType-1: 1000 0001,  ExtSeq-1: 0,   ExtLoCCHH-1: 0000 0001,"
    "  ExtHiCCHH-1: 0000 000E\n"
    "       ExtType-2: 1000 0001,  ExtSeq-2: 1,   ExtLoCCHH-2: 0001 0000,"
    "  ExtHiCCHH-2: 0001 000E\n"
    "       ExtType-3: 1000 0001,  ExtSeq-3: 2,   ExtLoCCHH-3: 0002 0000,"
    "  ExtHiCCHH-3: 0002 0004\n"
    "         F9-Dscb: 0000 0002 05\n";

TEST(Format8DSCBTest, AttributesAndLayoutDifferences) {
  DataSetRecord r(0xF8);
  Format8DSCB d(r.bytes);
  EXPECT_EQ(d.getType(), 8);
  EXPECT_EQ(d.nbrExts, 3);
  EXPECT_EQ(d.getBlkSize(), 6400);
  EXPECT_EQ(d.getLrecl(), 80);
  EXPECT_EQ(d.getDSorg(), 0x0200);
  EXPECT_EQ(d.getRecfm(), 0x90);
  EXPECT_EQ(d.getFieldAddr("KeyPos"), d.dscb + 91);
  EXPECT_EQ(d.getFieldAddr("DSind"), d.dscb + 92);
  EXPECT_EQ(d.getFieldAddr("SecAllocSpcParms"), d.dscb + 93);
  EXPECT_EQ(d.getFieldAddr("AllocFlag"), d.dscb + 97);
  EXPECT_EQ(d.getFieldAddr("F9-Dscb"), d.dscb + 135);
  EXPECT_THROW(d.getFieldAddr("F3-Dscb"), const char*);
  EXPECT_THROW(d.getFieldAddr("SecAq"), const char*);
  EXPECT_EQ(d.f3List.ownsElements, 1);
  EXPECT_EQ(d.f9List.ownsElements, 1);
  EXPECT_EQ(d.f9List.growBy, 32);

  RexxString out;
  d.printDesc(out);
  std::string text = out.text();
  EXPECT_NE(text.find("          KeyPos: Offset-91(0x5B), Length-1, Type-3, NL-No\n"
                      "           DSind: Offset-92(0x5C), Length-1, Type-5, NL-No\n"
                      "SecAllocSpcParms: Offset-93(0x5D), Length-4, Type-8, NL-Yes\n"
                      "       AllocFlag: Offset-97(0x61), Length-1, Type-5, NL-No\n"
                      "         LastTTR: Offset-98(0x62), Length-3, Type-4, NL-No\n"),
            std::string::npos);
  EXPECT_EQ(text.substr(text.size() - 36), "                  Total length: 140\n");
}

TEST(Format8DSCBTest, Format9Address) {
  DataSetRecord r(0xF8);
  const unsigned char far[5] = {0x00, 0x02, 0x00, 0x15, 0x03};
  std::memcpy(r.bytes + 135, far, 5);
  Format8DSCB d(r.bytes);
  int cyl = 9, head = 9, rec = 9;
  EXPECT_TRUE(d.getF9dscbLoc(cyl, head, rec));
  EXPECT_EQ(cyl, 2);
  EXPECT_EQ(head, 0x15);
  EXPECT_EQ(rec, 3);
  d.largeCylinders = true;
  EXPECT_TRUE(d.getF9dscbLoc(cyl, head, rec));
  EXPECT_EQ(cyl, 65538);
  EXPECT_EQ(head, 5);
}

TEST(Format8DSCBTest, ExtentsThroughFormat3List) {
  DataSetRecord r(0xF8);
  r.bytes[59] = 4;
  Format8DSCB d(r.bytes);
  int loCyl, loHead, hiCyl, hiHead, loTrk, hiTrk;
  EXPECT_EQ(d.getExtent(0, loCyl, loHead, hiCyl, hiHead, loTrk, hiTrk), 14);
  EXPECT_EQ(d.getExtent(3, loCyl, loHead, hiCyl, hiHead, loTrk, hiTrk), 0);
  EXPECT_EQ(loCyl, -1);
  d.f3List.add(new Format3DSCB(ChainedFormat3Record(7).bytes));
  EXPECT_EQ(d.getExtent(3, loCyl, loHead, hiCyl, hiHead, loTrk, hiTrk), 15);
  EXPECT_EQ(loCyl, 7);
  EXPECT_EQ(loTrk, 105);
  EXPECT_EQ(hiTrk, 119);
  EXPECT_EQ(d.getExtent(4, loCyl, loHead, hiCyl, hiHead, loTrk, hiTrk), 0);
}

TEST(Format8DSCBTest, DumpPrintsFormat9BeforeFormat3) {
  DataSetRecord r(0xF8);
  std::unique_ptr<GenericDSCB> made(GenericDSCB::create(r.bytes, 0, 0, 6));
  Format8DSCB& d = static_cast<Format8DSCB&>(*made);
  RexxString alone;
  d.print(alone, 0);
  EXPECT_STREQ(alone.text(), kFormat8Dump);

  // Added in the opposite order to the print order.
  d.f3List.add(new Format3DSCB(ChainedFormat3Record(100).bytes));
  unsigned char f9[140] = {};
  f9[0] = 0x09;
  f9[44] = 0xF9;
  d.f9List.add(new Format9DSCB(f9));

  RexxString out;
  d.print(out, 2);
  std::string text = out.text();
  size_t f9Title = text.find("\n\nFormat 9 DSCB --\n");
  size_t f3Title = text.find("\n\nFormat 3 DSCB --\n");
  ASSERT_NE(f9Title, std::string::npos);
  ASSERT_NE(f3Title, std::string::npos);
  EXPECT_LT(f9Title, f3Title);
  // Format-9 fields indented 2 + 6 = 8 columns before the 10-wide labels.
  EXPECT_EQ(text.substr(f9Title + 19, 23), "           DSCBKey: 09\n");
  // Format-3 fields: 8 columns before the 11-wide labels.
  EXPECT_EQ(text.substr(f3Title + 19, 30), "            DSCBKey: 03030303\n");
}

TEST(Format8DSCBTest, ListsOwnTheChainedDscbs) {
  // Run under the leak checker: every chained DSCB is freed exactly once.
  DataSetRecord r(0xF8);
  auto* d = new Format8DSCB(r.bytes);
  unsigned char f9[140] = {};
  f9[44] = 0xF9;
  for (int i = 0; i < 3; ++i) d->f9List.add(new Format9DSCB(f9));
  for (int i = 0; i < 33; ++i) d->f3List.add(new Format3DSCB(ChainedFormat3Record(i).bytes));
  d->f9List.set(1, new Format9DSCB(f9));
  GenericDSCB* base = d;
  delete base;
}

}  // namespace
