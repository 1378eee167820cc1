// The VTOC of a volume as it really is: every data set with its attributes,
// dates, extents and end-of-data pointer, read from the VTOC's own extent.
//
// scanVtoc() reads the label (track 0/0, the record keyed VOL1), the Format-4
// DSCB at the label's VTOC address, and then every record of every track of
// the VTOC's extent (the Format-4 DSCB's VTOC extent, 10 bytes at offset 105)
// in track order, with the device's real heads per cylinder. Data sets are
// described by Format-1 DSCBs (extents continued in a chain of Format-3
// DSCBs) and Format-8 DSCBs (a chain of Format-9 DSCBs, from which Format-3
// DSCBs continue the extents). Chains are followed among the DSCBs read in
// the walk, never by reading outside the VTOC.
//
// Damage is contained: a broken chain (an address that holds no DSCB of the
// expected format, a loop, an extent count the chain cannot supply) makes
// only that data set unreadable; it is still listed, with `damage` saying
// why. Anything else odd that did not stop the walk is reported in `notes`.
//
// Every walk is bounded: the VTOC's tracks by the extent (and the volume),
// the records of a track by the track image, every chain by a visited set
// and a length of 64 DSCBs (255 extents need 20 Format-3 DSCBs; a longer
// chain is damage).
//
// Thread safety: none; scanVtoc uses the file's track buffer (the track it
// leaves current is unspecified). One thread per file object.
#ifndef CKDVOL_DATASET_VTOC_SCAN_H_
#define CKDVOL_DATASET_VTOC_SCAN_H_

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "ckdfile/emulated_ckd_file.h"
#include "common/export.h"
#include "dataset/dates.h"
#include "dataset/extent.h"

namespace ckdvol {

// A DSCB: 44-byte key followed by 96 bytes of data.
constexpr int kDscbSize = 140;

// DSORG first-byte bits and RECFM bits, as the DSCB stores them.
constexpr uint16_t kDsorgPS = 0x4000;         // physical sequential
constexpr uint16_t kDsorgDA = 0x2000;         // direct
constexpr uint16_t kDsorgPO = 0x0200;         // partitioned
constexpr uint16_t kDsorgVSAM = 0x0008;       // second byte: VSAM (AM)
constexpr uint16_t kDsorgUnmovable = 0x0100;  // the U suffix (PSU, POU)
constexpr uint8_t kRecfmFormatMask = 0xC0;    // 80 F, 40 V, C0 U, 00 none given
constexpr uint8_t kRecfmF = 0x80;
constexpr uint8_t kRecfmV = 0x40;
constexpr uint8_t kRecfmU = 0xC0;
constexpr uint8_t kRecfmBlocked = 0x10;
constexpr uint8_t kRecfmSpanned = 0x08;  // with V: spanned records (with F: standard)
constexpr uint8_t kRecfmAsa = 0x04;      // ASA control characters
constexpr uint8_t kRecfmMachine = 0x02;  // machine control characters

// One data set (a Format-1 or Format-8 DSCB and its chain).
struct CKDVOL_EXPORT DataSetInfo {
  std::string name;                             // ASCII (code page 037), trailing blanks removed
  int format = 0;                               // 1 or 8
  RecordAddress address;                        // where its Format-1/8 DSCB lies
  std::array<unsigned char, kDscbSize> dscb{};  // the Format-1/8 DSCB as read

  uint16_t dsorg = 0;  // both DSORG bytes, first byte high
  uint8_t recfm = 0;   // the RECFM byte
  uint16_t lrecl = 0;
  uint16_t blksize = 0;
  uint8_t keyLength = 0;
  YearDay created;     // DS1CREDT (offset 53)
  YearDay expires;     // DS1EXPDT (offset 56)
  YearDay referenced;  // DS1REFD (offset 75): last referenced; empty when never recorded

  uint8_t extentCount = 0;  // the DSCB's extent count (offset 59) as stored
  // The extents in data set order: the DSCB's own (up to 3), then those of
  // the chained Format-3 DSCBs, as many as `extentCount` says (fewer when
  // the chain is damaged). Slots of type 00 are not listed.
  std::vector<Extent> extents;
  uint32_t tracksAllocated = 0;  // sum of extentTracks() with the real heads

  // End-of-data pointer: DS1LSTAR (offset 98) "last used block", a relative
  // track TT (with the high byte DS1TTTHI at offset 104 for large-format data
  // sets: TTT) and the record number R of the last block written;
  // DS1TRBAL (offset 101) the bytes left on that track.
  uint32_t lastBlockTrack = 0;
  uint8_t lastBlockRecord = 0;
  uint16_t trackBalance = 0;
  bool largeFormat = false;        // DS1FLAG1 (offset 61) bit 08: large-format data set
  uint8_t lastDirectoryBytes = 0;  // offset 60: bytes used in the last directory block (PDS)

  // Tracks in use, for listings. Rule: when the last-block pointer is not
  // zero, its track + 1 (at most tracksAllocated); when it is zero and the
  // data set is sequential or partitioned (and not VSAM), 0 (nothing was
  // written); otherwise (VSAM, direct, no DSORG) tracksAllocated, because
  // the pointer is not kept for them. `usedFromPointer` tells which.
  uint32_t tracksUsed = 0;
  bool usedFromPointer = false;

  // Non-empty when the data set cannot be read: its chain is broken or its
  // extents are unusable. Names the DSCB address and the cause.
  std::string damage;

  bool partitioned() const { return (dsorg & 0xFE00) == kDsorgPO; }
  bool sequential() const { return (dsorg & 0xFE00) == kDsorgPS; }
  bool vsam() const { return (dsorg & 0x00FF) == kDsorgVSAM; }
};

// The VTOC as a whole.
struct CKDVOL_EXPORT VtocInfo {
  std::string volser;           // ASCII, 6 characters as stored (blanks kept)
  RecordAddress format4At;      // the label's VTOC address: the Format-4 DSCB
  Extent vtocExtent;            // DS4VTOCE as stored
  uint32_t vtocFirstTrack = 0;  // absolute track numbers (cyl * heads + head) walked,
  uint32_t vtocLastTrack = 0;   //   first and last inclusive
  uint32_t heads = 0;           // the device's real heads per cylinder
  uint32_t cylinders = 0;       // the volume file's cylinder count
  uint32_t dscbsPerTrack = 0;   // DS4DEVDT (offset 74) as stored; 0 when not set
  RecordAddress lastActive;     // DS4HPCHR (offset 45): the highest Format-1 DSCB

  uint32_t dscbRecords = 0;  // 44/96 records met in the walk
  uint32_t format0 = 0;      // empty DSCBs
  uint32_t format3 = 0;
  uint32_t format4 = 0;  // the VTOC's own Format-4 DSCB included
  uint32_t format5 = 0;
  uint32_t format9 = 0;
  uint32_t unknown = 0;               // any other format identifier (F2, F6, F7, ...)
  std::vector<DataSetInfo> dataSets;  // Format-1 and Format-8, sorted by name
  std::vector<std::string> notes;     // odd things that did not stop the walk
};

// Result codes of scanVtoc.
enum ScanResult {
  kScanOk = 0,
  kScanNoLabel = -1,         // track 0/0 unreadable, or no VOL1 record of 80 bytes
  kScanVtocUnreadable = -2,  // the track at the label's VTOC address cannot be read
  kScanNoFormat4 = -3        // no 44/96 record at that address, or it is not Format 4
};

// Reads the VTOC of the open volume `file` into `out` (replacing what it
// held). Returns a ScanResult; on a negative result `error` names the cause
// and the address, and `out` holds what was read before it. Data sets whose
// chain is damaged are listed with `damage` set; the result is still 0.
// When the Format-4 DSCB's VTOC extent is unusable (not well formed, outside
// the volume, or not holding the Format-4 DSCB's track), the walk covers the
// tracks from the Format-4 DSCB's track to the last active DSCB's track and
// a note says so.
CKDVOL_EXPORT int scanVtoc(EmulatedCKDfile& file, VtocInfo& out, std::string& error);

// The data set called `name` (ASCII, exact, without trailing blanks) in a
// scanned VTOC, or null. The pointer lives as long as `vtoc.dataSets` is not
// changed.
CKDVOL_EXPORT const DataSetInfo* findDataSet(const VtocInfo& vtoc, const std::string& name);

}  // namespace ckdvol

#endif  // CKDVOL_DATASET_VTOC_SCAN_H_
