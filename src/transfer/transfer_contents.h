// What a transfer file carries, in the form import and export hand over.
//
// A transfer file (card-image records of 80 bytes; segments with a length
// and a flags byte; control records INMR01 to INMR06 with their text units)
// brings one data set, sometimes behind a message file. A partitioned data
// set travels unloaded: two header records (COPYR1, COPYR2: the original
// attributes, device and extents), the directory blocks, then every member
// block with the count field it had on the original volume. A sequential
// data set travels as its records.
//
// The codec (transfer_file.h, unload.h) turns bytes into these structures
// and back; import and export (the tool) move them onto and off a volume.
// Relative addresses here are TTRs of the ORIGINAL data set: the unload
// reader turns each block's cylinder/head/record into a TTR through the
// extents of COPYR2, and the writer does the reverse through `extents`.
//
// Thread safety: plain values.
#ifndef CKDVOL_TRANSFER_TRANSFER_CONTENTS_H_
#define CKDVOL_TRANSFER_TRANSFER_CONTENTS_H_

#include <cstdint>
#include <string>
#include <vector>

#include "edit/data_writer.h"  // Bytes, Ttr
#include "edit/pds_edit.h"     // DirectoryEntry

namespace ckdvol {

// One extent of the original data set, as COPYR2 lists them.
struct UnloadExtent {
  uint16_t startCylinder = 0, startHead = 0;
  uint16_t endCylinder = 0, endHead = 0;
  uint16_t tracks = 0;  // tracks in this extent
};

// One block of a member at its original place. A block with no key and no
// data is an end-of-file record (the end of a member).
struct UnloadedBlock {
  Ttr ttr;
  Bytes key;
  Bytes data;
  bool endOfFile() const { return key.empty() && data.empty(); }
};

// An unloaded partitioned data set.
struct UnloadedPds {
  // DS1DSORG (2 bytes as stored), DS1RECFM byte, DS1LRECL, DS1BLKL, DS1KEYL.
  uint16_t dsorg = 0x0200;
  uint8_t recfm = 0;
  uint16_t lrecl = 0;
  uint16_t blksize = 0;
  uint8_t keyLength = 0;
  // The original device: the 4-byte device type as COPYR1 holds it, its
  // track length, heads per cylinder and cylinders; and the extents.
  uint32_t deviceType = 0;
  uint32_t trackLength = 0;
  // The unload data set's block size as COPYR1 gives it; 0 lets the
  // writer pick the usual one for `blksize` and `keyLength`.
  uint16_t containerBlockSize = 0;
  uint16_t heads = 15;
  uint16_t cylinders = 0;
  std::vector<UnloadExtent> extents;
  // Directory blocks of the original (each 256 data bytes), and its
  // entries in ascending name order with their original TTRs, indicator
  // and user data (user TTRs among them).
  uint32_t directoryBlocks = 0;
  std::vector<DirectoryEntry> entries;
  // Every member block in the order of the unload (original TTR order),
  // each member's end-of-file record included.
  std::vector<UnloadedBlock> blocks;
};

// The attributes a transfer file records for its data set (INMR02).
struct TransferAttributes {
  std::string dsn;            // dotted, ASCII (INMDSNAM)
  uint16_t dsorg = 0;         // INMDSORG: 0x4000 PS, 0x0200 PO
  uint8_t recfm = 0;          // first byte of INMRECFM
  uint32_t lrecl = 0;         // INMLRECL
  uint32_t blksize = 0;       // INMBLKSZ
  uint32_t directoryBlocks = 0;  // INMDIR (partitioned)
  uint64_t sizeBytes = 0;     // INMSIZE: the data set's size in bytes, 0 when absent
  uint8_t type = 0;           // INMTYPE: 80 data library, 40 program library, 04 extended, 01 large; 0 when absent
  uint8_t spaceUnit = 0;      // INMTYPE-like space hints, 0 when absent (see transfer_file.h)
  uint32_t primary = 0, secondary = 0;  // INMPRIME/INMSECND in that unit, 0 when absent
};

// Where and when a transfer file was made (INMR01).
struct TransferOrigin {
  std::string fromNode, fromUser;  // INMFNODE, INMFUID
  std::string toNode, toUser;      // INMTNODE, INMTUID
  std::string time;                // INMFTIME, yyyymmddhhmmss[uuuuuu]
};

// A whole transfer file.
struct TransferContents {
  TransferOrigin origin;
  TransferAttributes attributes;
  bool partitioned = false;
  UnloadedPds pds;            // when partitioned
  std::vector<Bytes> records; // when sequential: the logical records (no RDW), as sent
  std::vector<Bytes> message; // a message file in front of the data set: its records (EBCDIC), else empty
  uint64_t recordCount = 0;   // INMNUMF/INMRECCT-style count of the data set's records as stated
};

}  // namespace ckdvol

#endif  // CKDVOL_TRANSFER_TRANSFER_CONTENTS_H_
