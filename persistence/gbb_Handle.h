// gbb_Handle: a type-erased reference to what a path resolves to.
//
// A fixed 128-byte payload plus the class of what it carries, copied
// bytewise, never owning. A persistent object travels as the pointer to its
// interface in the first pointer-sized field (the rest zero); a small value
// object (the distribution service, the schema snapshot) travels as its own
// bytes, so path resolution needs no heap. Emptiness is judged by the
// payload alone: an all-zero payload is empty, whatever the class says.
#ifndef DDB_PERSISTENCE_GBB_HANDLE_H_
#define DDB_PERSISTENCE_GBB_HANDLE_H_

#include "persistence/gbb_Class.h"
#include "platform/core/ddb_export.h"

class DDB_API gbb_Handle {
 public:
  enum { kPayloadSize = 128 };

  gbb_Handle() : m_payload{}, m_class() {}
  // Carries a pointer (the rest of the payload zero).
  gbb_Handle(void* pointer, gbb_Class cls);
  // Carries `size` bytes. More than 128 prints a report; only 128 are kept.
  gbb_Handle(const void* data, int size, gbb_Class cls);

  gbb_Class Class() const { return m_class; }
  // The first pointer-sized field of the payload.
  void* Pointer() const;
  const unsigned char* Payload() const { return m_payload; }

  // True when the payload is all zero.
  bool IsEmpty() const;
  bool operator!() const { return IsEmpty(); }
  // Payloads equal bytewise; the classes are deliberately not compared.
  bool Equal(const gbb_Handle& other) const;

 private:
  unsigned char m_payload[kPayloadSize];
  gbb_Class m_class;
};

#endif  // DDB_PERSISTENCE_GBB_HANDLE_H_
