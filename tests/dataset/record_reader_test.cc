// Relative tracks over several head counts; BlockReader and RecordReader on a
// 19-head volume: blocks through extents that cross cylinders, the end of data
// (EOF record, last-block pointer, end of the extents), and deblocking of V,
// VB, VBS, U and keyed FB blocks with descriptor words written by hand;
// malformed blocks named by address.
#include "dataset/record_reader.h"

#include <gtest/gtest.h>

#include "dataset/dataset_builder.h"
#include "dataset/extent.h"

namespace ckdvol {
namespace {

using namespace ckdvol_test;

// Extents 1/(H-2) .. 2/1 (4 tracks, across the cylinder) and 5/3 .. 5/4:
// relative tracks 0-5 are 1/(H-2), 1/(H-1), 2/0, 2/1, 5/3, 5/4.
TEST(ExtentMapTest, RelativeTracksUseTheRealHeadsPerCylinder) {
  for (uint32_t heads : {10u, 15u, 19u, 20u, 30u}) {
    SCOPED_TRACE(heads);
    const uint32_t want[6][2] = {{1, heads - 2}, {1, heads - 1}, {2, 0}, {2, 1}, {5, 3}, {5, 4}};
    ExtentMap map({{1, 0, 1, heads - 2, 2, 1}, {1, 1, 5, 3, 5, 4}}, heads);
    ASSERT_EQ(map.tracks(), 6u);
    for (uint32_t t = 0; t < 6; ++t) {
      uint32_t cyl = 99, head = 99, back = 99;
      ASSERT_TRUE(map.toCylHead(t, cyl, head));
      EXPECT_EQ(cyl * 100 + head, want[t][0] * 100 + want[t][1]);
      ASSERT_TRUE(map.toRelative(cyl, head, back));
      EXPECT_EQ(back, t);
    }
    uint32_t cyl = 7, head = 7, rel = 7;
    EXPECT_FALSE(map.toCylHead(6, cyl, head));
    EXPECT_FALSE(map.toRelative(2, 2, rel));  // between the extents
    EXPECT_FALSE(map.toRelative(1, heads, rel));
    EXPECT_EQ(cyl + head + rel, 21u);
  }
  // Head 15 of 15 and a high track before the low one count no track; the
  // good extent 4/14 .. 5/1 follows them.
  ExtentMap map({{1, 0, 2, 15, 2, 15}, {1, 1, 3, 5, 3, 4}, {1, 2, 4, 14, 5, 1}}, 15);
  EXPECT_EQ(map.tracks() * 10 + map.badExtents(), 32u);
  uint32_t cyl = 0, head = 0;
  ASSERT_TRUE(map.toCylHead(2, cyl, head));
  EXPECT_EQ(cyl * 100 + head, 501u);
  EXPECT_EQ(extentTracks({1, 0, 0, 0, 0, 0}, 0), 0u);
}

// "cyl/head/record " of every block, then the result that ended the walk and
// the end reason (0 not yet, 1 EOF record, 2 last-block pointer, 3 extents).
std::string walk(BlockReader& blocks) {
  std::string s;
  Block b;
  int rc;
  while ((rc = blocks.next(b)) == kBlockRead) {
    s += std::to_string(b.cyl) + "/" + std::to_string(b.head) + "/" + std::to_string(b.record) + " ";
  }
  return s + std::to_string(rc) + " " + std::to_string(int(blocks.endReason()));
}

// Extents 0/17 .. 1/1 and 3/5 .. 3/6 on 19 heads: relative tracks 0 to 5 are
// 0/17, 0/18, 1/0 (empty), 1/1, 3/5 (EOF), 3/6.
TEST(BlockReaderTest, EndOfDataByEofRecordPointerOrExtents) {
  TestVolume vol(EmulatedCKDfile::D300, 4);
  vol.setRecords(0, 17, {dataRecord(1, ascii("AAAA")), dataRecord(2, ascii("BBBB"))});
  vol.setRecords(0, 18, {dataRecord(1, ascii("CCCC"))});
  vol.setRecords(1, 0, {});
  vol.setRecords(1, 1, {dataRecord(1, ascii("DDDD")), dataRecord(2, ascii("EEEE"))});
  vol.setRecords(3, 5, {eofRecord(1)});
  vol.setRecords(2, 0, {eofRecord(1)});
  vol.setRecords(2, 1, {dataRecord(1, ascii("ZZZZ"))});
  vol.setRecords(2, 2, {});
  vol.writeVtoc({format1Dscb(layout("SEQ", {{0, 17, 1, 1}, {3, 5, 3, 6}})),
                 format1Dscb(layout("EMPTY", {{2, 0, 2, 0}})), format1Dscb(layout("NOEOF", {{2, 1, 2, 2}}))});
  VtocInfo v = scan(vol.file());
  const std::string all = "0/17/1 0/17/2 0/18/1 1/1/1 1/1/2 0 1";
  struct Case { uint32_t track; uint8_t record; uint16_t dsorg; bool usePointer; std::string blocks; } cases[] = {
      {0, 0, 0x4000, true, all},  // no pointer
      {3, 1, 0x4000, true, "0/17/1 0/17/2 0/18/1 1/1/1 0 2"},
      {1, 1, 0x4000, true, "0/17/1 0/17/2 0/18/1 0 2"},
      {5, 1, 0x4000, true, all},   // the EOF record comes first
      {1, 1, 0x4000, false, all},  // pointer not asked for
      {1, 1, 0x0200, true, all},   // not sequential
  };
  for (const Case& c : cases) {
    DataSetInfo ds = *findDataSet(v, "SEQ");
    ds.lastBlockTrack = c.track;
    ds.lastBlockRecord = c.record;
    ds.dsorg = c.dsorg;
    BlockReader blocks(vol.file(), ds);
    blocks.startDataSet(c.usePointer);
    EXPECT_EQ(walk(blocks), c.blocks) << c.track << "/" << int(c.record);
  }
  BlockReader empty(vol.file(), *findDataSet(v, "EMPTY")), noEof(vol.file(), *findDataSet(v, "NOEOF"));
  EXPECT_EQ(walk(empty) + "|" + walk(noEof), "0 1|2/1/1 0 3");
  BlockReader at(vol.file(), *findDataSet(v, "SEQ"));
  at.startAt(3, 2);
  EXPECT_EQ(walk(at), "1/1/2 0 1");
  at.startAt(0, 9);
  EXPECT_EQ(walk(at) + " " + at.error(), "-3 0 record 9 is not on track 0/17 (relative track 0)");
  at.startAt(6, 1);
  EXPECT_EQ(walk(at) + " " + at.error(), "-2 0 relative track 6 lies outside the data set's 6 tracks");
}

// Each case is a data set of one track, 2/i, holding the blocks and an EOF.
TEST(RecordReaderTest, DeblocksEveryRecordFormatAndNamesBadBlocks) {
  struct Case {
    uint8_t recfm;
    uint16_t lrecl;
    std::vector<Bytes> blocks;
    std::string records;  // each record as "key:data|" or "data|", then the result and error
  } cases[] = {
      {0x50, 0, {cat({word(15), word(6), ascii("AB"), word(5), ascii("C")}),  // VB
                 cat({word(15), word(4), word(7), ascii("XYZ")})}, "AB|C||XYZ|0 "},
      {0x40, 0, {cat({word(9), word(5), ascii("V")})}, "V|0 "},  // V
      {0x58, 0, {cat({word(11), word(7, 0x01), ascii("HEL")}),  // VBS: first,
                 cat({word(11), word(7, 0x03), ascii("LO ")}),  //   middle,
                 cat({word(18), word(9, 0x02), ascii("WORLD"), word(5, 0x00), ascii("X")})},  // last, complete
       "HELLO WORLD|X|0 "},
      {0xC0, 0, {ascii("ONE"), ascii("TWO22"), ascii("3")}, "ONE|TWO22|3|0 "},  // U
      {0x90, 3, {ascii("abcdef")}, "K1:abc|K1:def|0 "},                         // FB, keyed
      {0x50, 0, {cat({word(20), word(6), ascii("AB"), word(6), ascii("CD")})},
       "-10 block 2/5/1: BDW says 20 but the block has 16 bytes"},
      {0x50, 0, {cat({word(16), word(30), ascii("AB"), Bytes(6, 0)})},
       "-10 block 2/6/1: RDW at offset 4 says 30 but 12 bytes remain in the block"},
      {0x90, 80, {Bytes(3130, 0x40)}, "-10 block 2/7/1: 3130 bytes are not a multiple of LRECL 80"},
      {0x58, 0, {cat({word(11), word(7, 0x02), ascii("END")})},
       "-11 block 2/8/1: a last segment at offset 4 without a first segment"},
      {0x58, 0, {cat({word(11), word(7, 0x01), ascii("BEG")}), cat({word(9), word(5, 0x00), ascii("X")})},
       "-11 block 2/9/2: a complete segment at offset 4 while the record begun in block 2/9/1 has no "
       "last segment"},
      {0x58, 0, {cat({word(11), word(7, 0x01), ascii("BEG")})},
       "-11 the data ends inside a spanned record begun in block 2/10/1"},
      {0x50, 0, {Bytes{0x00, 0x02}}, "-10 block 2/11/1: 2 bytes are too short for a BDW"},
      {0x80, 0, {ascii("F")}, "-13 fixed-length records with LRECL 0"},
  };
  TestVolume vol(EmulatedCKDfile::D300, 4);
  std::vector<Dscb> sets;
  for (uint16_t i = 0; i < sizeof cases / sizeof cases[0]; ++i) {
    std::vector<Record> records;
    for (const Bytes& b : cases[i].blocks) {
      const uint8_t r = uint8_t(records.size() + 1);
      records.push_back(cases[i].lrecl == 3 ? keyedRecord(r, ascii("K1"), b) : dataRecord(r, b));
    }
    records.push_back(eofRecord(uint8_t(records.size() + 1)));
    vol.setRecords(2, i, records);
    sets.push_back(format1Dscb(layout("CASE" + std::to_string(i), {{2, i, 2, i}}, -1, {}, cases[i].recfm,
                                      cases[i].lrecl)));
  }
  vol.writeVtoc(sets);
  VtocInfo v = scan(vol.file());
  for (size_t i = 0; i < sizeof cases / sizeof cases[0]; ++i) {
    const DataSetInfo& ds = *findDataSet(v, "CASE" + std::to_string(i));
    BlockReader blocks(vol.file(), ds);
    RecordReader reader(blocks, ds);
    std::string got;
    LogicalRecord r;
    int rc;
    while ((rc = reader.next(r)) == 1) {
      if (r.keyLength > 0) got += std::string(r.key, r.key + r.keyLength) + ":";
      got += std::string(r.data, r.data + r.length) + "|";
    }
    EXPECT_EQ(got + std::to_string(rc) + " " + reader.error(), cases[i].records) << i;
    EXPECT_EQ(reader.next(r), rc) << i;  // stays at its end
  }
  // Raw mode hands out the VB blocks whole.
  BlockReader blocks(vol.file(), *findDataSet(v, "CASE0"));
  RecordReader raw(blocks, *findDataSet(v, "CASE0"), true);
  LogicalRecord r;
  ASSERT_EQ(raw.next(r) * 100 + r.length, 115u);
  EXPECT_EQ(raw.next(r), 1);
  EXPECT_EQ(raw.next(r), 0);
  EXPECT_EQ(raw.bytesRead(), 30u);
}

}  // namespace
}  // namespace ckdvol
