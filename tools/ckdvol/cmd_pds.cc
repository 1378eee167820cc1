// ckdvol pds: list, read and extract the members of a partitioned data set,
// and change them.
//
//   ckdvol pds list FILE DSN [--json]             directory: member, alias, TTR, size, statistics
//   ckdvol pds read FILE DSN MEMBER [--raw|--text|--records]
//   ckdvol pds extract FILE DSN DIR [--raw] [--suffix S] [--force]
//   ckdvol pds add|replace FILE DSN MEMBER [INPUT] [--raw] [--codepage P] [--no-stats]
//   ckdvol pds delete FILE DSN MEMBER...
//   ckdvol pds rename FILE DSN OLD NEW
//   ckdvol pds alias FILE DSN MEMBER ALIAS
//   ckdvol pds compress FILE DSN
//
// list, read and extract go through the data-set layer: the VTOC's own
// extent, relative tracks with the device's real heads per cylinder, every
// record format. The changes are made in memory by a PdsEditor (new blocks
// behind the data set's used space, the directory rewritten in name order)
// and written as one journaled change; a refusal writes nothing.
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

#include "command.h"
#include "data_sets.h"
#include "data_input.h"
#include "stdout_notes.h"
#include "text_output.h"
#include "tool_util.h"

namespace ckdvol_tool {
namespace {

using ckdvol::MemberInfo;
using Json = nlohmann::ordered_json;

std::string hex(unsigned value, int width) {
  char buf[16];
  std::snprintf(buf, sizeof(buf), "%0*X", width, value);
  return buf;
}

const char* const kWriteHelp =
    "\n"
    "Text input (UTF-8 or --encoding latin1, LF or CRLF line ends) is translated\n"
    "through the code page; for RECFM F and FB each line becomes a record padded with\n"
    "blanks to LRECL (a longer line is refused, naming it), for V, VB and U trailing\n"
    "blanks are removed. --raw takes the bytes 'ckdvol cat --records' writes (F/FB:\n"
    "records of LRECL bytes back to back). The new blocks go behind the data set's\n"
    "used space (the old ones stay until 'pds compress'). A text member gets\n"
    "statistics ($USER, now or $SOURCE_DATE_EPOCH; a replaced member keeps its\n"
    "created date and version);\n"
    "--raw and --no-stats give none. A full directory or a full data set is refused\n"
    "before anything is written; the change is one journaled change.\n";

// ---- changes: add, replace, delete, rename, alias, compress ----------------------

// Member names are checked before the volume is opened (exit 2).
bool badMemberName(const std::string& name, int& status) {
  if (ckdvol::validMemberName(upperName(name))) return false;
  status = failWith(kExitUsage, "'" + name + "' is not a member name (1 to 8 characters: A-Z @ # $ first, then those or 0-9)");
  return true;
}

int runWrite(const std::string& path, const std::string& dsn, const std::string& member, const std::string& input,
             const InputOptions& in, bool noStats, bool replace) {
  int status = kExitOk;
  if (badMemberName(member, status)) return status;
  std::string data;
  if (!readAllInput(input, data)) return kExitFailure;
  const std::string source = input.empty() || input == "-" ? "standard input" : input;
  const std::string name = upperName(member);
  return changePds(path, dsn, replace ? "pds replace" : "pds add",
                   [&](ckdvol::PdsEditor& pds, const ckdvol::DataSetInfo& ds, std::string& summary, std::string& error) {
                     if (replace && pds.find(name) == nullptr) {
                       error = "member " + name + " not found in " + ds.name + " ('ckdvol pds add' adds it)";
                       return false;
                     }
                     ckdvol::MemberWrite w;
                     uint64_t records = 0;
                     if (!writeInputMember(pds, ds, name, data, source, in, noStats, replace, w, records, error)) {
                       return false;
                     }
                     summary = ds.name + "(" + name + ") " + (replace ? "replaced" : "added") + ": " +
                               count(records, "record") + ", " + count(w.blocks, "block") + ", " +
                               count(w.tracks, "track");
                     return true;
                   });
}

int runDelete(const std::string& path, const std::string& dsn, const std::vector<std::string>& members) {
  int status = kExitOk;
  for (const std::string& m : members) {
    if (badMemberName(m, status)) return status;
  }
  return changePds(path, dsn, "pds delete",
                   [&](ckdvol::PdsEditor& pds, const ckdvol::DataSetInfo& ds, std::string& summary, std::string& error) {
                     std::string missing, names;
                     for (const std::string& m : members) {
                       const std::string name = upperName(m);
                       if (pds.find(name) == nullptr) {
                         missing += (missing.empty() ? "" : ", ") + name;
                       } else if (pds.remove(name, error)) {
                         names += (names.empty() ? "" : ", ") + name;
                       }
                     }
                     if (!missing.empty()) {
                       error = "not in " + ds.name + ": " + missing;
                       return false;
                     }
                     summary = ds.name + ": deleted " + names;
                     return true;
                   });
}

int runRename(const std::string& path, const std::string& dsn, const std::string& from, const std::string& to) {
  int status = kExitOk;
  if (badMemberName(from, status) || badMemberName(to, status)) return status;
  return changePds(path, dsn, "pds rename",
                   [&](ckdvol::PdsEditor& pds, const ckdvol::DataSetInfo& ds, std::string& summary, std::string& error) {
                     if (!pds.rename(upperName(from), upperName(to), error)) return false;
                     summary = ds.name + "(" + upperName(from) + ") renamed to " + upperName(to);
                     return true;
                   });
}

int runAlias(const std::string& path, const std::string& dsn, const std::string& member, const std::string& alias) {
  int status = kExitOk;
  if (badMemberName(member, status) || badMemberName(alias, status)) return status;
  return changePds(path, dsn, "pds alias",
                   [&](ckdvol::PdsEditor& pds, const ckdvol::DataSetInfo& ds, std::string& summary, std::string& error) {
                     const ckdvol::DirectoryEntry* m = pds.find(member);
                     if (m != nullptr && m->alias()) {
                       error = upperName(member) + " is itself an alias in " + ds.name + "; name the member it points at";
                       return false;
                     }
                     if (!pds.addAlias(upperName(alias), upperName(member), error)) return false;
                     summary = ds.name + "(" + upperName(alias) + ") added as an alias of " + upperName(member);
                     return true;
                   });
}

int runCompress(const std::string& path, const std::string& dsn) {
  return changePds(path, dsn, "pds compress",
                   [&](ckdvol::PdsEditor& pds, const ckdvol::DataSetInfo& ds, std::string& summary, std::string& error) {
                     const ckdvol::Ttr before = pds.usedEnd();
                     ckdvol::CompressSummary s;
                     if (!pds.compress(s, error)) return false;
                     summary = ds.name + " compressed: " + count(s.members, "member") + ", " + count(s.blocks, "block") +
                               " moved; the used space ends at TTR " + hex(s.end.track, 4) + hex(s.end.record, 2) +
                               " (it ended at " + hex(before.track, 4) + hex(before.record, 2) + ")";
                     return true;
                   });
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
    "pds", "List, read, extract, add, replace, delete, rename or alias members; compress", 60,
    [](CLI::App& app) -> std::function<int()> {
      struct Args {
        std::string file, dsn, member, other, input, dir, suffix;
        std::vector<std::string> members;
        bool json = false, force = false, noStats = false;
        ReadOptions read, extract;
        InputOptions in;
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

      auto write = [&app, a](const char* name, const char* what, const char* intro, const char* examples) {
        CLI::App* c = app.add_subcommand(name, what);
        c->add_option("FILE", a->file, "Volume file")->required();
        c->add_option("DSN", a->dsn, "Data set name (any case)")->required();
        c->add_option("MEMBER", a->member, "Member name (any case)")->required();
        c->add_option("INPUT", a->input, "Input file (default: standard input)");
        addInputOptions(*c, a->in);
        c->add_flag("--no-stats", a->noStats, "Leave the directory entry without statistics");
        c->footer(std::string(intro) + kWriteHelp + "\nExamples:\n" + examples);
        return c;
      };
      CLI::App* add = write("add", "Add a member from INPUT or standard input",
                            "The member must not exist ('pds replace' changes one).\n",
                            "  ckdvol pds add sys.ckd USER.SOURCE HELLO hello.txt\n"
                            "  ckdvol cat a.ckd 'X.LOAD(PGM)' --records | ckdvol pds add b.ckd X.LOAD PGM --raw\n");
      CLI::App* replace = write("replace", "Give a member new contents from INPUT or standard input",
                                "The member must exist (add makes a new one); its new contents may have any\n"
                                "number of records.\n",
                                "  ckdvol pds replace sys.ckd USER.SOURCE HELLO hello.txt\n"
                                "  ckdvol pds replace sys.ckd SYS1.PARMLIB IEASYS01 new.txt --codepage 1047\n");

      CLI::App* del = app.add_subcommand("delete", "Delete members (their directory entries)");
      del->add_option("FILE", a->file, "Volume file")->required();
      del->add_option("DSN", a->dsn, "Data set name (any case)")->required();
      del->add_option("MEMBER", a->members, "Member or alias names (any case)")->required();
      del->footer(
          "Removes the directory entries; the members' blocks stay in the data set's space\n"
          "until 'ckdvol pds compress'. Deleting a member leaves its aliases pointing at its\n"
          "data. When any name is missing, nothing is deleted.\n"
          "\n"
          "Examples:\n"
          "  ckdvol pds delete sys.ckd USER.SOURCE OLD1 OLD2\n");

      CLI::App* ren = app.add_subcommand("rename", "Rename a member or an alias");
      ren->add_option("FILE", a->file, "Volume file")->required();
      ren->add_option("DSN", a->dsn, "Data set name (any case)")->required();
      ren->add_option("OLD", a->member, "Current name (any case)")->required();
      ren->add_option("NEW", a->other, "New name (any case); must not exist")->required();
      ren->footer(
          "The entry keeps its TTR and its user data (statistics); only the directory\n"
          "changes.\n"
          "\n"
          "Examples:\n"
          "  ckdvol pds rename sys.ckd USER.SOURCE HELLO HELLO2\n");

      CLI::App* alias = app.add_subcommand("alias", "Give a member a second name (an alias)");
      alias->add_option("FILE", a->file, "Volume file")->required();
      alias->add_option("DSN", a->dsn, "Data set name (any case)")->required();
      alias->add_option("MEMBER", a->member, "The member (any case)")->required();
      alias->add_option("ALIAS", a->other, "The alias (any case); must not exist")->required();
      alias->footer(
          "The alias entry has the alias flag, the member's TTR and its user data.\n"
          "'pds list' shows it with the member it names.\n"
          "\n"
          "Examples:\n"
          "  ckdvol pds alias sys.ckd USER.SOURCE HELLO HI\n");

      CLI::App* compress = app.add_subcommand("compress", "Move the members together and free the space behind them");
      compress->add_option("FILE", a->file, "Volume file")->required();
      compress->add_option("DSN", a->dsn, "Data set name (any case)")->required();
      compress->footer(
          "Every member's blocks are copied one behind the other from the directory's end\n"
          "of file on, in the order of their places, and the directory entries (aliases\n"
          "with their members) point at the new places; the space that replaced and\n"
          "deleted members held becomes free for new members. Data sets whose entries\n"
          "carry user TTRs (load modules) are refused. One journaled change.\n"
          "\n"
          "Examples:\n"
          "  ckdvol pds compress sys.ckd USER.SOURCE\n");

      return [a, list, read, add, replace, del, ren, alias, compress, extract]() -> int {
        if (list->parsed()) return runList(a->file, a->dsn, a->json);
        if (read->parsed()) return runRead(a->file, a->dsn, a->member, a->read);
        if (extract->parsed()) return runExtract(a->file, a->dsn, a->dir, a->extract, a->suffix, a->force);
        if (add->parsed() || replace->parsed()) {
          return runWrite(a->file, a->dsn, a->member, a->input, a->in, a->noStats, replace->parsed());
        }
        if (del->parsed()) return runDelete(a->file, a->dsn, a->members);
        if (ren->parsed()) return runRename(a->file, a->dsn, a->member, a->other);
        if (alias->parsed()) return runAlias(a->file, a->dsn, a->member, a->other);
        if (compress->parsed()) return runCompress(a->file, a->dsn);
        return kExitUsage;
      };
    }});

}  // namespace
}  // namespace ckdvol_tool
