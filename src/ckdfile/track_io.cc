// Track I/O: whole-slot transfers, reading a track into trackBuffer and the
// write-back of a changed track (saving its former image first when track
// versioning is in effect, and stamping the trailer that links the slot to
// that saved copy).
#include <sys/types.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>

#include "ckdfile/emulated_ckd_file.h"
#include "ckdfile/posix_io.h"
#include "ckdfile/volume_format.h"
#include "common/byte_order.h"

namespace {

using namespace ckdvol;

constexpr unsigned int kNoCyl = 0xFFFFFFFFu;
constexpr unsigned short kNoHeadOrCell = 0xFFFF;

// An offset beyond the signed file-offset range cannot be positioned at (its
// cast would be negative, and lseek's failure value -1 would compare equal to
// the cast of all ones).
bool positionAt(int fd, unsigned long long offset) {
  if (offset > static_cast<unsigned long long>(INT64_MAX)) return false;
  return ::lseek(fd, static_cast<off_t>(offset), SEEK_SET) == static_cast<off_t>(offset);
}

}  // namespace

// 0; -2 positioning at `offset` failed; -1 short read (end of file included).
// Records `offset` in lastReadOffset; the current-track state is not touched.
int EmulatedCKDfile::readRawTrack(unsigned long long offset, unsigned char* buffer) {
  lastReadOffset = offset;
  if (!positionAt(fileDescriptor, offset)) return kTrackSeek;
  if (readFully(fileDescriptor, buffer, trackSlotSize) != static_cast<ssize_t>(trackSlotSize)) {
    return kTrackShort;
  }
  return kTrackOk;
}

// 0; -2 positioning failed; -1 short write. Writing past the end extends the
// file. Neither lastReadOffset nor the current-track state is touched.
int EmulatedCKDfile::writeRawTrack(unsigned long long offset, const unsigned char* buffer) {
  if (!positionAt(fileDescriptor, offset)) return kTrackSeek;
  if (writeFully(fileDescriptor, buffer, trackSlotSize) != static_cast<ssize_t>(trackSlotSize)) {
    return kTrackShort;
  }
  return kTrackOk;
}

// 0: the track is current and clean. -3: the changed previous track could
// not be written back; it stays current and changed. -5: address out of range
// or no file; nothing changed. -1/-2: the raw read failed; the buffer may hold
// part of the slot, so no track is current afterwards. -4: the track was read
// and is current, but verifyTracks is set and verification failed.
int EmulatedCKDfile::readTrack(unsigned int cyl, unsigned short head, unsigned short cell) {
  if (writeTrack() != kTrackOk) return kTrackWriteBack;
  const long long offset = getOffset(cyl, head, cell, true);
  if (offset < 0) return kTrackRange;
  const int rc = readRawTrack(static_cast<unsigned long long>(offset), trackBuffer);
  if (rc != kTrackOk) {
    // Whatever was read belongs to no track: never write it back.
    currentCyl = kNoCyl;
    currentHead = kNoHeadOrCell;
    currentCell = kNoHeadOrCell;
    return rc;
  }
  currentCell = cell;
  currentCyl = cyl;
  currentHead = head;
  if (verifyTracks && !verifyTrack(false)) return kTrackVerify;
  return kTrackOk;
}

// 0: written, or nothing to write (clean, or no current track). -4: verifyTracks
// set and the image failed verification; nothing written. -6: versioning is in
// effect and the former image could not be saved; nothing written. -2 also
// when the current address no longer lies in the volume (the cylinder count
// was changed): its slot cannot be positioned at; nothing written. -1/-2: the
// raw write failed. Every failure leaves the track current and changed.
int EmulatedCKDfile::writeTrack() {
  if (!trackDirty || currentCyl == kNoCyl || currentHead == kNoHeadOrCell ||
      currentCell == kNoHeadOrCell) {
    return kTrackOk;
  }
  if (verifyTracks && !verifyTrack(false)) return kTrackVerify;
  const long long offset = getOffset(currentCyl, currentHead, currentCell, true);
  if (offset < 0) return kTrackSeek;

  const long long copy = versionTrack(static_cast<unsigned long long>(offset));
  if (copy < 0) return kTrackNoCopy;  // all ones: the former image was not saved
  if (copy != 0) {
    // The trailer links the slot to its saved copy.
    unsigned char* trailer = trackBuffer + trackSlotSize - kTrailerSize;
    std::memcpy(trailer + kTrlMarker, kVersionMarker, kVersionMarkerLength);
    storeBe16(trailer + kTrlVersion, static_cast<uint16_t>(activeVersion));
    storeBe16(trailer + kTrlReserved, 0);
    storeBe64(trailer + kTrlLink, static_cast<uint64_t>(copy));
  }
  const int rc = writeRawTrack(static_cast<unsigned long long>(offset), trackBuffer);
  if (rc == kTrackOk) trackDirty = 0;
  return rc;
}
