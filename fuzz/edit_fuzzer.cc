// Fuzz target: the editing layer (free space, allocation, the PDS editor,
// relabelling, StagedTracks) on a volume whose VTOC and data tracks come
// from the input. Every change is staged in memory; at the end the staged
// tracks are written over the in-memory volume file and scanned again.
//
// The volume is an initialised D130 volume of 3 cylinders (10 heads, 4096-
// byte slots) made once per process; its label on 0/0 points at 0/1/1.
// Tracks 0/1 to 2/9 (volume tracks 1 to 29) are rebuilt for every input as
// in dataset_fuzzer.cc.
//
// Input:
//   byte 0  control: bit 0 PO (else PS) for the allocation, bit 1 its unit
//           cylinders (else tracks), bit 2 placed at track `primary`, bit 3
//           replace the new member (else add it), bit 4 verifyTracks
//   byte 1  primary quantity of the allocation
//   byte 2  directory blocks of the allocation
//   byte 3  blocks of the member written into every PDS (low 5 bits)
//   then records to the end of the input, each: advance (low 5 bits: tracks
//   to move on; the first record goes on track 1 + advance), R, KL, DL
//   (big-endian), KL key bytes, DL data bytes (zeros where the input ends).
//   A record that does not fit the rest of its track goes to the next one;
//   one that fits no track is dropped; records past track 29 are dropped.
//
// Checks, besides the sanitizers: free extents are ascending, separate,
// inside the volume and add up to the free track count; an allocation
// takes only free tracks, as many as asked, in at most 5 extents; every
// refusal says why; a PDS editor's entries stay sorted by name;
// a member written and committed on a volume without overlapping extents
// is found again by a fresh editor over the staged tracks.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "ckdfile/emulated_ckd_file.h"
#include "ckdfile/volume_format.h"
#include "common/byte_order.h"
#include "dataset/pds_directory.h"
#include "dataset/vtoc_scan.h"
#include "edit/allocate.h"
#include "edit/free_space.h"
#include "edit/pds_edit.h"
#include "edit/relabel.h"
#include "edit/staged_tracks.h"
#include "fuzz_support.h"
#include "support/pds_builder.h"
#include "support/volume_builder.h"

namespace {

using namespace ckdvol;

constexpr EmulatedCKDfile::CKDtype kType = EmulatedCKDfile::D130;
constexpr unsigned kHeads = 10;
constexpr size_t kSlot = 4096;
constexpr unsigned kTracks = 30;
constexpr size_t kHeaderBytes = 4;
constexpr size_t kMaxInput = kHeaderBytes + (kTracks - 1) * kSlot;
constexpr size_t kMaxPds = 4;

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

// Rebuilds tracks 1 to 29 of `image` from the input.
void buildTracks(ckdvol_fuzz::Input& in, std::vector<unsigned char>& image) {
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
    pos += size;
    std::memset(slot + pos, kEndMarkerByte, kEndMarkerSize);
  }
}

bool isFree(const FreeSpace& fs, uint32_t track) {
  for (const TrackRun& r : fs.extents) {
    if (track >= r.first && track < r.end()) return true;
  }
  return false;
}

void checkFreeSpace(const FreeSpace& fs) {
  FUZZ_CHECK(fs.volumeTracks == kTracks && fs.heads == kHeads);
  uint64_t sum = 0;
  for (size_t i = 0; i < fs.extents.size(); ++i) {
    const TrackRun& r = fs.extents[i];
    FUZZ_CHECK(r.count > 0 && r.end() <= fs.volumeTracks);
    if (i > 0) FUZZ_CHECK(fs.extents[i - 1].end() < r.first);
    FUZZ_CHECK(!isFree(fs, 0) || r.first > 0);
    sum += r.count;
  }
  FUZZ_CHECK(sum == fs.freeTracks && fs.largestTracks <= fs.freeTracks);
}

void checkEntries(const PdsEditor& editor) {
  const std::vector<DirectoryEntry>& e = editor.entries();
  // (a directory read may hold one name twice; the editor keeps both)
  for (size_t i = 1; i < e.size(); ++i) FUZZ_CHECK(!(e[i].name < e[i - 1].name));
  for (const DirectoryEntry& x : e) FUZZ_CHECK(x.userData.size() == 2u * (x.indicator & 0x1F));
}

// The member blocks: `count` blocks of the data set's block size (kept to
// what a track holds), filled with a pattern.
std::vector<Bytes> memberBlocks(const DataSetInfo& ds, unsigned count) {
  size_t size = ds.blksize;
  if (size == 0 || size > 1600) size = 800;
  if (ds.lrecl > 0 && ds.lrecl <= size) size -= size % ds.lrecl;
  std::vector<Bytes> blocks;
  for (unsigned i = 0; i < count; ++i) blocks.push_back(Bytes(size, static_cast<unsigned char>(0xC1 + i)));
  return blocks;
}

void editPds(StagedTracks& staged, const DataSetInfo& ds, uint8_t control, unsigned blockCount, bool sound) {
  std::string error;
  {
    PdsEditor editor(staged, ds);
    if (!editor.load(error)) {
      FUZZ_CHECK(!error.empty());
      return;
    }
    checkEntries(editor);
    const std::string first = editor.entries().empty() ? std::string("NONE") : editor.entries().front().text();
    MemberWrite w;
    const Bytes stats(30, 0);
    if (!editor.writeMember("FUZZNEW", memberBlocks(ds, blockCount), stats, (control & 8) != 0, w, error)) {
      FUZZ_CHECK(!error.empty());
      return;
    }
    FUZZ_CHECK(w.blocks == blockCount && editor.find("fuzznew") != nullptr);
    if (first != "FUZZNEW" && !editor.remove(first, error)) FUZZ_CHECK(!error.empty());
    if (!editor.rename("FUZZNEW", "FUZZREN", error)) FUZZ_CHECK(!error.empty());
    if (!editor.addAlias("FUZZALI", "FUZZREN", error)) FUZZ_CHECK(!error.empty());
    checkEntries(editor);
    if (!editor.commit(error)) {
      FUZZ_CHECK(!error.empty());
      return;
    }
  }
  {
    PdsEditor editor(staged, ds);
    const bool loaded = editor.load(error);
    if (sound) FUZZ_CHECK(loaded && editor.find("FUZZREN") != nullptr);
    if (!loaded) return;
    CompressSummary summary;
    if (!editor.compress(summary, error)) {
      FUZZ_CHECK(!error.empty());
      return;
    }
    if (!editor.commit(error)) FUZZ_CHECK(!error.empty());
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < kHeaderBytes || size > kMaxInput) return 0;
  static Fixture* fx = new Fixture();
  ckdvol_fuzz::Input in(data, size);
  const uint8_t control = in.u8(), primary = in.u8(), dirblks = in.u8();
  const unsigned blockCount = in.u8() & 0x1F;
  std::vector<unsigned char> image = fx->image;
  buildTracks(in, image);
  fx->file.assign(image);

  EmulatedCKDfile file;
  FUZZ_CHECK(file.open(fx->file.path(), false) == 0);
  file.verifyTracks = (control & 16) != 0;
  VtocInfo vtoc;
  std::string error;
  if (scanVtoc(file, vtoc, error) != kScanOk) return 0;

  const FreeSpace fs = freeSpaceOf(vtoc);
  checkFreeSpace(fs);

  StagedTracks staged(file);
  AllocationRequest req;
  req.name = "FUZZ.NEW";
  req.dsorg = (control & 1) ? kDsorgPO : kDsorgPS;
  req.cylinders = (control & 2) != 0;
  req.primary = primary;
  req.directoryBlocks = (control & 1) ? dirblks : 0;
  req.placed = (control & 4) != 0;
  req.atTrack = primary;
  AllocationResult result;
  if (allocateDataSet(staged, vtoc, req, result, error)) {
    FUZZ_CHECK(result.extents.size() <= kMaxAllocationExtents);
    FUZZ_CHECK(result.tracks == (req.cylinders ? primary * kHeads : primary));
    uint32_t tracks = 0;
    for (const Extent& e : result.extents) {
      const uint32_t lo = uint32_t(e.lowCyl) * kHeads + e.lowHead, hi = uint32_t(e.highCyl) * kHeads + e.highHead;
      FUZZ_CHECK(lo <= hi && hi < kTracks);
      for (uint32_t t = lo; t <= hi; ++t) FUZZ_CHECK(isFree(fs, t));
      tracks += hi - lo + 1;
    }
    FUZZ_CHECK(tracks == result.tracks);
  } else {
    // A refused allocation can leave DSCBs staged (a full VTOC found while
    // the Format-5 DSCBs are rewritten); the tool drops the change, so do we.
    FUZZ_CHECK(!error.empty());
    staged.clear();
  }

  // A volume where no extents overlap or run off the volume, and the new
  // data set went into free space: a member written must be found again.
  const bool sound = fs.notes.empty() && vtoc.notes.empty();
  size_t edited = 0;
  for (const DataSetInfo& ds : vtoc.dataSets) {
    if (!ds.partitioned() || edited++ == kMaxPds) continue;
    editPds(staged, ds, control, blockCount, sound && ds.damage.empty());
  }

  const std::string owner = "FUZZ OWNER";
  if (!relabelVolume(staged, vtoc, "FUZZ01", &owner, error)) FUZZ_CHECK(!error.empty());

  error = staged.writeAll();
  VtocInfo again;
  if (error.empty() && scanVtoc(file, again, error) == kScanOk) {
    for (const DataSetInfo& ds : again.dataSets) {
      if (!ds.partitioned()) continue;
      std::vector<MemberInfo> members;
      readDirectory(file, ds, members, error);
    }
  }
  file.close();
  return 0;
}
