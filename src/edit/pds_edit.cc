// Directory editing and member operations of a partitioned data set.
#include "edit/pds_edit.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <map>

#include "codepage/code_page.h"
#include "edit/directory_block.h"

namespace ckdvol {
namespace {

constexpr uint32_t kHomeAddress = 5;
constexpr uint32_t kCount = 8;
constexpr uint32_t kRecordLimitFromEnd = 24;  // trailer 16 + end marker 8
constexpr int kEntryFixed = 12;               // name, TTR, indicator
constexpr uint8_t kAliasBit = 0x80;
constexpr uint8_t kUserTtrBits = 0x60;
constexpr uint8_t kHalfwordBits = 0x1F;
constexpr size_t kMaxUserData = 62;

using Name = std::array<unsigned char, 8>;

const char kBrokenTrack[] =
    "its records cannot be walked (a count field runs past the end of the track, or a second record 0)";

bool endName(const unsigned char* p) {
  return std::all_of(p, p + 8, [](unsigned char b) { return b == 0xFF; });
}

// One record of a track image.
struct ImageRecord {
  uint8_t record;
  const unsigned char* key;
  uint32_t keyLength;
  const unsigned char* data;
  uint32_t dataLength;
};

// Calls `visit` for each record after record zero of `image`, in order,
// until it returns false. -1 when a count field runs past the record area
// or a record after record zero is numbered 0 (a writer positioned "behind
// record 0" would drop it), 0 when the walk reached the end marker, 1 when
// `visit` stopped it.
int walkImage(const unsigned char* image, uint32_t slot, const std::function<bool(const ImageRecord&)>& visit) {
  const uint32_t limit = slot - kRecordLimitFromEnd;
  uint32_t at = kHomeAddress;
  for (bool first = true;; first = false) {
    if (at + kCount > slot - 16) return -1;
    const unsigned char* c = image + at;
    if (std::all_of(c, c + kCount, [](unsigned char b) { return b == 0xFF; })) return 0;
    const uint32_t kl = c[5];
    const uint32_t dl = (static_cast<uint32_t>(c[6]) << 8) | c[7];
    if (at + kCount + kl + dl > limit) return -1;
    if (!first && c[4] == 0) return -1;
    if (!first) {
      const ImageRecord r{c[4], kl ? c + kCount : nullptr, kl, dl ? c + kCount + kl : nullptr, dl};
      if (!visit(r)) return 1;
    }
    at += kCount + kl + dl;
  }
}

// How a walk of a member's records ended when it failed for its track.
struct MemberWalk {
  enum Failure { kNone, kBroken, kMissing };
  bool started = false;  // the member's first record was met
  bool ended = false;    // its EOF record was met
  Failure failure = kNone;
  uint32_t track = 0;    // the absolute track walked last
};

// Walks the member that starts at `from` over the relative tracks of `map`:
// `visit` sees each of its records with its TTR, the EOF record last. False
// when a track cannot be read (`error` set), when its count fields run past
// its end (kBroken) or when the first track lacks the first record
// (kMissing); true at the EOF record or the end of the extents.
bool walkMember(StagedTracks& staged, const ExtentMap& map, Ttr from,
                const std::function<void(Ttr, const ImageRecord&)>& visit, MemberWalk& w, std::string& error) {
  for (uint32_t t = from.track; t < map.tracks() && !w.ended; ++t) {
    uint32_t cyl = 0, head = 0;
    map.toCylHead(t, cyl, head);
    w.track = cyl * staged.heads() + head;
    const unsigned char* image = staged.image(w.track, error);
    if (image == nullptr) return false;
    const int walked = walkImage(image, staged.slotSize(), [&](const ImageRecord& r) {
      if (!w.started) {
        if (r.record != from.record) return true;
        w.started = true;
      }
      visit(Ttr{t, r.record}, r);
      w.ended = r.dataLength == 0;
      return !w.ended;
    });
    if (walked < 0) w.failure = MemberWalk::kBroken;
    else if (!w.started) w.failure = MemberWalk::kMissing;
    if (w.failure != MemberWalk::kNone) return false;
  }
  return true;
}

bool nameFrom(const std::string& ascii, Name& out) {
  std::string upper = ascii;
  for (char& c : upper) {
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  }
  if (!validMemberName(upper)) return false;
  out.fill(0x40);
  const CodePage& page = CodePage::defaultPage();
  for (size_t i = 0; i < upper.size(); ++i) out[i] = static_cast<unsigned char>(page.toEbcdic(static_cast<unsigned char>(upper[i])));
  return true;
}

std::string badName(const std::string& name) {
  return "'" + name + "' is not a member name (1 to 8 characters: A-Z @ # $ first, then those or 0-9)";
}

bool nameLess(const DirectoryEntry& a, const DirectoryEntry& b) { return a.name < b.name; }

}  // namespace

std::string DirectoryEntry::text() const {
  std::string s;
  const CodePage& page = CodePage::defaultPage();
  page.decode(name.data(), name.size(), HostEncoding::kUtf8, s, nullptr);
  while (!s.empty() && s.back() == ' ') s.pop_back();
  return s;
}

bool validMemberName(const std::string& name) {
  if (name.empty() || name.size() > 8) return false;
  for (size_t i = 0; i < name.size(); ++i) {
    const char c = name[i];
    const bool national = c == '@' || c == '#' || c == '$';
    if (!((c >= 'A' && c <= 'Z') || national || (i > 0 && c >= '0' && c <= '9'))) return false;
  }
  return true;
}

PdsEditor::PdsEditor(StagedTracks& staged, const DataSetInfo& ds)
    : staged_(staged), ds_(ds), map_(ds.extents, staged.heads()) {}

PdsEditor::~PdsEditor() = default;

bool PdsEditor::load(std::string& error) {
  if (!ds_.partitioned()) {
    error = ds_.name + " is not a partitioned data set";
    return false;
  }
  {
    DataWriter probe(staged_, ds_);
    error = probe.problem();
    if (!error.empty()) return false;
  }
  blocks_.clear();
  entries_.clear();
  bool ended = false;     // the end entry was met
  bool closed = false;    // the directory's EOF record was met
  std::string bad;
  for (uint32_t t = 0; t < map_.tracks() && !closed && bad.empty(); ++t) {
    uint32_t cyl = 0, head = 0;
    map_.toCylHead(t, cyl, head);
    const uint32_t abs = cyl * staged_.heads() + head;
    const unsigned char* image = staged_.image(abs, error);
    if (image == nullptr) return false;
    const int walked = walkImage(image, staged_.slotSize(), [&](const ImageRecord& r) {
      if (r.dataLength == 0) {
        directoryEof_ = Ttr{t, r.record};
        closed = true;
        return false;
      }
      const std::string where = "directory block " + std::to_string(blocks_.size() + 1) + " (" +
                                staged_.trackText(abs) + " record " + std::to_string(r.record) + ")";
      if (r.keyLength != kDirectoryKeyLength || r.dataLength != kDirectoryBlockLength) {
        bad = where + " is not a 256-byte block with an 8-byte key";
        return false;
      }
      blocks_.push_back(Place{t, r.record});
      if (ended) return true;
      const unsigned char* d = r.data;
      const uint32_t used = (static_cast<uint32_t>(d[0]) << 8) | d[1];
      if (used < 2 || used > kDirectoryBlockLength) {
        bad = where + " says " + std::to_string(used) + " bytes are used";
        return false;
      }
      for (uint32_t at = 2; at < used;) {
        if (at + kEntryFixed > used) {
          bad = where + ": an entry runs past the bytes used";
          return false;
        }
        if (endName(d + at)) {
          ended = true;
          break;
        }
        DirectoryEntry e;
        std::copy(d + at, d + at + 8, e.name.begin());
        e.ttr = Ttr{(static_cast<uint32_t>(d[at + 8]) << 8) | d[at + 9], d[at + 10]};
        e.indicator = d[at + 11];
        const uint32_t ud = 2u * (e.indicator & kHalfwordBits);
        if (at + kEntryFixed + ud > used) {
          bad = where + ": entry " + e.text() + " runs past the bytes used";
          return false;
        }
        e.userData.assign(d + at + kEntryFixed, d + at + kEntryFixed + ud);
        entries_.push_back(std::move(e));
        at += kEntryFixed + ud;
      }
      return true;
    });
    if (walked < 0) bad = staged_.trackText(abs) + ": " + kBrokenTrack;
  }
  if (!bad.empty()) {
    error = ds_.name + ": " + bad;
    return false;
  }
  if (!closed || blocks_.empty()) {
    error = ds_.name + ": no directory (" + (blocks_.empty() ? "no directory block" : "no end-of-file record behind it") + ")";
    return false;
  }
  std::stable_sort(entries_.begin(), entries_.end(), nameLess);

  // The used space: the directory, every member up to its EOF, the pointer.
  // A member ends at the first EOF record behind its start, so when the
  // pointer names an EOF record every member starting before it ends there
  // at the latest: only members behind it are walked, and a change costs
  // the directory and the member, not the whole data set.
  usedEnd_ = directoryEof_;
  const Ttr pointer{ds_.lastBlockTrack, ds_.lastBlockRecord};
  bool pointerIsEof = false;
  if (pointer.track < map_.tracks() && pointer.record > 0) {
    uint32_t cyl = 0, head = 0;
    map_.toCylHead(pointer.track, cyl, head);
    const unsigned char* image = staged_.image(cyl * staged_.heads() + head, error);
    if (image == nullptr) return false;
    walkImage(image, staged_.slotSize(), [&](const ImageRecord& r) {
      if (r.record != pointer.record) return true;
      pointerIsEof = r.dataLength == 0;
      return false;
    });
  }
  std::map<uint32_t, bool> seen;
  for (const DirectoryEntry& e : entries_) {
    const uint32_t key = (e.ttr.track << 8) | e.ttr.record;
    if (seen.count(key) != 0) continue;
    seen[key] = true;
    // An entry pointing past the extents has no records in them to keep.
    if (e.ttr.track >= map_.tracks()) continue;
    if (pointerIsEof && !(pointer < e.ttr)) continue;
    Ttr eof;
    if (!findEnd(e.ttr, eof, error)) {
      error = ds_.name + "(" + e.text() + "): " + error;
      return false;
    }
    usedEnd_ = std::max(usedEnd_, eof);
  }
  if (pointer.track < map_.tracks()) usedEnd_ = std::max(usedEnd_, pointer);
  loaded_ = true;
  return true;
}

// The EOF record of the member starting at `from` (or, without one, the
// last record of the extents).
bool PdsEditor::findEnd(Ttr from, Ttr& eof, std::string& error) {
  MemberWalk w;
  Ttr last = from;
  if (!walkMember(staged_, map_, from, [&](Ttr at, const ImageRecord&) { last = at; }, w, error)) {
    if (w.failure == MemberWalk::kBroken) {
      error = staged_.trackText(w.track) + ": " + kBrokenTrack;
    } else if (w.failure == MemberWalk::kMissing) {
      error = "record " + std::to_string(from.record) + " is not on relative track " + std::to_string(from.track);
    }
    return false;
  }
  if (!w.started) {
    error = "relative track " + std::to_string(from.track) + " lies outside the data set's " +
            std::to_string(map_.tracks()) + " tracks";
    return false;
  }
  eof = last;
  return true;
}

bool PdsEditor::readMember(Ttr from, std::vector<Bytes>& keys, std::vector<Bytes>& data, std::string& error) {
  MemberWalk w;
  const auto keep = [&](Ttr, const ImageRecord& r) {
    if (r.dataLength == 0) return;
    keys.emplace_back(r.key, r.key + r.keyLength);
    data.emplace_back(r.data, r.data + r.dataLength);
  };
  if (!walkMember(staged_, map_, from, keep, w, error)) {
    if (w.failure != MemberWalk::kNone) error = staged_.trackText(w.track) + " cannot be walked to the member's records";
    return false;
  }
  if (!w.ended) {
    error = "no end-of-file record before the end of the extents";
    return false;
  }
  return true;
}

const DirectoryEntry* PdsEditor::find(const std::string& name) const {
  Name n;
  if (!nameFrom(name, n)) return nullptr;
  auto it = std::find_if(entries_.begin(), entries_.end(), [&](const DirectoryEntry& e) { return e.name == n; });
  return it == entries_.end() ? nullptr : &*it;
}

std::vector<DirectoryEntry>::iterator PdsEditor::lookup(const Name& name) {
  // The entries stay in name order (load() sorts them, every change keeps
  // the order): the first of that name, found by halving.
  const auto it = std::lower_bound(entries_.begin(), entries_.end(), name,
                                   [](const DirectoryEntry& e, const Name& n) { return e.name < n; });
  return it != entries_.end() && it->name == name ? it : entries_.end();
}

bool PdsEditor::startWriter(std::string& error) {
  if (writer_) return true;
  writer_.reset(new DataWriter(staged_, ds_));
  return writer_->start(usedEnd_.track, usedEnd_.record, error);
}

bool PdsEditor::writeMember(const std::string& name, const std::vector<Bytes>& blocks, const Bytes& userData,
                            bool replace, MemberWrite& out, std::string& error) {
  Name n;
  if (!loaded_) {
    error = "the directory was not read";
    return false;
  }
  if (!nameFrom(name, n)) {
    error = badName(name);
    return false;
  }
  if (userData.size() % 2 != 0 || userData.size() > kMaxUserData) {
    error = "user data of " + std::to_string(userData.size()) + " bytes (an even number up to 62)";
    return false;
  }
  auto it = lookup(n);
  if (it != entries_.end() && !replace) {
    error = "member " + it->text() + " exists in " + ds_.name;
    return false;
  }
  if (it != entries_.end() && it->alias()) {
    error = it->text() + " is an alias in " + ds_.name + "; replace the member it names, or delete the alias";
    return false;
  }
  if (!startWriter(error)) return false;
  MemberWrite w;
  w.replaced = it != entries_.end();
  Ttr at;
  for (const Bytes& b : blocks) {
    if (!writer_->add(nullptr, 0, b.data(), static_cast<uint32_t>(b.size()), at, error)) return false;
    if (w.blocks++ == 0) w.first = at;
  }
  Ttr eof;
  if (!writer_->addEndOfFile(eof, error)) return false;
  if (w.blocks == 0) w.first = eof;
  w.tracks = eof.track - w.first.track + 1;
  usedEnd_ = eof;
  endBalance_ = writer_->lastBalance();
  wrote_ = true;
  DirectoryEntry e;
  e.name = n;
  e.ttr = w.first;
  e.indicator = static_cast<uint8_t>(userData.size() / 2);
  e.userData = userData;
  if (it != entries_.end()) {
    *it = e;
  } else {
    entries_.insert(std::upper_bound(entries_.begin(), entries_.end(), e, nameLess), e);
  }
  out = w;
  return true;
}

bool PdsEditor::appendRecord(const unsigned char* key, uint32_t keyLength, const unsigned char* data,
                             uint32_t dataLength, Ttr& at, std::string& error) {
  if (!loaded_) {
    error = "the directory was not read";
    return false;
  }
  if (!startWriter(error) || !writer_->add(key, keyLength, data, dataLength, at, error)) return false;
  usedEnd_ = at;
  endBalance_ = writer_->lastBalance();
  wrote_ = true;
  return true;
}

bool PdsEditor::putEntry(const DirectoryEntry& entry, bool replace, std::string& error) {
  if (!loaded_) {
    error = "the directory was not read";
    return false;
  }
  if (endName(entry.name.data())) {
    error = "an entry cannot be named FF x 8, which ends the directory";
    return false;
  }
  if (entry.userData.size() != 2u * (entry.indicator & kHalfwordBits)) {
    error = "entry " + entry.text() + ": the indicator says " + std::to_string(2u * (entry.indicator & kHalfwordBits)) +
            " bytes of user data, it has " + std::to_string(entry.userData.size());
    return false;
  }
  auto it = lookup(entry.name);
  if (it != entries_.end() && !replace) {
    error = "member " + it->text() + " exists in " + ds_.name;
    return false;
  }
  if (it != entries_.end()) {
    *it = entry;
  } else {
    entries_.insert(std::upper_bound(entries_.begin(), entries_.end(), entry, nameLess), entry);
  }
  return true;
}

std::vector<DirectoryEntry>::iterator PdsEditor::existing(const std::string& name, std::string& error) {
  Name n;
  auto it = nameFrom(name, n) ? lookup(n) : entries_.end();
  if (it == entries_.end()) error = "member " + name + " not found in " + ds_.name;
  return it;
}

bool PdsEditor::unusedName(const std::string& name, Name& out, std::string& error) {
  if (!nameFrom(name, out)) {
    error = badName(name);
    return false;
  }
  const auto it = lookup(out);
  if (it != entries_.end()) {
    error = "member " + it->text() + " exists in " + ds_.name;
    return false;
  }
  return true;
}

bool PdsEditor::remove(const std::string& name, std::string& error) {
  auto it = existing(name, error);
  if (it == entries_.end()) return false;
  entries_.erase(it);
  return true;
}

bool PdsEditor::rename(const std::string& from, const std::string& to, std::string& error) {
  Name b;
  auto it = existing(from, error);
  if (it == entries_.end() || !unusedName(to, b, error)) return false;
  DirectoryEntry e = *it;
  e.name = b;
  entries_.erase(it);
  entries_.insert(std::upper_bound(entries_.begin(), entries_.end(), e, nameLess), e);
  return true;
}

bool PdsEditor::addAlias(const std::string& alias, const std::string& member, std::string& error) {
  Name a;
  auto target = existing(member, error);
  if (target == entries_.end() || !unusedName(alias, a, error)) return false;
  DirectoryEntry e = *target;
  e.name = a;
  e.indicator = static_cast<uint8_t>(e.indicator | kAliasBit);
  entries_.insert(std::upper_bound(entries_.begin(), entries_.end(), e, nameLess), e);
  return true;
}

bool PdsEditor::compress(CompressSummary& out, std::string& error) {
  if (!loaded_ || wrote_) {
    error = loaded_ ? "compress comes before any member is written" : "the directory was not read";
    return false;
  }
  std::string withTtrs;
  for (const DirectoryEntry& e : entries_) {
    if (e.indicator & kUserTtrBits) withTtrs += (withTtrs.empty() ? "" : ", ") + e.text();
  }
  if (!withTtrs.empty()) {
    error = ds_.name + " cannot be compressed: the entries of " + withTtrs +
            " carry user TTRs (load modules), which would still point at the old places";
    return false;
  }
  // Every member read before anything moves: the new places overlap the old.
  struct Member {
    std::vector<Bytes> keys, data;
    Ttr moved;
  };
  std::map<std::pair<uint32_t, uint8_t>, Member> members;
  for (const DirectoryEntry& e : entries_) {
    Member& m = members[{e.ttr.track, e.ttr.record}];
    if (!m.data.empty() || !m.keys.empty()) continue;
    if (!readMember(e.ttr, m.keys, m.data, error)) {
      error = ds_.name + "(" + e.text() + "): " + error;
      return false;
    }
  }
  usedEnd_ = directoryEof_;
  if (!startWriter(error)) return false;
  CompressSummary s;
  for (auto& entry : members) {
    Member& m = entry.second;
    Ttr at;
    for (size_t i = 0; i < m.data.size(); ++i) {
      if (!writer_->add(m.keys[i].data(), static_cast<uint32_t>(m.keys[i].size()), m.data[i].data(),
                        static_cast<uint32_t>(m.data[i].size()), at, error)) {
        return false;
      }
      if (i == 0) m.moved = at;
    }
    if (!writer_->addEndOfFile(at, error)) return false;
    if (m.data.empty()) m.moved = at;
    s.blocks += m.data.size();
    ++s.members;
  }
  for (DirectoryEntry& e : entries_) e.ttr = members[{e.ttr.track, e.ttr.record}].moved;
  usedEnd_ = writer_->last();
  endBalance_ = writer_->lastBalance();
  wrote_ = true;
  s.end = usedEnd_;
  out = s;
  return true;
}

bool PdsEditor::buildDirectory(std::vector<Bytes>& blocks, int& lastUsedBytes, std::string& error) const {
  blocks.clear();
  Bytes block(kDirectoryKeyLength + kDirectoryBlockLength, 0);
  uint32_t used = 2;
  const unsigned char* lastName = nullptr;
  auto close = [&]() {
    std::copy(lastName, lastName + 8, block.begin());
    block[kDirectoryKeyLength] = static_cast<unsigned char>(used >> 8);
    block[kDirectoryKeyLength + 1] = static_cast<unsigned char>(used);
    blocks.push_back(block);
    std::fill(block.begin(), block.end(), 0);
    used = 2;
  };
  auto put = [&](const unsigned char* name, Ttr ttr, uint8_t indicator, const Bytes& userData) {
    const uint32_t size = kEntryFixed + static_cast<uint32_t>(userData.size());
    if (used + size > kDirectoryBlockLength) close();
    unsigned char* p = &block[kDirectoryKeyLength + used];
    std::copy(name, name + 8, p);
    p[8] = static_cast<unsigned char>(ttr.track >> 8);
    p[9] = static_cast<unsigned char>(ttr.track);
    p[10] = ttr.record;
    p[11] = indicator;
    std::copy(userData.begin(), userData.end(), p + kEntryFixed);
    used += size;
    lastName = p;
  };
  for (const DirectoryEntry& e : entries_) put(e.name.data(), e.ttr, e.indicator, e.userData);
  static const unsigned char kEnd[8] = {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
  put(kEnd, Ttr{}, 0, Bytes());
  lastUsedBytes = static_cast<int>(used);
  close();
  if (blocks.size() > blocks_.size()) {
    error = "directory full: " + std::to_string(blocks_.size()) + " blocks, " + std::to_string(entries_.size()) +
            " entries (they need " + std::to_string(blocks.size()) + " blocks)";
    return false;
  }
  while (blocks.size() < blocks_.size()) {
    Bytes unused(kDirectoryKeyLength + kDirectoryBlockLength);
    emptyDirectoryBlock(unused.data(), unused.data() + kDirectoryKeyLength);
    blocks.push_back(unused);
  }
  return true;
}

bool PdsEditor::commit(std::string& error) {
  if (!loaded_) {
    error = "the directory was not read";
    return false;
  }
  for (const DirectoryEntry& e : entries_) {
    if (e.ttr.track > 0xFFFF) {
      error = "member " + e.text() + " lies beyond relative track 65535, which a directory entry cannot name";
      return false;
    }
  }
  std::vector<Bytes> blocks;
  int lastUsed = 0;
  if (!buildDirectory(blocks, lastUsed, error)) return false;
  if (writer_ && !writer_->finish(error)) return false;
  for (size_t i = 0; i < blocks.size(); ++i) {
    uint32_t cyl = 0, head = 0;
    map_.toCylHead(blocks_[i].track, cyl, head);
    uint32_t kl = 0, dl = 0;
    unsigned char* p = staged_.stageRecord(cyl * staged_.heads() + head, blocks_[i].record, kl, dl, error);
    if (p == nullptr) return false;
    if (kl != kDirectoryKeyLength || dl != kDirectoryBlockLength) {
      error = "directory block " + std::to_string(i + 1) + " changed its lengths";
      return false;
    }
    std::memcpy(p, blocks[i].data(), blocks[i].size());
  }
  const Ttr last = wrote_ ? usedEnd_ : Ttr{ds_.lastBlockTrack, ds_.lastBlockRecord};
  const uint32_t balance = wrote_ ? endBalance_ : ds_.trackBalance;
  return stageEndOfData(staged_, ds_, last, balance, lastUsed, error);
}

}  // namespace ckdvol
