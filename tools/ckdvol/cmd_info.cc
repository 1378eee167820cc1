// ckdvol info: what a volume file's header says and what open() made of it.
//
//   ckdvol info FILE [--json]
//
// The volume is opened read-only, so nothing on it changes, not even an
// update that its header asks for (a level-0 file or a pending version).
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include <sys/stat.h>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "ckdfile/emulated_ckd_file.h"
#include "ckdfile/volume_format.h"
#include "command.h"
#include "open_failure.h"
#include "common/byte_order.h"
#include "tool_util.h"

namespace ckdvol_tool {

// Hercules images are described by the convert command's code (cmd_convert.cc).
bool isHerculesCkdImage(const std::string& path);
int describeHerculesImage(const std::string& path, bool json);

namespace {

using ckdvol::loadLe16;
using ckdvol::loadLe32;

std::string typeText(uint32_t type, unsigned model) {
  char buf[32];
  if (model != 0) {
    std::snprintf(buf, sizeof buf, "%04X-%u", type, model);
  } else {
    std::snprintf(buf, sizeof buf, "%04X", type);
  }
  return buf;
}

// Printable form of a header text field (magic, version marker); empty when
// the field is all zero.
std::string fieldText(const unsigned char* p, int length) {
  bool zero = true;
  for (int i = 0; i < length; ++i) zero = zero && p[i] == 0;
  return zero ? "" : escapedText(p, length);
}

int runInfo(const std::string& path, bool json) {
  if (isHerculesCkdImage(path)) return describeHerculesImage(path, json);
  VolumeLock lock;
  if (int status = lock.acquire(path, false)) return status;
  EmulatedCKDfile f;
  const int rc = f.open(path.c_str(), true);
  if (rc < 0) return openFailed(path, rc, errno, f.errorText);
  unsigned char h[ckdvol::kHeaderSize];
  if (f.readHeader(h, true) != EmulatedCKDfile::kHeaderOk) {
    return fail(path, std::string("cannot read the header again: ") + std::strerror(errno));
  }
  struct stat st;
  const long long size = ::fstat(f.fileDescriptor, &st) == 0 ? static_cast<long long>(st.st_size) : -1;
  const long long slotsEnd = f.getMaxOffset();
  const long long savedCopies = size > slotsEnd ? (size - slotsEnd) / f.trackSlotSize : 0;
  const unsigned long long tracks =
      f.deviceType == EmulatedCKDfile::D200
          ? static_cast<unsigned long long>(slotsEnd - ckdvol::kHeaderSize) / f.trackSlotSize
          : static_cast<unsigned long long>(f.cylinders) * f.tracksPerCylinder;
  const bool pending = rc == EmulatedCKDfile::kOpenReadOnlyPending;
  // D200 is shown as it is addressed; open()'s count (slots / 20) means
  // nothing for it, and neither does its "correction".
  const bool d200 = f.deviceType == EmulatedCKDfile::D200;
  const unsigned cylinders = d200 ? kD200CylindersPerCell : f.cylinders;
  const unsigned heads = d200 ? kD200HeadsPerCylinder : f.tracksPerCylinder;
  const bool corrected = !d200 && f.cylindersCorrected != 0;
  const SizeCheck sizeCheck = checkFileSize(h, size);

  nlohmann::ordered_json header = {
      {"magic", fieldText(h + ckdvol::kHdrMagic, ckdvol::kMagicLength)},
      {"heads", loadLe32(h + ckdvol::kHdrHeads)},
      {"trackSize", loadLe32(h + ckdvol::kHdrTrackSize)},
      {"deviceCode", h[ckdvol::kHdrDeviceCode]},
      {"formatLevel", h[ckdvol::kHdrFormatLevel]},
      {"createdCylinders", loadLe32(h + ckdvol::kHdrCreatedCylinders)},
      {"cylinders", loadLe32(h + ckdvol::kHdrCylinders)},
      {"versionMarker", fieldText(h + ckdvol::kHdrVersionMarker, ckdvol::kVersionMarkerLength)},
      {"activeVersion", loadLe16(h + ckdvol::kHdrActiveVersion)},
      {"latestVersion", loadLe16(h + ckdvol::kHdrLatestVersion)},
  };
  nlohmann::ordered_json volume = {
      {"file", path},
      {"fileSize", size},
      {"deviceType", typeText(f.deviceType, 0)},
      {"model", f.model},
      {"formatLevel", f.formatLevel},
      {"cylinders", cylinders},
      {"cylindersCorrected", corrected},
      {"headerCylinders", f.cylindersCorrected ? f.headerCylinders : loadLe32(h + ckdvol::kHdrCylinders)},
      {"tracksPerCylinder", heads},
      {"cells", f.cellCount},
      {"tracks", tracks},
      {"trackSlotSize", f.trackSlotSize},
      {"trackCapacity", f.trackCapacity},
      {"largeCylinders", f.largeCylinders != 0},
      {"activeVersion", f.activeVersion},
      {"latestVersion", f.latestVersion},
      {"savedCopies", savedCopies},
      {"readOnly", f.readOnly != 0},
      {"headerUpdatePending", pending},
      {"headerFileSize", sizeCheck.headerSize},
      {"sizeFinding", sizeCheck.finding.empty() ? nlohmann::ordered_json() : nlohmann::ordered_json(sizeCheck.finding)},
      {"header", header},
  };
  if (json) {
    std::printf("%s\n", volume.dump(2).c_str());
    return kExitOk;
  }

  std::printf("file:               %s (%lld bytes)\n", path.c_str(), size);
  std::printf("device type:        %s\n", typeText(f.deviceType, f.model).c_str());
  std::printf("format level:       %u\n", f.formatLevel);
  if (d200) {
    std::printf("cylinders:          %u per cell\n", cylinders);
    std::printf("geometry:           %s, tracks of %u bytes\n", d200GeometryText().c_str(), f.trackSlotSize);
  } else {
    if (corrected) {
      std::printf("cylinders:          %u (corrected from the file size; header says %u)\n", f.cylinders,
                  f.headerCylinders);
    } else {
      std::printf("cylinders:          %u\n", f.cylinders);
    }
    std::printf("geometry:           %s, %s, %llu tracks of %u bytes\n", count(heads, "head").c_str(),
                count(f.cellCount, "cell").c_str(), tracks, f.trackSlotSize);
  }
  if (!sizeCheck.finding.empty()) std::printf("file size:          %s\n", sizeCheck.finding.c_str());
  std::printf("track capacity:     %u bytes\n", f.trackCapacity);
  std::printf("large cylinders:    %s\n", f.largeCylinders ? "yes" : "no");
  std::printf("versions:           active %d, latest %d, %lld saved cop%s\n", f.activeVersion,
              f.latestVersion, savedCopies, savedCopies == 1 ? "y" : "ies");
  std::printf("opened:             read-only%s\n",
              pending ? "; the header asks for an update (not written)" : "");
  std::printf("header:             magic \"%s\", heads %u, track size %u, device code 0x%02X,\n",
              fieldText(h, ckdvol::kMagicLength).c_str(), loadLe32(h + ckdvol::kHdrHeads),
              loadLe32(h + ckdvol::kHdrTrackSize), h[ckdvol::kHdrDeviceCode]);
  std::printf("                    level %u, created cylinders %u, cylinders %u,\n",
              h[ckdvol::kHdrFormatLevel], loadLe32(h + ckdvol::kHdrCreatedCylinders),
              loadLe32(h + ckdvol::kHdrCylinders));
  std::printf("                    version marker \"%s\", active %u, latest %u\n",
              fieldText(h + ckdvol::kHdrVersionMarker, ckdvol::kVersionMarkerLength).c_str(),
              loadLe16(h + ckdvol::kHdrActiveVersion), loadLe16(h + ckdvol::kHdrLatestVersion));
  return kExitOk;
}

const CommandRegistration kRegistration(Command{
    "info", "Show a volume file's header and geometry", 20,
    [](CLI::App& app) -> std::function<int()> {
      struct Args {
        std::string file;
        bool json = false;
      };
      auto args = std::make_shared<Args>();
      app.add_option("FILE", args->file, "Volume file")->required();
      app.add_flag("--json", args->json, "Print the information as one JSON object");
      app.footer(
          "The volume is opened read-only and never changed. Shown: the device type and\n"
          "model, the format level, the cylinder count (and whether it was taken from the\n"
          "file size because the header disagreed), heads, cells, slot size, the track\n"
          "versions (active and latest) with the saved copies behind the last slot, and\n"
          "the raw header fields.\n"
          "A Hercules CKD image (plain, split, CCKD, CCKD64 or a shadow file) is described\n"
          "instead: format, device, cylinders, heads, compression, its files, and the\n"
          "'ckdvol convert' line that makes a volume of it.\n"
          "D200 is shown as it is addressed: 10 cells x 200 cylinders x 100 heads.\n"
          "A file whose length disagrees with its header gets a 'file size' line.\n"
          "A file that cannot be opened as a volume gives exit status 1 and a message\n"
          "naming its cause: a directory, an empty or short file, a text file, another\n"
          "emulator's image, a volume whose creation never finished, and so on.");
      return [args] { return runInfo(args->file, args->json); };
    }});

}  // namespace
}  // namespace ckdvol_tool
