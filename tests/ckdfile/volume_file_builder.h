// Test helper: volume files built byte by byte, independent of the library's
// own encoders, so that open() and the track I/O can be tested against files
// whose every header byte the test chose.
#ifndef CKDVOL_TESTS_CKDFILE_VOLUME_FILE_BUILDER_H_
#define CKDVOL_TESTS_CKDFILE_VOLUME_FILE_BUILDER_H_

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace ckdvol_test {

// D600 geometry, the type most tests use: 15 heads, 56832-byte slots.
constexpr uint32_t kD600Heads = 15;
constexpr uint32_t kD600Slot = 56832;
constexpr unsigned char kD600Code = 0xAA;

struct HeaderSpec {
  const char* magic = "CKD_XVOL";  // 8 characters
  uint32_t heads = kD600Heads;
  uint32_t trackSize = kD600Slot;
  unsigned char deviceCode = kD600Code;
  unsigned char formatLevel = 3;
  uint32_t createdCylinders = 0;
  uint32_t cylinders = 0;
  bool versionMarker = false;  // "VER0" at byte 26
  uint16_t activeVersion = 0;
  uint16_t latestVersion = 0;
};

inline void putLe(std::vector<unsigned char>& h, size_t at, uint64_t v, int width) {
  for (int i = 0; i < width; ++i) h[at + i] = static_cast<unsigned char>(v >> (8 * i));
}

// The 512 header bytes: magic at 0, heads at 8, track size at 12, device code
// at 16, level at 17, created cylinders at 18, cylinders at 22, "VER0" at 26,
// active version at 30, latest version at 32, zero from 34 on.
inline std::vector<unsigned char> headerBytes(const HeaderSpec& s) {
  std::vector<unsigned char> h(512, 0);
  std::memcpy(h.data(), s.magic, 8);
  putLe(h, 8, s.heads, 4);
  putLe(h, 12, s.trackSize, 4);
  h[16] = s.deviceCode;
  h[17] = s.formatLevel;
  putLe(h, 18, s.createdCylinders, 4);
  putLe(h, 22, s.cylinders, 4);
  if (s.versionMarker) std::memcpy(h.data() + 26, "VER0", 4);
  putLe(h, 30, s.activeVersion, 2);
  putLe(h, 32, s.latestVersion, 2);
  return h;
}

// Size of a volume file without saved copies.
inline uint64_t volumeBytes(uint32_t slot, uint32_t heads, uint32_t cylinders) {
  return 512 + static_cast<uint64_t>(slot) * heads * cylinders;
}

// Writes `header` and extends the file (sparse, zero slots) to `size` bytes.
inline bool writeVolumeFile(const std::string& path, const std::vector<unsigned char>& header,
                            uint64_t size) {
  int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC, 0644);
  if (fd < 0) return false;
  bool ok = ::pwrite(fd, header.data(), header.size(), 0) == static_cast<ssize_t>(header.size()) &&
            ::ftruncate(fd, static_cast<off_t>(size)) == 0;
  ::close(fd);
  return ok;
}

// An initialised D600 volume of `cylinders` cylinders, all slots zero.
inline bool writeD600Volume(const std::string& path, uint32_t cylinders) {
  HeaderSpec s;
  s.createdCylinders = s.cylinders = cylinders;
  return writeVolumeFile(path, headerBytes(s), volumeBytes(kD600Slot, kD600Heads, cylinders));
}

inline std::vector<unsigned char> readFileBytes(const std::string& path, uint64_t offset, size_t length) {
  std::vector<unsigned char> out(length, 0);
  int fd = ::open(path.c_str(), O_RDONLY);
  if (fd < 0) return {};
  ssize_t n = ::pread(fd, out.data(), length, static_cast<off_t>(offset));
  ::close(fd);
  out.resize(n < 0 ? 0 : static_cast<size_t>(n));
  return out;
}

inline bool writeFileBytes(const std::string& path, uint64_t offset, const void* data, size_t length) {
  int fd = ::open(path.c_str(), O_WRONLY);
  if (fd < 0) return false;
  bool ok = ::pwrite(fd, data, length, static_cast<off_t>(offset)) == static_cast<ssize_t>(length);
  ::close(fd);
  return ok;
}

inline long long fileSize(const std::string& path) {
  struct stat st;
  return ::stat(path.c_str(), &st) == 0 ? static_cast<long long>(st.st_size) : -1;
}

}  // namespace ckdvol_test

#endif  // CKDVOL_TESTS_CKDFILE_VOLUME_FILE_BUILDER_H_
