// PTR<T>: an owning, checked pointer. Reaching through it while it is unset
// throws the const char* text kUnassigned; reset() and the destructor delete
// what it holds. Not copyable.
#ifndef CKDVOL_COMMON_PTR_H_
#define CKDVOL_COMMON_PTR_H_

template <class T>
class PTR {
 public:
  static constexpr const char* kUnassigned = "PTR::check - Reference to unassigned pointer";

  PTR() : p_(nullptr) {}
  explicit PTR(T* p) : p_(p) {}
  ~PTR() { delete p_; }
  PTR(const PTR&) = delete;
  PTR& operator=(const PTR&) = delete;

  T* operator->() const { return check(); }
  T& operator*() const { return *check(); }
  T* get() const { return p_; }
  bool isSet() const { return p_ != nullptr; }
  // Deletes the object held so far (if any) and holds `p` instead.
  void reset(T* p = nullptr) {
    if (p == p_) return;
    T* old = p_;
    p_ = p;
    delete old;
  }

 private:
  T* check() const {
    if (p_ == nullptr) throw kUnassigned;
    return p_;
  }
  T* p_;
};

#endif  // CKDVOL_COMMON_PTR_H_
