// The specified classes write a few diagnostic lines to standard output
// (" key len err ..." from the VTOC walk, "vtoc.initialize errno is ..." from
// the volume open, "This is it;; ofs = ..." from track verification). The
// tool's standard output carries listings and member data, so while a
// library call that may print runs, StdoutNotes points file descriptor 1 at
// an anonymous memory file; finish() (or the destructor) puts standard
// output back and repeats every captured line on standard error as
// "ckdvol: note: WHERE: LINE".
//
// Only what the library writes between construction and finish() is
// captured: the tool's own output before it is flushed first. When the
// memory file cannot be made, nothing is captured and the lines go where
// the library writes them.
#ifndef CKDVOL_TOOLS_CKDVOL_STDOUT_NOTES_H_
#define CKDVOL_TOOLS_CKDVOL_STDOUT_NOTES_H_

#include <string>
#include <vector>

namespace ckdvol_tool {

class StdoutNotes {
 public:
  // `where` prefixes each note (usually the volume file's path).
  explicit StdoutNotes(std::string where);
  ~StdoutNotes();
  StdoutNotes(const StdoutNotes&) = delete;
  StdoutNotes& operator=(const StdoutNotes&) = delete;

  // Restores standard output and writes the captured lines as notes to
  // standard error (once). Returns the lines, without line ends or leading
  // blanks.
  const std::vector<std::string>& finish();

 private:
  std::string where_;
  int saved_ = -1;    // the real standard output while captured
  int capture_ = -1;  // the memory file
  bool finished_ = false;
  std::vector<std::string> lines_;
};

}  // namespace ckdvol_tool

#endif  // CKDVOL_TOOLS_CKDVOL_STDOUT_NOTES_H_
