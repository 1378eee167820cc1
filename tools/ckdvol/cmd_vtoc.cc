// ckdvol vtoc: the complete VTOC listing of a volume.
//
//   ckdvol vtoc FILE [--json]
//
// The listing is the library's own (DskVolume::printVTOC): a heading with the
// serial and the time, the label dump, every DSCB dump and the summary. The
// volume is opened read-only.
//
// The volume classes walk the VTOC up to the last active DSCB's track counted
// with 15 heads per cylinder. When that walk refuses a volume whose VTOC the
// data-set layer reads (from the VTOC's own extent, with the device's real
// heads), one line on standard error says so and the listing is made from
// the DSCBs of that extent, with the same DSCB dumps and summary.
//
// --json prints the data-set layer's view: the VTOC's place, the DSCB counts
// and the data sets.
#include <cstdio>
#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "command.h"
#include "data_sets.h"
#include "tool_util.h"
#include "volume_loader.h"
#include "vtoc_fallback.h"

namespace ckdvol_tool {
namespace {

using Json = nlohmann::ordered_json;

int printListing(const std::string& path, LoadedVolume& v) {
  int written;
  try {
    written = v.volume.printVTOC(stdout);
  } catch (const char* text) {
    return fail(path, std::string("cannot list the VTOC: ") + text);
  }
  if (written < 0 || std::fflush(stdout) != 0) return fail(path, "cannot write the listing");
  return kExitOk;
}

int runVtoc(const std::string& path) {
  LoadedVolume v;
  int status = loadVolume(path, false, v);
  if (status != kExitOk) return status;
  std::string cause;
  if (loadVtoc(path, v, cause) == kExitOk) return printListing(path, v);

  ckdvol::VtocInfo info;
  std::string error;
  if (ckdvol::scanVtoc(v.file, info, error) != ckdvol::kScanOk) return fail(path, cause);
  const uint32_t heads = info.heads == 0 ? 1 : info.heads;
  std::fprintf(stderr,
               "ckdvol: %s: the volume classes' VTOC reader refuses this volume (%s); listed instead: the "
               "DSCBs of the VTOC's own extent, tracks %s to %s with %u heads per cylinder\n",
               path.c_str(), cause.c_str(), cylHeadText(info.vtocFirstTrack / heads, info.vtocFirstTrack % heads).c_str(),
               cylHeadText(info.vtocLastTrack / heads, info.vtocLastTrack % heads).c_str(), info.heads);
  fillFromExtent(v.file, info, v.volume.vtoc);
  return printListing(path, v);
}

Json vtocJson(const ScannedVolume& v) {
  const ckdvol::VtocInfo& i = v.vtoc;
  Json sets = Json::array();
  for (const ckdvol::DataSetInfo& ds : i.dataSets) {
    sets.push_back({{"name", ds.name},
                    {"format", ds.format},
                    {"dscb", addressText(ds.address)},
                    {"dsorg", dsorgText(ds.dsorg)},
                    {"recfm", recfmText(ds.recfm)},
                    {"lrecl", ds.lrecl},
                    {"blksize", ds.blksize},
                    {"extentCount", ds.extentCount},
                    {"extentsFound", ds.extents.size()},
                    {"tracks", ds.tracksAllocated},
                    {"tracksUsed", ds.tracksUsed},
                    {"damage", ds.damage.empty() ? Json(nullptr) : Json(ds.damage)}});
  }
  return Json{{"file", v.path},
              {"serial", upperName(i.volser)},
              {"format4", addressText(i.format4At)},
              {"vtocExtent",
               {{"begin", cylHeadText(i.vtocExtent.lowCyl, i.vtocExtent.lowHead)},
                {"end", cylHeadText(i.vtocExtent.highCyl, i.vtocExtent.highHead)}}},
              {"tracksWalked", {{"first", i.vtocFirstTrack}, {"last", i.vtocLastTrack}}},
              {"tracksPerCylinder", i.heads},
              {"cylinders", i.cylinders},
              {"dscbsPerTrack", i.dscbsPerTrack},
              {"lastActive", addressText(i.lastActive)},
              {"counts",
               {{"dscbs", i.dscbRecords},
                {"format0", i.format0},
                {"format1", std::count_if(i.dataSets.begin(), i.dataSets.end(),
                                          [](const ckdvol::DataSetInfo& d) { return d.format == 1; })},
                {"format3", i.format3},
                {"format4", i.format4},
                {"format5", i.format5},
                {"format8", std::count_if(i.dataSets.begin(), i.dataSets.end(),
                                          [](const ckdvol::DataSetInfo& d) { return d.format == 8; })},
                {"format9", i.format9},
                {"unknown", i.unknown}}},
              {"dataSets", sets},
              {"notes", i.notes}};
}

int runVtocJson(const std::string& path) {
  ScannedVolume v;
  if (int status = scanVolume(path, v, false)) return status;
  std::printf("%s\n", vtocJson(v).dump(2).c_str());
  if (std::fflush(stdout) != 0) return fail("standard output", "cannot write the listing");
  return kExitOk;
}

const CommandRegistration kRegistration(Command{
    "vtoc", "List a volume's VTOC: label and every DSCB, dumped field by field", 36,
    [](CLI::App& app) -> std::function<int()> {
      struct Args {
        std::string file;
        bool json = false;
      };
      auto a = std::make_shared<Args>();
      app.add_option("FILE", a->file, "Volume file")->required();
      app.add_flag("--json", a->json, "Print the VTOC's summary and its data sets as one JSON object");
      app.footer(
          "The volume is opened read-only. The listing shows the volume label, the\n"
          "Format-4 DSCB, the Format-5 (free space) DSCBs, each Format-1 data set DSCB\n"
          "with its chained Format-3 DSCBs, each Format-8 DSCB with its Format-9 and\n"
          "Format-3 DSCBs, and a summary of the counts. Only the VTOC records up to the\n"
          "track of the last active DSCB (named by the Format-4 DSCB, tracks counted with\n"
          "15 heads per cylinder) are read. When that reader refuses the volume but the\n"
          "VTOC's own extent can be walked with the device's real heads per cylinder, one\n"
          "line on standard error says so and the listing shows the DSCBs of that extent.\n"
          "Diagnostic lines of the reader appear as notes on standard error.\n"
          "--json gives the walk of the VTOC's extent instead: the Format-4 DSCB's\n"
          "address, the extent, the last active DSCB, the count of DSCBs of each format,\n"
          "the data sets (name, format, DSCB address, DSORG, RECFM, LRECL, BLKSIZE,\n"
          "extents, tracks allocated and used, damage) and notes.\n"
          "A volume without a label, or whose label does not lead to a Format-4 DSCB,\n"
          "gives exit status 1 and a one-line explanation.");
      return [a] { return a->json ? runVtocJson(a->file) : runVtoc(a->file); };
    }});

}  // namespace
}  // namespace ckdvol_tool
