#include "containers/ada_string.h"

#include <cstring>

#include "platform/core/mem.h"

namespace {
const char kEmptyText[1] = {0};
}

ada_string::ada_string(const char* text) : m_text(nullptr) {
  assign(text);
}

ada_string::~ada_string() {
  mem_Free(m_text);
}

void ada_string::swap(ada_string& other) {
  char* t = m_text;
  m_text = other.m_text;
  other.m_text = t;
}

const char* ada_string::cStr() const {
  return m_text != nullptr ? m_text : kEmptyText;
}

int ada_string::byteCount() const {
  return m_text != nullptr ? static_cast<int>(std::strlen(m_text)) : 0;
}

void ada_string::assign(const char* text) {
  if (text == nullptr || text[0] == '\0') {
    m_text = nullptr;
    return;
  }
  int n = static_cast<int>(std::strlen(text)) + 1;
  m_text = static_cast<char*>(mem_OperatorNewThrowBuiltin(static_cast<size_t>(n)));
  std::memcpy(m_text, text, static_cast<size_t>(n));
}
