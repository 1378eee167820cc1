// Internal header: the journal's index slots and the steps that the writing
// side and recovery share.
//
// Index slot (one whole slot, big-endian), behind the saved copies:
//   0 magic "CKDVJIDX" | 8 first entry u32 | 12 entries u32 |
//   16 entries: home slot offset u64, former trailer 16 bytes (24 each) |
//   slot-16 trailer: "JNL0", the index's total entries u32, zeros (not a
//   saved copy: versioning's commit and rollback stop at it)
//
// A track whose former image was exactly the empty formatted track of its
// address (home address, record zero, end marker, zeros; any trailer) gets
// no saved copy: its entry's home offset carries kEntryEmptyTrack and the
// image is made again when it is given back. The saved copies belong, in
// order, to the entries without the flag. A total of 0 (an index written
// before empty tracks were left out) means as many entries as copies.
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

constexpr int kIndexTotal = 4;  // within the index slot's trailer
constexpr uint64_t kEntryEmptyTrack = 1ull << 63;  // never set in a real slot offset

inline uint64_t kIndexEntriesPer(unsigned int slot) { return (slot - kIndexHeader - 16) / kIndexEntrySize; }

// Fills `out` (one slot) with the empty formatted track whose slot lies at
// file offset `home` of a volume of `geometry`'s device, cylinders and
// cylinder encoding, trailer zero. False (nothing filled) for a D200 volume
// or an offset that is not one of the volume's track slots.
bool emptyTrackImage(EmulatedCKDfile& geometry, uint64_t home, unsigned char* out);
// The same, but only the bytes before and of the end marker are filled (the
// rest of an empty track is zeros): for a buffer whose tail is zeros already.
bool emptyTrackPrefix(EmulatedCKDfile& geometry, uint64_t home, unsigned char* out);

// Fills `out` (one slot) with index slot number `k` of `entries`.
void encodeIndexSlot(unsigned char* out, unsigned int slot, const std::vector<JournalEntry>& entries, uint64_t k);

// Reads the entries of the index that starts at `at` and behind `copies`
// saved copies, in at most `maxSlots` slots. False with `error` when a slot
// cannot be read or is not the index expected, or when the entries without
// the empty-track flag are not exactly `copies`.
bool readIndex(int fd, unsigned int slot, uint64_t at, uint64_t copies, uint64_t maxSlots,
               std::vector<JournalEntry>& entries, std::string& error);

// Writes each entry's former image back over its track with its former
// trailer: the saved copies (from `start` on, one per entry without the
// empty-track flag, in order), the empty tracks made again with `geometry`
// (null when the volume's geometry is unknown: an empty track is refused);
// then syncs. 0, or -1 with `error`.
int restoreFromJournal(int fd, unsigned int slot, EmulatedCKDfile* geometry, uint64_t start,
                       const std::vector<JournalEntry>& entries, std::string& error);

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
