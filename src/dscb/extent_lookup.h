// Internal header (not installed): the extent lookup shared by Format1DSCB
// and Format8DSCB. A data set's first three extents lie in its own DSCB;
// extent 3 + 13k + m lies in the k-th chained Format-3 DSCB, in slot m.
// Every extent is found by its label, "ExtLoCCHH-" and a slot character, and
// its high CCHH follows the low one directly.
#ifndef CKDVOL_DSCB_EXTENT_LOOKUP_H_
#define CKDVOL_DSCB_EXTENT_LOOKUP_H_

#include <cstdint>

#include "common/dynamic_typed_pointer_array.h"
#include "dscb/dscb_util.h"
#include "dscb/format3_dscb.h"
#include "dscb/generic_dscb.h"

namespace ckdvol {

constexpr int kExtentsInDataSetDscb = 3;  // in a Format-1 or Format-8 DSCB
constexpr int kExtentsInFormat3 = 13;     // in each Format-3 DSCB
constexpr int kCchhLength = 4;
// Tracks per cylinder used to number tracks from the volume start, whatever
// the device type.
constexpr int kTracksPerCylinderForExtents = 15;

// The extent's slot character: slot 0 is '1', slot 12 is 'D'.
inline char extentSlotChar(int slot) { return "123456789ABCDEF"[slot]; }

// Extent `i` of a data set whose own DSCB is `self` with `nbrExts` extents
// and whose chained Format-3 DSCBs are `f3List`. Returns the number of tracks,
// or 0 with all six outputs -1 when there is no such extent.
inline int lookupExtent(const GenericDSCB& self,
                        const DynamicTypedPointerArray<Format3DSCB const>& f3List, int nbrExts,
                        int i, int& loCyl, int& loHead, int& hiCyl, int& hiHead, int& loTrk,
                        int& hiTrk) {
  loCyl = loHead = hiCyl = hiHead = loTrk = hiTrk = -1;
  if (i < 0 || i >= nbrExts) return 0;

  char label[] = "ExtLoCCHH-?";
  const GenericDSCB* holder = &self;
  if (i < kExtentsInDataSetDscb) {
    label[sizeof label - 2] = extentSlotChar(i);
  } else {
    int j = i - kExtentsInDataSetDscb;
    int k = j / kExtentsInFormat3;
    if (k >= f3List.count || f3List[k] == nullptr) return 0;
    holder = f3List[k];
    label[sizeof label - 2] = extentSlotChar(j % kExtentsInFormat3);
  }

  const unsigned char* low = holder->getFieldAddr(label);
  int lc, lh, hc, hh;
  readCchh(low, self.largeCylinders, lc, lh);
  readCchh(low + kCchhLength, self.largeCylinders, hc, hh);
  int64_t lt = static_cast<int64_t>(lc) * kTracksPerCylinderForExtents + lh;
  int64_t ht = static_cast<int64_t>(hc) * kTracksPerCylinderForExtents + hh;
  loCyl = lc;
  loHead = lh;
  hiCyl = hc;
  hiHead = hh;
  // 28-bit cylinders times 15 may exceed an int; the values wrap as the
  // caller's integers do.
  loTrk = static_cast<int>(static_cast<uint32_t>(lt));
  hiTrk = static_cast<int>(static_cast<uint32_t>(ht));
  return static_cast<int>(static_cast<uint32_t>(ht - lt + 1));
}

}  // namespace ckdvol

#endif  // CKDVOL_DSCB_EXTENT_LOOKUP_H_
