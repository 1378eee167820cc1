// Transfer files: a hand-built file (a control record in two segments, a
// data record in two, INMR01 to INMR06) read field by field, the writer's
// bytes checked by hand, round trips for a sequential data set behind a
// message and for a PDS, the host forms of an unload, and a damage table.
#include "transfer/transfer_file.h"

#include <gtest/gtest.h>

#include <functional>

#include "transfer/unload_fixture.h"

namespace {

using namespace ckdvol;
using namespace ckdvol_test;

// The 300 data bytes of the hand file's first record.
Bytes pattern(size_t n) {
  Bytes b(n);
  for (size_t i = 0; i < n; ++i) b[i] = static_cast<unsigned char>(i * 7);
  return b;
}

// A sequential data set A.B (F 300) of two records, from node N1 user U1
// to N2 U2. Offsets of each segment in the comments.
Bytes handFile() {
  Bytes f = {
      // 0: INMR01, first segment of two: 24 bytes, first + control
      0x18, 0xA0, 0xC9, 0xD5, 0xD4, 0xD9, 0xF0, 0xF1,   // "INMR01"
      0x10, 0x11, 0x00, 0x01, 0x00, 0x02, 0xD5, 0xF1,   // INMFNODE "N1"
      0x10, 0x12, 0x00, 0x01, 0x00, 0x02, 0xE4, 0xF1,   // INMFUID "U1"
      // 24: its last segment: 50 bytes, last + control
      0x32, 0x60, 0x10, 0x01, 0x00, 0x01, 0x00, 0x02, 0xD5, 0xF2,  // INMTNODE "N2"
      0x10, 0x02, 0x00, 0x01, 0x00, 0x02, 0xE4, 0xF2,              // INMTUID "U2"
      0x10, 0x24, 0x00, 0x01, 0x00, 0x08,                          // INMFTIME, 8 bytes:
      0xF2, 0xF0, 0xF2, 0xF4, 0xF0, 0xF1, 0xF0, 0xF2,              //   "20240102"
      0x00, 0x42, 0x00, 0x01, 0x00, 0x02, 0x00, 0x50,              // INMLRECL 80
      0x10, 0x2F, 0x00, 0x01, 0x00, 0x04, 0x00, 0x00, 0x00, 0x01,  // INMNUMF 1
      // 74: INMR02 in one segment of 75 bytes
      0x4B, 0xE0, 0xC9, 0xD5, 0xD4, 0xD9, 0xF0, 0xF2,  // "INMR02"
      0x00, 0x00, 0x00, 0x01,                          // file 1
      0x10, 0x28, 0x00, 0x01, 0x00, 0x07,              // INMUTILN
      0xC9, 0xD5, 0xD4, 0xC3, 0xD6, 0xD7, 0xE8,        //   "INMCOPY"
      0x00, 0x3C, 0x00, 0x01, 0x00, 0x02, 0x40, 0x00,  // 99: INMDSORG PS
      0x00, 0x49, 0x00, 0x01, 0x00, 0x02, 0x80, 0x00,  // INMRECFM F
      0x00, 0x42, 0x00, 0x01, 0x00, 0x02, 0x01, 0x2C,  // INMLRECL 300
      0x00, 0x30, 0x00, 0x01, 0x00, 0x02, 0x01, 0x2C,  // INMBLKSZ 300
      0x00, 0x02, 0x00, 0x02,                          // INMDSNAM, 2 qualifiers:
      0x00, 0x01, 0xC1, 0x00, 0x01, 0xC2,              //   "A" "B"
      0x10, 0x2A, 0x00, 0x01, 0x00, 0x02, 0x00, 0x02,  // INMRECCT 2
      // 149: INMR04, a user's record (skipped)
      0x0A, 0xE0, 0xC9, 0xD5, 0xD4, 0xD9, 0xF0, 0xF4, 0xE7, 0xE8,
      // 159: INMR03
      0x10, 0xE0, 0xC9, 0xD5, 0xD4, 0xD9, 0xF0, 0xF3,  // "INMR03"
      0x00, 0x3C, 0x00, 0x01, 0x00, 0x02, 0x40, 0x00,  // INMDSORG PS
  };
  // 175: the first data record: 253 bytes (first segment), then 47 (last)
  const Bytes data = pattern(300);
  f.push_back(0xFF);
  f.push_back(0x80);
  f.insert(f.end(), data.begin(), data.begin() + 253);
  f.push_back(0x31);  // 430
  f.push_back(0x40);
  f.insert(f.end(), data.begin() + 253, data.end());
  const Bytes tail = {
      0x05, 0xC0, 0xC1, 0xC2, 0xC3,                    // 479: a data record "ABC" in one segment
      0x08, 0xE0, 0xC9, 0xD5, 0xD4, 0xD9, 0xF0, 0xF6,  // 484: INMR06
  };
  f.insert(f.end(), tail.begin(), tail.end());
  f.resize(560, 0);  // 492 bytes padded to seven cards
  return f;
}

TEST(TransferFile, HandBuiltFileIsRead) {
  TransferContents c;
  std::string error;
  ASSERT_TRUE(readTransferFile(handFile(), c, error)) << error;
  EXPECT_EQ("N1", c.origin.fromNode);
  EXPECT_EQ("U1", c.origin.fromUser);
  EXPECT_EQ("N2", c.origin.toNode);
  EXPECT_EQ("U2", c.origin.toUser);
  EXPECT_EQ("20240102", c.origin.time);
  EXPECT_EQ("A.B", c.attributes.dsn);
  EXPECT_EQ(0x4000, c.attributes.dsorg);
  EXPECT_EQ(0x80, c.attributes.recfm);
  EXPECT_EQ(300u, c.attributes.lrecl);
  EXPECT_EQ(300u, c.attributes.blksize);
  EXPECT_EQ(2u, c.recordCount);
  EXPECT_FALSE(c.partitioned);
  EXPECT_TRUE(c.message.empty());
  ASSERT_EQ(2u, c.records.size());
  EXPECT_EQ(pattern(300), c.records[0]);
  EXPECT_EQ((Bytes{0xC1, 0xC2, 0xC3}), c.records[1]);
}

TEST(TransferFile, WriterBytes) {
  TransferContents in;
  in.origin = {"N1", "U1", "N2", "U2", "20240102"};
  in.attributes.dsn = "A.B";
  in.attributes.recfm = 0x80;
  in.attributes.lrecl = in.attributes.blksize = 300;
  in.records = {pattern(300)};
  Bytes out;
  std::string error;
  ASSERT_TRUE(writeTransferFile(in, out, error)) << error;
  const Bytes inmr01 = {
      0x48, 0xE0, 0xC9, 0xD5, 0xD4, 0xD9, 0xF0, 0xF1,              // 72 bytes, first + last + control; "INMR01"
      0x00, 0x42, 0x00, 0x01, 0x00, 0x02, 0x00, 0x50,              // INMLRECL 80
      0x10, 0x11, 0x00, 0x01, 0x00, 0x02, 0xD5, 0xF1,              // INMFNODE "N1"
      0x10, 0x12, 0x00, 0x01, 0x00, 0x02, 0xE4, 0xF1,              // INMFUID "U1"
      0x10, 0x01, 0x00, 0x01, 0x00, 0x02, 0xD5, 0xF2,              // INMTNODE "N2"
      0x10, 0x02, 0x00, 0x01, 0x00, 0x02, 0xE4, 0xF2,              // INMTUID "U2"
      0x10, 0x24, 0x00, 0x01, 0x00, 0x08, 0xF2, 0xF0, 0xF2, 0xF4,  // INMFTIME "20240102"
      0xF0, 0xF1, 0xF0, 0xF2,                                      //
      0x10, 0x2F, 0x00, 0x01, 0x00, 0x04, 0x00, 0x00, 0x00, 0x01,  // INMNUMF 1
  };
  ASSERT_GE(out.size(), inmr01.size());
  EXPECT_EQ(inmr01, Bytes(out.begin(), out.begin() + inmr01.size()));
  // Whole cards; the 300-byte record as 253 + 47 bytes; INMR06 then zeros.
  EXPECT_EQ(0u, out.size() % 80);
  const Bytes record = {0xFF, 0x80, 0x00, 0x07, 0x0E};  // 255 bytes, first; the pattern's first bytes
  EXPECT_NE(out.end(), std::search(out.begin(), out.end(), record.begin(), record.end()));
  const Bytes inmr06 = {0x08, 0xE0, 0xC9, 0xD5, 0xD4, 0xD9, 0xF0, 0xF6};
  auto end = std::search(out.begin(), out.end(), inmr06.begin(), inmr06.end());
  ASSERT_NE(out.end(), end);
  EXPECT_TRUE(std::all_of(end + 8, out.end(), [](unsigned char c) { return c == 0; }));
  EXPECT_LT(out.end() - (end + 8), 80);

  // Names that are not data set names.
  for (const char* dsn : {"", "A..B", "ABCDEFGHI.X", "1AB", "A.B.", "a.b"}) {
    in.attributes.dsn = dsn;
    EXPECT_FALSE(writeTransferFile(in, out, error)) << dsn;
    EXPECT_NE(std::string::npos, error.find("is not a data set name")) << dsn;
  }
}

TEST(TransferFile, RoundTrips) {
  std::string error;
  // A sequential data set behind a message: records of 600, 0 and 5 bytes.
  TransferContents seq;
  seq.origin = {"NODE1", "ME", "NODE2", "YOU", "20240102030405"};
  seq.attributes.dsn = "MY.DATA";
  seq.attributes.dsorg = 0x4000;
  seq.attributes.recfm = 0x54;  // VB with ASA
  seq.attributes.lrecl = 604;
  seq.attributes.blksize = 6233;
  seq.records = {pattern(600), {}, {1, 2, 3, 4, 5}};
  seq.message = {{0xC8, 0xC9}, pattern(90)};
  Bytes file;
  ASSERT_TRUE(writeTransferFile(seq, file, error)) << error;
  TransferContents back;
  ASSERT_TRUE(readTransferFile(file, back, error)) << error;
  EXPECT_EQ(seq.records, back.records);
  EXPECT_EQ(seq.message, back.message);
  EXPECT_EQ("MY.DATA", back.attributes.dsn);
  EXPECT_EQ(0x54, back.attributes.recfm);
  EXPECT_EQ(604u, back.attributes.lrecl);
  EXPECT_EQ(6233u, back.attributes.blksize);
  EXPECT_EQ(3u, back.recordCount);
  EXPECT_EQ("20240102030405", back.origin.time);
  EXPECT_EQ("YOU", back.origin.toUser);
  EXPECT_FALSE(back.partitioned);

  // A PDS: its unload with 5 directory blocks (4 unused).
  TransferContents po;
  po.attributes.dsn = "SYS1.TEST.PDS";
  po.attributes.recfm = 0xC0;
  po.attributes.blksize = 6160;
  po.attributes.directoryBlocks = 5;
  po.partitioned = true;
  po.pds = handPds();
  po.pds.directoryBlocks = 5;
  ASSERT_TRUE(writeTransferFile(po, file, error)) << error;
  ASSERT_TRUE(readTransferFile(file, back, error)) << error;
  EXPECT_TRUE(back.partitioned);
  EXPECT_EQ("SYS1.TEST.PDS", back.attributes.dsn);
  EXPECT_EQ(0x0200, back.attributes.dsorg);
  EXPECT_EQ(5u, back.attributes.directoryBlocks);
  EXPECT_EQ(6160u, back.attributes.blksize);
  expectSamePds(po.pds, back.pds);

  // The same as a PDSE library (INMTYPE 80) is refused.
  po.attributes.type = 0x80;
  ASSERT_TRUE(writeTransferFile(po, file, error)) << error;
  EXPECT_FALSE(readTransferFile(file, back, error));
  EXPECT_NE(std::string::npos, error.find("holds a PDSE unload")) << error;
}

TEST(TransferFile, UnloadKeptAsHostFile) {
  const std::vector<Bytes> records = handUnload();
  auto put16 = [](Bytes& f, size_t n) {
    f.push_back(static_cast<unsigned char>(n >> 8));
    f.push_back(static_cast<unsigned char>(n));
  };
  // Block and segment descriptor words: one record per block, COPYR2 sent
  // as two segments (01 first, 02 last) in two blocks; zeros behind.
  Bytes blocked;
  for (size_t i = 0; i < records.size(); ++i) {
    const Bytes& r = records[i];
    std::vector<std::pair<size_t, uint8_t>> parts = {{r.size(), 0}};
    if (i == 1) parts = {{100, 1}, {r.size() - 100, 2}};
    size_t at = 0;
    for (const auto& part : parts) {
      put16(blocked, part.first + 8);  // BDW
      put16(blocked, 0);
      put16(blocked, part.first + 4);  // SDW
      blocked.push_back(part.second);
      blocked.push_back(0);
      blocked.insert(blocked.end(), r.begin() + at, r.begin() + at + part.first);
      at += part.first;
    }
  }
  blocked.resize(blocked.size() + 20, 0);
  // A record descriptor word before each record.
  Bytes described;
  for (const Bytes& r : records) {
    put16(described, r.size() + 4);
    put16(described, 0);
    described.insert(described.end(), r.begin(), r.end());
  }
  // No descriptor words.
  Bytes bare;
  for (const Bytes& r : records) bare.insert(bare.end(), r.begin(), r.end());

  for (const Bytes* f : {&blocked, &described, &bare}) {
    TransferContents c;
    std::string error;
    ASSERT_TRUE(readTransferFile(*f, c, error)) << error;
    EXPECT_TRUE(c.partitioned);
    EXPECT_EQ(0x0200, c.attributes.dsorg);
    EXPECT_EQ(6160u, c.attributes.blksize);
    EXPECT_EQ(1u, c.attributes.directoryBlocks);
    expectSamePds(handPds(), c.pds);
  }

  // A spanned record cut short, and a block descriptor that lies.
  const struct {
    Bytes file;
    const char* message;
  } bad[] = {
      {Bytes(blocked.begin(), blocked.begin() + 8 + 56 + 8 + 100), "ends inside a spanned record"},
      {[&] { Bytes b = blocked; b[0] = 0x7F; return b; }(), "a block descriptor at offset 0 gives"},
      {Bytes(bare.begin(), bare.begin() + 300), "ends inside its header records"},
      {Bytes(described.begin(), described.begin() + 30), "a segment descriptor at offset 0 gives 60 bytes"},
  };
  for (const auto& b : bad) {
    TransferContents c;
    std::string error;
    EXPECT_FALSE(readTransferFile(b.file, c, error)) << b.message;
    EXPECT_NE(std::string::npos, error.find(b.message)) << error;
  }
}

TEST(TransferFile, DamagedFilesAreRefused) {
  struct Case {
    const char* what;
    std::function<void(Bytes&)> damage;
    const char* message;
  };
  const Case cases[] = {
      {"empty", [](Bytes& f) { f.clear(); }, "not a transfer file"},
      {"INMR01 misnamed", [](Bytes& f) { f[7] = 0xF2; }, "not a transfer file"},
      {"segment of 1 byte", [](Bytes& f) { f[74] = 0x01; }, "offset 74 gives 1 bytes"},
      {"no first-segment flag", [](Bytes& f) { f[75] = 0x60; }, "offset 74 continues no record"},
      {"second segment marked first", [](Bytes& f) { f[25] = 0xE0; }, "offset 24 does not continue"},
      {"control flag changes", [](Bytes& f) { f[25] = 0x40; }, "offset 24 does not continue"},
      {"data record not closed", [](Bytes& f) { f[431] = 0x00; }, "offset 479 does not continue"},
      {"segment past the end", [](Bytes& f) { f[484] = 0xFF; }, "past the end of the file"},
      {"text unit length lies", [](Bytes& f) { f[104] = 0xF0; }, "INMR02: text unit 003C at offset 23 runs past"},
      {"text unit count lies", [](Bytes& f) { f[67] = 0x09; }, "INMR01: text unit 102F at offset 60 runs past"},
      {"VSAM", [](Bytes& f) { f[105] = 0x00, f[106] = 0x08; }, "data set organisation VSAM is not supported"},
      {"other organisation", [](Bytes& f) { f[105] = 0x80; }, "data set organisation 0x8000 is not supported"},
      {"unknown utility", [](Bytes& f) { f[92] = 0xC1; }, "utility ANMCOPY"},
      {"data before INMR03", [](Bytes& f) { f[166] = 0xF5; }, "a data record comes before INMR03"},
      {"unknown control record", [](Bytes& f) { f[151] = 0xE7; }, "unknown control record at offset 149"},
      {"no data set", [](Bytes& f) { f[99] = 0x00, f[100] = 0x28; }, "holds no data set"},  // INMDSORG -> INMTERM
  };
  for (const Case& c : cases) {
    Bytes f = handFile();
    c.damage(f);
    TransferContents out;
    std::string error;
    EXPECT_FALSE(readTransferFile(f, out, error)) << c.what;
    EXPECT_NE(std::string::npos, error.find(c.message)) << c.what << ": " << error;
  }
  // Cut anywhere before the end of INMR06: refused.
  const Bytes whole = handFile();
  for (size_t n = 0; n < 492; ++n) {
    TransferContents out;
    std::string error;
    EXPECT_FALSE(readTransferFile(Bytes(whole.begin(), whole.begin() + n), out, error)) << n;
  }
}

}  // namespace
