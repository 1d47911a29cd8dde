// ada_List<T>: a growable contiguous array that owns its elements.
//
// Storage is one block from mem_Realloc, so elements move bitwise when it
// grows (every element type tolerates that). Growth goes 16, then doubling.
// The list is exported for the twelve types of ada_element_types.h only; its
// member definitions live in the library.
//
// clear() looks at the count, not at the storage: a list that only reserved
// room keeps that room through clear() and destruction. This is deliberate.
#ifndef DDB_CONTAINERS_ADA_LIST_H_
#define DDB_CONTAINERS_ADA_LIST_H_

#include "containers/ada_element_types.h"
#include "platform/core/ddb_export.h"

template <class T>
class DDB_API ada_List {
 public:
  ada_List() : m_data(nullptr), m_capacity(0), m_count(0) {}
  // Copies the elements only: the copy's capacity is the source's count.
  ada_List(const ada_List<T>& other);
  ~ada_List();

  // Out-of-range indices print a message and yield slot i computed from the
  // storage, as for a valid index (a scratch slot when there is no storage).
  T& operator[](int i);
  const T& operator[](int i) const;

  void reserve(int n);
  void clear();
  void swap(ada_List<T>& other);
  // Appends n copies of x.
  void append(const T& x, int n);

  int count() const { return m_count; }
  int capacity() const { return m_capacity; }
  const T* data() const { return m_data; }

 private:
  ada_List& operator=(const ada_List&) = delete;
  void grow();

  T* m_data;
  int m_capacity;
  int m_count;
};

#define ADA_DECLARE_LIST(T) extern template class DDB_API ada_List<T>;
ADA_FOR_EACH_ELEMENT_TYPE(ADA_DECLARE_LIST)
#undef ADA_DECLARE_LIST

#endif  // DDB_CONTAINERS_ADA_LIST_H_
