// ckdvol df: the free space of a volume.
//
//   ckdvol df FILE [--json]
#include <algorithm>
#include <cstdio>
#include <memory>
#include <string>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "command.h"
#include "data_sets.h"
#include "edit/free_space.h"
#include "edit/vtoc_edit.h"

namespace ckdvol_tool {
namespace {

using Json = nlohmann::ordered_json;

std::string typeText(const EmulatedCKDfile& f) {
  char buf[16];
  if (f.model != 0) {
    std::snprintf(buf, sizeof buf, "%04X-%u", static_cast<unsigned>(f.deviceType), static_cast<unsigned>(f.model));
  } else {
    std::snprintf(buf, sizeof buf, "%04X", static_cast<unsigned>(f.deviceType));
  }
  return buf;
}

// How the Format-5 DSCBs compare with the computed free space: "" when they agree.
std::string format5Finding(ScannedVolume& v, const ckdvol::FreeSpace& fs, bool& notMaintained) {
  ckdvol::StagedTracks staged(v.file);
  ckdvol::VtocEditor editor(staged);
  std::string error;
  std::vector<ckdvol::TrackRun> recorded;
  notMaintained = false;
  if (!editor.load(v.vtoc, error) || !editor.recordedFreeSpace(recorded, notMaintained, error)) {
    return "the Format-5 DSCBs cannot be read: " + error;
  }
  std::sort(recorded.begin(), recorded.end(),
            [](const ckdvol::TrackRun& a, const ckdvol::TrackRun& b) { return a.first < b.first; });
  uint32_t recordedTracks = 0;
  for (const ckdvol::TrackRun& r : recorded) recordedTracks += r.count;
  bool same = recorded.size() == fs.extents.size();
  for (size_t i = 0; same && i < recorded.size(); ++i) {
    same = recorded[i].first == fs.extents[i].first && recorded[i].count == fs.extents[i].count;
  }
  if (same) return "";
  std::string s = "the Format-5 DSCBs disagree with the computed free space: they list " +
                  count(recorded.size(), "extent") + " of " + count(recordedTracks, "track") + " in all";
  if (notMaintained) s += " (the Format-4 DSCB says they are not maintained)";
  return s;
}

int runDf(const std::string& path, bool json) {
  ScannedVolume v;
  if (int status = scanVolume(path, v, !json)) return status;
  if (v.file.deviceType == EmulatedCKDfile::D200) return fail(path, "D200 volumes have no free space map here");
  const ckdvol::FreeSpace fs = ckdvol::freeSpaceOf(v.vtoc);
  bool notMaintained = false;
  const std::string finding = format5Finding(v, fs, notMaintained);
  const uint32_t heads = fs.heads;
  if (json) {
    Json extents = Json::array();
    for (const ckdvol::TrackRun& r : fs.extents) {
      extents.push_back({{"start", cylHeadText(r.first / heads, r.first % heads)},
                         {"end", cylHeadText((r.end() - 1) / heads, (r.end() - 1) % heads)},
                         {"firstTrack", r.first},
                         {"tracks", r.count},
                         {"cylinders", r.count / heads}});
    }
    Json out = {{"file", path},
                {"serial", v.vtoc.volser},
                {"device", typeText(v.file)},
                {"cylinders", v.file.cylinders},
                {"heads", heads},
                {"volumeTracks", fs.volumeTracks},
                {"freeTracks", fs.freeTracks},
                {"freeCylinders", fs.freeCylinders},
                {"allocatedTracks", fs.allocatedTracks()},
                {"largestFreeTracks", fs.largestTracks},
                {"largestFreeCylinders", fs.largestCylinders},
                {"freeExtents", extents},
                {"format5Agrees", finding.empty()},
                {"format5NotMaintained", notMaintained},
                {"notes", fs.notes}};
    if (!finding.empty()) out["format5Finding"] = finding;
    std::printf("%s\n", out.dump(2).c_str());
    return kExitOk;
  }
  std::printf("free space of %s (serial %s, %s, %s of %s, %s)\n", path.c_str(), v.vtoc.volser.c_str(),
              typeText(v.file).c_str(), count(v.file.cylinders, "cylinder").c_str(), count(heads, "head").c_str(),
              count(fs.volumeTracks, "track").c_str());
  std::printf("%-12s %-12s %10s %10s\n", "start", "end", "tracks", "cylinders");
  for (const ckdvol::TrackRun& r : fs.extents) {
    std::printf("%-12s %-12s %10u %10u\n", cylHeadText(r.first / heads, r.first % heads).c_str(),
                cylHeadText((r.end() - 1) / heads, (r.end() - 1) % heads).c_str(), r.count, r.count / heads);
  }
  std::printf("largest free extent: %s, %s\n", count(fs.largestTracks, "track").c_str(),
              count(fs.largestCylinders, "whole cylinder").c_str());
  std::printf("free: %s (%s) in %s; allocated: %s; volume: %s\n", count(fs.freeTracks, "track").c_str(),
              count(fs.freeCylinders, "whole cylinder").c_str(), count(fs.extents.size(), "extent").c_str(),
              count(fs.allocatedTracks(), "track").c_str(), count(fs.volumeTracks, "track").c_str());
  for (const std::string& n : fs.notes) std::fprintf(stderr, "ckdvol: note: %s: %s\n", path.c_str(), n.c_str());
  if (!finding.empty()) std::printf("note: %s\n", finding.c_str());
  return kExitOk;
}

const CommandRegistration kRegistration(Command{
    "df", "Show the free space of a volume, computed from what is allocated", 37,
    [](CLI::App& app) -> std::function<int()> {
      auto path = std::make_shared<std::string>();
      auto json = std::make_shared<bool>(false);
      app.add_option("FILE", *path, "The volume file")->required();
      app.add_flag("--json", *json, "Print the free space as one JSON object");
      app.footer(
          "Free space is every track that is not the label track (cylinder 0 head 0), not\n"
          "in the VTOC's extent and not in an extent of a data set. Each free extent is\n"
          "listed with its first and last track (CYL/HEAD), its tracks and the whole\n"
          "cylinders they make. The free space the Format-5 DSCBs record is compared with\n"
          "it, and a last line says when they disagree (volumes written by systems that do\n"
          "not keep them, or that set 'free space not maintained' in the Format-4 DSCB).\n"
          "Overlapping extents and extents beyond the end of the volume are noted on\n"
          "standard error.\n"
          "\n"
          "Examples:\n"
          "  ckdvol df work.ckd\n"
          "  ckdvol df work.ckd --json | jq .largestFreeTracks");
      return [path, json] { return runDf(*path, *json); };
    }});

}  // namespace
}  // namespace ckdvol_tool
