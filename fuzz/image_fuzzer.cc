// Fuzz target: Hercules images (plain, compressed, 64-bit compressed) read
// track by track, as 'ckdvol convert' reads them.
//
// Input:
//   byte 0      the image's kind: 0 plain, 1 cckd, 2 cckd64 (each behind a
//               device header for a 2311 that this target writes, and for the
//               compressed kinds a compressed header with bytes 1-3's values),
//               3 the bytes alone as the whole file
//   byte 1      cylinders (compressed kinds)
//   byte 2      null track format, byte 3 compression (compressed kinds)
//   bytes 4...  the rest of the file (for the compressed kinds: from the L1
//               table at 1024 on), at most 1 MiB
// Every track is read (at most kMaxTracks); reading must never crash, read
// outside its buffers or loop, and every image handed out must end with its
// end-of-track marker inside a track slot.
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "fuzz_support.h"
#include "image/image.h"

namespace {

constexpr size_t kMaxBytes = 1u << 20;
constexpr uint64_t kMaxTracks = 2000;

void le32(std::vector<unsigned char>& b, size_t at, uint32_t v) {
  for (int i = 0; i < 4; ++i) b[at + i] = static_cast<unsigned char>(v >> (8 * i));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static ckdvol_fuzz::MemFile file;
  ckdvol_fuzz::Input in(data, size);
  const unsigned kind = in.u8() & 3;
  const unsigned cylinders = in.u8(), nullFormat = in.u8(), compression = in.u8();
  size_t got = 0;
  const uint8_t* rest = in.take(kMaxBytes, got);
  std::vector<unsigned char> bytes;
  if (kind != 3) {
    bytes.assign(kind == 0 ? 512 : 1024, 0);
    std::memcpy(bytes.data(), kind == 0 ? "CKD_P370" : kind == 1 ? "CKD_C370" : "CKD_C064", 8);
    le32(bytes, 8, 10);    // heads
    le32(bytes, 12, 4096); // track size
    bytes[16] = 0x11;      // 2311
    if (kind != 0) {
      bytes[512 + 1] = 3;
      bytes[512 + 2] = 1;
      le32(bytes, 512 + 4, (cylinders * 10 + 255) / 256);
      le32(bytes, 512 + 8, 256);
      le32(bytes, 512 + (kind == 1 ? 40 : 12), cylinders);
      bytes[512 + (kind == 1 ? 44 : 72)] = static_cast<unsigned char>(nullFormat);
      bytes[512 + (kind == 1 ? 45 : 73)] = static_cast<unsigned char>(compression);
    }
  }
  bytes.insert(bytes.end(), rest, rest + got);
  file.assign(bytes);

  ckdvol_image::ImageInfo info;
  std::string error;
  (void)ckdvol_image::readImageHeaders(file.path(), info, error);
  auto source = ckdvol_image::openSource(file.path(), {}, error);
  if (!source) {
    FUZZ_CHECK(!error.empty());
    return 0;
  }
  const uint32_t slot = source->info().trackSize;
  ckdvol_image::Bytes image;
  for (uint64_t t = 0; t < source->info().tracks() && t < kMaxTracks; ++t) {
    if (!source->read(t, image, error)) {
      FUZZ_CHECK(!error.empty());
      continue;
    }
    FUZZ_CHECK(image.size() >= 13 && image.size() <= slot - 16);
    FUZZ_CHECK(ckdvol_image::trackImageLength(image.data(), image.size(), slot - 24) ==
               static_cast<long>(image.size()));
    ckdvol_fuzz::touch(image.data(), image.size());
  }
  return 0;
}
