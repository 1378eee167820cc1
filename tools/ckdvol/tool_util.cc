#include "tool_util.h"

#include <cstdio>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>

#include "command.h"

namespace ckdvol_tool {

int fail(const std::string& file, const std::string& cause) {
  std::fprintf(stderr, "ckdvol: %s: %s\n", file.c_str(), cause.c_str());
  return kExitFailure;
}

int failWith(int status, const std::string& text) {
  std::fprintf(stderr, "ckdvol: %s\n", text.c_str());
  return status;
}

bool stderrIsTerminal() { return ::isatty(STDERR_FILENO) == 1; }

VolumeLock::~VolumeLock() {
  if (fd_ >= 0) ::close(fd_);  // closing the descriptor releases the lock
}

int VolumeLock::acquire(const std::string& path, bool exclusive) {
  if (fd_ >= 0) return kExitOk;
  int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return kExitOk;
  if (::flock(fd, (exclusive ? LOCK_EX : LOCK_SH) | LOCK_NB) != 0) {
    const int err = errno;
    ::close(fd);
    if (err == EWOULDBLOCK) {
      return fail(path, std::string("another ckdvol is ") + (exclusive ? "using" : "changing") +
                            " this volume (it holds a lock on the file); nothing was done, try again "
                            "when it has finished");
    }
    return kExitOk;  // a file system without flock: go on unlocked
  }
  fd_ = fd;
  return kExitOk;
}

}  // namespace ckdvol_tool
