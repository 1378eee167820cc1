// CodePage: EBCDIC text code pages for the contents of data sets, each way.
//
// Every page here (037, the default; 1047; 500) is a one-to-one map of the 256
// EBCDIC byte values onto the 256 characters U+0000..U+00FF, the ISO-8859-1
// repertoire; the pages differ only in where some of those characters sit
// ('[' is X'BA' in 037, X'AD' in 1047, X'4A' in 500). The host side of the
// text is UTF-8 (the default) or ISO-8859-1.
//
// Decoding (EBCDIC to host text) cannot fail: every byte has its character.
// Bytes that decode to control characters (U+0000..U+001F, U+007F and
// U+0080..U+009F) are not text, though; they are kept in the output, so that
// encoding the text again gives back the same bytes, and counted in a
// DecodeReport with the first one's byte and offset, so that the caller can
// say so.
//
// Encoding (host text to EBCDIC) reads UTF-8 strictly: malformed sequences
// (stray or missing continuation bytes, overlong forms, surrogates, values
// above U+10FFFF, a sequence cut off by the end of the input) and characters
// above U+00FF, which no page here holds, are counted in an EncodeReport with
// the first one's offset (and code point), left out of the output, and make
// the call return false. Nothing is ever replaced by a substitute character.
//
// Both directions append to a caller's buffer and take a report that
// accumulates over calls, so text may be translated a record at a time:
// offsets in a report count from the first byte of the first call that used
// it. Translation is one table lookup per byte (UTF-8 output writes two bytes
// for U+0080..U+00FF); nothing is allocated per byte.
//
// CodePage objects are constants with static storage duration, initialised
// before any dynamic initialisation runs; a page may be used from several
// threads at once. A report belongs to one caller.
#ifndef CKDVOL_CODEPAGE_CODE_PAGE_H_
#define CKDVOL_CODEPAGE_CODE_PAGE_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "common/export.h"

namespace ckdvol {

// The encoding of the host side of the text.
enum class HostEncoding {
  kUtf8,   // UTF-8: one byte for U+0000..U+007F, two for U+0080..U+00FF
  kLatin1  // ISO-8859-1: one byte per character, the byte is the code point
};

// What decode() saw: the control characters among the decoded bytes.
struct DecodeReport {
  uint64_t bytes = 0;         // EBCDIC bytes decoded so far, over all calls
  uint64_t controls = 0;      // of those, bytes that decoded to a control character
  uint8_t firstControl = 0;   // the first such EBCDIC byte (valid when controls > 0)
  uint64_t firstOffset = 0;   // its offset in the decoded bytes (valid when controls > 0)

  bool clean() const { return controls == 0; }
};

// What encode() could not translate.
struct EncodeReport {
  // Why a piece of UTF-8 input is malformed.
  enum Fault {
    kNoFault = 0,
    kInvalidByte,     // a continuation byte without a lead byte, or X'F8'..X'FF'
    kIncomplete,      // a lead byte not followed by enough continuation bytes
    kTruncated,       // a sequence cut off by the end of the input
    kOverlong,        // a longer form than the character needs (C0 80 for U+0000)
    kSurrogate,       // U+D800..U+DFFF, which UTF-8 must not encode
    kBeyondUnicode    // a value above U+10FFFF
  };

  uint64_t bytes = 0;           // host bytes read so far, over all calls
  uint64_t unmapped = 0;        // well-formed characters above U+00FF
  uint32_t firstUnmapped = 0;   // the first one's code point (valid when unmapped > 0)
  uint64_t firstUnmappedOffset = 0;  // offset of its first byte (valid when unmapped > 0)
  uint64_t malformed = 0;       // malformed UTF-8 sequences
  Fault firstFault = kNoFault;  // the first one's kind (kNoFault when malformed == 0)
  uint64_t firstFaultOffset = 0;  // offset of its first byte (valid when malformed > 0)

  bool clean() const { return unmapped == 0 && malformed == 0; }
};

class CKDVOL_EXPORT CodePage {
 public:
  // The page called `name`, or nullptr when there is none: "037", "1047" or
  // "500", optionally after "IBM", "IBM-", "CP" or "CP-", with any number of
  // leading zeros, in any case ("IBM037", "ibm-1047", "cp500", "00037").
  static const CodePage* find(const std::string& name);
  // Code page 037.
  static const CodePage& defaultPage();
  // The canonical names of all pages, "037", "1047", "500".
  static std::vector<std::string> names();

  // The canonical name ("037"); the string lives as long as the process.
  const char* name() const { return name_; }

  // The character (U+0000..U+00FF) of an EBCDIC byte.
  uint8_t toUnicode(uint8_t ebcdic) const { return toUnicode_[ebcdic]; }
  // The EBCDIC byte of a character, or -1 when the page has none (above U+00FF).
  int toEbcdic(uint32_t codePoint) const {
    return codePoint <= 0xFF ? toEbcdic_[codePoint] : -1;
  }

  // Appends the host text of the `n` EBCDIC bytes at `data` to `out`. Every
  // byte yields one character, control characters included. When `report` is
  // not null, the bytes are counted in it and control characters recorded.
  void decode(const uint8_t* data, size_t n, HostEncoding host, std::string& out,
              DecodeReport* report) const;

  // Appends the EBCDIC bytes of the `n` bytes of host text at `text` to `out`.
  // Returns true when every character was translated; false when some were
  // malformed or have no EBCDIC byte here: those are left out of `out`, and
  // counted in `report` when it is not null. ISO-8859-1 input always
  // translates. A UTF-8 sequence must not straddle two calls: one cut off by
  // the end of the text is reported as kTruncated.
  bool encode(const char* text, size_t n, HostEncoding host, std::vector<uint8_t>& out,
              EncodeReport* report) const;

  // One sentence saying what a report holds, for a warning or an error:
  //   "3 bytes decode to control characters in code page 037, the first
  //    X'05' (U+0009) at offset 17"
  //   "1 character has no counterpart in code page 037: U+20AC at offset 5;
  //    2 malformed UTF-8 sequences, the first an overlong form at offset 9"
  // An empty string for a clean report.
  std::string describe(const DecodeReport& report) const;
  std::string describe(const EncodeReport& report) const;

  // A short phrase for a fault ("an overlong form"); "no fault" for kNoFault.
  static const char* faultText(EncodeReport::Fault fault);

 private:
  constexpr CodePage(const char* name, const uint8_t* toUnicode, const uint8_t* toEbcdic)
      : name_(name), toUnicode_(toUnicode), toEbcdic_(toEbcdic) {}

  // All pages, in the order of names(); `count` receives their number.
  static const CodePage* all(size_t* count);

  const char* name_;           // canonical name, static storage
  const uint8_t* toUnicode_;   // 256 entries: EBCDIC byte -> U+0000..U+00FF
  const uint8_t* toEbcdic_;    // 256 entries: the inverse of toUnicode_
};

}  // namespace ckdvol

#endif  // CKDVOL_CODEPAGE_CODE_PAGE_H_
