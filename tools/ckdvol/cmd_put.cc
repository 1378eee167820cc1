// ckdvol put: host data into a sequential data set (its contents replaced)
// or into a member of a partitioned data set (added or replaced).
//
//   ckdvol put FILE DSN[(MEMBER)] [INPUT] [--raw] [--codepage P] [--encoding E] [--no-stats]
//
// Everything is computed in memory first (records blocked by the data set's
// format, blocks placed on its tracks, the directory and the DSCB's end of
// data); a refusal changes nothing, and the change is written as one
// journaled change.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <memory>
#include <string>

#include "command.h"
#include "data_input.h"
#include "journaled_change.h"
#include "tool_util.h"

namespace ckdvol_tool {
namespace {

struct PutArgs {
  std::string file, name, input;
  InputOptions in;
  bool noStats = false;
};

int runPut(const PutArgs& a) {
  std::string dsn = a.name, member;
  const size_t open = a.name.find('(');
  if (open != std::string::npos) {
    if (a.name.back() != ')') return failWith(kExitUsage, "'" + a.name + "' is not DSN or DSN(MEMBER)");
    dsn = a.name.substr(0, open);
    member = upperName(a.name.substr(open + 1, a.name.size() - open - 2));
    if (!ckdvol::validMemberName(member)) {
      return failWith(kExitUsage, "'" + member + "' is not a member name (1 to 8 characters: A-Z @ # $ first, then those or 0-9)");
    }
  }
  std::string data;
  if (!readAllInput(a.input, data)) return kExitFailure;
  const std::string source = a.input.empty() || a.input == "-" ? "standard input" : a.input;

  ScannedVolume v;
  int status = openForChange(a.file, v);
  if (status != kExitOk) return status;
  const ckdvol::DataSetInfo* ds = findDataSetOrFail(v, dsn, status, "; nothing was changed");
  if (ds == nullptr) return status;
  const std::string nothing = "; nothing was changed";
  if (member.empty() && ds->partitioned()) {
    return fail(a.file, ds->name + " is partitioned: name a member, " + ds->name + "(MEMBER)" + nothing);
  }
  if (!member.empty() && !ds->partitioned()) {
    return fail(a.file, ds->name + " is not partitioned: leave out the member" + nothing);
  }
  std::vector<ckdvol::Bytes> blocks;
  uint64_t records = 0;
  std::string error = inputBlocks(data, source, *ds, a.in, blocks, records);
  if (!error.empty()) return fail(a.file, error + nothing);

  ckdvol::StagedTracks staged(v.file);
  std::string what;
  if (member.empty()) {
    ckdvol::WriteSummary s;
    if (!ckdvol::writeSequential(staged, *ds, blocks, s, error)) return fail(a.file, error + nothing);
    what = ds->name + ": " + count(records, "record") + ", " + count(blocks.size(), "block") + ", " +
           count(s.tracks, "track") + " written";
  } else {
    ckdvol::PdsEditor pds(staged, *ds);
    if (!pds.load(error)) return fail(a.file, error + nothing);
    const ckdvol::DirectoryEntry* old = pds.find(member);
    const ckdvol::Bytes stats = a.in.raw || a.noStats ? ckdvol::Bytes() : textStatistics(records, old);
    ckdvol::MemberWrite w;
    if (!pds.writeMember(member, blocks, stats, true, w, error) || !pds.commit(error)) {
      return fail(a.file, error + nothing);
    }
    what = ds->name + "(" + member + ") " + (w.replaced ? "replaced" : "added") + ": " + count(records, "record") +
           ", " + count(w.blocks, "block") + ", " + count(w.tracks, "track");
  }
  status = journaledChange(staged, a.file, "put");
  if (status != kExitOk) return status;
  std::printf("%s\n", what.c_str());
  return kExitOk;
}

const CommandRegistration kRegistration(Command{
    "put", "Write host data into a sequential data set or a member", 62,
    [](CLI::App& app) -> std::function<int()> {
      auto a = std::make_shared<PutArgs>();
      app.add_option("FILE", a->file, "Volume file")->required();
      app.add_option("DSN", a->name, "Data set name, or DSN(MEMBER) for a member (any case)")->required();
      app.add_option("INPUT", a->input, "Input file (default: standard input)");
      addInputOptions(app, a->in);
      app.add_flag("--no-stats", a->noStats, "Leave a member's directory entry without statistics");
      app.footer(
          "A sequential data set gets the input as its whole contents; a member is added,\n"
          "or replaced when it exists (its new blocks go behind the data set's last used\n"
          "record; the old ones stay until 'ckdvol pds compress').\n"
          "Text input (UTF-8 or --encoding latin1, LF or CRLF line ends) is translated\n"
          "through the code page. For RECFM F and FB each line becomes a record padded with\n"
          "blanks to LRECL (a longer line is refused, naming it); for V, VB and U trailing\n"
          "blanks are removed and each line is a record. --raw takes bytes: F/FB records of\n"
          "exactly LRECL bytes back to back; V/VB/U records each after a 4-byte big-endian\n"
          "length, the form 'ckdvol cat --records' writes, so the two round-trip. A text\n"
          "member gets statistics (version, dates, line counts, $USER), keeping the created\n"
          "date and version of the member it replaces; --raw and --no-stats give none.\n"
          "Nothing is written when anything is refused; the change is one journaled change.\n"
          "\n"
          "Examples:\n"
          "  ckdvol put sys.ckd USER.DATA data.txt\n"
          "  ckdvol put sys.ckd 'SYS1.PARMLIB(IEASYS01)' ieasys01.txt --codepage 1047\n"
          "  ckdvol cat a.ckd 'X.LOAD(PGM)' --records | ckdvol put b.ckd 'X.LOAD(PGM)' --raw\n");
      return [a]() { return runPut(*a); };
    }});

}  // namespace
}  // namespace ckdvol_tool
