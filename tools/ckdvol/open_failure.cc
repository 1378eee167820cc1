#include "open_failure.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "ckdfile/emulated_ckd_file.h"
#include "ckdfile/volume_format.h"
#include "command.h"
#include "common/byte_order.h"
#include "tool_util.h"

namespace ckdvol_tool {
namespace {

using F = EmulatedCKDfile;

// Device headers of the Hercules emulator's disk images (the first 8 bytes
// of their 512-byte header): plain, compressed and shadow files, with 32- or
// 64-bit file offsets, for CKD and FBA devices.
struct ForeignImage {
  const char* magic;
  const char* what;
};
const ForeignImage kForeignImages[] = {
    {"CKD_P370", "a Hercules CKD image"},
    {"CKD_C370", "a Hercules compressed CKD image (CCKD)"},
    {"CKD_S370", "a Hercules CKD shadow file (CCKD)"},
    {"CKD_P064", "a Hercules CKD image with 64-bit offsets"},
    {"CKD_C064", "a Hercules compressed CKD image with 64-bit offsets (CCKD64)"},
    {"CKD_S064", "a Hercules CKD shadow file with 64-bit offsets (CCKD64)"},
    {"FBA_C370", "a Hercules compressed FBA image"},
    {"FBA_S370", "a Hercules FBA shadow file"},
    {"FBA_C064", "a Hercules compressed FBA image with 64-bit offsets"},
    {"FBA_S064", "a Hercules FBA shadow file with 64-bit offsets"},
};

std::string bytesText(long long n) { return count(static_cast<unsigned long long>(n), "byte"); }

// 512 + tracks x slot, held at the largest file length when a damaged
// header's counts make it larger than that.
long long describedLength(unsigned long long tracks, unsigned slot) {
  long long bytes = 0;
  if (tracks > static_cast<unsigned long long>(INT64_MAX) ||
      __builtin_mul_overflow(static_cast<long long>(tracks), static_cast<long long>(slot), &bytes) ||
      __builtin_add_overflow(bytes, static_cast<long long>(ckdvol::kHeaderSize), &bytes)) {
    return INT64_MAX;
  }
  return bytes;
}

bool looksLikeText(const unsigned char* p, size_t n) {
  if (n == 0) return false;
  for (size_t i = 0; i < n; ++i) {
    const unsigned char c = p[i];
    if (c == '\n' || c == '\r' || c == '\t') continue;
    if (c < 0x20 || c == 0x7F) return false;  // UTF-8 text passes: bytes >= 0x80 are allowed
  }
  return true;
}

std::string modeText(const struct stat& st) {
  char buf[64];
  std::snprintf(buf, sizeof buf, "mode %04o, owner uid %u", static_cast<unsigned>(st.st_mode & 07777),
                static_cast<unsigned>(st.st_uid));
  return buf;
}

// The cause of -7 and -8, from the header and the file's size.
std::string sizeCause(const unsigned char* h, long long size, int rc) {
  const unsigned heads = ckdvol::loadLe32(h + ckdvol::kHdrHeads);
  const unsigned slot = ckdvol::loadLe32(h + ckdvol::kHdrTrackSize);
  const unsigned cylinders = ckdvol::loadLe32(h + ckdvol::kHdrCylinders);
  const F::DeviceInfo* device = F::findDeviceByFileCode(h[ckdvol::kHdrDeviceCode]);
  std::string says;
  if (device != nullptr && slot != 0) {
    long long want = 0;
    if (device->type == F::D200) {
      want = ckdvol::kHeaderSize + 200000LL * slot;
      says = "a D200 volume has 200000 tracks, " + bytesText(want);
    } else {
      want = describedLength(static_cast<unsigned long long>(cylinders) * heads, slot);
      says = "its header says " + count(cylinders, "cylinder") + " of " + count(heads, "track") + " of " +
             bytesText(slot) + ", " + bytesText(want);
    }
    if (size < want) {
      says += ": the file was cut short (" + bytesText(want - size) + " missing)";
    } else if (size > want) {
      says += ": " + bytesText(size - want) + " too many";
    }
  }
  if (rc == F::kOpenBadSize) {
    const long long rest = slot != 0 && size >= ckdvol::kHeaderSize ? (size - ckdvol::kHeaderSize) % slot : -1;
    std::string text = "the file is " + bytesText(size) + ", not the 512-byte header plus whole tracks of " +
                       bytesText(slot);
    if (rest > 0) text += " (" + bytesText(rest) + " of a track left over)";
    return text + (says.empty() ? "" : "; " + says);
  }
  const long long tracks = slot != 0 ? (size - ckdvol::kHeaderSize) / slot : 0;
  return "the file holds " + count(static_cast<unsigned long long>(tracks), "track") +
         ", not a whole number of cylinders of " + count(heads, "track") + (says.empty() ? "" : "; " + says);
}

}  // namespace

bool isUnfinishedCreation(const unsigned char* h, long long size) {
  if (size <= 0) return size == 0;
  const size_t n = static_cast<size_t>(std::min<long long>(size, ckdvol::kHeaderSize));
  if (std::memcmp(h, ckdvol::kMagicInit, std::min<size_t>(n, ckdvol::kMagicLength)) != 0) return false;
  if (size >= ckdvol::kHeaderSize) return true;
  // A header cut short: every byte that is there must be one create writes.
  if (n > ckdvol::kHdrDeviceCode) {
    const F::DeviceInfo* device = F::findDeviceByFileCode(h[ckdvol::kHdrDeviceCode]);
    if (device == nullptr) return false;
    unsigned char want[ckdvol::kHdrDeviceCode] = {};
    ckdvol::storeLe32(want + ckdvol::kHdrHeads, device->heads);
    ckdvol::storeLe32(want + ckdvol::kHdrTrackSize, static_cast<uint32_t>(device->slotUnits) * 512);
    if (std::memcmp(h + ckdvol::kHdrHeads, want + ckdvol::kHdrHeads, ckdvol::kHdrDeviceCode - ckdvol::kHdrHeads) != 0) {
      return false;
    }
  }
  if (n > ckdvol::kHdrFormatLevel && h[ckdvol::kHdrFormatLevel] != 3 && h[ckdvol::kHdrFormatLevel] != 4) return false;
  for (size_t i = ckdvol::kHdrVersionMarker; i < n; ++i) {
    if (h[i] != 0) return false;
  }
  return true;
}

std::string unfinishedCreationCause(const std::string& path, const unsigned char* h, long long size) {
  std::string args = "TYPE";
  if (size >= ckdvol::kHdrVersionMarker) {
    const F::DeviceInfo* device = F::findDeviceByFileCode(h[ckdvol::kHdrDeviceCode]);
    if (device != nullptr) {
      char type[8];
      std::snprintf(type, sizeof type, "%04X", static_cast<unsigned>(device->type));
      args = type;
      if (device->type != F::D200) args += " --cylinders " + std::to_string(ckdvol::loadLe32(h + ckdvol::kHdrCylinders));
    }
  }
  return "an unfinished creation (it was interrupted before it was complete; it holds no data): 'ckdvol create "
         "--force " + path + " " + args + "' replaces it, 'ckdvol recover " + path + "' removes it";
}

namespace {
std::string openFailureText(const std::string& path, int rc, int savedErrno, const char* errorText);
}  // namespace

std::string openFailureCause(const std::string& path, int rc, int savedErrno, const char* errorText) {
  std::string cause = openFailureText(path, rc, savedErrno, errorText);
  return gChangingVolume ? cause + "; nothing was changed" : cause;
}

namespace {
std::string openFailureText(const std::string& path, int rc, int savedErrno, const char* errorText) {
  struct stat st;
  if (::stat(path.c_str(), &st) != 0) {
    const int err = errno;
    if (err == EACCES) return "permission denied on a directory in its path";
    return std::strerror(err);  // "No such file or directory", ...
  }
  if (S_ISDIR(st.st_mode)) return "a directory, not a volume file";
  if (!S_ISREG(st.st_mode) && !S_ISBLK(st.st_mode)) return "not a regular file (a device, pipe or socket)";
  if (rc == F::kOpenCannotOpen) {
    if (savedErrno == EACCES || savedErrno == EPERM) {
      return std::string("permission denied (") + modeText(st) +
             "): give yourself read access, and write access for commands that change the volume";
    }
    if (savedErrno == EROFS) return "on a read-only file system: only commands that read the volume can use it";
    return savedErrno != 0 ? std::strerror(savedErrno) : "cannot be opened";
  }

  unsigned char h[ckdvol::kHeaderSize] = {};
  long long got = -1;
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd >= 0) {
    got = ::pread(fd, h, sizeof h, 0);
    ::close(fd);
  }
  const long long size = static_cast<long long>(st.st_size);
  if (size == 0) return unfinishedCreationCause(path, h, 0);
  if (got < 0) return std::string("cannot read it: ") + std::strerror(errno);
  if (isUnfinishedCreation(h, got < size ? got : size)) return unfinishedCreationCause(path, h, got);
  if (size < ckdvol::kHeaderSize) {
    return bytesText(size) + ": too short for a volume header (512 bytes)" +
           (looksLikeText(h, static_cast<size_t>(got)) ? "; it is a text file" : "");
  }
  for (const ForeignImage& image : kForeignImages) {
    if (std::memcmp(h, image.magic, ckdvol::kMagicLength) == 0) {
      return "this is " + std::string(image.what) + " (header \"" + image.magic + "\"), not a volume of this tool; " +
             (image.magic[0] == 'F' ? std::string("only CKD images can be converted")
                                    : "'ckdvol info " + path + "' describes it and 'ckdvol convert' converts it");
    }
  }
  const bool ready = std::memcmp(h, ckdvol::kMagicReady, ckdvol::kMagicLength) == 0;
  if (!ready && looksLikeText(h, static_cast<size_t>(got))) return "a text file, not a volume";
  if (!ready) {
    return "not a volume: a volume file begins with \"CKD_XVOL\", this one with \"" + escapedText(h, ckdvol::kMagicLength) + "\"";
  }
  switch (rc) {
    case F::kOpenLevel2:
      return "the header says format level 2, an old format this tool does not read";
    case F::kOpenBadDevice: {
      char code[8];
      std::snprintf(code, sizeof code, "0x%02X", h[ckdvol::kHdrDeviceCode]);
      return std::string("damaged header: device code ") + code +
             " is no known device type ('ckdvol types' lists the codes)";
    }
    case F::kOpenBadTrackSize: {
      const F::DeviceInfo* d = F::findDeviceByFileCode(h[ckdvol::kHdrDeviceCode]);
      char type[16];
      std::snprintf(type, sizeof type, "%04X", d != nullptr ? static_cast<unsigned>(d->type) : 0u);
      return "damaged header: it says tracks of " + bytesText(ckdvol::loadLe32(h + ckdvol::kHdrTrackSize)) +
             ", but device type " + type + " has tracks of " +
             bytesText(d != nullptr ? static_cast<long long>(d->slotUnits) * 512 : 0);
    }
    case F::kOpenCorruptVersioned:
      return "damaged header: format level 0 with active version " +
             std::to_string(ckdvol::loadLe16(h + ckdvol::kHdrActiveVersion));
    case F::kOpenBadSize:
    case F::kOpenNotCylinders:
      return sizeCause(h, size, rc);
    case F::kOpenHeaderWrite:
      return std::string("cannot update the volume header: ") +
             (savedErrno != 0 ? std::strerror(savedErrno) : "write failed");
    default:
      return "not a usable volume (open result " + std::to_string(rc) + "): " +
             (errorText != nullptr && errorText[0] != '\0' ? errorText : "no reason given");
  }
}

}  // namespace

SizeCheck checkFileSize(const unsigned char* h, long long size) {
  SizeCheck c;
  c.fileSize = size;
  const unsigned heads = ckdvol::loadLe32(h + ckdvol::kHdrHeads);
  const unsigned slot = ckdvol::loadLe32(h + ckdvol::kHdrTrackSize);
  const unsigned cylinders = ckdvol::loadLe32(h + ckdvol::kHdrCylinders);
  const F::DeviceInfo* device = F::findDeviceByFileCode(h[ckdvol::kHdrDeviceCode]);
  if (device == nullptr || slot == 0) return c;
  const bool d200 = device->type == F::D200;
  const unsigned long long tracks = d200 ? 200000ULL : static_cast<unsigned long long>(cylinders) * heads;
  c.headerSize = describedLength(tracks, slot);
  const bool versioned =
      ckdvol::loadLe16(h + ckdvol::kHdrActiveVersion) != 0 || ckdvol::loadLe16(h + ckdvol::kHdrLatestVersion) != 0;
  if (size == c.headerSize) return c;
  if (size > c.headerSize && versioned && (size - c.headerSize) % slot == 0) return c;  // saved copies
  const std::string says = d200 ? "a D200 volume has 200000 tracks"
                                : "its header says " + count(cylinders, "cylinder") + " of " + count(heads, "track");
  const unsigned long long perCylinder = static_cast<unsigned long long>(heads) * slot;
  std::string text = "the file is " + bytesText(size) + " but " + says + ", " + bytesText(c.headerSize) + ": ";
  if (size < c.headerSize) {
    text += "it was cut short";
    if (!d200 && perCylinder > 0 && size >= ckdvol::kHeaderSize) {
      const unsigned long long present = static_cast<unsigned long long>(size - ckdvol::kHeaderSize) / perCylinder;
      text += " and holds " + std::to_string(present) + " of its " + std::to_string(cylinders) + " cylinders";
    }
    text += " (" + bytesText(c.headerSize - size) + " missing)";
  } else {
    text += bytesText(size - c.headerSize) + " more than that" +
            (versioned ? " and not a whole number of saved copies" : " (the header's count is too small?)");
  }
  c.finding = text;
  return c;
}


int openFailed(const std::string& path, int rc, int savedErrno, const char* errorText) {
  return fail(path, openFailureCause(path, rc, savedErrno, errorText));
}

}  // namespace ckdvol_tool
