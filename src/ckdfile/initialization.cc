// Volume initialisation: initialize() writes every track slot of a freshly
// created volume in file order, one cylinder per write, and stamps the header
// "CKD_XVOL"; format_labels() and format_vtoc() build the special records of
// cylinder 0 (IPL records and VOL1 label on head 0, an empty VTOC on head 1).
//
// Track images written with full formatting (D600 offsets):
//   every track    HA(5) | R0 count(8) data(8) | ... | end marker(8)
//   cyl 0 head 0   R1 IPL1 @21 | R2 IPL2 @57 | R3 VOL1 @213 | fillers 4.. @305
//   cyl 0 head 1   DSCBs 1..12 @21 + (n-1)*148, marker @1797
//   other tracks   fillers 1..recordsPerTrack @21 + (n-1)*4104
// A filler record is a count field (KL 0, DL 4096) and 4096 data bytes.
#include <fcntl.h>
#include <unistd.h>

#include <cstring>
#include <memory>

#include "ckdfile/emulated_ckd_file.h"
#include "ckdfile/volume_format.h"
#include "common/byte_order.h"

namespace {

using ckdvol::kCountSize;
using ckdvol::kEndMarkerByte;
using ckdvol::kEndMarkerSize;
using ckdvol::kHeaderSize;
using ckdvol::kHdrFormatLevel;
using ckdvol::kHdrMagic;
using ckdvol::kMagicLength;
using ckdvol::kMagicReady;
using ckdvol::kRecordZeroDataLength;
using ckdvol::kSyncBytes;
using ckdvol::storeBe16;
using ckdvol::storeBe32;

// ---- filler records ----
constexpr unsigned kFillerDataLength = 4096;
constexpr unsigned kFillerRecordSize = kCountSize + kFillerDataLength;  // 4104
constexpr unsigned kMaxRecordsPerTrack = 12;
// Track overhead taken off the slot before counting filler records.
constexpr unsigned kFillerOverhead = 22;
constexpr unsigned kFillerSlotCutoff = 53352;  // 13 * 4104: from here on, 12

// ---- the label track (cylinder 0, head 0) ----
constexpr unsigned char kIplKeyLength = 4;
constexpr unsigned short kIpl1DataLength = 24;
constexpr unsigned short kIpl2DataLength = 144;
constexpr unsigned char kVol1KeyLength = 4;
constexpr unsigned short kVol1DataLength = 80;
constexpr unsigned char kLastLabelRecord = 3;

const unsigned char kIpl1Key[4] = {0xC9, 0xD7, 0xD3, 0xF1};  // "IPL1"
const unsigned char kIpl2Key[4] = {0xC9, 0xD7, 0xD3, 0xF2};  // "IPL2"
const unsigned char kVol1Key[4] = {0xE5, 0xD6, 0xD3, 0xF1};  // "VOL1"
const unsigned char kSerial[6] = {0xF0, 0xE7, 0xF0, 0xF1, 0xF2, 0xF3};  // "0X0123"
constexpr unsigned char kEbcdicBlank = 0x40;                             // " "

// IPL1 data: a PSW-like first 16 bytes, then zeros.
const unsigned char kIpl1Data[16] = {0x00, 0x0A, 0x00, 0x00, 0x00, 0x00, 0x00, 0x0F,
                                     0x03, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x01};

// VOL1 label data offsets (from the start of the 80 data bytes).
constexpr int kLblKey = 0;       // 4 bytes "VOL1"
constexpr int kLblSerial = 4;    // 6 bytes
constexpr int kLblSecurity = 10; // 1 byte, left blank
constexpr int kLblVtocCC = 11;   // u16: VTOC cylinder
constexpr int kLblVtocHH = 13;   // u16: VTOC head
constexpr int kLblVtocR = 15;    // u8: VTOC record
// The VTOC starts at cylinder 0, head 1, record 1.
constexpr unsigned short kVtocCyl = 0;
constexpr unsigned short kVtocHead = 1;
constexpr unsigned char kVtocRecord = 1;

// ---- the VTOC track (cylinder 0, head 1) ----
constexpr unsigned char kDscbKeyLength = 44;
constexpr unsigned short kDscbDataLength = 96;
constexpr unsigned kDscbSize = kDscbKeyLength + kDscbDataLength;  // 140
constexpr unsigned char kVtocRecords = 12;
constexpr int kDscbFmtId = 44;  // format identifier, all formats

// Format-4 DSCB fields (offsets in the 140-byte record).
constexpr int kF4Key = 0;              // 44 bytes of 04
constexpr int kF4DscbCount = 50;       // "DSCBcnt" u16
constexpr int kF4VtocInd = 58;         // "VTOCind"
constexpr int kF4VtocExts = 59;        // "VTOCexts"
constexpr int kF4NbrCyls = 62;         // "NbrCyls" u16
constexpr int kF4TrksPerCyl = 64;      // "Trks/Cyl" u16
constexpr int kF4TrkLen = 66;          // "TrkLen" u16
constexpr int kF4DevFlag1 = 71;        // "DevFlag-1"
constexpr int kF4DscbsPerTrk = 74;     // "DSCBs/trk"
constexpr int kF4VtocExtDesc = 105;    // "VTOCextDesc" 10 bytes
constexpr int kF4FreeSpcMgtLvl = 125;  // "FreeSpcMgtLvl"
constexpr int kF4ExtdFreeSpc = 126;    // "ExtdFreeSpc" 5 bytes
constexpr int kF4ExtNbrCyls = 132;     // "ExtNbrCyls" u32
constexpr int kF4DevFlag2 = 138;       // "DevFlag-2"
constexpr unsigned char kF4KeyByte = 0x04;
constexpr unsigned char kF4FmtId = 0xF4;  // "4"
constexpr unsigned short kF4DscbCountValue = 10;
constexpr unsigned char kF4VtocIndLarge = 0xA0;  // models above 3
constexpr unsigned char kF4DevFlag1Value = 0x30;
constexpr unsigned char kF4DevFlag2Value = 0x40;
constexpr unsigned char kF4FreeSpcMgtLvlValue = 7;
constexpr unsigned short kF4NbrCylsLarge = 0xFFFE;  // "see ExtNbrCyls"
// Extent type 1, sequence 0, from cylinder 0 head 1 to cylinder 0 head 1.
const unsigned char kF4VtocExtent[10] = {0x01, 0x00, 0x00, 0x00, 0x00,
                                         0x01, 0x00, 0x00, 0x00, 0x01};
// Cylinder 0, head 1, record 3.
const unsigned char kF4ExtdFreeSpcValue[5] = {0x00, 0x00, 0x00, 0x01, 0x03};

// Format-5 DSCB fields.
constexpr int kF5Key = 0;        // 4 bytes of 05
constexpr int kF5TrkBgn1 = 4;    // "TrkBgn-01" u16
constexpr int kF5CylCnt1 = 6;    // "CylCnt-01" u16
constexpr int kF5TrkCnt1 = 8;    // "TrkCnt-01" u8
constexpr unsigned char kF5KeyByte = 0x05;
constexpr unsigned char kF5FmtId = 0xF5;  // "5"
constexpr unsigned short kF5FirstTrack = 2;
constexpr unsigned char kF5TrackCount = 13;

// Format-7 DSCB fields (written as record 3 for models above 3).
constexpr int kF7Key = 0;          // 4 bytes of 07
constexpr int kF7ExtentStart = 4;  // u32 relative track where free space begins
constexpr int kF7ExtentEnd = 8;    // u32 tracks per cylinder * cylinders
constexpr unsigned char kF7KeyByte = 0x07;
constexpr unsigned char kF7FmtId = 0xF7;  // "7"
constexpr uint32_t kF7FirstTrack = 2;
constexpr unsigned short kModelWithFormat7 = 3;  // models above this get one

// ---- initialisation ----
constexpr unsigned kLabelCylinder = 0;
constexpr unsigned kLabelHead = 0;
constexpr unsigned kVtocTrackHead = 1;

unsigned recordsPerTrack(unsigned slotSize) {
  const unsigned usable = slotSize - kFillerOverhead;
  return usable < kFillerSlotCutoff ? usable / kFillerRecordSize : kMaxRecordsPerTrack;
}

void putMarker(unsigned char*& p) {
  std::memset(p, kEndMarkerByte, kEndMarkerSize);
  p += kEndMarkerSize;
}

}  // namespace

void EmulatedCKDfile::format_labels(unsigned char*& position) {
  unsigned char* p = position;

  putCount(p, kLabelCylinder, kLabelHead, 1, kIplKeyLength, kIpl1DataLength);
  std::memcpy(p, kIpl1Key, sizeof kIpl1Key);
  p += sizeof kIpl1Key;
  std::memset(p, 0, kIpl1DataLength);
  std::memcpy(p, kIpl1Data, sizeof kIpl1Data);
  p += kIpl1DataLength;

  putCount(p, kLabelCylinder, kLabelHead, 2, kIplKeyLength, kIpl2DataLength);
  std::memcpy(p, kIpl2Key, sizeof kIpl2Key);
  p += sizeof kIpl2Key;
  std::memset(p, 0, kIpl2DataLength);
  p += kIpl2DataLength;

  putCount(p, kLabelCylinder, kLabelHead, kLastLabelRecord, kVol1KeyLength, kVol1DataLength);
  std::memset(p, kEbcdicBlank, kVol1KeyLength + kVol1DataLength);
  std::memcpy(p, kVol1Key, sizeof kVol1Key);
  p += kVol1KeyLength;
  std::memcpy(p + kLblKey, kVol1Key, sizeof kVol1Key);
  std::memcpy(p + kLblSerial, kSerial, sizeof kSerial);
  p[kLblSecurity] = kEbcdicBlank;
  storeBe16(p + kLblVtocCC, kVtocCyl);
  storeBe16(p + kLblVtocHH, kVtocHead);
  p[kLblVtocR] = kVtocRecord;
  p += kVol1DataLength;

  position = p;
}

void EmulatedCKDfile::format_vtoc(unsigned char*& position) {
  unsigned char* p = position;
  for (unsigned char n = 1; n <= kVtocRecords; ++n) {
    putCount(p, kLabelCylinder, kVtocTrackHead, n, kDscbKeyLength, kDscbDataLength);
    unsigned char* d = p;
    std::memset(d, 0, kDscbSize);
    if (n == 1) {  // Format-4: the VTOC and the device
      std::memset(d + kF4Key, kF4KeyByte, kDscbKeyLength);
      d[kDscbFmtId] = kF4FmtId;
      storeBe16(d + kF4DscbCount, kF4DscbCountValue);
      d[kF4VtocInd] = model > kModelWithFormat7 ? kF4VtocIndLarge : 0;
      d[kF4VtocExts] = 1;
      storeBe16(d + kF4NbrCyls, cylinders <= ckdvol::kMaxSmallCylinders
                                    ? static_cast<uint16_t>(cylinders)
                                    : kF4NbrCylsLarge);
      storeBe16(d + kF4TrksPerCyl, static_cast<uint16_t>(tracksPerCylinder & 0xFF));
      storeBe16(d + kF4TrkLen, static_cast<uint16_t>(trackSlotSize));
      d[kF4DevFlag1] = kF4DevFlag1Value;
      d[kF4DscbsPerTrk] = kVtocRecords;
      std::memcpy(d + kF4VtocExtDesc, kF4VtocExtent, sizeof kF4VtocExtent);
      d[kF4FreeSpcMgtLvl] = kF4FreeSpcMgtLvlValue;
      std::memcpy(d + kF4ExtdFreeSpc, kF4ExtdFreeSpcValue, sizeof kF4ExtdFreeSpcValue);
      storeBe32(d + kF4ExtNbrCyls, cylinders);
      d[kF4DevFlag2] = kF4DevFlag2Value;
    } else if (n == 2) {  // Format-5: one free extent behind the VTOC
      std::memset(d + kF5Key, kF5KeyByte, 4);
      storeBe16(d + kF5TrkBgn1, kF5FirstTrack);
      storeBe16(d + kF5CylCnt1, static_cast<uint16_t>(cylinders - 1));
      d[kF5TrkCnt1] = kF5TrackCount;
      d[kDscbFmtId] = kF5FmtId;
    } else if (n == 3 && model > kModelWithFormat7) {  // Format-7
      std::memset(d + kF7Key, kF7KeyByte, 4);
      storeBe32(d + kF7ExtentStart, kF7FirstTrack);
      storeBe32(d + kF7ExtentEnd, static_cast<uint32_t>(tracksPerCylinder) * cylinders);
      d[kDscbFmtId] = kF7FmtId;
    }
    p += kDscbSize;
  }
  position = p;
}

int EmulatedCKDfile::initialize(ProgressCallback progress, void* progressContext,
                                bool fullFormat) {
  const long long first = getOffset(0, 0, 0, true);
  if (first < 0) return kInitNoOffset;
  if (lseek64(fileDescriptor, first, SEEK_SET) != first) return kInitSeek;

  // One cylinder, built in place: per track only the home address, the
  // count fields and the end marker are rewritten, so data areas and the
  // bytes behind the marker carry over from the previous cylinder.
  const int cylinderBytes = static_cast<int>(tracksPerCylinder) * static_cast<int>(trackSlotSize);
  std::unique_ptr<unsigned char[]> buffer(new unsigned char[cylinderBytes]());
  const unsigned fillers = recordsPerTrack(trackSlotSize);

  unsigned short cell = 0;
  unsigned int cyl = 0;
  unsigned short head = 0;
  unsigned long long written = 0;
  unsigned long long syncMark = kSyncBytes;
  bool end = false;
  while (!end) {
    for (unsigned t = 0; t < tracksPerCylinder; ++t) {
      unsigned char* p = buffer.get() + static_cast<size_t>(t) * trackSlotSize;
      putHA(p, 0, cyl, head);
      putCount(p, static_cast<int>(cyl), head, 0, 0, kRecordZeroDataLength);
      p += kRecordZeroDataLength;
      if (fullFormat) {
        unsigned firstFiller = 1;
        if (cyl == kLabelCylinder && head == kLabelHead) {
          format_labels(p);
          firstFiller = kLastLabelRecord + 1;
        } else if (cyl == kLabelCylinder && head == kVtocTrackHead) {
          format_vtoc(p);
          firstFiller = fillers + 1;  // the VTOC track has no fillers
        }
        for (unsigned n = firstFiller; n <= fillers; ++n) {
          putCount(p, static_cast<int>(cyl), head, static_cast<unsigned char>(n), 0,
                   kFillerDataLength);
          p += kFillerDataLength;
        }
      }
      putMarker(p);
      end = increment(cell, cyl, head);
    }
    const ssize_t n = ::write(fileDescriptor, buffer.get(), static_cast<size_t>(cylinderBytes));
    if (n != static_cast<ssize_t>(cylinderBytes)) return kInitWrite;
    if (progress != nullptr) progress(progressContext, deviceType, cell, cyl, head);
    written += static_cast<unsigned long long>(cylinderBytes);
    if (written > syncMark) {
      syncMark += kSyncBytes;
      ::fdatasync(fileDescriptor);
    }
  }

  unsigned char header[kHeaderSize];
  if (readHeader(header, false) != 0) return kInitReadHeader;
  formatLevel = header[kHdrFormatLevel];
  std::memcpy(header + kHdrMagic, kMagicReady, kMagicLength);
  if (writeHeader(header, true) != 0) return kInitWriteHeader;
  ::fdatasync(fileDescriptor);
  if (readTrack(0, 0, 0) != 0) return kInitLoadTrack;
  return kInitOk;
}
