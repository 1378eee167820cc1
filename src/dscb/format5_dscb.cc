// Format5DSCB: the Format-5 record layout (26 free-space extents, built by
// rule) and the chain accessor.
//
// Extents 1-8 fill the key after its 4-byte identifier, extents 9-26 follow
// the format identifier. Each extent is three fields: TrkBgn (2 bytes, the
// relative track where the free area begins), CylCnt (2 bytes, whole free
// cylinders) and TrkCnt (1 byte, further free tracks); a dump shows two
// extents per line. The label numbers run 01-08 for extents 1-8, then 08
// again for extent 9 and 09-25 for extents 10-26, so a lookup by a label
// ending in 08 finds the eighth extent, in the key.
#include "dscb/format5_dscb.h"

#include <array>
#include <cstddef>
#include <utility>

#include "dscb/dscb_util.h"

namespace {

using F = StructureField;

constexpr char kNxtF5dscb[] = "NxtF5dscb";  // the chain accessor reads it

constexpr int kExtents = 26;
constexpr int kKeyExtents = 8;          // extents 1-8 in the key
constexpr int kKeyExtentsOffset = 4;    // after the key identifier
constexpr int kDataExtentsOffset = 45;  // after the format identifier
constexpr int kExtentLength = 5;
constexpr int kFieldsPerExtent = 3;
constexpr int kFmtIdEntry = 1 + kKeyExtents * kFieldsPerExtent;             // 25
constexpr int kNextEntry = kFmtIdEntry + 1 + (kExtents - kKeyExtents) * 3;  // 80
constexpr int kEntries = kNextEntry + 2;                                    // 82

// Offset and length of each field within an extent.
constexpr int kFieldOffset[kFieldsPerExtent] = {0, 2, 4};
constexpr int kFieldLength[kFieldsPerExtent] = {2, 2, 1};
constexpr const char* kFieldPrefix[kFieldsPerExtent] = {"TrkBgn-", "CylCnt-", "TrkCnt-"};

// The label number of extent n (1-based).
constexpr int labelNumber(int n) { return n <= kKeyExtents ? n : (n == 9 ? 8 : n - 1); }

// The extent labels ("TrkBgn-01" ...), static text for the table.
struct ExtentLabels {
  char text[kExtents][kFieldsPerExtent][10];
};

constexpr ExtentLabels makeExtentLabels() {
  ExtentLabels labels{};
  for (int n = 1; n <= kExtents; ++n) {
    for (int f = 0; f < kFieldsPerExtent; ++f) {
      char* out = labels.text[n - 1][f];
      int k = 0;
      for (const char* p = kFieldPrefix[f]; *p != '\0'; ++p) out[k++] = *p;
      out[k++] = static_cast<char>('0' + labelNumber(n) / 10);
      out[k++] = static_cast<char>('0' + labelNumber(n) % 10);
      out[k] = '\0';
    }
  }
  return labels;
}

constexpr ExtentLabels kExtentLabels = makeExtentLabels();

// Entry `index` of the table.
StructureField format5Entry(int index) {
  if (index == 0) return F("DSCBKey", F::SfldHex, 0, 4, true);
  if (index == kFmtIdEntry) return F("FmtID", F::SfldHex, GenericDSCB::kFormatIdOffset, 1, true);
  // CCHHR of the next Format-5 DSCB; all zero at the end of the chain.
  if (index == kNextEntry) return F(kNxtF5dscb, F::SfldHexHalfwords, 135, 5, true);
  if (index > kNextEntry) return F(nullptr, F::SfldEnd, 0, 0, true);

  bool inKey = index < kFmtIdEntry;
  int position = inKey ? index - 1 : index - kFmtIdEntry - 1;
  int n = position / kFieldsPerExtent + (inKey ? 1 : kKeyExtents + 1);
  int field = position % kFieldsPerExtent;
  int start = inKey ? kKeyExtentsOffset + kExtentLength * (n - 1)
                    : kDataExtentsOffset + kExtentLength * (n - kKeyExtents - 1);
  bool endsLine = field == kFieldsPerExtent - 1 && n % 2 == 0;
  return F(kExtentLabels.text[n - 1][field], F::SfldUint, start + kFieldOffset[field],
           kFieldLength[field], endsLine);
}

template <std::size_t... I>
std::array<StructureField, sizeof...(I)> buildFormat5Desc(std::index_sequence<I...>) {
  return {{format5Entry(static_cast<int>(I))...}};
}

const std::array<StructureField, kEntries> format5Desc =
    buildFormat5Desc(std::make_index_sequence<kEntries>());

}  // namespace

Format5DSCB::Format5DSCB(const unsigned char* dscb)
    : GenericDSCB(dscb, -1, -1, -1), raw(this->dscb) {}

Format5DSCB::~Format5DSCB() {}

const StructureField* Format5DSCB::getDesc() const { return format5Desc.data(); }

bool Format5DSCB::getF5dscbLoc(int& cyl, int& head, int& rec) const {
  cyl = head = rec = 0;
  const StructureField* field =
      StructureField::locateField(kNxtF5dscb, format5Desc.data(), nullptr);
  if (field == nullptr) return false;
  ckdvol::readCchhr(raw + field->offset, largeCylinders, cyl, head, rec);
  return true;
}
