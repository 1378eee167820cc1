#include "volume/disk_label.h"

#include <cerrno>
#include <cstring>

#include "common/byte_order.h"
#include "common/cchh.h"
#include "common/data_translator.h"

namespace {

// "VOL1" in EBCDIC: the key of the label record.
const unsigned char kVol1Key[DiskLabel::kLabelKeyLength] = {0xE5, 0xD6, 0xD3, 0xF1};

using SF = StructureField;

// The label's descriptor table. Every entry after the first follows the one
// before it (-1), except "CC", which follows "Security" two places back (-2)
// and so overlays the start of the 5-byte "VTOC-loc" group. Seven dump lines:
// Key; Serial, Security; VTOC-loc, CC, HH, Rec; Resv, Owner-ID; Resv,
// DumpCond, Resv, VolLblFlag; Resv; LblVer.
const StructureField labelDesc[] = {
    SF("Key", SF::SfldEbcdic, 0, 4, true),          // 0
    SF("Serial", SF::SfldEbcdic, -1, 6, false),     // 4
    SF("Security", SF::SfldHex, -1, 1, true),       // 10
    SF("VTOC-loc", SF::SfldHex, -1, 5, false),      // 11
    SF("CC", SF::SfldUint, -2, 2, false),           // 11
    SF("HH", SF::SfldUint, -1, 2, false),           // 13
    SF("Rec", SF::SfldUint, -1, 1, true),           // 15
    SF("Resv", SF::SfldDump, -1, 21, false),        // 16
    SF("Owner-ID", SF::SfldHex, -1, 14, true),      // 37
    SF("Resv", SF::SfldDump, -1, 9, false),         // 51
    SF("DumpCond", SF::SfldDump, -1, 6, false),     // 60
    SF("Resv", SF::SfldDump, -1, 1, false),         // 66
    SF("VolLblFlag", SF::SfldDump, -1, 1, true),    // 67
    SF("Resv", SF::SfldDump, -1, 11, true),         // 68
    SF("LblVer", SF::SfldDump, -1, 1, true),        // 79
    SF(nullptr, SF::SfldEnd, 0, 0, true),
};

}  // namespace

DiskLabel::DiskLabel() { reset(); }

DiskLabel::~DiskLabel() { reset(); }

void DiskLabel::reset() {
  std::memset(labelData, 0, sizeof labelData);
  largeCylinders = false;
  loaded = false;
}

int DiskLabel::initialize(EmulatedCKDfile& file) {
  if (file.readTrack(0, 0, 0) != 0) {
    errno = EIO;
    return -1;
  }
  const void* ref = file.searchKey(nullptr, kVol1Key, kLabelKeyLength, false);
  if (ref == nullptr) {
    errno = kErrNoLabel;
    return -1;
  }
  if (file.getRefDL(ref) != kLabelDataLength) {
    errno = kErrLabelLength;
    return -1;
  }
  // A data length of 80 lies inside the record area, so getRefData is set.
  const unsigned char* data = file.getRefData(ref);
  if (data == nullptr) {
    errno = kErrLabelLength;
    return -1;
  }
  std::memcpy(labelData, data, kLabelDataLength);
  loaded = true;
  largeCylinders = file.largeCylinders != 0;
  return 0;
}

bool DiskLabel::getSerial(char* serial, bool translate) const {
  if (!loaded) return false;
  std::memcpy(serial, labelData + kSerialOffset, kSerialLength);
  if (!translate) return true;
  DataTranslator translator(DataTranslator::XLATE_EBCDIC_ASCII);
  translator.xlateE2A(serial, kSerialLength);
  serial[kSerialLength] = '\0';
  return true;
}

bool DiskLabel::getVTOC(int& cylinder, int& head, int& record) const {
  if (!loaded) {
    cylinder = head = record = -1;
    return false;
  }
  ckdvol::CylHead ch = ckdvol::decodeCchh(ckdvol::loadBe16(labelData + kVtocCcOffset),
                                          ckdvol::loadBe16(labelData + kVtocHhOffset),
                                          largeCylinders);
  cylinder = static_cast<int>(ch.cyl);
  head = static_cast<int>(ch.head);
  record = labelData[kVtocROffset];
  return true;
}

RexxString& DiskLabel::print(RexxString& out) const {
  RexxString appended = out + "Volume label --\n";
  out.copy(appended.text(), appended.length());
  return StructureField::print(out, labelData, labelDesc, 0);
}

const StructureField* DiskLabel::getDesc() { return labelDesc; }
