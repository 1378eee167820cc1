// Dumping Format-1 DSCBs into one RexxString: 2,000 and then 20,000 of them,
// each appended piece by piece through `out.copy((out + piece).text(), -1)`.
//
// Each iteration builds both dumps, and beside them a plain writer that
// appends the same bytes (one pre-rendered dump per DSCB) to a std::string,
// all timed separately in the same run (CPU time of the benchmark thread).
// Counters (milliseconds per dump):
//   dump2k_ms, dump20k_ms   the library's dumps
//   plain2k_ms, plain20k_ms the plain writer
//   scaling = dump20k / dump2k   (linear growth gives about 10; target at most 12)
//   ratio20k = dump20k / plain20k
#include <time.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "common/rexx_string.h"
#include "dscb/generic_dscb.h"

namespace {

constexpr int kSmall = 2000;
constexpr int kLarge = 20000;

// A Format-1 record named "BENCH.DS<i>" (EBCDIC, blank-padded) with three
// extents and dates, so every field type of the table is rendered.
void makeRecord(int i, unsigned char* r) {
  static const unsigned char kDigits[] = {0xF0, 0xF1, 0xF2, 0xF3, 0xF4,
                                          0xF5, 0xF6, 0xF7, 0xF8, 0xF9};
  const unsigned char prefix[8] = {0xC2, 0xC5, 0xD5, 0xC3, 0xC8, 0x4B, 0xC4, 0xE2};  // BENCH.DS
  std::memset(r, 0, GenericDSCB::kLength);
  std::memset(r, 0x40, GenericDSCB::kKeyLength);
  std::memcpy(r, prefix, sizeof prefix);
  for (int k = 0, v = i; k < 5; ++k, v /= 10) r[12 - k] = kDigits[v % 10];
  r[44] = 0xF1;  // format identifier
  r[53] = 0x7A;  // created
  r[55] = 0x1F;
  r[59] = 3;     // extents
  r[82] = 0x02;  // DSORG
  r[84] = 0x90;  // RECFM
  r[86] = 0x19;  // BLKSIZE
  r[89] = 0x50;  // LRECL
  for (int e = 0; e < 3; ++e) {
    unsigned char* x = r + 105 + 10 * e;
    x[0] = 0x81;
    x[1] = static_cast<unsigned char>(e);
    x[3] = static_cast<unsigned char>(e + 1);
    x[7] = static_cast<unsigned char>(e + 1);
    x[9] = 14;
  }
}

struct Dscbs {
  std::vector<std::unique_ptr<GenericDSCB>> objects;
  std::vector<std::string> texts;  // each DSCB's dump, for the plain writer
  Dscbs() {
    unsigned char r[GenericDSCB::kLength];
    for (int i = 0; i < kLarge; ++i) {
      makeRecord(i, r);
      objects.emplace_back(GenericDSCB::create(r, i / 15, i % 15, 1 + i % 12));
      RexxString one;
      objects.back()->print(one, 0);
      texts.emplace_back(one.text());
    }
  }
};

const Dscbs& dscbs() {
  static Dscbs d;
  return d;
}

// The calling thread's CPU time in milliseconds: the dumps are CPU-bound,
// and other processes on the machine then do not count.
double cpuMillis() {
  timespec ts;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
  return static_cast<double>(ts.tv_sec) * 1e3 + static_cast<double>(ts.tv_nsec) / 1e6;
}

// The library's dump of the first n DSCBs; its length.
int dump(int n, double& ms) {
  const Dscbs& d = dscbs();
  double t0 = cpuMillis();
  RexxString out;
  for (int i = 0; i < n; ++i) d.objects[i]->print(out, 0);
  ms += cpuMillis() - t0;
  benchmark::DoNotOptimize(out.text());
  return out.length();
}

// The same bytes appended to a std::string; its length.
size_t plain(int n, double& ms) {
  const Dscbs& d = dscbs();
  double t0 = cpuMillis();
  std::string out;
  for (int i = 0; i < n; ++i) out += d.texts[i];
  ms += cpuMillis() - t0;
  benchmark::DoNotOptimize(out.data());
  return out.size();
}

void BM_DscbDump(benchmark::State& state) {
  dscbs();  // build the objects outside the timing
  double small = 0, large = 0, plainSmall = 0, plainLarge = 0;
  bool same = true;
  for (auto _ : state) {
    int a = dump(kSmall, small);
    size_t pa = plain(kSmall, plainSmall);
    int b = dump(kLarge, large);
    size_t pb = plain(kLarge, plainLarge);
    same = same && static_cast<size_t>(a) == pa && static_cast<size_t>(b) == pb;
  }
  if (!same) {
    state.SkipWithError("the dump lengths do not match the plain writer's");
    return;
  }
  const double n = static_cast<double>(state.iterations());
  state.counters["dump2k_ms"] = small / n;
  state.counters["dump20k_ms"] = large / n;
  state.counters["plain2k_ms"] = plainSmall / n;
  state.counters["plain20k_ms"] = plainLarge / n;
  state.counters["scaling"] = small > 0 ? large / small : 0;
  state.counters["ratio20k"] = plainLarge > 0 ? large / plainLarge : 0;
}

BENCHMARK(BM_DscbDump)->Unit(benchmark::kMillisecond)->MinTime(2.0);

}  // namespace

BENCHMARK_MAIN();
