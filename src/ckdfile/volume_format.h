// Internal header (not installed): the one home of the volume file's layout.
//
// File:
//   +------------------+--------+--------+-----+-----------+----------------+
//   | header 512 bytes | slot 0 | slot 1 | ... | slot N-1  | saved copies...|
//   +------------------+--------+--------+-----+-----------+----------------+
//   slot i at 512 + i * trackSlotSize; saved copies (versioning) behind the
//   last slot, one whole slot each.
//
// Header (little-endian):
//   0 magic[8] "CKD_XVOL"/"CKD_INIT" | 8 heads u32 | 12 trackSize u32 |
//   16 deviceCode u8 | 17 formatLevel u8 | 18 createdCylinders u32 |
//   22 cylinders u32 | 26 versionMarker[4] "VER0" | 30 activeVersion u16 |
//   32 latestVersion u16 | 34..511 zero
//
// Slot (big-endian, unaligned):
//   0 home address: flag u8, CC u16, HH u16
//   5 record zero: count field, key, data
//     further records back to back: count(8) key(KL) data(DL)
//     end-of-track marker: 8 x 0xFF, beginning at slot - 24 at the latest
//   slot-16 trailer: marker[4] "VER0" | version u16 | reserved u16 | link u64
//
// Count field: CC u16 | HH u16 | R u8 | KL u8 | DL u16
#ifndef CKDVOL_CKDFILE_VOLUME_FORMAT_H_
#define CKDVOL_CKDFILE_VOLUME_FORMAT_H_

#include <cstdint>

namespace ckdvol {

// ---- header ----
constexpr int kHeaderSize = 512;
constexpr int kHdrMagic = 0;             // 8 bytes
constexpr int kHdrHeads = 8;             // u32 LE
constexpr int kHdrTrackSize = 12;        // u32 LE
constexpr int kHdrDeviceCode = 16;       // u8
constexpr int kHdrFormatLevel = 17;      // u8
constexpr int kHdrCreatedCylinders = 18; // u32 LE
constexpr int kHdrCylinders = 22;        // u32 LE
constexpr int kHdrVersionMarker = 26;    // 4 bytes
constexpr int kHdrActiveVersion = 30;    // u16 LE
constexpr int kHdrLatestVersion = 32;    // u16 LE
constexpr int kMagicLength = 8;
constexpr char kMagicReady[] = "CKD_XVOL";
constexpr char kMagicInit[] = "CKD_INIT";
constexpr char kVersionMarker[] = "VER0";  // 4 bytes, header and trailer
constexpr int kVersionMarkerLength = 4;

// ---- slot ----
constexpr int kHomeAddressSize = 5;
constexpr int kCountSize = 8;
constexpr int kEndMarkerSize = 8;
constexpr int kTrailerSize = 16;
constexpr int kDataLimitFromEnd = 24;  // dataLimit = slot size - 24
constexpr int kRecordZeroOffset = 5;
constexpr int kRecordZeroDataLength = 8;
constexpr int kEmptyTrackEndMarker = 21;  // 5 + 8 + 8
constexpr unsigned char kEndMarkerByte = 0xFF;

// Trailer fields, offsets within the 16 trailer bytes.
constexpr int kTrlMarker = 0;    // 4 bytes
constexpr int kTrlVersion = 4;   // u16 BE
constexpr int kTrlReserved = 6;  // u16 BE
constexpr int kTrlLink = 8;      // u64 BE

// Count field offsets.
constexpr int kCntCC = 0;
constexpr int kCntHH = 2;
constexpr int kCntR = 4;
constexpr int kCntKL = 5;
constexpr int kCntDL = 6;

// Volumes above this many cylinders use 28-bit cylinder numbers (D600 only).
constexpr unsigned int kMaxSmallCylinders = 65520;
constexpr unsigned int kLargeCylinderMultiple = 1113;

// Sync cadence of initialisation and version commit/rollback.
constexpr unsigned long long kSyncBytes = 5242880;  // 5 MiB

// True when the 8 bytes at p are the end-of-track marker.
inline bool isEndMarker(const unsigned char* p) {
  for (int i = 0; i < kEndMarkerSize; ++i) {
    if (p[i] != kEndMarkerByte) return false;
  }
  return true;
}

}  // namespace ckdvol

#endif  // CKDVOL_CKDFILE_VOLUME_FORMAT_H_
