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
using Bytes = std::vector<uint8_t>;
constexpr ckdvol::HostEncoding kUtf8 = ckdvol::HostEncoding::kUtf8, kLatin1 = ckdvol::HostEncoding::kLatin1;

const CodePage& page(const char* name) {
  const CodePage* p = CodePage::find(name);
  EXPECT_NE(p, nullptr) << name;
  return p != nullptr ? *p : CodePage::defaultPage();
}

// Characters looked up by hand in the pages' charts, where the three pages differ.
TEST(CodePage, CharactersSitWhereTheChartsPutThem) {
  struct Row { uint32_t codePoint; uint8_t in[3]; };  // 037, 1047, 500
  const Row rows[] = {
      {'[', {0xBA, 0xAD, 0x4A}}, {']', {0xBB, 0xBD, 0x5A}}, {'^', {0xB0, 0x5F, 0x5F}}, {0xAC, {0x5F, 0xB0, 0xBA}},
      {'!', {0x5A, 0x5A, 0x4F}}, {'|', {0x4F, 0x4F, 0xBB}}, {0xDD, {0xAD, 0xBA, 0xAD}}, {0xA8, {0xBD, 0xBB, 0xBD}},
      {0xA2, {0x4A, 0x4A, 0xB0}}, {0x0A, {0x25, 0x25, 0x25}}, {0x85, {0x15, 0x15, 0x15}}, {0x9F, {0xFF, 0xFF, 0xFF}},
  };
  const char* names[] = {"037", "1047", "500"};
  for (const Row& r : rows) {
    for (int i = 0; i < 3; ++i) {
      EXPECT_EQ(page(names[i]).toEbcdic(r.codePoint), r.in[i]) << r.codePoint << " in " << names[i];
      EXPECT_EQ(page(names[i]).toUnicode(r.in[i]), r.codePoint) << r.codePoint << " in " << names[i];
    }
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

// The system's iconv over every byte, each page, each host encoding, both ways; the
// 65 controls (32 C0, DEL, 32 C1) counted over two calls.
TEST(CodePage, AgreesWithIconvOnEveryByte) {
  std::string all;
  for (int i = 255; i >= 0; --i) all += static_cast<char>(i);
  for (const char* name : {"IBM037", "IBM1047", "IBM500"}) {
    for (ckdvol::HostEncoding host : {kUtf8, kLatin1}) {
      const char* hostName = host == kUtf8 ? "UTF-8" : "ISO-8859-1";
      std::string text, ebcdic, ours;
      if (!viaIconv(hostName, name, all, &text) || !viaIconv(name, hostName, text, &ebcdic)) {
        GTEST_SKIP() << "the system's iconv has no " << name << " <-> " << hostName;
      }
      DecodeReport report;
      const uint8_t* bytes = reinterpret_cast<const uint8_t*>(all.data());
      page(name).decode(bytes, 100, host, ours, &report);
      page(name).decode(bytes + 100, 156, host, ours, &report);
      EXPECT_EQ(ours, text) << name << " to " << hostName;
      EXPECT_EQ((std::vector<uint64_t>{256, 65, 0xFF, 0}),
                (std::vector<uint64_t>{report.bytes, report.controls, report.firstControl, report.firstOffset}));
      Bytes back;  // `text` holds each character once, so this is the whole table
      EncodeReport er;
      EXPECT_TRUE(page(name).encode(text.data(), text.size(), host, back, &er));
      EXPECT_EQ(std::string(back.begin(), back.end()), ebcdic) << hostName << " to " << name;
      EXPECT_TRUE(er.clean() && ebcdic == all);
    }
  }
}

TEST(CodePage, Page037AgreesWithTheLibrarysTranslator) {
  for (int i = 0; i < 256; ++i) {
    unsigned char e = static_cast<unsigned char>(i), a = e;
    Xlater.xlateE2A(&a, 1), Xlater.xlateA2E(&e, 1);
    EXPECT_EQ(CodePage::defaultPage().toUnicode(i), a) << "X'" << i << "'";
    EXPECT_EQ(CodePage::defaultPage().toEbcdic(i), e) << "U+" << i;
  }
}

// Strict UTF-8 into page 037: the bytes translated, characters without a
// counterpart (count, first code point, offset), malformed sequences (count, kind, offset).
TEST(CodePage, Utf8InputIsReadStrictly) {
  using E = EncodeReport;
  struct Row { std::string in; Bytes out; uint64_t unmapped; uint32_t cp; uint64_t cpAt;
               uint64_t malformed; E::Fault fault; uint64_t faultAt; };
  const Row rows[] = {
      {"A\xC2\xA2\xC3\xBF", {0xC1, 0x4A, 0xDF}, 0, 0, 0, 0, E::kNoFault, 0},
      {"\xC2\x80\xC2\xBF\xC3\x80", {0x20, 0xAB, 0x64}, 0, 0, 0, 0, E::kNoFault, 0},  // U+0080 BF C0
      {"x\xE2\x82\xAC", {0xA7}, 1, 0x20AC, 1, 0, E::kNoFault, 0}, {"\xC3", {}, 0, 0, 0, 1, E::kTruncated, 0},
      {"\xDF\xBF\xEF\xBF\xBD", {}, 2, 0x7FF, 0, 0, E::kNoFault, 0},  // last 2- and 3-byte leads
      {"\xF0\x9F\x98\x80-\xC4\x80", {0x60}, 2, 0x1F600, 0, 0, E::kNoFault, 0},  // U+1F600, U+0100
      {"\xC0\x80" "A", {0xC1}, 0, 0, 0, 1, E::kOverlong, 0}, {"a\xC1\x81", {0x81}, 0, 0, 0, 1, E::kOverlong, 1},
      {"\xE0\x81\x81\xF0\x80\x81\x81", {}, 0, 0, 0, 2, E::kOverlong, 0},
      {"\xE0\x9F\xBF", {}, 0, 0, 0, 1, E::kOverlong, 0},  // U+07FF in three bytes
      {"a\xED\xA0\x80" "b", {0x81, 0x82}, 0, 0, 0, 1, E::kSurrogate, 1},
      {"\xED\xBF\xBF", {}, 0, 0, 0, 1, E::kSurrogate, 0}, {"\xF4\x90\x80\x80", {}, 0, 0, 0, 1, E::kBeyondUnicode, 0},
      {"\xF7\xBF\xBF\xBF", {}, 0, 0, 0, 1, E::kBeyondUnicode, 0},  // the last 4-byte lead
      {"\xF4\x8F\xBF\xBF", {}, 1, 0x10FFFF, 0, 0, E::kNoFault, 0},  // the last code point
      {"\x80" "A", {0xC1}, 0, 0, 0, 1, E::kInvalidByte, 0}, {"AB\xFF", {0xC1, 0xC2}, 0, 0, 0, 1, E::kInvalidByte, 2},
      {"\xC3\xA9\x80", {0x51}, 0, 0, 0, 1, E::kInvalidByte, 2},  // e acute, one byte too many
      {"\xF8\x88\x80\x80\x80", {}, 0, 0, 0, 5, E::kInvalidByte, 0}, {"\xC3" "A", {0xC1}, 0, 0, 0, 1, E::kIncomplete, 0},
      {"\xE2\x82" "A\xE2\x82", {0xC1}, 0, 0, 0, 2, E::kIncomplete, 0},
      {"ab\xF0\x9F\x98", {0x81, 0x82}, 0, 0, 0, 1, E::kTruncated, 2},
      {"\xE2\x82\xAC \xC0\x80 \xE2\x82\xAC", {0x40, 0x40}, 2, 0x20AC, 0, 1, E::kOverlong, 4},
  };
  for (const Row& r : rows) {
    Bytes out = {0xEE}, want = {0xEE};  // encode appends
    want.insert(want.end(), r.out.begin(), r.out.end());
    E report;
    const bool ok = CodePage::defaultPage().encode(r.in.data(), r.in.size(), kUtf8, out, &report);
    const std::string at = "input " + ::testing::PrintToString(r.in);
    EXPECT_EQ(ok, r.unmapped == 0 && r.malformed == 0) << at;
    EXPECT_EQ(out, want) << at;
    EXPECT_EQ((std::vector<uint64_t>{r.in.size(), r.unmapped, r.unmapped ? r.cp : 0, r.unmapped ? r.cpAt : 0,
                                     r.malformed, static_cast<uint64_t>(r.fault), r.malformed ? r.faultAt : 0}),
              (std::vector<uint64_t>{report.bytes, report.unmapped, r.unmapped ? report.firstUnmapped : 0,
                                     r.unmapped ? report.firstUnmappedOffset : 0, report.malformed,
                                     static_cast<uint64_t>(report.firstFault), r.malformed ? report.firstFaultOffset : 0}))
        << at;
  }
}

// The reports as sentences, counts and offsets carried across calls.
TEST(CodePage, ReportsReadAsOneSentence) {
  const CodePage &p = page("500"), &c = CodePage::defaultPage();
  DecodeReport d, one;
  std::string text;
  const Bytes first = {0xC1, 0xC2, 0x40}, second = {0xC3, 0x05, 0x15, 0x05}, lf = {0x25};
  c.decode(first.data(), first.size(), kUtf8, text, &d);
  EXPECT_EQ(c.describe(d), "");
  c.decode(second.data(), second.size(), kUtf8, text, &d);
  EXPECT_EQ(text, "AB C\t\xC2\x85\t");  // kept, not replaced
  EXPECT_EQ(c.describe(d), "3 bytes decode to control characters in code page 037, the first X'05' (U+0009) at offset 4");
  page("1047").decode(lf.data(), 1, kLatin1, text, &one);
  EXPECT_EQ(page("1047").describe(one),
            "1 byte decodes to a control character in code page 1047: X'25' (U+000A) at offset 0");
  EncodeReport report, bad, latin1;
  Bytes out;
  EXPECT_FALSE(p.encode("abc\xE2\x82\xAC", 6, kUtf8, out, &report));  // a euro sign
  EXPECT_EQ(p.describe(report), "1 character has no counterpart in code page 500: U+20AC at offset 3");
  EXPECT_FALSE(p.encode("\xC5\x93\xE0\x80\xAF\xC0\x80", 7, kUtf8, out, &report));  // oe, two overlong forms
  EXPECT_EQ(p.describe(report),
            "2 characters have no counterpart in code page 500, the first U+20AC at offset 3; "
            "2 malformed UTF-8 sequences, the first an overlong form at offset 8");
  EXPECT_FALSE(p.encode("\xED\xA0\x80", 3, kUtf8, out, &bad));
  EXPECT_EQ(p.describe(bad) + p.describe(EncodeReport()), "1 malformed UTF-8 sequence: a surrogate at offset 0");
  out.clear();  // ISO-8859-1 always translates
  EXPECT_TRUE(c.encode("\xFF\x80\xC0", 3, kLatin1, out, &latin1));
  EXPECT_TRUE(latin1.clean() && latin1.bytes == 3 && out == Bytes({0xDF, 0x20, 0x64}));
}

TEST(CodePage, FindsPagesByTheirUsualNames) {
  const struct { const char* name; const char* found; } rows[] = {
      {"037", "037"}, {"00037", "037"}, {"ibm-037", "037"}, {"Cp037", "037"}, {"CP-37", "037"}, {"IBM1047", "1047"},
      {"cp500", "500"}, {"", nullptr}, {"IBM", nullptr}, {"0", nullptr}, {"1140", nullptr}, {"037x", nullptr},
      {"IBM 037", nullptr}, {"-037", nullptr}, {"IBM--037", nullptr}, {"5000", nullptr}, {"CX1047", nullptr},
  };
  for (const auto& r : rows) {
    const CodePage* p = CodePage::find(r.name);
    EXPECT_STREQ(p == nullptr ? nullptr : p->name(), r.found) << "'" << r.name << "'";
  }
  EXPECT_EQ(CodePage::names(), (std::vector<std::string>{"037", "1047", "500"}));  // the first is the default
}

}  // namespace
