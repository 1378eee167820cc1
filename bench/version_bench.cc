// Track versioning and verification against plain I/O doing the same work,
// on a D600 volume of 70 cylinders (1050 tracks of 56832 bytes), every track
// holding record zero and twelve 4000-byte records.
//
// ChangeThenCommit / ChangeThenRollback: 1000 tracks (a fixed shuffle) are
// changed under an active version through readTrack + writeTrack, so each
// write-back appends a saved copy first; then commitVersion or
// rollbackVersion. The plain side does the same slot transfers with
// pread/pwrite: read the track, read its slot again and append it as the
// copy, write the track; then walk the copies backwards, read copy and home,
// write the home slot, fdatasync every 93 slots, truncate, fdatasync.
// Target: ratio at most 1.5.
//
// VerifyPass: readTrack + verifyTrack(false) over every track, against a
// plain sequential pread of the same slots. Target: ratio at most 1.3.
//
// Each iteration runs both sides, alternating which goes first, and times
// them separately (manual time = the library's). Counters: library_ms,
// plain_ms per pass and ratio = library / plain over the whole run.
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

constexpr unsigned int kCylinders = 70;
constexpr unsigned int kHeads = 15;
constexpr unsigned int kSlot = 56832;
constexpr unsigned int kTracks = kCylinders * kHeads;
constexpr unsigned int kChanged = 1000;
constexpr unsigned long long kDataEnd = 512ULL + static_cast<unsigned long long>(kTracks) * kSlot;
constexpr unsigned int kSyncEvery = (kSlot + 5242879) / kSlot;  // 93
constexpr int kRecords = 12;
constexpr unsigned short kRecordLength = 4000;

unsigned long long slotOffset(unsigned int track) { return 512ULL + static_cast<unsigned long long>(track) * kSlot; }

void put16(unsigned char* p, unsigned v) {
  p[0] = static_cast<unsigned char>(v >> 8);
  p[1] = static_cast<unsigned char>(v);
}

// A track image by hand: home address, record zero (DL 8), twelve records
// (KL 0, DL 4000) of the track's own address, the end marker.
std::vector<unsigned char> trackImage(unsigned int cyl, unsigned int head) {
  std::vector<unsigned char> t(kSlot, 0);
  put16(&t[1], cyl);  // HA: flag 0, CC, HH
  put16(&t[3], head);
  size_t p = 5;
  for (int r = 0; r <= kRecords; ++r) {
    put16(&t[p], cyl);  // count: CC HH R KL DL
    put16(&t[p + 2], head);
    t[p + 4] = static_cast<unsigned char>(r);
    t[p + 5] = 0;
    put16(&t[p + 6], r == 0 ? 8 : kRecordLength);
    p += 8 + (r == 0 ? 8 : kRecordLength);
    if (r != 0) t[p - 1] = static_cast<unsigned char>(r);
  }
  std::memset(&t[p], 0xFF, 8);
  return t;
}

// The volume, written once. Header: "CKD_XVOL", D600, level 3, 70 cylinders,
// and (when versioned) marker "VER0", activeVersion 1, latestVersion 1.
class Volume {
 public:
  explicit Volume(bool versioned) : path_(dir_.file(versioned ? "versioned.ckd" : "plain.ckd")) {
    unsigned char h[512] = {};
    std::memcpy(h, "CKD_XVOL", 8);  // magic
    h[8] = kHeads;                  // heads (LE u32)
    h[12] = kSlot & 0xFF;           // track size (LE u32)
    h[13] = (kSlot >> 8) & 0xFF;
    h[16] = 0xAA;                   // D600
    h[17] = 3;                      // level
    h[18] = h[22] = kCylinders;     // created / current cylinders (LE u32)
    if (versioned) {
      std::memcpy(h + 26, "VER0", 4);  // version marker
      h[30] = 1;                       // activeVersion (LE u16)
      h[32] = 1;                       // latestVersion (LE u16)
    }
    int fd = ::open(path_.c_str(), O_RDWR | O_CREAT | O_TRUNC, 0644);
    ok_ = fd >= 0 && ::pwrite(fd, h, sizeof h, 0) == static_cast<ssize_t>(sizeof h);
    for (unsigned int t = 0; ok_ && t < kTracks; ++t) {
      std::vector<unsigned char> image = trackImage(t / kHeads, t % kHeads);
      ok_ = ::pwrite(fd, image.data(), kSlot, static_cast<off_t>(slotOffset(t))) == kSlot;
    }
    if (fd >= 0) ::close(fd);
    for (unsigned int t = 0; t < kTracks; ++t) changed_.push_back(t);
    std::shuffle(changed_.begin(), changed_.end(), std::mt19937(4711));
    changed_.resize(kChanged);
  }
  bool ok() const { return ok_; }
  const std::string& path() const { return path_; }
  const std::vector<unsigned int>& changed() const { return changed_; }

 private:
  ckdvol_test::ScopedTempDir dir_;
  std::string path_;
  bool ok_ = false;
  std::vector<unsigned int> changed_;
};

using Clock = std::chrono::steady_clock;
double millis(Clock::time_point a, Clock::time_point b) {
  return std::chrono::duration<double, std::milli>(b - a).count();
}

void putTrailer(unsigned char* slot, uint16_t version, unsigned long long link) {
  unsigned char* t = slot + kSlot - 16;
  std::memcpy(t, "VER0", 4);
  put16(t + 4, version);
  put16(t + 6, 0);
  for (int i = 0; i < 8; ++i) t[8 + i] = static_cast<unsigned char>(link >> (56 - 8 * i));
}
unsigned long long linkOf(const unsigned char* slot) {
  unsigned long long v = 0;
  for (int i = 0; i < 8; ++i) v = v << 8 | slot[kSlot - 8 + i];
  return v;
}

// The library: change every listed track under version 1, then commit or roll back.
bool libraryPass(EmulatedCKDfile& f, const std::vector<unsigned int>& tracks, int operation) {
  for (unsigned int t : tracks) {
    if (f.readTrack(t / kHeads, static_cast<unsigned short>(t % kHeads), 0) != 0) return false;
    f.trackBuffer[5 + 16 + 8] ^= 0x5A;  // first data byte of record 1
    f.trackDirty = 1;
  }
  if (f.writeTrack() != 0) return false;
  return f.doVersion(-1, operation) == static_cast<int>(tracks.size());
}

// The same slot transfers with plain pread/pwrite.
bool plainPass(int fd, const std::vector<unsigned int>& tracks, bool commit) {
  std::vector<unsigned char> track(kSlot), copy(kSlot), home(kSlot);
  off_t end = static_cast<off_t>(kDataEnd);
  for (unsigned int t : tracks) {
    const off_t at = static_cast<off_t>(slotOffset(t));
    if (::pread(fd, track.data(), kSlot, at) != kSlot) return false;
    track[5 + 16 + 8] ^= 0x5A;
    if (::pread(fd, copy.data(), kSlot, at) != kSlot) return false;
    putTrailer(copy.data(), 0, static_cast<unsigned long long>(at));
    if (::pwrite(fd, copy.data(), kSlot, end) != kSlot) return false;
    putTrailer(track.data(), 1, static_cast<unsigned long long>(end));
    end += kSlot;
    if (::pwrite(fd, track.data(), kSlot, at) != kSlot) return false;
  }
  unsigned int processed = 0;
  for (off_t p = end - kSlot; p >= static_cast<off_t>(kDataEnd); p -= kSlot) {
    if (::pread(fd, copy.data(), kSlot, p) != kSlot) return false;
    const off_t h = static_cast<off_t>(linkOf(copy.data()));
    if (::pread(fd, home.data(), kSlot, h) != kSlot) return false;
    unsigned char* image = commit ? home.data() : copy.data();
    std::memset(image + kSlot - 16, 0, 16);  // the copies hold version-0 images
    if (::pwrite(fd, image, kSlot, h) != kSlot) return false;
    if (++processed % kSyncEvery == 0 && ::fdatasync(fd) != 0) return false;
  }
  if (::ftruncate(fd, static_cast<off_t>(kDataEnd)) != 0) return false;
  ::fdatasync(fd);
  return true;
}

void changeThen(benchmark::State& state, int operation) {
  static Volume v(true);
  EmulatedCKDfile f;
  if (!v.ok() || f.open(v.path().c_str(), false) != EmulatedCKDfile::kOpenOk || f.activeVersion != 1) {
    state.SkipWithError("cannot set up the versioned volume");
    return;
  }
  const int fd = ::open(v.path().c_str(), O_RDWR);
  double libMs = 0, plainMs = 0;
  int i = 0;
  for (auto _ : state) {
    bool ok;
    Clock::time_point t0, t1, t2;
    if (i++ & 1) {
      t0 = Clock::now();
      ok = libraryPass(f, v.changed(), operation);
      t1 = Clock::now();
      ok = plainPass(fd, v.changed(), operation == 1) && ok;
      t2 = Clock::now();
      libMs += millis(t0, t1);
      plainMs += millis(t1, t2);
      state.SetIterationTime(millis(t0, t1) / 1000);
    } else {
      t0 = Clock::now();
      ok = plainPass(fd, v.changed(), operation == 1);
      t1 = Clock::now();
      ok = libraryPass(f, v.changed(), operation) && ok;
      t2 = Clock::now();
      plainMs += millis(t0, t1);
      libMs += millis(t1, t2);
      state.SetIterationTime(millis(t1, t2) / 1000);
    }
    if (!ok) {
      state.SkipWithError("a pass failed");
      break;
    }
  }
  ::close(fd);
  state.counters["library_ms"] = libMs / i;
  state.counters["plain_ms"] = plainMs / i;
  state.counters["ratio"] = libMs / plainMs;
}

void BM_ChangeThenCommit(benchmark::State& state) { changeThen(state, 1); }
void BM_ChangeThenRollback(benchmark::State& state) { changeThen(state, -1); }

void BM_VerifyPass(benchmark::State& state) {
  static Volume v(false);
  EmulatedCKDfile f;
  if (!v.ok() || f.open(v.path().c_str(), true) != EmulatedCKDfile::kOpenOk) {
    state.SkipWithError("cannot set up the volume");
    return;
  }
  const int fd = ::open(v.path().c_str(), O_RDONLY);
  std::vector<unsigned char> slot(kSlot);
  auto library = [&] {
    bool ok = true;
    for (unsigned int t = 0; t < kTracks; ++t) {
      ok = f.readTrack(t / kHeads, static_cast<unsigned short>(t % kHeads), 0) == 0 && f.verifyTrack(false) && ok;
    }
    return ok;
  };
  auto plain = [&] {
    bool ok = true;
    for (unsigned int t = 0; t < kTracks; ++t) {
      ok = ::pread(fd, slot.data(), kSlot, static_cast<off_t>(slotOffset(t))) == kSlot && ok;
      benchmark::DoNotOptimize(slot.data());
    }
    return ok;
  };
  double libMs = 0, plainMs = 0;
  int i = 0;
  for (auto _ : state) {
    bool ok;
    Clock::time_point t0 = Clock::now(), t1, t2;
    if (i++ & 1) {
      ok = library();
      t1 = Clock::now();
      ok = plain() && ok;
      t2 = Clock::now();
      libMs += millis(t0, t1);
      plainMs += millis(t1, t2);
      state.SetIterationTime(millis(t0, t1) / 1000);
    } else {
      ok = plain();
      t1 = Clock::now();
      ok = library() && ok;
      t2 = Clock::now();
      plainMs += millis(t0, t1);
      libMs += millis(t1, t2);
      state.SetIterationTime(millis(t1, t2) / 1000);
    }
    if (!ok) {
      state.SkipWithError("a track failed to read or verify");
      break;
    }
  }
  ::close(fd);
  state.counters["library_ms"] = libMs / i;
  state.counters["plain_ms"] = plainMs / i;
  state.counters["ratio"] = libMs / plainMs;
}

BENCHMARK(BM_ChangeThenCommit)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(6);
BENCHMARK(BM_ChangeThenRollback)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(6);
BENCHMARK(BM_VerifyPass)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(30);

}  // namespace

BENCHMARK_MAIN();
