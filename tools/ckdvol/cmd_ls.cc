// ckdvol ls: one line per data set of a volume's VTOC.
//
//   ckdvol ls FILE [--json]
//
// For every Format-1 and Format-8 DSCB: the name, the format, DSORG, RECFM,
// LRECL, BLKSIZE, the number of tracks and each extent's first and last
// cylinder/head. The DSCB accessors count tracks as cylinder * 15 + head
// whatever the device; this listing counts them with the volume's own heads
// per cylinder. The volume is opened read-only.
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "command.h"
#include "common/data_translator.h"
#include "dscb/generic_dscb.h"
#include "tool_util.h"
#include "volume_loader.h"

namespace ckdvol_tool {
namespace {

struct Extent {
  int loCyl, loHead, hiCyl, hiHead;
  long long tracks;  // with the volume's heads per cylinder
};

struct DataSet {
  std::string name;
  int format;  // 1 or 8
  unsigned dsorg, recfm, lrecl, blksize;
  int nbrExts;                  // extents the DSCB claims
  std::vector<Extent> extents;  // those found (in the DSCB and its chained Format-3 DSCBs)
  long long tracks;
};

// The data set name: the 44-byte key in ASCII without trailing blanks.
std::string dataSetName(const GenericDSCB& d) {
  char name[GenericDSCB::kKeyLength + 1];
  DataTranslator(DataTranslator::XLATE_EBCDIC_ASCII).copyE2A(name, d.dscb, GenericDSCB::kKeyLength);
  name[GenericDSCB::kKeyLength] = '\0';
  std::string s(name);  // a NUL inside the key ends the name
  while (!s.empty() && s.back() == ' ') s.pop_back();
  return s;
}

// DSORG's usual abbreviation: the organisation bits of the first byte
// (IS 80, PS 40, DA 20, CX 10, PO 02), U (01) for unmovable, VS for VSAM
// (second byte 08); "-" when none is set.
std::string dsorgText(unsigned dsorg) {
  static const struct {
    unsigned bit;
    const char* text;
  } kOrgs[] = {{0x8000, "IS"}, {0x4000, "PS"}, {0x2000, "DA"}, {0x1000, "CX"}, {0x0200, "PO"}, {0x0008, "VS"}};
  std::string s;
  for (const auto& o : kOrgs) {
    if (dsorg & o.bit) {
      s = o.text;
      break;
    }
  }
  if (s.empty()) s = "-";
  if (dsorg & 0x0100) s += "U";
  return s;
}

// RECFM letters: F (80), V (40), U (both); then B (10), S (08), T (20), A (04),
// M (02); "-" when the byte is zero.
std::string recfmText(unsigned recfm) {
  if (recfm == 0) return "-";
  std::string s;
  switch (recfm & 0xC0) {
    case 0xC0: s = "U"; break;
    case 0x80: s = "F"; break;
    case 0x40: s = "V"; break;
    default: s = "?"; break;
  }
  if (recfm & 0x10) s += "B";
  if (recfm & 0x08) s += "S";
  if (recfm & 0x20) s += "T";
  if (recfm & 0x04) s += "A";
  if (recfm & 0x02) s += "M";
  return s;
}

template <class Dscb>
DataSet describe(const Dscb& d, int format, unsigned heads) {
  DataSet ds;
  ds.name = dataSetName(d);
  ds.format = format;
  ds.dsorg = d.getDSorg();
  ds.recfm = d.getRecfm();
  ds.lrecl = d.getLrecl();
  ds.blksize = d.getBlkSize();
  ds.nbrExts = d.nbrExts;
  ds.tracks = 0;
  for (int i = 0; i < d.nbrExts; ++i) {
    Extent e;
    int loTrk, hiTrk;
    if (d.getExtent(i, e.loCyl, e.loHead, e.hiCyl, e.hiHead, loTrk, hiTrk) == 0) break;
    e.tracks = (static_cast<long long>(e.hiCyl) * heads + e.hiHead) -
               (static_cast<long long>(e.loCyl) * heads + e.loHead) + 1;
    ds.tracks += e.tracks;
    ds.extents.push_back(e);
  }
  return ds;
}

std::string cchh(int cyl, int head) { return std::to_string(cyl) + "/" + std::to_string(head); }

int runLs(const std::string& path, bool json) {
  LoadedVolume v;
  int status = loadVolume(path, true, v);
  if (status != kExitOk) return status;
  const unsigned heads = v.file.tracksPerCylinder;
  const DiskVtoc& vtoc = v.volume.vtoc;
  std::vector<DataSet> sets;
  for (int i = 0; i < vtoc.f1List.count; ++i) {
    if (const Format1DSCB* d = vtoc.f1List[i]) sets.push_back(describe(*d, 1, heads));
  }
  for (int i = 0; i < vtoc.f8List.count; ++i) {
    if (const Format8DSCB* d = vtoc.f8List[i]) sets.push_back(describe(*d, 8, heads));
  }
  char type[16];
  std::snprintf(type, sizeof type, "%04X", static_cast<unsigned>(v.file.deviceType));
  const std::string serial = volumeSerial(v.volume.label);

  if (json) {
    nlohmann::ordered_json list = nlohmann::ordered_json::array();
    for (const DataSet& ds : sets) {
      nlohmann::ordered_json extents = nlohmann::ordered_json::array();
      for (const Extent& e : ds.extents) {
        extents.push_back({{"begin", {{"cylinder", e.loCyl}, {"head", e.loHead}}},
                           {"end", {{"cylinder", e.hiCyl}, {"head", e.hiHead}}},
                           {"tracks", e.tracks}});
      }
      list.push_back({{"name", ds.name},
                      {"format", ds.format},
                      {"dsorg", dsorgText(ds.dsorg)},
                      {"dsorgValue", ds.dsorg},
                      {"recfm", recfmText(ds.recfm)},
                      {"recfmValue", ds.recfm},
                      {"lrecl", ds.lrecl},
                      {"blksize", ds.blksize},
                      {"tracks", ds.tracks},
                      {"extentCount", ds.nbrExts},
                      {"extents", extents}});
    }
    nlohmann::ordered_json doc = {{"file", path},
                                  {"serial", serial},
                                  {"deviceType", type},
                                  {"cylinders", v.file.cylinders},
                                  {"tracksPerCylinder", heads},
                                  {"dataSets", list}};
    std::printf("%s\n", doc.dump(2).c_str());
  } else {
    size_t width = 4;
    for (const DataSet& ds : sets) width = ds.name.size() > width ? ds.name.size() : width;
    std::printf("Volume %s: %s, %u cylinders of %u tracks, %zu data set%s\n", serial.c_str(), type,
                v.file.cylinders, heads, sets.size(), sets.size() == 1 ? "" : "s");
    if (!sets.empty()) {
      std::printf("%-*s  FMT  DSORG  RECFM  LRECL  BLKSIZE  TRACKS  EXTENTS\n", static_cast<int>(width),
                  "NAME");
    }
    for (const DataSet& ds : sets) {
      std::string extents;
      for (const Extent& e : ds.extents) {
        extents += (extents.empty() ? "" : " ") + cchh(e.loCyl, e.loHead) + "-" + cchh(e.hiCyl, e.hiHead);
      }
      if (static_cast<int>(ds.extents.size()) < ds.nbrExts) {
        extents += " (" + std::to_string(ds.nbrExts - static_cast<int>(ds.extents.size())) +
                   " more not found)";
      }
      std::printf("%-*s  F%d   %-5s  %-5s  %5u  %7u  %6lld  %s\n", static_cast<int>(width), ds.name.c_str(),
                  ds.format, dsorgText(ds.dsorg).c_str(), recfmText(ds.recfm).c_str(), ds.lrecl, ds.blksize,
                  ds.tracks, extents.c_str());
    }
  }
  if (std::fflush(stdout) != 0) return fail(path, "cannot write the listing");
  return kExitOk;
}

const CommandRegistration kRegistration(Command{
    "ls", "List the data sets of a volume, one line each", 33,
    [](CLI::App& app) -> std::function<int()> {
      struct Args {
        std::string file;
        bool json = false;
      };
      auto args = std::make_shared<Args>();
      app.add_option("FILE", args->file, "Volume file")->required();
      app.add_flag("--json", args->json, "Print the listing as one JSON object");
      app.footer(
          "One line per Format-1 and Format-8 DSCB of the VTOC: name, format, DSORG\n"
          "(PS, PO, DA, IS, VS; U for unmovable), RECFM letters (F, V, U, B, S, T, A, M),\n"
          "LRECL, BLKSIZE, the number of tracks and each extent as first-last\n"
          "cylinder/head. Tracks are counted with the volume's heads per cylinder.\n"
          "Extents in Format-3 DSCBs that are not chained are reported as not found.\n"
          "The volume is opened read-only. A volume without a label, or whose label\n"
          "does not lead to a Format-4 DSCB, gives exit status 1 and a one-line\n"
          "explanation.");
      return [args] { return runLs(args->file, args->json); };
    }});

}  // namespace
}  // namespace ckdvol_tool
