// Reading the VTOC from its own extent, and the data sets it describes.
#include "dataset/vtoc_scan.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <unordered_map>
#include <unordered_set>

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

struct Walk {
  Walk(EmulatedCKDfile& f, VtocInfo& o, bool l) : file(f), out(o), large(l) {}

  EmulatedCKDfile& file;
  VtocInfo& out;
  bool large;
  size_t notesDropped = 0;
  std::vector<Dscb> dscbs;                      // every 44/96 record read
  std::vector<RecordAddress> where;             // its address
  std::unordered_map<uint64_t, size_t> byAddress;  // first record at an address
  std::vector<size_t> dataSets;                 // indexes of Format-1/8 records

  void note(const std::string& text) {
    if (out.notes.size() < kMaxNotes) {
      out.notes.push_back(text);
    } else {
      ++notesDropped;
    }
  }

  const Dscb* find(const RecordAddress& a) const {
    auto it = byAddress.find(addressKey(a));
    return it == byAddress.end() ? nullptr : &dscbs[it->second];
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
      Dscb d;
      std::memcpy(d.data(), r.key, kDscbSize);
      const unsigned char id = d[kDscbFormatId];
      switch (id) {
        case kFormat0: ++out.format0; break;
        case kFormat1:
        case kFormat8: dataSets.push_back(dscbs.size()); break;
        case kFormat3: ++out.format3; break;
        case kFormat4:
          if (++out.format4 > 1) note("a further Format-4 DSCB at " + addressText(a));
          break;
        case kFormat5: ++out.format5; break;
        case kFormat9: ++out.format9; break;
        default: ++out.unknown; break;
      }
      if (!byAddress.emplace(addressKey(a), dscbs.size()).second) {
        note("two DSCBs numbered " + addressText(a) + "; chains reach the first");
      }
      dscbs.push_back(d);
      where.push_back(a);
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
  bool followFormat3(RecordAddress a, const std::string& from, DataSetInfo& ds,
                     std::unordered_set<uint64_t>& visited) const {
    const DscbFields& f = dscbFields();
    std::string previous = from;
    while (ds.extents.size() < ds.extentCount) {
      if (!visited.insert(addressKey(a)).second) {
        ds.damage = "the DSCB chain loops back to " + addressText(a) + " (from " + previous + ")";
        return false;
      }
      const Dscb* d = find(a);
      if (d == nullptr) {
        ds.damage = "Format-3 DSCB " + addressText(a) + " named by " + previous +
                    " is not in the VTOC";
        return false;
      }
      if ((*d)[kDscbFormatId] != kFormat3) {
        ds.damage = "DSCB " + addressText(a) + " named by " + previous +
                    " is not a Format-3 DSCB (format identifier " +
                    std::to_string((*d)[kDscbFormatId]) + ")";
        return false;
      }
      addFormat3Extents(*d, ds);
      const unsigned char* next = d->data() + f.f3Next;
      if (isZeroAddress(next)) break;
      previous = "Format-3 DSCB " + addressText(a);
      a = readCchhr(next, large);
    }
    return true;
  }

  // Format-8: the Format-9 chain; each Format-9 DSCB may list Format-3
  // addresses, and its chain pointer leads to the next Format-9 DSCB or to
  // the first Format-3 DSCB.
  bool followFormat9(RecordAddress a, const std::string& from, DataSetInfo& ds,
                     std::unordered_set<uint64_t>& visited) const {
    const DscbFields& f = dscbFields();
    std::string previous = from;
    for (;;) {
      if (!visited.insert(addressKey(a)).second) {
        ds.damage = "the DSCB chain loops back to " + addressText(a) + " (from " + previous + ")";
        return false;
      }
      const Dscb* d = find(a);
      if (d == nullptr) {
        ds.damage = "Format-9 DSCB " + addressText(a) + " named by " + previous +
                    " is not in the VTOC";
        return false;
      }
      const unsigned char id = (*d)[kDscbFormatId];
      if (id == kFormat3) {
        visited.erase(addressKey(a));
        return followFormat3(a, previous, ds, visited);
      }
      if (id != kFormat9) {
        ds.damage = "DSCB " + addressText(a) + " named by " + previous +
                    " is neither a Format-9 nor a Format-3 DSCB (format identifier " +
                    std::to_string(id) + ")";
        return false;
      }
      const std::string self = "Format-9 DSCB " + addressText(a);
      const unsigned count = (*d)[f.f9Format3Count];
      for (unsigned i = 0; i < count && i < kF9Format3Slots; ++i) {
        const unsigned char* p = d->data() + f.f9Format3First + 5 * i;
        if (isZeroAddress(p) || ds.extents.size() >= ds.extentCount) continue;
        if (!followFormat3(readCchhr(p, large), self, ds, visited)) return false;
      }
      const unsigned char* next = d->data() + f.f9Next;
      if (isZeroAddress(next) || ds.extents.size() >= ds.extentCount) return true;
      previous = self;
      a = readCchhr(next, large);
    }
  }

  DataSetInfo describe(size_t index) const {
    const Dscb& d = dscbs[index];
    DataSetInfo ds;
    ds.format = d[kDscbFormatId] == kFormat8 ? 8 : 1;
    const DataSetDscbFields& f = ds.format == 8 ? dscbFields().f8 : dscbFields().f1;
    ds.address = where[index];
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

    for (int i = 0; i < 3 && ds.extents.size() < ds.extentCount; ++i) {
      const Extent e = decodeExtent(d.data() + f.extents + kExtentSize * i, large);
      if (e.type != kExtentUnused) ds.extents.push_back(e);
    }
    const std::string self = "Format-" + std::to_string(ds.format) + " DSCB " +
                             addressText(ds.address);
    const unsigned char* next = d.data() + f.next;
    if (ds.extents.size() < ds.extentCount && !isZeroAddress(next)) {
      std::unordered_set<uint64_t> visited;
      visited.insert(addressKey(ds.address));
      if (ds.format == 1) {
        followFormat3(readCchhr(next, large), self, ds, visited);
      } else {
        followFormat9(readCchhr(next, large), self, ds, visited);
      }
    }
    if (ds.damage.empty() && ds.extents.size() < ds.extentCount) {
      ds.damage = self + " counts " + std::to_string(ds.extentCount) + " extents but its chain holds " +
                  std::to_string(ds.extents.size());
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
    return ds;
  }
};

}  // namespace

int scanVtoc(EmulatedCKDfile& file, VtocInfo& out, std::string& error) {
  out = VtocInfo();
  error.clear();
  out.heads = file.tracksPerCylinder;
  out.cylinders = file.cylinders;

  DiskLabel label;
  if (label.initialize(file) != 0) {
    error = errno == EIO ? "track 0/0 cannot be read"
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
    error = found ? "the record at the VTOC address " + addressText(f4At) +
                        " is not a Format-4 DSCB"
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
              std::to_string(v.highHead) + ") is unusable; the tracks up to the last active "
              "DSCB are read instead");
  }
  out.vtocFirstTrack = static_cast<uint32_t>(first);
  out.vtocLastTrack = static_cast<uint32_t>(last);
  for (uint64_t t = first; t <= last; ++t) {
    walk.walkTrack(static_cast<uint32_t>(t / heads), static_cast<uint32_t>(t % heads));
  }

  out.dataSets.reserve(walk.dataSets.size());
  for (size_t index : walk.dataSets) out.dataSets.push_back(walk.describe(index));
  std::stable_sort(out.dataSets.begin(), out.dataSets.end(),
                   [](const DataSetInfo& a, const DataSetInfo& b) { return a.name < b.name; });
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
