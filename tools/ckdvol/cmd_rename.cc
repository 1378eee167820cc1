// ckdvol rename: give a data set a new name.
//
//   ckdvol rename FILE OLD NEW
#include <cstdio>
#include <memory>
#include <string>

#include <CLI/CLI.hpp>

#include "command.h"
#include "data_sets.h"
#include "edit/allocate.h"
#include "edit/vtoc_edit.h"
#include "edit_volume.h"
#include "journaled_change.h"

namespace ckdvol_tool {
namespace {

int runRename(const std::string& path, const std::string& from, const std::string& to) {
  const std::string newName = upperName(to);
  std::string error;
  if (!ckdvol::validateDataSetName(newName, error)) return failWith(kExitUsage, error);
  EditVolume v;
  if (int status = openForEdit(path, v)) return status;
  const ckdvol::DataSetInfo* ds = ckdvol::findDataSet(v.vtoc, upperName(from));
  if (ds == nullptr) ds = ckdvol::findDataSet(v.vtoc, from);
  if (ds == nullptr) {
    std::vector<std::string> names;
    for (const ckdvol::DataSetInfo& d : v.vtoc.dataSets) names.push_back(d.name);
    return fail(path, "data set " + upperName(from) + " not found" + didYouMean(nearNames(names, from)) +
                          "; nothing was changed");
  }
  const std::string oldName = ds->name;
  ckdvol::StagedTracks staged(v.file);
  ckdvol::VtocEditor editor(staged);
  if (!editor.load(v.vtoc, error) || !editor.renameDataSet(oldName, newName, error)) {
    return fail(path, error + "; nothing was changed");
  }
  if (int status = journaledChange(staged, path, "rename")) return status;
  if (int status = closeAfterEdit(path, v)) return status;
  std::printf("renamed %s to %s on %s\n", oldName.c_str(), newName.c_str(), path.c_str());
  return kExitOk;
}

const CommandRegistration kRegistration(Command{
    "rename", "Give a data set a new name", 52,
    [](CLI::App& app) -> std::function<int()> {
      auto path = std::make_shared<std::string>();
      auto from = std::make_shared<std::string>();
      auto to = std::make_shared<std::string>();
      app.add_option("FILE", *path, "The volume file")->required();
      app.add_option("OLD", *from, "The data set (any case)")->required();
      app.add_option("NEW", *to, "Its new name (any case; stored in upper case)")->required();
      app.footer(
          "Only the name (the key of the data set's DSCB) changes. A name already in use\n"
          "is refused. Written through the change journal.\n"
          "\n"
          "Example:\n"
          "  ckdvol rename work.ckd MY.DATA MY.OLD.DATA");
      return [path, from, to] { return runRename(*path, *from, *to); };
    }});

}  // namespace
}  // namespace ckdvol_tool
