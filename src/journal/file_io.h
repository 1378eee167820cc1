// Internal header: whole-buffer positioned transfers for the journal layer.
#ifndef CKDVOL_JOURNAL_FILE_IO_H_
#define CKDVOL_JOURNAL_FILE_IO_H_

#include <cerrno>
#include <cstddef>
#include <cstdint>

#include <sys/stat.h>
#include <unistd.h>

namespace ckdvol {
namespace journal_io {

// True when all `length` bytes were read at `offset` (errno set otherwise;
// EIO for a short read at the end of the file).
inline bool readAt(int fd, void* buffer, size_t length, uint64_t offset) {
  size_t done = 0;
  while (done < length) {
    const ssize_t n = ::pread(fd, static_cast<char*>(buffer) + done, length - done,
                              static_cast<off_t>(offset + done));
    if (n < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    if (n == 0) {
      errno = EIO;
      return false;
    }
    done += static_cast<size_t>(n);
  }
  return true;
}

// True when all `length` bytes were written at `offset`; a short write is
// retried for the rest, and one that writes nothing fails with ENOSPC.
inline bool writeAt(int fd, const void* buffer, size_t length, uint64_t offset) {
  size_t done = 0;
  while (done < length) {
    const ssize_t n = ::pwrite(fd, static_cast<const char*>(buffer) + done, length - done,
                               static_cast<off_t>(offset + done));
    if (n < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    if (n == 0) {
      errno = ENOSPC;
      return false;
    }
    done += static_cast<size_t>(n);
  }
  return true;
}

// The file's length, or -1 (errno set).
inline long long fileLength(int fd) {
  struct stat st;
  return ::fstat(fd, &st) == 0 ? static_cast<long long>(st.st_size) : -1;
}

inline bool sync(int fd) { return ::fdatasync(fd) == 0; }

inline bool cut(int fd, uint64_t length) { return ::ftruncate(fd, static_cast<off_t>(length)) == 0; }

}  // namespace journal_io
}  // namespace ckdvol

#endif  // CKDVOL_JOURNAL_FILE_IO_H_
