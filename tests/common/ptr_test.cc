#include "common/ptr.h"

#include <cstring>

#include <gtest/gtest.h>

namespace {

TEST(PTR, UnsetThrowsTheFixedText) {
  PTR<int> p;
  EXPECT_FALSE(p.isSet());
  try {
    (void)*p;
    FAIL() << "no throw";
  } catch (const char* text) {
    EXPECT_STREQ("PTR::check - Reference to unassigned pointer", text);
  }
  EXPECT_THROW((void)p.operator->(), const char*);
}

TEST(PTR, ResetDeletesWhatItHeld) {
  static int deleted = 0;
  struct D {
    int v = 7;
    ~D() { ++deleted; }
  };
  {
    PTR<D> p(new D);
    EXPECT_EQ(7, p->v);
    p.reset(new D);
    EXPECT_EQ(1, deleted);
    p.reset();
    EXPECT_EQ(2, deleted);
    EXPECT_EQ(nullptr, p.get());
    p.reset(new D);
  }
  EXPECT_EQ(3, deleted);
}

}  // namespace
