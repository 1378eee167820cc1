// ckdvol pds: list, read, replace and extract the members of a partitioned
// data set.
//
//   ckdvol pds list FILE DSN [--json]             directory: member, alias, TTR, size, statistics
//   ckdvol pds read FILE DSN MEMBER [--raw|--text|--records]
//   ckdvol pds replace FILE DSN MEMBER [INPUT] [--raw]
//   ckdvol pds extract FILE DSN DIR [--raw] [--suffix S] [--force]
//
// list, read and extract go through the data-set layer: the VTOC's own
// extent, relative tracks with the device's real heads per cylinder, every
// record format. A member is rewritten in place by the access method,
// keeping its blocks and its number of records, so `replace` checks the
// input against the member first and changes nothing when it does not fit.
// Only `replace` opens the volume for writing.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "ckdfile/emulated_ckd_file.h"
#include "command.h"
#include "common/data_translator.h"
#include "data_sets.h"
#include "journaled_change.h"
#include "open_failure.h"
#include "pds/basic_partitioned_access_method.h"
#include "stdout_notes.h"
#include "text_output.h"
#include "tool_util.h"
#include "volume/dsk_volume.h"
#include "vtoc_fallback.h"

namespace ckdvol_tool {
namespace {

using Bpam = BasicPartionedAccessMethod;
using ckdvol::MemberInfo;
using Json = nlohmann::ordered_json;

constexpr unsigned char kEbcdicBlank = 0x40;
constexpr int kDscbTracksPerCylinder = 15;
const DataTranslator kText(DataTranslator::XLATE_EBCDIC_ASCII);

std::string hex(unsigned value, int width) {
  char buf[16];
  std::snprintf(buf, sizeof(buf), "%0*X", width, value);
  return buf;
}

// An open volume and the data set on it.
struct OpenPds {
  VolumeLock lock;  // exclusive for replace, else shared; released last
  EmulatedCKDfile file;
  DskVolume volume;
  std::unique_ptr<Bpam> pds;
  ~OpenPds() {
    pds.reset();
    volume.close();
    file.close();
  }
};

// Opens FILE and the data set DSN; on failure explains it and returns the
// exit status in `status`.
std::unique_ptr<OpenPds> openPds(const std::string& path, const std::string& dsn, bool readOnly,
                                 int& status) {
  std::unique_ptr<OpenPds> p(new OpenPds());
  if ((status = p->lock.acquire(path, !readOnly)) != kExitOk) return nullptr;
  int rc = p->file.open(path.c_str(), readOnly);
  if (rc < 0) {
    status = openFailed(path, rc, errno, p->file.errorText);
    return nullptr;
  }
  {
    // The volume open writes "vtoc.initialize errno is N" on failure: a note.
    StdoutNotes notes(path);
    rc = p->volume.open(&p->file);
  }
  if (rc != 0) {
    // A VTOC the volume classes refuse may still be read from its own
    // extent; the data set is then looked up among those DSCBs.
    ckdvol::VtocInfo info;
    std::string error;
    if (ckdvol::scanVtoc(p->file, info, error) != ckdvol::kScanOk) {
      status = fail(path, "cannot read the volume label or the VTOC: " + error + (readOnly ? "" : "; nothing was changed"));
      return nullptr;
    }
    std::fprintf(stderr,
                 "ckdvol: note: %s: the volume classes' VTOC reader refuses this volume; the data set is "
                 "looked up among the DSCBs of the VTOC's own extent\n",
                 path.c_str());
    fillFromExtent(p->file, info, p->volume.vtoc);
  }
  if (dsn.empty()) {
    status = failWith(kExitUsage, "no data set name given");
    return nullptr;
  }
  p->pds.reset(new Bpam(p->volume));
  rc = p->pds->openDataset(dsn.c_str());
  std::string cause;
  switch (rc) {
    case Bpam::kOpenOk:
      return p;
    case Bpam::kOpenNoName:
      cause = "no data set name given";
      break;
    case Bpam::kOpenNotFound: {
      ckdvol::VtocInfo vtoc;
      std::string error;
      std::vector<std::string> names;
      if (ckdvol::scanVtoc(p->file, vtoc, error) == ckdvol::kScanOk) {
        for (const ckdvol::DataSetInfo& d : vtoc.dataSets) names.push_back(d.name);
      }
      cause = "data set " + dsn + " not found (no Format-1 DSCB of that name)" +
              didYouMean(nearNames(names, dsn));
      break;
    }
    case Bpam::kOpenNotPartitioned: {
      const Format1DSCB* f1 = p->volume.vtoc.locateDataset(dsn.c_str());
      cause = "data set " + dsn + " is not partitioned (DSORG " +
              (f1 != nullptr ? hex(f1->getDSorg(), 4) : std::string("?")) +
              ", wanted 0200 or 0300)";
      break;
    }
    case Bpam::kOpenNoExtent:
      cause = "data set " + dsn + " has no extent";
      break;
    case Bpam::kOpenUnreadable:
      cause = "the first track of data set " + dsn + " cannot be read";
      break;
    case Bpam::kOpenNoFirstRecord:
      cause = "data set " + dsn + " has no directory (its first track holds no record 1)";
      break;
    default:
      cause = "data set " + dsn + " cannot be opened (result " + std::to_string(rc) + ")";
  }
  status = fail(path, readOnly ? cause : cause + "; nothing was changed");
  return nullptr;
}

// Total tracks of the extents as the access method counts them.
long long extentTracks(const Bpam& pds) {
  long long total = 0;
  for (int i = 0; i < pds.extents.count; ++i) {
    const Bpam::Extent* e = pds.extents.get(i);
    if (e != nullptr && e->tracks > 0) total += e->tracks;
  }
  return total;
}

// Explains a failed readMember/replaceMember result.
std::string memberFailure(const OpenPds& p, const std::string& dsn, const std::string& member,
                          int rc) {
  const Bpam& pds = *p.pds;
  switch (rc) {
    case Bpam::kReadNoMember:
      return "member " + member + " not found in data set " + dsn;
    case Bpam::kReadOutsideExtents:
    case Bpam::kReplaceOutsideExtents: {
      std::string s = "member " + member + " of data set " + dsn + " starts at relative track " +
                      std::to_string(pds.memberTrack) + ", beyond the " +
                      std::to_string(extentTracks(pds)) +
                      " tracks of the data set's extents as the access method counts them (" +
                      std::to_string(kDscbTracksPerCylinder) + " tracks per cylinder)";
      unsigned heads = p.file.tracksPerCylinder;
      if (heads != kDscbTracksPerCylinder) {
        s += "; this device has " + std::to_string(heads) +
             " heads per cylinder, so for extents that span cylinders that count differs from"
             " the real number of tracks";
      }
      return s;
    }
    case Bpam::kReadUnreadable:
    case Bpam::kReplaceUnreadable:
      return "the first track of member " + member + " cannot be read";
    case Bpam::kReadUndefinedLength:
      return "data set " + dsn + " does not hold fixed-length records (RECFM " +
             hex(pds.recordFormat & 0xFF, 2) + ", LRECL " + std::to_string(pds.recordLength) +
             "); its members cannot be cut into records";
    case Bpam::kReplaceCountMismatch:
      return "member " + member + " has " + std::to_string(pds.records.count) + " records but " +
             std::to_string(pds.newRecords.count) + " were given; nothing changed";
    case Bpam::kReplaceBlockWrite:
      return "a block of member " + member + " could not be rewritten";
    case Bpam::kReplaceTrackWrite:
      // The write-back that failed is the one of the track still held: a
      // failure on the way to the next track ends the walk there.
      if (p.file.currentCyl != 0xFFFFFFFFu) {
        return "the track at cylinder " + std::to_string(p.file.currentCyl) + " head " +
               std::to_string(p.file.currentHead) + " of member " + member + " could not be written" +
               (errno != 0 ? std::string(": ") + std::strerror(errno) : std::string());
      }
      return "a track of member " + member + " could not be written";
    default:
      return "member " + member + ": result " + std::to_string(rc);
  }
}

// Reads all of `path` (standard input when empty) into `data`. False after
// a message naming the input and the cause (a directory, a read error).
bool readInput(const std::string& path, std::string& data) {
  const std::string name = path.empty() ? "standard input" : path;
  int fd = STDIN_FILENO;
  if (!path.empty()) {
    fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
      fail(name, std::string("cannot read the input: ") + std::strerror(errno));
      return false;
    }
  }
  struct stat st;
  if (::fstat(fd, &st) == 0 && S_ISDIR(st.st_mode)) {
    if (fd != STDIN_FILENO) ::close(fd);
    fail(name, "cannot read the input: it is a directory; give a file with the member's new text");
    return false;
  }
  char buf[65536];
  ssize_t n;
  while ((n = ::read(fd, buf, sizeof buf)) != 0) {
    if (n < 0) {
      if (errno == EINTR) continue;
      const int err = errno;
      if (fd != STDIN_FILENO) ::close(fd);
      fail(name, std::string("cannot read the input: ") + std::strerror(err));
      return false;
    }
    data.append(buf, static_cast<size_t>(n));
  }
  if (fd != STDIN_FILENO) ::close(fd);
  return true;
}

// ---- replace -------------------------------------------------------------------

// The track slots replaceMember rewrites: from the member's first block
// along its blocks, as the library walks them, to the track where the walk
// stops (written back last). False when a track cannot be read.
bool memberSlots(Bpam& pds, EmulatedCKDfile& f, std::vector<uint64_t>& slots) {
  int cyl = 0, head = 0;
  if (!pds.tt2cchh(pds.memberTrack, cyl, head)) return false;
  if (f.readTrack(static_cast<unsigned>(cyl), static_cast<unsigned short>(head), 0) != EmulatedCKDfile::kTrackOk) {
    return false;
  }
  auto add = [&] {
    const long long at = f.getOffset(f.currentCyl, f.currentHead, f.currentCell, true);
    if (at >= 0 && (slots.empty() || slots.back() != static_cast<uint64_t>(at))) slots.push_back(static_cast<uint64_t>(at));
  };
  add();
  const void* ref = f.searchRecord(nullptr, static_cast<unsigned>(cyl), static_cast<unsigned short>(head),
                                   static_cast<unsigned char>(pds.memberRecord));
  while (ref != nullptr) {
    add();
    const int length = f.getRefDL(ref);
    const unsigned char* data = f.getRefData(ref);
    const unsigned char* end = f.trackBuffer + f.trackSlotSize;
    if (length <= 0 || data == nullptr || data < f.trackBuffer || data >= end || length > end - data ||
        length > pds.blockSize || length % pds.recordLength != 0) {
      break;
    }
    ref = f.locateNext(ref, true);
  }
  add();
  return true;
}


int runReplace(const std::string& path, const std::string& dsn, const std::string& member,
               const std::string& input, bool raw) {
  std::string data;
  const bool fromStdin = input.empty() || input == "-";
  const std::string source = fromStdin ? "standard input" : input;
  if (!readInput(fromStdin ? std::string() : input, data)) return kExitFailure;

  int status = kExitOk;
  std::unique_ptr<OpenPds> p = openPds(path, upperName(dsn), false, status);
  if (!p) return status;
  Bpam& pds = *p->pds;
  int rc = pds.readMember(member.c_str());
  if (rc != Bpam::kReadOk) {
    return fail(path, memberFailure(*p, upperName(dsn), upperName(member), rc) + "; nothing was changed");
  }
  const int lrecl = pds.recordLength;
  const int count = pds.records.count;

  // Every new record is padded to the record length with EBCDIC blanks here,
  // so an empty line still makes a record.
  std::vector<std::string> lines;
  if (raw) {
    if (data.size() % static_cast<size_t>(lrecl) != 0) {
      return fail(path, source + " holds " + std::to_string(data.size()) +
                            " bytes, not a whole number of " + std::to_string(lrecl) +
                            "-byte records; member " + member + " not changed");
    }
    for (size_t off = 0; off < data.size(); off += static_cast<size_t>(lrecl)) {
      lines.push_back(data.substr(off, static_cast<size_t>(lrecl)));
    }
  } else {
    size_t start = 0;
    while (start < data.size()) {
      size_t nl = data.find('\n', start);
      size_t end = nl == std::string::npos ? data.size() : nl;
      std::string line = data.substr(start, end - start);
      if (!line.empty() && line.back() == '\r') line.pop_back();
      if (line.size() > static_cast<size_t>(lrecl)) {
        return fail(path, "line " + std::to_string(lines.size() + 1) + " of " + source + " has " +
                              std::to_string(line.size()) +
                              " characters, more than the record length " + std::to_string(lrecl) +
                              "; member " + member + " not changed");
      }
      kText.copyA2E(&line[0], line.data(), static_cast<unsigned>(line.size()));
      line.resize(static_cast<size_t>(lrecl), static_cast<char>(kEbcdicBlank));
      lines.push_back(line);
      start = end + 1;
    }
  }
  if (static_cast<int>(lines.size()) != count) {
    return fail(path, "member " + member + " has " + std::to_string(count) + " records of " +
                          std::to_string(lrecl) + " bytes but " + source + " gives " +
                          std::to_string(lines.size()) + (raw ? " records" : " lines") +
                          "; a member keeps its size, so nothing was changed");
  }
  for (size_t i = 0; i < lines.size(); ++i) {
    if (pds.setRecord(static_cast<int>(i), lines[i].data(), static_cast<int>(lines[i].size())) !=
        Bpam::kSetOk) {
      return fail(path, "record " + std::to_string(i + 1) + " was refused; member " + member +
                            " not changed");
    }
  }
  std::vector<uint64_t> slots;
  if (!memberSlots(pds, p->file, slots)) {
    return fail(path, "cannot read the tracks of member " + upperName(member) + "; nothing was changed");
  }
  status = journaledChange(p->file, path, "pds replace", slots, [&]() -> std::string {
    const int r = pds.replaceMember(member.c_str());
    return r == Bpam::kReplaceOk ? std::string() : memberFailure(*p, upperName(dsn), upperName(member), r);
  });
  if (status != kExitOk) return status;
  if (p->file.close() != 0) return fail(path, "closing the volume failed after the member was replaced");
  return kExitOk;
}

// ---- list ----------------------------------------------------------------------

std::string ttrText(const MemberInfo& m) { return hex(m.track, 4) + hex(m.record, 2); }

std::string timeText(const ckdvol::MemberStatistics& s) {
  char buf[32];
  std::snprintf(buf, sizeof buf, "%02u:%02u:%02u", s.changedHour, s.changedMinute, s.changedSecond);
  return buf;
}

struct SizeResult {
  int rc = 0;
  ckdvol::MemberSize size;
  std::string error;
};

// Scans the volume, finds the data set `dsn` and reads its directory into
// `members`. kExitOk, or the status after a message naming what failed.
int loadDirectory(const std::string& path, const std::string& dsn, ScannedVolume& v,
                  const ckdvol::DataSetInfo*& ds, std::vector<MemberInfo>& members) {
  int status = scanVolume(path, v, true);
  if (status != kExitOk) return status;
  ds = findDataSetOrFail(v, dsn, status);
  if (ds == nullptr) return status;
  return readDirectoryOrFail(v, *ds, members);
}

int runList(const std::string& path, const std::string& dsn, bool json) {
  ScannedVolume v;
  const ckdvol::DataSetInfo* ds = nullptr;
  std::vector<MemberInfo> members;
  int status = loadDirectory(path, dsn, v, ds, members);
  if (status != kExitOk) return status;

  // Sizes, once per TTR (an alias shares its member's blocks).
  std::map<uint32_t, SizeResult> sizes;
  for (const MemberInfo& m : members) {
    const uint32_t ttr = (static_cast<uint32_t>(m.track) << 8) | m.record;
    if (sizes.count(ttr) != 0) continue;
    SizeResult& r = sizes[ttr];
    r.rc = ckdvol::memberSize(v.file, *ds, m, r.size, r.error);
  }
  auto sizeOf = [&](const MemberInfo& m) -> const SizeResult& {
    return sizes[(static_cast<uint32_t>(m.track) << 8) | m.record];
  };

  if (json) {
    Json list = Json::array();
    for (const MemberInfo& m : members) {
      const SizeResult& r = sizeOf(m);
      Json stats = nullptr;
      if (m.hasStatistics) {
        const ckdvol::MemberStatistics& s = m.statistics;
        stats = {{"version", s.version},
                 {"modification", s.modification},
                 {"created", s.created.empty() ? Json(nullptr) : Json(julianText(s.created))},
                 {"changed", s.changed.empty() ? Json(nullptr) : Json(julianText(s.changed))},
                 {"changedTime", timeText(s)},
                 {"currentLines", s.currentLines},
                 {"initialLines", s.initialLines},
                 {"modifiedLines", s.modifiedLines},
                 {"userId", s.userId}};
      }
      list.push_back({{"name", m.name},
                      {"alias", m.alias},
                      {"aliasOf", m.aliasOf.empty() ? Json(nullptr) : Json(m.aliasOf)},
                      {"ttr", ttrText(m)},
                      {"userDataLength", m.userData.size()},
                      {"userTtrs", m.userTtrs},
                      {"blocks", r.size.blocks},
                      {"records", r.size.records},
                      {"bytes", r.size.bytes},
                      {"error", r.rc < 0 ? Json(r.error) : Json(nullptr)},
                      {"statistics", stats}});
    }
    Json doc = {{"file", path}, {"dataSet", ds->name}, {"members", list}};
    std::printf("%s\n", doc.dump(2).c_str());
  } else {
    std::printf("%-8s  %-8s  %-6s  %7s  %9s  %-5s  %-8s  %-17s  %6s  %6s  %6s  %s\n", "MEMBER", "ALIAS-OF", "TTR",
                "RECORDS", "BYTES", "VV.MM", "CREATED", "CHANGED", "SIZE", "INIT", "MOD", "ID");
    for (const MemberInfo& m : members) {
      const SizeResult& r = sizeOf(m);
      const std::string records = r.rc < 0 ? "?" : std::to_string(r.size.records);
      const std::string bytes = r.rc < 0 ? "?" : std::to_string(r.size.bytes);
      std::string stats;
      if (m.hasStatistics) {
        const ckdvol::MemberStatistics& s = m.statistics;
        char line[160];
        std::snprintf(line, sizeof line, "%02u.%02u  %-8s  %-17s  %6u  %6u  %6u  %s", s.version, s.modification,
                      julianText(s.created).c_str(),
                      s.changed.empty() ? "" : (julianText(s.changed) + " " + timeText(s)).c_str(), s.currentLines,
                      s.initialLines, s.modifiedLines, s.userId.c_str());
        stats = line;
      }
      char head[96];
      std::snprintf(head, sizeof head, "%-8s  %-8s  %-6s  %7s  %9s", m.name.c_str(), m.aliasOf.c_str(),
                    ttrText(m).c_str(), records.c_str(), bytes.c_str());
      std::string out = std::string(head) + (stats.empty() ? "" : "  " + stats);
      while (!out.empty() && out.back() == ' ') out.pop_back();
      std::printf("%s\n", out.c_str());
    }
  }
  if (std::fflush(stdout) != 0) return fail("standard output", "cannot write the listing");
  int result = kExitOk;
  for (const MemberInfo& m : members) {
    const SizeResult& r = sizeOf(m);
    if (r.rc < 0 && !m.alias) {
      result = fail(path, "member " + m.name + " of " + ds->name + " cannot be read: " + r.error);
    }
  }
  if (members.empty()) {
    std::fprintf(stderr, "ckdvol: note: %s: the directory of %s holds no members\n", path.c_str(),
                 ds->name.c_str());
  }
  return result;
}

// ---- read ----------------------------------------------------------------------

struct ReadOptions {
  bool raw = false;      // the records' bytes
  bool text = false;     // text lines even for RECFM U
  bool records = false;  // length-prefixed records
  TextOptions textOptions;
};

Render renderFor(const ReadOptions& o) {
  if (o.records) return Render::kRecords;
  if (o.raw) return Render::kData;
  if (o.text) return Render::kText;
  return Render::kAuto;
}

int runRead(const std::string& path, const std::string& dsn, const std::string& member, const ReadOptions& o) {
  ScannedVolume v;
  const ckdvol::DataSetInfo* ds = nullptr;
  std::vector<MemberInfo> members;
  int status = loadDirectory(path, dsn, v, ds, members);
  if (status != kExitOk) return status;
  const MemberInfo* m = findMemberOrFail(v, *ds, members, member);
  if (m == nullptr) return kExitFailure;
  StreamStats stats;
  return streamWhole(v, *ds, m, renderFor(o), o.textOptions, stdout, "standard output",
                     ds->name + "(" + m->name + ")", true, stats);
}

// ---- extract -------------------------------------------------------------------

// Makes `dir` and its missing parents. Empty, or the cause.
std::string makeDirectories(const std::string& dir) {
  std::string sofar;
  size_t pos = 0;
  while (pos <= dir.size()) {
    const size_t slash = dir.find('/', pos);
    const size_t end = slash == std::string::npos ? dir.size() : slash;
    sofar = dir.substr(0, end);
    pos = end + 1;
    if (sofar.empty() || sofar == "." || sofar == "..") continue;
    struct stat st;
    if (::stat(sofar.c_str(), &st) == 0) {
      if (!S_ISDIR(st.st_mode)) return sofar + " exists and is not a directory";
      continue;
    }
    if (::mkdir(sofar.c_str(), 0777) != 0 && errno != EEXIST) {
      return "cannot make the directory " + sofar + ": " + std::strerror(errno);
    }
  }
  return "";
}

int runExtract(const std::string& path, const std::string& dsn, const std::string& dir, const ReadOptions& o,
               const std::string& suffix, bool force) {
  ScannedVolume v;
  const ckdvol::DataSetInfo* ds = nullptr;
  std::vector<MemberInfo> members;
  int status = loadDirectory(path, dsn, v, ds, members);
  if (status != kExitOk) return status;
  if (members.empty()) return fail(path, "the directory of " + ds->name + " holds no members; nothing extracted");

  // Every target first: nothing is written when one would be overwritten.
  std::vector<std::string> targets;
  std::vector<std::string> existing;
  for (const MemberInfo& m : members) {
    std::string name = m.name;
    for (char& c : name) {
      if (c == '/' || c == '\0') c = '_';
    }
    if (name == "." || name == "..") name = "_" + name;
    targets.push_back(dir + "/" + name + suffix);
    struct stat st;
    if (::lstat(targets.back().c_str(), &st) == 0) existing.push_back(targets.back());
  }
  if (!existing.empty() && !force) {
    std::string names;
    for (size_t i = 0; i < existing.size() && i < 3; ++i) names += (i ? ", " : "") + existing[i];
    if (existing.size() > 3) names += " and " + std::to_string(existing.size() - 3) + " more";
    return fail(dir, count(existing.size(), "file") + " would be overwritten (" + names +
                         "); nothing was written: give --force to overwrite them");
  }
  const std::string made = makeDirectories(dir);
  if (!made.empty()) return fail(dir, made);

  size_t written = 0;
  uint64_t bytes = 0;
  std::vector<std::string> failed;
  for (size_t i = 0; i < members.size(); ++i) {
    const MemberInfo& m = members[i];
    StreamStats stats;
    if (streamToFile(v, *ds, &m, renderFor(o), o.textOptions, targets[i], ds->name + "(" + m.name + ")", stats) !=
        kExitOk) {
      failed.push_back(m.name);
      continue;
    }
    ++written;
    bytes += stats.bytes;
  }
  std::printf("%s of %s written to %s (%s of data)\n", count(written, "member").c_str(), ds->name.c_str(),
              dir.c_str(), count(bytes, "byte").c_str());
  if (std::fflush(stdout) != 0) return fail("standard output", std::strerror(errno));
  if (failed.empty()) return kExitOk;
  std::string names;
  for (const std::string& name : failed) names += (names.empty() ? "" : ", ") + name;
  return fail(path, count(failed.size(), "member") + " of " + ds->name + " not extracted: " + names +
                        " (the messages above say why)");
}

void addReadOptions(CLI::App& app, ReadOptions& o, bool withText) {
  auto* raw = app.add_flag("--raw", o.raw, "Write the records' bytes unchanged, no line ends");
  if (withText) {
    auto* records = app.add_flag("--records", o.records,
                                 "Write each record as a 4-byte big-endian length, then its bytes");
    auto* text = app.add_flag("--text", o.text, "Text lines even for RECFM U (undefined-length) blocks");
    raw->excludes(records)->excludes(text);
    records->excludes(text);
  }
  addTextOptions(app, o.textOptions);
}

const CommandRegistration kRegistration(Command{
    "pds", "List, read, replace or extract members of a partitioned data set", 60,
    [](CLI::App& app) -> std::function<int()> {
      struct Args {
        std::string file, dsn, member, input, dir, suffix;
        bool raw = false, json = false, force = false;
        ReadOptions read, extract;
      };
      auto a = std::make_shared<Args>();
      app.require_subcommand(1);
      CLI::App* list = app.add_subcommand(
          "list", "List the directory: member, alias, TTR, size and statistics");
      list->add_option("FILE", a->file, "Volume file")->required();
      list->add_option("DSN", a->dsn, "Data set name (any case)")->required();
      list->add_flag("--json", a->json, "Print the directory as one JSON object");
      list->footer(
          "One line per directory entry, in directory order: the member name, for an\n"
          "alias the member it names (same TTR), the TTR of its first block, its records\n"
          "and data bytes (read up to its end-of-file record; an alias shares its\n"
          "member's), and where the entry holds the usual statistics: version.modification,\n"
          "created and changed dates (YYYY.DDD) and time, current, initial and modified\n"
          "line counts and the user id. A member that cannot be read shows ? and ends the\n"
          "command with status 1 and a message naming the block and what is wrong.");

      CLI::App* read = app.add_subcommand("read", "Write a member as text lines, or its bytes");
      read->add_option("FILE", a->file, "Volume file")->required();
      read->add_option("DSN", a->dsn, "Data set name (any case)")->required();
      read->add_option("MEMBER", a->member, "Member name (any case)")->required();
      addReadOptions(*read, a->read, true);
      read->footer(std::string("Records of every format (F, FB, V, VB, VS, VBS, U) are read. F and V records\n"
                               "are written as text lines; RECFM U blocks (load modules) as their bytes, and\n"
                               "not to a terminal unless --raw or --text is given. --raw writes the records'\n"
                               "bytes back to back (V records without their descriptor words); --records\n"
                               "puts a 4-byte big-endian length before each. The member is held until it\n"
                               "has been read whole: one that cannot be (an I/O error, a damaged track or\n"
                               "block) ends with status 1, a message naming the block, and no output.\n") +
                   kTextOptionsHelp);

      CLI::App* replace = app.add_subcommand(
          "replace", "Replace a member's records in place from INPUT or standard input");
      replace->footer(
          "Text lines are translated to EBCDIC (code page 037, ISO-8859-1 input). The member\n"
          "keeps its size: the input must give exactly as many records as the member has,\n"
          "each at most the record length (shorter ones are padded with blanks); otherwise\n"
          "nothing is changed. Only fixed-length records are replaced.");
      replace->add_option("FILE", a->file, "Volume file")->required();
      replace->add_option("DSN", a->dsn, "Data set name (any case)")->required();
      replace->add_option("MEMBER", a->member, "Member name (any case)")->required();
      replace->add_option("INPUT", a->input, "Input file (default: standard input)");
      replace->add_flag("--raw", a->raw,
                        "INPUT holds EBCDIC records of exactly the record length, back to back");

      CLI::App* extract = app.add_subcommand("extract", "Write every member to a file DIR/MEMBER");
      extract->add_option("FILE", a->file, "Volume file")->required();
      extract->add_option("DSN", a->dsn, "Data set name (any case)")->required();
      extract->add_option("DIR", a->dir, "Target directory (made with its parents if missing)")->required();
      extract->add_option("--suffix", a->suffix, "Append this to every file name (e.g. .txt)");
      extract->add_flag("--force", a->force, "Overwrite files that exist");
      addReadOptions(*extract, a->extract, false);
      extract->footer(std::string("Every directory entry, aliases included, becomes a file DIR/NAME[SUFFIX]:\n"
                                  "text lines for F and V records, the blocks' bytes for RECFM U (load\n"
                                  "modules), the records' bytes with --raw. When any of the files exists,\n"
                                  "nothing is written unless --force is given. Each member goes to a temporary\n"
                                  "file beside its target, renamed into place once it is complete: a member\n"
                                  "that cannot be read whole leaves no file (an existing one as it was); the\n"
                                  "others are written, and the status is 1 with the failures named.\n") +
                      kTextOptionsHelp);

      return [a, list, read, replace, extract]() -> int {
        if (list->parsed()) return runList(a->file, a->dsn, a->json);
        if (read->parsed()) return runRead(a->file, a->dsn, a->member, a->read);
        if (replace->parsed()) return runReplace(a->file, a->dsn, a->member, a->input, a->raw);
        if (extract->parsed()) return runExtract(a->file, a->dsn, a->dir, a->extract, a->suffix, a->force);
        return kExitUsage;
      };
    }});

}  // namespace
}  // namespace ckdvol_tool
