// Editing a PDS through the library against plain I/O writing the same
// track images.
//
// Every volume is a sparse D600 volume (home address, record zero and end
// marker written per track, the rest holes, as 'ckdvol create --sparse'
// makes it) holding BENCH.PDS (FB 80, the default block size), allocated
// through the edit layer (which leaves the zeros behind each of its empty
// tracks holes). The library side of a change is what the tool
// does: the change computed in a StagedTracks (PdsEditor load, writeMember,
// commit), then ChangeJournal begin(staged.slots()), staged.writeAll(),
// finish(); a load is streamed (planned, then written track by track). The plain side pwrites the same new images over the same slots
// of an identical volume and calls fdatasync as often as the journal did
// in the same iteration (this file counts the journal's fdatasync and fsync
// calls by defining them; each goes on to the system call). The two sides
// alternate which runs first.
//   Load:   2,000 members of 1,280 records (~100 KB, 200 MB in all) into
//           the empty PDS as one streamed change, as 'ckdvol load' makes it;
//           dense:1 on a volume whose slots are all written whole (no
//           holes), where the journal reads every slot back in full.
//           Counters: lib_s (all of it), compute_s (its planning run),
//           compute_share, begin_s (the journal saving the slots), plain_s,
//           ratio = lib / plain (target: at most 1.5), syncs, tracks.
//   Change: one 10-record member replaced in a PDS of `members` members of
//           10 records each (range 200, 2,000), loaded untimed. Counters:
//           lib_us, plain_us, ratio, tracks written.
// Volumes live in a scratch directory (CKDVOL_TEST_TMP, TMPDIR or /tmp)
// and are removed after each benchmark.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "bench_volume.h"
#include "ckdfile/emulated_ckd_file.h"
#include "ckdfile/volume_format.h"
#include "dataset/vtoc_scan.h"
#include "edit/allocate.h"
#include "edit/pds_edit.h"
#include "edit/staged_tracks.h"
#include "journal/change_journal.h"
#include "support/temp_dir.h"

namespace {

using namespace ckdvol;
using F = EmulatedCKDfile;
using ckdvol_bench::Clock;

constexpr int kCylinders = 330;          // 4,950 tracks of ~56 KB
constexpr uint32_t kPdsTracks = 4500;
constexpr uint32_t kDirectoryBlocks = 200;  // 21 entries a block without user data
constexpr int kLoadMembers = 2000;
constexpr int kLoadRecords = 1280;      // 102,400 bytes a member
// A D600 slot; an empty track's bytes end at 29, well inside the first
// 4,096; the trailer's 16 bytes.
constexpr uint64_t kDenseSlot = 56832, kDenseFrom = 4096, kDenseTrailer = 16;

using ckdvol_bench::seconds;
using ckdvol_bench::plainWrite;
using ckdvol_bench::syncCalls;

// A sparse, initialised D600 volume with an empty BENCH.PDS. Empty or what
// failed. `dense`: every slot's zeros written too, as on a volume made
// without --sparse (or copied by a tool that fills holes).
std::string makeVolume(const std::string& path, bool dense = false) {
  std::string error = ckdvol_bench::makeSparseVolume(path, kCylinders);
  if (!error.empty()) return error;
  if (dense) {
    const int fd = ::open(path.c_str(), O_RDWR);
    const Bytes zeros(kDenseSlot - kDenseFrom - kDenseTrailer, 0);
    bool ok = fd >= 0;
    for (uint64_t t = 2; ok && t < static_cast<uint64_t>(kCylinders) * 15; ++t) {
      // Behind an empty track's end marker up to the trailer: zeros, as
      // data (the label's and the VTOC's tracks, 0 and 1, are left alone).
      const off_t at = static_cast<off_t>(512 + t * kDenseSlot + kDenseFrom);
      ok = ::pwrite(fd, zeros.data(), zeros.size(), at) == static_cast<ssize_t>(zeros.size());
    }
    if (fd >= 0) ::close(fd);
    if (!ok) return "cannot fill " + path;
  }
  F f;
  if (f.open(path.c_str(), false) != 0 || f.readTrack(0, 0, 0) != F::kTrackOk) return "open " + path;
  VtocInfo vtoc;
  if (scanVtoc(f, vtoc, error) != kScanOk) return error;
  StagedTracks staged(f);
  AllocationRequest req;
  req.name = "BENCH.PDS";
  req.dsorg = kDsorgPO;
  req.primary = kPdsTracks;
  req.directoryBlocks = kDirectoryBlocks;
  AllocationResult result;
  if (!allocateDataSet(staged, vtoc, req, result, error)) return error;
  error = staged.writeAll();
  // The setup reaches the disk before anything is timed: otherwise the
  // first sync of whichever side runs first pays for it.
  if (error.empty() && ::fsync(f.fileDescriptor) != 0) error = "fsync " + path;
  f.close();
  return error;
}

// FB 80 blocks of `records` text-like records ("NAME nnnnn" and blanks).
std::vector<Bytes> memberBlocks(const std::string& name, int records, uint16_t blksize) {
  const int perBlock = blksize / 80;
  std::vector<Bytes> blocks;
  for (int i = 0; i < records; ++i) {
    if (i % perBlock == 0) blocks.emplace_back();
    Bytes r(80, 0x40);
    char text[32];
    const int n = std::snprintf(text, sizeof text, "%s %05d", name.c_str(), i);
    for (int k = 0; k < n; ++k) r[k] = static_cast<unsigned char>(0xC1 + (text[k] % 9));
    blocks.back().insert(blocks.back().end(), r.begin(), r.end());
  }
  return blocks;
}

std::string memberName(int i) {
  char name[16];
  std::snprintf(name, sizeof name, "M%07d", i % 10000000);
  return name;
}

// An open volume with its scan and BENCH.PDS.
struct Volume {
  F file;
  VtocInfo vtoc;
  const DataSetInfo* ds = nullptr;
  std::string open(const std::string& path) {
    if (file.open(path.c_str(), false) != 0) return "open " + path;
    std::string error;
    if (scanVtoc(file, vtoc, error) != kScanOk) return error;
    ds = findDataSet(vtoc, "BENCH.PDS");
    return ds == nullptr ? "no BENCH.PDS" : "";
  }
  ~Volume() { file.close(); }
};

// Writes `members` (name -> blocks) as one change computed in `staged`.
std::string stageMembers(StagedTracks& staged, const DataSetInfo& ds, const std::vector<std::string>& names,
                         const std::vector<std::vector<Bytes>>& blocks) {
  PdsEditor editor(staged, ds);
  std::string error;
  if (!editor.load(error)) return error;
  for (size_t i = 0; i < names.size(); ++i) {
    MemberWrite w;
    if (!editor.writeMember(names[i], blocks[i], Bytes(), true, w, error)) return error;
  }
  return editor.commit(error) ? "" : error;
}

// The library side: computed, then journaled and written. Seconds of each
// part in computeS and writeS; syncs counted. `streamed` is the load's way:
// a planning run names the tracks (computeS), the journal saves them, and
// the change runs again writing each track as it is built (writeS).
std::string libChange(Volume& v, const std::vector<std::string>& names, const std::vector<std::vector<Bytes>>& blocks,
                      bool streamed, double& computeS, double& writeS, unsigned long long& syncs, size_t& tracks,
                      double* beginS = nullptr) {
  const Clock::time_point t0 = Clock::now();
  StagedTracks staged(v.file);
  std::string error;
  if (streamed && !staged.planOnly(error)) return error;
  error = stageMembers(staged, *v.ds, names, blocks);
  if (!error.empty()) return error;
  const Clock::time_point t1 = Clock::now();
  const unsigned long long before = syncCalls();
  ChangeJournal journal(v.file, "bench");
  if (journal.begin(staged.slots()) != 0) return journal.error();
  if (beginS != nullptr) *beginS += seconds(t1, Clock::now());
  if (streamed) {
    StagedTracks through(v.file);
    if (!through.writeThrough(staged.slots(), error)) return error;
    error = stageMembers(through, *v.ds, names, blocks);
    if (error.empty()) error = through.writeAll();
    if (error.empty() && through.slots() != staged.slots()) error = "the written tracks differ from the planned ones";
  } else {
    error = staged.writeAll();
  }
  if (!error.empty()) return error;
  if (journal.finish() != 0) return journal.error();
  const Clock::time_point t2 = Clock::now();
  syncs = syncCalls() - before;
  tracks = staged.size();
  computeS += seconds(t0, t1);
  writeS += seconds(t1, t2);
  return "";
}

void BM_EditLoadMembers(benchmark::State& state) {
  const bool dense = state.range(0) != 0;
  ckdvol_test::ScopedTempDir dir;
  const std::string libPath = dir.file("lib.ckd"), plainPath = dir.file("plain.ckd");
  std::vector<std::string> names;
  std::vector<std::vector<Bytes>> blocks;
  double computeS = 0, writeS = 0, plainS = 0, beginS = 0;
  unsigned long long syncs = 0;
  size_t tracks = 0, i = 0;
  std::string error;
  for (auto _ : state) {
    state.PauseTiming();
    ::unlink(libPath.c_str());
    ::unlink(plainPath.c_str());
    error = makeVolume(libPath, dense);
    if (error.empty()) error = makeVolume(plainPath, dense);
    Volume lib, plain;
    if (error.empty()) error = lib.open(libPath);
    if (error.empty()) error = plain.open(plainPath);
    if (error.empty() && names.empty()) {
      for (int m = 0; m < kLoadMembers; ++m) {
        names.push_back(memberName(m));
        blocks.push_back(memberBlocks(names.back(), kLoadRecords, lib.ds->blksize));
      }
    }
    // The plain side's images, computed on its own volume (untimed).
    std::unique_ptr<StagedTracks> images;
    if (error.empty()) {
      images.reset(new StagedTracks(plain.file));
      error = stageMembers(*images, *plain.ds, names, blocks);
    }
    state.ResumeTiming();
    if (!error.empty()) break;
    // The plain side goes second on even iterations (with the sync count
    // just measured) and first on odd ones (with the previous count).
    unsigned long long got = 0;
    if ((i++ & 1) == 0) {
      error = libChange(lib, names, blocks, true, computeS, writeS, got, tracks, &beginS);
      if (error.empty()) error = plainWrite(plain.file.fileDescriptor, *images, got, plainS);
      if (syncs == 0) syncs = got;
    } else {
      error = plainWrite(plain.file.fileDescriptor, *images, syncs, plainS);
      if (error.empty()) error = libChange(lib, names, blocks, true, computeS, writeS, got, tracks, &beginS);
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
  const double libS = computeS + writeS;
  state.counters["lib_s"] = libS / n;
  state.counters["compute_s"] = computeS / n;
  state.counters["compute_share"] = libS > 0 ? computeS / libS : 0;
  state.counters["begin_s"] = beginS / n;
  state.counters["plain_s"] = plainS / n;
  state.counters["ratio"] = plainS > 0 ? libS / plainS : 0;
  state.counters["syncs"] = static_cast<double>(syncs);
  state.counters["tracks"] = static_cast<double>(tracks);
}

void BM_EditChangeMember(benchmark::State& state) {
  const int members = static_cast<int>(state.range(0));
  ckdvol_test::ScopedTempDir dir;
  const std::string libPath = dir.file("lib.ckd"), plainPath = dir.file("plain.ckd");
  std::string error = makeVolume(libPath);
  if (error.empty()) error = makeVolume(plainPath);
  std::vector<std::string> names;
  std::vector<std::vector<Bytes>> blocks;
  for (int m = 0; m < members && error.empty(); ++m) {
    names.push_back(memberName(m));
    blocks.push_back(memberBlocks(names.back(), 10, 3120));
  }
  // Both volumes filled the same way, untimed, without a journal.
  for (const std::string* path : {&libPath, &plainPath}) {
    Volume v;
    if (error.empty()) error = v.open(*path);
    StagedTracks staged(v.file);
    if (error.empty()) error = stageMembers(staged, *v.ds, names, blocks);
    if (error.empty()) error = staged.writeAll();
  }
  Volume lib, plain;
  if (error.empty()) error = lib.open(libPath);
  if (error.empty()) error = plain.open(plainPath);
  const std::vector<std::string> one = {memberName(members / 2)};
  const std::vector<std::vector<Bytes>> oneBlocks = {memberBlocks("CHANGED", 10, 3120)};
  double computeS = 0, writeS = 0, plainS = 0;
  unsigned long long syncs = 0;
  size_t tracks = 0, i = 0;
  for (auto _ : state) {
    if (!error.empty()) break;
    state.PauseTiming();
    StagedTracks images(plain.file);
    error = stageMembers(images, *plain.ds, one, oneBlocks);
    state.ResumeTiming();
    unsigned long long got = 0;
    if (error.empty() && (i & 1) == 0) {
      error = libChange(lib, one, oneBlocks, false, computeS, writeS, got, tracks);
      if (error.empty()) error = plainWrite(plain.file.fileDescriptor, images, got, plainS);
      syncs = got;
    } else if (error.empty()) {
      error = plainWrite(plain.file.fileDescriptor, images, syncs, plainS);
      if (error.empty()) error = libChange(lib, one, oneBlocks, false, computeS, writeS, got, tracks);
      if (error.empty() && got != syncs) error = "the journal's sync count changed between runs";
    }
    ++i;
  }
  ::unlink(libPath.c_str());
  ::unlink(plainPath.c_str());
  if (!error.empty()) {
    state.SkipWithError(error.c_str());
    return;
  }
  const double n = static_cast<double>(state.iterations());
  const double libS = computeS + writeS;
  state.counters["lib_us"] = 1e6 * libS / n;
  state.counters["compute_us"] = 1e6 * computeS / n;
  state.counters["plain_us"] = 1e6 * plainS / n;
  state.counters["ratio"] = plainS > 0 ? libS / plainS : 0;
  state.counters["syncs"] = static_cast<double>(syncs);
  state.counters["tracks"] = static_cast<double>(tracks);
}

BENCHMARK(BM_EditLoadMembers)->ArgName("dense")->Arg(0)->Arg(1)->Iterations(2)->Unit(benchmark::kSecond)->UseRealTime();
BENCHMARK(BM_EditChangeMember)->Arg(200)->Arg(2000)->Iterations(20)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
