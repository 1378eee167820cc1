// DynamicTypedPointerArray<T>: a growable array of pointers to T.
//
// Setting slot i grows the storage, when i is not below `capacity`, to the
// smallest multiple of `growBy` above i (new slots null); it deletes the
// element it replaces when `ownsElements` is set, stores the pointer and
// raises `count` to i + 1 when that is larger. clear() walks every slot,
// deleting non-null elements when `ownsElements` is set, nulls it and sets
// `count` to 0, keeping the storage. The destructor clears and frees.
// One thread per object.
#ifndef CKDVOL_COMMON_DYNAMIC_TYPED_POINTER_ARRAY_H_
#define CKDVOL_COMMON_DYNAMIC_TYPED_POINTER_ARRAY_H_

#include <cstring>

template <class T>
class DynamicTypedPointerArray {
 public:
  int growBy;        // growth step in slots (> 0; 32 everywhere in the library)
  int capacity;      // slots allocated
  int count;         // one past the highest slot set since the last clear
  int ownsElements;  // non-zero: the array deletes the elements it drops
  T** slots;         // `capacity` pointers; null until the first growth

  explicit DynamicTypedPointerArray(int growBy = 32, bool ownsElements = false)
      : growBy(growBy > 0 ? growBy : 32),
        capacity(0),
        count(0),
        ownsElements(ownsElements ? 1 : 0),
        slots(nullptr) {}
  ~DynamicTypedPointerArray() {
    clear();
    delete[] slots;
  }
  DynamicTypedPointerArray(const DynamicTypedPointerArray&) = delete;
  DynamicTypedPointerArray& operator=(const DynamicTypedPointerArray&) = delete;

  // A negative index is ignored.
  void set(int i, T* p) {
    if (i < 0) return;
    if (i >= capacity) grow(i);
    if (ownsElements && slots[i] != nullptr && slots[i] != p) delete slots[i];
    slots[i] = p;
    if (i + 1 > count) count = i + 1;
  }
  void add(T* p) { set(count, p); }
  // Null outside 0 .. capacity-1.
  T* get(int i) const { return (i < 0 || i >= capacity) ? nullptr : slots[i]; }
  T* operator[](int i) const { return get(i); }
  void clear() {
    for (int i = 0; i < capacity; ++i) {
      if (ownsElements && slots[i] != nullptr) delete slots[i];
      slots[i] = nullptr;
    }
    count = 0;
  }

 private:
  void grow(int i) {
    int newCapacity = (i / growBy + 1) * growBy;
    T** bigger = new T*[newCapacity];
    std::memset(static_cast<void*>(bigger), 0, sizeof(T*) * static_cast<size_t>(newCapacity));
    if (slots != nullptr) {
      std::memcpy(static_cast<void*>(bigger), static_cast<const void*>(slots),
                  sizeof(T*) * static_cast<size_t>(capacity));
      delete[] slots;
    }
    slots = bigger;
    capacity = newCapacity;
  }
};

#endif  // CKDVOL_COMMON_DYNAMIC_TYPED_POINTER_ARRAY_H_
