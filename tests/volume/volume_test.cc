// DiskLabel, DiskVtoc and DskVolume on small volumes built record by record:
// the label's bytes and dump, the result codes of each reader as rows, the
// Format-3/Format-9 chains, the listing and lookup, DskVolume's open.
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/volume_builder.h"
#include "volume/dsk_volume.h"

namespace {

using namespace ckdvol_test;
using Bytes = std::vector<unsigned char>;
const Bytes kVol1 = {0xE5, 0xD6, 0xD3, 0xF1};  // "VOL1"

DataSetLayout dataSet(const std::string& name, Cchhr next = Cchhr()) {
  DataSetLayout ds;
  ds.name = name;
  ds.extents = {ExtentSpec{1, 0, 1, 14}};
  ds.next = next;
  return ds;
}
template <class T> std::string printed(T& object) {
  RexxString out;
  return object.print(out).text();
}
// Label and VTOC of `vol` read into `vtoc`; its result, errno and what it printed.
struct Outcome { int rc, err; std::string printed; };
Outcome readVtoc(TestVolume& vol, DiskVtoc& vtoc) {
  DiskLabel label;
  if (label.initialize(vol.file()) != 0) return {-100, errno, ""};
  testing::internal::CaptureStdout();
  errno = 0;
  int rc = vtoc.initialize(vol.file(), label), err = errno;
  return {rc, err, testing::internal::GetCapturedStdout()};
}

TEST(VolumeTest, LabelAsInitialisationWritesIt) {
  DiskLabel label;
  char serial[9];
  std::memset(serial, '#', sizeof serial);
  int c = 7, h = 7, r = 7;
  EXPECT_FALSE(label.getSerial(serial, true));
  EXPECT_EQ(std::string(serial, 8), "########");  // untouched
  EXPECT_FALSE(label.getVTOC(c, h, r));
  EXPECT_EQ(c + h + r, -3);
  // Key and Serial of a reset label translate zero bytes: empty texts.
  EXPECT_EQ(printed(label).substr(0, 63),
            "Volume label --\n       Key: \n    Serial: ,  Security: 00\n  VTOC");

  TestVolume vol;
  ASSERT_EQ(label.initialize(vol.file()), 0);
  Bytes want(80, 0x40);
  const unsigned char head[16] = {0xE5, 0xD6, 0xD3, 0xF1,              // "VOL1"
                                  0xF0, 0xE7, 0xF0, 0xF1, 0xF2, 0xF3,  // serial "0X0123"
                                  0x40,                                // security
                                  0x00, 0x00, 0x00, 0x01, 0x01};       // VTOC at 0/1/1
  std::memcpy(want.data(), head, 16);
  EXPECT_EQ(Bytes(label.labelData, label.labelData + 80), want);
  ASSERT_TRUE(label.getSerial(serial, false));
  EXPECT_EQ(std::string(serial, 7), "\xF0\xE7\xF0\xF1\xF2\xF3#");  // six bytes, no NUL
  ASSERT_TRUE(label.getSerial(serial, true));
  EXPECT_EQ(std::string(serial, 8), std::string("0X0123\0#", 8));
  ASSERT_TRUE(label.getVTOC(c, h, r));
  EXPECT_EQ(std::vector<int>({c, h, r}), std::vector<int>({0, 1, 1}));
  EXPECT_EQ(printed(label),
            "Volume label --\n"
            "       Key: VOL1\n"
            "    Serial: 0X0123,      Security: 40\n"
            "  VTOC-loc: 0000000101,  CC: 0,    HH: 1,    Rec: 1\n"
            "      Resv: 40404040 40404040 40404040 40404040 40404040 40,     "
            "Owner-ID: 4040404040404040404040404040\n"
            "      Resv: 40404040 40404040 40,  DumpCond: 40404040 4040,      Resv: 40,      "
            "VolLblFlag: 40\n"
            "      Resv: 40404040 40404040 404040\n"
            "    LblVer: 40\n");
}

TEST(VolumeTest, LabelResults) {
  Bytes abc(80, 0x40);
  std::memcpy(abc.data(), kVol1.data(), 4);
  Bytes serial = ebcdic("ABC123");
  std::memcpy(abc.data() + 4, serial.data(), 6);
  const struct {
    const char* name;
    std::vector<Record> track0;  // empty: the track is cut short instead
    int err;                     // 0: read
  } rows[] = {
      {"found by key, not by record number",
       {keyedRecord(1, {0xE5, 0xD6, 0xD3, 0xF1, 0xF1}, Bytes(80)), dataRecord(2, Bytes(100, 0xE5)),
        keyedRecord(7, kVol1, abc)},
       0},
      {"no VOL1 key", {keyedRecord(1, {0xE5, 0xD6, 0xD3}, Bytes(80)), keyedRecord(2, {0xE5, 0xD6, 0xD3, 0xF2}, abc)}, 9999},
      {"data length 84", {keyedRecord(3, kVol1, Bytes(84, 0x40))}, 9998},
      {"data length 79", {keyedRecord(3, kVol1, Bytes(79, 0x40))}, 9998},
      {"track 0/0 unreadable", {}, EIO},
  };
  for (const auto& row : rows) {
    TestVolume vol;
    DiskLabel label;
    ASSERT_EQ(label.initialize(vol.file()), 0);  // a label read before
    ASSERT_EQ(row.track0.empty() ? ::truncate(vol.path().c_str(), 512 + 100) : (vol.setRecords(0, 0, row.track0), 0), 0);
    errno = 0;
    EXPECT_EQ(label.initialize(vol.file()), row.err ? -1 : 0) << row.name;
    EXPECT_EQ(errno, row.err) << row.name;
    char text[7] = "";  // a failure keeps the label read before
    EXPECT_TRUE(label.getSerial(text, true)) << row.name;
    EXPECT_STREQ(text, row.err ? "0X0123" : "ABC123") << row.name;
  }
  // The VTOC address with 28-bit cylinders: CC 0005, HH 0012, R 3.
  TestVolume vol;
  vol.patchLabel(11, {0x00, 0x05, 0x00, 0x12, 0x03});
  for (int large : {0, 1}) {
    vol.file().largeCylinders = large;
    DiskLabel label;
    ASSERT_EQ(label.initialize(vol.file()), 0);
    EXPECT_EQ(label.largeCylinders, large != 0);
    int c, h, r;
    ASSERT_TRUE(label.getVTOC(c, h, r));
    EXPECT_EQ(std::vector<int>({c, h, r}), large ? std::vector<int>({65541, 2, 3})
                                                 : std::vector<int>({5, 18, 3}));
    label.reset();
    EXPECT_FALSE(label.loaded || label.largeCylinders);
  }
  vol.file().largeCylinders = 0;
}

TEST(VolumeTest, VtocFirstRecordResults) {
  const struct {
    const char* name;
    Bytes vtocLoc;  // CCHHR in the label
    int err;
  } rows[] = {
      {"record not on the track", {0, 0, 0, 1, 0x63}, 9999},
      {"filler record, key 0 data 4096", {0, 0, 0, 5, 1}, 9998},
      {"the Format-5 DSCB", {0, 0, 0, 1, 2}, 9997},
      {"an empty DSCB", {0, 0, 0, 1, 4}, 9997},
      {"format byte 04: type 4, no Format-4 class", {0, 0, 0, 1, 5}, 9997},
      {"cylinder beyond the volume", {0x27, 0x0F, 0, 0, 1}, EIO},
  };
  for (const auto& row : rows) {
    TestVolume vol;
    vol.writeVtoc({format5Dscb({}), format1Dscb(dataSet("KEEP.ME")), emptyDscb(), formatIdDscb(0x04)});
    DiskLabel label;
    ASSERT_EQ(label.initialize(vol.file()), 0);
    DiskVtoc vtoc;
    ASSERT_EQ(vtoc.initialize(vol.file(), label), 0);
    const Format4DSCB* f4 = vtoc.f4.get();
    std::memcpy(label.labelData + 11, row.vtocLoc.data(), 5);
    errno = 0;
    EXPECT_EQ(vtoc.initialize(vol.file(), label), -1) << row.name;
    EXPECT_EQ(errno, row.err) << row.name;
    EXPECT_EQ(vtoc.f4.get(), f4) << row.name;  // what was loaded stays
    EXPECT_EQ(vtoc.f1List.count, 1) << row.name;
    DiskVtoc fresh;
    EXPECT_EQ(fresh.initialize(vol.file(), label), -1) << row.name;
    EXPECT_FALSE(fresh.f4.isSet()) << row.name;
  }
  TestVolume vol;
  DiskLabel unread;
  DiskVtoc vtoc;
  errno = 0;
  EXPECT_EQ(vtoc.initialize(vol.file(), unread), -1);
  EXPECT_EQ(errno, ENOENT);
}

TEST(VolumeTest, VtocWalk) {
  using Setup = std::function<void(TestVolume&)>;
  auto many = [](int n) {
    std::vector<Dscb> d;
    for (int i = 0; i < n; ++i) d.push_back(format1Dscb(dataSet("DS" + std::to_string(i))));
    return d;
  };
  const struct {
    const char* name;
    Setup setup;
    int err;
    const char* printed;
    int f1, f8, f5, f0, unknown;
  } rows[] = {
      {"fresh volume: LastDSCB 0 stops at the next track", [](TestVolume&) {}, 0, "", 0, 0, 0, 0, 0},
      {"limit on the Format-4 track: the rest of that track",
       [](TestVolume& v) { v.setLastDscb(Cchhr{0, 1, 1}); }, 0, "", 0, 0, 1, 10, 0},
      {"unknown formats counted, chain DSCBs not",
       [](TestVolume& v) {
         v.writeVtoc({formatIdDscb(0xF2), formatIdDscb(0xF7), formatIdDscb(0xF4), formatIdDscb(0xF6),
                      formatIdDscb(0xFA), formatIdDscb(0x01), formatIdDscb(0x05), formatIdDscb(0x08),
                      format3Dscb({}), format9Dscb({}), emptyDscb(), format8Dscb(dataSet("E"))});
       },
       0, "", 0, 1, 0, 1, 8},
      {"three tracks of ten", [&](TestVolume& v) { v.writeVtoc(many(30), 10); }, 0, "", 30, 0, 0, 0, 0},
      {"limit inside the second track: that whole track",
       [&](TestVolume& v) { v.setLastDscb(v.writeVtoc(many(30), 10)[14]); }, 0, "", 20, 0, 0, 0, 0},
      {"walk ends after 5000 DSCBs",
       [](TestVolume& v) { v.writeVtoc(std::vector<Dscb>(5003, emptyDscb())); }, 0, "", 0, 0, 0, 5000, 0},
      {"fillers beyond the limit end the walk",
       [](TestVolume& v) { v.writeVtoc({format1Dscb(dataSet("ONLY"))}); }, 0, "", 1, 0, 0, 0, 0},
      {"a keyed 8/256 block inside the walk",
       [](TestVolume& v) {
         v.writeVtoc({format5Dscb({}), format1Dscb(dataSet("BEFORE")), emptyDscb(), emptyDscb(),
                      format1Dscb(dataSet("AFTER"))});
         v.putRecord(0, 1, keyedRecord(5, Bytes(8, 0xC1), Bytes(256)));
       },
       9995, " key len err 9995 8 cc hh r is 0 1 5\n", 1, 0, 1, 1, 0},
      {"a 44/96 count field running past the record area",
       [](TestVolume& v) {
         v.writeVtoc({});  // the Format-4 DSCB alone on 0/1
         v.setLastDscb(Cchhr{0, 2, 1});
         ASSERT_EQ(v.dscbsPerTrack(), 255);  // 383 by bytes
         v.setRecords(0, 2, std::vector<Record>(383, dscbRecord(1, emptyDscb())));
         EmulatedCKDfile& f = v.file();
         ASSERT_EQ(f.readTrack(0, 2, 0), 0);
         unsigned char* p = const_cast<unsigned char*>(
             static_cast<const unsigned char*>(f.locate(EmulatedCKDfile::ORIENT_EOT, 0, 2, 0)));
         const unsigned char count[8] = {0, 0, 0, 2, 200, 44, 0, 96};  // 0/2/200, KL 44, DL 96
         std::memcpy(p, count, 8);
         unsigned char* limit = f.trackBuffer + f.trackSlotSize - 24;
         std::memset(p + 8, 0, static_cast<size_t>(limit - p - 8));
         std::memset(limit, 0xFF, 8);
         f.trackDirty = 1;
         ASSERT_EQ(f.writeTrack(), 0);
       },
       9995, " key len err 9995 44 cc hh r is 0 2 200\n", 0, 0, 0, 383, 0},
  };
  for (const auto& row : rows) {
    TestVolume vol;
    row.setup(vol);
    DiskVtoc vtoc;
    Outcome o = readVtoc(vol, vtoc);
    EXPECT_EQ(o.rc, row.err ? -1 : 0) << row.name;
    EXPECT_EQ(o.err, row.err) << row.name;
    EXPECT_EQ(o.printed, row.printed) << row.name;
    EXPECT_EQ(std::vector<int>({vtoc.f1List.count, vtoc.f8List.count, vtoc.f5List.count,
                                vtoc.f0Count, vtoc.unknownCount}),
              std::vector<int>({row.f1, row.f8, row.f5, row.f0, row.unknown}))
        << row.name;
    ASSERT_TRUE(vtoc.f4.isSet()) << row.name;
    EXPECT_EQ(vtoc.f4->cyl * 100 + vtoc.f4->head * 10 + vtoc.f4->rec, 11) << row.name;
  }
}

TEST(VolumeTest, VtocWalkOnNineteenHeadsNumbersTracksCylinderTimesFifteen) {
  TestVolume vol(EmulatedCKDfile::D300, 2);
  vol.setLastDscb(Cchhr{0, 18, 1});  // walk limit: index 18
  for (uint16_t h = 2; h < 19; ++h) vol.setRecords(0, h, {});  // record zero only: passed over
  for (uint16_t h = 0; h < 19; ++h) vol.setRecords(1, h, {});
  const struct {
    uint32_t c;
    uint16_t h;
    const char* name;
    bool walked;
  } at[] = {{0, 18, "AT.INDEX.18", true}, {1, 0, "AT.INDEX.15", true}, {1, 4, "AT.INDEX.19", false}};
  for (const auto& a : at) vol.setRecords(a.c, a.h, {dscbRecord(1, format1Dscb(dataSet(a.name)))});
  DiskVtoc vtoc;
  ASSERT_EQ(readVtoc(vol, vtoc).rc, 0);
  for (const auto& a : at) EXPECT_EQ(vtoc.locateDataset(a.name) != nullptr, a.walked) << a.name;
  EXPECT_EQ(vtoc.f1List.count, 2);
  EXPECT_EQ(vtoc.f5List.count, 1);
}

TEST(VolumeTest, VtocChainsListingAndLookup) {
  TestVolume vol;
  // 0/1: 2 F1 CHAINED (-> 6), 3 F1 LOOPED (-> 8), 4 F1 NOWHERE, 5 F1 WRONG (-> 3),
  // 6 F3 (-> 7), 7 F3, 8 F3 (-> 9), 9 F3 (-> 8), 10 F1 SELF (-> 11), 11 F3 (-> 11),
  // 12 F8 BIG (-> F9 13), 13 F9 (F3 15; -> 14), 14 F9 (F3s 16, 0/9/9; -> 13), 15 F3,
  // 16 F3 (-> 17), 17 F3, 18 F8 ODD (-> 15: no Format-9), 19 F5.
  DataSetLayout chained = dataSet("CHAINED", Cchhr{0, 1, 6});
  chained.extents = {{1, 0, 1, 0}, {1, 1, 1, 1}, {1, 2, 1, 2}, {1, 3, 1, 4}, {2, 0, 2, 14}};
  const std::string longName = "A2345678.B2345678.C2345678.D2345678.E2345678";  // 44
  vol.writeVtoc({format1Dscb(chained), format1Dscb(dataSet("LOOPED", Cchhr{0, 1, 8})),
                 format1Dscb(dataSet(longName, Cchhr{0, 7, 99})),
                 format1Dscb(dataSet("WRONG", Cchhr{0, 1, 3})),
                 format3Dscb({{1, 3, 1, 4}, {2, 0, 2, 14}}, Cchhr{0, 1, 7}), format3Dscb({}),
                 format3Dscb({}, Cchhr{0, 1, 9}), format3Dscb({}, Cchhr{0, 1, 8}),
                 format1Dscb(dataSet("SELF", Cchhr{0, 1, 11})), format3Dscb({}, Cchhr{0, 1, 11}),
                 format8Dscb(dataSet("BIG", Cchhr{0, 1, 13})),
                 format9Dscb({Cchhr{0, 1, 15}}, Cchhr{0, 1, 14}),
                 format9Dscb({Cchhr{0, 1, 16}, Cchhr{0, 9, 9}}, Cchhr{0, 1, 13}), format3Dscb({}),
                 format3Dscb({}, Cchhr{0, 1, 17}), format3Dscb({}),
                 format8Dscb(dataSet("ODD", Cchhr{0, 1, 15})), format5Dscb({{3, 1, 2}})});
  vol.file().largeCylinders = 1;  // cylinders below 65536 read the same either way
  DiskVtoc vtoc;
  Outcome o = readVtoc(vol, vtoc);
  vol.file().largeCylinders = 0;
  ASSERT_EQ(o.rc, 0);
  auto recs = [](const GenericDSCB* d, auto& list) {
    std::vector<int> r;
    for (int i = 0; i < list.count; ++i) {
      r.push_back(list[i]->rec);
      EXPECT_TRUE(list[i]->largeCylinders);
    }
    EXPECT_TRUE(d->largeCylinders);
    return r;
  };
  const struct {
    const char* name;
    std::vector<int> f3;
  } f1s[] = {{"CHAINED", {6, 7}}, {"LOOPED", {8, 9}}, {longName.c_str(), {}}, {"WRONG", {}},
             {"SELF", {11}}};
  for (const auto& f : f1s) {
    const Format1DSCB* d = vtoc.locateDataset(f.name);
    ASSERT_NE(d, nullptr) << f.name;
    EXPECT_EQ(recs(d, d->f3List), f.f3) << f.name;
  }
  EXPECT_EQ(vtoc.locateDataset((longName + "XYZ").c_str()), vtoc.f1List[2]);  // 44 count
  for (const char* absent : {"chained", "CHAINE", "", "BIG"}) {
    EXPECT_EQ(vtoc.locateDataset(absent), nullptr) << absent;
  }
  EXPECT_EQ(vtoc.locateDataset(nullptr), nullptr);
  int lc, lh, hc, hh, lt, ht;  // extent 5 of CHAINED: slot 2 of its first Format-3
  EXPECT_EQ(vtoc.f1List[0]->getExtent(4, lc, lh, hc, hh, lt, ht), 15);
  EXPECT_EQ(lc, 2);
  ASSERT_EQ(vtoc.f8List.count, 2);
  EXPECT_EQ(recs(vtoc.f8List[0], vtoc.f8List[0]->f9List), std::vector<int>({13, 14}));
  EXPECT_EQ(recs(vtoc.f8List[0], vtoc.f8List[0]->f3List), std::vector<int>({15, 16, 17}));
  EXPECT_EQ(vtoc.f8List[1]->f9List.count + vtoc.f8List[1]->f3List.count, 0);
  EXPECT_TRUE(vtoc.f4->largeCylinders && vtoc.f5List[0]->largeCylinders);
  EXPECT_EQ(vtoc.unknownCount + vtoc.f0Count, 0);

  // The listing: Format-4, Format-5 (5 deeper), Format-1, Format-8, each with
  // its chain (Format-3 4 deeper; Format-9 then Format-3 6 deeper), summary.
  const std::string text = printed(vtoc);
  const char* order[] = {
      "Format 4 DSCB at 0/1/1 (000000/01/01) --\n",
      "Format 5 DSCB at 0/1/19 (000000/01/13) --\n       DSCBKey: 05050505\n",
      "Format 1 DSCB at 0/1/2 (000000/01/02) --\n        DSname: CHAINED ",
      "\n\nFormat 3 DSCB at 0/1/6 (000000/01/06) --\n        DSCBKey: 03030303\n",
      "Format 8 DSCB at 0/1/12 (000000/01/0C) --\n",
      "\n\nFormat 9 DSCB at 0/1/13 (000000/01/0D) --\n         DSCBKey: 09\n",
      "\n\nFormat 3 DSCB at 0/1/15 (000000/01/0F) --\n          DSCBKey: 03030303\n",
      "Format 8 DSCB at 0/1/18 (000000/01/12) --\n"};
  size_t at = 0;
  for (const char* part : order) {
    size_t found = text.find(part, at);
    EXPECT_NE(found, std::string::npos) << part;
    if (found != std::string::npos) at = found;
  }
  const std::string tail = "\n" + std::string(100, '=') +
                           "\n\nFormat-1 DSCBs: 5,  Format-8 DSCBs: 2\nFormat-5 DSCBs: 1\n"
                           "Format-0 DSCBs: 0,  Unknown DSCBs: 0\n\nEnd of VTOC list\n";
  EXPECT_EQ(text.substr(text.size() - tail.size()), tail);

  // Without reset, a second initialize files the walk's DSCBs again and
  // follows the chains of every data set DSCB held, the earlier ones included.
  DiskLabel label;
  ASSERT_EQ(label.initialize(vol.file()), 0);
  ASSERT_EQ(vtoc.initialize(vol.file(), label), 0);
  EXPECT_EQ(vtoc.f1List.count, 10);
  EXPECT_EQ(vtoc.f1List[0]->f3List.count, 4);
  EXPECT_EQ(vtoc.f1List[5]->f3List.count, 2);
  EXPECT_EQ(vtoc.f8List[0]->f9List.count, 4);
  EXPECT_EQ(vtoc.f8List[2]->f3List.count, 3);
  EXPECT_FALSE(vtoc.f4->largeCylinders);
  int capacity = vtoc.f1List.capacity;
  vtoc.reset();
  EXPECT_FALSE(vtoc.f4.isSet());
  EXPECT_EQ(vtoc.f1List.count + vtoc.f5List.count + vtoc.f8List.count + vtoc.f0Count + vtoc.unknownCount, 0);
  EXPECT_EQ(vtoc.f1List.capacity, capacity);  // storage kept
  RexxString out("kept");
  EXPECT_THROW(vtoc.print(out), const char*);  // no Format-4 DSCB
  EXPECT_STREQ(out.text(), "kept");

  // A chain reaches the highest record number, 255.
  std::vector<Record> full(254, dscbRecord(1, emptyDscb()));
  full.push_back(dscbRecord(255, format3Dscb({})));
  vol.setRecords(0, 5, full);
  vol.writeVtoc({format1Dscb(dataSet("LAST", Cchhr{0, 5, 255}))});
  ASSERT_EQ(readVtoc(vol, vtoc).rc, 0);
  EXPECT_EQ(vtoc.f1List[0]->f3List.count, 1);
}

TEST(VolumeTest, DskVolumeOpenResults) {
  enum How { kPath, kPathReadWrite, kBorrowed, kNull, kTwice };
  auto oldHeader = [](TestVolume& v) {  // format level 0: an older header the file would rewrite
    v.close();
    FILE* f = std::fopen(v.path().c_str(), "r+b");
    std::fseek(f, 17, SEEK_SET);
    std::fputc(0, f);
    std::fclose(f);
  };
  const struct {
    const char* name;
    How how;
    std::function<void(TestVolume&)> damage;
    int rc, err;
    const char* printed;
    bool fileHeld, labelLoaded;
  } rows[] = {
      {"by path", kPath, nullptr, 0, -1, "", true, true},
      {"borrowed", kBorrowed, nullptr, 0, -1, "", true, true},
      {"null file", kNull, nullptr, -1, ENOENT, "", false, false},
      {"open on an open handle", kTwice, nullptr, -1, EEXIST, "", true, true},
      {"missing file", kPath, [](TestVolume& v) { v.close(), ::unlink(v.path().c_str()); },
       EmulatedCKDfile::kOpenCannotOpen, -1, "", false, false},
      {"file too short for a header", kPath, [](TestVolume& v) { v.close(), (void)::truncate(v.path().c_str(), 12); },
       EmulatedCKDfile::kOpenBadHeader, -1, "", false, false},
      {"header update pending, read-only", kPath, oldHeader, 1, -1, "", false, false},
      {"header update pending, read-write", kPathReadWrite, oldHeader, 0, -1, "", true, true},
      {"no label", kPath, [](TestVolume& v) { v.setRecords(0, 0, {}); }, -1, EIO,
       "lbl.initialize errno is 9999\n", true, false},
      {"VTOC not starting with a Format-4", kBorrowed, [](TestVolume& v) { v.patchLabel(15, {2}); },
       -1, EIO, "vtoc.initialize errno is 9997\n", true, true},
  };
  for (const auto& row : rows) {
    TestVolume vol;
    if (row.damage) row.damage(vol);
    if (row.how != kBorrowed && vol.file().fileDescriptor >= 0) vol.close();
    DskVolume v;
    EmulatedCKDfile* first = nullptr;
    if (row.how == kTwice) {
      ASSERT_EQ(v.open(vol.path().c_str(), true), 0);
      first = v.file;
    }
    testing::internal::CaptureStdout();
    errno = -1;
    int rc = row.how == kNull       ? v.open(static_cast<EmulatedCKDfile*>(nullptr))
             : row.how == kBorrowed ? v.open(&vol.file())
                                    : v.open(vol.path().c_str(), row.how != kPathReadWrite);
    int err = errno;
    EXPECT_EQ(testing::internal::GetCapturedStdout(), row.printed) << row.name;
    EXPECT_EQ(rc, row.rc) << row.name;
    if (row.err >= 0) { EXPECT_EQ(err, row.err) << row.name; }
    EXPECT_EQ(v.file != nullptr, row.fileHeld) << row.name;
    EXPECT_EQ(v.ownsFile, row.fileHeld && row.how != kBorrowed) << row.name;
    EXPECT_EQ(v.label.loaded, row.labelLoaded) << row.name;
    if (first != nullptr) {
      EXPECT_EQ(v.file, first) << row.name;
      EXPECT_EQ(v.open(&vol.file()), -1) << "a borrowed file must not replace an owned one";
      EXPECT_EQ(v.open(static_cast<EmulatedCKDfile*>(nullptr)), -1);
      EXPECT_EQ(v.file, first) << "an open handle keeps its file";
      EXPECT_EQ(v.file->readOnly, 1);
    }
    EXPECT_EQ(v.close(), 0) << row.name;
    EXPECT_TRUE(v.file == nullptr && !v.ownsFile && !v.label.loaded && !v.vtoc.f4.isSet()) << row.name;
    EXPECT_EQ(v.close(), 0) << row.name;
    if (row.how == kBorrowed) { EXPECT_EQ(vol.file().readTrack(0, 1, 0), 0) << row.name << ": stays open"; }
  }
}

}  // namespace
