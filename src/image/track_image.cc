// Track images shared by both formats: the walk to the end marker, the
// Hercules null tracks, compression of a stored image, names and codes.
#include <bzlib.h>
#include <zlib.h>

#include <cstring>

#include "common/byte_order.h"
#include "image/hercules_format.h"
#include "image/image.h"
#include "image/track_codec.h"

namespace ckdvol_image {

namespace {
struct DeviceCode {
  uint32_t type;
  unsigned char code;
  uint32_t herculesType;
};
const DeviceCode kDeviceCodes[] = {
    {0xD100, 0x05, 0x2305}, {0xD130, 0x11, 0x2311}, {0xD160, 0x14, 0x2314}, {0xD300, 0x30, 0x3330},
    {0xD400, 0x40, 0x3340}, {0xD430, 0x50, 0x3350}, {0xD460, 0x75, 0x3375}, {0xD500, 0x80, 0x3380},
    {0xD600, 0x90, 0x3390}, {0xD700, 0x45, 0x9345},
};
const char* const kFormatNames[] = {"ckdvol", "ckd", "cckd", "cckd64"};
const char* const kCompressionNames[] = {"none", "zlib", "bzip2"};
const char* const kCkdMagics[] = {"CKD_P370", "CKD_C370", "CKD_S370", "CKD_P064", "CKD_C064", "CKD_S064"};
}  // namespace

const char* formatName(Format format) { return kFormatNames[static_cast<int>(format)]; }
const char* compressionName(Compression c) { return kCompressionNames[static_cast<int>(c)]; }

bool parseFormat(const std::string& text, Format& format) {
  for (int i = 0; i < 4; ++i) {
    if (text == kFormatNames[i]) {
      format = static_cast<Format>(i);
      return true;
    }
  }
  return false;
}

bool parseCompression(const std::string& text, Compression& c) {
  for (int i = 0; i < 3; ++i) {
    if (text == kCompressionNames[i]) {
      c = static_cast<Compression>(i);
      return true;
    }
  }
  return false;
}

unsigned char herculesCode(uint32_t type) {
  for (const DeviceCode& d : kDeviceCodes) {
    if (d.type == type) return d.code;
  }
  return 0;
}

uint32_t herculesDeviceType(uint32_t type) {
  for (const DeviceCode& d : kDeviceCodes) {
    if (d.type == type) return d.herculesType;
  }
  return 0;
}

uint32_t typeOfHerculesCode(unsigned char code) {
  for (const DeviceCode& d : kDeviceCodes) {
    if (d.code == code) return d.type;
  }
  return 0;
}

bool isHerculesCkdMagic(const unsigned char* magic) {
  for (const char* m : kCkdMagics) {
    if (std::memcmp(magic, m, herc::kMagicLength) == 0) return true;
  }
  return false;
}

long trackImageLength(const unsigned char* image, size_t size, size_t markerLimit) {
  size_t pos = 5;  // record zero follows the home address
  while (pos <= markerLimit && pos + 8 <= size) {
    const unsigned char* c = image + pos;
    static const unsigned char kMarker[8] = {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
    if (std::memcmp(c, kMarker, 8) == 0) return static_cast<long>(pos + 8);
    pos += 8 + c[5] + ckdvol::loadBe16(c + 6);
  }
  return -1;
}

Bytes nullTrack(int format, uint32_t cyl, uint32_t head) {
  Bytes t;
  const auto count = [&](unsigned char r, unsigned short dl) {
    const unsigned char c[8] = {static_cast<unsigned char>(cyl >> 8), static_cast<unsigned char>(cyl),
                                static_cast<unsigned char>(head >> 8), static_cast<unsigned char>(head),
                                r, 0, static_cast<unsigned char>(dl >> 8), static_cast<unsigned char>(dl)};
    t.insert(t.end(), c, c + 8);
    t.resize(t.size() + dl, 0);
  };
  t.push_back(0);
  t.push_back(static_cast<unsigned char>(cyl >> 8));
  t.push_back(static_cast<unsigned char>(cyl));
  t.push_back(static_cast<unsigned char>(head >> 8));
  t.push_back(static_cast<unsigned char>(head));
  count(0, 8);
  if (format == herc::kNullFmt0) count(1, 0);
  if (format == herc::kNullFmt2) {
    for (unsigned char r = 1; r <= 12; ++r) count(r, 4096);
  }
  t.resize(t.size() + 8, 0xFF);
  return t;
}

// ---- compression of a stored image's bytes after its first five ----

bool compressBody(Compression c, const unsigned char* in, size_t length, Bytes& out) {
  if (c == Compression::kZlib) {
    uLongf n = compressBound(static_cast<uLong>(length));
    out.resize(n);
    if (compress2(out.data(), &n, in, static_cast<uLong>(length), Z_DEFAULT_COMPRESSION) != Z_OK) return false;
    out.resize(n);
    return true;
  }
  if (c == Compression::kBzip2) {
    unsigned int n = static_cast<unsigned int>(length + length / 100 + 600);
    out.resize(n);
    if (BZ2_bzBuffToBuffCompress(reinterpret_cast<char*>(out.data()), &n,
                                 const_cast<char*>(reinterpret_cast<const char*>(in)),
                                 static_cast<unsigned int>(length), 5, 0, 0) != BZ_OK) {
      return false;
    }
    out.resize(n);
    return true;
  }
  out.assign(in, in + length);
  return true;
}

long expandBody(Compression c, const unsigned char* in, size_t length, unsigned char* out, size_t room) {
  if (c == Compression::kZlib) {
    uLongf n = static_cast<uLongf>(room);
    const int rc = uncompress(out, &n, in, static_cast<uLong>(length));
    return rc == Z_OK ? static_cast<long>(n) : (rc == Z_BUF_ERROR && n == room ? -2 : -1);
  }
  if (c == Compression::kBzip2) {
    unsigned int n = static_cast<unsigned int>(room);
    const int rc = BZ2_bzBuffToBuffDecompress(reinterpret_cast<char*>(out), &n,
                                              const_cast<char*>(reinterpret_cast<const char*>(in)),
                                              static_cast<unsigned int>(length), 0, 0);
    return rc == BZ_OK ? static_cast<long>(n) : (rc == BZ_OUTBUFF_FULL ? -2 : -1);
  }
  if (length > room) return -2;
  std::memcpy(out, in, length);
  return static_cast<long>(length);
}

std::string splitFileName(const std::string& path, unsigned sequence) {
  const size_t slash = path.rfind('/');
  const size_t base = slash == std::string::npos ? 0 : slash + 1;
  size_t dot = path.find('.', base);
  if (dot == std::string::npos) dot = path.size();
  const char c = static_cast<char>(sequence <= 9 ? '0' + sequence : 'A' + (sequence - 10));
  std::string name = path;
  if (dot >= base + 2 && name[dot - 2] == '_') {
    name[dot - 1] = c;
  } else {
    name.insert(dot, std::string("_") + c);
  }
  return name;
}

uint32_t herculesCylindersPerFile(uint32_t heads, uint32_t trackSize) {
  const uint64_t cylinder = static_cast<uint64_t>(heads) * trackSize;
  return cylinder == 0 ? 0 : static_cast<uint32_t>((0x7fffffffULL - herc::kDevHeaderSize + 1) / cylinder);
}

}  // namespace ckdvol_image
