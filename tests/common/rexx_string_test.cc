#include "common/rexx_string.h"

#include <chrono>
#include <cstring>
#include <string>

#include <gtest/gtest.h>

namespace {

void append(RexxString& out, const char* piece) { out.copy((out + piece).text(), -1); }

TEST(RexxString, ConstructionAndCopy) {
  RexxString empty;
  EXPECT_EQ(0, empty.length());
  EXPECT_STREQ("", empty.text());
  RexxString null(static_cast<const char*>(nullptr));
  EXPECT_STREQ("", null.text());
  RexxString sized(100);
  EXPECT_EQ(0, sized.length());
  EXPECT_STREQ("", sized.text());
  RexxString a("abc");
  EXPECT_EQ(3, a.length());
  EXPECT_EQ(5, a.copy("hello world", 5));
  EXPECT_STREQ("hello", a.text());
  EXPECT_EQ(0, a.copy(nullptr, 3));
  EXPECT_STREQ("", a.text());
}

TEST(RexxString, PlusLeavesOperandUnchanged) {
  RexxString a("abc");
  RexxString b = a + "def";
  EXPECT_STREQ("abcdef", b.text());
  EXPECT_STREQ("abc", a.text());  // b extended a's buffer; a must not see it
  RexxString c = a + "XY";         // a is no longer the tip: must not clobber b
  EXPECT_STREQ("abcXY", c.text());
  EXPECT_STREQ("abcdef", b.text());
  EXPECT_STREQ("abc", a.text());
}

TEST(RexxString, SharedCopiesKeepValueSemantics) {
  RexxString a("abc");
  RexxString b(a);
  b.Upper();
  EXPECT_STREQ("abc", a.text());
  EXPECT_STREQ("ABC", b.text());
  RexxString c;
  c = a;
  append(c, "-tail");
  EXPECT_STREQ("abc-tail", c.text());
  EXPECT_STREQ("abc", a.text());
  a.copy("zz", -1);
  EXPECT_STREQ("abc-tail", c.text());
}

TEST(RexxString, UpperIsAsciiOnly) {
  RexxString s("aZ09-\xE4x");
  s.Upper();
  EXPECT_STREQ("AZ09-\xE4X", s.text());
}

TEST(RexxString, CopyWithEmbeddedNulStopsAtNulForMinusOne) {
  RexxString s;
  const char data[] = {'a', 'b', '\0', 'c'};
  EXPECT_EQ(4, s.copy(data, 4));
  EXPECT_EQ(4, s.length());
  RexxString t;
  EXPECT_EQ(2, t.copy(s.text(), -1));
  // Copying a string's own buffer back with -1 also stops at the NUL.
  EXPECT_EQ(2, s.copy(s.text(), -1));
}

TEST(RexxString, CopyFromInsideOwnBuffer) {
  RexxString s("0123456789");
  s.copy(s.text() + 4, -1);
  EXPECT_STREQ("456789", s.text());
}

TEST(RexxString, AppendPatternMatchesStdString) {
  RexxString out;
  std::string model;
  for (int i = 0; i < 5000; ++i) {
    std::string piece = std::to_string(i * 7919) + (i % 3 ? "," : "\n");
    append(out, piece.c_str());
    model += piece;
  }
  ASSERT_EQ(static_cast<int>(model.size()), out.length());
  EXPECT_EQ(model, std::string(out.text()));
}

// Building a multi-megabyte listing from 200,000 pieces through the
// copy-back pattern must not copy the whole string per piece. A quadratic
// implementation copies ~200,000 * 4 MB / 2 = 400 GB here and cannot finish;
// the bound is generous so that sanitizer builds pass comfortably.
TEST(RexxString, AppendPatternIsLinear) {
  RexxString out(32768);
  const char* piece = "0123456789ABCDEF0123";  // 20 bytes
  auto start = std::chrono::steady_clock::now();
  for (int i = 0; i < 200000; ++i) append(out, piece);
  auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(
                std::chrono::steady_clock::now() - start).count();
  EXPECT_EQ(4000000, out.length());
  EXPECT_EQ(0, std::memcmp(out.text() + 3999980, piece, 20));
  EXPECT_LT(ms, 20000) << "append pattern took " << ms << " ms";
}

}  // namespace
