// Recovery: finishes or undoes whatever an interrupted run left in a volume.
#include <fcntl.h>
#include <libgen.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <vector>

#include "ckdfile/versioning.h"
#include "common/byte_order.h"
#include "journal/change_journal.h"
#include "journal/file_io.h"
#include "journal/journal_format.h"

namespace ckdvol {
namespace {

using F = EmulatedCKDfile;

std::string withErrno(const std::string& what) {
  return errno != 0 ? what + ": " + std::strerror(errno) : what;
}

// Closes a descriptor on every path.
struct Descriptor {
  int fd = -1;
  ~Descriptor() {
    if (fd >= 0) ::close(fd);
  }
};

// True for what an interrupted creation leaves: an empty file, a header cut
// short whose bytes begin like a new volume's, or the magic "CKD_INIT" that
// stays until initialisation completes.
bool unfinishedCreation(const unsigned char* header, long long length) {
  if (length == 0) return true;
  const size_t n = static_cast<size_t>(length < kMagicLength ? length : kMagicLength);
  if (std::memcmp(header, kMagicInit, n) != 0) return false;
  return true;
}

int removeUnfinished(const std::string& path, RecoveryReport& report, std::string& error) {
  errno = 0;
  if (::unlink(path.c_str()) != 0) {
    error = withErrno("cannot remove the unfinished creation");
    return -1;
  }
  std::vector<char> dir(path.begin(), path.end());
  dir.push_back('\0');
  const int d = ::open(::dirname(dir.data()), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (d >= 0) {
    ::fsync(d);
    ::close(d);
  }
  report.found = "an unfinished creation (the volume was never complete; it held no data)";
  report.action = "removed";
  return 0;
}

// Gives `probe` the volume's device, cylinders and cylinder encoding from
// the header (no file). False when the header names no known device of its
// slot size.
bool volumeGeometry(const unsigned char* header, F& probe) {
  const F::DeviceInfo* device = F::findDeviceByFileCode(header[kHdrDeviceCode]);
  if (device == nullptr || header[kHdrFormatLevel] == 0) return false;
  if (!probe.setType(static_cast<F::CKDtype>(device->type))) return false;
  if (probe.trackSlotSize != loadLe32(header + kHdrTrackSize)) return false;
  probe.setCylinders(loadLe32(header + kHdrCylinders));
  return true;
}

// The end of the track area from the header, or -1 when it cannot be told.
long long trackAreaEnd(int fd, const unsigned char* header) {
  F probe;
  if (!volumeGeometry(header, probe)) return -1;
  probe.fileDescriptor = fd;  // offsets are computed for an open file only
  const long long end = probe.getMaxOffset();
  probe.fileDescriptor = -1;
  return end;
}

// A change recorded in the header: undo it or finish it.
int recoverChange(int fd, unsigned int slot, const unsigned char* header, const JournalRecord& r, RecoveryReport& report,
                  std::string& error) {
  const long long length = journal_io::fileLength(fd);
  const bool sane = r.startEnd >= static_cast<uint64_t>(kHeaderSize) && r.startEnd <= r.keepEnd &&
                    r.keepEnd <= r.copyEnd && r.copyEnd <= r.journalEnd && (r.copyEnd - r.startEnd) % slot == 0 &&
                    (r.keepEnd - r.startEnd) % slot == 0 && length >= 0;
  if (!sane) {
    error = "the change record in the header does not describe a possible change; nothing was changed";
    return -1;
  }
  report.command = r.command;
  const std::string what = std::string("a change (") + r.command + ")";
  const uint64_t copies = (r.copyEnd - r.startEnd) / slot;
  if (r.state == JournalState::kOpen) {
    report.found = what + " interrupted while saving the former images; no track had been written";
    report.action = "undone";
    report.copiesDropped = copies;
  } else if (r.state == JournalState::kSealed && static_cast<uint64_t>(length) <= r.startEnd) {
    // The copies are cut off only after every track has its former image
    // back and that is on disk: an undo was interrupted after that.
    report.found = what + " whose undo was interrupted after its tracks were written back";
    report.action = "undone";
  } else if (r.state == JournalState::kSealed) {
    std::vector<JournalEntry> entries;
    if (static_cast<uint64_t>(length) < r.journalEnd) {
      error = "the file is shorter than the interrupted change's saved copies; nothing was changed";
      return -1;
    }
    if (!readIndex(fd, slot, r.copyEnd, copies, (r.journalEnd - r.copyEnd) / slot, entries, error)) return -1;
    for (const JournalEntry& e : entries) {
      if (e.home < static_cast<uint64_t>(kHeaderSize) || e.home + slot > r.startEnd || (e.home - kHeaderSize) % slot != 0) {
        error = "the index of the saved copies names file offset " + std::to_string(e.home) +
                ", which is not a track slot; nothing was changed";
        return -1;
      }
    }
    F geometry;
    const bool known = volumeGeometry(header, geometry);
    if (restoreFromJournal(fd, slot, known ? &geometry : nullptr, r.startEnd, entries, error) != 0) return -1;
    report.found = what + " interrupted while writing its tracks";
    report.action = "undone";
    report.tracksRestored = entries.size();
    report.copiesDropped = copies;
  } else {
    report.found = what + " interrupted after its tracks were complete, before its saved copies were dropped";
    report.action = "finished";
    report.copiesDropped = (r.copyEnd - r.keepEnd) / slot;
  }
  const uint64_t end = r.state == JournalState::kDone ? r.keepEnd : r.startEnd;
  errno = 0;
  if (static_cast<uint64_t>(length) > end && !journal_io::cut(fd, end)) {
    error = withErrno("cannot cut the saved copies off the file");
    return -1;
  }
  if (!journal_io::sync(fd)) {
    error = withErrno("cannot force the recovered volume to disk");
    return -1;
  }
  const bool savedHeader = (r.flags & JournalRecord::kHeaderSaved) != 0;
  if (savedHeader && r.state != JournalState::kDone) {
    if (restoreHeaderVersions(fd, error) != 0) return -1;
    report.notes.push_back("the header's versioning fields are as before the change");
  }
  return clearJournalRecord(fd, r.sequence, error, savedHeader);
}

// Without a record: a saved copy cut short at the end of the file, and
// trailing copies whose tracks never took the change (the track still holds
// the copy's image and does not link to it). Both are dropped.
int dropTornCopies(int fd, unsigned int slot, long long dataEnd, RecoveryReport& report, std::string& error) {
  long long length = journal_io::fileLength(fd);
  if (length < 0 || dataEnd < 0 || length <= dataEnd) return 0;
  long long end = length;
  const long long partial = (length - dataEnd) % slot;
  if (partial != 0) {
    end -= partial;
    report.notes.push_back("a saved copy cut short (" + std::to_string(partial) + " of " + std::to_string(slot) +
                           " bytes) at the end of the file; its track was never rewritten");
  }
  std::vector<unsigned char> copy(slot), home(slot);
  uint64_t orphans = 0;
  for (long long p = end - slot; p >= dataEnd; p -= slot) {
    errno = 0;
    if (!journal_io::readAt(fd, copy.data(), slot, static_cast<uint64_t>(p))) {
      error = withErrno("cannot read the saved copy at file offset " + std::to_string(p));
      return -1;
    }
    const unsigned char* t = trailerOf(copy.data(), slot);
    const uint64_t h = trailerLink(t);
    if (!trailerHasMarker(t) || h < static_cast<uint64_t>(kHeaderSize) || h + slot > static_cast<uint64_t>(dataEnd) ||
        (h - kHeaderSize) % slot != 0) {
      break;
    }
    if (!journal_io::readAt(fd, home.data(), slot, h)) {
      error = withErrno("cannot read the track slot at file offset " + std::to_string(h));
      return -1;
    }
    const unsigned char* ht = trailerOf(home.data(), slot);
    if (trailerHasMarker(ht) && trailerLink(ht) == static_cast<uint64_t>(p)) break;
    if (std::memcmp(copy.data(), home.data(), slot - kTrailerSize) != 0) break;
    end = p;
    ++orphans;
  }
  if (orphans > 0) {
    report.notes.push_back(std::to_string(orphans) + " saved cop" + (orphans == 1 ? "y" : "ies") +
                           " at the end of the file whose tracks never took the change");
  }
  if (end == length) return 0;
  errno = 0;
  if (!journal_io::cut(fd, static_cast<uint64_t>(end)) || !journal_io::sync(fd)) {
    error = withErrno("cannot cut the torn saved copies off the file");
    return -1;
  }
  if (report.action == "none") {
    report.found = "saved copies left by a change that was interrupted before it reached its tracks";
    report.action = "undone";
  }
  report.copiesDropped += orphans + (partial != 0 ? 1 : 0);
  return 0;
}

}  // namespace

int recoverVolume(const std::string& path, RecoveryReport& report, std::string& error) {
  report = RecoveryReport();
  report.action = "none";
  Descriptor d;
  errno = 0;
  d.fd = ::open(path.c_str(), O_RDWR | O_CLOEXEC);
  if (d.fd < 0) {
    error = withErrno("cannot open");
    return -1;
  }
  const long long length = journal_io::fileLength(d.fd);
  if (length < 0) {
    error = withErrno("cannot find the file's length");
    return -1;
  }
  report.bytesBefore = report.bytesAfter = static_cast<uint64_t>(length);
  unsigned char header[kHeaderSize] = {};
  const size_t want = static_cast<size_t>(length < kHeaderSize ? length : kHeaderSize);
  if (want > 0 && !journal_io::readAt(d.fd, header, want, 0)) {
    error = withErrno("cannot read the volume header");
    return -1;
  }
  if (length < kHeaderSize || std::memcmp(header, kMagicInit, kMagicLength) == 0) {
    if (unfinishedCreation(header, length)) {
      ::close(d.fd);
      d.fd = -1;
      report.bytesAfter = 0;
      return removeUnfinished(path, report, error);
    }
    error = "not a volume file (" + std::to_string(length) + " bytes, too short for a volume header)";
    return -1;
  }
  if (std::memcmp(header, kMagicReady, kMagicLength) != 0) {
    error = "not a volume file (its header does not begin with \"CKD_XVOL\"); nothing was changed";
    return -1;
  }
  const unsigned int slot = loadLe32(header + kHdrTrackSize);
  if (slot < 512 || slot > (1u << 20)) {
    error = "the header's track size " + std::to_string(slot) + " is not a volume's; nothing was changed";
    return -1;
  }
  JournalRecord record;
  bool present = false;
  if (!readJournalRecord(d.fd, record, present)) {
    error = withErrno("cannot read the volume header");
    return -1;
  }
  int rc = 0;
  if (present && (record.state == JournalState::kCommit || record.state == JournalState::kRollback)) {
    // A copy torn at the end first: the operation walks whole slots.
    const long long dataEnd = trackAreaEnd(d.fd, header);
    if (dataEnd > 0 && length > dataEnd && (length - dataEnd) % slot != 0) {
      const long long partial = (length - dataEnd) % slot;
      errno = 0;
      if (!journal_io::cut(d.fd, static_cast<uint64_t>(length - partial)) || !journal_io::sync(d.fd)) {
        error = withErrno("cannot cut a torn saved copy off the file");
        return -1;
      }
      report.notes.push_back("a saved copy cut short (" + std::to_string(partial) + " of " + std::to_string(slot) +
                             " bytes) at the end of the file; its track was never rewritten");
    }
    ::close(d.fd);
    d.fd = -1;
    const int operation = record.state == JournalState::kCommit ? kVersionCommit : kVersionRollback;
    F f;
    const int opened = f.open(path.c_str(), false);
    if (opened < 0) {
      error = "cannot open the volume to finish its " + std::string(journalStateName(record.state)) + " (open result " +
              std::to_string(opened) + ")";
      return -1;
    }
    long long resumed = 0;
    bool underWay = false;
    const long long done = runVersionOperation(f, operation, record.command, resumed, underWay, error);
    if (done < 0) return -1;
    report.command = record.command;
    report.found = std::string("a ") + (operation == kVersionCommit ? "commit" : "rollback") + " of version " +
                   std::to_string(record.version) + " (" + record.command + ") that was interrupted";
    report.action = "finished";
    report.copiesDropped = static_cast<uint64_t>(done + resumed);
    report.tracksRestored = operation == kVersionRollback ? static_cast<uint64_t>(done) : 0;
    const long long after = journal_io::fileLength(f.fileDescriptor);
    report.bytesAfter = after < 0 ? 0 : static_cast<uint64_t>(after);
    if (f.close() != 0) {
      error = "the " + std::string(journalStateName(record.state)) + " is finished, but closing the volume failed";
      return -1;
    }
    return 0;
  }
  if (present) rc = recoverChange(d.fd, slot, header, record, report, error);
  const bool versioned = loadLe16(header + kHdrActiveVersion) != 0 || loadLe16(header + kHdrLatestVersion) != 0;
  if (rc == 0 && versioned) rc = dropTornCopies(d.fd, slot, trackAreaEnd(d.fd, header), report, error);
  // What a torn write of the record leaves (a place that is not a valid
  // record, saved versioning fields without one) is cleared: these header
  // bytes are zero when no change is under way.
  unsigned char tail[kHeaderSize - JournalRecord::kSavedHeaderOffset];
  if (rc == 0 && journal_io::readAt(d.fd, tail, sizeof tail, JournalRecord::kSavedHeaderOffset) &&
      readJournalRecord(d.fd, record, present) && !present) {
    bool zero = true;
    for (unsigned char b : tail) zero = zero && b == 0;
    if (!zero) {
      rc = clearJournalRecord(d.fd, 0, error);
      if (rc == 0) {
        report.notes.push_back("the remains of a change record torn while it was written are cleared");
        if (report.action == "none") {
          report.found = "a change record torn while it was written; no track had been touched";
          report.action = "undone";
        }
      }
    }
  }
  const long long after = journal_io::fileLength(d.fd);
  report.bytesAfter = after < 0 ? 0 : static_cast<uint64_t>(after);
  return rc;
}

}  // namespace ckdvol
