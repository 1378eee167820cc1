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

// An advisory lock (flock) on a volume file, held for the life of the
// object. Commands that change a volume take it exclusive; read-only
// commands take it shared, so they wait for no one but a writer. The library
// itself takes no locks: this only keeps two ckdvol runs apart.
class VolumeLock {
 public:
  VolumeLock() = default;
  ~VolumeLock();
  VolumeLock(const VolumeLock&) = delete;
  VolumeLock& operator=(const VolumeLock&) = delete;

  // 0, or kExitFailure after a message naming the file when another process
  // holds a conflicting lock. A file that cannot be opened is not locked and
  // gives 0: the command's own open then reports why.
  int acquire(const std::string& path, bool exclusive);

 private:
  int fd_ = -1;
};

}  // namespace ckdvol_tool

#endif  // CKDVOL_TOOLS_CKDVOL_TOOL_UTIL_H_
