// The handle of a schema class family (X derives from gbb_SchemaHandle, or
// from gbb_DerivedHandle when X extends another schema class): a pointer to
// the implementation, never owning, and the guarded steps of the generated
// getters and setters. See gbb_SchemaFamily.h.
#ifndef DDB_PERSISTENCE_GBB_SCHEMAHANDLE_H_
#define DDB_PERSISTENCE_GBB_SCHEMAHANDLE_H_

#include "containers/ada_MapInt.h"
#include "containers/ada_MapString.h"
#include "containers/ada_string.h"
#include "persistence/gbb_Handle.h"
#include "persistence/gbb_HolderBase.h"
#include "persistence/gbb_Path.h"
#include "persistence/gbb_SchemaAccess.h"
#include "persistence/gbb_SchemaSupport.h"

template <class F>
class gbb_SchemaHolder;
template <class F>
class gbb_SchemaImpl;

// The interface of the object a handle designates, when the handle's class
// is `TOuter`'s class or derived from it; null otherwise.
template <class TOuter>
TOuter* gbb_OuterOf(const gbb_Handle& handle) {
  if (!handle.Class().IsA(TOuter::StaticClass())) return nullptr;
  return dynamic_cast<TOuter*>(static_cast<gbb_ObjectInterface*>(handle.Pointer()));
}

// Sets a member as a setter does: strings and maps are copied aside and
// swapped in, other values assigned.
template <class T>
void gbb_AssignMember(T& slot, const T& value) {
  slot = value;
}
inline void gbb_AssignMember(ada_string& slot, const ada_string& value) {
  ada_string copy(value);
  slot.swap(copy);
}
template <class T>
void gbb_AssignMember(ada_MapInt<T>& slot, const ada_MapInt<T>& value) {
  ada_MapInt<T> copy(value);
  slot.swap(copy);
}
template <class T>
void gbb_AssignMember(ada_MapString<T>& slot, const ada_MapString<T>& value) {
  ada_MapString<T> copy(value);
  slot.swap(copy);
}

// The steps of a handle's getters and setters, on the implementation it
// designates (null for an empty handle, which prints
// "**ERROR X::<name>: called on an empty handle" first).
template <class F, class T>
const T& gbb_GetMember(typename F::Object* impl, T F::Record::*field, const char* name) {
  if (impl == nullptr) {
    gbb_ReportEmptyHandle(F::kName, name);
    return gbb_EmptyValue<T>();
  }
  return impl->Members().*field;
}

// Sets and commits one simple member through an access, which reports an
// empty object itself.
template <class F, class T>
void gbb_SetMember(typename F::Object* impl, T F::Record::*field, const char* name,
                   const T& value) {
  if (impl == nullptr) gbb_ReportEmptyHandle(F::kName, name);
  gbb_SchemaAccess<F> access(impl);
  gbb_AssignMember(access.members().*field, value);
  access.commit();
}

// An implementation step (a sub-object, an array, a service), or R() on an
// empty handle.
template <class F, class R, class TStep, class... A>
R gbb_ReachMember(typename F::Object* impl, const char* name, TStep step, A&&... args) {
  if (impl == nullptr) {
    gbb_ReportEmptyHandle(F::kName, name);
    return R();
  }
  return (impl->*step)(static_cast<A&&>(args)...);
}

// The handle of a class without a schema base: a pointer to the
// implementation, never owning. Every operation on an empty handle prints
// "**ERROR X::<operation>: called on an empty handle" first.
template <class F>
class gbb_SchemaHandle {
 public:
  typedef typename F::Object Object;

  gbb_SchemaHandle() : m_impl(nullptr) {}
  gbb_SchemaHandle(const gbb_Handle& handle) : m_impl(nullptr) {  // NOLINT: a checked conversion
    if (typename F::Outer* outer = gbb_OuterOf<typename F::Outer>(handle)) {
      m_impl = outer->Impl().m_impl;
    }
  }
  operator gbb_Handle() const { return gbb_OuterHandle(m_impl); }
  bool operator!() const { return m_impl == nullptr; }
  // Whether both handles designate the same object (neither is dereferenced).
  bool IsSame(const gbb_SchemaHandle& other) const { return m_impl == other.m_impl; }

 protected:
  explicit gbb_SchemaHandle(Object* impl) : m_impl(impl) {}
  Object* Impl() const { return m_impl; }

  gbb_Path Path() const { return Reach("Path", &Object::Path); }

  template <class T>
  const T& Get(T F::Record::*field, const char* name) const {
    return gbb_GetMember<F>(m_impl, field, name);
  }
  template <class T>
  void Set(T F::Record::*field, const char* name, const T& value) const {
    gbb_SetMember<F>(m_impl, field, name, value);
  }
  template <class R, class C, class... P, class... A>
  R Reach(const char* name, R (C::*step)(P...) const, A&&... args) const {
    return gbb_ReachMember<F, R>(m_impl, name, step, static_cast<A&&>(args)...);
  }
  template <class R, class C, class... P, class... A>
  R Reach(const char* name, R (C::*step)(P...), A&&... args) const {
    return gbb_ReachMember<F, R>(m_impl, name, step, static_cast<A&&>(args)...);
  }

  static typename F::Handle Of(Object* impl) {
    typename F::Handle handle;
    handle.m_impl = impl;
    return handle;
  }

  friend class gbb_SchemaAccess<F>;
  friend class gbb_SchemaHolder<F>;
  friend class gbb_SchemaImpl<F>;
  Object* m_impl;
};

// The handle of a class derived from the schema class `TBase`: the base
// handle designates the object's TBase part, m_derived the whole object.
template <class F, class TBase>
class gbb_DerivedHandle : public TBase {
 public:
  typedef typename F::Object Object;

  gbb_DerivedHandle() : m_derived(nullptr) {}
  gbb_DerivedHandle(const gbb_Handle& handle) : m_derived(nullptr) {  // NOLINT: checked
    if (typename F::Outer* outer = gbb_OuterOf<typename F::Outer>(handle)) {
      *this = outer->DerivedImpl();
    }
  }
  gbb_DerivedHandle(const TBase& part)  // NOLINT: a checked conversion
      : gbb_DerivedHandle(static_cast<gbb_Handle>(part)) {}
  operator gbb_Handle() const { return gbb_OuterHandle(m_derived); }
  bool operator!() const { return m_derived == nullptr; }
  // Whether both handles designate the same object (neither is dereferenced).
  bool IsSame(const gbb_DerivedHandle& other) const { return m_derived == other.m_derived; }

 protected:
  explicit gbb_DerivedHandle(Object* impl) : m_derived(impl) {
    if (impl != nullptr) TBase::operator=(impl->Impl());
  }
  Object* Impl() const { return m_derived; }

  gbb_Path Path() const { return Reach("Path", &Object::Path); }

  template <class T>
  const T& Get(T F::Record::*field, const char* name) const {
    return gbb_GetMember<F>(m_derived, field, name);
  }
  template <class T>
  void Set(T F::Record::*field, const char* name, const T& value) const {
    gbb_SetMember<F>(m_derived, field, name, value);
  }
  template <class R, class C, class... P, class... A>
  R Reach(const char* name, R (C::*step)(P...) const, A&&... args) const {
    return gbb_ReachMember<F, R>(m_derived, name, step, static_cast<A&&>(args)...);
  }
  template <class R, class C, class... P, class... A>
  R Reach(const char* name, R (C::*step)(P...), A&&... args) const {
    return gbb_ReachMember<F, R>(m_derived, name, step, static_cast<A&&>(args)...);
  }

  static typename F::Handle Of(Object* impl) { return typename F::Handle(impl); }

  friend class gbb_SchemaAccess<F>;
  friend class gbb_SchemaHolder<F>;
  friend class gbb_SchemaImpl<F>;
  Object* m_derived;
};

#endif  // DDB_PERSISTENCE_GBB_SCHEMAHANDLE_H_
