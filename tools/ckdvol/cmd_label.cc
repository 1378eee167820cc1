// ckdvol label: the volume label, dumped field by field.
//
//   ckdvol label FILE
//
// The dump is the library's (DiskLabel::print): Key, Serial, Security, the
// VTOC address (CC, HH, Rec) and the reserved and owner fields. The volume is
// opened read-only; the VTOC is not read.
#include <cstdio>
#include <memory>
#include <string>

#include <CLI/CLI.hpp>

#include "command.h"
#include "common/rexx_string.h"
#include "tool_util.h"
#include "volume_loader.h"

namespace ckdvol_tool {
namespace {

int runLabel(const std::string& path) {
  LoadedVolume v;
  int status = loadVolume(path, false, v);
  if (status != kExitOk) return status;
  RexxString out;
  v.volume.label.print(out);
  if (std::fputs(out.text(), stdout) < 0 || std::fflush(stdout) != 0) {
    return fail(path, "cannot write the label dump");
  }
  return kExitOk;
}

const CommandRegistration kRegistration(Command{
    "label", "Dump a volume's VOL1 label", 34,
    [](CLI::App& app) -> std::function<int()> {
      auto file = std::make_shared<std::string>();
      app.add_option("FILE", *file, "Volume file")->required();
      app.footer(
          "The label is the record keyed VOL1 on cylinder 0, head 0. The dump shows its\n"
          "80 data bytes: the serial, the security byte, the address of the VTOC's first\n"
          "record and the reserved fields, as read. The volume is opened read-only.\n"
          "A volume without a label gives exit status 1 and a one-line explanation.");
      return [file] { return runLabel(*file); };
    }});

}  // namespace
}  // namespace ckdvol_tool
