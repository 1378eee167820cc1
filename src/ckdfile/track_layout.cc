// Track layout: where each track's slot lies in the file, the step from one
// track address to the next, the home address and count field codecs, and the
// accessors that read a record's fields through a reference into trackBuffer.
//
// References are checked against the buffer before any byte is read: an
// accessor never reads outside trackBuffer, whatever the track image holds.
#include <cstdint>

#include "ckdfile/emulated_ckd_file.h"
#include "ckdfile/volume_format.h"
#include "common/byte_order.h"
#include "common/cchh.h"

namespace {

using namespace ckdvol;

// D200 addressing: fixed bounds and slot-index factors of its three
// coordinates (cell, cylinder high/low byte, head high/low byte).
constexpr unsigned int kD200MaxCell = 9;
constexpr unsigned int kD200MaxCylHigh = 19;
constexpr unsigned int kD200MaxCylLow = 9;
constexpr unsigned int kD200MaxHeadHigh = 4;
constexpr unsigned int kD200MaxHeadLow = 19;
constexpr uint64_t kD200CellFactor = 20000;
constexpr uint64_t kD200CylHighFactor = 1000;
constexpr uint64_t kD200CylLowFactor = 100;
constexpr uint64_t kD200HeadHighFactor = 20;

// Home address: flag, then CC and HH.
constexpr int kHaFlag = 0;
constexpr int kHaCC = 1;
constexpr int kHaHH = 3;

unsigned int highByte(unsigned int v) { return (v >> 8) & 0xFF; }
unsigned int lowByte(unsigned int v) { return v & 0xFF; }

// ---- references ---------------------------------------------------------------
//
// Accepted ranges, as slot offsets (S = trackSlotSize); every accessor also
// needs the 8 bytes at the reference inside the buffer, and fails on the
// end-of-track marker:
//   getRefCC, getRefHH           0 <= off <= S - 8
//   getRefR, getRefKL, getRefDL  1 <= off <= S - 8
//   getRefCount                  1 <= off <  S - 16
//   getRefKey, getRefData        as getRefCount, and the key (data) must end
//                                inside the buffer, so that a caller reading
//                                KL (DL) bytes stays in it

enum RefStart { kFromBuffer = 0, kAfterBuffer = 1 };

// Slot offset of `ref` when it lies in [start, limit) with its 8 bytes inside
// the buffer and is not the end-of-track marker; else -1.
long refOffset(const unsigned char* buffer, unsigned int slotSize, const void* ref, RefStart start,
               unsigned long limit) {
  if (buffer == nullptr || ref == nullptr) return -1;
  const uintptr_t b = reinterpret_cast<uintptr_t>(buffer);
  const uintptr_t r = reinterpret_cast<uintptr_t>(ref);
  if (r < b || r - b >= slotSize) return -1;
  const unsigned long off = static_cast<unsigned long>(r - b);
  if (off < static_cast<unsigned long>(start) || off + kCountSize > slotSize || off >= limit) return -1;
  if (isEndMarker(buffer + off)) return -1;
  return static_cast<long>(off);
}

}  // namespace

// -1: no file. -2: `check` and the address is outside the volume. Otherwise
// the slot's file offset.
long long EmulatedCKDfile::getOffset(unsigned int cyl, unsigned short head, unsigned short cell,
                                     bool check) const {
  if (fileDescriptor < 0) return -1;
  uint64_t index;
  if (deviceType == D200) {
    if (check && (cell > kD200MaxCell || highByte(cyl) > kD200MaxCylHigh ||
                  lowByte(cyl) > kD200MaxCylLow || highByte(head) > kD200MaxHeadHigh ||
                  lowByte(head) > kD200MaxHeadLow)) {
      return -2;
    }
    index = cell * kD200CellFactor + highByte(cyl) * kD200CylHighFactor +
            lowByte(cyl) * kD200CylLowFactor + highByte(head) * kD200HeadHighFactor + lowByte(head);
  } else {
    if (check && (cyl >= cylinders || head >= tracksPerCylinder || cell >= cellCount)) return -2;
    index = static_cast<uint64_t>(cyl) * tracksPerCylinder + head;
  }
  return static_cast<long long>(kHeaderSize + index * trackSlotSize);
}

// Just past the last slot; -1 without a file.
long long EmulatedCKDfile::getMaxOffset() const {
  if (deviceType == D200) return getOffset(0, 0, cellCount, false);
  return getOffset(cylinders, 0, 0, false);
}

// True when the new address lies beyond the volume.
bool EmulatedCKDfile::increment(unsigned short& cell, unsigned int& cyl, unsigned short& head) {
  if (deviceType != D200) {
    if (++head >= tracksPerCylinder) {
      head = 0;
      ++cyl;
    }
    return cyl >= cylinders;
  }
  // D200: head low byte, then head high byte, cylinder low byte, cylinder
  // high byte and finally the cell.
  unsigned int headHigh = highByte(head), headLow = lowByte(head);
  unsigned int cylHigh = highByte(cyl), cylLow = lowByte(cyl);
  if (headLow + 1 < tracksPerCylinder) {
    ++headLow;
  } else if (headHigh + 1 < cylinders) {
    ++headHigh;
    headLow = 0;
  } else {
    headHigh = headLow = 0;
    if (cylLow < kD200MaxCylLow) {
      ++cylLow;
    } else if (cylHigh < kD200MaxCylHigh) {
      ++cylHigh;
      cylLow = 0;
    } else {
      cylHigh = cylLow = 0;
      ++cell;
    }
  }
  head = static_cast<unsigned short>((headHigh << 8) | headLow);
  cyl = ((cylHigh << 8) | cylLow) & 0xFFFF;
  return cell > kD200MaxCell;
}

void EmulatedCKDfile::getHA(const unsigned char*& p, unsigned char& flag, unsigned int& cyl,
                            unsigned int& head) const {
  flag = p[kHaFlag];
  CylHead ch = decodeCchh(loadBe16(p + kHaCC), loadBe16(p + kHaHH), largeCylinders != 0);
  cyl = ch.cyl;
  head = ch.head;
  p += kHomeAddressSize;
}

void EmulatedCKDfile::getCount(const unsigned char*& p, unsigned int& cyl, unsigned int& head,
                               unsigned short& record, unsigned short& keyLength,
                               unsigned short& dataLength) const {
  CylHead ch = decodeCchh(loadBe16(p + kCntCC), loadBe16(p + kCntHH), largeCylinders != 0);
  cyl = ch.cyl;
  head = ch.head;
  record = p[kCntR];
  keyLength = p[kCntKL];
  dataLength = loadBe16(p + kCntDL);
  p += kCountSize;
}

// A home address carries the large encoding only for cylinders above 65535.
void EmulatedCKDfile::putHA(unsigned char*& p, unsigned char flag, unsigned int cyl,
                            unsigned short head) {
  const bool large = largeCylinders && cyl > 0xFFFF;
  p[kHaFlag] = flag;
  storeBe16(p + kHaCC, static_cast<uint16_t>(cyl));
  storeBe16(p + kHaHH, large ? encodeLargeHh(cyl, head) : head);
  p += kHomeAddressSize;
}

// A count field carries the large encoding whenever the volume has it.
void EmulatedCKDfile::putCount(unsigned char*& p, int cyl, unsigned short head, unsigned char record,
                               unsigned char keyLength, unsigned short dataLength) {
  const uint32_t c = static_cast<uint32_t>(cyl);
  storeBe16(p + kCntCC, static_cast<uint16_t>(c));
  storeBe16(p + kCntHH, largeCylinders ? encodeLargeHh(c, head) : head);
  p[kCntR] = record;
  p[kCntKL] = keyLength;
  storeBe16(p + kCntDL, dataLength);
  p += kCountSize;
}

// The count field (or home address) at an accepted reference, decoded.
int EmulatedCKDfile::getRefCC(const void* ref) const {
  long off = refOffset(trackBuffer, trackSlotSize, ref, kFromBuffer, trackSlotSize);
  if (off < 0) return -1;
  const unsigned char* p = trackBuffer + off;
  const int cc = off == 0 ? kHaCC : kCntCC;
  const int hh = off == 0 ? kHaHH : kCntHH;
  return static_cast<int>(decodeCchh(loadBe16(p + cc), loadBe16(p + hh), largeCylinders != 0).cyl);
}

int EmulatedCKDfile::getRefHH(const void* ref) const {
  long off = refOffset(trackBuffer, trackSlotSize, ref, kFromBuffer, trackSlotSize);
  if (off < 0) return -1;
  const unsigned char* p = trackBuffer + off;
  const int cc = off == 0 ? kHaCC : kCntCC;
  const int hh = off == 0 ? kHaHH : kCntHH;
  return static_cast<int>(decodeCchh(loadBe16(p + cc), loadBe16(p + hh), largeCylinders != 0).head);
}

int EmulatedCKDfile::getRefR(const void* ref) const {
  long off = refOffset(trackBuffer, trackSlotSize, ref, kAfterBuffer, trackSlotSize);
  return off < 0 ? -1 : trackBuffer[off + kCntR];
}

int EmulatedCKDfile::getRefKL(const void* ref) const {
  long off = refOffset(trackBuffer, trackSlotSize, ref, kAfterBuffer, trackSlotSize);
  return off < 0 ? -1 : trackBuffer[off + kCntKL];
}

int EmulatedCKDfile::getRefDL(const void* ref) const {
  long off = refOffset(trackBuffer, trackSlotSize, ref, kAfterBuffer, trackSlotSize);
  return off < 0 ? -1 : loadBe16(trackBuffer + off + kCntDL);
}

// Null when KL is 0, or when the key would run past the end of the buffer
// (a key reaching into the trailer is still handed out).
const unsigned char* EmulatedCKDfile::getRefKey(const void* ref) const {
  const unsigned long trailer = trackSlotSize - kTrailerSize;
  long off = refOffset(trackBuffer, trackSlotSize, ref, kAfterBuffer, trailer);
  if (off < 0) return nullptr;
  const unsigned int kl = trackBuffer[off + kCntKL];
  if (kl == 0 || static_cast<unsigned long>(off) + kCountSize + kl > trackSlotSize) return nullptr;
  return trackBuffer + off + kCountSize;
}

// Null when DL is 0, or when key and data would run past the end of the
// buffer (data reaching into the trailer is still handed out).
const unsigned char* EmulatedCKDfile::getRefData(const void* ref) const {
  const unsigned long trailer = trackSlotSize - kTrailerSize;
  long off = refOffset(trackBuffer, trackSlotSize, ref, kAfterBuffer, trailer);
  if (off < 0) return nullptr;
  const unsigned int kl = trackBuffer[off + kCntKL];
  const unsigned int dl = loadBe16(trackBuffer + off + kCntDL);
  if (dl == 0 || static_cast<unsigned long>(off) + kCountSize + kl + dl > trackSlotSize) {
    return nullptr;
  }
  return trackBuffer + off + kCountSize + kl;
}

// False (outputs untouched) for a reference that is not a count field place.
bool EmulatedCKDfile::getRefCount(const void* ref, int& cyl, int& head, int& record, int& keyLength,
                                  int& dataLength) const {
  long off = refOffset(trackBuffer, trackSlotSize, ref, kAfterBuffer, trackSlotSize - kTrailerSize);
  if (off < 0) return false;
  const unsigned char* p = trackBuffer + off;
  unsigned int c, h;
  unsigned short r, kl, dl;
  getCount(p, c, h, r, kl, dl);
  cyl = static_cast<int>(c);
  head = static_cast<int>(h);
  record = r;
  keyLength = kl;
  dataLength = dl;
  return true;
}

// ORIENT_HA at trackBuffer, ORIENT_EOT on the marker, ORIENT_END at the
// trailer, ORIENT_COUNT for a count field reached by walking from record
// zero; 0 for anything else.
int EmulatedCKDfile::getRefType(const void* ref) const {
  if (trackBuffer == nullptr || ref == nullptr) return 0;
  const uintptr_t b = reinterpret_cast<uintptr_t>(trackBuffer);
  const uintptr_t r = reinterpret_cast<uintptr_t>(ref);
  if (r < b || r - b >= trackSlotSize) return 0;
  const unsigned long off = static_cast<unsigned long>(r - b);
  if (off == 0) return ORIENT_HA;
  if (off + kEndMarkerSize > trackSlotSize) return 0;  // too close to the end for any place
  if (isEndMarker(trackBuffer + off)) return ORIENT_EOT;
  if (off == trackSlotSize - kTrailerSize) return ORIENT_END;

  const unsigned long dataLimit = trackSlotSize - kDataLimitFromEnd;
  unsigned long pos = kRecordZeroOffset;
  while (pos < dataLimit) {  // each step moves on by at least 8 bytes
    if (pos == off) return ORIENT_COUNT;
    if (pos > off) return 0;
    const unsigned char* p = trackBuffer + pos;
    if (isEndMarker(p)) return 0;
    pos += kCountSize + p[kCntKL] + loadBe16(p + kCntDL);
  }
  return 0;
}
