// The DSCB classes: every layout as rows, the factory, the accessors, the
// extent lookup across chained Format-3 DSCBs and the dumps with chains.
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

TEST(DscbTest, TitlesUnknownFormatsAndFieldLookup) {
  const struct {
    unsigned char id;
    int c, h, r;
    const char* title;
  } titles[] = {{0xF1, 0, 1, 3, "Format 1 DSCB at 0/1/3 (000000/01/03) --\n"},
                {0xF9, 70000, 14, 255, "Format 9 DSCB at 70000/14/255 (011170/0E/FF) --\n"},
                {0xF3, -1, -1, -1, "Format 3 DSCB --\n"},
                {0x00, -1, 5, 5, "Format 0 DSCB --\n"}};
  for (const auto& t : titles) {
    RexxString out;
    EXPECT_EQ(text(make(pattern(t.id), t.c, t.h, t.r)->fmtTitle(out)), t.title);
  }
  RexxString out("before\n");
  make(pattern(0xF7), 0, 0, 1)->print(out, 0);
  EXPECT_EQ(text(out),
            "before\n"
            "Format 7 DSCB at 0/0/1 (000000/00/01) --\n"
            "Unknown DSCB type --\n"
            " Key: 000102030405060708090A0B0C0D0E0F101112131415161718191A1B1C1D1E1F\n"
            "      202122232425262728292A2B\n"
            "Data: F72D2E2F303132333435363738393A3B3C3D3E3F404142434445464748494A4B\n"
            "      4C4D4E4F505152535455565758595A5B5C5D5E5F606162636465666768696A6B\n"
            "      6C6D6E6F707172737475767778797A7B7C7D7E7F808182838485868788898A8B\n");
  RexxString desc;
  EXPECT_EQ(text(make(pattern(0xF2))->printDesc(desc)),
            "Unknown DSCB type --: Offset-0(0x0), Length-0, Type-17, NL-Yes\n"
            "                 Key: Offset-0(0x0), Length-44, Type-4, NL-Yes\n"
            "                Data: Offset-44(0x2C), Length-96, Type-4, NL-Yes\n"
            "                      Total length: 140\n");

  std::unique_ptr<GenericDSCB> f4 = make(pattern(0xF4));
  EXPECT_EQ(f4->getFieldAddr("Resv"), f4->dscb + 95);  // the first of three
  EXPECT_EQ(f4->getFieldAddr("NonLastKeyOvhd"), f4->dscb + 68);
  EXPECT_EQ(f4->getFieldAddr("DevConst"), f4->dscb + 62);
  struct NoTable : GenericDSCB {
    explicit NoTable(const unsigned char* b) : GenericDSCB(b, -1, -1, -1) {}
    const StructureField* getDesc() const override { return nullptr; }
  };
  Rec bytes = pattern(0xF6);
  NoTable bare(bytes.data());
  const struct {
    const GenericDSCB* d;
    const char* name;
    const char* thrown;
  } failures[] = {{f4.get(), "resv", "FXDSCB::getFieldAddr - unknown field name"},
                  {f4.get(), "F3-Dscb", "FXDSCB::getFieldAddr - unknown field name"},
                  {&bare, "Key", "FXDSCB::getFieldAddr - no field descriptions"}};
  for (const auto& f : failures) {
    try {
      f.d->getFieldAddr(f.name);
      ADD_FAILURE() << f.name << ": no exception";
    } catch (const char* thrown) {
      EXPECT_STREQ(thrown, f.thrown) << f.name;
    }
  }
}

// A data set DSCB (format identifier `id`) with three extents 0/1-0/14,
// 1/0-1/14, 2/0-2/4.
Rec dataSetRecord(unsigned char id) {
  Rec r(140, 0);
  r[44] = id;
  r[59] = 3;                   // extents
  r[82] = 0x02, r[83] = 0x01;  // DSORG 0201: both bytes count
  r[84] = 0x90;                // RECFM FB
  r[86] = 0x19, r[87] = 0x01;  // BLKSIZE 6401
  r[88] = 0x01, r[89] = 0x50;  // LRECL 336
  const unsigned char ext[3][8] = {{0, 0, 0, 1, 0, 0, 0, 14}, {0, 1, 0, 0, 0, 1, 0, 14}, {0, 2, 0, 0, 0, 2, 0, 4}};
  for (int i = 0; i < 3; ++i) {
    r[105 + 10 * i] = 0x81;                           // type
    r[106 + 10 * i] = static_cast<unsigned char>(i);  // sequence
    std::memcpy(&r[107 + 10 * i], ext[i], 8);         // low CCHH, high CCHH
  }
  return r;
}
// A Format-3 record whose slot m holds cylinder base + m, heads 0 to 14.
Format3DSCB* chained(int base) {
  Rec r(140, 0);
  std::memset(r.data(), 0x03, 4);
  r[44] = 0xF3;
  for (int m = 0; m < 13; ++m) {
    unsigned char* e = &r[m < 4 ? 4 + 10 * m : 45 + 10 * (m - 4)];
    e[0] = 0x81;
    e[2] = static_cast<unsigned char>((base + m) >> 8), e[3] = static_cast<unsigned char>(base + m);
    e[6] = e[2], e[7] = e[3], e[9] = 14;
  }
  return new Format3DSCB(r.data());
}

TEST(DscbTest, DataSetAttributes) {
  Rec r = dataSetRecord(0xF1);
  r[59] = 0xFF;  // the extent count is one unsigned byte
  Format1DSCB f1(r.data());
  r[44] = 0xF8;
  Format8DSCB f8(r.data());
  const std::vector<int> want = {6401, 336, 0x0201, 0x90, 255};
  EXPECT_EQ(std::vector<int>({f1.getBlkSize(), f1.getLrecl(), f1.getDSorg(), f1.getRecfm(), f1.nbrExts}), want);
  EXPECT_EQ(std::vector<int>({f8.getBlkSize(), f8.getLrecl(), f8.getDSorg(), f8.getRecfm(), f8.nbrExts}), want);
  EXPECT_EQ(f1.raw, f1.dscb);
}

TEST(DscbTest, ExtentLookupAcrossChainedFormat3Dscbs) {
  const struct {
    const char* name;
    int nbrExts;
    std::vector<int> chain;  // Format-3 bases; 0 leaves the slot empty
    bool large;
    int i, loCyl, loHead, hiCyl, hiHead, loTrk, hiTrk, tracks;  // tracks 0: none (all -1)
  } rows[] = {
      {"first own", 3, {}, false, 0, 0, 1, 0, 14, 1, 14, 14},
      {"last own", 3, {}, false, 2, 2, 0, 2, 4, 30, 34, 5},
      {"index = count", 3, {}, false, 3, 0, 0, 0, 0, 0, 0, 0},
      {"negative index", 3, {}, false, -1, 0, 0, 0, 0, 0, 0, 0},
      {"no Format-3 yet", 5, {}, false, 3, 0, 0, 0, 0, 0, 0, 0},
      {"Format-3 slot 1", 5, {100}, false, 3, 100, 0, 100, 14, 1500, 1514, 15},
      {"Format-3 slot 2", 5, {100}, false, 4, 101, 0, 101, 14, 1515, 1529, 15},
      {"past the count", 5, {100}, false, 5, 0, 0, 0, 0, 0, 0, 0},
      {"slot D of the first", 17, {100, 200}, false, 15, 112, 0, 112, 14, 1680, 1694, 15},
      {"slot 1 of the second", 17, {100, 200}, false, 16, 200, 0, 200, 14, 3000, 3014, 15},
      {"empty list slot", 17, {0, 200}, false, 3, 0, 0, 0, 0, 0, 0, 0},
      {"after an empty slot", 17, {0, 200}, false, 16, 200, 0, 200, 14, 3000, 3014, 15},
      {"large cylinders", 3, {}, true, 1, 65537, 0, 65537, 14, 983055, 983069, 15},
  };
  for (unsigned char id : {0xF1, 0xF8}) {
    for (const auto& row : rows) {
      Rec r = dataSetRecord(id);
      r[59] = static_cast<unsigned char>(row.nbrExts);
      if (row.large) r[120] = 0x10, r[124] = 0x1E;  // extent 2 HH: cylinder 1 + (1 << 16)
      std::unique_ptr<GenericDSCB> d = make(r);
      d->largeCylinders = row.large;
      int c0, h0, c1, h1, t0, t1;
      auto lookup = [&](auto& f) {
        for (size_t k = 0; k < row.chain.size(); ++k) f.f3List.set(int(k), row.chain[k] ? chained(row.chain[k]) : nullptr);
        return f.getExtent(row.i, c0, h0, c1, h1, t0, t1);
      };
      int n = id == 0xF1 ? lookup(static_cast<Format1DSCB&>(*d)) : lookup(static_cast<Format8DSCB&>(*d));
      std::vector<int> want = {row.loCyl, row.loHead, row.hiCyl, row.hiHead, row.loTrk, row.hiTrk};
      if (row.tracks == 0) want.assign(6, -1);
      EXPECT_EQ(n, row.tracks) << row.name << " F" << (id & 0xF);
      EXPECT_EQ((std::vector<int>{c0, h0, c1, h1, t0, t1}), want) << row.name << " F" << (id & 0xF);
    }
  }
}

TEST(DscbTest, ChainAddressesSmallAndLargeCylinders) {
  const unsigned char far[5] = {0x00, 0x05, 0x00, 0x12, 0x07};  // CC 5, HH 0012, R 7
  const struct {
    unsigned char id;
    int at;  // F4: LastDSCB; F9 at 46 and 91: Format-3 slots 0 and 9
  } rows[] = {{0xF1, 135}, {0xF3, 135}, {0xF4, 45}, {0xF5, 135}, {0xF8, 135}, {0xF9, 135}, {0xF9, 46}, {0xF9, 91}};
  for (const auto& row : rows) {
    for (bool large : {false, true}) {
      Rec r(140, 0);
      r[44] = row.id;
      std::memcpy(&r[row.at], far, 5);
      std::unique_ptr<GenericDSCB> d = make(r);
      d->largeCylinders = large;
      int c = -9, h = -9, n = -9;
      GenericDSCB* g = d.get();
      bool ok = row.id == 0xF1   ? static_cast<Format1DSCB*>(g)->getF3dscbLoc(c, h, n)
                : row.id == 0xF3 ? static_cast<Format3DSCB*>(g)->getF3dscbLoc(c, h, n)
                : row.id == 0xF4 ? static_cast<Format4DSCB*>(g)->getLastdscb(c, h, n)
                : row.id == 0xF5 ? static_cast<Format5DSCB*>(g)->getF5dscbLoc(c, h, n)
                : row.id == 0xF8 ? static_cast<Format8DSCB*>(g)->getF9dscbLoc(c, h, n)
                : row.at == 135  ? static_cast<Format9DSCB*>(g)->getF9dscbLoc(c, h, n)
                                 : static_cast<Format9DSCB*>(g)->getF3dscbLoc((row.at - 46) / 5, c, h, n);
      EXPECT_TRUE(ok) << std::hex << +row.id << std::dec << " at " << row.at;
      EXPECT_EQ(std::vector<int>({c, h, n}), large ? std::vector<int>({65541, 2, 7}) : std::vector<int>({5, 18, 7}))
          << std::hex << +row.id << std::dec << " at " << row.at;
    }
  }
  Rec r = pattern(0xF9);
  r[45] = 0xFF;  // F3count is one byte; only slots 0 to 9 exist
  Format9DSCB f9(r.data());
  EXPECT_EQ(f9.getF3count(), 255);
  for (int slot : {-1, 10}) {
    int c = -9, h = -9, n = -9;
    EXPECT_FALSE(f9.getF3dscbLoc(slot, c, h, n)) << slot;
    EXPECT_EQ(std::vector<int>({c, h, n}), std::vector<int>(3, 0)) << slot;
  }
  r = pattern(0xF4);
  r[50] = 0xFF, r[51] = 0xFE;  // the DSCB count is an unsigned halfword
  EXPECT_EQ(Format4DSCB(r.data()).getDSCBcount(), 65534);
}

TEST(DscbTest, ChainedDscbsFollowTheirDataSetDscbIndented) {
  // Format-1: each Format-3 DSCB after an empty line, 4 deeper; Format-8: its
  // Format-9 DSCBs, then its Format-3 DSCBs, 6 deeper. Empty slots print nothing.
  std::unique_ptr<GenericDSCB> d1 = make(dataSetRecord(0xF1)), d8 = make(dataSetRecord(0xF8));
  auto& f1 = static_cast<Format1DSCB&>(*d1);
  auto& f8 = static_cast<Format8DSCB&>(*d8);
  RexxString alone1, alone8, out1, out8, a, b, c;
  std::string want1 = text(f1.print(alone1, 0)), want8 = text(f8.print(alone8, 0));
  f1.f3List.add(nullptr);
  f1.f3List.add(chained(100));
  f8.f3List.add(chained(300));
  f8.f9List.add(nullptr);
  f8.f9List.add(new Format9DSCB(pattern(0xF9).data()));
  want1 += "\n" + text(f1.f3List[1]->print(a, 4));
  want8 += "\n" + text(f8.f9List[1]->print(b, 6)) + "\n" + text(f8.f3List[0]->print(c, 6));
  EXPECT_EQ(text(f1.print(out1, 0)), want1);
  EXPECT_EQ(text(f8.print(out8, 0)), want8);
  EXPECT_EQ(text(a).substr(0, 70), "Format 3 DSCB --\n        DSCBKey: 03030303\n      ExtType-1: 1000 0001,");
  EXPECT_EQ(text(b).substr(0, 38), "Format 9 DSCB --\n         DSCBKey: 00\n");
  // The lists own their DSCBs (the leak checker sees a replaced slot freed).
  for (int i = 0; i < 40; ++i) f1.f3List.add(chained(i));
  f1.f3List.set(0, chained(500));
}

}  // namespace
