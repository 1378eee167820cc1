// Listing a VTOC of 500 and of 5000 Format-1 DSCBs: reading it (DskVolume
// open by path: label, Format-4 DSCB, the walk over 2 and 20 VTOC tracks),
// listing it into a RexxString and listing it onto a stream (/dev/null).
//
// Beside them, in the same run, a plain reader and writer doing the same
// I/O: open the file, pread the same VTOC tracks, close; fwrite the listing's
// bytes to /dev/null. All times are CPU time of the benchmark thread (page-
// cache reads count as system time), milliseconds per listing:
//   read500_ms, read5000_ms       DskVolume::open (by path) + close
//   string500_ms, string5000_ms   printVTOC(RexxString&)
//   stream500_ms, stream5000_ms   printVTOC(FILE*) to /dev/null
//   plainRead*_ms, plainWrite*_ms the plain reader and writer
//   listing500_kB, listing5000_kB the listings' sizes
//   scaling_* = 5000 / 500        (linear growth gives at most 10; target at most 12)
//   ratioRead5000 = read5000 / plainRead5000
//   ratioStream5000 = stream5000 / plainWrite5000 (formatting vs copying the bytes)
#include <fcntl.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "volume/dsk_volume.h"
// The test-side volume builder, compiled into this benchmark.
#include "support/volume_builder.cc"

namespace {

using namespace ckdvol_test;

constexpr int kSmall = 500;
constexpr int kLarge = 5000;

// A volume whose VTOC holds the Format-4 DSCB and `n` Format-1 DSCBs
// (255 per track: record numbers are one byte).
struct BenchVolume {
  TestVolume vol;
  int vtocTracks = 0;
  explicit BenchVolume(int n) : vol(EmulatedCKDfile::D600, 3) {
    std::vector<Dscb> dscbs;
    dscbs.reserve(n);
    for (int i = 0; i < n; ++i) {
      DataSetLayout ds;
      ds.name = "BENCH.DATA.SET" + std::to_string(i);
      ds.extents = {ExtentSpec{2, 0, 2, 14}};
      dscbs.push_back(format1Dscb(ds));
    }
    std::vector<Cchhr> at = vol.writeVtoc(dscbs);
    vtocTracks = static_cast<int>(at.back().cyl * 15 + at.back().head);  // tracks 0/1 .. last
    vol.close();
  }
};

BenchVolume& volume(int n) {
  static BenchVolume small(kSmall);
  static BenchVolume large(kLarge);
  return n == kSmall ? small : large;
}

double cpuMillis() {
  timespec ts;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
  return static_cast<double>(ts.tv_sec) * 1e3 + static_cast<double>(ts.tv_nsec) / 1e6;
}

struct Times {
  double read = 0, string = 0, stream = 0, plainRead = 0, plainWrite = 0;
  int length = 0;  // characters of the last listing
};

// One listing of the volume with `n` DSCBs; false when something failed.
bool listOnce(int n, FILE* devNull, Times& t) {
  BenchVolume& b = volume(n);
  double t0 = cpuMillis();
  DskVolume v;
  if (v.open(b.vol.path().c_str(), true) != 0 || v.vtoc.f1List.count != n) return false;
  double t1 = cpuMillis();
  RexxString out;
  v.printVTOC(out);
  double t2 = cpuMillis();
  int written = v.printVTOC(devNull);
  double t3 = cpuMillis();
  v.close();
  double t4 = cpuMillis();
  t.read += (t1 - t0) + (t4 - t3);
  t.string += t2 - t1;
  t.stream += t3 - t2;
  if (written != out.length()) return false;
  t.length = written;

  // The plain reader: the same file, the label track, the VTOC tracks and the
  // track after them (where the walk finds a record beyond its limit).
  const unsigned slot = 56832;
  std::vector<unsigned char> track(slot);
  double p0 = cpuMillis();
  int fd = ::open(b.vol.path().c_str(), O_RDONLY);
  if (fd < 0) return false;
  bool ok = ::pread(fd, track.data(), 512, 0) == 512;
  for (int i = 0; i <= b.vtocTracks + 1 && ok; ++i) {  // as the walk: one track past the last
    ok = ::pread(fd, track.data(), slot, 512 + static_cast<off_t>(i) * slot) == static_cast<ssize_t>(slot);
  }
  ::close(fd);
  double p1 = cpuMillis();
  ok = ok && std::fwrite(out.text(), 1, out.length(), devNull) == static_cast<size_t>(out.length());
  std::fflush(devNull);
  double p2 = cpuMillis();
  t.plainRead += p1 - p0;
  t.plainWrite += p2 - p1;
  benchmark::DoNotOptimize(track.data());
  return ok;
}

void BM_VtocList(benchmark::State& state) {
  volume(kSmall);  // build both volumes outside the timing
  volume(kLarge);
  FILE* devNull = std::fopen("/dev/null", "w");
  if (devNull == nullptr) {
    state.SkipWithError("cannot open /dev/null");
    return;
  }
  Times small, large;
  bool ok = true;
  for (auto _ : state) {
    ok = ok && listOnce(kSmall, devNull, small);
    ok = ok && listOnce(kLarge, devNull, large);
  }
  std::fclose(devNull);
  if (!ok) {
    state.SkipWithError("a listing failed or its lengths disagree");
    return;
  }
  const double n = static_cast<double>(state.iterations());
  state.counters["read500_ms"] = small.read / n;
  state.counters["read5000_ms"] = large.read / n;
  state.counters["string500_ms"] = small.string / n;
  state.counters["string5000_ms"] = large.string / n;
  state.counters["stream500_ms"] = small.stream / n;
  state.counters["stream5000_ms"] = large.stream / n;
  state.counters["plainRead5000_ms"] = large.plainRead / n;
  state.counters["plainWrite5000_ms"] = large.plainWrite / n;
  state.counters["listing500_kB"] = small.length / 1024.0;
  state.counters["listing5000_kB"] = large.length / 1024.0;
  state.counters["scaling_read"] = small.read > 0 ? large.read / small.read : 0;
  state.counters["scaling_string"] = small.string > 0 ? large.string / small.string : 0;
  state.counters["scaling_stream"] = small.stream > 0 ? large.stream / small.stream : 0;
  state.counters["ratioRead5000"] = large.plainRead > 0 ? large.read / large.plainRead : 0;
  state.counters["ratioStream5000"] = large.plainWrite > 0 ? large.stream / large.plainWrite : 0;
}

BENCHMARK(BM_VtocList)->Unit(benchmark::kMillisecond)->MinTime(2.0);

}  // namespace

BENCHMARK_MAIN();
