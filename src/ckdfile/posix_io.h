// Internal header (not installed): whole-buffer transfers on a descriptor at
// its current position, shared by the header and track I/O of ckdfile/.
#ifndef CKDVOL_CKDFILE_POSIX_IO_H_
#define CKDVOL_CKDFILE_POSIX_IO_H_

#include <cerrno>
#include <cstddef>

#include <sys/types.h>
#include <unistd.h>

namespace ckdvol {

static_assert(sizeof(off_t) == 8, "volume files need 64-bit file offsets");

// Reads up to `length` bytes, retrying partial reads and EINTR. Returns the
// number of bytes read: `length`, fewer at end of file, or -1 on an error
// (errno from read).
inline ssize_t readFully(int fd, void* buffer, size_t length) {
  size_t done = 0;
  while (done < length) {
    ssize_t n = ::read(fd, static_cast<char*>(buffer) + done, length - done);
    if (n < 0) {
      if (errno == EINTR) continue;
      return -1;
    }
    if (n == 0) break;
    done += static_cast<size_t>(n);
  }
  return static_cast<ssize_t>(done);
}

// Writes `length` bytes, retrying partial writes and EINTR. Returns `length`,
// or fewer / -1 when the system refused (errno from write).
inline ssize_t writeFully(int fd, const void* buffer, size_t length) {
  size_t done = 0;
  while (done < length) {
    ssize_t n = ::write(fd, static_cast<const char*>(buffer) + done, length - done);
    if (n < 0) {
      if (errno == EINTR) continue;
      return done == 0 ? -1 : static_cast<ssize_t>(done);
    }
    if (n == 0) break;
    done += static_cast<size_t>(n);
  }
  return static_cast<ssize_t>(done);
}

}  // namespace ckdvol

#endif  // CKDVOL_CKDFILE_POSIX_IO_H_
