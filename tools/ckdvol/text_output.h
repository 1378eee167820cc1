// Text output of data-set records: the --codepage and --encoding options of
// the text commands, and a writer that turns EBCDIC records into host lines.
//
// Every record is decoded through the chosen code page (037 unless told) to
// UTF-8 (or ISO-8859-1 with --encoding latin1), trailing blanks removed, and
// written as one line. Bytes that decode to control characters are written
// as they are (so the text translates back to the same bytes) and reported
// once, when the writer finishes, as a warning on standard error.
#ifndef CKDVOL_TOOLS_CKDVOL_TEXT_OUTPUT_H_
#define CKDVOL_TOOLS_CKDVOL_TEXT_OUTPUT_H_

#include <cstdint>
#include <cstdio>
#include <string>

#include <CLI/CLI.hpp>

#include "codepage/code_page.h"

namespace ckdvol_tool {

// The options as given on the command line.
struct TextOptions {
  std::string codePage = "037";
  std::string encoding = "utf-8";
  // The page and host encoding they name (valid after the parse: the options
  // are checked by CLI11 validators, so an unknown name is a usage error).
  const ckdvol::CodePage& page() const;
  ckdvol::HostEncoding host() const;
};

// Adds --codepage and --encoding to `app`, filling `options`.
void addTextOptions(CLI::App& app, TextOptions& options);

// Writes records as text lines to a FILE*.
class TextWriter {
 public:
  TextWriter(const TextOptions& options, FILE* out);

  // Decodes the `n` EBCDIC bytes at `data`, removes trailing blanks and
  // writes the line and a line end. False when the write failed.
  bool line(const unsigned char* data, size_t n);
  uint64_t lines() const { return lines_; }
  // The control characters met so far, as one sentence ("" when none).
  std::string controlsText() const;
  // Writes "ckdvol: warning: WHAT: <controlsText>; ..." to standard error
  // when control characters were met; nothing otherwise.
  void warnControls(const std::string& what) const;

 private:
  const ckdvol::CodePage& page_;
  ckdvol::HostEncoding host_;
  FILE* out_;
  std::string buffer_;
  ckdvol::DecodeReport report_;
  uint64_t lines_ = 0;
  uint64_t firstControlLine_ = 0;  // 1-based line of the first control character
};

// Help text describing the options, for the footers of the text commands.
extern const char* const kTextOptionsHelp;

}  // namespace ckdvol_tool

#endif  // CKDVOL_TOOLS_CKDVOL_TEXT_OUTPUT_H_
