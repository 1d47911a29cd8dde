// gbb_AutoArray<T, TOwner>: an owning buffer whose copy is a transfer.
//
// It keeps the bytes of a memory stream and the element holders of a
// persistent array. Like the suite's other auto-pointers, "copying" moves:
// the source is left with no data, count 0 and capacity 0, so a buffer can be
// handed out of a function by value and there is only ever one owner. The
// transfer record gbb_AutoArrayMoveSrc carries the three fields in flight.
//
// Storage is one block from mem_Realloc; elements move bitwise when it grows
// (bytes and holders both tolerate that). Growth goes 16, then doubling.
// Destruction looks at the count, not at the storage: a buffer that only
// reserved room keeps that room, the same deliberate rule as ada_List::clear.
//
// Appending a holder takes it over: the first new slot adopts the given
// holder's object and flags bitwise, the source is reset to an empty holder,
// and any further slots receive empty (default-constructed) holders. Plain
// values (trivially copyable types) are copied into every new slot.
//
// TOwner only tags the instantiation, so that each owner has a type of its own.
#ifndef DDB_PERSISTENCE_GBB_AUTOARRAY_H_
#define DDB_PERSISTENCE_GBB_AUTOARRAY_H_

#include <cassert>
#include <cstring>
#include <new>
#include <type_traits>

#include "platform/core/mem.h"

template <class T, class TOwner>
class gbb_AutoArray {
 public:
  // The three fields of an array in transfer; owns nothing by itself.
  struct gbb_AutoArrayMoveSrc {
    T* data;
    int count;
    int capacity;
  };

  explicit gbb_AutoArray(int n = 0) : m_data(nullptr), m_count(0), m_capacity(0) { reserve(n); }
  gbb_AutoArray(gbb_AutoArray& other) : m_data(nullptr), m_count(0), m_capacity(0) {
    TakeOver(other.Release());
  }
  gbb_AutoArray(gbb_AutoArrayMoveSrc source) : m_data(nullptr), m_count(0), m_capacity(0) {
    TakeOver(source);
  }
  // Both assignments first destroy the own contents, as the destructor does,
  // then take over. Assigning an array to itself therefore empties it.
  gbb_AutoArray& operator=(gbb_AutoArray& other) {
    Destroy();
    TakeOver(other.Release());
    return *this;
  }
  gbb_AutoArray& operator=(gbb_AutoArrayMoveSrc source) {
    Destroy();
    TakeOver(source);
    return *this;
  }
  ~gbb_AutoArray() { Destroy(); }

  // Hands the contents out as a record and leaves this array empty.
  operator gbb_AutoArrayMoveSrc() { return Release(); }

  // No bounds test: the caller owns the index.
  T& operator[](int i) { return m_data[i]; }
  const T& operator[](int i) const { return m_data[i]; }

  int count() const { return m_count; }
  int capacity() const { return m_capacity; }
  T* data() { return m_data; }
  const T* data() const { return m_data; }

  // Makes room for n slots in all; never shrinks.
  void reserve(int n) {
    if (m_capacity >= n) return;
    m_data = static_cast<T*>(mem_Realloc(m_data, mem_ArraySize(n, sizeof(T))));
    m_capacity = n;
  }

  // Appends n copies of a plain value.
  void append(const T& x, int n) {
    static_assert(std::is_trivially_copyable<T>::value, "holders are taken over, not copied");
    if (n <= 0) return;
    T value(x);  // x may live in the storage that growing moves
    Fit(n);
    for (int i = 0; i < n; ++i) m_data[m_count + i] = value;
    m_count += n;
  }

  // Appends n slots; for holders the first slot takes x over (x is left
  // empty) and the others are empty holders.
  void append(T& x, int n) {
    if constexpr (std::is_trivially_copyable<T>::value) {
      append(static_cast<const T&>(x), n);
    } else {
      if (n <= 0) return;
      Fit(n);
      std::memcpy(static_cast<void*>(&m_data[m_count]), static_cast<const void*>(&x), sizeof(T));
      new (&x) T();  // ownership moved on: reset without closing
      for (int i = 1; i < n; ++i) new (&m_data[m_count + i]) T();
      m_count += n;
    }
  }

  // Makes an array that has no storage yet one of n empty slots, exactly n
  // (like reserve(n)): for element types whose default value is all zero
  // bytes (holders: no object, no flags). The block comes zeroed from the
  // allocator, so that a large one costs nothing until its slots are used,
  // and opening a stored array of a million elements touches none of them.
  void assignZeroed(int n) {
    if (n <= 0 || m_data != nullptr) return;
    m_data = static_cast<T*>(mem_OperatorNewZeroedThrow(mem_ArraySize(n, sizeof(T))));
    m_count = m_capacity = n;
  }

  // Returns slot i to all zero bytes, the form of an empty holder, without
  // running a destructor: for a holder its owner has closed already.
  void zeroSlot(int i) { std::memset(static_cast<void*>(&m_data[i]), 0, sizeof(T)); }

  // Frees the storage without running any element's destructor: for slots
  // that are all zero bytes again (empty holders, nothing to close), so that
  // letting go of a large array of slots never read costs nothing per slot.
  // A block that has no room beyond its slots, as assignZeroed makes it, is
  // all zero then, and the allocator may keep it for the next assignZeroed.
  void releaseZeroed() {
    if (m_count == m_capacity) {
      assert(AllZero());
      mem_FreeZeroed(m_data);
    } else {
      mem_Free(m_data);
    }
    m_data = nullptr;
    m_count = 0;
    m_capacity = 0;
  }

  // Appends n plain values in one copy.
  void appendRange(const T* values, int n) {
    static_assert(std::is_trivially_copyable<T>::value, "only for plain values");
    if (n <= 0) return;
    Fit(n);
    std::memcpy(static_cast<void*>(m_data + m_count), values, sizeof(T) * static_cast<size_t>(n));
    m_count += n;
  }

  // Destroys the last n elements, last first; n >= count empties the array.
  void truncate(int n) {
    if (n <= 0) return;
    if (n >= m_count) {
      Destroy();
      return;
    }
    DestroyRange(m_count - n, m_count);
    m_count -= n;
  }

  // Destroys n elements from index i (n clamped to the tail) and closes the gap.
  void remove(int i, int n) {
    if (i < 0 || i >= m_count || n <= 0) return;
    if (n > m_count - i) n = m_count - i;
    DestroyRange(i, i + n);
    std::memmove(static_cast<void*>(m_data + i), static_cast<const void*>(m_data + i + n),
                 sizeof(T) * static_cast<size_t>(m_count - i - n));
    m_count -= n;
  }

 private:
  gbb_AutoArrayMoveSrc Release() {
    gbb_AutoArrayMoveSrc record = {m_data, m_count, m_capacity};
    m_data = nullptr;
    m_count = 0;
    m_capacity = 0;
    return record;
  }

  void TakeOver(gbb_AutoArrayMoveSrc& source) {
    m_data = source.data;
    m_count = source.count;
    m_capacity = source.capacity;
    source.data = nullptr;
    source.count = 0;
    source.capacity = 0;
  }
  void TakeOver(gbb_AutoArrayMoveSrc&& source) { TakeOver(source); }

  bool AllZero() const {
    const unsigned char* bytes = reinterpret_cast<const unsigned char*>(m_data);
    size_t size = sizeof(T) * static_cast<size_t>(m_capacity);
    for (size_t i = 0; i < size; ++i) {
      if (bytes[i] != 0) return false;
    }
    return true;
  }

  void Destroy() {
    if (m_count == 0) return;
    DestroyRange(0, m_count);
    mem_Free(m_data);
    m_data = nullptr;
    m_count = 0;
    m_capacity = 0;
  }

  void DestroyRange(int begin, int end) {
    if constexpr (!std::is_trivially_destructible<T>::value) {
      for (int i = end - 1; i >= begin; --i) m_data[i].~T();
    }
  }

  // Runs the growth step (16, then doubling) until n more slots fit.
  void Fit(int n) {
    long long need = static_cast<long long>(m_count) + n;
    if (need <= m_capacity) return;
    long long capacity = m_capacity;
    while (capacity < need) capacity = capacity == 0 ? 16 : 2 * capacity;
    if (capacity > 0x7FFFFFFF) {
      if (need > 0x7FFFFFFF) throw mem_Exhausted();
      capacity = 0x7FFFFFFF;
    }
    reserve(static_cast<int>(capacity));
  }

  T* m_data;
  int m_count;
  int m_capacity;
};

#endif  // DDB_PERSISTENCE_GBB_AUTOARRAY_H_
