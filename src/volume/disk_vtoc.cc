#include "volume/disk_vtoc.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <unordered_set>

#include "common/data_translator.h"
#include "dscb/format3_dscb.h"
#include "dscb/format9_dscb.h"

namespace {

constexpr int kDscbKeyLength = GenericDSCB::kKeyLength;    // 44
constexpr int kDscbDataLength = GenericDSCB::kDataLength;  // 96
constexpr int kCountFieldSize = 8;
constexpr int kDataLimitFromEnd = 24;  // the record area ends 24 bytes before the slot's end
constexpr unsigned char kEbcdicBlank = 0x40;

// The 100 "=" separator and its two line ends.
const char kSeparator[] =
    "===================================================================================================="
    "\n\n";
static_assert(sizeof kSeparator == 100 + 2 + 1, "separator is 100 characters and two line ends");

void append(RexxString& out, const char* text) {
  RexxString joined = out + text;
  out.copy(joined.text(), joined.length());
}

long long trackIndex(int cyl, int head) {
  return static_cast<long long>(cyl) * DiskVtoc::kTrackIndexFactor + head;
}

// The 140 bytes (key, then data) of the DSCB record at `ref`: null unless the
// record has key length 44 and data length 96 and lies inside the track's
// record area, so that a damaged count field never makes us read past the
// track buffer.
const unsigned char* dscbImage(const EmulatedCKDfile& file, const void* ref, int keyLength,
                               int dataLength) {
  if (keyLength != kDscbKeyLength || dataLength != kDscbDataLength) return nullptr;
  const unsigned char* start = file.trackBuffer;
  const unsigned char* at = static_cast<const unsigned char*>(ref);
  if (start == nullptr || at < start) return nullptr;
  unsigned long long end = static_cast<unsigned long long>(at - start) + kCountFieldSize +
                           kDscbKeyLength + kDscbDataLength;
  if (file.trackSlotSize < static_cast<unsigned int>(kDataLimitFromEnd) ||
      end > file.trackSlotSize - kDataLimitFromEnd) {
    return nullptr;
  }
  return file.getRefKey(ref);
}

// The DSCB at cylinder/head/record, for the chain walks: reads the track,
// finds the record by its count field and makes the DSCB with that address.
// Null when the track cannot be read, the record is missing or it is not a
// 44/96 record. The caller owns the result.
GenericDSCB* readDscbAt(EmulatedCKDfile& file, int cyl, int head, int rec) {
  if (cyl < 0 || head < 0 || head > 0xFFFF || rec < 0 || rec > 0xFF) return nullptr;
  if (file.readTrack(static_cast<unsigned int>(cyl), static_cast<unsigned short>(head), 0) != 0) {
    return nullptr;
  }
  const void* ref = file.searchRecord(nullptr, static_cast<unsigned int>(cyl),
                                      static_cast<unsigned short>(head),
                                      static_cast<unsigned char>(rec));
  if (ref == nullptr) return nullptr;
  const unsigned char* image = dscbImage(file, ref, file.getRefKL(ref), file.getRefDL(ref));
  if (image == nullptr) return nullptr;
  return GenericDSCB::create(image, cyl, head, rec);
}

// Chain bookkeeping of one initialize(): the number of chained DSCBs made.
struct ChainBudget {
  int made = 0;
  bool exhausted() const { return made >= DiskVtoc::kMaxChainedDscbs; }
};

// Remembers the addresses one chain has visited, so that a chain leading back
// into itself ends.
class VisitedAddresses {
 public:
  // False when the address was visited before.
  bool visit(int cyl, int head, int rec) {
    uint64_t key = (static_cast<uint64_t>(static_cast<uint32_t>(cyl)) << 24) |
                   (static_cast<uint64_t>(head & 0xFFFF) << 8) | static_cast<uint64_t>(rec & 0xFF);
    return seen_.insert(key).second;
  }

 private:
  std::unordered_set<uint64_t> seen_;
};

bool isEndOfChain(int cyl, int head, int rec) { return cyl == 0 && head == 0 && rec == 0; }

// Follows a Format-3 chain from cylinder/head/record, appending every
// Format-3 DSCB to `list`. Ends silently at 0/0/0, at a failure, at a repeated
// address, after kMaxChainLength links or when the budget is used up.
void followFormat3Chain(EmulatedCKDfile& file, int cyl, int head, int rec,
                        DynamicTypedPointerArray<Format3DSCB const>& list, ChainBudget& budget) {
  VisitedAddresses visited;
  for (int links = 0; links < DiskVtoc::kMaxChainLength && !isEndOfChain(cyl, head, rec); ++links) {
    if (budget.exhausted() || !visited.visit(cyl, head, rec)) return;
    std::unique_ptr<GenericDSCB> made(readDscbAt(file, cyl, head, rec));
    if (!made) return;
    ++budget.made;
    Format3DSCB* f3 = made->getType() == 3 ? dynamic_cast<Format3DSCB*>(made.get()) : nullptr;
    if (f3 == nullptr) return;
    made.release();
    f3->largeCylinders = file.largeCylinders != 0;
    list.add(f3);
    f3->getF3dscbLoc(cyl, head, rec);
  }
}

// Deletes the elements of a chained list unless the list deletes them itself,
// then clears it.
template <class T>
void releaseChained(DynamicTypedPointerArray<T>& list) {
  if (!list.ownsElements) {
    for (int i = 0; i < list.capacity; ++i) {
      delete list.slots[i];
      list.slots[i] = nullptr;
    }
  }
  list.clear();
}

void deleteDataSetDscb(Format1DSCB* f1) {
  if (f1 == nullptr) return;
  releaseChained(f1->f3List);
  delete f1;
}

void deleteDataSetDscb(Format8DSCB* f8) {
  if (f8 == nullptr) return;
  releaseChained(f8->f9List);
  releaseChained(f8->f3List);
  delete f8;
}

void deleteDataSetDscb(Format5DSCB* f5) { delete f5; }

template <class T>
void deleteAll(DynamicTypedPointerArray<T>& list) {
  for (int i = 0; i < list.capacity; ++i) {
    deleteDataSetDscb(list.slots[i]);
    list.slots[i] = nullptr;
  }
  list.clear();
}

}  // namespace

DiskVtoc::DiskVtoc()
    : f4(), f1List(32, false), f8List(32, false), f5List(32, false), f0Count(0), unknownCount(0) {}

DiskVtoc::~DiskVtoc() { reset(); }

void DiskVtoc::reset() {
  f4.reset();
  deleteAll(f1List);
  deleteAll(f8List);
  deleteAll(f5List);
  f0Count = 0;
  unknownCount = 0;
}

int DiskVtoc::initialize(EmulatedCKDfile& file, DiskLabel& label) {
  const bool large = file.largeCylinders != 0;

  // The first record must be the Format-4 DSCB.
  int cyl, head, rec;
  if (!label.getVTOC(cyl, head, rec)) {
    errno = ENOENT;
    return -1;
  }
  if (head > 0xFFFF ||
      file.readTrack(static_cast<unsigned int>(cyl), static_cast<unsigned short>(head), 0) != 0) {
    errno = EIO;
    return -1;
  }
  const void* ref = file.searchRecord(nullptr, static_cast<unsigned int>(cyl),
                                      static_cast<unsigned short>(head),
                                      static_cast<unsigned char>(rec));
  if (ref == nullptr) {
    errno = kErrNoFirstRecord;
    return -1;
  }
  const unsigned char* image = dscbImage(file, ref, file.getRefKL(ref), file.getRefDL(ref));
  if (image == nullptr) {
    errno = kErrFirstLength;
    return -1;
  }
  std::unique_ptr<GenericDSCB> first(GenericDSCB::create(image, cyl, head, rec));
  // A record whose format byte only has 4 in its low bits is not a Format-4
  // DSCB either: the factory made no Format4DSCB of it.
  Format4DSCB* format4 = first->getType() == 4 ? dynamic_cast<Format4DSCB*>(first.get()) : nullptr;
  if (format4 == nullptr) {
    errno = kErrNotFormat4;
    return -1;
  }
  first.release();
  format4->largeCylinders = large;
  f4.reset(format4);

  int lastCyl, lastHead, lastRec;
  f4->getLastdscb(lastCyl, lastHead, lastRec);
  const long long walkLimit = trackIndex(lastCyl, lastHead);

  // The walk: every record after the Format-4 DSCB up to the limit's track.
  for (int made = 0; made < kMaxWalkDscbs;) {
    ref = file.locateNext(ref, true);
    if (ref == nullptr) break;
    int rCyl, rHead, rRec, keyLength, dataLength;
    if (!file.getRefCount(ref, rCyl, rHead, rRec, keyLength, dataLength)) break;
    if (trackIndex(rCyl, rHead) > walkLimit) break;
    image = dscbImage(file, ref, keyLength, dataLength);
    if (image == nullptr) {
      std::printf(" key len err %d %d cc hh r is %d %d %d\n", static_cast<int>(kErrWalkLength),
                  keyLength, rCyl, rHead, rRec);
      std::fflush(stdout);
      errno = kErrWalkLength;
      return -1;
    }
    std::unique_ptr<GenericDSCB> dscb(GenericDSCB::create(image, rCyl, rHead, rRec));
    ++made;
    switch (dscb->getType()) {
      case 0:
        ++f0Count;
        break;
      case 1:
        if (Format1DSCB* f1 = dynamic_cast<Format1DSCB*>(dscb.get())) {
          dscb.release();
          f1->largeCylinders = large;
          f1List.add(f1);
        } else {
          ++unknownCount;  // low bits 1 but not an F1 format byte
        }
        break;
      case 5:
        if (Format5DSCB* f5 = dynamic_cast<Format5DSCB*>(dscb.get())) {
          dscb.release();
          f5->largeCylinders = large;
          f5List.add(f5);
        } else {
          ++unknownCount;
        }
        break;
      case 8:
        if (Format8DSCB* f8 = dynamic_cast<Format8DSCB*>(dscb.get())) {
          dscb.release();
          f8->largeCylinders = large;
          f8List.add(f8);
        } else {
          ++unknownCount;
        }
        break;
      case 3:
      case 9:
        break;  // reached through the chains below
      default:
        ++unknownCount;
        break;
    }
  }

  // Chains of every data set DSCB held, also those filed by an earlier call
  // (whose chains are then appended a second time).
  ChainBudget budget;
  for (int i = 0; i < f1List.count; ++i) {
    Format1DSCB* f1 = f1List.get(i);
    if (f1 == nullptr) continue;
    f1->getF3dscbLoc(cyl, head, rec);
    followFormat3Chain(file, cyl, head, rec, f1->f3List, budget);
  }
  for (int i = 0; i < f8List.count; ++i) {
    Format8DSCB* f8 = f8List.get(i);
    if (f8 == nullptr) continue;
    f8->getF9dscbLoc(cyl, head, rec);
    VisitedAddresses visited;
    for (int links = 0; links < kMaxChainLength && !isEndOfChain(cyl, head, rec); ++links) {
      if (budget.exhausted() || !visited.visit(cyl, head, rec)) break;
      std::unique_ptr<GenericDSCB> made(readDscbAt(file, cyl, head, rec));
      if (!made) break;
      ++budget.made;
      Format9DSCB* f9 = made->getType() == 9 ? dynamic_cast<Format9DSCB*>(made.get()) : nullptr;
      if (f9 == nullptr) break;
      made.release();
      f9->largeCylinders = large;
      f8->f9List.add(f9);
      f9->getF9dscbLoc(cyl, head, rec);
      const int f3Count = f9->getF3count();
      for (int j = 0; j < f3Count; ++j) {
        int c3, h3, r3;
        if (!f9->getF3dscbLoc(j, c3, h3, r3)) break;  // only 10 slots
        followFormat3Chain(file, c3, h3, r3, f8->f3List, budget);
      }
    }
  }
  return 0;
}

const Format1DSCB* DiskVtoc::locateDataset(const char* name) const {
  if (name == nullptr || *name == '\0') return nullptr;
  unsigned char key[kDscbKeyLength];
  std::memset(key, kEbcdicBlank, sizeof key);
  Xlater.copyA2E(key, name, static_cast<unsigned>(strnlen(name, kDscbKeyLength)));
  for (int i = 0; i < f1List.count; ++i) {
    const Format1DSCB* f1 = f1List.get(i);
    if (f1 != nullptr && std::memcmp(f1->dscb, key, kDscbKeyLength) == 0) return f1;
  }
  return nullptr;
}

RexxString& DiskVtoc::print(RexxString& out) {
  f4->print(out, 0);  // throws when no Format-4 DSCB is held
  append(out, "\n");
  for (int i = 0; i < f5List.count; ++i) {
    if (const Format5DSCB* f5 = f5List.get(i)) {
      f5->print(out, 5);
      append(out, "\n");
    }
  }
  for (int i = 0; i < f1List.count; ++i) {
    if (const Format1DSCB* f1 = f1List.get(i)) {
      f1->print(out, 0);
      append(out, "\n");
    }
  }
  for (int i = 0; i < f8List.count; ++i) {
    if (const Format8DSCB* f8 = f8List.get(i)) {
      f8->print(out, 0);
      append(out, "\n");
    }
  }
  append(out, kSeparator);
  char summary[256];
  std::snprintf(summary, sizeof summary,
                "Format-1 DSCBs: %d,  Format-8 DSCBs: %d\nFormat-5 DSCBs: %d\n"
                "Format-0 DSCBs: %d,  Unknown DSCBs: %d\n\nEnd of VTOC list\n",
                f1List.count, f8List.count, f5List.count, f0Count, unknownCount);
  append(out, summary);
  return out;
}
