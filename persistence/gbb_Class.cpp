#include "persistence/gbb_Class.h"

#include <cstring>

#include "platform/core/aio_ostream.h"

gbb_ClassID::gbb_ClassID(const char* text) : m_bytes{} {
  // strncpy semantics: stop at the terminator or after 80 bytes; the rest
  // stays NUL from the initialiser.
  for (int i = 0; text != nullptr && i < kSize && text[i] != '\0'; ++i) m_bytes[i] = text[i];
}

int gbb_ClassID::Length() const {
  const void* end = std::memchr(m_bytes, '\0', kSize);
  return end != nullptr ? static_cast<int>(static_cast<const char*>(end) - m_bytes) : kSize;
}

int BtreeCompare(const gbb_ClassID& a, const gbb_ClassID& b) {
  const unsigned char* x = reinterpret_cast<const unsigned char*>(a.Bytes());
  const unsigned char* y = reinterpret_cast<const unsigned char*>(b.Bytes());
  for (int i = 0; i < gbb_ClassID::kSize; ++i) {
    if (x[i] != y[i]) return x[i] < y[i] ? -1 : 1;
    if (x[i] == '\0') return 0;
  }
  return 0;
}

aio_ostream& operator<<(aio_ostream& stream, const gbb_ClassID& id) {
  char text[gbb_ClassID::kSize + 1];
  int n = id.Length();
  std::memcpy(text, id.Bytes(), static_cast<size_t>(n));
  text[n] = '\0';
  return stream.print(text);
}

bool gbb_Class::IsA(gbb_Class other) const {
  for (const gbb_ClassDescriptor* d = m_descriptor; d != nullptr; d = d->base.m_descriptor) {
    if (d == other.m_descriptor) return true;
  }
  return false;
}

gbb_ClassID gbb_Class::ClassID() const {
  return m_descriptor != nullptr ? m_descriptor->id : gbb_ClassID();
}

gbb_ObjectInterface* gbb_Class::Open(gbb_Path parent, int index, const gbb_Group& group,
                                     int traceFlag) const {
  if (m_descriptor == nullptr) {
    aio_cerr.print("**ERROR: gbb_Class::Open: called on an uninitialized class handle\n");
    return nullptr;
  }
  if (m_descriptor->open == nullptr) {
    aio_cerr.print("**ERROR: gbb_Class::Open: called on an abstract class\n");
    return nullptr;
  }
  return m_descriptor->open(parent, index, group, traceFlag);
}

gbb_Class gbb_DescribeClass(gbb_ClassDescriptor& descriptor, const char* id,
                            gbb_Class (*baseClass)(), gbb_OpenFunction open) {
  if (!descriptor.initialized) {
    descriptor.id = gbb_ClassID(id);
    descriptor.base = baseClass != nullptr ? baseClass() : gbb_Class();
    descriptor.open = open;
    descriptor.initialized = true;
  }
  return gbb_Class(&descriptor);
}
