// Fuzz target: the data-set layer (scanVtoc, readDirectory, memberSize, the
// block and record readers) over a volume whose VTOC and data tracks are
// built from the input.
//
// The volume is an initialised D130 volume of 3 cylinders (10 heads, 4096-
// byte slots) made once per process; its label on 0/0 points at 0/1/1.
// Tracks 0/1 to 2/9 (volume tracks 1 to 29) are rebuilt for every input:
// each gets its home address, record zero, the input's records and the end-
// of-track marker, so the VTOC (0/1 and on) and every data set's blocks come
// from the input.
//
// Input:
//   byte 0      control: bit 0 sets verifyTracks on the volume file
//   then records to the end of the input, each:
//     advance (low 5 bits: tracks to move on before this record; the first
//     record goes on track 1 + advance), R, KL, DL (big-endian), then KL key
//     bytes and DL data bytes (zeros where the input ends). A record that
//     does not fit the rest of its track goes to the next one; one that fits
//     no track is dropped; records past track 29 are dropped.
//
// Checks, besides the sanitizers: every result is a documented code; data
// sets come sorted with their track counts consistent; aliases name a main
// member with the same TTR; decoded statistics are in range; every record
// handed out lies inside its block (or is a joined spanned record); and the
// raw blocks of every data set (not touching track 0/0) equal those of a
// model reading of the records placed, through extents mapped here.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "ckdfile/emulated_ckd_file.h"
#include "ckdfile/volume_format.h"
#include "common/byte_order.h"
#include "dataset/block_reader.h"
#include "dataset/pds_directory.h"
#include "dataset/record_reader.h"
#include "dataset/vtoc_scan.h"
#include "fuzz_support.h"
#include "support/pds_builder.h"
#include "support/volume_builder.h"

namespace {

using namespace ckdvol;

constexpr EmulatedCKDfile::CKDtype kType = EmulatedCKDfile::D130;
constexpr unsigned kHeads = 10;
constexpr size_t kSlot = 4096;
constexpr unsigned kTracks = 30;
constexpr size_t kMaxInput = 1 + (kTracks - 1) * kSlot;
constexpr size_t kMaxDataSets = 24;
constexpr size_t kMaxMembers = 16;
constexpr uint64_t kMaxRecords = 4000000;

struct ModelRecord {
  unsigned record, keyLength;
  std::vector<unsigned char> data;
};

struct Fixture {
  std::vector<unsigned char> image;
  ckdvol_fuzz::MemFile file;
  Fixture() {
    ckdvol_test::TestVolume vol(kType, 3);
    FUZZ_CHECK(vol.file().trackSlotSize == kSlot && vol.file().tracksPerCylinder == kHeads);
    vol.close();
    image = ckdvol_test::fileBytes(vol.path());
  }
};

// Rebuilds tracks 1 to 29 of `image` from the input; `model` gets what each
// track holds.
void buildTracks(ckdvol_fuzz::Input& in, std::vector<unsigned char>& image,
                 std::vector<std::vector<ModelRecord>>& model) {
  const size_t dataLimit = kSlot - kDataLimitFromEnd;
  size_t pos = 0;
  unsigned char* slot = nullptr;
  unsigned track = 0;
  auto start = [&](unsigned t) {
    track = t;
    slot = image.data() + kHeaderSize + t * kSlot;
    std::memset(slot, 0, kSlot);
    const uint16_t cyl = uint16_t(t / kHeads), head = uint16_t(t % kHeads);
    storeBe16(slot + 1, cyl);
    storeBe16(slot + 3, head);
    unsigned char* r0 = slot + kRecordZeroOffset;
    storeBe16(r0 + kCntCC, cyl);
    storeBe16(r0 + kCntHH, head);
    storeBe16(r0 + kCntDL, kRecordZeroDataLength);
    pos = kEmptyTrackEndMarker;
    std::memset(slot + pos, kEndMarkerByte, kEndMarkerSize);
  };
  for (unsigned t = 1; t < kTracks; ++t) start(t);
  model.assign(kTracks, {});
  start(1);
  while (in.remaining() > 0) {
    const unsigned advance = in.u8() & 0x1F;
    const uint8_t rec = in.u8(), kl = in.u8();
    const uint16_t dl = in.be16();
    size_t gotKey = 0, gotData = 0;
    const uint8_t* key = in.take(kl, gotKey);
    const uint8_t* data = in.take(dl, gotData);
    const size_t size = kCountSize + kl + size_t(dl);
    if (kEmptyTrackEndMarker + size > dataLimit) continue;
    unsigned next = track + advance;
    if (next != track || pos + size > dataLimit) {
      if (next == track) ++next;
      if (next >= kTracks) return;
      start(next);
    }
    unsigned char* c = slot + pos;
    storeBe16(c + kCntCC, uint16_t(track / kHeads));
    storeBe16(c + kCntHH, uint16_t(track % kHeads));
    c[kCntR] = rec;
    c[kCntKL] = kl;
    storeBe16(c + kCntDL, dl);
    std::memcpy(c + kCountSize, key, gotKey);
    std::memcpy(c + kCountSize + kl, data, gotData);
    ModelRecord m{rec, kl, std::vector<unsigned char>(c + kCountSize + kl, c + size)};
    model[track].push_back(m);
    pos += size;
    std::memset(slot + pos, kEndMarkerByte, kEndMarkerSize);
  }
}

// The model's blocks of `ds` from its start: the extents walked here with 10
// heads, each track's records until an EOF record. False when the data set
// touches track 0 (not rebuilt) or a track beyond the volume.
bool modelBlocks(const DataSetInfo& ds, const std::vector<std::vector<ModelRecord>>& model,
                 std::vector<const ModelRecord*>& out) {
  for (const Extent& e : ds.extents) {
    if (e.lowHead >= kHeads || e.highHead >= kHeads) continue;
    const uint64_t lo = uint64_t(e.lowCyl) * kHeads + e.lowHead;
    const uint64_t hi = uint64_t(e.highCyl) * kHeads + e.highHead;
    if (hi < lo) continue;
    if (lo == 0 || hi >= kTracks) return false;
    for (uint64_t t = lo; t <= hi; ++t) {
      for (const ModelRecord& r : model[t]) {
        if (r.data.empty()) return true;
        out.push_back(&r);
      }
    }
  }
  return true;
}

void checkRecords(RecordReader& reader, bool raw) {
  LogicalRecord r;
  uint64_t n = 0, bytes = 0;
  int rc;
  while ((rc = reader.next(r)) == kBlockRead) {
    FUZZ_CHECK(++n < kMaxRecords);
    FUZZ_CHECK(r.length <= kMaxSpannedRecord);
    ckdvol_fuzz::touch(r.data, r.length);
    ckdvol_fuzz::touch(r.key, r.keyLength);
    if (r.block.data != nullptr) {  // not a joined spanned record
      FUZZ_CHECK(r.length == 0 ||
                 (r.data >= r.block.data && r.data + r.length <= r.block.data + r.block.dataLength));
    }
    if (raw) {
      FUZZ_CHECK(r.data == r.block.data && r.length == r.block.dataLength);
      bytes += r.length;
    }
  }
  FUZZ_CHECK(rc == kBlockEnd || (rc >= kBlockDamagedDataSet && rc < 0) ||
             (rc >= kRecordBadLrecl && rc <= kRecordBadBlock));
  FUZZ_CHECK((rc < 0) == !reader.error().empty());
  if (raw) FUZZ_CHECK(bytes == reader.bytesRead());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1 || size > kMaxInput) return 0;
  static Fixture* fx = new Fixture();
  ckdvol_fuzz::Input in(data, size);
  const uint8_t control = in.u8();
  std::vector<unsigned char> image = fx->image;
  std::vector<std::vector<ModelRecord>> model;
  buildTracks(in, image, model);
  fx->file.assign(image);

  EmulatedCKDfile file;
  FUZZ_CHECK(file.open(fx->file.path(), true) == 0);
  file.verifyTracks = (control & 1) != 0;
  VtocInfo vtoc;
  std::string error;
  const int rc = scanVtoc(file, vtoc, error);
  FUZZ_CHECK(rc == kScanOk || rc == kScanNoLabel || rc == kScanVtocUnreadable || rc == kScanNoFormat4);
  FUZZ_CHECK((rc != kScanOk) == !error.empty());
  if (rc != kScanOk) return 0;
  FUZZ_CHECK(std::is_sorted(vtoc.dataSets.begin(), vtoc.dataSets.end(),
                            [](const DataSetInfo& a, const DataSetInfo& b) { return a.name < b.name; }));
  FUZZ_CHECK(vtoc.vtocFirstTrack <= vtoc.vtocLastTrack && vtoc.vtocLastTrack < kTracks);

  for (size_t i = 0; i < vtoc.dataSets.size() && i < kMaxDataSets; ++i) {
    const DataSetInfo& ds = vtoc.dataSets[i];
    uint64_t tracks = 0;
    for (const Extent& e : ds.extents) tracks += extentTracks(e, kHeads);
    FUZZ_CHECK(tracks == ds.tracksAllocated && ds.tracksUsed <= ds.tracksAllocated);
    FUZZ_CHECK(ds.extents.size() <= ds.extentCount && ds.name.size() <= 44);
    FUZZ_CHECK(findDataSet(vtoc, ds.name) != nullptr);

    BlockReader blocks(file, ds);
    RecordReader records(blocks, ds);
    checkRecords(records, false);
    blocks.startDataSet(false);
    RecordReader raw(blocks, ds, true);
    checkRecords(raw, true);

    // The blocks equal the model's wherever the data set is readable.
    std::vector<const ModelRecord*> expected;
    if (!file.verifyTracks && ds.damage.empty() && modelBlocks(ds, model, expected)) {
      blocks.startDataSet(false);
      Block b;
      size_t k = 0;
      int brc;
      while ((brc = blocks.next(b)) == kBlockRead) {
        FUZZ_CHECK(k < expected.size());
        const ModelRecord& m = *expected[k++];
        FUZZ_CHECK(b.record == m.record && b.keyLength == m.keyLength && b.dataLength == m.data.size());
        FUZZ_CHECK(std::memcmp(b.data, m.data.data(), m.data.size()) == 0);
      }
      FUZZ_CHECK(brc == kBlockEnd && k == expected.size());
    }

    if (!ds.partitioned()) continue;
    std::vector<MemberInfo> members;
    const int drc = readDirectory(file, ds, members, error);
    FUZZ_CHECK(drc == kDirectoryOk || drc == kDirectoryMalformed ||
               (drc >= kBlockDamagedDataSet && drc < 0));
    for (const MemberInfo& m : members) {
      FUZZ_CHECK(m.name.size() <= 8 && m.userData.size() == 2u * (m.indicator & 0x1F));
      if (!m.aliasOf.empty()) {
        const auto main = std::find_if(members.begin(), members.end(), [&](const MemberInfo& x) {
          return x.name == m.aliasOf && !x.alias && x.track == m.track && x.record == m.record;
        });
        FUZZ_CHECK(m.alias && main != members.end());
      }
      if (m.hasStatistics) {
        const MemberStatistics& s = m.statistics;
        FUZZ_CHECK(s.version <= 99 && s.modification <= 99 && s.changedHour <= 23 &&
                   s.changedMinute <= 59 && s.changedSecond <= 59 && s.created.day <= 366);
      }
    }
    for (size_t k = 0; k < members.size() && k < kMaxMembers; ++k) {
      MemberSize sz;
      const int src = memberSize(file, ds, members[k], sz, error);
      FUZZ_CHECK(src == 0 || src < 0);
      BlockReader member(file, ds);
      member.startAt(members[k].track, members[k].record);
      RecordReader reader(member, ds);
      checkRecords(reader, false);
    }
  }
  return 0;
}
