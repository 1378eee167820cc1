// Record positioning and search on the current track: locate, locateNext,
// searchKey and searchRecord.
//
// Every operation works in place on `trackBuffer` and hands out references
// (pointers into it). A walk along the track starts at record zero (slot
// offset 5) and moves on by 8 + KL + DL per record; each step is checked
// against the end of the record area (slot size - 24) before the next count
// field is read, so a damaged count field (huge KL/DL, a missing end marker)
// ends the walk with a miss instead of a read outside the buffer. Every miss
// and every failure is a null reference.
#include <cstddef>
#include <cstring>

#include "ckdfile/emulated_ckd_file.h"
#include "ckdfile/volume_format.h"

namespace {

using ckdvol::isEndMarker;
using ckdvol::kCountSize;
using ckdvol::kDataLimitFromEnd;
using ckdvol::kRecordZeroOffset;
using ckdvol::kTrailerSize;

// True when the object holds a track image whose address is known.
bool hasCurrentTrack(const EmulatedCKDfile& f) {
  return f.trackBuffer != nullptr && f.currentCyl != 0xFFFFFFFFu && f.currentHead != 0xFFFF &&
         f.currentCell != 0xFFFF;
}

// Slot offset of the end of the record area (where the end marker begins at
// the latest).
size_t recordAreaEnd(const EmulatedCKDfile& f) {
  return f.trackSlotSize >= static_cast<unsigned>(kDataLimitFromEnd)
             ? f.trackSlotSize - kDataLimitFromEnd
             : 0;
}

// True when the 8 bytes at slot offset `off` lie inside the buffer and are
// the end-of-track marker.
bool markerAt(const EmulatedCKDfile& f, size_t off) {
  return off + kCountSize <= f.trackSlotSize && isEndMarker(f.trackBuffer + off);
}

// Slot offset of the record behind the count field at `off`. Precondition:
// the 8 bytes at `off` are inside the buffer. The sum cannot overflow
// (KL <= 255, DL <= 65535).
size_t nextRecord(const EmulatedCKDfile& f, size_t off) {
  const unsigned char* p = f.trackBuffer + off;
  unsigned int cyl, head;
  unsigned short record, keyLength, dataLength;
  f.getCount(p, cyl, head, record, keyLength, dataLength);
  return off + kCountSize + keyLength + dataLength;
}

}  // namespace

const void* EmulatedCKDfile::locate(CKDorient orient, unsigned int cyl, unsigned short head,
                                    unsigned char record) {
  if (!hasCurrentTrack(*this)) return nullptr;
  const unsigned char* ha = trackBuffer;
  unsigned char haFlag;
  unsigned int haCyl, haHead;
  getHA(ha, haFlag, haCyl, haHead);

  const size_t end = recordAreaEnd(*this);
  switch (orient) {
    case ORIENT_HA:
      return trackBuffer;
    case ORIENT_END:
      return trackBuffer + end;
    case ORIENT_COUNT:
    case ORIENT_EOT:
      break;
    default:
      return nullptr;
  }

  size_t off = kRecordZeroOffset;
  while (off < end) {
    if (isEndMarker(trackBuffer + off)) return orient == ORIENT_EOT ? trackBuffer + off : nullptr;
    const unsigned char* p = trackBuffer + off;
    unsigned int rCyl, rHead;
    unsigned short rNumber, keyLength, dataLength;
    getCount(p, rCyl, rHead, rNumber, keyLength, dataLength);
    if (orient == ORIENT_COUNT && rNumber == record) {
      // The first record with this number is the only candidate.
      const bool ownMatch = rCyl == cyl && rHead == head;
      const bool haMatch = haCyl == cyl && haHead == head;
      return ownMatch || haMatch ? trackBuffer + off : nullptr;
    }
    off += kCountSize + keyLength + dataLength;
  }
  return nullptr;
}

const void* EmulatedCKDfile::locateNext(const void* ref, bool multitrack) {
  if (!hasCurrentTrack(*this)) return nullptr;
  const unsigned char* r = static_cast<const unsigned char*>(ref);
  if (r < trackBuffer || r >= trackBuffer + trackSlotSize) return nullptr;
  if (r == trackBuffer) return trackBuffer + kRecordZeroOffset;
  const size_t off = static_cast<size_t>(r - trackBuffer);
  if (off == trackSlotSize - static_cast<size_t>(kTrailerSize)) return nullptr;
  // A reference too close to the end to hold a count field is no place of
  // the track.
  if (off + kCountSize > trackSlotSize) return nullptr;

  size_t candidate;
  if (!isEndMarker(r)) {
    candidate = nextRecord(*this, off);
    if (!multitrack || !markerAt(*this, candidate)) {
      return candidate <= recordAreaEnd(*this) ? trackBuffer + candidate : nullptr;
    }
  } else if (!multitrack) {
    return nullptr;
  }

  // At an end marker with multitrack: go on track by track (a loop, so a
  // long run of tracks holding only record zero needs no stack) until a
  // track has a record after record zero.
  for (;;) {
    unsigned short cell = currentCell;
    unsigned int cyl = currentCyl;
    unsigned short head = currentHead;
    if (increment(cell, cyl, head)) return nullptr;
    if (readTrack(cyl, head, cell) != 0) return nullptr;
    const void* r0 = locate(ORIENT_COUNT, cyl, head, 0);
    if (r0 == nullptr) return nullptr;
    candidate = nextRecord(*this, static_cast<const unsigned char*>(r0) - trackBuffer);
    if (!markerAt(*this, candidate)) break;
  }
  return candidate <= recordAreaEnd(*this) ? trackBuffer + candidate : nullptr;
}

const void* EmulatedCKDfile::searchKey(const void* ref, const unsigned char* key, int keyLength,
                                       bool acceptLower) {
  if (ref == nullptr) ref = locate(ORIENT_HA, 0, 0, 0);
  for (;;) {
    ref = locateNext(ref, false);
    if (ref == nullptr) return nullptr;
    const int kl = getRefKL(ref);
    const unsigned char* recordKey = getRefKey(ref);
    if (kl <= 0 || recordKey == nullptr || kl != keyLength) continue;
    // memcmp reads keyLength bytes of the record: they must lie in the
    // buffer (getRefKey already refuses keys that run past its end).
    if (static_cast<size_t>(recordKey - trackBuffer) + static_cast<size_t>(kl) > trackSlotSize) {
      continue;
    }
    const int c = std::memcmp(key, recordKey, static_cast<size_t>(keyLength));
    if (c == 0 || (acceptLower && c > 0)) return ref;
  }
}

const void* EmulatedCKDfile::searchRecord(const void* ref, unsigned int cyl, unsigned short head,
                                          unsigned char record) {
  if (ref == nullptr) ref = locate(ORIENT_HA, 0, 0, 0);
  for (;;) {
    const void* next = locateNext(ref, false);
    if (next == nullptr) return nullptr;
    // locateNext(…, false) only returns places of the record area, where
    // the end marker is the one thing that is not a count field.
    if (isEndMarker(static_cast<const unsigned char*>(next))) return nullptr;
    int rCyl, rHead, rNumber, keyLength, dataLength;
    if (!getRefCount(next, rCyl, rHead, rNumber, keyLength, dataLength)) return nullptr;
    if (static_cast<unsigned int>(rCyl) == cyl && rHead == head && rNumber == record) return next;
    ref = next;
  }
}
