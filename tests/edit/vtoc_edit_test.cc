// Allocation, scratch and rename on a freshly initialised volume: the DSCB
// bytes against hand-written bytes, the free space against what the volume
// initialisation writes, the VTOC read back by the scan and by the volume
// classes, and the refusals (which stage nothing).
#include "edit/allocate.h"

#include <time.h>

#include <gtest/gtest.h>

#include "dataset/block_reader.h"
#include "edit/free_space.h"
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
}  // namespace
