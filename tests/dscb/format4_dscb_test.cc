// Format4DSCB: the DSCB count, the last used DSCB's address, the table's
// description and dump.
#include "dscb/format4_dscb.h"

#include <cstring>
#include <string>

#include <gtest/gtest.h>

namespace {

// A Format-4 record of a D600 volume.
struct Format4Record {
  unsigned char bytes[140] = {};
  Format4Record() {
    std::memset(bytes, 0x04, 44);                                  // key: 44 bytes of 04
    bytes[44] = 0xF4;                                              // format identifier
    const unsigned char last[5] = {0x00, 0x00, 0x00, 0x01, 0x03};  // last DSCB: 0/1/3
    std::memcpy(bytes + 45, last, 5);
    bytes[50] = 0x00;  // DSCB count 10
    bytes[51] = 0x0A;
    bytes[58] = 0x80;  // VTOC indicators
    bytes[59] = 0x01;  // VTOC extents
    const unsigned char devConst[14] = {
        0x04, 0x59,  // cylinders 1113
        0x00, 0x0F,  // tracks per cylinder 15
        0xDC, 0x48,  // track length 56392
        0x02, 0x3D,  // key record overhead: 2 and 61
        0x16,        // non-key overhead 22
        0x11,        // device flags
        0x30, 0x00,  // tolerance
        0x32,        // DSCBs per track 50
        0x35,        // directory blocks per track 53
    };
    std::memcpy(bytes + 62, devConst, 14);
  }
};

TEST(Format4DSCBTest, DscbCount) {
  Format4Record r;
  EXPECT_EQ(Format4DSCB(r.bytes).getDSCBcount(), 10);
  r.bytes[50] = 0xFF;
  r.bytes[51] = 0xFF;
  EXPECT_EQ(Format4DSCB(r.bytes).getDSCBcount(), 65535);
}

TEST(Format4DSCBTest, LastDscb) {
  Format4Record r;
  Format4DSCB small(r.bytes);
  int cyl = 9, head = 9, rec = 9;
  for (bool large : {false, true}) {
    small.largeCylinders = large;
    EXPECT_TRUE(small.getLastdscb(cyl, head, rec));
    EXPECT_EQ(cyl, 0);
    EXPECT_EQ(head, 1);
    EXPECT_EQ(rec, 3);
  }
  const unsigned char far[5] = {0x00, 0x02, 0x00, 0x15, 0x01};
  std::memcpy(r.bytes + 45, far, 5);
  Format4DSCB big(r.bytes);
  big.largeCylinders = true;
  EXPECT_TRUE(big.getLastdscb(cyl, head, rec));
  EXPECT_EQ(cyl, 65538);
  EXPECT_EQ(head, 5);
  EXPECT_EQ(rec, 1);
  big.largeCylinders = false;
  EXPECT_TRUE(big.getLastdscb(cyl, head, rec));
  EXPECT_EQ(cyl, 2);
  EXPECT_EQ(head, 0x15);
}

TEST(Format4DSCBTest, GroupsAndDuplicateLabels) {
  Format4Record r;
  Format4DSCB d(r.bytes);
  EXPECT_EQ(d.getType(), 4);
  EXPECT_EQ(d.getFieldAddr("DevConst"), d.dscb + 62);
  EXPECT_EQ(d.getFieldAddr("NbrCyls"), d.dscb + 62);
  EXPECT_EQ(d.getFieldAddr("NonLastKeyOvhd"), d.dscb + 68);
  EXPECT_EQ(d.getFieldAddr("Resv"), d.dscb + 95);  // the first of three

  RexxString out;
  StructureField::locateField("DSCBcnt", d.getDesc(), nullptr)->printDesc(out, 12);
  EXPECT_STREQ(out.text(), "     DSCBcnt: Offset-50(0x32), Length-2, Type-3, NL-Yes\n");
}

TEST(Format4DSCBTest, Description) {
  Format4Record r;
  RexxString out;
  Format4DSCB(r.bytes).printDesc(out);
  // The group entries overlap their parts; the total is still 140.
  EXPECT_STREQ(out.text(),
               "       DSCBKey: Offset-0(0x0), Length-44, Type-4, NL-Yes\n"
               "         FmtID: Offset-44(0x2C), Length-1, Type-4, NL-No\n"
               "      LastDSCB: Offset-45(0x2D), Length-5, Type-9, NL-No\n"
               "       DSCBcnt: Offset-50(0x32), Length-2, Type-3, NL-Yes\n"
               "    NextAltTrk: Offset-52(0x34), Length-4, Type-4, NL-No\n"
               "    RemAltTrks: Offset-56(0x38), Length-2, Type-3, NL-Yes\n"
               "       VTOCind: Offset-58(0x3A), Length-1, Type-5, NL-No\n"
               "      VTOCexts: Offset-59(0x3B), Length-1, Type-3, NL-No\n"
               "        SMSind: Offset-60(0x3C), Length-1, Type-5, NL-No\n"
               "       AltCyls: Offset-61(0x3D), Length-1, Type-3, NL-Yes\n"
               "      DevConst: Offset-62(0x3E), Length-14, Type-4, NL-No\n"
               "       NbrCyls: Offset-62(0x3E), Length-2, Type-3, NL-No\n"
               "      Trks/Cyl: Offset-64(0x40), Length-2, Type-3, NL-No\n"
               "        TrkLen: Offset-66(0x42), Length-2, Type-3, NL-Yes\n"
               "    KeyRcdOvhd: Offset-68(0x44), Length-2, Type-3, NL-No\n"
               "NonLastKeyOvhd: Offset-68(0x44), Length-1, Type-3, NL-No\n"
               "   LastKeyOvhd: Offset-69(0x45), Length-1, Type-3, NL-No\n"
               "    NonKeyOvhd: Offset-70(0x46), Length-1, Type-3, NL-No\n"
               "     DevFlag-1: Offset-71(0x47), Length-1, Type-5, NL-Yes\n"
               "  DevTolerance: Offset-72(0x48), Length-2, Type-3, NL-No\n"
               "     DSCBs/trk: Offset-74(0x4A), Length-1, Type-3, NL-No\n"
               "   DirBlks/Trk: Offset-75(0x4B), Length-1, Type-3, NL-Yes\n"
               "       VSAM-TS: Offset-76(0x4C), Length-8, Type-4, NL-No\n"
               "  VSAM-CtlgInd: Offset-84(0x54), Length-1, Type-5, NL-No\n"
               "        CRAloc: Offset-85(0x55), Length-2, Type-3, NL-No\n"
               "   VSAM-CtlgTS: Offset-87(0x57), Length-8, Type-4, NL-Yes\n"
               "          Resv: Offset-95(0x5F), Length-5, Type-4, NL-No\n"
               "       FirstF6: Offset-100(0x64), Length-5, Type-9, NL-No\n"
               "   VTOCextDesc: Offset-105(0x69), Length-10, Type-7, NL-Yes\n"
               "          Resv: Offset-115(0x73), Length-10, Type-7, NL-No\n"
               " FreeSpcMgtLvl: Offset-125(0x7D), Length-1, Type-7, NL-No\n"
               "   ExtdFreeSpc: Offset-126(0x7E), Length-5, Type-4, NL-Yes\n"
               "   MinCylAlloc: Offset-131(0x83), Length-1, Type-3, NL-No\n"
               "    ExtNbrCyls: Offset-132(0x84), Length-4, Type-3, NL-No\n"
               "MgtSpcCyl/4096: Offset-136(0x88), Length-2, Type-3, NL-Yes\n"
               "     DevFlag-2: Offset-138(0x8A), Length-1, Type-5, NL-No\n"
               "          Resv: Offset-139(0x8B), Length-1, Type-4, NL-Yes\n"
               "                Total length: 140\n");
}

TEST(Format4DSCBTest, DumpShowsGroupsAndParts) {
  Format4Record r;
  RexxString out;
  Format4DSCB(r.bytes).print(out, 0);
  std::string text = out.text();
  EXPECT_EQ(text.substr(0, 17), "Format 4 DSCB --\n");
  EXPECT_NE(text.find("\n         FmtID: F4,      LastDSCB: 0000 0001 03,  DSCBcnt: 10\n"),
            std::string::npos);
  EXPECT_NE(text.find("\n      DevConst: 0459000FDC48023D161130003235,     NbrCyls: 1113,"
                      "      Trks/Cyl: 15,  TrkLen: 56392\n"),
            std::string::npos);
  EXPECT_NE(text.find("\n    KeyRcdOvhd: 573,     NonLastKeyOvhd: 2,  LastKeyOvhd: 61,"
                      "    NonKeyOvhd: 22,     DevFlag-1: 0001 0001\n"),
            std::string::npos);
  // The last line: a field that does not end its line, then one that does.
  EXPECT_EQ(text.substr(text.size() - 39), "     DevFlag-2: 0000 0000,    Resv: 00\n");
}

}  // namespace
