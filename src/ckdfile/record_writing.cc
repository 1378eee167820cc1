// Record writing and track formatting: writeCKD and writeD change the image
// in `trackBuffer` (the track write path stores it later); formatTrack writes
// an empty track straight into a slot of the file.
//
// Both in-memory writers bound everything they write by dataLimit (slot size
// - 24): no record ends beyond it, so the end marker behind the last record
// never reaches the version trailer, which neither of them touches.
#include <cstddef>
#include <cstring>
#include <memory>

#include "ckdfile/emulated_ckd_file.h"
#include "ckdfile/volume_format.h"

namespace {

using ckdvol::kCountSize;
using ckdvol::kDataLimitFromEnd;
using ckdvol::kEmptyTrackEndMarker;
using ckdvol::kEndMarkerByte;
using ckdvol::kEndMarkerSize;
using ckdvol::kHomeAddressSize;
using ckdvol::kRecordZeroDataLength;

// Slot offset of dataLimit, or 0 for a buffer too small to hold one.
size_t dataLimitOffset(const EmulatedCKDfile& f) {
  return f.trackBuffer != nullptr && f.trackSlotSize > static_cast<unsigned>(kDataLimitFromEnd)
             ? f.trackSlotSize - kDataLimitFromEnd
             : 0;
}

// Slot offset of `ref` when it lies in [trackBuffer, dataLimit), else -1.
long refOffset(const EmulatedCKDfile& f, const void* ref) {
  const size_t limit = dataLimitOffset(f);
  const unsigned char* r = static_cast<const unsigned char*>(ref);
  if (limit == 0 || r < f.trackBuffer || r >= f.trackBuffer + limit) return -1;
  return static_cast<long>(r - f.trackBuffer);
}

}  // namespace

int EmulatedCKDfile::writeCKD(const void* ref, unsigned int cyl, unsigned short head,
                              unsigned char record, unsigned char keyLength,
                              unsigned short dataLength, const void* data) {
  const long off = refOffset(*this, ref);
  if (off < 0) return kWriteBadRef;
  const size_t limit = dataLimitOffset(*this);

  size_t insert;
  if (off == 0) {
    const unsigned char* p = trackBuffer;
    unsigned char flag;
    unsigned int haCyl, haHead;
    getHA(p, flag, haCyl, haHead);
    if (haCyl != cyl || haHead != head) return kWriteHaMismatch;
    if (record != 0) return kWriteNotR0;
    insert = kHomeAddressSize;
  } else {
    // off < dataLimit, so the 8 count bytes lie before the trailer.
    const unsigned char* p = trackBuffer + off;
    unsigned int rCyl, rHead;
    unsigned short rNumber, kl, dl;
    getCount(p, rCyl, rHead, rNumber, kl, dl);
    insert = static_cast<size_t>(off) + kCountSize + kl + dl;
  }
  const size_t payload = static_cast<size_t>(keyLength) + dataLength;
  const size_t recordEnd = insert + kCountSize + payload;
  if (recordEnd > limit) return kWriteNoRoom;

  unsigned char* p = trackBuffer + insert;
  putCount(p, static_cast<int>(cyl), head, record, keyLength, dataLength);
  if (payload != 0) std::memcpy(p, data, payload);
  // recordEnd <= dataLimit, so the marker ends at the trailer at the latest.
  std::memset(trackBuffer + recordEnd, kEndMarkerByte, kEndMarkerSize);
  const size_t markerEnd = recordEnd + kEndMarkerSize;
  if (markerEnd < limit) std::memset(trackBuffer + markerEnd, 0, limit - markerEnd);
  trackDirty = 1;
  return kWriteOk;
}

int EmulatedCKDfile::writeD(const void* ref, const void* data) {
  const long off = refOffset(*this, ref);
  if (off < 0) return kWriteBadRef;
  const unsigned char* p = trackBuffer + off;
  unsigned int rCyl, rHead;
  unsigned short rNumber, kl, dl;
  getCount(p, rCyl, rHead, rNumber, kl, dl);
  const size_t dataStart = static_cast<size_t>(off) + kCountSize + kl;
  // At-or-beyond: a data area ending exactly at dataLimit is refused too.
  // Whatever `ref` designates (even the home address), the copy stays
  // before dataLimit.
  if (dataStart + dl >= dataLimitOffset(*this)) return kWriteDataEnd;
  if (dl != 0) std::memcpy(trackBuffer + dataStart, data, dl);
  trackDirty = 1;
  return kWriteOk;
}

int EmulatedCKDfile::formatTrack(unsigned int cyl, unsigned short head, unsigned short cell) {
  if (fileDescriptor < 0 || readOnly) return kFormatNoFile;
  std::unique_ptr<unsigned char[]> image(new unsigned char[trackSlotSize]());
  unsigned char* p = image.get();
  putHA(p, 0, cyl, head);
  putCount(p, static_cast<int>(cyl), head, 0, 0, kRecordZeroDataLength);
  p += kRecordZeroDataLength;  // record zero's data stays zero
  std::memset(image.get() + kEmptyTrackEndMarker, kEndMarkerByte, kEndMarkerSize);

  const long long offset = getOffset(cyl, head, cell, true);
  if (offset < 0) return kFormatRange;
  return writeRawTrack(static_cast<unsigned long long>(offset), image.get()) == 0 ? kFormatOk
                                                                                 : kFormatIo;
}
