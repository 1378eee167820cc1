// Importing a transfer file of about 100 MB against plain I/O writing the
// same tracks.
//
// The transfer file holds an unloaded PDS of 1,000 FB 80 members of 1,280
// records (102,400 bytes each, blocks of 27,920 bytes, statistics in every
// entry), made once with writeTransferFile and kept as a host file. Each
// volume is a sparse D600 volume of 200 cylinders (home address, record
// zero and end marker per track, the rest holes), set up untimed and
// forced to disk.
//   Library: what 'ckdvol import' does: the host file read, decoded
//     (readTransferFile), the data set allocated and every member placed
//     with its TTRs remapped in a StagedTracks (stageImport), then
//     ChangeJournal begin(staged.slots()), staged.writeAll(), finish().
//   Plain:   the same track images (staged beforehand on an identical
//     volume, untimed) pwritten over their slots, then as many fdatasync
//     calls as the journal made (counted by defining fdatasync and fsync
//     here). The two sides alternate which runs first.
// Counters: lib_s, read_s (the host file), decode_s, stage_s, write_s (the
// journaled write), plain_s, ratio = lib / plain (target: at most 2),
// syncs, tracks, file_mb.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "../tools/ckdvol/transfer_volume.h"
#include "bench_volume.h"
#include "ckdfile/emulated_ckd_file.h"
#include "ckdfile/volume_format.h"
#include "dataset/vtoc_scan.h"
#include "edit/staged_tracks.h"
#include "journal/change_journal.h"
#include "support/temp_dir.h"
#include "transfer/transfer_file.h"

namespace {

using namespace ckdvol;
using F = EmulatedCKDfile;
using ckdvol_bench::Clock;

constexpr int kCylinders = 200;  // 3,000 tracks of ~56 KB
constexpr int kMembers = 1000;
constexpr int kRecords = 1280;  // 102,400 bytes a member
constexpr uint16_t kBlockSize = 27920;

using ckdvol_bench::seconds;
using ckdvol_bench::plainWrite;
using ckdvol_bench::syncCalls;

// A sparse, initialised D600 volume. Empty or what failed.
std::string makeVolume(const std::string& path) { return ckdvol_bench::makeSparseVolume(path, kCylinders); }

// The transfer file's contents: kMembers members, their blocks one behind
// the other on the original tracks (two records a track).
TransferContents contents() {
  TransferContents c;
  c.partitioned = true;
  c.attributes.dsn = "BENCH.PDS";
  c.attributes.dsorg = kDsorgPO;
  UnloadedPds& p = c.pds;
  p.recfm = kRecfmF | kRecfmBlocked;
  p.lrecl = 80;
  p.blksize = kBlockSize;
  p.directoryBlocks = 60;  // 6 entries of 42 bytes a block
  p.heads = 15;
  p.trackLength = 56664;
  uint32_t track = 3, record = 0;  // behind the directory
  auto place = [&](Bytes data) {
    if (record == 2) ++track, record = 0;  // two records a track
    UnloadedBlock b;
    b.ttr = Ttr{track, static_cast<uint8_t>(++record)};
    b.data = std::move(data);
    p.blocks.push_back(std::move(b));
  };
  const Bytes stats = {0x01, 0x00, 0x00, 0x00, 0x01, 0x24, 0x03, 0x1F, 0x01, 0x24, 0x06, 0x0F, 0x13, 0x37, 0x05,
                       0x00, 0x05, 0x00, 0x00, 0x00, 0xC2, 0xC5, 0xD5, 0xC3, 0xC8, 0x40, 0x40, 0x40, 0x00, 0x00};
  for (int m = 0; m < kMembers; ++m) {
    DirectoryEntry e;
    char name[9];
    std::snprintf(name, sizeof name, "M%07d", m);
    for (int i = 0; i < 8; ++i) e.name[i] = static_cast<unsigned char>(i == 0 ? 0xD4 : 0xF0 + (name[i] - '0'));
    e.indicator = 0x0F;
    e.userData = stats;
    size_t left = static_cast<size_t>(kRecords) * 80;
    bool first = true;
    while (left > 0) {
      const size_t n = std::min<size_t>(left, kBlockSize);
      Bytes data(n);
      for (size_t i = 0; i < n; ++i) data[i] = static_cast<unsigned char>(0x40 + ((i * 7 + m) % 64));
      place(std::move(data));
      if (first) e.ttr = p.blocks.back().ttr, first = false;
      left -= n;
    }
    place(Bytes());
    p.entries.push_back(e);
  }
  p.extents.push_back(UnloadExtent{1, 0, static_cast<uint16_t>(1 + track / 15), 14,
                                   static_cast<uint16_t>((track / 15 + 1) * 15)});
  return c;
}

std::string readFile(const std::string& path, Bytes& out) {
  const int fd = ::open(path.c_str(), O_RDONLY);
  struct stat st;
  if (fd < 0 || ::fstat(fd, &st) != 0) return "open " + path;
  out.resize(static_cast<size_t>(st.st_size));
  size_t done = 0;
  while (done < out.size()) {
    const ssize_t n = ::read(fd, out.data() + done, out.size() - done);
    if (n <= 0) break;
    done += static_cast<size_t>(n);
  }
  ::close(fd);
  return done == out.size() ? "" : "read " + path;
}

// An open volume and its scan.
struct Volume {
  F file;
  VtocInfo vtoc;
  std::string open(const std::string& path) {
    if (file.open(path.c_str(), false) != 0) return "open " + path;
    std::string error;
    return scanVtoc(file, vtoc, error) == kScanOk ? "" : error;
  }
  ~Volume() { file.close(); }
};

struct Times {
  double read = 0, decode = 0, stage = 0, write = 0, plain = 0;
};

// The library side, as the tool does it.
std::string libImport(Volume& v, const std::string& xmit, Times& t, unsigned long long& syncs, size_t& tracks) {
  const Clock::time_point t0 = Clock::now();
  Bytes bytes;
  std::string error = readFile(xmit, bytes);
  if (!error.empty()) return error;
  const Clock::time_point tRead = Clock::now();
  TransferContents c;
  if (!readTransferFile(bytes, c, error)) return error;
  const Clock::time_point t1 = Clock::now();
  StagedTracks staged(v.file);
  ckdvol_tool::ImportSummary s;
  if (!ckdvol_tool::stageImport(staged, v.vtoc, c, ckdvol_tool::ImportOptions(), s, error)) return error;
  const Clock::time_point t2 = Clock::now();
  const unsigned long long before = syncCalls();
  ChangeJournal journal(v.file, "import");
  if (journal.begin(staged.slots()) != 0) return journal.error();
  error = staged.writeAll();
  if (!error.empty()) return error;
  if (journal.finish() != 0) return journal.error();
  const Clock::time_point t3 = Clock::now();
  syncs = syncCalls() - before;
  tracks = staged.size();
  t.read += seconds(t0, tRead);
  t.decode += seconds(tRead, t1);
  t.stage += seconds(t1, t2);
  t.write += seconds(t2, t3);
  return "";
}

void BM_ImportTransferFile(benchmark::State& state) {
  ckdvol_test::ScopedTempDir dir;
  const std::string libPath = dir.file("lib.ckd"), plainPath = dir.file("plain.ckd"), xmit = dir.file("bench.xmi");
  std::string error;
  double fileMb = 0;
  {
    Bytes bytes;
    if (!writeTransferFile(contents(), bytes, error)) {
      state.SkipWithError(error.c_str());
      return;
    }
    fileMb = static_cast<double>(bytes.size()) / 1e6;
    const int fd = ::open(xmit.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (fd < 0 || ::write(fd, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size()) || ::close(fd) != 0) {
      state.SkipWithError("cannot write the transfer file");
      return;
    }
  }
  Times t;
  unsigned long long syncs = 0;
  size_t tracks = 0, i = 0;
  for (auto _ : state) {
    state.PauseTiming();
    ::unlink(libPath.c_str());
    ::unlink(plainPath.c_str());
    error = makeVolume(libPath);
    if (error.empty()) error = makeVolume(plainPath);
    Volume lib, plain;
    if (error.empty()) error = lib.open(libPath);
    if (error.empty()) error = plain.open(plainPath);
    // The plain side's images, staged on its own volume (untimed).
    std::unique_ptr<StagedTracks> images;
    if (error.empty()) {
      Bytes bytes;
      TransferContents c;
      ckdvol_tool::ImportSummary s;
      images.reset(new StagedTracks(plain.file));
      error = readFile(xmit, bytes);
      if (error.empty() && (!readTransferFile(bytes, c, error) ||
                            !ckdvol_tool::stageImport(*images, plain.vtoc, c, ckdvol_tool::ImportOptions(), s, error))) {
        if (error.empty()) error = "staging failed";
      }
    }
    state.ResumeTiming();
    if (!error.empty()) break;
    unsigned long long got = 0;
    if ((i++ & 1) == 0) {
      error = libImport(lib, xmit, t, got, tracks);
      if (error.empty()) error = plainWrite(plain.file.fileDescriptor, *images, got, t.plain);
      if (syncs == 0) syncs = got;
    } else {
      error = plainWrite(plain.file.fileDescriptor, *images, syncs, t.plain);
      if (error.empty()) error = libImport(lib, xmit, t, got, tracks);
    }
    if (error.empty() && got != syncs) error = "the journal's sync count changed between runs";
    if (!error.empty()) break;
  }
  ::unlink(libPath.c_str());
  ::unlink(plainPath.c_str());
  if (!error.empty()) {
    state.SkipWithError(error.c_str());
    return;
  }
  const double n = static_cast<double>(state.iterations());
  const double libS = t.read + t.decode + t.stage + t.write;
  state.counters["lib_s"] = libS / n;
  state.counters["read_s"] = t.read / n;
  state.counters["decode_s"] = t.decode / n;
  state.counters["stage_s"] = t.stage / n;
  state.counters["write_s"] = t.write / n;
  state.counters["plain_s"] = t.plain / n;
  state.counters["ratio"] = t.plain > 0 ? libS / t.plain : 0;
  state.counters["syncs"] = static_cast<double>(syncs);
  state.counters["tracks"] = static_cast<double>(tracks);
  state.counters["file_mb"] = fileMb;
}

BENCHMARK(BM_ImportTransferFile)->Iterations(4)->Unit(benchmark::kSecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
