#include "common/dynamic_typed_pointer_array.h"

#include <gtest/gtest.h>

namespace {

struct Counted {
  static int alive;
  Counted() { ++alive; }
  ~Counted() { --alive; }
};
int Counted::alive = 0;

TEST(DynamicTypedPointerArray, GrowsToMultiplesOfGrowBy) {
  DynamicTypedPointerArray<int> a;
  EXPECT_EQ(32, a.growBy);
  EXPECT_EQ(0, a.capacity);
  EXPECT_EQ(nullptr, a.slots);
  int x = 1;
  a.set(0, &x);
  EXPECT_EQ(32, a.capacity);
  EXPECT_EQ(1, a.count);
  a.set(31, &x);
  EXPECT_EQ(32, a.capacity);
  a.set(32, &x);  // smallest multiple of 32 above 32
  EXPECT_EQ(64, a.capacity);
  EXPECT_EQ(33, a.count);
  EXPECT_EQ(nullptr, a.get(5));
  EXPECT_EQ(&x, a[31]);
  EXPECT_EQ(nullptr, a.get(-1));
  EXPECT_EQ(nullptr, a.get(64));
  a.set(10, &x);  // below count: count unchanged
  EXPECT_EQ(33, a.count);
}

TEST(DynamicTypedPointerArray, ClearKeepsStorage) {
  DynamicTypedPointerArray<int> a(8);
  int x = 0;
  for (int i = 0; i < 9; ++i) a.add(&x);
  EXPECT_EQ(16, a.capacity);
  a.clear();
  EXPECT_EQ(0, a.count);
  EXPECT_EQ(16, a.capacity);
  EXPECT_EQ(nullptr, a.get(3));
}

TEST(DynamicTypedPointerArray, OwningArrayDeletesDroppedElements) {
  Counted::alive = 0;
  {
    DynamicTypedPointerArray<Counted> a(32, true);
    a.add(new Counted);
    a.add(new Counted);
    a.set(0, new Counted);  // replaces and deletes the first
    EXPECT_EQ(2, Counted::alive);
    a.clear();
    EXPECT_EQ(0, Counted::alive);
    a.add(new Counted);
  }
  EXPECT_EQ(0, Counted::alive);
}

TEST(DynamicTypedPointerArray, NonOwningArrayLeavesElements) {
  Counted::alive = 0;
  Counted c;
  {
    DynamicTypedPointerArray<const Counted> a;
    a.add(&c);
    a.clear();
  }
  EXPECT_EQ(1, Counted::alive);
}

}  // namespace
