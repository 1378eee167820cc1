// Member read and replace against plain I/O on the same track slots.
//
// A 3-cylinder D600 volume holds TEST.PDS (LRECL 80, BLKSIZE 3120) with the
// member BIG: 10,000 records in 257 blocks of up to 39 records, on 15
// consecutive tracks. Each iteration runs the library operation and the plain
// reader/writer once each, alternating which goes first, timed separately:
//   Read:    readMember("BIG") (tracks read, blocks cut into 10,000 records,
//            reusing the strings of the previous read) vs pread of the
//            member's slots, one slot per call.
//   ReadFresh: the same, with the previous records deleted (untimed) first,
//            so that every record string is allocated anew.
//   Replace: replaceMember("BIG") with 10,000 records given once (it reads
//            the member, then reads, rewrites and writes back every track)
//            vs pread + pwrite of each of the member's slots.
// Counters: lib_us and plain_us per operation, ratio = lib / plain
// (target: at most 1.5). The volume lives in a scratch directory
// (CKDVOL_TEST_TMP, TMPDIR or /tmp) and is removed at exit.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "pds/basic_partitioned_access_method.h"
#include "support/pds_builder.h"
#include "support/volume_builder.h"
#include "volume/dsk_volume.h"

namespace {

using namespace ckdvol_test;
using Bpam = BasicPartionedAccessMethod;

constexpr int kRecords = 10000;
constexpr int kLrecl = 80;
constexpr int kBlksize = 3120;

struct Setup {
  TestVolume vol;
  DskVolume dsk;
  std::unique_ptr<Bpam> pds;
  std::vector<off_t> slots;  // file offsets of the member's tracks
  unsigned slotSize = 0;
  bool ok = false;

  Setup() {
    DataSetLayout ds = pdsDataSet("TEST.PDS", kLrecl, kBlksize, {{1, 0, 2, 14}});
    vol.writeVtoc({format1Dscb(ds)});
    writePds(vol, ds.extents,
             {{"BIG", textBlocks("R", kRecords, kLrecl, kBlksize / kLrecl), {}},
              {"SMALL", textBlocks("S", 10, kLrecl, 39), {}}});
    EmulatedCKDfile& f = vol.file();
    slotSize = f.trackSlotSize;
    pds.reset(new Bpam(dsk));
    if (dsk.open(&f) != 0 || pds->openDataset("TEST.PDS") != 0 || pds->readMember("BIG") != 0 ||
        pds->records.count != kRecords) {
      return;
    }
    // The member runs from its first track to the one holding its EOF
    // record, which is the current track after the read.
    int cyl, head;
    if (!pds->tt2cchh(pds->memberTrack, cyl, head)) return;
    for (unsigned c = static_cast<unsigned>(cyl), h = static_cast<unsigned>(head);;) {
      slots.push_back(static_cast<off_t>(f.getOffset(c, static_cast<unsigned short>(h), 0, true)));
      if (c == f.currentCyl && h == f.currentHead) break;
      if (++h == f.tracksPerCylinder) {
        h = 0;
        ++c;
      }
      if (slots.size() > 100) return;
    }
    for (int i = 0; i < kRecords; ++i) {
      char text[16];
      int n = std::snprintf(text, sizeof text, "NEW%07d", i);
      if (pds->setRecord(i, text, n) != 0) return;
    }
    ok = true;
  }
};

Setup& setup() {
  static Setup s;
  return s;
}

using Clock = std::chrono::steady_clock;

double micros(Clock::time_point a, Clock::time_point b) {
  return std::chrono::duration<double, std::micro>(b - a).count();
}

// The plain side: every slot read (and, for a replace, written back).
bool plainPass(int fd, const std::vector<off_t>& slots, std::vector<unsigned char>& buf,
               bool write) {
  bool ok = true;
  for (off_t off : slots) {
    ok = ok && ::pread(fd, buf.data(), buf.size(), off) == static_cast<ssize_t>(buf.size());
    if (write)
      ok = ok && ::pwrite(fd, buf.data(), buf.size(), off) == static_cast<ssize_t>(buf.size());
  }
  benchmark::DoNotOptimize(buf[0]);
  return ok;
}

enum Mode { kRead, kReadFresh, kReplace };

// Deletes the records of the last read, so that the next read allocates
// every string anew (outside the timed regions).
void dropRecords(Bpam& pds) {
  for (int i = 0; i < pds.records.capacity; ++i) {
    delete pds.records.slots[i];
    pds.records.slots[i] = nullptr;
  }
  pds.records.clear();
}

void memberVsPlain(benchmark::State& state, Mode mode) {
  const bool replace = mode == kReplace;
  Setup& s = setup();
  if (!s.ok) {
    state.SkipWithError("cannot set up the volume");
    return;
  }
  const int fd = ::open(s.vol.path().c_str(), O_RDWR);
  std::vector<unsigned char> buf(s.slotSize);
  double libUs = 0, plainUs = 0;
  bool failed = fd < 0;
  size_t i = 0;
  for (auto _ : state) {
    Clock::time_point t0, t1, t2;
    int rc;
    bool plainOk;
    if (mode == kReadFresh) dropRecords(*s.pds);
    auto lib = [&] { return replace ? s.pds->replaceMember("BIG") : s.pds->readMember("BIG"); };
    if (i & 1) {
      t0 = Clock::now();
      rc = lib();
      t1 = Clock::now();
      plainOk = plainPass(fd, s.slots, buf, replace);
      t2 = Clock::now();
      libUs += micros(t0, t1);
      plainUs += micros(t1, t2);
    } else {
      t0 = Clock::now();
      plainOk = plainPass(fd, s.slots, buf, replace);
      t1 = Clock::now();
      rc = lib();
      t2 = Clock::now();
      plainUs += micros(t0, t1);
      libUs += micros(t1, t2);
    }
    failed = failed || rc != 0 || !plainOk || s.pds->records.count != kRecords;
    ++i;
  }
  if (fd >= 0) ::close(fd);
  if (failed) {
    state.SkipWithError("the library or the plain side failed");
    return;
  }
  const double n = static_cast<double>(state.iterations());
  state.counters["lib_us"] = libUs / n;
  state.counters["plain_us"] = plainUs / n;
  state.counters["ratio"] = plainUs > 0 ? libUs / plainUs : 0;
  state.counters["tracks"] = static_cast<double>(s.slots.size());
}

void BM_PdsReadMember(benchmark::State& state) { memberVsPlain(state, kRead); }
void BM_PdsReadMemberFresh(benchmark::State& state) { memberVsPlain(state, kReadFresh); }
void BM_PdsReplaceMember(benchmark::State& state) { memberVsPlain(state, kReplace); }

BENCHMARK(BM_PdsReadMember)->MinTime(1.0);
BENCHMARK(BM_PdsReadMemberFresh)->MinTime(1.0);
BENCHMARK(BM_PdsReplaceMember)->MinTime(1.0);

}  // namespace

BENCHMARK_MAIN();
