// ckdvol ls: the data sets of one or more volumes, one line each.
//
//   ckdvol ls FILE... [--json]
//
// The VTOC is read by the data-set layer: every track of the VTOC's own
// extent, with the device's real heads per cylinder. For every Format-1 and
// Format-8 DSCB: the name, the format, DSORG, RECFM, LRECL, BLKSIZE, key
// length, the dates, tracks allocated and used, and each extent's first and
// last cylinder/head. Volumes are opened read-only.
#include <algorithm>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "command.h"
#include "data_sets.h"
#include "tool_util.h"

namespace ckdvol_tool {
namespace {

using ckdvol::DataSetInfo;
using Json = nlohmann::ordered_json;

std::string deviceType(const EmulatedCKDfile& file) {
  char type[16];
  std::snprintf(type, sizeof type, "%04X", static_cast<unsigned>(file.deviceType));
  return type;
}

std::string orDash(const std::string& s) { return s.empty() ? "-" : s; }

// Percent of the allocated tracks in use, "-" when nothing is allocated.
std::string usedPercent(const DataSetInfo& ds) {
  if (ds.tracksAllocated == 0) return "-";
  return std::to_string(static_cast<unsigned long long>(ds.tracksUsed) * 100 / ds.tracksAllocated) + "%";
}

std::string extentsText(const DataSetInfo& ds) {
  std::string s;
  for (const ckdvol::Extent& e : ds.extents) {
    s += (s.empty() ? "" : " ") + cylHeadText(e.lowCyl, e.lowHead) + "-" + cylHeadText(e.highCyl, e.highHead);
  }
  if (!ds.damage.empty()) s += (s.empty() ? "" : " ") + std::string("(damaged: see the note)");
  return s;
}

Json dateJson(const ckdvol::YearDay& d) {
  if (d.empty()) return nullptr;
  return Json{{"julian", julianText(d)}, {"iso", isoText(d)}};
}

Json volumeJson(const ScannedVolume& v, std::vector<const DataSetInfo*>& sets) {
  Json list = Json::array();
  for (const DataSetInfo* ds : sets) {
    Json extents = Json::array();
    for (const ckdvol::Extent& e : ds->extents) {
      extents.push_back({{"begin", {{"cylinder", e.lowCyl}, {"head", e.lowHead}}},
                         {"end", {{"cylinder", e.highCyl}, {"head", e.highHead}}},
                         {"tracks", ckdvol::extentTracks(e, v.vtoc.heads)}});
    }
    list.push_back({{"name", ds->name},
                    {"format", ds->format},
                    {"dscb", addressText(ds->address)},
                    {"dsorg", dsorgText(ds->dsorg)},
                    {"dsorgValue", ds->dsorg},
                    {"recfm", recfmText(ds->recfm)},
                    {"recfmValue", ds->recfm},
                    {"lrecl", ds->lrecl},
                    {"blksize", ds->blksize},
                    {"keyLength", ds->keyLength},
                    {"created", dateJson(ds->created)},
                    {"referenced", dateJson(ds->referenced)},
                    {"expires", dateJson(ds->expires)},
                    {"tracks", ds->tracksAllocated},
                    {"tracksUsed", ds->tracksUsed},
                    {"usedFromPointer", ds->usedFromPointer},
                    {"extentCount", ds->extentCount},
                    {"extents", extents},
                    {"damage", ds->damage.empty() ? Json(nullptr) : Json(ds->damage)}});
  }
  return Json{{"file", v.path},
              {"serial", upperName(v.vtoc.volser)},
              {"deviceType", deviceType(v.file)},
              {"cylinders", v.vtoc.cylinders},
              {"tracksPerCylinder", v.vtoc.heads},
              {"dataSets", list},
              {"notes", v.vtoc.notes}};
}

void printVolume(const ScannedVolume& v, std::vector<const DataSetInfo*>& sets) {
  std::printf("Volume %s: %s, %u cylinders of %u tracks, %s\n", upperName(v.vtoc.volser).c_str(),
              deviceType(v.file).c_str(), v.vtoc.cylinders, v.vtoc.heads, count(sets.size(), "data set").c_str());
  if (sets.empty()) return;
  size_t width = 4;
  for (const DataSetInfo* ds : sets) width = std::max(width, ds->name.size());
  const int w = static_cast<int>(width);
  std::printf("%-*s  FMT  DSORG  RECFM  LRECL  BLKSIZE  KEYLEN  CREATED   REFERENCED  EXPIRES   TRACKS    USED  USED%%"
              "  EXTENTS\n",
              w, "NAME");
  for (const DataSetInfo* ds : sets) {
    std::printf("%-*s  F%d   %-5s  %-5s  %5u  %7u  %6u  %-8s  %-10s  %-8s  %6u  %6u  %5s  %s\n", w, ds->name.c_str(),
                ds->format, dsorgText(ds->dsorg).c_str(), recfmText(ds->recfm).c_str(), ds->lrecl, ds->blksize,
                ds->keyLength, orDash(julianText(ds->created)).c_str(), orDash(julianText(ds->referenced)).c_str(),
                orDash(julianText(ds->expires)).c_str(), ds->tracksAllocated, ds->tracksUsed,
                usedPercent(*ds).c_str(), extentsText(*ds).c_str());
  }
}

int runLs(const std::vector<std::string>& paths, bool json) {
  int result = kExitOk;
  Json volumes = Json::array();
  bool first = true;
  for (const std::string& path : paths) {
    ScannedVolume v;
    if (scanVolume(path, v, true) != kExitOk) {
      result = kExitFailure;
      continue;
    }
    std::vector<const DataSetInfo*> sets;
    for (const DataSetInfo& ds : v.vtoc.dataSets) sets.push_back(&ds);
    std::stable_sort(sets.begin(), sets.end(),
                     [](const DataSetInfo* a, const DataSetInfo* b) { return a->name < b->name; });
    for (const DataSetInfo* ds : sets) {
      if (!ds->damage.empty()) {
        std::fprintf(stderr, "ckdvol: note: %s: data set %s: %s\n", path.c_str(), ds->name.c_str(),
                     ds->damage.c_str());
      }
    }
    if (json) {
      volumes.push_back(volumeJson(v, sets));
    } else {
      if (!first) std::printf("\n");
      printVolume(v, sets);
    }
    first = false;
  }
  if (json) std::printf("%s\n", Json{{"volumes", volumes}}.dump(2).c_str());
  if (std::fflush(stdout) != 0) return fail("standard output", "cannot write the listing");
  return result;
}

const CommandRegistration kRegistration(Command{
    "ls", "List the data sets of one or more volumes, one line each", 33,
    [](CLI::App& app) -> std::function<int()> {
      struct Args {
        std::vector<std::string> files;
        bool json = false;
      };
      auto args = std::make_shared<Args>();
      app.add_option("FILE", args->files, "Volume files")->required();
      app.add_flag("--json", args->json, "Print the listing as one JSON object");
      app.footer(
          "For each volume a heading line (serial, device type, size), then one line per\n"
          "Format-1 and Format-8 DSCB of the VTOC, sorted by name: format, DSORG (PS, PO,\n"
          "DA, IS, VS; U for unmovable), RECFM letters (F, V, U, B, S, T, A, M), LRECL,\n"
          "BLKSIZE, key length, the dates created, last referenced and expiring as\n"
          "YYYY.DDD (year and day of the year; - when not recorded), tracks allocated,\n"
          "tracks used (up to the data set's last-block pointer; all allocated tracks\n"
          "for data sets that keep no pointer) and their percentage, and each extent as\n"
          "first-last cylinder/head. Tracks are counted with the device's real heads per\n"
          "cylinder. The whole extent of the VTOC is read. A data set whose DSCB chain is\n"
          "damaged is listed with a note on standard error naming the damage.\n"
          "--json prints {\"volumes\": [...]}, one object per volume (file, serial,\n"
          "deviceType, cylinders, tracksPerCylinder, dataSets, notes), dates as\n"
          "{\"julian\": \"2024.123\", \"iso\": \"2024-05-02\"} or null.\n"
          "Volumes are opened read-only. A volume that cannot be read is named with the\n"
          "cause on standard error; the others are still listed, and the exit status is 1.");
      return [args] { return runLs(args->files, args->json); };
    }});

}  // namespace
}  // namespace ckdvol_tool
