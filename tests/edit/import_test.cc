// Import of unloaded partitioned data sets onto a volume: every TTR of a
// load module (entry, user TTRs, note list) follows its block to the new
// place; source members keep their user data byte for byte; a selection
// takes a member with its aliases; volume -> transfer file -> volume gives
// the same members; refusals say why. Expected TTRs are worked out by hand from the
// D600 track layout (slot 56832: home address 5, record zero 8 + 8, each
// record 8 + key + data, the end marker 8 and the trailer 16 behind).
#include <gtest/gtest.h>

#include <stdexcept>

#include "../../tools/ckdvol/transfer_volume.h"
#include "dataset/block_reader.h"
#include "dataset/pds_directory.h"
#include "edit/allocate.h"
#include "support/temp_dir.h"
#include "support/track_builder.h"
#include "transfer/transfer_file.h"

namespace {

using namespace ckdvol;
using ckdvol_test::hex;
using ckdvol_test::ScopedTempDir;
using ckdvol_tool::ImportOptions;
using ckdvol_tool::ImportSummary;

// EBCDIC member name, blank padded (letters and digits only).
std::array<unsigned char, 8> name(const char* text) {
  std::array<unsigned char, 8> n;
  n.fill(0x40);
  for (size_t i = 0; text[i] != '\0'; ++i) {
    const char c = text[i];
    n[i] = c >= '0' && c <= '9' ? 0xF0 + (c - '0')
           : c <= 'I'           ? 0xC1 + (c - 'A')
           : c <= 'R'           ? 0xD1 + (c - 'J')
                                : 0xE2 + (c - 'S');
  }
  return n;
}

DirectoryEntry entry(const char* n, uint32_t tt, uint8_t r, uint8_t indicator, Bytes userData) {
  DirectoryEntry e;
  e.name = name(n);
  e.ttr = Ttr{tt, r};
  e.indicator = indicator;
  e.userData = std::move(userData);
  return e;
}

UnloadedBlock block(uint32_t tt, uint8_t r, Bytes data) {
  UnloadedBlock b;
  b.ttr = Ttr{tt, r};
  b.data = std::move(data);
  return b;
}
UnloadedBlock eof(uint32_t tt, uint8_t r) { return block(tt, r, Bytes()); }
Bytes filled(size_t n, unsigned char first) {
  Bytes b(n);
  for (size_t i = 0; i < n; ++i) b[i] = static_cast<unsigned char>(first + i * 7);
  return b;
}

// A fresh 5-cylinder D600 volume with a 30-track data set in front, so the
// imported data set lies elsewhere than on the first free track.
struct Volume {
  ScopedTempDir dir;
  std::string path = dir.file("v.ckd");
  EmulatedCKDfile file;
  VtocInfo vtoc;
  Volume() {
    EmulatedCKDfile maker;
    if (maker.create(path.c_str(), EmulatedCKDfile::D600, 5) != 0 || maker.initialize(nullptr, nullptr, true) != 0 ||
        maker.close() != 0 || file.open(path.c_str(), false) != 0) {
      throw std::runtime_error("cannot make the volume");
    }
    rescan();
    AllocationRequest r;
    r.name = "IN.FRONT";
    r.primary = 30;
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
  // Stages and writes an import; false with `error` (nothing written).
  bool import(const TransferContents& c, const ImportOptions& o, ImportSummary& s, std::string& error) {
    StagedTracks staged(file);
    if (!ckdvol_tool::stageImport(staged, vtoc, c, o, s, error)) return false;
    const std::string w = staged.writeAll();
    if (!w.empty()) throw std::runtime_error(w);
    rescan();
    return true;
  }
  const DataSetInfo& ds(const std::string& n) {
    const DataSetInfo* d = findDataSet(vtoc, n);
    if (d == nullptr) throw std::runtime_error(n + " not found");
    return *d;
  }
  std::vector<MemberInfo> directory(const std::string& n) {
    std::vector<MemberInfo> m;
    std::string error;
    EXPECT_EQ(readDirectory(file, ds(n), m, error), kDirectoryOk) << error;
    return m;
  }
  // The block at relative track `tt` record `r` and those behind it up to
  // the end of file.
  std::vector<Bytes> blocksFrom(const std::string& n, uint32_t tt, uint8_t r) {
    BlockReader reader(file, ds(n));
    reader.startAt(tt, r);
    std::vector<Bytes> out;
    Block b;
    int rc;
    while ((rc = reader.next(b)) == kBlockRead) out.emplace_back(b.data, b.data + b.dataLength);
    EXPECT_EQ(rc, kBlockEnd) << reader.error();
    return out;
  }
};

// A load library as it lay on its original volume: the blocks of a deleted
// member at 000008 that no entry names, then LOADA (alias LOADB) from
// 00000A to its EOF at 000602 with a note list at 00000C.
TransferContents loadLibrary() {
  TransferContents c;
  c.partitioned = true;
  c.attributes.dsn = "SYS.LOADLIB";
  UnloadedPds& p = c.pds;
  p.recfm = kRecfmU;
  p.blksize = 32760;
  p.directoryBlocks = 2;
  p.blocks = {block(0, 8, filled(50, 9)), eof(0, 9),
              block(0, 10, filled(100, 1)),   // control record
              block(0, 11, filled(30000, 2)),  // first text record
              block(0, 12, hex("00000B 00  000601 00")),  // note list: 2 entries
              block(6, 1, filled(26090, 3)),  // second text record
              eof(6, 2)};
  // 12 halfwords: user TTR 1 (first text, N 0), user TTR 2 (note list, N 2), 16 more bytes.
  const Bytes tail = hex("0102030405060708 090A0B0C0D0E0F10");
  Bytes ud = hex("00000B 00  00000C 02");
  ud.insert(ud.end(), tail.begin(), tail.end());
  Bytes aliasUd = ud;
  aliasUd.back() = 0x99;  // another entry point
  p.entries = {entry("LOADA", 0, 10, 0x4C, ud), entry("LOADB", 0, 10, 0xCC, aliasUd)};
  return c;
}

TEST(Import, LoadModuleTtrsFollowTheirBlocks) {
  Volume v;
  ImportSummary s;
  std::string error;
  const TransferContents c = loadLibrary();
  ASSERT_TRUE(v.import(c, ImportOptions(), s, error)) << error;
  EXPECT_TRUE(s.allocated);
  EXPECT_EQ(s.members, 1u);
  EXPECT_EQ(s.aliases, 1u);
  EXPECT_EQ(s.blocks, 4u);  // the deleted member's block is left behind
  EXPECT_EQ(s.noteLists, 1u);
  EXPECT_EQ(s.tracks, 2u);
  // New places on relative track 0: 2 directory blocks (R1, R2: 21 + 2 x 272
  // = 565), their EOF (R3: 573), control record R4 (681), first text R5
  // (30689), note list R6 (30705), second text R7 (56803); the EOF would end
  // at 56811 > 56808 (slot - trailer - marker), so it is R1 of track 1.
  const std::vector<MemberInfo> d = v.directory("SYS.LOADLIB");
  ASSERT_EQ(d.size(), 2u);
  struct Want {
    const char* name;
    uint8_t indicator;
    Bytes userData;
  } wants[] = {
      {"LOADA", 0x4C, hex("000005 00  000006 02  0102030405060708 090A0B0C0D0E0F10")},
      {"LOADB", 0xCC, hex("000005 00  000006 02  0102030405060708 090A0B0C0D0E0F99")},
  };
  for (size_t i = 0; i < 2; ++i) {
    SCOPED_TRACE(wants[i].name);
    EXPECT_EQ(d[i].name, wants[i].name);
    EXPECT_EQ(d[i].track, 0);  // TTR 000004
    EXPECT_EQ(d[i].record, 4);
    EXPECT_EQ(d[i].indicator, wants[i].indicator);
    EXPECT_EQ(d[i].userData, wants[i].userData);
  }
  // Each TTR names the block holding the data it named before.
  const std::vector<Bytes> member = v.blocksFrom("SYS.LOADLIB", 0, 4);
  ASSERT_EQ(member.size(), 4u);
  EXPECT_EQ(member[0], c.pds.blocks[2].data);
  EXPECT_EQ(v.blocksFrom("SYS.LOADLIB", 0, 5).at(0), c.pds.blocks[3].data);  // user TTR 1
  EXPECT_EQ(v.blocksFrom("SYS.LOADLIB", 0, 6).at(0), hex("000005 00  000007 00"));  // the note list, rewritten
  EXPECT_EQ(v.blocksFrom("SYS.LOADLIB", 0, 7).at(0), c.pds.blocks[5].data);  // its second entry
}

// A source library: A (statistics), B with alias BB, C.
TransferContents sourceLibrary() {
  TransferContents c;
  c.partitioned = true;
  c.attributes.dsn = "SRC.LIB";
  UnloadedPds& p = c.pds;
  p.recfm = kRecfmF | kRecfmBlocked;
  p.lrecl = 80;
  p.blksize = 800;
  p.directoryBlocks = 1;
  p.blocks = {block(1, 1, filled(800, 1)), block(1, 2, filled(160, 2)), eof(1, 3),  // A
              block(1, 4, filled(240, 3)), eof(1, 5),                               // B
              block(2, 1, filled(80, 4)), eof(2, 2)};                               // C
  // Statistics: version 01.02, flags, seconds, created 2024.031, changed
  // 2024.060 13:37, lines 3/3/1, user USER01, 2 reserved bytes.
  const Bytes stats = hex("01 02 00 45 0124031F 0124060F 13 37 0003 0003 0001 E4E2C5D9F0F14040 0000");
  p.entries = {entry("A", 1, 1, 0x0F, stats), entry("B", 1, 4, 0x00, Bytes()), entry("BB", 1, 4, 0x80, Bytes()),
               entry("C", 2, 1, 0x00, Bytes())};
  return c;
}

TEST(Import, SelectionTakesAliasesAndKeepsUserData) {
  const struct {
    std::vector<std::string> members;
    std::vector<std::string> want;  // the directory afterwards
    uint64_t blocks;
  } cases[] = {
      {{}, {"A", "B", "BB", "C"}, 4},
      {{"b"}, {"B", "BB"}, 1},
      {{"BB"}, {"B", "BB"}, 1},  // naming an alias brings its member
      {{"a", "C"}, {"A", "C"}, 3},
  };
  const TransferContents c = sourceLibrary();
  for (const auto& k : cases) {
    SCOPED_TRACE(k.want.front() + " ... " + std::to_string(k.want.size()));
    Volume v;
    ImportOptions o;
    o.members = k.members;
    ImportSummary s;
    std::string error;
    ASSERT_TRUE(v.import(c, o, s, error)) << error;
    EXPECT_EQ(s.blocks, k.blocks);
    std::vector<std::string> got;
    for (const MemberInfo& m : v.directory("SRC.LIB")) {
      got.push_back(m.name);
      const DirectoryEntry* was = nullptr;
      for (const DirectoryEntry& e : c.pds.entries) {
        if (e.text() == m.name) was = &e;
      }
      ASSERT_NE(was, nullptr);
      EXPECT_EQ(m.userData, was->userData) << m.name;
      EXPECT_EQ(m.indicator, was->indicator) << m.name;
      // The member's blocks hold what they held.
      std::vector<Bytes> before;
      for (size_t i = 0; i < c.pds.blocks.size(); ++i) {
        if (c.pds.blocks[i].ttr == was->ttr) {
          for (size_t j = i; !c.pds.blocks[j].endOfFile(); ++j) before.push_back(c.pds.blocks[j].data);
        }
      }
      EXPECT_EQ(v.blocksFrom("SRC.LIB", m.track, m.record), before) << m.name;
    }
    EXPECT_EQ(got, k.want);
  }
}

TEST(Import, ReplaceAddsToAnExistingLibrary) {
  Volume v;
  ImportSummary s;
  std::string error;
  ImportOptions o;
  // C is the last block of an unload that lacks C's end-of-file record:
  // the import writes one, so what is added later stays out of C.
  TransferContents cut = sourceLibrary();
  cut.pds.blocks.pop_back();
  o.members = {"A", "C"};
  ASSERT_TRUE(v.import(cut, o, s, error)) << error;
  o.members = {"B"};
  EXPECT_FALSE(v.import(sourceLibrary(), o, s, error));
  EXPECT_EQ(error, "data set SRC.LIB exists (--replace adds the members to it)");
  o.replace = true;
  ASSERT_TRUE(v.import(sourceLibrary(), o, s, error)) << error;
  EXPECT_FALSE(s.allocated);
  EXPECT_EQ(s.replaced, 0u);
  EXPECT_EQ(s.members + s.aliases, 2u);
  const std::vector<MemberInfo> d = v.directory("SRC.LIB");
  ASSERT_EQ(d.size(), 4u);
  EXPECT_EQ(d[3].name, "C");
  EXPECT_EQ(v.blocksFrom("SRC.LIB", d[3].track, d[3].record), std::vector<Bytes>{filled(80, 4)});
  o.members = {"a"};
  ASSERT_TRUE(v.import(sourceLibrary(), o, s, error)) << error;
  EXPECT_EQ(s.replaced, 1u);
  std::vector<std::string> got;
  for (const MemberInfo& m : v.directory("SRC.LIB")) got.push_back(m.name);
  EXPECT_EQ(got, (std::vector<std::string>{"A", "B", "BB", "C"}));
}

TEST(Import, RoundTripThroughTheVolume) {
  for (const TransferContents& c : {loadLibrary(), sourceLibrary()}) {
    SCOPED_TRACE(c.attributes.dsn);
    Volume first, second;
    ImportSummary s;
    std::string error;
    ASSERT_TRUE(first.import(c, ImportOptions(), s, error)) << error;
    // Off the first volume, through the bytes of a transfer file, onto the second.
    TransferContents out, back;
    out.partitioned = true;
    out.attributes.dsn = "COPY.LIB";
    out.attributes.dsorg = kDsorgPO;
    ASSERT_TRUE(ckdvol_tool::unloadFromVolume(first.file, first.ds(c.attributes.dsn), {}, out.pds, error)) << error;
    Bytes file;
    ASSERT_TRUE(writeTransferFile(out, file, error)) << error;
    ASSERT_TRUE(readTransferFile(file, back, error)) << error;
    if (c.attributes.dsn == "SYS.LOADLIB") {  // where the first import put LOADA's blocks, the EOF on the next track
      std::vector<std::pair<uint32_t, int>> at;
      for (const UnloadedBlock& b : out.pds.blocks) at.emplace_back(b.ttr.track, b.ttr.record);
      EXPECT_EQ(at, (std::vector<std::pair<uint32_t, int>>{{0, 4}, {0, 5}, {0, 6}, {0, 7}, {1, 1}}));
    }
    EXPECT_EQ(back.pds.recfm, c.pds.recfm);
    EXPECT_EQ(back.pds.directoryBlocks, c.pds.directoryBlocks);
    EXPECT_EQ(back.pds.heads, 15);
    EXPECT_EQ(back.pds.deviceType, 0x3010200Fu);  // the device type a receiver knows for this geometry
    ASSERT_TRUE(second.import(back, ImportOptions(), s, error)) << error;
    const std::vector<MemberInfo> a = first.directory(c.attributes.dsn), b = second.directory("COPY.LIB");
    ASSERT_EQ(a.size(), b.size());
    for (size_t i = 0; i < a.size(); ++i) {
      EXPECT_EQ(a[i].name, b[i].name);
      EXPECT_EQ(a[i].indicator, b[i].indicator);
      EXPECT_EQ(a[i].userData, b[i].userData);  // the same layout gives the same TTRs
      EXPECT_EQ(first.blocksFrom(c.attributes.dsn, a[i].track, a[i].record),
                second.blocksFrom("COPY.LIB", b[i].track, b[i].record));
    }
  }
}

TEST(Import, Refusals) {
  const struct {
    const char* what;
    void (*change)(TransferContents&, ImportOptions&);
    const char* error;
  } cases[] = {
      {"unknown member", [](TransferContents&, ImportOptions& o) { o.members = {"A", "NOPE"}; },
       "not in the transfer file: NOPE"},
      {"entry without block", [](TransferContents& c, ImportOptions&) { c.pds.entries[2].ttr = Ttr{9, 1}; },
       "entry BB points at TTR 000901, which is no block of the unloaded data set"},
      {"user TTR outside the member",
       [](TransferContents& c, ImportOptions& o) {
         c.pds.entries[1] = entry("B", 1, 4, 0x22, hex("000201 00"));  // C's block, not taken
         o.members = {"B"};
       },
       "the entry of B: user TTR 1 names TTR 000201, which is not among the blocks imported"},
      {"short note list",
       [](TransferContents& c, ImportOptions&) { c.pds.entries[1] = entry("B", 1, 4, 0x44, hex("000104 00  000104 40")); },
       "the note list at TTR 000104 has 240 bytes, too few for 64 entries"},
      {"user data shorter than its TTRs",
       [](TransferContents& c, ImportOptions&) { c.pds.entries[1] = entry("B", 1, 4, 0x41, hex("0001")); },
       "the entry of B says it has 2 user TTRs but holds 2 bytes of user data"},
      {"bad name", [](TransferContents&, ImportOptions& o) { o.dsn = "1BAD"; }, "qualifier"},
      {"no room", [](TransferContents&, ImportOptions& o) { o.primary = 100; o.cylinders = true; }, "no room"},
      {"blocks longer than BLKSIZE", [](TransferContents&, ImportOptions& o) { o.blksize = 400; },
       "BLKSIZE 400 cannot hold the members' blocks of up to 800 bytes"},
  };
  for (const auto& k : cases) {
    SCOPED_TRACE(k.what);
    Volume v;
    TransferContents c = sourceLibrary();
    ImportOptions o;
    k.change(c, o);
    ImportSummary s;
    std::string error;
    EXPECT_FALSE(v.import(c, o, s, error));
    EXPECT_NE(error.find(k.error), std::string::npos) << error;
  }
}

}  // namespace
