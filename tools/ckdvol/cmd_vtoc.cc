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
#include <map>
#include <memory>
#include <set>
#include <tuple>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "command.h"
#include "data_sets.h"
#include "dscb/format1_dscb.h"
#include "dscb/format3_dscb.h"
#include "dscb/format4_dscb.h"
#include "dscb/format5_dscb.h"
#include "dscb/format8_dscb.h"
#include "dscb/format9_dscb.h"
#include "dscb/generic_dscb.h"
#include "tool_util.h"
#include "volume_loader.h"

namespace ckdvol_tool {
namespace {

using Json = nlohmann::ordered_json;

constexpr int kCountFieldSize = 8;
constexpr int kRecordAreaEnd = 24;  // the record area ends this far before the slot's end
constexpr int kMaxChainLinks = 5000;

using Address = std::tuple<int, int, int>;

// The DSCBs of the VTOC's extent, by address, as 140-byte images.
using DscbImages = std::map<Address, std::vector<unsigned char>>;

// Reads every 44/96 record of the tracks the data-set layer walked, record 1
// upwards on each track until a record number is missing. Records that
// would reach past the track's record area are left out.
DscbImages readVtocExtent(EmulatedCKDfile& file, const ckdvol::VtocInfo& vtoc) {
  DscbImages images;
  if (vtoc.heads == 0) return images;
  for (uint32_t t = vtoc.vtocFirstTrack; t <= vtoc.vtocLastTrack && t >= vtoc.vtocFirstTrack; ++t) {
    const unsigned cyl = t / vtoc.heads;
    const unsigned short head = static_cast<unsigned short>(t % vtoc.heads);
    if (file.readTrack(cyl, head, 0) != 0) continue;
    for (int r = 1; r <= 255; ++r) {
      const void* ref = file.searchRecord(nullptr, cyl, head, static_cast<unsigned char>(r));
      if (ref == nullptr) break;
      if (file.getRefKL(ref) != GenericDSCB::kKeyLength || file.getRefDL(ref) != GenericDSCB::kDataLength) continue;
      const unsigned char* at = static_cast<const unsigned char*>(ref);
      const unsigned long long end = static_cast<unsigned long long>(at - file.trackBuffer) + kCountFieldSize +
                                     GenericDSCB::kKeyLength + GenericDSCB::kDataLength;
      if (file.trackSlotSize < kRecordAreaEnd || end > file.trackSlotSize - kRecordAreaEnd) continue;
      const unsigned char* key = file.getRefKey(ref);
      images[Address(static_cast<int>(cyl), head, r)].assign(key, key + ckdvol::kDscbSize);
    }
  }
  return images;
}

// A DSCB object of the image at `a`, or null; the caller owns it.
template <class T>
T* makeAt(const DscbImages& images, const Address& a, int type, bool large) {
  auto it = images.find(a);
  if (it == images.end()) return nullptr;
  std::unique_ptr<GenericDSCB> d(
      GenericDSCB::create(it->second.data(), std::get<0>(a), std::get<1>(a), std::get<2>(a)));
  T* typed = d && d->getType() == type ? dynamic_cast<T*>(d.get()) : nullptr;
  if (typed == nullptr) return nullptr;
  d.release();
  typed->largeCylinders = large;
  return typed;
}

bool endOfChain(const Address& a) { return a == Address(0, 0, 0); }

void followFormat3(const DscbImages& images, Address a, DynamicTypedPointerArray<Format3DSCB const>& list,
                   bool large) {
  std::set<Address> seen;
  for (int links = 0; links < kMaxChainLinks && !endOfChain(a) && seen.insert(a).second; ++links) {
    Format3DSCB* f3 = makeAt<Format3DSCB>(images, a, 3, large);
    if (f3 == nullptr) return;
    list.add(f3);
    f3->getF3dscbLoc(std::get<0>(a), std::get<1>(a), std::get<2>(a));
  }
}

// Fills `vtoc` (reset first) the way the volume classes file a VTOC, from
// the DSCBs of the extent the data-set layer walked.
void fillFromExtent(EmulatedCKDfile& file, const ckdvol::VtocInfo& info, DiskVtoc& vtoc) {
  vtoc.reset();
  const bool large = file.largeCylinders != 0;
  const DscbImages images = readVtocExtent(file, info);
  const Address f4At(static_cast<int>(info.format4At.cyl), static_cast<int>(info.format4At.head),
                     info.format4At.record);
  if (Format4DSCB* f4 = makeAt<Format4DSCB>(images, f4At, 4, large)) vtoc.f4.reset(f4);
  for (const auto& entry : images) {
    if (entry.first == f4At) continue;
    const Address& a = entry.first;
    std::unique_ptr<GenericDSCB> d(GenericDSCB::create(entry.second.data(), std::get<0>(a), std::get<1>(a),
                                                       std::get<2>(a)));
    const int type = d->getType();
    if (type == 0) {
      ++vtoc.f0Count;
    } else if (Format1DSCB* f1 = type == 1 ? makeAt<Format1DSCB>(images, a, 1, large) : nullptr) {
      vtoc.f1List.add(f1);
      Address next;
      f1->getF3dscbLoc(std::get<0>(next), std::get<1>(next), std::get<2>(next));
      followFormat3(images, next, f1->f3List, large);
    } else if (Format5DSCB* f5 = type == 5 ? makeAt<Format5DSCB>(images, a, 5, large) : nullptr) {
      vtoc.f5List.add(f5);
    } else if (Format8DSCB* f8 = type == 8 ? makeAt<Format8DSCB>(images, a, 8, large) : nullptr) {
      vtoc.f8List.add(f8);
      Address next;
      f8->getF9dscbLoc(std::get<0>(next), std::get<1>(next), std::get<2>(next));
      std::set<Address> seen;
      for (int links = 0; links < kMaxChainLinks && !endOfChain(next) && seen.insert(next).second; ++links) {
        Format9DSCB* f9 = makeAt<Format9DSCB>(images, next, 9, large);
        if (f9 == nullptr) break;
        f8->f9List.add(f9);
        for (int j = 0; j < f9->getF3count(); ++j) {
          Address f3;
          if (!f9->getF3dscbLoc(j, std::get<0>(f3), std::get<1>(f3), std::get<2>(f3))) break;
          followFormat3(images, f3, f8->f3List, large);
        }
        f9->getF9dscbLoc(std::get<0>(next), std::get<1>(next), std::get<2>(next));
      }
    } else if (type != 3 && type != 9) {
      ++vtoc.unknownCount;
    }
  }
}

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
