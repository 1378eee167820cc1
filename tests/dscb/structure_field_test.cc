// StructureField: each rendering of one field, the whole-record dump's
// columns and titles, the dump and description of an empty table.
#include "dscb/structure_field.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

using F = StructureField;
using Bytes = std::vector<unsigned char>;

std::string one(const F& f, const Bytes& record, int width) {
  RexxString out;
  return f.print(out, record.data(), width).text();
}
std::string dump(const F* table, const Bytes& record, int indent) {
  RexxString out;
  return F::print(out, record.data(), table, indent).text();
}
std::string describe(const F* table) {
  RexxString out;
  return F::printDesc(out, table).text();
}

TEST(StructureFieldTest, OneFieldRenderings) {
  const Bytes ones(64, 0xFF);
  const Bytes mixed = {0x00, 0x00, 0x01, 0x02, 0xFE, 0xFF, 0xFF, 0xFF};
  const Bytes misc = {0xA5, 0x7A, 0x00, 0x1F, 0xC1, 0xC2, 0x40, 0xF9, 'h', 'i', 0, 'x'};
  const Bytes hex = {0x00, 0x12, 0x00, 0x03, 0x05, 0xAB, 0xCD, 0xEF, 0x9A};
  std::string ffs;  // 32 x " FF"
  for (int i = 0; i < 32; ++i) ffs += " FF";
  const struct {
    F field;
    const Bytes& rec;
    int width;
    std::string want;
  } rows[] = {
      {{"I1", F::SfldInt, 0, 1, false}, ones, 0, "I1: 255"},
      {{"I2", F::SfldInt, 0, 2, false}, ones, 0, "I2: 65535"},
      {{"I4", F::SfldInt, 0, 4, false}, ones, 0, "I4: -1"},
      {{"U4", F::SfldUint, 0, 4, false}, ones, 0, "U4: 4294967295"},
      {{"I8", F::SfldInt, 0, 8, false}, ones, 0, "I8: -1"},
      {{"U8", F::SfldUint, 0, 8, false}, ones, 0, "U8: 18446744073709551615"},
      {{"U2", F::SfldUint, 2, 2, false}, mixed, 0, "U2: 258"},
      {{"L2", F::SfldUintLE, 2, 2, false}, mixed, 0, "L2: 513"},
      {{"L4", F::SfldIntLE, 4, 4, false}, mixed, 0, "L4: -2"},
      {{"B4", F::SfldInt, 4, 4, false}, mixed, 0, "B4: -16777217"},
      {{"L8", F::SfldUintLE, 0, 8, false}, mixed, 0, "L8: 18446744065153236992"},
      {{"Odd", F::SfldUint, 0, 3, true}, mixed, 0, "Odd: <Invalid data length>\n"},
      {{"Odd", F::SfldIntLE, 0, 0, false}, mixed, 0, "Odd: <Invalid data length>"},
      {{"Flags", F::SfldBits, 0, 1, false}, misc, 0, "Flags: 1010 0101"},
      {{"Made", F::SfldDate, 1, 3, false}, misc, 0, "Made: 2022/032"},
      {{"Name", F::SfldEbcdic, 4, 4, false}, misc, 0, "Name: AB 9"},
      {{"Text", F::SfldAscii, 8, 4, false}, misc, 0, "Text: hi"},
      {{"Str", F::SfldCString, 8, 0, false}, misc, 0, "Str: hi"},
      {{"Here", F::SfldLabel, 0, 4, true}, misc, 0, "Here: \n"},
      {{"A title", F::SfldTitle, 0, 0, false}, misc, 12, "A title\n"},
      {{"SubType", F::SfldHex, 0, 1, false}, hex, 10, "   SubType: 00"},
      {{"SubType", F::SfldHex, 0, 1, false}, hex, 4, "SubT: 00"},
      {{"SubType", F::SfldHex, 0, 1, false}, hex, -1, "SubType: 00"},
      {{"A", F::SfldHexHalfwords, 0, 5, false}, hex, 0, "A: 0012 0003 05"},
      {{"A", F::SfldHex, 0, 5, false}, hex, 0, "A: 0012000305"},
      {{"A", F::SfldHexBytes, 0, 3, false}, hex, 0, "A: 00 12 00"},
      {{"A", F::SfldDump, 0, 9, false}, hex, 0, "A: 00120003 05ABCDEF 9A"},
      {{"A", F::SfldHexFullwords, 0, 6, false}, hex, 0, "A: 00120003 05AB"},
      {{"A", F::SfldHexDoublewords, 0, 9, false}, hex, 0, "A: 0012000305ABCDEF 9A"},
      {{"A", F::SfldNone, 0, 2, false}, hex, 0, "A: 0012"},
      {{"A", F::SfldEnd, 0, 2, false}, hex, 0, "A: 0012"},
      {{"A", static_cast<F::SfldTyp>(19), 0, 2, false}, hex, 0, "A: 0012"},
      {{"A", F::SfldHex, 0, 0, true}, hex, 0, "A: \n"},
      // Hexadecimal wraps after 32 bytes under the first value; the break
      // replaces the group space; 64 bytes end without a third line.
      {{"K", F::SfldHexBytes, 0, 33, false}, ones, 0,
       "K:" + ffs + "\n   FF"},
      {{"K", F::SfldHex, 0, 64, false}, ones, 0,
       "K: " + std::string(64, 'F') + "\n   " + std::string(64, 'F')},
  };
  for (const auto& r : rows) {
    EXPECT_EQ(one(r.field, r.rec, r.width), r.want) << r.field.name << " type " << +r.field.type;
  }
  Bytes seq(44);
  for (int i = 0; i < 44; ++i) seq[i] = static_cast<unsigned char>(i);
  EXPECT_EQ(one(F("DSCBKey", F::SfldHex, 0, 44, true), seq, 10),
            "   DSCBKey: 000102030405060708090A0B0C0D0E0F101112131415161718191A1B1C1D1E1F\n"
            "            202122232425262728292A2B\n");
  Bytes longText(1500, 'x');  // past any fixed line buffer
  EXPECT_EQ(one(F("T", F::SfldAscii, 0, 1500, false), longText, 0), "T: " + std::string(1500, 'x'));
}

TEST(StructureFieldTest, DumpColumnsTitlesAndEmptyTables) {
  const F table[] = {
      {"SubType", F::SfldHex, 0, 1, false}, {"F9count", F::SfldHex, 1, 1, false},
      {"Flag1", F::SfldBits, 2, 1, true},   {"Attributes", F::SfldDump, 3, 2, true},
      {"X", F::SfldHex, 5, 1, false},  // starts a line: the common width
      {"Y", F::SfldHex, 6, 1, true},   // follows: its own width
      {nullptr, F::SfldEnd, 0, 0, true},
  };
  const Bytes rec = {0x01, 0x02, 0x80, 0xAB, 0xCD, 0x11, 0x22};
  // A following field starts at the first multiple of 5 at least 3 columns
  // after the previous one ends; the indentation counts towards the columns.
  EXPECT_EQ(dump(table, rec, 0),
            "   SubType: 01,     F9count: 02,   Flag1: 1000 0000\n"
            "Attributes: ABCD\n"
            "         X: 11,     Y: 22\n");
  EXPECT_EQ(dump(table, rec, 2),
            "     SubType: 01,   F9count: 02,   Flag1: 1000 0000\n"
            "  Attributes: ABCD\n"
            "           X: 11,   Y: 22\n");
  const F titled[] = {
      {"Key", F::SfldHex, 0, 1, true},
      {"Open title", F::SfldTitle, 0, 0, false},
      {"Closed title", F::SfldTitle, 0, 0, true},
      {"Data", F::SfldUint, 1, 1, false},  // last field: the line stays open
      {nullptr, F::SfldEnd, 0, 0, true},
  };
  // Titles go first and do not count for the label width.
  EXPECT_EQ(dump(titled, {0x0F, 0x07}, 0), "Open title\nClosed title\n Key: 0F\nData: 7");
  EXPECT_EQ(dump(titled, {0x0F, 0x07}, 3), "   Open title\nClosed title\n    Key: 0F\n   Data: 7");

  const F empty[] = {{nullptr, F::SfldEnd, 0, 0, true}};
  const F none[] = {{"Zero", F::SfldNone, 0, 1, true}, {nullptr, F::SfldEnd, 0, 0, true}};
  EXPECT_EQ(dump(empty, {0}, 4), "");
  EXPECT_EQ(dump(none, {0}, 0), "");
  EXPECT_EQ(describe(empty), "  Total length: 0\n");
  EXPECT_EQ(describe(none), "  Total length: 0\n");
}

}  // namespace
