// Reading and writing the records of an unloaded PDS (layout in unload.h).
#include "transfer/unload.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "common/byte_order.h"

namespace ckdvol {
namespace {

// COPYR1: sizes and field offsets (from its flags byte).
constexpr size_t kCopyr1Length = 56;
constexpr size_t kCopyr1ShortLength = 52;  // older unloads end before the last reserved bytes
constexpr size_t kR1Flags = 0;
constexpr size_t kR1Eyecatcher = 1;
constexpr size_t kR1Dsorg = 4;
constexpr size_t kR1Blksize = 6;
constexpr size_t kR1Lrecl = 8;
constexpr size_t kR1Recfm = 10;
constexpr size_t kR1KeyLength = 11;
constexpr size_t kR1Container = 14;
constexpr size_t kR1DeviceType = 16;
constexpr size_t kR1MaxBlock = 20;
constexpr size_t kR1Cylinders = 24;
constexpr size_t kR1Heads = 26;
constexpr size_t kR1TrackLength = 28;
constexpr size_t kR1HeaderCount = 36;
constexpr size_t kR1LastUsed = 49;  // DS1LSTAR, TTR
const unsigned char kEyecatcher[3] = {0xCA, 0x6D, 0x0F};

// The form bits of the flags byte.
constexpr uint8_t kFormMask = 0xC0;
constexpr uint8_t kFormPdse = 0x40;
constexpr uint8_t kFormInError = 0x80;
constexpr uint8_t kFormTransfer = 0xC0;

// COPYR2: the DEB's basic section (its first byte the number of extents),
// then 16 extent entries.
constexpr size_t kCopyr2Length = 276;
constexpr size_t kDebBasicLength = 16;
constexpr size_t kExtentEntryLength = 16;
constexpr size_t kMaxExtents = 16;
constexpr size_t kExtentStart = 6;  // start CC HH, end CC HH, tracks in the entry

// A block's header: flags, M, BB, CC, HH, R, KL, DL DL.
constexpr size_t kBlockHeader = 12;
constexpr size_t kBhExtent = 1;
constexpr size_t kBhCylinder = 4;
constexpr size_t kBhHead = 6;
constexpr size_t kBhRecord = 8;
constexpr size_t kBhKeyLength = 9;
constexpr size_t kBhDataLength = 10;

// Directory blocks: 8-byte key, 256 data bytes (bytes used, then entries of
// name (8), TTR (3), indicator (1), user data).
constexpr size_t kDirKey = 8;
constexpr size_t kDirData = 256;
constexpr size_t kEntryFixed = 12;
constexpr uint8_t kUserHalfwords = 0x1F;

// Unload data set LRECL and block size limits.
constexpr uint32_t kMinLrecl = 280;
constexpr uint32_t kMaxLrecl = 32760;
constexpr uint32_t kMinContainer = 284;
constexpr uint32_t kDescriptorWords = 8;  // BDW + SDW in front of each record

std::string cchhr(uint16_t cc, uint16_t hh, uint8_t r) {
  char text[48];
  std::snprintf(text, sizeof text, "CCHHR %04X%04X%02X", cc, hh, r);
  return text;
}

std::string ttrText(const Ttr& t) {
  char text[32];
  std::snprintf(text, sizeof text, "TTR %04X%02X", t.track, t.record);
  return text;
}

bool allZero(const unsigned char* p, size_t n) {
  for (size_t i = 0; i < n; ++i)
    if (p[i] != 0) return false;
  return true;
}

// The relative track of CC HH through the extents, like the original data
// set's access method counts: false when no extent holds it.
bool relativeTrack(const UnloadedPds& pds, uint16_t cc, uint16_t hh, uint32_t& track) {
  uint32_t before = 0;
  const uint32_t at = uint32_t{cc} * pds.heads + hh;
  for (const UnloadExtent& e : pds.extents) {
    const uint32_t start = uint32_t{e.startCylinder} * pds.heads + e.startHead;
    const uint32_t end = uint32_t{e.endCylinder} * pds.heads + e.endHead;
    if (hh < pds.heads && at >= start && at <= end && at - start < e.tracks) {
      track = before + (at - start);
      return true;
    }
    before += e.tracks;
  }
  return false;
}

// The reverse: CC HH and extent number of a relative track.
bool absoluteTrack(const UnloadedPds& pds, uint32_t track, uint16_t& cc, uint16_t& hh, uint8_t& extent) {
  for (size_t i = 0; i < pds.extents.size(); ++i) {
    const UnloadExtent& e = pds.extents[i];
    if (track < e.tracks) {
      const uint32_t at = uint32_t{e.startCylinder} * pds.heads + e.startHead + track;
      const uint32_t end = uint32_t{e.endCylinder} * pds.heads + e.endHead;
      if (at > end || at / pds.heads > 0xFFFF) return false;
      cc = static_cast<uint16_t>(at / pds.heads);
      hh = static_cast<uint16_t>(at % pds.heads);
      extent = static_cast<uint8_t>(i);
      return true;
    }
    track -= e.tracks;
  }
  return false;
}

bool readCopyr1(const Bytes& r, UnloadedPds& out, std::string& error) {
  if (r.size() < kR1Eyecatcher + 3 || std::memcmp(&r[kR1Eyecatcher], kEyecatcher, 3) != 0) {
    error = "not an unload: COPYR1 eyecatcher missing";
    return false;
  }
  switch (r[kR1Flags] & kFormMask) {
    case kFormPdse:
      error = "unloaded PDSE is not supported";
      return false;
    case kFormInError:
      error = "the unload is marked as incomplete or in error";
      return false;
    case kFormTransfer:
      error = "the transfer format of unloads (PDSE, program objects) is not supported";
      return false;
  }
  if (r.size() < kCopyr1ShortLength) {
    error = "COPYR1 has " + std::to_string(r.size()) + " bytes, fewer than " + std::to_string(kCopyr1ShortLength);
    return false;
  }
  out.dsorg = loadBe16(&r[kR1Dsorg]);
  out.blksize = loadBe16(&r[kR1Blksize]);
  out.lrecl = loadBe16(&r[kR1Lrecl]);
  out.recfm = r[kR1Recfm];
  out.keyLength = r[kR1KeyLength];
  out.containerBlockSize = loadBe16(&r[kR1Container]);
  out.deviceType = loadBe32(&r[kR1DeviceType]);
  out.trackLength = loadBe16(&r[kR1TrackLength]);
  out.heads = loadBe16(&r[kR1Heads]);
  out.cylinders = loadBe16(&r[kR1Cylinders]);
  const uint16_t headers = loadBe16(&r[kR1HeaderCount]);
  if (headers != 0 && headers != 2) {
    error = "COPYR1 announces " + std::to_string(headers) + " header records (2 are known)";
    return false;
  }
  if (out.heads == 0) {
    error = "COPYR1 gives 0 heads per cylinder";
    return false;
  }
  return true;
}

bool readCopyr2(const Bytes& r, UnloadedPds& out, std::string& error) {
  if (r.size() < kDebBasicLength + kMaxExtents * kExtentEntryLength) {
    error = "COPYR2 has " + std::to_string(r.size()) + " bytes, fewer than " +
            std::to_string(kDebBasicLength + kMaxExtents * kExtentEntryLength);
    return false;
  }
  const size_t count = r[0];
  if (count < 1 || count > kMaxExtents) {
    error = "COPYR2 gives " + std::to_string(count) + " extents (1 to 16 are possible)";
    return false;
  }
  out.extents.clear();
  for (size_t i = 0; i < count; ++i) {
    const unsigned char* p = &r[kDebBasicLength + i * kExtentEntryLength + kExtentStart];
    UnloadExtent e;
    e.startCylinder = loadBe16(p);
    e.startHead = loadBe16(p + 2);
    e.endCylinder = loadBe16(p + 4);
    e.endHead = loadBe16(p + 6);
    e.tracks = loadBe16(p + 8);
    out.extents.push_back(e);
  }
  return true;
}

// Reads the entries of one directory block's 256 data bytes; `ended` is set
// at the end entry.
bool readDirectoryBlock(const unsigned char* data, size_t block, UnloadedPds& out, bool& ended,
                        std::string& error) {
  const std::string where = "directory block " + std::to_string(block + 1);
  const size_t used = loadBe16(data);
  if (used < 2 || used > kDirData) {
    error = where + ": " + std::to_string(used) + " bytes used (2 to 256 are possible)";
    return false;
  }
  size_t at = 2;
  while (at < used) {
    if (used - at < kEntryFixed) {
      error = where + ": an entry at offset " + std::to_string(at) + " runs past the bytes used";
      return false;
    }
    const unsigned char* e = data + at;
    if (std::all_of(e, e + 8, [](unsigned char c) { return c == 0xFF; })) {
      ended = true;
      return true;
    }
    DirectoryEntry entry;
    std::memcpy(entry.name.data(), e, 8);
    entry.ttr.track = loadBe16(e + 8);
    entry.ttr.record = e[10];
    entry.indicator = e[11];
    const size_t userBytes = 2u * (entry.indicator & kUserHalfwords);
    if (used - at - kEntryFixed < userBytes) {
      error = where + ": entry " + entry.text() + " runs past the bytes used";
      return false;
    }
    entry.userData.assign(e + kEntryFixed, e + kEntryFixed + userBytes);
    out.entries.push_back(std::move(entry));
    at += kEntryFixed + userBytes;
  }
  return true;
}

}  // namespace

bool readUnload(const std::vector<Bytes>& records, UnloadedPds& out, std::string& error) {
  out = UnloadedPds();
  if (records.empty()) {
    error = "not an unload: no records";
    return false;
  }
  if (!readCopyr1(records[0], out, error)) return false;
  if (records.size() < 2) {
    error = "the unload ends after COPYR1";
    return false;
  }
  if (!readCopyr2(records[1], out, error)) return false;

  bool inDirectory = true;  // until the block of 12 zero bytes
  bool ended = false;       // the end entry was seen
  for (size_t n = 2; n < records.size(); ++n) {
    const Bytes& r = records[n];
    size_t at = 0;
    while (at < r.size()) {
      const std::string where = "record " + std::to_string(n + 1) + " offset " + std::to_string(at);
      if (r.size() - at < kBlockHeader) {
        error = where + ": a block header runs past the record";
        return false;
      }
      const unsigned char* h = &r[at];
      const size_t keyLength = h[kBhKeyLength];
      const size_t dataLength = loadBe16(h + kBhDataLength);
      if (r.size() - at - kBlockHeader < keyLength + dataLength) {
        error = where + ": a block of " + std::to_string(keyLength) + "+" + std::to_string(dataLength) +
                " bytes runs past the record";
        return false;
      }
      const uint16_t cc = loadBe16(h + kBhCylinder), hh = loadBe16(h + kBhHead);
      const uint8_t rr = h[kBhRecord];
      if (inDirectory) {
        if (allZero(h, kBlockHeader)) {
          if (!ended) {
            error = where + ": the directory ends without its end entry";
            return false;
          }
          inDirectory = false;
        } else if (keyLength != kDirKey || dataLength != kDirData) {
          error = where + ": a directory block with key " + std::to_string(keyLength) + " and data " +
                  std::to_string(dataLength) + " bytes (8 and 256 expected)";
          return false;
        } else {
          // Blocks behind the end entry are unused; only counted.
          if (!ended && !readDirectoryBlock(h + kBlockHeader + kDirKey, out.directoryBlocks, out, ended, error))
            return false;
          ++out.directoryBlocks;
        }
      } else {
        UnloadedBlock b;
        if (!relativeTrack(out, cc, hh, b.ttr.track)) {
          error = where + ": the block at " + cchhr(cc, hh, rr) + " lies outside the extents";
          return false;
        }
        b.ttr.record = rr;
        b.key.assign(h + kBlockHeader, h + kBlockHeader + keyLength);
        b.data.assign(h + kBlockHeader + keyLength, h + kBlockHeader + keyLength + dataLength);
        out.blocks.push_back(std::move(b));
      }
      at += kBlockHeader + keyLength + dataLength;
    }
  }
  if (inDirectory) {
    error = ended ? "the unload ends before the end of the directory (a block of 12 zero bytes)"
                  : "the unload ends inside the directory (no end entry)";
    return false;
  }
  if (!out.blocks.empty() && !out.blocks.back().endOfFile()) {
    error = "the unload ends inside a member (" + ttrText(out.blocks.back().ttr) + " is not an end-of-file record)";
    return false;
  }
  return true;
}

namespace {

// Groups blocks into records of at most `limit` bytes.
class RecordPacker {
 public:
  RecordPacker(std::vector<Bytes>& records, size_t limit) : records_(records), limit_(limit) {}
  // Appends a block; false when it alone is larger than a record.
  bool add(const Bytes& block) {
    if (block.size() > limit_) return false;
    if (open_.size() + block.size() > limit_) close();
    open_.insert(open_.end(), block.begin(), block.end());
    return true;
  }
  void close() {
    if (!open_.empty()) records_.push_back(std::move(open_));
    open_.clear();
  }

 private:
  std::vector<Bytes>& records_;
  size_t limit_;
  Bytes open_;
};

Bytes blockBytes(uint8_t extent, uint16_t cc, uint16_t hh, uint8_t r, const Bytes& key, const Bytes& data) {
  Bytes b(kBlockHeader + key.size() + data.size(), 0);
  b[kBhExtent] = extent;
  storeBe16(&b[kBhCylinder], cc);
  storeBe16(&b[kBhHead], hh);
  b[kBhRecord] = r;
  b[kBhKeyLength] = static_cast<unsigned char>(key.size());
  storeBe16(&b[kBhDataLength], static_cast<uint16_t>(data.size()));
  std::copy(key.begin(), key.end(), b.begin() + kBlockHeader);
  std::copy(data.begin(), data.end(), b.begin() + kBlockHeader + static_cast<std::ptrdiff_t>(key.size()));
  return b;
}

// The directory blocks (key + data) for `entries`, at least `minimum`.
std::vector<std::pair<Bytes, Bytes>> directoryBlocks(const std::vector<DirectoryEntry>& entries, uint32_t minimum) {
  std::vector<std::pair<Bytes, Bytes>> blocks;
  Bytes data(kDirData, 0), key(kDirKey, 0);
  size_t used = 2;
  auto close = [&]() {
    storeBe16(data.data(), static_cast<uint16_t>(used));
    blocks.emplace_back(key, data);
    std::fill(data.begin(), data.end(), 0);
    used = 2;
  };
  auto put = [&](const unsigned char* name, const Ttr& ttr, uint8_t indicator, const Bytes& user) {
    const size_t length = kEntryFixed + user.size();
    if (used + length > kDirData) close();
    unsigned char* e = &data[used];
    std::memcpy(e, name, 8);
    storeBe16(e + 8, static_cast<uint16_t>(ttr.track));
    e[10] = ttr.record;
    e[11] = indicator;
    std::copy(user.begin(), user.end(), e + kEntryFixed);
    std::memcpy(key.data(), name, 8);
    used += length;
  };
  for (const DirectoryEntry& e : entries) put(e.name.data(), e.ttr, e.indicator, e.userData);
  const unsigned char endName[8] = {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
  put(endName, Ttr(), 0, Bytes());
  close();
  while (blocks.size() < minimum) {  // unused: nothing but an end entry
    std::memcpy(key.data(), endName, 8);
    std::memcpy(data.data() + 2, endName, 8);
    used = 2 + kEntryFixed;
    close();
  }
  return blocks;
}

}  // namespace

bool writeUnload(const UnloadedPds& in, std::vector<Bytes>& records, std::string& error) {
  records.clear();
  if (in.extents.empty() || in.extents.size() > kMaxExtents) {
    error = "an unload needs 1 to 16 extents, not " + std::to_string(in.extents.size());
    return false;
  }
  if (in.heads == 0) {
    error = "an unload needs the heads per cylinder";
    return false;
  }
  for (const DirectoryEntry& e : in.entries) {
    if (e.userData.size() != 2u * (e.indicator & kUserHalfwords) || e.ttr.track > 0xFFFF) {
      error = "directory entry " + e.text() + ": its user data disagree with its indicator or its TTR is too large";
      return false;
    }
  }
  uint32_t container = in.containerBlockSize;
  if (container == 0) {
    const uint32_t lrecl = std::min(kMaxLrecl, std::max(kMinLrecl, 16u + in.blksize + in.keyLength));
    container = std::min(kMaxLrecl, std::max(kMinContainer, lrecl + 4));
  }
  if (container < kMinContainer) {
    error = "an unload's block size of " + std::to_string(container) + " is below " + std::to_string(kMinContainer);
    return false;
  }
  const size_t limit = container - kDescriptorWords;

  Bytes r1(kCopyr1Length, 0);
  r1[kR1Flags] = 0;
  std::memcpy(&r1[kR1Eyecatcher], kEyecatcher, 3);
  storeBe16(&r1[kR1Dsorg], in.dsorg);
  storeBe16(&r1[kR1Blksize], in.blksize);
  storeBe16(&r1[kR1Lrecl], in.lrecl);
  r1[kR1Recfm] = in.recfm;
  r1[kR1KeyLength] = in.keyLength;
  storeBe16(&r1[kR1Container], static_cast<uint16_t>(container));
  storeBe32(&r1[kR1DeviceType], in.deviceType);
  storeBe32(&r1[kR1MaxBlock], in.trackLength);
  storeBe16(&r1[kR1Cylinders], in.cylinders);
  storeBe16(&r1[kR1Heads], in.heads);
  storeBe16(&r1[kR1TrackLength], static_cast<uint16_t>(std::min<uint32_t>(in.trackLength, 0xFFFF)));
  storeBe16(&r1[kR1HeaderCount], 2);
  if (!in.blocks.empty()) {
    const Ttr& last = in.blocks.back().ttr;
    storeBe16(&r1[kR1LastUsed], static_cast<uint16_t>(last.track));
    r1[kR1LastUsed + 2] = last.record;
  }

  Bytes r2(kCopyr2Length, 0);
  r2[0] = static_cast<unsigned char>(in.extents.size());
  for (size_t i = 0; i < in.extents.size(); ++i) {
    const UnloadExtent& e = in.extents[i];
    unsigned char* p = &r2[kDebBasicLength + i * kExtentEntryLength + kExtentStart];
    storeBe16(p, e.startCylinder);
    storeBe16(p + 2, e.startHead);
    storeBe16(p + 4, e.endCylinder);
    storeBe16(p + 6, e.endHead);
    storeBe16(p + 8, e.tracks);
  }
  records.push_back(std::move(r1));
  records.push_back(std::move(r2));

  RecordPacker packer(records, limit);
  // Directory blocks from record 1 of relative track 0 on, 255 to a track.
  const auto directory = directoryBlocks(in.entries, in.directoryBlocks);
  for (size_t i = 0; i < directory.size(); ++i) {
    uint16_t cc = 0, hh = 0;
    uint8_t extent = 0;
    if (!absoluteTrack(in, static_cast<uint32_t>(i / 255), cc, hh, extent)) {
      error = "the directory's " + std::to_string(directory.size()) + " blocks do not fit the extents";
      records.clear();
      return false;
    }
    packer.add(blockBytes(extent, cc, hh, static_cast<uint8_t>(i % 255 + 1), directory[i].first,
                          directory[i].second));
  }
  packer.add(Bytes(kBlockHeader, 0));
  packer.close();

  for (const UnloadedBlock& b : in.blocks) {
    uint16_t cc = 0, hh = 0;
    uint8_t extent = 0;
    if (!absoluteTrack(in, b.ttr.track, cc, hh, extent)) {
      error = "the block at " + ttrText(b.ttr) + " lies outside the extents";
      records.clear();
      return false;
    }
    if (b.key.size() > 255 || b.data.size() > 0xFFFF || !packer.add(blockBytes(extent, cc, hh, b.ttr.record, b.key, b.data))) {
      error = "the block at " + ttrText(b.ttr) + " (" + std::to_string(b.key.size() + b.data.size()) +
              " bytes) does not fit a record of " + std::to_string(limit) + " bytes";
      records.clear();
      return false;
    }
  }
  packer.close();
  return true;
}

}  // namespace ckdvol
