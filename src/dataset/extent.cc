// Extents and the relative-track map of a data set.
#include "dataset/extent.h"

#include <algorithm>

#include "common/byte_order.h"
#include "common/cchh.h"

namespace ckdvol {

Extent decodeExtent(const unsigned char* p, bool largeCylinders) {
  Extent e;
  e.type = p[0];
  e.sequence = p[1];
  const CylHead lo = decodeCchh(loadBe16(p + 2), loadBe16(p + 4), largeCylinders);
  const CylHead hi = decodeCchh(loadBe16(p + 6), loadBe16(p + 8), largeCylinders);
  e.lowCyl = lo.cyl;
  e.lowHead = lo.head;
  e.highCyl = hi.cyl;
  e.highHead = hi.head;
  return e;
}

uint32_t extentTracks(const Extent& e, uint32_t heads) {
  if (heads == 0 || e.lowHead >= heads || e.highHead >= heads) return 0;
  const uint64_t lo = static_cast<uint64_t>(e.lowCyl) * heads + e.lowHead;
  const uint64_t hi = static_cast<uint64_t>(e.highCyl) * heads + e.highHead;
  if (hi < lo) return 0;
  const uint64_t n = hi - lo + 1;
  return n > UINT32_MAX ? UINT32_MAX : static_cast<uint32_t>(n);
}

ExtentMap::ExtentMap(const std::vector<Extent>& extents, uint32_t heads)
    : extents_(extents), heads_(heads) {
  first_.reserve(extents_.size());
  uint64_t total = 0;
  for (const Extent& e : extents_) {
    first_.push_back(static_cast<uint32_t>(total));
    const uint32_t n = extentTracks(e, heads_);
    if (n == 0) ++bad_;
    total = std::min<uint64_t>(total + n, UINT32_MAX);
  }
  total_ = static_cast<uint32_t>(total);
}

bool ExtentMap::toCylHead(uint32_t relTrack, uint32_t& cyl, uint32_t& head) const {
  if (relTrack >= total_) return false;
  // The last extent whose first relative track is not above relTrack; empty
  // extents share their successor's first track, so this is never one.
  const auto after = std::upper_bound(first_.begin(), first_.end(), relTrack);
  const size_t i = static_cast<size_t>(after - first_.begin()) - 1;
  const Extent& e = extents_[i];
  const uint64_t track =
      static_cast<uint64_t>(e.lowCyl) * heads_ + e.lowHead + (relTrack - first_[i]);
  cyl = static_cast<uint32_t>(track / heads_);
  head = static_cast<uint32_t>(track % heads_);
  return true;
}

bool ExtentMap::toRelative(uint32_t cyl, uint32_t head, uint32_t& relTrack) const {
  if (heads_ == 0 || head >= heads_) return false;
  const uint64_t track = static_cast<uint64_t>(cyl) * heads_ + head;
  for (size_t i = 0; i < extents_.size(); ++i) {
    const Extent& e = extents_[i];
    const uint32_t n = extentTracks(e, heads_);
    if (n == 0) continue;
    const uint64_t lo = static_cast<uint64_t>(e.lowCyl) * heads_ + e.lowHead;
    if (track < lo || track - lo >= n) continue;
    const uint64_t rel = first_[i] + (track - lo);
    if (rel >= total_) return false;  // beyond the 2^32 - 1 bound
    relTrack = static_cast<uint32_t>(rel);
    return true;
  }
  return false;
}

}  // namespace ckdvol
