// Reading members into records, collecting replacement records, and
// rewriting members in place (checked by rereading the volume file).
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

#include "pds/basic_partitioned_access_method.h"
#include "support/pds_builder.h"
#include "support/volume_builder.h"
#include "volume/dsk_volume.h"

namespace ckdvol_test {
namespace {

using Bpam = BasicPartionedAccessMethod;

std::string recordBytes(const RexxString* r) {
  return r == nullptr ? std::string("(null)")
                      : std::string(r->text(), static_cast<size_t>(r->length()));
}
std::string ebcdicRecord(const std::string& text, int lrecl) {
  Bytes b = ebcdicPadded(text, static_cast<size_t>(lrecl));
  return std::string(b.begin(), b.end());
}

// A D600 volume with TEST.PDS (LRECL 80) on cylinders 1 and 2, laid out by
// writePds with at most `perTrack` records a track, then opened.
struct PdsFixture {
  TestVolume vol;
  DataSetLayout ds;
  PdsPlacement at;
  DskVolume dsk;
  Bpam pds{dsk};

  PdsFixture(const std::vector<PdsMember>& members, uint16_t blksize = 3200, int perTrack = 2,
             uint16_t lrecl = 80) {
    ds = pdsDataSet("TEST.PDS", lrecl, blksize, {{1, 0, 2, 14}});
    vol.writeVtoc({format1Dscb(ds)});
    PdsLayoutOptions opts;
    opts.recordsPerTrack = perTrack;
    at = writePds(vol, ds.extents, members, opts);
    if (dsk.open(&vol.file()) != 0) throw std::runtime_error("volume open");
    if (pds.openDataset("TEST.PDS") != 0) throw std::runtime_error("data set open");
  }
};

TEST(PdsReadMemberTest, ThreeBlocksOf3200GiveTheRecordsInOrderAcrossTracks) {
  PdsFixture f(
      {{"FIRST", textBlocks("F", 5, 80, 40), {}}, {"MEMBER1", textBlocks("REC", 120, 80, 40), {}}});
  errno = 0;
  ASSERT_EQ(Bpam::kReadOk, f.pds.readMember("member1"));
  EXPECT_STREQ("MEMBER1", f.pds.memberName);
  for (size_t i = 7; i < sizeof(f.pds.memberName); ++i) EXPECT_EQ('\0', f.pds.memberName[i]);
  EXPECT_EQ(f.at.memberTT[1], f.pds.memberTrack);
  EXPECT_EQ(f.at.memberR[1], f.pds.memberRecord);
  ASSERT_EQ(120, f.pds.records.count);
  for (int i = 0; i < 120; ++i) {
    ASSERT_EQ(80, f.pds.records[i]->length()) << i;
    EXPECT_EQ(ebcdicRecord(textRecord("REC", i), 80), recordBytes(f.pds.records[i])) << i;
  }
  // Reading another member starts afresh (reusing the strings). A record
  // taken out of the list and a copy of one stay as they were.
  RexxString* taken = f.pds.records[3];
  f.pds.records.set(3, nullptr);
  RexxString copy(*f.pds.records[4]);
  ASSERT_EQ(Bpam::kReadOk, f.pds.readMember("FIRST"));
  ASSERT_EQ(5, f.pds.records.count);
  EXPECT_STREQ("FIRST", f.pds.memberName);
  for (int i = 0; i < 5; ++i)
    EXPECT_EQ(ebcdicRecord(textRecord("F", i), 80), recordBytes(f.pds.records[i]));
  for (int i = 5; i < f.pds.records.capacity; ++i) ASSERT_EQ(nullptr, f.pds.records.slots[i]) << i;
  EXPECT_EQ(ebcdicRecord("REC 3", 80), recordBytes(taken));
  EXPECT_EQ(ebcdicRecord("REC 4", 80), recordBytes(&copy));
  delete taken;
  ASSERT_EQ(Bpam::kReadOk, f.pds.readMember("MEMBER1"));
  ASSERT_EQ(120, f.pds.records.count);
  EXPECT_EQ(ebcdicRecord("REC 119", 80), recordBytes(f.pds.records[119]));
}

TEST(PdsReadMemberTest, MissingMembersGiveEnoentAndNoRecords) {
  PdsFixture f({{"ONE", textBlocks("O", 3, 80, 40), {}}});
  ASSERT_EQ(0, f.pds.readMember("ONE"));
  errno = 0;
  EXPECT_EQ(Bpam::kReadNoMember, f.pds.readMember("TWO"));
  EXPECT_EQ(ENOENT, errno);
  EXPECT_EQ(0, f.pds.records.count);
  EXPECT_STREQ("", f.pds.memberName);
  EXPECT_EQ(Bpam::kReadNoMember, f.pds.readMember("ONE "));  // compared exactly
  EXPECT_EQ(-1, Bpam::kReadNoMember);

  DskVolume dsk;
  Bpam empty(dsk);  // no directory at all
  errno = 0;
  EXPECT_EQ(Bpam::kReadNoMember, empty.readMember("ONE"));
  EXPECT_EQ(ENOENT, errno);
}

TEST(PdsReadMemberTest, BlocksThatAreNotWholeRecordsOrTooLongEndTheMember) {
  Bytes b3120 = textBlocks("A", 39, 80, 39)[0];
  Bytes b3130 = b3120;
  b3130.resize(3130, 0x40);
  Bytes b80 = textBlocks("S", 1, 80, 1)[0];
  Bytes b3280 = textBlocks("L", 41, 80, 41)[0];  // above BLKSIZE 3200
  PdsFixture f({{"FULL", {b3120, b3130, b3120}, {}},
                {"SHORT", {b3120, b80, b3120}, {}},
                {"LONG", {b3120, b3280, b3120}, {}}});
  ASSERT_EQ(0, f.pds.readMember("FULL"));
  EXPECT_EQ(39, f.pds.records.count);
  ASSERT_EQ(0, f.pds.readMember("SHORT"));
  EXPECT_EQ(39 + 1 + 39, f.pds.records.count);
  EXPECT_EQ(ebcdicRecord("S 0", 80), recordBytes(f.pds.records[39]));
  ASSERT_EQ(0, f.pds.readMember("LONG"));
  EXPECT_EQ(39, f.pds.records.count);
}

TEST(PdsReadMemberTest, EntryPointingAtAMissingRecordReadsEmpty) {
  TestVolume vol;
  DataSetLayout ds = pdsDataSet("TEST.PDS", 80, 3200, {{1, 0, 1, 14}});
  vol.writeVtoc({format1Dscb(ds)});
  // GHOST says TT 1 R 9; track 1/1 holds records 1 and 2 only.
  vol.setRecords(1, 0,
                 {directoryRecord(1, {}, directoryBlock({dirEntry("GHOST", 1, 9), endEntry()})),
                  eofRecord(2)});
  vol.setRecords(1, 1, {dataRecord(1, textBlocks("X", 2, 80, 2)[0]), eofRecord(2)});
  Bytes before = fileBytes(vol.path());
  DskVolume dsk;
  ASSERT_EQ(0, dsk.open(&vol.file()));
  Bpam pds(dsk);
  ASSERT_EQ(0, pds.openDataset("TEST.PDS"));
  ASSERT_EQ(Bpam::kReadOk, pds.readMember("GHOST"));
  EXPECT_EQ(0, pds.records.count);
  EXPECT_STREQ("GHOST", pds.memberName);
  EXPECT_EQ(Bpam::kReplaceOk, pds.replaceMember("GHOST"));
  dsk.close();
  vol.close();
  EXPECT_TRUE(before == fileBytes(vol.path()));
}

TEST(PdsReadMemberTest, TracksOutsideTheExtentsOrTheVolumeGiveEio) {
  TestVolume vol;
  // Extent 2 lies beyond the volume's 3 cylinders.
  DataSetLayout ds = pdsDataSet("TEST.PDS", 80, 3200, {{1, 0, 1, 14}, {50, 0, 50, 14}});
  vol.writeVtoc({format1Dscb(ds)});
  vol.setRecords(1, 0,
                 {directoryRecord(1, {},
                                  directoryBlock({dirEntry("BEYOND", 30, 1),
                                                  dirEntry("OFFVOL", 15, 1), endEntry()})),
                  eofRecord(2)});
  DskVolume dsk;
  ASSERT_EQ(0, dsk.open(&vol.file()));
  Bpam pds(dsk);
  ASSERT_EQ(0, pds.openDataset("TEST.PDS"));
  errno = 0;
  EXPECT_EQ(Bpam::kReadOutsideExtents, pds.readMember("BEYOND"));
  EXPECT_EQ(EIO, errno);
  EXPECT_EQ(30, pds.memberTrack);
  errno = 0;
  EXPECT_EQ(Bpam::kReadUnreadable, pds.readMember("OFFVOL"));
  EXPECT_EQ(EIO, errno);
  // replaceMember passes readMember's result on.
  EXPECT_EQ(Bpam::kReadOutsideExtents, pds.replaceMember("BEYOND"));
  EXPECT_EQ(Bpam::kReadUnreadable, pds.replaceMember("OFFVOL"));
  EXPECT_EQ(-3, Bpam::kReadOutsideExtents);
  EXPECT_EQ(-4, Bpam::kReadUnreadable);
}

TEST(PdsReadMemberTest, RecordLengthZeroIsRefused) {
  PdsFixture f({{"LOAD", {Bytes(1000, 0x12), Bytes(77, 0x34)}, {}}}, 6144, 2, 0);
  EXPECT_EQ(0, f.pds.recordLength);
  errno = 0;
  EXPECT_EQ(Bpam::kReadUndefinedLength, f.pds.readMember("LOAD"));
  EXPECT_EQ(EINVAL, errno);
  EXPECT_EQ(0, f.pds.records.count);
  EXPECT_EQ(Bpam::kReadUndefinedLength, f.pds.replaceMember("LOAD"));
  EXPECT_EQ(Bpam::kReadNoMember, f.pds.readMember("OTHER"));  // the directory still works
}

// ---- setRecord -----------------------------------------------------------------

TEST(PdsSetRecordTest, LengthsDecideWhetherARecordIsAdded) {
  PdsFixture f({{"M", textBlocks("M", 1, 80, 1), {}}});
  const char data[100] = "0123456789";
  errno = 1234;
  EXPECT_EQ(Bpam::kSetBadLength, f.pds.setRecord(7, data, 81));
  EXPECT_EQ(Bpam::kSetBadLength, f.pds.setRecord(7, data, -1));
  EXPECT_EQ(Bpam::kSetBadLength, f.pds.setRecord(7, nullptr, 5));
  EXPECT_EQ(Bpam::kSetOk, f.pds.setRecord(7, data, 0));
  EXPECT_EQ(0, f.pds.newRecords.count);
  EXPECT_EQ(Bpam::kSetOk, f.pds.setRecord(99, data, 80));
  EXPECT_EQ(Bpam::kSetOk, f.pds.setRecord(7, data, 10));
  EXPECT_EQ(1234, errno);
  ASSERT_EQ(2, f.pds.newRecords.count);
  EXPECT_EQ(80, f.pds.newRecords[0]->length());
  EXPECT_EQ("0123456789", recordBytes(f.pds.newRecords[1]));  // last, whatever 7 says
  EXPECT_EQ(-1, Bpam::kSetBadLength);

  DskVolume dsk;
  Bpam unopened(dsk);  // recordLength -1: nothing fits
  EXPECT_EQ(Bpam::kSetBadLength, unopened.setRecord(0, data, 1));
}

// ---- replaceMember -------------------------------------------------------------

TEST(PdsReplaceMemberTest, CountMismatchChangesNothingOnTheVolume) {
  PdsFixture f({{"MEMBER1", textBlocks("REC", 120, 80, 40), {}}});
  for (int i = 0; i < 119; ++i) ASSERT_EQ(0, f.pds.setRecord(i, "NEW", 3));
  Bytes before = fileBytes(f.vol.path());
  errno = 4321;
  EXPECT_EQ(Bpam::kReplaceCountMismatch, f.pds.replaceMember("MEMBER1"));
  EXPECT_EQ(4321, errno);
  EXPECT_EQ(120, f.pds.records.count);
  f.dsk.close();
  f.vol.close();
  EXPECT_TRUE(before == fileBytes(f.vol.path()));
  EXPECT_EQ(-10, Bpam::kReplaceCountMismatch);
}

TEST(PdsReplaceMemberTest, ShortRecordsArePaddedWithBlanksAndBlocksKeepTheirLengths) {
  Bytes b3120 = textBlocks("A", 39, 80, 39)[0];
  Bytes b80 = textBlocks("S", 1, 80, 1)[0];
  PdsFixture f({{"BEFORE", textBlocks("B", 4, 80, 40), {}},
                {"MEMBER1", {b3120, b80, b3120, b3120}, {}},  // 118 records over 3 tracks
                {"AFTER", textBlocks("Z", 3, 80, 40), {}}});
  std::vector<std::string> texts;
  for (int i = 0; i < 118; ++i) {
    char t[24];
    std::snprintf(t, sizeof(t), "NEWREC%04d", i);  // 10 bytes
    texts.push_back(t);
    ASSERT_EQ(0, f.pds.setRecord(i, t, 10));
  }
  ASSERT_EQ(Bpam::kReplaceOk, f.pds.replaceMember("member1"));
  // records holds the member as it was before the rewrite.
  EXPECT_EQ(ebcdicRecord("A 0", 80), recordBytes(f.pds.records[0]));
  f.dsk.close();
  f.vol.reopen();  // everything below comes from the file

  // The member's blocks, read back from the tracks: same lengths, new text.
  std::vector<Bytes> blocks;
  Cchhr start = f.at.memberStart[1];
  for (size_t t = f.at.memberTT[1]; t < f.at.tracks.size() && blocks.size() < 5; ++t) {
    for (const Record& r : f.vol.readRecords(f.at.tracks[t].cyl, f.at.tracks[t].head)) {
      if (t == f.at.memberTT[1] && r.rec < start.rec) continue;
      blocks.push_back(r.data);
      if (r.data.empty()) break;
    }
    if (!blocks.empty() && blocks.back().empty()) break;
  }
  ASSERT_EQ(5u, blocks.size());
  EXPECT_EQ(3120u, blocks[0].size());
  EXPECT_EQ(80u, blocks[1].size());
  EXPECT_EQ(3120u, blocks[3].size());
  EXPECT_TRUE(blocks[4].empty());  // the EOF record is still there
  int j = 0;
  for (int b = 0; b < 4; ++b) {
    for (size_t off = 0; off < blocks[b].size(); off += 80, ++j) {
      std::string got(blocks[b].begin() + static_cast<long>(off),
                      blocks[b].begin() + static_cast<long>(off) + 80);
      std::string want =
          texts[static_cast<size_t>(j)] + std::string(70, '\x40');  // raw bytes, blanks are 40
      ASSERT_EQ(want, got) << "record " << j;
    }
  }
  EXPECT_EQ(118, j);

  // The neighbours are untouched, and the library reads the new text back.
  DskVolume dsk;
  ASSERT_EQ(0, dsk.open(&f.vol.file()));
  Bpam pds(dsk);
  ASSERT_EQ(0, pds.openDataset("TEST.PDS"));
  ASSERT_EQ(0, pds.readMember("BEFORE"));
  ASSERT_EQ(4, pds.records.count);
  EXPECT_EQ(ebcdicRecord("B 3", 80), recordBytes(pds.records[3]));
  ASSERT_EQ(0, pds.readMember("AFTER"));
  EXPECT_EQ(ebcdicRecord("Z 2", 80), recordBytes(pds.records[2]));
  ASSERT_EQ(0, pds.readMember("MEMBER1"));
  ASSERT_EQ(118, pds.records.count);
  EXPECT_EQ("NEWREC0117" + std::string(70, '\x40'), recordBytes(pds.records[117]));
}

TEST(PdsReplaceMemberTest, NullSlotsAndFullLengthRecordsAreWrittenAsGiven) {
  PdsFixture f({{"M", textBlocks("OLD", 3, 80, 2), {}}});
  std::string full(80, '\xC1');
  ASSERT_EQ(0, f.pds.setRecord(0, full.data(), 80));
  ASSERT_EQ(0, f.pds.setRecord(1, "X", 1));
  ASSERT_EQ(0, f.pds.setRecord(2, "YY", 2));
  delete f.pds.newRecords[1];
  f.pds.newRecords.set(1, nullptr);  // a hole becomes a record of blanks
  ASSERT_EQ(Bpam::kReplaceOk, f.pds.replaceMember("M"));
  ASSERT_EQ(0, f.pds.readMember("M"));
  ASSERT_EQ(3, f.pds.records.count);
  EXPECT_EQ(full, recordBytes(f.pds.records[0]));
  EXPECT_EQ(std::string(80, '\x40'), recordBytes(f.pds.records[1]));
  EXPECT_EQ("YY" + std::string(78, '\x40'), recordBytes(f.pds.records[2]));
}

TEST(PdsReplaceMemberTest, ABlockThatWriteDRefusesGivesMinus15) {
  // The member's only block ends exactly where the record area ends (slot
  // size - 24): the track holds it, but writeD refuses to rewrite it.
  TestVolume vol;
  const int dataLimit = static_cast<int>(vol.file().trackSlotSize) - 24;
  const int blockLength = dataLimit - 5 - 16 - 8;  // home address, record zero, count field
  ASSERT_LE(blockLength, 65535);
  DataSetLayout ds = pdsDataSet("TEST.PDS", static_cast<uint16_t>(blockLength),
                              static_cast<uint16_t>(blockLength), {{1, 0, 1, 14}});
  vol.writeVtoc({format1Dscb(ds)});
  vol.setRecords(1, 0,
                 {directoryRecord(1, {}, directoryBlock({dirEntry("EDGE", 1, 1), endEntry()})),
                  eofRecord(2)});
  vol.setRecords(1, 1, {dataRecord(1, Bytes(static_cast<size_t>(blockLength), 0xC1))});
  vol.setRecords(1, 2, {eofRecord(1)});
  DskVolume dsk;
  ASSERT_EQ(0, dsk.open(&vol.file()));
  Bpam pds(dsk);
  ASSERT_EQ(0, pds.openDataset("TEST.PDS"));
  ASSERT_EQ(0, pds.readMember("EDGE"));
  ASSERT_EQ(1, pds.records.count);
  ASSERT_EQ(0, pds.setRecord(0, "X", 1));
  errno = 0;
  EXPECT_EQ(Bpam::kReplaceBlockWrite, pds.replaceMember("EDGE"));
  EXPECT_EQ(EIO, errno);
  EXPECT_EQ(-15, Bpam::kReplaceBlockWrite);
  dsk.close();
  vol.close();
  vol.reopen();
  std::vector<Record> track = vol.readRecords(1, 1);
  ASSERT_EQ(1u, track.size());
  EXPECT_TRUE(track[0].data == Bytes(static_cast<size_t>(blockLength), 0xC1));  // unchanged
}

TEST(PdsReplaceMemberTest, ATrackThatCannotBeWrittenBackGivesMinus16) {
  PdsFixture f({{"M", textBlocks("OLD", 3, 80, 3), {}}});
  f.dsk.close();
  f.vol.reopen(true);  // read-only: the write-back of the changed track fails
  ASSERT_EQ(0, f.dsk.open(&f.vol.file()));
  ASSERT_EQ(0, f.pds.setRecord(0, "A", 1));
  ASSERT_EQ(0, f.pds.setRecord(1, "B", 1));
  ASSERT_EQ(0, f.pds.setRecord(2, "C", 1));
  errno = 0;
  EXPECT_EQ(Bpam::kReplaceTrackWrite, f.pds.replaceMember("M"));
  EXPECT_EQ(EIO, errno);
  EXPECT_EQ(-16, Bpam::kReplaceTrackWrite);
  // The block was rewritten in the track buffer; forget it so that closing
  // does not try the write-back again.
  f.vol.file().trackDirty = 0;
}

}  // namespace
}  // namespace ckdvol_test
