// The data-set layer against plain I/O on the same tracks, in one run.
//
// Members: a D600 volume of 280 cylinders holds LOAD.PDS (RECFM FB, LRECL 80,
// BLKSIZE 27920) with 2,000 members of 100,000 bytes (1,250 records; blocks
// of 27920, 27920, 27920 and 16240 bytes, two blocks a track), 200 MB in all,
// and a directory of 334 blocks with statistics in every entry. Each
// iteration reads the directory (readDirectory) and every member record by
// record (BlockReader from the member's TTR, RecordReader), summing one byte
// of each record; the plain reader preads every track of the data set's
// extent up to the last member once, in order, walks its count fields and
// cuts each member block into its 80-byte records, summing the same byte. Both are timed separately (CPU time of the
// thread, page-cache reads count), alternating which goes first:
//   members_ms, plain_ms, ratio = members / plain   (target: at most 1.3)
// VTOC: scanVtoc of a VTOC holding 5,000 and 500 Format-1 DSCBs (the
// Format-4 DSCB's extent covers exactly the tracks written):
//   scan5000_ms (target: below 50), scan500_ms, scaling = 5000 / 500
//   (linear growth gives about 10), plainScan5000_ms (pread of the tracks).
// The volumes live in a scratch directory (CKDVOL_TEST_TMP, TMPDIR or /tmp)
// and are removed at exit.
#include <fcntl.h>
#include <time.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "common/byte_order.h"
#include "dataset/block_reader.h"
#include "dataset/pds_directory.h"
#include "dataset/record_reader.h"
#include "dataset/vtoc_scan.h"
#include "support/volume_builder.h"

namespace {

using namespace ckdvol_test;
using Bytes = std::vector<unsigned char>;

constexpr int kMembers = 2000;
constexpr int kMemberBytes = 100000;
constexpr int kBlock = 27920;
constexpr int kCylinders = 280;
constexpr int kHeads = 15;
constexpr int kDirectoryTracks = 2;  // 334 blocks of 272 bytes, 208 a track

double cpuMillis() {
  timespec ts;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
  return static_cast<double>(ts.tv_sec) * 1e3 + static_cast<double>(ts.tv_nsec) / 1e6;
}

Cchhr trackAt(int relTrack) {  // the extent starts at 1/0
  return Cchhr{static_cast<uint32_t>(1 + relTrack / kHeads), static_cast<uint16_t>(relTrack % kHeads), 0};
}

struct PdsVolume {
  TestVolume vol{EmulatedCKDfile::D600, kCylinders};
  int tracks = 0;  // relative tracks in use
  ckdvol::VtocInfo vtoc;
  bool ok = false;

  PdsVolume() {
    // Members from relative track 2 on, two blocks a track, each member's
    // EOF record after its last block.
    const Bytes statsTail = {0x00, 0x00, 0x01, 0x24, 0x03, 0x2F, 0x01, 0x25, 0x36, 0x5F, 0x13,
                             0x45, 0x04, 0xE2, 0x04, 0xE2, 0x00, 0x00};
    std::vector<Bytes> entries;
    std::vector<Record> onTrack;
    int track = kDirectoryTracks;
    int used = 0;
    auto place = [&](Record r) {
      const int size = 8 + static_cast<int>(r.data.size());
      if (used + size > 56664 - 24) {
        const Cchhr t = trackAt(track++);
        vol.setRecords(t.cyl, t.head, onTrack);
        onTrack.clear();
        used = 0;
      }
      r.rec = static_cast<uint8_t>(onTrack.size() + 1);
      used += size;
      onTrack.push_back(r);
      return std::make_pair(track, r.rec);
    };
    for (int m = 0; m < kMembers; ++m) {
      char name[9];
      std::snprintf(name, sizeof name, "M%07d", m);
      Bytes entry = ebcdicPadded(name, 8);
      std::pair<int, uint8_t> first{0, 0};
      for (int left = kMemberBytes; left > 0; left -= kBlock) {
        auto at = place(dataRecord(0, Bytes(left < kBlock ? left : kBlock, static_cast<unsigned char>(m))));
        if (left == kMemberBytes) first = at;
      }
      place(eofRecord(0));
      entry.insert(entry.end(), {static_cast<uint8_t>(first.first >> 8), static_cast<uint8_t>(first.first),
                                 first.second, 0x0F, 0x01, 0x00});
      entry.insert(entry.end(), statsTail.begin(), statsTail.end());
      const Bytes user = ebcdicPadded("BENCH", 8);
      entry.insert(entry.end(), user.begin(), user.end());
      entry.insert(entry.end(), {0x00, 0x00});
      entries.push_back(entry);
    }
    const Cchhr last = trackAt(track);
    vol.setRecords(last.cyl, last.head, onTrack);
    tracks = track + 1;
    // The directory: 6 entries of 42 bytes a block, the end entry, the EOF.
    entries.push_back(Bytes{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0, 0, 0, 0});
    std::vector<Record> dir[kDirectoryTracks];
    for (size_t i = 0, block = 0; i < entries.size(); ++block) {
      Bytes data(256, 0);
      size_t pos = 2;
      for (; i < entries.size() && pos + entries[i].size() <= 256; pos += entries[i++].size()) {
        std::copy(entries[i].begin(), entries[i].end(), data.begin() + static_cast<long>(pos));
      }
      ckdvol::storeBe16(data.data(), static_cast<uint16_t>(pos));
      std::vector<Record>& t = dir[block / 208];
      t.push_back(keyedRecord(static_cast<uint8_t>(t.size() + 1), Bytes(8, 0), data));
    }
    dir[kDirectoryTracks - 1].push_back(eofRecord(static_cast<uint8_t>(dir[kDirectoryTracks - 1].size() + 1)));
    for (int t = 0; t < kDirectoryTracks; ++t) vol.setRecords(trackAt(t).cyl, trackAt(t).head, dir[t]);
    DataSetLayout ds;
    ds.name = "LOAD.PDS";
    ds.dsorg = 0x0200;
    ds.recfm = 0x90;
    ds.lrecl = 80;
    ds.blksize = kBlock;
    ds.extents = {{1, 0, kCylinders - 1, kHeads - 1}};
    vol.writeVtoc({format1Dscb(ds)});
    std::string error;
    ok = ckdvol::scanVtoc(vol.file(), vtoc, error) == 0 && vtoc.dataSets.size() == 1;
  }
};

struct VtocVolume {
  TestVolume vol{EmulatedCKDfile::D600, 3};
  int firstTrack = 1, lastTrack = 1;
  explicit VtocVolume(int n) {
    std::vector<Dscb> dscbs;
    for (int i = 0; i < n; ++i) {
      DataSetLayout ds;
      ds.name = "BENCH.DATA.SET" + std::to_string(i);
      ds.extents = {ExtentSpec{2, 0, 2, 14}};
      dscbs.push_back(format1Dscb(ds));
    }
    const Cchhr last = vol.writeVtoc(dscbs).back();
    lastTrack = static_cast<int>(last.cyl * kHeads + last.head);
    Bytes extent = {0x01, 0x00, 0x00, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0x00};  // 0/1 ..
    ckdvol::storeBe16(extent.data() + 6, static_cast<uint16_t>(last.cyl));      //   last track
    ckdvol::storeBe16(extent.data() + 8, last.head);
    vol.patchDscb(vol.vtocStart(), 105, extent);
  }
};

// Reads every member record by record; false when anything fails.
bool readMembers(PdsVolume& p, uint64_t& sum) {
  EmulatedCKDfile& f = p.vol.file();
  const ckdvol::DataSetInfo& ds = p.vtoc.dataSets[0];
  std::vector<ckdvol::MemberInfo> members;
  std::string error;
  if (ckdvol::readDirectory(f, ds, members, error) != 0 || members.size() != kMembers) return false;
  ckdvol::BlockReader blocks(f, ds);
  for (const ckdvol::MemberInfo& m : members) {
    blocks.startAt(m.track, m.record);
    ckdvol::RecordReader records(blocks, ds);
    ckdvol::LogicalRecord r;
    int n = 0, rc;
    while ((rc = records.next(r)) == 1) {
      sum += r.data[0];
      ++n;
    }
    if (rc != 0 || n != kMemberBytes / 80) return false;
  }
  return true;
}

// The plain reader: every track of the data set in use, once, in order.
bool readPlain(PdsVolume& p, int fd, std::vector<unsigned char>& slot, uint64_t& sum) {
  for (int t = 0; t < p.tracks; ++t) {
    const Cchhr at = trackAt(t);
    const off_t offset = 512 + (static_cast<off_t>(at.cyl) * kHeads + at.head) * static_cast<off_t>(slot.size());
    if (::pread(fd, slot.data(), slot.size(), offset) != static_cast<ssize_t>(slot.size())) return false;
    size_t pos = 5 + 8 + 8;  // home address, record zero
    while (pos + 8 <= slot.size() - 16 && slot[pos] != 0xFF) {
      const size_t kl = slot[pos + 5], dl = ckdvol::loadBe16(&slot[pos + 6]);
      if (dl > 0 && kl == 0) {  // a member block: its 80-byte records
        for (size_t at = pos + 8; at < pos + 8 + dl; at += 80) sum += slot[at];
      }
      pos += 8 + kl + dl;
    }
  }
  return true;
}

void BM_DataSetLayer(benchmark::State& state) {
  static PdsVolume pds;
  static VtocVolume small(500), large(5000);
  if (!pds.ok) {
    state.SkipWithError("cannot set up the PDS volume");
    return;
  }
  const int fd = ::open(pds.vol.path().c_str(), O_RDONLY);
  const int vtocFd = ::open(large.vol.path().c_str(), O_RDONLY);
  std::vector<unsigned char> slot(pds.vol.file().trackSlotSize);
  double lib = 0, plain = 0, scanSmall = 0, scanLarge = 0, plainScan = 0;
  bool ok = fd >= 0 && vtocFd >= 0;
  uint64_t sumLib = 0, sumPlain = 0;
  size_t i = 0;
  for (auto _ : state) {
    for (int k = 0; k < 2; ++k) {
      const bool libFirst = ((i + k) & 1) == 0;
      const double t0 = cpuMillis();
      ok = ok && (libFirst ? readMembers(pds, sumLib) : readPlain(pds, fd, slot, sumPlain));
      const double t1 = cpuMillis();
      (libFirst ? lib : plain) += t1 - t0;
    }
    ++i;
    for (VtocVolume* v : {&small, &large}) {
      ckdvol::VtocInfo info;
      std::string error;
      const double t0 = cpuMillis();
      ok = ok && ckdvol::scanVtoc(v->vol.file(), info, error) == 0;
      const double t1 = cpuMillis();
      (v == &small ? scanSmall : scanLarge) += t1 - t0;
      ok = ok && info.dataSets.size() == (v == &small ? 500u : 5000u);
    }
    const double p0 = cpuMillis();
    for (int t = large.firstTrack; t <= large.lastTrack && ok; ++t) {
      ok = ::pread(vtocFd, slot.data(), slot.size(),
                   512 + static_cast<off_t>(t) * static_cast<off_t>(slot.size())) > 0;
    }
    plainScan += cpuMillis() - p0;
  }
  if (fd >= 0) ::close(fd);
  if (vtocFd >= 0) ::close(vtocFd);
  if (!ok || sumLib != sumPlain) {
    state.SkipWithError("a read failed or the two readers disagree");
    return;
  }
  const double n = static_cast<double>(state.iterations());
  state.counters["members_ms"] = lib / n;
  state.counters["plain_ms"] = plain / n;
  state.counters["ratio"] = plain > 0 ? lib / plain : 0;
  state.counters["scan5000_ms"] = scanLarge / n;
  state.counters["scan500_ms"] = scanSmall / n;
  state.counters["scaling"] = scanSmall > 0 ? scanLarge / scanSmall : 0;
  state.counters["plainScan5000_ms"] = plainScan / n;
}

BENCHMARK(BM_DataSetLayer)->Unit(benchmark::kMillisecond)->Iterations(8);

}  // namespace

BENCHMARK_MAIN();
