// ckdvol version: track versioning of a volume.
//
//   ckdvol version status|enable|disable|commit|rollback|verify FILE
//
// status opens the volume read-only and changes nothing. Every other action
// opens it read-write, which also makes a pending version active (the header
// then says so); the report mentions it when that happens.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "ckdfile/emulated_ckd_file.h"
#include "ckdfile/versioning.h"
#include "command.h"
#include "common/byte_order.h"
#include "journal/change_journal.h"
#include "journaled_change.h"
#include "open_failure.h"
#include "tool_util.h"

namespace ckdvol_tool {
namespace {

using F = EmulatedCKDfile;

std::string copiesText(long long n) {
  return std::to_string(n) + (n == 1 ? " saved copy" : " saved copies");
}

std::string openFailure(const std::string& path, const F& f, int rc) {
  return openFailureCause(path, rc, errno, f.errorText);
}

long long fileLength(const F& f) {
  struct stat st;
  return ::fstat(f.fileDescriptor, &st) == 0 ? static_cast<long long>(st.st_size) : -1;
}

// Slots behind the last track slot, whatever version made them.
long long copyAreaSlots(const F& f) {
  const long long size = fileLength(f);
  const long long dataEnd = f.getMaxOffset();
  return size > dataEnd ? (size - dataEnd) / f.trackSlotSize : 0;
}

// "slot at offset X (cylinder C head H)" for a slot offset the library last read.
std::string slotText(const F& f, unsigned long long offset) {
  std::string s = "the slot at file offset " + std::to_string(offset);
  const long long dataEnd = f.getMaxOffset();
  if (f.deviceType != F::D200 && offset >= 512 && static_cast<long long>(offset) < dataEnd &&
      (offset - 512) % f.trackSlotSize == 0) {
    const unsigned long long index = (offset - 512) / f.trackSlotSize;
    s += " (cylinder " + std::to_string(index / f.tracksPerCylinder) + " head " +
         std::to_string(index % f.tracksPerCylinder) + ")";
  } else if (static_cast<long long>(offset) >= dataEnd) {
    s += " (in the saved-copy area)";
  }
  return s;
}

std::string queryFailure(int rc) {
  switch (rc) {
    case ckdvol::kQueryNoEnd:
      return "cannot find the end of the file: " + std::string(std::strerror(errno));
    case ckdvol::kQueryReadCopy:
      return "cannot read a saved copy behind the last track: " + std::string(std::strerror(errno));
    default:
      return "querying the versions failed with result " + std::to_string(rc);
  }
}

// Every slot behind the last track, and the version each saved copy was
// made under. A copy made under version v stamps its track with v, so the
// track's next copy carries v in its trailer; the newest copy of a track
// belongs to the version in the track's own trailer while the track links
// back to it. A copy whose track no longer links to it (and no newer copy
// follows) cannot be placed.
struct CopyCensus {
  long long slots = 0;                 // slots behind the last track
  long long copies = 0;                // those that are saved copies ("VER0")
  std::map<int, long long> byVersion;  // copies placed in a version
  long long untold = 0;                // copies whose version cannot be told
  long long processed = 0;             // copies a commit or rollback of the active version gets through
  std::string stop;                    // why it would fail at the next one; empty when it would not
};

// 0, or -1 with `error` naming the slot that could not be read.
int takeCensus(F& f, CopyCensus& c, std::string& error) {
  const unsigned slot = f.trackSlotSize;
  const long long dataEnd = f.getMaxOffset();
  const long long size = fileLength(f);
  if (dataEnd < 0 || size < 0) {
    error = "cannot find the end of the file: " + std::string(std::strerror(errno));
    return -1;
  }
  struct Slot {
    unsigned long long offset = 0, link = 0, home = 0;
    bool copy = false;      // "VER0" in its trailer
    int imageVersion = 0;   // the version the saved image carried
  };
  std::vector<Slot> slots;
  unsigned char t[ckdvol::kTrailerSize];
  auto readAt = [&](unsigned char* buffer, size_t n, unsigned long long at) {
    errno = 0;
    if (::pread(f.fileDescriptor, buffer, n, static_cast<off_t>(at)) == static_cast<ssize_t>(n)) return true;
    error = "cannot read " + slotText(f, at - (at - ckdvol::kHeaderSize) % slot) + ": " +
            (errno != 0 ? std::strerror(errno) : "short read");
    return false;
  };
  // The trailer of the track at `home`: "VER0" and its link.
  auto trackTrailer = [&](unsigned long long home, bool& marked, unsigned long long& link) {
    if (!readAt(t, sizeof t, home + slot - sizeof t)) return false;
    marked = ckdvol::trailerHasMarker(t);
    link = ckdvol::trailerLink(t);
    return true;
  };
  for (long long p = dataEnd; p + static_cast<long long>(slot) <= size; p += slot) {
    Slot s;
    s.offset = static_cast<unsigned long long>(p);
    if (!readAt(t, sizeof t, s.offset + slot - sizeof t)) return -1;
    s.copy = ckdvol::trailerHasMarker(t);
    s.link = s.home = ckdvol::trailerLink(t);
    s.imageVersion = ckdvol::trailerVersion(t);
    if (s.copy && s.link == 0) {
      // A copy without a link names its track by its home address.
      unsigned char ha[ckdvol::kHomeAddressSize];
      if (!readAt(ha, sizeof ha, s.offset)) return -1;
      const unsigned char* q = ha;
      unsigned char flag = 0;
      unsigned int cyl = 0, head = 0;
      f.getHA(q, flag, cyl, head);
      const long long home = f.getOffset(cyl, static_cast<unsigned short>(head), 0, true);
      s.home = home < 0 ? 0 : static_cast<unsigned long long>(home);
    }
    slots.push_back(s);
  }
  c.slots = static_cast<long long>(slots.size());
  std::map<unsigned long long, std::vector<size_t>> byHome;
  for (size_t i = 0; i < slots.size(); ++i) {
    if (slots[i].copy) byHome[slots[i].home].push_back(i);
  }
  for (const auto& entry : byHome) {
    const std::vector<size_t>& chain = entry.second;
    c.copies += static_cast<long long>(chain.size());
    for (size_t k = 0; k < chain.size(); ++k) {
      const Slot& copy = slots[chain[k]];
      int made = 0;
      bool marked = false;
      unsigned long long link = 0;
      if (k + 1 < chain.size()) {
        made = slots[chain[k + 1]].imageVersion;
      } else if (entry.first != 0) {
        if (!trackTrailer(entry.first, marked, link)) return -1;
        if (marked && link == copy.offset) made = ckdvol::trailerVersion(t);
      }
      if (made > copy.imageVersion) {
        ++c.byVersion[made];
      } else {
        ++c.untold;
      }
    }
  }
  // Commit and rollback of the active version walk back from the newest
  // slot while it is a copy whose image carries a lower version. Each needs
  // its track to link to it; once processed, a track carries its copy's
  // trailer, which links to the track itself (or none at version 0).
  if (f.activeVersion <= 0) return 0;
  std::map<unsigned long long, std::pair<bool, unsigned long long>> processedTracks;
  for (size_t i = slots.size(); i-- > 0;) {
    const Slot& s = slots[i];
    if (!s.copy) {
      c.stop = slotText(f, s.offset) + " is not a saved copy (no \"VER0\")";
      break;
    }
    if (s.imageVersion + 1 > f.activeVersion) break;
    bool marked = false;
    unsigned long long link = 0;
    const auto done = processedTracks.find(s.home);
    if (done != processedTracks.end()) {
      marked = done->second.first;
      link = done->second.second;
    } else if (s.home == 0 || !trackTrailer(s.home, marked, link)) {
      c.stop = "the saved copy at " + slotText(f, s.offset) + " names no track that can be read";
      break;
    }
    if (!marked || link != s.offset) {
      c.stop = "the saved copy at " + slotText(f, s.offset) + ": its track, " + slotText(f, s.home) +
               (done != processedTracks.end()
                    ? ", has a newer copy processed before it and then links to neither (a track changed "
                      "under two nested versions)"
                    : ", does not link to it");
      break;
    }
    ++c.processed;
    processedTracks[s.home] = {s.imageVersion != 0, s.imageVersion != 0 ? s.link : 0};
  }
  return 0;
}

// "version 1: 2, version 2: 1; 1 whose version cannot be told (...)"
std::string censusText(const CopyCensus& c) {
  std::string s;
  for (const auto& entry : c.byVersion) {
    s += (s.empty() ? "" : ", ") + std::string("version ") + std::to_string(entry.first) + ": " +
         std::to_string(entry.second);
  }
  if (c.untold > 0) {
    s += (s.empty() ? "" : "; ") + std::to_string(c.untold) +
         " whose version cannot be told (its track no longer links to it)";
  }
  return s;
}

// Opens read-write and says whether that made a pending version active.
// Returns 0, or the exit status after a message.
int openForUpdate(F& f, VolumeLock& lock, const std::string& path) {
  if (int status = lock.acquire(path, true)) return status;
  F peek;
  int rc = peek.open(path.c_str(), true);
  if (rc < 0) return fail(path, openFailure(path, peek, rc));
  const int activeBefore = peek.activeVersion;
  peek.close();
  rc = f.open(path.c_str(), false);
  if (rc < 0) return fail(path, openFailure(path, f, rc));
  if (f.activeVersion != activeBefore) {
    std::printf("%s: opening it read-write made the pending version %d active\n", path.c_str(),
                f.activeVersion);
  }
  return kExitOk;
}

int runStatus(const std::string& path, bool json) {
  VolumeLock lock;
  if (int status = lock.acquire(path, false)) return status;
  F f;
  const int rc = f.open(path.c_str(), true);
  if (rc < 0) return fail(path, openFailure(path, f, rc));
  int version = 0, copies = 0;
  const int q = f.queryVersion(version, copies);
  if (q < 0) return fail(path, queryFailure(q));
  CopyCensus census;
  std::string error;
  if (takeCensus(f, census, error) != 0) return fail(path, error);
  const long long area = census.slots;
  if (json) {
    nlohmann::ordered_json byVersion = nlohmann::ordered_json::object();
    for (const auto& entry : census.byVersion) byVersion[std::to_string(entry.first)] = entry.second;
    nlohmann::ordered_json j = {
        {"file", path},
        {"versioning", f.activeVersion == 0 ? "off" : "active"},
        {"activeVersion", f.activeVersion},
        {"latestVersion", f.latestVersion},
        {"pendingVersion", q == ckdvol::kQueryPending ? nlohmann::ordered_json(f.latestVersion) : nlohmann::ordered_json()},
        {"savedCopies", census.copies},
        {"savedCopiesByVersion", byVersion},
        {"savedCopiesVersionUnknown", census.untold},
        {"reachedByCommitOrRollback", census.processed},
        {"commitOrRollbackFailsAt", census.stop.empty() ? nlohmann::ordered_json() : nlohmann::ordered_json(census.stop)},
        {"copyAreaSlots", area},
        {"copyAreaNotCopies", area - census.copies},
        {"copyAreaBytes", area * static_cast<long long>(f.trackSlotSize)},
    };
    std::printf("%s\n", j.dump(2).c_str());
    return kExitOk;
  }
  std::printf("%s:\n", path.c_str());
  if (f.activeVersion == 0) {
    std::printf("  versioning:        off (active version 0)\n");
  } else {
    std::printf("  active version:    %d\n", f.activeVersion);
  }
  std::printf("  latest version:    %d\n", f.latestVersion);
  if (q == ckdvol::kQueryPending) {
    std::printf("  pending:           version %d is enabled; it becomes active at the next read-write open\n",
                f.latestVersion);
  }
  if (f.activeVersion != 0 || census.copies > 0) {
    std::printf("  saved copies:      %lld%s\n", census.copies,
                census.copies > 0 ? (" (made under " + censusText(census) + ")").c_str() : "");
  }
  if (census.copies > 0 && f.activeVersion > 0) {
    const std::string reach = census.processed == census.copies ? "all " + std::to_string(census.copies)
                                                                 : std::to_string(census.processed) + " of them";
    std::printf("  commit, rollback:  of version %d take %s: every copy whose image is older than\n"
                "                     version %d, so the copies made under the versions below it too\n",
                f.activeVersion, reach.c_str(), f.activeVersion);
    if (!census.stop.empty()) std::printf("                     and then fail at %s\n", census.stop.c_str());
  } else if (census.copies > 0) {
    std::printf("  commit, rollback:  reach none of them while versioning is off\n");
  }
  if (area > census.copies) {
    std::printf("  not copies:        %lld slot%s behind the last track without \"VER0\" (a commit or rollback\n"
                "                     stops there)\n",
                area - census.copies, area - census.copies == 1 ? "" : "s");
  }
  std::printf("  copy area:         %lld slot%s behind the last track (%lld bytes)\n", area,
              area == 1 ? "" : "s", area * static_cast<long long>(f.trackSlotSize));
  return kExitOk;
}

int runEnable(const std::string& path) {
  VolumeLock lock;
  F f;
  if (int status = openForUpdate(f, lock, path)) return status;
  const int active = f.activeVersion;
  // The header change goes through the change journal: a failed write or
  // sync takes it back, a kill leaves it for 'ckdvol recover'.
  int rc = 0;
  const int status = journaledChange(f, path, "enable", {}, [&]() -> std::string {
    rc = f.enableVersion();
    switch (rc) {
      case ckdvol::kEnableOk:
        return std::string();
      case ckdvol::kEnablePending:
        return "version " + std::to_string(f.latestVersion) + " is already enabled and waits for the next read-write open";
      case ckdvol::kEnableHeaderRead:
        return "cannot read the volume header, or it is no longer a usable volume";
      case ckdvol::kEnableHeaderWrite:
        return "cannot write the volume header: " + std::string(std::strerror(errno));
      default:
        return "enabling a version failed with result " + std::to_string(rc);
    }
  }, true);
  if (status != kExitOk) return status;
  const int enabled = f.latestVersion;
  errno = 0;
  if (f.close() != 0) return fail(path, std::string("version enabled, but closing the volume failed: ") + std::strerror(errno));
  std::printf("%s: version %d enabled; it takes effect at the next read-write open of the volume\n", path.c_str(),
              enabled);
  if (active == 0) {
    std::printf("  (versioning is off until then: changes made before it are not saved)\n");
  } else {
    std::printf("  (version %d stays active until then)\n", active);
  }
  return kExitOk;
}

// Takes back a version that was enabled but never became active: the
// header's latest version goes back to its active one (and the version
// marker goes when that is 0), in one write of the header, forced to disk.
// A read-write open would first make the version active, a second header
// write that a crash could leave alone. 0, or kExitFailure after a message.
int cancelPending(const std::string& path, int active, int pending) {
  const int fd = ::open(path.c_str(), O_RDWR | O_CLOEXEC);
  if (fd < 0) return fail(path, std::string("cannot open the volume for writing: ") + std::strerror(errno));
  unsigned char h[ckdvol::kHeaderSize];
  errno = 0;
  std::string failure;
  if (::pread(fd, h, sizeof h, 0) != static_cast<ssize_t>(sizeof h) ||
      std::memcmp(h, ckdvol::kMagicReady, ckdvol::kMagicLength) != 0 ||
      ckdvol::loadLe16(h + ckdvol::kHdrActiveVersion) != active ||
      ckdvol::loadLe16(h + ckdvol::kHdrLatestVersion) != pending) {
    failure = "the volume header cannot be read again, or changed meanwhile; nothing was changed";
  } else {
    ckdvol::storeLe16(h + ckdvol::kHdrLatestVersion, static_cast<uint16_t>(active));
    if (active == 0) std::memset(h + ckdvol::kHdrVersionMarker, 0, ckdvol::kVersionMarkerLength);
    unsigned char before[ckdvol::kHeaderSize];
    std::memcpy(before, h, sizeof h);
    ckdvol::storeLe16(before + ckdvol::kHdrLatestVersion, static_cast<uint16_t>(pending));
    if (active == 0) std::memcpy(before + ckdvol::kHdrVersionMarker, ckdvol::kVersionMarker, ckdvol::kVersionMarkerLength);
    errno = 0;
    const bool written = ::pwrite(fd, h, sizeof h, 0) == static_cast<ssize_t>(sizeof h);
    const int err = errno;
    if (!written || ::fdatasync(fd) != 0) {
      const int why = written ? errno : err;
      // The header goes back to what it said (a write cut short may have
      // changed part of it), forced to disk.
      const bool restored = ::pwrite(fd, before, sizeof before, 0) == static_cast<ssize_t>(sizeof before) &&
                            ::fdatasync(fd) == 0;
      failure = std::string(written ? "cannot force the volume header to disk (" : "cannot write the volume header (") +
                (why != 0 ? std::strerror(why) : "short write") + ")" +
                (restored ? "; nothing was changed"
                          : "; putting the former header back failed too: 'ckdvol version status " + path + "' shows what it says");
    }
  }
  if (::close(fd) != 0 && failure.empty()) failure = std::string("closing the volume failed: ") + std::strerror(errno);
  if (!failure.empty()) return fail(path, failure);
  std::printf("%s: version %d was enabled but never active: disabled; %s\n", path.c_str(), pending,
              active == 0 ? "versioning stays off" : ("version " + std::to_string(active) + " stays active").c_str());
  return kExitOk;
}

int runDisable(const std::string& path) {
  VolumeLock lock;
  if (int status = lock.acquire(path, true)) return status;
  // Everything is checked on a read-only open, so that a refusal writes
  // nothing (a read-write open makes a pending version active).
  F peek;
  const int opened = peek.open(path.c_str(), true);
  if (opened < 0) return fail(path, openFailure(path, peek, opened));
  if (peek.activeVersion == 0 && peek.latestVersion == 0) {
    std::printf("%s: versioning is not active: nothing to disable\n", path.c_str());
    return kExitOk;
  }
  // The library refuses only while copies made from images of the version
  // just below the active one are newest; a copy of any version left
  // behind would belong to no version once this one is gone.
  CopyCensus census;
  std::string error;
  if (takeCensus(peek, census, error) != 0) return fail(path, error + "; nothing was changed");
  const int pending = peek.activeVersion < peek.latestVersion ? peek.latestVersion : 0;
  const int top = pending != 0 ? pending : peek.activeVersion;
  if (census.slots > 0) {
    std::string what = census.copies == census.slots
                           ? copiesText(census.copies) + " (made under " + censusText(census) + ")"
                           : count(static_cast<unsigned long long>(census.slots), "slot") + " (" +
                                 copiesText(census.copies) + ")";
    return fail(path, "version " + std::to_string(top) + " cannot be disabled while " + what +
                          " remain behind the last track; commit or roll them back first ('ckdvol version status " +
                          path + "' shows what that takes); nothing was changed");
  }
  const int activeBefore = peek.activeVersion;
  peek.close();
  if (pending != 0) return cancelPending(path, activeBefore, pending);
  F f;
  const int rc = f.open(path.c_str(), false);
  if (rc < 0) return fail(path, openFailure(path, f, rc));
  const int active = f.activeVersion;
  int version = 0, copies = 0;
  const int q = f.queryVersion(version, copies);
  if (active == 0) {
    std::printf("%s: versioning is not active: nothing to disable\n", path.c_str());
    return kExitOk;
  }
  const int status = journaledChange(f, path, "disable", {}, [&]() -> std::string {
    switch (const int r = f.disableVersion()) {
      case ckdvol::kDisableOk:
        return std::string();
      case ckdvol::kDisableBusy:
        if (q >= 0 && copies > 0) {
          return "version " + std::to_string(active) + " still has " + copiesText(copies) +
                 "; commit or roll it back first";
        }
        return "version " + std::to_string(f.latestVersion) + " is enabled but not yet active; open the volume read-write first";
      case ckdvol::kDisableNotActive:
        return "cannot write the volume header: " + std::string(std::strerror(errno));
      case ckdvol::kDisableHeaderRead:
        return "cannot read the volume header, or it is no longer a usable volume";
      default:
        return queryFailure(r);
    }
  }, true);
  if (status != kExitOk) return status;
  const int now = f.activeVersion;  // close() forgets it
  errno = 0;
  if (f.close() != 0) return fail(path, std::string("version disabled, but closing the volume failed: ") + std::strerror(errno));
  if (now == 0) {
    std::printf("%s: version %d disabled; versioning is now off\n", path.c_str(), active);
  } else {
    std::printf("%s: version %d disabled; version %d is active again\n", path.c_str(), active, now);
  }
  return kExitOk;
}

std::string doVersionFailure(const F& f, int rc) {
  const std::string at = slotText(f, f.lastReadOffset);
  switch (rc) {
    case ckdvol::kDoVersionNoEnd:
      return "cannot find the end of the file: " + std::string(std::strerror(errno));
    case ckdvol::kDoVersionCopyRead:
      return "cannot read the saved copy at " + at;
    case ckdvol::kDoVersionCopyNoMarker:
      return at + " lies behind the last track but is not a saved copy (no \"VER0\" in its trailer)";
    case ckdvol::kDoVersionHomeRead:
      return "a saved copy links to " + at + ", which cannot be read";
    case ckdvol::kDoVersionHomeNoMarker:
    case ckdvol::kDoVersionHomeNoLink:
      return "a saved copy's track, " + at + ", no longer links to it (" +
             (rc == ckdvol::kDoVersionHomeNoMarker ? "its trailer has no \"VER0\"" : "its trailer links elsewhere") +
             "); an interrupted commit or rollback leaves its processed copies behind like this: "
             "run the same action again with --resume";
    case ckdvol::kDoVersionTrackMismatch:
      return "a saved copy and its track, " + at + ", name different tracks in their home addresses (a "
             "track whose home address 'verify --repair' mended looks like this until the version is "
             "committed or rolled back)";
    case ckdvol::kDoVersionHomeWrite:
      return "cannot write the track at " + std::to_string(f.lastReadOffset) + ": " + std::strerror(errno);
    case ckdvol::kDoVersionSync:
      return "forcing the written tracks to disk failed: " + std::string(std::strerror(errno));
    case ckdvol::kDoVersionTruncate:
      return "cannot cut the saved copies off the file: " + std::string(std::strerror(errno));
    default:
      return "failed with result " + std::to_string(rc);
  }
}


// The versions under which the tracks of the copies a commit or rollback
// of the active version processes were changed: each home slot's trailer
// carries the version it was written under. "version 1", "versions 1 to 2".
std::string changedUnder(F& f) {
  const unsigned int slot = f.trackSlotSize;
  const long long dataEnd = f.getMaxOffset();
  const long long size = fileLength(f);
  int low = 0, high = 0;
  std::vector<unsigned char> copy(slot), home(slot);
  for (long long p = size - slot; dataEnd >= 0 && p >= dataEnd; p -= slot) {
    if (f.readRawTrack(static_cast<unsigned long long>(p), copy.data()) != 0) break;
    const unsigned char* t = ckdvol::trailerOf(copy.data(), slot);
    if (!ckdvol::trailerHasMarker(t) || ckdvol::trailerVersion(t) + 1 > f.activeVersion) break;
    const unsigned long long h = ckdvol::trailerLink(t);
    if (h == 0 || f.readRawTrack(h, home.data()) != 0) continue;
    const unsigned char* ht = ckdvol::trailerOf(home.data(), slot);
    if (!ckdvol::trailerHasMarker(ht)) continue;
    const int v = ckdvol::trailerVersion(ht);
    if (low == 0 || v < low) low = v;
    if (v > high) high = v;
  }
  if (low == 0) return "version " + std::to_string(f.activeVersion);
  if (low == high) return "version " + std::to_string(low);
  return "versions " + std::to_string(low) + " to " + std::to_string(high);
}

int runDoVersion(const std::string& path, int operation, bool resume) {
  VolumeLock lock;
  F f;
  if (int status = openForUpdate(f, lock, path)) return status;
  const char* verb = operation == ckdvol::kVersionCommit     ? "commit"
                     : operation == ckdvol::kVersionRollback ? "roll back"
                                                             : "verify";
  if (f.activeVersion <= 0) {
    std::printf("%s: versioning is not active: nothing to %s\n", path.c_str(), verb);
    return kExitOk;
  }
  const long long before = fileLength(f);
  if (operation == ckdvol::kVersionVerify) {
    const int rc = f.doVersion(-1, operation);
    if (rc < 0) return fail(path, std::string(verb) + " of version " + std::to_string(f.activeVersion) + ": " + doVersionFailure(f, rc));
    std::printf("%s: %s of version %d verified: each links to its track and back; nothing changed\n",
                path.c_str(), copiesText(rc).c_str(), f.activeVersion);
    return kExitOk;
  }
  const std::string under = changedUnder(f);
  // The intent is recorded in the header first: an interrupted run is
  // finished by 'ckdvol recover' or by running the same action again.
  long long resumed = 0;
  std::string error;
  ckdvol::JournalRecord record;
  bool recorded = false;
  if (resume && ckdvol::readJournalRecord(f.fileDescriptor, record, recorded) && !recorded) {
    // A run this tool did not record (another program's, or an older one's).
    resumed = ckdvol::cutProcessedCopies(f, operation, error);
    if (resumed < 0) return fail(path, error + "; nothing was changed");
  }
  long long more = 0;
  bool underWay = false;
  const long long rc = ckdvol::runVersionOperation(f, operation, operation == ckdvol::kVersionCommit ? "commit" : "rollback",
                                                   more, underWay, error);
  resumed += more;
  if (resumed > 0 || resume) {
    std::printf("%s: resuming: %s already processed by the interrupted run cut off the file\n", path.c_str(),
                copiesText(resumed).c_str());
  }
  if (rc < 0) {
    const std::string cause = rc == ckdvol::kVersionOperationFailed ? error : doVersionFailure(f, static_cast<int>(rc));
    return fail(path, std::string(verb) + " of version " + std::to_string(f.activeVersion) + ": " + cause +
                          (underWay ? "; it is recorded as under way: run 'ckdvol recover " + path + "' to finish it"
                                    : std::string("; nothing was changed")));
  }
  const long long after = fileLength(f);
  const long long left = copyAreaSlots(f);
  std::printf("%s: %s %s: %s %s\n", path.c_str(), rc == 0 ? ("version " + std::to_string(f.activeVersion)).c_str() : under.c_str(),
              operation == ckdvol::kVersionCommit ? "committed" : "rolled back", copiesText(rc).c_str(),
              operation == ckdvol::kVersionCommit ? "dropped, the tracks keep their new contents"
                                                  : "written back over their tracks");
  if (after != before) {
    std::printf("  file cut from %lld to %lld bytes; version %d stays active", before, after, f.activeVersion);
  } else {
    std::printf("  file length unchanged (%lld bytes); version %d stays active", after, f.activeVersion);
  }
  std::printf(left > 0 ? " (%lld older saved cop%s remain)\n" : "\n", left, left == 1 ? "y" : "ies");
  if (f.close() != 0) return fail(path, std::string("closing the volume failed: ") + std::strerror(errno));
  return kExitOk;
}

const CommandRegistration kRegistration(Command{
    "version", "Track versioning: status, enable, disable, commit, rollback, verify", 40,
    [](CLI::App& app) -> std::function<int()> {
      struct Args {
        std::string action;
        std::string file;
        bool resume = false;
        bool json = false;
      };
      auto args = std::make_shared<Args>();
      app.add_option("ACTION", args->action, "status, enable, disable, commit, rollback or verify")
          ->required()
          ->check(CLI::IsMember({"status", "enable", "disable", "commit", "rollback", "verify"}));
      app.add_option("FILE", args->file, "Volume file")->required();
      app.add_flag("--resume", args->resume,
                   "commit/rollback: finish a run that was interrupted (cuts off the copies it had\n"
                   "already processed, after checking each one's track holds what that run writes)");
      app.add_flag("--json", args->json, "status: print the state as one JSON object");
      app.footer(
          "While a version is active, the first change of a track saves its former image\n"
          "behind the last track of the file. Actions:\n"
          "  status    active and latest version, the saved copies of every version and\n"
          "            what a commit or rollback takes (read-only, changes nothing)\n"
          "  enable    enable the next version; it becomes active at the next read-write\n"
          "            open of the volume (by any program, this tool included)\n"
          "  disable   step back to the previous version (off at 0); refused while any\n"
          "            saved copy exists, whatever version made it\n"
          "  commit    keep the changes and drop the saved copies\n"
          "  rollback  put the saved copies back over their tracks and drop them\n"
          "  verify    check that every saved copy and its track link to each other\n"
          "All actions but status open the volume read-write, which makes a pending\n"
          "version active. Commit, rollback and disable on a volume without versioning\n"
          "have nothing to do and succeed. Exit status 0 on success, 1 with a message\n"
          "naming the file and the cause otherwise. A commit or rollback records in the\n"
          "volume header that it is under way before it starts: if it is interrupted\n"
          "(power loss, kill), 'ckdvol recover FILE' or the same action again finishes\n"
          "it. --resume also finishes a run that another program left unrecorded.");
      return [args]() -> int {
        const std::string& a = args->action;
        if (args->json && a != "status") return failWith(kExitUsage, "--json goes with status");
        if (a == "status") return runStatus(args->file, args->json);
        if (a == "enable") return runEnable(args->file);
        if (a == "disable") return runDisable(args->file);
        const bool resume = args->resume;
        if (resume && a != "commit" && a != "rollback") {
          return failWith(kExitUsage, "--resume goes with commit or rollback");
        }
        if (a == "commit") return runDoVersion(args->file, ckdvol::kVersionCommit, resume);
        if (a == "rollback") return runDoVersion(args->file, ckdvol::kVersionRollback, resume);
        return runDoVersion(args->file, ckdvol::kVersionVerify, false);
      };
    }});

}  // namespace
}  // namespace ckdvol_tool
