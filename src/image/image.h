// Volumes in other emulators' image formats: the Hercules emulator's plain
// CKD images (one file or split files), its compressed CCKD and CCKD64 images
// and their shadow files, read and written track by track, and this tool's
// own volume files read and written the same way.
//
// A track image is what a channel program sees, in both formats alike: the
// home address (flag, CC, HH), record zero, the records (count, key, data)
// and the end-of-track marker (8 x FF). Conversion copies these bytes as they
// are. What lies behind the marker in a slot is not part of the image: a
// converted volume has zeros there, and a fresh, zero trailer in every slot
// of this tool's files.
//
// Everything read from an image is outside data: lengths, offsets and counts
// are checked against the file and the slot before they are used, a track
// never decompresses to more than its slot, and a damaged image is refused
// with a message naming the file and the cause.
#ifndef CKDVOL_IMAGE_IMAGE_H_
#define CKDVOL_IMAGE_IMAGE_H_

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace ckdvol_image {

using Bytes = std::vector<unsigned char>;

enum class Format { kCkdvol, kCkd, kCckd, kCckd64 };
enum class Compression : uint8_t { kNone = 0, kZlib = 1, kBzip2 = 2 };

const char* formatName(Format format);          // "ckdvol", "ckd", "cckd", "cckd64"
const char* compressionName(Compression c);     // "none", "zlib", "bzip2"
bool parseFormat(const std::string& text, Format& format);
bool parseCompression(const std::string& text, Compression& c);

// The Hercules device code (low byte of its device type) of one of this
// tool's device types, 0 for D200 and unknown types; and back (0: none).
unsigned char herculesCode(uint32_t type);
uint32_t typeOfHerculesCode(unsigned char code);
// The Hercules device type of one of this tool's types (0x3390 for D600), 0 for none.
uint32_t herculesDeviceType(uint32_t type);

// True when the 8 bytes are the magic of a Hercules CKD image or shadow file.
bool isHerculesCkdMagic(const unsigned char* magic);

struct ImageInfo {
  Format format = Format::kCkdvol;
  uint32_t type = 0;        // this tool's device type (0xD600, ...)
  uint32_t cylinders = 0;
  uint32_t heads = 0;
  uint32_t trackSize = 0;   // the slot size; Hercules' track size is the same number
  Compression compression = Compression::kNone;  // what the compressed header names
  int nullFormat = -1;      // compressed images: the header's null-track format
  bool bigEndian = false;   // compressed images written on a big-endian host
  bool shadow = false;      // the file named is itself a shadow file
  std::vector<std::string> files;  // every file read: the base (or its split files), then the shadows
  uint64_t bytes = 0;              // their sizes added up
  uint64_t tracks() const { return static_cast<uint64_t>(cylinders) * heads; }
};

// The length of the track image at `image` up to and including its end
// marker, walking the records from record zero, or -1 when no marker begins
// at or before `markerLimit` (or within `size` bytes).
long trackImageLength(const unsigned char* image, size_t size, size_t markerLimit);

// The Hercules null track of format 0, 1 or 2 for (cyl, head).
Bytes nullTrack(int format, uint32_t cyl, uint32_t head);

// The headers of the image at `path` (and of the rest of a split plain
// image, found by their names): format, device, geometry, compression, the
// files. False and `error` when they are refused; no track is read.
bool readImageHeaders(const std::string& path, ImageInfo& info, std::string& error);

// Reads a volume track by track.
class TrackSource {
 public:
  virtual ~TrackSource() = default;
  const ImageInfo& info() const { return info_; }
  // Track `track` (cylinder x heads + head): its image through the end
  // marker in `image`. False with `error` naming the cylinder and head and
  // what is wrong.
  virtual bool read(uint64_t track, Bytes& image, std::string& error) = 0;

 protected:
  ImageInfo info_;
};

// Opens `path` as one of this tool's volumes or a Hercules image (split
// files found by their names), with `shadows` (in order, the last one on
// top) over it. Null and `error` when the files are refused: the cause,
// naming the file when it is not `path` (a split file, a shadow).
std::unique_ptr<TrackSource> openSource(const std::string& path, const std::vector<std::string>& shadows,
                                        std::string& error);

// The names of a split plain image's files: `path` with _1, _2, ... _9, _A,
// ... before the first dot of its file name (or at its end, or in place of
// an _N already there).
std::string splitFileName(const std::string& path, unsigned sequence);
// Cylinders per file of a split plain image as the Hercules tools make them
// (every file below 2 GiB).
uint32_t herculesCylindersPerFile(uint32_t heads, uint32_t trackSize);

struct WriteOptions {
  Format format = Format::kCckd;
  Compression compression = Compression::kZlib;
  uint32_t cylindersPerFile = 0;  // plain images: split into files of this many cylinders (0: one file)
  bool replace = false;           // an existing output file may be replaced
  // Called after each track; returning false stops the conversion (nothing is left behind).
  std::function<bool(uint64_t done, uint64_t total)> progress;
};
struct WriteResult {
  uint64_t tracks = 0;
  uint64_t nullTracks = 0;   // compressed images: tracks stored as null tracks
  uint64_t compressedTracks = 0;
  uint64_t bytesOut = 0;
  std::vector<std::string> files;
};

// Writes every track of `source` into a new image at `path` (for split
// plain images, the files splitFileName names). Each file is written under a
// temporary name beside it, forced to disk and renamed when all are
// complete, so a failure or an interruption leaves no partial output.
// A track that does not fit the target (a slot too small, a home address that
// disagrees with its place) is refused with its cylinder and head.
bool writeImage(TrackSource& source, const std::string& path, const WriteOptions& options, WriteResult& result,
                std::string& error);

}  // namespace ckdvol_image

#endif  // CKDVOL_IMAGE_IMAGE_H_
