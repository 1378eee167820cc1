// The journal's index slots and shared steps.
#include <cerrno>
#include <cstring>

#include "ckdfile/versioning.h"
#include "common/byte_order.h"
#include "ckdfile/volume_format.h"
#include "journal/file_io.h"
#include "journal/journal_format.h"

namespace ckdvol {
namespace {

constexpr char kIndexMagic[] = "CKDVJIDX";  // 8 bytes
constexpr char kIndexTrailerMarker[] = "JNL0";

std::string withErrno(const std::string& what) {
  return errno != 0 ? what + ": " + std::strerror(errno) : what;
}

}  // namespace

bool emptyTrackImage(EmulatedCKDfile& geometry, uint64_t home, unsigned char* out) {
  if (!emptyTrackPrefix(geometry, home, out)) return false;
  const size_t prefix = kEmptyTrackEndMarker + kEndMarkerSize;
  std::memset(out + prefix, 0, geometry.trackSlotSize - prefix);
  return true;
}

bool emptyTrackPrefix(EmulatedCKDfile& geometry, uint64_t home, unsigned char* out) {
  const unsigned int slot = geometry.trackSlotSize;
  if (geometry.deviceType == EmulatedCKDfile::D200 || geometry.cellCount != 1 || geometry.tracksPerCylinder == 0 ||
      slot <= static_cast<unsigned>(kEmptyTrackEndMarker + kEndMarkerSize + kTrailerSize) ||
      home < static_cast<uint64_t>(kHeaderSize) || (home - kHeaderSize) % slot != 0) {
    return false;
  }
  const uint64_t track = (home - kHeaderSize) / slot;
  const uint64_t cyl = track / geometry.tracksPerCylinder;
  if (cyl >= geometry.cylinders) return false;
  const auto head = static_cast<unsigned short>(track % geometry.tracksPerCylinder);
  std::memset(out, 0, kEmptyTrackEndMarker);
  unsigned char* p = out;
  geometry.putHA(p, 0, static_cast<unsigned int>(cyl), head);
  geometry.putCount(p, static_cast<int>(cyl), head, 0, 0, kRecordZeroDataLength);
  std::memset(out + kEmptyTrackEndMarker, kEndMarkerByte, kEndMarkerSize);
  return true;
}

void encodeIndexSlot(unsigned char* out, unsigned int slot, const std::vector<JournalEntry>& entries, uint64_t k) {
  std::memset(out, 0, slot);
  const uint64_t per = kIndexEntriesPer(slot);
  const uint64_t first = k * per;
  const uint64_t n = entries.size() - first < per ? entries.size() - first : per;
  std::memcpy(out, kIndexMagic, 8);
  storeBe32(out + 8, static_cast<uint32_t>(first));
  storeBe32(out + 12, static_cast<uint32_t>(n));
  for (uint64_t i = 0; i < n; ++i) {
    unsigned char* e = out + kIndexHeader + i * kIndexEntrySize;
    const JournalEntry& entry = entries[first + i];
    storeBe64(e, entry.home | (entry.empty ? kEntryEmptyTrack : 0));
    std::memcpy(e + 8, entry.trailer, kTrailerSize);
  }
  unsigned char* trailer = out + slot - kTrailerSize;
  std::memcpy(trailer, kIndexTrailerMarker, 4);
  storeBe32(trailer + kIndexTotal, static_cast<uint32_t>(entries.size()));
}

bool readIndex(int fd, unsigned int slot, uint64_t at, uint64_t copies, uint64_t maxSlots,
               std::vector<JournalEntry>& entries, std::string& error) {
  entries.clear();
  std::vector<unsigned char> buf(slot);
  const uint64_t per = kIndexEntriesPer(slot);
  uint64_t total = copies;
  uint64_t copied = 0;
  // A change of no tracks has no index at all.
  for (uint64_t k = 0; (k == 0 && maxSlots > 0) || entries.size() < total; ++k) {
    const std::string where = "the index of the saved copies at file offset " + std::to_string(at + k * slot);
    if (k >= maxSlots) {
      error = where + " lies outside the change";
      return false;
    }
    errno = 0;
    if (!journal_io::readAt(fd, buf.data(), slot, at + k * slot)) {
      error = withErrno("cannot read " + where);
      return false;
    }
    const uint32_t slotTotal = loadBe32(buf.data() + slot - kTrailerSize + kIndexTotal);
    if (k == 0 && slotTotal != 0) total = slotTotal;  // 0: written before empty tracks were left out
    const uint64_t expect = total - entries.size() < per ? total - entries.size() : per;
    if (std::memcmp(buf.data(), kIndexMagic, 8) != 0 || loadBe32(buf.data() + 8) != entries.size() ||
        loadBe32(buf.data() + 12) != expect || (slotTotal != 0 && slotTotal != total) ||
        (total - entries.size() + per - 1) / per > maxSlots - k) {
      error = where + " is damaged";
      return false;
    }
    for (uint64_t i = 0; i < expect; ++i) {
      const unsigned char* e = buf.data() + kIndexHeader + i * kIndexEntrySize;
      JournalEntry entry;
      entry.home = loadBe64(e) & ~kEntryEmptyTrack;
      entry.empty = (loadBe64(e) & kEntryEmptyTrack) != 0;
      std::memcpy(entry.trailer, e + 8, kTrailerSize);
      if (!entry.empty) ++copied;
      entries.push_back(entry);
    }
    if (total == 0) break;
  }
  if (copied != copies) {
    error = "the index of the saved copies at file offset " + std::to_string(at) + " names " + std::to_string(copied) +
            " saved copies where the change made " + std::to_string(copies);
    return false;
  }
  return true;
}

int restoreFromJournal(int fd, unsigned int slot, EmulatedCKDfile* geometry, uint64_t start,
                       const std::vector<JournalEntry>& entries, std::string& error) {
  if (slot <= kTrailerSize) {
    error = "a track slot of " + std::to_string(slot) + " bytes cannot hold its trailer";
    return -1;
  }
  std::vector<unsigned char> image(slot);
  uint64_t copy = 0;
  for (size_t i = 0; i < entries.size(); ++i) {
    if (entries[i].empty) {
      if (geometry == nullptr || geometry->trackSlotSize != slot ||
          !emptyTrackImage(*geometry, entries[i].home, image.data())) {
        errno = 0;
        error = "the index names an empty track at file offset " + std::to_string(entries[i].home) +
                ", which is not a track slot of the volume";
        return -1;
      }
    } else {
      const uint64_t at = start + copy++ * slot;
      errno = 0;
      if (!journal_io::readAt(fd, image.data(), slot, at)) {
        error = withErrno("cannot read the saved copy at file offset " + std::to_string(at));
        return -1;
      }
      if (trailerLink(trailerOf(image.data(), slot)) != entries[i].home) {
        error = "the saved copy at file offset " + std::to_string(at) + " does not belong to the track its index names";
        return -1;
      }
    }
    std::memcpy(trailerOf(image.data(), slot), entries[i].trailer, kTrailerSize);
    if (!journal_io::writeAt(fd, image.data(), slot, entries[i].home)) {
      error = withErrno("cannot write the former image back to file offset " + std::to_string(entries[i].home));
      return -1;
    }
  }
  errno = 0;
  if (!journal_io::sync(fd)) {
    error = withErrno("cannot force the written-back tracks to disk");
    return -1;
  }
  return 0;
}

int putJournalRecord(int fd, JournalRecord& record, JournalState state, std::string& error) {
  record.state = state;
  ++record.sequence;
  unsigned char place[JournalRecord::kPlaceSize];
  record.encode(place);
  const uint64_t at = JournalRecord::kOffset + (record.sequence % 2) * JournalRecord::kPlaceSize;
  errno = 0;
  if (!journal_io::writeAt(fd, place, sizeof place, at)) {
    error = withErrno(std::string("cannot write the change record (") + journalStateName(state) + ") into the header");
    return -1;
  }
  if (!journal_io::sync(fd)) {
    error = withErrno("cannot force the change record to disk");
    return -1;
  }
  return 0;
}

int restoreHeaderVersions(int fd, std::string& error) {
  unsigned char saved[8];
  errno = 0;
  if (!journal_io::readAt(fd, saved, sizeof saved, JournalRecord::kSavedHeaderOffset) ||
      !journal_io::writeAt(fd, saved, sizeof saved, kHdrVersionMarker) || !journal_io::sync(fd)) {
    error = withErrno("cannot put the header's versioning fields back");
    return -1;
  }
  return 0;
}

int clearJournalRecord(int fd, uint32_t newestSequence, std::string& error, bool savedHeader) {
  (void)savedHeader;  // the saved versioning fields go with the first place
  static const unsigned char zero[8 + JournalRecord::kPlaceSize] = {};
  // The older place first: until the newer one is gone it still rules.
  // Place 0 is cleared together with the saved versioning fields before it.
  for (uint32_t s : {newestSequence + 1, newestSequence}) {
    const bool first = s % 2 == 0;
    const uint64_t at = first ? JournalRecord::kSavedHeaderOffset : JournalRecord::kOffset + JournalRecord::kPlaceSize;
    const size_t length = first ? sizeof zero : JournalRecord::kPlaceSize;
    errno = 0;
    if (!journal_io::writeAt(fd, zero, length, at)) {
      error = withErrno("cannot clear the change record in the header");
      return -1;
    }
    if (!journal_io::sync(fd)) {
      error = withErrno("cannot force the cleared change record to disk");
      return -1;
    }
  }
  return 0;
}

void forgetCurrentTrack(EmulatedCKDfile& file) {
  file.currentCyl = 0xFFFFFFFFu;
  file.currentHead = 0xFFFF;
  file.currentCell = 0xFFFF;
  file.trackDirty = 0;
}

}  // namespace ckdvol
