// Reading and writing transfer files (layout in transfer_file.h).
#include "transfer/transfer_file.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <map>

#include "codepage/code_page.h"
#include "common/byte_order.h"
#include "transfer/unload.h"

namespace ckdvol {
namespace {

constexpr size_t kCard = 80;
constexpr size_t kMaxSegment = 255;  // length byte, flags byte and 253 data bytes
constexpr uint8_t kFirst = 0x80;
constexpr uint8_t kLast = 0x40;
constexpr uint8_t kControl = 0x20;
constexpr uint8_t kRecordNumber = 0x10;
constexpr size_t kNameLength = 6;  // "INMR0n"
constexpr size_t kFileNumber = 4;  // behind INMR02's name

// Text unit keys.
constexpr uint16_t kInmdsnam = 0x0002;
constexpr uint16_t kInmsecnd = 0x000B;
constexpr uint16_t kInmdir = 0x000C;
constexpr uint16_t kInmterm = 0x0028;
constexpr uint16_t kInmblksz = 0x0030;
constexpr uint16_t kInmdsorg = 0x003C;
constexpr uint16_t kInmlrecl = 0x0042;
constexpr uint16_t kInmrecfm = 0x0049;
constexpr uint16_t kInmtnode = 0x1001;
constexpr uint16_t kInmtuid = 0x1002;
constexpr uint16_t kInmfnode = 0x1011;
constexpr uint16_t kInmfuid = 0x1012;
constexpr uint16_t kInmftime = 0x1024;
constexpr uint16_t kInmutiln = 0x1028;
constexpr uint16_t kInmrecct = 0x102A;
constexpr uint16_t kInmsize = 0x102C;
constexpr uint16_t kInmnumf = 0x102F;
constexpr uint16_t kInmtype = 0x8012;

// INMDSORG values.
constexpr uint16_t kDsorgPs = 0x4000;
constexpr uint16_t kDsorgPo = 0x0200;
constexpr uint16_t kDsorgVsam = 0x0008;
// INMRECFM second byte: variable records sent without their descriptor word.
constexpr uint8_t kRecfmNoRdw = 0x02;
// The unload's RECFM (VS).
constexpr uint8_t kRecfmVs = 0x48;

// The unload's eyecatcher and where it sits in each host form of an unload.
const unsigned char kEyecatcher[3] = {0xCA, 0x6D, 0x0F};
constexpr size_t kBareCopyr1 = 56;
constexpr size_t kBareCopyr2 = 276;

const char kUnloadUtility[] = "IEBCOPY";
const char kCopyUtility[] = "INMCOPY";

std::string toAscii(const unsigned char* p, size_t n) {
  std::string s;
  const CodePage& page = CodePage::defaultPage();
  for (size_t i = 0; i < n; ++i) s += static_cast<char>(page.toUnicode(p[i]));
  while (!s.empty() && s.back() == ' ') s.pop_back();
  return s;
}

Bytes toEbcdic(const std::string& s) {
  Bytes out;
  const CodePage& page = CodePage::defaultPage();
  for (unsigned char c : s) {
    const int e = page.toEbcdic(c);
    out.push_back(static_cast<unsigned char>(e < 0 ? 0x40 : e));
  }
  return out;
}

std::string hex16(uint16_t v) {
  char text[8];
  std::snprintf(text, sizeof text, "%04X", v);
  return text;
}

// One INMR02 record: what it says about a file.
struct Description {
  uint32_t file = 0;
  std::string utility;
  bool term = false;
  bool hasDsorg = false;
  uint16_t dsorg = 0;
  uint8_t recfm = 0;
  uint32_t lrecl = 0, blksize = 0, directory = 0, secondary = 0;
  uint64_t size = 0, recordCount = 0;
  bool hasRecordCount = false;
  uint8_t type = 0;
  std::string dsn;
};

// Text units of one control record from `at`.
class TextUnits {
 public:
  TextUnits(const Bytes& record, size_t at) : r_(record), at_(at) {}
  // The next unit: its key and values. False at the end; `error` set when
  // the unit runs past the record.
  bool next(uint16_t& key, std::vector<std::pair<const unsigned char*, size_t>>& values, std::string& error) {
    values.clear();
    if (at_ >= r_.size()) return false;
    if (r_.size() - at_ < 4) {
      error = "a text unit at offset " + std::to_string(at_) + " runs past its record";
      return false;
    }
    key = loadBe16(&r_[at_]);
    const size_t count = loadBe16(&r_[at_ + 2]);
    size_t at = at_ + 4;
    for (size_t i = 0; i < count; ++i) {
      if (r_.size() - at < 2 || r_.size() - at - 2 < loadBe16(&r_[at])) {
        error = "text unit " + hex16(key) + " at offset " + std::to_string(at_) + " runs past its record";
        return false;
      }
      const size_t length = loadBe16(&r_[at]);
      values.emplace_back(&r_[at + 2], length);
      at += 2 + length;
    }
    at_ = at;
    return true;
  }

 private:
  const Bytes& r_;
  size_t at_;
};

bool number(uint16_t key, const std::vector<std::pair<const unsigned char*, size_t>>& values, uint64_t& out,
            std::string& error) {
  out = 0;
  if (values.empty()) return true;
  if (values[0].second > 8) {
    error = "text unit " + hex16(key) + " holds a number of " + std::to_string(values[0].second) + " bytes";
    return false;
  }
  for (size_t i = 0; i < values[0].second; ++i) out = (out << 8) | values[0].first[i];
  return true;
}

std::string text(const std::vector<std::pair<const unsigned char*, size_t>>& values) {
  return values.empty() ? std::string() : toAscii(values[0].first, values[0].second);
}

bool readOrigin(const Bytes& r, TransferOrigin& origin, uint64_t& files, std::string& error) {
  TextUnits units(r, kNameLength);
  uint16_t key = 0;
  std::vector<std::pair<const unsigned char*, size_t>> values;
  while (units.next(key, values, error)) {
    switch (key) {
      case kInmfnode: origin.fromNode = text(values); break;
      case kInmfuid: origin.fromUser = text(values); break;
      case kInmtnode: origin.toNode = text(values); break;
      case kInmtuid: origin.toUser = text(values); break;
      case kInmftime: origin.time = text(values); break;
      case kInmnumf:
        if (!number(key, values, files, error)) return false;
        break;
      default: break;
    }
  }
  if (!error.empty()) error = "INMR01: " + error;
  return error.empty();
}

bool readDescription(const Bytes& r, Description& d, std::string& error) {
  if (r.size() < kNameLength + kFileNumber) {
    error = "INMR02 ends before its file number";
    return false;
  }
  d.file = loadBe32(&r[kNameLength]);
  TextUnits units(r, kNameLength + kFileNumber);
  uint16_t key = 0;
  std::vector<std::pair<const unsigned char*, size_t>> values;
  uint64_t v = 0;
  while (units.next(key, values, error)) {
    if (key == kInmutiln) {
      d.utility = text(values);
    } else if (key == kInmterm) {
      d.term = true;
    } else if (key == kInmdsnam) {
      d.dsn.clear();
      for (const auto& q : values) d.dsn += (d.dsn.empty() ? "" : ".") + toAscii(q.first, q.second);
    } else if (key == kInmrecfm) {
      d.recfm = values.empty() || values[0].second == 0 ? 0 : values[0].first[0];
    } else if (key == kInmdsorg || key == kInmlrecl || key == kInmblksz || key == kInmdir || key == kInmsize ||
               key == kInmsecnd || key == kInmrecct || key == kInmtype) {
      if (!number(key, values, v, error)) break;
      switch (key) {
        case kInmdsorg: d.dsorg = static_cast<uint16_t>(v); d.hasDsorg = true; break;
        case kInmlrecl: d.lrecl = static_cast<uint32_t>(v); break;
        case kInmblksz: d.blksize = static_cast<uint32_t>(v); break;
        case kInmdir: d.directory = static_cast<uint32_t>(v); break;
        case kInmsize: d.size = v; break;
        case kInmsecnd: d.secondary = static_cast<uint32_t>(v); break;
        case kInmrecct: d.recordCount = v; d.hasRecordCount = true; break;
        default: d.type = static_cast<uint8_t>(v); break;
      }
    }
  }
  if (!error.empty()) error = "INMR02: " + error;
  return error.empty();
}

// Joins a host form of an unload into its logical records. `at` is where
// the eyecatcher sits: 1 (no descriptor words), 5 (a record descriptor word
// before each record) or 9 (block and segment descriptor words).
bool unloadRecords(const Bytes& file, size_t at, std::vector<Bytes>& records, std::string& error) {
  if (at == 1) {
    if (file.size() < kBareCopyr1 + kBareCopyr2) {
      error = "the unload ends inside its header records";
      return false;
    }
    records.emplace_back(file.begin(), file.begin() + kBareCopyr1);
    records.emplace_back(file.begin() + kBareCopyr1, file.begin() + kBareCopyr1 + kBareCopyr2);
    if (file.size() > kBareCopyr1 + kBareCopyr2) records.emplace_back(file.begin() + kBareCopyr1 + kBareCopyr2, file.end());
    return true;
  }
  const bool blocked = at == 9;
  size_t pos = 0;
  bool open = false;  // a spanned record awaits its last segment
  while (pos < file.size()) {
    size_t end = file.size();
    if (blocked) {
      if (file.size() - pos < 4) {
        error = "a block descriptor at offset " + std::to_string(pos) + " runs past the end of the file";
        return false;
      }
      const size_t length = loadBe16(&file[pos]);
      if (length == 0 && std::all_of(file.begin() + pos, file.end(), [](unsigned char c) { return c == 0; })) break;
      if (length < 8 || length > file.size() - pos) {
        error = "a block descriptor at offset " + std::to_string(pos) + " gives " + std::to_string(length) + " bytes";
        return false;
      }
      end = pos + length;
      pos += 4;
    }
    do {
      if (end - pos < 4) {
        error = "a segment descriptor at offset " + std::to_string(pos) + " runs past its block";
        return false;
      }
      const size_t length = loadBe16(&file[pos]);
      const uint8_t code = file[pos + 2] & 0x03;  // 0 whole, 1 first, 2 last, 3 middle
      if (!blocked && length == 0 && std::all_of(file.begin() + pos, file.end(), [](unsigned char c) { return c == 0; }))
        pos = end = file.size();  // padding behind the last record
      if (pos == file.size()) break;
      if (length < 4 || length > end - pos) {
        error = "a segment descriptor at offset " + std::to_string(pos) + " gives " + std::to_string(length) + " bytes";
        return false;
      }
      const bool first = code == 0 || code == 1;
      if (first == open) {
        error = "a segment at offset " + std::to_string(pos) + (open ? " starts a record inside a spanned one" : " continues no record");
        return false;
      }
      if (first) records.emplace_back();
      records.back().insert(records.back().end(), file.begin() + pos + 4, file.begin() + pos + length);
      open = code == 1 || code == 3;
      pos += length;
    } while (blocked && pos < end);
  }
  if (open) {
    error = "the unload ends inside a spanned record";
    return false;
  }
  return true;
}

bool readBareUnload(const Bytes& file, size_t at, TransferContents& out, std::string& error) {
  std::vector<Bytes> records;
  if (!unloadRecords(file, at, records, error) || !readUnload(records, out.pds, error)) return false;
  out.partitioned = true;
  out.attributes.dsorg = out.pds.dsorg;
  out.attributes.recfm = out.pds.recfm;
  out.attributes.lrecl = out.pds.lrecl;
  out.attributes.blksize = out.pds.blksize;
  out.attributes.directoryBlocks = out.pds.directoryBlocks;
  for (const Bytes& r : records) out.attributes.sizeBytes += r.size();
  return true;
}

bool startsWith(const Bytes& r, const char* name) {
  const Bytes e = toEbcdic(name);
  return r.size() >= e.size() && std::equal(e.begin(), e.end(), r.begin());
}

// Fills `out` from the data set's descriptions and records.
bool takeDataSet(const std::vector<const Description*>& ds, std::vector<Bytes>& records, TransferContents& out,
                 std::string& error) {
  const Description* unload = nullptr;
  const Description* copy = nullptr;
  for (const Description* d : ds) {
    if (d->utility == kUnloadUtility) {
      unload = d;
    } else if (d->utility == kCopyUtility) {
      copy = d;
    } else {
      error = "the data set was sent with utility " + (d->utility.empty() ? std::string("(none named)") : d->utility) +
              ", which is not supported";
      return false;
    }
  }
  const Description& main = unload ? *unload : *copy;
  if (main.dsorg == kDsorgVsam) {
    error = "data set organisation VSAM is not supported";
    return false;
  }
  if (unload) {
    if (main.hasDsorg && main.dsorg != kDsorgPo) {
      error = "data set organisation 0x" + hex16(main.dsorg) + " with an unload is not supported";
      return false;
    }
    if ((main.type & 0xC0) != 0 || (!records.empty() && !records[0].empty() && (records[0][0] & 0x40) != 0)) {
      error = "the transfer file holds a PDSE unload, which is not supported";
      return false;
    }
  } else if (main.hasDsorg && main.dsorg != kDsorgPs) {
    error = "data set organisation " + std::string(main.dsorg == kDsorgPo ? "PO without an unload" : "0x" + hex16(main.dsorg)) +
            " is not supported";
    return false;
  }
  TransferAttributes& a = out.attributes;
  a.dsn = main.dsn.empty() && copy ? copy->dsn : main.dsn;
  a.dsorg = unload ? kDsorgPo : kDsorgPs;
  a.recfm = main.recfm;
  a.lrecl = main.lrecl;
  a.blksize = main.blksize;
  a.directoryBlocks = main.directory;
  a.sizeBytes = main.size;
  a.secondary = main.secondary;
  a.type = main.type;
  out.recordCount = main.hasRecordCount ? main.recordCount : (copy && copy->hasRecordCount ? copy->recordCount : records.size());
  if (unload) {
    out.partitioned = true;
    if (!readUnload(records, out.pds, error)) return false;
    if (a.directoryBlocks == 0) a.directoryBlocks = out.pds.directoryBlocks;
  } else {
    out.records = std::move(records);
  }
  return true;
}

bool readNetdata(const Bytes& file, TransferContents& out, std::string& error) {
  std::vector<Description> descriptions;
  std::map<uint32_t, std::vector<Bytes>> data;  // file number (in INMR03 order) -> records
  uint32_t dataFile = 0;                         // the file the last INMR03 opened
  uint64_t files = 0;
  bool sawEnd = false, sawStart = false;
  size_t pos = 0;
  Bytes record;
  while (!sawEnd) {
    // One record from its segments.
    record.clear();
    uint8_t kind = 0;
    const size_t recordStart = pos;
    for (bool first = true;; first = false) {
      if (file.size() - pos < 2) {
        error = pos >= file.size() ? "the file ends before INMR06" : "the file ends inside a segment header";
        if (!first) error = "the file ends inside a record";
        return false;
      }
      const size_t length = file[pos];
      const uint8_t flags = file[pos + 1];
      if (length < 2 || length > file.size() - pos) {
        error = "the segment at offset " + std::to_string(pos) + " gives " + std::to_string(length) +
                (length < 2 ? " bytes" : " bytes, past the end of the file");
        return false;
      }
      if (first != ((flags & kFirst) != 0) || (!first && (flags & (kControl | kRecordNumber)) != kind)) {
        error = "the segment at offset " + std::to_string(pos) +
                (first ? " continues no record" : " does not continue its record");
        return false;
      }
      if (first) kind = flags & (kControl | kRecordNumber);
      record.insert(record.end(), file.begin() + pos + 2, file.begin() + pos + length);
      pos += length;
      if (flags & kLast) break;
    }
    if (kind & kRecordNumber) continue;
    if (!(kind & kControl)) {
      if (dataFile == 0) {
        error = "a data record comes before INMR03";
        return false;
      }
      data[dataFile].push_back(record);
      continue;
    }
    if (!sawStart) {
      if (!startsWith(record, "INMR01")) {
        error = "not a transfer file: it does not start with INMR01";
        return false;
      }
      sawStart = true;
      if (!readOrigin(record, out.origin, files, error)) return false;
    } else if (startsWith(record, "INMR02")) {
      descriptions.emplace_back();
      if (!readDescription(record, descriptions.back(), error)) return false;
    } else if (startsWith(record, "INMR03")) {
      ++dataFile;
    } else if (startsWith(record, "INMR06")) {
      sawEnd = true;
    } else if (!startsWith(record, "INMR")) {
      error = "an unknown control record at offset " + std::to_string(recordStart);
      return false;
    }  // INMR04 (a user's record), INMR07 and others: skipped
  }

  // Files in the order of their INMR03 records: the n-th INMR03 carries the
  // data of the n-th file number that INMR02 records name.
  std::vector<uint32_t> numbers;
  for (const Description& d : descriptions)
    if (std::find(numbers.begin(), numbers.end(), d.file) == numbers.end()) numbers.push_back(d.file);
  if (dataFile > numbers.size()) {
    error = "INMR03 announces data of " + std::to_string(dataFile) + " files, INMR02 describes " +
            std::to_string(numbers.size());
    return false;
  }
  bool haveDataSet = false;
  for (size_t i = 0; i < numbers.size(); ++i) {
    std::vector<const Description*> about;
    bool term = false;
    for (const Description& d : descriptions)
      if (d.file == numbers[i]) {
        about.push_back(&d);
        term = term || d.term;
      }
    auto it = data.find(static_cast<uint32_t>(i + 1));
    std::vector<Bytes> records;
    if (it != data.end()) records = std::move(it->second);
    if (term) {
      out.message.insert(out.message.end(), records.begin(), records.end());
      continue;
    }
    if (haveDataSet) {
      error = "the transfer file holds more than one data set";
      return false;
    }
    haveDataSet = true;
    if (!takeDataSet(about, records, out, error)) return false;
  }
  if (!haveDataSet) {
    error = "the transfer file holds no data set";
    return false;
  }
  return true;
}

// ---- writing ----

// Appends records as segments to a card stream.
class SegmentWriter {
 public:
  explicit SegmentWriter(Bytes& out) : out_(out) {}
  void record(const Bytes& r, bool control) {
    size_t at = 0;
    do {
      const size_t n = std::min(r.size() - at, kMaxSegment - 2);
      uint8_t flags = control ? kControl : 0;
      if (at == 0) flags |= kFirst;
      if (at + n == r.size()) flags |= kLast;
      out_.push_back(static_cast<unsigned char>(n + 2));
      out_.push_back(flags);
      out_.insert(out_.end(), r.begin() + at, r.begin() + at + n);
      at += n;
    } while (at < r.size());
  }
  void pad() { out_.resize((out_.size() + kCard - 1) / kCard * kCard, 0); }

 private:
  Bytes& out_;
};

// Builds a control record's text units.
class ControlRecord {
 public:
  explicit ControlRecord(const char* name) : r_(toEbcdic(name)) {}
  ControlRecord& file(uint32_t n) {
    unsigned char b[4];
    storeBe32(b, n);
    r_.insert(r_.end(), b, b + 4);
    return *this;
  }
  ControlRecord& values(uint16_t key, const std::vector<Bytes>& vs) {
    put16(key);
    put16(static_cast<uint16_t>(vs.size()));
    for (const Bytes& v : vs) {
      put16(static_cast<uint16_t>(v.size()));
      r_.insert(r_.end(), v.begin(), v.end());
    }
    return *this;
  }
  ControlRecord& text(uint16_t key, const std::string& s) {
    return s.empty() ? *this : values(key, {toEbcdic(s)});
  }
  ControlRecord& number(uint16_t key, uint64_t v, size_t width) {
    Bytes b(width);
    for (size_t i = width; i-- > 0; v >>= 8) b[i] = static_cast<unsigned char>(v);
    return values(key, {b});
  }
  const Bytes& bytes() const { return r_; }

 private:
  void put16(uint16_t v) {
    r_.push_back(static_cast<unsigned char>(v >> 8));
    r_.push_back(static_cast<unsigned char>(v));
  }
  Bytes r_;
};

size_t widthOf(uint64_t v) { return v > 0xFFFFFFFFu ? 8 : v > 0xFFFF ? 4 : 2; }

bool qualifiers(const std::string& dsn, std::vector<Bytes>& out, std::string& error) {
  out.clear();
  bool good = !dsn.empty() && dsn.size() <= 44;
  size_t start = 0;
  while (good) {
    const size_t dot = std::min(dsn.find('.', start), dsn.size());
    const std::string q = dsn.substr(start, dot - start);
    good = !q.empty() && q.size() <= 8 && !(q[0] >= '0' && q[0] <= '9') && q[0] != '-';
    for (char c : q)
      good = good && ((c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '@' || c == '#' || c == '$' || c == '-');
    if (good) out.push_back(toEbcdic(q));
    if (dot == dsn.size()) break;
    start = dot + 1;
  }
  if (!good) error = "'" + dsn + "' is not a data set name (1 to 44 characters, qualifiers of 1 to 8)";
  return good;
}

uint64_t sizeOf(const std::vector<Bytes>& records) {
  uint64_t n = 0;
  for (const Bytes& r : records) n += r.size();
  return n;
}

uint32_t longest(const std::vector<Bytes>& records) {
  size_t n = 1;
  for (const Bytes& r : records) n = std::max(n, r.size());
  return static_cast<uint32_t>(n);
}

}  // namespace

bool readTransferFile(const Bytes& file, TransferContents& out, std::string& error) {
  out = TransferContents();
  error.clear();
  if (file.size() >= 8 && (file[1] & kControl) && std::equal(file.begin() + 2, file.begin() + 8, toEbcdic("INMR01").begin()))
    return readNetdata(file, out, error);
  for (size_t at : {size_t{1}, size_t{5}, size_t{9}})
    if (file.size() >= at + 3 && std::equal(kEyecatcher, kEyecatcher + 3, file.begin() + at))
      return readBareUnload(file, at, out, error);
  error = "not a transfer file: neither INMR01 nor an unload's COPYR1 at its start";
  return false;
}

bool writeTransferFile(const TransferContents& in, Bytes& out, std::string& error) {
  out.clear();
  std::vector<Bytes> dsn;
  if (!qualifiers(in.attributes.dsn, dsn, error)) return false;
  std::vector<Bytes> unload;
  if (in.partitioned && !writeUnload(in.pds, unload, error)) return false;
  const std::vector<Bytes>& records = in.partitioned ? unload : in.records;
  const bool message = !in.message.empty();
  const uint32_t files = message ? 2 : 1, dataSet = files;

  SegmentWriter w(out);
  w.record(ControlRecord("INMR01")
               .number(kInmlrecl, 80, 2)
               .text(kInmfnode, in.origin.fromNode)
               .text(kInmfuid, in.origin.fromUser)
               .text(kInmtnode, in.origin.toNode)
               .text(kInmtuid, in.origin.toUser)
               .text(kInmftime, in.origin.time)
               .number(kInmnumf, files, 4)
               .bytes(),
           true);
  if (message) {
    const uint64_t size = sizeOf(in.message);
    w.record(ControlRecord("INMR02")
                 .file(1)
                 .text(kInmutiln, kCopyUtility)
                 .values(kInmterm, {})
                 .number(kInmsize, size, widthOf(size))
                 .number(kInmdsorg, kDsorgPs, 2)
                 .number(kInmlrecl, longest(in.message) + 4, 2)
                 .number(kInmrecfm, uint16_t{0x40} << 8 | kRecfmNoRdw, 2)
                 .bytes(),
             true);
  }
  const TransferAttributes& a = in.attributes;
  const uint64_t size = sizeOf(records);
  uint32_t copyLrecl = a.lrecl, copyBlksize = a.blksize;
  uint16_t copyRecfm = static_cast<uint16_t>(a.recfm << 8 | ((a.recfm & 0xC0) == 0x40 ? kRecfmNoRdw : 0));
  if (in.partitioned) {
    ControlRecord r("INMR02");
    r.file(dataSet)
        .text(kInmutiln, kUnloadUtility)
        .number(kInmsize, a.sizeBytes ? a.sizeBytes : size, widthOf(a.sizeBytes ? a.sizeBytes : size))
        .number(kInmdsorg, kDsorgPo, 2);
    if (a.type) r.number(kInmtype, a.type, 1);
    r.number(kInmlrecl, a.lrecl, widthOf(a.lrecl))
        .number(kInmblksz, a.blksize, widthOf(a.blksize))
        .number(kInmrecfm, uint16_t{a.recfm} << 8, 2)
        .number(kInmdir, std::max(a.directoryBlocks, in.pds.directoryBlocks), 4)
        .values(kInmdsnam, dsn);
    w.record(r.bytes(), true);
    const uint32_t container = loadBe16(&unload[0][14]);
    copyBlksize = container;
    copyLrecl = container - 4;
    copyRecfm = uint16_t{kRecfmVs} << 8 | kRecfmNoRdw;
  }
  ControlRecord copy("INMR02");
  copy.file(dataSet)
      .text(kInmutiln, kCopyUtility)
      .number(kInmsize, size, widthOf(size))
      .number(kInmdsorg, kDsorgPs, 2)
      .number(kInmlrecl, copyLrecl, widthOf(copyLrecl))
      .number(kInmblksz, copyBlksize, widthOf(copyBlksize))
      .number(kInmrecfm, copyRecfm, 2);
  if (!in.partitioned) {
    if (a.secondary) copy.number(kInmsecnd, a.secondary, widthOf(a.secondary));
    copy.values(kInmdsnam, dsn);
  }
  w.record(copy.bytes(), true);

  if (message) {
    w.record(ControlRecord("INMR03")
                 .number(kInmsize, sizeOf(in.message), widthOf(sizeOf(in.message)))
                 .number(kInmdsorg, kDsorgPs, 2)
                 .number(kInmlrecl, longest(in.message) + 4, 2)
                 .number(kInmrecfm, uint16_t{0x40} << 8 | kRecfmNoRdw, 2)
                 .bytes(),
             true);
    for (const Bytes& r : in.message) w.record(r, false);
  }
  w.record(ControlRecord("INMR03")
               .number(kInmsize, size, widthOf(size))
               .number(kInmdsorg, kDsorgPs, 2)
               .number(kInmlrecl, copyLrecl, widthOf(copyLrecl))
               .number(kInmrecfm, copyRecfm, 2)
               .bytes(),
           true);
  for (const Bytes& r : records) w.record(r, false);
  w.record(ControlRecord("INMR06").bytes(), true);
  w.pad();
  return true;
}

}  // namespace ckdvol
