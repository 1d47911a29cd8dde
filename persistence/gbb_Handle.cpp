#include "persistence/gbb_Handle.h"

#include <cstring>

#include "platform/core/aio_ostream.h"

gbb_Handle::gbb_Handle(void* pointer, gbb_Class cls) : m_payload{}, m_class(cls) {
  std::memcpy(m_payload, &pointer, sizeof pointer);
}

gbb_Handle::gbb_Handle(const void* data, int size, gbb_Class cls) : m_payload{}, m_class(cls) {
  if (size > kPayloadSize) {
    aio_cerr.print("** ERROR: gbb_Handle::gbb_Handle: size of data ")
        .print_int(size)
        .print(" larger than the maximum size ")
        .print_int(kPayloadSize)
        .put('\n')
        .flush();
    size = kPayloadSize;  // never write past the payload
  }
  if (size > 0 && data != nullptr) std::memcpy(m_payload, data, static_cast<size_t>(size));
}

void* gbb_Handle::Pointer() const {
  void* p;
  std::memcpy(&p, m_payload, sizeof p);
  return p;
}

bool gbb_Handle::IsEmpty() const {
  return Equal(gbb_Handle());
}

bool gbb_Handle::Equal(const gbb_Handle& other) const {
  return std::memcmp(m_payload, other.m_payload, kPayloadSize) == 0;
}
