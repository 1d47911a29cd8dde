#include "platform/core/cow_String.h"

#include <cstddef>
#include <cstring>

#include "platform/core/mem.h"

cow_String::cow_String(const char* text) : m_base(nullptr) {
  if (text != nullptr) *this = cow_String(text, static_cast<int>(std::strlen(text)));
}

cow_String::cow_String(const char* text, int length) : m_base(nullptr) {
  if (text == nullptr || length < 0) return;
  m_base = static_cast<atr_StringBase*>(mem_OperatorNewThrowBuiltin(
      offsetof(atr_StringBase, text) + static_cast<size_t>(length) + 1));
  m_base->refs = 1;
  m_base->length = length;
  std::memcpy(m_base->text, text, static_cast<size_t>(length));
  m_base->text[length] = '\0';
}

void cow_String::Release() {
  if (m_base != nullptr && --m_base->refs == 0) mem_Free(m_base);
  m_base = nullptr;
}

bool operator==(const cow_String& a, const cow_String& b) {
  return a.length() == b.length() &&
         std::memcmp(a.c_str(), b.c_str(), static_cast<size_t>(a.length())) == 0;
}
