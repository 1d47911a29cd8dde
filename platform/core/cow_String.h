// The suite's reference-counted string: cow_String over atr_StringBase.
//
// Copies share one immutable buffer; nothing ever writes into a shared
// buffer, so copy-on-write needs no write path at all. A default string has
// no buffer; a string made from "" has a buffer of length 0. gbb_String is
// the framework's name for the same type.
#ifndef DDB_PLATFORM_CORE_COW_STRING_H_
#define DDB_PLATFORM_CORE_COW_STRING_H_

#include "platform/core/ddb_export.h"

// Shared text block: reference count, length, then the characters and a NUL.
struct atr_StringBase {
  int refs;
  int length;
  char text[1];
};

class DDB_API cow_String {
 public:
  cow_String() : m_base(nullptr) {}
  cow_String(const char* text);  // NOLINT: implicit by design, like the suite's string
  cow_String(const char* text, int length);
  cow_String(const cow_String& other) : m_base(other.m_base) {
    if (m_base != nullptr) ++m_base->refs;
  }
  cow_String(cow_String&& other) noexcept : m_base(other.m_base) { other.m_base = nullptr; }
  cow_String& operator=(cow_String other) noexcept {
    atr_StringBase* t = m_base;
    m_base = other.m_base;
    other.m_base = t;
    return *this;
  }
  ~cow_String() { Release(); }

  // The text, never null ("" without a buffer).
  const char* c_str() const { return m_base != nullptr ? m_base->text : ""; }
  int length() const { return m_base != nullptr ? m_base->length : 0; }
  bool empty() const { return length() == 0; }
  bool HasBuffer() const { return m_base != nullptr; }

  friend DDB_API bool operator==(const cow_String& a, const cow_String& b);
  friend bool operator!=(const cow_String& a, const cow_String& b) { return !(a == b); }

 private:
  void Release();
  atr_StringBase* m_base;
};

typedef cow_String gbb_String;

#endif  // DDB_PLATFORM_CORE_COW_STRING_H_
