// A small unloaded PDS written out by hand, shared by the unload and the
// transfer-file tests: the original data set had two extents (CC 0010 HH
// 0003-0004: 2 tracks; CC 0020 HH 0000-000E: 15 tracks) on a device of 15
// heads; its directory block holds LOADMOD (one user TTR in its user data,
// like a load module's note list) and SRC.
#ifndef CKDVOL_TESTS_TRANSFER_UNLOAD_FIXTURE_H_
#define CKDVOL_TESTS_TRANSFER_UNLOAD_FIXTURE_H_

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "transfer/transfer_contents.h"

namespace ckdvol_test {

using ckdvol::Bytes;

inline std::vector<Bytes> handUnload() {
  Bytes copyr1 = {
      0x00,                    // flags: a PDS unload
      0xCA, 0x6D, 0x0F,        // eyecatcher
      0x02, 0x00,              // DS1DSORG PO
      0x18, 0x10,              // DS1BLKL 6160
      0x00, 0x00,              // DS1LRECL 0
      0xC0,                    // DS1RECFM U
      0x00, 0x00, 0x00,        // DS1KEYL, DS1OPTCD, DS1SMSFG
      0x18, 0x24,              // unload block size 6180 (16 + 6160 + 4)
      0x30, 0x50, 0x20, 0x0F,  // device type
      0x00, 0x00, 0xDD, 0x58,  // largest block 56664
      0x0D, 0x11,              // cylinders 3345
      0x00, 0x0F,              // heads 15
      0xDD, 0x58,              // track length 56664
      0x00, 0x00, 0x00, 0x00,  // block overhead, keyed overhead, device flags
      0x00, 0x00,              // tolerance
      0x00, 0x02,              // header records
      0x00,                    // reserved
      0x00, 0x00, 0x00,        // DS1REFD
      0x00, 0x00, 0x00,        // DS1SCEXT
      0x00, 0x00, 0x00, 0x00,  // DS1SCALO
      0x00, 0x02, 0x02,        // DS1LSTAR: the last block, TTR 0002 02
      0x00, 0x00,              // DS1TRBAL
      0x00, 0x00,              // reserved
  };
  Bytes copyr2(276, 0);
  copyr2[0] = 2;  // extents
  const unsigned char extents[2][10] = {
      {0x00, 0x10, 0x00, 0x03, 0x00, 0x10, 0x00, 0x04, 0x00, 0x02},  // start CC HH, end CC HH, 2 tracks
      {0x00, 0x20, 0x00, 0x00, 0x00, 0x20, 0x00, 0x0E, 0x00, 0x0F},  // 15 tracks
  };
  std::memcpy(&copyr2[16 + 6], extents[0], 10);  // entry 1 from byte 16, its extent from its byte 6
  std::memcpy(&copyr2[32 + 6], extents[1], 10);
  Bytes directory = {
      0x00, 0x00, 0x00, 0x00,                          // flags, M 0, BB
      0x00, 0x10, 0x00, 0x03, 0x01,                    // CC HH R: record 1 of relative track 0
      0x08, 0x01, 0x00,                                // KL 8, DL 256
      0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF,  // key: the block's last name (the end entry)
      0x00, 0x2A,                                      // bytes used 42
      0xD3, 0xD6, 0xC1, 0xC4, 0xD4, 0xD6, 0xC4, 0x40,  // LOADMOD
      0x00, 0x01, 0x01,                                // TTR 0001 01
      0x22,                                            // one user TTR, 2 halfwords of user data
      0x00, 0x02, 0x03, 0x00,                          // user data: TTR 000203 and a zero byte
      0xE2, 0xD9, 0xC3, 0x40, 0x40, 0x40, 0x40, 0x40,  // SRC
      0x00, 0x02, 0x01, 0x00,                          // TTR 0002 01, indicator 0
      0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF,  // end entry
      0x00, 0x00, 0x00, 0x00,                          // TTR 0, indicator 0
  };
  directory.resize(12 + 8 + 256, 0);  // the rest of the block
  directory.resize(directory.size() + 12, 0);  // end of the directory: 12 zero bytes
  const Bytes members = {
      0x00, 0x00, 0x00, 0x00, 0x00, 0x10, 0x00, 0x04, 0x01, 0x00, 0x00, 0x04,  // M 0, CCHHR 0010 0004 01, DL 4
      0x47, 0x11, 0x00, 0x01,                                                  // LOADMOD's block
      0x00, 0x00, 0x00, 0x00, 0x00, 0x10, 0x00, 0x04, 0x02, 0x00, 0x00, 0x00,  // its EOF, R 2
      0x00, 0x01, 0x00, 0x00, 0x00, 0x20, 0x00, 0x00, 0x01, 0x00, 0x00, 0x03,  // M 1, CCHHR 0020 0000 01, DL 3
      0xC1, 0xC2, 0xC3,                                                        // SRC's block "ABC"
      0x00, 0x01, 0x00, 0x00, 0x00, 0x20, 0x00, 0x00, 0x02, 0x00, 0x00, 0x00,  // its EOF, R 2
  };
  return {copyr1, copyr2, directory, members};
}

// What handUnload() holds.
inline ckdvol::UnloadedPds handPds() {
  ckdvol::UnloadedPds p;
  p.dsorg = 0x0200;
  p.recfm = 0xC0;
  p.lrecl = 0;
  p.blksize = 6160;
  p.keyLength = 0;
  p.deviceType = 0x3050200F;
  p.trackLength = 56664;
  p.containerBlockSize = 6180;
  p.heads = 15;
  p.cylinders = 3345;
  p.extents = {{0x10, 3, 0x10, 4, 2}, {0x20, 0, 0x20, 14, 15}};
  p.directoryBlocks = 1;
  ckdvol::DirectoryEntry load, src;
  std::memcpy(load.name.data(), "\xD3\xD6\xC1\xC4\xD4\xD6\xC4\x40", 8);
  load.ttr = {1, 1};
  load.indicator = 0x22;
  load.userData = {0x00, 0x02, 0x03, 0x00};
  std::memcpy(src.name.data(), "\xE2\xD9\xC3\x40\x40\x40\x40\x40", 8);
  src.ttr = {2, 1};
  p.entries = {load, src};
  p.blocks = {{{1, 1}, {}, {0x47, 0x11, 0x00, 0x01}}, {{1, 2}, {}, {}}, {{2, 1}, {}, {0xC1, 0xC2, 0xC3}}, {{2, 2}, {}, {}}};
  return p;
}

inline void expectSamePds(const ckdvol::UnloadedPds& want, const ckdvol::UnloadedPds& got) {
  EXPECT_EQ(want.dsorg, got.dsorg);
  EXPECT_EQ(want.recfm, got.recfm);
  EXPECT_EQ(want.lrecl, got.lrecl);
  EXPECT_EQ(want.blksize, got.blksize);
  EXPECT_EQ(want.keyLength, got.keyLength);
  EXPECT_EQ(want.deviceType, got.deviceType);
  EXPECT_EQ(want.trackLength, got.trackLength);
  EXPECT_EQ(want.containerBlockSize, got.containerBlockSize);
  EXPECT_EQ(want.heads, got.heads);
  EXPECT_EQ(want.cylinders, got.cylinders);
  EXPECT_EQ(want.directoryBlocks, got.directoryBlocks);
  ASSERT_EQ(want.extents.size(), got.extents.size());
  for (size_t i = 0; i < want.extents.size(); ++i) {
    const auto &a = want.extents[i], &b = got.extents[i];
    EXPECT_TRUE(a.startCylinder == b.startCylinder && a.startHead == b.startHead && a.endCylinder == b.endCylinder &&
                a.endHead == b.endHead && a.tracks == b.tracks)
        << "extent " << i;
  }
  ASSERT_EQ(want.entries.size(), got.entries.size());
  for (size_t i = 0; i < want.entries.size(); ++i) {
    const auto &a = want.entries[i], &b = got.entries[i];
    EXPECT_TRUE(a.name == b.name && a.ttr == b.ttr && a.indicator == b.indicator && a.userData == b.userData)
        << "entry " << i << " " << b.text();
  }
  ASSERT_EQ(want.blocks.size(), got.blocks.size());
  for (size_t i = 0; i < want.blocks.size(); ++i) {
    const auto &a = want.blocks[i], &b = got.blocks[i];
    EXPECT_TRUE(a.ttr == b.ttr && a.key == b.key && a.data == b.data) << "block " << i;
  }
}

}  // namespace ckdvol_test

#endif  // CKDVOL_TESTS_TRANSFER_UNLOAD_FIXTURE_H_
