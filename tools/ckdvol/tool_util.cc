#include "tool_util.h"

#include <cstdio>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <string>
#include <vector>

#include "command.h"
#include "journal/change_journal.h"

namespace ckdvol_tool {

size_t editDistance(const std::string& a, const std::string& b) {
  std::vector<size_t> row(b.size() + 1);
  for (size_t j = 0; j <= b.size(); ++j) row[j] = j;
  for (size_t i = 1; i <= a.size(); ++i) {
    size_t diagonal = row[0];
    row[0] = i;
    for (size_t j = 1; j <= b.size(); ++j) {
      const size_t up = row[j];
      row[j] = std::min({row[j] + 1, row[j - 1] + 1, diagonal + (a[i - 1] == b[j - 1] ? 0 : 1)});
      diagonal = up;
    }
  }
  return row[b.size()];
}
namespace {

constexpr long kNoWait = 0;
constexpr long kWaitForever = -1;
long gLockWaitSeconds = kNoWait;

double monotonicNow() {
  timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) / 1e9;
}

}  // namespace

int fail(const std::string& file, const std::string& cause) {
  std::fprintf(stderr, "ckdvol: %s: %s\n", file.c_str(), cause.c_str());
  return kExitFailure;
}

int failWith(int status, const std::string& text) {
  std::fprintf(stderr, "ckdvol: %s\n", text.c_str());
  return status;
}

bool stderrIsTerminal() { return ::isatty(STDERR_FILENO) == 1; }

bool stdinIsTerminal() { return ::isatty(STDIN_FILENO) == 1; }

std::string count(unsigned long long n, const std::string& noun) {
  return std::to_string(n) + " " + noun + (n == 1 ? "" : "s");
}

std::string d200GeometryText() {
  return std::to_string(kD200Cells) + " cells x " + std::to_string(kD200CylindersPerCell) + " cylinders x " +
         std::to_string(kD200HeadsPerCylinder) + " heads (" + std::to_string(kD200Tracks) +
         " tracks; cylinder 0000-1309 and head 0000-0413 in hexadecimal, each byte a coordinate)";
}

int setLockWait(const std::string& text) {
  if (text == "forever") {
    gLockWaitSeconds = kWaitForever;
    return kExitOk;
  }
  char* end = nullptr;
  errno = 0;
  const long seconds = std::strtol(text.c_str(), &end, 10);
  if (text.empty() || *end != '\0' || errno != 0 || seconds < 0) {
    return failWith(kExitUsage, "--wait takes a number of seconds (--wait=30), or nothing to wait as "
                                "long as it takes; '" + text + "' is neither");
  }
  gLockWaitSeconds = seconds;
  return kExitOk;
}

StdoutSilencer::StdoutSilencer() {
  std::fflush(stdout);
  const int null = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
  if (null < 0) return;
  saved_ = ::dup(STDOUT_FILENO);
  if (saved_ >= 0) ::dup2(null, STDOUT_FILENO);
  ::close(null);
}

StdoutSilencer::~StdoutSilencer() {
  std::fflush(stdout);
  if (saved_ < 0) return;
  ::dup2(saved_, STDOUT_FILENO);
  ::close(saved_);
}

VolumeLock::~VolumeLock() {
  if (fd_ >= 0) ::close(fd_);  // closing the descriptor releases the lock
}

bool gChangingVolume = false;

std::string escapedText(const unsigned char* p, int length) {
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

int VolumeLock::acquire(const std::string& path, bool exclusive, bool recovering) {
  if (exclusive) gChangingVolume = true;
  if (fd_ >= 0) return kExitOk;
  int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return kExitOk;
  const int mode = exclusive ? LOCK_EX : LOCK_SH;
  int rc = ::flock(fd, mode | LOCK_NB);
  if (rc != 0 && errno == EWOULDBLOCK && gLockWaitSeconds != kNoWait) {
    if (stderrIsTerminal()) {
      std::fprintf(stderr, "ckdvol: %s: waiting for another ckdvol to finish with this volume...\n",
                   path.c_str());
    }
    if (gLockWaitSeconds == kWaitForever) {
      do {
        rc = ::flock(fd, mode);
      } while (rc != 0 && errno == EINTR);
    } else {
      const double deadline = monotonicNow() + static_cast<double>(gLockWaitSeconds);
      const timespec step = {0, 100 * 1000 * 1000};
      do {
        ::nanosleep(&step, nullptr);
        rc = ::flock(fd, mode | LOCK_NB);
      } while (rc != 0 && errno == EWOULDBLOCK && monotonicNow() < deadline);
    }
  }
  if (rc != 0) {
    const int err = errno;
    if (err == EWOULDBLOCK) {
      ::close(fd);
      const std::string waited =
          gLockWaitSeconds > 0 ? "after waiting " + count(static_cast<unsigned long long>(gLockWaitSeconds), "second")
                               : std::string("");
      return fail(path, std::string("another ckdvol is ") + (exclusive ? "using" : "changing") +
                            " this volume (it holds a lock on the file" +
                            (waited.empty() ? "" : "; still held " + waited) +
                            "); nothing was done: try again when it has finished, or add --wait[=SECONDS]");
    }
    fd_ = fd;  // a file system without flock: go on unlocked
  } else {
    fd_ = fd;
  }
  ckdvol::JournalRecord record;
  bool interrupted = false;
  if (recovering || !ckdvol::readJournalRecord(fd_, record, interrupted) || !interrupted) return kExitOk;
  const std::string what = std::string("an interrupted ") +
                           (record.state == ckdvol::JournalState::kCommit     ? "version commit"
                            : record.state == ckdvol::JournalState::kRollback ? "version rollback"
                                                                              : "change") +
                           " (" + record.command + ") is in the file";
  if (exclusive) {
    return fail(path, what + ": run 'ckdvol recover " + path + "' first; nothing was changed");
  }
  std::fprintf(stderr, "ckdvol: %s: note: %s; what is read may be half changed: run 'ckdvol recover %s'\n",
               path.c_str(), what.c_str(), path.c_str());
  return kExitOk;
}

}  // namespace ckdvol_tool
