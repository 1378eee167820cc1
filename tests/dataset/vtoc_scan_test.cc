// scanVtoc on VTOCs as other systems write them: crossing a cylinder on 19-
// and 30-head devices, Format-3 and Format-9 chains (whole and damaged),
// the DSCB's dates and end-of-data pointer, a volume of 28-bit cylinders.
#include "dataset/vtoc_scan.h"

#include <gtest/gtest.h>

#include "dataset/block_reader.h"
#include "dataset/dataset_builder.h"
#include "dataset/record_reader.h"

namespace ckdvol {
namespace {

using namespace ckdvol_test;

DataSetLayout layout(const std::string& name, std::vector<ExtentSpec> extents, int nbrExts = -1,
                     Cchhr next = Cchhr()) {
  DataSetLayout l;
  l.name = name;
  l.extents = std::move(extents);
  l.nbrExts = nbrExts;
  l.next = next;
  return l;
}

// The 3-track VTOC 0/(H-2) .. 1/0 whose last active DSCB is on 0/(H-1); the
// Format-3 DSCB of B.SECOND lies on 1/0, the VTOC's last track.
TEST(VtocScanTest, VtocCrossingACylinderOnNineteenAndThirtyHeads) {
  for (auto type : {EmulatedCKDfile::D300, EmulatedCKDfile::D430}) {
    TestVolume vol(type, 4);
    const uint16_t h = vol.file().tracksPerCylinder;
    SCOPED_TRACE(h);
    const Cchhr a{0, uint16_t(h - 2), 1}, b{0, uint16_t(h - 1), 1}, c{1, 0, 1};
    layVtoc(vol, a,
            {{a,
              {format4Dscb({0, uint16_t(h - 1), 2}, 50, a, c), formatIdDscb(0xF5),
               format1Dscb(layout("A.FIRST", {{2, 0, 2, 0}}))}},
             {b,
              {format1Dscb(layout("B.SECOND", {{1, 1, 1, 2}, {2, uint16_t(h - 1), 3, 0}, {3, 1, 3, 1}},
                                  4, c)),
               format1Dscb(layout("C.THIRD", {{3, 2, 3, 2}}))}},
             {c, {format3Dscb({{3, uint16_t(h - 2), 3, uint16_t(h - 1)}}), emptyDscb(), emptyDscb()}}});
    VtocInfo v;
    std::string error;
    ASSERT_EQ(scanVtoc(vol.file(), v, error), kScanOk) << error;
    EXPECT_EQ(v.volser, "0X0123");
    EXPECT_EQ(v.vtocFirstTrack, h - 2u);
    EXPECT_EQ(v.vtocLastTrack, h + 0u);
    EXPECT_EQ(v.dscbRecords, 8u);
    EXPECT_EQ(v.format0, 2u);
    EXPECT_EQ(v.format3, 1u);
    EXPECT_EQ(v.format4 * 10 + v.format5, 11u);
    EXPECT_TRUE(v.notes.empty()) << v.notes.front();
    ASSERT_EQ(v.dataSets.size(), 3u);
    EXPECT_EQ(v.dataSets[0].name, "A.FIRST");
    const DataSetInfo* second = findDataSet(v, "B.SECOND");
    ASSERT_NE(second, nullptr);
    EXPECT_EQ(second->damage, "");
    EXPECT_EQ(second->address.cyl * 1000 + second->address.head * 10 + second->address.record,
              (h - 1) * 10u + 1);
    ASSERT_EQ(second->extents.size(), 4u);
    EXPECT_EQ(second->extents[3].lowHead, h - 2u);
    EXPECT_EQ(second->tracksAllocated, 7u);  // 2 + 2 (across cylinders 2/3) + 1 + 2
    EXPECT_EQ(findDataSet(v, "C.THIRD")->tracksAllocated, 1u);
    EXPECT_EQ(findDataSet(v, "B.SECON"), nullptr);
  }
}

// One broken chain spoils only its own data set. DSCB i lies at 0/1/(i+2).
TEST(VtocScanTest, DamagedChainsMakeOnlyTheirDataSetUnreadable) {
  TestVolume vol(EmulatedCKDfile::D600, 3);
  auto at = [](uint8_t index) { return Cchhr{0, 1, uint8_t(index + 2)}; };
  const std::vector<ExtentSpec> three = {{1, 0, 1, 0}, {1, 1, 1, 1}, {1, 2, 1, 2}};
  vol.writeVtoc({
      format1Dscb(layout("GOOD", {{1, 0, 1, 0}})),                           // 0
      format1Dscb(layout("BAD.MISSING", three, 4, {0, 1, 60})),              // 1
      format1Dscb(layout("BAD.WRONG", three, 4, at(7))),                     // 2
      format1Dscb(layout("BAD.LOOP", three, 20, at(4))),                     // 3
      format3Dscb({{2, 3, 2, 3}}, at(4)),                                    // 4: names itself
      format1Dscb(layout("BAD.SHORT", three, 5)),                            // 5
      format8Dscb(layout("EAV.LISTED", three, 4, at(8))),                    // 6
      formatIdDscb(0xF5),                                                    // 7
      format9Dscb({at(9)}),                                                  // 8: F3 listed
      format3Dscb({{2, 0, 2, 0}}),                                           // 9
      format8Dscb(layout("EAV.CHAINED", three, 4, at(11))),                  // 10
      format9Dscb({}, at(12)),                                               // 11: F3 chained
      format3Dscb({{2, 1, 2, 1}}),                                           // 12
      format1Dscb(layout("BAD.EXTENT", {{1, 16, 1, 16}})),                   // 13: head 16 of 15
      formatIdDscb(0xF7),                                                    // 14
  });
  VtocInfo v;
  std::string error;
  ASSERT_EQ(scanVtoc(vol.file(), v, error), kScanOk) << error;
  struct Case {
    const char* name;
    const char* damage;
    size_t extents;
  } cases[] = {
      {"GOOD", "", 1},
      {"BAD.MISSING", "Format-3 DSCB 0/1/60 named by Format-1 DSCB 0/1/3 is not in the VTOC", 3},
      {"BAD.WRONG", "DSCB 0/1/9 named by Format-1 DSCB 0/1/4 is not a Format-3 DSCB (format identifier F5)", 3},
      {"BAD.LOOP", "the DSCB chain loops back to 0/1/6 (from Format-3 DSCB 0/1/6)", 4},
      {"BAD.SHORT", "Format-1 DSCB 0/1/7 counts 5 extents but its chain holds 3", 3},
      {"EAV.LISTED", "", 4},
      {"EAV.CHAINED", "", 4},
      {"BAD.EXTENT", "extent 1 (1/16 to 1/16) is not a run of tracks of this volume", 1},
  };
  ASSERT_EQ(v.dataSets.size(), 8u);
  for (const Case& c : cases) {
    const DataSetInfo* ds = findDataSet(v, c.name);
    ASSERT_NE(ds, nullptr) << c.name;
    EXPECT_EQ(ds->damage, c.damage) << c.name;
    EXPECT_EQ(ds->extents.size(), c.extents) << c.name;
  }
  EXPECT_EQ(findDataSet(v, "EAV.LISTED")->extents[3].lowCyl * 100 +
                findDataSet(v, "EAV.CHAINED")->extents[3].lowHead, 201u);
  EXPECT_EQ(v.format3 * 100 + v.format9 * 10 + v.unknown, 321u);
  Block b;
  BlockReader damaged(vol.file(), *findDataSet(v, "BAD.LOOP"));
  EXPECT_EQ(damaged.next(b), kBlockDamagedDataSet);
}

TEST(VtocScanTest, AttributesDatesAndTheEndOfDataPointer) {
  TestVolume vol(EmulatedCKDfile::D600, 3);
  DataSetLayout big = layout("BIG", {{1, 0, 1, 1}});
  big.recfm = 0x58;  // VBS
  big.lrecl = 32760;
  big.blksize = 27998;
  big.keyLength = 8;
  DataSetLayout vsam = layout("VSAM", {{2, 0, 2, 4}});
  vsam.dsorg = 0x0008;
  const std::vector<Cchhr> at = vol.writeVtoc({format1Dscb(big), format1Dscb(layout("SMALL", {{1, 2, 1, 2}})),
                                               format1Dscb(layout("EMPTY", {{1, 3, 1, 3}})),
                                               format1Dscb(vsam)});
  vol.patchDscb(at[0], 53, {0x7C, 0x00, 0x20});        // created 2024 day 32
  vol.patchDscb(at[0], 56, {0x00, 0x00, 0x00});        // no expiry
  vol.patchDscb(at[0], 61, {0x08});                    // DS1FLAG1: large format
  vol.patchDscb(at[0], 75, {0x7D, 0x01, 0x6D});        // referenced 2025 day 365
  vol.patchDscb(at[0], 98, {0x01, 0x02, 0x03, 0x1F, 0x40, 0x00, 0x05});  // TT R, TRBAL, -, TTTHI
  vol.patchDscb(at[1], 98, {0x00, 0x00, 0x02, 0x00, 0x00, 0x00, 0x05});  // TTTHI without the flag
  VtocInfo v;
  std::string error;
  ASSERT_EQ(scanVtoc(vol.file(), v, error), kScanOk) << error;
  const DataSetInfo& b = *findDataSet(v, "BIG");
  EXPECT_EQ(b.recfm * 0x10000 + b.keyLength, 0x580008u);
  EXPECT_EQ(b.lrecl + b.blksize + b.dsorg, 32760 + 27998 + 0x4000);
  EXPECT_EQ(b.created.year * 1000 + b.created.day, 2024032);
  EXPECT_EQ(b.referenced.year * 1000 + b.referenced.day, 2025365);
  EXPECT_TRUE(b.expires.empty());
  EXPECT_TRUE(b.largeFormat);
  EXPECT_EQ(b.lastBlockTrack, 0x050102u);
  EXPECT_EQ(b.lastBlockRecord, 3);
  EXPECT_EQ(b.trackBalance, 8000);
  EXPECT_EQ(b.tracksUsed, 2u);  // bounded by the 2 tracks allocated
  const DataSetInfo& s = *findDataSet(v, "SMALL");
  EXPECT_FALSE(s.largeFormat);
  EXPECT_EQ(s.lastBlockTrack * 1000 + s.lastBlockRecord, 2u);
  EXPECT_EQ(s.tracksUsed, 1u);
  EXPECT_EQ(findDataSet(v, "EMPTY")->tracksUsed, 0u);
  EXPECT_TRUE(findDataSet(v, "EMPTY")->usedFromPointer);
  EXPECT_EQ(findDataSet(v, "VSAM")->tracksUsed, 5u);
  EXPECT_FALSE(findDataSet(v, "VSAM")->usedFromPointer);
}

TEST(VtocScanTest, NoLabelOrNoFormat4) {
  struct Case {
    Bytes pointer;  // VOL1 CCHHR of the VTOC, or empty: no label at all
    int result;
    const char* error;
  } cases[] = {
      {{0x00, 0x00, 0x00, 0x01, 0x02}, kScanNoFormat4, "the record at the VTOC address 0/1/2 is not a Format-4 DSCB"},
      {{0x00, 0x00, 0x00, 0x01, 0x4D}, kScanNoFormat4, "no DSCB at the VTOC address 0/1/77"},
      {{0x03, 0xE7, 0x00, 0x01, 0x01}, kScanVtocUnreadable, "the VTOC track 999/1 named by the label cannot be read"},
      {{}, kScanNoLabel, "track 0/0 holds no VOL1 label record"},
  };
  for (const Case& c : cases) {
    TestVolume vol(EmulatedCKDfile::D600, 3);
    if (c.pointer.empty()) {
      vol.setRecords(0, 0, {});
    } else {
      vol.patchLabel(label_layout::kVtocCc, c.pointer);
    }
    VtocInfo v;
    std::string error;
    EXPECT_EQ(scanVtoc(vol.file(), v, error), c.result);
    EXPECT_EQ(error, c.error);
  }
}

// A volume of 70119 cylinders: VTOC at 65600/1, the data set's extents at
// 70000/14 .. 70001/0 and (through a Format-3 DSCB) 70002/5, all in the
// 28-bit form.
TEST(VtocScanTest, LargeCylinderAddresses) {
  SparseLargeVolume vol(70119);
  Bytes label = cat({text("VOL1LARGE1"), {0x00},  // key id, serial, security
                     {0x00, 0x40, 0x00, 0x11, 0x01}, Bytes(64, 0x40)});  // 65600 = 0x10040, head 1, R1
  vol.setTrack(0, 0, {keyedRecord(3, text("VOL1"), label)});
  Dscb f1 = format1Dscb(layout("LARGE.SEQ", {}, 2));
  f1[105] = 0x01;                                     // extent 1: type 01
  putCchh(f1.data() + 107, 70000, 14, true);           //   11 70 00 1E
  putCchh(f1.data() + 111, 70001, 0, true);            //   11 71 00 10
  putCchhr(f1.data() + 135, {65600, 1, 3}, true);      // Format-3 at 00 40 00 11 03
  Dscb f3 = format3Dscb({});
  f3[4] = 0x01;
  putCchh(f3.data() + 6, 70002, 5, true);
  putCchh(f3.data() + 10, 70002, 5, true);
  vol.setTrack(65600, 1, {dscbRecord(1, format4Dscb({65600, 1, 2}, 50, {65600, 1}, {65600, 1}, true)),
                          dscbRecord(2, f1), dscbRecord(3, f3)});
  vol.setTrack(70000, 14, {dataRecord(1, text("ABCDEFGH"))});
  vol.setTrack(70001, 0, {dataRecord(1, text("IJKL"))});
  vol.setTrack(70002, 5, {dataRecord(1, text("MNOP")), eofRecord(2)});
  EmulatedCKDfile& file = vol.open();
  ASSERT_TRUE(file.largeCylinders);
  VtocInfo v;
  std::string error;
  ASSERT_EQ(scanVtoc(file, v, error), kScanOk) << error;
  EXPECT_EQ(v.volser, "LARGE1");
  EXPECT_EQ(v.format4At.cyl, 65600u);
  ASSERT_EQ(v.dataSets.size(), 1u);
  const DataSetInfo& ds = v.dataSets[0];
  ASSERT_EQ(ds.damage, "");
  ASSERT_EQ(ds.extents.size(), 2u);
  EXPECT_EQ(ds.extents[0].lowCyl * 100 + ds.extents[0].lowHead, 7000014u);
  EXPECT_EQ(ds.extents[1].highCyl * 100 + ds.extents[1].highHead, 7000205u);
  EXPECT_EQ(ds.tracksAllocated, 3u);
  BlockReader blocks(file, ds);
  RecordReader records(blocks, Deblocking::kFixed, 4);
  std::string got, want;
  LogicalRecord r;
  while (records.next(r) == 1) {
    got += std::to_string(r.block.cyl) + "/" + std::to_string(r.block.head) + ":" +
           std::string(r.data, r.data + r.length) + " ";
  }
  for (const char* w : {"70000/14:ABCD", "70000/14:EFGH", "70001/0:IJKL", "70002/5:MNOP"}) {
    const std::string s(w);
    const Bytes e = text(s.substr(s.find(':') + 1));
    want += s.substr(0, s.find(':') + 1) + std::string(e.begin(), e.end()) + " ";
  }
  EXPECT_EQ(got, want);
  EXPECT_EQ(blocks.endReason(), EndOfData::kEofRecord);
}

}  // namespace
}  // namespace ckdvol
