// The PDS editor on a freshly allocated partitioned data set: directory
// blocks against hand-written bytes, several hundred members kept in EBCDIC
// order across blocks, delete/rename/alias/compress read back through the
// data-set layer and through the volume classes' access method, refusals
// that stage nothing, the statistics bytes, and a streamed load (planned,
// then written track by track) against one held in memory.
#include "edit/pds_edit.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <functional>
#include <iterator>
#include <stdexcept>

#include "dataset/block_reader.h"
#include "dataset/record_reader.h"
#include "edit/allocate.h"
#include "edit/statistics.h"
#include "journal/change_journal.h"
#include "pds/basic_partitioned_access_method.h"
#include "support/temp_dir.h"
#include "support/track_builder.h"
#include "volume/dsk_volume.h"

namespace {

using namespace ckdvol_test;
using namespace ckdvol;

constexpr uint32_t kHeads = 15;

// A D600 volume of 5 cylinders with TEST.PDS (FB 80/800) allocated on it.
struct PdsVolume {
  ScopedTempDir dir;
  std::string path = dir.file("v.ckd");
  EmulatedCKDfile file;
  VtocInfo vtoc;
  PdsVolume(uint32_t tracks, uint32_t directoryBlocks, uint16_t blksize = 800) {
    EmulatedCKDfile maker;
    if (maker.create(path.c_str(), EmulatedCKDfile::D600, 5) != 0 || maker.initialize(nullptr, nullptr, true) != 0 ||
        maker.close() != 0 || file.open(path.c_str(), false) != 0) {
      throw std::runtime_error("cannot make the volume");
    }
    rescan();
    AllocationRequest r;
    r.name = "TEST.PDS";
    r.dsorg = kDsorgPO;
    r.blksize = blksize;
    r.primary = tracks;
    r.directoryBlocks = directoryBlocks;
    AllocationResult out;
    std::string error;
    StagedTracks staged(file);
    if (!allocateDataSet(staged, vtoc, r, out, error) || !staged.writeAll().empty()) throw std::runtime_error(error);
    rescan();
  }
  void rescan() {
    std::string error;
    if (scanVtoc(file, vtoc, error) != kScanOk) throw std::runtime_error(error);
  }
  const DataSetInfo& ds() const { return vtoc.dataSets.at(0); }
  // Loads an editor, runs `op`, commits and writes. False with `error` (and
  // nothing written) when a step refuses; `stagedSlots` gets what was staged.
  template <class F>
  bool edit(F op, std::string& error, size_t* stagedSlots = nullptr) {
    StagedTracks staged(file);
    PdsEditor pds(staged, ds());
    const bool ok = pds.load(error) && op(pds, error) && pds.commit(error);
    if (stagedSlots != nullptr) *stagedSlots = staged.slots().size();
    if (!ok) return false;
    const std::string w = staged.writeAll();
    if (!w.empty()) throw std::runtime_error(w);
    rescan();
    return true;
  }
  // Directory block `n` (1-based): key and data, 264 bytes. The directory
  // starts at record 1 of the data set's first track.
  Bytes directoryBlock(uint8_t n) {
    StagedTracks s(file);
    std::string error;
    uint32_t kl = 0, dl = 0;
    uint32_t cyl = 0, head = 0;
    ExtentMap(ds().extents, kHeads).toCylHead(0, cyl, head);
    const unsigned char* p = s.stageRecord(cyl * kHeads + head, n, kl, dl, error);
    if (p == nullptr || kl != 8 || dl != 256) throw std::runtime_error("no directory block: " + error);
    return Bytes(p, p + kl + dl);
  }
  std::vector<Bytes> records(const std::string& member) {
    std::vector<MemberInfo> members;
    std::string error;
    EXPECT_EQ(readDirectory(file, ds(), members, error), kDirectoryOk) << error;
    std::vector<Bytes> out;
    for (const MemberInfo& m : members) {
      if (m.name != member) continue;
      BlockReader blocks(file, ds());
      blocks.startAt(m.track, m.record);
      RecordReader reader(blocks, ds());
      LogicalRecord r;
      int rc;
      while ((rc = reader.next(r)) == 1) out.emplace_back(r.data, r.data + r.length);
      EXPECT_EQ(rc, 0) << reader.error();
    }
    return out;
  }
};

// Member data: `count` records of 80 bytes, record i filled with a letter
// and numbered in its first two bytes.
std::vector<Bytes> member(int count, unsigned char fill) {
  std::vector<Bytes> out;
  for (int i = 0; i < count; ++i) {
    Bytes r(80, fill);
    r[0] = static_cast<unsigned char>(i >> 8), r[1] = static_cast<unsigned char>(i);
    out.push_back(r);
  }
  return out;
}

// The blocks of FB 80/800: ten records a block.
std::vector<Bytes> blocked(const std::vector<Bytes>& records) {
  std::vector<Bytes> blocks;
  for (size_t i = 0; i < records.size(); ++i) {
    if (i % 10 == 0) blocks.emplace_back();
    blocks.back().insert(blocks.back().end(), records[i].begin(), records[i].end());
  }
  return blocks;
}

bool add(PdsEditor& pds, const std::string& name, const std::vector<Bytes>& records, std::string& error,
         const Bytes& userData = Bytes(), bool replace = false) {
  MemberWrite w;
  return pds.writeMember(name, blocked(records), userData, replace, w, error);
}

TEST(PdsEditTest, DirectoryBlockBytesByHand) {
  // Two directory blocks: records 1 and 2 of relative track 0, the EOF 3.
  // BETA (1 record) goes to record 4 (EOF 5), ALPHA behind it to 6 (EOF 7).
  PdsVolume v(10, 2);
  std::string error;
  ASSERT_TRUE(v.edit(
      [](PdsEditor& p, std::string& e) {
        return add(p, "beta", member(1, 0xC2), e) && add(p, "ALPHA", member(3, 0xC1), e, hex("0102 0304"));
      },
      error))
      << error;
  EXPECT_EQ(v.directoryBlock(1),
            cat({hex("FFFFFFFF FFFFFFFF"),                   // key: the last entry, the end entry
                 hex("002A"),                                // bytes used: 2 + 16 + 12 + 12
                 hex("C1D3D7C8C1404040 000006 02 01020304"),  // ALPHA, TTR 0/6, 2 halfwords of user data
                 hex("C2C5E3C140404040 000004 00"),           // BETA, TTR 0/4, none
                 hex("FFFFFFFFFFFFFFFF 000000 00"),           // the end entry
                 Bytes(256 - 42, 0)}));
  // The second block stays unused: key FF x 8, 14 bytes used, its end entry.
  EXPECT_EQ(v.directoryBlock(2), cat({hex("FFFFFFFF FFFFFFFF 000E FFFFFFFFFFFFFFFF"), Bytes(256 - 10, 0)}));
  // The end of data is ALPHA's EOF record, 0/7.
  EXPECT_EQ(v.ds().lastBlockTrack * 1000 + v.ds().lastBlockRecord, 7u);
  EXPECT_EQ(v.records("ALPHA"), member(3, 0xC1));
}

TEST(PdsEditTest, HundredsOfMembersStayInEbcdicOrderAcrossBlocks) {
  // 300 entries of 12 bytes, 21 a block: 15 blocks, the end entry in block
  // 15 (300 = 14 * 21 + 6). Names added in a scrambled order; digits sort
  // after letters in EBCDIC (F0-F9 above C1-E9), blanks (40) first.
  PdsVolume v(60, 16);
  std::vector<std::string> names;
  for (int i = 0; i < 300; ++i) names.push_back(std::string(1, "ABZ"[i % 3]) + std::to_string(i * 7 % 300));
  std::string error;
  ASSERT_TRUE(v.edit(
      [&](PdsEditor& p, std::string& e) {
        for (const std::string& n : names) {
          if (!add(p, n, member(1, 0xF0), e)) return false;
        }
        return true;
      },
      error))
      << error;
  std::vector<Bytes> seen;
  int endBlock = 0;
  for (uint8_t b = 1; b <= 16; ++b) {
    const Bytes block = v.directoryBlock(b);
    const uint32_t used = block[8] << 8 | block[9];
    Bytes last;
    for (uint32_t at = 10; at < 8 + used; at += 12) {
      last.assign(block.begin() + at, block.begin() + at + 8);
      if (last == Bytes(8, 0xFF)) {
        endBlock = endBlock == 0 ? b : endBlock;
      } else {
        seen.push_back(last);
      }
    }
    EXPECT_EQ(Bytes(block.begin(), block.begin() + 8), last) << "block " << int(b);
  }
  EXPECT_EQ(endBlock, 15);
  ASSERT_EQ(seen.size(), 300u);
  EXPECT_TRUE(std::is_sorted(seen.begin(), seen.end()));
  EXPECT_EQ(std::adjacent_find(seen.begin(), seen.end()), seen.end());
  EXPECT_EQ(seen.front(), hex("C1F0404040404040"));  // A0
  EXPECT_EQ(seen.back(), hex("E9F9F84040404040"));   // Z98: 9 above 2
}

TEST(PdsEditTest, DeleteRenameAliasThenCompressMovesMembersBehindTheDirectory) {
  // Directory: 1 block, EOF at 0/2. A: 12 records (2 blocks) at 0/3-4, EOF 5;
  // B at 0/6, EOF 7; C at 0/8, EOF 9; B replaced at 0/10, EOF 11.
  PdsVolume v(10, 1);
  std::string error;
  ASSERT_TRUE(v.edit(
      [](PdsEditor& p, std::string& e) {
        return add(p, "A", member(12, 0xC1), e) && add(p, "B", member(1, 0xC2), e) &&
               add(p, "C", member(3, 0xC3), e) && add(p, "B", member(4, 0xC4), e, Bytes(), true);
      },
      error))
      << error;
  ASSERT_TRUE(v.edit(
      [](PdsEditor& p, std::string& e) { return p.remove("c", e) && p.addAlias("X", "A", e) && p.rename("B", "D", e); },
      error))
      << error;
  struct Want {
    const char* name;
    uint32_t track;
    uint8_t record;
    uint8_t indicator;
  };
  auto check = [&](const char* when, std::vector<Want> want) {
    StagedTracks s(v.file);
    PdsEditor p(s, v.ds());
    ASSERT_TRUE(p.load(error)) << error;
    ASSERT_EQ(p.entries().size(), want.size()) << when;
    for (size_t i = 0; i < want.size(); ++i) {
      const DirectoryEntry& e = p.entries()[i];
      EXPECT_EQ(e.text(), want[i].name) << when;
      EXPECT_EQ(e.ttr.track * 1000 + e.ttr.record, want[i].track * 1000 + want[i].record) << when << " " << want[i].name;
      EXPECT_EQ(e.indicator, want[i].indicator) << when << " " << want[i].name;
    }
  };
  check("before", {{"A", 0, 3, 0}, {"D", 0, 10, 0}, {"X", 0, 3, 0x80}});
  EXPECT_EQ(v.ds().lastBlockRecord, 11);
  CompressSummary s;
  ASSERT_TRUE(v.edit([&](PdsEditor& p, std::string& e) { return p.compress(s, e); }, error)) << error;
  EXPECT_EQ(s.members, 2u);
  EXPECT_EQ(s.blocks, 3u);
  // A stays at 0/3 (EOF 5); D moves from 0/10 to 0/6, its EOF 7 the end of data.
  check("after", {{"A", 0, 3, 0}, {"D", 0, 6, 0}, {"X", 0, 3, 0x80}});
  EXPECT_EQ(v.ds().lastBlockTrack * 1000 + v.ds().lastBlockRecord, 7u);
  EXPECT_EQ(v.records("A"), member(12, 0xC1));
  EXPECT_EQ(v.records("D"), member(4, 0xC4));
  EXPECT_EQ(v.records("X"), member(12, 0xC1));

  // The volume classes' access method reads the moved member the same.
  DskVolume dsk;
  ASSERT_EQ(dsk.open(&v.file), 0);
  BasicPartionedAccessMethod bpam(dsk);
  ASSERT_EQ(bpam.openDataset("TEST.PDS"), 0);
  ASSERT_EQ(bpam.readMember("D"), 0);
  ASSERT_EQ(bpam.records.count, 4);
  for (int i = 0; i < 4; ++i) {
    const Bytes got(bpam.records[i]->text(), bpam.records[i]->text() + bpam.records[i]->length());
    EXPECT_EQ(got, member(4, 0xC4)[static_cast<size_t>(i)]) << i;
  }
}

TEST(PdsEditTest, RefusalsStageNothing) {
  struct Case {
    const char* what;
    uint32_t tracks, directoryBlocks;
    std::function<bool(PdsEditor&, std::string&)> op;
    const char* says;
  } cases[] = {
      {"21 entries and the end entry need 2 blocks", 10, 1,
       [](PdsEditor& p, std::string& e) {
         for (int i = 0; i < 21; ++i) {
           if (!add(p, "M" + std::to_string(i), member(1, 0xC1), e)) return false;
         }
         return true;
       },
       "directory full: 1 blocks, 21 entries (they need 2 blocks)"},
      // 1 track: the directory and 250 one-block members cannot fit 255 records.
      {"space full", 1, 1,
       [](PdsEditor& p, std::string& e) { return add(p, "BIG", member(2600, 0xC1), e); },
       "no space left in TEST.PDS"},
      {"an existing member without replace", 10, 2,
       [](PdsEditor& p, std::string& e) { return add(p, "A", member(1, 0xC1), e) && add(p, "a", member(1, 0xC1), e); },
       "member A exists in TEST.PDS"},
      {"a bad member name", 10, 2, [](PdsEditor& p, std::string& e) { return add(p, "1ABC", member(1, 0xC1), e); },
       "'1ABC' is not a member name"},
      {"a name of 9 characters", 10, 2, [](PdsEditor& p, std::string& e) { return p.rename("A", "ABCDEFGHI", e); },
       "member A not found in TEST.PDS"},
      {"rename onto an existing name", 10, 2,
       [](PdsEditor& p, std::string& e) {
         return add(p, "A", member(1, 0xC1), e) && add(p, "B", member(1, 0xC1), e) && p.rename("A", "B", e);
       },
       "member B exists in TEST.PDS"},
      {"replace an alias", 10, 2,
       [](PdsEditor& p, std::string& e) {
         return add(p, "A", member(1, 0xC1), e) && p.addAlias("X", "A", e) &&
                add(p, "X", member(1, 0xC1), e, Bytes(), true);
       },
       "X is an alias in TEST.PDS"},
      {"odd user data", 10, 2, [](PdsEditor& p, std::string& e) { return add(p, "A", member(1, 0xC1), e, Bytes(3)); },
       "user data of 3 bytes"},
      {"compress after a write", 10, 2,
       [](PdsEditor& p, std::string& e) {
         CompressSummary s;
         return add(p, "A", member(1, 0xC1), e) && p.compress(s, e);
       },
       "compress comes before any member is written"},
      {"delete a missing member", 10, 2, [](PdsEditor& p, std::string& e) { return p.remove("NONE", e); },
       "member NONE not found in TEST.PDS"},
  };
  for (const Case& c : cases) {
    PdsVolume v(c.tracks, c.directoryBlocks);
    std::string error;
    size_t staged = 99;
    EXPECT_FALSE(v.edit(c.op, error, &staged)) << c.what;
    EXPECT_NE(error.find(c.says), std::string::npos) << c.what << ": " << error;
    EXPECT_EQ(staged, 0u) << c.what;
  }
}

TEST(PdsEditTest, StatisticsBytesByHand) {
  std::tm when{};
  when.tm_year = 124, when.tm_yday = 59, when.tm_hour = 13, when.tm_min = 37, when.tm_sec = 45;  // 2024.060
  EXPECT_EQ(encodeStatistics(3, when, "user01x9", nullptr),
            cat({hex("01 00 00"),           // version 1, modification 0, flags
                 hex("45"),                 // seconds, packed
                 hex("0124060F 0124060F"),  // created, changed: 0cyydddF
                 hex("13 37"),              // hour, minute, packed
                 hex("0003 0003 0000"),     // current, initial, modified lines
                 hex("E4E2C5D9F0F1E740"),   // USER01X: 7 characters, blank
                 hex("0000")}));
  // Replacing: version and created date and initial lines kept, level + 1.
  MemberStatistics old;
  ASSERT_TRUE(decodeStatistics(0x0F, hex("05 07 00 00 0099001F 0099001F 00 00 0010 0020 0000 C1404040 40404040 0000"), old));
  const Bytes again = encodeStatistics(70000, when, "", &old);
  EXPECT_EQ(again, cat({hex("05 08 20 45 0099001F 0124060F 13 37 FFFF 0020 0000"),  // extended form flag 20
                        Bytes(8, 0x40),                                         // no user id
                        hex("00011170 00000020 00000000")}));                   // 70000, 32, 0 as u32
}

TEST(PdsEditTest, MemberOfSeveralTracksRoundTrips) {
  // FB 80/27920: 349 records a block, two blocks a track; 1500 records are
  // 5 blocks from 0/3 (behind the directory block 0/1 and its EOF 0/2) on 3 tracks.
  PdsVolume v(10, 1, 27920);
  std::vector<Bytes> records = member(1500, 0xE7);
  std::vector<Bytes> blocks;
  for (size_t i = 0; i < records.size(); ++i) {
    if (i % 349 == 0) blocks.emplace_back();
    blocks.back().insert(blocks.back().end(), records[i].begin(), records[i].end());
  }
  MemberWrite w;
  std::string error;
  ASSERT_TRUE(v.edit([&](PdsEditor& p, std::string& e) { return p.writeMember("LONG", blocks, Bytes(), false, w, e); },
                     error))
      << error;
  EXPECT_EQ(w.blocks, 5u);
  EXPECT_EQ(w.tracks, 3u);
  EXPECT_EQ(w.first.track * 1000 + w.first.record, 3u);
  EXPECT_EQ(v.records("LONG"), records);
}

}  // namespace

namespace {

// A new member goes behind the last member even when the DSCB's last-block
// pointer lags behind it: a pointer at an EOF record spares the walk of the
// members before it, any other pointer (a data block, none) walks them all.
TEST(PdsEditTest, UsedSpaceEndsBehindTheLastMemberWhateverThePointerSays) {
  // Directory EOF at 0/2; A at 0/3, EOF 0/4; B at 0/5, EOF 0/6.
  const struct {
    uint8_t pointer;  // record of track 0 the DSCB's pointer is set to
    const char* what;
  } cases[] = {{4, "A's EOF record"}, {3, "A's data block"}, {0, "no pointer"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    PdsVolume v(10, 1);
    std::string error;
    ASSERT_TRUE(v.edit([](PdsEditor& p, std::string& e) { return add(p, "A", member(1, 0xC1), e); }, error)) << error;
    ASSERT_TRUE(v.edit([](PdsEditor& p, std::string& e) { return add(p, "B", member(1, 0xC2), e); }, error)) << error;
    {
      StagedTracks s(v.file);
      uint32_t kl = 0, dl = 0;
      const RecordAddress at = v.ds().address;
      unsigned char* dscb = s.stageRecord(at.cyl * kHeads + at.head, at.record, kl, dl, error);
      ASSERT_NE(dscb, nullptr) << error;
      ASSERT_EQ(kl + dl, 140u);
      const unsigned char lstar[] = {0x00, 0x00, c.pointer};  // DS1LSTAR at 98: TT, R
      std::copy(lstar, lstar + 3, dscb + 98);
      ASSERT_EQ(s.writeAll(), "");
      v.rescan();
      ASSERT_EQ(v.ds().lastBlockRecord, c.pointer);
    }
    StagedTracks s(v.file);
    PdsEditor p(s, v.ds());
    ASSERT_TRUE(p.load(error)) << error;
    EXPECT_EQ(p.usedEnd().track * 1000 + p.usedEnd().record, 6u);
    MemberWrite w;
    ASSERT_TRUE(p.writeMember("C", blocked(member(1, 0xC3)), Bytes(), false, w, error)) << error;
    EXPECT_EQ(w.first.track * 1000 + w.first.record, 7u);
  }
}

}  // namespace

namespace {

Bytes fileBytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// 20 members of 1 to 1,141 records (up to 4 blocks of FB 80/27920, 2 tracks).
std::vector<std::vector<Bytes>> loadBlocks() {
  std::vector<std::vector<Bytes>> members;
  for (int m = 0; m < 20; ++m) {
    std::vector<Bytes> records = member(1 + m * 60, static_cast<unsigned char>(0xC1 + m % 9));
    std::vector<Bytes> blocks;
    for (size_t i = 0; i < records.size(); ++i) {
      if (i % 349 == 0) blocks.emplace_back();
      blocks.back().insert(blocks.back().end(), records[i].begin(), records[i].end());
    }
    members.push_back(blocks);
  }
  return members;
}

bool loadAll(StagedTracks& staged, const DataSetInfo& ds, const std::vector<std::vector<Bytes>>& members,
             std::string& error, std::function<void()> beforeCommit = nullptr) {
  PdsEditor pds(staged, ds);
  if (!pds.load(error)) return false;
  for (size_t m = 0; m < members.size(); ++m) {
    MemberWrite w;
    if (!pds.writeMember("M" + std::to_string(m), members[m], Bytes(), false, w, error)) return false;
  }
  if (beforeCommit) beforeCommit();
  return pds.commit(error);
}

TEST(PdsEditTest, StreamedLoadWritesTheBytesOfAHeldOneAndStaysInsideItsPlan) {
  const std::vector<std::vector<Bytes>> members = loadBlocks();
  PdsVolume held(60, 2, 27920), streamed(60, 2, 27920);
  std::string error;
  StagedTracks heldStage(held.file);
  ASSERT_TRUE(loadAll(heldStage, held.ds(), members, error)) << error;
  ASSERT_EQ(heldStage.writeAll(), "");

  const Bytes before = fileBytes(streamed.path);
  StagedTracks plan(streamed.file);
  ASSERT_TRUE(plan.planOnly(error));
  ASSERT_TRUE(loadAll(plan, streamed.ds(), members, error)) << error;
  EXPECT_EQ(plan.slots(), heldStage.slots());
  EXPECT_EQ(plan.writeAll(), "a planned change is not written");
  EXPECT_EQ(fileBytes(streamed.path), before);  // planning writes nothing

  // A plan that leaves out a track the change writes: the run is refused
  // at that track, and the journal's undo gives every byte back.
  std::vector<uint64_t> shortPlan = plan.slots();
  shortPlan.erase(shortPlan.begin() + static_cast<long>(shortPlan.size()) / 2);
  {
    ChangeJournal journal(streamed.file, "test");
    ASSERT_EQ(journal.begin(shortPlan), 0) << journal.error();
    StagedTracks through(streamed.file);
    ASSERT_TRUE(through.writeThrough(shortPlan, error));
    EXPECT_FALSE(loadAll(through, streamed.ds(), members, error));
    EXPECT_NE(error.find("was not part of the planned change"), std::string::npos) << error;
    ASSERT_EQ(journal.undo(), 0) << journal.error();
  }
  EXPECT_EQ(fileBytes(streamed.path), before);

  ChangeJournal journal(streamed.file, "test");
  ASSERT_EQ(journal.begin(plan.slots()), 0) << journal.error();
  StagedTracks through(streamed.file);
  ASSERT_TRUE(through.writeThrough(plan.slots(), error));
  EXPECT_FALSE(through.planOnly(error));
  size_t onDiskBeforeCommit = 0;
  ASSERT_TRUE(loadAll(through, streamed.ds(), members, error, [&]() {
    // Full tracks are on disk already: the file differs from before.
    const Bytes now = fileBytes(streamed.path);
    for (size_t i = 0; i < before.size(); ++i) onDiskBeforeCommit += now[i] != before[i] ? 1 : 0;
  })) << error;
  EXPECT_GT(onDiskBeforeCommit, 100000u);
  ASSERT_EQ(through.writeAll(), "");
  EXPECT_EQ(through.slots(), plan.slots());
  ASSERT_EQ(journal.finish(), 0) << journal.error();
  EXPECT_EQ(fileBytes(streamed.path), fileBytes(held.path));
}

}  // namespace
