// BasicPartionedAccessMethod: opening a partitioned data set, the directory
// walk, relative-track addressing, and reading and replacing members.
#include "pds/basic_partitioned_access_method.h"

#include <cerrno>
#include <climits>
#include <cstring>
#include <vector>

#include "ckdfile/emulated_ckd_file.h"
#include "common/architecture_translation.h"
#include "common/data_translator.h"
#include "dscb/format1_dscb.h"
#include "volume/disk_vtoc.h"

namespace {

// The directory-entry code's own translator (EBCDIC to ASCII).
const DataTranslator dirEntXlater(DataTranslator::XLATE_EBCDIC_ASCII);

// DSORG: partitioned organisation; the 0100 bit (unmovable) is ignored.
constexpr unsigned kDsorgPartitioned = 0x0200;
constexpr unsigned kDsorgUnmovable = 0x0100;
constexpr unsigned char kEbcdicBlank = 0x40;
constexpr unsigned char kEndEntryByte = 0xFF;

// The record at `ref` as (data, data length): false when it has no data
// area or the data would run past the track buffer (a damaged count field).
bool recordData(const EmulatedCKDfile& file, const void* ref, const unsigned char*& data,
                int& length) {
  length = file.getRefDL(ref);
  data = file.getRefData(ref);
  if (length <= 0 || data == nullptr) return false;
  const unsigned char* end = file.trackBuffer + file.trackSlotSize;
  return data >= file.trackBuffer && data < end && length <= end - data;
}

// A big-endian halfword at `p` (unaligned) in host order.
unsigned loadHalfword(const unsigned char* p) {
  uint16_t v;
  std::memcpy(&v, p, sizeof(v));
  return ArchitectureTranslation::mtohs(v);
}

bool isEndEntry(const unsigned char* p) {
  for (int i = 0; i < BasicPartionedAccessMethod::kDirNameSize; ++i) {
    if (p[i] != kEndEntryByte) return false;
  }
  return true;
}

}  // namespace

BasicPartionedAccessMethod::Extent::Extent()
    : lowCyl(-1),
      lowHead(-1),
      highCyl(-1),
      highHead(-1),
      lowTrackIndex(-1),
      highTrackIndex(-1),
      tracks(-1) {}

// ---- directory entry ---------------------------------------------------------

int BasicPartionedAccessMethod::DirEnt::entryLength(const unsigned char* entry) {
  return kDirEntryFixedSize + 2 * (entry[kDirIndicatorOffset] & kDirUserHalfwordMask);
}

BasicPartionedAccessMethod::DirEnt::DirEnt(const unsigned char* entry) {
  std::memset(name, 0, sizeof(name));
  track = 0;
  record = 0;
  indicators = 0;
  std::memset(userData, 0, sizeof(userData));

  dirEntXlater.copyE2A(name, entry, kDirNameSize);
  // Trailing blanks and NULs become NUL; inner blanks stay.
  for (int i = static_cast<int>(sizeof(name)) - 1; i >= 0; --i) {
    if (name[i] != ' ' && name[i] != '\0') break;
    name[i] = '\0';
  }
  track = static_cast<uint16_t>(loadHalfword(entry + kDirTrackOffset));
  record = entry[kDirRecordOffset];
  indicators = entry[kDirIndicatorOffset];
  std::memcpy(userData, entry + kDirUserDataOffset,
              static_cast<size_t>(2 * (indicators & kDirUserHalfwordMask)));
}

// ---- object --------------------------------------------------------------------

BasicPartionedAccessMethod::BasicPartionedAccessMethod(DskVolume& volume)
    : volume(volume),
      datasetName(),
      extents(32, false),
      directory(32, false),
      records(32, false),
      newRecords(32, false),
      blockSize(-1),
      recordLength(-1),
      memberTrack(0),
      memberRecord(0),
      recordFormat(0xFFFF) {
  std::memset(memberName, 0, sizeof(memberName));
}

namespace {
template <class T>
void deleteAll(DynamicTypedPointerArray<T>& list) {
  for (int i = 0; i < list.capacity; ++i) {
    delete list.slots[i];
    list.slots[i] = nullptr;
  }
  list.count = 0;
}
// Empties a record list, keeping its strings for reuse: readMember fills
// the recycled strings first (copying into a string whose buffer is large
// enough allocates nothing) and deletes the ones it did not need. A string
// the caller took out of the list (leaving its slot null) is not touched.
class RecycledStrings {
 public:
  explicit RecycledStrings(DynamicTypedPointerArray<RexxString>& list) {
    for (int i = 0; i < list.capacity; ++i) {
      if (list.slots[i] != nullptr) spare_.push_back(list.slots[i]);
    }
    list.clear();
  }
  ~RecycledStrings() {
    for (size_t i = next_; i < spare_.size(); ++i) delete spare_[i];
  }
  RecycledStrings(const RecycledStrings&) = delete;
  RecycledStrings& operator=(const RecycledStrings&) = delete;
  RexxString* take(int capacity) {
    return next_ < spare_.size() ? spare_[next_++] : new RexxString(capacity);
  }

 private:
  std::vector<RexxString*> spare_;
  size_t next_ = 0;
};

}  // namespace

BasicPartionedAccessMethod::~BasicPartionedAccessMethod() {
  deleteAll(extents);
  deleteAll(directory);
  deleteAll(records);
  deleteAll(newRecords);
}

// ---- open ----------------------------------------------------------------------

int BasicPartionedAccessMethod::openDataset(const char* name) {
  if (name == nullptr || *name == '\0') {
    errno = ENOENT;
    return kOpenNoName;
  }
  const Format1DSCB* f1 = volume.vtoc.locateDataset(name);
  if (f1 == nullptr) {
    errno = ENOENT;
    return kOpenNotFound;
  }
  if ((f1->getDSorg() & ~kDsorgUnmovable) != kDsorgPartitioned) {
    errno = ENOENT;
    return kOpenNotPartitioned;
  }

  datasetName.copy(name, -1);
  blockSize = f1->getBlkSize();
  recordLength = f1->getLrecl();
  recordFormat = f1->getRecfm();

  int extentCount = f1->nbrExts & 0xFF;
  for (int i = 0; i < extentCount; ++i) {
    Extent* e = new Extent();
    e->tracks = f1->getExtent(i, e->lowCyl, e->lowHead, e->highCyl, e->highHead, e->lowTrackIndex,
                              e->highTrackIndex);
    extents.add(e);
  }
  const Extent* first = extents.get(0);
  if (extents.count == 0 || first == nullptr) {
    errno = EIO;
    return kOpenNoExtent;
  }

  EmulatedCKDfile* file = volume.file;
  if (file == nullptr || file->readTrack(static_cast<unsigned int>(first->lowCyl),
                                         static_cast<unsigned short>(first->lowHead), 0) != 0) {
    errno = EIO;
    return kOpenUnreadable;
  }
  const void* ref = file->searchRecord(nullptr, static_cast<unsigned int>(first->lowCyl),
                                       static_cast<unsigned short>(first->lowHead), 1);
  if (ref == nullptr) {
    errno = EIO;
    return kOpenNoFirstRecord;
  }

  // The walk follows the volume's track order (not the extents) and ends
  // only at a record that is not a 256-byte block; locateNext() ends at the
  // volume's last track, so the walk is bounded.
  while (ref != nullptr) {
    const unsigned char* block;
    int length;
    if (!recordData(*file, ref, block, length) || length != kDirBlockSize) return kOpenOk;
    int used = static_cast<int>(loadHalfword(block)) - kDirUsedSize;
    int pos = kDirUsedSize;
    while (used > 0) {
      // Nothing past the block's 256 bytes is read: an entry that would run
      // past them ends this block.
      if (pos + kDirNameSize > kDirBlockSize) break;
      if (isEndEntry(block + pos)) break;
      if (pos + kDirEntryFixedSize > kDirBlockSize) break;
      int entryLen = DirEnt::entryLength(block + pos);
      if (pos + entryLen > kDirBlockSize) break;
      directory.add(new DirEnt(block + pos));
      pos += entryLen;
      used -= entryLen;
    }
    ref = file->locateNext(ref, true);
  }
  return kOpenOk;
}

// ---- addressing ------------------------------------------------------------------

bool BasicPartionedAccessMethod::getExtent(int index, int& lowCyl, int& lowHead, int& highCyl,
                                           int& highHead, int& lowTrackIndex, int& highTrackIndex) {
  lowCyl = lowHead = highCyl = highHead = lowTrackIndex = highTrackIndex = -1;
  if (index < 0 || index >= extents.count) return false;
  const Extent* e = extents.get(index);
  if (e == nullptr) return false;
  lowCyl = e->lowCyl;
  lowHead = e->lowHead;
  highCyl = e->highCyl;
  highHead = e->highHead;
  lowTrackIndex = e->lowTrackIndex;
  highTrackIndex = e->highTrackIndex;
  return true;
}

bool BasicPartionedAccessMethod::tt2cchh(int relativeTrack, int& cylinder, int& head) const {
  const EmulatedCKDfile* file = volume.file;
  // A negative relativeTrack is not refused: it falls in the first extent
  // whose track count exceeds it, before that extent's first track.
  if (file == nullptr || file->tracksPerCylinder == 0) return false;
  // 64-bit arithmetic: extents of a damaged DSCB may carry any track counts.
  long long t = relativeTrack;
  for (int i = 0; i < extents.count; ++i) {
    const Extent* e = extents.get(i);
    if (e == nullptr) continue;
    if (e->tracks > t) {
      long long h = t + e->lowHead;
      long long c = e->lowCyl + h / file->tracksPerCylinder;
      h %= file->tracksPerCylinder;
      if (c < INT_MIN || c > INT_MAX || h < INT_MIN) return false;
      cylinder = static_cast<int>(c);
      head = static_cast<int>(h);
      return true;
    }
    t -= e->tracks;
  }
  return false;
}

// ---- members -------------------------------------------------------------------

int BasicPartionedAccessMethod::readMember(const char* name) {
  RexxString upper(name);
  upper.Upper();
  RecycledStrings spare(records);  // records is empty from here on
  std::memset(memberName, 0, sizeof(memberName));

  if (directory.count == 0) {
    errno = ENOENT;
    return kReadNoMember;
  }
  const DirEnt* entry = nullptr;
  for (int i = 0; i < directory.count && entry == nullptr; ++i) {
    const DirEnt* candidate = directory.get(i);
    if (candidate != nullptr && std::strcmp(candidate->name, upper.text()) == 0) entry = candidate;
  }
  if (entry == nullptr) {
    errno = ENOENT;
    return kReadNoMember;
  }
  // A matching name has at most 8 characters.
  std::strncpy(memberName, upper.text(), sizeof(memberName) - 1);
  memberTrack = entry->track;
  memberRecord = entry->record;

  if (recordLength <= 0) {
    errno = EINVAL;
    return kReadUndefinedLength;
  }
  int cyl, head;
  if (!tt2cchh(memberTrack, cyl, head)) {
    errno = EIO;
    return kReadOutsideExtents;
  }
  EmulatedCKDfile* file = volume.file;
  if (file->readTrack(static_cast<unsigned int>(cyl), static_cast<unsigned short>(head), 0) != 0) {
    errno = EIO;
    return kReadUnreadable;
  }
  const void* ref =
      file->searchRecord(nullptr, static_cast<unsigned int>(cyl), static_cast<unsigned short>(head),
                         static_cast<unsigned char>(memberRecord));
  while (ref != nullptr) {
    const unsigned char* data;
    int length;
    if (!recordData(*file, ref, data, length) || length > blockSize || length % recordLength != 0) {
      return kReadOk;
    }
    for (int offset = 0; offset < length; offset += recordLength) {
      RexxString* r = spare.take(recordLength);
      r->copy(data + offset, recordLength);
      records.add(r);
    }
    ref = file->locateNext(ref, true);
  }
  return kReadOk;
}

int BasicPartionedAccessMethod::setRecord(int recordNumber, const char* data, int length) {
  (void)recordNumber;  // records are kept in call order
  if (length == 0) return kSetOk;
  if (length < 0 || length > recordLength || data == nullptr) return kSetBadLength;
  RexxString* r = new RexxString(length);
  r->copy(data, length);
  newRecords.add(r);
  return kSetOk;
}

int BasicPartionedAccessMethod::replaceMember(const char* name) {
  int rc = readMember(name);
  if (rc != kReadOk) return rc;
  if (records.count != newRecords.count) return kReplaceCountMismatch;

  // readMember succeeded, so recordLength > 0 and blockSize >= 0.
  std::vector<unsigned char> work(static_cast<size_t>(blockSize > 0 ? blockSize : 1));
  int cyl, head;
  if (!tt2cchh(memberTrack, cyl, head)) {
    errno = EIO;
    return kReplaceOutsideExtents;
  }
  EmulatedCKDfile* file = volume.file;
  if (file->readTrack(static_cast<unsigned int>(cyl), static_cast<unsigned short>(head), 0) != 0) {
    errno = EIO;
    return kReplaceUnreadable;
  }
  const void* ref =
      file->searchRecord(nullptr, static_cast<unsigned int>(cyl), static_cast<unsigned short>(head),
                         static_cast<unsigned char>(memberRecord));
  int j = 0;
  while (ref != nullptr) {
    // The member ends where readMember ends it (a block whose data would run
    // past the track buffer on a damaged track included).
    const unsigned char* data;
    int length;
    if (!recordData(*file, ref, data, length) || length > blockSize || length % recordLength != 0) {
      break;
    }
    for (int offset = 0; offset < length; offset += recordLength) {
      unsigned char* piece = work.data() + offset;
      std::memset(piece, kEbcdicBlank, static_cast<size_t>(recordLength));
      const RexxString* r = j < newRecords.count ? newRecords.get(j) : nullptr;
      if (r != nullptr) {
        int n = r->length() < recordLength ? r->length() : recordLength;
        std::memcpy(piece, r->text(), static_cast<size_t>(n));
      }
      ++j;
    }
    if (file->writeD(ref, work.data()) != 0) {
      errno = EIO;
      return kReplaceBlockWrite;
    }
    // Reading the next track writes this one back first.
    ref = file->locateNext(ref, true);
  }
  if (file->writeTrack() != 0) {
    errno = EIO;
    return kReplaceTrackWrite;
  }
  return kReplaceOk;
}
