// The common layer: byte order, EBCDIC translation, the pointer array, PTR and RexxString.
#include <vector>
#include <chrono>
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "common/architecture_translation.h"
#include "common/byte_order.h"
#include "common/data_translator.h"
#include "common/dynamic_typed_pointer_array.h"
#include "common/ptr.h"
#include "common/rexx_string.h"

namespace {

using namespace ckdvol;

TEST(ByteOrder, EveryWidthBothWays) {
  const unsigned char b[8] = {0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08};
  using V = std::vector<unsigned long long>;
  EXPECT_EQ((V{0x0102, 0x01020304, 0x0102030405060708, 0x0201, 0x04030201, 0x0807060504030201}),
            (V{loadBe16(b), loadBe32(b), loadBe64(b), loadLe16(b), loadLe32(b), loadLe64(b)}));
  unsigned char out[8] = {};
  storeBe16(out, 0x0102), storeBe32(out + 2, 0x03040506), storeLe16(out + 6, 0x0807);
  EXPECT_EQ(0, std::memcmp(b, out, 8));
  storeBe64(out, 0x0102030405060708ull);
  EXPECT_EQ(0, std::memcmp(b, out, 8));
  storeLe32(out, 0x04030201), storeLe64(out, 0x0807060504030201ull);
  EXPECT_EQ(0, std::memcmp(b, out, 8));
  unsigned short s;
  unsigned int i;
  unsigned long long l;
  std::memcpy(&s, b, 2), std::memcpy(&i, b, 4), std::memcpy(&l, b, 8);
  using A = ArchitectureTranslation;
  EXPECT_EQ((V{0x0102, 0x01020304, 0x0102030405060708, 0x0201, 0x04030201, 0x0807060504030201}),
            (V{A::mtohs(s), A::mtohi(i), A::mtohll(l), A::itohs(s), A::itohi(i), A::itohll(l)}));
}

TEST(DataTranslator, CodePage037) {
  // C1 'A', 81 'a', F0 '0', 40 blank, 4B '.', 5B '$', 7B '#', 7C '@', E5 D6 D3 F1 "VOL1", BA '[', BB ']'
  const unsigned char e[] = {0xC1, 0x81, 0xF0, 0x40, 0x4B, 0x5B, 0x7B, 0x7C, 0xE5, 0xD6, 0xD3, 0xF1, 0xBA, 0xBB};
  char a[sizeof e + 1] = {};
  Xlater.copyE2A(a, e, sizeof e);
  EXPECT_STREQ("Aa0 .$#@VOL1[]", a);
  unsigned char all[256], there[256], back[256];
  for (int n = 0; n < 256; ++n) all[n] = static_cast<unsigned char>(n);
  DataTranslator(DataTranslator::XLATE_EBCDIC_ASCII).copyE2A(there, all, 256);
  std::memcpy(back, there, 256);
  Xlater.xlateA2E(back, 256);  // in place, the inverse: a bijection
  EXPECT_EQ(0, std::memcmp(all, back, 256));
  Xlater.xlateE2A(back, 256);
  EXPECT_EQ(0, std::memcmp(there, back, 256));
}

struct Counted {
  static int alive;
  Counted() { ++alive; }
  ~Counted() { --alive; }
};
int Counted::alive = 0;

TEST(DynamicTypedPointerArray, GrowthCountAndOwnership) {
  DynamicTypedPointerArray<int> a;
  int x = 1;
  EXPECT_EQ(32, a.growBy);
  const int steps[][3] = {{0, 32, 1}, {31, 32, 32}, {32, 64, 33}, {63, 64, 64}, {64, 96, 65}, {10, 96, 65}};
  for (const auto& s : steps) {  // slot set, capacity, count: the smallest multiple of 32 above the slot
    a.set(s[0], &x);
    EXPECT_TRUE(s[1] == a.capacity && s[2] == a.count) << s[0];
  }
  EXPECT_TRUE(a[63] == &x && a.get(5) == nullptr && a.get(-1) == nullptr && a.get(96) == nullptr);
  a.set(-1, &x);  // ignored
  a.clear();      // keeps the storage
  EXPECT_TRUE(a.count == 0 && a.capacity == 96 && a.get(63) == nullptr);

  Counted::alive = 0;
  Counted kept;
  {
    DynamicTypedPointerArray<Counted> owning(8, true);
    DynamicTypedPointerArray<Counted> other;
    owning.add(new Counted), owning.add(new Counted);
    owning.set(0, new Counted);  // replaces and deletes the first
    other.add(&kept);
    EXPECT_EQ(3, Counted::alive);
    owning.clear();
    EXPECT_EQ(1, Counted::alive);
    for (int n = 0; n < 9; ++n) owning.add(new Counted);
    EXPECT_EQ(16, owning.capacity);
  }
  EXPECT_EQ(1, Counted::alive);  // the non-owning array left `kept` alone
}

TEST(PTR, UnsetThrowsAndResetDeletes) {
  PTR<Counted> p;
  EXPECT_FALSE(p.isSet());
  const char* text = "no throw";
  try { (void)*p; } catch (const char* thrown) { text = thrown; }
  EXPECT_STREQ("PTR::check - Reference to unassigned pointer", text);
  EXPECT_THROW((void)p.operator->(), const char*);
  Counted::alive = 0;
  {
    PTR<Counted> q(new Counted);
    q.reset(new Counted);
    EXPECT_EQ(1, Counted::alive);
    q.reset();
    EXPECT_EQ(0, Counted::alive);
    q.reset(new Counted);  // the destructor deletes
  }
  EXPECT_EQ(0, Counted::alive);
}

void append(RexxString& out, const char* piece) { out.copy((out + piece).text(), -1); }

TEST(RexxString, CopiesKeepValueSemantics) {
  RexxString null(static_cast<const char*>(nullptr)), sized(100);
  EXPECT_TRUE(null.text()[0] == '\0' && sized.length() == 0);
  RexxString a("abc"), b = a + "def", c = a + "XY";  // a is no longer the tip: must not clobber b
  EXPECT_EQ("abcdef abcXY abc", std::string(b.text()) + " " + c.text() + " " + a.text());
  RexxString d(a), e;
  d.Upper(), e = a;
  append(e, "-tail");
  a.copy("zz", -1);
  EXPECT_EQ("ABC abc-tail zz", std::string(d.text()) + " " + e.text() + " " + a.text());
  RexxString u("aZ09-\xE4x");
  EXPECT_STREQ("AZ09-\xE4X", u.Upper().text());  // ASCII only
  EXPECT_TRUE(a.copy("hello world", 5) == 5 && std::string("hello") == a.text());
  EXPECT_TRUE(a.copy(nullptr, 3) == 0 && a.text()[0] == '\0');

  const char data[] = {'a', 'b', '\0', 'c'};  // an embedded NUL: -1 stops there
  RexxString s, t;
  // its own buffer too, and its own buffer without a NUL
  EXPECT_EQ((std::vector<int>{4, 2, 2, 4, 4}), (std::vector<int>{s.copy(data, 4), t.copy(s.text(), -1), s.copy(s.text(), -1),
                                                                 t.copy("wxyz", 4), t.copy(t.text(), -1)}));
  EXPECT_STREQ("wxyz", t.text());
  RexxString inside("0123456789");
  EXPECT_TRUE(inside.copy(inside.text() + 4, -1) == 6 && std::string("456789") == inside.text());
}

// 200,000 pieces through the copy-back pattern: the result matches and the
// time is linear (a quadratic copy would move ~400 GB here).
TEST(RexxString, AppendPatternIsLinear) {
  RexxString out;
  std::string model;
  auto start = std::chrono::steady_clock::now();
  for (int n = 0; n < 200000; ++n) {
    const std::string piece = std::to_string(n * 7919) + (n % 3 ? "," : "\n");
    append(out, piece.c_str());
    model += piece;
  }
  auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start).count();
  EXPECT_EQ(model, std::string(out.text(), static_cast<size_t>(out.length())));
  EXPECT_LT(ms, 20000) << "append pattern took " << ms << " ms";
}

}  // namespace
