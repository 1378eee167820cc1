// Test-side volume builder: a small initialised volume in a scratch directory,
// records, VTOC entries and data laid out with the library's own record
// operations (readTrack, locate, locateNext, writeCKD, writeTrack). DSCB images
// are composed field by field from the offsets named below, independently of
// the library's DSCB classes. Whatever cannot be done throws
// std::runtime_error naming the step (a test failure under GoogleTest).
//
//   ckdvol_test::TestVolume vol(EmulatedCKDfile::D600, 3);
//   DataSetLayout ds; ds.name = "TEST.DATA"; ds.extents = {{1, 0, 1, 14}};
//   vol.writeVtoc({format1Dscb(ds)});            // after the Format-4 DSCB
//   vol.setRecords(1, 0, {keyedRecord(1, key, block), eofRecord(2)});
//   DskVolume v; v.open(&vol.file());
#ifndef CKDVOL_TESTS_SUPPORT_VOLUME_BUILDER_H_
#define CKDVOL_TESTS_SUPPORT_VOLUME_BUILDER_H_

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "ckdfile/emulated_ckd_file.h"
#include "support/temp_dir.h"

namespace ckdvol_test {

// The 140-byte DSCB: key 0..43, data 44..139; the format identifier (F1 ...
// F9) at 44; the CCHHR of the next DSCB of a chain at 135 (F1, F3, F5, F8, F9).
namespace dscb_layout {
constexpr int kLength = 140, kKeyLength = 44, kDataLength = 96, kFmtId = 44, kNext = 135;
// Format-1 / Format-8: volser (6 EBCDIC), volume sequence u16, created and
// expires (year - 1900, day - 1 u16), extent count, last directory bytes,
// DSORG u16, RECFM, BLKSIZE u16, LRECL u16, key length, LastTTR (TT u16, R),
// track balance u16, three extents.
constexpr int kVolSer = 45, kVolSeq = 51, kCreated = 53, kExpires = 56, kNbrExts = 59,
              kLastDirBytes = 60, kDsOrg = 82, kRecFm = 84, kBlkSize = 86, kLrecl = 88,
              kKeyLen = 90, kLastTtr = 98, kTrkBal = 101, kF1Extents = 105;
// An extent: type, sequence, low CCHH, high CCHH.
constexpr int kExtentSize = 10, kExtType = 0, kExtSeq = 1, kExtLo = 2, kExtHi = 6;
// Format-3: key 03 03 03 03, extents 1-4 from 4, 5-13 from 45.
constexpr int kF3KeyId = 0, kF3ExtentsInKey = 4, kF3FirstExtents = 4, kF3LaterExtents = 45,
              kF3Extents = 13;
// Format-9: key 09, subtype, count; F3count at 45, ten F3 CCHHRs from 46.
constexpr int kF9KeyId = 0, kF9SubType = 1, kF9Count = 2, kF9F3Count = 45,
              kF9F3Addresses = 46, kF9F3Slots = 10;
// Format-4: LastDSCB CCHHR, DSCB count u16.
constexpr int kF4LastDscb = 45, kF4DscbCount = 50;
// Format-5: key 05 05 05 05; free extents of 5 bytes (relative track u16,
// cylinders u16, tracks): 1-8 from 4, 9-26 from 45.
constexpr int kF5KeyId = 0, kF5FirstExtents = 4, kF5LaterExtents = 45, kF5ExtentsInKey = 8,
              kF5Extents = 26, kF5ExtentSize = 5;
}  // namespace dscb_layout

// The VOL1 label's 80-byte data area: serial (6 EBCDIC), VTOC CC u16, HH u16, R.
namespace label_layout {
constexpr int kDataLength = 80, kSerial = 4, kVtocCc = 11, kVtocHh = 13, kVtocR = 15;
}  // namespace label_layout

using Dscb = std::array<unsigned char, dscb_layout::kLength>;

struct Cchhr {  // a record address
  uint32_t cyl = 0;
  uint16_t head = 0;
  uint8_t rec = 0;
};
struct ExtentSpec {  // a data set extent as the DSCBs hold it
  uint32_t loCyl = 0;
  uint16_t loHead = 0;
  uint32_t hiCyl = 0;
  uint16_t hiHead = 0;
  uint8_t type = 0x01;  // data blocks
  uint8_t seq = 0xFF;   // 0xFF: the extent's position in the data set
};
// What a Format-1 or Format-8 DSCB says about its data set.
struct DataSetLayout {
  std::string name;  // ASCII; EBCDIC, blank-padded to 44
  std::string volser = "TESTVL";
  uint16_t dsorg = 0x4000;  // PS; 0x0200 PO
  uint8_t recfm = 0x90;     // FB
  uint16_t lrecl = 80;
  uint16_t blksize = 3120;
  uint8_t keyLength = 0;
  std::vector<ExtentSpec> extents;  // the first three go into the record
  int nbrExts = -1;                 // -1: extents.size()
  Cchhr next;                       // Format-1: first Format-3; Format-8: first Format-9
  uint16_t lastTtrTrack = 0;        // LastTTR: the last used block's relative track
  uint8_t lastTtrRecord = 0;        //   and record
  uint16_t trackBalance = 0;
};
struct FreeExtent {  // a Format-5 free extent
  uint16_t track = 0;
  uint16_t cylinders = 0;
  uint8_t tracks = 0;
};

// ASCII to EBCDIC (037) for A-Z a-z 0-9 blank . $ # @ - ( ) + , / _ * &;
// throws for other characters. The padded form is blank (40) padded or cut.
std::vector<unsigned char> ebcdic(const std::string& ascii);
std::vector<unsigned char> ebcdicPadded(const std::string& ascii, size_t length);

Dscb format1Dscb(const DataSetLayout& layout);
Dscb format8Dscb(const DataSetLayout& layout);
Dscb format3Dscb(const std::vector<ExtentSpec>& extents, Cchhr next = Cchhr());  // up to 13
// Up to 10 Format-3 addresses; F3count is their number unless `f3Count` >= 0.
Dscb format9Dscb(const std::vector<Cchhr>& format3, Cchhr next = Cchhr(), int f3Count = -1);
Dscb format5Dscb(const std::vector<FreeExtent>& extents, Cchhr next = Cchhr());  // up to 26
Dscb formatIdDscb(unsigned char formatId);  // zeros but the format identifier
Dscb emptyDscb();                           // 140 zeros: Format-0
// A CCHHR / CCHH, big-endian, at `p` (the 28-bit cylinder form when `large`).
void putCchhr(unsigned char* p, Cchhr a, bool large = false);
void putCchh(unsigned char* p, uint32_t cyl, uint16_t head, bool large = false);

struct Record {
  uint8_t rec = 0;
  std::vector<unsigned char> key;
  std::vector<unsigned char> data;
  long long cyl = -1;  // count field address; -1: the track's own
  int head = -1;
};
Record dataRecord(uint8_t rec, std::vector<unsigned char> data);
Record keyedRecord(uint8_t rec, std::vector<unsigned char> key, std::vector<unsigned char> data);
Record eofRecord(uint8_t rec);                   // count field only
Record dscbRecord(uint8_t rec, const Dscb& dscb);  // key 44, data 96

// `volume.ckd` in a fresh scratch directory, created, initialised (VOL1 on
// 0/0 record 3, the VTOC on 0/1: Format-4, Format-5, then empty DSCBs) and
// kept open read-write.
class TestVolume {
 public:
  explicit TestVolume(EmulatedCKDfile::CKDtype type = EmulatedCKDfile::D600, int cylinders = 3);
  ~TestVolume();
  TestVolume(const TestVolume&) = delete;
  TestVolume& operator=(const TestVolume&) = delete;

  EmulatedCKDfile& file() { return file_; }
  const std::string& path() const { return path_; }
  const ScopedTempDir& dir() const { return dir_; }
  void close();  // writes back a changed track and closes
  void reopen(bool readOnly = false);

  // The records after record zero, in track order.
  std::vector<Record> readRecords(uint32_t cyl, uint16_t head);
  // Everything after record zero replaced by `records`; the track written.
  void setRecords(uint32_t cyl, uint16_t head, const std::vector<Record>& records);
  void appendRecords(uint32_t cyl, uint16_t head, const std::vector<Record>& records);
  // Replaces the first record numbered `r.rec`, or appends it.
  void putRecord(uint32_t cyl, uint16_t head, const Record& r);

  // 44/96 records that fit on an empty track: by bytes (the end marker by
  // slot - 24) and by record number (at most 255).
  int dscbsPerTrack() const;
  Cchhr vtocStart();  // where the label says the VTOC starts
  Dscb readDscb(Cchhr at);
  void putDscb(Cchhr at, const Dscb& dscb);
  void patchDscb(Cchhr at, int offset, const std::vector<unsigned char>& bytes);
  void setLastDscb(Cchhr at);  // the Format-4 DSCB's LastDSCB (the walk limit)
  // Replaces the VTOC after the Format-4 DSCB by `dscbs`, filling each track
  // (to `perTrack` when > 0) and going on to the next; LastDSCB becomes the
  // last one (the Format-4 DSCB when none). Returns the addresses used.
  std::vector<Cchhr> writeVtoc(const std::vector<Dscb>& dscbs, int perTrack = 0);
  // Overwrites `bytes` at `offset` of the VOL1 data area.
  void patchLabel(int offset, const std::vector<unsigned char>& bytes);

 private:
  ScopedTempDir dir_;
  std::string path_;
  EmulatedCKDfile file_;
};

}  // namespace ckdvol_test

#endif  // CKDVOL_TESTS_SUPPORT_VOLUME_BUILDER_H_
