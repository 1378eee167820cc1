// Small helpers shared by the subcommands: uniform error lines and the
// terminal check used for progress output.
#ifndef CKDVOL_TOOLS_CKDVOL_TOOL_UTIL_H_
#define CKDVOL_TOOLS_CKDVOL_TOOL_UTIL_H_

#include <string>

namespace ckdvol_tool {

// Bytes as they would be read: printable ASCII as it is, every other byte
// as \xNN (header text fields, magics).
std::string escapedText(const unsigned char* p, int length);

// Writes "ckdvol: FILE: CAUSE" to standard error and returns kExitFailure.
int fail(const std::string& file, const std::string& cause);
// Writes "ckdvol: TEXT" to standard error and returns `status`.
int failWith(int status, const std::string& text);
// The Levenshtein distance between two names, for "did you mean" suggestions.
size_t editDistance(const std::string& a, const std::string& b);

// True when standard error is a terminal (progress bars go there).
bool stderrIsTerminal();
// True when standard input is a terminal (questions are asked there).
bool stdinIsTerminal();
// "1 cylinder", "2 cylinders": `n` and the noun, with an "s" unless n is 1.
std::string count(unsigned long long n, const std::string& noun);

// D200 tracks are addressed by cell (0-9), cylinder (two bytes, 0-19 and
// 0-9) and head (two bytes, 0-4 and 0-19): 10 cells of 200 cylinders of 100
// heads, 200000 tracks, whatever cylinder count the header or open() gives.
constexpr unsigned kD200Cells = 10;
constexpr unsigned kD200CylindersPerCell = 200;
constexpr unsigned kD200HeadsPerCylinder = 100;
constexpr unsigned long long kD200Tracks = 200000;
// "10 cells x 200 cylinders x 100 heads (200000 tracks; cylinder 0000-1309,
// head 0000-0413 in hexadecimal)": D200's geometry as every command shows it.
std::string d200GeometryText();

// How long VolumeLock::acquire waits for a conflicting lock: "forever" or a
// number of seconds. 0, or kExitUsage after a message for any other text.
// Without a call, a conflicting lock is refused at once.
int setLockWait(const std::string& text);

// Sends whatever is written to standard output while it lives to
// /dev/null (flushing before and after): for library calls that print
// diagnostics of their own where a command's output must stay clean.
class StdoutSilencer {
 public:
  StdoutSilencer();
  ~StdoutSilencer();
  StdoutSilencer(const StdoutSilencer&) = delete;
  StdoutSilencer& operator=(const StdoutSilencer&) = delete;

 private:
  int saved_ = -1;
};

// An advisory lock (flock) on a volume file, held for the life of the
// object. Commands that change a volume take it exclusive; read-only
// commands take it shared, so they wait for no one but a writer. The library
// itself takes no locks: this only keeps two ckdvol runs apart.
// Set once a command takes a volume's exclusive lock, i.e. means to change
// it: a failure to open the volume then also says that nothing was changed.
extern bool gChangingVolume;

class VolumeLock {
 public:
  VolumeLock() = default;
  ~VolumeLock();
  VolumeLock(const VolumeLock&) = delete;
  VolumeLock& operator=(const VolumeLock&) = delete;

  // 0, or kExitFailure after a message naming the file when another process
  // holds a conflicting lock (at once, or after the time --wait allows). A
  // file that cannot be opened is not locked and gives 0: the command's own
  // open then reports why.
  // A volume whose header records an interrupted change is refused for
  // changes (a note for readers) unless `recovering`: 'ckdvol recover'
  // is what finishes or undoes it.
  int acquire(const std::string& path, bool exclusive, bool recovering = false);

 private:
  int fd_ = -1;
};

}  // namespace ckdvol_tool

#endif  // CKDVOL_TOOLS_CKDVOL_TOOL_UTIL_H_
