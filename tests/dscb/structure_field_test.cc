// StructureField: placement of entries, lookup, the one-field renderings,
// the whole-record dump's line layout and the layout descriptions.
#include "dscb/structure_field.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

using F = StructureField;

// Renders one field of `record` with label width `width`.
std::string one(const F& f, const std::vector<unsigned char>& record, int width) {
  RexxString out;
  f.print(out, record.data(), width);
  return out.text();
}

std::string dump(const F* table, const std::vector<unsigned char>& record, int indent) {
  RexxString out;
  F::print(out, record.data(), table, indent);
  return out.text();
}

std::string describe(const F* table) {
  RexxString out;
  F::printDesc(out, table);
  return out.text();
}

TEST(StructureFieldTest, NegativeOffsetsFollowEarlierEntries) {
  const F table[] = {
      {"Lead", F::SfldHex, 8, 2, false},       // 8..9
      {"VTOC-loc", F::SfldHex, -1, 5, false},  // right after Lead: 10
      {"CC", F::SfldUint, -2, 2, false},       // where Lead ends: the group's start, 10
      {"HH", F::SfldUint, -1, 2, false},       // 12
      {"Rec", F::SfldUint, -1, 1, true},       // 14
      {nullptr, F::SfldEnd, 0, 0, true},
  };
  EXPECT_EQ(table[1].offset, 10);
  EXPECT_EQ(table[2].offset, 10);
  EXPECT_EQ(table[3].offset, 12);
  EXPECT_EQ(table[4].offset, 14);
  EXPECT_EQ(table[4].length, 1);
  EXPECT_EQ(table[4].type, F::SfldUint);
  EXPECT_TRUE(table[4].newLine);
}

TEST(StructureFieldTest, LocateField) {
  const F table[] = {
      {"Resv", F::SfldHex, 0, 1, false},
      {"Name", F::SfldHex, 1, 1, false},
      {"Resv", F::SfldHex, 2, 1, true},
      {nullptr, F::SfldEnd, 0, 0, true},
  };
  int index = 7;
  EXPECT_EQ(F::locateField("Absent", table, &index), nullptr);
  EXPECT_EQ(index, -1);
  EXPECT_EQ(F::locateField("name", table, &index), nullptr);  // case-sensitive
  EXPECT_EQ(index, -1);
  EXPECT_EQ(F::locateField("Name", table, &index), &table[1]);
  EXPECT_EQ(index, 1);
  EXPECT_EQ(F::locateField("Resv", table, &index), &table[0]);  // the first of two
  EXPECT_EQ(index, 0);
  EXPECT_EQ(F::locateField("Name", table, nullptr), &table[1]);

  // An entry of type 0 ends the walk even with a name.
  const F cut[] = {
      {"A", F::SfldHex, 0, 1, false},
      {"Stop", F::SfldNone, 1, 1, false},
      {"B", F::SfldHex, 2, 1, true},
      {nullptr, F::SfldEnd, 0, 0, true},
  };
  EXPECT_EQ(F::locateField("Stop", cut, &index), nullptr);
  EXPECT_EQ(F::locateField("B", cut, &index), nullptr);
  EXPECT_EQ(index, -1);
}

TEST(StructureFieldTest, Integers) {
  const std::vector<unsigned char> ones(8, 0xFF);
  EXPECT_EQ(one(F("I1", F::SfldInt, 0, 1, false), ones, 0), "I1: 255");
  EXPECT_EQ(one(F("I2", F::SfldInt, 0, 2, false), ones, 0), "I2: 65535");
  EXPECT_EQ(one(F("I4", F::SfldInt, 0, 4, false), ones, 0), "I4: -1");
  EXPECT_EQ(one(F("U4", F::SfldUint, 0, 4, false), ones, 0), "U4: 4294967295");
  EXPECT_EQ(one(F("I8", F::SfldInt, 0, 8, false), ones, 0), "I8: -1");
  EXPECT_EQ(one(F("U8", F::SfldUint, 0, 8, false), ones, 0), "U8: 18446744073709551615");

  // 00 00 01 02 FE FF FF FF
  const std::vector<unsigned char> mixed = {0x00, 0x00, 0x01, 0x02, 0xFE, 0xFF, 0xFF, 0xFF};
  EXPECT_EQ(one(F("U2", F::SfldUint, 2, 2, false), mixed, 0), "U2: 258");
  EXPECT_EQ(one(F("L2", F::SfldUintLE, 2, 2, false), mixed, 0), "L2: 513");
  EXPECT_EQ(one(F("L4", F::SfldIntLE, 4, 4, false), mixed, 0), "L4: -2");
  EXPECT_EQ(one(F("B4", F::SfldInt, 4, 4, false), mixed, 0), "B4: -16777217");
  EXPECT_EQ(one(F("L8", F::SfldUintLE, 0, 8, false), mixed, 0),
            "L8: 18446744065153236992");  // FFFFFFFE02010000

  EXPECT_EQ(one(F("Odd", F::SfldUint, 0, 3, true), mixed, 0), "Odd: <Invalid data length>\n");
  EXPECT_EQ(one(F("Odd", F::SfldIntLE, 0, 0, false), mixed, 0), "Odd: <Invalid data length>");
}

TEST(StructureFieldTest, BitsDateLabelAndText) {
  const std::vector<unsigned char> rec = {
      0xA5,                    // bits
      0x7A, 0x00, 0x1F,        // date: 1900 + 122, day 31 + 1
      0xC1, 0xC2, 0x40, 0xF9,  // EBCDIC "AB 9"
      'h',  'i',  0,    'x',   // text cut at its NUL
  };
  EXPECT_EQ(one(F("Flags", F::SfldBits, 0, 1, false), rec, 0), "Flags: 1010 0101");
  EXPECT_EQ(one(F("Made", F::SfldDate, 1, 3, false), rec, 0), "Made: 2022/032");
  EXPECT_EQ(one(F("Name", F::SfldEbcdic, 4, 4, false), rec, 0), "Name: AB 9");
  EXPECT_EQ(one(F("Text", F::SfldAscii, 8, 4, false), rec, 0), "Text: hi");
  EXPECT_EQ(one(F("Str", F::SfldCString, 8, 0, false), rec, 0), "Str: hi");
  EXPECT_EQ(one(F("Here", F::SfldLabel, 0, 4, true), rec, 0), "Here: \n");
  // A title ignores width and newLine and prints no label.
  EXPECT_EQ(one(F("A title", F::SfldTitle, 0, 0, false), rec, 12), "A title\n");
}

TEST(StructureFieldTest, LongTextUsesItsWholeLength) {
  std::vector<unsigned char> rec(1500, 'x');
  std::string text = one(F("T", F::SfldAscii, 0, 1500, false), rec, 0);
  EXPECT_EQ(text, "T: " + std::string(1500, 'x'));
}

TEST(StructureFieldTest, LabelColumn) {
  const std::vector<unsigned char> rec = {0x01};
  EXPECT_EQ(one(F("SubType", F::SfldHex, 0, 1, false), rec, 10), "   SubType: 01");
  EXPECT_EQ(one(F("SubType", F::SfldHex, 0, 1, false), rec, 4), "SubT: 01");  // cut to W
  EXPECT_EQ(one(F("SubType", F::SfldHex, 0, 1, false), rec, -1), "SubType: 01");
}

TEST(StructureFieldTest, HexGrouping) {
  const std::vector<unsigned char> rec = {0x00, 0x12, 0x00, 0x03, 0x05, 0xAB, 0xCD, 0xEF, 0x9A};
  EXPECT_EQ(one(F("A", F::SfldHexHalfwords, 0, 5, false), rec, 0), "A: 0012 0003 05");
  EXPECT_EQ(one(F("A", F::SfldHex, 0, 5, false), rec, 0), "A: 0012000305");
  EXPECT_EQ(one(F("A", F::SfldHexBytes, 0, 3, false), rec, 0), "A: 00 12 00");
  EXPECT_EQ(one(F("A", F::SfldDump, 0, 9, false), rec, 0), "A: 00120003 05ABCDEF 9A");
  EXPECT_EQ(one(F("A", F::SfldHexFullwords, 0, 6, false), rec, 0), "A: 00120003 05AB");
  EXPECT_EQ(one(F("A", F::SfldHexDoublewords, 0, 9, false), rec, 0), "A: 0012000305ABCDEF 9A");
  EXPECT_EQ(one(F("A", F::SfldNone, 0, 2, false), rec, 0), "A: 0012");
  EXPECT_EQ(one(F("A", F::SfldEnd, 0, 2, false), rec, 0), "A: 0012");
  EXPECT_EQ(one(F("A", static_cast<F::SfldTyp>(19), 0, 2, false), rec, 0), "A: 0012");
  EXPECT_EQ(one(F("A", F::SfldHex, 0, 0, true), rec, 0), "A: \n");
}

TEST(StructureFieldTest, HexWrapsAt32BytesUnderTheFirstValue) {
  std::vector<unsigned char> rec(44);
  for (int i = 0; i < 44; ++i) rec[i] = static_cast<unsigned char>(i);
  EXPECT_EQ(one(F("DSCBKey", F::SfldHex, 0, 44, true), rec, 10),
            "   DSCBKey: 000102030405060708090A0B0C0D0E0F101112131415161718191A1B1C1D1E1F\n"
            "            202122232425262728292A2B\n");
  // The line break replaces the group space; 64 bytes end without a third line.
  std::vector<unsigned char> ff(64, 0xFF);
  EXPECT_EQ(one(F("K", F::SfldHexBytes, 0, 33, false), ff, 0),
            "K: FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF "
            "FF FF FF FF FF\n"
            "   FF");
  EXPECT_EQ(one(F("K", F::SfldHex, 0, 64, false), ff, 0),
            "K: " + std::string(64, 'F') + "\n   " + std::string(64, 'F'));
}

TEST(StructureFieldTest, DumpAlignsLineStartsAndSeparatesFields) {
  const F table[] = {
      {"SubType", F::SfldHex, 0, 1, false}, {"F9count", F::SfldHex, 1, 1, false},
      {"Flag1", F::SfldBits, 2, 1, true},   {"Attributes", F::SfldDump, 3, 2, true},
      {"X", F::SfldHex, 5, 1, false},  // starts a line: gets the common width
      {"Y", F::SfldHex, 6, 1, true},   // follows: natural width, though shorter
      {nullptr, F::SfldEnd, 0, 0, true},
  };
  const std::vector<unsigned char> rec = {0x01, 0x02, 0x80, 0xAB, 0xCD, 0x11, 0x22};
  // SubType fills columns 0-13; F9count starts at column 20 and ends at 31;
  // Flag1 starts at column 35.
  EXPECT_EQ(dump(table, rec, 0),
            "   SubType: 01,     F9count: 02,   Flag1: 1000 0000\n"
            "Attributes: ABCD\n"
            "         X: 11,     Y: 22\n");
  // The indentation counts towards the columns: SubType ends at 16.
  EXPECT_EQ(dump(table, rec, 2),
            "     SubType: 01,   F9count: 02,   Flag1: 1000 0000\n"
            "  Attributes: ABCD\n"
            "           X: 11,   Y: 22\n");
}

TEST(StructureFieldTest, DumpPrintsTitlesFirstAndMayEndOpen) {
  const F table[] = {
      {"Key", F::SfldHex, 0, 1, true},
      {"Open title", F::SfldTitle, 0, 0, false},
      {"Closed title", F::SfldTitle, 0, 0, true},
      {"Data", F::SfldUint, 1, 1, false},  // last field: the line stays open
      {nullptr, F::SfldEnd, 0, 0, true},
  };
  const std::vector<unsigned char> rec = {0x0F, 0x07};
  // Title labels do not count for the common width (4, from "Data").
  EXPECT_EQ(dump(table, rec, 0), "Open title\nClosed title\n Key: 0F\nData: 7");
  EXPECT_EQ(dump(table, rec, 3), "   Open title\nClosed title\n    Key: 0F\n   Data: 7");
}

TEST(StructureFieldTest, EmptyTables) {
  const F empty[] = {{nullptr, F::SfldEnd, 0, 0, true}};
  const F none[] = {{"Zero", F::SfldNone, 0, 1, true}, {nullptr, F::SfldEnd, 0, 0, true}};
  const std::vector<unsigned char> rec = {0x00};
  EXPECT_EQ(dump(empty, rec, 4), "");
  EXPECT_EQ(dump(none, rec, 0), "");
  EXPECT_EQ(describe(empty), "  Total length: 0\n");
  EXPECT_EQ(describe(none), "  Total length: 0\n");
}

TEST(StructureFieldTest, DescribeEntry) {
  RexxString out;
  F("DSCBcnt", F::SfldUint, 50, 2, true).printDesc(out, 12);
  EXPECT_STREQ(out.text(), "     DSCBcnt: Offset-50(0x32), Length-2, Type-3, NL-Yes\n");
  out.copy("", -1);
  F("Resv", F::SfldDump, 115, 10, false).printDesc(out, 0);
  EXPECT_STREQ(out.text(), "Resv: Offset-115(0x73), Length-10, Type-7, NL-No\n");
}

TEST(StructureFieldTest, DescribeTableCountsOverlapsOnce) {
  const F table[] = {
      {"Layout", F::SfldTitle, 0, 0, true},  // titles are described too
      {"AltCyls", F::SfldUint, 61, 1, true},  {"DevConst", F::SfldHex, 62, 14, false},
      {"NbrCyls", F::SfldUint, 62, 2, false}, {"Trks/Cyl", F::SfldUint, 64, 2, true},
      {nullptr, F::SfldEnd, 0, 0, true},
  };
  EXPECT_EQ(describe(table),
            "  Layout: Offset-0(0x0), Length-0, Type-17, NL-Yes\n"
            " AltCyls: Offset-61(0x3D), Length-1, Type-3, NL-Yes\n"
            "DevConst: Offset-62(0x3E), Length-14, Type-4, NL-No\n"
            " NbrCyls: Offset-62(0x3E), Length-2, Type-3, NL-No\n"
            "Trks/Cyl: Offset-64(0x40), Length-2, Type-3, NL-Yes\n"
            "          Total length: 76\n");
}

}  // namespace
