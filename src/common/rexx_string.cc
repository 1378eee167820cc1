#include "common/rexx_string.h"

#include <cstdlib>
#include <cstring>
#include <new>

// A buffer holds `used` written bytes followed by a NUL. Strings sharing it
// each see a prefix of those bytes; only the string whose length equals
// `used` (the tip) may append in place.
struct RexxString::Buffer {
  int refs;
  int capacity;  // bytes available for content (one more is allocated for the NUL)
  int used;      // bytes written
  int firstNul;  // index of the first NUL among the written bytes, kNoNul, or
                 // kUnknownNul until a NUL-terminated copy of the buffer needs it
  char data[1];
};

namespace {
constexpr int kNoNul = 0x7FFFFFFF;
constexpr int kUnknownNul = -1;  // below every length: survives prefix copies

int firstNulIn(const char* p, int n, int base) {
  const void* hit = std::memchr(p, 0, static_cast<size_t>(n));
  return hit == nullptr ? kNoNul : base + static_cast<int>(static_cast<const char*>(hit) - p);
}
}  // namespace

RexxString::Buffer* RexxString::allocate(int capacity) {
  if (capacity < 15) capacity = 15;
  void* raw = std::malloc(sizeof(Buffer) + static_cast<size_t>(capacity));
  if (raw == nullptr) throw std::bad_alloc();
  Buffer* b = static_cast<Buffer*>(raw);
  b->refs = 1;
  b->capacity = capacity;
  b->used = 0;
  b->firstNul = kNoNul;
  b->data[0] = '\0';
  return b;
}

void RexxString::release(Buffer* b) {
  if (b != nullptr && --b->refs == 0) std::free(b);
}

void RexxString::makeSole(int capacity) const {
  if (capacity < len_) capacity = len_;
  if (buf_ != nullptr && buf_->refs == 1 && buf_->capacity >= capacity) {
    buf_->used = len_;
    buf_->data[len_] = '\0';
    if (buf_->firstNul >= len_) buf_->firstNul = kNoNul;
    return;
  }
  Buffer* b = allocate(capacity);
  if (buf_ != nullptr && len_ > 0) {
    std::memcpy(b->data, buf_->data, static_cast<size_t>(len_));
    b->firstNul = buf_->firstNul < len_ ? buf_->firstNul : kNoNul;
  }
  b->used = len_;
  b->data[len_] = '\0';
  release(buf_);
  buf_ = b;
}

RexxString::RexxString() : buf_(nullptr), len_(0) {}

RexxString::RexxString(const char* text) : buf_(nullptr), len_(0) {
  if (text != nullptr) copy(text, -1);
}

RexxString::RexxString(int capacity) : buf_(nullptr), len_(0) {
  if (capacity > 0) buf_ = allocate(capacity);
}

RexxString::RexxString(const RexxString& other) : buf_(other.buf_), len_(other.len_) {
  if (buf_ != nullptr) ++buf_->refs;
}

RexxString& RexxString::operator=(const RexxString& other) {
  if (this == &other) return *this;
  if (other.buf_ != nullptr) ++other.buf_->refs;
  release(buf_);
  buf_ = other.buf_;
  len_ = other.len_;
  return *this;
}

RexxString::~RexxString() { release(buf_); }

RexxString RexxString::operator+(const char* text) const {
  int n = text == nullptr ? 0 : static_cast<int>(std::strlen(text));
  int needed = len_ + n;
  if (buf_ == nullptr || buf_->used != len_ || buf_->capacity < needed) {
    // Not the tip, or no room: move this string to a buffer of its own with
    // room to grow geometrically. Its content is unchanged by the move.
    int capacity = needed;
    if (buf_ != nullptr && buf_->used == len_ && capacity < 2 * buf_->capacity) {
      capacity = 2 * buf_->capacity;
    } else if (capacity < 2 * len_) {
      capacity = 2 * len_;
    }
    // `text` may point into the old buffer: keep it alive across the move.
    Buffer* old = buf_;
    if (old != nullptr) ++old->refs;
    makeSole(capacity);
    RexxString result(*this);
    // The piece was measured with strlen: it holds no NUL.
    if (n > 0) std::memcpy(buf_->data + len_, text, static_cast<size_t>(n));
    release(old);
    buf_->used = needed;
    buf_->data[needed] = '\0';
    result.len_ = needed;
    return result;
  }
  RexxString result(*this);
  // memmove: `text` may lie inside this very buffer (below `used`). The piece
  // was measured with strlen: it holds no NUL.
  if (n > 0) std::memmove(buf_->data + len_, text, static_cast<size_t>(n));
  buf_->used = needed;
  buf_->data[needed] = '\0';
  result.len_ = needed;
  return result;
}

int RexxString::copy(const void* text, int length) {
  const char* src = static_cast<const char*>(text);
  if (src == nullptr || length < -1) {
    len_ = 0;
    if (buf_ != nullptr && buf_->refs > 1) {
      release(buf_);
      buf_ = nullptr;
    } else if (buf_ != nullptr) {
      buf_->used = 0;
      buf_->firstNul = kNoNul;
      buf_->data[0] = '\0';
    }
    return 0;
  }
  if (buf_ != nullptr && src == buf_->data) {
    // Our own buffer (typically the result of `*this + piece`): its written
    // bytes are known, so adopt the length without copying.
    if (buf_->firstNul == kUnknownNul) buf_->firstNul = firstNulIn(buf_->data, buf_->used, 0);
    int limit = buf_->firstNul < buf_->used ? buf_->firstNul : buf_->used;
    int n = length == -1 ? limit : (length < buf_->used ? length : buf_->used);
    if (length != -1 && n > buf_->used) n = buf_->used;
    len_ = n;
    if (buf_->refs == 1) {
      buf_->used = n;
      buf_->data[n] = '\0';
      if (buf_->firstNul >= n) buf_->firstNul = kNoNul;
    }
    return len_;
  }
  int n = length == -1 ? static_cast<int>(std::strlen(src)) : length;
  // `src` may point into the current buffer: copy into a fresh one when shared
  // or too small, else move in place.
  if (buf_ == nullptr || buf_->refs > 1 || buf_->capacity < n) {
    Buffer* b = allocate(n);
    std::memcpy(b->data, src, static_cast<size_t>(n));
    release(buf_);
    buf_ = b;
  } else {
    std::memmove(buf_->data, src, static_cast<size_t>(n));
  }
  buf_->used = n;
  buf_->data[n] = '\0';
  // A NUL-terminated text holds no NUL; other bytes are scanned only when a
  // NUL-terminated copy of this buffer asks for it.
  buf_->firstNul = length == -1 ? kNoNul : kUnknownNul;
  len_ = n;
  return len_;
}

RexxString& RexxString::Upper() {
  if (len_ == 0) return *this;
  makeSole(len_);
  for (int i = 0; i < len_; ++i) {
    char c = buf_->data[i];
    if (c >= 'a' && c <= 'z') buf_->data[i] = static_cast<char>(c - 'a' + 'A');
  }
  return *this;
}

const char* RexxString::text() const {
  if (buf_ == nullptr) return "";
  if (buf_->used != len_) makeSole(len_);  // another string appended past our end
  return buf_->data;
}

int RexxString::length() const { return len_; }
