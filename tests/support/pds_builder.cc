#include "support/pds_builder.h"

#include <fstream>
#include <iterator>
#include <stdexcept>

namespace ckdvol_test {

namespace {
void require(bool ok, const std::string& what) {
  if (!ok) throw std::runtime_error("pds builder: " + what);
}
}  // namespace

Bytes dirEntry(const std::string& name, uint16_t tt, uint8_t r, const Bytes& userData, uint8_t flags) {
  require(userData.size() % 2 == 0 && userData.size() <= 62, "user data of " + name);
  Bytes e = ebcdicPadded(name, 8);
  e.insert(e.end(), {static_cast<unsigned char>(tt >> 8), static_cast<unsigned char>(tt), r,
                     static_cast<unsigned char>(flags | (userData.size() / 2))});
  e.insert(e.end(), userData.begin(), userData.end());
  return e;
}

Bytes endEntry() { return Bytes{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0, 0, 0, 0}; }

Bytes directoryBlock(const std::vector<Bytes>& entries, int used) {
  Bytes b(2, 0);
  for (const Bytes& e : entries) b.insert(b.end(), e.begin(), e.end());
  require(b.size() <= 256, "directory block overflow");
  const int n = used >= 0 ? used : static_cast<int>(b.size());
  b[0] = static_cast<unsigned char>(n >> 8), b[1] = static_cast<unsigned char>(n);
  b.resize(256, 0);
  return b;
}

Record directoryRecord(uint8_t rec, const Bytes& key, const Bytes& block) {
  Bytes k(key);
  k.resize(8, 0);
  return keyedRecord(rec, k, block);
}

DataSetLayout pdsDataSet(const std::string& name, uint16_t lrecl, uint16_t blksize,
                         const std::vector<ExtentSpec>& extents) {
  DataSetLayout ds;
  ds.name = name, ds.dsorg = 0x0200, ds.recfm = 0x90, ds.lrecl = lrecl, ds.blksize = blksize, ds.extents = extents;
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

PdsPlacement writePds(TestVolume& vol, const std::vector<ExtentSpec>& extents,
                      const std::vector<PdsMember>& members, const PdsLayoutOptions& options) {
  PdsPlacement out;
  const unsigned heads = vol.file().tracksPerCylinder;
  require(heads > 0, "volume has no geometry");
  for (const ExtentSpec& e : extents) {
    for (Cchhr t{e.loCyl, e.loHead, 0}; t.cyl < e.hiCyl || (t.cyl == e.hiCyl && t.head <= e.hiHead);) {
      out.tracks.push_back(t);
      if (++t.head == heads) t.head = 0, ++t.cyl;
    }
  }
  // Record area: the slot less 24 bytes at the end, the home address and an
  // 8-byte record zero; record numbers up to 255.
  const long long capacity = static_cast<long long>(vol.file().trackSlotSize) - 24 - 21;
  std::vector<std::pair<Record, size_t>> plan;  // record and track, data set order
  size_t track = 0;
  int onTrack = 0;
  long long used = 0;
  auto place = [&](Record r) {
    long long size = 8 + static_cast<long long>(r.key.size() + r.data.size());
    require(size <= capacity, "a record of " + std::to_string(size) + " bytes fits no track");
    if (used + size > capacity || onTrack == 255 || (options.recordsPerTrack > 0 && onTrack == options.recordsPerTrack)) {
      ++track, onTrack = 0, used = 0;
    }
    require(track < out.tracks.size(), "the data set's extents are full");
    r.rec = static_cast<uint8_t>(++onTrack);
    used += size;
    plan.emplace_back(r, track);
    return plan.size() - 1;
  };
  for (int i = 0; i < options.directoryBlocks; ++i) place(directoryRecord(0, {}, Bytes(256, 0)));
  size_t eof = place(eofRecord(0));
  out.directoryEof = out.tracks[plan[eof].second];
  out.directoryEof.rec = plan[eof].first.rec;
  std::vector<Bytes> entries;
  for (const PdsMember& m : members) {
    size_t first = plan.size();
    for (const Bytes& b : m.blocks) place(dataRecord(0, b));
    place(eofRecord(0));
    out.memberTT.push_back(static_cast<uint16_t>(plan[first].second));
    out.memberR.push_back(plan[first].first.rec);
    entries.push_back(dirEntry(m.name, m.entryTT >= 0 ? static_cast<uint16_t>(m.entryTT) : out.memberTT.back(),
                               out.memberR.back(), m.userData, m.indicatorFlags));
  }
  entries.push_back(endEntry());
  size_t next = 0;  // the entries packed into the blocks
  for (int b = 0; b < options.directoryBlocks; ++b) {
    std::vector<Bytes> inBlock;
    for (size_t bytes = 2; next < entries.size() && bytes + entries[next].size() <= 256;) {
      bytes += entries[next].size();
      inBlock.push_back(entries[next++]);
    }
    Record& r = plan[static_cast<size_t>(b)].first;
    r.key = inBlock.empty() ? Bytes(8, 0) : Bytes(inBlock.back().begin(), inBlock.back().begin() + 8);
    r.data = directoryBlock(inBlock);
  }
  require(next == entries.size(), "the directory needs more than " + std::to_string(options.directoryBlocks) + " blocks");
  for (size_t i = 0; i < plan.size();) {  // track by track
    size_t t = plan[i].second;
    std::vector<Record> records;
    for (; i < plan.size() && plan[i].second == t; ++i) records.push_back(plan[i].first);
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
