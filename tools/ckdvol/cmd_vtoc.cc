// ckdvol vtoc: the complete VTOC listing of a volume.
//
//   ckdvol vtoc FILE
//
// The listing is the library's own (DskVolume::printVTOC): a heading with the
// serial and the time, the label dump, every DSCB dump and the summary. The
// volume is opened read-only.
#include <cstdio>
#include <memory>
#include <string>

#include <CLI/CLI.hpp>

#include "command.h"
#include "tool_util.h"
#include "volume_loader.h"

namespace ckdvol_tool {
namespace {

int runVtoc(const std::string& path) {
  LoadedVolume v;
  int status = loadVolume(path, true, v);
  if (status != kExitOk) return status;
  int written;
  try {
    written = v.volume.printVTOC(stdout);
  } catch (const char* text) {
    return fail(path, std::string("cannot list the VTOC: ") + text);
  }
  if (written < 0 || std::fflush(stdout) != 0) return fail(path, "cannot write the listing");
  return kExitOk;
}

const CommandRegistration kRegistration(Command{
    "vtoc", "List a volume's VTOC: label and every DSCB, dumped field by field", 36,
    [](CLI::App& app) -> std::function<int()> {
      auto file = std::make_shared<std::string>();
      app.add_option("FILE", *file, "Volume file")->required();
      app.footer(
          "The volume is opened read-only. The listing shows the volume label, the\n"
          "Format-4 DSCB, the Format-5 (free space) DSCBs, each Format-1 data set DSCB\n"
          "with its chained Format-3 DSCBs, each Format-8 DSCB with its Format-9 and\n"
          "Format-3 DSCBs, and a summary of the counts. Only the VTOC records up to the\n"
          "track of the last active DSCB (named by the Format-4 DSCB) are read.\n"
          "A volume without a label, or whose label does not lead to a Format-4 DSCB,\n"
          "gives exit status 1 and a one-line explanation.");
      return [file] { return runVtoc(*file); };
    }});

}  // namespace
}  // namespace ckdvol_tool
