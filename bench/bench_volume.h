// What the editing benchmarks share: a sparse initialised D600 volume set
// up as 'ckdvol create --sparse' makes it, and a count of the sync calls a
// side makes (this file's fdatasync and fsync count each call, then make
// it), so the plain side can be given as many; and that plain side.
#ifndef CKDVOL_BENCH_BENCH_VOLUME_H_
#define CKDVOL_BENCH_BENCH_VOLUME_H_

#include <chrono>
#include <string>

#include "edit/staged_tracks.h"

namespace ckdvol_bench {

using Clock = std::chrono::steady_clock;

// fdatasync and fsync calls made by this process so far.
unsigned long long syncCalls();

inline double seconds(Clock::time_point a, Clock::time_point b) {
  return std::chrono::duration<double>(b - a).count();
}

// A sparse D600 volume of `cylinders` at `path`: home address, record zero
// and end marker written on every track (the label and VTOC on their
// tracks), the rest holes; header ready; forced to disk and closed. Empty,
// or what failed.
std::string makeSparseVolume(const std::string& path, int cylinders);

// The plain side of a change: the images of `staged` (computed beforehand,
// untimed) pwritten over their slots of `fd`, then `syncs` fdatasync calls;
// its seconds added to `plainS`. Empty, or what failed.
std::string plainWrite(int fd, ckdvol::StagedTracks& staged, unsigned long long syncs, double& plainS);

}  // namespace ckdvol_bench

#endif  // CKDVOL_BENCH_BENCH_VOLUME_H_
