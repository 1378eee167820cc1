// ckdvol create: make a new volume file and initialise every track.
//
//   ckdvol create FILE TYPE[-MODEL] [--cylinders N] [--serial SERIAL] [--owner TEXT]
//                 [--no-format] [--sparse]
//
// The file is never overwritten: an existing FILE is refused and left as it
// is, except that --force replaces an unfinished creation (what a run killed
// with SIGKILL or by a power loss leaves). A volume whose initialisation or
// any write or sync of it fails, or that is interrupted (SIGINT, SIGTERM,
// SIGHUP), is removed again, so no unusable half-written volume stays
// behind. A volume is reported created only once it and its directory entry
// have been forced to disk. --serial and --owner are written into the label
// as soon as cylinder 0 is written, while the header still marks the
// creation unfinished: a volume whose label cannot be written is removed
// like any other failure, and a killed run never leaves a finished volume
// without its serial.
#include <fcntl.h>
#include <signal.h>
#include <time.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "ckdfile/emulated_ckd_file.h"
#include "ckdfile/volume_format.h"
#include "command.h"
#include "data_sets.h"
#include "dataset/vtoc_scan.h"
#include "edit/allocate.h"
#include "edit/relabel.h"
#include "edit/staged_tracks.h"
#include "open_failure.h"
#include "tool_util.h"

namespace ckdvol_tool {
namespace {

using F = EmulatedCKDfile;

constexpr unsigned long long kUnknownFree = ~0ull;

// Bytes an unprivileged writer may still use on the file system that holds
// `path` (kUnknownFree when that cannot be found out).
unsigned long long freeBytesAt(const std::string& path) {
  struct statvfs st;
  if (::statvfs(path.c_str(), &st) != 0) return kUnknownFree;
  return static_cast<unsigned long long>(st.f_bavail) * st.f_frsize;
}

// Cylinder numbers have at most 28 bits on the volume.
constexpr unsigned long long kMaxCylinders = 0x0FFFFFFF;

// ---- removal of an unfinished volume on a signal ---------------------------------
//
// initialize() cannot be stopped from its progress callback, and a large
// volume takes minutes. So the handler itself removes the file (unlink and
// write are async-signal-safe), then dies of the signal with its default
// action. The path and the message are prepared before the handler is armed.

constexpr int kCleanupSignals[] = {SIGINT, SIGTERM, SIGHUP};

std::string gCleanupPath;
std::string gCleanupMessage;
volatile sig_atomic_t gCleanupArmed = 0;

void removeUnfinishedVolume(int sig) {
  if (gCleanupArmed) {
    ::unlink(gCleanupPath.c_str());
    ssize_t ignored = ::write(STDERR_FILENO, gCleanupMessage.data(), gCleanupMessage.size());
    (void)ignored;
  }
  ::signal(sig, SIG_DFL);
  ::raise(sig);
}

sigset_t cleanupSignalSet() {
  sigset_t set;
  sigemptyset(&set);
  for (int s : kCleanupSignals) sigaddset(&set, s);
  return set;
}

// Blocks the cleanup signals while alive, so that arming and disarming are
// atomic with the file's creation and completion.
class SignalBlock {
 public:
  SignalBlock() {
    const sigset_t set = cleanupSignalSet();
    sigprocmask(SIG_BLOCK, &set, &old_);
  }
  ~SignalBlock() { sigprocmask(SIG_SETMASK, &old_, nullptr); }

 private:
  sigset_t old_;
};

void installCleanupHandlers() {
  struct sigaction sa;
  std::memset(&sa, 0, sizeof sa);
  sa.sa_handler = removeUnfinishedVolume;
  sa.sa_mask = cleanupSignalSet();
  sa.sa_flags = SA_RESTART;
  for (int s : kCleanupSignals) sigaction(s, &sa, nullptr);
}

void restoreDefaultHandlers() {
  for (int s : kCleanupSignals) ::signal(s, SIG_DFL);
}

// ---- progress -------------------------------------------------------------------

double now() {
  timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) / 1e9;
}

std::string clockText(double seconds) {
  const long s = static_cast<long>(seconds + 0.5);
  char buf[32];
  std::snprintf(buf, sizeof buf, "%ld:%02ld:%02ld", s / 3600, (s / 60) % 60, s % 60);
  return buf;
}

// One step is one cylinder buffer: tracksPerCylinder slots.
struct Progress {
  unsigned long long total = 0;  // steps of the whole volume
  unsigned long long done = 0;
  unsigned long long bytesPerStep = 0;
  bool bar = false;  // draw a bar on standard error
  double start = 0;
  double lastDraw = -1;
  // Run once cylinder 0 is written, while the header still says the
  // creation is unfinished; what it returns (empty, or what failed) goes to
  // hookFailure.
  std::function<std::string()> afterFirstCylinder;
  std::string hookFailure;

  void draw(bool final) {
    const double t = now();
    if (!final && lastDraw >= 0 && t - lastDraw < 0.1) return;
    lastDraw = t;
    const double elapsed = t - start;
    const double rate = elapsed > 0 ? static_cast<double>(done) / elapsed : 0;
    const double mbps = rate * static_cast<double>(bytesPerStep) / 1e6;
    const double left = rate > 0 ? static_cast<double>(total - done) / rate : 0;
    const int width = 30;
    const int filled = total ? static_cast<int>(width * done / total) : width;
    std::string barText(static_cast<size_t>(filled), '#');
    barText.append(static_cast<size_t>(width - filled), '.');
    std::fprintf(stderr, "\r[%s] %llu/%llu cylinders  %.0f cyl/s (%.0f MB/s)  %s left ", barText.c_str(),
                 done, total, rate, mbps, clockText(left).c_str());
    if (final) std::fputc('\n', stderr);
    std::fflush(stderr);
  }
};

// Keeps errno: runCreate reads it after initialize() (see there).
void onCylinder(void* context, F::CKDtype, unsigned short, unsigned int, unsigned int) {
  const int saved = errno;
  Progress* p = static_cast<Progress*>(context);
  if (++p->done == 1 && p->afterFirstCylinder) p->hookFailure = p->afterFirstCylinder();
  if (p->bar) p->draw(false);
  errno = saved;
}

// ---- messages -------------------------------------------------------------------

std::string systemCause(int savedErrno, const char* otherwise) {
  return savedErrno != 0 ? std::strerror(savedErrno) : otherwise;
}

std::string createFailure(int rc, int savedErrno) {
  switch (rc) {
    case F::kCreateIo:
      if (savedErrno == EEXIST) return "the file already exists; it was not changed";
      return "cannot create the volume file: " + systemCause(savedErrno, "header not written") + "; nothing was created";
    case F::kCreateBadType:
      return "unknown device type";
    case F::kCreateZeroCylinders:
      return "a volume needs at least one cylinder";
    case F::kCreateTooLarge:
      return "more than 65520 cylinders is possible only for device type D600";
    default:
      return "create failed with result " + std::to_string(rc);
  }
}

// initializeSparse's result when a sync of the tracks fails.
constexpr int kInitSync = -100;

std::string initFailure(int rc, int savedErrno) {
  switch (rc) {
    case kInitSync:
      return "forcing the tracks to disk (fdatasync) failed: " + systemCause(savedErrno, "sync failed");
    case F::kInitWrite:
      return "writing the tracks failed: " + systemCause(savedErrno, "short write (disk full?)");
    case F::kInitNoOffset:
      return "the volume has no tracks";
    case F::kInitSeek:
      return "cannot position the file at its first track: " + systemCause(savedErrno, "seek failed");
    case F::kInitReadHeader:
      return "cannot read the header back: " + systemCause(savedErrno, "short read");
    case F::kInitWriteHeader:
      return "cannot write the finished header: " + systemCause(savedErrno, "short write");
    case F::kInitLoadTrack:
      return "the first track cannot be read back: " + systemCause(savedErrno, "short read");
    default:
      return "initialisation failed with result " + std::to_string(rc);
  }
}

struct CreateOptions {
  std::string path;
  std::string type;
  int cylinders = 0;
  bool cylindersGiven = false;  // otherwise the count comes from type and model
  bool noFormat = false;
  bool sparse = false;
  bool force = false;  // replace an unfinished creation
  std::string serial;  // upper-cased; empty: the initialisation's serial
  std::string owner;
  bool ownerGiven = false;
};

// The largest model: TYPE-A is TYPE-59.
constexpr int kMaxModel = 59;

// Sparse initialisation: the file is made at its full length with holes,
// then each track gets only its written part (home address, record zero,
// the label or VTOC records on cylinder 0 heads 0 and 1 when formatting,
// the end marker); the rest of every slot stays a hole and reads as zeros.
// No filler records are written. The tracks are forced to disk before the
// header is stamped "CKD_XVOL", and the header after it, so an interrupted
// run leaves an unusable "CKD_INIT" file (which the signal handler removes).
int initializeSparse(F& f, Progress& progress, bool labels) {
  const long long end = f.getMaxOffset();
  if (end < 0) return F::kInitNoOffset;
  if (::ftruncate(f.fileDescriptor, static_cast<off_t>(end)) != 0) return F::kInitWrite;
  std::vector<unsigned char> image(f.trackSlotSize, 0);
  size_t used = 0;
  unsigned short cell = 0, head = 0;
  unsigned int cyl = 0;
  bool done = false;
  unsigned long long written = 0;
  while (!done) {
    std::memset(image.data(), 0, used);
    unsigned char* p = image.data();
    f.putHA(p, 0, cyl, head);
    f.putCount(p, static_cast<int>(cyl), head, 0, 0, ckdvol::kRecordZeroDataLength);
    p += ckdvol::kRecordZeroDataLength;
    if (labels && cyl == 0 && head == 0) f.format_labels(p);
    if (labels && cyl == 0 && head == 1) f.format_vtoc(p);
    std::memset(p, ckdvol::kEndMarkerByte, ckdvol::kEndMarkerSize);
    p += ckdvol::kEndMarkerSize;
    used = static_cast<size_t>(p - image.data());
    const long long offset = f.getOffset(cyl, head, cell, false);
    if (offset < 0) return F::kInitNoOffset;
    if (::pwrite(f.fileDescriptor, image.data(), used, static_cast<off_t>(offset)) != static_cast<ssize_t>(used)) {
      return F::kInitWrite;
    }
    done = f.increment(cell, cyl, head);
    if (++written % f.tracksPerCylinder == 0) onCylinder(&progress, f.deviceType, cell, cyl, head);
  }
  if (::fdatasync(f.fileDescriptor) != 0) return kInitSync;
  unsigned char header[ckdvol::kHeaderSize];
  if (f.readHeader(header, false) != F::kHeaderOk) return F::kInitReadHeader;
  f.formatLevel = header[ckdvol::kHdrFormatLevel];
  std::memcpy(header + ckdvol::kHdrMagic, ckdvol::kMagicReady, ckdvol::kMagicLength);
  if (f.writeHeader(header, true) != F::kHeaderOk) return F::kInitWriteHeader;
  if (::fdatasync(f.fileDescriptor) != 0) return kInitSync;
  if (f.readTrack(0, 0, 0) != F::kTrackOk) return F::kInitLoadTrack;
  return F::kInitOk;
}

// Forces the directory entry of `path` to disk. 0, or errno.
int syncDirectory(const std::string& path) {
  const size_t slash = path.rfind('/');
  const std::string dir = slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
  const int fd = ::open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return errno;
  const int rc = ::fsync(fd) == 0 ? 0 : errno;
  ::close(fd);
  return rc;
}

// With --force: removes `path` when it is an unfinished creation. kExitOk
// when there is nothing at `path` or it was removed; otherwise kExitFailure
// after a message saying what the file is (it is left as it is).
int removeUnfinishedCreation(const std::string& path) {
  struct stat st;
  if (::lstat(path.c_str(), &st) != 0) return kExitOk;
  const std::string refused = "--force replaces only an unfinished creation, and this file is ";
  if (!S_ISREG(st.st_mode)) return fail(path, refused + "not a regular file; nothing was changed");
  // A creation still running holds its file's lock: that one is not ours.
  VolumeLock lock;
  if (int status = lock.acquire(path, true)) return status;
  unsigned char h[ckdvol::kHeaderSize] = {};
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  const ssize_t got = fd < 0 ? -1 : ::pread(fd, h, sizeof h, 0);
  const int err = errno;
  if (fd >= 0) ::close(fd);
  if (got < 0) return fail(path, "cannot read it to see what it is: " + std::string(std::strerror(err)) + "; nothing was changed");
  if (!isUnfinishedCreation(h, std::min<long long>(got, static_cast<long long>(st.st_size)))) {
    F f;
    const int rc = f.open(path.c_str(), true);
    const std::string what = rc >= 0 ? "a complete volume" : openFailureCause(path, rc, errno, f.errorText);
    return fail(path, refused + what + "; nothing was changed");
  }
  if (::unlink(path.c_str()) != 0) {
    return fail(path, "cannot remove the unfinished creation: " + std::string(std::strerror(errno)));
  }
  std::fprintf(stderr, "ckdvol: note: %s: the unfinished creation there was removed\n", path.c_str());
  return kExitOk;
}

// Writes --serial (and --owner) into the label of the volume `f` and its
// DSCBs (none yet). Empty, or what failed.
std::string writeLabelTrack(F& f, const CreateOptions& o) {
  std::string error;
  ckdvol::VtocInfo vtoc;
  if (ckdvol::scanVtoc(f, vtoc, error) != ckdvol::kScanOk) return "cannot read the new label back: " + error;
  ckdvol::StagedTracks staged(f);
  if (!ckdvol::relabelVolume(staged, vtoc, o.serial, o.ownerGiven ? &o.owner : nullptr, error)) {
    return "cannot write the serial into the label: " + error;
  }
  error = staged.writeAll();
  return error.empty() ? error : "writing the label failed: " + error;
}

// The label written once cylinder 0 is: the header still says "CKD_INIT"
// then, so a run killed at any point leaves an unfinished creation that
// recovery removes, never a finished volume with the default serial. A
// failure removes the whole file. The file offset the initialisation writes
// at is kept (reading the label moves it).
std::string writeLabel(F& f, const CreateOptions& o) {
  const off_t at = ::lseek(f.fileDescriptor, 0, SEEK_CUR);
  std::string failure = writeLabelTrack(f, o);
  if (at >= 0 && ::lseek(f.fileDescriptor, at, SEEK_SET) != at && failure.empty()) {
    failure = "cannot go back to where the initialisation writes: " + std::string(std::strerror(errno));
  }
  return failure;
}

// Bytes the file system gives the file: its allocated blocks.
long long allocatedBytes(const std::string& path) {
  struct stat st;
  return ::stat(path.c_str(), &st) == 0 ? static_cast<long long>(st.st_blocks) * 512 : -1;
}

int runCreate(const CreateOptions& o) {
  F::CKDtype type;
  int model;
  std::string typeName = o.type;
  for (char& c : typeName) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  if (!F::parseType(typeName.c_str(), type, model)) {
    return failWith(kExitUsage, "'" + o.type +
                                    "' is not a device type: use TYPE or TYPE-MODEL, e.g. D600 or "
                                    "D600-3 ('ckdvol types' lists the types)");
  }
  const F::DeviceInfo* device = F::findDevice(type);
  const bool d200 = type == F::D200;
  // create(): a positive count is taken as it is, a negative one as that many
  // times the type's default count. Model N asks for N times the default,
  // no model for the default itself.
  if (o.cylindersGiven && o.cylinders <= 0) {
    return failWith(kExitUsage, "--cylinders needs a count of at least 1");
  }
  if (d200 && ((o.cylindersGiven && static_cast<unsigned>(o.cylinders) != device->cylinders) || model > 0)) {
    return failWith(kExitUsage, "D200 has one geometry, " + d200GeometryText() +
                                    ": give neither a model nor --cylinders");
  }
  if (model > kMaxModel) {
    return failWith(kExitUsage, "model " + std::to_string(model) + " is too large: models go from 1 to " +
                                    std::to_string(kMaxModel) + " (TYPE-A is TYPE-59)");
  }
  if (!o.serial.empty() || o.ownerGiven) {
    if (o.noFormat) return failWith(kExitUsage, "--serial and --owner need a label: they cannot go with --no-format");
    if (d200) return failWith(kExitUsage, "D200 volumes cannot be edited: create one without --serial and --owner");
    if (o.serial.empty()) return failWith(kExitUsage, "--owner goes with --serial (or use 'ckdvol relabel' later)");
    std::string error;
    if (!ckdvol::validateVolumeSerial(o.serial, error)) return failWith(kExitUsage, error);
    if (o.ownerGiven && !ckdvol::validateOwner(o.owner, error)) return failWith(kExitUsage, error);
  }
  const int multiple = model > 0 ? model : 1;
  const unsigned long long wanted =
      o.cylindersGiven ? static_cast<unsigned long long>(o.cylinders)
                       : static_cast<unsigned long long>(multiple) * device->cylinders;
  if (wanted > kMaxCylinders) {
    return failWith(kExitUsage, std::to_string(wanted) + " cylinders is more than a volume can address (" +
                                    std::to_string(kMaxCylinders) + ")");
  }
  if (wanted > ckdvol::kMaxSmallCylinders && type != F::D600) {
    return failWith(kExitUsage, count(wanted, "cylinder") + " is more than a " + typeName.substr(0, 4) +
                                    " volume can have (65520); only D600 goes beyond");
  }
  const int request = o.cylindersGiven ? o.cylinders : -multiple;
  if (o.cylindersGiven && wanted > ckdvol::kMaxSmallCylinders && wanted % ckdvol::kLargeCylinderMultiple != 0) {
    const unsigned long long rounded =
        (wanted / ckdvol::kLargeCylinderMultiple + 1) * ckdvol::kLargeCylinderMultiple;
    std::fprintf(stderr,
                 "ckdvol: %s: %llu cylinders will be rounded up to %llu (above 65520, a volume has a "
                 "multiple of 1113 cylinders)\n",
                 o.path.c_str(), wanted, rounded);
  }

  if (o.force) {
    if (int status = removeUnfinishedCreation(o.path)) return status;
  }

  F f;
  gCleanupPath = o.path;
  gCleanupMessage = std::string(stderrIsTerminal() ? "\n" : "") + "ckdvol: " + o.path +
                    ": interrupted; the unfinished volume was removed\n";
  int rc;
  {
    SignalBlock block;
    installCleanupHandlers();
    errno = 0;
    rc = f.create(o.path.c_str(), type, request);
    const int savedErrno = errno;
    if (rc != F::kCreateOk) {
      restoreDefaultHandlers();
      std::string cause = createFailure(rc, savedErrno);
      unsigned char h[ckdvol::kHeaderSize] = {};
      const int fd = savedErrno == EEXIST ? ::open(o.path.c_str(), O_RDONLY | O_CLOEXEC) : -1;
      if (fd >= 0) {
        const ssize_t got = ::pread(fd, h, sizeof h, 0);
        ::close(fd);
        if (got >= 0 && isUnfinishedCreation(h, got)) cause += ": it is " + unfinishedCreationCause(o.path, h, got);
      }
      return fail(o.path, cause);
    }
    gCleanupArmed = 1;
  }  // a signal that arrived meanwhile is handled here, with the file armed
  // The new file is ours alone (O_EXCL); the lock keeps other ckdvol runs
  // from reading it half-written.
  VolumeLock lock;
  lock.acquire(o.path, true);

  Progress progress;
  progress.bytesPerStep = static_cast<unsigned long long>(f.tracksPerCylinder) * f.trackSlotSize;
  progress.total = static_cast<unsigned long long>(f.getMaxOffset() - 512) / progress.bytesPerStep;
  progress.bar = stderrIsTerminal();
  progress.start = now();
  const unsigned int cylinders = f.cylinders;
  const unsigned short heads = f.tracksPerCylinder;
  const unsigned short modelNumber = f.model;
  const bool rounded = f.cylindersRounded != 0;
  const long long size = f.getMaxOffset();

  // Initialisation writes every slot (a sparse one a block or so per track):
  // refuse at once, rather than after filling the disk, when the file system
  // cannot hold the volume.
  const unsigned long long tracks = static_cast<unsigned long long>(size - 512) / f.trackSlotSize;
  const unsigned long long needed =
      o.sparse ? tracks * std::min<unsigned long long>(f.trackSlotSize, 8192) : static_cast<unsigned long long>(size);
  const unsigned long long available = freeBytesAt(o.path);
  if (available != kUnknownFree && needed > available) {
    SignalBlock block;
    gCleanupArmed = 0;
    f.close();
    ::unlink(o.path.c_str());
    restoreDefaultHandlers();
    return fail(o.path, "the volume needs " + std::to_string(needed) + " bytes but its file system has " +
                            std::to_string(available) + " free; nothing was created");
  }

  if (!o.serial.empty()) progress.afterFirstCylinder = [&f, &o]() { return writeLabel(f, o); };
  errno = 0;
  rc = o.sparse ? initializeSparse(f, progress, !o.noFormat) : f.initialize(onCylinder, &progress, !o.noFormat);
  int savedErrno = errno;
  std::string failure;
  if (rc != F::kInitOk) {
    failure = initFailure(rc, savedErrno);
  } else if (savedErrno != 0) {
    // initialize() reports its writes but not its fdatasync calls, and its
    // other calls leave errno alone when they succeed: errno set here is a
    // sync that failed, and what it was to force to disk may be lost.
    failure = "forcing the tracks to disk (fdatasync during the initialisation) failed: " +
              std::string(std::strerror(savedErrno));
  } else {
    failure = progress.hookFailure;
  }
  if (failure.empty() && ::fdatasync(f.fileDescriptor) != 0) {
    failure = "forcing the volume to disk (fdatasync) failed: " + std::string(std::strerror(errno));
  }
  {
    SignalBlock block;
    errno = 0;
    if (f.close() != 0 && failure.empty()) {
      failure = "closing the volume file failed: " + systemCause(errno, "close failed");
    }
    if (failure.empty()) {
      if (const int err = syncDirectory(o.path)) {
        failure = "forcing its directory entry to disk (fsync of the directory) failed: " + std::string(std::strerror(err));
      }
    }
    if (!failure.empty()) {
      ::unlink(o.path.c_str());
      syncDirectory(o.path);
    }
    gCleanupArmed = 0;
    restoreDefaultHandlers();
  }
  if (progress.bar) progress.draw(true);
  if (!failure.empty()) return fail(o.path, failure + "; the file was removed: nothing was created");

  char typeText[16];
  if (modelNumber != 0) {
    std::snprintf(typeText, sizeof typeText, "%04X-%u", static_cast<unsigned>(type), modelNumber);
  } else {
    std::snprintf(typeText, sizeof typeText, "%04X", static_cast<unsigned>(type));
  }
  const std::string geometry =
      d200 ? d200GeometryText()
           : count(cylinders, "cylinder") + (rounded ? " (rounded up to a multiple of 1113)" : "") + " x " +
                 count(heads, "head");
  std::string contents = o.noFormat ? "empty tracks" : "labelled with an empty VTOC";
  if (!o.serial.empty()) contents += ", serial " + o.serial;
  if (o.sparse) {
    contents += ", sparse: " + std::to_string(allocatedBytes(o.path)) + " bytes on disk";
  }
  std::printf("created %s: %s, %s, %lld bytes, %s in %.1f s\n", o.path.c_str(), typeText, geometry.c_str(), size,
              contents.c_str(), now() - progress.start);
  return kExitOk;
}

const CommandRegistration kRegistration(Command{
    "create", "Create a new volume file and initialise all its tracks", 10,
    [](CLI::App& app) -> std::function<int()> {
      auto o = std::make_shared<CreateOptions>();
      app.add_option("FILE", o->path, "The volume file to create; an existing file is refused")
          ->required();
      app.add_flag("--force", o->force,
                   "Replace FILE when it is an unfinished creation (a run that was killed);\n"
                   "any other existing file is still refused");
      app.add_option("TYPE", o->type, "Device type with an optional model: D600, D600-3, D600-A")
          ->required();
      CLI::Option* cylinders = app.add_option(
          "--cylinders", o->cylinders,
          "Number of cylinders; overrides the model (D600 only above 65520, "
          "then rounded up to a multiple of 1113)");
      app.add_option("--serial", o->serial,
                     "Volume serial for the label instead of 0X0123: 1 to 6 letters, digits,\n"
                     "@ # $ or -, a letter (or @ # $) first; any case");
      CLI::Option* owner =
          app.add_option("--owner", o->owner, "Owner field of the label (at most 14 characters); needs --serial");
      app.add_flag("--no-format", o->noFormat,
                   "Write empty tracks only (home address and record zero): no IPL records, "
                   "no VOL1 label, no VTOC");
      app.add_flag("--sparse", o->sparse,
                   "Make the file with holes and write only what each track holds (a few KB per\n"
                   "track); tracks other than the label and VTOC tracks stay empty (no fillers)");
      app.footer(
          "TYPE may be written in either case (D600 or d600).\n"
          "Cylinders: TYPE alone gives the type's default count (see 'ckdvol types');\n"
          "TYPE-N gives N times that count for N from 1 to 59 (D600-3: 3339 cylinders),\n"
          "and TYPE-A means TYPE-59 (D600-A: 65667 cylinders, a volume with 28-bit\n"
          "cylinder numbers). --cylinders N sets the count directly. Only D600 goes\n"
          "beyond 65520 cylinders; above that a count is rounded up to a multiple of\n"
          "1113, which is said before anything is written. D200 has one geometry: 10\n"
          "cells x 200 cylinders x 100 heads (200000 tracks); it takes no model and no\n"
          "--cylinders.\n"
          "\n"
          "With full formatting, cylinder 0 holds the IPL records and the VOL1 label\n"
          "(serial 0X0123 unless --serial; owner blank unless --owner) on head 0 and an\n"
          "empty VTOC on head 1; every other track holds 4096-byte filler records.\n"
          "--sparse writes the same label and VTOC tracks but leaves every other track\n"
          "empty (home address, record zero, end marker) and the rest of the file as\n"
          "holes: the volume reads like any other, and a sparse --no-format volume holds\n"
          "exactly the bytes of a plain one.\n"
          "A progress bar is drawn on standard error when it is a terminal; a summary\n"
          "line goes to standard output. The volume is forced to disk (the file and its\n"
          "directory entry) before it is reported created. If initialisation, a write or\n"
          "a sync fails, or the run is interrupted (SIGINT, SIGTERM, SIGHUP), the file is\n"
          "removed. A run killed outright (SIGKILL, a power loss) leaves an unfinished\n"
          "creation, which every command names as such: --force replaces it, and\n"
          "'ckdvol recover FILE' removes it.\n"
          "\n"
          "Examples:\n"
          "  ckdvol create work.ckd D600 --cylinders 10 --serial WORK01 --owner SYSTEMS\n"
          "  ckdvol create big.ckd D600-3 --sparse");
      return [o, cylinders, owner] {
        o->cylindersGiven = cylinders->count() > 0;
        o->ownerGiven = owner->count() > 0;
        o->serial = upperName(o->serial);
        return runCreate(*o);
      };
    }});

}  // namespace
}  // namespace ckdvol_tool
