#include "vtoc_fallback.h"

#include <map>
#include <memory>
#include <set>
#include <tuple>
#include <vector>

#include "dscb/format1_dscb.h"
#include "dscb/format3_dscb.h"
#include "dscb/format4_dscb.h"
#include "dscb/format5_dscb.h"
#include "dscb/format8_dscb.h"
#include "dscb/format9_dscb.h"
#include "dscb/generic_dscb.h"

namespace ckdvol_tool {
namespace {

constexpr int kCountFieldSize = 8;
constexpr int kRecordAreaEnd = 24;  // the record area ends this far before the slot's end
constexpr int kMaxChainLinks = 5000;

using Address = std::tuple<int, int, int>;

// The DSCBs of the VTOC's extent, by address, as 140-byte images.
using DscbImages = std::map<Address, std::vector<unsigned char>>;

// Reads every 44/96 record of the tracks the data-set layer walked, record 1
// upwards on each track until a record number is missing. Records that
// would reach past the track's record area are left out.
DscbImages readVtocExtent(EmulatedCKDfile& file, const ckdvol::VtocInfo& vtoc) {
  DscbImages images;
  if (vtoc.heads == 0) return images;
  for (uint32_t t = vtoc.vtocFirstTrack; t <= vtoc.vtocLastTrack && t >= vtoc.vtocFirstTrack; ++t) {
    const unsigned cyl = t / vtoc.heads;
    const unsigned short head = static_cast<unsigned short>(t % vtoc.heads);
    if (file.readTrack(cyl, head, 0) != 0) continue;
    for (int r = 1; r <= 255; ++r) {
      const void* ref = file.searchRecord(nullptr, cyl, head, static_cast<unsigned char>(r));
      if (ref == nullptr) break;
      if (file.getRefKL(ref) != GenericDSCB::kKeyLength || file.getRefDL(ref) != GenericDSCB::kDataLength) continue;
      const unsigned char* at = static_cast<const unsigned char*>(ref);
      const unsigned long long end = static_cast<unsigned long long>(at - file.trackBuffer) + kCountFieldSize +
                                     GenericDSCB::kKeyLength + GenericDSCB::kDataLength;
      if (file.trackSlotSize < kRecordAreaEnd || end > file.trackSlotSize - kRecordAreaEnd) continue;
      const unsigned char* key = file.getRefKey(ref);
      images[Address(static_cast<int>(cyl), head, r)].assign(key, key + ckdvol::kDscbSize);
    }
  }
  return images;
}

// A DSCB object of the image at `a`, or null; the caller owns it.
template <class T>
T* makeAt(const DscbImages& images, const Address& a, int type, bool large) {
  auto it = images.find(a);
  if (it == images.end()) return nullptr;
  std::unique_ptr<GenericDSCB> d(
      GenericDSCB::create(it->second.data(), std::get<0>(a), std::get<1>(a), std::get<2>(a)));
  T* typed = d && d->getType() == type ? dynamic_cast<T*>(d.get()) : nullptr;
  if (typed == nullptr) return nullptr;
  d.release();
  typed->largeCylinders = large;
  return typed;
}

bool endOfChain(const Address& a) { return a == Address(0, 0, 0); }

void followFormat3(const DscbImages& images, Address a, DynamicTypedPointerArray<Format3DSCB const>& list,
                   bool large) {
  std::set<Address> seen;
  for (int links = 0; links < kMaxChainLinks && !endOfChain(a) && seen.insert(a).second; ++links) {
    Format3DSCB* f3 = makeAt<Format3DSCB>(images, a, 3, large);
    if (f3 == nullptr) return;
    list.add(f3);
    f3->getF3dscbLoc(std::get<0>(a), std::get<1>(a), std::get<2>(a));
  }
}

}  // namespace

void fillFromExtent(EmulatedCKDfile& file, const ckdvol::VtocInfo& info, DiskVtoc& vtoc) {
  vtoc.reset();
  const bool large = file.largeCylinders != 0;
  const DscbImages images = readVtocExtent(file, info);
  const Address f4At(static_cast<int>(info.format4At.cyl), static_cast<int>(info.format4At.head),
                     info.format4At.record);
  if (Format4DSCB* f4 = makeAt<Format4DSCB>(images, f4At, 4, large)) vtoc.f4.reset(f4);
  for (const auto& entry : images) {
    if (entry.first == f4At) continue;
    const Address& a = entry.first;
    std::unique_ptr<GenericDSCB> d(GenericDSCB::create(entry.second.data(), std::get<0>(a), std::get<1>(a),
                                                       std::get<2>(a)));
    const int type = d->getType();
    if (type == 0) {
      ++vtoc.f0Count;
    } else if (Format1DSCB* f1 = type == 1 ? makeAt<Format1DSCB>(images, a, 1, large) : nullptr) {
      vtoc.f1List.add(f1);
      Address next;
      f1->getF3dscbLoc(std::get<0>(next), std::get<1>(next), std::get<2>(next));
      followFormat3(images, next, f1->f3List, large);
    } else if (Format5DSCB* f5 = type == 5 ? makeAt<Format5DSCB>(images, a, 5, large) : nullptr) {
      vtoc.f5List.add(f5);
    } else if (Format8DSCB* f8 = type == 8 ? makeAt<Format8DSCB>(images, a, 8, large) : nullptr) {
      vtoc.f8List.add(f8);
      Address next;
      f8->getF9dscbLoc(std::get<0>(next), std::get<1>(next), std::get<2>(next));
      std::set<Address> seen;
      for (int links = 0; links < kMaxChainLinks && !endOfChain(next) && seen.insert(next).second; ++links) {
        Format9DSCB* f9 = makeAt<Format9DSCB>(images, next, 9, large);
        if (f9 == nullptr) break;
        f8->f9List.add(f9);
        for (int j = 0; j < f9->getF3count(); ++j) {
          Address f3;
          if (!f9->getF3dscbLoc(j, std::get<0>(f3), std::get<1>(f3), std::get<2>(f3))) break;
          followFormat3(images, f3, f8->f3List, large);
        }
        f9->getF9dscbLoc(std::get<0>(next), std::get<1>(next), std::get<2>(next));
      }
    } else if (type != 3 && type != 9) {
      ++vtoc.unknownCount;
    }
  }
}

}  // namespace ckdvol_tool
