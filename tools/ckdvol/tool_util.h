// Small helpers shared by the subcommands: uniform error lines and the
// terminal check used for progress output.
#ifndef CKDVOL_TOOLS_CKDVOL_TOOL_UTIL_H_
#define CKDVOL_TOOLS_CKDVOL_TOOL_UTIL_H_

#include <string>

namespace ckdvol_tool {

// Writes "ckdvol: FILE: CAUSE" to standard error and returns kExitFailure.
int fail(const std::string& file, const std::string& cause);
// Writes "ckdvol: TEXT" to standard error and returns `status`.
int failWith(int status, const std::string& text);
// True when standard error is a terminal (progress bars go there).
bool stderrIsTerminal();

}  // namespace ckdvol_tool

#endif  // CKDVOL_TOOLS_CKDVOL_TOOL_UTIL_H_
