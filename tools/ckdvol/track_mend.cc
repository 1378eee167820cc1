#include "track_mend.h"

#include <cstring>
#include <map>
#include <utility>

#include <unistd.h>

#include "ckdfile/versioning.h"
#include "ckdfile/volume_format.h"
#include "common/byte_order.h"
#include "tool_util.h"

namespace ckdvol_tool {
namespace {

using F = EmulatedCKDfile;
using ckdvol::kCountSize;
using ckdvol::kRecordZeroOffset;

// One record after record zero, as its count field says.
struct Record {
  size_t offset;
  unsigned int cyl, head;
  unsigned short number, keyLength, dataLength;
  bool holdsData() const { return keyLength + dataLength > 0; }
};

// The records from `p` on, by their lengths: up to the end marker, or up to
// the first record that would end past `limit` (then `marker` is false and
// `stop` is that record's offset).
struct Walk {
  std::vector<Record> records;
  bool marker = false;
  size_t stop = 0;
  Record crossing{};  // the record at `stop` when there is no marker
};

Walk walkFrom(const F& f, const unsigned char* b, size_t p, size_t limit) {
  Walk w;
  while (p <= limit) {
    if (ckdvol::isEndMarker(b + p)) {
      w.marker = true;
      w.stop = p;
      return w;
    }
    Record r{};
    r.offset = p;
    const unsigned char* q = b + p;
    f.getCount(q, r.cyl, r.head, r.number, r.keyLength, r.dataLength);
    const size_t next = p + kCountSize + r.keyLength + r.dataLength;
    if (next > limit) {
      w.stop = p;
      w.crossing = r;
      return w;
    }
    w.records.push_back(r);
    p = next;
  }
  w.stop = p;
  return w;
}

std::string recordText(const Record& r) {
  return "R" + std::to_string(r.number) + " (KL " + std::to_string(r.keyLength) + ", DL " +
         std::to_string(r.dataLength) + ")";
}

std::string addressText(unsigned int cyl, unsigned int head) {
  return "cyl " + std::to_string(cyl) + " head " + std::to_string(head);
}

// The address the track's records share: the one most of them carry, the
// slot's own when it is among the most common.
std::pair<unsigned, unsigned> referenceAddress(const Walk& w, unsigned slotCyl, unsigned slotHead) {
  std::map<std::pair<unsigned, unsigned>, unsigned> votes;
  for (const Record& r : w.records) {
    if (r.holdsData()) ++votes[{r.cyl, r.head}];
  }
  std::pair<unsigned, unsigned> best{slotCyl, slotHead};
  unsigned bestVotes = votes.count(best) ? votes[best] : 0;
  for (const auto& v : votes) {
    if (v.second > bestVotes) {
      best = v.first;
      bestVotes = v.second;
    }
  }
  return best;
}

bool isLinkCode(int code) {
  return code == ckdvol::kVerifyCopyUnreadable || code == ckdvol::kVerifyCopyNoMarker ||
         code == ckdvol::kVerifyCopyNoBackLink || code == ckdvol::kVerifyNoLink;
}

// Home address and record zero of the slot, an end marker, zeros up to the
// trailer, a zero trailer: what an unformatted track holds.
std::vector<unsigned char> emptyTrack(F& f, unsigned slotCyl, unsigned slotHead) {
  std::vector<unsigned char> image(f.trackSlotSize, 0);
  unsigned char* p = image.data();
  f.putHA(p, 0, slotCyl, static_cast<unsigned short>(slotHead));
  f.putCount(p, static_cast<int>(slotCyl), static_cast<unsigned short>(slotHead), 0, 0,
             ckdvol::kRecordZeroDataLength);
  p += ckdvol::kRecordZeroDataLength;
  std::memset(p, ckdvol::kEndMarkerByte, ckdvol::kEndMarkerSize);
  return image;
}

// verifyTrack's verdict on `image` as the current track; trackBuffer is
// left holding `image`.
bool passes(F& f, const std::vector<unsigned char>& image) {
  std::memcpy(f.trackBuffer, image.data(), image.size());
  StdoutSilencer quiet;  // a broken link would print the library's diagnostic line
  return f.verifyTrack(false);
}

}  // namespace

std::string TrackMend::describe() const {
  std::string s;
  for (const std::string& step : steps) s += (s.empty() ? "" : "; ") + step;
  s += "; " + std::to_string(kept) + (kept == 1 ? " record" : " records") + " kept";
  if (!dropped.empty()) {
    s += ", " + std::to_string(dropped.size()) + (dropped.size() == 1 ? " record" : " records") + " dropped:";
    for (size_t i = 0; i < dropped.size() && i < 8; ++i) s += " " + dropped[i];
    if (dropped.size() > 8) s += " ...";
  }
  return s;
}

TrackMend planMend(F& f, int code) {
  const size_t slot = f.trackSlotSize;
  const size_t limit = slot - ckdvol::kDataLimitFromEnd;
  const std::vector<unsigned char> original(f.trackBuffer, f.trackBuffer + slot);
  const unsigned char* b = original.data();
  const unsigned slotCyl = f.currentCyl, slotHead = f.currentHead;

  const unsigned char* p = b;
  unsigned char flag;
  unsigned int haCyl, haHead;
  f.getHA(p, flag, haCyl, haHead);
  unsigned int r0Cyl, r0Head;
  unsigned short r0Number, r0Key, r0Data;
  f.getCount(p, r0Cyl, r0Head, r0Number, r0Key, r0Data);

  // Record zero's own lengths first; when they lead nowhere, the lengths
  // every formatted track has (no key, 8 data bytes).
  const size_t r0End = kRecordZeroOffset + kCountSize + r0Key + r0Data;
  Walk walk;
  bool walked = false, standardR0 = false;
  if (r0End <= limit) {
    walk = walkFrom(f, b, r0End, limit);
    walked = true;
  }
  const bool r0Standard = r0Key == 0 && r0Data == ckdvol::kRecordZeroDataLength;
  if (!r0Standard && (!walked || !walk.marker)) {
    Walk alternative = walkFrom(f, b, kRecordZeroOffset + kCountSize + ckdvol::kRecordZeroDataLength, limit);
    if (alternative.marker || !walked) {
      walk = alternative;
      walked = true;
      standardR0 = true;
    }
  }

  TrackMend m;
  m.image = original;
  const bool haWrong = haCyl != slotCyl || haHead != slotHead;
  const bool r0Wrong = r0Cyl != slotCyl || r0Head != slotHead || r0Number != 0 || standardR0;
  const auto ref = referenceAddress(walk, slotCyl, slotHead);
  const bool misplaced = (haWrong || r0Wrong) && (ref.first != slotCyl || ref.second != slotHead);

  bool tryRecords = walked && !misplaced;
  if (tryRecords) {
    unsigned char* q = m.image.data();
    if (haWrong) {
      f.putHA(q, flag, slotCyl, static_cast<unsigned short>(slotHead));
      m.steps.push_back("home address rewritten from the slot position (it named " + addressText(haCyl, haHead) +
                        ")");
    }
    if (r0Wrong) {
      q = m.image.data() + kRecordZeroOffset;
      const unsigned short key = standardR0 ? 0 : r0Key;
      const unsigned short data = standardR0 ? ckdvol::kRecordZeroDataLength : r0Data;
      f.putCount(q, static_cast<int>(slotCyl), static_cast<unsigned short>(slotHead), 0,
                 static_cast<unsigned char>(key), data);
      m.steps.push_back("record zero rewritten from the slot position (it read " + addressText(r0Cyl, r0Head) +
                        " R" + std::to_string(r0Number) + ")");
    }
    // Records that disagree with the others: mended when the track walks to
    // its end marker (the lengths hold), else the track ends before the
    // first of them.
    size_t cutAt = walk.marker ? 0 : walk.stop;
    size_t keep = walk.records.size();
    unsigned previousNumber = 0;
    for (size_t i = 0; i < walk.records.size(); ++i) {
      const Record& r = walk.records[i];
      const bool wrongAddress = r.holdsData() && (r.cyl != ref.first || r.head != ref.second);
      const bool wrongNumber = r.holdsData() && r.number == 0;
      if (wrongAddress || wrongNumber) {
        if (!walk.marker) {
          cutAt = r.offset;
          keep = i;
          break;
        }
        const unsigned number = wrongNumber ? (previousNumber + 1) & 0xFF : r.number;
        unsigned char* c = m.image.data() + r.offset;
        f.putCount(c, static_cast<int>(ref.first), static_cast<unsigned short>(ref.second),
                   static_cast<unsigned char>(number), static_cast<unsigned char>(r.keyLength), r.dataLength);
        std::string step = "count field of record " + std::to_string(i + 1) + " after record zero rewritten";
        if (wrongAddress) step += ": " + addressText(r.cyl, r.head) + " -> " + addressText(ref.first, ref.second);
        if (wrongNumber) step += ": record number 0 -> " + std::to_string(number);
        m.steps.push_back(step);
      }
      previousNumber = wrongNumber ? (previousNumber + 1) & 0xFF : r.number;
    }
    m.kept = static_cast<unsigned>(keep);
    if (!walk.marker) {
      for (size_t i = keep; i < walk.records.size(); ++i) m.dropped.push_back(recordText(walk.records[i]));
      if (cutAt == walk.stop) {
        m.dropped.push_back(recordText(walk.crossing) + " (runs past the end of the record area)");
      } else {
        m.dropped.push_back("whatever follows them (the lengths lead past the end of the record area)");
      }
      std::memset(m.image.data() + cutAt, 0, limit - cutAt);
      std::memset(m.image.data() + cutAt, ckdvol::kEndMarkerByte, ckdvol::kEndMarkerSize);
      m.steps.push_back("end marker placed after record " + std::to_string(keep) + " after record zero");
    }
    if (isLinkCode(code)) {
      ckdvol::clearTrailer(ckdvol::trailerOf(m.image.data(), f.trackSlotSize));
      m.steps.push_back("version link cleared");
    }
    m.sound = passes(f, m.image);
    if (!m.sound && isLinkCode(f.verifyCode)) {
      ckdvol::clearTrailer(ckdvol::trailerOf(m.image.data(), f.trackSlotSize));
      m.steps.push_back("version link cleared");
      m.sound = passes(f, m.image);
    }
  }
  if (!m.sound) {
    // Nothing short of an empty track is sound: every record goes.
    m = TrackMend();
    m.image = emptyTrack(f, slotCyl, slotHead);
    m.emptied = true;
    m.steps.push_back(misplaced ? "rewritten as an empty track (its records name " +
                                      addressText(ref.first, ref.second) + ", not this track)"
                                : "rewritten as an empty track");
    for (const Record& r : walk.records) m.dropped.push_back(recordText(r));
    if (walked && !walk.marker) m.dropped.push_back("whatever follows them");
    m.sound = passes(f, m.image);
  }
  std::memcpy(f.trackBuffer, original.data(), slot);
  return m;
}

int applyMend(F& f, const TrackMend& mend) {
  const unsigned slot = f.trackSlotSize;
  std::memcpy(f.trackBuffer, mend.image.data(), slot);
  // Under a version the change journal has linked the slot to the saved
  // copy of its former image: the mended image keeps that trailer, so the
  // write makes no second copy.
  const long long home = f.getOffset(f.currentCyl, f.currentHead, f.currentCell, true);
  if (f.activeVersion > 0 && home >= 0) {
    unsigned char* trailer = ckdvol::trailerOf(f.trackBuffer, slot);
    if (::pread(f.fileDescriptor, trailer, ckdvol::kTrailerSize, home + slot - ckdvol::kTrailerSize) !=
        ckdvol::kTrailerSize) {
      return F::kTrackNoCopy;
    }
  }
  f.trackDirty = 1;
  return f.writeTrack();
}

}  // namespace ckdvol_tool
