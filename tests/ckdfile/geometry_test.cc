#include <gtest/gtest.h>

#include "ckdfile/emulated_ckd_file.h"

namespace {

using T = EmulatedCKDfile;

// The device table as published: type, file code, default cylinders, heads,
// slot size in bytes (not units), track capacity, cells.
struct Row {
  uint32_t type;
  unsigned char fileCode;
  unsigned int cylinders;
  unsigned short heads;
  unsigned int slotBytes;
  unsigned int capacity;
  unsigned short cells;
};
const Row kTable[] = {
    {0xD100, 0xA1, 48, 8, 14848, 14660, 1},   {0xD130, 0xA2, 200, 10, 4096, 3625, 1},
    {0xD160, 0xA3, 200, 20, 7680, 7294, 1},   {0xD200, 0xA4, 5, 20, 2560, 2000, 10},
    {0xD300, 0xA5, 404, 19, 13312, 13030, 1}, {0xD400, 0xA6, 348, 12, 8704, 8368, 1},
    {0xD430, 0xA7, 555, 30, 19456, 19069, 1}, {0xD460, 0xA8, 959, 12, 35840, 35616, 1},
    {0xD500, 0xA9, 885, 15, 47616, 47476, 1}, {0xD600, 0xAA, 1113, 15, 56832, 56664, 1},
    {0xD700, 0xAB, 1440, 15, 46592, 46456, 1},
};

TEST(DeviceTable, EveryTypeGivesItsPublishedGeometry) {
  for (int i = 0; i < 11; ++i) {
    const Row& r = kTable[i];
    SCOPED_TRACE(r.type);
    EXPECT_EQ(r.type, T::deviceTable[i].type);  // fixed order
    T f;
    ASSERT_TRUE(f.setType(T::CKDtype(r.type)));
    EXPECT_EQ(r.cylinders, f.cylinders);
    EXPECT_EQ(r.heads, f.tracksPerCylinder);
    EXPECT_EQ(r.slotBytes, f.trackSlotSize);
    EXPECT_EQ(r.capacity, f.trackCapacity);
    EXPECT_EQ(r.cells, f.cellCount);
    EXPECT_NE(nullptr, f.trackBuffer);
    EXPECT_EQ(-1, f.fileDescriptor);
    EXPECT_EQ(0xFFFFFFFFu, f.currentCyl);
    const T::DeviceInfo* byCode = T::findDeviceByFileCode(r.fileCode);
    ASSERT_NE(nullptr, byCode);
    EXPECT_EQ(r.type, byCode->type);
  }
  EXPECT_EQ(0u, T::deviceTable[11].type);  // closing row
  EXPECT_EQ(nullptr, T::findDevice(0));
  EXPECT_EQ(nullptr, T::findDevice(0xD650));
  EXPECT_EQ(nullptr, T::findDeviceByFileCode(0));  // the closing row is not a match
  EXPECT_EQ(nullptr, T::findDeviceByFileCode(0xAC));
}

TEST(ParseType, AcceptedTexts) {
  T::CKDtype type;
  int model = 99;
  EXPECT_TRUE(T::parseType("  D600-3", type, model));
  EXPECT_EQ(T::D600, type);
  EXPECT_EQ(3, model);
  EXPECT_TRUE(T::parseType("D600", type, model));
  EXPECT_EQ(0, model);
  EXPECT_TRUE(T::parseType("D600-a", type, model));
  EXPECT_EQ(59, model);
  EXPECT_TRUE(T::parseType("D600-A", type, model));
  EXPECT_EQ(59, model);
  EXPECT_TRUE(T::parseType("D200-9", type, model));
  EXPECT_EQ(T::D200, type);
  EXPECT_TRUE(T::parseType("D600- 27", type, model));  // strtol skips blanks
  EXPECT_EQ(27, model);
}

TEST(ParseType, BadModelKeepsTheType) {
  for (const char* text : {"D600-0", "D600-", "D600-3x", "D600--2", "D600x", "D600-AA",
                           "D600-2147483648", "D600-4294967296"}) {  // stored as INT_MIN, 0
    SCOPED_TRACE(text);
    T::CKDtype type;
    int model = 5;
    EXPECT_FALSE(T::parseType(text, type, model));
    EXPECT_EQ(T::D600, type);
    EXPECT_EQ(-1, model);
  }
}

// The model is converted as a long and stored in the int `model`; the stored
// value decides. Beyond the int range it keeps the low 32 bits.
TEST(ParseType, ModelIsTestedAfterStoringItInAnInt) {
  T::CKDtype type;
  int model = 5;
  EXPECT_TRUE(T::parseType("D600-4294967297", type, model));  // 2^32 + 1
  EXPECT_EQ(1, model);
  EXPECT_TRUE(T::parseType("D600-99999999999", type, model));  // 0x17'4876E7FF
  EXPECT_EQ(0x4876E7FF, model);
  EXPECT_TRUE(T::parseType("D600-2147483647", type, model));
  EXPECT_EQ(2147483647, model);
}

TEST(ParseType, NoMatchingTypeGivesZero) {
  for (const char* text : {"d600", "Z999", "", "   ", "D60", "D650"}) {
    SCOPED_TRACE(text);
    T::CKDtype type = T::D100;
    int model = 5;
    EXPECT_FALSE(T::parseType(text, type, model));
    EXPECT_EQ(0u, static_cast<uint32_t>(type));
    EXPECT_EQ(-1, model);
  }
}

TEST(SetType, UnknownTypeLeavesTheObjectIdle) {
  T f;
  EXPECT_FALSE(f.setType(T::CKDtype(0)));
  EXPECT_FALSE(f.setType(T::CKDtype(0xD650)));
  EXPECT_EQ(0u, static_cast<uint32_t>(f.deviceType));
  EXPECT_EQ(nullptr, f.trackBuffer);
  EXPECT_EQ(0u, f.trackSlotSize);
}

TEST(SetType, TypedObjectIsNeverRetyped) {
  T f;
  ASSERT_TRUE(f.setType(T::D500));
  unsigned char* buffer = f.trackBuffer;
  f.setCylinders(1000);
  EXPECT_FALSE(f.setType(T::D600));
  EXPECT_TRUE(f.setType(T::D500));
  EXPECT_EQ(T::D500, f.deviceType);
  EXPECT_EQ(buffer, f.trackBuffer);  // not reallocated
  EXPECT_EQ(1000u, f.cylinders);     // not reset to the default
  EXPECT_EQ(47616u, f.trackSlotSize);
}

TEST(SetModel, D600ModelsAndLargeCylinders) {
  T f;
  ASSERT_TRUE(f.setType(T::D600));
  EXPECT_EQ(1, f.model);
  f.setCylinders(1114);
  EXPECT_EQ(2, f.model);
  f.setCylinders(3000);
  EXPECT_EQ(3, f.model);
  f.setCylinders(10016);
  EXPECT_EQ(3, f.model);
  f.setCylinders(10017);
  EXPECT_EQ(9, f.model);
  f.setCylinders(65520);
  EXPECT_EQ(9, f.model);
  EXPECT_EQ(0, f.largeCylinders);
  EXPECT_EQ(0, f.extendedVolume);
  f.setCylinders(65521);
  EXPECT_EQ(9, f.model);
  EXPECT_EQ(1, f.largeCylinders);
  EXPECT_EQ(1, f.extendedVolume);
  f.setCylinders(100);  // only init clears the flags
  EXPECT_EQ(1, f.largeCylinders);
  EXPECT_EQ(1, f.model);
}

TEST(SetModel, BoundsOfTheOtherTypes) {
  struct Case {
    uint32_t type;
    unsigned int cylinders;
    unsigned short model;
  };
  const Case cases[] = {
      {0xD100, 48, 1},   {0xD100, 49, 2},    {0xD300, 404, 1},  {0xD300, 405, 11},
      {0xD400, 348, 35}, {0xD400, 349, 70},  {0xD500, 885, 1},  {0xD500, 886, 2},
      {0xD500, 1770, 2}, {0xD500, 1771, 3},  {0xD700, 1440, 1}, {0xD700, 1441, 2},
      {0xD130, 999, 0},  {0xD160, 1, 0},     {0xD430, 9, 0},    {0xD460, 5000, 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << std::hex << c.type << std::dec << " " << c.cylinders);
    T f;
    ASSERT_TRUE(f.setType(T::CKDtype(c.type)));
    f.setCylinders(c.cylinders);
    EXPECT_EQ(c.model, f.model);
    EXPECT_EQ(0, f.largeCylinders);
  }
  T d400;
  ASSERT_TRUE(d400.setType(T::D400));
  EXPECT_EQ(35, d400.model);  // from the default count
  T d200;
  ASSERT_TRUE(d200.setType(T::D200));
  EXPECT_EQ(10, d200.cellCount);
  EXPECT_EQ(5u, d200.cylinders);
  EXPECT_EQ(20, d200.tracksPerCylinder);
  EXPECT_EQ(2560u, d200.trackSlotSize);
  EXPECT_EQ(0, d200.model);
}

TEST(Init, ReturnsToIdleAndForgetsLargeCylinders) {
  T f;
  ASSERT_TRUE(f.setType(T::D600));
  f.setCylinders(70000);
  ASSERT_EQ(1, f.largeCylinders);
  f.latestVersion = 7;
  f.init(true);
  EXPECT_EQ(0, f.largeCylinders);
  EXPECT_EQ(0, f.extendedVolume);
  EXPECT_EQ(nullptr, f.trackBuffer);
  EXPECT_EQ(0u, static_cast<uint32_t>(f.deviceType));
  EXPECT_EQ(-1, f.activeVersion);
  EXPECT_EQ(7, f.latestVersion);  // not touched by init
  EXPECT_EQ(0u, f.cylinders);
  ASSERT_TRUE(f.setType(T::D600));
  EXPECT_EQ(0, f.largeCylinders);  // a later small volume does not inherit the flag
}

}  // namespace
