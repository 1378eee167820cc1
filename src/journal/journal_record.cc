// The header's change record: two 64-byte places, the newer valid one wins.
#include <cstring>

#include "common/byte_order.h"
#include "journal/change_journal.h"
#include "journal/file_io.h"

namespace ckdvol {
namespace {

constexpr char kRecordMagic[] = "CKDVJNL1";  // 8 bytes
constexpr int kMagicLength = 8;
// Field offsets within a place.
constexpr int kSequence = 8;     // u32
constexpr int kState = 12;       // u8
constexpr int kFlags = 13;       // u8
constexpr int kVersion = 14;     // u16
constexpr int kStartEnd = 16;    // u64
constexpr int kKeepEnd = 24;     // u64
constexpr int kCopyEnd = 32;     // u64
constexpr int kJournalEnd = 40;  // u64
constexpr int kCommand = 48;     // 12 bytes, ASCII, zero padded
constexpr int kCrc = 60;         // u32 over bytes 0..59

uint32_t crc32(const unsigned char* p, size_t n) {
  uint32_t c = 0xFFFFFFFFu;
  for (size_t i = 0; i < n; ++i) {
    c ^= p[i];
    for (int k = 0; k < 8; ++k) c = (c >> 1) ^ (0xEDB88320u & (0u - (c & 1u)));
  }
  return c ^ 0xFFFFFFFFu;
}

}  // namespace

const char* journalStateName(JournalState state) {
  switch (state) {
    case JournalState::kNone: return "none";
    case JournalState::kOpen: return "open";
    case JournalState::kSealed: return "sealed";
    case JournalState::kDone: return "done";
    case JournalState::kCommit: return "commit";
    case JournalState::kRollback: return "rollback";
  }
  return "unknown";
}

void JournalRecord::encode(unsigned char* out) const {
  std::memset(out, 0, kPlaceSize);
  std::memcpy(out, kRecordMagic, kMagicLength);
  storeBe32(out + kSequence, sequence);
  out[kState] = static_cast<unsigned char>(state);
  out[kFlags] = flags;
  storeBe16(out + kVersion, version);
  storeBe64(out + kStartEnd, startEnd);
  storeBe64(out + kKeepEnd, keepEnd);
  storeBe64(out + kCopyEnd, copyEnd);
  storeBe64(out + kJournalEnd, journalEnd);
  std::memcpy(out + kCommand, command, std::strlen(command));
  storeBe32(out + kCrc, crc32(out, kCrc));
}

bool JournalRecord::decode(const unsigned char* in) {
  if (std::memcmp(in, kRecordMagic, kMagicLength) != 0) return false;
  if (loadBe32(in + kCrc) != crc32(in, kCrc)) return false;
  if (in[kState] > static_cast<unsigned char>(JournalState::kRollback)) return false;
  sequence = loadBe32(in + kSequence);
  state = static_cast<JournalState>(in[kState]);
  flags = in[kFlags];
  version = loadBe16(in + kVersion);
  startEnd = loadBe64(in + kStartEnd);
  keepEnd = loadBe64(in + kKeepEnd);
  copyEnd = loadBe64(in + kCopyEnd);
  journalEnd = loadBe64(in + kJournalEnd);
  std::memcpy(command, in + kCommand, kCommandLength);
  command[kCommandLength] = '\0';
  return true;
}

bool readJournalRecord(int fd, JournalRecord& record, bool& present) {
  unsigned char places[2 * JournalRecord::kPlaceSize];
  present = false;
  record = JournalRecord();
  if (!journal_io::readAt(fd, places, sizeof places, JournalRecord::kOffset)) return false;
  JournalRecord a, b;
  const bool validA = a.decode(places);
  const bool validB = b.decode(places + JournalRecord::kPlaceSize);
  if (validA && (!validB || a.sequence > b.sequence)) {
    record = a;
  } else if (validB) {
    record = b;
  } else {
    return true;
  }
  present = record.state != JournalState::kNone;
  return true;
}

}  // namespace ckdvol
