// ckdvol pds: list, read, replace and extract the members of a partitioned
// data set.
//
//   ckdvol pds list FILE DSN                      directory: member, TTR, user-data bytes
//   ckdvol pds read FILE DSN MEMBER [--raw]       records as text lines (or raw EBCDIC)
//   ckdvol pds replace FILE DSN MEMBER [INPUT] [--raw]
//   ckdvol pds extract FILE DSN DIR               every member to DIR/MEMBER
//
// A member is rewritten in place, keeping its blocks and its number of
// records, so `replace` checks the input against the member first and
// changes nothing when it does not fit. Only `replace` opens the volume for
// writing.
#include <sys/stat.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "ckdfile/emulated_ckd_file.h"
#include "command.h"
#include "common/data_translator.h"
#include "pds/basic_partitioned_access_method.h"
#include "tool_util.h"
#include "volume/dsk_volume.h"

namespace ckdvol_tool {
namespace {

using Bpam = BasicPartionedAccessMethod;

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
    status = fail(path, std::string("cannot open the volume: ") +
                            (rc == EmulatedCKDfile::kOpenCannotOpen ? std::strerror(errno)
                                                                    : p->file.errorText));
    return nullptr;
  }
  if (p->volume.open(&p->file) != 0) {
    status = fail(path, "cannot read the volume label or the VTOC");
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
    case Bpam::kOpenNotFound:
      cause = "data set " + dsn +
              " not found (no Format-1 DSCB of that name; names are compared as given, "
              "case included)";
      break;
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
  status = fail(path, cause);
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
      return "a block of member " + member +
             " could not be rewritten (the blocks before it are changed)";
    case Bpam::kReplaceTrackWrite:
      return "the last track of member " + member + " could not be written back";
    default:
      return "member " + member + ": result " + std::to_string(rc);
  }
}

// The record as text: EBCDIC to ISO-8859-1, trailing blanks trimmed.
std::string recordText(const RexxString& r) {
  std::string s(static_cast<size_t>(r.length()), '\0');
  kText.copyE2A(&s[0], r.text(), static_cast<unsigned>(r.length()));
  size_t end = s.find_last_not_of(' ');
  s.erase(end == std::string::npos ? 0 : end + 1);
  return s;
}

bool writeMember(const Bpam& pds, bool raw, std::ostream& out) {
  for (int i = 0; i < pds.records.count; ++i) {
    const RexxString* r = pds.records.get(i);
    if (r == nullptr) continue;
    if (raw) {
      out.write(r->text(), r->length());
    } else {
      out << recordText(*r) << '\n';
    }
  }
  out.flush();
  return static_cast<bool>(out);
}

// ---- list ----------------------------------------------------------------------

int runList(const std::string& path, const std::string& dsn) {
  int status = kExitOk;
  std::unique_ptr<OpenPds> p = openPds(path, dsn, true, status);
  if (!p) return status;
  std::printf("%-8s  %-6s  %s\n", "MEMBER", "TTR", "USERDATA");
  for (int i = 0; i < p->pds->directory.count; ++i) {
    const Bpam::DirEnt* e = p->pds->directory.get(i);
    if (e == nullptr) continue;
    std::printf("%-8s  %04X%02X  %d\n", e->name, e->track, e->record,
                2 * (e->indicators & Bpam::kDirUserHalfwordMask));
  }
  return kExitOk;
}

// ---- read ----------------------------------------------------------------------

int runRead(const std::string& path, const std::string& dsn, const std::string& member, bool raw) {
  int status = kExitOk;
  std::unique_ptr<OpenPds> p = openPds(path, dsn, true, status);
  if (!p) return status;
  int rc = p->pds->readMember(member.c_str());
  if (rc != Bpam::kReadOk) return fail(path, memberFailure(*p, dsn, member, rc));
  if (!writeMember(*p->pds, raw, std::cout)) return fail("standard output", std::strerror(errno));
  return kExitOk;
}

// ---- replace -------------------------------------------------------------------

int runReplace(const std::string& path, const std::string& dsn, const std::string& member,
               const std::string& input, bool raw) {
  std::string data;
  std::string source = input.empty() || input == "-" ? "standard input" : input;
  if (source == "standard input") {
    data.assign(std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>());
  } else {
    std::ifstream in(input, std::ios::binary);
    if (!in) return fail(input, std::string("cannot read: ") + std::strerror(errno));
    data.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  }

  int status = kExitOk;
  std::unique_ptr<OpenPds> p = openPds(path, dsn, false, status);
  if (!p) return status;
  Bpam& pds = *p->pds;
  int rc = pds.readMember(member.c_str());
  if (rc != Bpam::kReadOk) return fail(path, memberFailure(*p, dsn, member, rc));
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
  rc = pds.replaceMember(member.c_str());
  if (rc != Bpam::kReplaceOk) return fail(path, memberFailure(*p, dsn, member, rc));
  if (p->file.close() != 0)
    return fail(path, "closing the volume failed; the member may be incomplete");
  return kExitOk;
}

// ---- extract -------------------------------------------------------------------

int runExtract(const std::string& path, const std::string& dsn, const std::string& dir) {
  int status = kExitOk;
  std::unique_ptr<OpenPds> p = openPds(path, dsn, true, status);
  if (!p) return status;
  if (::mkdir(dir.c_str(), 0777) != 0 && errno != EEXIST) {
    return fail(dir, std::string("cannot make the directory: ") + std::strerror(errno));
  }
  Bpam& pds = *p->pds;
  // Copy the names first: readMember leaves the directory as it is, but the
  // loop reads by name.
  std::vector<std::string> names;
  for (int i = 0; i < pds.directory.count; ++i) {
    const Bpam::DirEnt* e = pds.directory.get(i);
    if (e != nullptr) names.push_back(e->name);
  }
  int result = kExitOk;
  for (const std::string& name : names) {
    std::string fileName = name;
    for (char& c : fileName) {
      if (c == '/' || c == '\0') c = '_';
    }
    if (fileName.empty() || fileName == "." || fileName == "..") {
      result = fail(path, "member with the name \"" + name + "\" cannot be a file name; skipped");
      continue;
    }
    int rc = pds.readMember(name.c_str());
    if (rc != Bpam::kReadOk) {
      result = fail(path, memberFailure(*p, dsn, name, rc));
      continue;
    }
    std::string target = dir + "/" + fileName;
    std::ofstream out(target, std::ios::binary | std::ios::trunc);
    if (!out || !writeMember(pds, false, out)) {
      result = fail(target, std::string("cannot write: ") + std::strerror(errno));
    }
  }
  return result;
}

const CommandRegistration kRegistration(Command{
    "pds", "List, read, replace or extract members of a partitioned data set", 60,
    [](CLI::App& app) -> std::function<int()> {
      struct Args {
        std::string file, dsn, member, input, dir;
        bool raw = false;
      };
      auto a = std::make_shared<Args>();
      app.require_subcommand(1);
      CLI::App* list =
          app.add_subcommand("list", "List the directory: member, TTR, user-data bytes");
      list->add_option("FILE", a->file, "Volume file")->required();
      list->add_option("DSN", a->dsn, "Data set name as in the VTOC")->required();

      CLI::App* read = app.add_subcommand(
          "read",
          "Write a member's records as text lines (trailing blanks trimmed), or raw EBCDIC");
      read->add_option("FILE", a->file, "Volume file")->required();
      read->add_option("DSN", a->dsn, "Data set name as in the VTOC")->required();
      read->add_option("MEMBER", a->member, "Member name (any case)")->required();
      read->add_flag("--raw", a->raw, "Write the records' EBCDIC bytes unchanged, no line ends");

      CLI::App* replace = app.add_subcommand(
          "replace", "Replace a member's records in place from INPUT or standard input");
      replace->footer(
          "Text lines are translated to EBCDIC. The member keeps its size: the input must give\n"
          "exactly as many records as the member has, each at most the record length (shorter\n"
          "ones are padded with blanks); otherwise nothing is changed.");
      replace->add_option("FILE", a->file, "Volume file")->required();
      replace->add_option("DSN", a->dsn, "Data set name as in the VTOC")->required();
      replace->add_option("MEMBER", a->member, "Member name (any case)")->required();
      replace->add_option("INPUT", a->input, "Input file (default: standard input)");
      replace->add_flag("--raw", a->raw,
                        "INPUT holds EBCDIC records of exactly the record length, back to back");

      CLI::App* extract =
          app.add_subcommand("extract", "Write every member as text lines to DIR/MEMBER");
      extract->add_option("FILE", a->file, "Volume file")->required();
      extract->add_option("DSN", a->dsn, "Data set name as in the VTOC")->required();
      extract->add_option("DIR", a->dir, "Target directory (made if missing)")->required();

      return [a, list, read, replace, extract]() -> int {
        if (list->parsed()) return runList(a->file, a->dsn);
        if (read->parsed()) return runRead(a->file, a->dsn, a->member, a->raw);
        if (replace->parsed()) return runReplace(a->file, a->dsn, a->member, a->input, a->raw);
        if (extract->parsed()) return runExtract(a->file, a->dsn, a->dir);
        return kExitUsage;
      };
    }});

}  // namespace
}  // namespace ckdvol_tool
