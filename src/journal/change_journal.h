// The change journal: every change the tool makes to a volume is complete or
// undone, even when the process is killed or the power fails in the middle.
//
// Before a track slot is overwritten, its former image is written behind the
// last track (and behind any saved copies of track versioning), in the same
// saved-copy format versioning uses: the whole slot, trailer "VER0", the
// version the image carried, and a link to its home slot. An index behind
// the copies keeps each home slot's offset and its exact former trailer, so
// an undo gives back every byte. A track that held nothing but the empty
// formatted track of its address gets no copy (loading new data onto free
// tracks then writes each track once, not twice): its index entry says so,
// and an undo makes that image again and puts its former trailer back. The state of the change lives in a small
// record in the volume header's reserved bytes (384..511), written twice
// over (two 64-byte places, a sequence number and a CRC each), so a torn
// write of one place leaves the other one standing:
//
//   open     copies being written; no track touched yet   -> undo: cut them off
//   sealed   copies and index durable; tracks being written -> undo: write back
//   done     tracks durable; the copies may go              -> finish: cut them off
//   commit / rollback  a version commit or rollback under way -> finish it
//
// Order of a change: record "open", sync; copies and index, sync; record
// "sealed", sync; the tracks (the caller's writes), sync; record "done",
// sync; cut the copies off, sync; clear the record, sync.
//
// Under an active track version, a track whose image carries an older
// version needs a saved copy of the version anyway: its journal copy is that
// copy. Those copies come first and stay behind when the change is done; the
// track is stamped with the active version and linked to it before the
// caller writes it, so the library's own write path makes no further copy.
// Such a copy is always a whole copy, even of an empty track: the version
// needs the saved image itself.
#ifndef CKDVOL_JOURNAL_CHANGE_JOURNAL_H_
#define CKDVOL_JOURNAL_CHANGE_JOURNAL_H_

#include <cstdint>
#include <string>
#include <vector>

#include "ckdfile/emulated_ckd_file.h"
#include "common/export.h"

namespace ckdvol {

enum class JournalState : uint8_t {
  kNone = 0,
  kOpen = 1,      // copies being written
  kSealed = 2,    // copies durable, tracks being written
  kDone = 3,      // tracks durable, copies still behind them
  kCommit = 4,    // a commit of the active version is under way
  kRollback = 5   // a rollback of the active version is under way
};

const char* journalStateName(JournalState state);

// The header's change record.
struct CKDVOL_EXPORT JournalRecord {
  static constexpr int kOffset = 384;     // first of the two places
  static constexpr int kPlaceSize = 64;   // each place
  static constexpr int kCommandLength = 12;

  static constexpr int kSavedHeaderOffset = 376;  // 8 bytes: header 26..33 before the change
  static constexpr uint8_t kHeaderSaved = 1;       // flags: kSavedHeaderOffset holds them

  JournalState state = JournalState::kNone;
  uint8_t flags = 0;
  uint32_t sequence = 0;
  uint16_t version = 0;       // the active version when the change began
  uint64_t startEnd = 0;      // file length before the change
  uint64_t keepEnd = 0;       // end of the saved copies that stay (versioning)
  uint64_t copyEnd = 0;       // end of all copies; the index follows
  uint64_t journalEnd = 0;    // file length while the change is under way
  char command[kCommandLength + 1] = {};  // what made the change, for messages

  // 64 bytes, big-endian; `out` holds kPlaceSize bytes.
  void encode(unsigned char* out) const;
  // False when the magic or the CRC does not match (a torn or empty place).
  bool decode(const unsigned char* in);
};

// Reads both places of the header record from `fd`. `present` says whether
// a valid record names a change under way (state not kNone). False on a read
// error (errno set).
CKDVOL_EXPORT bool readJournalRecord(int fd, JournalRecord& record, bool& present);

// One saved track: its home slot's offset and the trailer it had; `empty`
// when it held the empty formatted track of its address (no saved copy).
struct JournalEntry {
  uint64_t home = 0;
  unsigned char trailer[16] = {};
  bool empty = false;
};

// Makes each change of a volume complete or undone. The file must be open
// read-write and must not hold a changed track in its buffer.
class CKDVOL_EXPORT ChangeJournal {
 public:
  ChangeJournal(EmulatedCKDfile& file, const char* command);
  ChangeJournal(const ChangeJournal&) = delete;
  ChangeJournal& operator=(const ChangeJournal&) = delete;

  // Before begin(): keeps the header's versioning fields (marker, active and
  // latest version) so that an undo also takes back a version the change
  // enables. 0 or negative.
  int saveHeaderVersions();

  // Saves the former images of the track slots at `slots` (file offsets of
  // whole track slots; duplicates are ignored) and makes them durable. After
  // 0 the caller may rewrite exactly these slots, through writeTrack or
  // writeRawTrack. Negative on failure, with error() saying why; nothing has
  // been written to a track then, and undo() cuts off what was appended.
  int begin(const std::vector<uint64_t>& slots);

  // Writes back the file's changed track, makes every write durable, marks
  // the change done and cuts the copies off. 0, or negative with error():
  // before "done" is durable the caller should undo(); after it, complete()
  // is true and only the clean-up failed (recovery finishes it).
  int finish();

  // Writes every saved former image back over its track, makes that durable
  // and cuts the copies off: the volume is as before begin(). 0 or negative.
  int undo();

  // True once the change is durably marked done.
  bool complete() const { return done_; }
  // Number of slots begin() saved.
  size_t tracks() const { return homes_.size(); }
  const std::string& error() const { return error_; }

 private:
  using Entry = JournalEntry;
  int fail(const std::string& what);
  int writeRecord(JournalState state);
  int clearRecord();

  EmulatedCKDfile& file_;
  std::string command_;
  std::vector<Entry> homes_;  // in copy order
  JournalRecord record_;
  bool begun_ = false;
  bool headerSaved_ = false;
  bool sealed_ = false;
  bool done_ = false;
  std::string error_;
};

// ---- recovery ----------------------------------------------------------------

struct CKDVOL_EXPORT RecoveryReport {
  std::string found;    // what was interrupted, in words; empty when nothing
  std::string action;   // "none", "undone", "finished" or "removed"
  std::string command;  // the change's command name, when a record names one
  uint64_t tracksRestored = 0;
  uint64_t copiesDropped = 0;
  uint64_t bytesBefore = 0;
  uint64_t bytesAfter = 0;
  std::vector<std::string> notes;
};

// Finishes or undoes whatever was interrupted in the volume file at `path`:
// a change under way (by its header record), a version commit or rollback
// under way, a saved copy cut short at the end of the file, trailing saved
// copies whose tracks never took the change, or an unfinished creation
// (header "CKD_INIT", or a file too short for a header: removed). 0 with the
// report, or negative with `error` (nothing more was changed after the
// failing call).
CKDVOL_EXPORT int recoverVolume(const std::string& path, RecoveryReport& report, std::string& error);

// Resuming an interrupted version commit or rollback on an open volume:
// cuts off the newest saved copies whose tracks already hold what the
// operation writes there (stopping at the first copy its track still links
// to), and returns how many were cut; negative with `error` when a copy is
// neither pending nor processed (nothing changed then).
CKDVOL_EXPORT long long cutProcessedCopies(EmulatedCKDfile& file, int operation, std::string& error);

// Home addresses mended by a repair under a version: a copy and its track
// then name different tracks, which the library's commit and rollback
// refuse. For those pairs only, the address the operation throws away is
// made to agree. Number of pairs aligned, or negative on an I/O error.
CKDVOL_EXPORT long long alignRepairCopies(EmulatedCKDfile& file, int operation);

// Commits (operation 1) or rolls back (-1) the active version with its intent
// recorded in the header first, so that recovery can finish an interrupted
// run; resumes what an earlier run left. Number of copies processed, or
// negative with `error`: the library's own doVersion result, or
// kVersionOperationFailed. `resumed` gets the copies an earlier run had
// already processed.
constexpr long long kVersionOperationFailed = -100;
// `underWay` says whether a failure left the operation recorded as under way
// (recovery finishes it); when false nothing was changed.
CKDVOL_EXPORT long long runVersionOperation(EmulatedCKDfile& file, int operation, const char* command,
                                            long long& resumed, bool& underWay, std::string& error);

}  // namespace ckdvol

#endif  // CKDVOL_JOURNAL_CHANGE_JOURNAL_H_
