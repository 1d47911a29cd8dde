// QELSimArray: the service's growable array, with checked element access.
//
// Elements live in one block from mem_*; an access outside 0 .. Size()-1
// stops the process through QELSimAssert rather than touching memory that
// is not an element. The capacity given at construction only reserves room:
// a new array is empty.
#ifndef DDB_PLATFORM_SERVICE_QELSIMARRAY_H_
#define DDB_PLATFORM_SERVICE_QELSIMARRAY_H_

#include <new>
#include <utility>

#include "platform/core/mem.h"
#include "platform/service/QELSimAssert.h"

template <class T>
class QELSimArray {
 public:
  explicit QELSimArray(int capacity = 0) : m_data(nullptr), m_Size(0), m_capacity(0) {
    Reserve(capacity);
  }
  QELSimArray(const QELSimArray& other) : m_data(nullptr), m_Size(0), m_capacity(0) {
    Reserve(other.m_Size);
    for (int i = 0; i < other.m_Size; ++i) Append(other.m_data[i]);
  }
  QELSimArray& operator=(const QELSimArray& other) {
    if (this != &other) {
      QELSimArray copy(other);
      Swap(copy);
    }
    return *this;
  }
  ~QELSimArray() {
    Clear();
    mem_Free(m_data);
  }

  int Size() const { return m_Size; }
  int Capacity() const { return m_capacity; }

  T& operator[](int i) {
    Check(i);
    return m_data[i];
  }
  const T& operator[](int i) const {
    Check(i);
    return m_data[i];
  }

  void Append(const T& value) {
    if (m_Size == m_capacity) Reserve(m_capacity < 4 ? 4 : 2 * m_capacity);
    new (m_data + m_Size) T(value);
    ++m_Size;
  }
  // Removes every element; keeps the room.
  void Clear() {
    for (int i = 0; i < m_Size; ++i) m_data[i].~T();
    m_Size = 0;
  }
  void Swap(QELSimArray& other) {
    std::swap(m_data, other.m_data);
    std::swap(m_Size, other.m_Size);
    std::swap(m_capacity, other.m_capacity);
  }

 private:
  void Check(int i) const {
    if (!(i >= 0 && i < m_Size)) {
      QELSimAssert::ReportValidationFailure("i >=0 && i < m_Size", __FILE__, __LINE__);
    }
  }
  void Reserve(int capacity) {
    if (capacity <= m_capacity) return;
    T* data = static_cast<T*>(mem_OperatorNewThrowBuiltin(mem_ArraySize(capacity, sizeof(T))));
    for (int i = 0; i < m_Size; ++i) {
      new (data + i) T(std::move(m_data[i]));
      m_data[i].~T();
    }
    mem_Free(m_data);
    m_data = data;
    m_capacity = capacity;
  }

  T* m_data;
  int m_Size;
  int m_capacity;
};

#endif  // DDB_PLATFORM_SERVICE_QELSIMARRAY_H_
