#include "text_output.h"

#include <algorithm>
#include <cctype>

namespace ckdvol_tool {
namespace {

std::string lower(std::string s) {
  std::transform(s.begin(), s.end(), s.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return s;
}

bool isLatin1(const std::string& name) {
  const std::string n = lower(name);
  return n == "latin1" || n == "latin-1" || n == "iso-8859-1" || n == "iso8859-1";
}

bool isUtf8(const std::string& name) {
  const std::string n = lower(name);
  return n == "utf-8" || n == "utf8";
}

std::string pageList() {
  std::string s;
  for (const std::string& n : ckdvol::CodePage::names()) s += (s.empty() ? "" : ", ") + n;
  return s;
}

}  // namespace

const char* const kTextOptionsHelp =
    "Text: every record is decoded through an EBCDIC code page (--codepage 037, the\n"
    "default, 1047 or 500; IBM-1047, cp500 and the like are accepted) and written\n"
    "as one line in UTF-8, or in ISO-8859-1 with --encoding latin1; trailing blanks\n"
    "are removed. Bytes that decode to control characters are written as they are\n"
    "and reported once, as a warning on standard error.";

const ckdvol::CodePage& TextOptions::page() const {
  const ckdvol::CodePage* p = ckdvol::CodePage::find(codePage);
  return p != nullptr ? *p : ckdvol::CodePage::defaultPage();
}

ckdvol::HostEncoding TextOptions::host() const {
  return isLatin1(encoding) ? ckdvol::HostEncoding::kLatin1 : ckdvol::HostEncoding::kUtf8;
}

void addTextOptions(CLI::App& app, TextOptions& options) {
  app.add_option("--codepage", options.codePage,
                 "EBCDIC code page of the text: 037 (default), 1047 or 500")
      ->check(CLI::Validator(
          [](std::string& name) -> std::string {
            if (ckdvol::CodePage::find(name) != nullptr) return "";
            return "'" + name + "' is not a code page here (known: " + pageList() + ")";
          },
          "PAGE"));
  app.add_option("--encoding", options.encoding,
                 "Host encoding of the text: utf-8 (default) or latin1 (ISO-8859-1)")
      ->check(CLI::Validator(
          [](std::string& name) -> std::string {
            if (isUtf8(name) || isLatin1(name)) return "";
            return "'" + name + "' is not an output encoding (utf-8 or latin1)";
          },
          "ENCODING"));
}

TextWriter::TextWriter(const TextOptions& options, FILE* out)
    : page_(options.page()), host_(options.host()), out_(out) {}

bool TextWriter::line(const unsigned char* data, size_t n) {
  while (n > 0 && page_.toUnicode(data[n - 1]) == ' ') --n;
  buffer_.clear();
  const bool clean = report_.clean();
  page_.decode(data, n, host_, buffer_, &report_);
  buffer_.push_back('\n');
  ++lines_;
  if (clean && !report_.clean()) firstControlLine_ = lines_;
  return std::fwrite(buffer_.data(), 1, buffer_.size(), out_) == buffer_.size();
}

std::string TextWriter::controlsText() const { return page_.describe(report_); }

void TextWriter::warnControls(const std::string& what) const {
  if (report_.clean()) return;
  std::fprintf(stderr,
               "ckdvol: warning: %s: %s (the first in line %llu); they are written as they are "
               "(--raw gives the bytes)\n",
               what.c_str(), controlsText().c_str(), static_cast<unsigned long long>(firstControlLine_));
}

}  // namespace ckdvol_tool
