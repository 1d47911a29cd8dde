// Persistent arrays: an append-only sequence of persistent objects of one
// class, owned by one object (the FE systems of a mesh, the modal events of
// a modal system).
//
// The array is a persistent object of its own with a path (the owner's
// path and the member's index), so that its elements have paths too. It is
// stored as a repository group: attribute "#size" and one element group per
// element, "0", "1", .... Elements are loaded lazily, one at a time, on first
// access; a connected array writes each added element at once.
//
// Template parameters: the element's handle T, its holder THolder, the
// repository class, and the owner's handle TOwner (which only tells
// instantiations apart). Each instantiation has its own class, with an empty
// identifier, registered nowhere.
#ifndef DDB_PERSISTENCE_GBB_ARRAY_H_
#define DDB_PERSISTENCE_GBB_ARRAY_H_

#include <algorithm>

#include "persistence/gbb_AutoArray.h"
#include "persistence/gbb_Class.h"
#include "persistence/gbb_Group.h"
#include "persistence/gbb_Handle.h"
#include "persistence/gbb_Path.h"
#include "persistence/gbb_TraverseContext.h"
#include "platform/core/aio_ostream.h"
#include "platform/core/mem.h"
#include "platform/hdf/hdf_File.h"

template <class T, class THolder, class TRepository, class TOwner>
class gbb_ArrayImpl;
template <class THandle, class TImpl, class TRepository>
class gbb_Holder;

template <class T, class THolder, class TRepository, class TOwner>
class gbb_Array {
 public:
  typedef gbb_ArrayImpl<T, THolder, TRepository, TOwner> Impl;
  typedef gbb_Holder<gbb_Array, Impl, TRepository> Holder;

  gbb_Array() : m_impl(nullptr) {}
  // Empty unless the handle carries an array of exactly this instantiation.
  gbb_Array(const gbb_Handle& handle);  // NOLINT: a checked conversion
  operator gbb_Handle() const { return MakeGenericHandle(); }
  bool operator!() const { return m_impl == nullptr; }

  int count() const;
  // The element with the given index, loaded on first access.
  T get(int index) const;
  // Appends the object the holder owns (the holder is left empty) and
  // returns its handle.
  T add(THolder holder) const;

  // A holder around a new, unconnected, empty array.
  static Holder New(int traceFlag);
  static gbb_Class ArrayClass();
  Impl* GetImpl() const { return m_impl; }

 private:
  friend Holder;
  explicit gbb_Array(Impl* impl) : m_impl(impl) {}
  gbb_Handle MakeGenericHandle() const {
    return m_impl != nullptr ? gbb_Handle(m_impl, ArrayClass()) : gbb_Handle();
  }

  Impl* m_impl;
};

template <class T, class THolder, class TRepository, class TOwner>
class gbb_ArrayImpl : public mem_AllocationOperators {
 public:
  // A new array: no repository, not connected, no place yet.
  explicit gbb_ArrayImpl(int traceFlag)
      : m_trace(traceFlag), m_connected(false), m_path(gbb_Path(), gbb_Root(), -1), m_elements(0) {}
  // A stored array: "#size" empty holders, each loaded on first use.
  gbb_ArrayImpl(gbb_Path parent, int index, const TRepository& repository, int traceFlag)
      : m_repository(repository),
        m_trace(traceFlag),
        m_connected(true),
        m_path(parent, gbb_Root(), index),
        m_elements(0) {
    // Empty holders are zero bytes: the slots come zeroed from the allocator,
    // so that opening an array costs the same whatever its size, since only
    // the elements asked for are read. Exactly n slots, not the growth rule
    // of append.
    m_elements.assignZeroed(m_repository.ReadSize());
  }
  // Closes the elements that hold an object, first first, and frees the
  // other slots unread: closing costs what was loaded, not the length. In
  // index order, the elements' groups leave HDF5's tables of open objects
  // (ordered by identifier and by address, which as a rule grow with the
  // index) at their heads, the cheapest place. The slots are all zero bytes
  // again afterwards, so that the allocator can keep their block for the
  // next array opened.
  ~gbb_ArrayImpl() {
    int* filled = m_filled.data();
    std::sort(filled, filled + m_filled.count());
    for (int k = 0; k < m_filled.count(); ++k) {
      if (filled[k] >= m_elements.count()) continue;
      m_elements[filled[k]].Close();
      m_elements.zeroSlot(filled[k]);
    }
    m_elements.releaseZeroed();
  }

  void SetPath(gbb_Path parent, int index) { m_path.Set(parent, gbb_Root(), index); }
  gbb_Path Path() const { return &m_path; }
  bool IsConnected() const { return m_connected; }
  int count() const { return m_elements.count(); }
  // Element slots the array has room for without growing.
  int Capacity() const { return m_elements.capacity(); }

  T get(int index) {
    if (index < 0 || index >= m_elements.count()) {
      aio_cerr.print("**ERROR gbb_ArrayImpl::get: index out of range: ")
          .print_int(index)
          .print(", length = ")
          .print_int(m_elements.count())
          .print("\n");
      return T();
    }
    Load(index);
    return m_elements[index].Get();
  }

  T add(THolder& holder) {
    if (holder.IsEmpty()) aio_cerr.print("**ERROR gbb_ArrayImpl::add: inserting a NULL item\n");
    int i = m_elements.count();
    m_filled.append(i, 1);
    m_elements.append(holder, 1);
    THolder& slot = m_elements[i];
    // An empty slot goes through the same steps: its holder says what it cannot do.
    slot.SetPath(&m_path, i);
    if (m_connected) {
      hdf_WriteBatch transaction(m_repository.Platform().Id());  // element, sub-tree and size
      gbb_Group group = m_repository.CreateElement(i);
      slot.Bind(group);
      m_repository.WriteSize(m_elements.count());
    }
    return slot.Get();
  }

  void Bind(const TRepository& repository) {
    if (m_trace != 0) aio_cerr.print("gbb_ArrayImpl::Bind\n");
    if (m_connected) {
      aio_cerr.print("** ERROR gbb_ArrayImpl::Bind: called for a connected object\n");
      return;
    }
    m_repository = repository;
    for (int i = 0; i < m_elements.count(); ++i) {
      // An empty slot is bound too: its holder says that it is empty.
      m_elements[i].Bind(m_repository.CreateElement(i));
    }
    m_repository.WriteSize(m_elements.count());
    m_connected = true;
  }

  // The array's step of a path resolution: only steps by number within
  // range lead on, into the element (loaded first unless loading is off).
  gbb_Handle Traverse(gbb_TraverseContext& context) {
    int i = context.CurrentIndex();
    if (context.CurrentKind() != gbb_TraverseContext::kByNumber || i < 0 ||
        i >= m_elements.count()) {
      context.SetStatus(gbb_TraverseContext::kNothingThere);
      return gbb_Handle();
    }
    if ((context.Flags() & gbb_TraverseContext::kNoLoad) == 0) Load(i);
    if (m_elements[i].IsEmpty()) {
      context.SetStatus(gbb_TraverseContext::kNotLoaded);
      return gbb_Handle();
    }
    return m_elements[i].Traverse(context);
  }

  // Whether element i is in memory (for tests and tools).
  bool IsLoaded(int index) const {
    return index >= 0 && index < m_elements.count() && m_elements[index].IsResolved();
  }

 private:
  gbb_ArrayImpl(const gbb_ArrayImpl&) = delete;
  gbb_ArrayImpl& operator=(const gbb_ArrayImpl&) = delete;

  // Opens element i from its group when its holder is not resolved yet,
  // connected or not. An unconnected array has no group to open: the
  // holder's class look-up then reaches no snapshot and says so, and the
  // slot stays unresolved.
  void Load(int index) {
    THolder& slot = m_elements[index];
    if (slot.IsResolved()) return;
    // Noted first, so that no object is ever in a slot the list misses.
    bool wasEmpty = slot.IsEmpty();
    if (wasEmpty) m_filled.append(index, 1);
    slot = THolder::Open(&m_path, index, m_repository.OpenElement(index), m_trace);
    if (wasEmpty && slot.IsEmpty() && !slot.IsResolved()) {
      // Nothing there: the slot is left as it was, zero bytes, to be tried again.
      m_elements.zeroSlot(index);
      m_filled.truncate(1);
    }
  }

  TRepository m_repository;
  int m_trace;
  bool m_connected;
  gbb_PathImpl m_path;
  gbb_AutoArray<THolder, TOwner> m_elements;
  // The indices of the slots that were added or loaded, in that order: the
  // only ones that may hold an object or other non-zero bytes, and so the
  // only ones the destructor has to close.
  gbb_AutoArray<int, TOwner> m_filled;
};

// The array holder: owns one array implementation.
template <class THandle, class TImpl, class TRepository>
class gbb_Holder {
 public:
  gbb_Holder() : m_impl(nullptr) {}
  explicit gbb_Holder(TImpl* impl) : m_impl(impl) {}
  // Ownership moves, as with every holder.
  gbb_Holder(gbb_Holder& other) : m_impl(other.m_impl) { other.m_impl = nullptr; }
  gbb_Holder(gbb_Holder&& other) noexcept : gbb_Holder(static_cast<gbb_Holder&>(other)) {}
  gbb_Holder& operator=(gbb_Holder&& other) noexcept {
    if (this != &other) {
      Close();
      m_impl = other.m_impl;
      other.m_impl = nullptr;
    }
    return *this;
  }
  ~gbb_Holder() { Close(); }

  static gbb_Holder Open(gbb_Path parent, int index, const TRepository& repository, int traceFlag) {
    return gbb_Holder(new TImpl(parent, index, repository, traceFlag));
  }

  bool IsEmpty() const { return m_impl == nullptr; }
  THandle Get() const { return THandle(m_impl); }

  void Bind(const TRepository& repository) {
    if (m_impl == nullptr) {
      aio_cerr.print("**ERROR gbb_Holder::Bind: called on an empty holder\n");
      return;
    }
    m_impl->Bind(repository);
  }
  void SetPath(gbb_Path parent, int index) {
    if (m_impl == nullptr) {
      aio_cerr.print("**ERROR gbb_Holder::SetPath: called on an empty holder\n");
      return;
    }
    m_impl->SetPath(parent, index);
  }

  // The array as a step of a path resolution.
  gbb_Handle Traverse(gbb_TraverseContext& context) {
    gbb_Handle handle = Get();
    gbb_TraverseVisitor* visitor = context.Visitor();
    if (visitor != nullptr && !visitor->Visit(context, handle)) return handle;
    if (!context.Advance()) return handle;
    if (m_impl == nullptr) {
      context.SetStatus(gbb_TraverseContext::kNothingThere);
      return gbb_Handle();
    }
    return m_impl->Traverse(context);
  }

  void Close() {
    delete m_impl;
    m_impl = nullptr;
  }

 private:
  gbb_Holder& operator=(const gbb_Holder&) = delete;

  TImpl* m_impl;
};

template <class T, class THolder, class TRepository, class TOwner>
gbb_Array<T, THolder, TRepository, TOwner>::gbb_Array(const gbb_Handle& handle) : m_impl(nullptr) {
  if (handle.Class().IsA(ArrayClass())) m_impl = static_cast<Impl*>(handle.Pointer());
}

template <class T, class THolder, class TRepository, class TOwner>
int gbb_Array<T, THolder, TRepository, TOwner>::count() const {
  if (m_impl == nullptr) {
    aio_cerr.print("**ERROR gbb_Array::count: called on an empty handle\n");
    return 0;
  }
  return m_impl->count();
}

template <class T, class THolder, class TRepository, class TOwner>
T gbb_Array<T, THolder, TRepository, TOwner>::get(int index) const {
  if (m_impl == nullptr) {
    aio_cerr.print("**ERROR gbb_Array::get: called on an empty handle\n");
    return T();
  }
  return m_impl->get(index);
}

template <class T, class THolder, class TRepository, class TOwner>
T gbb_Array<T, THolder, TRepository, TOwner>::add(THolder holder) const {
  if (m_impl == nullptr) {
    aio_cerr.print("**ERROR gbb_Array::add: called on an empty handle\n");
    return T();  // the offered object is closed with `holder`
  }
  return m_impl->add(holder);
}

template <class T, class THolder, class TRepository, class TOwner>
typename gbb_Array<T, THolder, TRepository, TOwner>::Holder
gbb_Array<T, THolder, TRepository, TOwner>::New(int traceFlag) {
  return Holder(new Impl(traceFlag));
}

template <class T, class THolder, class TRepository, class TOwner>
gbb_Class gbb_Array<T, THolder, TRepository, TOwner>::ArrayClass() {
  static gbb_ClassDescriptor descriptor;
  return gbb_DescribeClass(descriptor, "", nullptr, nullptr);
}

#endif  // DDB_PERSISTENCE_GBB_ARRAY_H_
