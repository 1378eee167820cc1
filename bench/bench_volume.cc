#include "bench_volume.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <cstring>
#include <vector>

#include "ckdfile/emulated_ckd_file.h"
#include "ckdfile/volume_format.h"

namespace {
unsigned long long calls = 0;
}

// The journal's syncs, counted; the plain sides call these too.
extern "C" int fdatasync(int fd) {
  ++calls;
  return static_cast<int>(::syscall(SYS_fdatasync, fd));
}
extern "C" int fsync(int fd) {
  ++calls;
  return static_cast<int>(::syscall(SYS_fsync, fd));
}

namespace ckdvol_bench {

using namespace ckdvol;
using F = EmulatedCKDfile;

unsigned long long syncCalls() { return calls; }

std::string makeSparseVolume(const std::string& path, int cylinders) {
  F f;
  if (f.create(path.c_str(), F::D600, cylinders) != 0) return "create " + path;
  const long long end = f.getMaxOffset();
  if (end < 0 || ::ftruncate(f.fileDescriptor, end) != 0) return "size " + path;
  std::vector<unsigned char> image(f.trackSlotSize, 0);
  unsigned short cell = 0, head = 0;
  unsigned int cyl = 0;
  for (bool done = false; !done; done = f.increment(cell, cyl, head)) {
    std::memset(image.data(), 0, image.size());
    unsigned char* p = image.data();
    f.putHA(p, 0, cyl, head);
    f.putCount(p, static_cast<int>(cyl), head, 0, 0, kRecordZeroDataLength);
    p += kRecordZeroDataLength;
    if (cyl == 0 && head == 0) f.format_labels(p);
    if (cyl == 0 && head == 1) f.format_vtoc(p);
    std::memset(p, kEndMarkerByte, kEndMarkerSize);
    p += kEndMarkerSize;
    const size_t used = static_cast<size_t>(p - image.data());
    if (::pwrite(f.fileDescriptor, image.data(), used, f.getOffset(cyl, head, cell, false)) != static_cast<ssize_t>(used)) {
      return "write " + path;
    }
  }
  unsigned char header[kHeaderSize];
  if (f.readHeader(header, false) != F::kHeaderOk) return "header " + path;
  std::memcpy(header + kHdrMagic, kMagicReady, kMagicLength);
  if (f.writeHeader(header, true) != F::kHeaderOk) return "header " + path;
  // The setup reaches the disk before anything is timed: otherwise the
  // first sync of whichever side runs first pays for it.
  if (::fsync(f.fileDescriptor) != 0) return "fsync " + path;
  f.close();
  return "";
}

std::string plainWrite(int fd, StagedTracks& staged, unsigned long long syncs, double& plainS) {
  const std::vector<uint64_t> slots = staged.slots();
  const uint32_t slot = staged.slotSize();
  std::string error;
  const Clock::time_point t0 = Clock::now();
  for (uint64_t off : slots) {
    const uint32_t track = static_cast<uint32_t>((off - kHeaderSize) / slot);
    const unsigned char* image = staged.image(track, error);
    if (image == nullptr) return error;
    if (::pwrite(fd, image, slot, static_cast<off_t>(off)) != static_cast<ssize_t>(slot)) return "pwrite";
  }
  for (unsigned long long i = 0; i < syncs; ++i) {
    if (::fdatasync(fd) != 0) return "fdatasync";
  }
  plainS += seconds(t0, Clock::now());
  return "";
}

}  // namespace ckdvol_bench
