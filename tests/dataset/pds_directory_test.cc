// PDS directories as other systems write them, on a 30-head device with
// members past relative track 15: aliases, statistics written by hand,
// load-module entries, member sizes of a RECFM=U library, malformed blocks.
#include "dataset/pds_directory.h"

#include <gtest/gtest.h>

#include <cstdio>

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
                            ebcdic("IBMUSER "), {0x00, 0x00}});    // user id, reserved
const Bytes kStats40 = cat({{0x02, 0x00, 0x20, 0x00,  // 2.00, extended, 0 seconds
                             0x00, 0x99, 0x36, 0x6F,  // created 1999 day 366
                             0x00, 0x00, 0x00, 0x0F,  // no changed date
                             0x00, 0x00, 0xFF, 0xFF, 0xC3, 0x50, 0x00, 0x07},
                            ebcdic("U1      "),
                            {0x00, 0x01, 0x86, 0xA0,    // current 100000
                             0x00, 0x00, 0xC3, 0x50,    // initial 50000
                             0x00, 0x00, 0x00, 0x07}});  // modified 7

Bytes patched(Bytes b, size_t at, unsigned char v) {
  b[at] = v;
  return b;
}

// "v.m created changed hh:mm:ss current/initial/modified user [x]", or "-".
std::string statsText(uint8_t indicator, const Bytes& data) {
  MemberStatistics s;
  if (!decodeStatistics(indicator, data, s)) return "-";
  char t[128];
  std::snprintf(t, sizeof t, "%d.%d %d/%d %d/%d %02d:%02d:%02d %u/%u/%u %s%s", s.version, s.modification,
                s.created.year, s.created.day, s.changed.year, s.changed.day, s.changedHour, s.changedMinute,
                s.changedSecond, s.currentLines, s.initialLines, s.modifiedLines, s.userId.c_str(),
                s.extended ? " x" : "");
  return t;
}

TEST(PdsDirectoryTest, StatisticsOnlyWhereTheLayoutFits) {
  struct Case { uint8_t indicator; Bytes data; std::string text; } cases[] = {
      {0x0F, kStats30, "1.5 2024/32 2025/365 13:45:37 100/50/10 IBMUSER"},
      {0x14, kStats40, "2.0 1999/366 0/0 00:00:00 100000/50000/7 U1 x"},
      // changed day 367, hour 24, seconds digit A; extended flag on 30 bytes, 40 bytes without it
      {0x0F, patched(kStats30, 11, 0x7F), "-"}, {0x0F, patched(kStats30, 12, 0x24), "-"},
      {0x0F, patched(kStats30, 3, 0x3A), "-"},  {0x0F, patched(kStats30, 2, 0x20), "-"},
      {0x14, patched(kStats40, 2, 0x00), "-"},
      // one user TTR (a load module), version 100, modification level 100, 32 bytes
      {0x2F, kStats30, "-"}, {0x0F, patched(kStats30, 0, 100), "-"}, {0x0F, patched(kStats30, 1, 100), "-"},
      {0x10, cat({kStats30, {0, 0}}), "-"},
      // created with sign C; with century 2, sign D, a digit A in the year
      {0x0F, patched(kStats30, 7, 0x2C), "1.5 2024/32 2025/365 13:45:37 100/50/10 IBMUSER"},
      {0x0F, patched(kStats30, 4, 0x02), "-"}, {0x0F, patched(kStats30, 7, 0x2D), "-"},
      {0x0F, patched(kStats30, 5, 0x2A), "-"},
  };
  for (size_t i = 0; i < sizeof cases / sizeof cases[0]; ++i) {
    EXPECT_EQ(statsText(cases[i].indicator, cases[i].data), cases[i].text) << i;
  }
}

// A RECFM=U library on D430 (30 heads), extents 0/20 .. 1/19; member i has a
// block of 18000 bytes of i and one of 50 * i bytes of 0x10 + i, so member
// i starts on relative track i - 1 (MOD01 shares track 0 with the directory).
TEST(PdsDirectoryTest, LoadLibraryWithAliasesStatisticsAndSizesPastTrackFifteen) {
  TestVolume vol(EmulatedCKDfile::D430, 3);
  std::vector<PdsMember> members;
  for (int i = 1; i <= 18; ++i) {
    members.push_back({(i < 10 ? "MOD0" : "MOD") + std::to_string(i),
                       {Bytes(18000, uint8_t(i)), Bytes(50 * i, uint8_t(0x10 + i))}, {}});
  }
  const PdsPlacement p = writePds(vol, {{0, 20, 1, 19}}, members);
  ASSERT_EQ(p.memberTT[17], 17);
  auto entry = [&](int i, const Bytes& user = {}, uint8_t flags = 0) {
    return dirEntry(members[i - 1].name, p.memberTT[i - 1], p.memberR[i - 1], user, flags);
  };
  // The directory, written by hand: an alias of MOD02, statistics (30 and 40
  // bytes, and 30 bytes that do not fit), a load module with one user TTR,
  // members past relative track 15, an alias whose main member is missing.
  vol.putRecord(p.tracks[0].cyl, p.tracks[0].head, directoryRecord(1, ebcdic("ORPHAN"), directoryBlock({
      dirEntry("ALIAS1", p.memberTT[1], p.memberR[1], {}, 0x80), entry(1, kStats30), entry(2, kStats40),
      entry(3, Bytes(8, 0x00), 0x20), entry(15), entry(16), entry(18, patched(kStats30, 11, 0x7F)),
      dirEntry("ORPHAN", 0x7777, 1, {}, 0x80), endEntry()})));
  DataSetLayout l = pdsDataSet("LOAD.LIB", 0, 18432, {{0, 20, 1, 19}});
  l.recfm = 0xC0;
  vol.writeVtoc({format1Dscb(l)});
  const VtocInfo v = scan(vol.file());
  const DataSetInfo& ds = v.dataSets.at(0);
  std::vector<MemberInfo> dir;
  std::string error;
  ASSERT_EQ(readDirectory(vol.file(), ds, dir, error), kDirectoryOk) << error;
  std::vector<std::string> got;  // name, alias of, user TTRs, user data, statistics, TTR
  for (const MemberInfo& m : dir) {
    got.push_back(m.name + (m.alias ? " alias of '" + m.aliasOf + "' " : " ") + std::to_string(m.userTtrs) +
                  " " + std::to_string(m.userData.size()) + (m.hasStatistics ? " stats " : " - ") +
                  std::to_string(m.track) + "/" + std::to_string(m.record));
  }
  EXPECT_EQ(got, std::vector<std::string>({"ALIAS1 alias of 'MOD02' 0 0 - 1/1", "MOD01 0 30 stats 0/3",
                                           "MOD02 0 40 stats 1/1", "MOD03 1 8 - 2/1", "MOD15 0 0 - 14/1",
                                           "MOD16 0 0 - 15/1", "MOD18 0 30 - 17/1",
                                           "ORPHAN alias of '' 0 0 - 30583/1"}));
  MemberSize none;
  EXPECT_EQ(memberSize(vol.file(), ds, dir[7], none, error), kBlockOutsideExtents);  // ORPHAN
  EXPECT_EQ(error, "relative track 30583 lies outside the data set's 30 tracks");
  for (size_t k : {1, 4, 5, 6}) {
    const MemberInfo& m = dir[k];
    const int i = std::stoi(m.name.substr(3));
    MemberSize size;
    ASSERT_EQ(memberSize(vol.file(), ds, m, size, error), 0) << m.name << error;
    EXPECT_EQ(std::vector<uint64_t>({size.blocks, size.records, size.bytes}),
              std::vector<uint64_t>({2, 2, 18000u + 50u * i})) << m.name;
  }
}

TEST(PdsDirectoryTest, MalformedBlocksAreNamedByAddress) {
  std::vector<Bytes> full(20, dirEntry("M", 0, 1));  // 2 + 20 x 12 + 14: all 256 bytes used
  full.push_back(dirEntry("N", 0, 2, {0, 0}));
  struct Case { Record block; std::string error; } cases[] = {
      {directoryRecord(1, {}, directoryBlock(full)), ""},
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
    const VtocInfo v = scan(vol.file());
    std::string error;
    std::vector<MemberInfo> dir;
    EXPECT_EQ(readDirectory(vol.file(), v.dataSets[0], dir, error),
              c.error.empty() ? kDirectoryOk : kDirectoryMalformed);
    EXPECT_EQ(error, c.error);
    EXPECT_EQ(dir.size(), c.error.empty() ? 21u : 0u);
    DataSetInfo ps = v.dataSets[0];
    ps.dsorg = 0x4000;
    EXPECT_EQ(readDirectory(vol.file(), ps, dir, error), kDirectoryNotPartitioned);
  }
}

}  // namespace
}  // namespace ckdvol
