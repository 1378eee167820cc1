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

using namespace ckdvol_test;

Bytes readFile(const std::string& path) { return readAt(path, 0, static_cast<size_t>(std::max(0LL, fileSize(path)))); }

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

// The first complete placeholder (72 groups 60 00 00 00) is overwritten; a second
// one, near misses before it and an incomplete one are left alone; no file: exit 0.
TEST(Notice, OverwritesTheFirstPlaceholderOnly) {
  ScopedTempDir dir, part, empty;
  Bytes ph;
  for (int i = 0; i < 72; ++i) ph = cat({ph, hex("60000000")});
  const Bytes lead = hex("7F454C46 60000060 01");  // almost a match: 60 00 00 60, then an odd offset
  const Bytes file = cat({lead, ph, {0xAB}, ph});
  ASSERT_TRUE(writeAt(dir.file("cpyrht.o"), 0, file, static_cast<long long>(file.size())));
  ASSERT_EQ(0, stampIn(dir.path()));
  const Bytes notice(ckdvol::noticeBytes(), ckdvol::noticeBytes() + ckdvol::kNoticeSize);
  EXPECT_EQ(cat({lead, notice, {0xAB}, ph}), readFile(dir.file("cpyrht.o")));  // the notice is 72 * 4 bytes
  EXPECT_EQ(0, std::strncmp(reinterpret_cast<const char*>(notice.data()), "ckdvol ", 7));

  const Bytes incomplete = cat({Bytes(ph.begin(), ph.end() - 4), {0x60}});  // 71 groups and one byte
  ASSERT_TRUE(writeAt(part.file("cpyrht.o"), 0, incomplete, static_cast<long long>(incomplete.size())));
  ASSERT_EQ(0, stampIn(part.path()));
  EXPECT_EQ(incomplete, readFile(part.file("cpyrht.o")));
  ASSERT_EQ(0, stampIn(empty.path()));  // nothing created
  EXPECT_NE(0, ::access(empty.file("cpyrht.o").c_str(), F_OK));
}

// The notice lives in an ELF note of the binary: name "ckdvol", 288 bytes.
TEST(Notice, CarriedInANoteOfTheBinary) {
  const Bytes self = readFile("/proc/self/exe"), header = hex("07000000 20010000 01000000 636B64766F6C0000");
  auto it = std::search(self.begin(), self.end(), header.begin(), header.end());
  ASSERT_NE(self.end(), it);
  const size_t at = static_cast<size_t>(it - self.begin()) + header.size();
  ASSERT_LE(at + ckdvol::kNoticeSize, self.size());
  EXPECT_EQ(0, std::memcmp(self.data() + at, ckdvol::noticeBytes(), ckdvol::kNoticeSize));
}

}  // namespace
