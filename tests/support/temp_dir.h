// ScopedTempDir: a unique directory for one test's files under
// $CKDVOL_TEST_TMP (else $TMPDIR, else /tmp), removed with its contents when
// the object goes out of scope.
#ifndef CKDVOL_TESTS_SUPPORT_TEMP_DIR_H_
#define CKDVOL_TESTS_SUPPORT_TEMP_DIR_H_

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <stdexcept>
#include <string>

namespace ckdvol_test {

class ScopedTempDir {
 public:
  ScopedTempDir() {
    const char* base = std::getenv("CKDVOL_TEST_TMP");
    if (base == nullptr || *base == '\0') base = std::getenv("TMPDIR");
    if (base == nullptr || *base == '\0') base = "/tmp";
    ::mkdir(base, 0700);
    path_ = std::string(base) + "/ckdvol-test-XXXXXX";
    if (::mkdtemp(&path_[0]) == nullptr) throw std::runtime_error("mkdtemp failed");
  }
  ~ScopedTempDir() { removeTree(path_); }
  ScopedTempDir(const ScopedTempDir&) = delete;
  ScopedTempDir& operator=(const ScopedTempDir&) = delete;
  const std::string& path() const { return path_; }
  std::string file(const std::string& name) const { return path_ + "/" + name; }

 private:
  static void removeTree(const std::string& dir) {
    if (DIR* d = ::opendir(dir.c_str())) {
      while (dirent* e = ::readdir(d)) {
        std::string n = e->d_name, p = dir + "/" + n;
        struct stat st;
        if (n == "." || n == "..") continue;
        ::lstat(p.c_str(), &st) == 0 && S_ISDIR(st.st_mode) ? removeTree(p) : void(::unlink(p.c_str()));
      }
      ::closedir(d);
    }
    ::rmdir(dir.c_str());
  }
  std::string path_;
};

}  // namespace ckdvol_test

#endif  // CKDVOL_TESTS_SUPPORT_TEMP_DIR_H_
