// Opening a partitioned data set: directory entries from hand-written bytes,
// the directory walk, open failures, extents and relative-track addressing.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "pds/basic_partitioned_access_method.h"
#include "support/pds_builder.h"
#include "support/volume_builder.h"
#include "volume/dsk_volume.h"

namespace ckdvol_test {
namespace {

using Bpam = BasicPartionedAccessMethod;

// ---- directory entries from bytes, no volume ----------------------------------

TEST(PdsDirEntTest, DecodesEveryFieldOfAHandWrittenEntry) {
  const unsigned char entry[] = {0xC1, 0xC2, 0x40, 0x40,
                                 0x40, 0x40, 0x40, 0x40,  // name "AB" + 6 blanks
                                 0x01, 0x02,              // TT 0x0102
                                 0x07,                    // R 7
                                 0x02,                    // indicator: 2 halfwords
                                 0xDE, 0xAD, 0xBE, 0xEF,  // user data
                                 0x99, 0x99};             // the next entry's bytes
  Bpam::DirEnt e(entry);
  EXPECT_STREQ("AB", e.name);
  for (int i = 2; i < 12; ++i) EXPECT_EQ('\0', e.name[i]) << i;
  EXPECT_EQ(0x0102, e.track);
  EXPECT_EQ(7, e.record);
  EXPECT_EQ(0x02, e.indicators);
  EXPECT_EQ(0xDE, e.userData[0]);
  EXPECT_EQ(0xEF, e.userData[3]);
  for (int i = 4; i < 62; ++i) EXPECT_EQ(0, e.userData[i]) << i;  // not the 99s
  EXPECT_EQ(16, Bpam::DirEnt::entryLength(entry));
}

TEST(PdsDirEntTest, NamesKeepInnerBlanksAndLoseTrailingOnes) {
  const unsigned char inner[12] = {0xC1, 0x40, 0xC2, 0x40, 0x40, 0x40, 0x40, 0x40};  // A B
  EXPECT_STREQ("A B", Bpam::DirEnt(inner).name);
  const unsigned char blank[12] = {0x40, 0x40, 0x40, 0x40, 0x40, 0x40, 0x40, 0x40};
  EXPECT_STREQ("", Bpam::DirEnt(blank).name);
  const unsigned char full[12] = {0xD4, 0xC5, 0xD4, 0xC2, 0xC5, 0xD9, 0xF1, 0xF2};  // MEMBER12
  EXPECT_STREQ("MEMBER12", Bpam::DirEnt(full).name);
  const unsigned char nul[12] = {0xC1, 0x00, 0x40, 0x00};  // A, NUL, blank, NULs
  EXPECT_STREQ("A", Bpam::DirEnt(nul).name);
}

TEST(PdsDirEntTest, IndicatorTopBitsDoNotCountTowardsTheLength) {
  unsigned char entry[74] = {0xC1, 0x40, 0x40, 0x40, 0x40, 0x40,
                             0x40, 0x40, 0,    1,    2,    0x8F};  // top bit set, 15 halfwords
  for (int i = 0; i < 62; ++i) entry[12 + i] = static_cast<unsigned char>(i + 1);
  Bpam::DirEnt e(entry);
  EXPECT_EQ(0x8F, e.indicators);
  EXPECT_EQ(42, Bpam::DirEnt::entryLength(entry));
  EXPECT_EQ(1, e.userData[0]);
  EXPECT_EQ(30, e.userData[29]);
  EXPECT_EQ(0, e.userData[30]);  // byte 42 of the entry is not user data

  entry[11] = 0x1F;  // 31 halfwords: the longest entry
  Bpam::DirEnt longest(entry);
  EXPECT_EQ(74, Bpam::DirEnt::entryLength(entry));
  EXPECT_EQ(62, longest.userData[61]);
}

// ---- fixture: a 3-cylinder D600 volume with data sets -------------------------

struct Opened {
  DskVolume dsk;
  Bpam pds{dsk};
};

// Opens the VTOC of `vol` and the data set `name`; returns openDataset's result.
int openOn(TestVolume& vol, Opened& o, const char* name) {
  if (o.dsk.open(&vol.file()) != 0) return 999;
  return o.pds.openDataset(name);
}

TEST(PdsOpenDatasetTest, ConstructorLeavesEverythingUnset) {
  DskVolume dsk;
  Bpam pds(dsk);
  EXPECT_EQ(&dsk, &pds.volume);
  EXPECT_EQ(0, pds.datasetName.length());
  EXPECT_EQ(-1, pds.blockSize);
  EXPECT_EQ(-1, pds.recordLength);
  EXPECT_EQ(0xFFFF, pds.recordFormat);
  for (char c : pds.memberName) EXPECT_EQ('\0', c);
  for (auto* list : {&pds.records, &pds.newRecords}) {
    EXPECT_EQ(32, list->growBy);
    EXPECT_EQ(0, list->count);
    EXPECT_EQ(0, list->ownsElements);
  }
  EXPECT_EQ(0, pds.extents.count);
  EXPECT_EQ(0, pds.directory.ownsElements);
  Bpam::Extent e;
  EXPECT_EQ(-1, e.lowCyl);
  EXPECT_EQ(-1, e.tracks);
}

TEST(PdsOpenDatasetTest, NamesThatFindNoPartitionedDataSetGiveEnoent) {
  TestVolume vol;
  DataSetLayout seq = pdsDataSet("TEST.SEQ", 80, 3120, {{1, 0, 1, 0}});
  seq.dsorg = 0x4000;  // PS
  DataSetLayout odd = pdsDataSet("TEST.ODD", 80, 3120, {{1, 1, 1, 1}});
  odd.dsorg = 0x0201;  // PO plus a bit of the second byte
  DataSetLayout pds = pdsDataSet("TEST.PDS", 80, 3120, {{1, 2, 1, 2}});
  vol.writeVtoc({format1Dscb(seq), format1Dscb(odd), format1Dscb(pds)});
  Opened o;
  ASSERT_EQ(0, o.dsk.open(&vol.file()));

  struct Case {
    const char* name;
    int result;
  } cases[] = {{nullptr, Bpam::kOpenNoName},
               {"", Bpam::kOpenNoName},
               {"TEST.NONE", Bpam::kOpenNotFound},
               {"test.pds", Bpam::kOpenNotFound},
               {"TEST.SEQ", Bpam::kOpenNotPartitioned},
               {"TEST.ODD", Bpam::kOpenNotPartitioned}};
  for (const Case& c : cases) {
    errno = 0;
    EXPECT_EQ(c.result, o.pds.openDataset(c.name)) << (c.name ? c.name : "(null)");
    EXPECT_EQ(ENOENT, errno) << (c.name ? c.name : "(null)");
  }
  EXPECT_EQ(-2, Bpam::kOpenNoName);
  EXPECT_EQ(-1, Bpam::kOpenNotFound);
  EXPECT_EQ(-3, Bpam::kOpenNotPartitioned);
  EXPECT_EQ(0, o.pds.extents.count);  // nothing collected by the failures
  EXPECT_EQ(-1, o.pds.blockSize);
}

TEST(PdsOpenDatasetTest, Dsorg0200And0300OpenAndTakeTheAttributes) {
  for (uint16_t dsorg : {uint16_t{0x0200}, uint16_t{0x0300}}) {
    TestVolume vol;
    DataSetLayout ds = pdsDataSet("SYS1.MACLIB", 80, 6160, {{1, 0, 1, 14}});
    ds.dsorg = dsorg;
    vol.writeVtoc({format1Dscb(ds)});
    writePds(vol, ds.extents, {{"ALPHA", textBlocks("A", 3, 80, 77), {}}});
    Opened o;
    ASSERT_EQ(Bpam::kOpenOk, openOn(vol, o, "SYS1.MACLIB")) << std::hex << dsorg;
    EXPECT_STREQ("SYS1.MACLIB", o.pds.datasetName.text());
    EXPECT_EQ(6160, o.pds.blockSize);
    EXPECT_EQ(80, o.pds.recordLength);
    EXPECT_EQ(0x90, o.pds.recordFormat);
    ASSERT_EQ(1, o.pds.directory.count);
    EXPECT_STREQ("ALPHA", o.pds.directory[0]->name);
  }
}

TEST(PdsOpenDatasetTest, FailuresAfterTheAttributesGiveEio) {
  TestVolume vol;
  DataSetLayout none = pdsDataSet("NO.EXTENT", 80, 3120, {});                  // NbrExts 0
  DataSetLayout far = pdsDataSet("FAR.AWAY", 80, 3120, {{50, 0, 50, 14}});     // beyond 3 cylinders
  DataSetLayout empty = pdsDataSet("EMPTY.TRACK", 80, 3120, {{2, 0, 2, 14}});  // no record 1
  vol.writeVtoc({format1Dscb(none), format1Dscb(far), format1Dscb(empty)});
  vol.setRecords(2, 0, {});  // only record zero (initialisation filled the track)
  struct Case {
    const char* name;
    int result;
  } cases[] = {{"NO.EXTENT", Bpam::kOpenNoExtent},
               {"FAR.AWAY", Bpam::kOpenUnreadable},
               {"EMPTY.TRACK", Bpam::kOpenNoFirstRecord}};
  for (const Case& c : cases) {
    Opened o;
    errno = 0;
    EXPECT_EQ(c.result, openOn(vol, o, c.name)) << c.name;
    EXPECT_EQ(EIO, errno) << c.name;
    EXPECT_EQ(3120, o.pds.blockSize) << c.name;  // filled before the failure
    EXPECT_EQ(0, o.pds.directory.count) << c.name;
  }
  EXPECT_EQ(-5, Bpam::kOpenNoExtent);
  EXPECT_EQ(-6, Bpam::kOpenUnreadable);
  EXPECT_EQ(-7, Bpam::kOpenNoFirstRecord);
}

// ---- the directory walk --------------------------------------------------------

TEST(PdsDirectoryWalkTest, DirectoryOverSeveralBlocksAndTracksWithUserDataOfEveryLength) {
  TestVolume vol;
  DataSetLayout ds = pdsDataSet("TEST.PDS", 80, 800, {{1, 0, 2, 14}});
  vol.writeVtoc({format1Dscb(ds)});
  // Member i has i halfwords of user data (0 .. 31), so every entry length
  // from 12 to 74 bytes occurs. The indicator's top three bits, set on
  // some, are kept but do not count.
  std::vector<PdsMember> members;
  for (int i = 0; i < 32; ++i) {
    PdsMember m;
    m.name = "M" + std::to_string(100 + i);
    for (int k = 0; k < 2 * i; ++k) m.userData.push_back(static_cast<unsigned char>(i * 8 + k));
    if (i % 4 != 0) m.blocks = textBlocks(m.name, 1, 80, 10);
    m.indicatorFlags = i % 3 == 0 ? 0x80 : (i % 3 == 1 ? 0x60 : 0x00);
    members.push_back(m);
  }
  PdsLayoutOptions opts;
  opts.directoryBlocks = 9;  // 32 entries of 43 bytes on average: 6 blocks, 3 unused
  opts.recordsPerTrack = 4;  // so the directory spans three tracks
  PdsPlacement at = writePds(vol, ds.extents, members, opts);
  Opened o;
  ASSERT_EQ(0, openOn(vol, o, "TEST.PDS"));
  ASSERT_EQ(32, o.pds.directory.count);
  for (int i = 0; i < 32; ++i) {
    const Bpam::DirEnt* e = o.pds.directory[i];
    ASSERT_NE(nullptr, e);
    EXPECT_EQ(members[i].name, e->name);
    EXPECT_EQ(at.memberTT[i], e->track) << i;
    EXPECT_EQ(at.memberR[i], e->record) << i;
    EXPECT_EQ(members[i].indicatorFlags | i, e->indicators) << i;
    for (int k = 0; k < 62; ++k) {
      int want = k < 2 * i ? (i * 8 + k) & 0xFF : 0;
      ASSERT_EQ(want, e->userData[k]) << "entry " << i << " byte " << k;
    }
  }
  EXPECT_GT(at.directoryEof.head, 1);  // the directory did span tracks
}

TEST(PdsDirectoryWalkTest, EntryWithIndicator8FIs42BytesLong) {
  TestVolume vol;
  DataSetLayout ds = pdsDataSet("TEST.PDS", 80, 3120, {{1, 0, 1, 14}});
  vol.writeVtoc({format1Dscb(ds)});
  Bytes block = {0x00, 0x44,  // bytes used: 2 + 42 + 12 + 12 = 68
                 0xC1, 0xC2, 0x40, 0x40, 0x40, 0x40, 0x40, 0x40,  // "AB"
                 0x00, 0x03, 0x05, 0x8F};                         // TT 3, R 5, indicator 8F
  for (int i = 1; i <= 30; ++i) block.push_back(static_cast<unsigned char>(i));  // user data
  Bytes second = {0xC3, 0x40, 0xC4, 0x40, 0x40, 0x40, 0x40, 0x40,                // "C D"
                  0x00, 0x04, 0x01, 0x00};  // TT 4, R 1, no user data
  block.insert(block.end(), second.begin(), second.end());
  Bytes end = endEntry();
  block.insert(block.end(), end.begin(), end.end());
  block.resize(256, 0);
  vol.setRecords(1, 0, {directoryRecord(1, Bytes(8, 0xFF), block), eofRecord(2)});
  Opened o;
  ASSERT_EQ(0, openOn(vol, o, "TEST.PDS"));
  ASSERT_EQ(2, o.pds.directory.count);
  EXPECT_STREQ("AB", o.pds.directory[0]->name);
  EXPECT_EQ(0x8F, o.pds.directory[0]->indicators);
  EXPECT_EQ(30, o.pds.directory[0]->userData[29]);
  EXPECT_STREQ("C D", o.pds.directory[1]->name);
  EXPECT_EQ(4, o.pds.directory[1]->track);
  EXPECT_EQ(1, o.pds.directory[1]->record);
}

TEST(PdsDirectoryWalkTest, BlocksAfterTheEndEntryAreReadUntilANon256Record) {
  TestVolume vol;
  DataSetLayout ds = pdsDataSet("TEST.PDS", 80, 3120, {{1, 0, 1, 14}});
  vol.writeVtoc({format1Dscb(ds)});
  Bytes first =
      directoryBlock({dirEntry("A", 1, 1), dirEntry("B", 1, 2), dirEntry("C", 1, 3), endEntry()});
  std::vector<Record> track = {directoryRecord(1, Bytes(8, 0xFF), first)};
  for (uint8_t r = 2; r <= 6; ++r) track.push_back(directoryRecord(r, {}, directoryBlock({}, 2)));
  track.push_back(eofRecord(7));
  vol.setRecords(1, 0, track);
  {
    Opened o;
    ASSERT_EQ(0, openOn(vol, o, "TEST.PDS"));
    ASSERT_EQ(3, o.pds.directory.count);  // the five empty blocks add nothing
    EXPECT_STREQ("C", o.pds.directory[2]->name);
  }
  // Not well formed: a block behind the end-entry block still holds an
  // entry. The walk reads on and collects it, and it stops at the first
  // record that is not 256 bytes long (here 255), not at an EOF record.
  track[3] = directoryRecord(4, {}, directoryBlock({dirEntry("LATE", 2, 1)}));
  Bytes shortBlock = directoryBlock({dirEntry("NEVER", 2, 2)});
  shortBlock.resize(255);
  track[5] = directoryRecord(6, {}, shortBlock);
  vol.setRecords(1, 0, track);
  track = {directoryRecord(1, {}, directoryBlock({dirEntry("NEXT", 3, 1)})), eofRecord(2)};
  vol.setRecords(1, 1, track);
  Opened o;
  ASSERT_EQ(0, openOn(vol, o, "TEST.PDS"));
  ASSERT_EQ(4, o.pds.directory.count);
  EXPECT_STREQ("LATE", o.pds.directory[3]->name);
}

TEST(PdsDirectoryWalkTest, HostileBlocksNeverMakeTheWalkLeaveTheBlock) {
  TestVolume vol;
  DataSetLayout ds = pdsDataSet("TEST.PDS", 80, 3120, {{1, 0, 1, 14}});
  vol.writeVtoc({format1Dscb(ds)});
  // Block 1: bytes used FFFF, 21 entries of 12 bytes fill it up to byte 254;
  // the 2 bytes left cannot hold a name.
  std::vector<Bytes> twelve;
  for (int i = 0; i < 21; ++i) twelve.push_back(dirEntry("E" + std::to_string(i), 1, 1));
  Bytes huge = directoryBlock(twelve, 0xFFFF);
  huge[254] = 0xC1;
  huge[255] = 0xC1;
  // Block 2: bytes used 256; three 74-byte entries reach byte 224; a fourth
  // entry claiming 31 halfwords of user data would run to byte 298.
  Bytes big(62, 0x5A);
  Bytes runs = directoryBlock(
      {dirEntry("L1", 1, 1, big), dirEntry("L2", 1, 1, big), dirEntry("L3", 1, 1, big)}, 256);
  Bytes over = dirEntry("OVER", 1, 1);
  over[11] = 0x1F;
  std::copy(over.begin(), over.end(), runs.begin() + 224);
  // Block 3: bytes used 0 and block 4: bytes used 1, each over a valid
  // entry: neither yields an entry. Block 5: the fixed part of an entry
  // that starts at byte 246 would end at 258.
  Bytes zero = directoryBlock({dirEntry("Z", 1, 1)}, 0);
  Bytes one = directoryBlock({dirEntry("O", 1, 1)}, 1);
  std::vector<Bytes> fill;
  for (int i = 0; i < 3; ++i) fill.push_back(dirEntry("F" + std::to_string(i), 1, 1, big));
  fill.push_back(dirEntry("F3", 1, 1, Bytes(10, 0x11)));  // 2 + 3 * 74 + 22 = 246
  Bytes tail = directoryBlock(fill, 256);
  Bytes name8 = ebcdicPadded("TAIL", 8);
  std::copy(name8.begin(), name8.end(), tail.begin() + 246);  // name fits, TT/R/indicator do not
  vol.setRecords(
      1, 0,
      {directoryRecord(1, {}, huge), directoryRecord(2, {}, runs), directoryRecord(3, {}, zero),
       directoryRecord(4, {}, one), directoryRecord(5, {}, tail), eofRecord(6)});
  Opened o;
  ASSERT_EQ(0, openOn(vol, o, "TEST.PDS"));
  ASSERT_EQ(21 + 3 + 4, o.pds.directory.count);
  EXPECT_STREQ("E20", o.pds.directory[20]->name);
  EXPECT_STREQ("L3", o.pds.directory[23]->name);
  EXPECT_STREQ("F3", o.pds.directory[27]->name);
}

TEST(PdsDirectoryWalkTest, ASecondOpenAddsEverythingAgain) {
  TestVolume vol;
  DataSetLayout ds = pdsDataSet("TEST.PDS", 80, 3120, {{1, 0, 1, 4}, {2, 0, 2, 4}});
  vol.writeVtoc({format1Dscb(ds)});
  writePds(vol, ds.extents, {{"ONE", {}, {}}, {"TWO", {}, {}}});
  Opened o;
  ASSERT_EQ(0, openOn(vol, o, "TEST.PDS"));
  ASSERT_EQ(0, o.pds.openDataset("TEST.PDS"));
  EXPECT_EQ(4, o.pds.extents.count);
  EXPECT_EQ(4, o.pds.directory.count);
  EXPECT_STREQ("TWO", o.pds.directory[3]->name);
}

// ---- extents and relative tracks ---------------------------------------------

TEST(PdsExtentTest, ExtentsContinueInAFormat3DscbAndMembersThereAreRead) {
  TestVolume vol;
  std::vector<ExtentSpec> f1Extents = {{1, 0, 1, 1}, {1, 5, 1, 5}, {1, 8, 1, 9}};
  std::vector<ExtentSpec> f3Extents = {{2, 0, 2, 2}, {2, 10, 2, 14}};
  DataSetLayout ds = pdsDataSet("TEST.PDS", 80, 800, f1Extents);
  ds.nbrExts = 5;
  ds.next = Cchhr{0, 1, 3};  // the Format-3 DSCB follows the Format-1 DSCB
  ExtentSpec f3a = f3Extents[0], f3b = f3Extents[1];
  f3a.seq = 3;
  f3b.seq = 4;
  std::vector<Cchhr> where = vol.writeVtoc({format1Dscb(ds), format3Dscb({f3a, f3b})});
  ASSERT_EQ(3, where[1].rec);
  ASSERT_EQ(1, where[1].head);
  std::vector<ExtentSpec> all = f1Extents;
  all.insert(all.end(), f3Extents.begin(), f3Extents.end());
  PdsLayoutOptions opts;
  opts.recordsPerTrack = 1;
  // Tracks: 0-1 directory and its EOF, 2-5 ALPHA, 6-7 BETA, 8-9 GAMMA.
  PdsPlacement at = writePds(vol, all,
                             {{"ALPHA", textBlocks("A", 30, 80, 10), {}},
                              {"BETA", textBlocks("B", 10, 80, 10), {}},
                              {"GAMMA", textBlocks("G", 7, 80, 10), {}}},
                             opts);
  Opened o;
  ASSERT_EQ(0, openOn(vol, o, "TEST.PDS"));
  ASSERT_EQ(5, o.pds.extents.count);
  int lc, lh, hc, hh, lt, ht;
  ASSERT_TRUE(o.pds.getExtent(3, lc, lh, hc, hh, lt, ht));
  EXPECT_EQ(2, lc);
  EXPECT_EQ(0, lh);
  EXPECT_EQ(2, hc);
  EXPECT_EQ(2, hh);
  EXPECT_EQ(30, lt);
  EXPECT_EQ(32, ht);
  ASSERT_TRUE(o.pds.getExtent(4, lc, lh, hc, hh, lt, ht));
  EXPECT_EQ(40, lt);
  EXPECT_EQ(44, ht);
  EXPECT_EQ(5, o.pds.extents[4]->tracks);
  for (int bad : {-1, 5, 1000}) {
    EXPECT_FALSE(o.pds.getExtent(bad, lc, lh, hc, hh, lt, ht)) << bad;
    for (int v : {lc, lh, hc, hh, lt, ht}) EXPECT_EQ(-1, v) << bad;
  }

  struct Case {
    int track, cyl, head;
  } cases[] = {{0, 1, 0}, {1, 1, 1}, {2, 1, 5},  {3, 1, 8},
               {5, 2, 0}, {7, 2, 2}, {8, 2, 10}, {12, 2, 14}};
  for (const Case& c : cases) {
    int cyl = -9, head = -9;
    ASSERT_TRUE(o.pds.tt2cchh(c.track, cyl, head)) << c.track;
    EXPECT_EQ(c.cyl, cyl) << c.track;
    EXPECT_EQ(c.head, head) << c.track;
  }
  int cyl, head;
  EXPECT_FALSE(o.pds.tt2cchh(13, cyl, head));
  // A negative track is not refused: -1 is below the first extent's 2 tracks,
  // so head = -1 + 0, cylinder = 1 + (-1 / 15) = 1, head = -1 % 15 = -1.
  ASSERT_TRUE(o.pds.tt2cchh(-1, cyl, head));
  EXPECT_EQ(1, cyl);
  EXPECT_EQ(-1, head);

  EXPECT_EQ(8, at.memberTT[2]);
  ASSERT_EQ(0, o.pds.readMember("gamma"));
  ASSERT_EQ(7, o.pds.records.count);
  EXPECT_EQ(0, std::memcmp(ebcdicPadded("G 6", 80).data(), o.pds.records[6]->text(), 80));
}

TEST(PdsExtentTest, ExtentsTheDscbCannotSupplyAreStillAdded) {
  TestVolume vol;
  // NbrExts 5, one extent filled in, no Format-3 DSCB chained.
  DataSetLayout ds = pdsDataSet("TEST.PDS", 80, 800, {{1, 0, 1, 14}});
  ds.nbrExts = 5;
  vol.writeVtoc({format1Dscb(ds)});
  vol.setRecords(1, 0, {directoryRecord(1, {}, directoryBlock({endEntry()})), eofRecord(2)});
  Opened o;
  ASSERT_EQ(0, openOn(vol, o, "TEST.PDS"));
  ASSERT_EQ(5, o.pds.extents.count);
  EXPECT_EQ(15, o.pds.extents[0]->tracks);  // 1/0 .. 1/14
  // Extents 2 and 3 are the record's zero CCHH fields: 0/0 .. 0/0, 1 track.
  for (int i = 1; i < 3; ++i) {
    EXPECT_EQ(0, o.pds.extents[i]->lowCyl) << i;
    EXPECT_EQ(0, o.pds.extents[i]->highTrackIndex) << i;
    EXPECT_EQ(1, o.pds.extents[i]->tracks) << i;
  }
  // Extents 4 and 5 would lie in a Format-3 DSCB: all -1, 0 tracks.
  for (int i = 3; i < 5; ++i) {
    const Bpam::Extent* e = o.pds.extents[i];
    ASSERT_NE(nullptr, e) << i;
    for (int v : {e->lowCyl, e->lowHead, e->highCyl, e->highHead, e->lowTrackIndex,
                  e->highTrackIndex})
      EXPECT_EQ(-1, v) << i;
    EXPECT_EQ(0, e->tracks) << i;
  }
  int cyl, head;
  ASSERT_TRUE(o.pds.tt2cchh(16, cyl, head));  // the second one-track extent
  EXPECT_EQ(0, cyl);
  EXPECT_EQ(0, head);
  EXPECT_FALSE(o.pds.tt2cchh(17, cyl, head));  // the empty extents hold no track
}

// Extents pushed by hand: tt2cchh needs only them and the volume's heads.
void addExtent(Bpam& pds, int lowCyl, int lowHead, int tracks) {
  Bpam::Extent* e = new Bpam::Extent();
  e->lowCyl = lowCyl;
  e->lowHead = lowHead;
  e->tracks = tracks;
  pds.extents.add(e);
}

TEST(PdsExtentTest, RelativeTracksOnFifteenHeads) {
  TestVolume vol;  // D600: 15 heads
  vol.writeVtoc({});
  Opened o;
  ASSERT_EQ(0, o.dsk.open(&vol.file()));
  addExtent(o.pds, 5, 0, 10);   // 5/0 .. 5/9
  addExtent(o.pds, 20, 3, 30);  // 20/3 .. 22/2
  struct Case {
    int track, cyl, head;
  } cases[] = {{0, 5, 0},   {9, 5, 9},   {10, 20, 3}, {21, 20, 14},
               {22, 21, 0}, {25, 21, 3}, {39, 22, 2}};
  for (const Case& c : cases) {
    int cyl = -9, head = -9;
    ASSERT_TRUE(o.pds.tt2cchh(c.track, cyl, head)) << c.track;
    EXPECT_EQ(c.cyl, cyl) << c.track;
    EXPECT_EQ(c.head, head) << c.track;
  }
  int cyl, head;
  EXPECT_FALSE(o.pds.tt2cchh(40, cyl, head));
  // Negative tracks count back from the first extent (5/0): -16 gives
  // head -16, cylinder 5 + (-16 / 15) = 4, head -16 % 15 = -1.
  ASSERT_TRUE(o.pds.tt2cchh(-16, cyl, head));
  EXPECT_EQ(4, cyl);
  EXPECT_EQ(-1, head);
  o.pds.extents.add(nullptr);  // an empty slot is passed over
  addExtent(o.pds, 1, 14, 2);
  ASSERT_TRUE(o.pds.tt2cchh(41, cyl, head));
  EXPECT_EQ(2, cyl);
  EXPECT_EQ(0, head);
}

TEST(PdsExtentTest, RelativeTracksUseTheRealHeadsOfANineteenHeadDevice) {
  TestVolume vol(EmulatedCKDfile::D300, 4);
  // The DSCB counts 15 tracks per cylinder: 1/5 .. 2/2 is 13 tracks by its
  // count (the device really has 16 there), 3/0 .. 3/18 is 19.
  DataSetLayout ds = pdsDataSet("TEST.PDS", 80, 800, {{1, 5, 2, 2}, {3, 0, 3, 18}});
  vol.writeVtoc({format1Dscb(ds)});
  vol.setRecords(1, 5, {directoryRecord(1, {}, directoryBlock({endEntry()})), eofRecord(2)});
  Opened o;
  ASSERT_EQ(0, openOn(vol, o, "TEST.PDS"));
  EXPECT_EQ(19, vol.file().tracksPerCylinder);
  ASSERT_EQ(2, o.pds.extents.count);
  EXPECT_EQ(20, o.pds.extents[0]->lowTrackIndex);
  EXPECT_EQ(32, o.pds.extents[0]->highTrackIndex);
  EXPECT_EQ(13, o.pds.extents[0]->tracks);
  struct Case {
    int track, cyl, head;
  } cases[] = {{0, 1, 5},
               {12, 1, 17},  // 15 heads would give 2/2
               {13, 3, 0},
               {31, 3, 18}};  // 15 heads would give 4/3
  for (const Case& c : cases) {
    int cyl = -9, head = -9;
    ASSERT_TRUE(o.pds.tt2cchh(c.track, cyl, head)) << c.track;
    EXPECT_EQ(c.cyl, cyl) << c.track;
    EXPECT_EQ(c.head, head) << c.track;
  }
  int cyl, head;
  EXPECT_FALSE(o.pds.tt2cchh(32, cyl, head));
}

TEST(PdsExtentTest, NoVolumeFileMeansNoTrack) {
  DskVolume closed;
  Bpam pds(closed);
  addExtent(pds, 1, 0, 15);
  int cyl, head;
  EXPECT_FALSE(pds.tt2cchh(0, cyl, head));
}

}  // namespace
}  // namespace ckdvol_test
