// GenericDSCB: the record copy, the factory, the title line, field lookup by
// label, and the table used for DSCBs of formats without a class.
#include "dscb/generic_dscb.h"

#include <cstdio>
#include <cstring>

#include "dscb/dscb_util.h"
#include "dscb/format1_dscb.h"
#include "dscb/format3_dscb.h"
#include "dscb/format4_dscb.h"
#include "dscb/format5_dscb.h"
#include "dscb/format8_dscb.h"
#include "dscb/format9_dscb.h"

using ckdvol::appendText;

namespace {

// Format identifiers (EBCDIC digits) that have a class of their own.
constexpr unsigned char kFormat1Id = 0xF1;
constexpr unsigned char kFormat3Id = 0xF3;
constexpr unsigned char kFormat4Id = 0xF4;
constexpr unsigned char kFormat5Id = 0xF5;
constexpr unsigned char kFormat8Id = 0xF8;
constexpr unsigned char kFormat9Id = 0xF9;

// A record of unknown format: the key, then the data portion.
const StructureField unknownDesc[] = {
    {"Unknown DSCB type --", StructureField::SfldTitle, 0, 0, true},
    {"Key", StructureField::SfldHex, 0, GenericDSCB::kKeyLength, true},
    {"Data", StructureField::SfldHex, GenericDSCB::kKeyLength, GenericDSCB::kDataLength, true},
    {nullptr, StructureField::SfldEnd, 0, 0, true},
};

}  // namespace

GenericDSCB::GenericDSCB(const unsigned char* dscb, int cyl, int head, int rec)
    : cyl(cyl), head(head), rec(rec), largeCylinders(false) {
  std::memcpy(this->dscb, dscb, kLength);
}

GenericDSCB::~GenericDSCB() {}

GenericDSCB* GenericDSCB::create(const unsigned char* dscb, int cyl, int head, int rec) {
  GenericDSCB* made;
  switch (dscb[kFormatIdOffset]) {
    case kFormat1Id:
      made = new Format1DSCB(dscb);
      break;
    case kFormat3Id:
      made = new Format3DSCB(dscb);
      break;
    case kFormat4Id:
      made = new Format4DSCB(dscb);
      break;
    case kFormat5Id:
      made = new Format5DSCB(dscb);
      break;
    case kFormat8Id:
      made = new Format8DSCB(dscb);
      break;
    case kFormat9Id:
      made = new Format9DSCB(dscb);
      break;
    default:
      made = new GenericDSCB(dscb, -1, -1, -1);
      break;
  }
  made->cyl = cyl;
  made->head = head;
  made->rec = rec;
  return made;
}

int GenericDSCB::getType() const { return dscb[kFormatIdOffset] & 0x0F; }

const StructureField* GenericDSCB::getDesc() const { return unknownDesc; }

RexxString& GenericDSCB::print(RexxString& out, int indent) const {
  fmtTitle(out);
  return StructureField::print(out, dscb, getDesc(), indent);
}

RexxString& GenericDSCB::printDesc(RexxString& out) const {
  return StructureField::printDesc(out, getDesc());
}

RexxString& GenericDSCB::fmtTitle(RexxString& out) const {
  char text[96];
  std::snprintf(text, sizeof text, "Format %1X DSCB ", dscb[kFormatIdOffset] & 0x0F);
  appendText(out, text);
  if (cyl >= 0) {
    std::snprintf(text, sizeof text, "at %d/%d/%d (%06X/%02X/%02X) ", cyl, head, rec,
                  static_cast<unsigned>(cyl), static_cast<unsigned>(head),
                  static_cast<unsigned>(rec));
    appendText(out, text);
  }
  appendText(out, "--\n");
  return out;
}

const unsigned char* GenericDSCB::getFieldAddr(const char* name) const {
  const StructureField* table = getDesc();
  if (table == nullptr) throw "FXDSCB::getFieldAddr - no field descriptions";
  const StructureField* field = StructureField::locateField(name, table, nullptr);
  if (field == nullptr) throw "FXDSCB::getFieldAddr - unknown field name";
  return dscb + field->offset;
}
