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

}  // namespace

Bytes dirEntry(const std::string& name, uint16_t tt, uint8_t r, const Bytes& userData, uint8_t flags) {
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
  std::fill(e.begin(), e.begin() + 8, 0xFF);
  return e;
}

Bytes directoryBlock(const std::vector<Bytes>& entries, int used) {
  Bytes b(kFirstEntry, 0);
  for (const Bytes& e : entries) b.insert(b.end(), e.begin(), e.end());
  require(b.size() <= size_t{kBlockSize}, "directory block overflow");
  putBe16(&b[kUsed], static_cast<uint16_t>(used >= 0 ? used : static_cast<int>(b.size())));
  b.resize(kBlockSize, 0);
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
    for (Cchhr t{e.loCyl, e.loHead, 0}; t.cyl < e.hiCyl || (t.cyl == e.hiCyl && t.head <= e.hiHead);) {
      tracks.push_back(t);
      if (++t.head == heads) t.head = 0, ++t.cyl;
    }
  }
  return tracks;
}

PdsPlacement writePds(TestVolume& vol, const std::vector<ExtentSpec>& extents,
                      const std::vector<PdsMember>& members, const PdsLayoutOptions& options) {
  PdsPlacement out;
  out.tracks = dataSetTracks(vol, extents);
  // Record area: the slot less 24 bytes at the end, the home address and an
  // 8-byte record zero; record numbers up to 255.
  const long long capacity = static_cast<long long>(vol.file().trackSlotSize) - 24 - 21;
  struct Planned {
    Record record;
    size_t track;
  };
  std::vector<Planned> plan;  // data set order; directory contents filled in last
  size_t track = 0;
  int onTrack = 0;
  long long used = 0;
  auto place = [&](Record r) {
    long long size = 8 + static_cast<long long>(r.key.size() + r.data.size());
    require(size <= capacity, "a record of " + std::to_string(size) + " bytes fits no track");
    if (used + size > capacity || onTrack == 255 ||
        (options.recordsPerTrack > 0 && onTrack == options.recordsPerTrack)) {
      ++track, onTrack = 0, used = 0;
    }
    require(track < out.tracks.size(), "the data set's extents are full");
    r.rec = static_cast<uint8_t>(++onTrack);
    used += size;
    plan.push_back(Planned{r, track});
    return plan.size() - 1;
  };
  auto address = [&](size_t i) {
    Cchhr at = out.tracks[plan[i].track];
    at.rec = plan[i].record.rec;
    return at;
  };
  for (int i = 0; i < options.directoryBlocks; ++i) {
    place(directoryRecord(0, Bytes(kKeySize, 0), Bytes(kBlockSize, 0)));
  }
  out.directoryEof = address(place(eofRecord(0)));
  for (const PdsMember& m : members) {
    size_t first = plan.size();
    for (const Bytes& b : m.blocks) place(dataRecord(0, b));
    place(eofRecord(0));
    out.memberStart.push_back(address(first));
    out.memberTT.push_back(static_cast<uint16_t>(plan[first].track));
    out.memberR.push_back(plan[first].record.rec);
  }
  // Entries in member order and the end entry, packed into the blocks.
  std::vector<Bytes> entries;
  for (size_t i = 0; i < members.size(); ++i) {
    const PdsMember& m = members[i];
    entries.push_back(dirEntry(m.name, m.entryTT >= 0 ? static_cast<uint16_t>(m.entryTT) : out.memberTT[i],
                               out.memberR[i], m.userData, m.indicatorFlags));
  }
  entries.push_back(endEntry());
  size_t next = 0;
  for (int b = 0; b < options.directoryBlocks; ++b) {
    std::vector<Bytes> inBlock;
    for (size_t bytes = kFirstEntry;
         next < entries.size() && bytes + entries[next].size() <= size_t{kBlockSize};) {
      bytes += entries[next].size();
      inBlock.push_back(entries[next++]);
    }
    Record& r = plan[static_cast<size_t>(b)].record;
    r.key = inBlock.empty() ? Bytes(kKeySize, 0) : Bytes(inBlock.back().begin(), inBlock.back().begin() + kKeySize);
    r.data = directoryBlock(inBlock);
  }
  require(next == entries.size(),
          "the directory needs more than " + std::to_string(options.directoryBlocks) + " blocks");
  for (size_t i = 0; i < plan.size();) {  // track by track
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
