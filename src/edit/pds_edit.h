// Changing a partitioned data set: its directory and its members.
//
// A PdsEditor reads the directory once (load()), keeps its entries in
// memory, and gathers every change there: members written (their blocks
// and end-of-file record behind the last used record of the data set),
// deleted, renamed, given aliases, or the data set compressed. commit()
// stages the result in the StagedTracks: the data tracks written, the
// directory rewritten, the end of data in the Format-1 DSCB. Nothing is
// staged before commit(); a refusal (a false result) says why, and a caller
// then drops the editor (after a failed writeMember it is no longer usable).
//
// The directory is the run of 256-byte records with 8-byte keys from record
// 1 of relative track 0 up to the end-of-file record that closes it; their
// number is the directory's size in blocks. It is written back with the
// entries in ascending order of their EBCDIC names, each block filled with
// as many whole entries as fit its 254 bytes, keyed with the name of its
// last entry, the end entry (FF x 8) behind the last entry (in the next
// block when it does not fit), every later block in the unused form of
// edit/directory_block.h.
//
// The used space ends at the last of: the directory's end-of-file record,
// each member's end-of-file record, the DSCB's last-block pointer. Members
// written go behind it; the space of a replaced or deleted member stays
// used until compress() moves every member together behind the directory.
//
// Thread safety: none; one thread per object and per file.
#ifndef CKDVOL_EDIT_PDS_EDIT_H_
#define CKDVOL_EDIT_PDS_EDIT_H_

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "common/export.h"
#include "dataset/extent.h"
#include "dataset/pds_directory.h"
#include "dataset/vtoc_scan.h"
#include "edit/data_writer.h"
#include "edit/staged_tracks.h"

namespace ckdvol {

// One directory entry as stored.
struct CKDVOL_EXPORT DirectoryEntry {
  std::array<unsigned char, 8> name{};  // EBCDIC, blank padded
  Ttr ttr;                              // TT (16 bits) and R
  uint8_t indicator = 0;                // 80 alias | 60 user TTRs | 1F halfwords of user data
  Bytes userData;                       // 2 x (indicator & 1F) bytes
  bool alias() const { return (indicator & 0x80) != 0; }
  std::string text() const;  // the name in ASCII, trailing blanks removed
};

// Whether `name` (ASCII) is a member name: 1 to 8 characters, A-Z @ # $
// first, then those or 0-9. Upper-case it first to accept any case.
CKDVOL_EXPORT bool validMemberName(const std::string& name);

// What writeMember did.
struct MemberWrite {
  Ttr first;            // the member's first block (its EOF record when empty)
  uint64_t blocks = 0;  // data blocks
  uint32_t tracks = 0;  // tracks from the first block to the EOF record
  bool replaced = false;
};

// What compress did.
struct CompressSummary {
  size_t members = 0;   // distinct TTRs moved (aliases move with their member)
  uint64_t blocks = 0;  // data blocks copied
  Ttr end;              // the new end of the used space (the last EOF record)
};

class CKDVOL_EXPORT PdsEditor {
 public:
  PdsEditor(StagedTracks& staged, const DataSetInfo& ds);
  ~PdsEditor();
  PdsEditor(const PdsEditor&) = delete;
  PdsEditor& operator=(const PdsEditor&) = delete;

  // Reads the directory and finds the end of the used space. False with
  // `error` when the data set is not partitioned, cannot be written, or its
  // directory or a member's records cannot be walked. An entry whose TTR
  // lies past the extents is kept as it is and holds no space.
  bool load(std::string& error);

  // The entries, in ascending name order.
  const std::vector<DirectoryEntry>& entries() const { return entries_; }
  // The entry called `name` (ASCII, compared in upper case), or null.
  const DirectoryEntry* find(const std::string& name) const;
  uint32_t directoryBlocks() const { return static_cast<uint32_t>(blocks_.size()); }
  // The last record of the used space.
  Ttr usedEnd() const { return usedEnd_; }

  // Writes `blocks` (each at most the track's capacity) and an EOF record
  // behind the used space and points the entry `name` at them, with
  // `userData` (even, at most 62 bytes; its length sets the indicator).
  // An existing entry is refused unless `replace`; with `replace` and no
  // such entry the member is added. An alias entry is never replaced.
  bool writeMember(const std::string& name, const std::vector<Bytes>& blocks, const Bytes& userData, bool replace,
                   MemberWrite& out, std::string& error);
  // Places one record behind the used space without pointing any entry at
  // it: a block (`keyLength` 0 for none), or with no key and no data an
  // end-of-file record. `at` gets its TTR, which depends only on the
  // lengths of the records placed before it. Loading a member whose
  // directory entry and note lists name its blocks (a load module) places
  // every block this way and then sets the entries with putEntry(). False
  // with `error` as writeMember (the editor is then no longer usable).
  bool appendRecord(const unsigned char* key, uint32_t keyLength, const unsigned char* data, uint32_t dataLength,
                    Ttr& at, std::string& error);
  // Sets the entry `entry.name` exactly as given: TTR, indicator (alias bit
  // and user TTR count included) and user data, whose length must be 2 x
  // (indicator & 1F). An existing entry of that name (member or alias) is
  // refused unless `replace`. The name FF x 8 (the end of the directory) is
  // refused.
  bool putEntry(const DirectoryEntry& entry, bool replace, std::string& error);
  // Removes the entry `name` (a member's aliases keep pointing at its data).
  bool remove(const std::string& name, std::string& error);
  // Renames an entry, keeping its TTR and user data; an existing `to` is refused.
  bool rename(const std::string& from, const std::string& to, std::string& error);
  // Adds the alias `alias` of `member`: the alias bit, the member's TTR and user data.
  bool addAlias(const std::string& alias, const std::string& member, std::string& error);
  // Rewrites every member's blocks one behind the other from the record
  // after the directory's EOF, in TTR order, and points every entry (an
  // alias with its member) at the new place. Refused when an entry carries
  // user TTRs (load modules: their note lists would point at old places),
  // naming those entries, and after writeMember in the same editor.
  bool compress(CompressSummary& out, std::string& error);

  // Stages the change: the tracks written, the directory blocks, the DSCB's
  // end of data (DS1LSTAR the last record of the used space, DS1TRBAL, the
  // bytes used in the last directory block). False with `error` when the
  // entries do not fit the directory: "directory full: N blocks, M entries".
  bool commit(std::string& error);

  // The directory blocks commit() would write: key (8) + data (256) each, as
  // many as the directory has. False with `error` when they do not fit.
  bool buildDirectory(std::vector<Bytes>& blocks, int& lastUsedBytes, std::string& error) const;

 private:
  struct Place {
    uint32_t track;
    uint8_t record;
  };
  bool findEnd(Ttr from, Ttr& eof, std::string& error);
  bool readMember(Ttr from, std::vector<Bytes>& keys, std::vector<Bytes>& data, std::string& error);
  bool startWriter(std::string& error);
  std::vector<DirectoryEntry>::iterator lookup(const std::array<unsigned char, 8>& name);
  // The entry called `name` (ASCII), or end() with "member ... not found".
  std::vector<DirectoryEntry>::iterator existing(const std::string& name, std::string& error);
  // Whether `name` is a member name no entry has; its stored form in `out`.
  bool unusedName(const std::string& name, std::array<unsigned char, 8>& out, std::string& error);

  StagedTracks& staged_;
  const DataSetInfo& ds_;
  ExtentMap map_;
  std::vector<Place> blocks_;  // the directory blocks
  Ttr directoryEof_;
  Ttr usedEnd_;
  std::vector<DirectoryEntry> entries_;
  std::unique_ptr<DataWriter> writer_;
  uint32_t endBalance_ = 0;  // the bytes free on usedEnd_'s track, when written here
  bool wrote_ = false;
  bool loaded_ = false;
};

}  // namespace ckdvol

#endif  // CKDVOL_EDIT_PDS_EDIT_H_
