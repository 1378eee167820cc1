#include "data_sets.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "command.h"
#include "dataset/block_reader.h"
#include "dataset/record_reader.h"
#include "open_failure.h"

namespace ckdvol_tool {
namespace {

std::string lastQualifier(const std::string& name) {
  const size_t dot = name.rfind('.');
  return dot == std::string::npos ? name : name.substr(dot + 1);
}

std::string scanCause(int rc, const std::string& error) {
  switch (rc) {
    case ckdvol::kScanNoLabel:
      return "no volume label: " + error;
    case ckdvol::kScanVtocUnreadable:
      return "the VTOC cannot be read: " + error;
    case ckdvol::kScanNoFormat4:
      return "no VTOC: " + error;
    default:
      return "the VTOC cannot be read (result " + std::to_string(rc) + "): " + error;
  }
}

void putBe32(unsigned char* p, uint32_t v) {
  p[0] = static_cast<unsigned char>(v >> 24);
  p[1] = static_cast<unsigned char>(v >> 16);
  p[2] = static_cast<unsigned char>(v >> 8);
  p[3] = static_cast<unsigned char>(v);
}

}  // namespace

int scanVolume(const std::string& path, ScannedVolume& v, bool withNotes) {
  v.path = path;
  if (int status = v.lock.acquire(path, false)) return status;
  const int rc = v.file.open(path.c_str(), true);
  if (rc < 0) return openFailed(path, rc, errno, v.file.errorText);
  std::string error;
  const int scan = ckdvol::scanVtoc(v.file, v.vtoc, error);
  if (scan != ckdvol::kScanOk) return fail(path, scanCause(scan, error));
  if (withNotes) {
    for (const std::string& note : v.vtoc.notes) {
      std::fprintf(stderr, "ckdvol: note: %s: %s\n", path.c_str(), note.c_str());
    }
  }
  return kExitOk;
}

std::string upperName(const std::string& name) {
  const size_t first = name.find_first_not_of(' ');
  if (first == std::string::npos) return "";
  std::string s = name.substr(first, name.find_last_not_of(' ') - first + 1);
  for (char& c : s) {
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  }
  return s;
}

std::vector<std::string> nearNames(const std::vector<std::string>& names, const std::string& wanted) {
  const std::string want = upperName(wanted);
  const size_t limit = std::max<size_t>(2, want.size() / 4);
  std::vector<std::pair<size_t, std::string>> found;
  for (const std::string& n : names) {
    const size_t d = editDistance(want, upperName(n));
    if (d <= limit) {
      found.emplace_back(d, n);
    } else if (want.find('.') != std::string::npos && lastQualifier(upperName(n)) == lastQualifier(want)) {
      found.emplace_back(limit + 1, n);
    }
  }
  std::stable_sort(found.begin(), found.end(),
                   [](const std::pair<size_t, std::string>& a, const std::pair<size_t, std::string>& b) {
                     return a.first < b.first;
                   });
  std::vector<std::string> out;
  for (size_t i = 0; i < found.size() && i < 5; ++i) out.push_back(found[i].second);
  return out;
}

std::string didYouMean(const std::vector<std::string>& near) {
  if (near.empty()) return "";
  std::string s;
  for (const std::string& n : near) s += (s.empty() ? "" : ", ") + n;
  return " (did you mean " + s + "?)";
}

const ckdvol::DataSetInfo* findDataSetOrFail(const ScannedVolume& v, const std::string& dsn, int& status,
                                             const std::string& afterwards) {
  const std::string upper = upperName(dsn);
  if (upper.empty()) {
    status = failWith(kExitUsage, "no data set name given ('ckdvol ls " + v.path + "' lists them)");
    return nullptr;
  }
  const ckdvol::DataSetInfo* ds = ckdvol::findDataSet(v.vtoc, dsn);
  if (ds == nullptr) ds = ckdvol::findDataSet(v.vtoc, upper);
  if (ds == nullptr) {
    std::vector<std::string> names;
    for (const ckdvol::DataSetInfo& d : v.vtoc.dataSets) names.push_back(d.name);
    // A VTOC track that could not be read may have held it: not found is
    // then no answer.
    std::string unread;
    for (const std::string& note : v.vtoc.notes) {
      if (note.find("cannot be read") != std::string::npos) unread += (unread.empty() ? "" : "; ") + note;
    }
    status = fail(v.path, "data set " + upper + " not found on volume " + upperName(v.vtoc.volser) +
                              didYouMean(nearNames(names, upper)) +
                              (unread.empty() ? "; 'ckdvol ls " + v.path + "' lists the data sets"
                                              : ", but the VTOC could not be read whole (" + unread +
                                                    "): it may be on the part that was not read") +
                              afterwards);
    return nullptr;
  }
  if (!ds->damage.empty()) {
    status = fail(v.path, "data set " + ds->name + " cannot be read: " + ds->damage + afterwards);
    return nullptr;
  }
  status = kExitOk;
  return ds;
}

int readDirectoryOrFail(ScannedVolume& v, const ckdvol::DataSetInfo& ds,
                        std::vector<ckdvol::MemberInfo>& members) {
  if (!ds.partitioned()) {
    return fail(v.path, "data set " + ds.name + " is not partitioned (DSORG " + dsorgText(ds.dsorg) +
                            "); 'ckdvol cat " + v.path + " " + ds.name + "' reads it");
  }
  std::string error;
  const int rc = ckdvol::readDirectory(v.file, ds, members, error);
  if (rc != ckdvol::kDirectoryOk) {
    return fail(v.path, "the directory of " + ds.name + " is damaged: " + error + " (" +
                            std::to_string(members.size()) + (members.size() == 1 ? " entry" : " entries") +
                            " read before it)");
  }
  return kExitOk;
}

const ckdvol::MemberInfo* findMemberOrFail(const ScannedVolume& v, const ckdvol::DataSetInfo& ds,
                                           const std::vector<ckdvol::MemberInfo>& members,
                                           const std::string& name) {
  const std::string upper = upperName(name);
  for (const ckdvol::MemberInfo& m : members) {
    if (m.name == name || m.name == upper) return &m;
  }
  std::vector<std::string> names;
  for (const ckdvol::MemberInfo& m : members) names.push_back(m.name);
  fail(v.path, "member " + upper + " not found in data set " + ds.name + didYouMean(nearNames(names, upper)) +
                   "; 'ckdvol pds list " + v.path + " " + ds.name + "' lists the members");
  return nullptr;
}

namespace {

// What became of the output when a read failed part-way.
enum class Partial {
  kWritten,  // what was read before it has been written
  kDropped   // it was held, and is dropped: nothing was written
};

// stream() with the terminal check made by the caller (`terminal`: the
// data's final destination is one) and the wording of a failed read.
int streamTo(ScannedVolume& v, const ckdvol::DataSetInfo& ds, const ckdvol::MemberInfo* member, Render render,
             const TextOptions& text, FILE* out, const std::string& outName, const std::string& what,
             bool terminal, Partial partial, StreamStats& stats) {
  const ckdvol::Deblocking deblocking = ckdvol::deblockingFor(ds.recfm);
  if (render == Render::kAuto) {
    render = deblocking == ckdvol::Deblocking::kUndefined ? Render::kData : Render::kText;
    if (render == Render::kData && terminal) {
      return fail(v.path, what + " has undefined-length records (RECFM " + recfmText(ds.recfm) +
                              "): binary blocks such as a load module, not written to a terminal; "
                              "redirect standard output to a file, give --raw to write them anyway, or --text to see "
                              "them as text");
    }
  }
  stats.binary = render != Render::kText;
  ckdvol::BlockReader blocks(v.file, ds);
  if (member != nullptr) blocks.startAt(member->track, member->record);
  ckdvol::RecordReader records(blocks, ds, render == Render::kBlocks);
  TextWriter writer(text, out);
  ckdvol::LogicalRecord r;
  int rc = ckdvol::kBlockEnd;
  bool written = true;
  while (written && (rc = records.next(r)) == ckdvol::kBlockRead) {
    ++stats.records;
    stats.bytes += r.length;
    if (render == Render::kText) {
      written = writer.line(r.data, r.length);
      continue;
    }
    if (render == Render::kRecords || render == Render::kBlocks) {
      unsigned char prefix[4];
      putBe32(prefix, r.length);
      written = std::fwrite(prefix, 1, sizeof prefix, out) == sizeof prefix;
    }
    written = written && (r.length == 0 || std::fwrite(r.data, 1, r.length, out) == r.length);
  }
  if (!written || std::fflush(out) != 0) {
    return fail(outName, std::string("cannot write: ") + std::strerror(errno));
  }
  if (render == Render::kText) writer.warnControls(v.path + ": " + what);
  if (rc < 0) {
    const std::string before =
        stats.records == 0 || partial == Partial::kDropped ? std::string("nothing was written")
                           : "the output is incomplete: " +
                                 count(stats.records, render == Render::kBlocks ? "block" : "record") +
                                 " written before it";
    return fail(v.path, what + ": " + records.error() + "; " + before);
  }
  if (stats.records == 0) {
    std::fprintf(stderr, "ckdvol: note: %s: %s holds no records\n", v.path.c_str(), what.c_str());
  }
  return kExitOk;
}

}  // namespace

int stream(ScannedVolume& v, const ckdvol::DataSetInfo& ds, const ckdvol::MemberInfo* member, Render render,
           const TextOptions& text, FILE* out, const std::string& outName, const std::string& what,
           bool refuseBinaryOnTerminal, StreamStats& stats) {
  return streamTo(v, ds, member, render, text, out, outName, what,
                  refuseBinaryOnTerminal && ::isatty(::fileno(out)) == 1, Partial::kWritten, stats);
}

int streamWhole(ScannedVolume& v, const ckdvol::DataSetInfo& ds, const ckdvol::MemberInfo* member,
                Render render, const TextOptions& text, FILE* out, const std::string& outName,
                const std::string& what, bool refuseBinaryOnTerminal, StreamStats& stats) {
  char* held = nullptr;
  size_t heldSize = 0;
  FILE* memory = ::open_memstream(&held, &heldSize);
  if (memory == nullptr) return fail(v.path, what + ": cannot hold it in memory: " + std::strerror(errno));
  int rc = streamTo(v, ds, member, render, text, memory, "memory", what,
                    refuseBinaryOnTerminal && ::isatty(::fileno(out)) == 1, Partial::kDropped, stats);
  if (std::fclose(memory) != 0 && rc == kExitOk) {
    rc = fail(v.path, what + ": cannot hold it in memory: " + std::strerror(errno) + "; nothing was written");
  }
  std::unique_ptr<char, void (*)(void*)> release(held, std::free);
  if (rc != kExitOk) return rc;
  if ((heldSize > 0 && std::fwrite(held, 1, heldSize, out) != heldSize) || std::fflush(out) != 0) {
    return fail(outName, std::string("cannot write: ") + std::strerror(errno));
  }
  return kExitOk;
}

int streamToFile(ScannedVolume& v, const ckdvol::DataSetInfo& ds, const ckdvol::MemberInfo* member,
                 Render render, const TextOptions& text, const std::string& target, const std::string& what,
                 StreamStats& stats) {
  struct stat st;
  const bool existed = ::lstat(target.c_str(), &st) == 0;
  const std::string leftAs = existed ? "left as it was" : "not written";
  const size_t slash = target.rfind('/');
  std::string temporary = (slash == std::string::npos ? std::string() : target.substr(0, slash + 1)) + "." +
                          target.substr(slash == std::string::npos ? 0 : slash + 1) + ".XXXXXX";
  const int fd = ::mkstemp(&temporary[0]);
  if (fd < 0) return fail(target, leftAs + ": cannot make a temporary file beside it: " + std::strerror(errno));
  // mkstemp makes the file for its owner only; a member's file gets the
  // mode a plain create would give it.
  const mode_t mask = ::umask(0);
  ::umask(mask);
  FILE* out = ::fchmod(fd, 0666 & ~mask) == 0 ? ::fdopen(fd, "wb") : nullptr;
  int rc = kExitOk;
  if (out == nullptr) {
    rc = fail(temporary, std::string("cannot write: ") + std::strerror(errno));
    ::close(fd);
  } else {
    rc = streamTo(v, ds, member, render, text, out, temporary, what, false, Partial::kDropped, stats);
    if (std::fclose(out) != 0 && rc == kExitOk) rc = fail(temporary, std::string("cannot write: ") + std::strerror(errno));
  }
  if (rc == kExitOk && ::rename(temporary.c_str(), target.c_str()) != 0) {
    rc = fail(target, std::string("cannot rename the finished temporary file to it: ") + std::strerror(errno));
  }
  if (rc != kExitOk) {
    ::unlink(temporary.c_str());
    std::fprintf(stderr, "ckdvol: %s: %s: %s was not extracted whole\n", target.c_str(), leftAs.c_str(),
                 what.c_str());
  }
  return rc;
}

std::string dsorgText(unsigned dsorg) {
  static const struct {
    unsigned bit;
    const char* text;
  } kOrgs[] = {{0x8000, "IS"}, {0x4000, "PS"}, {0x2000, "DA"}, {0x1000, "CX"}, {0x0200, "PO"}, {0x0008, "VS"}};
  std::string s;
  for (const auto& o : kOrgs) {
    if (dsorg & o.bit) {
      s = o.text;
      break;
    }
  }
  if (s.empty()) s = "-";
  if (dsorg & 0x0100) s += "U";
  return s;
}

std::string recfmText(unsigned recfm) {
  if (recfm == 0) return "-";
  std::string s;
  switch (recfm & 0xC0) {
    case 0xC0: s = "U"; break;
    case 0x80: s = "F"; break;
    case 0x40: s = "V"; break;
    default: s = "?"; break;
  }
  if (recfm & 0x10) s += "B";
  if (recfm & 0x08) s += "S";
  if (recfm & 0x20) s += "T";
  if (recfm & 0x04) s += "A";
  if (recfm & 0x02) s += "M";
  return s;
}

std::string julianText(const ckdvol::YearDay& date) {
  if (date.empty()) return "";
  char buf[32];
  std::snprintf(buf, sizeof buf, "%04u.%03u", static_cast<unsigned>(date.year), static_cast<unsigned>(date.day));
  return buf;
}

std::string isoText(const ckdvol::YearDay& date) {
  if (date.empty()) return "";
  static const int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  const unsigned y = date.year;
  const bool leap = (y % 4 == 0 && y % 100 != 0) || y % 400 == 0;
  int day = date.day;
  int month = 0;
  while (month < 12) {
    const int length = kDays[month] + (month == 1 && leap ? 1 : 0);
    if (day <= length) break;
    day -= length;
    ++month;
  }
  if (month == 12) return "";  // day 366 of a common year
  char buf[32];
  std::snprintf(buf, sizeof buf, "%04u-%02d-%02d", y, month + 1, day);
  return buf;
}

std::string cylHeadText(uint32_t cyl, uint32_t head) { return std::to_string(cyl) + "/" + std::to_string(head); }

std::string addressText(const ckdvol::RecordAddress& a) {
  return cylHeadText(a.cyl, a.head) + "/" + std::to_string(a.record);
}

}  // namespace ckdvol_tool
