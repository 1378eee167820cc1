// Internal header: the journal's index slots and the steps that the writing
// side and recovery share.
//
// Index slot (one whole slot, big-endian), behind the saved copies:
//   0 magic "CKDVJIDX" | 8 first entry u32 | 12 entries u32 |
//   16 entries: home slot offset u64, former trailer 16 bytes (24 each) |
//   slot-16 trailer: "JNL0" and zeros (not a saved copy: versioning's
//   commit and rollback stop at it)
#ifndef CKDVOL_JOURNAL_JOURNAL_FORMAT_H_
#define CKDVOL_JOURNAL_JOURNAL_FORMAT_H_

#include <cstdint>
#include <string>
#include <vector>

#include "ckdfile/emulated_ckd_file.h"
#include "journal/change_journal.h"

namespace ckdvol {

constexpr int kIndexHeader = 16;
constexpr int kIndexEntrySize = 24;

inline uint64_t kIndexEntriesPer(unsigned int slot) { return (slot - kIndexHeader - 16) / kIndexEntrySize; }

// Fills `out` (one slot) with index slot number `k` of `entries`.
void encodeIndexSlot(unsigned char* out, unsigned int slot, const std::vector<JournalEntry>& entries, uint64_t k);

// Reads the `count` entries of the index that starts at `at`. False with
// `error` when a slot cannot be read or is not the index expected.
bool readIndex(int fd, unsigned int slot, uint64_t at, uint64_t count, std::vector<JournalEntry>& entries,
               std::string& error);

// Writes saved copy i (at start + i * slot) back over entries[i].home with
// its former trailer, then syncs. 0, or -1 with `error`.
int restoreFromJournal(int fd, unsigned int slot, uint64_t start, const std::vector<JournalEntry>& entries,
                       std::string& error);

// Writes `record` with `state` and the next sequence number into the place
// that does not hold the newest record, and makes it durable. 0, or -1 with
// `error`.
int putJournalRecord(int fd, JournalRecord& record, JournalState state, std::string& error);

// Zeroes both places of the header record, the older one first, each made
// durable, then the saved versioning fields when `savedHeader`. 0, or -1
// with `error`.
int clearJournalRecord(int fd, uint32_t newestSequence, std::string& error, bool savedHeader = false);

// Writes the versioning fields kept at JournalRecord::kSavedHeaderOffset
// back into the header and syncs. 0, or -1 with `error`.
int restoreHeaderVersions(int fd, std::string& error);

// Makes the file object forget its current track, so the next read loads
// the slot from the file again.
void forgetCurrentTrack(EmulatedCKDfile& file);

}  // namespace ckdvol

#endif  // CKDVOL_JOURNAL_JOURNAL_FORMAT_H_
