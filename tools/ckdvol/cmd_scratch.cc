// ckdvol scratch: delete a data set from the VTOC.
//
//   ckdvol scratch FILE DSN
#include <cstdio>
#include <memory>
#include <string>

#include <CLI/CLI.hpp>

#include "command.h"
#include "data_sets.h"
#include "edit/vtoc_edit.h"
#include "edit_volume.h"
#include "journaled_change.h"

namespace ckdvol_tool {
namespace {

int runScratch(const std::string& path, const std::string& dsn) {
  const std::string name = upperName(dsn);
  if (name.empty()) return failWith(kExitUsage, "no data set name given");
  EditVolume v;
  if (int status = openForEdit(path, v)) return status;
  const ckdvol::DataSetInfo* ds = ckdvol::findDataSet(v.vtoc, name);
  if (ds == nullptr) ds = ckdvol::findDataSet(v.vtoc, dsn);
  if (ds == nullptr) {
    std::vector<std::string> names;
    for (const ckdvol::DataSetInfo& d : v.vtoc.dataSets) names.push_back(d.name);
    return fail(path, "data set " + name + " not found" + didYouMean(nearNames(names, name)) + "; nothing was changed");
  }
  const std::string found = ds->name;
  const uint32_t tracks = ds->tracksAllocated;
  ckdvol::StagedTracks staged(v.file);
  ckdvol::VtocEditor editor(staged);
  std::string error;
  if (!editor.load(v.vtoc, error) || !editor.removeDataSet(found, error)) return fail(path, error + "; nothing was changed");
  if (int status = journaledChange(staged, path, "scratch")) return status;
  if (int status = closeAfterEdit(path, v)) return status;
  std::printf("scratched %s on %s: %s free again\n", found.c_str(), path.c_str(), count(tracks, "track").c_str());
  return kExitOk;
}

const CommandRegistration kRegistration(Command{
    "scratch", "Delete a data set: its DSCBs become empty and its space free", 51,
    [](CLI::App& app) -> std::function<int()> {
      auto path = std::make_shared<std::string>();
      auto dsn = std::make_shared<std::string>();
      app.add_option("FILE", *path, "The volume file")->required();
      app.add_option("DSN", *dsn, "The data set (any case)")->required();
      app.footer(
          "The data set's Format-1 (or Format-8) DSCB and every DSCB of its chain are\n"
          "emptied, and the free space records (Format-5 DSCBs) are rewritten. The data\n"
          "tracks are left as they are. Written through the change journal.\n"
          "\n"
          "Example:\n"
          "  ckdvol scratch work.ckd MY.DATA");
      return [path, dsn] { return runScratch(*path, *dsn); };
    }});

}  // namespace
}  // namespace ckdvol_tool
