// ckdvol verify: check every track of a volume, optionally mending them.
//
//   ckdvol verify FILE [--repair]
//
// Each track is read and checked with verifyTrack; findings are printed one
// per line with the track address, then a summary by code. Without --repair
// the volume is opened read-only and nothing changes. Exit status 0 when
// every track is sound, 3 when anything was found, 1 when the volume cannot
// be opened.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <string>

#include <CLI/CLI.hpp>

#include "ckdfile/emulated_ckd_file.h"
#include "ckdfile/versioning.h"
#include "command.h"
#include "tool_util.h"

namespace ckdvol_tool {
namespace {

using F = EmulatedCKDfile;

// Progress goes to a terminal only, and only on volumes this long.
constexpr unsigned long long kProgressTracks = 3000;
// Summary key of tracks that could not be read at all.
constexpr int kUnreadable = -1;

std::string codeMeaning(int code) {
  switch (code) {
    case kUnreadable:
      return "the track's slot could not be read";
    case ckdvol::kVerifyHomeAddress:
      return "the home address names another track";
    case ckdvol::kVerifyRecordZero:
      return "record zero's count field names another track or is not record 0";
    case ckdvol::kVerifyPastLimit:
      return "a record runs past the end of the record area";
    case ckdvol::kVerifyCopyUnreadable:
      return "the trailer links to a saved copy that cannot be read";
    case ckdvol::kVerifyCopyNoMarker:
      return "the slot the trailer links to is not a saved copy (no \"VER0\")";
    case ckdvol::kVerifyCopyNoBackLink:
      return "the saved copy the trailer links to belongs to another track";
    case ckdvol::kVerifyNoLink:
      return "the trailer says \"VER0\" but has no link";
    case ckdvol::kVerifyNoTrack:
      return "no current track";
    default:
      if (code % 100 == ckdvol::kVerifyBadCount && code >= 105) {
        return "record " + std::to_string(code / 100) +
               " after record zero has a bad count field (record number 0, or another "
               "cylinder/head than the first record)";
      }
      return "a record far down the track has a bad count field (the code wrapped at 65536)";
  }
}

std::string repairText(int code, bool forgotten) {
  if (forgotten) return "rewritten as an empty track";
  if (code == ckdvol::kVerifyPastLimit) return "cut back to record zero";
  if (code == ckdvol::kVerifyCopyUnreadable || code == ckdvol::kVerifyCopyNoMarker ||
      code == ckdvol::kVerifyCopyNoBackLink || code == ckdvol::kVerifyNoLink) {
    return "version link cleared (now an unversioned track)";
  }
  if (ckdvol::isBadCountCode(static_cast<uint16_t>(code))) {
    return "the bad record and all records after it dropped";
  }
  return "repaired";
}

std::string address(const F& f, unsigned short cell, unsigned int cyl, unsigned short head) {
  char buf[64];
  if (f.deviceType == F::D200) {
    std::snprintf(buf, sizeof buf, "cell %u cyl %04X head %04X", cell, cyl, head);
  } else {
    std::snprintf(buf, sizeof buf, "cyl %5u head %2u", cyl, head);
  }
  return buf;
}

// The address of the track in slot `index`, in file order. D200 addresses
// are built from its fixed sub-coordinates (cell, cylinder high and low byte,
// head high and low byte), whatever cylinder count open() derived.
void trackAddress(const F& f, unsigned long long index, unsigned short& cell, unsigned int& cyl,
                  unsigned short& head) {
  if (f.deviceType == F::D200) {
    cell = static_cast<unsigned short>(index / 20000);
    const unsigned int cylHigh = index / 1000 % 20, cylLow = index / 100 % 10;
    const unsigned int headHigh = index / 20 % 5, headLow = index % 20;
    cyl = cylHigh << 8 | cylLow;
    head = static_cast<unsigned short>(headHigh << 8 | headLow);
    return;
  }
  cell = 0;
  cyl = static_cast<unsigned int>(index / f.tracksPerCylinder);
  head = static_cast<unsigned short>(index % f.tracksPerCylinder);
}

int runVerify(const std::string& path, bool repair) {
  VolumeLock lock;
  if (int status = lock.acquire(path, repair)) return status;
  F f;
  const int rc = f.open(path.c_str(), !repair);
  if (rc < 0) {
    const std::string cause = rc == F::kOpenCannotOpen ? std::strerror(errno) : f.errorText;
    return fail(path, "not a usable volume (open result " + std::to_string(rc) + "): " + cause);
  }
  const unsigned long long tracks =
      f.deviceType == F::D200
          ? static_cast<unsigned long long>(f.getMaxOffset() - 512) / f.trackSlotSize
          : static_cast<unsigned long long>(f.cylinders) * f.tracksPerCylinder;
  const bool progress = stderrIsTerminal() && tracks >= kProgressTracks;

  std::map<int, unsigned long long> byCode;
  unsigned long long findings = 0;
  for (unsigned long long done = 0; done < tracks; ++done) {
    unsigned short cell, head;
    unsigned int cyl;
    trackAddress(f, done, cell, cyl, head);
    if (progress && ((done + 1) % 1000 == 0 || done + 1 == tracks)) {
      std::fprintf(stderr, "\rverifying %s: %llu of %llu tracks (%llu%%)", path.c_str(), done + 1, tracks,
                   (done + 1) * 100 / tracks);
    }
    const int read = f.readTrack(cyl, head, cell);
    if (read != F::kTrackOk) {
      ++findings;
      ++byCode[kUnreadable];
      if (progress) std::fputs("\r\033[K", stderr);
      std::printf("%s: %s (read result %d)\n", address(f, cell, cyl, head).c_str(),
                  codeMeaning(kUnreadable).c_str(), read);
      continue;
    }
    if (f.verifyTrack(repair)) continue;
    const int code = f.verifyCode;
    ++findings;
    ++byCode[code];
    const bool forgotten = f.currentCyl == 0xFFFFFFFFu;
    if (progress) std::fputs("\r\033[K", stderr);
    std::printf("%s: code %d: %s%s\n", address(f, cell, cyl, head).c_str(), code, codeMeaning(code).c_str(),
                repair ? ("; " + repairText(code, forgotten)).c_str() : "");
  }
  if (progress) std::fputs("\r\033[K", stderr);

  std::printf("%s: %llu track%s verified, %llu sound, %llu with findings%s\n", path.c_str(), tracks,
              tracks == 1 ? "" : "s", tracks - findings, findings,
              findings != 0 && repair ? " (repaired)" : "");
  for (const auto& entry : byCode) {
    if (entry.first == kUnreadable) {
      std::printf("  unreadable: %llu track%s: %s\n", entry.second, entry.second == 1 ? "" : "s",
                  codeMeaning(entry.first).c_str());
    } else {
      std::printf("  code %d: %llu track%s: %s\n", entry.first, entry.second, entry.second == 1 ? "" : "s",
                  codeMeaning(entry.first).c_str());
    }
  }
  const int closed = f.close();
  if (closed != 0) return fail(path, std::string("closing the volume failed: ") + std::strerror(errno));
  return findings != 0 ? kExitFindings : kExitOk;
}

const CommandRegistration kRegistration(Command{
    "verify", "Check every track of a volume (and repair with --repair)", 45,
    [](CLI::App& app) -> std::function<int()> {
      struct Args {
        std::string file;
        bool repair = false;
      };
      auto args = std::make_shared<Args>();
      app.add_option("FILE", args->file, "Volume file")->required();
      app.add_flag("--repair", args->repair, "Mend each damaged track in the file");
      app.footer(
          "Every track is read and checked: its home address and record zero must name\n"
          "the track, the records must fit the record area and share one cylinder and\n"
          "head, and a versioned track's saved copy must link back to it. Each finding\n"
          "is printed with its track address and code, then a summary by code.\n"
          "Without --repair the volume is opened read-only and never changed. With it,\n"
          "the volume is opened read-write (which also makes a pending version active)\n"
          "and each damaged track is mended in place, bypassing versioning: a wrong home\n"
          "address or record zero gives an empty track, records past the end or with bad\n"
          "count fields are dropped, a broken version link is cleared.\n"
          "A versioned track whose saved copy cannot be read also prints the line\n"
          "\"This is it;; ofs = N\" (N: the track's file offset) on standard output.\n"
          "Progress is shown on standard error when it is a terminal.\n"
          "Exit status: 0 all tracks sound, 3 findings (repaired or not), 1 the volume\n"
          "cannot be opened.");
      return [args] { return runVerify(args->file, args->repair); };
    }});

}  // namespace
}  // namespace ckdvol_tool
