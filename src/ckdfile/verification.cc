// Track verification: checks that the image in trackBuffer is a well-formed
// track of the current address and that its version link is intact, leaves
// the reason in verifyCode and, when asked, mends the slot in the file.
//
// The walk works on offsets into the buffer, never on pointers past it: every
// count field it decodes starts at or before dataLimit (slot size - 24), so
// its 8 bytes end before the trailer, and every step advances by at least 8
// bytes, so the walk ends within slot size / 8 records whatever the bytes say.
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>

#include "ckdfile/emulated_ckd_file.h"
#include "ckdfile/versioning.h"
#include "ckdfile/volume_format.h"

using namespace ckdvol;

namespace {

constexpr unsigned int kNoCylinder = 0xFFFFFFFFu;
constexpr unsigned short kNoHead = 0xFFFF;
constexpr unsigned short kNoCell = 0xFFFF;

}  // namespace

bool EmulatedCKDfile::verifyTrack(bool repair) {
  if (currentCyl == kNoCylinder || currentHead == kNoHead || currentCell == kNoCell ||
      trackBuffer == nullptr) {
    verifyCode = kVerifyNoTrack;
    return false;
  }
  const long long slotOffset = getOffset(currentCyl, currentHead, currentCell, true);
  const size_t dataLimit = trackSlotSize - kDataLimitFromEnd;

  // Repair writes go straight to the slot, past versioning; their failures
  // are not reported, and an uncomputable offset writes nothing.
  auto writeSlot = [&]() {
    if (slotOffset >= 0) (void)writeRawTrack(static_cast<unsigned long long>(slotOffset), trackBuffer);
  };
  // Codes 2 and 3, and a record zero that runs past dataLimit: the slot gets an
  // empty track and the buffer no longer stands for it.
  auto reformat = [&]() {
    (void)formatTrack(currentCyl, currentHead, currentCell);
    currentCyl = kNoCylinder;
    currentHead = kNoHead;
    currentCell = kNoCell;
  };
  auto fail = [&](unsigned int code) {
    verifyCode = static_cast<unsigned short>(code);  // n * 100 + 5 wraps modulo 65536
    return false;
  };

  const unsigned char* q = trackBuffer;
  unsigned char flag;
  unsigned int cyl, head;
  getHA(q, flag, cyl, head);
  if (cyl != currentCyl || head != currentHead) {
    if (repair) reformat();
    return fail(kVerifyHomeAddress);
  }

  unsigned short record, keyLength, dataLength;
  getCount(q, cyl, head, record, keyLength, dataLength);
  if (cyl != currentCyl || head != currentHead || record != 0) {
    if (repair) reformat();
    return fail(kVerifyRecordZero);
  }

  const size_t afterRecordZero =
      kRecordZeroOffset + kCountSize + static_cast<size_t>(keyLength) + dataLength;
  if (afterRecordZero > dataLimit) {
    if (repair) reformat();  // there is no room to cut back to
    return fail(kVerifyPastLimit);
  }

  size_t p = afterRecordZero;
  unsigned int refCyl = 0, refHead = 0;
  for (unsigned int n = 1;; ++n) {
    if (isEndMarker(trackBuffer + p)) break;
    q = trackBuffer + p;
    getCount(q, cyl, head, record, keyLength, dataLength);
    if (n == 1) {
      refCyl = cyl;
      refHead = head;
    }
    if ((keyLength != 0 || dataLength != 0) &&
        (record == 0 || (n >= 2 && (cyl != refCyl || head != refHead)))) {
      if (repair) {
        // The end marker goes over the bad count field; everything behind it
        // up to the trailer's link becomes zero (trailer marker, version and
        // reserved bytes included), so the records before it stay.
        std::memset(trackBuffer + p, kEndMarkerByte, kEndMarkerSize);
        std::memset(trackBuffer + p + kEndMarkerSize, 0,
                    trackSlotSize - kTrailerSize + kTrlLink - (p + kEndMarkerSize));
        writeSlot();
      }
      return fail(n * 100 + kVerifyBadCount);
    }
    p += kCountSize + static_cast<size_t>(keyLength) + dataLength;
    if (p > dataLimit) {
      if (repair) {
        // Cut back to record zero: all records after it are dropped.
        std::memset(trackBuffer + afterRecordZero, 0, dataLimit - afterRecordZero);
        std::memset(trackBuffer + afterRecordZero, kEndMarkerByte, kEndMarkerSize);
        writeSlot();
      }
      return fail(kVerifyPastLimit);
    }
  }

  unsigned char* trailer = trailerOf(trackBuffer, trackSlotSize);
  if (!trailerHasMarker(trailer)) {
    verifyCode = kVerifyOk;
    return true;
  }
  // From here on every finding is mended by making the track unversioned.
  auto unversion = [&](unsigned int code) {
    if (repair) {
      clearTrailer(trailer);
      writeSlot();
    }
    return fail(code);
  };
  const unsigned long long link = trailerLink(trailer);
  if (link == 0) return unversion(kVerifyNoLink);

  std::unique_ptr<unsigned char[]> copy(new unsigned char[trackSlotSize]);
  // A link beyond the range of file offsets names no slot that could be read.
  if (link > static_cast<unsigned long long>(INT64_MAX) || readRawTrack(link, copy.get()) != kTrackOk) {
    bool result = unversion(kVerifyCopyUnreadable);
    std::printf("This is it;; ofs = %d\n", static_cast<int>(slotOffset));
    return result;
  }
  const unsigned char* copyTrailer = trailerOf(copy.get(), trackSlotSize);
  if (!trailerHasMarker(copyTrailer)) return unversion(kVerifyCopyNoMarker);

  long long home = static_cast<long long>(trailerLink(copyTrailer));
  if (home == 0) {
    q = copy.get();
    getHA(q, flag, cyl, head);
    home = getOffset(cyl, static_cast<unsigned short>(head), 0, true);
  }
  // Compared as computed: an uncomputable own offset is not examined.
  if (home != slotOffset) return unversion(kVerifyCopyNoBackLink);
  verifyCode = kVerifyOk;
  return true;
}
