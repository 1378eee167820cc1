// Hercules images: round trips through every format, images built by hand
// byte by byte, split files, shadow files and damaged images.
#include <zlib.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "ckdfile/emulated_ckd_file.h"
#include "dataset/block_reader.h"
#include "dataset/pds_directory.h"
#include "dataset/vtoc_scan.h"
#include "image/image.h"
#include "support/volume_builder.h"

namespace {

using ckdvol_image::Bytes;
using ckdvol_image::Compression;
using ckdvol_image::Format;
using ckdvol_test::ScopedTempDir;
using ckdvol_test::TestVolume;

Bytes readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}
void writeFile(const std::string& path, const Bytes& b) {
  std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(b.data()), static_cast<long>(b.size()));
}
void le32(Bytes& b, size_t at, uint32_t v) {
  for (int i = 0; i < 4; ++i) b[at + i] = static_cast<unsigned char>(v >> (8 * i));
}
void le16(Bytes& b, size_t at, uint16_t v) {
  b[at] = static_cast<unsigned char>(v);
  b[at + 1] = static_cast<unsigned char>(v >> 8);
}

// Converts `in` (with `shadows`) to `out`; the error text, empty on success.
std::string convert(const std::string& in, const std::string& out, Format to,
                    Compression c = Compression::kZlib, uint32_t perFile = 0,
                    const std::vector<std::string>& shadows = {}) {
  std::string error;
  auto source = ckdvol_image::openSource(in, shadows, error);
  if (!source) return "open: " + error;
  ckdvol_image::WriteOptions o;
  o.format = to;
  o.compression = c;
  o.cylindersPerFile = perFile;
  ckdvol_image::WriteResult r;
  return ckdvol_image::writeImage(*source, out, o, r, error) ? "" : "write: " + error;
}

// Every track of `path` read; the first error, empty when all read.
std::string readAll(const std::string& path, const std::vector<std::string>& shadows = {}) {
  std::string error;
  auto source = ckdvol_image::openSource(path, shadows, error);
  if (!source) return error;
  Bytes image;
  for (uint64_t t = 0; t < source->info().tracks(); ++t) {
    if (!source->read(t, image, error)) return error;
  }
  return "";
}

// A D600 volume of 3 cylinders with records of data on a few tracks and a
// track emptied to record zero (a null track of format 1).
struct DataVolume {
  TestVolume vol{EmulatedCKDfile::D600, 3};
  DataVolume() {
    std::vector<unsigned char> data(3000);
    for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<unsigned char>(i * 7);
    vol.setRecords(1, 4, {ckdvol_test::dataRecord(1, data), ckdvol_test::keyedRecord(2, {1, 2, 3}, {9, 9}),
                          ckdvol_test::eofRecord(3)});
    vol.setRecords(2, 14, {ckdvol_test::dataRecord(1, Bytes(50000, 0x5A))});
    vol.setRecords(2, 0, {});
    vol.close();
  }
};

TEST(ImageTest, EveryFormatAndCompressionConvertsBackToTheSameFile) {
  DataVolume v;
  const Bytes original = readFile(v.vol.path());
  ScopedTempDir dir;
  struct Case {
    Format to;
    Compression c;
    uint32_t perFile;
    std::string name, first;  // the image's name and the file that names it when read
  } cases[] = {
      {Format::kCkd, Compression::kNone, 0, "p.3390", "p.3390"},
      {Format::kCkd, Compression::kNone, 2, "s.3390", "s_1.3390"},  // split: s_1.3390 (2 cylinders), s_2.3390
      {Format::kCckd, Compression::kZlib, 0, "z.cckd", "z.cckd"},
      {Format::kCckd, Compression::kBzip2, 0, "b.cckd", "b.cckd"},
      {Format::kCckd, Compression::kNone, 0, "n.cckd", "n.cckd"},
      {Format::kCckd64, Compression::kZlib, 0, "z.cckd64", "z.cckd64"},
      {Format::kCckd64, Compression::kBzip2, 0, "b.cckd64", "b.cckd64"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    ASSERT_EQ(convert(v.vol.path(), dir.file(c.name), c.to, c.c, c.perFile), "");
    ASSERT_EQ(convert(dir.file(c.first), dir.file(c.name + ".ckd"), Format::kCkdvol), "");
    EXPECT_TRUE(readFile(dir.file(c.name + ".ckd")) == original);
  }
  EXPECT_EQ(readFile(dir.file("s_2.3390")).size(), 512u + 15 * 56832);  // the split's last cylinder
  // The header of the compressed image, field by field.
  const Bytes z = readFile(dir.file("z.cckd"));
  const Bytes want = {
      'C', 'K', 'D', '_', 'C', '3', '7', '0',  // magic
      15, 0, 0, 0,                             // heads
      0x00, 0xDE, 0, 0,                        // track size 56832
      0x90,                                    // device code of a 3390
      0, 0, 0,                                 // file sequence 0 (only file), high cylinder 0
  };
  EXPECT_TRUE(std::equal(want.begin(), want.end(), z.begin()));
  const Bytes cdh = {
      0, 3, 1,     // version, release, modification
      0,           // options: little-endian, closed
      1, 0, 0, 0,  // one L1 entry (45 tracks)
      0, 1, 0, 0,  // 256 L2 entries
  };
  EXPECT_TRUE(std::equal(cdh.begin(), cdh.end(), z.begin() + 512));
  Bytes size(4);
  le32(size, 0, static_cast<uint32_t>(z.size()));
  EXPECT_TRUE(std::equal(size.begin(), size.end(), z.begin() + 512 + 12));  // file size
  EXPECT_TRUE(std::equal(size.begin(), size.end(), z.begin() + 512 + 16));  // used
  EXPECT_EQ(Bytes(z.begin() + 512 + 20, z.begin() + 512 + 40), Bytes(20, 0));  // no free space
  const Bytes tail = {3, 0, 0, 0, 1, 1, 0xFF, 0xFF};  // cylinders 3, null format 1, zlib, parameter -1
  EXPECT_TRUE(std::equal(tail.begin(), tail.end(), z.begin() + 512 + 40));
  EXPECT_EQ(z[1024] | z[1025] << 8, 1028);  // L1: the L2 table right behind it
}

// 2311 (D130): 10 heads, tracks of 4096 bytes, one cylinder.
Bytes d130Header(const char* magic) {
  Bytes h(512, 0);
  std::copy(magic, magic + 8, h.begin());  // magic
  le32(h, 8, 10);                          // heads
  le32(h, 12, 4096);                       // track size
  h[16] = 0x11;                            // device code of a 2311
  return h;                                // file sequence 0, high cylinder 0
}
// Home address and record zero of track (0, head), then `records`, then the marker.
Bytes d130Track(uint8_t head, const Bytes& records) {
  Bytes t = {0, 0, 0, 0, head,                // home address: flag, CC, HH
             0, 0, 0, head, 0, 0, 0, 8,       // record zero's count: R 0, KL 0, DL 8
             0, 0, 0, 0, 0, 0, 0, 0};         // its data
  t.insert(t.end(), records.begin(), records.end());
  t.insert(t.end(), 8, 0xFF);                 // end-of-track marker
  return t;
}
const Bytes kRecord1 = {0, 0, 0, 0, 1, 4, 0, 5,  // count: CC 0, HH 0, R 1, KL 4, DL 5
                        'K', 'E', 'Y', '1', 1, 2, 3, 4, 5};
const Bytes kEof = {0, 0, 0, 2, 1, 0, 0, 0};  // an EOF record on head 2

TEST(ImageTest, HandBuiltPlainAndCompressedImagesRead) {
  ScopedTempDir dir;
  // Plain: the header, then ten tracks of 4096 bytes.
  Bytes plain = d130Header("CKD_P370");
  for (uint8_t h = 0; h < 10; ++h) {
    Bytes t = d130Track(h, h == 0 ? kRecord1 : Bytes());
    t.resize(4096, 0);
    plain.insert(plain.end(), t.begin(), t.end());
  }
  writeFile(dir.file("plain.2311"), plain);
  ASSERT_EQ(convert(dir.file("plain.2311"), dir.file("plain.ckd"), Format::kCkdvol), "");
  EmulatedCKDfile f;
  ASSERT_EQ(f.open(dir.file("plain.ckd").c_str(), true), 0);
  EXPECT_EQ(f.deviceType, EmulatedCKDfile::D130);
  EXPECT_EQ(f.cylinders, 1u);
  Bytes slot(4096);
  ASSERT_EQ(f.readRawTrack(512, slot.data()), 0);
  Bytes want = d130Track(0, kRecord1);
  want.resize(4096, 0);  // zeros behind the marker, a zero trailer
  EXPECT_EQ(slot, want);
  f.close();

  // Compressed: track 0 stored with zlib, track 1 a null track of format 0
  // (the header's), track 2 stored as it is, the rest null tracks of format 1.
  Bytes c = d130Header("CKD_C370");
  c.resize(1024 + 4 + 2048, 0);
  c[512 + 1] = 3;                 // version 0, release 3,
  c[512 + 2] = 1;                 // modification 1
  le32(c, 512 + 4, 1);            // one L1 entry
  le32(c, 512 + 8, 256);          // 256 L2 entries
  le32(c, 512 + 40, 1);           // one cylinder
  c[512 + 44] = 0;                // null format 0
  c[512 + 45] = 1;                // zlib
  le32(c, 1024, 1028);            // L1[0]: the L2 table
  const Bytes t0 = d130Track(0, kRecord1);
  Bytes z(compressBound(static_cast<uLong>(t0.size())));
  uLongf zn = z.size();
  ASSERT_EQ(compress2(z.data(), &zn, t0.data() + 5, static_cast<uLong>(t0.size() - 5), 6), Z_OK);
  const uint32_t at0 = static_cast<uint32_t>(c.size());
  c.insert(c.end(), {1, 0, 0, 0, 0});  // zlib, CC 0, HH 0
  c.insert(c.end(), z.begin(), z.begin() + static_cast<long>(zn));
  const Bytes t2 = d130Track(2, kEof);
  const uint32_t at2 = static_cast<uint32_t>(c.size());
  c.insert(c.end(), t2.begin(), t2.end());  // byte 0 (flag 0) says: not compressed
  le32(c, 1028, at0);                       // L2[0]: offset, length, size
  le16(c, 1028 + 4, static_cast<uint16_t>(zn + 5));
  le16(c, 1028 + 6, static_cast<uint16_t>(zn + 5));
  le32(c, 1028 + 16, at2);                  // L2[2]
  le16(c, 1028 + 20, static_cast<uint16_t>(t2.size()));
  le16(c, 1028 + 22, static_cast<uint16_t>(t2.size()));
  for (int i = 3; i < 10; ++i) le16(c, 1028 + 8 * i + 4, 1);  // offset 0, length 1: format 1
  le32(c, 512 + 12, static_cast<uint32_t>(c.size()));        // file size
  le32(c, 512 + 16, static_cast<uint32_t>(c.size()));        // used
  writeFile(dir.file("c.cckd"), c);

  std::string error;
  auto source = ckdvol_image::openSource(dir.file("c.cckd"), {}, error);
  ASSERT_TRUE(source) << error;
  EXPECT_EQ(source->info().format, Format::kCckd);
  EXPECT_EQ(source->info().tracks(), 10u);
  const Bytes fmt0 = d130Track(1, {0, 0, 0, 1, 1, 0, 0, 0});  // R1, an EOF record
  const Bytes expected[] = {t0, fmt0, t2, d130Track(3, {})};
  for (uint64_t t = 0; t < 4; ++t) {
    Bytes image;
    ASSERT_TRUE(source->read(t, image, error)) << error;
    EXPECT_EQ(image, expected[t]) << "track " << t;
  }
}

TEST(ImageTest, AShadowFileOverridesTheTracksItHolds) {
  DataVolume v;
  ScopedTempDir dir;
  ASSERT_EQ(convert(v.vol.path(), dir.file("base.cckd"), Format::kCckd), "");
  // Shadow: L1[0] names its L2 table; every L2 entry "not here" but track 3,
  // stored without compression; tracks 256 on would be "not here" too.
  Bytes s = readFile(dir.file("base.cckd"));
  s.resize(1024);
  std::copy_n("CKD_S370", 8, s.begin());
  s.resize(1028 + 2048, 0xFF);             // L1[0] and L2 entries of all ones: not in this file
  le32(s, 1024, 1028);
  const Bytes t3 = {0, 0, 0, 0, 3, 0, 0, 0, 3, 0, 0, 0, 8, 0, 0, 0, 0, 0, 0, 0, 0,
                    0, 0, 0, 3, 1, 0, 0, 2, 0xAB, 0xCD,  // R1: DL 2
                    0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
  le32(s, 1028 + 3 * 8, static_cast<uint32_t>(s.size()));
  le16(s, 1028 + 3 * 8 + 4, static_cast<uint16_t>(t3.size()));
  le16(s, 1028 + 3 * 8 + 6, static_cast<uint16_t>(t3.size()));
  s.insert(s.end(), t3.begin(), t3.end());
  le32(s, 512 + 12, static_cast<uint32_t>(s.size()));
  le32(s, 512 + 16, static_cast<uint32_t>(s.size()));
  writeFile(dir.file("base.s1"), s);

  std::string error;
  auto merged = ckdvol_image::openSource(dir.file("base.cckd"), {dir.file("base.s1")}, error);
  auto base = ckdvol_image::openSource(dir.file("base.cckd"), {}, error);
  ASSERT_TRUE(merged && base) << error;
  Bytes a, b;
  ASSERT_TRUE(merged->read(3, a, error)) << error;
  EXPECT_EQ(a, t3);
  for (uint64_t t : {0, 2, 19, 44}) {  // the base shows through everywhere else
    ASSERT_TRUE(merged->read(t, a, error) && base->read(t, b, error)) << error;
    EXPECT_EQ(a, b) << "track " << t;
  }
  EXPECT_EQ(ckdvol_image::openSource(dir.file("base.s1"), {}, error), nullptr);
  EXPECT_NE(error.find("a shadow file"), std::string::npos) << error;
}

TEST(ImageTest, DamagedImagesAreRefusedWithTheirCause) {
  DataVolume v;
  ScopedTempDir dir;
  ASSERT_EQ(convert(v.vol.path(), dir.file("good.cckd"), Format::kCckd), "");
  ASSERT_EQ(convert(v.vol.path(), dir.file("good.3390"), Format::kCkd), "");
  const Bytes good = readFile(dir.file("good.cckd"));
  ASSERT_EQ(readAll(dir.file("good.cckd")), "");
  // The first stored track's L2 entry, and that track.
  const size_t l2 = 1028;
  size_t e = l2;
  while (good[e] == 0 && good[e + 1] == 0 && good[e + 2] == 0 && good[e + 3] == 0) e += 8;
  const size_t stored = good[e] | good[e + 1] << 8 | good[e + 2] << 16;
  const size_t length = good[e + 4] | good[e + 5] << 8;
  struct Case {
    const char* what;
    std::function<void(Bytes&)> damage;
    const char* cause;
  } cases[] = {
      {"magic", [](Bytes& b) { b[4] = 'X'; }, "not a Hercules CKD image"},
      {"FBA image", [](Bytes& b) { std::copy_n("FBA_C370", 8, b.begin()); }, "only CKD volumes"},
      {"cut in the header", [](Bytes& b) { b.resize(700); }, "too short for the compressed image header"},
      {"cut short", [](Bytes& b) { b.resize(b.size() - 10); }, "the file was cut short"},
      {"device code", [](Bytes& b) { b[16] = 0x99; }, "device code 0x99"},
      {"heads", [](Bytes& b) { b[8] = 16; }, "16 heads"},
      {"L1 entries", [](Bytes& b) { le32(b, 512 + 4, 0x7FFFFFFF); }, "L1 table of 2147483647 entries"},
      {"L2 entries", [](Bytes& b) { le32(b, 512 + 8, 255); }, "255 L2 entries"},
      {"cylinders", [](Bytes& b) { le32(b, 512 + 40, 70000); }, "70000 cylinders"},
      {"null format", [](Bytes& b) { b[512 + 44] = 7; }, "null track format 7"},
      {"L1 past the end", [](Bytes& b) { le32(b, 1024, 0x7FFFFF00); }, "outside the file"},
      {"L1 into the header", [](Bytes& b) { le32(b, 1024, 600); }, "outside the file"},
      {"track past the end", [e](Bytes& b) { le32(b, e, 0xFFFFFF00); }, "lies outside the file"},
      {"track length past the end", [e](Bytes& b) { le16(b, e + 4, 0xFFFF); }, "lies outside the file"},
      {"compression byte", [stored](Bytes& b) { b[stored] = 3; }, "unknown compression 3"},
      {"zlib data", [stored](Bytes& b) { b[stored + 6] ^= 0xFF; }, "zlib data is damaged"},
      {"home address", [stored](Bytes& b) { b[stored + 4] ^= 1; }, "its home address says"},
      {"stored length cut", [e, length](Bytes& b) { le16(b, e + 4, static_cast<uint16_t>(length - 4)); },
       "damaged"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    Bytes b = good;
    c.damage(b);
    writeFile(dir.file("bad.cckd"), b);
    const std::string error = readAll(dir.file("bad.cckd"));
    EXPECT_NE(error.find(c.cause), std::string::npos) << error;
  }

  // A track that expands beyond its slot: 60000 bytes of records stored with zlib.
  Bytes big = good;
  Bytes body(60000, 0);
  Bytes z(compressBound(60000));
  uLongf zn = z.size();
  ASSERT_EQ(compress2(z.data(), &zn, body.data(), 60000, 6), Z_OK);
  le32(big, e, static_cast<uint32_t>(big.size()));
  le16(big, e + 4, static_cast<uint16_t>(zn + 5));
  big.insert(big.end(), good.begin() + static_cast<long>(stored), good.begin() + static_cast<long>(stored) + 5);
  big.insert(big.end(), z.begin(), z.begin() + static_cast<long>(zn));
  le32(big, 512 + 12, static_cast<uint32_t>(big.size()));
  writeFile(dir.file("big.cckd"), big);
  EXPECT_NE(readAll(dir.file("big.cckd")).find("larger than a track of 56832 bytes"), std::string::npos);

  // Plain images: a size that is no whole number of cylinders; a track without its marker.
  Bytes plain = readFile(dir.file("good.3390"));
  plain.resize(plain.size() - 56832);
  writeFile(dir.file("bad.3390"), plain);
  EXPECT_NE(readAll(dir.file("bad.3390")).find("not the 512-byte header plus whole cylinders"), std::string::npos);
  plain = readFile(dir.file("good.3390"));
  std::fill(plain.begin() + 512 + 5, plain.begin() + 512 + 56832, 0x01);  // records run past the track
  writeFile(dir.file("bad.3390"), plain);
  EXPECT_NE(readAll(dir.file("bad.3390")).find("cylinder 0 head 0: its records do not end"), std::string::npos);

  // Split files: the second missing, or not the second of this image.
  ASSERT_EQ(convert(v.vol.path(), dir.file("sp.3390"), Format::kCkd, Compression::kNone, 2), "");
  Bytes second = readFile(dir.file("sp_2.3390"));
  second[17] = 3;  // file sequence 3
  writeFile(dir.file("sp_2.3390"), second);
  EXPECT_NE(readAll(dir.file("sp_1.3390")).find("not file 2 of this split image"), std::string::npos);
  std::remove(dir.file("sp_2.3390").c_str());
  EXPECT_NE(readAll(dir.file("sp_1.3390")).find("sp_2.3390 (file 2 of the split image)"), std::string::npos);
}

TEST(ImageTest, TargetsThatCannotHoldTheVolumeAreRefusedAndLeaveNoFile) {
  ScopedTempDir dir;
  TestVolume d200(EmulatedCKDfile::D200, 5);
  d200.close();
  EXPECT_NE(convert(d200.path(), dir.file("x.cckd"), Format::kCckd).find("D200 volumes have no Hercules device type"),
            std::string::npos);
  DataVolume v;
  EXPECT_NE(convert(v.vol.path(), dir.file("x.3390"), Format::kCkd, Compression::kNone, 1).find("at least 2"),
            std::string::npos);
  writeFile(dir.file("taken.cckd"), {1, 2, 3});
  EXPECT_NE(convert(v.vol.path(), dir.file("taken.cckd"), Format::kCckd).find("exists"), std::string::npos);
  EXPECT_EQ(readFile(dir.file("taken.cckd")), Bytes({1, 2, 3}));
  // A damaged track met halfway: the conversion stops and leaves nothing.
  ASSERT_EQ(convert(v.vol.path(), dir.file("good.3390"), Format::kCkd), "");
  Bytes plain = readFile(dir.file("good.3390"));
  plain[512 + 30 * 56832 + 4] = 9;  // cylinder 2 head 0's home address says head 9
  writeFile(dir.file("good.3390"), plain);
  EXPECT_NE(convert(dir.file("good.3390"), dir.file("out.ckd"), Format::kCkdvol)
                .find("cylinder 2 head 0: its home address says cylinder 2 head 9"),
            std::string::npos);
  std::ifstream probe(dir.file("out.ckd"));
  EXPECT_FALSE(probe.good());
  std::string error;
  auto none = ckdvol_image::openSource(dir.path(), {}, error);  // a directory
  EXPECT_EQ(none, nullptr);
}

}  // namespace

namespace {

// EBCDIC (037) of upper-case letters, digits and blanks, `width` wide.
Bytes ebcdic(const std::string& text, size_t width) {
  Bytes out(width, 0x40);
  for (size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    unsigned char e = 0x40;
    if (c >= 'A' && c <= 'I') e = static_cast<unsigned char>(0xC1 + (c - 'A'));
    if (c >= 'J' && c <= 'R') e = static_cast<unsigned char>(0xD1 + (c - 'J'));
    if (c >= 'S' && c <= 'Z') e = static_cast<unsigned char>(0xE2 + (c - 'S'));
    if (c >= '0' && c <= '9') e = static_cast<unsigned char>(0xF0 + (c - '0'));
    out[i] = e;
  }
  return out;
}

// The blocks' data from `relTrack`/`record` (a member) or from the start, joined.
Bytes joinedBlocks(EmulatedCKDfile& f, const ckdvol::DataSetInfo& ds, int relTrack = -1, uint8_t record = 0) {
  ckdvol::BlockReader reader(f, ds);
  if (relTrack >= 0) reader.startAt(static_cast<uint32_t>(relTrack), record);
  Bytes out;
  ckdvol::Block b;
  int rc;
  while ((rc = reader.next(b)) == ckdvol::kBlockRead) out.insert(out.end(), b.data, b.data + b.dataLength);
  EXPECT_EQ(rc, ckdvol::kBlockEnd) << reader.error();
  return out;
}

// Images that Hercules' own dasdcopy wrote (tests/image/data/README.md):
// each converts to the same volume, whose label, members and records are
// those the README lists.
TEST(ImageTest, ImagesWrittenByHerculesConvertToTheirVolume) {
  ScopedTempDir dir;
  Bytes first;
  for (const char* name : {"hercules-zlib.cckd", "hercules-bzip2.cckd", "hercules-none.cckd"}) {
    SCOPED_TRACE(name);
    const std::string out = dir.file(std::string(name) + ".ckd");
    ASSERT_EQ(convert(std::string(CKDVOL_IMAGE_TEST_DATA) + "/" + name, out, Format::kCkdvol), "");
    const Bytes volume = readFile(out);
    if (first.empty()) first = volume;
    EXPECT_TRUE(volume == first) << "differs from the zlib image's volume";
    EmulatedCKDfile f;
    ASSERT_EQ(f.open(out.c_str(), true), 0);
    EXPECT_EQ(f.cylinders, 3);
    ckdvol::VtocInfo vtoc;
    std::string error;
    ASSERT_EQ(ckdvol::scanVtoc(f, vtoc, error), ckdvol::kScanOk) << error;
    EXPECT_EQ(vtoc.volser, "HFIX01");
    const ckdvol::DataSetInfo* pds = ckdvol::findDataSet(vtoc, "FIX.SOURCE");
    const ckdvol::DataSetInfo* seq = ckdvol::findDataSet(vtoc, "FIX.DATA");
    ASSERT_TRUE(pds != nullptr && seq != nullptr);
    std::vector<ckdvol::MemberInfo> members;
    ASSERT_EQ(ckdvol::readDirectory(f, *pds, members, error), ckdvol::kDirectoryOk) << error;
    ASSERT_EQ(members.size(), 2u);
    EXPECT_EQ(members[0].name, "ALPHA");
    EXPECT_EQ(members[1].name, "BETA");
    Bytes alpha = ebcdic("HELLO FROM MEMBER ALPHA", 80), line2 = ebcdic("SECOND LINE OF ALPHA", 80);
    alpha.insert(alpha.end(), line2.begin(), line2.end());
    EXPECT_EQ(joinedBlocks(f, *pds, members[0].track, members[0].record), alpha);
    Bytes beta;
    for (int i = 1; i <= 300; ++i) {
      char text[32];
      std::snprintf(text, sizeof text, "BETA LINE %05d", i);
      const Bytes l = ebcdic(text, 80);
      beta.insert(beta.end(), l.begin(), l.end());
    }
    EXPECT_EQ(joinedBlocks(f, *pds, members[1].track, members[1].record), beta);
    // One VB block: BDW 43, then RDWs 7, 11 and 21 before each record.
    Bytes vb = {0x00, 0x2B, 0x00, 0x00, 0x00, 0x07, 0x00, 0x00};
    for (const Bytes& r : {ebcdic("ONE", 3), ebcdic("TWO TWO", 7), ebcdic("THREE THREE THREE", 17)}) {
      if (r.size() != 3) {
        const Bytes rdw = {0x00, static_cast<unsigned char>(r.size() + 4), 0x00, 0x00};
        vb.insert(vb.end(), rdw.begin(), rdw.end());
      }
      vb.insert(vb.end(), r.begin(), r.end());
    }
    EXPECT_EQ(joinedBlocks(f, *seq), vb);
    f.close();
  }
}

}  // namespace
