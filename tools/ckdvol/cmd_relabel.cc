// ckdvol relabel: a new volume serial (and owner) for a volume.
//
//   ckdvol relabel FILE SERIAL [--owner TEXT]
#include <cstdio>
#include <memory>
#include <string>

#include <CLI/CLI.hpp>

#include "command.h"
#include "data_sets.h"
#include "edit/allocate.h"
#include "edit/relabel.h"
#include "edit_volume.h"
#include "journaled_change.h"

namespace ckdvol_tool {
namespace {

struct RelabelOptions {
  std::string path, serial, owner;
  bool ownerGiven = false;
};

int runRelabel(const RelabelOptions& o) {
  const std::string serial = upperName(o.serial);
  std::string error;
  if (!ckdvol::validateVolumeSerial(serial, error)) return failWith(kExitUsage, error);
  if (o.ownerGiven && !ckdvol::validateOwner(o.owner, error)) return failWith(kExitUsage, error);
  EditVolume v;
  if (int status = openForEdit(o.path, v)) return status;
  const std::string before = v.vtoc.volser;
  ckdvol::StagedTracks staged(v.file);
  if (!ckdvol::relabelVolume(staged, v.vtoc, serial, o.ownerGiven ? &o.owner : nullptr, error)) {
    return fail(o.path, error + "; nothing was changed");
  }
  if (int status = journaledChange(staged, o.path, "relabel")) return status;
  if (int status = closeAfterEdit(o.path, v)) return status;
  std::printf("relabelled %s: serial %s (was %s)%s, %s\n", o.path.c_str(), serial.c_str(), before.c_str(),
              o.ownerGiven ? (", owner '" + o.owner + "'").c_str() : "",
              count(v.vtoc.dataSets.size(), "data set").c_str());
  return kExitOk;
}

const CommandRegistration kRegistration(Command{
    "relabel", "Give a volume a new serial (and owner) in its label and DSCBs", 53,
    [](CLI::App& app) -> std::function<int()> {
      auto o = std::make_shared<RelabelOptions>();
      app.add_option("FILE", o->path, "The volume file")->required();
      app.add_option("SERIAL", o->serial, "The new volume serial: 1 to 6 letters, digits, @ # $ or -, a letter first")
          ->required();
      CLI::Option* owner = app.add_option("--owner", o->owner, "The owner field of the label (at most 14 characters)");
      app.footer(
          "The serial is written into the VOL1 label and into every Format-1 and Format-8\n"
          "DSCB (the volume serial their data set names), all in one journaled change.\n"
          "'ckdvol create FILE TYPE --serial SERIAL' does the same for a new volume.\n"
          "\n"
          "Example:\n"
          "  ckdvol relabel work.ckd WORK01 --owner 'SYSTEMS'");
      return [o, owner] {
        o->ownerGiven = owner->count() > 0;
        return runRelabel(*o);
      };
    }});

}  // namespace
}  // namespace ckdvol_tool
