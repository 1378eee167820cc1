// The unloaded-PDS records: a hand-built unload (COPYR1, COPYR2, a
// directory block, two members over two extents, one with a user TTR) read
// and written byte for byte, and a table of damaged variants refused.
#include "transfer/unload.h"

#include <gtest/gtest.h>

#include <functional>

#include "transfer/unload_fixture.h"

namespace {

using namespace ckdvol;
using namespace ckdvol_test;

TEST(Unload, HandBuiltRecordsReadAndWriteByteForByte) {
  UnloadedPds got;
  std::string error;
  ASSERT_TRUE(readUnload(handUnload(), got, error)) << error;
  expectSamePds(handPds(), got);

  std::vector<Bytes> written;
  ASSERT_TRUE(writeUnload(handPds(), written, error)) << error;
  EXPECT_EQ(handUnload(), written);
}

TEST(Unload, WriterPacksBlocksIntoRecordsOfTheContainerSize) {
  // Ten blocks of 100 data bytes behind the directory; a container of 284
  // holds 276 bytes per record: two blocks (2 x 112) fit, a third does not.
  UnloadedPds pds = handPds();
  pds.containerBlockSize = 284;
  pds.blocks.clear();
  for (uint8_t r = 1; r <= 10; ++r) pds.blocks.push_back({Ttr{1, r}, {}, Bytes(100, r)});
  pds.blocks.push_back({Ttr{1, 11}, {}, {}});
  std::vector<Bytes> records;
  std::string error;
  ASSERT_TRUE(writeUnload(pds, records, error)) << error;
  // COPYR1, COPYR2, the directory block alone (276), the end of the
  // directory (12), then 5 records of two blocks, the EOF (12) joining
  // the last.
  ASSERT_EQ(9u, records.size());
  EXPECT_EQ(276u, records[2].size());
  EXPECT_EQ(Bytes(12, 0), records[3]);
  for (size_t i = 4; i < 8; ++i) EXPECT_EQ(224u, records[i].size()) << i;
  EXPECT_EQ(236u, records[8].size());
  UnloadedPds back;
  ASSERT_TRUE(readUnload(records, back, error)) << error;
  expectSamePds(pds, back);

  // A block larger than a record, and a TTR outside the extents (17 tracks).
  pds.blocks[0].data.assign(300, 1);
  EXPECT_FALSE(writeUnload(pds, records, error));
  EXPECT_NE(std::string::npos, error.find("does not fit a record of 276 bytes")) << error;
  pds.blocks[0] = {Ttr{17, 1}, {}, {1}};
  EXPECT_FALSE(writeUnload(pds, records, error));
  EXPECT_NE(std::string::npos, error.find("lies outside the extents")) << error;
}

TEST(Unload, DamagedRecordsAreRefused) {
  struct Case {
    const char* what;
    std::function<void(std::vector<Bytes>&)> damage;
    const char* message;
  };
  const Case cases[] = {
      {"no records", [](std::vector<Bytes>& r) { r.clear(); }, "no records"},
      {"eyecatcher", [](std::vector<Bytes>& r) { r[0][2] = 0x6E; }, "eyecatcher missing"},
      {"PDSE unload", [](std::vector<Bytes>& r) { r[0][0] = 0x40; }, "unloaded PDSE is not supported"},
      {"in error", [](std::vector<Bytes>& r) { r[0][0] = 0x80; }, "incomplete or in error"},
      {"transfer format", [](std::vector<Bytes>& r) { r[0][0] = 0xC1; }, "transfer format of unloads"},
      {"COPYR1 short", [](std::vector<Bytes>& r) { r[0].resize(30); }, "COPYR1 has 30 bytes"},
      {"no heads", [](std::vector<Bytes>& r) { r[0][27] = 0; }, "0 heads"},
      {"header count", [](std::vector<Bytes>& r) { r[0][37] = 3; }, "3 header records"},
      {"only COPYR1", [](std::vector<Bytes>& r) { r.resize(1); }, "ends after COPYR1"},
      {"COPYR2 short", [](std::vector<Bytes>& r) { r[1].resize(100); }, "COPYR2 has 100 bytes"},
      {"no extents", [](std::vector<Bytes>& r) { r[1][0] = 0; }, "0 extents"},
      {"17 extents", [](std::vector<Bytes>& r) { r[1][0] = 17; }, "17 extents"},
      {"directory bytes used 300", [](std::vector<Bytes>& r) { r[2][20] = 0x01, r[2][21] = 0x2C; }, "300 bytes used"},
      {"user data past the bytes used",
       [](std::vector<Bytes>& r) { r[2][22 + 11] = 0x3F; },  // LOADMOD: 31 halfwords
       "entry LOADMOD runs past the bytes used"},
      {"directory block of 7-byte key", [](std::vector<Bytes>& r) { r[2][9] = 7; }, "key 7 and data 256"},
      {"no end entry",
       [](std::vector<Bytes>& r) { r[2][20 + 2 + 16 + 12] = 0xFE; },  // the FF name becomes an entry
       "without its end entry"},
      {"no end of the directory", [](std::vector<Bytes>& r) { r.resize(3); r[2].resize(276); },
       "before the end of the directory"},
      {"directory only, no end entry",
       [](std::vector<Bytes>& r) { r.resize(3); r[2].resize(276); r[2][20 + 2 + 16 + 12] = 0xFE; },
       "inside the directory"},
      {"lying data length", [](std::vector<Bytes>& r) { r[3][10] = 0x01; }, "runs past the record"},
      {"cut block header", [](std::vector<Bytes>& r) { r[3].resize(r[3].size() - 5); }, "block header runs past"},
      {"cylinder outside the extents", [](std::vector<Bytes>& r) { r[3][5] = 0x11; }, "CCHHR 0011000401 lies outside"},
      {"head past the cylinder", [](std::vector<Bytes>& r) { r[3][7] = 0x0F; }, "lies outside the extents"},
      {"last member without EOF", [](std::vector<Bytes>& r) { r[3].resize(r[3].size() - 12); },
       "ends inside a member (TTR 000201"},
  };
  for (const Case& c : cases) {
    std::vector<Bytes> records = handUnload();
    c.damage(records);
    UnloadedPds out;
    std::string error;
    EXPECT_FALSE(readUnload(records, out, error)) << c.what;
    EXPECT_NE(std::string::npos, error.find(c.message)) << c.what << ": " << error;
  }
}

TEST(Unload, CutMemberRecordsOnlyLoseWholeMembers) {
  // The member record cut at every length: refused, or read with fewer
  // blocks that end on an end-of-file record.
  const std::vector<Bytes> whole = handUnload();
  for (size_t n = 0; n < whole[3].size(); ++n) {
    std::vector<Bytes> records = whole;
    records[3].resize(n);
    UnloadedPds out;
    std::string error;
    if (readUnload(records, out, error)) {
      EXPECT_LT(out.blocks.size(), handPds().blocks.size()) << n;
      if (!out.blocks.empty()) {
        EXPECT_TRUE(out.blocks.back().endOfFile()) << n;
      }
    }
  }
}

}  // namespace
