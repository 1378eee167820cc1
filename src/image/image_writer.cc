// Writing a volume's tracks as a new image: this tool's volume file, a
// Hercules plain image (one file or split files) or a compressed image.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "ckdfile/emulated_ckd_file.h"
#include "ckdfile/volume_format.h"
#include "common/byte_order.h"
#include "image/hercules_format.h"
#include "image/image.h"
#include "image/track_codec.h"

namespace ckdvol_image {
namespace {

using ckdvol::storeLe16;
using ckdvol::storeLe32;
using ckdvol::storeLe64;

std::string num(uint64_t n) { return std::to_string(n); }

// Output files under temporary names beside their final ones; removed
// unless commit() renamed them all.
class OutputFiles {
 public:
  ~OutputFiles() {
    for (Entry& e : entries_) {
      if (e.fd >= 0) ::close(e.fd);
      if (!e.temp.empty()) ::unlink(e.temp.c_str());
    }
  }
  // A new temporary file for `final`; its descriptor, or -1 with `error`.
  int add(const std::string& final, bool replace, std::string& error) {
    struct stat st;
    if (!replace && ::lstat(final.c_str(), &st) == 0) {
      error = final + " exists";
      return -1;
    }
    const size_t slash = final.rfind('/');
    std::string temp = (slash == std::string::npos ? std::string() : final.substr(0, slash + 1)) + "." +
                       final.substr(slash == std::string::npos ? 0 : slash + 1) + ".convert-XXXXXX";
    const int fd = ::mkstemp(&temp[0]);
    if (fd < 0) {
      error = final + ": cannot create a file beside it: " + std::strerror(errno);
      return -1;
    }
    ::fchmod(fd, 0644);
    entries_.push_back(Entry{final, temp, fd});
    return fd;
  }
  // Forces every file to disk and gives each its final name.
  bool commit(bool replace, std::string& error) {
    for (Entry& e : entries_) {
      if (::fsync(e.fd) != 0 || ::close(e.fd) != 0) {
        e.fd = -1;
        error = e.final + ": cannot write it: " + std::strerror(errno);
        return false;
      }
      e.fd = -1;
    }
    for (Entry& e : entries_) {
      bool done = false;
      if (!replace) {
        if (::link(e.temp.c_str(), e.final.c_str()) == 0) {
          ::unlink(e.temp.c_str());
          done = true;
        } else if (errno == EEXIST) {
          error = e.final + " exists";
          return false;
        }
      }
      if (!done && ::rename(e.temp.c_str(), e.final.c_str()) != 0) {
        error = e.final + ": cannot rename the new file to it: " + std::strerror(errno);
        return false;
      }
      e.temp.clear();
    }
    return true;
  }

 private:
  struct Entry {
    std::string final, temp;
    int fd;
  };
  std::vector<Entry> entries_;
};

bool writeAll(int fd, const void* data, size_t n, uint64_t offset) {
  const auto* p = static_cast<const unsigned char*>(data);
  while (n > 0) {
    const ssize_t put = ::pwrite(fd, p, n, static_cast<off_t>(offset));
    if (put <= 0) {
      if (put < 0 && errno == EINTR) continue;
      if (put == 0) errno = EIO;
      return false;
    }
    p += put;
    offset += static_cast<uint64_t>(put);
    n -= static_cast<size_t>(put);
  }
  return true;
}

std::string ioError(const std::string& path) { return path + ": cannot write it: " + std::strerror(errno); }

void deviceHeader(unsigned char* h, const char* magic, const ImageInfo& info, unsigned fileSeq, unsigned highCyl) {
  std::memset(h, 0, herc::kDevHeaderSize);
  std::memcpy(h, magic, herc::kMagicLength);
  storeLe32(h + herc::kDhHeads, info.heads);
  storeLe32(h + herc::kDhTrackSize, info.trackSize);
  h[herc::kDhDeviceCode] = herculesCode(info.type);
  h[herc::kDhFileSeq] = static_cast<unsigned char>(fileSeq);
  storeLe16(h + herc::kDhHighCyl, static_cast<uint16_t>(highCyl));
}

// The null-track format that `image` is (0, 1, 2), or -1.
int nullFormatOf(const Bytes& image, uint32_t cyl, uint32_t head) {
  for (int fmt = 0; fmt <= herc::kNullFmtMax; ++fmt) {
    static const size_t kSizes[] = {37, 29, 49277};
    if (image.size() == kSizes[fmt] && image == nullTrack(fmt, cyl, head)) return fmt;
  }
  return -1;
}

class Writer {
 public:
  Writer(TrackSource& source, const WriteOptions& options, WriteResult& result)
      : source_(source), info_(source.info()), options_(options), result_(result) {}

  bool run(const std::string& path, std::string& error) {
    result_ = WriteResult();
    if (options_.format != Format::kCkdvol && herculesCode(info_.type) == 0) {
      error = "D200 volumes have no Hercules device type";
      return false;
    }
    if (info_.cylinders > 65520) {
      error = "a volume of " + num(info_.cylinders) + " cylinders: images of at most 65520 cylinders are written";
      return false;
    }
    bool ok = false;
    switch (options_.format) {
      case Format::kCkdvol: ok = writeSlots(path, error); break;
      case Format::kCkd: ok = writePlain(path, error); break;
      case Format::kCckd:
      case Format::kCckd64: ok = writeCompressed(path, error); break;
    }
    return ok && files_.commit(options_.replace, error);
  }

 private:
  bool next(uint64_t track, std::string& error) {
    if (!source_.read(track, image_, error)) return false;
    if (image_.size() > info_.trackSize - ckdvol::kTrailerSize) {
      error = "cylinder " + num(track / info_.heads) + " head " + num(track % info_.heads) +
              ": its image does not fit a track slot";
      return false;
    }
    ++result_.tracks;
    if (options_.progress && !options_.progress(track + 1, info_.tracks())) {
      error = "interrupted";
      return false;
    }
    return true;
  }

  // This tool's volume file: header, then the images in their slots; the
  // rest of each slot (and its trailer) stays zero.
  bool writeSlots(const std::string& path, std::string& error) {
    const int fd = files_.add(path, options_.replace, error);
    if (fd < 0) return false;
    result_.files.push_back(path);
    const EmulatedCKDfile::DeviceInfo* d = EmulatedCKDfile::findDevice(info_.type);
    unsigned char h[ckdvol::kHeaderSize] = {};
    std::memcpy(h + ckdvol::kHdrMagic, ckdvol::kMagicReady, ckdvol::kMagicLength);
    storeLe32(h + ckdvol::kHdrHeads, info_.heads);
    storeLe32(h + ckdvol::kHdrTrackSize, info_.trackSize);
    h[ckdvol::kHdrDeviceCode] = d->fileCode;
    h[ckdvol::kHdrFormatLevel] = 3;
    storeLe32(h + ckdvol::kHdrCreatedCylinders, info_.cylinders);
    storeLe32(h + ckdvol::kHdrCylinders, info_.cylinders);
    const uint64_t size = ckdvol::kHeaderSize + info_.tracks() * info_.trackSize;
    if (!writeAll(fd, h, sizeof h, 0) || ::ftruncate(fd, static_cast<off_t>(size)) != 0) {
      error = ioError(path);
      return false;
    }
    for (uint64_t t = 0; t < info_.tracks(); ++t) {
      if (!next(t, error)) return false;
      if (!writeAll(fd, image_.data(), image_.size(), ckdvol::kHeaderSize + t * info_.trackSize)) {
        error = ioError(path);
        return false;
      }
    }
    result_.bytesOut = size;
    return true;
  }

  // A plain image: one file, or split files of cylindersPerFile cylinders.
  bool writePlain(const std::string& path, std::string& error) {
    uint32_t per = options_.cylindersPerFile;
    if (per == 0 || per >= info_.cylinders) per = info_.cylinders;
    if (per < 2) {
      error = "files of 1 cylinder cannot be told apart from the last file: give at least 2";
      return false;
    }
    const uint32_t count = (info_.cylinders + per - 1) / per;
    if (count > herc::kMaxFiles) {
      error = "split into " + num(count) + " files of " + num(per) + " cylinders: at most " +
              num(herc::kMaxFiles) + " files";
      return false;
    }
    uint64_t track = 0;
    for (uint32_t i = 0; i < count; ++i) {
      const std::string name = count == 1 ? path : splitFileName(path, i + 1);
      const int fd = files_.add(name, options_.replace, error);
      if (fd < 0) return false;
      result_.files.push_back(name);
      const uint32_t first = i * per, cylinders = i + 1 < count ? per : info_.cylinders - first;
      unsigned char h[herc::kDevHeaderSize];
      deviceHeader(h, "CKD_P370", info_, count == 1 ? 0 : i + 1, i + 1 < count ? first + cylinders - 1 : 0);
      const uint64_t size = herc::kDevHeaderSize + static_cast<uint64_t>(cylinders) * info_.heads * info_.trackSize;
      if (!writeAll(fd, h, sizeof h, 0) || ::ftruncate(fd, static_cast<off_t>(size)) != 0) {
        error = ioError(name);
        return false;
      }
      for (uint64_t k = 0; k < static_cast<uint64_t>(cylinders) * info_.heads; ++k, ++track) {
        if (!next(track, error)) return false;
        if (!writeAll(fd, image_.data(), image_.size(), herc::kDevHeaderSize + k * info_.trackSize)) {
          error = ioError(name);
          return false;
        }
      }
      result_.bytesOut += size;
    }
    return true;
  }

  // Appends to the compressed image through a buffer.
  bool append(const unsigned char* p, size_t n) {
    buffer_.insert(buffer_.end(), p, p + n);
    end_ += n;
    return buffer_.size() < (1u << 20) || flush();
  }
  bool flush() {
    const bool ok = writeAll(fd_, buffer_.data(), buffer_.size(), end_ - buffer_.size());
    buffer_.clear();
    return ok;
  }

  // A compressed image: headers, the L1 table, then per group of 256 tracks
  // its L2 table followed by its stored images. Empty tracks are null tracks
  // of their format (0: an EOF record, 1: record zero alone, 2: twelve
  // records of 4096 zeros, as a fully formatted D600 track is); a group of
  // format-1 tracks alone (the header's null format) needs no L2 table. The
  // header's null format is never 2, which would turn entries of format 0
  // into format 2. No free space is left: the free-space fields are zero.
  bool writeCompressed(const std::string& path, std::string& error) {
    const bool wide = options_.format == Format::kCckd64;
    fd_ = files_.add(path, options_.replace, error);
    if (fd_ < 0) return false;
    result_.files.push_back(path);
    const size_t l1Entry = wide ? 8 : 4, l2Entry = wide ? 16 : 8;
    const uint64_t tracks = info_.tracks();
    const uint64_t groups = (tracks + 255) / 256;
    std::vector<uint64_t> l1(groups, 0);
    end_ = herc::kL1Pos + groups * l1Entry;
    const int nullFormat = herc::kNullFmt1;
    Bytes l2(herc::kL2Entries * l2Entry), data, body;
    for (uint64_t g = 0; g < groups; ++g) {
      bool any = false;
      data.clear();
      std::fill(l2.begin(), l2.end(), 0);
      for (unsigned i = 0; i < herc::kL2Entries; ++i) {
        unsigned char* e = l2.data() + i * l2Entry;
        const uint64_t t = g * 256 + i;
        uint64_t offset = 0;
        uint16_t length = static_cast<uint16_t>(nullFormat);
        if (t < tracks) {
          if (!next(t, error)) return false;
          const uint32_t cyl = static_cast<uint32_t>(t / info_.heads), head = static_cast<uint32_t>(t % info_.heads);
          const int fmt = nullFormatOf(image_, cyl, head);
          if (fmt >= 0) {
            length = static_cast<uint16_t>(fmt);
            ++result_.nullTracks;
          } else {
            Compression c = options_.compression;
            if (image_.size() < herc::kCompressMin) c = Compression::kNone;
            if (c != Compression::kNone) {
              if (!compressBody(c, image_.data() + 5, image_.size() - 5, body)) {
                error = std::string("the ") + compressionName(c) + " library failed";
                return false;
              }
              if (body.size() + 5 >= image_.size()) c = Compression::kNone;
            }
            if (c == Compression::kNone) body.assign(image_.begin() + 5, image_.end());
            if (c != Compression::kNone) ++result_.compressedTracks;
            offset = data.size() + 1;  // placed below, once the L2 table's place is known
            length = static_cast<uint16_t>(body.size() + 5);
            data.push_back(static_cast<unsigned char>(c));
            data.insert(data.end(), image_.begin() + 1, image_.begin() + 5);
            data.insert(data.end(), body.begin(), body.end());
          }
        }
        if (offset != 0 || length != nullFormat) any = true;
        if (wide) {
          storeLe64(e, offset);
          storeLe16(e + 8, length);
          storeLe16(e + 10, length);
        } else {
          storeLe32(e, static_cast<uint32_t>(offset));
          storeLe16(e + 4, length);
          storeLe16(e + 6, length);
        }
      }
      if (!any) continue;
      l1[g] = end_;
      const uint64_t base = end_ + l2.size() - 1;  // stored offsets were kept one too high
      for (unsigned i = 0; i < herc::kL2Entries; ++i) {
        unsigned char* e = l2.data() + i * l2Entry;
        const uint64_t o = wide ? ckdvol::loadLe64(e) : ckdvol::loadLe32(e);
        if (o == 0) continue;
        if (wide) {
          storeLe64(e, base + o);
        } else {
          storeLe32(e, static_cast<uint32_t>(base + o));
        }
      }
      if (!wide && end_ + l2.size() + data.size() > 0xFFFFFFFFULL) {
        error = "the image would pass 4 GiB, the most a cckd image holds: write cckd64";
        return false;
      }
      if (!append(l2.data(), l2.size()) || !append(data.data(), data.size())) {
        error = ioError(path);
        return false;
      }
    }
    if (!flush()) {
      error = ioError(path);
      return false;
    }
    unsigned char h[herc::kDevHeaderSize + herc::kCdhSize];
    deviceHeader(h, wide ? "CKD_C064" : "CKD_C370", info_, 0, 0);
    unsigned char* c = h + herc::kCdhPos;
    std::memset(c, 0, herc::kCdhSize);
    c[0] = herc::kVersion;
    c[1] = herc::kRelease;
    c[2] = herc::kModLevel;
    c[herc::kC32Opts] = 0;  // little-endian, closed
    storeLe32(c + herc::kC32NumL1, static_cast<uint32_t>(groups));
    storeLe32(c + herc::kC32NumL2, herc::kL2Entries);
    if (wide) {
      storeLe32(c + herc::kC64Cyls, info_.cylinders);
      storeLe64(c + herc::kC64Size, end_);
      storeLe64(c + herc::kC64Used, end_);
      c[herc::kC64NullFmt] = static_cast<unsigned char>(nullFormat);
      c[herc::kC64Compress] = static_cast<unsigned char>(options_.compression);
      storeLe16(c + herc::kC64CompressParm, 0xFFFF);
    } else {
      storeLe32(c + herc::kC32Size, static_cast<uint32_t>(end_));
      storeLe32(c + herc::kC32Used, static_cast<uint32_t>(end_));
      storeLe32(c + herc::kC32Cyls, info_.cylinders);
      c[herc::kC32NullFmt] = static_cast<unsigned char>(nullFormat);
      c[herc::kC32Compress] = static_cast<unsigned char>(options_.compression);
      storeLe16(c + herc::kC32CompressParm, 0xFFFF);
    }
    Bytes l1Bytes(groups * l1Entry);
    for (uint64_t g = 0; g < groups; ++g) {
      if (wide) {
        storeLe64(l1Bytes.data() + g * 8, l1[g]);
      } else {
        storeLe32(l1Bytes.data() + g * 4, static_cast<uint32_t>(l1[g]));
      }
    }
    if (!writeAll(fd_, h, sizeof h, 0) || !writeAll(fd_, l1Bytes.data(), l1Bytes.size(), herc::kL1Pos)) {
      error = ioError(path);
      return false;
    }
    result_.bytesOut = end_;
    return true;
  }

  TrackSource& source_;
  const ImageInfo& info_;
  const WriteOptions& options_;
  WriteResult& result_;
  OutputFiles files_;
  Bytes image_, buffer_;
  int fd_ = -1;
  uint64_t end_ = 0;
};

}  // namespace

bool writeImage(TrackSource& source, const std::string& path, const WriteOptions& options, WriteResult& result,
                std::string& error) {
  Writer w(source, options, result);
  return w.run(path, error);
}

}  // namespace ckdvol_image
