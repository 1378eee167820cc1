#include "volume/disk_vtoc.h"

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "dscb/format3_dscb.h"
#include "dscb/format9_dscb.h"
#include "support/volume_builder.h"

namespace {

using namespace ckdvol_test;

DataSetLayout dataSet(const std::string& name) {
  DataSetLayout ds;
  ds.name = name;
  ds.extents = {ExtentSpec{1, 0, 1, 14}};
  return ds;
}

// Reads label and VTOC of `vol`; the VTOC's result is returned, errno kept.
int readVtoc(TestVolume& vol, DiskVtoc& vtoc) {
  DiskLabel label;
  if (label.initialize(vol.file()) != 0) return -100;
  return vtoc.initialize(vol.file(), label);
}

std::string listing(DiskVtoc& vtoc) {
  RexxString out;
  vtoc.print(out);
  return out.text();
}

bool endsWith(const std::string& s, const std::string& tail) {
  return s.size() >= tail.size() && s.compare(s.size() - tail.size(), tail.size(), tail) == 0;
}

TEST(DiskVtoc, EmptyObject) {
  DiskVtoc vtoc;
  EXPECT_FALSE(vtoc.f4.isSet());
  EXPECT_EQ(0, vtoc.f1List.count);
  EXPECT_EQ(0, vtoc.f5List.count);
  EXPECT_EQ(0, vtoc.f8List.count);
  EXPECT_EQ(0, vtoc.f0Count);
  EXPECT_EQ(0, vtoc.unknownCount);
  EXPECT_EQ(32, vtoc.f1List.growBy);
  EXPECT_EQ(0, vtoc.f1List.ownsElements);
  EXPECT_EQ(0, vtoc.f5List.ownsElements);
  EXPECT_EQ(0, vtoc.f8List.ownsElements);

  RexxString out("kept");
  try {
    vtoc.print(out);
    FAIL() << "print without a Format-4 DSCB must throw";
  } catch (const char* text) {
    EXPECT_STREQ("PTR::check - Reference to unassigned pointer", text);
  }
  EXPECT_STREQ("kept", out.text());  // nothing appended
}

TEST(DiskVtoc, FreshVolumeWalksNothingBehindTheFormat4) {
  // Initialisation leaves LastDSCB zero: the walk limit is track index 0 and
  // the record after the Format-4 DSCB (0/1, index 1) ends the walk.
  TestVolume vol;
  DiskVtoc vtoc;
  ASSERT_EQ(0, readVtoc(vol, vtoc));
  ASSERT_TRUE(vtoc.f4.isSet());
  EXPECT_EQ(0, vtoc.f4->cyl);
  EXPECT_EQ(1, vtoc.f4->head);
  EXPECT_EQ(1, vtoc.f4->rec);
  EXPECT_FALSE(vtoc.f4->largeCylinders);
  EXPECT_EQ(0, vtoc.f5List.count);
  EXPECT_EQ(0, vtoc.f0Count);
}

TEST(DiskVtoc, LimitOnTheFormat4TrackExaminesTheRestOfThatTrack) {
  TestVolume vol;  // D600, 3 cylinders: model 1, record 3 is empty
  vol.setLastDscb(Cchhr{0, 1, 1});
  DiskVtoc vtoc;
  ASSERT_EQ(0, readVtoc(vol, vtoc));
  EXPECT_EQ(1, vtoc.f5List.count);
  EXPECT_EQ(10, vtoc.f0Count);  // records 3 to 12
  EXPECT_EQ(0, vtoc.unknownCount);
  ASSERT_NE(nullptr, vtoc.f5List[0]);
  EXPECT_EQ(2, vtoc.f5List[0]->rec);
}

TEST(DiskVtoc, FirstRecordFailures) {
  struct Case {
    const char* what;
    std::vector<unsigned char> vtocLoc;  // CCHHR in the label
    int expectedErrno;
  } cases[] = {
      {"record not on the track", {0x00, 0x00, 0x00, 0x01, 0x63}, 9999},
      {"filler record, key 0 data 4096", {0x00, 0x00, 0x00, 0x05, 0x01}, 9998},
      {"the Format-5 DSCB", {0x00, 0x00, 0x00, 0x01, 0x02}, 9997},
      {"an empty DSCB", {0x00, 0x00, 0x00, 0x01, 0x04}, 9997},
      {"cylinder beyond the volume", {0x27, 0x0F, 0x00, 0x00, 0x01}, EIO},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    TestVolume vol;
    vol.patchLabel(11, c.vtocLoc);
    DiskVtoc vtoc;
    errno = 0;
    EXPECT_EQ(-1, readVtoc(vol, vtoc));
    EXPECT_EQ(c.expectedErrno, errno);
    EXPECT_FALSE(vtoc.f4.isSet());
  }
}

TEST(DiskVtoc, FormatByteWithLowBitsFourIsNotAFormat4) {
  TestVolume vol;
  vol.writeVtoc({formatIdDscb(0x04)});  // 0/1/2: getType 4, but the factory made no Format4DSCB
  vol.patchLabel(15, {0x02});
  DiskVtoc vtoc;
  errno = 0;
  EXPECT_EQ(-1, readVtoc(vol, vtoc));
  EXPECT_EQ(9997, errno);
  EXPECT_FALSE(vtoc.f4.isSet());
}

TEST(DiskVtoc, NoLabelGivesEnoent) {
  TestVolume vol;
  DiskLabel label;  // never read
  DiskVtoc vtoc;
  errno = 0;
  EXPECT_EQ(-1, vtoc.initialize(vol.file(), label));
  EXPECT_EQ(ENOENT, errno);
}

TEST(DiskVtoc, FailureBeforeTheWalkKeepsWhatWasLoaded) {
  TestVolume vol;
  vol.writeVtoc({format1Dscb(dataSet("KEEP.ME"))});
  DiskLabel label;
  ASSERT_EQ(0, label.initialize(vol.file()));
  DiskVtoc vtoc;
  ASSERT_EQ(0, vtoc.initialize(vol.file(), label));
  const Format4DSCB* f4 = vtoc.f4.get();

  label.labelData[15] = 2;  // now points at the Format-1 DSCB
  errno = 0;
  EXPECT_EQ(-1, vtoc.initialize(vol.file(), label));
  EXPECT_EQ(9997, errno);
  EXPECT_EQ(f4, vtoc.f4.get());
  EXPECT_EQ(1, vtoc.f1List.count);
}

TEST(DiskVtoc, SummaryOfOneFormat1OneFormat5AndTwentyEmpty) {
  TestVolume vol;
  std::vector<Dscb> dscbs = {format5Dscb({FreeExtent{2, 2, 13}}), format1Dscb(dataSet("TEST.DATA"))};
  for (int i = 0; i < 20; ++i) dscbs.push_back(emptyDscb());
  vol.writeVtoc(dscbs);
  DiskVtoc vtoc;
  ASSERT_EQ(0, readVtoc(vol, vtoc));
  const std::string text = listing(vtoc);
  const std::string tail = std::string(100, '=') +
                           "\n\n"
                           "Format-1 DSCBs: 1,  Format-8 DSCBs: 0\n"
                           "Format-5 DSCBs: 1\n"
                           "Format-0 DSCBs: 20,  Unknown DSCBs: 0\n"
                           "\n"
                           "End of VTOC list\n";
  EXPECT_TRUE(endsWith(text, "\n" + tail)) << text.substr(text.size() > 400 ? text.size() - 400 : 0);
}

TEST(DiskVtoc, ListingOrderAndIndentation) {
  TestVolume vol;
  vol.writeVtoc({format8Dscb(dataSet("EIGHT")), format1Dscb(dataSet("ONE")),
                 format5Dscb({FreeExtent{3, 1, 2}})});
  DiskVtoc vtoc;
  ASSERT_EQ(0, readVtoc(vol, vtoc));
  const std::string text = listing(vtoc);
  size_t f4 = text.find("Format 4 DSCB at 0/1/1 (000000/01/01) --\n");
  size_t f5 = text.find("Format 5 DSCB at 0/1/4 (000000/01/04) --\n");
  size_t f1 = text.find("Format 1 DSCB at 0/1/3 (000000/01/03) --\n");
  size_t f8 = text.find("Format 8 DSCB at 0/1/2 (000000/01/02) --\n");
  ASSERT_NE(std::string::npos, f4);
  ASSERT_NE(std::string::npos, f5);
  ASSERT_NE(std::string::npos, f1);
  ASSERT_NE(std::string::npos, f8);
  EXPECT_LT(f4, f5);  // Format-4, Format-5, Format-1, Format-8 whatever the walk order
  EXPECT_LT(f5, f1);
  EXPECT_LT(f1, f8);
  // The Format-5 dump is indented by 5: its first field line.
  size_t line = text.find('\n', f5) + 1;
  EXPECT_EQ(0, text.compare(line, 16, "       DSCBKey: "));  // 5 + "  DSCBKey" in 9 columns
  // The Format-1 dump is not indented: "DSname" is the longest label.
  line = text.find('\n', f1) + 1;
  EXPECT_EQ(0, text.compare(line, 16, "        DSname: "));
}

TEST(DiskVtoc, UnknownFormatsAreCountedAndChainDscbsAreNot) {
  TestVolume vol;
  vol.writeVtoc({formatIdDscb(0xF2), formatIdDscb(0xF7), formatIdDscb(0xF4), formatIdDscb(0xF6),
                 formatIdDscb(0xFA), formatIdDscb(0x01), format3Dscb({}), format9Dscb({}),
                 emptyDscb()});
  DiskVtoc vtoc;
  ASSERT_EQ(0, readVtoc(vol, vtoc));
  // F2, F7, a second F4, F6, FA (type 10) and 01 (low bits 1, but no
  // Format-1 identifier) are unknown; F3 and F9 are left to the chains.
  EXPECT_EQ(6, vtoc.unknownCount);
  EXPECT_EQ(1, vtoc.f0Count);
  EXPECT_EQ(0, vtoc.f1List.count);
  EXPECT_EQ(0, vtoc.f5List.count);
  EXPECT_EQ(0, vtoc.f8List.count);
}

TEST(DiskVtoc, WalkSpansTracksUpToTheLimitTrack) {
  TestVolume vol;
  std::vector<Dscb> dscbs;
  for (int i = 0; i < 30; ++i) dscbs.push_back(format1Dscb(dataSet("DS" + std::to_string(i))));
  std::vector<Cchhr> at = vol.writeVtoc(dscbs, 10);  // 0/1, 0/2, 0/3: 10 each
  ASSERT_EQ(2, at[10].head);
  ASSERT_EQ(3, at[29].head);

  DiskVtoc all;
  ASSERT_EQ(0, readVtoc(vol, all));
  ASSERT_EQ(30, all.f1List.count);
  for (int i = 0; i < 30; ++i) {
    ASSERT_EQ(static_cast<int>(at[i].head), all.f1List[i]->head);
    ASSERT_EQ(at[i].rec, all.f1List[i]->rec);
  }

  // A limit in the middle of track 0/2 still examines the whole track.
  vol.setLastDscb(at[14]);
  DiskVtoc part;
  ASSERT_EQ(0, readVtoc(vol, part));
  EXPECT_EQ(20, part.f1List.count);
}

TEST(DiskVtoc, WalkEndsAfter5000Dscbs) {
  TestVolume vol;
  std::vector<Dscb> dscbs(5003, emptyDscb());
  std::vector<Cchhr> at = vol.writeVtoc(dscbs);
  ASSERT_GT(at.back().cyl * 15 + at.back().head, 10u);  // many tracks
  DiskVtoc vtoc;
  ASSERT_EQ(0, readVtoc(vol, vtoc));
  EXPECT_EQ(5000, vtoc.f0Count);
}

TEST(DiskVtoc, BadRecordInsideTheWalk) {
  TestVolume vol;
  vol.writeVtoc({format5Dscb({}), format1Dscb(dataSet("BEFORE")), emptyDscb(), emptyDscb(),
                 format1Dscb(dataSet("AFTER"))});
  // Record 5 of 0/1 becomes a directory-like block with an 8-byte key.
  std::vector<Record> track = vol.readRecords(0, 1);
  ASSERT_EQ(6u, track.size());
  track[4] = keyedRecord(5, std::vector<unsigned char>(8, 0xC1), std::vector<unsigned char>(256));
  vol.setRecords(0, 1, track);

  DiskVtoc vtoc;
  testing::internal::CaptureStdout();
  errno = 0;
  int rc = readVtoc(vol, vtoc);
  int err = errno;
  std::string out = testing::internal::GetCapturedStdout();
  EXPECT_EQ(-1, rc);
  EXPECT_EQ(9995, err);
  EXPECT_EQ(" key len err 9995 8 cc hh r is 0 1 5\n", out);
  EXPECT_TRUE(vtoc.f4.isSet());  // what came before stays
  EXPECT_EQ(1, vtoc.f5List.count);
  EXPECT_EQ(1, vtoc.f1List.count);
  EXPECT_EQ(1, vtoc.f0Count);
}

TEST(DiskVtoc, RecordsBeyondTheLimitAreNotExamined) {
  TestVolume vol;
  vol.writeVtoc({format1Dscb(dataSet("ONLY"))});  // LastDSCB 0/1/2
  // Track 0/2 keeps the filler records of initialisation (key length 0):
  // beyond the limit they end the walk instead of failing it.
  DiskVtoc vtoc;
  testing::internal::CaptureStdout();
  int rc = readVtoc(vol, vtoc);
  EXPECT_EQ("", testing::internal::GetCapturedStdout());
  EXPECT_EQ(0, rc);
  EXPECT_EQ(1, vtoc.f1List.count);
}

TEST(DiskVtoc, RecordRunningPastTheRecordAreaIsABadRecord) {
  TestVolume vol;
  vol.writeVtoc({format1Dscb(dataSet("ONE"))}, 1);
  vol.setLastDscb(Cchhr{0, 2, 1});
  // Track 0/2: as many DSCB records as fit, then a count field claiming key
  // 44 / data 96 where the marker was: it begins inside the record area but
  // would end 45 bytes past it.
  EmulatedCKDfile& f = vol.file();
  const int perTrackByBytes = (static_cast<int>(f.trackSlotSize) - 24 - 21) / 148;
  std::vector<Record> full;
  for (int i = 0; i < perTrackByBytes; ++i) full.push_back(dscbRecord(static_cast<uint8_t>(i % 255 + 1), emptyDscb()));
  vol.setRecords(0, 2, full);
  ASSERT_EQ(0, f.readTrack(0, 2, 0));
  const void* marker = f.locate(EmulatedCKDfile::ORIENT_EOT, 0, 2, 0);
  ASSERT_NE(nullptr, marker);
  unsigned char* p = f.trackBuffer + (static_cast<const unsigned char*>(marker) - f.trackBuffer);
  const int dataLimit = static_cast<int>(f.trackSlotSize) - 24;
  ASSERT_GT(p - f.trackBuffer + 148, dataLimit);
  const unsigned char count[8] = {0x00, 0x00, 0x00, 0x02, 200, 44, 0x00, 96};  // 0/2/200, KL 44, DL 96
  std::memcpy(p, count, 8);
  std::memset(p + 8, 0, f.trackBuffer + dataLimit - (p + 8));
  std::memset(f.trackBuffer + dataLimit, 0xFF, 8);
  f.trackDirty = 1;
  ASSERT_EQ(0, f.writeTrack());

  DiskVtoc vtoc;
  testing::internal::CaptureStdout();
  errno = 0;
  int rc = readVtoc(vol, vtoc);
  int err = errno;
  std::string out = testing::internal::GetCapturedStdout();
  EXPECT_EQ(-1, rc);
  EXPECT_EQ(9995, err);
  EXPECT_EQ(" key len err 9995 44 cc hh r is 0 2 200\n", out);
  EXPECT_EQ(perTrackByBytes, vtoc.f0Count);
}

TEST(DiskVtoc, NineteenHeadsPerCylinderUseTheFactorFifteen) {
  TestVolume vol(EmulatedCKDfile::D300, 2);
  vol.setLastDscb(Cchhr{0, 18, 1});  // walk limit: index 18
  // Empty tracks hold only record zero and are passed over by the walk.
  for (uint16_t h = 2; h < 19; ++h) vol.setRecords(0, h, {});
  for (uint16_t h = 0; h < 19; ++h) vol.setRecords(1, h, {});
  vol.setRecords(0, 18, {dscbRecord(1, format1Dscb(dataSet("AT.ZERO.EIGHTEEN")))});  // index 18
  vol.setRecords(1, 0, {dscbRecord(1, format1Dscb(dataSet("AT.ONE.ZERO")))});        // index 15
  vol.setRecords(1, 4, {dscbRecord(1, format1Dscb(dataSet("AT.ONE.FOUR")))});        // index 19
  vol.setRecords(1, 5, {dscbRecord(1, format1Dscb(dataSet("AT.ONE.FIVE")))});        // index 20

  DiskVtoc vtoc;
  ASSERT_EQ(0, readVtoc(vol, vtoc));
  ASSERT_EQ(2, vtoc.f1List.count);
  EXPECT_NE(nullptr, vtoc.locateDataset("AT.ZERO.EIGHTEEN"));
  EXPECT_NE(nullptr, vtoc.locateDataset("AT.ONE.ZERO"));
  EXPECT_EQ(nullptr, vtoc.locateDataset("AT.ONE.FOUR"));
  EXPECT_EQ(1, vtoc.f5List.count);  // rest of 0/1: Format-5, then empty records
}

TEST(DiskVtoc, Format3ChainsOfFormat1Dscbs) {
  TestVolume vol;
  // VTOC records (0/1): 2 F1 CHAINED, 3 F1 LOOPED, 4 F1 NOWHERE, 5 F1 WRONG,
  // 6 F3 (-> 7), 7 F3 (end), 8 F3 (-> 9), 9 F3 (-> 8), 10 F1 SELF, 11 F3 (-> 11).
  DataSetLayout chained = dataSet("CHAINED");
  chained.extents = {{1, 0, 1, 0}, {1, 1, 1, 1}, {1, 2, 1, 2}, {1, 3, 1, 4}, {2, 0, 2, 14}};
  chained.next = Cchhr{0, 1, 6};
  DataSetLayout looped = dataSet("LOOPED");
  looped.next = Cchhr{0, 1, 8};
  DataSetLayout nowhere = dataSet("NOWHERE");
  nowhere.next = Cchhr{0, 7, 99};  // filler track: no record 99
  DataSetLayout wrong = dataSet("WRONG");
  wrong.next = Cchhr{0, 1, 3};  // the Format-1 DSCB LOOPED
  DataSetLayout self = dataSet("SELF");
  self.next = Cchhr{0, 1, 11};
  vol.writeVtoc({format1Dscb(chained), format1Dscb(looped), format1Dscb(nowhere), format1Dscb(wrong),
                 format3Dscb({{1, 3, 1, 4}, {2, 0, 2, 14}}, Cchhr{0, 1, 7}), format3Dscb({}),
                 format3Dscb({}, Cchhr{0, 1, 9}), format3Dscb({}, Cchhr{0, 1, 8}), format1Dscb(self),
                 format3Dscb({}, Cchhr{0, 1, 11})});

  DiskVtoc vtoc;
  ASSERT_EQ(0, readVtoc(vol, vtoc));
  ASSERT_EQ(5, vtoc.f1List.count);
  EXPECT_EQ(0, vtoc.unknownCount);  // chain records in the walk are not counted
  EXPECT_EQ(0, vtoc.f0Count);

  const Format1DSCB* c = vtoc.locateDataset("CHAINED");
  ASSERT_NE(nullptr, c);
  ASSERT_EQ(2, c->f3List.count);
  EXPECT_EQ(6, c->f3List[0]->rec);
  EXPECT_EQ(7, c->f3List[1]->rec);
  EXPECT_EQ(1, c->f3List[0]->head);
  int loCyl, loHead, hiCyl, hiHead, loTrk, hiTrk;
  EXPECT_EQ(15, c->getExtent(4, loCyl, loHead, hiCyl, hiHead, loTrk, hiTrk));  // second F3 extent
  EXPECT_EQ(2, loCyl);

  EXPECT_EQ(2, vtoc.locateDataset("LOOPED")->f3List.count);  // 8, 9, then back to 8: stop
  EXPECT_EQ(0, vtoc.locateDataset("NOWHERE")->f3List.count);
  EXPECT_EQ(0, vtoc.locateDataset("WRONG")->f3List.count);
  EXPECT_EQ(1, vtoc.locateDataset("SELF")->f3List.count);

  // The listing shows chained Format-3 DSCBs inside their Format-1 DSCB.
  const std::string text = listing(vtoc);
  size_t f1 = text.find("Format 1 DSCB at 0/1/2");
  size_t f3 = text.find("\nFormat 3 DSCB at 0/1/6 (000000/01/06) --\n");
  ASSERT_NE(std::string::npos, f1);
  ASSERT_NE(std::string::npos, f3);
  EXPECT_LT(f1, f3);
  // Indented by 4: "DSCBKey" right-aligned in the 11 columns of "ExtLoCCHH-1".
  size_t line = text.find('\n', f3 + 1) + 1;
  EXPECT_EQ(0, text.compare(line, 17, "        DSCBKey: "));
}

TEST(DiskVtoc, Format9AndFormat3ChainsOfFormat8Dscbs) {
  TestVolume vol;
  // 0/1: 2 F8 BIG (-> F9 at 3), 3 F9 (F3s: 5; next F9 at 4), 4 F9 (F3s: 6, 0/9/9; next back at 3),
  //      5 F3 (end), 6 F3 (-> 7), 7 F3 (end), 8 F8 ODD (-> 5: not a Format-9 DSCB)
  DataSetLayout big = dataSet("BIG");
  big.next = Cchhr{0, 1, 3};
  DataSetLayout odd = dataSet("ODD");
  odd.next = Cchhr{0, 1, 5};
  vol.writeVtoc({format8Dscb(big), format9Dscb({Cchhr{0, 1, 5}}, Cchhr{0, 1, 4}),
                 format9Dscb({Cchhr{0, 1, 6}, Cchhr{0, 9, 9}}, Cchhr{0, 1, 3}), format3Dscb({}),
                 format3Dscb({}, Cchhr{0, 1, 7}), format3Dscb({}), format8Dscb(odd)});
  DiskVtoc vtoc;
  ASSERT_EQ(0, readVtoc(vol, vtoc));
  ASSERT_EQ(2, vtoc.f8List.count);
  EXPECT_EQ(0, vtoc.f1List.count);
  EXPECT_EQ(nullptr, vtoc.locateDataset("BIG"));  // Format-8 DSCBs are not searched

  const Format8DSCB* f8 = vtoc.f8List[0];
  ASSERT_EQ(2, f8->f9List.count);  // 3, 4, then back to 3: stop
  EXPECT_EQ(3, f8->f9List[0]->rec);
  EXPECT_EQ(4, f8->f9List[1]->rec);
  ASSERT_EQ(3, f8->f3List.count);  // 5 from the first F9; 6 and 7 from the second
  EXPECT_EQ(5, f8->f3List[0]->rec);
  EXPECT_EQ(6, f8->f3List[1]->rec);
  EXPECT_EQ(7, f8->f3List[2]->rec);
  EXPECT_EQ(0, vtoc.f8List[1]->f9List.count);
  EXPECT_EQ(0, vtoc.f8List[1]->f3List.count);

  // Format-8 listing: its Format-9 DSCBs, then its Format-3 DSCBs, indented 6.
  const std::string text = listing(vtoc);
  size_t f9 = text.find("\nFormat 9 DSCB at 0/1/4 (000000/01/04) --\n");
  size_t f3 = text.find("\nFormat 3 DSCB at 0/1/5 (000000/01/05) --\n");
  ASSERT_NE(std::string::npos, f9);
  ASSERT_NE(std::string::npos, f3);
  EXPECT_LT(f9, f3);
  // Indented by 6; Format-9 labels are up to 10 wide, Format-3 labels 11.
  size_t line = text.find('\n', f9 + 1) + 1;
  EXPECT_EQ(0, text.compare(line, 18, "         DSCBKey: "));
  line = text.find('\n', f3 + 1) + 1;
  EXPECT_EQ(0, text.compare(line, 19, "          DSCBKey: "));
}

TEST(DiskVtoc, SecondInitializeFollowsTheChainsOfEveryHeldDscbAgain) {
  TestVolume vol;
  // 0/1: 2 F1 ONE (-> F3 at 3), 3 F3, 4 F8 EIGHT (-> F9 at 5), 5 F9 (F3 at 6), 6 F3.
  DataSetLayout one = dataSet("ONE");
  one.next = Cchhr{0, 1, 3};
  DataSetLayout eight = dataSet("EIGHT");
  eight.next = Cchhr{0, 1, 5};
  vol.writeVtoc({format1Dscb(one), format3Dscb({}), format8Dscb(eight),
                 format9Dscb({Cchhr{0, 1, 6}}), format3Dscb({})});
  DiskLabel label;
  ASSERT_EQ(0, label.initialize(vol.file()));
  DiskVtoc vtoc;
  ASSERT_EQ(0, vtoc.initialize(vol.file(), label));
  ASSERT_EQ(1, vtoc.f1List[0]->f3List.count);
  ASSERT_EQ(1, vtoc.f8List[0]->f9List.count);

  // Not reset: the walk files ONE and EIGHT again, and the chain steps run
  // over every entry of f1List and f8List, the earlier ones included.
  ASSERT_EQ(0, vtoc.initialize(vol.file(), label));
  ASSERT_EQ(2, vtoc.f1List.count);
  ASSERT_EQ(2, vtoc.f8List.count);
  EXPECT_EQ(2, vtoc.f1List[0]->f3List.count);
  EXPECT_EQ(1, vtoc.f1List[1]->f3List.count);
  EXPECT_EQ(2, vtoc.f8List[0]->f9List.count);
  EXPECT_EQ(2, vtoc.f8List[0]->f3List.count);
  EXPECT_EQ(1, vtoc.f8List[1]->f9List.count);
  EXPECT_EQ(1, vtoc.f8List[1]->f3List.count);
  EXPECT_EQ(3, vtoc.f1List[0]->f3List[1]->rec);
  EXPECT_EQ(6, vtoc.f8List[0]->f3List[1]->rec);
}

TEST(DiskVtoc, LocateDataset) {
  TestVolume vol;
  const std::string longName = "A2345678.B2345678.C2345678.D2345678.E2345678";  // 44
  ASSERT_EQ(44u, longName.size());
  vol.writeVtoc({format1Dscb(dataSet("OTHER")), format1Dscb(dataSet("TEST.DATA")),
                 format1Dscb(dataSet(longName))});
  DiskVtoc vtoc;
  ASSERT_EQ(0, readVtoc(vol, vtoc));

  const Format1DSCB* found = vtoc.locateDataset("TEST.DATA");
  ASSERT_NE(nullptr, found);
  EXPECT_EQ(vtoc.f1List[1], found);
  EXPECT_EQ(nullptr, vtoc.locateDataset("test.data"));
  EXPECT_EQ(nullptr, vtoc.locateDataset("TEST.DAT"));
  EXPECT_EQ(nullptr, vtoc.locateDataset(""));
  EXPECT_EQ(nullptr, vtoc.locateDataset(nullptr));
  EXPECT_EQ(vtoc.f1List[2], vtoc.locateDataset((longName + "XYZXYZ").c_str()));  // first 44 count
}

TEST(DiskVtoc, DscbsCarryTheLargeCylinderFlagAndResetEmpties) {
  TestVolume vol;
  vol.writeVtoc({format1Dscb(dataSet("ONE")), format5Dscb({}), format8Dscb(dataSet("EIGHT"))});
  vol.file().largeCylinders = 1;  // cylinders below 65536 read the same either way
  DiskVtoc vtoc;
  int rc = readVtoc(vol, vtoc);
  vol.file().largeCylinders = 0;
  ASSERT_EQ(0, rc);
  EXPECT_TRUE(vtoc.f4->largeCylinders);
  EXPECT_TRUE(vtoc.f1List[0]->largeCylinders);
  EXPECT_TRUE(vtoc.f5List[0]->largeCylinders);
  EXPECT_TRUE(vtoc.f8List[0]->largeCylinders);

  // A second initialize without reset adds everything again.
  DiskLabel label;
  ASSERT_EQ(0, label.initialize(vol.file()));
  ASSERT_EQ(0, vtoc.initialize(vol.file(), label));
  EXPECT_EQ(2, vtoc.f1List.count);
  EXPECT_FALSE(vtoc.f4->largeCylinders);

  int capacity = vtoc.f1List.capacity;
  vtoc.reset();
  EXPECT_FALSE(vtoc.f4.isSet());
  EXPECT_EQ(0, vtoc.f1List.count);
  EXPECT_EQ(0, vtoc.f5List.count);
  EXPECT_EQ(0, vtoc.f8List.count);
  EXPECT_EQ(capacity, vtoc.f1List.capacity);  // storage kept
  EXPECT_EQ(nullptr, vtoc.f1List[0]);
  EXPECT_EQ(0, vtoc.f0Count);
  EXPECT_EQ(0, vtoc.unknownCount);
}

}  // namespace
