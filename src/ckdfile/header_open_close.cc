// The volume file header and the operations that attach a file to the object
// (create, open) and detach it (close). The header is little-endian; its
// layout is drawn in ckdfile/volume_format.h.
#include <fcntl.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "ckdfile/emulated_ckd_file.h"
#include "ckdfile/posix_io.h"
#include "ckdfile/volume_format.h"
#include "common/byte_order.h"

namespace {

using namespace ckdvol;

constexpr unsigned char kFormatLevelNone = 0;    // older file: count from the size
constexpr unsigned char kFormatLevelRefused = 2;
constexpr unsigned char kFormatLevelCreated = 3;
constexpr unsigned char kFormatLevelLarge = 4;   // created with large cylinders
constexpr mode_t kFileMode = 0660;

// The fixed texts that open() leaves in errorText, one per failure.
const char* openFailureText(int result) {
  switch (result) {
    case EmulatedCKDfile::kOpenBadHeader:
      return "Unable to read file";
    case EmulatedCKDfile::kOpenLevel2:
      return "Invalid file header";
    case EmulatedCKDfile::kOpenBadDevice:
      return "Invalid CKD device type in the file";
    case EmulatedCKDfile::kOpenBadTrackSize:
      return "Inconsistant device track size";
    case EmulatedCKDfile::kOpenCorruptVersioned:
      return "Corrupted header on versioned file";
    case EmulatedCKDfile::kOpenBadSize:
      return "Unable to determine file size";
    case EmulatedCKDfile::kOpenNotCylinders:
      return "File size is not a track size multiple";
    case EmulatedCKDfile::kOpenHeaderWrite:
      return "I/O error updating file header";
    default:
      return "";
  }
}

bool hasReadyMagic(const unsigned char* header) {
  return std::memcmp(header + kHdrMagic, kMagicReady, kMagicLength) == 0;
}

}  // namespace

int EmulatedCKDfile::readHeader(void* header, bool check) {
  if (::lseek(fileDescriptor, 0, SEEK_SET) != 0) return kHeaderSeek;
  if (readFully(fileDescriptor, header, kHeaderSize) != kHeaderSize) return kHeaderShort;
  if (check && !hasReadyMagic(static_cast<const unsigned char*>(header))) return kHeaderBadMagic;
  return kHeaderOk;
}

int EmulatedCKDfile::writeHeader(const void* header, bool check) {
  if (check && !hasReadyMagic(static_cast<const unsigned char*>(header))) return kHeaderBadMagic;
  if (::lseek(fileDescriptor, 0, SEEK_SET) != 0) return kHeaderSeek;
  if (writeFully(fileDescriptor, header, kHeaderSize) != kHeaderSize) return kHeaderShort;
  return kHeaderOk;
}

// Leaves the object holding a new header-only file ("CKD_INIT"), read-write.
// Every failure leaves it idle; a file that was created is removed again.
int EmulatedCKDfile::create(const char* path, CKDtype type, int cylinderCount) {
  close();
  if (!setType(type)) {
    init(true);
    return kCreateBadType;
  }
  if (cylinderCount == 0) {
    init(true);
    return kCreateZeroCylinders;
  }
  if (cylinderCount > 0) {
    uint32_t count = static_cast<uint32_t>(cylinderCount);
    if (count > kMaxSmallCylinders) {
      if (type != D600) {
        init(true);
        return kCreateTooLarge;
      }
      if (count % kLargeCylinderMultiple != 0) {
        count += kLargeCylinderMultiple - count % kLargeCylinderMultiple;
        cylindersRounded = 1;
      }
    }
    setCylinders(count);
  } else {
    // A multiple of the default count, in signed 32-bit arithmetic: the
    // magnitude and the product wrap modulo 2^32, and a product that wraps
    // below zero is not above 65520, so it passes for every type and is
    // stored as the unsigned count of the same bits.
    const uint32_t magnitude = 0u - static_cast<uint32_t>(cylinderCount);
    const int32_t product = static_cast<int32_t>(magnitude * cylinders);
    if (product > static_cast<int32_t>(kMaxSmallCylinders) && type != D600) {
      init(true);
      return kCreateTooLarge;
    }
    setCylinders(static_cast<uint32_t>(product));
  }

  int fd = ::open(path, O_RDWR | O_CREAT | O_EXCL, kFileMode);
  if (fd < 0) {
    init(true);
    return kCreateIo;
  }
  fileDescriptor = fd;

  unsigned char header[kHeaderSize] = {};
  std::memcpy(header + kHdrMagic, kMagicInit, kMagicLength);
  storeLe32(header + kHdrHeads, tracksPerCylinder);
  storeLe32(header + kHdrTrackSize, trackSlotSize);
  header[kHdrDeviceCode] = findDevice(type)->fileCode;
  header[kHdrFormatLevel] = largeCylinders ? kFormatLevelLarge : kFormatLevelCreated;
  storeLe32(header + kHdrCreatedCylinders, cylinders);
  storeLe32(header + kHdrCylinders, cylinders);
  if (writeHeader(header, false) != kHeaderOk) {
    int savedErrno = errno;
    close();
    ::unlink(path);
    errno = savedErrno;
    return kCreateIo;
  }
  activeVersion = 0;
  latestVersion = 0;
  return kCreateOk;
}

// 0: open. 1: open read-only, but the header asks for an update (level 0 file
// or pending version) that was not written. Negative: see OpenResult; every
// failure but -10 leaves the object idle with the failure's text in errorText
// (-1 leaves errorText empty and errno from the system).
int EmulatedCKDfile::open(const char* path, bool openReadOnly) {
  if (deviceType != 0) return kOpenBusy;
  init(true);

  // The text is stored after close(), whose init() clears errorText.
  auto fail = [this](int result) {
    close();
    std::snprintf(errorText, sizeof errorText, "%s", openFailureText(result));
    return result;
  };

  int fd = ::open(path, openReadOnly ? O_RDONLY : O_RDWR, kFileMode);
  if (fd < 0) return kOpenCannotOpen;
  fileDescriptor = fd;

  unsigned char header[kHeaderSize];
  if (readHeader(header, true) != kHeaderOk) return fail(kOpenBadHeader);
  const unsigned char level = header[kHdrFormatLevel];
  if (level == kFormatLevelRefused) return fail(kOpenLevel2);
  const DeviceInfo* row = findDeviceByFileCode(header[kHdrDeviceCode]);
  if (row == nullptr) return fail(kOpenBadDevice);

  setType(static_cast<CKDtype>(row->type));  // init(true) inside: restore the descriptor
  fileDescriptor = fd;
  readOnly = openReadOnly ? 1 : 0;
  if (trackSlotSize != loadLe32(header + kHdrTrackSize)) return fail(kOpenBadTrackSize);
  formatLevel = level;

  const unsigned int headerActive = loadLe16(header + kHdrActiveVersion);
  const unsigned int headerLatest = loadLe16(header + kHdrLatestVersion);

  // Cylinders held by the file: 512 plus whole cylinders of slots, else -7/-8.
  auto cylindersFromSize = [this](off_t size, uint32_t& count) {
    if (size < 0 || static_cast<unsigned long long>(size) % trackSlotSize != kHeaderSize) {
      return kOpenBadSize;
    }
    unsigned long long slots = (static_cast<unsigned long long>(size) - kHeaderSize) / trackSlotSize;
    if (slots % tracksPerCylinder != 0) return kOpenNotCylinders;
    count = static_cast<uint32_t>(slots / tracksPerCylinder);
    return kOpenOk;
  };

  uint32_t count;
  if (level != kFormatLevelNone) {
    count = loadLe32(header + kHdrCylinders);
    if (headerActive == 0 && headerLatest == 0) {
      uint32_t fromSize = 0;
      int sizeResult = cylindersFromSize(::lseek(fd, 0, SEEK_END), fromSize);
      if (sizeResult != kOpenOk) return fail(sizeResult);
      if (fromSize != count) {
        cylindersCorrected = 1;
        headerCylinders = count;
        count = fromSize;
      }
    }
    setCylinders(count);
    activeVersion = static_cast<int>(headerActive);
    latestVersion = static_cast<int>(headerLatest);
    // Not rewritten here, so a corrected cylinder count stays off the disk.
    if (headerActive >= headerLatest) return kOpenOk;
  } else {
    off_t size = ::lseek(fd, 0, SEEK_END);
    if (headerActive != 0) return fail(kOpenCorruptVersioned);
    int sizeResult = cylindersFromSize(size, count);
    if (sizeResult != kOpenOk) return fail(sizeResult);
    formatLevel = kFormatLevelCreated;
    header[kHdrFormatLevel] = kFormatLevelCreated;
    storeLe32(header + kHdrCylinders, count);
    setCylinders(count);
    activeVersion = static_cast<int>(headerActive);
    latestVersion = static_cast<int>(headerLatest);
    if (headerActive >= headerLatest) {
      // Only the level and the count need storing.
      if (readOnly) return kOpenReadOnlyPending;
      if (writeHeader(header, true) != kHeaderOk) return fail(kOpenHeaderWrite);
      return kOpenOk;
    }
  }

  // A pending version: the latest one becomes active.
  if (readOnly) return kOpenReadOnlyPending;
  storeLe16(header + kHdrActiveVersion, static_cast<uint16_t>(headerLatest));
  activeVersion = static_cast<int>(headerLatest);
  if (writeHeader(header, true) != kHeaderOk) return fail(kOpenHeaderWrite);
  return kOpenOk;
}

// A write-back failure is reported on stderr; when a descriptor was open the
// result is that of closing it (0 or -1), else the write-back's result.
int EmulatedCKDfile::close() {
  int result = 0;
  if (trackDirty) {
    int rc = writeTrack();
    if (rc != kTrackOk) {
      std::fprintf(stderr, "CKDFILE::close - I/O write error, RC=%d, ERRNO=%d, VCODE=%d\n", rc, errno,
                   verifyCode);
      result = rc;
    }
  }
  if (fileDescriptor >= 0) result = ::close(fileDescriptor);
  init(true);
  return result;
}
