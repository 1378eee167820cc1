// ckdvol verify: check every track of a volume, optionally mending them.
//
//   ckdvol verify FILE [--json] [--dry-run | --repair [--yes]]
//
// Each track is read and checked with verifyTrack; findings are printed one
// per line with the track address, then a summary by code. The file's length
// is compared with what its header describes, and only the slots the file
// really holds are read: a header that counts more tracks than that is a
// finding with both counts. A slot of the track area that is a saved copy
// (its trailer links to an earlier slot that links back to it) means the
// header counts saved copies as tracks; such a slot is reported and never
// checked or mended as a track. The check itself opens the volume read-only.
//
// --dry-run and --repair add to each finding the mending the tool would make
// (track_mend.h: what it keeps, what it drops). --repair then asks (on a
// terminal; --yes answers for scripts) and makes the repairs under a track
// version, enabling one when none is active, so that 'ckdvol version
// rollback' undoes them. The library's own verifyTrack(true), which writes
// past versioning, is not used.
//
// Exit status 0 when everything is sound, 3 when anything was found
// (repaired or not), 1 when the volume cannot be opened or a repair cannot
// be written, 2 for bad arguments or an unconfirmed repair.
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <sys/stat.h>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "ckdfile/emulated_ckd_file.h"
#include "ckdfile/versioning.h"
#include "ckdfile/volume_format.h"
#include "command.h"
#include "journal/change_journal.h"
#include "open_failure.h"
#include "tool_util.h"
#include "track_mend.h"

namespace ckdvol_tool {
namespace {

using F = EmulatedCKDfile;

// Progress goes to a terminal only, and only on volumes this long.
constexpr unsigned long long kProgressTracks = 3000;
// Summary keys of tracks that could not be read at all, and of slots of the
// track area that hold saved copies.
constexpr int kUnreadable = -1;
constexpr int kSavedCopy = -2;

std::string codeMeaning(int code) {
  switch (code) {
    case kUnreadable:
      return "the track's slot could not be read";
    case kSavedCopy:
      return "a saved copy, not a track (the header counts more tracks than the volume has); not checked";
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

struct Finding {
  unsigned short cell;
  unsigned int cyl;
  unsigned short head;
  int code;        // verifyCode, kUnreadable or kSavedCopy
  int readResult;  // readTrack's result for an unreadable track
  unsigned long long home = 0;  // kSavedCopy: the slot offset of the copy's home
  bool planned = false;
  TrackMend mend;
};

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

// True when the slot at `offset`, just read into f.trackBuffer, is a saved
// copy: its trailer says "VER0" and links to an earlier slot whose own
// trailer says "VER0" and links back to it. `home` receives that slot's
// offset. A slot cannot be both: a track's trailer links only to a slot
// behind the tracks, or to itself after a commit.
bool isSavedCopy(const F& f, unsigned long long offset, unsigned long long& home) {
  const unsigned slot = f.trackSlotSize;
  const unsigned char* trailer = ckdvol::trailerOf(f.trackBuffer, slot);
  if (!ckdvol::trailerHasMarker(trailer)) return false;
  home = ckdvol::trailerLink(trailer);
  if (home < static_cast<unsigned long long>(ckdvol::kHeaderSize) || home >= offset ||
      (home - ckdvol::kHeaderSize) % slot != 0) {
    return false;
  }
  unsigned char back[ckdvol::kTrailerSize];
  const ssize_t got = ::pread(f.fileDescriptor, back, sizeof back, static_cast<off_t>(home + slot - sizeof back));
  return got == static_cast<ssize_t>(sizeof back) && ckdvol::trailerHasMarker(back) &&
         ckdvol::trailerLink(back) == offset;
}

// "cyl 0 head 3 (slot offset N)": the track whose slot lies at `offset`.
std::string homeText(const F& f, unsigned long long offset) {
  Finding home{};
  trackAddress(f, (offset - ckdvol::kHeaderSize) / f.trackSlotSize, home.cell, home.cyl, home.head);
  std::string text = address(f, home.cell, home.cyl, home.head);
  text.erase(std::unique(text.begin(), text.end(), [](char a, char b) { return a == ' ' && b == ' '; }), text.end());
  return text + " (slot offset " + std::to_string(offset) + ")";
}

struct VerifyOptions {
  std::string file;
  bool repair = false;
  bool dryRun = false;
  bool yes = false;
  bool json = false;
};

// Asks on the terminal; true for an answer starting with y or Y.
bool confirm(const std::string& question) {
  std::fprintf(stderr, "%s [y/N] ", question.c_str());
  std::fflush(stderr);
  char answer[64];
  if (std::fgets(answer, sizeof answer, stdin) == nullptr) return false;
  return answer[0] == 'y' || answer[0] == 'Y';
}

int runVerify(const VerifyOptions& o) {
  const std::string& path = o.file;
  const bool plan = o.repair || o.dryRun;
  const bool write = o.repair && !o.dryRun;
  VolumeLock lock;
  if (int status = lock.acquire(path, write)) return status;
  F f;
  const int rc = f.open(path.c_str(), true);
  if (rc < 0) return openFailed(path, rc, errno, f.errorText);
  unsigned char header[ckdvol::kHeaderSize];
  struct stat st;
  if (::fstat(f.fileDescriptor, &st) != 0) {
    const int err = errno;
    f.close();
    return fail(path, std::string("cannot find the file's size: ") + std::strerror(err));
  }
  SizeCheck size;
  if (f.readHeader(header, false) == F::kHeaderOk) size = checkFileSize(header, static_cast<long long>(st.st_size));
  // The tracks the header counts, and the slots the file holds: only those
  // are read, whatever the header says.
  const unsigned long long headerTracks =
      f.deviceType == F::D200
          ? static_cast<unsigned long long>(f.getMaxOffset() - ckdvol::kHeaderSize) / f.trackSlotSize
          : static_cast<unsigned long long>(f.cylinders) * f.tracksPerCylinder;
  const unsigned long long fileSlots =
      st.st_size > ckdvol::kHeaderSize ? static_cast<unsigned long long>(st.st_size - ckdvol::kHeaderSize) / f.trackSlotSize
                                       : 0;
  const unsigned long long slots = std::min(headerTracks, fileSlots);
  std::string overclaim;
  if (headerTracks > fileSlots) {
    overclaim = "its header counts " + count(headerTracks, "track") + " but the file holds " +
                count(fileSlots, "whole slot") + ": only those were checked";
  }
  const bool progress = stderrIsTerminal() && slots >= kProgressTracks;

  std::vector<Finding> findings;
  std::map<int, unsigned long long> byCode;
  unsigned long long dropped = 0, emptied = 0, copies = 0;
  for (unsigned long long done = 0; done < slots; ++done) {
    Finding x{};
    trackAddress(f, done, x.cell, x.cyl, x.head);
    if (progress && ((done + 1) % 1000 == 0 || done + 1 == slots)) {
      std::fprintf(stderr, "\rverifying %s: %llu of %llu tracks (%llu%%)", path.c_str(), done + 1, slots,
                   (done + 1) * 100 / slots);
    }
    x.readResult = f.readTrack(x.cyl, x.head, x.cell);
    const unsigned long long offset = ckdvol::kHeaderSize + done * f.trackSlotSize;
    if (x.readResult != F::kTrackOk) {
      x.code = kUnreadable;
    } else if (isSavedCopy(f, offset, x.home)) {
      x.code = kSavedCopy;
      ++copies;
    } else {
      bool sound;
      if (o.json) {
        StdoutSilencer quiet;  // the library's line for an unreadable copy
        sound = f.verifyTrack(false);
      } else {
        sound = f.verifyTrack(false);
      }
      if (sound) continue;
      x.code = f.verifyCode;
      if (plan) {
        x.mend = planMend(f, x.code);
        x.mend.image = std::vector<unsigned char>();  // replanned when written; keep memory flat
        x.planned = true;
        dropped += x.mend.dropped.size();
        emptied += x.mend.emptied ? 1 : 0;
      }
    }
    ++byCode[x.code];
    if (progress) std::fputs("\r\033[K", stderr);
    if (!o.json) {
      if (x.code == kUnreadable) {
        std::printf("%s: %s (read result %d)\n", address(f, x.cell, x.cyl, x.head).c_str(),
                    codeMeaning(kUnreadable).c_str(), x.readResult);
      } else if (x.code == kSavedCopy) {
        std::printf("%s: the saved copy of %s, not a track; not checked\n", address(f, x.cell, x.cyl, x.head).c_str(),
                    homeText(f, x.home).c_str());
      } else {
        std::printf("%s: code %d: %s\n", address(f, x.cell, x.cyl, x.head).c_str(), x.code,
                    codeMeaning(x.code).c_str());
        if (x.planned) std::printf("    repair: %s\n", x.mend.describe().c_str());
      }
    }
    findings.push_back(std::move(x));
  }
  if (progress) std::fputs("\r\033[K", stderr);
  unsigned long long mendable = 0;
  for (const Finding& x : findings) mendable += x.planned ? 1 : 0;
  const unsigned long long tracks = slots - copies;  // the slots checked as tracks
  const unsigned long long withFindings = findings.size() - copies;
  std::string copyFinding;
  if (copies > 0) {
    copyFinding = count(copies, "slot") + " of the track area " + (copies == 1 ? "is a saved copy" : "are saved copies") +
                  ": the header counts more tracks than the volume has (" + count(headerTracks, "track") +
                  "); they were not checked as tracks";
  }

  nlohmann::ordered_json report;
  if (o.json) {
    nlohmann::ordered_json list = nlohmann::ordered_json::array();
    for (const Finding& x : findings) {
      nlohmann::ordered_json j = {{"cell", x.cell}, {"cylinder", x.cyl}, {"head", x.head}, {"code", x.code},
                                  {"meaning", codeMeaning(x.code)}};
      if (x.code == kUnreadable) j["readResult"] = x.readResult;
      if (x.code == kSavedCopy) j["copyOf"] = homeText(f, x.home);
      if (x.planned) {
        j["repair"] = {{"steps", x.mend.steps},
                       {"recordsKept", x.mend.kept},
                       {"recordsDropped", x.mend.dropped},
                       {"emptied", x.mend.emptied}};
      }
      list.push_back(j);
    }
    nlohmann::ordered_json summary = nlohmann::ordered_json::object();
    for (const auto& entry : byCode) summary[std::to_string(entry.first)] = entry.second;
    report = {{"file", path},
              {"fileSize", size.fileSize},
              {"headerSize", size.headerSize},
              {"sizeFinding", size.finding.empty() ? nlohmann::ordered_json() : nlohmann::ordered_json(size.finding)},
              {"headerTracks", headerTracks},
              {"fileSlots", fileSlots},
              {"trackFinding", overclaim.empty() ? nlohmann::ordered_json() : nlohmann::ordered_json(overclaim)},
              {"savedCopiesInTrackArea", copies},
              {"tracks", tracks},
              {"soundTracks", tracks - withFindings},
              {"findings", list},
              {"byCode", summary},
              {"dryRun", o.dryRun},
              {"repaired", false}};
  } else {
    if (!size.finding.empty()) std::printf("%s: %s\n", path.c_str(), size.finding.c_str());
    if (!overclaim.empty()) std::printf("%s: %s\n", path.c_str(), overclaim.c_str());
    if (!copyFinding.empty()) std::printf("%s: %s\n", path.c_str(), copyFinding.c_str());
    std::printf("%s: %s verified, %llu sound, %llu with findings\n", path.c_str(), count(tracks, "track").c_str(),
                tracks - withFindings, withFindings);
    for (const auto& entry : byCode) {
      if (entry.first == kSavedCopy) {
        std::printf("  saved copies: %s\n", count(entry.second, "slot").c_str());
      } else if (entry.first == kUnreadable) {
        std::printf("  unreadable: %s: %s\n", count(entry.second, "track").c_str(),
                    codeMeaning(entry.first).c_str());
      } else {
        std::printf("  code %d: %s: %s\n", entry.first, count(entry.second, "track").c_str(),
                    codeMeaning(entry.first).c_str());
      }
    }
    if (plan && mendable > 0) {
      std::printf("%s: repair %s %s: %s dropped, %s rewritten empty\n", path.c_str(),
                  o.dryRun ? "would mend" : "mends", count(mendable, "track").c_str(),
                  count(dropped, "record").c_str(), count(emptied, "track").c_str());
    }
  }
  const bool anything = !findings.empty() || !size.finding.empty() || !overclaim.empty();
  f.close();

  auto finish = [&](int status) {
    if (o.json) std::printf("%s\n", report.dump(2).c_str());
    return status;
  };
  if (write && (copies > 0 || !overclaim.empty())) {
    finish(kExitFindings);
    const std::string cause =
        copies > 0 ? count(copies, "slot") + " that its header counts as tracks " +
                         (copies == 1 ? "is a saved copy" : "are saved copies") + ", and a repair would destroy them"
                   : "its header counts " + count(headerTracks, "track") + " but the file holds " +
                         count(fileSlots, "whole slot");
    return fail(path, "no track was repaired: " + cause + "; nothing was changed");
  }
  if (!write || mendable == 0) {
    if (o.dryRun && !o.json && mendable > 0) std::printf("%s: dry run: nothing was changed\n", path.c_str());
    return finish(anything ? kExitFindings : kExitOk);
  }
  if (!size.finding.empty()) {
    finish(kExitFindings);
    return fail(path, "no track was repaired: the file's length disagrees with its header, and a repair under a "
                      "version needs the whole volume; nothing was changed");
  }
  if (byCode.count(kUnreadable) != 0) {
    // A read error is not damage to mend: what the track holds is unknown.
    finish(kExitFindings);
    return fail(path, "no track was repaired: " + count(byCode[kUnreadable], "track") +
                          " could not be read (see above); nothing was changed");
  }
  if (!o.yes) {
    if (!stdinIsTerminal()) {
      finish(kExitFindings);
      return failWith(kExitUsage, path + ": nothing was changed: --repair asks before changing a volume; add "
                                         "--yes to repair without asking (--dry-run only lists)");
    }
    const std::string question = "Repair " + count(mendable, "track") + " of " + path + ", dropping " +
                                 count(dropped, "record") + "? Every repair is made under a track version and "
                                 "can be undone with 'ckdvol version rollback'.";
    if (!confirm(question)) {
      std::fprintf(stderr, "ckdvol: %s: nothing was changed\n", path.c_str());
      return finish(kExitFindings);
    }
  }

  // The repair is one change through the change journal: the damaged
  // tracks' former images are saved and synced first, a version is enabled
  // for it when none is active (taken back with the rest on an undo), and
  // any failure undoes all of it.
  F v;
  int opened = v.open(path.c_str(), false);
  if (opened < 0) return openFailed(path, opened, errno, v.errorText);
  ckdvol::ChangeJournal journal(v, "repair");
  const bool enabled = v.activeVersion <= 0;
  std::string cause;
  if (enabled) {
    int e = journal.saveHeaderVersions();
    if (e == 0 && (e = v.enableVersion()) != ckdvol::kEnableOk) {
      cause = "cannot enable a track version for the repair (result " + std::to_string(e) + ")";
    } else if (e == 0) {
      v.close();
      opened = v.open(path.c_str(), false);
      if (opened < 0) cause = "cannot open the volume again to start the version (open result " + std::to_string(opened) + ")";
    } else {
      cause = journal.error();
    }
  }
  std::vector<uint64_t> damaged;
  for (const Finding& x : findings) {
    if (!x.planned) continue;
    const long long at = v.getOffset(x.cyl, x.head, x.cell, true);
    if (at >= 0) damaged.push_back(static_cast<uint64_t>(at));
  }
  if (cause.empty() && v.activeVersion <= 0) cause = "the version enabled for the repair did not become active";
  if (cause.empty() && journal.begin(damaged) != 0) cause = "cannot save the damaged tracks first: " + journal.error();
  const int version = v.activeVersion;
  unsigned long long repaired = 0;
  for (const Finding& x : findings) {
    if (!cause.empty()) break;
    if (!x.planned) continue;
    errno = 0;
    const int read = v.readTrack(x.cyl, x.head, x.cell);
    if (read != F::kTrackOk) {
      cause = address(v, x.cell, x.cyl, x.head) + ": the track could not be read again for its repair (result " +
              std::to_string(read) + ")";
      break;
    }
    if (v.verifyTrack(false)) {
      // A broken version link only: saving the track linked it to the copy
      // of its former image, which is what the repair does.
      if (x.code >= ckdvol::kVerifyCopyUnreadable && x.code <= ckdvol::kVerifyNoLink) ++repaired;
      continue;
    }
    const TrackMend mend = planMend(v, v.verifyCode);
    errno = 0;
    const int written = applyMend(v, mend);
    if (written != F::kTrackOk) {
      cause = address(v, x.cell, x.cyl, x.head) + ": the repair could not be written (result " +
              std::to_string(written) + (errno != 0 ? std::string(": ") + std::strerror(errno) : std::string()) + ")";
      break;
    }
    ++repaired;
  }
  if (cause.empty() && journal.finish() != 0) cause = journal.error();
  if (!cause.empty()) {
    if (journal.complete()) {
      v.close();
      return fail(path, cause + "; the repair itself is complete and on disk: run 'ckdvol recover " + path +
                            "' to drop its saved copies");
    }
    v.trackDirty = 0;
    if (journal.undo() == 0) {
      v.close();
      return fail(path, cause + "; no track was repaired: nothing was changed");
    }
    v.close();
    return fail(path, cause + "; undoing it failed too (" + journal.error() +
                          "): the repair was interrupted, run 'ckdvol recover " + path + "'");
  }
  errno = 0;
  if (v.close() != 0) return fail(path, std::string("closing the volume failed after the repair: ") + std::strerror(errno));
  if (o.json) {
    report["repaired"] = true;
    report["repairedTracks"] = repaired;
    report["version"] = version;
    report["versionEnabledForRepair"] = enabled;
    return finish(kExitFindings);
  }
  std::printf("%s: %s repaired under track version %d%s\n", path.c_str(), count(repaired, "track").c_str(), version,
              enabled ? " (enabled for this repair)" : "");
  std::printf("  keep the repair:  ckdvol version commit %s\n", path.c_str());
  std::printf("  undo it:          ckdvol version rollback %s\n", path.c_str());
  if (enabled) std::printf("  then turn versioning off again with: ckdvol version disable %s\n", path.c_str());
  return kExitFindings;
}

const CommandRegistration kRegistration(Command{
    "verify", "Check every track of a volume (and repair with --repair)", 45,
    [](CLI::App& app) -> std::function<int()> {
      auto o = std::make_shared<VerifyOptions>();
      app.add_option("FILE", o->file, "Volume file")->required();
      app.add_flag("--repair", o->repair, "Mend the damaged tracks (asks first; see below)");
      app.add_flag("--dry-run", o->dryRun, "List what a repair would do, keep and drop; change nothing");
      app.add_flag("--yes,-y", o->yes, "With --repair: repair without asking (for scripts)");
      app.add_flag("--json", o->json, "Print the report as one JSON object");
      app.footer(
          "Every track is read and checked: its home address and record zero must name\n"
          "the track, the records must fit the record area and share one cylinder and\n"
          "head, and a versioned track's saved copy must link back to it. Each finding\n"
          "is printed with its track address and code, then a summary by code. A file\n"
          "shorter or longer than its header says is reported with both sizes, and\n"
          "only the slots the file holds are read. A slot of the track area that is a\n"
          "saved copy (its trailer links to an earlier slot that links back) shows\n"
          "that the header counts more tracks than the volume has: it is reported and\n"
          "never checked or repaired as a track.\n"
          "Without --repair the volume is opened read-only and never changed.\n"
          "Repair mends as a person would: a home address or record zero that names\n"
          "another track while the records name this one is rewritten from the slot\n"
          "position; a count field whose address differs from the other records' gets\n"
          "theirs; a record that runs past the record area ends the track there, the\n"
          "records before it stay; a broken version link is cleared. Only a track that\n"
          "cannot be mended so is rewritten empty. --dry-run and --repair list, per\n"
          "track, the records kept and dropped. --repair then asks on a terminal\n"
          "(without a terminal it needs --yes) and makes every repair under a track\n"
          "version, enabling one when versioning is off: 'ckdvol version rollback FILE'\n"
          "undoes the repair, 'ckdvol version commit FILE' keeps it. A volume whose\n"
          "length or track count disagrees with its header is not repaired.\n"
          "Progress is shown on standard error when it is a terminal.\n"
          "Exit status: 0 all sound; 3 findings (repaired or not); 1 the volume cannot\n"
          "be opened, a repair is refused, or a repair's write or sync fails (the\n"
          "message says how many tracks were repaired before it); 2 a repair was not\n"
          "confirmed.");
      return [o] {
        if (o->yes && !o->repair) return failWith(kExitUsage, "verify: --yes goes with --repair");
        return runVerify(*o);
      };
    }});

}  // namespace
}  // namespace ckdvol_tool
