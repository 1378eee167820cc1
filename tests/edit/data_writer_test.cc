// Blocking per record format against hand-laid blocks (BDW/RDW written out),
// and a sequential data set written across tracks and read back through the
// data-set layer: the records, the last-block pointer, the track balance and
// the refusal of a write that does not fit.
#include "edit/data_writer.h"

#include <gtest/gtest.h>

#include "dataset/record_reader.h"
#include "support/track_builder.h"
#include "support/volume_builder.h"

namespace {

using namespace ckdvol_test;
using ckdvol::Blocker;

Bytes text(const std::string& s) { return Bytes(s.begin(), s.end()); }

TEST(BlockerTest, BlocksEveryFormatByHand) {
  struct Case {
    const char* what;
    uint8_t recfm;
    uint32_t lrecl, blksize;
    std::vector<std::string> records;
    std::vector<Bytes> blocks;
  } cases[] = {
      {"F: one record a block", 0x80, 3, 0, {"abc", "def"}, {text("abc"), text("def")}},
      {"FB: BLKSIZE/LRECL a block, the last short", 0x90, 2, 5, {"aa", "bb", "cc"},  // 5/2 = 2 a block
       {text("aabb"), text("cc")}},
      {"V: BDW 4+4+2, RDW 4+2", 0x40, 10, 30, {"ab", ""},
       {cat({hex("000A 0000"), hex("0006 0000"), text("ab")}), cat({hex("0008 0000"), hex("0004 0000")})}},
      {"VB: records while the block stays within BLKSIZE 20", 0x50, 14, 20, {"ab", "cde", "0123456789"},
       {cat({hex("0011 0000"), hex("0006 0000"), text("ab"), hex("0007 0000"), text("cde")}),  // 4+6+7 = 17
        cat({hex("0012 0000"), hex("000E 0000"), text("0123456789")})}},                     // 4+14 = 18
      {"U: each record a block", 0xC0, 0, 4, {"abcd", "e"}, {text("abcd"), text("e")}},
  };
  for (const Case& c : cases) {
    Blocker b(c.recfm, c.lrecl, c.blksize);
    std::string error;
    for (const std::string& r : c.records) {
      ASSERT_TRUE(b.add(reinterpret_cast<const unsigned char*>(r.data()), r.size(), error)) << c.what << error;
    }
    b.finish();
    EXPECT_EQ(b.blocks(), c.blocks) << c.what;
    EXPECT_EQ(b.records(), c.records.size()) << c.what;
  }
}

TEST(BlockerTest, RefusesWhatTheFormatCannotHold) {
  struct Case {
    const char* what;
    uint8_t recfm;
    uint32_t lrecl, blksize;
    size_t length;     // of the second record (the first is fine)
    const char* says;  // in the error
  } cases[] = {
      {"F: a short record", 0x90, 4, 8, 3, "record 2 has 3 bytes; fixed-length records have exactly LRECL 4"},
      {"V: LRECL - 4 at most", 0x40, 10, 100, 7, "record 2 has 7 bytes, more than the 6"},
      {"VB: BLKSIZE - 8 at most", 0x50, 100, 20, 13, "more than the 12"},
      {"U: at most BLKSIZE", 0xC0, 0, 4, 5, "record 2 has 5 bytes"},
      {"U: never empty", 0xC0, 0, 4, 0, "record 2 is empty"},
      {"VBS is not written", 0x58, 100, 200, 1, "spanned records (RECFM VBS) are not written"},
      {"F with LRECL 0", 0x80, 0, 0, 0, "RECFM F with LRECL 0"},
  };
  for (const Case& c : cases) {
    Blocker b(c.recfm, c.lrecl, c.blksize);
    std::string error;
    const Bytes first((c.recfm & 0xC0) == 0x80 ? c.lrecl : 1, 'x');
    b.add(first.data(), first.size(), error);
    const Bytes second(c.length, 'y');
    EXPECT_FALSE(b.add(second.data(), second.size(), error)) << c.what;
    EXPECT_NE(error.find(c.says), std::string::npos) << c.what << ": " << error;
  }
}

// A 3-cylinder D600 volume with one sequential data set on 1/0 .. 1/2.
struct PsVolume {
  TestVolume vol;
  ckdvol::VtocInfo vtoc;
  explicit PsVolume(uint8_t recfm, uint16_t lrecl, uint16_t blksize) {
    DataSetLayout l;
    l.name = "DATA.SET";
    l.recfm = recfm, l.lrecl = lrecl, l.blksize = blksize;
    l.extents = {{1, 0, 1, 2}};
    l.lastTtrTrack = 7;  // an old pointer the write must replace
    vol.writeVtoc({format1Dscb(l)});
    rescan();
  }
  void rescan() {
    std::string error;
    ASSERT_EQ(ckdvol::scanVtoc(vol.file(), vtoc, error), ckdvol::kScanOk) << error;
  }
  const ckdvol::DataSetInfo& ds() { return vtoc.dataSets.at(0); }
  std::vector<Bytes> readBack() {
    std::vector<Bytes> out;
    ckdvol::BlockReader blocks(vol.file(), ds());
    ckdvol::RecordReader records(blocks, ds());
    ckdvol::LogicalRecord r;
    int rc;
    while ((rc = records.next(r)) == 1) out.emplace_back(r.data, r.data + r.length);
    EXPECT_EQ(rc, 0) << records.error();
    return out;
  }
};

std::vector<Bytes> numbered(int count, size_t length) {
  std::vector<Bytes> records;
  for (int i = 0; i < count; ++i) {
    Bytes r(length == 0 ? 1 + i % 50 : length, static_cast<unsigned char>(0x40 + i % 7));
    r[0] = static_cast<unsigned char>(i >> 8), r[r.size() - 1] = static_cast<unsigned char>(i);
    records.push_back(r);
  }
  return records;
}

TEST(WriteSequentialTest, WritesAcrossTracksAndReadsBack) {
  // FB 80/27920: 349 records a block, two blocks a track; 2000 records are
  // 6 blocks on relative tracks 0-2, the EOF record behind them on track 2.
  PsVolume v(0x90, 80, 27920);
  const std::vector<Bytes> records = numbered(2000, 80);
  Blocker blocker(0x90, 80, 27920);
  std::string error;
  for (const Bytes& r : records) ASSERT_TRUE(blocker.add(r.data(), r.size(), error)) << error;
  blocker.finish();
  ASSERT_EQ(blocker.blocks().size(), 6u);
  ckdvol::StagedTracks staged(v.vol.file());
  ckdvol::WriteSummary s;
  ASSERT_TRUE(ckdvol::writeSequential(staged, v.ds(), blocker.blocks(), s, error)) << error;
  EXPECT_EQ(s.tracks, 3u);
  EXPECT_EQ(s.last.track * 1000 + s.last.record, 2002u);
  ASSERT_EQ(staged.writeAll(), "");
  v.vol.reopen();
  v.rescan();
  EXPECT_EQ(v.ds().lastBlockTrack * 1000 + v.ds().lastBlockRecord, 2002u);
  // The balance behind the EOF on relative track 2 (1/2): slot 56832 - 24 -
  // (HA 5 + R0 16 + 8 + 27920 + 8 + 20400 (the last 255 records) + EOF 8)
  // - the next count field 8 = 8435.
  EXPECT_EQ(v.ds().trackBalance, 8435u);
  EXPECT_EQ(v.readBack(), records);

  // 2200 records need 7 blocks, a fourth track: refused, nothing staged.
  Blocker more(0x90, 80, 27920);
  for (const Bytes& r : numbered(2200, 80)) more.add(r.data(), r.size(), error);
  more.finish();
  ckdvol::StagedTracks again(v.vol.file());
  EXPECT_FALSE(ckdvol::writeSequential(again, v.ds(), more.blocks(), s, error));
  EXPECT_EQ(error, "no space left in DATA.SET: 3 tracks allocated, all used");
  EXPECT_EQ(again.size(), 0u);

  // Writing nothing leaves an EOF record at 0/1 and a zero pointer.
  ASSERT_TRUE(ckdvol::writeSequential(again, v.ds(), {}, s, error)) << error;
  ASSERT_EQ(again.writeAll(), "");
  v.vol.reopen();
  v.rescan();
  EXPECT_EQ(v.ds().lastBlockTrack + v.ds().lastBlockRecord, 0u);
  EXPECT_TRUE(v.readBack().empty());
}

TEST(WriteSequentialTest, VariableRecordsReadBackWithTheirLengths) {
  PsVolume v(0x50, 104, 6000);  // VB: records of 1..50 bytes
  const std::vector<Bytes> records = numbered(900, 0);
  Blocker blocker(0x50, 104, 6000);
  std::string error;
  for (const Bytes& r : records) ASSERT_TRUE(blocker.add(r.data(), r.size(), error)) << error;
  blocker.finish();
  ckdvol::StagedTracks staged(v.vol.file());
  ckdvol::WriteSummary s;
  ASSERT_TRUE(ckdvol::writeSequential(staged, v.ds(), blocker.blocks(), s, error)) << error;
  ASSERT_EQ(staged.writeAll(), "");
  v.vol.reopen();
  v.rescan();
  EXPECT_EQ(v.readBack(), records);
}

}  // namespace
