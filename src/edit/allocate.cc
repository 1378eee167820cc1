#include "edit/allocate.h"

#include <time.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <memory>

#include "edit/directory_block.h"

namespace ckdvol {

namespace {

bool national(char c) { return c == '@' || c == '#' || c == '$'; }
bool firstChar(char c) { return (c >= 'A' && c <= 'Z') || national(c); }
bool laterChar(char c) { return firstChar(c) || (c >= '0' && c <= '9') || c == '-'; }

// One qualifier of at most `maxLength` characters; "" when well formed.
std::string qualifierProblem(const std::string& q, size_t maxLength) {
  if (q.empty()) return "an empty qualifier (two dots in a row, or a dot at either end)";
  if (q.size() > maxLength) return "qualifier " + q + " is longer than " + std::to_string(maxLength) + " characters";
  if (!firstChar(q[0])) return "qualifier " + q + " must begin with a letter or @ # $";
  for (char c : q) {
    if (!laterChar(c)) {
      std::string shown(1, c);
      if (std::islower(static_cast<unsigned char>(c))) return "qualifier " + q + " has a lower-case letter";
      return "qualifier " + q + " has the character '" + shown + "' (letters, digits, @ # $ and - only)";
    }
  }
  return std::string();
}

void put16(unsigned char* p, uint32_t v) {
  p[0] = static_cast<unsigned char>(v >> 8);
  p[1] = static_cast<unsigned char>(v);
}

uint32_t roundUp(uint32_t v, uint32_t m) { return static_cast<uint32_t>((static_cast<uint64_t>(v) + m - 1) / m * m); }

std::string tracksText(uint32_t n) { return std::to_string(n) + (n == 1 ? " track" : " tracks"); }

}  // namespace

bool validateDataSetName(const std::string& name, std::string& error) {
  if (name.empty() || name.size() > 44) {
    error = "a data set name has 1 to 44 characters, not " + std::to_string(name.size());
    return false;
  }
  size_t start = 0;
  while (true) {
    const size_t dot = name.find('.', start);
    const std::string q = name.substr(start, dot == std::string::npos ? std::string::npos : dot - start);
    const std::string problem = qualifierProblem(q, 8);
    if (!problem.empty()) {
      error = "'" + name + "' is not a data set name: " + problem;
      return false;
    }
    if (dot == std::string::npos) return true;
    start = dot + 1;
  }
}

bool validateVolumeSerial(const std::string& serial, std::string& error) {
  const std::string problem = qualifierProblem(serial, 6);
  if (!problem.empty() || serial.find('.') != std::string::npos) {
    error = "'" + serial + "' is not a volume serial: 1 to 6 characters, a letter or @ # $ first, then letters, "
            "digits, @ # $ or -";
    return false;
  }
  return true;
}

bool parseRecfm(const std::string& text, uint8_t& recfm) {
  std::string t;
  for (char c : text) t.push_back(static_cast<char>(std::toupper(static_cast<unsigned char>(c))));
  uint8_t r = 0;
  size_t i = 0;
  if (t.empty()) return false;
  switch (t[0]) {
    case 'F': r = kRecfmF; break;
    case 'V': r = kRecfmV; break;
    case 'U': r = kRecfmU; break;
    default: return false;
  }
  i = 1;
  if (i < t.size() && t[i] == 'B' && r != kRecfmU) {
    r |= kRecfmBlocked;
    ++i;
  }
  if (i < t.size() && (t[i] == 'A' || t[i] == 'M')) {
    r |= t[i] == 'A' ? kRecfmAsa : kRecfmMachine;
    ++i;
  }
  if (i != t.size()) return false;
  recfm = r;
  return true;
}

uint16_t defaultBlockSize(const EmulatedCKDfile& file, uint8_t recfm, uint16_t lrecl) {
  const uint32_t half = std::min<uint32_t>(file.trackCapacity / 2, kMaxBlockSize);
  const uint8_t kind = recfm & kRecfmFormatMask;
  if (kind == kRecfmF) {
    if (!(recfm & kRecfmBlocked) || lrecl == 0) return lrecl;
    const uint32_t b = half / lrecl * lrecl;
    return static_cast<uint16_t>(std::max<uint32_t>(b, lrecl));
  }
  return static_cast<uint16_t>(half);
}

bool validateAllocation(const EmulatedCKDfile& file, const AllocationRequest& r, std::string& error) {
  if (!validateDataSetName(r.name, error)) return false;
  if (r.dsorg != kDsorgPS && r.dsorg != kDsorgPO) {
    error = "DSORG must be PS or PO";
    return false;
  }
  const uint8_t kind = r.recfm & kRecfmFormatMask;
  const bool blocked = (r.recfm & kRecfmBlocked) != 0;
  const uint8_t known = kRecfmFormatMask | kRecfmBlocked | kRecfmAsa | kRecfmMachine;
  if (kind == 0 || (r.recfm & ~known) != 0 || ((r.recfm & kRecfmAsa) && (r.recfm & kRecfmMachine)) ||
      (kind == kRecfmU && blocked)) {
    error = "RECFM must be F, FB, V, VB or U, optionally with A or M";
    return false;
  }
  const uint32_t most = std::min<uint32_t>(kMaxBlockSize, file.trackCapacity);
  if (r.blksize == 0 || r.blksize > most) {
    error = "BLKSIZE " + std::to_string(r.blksize) + " must be from 1 to " + std::to_string(most) +
            (most < kMaxBlockSize ? " (the track capacity)" : "");
    return false;
  }
  const std::string shown = "LRECL " + std::to_string(r.lrecl) + " and BLKSIZE " + std::to_string(r.blksize);
  if (kind == kRecfmF) {
    if (r.lrecl == 0) {
      error = "RECFM F needs an LRECL of at least 1";
      return false;
    }
    if (!blocked && r.blksize != r.lrecl) {
      error = shown + ": unblocked RECFM F needs BLKSIZE equal to LRECL";
      return false;
    }
    if (blocked && r.blksize % r.lrecl != 0) {
      error = shown + ": RECFM FB needs BLKSIZE a multiple of LRECL";
      return false;
    }
  } else if (kind == kRecfmV) {
    if (r.lrecl < 5 || r.blksize < r.lrecl + 4u) {
      error = shown + ": RECFM V needs LRECL of at least 5 and BLKSIZE of at least LRECL + 4";
      return false;
    }
  } else if (r.lrecl > r.blksize) {
    error = shown + ": RECFM U needs LRECL (0 allowed) not above BLKSIZE";
    return false;
  }
  if (r.keyLength != 0) {
    error = "keyed data sets are not supported (key length must be 0)";
    return false;
  }
  if (r.primary == 0) {
    error = "the primary quantity must be at least 1";
    return false;
  }
  if (r.secondary > 0xFFFFFF) {
    error = "the secondary quantity is at most 16777215";
    return false;
  }
  if (r.dsorg == kDsorgPO && r.directoryBlocks == 0) {
    error = "a partitioned data set needs at least 1 directory block";
    return false;
  }
  if (r.dsorg == kDsorgPS && r.directoryBlocks != 0) {
    error = "directory blocks are for partitioned data sets (DSORG PO) only";
    return false;
  }
  return true;
}

bool chooseSpace(const FreeSpace& fs, uint32_t tracks, bool cylinders, bool placed, uint32_t atTrack, uint32_t limit,
                 std::vector<TrackRun>& out, std::string& error) {
  out.clear();
  const uint32_t heads = fs.heads;
  if (heads == 0 || tracks == 0) {
    error = "no space requested";
    return false;
  }
  // Free extents below the limit; for cylinders only their whole cylinders.
  std::vector<TrackRun> usable;
  uint32_t usableTotal = 0;
  for (const TrackRun& r : fs.extents) {
    uint32_t first = r.first, end = std::min(r.end(), limit);
    if (cylinders) {
      first = roundUp(first, heads);
      end = end / heads * heads;
    }
    if (end > first) {
      usable.push_back(TrackRun{first, end - first});
      usableTotal += end - first;
    }
  }
  if (placed) {
    if (cylinders && atTrack % heads != 0) {
      error = "an allocation in cylinders starts at head 0";
      return false;
    }
    const uint64_t end = static_cast<uint64_t>(atTrack) + tracks;
    for (const TrackRun& r : fs.extents) {
      if (atTrack >= r.first && end <= r.end() && end <= limit) {
        out.push_back(TrackRun{atTrack, tracks});
        return true;
      }
    }
    error = "no room at cylinder " + std::to_string(atTrack / heads) + " head " + std::to_string(atTrack % heads) +
            ": " + tracksText(tracks) + " from there are not all free";
    return false;
  }
  uint32_t largest = 0;
  for (const TrackRun& r : usable) largest = std::max(largest, r.count);
  for (const TrackRun& r : usable) {
    if (r.count >= tracks) {
      out.push_back(TrackRun{r.first, tracks});
      return true;
    }
  }
  const std::string shortText = "no room: " + tracksText(tracks) + " requested, largest free extent " +
                                std::to_string(largest) + ", free " + std::to_string(usableTotal) +
                                (cylinders ? " (in whole cylinders)" : "");
  if (usableTotal < tracks) {
    error = shortText;
    return false;
  }
  std::vector<TrackRun> bySize = usable;
  std::stable_sort(bySize.begin(), bySize.end(), [](const TrackRun& a, const TrackRun& b) { return a.count > b.count; });
  uint32_t got = 0;
  for (const TrackRun& r : bySize) {
    if (got >= tracks || out.size() == kMaxAllocationExtents) break;
    const uint32_t take = std::min(r.count, tracks - got);
    out.push_back(TrackRun{r.first, take});
    got += take;
  }
  if (got < tracks) {
    out.clear();
    error = shortText + "; more than " + std::to_string(kMaxAllocationExtents) + " extents would be needed";
    return false;
  }
  std::sort(out.begin(), out.end(), [](const TrackRun& a, const TrackRun& b) { return a.first < b.first; });
  return true;
}

bool allocateDataSet(VtocEditor& editor, const AllocationRequest& requestIn, AllocationResult& result,
                     std::string& error) {
  StagedTracks& staged = editor.staged();
  EmulatedCKDfile& file = staged.file();
  AllocationRequest r = requestIn;
  if (r.blksize == 0) r.blksize = defaultBlockSize(file, r.recfm, r.lrecl);
  if (!validateAllocation(file, r, error)) return false;
  if (editor.find(r.name) != nullptr) {
    error = "data set " + r.name + " already exists";
    return false;
  }
  const uint32_t heads = staged.heads();
  const uint64_t wanted = r.cylinders ? static_cast<uint64_t>(r.primary) * heads : r.primary;
  if (wanted > staged.trackCount()) {
    error = "no room: " + tracksText(static_cast<uint32_t>(std::min<uint64_t>(wanted, UINT32_MAX))) +
            " requested, the volume has " + tracksText(staged.trackCount());
    return false;
  }
  const uint32_t tracks = static_cast<uint32_t>(wanted);
  const uint32_t limit =
      static_cast<uint32_t>(std::min<uint64_t>(staged.trackCount(), static_cast<uint64_t>(kTrackManagedCylinders) * heads));
  std::vector<TrackRun> runs;
  if (!chooseSpace(editor.freeSpace(), tracks, r.cylinders, r.placed, r.atTrack, limit, runs, error)) return false;

  // The first tracks' contents: the directory (PO) or nothing, then an end-of-file record.
  std::vector<uint32_t> order;  // the data set's tracks in relative order
  for (const TrackRun& run : runs) {
    for (uint32_t t = run.first; t < run.end(); ++t) order.push_back(t);
  }
  std::vector<std::vector<unsigned char>> images;
  uint32_t rel = 0;
  uint32_t lastTrack = 0, lastRecord = 0, balance = 0;
  {
    std::unique_ptr<TrackBuilder> b(new TrackBuilder(file, order[0] / heads, order[0] % heads));
    unsigned char key[kDirectoryKeyLength], data[kDirectoryBlockLength];
    emptyDirectoryBlock(key, data);
    for (uint32_t n = 0; n < r.directoryBlocks; ++n) {
      if (!b->fits(kDirectoryKeyLength, kDirectoryBlockLength)) {
        images.push_back(b->image());
        if (++rel >= order.size()) {
          error = std::to_string(r.directoryBlocks) + " directory blocks do not fit in " + tracksText(tracks);
          return false;
        }
        b.reset(new TrackBuilder(file, order[rel] / heads, order[rel] % heads));
      }
      lastRecord = b->add(key, kDirectoryKeyLength, data, kDirectoryBlockLength);
      lastTrack = rel;
    }
    if (!b->fits(0, 0)) {
      images.push_back(b->image());
      if (++rel >= order.size()) {
        error = std::to_string(r.directoryBlocks) + " directory blocks and an end-of-file record do not fit in " +
                tracksText(tracks);
        return false;
      }
      b.reset(new TrackBuilder(file, order[rel] / heads, order[rel] % heads));
    }
    b->addEndOfFile();
    if (rel == lastTrack) balance = b->balance();
    images.push_back(b->image());
    if (r.dsorg == kDsorgPO && rel != lastTrack) {
      // The end-of-file record went to the next track: the last block's track is full.
      TrackBuilder full(file, order[lastTrack] / heads, order[lastTrack] % heads);
      full.keep(images[lastTrack].data(), static_cast<uint8_t>(lastRecord));
      balance = full.balance();
    }
  }

  // The Format-1 DSCB.
  DscbBytes f1{};
  encodeDataSetName(r.name, f1.data());
  encodeEbcdic(editor.vtoc().volser, f1.data() + 45, 6);
  put16(f1.data() + 51, 1);  // volume sequence number
  const time_t now = ::time(nullptr);
  struct tm local;
  localtime_r(&now, &local);
  f1[53] = static_cast<unsigned char>(local.tm_year);  // years since 1900
  put16(f1.data() + 54, static_cast<uint32_t>(local.tm_yday + 1));
  f1[60] = r.dsorg == kDsorgPO ? 14 : 0;
  encodeEbcdic("CKDVOL", f1.data() + 62, 13);
  put16(f1.data() + 82, r.dsorg);
  f1[84] = r.recfm;
  put16(f1.data() + 86, r.blksize);
  put16(f1.data() + 88, r.lrecl);
  f1[90] = r.keyLength;
  f1[93] = 0x80;  // the last volume of the data set
  f1[94] = r.cylinders ? 0xC0 : 0x80;
  f1[95] = static_cast<unsigned char>(r.secondary >> 16);
  put16(f1.data() + 96, r.secondary & 0xFFFF);
  if (r.dsorg == kDsorgPO) {
    put16(f1.data() + 98, lastTrack);
    f1[100] = static_cast<unsigned char>(lastRecord);
  }
  put16(f1.data() + 101, balance);

  std::vector<Extent> extents;
  for (const TrackRun& run : runs) {
    Extent e;
    e.type = r.cylinders ? 0x81 : 0x01;
    e.sequence = static_cast<uint8_t>(extents.size());
    e.lowCyl = run.first / heads;
    e.lowHead = run.first % heads;
    e.highCyl = (run.end() - 1) / heads;
    e.highHead = (run.end() - 1) % heads;
    extents.push_back(e);
  }
  RecordAddress at;
  if (!editor.addDataSet(f1, extents, at, error)) return false;

  // Every track rewritten: the first ones as built, the rest empty.
  for (uint32_t i = 0; i < order.size(); ++i) {
    const uint32_t t = order[i];
    if (i < images.size()) {
      if (!staged.put(t, images[i].data(), error)) return false;
    } else {
      if (!staged.putEmpty(t, error)) return false;
    }
  }
  result.format1 = at;
  result.extents = extents;
  result.tracks = tracks;
  result.blksize = r.blksize;
  return true;
}

bool allocateDataSet(StagedTracks& staged, const VtocInfo& vtoc, const AllocationRequest& request,
                     AllocationResult& result, std::string& error) {
  VtocEditor editor(staged);
  if (!editor.load(vtoc, error)) return false;
  return allocateDataSet(editor, request, result, error);
}

}  // namespace ckdvol
