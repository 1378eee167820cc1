// ckdvol load: every regular file of a host folder becomes a member of a
// partitioned data set, in one journaled change.
//
//   ckdvol load FILE DSN DIR [--raw] [--replace] [--suffix S] [--codepage P] [--no-stats]
//
// The member names are checked first (valid, distinct after upper-casing,
// new unless --replace) and every problem is listed before anything is
// written; then the files are read and written one behind the other by one
// PdsEditor, and the directory is committed once.
#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <map>
#include <memory>
#include <cstring>
#include <string>
#include <vector>

#include "command.h"
#include "data_input.h"
#include "tool_util.h"

namespace ckdvol_tool {
namespace {

constexpr size_t kProgressEvery = 25;

struct LoadArgs {
  std::string file, dsn, dir, suffix;
  bool suffixGiven = false, replace = false, noStats = false;
  InputOptions in;
};

struct Source {
  std::string path, member;
};

// The member name of file `name`: without `suffix` when one is given (files
// not ending with it give ""), else without its extension; upper case.
std::string memberName(const std::string& name, const std::string& suffix, bool suffixGiven) {
  std::string stem = name;
  if (suffixGiven) {
    if (name.size() <= suffix.size() || name.compare(name.size() - suffix.size(), suffix.size(), suffix) != 0) {
      return "";
    }
    stem = name.substr(0, name.size() - suffix.size());
  } else {
    const size_t dot = name.rfind('.');
    if (dot != std::string::npos && dot > 0) stem = name.substr(0, dot);
  }
  return upperName(stem);
}

// The regular files of `dir`, sorted by name. False after a message.
bool listFiles(const std::string& dir, std::vector<std::string>& names) {
  DIR* d = ::opendir(dir.c_str());
  if (d == nullptr) {
    fail(dir, std::string("cannot read the folder: ") + std::strerror(errno) + "; nothing was changed");
    return false;
  }
  while (const dirent* e = ::readdir(d)) {
    const std::string name = e->d_name;
    struct stat st;
    if (::stat((dir + "/" + name).c_str(), &st) == 0 && S_ISREG(st.st_mode)) names.push_back(name);
  }
  ::closedir(d);
  std::sort(names.begin(), names.end());
  return true;
}

std::string joined(const std::vector<std::string>& v) {
  std::string s;
  for (const std::string& x : v) s += (s.empty() ? "" : ", ") + x;
  return s;
}

int runLoad(const LoadArgs& a) {
  std::vector<std::string> names;
  if (!listFiles(a.dir, names)) return kExitFailure;
  std::vector<Source> sources;
  std::vector<std::string> badNames, duplicates, skipped;
  std::map<std::string, std::string> seen;  // member -> file
  for (const std::string& n : names) {
    const std::string member = memberName(n, a.suffix, a.suffixGiven);
    if (a.suffixGiven && member.empty()) {
      skipped.push_back(n);
    } else if (!ckdvol::validMemberName(member)) {
      badNames.push_back(n);
    } else if (seen.count(member) != 0) {
      duplicates.push_back(n + " (" + member + ", as " + seen[member] + ")");
    } else {
      seen[member] = n;
      sources.push_back(Source{a.dir + "/" + n, member});
    }
  }
  std::string refused;
  if (!badNames.empty()) refused += "; not member names: " + joined(badNames);
  if (!duplicates.empty()) refused += "; the same member twice: " + joined(duplicates);
  if (!refused.empty()) return fail(a.dir, refused.substr(2) + "; nothing was changed");
  if (sources.empty()) return fail(a.dir, "no files to load" + std::string(a.suffixGiven ? " ending with " + a.suffix : "") +
                                              "; nothing was changed");
  if (!skipped.empty()) {
    std::fprintf(stderr, "ckdvol: %s: %s without the suffix %s skipped\n", a.dir.c_str(),
                 count(skipped.size(), "file").c_str(), a.suffix.c_str());
  }
  const bool progress = ::isatty(STDERR_FILENO) != 0;
  int run = 0;  // the load runs twice: planned, then written
  return changePds(a.file, a.dsn, "load",
                   [&](ckdvol::PdsEditor& pds, const ckdvol::DataSetInfo& ds, std::string& summary, std::string& error) {
                     const char* doing = run++ == 0 ? "planning" : "loading";
                     if (!a.replace) {
                       std::vector<std::string> existing;
                       for (const Source& s : sources) {
                         if (pds.find(s.member) != nullptr) existing.push_back(s.member);
                       }
                       if (!existing.empty()) {
                         error = "members that exist in " + ds.name + " (give --replace): " + joined(existing);
                         return false;
                       }
                     }
                     uint64_t records = 0, blocks = 0, tracks = 0, replaced = 0;
                     for (size_t i = 0; i < sources.size(); ++i) {
                       const Source& s = sources[i];
                       std::string data;
                       if (!readAllInput(s.path, data)) {
                         error = s.path + " could not be read";
                         return false;
                       }
                       ckdvol::MemberWrite w;
                       uint64_t r = 0;
                       if (!writeInputMember(pds, ds, s.member, data, s.path, a.in, a.noStats, a.replace, w, r, error)) {
                         error = ds.name + "(" + s.member + "): " + error;
                         return false;
                       }
                       records += r;
                       blocks += w.blocks;
                       tracks += w.tracks;
                       replaced += w.replaced ? 1 : 0;
                       if (progress && ((i + 1) % kProgressEvery == 0 || i + 1 == sources.size())) {
                         std::fprintf(stderr, "\r%s: %zu of %zu members", doing, i + 1, sources.size());
                         if (i + 1 == sources.size()) std::fputc('\n', stderr);
                       }
                     }
                     summary = ds.name + ": " + count(sources.size(), "member") + " loaded (" +
                               std::to_string(replaced) + " replaced): " + count(records, "record") + ", " +
                               count(blocks, "block") + ", " + count(tracks, "track");
                     return true;
                   },
                   true);
}

const CommandRegistration kRegistration(Command{
    "load", "Load every file of a folder into a partitioned data set as members", 63,
    [](CLI::App& app) -> std::function<int()> {
      auto a = std::make_shared<LoadArgs>();
      app.add_option("FILE", a->file, "Volume file")->required();
      app.add_option("DSN", a->dsn, "Partitioned data set name (any case)")->required();
      app.add_option("DIR", a->dir, "Folder whose regular files become members")->required();
      app.add_option("--suffix", a->suffix, "Load only files ending with this (e.g. .txt); it is not part of the name")
          ->each([a](const std::string&) { a->suffixGiven = true; });
      app.add_flag("--replace", a->replace, "Replace members that exist (else they are refused)");
      app.add_flag("--no-stats", a->noStats, "Leave the directory entries without statistics");
      addInputOptions(app, a->in);
      app.footer(
          "Each regular file of DIR, in name order, becomes the member named after it in\n"
          "upper case, without --suffix (or without its extension when no --suffix is\n"
          "given). File names that give no member name, two files giving the same name,\n"
          "and members that exist (without --replace) are all listed and refused before\n"
          "anything is written. Input is read as by 'ckdvol pds add' (text through the\n"
          "code page, or --raw records). All members go in as one journaled change; a\n"
          "full directory or data set changes nothing. The files are read twice: once to\n"
          "plan the tracks, then to write each track as it is built, so a large load\n"
          "holds no track images in memory (a file that changes in between can make the\n"
          "load fail, and then nothing is changed). Progress on a terminal.\n"
          "\n"
          "Examples:\n"
          "  ckdvol load sys.ckd USER.SOURCE src/ --suffix .asm\n"
          "  ckdvol pds extract a.ckd X.SOURCE out --suffix .txt && ckdvol load b.ckd X.SOURCE out --replace\n");
      return [a]() { return runLoad(*a); };
    }});

}  // namespace
}  // namespace ckdvol_tool
