// Allocation, scratch and rename on a freshly initialised volume: the DSCB
// bytes against hand-written bytes, the free space against what the volume
// initialisation writes, the VTOC read back by the scan and by the volume
// classes, and the refusals (which stage nothing).
#include "edit/allocate.h"

#include <time.h>

#include <gtest/gtest.h>

#include "dataset/block_reader.h"
#include "edit/free_space.h"
#include "edit/relabel.h"
#include "edit/vtoc_edit.h"
#include "support/temp_dir.h"
#include "support/track_builder.h"
#include "volume/dsk_volume.h"

namespace {

using namespace ckdvol_test;
using namespace ckdvol;

// A fresh D600 volume (labels, empty VTOC) of `cyls` cylinders, open read-write.
struct FreshVolume {
  ScopedTempDir dir;
  std::string path = dir.file("v.ckd");
  EmulatedCKDfile file;
  VtocInfo vtoc;
  explicit FreshVolume(int cyls = 5) {
    EmulatedCKDfile maker;
    if (maker.create(path.c_str(), EmulatedCKDfile::D600, cyls) != 0 || maker.initialize(nullptr, nullptr, true) != 0 ||
        maker.close() != 0) {
      throw std::runtime_error("cannot make the volume");
    }
    if (file.open(path.c_str(), false) != 0) throw std::runtime_error("cannot open the volume");
    rescan();
  }
  void rescan() {
    std::string error;
    if (scanVtoc(file, vtoc, error) != kScanOk) throw std::runtime_error(error);
  }
  // Runs `change` on a new StagedTracks and writes what it staged.
  template <class F>
  bool apply(F change, std::string& error, size_t* stagedTracks = nullptr) {
    StagedTracks staged(file);
    VtocEditor editor(staged);
    if (!editor.load(vtoc, error)) return false;
    const bool ok = change(editor, error);
    if (stagedTracks != nullptr) *stagedTracks = staged.size();
    if (ok) {
      const std::string w = staged.writeAll();
      if (!w.empty()) throw std::runtime_error(w);
      rescan();
    }
    return ok;
  }
  bool allocate(const AllocationRequest& r, AllocationResult& out, std::string& error, size_t* stagedTracks = nullptr) {
    return apply([&](VtocEditor& e, std::string& err) { return allocateDataSet(e, r, out, err); }, error, stagedTracks);
  }
  bool scratch(const std::string& name, std::string& error) {
    return apply([&](VtocEditor& e, std::string& err) { return e.removeDataSet(name, err); }, error);
  }
  Bytes track(uint32_t cyl, uint32_t head) {
    std::string error;
    StagedTracks s(file);
    const unsigned char* p = s.image(cyl * 15 + head, error);
    if (p == nullptr) throw std::runtime_error(error);
    return Bytes(p, p + kSlot);
  }
  Bytes record(uint32_t cyl, uint32_t head, uint8_t rec, size_t length) {
    std::string error;
    StagedTracks s(file);
    uint32_t kl = 0, dl = 0;
    const unsigned char* p = s.stageRecord(cyl * 15 + head, rec, kl, dl, error);
    if (p == nullptr) throw std::runtime_error(error);
    return Bytes(p, p + std::min<size_t>(length, kl + dl));
  }
};

AllocationRequest request(const std::string& name, uint32_t tracks) {
  AllocationRequest r;
  r.name = name;
  r.primary = tracks;
  return r;
}

// The Format-5 extents of the VTOC as (start, cylinders, tracks), in chain order.
std::vector<std::array<uint32_t, 3>> format5Extents(FreshVolume& v) {
  std::vector<std::array<uint32_t, 3>> out;
  for (uint8_t rec = 1; rec <= 12; ++rec) {
    const Bytes d = v.record(0, 1, rec, 140);
    if (d[44] != 0xF5) continue;
    for (int j = 0; j < 26; ++j) {
      const size_t o = j < 8 ? 4 + 5 * j : 45 + 5 * (j - 8);
      const uint32_t start = (d[o] << 8) | d[o + 1], cyls = (d[o + 2] << 8) | d[o + 3], trks = d[o + 4];
      if (start != 0 || cyls != 0 || trks != 0) out.push_back({start, cyls, trks});
    }
  }
  return out;
}

TEST(FreeSpaceTest, FreshVolumeMatchesWhatInitialisationWrites) {
  FreshVolume v(5);
  const FreeSpace fs = freeSpaceOf(v.vtoc);
  // The initialisation's Format-5 DSCB: track 2, 4 cylinders and 13 tracks.
  ASSERT_EQ(format5Extents(v), (std::vector<std::array<uint32_t, 3>>{{2, 4, 13}}));
  ASSERT_EQ(fs.extents.size(), 1u);
  EXPECT_EQ(fs.extents[0].first, 2u);
  EXPECT_EQ(fs.extents[0].count, 4u * 15 + 13);
  EXPECT_EQ(fs.freeCylinders, 4u);
  EXPECT_EQ(fs.allocatedTracks(), 2u);
}

TEST(FreeSpaceTest, OverlapsAndExtentsOffTheVolumeAreClampedAndNoted) {
  // 3 cylinders of 15 heads: 45 tracks.
  const std::vector<UsedRun> used = {
      {{0, 1}, "label"}, {{10, 10}, "A"}, {{15, 10}, "B"}, {{40, 20}, "C"}, {{50, 3}, "D"}};
  const FreeSpace fs = computeFreeSpace(used, 45, 15);
  ASSERT_EQ(fs.extents.size(), 2u);
  EXPECT_EQ(fs.extents[0].first, 1u);   // 1..9
  EXPECT_EQ(fs.extents[0].count, 9u);
  EXPECT_EQ(fs.extents[1].first, 25u);  // 25..39
  EXPECT_EQ(fs.extents[1].count, 15u);
  EXPECT_EQ(fs.freeTracks + fs.allocatedTracks(), 45u);
  EXPECT_EQ(fs.freeCylinders, 0u) << "15 free tracks from head 10 are no whole cylinder";
  EXPECT_EQ(fs.largestTracks, 15u);
  EXPECT_EQ(fs.notes.size(), 3u) << "an overlap, a cut extent, an extent beyond the end";
}

TEST(AllocateTest, Format1DscbBytesByHand) {
  FreshVolume v(5);
  AllocationRequest r = request("MY.DATA", 15);
  r.secondary = 5;
  AllocationResult got;
  std::string error;
  ASSERT_TRUE(v.allocate(r, got, error)) << error;
  EXPECT_EQ(got.blksize, 28320) << "the largest multiple of 80 in half the track capacity 56664";
  ASSERT_EQ(got.format1.cyl, 0u);
  ASSERT_EQ(got.format1.head, 1u);
  ASSERT_EQ(got.format1.record, 3u) << "the first empty DSCB";
  const time_t now = ::time(nullptr);
  struct tm t;
  localtime_r(&now, &t);
  const Bytes dscb = v.record(0, 1, 3, 140);
  const Bytes expected = cat({
      hex("D4E8 4B C4C1E3C1"), repeat(0x40, 44 - 7),  // 0 name MY.DATA, blank padded
      hex("F1"),                                       // 44 format 1
      hex("F0E7F0F1F2F3"),                             // 45 volume serial 0X0123
      hex("0001"),                                     // 51 volume sequence 1
      be(static_cast<uint64_t>(t.tm_year), 1), be(static_cast<uint64_t>(t.tm_yday + 1), 2),  // 53 created today
      hex("000000"),                                   // 56 no expiry
      hex("01"),                                       // 59 one extent
      hex("00 00"),                                    // 60 no directory, 61 flags
      hex("C3D2C4E5D6D3"), repeat(0x40, 7),            // 62 system code CKDVOL
      hex("000000 00 00 0000"),                        // 75 referenced, 78 SMS, 79 ext flags, 80 value
      hex("4000"),                                     // 82 DSORG PS
      hex("90 00"),                                    // 84 RECFM FB, 85 OPTCD
      hex("6EA0"),                                     // 86 BLKSIZE 28320
      hex("0050"),                                     // 88 LRECL 80
      hex("00 0000 80"),                               // 90 key length, 91 RKP, 93 last volume
      hex("80 000005"),                                // 94 secondary in tracks, 5
      hex("000000"),                                   // 98 last block TTR: nothing written
      hex("DD58"),                                     // 101 track balance: the capacity 56664
      hex("00 00"),                                    // 103, 104
      hex("01 00 0000 0002 0001 0001"),                // 105 extent 1: tracks 0/2 to 1/1
      repeat(0, 20),                                   // extents 2 and 3 unused
      repeat(0, 5)});                                  // 135 no Format-3 DSCB
  EXPECT_EQ(dscb, expected);
  // The Format-4 DSCB: last active DSCB 0/1/3, 9 empty DSCBs, free space maintained.
  const Bytes f4 = v.record(0, 1, 1, 140);
  EXPECT_EQ(Bytes(f4.begin() + 45, f4.begin() + 52), hex("0000 0001 03 0009"));
  EXPECT_EQ(f4[58] & 0x80, 0);
  // Free: 1/2 onwards (4 cylinders less 2 tracks).
  EXPECT_EQ(format5Extents(v), (std::vector<std::array<uint32_t, 3>>{{17, 3, 13}}));
  // The first track: R1 end of file behind record zero; the others empty.
  const Bytes first = v.track(0, 2);
  EXPECT_EQ(Bytes(first.begin() + 21, first.begin() + 37), hex("0000 0002 01 00 0000 FFFFFFFFFFFFFFFF"));
  const Bytes second = v.track(0, 3);
  EXPECT_EQ(Bytes(second.begin() + 21, second.begin() + 29), repeat(0xFF, 8));
}

Bytes slice(const Bytes& b, size_t from, size_t to) { return Bytes(b.begin() + from, b.begin() + to); }

// Allocates every request (name, tracks) in order; a failure fails the test.
void allocateAll(FreshVolume& v, const std::vector<std::pair<std::string, uint32_t>>& sets) {
  for (const auto& s : sets) {
    AllocationResult got;
    std::string error;
    ASSERT_TRUE(v.allocate(request(s.first, s.second), got, error)) << s.first << ": " << error;
  }
}

std::vector<std::string> names(const VtocInfo& vtoc) {
  std::vector<std::string> out;
  for (const DataSetInfo& ds : vtoc.dataSets) out.push_back(ds.name);
  return out;
}

// A 5-cylinder volume (75 tracks, a VTOC of 12 DSCBs on 0/1) cut into holes:
// A..H take 2 tracks each (tracks 2-17, Format-1 DSCBs 0/1/3 to 0/1/10), I the
// remaining 57 (18-74, 0/1/11); then A, C, E, G and I are scratched.
TEST(VtocEditTest, ScratchesLeaveHolesThatFormat5AndFormat4Record) {
  FreshVolume v(5);
  allocateAll(v, {{"A", 2}, {"B", 2}, {"C", 2}, {"D", 2}, {"E", 2}, {"F", 2}, {"G", 2}, {"H", 2}, {"I", 57}});
  EXPECT_EQ(format5Extents(v), (std::vector<std::array<uint32_t, 3>>{})) << "the volume is full";
  // 0/1/11 is the last active DSCB; 12 DSCBs less F4, F5 and nine F1 leave 1 empty.
  EXPECT_EQ(slice(v.record(0, 1, 1, 140), 45, 52), hex("0000 0001 0B 0001"));
  // Mark the free space as not maintained: the next change must clear the bit.
  {
    StagedTracks s(v.file);
    uint32_t kl = 0, dl = 0;
    std::string error;
    unsigned char* f4 = s.stageRecord(1, 1, kl, dl, error);
    ASSERT_NE(f4, nullptr) << error;
    f4[58] |= 0x80;
    ASSERT_EQ(s.writeAll(), "");
  }
  std::string error;
  for (const char* name : {"A", "C", "E", "G", "I"}) ASSERT_TRUE(v.scratch(name, error)) << name << ": " << error;
  // Free: 2-3, 6-7, 10-11, 14-15 and 18-74 (3 cylinders and 12 tracks), in track order.
  EXPECT_EQ(format5Extents(v), (std::vector<std::array<uint32_t, 3>>{
                                   {2, 0, 2}, {6, 0, 2}, {10, 0, 2}, {14, 0, 2}, {18, 3, 12}}));
  const Bytes f4 = v.record(0, 1, 1, 140);
  EXPECT_EQ(Bytes(f4.begin() + 45, f4.begin() + 52), hex("0000 0001 0A 0006")) << "H (0/1/10) is last; 6 empty";
  EXPECT_EQ(f4[58] & 0x80, 0) << "the Format-5 DSCBs are maintained again";
  const FreeSpace fs = freeSpaceOf(v.vtoc);
  EXPECT_EQ(fs.freeTracks, 65u);
  EXPECT_EQ(fs.freeTracks + fs.allocatedTracks(), 75u);
  EXPECT_EQ(fs.largestTracks, 57u);
  EXPECT_EQ(fs.freeCylinders, 3u) << "cylinders 2, 3 and 4";
  {  // what the editor reads back from the Format-5 DSCBs is what it computes
    StagedTracks s(v.file);
    VtocEditor e(s);
    ASSERT_TRUE(e.load(v.vtoc, error)) << error;
    std::vector<TrackRun> recorded;
    bool notMaintained = true;
    ASSERT_TRUE(e.recordedFreeSpace(recorded, notMaintained, error)) << error;
    EXPECT_FALSE(notMaintained);
    ASSERT_EQ(recorded.size(), fs.extents.size());
    for (size_t i = 0; i < recorded.size(); ++i) {
      EXPECT_EQ(recorded[i].first, fs.extents[i].first) << i;
      EXPECT_EQ(recorded[i].count, fs.extents[i].count) << i;
    }
  }
  // The volume classes walk the changed VTOC.
  DskVolume vol;
  ASSERT_EQ(vol.open(&v.file), 0);
  EXPECT_EQ(vol.vtoc.f1List.count, 4);
  EXPECT_EQ(vol.vtoc.f5List.count, 1);
  EXPECT_NE(vol.vtoc.locateDataset("H"), nullptr);
  EXPECT_EQ(vol.vtoc.locateDataset("I"), nullptr);
  vol.close();
  EXPECT_EQ(names(v.vtoc), (std::vector<std::string>{"B", "D", "F", "H"}));
}

TEST(VtocEditTest, FiveExtentsGoThreeToFormat1AndTwoToFormat3) {
  FreshVolume v(5);
  allocateAll(v, {{"A", 2}, {"B", 2}, {"C", 2}, {"D", 2}, {"E", 2}, {"F", 2}, {"G", 2}, {"H", 2}, {"I", 57}});
  std::string error;
  for (const char* name : {"A", "C", "E", "G", "I"}) ASSERT_TRUE(v.scratch(name, error)) << name << ": " << error;
  // 64 tracks: no hole is large enough; the 57 first, then the 2-track holes
  // in track order, the last one cut to 1 track (14), track 15 stays free.
  AllocationResult got;
  ASSERT_TRUE(v.allocate(request("MANY.EXTENTS", 64), got, error)) << error;
  ASSERT_EQ(got.extents.size(), 5u);
  // Format-1 in the lowest empty DSCB (A's, 0/1/3), Format-3 in the next (C's, 0/1/5).
  EXPECT_EQ(got.format1.record, 3u);
  const Bytes f1 = v.record(0, 1, 3, 140);
  EXPECT_EQ(f1[59], 5) << "extent count";
  EXPECT_EQ(Bytes(f1.begin() + 105, f1.end()),
            cat({hex("01 00 0000 0002 0000 0003"),    // 105 extent 0: 0/2-0/3
                 hex("01 01 0000 0006 0000 0007"),    // 115 extent 1: 0/6-0/7
                 hex("01 02 0000 000A 0000 000B"),    // 125 extent 2: 0/10-0/11
                 hex("0000 0001 05")}));              // 135 the Format-3 DSCB at 0/1/5
  const Bytes f3 = v.record(0, 1, 5, 140);
  EXPECT_EQ(f3, cat({hex("03030303"),                     // 0 key
                     hex("01 03 0000 000E 0000 000E"),    // 4 extent 3: 0/14
                     hex("01 04 0001 0003 0004 000E"),    // 14 extent 4: 1/3-4/14
                     repeat(0, 20),                       // 24 extents 5 and 6 unused
                     hex("F3"),                           // 44 format 3
                     repeat(0, 90),                       // 45 extents 7-15 unused
                     repeat(0, 5)}));                     // 135 no further Format-3
  // The scan reads all five extents back through the chain.
  const DataSetInfo* ds = findDataSet(v.vtoc, "MANY.EXTENTS");
  ASSERT_NE(ds, nullptr);
  ASSERT_EQ(ds->extents.size(), 5u);
  EXPECT_EQ(ds->extents[4].lowCyl, 1u);
  EXPECT_EQ(ds->extents[4].highHead, 14u);
  EXPECT_EQ(ds->tracksAllocated, 64u);
  EXPECT_EQ(format5Extents(v), (std::vector<std::array<uint32_t, 3>>{{15, 0, 1}}));
  // H is still last; 12 less F4, F5, five F1 and one F3 leave 4 empty.
  EXPECT_EQ(slice(v.record(0, 1, 1, 140), 45, 52), hex("0000 0001 0A 0004"));
  // Scratching it empties its Format-3 too.
  ASSERT_TRUE(v.scratch("MANY.EXTENTS", error)) << error;
  EXPECT_EQ(v.record(0, 1, 5, 140), repeat(0, 140));
  EXPECT_EQ(v.record(0, 1, 3, 140), repeat(0, 140));
}

TEST(VtocEditTest, FullVtocAndNoRoomStageNothing) {
  FreshVolume v(5);
  // 10 empty DSCBs: ten one-track data sets fit, the eleventh has no DSCB.
  for (int i = 0; i < 10; ++i) allocateAll(v, {{"D" + std::to_string(i), 1}});
  AllocationResult got;
  std::string error;
  size_t staged = 99;
  EXPECT_FALSE(v.allocate(request("ONE.MORE", 1), got, error, &staged));
  EXPECT_NE(error.find("VTOC is full"), std::string::npos) << error;
  EXPECT_EQ(staged, 0u);
  // 75 - 2 - 10 = 63 tracks are free: 64 are refused, naming what there is.
  ASSERT_TRUE(v.scratch("D0", error)) << error;
  staged = 99;
  EXPECT_FALSE(v.allocate(request("TOO.BIG", 65), got, error, &staged));
  EXPECT_NE(error.find("no room: 65 tracks requested, largest free extent 63, free 64"), std::string::npos) << error;
  EXPECT_EQ(staged, 0u);
  // A name in use and a rename onto one are refused.
  staged = 99;
  EXPECT_FALSE(v.allocate(request("D1", 1), got, error, &staged));
  EXPECT_NE(error.find("already exists"), std::string::npos) << error;
  EXPECT_EQ(staged, 0u);
  EXPECT_FALSE(v.apply([](VtocEditor& e, std::string& err) { return e.renameDataSet("D1", "D2", err); }, error, &staged));
  EXPECT_EQ(staged, 0u);
  ASSERT_TRUE(v.apply([](VtocEditor& e, std::string& err) { return e.renameDataSet("D1", "NEW.NAME", err); }, error));
  EXPECT_EQ(v.record(0, 1, 4, 9), hex("D5C5E6 4B D5C1D4C5 40"));
  EXPECT_NE(findDataSet(v.vtoc, "NEW.NAME"), nullptr);
  EXPECT_EQ(findDataSet(v.vtoc, "D1"), nullptr);
}

TEST(VtocEditTest, RelabelWritesTheSerialIntoTheLabelAndEveryFormat1) {
  FreshVolume v(5);
  allocateAll(v, {{"FIRST", 1}, {"SECOND", 1}});
  const std::string owner = "Systems";
  StagedTracks s(v.file);
  std::string error;
  ASSERT_TRUE(relabelVolume(s, v.vtoc, "WORK01", &owner, error)) << error;
  ASSERT_EQ(s.writeAll(), "");
  v.rescan();
  EXPECT_EQ(v.vtoc.volser, "WORK01");
  // The VOL1 label: key VOL1, data "VOL1", serial, ..., owner at data 37.
  const Bytes label = v.record(0, 0, 3, 84);
  EXPECT_EQ(Bytes(label.begin(), label.begin() + 14), hex("E5D6D3F1 E5D6D3F1 E6D6D9D2F0F1"));  // key, VOL1, WORK01
  EXPECT_EQ(Bytes(label.begin() + 4 + 37, label.begin() + 4 + 51),
            cat({hex("E2 A8 A2 A3 85 94 A2"), repeat(0x40, 7)}));  // Systems, blank padded
  for (uint8_t rec : {3, 4}) {
    const Bytes f1 = v.record(0, 1, rec, 140);
    EXPECT_EQ(Bytes(f1.begin() + 45, f1.begin() + 51), hex("E6D6D9D2F0F1")) << int(rec);
  }
  // A bad serial or owner stages nothing.
  StagedTracks none(v.file);
  const std::string longOwner = "FIFTEEN CHARSXX";
  EXPECT_FALSE(relabelVolume(none, v.vtoc, "1WORK", nullptr, error));
  EXPECT_FALSE(relabelVolume(none, v.vtoc, "OK", &longOwner, error));
  EXPECT_EQ(none.size(), 0u);
}

TEST(VtocEditTest, NamesAndSerials) {
  struct Case {
    const char* text;
    bool dataSet, serial;
  };
  const Case cases[] = {
      {"A", true, true},
      {"SYS1.PARMLIB", true, false},           // a dot, and longer than 6
      {"@#$-09", true, true},                  // national first, then hyphen and digits
      {"WORK001", true, false},                // 7 characters
      {"ABCDEFGH.ABCDEFGH", true, false},
      {"ABCDEFGHI", false, false},             // a qualifier of 9
      {"1ABC", false, false},                  // a digit first
      {"-AB", false, false},
      {"A..B", false, false},
      {".A", false, false},
      {"A.", false, false},
      {"", false, false},
      {"abc", false, false},                   // lower case
      {"A_B", false, false},
      {"A B", false, false},
      {"A.B.C.D.E.F.G.H.I.J.K.L.M.N.O.P.Q.R.S.T.U.V", true, false},  // 43 characters
      {"AAAAAAAA.BBBBBBBB.CCCCCCCC.DDDDDDDD.EEEEEEEE", true, false},  // 44 characters
      {"AAAAAAAA.BBBBBBBB.CCCCCCCC.DDDDDDDD.EEEEE.FF", true, false},   // 44 exactly
      {"AAAAAAAA.BBBBBBBB.CCCCCCCC.DDDDDDDD.EEEEE.FFF", false, false},  // 45
  };
  for (const Case& c : cases) {
    std::string error;
    EXPECT_EQ(validateDataSetName(c.text, error), c.dataSet) << c.text << ": " << error;
    EXPECT_EQ(validateVolumeSerial(c.text, error), c.serial) << c.text << ": " << error;
  }
}
}  // namespace
