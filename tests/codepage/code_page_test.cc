#include "codepage/code_page.h"

#include <iconv.h>

#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "common/data_translator.h"

namespace {

using ckdvol::CodePage;
using ckdvol::DecodeReport;
using ckdvol::EncodeReport;
using ckdvol::HostEncoding;
using Bytes = std::vector<uint8_t>;

const CodePage& page(const char* name) {
  const CodePage* p = CodePage::find(name);
  EXPECT_NE(p, nullptr) << name;
  return p != nullptr ? *p : CodePage::defaultPage();
}

// Characters looked up one by one in the pages' published charts, chosen
// where the three pages differ, plus controls, letters, digits and blank.
TEST(CodePage, CharactersSitWhereTheChartsPutThem) {
  struct Row { uint32_t codePoint; uint8_t in037, in1047, in500; const char* what; };
  const Row rows[] = {
      {'[', 0xBA, 0xAD, 0x4A, "left bracket"},    {']', 0xBB, 0xBD, 0x5A, "right bracket"},
      {'^', 0xB0, 0x5F, 0x5F, "circumflex"},      {0xAC, 0x5F, 0xB0, 0xBA, "not sign"},
      {'!', 0x5A, 0x5A, 0x4F, "exclamation"},     {'|', 0x4F, 0x4F, 0xBB, "vertical bar"},
      {0xDD, 0xAD, 0xBA, 0xAD, "Y acute"},        {0xA8, 0xBD, 0xBB, 0xBD, "diaeresis"},
      {0xA2, 0x4A, 0x4A, 0xB0, "cent sign"},      {0xA6, 0x6A, 0x6A, 0x6A, "broken bar"},
      {'{', 0xC0, 0xC0, 0xC0, "left brace"},      {'}', 0xD0, 0xD0, 0xD0, "right brace"},
      {'\\', 0xE0, 0xE0, 0xE0, "backslash"},      {'~', 0xA1, 0xA1, 0xA1, "tilde"},
      {'`', 0x79, 0x79, 0x79, "grave"},           {'#', 0x7B, 0x7B, 0x7B, "number sign"},
      {'$', 0x5B, 0x5B, 0x5B, "dollar"},          {'@', 0x7C, 0x7C, 0x7C, "at sign"},
      {' ', 0x40, 0x40, 0x40, "blank"},           {0xA0, 0x41, 0x41, 0x41, "no-break space"},
      {'.', 0x4B, 0x4B, 0x4B, "full stop"},       {'_', 0x6D, 0x6D, 0x6D, "underscore"},
      {'a', 0x81, 0x81, 0x81, "a"},               {'j', 0x91, 0x91, 0x91, "j"},
      {'s', 0xA2, 0xA2, 0xA2, "s"},               {'z', 0xA9, 0xA9, 0xA9, "z"},
      {'A', 0xC1, 0xC1, 0xC1, "A"},               {'J', 0xD1, 0xD1, 0xD1, "J"},
      {'S', 0xE2, 0xE2, 0xE2, "S"},               {'Z', 0xE9, 0xE9, 0xE9, "Z"},
      {'0', 0xF0, 0xF0, 0xF0, "zero"},            {'9', 0xF9, 0xF9, 0xF9, "nine"},
      {0xE9, 0x51, 0x51, 0x51, "e acute"},        {0xFF, 0xDF, 0xDF, 0xDF, "y diaeresis"},
      {0x0A, 0x25, 0x25, 0x25, "line feed"},      {0x85, 0x15, 0x15, 0x15, "next line (NL)"},
      {0x09, 0x05, 0x05, 0x05, "tab"},            {0x7F, 0x07, 0x07, 0x07, "delete"},
      {0x00, 0x00, 0x00, 0x00, "null"},           {0x9F, 0xFF, 0xFF, 0xFF, "X'FF'"},
  };
  for (const Row& r : rows) {
    const uint8_t bytes[] = {r.in037, r.in1047, r.in500};
    const char* names[] = {"037", "1047", "500"};
    for (int i = 0; i < 3; ++i) {
      EXPECT_EQ(page(names[i]).toEbcdic(r.codePoint), bytes[i]) << r.what << " in " << names[i];
      EXPECT_EQ(page(names[i]).toUnicode(bytes[i]), r.codePoint) << r.what << " in " << names[i];
    }
  }
}

// Whole strings both ways, with bytes and text written out by hand.
TEST(CodePage, TranslatesTextBothWays) {
  struct Row { const char* page; HostEncoding host; Bytes ebcdic; std::string text; };
  const HostEncoding kUtf8 = HostEncoding::kUtf8, kLatin1 = HostEncoding::kLatin1;
  const Row rows[] = {
      {"037", kUtf8, {0x81, 0xBA, 0xF1, 0xBB, 0x5E}, "a[1];"},
      {"1047", kUtf8, {0x81, 0xAD, 0xF1, 0xBD, 0x5E}, "a[1];"},
      {"500", kUtf8, {0x81, 0x4A, 0xF1, 0x5A, 0x5E}, "a[1];"},
      {"037", kUtf8, {0x4A, 0x40, 0xAD, 0xBD}, "\xC2\xA2 \xC3\x9D\xC2\xA8"},  // cent Y-acute umlaut
      {"037", kLatin1, {0x4A, 0x40, 0xAD, 0xBD}, "\xA2 \xDD\xA8"},
      {"500", kLatin1, {0xBA, 0x5F, 0x4F}, "\xAC^!"},
      {"037", kUtf8, {0xC8, 0x85, 0x93, 0x93, 0x96, 0x15, 0x25}, "Hello\xC2\x85\n"},
      {"1047", kUtf8, {0x20, 0xFF, 0xDF}, "\xC2\x80\xC2\x9F\xC3\xBF"},
      {"037", kUtf8, {}, ""},
  };
  for (const Row& r : rows) {
    std::string text = "<";  // both directions append
    page(r.page).decode(r.ebcdic.data(), r.ebcdic.size(), r.host, text, nullptr);
    EXPECT_EQ(text, "<" + r.text) << r.page << " " << ::testing::PrintToString(r.ebcdic);
    Bytes ebcdic = {0xEE};
    EXPECT_TRUE(page(r.page).encode(r.text.data(), r.text.size(), r.host, ebcdic, nullptr));
    Bytes expected = {0xEE};
    expected.insert(expected.end(), r.ebcdic.begin(), r.ebcdic.end());
    EXPECT_EQ(ebcdic, expected) << r.page << " " << r.text;
  }
}

// Converts `in` with the system's iconv; false when iconv lacks the pair.
bool viaIconv(const char* to, const char* from, std::string in, std::string* out) {
  iconv_t cd = iconv_open(to, from);
  if (cd == reinterpret_cast<iconv_t>(-1)) return false;
  out->assign(in.size() * 4, '\0');
  char *ip = &in[0], *op = &(*out)[0];
  size_t il = in.size(), ol = out->size();
  EXPECT_EQ(iconv(cd, &ip, &il, &op, &ol), 0u) << from << " to " << to;
  iconv_close(cd);
  out->resize(out->size() - ol);
  return true;
}

// The system's iconv over every byte, each page, each host encoding, both ways.
TEST(CodePage, AgreesWithIconvOnEveryByte) {
  std::string all;
  for (int i = 0; i < 256; ++i) all += static_cast<char>(i);
  for (const char* name : {"IBM037", "IBM1047", "IBM500"}) {
    for (HostEncoding host : {HostEncoding::kUtf8, HostEncoding::kLatin1}) {
      const char* hostName = host == HostEncoding::kUtf8 ? "UTF-8" : "ISO-8859-1";
      std::string text, ebcdic, ours;
      if (!viaIconv(hostName, name, all, &text) || !viaIconv(name, hostName, text, &ebcdic)) {
        GTEST_SKIP() << "the system's iconv has no " << name << " <-> " << hostName;
      }
      page(name).decode(reinterpret_cast<const uint8_t*>(all.data()), 256, host, ours, nullptr);
      EXPECT_EQ(ours, text) << name << " to " << hostName;
      Bytes back;  // `text` holds each character once, so this is the whole table
      EXPECT_TRUE(page(name).encode(text.data(), text.size(), host, back, nullptr));
      EXPECT_EQ(std::string(back.begin(), back.end()), ebcdic) << hostName << " to " << name;
    }
  }
}

TEST(CodePage, Page037AgreesWithTheLibrarysTranslator) {
  unsigned char all[256], latin1[256], ebcdic[256];
  for (int i = 0; i < 256; ++i) all[i] = static_cast<unsigned char>(i);
  Xlater.copyE2A(latin1, all, 256);
  Xlater.copyA2E(ebcdic, all, 256);
  for (int i = 0; i < 256; ++i) {
    EXPECT_EQ(CodePage::defaultPage().toUnicode(i), latin1[i]) << "X'" << i << "'";
    EXPECT_EQ(CodePage::defaultPage().toEbcdic(i), ebcdic[i]) << "U+" << i;
  }
}

// Every byte string of all 256 values comes back unchanged, in either host
// encoding, and the 65 controls (32 C0, DEL, 32 C1) are counted.
TEST(CodePage, EveryByteRoundTripsAndControlsAreCounted) {
  Bytes all;
  for (int i = 255; i >= 0; --i) all.push_back(static_cast<uint8_t>(i));
  for (const std::string& name : CodePage::names()) {
    for (HostEncoding host : {HostEncoding::kUtf8, HostEncoding::kLatin1}) {
      const CodePage& p = page(name.c_str());
      std::string text;
      DecodeReport report;
      p.decode(all.data(), 100, host, text, &report);  // in two calls
      p.decode(all.data() + 100, 156, host, text, &report);
      EXPECT_EQ(text.size(), host == HostEncoding::kUtf8 ? 384u : 256u) << name;
      EXPECT_EQ(report.bytes, 256u);
      EXPECT_EQ(report.controls, 65u) << name;
      EXPECT_EQ(report.firstControl, 0xFF) << name;  // U+009F in all three
      EXPECT_EQ(report.firstOffset, 0u) << name;
      Bytes back;
      EncodeReport er;
      EXPECT_TRUE(p.encode(text.data(), text.size(), host, back, &er)) << name;
      EXPECT_EQ(back, all) << name;
      EXPECT_TRUE(er.clean());
    }
  }
}

TEST(CodePage, ControlsAreReportedWithTheirOffsetAcrossCalls) {
  const CodePage& p = CodePage::defaultPage();
  const Bytes first = {0xC1, 0xC2, 0x40}, second = {0xC3, 0x05, 0x15, 0x05};
  DecodeReport report;
  std::string text;
  p.decode(first.data(), first.size(), HostEncoding::kUtf8, text, &report);
  EXPECT_TRUE(report.clean());
  EXPECT_EQ(p.describe(report), "");
  p.decode(second.data(), second.size(), HostEncoding::kUtf8, text, &report);
  EXPECT_EQ(text, "AB C\t\xC2\x85\t");  // kept, not replaced
  EXPECT_EQ(p.describe(report), "3 bytes decode to control characters in code page 037, "
                                "the first X'05' (U+0009) at offset 4");
  DecodeReport one;
  const uint8_t lf = 0x25;
  page("1047").decode(&lf, 1, HostEncoding::kLatin1, text, &one);
  EXPECT_EQ(page("1047").describe(one),
            "1 byte decodes to a control character in code page 1047: X'25' (U+000A) at offset 0");
}

// Strict UTF-8: each row is input, the EBCDIC (037) of what was translated,
// characters without a counterpart (count, first code point and offset) and
// malformed sequences (count, first kind and offset).
TEST(CodePage, Utf8InputIsReadStrictly) {
  struct Row { std::string in; Bytes out; uint64_t unmapped; uint32_t cp; uint64_t cpAt;
               uint64_t malformed; EncodeReport::Fault fault; uint64_t faultAt; };
  using E = EncodeReport;
  const Row rows[] = {
      {"A\xC2\xA2\xC3\xBF", {0xC1, 0x4A, 0xDF}, 0, 0, 0, 0, E::kNoFault, 0},
      {"\xC2\x80\xC2\xBF\xC3\x80", {0x20, 0xAB, 0x64}, 0, 0, 0, 0, E::kNoFault, 0},  // U+0080 BF C0
      {"x\xE2\x82\xAC", {0xA7}, 1, 0x20AC, 1, 0, E::kNoFault, 0},
      {"\xDF\xBF\xEF\xBF\xBD", {}, 2, 0x7FF, 0, 0, E::kNoFault, 0},  // last 2- and 3-byte leads
      {"\xF0\x9F\x98\x80-\xC4\x80", {0x60}, 2, 0x1F600, 0, 0, E::kNoFault, 0},  // U+1F600, U+0100
      {"\xC0\x80" "A", {0xC1}, 0, 0, 0, 1, E::kOverlong, 0},
      {"a\xC1\x81", {0x81}, 0, 0, 0, 1, E::kOverlong, 1},
      {"\xE0\x81\x81\xF0\x80\x81\x81", {}, 0, 0, 0, 2, E::kOverlong, 0},
      {"\xE0\x9F\xBF", {}, 0, 0, 0, 1, E::kOverlong, 0},  // U+07FF in three bytes
      {"a\xED\xA0\x80" "b", {0x81, 0x82}, 0, 0, 0, 1, E::kSurrogate, 1},
      {"\xED\xBF\xBF", {}, 0, 0, 0, 1, E::kSurrogate, 0},
      {"\xF4\x90\x80\x80", {}, 0, 0, 0, 1, E::kBeyondUnicode, 0},
      {"\xF7\xBF\xBF\xBF", {}, 0, 0, 0, 1, E::kBeyondUnicode, 0},  // the last 4-byte lead
      {"\xF4\x8F\xBF\xBF", {}, 1, 0x10FFFF, 0, 0, E::kNoFault, 0},  // the last code point
      {"\x80" "A", {0xC1}, 0, 0, 0, 1, E::kInvalidByte, 0},
      {"AB\xFF", {0xC1, 0xC2}, 0, 0, 0, 1, E::kInvalidByte, 2},
      {"\xC3\xA9\x80", {0x51}, 0, 0, 0, 1, E::kInvalidByte, 2},  // e acute, one byte too many
      {"\xF8\x88\x80\x80\x80", {}, 0, 0, 0, 5, E::kInvalidByte, 0},
      {"\xC3" "A", {0xC1}, 0, 0, 0, 1, E::kIncomplete, 0},
      {"\xE2\x82" "A\xE2\x82", {0xC1}, 0, 0, 0, 2, E::kIncomplete, 0},
      {"ab\xF0\x9F\x98", {0x81, 0x82}, 0, 0, 0, 1, E::kTruncated, 2},
      {"\xC3", {}, 0, 0, 0, 1, E::kTruncated, 0},
      {"\xE2\x82\xAC \xC0\x80 \xE2\x82\xAC", {0x40, 0x40}, 2, 0x20AC, 0, 1, E::kOverlong, 4},
  };
  for (const Row& r : rows) {
    Bytes out;
    EncodeReport report;
    const bool ok =
        CodePage::defaultPage().encode(r.in.data(), r.in.size(), HostEncoding::kUtf8, out, &report);
    const std::string at = "input " + ::testing::PrintToString(r.in);
    EXPECT_EQ(ok, r.unmapped == 0 && r.malformed == 0) << at;
    EXPECT_EQ(out, r.out) << at;
    EXPECT_EQ(report.bytes, r.in.size()) << at;
    EXPECT_EQ(report.unmapped, r.unmapped) << at;
    if (r.unmapped > 0) {
      EXPECT_EQ(report.firstUnmapped, r.cp) << at;
      EXPECT_EQ(report.firstUnmappedOffset, r.cpAt) << at;
    }
    EXPECT_EQ(report.malformed, r.malformed) << at;
    EXPECT_EQ(report.firstFault, r.fault) << at;
    if (r.malformed > 0) {
      EXPECT_EQ(report.firstFaultOffset, r.faultAt) << at;
    }
  }
}

TEST(CodePage, EncodeReportsReadAsOneSentence) {
  const CodePage& p = page("500");
  EncodeReport report;
  Bytes out;
  const std::string line1 = "abc\xE2\x82\xAC";             // a euro sign
  const std::string line2 = "\xC5\x93\xE0\x80\xAF\xC0\x80";  // oe ligature, two overlong forms
  EXPECT_FALSE(p.encode(line1.data(), line1.size(), HostEncoding::kUtf8, out, &report));
  EXPECT_EQ(p.describe(report),
            "1 character has no counterpart in code page 500: U+20AC at offset 3");
  EXPECT_FALSE(p.encode(line2.data(), line2.size(), HostEncoding::kUtf8, out, &report));
  EXPECT_EQ(p.describe(report),
            "2 characters have no counterpart in code page 500, the first U+20AC at offset 3; "
            "2 malformed UTF-8 sequences, the first an overlong form at offset 8");
  EncodeReport bad;
  EXPECT_FALSE(p.encode("\xED\xA0\x80", 3, HostEncoding::kUtf8, out, &bad));
  EXPECT_EQ(p.describe(bad), "1 malformed UTF-8 sequence: a surrogate at offset 0");
  EXPECT_EQ(p.describe(EncodeReport()), "");
  std::vector<std::string> texts;  // each fault has words of its own
  for (int f = EncodeReport::kNoFault; f <= EncodeReport::kBeyondUnicode; ++f) {
    const char* t = CodePage::faultText(static_cast<EncodeReport::Fault>(f));
    ASSERT_NE(t, nullptr);
    for (const std::string& other : texts) EXPECT_NE(other, t);
    texts.emplace_back(t);
  }
  // ISO-8859-1 input always translates.
  EncodeReport latin1;
  EXPECT_TRUE(p.encode("\xFF\x80\xC0", 3, HostEncoding::kLatin1, out, &latin1));
  EXPECT_TRUE(latin1.clean());
}

TEST(CodePage, FindsPagesByTheirUsualNames) {
  const struct { const char* name; const char* found; } rows[] = {
      {"037", "037"},       {"37", "037"},        {"00037", "037"},     {"IBM037", "037"},
      {"ibm-037", "037"},   {"Cp037", "037"},     {"CP-37", "037"},     {"1047", "1047"},
      {"IBM-1047", "1047"}, {"cp1047", "1047"},   {"ibm1047", "1047"},  {"01047", "1047"},
      {"500", "500"},       {"IBM500", "500"},    {"cp500", "500"},     {"", nullptr},
      {"IBM", nullptr},     {"cp-", nullptr},     {"0", nullptr},       {"1140", nullptr},
      {"037x", nullptr},    {"IBM 037", nullptr}, {"-037", nullptr},    {"UTF-8", nullptr},
      {"IBM--037", nullptr}, {"5000", nullptr},   {"ebcdic", nullptr},  {"+500", nullptr},
      {"XBM037", nullptr},  {"CX1047", nullptr},
  };
  for (const auto& r : rows) {
    const CodePage* p = CodePage::find(r.name);
    EXPECT_EQ(std::string(p == nullptr ? "(none)" : p->name()), r.found ? r.found : "(none)")
        << "'" << r.name << "'";
  }
  EXPECT_EQ(CodePage::names(), (std::vector<std::string>{"037", "1047", "500"}));
  EXPECT_STREQ(CodePage::defaultPage().name(), "037");
}

}  // namespace
