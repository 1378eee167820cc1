// BasicPartionedAccessMethod: the open results, the directory walk over
// damaged blocks, relative tracks, and members read and replaced (checked by
// rereading the volume file).
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "pds/basic_partitioned_access_method.h"
#include "support/pds_builder.h"
#include "volume/dsk_volume.h"

namespace ckdvol_test {
namespace {

using Bpam = BasicPartionedAccessMethod;

std::string bytesOf(const RexxString* r) {
  return r ? std::string(r->text(), static_cast<size_t>(r->length())) : "(null)";
}
std::string ebcdicText(const std::string& text, int lrecl = 80) {
  Bytes b = ebcdicPadded(text, static_cast<size_t>(lrecl));
  return std::string(b.begin(), b.end());
}

// A D600 volume with TEST.PDS on `extents`, laid out by writePds with at most
// `perTrack` records a track, the volume and the data set opened.
struct Pds {
  TestVolume vol;
  PdsPlacement at;
  DskVolume dsk;
  Bpam pds{dsk};
  Pds(const std::vector<PdsMember>& members, uint16_t blksize = 3200, int perTrack = 2,
      uint16_t lrecl = 80, std::vector<ExtentSpec> extents = {{1, 0, 2, 14}}) {
    vol.writeVtoc({format1Dscb(pdsDataSet("TEST.PDS", lrecl, blksize, extents))});
    PdsLayoutOptions opts;
    opts.recordsPerTrack = perTrack;
    at = writePds(vol, extents, members, opts);
    if (dsk.open(&vol.file()) != 0 || pds.openDataset("TEST.PDS") != 0) {
      throw std::runtime_error("open TEST.PDS");
    }
  }
};

TEST(PdsTest, OpenResults) {
  TestVolume vol;
  std::vector<Dscb> dscbs;
  const struct {
    const char* name;
    uint16_t dsorg;
    std::vector<ExtentSpec> extents;
    int rc, err;
  } rows[] = {
      {"PO.0200", 0x0200, {{1, 0, 1, 14}}, Bpam::kOpenOk, 0},
      {"PO.0300", 0x0300, {{1, 0, 1, 14}}, Bpam::kOpenOk, 0},
      {"TEST.SEQ", 0x4000, {{1, 0, 1, 0}}, Bpam::kOpenNotPartitioned, ENOENT},
      {"TEST.ODD", 0x0201, {{1, 0, 1, 0}}, Bpam::kOpenNotPartitioned, ENOENT},
      {"NO.EXTENT", 0x0200, {}, Bpam::kOpenNoExtent, EIO},
      {"FAR.AWAY", 0x0200, {{50, 0, 50, 14}}, Bpam::kOpenUnreadable, EIO},
      {"EMPTY.TRACK", 0x0200, {{2, 0, 2, 14}}, Bpam::kOpenNoFirstRecord, EIO},
  };
  for (const auto& row : rows) {
    DataSetLayout ds = pdsDataSet(row.name, 80, 6160, row.extents);
    ds.dsorg = row.dsorg;
    dscbs.push_back(format1Dscb(ds));
  }
  vol.writeVtoc(dscbs);
  writePds(vol, {{1, 0, 1, 14}}, {{"ALPHA", textBlocks("A", 3, 80, 77), {}}});
  vol.setRecords(2, 0, {});  // record zero only
  for (const auto& row : rows) {
    DskVolume dsk;
    ASSERT_EQ(dsk.open(&vol.file()), 0);
    Bpam pds(dsk);
    errno = 0;
    EXPECT_EQ(pds.openDataset(row.name), row.rc) << row.name;
    EXPECT_EQ(errno, row.err) << row.name;
    bool attributes = row.err != ENOENT;  // taken before any later failure
    EXPECT_EQ(std::vector<int>({pds.blockSize, pds.recordLength, pds.recordFormat}),
              attributes ? std::vector<int>({6160, 80, 0x90}) : std::vector<int>({-1, -1, 0xFFFF})) << row.name;
    EXPECT_EQ(std::string(pds.datasetName.text()), attributes ? row.name : "") << row.name;
    EXPECT_EQ(pds.directory.count, row.rc == 0 ? 1 : 0) << row.name;
    if (row.rc == 0) { EXPECT_STREQ(pds.directory[0]->name, "ALPHA"); }
  }
  DskVolume dsk;
  ASSERT_EQ(dsk.open(&vol.file()), 0);
  Bpam pds(dsk);
  for (const char* name : {static_cast<const char*>(nullptr), "", "TEST.NONE", "po.0200"}) {
    errno = 0;
    EXPECT_EQ(pds.openDataset(name), name && *name ? Bpam::kOpenNotFound : Bpam::kOpenNoName) << (name ? name : "null");
    EXPECT_EQ(errno, ENOENT);
  }
  EXPECT_EQ(pds.extents.count + pds.directory.count, 0);
}

// Opens TEST.PDS on 1/0-1/14 whose track 1/0 holds `track`; the names read.
std::vector<std::string> directoryOf(const std::vector<Record>& track) {
  TestVolume vol;
  vol.writeVtoc({format1Dscb(pdsDataSet("TEST.PDS", 80, 3120, {{1, 0, 1, 14}}))});
  vol.setRecords(1, 0, track);
  vol.setRecords(1, 1, {directoryRecord(1, {}, directoryBlock({dirEntry("NEXT", 3, 1)})), eofRecord(2)});
  DskVolume dsk;
  Bpam pds(dsk);
  if (dsk.open(&vol.file()) != 0 || pds.openDataset("TEST.PDS") != 0) return {"(open failed)"};
  std::vector<std::string> names;
  for (int i = 0; i < pds.directory.count; ++i) names.push_back(pds.directory[i]->name);
  return names;
}

TEST(PdsTest, DirectoryWalkStaysInsideEachBlockAndEndsAtTheFirstNon256Record) {
  // Bytes used swept over a block of 21 twelve-byte entries and two bytes
  // left over: ceil((used - 2) / 12) entries, at most the 21 that fit.
  std::vector<Bytes> twelve;
  for (int i = 0; i < 21; ++i) twelve.push_back(dirEntry("E" + std::to_string(i), 1, 1));
  for (int used : {0, 1, 2, 3, 14, 15, 254, 255, 256, 257, 0x7FFF, 0xFFFF}) {
    Bytes block = directoryBlock(twelve, used);
    block[254] = block[255] = 0xC1;  // no room for a name
    size_t want = used <= 2 ? 0 : std::min(21, (used - 2 + 11) / 12);
    EXPECT_EQ(directoryOf({directoryRecord(1, {}, block), eofRecord(2)}).size(), want) << used;
  }
  // Entries that would run past the block's 256 bytes.
  Bytes big(62, 0x5A);
  Bytes runs = directoryBlock({dirEntry("L1", 1, 1, big), dirEntry("L2", 1, 1, big), dirEntry("L3", 1, 1, big)}, 256);
  Bytes over = dirEntry("OVER", 1, 1);
  over[11] = 0x1F;  // at 224, 74 bytes: to 298
  std::copy(over.begin(), over.end(), runs.begin() + 224);
  Bytes tail = directoryBlock({dirEntry("F0", 1, 1, big), dirEntry("F1", 1, 1, big), dirEntry("F2", 1, 1, big),
                               dirEntry("F3", 1, 1, Bytes(10, 0x11))}, 256);  // to 246
  Bytes name8 = ebcdicPadded("TAIL", 8);
  std::copy(name8.begin(), name8.end(), tail.begin() + 246);  // a name fits, TT/R/indicator do not
  const std::vector<std::string> afterEnd = {"A", "B", "LATE"};
  Bytes short255 = directoryBlock({dirEntry("NEVER", 2, 2)});
  short255.resize(255);
  const struct {
    const char* what;
    std::vector<Record> track;
    std::vector<std::string> names;
  } rows[] = {
      {"entry past the end", {directoryRecord(1, {}, runs), eofRecord(2)}, {"L1", "L2", "L3"}},
      {"fixed part past the end", {directoryRecord(1, {}, tail), eofRecord(2)}, {"F0", "F1", "F2", "F3"}},
      {"8F entry is 42 bytes",
       {directoryRecord(1, {}, directoryBlock({dirEntry("AB", 3, 5, Bytes(30, 7), 0x80), dirEntry("C D", 4, 1), endEntry()})),
        eofRecord(2)},
       {"AB", "C D"}},
      {"blocks after the end entry are read on; a 255-byte record ends the walk, on the next track too",
       {directoryRecord(1, {}, directoryBlock({dirEntry("A", 1, 1), dirEntry("B", 1, 2), endEntry()})),
        directoryRecord(2, {}, directoryBlock({}, 2)), directoryRecord(3, {}, directoryBlock({dirEntry("LATE", 2, 1)})),
        directoryRecord(4, {}, short255), directoryRecord(5, {}, directoryBlock({dirEntry("NOT", 2, 1)}))},
       afterEnd},
      {"no EOF: the walk goes on to the next track",
       {directoryRecord(1, {}, directoryBlock({dirEntry("A", 1, 1)}))}, {"A", "NEXT"}},
  };
  for (const auto& row : rows) EXPECT_EQ(directoryOf(row.track), row.names) << row.what;
}

TEST(PdsTest, ExtentsAndRelativeTracks) {
  // Five extents, two of them in a Format-3 DSCB; TEST.D300 on 19 heads;
  // TEST.SHORT says five extents but supplies one.
  TestVolume vol(EmulatedCKDfile::D300, 4);
  DataSetLayout ds = pdsDataSet("TEST.PDS", 80, 800, {{1, 0, 1, 1}, {1, 5, 1, 5}, {1, 8, 1, 9}});
  ds.nbrExts = 5;
  ds.next = Cchhr{0, 1, 3};
  ExtentSpec f3a{2, 0, 2, 2, 1, 3}, f3b{2, 10, 2, 14, 1, 4};
  DataSetLayout d300 = pdsDataSet("TEST.D300", 80, 800, {{1, 5, 2, 2}, {3, 0, 3, 18}});  // 13 + 19 by the DSCB
  DataSetLayout shortDs = pdsDataSet("TEST.SHORT", 80, 800, {{1, 0, 1, 14}});
  shortDs.nbrExts = 5;
  vol.writeVtoc({format1Dscb(ds), format3Dscb({f3a, f3b}), format1Dscb(d300), format1Dscb(shortDs)});
  for (Cchhr t : {Cchhr{1, 0, 0}, Cchhr{1, 5, 0}}) {
    vol.setRecords(t.cyl, t.head, {directoryRecord(1, {}, directoryBlock({endEntry()})), eofRecord(2)});
  }
  DskVolume dsk;
  ASSERT_EQ(dsk.open(&vol.file()), 0);
  Bpam five(dsk), nineteen(dsk), shortOne(dsk), closedOne(*new DskVolume);
  ASSERT_EQ(five.openDataset("TEST.PDS"), 0);
  ASSERT_EQ(nineteen.openDataset("TEST.D300"), 0);
  ASSERT_EQ(shortOne.openDataset("TEST.SHORT"), 0);
  const struct {
    Bpam& pds;
    int index;
    std::vector<int> extent;  // low CC HH, high CC HH, low and high track index, tracks; empty: none
  } extents[] = {
      {five, 3, {2, 0, 2, 2, 30, 32, 3}},       {five, 4, {2, 10, 2, 14, 40, 44, 5}},
      {five, -1, {}},                           {five, 5, {}},
      {nineteen, 0, {1, 5, 2, 2, 20, 32, 13}},  {shortOne, 1, {0, 0, 0, 0, 0, 0, 1}},
      {shortOne, 3, {-1, -1, -1, -1, -1, -1, 0}}};
  for (const auto& e : extents) {
    std::vector<int> got(6);
    bool ok = e.pds.getExtent(e.index, got[0], got[1], got[2], got[3], got[4], got[5]);
    EXPECT_EQ(ok, !e.extent.empty()) << e.index;
    if (ok) got.push_back(e.pds.extents[e.index]->tracks);
    EXPECT_EQ(got, e.extent.empty() ? std::vector<int>(6, -1) : e.extent) << e.index;
  }
  // Hand-made extents on 15 heads: 5/0 x 10, 20/3 x 30, an empty slot, 1/14 x 2.
  TestVolume d600;
  DskVolume dsk600;
  ASSERT_EQ(dsk600.open(&d600.file()), 0);
  Bpam byHand(dsk600);
  for (std::vector<int> e : {std::vector<int>{5, 0, 10}, {20, 3, 30}, {}, {1, 14, 2}}) {
    Bpam::Extent* x = e.empty() ? nullptr : new Bpam::Extent();
    if (x) x->lowCyl = e[0], x->lowHead = e[1], x->tracks = e[2];
    byHand.extents.add(x);
    if (x) closedOne.extents.add(new Bpam::Extent(*x));
  }
  const struct {
    const Bpam& pds;
    int track;
    bool ok;
    int cyl, head;
  } tracks[] = {
      {five, 0, true, 1, 0},        {five, 1, true, 1, 1},       {five, 2, true, 1, 5},
      {five, 3, true, 1, 8},        {five, 5, true, 2, 0},       {five, 7, true, 2, 2},
      {five, 8, true, 2, 10},       {five, 12, true, 2, 14},     {five, 13, false, 0, 0},
      {five, -1, true, 1, -1},      // below the first extent: not refused
      {nineteen, 12, true, 1, 17},  // real heads: 15 would give 2/2
      {nineteen, 13, true, 3, 0},   {nineteen, 31, true, 3, 18}, {nineteen, 32, false, 0, 0},
      {shortOne, 16, true, 0, 0},   {shortOne, 17, false, 0, 0},  // empty extents hold no track
      {byHand, 9, true, 5, 9},      {byHand, 10, true, 20, 3},   {byHand, 21, true, 20, 14},
      {byHand, 22, true, 21, 0},    {byHand, 39, true, 22, 2},   {byHand, 40, true, 1, 14},
      {byHand, 41, true, 2, 0},     {byHand, 42, false, 0, 0},   {byHand, -16, true, 4, -1},
      {closedOne, 0, false, 0, 0},  // no volume file
  };
  for (const auto& t : tracks) {
    int cyl = 0, head = 0;
    EXPECT_EQ(t.pds.tt2cchh(t.track, cyl, head), t.ok) << t.track;
    if (t.ok) { EXPECT_EQ(std::vector<int>({cyl, head}), std::vector<int>({t.cyl, t.head})) << t.track; }
  }
  delete &closedOne.volume;
  Bpam::Extent unset;
  EXPECT_EQ(std::vector<int>({unset.lowCyl, unset.lowHead, unset.highCyl, unset.highHead, unset.lowTrackIndex,
                              unset.highTrackIndex, unset.tracks}),
            std::vector<int>(7, -1));
}

TEST(PdsTest, ReadMemberResults) {
  Bytes b3120 = textBlocks("A", 39, 80, 39)[0], b3130 = b3120, b80 = textBlocks("S", 1, 80, 1)[0];
  b3130.resize(3130, 0x40);
  PdsMember beyond{"BEYOND", {}, {}, 0, 45}, offVolume{"OFFVOL", {}, {}, 0, 30},
      ghost{"GHOST", {}, {}, 0, 28};
  Pds f({{"FIRST", textBlocks("F", 5, 80, 40), {}},
         {"MEMBER1", textBlocks("REC", 120, 80, 40), {}},
         {"FULL", {b3120, b3130, b3120}, {}},        // not whole records: ends the member
         {"SHORT", {b3120, b80, b3120}, {}},
         {"LONG", {b3120, textBlocks("L", 41, 80, 41)[0], b3120}, {}},  // above BLKSIZE
         beyond, offVolume, ghost},
        3200, 2, 80, {{1, 0, 2, 13}, {50, 0, 50, 14}});
  f.vol.setRecords(2, 14, {dataRecord(1, b80)});  // relative track 28: no record 2
  const struct {
    const char* name;
    int rc, err, count;
    std::string last;
  } rows[] = {
      {"member1", 0, 0, 120, "REC 119"}, {"FIRST", 0, 0, 5, "F 4"},
      {"FULL", 0, 0, 39, "A 38"},        {"SHORT", 0, 0, 79, "A 38"},
      {"LONG", 0, 0, 39, "A 38"},        {"GHOST", 0, 0, 0, ""},
      {"TWO", Bpam::kReadNoMember, ENOENT, 0, ""},
      {"FIRST ", Bpam::kReadNoMember, ENOENT, 0, ""},
      {"BEYOND", Bpam::kReadOutsideExtents, EIO, 0, ""},
      {"OFFVOL", Bpam::kReadUnreadable, EIO, 0, ""},
  };
  for (const auto& row : rows) {
    errno = 0;
    EXPECT_EQ(f.pds.readMember(row.name), row.rc) << row.name;
    EXPECT_EQ(errno, row.err) << row.name;
    ASSERT_EQ(f.pds.records.count, row.count) << row.name;
    if (row.count) { EXPECT_EQ(bytesOf(f.pds.records[row.count - 1]), ebcdicText(row.last)) << row.name; }
    std::string upper = row.rc == Bpam::kReadNoMember ? "" : row.name;
    for (char& c : upper) c = static_cast<char>(std::toupper(c));
    EXPECT_EQ(std::string(f.pds.memberName, 12), upper + std::string(12 - upper.size(), '\0')) << row.name;
    if (row.rc < 0) { EXPECT_EQ(f.pds.replaceMember(row.name), row.rc) << "passed on: " << row.name; }
  }
  ASSERT_EQ(f.pds.readMember("SHORT"), 0);
  EXPECT_EQ(bytesOf(f.pds.records[39]), ebcdicText("S 0"));
  ASSERT_EQ(f.pds.readMember("MEMBER1"), 0);
  EXPECT_EQ(f.pds.memberTrack * 256 + f.pds.memberRecord, f.at.memberTT[1] * 256 + f.at.memberR[1]);
  for (int i = 0; i < 120; ++i) ASSERT_EQ(bytesOf(f.pds.records[i]), ebcdicText(textRecord("REC", i))) << i;
  // Reading again reuses the strings; one taken out of the list and a copy stay.
  RexxString* taken = f.pds.records[3];
  f.pds.records.set(3, nullptr);
  RexxString copy(*f.pds.records[4]);
  ASSERT_EQ(f.pds.readMember("FIRST"), 0);
  for (int i = 5; i < f.pds.records.capacity; ++i) ASSERT_EQ(f.pds.records.slots[i], nullptr) << i;
  EXPECT_EQ(bytesOf(taken) + bytesOf(&copy), ebcdicText("REC 3") + ebcdicText("REC 4"));
  delete taken;

  DskVolume none;
  errno = 0;
  EXPECT_EQ(Bpam(none).readMember("FIRST"), Bpam::kReadNoMember);  // no directory at all
  EXPECT_EQ(errno, ENOENT);
  Pds undefined({{"LOAD", {Bytes(1000, 0x12), Bytes(77, 0x34)}, {}}}, 6144, 2, 0);  // LRECL 0
  errno = 0;
  EXPECT_EQ(undefined.pds.readMember("LOAD"), Bpam::kReadUndefinedLength);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(undefined.pds.replaceMember("LOAD"), Bpam::kReadUndefinedLength);
  EXPECT_EQ(undefined.pds.readMember("OTHER"), Bpam::kReadNoMember);
}

TEST(PdsTest, ReplaceMemberRoundTrip) {
  Bytes b3120 = textBlocks("A", 39, 80, 39)[0], b80 = textBlocks("S", 1, 80, 1)[0];
  Pds f({{"BEFORE", textBlocks("B", 4, 80, 40), {}},
         {"MEMBER1", {b3120, b80, b3120, b3120}, {}},  // 118 records over 3 tracks
         {"AFTER", textBlocks("Z", 3, 80, 40), {}}});
  std::vector<std::string> texts, want;  // want: the raw EBCDIC bytes written
  for (int i = 0; i < 118; ++i) {
    char t[24];
    std::snprintf(t, sizeof t, "NEWREC%04d", i);
    texts.push_back(i == 0 ? std::string(80, '\xC1') : t);  // the first one full length
    want.push_back(i == 6 ? std::string(80, '\x40') : texts[i] + std::string(80 - texts[i].size(), '\x40'));
  }
  for (int i = 0; i < 117; ++i) ASSERT_EQ(f.pds.setRecord(i, texts[i].data(), static_cast<int>(texts[i].size())), 0);
  Bytes before = fileBytes(f.vol.path());
  errno = 4321;
  EXPECT_EQ(f.pds.replaceMember("MEMBER1"), Bpam::kReplaceCountMismatch);  // 117 for 118
  EXPECT_EQ(errno, 4321);
  EXPECT_EQ(fileBytes(f.vol.path()), before);
  ASSERT_EQ(f.pds.setRecord(117, texts[117].data(), 10), 0);
  delete f.pds.newRecords[6];
  f.pds.newRecords.set(6, nullptr);  // a hole: a record of blanks
  ASSERT_EQ(f.pds.replaceMember("member1"), Bpam::kReplaceOk);
  EXPECT_EQ(bytesOf(f.pds.records[0]), ebcdicText("A 0"));  // the content from before
  ASSERT_EQ(f.dsk.close(), 0);
  f.vol.reopen();

  // From the file: the blocks keep their lengths and the EOF record stays.
  std::vector<Bytes> blocks;
  for (size_t t = f.at.memberTT[1]; blocks.empty() || !blocks.back().empty(); ++t) {
    for (const Record& r : f.vol.readRecords(f.at.tracks[t].cyl, f.at.tracks[t].head)) {
      if ((t > f.at.memberTT[1] || r.rec >= f.at.memberR[1]) && (blocks.empty() || !blocks.back().empty())) {
        blocks.push_back(r.data);
      }
    }
  }
  std::vector<size_t> sizes;
  std::string records;
  for (const Bytes& b : blocks) sizes.push_back(b.size()), records.append(b.begin(), b.end());
  EXPECT_EQ(sizes, std::vector<size_t>({3120, 80, 3120, 3120, 0}));
  for (int i = 0; i < 118; ++i) ASSERT_EQ(records.substr(80 * i, 80), want[i]) << i;
  DskVolume dsk;
  ASSERT_EQ(dsk.open(&f.vol.file()), 0);
  Bpam pds(dsk);
  ASSERT_EQ(pds.openDataset("TEST.PDS"), 0);
  const std::string last[] = {ebcdicText("B 3"), ebcdicText("Z 2"), want[117]};
  for (int i : {0, 1, 2}) {
    ASSERT_EQ(pds.readMember(i ? i == 1 ? "AFTER" : "MEMBER1" : "BEFORE"), 0) << i;
    ASSERT_EQ(pds.records.count, i ? i == 1 ? 3 : 118 : 4) << i;
    EXPECT_EQ(bytesOf(pds.records[pds.records.count - 1]), last[i]) << i;
  }
}

TEST(PdsTest, ReplaceMemberFailuresAndAMissingFirstBlock) {
  // A block ending exactly where the record area ends (slot - 24): the track
  // holds it but writeD refuses to rewrite it; nothing changes.
  TestVolume vol;
  const int length = static_cast<int>(vol.file().trackSlotSize) - 24 - 5 - 16 - 8;
  const uint16_t l16 = static_cast<uint16_t>(length);
  vol.writeVtoc({format1Dscb(pdsDataSet("TEST.PDS", l16, l16, {{1, 0, 1, 14}}))});
  vol.setRecords(1, 0, {directoryRecord(1, {}, directoryBlock({dirEntry("EDGE", 1, 1), dirEntry("GHOST", 2, 9),
                                                                endEntry()})), eofRecord(2)});
  vol.setRecords(1, 1, {dataRecord(1, Bytes(static_cast<size_t>(length), 0xC1))});
  vol.setRecords(1, 2, {eofRecord(1)});
  Bytes before = fileBytes(vol.path());
  {
    DskVolume dsk;
    ASSERT_EQ(dsk.open(&vol.file()), 0);
    Bpam pds(dsk);
    ASSERT_EQ(pds.openDataset("TEST.PDS"), 0);
    ASSERT_EQ(pds.setRecord(0, "X", 1), 0);
    errno = 0;
    EXPECT_EQ(pds.replaceMember("EDGE"), Bpam::kReplaceBlockWrite);
    EXPECT_EQ(errno, EIO);
    ASSERT_EQ(pds.readMember("GHOST"), 0);  // 1/2 has no record 9: an empty member
    EXPECT_EQ(pds.records.count, 0);
    delete pds.newRecords[0];
    pds.newRecords.clear();
    EXPECT_EQ(pds.replaceMember("GHOST"), Bpam::kReplaceOk);
  }
  vol.close();
  EXPECT_EQ(fileBytes(vol.path()), before);

  // A read-only volume: the changed track cannot be written back.
  Pds f({{"M", textBlocks("OLD", 3, 80, 3), {}}});
  f.dsk.close();
  f.vol.reopen(true);
  ASSERT_EQ(f.dsk.open(&f.vol.file()), 0);
  for (const char* r : {"A", "B", "C"}) ASSERT_EQ(f.pds.setRecord(0, r, 1), 0);
  errno = 0;
  EXPECT_EQ(f.pds.replaceMember("M"), Bpam::kReplaceTrackWrite);
  EXPECT_EQ(errno, EIO);
  f.vol.file().trackDirty = 0;  // so that closing does not try the write-back again
}

}  // namespace
}  // namespace ckdvol_test
