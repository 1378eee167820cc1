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
#include "common/byte_order.h"
#include "tool_util.h"

namespace ckdvol_tool {
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
  if (zero) return "";
  std::string s;
  for (int i = 0; i < length; ++i) {
    if (p[i] >= 0x20 && p[i] < 0x7F) {
      s += static_cast<char>(p[i]);
    } else {
      char esc[8];
      std::snprintf(esc, sizeof esc, "\\x%02X", p[i]);
      s += esc;
    }
  }
  return s;
}

int runInfo(const std::string& path, bool json) {
  VolumeLock lock;
  if (int status = lock.acquire(path, false)) return status;
  EmulatedCKDfile f;
  const int rc = f.open(path.c_str(), true);
  if (rc < 0) {
    const std::string cause = rc == EmulatedCKDfile::kOpenCannotOpen ? std::strerror(errno) : f.errorText;
    return fail(path, "not a usable volume (open result " + std::to_string(rc) + "): " + cause);
  }
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
      {"cylinders", f.cylinders},
      {"cylindersCorrected", f.cylindersCorrected != 0},
      {"headerCylinders", f.cylindersCorrected ? f.headerCylinders : loadLe32(h + ckdvol::kHdrCylinders)},
      {"tracksPerCylinder", f.tracksPerCylinder},
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
      {"header", header},
  };
  if (json) {
    std::printf("%s\n", volume.dump(2).c_str());
    return kExitOk;
  }

  std::printf("file:               %s (%lld bytes)\n", path.c_str(), size);
  std::printf("device type:        %s\n", typeText(f.deviceType, f.model).c_str());
  std::printf("format level:       %u\n", f.formatLevel);
  if (f.cylindersCorrected) {
    std::printf("cylinders:          %u (corrected from the file size; header says %u)\n", f.cylinders,
                f.headerCylinders);
  } else {
    std::printf("cylinders:          %u\n", f.cylinders);
  }
  std::printf("geometry:           %u heads, %u cell(s), %llu tracks of %u bytes\n", f.tracksPerCylinder,
              f.cellCount, tracks, f.trackSlotSize);
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
          "A file that cannot be opened as a volume gives exit status 1 and a message with\n"
          "the open result code and its cause (e.g. a freshly created volume that was never\n"
          "initialised is refused with result -2, 'Unable to read file').");
      return [args] { return runInfo(args->file, args->json); };
    }});

}  // namespace
}  // namespace ckdvol_tool
