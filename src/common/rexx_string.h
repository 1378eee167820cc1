// RexxString: stand-in for the host product's string class.
//
// Dumps and listings append every piece as `out.copy((out + piece).text(), -1)`
// and build listings from hundreds of thousands of pieces, so that pattern
// must cost time proportional to the piece, not to the string. Strings
// therefore share a reference-counted buffer: `a + text` extends a's buffer
// in place when a ends where the buffer's written bytes end (the result shares
// it), and copying a string's own buffer back into it only adopts the new
// length. Any other change to a shared buffer copies it first, so every
// string keeps value semantics. The buffer tracks its first NUL byte, so a
// NUL-terminated copy of a shared buffer needs no scan either.
//
// One thread per object; strings that share a buffer belong to one thread.
#ifndef CKDVOL_COMMON_REXX_STRING_H_
#define CKDVOL_COMMON_REXX_STRING_H_

#include "common/export.h"

class CKDVOL_EXPORT RexxString {
 public:
  RexxString();                       // empty
  RexxString(const char* text);       // copy of a NUL-terminated text (null: empty)
  explicit RexxString(int capacity);  // empty, room for capacity characters
  RexxString(const RexxString& other);
  RexxString& operator=(const RexxString& other);
  ~RexxString();

  // A new string: this one followed by `text` (null appends nothing).
  RexxString operator+(const char* text) const;
  // Replaces the content by `length` bytes of `text` (-1: up to its NUL).
  // Returns the new length. A null `text` or negative length other than -1
  // gives an empty string.
  int copy(const void* text, int length);
  // ASCII upper case in place.
  RexxString& Upper();
  // The content, always NUL-terminated; valid until this string changes.
  const char* text() const;
  // Length in characters (bytes).
  int length() const;

 private:
  struct Buffer;
  static Buffer* allocate(int capacity);
  static void release(Buffer* b);
  void makeSole(int capacity) const;  // private buffer of at least `capacity`+1 bytes, content kept

  mutable Buffer* buf_;  // null when empty and never allocated
  mutable int len_;      // this string's length; buf_->used >= len_
};

#endif  // CKDVOL_COMMON_REXX_STRING_H_
