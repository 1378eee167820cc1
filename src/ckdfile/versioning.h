// Internal header (not installed): the version trailer's accessors and the
// result codes of track versioning (versioning.cc) and track verification
// (verification.cc). The tool reads the codes from here to word its messages.
//
// Trailer, the last 16 bytes of every track slot and of every saved copy
// (big-endian; offsets in ckdfile/volume_format.h):
//
//   +-------------+-------------+--------------+---------------------------+
//   | marker[4]   | version u16 | reserved u16 | link u64                  |
//   | "VER0"      |             | 0            | home slot: its copy's     |
//   |             |             |              | offset; copy: its home's  |
//   +-------------+-------------+--------------+---------------------------+
//
// A trailer whose marker is not "VER0" stands for version 0.
#ifndef CKDVOL_CKDFILE_VERSIONING_H_
#define CKDVOL_CKDFILE_VERSIONING_H_

#include <cstdint>
#include <cstring>

#include "ckdfile/volume_format.h"
#include "common/byte_order.h"

namespace ckdvol {

// ---- result codes ---------------------------------------------------------

// doVersion's operation argument.
enum VersionOperation { kVersionCommit = 1, kVersionVerify = 0, kVersionRollback = -1 };

enum EnableVersionResult {
  kEnableOk = 0,
  kEnableNoFile = -1,
  kEnableReadOnly = -2,
  kEnableHeaderRead = -3,   // header unreadable or its magic is not "CKD_XVOL"
  kEnableHeaderWrite = -4,
  kEnablePending = -5       // a version is already enabled but not yet active
};

enum DisableVersionResult {
  kDisableOk = 0,
  kDisableNoFile = -1,
  kDisableReadOnly = -2,
  kDisableHeaderRead = -3,
  kDisableBusy = -5,        // copies of the active version exist, or a version is pending
  kDisableNotActive = -6    // versioning is off, or the header could not be written
  // any other negative value comes from queryVersion
};

enum ClearHeaderResult {
  kClearHeaderOk = 0,
  kClearHeaderNoFile = -1,
  kClearHeaderReadOnly = -2,
  kClearHeaderRead = -3,
  kClearHeaderWrite = -4
};

enum QueryVersionResult {
  kQueryCurrent = 0,   // no version pending
  kQueryPending = 1,   // latestVersion differs from activeVersion
  kQueryNoFile = -1,
  kQueryNoEnd = -3,    // end of the file not found
  kQueryReadCopy = -4  // a slot of the copy area could not be read
};

// versionTrack's failure value (0 and the copy's offset are its successes).
constexpr long long kVersionTrackFailed = -1;

enum DoVersionResult {
  // 0 and positive: the number of saved copies processed
  kDoVersionNoFile = -1,
  kDoVersionReadOnly = -2,
  kDoVersionNoEnd = -4,          // end of the file not found
  kDoVersionCopyRead = -5,       // a saved copy could not be read
  kDoVersionCopyNoMarker = -6,   // a saved copy lacks "VER0"
  kDoVersionHomeRead = -7,       // its home slot could not be read
  kDoVersionHomeNoMarker = -8,   // its home slot lacks "VER0"
  kDoVersionHomeNoLink = -9,     // its home slot does not link back to the copy
  kDoVersionTrackMismatch = -10, // copy and home slot name different tracks
  kDoVersionHomeWrite = -11,     // writing a home slot failed
  kDoVersionSync = -12,          // the periodic fdatasync failed
  kDoVersionTruncate = -13       // the final truncation failed
};

// verifyCode values left by verifyTrack. A bad count field of the n-th record
// after record zero gives n * 100 + kVerifyBadCount, modulo 65536.
enum VerifyCode : uint16_t {
  kVerifyOk = 0,
  kVerifyNoTrack = 1,         // no current track
  kVerifyHomeAddress = 2,     // home address does not name the current track
  kVerifyRecordZero = 3,      // record zero's count field does not name it, or R is not 0
  kVerifyPastLimit = 4,       // a record ends after dataLimit
  kVerifyBadCount = 5,        // n * 100 + 5: the n-th record's count field is bad
  kVerifyCopyUnreadable = 7,  // the trailer links to a slot that cannot be read
  kVerifyCopyNoMarker = 8,    // the slot at the link lacks "VER0"
  kVerifyCopyNoBackLink = 9,  // the saved copy does not link back to this track
  kVerifyNoLink = 10          // "VER0" with a zero link
};

// True when `code` belongs to the n * 100 + 5 family. After the wrap modulo
// 65536 such a code need not end in 05, but it never equals one of the fixed
// codes: that would take n >= 7209 records, more than the largest slot holds.
inline bool isBadCountCode(uint16_t code) {
  switch (code) {
    case kVerifyOk: case kVerifyNoTrack: case kVerifyHomeAddress: case kVerifyRecordZero:
    case kVerifyPastLimit: case kVerifyBadCount: case kVerifyCopyUnreadable:
    case kVerifyCopyNoMarker: case kVerifyCopyNoBackLink: case kVerifyNoLink:
      return false;
    default:
      return true;
  }
}

// ---- trailer accessors ------------------------------------------------------
// `slot` points at a whole slot of `slotSize` bytes (slotSize >= 16).

inline unsigned char* trailerOf(unsigned char* slot, unsigned int slotSize) {
  return slot + slotSize - kTrailerSize;
}
inline const unsigned char* trailerOf(const unsigned char* slot, unsigned int slotSize) {
  return slot + slotSize - kTrailerSize;
}

inline bool trailerHasMarker(const unsigned char* trailer) {
  return std::memcmp(trailer + kTrlMarker, kVersionMarker, kVersionMarkerLength) == 0;
}
inline uint16_t trailerVersion(const unsigned char* trailer) {
  return loadBe16(trailer + kTrlVersion);
}
inline uint64_t trailerLink(const unsigned char* trailer) { return loadBe64(trailer + kTrlLink); }

inline void setTrailerMarker(unsigned char* trailer) {
  std::memcpy(trailer + kTrlMarker, kVersionMarker, kVersionMarkerLength);
}
inline void setTrailerLink(unsigned char* trailer, uint64_t link) {
  storeBe64(trailer + kTrlLink, link);
}
inline void clearTrailer(unsigned char* trailer) { std::memset(trailer, 0, kTrailerSize); }

}  // namespace ckdvol

#endif  // CKDVOL_CKDFILE_VERSIONING_H_
