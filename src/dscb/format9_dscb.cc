// Format9DSCB: the Format-9 record layout and the accessors of its Format-3
// addresses and of the next Format-9 DSCB.
#include "dscb/format9_dscb.h"

#include <cstdio>

#include "dscb/dscb_util.h"

namespace {

using F = StructureField;

constexpr int kFormat9Type = 9;
constexpr int kF3Slots = 10;  // Format-3 addresses "F3cchhr-01" .. "F3cchhr-10"

// Labels the accessors read, named once for the table and the accessors.
constexpr char kF3count[] = "F3count";
constexpr char kF3cchhrFormat[] = "F3cchhr-%02d";  // slot number from 1
constexpr char kNxtF9dscb[] = "NxtF9dscb";

// The 140-byte Format-9 record.
const StructureField format9Desc[] = {
    {"DSCBKey", F::SfldHex, 0, 1, true},
    {"SubType", F::SfldHex, 1, 1, false},
    {"F9count", F::SfldHex, 2, 1, false},
    {"Flag1", F::SfldBits, 3, 1, true},
    {"JobName", F::SfldEbcdic, 4, 8, false},
    {"StepName", F::SfldEbcdic, 12, 8, false},
    {"Time", F::SfldDump, 20, 6, true},
    {"Reserved", F::SfldDump, 26, 18, true},
    {"FmtID", F::SfldHex, 44, 1, true},
    {kF3count, F::SfldHex, 45, 1, true},
    // Ten CCHHRs of Format-3 DSCBs, F3count of them used.
    {"F3cchhr-01", F::SfldHexHalfwords, 46, 5, false},
    {"F3cchhr-02", F::SfldHexHalfwords, 51, 5, false},
    {"F3cchhr-03", F::SfldHexHalfwords, 56, 5, true},
    {"F3cchhr-04", F::SfldHexHalfwords, 61, 5, false},
    {"F3cchhr-05", F::SfldHexHalfwords, 66, 5, false},
    {"F3cchhr-06", F::SfldHexHalfwords, 71, 5, true},
    {"F3cchhr-07", F::SfldHexHalfwords, 76, 5, false},
    {"F3cchhr-08", F::SfldHexHalfwords, 81, 5, false},
    {"F3cchhr-09", F::SfldHexHalfwords, 86, 5, true},
    {"F3cchhr-10", F::SfldHexHalfwords, 91, 5, true},
    {"Attributes", F::SfldDump, 96, 20, true},
    {"Reserved", F::SfldDump, 116, 19, true},
    // CCHHR of the next Format-9 DSCB; all zero at the end of the chain.
    {kNxtF9dscb, F::SfldHexHalfwords, 135, 5, true},
    {nullptr, F::SfldEnd, 0, 0, true},
};

}  // namespace

Format9DSCB::Format9DSCB(const unsigned char* dscb)
    : GenericDSCB(dscb, -1, -1, -1), raw(this->dscb) {}

Format9DSCB::~Format9DSCB() {}

int Format9DSCB::getType() const { return kFormat9Type; }

const StructureField* Format9DSCB::getDesc() const { return format9Desc; }

unsigned char Format9DSCB::getF3count() const { return *getFieldAddr(kF3count); }

bool Format9DSCB::getF3dscbLoc(int i, int& cyl, int& head, int& rec) const {
  cyl = head = rec = 0;
  if (static_cast<unsigned>(i) >= static_cast<unsigned>(kF3Slots)) return false;
  char label[16];
  std::snprintf(label, sizeof label, kF3cchhrFormat, i + 1);
  const StructureField* field = StructureField::locateField(label, format9Desc, nullptr);
  if (field == nullptr) return false;
  ckdvol::readCchhr(raw + field->offset, largeCylinders, cyl, head, rec);
  return true;
}

bool Format9DSCB::getF9dscbLoc(int& cyl, int& head, int& rec) const {
  cyl = head = rec = 0;
  const StructureField* field = StructureField::locateField(kNxtF9dscb, format9Desc, nullptr);
  if (field == nullptr) return false;
  ckdvol::readCchhr(raw + field->offset, largeCylinders, cyl, head, rec);
  return true;
}
