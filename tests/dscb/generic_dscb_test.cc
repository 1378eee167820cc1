// GenericDSCB: the factory's choice of class, the record copy, the title
// line, the dump and description of unknown formats, and field lookup.
#include "dscb/generic_dscb.h"

#include <cstring>
#include <memory>
#include <string>
#include <typeinfo>

#include <gtest/gtest.h>

#include "dscb/format1_dscb.h"
#include "dscb/format3_dscb.h"
#include "dscb/format4_dscb.h"
#include "dscb/format5_dscb.h"
#include "dscb/format8_dscb.h"
#include "dscb/format9_dscb.h"

namespace {

// A 140-byte record whose byte i is i, with the format identifier `id`.
struct PatternRecord {
  unsigned char bytes[140];
  explicit PatternRecord(unsigned char id) {
    for (int i = 0; i < 140; ++i) bytes[i] = static_cast<unsigned char>(i);
    bytes[44] = id;
  }
};

std::unique_ptr<GenericDSCB> make(unsigned char id, int cyl = -1, int head = -1, int rec = -1) {
  PatternRecord r(id);
  return std::unique_ptr<GenericDSCB>(GenericDSCB::create(r.bytes, cyl, head, rec));
}

// The class of the object the factory makes for format identifier `id`.
const std::type_info& classOf(unsigned char id) {
  std::unique_ptr<GenericDSCB> d = make(id);
  const GenericDSCB& object = *d;
  return typeid(object);
}

TEST(GenericDSCBTest, FactoryPicksTheClassFromByte44) {
  EXPECT_EQ(classOf(0xF1), typeid(Format1DSCB));
  EXPECT_EQ(classOf(0xF3), typeid(Format3DSCB));
  EXPECT_EQ(classOf(0xF4), typeid(Format4DSCB));
  EXPECT_EQ(classOf(0xF5), typeid(Format5DSCB));
  EXPECT_EQ(classOf(0xF8), typeid(Format8DSCB));
  EXPECT_EQ(classOf(0xF9), typeid(Format9DSCB));
  const struct {
    unsigned char id;
    int type;
  } others[] = {{0xF2, 2}, {0xF6, 6}, {0xF7, 7}, {0x00, 0}, {0xC1, 1}, {0xFA, 10}};
  for (const auto& o : others) {
    EXPECT_EQ(classOf(o.id), typeid(GenericDSCB)) << static_cast<int>(o.id);
    std::unique_ptr<GenericDSCB> d = make(o.id, 3, 4, 5);
    EXPECT_EQ(d->getType(), o.type) << static_cast<int>(o.id);
    EXPECT_EQ(d->cyl, 3);
    EXPECT_EQ(d->head, 4);
    EXPECT_EQ(d->rec, 5);
    EXPECT_FALSE(d->largeCylinders);
  }
  // Every class gets the location too.
  std::unique_ptr<GenericDSCB> f1 = make(0xF1, 7, 8, 9);
  EXPECT_EQ(f1->cyl, 7);
  EXPECT_EQ(f1->head, 8);
  EXPECT_EQ(f1->rec, 9);
  EXPECT_EQ(f1->getType(), 1);
}

TEST(GenericDSCBTest, KeepsItsOwnCopy) {
  PatternRecord r(0xF2);
  std::unique_ptr<GenericDSCB> d(GenericDSCB::create(r.bytes, 0, 0, 1));
  std::memset(r.bytes, 0xEE, sizeof r.bytes);
  EXPECT_EQ(d->dscb[0], 0x00);
  EXPECT_EQ(d->dscb[44], 0xF2);
  EXPECT_EQ(d->dscb[139], 139);
  EXPECT_EQ(d->getType(), 2);
}

TEST(GenericDSCBTest, Titles) {
  RexxString out;
  make(0xF1, 0, 1, 3)->fmtTitle(out);
  EXPECT_STREQ(out.text(), "Format 1 DSCB at 0/1/3 (000000/01/03) --\n");

  out.copy("", -1);
  make(0xF9, 70000, 14, 255)->fmtTitle(out);
  EXPECT_STREQ(out.text(), "Format 9 DSCB at 70000/14/255 (011170/0E/FF) --\n");

  out.copy("", -1);
  PatternRecord r(0xF3);
  Format3DSCB direct(r.bytes);  // made without a location
  direct.fmtTitle(out);
  EXPECT_STREQ(out.text(), "Format 3 DSCB --\n");

  out.copy("", -1);
  PatternRecord zero(0x00);
  std::memset(zero.bytes, 0, sizeof zero.bytes);
  std::unique_ptr<GenericDSCB> z(GenericDSCB::create(zero.bytes, -1, -1, -1));
  EXPECT_EQ(z->getType(), 0);
  z->fmtTitle(out);
  EXPECT_STREQ(out.text(), "Format 0 DSCB --\n");
}

TEST(GenericDSCBTest, UnknownFormatDumpAndDescription) {
  RexxString out("before\n");
  make(0xF7, 0, 0, 1)->print(out, 0);
  EXPECT_STREQ(out.text(),
               "before\n"
               "Format 7 DSCB at 0/0/1 (000000/00/01) --\n"
               "Unknown DSCB type --\n"
               " Key: 000102030405060708090A0B0C0D0E0F101112131415161718191A1B1C1D1E1F\n"
               "      202122232425262728292A2B\n"
               "Data: F72D2E2F303132333435363738393A3B3C3D3E3F404142434445464748494A4B\n"
               "      4C4D4E4F505152535455565758595A5B5C5D5E5F606162636465666768696A6B\n"
               "      6C6D6E6F707172737475767778797A7B7C7D7E7F808182838485868788898A8B\n");

  out.copy("", -1);
  make(0xF2)->printDesc(out);
  EXPECT_STREQ(out.text(),
               "Unknown DSCB type --: Offset-0(0x0), Length-0, Type-17, NL-Yes\n"
               "                 Key: Offset-0(0x0), Length-44, Type-4, NL-Yes\n"
               "                Data: Offset-44(0x2C), Length-96, Type-4, NL-Yes\n"
               "                      Total length: 140\n");
}

// A class that has no descriptor table.
class NoTable : public GenericDSCB {
 public:
  explicit NoTable(const unsigned char* bytes) : GenericDSCB(bytes, -1, -1, -1) {}
  const StructureField* getDesc() const override { return nullptr; }
};

TEST(GenericDSCBTest, FieldAddresses) {
  std::unique_ptr<GenericDSCB> d = make(0xF6);
  EXPECT_EQ(d->getFieldAddr("Key"), d->dscb);
  EXPECT_EQ(d->getFieldAddr("Data"), d->dscb + 44);
  try {
    d->getFieldAddr("key");  // labels are case-sensitive
    ADD_FAILURE() << "no exception";
  } catch (const char* text) {
    EXPECT_STREQ(text, "FXDSCB::getFieldAddr - unknown field name");
  }
  PatternRecord r(0xF6);
  NoTable bare(r.bytes);
  try {
    bare.getFieldAddr("Key");
    ADD_FAILURE() << "no exception";
  } catch (const char* text) {
    EXPECT_STREQ(text, "FXDSCB::getFieldAddr - no field descriptions");
  }
}

}  // namespace
