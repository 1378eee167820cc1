// Format8DSCB: the Format-8 record layout, its accessors, the extent lookup
// across the Format-3 DSCBs reached through its Format-9 DSCBs, and the dump
// with the chained Format-9 and Format-3 DSCBs.
#include "dscb/format8_dscb.h"

#include "common/byte_order.h"
#include "dscb/dscb_util.h"
#include "dscb/extent_lookup.h"

using ckdvol::appendText;

namespace {

using F = StructureField;

// Labels the accessors read, named once for the table and the accessors.
constexpr char kNbrExts[] = "NbrExts";
constexpr char kDSorg[] = "DSorg";
constexpr char kRecFmt[] = "RecFmt";
constexpr char kBlkSize[] = "BlkSize";
constexpr char kLrecl[] = "Lrecl";
constexpr char kF9Dscb[] = "F9-Dscb";

// Chained DSCBs are printed this much deeper than their Format-8 DSCB.
constexpr int kChainIndent = 6;

// The 140-byte Format-8 record (offsets and lengths in bytes, big-endian).
const StructureField format8Desc[] = {
    {"DSname", F::SfldEbcdic, 0, 44, true},
    {"FmtID", F::SfldHex, 44, 1, false},
    {"VolSer", F::SfldEbcdic, 45, 6, false},
    {"VolSeq", F::SfldUint, 51, 2, false},
    {"DateCreated", F::SfldDate, 53, 3, false},
    {"DateExpired", F::SfldDate, 56, 3, true},
    {kNbrExts, F::SfldUint, 59, 1, false},
    {"LastDirBytes", F::SfldUint, 60, 1, false},
    {"Flags", F::SfldBits, 61, 1, false},
    {"SysCode", F::SfldDump, 62, 13, true},
    {"DateRefed", F::SfldDate, 75, 3, false},
    {"SMSind", F::SfldBits, 78, 1, true},
    {"SecSpcExtFlags", F::SfldBits, 79, 1, false},
    {"SecSpcExtVal", F::SfldUint, 80, 2, false},
    {kDSorg, F::SfldHexBytes, 82, 2, false},
    {kRecFmt, F::SfldHexBytes, 84, 1, false},
    {"OptCD", F::SfldBits, 85, 1, true},
    {kBlkSize, F::SfldUint, 86, 2, false},
    {kLrecl, F::SfldUint, 88, 2, true},
    {"KeyLen", F::SfldUint, 90, 1, false},
    {"KeyPos", F::SfldUint, 91, 1, false},
    {"DSind", F::SfldBits, 92, 1, false},
    {"SecAllocSpcParms", F::SfldHexBytes, 93, 4, true},
    {"AllocFlag", F::SfldBits, 97, 1, false},
    {"LastTTR", F::SfldHex, 98, 3, false},
    {"TrkBal", F::SfldUint, 101, 2, false},
    {"Resv", F::SfldHex, 103, 1, false},
    {"EAVhiTrk", F::SfldDump, 104, 1, true},
    // Three extents of 10 bytes: type, sequence, low CCHH, high CCHH.
    {"ExtType-1", F::SfldBits, 105, 1, false},
    {"ExtSeq-1", F::SfldUint, 106, 1, false},
    {"ExtLoCCHH-1", F::SfldHexHalfwords, 107, 4, false},
    {"ExtHiCCHH-1", F::SfldHexHalfwords, 111, 4, true},
    {"ExtType-2", F::SfldBits, 115, 1, false},
    {"ExtSeq-2", F::SfldUint, 116, 1, false},
    {"ExtLoCCHH-2", F::SfldHexHalfwords, 117, 4, false},
    {"ExtHiCCHH-2", F::SfldHexHalfwords, 121, 4, true},
    {"ExtType-3", F::SfldBits, 125, 1, false},
    {"ExtSeq-3", F::SfldUint, 126, 1, false},
    {"ExtLoCCHH-3", F::SfldHexHalfwords, 127, 4, false},
    {"ExtHiCCHH-3", F::SfldHexHalfwords, 131, 4, true},
    // CCHHR of the first Format-9 DSCB; all zero when there is none.
    {kF9Dscb, F::SfldHexHalfwords, 135, 5, true},
    {nullptr, F::SfldEnd, 0, 0, true},
};

}  // namespace

Format8DSCB::Format8DSCB(const unsigned char* dscb)
    : GenericDSCB(dscb, -1, -1, -1),
      raw(this->dscb),
      f3List(32, true),
      f9List(32, true),
      nbrExts(0) {
  nbrExts = *getFieldAddr(kNbrExts);
}

Format8DSCB::~Format8DSCB() {
  f9List.clear();
  f3List.clear();
}

const StructureField* Format8DSCB::getDesc() const { return format8Desc; }

RexxString& Format8DSCB::print(RexxString& out, int indent) const {
  GenericDSCB::print(out, indent);
  for (int i = 0; i < f9List.count; ++i) {
    const Format9DSCB* f9 = f9List[i];
    if (f9 == nullptr) continue;
    appendText(out, "\n");
    f9->print(out, indent + kChainIndent);
  }
  for (int i = 0; i < f3List.count; ++i) {
    const Format3DSCB* f3 = f3List[i];
    if (f3 == nullptr) continue;
    appendText(out, "\n");
    f3->print(out, indent + kChainIndent);
  }
  return out;
}

unsigned short Format8DSCB::getBlkSize() const { return ckdvol::loadBe16(getFieldAddr(kBlkSize)); }

unsigned short Format8DSCB::getDSorg() const { return ckdvol::loadBe16(getFieldAddr(kDSorg)); }

unsigned short Format8DSCB::getLrecl() const { return ckdvol::loadBe16(getFieldAddr(kLrecl)); }

unsigned char Format8DSCB::getRecfm() const { return *getFieldAddr(kRecFmt); }

int Format8DSCB::getExtent(int i, int& loCyl, int& loHead, int& hiCyl, int& hiHead, int& loTrk,
                           int& hiTrk) const {
  return ckdvol::lookupExtent(*this, f3List, nbrExts, i, loCyl, loHead, hiCyl, hiHead, loTrk,
                              hiTrk);
}

bool Format8DSCB::getF9dscbLoc(int& cyl, int& head, int& rec) const {
  cyl = head = rec = 0;
  const StructureField* field = StructureField::locateField(kF9Dscb, format8Desc, nullptr);
  if (field == nullptr) return false;
  ckdvol::readCchhr(raw + field->offset, largeCylinders, cyl, head, rec);
  return true;
}
