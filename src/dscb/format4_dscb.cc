// Format4DSCB: the Format-4 record layout (the VTOC's own DSCB) and the
// accessors of the DSCB count and the last used DSCB's address.
#include "dscb/format4_dscb.h"

#include "common/byte_order.h"
#include "dscb/dscb_util.h"

namespace {

using F = StructureField;

// Labels the accessors read, named once for the table and the accessors.
constexpr char kLastDSCB[] = "LastDSCB";
constexpr char kDSCBcnt[] = "DSCBcnt";

// The 140-byte Format-4 record. "DevConst" is a 14-byte group shown whole
// and followed by its parts; "KeyRcdOvhd" likewise a 2-byte group.
const StructureField format4Desc[] = {
    {"DSCBKey", F::SfldHex, 0, 44, true},
    {"FmtID", F::SfldHex, 44, 1, false},
    {kLastDSCB, F::SfldHexHalfwords, 45, 5, false},  // CCHHR of the last used DSCB
    {kDSCBcnt, F::SfldUint, 50, 2, true},
    {"NextAltTrk", F::SfldHex, 52, 4, false},
    {"RemAltTrks", F::SfldUint, 56, 2, true},
    {"VTOCind", F::SfldBits, 58, 1, false},
    {"VTOCexts", F::SfldUint, 59, 1, false},
    {"SMSind", F::SfldBits, 60, 1, false},
    {"AltCyls", F::SfldUint, 61, 1, true},
    {"DevConst", F::SfldHex, 62, 14, false},
    {"NbrCyls", F::SfldUint, 62, 2, false},
    {"Trks/Cyl", F::SfldUint, 64, 2, false},
    {"TrkLen", F::SfldUint, 66, 2, true},
    {"KeyRcdOvhd", F::SfldUint, 68, 2, false},
    {"NonLastKeyOvhd", F::SfldUint, 68, 1, false},
    {"LastKeyOvhd", F::SfldUint, 69, 1, false},
    {"NonKeyOvhd", F::SfldUint, 70, 1, false},
    {"DevFlag-1", F::SfldBits, 71, 1, true},
    {"DevTolerance", F::SfldUint, 72, 2, false},
    {"DSCBs/trk", F::SfldUint, 74, 1, false},
    {"DirBlks/Trk", F::SfldUint, 75, 1, true},
    {"VSAM-TS", F::SfldHex, 76, 8, false},
    {"VSAM-CtlgInd", F::SfldBits, 84, 1, false},
    {"CRAloc", F::SfldUint, 85, 2, false},
    {"VSAM-CtlgTS", F::SfldHex, 87, 8, true},
    {"Resv", F::SfldHex, 95, 5, false},
    {"FirstF6", F::SfldHexHalfwords, 100, 5, false},
    {"VTOCextDesc", F::SfldDump, 105, 10, true},
    {"Resv", F::SfldDump, 115, 10, false},
    {"FreeSpcMgtLvl", F::SfldDump, 125, 1, false},
    {"ExtdFreeSpc", F::SfldHex, 126, 5, true},
    {"MinCylAlloc", F::SfldUint, 131, 1, false},
    {"ExtNbrCyls", F::SfldUint, 132, 4, false},
    {"MgtSpcCyl/4096", F::SfldUint, 136, 2, true},
    {"DevFlag-2", F::SfldBits, 138, 1, false},
    {"Resv", F::SfldHex, 139, 1, true},
    {nullptr, F::SfldEnd, 0, 0, true},
};

}  // namespace

Format4DSCB::Format4DSCB(const unsigned char* dscb)
    : GenericDSCB(dscb, -1, -1, -1), raw(this->dscb) {}

Format4DSCB::~Format4DSCB() {}

const StructureField* Format4DSCB::getDesc() const { return format4Desc; }

int Format4DSCB::getDSCBcount() const {
  const StructureField* field = StructureField::locateField(kDSCBcnt, format4Desc, nullptr);
  if (field == nullptr) return -1;
  return ckdvol::loadBe16(raw + field->offset);
}

bool Format4DSCB::getLastdscb(int& cyl, int& head, int& rec) const {
  cyl = head = rec = 0;
  const StructureField* field = StructureField::locateField(kLastDSCB, format4Desc, nullptr);
  if (field == nullptr) return false;
  ckdvol::readCchhr(raw + field->offset, largeCylinders, cyl, head, rec);
  return true;
}
