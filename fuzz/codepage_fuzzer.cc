// Fuzz target: CodePage translation both ways, round trips asserted.
//
// Input: any bytes. For every page and both host encodings:
//   - decoding the bytes as EBCDIC and encoding the text again gives the bytes
//     back, with a clean encode report, and the decode report counts no more
//     control characters than there are bytes;
//   - encoding the bytes as host text never writes more bytes than it read,
//     returns true exactly when its report is clean, and when it does, decoding
//     its output gives the input back (strict UTF-8 has one form per character).
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "codepage/code_page.h"
#include "fuzz_support.h"

using ckdvol::CodePage;
using ckdvol::DecodeReport;
using ckdvol::EncodeReport;
using ckdvol::HostEncoding;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > 1 << 16) return 0;
  const char* text = reinterpret_cast<const char*>(data);
  for (const std::string& name : CodePage::names()) {
    const CodePage* page = CodePage::find(name);
    FUZZ_CHECK(page != nullptr);
    for (HostEncoding host : {HostEncoding::kUtf8, HostEncoding::kLatin1}) {
      std::string decoded;
      DecodeReport decodeReport;
      page->decode(data, size, host, decoded, &decodeReport);
      FUZZ_CHECK(decodeReport.bytes == size && decodeReport.controls <= size);
      std::vector<uint8_t> back;
      EncodeReport backReport;
      FUZZ_CHECK(page->encode(decoded.data(), decoded.size(), host, back, &backReport));
      FUZZ_CHECK(backReport.clean());
      FUZZ_CHECK(back == std::vector<uint8_t>(data, data + size));

      std::vector<uint8_t> encoded;
      EncodeReport report;
      const bool ok = page->encode(text, size, host, encoded, &report);
      FUZZ_CHECK(ok == report.clean() && report.bytes == size && encoded.size() <= size);
      if (ok) {
        std::string again;
        page->decode(encoded.data(), encoded.size(), host, again, nullptr);
        FUZZ_CHECK(again == std::string(text, size));
      }
    }
  }
  return 0;
}
