// PDS directories as other systems write them, on a 30-head device with
// members past relative track 15: aliases, statistics written by hand,
// load-module entries, member sizes of a RECFM=U library, malformed blocks.
#include "dataset/pds_directory.h"

#include <gtest/gtest.h>

#include "dataset/block_reader.h"
#include "dataset/dataset_builder.h"

namespace ckdvol {
namespace {

using namespace ckdvol_test;

const Bytes kStats30 = cat({{0x01, 0x05,              // version 1, modification 5
                             0x00, 0x37,              // flags, changed seconds 37 (packed)
                             0x01, 0x24, 0x03, 0x2F,  // created 2024 day 032
                             0x01, 0x25, 0x36, 0x5F,  // changed 2025 day 365
                             0x13, 0x45,              // changed 13:45 (packed)
                             0x00, 0x64, 0x00, 0x32, 0x00, 0x0A},  // lines 100, 50, 10
                            text("IBMUSER "), {0x00, 0x00}});      // user id, reserved
const Bytes kStats40 = cat({{0x02, 0x00, 0x20, 0x00,  // 2.00, extended, 0 seconds
                             0x00, 0x99, 0x36, 0x6F,  // created 1999 day 366
                             0x00, 0x00, 0x00, 0x0F,  // no changed date
                             0x00, 0x00, 0xFF, 0xFF, 0xC3, 0x50, 0x00, 0x07},
                            text("U1      "),
                            {0x00, 0x01, 0x86, 0xA0,    // current 100000
                             0x00, 0x00, 0xC3, 0x50,    // initial 50000
                             0x00, 0x00, 0x00, 0x07}});  // modified 7

Bytes patched(Bytes b, size_t at, unsigned char v) {
  b[at] = v;
  return b;
}

TEST(PdsDirectoryTest, StatisticsOnlyWhereTheLayoutFits) {
  struct Case {
    uint8_t indicator;
    Bytes data;
    bool ok;
  } cases[] = {
      {0x0F, kStats30, true},
      {0x14, kStats40, true},
      {0x0F, patched(kStats30, 11, 0x7F), false},  // changed day 367
      {0x0F, patched(kStats30, 12, 0x24), false},  // hour 24
      {0x0F, patched(kStats30, 3, 0x3A), false},   // seconds digit A
      {0x0F, patched(kStats30, 2, 0x20), false},   // extended flag on 30 bytes
      {0x14, patched(kStats40, 2, 0x00), false},   // 40 bytes without the flag
      {0x2F, kStats30, false},                     // one user TTR: a load module
      {0x0F, patched(kStats30, 0, 100), false},    // version 100
      {0x10, cat({kStats30, {0, 0}}), false},      // 32 bytes
  };
  for (size_t i = 0; i < sizeof cases / sizeof cases[0]; ++i) {
    MemberStatistics s;
    EXPECT_EQ(decodeStatistics(cases[i].indicator, cases[i].data, s), cases[i].ok) << i;
  }
  MemberStatistics s;
  ASSERT_TRUE(decodeStatistics(0x0F, kStats30, s));
  EXPECT_EQ(s.version * 100 + s.modification, 105);
  EXPECT_EQ(s.created.year * 1000 + s.created.day, 2024032);
  EXPECT_EQ(s.changed.year * 1000 + s.changed.day, 2025365);
  EXPECT_EQ(s.changedHour * 10000 + s.changedMinute * 100 + s.changedSecond, 134537);
  EXPECT_EQ(s.currentLines * 10000 + s.initialLines * 100 + s.modifiedLines, 1005010u);
  EXPECT_EQ(s.userId, "IBMUSER");
  EXPECT_FALSE(s.extended);
  ASSERT_TRUE(decodeStatistics(0x14, kStats40, s));
  EXPECT_TRUE(s.extended);
  EXPECT_TRUE(s.changed.empty());
  EXPECT_EQ(s.created.year * 1000 + s.created.day, 1999366);
  EXPECT_EQ(s.currentLines, 100000u);
  EXPECT_EQ(s.initialLines, 50000u);
  EXPECT_EQ(s.modifiedLines, 7u);
  EXPECT_EQ(s.userId, "U1");
}

// A RECFM=U library on D430 (30 heads), extents 0/20 .. 1/19; member i has a
// block of 18000 bytes of i and one of 50 * i bytes of 0x10 + i, so member
// i starts on relative track i (the directory shares track 0 with MOD01).
TEST(PdsDirectoryTest, LoadLibraryWithAliasesStatisticsAndSizesPastTrackFifteen) {
  TestVolume vol(EmulatedCKDfile::D430, 3);
  std::vector<PdsMember> members;
  for (int i = 1; i <= 18; ++i) {
    PdsMember m;
    m.name = (i < 10 ? "MOD0" : "MOD") + std::to_string(i);
    m.blocks = {Bytes(18000, uint8_t(i)), Bytes(50 * i, uint8_t(0x10 + i))};
    members.push_back(m);
  }
  PdsLayoutOptions options;
  options.directoryBlocks = 3;
  const std::vector<ExtentSpec> extents = {{0, 20, 1, 19}};
  const PdsPlacement p = writePds(vol, extents, members, options);
  ASSERT_EQ(p.memberTT[17], 17);
  // The directory, written by hand over the three blocks.
  auto entry = [&](int i, const Bytes& user = {}, uint8_t flags = 0) {
    return dirEntry(members[i - 1].name, p.memberTT[i - 1], p.memberR[i - 1], user, flags);
  };
  std::vector<Bytes> block2;
  for (int i = 4; i <= 17; ++i) block2.push_back(entry(i));
  const Cchhr t0 = p.tracks[0];
  vol.putRecord(t0.cyl, t0.head, directoryRecord(1, text("MOD03"),
      directoryBlock({dirEntry("ALIAS1", p.memberTT[1], p.memberR[1], {}, 0x80), entry(1, kStats30),
                      entry(2, kStats40), entry(3, Bytes(8, 0x00), 0x20)})));
  vol.putRecord(t0.cyl, t0.head, directoryRecord(2, text("MOD17"), directoryBlock(block2)));
  vol.putRecord(t0.cyl, t0.head, directoryRecord(3, text("ORPHAN"),
      directoryBlock({entry(18, patched(kStats30, 11, 0x7F)), dirEntry("ORPHAN", 0x7777, 1, {}, 0x80),
                      endEntry()})));
  DataSetLayout l = pdsDataSet("LOAD.LIB", 0, 18432, extents);
  l.recfm = 0xC0;
  vol.writeVtoc({format1Dscb(l)});
  VtocInfo v;
  std::string error;
  ASSERT_EQ(scanVtoc(vol.file(), v, error), kScanOk) << error;
  const DataSetInfo& ds = v.dataSets.at(0);
  std::vector<MemberInfo> dir;
  ASSERT_EQ(readDirectory(vol.file(), ds, dir, error), kDirectoryOk) << error;
  ASSERT_EQ(dir.size(), 20u);
  EXPECT_EQ(dir[0].name + ">" + dir[0].aliasOf, "ALIAS1>MOD02");
  EXPECT_EQ(dir[19].name + ">" + dir[19].aliasOf, "ORPHAN>");
  EXPECT_TRUE(dir[19].alias);
  EXPECT_FALSE(dir[2].alias);
  EXPECT_EQ(dir[1].statistics.userId, "IBMUSER");
  EXPECT_TRUE(dir[2].hasStatistics && dir[2].statistics.extended);
  EXPECT_EQ(dir[3].userTtrs * 100 + dir[3].userData.size(), 108u);
  EXPECT_FALSE(dir[3].hasStatistics);
  EXPECT_FALSE(dir[18].hasStatistics);
  EXPECT_EQ(dir[18].directoryBlock.record, 3);
  EXPECT_EQ(dir[18].directoryBlock.head, 20u);
  for (int i : {1, 15, 16, 18}) {
    const MemberInfo& m = dir[size_t(i)];
    MemberSize size;
    ASSERT_EQ(memberSize(vol.file(), ds, m, size, error), 0) << m.name << error;
    EXPECT_EQ(size.blocks * 1000 + size.records, 2002u) << m.name;
    EXPECT_EQ(size.bytes, 18000u + 50u * i) << m.name;
    BlockReader blocks(vol.file(), ds);
    blocks.startAt(m.track, m.record);
    Block b;
    ASSERT_EQ(blocks.next(b), 1);
    EXPECT_EQ(Bytes(b.data, b.data + b.dataLength), members[size_t(i - 1)].blocks[0]);
    EXPECT_EQ(b.cyl * 100 + b.head, i <= 10 ? 19u + i : 100u + (i - 11)) << m.name;
    ASSERT_EQ(blocks.next(b), 1);
    EXPECT_EQ(Bytes(b.data, b.data + b.dataLength), members[size_t(i - 1)].blocks[1]);
    EXPECT_EQ(blocks.next(b), 0);
  }
}

TEST(PdsDirectoryTest, MalformedBlocksAreNamedByAddress) {
  struct Case {
    Record block;
    std::string error;
  } cases[] = {
      {directoryRecord(1, {}, Bytes(200, 0)), "directory block 1/0/1 has 200 data bytes, not 256"},
      {directoryRecord(1, {}, directoryBlock({}, 300)),
       "directory block 1/0/1 says 300 bytes used (2 to 256 expected)"},
      {directoryRecord(1, {}, directoryBlock({dirEntry("A", 0, 1, kStats30)}, 30)),
       "directory block 1/0/1: the entry at offset 2 needs 42 bytes but only 28 of the 30 bytes "
       "used remain"},
  };
  for (const Case& c : cases) {
    TestVolume vol(EmulatedCKDfile::D600, 3);
    vol.setRecords(1, 0, {c.block, eofRecord(2)});
    vol.writeVtoc({format1Dscb(pdsDataSet("P", 80, 3120, {{1, 0, 1, 0}}))});
    VtocInfo v;
    std::string error;
    ASSERT_EQ(scanVtoc(vol.file(), v, error), kScanOk);
    std::vector<MemberInfo> dir;
    EXPECT_EQ(readDirectory(vol.file(), v.dataSets[0], dir, error), kDirectoryMalformed);
    EXPECT_EQ(error, c.error);
    DataSetInfo ps = v.dataSets[0];
    ps.dsorg = 0x4000;
    EXPECT_EQ(readDirectory(vol.file(), ps, dir, error), kDirectoryNotPartitioned);
  }
}

}  // namespace
}  // namespace ckdvol
