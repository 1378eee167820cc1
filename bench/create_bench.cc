// Volume creation against plain I/O: create() + initialize() of a D600 volume
// (1113 cylinders, about 948 MB, full format) against a plain writer that
// writes the same number of bytes, one cylinder per write() with the same
// cylinder image, syncing every 5 MiB and at the end, then rewrites the
// header. Both run in every iteration, in alternating order, each after a
// sync() so that neither inherits the other's writeback. The counters give
// each side's mean time, the ratio of the totals (library / plain) and the
// median of the per-pair ratios, which is steadier on a shared machine.
// Files are deleted after each run.
//
// CKDVOL_BENCH_CYLINDERS overrides the cylinder count; CKDVOL_BENCH_DIR the
// directory (default: TMPDIR or /tmp); CKDVOL_BENCH_VERBOSE prints each pair.
#include <fcntl.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "ckdfile/emulated_ckd_file.h"
#include "support/temp_dir.h"

namespace {

using F = EmulatedCKDfile;

constexpr unsigned long long kSyncBytes = 5242880;

double now() {
  timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) / 1e9;
}

unsigned cylindersToUse() {
  const char* s = std::getenv("CKDVOL_BENCH_CYLINDERS");
  return s != nullptr && std::atoi(s) > 0 ? static_cast<unsigned>(std::atoi(s)) : 1113;
}

// The library: create, initialise with full format, close. Returns seconds.
// Afterwards `cylinderImage` holds the file's cylinder 1, for the plain writer.
double libraryRun(const std::string& path, unsigned cylinders, std::vector<unsigned char>* cylinderImage) {
  ::sync();  // start from a quiet disk: no writeback of an earlier run
  const double t0 = now();
  F f;
  if (f.create(path.c_str(), F::D600, static_cast<int>(cylinders)) != 0) throw std::runtime_error("create");
  if (f.initialize(nullptr, nullptr, true) != 0) throw std::runtime_error("initialize");
  f.close();
  const double t = now() - t0;
  if (cylinderImage != nullptr && cylinderImage->empty()) {
    const size_t n = static_cast<size_t>(F::findDevice(F::D600)->heads) * F::findDevice(F::D600)->slotUnits * 512;
    cylinderImage->resize(n);
    const int fd = ::open(path.c_str(), O_RDONLY);
    const off_t at = static_cast<off_t>(512 + (cylinders > 1 ? n : 0));
    if (fd < 0 || ::pread(fd, cylinderImage->data(), n, at) != static_cast<ssize_t>(n)) {
      throw std::runtime_error("read back");
    }
    ::close(fd);
  }
  ::unlink(path.c_str());
  return t;
}

// The plain writer: the same bytes with the same write and sync pattern.
double plainRun(const std::string& path, unsigned cylinders, const std::vector<unsigned char>& cylinder) {
  ::sync();
  const double t0 = now();
  const int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL, 0660);
  if (fd < 0) throw std::runtime_error("open");
  unsigned char header[512] = {'C', 'K', 'D', '_', 'I', 'N', 'I', 'T'};
  if (::write(fd, header, sizeof header) != static_cast<ssize_t>(sizeof header)) throw std::runtime_error("write");
  unsigned long long written = 0, mark = kSyncBytes;
  for (unsigned c = 0; c < cylinders; ++c) {
    if (::write(fd, cylinder.data(), cylinder.size()) != static_cast<ssize_t>(cylinder.size())) {
      throw std::runtime_error("write");
    }
    written += cylinder.size();
    if (written > mark) {
      mark += kSyncBytes;
      ::fdatasync(fd);
    }
  }
  std::memcpy(header, "CKD_XVOL", 8);
  if (::pwrite(fd, header, sizeof header, 0) != static_cast<ssize_t>(sizeof header)) throw std::runtime_error("write");
  ::fdatasync(fd);
  ::close(fd);
  const double t = now() - t0;
  ::unlink(path.c_str());
  return t;
}

void BM_CreateVolumeVsPlainWriter(benchmark::State& state) {
  if (const char* dir = std::getenv("CKDVOL_BENCH_DIR")) setenv("CKDVOL_TEST_TMP", dir, 1);
  ckdvol_test::ScopedTempDir dir;
  const std::string libPath = dir.file("library.ckd");
  const std::string plainPath = dir.file("plain.ckd");
  const unsigned cylinders = cylindersToUse();
  std::vector<unsigned char> cylinder;
  libraryRun(libPath, cylinders, &cylinder);  // warm-up, and the cylinder image
  plainRun(plainPath, cylinders, cylinder);    // warm-up

  const bool verbose = std::getenv("CKDVOL_BENCH_VERBOSE") != nullptr;
  double lib = 0, plain = 0;
  std::vector<double> pairRatios;  // library / plain of each back-to-back pair
  int runs = 0;
  for (auto _ : state) {
    double l, p;
    // Warm-up L P, then P L, L P, ...: each side runs first equally often
    // and right after itself equally often (ABBA order).
    if (runs % 2 == 1) {
      l = libraryRun(libPath, cylinders, nullptr);
      p = plainRun(plainPath, cylinders, cylinder);
    } else {
      p = plainRun(plainPath, cylinders, cylinder);
      l = libraryRun(libPath, cylinders, nullptr);
    }
    if (verbose) std::fprintf(stderr, "run %d: library %.3f s, plain %.3f s\n", runs, l, p);
    lib += l;
    plain += p;
    pairRatios.push_back(l / p);
    ++runs;
  }
  std::sort(pairRatios.begin(), pairRatios.end());
  const size_t mid = pairRatios.size() / 2;
  const double median =
      pairRatios.size() % 2 ? pairRatios[mid] : (pairRatios[mid - 1] + pairRatios[mid]) / 2;
  const double bytes = 512.0 + static_cast<double>(cylinders) * static_cast<double>(cylinder.size());
  state.counters["library_s"] = lib / runs;
  state.counters["plain_s"] = plain / runs;
  state.counters["ratio"] = lib / plain;
  state.counters["median_pair_ratio"] = median;
  state.counters["library_MB/s"] = bytes * runs / lib / 1e6;
  state.counters["plain_MB/s"] = bytes * runs / plain / 1e6;
}
BENCHMARK(BM_CreateVolumeVsPlainWriter)->Iterations(8)->Unit(benchmark::kSecond);

}  // namespace

BENCHMARK_MAIN();
