#include "stdout_notes.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>

namespace ckdvol_tool {

StdoutNotes::StdoutNotes(std::string where) : where_(std::move(where)) {
  std::fflush(stdout);
  capture_ = ::memfd_create("ckdvol-notes", MFD_CLOEXEC);
  if (capture_ < 0) return;
  saved_ = ::dup(STDOUT_FILENO);
  if (saved_ < 0 || ::dup2(capture_, STDOUT_FILENO) < 0) {
    if (saved_ >= 0) ::close(saved_);
    ::close(capture_);
    saved_ = capture_ = -1;
  }
}

StdoutNotes::~StdoutNotes() { finish(); }

const std::vector<std::string>& StdoutNotes::finish() {
  if (finished_) return lines_;
  finished_ = true;
  if (capture_ < 0) return lines_;
  std::fflush(stdout);
  ::dup2(saved_, STDOUT_FILENO);
  ::close(saved_);
  std::string text;
  char buf[4096];
  ssize_t n;
  off_t at = 0;
  while ((n = ::pread(capture_, buf, sizeof buf, at)) > 0) {
    text.append(buf, static_cast<size_t>(n));
    at += n;
  }
  ::close(capture_);
  size_t start = 0;
  while (start < text.size()) {
    size_t end = text.find('\n', start);
    if (end == std::string::npos) end = text.size();
    std::string line = text.substr(start, end - start);
    const size_t first = line.find_first_not_of(' ');
    line.erase(0, first == std::string::npos ? line.size() : first);
    if (!line.empty()) {
      lines_.push_back(line);
      std::fprintf(stderr, "ckdvol: note: %s: %s\n", where_.c_str(), line.c_str());
    }
    start = end + 1;
  }
  return lines_;
}

}  // namespace ckdvol_tool
