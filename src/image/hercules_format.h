// Internal header (not installed): the byte layout of the Hercules
// emulator's CKD disk images, as its public sources define them.
//
// Every file begins with a 512-byte device header (numbers little-endian):
//   0 magic[8] | 8 heads u32 | 12 track size u32 | 16 device code u8 (low
//   byte of the device type) | 17 file sequence u8 (0 only file, 1.. split)
//   | 18 high cylinder u16 (last cylinder of this file, 0 in the last file)
//   | 20 serial[12] | 32..511 reserved
// Plain images ("CKD_P370", "CKD_P064") then hold one track of `track size`
// bytes per track. A volume too large for one file is split into files whose
// names carry _1, _2, ... (then _A ...) in front of the first dot of the name.
//
// Compressed images ("CKD_C370", shadow files "CKD_S370") follow with a
// 512-byte compressed device header at 512 (little-endian unless the options
// byte says big-endian):
//   0 version, release, modification (0, 3, 1) | 3 options | 4 L1 entries s32
//   | 8 L2 entries s32 (256) | 12 file size u32 | 16 used u32 | 20 free
//   offset u32 | 24 free total u32 | 28 largest free u32 | 32 free count s32
//   | 36 imbedded free u32 | 40 cylinders u32 | 44 null format u8 | 45
//   compression u8 | 46 compression parameter s16
// then the L1 table at 1024 (u32 file offsets of L2 tables) and L2 tables of
// 256 entries { offset u32, length u16, size u16 }.
// The 64-bit form ("CKD_C064", "CKD_S064") has at 512:
//   0 vrm[3] | 3 options | 4 L1 entries | 8 L2 entries | 12 cylinders u32 |
//   16 file size u64 | 24 used u64 | 32 free offset u64 | 40 free total u64 |
//   48 largest free u64 | 56 free count s64 | 64 imbedded free u64 |
//   72 null format u8 | 73 compression u8 | 74 compression parameter s16
// with u64 L1 entries and L2 entries { offset u64, length u16, size u16,
// pad u32 }.
//
// L1 entry 0: every track of the group is a null track (the header's null
// format); all ones (shadow files): the group is not in this file. L2 entry
// offset 0: a null track whose format is the entry's length (0, 1, 2); all
// ones (shadow files): the track is not in this file.
//
// A stored track image begins with 5 bytes: the compression (0 none, 1 zlib,
// 2 bzip2) where the home address has its flag byte, then CC and HH; the
// rest (record zero up to and including the end marker) is compressed.
#ifndef CKDVOL_IMAGE_HERCULES_FORMAT_H_
#define CKDVOL_IMAGE_HERCULES_FORMAT_H_

#include <cstdint>

namespace ckdvol_image {
namespace herc {

constexpr int kDevHeaderSize = 512;
constexpr int kMagicLength = 8;
constexpr int kDhHeads = 8, kDhTrackSize = 12, kDhDeviceCode = 16, kDhFileSeq = 17, kDhHighCyl = 18;

constexpr int kCdhPos = 512, kCdhSize = 512;
constexpr int kL1Pos = 1024;
constexpr int kL2Entries = 256;
// 32-bit compressed header offsets (from kCdhPos).
constexpr int kC32Opts = 3, kC32NumL1 = 4, kC32NumL2 = 8, kC32Size = 12, kC32Used = 16, kC32FreeOff = 20,
              kC32FreeTotal = 24, kC32FreeLargest = 28, kC32FreeNum = 32, kC32FreeImbed = 36, kC32Cyls = 40,
              kC32NullFmt = 44, kC32Compress = 45, kC32CompressParm = 46;
// 64-bit compressed header offsets.
constexpr int kC64Opts = 3, kC64NumL1 = 4, kC64NumL2 = 8, kC64Cyls = 12, kC64Size = 16, kC64Used = 24,
              kC64FreeOff = 32, kC64FreeTotal = 40, kC64FreeLargest = 48, kC64FreeNum = 56, kC64FreeImbed = 64,
              kC64NullFmt = 72, kC64Compress = 73, kC64CompressParm = 74;

constexpr unsigned char kVersion = 0, kRelease = 3, kModLevel = 1;
constexpr unsigned char kOptBigEndian = 0x02;
constexpr unsigned char kCompressMask = 0x03;

constexpr int kNullFmt0 = 0;  // home address, record zero, EOF record, end marker
constexpr int kNullFmt1 = 1;  // home address, record zero, end marker
constexpr int kNullFmt2 = 2;  // record zero and 12 records of 4096 zeros
constexpr int kNullFmtMax = 2;

constexpr int kCompressMin = 512;  // images shorter than this are stored as they are
constexpr unsigned kMaxFiles = 27; // files of one split plain image

}  // namespace herc
}  // namespace ckdvol_image

#endif  // CKDVOL_IMAGE_HERCULES_FORMAT_H_
