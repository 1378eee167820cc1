// scanVtoc on VTOCs as other systems write them: crossing a cylinder on 19-
// and 30-head devices, Format-3 and Format-9 chains (whole and damaged),
// the DSCB's dates and end-of-data pointer, a volume of 28-bit cylinders.
#include "dataset/vtoc_scan.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>

#include "dataset/block_reader.h"
#include "dataset/dataset_builder.h"
#include "dataset/record_reader.h"

namespace ckdvol {
namespace {

using namespace ckdvol_test;

// Format-4 DSCB: key 44 x 04 | 44 F4 | 45 DS4HPCHR last active DSCB | 74
// DS4DEVDT DSCBs per track | 105 DS4VTOCE: type 01, sequence 0, low and high CCHH.
Dscb format4Dscb(Cchhr lastActive, uint8_t perTrack, Cchhr vtocLow, Cchhr vtocHigh, bool large = false) {
  Dscb d{};
  std::memset(d.data(), 0x04, 44);
  d[44] = 0xF4, d[74] = perTrack, d[105] = 0x01;
  putCchhr(d.data() + 45, lastActive, large);
  putCchh(d.data() + 107, vtocLow.cyl, vtocLow.head, large);
  putCchh(d.data() + 111, vtocHigh.cyl, vtocHigh.head, large);
  return d;
}

// Points the label at `format4`; writes each track's DSCBs as records 1, 2, ...
void layVtoc(TestVolume& vol, Cchhr format4, const std::vector<std::pair<Cchhr, std::vector<Dscb>>>& tracks) {
  unsigned char pointer[5];
  putCchhr(pointer, format4);
  vol.patchLabel(label_layout::kVtocCc, Bytes(pointer, pointer + 5));
  for (const auto& t : tracks) {
    std::vector<Record> records;
    for (const Dscb& d : t.second) records.push_back(dscbRecord(uint8_t(records.size() + 1), d));
    vol.setRecords(t.first.cyl, t.first.head, records);
  }
}

// A D600 volume of more than 65520 cylinders as a sparse file: only the tracks
// given to setTrack() (before open) hold bytes, composed here with the 28-bit
// CC/HH (CC = cyl & FFFF, HH = (cyl >> 16) << 4 | head).
struct SparseLargeVolume {
  static constexpr off_t kHeads = 15, kSlot = 56832;
  ScopedTempDir dir;
  std::string path = dir.file("large.ckd");
  EmulatedCKDfile file;
  explicit SparseLargeVolume(int cylinders) {
    EXPECT_EQ(file.create(path.c_str(), EmulatedCKDfile::D600, cylinders), 0);
    const off_t size = 512 + off_t(file.cylinders) * kHeads * kSlot;  // rounded count
    file.close();
    const int fd = ::open(path.c_str(), O_RDWR);
    EXPECT_TRUE(fd >= 0 && ::pwrite(fd, "CKD_XVOL", 8, 0) == 8 && ::ftruncate(fd, size) == 0);
    ::close(fd);
  }
  void setTrack(uint32_t cyl, uint16_t head, std::vector<Record> records) {
    const uint16_t hh = uint16_t(((cyl >> 16) << 4) | head);
    const uint8_t c0 = uint8_t(cyl >> 8), c1 = uint8_t(cyl), h0 = uint8_t(hh >> 8), h1 = uint8_t(hh);
    Bytes slot = {0x00, c0, c1, h0, h1};                          // home address
    records.insert(records.begin(), dataRecord(0, Bytes(8, 0)));  // record zero
    for (const Record& r : records) {
      const size_t dl = r.data.size();
      slot.insert(slot.end(), {c0, c1, h0, h1, r.rec, uint8_t(r.key.size()), uint8_t(dl >> 8), uint8_t(dl)});
      slot.insert(slot.end(), r.key.begin(), r.key.end());
      slot.insert(slot.end(), r.data.begin(), r.data.end());
    }
    slot.resize(slot.size() + 8, 0xFF);  // end of track
    slot.resize(size_t(kSlot), 0);
    const int fd = ::open(path.c_str(), O_RDWR);
    EXPECT_EQ(::pwrite(fd, slot.data(), slot.size(), 512 + (off_t(cyl) * kHeads + head) * kSlot), kSlot);
    ::close(fd);
  }
};

// "name at c/h/r: extents/tracks [damage]", first and last extent "c/h-c/h".
std::string summary(const DataSetInfo* d) {
  if (d == nullptr) return "missing";
  auto ch = [](uint32_t c, uint32_t h) { return std::to_string(c) + "/" + std::to_string(h); };
  std::string s = d->name + " at " + ch(d->address.cyl, d->address.head) + "/" +
                  std::to_string(d->address.record) + ": " + std::to_string(d->extents.size()) + "/" +
                  std::to_string(d->tracksAllocated) + " " + ch(d->extents[0].lowCyl, d->extents[0].lowHead) +
                  "-" + ch(d->extents.back().highCyl, d->extents.back().highHead);
  return d->damage.empty() ? s : s + " [" + d->damage + "]";
}

// The 3-track VTOC 0/(H-2) .. 1/0 whose last active DSCB is on 0/(H-1); the
// Format-3 DSCB of B.SECOND lies on 1/0, the VTOC's last track.
TEST(VtocScanTest, VtocCrossingACylinderOnNineteenAndThirtyHeads) {
  for (auto type : {EmulatedCKDfile::D300, EmulatedCKDfile::D430}) {
    TestVolume vol(type, 4);
    const uint16_t h = vol.file().tracksPerCylinder, h1 = uint16_t(h - 1), h2 = uint16_t(h - 2);
    const std::string last = std::to_string(h - 1);
    const Cchhr a{0, h2, 1}, b{0, h1, 1}, c{1, 0, 1};
    layVtoc(vol, a,
            {{a, {format4Dscb({0, h1, 2}, 50, a, c), formatIdDscb(0xF5),
                  format1Dscb(layout("A.FIRST", {{2, 0, 2, 0}}))}},
             {b, {format1Dscb(layout("B.SECOND", {{1, 1, 1, 2}, {2, h1, 3, 0}, {3, 1, 3, 1}}, 4, c)),
                  format1Dscb(layout("C.THIRD", {{3, 2, 3, 2}}))}},
             {c, {format3Dscb({{3, h2, 3, h1}}), emptyDscb(), emptyDscb()}}});
    const VtocInfo v = scan(vol.file());
    EXPECT_EQ(v.volser + " " + std::to_string(v.vtocFirstTrack) + "-" + std::to_string(v.vtocLastTrack),
              "0X0123 " + std::to_string(h - 2) + "-" + std::to_string(h));
    // DSCBs, Format-0, -3, -4, -5, unknown
    EXPECT_EQ(std::vector<uint32_t>({v.dscbRecords, v.format0, v.format3, v.format4, v.format5, v.unknown}),
              std::vector<uint32_t>({8, 2, 1, 1, 1, 0}));
    EXPECT_TRUE(v.notes.empty()) << v.notes.front();
    ASSERT_EQ(v.dataSets.size(), 3u);
    EXPECT_EQ(summary(&v.dataSets[0]), "A.FIRST at 0/" + std::to_string(h - 2) + "/3: 1/1 2/0-2/0");
    // 2 + 2 (across cylinders 2 and 3) + 1 + 2 tracks
    EXPECT_EQ(summary(findDataSet(v, "B.SECOND")),
              "B.SECOND at 0/" + last + "/1: 4/7 1/1-3/" + last);
    EXPECT_EQ(summary(findDataSet(v, "C.THIRD")), "C.THIRD at 0/" + last + "/2: 1/1 3/2-3/2");
    EXPECT_EQ(findDataSet(v, "B.SECON"), nullptr);
    // A VTOC extent that misses the Format-4 DSCB's track: the walk falls back
    // to the tracks up to the last active DSCB's (0/(H-1)), so 1/0 is unread.
    vol.patchDscb(a, 105, Bytes(10, 0));
    const VtocInfo fallback = scan(vol.file());
    EXPECT_EQ(fallback.lastActive.head * 10 + fallback.lastActive.record, h1 * 10u + 2);
    EXPECT_EQ(fallback.notes.at(0).substr(0, 57), "the Format-4 DSCB's VTOC extent (0/0 to 0/0) is unusable;");
    EXPECT_EQ(findDataSet(fallback, "B.SECOND")->damage,
              "Format-3 DSCB 1/0/1 named by Format-1 DSCB 0/" + last + "/1 is not in the VTOC");
  }
}

// One broken chain spoils only its own data set. DSCB i lies at 0/1/(i+2).
TEST(VtocScanTest, DamagedChainsMakeOnlyTheirDataSetUnreadable) {
  TestVolume vol(EmulatedCKDfile::D600, 3);
  auto at = [](uint8_t index) { return Cchhr{0, 1, uint8_t(index + 2)}; };
  const std::vector<ExtentSpec> three = {{1, 0, 1, 0}, {1, 1, 1, 1}, {1, 2, 1, 2}};
  DataSetLayout good = layout("GOOD", {{1, 0, 1, 0}}, -1, {}, 0x58, 32760);  // VBS
  good.blksize = 27998, good.keyLength = 8;
  vol.writeVtoc({
      format1Dscb(good),                                         // 0
      format1Dscb(layout("BAD.MISSING", three, 4, {0, 1, 60})),  // 1
      format1Dscb(layout("BAD.WRONG", three, 4, at(7))),         // 2
      format1Dscb(layout("BAD.LOOP", three, 20, at(4))),         // 3
      format3Dscb({{2, 3, 2, 3}}, at(4)),                        // 4: names itself
      format1Dscb(layout("BAD.SHORT", three, 5)),                // 5
      format8Dscb(layout("EAV.LISTED", three, 4, at(8))),        // 6
      formatIdDscb(0xF5),                                        // 7
      format9Dscb({at(9)}),                                      // 8: F3 listed
      format3Dscb({{2, 0, 2, 0}}),                               // 9
      format8Dscb(layout("EAV.CHAINED", three, 4, at(11))),      // 10
      format9Dscb({}, at(12)),                                   // 11: F3 chained
      format3Dscb({{2, 1, 2, 1}}),                               // 12
      format1Dscb(layout("BAD.EXTENT", {{1, 16, 1, 16}})),       // 13: head 16 of 15
      formatIdDscb(0xF7),                                        // 14
      format8Dscb(layout("EAV.FULL", three, 3, {0, 1, 61})),     // 15: chain not needed
  });
  vol.appendRecords(0, 1, {keyedRecord(40, Bytes(44, 0xC1), Bytes(80, 0))});  // not a DSCB
  vol.patchDscb(at(0), 53, {0x7C, 0x00, 0x20, 0x7D, 0x00, 0x00});  // created 2024 day 32, expiry day 0
  vol.patchDscb(at(0), 61, {0x08});                                // DS1FLAG1: large format
  vol.patchDscb(at(0), 75, {0x7D, 0x01, 0x6D});                    // referenced 2025 day 365
  vol.patchDscb(at(0), 98, {0x01, 0x02, 0x03, 0x1F, 0x40, 0x00, 0x05});  // TT R, TRBAL, -, TTTHI
  const VtocInfo v = scan(vol.file());
  EXPECT_EQ(v.notes, std::vector<std::string>({"VTOC track 0/1: 1 record(s) that are not 44/96 DSCBs"}));
  const std::vector<std::string> want = {
      "BAD.EXTENT at 0/1/15: 1/0 1/16-1/16 [extent 1 (1/16 to 1/16) is not a run of tracks of this volume]",
      "BAD.LOOP at 0/1/5: 4/4 1/0-2/3 [the DSCB chain loops back to 0/1/6 (from Format-3 DSCB 0/1/6)]",
      "BAD.MISSING at 0/1/3: 3/3 1/0-1/2 [Format-3 DSCB 0/1/60 named by Format-1 DSCB 0/1/3 is not in the VTOC]",
      "BAD.SHORT at 0/1/7: 3/3 1/0-1/2 [Format-1 DSCB 0/1/7 counts 5 extents but its chain holds 3]",
      "BAD.WRONG at 0/1/4: 3/3 1/0-1/2 [DSCB 0/1/9 named by Format-1 DSCB 0/1/4 is not a Format-3 DSCB "
      "(format identifier F5)]",
      "EAV.CHAINED at 0/1/12: 4/4 1/0-2/1",
      "EAV.FULL at 0/1/17: 3/3 1/0-1/2",
      "EAV.LISTED at 0/1/8: 4/4 1/0-2/0",
      "GOOD at 0/1/2: 1/1 1/0-1/0",
  };
  std::vector<std::string> got;
  for (const DataSetInfo& d : v.dataSets) got.push_back(summary(&d));
  EXPECT_EQ(got, want);
  EXPECT_EQ(v.format3 * 100 + v.format9 * 10 + v.unknown, 321u);
  // GOOD's attributes and dates; its last block TTT R and track balance; tracks used (bounded by 1)
  const DataSetInfo& g = *findDataSet(v, "GOOD");
  EXPECT_EQ(std::vector<uint32_t>({g.dsorg, g.recfm, g.lrecl, g.blksize, g.keyLength, g.created.year,
                                   g.created.day, g.referenced.year, g.referenced.day, g.expires.year,
                                   g.largeFormat, g.lastBlockTrack, g.lastBlockRecord, g.trackBalance,
                                   g.tracksUsed}),
            std::vector<uint32_t>({0x4000, 0x58, 32760, 27998, 8, 2024, 32, 2025, 365, 0, 1, 0x050102, 3,
                                   8000, 1}));
  Block b;
  BlockReader damaged(vol.file(), *findDataSet(v, "BAD.LOOP"));
  EXPECT_EQ(damaged.next(b), kBlockDamagedDataSet);
}

TEST(VtocScanTest, NoLabelOrAnUnreadableVtoc) {
  for (bool label : {true, false}) {
    TestVolume vol(EmulatedCKDfile::D600, 3);
    label ? vol.patchLabel(label_layout::kVtocCc, {3, 0xE7, 0, 1, 1}) : vol.setRecords(0, 0, {});  // 999/1/1
    VtocInfo v;
    std::string error;
    EXPECT_EQ(scanVtoc(vol.file(), v, error), label ? kScanVtocUnreadable : kScanNoLabel);
    EXPECT_EQ(error, label ? "the VTOC track 999/1 named by the label cannot be read"
                           : "track 0/0 holds no VOL1 label record");
  }
}

// A volume of 70119 cylinders: VTOC at 65600/1, the data set's extents at
// 70000/14 .. 70001/0 and (through a Format-3 DSCB) 70002/5, all in the
// 28-bit form.
TEST(VtocScanTest, LargeCylinderAddresses) {
  SparseLargeVolume vol(70119);
  Bytes label = cat({ebcdic("VOL1LARGE1"), {0x00},  // key id, serial, security
                     {0x00, 0x40, 0x00, 0x11, 0x01}, Bytes(64, 0x40)});  // 65600 = 0x10040, head 1, R1
  vol.setTrack(0, 0, {keyedRecord(3, ebcdic("VOL1"), label)});
  Dscb f1 = format1Dscb(layout("LARGE.SEQ", {}, 2));
  f1[105] = 0x01;                                  // extent 1: type 01
  putCchh(f1.data() + 107, 70000, 14, true);       //   11 70 00 1E
  putCchh(f1.data() + 111, 70001, 0, true);        //   11 71 00 10
  putCchhr(f1.data() + 135, {65600, 1, 3}, true);  // Format-3 at 00 40 00 11 03
  Dscb f3 = format3Dscb({});
  f3[4] = 0x01;  // extent 1: type 01, 70002/5 .. 70002/5
  putCchh(f3.data() + 6, 70002, 5, true), putCchh(f3.data() + 10, 70002, 5, true);
  vol.setTrack(65600, 1, {dscbRecord(1, format4Dscb({65600, 1, 2}, 50, {65600, 1}, {65600, 1}, true)),
                          dscbRecord(2, f1), dscbRecord(3, f3)});
  vol.setTrack(70000, 14, {dataRecord(1, ascii("ABCDEFGH"))});
  vol.setTrack(70001, 0, {dataRecord(1, ascii("IJKL"))});
  vol.setTrack(70002, 5, {dataRecord(1, ascii("MNOP")), eofRecord(2)});
  EmulatedCKDfile& file = vol.file;
  ASSERT_TRUE(file.open(vol.path.c_str(), true) == 0 && file.largeCylinders) << file.errorText;
  const VtocInfo v = scan(file);
  EXPECT_EQ(v.volser + " " + std::to_string(v.format4At.cyl), "LARGE1 65600");
  ASSERT_EQ(v.dataSets.size(), 1u);
  EXPECT_EQ(summary(&v.dataSets[0]), "LARGE.SEQ at 65600/1/2: 2/3 70000/14-70002/5");
  BlockReader blocks(file, v.dataSets[0]);
  RecordReader records(blocks, Deblocking::kFixed, 4);
  std::string got;
  LogicalRecord r;
  while (records.next(r) == 1) {
    got += std::to_string(r.block.cyl) + "/" + std::to_string(r.block.head) + ":" +
           std::string(r.data, r.data + r.length) + " ";
  }
  EXPECT_EQ(got, "70000/14:ABCD 70000/14:EFGH 70001/0:IJKL 70002/5:MNOP ");
  EXPECT_EQ(blocks.endReason(), EndOfData::kEofRecord);
}

}  // namespace
}  // namespace ckdvol
