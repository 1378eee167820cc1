// ckdvol convert: a volume into a Hercules image and back.
//
//   ckdvol convert IN OUT [--to ckdvol|ckd|cckd|cckd64] [--compress zlib|bzip2|none]
//                  [--shadow FILE]... [--split | --cylinders-per-file N] [--force]
//
// The reading and writing live in src/image; this file checks the arguments,
// locks a volume of this tool while it is read, shows progress and sums up.
// Also here: what 'ckdvol info' says about a Hercules image.
#include <signal.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "ckdfile/emulated_ckd_file.h"
#include "ckdfile/volume_format.h"
#include "command.h"
#include "image/image.h"
#include "open_failure.h"
#include "tool_util.h"

namespace ckdvol_tool {

namespace img = ckdvol_image;

bool isHerculesCkdImage(const std::string& path);

namespace {

volatile sig_atomic_t gStop = 0;
void requestStop(int) { gStop = 1; }

std::string typeName(uint32_t type) {
  char buf[8];
  std::snprintf(buf, sizeof buf, "%04X", static_cast<unsigned>(type));
  return buf;
}

bool exists(const std::string& path) {
  struct stat st;
  return ::lstat(path.c_str(), &st) == 0;
}

// The file's first 8 bytes (zeros when it is shorter or unreadable).
std::string magicOf(const std::string& path) {
  char m[8] = {};
  std::ifstream in(path, std::ios::binary);
  in.read(m, sizeof m);
  return std::string(m, sizeof m);
}

// A name for the converted volume: the image's name with ".ckd" for its extension.
std::string suggestedOutput(const std::string& image) {
  const size_t slash = image.rfind('/');
  const size_t dot = image.rfind('.');
  std::string stem = dot != std::string::npos && (slash == std::string::npos || dot > slash) ? image.substr(0, dot)
                                                                                             : image;
  std::string out = stem + ".ckd";
  return out == image ? stem + "-ckdvol.ckd" : out;
}

struct Args {
  std::string in, out, to, compress;
  std::vector<std::string> shadows;
  bool split = false;
  unsigned perFile = 0;
  bool force = false;
};

int runConvert(const Args& a) {
  const bool hercules = isHerculesCkdImage(a.in);
  VolumeLock lock;
  if (!hercules) {
    if (int status = lock.acquire(a.in, false)) return status;
    EmulatedCKDfile probe;  // a file that is no volume gets the usual explanation
    const int rc = probe.open(a.in.c_str(), true);
    if (rc < 0) return openFailed(a.in, rc, errno, probe.errorText);
  }
  img::Format to = hercules ? img::Format::kCkdvol : img::Format::kCckd;
  if (!a.to.empty() && !img::parseFormat(a.to, to)) {
    return failWith(kExitUsage, "--to " + a.to + ": give ckdvol, ckd, cckd or cckd64");
  }
  img::Compression compression = img::Compression::kZlib;
  if (!a.compress.empty()) {
    if (!img::parseCompression(a.compress, compression)) {
      return failWith(kExitUsage, "--compress " + a.compress + ": give zlib, bzip2 or none");
    }
    if (to != img::Format::kCckd && to != img::Format::kCckd64) {
      return failWith(kExitUsage, std::string("--compress applies to cckd and cckd64 images, not ") +
                                      img::formatName(to));
    }
  }
  if ((a.split || a.perFile != 0) && to != img::Format::kCkd) {
    return failWith(kExitUsage, "--split and --cylinders-per-file apply to plain ckd images");
  }
  if (!hercules && to == img::Format::kCkdvol) {
    return fail(a.in, "already a volume of this tool; --to ckd, cckd or cckd64 makes a Hercules image of it");
  }
  if (!a.force && exists(a.out)) return fail(a.out, "exists; --force replaces it");

  std::string error;
  std::unique_ptr<img::TrackSource> source = img::openSource(a.in, a.shadows, error);
  if (!source) return fail(a.in, error);
  const img::ImageInfo& info = source->info();

  img::WriteOptions o;
  o.format = to;
  o.compression = compression;
  o.replace = a.force;
  o.cylindersPerFile = a.perFile != 0 ? a.perFile
                       : a.split      ? img::herculesCylindersPerFile(info.heads, info.trackSize)
                                      : 0;
  const bool bar = stderrIsTerminal();
  o.progress = [bar](uint64_t done, uint64_t total) {
    if (bar && (done % 256 == 0 || done == total)) {
      std::fprintf(stderr, "\rconverting: %llu/%llu tracks (%llu%%)", static_cast<unsigned long long>(done),
                   static_cast<unsigned long long>(total),
                   static_cast<unsigned long long>(total == 0 ? 100 : done * 100 / total));
      if (done == total) std::fputc('\n', stderr);
    }
    return gStop == 0;
  };
  struct sigaction sa = {};
  sa.sa_handler = requestStop;
  struct sigaction oldInt, oldTerm, oldHup;
  sigaction(SIGINT, &sa, &oldInt);
  sigaction(SIGTERM, &sa, &oldTerm);
  sigaction(SIGHUP, &sa, &oldHup);
  img::WriteResult r;
  const bool ok = img::writeImage(*source, a.out, o, r, error);
  sigaction(SIGINT, &oldInt, nullptr);
  sigaction(SIGTERM, &oldTerm, nullptr);
  sigaction(SIGHUP, &oldHup, nullptr);
  if (!ok) {
    if (bar) std::fputc('\n', stderr);
    return fail(a.in, error + "; no output was written");
  }
  std::string files;
  for (const std::string& f : r.files) files += (files.empty() ? "" : ", ") + f;
  std::printf("%s (%s, %s, %s) -> %s (%s): %s, %llu bytes in, %llu bytes out", a.in.c_str(),
              img::formatName(info.format), typeName(info.type).c_str(), count(info.cylinders, "cylinder").c_str(),
              files.c_str(),
              img::formatName(to), count(r.tracks, "track").c_str(), static_cast<unsigned long long>(info.bytes),
              static_cast<unsigned long long>(r.bytesOut));
  if (to == img::Format::kCckd || to == img::Format::kCckd64) {
    std::printf(", %s: %llu tracks compressed, %llu null tracks", img::compressionName(compression),
                static_cast<unsigned long long>(r.compressedTracks), static_cast<unsigned long long>(r.nullTracks));
  }
  std::printf("\n");
  return kExitOk;
}

const CommandRegistration kRegistration(Command{
    "convert", "Convert a volume to a Hercules CKD/CCKD image or back", 95,
    [](CLI::App& app) -> std::function<int()> {
      auto args = std::make_shared<Args>();
      app.add_option("IN", args->in, "A volume of this tool or a Hercules CKD image (a split image: its first file)")
          ->required();
      app.add_option("OUT", args->out, "The new file (a split image: its name without _1, _2, ...)")->required();
      app.add_option("--to", args->to,
                     "ckdvol, ckd (plain), cckd (compressed) or cckd64; default: ckdvol for a Hercules image, "
                     "cckd for a volume");
      app.add_option("--compress", args->compress, "cckd, cckd64: zlib (the default), bzip2 or none");
      app.add_option("--shadow", args->shadows, "A shadow file over a compressed IN, lowest first (repeat it)");
      auto* split = app.add_flag("--split", args->split, "ckd: split into files below 2 GiB as Hercules does");
      app.add_option("--cylinders-per-file", args->perFile, "ckd: split into files of N cylinders")
          ->check(CLI::PositiveNumber)
          ->excludes(split);
      app.add_flag("--force", args->force, "Replace OUT when it exists");
      app.footer(
          "Track images are copied as they are: the home address, record zero, the records\n"
          "and the end-of-track marker. An empty track becomes a null track of a compressed\n"
          "image; a Hercules track that does not fit this tool's track slot is refused with\n"
          "its cylinder and head, never cut. The device types map D100=2305, D130=2311,\n"
          "D160=2314, D300=3330, D400=3340, D430=3350, D460=3375, D500=3380, D600=3390,\n"
          "D700=9345; D200 has no Hercules counterpart. Track versions are not carried: the\n"
          "image holds each track as it is now.\n"
          "OUT is written under a temporary name beside it and renamed when complete, so a\n"
          "failed or interrupted run leaves no partial file. OUT must not exist (--force).\n"
          "A damaged image (cut short, offsets or lengths past its end, a track that expands\n"
          "beyond a track) is refused with exit status 1, naming the file and the cause.\n"
          "Progress goes to standard error on a terminal; one summary line to standard output.\n"
          "\n"
          "Examples:\n"
          "  ckdvol convert sys.ckd sys.cckd                      # zlib-compressed CCKD\n"
          "  ckdvol convert sys.ckd sys.cckd --compress bzip2\n"
          "  ckdvol convert sys.ckd sys.3390 --to ckd --split     # sys_1.3390, sys_2.3390, ...\n"
          "  ckdvol convert disk.cckd disk.ckd --shadow disk_1.shadow\n"
          "  ckdvol convert sys_1.3390 sys.ckd                    # a split image, named by its first file\n"
          "  ckdvol info disk.cckd                                # what an image holds");
      return [args] { return runConvert(*args); };
    }});

}  // namespace

// True when `path` begins like a Hercules CKD image or shadow file.
bool isHerculesCkdImage(const std::string& path) {
  return img::isHerculesCkdMagic(reinterpret_cast<const unsigned char*>(magicOf(path).data()));
}

// 'ckdvol info' on a Hercules image: what it is and how to convert it.
int describeHerculesImage(const std::string& path, bool json) {
  img::ImageInfo info;
  std::string error;
  if (!img::readImageHeaders(path, info, error)) return fail(path, error);
  const bool compressed = info.format == img::Format::kCckd || info.format == img::Format::kCckd64;
  const std::string convert =
      info.shadow ? "ckdvol convert BASE " + suggestedOutput(path) + " --shadow " + path
                  : "ckdvol convert " + path + " " + suggestedOutput(path);
  if (json) {
    nlohmann::ordered_json j = {
        {"file", path},
        {"format", std::string("hercules-") + img::formatName(info.format)},
        {"shadow", info.shadow},
        {"deviceType", typeName(info.type)},
        {"cylinders", info.cylinders},
        {"tracksPerCylinder", info.heads},
        {"trackSize", info.trackSize},
        {"compression", compressed ? nlohmann::ordered_json(img::compressionName(info.compression))
                                   : nlohmann::ordered_json()},
        {"nullTrackFormat", compressed ? nlohmann::ordered_json(info.nullFormat) : nlohmann::ordered_json()},
        {"files", info.files},
        {"bytes", info.bytes},
        {"convert", convert},
    };
    std::printf("%s\n", j.dump(2).c_str());
    return kExitOk;
  }
  const char* what = info.format == img::Format::kCkd     ? "a Hercules CKD image (plain)"
                     : info.format == img::Format::kCckd ? "a Hercules compressed CKD image (CCKD)"
                                                         : "a Hercules compressed CKD image with 64-bit offsets (CCKD64)";
  std::printf("file:               %s (%llu bytes)\n", path.c_str(), static_cast<unsigned long long>(info.bytes));
  std::printf("format:             %s%s\n", info.shadow ? "a shadow file of " : "", what);
  std::printf("device type:        %s (Hercules %X)\n", typeName(info.type).c_str(),
              static_cast<unsigned>(img::herculesDeviceType(info.type)));
  std::printf("cylinders:          %u\n", info.cylinders);
  std::printf("geometry:           %s, %llu tracks of %u bytes\n", count(info.heads, "head").c_str(),
              static_cast<unsigned long long>(info.tracks()), info.trackSize);
  if (compressed) {
    std::printf("compression:        %s (null track format %d%s)\n", img::compressionName(info.compression),
                info.nullFormat, info.bigEndian ? ", big-endian" : "");
  }
  std::printf("files:              ");
  for (size_t i = 0; i < info.files.size(); ++i) std::printf("%s%s", i ? ", " : "", info.files[i].c_str());
  std::printf("\nconvert with:       %s\n", convert.c_str());
  return kExitOk;
}

}  // namespace ckdvol_tool
