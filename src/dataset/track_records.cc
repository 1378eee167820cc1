// Walking the records of the current track within its record area.
#include "dataset/track_records.h"

namespace ckdvol {
namespace {

constexpr uint32_t kHomeAddress = 5;
constexpr uint32_t kCount = 8;
constexpr uint32_t kDataLimitFromEnd = 24;
constexpr uint32_t kTrailer = 16;

bool isMarker(const unsigned char* p) {
  for (int i = 0; i < 8; ++i) {
    if (p[i] != 0xFF) return false;
  }
  return true;
}

}  // namespace

int readRecordAt(const EmulatedCKDfile& file, uint32_t& offset, TrackRecord& r) {
  const uint32_t slot = file.trackSlotSize;
  if (slot < kHomeAddress + kTrailer + kCount || offset < kHomeAddress ||
      offset + kCount > slot - kTrailer) {
    return kWalkOverrun;
  }
  const unsigned char* ref = file.trackBuffer + offset;
  if (isMarker(ref)) return kWalkEnd;
  int cyl, head, record, kl, dl;
  if (!file.getRefCount(ref, cyl, head, record, kl, dl)) return kWalkOverrun;
  const uint64_t end = static_cast<uint64_t>(offset) + kCount + static_cast<uint32_t>(kl) +
                       static_cast<uint32_t>(dl);
  if (end > slot - kDataLimitFromEnd) return kWalkOverrun;
  r.offset = offset;
  r.cyl = cyl;
  r.head = head;
  r.record = record;
  r.keyLength = kl;
  r.dataLength = dl;
  r.key = kl > 0 ? file.getRefKey(ref) : nullptr;
  r.data = dl > 0 ? file.getRefData(ref) : nullptr;
  if ((kl > 0 && r.key == nullptr) || (dl > 0 && r.data == nullptr)) return kWalkOverrun;
  offset = static_cast<uint32_t>(end);
  return kWalkRecord;
}

int firstRecordOffset(const EmulatedCKDfile& file, uint32_t& offset) {
  uint32_t at = kHomeAddress;
  TrackRecord r0;
  if (readRecordAt(file, at, r0) != kWalkRecord) return kWalkOverrun;
  offset = at;
  return kWalkRecord;
}

}  // namespace ckdvol
