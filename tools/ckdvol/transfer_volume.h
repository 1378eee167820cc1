// Moving a transfer file's contents onto and off a volume: the volume side
// of `ckdvol import` and `ckdvol export` (the codec, src/transfer, turns
// those contents into bytes and back).
//
// Import. A partitioned data set arrives unloaded: its directory entries
// and every member block at the TTR it had on the original volume. The
// members taken (all, or those named and the entries sharing their TTR,
// aliases among them) are copied block by block, each from its first block
// to the end-of-file record behind it, in their original order, behind the
// used space of the target. A block's new TTR depends only on the lengths
// of the blocks placed before it; every original TTR of a copied block is
// mapped to its new one, and through that map are rewritten:
//   - each entry's TTR;
//   - the user TTRs at the start of its user data: (indicator >> 5) & 3 of
//     them, 4 bytes each (TT, R, N); TTR 000000 names nothing and is kept;
//   - for a user TTR whose N is not zero, the note list record it names:
//     its first N 4-byte entries (TT, R, N) are TTRs of the same member.
// Note lists are patched in place once their blocks are staged. A TTR that
// names no copied block is refused. A sequential data set arrives as its
// records and is blocked by its attributes.
//
// A new data set is allocated with the attributes the transfer file
// records (overridable) and room for what it receives: the original
// allocation when that is larger and the volume has room for it, else the
// tracks the copied blocks need (laid out as they will be written) and a
// tenth more, else just those.
//
// Export. A partitioned data set is unloaded from the volume: attributes,
// the device geometry, its extents, its directory entries and every block
// of the members taken, end-of-file records included, with their TTRs. A
// sequential data set gives its logical records.
//
// Everything is staged in a StagedTracks (import) or built in memory
// (export); nothing is written here. Thread safety: none.
#ifndef CKDVOL_TOOLS_CKDVOL_TRANSFER_VOLUME_H_
#define CKDVOL_TOOLS_CKDVOL_TRANSFER_VOLUME_H_

#include <cstdint>
#include <string>
#include <vector>

#include "dataset/vtoc_scan.h"
#include "edit/staged_tracks.h"
#include "transfer/transfer_contents.h"

namespace ckdvol_tool {

// What an import may override and choose.
struct ImportOptions {
  std::string dsn;                   // the target's name; "" takes the transfer file's
  std::vector<std::string> members;  // names (any case) to take; empty: every entry
  bool replace = false;              // an existing data set receives the members (PO) or new contents (PS)
  uint32_t primary = 0;              // space to allocate; 0: from the contents
  bool cylinders = false;            // `primary` in cylinders, else tracks
  uint32_t directoryBlocks = 0;      // 0: the original's, or as many as the entries need
  uint16_t blksize = 0;              // 0: the original's
};

// What an import did.
struct ImportSummary {
  std::string dsn;
  bool allocated = false;      // a new data set was allocated
  uint32_t allocatedTracks = 0;
  uint64_t members = 0;        // entries that are not aliases
  uint64_t aliases = 0;
  uint64_t replaced = 0;       // entries that replaced one of the same name
  uint64_t noteLists = 0;      // note list records rewritten
  uint64_t blocks = 0;         // data blocks written (PS: blocks of records)
  uint64_t records = 0;        // PS: logical records
  uint32_t tracks = 0;         // tracks the written blocks span
};

// Stages the import of `contents` onto the volume of `staged`, whose VTOC
// scan is `vtoc`. False with `error` when it is refused; the caller then
// drops what is staged (nothing was written).
bool stageImport(ckdvol::StagedTracks& staged, const ckdvol::VtocInfo& vtoc, const ckdvol::TransferContents& contents,
                 const ImportOptions& options, ImportSummary& summary, std::string& error);

// The partitioned data set `ds` of the open volume `file` unloaded: the
// entries named in `members` (any case; empty: all) and every entry sharing
// their TTR, and the blocks of those members. False with `error` naming
// what could not be read.
bool unloadFromVolume(EmulatedCKDfile& file, const ckdvol::DataSetInfo& ds, const std::vector<std::string>& members,
                      ckdvol::UnloadedPds& out, std::string& error);

// The logical records of the sequential data set `ds` (without descriptor
// words). False with `error`.
bool recordsFromVolume(EmulatedCKDfile& file, const ckdvol::DataSetInfo& ds, std::vector<ckdvol::Bytes>& records,
                       std::string& error);

}  // namespace ckdvol_tool

#endif  // CKDVOL_TOOLS_CKDVOL_TRANSFER_VOLUME_H_
