#include "volume/disk_label.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/volume_builder.h"

namespace {

using namespace ckdvol_test;

const std::vector<unsigned char> kVol1 = {0xE5, 0xD6, 0xD3, 0xF1};  // "VOL1"

std::string dump(const DiskLabel& label) {
  RexxString out("before|");
  label.print(out);
  return out.text();
}

TEST(DiskLabel, FreshObjectHoldsNothing) {
  DiskLabel label;
  EXPECT_FALSE(label.loaded);
  EXPECT_FALSE(label.largeCylinders);
  for (unsigned char b : label.labelData) ASSERT_EQ(0, b);

  char serial[8];
  std::memset(serial, '#', sizeof serial);
  EXPECT_FALSE(label.getSerial(serial, true));
  EXPECT_FALSE(label.getSerial(serial, false));
  for (char c : serial) EXPECT_EQ('#', c);  // untouched

  int cyl = 7, head = 7, rec = 7;
  EXPECT_FALSE(label.getVTOC(cyl, head, rec));
  EXPECT_EQ(-1, cyl);
  EXPECT_EQ(-1, head);
  EXPECT_EQ(-1, rec);
}

TEST(DiskLabel, DumpOfAResetLabelIsSevenLinesOfZeros) {
  DiskLabel label;
  // Key and Serial translate zero bytes, which end the text at once.
  const std::string expected =
      "before|Volume label --\n"
      "       Key: \n"
      "    Serial: ,  Security: 00\n"
      "  VTOC-loc: 0000000000,  CC: 0,    HH: 0,    Rec: 0\n"
      "      Resv: 00000000 00000000 00000000 00000000 00000000 00,     "
      "Owner-ID: 0000000000000000000000000000\n"
      "      Resv: 00000000 00000000 00,  DumpCond: 00000000 0000,      Resv: 00,      "
      "VolLblFlag: 00\n"
      "      Resv: 00000000 00000000 000000\n"
      "    LblVer: 00\n";
  EXPECT_EQ(expected, dump(label));
}

TEST(DiskLabel, ReadsTheLabelThatInitialisationWrote) {
  TestVolume vol;
  DiskLabel label;
  ASSERT_EQ(0, label.initialize(vol.file()));
  EXPECT_TRUE(label.loaded);
  EXPECT_FALSE(label.largeCylinders);

  // The data area exactly as initialisation writes it.
  unsigned char expected[80];
  std::memset(expected, 0x40, sizeof expected);
  const unsigned char head[16] = {0xE5, 0xD6, 0xD3, 0xF1,              // "VOL1"
                                  0xF0, 0xE7, 0xF0, 0xF1, 0xF2, 0xF3,  // serial "0X0123"
                                  0x40,                                // security
                                  0x00, 0x00, 0x00, 0x01, 0x01};       // VTOC at 0/1/1
  std::memcpy(expected, head, sizeof head);
  EXPECT_EQ(0, std::memcmp(expected, label.labelData, sizeof expected));

  char raw[8];
  std::memset(raw, '#', sizeof raw);
  ASSERT_TRUE(label.getSerial(raw, false));
  EXPECT_EQ(0, std::memcmp(raw, "\xF0\xE7\xF0\xF1\xF2\xF3", 6));
  EXPECT_EQ('#', raw[6]);  // exactly six bytes written

  char text[8];
  std::memset(text, '#', sizeof text);
  ASSERT_TRUE(label.getSerial(text, true));
  EXPECT_STREQ("0X0123", text);
  EXPECT_EQ('#', text[7]);  // seven bytes written, the last a NUL

  int cyl, hd, rec;
  ASSERT_TRUE(label.getVTOC(cyl, hd, rec));
  EXPECT_EQ(0, cyl);
  EXPECT_EQ(1, hd);
  EXPECT_EQ(1, rec);

  const std::string expectedDump =
      "before|Volume label --\n"
      "       Key: VOL1\n"
      "    Serial: 0X0123,      Security: 40\n"
      "  VTOC-loc: 0000000101,  CC: 0,    HH: 1,    Rec: 1\n"
      "      Resv: 40404040 40404040 40404040 40404040 40404040 40,     "
      "Owner-ID: 4040404040404040404040404040\n"
      "      Resv: 40404040 40404040 40,  DumpCond: 40404040 4040,      Resv: 40,      "
      "VolLblFlag: 40\n"
      "      Resv: 40404040 40404040 404040\n"
      "    LblVer: 40\n";
  EXPECT_EQ(expectedDump, dump(label));
}

TEST(DiskLabel, DescriptorTableMatchesTheRecordLayout) {
  struct Row {
    const char* name;
    StructureField::SfldTyp type;
    int offset, length;
    bool newLine;
  };
  const Row rows[] = {
      {"Key", StructureField::SfldEbcdic, 0, 4, true},
      {"Serial", StructureField::SfldEbcdic, 4, 6, false},
      {"Security", StructureField::SfldHex, 10, 1, true},
      {"VTOC-loc", StructureField::SfldHex, 11, 5, false},
      {"CC", StructureField::SfldUint, 11, 2, false},
      {"HH", StructureField::SfldUint, 13, 2, false},
      {"Rec", StructureField::SfldUint, 15, 1, true},
      {"Resv", StructureField::SfldDump, 16, 21, false},
      {"Owner-ID", StructureField::SfldHex, 37, 14, true},
      {"Resv", StructureField::SfldDump, 51, 9, false},
      {"DumpCond", StructureField::SfldDump, 60, 6, false},
      {"Resv", StructureField::SfldDump, 66, 1, false},
      {"VolLblFlag", StructureField::SfldDump, 67, 1, true},
      {"Resv", StructureField::SfldDump, 68, 11, true},
      {"LblVer", StructureField::SfldDump, 79, 1, true},
  };
  const StructureField* desc = DiskLabel::getDesc();
  for (size_t i = 0; i < sizeof rows / sizeof rows[0]; ++i) {
    SCOPED_TRACE(i);
    EXPECT_STREQ(rows[i].name, desc[i].name);
    EXPECT_EQ(rows[i].type, desc[i].type);
    EXPECT_EQ(rows[i].offset, desc[i].offset);
    EXPECT_EQ(rows[i].length, desc[i].length);
    EXPECT_EQ(rows[i].newLine, desc[i].newLine);
  }
  const StructureField& end = desc[15];
  EXPECT_EQ(nullptr, end.name);
  EXPECT_EQ(StructureField::SfldEnd, end.type);
  EXPECT_EQ(0, end.offset);
  EXPECT_EQ(0, end.length);
  EXPECT_TRUE(end.newLine);
}

TEST(DiskLabel, FindsTheLabelByItsKeyWhateverItsRecordNumber) {
  TestVolume vol;
  std::vector<unsigned char> data(80, 0x40);
  std::memcpy(data.data(), kVol1.data(), 4);
  std::vector<unsigned char> serial = ebcdic("ABC123");
  std::memcpy(data.data() + 4, serial.data(), 6);
  vol.setRecords(0, 0, {
                           // Key length 5 starting with VOL1: never the label.
                           keyedRecord(1, {0xE5, 0xD6, 0xD3, 0xF1, 0xF1}, std::vector<unsigned char>(80)),
                           dataRecord(2, std::vector<unsigned char>(100, 0xE5)),
                           keyedRecord(7, kVol1, data),
                       });
  DiskLabel label;
  ASSERT_EQ(0, label.initialize(vol.file()));
  char text[7];
  ASSERT_TRUE(label.getSerial(text, true));
  EXPECT_STREQ("ABC123", text);
}

TEST(DiskLabel, MissingLabelGives9999) {
  TestVolume vol;
  vol.setRecords(0, 0, {keyedRecord(1, {0xE5, 0xD6, 0xD3}, std::vector<unsigned char>(80)),  // "VOL"
                        keyedRecord(2, {0xE5, 0xD6, 0xD3, 0xF2}, std::vector<unsigned char>(80))});
  DiskLabel label;
  errno = 0;
  EXPECT_EQ(-1, label.initialize(vol.file()));
  EXPECT_EQ(9999, errno);
  EXPECT_FALSE(label.loaded);
}

TEST(DiskLabel, WrongDataLengthGives9998) {
  TestVolume vol;
  std::vector<unsigned char> data(84, 0x40);
  vol.setRecords(0, 0, {keyedRecord(3, kVol1, data)});
  DiskLabel label;
  errno = 0;
  EXPECT_EQ(-1, label.initialize(vol.file()));
  EXPECT_EQ(9998, errno);
  EXPECT_FALSE(label.loaded);
}

TEST(DiskLabel, UnreadableFirstTrackGivesEioAndKeepsTheEarlierLabel) {
  TestVolume vol;
  DiskLabel label;
  ASSERT_EQ(0, label.initialize(vol.file()));
  unsigned char before[80];
  std::memcpy(before, label.labelData, 80);

  ASSERT_EQ(0, ::truncate(vol.path().c_str(), 512 + 100));  // track 0 is cut short
  errno = 0;
  EXPECT_EQ(-1, label.initialize(vol.file()));
  EXPECT_EQ(EIO, errno);
  EXPECT_TRUE(label.loaded);
  EXPECT_EQ(0, std::memcmp(before, label.labelData, 80));
  int cyl, head, rec;
  EXPECT_TRUE(label.getVTOC(cyl, head, rec));
  EXPECT_EQ(1, head);
}

TEST(DiskLabel, LargeCylinderVtocAddress) {
  TestVolume vol;
  vol.patchLabel(11, {0x00, 0x05, 0x00, 0x12, 0x03});  // CC 0005, HH 0012, R 3

  DiskLabel plain;
  ASSERT_EQ(0, plain.initialize(vol.file()));
  int cyl, head, rec;
  ASSERT_TRUE(plain.getVTOC(cyl, head, rec));
  EXPECT_EQ(5, cyl);
  EXPECT_EQ(18, head);
  EXPECT_EQ(3, rec);

  vol.file().largeCylinders = 1;  // as on a volume of more than 65520 cylinders
  DiskLabel large;
  ASSERT_EQ(0, large.initialize(vol.file()));
  vol.file().largeCylinders = 0;
  EXPECT_TRUE(large.largeCylinders);
  ASSERT_TRUE(large.getVTOC(cyl, head, rec));
  EXPECT_EQ(65541, cyl);
  EXPECT_EQ(2, head);
  EXPECT_EQ(3, rec);

  large.reset();
  EXPECT_FALSE(large.loaded);
  EXPECT_FALSE(large.largeCylinders);
  EXPECT_FALSE(large.getVTOC(cyl, head, rec));
}

}  // namespace
