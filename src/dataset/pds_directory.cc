// The directory of a partitioned data set: entries, aliases, statistics and
// member sizes.
#include "dataset/pds_directory.h"

#include <cstdio>
#include <unordered_map>

#include "common/byte_order.h"
#include "common/data_translator.h"
#include "dataset/block_reader.h"
#include "dataset/record_reader.h"

namespace ckdvol {
namespace {

// Directory block and entry.
constexpr uint32_t kBlockLength = 256;
constexpr uint32_t kBlockUsed = 0;  // u16, bytes used including itself
constexpr uint32_t kFirstEntry = 2;
constexpr uint32_t kEntryName = 0;  // 8 bytes
constexpr uint32_t kEntryTT = 8;    // u16
constexpr uint32_t kEntryR = 10;
constexpr uint32_t kEntryIndicator = 11;
constexpr uint32_t kEntryFixed = 12;  // user data follows
constexpr uint32_t kNameLength = 8;
constexpr uint8_t kAliasBit = 0x80;
constexpr uint8_t kUserTtrMask = 0x60;
constexpr uint8_t kHalfwordMask = 0x1F;

// Statistics user data.
constexpr size_t kStatsLength = 30;
constexpr size_t kStatsExtendedLength = 40;
constexpr int kStVersion = 0;
constexpr int kStModification = 1;
constexpr int kStFlags = 2;
constexpr int kStSeconds = 3;    // packed
constexpr int kStCreated = 4;    // 0cyydddF
constexpr int kStChanged = 8;    // 0cyydddF
constexpr int kStHour = 12;      // packed
constexpr int kStMinute = 13;    // packed
constexpr int kStCurrent = 14;   // u16
constexpr int kStInitial = 16;   // u16
constexpr int kStModified = 18;  // u16
constexpr int kStUserId = 20;    // 8 EBCDIC
constexpr int kStUserIdLength = 8;
constexpr int kStCurrentExt = 28;   // u32, extended form
constexpr int kStInitialExt = 32;   // u32
constexpr int kStModifiedExt = 36;  // u32
constexpr uint8_t kStExtendedFlag = 0x20;

std::string asciiTrimmed(const unsigned char* p, size_t n) {
  std::string s(n, ' ');
  Xlater.copyE2A(&s[0], p, static_cast<unsigned>(n));
  while (!s.empty() && (s.back() == ' ' || s.back() == '\0')) s.pop_back();
  return s;
}

std::string blockText(const Block& b) {
  return "directory block " + std::to_string(b.cyl) + "/" + std::to_string(b.head) + "/" +
         std::to_string(b.record);
}

bool isEndEntry(const unsigned char* p) {
  for (uint32_t i = 0; i < kNameLength; ++i) {
    if (p[i] != 0xFF) return false;
  }
  return true;
}

void resolveAliases(std::vector<MemberInfo>& members) {
  std::unordered_map<uint32_t, size_t> mainByTtr;
  for (size_t i = 0; i < members.size(); ++i) {
    if (members[i].alias) continue;
    const uint32_t ttr = (static_cast<uint32_t>(members[i].track) << 8) | members[i].record;
    mainByTtr.emplace(ttr, i);
  }
  for (MemberInfo& m : members) {
    if (!m.alias) continue;
    auto it = mainByTtr.find((static_cast<uint32_t>(m.track) << 8) | m.record);
    if (it != mainByTtr.end()) m.aliasOf = members[it->second].name;
  }
}

}  // namespace

bool decodeStatistics(uint8_t indicator, const std::vector<unsigned char>& userData,
                      MemberStatistics& stats) {
  const size_t n = userData.size();
  if ((indicator & kUserTtrMask) != 0) return false;
  if (n != kStatsLength && n != kStatsExtendedLength) return false;
  const unsigned char* u = userData.data();
  const bool extended = (u[kStFlags] & kStExtendedFlag) != 0;
  if (extended != (n == kStatsExtendedLength)) return false;
  if (u[kStVersion] > 99 || u[kStModification] > 99) return false;
  const int seconds = packedByte(u[kStSeconds]);
  const int hour = packedByte(u[kStHour]);
  const int minute = packedByte(u[kStMinute]);
  if (seconds < 0 || seconds > 59 || hour < 0 || hour > 23 || minute < 0 || minute > 59) {
    return false;
  }
  MemberStatistics s;
  if (!decodePackedDate(u + kStCreated, s.created) ||
      !decodePackedDate(u + kStChanged, s.changed)) {
    return false;
  }
  s.version = u[kStVersion];
  s.modification = u[kStModification];
  s.flags = u[kStFlags];
  s.extended = extended;
  s.changedHour = static_cast<uint8_t>(hour);
  s.changedMinute = static_cast<uint8_t>(minute);
  s.changedSecond = static_cast<uint8_t>(seconds);
  if (extended) {
    s.currentLines = loadBe32(u + kStCurrentExt);
    s.initialLines = loadBe32(u + kStInitialExt);
    s.modifiedLines = loadBe32(u + kStModifiedExt);
  } else {
    s.currentLines = loadBe16(u + kStCurrent);
    s.initialLines = loadBe16(u + kStInitial);
    s.modifiedLines = loadBe16(u + kStModified);
  }
  s.userId = asciiTrimmed(u + kStUserId, kStUserIdLength);
  stats = s;
  return true;
}

int readDirectory(EmulatedCKDfile& file, const DataSetInfo& ds, std::vector<MemberInfo>& members,
                  std::string& error) {
  members.clear();
  error.clear();
  if (!ds.partitioned()) {
    char dsorg[8];
    std::snprintf(dsorg, sizeof dsorg, "%04X", ds.dsorg);
    error = ds.name + " is not a partitioned data set (DSORG " + dsorg + ")";
    return kDirectoryNotPartitioned;
  }
  BlockReader blocks(file, ds);
  blocks.startDataSet(false);
  Block b;
  int rc;
  while ((rc = blocks.next(b)) == kBlockRead) {
    if (b.dataLength != kBlockLength) {
      error = blockText(b) + " has " + std::to_string(b.dataLength) + " data bytes, not 256";
      resolveAliases(members);
      return kDirectoryMalformed;
    }
    const uint32_t used = loadBe16(b.data + kBlockUsed);
    if (used < kFirstEntry || used > kBlockLength) {
      error = blockText(b) + " says " + std::to_string(used) + " bytes used (2 to 256 expected)";
      resolveAliases(members);
      return kDirectoryMalformed;
    }
    uint32_t pos = kFirstEntry;
    while (pos < used) {
      const unsigned char* e = b.data + pos;
      if (used - pos >= kNameLength && isEndEntry(e + kEntryName)) {
        resolveAliases(members);
        return kDirectoryOk;
      }
      const uint32_t length = used - pos >= kEntryFixed
                                  ? kEntryFixed + 2u * (e[kEntryIndicator] & kHalfwordMask)
                                  : kEntryFixed;
      if (length > used - pos) {
        error = blockText(b) + ": the entry at offset " + std::to_string(pos) + " needs " +
                std::to_string(length) + " bytes but only " + std::to_string(used - pos) +
                " of the " + std::to_string(used) + " bytes used remain";
        resolveAliases(members);
        return kDirectoryMalformed;
      }
      MemberInfo m;
      m.name = asciiTrimmed(e + kEntryName, kNameLength);
      m.track = loadBe16(e + kEntryTT);
      m.record = e[kEntryR];
      m.indicator = e[kEntryIndicator];
      m.alias = (m.indicator & kAliasBit) != 0;
      m.userTtrs = static_cast<uint8_t>((m.indicator & kUserTtrMask) >> 5);
      m.userData.assign(e + kEntryFixed, e + length);
      m.hasStatistics = decodeStatistics(m.indicator, m.userData, m.statistics);
      m.directoryBlock.cyl = b.cyl;
      m.directoryBlock.head = b.head;
      m.directoryBlock.record = b.record;
      members.push_back(std::move(m));
      pos += length;
    }
  }
  resolveAliases(members);
  if (rc < 0) {
    error = blocks.error();
    return rc;
  }
  return kDirectoryOk;
}

int memberSize(EmulatedCKDfile& file, const DataSetInfo& ds, const MemberInfo& m, MemberSize& size,
               std::string& error) {
  size = MemberSize();
  error.clear();
  BlockReader blocks(file, ds);
  blocks.startAt(m.track, m.record);
  RecordReader records(blocks, ds);
  LogicalRecord r;
  int rc;
  while ((rc = records.next(r)) == kBlockRead) ++size.records;
  size.blocks = records.blocksRead();
  size.bytes = records.bytesRead();
  if (rc < 0) {
    error = records.error();
    return rc;
  }
  return kDirectoryOk;
}

}  // namespace ckdvol
