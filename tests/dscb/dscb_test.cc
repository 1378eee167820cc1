// The DSCB classes: every layout as rows, and the factory.
#include <cstring>
#include <memory>
#include <sstream>
#include <string>
#include <typeinfo>
#include <vector>

#include <gtest/gtest.h>

#include "dscb/format1_dscb.h"
#include "dscb/format3_dscb.h"
#include "dscb/format4_dscb.h"
#include "dscb/format5_dscb.h"
#include "dscb/format8_dscb.h"
#include "dscb/format9_dscb.h"

namespace {

using Rec = std::vector<unsigned char>;

// Byte i is i, except the format identifier at 44.
Rec pattern(unsigned char id) {
  Rec r(140);
  for (int i = 0; i < 140; ++i) r[i] = static_cast<unsigned char>(i);
  r[44] = id;
  return r;
}
std::unique_ptr<GenericDSCB> make(const Rec& r, int c = -1, int h = -1, int n = -1) {
  return std::unique_ptr<GenericDSCB>(GenericDSCB::create(r.data(), c, h, n));
}
std::string text(const RexxString& s) { return s.text(); }

// Rows "label offset length type newline", written out; extents by rule.
std::string extentRows(char slot, int at) {
  std::ostringstream o;
  o << "ExtType-" << slot << ' ' << at << " 1 5 0 ExtSeq-" << slot << ' ' << at + 1
    << " 1 3 0 ExtLoCCHH-" << slot << ' ' << at + 2 << " 4 9 0 ExtHiCCHH-" << slot << ' '
    << at + 6 << " 4 9 1 ";
  return o.str();
}
const char kDataSetHead[] =
    "DSname 0 44 6 1 FmtID 44 1 4 0 VolSer 45 6 6 0 VolSeq 51 2 3 0 DateCreated 53 3 16 0 "
    "DateExpired 56 3 16 1 NbrExts 59 1 3 0 LastDirBytes 60 1 3 0 Flags 61 1 5 0 "
    "SysCode 62 13 7 1 DateRefed 75 3 16 0 SMSind 78 1 5 1 SecSpcExtFlags 79 1 5 0 "
    "SecSpcExtVal 80 2 3 0 DSorg 82 2 8 0 RecFmt 84 1 8 0 OptCD 85 1 5 1 BlkSize 86 2 3 0 "
    "Lrecl 88 2 3 1 KeyLen 90 1 3 0 ";
std::string format1Rows() {
  return kDataSetHead +
         std::string("KeyPos 91 2 3 0 DSind 93 1 5 0 AllocFlag 94 1 5 0 SecAq 95 3 4 0 "
                     "LastTTR 98 3 4 0 TrkBal 101 2 3 0 Resv 103 1 4 0 EAVhiTrk 104 1 7 1 ") +
         extentRows('1', 105) + extentRows('2', 115) + extentRows('3', 125) + "F3-Dscb 135 5 9 1";
}
std::string format8Rows() {
  return kDataSetHead +
         std::string("KeyPos 91 1 3 0 DSind 92 1 5 0 SecAllocSpcParms 93 4 8 1 "
                     "AllocFlag 97 1 5 0 LastTTR 98 3 4 0 TrkBal 101 2 3 0 Resv 103 1 4 0 "
                     "EAVhiTrk 104 1 7 1 ") +
         extentRows('1', 105) + extentRows('2', 115) + extentRows('3', 125) + "F9-Dscb 135 5 9 1";
}
std::string format3Rows() {
  std::string rows = "DSCBKey 0 4 4 1 ";
  const char slots[] = "123456789ABCD";
  for (int m = 0; m < 13; ++m) {
    if (m == 4) rows += "FmtID 44 1 4 1 ";
    rows += extentRows(slots[m], m < 4 ? 4 + 10 * m : 45 + 10 * (m - 4));
  }
  return rows + "NxtF3dscb 135 5 9 1";
}
const char kFormat4Rows[] =
    "DSCBKey 0 44 4 1 FmtID 44 1 4 0 LastDSCB 45 5 9 0 DSCBcnt 50 2 3 1 NextAltTrk 52 4 4 0 "
    "RemAltTrks 56 2 3 1 VTOCind 58 1 5 0 VTOCexts 59 1 3 0 SMSind 60 1 5 0 AltCyls 61 1 3 1 "
    "DevConst 62 14 4 0 NbrCyls 62 2 3 0 Trks/Cyl 64 2 3 0 TrkLen 66 2 3 1 "
    "KeyRcdOvhd 68 2 3 0 NonLastKeyOvhd 68 1 3 0 LastKeyOvhd 69 1 3 0 NonKeyOvhd 70 1 3 0 "
    "DevFlag-1 71 1 5 1 DevTolerance 72 2 3 0 DSCBs/trk 74 1 3 0 DirBlks/Trk 75 1 3 1 "
    "VSAM-TS 76 8 4 0 VSAM-CtlgInd 84 1 5 0 CRAloc 85 2 3 0 VSAM-CtlgTS 87 8 4 1 "
    "Resv 95 5 4 0 FirstF6 100 5 9 0 VTOCextDesc 105 10 7 1 Resv 115 10 7 0 "
    "FreeSpcMgtLvl 125 1 7 0 ExtdFreeSpc 126 5 4 1 MinCylAlloc 131 1 3 0 ExtNbrCyls 132 4 3 0 "
    "MgtSpcCyl/4096 136 2 3 1 DevFlag-2 138 1 5 0 Resv 139 1 4 1";
// Format-5: 26 free extents of (TrkBgn 2, CylCnt 2, TrkCnt 1), 1-8 in the
// key from 4, 9-26 after the format identifier from 45; the ninth is labelled
// 08 again and later ones one below their number; two extents a line.
std::string format5Rows() {
  std::ostringstream o;
  o << "DSCBKey 0 4 4 1 ";
  for (int n = 1; n <= 26; ++n) {
    if (n == 9) o << "FmtID 44 1 4 1 ";
    int at = n <= 8 ? 4 + 5 * (n - 1) : 45 + 5 * (n - 9);
    int label = n <= 8 ? n : (n == 9 ? 8 : n - 1);
    char num[3] = {static_cast<char>('0' + label / 10), static_cast<char>('0' + label % 10), 0};
    o << "TrkBgn-" << num << ' ' << at << " 2 3 0 CylCnt-" << num << ' ' << at + 2
      << " 2 3 0 TrkCnt-" << num << ' ' << at + 4 << " 1 3 " << (n % 2 == 0) << ' ';
  }
  o << "NxtF5dscb 135 5 9 1";
  return o.str();
}
const char kFormat9Rows[] =
    "DSCBKey 0 1 4 1 SubType 1 1 4 0 F9count 2 1 4 0 Flag1 3 1 5 1 JobName 4 8 6 0 "
    "StepName 12 8 6 0 Time 20 6 7 1 Reserved 26 18 7 1 FmtID 44 1 4 1 F3count 45 1 4 1 "
    "F3cchhr-01 46 5 9 0 F3cchhr-02 51 5 9 0 F3cchhr-03 56 5 9 1 F3cchhr-04 61 5 9 0 "
    "F3cchhr-05 66 5 9 0 F3cchhr-06 71 5 9 1 F3cchhr-07 76 5 9 0 F3cchhr-08 81 5 9 0 "
    "F3cchhr-09 86 5 9 1 F3cchhr-10 91 5 9 1 Attributes 96 20 7 1 Reserved 116 19 7 1 "
    "NxtF9dscb 135 5 9 1";

TEST(DscbTest, EveryLayoutRowByRow) {
  const struct {
    unsigned char id;
    std::string rows;
  } formats[] = {{0xF1, format1Rows()}, {0xF3, format3Rows()}, {0xF4, kFormat4Rows},
                 {0xF5, format5Rows()}, {0xF8, format8Rows()}, {0xF9, kFormat9Rows}};
  for (const auto& f : formats) {
    std::unique_ptr<GenericDSCB> d = make(pattern(f.id));
    RexxString desc;
    std::istringstream got(text(d->printDesc(desc))), want(f.rows);
    std::string label, line;
    int offset, length, type, nl, row = 0;
    while (want >> label >> offset >> length >> type >> nl) {
      char expected[160];
      std::snprintf(expected, sizeof expected, "%s: Offset-%d(0x%X), Length-%d, Type-%d, NL-%s",
                    label.c_str(), offset, offset, length, type, nl ? "Yes" : "No");
      ASSERT_TRUE(std::getline(got, line)) << std::hex << +f.id << " row " << row;
      EXPECT_EQ(line.substr(line.find_first_not_of(' ')), expected) << std::hex << +f.id;
      ++row;
    }
    ASSERT_TRUE(std::getline(got, line));
    EXPECT_EQ(line.substr(line.find_first_not_of(' ')), "Total length: 140") << +f.id;
    EXPECT_FALSE(std::getline(got, line)) << +f.id;
  }
}

TEST(DscbTest, FactoryPicksTheClassFromByte44AndKeepsACopy) {
  const struct {
    unsigned char id;
    const std::type_info& cls;
    int type;
  } rows[] = {{0xF1, typeid(Format1DSCB), 1},  {0xF3, typeid(Format3DSCB), 3},
              {0xF4, typeid(Format4DSCB), 4},  {0xF5, typeid(Format5DSCB), 5},
              {0xF8, typeid(Format8DSCB), 8},  {0xF9, typeid(Format9DSCB), 9},
              {0xF2, typeid(GenericDSCB), 2},  {0xF7, typeid(GenericDSCB), 7},
              {0x00, typeid(GenericDSCB), 0},  {0xC1, typeid(GenericDSCB), 1},
              {0xFA, typeid(GenericDSCB), 10}};
  for (const auto& r : rows) {
    Rec bytes = pattern(r.id);
    std::unique_ptr<GenericDSCB> d = make(bytes, 3, 4, 5);
    std::memset(bytes.data(), 0xEE, bytes.size());  // the object keeps its own copy
    const GenericDSCB& object = *d;
    EXPECT_EQ(typeid(object), r.cls) << std::hex << +r.id;
    EXPECT_EQ(d->getType(), r.type) << std::hex << +r.id;
    EXPECT_EQ(d->cyl * 100 + d->head * 10 + d->rec, 345) << std::hex << +r.id;
    EXPECT_FALSE(d->largeCylinders);
    EXPECT_EQ(d->dscb[139], 139);
  }
  Rec r = pattern(0);  // made directly: no location
  const GenericDSCB* direct[] = {new Format1DSCB(r.data()), new Format3DSCB(r.data()), new Format4DSCB(r.data()),
                                 new Format5DSCB(r.data()), new Format8DSCB(r.data()), new Format9DSCB(r.data())};
  for (const GenericDSCB* d : direct) {
    EXPECT_EQ(std::vector<int>({d->cyl, d->head, d->rec}), std::vector<int>(3, -1)) << d->getType();
    delete d;
  }
}

}  // namespace
