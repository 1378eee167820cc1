// Format1DSCB: attribute accessors, extents across chained Format-3 DSCBs,
// the next-DSCB address, the dump with the chained DSCBs and their ownership.
#include "dscb/format1_dscb.h"

#include <cstring>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "dscb_test_records.h"

namespace {

using dscb_test::ChainedFormat3Record;
using dscb_test::DataSetRecord;

struct Extent {
  int loCyl, loHead, hiCyl, hiHead, loTrk, hiTrk, tracks;
};

Extent extentOf(const Format1DSCB& d, int i) {
  Extent e;
  e.tracks = d.getExtent(i, e.loCyl, e.loHead, e.hiCyl, e.hiHead, e.loTrk, e.hiTrk);
  return e;
}

void expectNoExtent(const Format1DSCB& d, int i) {
  Extent e = extentOf(d, i);
  EXPECT_EQ(e.tracks, 0) << i;
  EXPECT_EQ(e.loCyl, -1);
  EXPECT_EQ(e.loHead, -1);
  EXPECT_EQ(e.hiCyl, -1);
  EXPECT_EQ(e.hiHead, -1);
  EXPECT_EQ(e.loTrk, -1);
  EXPECT_EQ(e.hiTrk, -1);
}

TEST(Format1DSCBTest, Attributes) {
  DataSetRecord r(0xF1);
  Format1DSCB d(r.bytes);
  EXPECT_EQ(d.getType(), 1);
  EXPECT_EQ(d.nbrExts, 3);
  EXPECT_EQ(d.getBlkSize(), 6400);
  EXPECT_EQ(d.getLrecl(), 80);
  EXPECT_EQ(d.getDSorg(), 0x0200);  // both bytes, big-endian
  EXPECT_EQ(d.getRecfm(), 0x90);
  EXPECT_EQ(d.raw, d.dscb);
  EXPECT_EQ(d.f3List.count, 0);
  EXPECT_EQ(d.f3List.growBy, 32);
  EXPECT_EQ(d.f3List.ownsElements, 1);
  EXPECT_EQ(d.cyl, -1);

  r.bytes[59] = 0xFF;  // the count is one unsigned byte
  EXPECT_EQ(Format1DSCB(r.bytes).nbrExts, 255);
}

TEST(Format1DSCBTest, ExtentsInTheRecord) {
  DataSetRecord r(0xF1);
  Format1DSCB d(r.bytes);
  Extent e = extentOf(d, 0);  // 0/1 to 0/14
  EXPECT_EQ(e.tracks, 14);
  EXPECT_EQ(e.loCyl, 0);
  EXPECT_EQ(e.loHead, 1);
  EXPECT_EQ(e.hiCyl, 0);
  EXPECT_EQ(e.hiHead, 14);
  EXPECT_EQ(e.loTrk, 1);
  EXPECT_EQ(e.hiTrk, 14);
  e = extentOf(d, 2);  // 2/0 to 2/4
  EXPECT_EQ(e.loTrk, 30);
  EXPECT_EQ(e.hiTrk, 34);
  EXPECT_EQ(e.tracks, 5);
  expectNoExtent(d, 3);  // equal to the extent count
  expectNoExtent(d, -1);
}

TEST(Format1DSCBTest, LargeCylinderExtent) {
  DataSetRecord r(0xF1);
  r.setExtent(1, 0x0005, 0x0012, 0x0005, 0x001E);
  Format1DSCB d(r.bytes);
  d.largeCylinders = true;
  Extent e = extentOf(d, 1);
  EXPECT_EQ(e.loCyl, 65541);
  EXPECT_EQ(e.loHead, 2);
  EXPECT_EQ(e.hiCyl, 65541);
  EXPECT_EQ(e.hiHead, 14);
  EXPECT_EQ(e.loTrk, 65541 * 15 + 2);
  EXPECT_EQ(e.tracks, 13);
  d.largeCylinders = false;
  e = extentOf(d, 1);
  EXPECT_EQ(e.loCyl, 5);
  EXPECT_EQ(e.loHead, 0x12);
}

TEST(Format1DSCBTest, ExtentsInChainedFormat3Dscbs) {
  DataSetRecord r(0xF1);
  r.bytes[59] = 5;
  Format1DSCB five(r.bytes);
  expectNoExtent(five, 3);  // no Format-3 DSCB chained yet
  expectNoExtent(five, 4);
  five.f3List.add(new Format3DSCB(ChainedFormat3Record(100).bytes));
  Extent e = extentOf(five, 3);  // "ExtLoCCHH-1" of the Format-3 DSCB
  EXPECT_EQ(e.loCyl, 100);
  EXPECT_EQ(e.hiHead, 14);
  EXPECT_EQ(e.tracks, 15);
  EXPECT_EQ(extentOf(five, 4).loCyl, 101);  // "ExtLoCCHH-2"
  expectNoExtent(five, 5);

  r.bytes[59] = 17;
  Format1DSCB many(r.bytes);
  many.f3List.add(new Format3DSCB(ChainedFormat3Record(100).bytes));
  many.f3List.add(new Format3DSCB(ChainedFormat3Record(200).bytes));
  EXPECT_EQ(extentOf(many, 15).loCyl, 112);  // "ExtLoCCHH-D" of the first
  EXPECT_EQ(extentOf(many, 16).loCyl, 200);  // "ExtLoCCHH-1" of the second
  EXPECT_EQ(extentOf(many, 16).loTrk, 3000);

  // An empty slot in the list is no Format-3 DSCB.
  Format1DSCB gap(r.bytes);
  gap.f3List.set(1, new Format3DSCB(ChainedFormat3Record(200).bytes));
  expectNoExtent(gap, 3);
  EXPECT_EQ(extentOf(gap, 16).loCyl, 200);
}

TEST(Format1DSCBTest, Format3Address) {
  DataSetRecord r(0xF1);
  Format1DSCB d(r.bytes);
  int cyl = -1, head = -1, rec = -1;
  EXPECT_TRUE(d.getF3dscbLoc(cyl, head, rec));
  EXPECT_EQ(cyl, 0);
  EXPECT_EQ(head, 2);
  EXPECT_EQ(rec, 5);
  const unsigned char far[5] = {0x00, 0x05, 0x00, 0x12, 0x01};
  std::memcpy(r.bytes + 135, far, 5);
  Format1DSCB large(r.bytes);
  large.largeCylinders = true;
  EXPECT_TRUE(large.getF3dscbLoc(cyl, head, rec));
  EXPECT_EQ(cyl, 65541);
  EXPECT_EQ(head, 2);
  EXPECT_EQ(rec, 1);
}

const char kFormat1Dump[] =
    "Format 1 DSCB at 0/0/4 (000000/00/04) --\n"
    "        DSname: SYS1.TEST.PDS                               \n"
    "         FmtID: F1,      VolSer: VOL001,     VolSeq: 1,     DateCreated: 2022/032,"
    "   DateExpired: 1900/001\n"
    "       NbrExts: 3,  LastDirBytes: 0,    Flags: 0100 0000,"
    "   SysCode: 00000000 00000000 00000000 00\n"
    "     DateRefed: 2023/301,     SMSind: 0000 1000\n"
    "SecSpcExtFlags: 0000 0000,    SecSpcExtVal: 0,    DSorg: 02 00,  RecFmt: 90,"
    "    OptCD: 0000 0000\n"
    "       BlkSize: 6400,    Lrecl: 80\n"
    "        KeyLen: 0,  KeyPos: 0,     DSind: 1000 0000,   AllocFlag: 1100 0000,"
    "    SecAq: 00000A,      LastTTR: 000005,    TrkBal: 4660,  Resv: 00,      EAVhiTrk: 00\n"
    "     ExtType-1: 1000 0001,    ExtSeq-1: 0,   ExtLoCCHH-1: 0000 0001,"
    "  ExtHiCCHH-1: 0000 000E\n"
    "     ExtType-2: 1000 0001,    ExtSeq-2: 1,   ExtLoCCHH-2: 0001 0000,"
    "  ExtHiCCHH-2: 0001 000E\n"
    "     ExtType-3: 1000 0001,    ExtSeq-3: 2,   ExtLoCCHH-3: 0002 0000,"
    "  ExtHiCCHH-3: 0002 0004\n"
    "       F3-Dscb: 0000 0002 05\n";

TEST(Format1DSCBTest, Dump) {
  DataSetRecord r(0xF1);
  std::unique_ptr<GenericDSCB> d(GenericDSCB::create(r.bytes, 0, 0, 4));
  RexxString out;
  d->print(out, 0);
  EXPECT_STREQ(out.text(), kFormat1Dump);
}

TEST(Format1DSCBTest, DumpWithChainedFormat3Dscbs) {
  DataSetRecord r(0xF1);
  std::unique_ptr<GenericDSCB> made(GenericDSCB::create(r.bytes, 0, 0, 4));
  Format1DSCB& d = static_cast<Format1DSCB&>(*made);
  Format3DSCB* first = new Format3DSCB(ChainedFormat3Record(100).bytes);
  Format3DSCB* second = new Format3DSCB(ChainedFormat3Record(200).bytes);
  first->cyl = 0;
  first->head = 0;
  first->rec = 5;
  d.f3List.add(first);
  d.f3List.add(second);

  RexxString out;
  d.print(out, 0);
  std::string text = out.text();
  std::string f1 = kFormat1Dump;
  ASSERT_EQ(text.substr(0, f1.size()), f1);
  // Each chained DSCB follows a line end (an empty line) and is indented 4
  // more; the title itself is not indented.
  std::string rest = text.substr(f1.size());
  EXPECT_EQ(rest.substr(0, 135),
            "\n"
            "Format 3 DSCB at 0/0/5 (000000/00/05) --\n"
            "        DSCBKey: 03030303\n"
            "      ExtType-1: 1000 0001,   ExtSeq-1: 0,   ExtLoCCHH-1: 0064 0000");
  size_t secondTitle = rest.find("\nFormat 3 DSCB --\n        DSCBKey: 03030303\n");
  ASSERT_NE(secondTitle, std::string::npos);
  EXPECT_LT(rest.find("0064 0000"), secondTitle);
  EXPECT_GT(rest.find("00C8 0000"), secondTitle);

  RexxString f3a;
  first->print(f3a, 4);
  RexxString f3b;
  second->print(f3b, 4);
  EXPECT_EQ(rest, "\n" + std::string(f3a.text()) + "\n" + std::string(f3b.text()));
}

TEST(Format1DSCBTest, ListOwnsTheChainedDscbs) {
  // Run under the leak checker: every Format-3 DSCB below is freed exactly
  // once, by the list (a replaced slot) or by the Format-1 DSCB's destructor.
  DataSetRecord r(0xF1);
  auto* d = new Format1DSCB(r.bytes);
  for (int i = 0; i < 40; ++i) d->f3List.add(new Format3DSCB(ChainedFormat3Record(i).bytes));
  d->f3List.set(0, new Format3DSCB(ChainedFormat3Record(500).bytes));
  EXPECT_EQ(d->f3List.count, 40);
  EXPECT_EQ(d->f3List.capacity, 64);
  GenericDSCB* base = d;
  delete base;  // through the virtual destructor
}

}  // namespace
