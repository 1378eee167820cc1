// Format3DSCB: the Format-3 record layout (13 extents and the next-DSCB
// address) and the chain accessor.
#include "dscb/format3_dscb.h"

#include "dscb/dscb_util.h"

namespace {

using F = StructureField;

constexpr int kFormat3Type = 3;
constexpr char kNxtF3dscb[] = "NxtF3dscb";  // the chain accessor reads it

// The 140-byte Format-3 record. Each extent is 10 bytes: type, sequence,
// low CCHH, high CCHH. Extents 1-4 fill the key after its 4-byte identifier,
// extents 5-D follow the format identifier.
const StructureField format3Desc[] = {
    {"DSCBKey", F::SfldHex, 0, 4, true},
    {"ExtType-1", F::SfldBits, 4, 1, false},
    {"ExtSeq-1", F::SfldUint, 5, 1, false},
    {"ExtLoCCHH-1", F::SfldHexHalfwords, 6, 4, false},
    {"ExtHiCCHH-1", F::SfldHexHalfwords, 10, 4, true},
    {"ExtType-2", F::SfldBits, 14, 1, false},
    {"ExtSeq-2", F::SfldUint, 15, 1, false},
    {"ExtLoCCHH-2", F::SfldHexHalfwords, 16, 4, false},
    {"ExtHiCCHH-2", F::SfldHexHalfwords, 20, 4, true},
    {"ExtType-3", F::SfldBits, 24, 1, false},
    {"ExtSeq-3", F::SfldUint, 25, 1, false},
    {"ExtLoCCHH-3", F::SfldHexHalfwords, 26, 4, false},
    {"ExtHiCCHH-3", F::SfldHexHalfwords, 30, 4, true},
    {"ExtType-4", F::SfldBits, 34, 1, false},
    {"ExtSeq-4", F::SfldUint, 35, 1, false},
    {"ExtLoCCHH-4", F::SfldHexHalfwords, 36, 4, false},
    {"ExtHiCCHH-4", F::SfldHexHalfwords, 40, 4, true},
    {"FmtID", F::SfldHex, 44, 1, true},
    {"ExtType-5", F::SfldBits, 45, 1, false},
    {"ExtSeq-5", F::SfldUint, 46, 1, false},
    {"ExtLoCCHH-5", F::SfldHexHalfwords, 47, 4, false},
    {"ExtHiCCHH-5", F::SfldHexHalfwords, 51, 4, true},
    {"ExtType-6", F::SfldBits, 55, 1, false},
    {"ExtSeq-6", F::SfldUint, 56, 1, false},
    {"ExtLoCCHH-6", F::SfldHexHalfwords, 57, 4, false},
    {"ExtHiCCHH-6", F::SfldHexHalfwords, 61, 4, true},
    {"ExtType-7", F::SfldBits, 65, 1, false},
    {"ExtSeq-7", F::SfldUint, 66, 1, false},
    {"ExtLoCCHH-7", F::SfldHexHalfwords, 67, 4, false},
    {"ExtHiCCHH-7", F::SfldHexHalfwords, 71, 4, true},
    {"ExtType-8", F::SfldBits, 75, 1, false},
    {"ExtSeq-8", F::SfldUint, 76, 1, false},
    {"ExtLoCCHH-8", F::SfldHexHalfwords, 77, 4, false},
    {"ExtHiCCHH-8", F::SfldHexHalfwords, 81, 4, true},
    {"ExtType-9", F::SfldBits, 85, 1, false},
    {"ExtSeq-9", F::SfldUint, 86, 1, false},
    {"ExtLoCCHH-9", F::SfldHexHalfwords, 87, 4, false},
    {"ExtHiCCHH-9", F::SfldHexHalfwords, 91, 4, true},
    {"ExtType-A", F::SfldBits, 95, 1, false},
    {"ExtSeq-A", F::SfldUint, 96, 1, false},
    {"ExtLoCCHH-A", F::SfldHexHalfwords, 97, 4, false},
    {"ExtHiCCHH-A", F::SfldHexHalfwords, 101, 4, true},
    {"ExtType-B", F::SfldBits, 105, 1, false},
    {"ExtSeq-B", F::SfldUint, 106, 1, false},
    {"ExtLoCCHH-B", F::SfldHexHalfwords, 107, 4, false},
    {"ExtHiCCHH-B", F::SfldHexHalfwords, 111, 4, true},
    {"ExtType-C", F::SfldBits, 115, 1, false},
    {"ExtSeq-C", F::SfldUint, 116, 1, false},
    {"ExtLoCCHH-C", F::SfldHexHalfwords, 117, 4, false},
    {"ExtHiCCHH-C", F::SfldHexHalfwords, 121, 4, true},
    {"ExtType-D", F::SfldBits, 125, 1, false},
    {"ExtSeq-D", F::SfldUint, 126, 1, false},
    {"ExtLoCCHH-D", F::SfldHexHalfwords, 127, 4, false},
    {"ExtHiCCHH-D", F::SfldHexHalfwords, 131, 4, true},
    // CCHHR of the next Format-3 DSCB; all zero at the end of the chain.
    {kNxtF3dscb, F::SfldHexHalfwords, 135, 5, true},
    {nullptr, F::SfldEnd, 0, 0, true},
};

}  // namespace

Format3DSCB::Format3DSCB(const unsigned char* dscb)
    : GenericDSCB(dscb, -1, -1, -1), raw(this->dscb) {}

Format3DSCB::~Format3DSCB() {}

int Format3DSCB::getType() const { return kFormat3Type; }

const StructureField* Format3DSCB::getDesc() const { return format3Desc; }

bool Format3DSCB::getF3dscbLoc(int& cyl, int& head, int& rec) const {
  cyl = head = rec = 0;
  const StructureField* field = StructureField::locateField(kNxtF3dscb, format3Desc, nullptr);
  if (field == nullptr) return false;
  ckdvol::readCchhr(raw + field->offset, largeCylinders, cyl, head, rec);
  return true;
}
