#include "support/pds_builder.h"

#include <fstream>
#include <iterator>
#include <stdexcept>

namespace ckdvol_test {

namespace {

using namespace pds_layout;

void require(bool ok, const std::string& what) {
  if (!ok) throw std::runtime_error("pds builder: " + what);
}

void putBe16(unsigned char* p, uint16_t v) {
  p[0] = static_cast<unsigned char>(v >> 8);
  p[1] = static_cast<unsigned char>(v);
}

constexpr int kTrackStart = 5 + 8 + 8;  // home address, record zero with 8 data bytes
constexpr int kDataLimitFromEnd = 24;   // the end marker begins at slot - 24 at the latest
constexpr int kCountSize = 8;
constexpr int kMaxRecordNumber = 255;

}  // namespace

Bytes dirEntry(const std::string& name, uint16_t tt, uint8_t r, const Bytes& userData,
               uint8_t flags) {
  require(userData.size() % 2 == 0 && userData.size() <= 62, "user data of " + name);
  Bytes e = ebcdicPadded(name, 8);
  e.resize(kFixed);
  putBe16(&e[kTT], tt);
  e[kR] = r;
  e[kIndicator] = static_cast<unsigned char>(flags | (userData.size() / 2));
  e.insert(e.end(), userData.begin(), userData.end());
  return e;
}

Bytes endEntry() {
  Bytes e(kFixed, 0);
  for (int i = 0; i < 8; ++i) e[static_cast<size_t>(i)] = 0xFF;
  return e;
}

Bytes directoryBlock(const std::vector<Bytes>& entries, int used) {
  Bytes b(kBlockSize, 0);
  size_t pos = kFirstEntry;
  for (const Bytes& e : entries) {
    require(pos + e.size() <= static_cast<size_t>(kBlockSize), "directory block overflow");
    std::copy(e.begin(), e.end(), b.begin() + static_cast<long>(pos));
    pos += e.size();
  }
  putBe16(&b[kUsed], static_cast<uint16_t>(used >= 0 ? used : static_cast<int>(pos)));
  return b;
}

Record directoryRecord(uint8_t rec, const Bytes& key, const Bytes& block) {
  Bytes k(key);
  k.resize(kKeySize, 0);
  return keyedRecord(rec, k, block);
}

DataSetLayout pdsDataSet(const std::string& name, uint16_t lrecl, uint16_t blksize,
                       const std::vector<ExtentSpec>& extents) {
  DataSetLayout ds;
  ds.name = name;
  ds.dsorg = kDsorgPO;
  ds.recfm = 0x90;
  ds.lrecl = lrecl;
  ds.blksize = blksize;
  ds.extents = extents;
  return ds;
}

std::string textRecord(const std::string& tag, int i) { return tag + " " + std::to_string(i); }

std::vector<Bytes> textBlocks(const std::string& tag, int count, int lrecl, int perBlock) {
  std::vector<Bytes> blocks;
  for (int i = 0; i < count; ++i) {
    if (i % perBlock == 0) blocks.emplace_back();
    Bytes rec = ebcdicPadded(textRecord(tag, i), static_cast<size_t>(lrecl));
    blocks.back().insert(blocks.back().end(), rec.begin(), rec.end());
  }
  return blocks;
}

std::vector<Cchhr> dataSetTracks(TestVolume& vol, const std::vector<ExtentSpec>& extents) {
  const unsigned heads = vol.file().tracksPerCylinder;
  require(heads > 0, "volume has no geometry");
  std::vector<Cchhr> tracks;
  for (const ExtentSpec& e : extents) {
    uint32_t cyl = e.loCyl;
    uint16_t head = e.loHead;
    while (cyl < e.hiCyl || (cyl == e.hiCyl && head <= e.hiHead)) {
      Cchhr t;
      t.cyl = cyl;
      t.head = head;
      tracks.push_back(t);
      if (++head == heads) {
        head = 0;
        ++cyl;
      }
    }
  }
  return tracks;
}

PdsPlacement writePds(TestVolume& vol, const std::vector<ExtentSpec>& extents,
                      const std::vector<PdsMember>& members, const PdsLayoutOptions& options) {
  PdsPlacement out;
  out.tracks = dataSetTracks(vol, extents);
  const long long capacity =
      static_cast<long long>(vol.file().trackSlotSize) - kDataLimitFromEnd - kTrackStart;

  // The records in data set order; directory blocks get their contents once
  // the members' places are known.
  struct Planned {
    Record record;
    size_t track = 0;
  };
  std::vector<Planned> plan;
  size_t track = 0;
  int onTrack = 0;
  long long used = 0;
  auto place = [&](Record r) -> size_t {
    long long size = kCountSize + static_cast<long long>(r.key.size() + r.data.size());
    require(size <= capacity, "a record of " + std::to_string(size) + " bytes fits no track");
    if (used + size > capacity || onTrack == kMaxRecordNumber ||
        (options.recordsPerTrack > 0 && onTrack == options.recordsPerTrack)) {
      ++track;
      onTrack = 0;
      used = 0;
    }
    require(track < out.tracks.size(), "the data set's extents are full");
    r.rec = static_cast<uint8_t>(++onTrack);
    used += size;
    plan.push_back(Planned{r, track});
    return plan.size() - 1;
  };

  std::vector<size_t> dirIndex;
  for (int i = 0; i < options.directoryBlocks; ++i) {
    dirIndex.push_back(place(directoryRecord(0, Bytes(kKeySize, 0), Bytes(kBlockSize, 0))));
  }
  size_t dirEof = place(eofRecord(0));
  out.directoryEof = out.tracks[plan[dirEof].track];
  out.directoryEof.rec = plan[dirEof].record.rec;

  for (const PdsMember& m : members) {
    size_t first = plan.size();
    for (const Bytes& b : m.blocks) place(dataRecord(0, b));
    place(eofRecord(0));
    Cchhr at = out.tracks[plan[first].track];
    at.rec = plan[first].record.rec;
    out.memberStart.push_back(at);
    out.memberTT.push_back(static_cast<uint16_t>(plan[first].track));
    out.memberR.push_back(plan[first].record.rec);
  }

  // Directory: entries in member order, then the end entry, packed into blocks.
  std::vector<Bytes> entries;
  for (size_t i = 0; i < members.size(); ++i) {
    uint16_t tt =
        members[i].entryTT >= 0 ? static_cast<uint16_t>(members[i].entryTT) : out.memberTT[i];
    entries.push_back(dirEntry(members[i].name, tt, out.memberR[i], members[i].userData,
                               members[i].indicatorFlags));
  }
  entries.push_back(endEntry());
  size_t next = 0;
  for (size_t b = 0; b < dirIndex.size(); ++b) {
    std::vector<Bytes> inBlock;
    size_t bytes = kFirstEntry;
    while (next < entries.size() &&
           bytes + entries[next].size() <= static_cast<size_t>(kBlockSize)) {
      bytes += entries[next].size();
      inBlock.push_back(entries[next++]);
    }
    Bytes key = inBlock.empty() ? Bytes(kKeySize, 0)
                                : Bytes(inBlock.back().begin(), inBlock.back().begin() + kKeySize);
    Record& r = plan[dirIndex[b]].record;
    r.key = key;
    r.data = inBlock.empty() ? directoryBlock({}, kFirstEntry) : directoryBlock(inBlock);
  }
  require(next == entries.size(),
          "the directory needs more than " + std::to_string(options.directoryBlocks) + " blocks");

  // Write track by track.
  size_t i = 0;
  while (i < plan.size()) {
    size_t t = plan[i].track;
    std::vector<Record> records;
    for (; i < plan.size() && plan[i].track == t; ++i) records.push_back(plan[i].record);
    vol.setRecords(out.tracks[t].cyl, out.tracks[t].head, records);
  }
  return out;
}

Bytes fileBytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  require(static_cast<bool>(in), "read " + path);
  return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

}  // namespace ckdvol_test
