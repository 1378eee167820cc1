// Helpers shared by the fuzz targets: an anonymous in-memory volume file, an
// invariant check that aborts (so libFuzzer records the input), and a reader
// that touches every byte of a range (so AddressSanitizer sees a range that
// lies outside its buffer).
//
// Nothing here uses a fixed file name: volume files live in a memfd (or, where
// memfd_create is missing, in an unlinked mkstemp file under $TMPDIR), reached
// by the library through /proc/self/fd/N.
#ifndef CKDVOL_FUZZ_FUZZ_SUPPORT_H_
#define CKDVOL_FUZZ_FUZZ_SUPPORT_H_

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

// Aborts with the condition's text when an invariant does not hold.
#define FUZZ_CHECK(cond)                                                          \
  do {                                                                            \
    if (!(cond)) {                                                                \
      std::fprintf(stderr, "%s:%d: invariant failed: %s\n", __FILE__, __LINE__, #cond); \
      std::abort();                                                               \
    }                                                                             \
  } while (0)

namespace ckdvol_fuzz {

// Reads every byte of [p, p + n); ASan reports a range outside its allocation.
inline unsigned touch(const unsigned char* p, size_t n) {
  unsigned sum = 0;
  for (size_t i = 0; i < n; ++i) sum += static_cast<const volatile unsigned char*>(p)[i];
  return sum;
}

// One anonymous file, kept for the whole fuzzing process and rewritten for
// every input.
class MemFile {
 public:
  MemFile() {
#ifdef MFD_CLOEXEC
    fd_ = ::memfd_create("ckdvol-fuzz", MFD_CLOEXEC);
#endif
    if (fd_ < 0) {
      const char* base = std::getenv("TMPDIR");
      std::string pattern = std::string(base && *base ? base : "/tmp") + "/ckdvol-fuzz-XXXXXX";
      fd_ = ::mkstemp(&pattern[0]);
      if (fd_ >= 0) ::unlink(pattern.c_str());
    }
    if (fd_ < 0) {
      std::perror("ckdvol fuzz: no scratch file");
      std::abort();
    }
    path_ = "/proc/self/fd/" + std::to_string(fd_);
  }
  ~MemFile() { ::close(fd_); }
  MemFile(const MemFile&) = delete;
  MemFile& operator=(const MemFile&) = delete;

  int fd() const { return fd_; }
  // The path by which the library opens the file (a new descriptor each time).
  const char* path() const { return path_.c_str(); }

  // Makes the file exactly `n` bytes of `data`.
  void assign(const unsigned char* data, size_t n) {
    FUZZ_CHECK(::ftruncate(fd_, 0) == 0);
    writeAt(0, data, n);
    FUZZ_CHECK(::ftruncate(fd_, static_cast<off_t>(n)) == 0);
  }
  void assign(const std::vector<unsigned char>& bytes) { assign(bytes.data(), bytes.size()); }
  // Sets the size (holes read as zeros).
  void resize(uint64_t n) { FUZZ_CHECK(::ftruncate(fd_, static_cast<off_t>(n)) == 0); }
  void writeAt(uint64_t offset, const unsigned char* data, size_t n) {
    size_t done = 0;
    while (done < n) {
      ssize_t w = ::pwrite(fd_, data + done, n - done, static_cast<off_t>(offset + done));
      FUZZ_CHECK(w > 0);
      done += static_cast<size_t>(w);
    }
  }
  std::vector<unsigned char> readAll() const {
    off_t size = ::lseek(fd_, 0, SEEK_END);
    FUZZ_CHECK(size >= 0);
    std::vector<unsigned char> bytes(static_cast<size_t>(size));
    size_t done = 0;
    while (done < bytes.size()) {
      ssize_t r = ::pread(fd_, bytes.data() + done, bytes.size() - done, static_cast<off_t>(done));
      FUZZ_CHECK(r > 0);
      done += static_cast<size_t>(r);
    }
    return bytes;
  }

 private:
  int fd_ = -1;
  std::string path_;
};

// Consumes an input from the front; reads past the end give zeros.
class Input {
 public:
  Input(const uint8_t* data, size_t size) : data_(data), size_(size) {}
  size_t remaining() const { return size_ - pos_; }
  uint8_t u8() { return pos_ < size_ ? data_[pos_++] : 0; }
  uint16_t be16() {
    uint16_t hi = u8();
    return static_cast<uint16_t>((hi << 8) | u8());
  }
  uint32_t be32() {
    uint32_t hi = be16();
    return (hi << 16) | be16();
  }
  // Up to `n` bytes (fewer at the end of the input).
  const uint8_t* take(size_t n, size_t& got) {
    got = n < remaining() ? n : remaining();
    const uint8_t* p = data_ + pos_;
    pos_ += got;
    return p;
  }
  const uint8_t* rest(size_t& got) { return take(remaining(), got); }

 private:
  const uint8_t* data_;
  size_t size_;
  size_t pos_ = 0;
};

}  // namespace ckdvol_fuzz

#endif  // CKDVOL_FUZZ_FUZZ_SUPPORT_H_
