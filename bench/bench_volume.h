// What the editing benchmarks share: a sparse initialised D600 volume set
// up as 'ckdvol create --sparse' makes it, and a count of the sync calls a
// side makes (this file's fdatasync and fsync count each call, then make
// it), so the plain side can be given as many.
#ifndef CKDVOL_BENCH_BENCH_VOLUME_H_
#define CKDVOL_BENCH_BENCH_VOLUME_H_

#include <chrono>
#include <string>

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

}  // namespace ckdvol_bench

#endif  // CKDVOL_BENCH_BENCH_VOLUME_H_
