// Reading the VTOC from its own extent, and the data sets it describes.
#include "dataset/vtoc_scan.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "common/byte_order.h"
#include "common/cchh.h"
#include "common/data_translator.h"
#include "dataset/dscb_fields.h"
#include "dataset/track_records.h"
#include "volume/disk_label.h"

namespace ckdvol {
namespace {

using Dscb = std::array<unsigned char, kDscbSize>;

constexpr unsigned char kFormat0 = 0x00;
constexpr unsigned char kFormat1 = 0xF1;
constexpr unsigned char kFormat3 = 0xF3;
constexpr unsigned char kFormat4 = 0xF4;
constexpr unsigned char kFormat5 = 0xF5;
constexpr unsigned char kFormat8 = 0xF8;
constexpr unsigned char kFormat9 = 0xF9;
constexpr size_t kMaxNotes = 100;  // further notes are only counted
// Longest chain followed for one data set: 255 extents need at most 20
// Format-3 DSCBs; a longer chain is damage (and keeps every walk short).
constexpr size_t kMaxChain = 64;

std::string hexByte(unsigned char b) {
  static const char kDigits[] = "0123456789ABCDEF";
  return std::string{kDigits[b >> 4], kDigits[b & 0x0F]};
}

std::string addressText(const RecordAddress& a) {
  return std::to_string(a.cyl) + "/" + std::to_string(a.head) + "/" + std::to_string(a.record);
}

uint64_t addressKey(const RecordAddress& a) {
  return (static_cast<uint64_t>(a.cyl) << 24) | (static_cast<uint64_t>(a.head & 0xFFFF) << 8) |
         a.record;
}

RecordAddress readCchhr(const unsigned char* p, bool large) {
  const CylHead ch = decodeCchh(loadBe16(p), loadBe16(p + 2), large);
  RecordAddress a;
  a.cyl = ch.cyl;
  a.head = ch.head;
  a.record = p[4];
  return a;
}

bool isZeroAddress(const unsigned char* p) {
  return p[0] == 0 && p[1] == 0 && p[2] == 0 && p[3] == 0 && p[4] == 0;
}

// EBCDIC text to ASCII, trailing blanks and NULs removed.
std::string asciiName(const unsigned char* p, size_t n) {
  std::string s(n, ' ');
  Xlater.copyE2A(&s[0], p, static_cast<unsigned>(n));
  while (!s.empty() && (s.back() == ' ' || s.back() == '\0')) s.pop_back();
  return s;
}

// Who named a DSCB of a chain, for damage texts (built only on damage).
struct Namer {
  const char* kind;  // "Format-1 DSCB", ...
  RecordAddress at;
  std::string text() const { return std::string(kind) + " " + addressText(at); }
};

struct Walk {
  Walk(EmulatedCKDfile& f, VtocInfo& o, bool l) : file(f), out(o), large(l) {}

  // One 44/96 record of the walk, found by its address.
  struct Slot {
    uint64_t key;          // addressKey()
    unsigned char format;  // format identifier byte
    uint32_t kept;         // index into `kept` (formats 1, 3, 8, 9), else kNone
  };
  static constexpr uint32_t kNone = UINT32_MAX;

  EmulatedCKDfile& file;
  VtocInfo& out;
  bool large;
  size_t notesDropped = 0;
  std::vector<Slot> slots;            // in walk order; sorted by key after the walk
  std::vector<Dscb> kept;             // Format-1, -3, -8 and -9 DSCBs
  std::vector<RecordAddress> keptAt;  //   and their addresses
  std::vector<uint32_t> dataSets;     // indexes into `kept` of the Format-1/8 DSCBs

  void note(const std::string& text) {
    if (out.notes.size() < kMaxNotes) {
      out.notes.push_back(text);
    } else {
      ++notesDropped;
    }
  }

  // Sorts the slots by address (walk order among equals) and notes duplicates.
  void index() {
    std::stable_sort(slots.begin(), slots.end(),
                     [](const Slot& a, const Slot& b) { return a.key < b.key; });
    for (size_t i = 1; i < slots.size(); ++i) {
      if (slots[i].key != slots[i - 1].key) continue;
      RecordAddress a;
      a.cyl = static_cast<uint32_t>(slots[i].key >> 24);
      a.head = static_cast<uint32_t>((slots[i].key >> 8) & 0xFFFF);
      a.record = static_cast<uint8_t>(slots[i].key);
      note("two DSCBs numbered " + addressText(a) + "; chains reach the first");
    }
  }

  // The first DSCB at `a`, or null.
  const Slot* find(const RecordAddress& a) const {
    const uint64_t key = addressKey(a);
    auto it = std::lower_bound(slots.begin(), slots.end(), key,
                               [](const Slot& s, uint64_t k) { return s.key < k; });
    return it != slots.end() && it->key == key ? &*it : nullptr;
  }

  void walkTrack(uint32_t cyl, uint32_t head) {
    const int rc = file.readTrack(cyl, static_cast<unsigned short>(head), 0);
    if (rc != 0) {
      note("VTOC track " + std::to_string(cyl) + "/" + std::to_string(head) +
           " cannot be read (code " + std::to_string(rc) + ")");
      return;
    }
    uint32_t offset = 0;
    if (firstRecordOffset(file, offset) != kWalkRecord) {
      note("VTOC track " + std::to_string(cyl) + "/" + std::to_string(head) +
           ": record zero runs past the end of the track");
      return;
    }
    uint32_t others = 0;
    TrackRecord r;
    int walk;
    while ((walk = readRecordAt(file, offset, r)) == kWalkRecord) {
      if (r.keyLength != kDscbKeyLength || r.dataLength != kDscbDataLength) {
        ++others;
        continue;
      }
      RecordAddress a;
      a.cyl = cyl;
      a.head = head;
      a.record = static_cast<uint8_t>(r.record);
      ++out.dscbRecords;
      // Key and data lie back to back in the track image: one 140-byte DSCB.
      const unsigned char id = r.key[kDscbFormatId];
      bool keep = false;
      switch (id) {
        case kFormat0:
          ++out.format0;
          break;
        case kFormat1:
        case kFormat8:
          dataSets.push_back(static_cast<uint32_t>(kept.size()));
          keep = true;
          break;
        case kFormat3:
          ++out.format3;
          keep = true;
          break;
        case kFormat4:
          if (++out.format4 > 1) note("a further Format-4 DSCB at " + addressText(a));
          break;
        case kFormat5:
          ++out.format5;
          break;
        case kFormat9:
          ++out.format9;
          keep = true;
          break;
        default:
          ++out.unknown;
          break;
      }
      uint32_t k = kNone;
      if (keep) {
        k = static_cast<uint32_t>(kept.size());
        kept.emplace_back();
        std::memcpy(kept.back().data(), r.key, kDscbSize);
        keptAt.push_back(a);
      }
      slots.push_back(Slot{addressKey(a), id, k});
    }
    if (others > 0) {
      note("VTOC track " + std::to_string(cyl) + "/" + std::to_string(head) + ": " +
           std::to_string(others) + " record(s) that are not 44/96 DSCBs");
    }
    if (walk == kWalkOverrun) {
      note("VTOC track " + std::to_string(cyl) + "/" + std::to_string(head) +
           ": a count field runs past the end of the track; the rest of the track is not read");
    }
  }

  // Records `a` as visited by the chain of `ds`; false with `ds.damage` set
  // when the chain comes back to it or grows beyond kMaxChain.
  static bool visit(const RecordAddress& a, const Namer& from, DataSetInfo& ds,
                    std::vector<uint64_t>& visited) {
    if (std::find(visited.begin(), visited.end(), addressKey(a)) != visited.end()) {
      ds.damage = "the DSCB chain loops back to " + addressText(a) + " (from " + from.text() + ")";
      return false;
    }
    if (visited.size() > kMaxChain) {
      ds.damage = "the DSCB chain is longer than " + std::to_string(kMaxChain) + " DSCBs (at " +
                  addressText(a) + ")";
      return false;
    }
    visited.push_back(addressKey(a));
    return true;
  }

  // Appends the non-empty extents of the Format-3 DSCB `d`.
  void addFormat3Extents(const Dscb& d, DataSetInfo& ds) const {
    const DscbFields& f = dscbFields();
    for (int i = 0; i < kF3Extents && ds.extents.size() < ds.extentCount; ++i) {
      const Extent e = decodeExtent(d.data() + f.f3Extent[i], large);
      if (e.type != kExtentUnused) ds.extents.push_back(e);
    }
  }

  // Follows a Format-3 chain from `a` until the extent count is reached.
  // False with `ds.damage` set when the chain is broken.
  bool followFormat3(RecordAddress a, Namer from, DataSetInfo& ds,
                     std::vector<uint64_t>& visited) const {
    const DscbFields& f = dscbFields();
    while (ds.extents.size() < ds.extentCount) {
      if (!visit(a, from, ds, visited)) return false;
      const Slot* s = find(a);
      if (s == nullptr) {
        ds.damage =
            "Format-3 DSCB " + addressText(a) + " named by " + from.text() + " is not in the VTOC";
        return false;
      }
      if (s->format != kFormat3) {
        ds.damage = "DSCB " + addressText(a) + " named by " + from.text() +
                    " is not a Format-3 DSCB (format identifier " + hexByte(s->format) + ")";
        return false;
      }
      const Dscb& d = kept[s->kept];
      addFormat3Extents(d, ds);
      const unsigned char* next = d.data() + f.f3Next;
      if (isZeroAddress(next)) break;
      from = Namer{"Format-3 DSCB", a};
      a = readCchhr(next, large);
    }
    return true;
  }

  // Format-8: the Format-9 chain; each Format-9 DSCB may list Format-3
  // addresses, and its chain pointer leads to the next Format-9 DSCB or to
  // the first Format-3 DSCB.
  bool followFormat9(RecordAddress a, Namer from, DataSetInfo& ds,
                     std::vector<uint64_t>& visited) const {
    const DscbFields& f = dscbFields();
    for (;;) {
      if (std::find(visited.begin(), visited.end(), addressKey(a)) != visited.end()) {
        ds.damage =
            "the DSCB chain loops back to " + addressText(a) + " (from " + from.text() + ")";
        return false;
      }
      const Slot* s = find(a);
      if (s == nullptr) {
        ds.damage =
            "Format-9 DSCB " + addressText(a) + " named by " + from.text() + " is not in the VTOC";
        return false;
      }
      if (s->format == kFormat3) return followFormat3(a, from, ds, visited);
      if (s->format != kFormat9) {
        ds.damage = "DSCB " + addressText(a) + " named by " + from.text() +
                    " is neither a Format-9 nor a Format-3 DSCB (format identifier " +
                    hexByte(s->format) + ")";
        return false;
      }
      if (!visit(a, from, ds, visited)) return false;
      const Dscb& d = kept[s->kept];
      const Namer self{"Format-9 DSCB", a};
      const unsigned count = d[f.f9Format3Count];
      for (unsigned i = 0; i < count && i < kF9Format3Slots; ++i) {
        const unsigned char* p = d.data() + f.f9Format3First + 5 * i;
        if (isZeroAddress(p) || ds.extents.size() >= ds.extentCount) continue;
        if (!followFormat3(readCchhr(p, large), self, ds, visited)) return false;
      }
      const unsigned char* next = d.data() + f.f9Next;
      if (isZeroAddress(next) || ds.extents.size() >= ds.extentCount) return true;
      from = self;
      a = readCchhr(next, large);
    }
  }

  // Fills `ds` from the Format-1/8 DSCB kept at `index`.
  void describe(uint32_t index, DataSetInfo& ds) const {
    const Dscb& d = kept[index];
    ds.format = d[kDscbFormatId] == kFormat8 ? 8 : 1;
    const DataSetDscbFields& f = ds.format == 8 ? dscbFields().f8 : dscbFields().f1;
    ds.address = keptAt[index];
    ds.dscb = d;
    ds.name = asciiName(d.data() + f.name, kDscbKeyLength);
    ds.dsorg = loadBe16(d.data() + f.dsorg);
    ds.recfm = d[f.recfm];
    ds.lrecl = loadBe16(d.data() + f.lrecl);
    ds.blksize = loadBe16(d.data() + f.blksize);
    ds.keyLength = d[f.keyLength];
    ds.created = decodeDscbDate(d.data() + f.created);
    ds.expires = decodeDscbDate(d.data() + f.expires);
    ds.referenced = decodeDscbDate(d.data() + f.referenced);
    ds.extentCount = d[f.extentCount];
    ds.lastDirectoryBytes = d[f.lastDirBytes];
    ds.largeFormat = (d[f.flag1] & kLargeFormatFlag) != 0;
    ds.lastBlockTrack = loadBe16(d.data() + f.lastBlock);
    if (ds.largeFormat) ds.lastBlockTrack |= static_cast<uint32_t>(d[f.lastTrackHigh]) << 16;
    ds.lastBlockRecord = d[f.lastBlock + 2];
    ds.trackBalance = loadBe16(d.data() + f.trackBalance);

    ds.extents.reserve(ds.extentCount < 3 ? ds.extentCount : 3);
    for (int i = 0; i < 3 && ds.extents.size() < ds.extentCount; ++i) {
      const Extent e = decodeExtent(d.data() + f.extents + kExtentSize * i, large);
      if (e.type != kExtentUnused) ds.extents.push_back(e);
    }
    const Namer self{ds.format == 8 ? "Format-8 DSCB" : "Format-1 DSCB", ds.address};
    const unsigned char* next = d.data() + f.next;
    if (ds.extents.size() < ds.extentCount && !isZeroAddress(next)) {
      std::vector<uint64_t> visited{addressKey(ds.address)};
      if (ds.format == 1) {
        followFormat3(readCchhr(next, large), self, ds, visited);
      } else {
        followFormat9(readCchhr(next, large), self, ds, visited);
      }
    }
    if (ds.damage.empty() && ds.extents.size() < ds.extentCount) {
      ds.damage = self.text() + " counts " + std::to_string(ds.extentCount) +
                  " extents but its chain holds " + std::to_string(ds.extents.size());
    }
    uint64_t tracks = 0;
    for (size_t i = 0; i < ds.extents.size(); ++i) {
      const Extent& e = ds.extents[i];
      const uint32_t n = extentTracks(e, out.heads);
      if (ds.damage.empty() && (n == 0 || e.highCyl >= file.cylinders)) {
        ds.damage = "extent " + std::to_string(i + 1) + " (" + std::to_string(e.lowCyl) + "/" +
                    std::to_string(e.lowHead) + " to " + std::to_string(e.highCyl) + "/" +
                    std::to_string(e.highHead) + ") is not a run of tracks of this volume";
      }
      tracks += n;
    }
    ds.tracksAllocated = static_cast<uint32_t>(std::min<uint64_t>(tracks, UINT32_MAX));
    const bool pointerSet = ds.lastBlockTrack != 0 || ds.lastBlockRecord != 0;
    if (pointerSet) {
      ds.tracksUsed = std::min(ds.lastBlockTrack + 1, ds.tracksAllocated);
      ds.usedFromPointer = true;
    } else if ((ds.sequential() || ds.partitioned()) && !ds.vsam()) {
      ds.tracksUsed = 0;
      ds.usedFromPointer = true;
    } else {
      ds.tracksUsed = ds.tracksAllocated;
    }
  }
};

// Puts `sets` in name order (walk order among equal names), moving each
// element about once: the sorted order is applied cycle by cycle.
void sortByName(std::vector<DataSetInfo>& sets) {
  std::vector<uint32_t> order(sets.size());
  for (uint32_t i = 0; i < order.size(); ++i) order[i] = i;
  std::stable_sort(order.begin(), order.end(),
                   [&](uint32_t a, uint32_t b) { return sets[a].name < sets[b].name; });
  std::vector<bool> placed(sets.size(), false);
  for (uint32_t i = 0; i < order.size(); ++i) {
    if (placed[i] || order[i] == i) continue;
    DataSetInfo first = std::move(sets[i]);
    uint32_t j = i;
    for (;;) {
      placed[j] = true;
      const uint32_t from = order[j];
      if (from == i) {
        sets[j] = std::move(first);
        break;
      }
      sets[j] = std::move(sets[from]);
      j = from;
    }
  }
}

}  // namespace

int scanVtoc(EmulatedCKDfile& file, VtocInfo& out, std::string& error) {
  out = VtocInfo();
  error.clear();
  out.heads = file.tracksPerCylinder;
  out.cylinders = file.cylinders;

  DiskLabel label;
  if (label.initialize(file) != 0) {
    error = errno == EIO    ? "track 0/0 cannot be read"
            : errno == 9998 ? "the VOL1 label record is not 80 bytes long"
                            : "track 0/0 holds no VOL1 label record";
    return kScanNoLabel;
  }
  char serial[7];
  label.getSerial(serial, true);
  out.volser.assign(serial, 6);
  int lc, lh, lr;
  label.getVTOC(lc, lh, lr);
  out.format4At.cyl = static_cast<uint32_t>(lc);
  out.format4At.head = static_cast<uint32_t>(lh);
  out.format4At.record = static_cast<uint8_t>(lr);
  const RecordAddress& f4At = out.format4At;

  const bool large = file.largeCylinders != 0;
  const uint32_t heads = out.heads;
  if (heads == 0 || f4At.head >= heads || f4At.cyl >= file.cylinders ||
      file.readTrack(f4At.cyl, static_cast<unsigned short>(f4At.head), 0) != 0) {
    error = "the VTOC track " + std::to_string(f4At.cyl) + "/" + std::to_string(f4At.head) +
            " named by the label cannot be read";
    return kScanVtocUnreadable;
  }
  Dscb f4{};
  bool found = false;
  {
    uint32_t offset = 0;
    TrackRecord r;
    if (firstRecordOffset(file, offset) == kWalkRecord) {
      while (readRecordAt(file, offset, r) == kWalkRecord) {
        if (r.record != f4At.record) continue;
        if (r.keyLength == kDscbKeyLength && r.dataLength == kDscbDataLength) {
          std::memcpy(f4.data(), r.key, kDscbSize);
          found = true;
        }
        break;
      }
    }
  }
  if (!found || f4[kDscbFormatId] != kFormat4) {
    error = found
                ? "the record at the VTOC address " + addressText(f4At) + " is not a Format-4 DSCB"
                : "no DSCB at the VTOC address " + addressText(f4At);
    return kScanNoFormat4;
  }

  const DscbFields& f = dscbFields();
  out.vtocExtent = decodeExtent(f4.data() + f.f4VtocExtent, large);
  out.dscbsPerTrack = f4[f.f4DscbsPerTrack];
  out.lastActive = readCchhr(f4.data() + f.f4LastActive, large);

  Walk walk(file, out, large);
  // The tracks walked: the VTOC's own extent, with the real heads per cylinder.
  const uint64_t f4Track = static_cast<uint64_t>(f4At.cyl) * heads + f4At.head;
  const Extent& v = out.vtocExtent;
  uint64_t first = static_cast<uint64_t>(v.lowCyl) * heads + v.lowHead;
  uint64_t last = static_cast<uint64_t>(v.highCyl) * heads + v.highHead;
  if (extentTracks(v, heads) == 0 || v.highCyl >= file.cylinders || f4Track < first ||
      f4Track > last) {
    const RecordAddress& la = out.lastActive;
    const uint64_t lastActiveTrack = static_cast<uint64_t>(la.cyl) * heads + la.head;
    first = f4Track;
    last = (la.head < heads && la.cyl < file.cylinders && lastActiveTrack >= f4Track)
               ? lastActiveTrack
               : f4Track;
    walk.note("the Format-4 DSCB's VTOC extent (" + std::to_string(v.lowCyl) + "/" +
              std::to_string(v.lowHead) + " to " + std::to_string(v.highCyl) + "/" +
              std::to_string(v.highHead) +
              ") is unusable; the tracks up to the last active "
              "DSCB are read instead");
  }
  out.vtocFirstTrack = static_cast<uint32_t>(first);
  out.vtocLastTrack = static_cast<uint32_t>(last);
  for (uint64_t t = first; t <= last; ++t) {
    walk.walkTrack(static_cast<uint32_t>(t / heads), static_cast<uint32_t>(t % heads));
  }

  walk.index();
  out.dataSets.resize(walk.dataSets.size());
  for (size_t i = 0; i < walk.dataSets.size(); ++i)
    walk.describe(walk.dataSets[i], out.dataSets[i]);
  sortByName(out.dataSets);
  for (size_t i = 1; i < out.dataSets.size(); ++i) {
    if (out.dataSets[i].name == out.dataSets[i - 1].name) {
      walk.note("data set " + out.dataSets[i].name + " is described twice (" +
                addressText(out.dataSets[i - 1].address) + " and " +
                addressText(out.dataSets[i].address) + ")");
    }
  }
  if (walk.notesDropped > 0) {
    out.notes.push_back(std::to_string(walk.notesDropped) + " further notes left out");
  }
  return kScanOk;
}

const DataSetInfo* findDataSet(const VtocInfo& vtoc, const std::string& name) {
  auto it = std::lower_bound(vtoc.dataSets.begin(), vtoc.dataSets.end(), name,
                             [](const DataSetInfo& d, const std::string& n) { return d.name < n; });
  return it != vtoc.dataSets.end() && it->name == name ? &*it : nullptr;
}

}  // namespace ckdvol
