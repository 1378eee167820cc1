// Fuzz target: record navigation over an arbitrary track image.
//
// The image goes straight into the track buffer of a typed object whose
// current address is set, so every positioning operation, reference accessor
// and the verification walk run on it without any header or size check in
// front. Optionally the object gets a scratch file holding the image and the
// bytes behind it, so that a version trailer's link can reach a saved copy
// made of input bytes.
//
// Input:
//   byte 0      device: 0 D200 (2560-byte slots), 1 D130 (4096), 2 D160 (7680)
//               (taken modulo 3)
//   byte 1      flags: bit 0 largeCylinders, bit 1 attach the scratch file,
//               bit 2 verifyTrack(true) at the end
//   byte 2      cylinder count of the volume (0 counts as 1)
//   bytes 3-6   current cylinder (big-endian), bytes 7-8 current head,
//   bytes 9-10  current cell
//   byte 11     record number for locate()
//   bytes 12... the slot image (zero-padded to the slot size); with bit 1 the
//               scratch file is a zero 512-byte header followed by all these
//               bytes, so the image is slot 0 and the rest of the input the
//               slots behind it
#include <cstdint>
#include <cstring>
#include <set>
#include <vector>

#include <unistd.h>

#include "ckdfile/emulated_ckd_file.h"
#include "ckdfile/volume_format.h"
#include "fuzz_support.h"

namespace {

using ckdvol_fuzz::touch;

constexpr size_t kPrefix = 12;
constexpr size_t kMaxInput = 64 * 1024;

const EmulatedCKDfile::CKDtype kTypes[] = {EmulatedCKDfile::D200, EmulatedCKDfile::D130,
                                           EmulatedCKDfile::D160};

struct Walked {
  const void* ref;
  int cyl, head, rec, kl, dl;
  const unsigned char* key;
};

// Checks that a reference handed out by a positioning operation designates a
// place inside the buffer and that its key and data, where given, lie there.
void checkRef(const EmulatedCKDfile& f, const void* ref) {
  if (ref == nullptr) return;
  const unsigned char* b = f.trackBuffer;
  const unsigned char* p = static_cast<const unsigned char*>(ref);
  FUZZ_CHECK(p >= b && p < b + f.trackSlotSize);
  const int type = f.getRefType(ref);
  FUZZ_CHECK(type == 0 || type == EmulatedCKDfile::ORIENT_HA || type == EmulatedCKDfile::ORIENT_COUNT ||
             type == EmulatedCKDfile::ORIENT_EOT || type == EmulatedCKDfile::ORIENT_END);
  if (const unsigned char* key = f.getRefKey(ref)) {
    const int kl = f.getRefKL(ref);
    FUZZ_CHECK(kl > 0 && key == p + 8 && key + kl <= b + f.trackSlotSize);
    touch(key, static_cast<size_t>(kl));
  }
  if (const unsigned char* data = f.getRefData(ref)) {
    const int dl = f.getRefDL(ref);
    FUZZ_CHECK(dl > 0 && data + dl <= b + f.trackSlotSize);
    touch(data, static_cast<size_t>(dl));
  }
}

// Every accessor at `ref`; a key or data pointer must come with its whole
// length inside the buffer (checked by address, not read: this runs for every
// byte of the slot).
void allAccessors(const EmulatedCKDfile& f, const void* ref) {
  int c = 0, h = 0, r = 0, kl = 0, dl = 0;
  (void)f.getRefCC(ref);
  (void)f.getRefHH(ref);
  (void)f.getRefR(ref);
  (void)f.getRefCount(ref, c, h, r, kl, dl);
  const unsigned char* end = f.trackBuffer + f.trackSlotSize;
  if (const unsigned char* key = f.getRefKey(ref)) {
    const int n = f.getRefKL(ref);
    FUZZ_CHECK(n > 0 && key > f.trackBuffer && n <= end - key);
  }
  if (const unsigned char* data = f.getRefData(ref)) {
    const int n = f.getRefDL(ref);
    FUZZ_CHECK(n > 0 && data > f.trackBuffer && n <= end - data);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < kPrefix || size > kMaxInput) return 0;
  static ckdvol_fuzz::MemFile* scratch = new ckdvol_fuzz::MemFile();
  ckdvol_fuzz::Input in(data, size);
  const EmulatedCKDfile::CKDtype type = kTypes[in.u8() % 3];
  const uint8_t flags = in.u8();
  const unsigned cylinderCount = in.u8();
  const uint32_t curCyl = in.be32();
  const uint16_t curHead = in.be16();
  const uint16_t curCell = in.be16();
  const uint8_t locateRecord = in.u8();
  size_t imageBytes = 0;
  const uint8_t* image = in.rest(imageBytes);

  EmulatedCKDfile f;
  FUZZ_CHECK(f.setType(type));
  f.setCylinders(cylinderCount == 0 ? 1 : cylinderCount);
  f.largeCylinders = flags & 1;
  const size_t slot = f.trackSlotSize;
  std::memset(f.trackBuffer, 0, slot);
  std::memcpy(f.trackBuffer, image, imageBytes < slot ? imageBytes : slot);
  f.currentCyl = curCyl;
  f.currentHead = curHead;
  f.currentCell = curCell;
  if ((flags & 2) != 0) {
    std::vector<unsigned char> bytes(ckdvol::kHeaderSize, 0);
    bytes.insert(bytes.end(), image, image + imageBytes);
    scratch->assign(bytes);
    f.fileDescriptor = ::dup(scratch->fd());
    FUZZ_CHECK(f.fileDescriptor >= 0);
  }
  const unsigned char* b = f.trackBuffer;
  const size_t dataLimit = slot - ckdvol::kDataLimitFromEnd;
  const bool noTrack = curCyl == 0xFFFFFFFFu || curHead == 0xFFFF || curCell == 0xFFFF;

  // The place just past the buffer and null are no places.
  FUZZ_CHECK(f.getRefType(b + slot) == 0 && f.getRefType(nullptr) == 0);
  FUZZ_CHECK(f.getRefCC(b + slot) == -1 && f.getRefR(nullptr) == -1);
  FUZZ_CHECK(f.getRefKey(b + slot) == nullptr && f.getRefData(b + slot) == nullptr);
  FUZZ_CHECK(f.getRefType(b) == EmulatedCKDfile::ORIENT_HA);

  // locate in every orientation (valid ones and a few others).
  for (int orient = 0; orient <= 7; ++orient) {
    const void* ref = f.locate(static_cast<EmulatedCKDfile::CKDorient>(orient), curCyl, curHead, locateRecord);
    checkRef(f, ref);
    if (noTrack) FUZZ_CHECK(ref == nullptr);
    if (ref == nullptr) continue;
    const int t = f.getRefType(ref);
    if (orient == EmulatedCKDfile::ORIENT_HA) FUZZ_CHECK(ref == b);
    if (orient == EmulatedCKDfile::ORIENT_END) FUZZ_CHECK(ref == b + dataLimit);
    if (orient == EmulatedCKDfile::ORIENT_EOT) FUZZ_CHECK(t == EmulatedCKDfile::ORIENT_EOT);
    if (orient == EmulatedCKDfile::ORIENT_COUNT) {
      FUZZ_CHECK(t == EmulatedCKDfile::ORIENT_COUNT);
      FUZZ_CHECK(f.getRefR(ref) == locateRecord);
    }
    if (orient != 1 && orient != 2 && orient != 5 && orient != 6) FUZZ_CHECK(false);
  }

  // Without a current track the positioning operations find nothing.
  if (noTrack) {
    FUZZ_CHECK(f.locateNext(b, false) == nullptr);
    FUZZ_CHECK(f.searchRecord(nullptr, curCyl, curHead, locateRecord) == nullptr);
  }

  // The chain from the home address, one track only. Every step moves forward,
  // so the chain has at most slot / 8 links.
  std::vector<Walked> walked;
  std::set<size_t> chain;
  const void* ref = b;
  size_t steps = 0;
  while ((ref = f.locateNext(ref, false)) != nullptr) {
    FUZZ_CHECK(++steps <= slot / 8 + 2);
    checkRef(f, ref);
    const size_t off = static_cast<const unsigned char*>(ref) - b;
    FUZZ_CHECK(off <= dataLimit);
    const int t = f.getRefType(ref);
    if (t == EmulatedCKDfile::ORIENT_EOT) {
      FUZZ_CHECK(f.locateNext(ref, false) == nullptr);
      break;
    }
    // A record reached by the chain below the end of the record area is a
    // count field for getRefType, and the other way round.
    if (off < dataLimit) FUZZ_CHECK(t == EmulatedCKDfile::ORIENT_COUNT);
    chain.insert(off);
    Walked w{ref, 0, 0, 0, 0, 0, nullptr};
    if (f.getRefCount(ref, w.cyl, w.head, w.rec, w.kl, w.dl)) {
      w.key = f.getRefKey(ref);
      walked.push_back(w);
    }
  }

  // Places probed with every accessor: both ends of the slot, a stride
  // through it and the bytes around places of the chain. getRefType
  // calls a place a count field only when the chain reaches it.
  std::set<size_t> probes;
  for (size_t off = 0; off < 64 && off < slot; ++off) probes.insert(off);
  for (size_t off = slot - 64; off < slot; ++off) probes.insert(off);
  for (size_t off = 0; off < slot; off += 61) probes.insert(off);
  size_t nth = 0;
  for (size_t off : chain) {  // (the first 24 and the last 8: each probe walks the track)
    if (nth++ >= 24 && nth + 8 <= chain.size()) continue;
    for (size_t near : {off - 1, off + 1, off + 5, off + 8}) {
      if (near < slot) probes.insert(near);
    }
  }
  for (size_t off : probes) {
    const int t = f.getRefType(b + off);
    if (t == EmulatedCKDfile::ORIENT_COUNT && !noTrack) FUZZ_CHECK(chain.count(off) == 1);
    allAccessors(f, b + off);
  }

  // Searches for what the chain met: each finds that record or an earlier one
  // with the same key or count; searchRecord from a record only goes forward.
  // (The first 24 and the last 8 records: each search walks the track again.)
  for (size_t i = 0; i < walked.size(); ++i) {
    if (i >= 24 && i + 8 < walked.size()) continue;
    const Walked& w = walked[i];
    if (w.key != nullptr) {
      const void* hit = f.searchKey(nullptr, w.key, w.kl, false);
      FUZZ_CHECK(hit != nullptr && hit <= w.ref);
      FUZZ_CHECK(f.getRefKL(hit) == w.kl && std::memcmp(f.getRefKey(hit), w.key, w.kl) == 0);
      const void* low = f.searchKey(nullptr, w.key, w.kl, true);
      FUZZ_CHECK(low != nullptr && low <= hit);
      FUZZ_CHECK(std::memcmp(f.getRefKey(low), w.key, w.kl) <= 0);
      checkRef(f, f.searchKey(w.ref, w.key, w.kl, true));
    }
    {
      const void* hit = f.searchRecord(nullptr, w.cyl, w.head, w.rec);
      FUZZ_CHECK(hit != nullptr && hit <= w.ref);
      int c, h, r, kl, dl;
      FUZZ_CHECK(f.getRefCount(hit, c, h, r, kl, dl) && c == w.cyl && h == w.head && r == w.rec);
    }
    const void* later = f.searchRecord(w.ref, w.cyl, w.head, w.rec);
    FUZZ_CHECK(later == nullptr || later > w.ref);
    checkRef(f, later);
    checkRef(f, f.locate(EmulatedCKDfile::ORIENT_COUNT, w.cyl, w.head, static_cast<unsigned char>(w.rec)));
  }
  // A key from the input itself, of every length up to 16.
  for (int kl = 1; kl <= 16 && static_cast<size_t>(kl) <= imageBytes; ++kl) {
    checkRef(f, f.searchKey(nullptr, image, kl, (kl & 1) != 0));
  }

  // Verification; with the flag also the repair, after which the image in the
  // buffer is sound or the track is no longer current.
  const bool ok = f.verifyTrack(false);
  FUZZ_CHECK(ok == (f.verifyCode == 0));
  if ((flags & 4) != 0 && !ok) {
    const unsigned short code = f.verifyCode;
    f.verifyTrack(true);
    FUZZ_CHECK(f.verifyCode == code);
    if (code != 1) {
      const bool after = f.verifyTrack(false);
      FUZZ_CHECK(after || f.verifyCode == 1);
    }
  }
  FUZZ_CHECK(f.trackDirty == 0);
  return 0;
}
