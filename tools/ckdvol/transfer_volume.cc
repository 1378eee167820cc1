// The volume side of import and export: members copied with their TTRs
// remapped, data sets allocated for what they receive, and unloads read
// back from a volume.
#include "transfer_volume.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <set>
#include <unordered_map>

#include "common/data_translator.h"
#include "dataset/block_reader.h"
#include "dataset/pds_directory.h"
#include "dataset/record_reader.h"
#include "edit/allocate.h"
#include "edit/data_writer.h"
#include "edit/directory_block.h"
#include "edit/pds_edit.h"

namespace ckdvol_tool {
namespace {

using ckdvol::Bytes;
using ckdvol::DataSetInfo;
using ckdvol::DirectoryEntry;
using ckdvol::Ttr;
using ckdvol::UnloadedBlock;
using ckdvol::UnloadedPds;

constexpr uint8_t kAliasBit = 0x80;
constexpr int kUserTtrShift = 5;
constexpr uint8_t kUserTtrCount = 0x03;  // after the shift
constexpr size_t kUserTtrBytes = 4;      // TT, R, N
constexpr uint32_t kEntryFixed = 12;     // name, TTR, indicator
constexpr long kSyntheticEof = -1;       // an end-of-file record the unload lacks

uint64_t ttrKey(uint32_t track, uint8_t record) { return (static_cast<uint64_t>(track) << 8) | record; }
uint64_t ttrKey(const Ttr& t) { return ttrKey(t.track, t.record); }

std::string ttrText(uint32_t track, uint8_t record) {
  char s[24];
  std::snprintf(s, sizeof s, "%04X%02X", static_cast<unsigned>(track), record);
  return s;
}

// The 4-byte device type a receiving system knows for each of our
// geometries (class byte 20 for disks, the unit type last); a device
// without a counterpart is named by its own code.
uint32_t unloadDeviceType(uint32_t ours) {
  struct Pair {
    uint32_t ours, theirs;
  };
  static const Pair kTypes[] = {
      {0xD100, 0x30002006}, {0xD130, 0x30002001}, {0xD160, 0x30C02008}, {0xD300, 0x30502009},
      {0xD400, 0x3050200A}, {0xD430, 0x3050200B}, {0xD460, 0x3050200C}, {0xD500, 0x3010200E},
      {0xD600, 0x3010200F}, {0xD700, 0x30102004},
  };
  for (const Pair& p : kTypes) {
    if (p.ours == ours) return p.theirs;
  }
  return ours;
}

std::string upper(std::string s) {
  for (char& c : s) {
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  }
  return s;
}

// The entries and blocks of an unloaded data set that an import takes.
struct Selection {
  std::vector<size_t> entries;  // indexes into pds.entries, in name order
  std::vector<long> blocks;     // indexes into pds.blocks in order; kSyntheticEof
  std::unordered_map<uint64_t, size_t> byTtr;  // original TTR -> block index
  uint64_t dataBlocks = 0;
  uint32_t largestBlock = 0;
};

bool select(const UnloadedPds& pds, const std::vector<std::string>& names, Selection& sel, std::string& error) {
  for (size_t i = 0; i < pds.blocks.size(); ++i) {
    if (!sel.byTtr.emplace(ttrKey(pds.blocks[i].ttr), i).second) {
      error = "the unloaded data set holds two blocks at TTR " + ttrText(pds.blocks[i].ttr.track, pds.blocks[i].ttr.record);
      return false;
    }
  }
  std::set<std::string> seen;
  for (const DirectoryEntry& e : pds.entries) {
    if (!seen.insert(std::string(e.name.begin(), e.name.end())).second) {
      error = "the unloaded directory lists " + e.text() + " twice";
      return false;
    }
  }
  // The TTRs named; then every entry sharing one of them.
  std::set<uint64_t> wanted;
  std::vector<std::string> missing;
  for (const std::string& n : names) {
    const std::string u = upper(n);
    auto it = std::find_if(pds.entries.begin(), pds.entries.end(), [&](const DirectoryEntry& e) { return e.text() == u; });
    if (it == pds.entries.end()) {
      missing.push_back(u);
    } else {
      wanted.insert(ttrKey(it->ttr));
    }
  }
  if (!missing.empty()) {
    std::string list;
    for (const std::string& m : missing) list += (list.empty() ? "" : ", ") + m;
    error = "not in the transfer file: " + list;
    return false;
  }
  std::vector<bool> taken(pds.blocks.size(), false);
  std::vector<bool> eofAfter(pds.blocks.size(), false);
  for (size_t i = 0; i < pds.entries.size(); ++i) {
    const DirectoryEntry& e = pds.entries[i];
    if (!names.empty() && wanted.count(ttrKey(e.ttr)) == 0) continue;
    const auto at = sel.byTtr.find(ttrKey(e.ttr));
    if (at == sel.byTtr.end()) {
      error = "entry " + e.text() + " points at TTR " + ttrText(e.ttr.track, e.ttr.record) +
              ", which is no block of the unloaded data set (choose the other members to leave it out)";
      return false;
    }
    sel.entries.push_back(i);
    // The member: from its first block to the end-of-file record behind it.
    size_t b = at->second;
    for (; b < pds.blocks.size() && !taken[b]; ++b) {
      taken[b] = true;
      if (pds.blocks[b].endOfFile()) break;
    }
    if (b == pds.blocks.size()) eofAfter.back() = true;
  }
  for (size_t b = 0; b < pds.blocks.size(); ++b) {
    if (taken[b]) {
      sel.blocks.push_back(static_cast<long>(b));
      const UnloadedBlock& k = pds.blocks[b];
      if (!k.endOfFile()) {
        ++sel.dataBlocks;
        sel.largestBlock = std::max(sel.largestBlock, static_cast<uint32_t>(k.data.size()));
      }
    }
    if (eofAfter[b]) sel.blocks.push_back(kSyntheticEof);
  }
  return true;
}

// Directory blocks that `entries` need (the end entry included), packed as
// the editor packs them.
uint32_t directoryBlocksFor(const UnloadedPds& pds, const std::vector<size_t>& entries) {
  uint32_t blocks = 1, used = 2;
  auto put = [&](uint32_t size) {
    if (used + size > static_cast<uint32_t>(ckdvol::kDirectoryBlockLength)) ++blocks, used = 2;
    used += size;
  };
  for (size_t i : entries) put(kEntryFixed + static_cast<uint32_t>(pds.entries[i].userData.size()));
  put(kEntryFixed);
  return blocks;
}

// Counts the tracks a run of records takes when laid out from record 1 of
// a new track, as the data writer places them.
class TrackCounter {
 public:
  explicit TrackCounter(EmulatedCKDfile& file) : file_(file), zeros_(65535, 0) { track_.reset(new ckdvol::TrackBuilder(file_, 0, 0)); }
  void add(uint32_t keyLength, uint32_t dataLength) {
    if (!track_->fits(keyLength, dataLength)) {
      track_.reset(new ckdvol::TrackBuilder(file_, 0, 0));
      ++tracks_;
    }
    if (track_->fits(keyLength, dataLength)) track_->add(zeros_.data(), keyLength, zeros_.data(), dataLength);
  }
  uint32_t tracks() const { return tracks_; }

 private:
  EmulatedCKDfile& file_;
  Bytes zeros_;
  std::unique_ptr<ckdvol::TrackBuilder> track_;
  uint32_t tracks_ = 1;
};

uint32_t ceilDiv(uint64_t a, uint64_t b) { return b == 0 ? 0 : static_cast<uint32_t>(std::min<uint64_t>((a + b - 1) / b, 0xFFFFFFFFu)); }

// The original allocation in tracks of this volume: the extents scaled by
// the track lengths, or INMSIZE, whichever is larger.
uint32_t originalTracks(const EmulatedCKDfile& file, const ckdvol::TransferContents& c) {
  uint64_t tracks = 0;
  if (c.partitioned) {
    for (const ckdvol::UnloadExtent& e : c.pds.extents) tracks += e.tracks;
    if (c.pds.trackLength != 0) tracks = ceilDiv(tracks * c.pds.trackLength, file.trackCapacity);
  }
  return std::max(static_cast<uint32_t>(std::min<uint64_t>(tracks, 0xFFFFFFFFu)),
                  ceilDiv(c.attributes.sizeBytes, file.trackCapacity));
}

// What a newly allocated data set looks like to the writers, before any
// rescan of the VTOC: its DSCB's place, attributes and extents.
DataSetInfo allocatedInfo(const ckdvol::AllocationRequest& r, const ckdvol::AllocationResult& a) {
  DataSetInfo d;
  d.name = r.name;
  d.format = 1;
  d.address = a.format1;
  d.dsorg = r.dsorg;
  d.recfm = r.recfm;
  d.lrecl = r.lrecl;
  d.blksize = a.blksize;
  d.extents = a.extents;
  d.extentCount = static_cast<uint8_t>(a.extents.size());
  d.tracksAllocated = a.tracks;
  return d;
}

// Allocates `r` for `needed` tracks (or the override): first the original
// size when larger, then, when the volume lacks room for that, what is
// needed. Only a want of room moves on to the next size: any other refusal
// (a track that cannot be read, a full VTOC) is the answer. Nothing stays
// staged after a refusal.
bool allocate(ckdvol::StagedTracks& staged, const ckdvol::VtocInfo& vtoc, ckdvol::AllocationRequest r,
              const ImportOptions& o, uint32_t needed, uint32_t original, DataSetInfo& out, ImportSummary& s,
              std::string& error) {
  std::vector<uint32_t> tries;
  if (o.primary != 0) {
    r.cylinders = o.cylinders;
    tries.push_back(o.primary);
  } else {
    // The original size, else a tenth more than needed (room to grow), else what is needed.
    const uint32_t roomy = needed + needed / 10 + 1;
    if (original > roomy) tries.push_back(original);
    tries.push_back(roomy);
    tries.push_back(needed);
  }
  for (uint32_t t : tries) {
    r.primary = t;
    ckdvol::AllocationResult a;
    staged.clear();
    if (ckdvol::allocateDataSet(staged, vtoc, r, a, error)) {
      out = allocatedInfo(r, a);
      s.allocated = true;
      s.allocatedTracks = a.tracks;
      return true;
    }
    if (error.compare(0, 7, "no room") != 0) break;
  }
  staged.clear();
  return false;
}

bool remapTtr(const unsigned char* p, const std::unordered_map<uint64_t, Ttr>& moved, unsigned char* out,
              const std::string& what, std::string& error) {
  const uint32_t tt = (static_cast<uint32_t>(p[0]) << 8) | p[1];
  if (tt == 0 && p[2] == 0) return true;  // names nothing
  const auto it = moved.find(ttrKey(tt, p[2]));
  if (it == moved.end()) {
    error = what + " names TTR " + ttrText(tt, p[2]) + ", which is not among the blocks imported";
    return false;
  }
  out[0] = static_cast<unsigned char>(it->second.track >> 8);
  out[1] = static_cast<unsigned char>(it->second.track);
  out[2] = it->second.record;
  return true;
}

// Copies the selected blocks behind the used space of `pds`, sets the
// entries with their TTRs remapped, commits, and patches the note lists.
bool placeMembers(ckdvol::StagedTracks& staged, const DataSetInfo& ds, ckdvol::PdsEditor& editor,
                  const UnloadedPds& pds, const Selection& sel, ImportSummary& s, std::string& error) {
  std::set<std::string> existing;
  for (const DirectoryEntry& e : editor.entries()) existing.insert(std::string(e.name.begin(), e.name.end()));
  std::unordered_map<uint64_t, Ttr> moved;
  moved.reserve(sel.blocks.size());
  Ttr first, last;
  for (size_t i = 0; i < sel.blocks.size(); ++i) {
    Ttr at;
    if (sel.blocks[i] == kSyntheticEof) {
      if (!editor.appendRecord(nullptr, 0, nullptr, 0, at, error)) return false;
    } else {
      const UnloadedBlock& b = pds.blocks[static_cast<size_t>(sel.blocks[i])];
      if (!editor.appendRecord(b.key.data(), static_cast<uint32_t>(b.key.size()), b.data.data(),
                               static_cast<uint32_t>(b.data.size()), at, error)) {
        return false;
      }
      moved[ttrKey(b.ttr)] = at;
      if (!b.endOfFile()) ++s.blocks;
    }
    if (i == 0) first = at;
    last = at;
  }
  s.tracks = sel.blocks.empty() ? 0 : last.track - first.track + 1;

  std::map<uint64_t, uint8_t> noteLists;  // original TTR -> most entries any user TTR says it has
  for (size_t i : sel.entries) {
    DirectoryEntry e = pds.entries[i];
    const std::string what = "the entry of " + e.text();
    e.ttr = moved.at(ttrKey(e.ttr));  // selected entries name a copied block
    const size_t users = (e.indicator >> kUserTtrShift) & kUserTtrCount;
    if (e.userData.size() < users * kUserTtrBytes) {
      error = what + " says it has " + std::to_string(users) + " user TTRs but holds " +
              std::to_string(e.userData.size()) + " bytes of user data";
      return false;
    }
    for (size_t u = 0; u < users; ++u) {
      unsigned char* p = &e.userData[u * kUserTtrBytes];
      const uint64_t original = ttrKey((static_cast<uint32_t>(p[0]) << 8) | p[1], p[2]);
      // A load module's second user TTR, with a count in its N byte,
      // names its note list (the first names its text, N zero).
      if (u == 1 && p[3] != 0 && original != 0) noteLists[original] = std::max(noteLists[original], p[3]);
      if (!remapTtr(p, moved, p, what + ": user TTR " + std::to_string(u + 1), error)) return false;
    }
    const bool replacing = existing.count(std::string(e.name.begin(), e.name.end())) != 0;
    if (!editor.putEntry(e, true, error)) return false;
    s.replaced += replacing ? 1 : 0;
    ((e.indicator & kAliasBit) ? s.aliases : s.members)++;
  }
  if (!editor.commit(error)) return false;

  const ckdvol::ExtentMap map(ds.extents, staged.heads());
  for (const auto& nl : noteLists) {
    const UnloadedBlock& b = pds.blocks[sel.byTtr.at(nl.first)];
    const std::string what = "the note list at TTR " + ttrText(b.ttr.track, b.ttr.record);
    if (b.data.size() < nl.second * kUserTtrBytes) {
      error = what + " has " + std::to_string(b.data.size()) + " bytes, too few for " +
              std::to_string(nl.second) + " entries";
      return false;
    }
    Bytes patched = b.data;
    for (size_t k = 0; k < nl.second; ++k) {
      unsigned char* p = &patched[k * kUserTtrBytes];
      if (!remapTtr(p, moved, p, what + ": entry " + std::to_string(k + 1), error)) return false;
    }
    const Ttr at = moved.at(nl.first);
    uint32_t cyl = 0, head = 0, kl = 0, dl = 0;
    map.toCylHead(at.track, cyl, head);
    unsigned char* p = staged.stageRecord(cyl * staged.heads() + head, at.record, kl, dl, error);
    if (p == nullptr) return false;
    if (dl != patched.size()) {
      error = what + " was not written where it was placed";
      return false;
    }
    std::memcpy(p + kl, patched.data(), patched.size());
    ++s.noteLists;
  }
  return true;
}

bool importPds(ckdvol::StagedTracks& staged, const ckdvol::VtocInfo& vtoc, const ckdvol::TransferContents& c,
               const ImportOptions& o, const DataSetInfo* target, ImportSummary& s, std::string& error) {
  const UnloadedPds& pds = c.pds;
  Selection sel;
  if (!select(pds, o.members, sel, error)) return false;
  if (sel.entries.empty()) {
    error = "the transfer file holds no members";
    return false;
  }
  DataSetInfo info;
  if (target != nullptr) {
    if (!target->partitioned()) {
      error = s.dsn + " exists and is not partitioned";
      return false;
    }
    const uint8_t kinds = ckdvol::kRecfmFormatMask | ckdvol::kRecfmSpanned;
    const bool fixed = (pds.recfm & ckdvol::kRecfmFormatMask) == ckdvol::kRecfmF;
    if ((target->recfm & kinds) != (pds.recfm & kinds) || (fixed && target->lrecl != pds.lrecl) ||
        (target->blksize != 0 && sel.largestBlock > target->blksize) || target->keyLength != pds.keyLength) {
      char text[160];
      std::snprintf(text, sizeof text,
                    " does not suit the members: RECFM %02X LRECL %u BLKSIZE %u, they are RECFM %02X LRECL %u with "
                    "blocks of up to %u bytes",
                    target->recfm, target->lrecl, target->blksize, pds.recfm, pds.lrecl, sel.largestBlock);
      error = s.dsn + text;
      return false;
    }
    info = *target;
  } else {
    if (pds.keyLength != 0) {
      error = "members with keyed blocks (key length " + std::to_string(pds.keyLength) + ") are not written";
      return false;
    }
    ckdvol::AllocationRequest r;
    r.name = s.dsn;
    r.dsorg = ckdvol::kDsorgPO;
    r.recfm = pds.recfm != 0 ? pds.recfm : c.attributes.recfm;
    r.lrecl = pds.lrecl;
    uint32_t blksize = o.blksize != 0 ? o.blksize : pds.blksize != 0 ? pds.blksize : c.attributes.blksize;
    if (blksize == 0) blksize = sel.largestBlock;
    if (blksize > ckdvol::kMaxBlockSize || sel.largestBlock > blksize) {
      error = "BLKSIZE " + std::to_string(blksize) + " cannot hold the members' blocks of up to " +
              std::to_string(sel.largestBlock) + " bytes";
      return false;
    }
    r.blksize = static_cast<uint16_t>(blksize);
    r.directoryBlocks = o.directoryBlocks;
    if (r.directoryBlocks == 0) {
      r.directoryBlocks = std::max({pds.directoryBlocks, c.attributes.directoryBlocks, directoryBlocksFor(pds, sel.entries)});
    }
    TrackCounter counter(staged.file());
    for (uint32_t i = 0; i < r.directoryBlocks; ++i) counter.add(ckdvol::kDirectoryKeyLength, ckdvol::kDirectoryBlockLength);
    counter.add(0, 0);
    for (long b : sel.blocks) {
      if (b == kSyntheticEof) {
        counter.add(0, 0);
      } else {
        const UnloadedBlock& k = pds.blocks[static_cast<size_t>(b)];
        counter.add(static_cast<uint32_t>(k.key.size()), static_cast<uint32_t>(k.data.size()));
      }
    }
    if (!allocate(staged, vtoc, r, o, counter.tracks(), originalTracks(staged.file(), c), info, s, error)) return false;
  }
  ckdvol::PdsEditor editor(staged, info);
  return editor.load(error) && placeMembers(staged, info, editor, pds, sel, s, error);
}

bool importSequential(ckdvol::StagedTracks& staged, const ckdvol::VtocInfo& vtoc, const ckdvol::TransferContents& c,
                      const ImportOptions& o, const DataSetInfo* target, ImportSummary& s, std::string& error) {
  if (!o.members.empty()) {
    error = "the transfer file holds a sequential data set, which has no members to choose";
    return false;
  }
  ckdvol::AllocationRequest r;
  r.name = s.dsn;
  r.recfm = c.attributes.recfm;
  if (c.attributes.lrecl > ckdvol::kMaxBlockSize || c.attributes.blksize > ckdvol::kMaxBlockSize) {
    error = "LRECL " + std::to_string(c.attributes.lrecl) + " / BLKSIZE " + std::to_string(c.attributes.blksize) +
            " cannot be allocated (at most 32760)";
    return false;
  }
  r.lrecl = static_cast<uint16_t>(c.attributes.lrecl);
  r.blksize = o.blksize != 0 ? o.blksize : static_cast<uint16_t>(c.attributes.blksize);
  if (r.blksize == 0) r.blksize = ckdvol::defaultBlockSize(staged.file(), r.recfm, r.lrecl);
  if (target != nullptr) {
    if (!target->sequential() || target->vsam()) {
      error = s.dsn + " exists and is not sequential";
      return false;
    }
    r.recfm = target->recfm, r.lrecl = target->lrecl, r.blksize = target->blksize;
  }
  ckdvol::Blocker blocker(r.recfm, r.lrecl, r.blksize);
  if (!blocker.problem().empty()) {
    error = blocker.problem();
    return false;
  }
  for (const Bytes& rec : c.records) {
    if (!blocker.add(rec.data(), rec.size(), error)) return false;
  }
  blocker.finish();
  DataSetInfo info;
  if (target != nullptr) {
    info = *target;
  } else {
    TrackCounter counter(staged.file());
    for (const Bytes& b : blocker.blocks()) counter.add(0, static_cast<uint32_t>(b.size()));
    counter.add(0, 0);
    if (!allocate(staged, vtoc, r, o, counter.tracks(), originalTracks(staged.file(), c), info, s, error)) return false;
  }
  ckdvol::WriteSummary w;
  if (!ckdvol::writeSequential(staged, info, blocker.blocks(), w, error)) return false;
  s.records = blocker.records();
  s.blocks = w.blocks;
  s.tracks = w.tracks;
  return true;
}

}  // namespace

bool stageImport(ckdvol::StagedTracks& staged, const ckdvol::VtocInfo& vtoc, const ckdvol::TransferContents& c,
                 const ImportOptions& o, ImportSummary& s, std::string& error) {
  s = ImportSummary();
  s.dsn = upper(o.dsn.empty() ? c.attributes.dsn : o.dsn);
  if (!ckdvol::validateDataSetName(s.dsn, error)) {
    error = (o.dsn.empty() ? "the transfer file's data set name: " : "") + error;
    return false;
  }
  const DataSetInfo* target = ckdvol::findDataSet(vtoc, s.dsn);
  if (target != nullptr && !o.replace) {
    error = "data set " + s.dsn + " exists (--replace " +
            (c.partitioned ? std::string("adds the members to it") : std::string("replaces its contents")) + ")";
    return false;
  }
  if (target != nullptr && !target->damage.empty()) {
    error = "data set " + s.dsn + " is damaged: " + target->damage;
    return false;
  }
  return c.partitioned ? importPds(staged, vtoc, c, o, target, s, error)
                       : importSequential(staged, vtoc, c, o, target, s, error);
}

bool unloadFromVolume(EmulatedCKDfile& file, const DataSetInfo& ds, const std::vector<std::string>& names,
                      UnloadedPds& out, std::string& error) {
  std::vector<ckdvol::MemberInfo> members;
  if (ckdvol::readDirectory(file, ds, members, error) != ckdvol::kDirectoryOk) return false;
  out = UnloadedPds();
  out.dsorg = ds.dsorg;
  out.recfm = ds.recfm;
  out.lrecl = ds.lrecl;
  out.blksize = ds.blksize;
  out.keyLength = ds.keyLength;
  out.deviceType = unloadDeviceType(static_cast<uint32_t>(file.deviceType));
  out.trackLength = file.trackCapacity;
  out.heads = file.tracksPerCylinder;
  out.cylinders = static_cast<uint16_t>(std::min<uint32_t>(file.cylinders, 0xFFFF));
  for (const ckdvol::Extent& e : ds.extents) {
    if (e.highCyl > 0xFFFF) {
      error = ds.name + " has an extent above cylinder 65535, which an unload cannot describe";
      return false;
    }
    ckdvol::UnloadExtent u;
    u.startCylinder = static_cast<uint16_t>(e.lowCyl), u.startHead = static_cast<uint16_t>(e.lowHead);
    u.endCylinder = static_cast<uint16_t>(e.highCyl), u.endHead = static_cast<uint16_t>(e.highHead);
    u.tracks = static_cast<uint16_t>(std::min<uint32_t>(ckdvol::extentTracks(e, file.tracksPerCylinder), 0xFFFF));
    out.extents.push_back(u);
  }
  {  // The directory's size: its blocks up to its end-of-file record.
    ckdvol::BlockReader reader(file, ds);
    reader.startDataSet(false);
    ckdvol::Block b;
    int rc;
    while ((rc = reader.next(b)) == ckdvol::kBlockRead) ++out.directoryBlocks;
    if (rc < 0) {
      error = ds.name + ": " + reader.error();
      return false;
    }
  }
  std::set<uint64_t> wanted;
  for (const std::string& n : names) {
    const std::string u = upper(n);
    auto it = std::find_if(members.begin(), members.end(), [&](const ckdvol::MemberInfo& m) { return m.name == u; });
    if (it == members.end()) {
      error = "member " + u + " not found in " + ds.name;
      return false;
    }
    wanted.insert(ttrKey(it->track, it->record));
  }
  std::map<uint64_t, std::string> starts;  // TTR -> a member that starts there (for messages)
  for (const ckdvol::MemberInfo& m : members) {
    const uint64_t key = ttrKey(m.track, m.record);
    if (!names.empty() && wanted.count(key) == 0) continue;
    DirectoryEntry e;
    std::string padded = m.name;
    padded.resize(8, ' ');
    Xlater.copyA2E(e.name.data(), padded.data(), 8);
    e.ttr = Ttr{m.track, m.record};
    e.indicator = m.indicator;
    e.userData = m.userData;
    out.entries.push_back(e);
    starts.emplace(key, m.name);
  }
  std::sort(out.entries.begin(), out.entries.end(),
            [](const DirectoryEntry& a, const DirectoryEntry& b) { return a.name < b.name; });
  const uint32_t extentTracks = ckdvol::ExtentMap(ds.extents, file.tracksPerCylinder).tracks();
  std::set<uint64_t> emitted;
  for (const auto& start : starts) {
    if (emitted.count(start.first) != 0) continue;  // inside a member unloaded already
    const uint32_t track = static_cast<uint32_t>(start.first >> 8);
    const uint8_t record = static_cast<uint8_t>(start.first);
    ckdvol::BlockReader reader(file, ds);
    reader.startAt(track, record);
    ckdvol::Block b;
    int rc;
    Ttr last{track, record};
    bool any = false;
    while ((rc = reader.next(b)) == ckdvol::kBlockRead) {
      UnloadedBlock u;
      u.ttr = Ttr{b.relTrack, b.record};
      u.key.assign(b.key, b.key + b.keyLength);
      u.data.assign(b.data, b.data + b.dataLength);
      emitted.insert(ttrKey(u.ttr));
      out.blocks.push_back(std::move(u));
      last = Ttr{b.relTrack, b.record};
      any = true;
    }
    if (rc < 0) {
      error = ds.name + "(" + start.second + "): " + reader.error() + " (choose the other members to leave it out)";
      return false;
    }
    if (reader.endReason() != ckdvol::EndOfData::kEofRecord) continue;
    // The end-of-file record: the member's TTR itself when it has no
    // blocks, else the record behind its last block, or the first record
    // of the next track that has records.
    Ttr eof = last;
    if (any) {
      eof = Ttr{last.track, static_cast<uint8_t>(last.record + 1)};
      bool found = false;
      for (uint32_t t = last.track; t < extentTracks && !found; ++t) {
        const uint8_t r = t == last.track ? static_cast<uint8_t>(last.record + 1) : 1;
        if (r == 0) continue;
        ckdvol::BlockReader probe(file, ds);
        probe.startAt(t, r);
        const int p = probe.next(b);
        if (p == ckdvol::kBlockEnd && probe.endReason() == ckdvol::EndOfData::kEofRecord) {
          eof = Ttr{t, r}, found = true;
        } else if (p != ckdvol::kBlockMissing) {
          break;
        }
      }
    }
    emitted.insert(ttrKey(eof));
    UnloadedBlock end;
    end.ttr = eof;
    out.blocks.push_back(end);
  }
  return true;
}

bool recordsFromVolume(EmulatedCKDfile& file, const DataSetInfo& ds, std::vector<Bytes>& records, std::string& error) {
  records.clear();
  ckdvol::BlockReader blocks(file, ds);
  blocks.startDataSet(true);
  ckdvol::RecordReader reader(blocks, ds);
  ckdvol::LogicalRecord r;
  int rc;
  while ((rc = reader.next(r)) == ckdvol::kBlockRead) records.emplace_back(r.data, r.data + r.length);
  if (rc < 0) {
    error = ds.name + ": " + reader.error();
    return false;
  }
  return true;
}

}  // namespace ckdvol_tool
