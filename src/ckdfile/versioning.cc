// Track versioning: while a version is active, the first write-back of a
// track under it appends the track's former image, whole, behind the last
// track slot (the copy area). The home slot's trailer then links to its copy
// and the copy's trailer links back to the home slot. Commit keeps the new
// contents, rollback writes the copies back; both cut the copies off again.
//
// Copy area: saved copies are whole slots appended at the end of the file,
// behind dataEnd (the offset just past the last track slot), in the order
// they were made, so the newest copy is the last slot of the file. The walks
// below step backwards in slots from the end of the file while the position
// is at or above dataEnd; a new copy always goes at the end of the file.
//
// Version numbers live in the header (little-endian u16 activeVersion at 30,
// latestVersion at 32, marker "VER0" at 26) and in the members of the same
// names. enableVersion raises latestVersion; the next read-write open makes
// it active (header and member); disableVersion lowers both again.
#include <fcntl.h>
#include <unistd.h>

#include <cstring>
#include <memory>

#include "ckdfile/emulated_ckd_file.h"
#include "ckdfile/posix_io.h"
#include "ckdfile/versioning.h"
#include "ckdfile/volume_format.h"
#include "common/byte_order.h"

using namespace ckdvol;

namespace {

// Offset just past the last track slot: where the copy area begins.
long long copyAreaStart(const EmulatedCKDfile& f) {
  if (f.deviceType == EmulatedCKDfile::D200) return f.getOffset(0, 0, f.cellCount, false);
  return f.getOffset(f.cylinders, 0, 0, false);
}

// Offset of the last slot of a file `fileEnd` bytes long: where the walks
// over the copy area start. Below dataEnd the walks process nothing, and a
// truncation to it + slot keeps the length.
long long lastCopySlot(long long fileEnd, unsigned int slotSize) {
  return fileEnd - static_cast<long long>(slotSize);
}

}  // namespace

long long EmulatedCKDfile::versionTrack(unsigned long long slotOffset) {
  // Off (0) or idle (-1): no copies. Any image's version is at least 0.
  if (activeVersion <= 0) return 0;
  if (trackBuffer == nullptr) return kVersionTrackFailed;

  const unsigned char* bufferTrailer = trailerOf(trackBuffer, trackSlotSize);
  int imageVersion = trailerHasMarker(bufferTrailer) ? trailerVersion(bufferTrailer) : 0;
  if (activeVersion <= imageVersion) return 0;  // this image already belongs to the active version

  std::unique_ptr<unsigned char[]> copy(new unsigned char[trackSlotSize]);
  if (readRawTrack(slotOffset, copy.get()) != kTrackOk) return kVersionTrackFailed;
  unsigned char* copyTrailer = trailerOf(copy.get(), trackSlotSize);
  setTrailerMarker(copyTrailer);  // version and reserved bytes stay as read
  setTrailerLink(copyTrailer, slotOffset);

  // The copy goes at the end of the file, whatever its length.
  off64_t end = ::lseek64(fileDescriptor, 0, SEEK_END);
  if (end < 0) return kVersionTrackFailed;
  ssize_t written = writeFully(fileDescriptor, copy.get(), trackSlotSize);
  if (written != static_cast<ssize_t>(trackSlotSize)) {
    // Cut a partial copy off again, so that the copy area stays whole slots.
    if (written > 0) (void)::ftruncate64(fileDescriptor, end);
    return kVersionTrackFailed;
  }
  return end;
}

int EmulatedCKDfile::enableVersion() {
  if (fileDescriptor < 0) return kEnableNoFile;
  if (readOnly) return kEnableReadOnly;
  unsigned char header[kHeaderSize];
  if (readHeader(header, true) != kHeaderOk) return kEnableHeaderRead;
  uint16_t active = loadLe16(header + kHdrActiveVersion);
  uint16_t latest = loadLe16(header + kHdrLatestVersion);
  if (active < latest) return kEnablePending;
  latest = static_cast<uint16_t>(latest + 1);
  storeLe16(header + kHdrLatestVersion, latest);
  std::memcpy(header + kHdrVersionMarker, kVersionMarker, kVersionMarkerLength);
  if (writeHeader(header, true) != kHeaderOk) return kEnableHeaderWrite;
  latestVersion = latest;  // activeVersion follows at the next read-write open
  return kEnableOk;
}

int EmulatedCKDfile::disableVersion() {
  if (fileDescriptor < 0) return kDisableNoFile;
  if (readOnly) return kDisableReadOnly;
  int version = 0;
  int savedCopies = 0;
  int query = queryVersion(version, savedCopies);
  if (query < 0) return query;
  if (savedCopies > 0) return kDisableBusy;
  if (version == 0) return kDisableNotActive;

  unsigned char header[kHeaderSize];
  if (readHeader(header, true) != kHeaderOk) return kDisableHeaderRead;
  int active = loadLe16(header + kHdrActiveVersion);
  int latest = loadLe16(header + kHdrLatestVersion);
  if (active < latest) return kDisableBusy;

  activeVersion = active - 1;
  if (latest != 0) latestVersion = latest - 1;
  storeLe16(header + kHdrActiveVersion, static_cast<uint16_t>(active - 1));
  storeLe16(header + kHdrLatestVersion, static_cast<uint16_t>(latest != 0 ? latest - 1 : 0));
  if (active - 1 == 0) std::memset(header + kHdrVersionMarker, 0, kVersionMarkerLength);
  if (writeHeader(header, true) != kHeaderOk) return kDisableNotActive;
  return kDisableOk;
}

int EmulatedCKDfile::clearVersionInHeader() {
  if (fileDescriptor < 0) return kClearHeaderNoFile;
  if (readOnly) return kClearHeaderReadOnly;
  unsigned char header[kHeaderSize];
  if (readHeader(header, true) != kHeaderOk) return kClearHeaderRead;
  // Marker, activeVersion and latestVersion: header bytes 26 to 33.
  std::memset(header + kHdrVersionMarker, 0, kHdrLatestVersion + 2 - kHdrVersionMarker);
  if (writeHeader(header, true) != kHeaderOk) return kClearHeaderWrite;
  return kClearHeaderOk;
}

int EmulatedCKDfile::clearTrackVersion() {
  if (trackBuffer == nullptr) return 0;
  long long offset = getOffset(currentCyl, currentHead, currentCell, true);
  clearTrailer(trailerOf(trackBuffer, trackSlotSize));
  if (offset >= 0) (void)writeRawTrack(static_cast<unsigned long long>(offset), trackBuffer);
  return 0;
}

int EmulatedCKDfile::queryVersion(int& version, int& savedCopies) {
  if (fileDescriptor < 0) return kQueryNoFile;
  version = activeVersion;
  savedCopies = 0;
  if (activeVersion != 0) {
    off64_t end = ::lseek64(fileDescriptor, 0, SEEK_END);
    if (end < 0) return kQueryNoEnd;
    long long dataEnd = copyAreaStart(*this);
    std::unique_ptr<unsigned char[]> slot(new unsigned char[trackSlotSize]);
    for (long long p = lastCopySlot(end, trackSlotSize); p >= dataEnd; p -= trackSlotSize) {
      if (readRawTrack(static_cast<unsigned long long>(p), slot.get()) != kTrackOk) return kQueryReadCopy;
      // Only the copies made under the active version count; the marker is not examined.
      if (trailerVersion(trailerOf(slot.get(), trackSlotSize)) + 1 != activeVersion) break;
      ++savedCopies;
    }
  }
  return latestVersion != activeVersion ? kQueryPending : kQueryCurrent;
}

int EmulatedCKDfile::doVersion(int version, int operation) {
  if (fileDescriptor < 0) return kDoVersionNoFile;
  if (readOnly) return kDoVersionReadOnly;
  int target = version < 0 ? activeVersion : version;
  if (activeVersion <= 0 || version > activeVersion) return 0;

  std::unique_ptr<unsigned char[]> copy(new unsigned char[trackSlotSize]);
  std::unique_ptr<unsigned char[]> home(new unsigned char[trackSlotSize]);
  long long dataEnd = copyAreaStart(*this);
  off64_t end = ::lseek64(fileDescriptor, 0, SEEK_END);
  if (end < 0) return kDoVersionNoEnd;

  // fdatasync about every 5 MiB of home slots written (93 slots on D600).
  const unsigned int syncEvery =
      static_cast<unsigned int>((trackSlotSize + kSyncBytes - 1) / trackSlotSize);
  // Commit keeps the home slot's image, rollback puts the saved copy back.
  unsigned char* image = operation == kVersionRollback ? copy.get() : home.get();
  unsigned char* copyTrailer = trailerOf(copy.get(), trackSlotSize);
  unsigned char* homeTrailer = trailerOf(home.get(), trackSlotSize);
  unsigned char* imageTrailer = trailerOf(image, trackSlotSize);

  int processed = 0;
  long long p = lastCopySlot(end, trackSlotSize);
  for (; p >= dataEnd; p -= trackSlotSize) {
    if (readRawTrack(static_cast<unsigned long long>(p), copy.get()) != kTrackOk) return kDoVersionCopyRead;
    if (!trailerHasMarker(copyTrailer)) return kDoVersionCopyNoMarker;
    if (trailerVersion(copyTrailer) + 1 > target) break;  // this copy and all before it stay

    long long h = static_cast<long long>(trailerLink(copyTrailer));
    if (h == 0) {
      const unsigned char* q = copy.get();
      unsigned char flag;
      unsigned int cyl, head;
      getHA(q, flag, cyl, head);
      h = getOffset(cyl, static_cast<unsigned short>(head), 0, true);
    }
    // A home address naming no track of the volume, or a link beyond the
    // range of file offsets, names no slot that could be read.
    if (h < 0) return kDoVersionHomeRead;
    if (readRawTrack(static_cast<unsigned long long>(h), home.get()) != kTrackOk) return kDoVersionHomeRead;
    if (!trailerHasMarker(homeTrailer)) return kDoVersionHomeNoMarker;
    if (trailerLink(homeTrailer) != static_cast<unsigned long long>(p)) return kDoVersionHomeNoLink;

    const unsigned char* qc = copy.get();
    const unsigned char* qh = home.get();
    unsigned char copyFlag, homeFlag;
    unsigned int copyCyl, copyHead, homeCyl, homeHead;
    getHA(qc, copyFlag, copyCyl, copyHead);
    getHA(qh, homeFlag, homeCyl, homeHead);
    if (copyCyl != homeCyl || copyHead != homeHead) return kDoVersionTrackMismatch;

    if (operation == kVersionVerify) {
      ++processed;
      continue;
    }
    if (operation == kVersionCommit) std::memcpy(homeTrailer, copyTrailer, kTrailerSize);
    // A copy of a never-versioned image goes back as an unversioned track.
    if (trailerVersion(imageTrailer) == 0) clearTrailer(imageTrailer);
    if (writeRawTrack(static_cast<unsigned long long>(h), image) != kTrackOk) return kDoVersionHomeWrite;
    ++processed;
    if (processed % syncEvery == 0 && ::fdatasync(fileDescriptor) != 0) return kDoVersionSync;
  }

  if (operation != kVersionVerify) {
    // p is the first copy left in place, or the slot just below dataEnd.
    if (::ftruncate64(fileDescriptor, p + trackSlotSize) != 0) return kDoVersionTruncate;
    (void)::fdatasync(fileDescriptor);
  }
  return processed;
}

int EmulatedCKDfile::commitVersion(int version) { return doVersion(version, kVersionCommit); }

int EmulatedCKDfile::rollbackVersion(int version) { return doVersion(version, kVersionRollback); }

int EmulatedCKDfile::verifyVersion(int version) { return doVersion(version, kVersionVerify); }
