// Reading volumes track by track: this tool's volume files, Hercules plain
// images (one file or split files), compressed images and shadow files.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "ckdfile/emulated_ckd_file.h"
#include "ckdfile/volume_format.h"
#include "common/byte_order.h"
#include "image/hercules_format.h"
#include "image/image.h"
#include "image/track_codec.h"

namespace ckdvol_image {
namespace {

using ckdvol::loadBe16;
using ckdvol::loadLe16;
using ckdvol::loadLe32;

constexpr size_t kFirstRead = 4096;  // most tracks end within their first block

std::string num(uint64_t n) { return std::to_string(n); }

std::string where(uint64_t track, uint32_t heads) {
  return "cylinder " + num(track / heads) + " head " + num(track % heads);
}

// An open file, closed with the object.
class File {
 public:
  File() = default;
  ~File() {
    if (fd_ >= 0) ::close(fd_);
  }
  File(const File&) = delete;
  File& operator=(const File&) = delete;
  File(File&& o) noexcept : fd_(o.fd_), size_(o.size_), path_(std::move(o.path_)) { o.fd_ = -1; }
  File& operator=(File&& o) noexcept {
    if (this != &o) {
      if (fd_ >= 0) ::close(fd_);
      fd_ = o.fd_;
      size_ = o.size_;
      path_ = std::move(o.path_);
      o.fd_ = -1;
    }
    return *this;
  }

  bool open(const std::string& path, std::string& error) {
    path_ = path;
    fd_ = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    struct stat st;
    if (fd_ < 0 || ::fstat(fd_, &st) != 0) {
      error = std::strerror(errno);
      return false;
    }
    if (!S_ISREG(st.st_mode)) {
      error = "not a regular file";
      return false;
    }
    size_ = static_cast<uint64_t>(st.st_size);
    return true;
  }
  // Exactly `n` bytes at `offset`, all inside the file.
  bool read(uint64_t offset, void* buffer, size_t n) const {
    if (offset > size_ || n > size_ - offset) return false;
    auto* p = static_cast<unsigned char*>(buffer);
    while (n > 0) {
      const ssize_t got = ::pread(fd_, p, n, static_cast<off_t>(offset));
      if (got <= 0) {
        if (got < 0 && errno == EINTR) continue;
        return false;
      }
      p += got;
      offset += static_cast<uint64_t>(got);
      n -= static_cast<size_t>(got);
    }
    return true;
  }
  int fd() const { return fd_; }
  uint64_t size() const { return size_; }
  const std::string& path() const { return path_; }

 private:
  int fd_ = -1;
  uint64_t size_ = 0;
  std::string path_;
};

// The image of a track stored whole at `offset` in `file` (at most
// `available` bytes of slot): read its first block, then the rest when its
// records run on.
bool readWholeTrack(const File& file, uint64_t offset, size_t available, size_t markerLimit, Bytes& image,
                    long& length) {
  size_t n = available < kFirstRead ? available : kFirstRead;
  image.resize(available);
  if (!file.read(offset, image.data(), n)) return false;
  length = trackImageLength(image.data(), n, markerLimit);
  if (length < 0 && n < available) {
    if (!file.read(offset + n, image.data() + n, available - n)) return false;
    length = trackImageLength(image.data(), available, markerLimit);
  }
  if (length >= 0) image.resize(static_cast<size_t>(length));
  return true;
}

// The home address must name the track's own place.
bool checkHomeAddress(const Bytes& image, uint64_t track, uint32_t heads, std::string& error) {
  const uint32_t cyl = loadBe16(image.data() + 1), head = loadBe16(image.data() + 3);
  if (static_cast<uint64_t>(cyl) * heads + head == track && head < heads) return true;
  error = where(track, heads) + ": its home address says cylinder " + num(cyl) + " head " + num(head);
  return false;
}

struct DeviceHeader {
  std::string magic;
  uint32_t type = 0;
  uint32_t heads = 0, trackSize = 0;
  unsigned fileSeq = 0, highCyl = 0;
};

bool parseDeviceHeader(const File& file, DeviceHeader& h, std::string& error) {
  unsigned char b[herc::kDevHeaderSize];
  if (!file.read(0, b, sizeof b)) {
    error = num(file.size()) + " bytes: too short for an image header (512 bytes)";
    return false;
  }
  if (!isHerculesCkdMagic(b)) {
    std::string shown;
    for (int i = 0; i < herc::kMagicLength; ++i) shown += b[i] >= 0x20 && b[i] < 0x7F ? static_cast<char>(b[i]) : '?';
    error = std::memcmp(b, "FBA_", 4) == 0
                ? "a Hercules FBA image (header \"" + shown + "\"): only CKD volumes can be converted"
                : "not a Hercules CKD image: it begins with \"" + shown + "\"";
    return false;
  }
  h.magic.assign(reinterpret_cast<const char*>(b), herc::kMagicLength);
  h.heads = loadLe32(b + herc::kDhHeads);
  h.trackSize = loadLe32(b + herc::kDhTrackSize);
  h.fileSeq = b[herc::kDhFileSeq];
  h.highCyl = loadLe16(b + herc::kDhHighCyl);
  const unsigned char code = b[herc::kDhDeviceCode];
  h.type = typeOfHerculesCode(code);
  char hex[8];
  std::snprintf(hex, sizeof hex, "0x%02X", code);
  if (h.type == 0) {
    error = std::string("device code ") + hex + " in its header is no device type this tool has";
    return false;
  }
  const EmulatedCKDfile::DeviceInfo* d = EmulatedCKDfile::findDevice(h.type);
  const uint32_t slot = static_cast<uint32_t>(d->slotUnits) * 512;
  if (h.heads != d->heads || h.trackSize != slot) {
    std::snprintf(hex, sizeof hex, "%04X", static_cast<unsigned>(h.type));
    error = "its header says " + num(h.heads) + " heads and tracks of " + num(h.trackSize) + " bytes, but device " +
            hex + " has " + num(d->heads) + " heads and tracks of " + num(slot) + " bytes";
    return false;
  }
  return true;
}

bool isCompressedMagic(const std::string& m) { return m[4] == 'C' || m[4] == 'S'; }
bool is64Magic(const std::string& m) { return m.compare(5, 3, "064") == 0; }

// One compressed image or shadow file with its L1 table.
struct CompressedFile {
  File file;
  bool wide = false;  // 64-bit offsets
  bool bigEndian = false;
  bool shadow = false;
  uint32_t cylinders = 0;
  int nullFormat = 0;
  Compression compression = Compression::kNone;
  std::vector<uint64_t> l1;
  int64_t l2Group = -1;  // the group whose L2 table is in `l2`
  Bytes l2;

  uint64_t noOffset() const { return wide ? ~0ULL : 0xFFFFFFFFULL; }
  size_t l1Entry() const { return wide ? 8 : 4; }
  size_t l2Entry() const { return wide ? 16 : 8; }
  uint64_t u16(const unsigned char* p) const { return bigEndian ? loadBe16(p) : loadLe16(p); }
  uint64_t u32(const unsigned char* p) const { return bigEndian ? ckdvol::loadBe32(p) : loadLe32(p); }
  uint64_t u64(const unsigned char* p) const { return bigEndian ? ckdvol::loadBe64(p) : ckdvol::loadLe64(p); }
  uint64_t offset(const unsigned char* p) const { return wide ? u64(p) : u32(p); }
};

// The compressed header of `c` (its device header already checked).
bool parseCompressedHeader(CompressedFile& c, const DeviceHeader& h, std::string& error) {
  unsigned char b[herc::kCdhSize];
  if (!c.file.read(herc::kCdhPos, b, sizeof b)) {
    error = num(c.file.size()) + " bytes: too short for the compressed image header (1024 bytes)";
    return false;
  }
  c.wide = is64Magic(h.magic);
  c.shadow = h.magic[4] == 'S';
  c.bigEndian = (b[herc::kC32Opts] & herc::kOptBigEndian) != 0;
  const int64_t numL1 = static_cast<int32_t>(c.u32(b + herc::kC32NumL1));
  const int64_t numL2 = static_cast<int32_t>(c.u32(b + herc::kC32NumL2));
  const uint64_t stated = c.wide ? c.u64(b + herc::kC64Size) : c.u32(b + herc::kC32Size);
  c.cylinders = static_cast<uint32_t>(c.u32(b + (c.wide ? herc::kC64Cyls : herc::kC32Cyls)));
  c.nullFormat = b[c.wide ? herc::kC64NullFmt : herc::kC32NullFmt];
  const unsigned algo = b[c.wide ? herc::kC64Compress : herc::kC32Compress];
  if (c.cylinders == 0 || c.cylinders > 65520) {
    error = "its header says " + num(c.cylinders) + " cylinders (1 to 65520 can be converted)";
    return false;
  }
  const uint64_t tracks = static_cast<uint64_t>(c.cylinders) * h.heads;
  if (numL2 != herc::kL2Entries || numL1 < static_cast<int64_t>((tracks + 255) / 256)) {
    error = "damaged header: " + std::to_string(numL1) + " L1 and " + std::to_string(numL2) +
            " L2 entries for " + num(tracks) + " tracks";
    return false;
  }
  if (c.nullFormat > herc::kNullFmtMax || algo > 2) {
    error = "damaged header: null track format " + num(static_cast<uint64_t>(c.nullFormat)) + ", compression " +
            num(algo);
    return false;
  }
  c.compression = static_cast<Compression>(algo);
  if (stated > c.file.size()) {
    error = "the file was cut short: its header says " + num(stated) + " bytes, the file has " + num(c.file.size());
    return false;
  }
  const uint64_t l1Bytes = static_cast<uint64_t>(numL1) * c.l1Entry();
  if (herc::kL1Pos + l1Bytes > c.file.size()) {
    error = "the file was cut short: its L1 table of " + std::to_string(numL1) + " entries ends past its end";
    return false;
  }
  Bytes raw(static_cast<size_t>(l1Bytes));
  if (!c.file.read(herc::kL1Pos, raw.data(), raw.size())) {
    error = std::string("cannot read its L1 table: ") + std::strerror(errno);
    return false;
  }
  c.l1.resize(static_cast<size_t>(numL1));
  for (size_t i = 0; i < c.l1.size(); ++i) c.l1[i] = c.offset(raw.data() + i * c.l1Entry());
  return true;
}

// The headers of `path` and, for a split plain image, of its other files.
bool probe(const std::string& path, ImageInfo& info, std::vector<File>& files, DeviceHeader& first,
           std::string& error) {
  File f;
  if (!f.open(path, error)) return false;
  if (!parseDeviceHeader(f, first, error)) return false;
  info.type = first.type;
  info.heads = first.heads;
  info.trackSize = first.trackSize;
  info.files.push_back(path);
  info.bytes = f.size();
  if (isCompressedMagic(first.magic)) {
    CompressedFile c;
    c.file = std::move(f);
    if (!parseCompressedHeader(c, first, error)) return false;
    info.format = c.wide ? Format::kCckd64 : Format::kCckd;
    info.cylinders = c.cylinders;
    info.compression = c.compression;
    info.nullFormat = c.nullFormat;
    info.bigEndian = c.bigEndian;
    info.shadow = c.shadow;
    files.push_back(std::move(c.file));
    return true;
  }
  info.format = Format::kCkd;
  if (first.fileSeq > 1) {
    error = "file " + num(first.fileSeq) + " of a split image: name its first file, " +
            splitFileName(path, 1);
    return false;
  }
  const uint64_t cylinderBytes = static_cast<uint64_t>(first.heads) * first.trackSize;
  uint64_t cylinders = 0;
  DeviceHeader h = first;
  for (unsigned seq = 1;; ++seq) {
    const std::string& name = info.files.back();
    const std::string prefix = seq == 1 ? "" : name + ": ";
    if (f.size() < herc::kDevHeaderSize || (f.size() - herc::kDevHeaderSize) % cylinderBytes != 0) {
      error = prefix + "the file is " + num(f.size()) + " bytes, not the 512-byte header plus whole cylinders of " +
              num(cylinderBytes) + " bytes";
      return false;
    }
    const uint64_t here = (f.size() - herc::kDevHeaderSize) / cylinderBytes;
    const bool last = h.fileSeq == 0 || h.highCyl == 0;
    if (!last && h.highCyl != cylinders + here - 1) {
      error = prefix + "its header says its last cylinder is " + num(h.highCyl) + ", its size says " +
              num(cylinders + here - 1);
      return false;
    }
    cylinders += here;
    files.push_back(std::move(f));
    if (last) break;
    if (seq + 1 > herc::kMaxFiles) {
      error = "more than " + num(herc::kMaxFiles) + " files in a split image";
      return false;
    }
    const std::string next = splitFileName(path, seq + 1);
    File n;
    if (!n.open(next, error)) {
      error = next + " (file " + num(seq + 1) + " of the split image): " + error;
      return false;
    }
    DeviceHeader nh;
    if (!parseDeviceHeader(n, nh, error)) {
      error = next + ": " + error;
      return false;
    }
    if (isCompressedMagic(nh.magic) || nh.type != first.type || nh.fileSeq != seq + 1) {
      error = next + ": not file " + num(seq + 1) + " of this split image (its header says file " +
              num(nh.fileSeq) + " of a " + nh.magic + " image)";
      return false;
    }
    info.files.push_back(next);
    info.bytes += n.size();
    f = std::move(n);
    h = nh;
  }
  if (cylinders == 0 || cylinders > 65520) {
    error = num(cylinders) + " cylinders (1 to 65520 can be converted)";
    return false;
  }
  info.cylinders = static_cast<uint32_t>(cylinders);
  return true;
}

// ---- this tool's volume files ----

class CkdvolSource : public TrackSource {
 public:
  bool open(const std::string& path, std::string& error) {
    const int rc = volume_.open(path.c_str(), true);
    if (rc < 0) {
      error = std::string("not a usable volume: ") + (volume_.errorText[0] ? volume_.errorText : std::strerror(errno));
      return false;
    }
    if (volume_.deviceType == EmulatedCKDfile::D200) {
      error = "D200 volumes have no Hercules device type";
      return false;
    }
    if (!file_.open(path, error)) return false;
    info_.format = Format::kCkdvol;
    info_.type = volume_.deviceType;
    info_.cylinders = volume_.cylinders;
    info_.heads = volume_.tracksPerCylinder;
    info_.trackSize = volume_.trackSlotSize;
    info_.files.push_back(path);
    info_.bytes = file_.size();
    return true;
  }
  bool read(uint64_t track, Bytes& image, std::string& error) override {
    if (track >= info_.tracks()) {
      error = "track " + num(track) + " is off the volume";
      return false;
    }
    const uint64_t offset = ckdvol::kHeaderSize + track * info_.trackSize;
    long length = -1;
    const size_t room = info_.trackSize - ckdvol::kTrailerSize;
    if (!readWholeTrack(file_, offset, room, info_.trackSize - ckdvol::kDataLimitFromEnd, image, length)) {
      error = where(track, info_.heads) + ": cannot read its slot (the file is " + num(file_.size()) + " bytes)";
      return false;
    }
    if (length < 0) {
      error = where(track, info_.heads) + ": no end-of-track marker within the slot ('ckdvol verify' tells more)";
      return false;
    }
    if (volume_.largeCylinders) return true;  // addresses above 65535 cylinders are encoded
    return checkHomeAddress(image, track, info_.heads, error);
  }

 private:
  EmulatedCKDfile volume_;
  File file_;
};

// ---- Hercules images ----

class HerculesSource : public TrackSource {
 public:
  bool open(const std::string& path, const std::vector<std::string>& shadows, std::string& error) {
    DeviceHeader first;
    if (!probe(path, info_, plain_, first, error)) return false;
    if (info_.shadow) {
      error = "a shadow file: it holds only the tracks changed over its base image; convert the base with "
              "--shadow " + path;
      return false;
    }
    if (info_.format != Format::kCkd) {
      layers_.emplace_back();
      layers_.back().file = std::move(plain_.front());
      plain_.clear();
      if (!parseCompressedHeader(layers_.back(), first, error)) return false;
    } else {
      uint64_t end = 0;
      for (const File& f : plain_) {
        end += (f.size() - herc::kDevHeaderSize) / info_.trackSize;
        plainEnds_.push_back(end);
      }
    }
    if (!shadows.empty() && info_.format == Format::kCkd) {
      error = "shadow files belong over compressed images, not over a plain CKD image";
      return false;
    }
    for (const std::string& s : shadows) {
      CompressedFile c;
      DeviceHeader h;
      if (!c.file.open(s, error) || !parseDeviceHeader(c.file, h, error)) {
        error = s + ": " + error;
        return false;
      }
      if (h.magic[4] != 'S' || h.type != info_.type) {
        error = s + ": not a shadow file of this image (its header says \"" + h.magic + "\")";
        return false;
      }
      if (!parseCompressedHeader(c, h, error)) {
        error = s + ": " + error;
        return false;
      }
      if (c.cylinders != info_.cylinders) {
        error = s + ": a shadow file of " + num(c.cylinders) + " cylinders over an image of " +
                num(info_.cylinders);
        return false;
      }
      info_.files.push_back(s);
      info_.bytes += c.file.size();
      layers_.push_back(std::move(c));
    }
    return true;
  }

  bool read(uint64_t track, Bytes& image, std::string& error) override {
    if (track >= info_.tracks()) {
      error = "track " + num(track) + " is off the volume";
      return false;
    }
    const int topNull = layers_.empty() ? herc::kNullFmt0 : layers_.back().nullFormat;
    for (size_t i = layers_.size(); i-- > 0;) {
      CompressedFile& c = layers_[i];
      const std::string who = i == 0 && info_.format != Format::kCkd ? "" : c.file.path() + ": ";
      const uint64_t group = track >> 8;
      const uint64_t l1 = c.l1[group];
      if (l1 == c.noOffset()) continue;
      if (l1 == 0) return null(topNull, track, image, error);
      if (c.l2Group != static_cast<int64_t>(group)) {
        c.l2.resize(herc::kL2Entries * c.l2Entry());
        if (l1 < herc::kL1Pos || !c.file.read(l1, c.l2.data(), c.l2.size())) {
          c.l2Group = -1;
          error = who + "the L2 table of tracks " + num(group * 256) + "-" + num(group * 256 + 255) +
                  " lies at " + num(l1) + ", outside the file (" + num(c.file.size()) + " bytes)";
          return false;
        }
        c.l2Group = static_cast<int64_t>(group);
      }
      const unsigned char* e = c.l2.data() + (track & 255) * c.l2Entry();
      const uint64_t offset = c.offset(e);
      const uint64_t length = c.u16(e + (c.wide ? 8 : 4));
      if (offset == c.noOffset()) continue;
      if (offset == 0) {
        // Format 0 under a header of format 2 is read as format 2, as Hercules does.
        int fmt = length <= herc::kNullFmtMax ? static_cast<int>(length) : topNull;
        if (fmt == herc::kNullFmt0 && topNull == herc::kNullFmt2) fmt = herc::kNullFmt2;
        return null(fmt, track, image, error);
      }
      return stored(c, who, offset, length, track, image, error);
    }
    if (info_.format == Format::kCkd) return readPlain(track, image, error);
    return null(herc::kNullFmt0, track, image, error);
  }

 private:
  bool null(int format, uint64_t track, Bytes& image, std::string& error) {
    image = nullTrack(format, static_cast<uint32_t>(track / info_.heads), static_cast<uint32_t>(track % info_.heads));
    if (image.size() <= info_.trackSize - ckdvol::kTrailerSize) return true;
    error = where(track, info_.heads) + ": a null track of format " + num(static_cast<uint64_t>(format)) +
            " is larger than a track of " + num(info_.trackSize) + " bytes";
    return false;
  }

  bool stored(const CompressedFile& c, const std::string& who, uint64_t offset, uint64_t length, uint64_t track,
              Bytes& image, std::string& error) {
    const std::string at = who + where(track, info_.heads) + ": ";
    if (length <= 5 || offset < herc::kL1Pos || offset > c.file.size() || length > c.file.size() - offset) {
      error = at + "its image of " + num(length) + " bytes at " + num(offset) + " lies outside the file (" +
              num(c.file.size()) + " bytes)";
      return false;
    }
    stored_.resize(static_cast<size_t>(length));
    if (!c.file.read(offset, stored_.data(), stored_.size())) {
      error = at + "cannot read its image: " + std::strerror(errno);
      return false;
    }
    const unsigned comp = stored_[0];
    if (comp > 2) {
      error = at + "unknown compression " + num(comp) + " in its image";
      return false;
    }
    const size_t room = info_.trackSize - ckdvol::kTrailerSize;
    image.resize(room);
    std::memcpy(image.data(), stored_.data(), 5);
    image[0] = 0;
    const long n = expandBody(static_cast<Compression>(comp), stored_.data() + 5, stored_.size() - 5,
                              image.data() + 5, room - 5);
    if (n == -2) {
      error = at + "its image is larger than a track of " + num(info_.trackSize) + " bytes";
      return false;
    }
    if (n < 0) {
      error = at + "its " + compressionName(static_cast<Compression>(comp)) + " data is damaged";
      return false;
    }
    const long length2 = trackImageLength(image.data(), static_cast<size_t>(n) + 5,
                                          info_.trackSize - ckdvol::kDataLimitFromEnd);
    if (length2 < 0) {
      error = at + "its records do not end with an end-of-track marker within the track";
      return false;
    }
    image.resize(static_cast<size_t>(length2));
    return checkHomeAddress(image, track, info_.heads, error);
  }

  bool readPlain(uint64_t track, Bytes& image, std::string& error) {
    size_t i = 0;
    while (plainEnds_[i] <= track) ++i;
    const uint64_t first = i == 0 ? 0 : plainEnds_[i - 1];
    const File& f = plain_[i];
    const std::string who = i == 0 ? "" : f.path() + ": ";
    long length = -1;
    if (!readWholeTrack(f, herc::kDevHeaderSize + (track - first) * info_.trackSize,
                        info_.trackSize - ckdvol::kTrailerSize, info_.trackSize - ckdvol::kDataLimitFromEnd, image,
                        length)) {
      error = who + where(track, info_.heads) + ": cannot read it: " + std::strerror(errno);
      return false;
    }
    if (length < 0) {
      error = who + where(track, info_.heads) +
              ": its records do not end with an end-of-track marker within " +
              num(info_.trackSize - ckdvol::kTrailerSize) + " bytes (the most a track slot of this tool holds)";
      return false;
    }
    image[0] = 0;
    return checkHomeAddress(image, track, info_.heads, error);
  }

  std::vector<File> plain_;
  std::vector<uint64_t> plainEnds_;     // one past each plain file's last track
  std::vector<CompressedFile> layers_;  // the compressed base (if any), then the shadows
  Bytes stored_;
};

}  // namespace

bool readImageHeaders(const std::string& path, ImageInfo& info, std::string& error) {
  std::vector<File> files;
  DeviceHeader first;
  info = ImageInfo();
  return probe(path, info, files, first, error);
}

std::unique_ptr<TrackSource> openSource(const std::string& path, const std::vector<std::string>& shadows,
                                        std::string& error) {
  File f;
  if (!f.open(path, error)) return nullptr;
  unsigned char magic[ckdvol::kMagicLength] = {};
  if (f.read(0, magic, sizeof magic) && std::memcmp(magic, ckdvol::kMagicReady, sizeof magic) == 0) {
    if (!shadows.empty()) {
      error = "shadow files belong over Hercules images, not over a volume of this tool";
      return nullptr;
    }
    auto s = std::make_unique<CkdvolSource>();
    if (!s->open(path, error)) return nullptr;
    return s;
  }
  auto s = std::make_unique<HerculesSource>();
  if (!s->open(path, shadows, error)) return nullptr;
  return s;
}

}  // namespace ckdvol_image
