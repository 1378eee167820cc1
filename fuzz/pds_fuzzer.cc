// Fuzz target: BasicPartionedAccessMethod over arbitrary directory and member
// blocks: openDataset, readMember of the members the directory names (and of
// one name from the input), then replaceMember of one member with the same
// number of records, read back and compared.
//
// The volume is an initialised D130 volume of 3 cylinders (10 heads, 4096-byte
// slots) made once per process; its VTOC holds the Format-1 DSCB of the
// partitioned data set FUZZ.PDS at 0/1/2 and a Format-3 DSCB at 0/1/3. Both
// DSCBs are rewritten from the input for every run, and the tracks of
// cylinders 1 and 2 (relative to the volume: tracks 10 to 29) are rebuilt
// from the input's records: each track gets its home address, record zero,
// the records in input order and the end-of-track marker.
//
// Input:
//   byte 0      control: bit 0 replaces a member and reads it back, bit 1
//               sets verifyTracks once the volume is open (so a track that
//               fails verification ends walks and makes reads fail)
//   bytes 1-2   BLKSIZE, bytes 3-4 LRECL (big-endian), byte 5 RECFM,
//   bytes 6-7   DSORG (big-endian), byte 8 the number of extents (raw)
//   bytes 9-20  six extents, (low, high) track numbers each, taken modulo 20
//               over tracks 10 to 29; the first three go into the Format-1
//               DSCB, the rest into the Format-3 DSCB
//   bytes 21-36 a member name to read (ASCII, NUL-terminated at 16)
//   then records to the end of the input, each:
//     control (bit 0: start on the next track; bit 1: the count field names
//     the next cylinder instead of the track's own), R, KL, DL (big-endian),
//     then KL key bytes and DL data bytes (zeros where the input ends).
//     A record that does not fit the rest of its track goes to the next one;
//     one that fits no track is dropped.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "ckdfile/emulated_ckd_file.h"
#include "ckdfile/volume_format.h"
#include "common/byte_order.h"
#include "common/data_translator.h"
#include "fuzz_support.h"
#include "pds/basic_partitioned_access_method.h"
#include "support/pds_builder.h"
#include "support/volume_builder.h"
#include "volume/dsk_volume.h"

namespace {

using ckdvol_test::Cchhr;
using ckdvol_test::Dscb;
using ckdvol_test::ExtentSpec;

constexpr EmulatedCKDfile::CKDtype kType = EmulatedCKDfile::D130;
constexpr int kCylinders = 3;
constexpr unsigned kHeads = 10;
constexpr size_t kSlot = 4096;
constexpr unsigned kFirstDataTrack = 10;
constexpr unsigned kDataTracks = 20;
constexpr size_t kPrefix = 37;
constexpr size_t kMaxInput = kPrefix + kDataTracks * kSlot;
constexpr int kMaxMembersRead = 8;
constexpr int kMaxRecordsReplaced = 4000;
const char kDataSetName[] = "FUZZ.PDS";

// File offset of slot `track` (relative to the volume).
size_t slotOffset(unsigned track) { return ckdvol::kHeaderSize + static_cast<size_t>(track) * kSlot; }

struct Fixture {
  std::vector<unsigned char> image;  // the volume file with the VTOC in place
  size_t f1Offset = 0;               // file offsets of the two DSCB images
  size_t f3Offset = 0;
  Cchhr f3At;
  ckdvol_fuzz::MemFile file;

  Fixture() {
    ckdvol_test::TestVolume vol(kType, kCylinders);
    FUZZ_CHECK(vol.file().trackSlotSize == kSlot && vol.file().tracksPerCylinder == kHeads);
    std::vector<Cchhr> at = vol.writeVtoc({ckdvol_test::emptyDscb(), ckdvol_test::emptyDscb()});
    f3At = at[1];
    f1Offset = dscbOffset(vol.file(), at[0]);
    f3Offset = dscbOffset(vol.file(), at[1]);
    vol.close();
    image = ckdvol_test::fileBytes(vol.path());
  }

  static size_t dscbOffset(EmulatedCKDfile& f, Cchhr a) {
    FUZZ_CHECK(f.readTrack(a.cyl, a.head, 0) == 0);
    const void* ref = f.searchRecord(nullptr, a.cyl, a.head, a.rec);
    const unsigned char* key = f.getRefKey(ref);
    FUZZ_CHECK(key != nullptr && f.getRefKL(ref) == 44 && f.getRefDL(ref) == 96);
    return static_cast<size_t>(f.getOffset(a.cyl, a.head, 0, true)) + static_cast<size_t>(key - f.trackBuffer);
  }
};

ExtentSpec extentOf(uint8_t lo, uint8_t hi) {
  const unsigned l = kFirstDataTrack + lo % kDataTracks;
  const unsigned h = kFirstDataTrack + hi % kDataTracks;
  ExtentSpec e;
  e.loCyl = l / kHeads;
  e.loHead = static_cast<uint16_t>(l % kHeads);
  e.hiCyl = h / kHeads;
  e.hiHead = static_cast<uint16_t>(h % kHeads);
  return e;
}

// Lays the input's records onto tracks 10 to 29 of `image`.
void buildDataTracks(ckdvol_fuzz::Input& in, std::vector<unsigned char>& image) {
  const size_t dataLimit = kSlot - ckdvol::kDataLimitFromEnd;
  unsigned track = kFirstDataTrack;
  size_t pos = 0;
  unsigned char* slot = nullptr;
  auto startTrack = [&](unsigned t) {
    slot = image.data() + slotOffset(t);
    std::memset(slot, 0, kSlot);
    const uint16_t cyl = static_cast<uint16_t>(t / kHeads), head = static_cast<uint16_t>(t % kHeads);
    slot[0] = 0;
    ckdvol::storeBe16(slot + 1, cyl);
    ckdvol::storeBe16(slot + 3, head);
    unsigned char* r0 = slot + ckdvol::kRecordZeroOffset;
    ckdvol::storeBe16(r0 + ckdvol::kCntCC, cyl);
    ckdvol::storeBe16(r0 + ckdvol::kCntHH, head);
    r0[ckdvol::kCntR] = 0;
    r0[ckdvol::kCntKL] = 0;
    ckdvol::storeBe16(r0 + ckdvol::kCntDL, ckdvol::kRecordZeroDataLength);
    pos = ckdvol::kEmptyTrackEndMarker;
    std::memset(slot + pos, ckdvol::kEndMarkerByte, ckdvol::kEndMarkerSize);
  };
  for (unsigned t = kFirstDataTrack; t < kFirstDataTrack + kDataTracks; ++t) startTrack(t);
  startTrack(track);
  while (in.remaining() > 0) {
    const uint8_t control = in.u8();
    const uint8_t rec = in.u8();
    const uint8_t kl = in.u8();
    const uint16_t dl = in.be16();
    const size_t size = ckdvol::kCountSize + kl + static_cast<size_t>(dl);
    size_t gotKey = 0, gotData = 0;
    const uint8_t* key = in.take(kl, gotKey);
    const uint8_t* data = in.take(dl, gotData);
    if (ckdvol::kEmptyTrackEndMarker + size > dataLimit) continue;  // fits no track
    if ((control & 1) != 0 || pos + size > dataLimit) {
      if (++track == kFirstDataTrack + kDataTracks) return;
      startTrack(track);
    }
    unsigned char* c = slot + pos;
    const uint16_t cyl = static_cast<uint16_t>(track / kHeads + ((control & 2) != 0 ? 1 : 0));
    ckdvol::storeBe16(c + ckdvol::kCntCC, cyl);
    ckdvol::storeBe16(c + ckdvol::kCntHH, static_cast<uint16_t>(track % kHeads));
    c[ckdvol::kCntR] = rec;
    c[ckdvol::kCntKL] = kl;
    ckdvol::storeBe16(c + ckdvol::kCntDL, dl);
    std::memcpy(c + ckdvol::kCountSize, key, gotKey);  // the rest stays zero
    std::memcpy(c + ckdvol::kCountSize + kl, data, gotData);
    pos += size;
    std::memset(slot + pos, ckdvol::kEndMarkerByte, ckdvol::kEndMarkerSize);
  }
}

// The records of the member last read, as byte strings.
std::vector<std::string> recordsOf(const BasicPartionedAccessMethod& pds) {
  std::vector<std::string> out;
  for (int i = 0; i < pds.records.count; ++i) {
    const RexxString* r = pds.records.get(i);
    FUZZ_CHECK(r != nullptr);
    out.emplace_back(r->text(), static_cast<size_t>(r->length()));
  }
  return out;
}

// ---- an independent reading of the data set, for comparison ------------------
//
// A second, read-only volume file object walks the same records with the
// library's positioning operations (fuzzed on their own by track_walk), but
// every block is copied into a buffer of exactly its length and parsed here,
// so an entry or record that the library takes from beyond a block shows as
// a difference even where the bytes behind the block still lie inside the
// track buffer.

struct ModelEntry {
  char name[12];
  uint16_t track;
  uint8_t record;
  uint8_t indicators;
  unsigned char userData[62];
};

// The records from cylinder/head/record on, with track crossing, as long as
// `accept(data length)` holds; each record's data copied out.
template <class Accept>
std::vector<std::vector<unsigned char>> modelBlocks(const char* path, bool verify, int cyl, int head,
                                                    int rec, Accept accept) {
  std::vector<std::vector<unsigned char>> blocks;
  EmulatedCKDfile g;
  FUZZ_CHECK(g.open(path, true) == 0);
  g.verifyTracks = verify;
  if (g.readTrack(static_cast<unsigned>(cyl), static_cast<unsigned short>(head), 0) != 0) return blocks;
  const void* ref = g.searchRecord(nullptr, static_cast<unsigned>(cyl), static_cast<unsigned short>(head),
                                   static_cast<unsigned char>(rec));
  while (ref != nullptr) {
    const int dl = g.getRefDL(ref);
    const unsigned char* d = g.getRefData(ref);
    if (d == nullptr || dl <= 0 || !accept(dl)) break;
    blocks.emplace_back(d, d + dl);
    ref = g.locateNext(ref, true);
  }
  return blocks;
}

// The directory entries of the data set whose first extent starts at
// cylinder/head: blocks of 256 bytes from record 1 on; in each, entries while
// the bytes-used count lasts, up to the end entry, never past the block.
std::vector<ModelEntry> modelDirectory(const char* path, bool verify, int cyl, int head) {
  std::vector<ModelEntry> entries;
  for (const std::vector<unsigned char>& blk :
       modelBlocks(path, verify, cyl, head, 1, [](int dl) { return dl == 256; })) {
    int used = ((blk[0] << 8) | blk[1]) - 2;
    size_t pos = 2;
    while (used > 0) {
      if (pos + 12 > blk.size()) break;
      if (std::all_of(blk.begin() + pos, blk.begin() + pos + 8, [](unsigned char c) { return c == 0xFF; })) break;
      const size_t length = 12 + 2 * static_cast<size_t>(blk[pos + 11] & 0x1F);
      if (pos + length > blk.size()) break;
      ModelEntry e;
      std::memset(&e, 0, sizeof e);
      Xlater.copyE2A(e.name, &blk[pos], 8);
      for (int i = 11; i >= 0 && (e.name[i] == ' ' || e.name[i] == '\0'); --i) e.name[i] = '\0';
      e.track = static_cast<uint16_t>((blk[pos + 8] << 8) | blk[pos + 9]);
      e.record = blk[pos + 10];
      e.indicators = blk[pos + 11];
      std::memcpy(e.userData, &blk[pos + 12], length - 12);
      entries.push_back(e);
      pos += length;
      used -= static_cast<int>(length);
    }
  }
  return entries;
}

void checkDirectory(const BasicPartionedAccessMethod& pds, const std::vector<ModelEntry>& model) {
  FUZZ_CHECK(pds.directory.count == static_cast<int>(model.size()));
  for (size_t i = 0; i < model.size(); ++i) {
    const BasicPartionedAccessMethod::DirEnt* e = pds.directory.get(static_cast<int>(i));
    FUZZ_CHECK(e != nullptr);
    FUZZ_CHECK(std::memcmp(e->name, model[i].name, sizeof e->name) == 0);
    FUZZ_CHECK(e->track == model[i].track && e->record == model[i].record);
    FUZZ_CHECK(e->indicators == model[i].indicators);
    FUZZ_CHECK(std::memcmp(e->userData, model[i].userData, sizeof e->userData) == 0);
  }
}

// The logical records of the member read last, from its first block on.
std::vector<std::string> modelMember(const char* path, bool verify, const BasicPartionedAccessMethod& pds) {
  std::vector<std::string> records;
  int cyl, head;
  if (!pds.tt2cchh(pds.memberTrack, cyl, head)) return records;
  const int lrecl = pds.recordLength, blksize = pds.blockSize;
  for (const std::vector<unsigned char>& blk :
       modelBlocks(path, verify, cyl, head, pds.memberRecord,
                   [&](int dl) { return dl <= blksize && dl % lrecl == 0; })) {
    for (size_t at = 0; at < blk.size(); at += static_cast<size_t>(lrecl)) {
      records.emplace_back(reinterpret_cast<const char*>(&blk[at]), static_cast<size_t>(lrecl));
    }
  }
  return records;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < kPrefix || size > kMaxInput) return 0;
  static Fixture* fx = new Fixture();
  ckdvol_fuzz::Input in(data, size);
  const uint8_t control = in.u8();

  // The two DSCBs.
  ckdvol_test::DataSetLayout layout;
  layout.name = kDataSetName;
  layout.blksize = in.be16();
  layout.lrecl = in.be16();
  layout.recfm = in.u8();
  layout.dsorg = in.be16();
  layout.nbrExts = in.u8();
  std::vector<ExtentSpec> extents;
  for (int i = 0; i < 6; ++i) {
    const uint8_t lo = in.u8();
    extents.push_back(extentOf(lo, in.u8()));
  }
  layout.extents.assign(extents.begin(), extents.begin() + 3);
  layout.next = fx->f3At;
  const Dscb f1 = ckdvol_test::format1Dscb(layout);
  const Dscb f3 = ckdvol_test::format3Dscb(std::vector<ExtentSpec>(extents.begin() + 3, extents.end()));
  char memberName[17] = {0};
  for (int i = 0; i < 16; ++i) memberName[i] = static_cast<char>(in.u8());

  std::vector<unsigned char> image = fx->image;
  std::memcpy(image.data() + fx->f1Offset, f1.data(), f1.size());
  std::memcpy(image.data() + fx->f3Offset, f3.data(), f3.size());
  buildDataTracks(in, image);
  fx->file.assign(image);

  DskVolume volume;
  FUZZ_CHECK(volume.open(fx->file.path(), false) == 0);
  volume.file->verifyTracks = (control & 2) != 0;
  BasicPartionedAccessMethod pds(volume);
  const int orc = pds.openDataset(kDataSetName);
  FUZZ_CHECK(orc == 0 || orc == -3 || orc == -5 || orc == -6 || orc == -7);
  if (orc != 0) return 0;
  FUZZ_CHECK(pds.blockSize == layout.blksize && pds.recordLength == layout.lrecl);
  const bool verify = (control & 2) != 0;
  const BasicPartionedAccessMethod::Extent* first = pds.extents.get(0);
  FUZZ_CHECK(first != nullptr);
  checkDirectory(pds, modelDirectory(fx->file.path(), verify, first->lowCyl, first->lowHead));

  // Every member the directory names (the first few), then the input's name.
  std::vector<std::string> names;
  for (int i = 0; i < pds.directory.count && i < kMaxMembersRead; ++i) {
    const BasicPartionedAccessMethod::DirEnt* e = pds.directory.get(i);
    FUZZ_CHECK(e != nullptr);
    FUZZ_CHECK(std::memchr(e->name, 0, sizeof e->name) != nullptr);
    names.emplace_back(e->name);
  }
  names.emplace_back(memberName);
  std::string replaceName;
  for (const std::string& name : names) {
    const int rc = pds.readMember(name.c_str());
    FUZZ_CHECK(rc == 0 || rc == -1 || rc == -3 || rc == -4 || rc == -8);
    FUZZ_CHECK(std::memchr(pds.memberName, 0, sizeof pds.memberName) != nullptr);
    if (rc != 0) {
      FUZZ_CHECK(pds.records.count == 0);
      continue;
    }
    FUZZ_CHECK(recordsOf(pds) == modelMember(fx->file.path(), verify, pds));
    if (replaceName.empty() && pds.records.count > 0 && pds.records.count <= kMaxRecordsReplaced) {
      replaceName = name;
    }
  }
  if ((control & 1) == 0 || replaceName.empty()) return 0;

  // Replace one member record for record with changed bytes, then read it back.
  FUZZ_CHECK(pds.readMember(replaceName.c_str()) == 0);
  std::vector<std::string> before = recordsOf(pds);
  std::vector<std::string> after;
  for (size_t i = 0; i < before.size(); ++i) {
    std::string r = before[i];
    for (char& c : r) c = static_cast<char>(c ^ 0x5A);
    FUZZ_CHECK(pds.setRecord(static_cast<int>(i), r.data(), static_cast<int>(r.size())) == 0);
    after.push_back(r);
  }
  FUZZ_CHECK(pds.setRecord(0, "x", pds.recordLength + 1) == -1);
  const int rrc = pds.replaceMember(replaceName.c_str());
  // -15: a block whose data ends at the end of the record area cannot be
  // rewritten in place; -14 and -16 only with verifyTracks.
  FUZZ_CHECK(rrc == 0 || rrc == -15 || ((control & 2) != 0 && (rrc == -14 || rrc == -16)));
  if (rrc != 0) return 0;
  FUZZ_CHECK(pds.readMember(replaceName.c_str()) == 0);
  FUZZ_CHECK(recordsOf(pds) == after);
  return 0;
}
