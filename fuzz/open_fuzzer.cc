// Fuzz target: EmulatedCKDfile::open over arbitrary volume files, then a few
// track reads (each walked and verified), the version query and close.
//
// Input:
//   byte 0      control: bit 0 opens read-write first (else read-only first),
//               bit 1 sets verifyTracks after the open, bit 2 grows the file
//               sparsely as bytes 1-3 say
//   bytes 1-2   slot count N (big-endian) and
//   byte 3      a signed delta: with bit 2 the file is extended (never cut) to
//               512 + N x (the header's trackSize) + delta bytes, at most 64 MiB
//   bytes 4...  the file's bytes, at most 4 MiB
// Both opens (read-only and read-write) run on every input; the read-write
// one may rewrite the header, which the second open then sees.
#include <cstdint>
#include <cstring>

#include "ckdfile/emulated_ckd_file.h"
#include "ckdfile/volume_format.h"
#include "common/byte_order.h"
#include "fuzz_support.h"

namespace {

constexpr size_t kPrefix = 4;
constexpr size_t kMaxFileBytes = 4u << 20;
constexpr uint64_t kMaxSparseBytes = 64u << 20;
constexpr int kTracksFromStart = 3;  // tracks read in file order from 0/0
constexpr int kMaxWalk = 64;         // locateNext steps per track (multitrack included)

// Walks the current track record by record and checks every reference the
// walk hands out; then verifies the image.
void walkCurrentTrack(EmulatedCKDfile& f) {
  const unsigned char* begin = f.trackBuffer;
  const unsigned char* end = f.trackBuffer + f.trackSlotSize;
  const void* ref = f.locate(EmulatedCKDfile::ORIENT_HA, 0, 0, 0);
  FUZZ_CHECK(ref == begin);
  for (int i = 0; i < kMaxWalk && ref != nullptr; ++i) {
    ref = f.locateNext(ref, false);
    if (ref == nullptr) break;
    const unsigned char* p = static_cast<const unsigned char*>(ref);
    FUZZ_CHECK(p > begin && p < end);
    if (const unsigned char* key = f.getRefKey(ref)) ckdvol_fuzz::touch(key, f.getRefKL(ref));
    if (const unsigned char* data = f.getRefData(ref)) ckdvol_fuzz::touch(data, f.getRefDL(ref));
  }
  const bool ok = f.verifyTrack(false);
  FUZZ_CHECK(ok == (f.verifyCode == 0));
}

void exerciseOpen(const char* path, bool readOnly, bool verify) {
  EmulatedCKDfile f;
  const int rc = f.open(path, readOnly);
  FUZZ_CHECK(rc >= EmulatedCKDfile::kOpenHeaderWrite && rc <= EmulatedCKDfile::kOpenReadOnlyPending);
  FUZZ_CHECK(std::memchr(f.errorText, 0, sizeof f.errorText) != nullptr);
  if (rc < 0) {
    // Every failure leaves the object idle.
    FUZZ_CHECK(f.fileDescriptor < 0);
    FUZZ_CHECK(f.deviceType == 0);
    return;
  }
  FUZZ_CHECK(f.fileDescriptor >= 0 && f.trackBuffer != nullptr && f.trackSlotSize > 0);
  FUZZ_CHECK(rc == 0 || readOnly);
  f.verifyTracks = verify;

  // The first tracks in file order, each walked and verified; then a walk
  // across tracks from the home address of 0/0.
  unsigned short cell = 0;
  unsigned int cyl = 0;
  unsigned short head = 0;
  for (int t = 0; t < kTracksFromStart; ++t) {
    const int r = f.readTrack(cyl, head, cell);
    FUZZ_CHECK(r <= 0 && r >= EmulatedCKDfile::kTrackRange);
    if (r == 0 || r == EmulatedCKDfile::kTrackVerify) walkCurrentTrack(f);
    if (f.increment(cell, cyl, head)) break;
  }
  if (f.readTrack(0, 0, 0) == 0) {
    const void* ref = f.locate(EmulatedCKDfile::ORIENT_HA, 0, 0, 0);
    for (int i = 0; i < kMaxWalk && ref != nullptr; ++i) {
      ref = f.locateNext(ref, true);
      if (ref != nullptr) {
        const unsigned char* p = static_cast<const unsigned char*>(ref);
        FUZZ_CHECK(p > f.trackBuffer && p < f.trackBuffer + f.trackSlotSize);
      }
    }
  }

  if (f.deviceType != EmulatedCKDfile::D200 && f.cylinders > 0) {
    // The last track, and the first address past the volume.
    const int r = f.readTrack(f.cylinders - 1, static_cast<unsigned short>(f.tracksPerCylinder - 1), 0);
    if (r == 0) walkCurrentTrack(f);
    FUZZ_CHECK(f.readTrack(f.cylinders, 0, 0) == EmulatedCKDfile::kTrackRange);
  }

  int version = 0, copies = 0;
  f.queryVersion(version, copies);
  if (!readOnly) f.verifyVersion(f.activeVersion);

  // Nothing was changed, so nothing is written back.
  FUZZ_CHECK(f.close() == 0);
  FUZZ_CHECK(f.fileDescriptor < 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < kPrefix || size - kPrefix > kMaxFileBytes) return 0;
  static ckdvol_fuzz::MemFile* file = new ckdvol_fuzz::MemFile();

  const uint8_t control = data[0];
  const size_t fileBytes = size - kPrefix;
  file->assign(data + kPrefix, fileBytes);
  if ((control & 4) != 0 && fileBytes >= ckdvol::kHeaderSize) {
    const uint64_t slot = ckdvol::loadLe32(data + kPrefix + ckdvol::kHdrTrackSize);
    const uint64_t slots = ckdvol::loadBe16(data + 1);
    const int64_t delta = static_cast<int8_t>(data[3]);
    const int64_t want = static_cast<int64_t>(ckdvol::kHeaderSize + slots * slot) + delta;
    if (slot <= kMaxSparseBytes && want > static_cast<int64_t>(fileBytes) &&
        want <= static_cast<int64_t>(kMaxSparseBytes)) {
      file->resize(static_cast<uint64_t>(want));
    }
  }

  const bool readWriteFirst = (control & 1) != 0;
  const bool verify = (control & 2) != 0;
  exerciseOpen(file->path(), !readWriteFirst, verify);
  exerciseOpen(file->path(), readWriteFirst, verify);
  return 0;
}
