// ckdvol alloc: allocate a new, empty data set.
//
//   ckdvol alloc FILE DSN [--dsorg PS|PO] [--recfm FB] [--lrecl 80] [--blksize N]
//                (--tracks N | --cylinders N) [--secondary N] [--dirblks N] [--at CYL:HEAD]
#include <cstdio>
#include <memory>
#include <string>

#include <CLI/CLI.hpp>

#include "command.h"
#include "data_sets.h"
#include "edit/allocate.h"
#include "edit_volume.h"
#include "journaled_change.h"

namespace ckdvol_tool {
namespace {

struct AllocOptions {
  std::string path, dsn, dsorg = "PS", recfm = "FB", at;
  int lrecl = 80, blksize = 0;
  long long tracks = 0, cylinders = 0, secondary = 0, dirblks = 0;
};

bool parseAt(const std::string& text, uint32_t& cyl, uint32_t& head) {
  const size_t colon = text.find(':');
  if (colon == std::string::npos || colon == 0 || colon + 1 == text.size()) return false;
  try {
    size_t used = 0;
    const unsigned long c = std::stoul(text.substr(0, colon), &used);
    if (used != colon) return false;
    const std::string h = text.substr(colon + 1);
    const unsigned long hd = std::stoul(h, &used);
    if (used != h.size() || c > 0x0FFFFFFF || hd > 0xFFFF) return false;
    cyl = static_cast<uint32_t>(c);
    head = static_cast<uint32_t>(hd);
    return true;
  } catch (const std::exception&) {
    return false;
  }
}

std::string extentsText(const std::vector<ckdvol::Extent>& extents, uint32_t heads) {
  std::string s;
  for (const ckdvol::Extent& e : extents) {
    if (!s.empty()) s += ", ";
    s += cylHeadText(e.lowCyl, e.lowHead) + "-" + cylHeadText(e.highCyl, e.highHead) + " (" +
         count(ckdvol::extentTracks(e, heads), "track") + ")";
  }
  return s;
}

int runAlloc(const AllocOptions& o) {
  ckdvol::AllocationRequest r;
  r.name = upperName(o.dsn);
  std::string error;
  if (!ckdvol::validateDataSetName(r.name, error)) return failWith(kExitUsage, error);
  const std::string dsorg = upperName(o.dsorg);
  if (dsorg != "PS" && dsorg != "PO") return failWith(kExitUsage, "--dsorg is PS or PO, not " + o.dsorg);
  r.dsorg = dsorg == "PO" ? ckdvol::kDsorgPO : ckdvol::kDsorgPS;
  if (!ckdvol::parseRecfm(o.recfm, r.recfm)) {
    return failWith(kExitUsage, "--recfm is F, FB, V, VB or U (optionally followed by A or M), not " + o.recfm);
  }
  if (o.lrecl < 0 || o.lrecl > ckdvol::kMaxBlockSize) return failWith(kExitUsage, "--lrecl is from 0 to 32760");
  if (o.blksize < 0 || o.blksize > ckdvol::kMaxBlockSize) return failWith(kExitUsage, "--blksize is from 1 to 32760");
  r.lrecl = static_cast<uint16_t>(o.lrecl);
  r.blksize = static_cast<uint16_t>(o.blksize);
  if ((o.tracks > 0) == (o.cylinders > 0)) return failWith(kExitUsage, "give the space as --tracks N or --cylinders N (one of them, N at least 1)");
  const long long primary = o.tracks > 0 ? o.tracks : o.cylinders;
  if (primary > 0xFFFFFFFFLL) return failWith(kExitUsage, "the primary quantity is too large");
  r.cylinders = o.cylinders > 0;
  r.primary = static_cast<uint32_t>(primary);
  if (o.secondary < 0 || o.secondary > 0xFFFFFF) return failWith(kExitUsage, "--secondary is from 0 to 16777215");
  r.secondary = static_cast<uint32_t>(o.secondary);
  if (o.dirblks < 0 || o.dirblks > 0xFFFFFF) return failWith(kExitUsage, "--dirblks is a count of directory blocks");
  r.directoryBlocks = static_cast<uint32_t>(o.dirblks);
  if (r.dsorg == ckdvol::kDsorgPO && r.directoryBlocks == 0) r.directoryBlocks = 5;
  uint32_t atCyl = 0, atHead = 0;
  if (!o.at.empty()) {
    if (!parseAt(o.at, atCyl, atHead)) return failWith(kExitUsage, "--at takes CYL:HEAD, e.g. 3:0, not " + o.at);
    r.placed = true;
  }

  EditVolume v;
  if (int status = openForEdit(o.path, v)) return status;
  const uint32_t heads = v.file.tracksPerCylinder;
  if (r.placed) {
    if (atHead >= heads || atCyl >= v.file.cylinders) {
      return failWith(kExitUsage, "--at " + o.at + " is not on the volume (" + count(v.file.cylinders, "cylinder") +
                                      " of " + count(heads, "head") + ")");
    }
    r.atTrack = atCyl * heads + atHead;
  }
  ckdvol::StagedTracks staged(v.file);
  ckdvol::AllocationResult result;
  if (!ckdvol::allocateDataSet(staged, v.vtoc, r, result, error)) return fail(o.path, error + "; nothing was changed");
  if (int status = journaledChange(staged, o.path, "alloc")) return status;
  if (int status = closeAfterEdit(o.path, v)) return status;
  std::printf("allocated %s on %s: %s, %s in %s: %s; DSCB at %s\n", r.name.c_str(), o.path.c_str(),
              (dsorgText(r.dsorg) + " " + recfmText(r.recfm) + " " + std::to_string(r.lrecl) + "/" +
               std::to_string(result.blksize))
                  .c_str(),
              count(result.tracks, "track").c_str(), count(result.extents.size(), "extent").c_str(),
              extentsText(result.extents, heads).c_str(), addressText(result.format1).c_str());
  return kExitOk;
}

const CommandRegistration kRegistration(Command{
    "alloc", "Allocate a new, empty sequential or partitioned data set", 50,
    [](CLI::App& app) -> std::function<int()> {
      auto o = std::make_shared<AllocOptions>();
      app.add_option("FILE", o->path, "The volume file")->required();
      app.add_option("DSN", o->dsn, "The new data set's name (any case; stored in upper case)")->required();
      app.add_option("--dsorg", o->dsorg, "PS (sequential, the default) or PO (partitioned)");
      app.add_option("--recfm", o->recfm, "Record format: F, FB (the default), V, VB or U, optionally with A or M");
      app.add_option("--lrecl", o->lrecl, "Logical record length (default 80)");
      app.add_option("--blksize", o->blksize,
                     "Block size (default: F the LRECL; otherwise the largest that fits half a track,\n"
                     "for FB a multiple of the LRECL)");
      app.add_option("--tracks", o->tracks, "Primary space in tracks");
      app.add_option("--cylinders", o->cylinders, "Primary space in cylinders (whole cylinders)");
      app.add_option("--secondary", o->secondary, "Secondary quantity, in the primary's unit (recorded only)");
      app.add_option("--dirblks", o->dirblks, "Directory blocks of a PO data set (default 5)");
      app.add_option("--at", o->at, "Place the space at CYL:HEAD (one extent; for --cylinders head 0)");
      app.footer(
          "The space is one extent when a free extent is large enough (the lowest-addressed\n"
          "one), otherwise up to 5 extents, the largest free extents first. It is taken below\n"
          "cylinder 65520. Every allocated track is rewritten empty; a PS data set gets an\n"
          "end-of-file record on its first track, a PO data set its directory blocks (empty)\n"
          "and then an end-of-file record. The change is written through the change journal:\n"
          "it is complete or, after a failure, undone ('ckdvol recover' finishes an\n"
          "interrupted one). A name in use, a bad name or attributes, or too little room are\n"
          "refused before anything is written.\n"
          "\n"
          "Examples:\n"
          "  ckdvol alloc work.ckd MY.DATA --tracks 15\n"
          "  ckdvol alloc work.ckd MY.LOAD --dsorg PO --recfm U --lrecl 0 --blksize 6144 \\\n"
          "      --cylinders 2 --dirblks 20\n"
          "  ckdvol alloc work.ckd MY.VB --recfm VB --lrecl 255 --tracks 30 --at 3:0");
      return [o] { return runAlloc(*o); };
    }});

}  // namespace
}  // namespace ckdvol_tool
