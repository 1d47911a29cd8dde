#include "containers/ada_List.h"

#include <algorithm>
#include <cstdint>
#include <new>
#include <type_traits>

#include "platform/core/aio_ostream.h"
#include "platform/core/mem.h"

namespace {

void ReportOutOfBounds(int i) {
  aio_cerr.print("** ERROR ada_List::operator[]: index ").print_int(i).print(" is out of bounds\n");
}

// Where an out-of-range index lands: slot i computed from the storage as for
// a valid index (callers compute end pointers as &list[list.count()]), so
// dereferencing it is the caller's business; the library never does. A list
// with no storage at all has no slot to compute from: it answers a scratch
// slot instead of a reference through null.
template <class T>
T& SlotOutOfBounds(T* data, int i) {
  if (data == nullptr) {
    static T scratch;
    return scratch;
  }
  // Computed as an address, not by indexing: the slot may lie outside the block.
  return *reinterpret_cast<T*>(reinterpret_cast<std::uintptr_t>(data) +
                               static_cast<std::intptr_t>(i) *
                                   static_cast<std::intptr_t>(sizeof(T)));
}

}  // namespace

template <class T>
ada_List<T>::ada_List(const ada_List<T>& other) : m_data(nullptr), m_capacity(0), m_count(0) {
  if (other.m_count == 0) return;
  reserve(other.m_count);
  for (int i = 0; i < other.m_count; ++i) new (&m_data[i]) T(other.m_data[i]);
  m_count = other.m_count;
}

template <class T>
ada_List<T>::~ada_List() {
  clear();
}

template <class T>
T& ada_List<T>::operator[](int i) {
  if (i < 0 || i >= m_count) {
    ReportOutOfBounds(i);
    return SlotOutOfBounds(m_data, i);
  }
  return m_data[i];
}

template <class T>
const T& ada_List<T>::operator[](int i) const {
  if (i < 0 || i >= m_count) {
    ReportOutOfBounds(i);
    return SlotOutOfBounds(m_data, i);
  }
  return m_data[i];
}

template <class T>
void ada_List<T>::reserve(int n) {
  if (m_capacity >= n) return;
  m_data = static_cast<T*>(mem_Realloc(m_data, mem_ArraySize(n, sizeof(T))));
  m_capacity = n;
}

template <class T>
void ada_List<T>::clear() {
  if (m_count == 0) return;
  if (!std::is_trivially_destructible<T>::value) {
    for (int i = m_count - 1; i >= 0; --i) m_data[i].~T();
  }
  mem_Free(m_data);
  m_data = nullptr;
  m_capacity = 0;
  m_count = 0;
}

template <class T>
void ada_List<T>::swap(ada_List<T>& other) {
  T* d = m_data;
  m_data = other.m_data;
  other.m_data = d;
  int c = m_capacity;
  m_capacity = other.m_capacity;
  other.m_capacity = c;
  c = m_count;
  m_count = other.m_count;
  other.m_count = c;
}

template <class T>
void ada_List<T>::grow() {
  // Doubling past INT_MAX saturates in mem_ArraySize and fails the allocation.
  reserve(m_capacity == 0 ? 16
                          : static_cast<int>(std::min<long long>(2LL * m_capacity, 0x7FFFFFFF)));
}

template <class T>
void ada_List<T>::append(const T& x, int n) {
  if (n <= 0) {
    // A negative n is not guarded against: copies are made n times (none),
    // and a list of nothing only counts, so its count goes down by -n.
    if (std::is_same<T, ada_none>::value) m_count += n;
    return;
  }
  if (static_cast<long long>(m_count) + n > m_capacity) {
    // x may live in this list's storage, which growing moves: copy it first.
    std::uintptr_t at = reinterpret_cast<std::uintptr_t>(&x);
    std::uintptr_t begin = reinterpret_cast<std::uintptr_t>(m_data);
    if (at >= begin && at < begin + sizeof(T) * static_cast<size_t>(m_count)) {
      T value(x);
      append(value, n);
      return;
    }
    while (static_cast<long long>(m_count) + n > m_capacity) {
      if (m_capacity == 0x7FFFFFFF) throw mem_Exhausted();
      grow();
    }
  }
  // Nothing is written for ada_none: its one byte per slot is only reserved.
  if (!std::is_same<T, ada_none>::value) {
    for (int i = 0; i < n; ++i) new (&m_data[m_count + i]) T(x);
  }
  m_count += n;
}

#define ADA_DEFINE_LIST(T) template class ada_List<T>;
ADA_FOR_EACH_ELEMENT_TYPE(ADA_DEFINE_LIST)
#undef ADA_DEFINE_LIST
