// ada_string: an owned character string that is never modified in place.
//
// One field: a pointer to a heap buffer holding the text and its NUL, or
// null for the empty string (an empty text never allocates). Being a single
// owning pointer, the string may be relocated bitwise, which lets lists grow
// by reallocation and maps swap values without touching the heap.
#ifndef DDB_CONTAINERS_ADA_STRING_H_
#define DDB_CONTAINERS_ADA_STRING_H_

#include "platform/core/ddb_export.h"

class DDB_API ada_string {
 public:
  ada_string() : m_text(nullptr) {}
  ada_string(const char* text);  // NOLINT: implicit, a string literal is a string
  ada_string(const ada_string& other) : m_text(nullptr) { assign(other.m_text); }
  ada_string(ada_string&& other) noexcept : m_text(other.m_text) { other.m_text = nullptr; }
  // Copy first, then swap: the old buffer goes only once the new one exists.
  ada_string& operator=(const ada_string& other) {
    ada_string copy(other);
    swap(copy);
    return *this;
  }
  ada_string& operator=(ada_string&& other) noexcept {
    swap(other);
    return *this;
  }
  ~ada_string();

  void swap(ada_string& other);
  // The text; for the empty string a shared static zero byte. Never null.
  const char* cStr() const;
  // Bytes before the terminating zero.
  int byteCount() const;

 private:
  // Only ever called while m_text is null.
  void assign(const char* text);

  char* m_text;
};

#endif  // DDB_CONTAINERS_ADA_STRING_H_
