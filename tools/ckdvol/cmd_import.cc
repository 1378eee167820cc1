// ckdvol import: a transfer file (or an unloaded PDS kept as a host file)
// becomes a data set on the volume, in one journaled change.
//
//   ckdvol import FILE XMITFILE [--dsn NAME] [--members A,B] [--replace]
//                 [--tracks N | --cylinders N] [--dirblks N] [--blksize N] [--codepage CP]
//
// The transfer file is read whole and decoded first (src/transfer); its
// message file, if any, is shown. Then the import is staged in memory
// (transfer_volume.h) and written as one change: a refusal at any step
// writes nothing.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "command.h"
#include "data_input.h"
#include "journaled_change.h"
#include "text_output.h"
#include "tool_util.h"
#include "transfer/transfer_file.h"
#include "transfer_volume.h"

namespace ckdvol_tool {
namespace {

struct ImportArgs {
  std::string file, input;
  long long tracks = 0, cylinders = 0, dirblks = 0, blksize = 0;
  ImportOptions o;
  TextOptions text;
};

std::string summaryText(const ImportSummary& s, bool partitioned) {
  std::string text = "imported " + s.dsn + (s.allocated ? " (allocated, " + count(s.allocatedTracks, "track") + ")" : "") + ": ";
  if (partitioned) {
    text += count(s.members, "member") + ", " + std::to_string(s.aliases) + (s.aliases == 1 ? " alias" : " aliases");
    if (s.replaced != 0) text += " (" + std::to_string(s.replaced) + " replaced)";
    text += ", " + count(s.blocks, "block") + ", " + count(s.tracks, "track");
    if (s.noteLists != 0) text += ", " + count(s.noteLists, "note list") + " rewritten";
  } else {
    text += count(s.records, "record") + ", " + count(s.blocks, "block") + ", " + count(s.tracks, "track");
  }
  return text;
}

int runImport(ImportArgs& a) {
  if (a.tracks > 0 && a.cylinders > 0) return failWith(kExitUsage, "give the space as --tracks N or --cylinders N, not both");
  const long long primary = a.tracks > 0 ? a.tracks : a.cylinders;
  if (primary < 0 || primary > 0xFFFFFFFFLL) return failWith(kExitUsage, "the space is a number of tracks or cylinders");
  if (a.dirblks < 0 || a.dirblks > 0xFFFFFF) return failWith(kExitUsage, "--dirblks is a count of directory blocks");
  if (a.blksize < 0 || a.blksize > 32760) return failWith(kExitUsage, "--blksize is from 1 to 32760");
  a.o.primary = static_cast<uint32_t>(primary);
  a.o.cylinders = a.cylinders > 0;
  a.o.directoryBlocks = static_cast<uint32_t>(a.dirblks);
  a.o.blksize = static_cast<uint16_t>(a.blksize);

  std::string raw;
  if (!readAllInput(a.input, raw)) return kExitFailure;
  const ckdvol::Bytes bytes(raw.begin(), raw.end());
  raw = std::string();
  ckdvol::TransferContents contents;
  std::string error;
  if (!ckdvol::readTransferFile(bytes, contents, error)) return fail(a.input, error + "; nothing was changed");
  if (!contents.message.empty()) {
    TextWriter out(a.text, stdout);
    for (const ckdvol::Bytes& line : contents.message) out.line(line.data(), line.size());
    out.warnControls(a.input + ": the message");
  }

  ScannedVolume v;
  if (int status = openForChange(a.file, v)) return status;
  ckdvol::StagedTracks staged(v.file);
  ImportSummary s;
  if (!stageImport(staged, v.vtoc, contents, a.o, s, error)) return fail(a.file, error + "; nothing was changed");
  if (int status = journaledChange(staged, a.file, "import")) return status;
  std::printf("%s\n", summaryText(s, contents.partitioned).c_str());
  return kExitOk;
}

const CommandRegistration kRegistration(Command{
    "import", "Receive a transfer file (or an unloaded PDS) as a data set on the volume", 66,
    [](CLI::App& app) -> std::function<int()> {
      auto a = std::make_shared<ImportArgs>();
      app.add_option("FILE", a->file, "Volume file")->required();
      app.add_option("XMITFILE", a->input, "Transfer file, or an unloaded PDS as a host file")->required();
      app.add_option("--dsn", a->o.dsn, "Name of the data set on the volume (default: the name the file records)");
      app.add_option("--members", a->o.members, "Members to take (any case, comma separated); an alias brings its member")
          ->delimiter(',');
      app.add_flag("--replace", a->o.replace,
                   "Write into an existing data set: add the members to a PDS (same names replaced), or\n"
                   "replace a sequential data set's contents");
      app.add_option("--tracks", a->tracks, "Primary space in tracks (default: what the members need, or the original size)");
      app.add_option("--cylinders", a->cylinders, "Primary space in cylinders");
      app.add_option("--dirblks", a->dirblks, "Directory blocks (default: the original's, or what the entries need)");
      app.add_option("--blksize", a->blksize, "Block size (default: the original's)");
      addTextOptions(app, a->text);
      app.footer(
          "A partitioned data set arrives unloaded: every member keeps its name, aliases,\n"
          "user data and statistics. Members are copied block by block; each block's\n"
          "original TTR is mapped to its new one, and the TTRs of the directory entries,\n"
          "the user TTRs in their user data (load modules) and the note lists they point at\n"
          "are rewritten through that map, so load libraries still work. A sequential data\n"
          "set arrives as its records. A new data set gets the attributes the transfer file\n"
          "records (RECFM, LRECL, BLKSIZE, directory blocks) and room for the members, or\n"
          "the original size when the volume has room for it. A message in front of the data\n"
          "set is shown (through the code page), not loaded. Everything is one journaled\n"
          "change: a refusal (a name in use without --replace, attributes that do not suit,\n"
          "no room, a full directory, contents that are not supported) writes nothing.\n"
          "\n"
          "Examples:\n"
          "  ckdvol import work.ckd tools.xmi --dsn MY.TOOLS\n"
          "  ckdvol import work.ckd load.xmi --dsn MY.LOADLIB --members HELLO,TOOLS\n"
          "  ckdvol import work.ckd more.xmi --dsn MY.SOURCE --replace\n");
      return [a]() { return runImport(*a); };
    }});

}  // namespace
}  // namespace ckdvol_tool
