// Version commit and rollback that survive an interruption: the intent is
// recorded in the header first, and a second run (or recovery) resumes.
#include <cerrno>
#include <cstring>
#include <vector>

#include "ckdfile/versioning.h"
#include "journal/change_journal.h"
#include "journal/file_io.h"
#include "journal/journal_format.h"

namespace ckdvol {
namespace {

using F = EmulatedCKDfile;

std::string withErrno(const std::string& what) {
  return errno != 0 ? what + ": " + std::strerror(errno) : what;
}

// What a commit (or rollback) leaves in a home slot it has processed: commit
// keeps the track's contents and copies the saved copy's trailer over the
// home trailer (a zero trailer when that version was 0); rollback writes the
// saved copy back whole with the same trailer rule. Either way the home slot
// no longer links to the copy.
bool homeShowsProcessed(const unsigned char* copy, const unsigned char* home, unsigned int slot, int operation) {
  const unsigned char* copyTrailer = trailerOf(copy, slot);
  unsigned char expected[kTrailerSize];
  if (trailerVersion(copyTrailer) == 0) {
    std::memset(expected, 0, sizeof expected);
  } else {
    std::memcpy(expected, copyTrailer, sizeof expected);
  }
  if (std::memcmp(trailerOf(home, slot), expected, kTrailerSize) != 0) return false;
  return operation != kVersionRollback || std::memcmp(home, copy, slot - kTrailerSize) == 0;
}

// The home slot a saved copy belongs to, or -1.
long long homeOf(const F& f, const unsigned char* copy) {
  const unsigned long long link = trailerLink(trailerOf(copy, f.trackSlotSize));
  if (link != 0) return static_cast<long long>(link);
  const unsigned char* q = copy;
  unsigned char flag;
  unsigned int cyl, head;
  f.getHA(q, flag, cyl, head);
  return f.getOffset(cyl, static_cast<unsigned short>(head), 0, true);
}

// True when the home address in `slot` names the track whose slot lies at
// file offset `home` (any cell).
bool namesOwnSlot(const F& f, const unsigned char* slot, unsigned long long home) {
  const unsigned char* p = slot;
  unsigned char flag;
  unsigned int cyl, head;
  f.getHA(p, flag, cyl, head);
  for (unsigned short cell = 0; cell < f.cellCount; ++cell) {
    if (f.getOffset(cyl, static_cast<unsigned short>(head), cell, true) == static_cast<long long>(home)) return true;
  }
  return false;
}

// The links doVersion checks before it writes anything, walked the same way
// (from the newest copy back), without its home-address comparison, which
// alignRepairCopies settles. 0 or doVersion's code for the first broken link.
int checkLinks(F& f) {
  const unsigned int slot = f.trackSlotSize;
  const long long dataEnd = f.getMaxOffset();
  const long long size = journal_io::fileLength(f.fileDescriptor);
  if (dataEnd < 0 || size < 0) return kDoVersionNoEnd;
  std::vector<unsigned char> copy(slot), home(slot);
  for (long long p = size - slot; p >= dataEnd; p -= slot) {
    f.lastReadOffset = static_cast<unsigned long long>(p);
    if (!journal_io::readAt(f.fileDescriptor, copy.data(), slot, static_cast<uint64_t>(p))) return kDoVersionCopyRead;
    const unsigned char* t = trailerOf(copy.data(), slot);
    if (!trailerHasMarker(t)) return kDoVersionCopyNoMarker;
    if (trailerVersion(t) + 1 > f.activeVersion) break;
    const long long h = homeOf(f, copy.data());
    if (h < 0) return kDoVersionHomeRead;
    f.lastReadOffset = static_cast<unsigned long long>(h);
    if (!journal_io::readAt(f.fileDescriptor, home.data(), slot, static_cast<uint64_t>(h))) return kDoVersionHomeRead;
    const unsigned char* ht = trailerOf(home.data(), slot);
    if (!trailerHasMarker(ht)) return kDoVersionHomeNoMarker;
    if (trailerLink(ht) != static_cast<unsigned long long>(p)) return kDoVersionHomeNoLink;
  }
  return 0;
}

}  // namespace

long long cutProcessedCopies(F& f, int operation, std::string& error) {
  const unsigned int slot = f.trackSlotSize;
  const long long dataEnd = f.getMaxOffset();
  const long long size = journal_io::fileLength(f.fileDescriptor);
  if (dataEnd < 0 || size < 0) {
    error = "cannot find the end of the file";
    return kVersionOperationFailed;
  }
  if (size > dataEnd && (size - dataEnd) % slot != 0) {
    error = "the file ends with part of a slot (a saved copy cut short): run 'ckdvol recover' first";
    return kVersionOperationFailed;
  }
  std::vector<unsigned char> copy(slot), home(slot);
  long long keepEnd = size, cut = 0;
  for (long long p = size - slot; p >= dataEnd; p -= slot) {
    errno = 0;
    if (!journal_io::readAt(f.fileDescriptor, copy.data(), slot, static_cast<uint64_t>(p))) {
      error = withErrno("cannot read the saved copy at file offset " + std::to_string(p));
      return kVersionOperationFailed;
    }
    if (!trailerHasMarker(trailerOf(copy.data(), slot))) {
      error = "the slot at file offset " + std::to_string(p) + " lies behind the last track but is not a saved copy";
      return kVersionOperationFailed;
    }
    const long long h = homeOf(f, copy.data());
    if (h < 0 || h >= dataEnd) {
      error = "the saved copy at file offset " + std::to_string(p) + " names a track outside the volume";
      return kVersionOperationFailed;
    }
    if (!journal_io::readAt(f.fileDescriptor, home.data(), slot, static_cast<uint64_t>(h))) {
      error = withErrno("cannot read the track slot at file offset " + std::to_string(h));
      return kVersionOperationFailed;
    }
    const unsigned char* ht = trailerOf(home.data(), slot);
    if (trailerHasMarker(ht) && trailerLink(ht) == static_cast<unsigned long long>(p)) break;  // still pending
    if (!homeShowsProcessed(copy.data(), home.data(), slot, operation)) {
      error = "the track slot at file offset " + std::to_string(h) +
              " neither links to its saved copy nor holds what an interrupted " +
              (operation == kVersionCommit ? "commit" : "rollback") + " writes there";
      return kVersionOperationFailed;
    }
    keepEnd = p;
    ++cut;
  }
  if (cut > 0) {
    errno = 0;
    if (!journal_io::cut(f.fileDescriptor, static_cast<uint64_t>(keepEnd)) || !journal_io::sync(f.fileDescriptor)) {
      error = withErrno("cannot cut the processed copies off the file");
      return kVersionOperationFailed;
    }
  }
  return cut;
}

long long alignRepairCopies(F& f, int operation) {
  const unsigned int slot = f.trackSlotSize;
  const long long dataEnd = f.getMaxOffset();
  const long long size = journal_io::fileLength(f.fileDescriptor);
  long long aligned = 0;
  std::vector<unsigned char> copy(slot), home(slot);
  for (long long p = size - slot; dataEnd >= 0 && p >= dataEnd; p -= slot) {
    if (!journal_io::readAt(f.fileDescriptor, copy.data(), slot, static_cast<uint64_t>(p))) return kVersionOperationFailed;
    const unsigned char* t = trailerOf(copy.data(), slot);
    if (!trailerHasMarker(t) || trailerVersion(t) + 1 > f.activeVersion) break;
    const unsigned long long h = trailerLink(t);
    if (h == 0 || h + slot > static_cast<unsigned long long>(dataEnd)) continue;
    if (!journal_io::readAt(f.fileDescriptor, home.data(), slot, h)) return kVersionOperationFailed;
    const unsigned char* ht = trailerOf(home.data(), slot);
    if (!trailerHasMarker(ht) || trailerLink(ht) != static_cast<unsigned long long>(p)) continue;
    if (std::memcmp(copy.data(), home.data(), kHomeAddressSize) == 0) continue;
    if (!namesOwnSlot(f, home.data(), h) || namesOwnSlot(f, copy.data(), h)) continue;
    // Rollback puts the copy's address on the track it is about to
    // overwrite, commit the track's address on the copy it is about to cut.
    // The whole slot is written, so that a write cut short still carries
    // the whole new address at its start.
    if (operation == kVersionRollback) {
      std::memcpy(home.data(), copy.data(), kHomeAddressSize);
      if (!journal_io::writeAt(f.fileDescriptor, home.data(), slot, h)) return kVersionOperationFailed;
    } else {
      std::memcpy(copy.data(), home.data(), kHomeAddressSize);
      if (!journal_io::writeAt(f.fileDescriptor, copy.data(), slot, static_cast<uint64_t>(p))) return kVersionOperationFailed;
    }
    ++aligned;
  }
  return aligned;
}

long long runVersionOperation(F& f, int operation, const char* command, long long& resumed, bool& underWay,
                              std::string& error) {
  resumed = 0;
  underWay = false;
  const int fd = f.fileDescriptor;
  const JournalState intent = operation == kVersionCommit ? JournalState::kCommit : JournalState::kRollback;
  JournalRecord record;
  bool present = false;
  errno = 0;
  if (!readJournalRecord(fd, record, present)) {
    error = withErrno("cannot read the volume header");
    return kVersionOperationFailed;
  }
  if (present && record.state != intent) {
    error = std::string("an interrupted ") + (record.state == JournalState::kCommit     ? "commit"
                                              : record.state == JournalState::kRollback ? "rollback"
                                                                                        : "change") +
            " (" + record.command + ") is still in the file";
    return kVersionOperationFailed;
  }
  const long long size = journal_io::fileLength(fd), dataEnd = f.getMaxOffset();
  if (size < 0 || dataEnd < 0 || (size > dataEnd && (size - dataEnd) % f.trackSlotSize != 0)) {
    underWay = present;
    error = "the file ends with part of a slot (a saved copy cut short): run 'ckdvol recover' first";
    return kVersionOperationFailed;
  }
  if (!present) {
    // Nothing is written (not even the record) when the copies' links are
    // broken: the library would stop at the first one anyway.
    const int links = checkLinks(f);
    if (links != 0) {
      error = "a saved copy and its track do not link to each other";
      return links;
    }
    std::memset(record.command, 0, sizeof record.command);
    std::strncpy(record.command, command, JournalRecord::kCommandLength);
    record.version = static_cast<uint16_t>(f.activeVersion);
    const long long length = journal_io::fileLength(fd);
    record.startEnd = record.keepEnd = record.copyEnd = record.journalEnd = static_cast<uint64_t>(length < 0 ? 0 : length);
    if (putJournalRecord(fd, record, intent, error) != 0) {
      // The record may stand although its sync failed: take it back.
      std::string ignored;
      underWay = clearJournalRecord(fd, record.sequence, ignored) != 0;
      return kVersionOperationFailed;
    }
  } else {
    underWay = true;
    // The same operation was interrupted: whatever it processed is cut off.
    resumed = cutProcessedCopies(f, operation, error);
    if (resumed < 0) return kVersionOperationFailed;
  }
  underWay = true;
  if (alignRepairCopies(f, operation) < 0) {
    error = withErrno("cannot prepare the saved copies of repaired home addresses");
    return kVersionOperationFailed;
  }
  const int rc = f.doVersion(-1, operation);
  if (rc < 0) {
    error = "the library's " + std::string(operation == kVersionCommit ? "commit" : "rollback") +
            " failed with result " + std::to_string(rc);
    return rc;
  }
  errno = 0;
  if (!journal_io::sync(fd)) {
    error = withErrno("cannot force the result to disk");
    return kVersionOperationFailed;
  }
  if (clearJournalRecord(fd, record.sequence, error) != 0) return kVersionOperationFailed;
  underWay = false;
  return rc;
}

}  // namespace ckdvol
