// The change journal's writing side: begin, finish, undo.
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <set>

#include "ckdfile/versioning.h"
#include "ckdfile/volume_format.h"
#include "common/byte_order.h"
#include "journal/change_journal.h"
#include "journal/file_io.h"
#include "journal/journal_format.h"

namespace ckdvol {

namespace {

// Whether `n` bytes at `p` are all zero (eight bytes at a time).
bool allZeros(const unsigned char* p, size_t n) {
  uint64_t any = 0;
  size_t i = 0;
  for (; i + 64 <= n; i += 64) {
    uint64_t w[8];
    std::memcpy(w, p + i, sizeof w);
    any |= w[0] | w[1] | w[2] | w[3] | w[4] | w[5] | w[6] | w[7];
    if (any != 0) return false;
  }
  for (; i < n; ++i) any |= p[i];
  return any == 0;
}

}  // namespace

using journal_io::cut;
using journal_io::readAt;
using journal_io::sync;
using journal_io::writeAt;

ChangeJournal::ChangeJournal(EmulatedCKDfile& file, const char* command) : file_(file), command_(command) {
  if (command_.size() > JournalRecord::kCommandLength) command_.resize(JournalRecord::kCommandLength);
}

int ChangeJournal::fail(const std::string& what) {
  error_ = what;
  if (errno != 0) error_ += std::string(": ") + std::strerror(errno);
  return -1;
}

int ChangeJournal::writeRecord(JournalState state) {
  std::memset(record_.command, 0, sizeof record_.command);
  std::memcpy(record_.command, command_.data(), command_.size());
  return putJournalRecord(file_.fileDescriptor, record_, state, error_);
}

int ChangeJournal::clearRecord() {
  return clearJournalRecord(file_.fileDescriptor, record_.sequence, error_, headerSaved_);
}

int ChangeJournal::saveHeaderVersions() {
  const int fd = file_.fileDescriptor;
  errno = 0;
  if (begun_) return fail("the header must be kept before the change begins");
  if (fd < 0 || file_.readOnly) return fail("the volume is not open for writing");
  JournalRecord old;
  bool present = false;
  if (!readJournalRecord(fd, old, present)) return fail("cannot read the volume header");
  if (present) {
    errno = 0;
    return fail("an interrupted change (" + std::string(old.command) + ", " + journalStateName(old.state) +
                ") is still in the file");
  }
  unsigned char fields[8];
  if (!readAt(fd, fields, sizeof fields, kHdrVersionMarker) ||
      !writeAt(fd, fields, sizeof fields, JournalRecord::kSavedHeaderOffset) || !sync(fd)) {
    return fail("cannot keep the header's versioning fields");
  }
  const long long length = journal_io::fileLength(fd);
  if (length < 0) return fail("cannot find the file's length");
  record_.flags = JournalRecord::kHeaderSaved;
  record_.startEnd = record_.keepEnd = record_.copyEnd = record_.journalEnd = static_cast<uint64_t>(length);
  record_.sequence = std::max(old.sequence, record_.sequence);
  begun_ = headerSaved_ = true;
  return writeRecord(JournalState::kOpen);
}

int ChangeJournal::begin(const std::vector<uint64_t>& slots) {
  const int fd = file_.fileDescriptor;
  const unsigned int slot = file_.trackSlotSize;
  errno = 0;
  if (sealed_) return fail("a change was already begun on this journal");
  if (fd < 0 || file_.readOnly) return fail("the volume is not open for writing");
  if (file_.trackDirty) return fail("the volume holds a changed track that is not part of the change");
  JournalRecord old;
  bool present = false;
  if (!readJournalRecord(fd, old, present)) return fail("cannot read the volume header");
  if (present && !headerSaved_) {
    errno = 0;
    return fail("an interrupted change (" + std::string(old.command) + ", " + journalStateName(old.state) +
                ") is still in the file");
  }
  const long long length = journal_io::fileLength(fd);
  const long long dataEnd = file_.getMaxOffset();
  if (headerSaved_ && length != static_cast<long long>(record_.startEnd)) {
    errno = 0;
    return fail("the file's length changed since the change began");
  }
  if (length < 0) return fail("cannot find the file's length");
  errno = 0;
  if (dataEnd < 0) return fail("the volume's track area is unknown");
  if (static_cast<unsigned long long>(length) < static_cast<unsigned long long>(dataEnd) ||
      (static_cast<unsigned long long>(length - dataEnd)) % slot != 0) {
    return fail("the file's length (" + std::to_string(length) +
                " bytes) does not end on a whole slot behind the tracks");
  }
  // Each slot once, checked, classified: under an active version a track
  // whose image carries an older version gets a saved copy that stays; of
  // the others, a track that holds just the empty formatted track of its
  // address gets no copy at all.
  std::set<uint64_t> seen;
  std::vector<Entry> keep, drop, elided;
  std::vector<unsigned char> image(slot), empty(slot);
  for (uint64_t home : slots) {
    if (!seen.insert(home).second) continue;
    if (home < static_cast<uint64_t>(kHeaderSize) || home + slot > static_cast<uint64_t>(dataEnd) ||
        (home - kHeaderSize) % slot != 0) {
      errno = 0;
      return fail("file offset " + std::to_string(home) + " is not a track slot of the volume");
    }
    Entry e;
    e.home = home;
    // A track can have been left empty only where it begins like the empty
    // track of its address. Past the first block only the file's data runs
    // are read (holes read as zeros: a sparse volume's free tracks are holes
    // there). A slot with data right behind its first block (a volume
    // whose tracks are all written), or where the file system cannot say,
    // is read whole in one go, trailer and all.
    constexpr uint64_t kFirstRead = 4096;
    static_assert(kEmptyTrackEndMarker + kEndMarkerSize <= kFirstRead,
                  "the first block holds the empty track's records");
    const uint64_t to = home + slot - kTrailerSize;
    const uint64_t first = home + std::min<uint64_t>(kFirstRead, slot - kTrailerSize);
    const bool mayBeEmpty = emptyTrackPrefix(file_, home, empty.data());
    uint64_t dataAt = to;  // the first byte past the first block that is not a hole
    if (mayBeEmpty) {
      errno = 0;
      const off_t data = ::lseek(fd, static_cast<off_t>(first), SEEK_DATA);
      if (data >= 0) {
        dataAt = std::min<uint64_t>(to, std::max<uint64_t>(static_cast<uint64_t>(data), first));
      } else if (errno != ENXIO) {  // ENXIO: holes up to the end of the file
        dataAt = first;
      }
    }
    const bool whole = mayBeEmpty && dataAt == first;
    errno = 0;
    if (whole ? !readAt(fd, image.data(), slot, home) : !readAt(fd, e.trailer, kTrailerSize, to)) {
      return fail("cannot read the track slot at file offset " + std::to_string(home));
    }
    if (whole) std::memcpy(e.trailer, image.data() + slot - kTrailerSize, kTrailerSize);
    const unsigned version = trailerHasMarker(e.trailer) ? trailerVersion(e.trailer) : 0;
    bool needsCopy = file_.activeVersion > 0 && version < static_cast<unsigned>(file_.activeVersion);
    if (file_.activeVersion > 0 && !needsCopy) {
      // It claims the active version: its saved copy must exist and link
      // back, or the version could never give its former image back.
      const uint64_t link = trailerLink(e.trailer);
      unsigned char t[kTrailerSize];
      needsCopy = link < static_cast<uint64_t>(dataEnd) || link + slot > static_cast<uint64_t>(length) ||
                  (link - dataEnd) % slot != 0 || !readAt(fd, t, kTrailerSize, link + slot - kTrailerSize) ||
                  !trailerHasMarker(t) || trailerLink(t) != home;
    }
    if (needsCopy) {
      keep.push_back(e);
      continue;
    }
    if (mayBeEmpty) {
      if (!whole && !readAt(fd, image.data(), first - home, home)) {
        return fail("cannot read the track slot at file offset " + std::to_string(home));
      }
      bool zeros = std::memcmp(image.data(), empty.data(), first - home) == 0;
      if (zeros && dataAt < to) {
        if (!whole && !readAt(fd, image.data() + (dataAt - home), to - dataAt, dataAt)) {
          return fail("cannot read the track slot at file offset " + std::to_string(home));
        }
        zeros = allZeros(image.data() + (dataAt - home), to - dataAt);
      }
      e.empty = zeros;
    }
    (e.empty ? elided : drop).push_back(e);
  }
  homes_ = keep;
  homes_.insert(homes_.end(), drop.begin(), drop.end());
  homes_.insert(homes_.end(), elided.begin(), elided.end());
  const uint64_t keepCount = keep.size();
  const uint64_t copies = keep.size() + drop.size();

  const uint64_t start = static_cast<uint64_t>(length);
  const uint64_t count = homes_.size();
  const uint64_t indexSlots = (count + kIndexEntriesPer(slot) - 1) / kIndexEntriesPer(slot);
  uint64_t total = copies + indexSlots;
  // A file of whole cylinders would open as a larger volume in programs that
  // take the cylinder count from the length: a pad slot prevents that.
  const uint64_t slotsAfter = (start - kHeaderSize) / slot + total;
  if (count > 0 && file_.tracksPerCylinder > 1 && slotsAfter % file_.tracksPerCylinder == 0) ++total;
  record_.version = static_cast<uint16_t>(file_.activeVersion > 0 ? file_.activeVersion : 0);
  record_.startEnd = start;
  record_.keepEnd = start + keep.size() * slot;
  record_.copyEnd = start + copies * slot;
  record_.journalEnd = start + total * slot;
  record_.sequence = std::max(old.sequence, record_.sequence);
  begun_ = true;
  if (writeRecord(JournalState::kOpen) != 0) return -1;

  errno = 0;
  if (!cut(fd, record_.journalEnd)) return fail("cannot extend the file for the saved copies");
  for (uint64_t i = 0; i < copies; ++i) {
    const Entry& e = homes_[i];
    if (!readAt(fd, image.data(), slot, e.home)) {
      return fail("cannot read the track slot at file offset " + std::to_string(e.home));
    }
    unsigned char* t = trailerOf(image.data(), slot);
    setTrailerMarker(t);  // version and reserved stay as they were,
    setTrailerLink(t, e.home);
    // but a copy that stays with the version must carry an older version
    // than the active one, or commit and rollback stop before it.
    if (i < keepCount && trailerVersion(t) >= static_cast<unsigned>(file_.activeVersion)) {
      storeBe16(t + kTrlVersion, static_cast<uint16_t>(file_.activeVersion - 1));
    }
    if (!writeAt(fd, image.data(), slot, start + i * slot)) return fail("cannot write a saved copy");
  }
  for (uint64_t k = 0; k < indexSlots; ++k) {
    encodeIndexSlot(image.data(), slot, homes_, k);
    if (!writeAt(fd, image.data(), slot, record_.copyEnd + k * slot)) {
      return fail("cannot write the index of the saved copies");
    }
  }
  if (!sync(fd)) return fail("cannot force the saved copies to disk");
  if (writeRecord(JournalState::kSealed) != 0) return -1;
  sealed_ = true;
  // Stamp the tracks whose copies stay: the active version, linked to it.
  for (uint64_t i = 0; i < keep.size(); ++i) {
    unsigned char t[kTrailerSize];
    std::memcpy(t, homes_[i].trailer, kTrailerSize);
    setTrailerMarker(t);
    storeBe16(t + kTrlVersion, static_cast<uint16_t>(file_.activeVersion));
    storeBe16(t + kTrlReserved, 0);
    setTrailerLink(t, start + i * slot);
    if (!writeAt(fd, t, kTrailerSize, homes_[i].home + slot - kTrailerSize)) {
      return fail("cannot link a track to its saved copy");
    }
  }
  forgetCurrentTrack(file_);
  return 0;
}

int ChangeJournal::finish() {
  const int fd = file_.fileDescriptor;
  errno = 0;
  if (!sealed_) return fail("no change was begun");
  if (done_) return 0;
  if (file_.trackDirty && file_.writeTrack() != EmulatedCKDfile::kTrackOk) {
    return fail("cannot write the last changed track");
  }
  if (!sync(fd)) return fail("cannot force the changed tracks to disk");
  const long long length = journal_io::fileLength(fd);
  errno = 0;
  if (length != static_cast<long long>(record_.journalEnd)) {
    return fail("the file grew by " + std::to_string(length - static_cast<long long>(record_.journalEnd)) +
                " bytes during the change: a track outside it was written");
  }
  if (writeRecord(JournalState::kDone) != 0) return -1;
  done_ = true;
  if (!cut(fd, record_.keepEnd)) return fail("the change is complete, but its saved copies cannot be cut off");
  if (!sync(fd)) return fail("the change is complete, but cutting its saved copies off cannot be forced to disk");
  if (clearRecord() != 0) return -1;
  return 0;
}

int ChangeJournal::undo() {
  const int fd = file_.fileDescriptor;
  errno = 0;
  if (!begun_) return 0;
  if (done_) return fail("the change is already complete");
  file_.trackDirty = 0;
  forgetCurrentTrack(file_);
  if (sealed_) {
    if (restoreFromJournal(fd, file_.trackSlotSize, &file_, record_.startEnd, homes_, error_) != 0) return -1;
  }
  if (!cut(fd, record_.startEnd)) return fail("cannot cut the saved copies off");
  if (!sync(fd)) return fail("cannot force the undone change to disk");
  if (headerSaved_ && restoreHeaderVersions(fd, error_) != 0) return -1;
  if (clearRecord() != 0) return -1;
  begun_ = sealed_ = headerSaved_ = false;
  return 0;
}

}  // namespace ckdvol
