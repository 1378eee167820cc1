#include "edit/vtoc_edit.h"

#include <algorithm>
#include <cstring>
#include <set>

#include "codepage/code_page.h"

namespace ckdvol {

namespace {

constexpr uint32_t kTrailerBytes = 16;
constexpr uint32_t kMarkerBytes = 8;
constexpr uint32_t kCountBytes = 8;
constexpr uint32_t kHomeAddressBytes = 5;

// Offsets within a DSCB.
constexpr int kFormatId = 44;
constexpr int kF1ExtentCount = 59;
constexpr int kF1Extents = 105;
constexpr int kChain = 135;        // next DSCB of a chain (formats 1, 3, 5, 8, 9)
constexpr int kF3FirstKeyExtent = 4;
constexpr int kF3FirstDataExtent = 45;
constexpr int kF4LastActive = 45;
constexpr int kF4EmptyCount = 50;
constexpr int kF4Indicators = 58;
constexpr int kF5FirstKeyExtent = 4;
constexpr int kF5FirstDataExtent = 45;
constexpr int kF9Format3Count = 45;
constexpr int kF9Format3First = 46;
constexpr int kCchhr = 5;
constexpr int kF5ExtentBytes = 5;

void put16(unsigned char* p, uint32_t v) {
  p[0] = static_cast<unsigned char>(v >> 8);
  p[1] = static_cast<unsigned char>(v);
}

void putCchhr(unsigned char* p, const RecordAddress& a, bool large) {
  uint32_t hh = a.head;
  if (large) hh |= ((a.cyl >> 16) & 0xFFF) << 4;
  put16(p, a.cyl & 0xFFFF);
  put16(p + 2, hh);
  p[4] = a.record;
}

RecordAddress getCchhr(const unsigned char* p, bool large) {
  RecordAddress a;
  a.cyl = (static_cast<uint32_t>(p[0]) << 8) | p[1];
  uint32_t hh = (static_cast<uint32_t>(p[2]) << 8) | p[3];
  if (large) {
    a.cyl |= (hh & 0xFFF0) << 12;
    hh &= 0x000F;
  }
  a.head = hh;
  a.record = p[4];
  return a;
}

bool isZeroAddress(const unsigned char* p) {
  return std::all_of(p, p + kCchhr, [](unsigned char b) { return b == 0; });
}

int formatOf(const unsigned char* d) {
  if (std::all_of(d, d + kDscbSize, [](unsigned char b) { return b == 0; })) return 0;
  const unsigned char id = d[kFormatId];
  if (id >= 0xF1 && id <= 0xF9) return id - 0xF0;
  return -1;
}

// Offset of extent `i` (0-based, 0..15) of a data set: in the Format-1 DSCB
// for 0-2, else in its Format-3 DSCB.
int format3ExtentOffset(size_t j) {
  return j < 4 ? kF3FirstKeyExtent + static_cast<int>(j) * kExtentSize
               : kF3FirstDataExtent + static_cast<int>(j - 4) * kExtentSize;
}

int format5ExtentOffset(size_t j) {
  return j < 8 ? kF5FirstKeyExtent + static_cast<int>(j) * kF5ExtentBytes
               : kF5FirstDataExtent + static_cast<int>(j - 8) * kF5ExtentBytes;
}

}  // namespace

void encodeEbcdic(const std::string& text, unsigned char* out, size_t length) {
  const CodePage& page = CodePage::defaultPage();
  for (size_t i = 0; i < length; ++i) {
    int b = 0x40;
    if (i < text.size()) {
      b = page.toEbcdic(static_cast<unsigned char>(text[i]));
      if (b < 0) b = 0x40;
    }
    out[i] = static_cast<unsigned char>(b);
  }
}

void encodeDataSetName(const std::string& name, unsigned char* out44) { encodeEbcdic(name, out44, 44); }

void encodeExtent(const Extent& e, bool largeCylinders, unsigned char* out) {
  out[0] = e.type;
  out[1] = e.sequence;
  RecordAddress lo{e.lowCyl, e.lowHead, 0}, hi{e.highCyl, e.highHead, 0};
  unsigned char tmp[kCchhr];
  putCchhr(tmp, lo, largeCylinders);
  std::memcpy(out + 2, tmp, 4);
  putCchhr(tmp, hi, largeCylinders);
  std::memcpy(out + 6, tmp, 4);
}

VtocEditor::VtocEditor(StagedTracks& staged) : staged_(staged) {}

bool VtocEditor::load(const VtocInfo& vtoc, std::string& error) {
  vtoc_ = vtoc;
  slots_.clear();
  format4_ = -1;
  large_ = staged_.file().largeCylinders != 0;
  volumeTracks_ = staged_.trackCount();
  const uint32_t heads = staged_.heads();
  const uint32_t slot = staged_.slotSize();
  if (heads == 0 || vtoc.vtocLastTrack < vtoc.vtocFirstTrack || vtoc.vtocLastTrack >= volumeTracks_) {
    error = "the VTOC's extent is not on the volume";
    return false;
  }
  if (staged_.file().deviceType == EmulatedCKDfile::D200) {
    error = "D200 volumes cannot be edited";
    return false;
  }
  const uint32_t limit = slot - kTrailerBytes - kMarkerBytes;
  std::vector<unsigned char> copy;
  for (uint32_t t = vtoc.vtocFirstTrack; t <= vtoc.vtocLastTrack; ++t) {
    const unsigned char* image = staged_.image(t, error);
    if (image == nullptr) return false;
    copy.assign(image, image + slot);
    for (uint32_t at = kHomeAddressBytes; at + kCountBytes <= limit;) {
      const unsigned char* c = copy.data() + at;
      if (std::all_of(c, c + kCountBytes, [](unsigned char b) { return b == 0xFF; })) break;
      const uint32_t kl = c[5], dl = (static_cast<uint32_t>(c[6]) << 8) | c[7];
      if (at + kCountBytes + kl + dl > limit) break;
      if (c[4] != 0 && kl == 44 && dl == 96) {
        DscbSlot s;
        s.track = t;
        s.record = c[4];
        s.at = RecordAddress{t / heads, t % heads, c[4]};
        s.format = formatOf(c + kCountBytes);
        if (s.format == 4 && s.at.cyl == vtoc.format4At.cyl && s.at.head == vtoc.format4At.head &&
            s.at.record == vtoc.format4At.record) {
          format4_ = static_cast<int>(slots_.size());
        }
        slots_.push_back(s);
      }
      at += kCountBytes + kl + dl;
      if (slots_.size() > 65536) break;  // no VTOC is that large; a bound for damaged tracks
    }
  }
  if (format4_ < 0) {
    error = "the VTOC holds no Format-4 DSCB at its label's address";
    return false;
  }
  return true;
}

FreeSpace VtocEditor::freeSpace() const {
  std::vector<std::string> notes;
  return computeFreeSpace(usedRuns(vtoc_, notes), volumeTracks_, staged_.heads());
}

size_t VtocEditor::emptyDscbs() const {
  return static_cast<size_t>(std::count_if(slots_.begin(), slots_.end(), [](const DscbSlot& s) { return s.format == 0; }));
}

size_t VtocEditor::format5Present() const {
  return static_cast<size_t>(std::count_if(slots_.begin(), slots_.end(), [](const DscbSlot& s) { return s.format == 5; }));
}

size_t VtocEditor::format5Needed(const FreeSpace& fs) const {
  if (volumeTracks_ > 0xFFFF) return 0;
  return std::max<size_t>(1, (fs.extents.size() + kFormat5Extents - 1) / kFormat5Extents);
}

const DataSetInfo* VtocEditor::find(const std::string& name) const { return findDataSet(vtoc_, name); }

int VtocEditor::takeEmpty() {
  for (size_t i = 0; i < slots_.size(); ++i) {
    if (slots_[i].format == 0) return static_cast<int>(i);
  }
  return -1;
}

int VtocEditor::slotAt(const RecordAddress& a) const {
  for (size_t i = 0; i < slots_.size(); ++i) {
    if (slots_[i].at.cyl == a.cyl && slots_[i].at.head == a.head && slots_[i].at.record == a.record) {
      return static_cast<int>(i);
    }
  }
  return -1;
}

bool VtocEditor::readDscb(const DscbSlot& slot, DscbBytes& out, std::string& error) {
  const unsigned char* image = staged_.image(slot.track, error);
  if (image == nullptr) return false;
  // Find the record again on the image (it may have been staged meanwhile).
  const uint32_t limit = staged_.slotSize() - kTrailerBytes - kMarkerBytes;
  for (uint32_t at = kHomeAddressBytes; at + kCountBytes <= limit;) {
    const unsigned char* c = image + at;
    if (std::all_of(c, c + kCountBytes, [](unsigned char b) { return b == 0xFF; })) break;
    const uint32_t kl = c[5], dl = (static_cast<uint32_t>(c[6]) << 8) | c[7];
    if (at + kCountBytes + kl + dl > limit) break;
    if (c[4] == slot.record && kl == 44 && dl == 96) {
      std::memcpy(out.data(), c + kCountBytes, kDscbSize);
      return true;
    }
    at += kCountBytes + kl + dl;
  }
  error = "DSCB " + std::to_string(slot.at.cyl) + "/" + std::to_string(slot.at.head) + "/" +
          std::to_string(slot.at.record) + " is no longer on its track";
  return false;
}

bool VtocEditor::writeDscb(const DscbSlot& slot, const unsigned char* bytes, std::string& error) {
  uint32_t kl = 0, dl = 0;
  unsigned char* p = staged_.stageRecord(slot.track, slot.record, kl, dl, error);
  if (p == nullptr) return false;
  if (kl != 44 || dl != 96) {
    error = "record " + std::to_string(slot.record) + " of " + staged_.trackText(slot.track) + " is not a DSCB";
    return false;
  }
  std::memcpy(p, bytes, kDscbSize);
  for (DscbSlot& s : slots_) {
    if (s.track == slot.track && s.record == slot.record) s.format = formatOf(bytes);
  }
  return true;
}

bool VtocEditor::addDataSet(const DscbBytes& f1In, const std::vector<Extent>& extents, RecordAddress& at,
                            std::string& error) {
  const uint32_t heads = staged_.heads();
  std::string name;
  {
    // The name as the scan would decode it: the caller gave it in EBCDIC.
    const CodePage& page = CodePage::defaultPage();
    for (int i = 0; i < 44; ++i) name.push_back(static_cast<char>(page.toUnicode(f1In[static_cast<size_t>(i)])));
    while (!name.empty() && name.back() == ' ') name.pop_back();
  }
  if (find(name) != nullptr) {
    error = "data set " + name + " already exists";
    return false;
  }
  if (extents.empty() || extents.size() > kMaxDataSetExtents) {
    error = "a data set has 1 to " + std::to_string(kMaxDataSetExtents) + " extents, not " + std::to_string(extents.size());
    return false;
  }
  // Every extent must lie in free space, and the extents apart from each other.
  const FreeSpace before = freeSpace();
  std::vector<TrackRun> runs;
  for (const Extent& e : extents) {
    const uint32_t n = extentTracks(e, heads);
    const uint64_t first = static_cast<uint64_t>(e.lowCyl) * heads + e.lowHead;
    if (n == 0 || first + n > volumeTracks_) {
      error = "extent " + std::to_string(e.lowCyl) + "/" + std::to_string(e.lowHead) + "-" + std::to_string(e.highCyl) +
              "/" + std::to_string(e.highHead) + " is not on the volume";
      return false;
    }
    const TrackRun r{static_cast<uint32_t>(first), n};
    const bool inFree = std::any_of(before.extents.begin(), before.extents.end(),
                                    [&](const TrackRun& f) { return r.first >= f.first && r.end() <= f.end(); });
    const bool apart = std::none_of(runs.begin(), runs.end(),
                                    [&](const TrackRun& o) { return r.first < o.end() && o.first < r.end(); });
    if (!inFree || !apart) {
      error = "tracks " + staged_.trackText(r.first) + " to " + staged_.trackText(r.end() - 1) + " are not free";
      return false;
    }
    runs.push_back(r);
  }
  // The data set as the free space will see it.
  DataSetInfo ds;
  ds.name = name;
  ds.format = 1;
  ds.extents = extents;
  ds.extentCount = static_cast<uint8_t>(extents.size());
  ds.dsorg = static_cast<uint16_t>((f1In[82] << 8) | f1In[83]);
  ds.recfm = f1In[84];
  ds.blksize = static_cast<uint16_t>((f1In[86] << 8) | f1In[87]);
  ds.lrecl = static_cast<uint16_t>((f1In[88] << 8) | f1In[89]);
  for (const TrackRun& r : runs) ds.tracksAllocated += r.count;
  VtocInfo after = vtoc_;
  after.dataSets.push_back(ds);
  std::vector<std::string> notes;
  const FreeSpace fsAfter = computeFreeSpace(usedRuns(after, notes), volumeTracks_, heads);
  const size_t format3s = extents.size() > 3 ? 1 : 0;
  const size_t present = format5Present();
  const size_t need5 = format5Needed(fsAfter);
  const size_t needed = 1 + format3s + (need5 > present ? need5 - present : 0);
  if (emptyDscbs() < needed) {
    error = "the VTOC is full: " + std::to_string(needed) + " empty DSCBs needed, " + std::to_string(emptyDscbs()) +
            " left";
    return false;
  }

  DscbBytes f1 = f1In;
  f1[kFormatId] = 0xF1;
  f1[kF1ExtentCount] = static_cast<unsigned char>(extents.size());
  std::memset(f1.data() + kF1Extents, 0, 3 * kExtentSize);
  std::memset(f1.data() + kChain, 0, kCchhr);
  const int f1Slot = takeEmpty();
  slots_[static_cast<size_t>(f1Slot)].format = 1;  // reserved before the Format-3 takes its own
  for (size_t i = 0; i < extents.size() && i < 3; ++i) encodeExtent(extents[i], large_, f1.data() + kF1Extents + i * kExtentSize);
  if (format3s > 0) {
    DscbBytes f3{};
    std::memset(f3.data(), 0x03, 4);
    f3[kFormatId] = 0xF3;
    for (size_t i = 3; i < extents.size(); ++i) encodeExtent(extents[i], large_, f3.data() + format3ExtentOffset(i - 3));
    const int f3Slot = takeEmpty();
    putCchhr(f1.data() + kChain, slots_[static_cast<size_t>(f3Slot)].at, large_);
    if (!writeDscb(slots_[static_cast<size_t>(f3Slot)], f3.data(), error)) return false;
  }
  if (!writeDscb(slots_[static_cast<size_t>(f1Slot)], f1.data(), error)) return false;
  at = slots_[static_cast<size_t>(f1Slot)].at;
  ds.address = at;
  std::copy(f1.begin(), f1.end(), ds.dscb.begin());
  vtoc_.dataSets.push_back(ds);
  std::sort(vtoc_.dataSets.begin(), vtoc_.dataSets.end(),
            [](const DataSetInfo& a, const DataSetInfo& b) { return a.name < b.name; });
  return rewriteFreeSpace(error);
}

std::vector<int> VtocEditor::chainOf(const DataSetInfo& ds, std::string& error) {
  std::vector<int> out;
  const int head = slotAt(ds.address);
  if (head < 0) {
    error = "the DSCB of " + ds.name + " is not in the VTOC";
    return out;
  }
  out.push_back(head);
  std::set<int> seen{head};
  std::vector<int> todo{head};
  while (!todo.empty() && seen.size() <= 64) {
    const int i = todo.back();
    todo.pop_back();
    DscbBytes d;
    if (!readDscb(slots_[static_cast<size_t>(i)], d, error)) return {};
    std::vector<const unsigned char*> next{d.data() + kChain};
    if (slots_[static_cast<size_t>(i)].format == 9) {
      const int n = std::min<int>(d[kF9Format3Count], 10);
      for (int k = 0; k < n; ++k) next.push_back(d.data() + kF9Format3First + k * kCchhr);
    }
    for (const unsigned char* p : next) {
      if (isZeroAddress(p)) continue;
      const int s = slotAt(getCchhr(p, large_));
      if (s < 0 || seen.count(s) != 0) continue;
      const int f = slots_[static_cast<size_t>(s)].format;
      if (f != 3 && f != 9) continue;
      seen.insert(s);
      out.push_back(s);
      todo.push_back(s);
    }
  }
  return out;
}

bool VtocEditor::removeDataSet(const std::string& name, std::string& error) {
  const DataSetInfo* ds = find(name);
  if (ds == nullptr) {
    error = "data set " + name + " not found";
    return false;
  }
  const std::vector<int> chain = chainOf(*ds, error);
  if (chain.empty()) return false;
  VtocInfo after = vtoc_;
  after.dataSets.erase(after.dataSets.begin() + (ds - vtoc_.dataSets.data()));
  std::vector<std::string> notes;
  const FreeSpace fsAfter = computeFreeSpace(usedRuns(after, notes), volumeTracks_, staged_.heads());
  const size_t need5 = format5Needed(fsAfter);
  const size_t present = format5Present();
  if (need5 > present && need5 - present > emptyDscbs() + chain.size()) {
    error = "the VTOC is full: the free space needs " + std::to_string(need5) + " Format-5 DSCBs";
    return false;
  }
  const DscbBytes zero{};
  for (int i : chain) {
    if (!writeDscb(slots_[static_cast<size_t>(i)], zero.data(), error)) return false;
  }
  vtoc_ = after;
  return rewriteFreeSpace(error);
}

bool VtocEditor::renameDataSet(const std::string& from, const std::string& to, std::string& error) {
  const DataSetInfo* ds = find(from);
  if (ds == nullptr) {
    error = "data set " + from + " not found";
    return false;
  }
  if (find(to) != nullptr) {
    error = "data set " + to + " already exists";
    return false;
  }
  const int s = slotAt(ds->address);
  DscbBytes d;
  if (s < 0) {
    error = "the DSCB of " + from + " is not in the VTOC";
    return false;
  }
  if (!readDscb(slots_[static_cast<size_t>(s)], d, error)) return false;
  encodeDataSetName(to, d.data());
  if (!writeDscb(slots_[static_cast<size_t>(s)], d.data(), error)) return false;
  DataSetInfo& changed = vtoc_.dataSets[static_cast<size_t>(ds - vtoc_.dataSets.data())];
  changed.name = to;
  std::copy(d.begin(), d.end(), changed.dscb.begin());
  std::sort(vtoc_.dataSets.begin(), vtoc_.dataSets.end(),
            [](const DataSetInfo& a, const DataSetInfo& b) { return a.name < b.name; });
  return rewriteFreeSpace(error);
}

bool VtocEditor::recordedFreeSpace(std::vector<TrackRun>& out, bool& notMaintained, std::string& error) {
  out.clear();
  DscbBytes d;
  if (!readDscb(slots_[static_cast<size_t>(format4_)], d, error)) return false;
  notMaintained = (d[kF4Indicators] & kFreeSpaceNotMaintained) != 0;
  const uint32_t heads = staged_.heads();
  for (const DscbSlot& s : slots_) {
    if (s.format != 5) continue;
    if (!readDscb(s, d, error)) return false;
    for (size_t j = 0; j < kFormat5Extents; ++j) {
      const unsigned char* p = d.data() + format5ExtentOffset(j);
      const uint32_t start = (static_cast<uint32_t>(p[0]) << 8) | p[1];
      const uint32_t cyls = (static_cast<uint32_t>(p[2]) << 8) | p[3];
      const uint32_t tracks = cyls * heads + p[4];
      if (tracks != 0) out.push_back(TrackRun{start, tracks});
    }
  }
  return true;
}

bool VtocEditor::rewriteFreeSpace(std::string& error) {
  const FreeSpace fs = freeSpace();
  DscbBytes f4;
  if (!readDscb(slots_[static_cast<size_t>(format4_)], f4, error)) return false;
  const size_t need = format5Needed(fs);
  if (need == 0) {
    f4[kF4Indicators] |= kFreeSpaceNotMaintained;
  } else {
    std::vector<int> f5;
    for (size_t i = 0; i < slots_.size(); ++i) {
      if (slots_[i].format == 5) f5.push_back(static_cast<int>(i));
    }
    const DscbBytes zero{};
    while (f5.size() > need) {
      if (!writeDscb(slots_[static_cast<size_t>(f5.back())], zero.data(), error)) return false;
      f5.pop_back();
    }
    while (f5.size() < need) {
      const int s = takeEmpty();
      if (s < 0) {
        error = "the VTOC is full: no empty DSCB for the free space";
        return false;
      }
      slots_[static_cast<size_t>(s)].format = 5;
      f5.push_back(s);
    }
    std::sort(f5.begin(), f5.end());
    for (size_t k = 0; k < f5.size(); ++k) {
      DscbBytes d{};
      std::memset(d.data(), 0x05, 4);
      d[kFormatId] = 0xF5;
      for (size_t j = 0; j < kFormat5Extents; ++j) {
        const size_t e = k * kFormat5Extents + j;
        if (e >= fs.extents.size()) break;
        const TrackRun& r = fs.extents[e];
        unsigned char* p = d.data() + format5ExtentOffset(j);
        put16(p, r.first);
        put16(p + 2, r.count / fs.heads);
        p[4] = static_cast<unsigned char>(r.count % fs.heads);
      }
      if (k + 1 < f5.size()) putCchhr(d.data() + kChain, slots_[static_cast<size_t>(f5[k + 1])].at, large_);
      if (!writeDscb(slots_[static_cast<size_t>(f5[k])], d.data(), error)) return false;
    }
    f4[kF4Indicators] &= static_cast<unsigned char>(~kFreeSpaceNotMaintained);
  }
  RecordAddress last;
  bool any = false;
  for (const DscbSlot& s : slots_) {
    if (s.format == 1 || s.format == 8) {
      last = s.at;  // slots_ is in VTOC order
      any = true;
    }
  }
  if (any) {
    putCchhr(f4.data() + kF4LastActive, last, large_);
  } else {
    std::memset(f4.data() + kF4LastActive, 0, kCchhr);
  }
  put16(f4.data() + kF4EmptyCount, static_cast<uint32_t>(std::min<size_t>(emptyDscbs(), 0xFFFF)));
  return writeDscb(slots_[static_cast<size_t>(format4_)], f4.data(), error);
}

}  // namespace ckdvol
