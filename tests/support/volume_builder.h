// Test-side volume builder: makes a small, fully initialised volume in a
// scratch directory and lays out records, VTOC entries and data with the
// library's own record operations (readTrack, locate, locateNext,
// searchRecord, writeCKD, writeTrack).
//
// DSCB images are composed here field by field with the offsets named in
// `dscb_layout` below, written out independently of the library's DSCB
// classes, so a test that builds a record here and reads it through the
// library checks the library against this hand-written layout.
//
// Every operation that cannot do what it is asked throws std::runtime_error
// naming the step; GoogleTest reports it as a test failure.
//
// Typical use:
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

// ---- on-volume layouts, named once for the tests ----------------------------
namespace dscb_layout {
constexpr int kLength = 140;     // key 0..43, data 44..139
constexpr int kKeyLength = 44;
constexpr int kDataLength = 96;
constexpr int kFmtId = 44;       // format identifier, EBCDIC digit (F1 ... F9)
constexpr int kNext = 135;       // CCHHR of the next DSCB of the chain (F1, F3, F5, F8, F9)

// Format-1 / Format-8 (identical except where noted).
constexpr int kVolSer = 45;      // 6 EBCDIC
constexpr int kVolSeq = 51;      // u16
constexpr int kCreated = 53;     // 3: year - 1900, day - 1 (u16)
constexpr int kExpires = 56;     // 3
constexpr int kNbrExts = 59;     // u8
constexpr int kLastDirBytes = 60;  // u8
constexpr int kDsOrg = 82;       // u16
constexpr int kRecFm = 84;       // u8
constexpr int kBlkSize = 86;     // u16
constexpr int kLrecl = 88;       // u16
constexpr int kKeyLen = 90;      // u8
constexpr int kLastTtr = 98;     // 3: relative track u16, record u8
constexpr int kTrkBal = 101;     // u16
constexpr int kF1Extents = 105;  // three extents of kExtentSize

// One extent: type u8, sequence u8, low CC u16, HH u16, high CC u16, HH u16.
constexpr int kExtentSize = 10;
constexpr int kExtType = 0;
constexpr int kExtSeq = 1;
constexpr int kExtLo = 2;
constexpr int kExtHi = 6;

// Format-3: key id 03 03 03 03, extents 1-4 from offset 4, FmtID at 44,
// extents 5-13 from offset 45.
constexpr int kF3KeyId = 0;            // 4 bytes
constexpr int kF3ExtentsInKey = 4;
constexpr int kF3FirstExtents = 4;     // offset of extent 1
constexpr int kF3LaterExtents = 45;    // offset of extent 5
constexpr int kF3Extents = 13;

// Format-9: F3count at 45, ten F3 CCHHR addresses from 46.
constexpr int kF9KeyId = 0;       // u8, 0x09
constexpr int kF9SubType = 1;
constexpr int kF9Count = 2;
constexpr int kF9F3Count = 45;
constexpr int kF9F3Addresses = 46;  // 5 bytes each
constexpr int kF9F3Slots = 10;

// Format-4.
constexpr int kF4LastDscb = 45;   // CCHHR
constexpr int kF4DscbCount = 50;  // u16

// Format-5: key id 05 05 05 05; free extents of 5 bytes (relative track u16,
// cylinders u16, tracks u8): 1-8 from offset 4, 9-26 from offset 45.
constexpr int kF5KeyId = 0;
constexpr int kF5FirstExtents = 4;
constexpr int kF5LaterExtents = 45;
constexpr int kF5ExtentsInKey = 8;
constexpr int kF5Extents = 26;
constexpr int kF5ExtentSize = 5;
}  // namespace dscb_layout

// ---- VOL1 label data area (80 bytes) ----
namespace label_layout {
constexpr int kDataLength = 80;
constexpr int kSerial = 4;   // 6 EBCDIC
constexpr int kVtocCc = 11;  // u16
constexpr int kVtocHh = 13;  // u16
constexpr int kVtocR = 15;   // u8
}  // namespace label_layout

using Dscb = std::array<unsigned char, dscb_layout::kLength>;

// A record address: cylinder, head, record number.
struct Cchhr {
  uint32_t cyl = 0;
  uint16_t head = 0;
  uint8_t rec = 0;
};

// A data set extent as the DSCBs hold it (CCHH pairs).
struct ExtentSpec {
  uint32_t loCyl = 0;
  uint16_t loHead = 0;
  uint32_t hiCyl = 0;
  uint16_t hiHead = 0;
  uint8_t type = 0x01;  // 01: data blocks
  uint8_t seq = 0xFF;   // 0xFF: the extent's position in the data set (0, 1, ...)
};

// What a Format-1 or Format-8 DSCB says about its data set.
struct DataSetLayout {
  std::string name;        // ASCII; written in EBCDIC, blank-padded to 44
  std::string volser = "TESTVL";
  uint16_t dsorg = 0x4000;  // PS; 0x0200 PO
  uint8_t recfm = 0x90;     // FB
  uint16_t lrecl = 80;
  uint16_t blksize = 3120;
  uint8_t keyLength = 0;
  std::vector<ExtentSpec> extents;  // the first three go into the record
  int nbrExts = -1;                 // -1: extents.size()
  Cchhr next;                       // Format-1: first Format-3; Format-8: first Format-9
  uint16_t lastTtrTrack = 0;        // "LastTTR": last used block, relative track
  uint8_t lastTtrRecord = 0;        //   and record number
  uint16_t trackBalance = 0;
};

// ASCII to EBCDIC (code page 037) for the characters of data set names,
// serials and keys: A-Z, a-z, 0-9, blank and . $ # @ - ( ) + , / _ * &.
// Throws for any other character.
std::vector<unsigned char> ebcdic(const std::string& ascii);
// `ascii` in EBCDIC, padded with EBCDIC blanks (40) to `length` (cut when longer).
std::vector<unsigned char> ebcdicPadded(const std::string& ascii, size_t length);

// ---- DSCB composers ----
Dscb format1Dscb(const DataSetLayout& layout);
Dscb format8Dscb(const DataSetLayout& layout);
// Up to 13 extents; `next` is the following Format-3 DSCB (0/0/0: none).
Dscb format3Dscb(const std::vector<ExtentSpec>& extents, Cchhr next = Cchhr());
// Up to 10 Format-3 addresses; F3count is their number unless `f3Count` >= 0.
Dscb format9Dscb(const std::vector<Cchhr>& format3, Cchhr next = Cchhr(), int f3Count = -1);
// A Format-5 free-space DSCB: up to 26 (relative track, cylinders, tracks).
struct FreeExtent {
  uint16_t track = 0;
  uint16_t cylinders = 0;
  uint8_t tracks = 0;
};
Dscb format5Dscb(const std::vector<FreeExtent>& extents, Cchhr next = Cchhr());
// A record of 140 zero bytes except the format identifier (F2, F7, ...).
Dscb formatIdDscb(unsigned char formatId);
// 140 zero bytes: an empty (Format-0) DSCB.
Dscb emptyDscb();
// Stores a CCHHR / CCHH in big-endian at `p` (large-cylinder form when `large`).
void putCchhr(unsigned char* p, Cchhr a, bool large = false);
void putCchh(unsigned char* p, uint32_t cyl, uint16_t head, bool large = false);

// ---- records ----
struct Record {
  uint8_t rec = 0;
  std::vector<unsigned char> key;
  std::vector<unsigned char> data;
  // Count field address; -1 takes the track's own cylinder and head.
  long long cyl = -1;
  int head = -1;
};
Record dataRecord(uint8_t rec, std::vector<unsigned char> data);
Record keyedRecord(uint8_t rec, std::vector<unsigned char> key, std::vector<unsigned char> data);
// An end-of-file record: count field only (key and data length 0).
Record eofRecord(uint8_t rec);
// A 44/96 VTOC record holding `dscb`.
Record dscbRecord(uint8_t rec, const Dscb& dscb);

// ---- a volume in a scratch directory ----
class TestVolume {
 public:
  // Creates `volume.ckd` in a fresh scratch directory with `cylinders`
  // cylinders, initialises it with labels and an empty VTOC (VOL1 on 0/0
  // record 3, VTOC on 0/1: Format-4, Format-5, Format-7 or empty, 9 empty)
  // and keeps it open read-write.
  explicit TestVolume(EmulatedCKDfile::CKDtype type = EmulatedCKDfile::D600, int cylinders = 3);
  ~TestVolume();
  TestVolume(const TestVolume&) = delete;
  TestVolume& operator=(const TestVolume&) = delete;

  EmulatedCKDfile& file() { return file_; }
  const std::string& path() const { return path_; }
  const ScopedTempDir& dir() const { return dir_; }

  // Writes back any changed track and closes the file (e.g. before another
  // object opens the volume by path); reopen() opens it again.
  void close();
  void reopen(bool readOnly = false);

  // The records of a track after record zero, in track order.
  std::vector<Record> readRecords(uint32_t cyl, uint16_t head);
  // Replaces everything after record zero by `records` and writes the track.
  void setRecords(uint32_t cyl, uint16_t head, const std::vector<Record>& records);
  // Adds `records` after the track's last record and writes the track.
  void appendRecords(uint32_t cyl, uint16_t head, const std::vector<Record>& records);
  // Replaces the record numbered `r.rec` (the first one) or appends it.
  void putRecord(uint32_t cyl, uint16_t head, const Record& r);

  // ---- VTOC ----
  // Number of 44/96 records that fit on an empty track of this volume:
  // record zero of 8 bytes, records of 8 + 140 bytes, the end marker no
  // later than the slot size - 24, record numbers 1 to 255 (D600: 255 by
  // number, 383 by bytes).
  int dscbsPerTrack() const;
  // Where the label says the VTOC starts (0/1/1 after initialisation).
  Cchhr vtocStart();
  Dscb readDscb(Cchhr at);
  void putDscb(Cchhr at, const Dscb& dscb);
  // Overwrites `bytes` at `offset` of the DSCB at `at`.
  void patchDscb(Cchhr at, int offset, const std::vector<unsigned char>& bytes);
  // Sets the Format-4 DSCB's "LastDSCB" address (the walk limit).
  void setLastDscb(Cchhr at);
  // Replaces the VTOC after the Format-4 DSCB: `dscbs` in order from the
  // record after it, each track filled to capacity (`perTrack` > 0 caps it),
  // then the next tracks; sets LastDSCB to the last one (to the Format-4
  // DSCB itself when `dscbs` is empty). Returns the addresses used.
  std::vector<Cchhr> writeVtoc(const std::vector<Dscb>& dscbs, int perTrack = 0);

  // ---- label ----
  // Overwrites `bytes` at `offset` of the VOL1 data area (found by its key).
  void patchLabel(int offset, const std::vector<unsigned char>& bytes);

 private:
  ScopedTempDir dir_;
  std::string path_;
  EmulatedCKDfile file_;
};

}  // namespace ckdvol_test

#endif  // CKDVOL_TESTS_SUPPORT_VOLUME_BUILDER_H_
