#include "tool_util.h"

#include <cstdio>

#include <unistd.h>

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

}  // namespace ckdvol_tool
