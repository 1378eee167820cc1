#include "notice/notice.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "notice/notice_text.h"
#include "support/temp_dir.h"
#include "support/track_builder.h"

namespace {

using ckdvol_test::Bytes;

Bytes placeholder(int groups) {
  Bytes b;
  for (int i = 0; i < groups; ++i) b.insert(b.end(), {0x60, 0x00, 0x00, 0x00});
  return b;
}
Bytes readFile(const std::string& path) {
  return ckdvol_test::readAt(path, 0, static_cast<size_t>(std::max(0LL, ckdvol_test::fileSize(path))));
}
void writeFile(const std::string& path, const Bytes& b) {
  ASSERT_TRUE(ckdvol_test::writeAt(path, 0, b, static_cast<long long>(b.size())));
}

// Runs print_copyright_msg in a child whose working directory is `dir`;
// returns the child's exit status (or -1 when it did not exit normally).
int stampIn(const std::string& dir) {
  std::fflush(nullptr);
  pid_t pid = ::fork();
  if (pid == 0) {
    if (::chdir(dir.c_str()) != 0) ::_exit(99);
    print_copyright_msg();
  }
  int status = 0;
  ::waitpid(pid, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// The first complete placeholder (72 groups 60 00 00 00) is overwritten; a
// second one, near misses and an incomplete one are left alone.
TEST(Notice, OverwritesTheFirstPlaceholderOnly) {
  ckdvol_test::ScopedTempDir dir;
  // Leading bytes that almost match: a 60 00 00 60 prefix and an odd offset.
  Bytes file = {0x7F, 'E', 'L', 'F', 0x60, 0x00, 0x00, 0x60, 0x01};
  size_t first = file.size();
  Bytes ph = placeholder(72);
  file.insert(file.end(), ph.begin(), ph.end());
  file.push_back(0xAB);
  size_t second = file.size();
  file.insert(file.end(), ph.begin(), ph.end());
  writeFile(dir.file("cpyrht.o"), file);

  ASSERT_EQ(0, stampIn(dir.path()));

  Bytes after = readFile(dir.file("cpyrht.o"));
  ASSERT_EQ(file.size(), after.size());
  EXPECT_EQ(0, std::memcmp(after.data(), file.data(), first));
  EXPECT_EQ(0, std::memcmp(after.data() + first, ckdvol::noticeBytes(), ckdvol::kNoticeSize));
  EXPECT_EQ(0xAB, after[second - 1]);
  EXPECT_EQ(0, std::memcmp(after.data() + second, ph.data(), ph.size()));  // second untouched
  const char* text = reinterpret_cast<const char*>(ckdvol::noticeBytes());
  EXPECT_EQ(0, std::strncmp(text, "ckdvol ", 7));
}

TEST(Notice, IncompleteOrMissingPlaceholderFile) {
  ckdvol_test::ScopedTempDir dir, empty;
  Bytes file = placeholder(71);
  file.push_back(0x60);
  writeFile(dir.file("cpyrht.o"), file);
  ASSERT_EQ(0, stampIn(dir.path()));
  EXPECT_EQ(file, readFile(dir.file("cpyrht.o")));
  ASSERT_EQ(0, stampIn(empty.path()));  // no file: exit 0, nothing created
  EXPECT_NE(0, ::access(empty.file("cpyrht.o").c_str(), F_OK));
}

// The notice lives in an ELF note of the binary: name "ckdvol", 288 bytes.
TEST(Notice, CarriedInANoteOfTheBinary) {
  Bytes self = readFile("/proc/self/exe");
  const unsigned char header[] = {7, 0, 0, 0, 0x20, 0x01, 0, 0, 1, 0, 0, 0,
                                  'c', 'k', 'd', 'v', 'o', 'l', 0, 0};
  auto it = std::search(self.begin(), self.end(), std::begin(header), std::end(header));
  ASSERT_NE(self.end(), it);
  size_t at = static_cast<size_t>(it - self.begin()) + sizeof header;
  ASSERT_LE(at + ckdvol::kNoticeSize, self.size());
  EXPECT_EQ(0, std::memcmp(self.data() + at, ckdvol::noticeBytes(), ckdvol::kNoticeSize));
}

}  // namespace
