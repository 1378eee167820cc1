// I/O fault injector for the crash tests, LD_PRELOADed into the ckdvol tool.
// It watches the descriptors opened on one file and makes the N-th counted
// call on them fail, stop the process, or stop it as a power loss would.
//
//   FI_PATH        the watched file; a descriptor is watched when it refers to
//                  the same inode just after its open (so relative names,
//                  files made by the open and read-only opens all count), and
//                  so are its duplicates
//   FI_OPS         comma list of the calls counted: write (write, pwrite),
//                  trunc (ftruncate), sync (fsync, fdatasync), read (read,
//                  pread); default write,trunc,sync
//   FI_N, FI_MODE  what happens at counted call FI_N (1-based; never reached:
//                  nothing happens):
//       kill       SIGKILL before the call is made
//       torn       a write puts only its first half down, then SIGKILL;
//                  other calls as kill
//       eio|enospc the call fails with that errno and does nothing
//       short      a write puts down its first half and returns that count;
//                  other calls fail with EIO
//       powerloss  every write and truncation since the last successful sync
//                  is undone (newest first), then SIGKILL: the file is left
//                  as it was at the last sync
//   FI_COUNT_FILE  the number of counted calls so far is written here after
//                  each one and at exit, so a first run without FI_N tells a
//                  harness the range of N
//
// Under AddressSanitizer the tool must be run with
// ASAN_OPTIONS=verify_asan_link_order=0: this library is preloaded ahead of
// the sanitizer runtime, which otherwise refuses to start. It is built without
// sanitizers, so its calls to the next definition land in the runtime's
// interceptors and from there in the C library.
#undef _FORTIFY_SOURCE
#include <dlfcn.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

enum Kind { kWrite = 1, kTrunc = 2, kSync = 4, kRead = 8 };
enum Mode { kNone, kKill, kTorn, kEio, kEnospc, kShort, kPowerLoss };
// What the interposed call does after inject(): go ahead, fail with errno
// set, or put down only half of a write (then return, or stop the process).
enum Action { kProceed, kFail, kHalfReturn, kHalfKill };

template <typename Fn>
Fn next(const char* name) {
  return reinterpret_cast<Fn>(::dlsym(RTLD_NEXT, name));
}
using OpenFn = int (*)(const char*, int, ...);
using OpenAtFn = int (*)(int, const char*, int, ...);

// The definitions these wrap, found on first use (a preloaded library can be
// called before its own static constructors have run).
struct Real {
  OpenFn open = next<OpenFn>("open"), open64 = next<OpenFn>("open64");
  OpenAtFn openat = next<OpenAtFn>("openat"), openat64 = next<OpenAtFn>("openat64");
  decltype(&::close) close = next<decltype(&::close)>("close");
  decltype(&::dup) dup = next<decltype(&::dup)>("dup");
  decltype(&::dup2) dup2 = next<decltype(&::dup2)>("dup2");
  decltype(&::dup3) dup3 = next<decltype(&::dup3)>("dup3");
  decltype(&::read) read = next<decltype(&::read)>("read");
  decltype(&::pread) pread = next<decltype(&::pread)>("pread");
  decltype(&::write) write = next<decltype(&::write)>("write");
  decltype(&::pwrite) pwrite = next<decltype(&::pwrite)>("pwrite");
  decltype(&::ftruncate) ftruncate = next<decltype(&::ftruncate)>("ftruncate");
  decltype(&::fsync) fsync = next<decltype(&::fsync)>("fsync");
  decltype(&::fdatasync) fdatasync = next<decltype(&::fdatasync)>("fdatasync");
};
const Real& real() {
  static const Real r;
  return r;
}

struct Config {
  const char* path = std::getenv("FI_PATH");  // null: nothing is watched
  const char* countFile = std::getenv("FI_COUNT_FILE");
  unsigned kinds = kWrite | kTrunc | kSync;
  long long n = 0;  // 0: no fault
  Mode mode = kNone;
  Config() {
    if (const char* ops = std::getenv("FI_OPS")) {
      const std::string s = std::string(",") + ops + ",";
      const char* names[] = {",write,", ",trunc,", ",sync,", ",read,"};
      kinds = 0;
      for (int i = 0; i < 4; ++i) kinds |= s.find(names[i]) != std::string::npos ? 1u << i : 0;
    }
    if (const char* text = std::getenv("FI_N")) n = std::atoll(text);
    const std::string m = std::getenv("FI_MODE") ? std::getenv("FI_MODE") : "";
    const char* modes[] = {"", "kill", "torn", "eio", "enospc", "short", "powerloss"};
    for (int i = 1; i < 7; ++i) mode = m == modes[i] ? static_cast<Mode>(i) : mode;
  }
};
const Config& config() {
  static const Config c;
  return c;
}

struct Undo {  // undone by cutting the file to oldSize, then writing bytes at offset
  off_t offset;
  off_t oldSize;
  std::string bytes;
};

constexpr int kMaxFd = 4096;
bool gWatched[kMaxFd];   // descriptor refers to FI_PATH
long long gCount = 0;    // counted calls so far
std::vector<Undo> gLog;  // powerloss: changes since the last successful sync

bool watched(int fd) { return fd >= 0 && fd < kMaxFd && gWatched[fd]; }

int track(int fd) {
  struct stat opened, named;
  if (fd >= 0 && fd < kMaxFd && config().path != nullptr) {
    gWatched[fd] = ::fstat(fd, &opened) == 0 && ::stat(config().path, &named) == 0 &&
                   opened.st_dev == named.st_dev && opened.st_ino == named.st_ino;
  }
  return fd;
}

// A duplicate of a watched descriptor is watched, one of another is not.
int inherit(int from, int to) {
  if (to >= 0 && to < kMaxFd) gWatched[to] = watched(from);
  return to;
}

void writeCount() {
  if (config().countFile == nullptr) return;
  const int fd = real().open(config().countFile, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0) return;
  const std::string text = std::to_string(gCount) + "\n";
  (void)real().write(fd, text.data(), text.size());
  real().close(fd);
}

__attribute__((destructor)) void atExit() { writeCount(); }

// Puts every logged change back, newest first, through a descriptor of our own.
void undoAll() {
  const int fd = real().open(config().path, O_RDWR | O_CLOEXEC);
  if (fd < 0) return;
  for (auto u = gLog.rbegin(); u != gLog.rend(); ++u) {
    (void)real().ftruncate(fd, u->oldSize);
    if (!u->bytes.empty()) (void)real().pwrite(fd, u->bytes.data(), u->bytes.size(), u->offset);
  }
  real().fdatasync(fd);
  real().close(fd);
}

// Before a write of `length` bytes at `offset` (or a cut to `offset`, with
// length -1): keep the size and the bytes that will be lost, read through a
// descriptor of our own (the caller's may be write-only). Aborts when they
// cannot be read: the undo would be incomplete.
void logChange(off_t offset, off_t length) {
  if (config().mode != kPowerLoss) return;
  const int fd = real().open(config().path, O_RDONLY | O_CLOEXEC);
  struct stat st;
  if (fd < 0 || ::fstat(fd, &st) != 0) std::abort();
  Undo u{offset, st.st_size, std::string()};
  const off_t end = length < 0 ? st.st_size : std::min(st.st_size, offset + length);
  if (end > offset) {
    u.bytes.resize(static_cast<size_t>(end - offset));
    if (real().pread(fd, &u.bytes[0], u.bytes.size(), offset) != static_cast<ssize_t>(u.bytes.size())) std::abort();
  }
  real().close(fd);
  gLog.push_back(std::move(u));
}

// Counts a call of `kind` on fd and says what to do with it.
Action inject(int fd, Kind kind) {
  if (!watched(fd) || (config().kinds & kind) == 0) return kProceed;
  ++gCount;
  writeCount();
  if (gCount != config().n) return kProceed;
  const Mode m = config().mode;
  if (m == kNone) return kProceed;
  if (m == kEio || m == kEnospc || (m == kShort && kind != kWrite)) {
    errno = m == kEnospc ? ENOSPC : EIO;
    return kFail;
  }
  if (m == kShort) return kHalfReturn;
  if (m == kTorn && kind == kWrite) return kHalfKill;
  if (m == kPowerLoss) undoAll();
  ::raise(SIGKILL);
  return kFail;
}

ssize_t doWrite(int fd, const void* buf, size_t n, off_t at, bool positioned) {
  const Action a = inject(fd, kWrite);
  if (a == kFail) return -1;
  if (a != kProceed) n /= 2;
  if (watched(fd)) logChange(positioned ? at : ::lseek(fd, 0, SEEK_CUR), static_cast<off_t>(n));
  const ssize_t done = positioned ? real().pwrite(fd, buf, n, at) : real().write(fd, buf, n);
  if (a == kHalfKill) ::raise(SIGKILL);
  return done;
}

ssize_t doRead(int fd, void* buf, size_t n, off_t at, bool positioned) {
  if (inject(fd, kRead) != kProceed) return -1;  // short and torn reads fail or stop
  return positioned ? real().pread(fd, buf, n, at) : real().read(fd, buf, n);
}

int doTruncate(int fd, off_t length) {
  if (inject(fd, kTrunc) != kProceed) return -1;
  if (watched(fd)) logChange(length, -1);
  return real().ftruncate(fd, length);
}

int doSync(int fd, bool dataOnly) {
  if (inject(fd, kSync) != kProceed) return -1;
  const int rc = dataOnly ? real().fdatasync(fd) : real().fsync(fd);
  if (rc == 0 && watched(fd)) gLog.clear();
  return rc;
}

mode_t modeArg(int flags, va_list ap) { return (flags & (O_CREAT | O_TMPFILE)) ? va_arg(ap, mode_t) : 0; }

}  // namespace

#define FI_OPEN(name, ...)                    \
  va_list ap;                                 \
  va_start(ap, flags);                        \
  const mode_t mode = modeArg(flags, ap);     \
  va_end(ap);                                 \
  return track(real().name(__VA_ARGS__, flags, mode))

extern "C" {
int open(const char* path, int flags, ...) { FI_OPEN(open, path); }
int open64(const char* path, int flags, ...) { FI_OPEN(open64, path); }
int openat(int dir, const char* path, int flags, ...) { FI_OPEN(openat, dir, path); }
int openat64(int dir, const char* path, int flags, ...) { FI_OPEN(openat64, dir, path); }
int close(int fd) {
  if (fd >= 0 && fd < kMaxFd) gWatched[fd] = false;
  return real().close(fd);
}
int dup(int fd) __THROW { return inherit(fd, real().dup(fd)); }
int dup2(int fd, int to) __THROW { return inherit(fd, real().dup2(fd, to)); }
int dup3(int fd, int to, int flags) __THROW { return inherit(fd, real().dup3(fd, to, flags)); }
ssize_t write(int fd, const void* buf, size_t n) { return doWrite(fd, buf, n, 0, false); }
ssize_t pwrite(int fd, const void* buf, size_t n, off_t at) { return doWrite(fd, buf, n, at, true); }
ssize_t pwrite64(int fd, const void* buf, size_t n, off_t at) { return doWrite(fd, buf, n, at, true); }
ssize_t read(int fd, void* buf, size_t n) { return doRead(fd, buf, n, 0, false); }
ssize_t pread(int fd, void* buf, size_t n, off_t at) { return doRead(fd, buf, n, at, true); }
ssize_t pread64(int fd, void* buf, size_t n, off_t at) { return doRead(fd, buf, n, at, true); }
int ftruncate(int fd, off_t length) __THROW { return doTruncate(fd, length); }
int ftruncate64(int fd, off_t length) __THROW { return doTruncate(fd, length); }
int fsync(int fd) { return doSync(fd, false); }
int fdatasync(int fd) { return doSync(fd, true); }
}
