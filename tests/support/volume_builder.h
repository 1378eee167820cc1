// Test-side volume builder: a small initialised volume in a scratch directory,
// records, VTOC entries and data laid out with the library's own record
// operations (readTrack, locate, locateNext, writeCKD, writeTrack). DSCB images
// are composed byte by byte at hand-written offsets, independently of the
// library's DSCB classes. Failures throw std::runtime_error naming the step.
#ifndef CKDVOL_TESTS_SUPPORT_VOLUME_BUILDER_H_
#define CKDVOL_TESTS_SUPPORT_VOLUME_BUILDER_H_

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "ckdfile/emulated_ckd_file.h"
#include "support/temp_dir.h"

namespace ckdvol_test {

// The VOL1 label's 80-byte data area: serial (6 EBCDIC) at 4, VTOC CC HH R at 11.
namespace label_layout {
constexpr int kDataLength = 80, kSerial = 4, kVtocCc = 11, kVtocHh = 13, kVtocR = 15;
}

using Dscb = std::array<unsigned char, 140>;  // key 0..43, data 44..139

struct Cchhr {
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
struct DataSetLayout {  // what a Format-1 or Format-8 DSCB says
  std::string name;     // ASCII; EBCDIC, blank-padded to 44
  std::string volser = "TESTVL";
  uint16_t dsorg = 0x4000;  // PS; 0x0200 PO
  uint8_t recfm = 0x90;     // FB
  uint16_t lrecl = 80, blksize = 3120;
  uint8_t keyLength = 0;
  std::vector<ExtentSpec> extents;  // the first three go into the record
  int nbrExts = -1;                 // -1: extents.size()
  Cchhr next;                       // Format-1: first Format-3; Format-8: first Format-9
  uint16_t lastTtrTrack = 0;        // LastTTR
  uint8_t lastTtrRecord = 0;
  uint16_t trackBalance = 0;
};
struct FreeExtent {  // a Format-5 free extent
  uint16_t track = 0, cylinders = 0;
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
Dscb emptyDscb();                           // Format-0
// A CCHHR / CCHH, big-endian, at `p` (the 28-bit cylinder form when `large`).
void putCchhr(unsigned char* p, Cchhr a, bool large = false);
void putCchh(unsigned char* p, uint32_t cyl, uint16_t head, bool large = false);

struct Record {
  uint8_t rec = 0;
  std::vector<unsigned char> key, data;
  long long cyl = -1;  // count field address; -1: the track's own
  int head = -1;
};
Record dataRecord(uint8_t rec, std::vector<unsigned char> data);
Record keyedRecord(uint8_t rec, std::vector<unsigned char> key, std::vector<unsigned char> data);
Record eofRecord(uint8_t rec);                     // count field only
Record dscbRecord(uint8_t rec, const Dscb& dscb);  // key 44, data 96

// `volume.ckd` in a fresh scratch directory, created, initialised (VOL1 on
// 0/0, the VTOC on 0/1: Format-4, Format-5, empty DSCBs), open read-write.
class TestVolume {
 public:
  explicit TestVolume(EmulatedCKDfile::CKDtype type = EmulatedCKDfile::D600, int cylinders = 3);
  ~TestVolume() { file_.close(); }
  TestVolume(const TestVolume&) = delete;
  TestVolume& operator=(const TestVolume&) = delete;

  EmulatedCKDfile& file() { return file_; }
  const std::string& path() const { return path_; }
  void close();  // writes back a changed track and closes
  void reopen(bool readOnly = false);

  std::vector<Record> readRecords(uint32_t cyl, uint16_t head);  // after record zero
  // Everything after record zero replaced by `records` / `records` added; the track written.
  void setRecords(uint32_t cyl, uint16_t head, const std::vector<Record>& records);
  void appendRecords(uint32_t cyl, uint16_t head, const std::vector<Record>& records);
  void putRecord(uint32_t cyl, uint16_t head, const Record& r);  // replaces record r.rec or appends

  int dscbsPerTrack() const;  // 44/96 records on an empty track (by bytes, at most 255)
  Cchhr vtocStart();          // where the label says the VTOC starts
  Dscb readDscb(Cchhr at);
  void putDscb(Cchhr at, const Dscb& dscb);
  void patchDscb(Cchhr at, int offset, const std::vector<unsigned char>& bytes);
  void setLastDscb(Cchhr at);  // the Format-4 DSCB's LastDSCB (the walk limit)
  // Replaces the VTOC after the Format-4 DSCB by `dscbs`, filling each track
  // (to `perTrack` when > 0); LastDSCB becomes the last one. Returns the addresses.
  std::vector<Cchhr> writeVtoc(const std::vector<Dscb>& dscbs, int perTrack = 0);
  void patchLabel(int offset, const std::vector<unsigned char>& bytes);  // in VOL1's data

 private:
  ScopedTempDir dir_;
  std::string path_;
  EmulatedCKDfile file_;
};

}  // namespace ckdvol_test

#endif  // CKDVOL_TESTS_SUPPORT_VOLUME_BUILDER_H_
