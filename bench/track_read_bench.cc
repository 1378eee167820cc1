// readTrack against a plain pread loop over the same slots of a D600 volume
// (a header and 150 sparse cylinders, 2250 tracks of 56832 bytes).
//
// Each iteration reads one track both ways, alternating which goes first, and
// times the two separately, so both see the same cache state and machine
// noise. Counters: readTrack_ns and pread_ns per track, and ratio =
// readTrack / pread (target: at most 1.2).
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "ckdfile/emulated_ckd_file.h"
#include "support/temp_dir.h"

namespace {

constexpr unsigned int kCylinders = 150;
constexpr unsigned int kHeads = 15;
constexpr unsigned int kSlot = 56832;
constexpr unsigned int kTracks = kCylinders * kHeads;

struct Address {
  unsigned int cyl;
  unsigned short head;
  unsigned long long offset;
};

// The volume file, written once: header bytes by hand, then ftruncate.
class Volume {
 public:
  Volume() : path_(dir_.file("bench.ckd")) {
    unsigned char h[512] = {};
    std::memcpy(h, "CKD_XVOL", 8);             // magic
    h[8] = kHeads;                             // heads (LE u32)
    h[12] = kSlot & 0xFF;                      // track size (LE u32)
    h[13] = (kSlot >> 8) & 0xFF;
    h[16] = 0xAA;                              // D600
    h[17] = 3;                                 // level
    h[18] = h[22] = kCylinders;                // created / current cylinders (LE u32)
    int fd = ::open(path_.c_str(), O_RDWR | O_CREAT | O_TRUNC, 0644);
    ok_ = fd >= 0 && ::pwrite(fd, h, sizeof h, 0) == static_cast<ssize_t>(sizeof h) &&
          ::ftruncate(fd, 512 + static_cast<off_t>(kTracks) * kSlot) == 0;
    // A distinct mark at the start of every slot, and a warm page cache.
    std::vector<unsigned char> slot(kSlot, 0);
    for (unsigned int t = 0; ok_ && t < kTracks; ++t) {
      std::memcpy(slot.data(), &t, sizeof t);
      ok_ = ::pwrite(fd, slot.data(), kSlot, 512 + static_cast<off_t>(t) * kSlot) == kSlot;
    }
    if (fd >= 0) ::close(fd);
    for (unsigned int t = 0; t < kTracks; ++t) {
      sequential_.push_back({t / kHeads, static_cast<unsigned short>(t % kHeads),
                             512 + static_cast<unsigned long long>(t) * kSlot});
    }
    random_ = sequential_;
    std::shuffle(random_.begin(), random_.end(), std::mt19937(12345));
  }
  bool ok() const { return ok_; }
  const std::string& path() const { return path_; }
  const std::vector<Address>& order(bool random) const { return random ? random_ : sequential_; }

 private:
  ckdvol_test::ScopedTempDir dir_;
  std::string path_;
  bool ok_ = false;
  std::vector<Address> sequential_, random_;
};

Volume& volume() {
  static Volume v;
  return v;
}

using Clock = std::chrono::steady_clock;

double nanos(Clock::time_point a, Clock::time_point b) {
  return std::chrono::duration<double, std::nano>(b - a).count();
}

void readTrackVsPread(benchmark::State& state, bool random) {
  Volume& v = volume();
  EmulatedCKDfile f;
  if (!v.ok() || f.open(v.path().c_str(), true) != EmulatedCKDfile::kOpenOk) {
    state.SkipWithError("cannot set up the volume");
    return;
  }
  const int fd = ::open(v.path().c_str(), O_RDONLY);
  std::vector<unsigned char> plain(kSlot);
  const std::vector<Address>& order = v.order(random);
  double libNs = 0, preadNs = 0;
  size_t i = 0;
  bool failed = false;
  for (auto _ : state) {
    const Address& a = order[i % order.size()];
    Clock::time_point t0, t1, t2;
    int rc;
    ssize_t n;
    if (i & 1) {
      t0 = Clock::now();
      rc = f.readTrack(a.cyl, a.head, 0);
      t1 = Clock::now();
      n = ::pread(fd, plain.data(), kSlot, static_cast<off_t>(a.offset));
      t2 = Clock::now();
      libNs += nanos(t0, t1);
      preadNs += nanos(t1, t2);
    } else {
      t0 = Clock::now();
      n = ::pread(fd, plain.data(), kSlot, static_cast<off_t>(a.offset));
      t1 = Clock::now();
      rc = f.readTrack(a.cyl, a.head, 0);
      t2 = Clock::now();
      preadNs += nanos(t0, t1);
      libNs += nanos(t1, t2);
    }
    failed = failed || rc != 0 || n != kSlot || std::memcmp(plain.data(), f.trackBuffer, 16) != 0;
    benchmark::DoNotOptimize(f.trackBuffer[0]);
    benchmark::DoNotOptimize(plain[0]);
    ++i;
  }
  ::close(fd);
  if (failed) {
    state.SkipWithError("readTrack and pread disagreed or failed");
    return;
  }
  const double count = static_cast<double>(state.iterations());
  state.counters["readTrack_ns"] = libNs / count;
  state.counters["pread_ns"] = preadNs / count;
  state.counters["ratio"] = preadNs > 0 ? libNs / preadNs : 0;
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kSlot * 2);
}

void BM_TrackRead_Sequential(benchmark::State& state) { readTrackVsPread(state, false); }
void BM_TrackRead_Random(benchmark::State& state) { readTrackVsPread(state, true); }

BENCHMARK(BM_TrackRead_Sequential)->MinTime(1.0);
BENCHMARK(BM_TrackRead_Random)->MinTime(1.0);

}  // namespace

BENCHMARK_MAIN();
