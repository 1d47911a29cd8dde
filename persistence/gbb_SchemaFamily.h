// The part of every schema class family that does not depend on its members.
//
// A schema class X comes as a family of seven classes: the handle X, the
// owning holder XHolder and its move token XHolderMoveSrc, the editing object
// XAccess, the value record XMembers, the implementation XImpl and the
// abstract interface XInterface. The generator writes per class only what
// needs the class's member names (the value record, getters and setters,
// the member lists that saving, loading and traversal walk, sub-object and
// array accessors) and the few lines where a derived class or the root
// object differs. Everything else is written here once, as templates over
// the class's family record, which the generator also writes:
//
//   struct XFamily {
//     typedef X Handle;           typedef XHolder Holder;
//     typedef XImpl Object;       typedef XInterface Outer;
//     typedef XMembers Record;    // gbb_Members when X has no simple member
//     static constexpr const char kName[] = "X";
//     enum MemberIndex { kA = 0, ... };  // the member indices
//   };
//
// The templates are implicitly instantiated where they are used (in the
// library and in clients alike); they call only the generated classes and
// the library's exported functions. Every message keeps the class's own
// names ("XHolder::Bind", "XImpl::LoadMembers", ...), made from kName once.
#ifndef DDB_PERSISTENCE_GBB_SCHEMAFAMILY_H_
#define DDB_PERSISTENCE_GBB_SCHEMAFAMILY_H_

#include <type_traits>

#include "containers/ada_MapInt.h"
#include "containers/ada_MapString.h"
#include "containers/ada_string.h"
#include "persistence/gbb_Class.h"
#include "persistence/gbb_Group.h"
#include "persistence/gbb_Handle.h"
#include "persistence/gbb_HolderBase.h"
#include "persistence/gbb_MemberRecords.h"
#include "persistence/gbb_MemoryStream.h"
#include "persistence/gbb_Path.h"
#include "persistence/gbb_SchemaSupport.h"
#include "persistence/gbb_TraverseContext.h"
#include "platform/core/aio_ostream.h"

template <class F>
class gbb_SchemaAccess;
template <class F>
class gbb_SchemaHolder;
template <class F>
class gbb_SchemaImpl;

template <class F>
const gbb_FamilyNames& gbb_NamesOf() {
  static const gbb_FamilyNames names(F::kName);
  return names;
}

// The interface of the object a handle designates, when the handle's class
// is `TOuter`'s class or derived from it; null otherwise.
template <class TOuter>
TOuter* gbb_OuterOf(const gbb_Handle& handle) {
  if (!handle.Class().IsA(TOuter::StaticClass())) return nullptr;
  return dynamic_cast<TOuter*>(static_cast<gbb_ObjectInterface*>(handle.Pointer()));
}

// A class's open function: an implementation on a stored group.
template <class TImpl>
gbb_ObjectInterface* gbb_OpenStored(gbb_Path parent, int index, const gbb_Group& group,
                                    int traceFlag) {
  return new TImpl(nullptr, parent, index, group, traceFlag);
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

// ----- the handle ---------------------------------------------------------------

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

// ----- the holder ---------------------------------------------------------------

// The owning holder (see gbb_HolderBase.h): moved, never copied. XHolder
// derives from it and adds only what is particular to derived classes and
// to the root.
template <class F>
class gbb_SchemaHolder : public gbb_HolderBase<typename F::Object> {
  typedef typename F::Object ImplType;
  typedef typename F::Holder Holder;
  typedef gbb_HolderBase<ImplType> Base;

 public:
  typedef gbb_HolderToken<ImplType> Token;

  gbb_SchemaHolder() {}
  gbb_SchemaHolder(Token source) { this->Adopt(source); }  // NOLINT
  // Ownership moves out of `other`, which is left empty.
  gbb_SchemaHolder(gbb_SchemaHolder& other) : Base() {
    Token token = other.Release();
    this->Adopt(token);
  }
  Holder& operator=(Token source) {
    this->Adopt(source);
    return static_cast<Holder&>(*this);
  }
  Holder& operator=(gbb_SchemaHolder& other) {
    if (this != &other) {
      Token token = other.Release();
      this->Adopt(token);
    }
    return static_cast<Holder&>(*this);
  }
  operator Token() { return this->Release(); }  // NOLINT

  typename F::Handle Get() const { return F::Handle::Of(this->m_object); }
  void Bind(const gbb_Group& group) {
    if (!this->CheckNotEmpty(gbb_NamesOf<F>().holder, "Bind")) return;
    if (Supplied()) {
      this->m_object->ImplType::Bind(group);
    } else if (this->m_object->Interface() != nullptr) {
      this->m_object->Interface()->Bind(group);
    }
  }
  void SetPath(gbb_Path parent, int index) {
    if (!this->CheckNotEmpty(gbb_NamesOf<F>().holder, "SetPath")) return;
    if (Supplied()) {
      this->m_object->ImplType::SetPath(parent, index);
    } else if (this->m_object->Interface() != nullptr) {
      this->m_object->Interface()->SetPath(parent, index);
    }
  }
  gbb_Handle Traverse(gbb_TraverseContext& context) {
    return this->TraverseStep(context, gbb_NamesOf<F>().holder);
  }

  // The object stored in `group`, of the class recorded there (this class or
  // one derived from it), opened through the sim's schema snapshot.
  static Holder Open(gbb_Path parent, int index, const gbb_Group& group, int traceFlag) {
    bool failed = false;
    gbb_ObjectInterface* object = gbb_OpenByClass(
        parent, index, group, traceFlag, F::Outer::StaticClass(), gbb_NamesOf<F>().holder, &failed);
    if (failed) return Holder();
    auto* outer = dynamic_cast<typename F::Outer*>(object);
    if (outer == nullptr) {
      delete object;
      return Holder(Token(nullptr, 1));
    }
    return Holder(Token(ImplOf(outer), 1));
  }
  // An implementation on a stored group, made for a supplied outer interface.
  static Holder Open(typename F::Outer* outer, gbb_Path parent, int index, const gbb_Group& group,
                     int traceFlag) {
    return Holder(Token(new ImplType(outer, parent, index, group, traceFlag), 3));
  }

 protected:
  gbb_SchemaHolder(ImplType* object, unsigned flags) : Base(object, flags) {}
  bool Supplied() const { return (this->m_flags & Base::kOuterSupplied) != 0; }

  // The holder of a derived class's base part; on an empty holder the
  // message "XHolder::<operation>: called on an empty holder" and an empty value.
  auto& BasePart(const char* operation) const {
    typedef std::decay_t<decltype(this->m_object->Subobject())> BaseHolder;
    if (this->m_object == nullptr) {
      aio_cerr.print("**ERROR ")
          .print(gbb_NamesOf<F>().holder)
          .print("::")
          .print(operation)
          .print(": called on an empty holder\n");
      return gbb_EmptyValue<BaseHolder>();
    }
    return this->m_object->Subobject();
  }
  // Moves the whole object out as a holder of its base part; closing that
  // holder destroys the whole object.
  auto ReleaseAsBase() {
    typedef typename std::decay_t<decltype(this->m_object->Subobject())>::Token BaseToken;
    if (this->m_object == nullptr) return BaseToken(nullptr, 0);
    auto* part = this->m_object->Subobject().Object();
    this->Release();  // the part's holder now owns the whole object
    return BaseToken(part, 1);
  }

 private:
  static ImplType* ImplOf(typename F::Outer* outer) {
    if constexpr (F::kDerived) {
      return outer->DerivedImpl().m_derived;
    } else {
      return outer->Impl().m_impl;
    }
  }
};

// ----- the access ---------------------------------------------------------------

// Edits the value record; edits are stored by commit() and dropped otherwise.
template <class F>
class gbb_SchemaAccess {
  typedef typename F::Object Object;
  typedef typename F::Record Record;

 public:
  explicit gbb_SchemaAccess(Object* impl) : m_impl(impl), m_members(nullptr) {}
  explicit gbb_SchemaAccess(const typename F::Handle& handle) : gbb_SchemaAccess(handle.Impl()) {}
  ~gbb_SchemaAccess() {
    if (m_members == nullptr || m_members == &Scratch()) return;
    if (m_impl != nullptr && m_impl->CachedMembers() == m_members) {
      m_impl->SetCachedMembers(nullptr);
    }
    delete m_members;
  }
  gbb_SchemaAccess(const gbb_SchemaAccess&) = delete;
  gbb_SchemaAccess& operator=(const gbb_SchemaAccess&) = delete;

  Record& members() {
    if (m_impl == nullptr) {
      aio_cerr.print("**ERROR ")
          .print(gbb_NamesOf<F>().access)
          .print("::members: called on an empty object\n");
      m_members = &Scratch();
      return *m_members;
    }
    if (m_members != nullptr) return *m_members;
    if (m_impl->IsConnected()) {
      m_members = &m_impl->Members();
    } else if (m_impl->CachedMembers() != nullptr) {
      m_members = m_impl->CopyMembers();
    } else {
      m_members = m_impl->CreateMembers();
      m_impl->SetCachedMembers(m_members);
    }
    return *m_members;
  }

  void commit() {
    if (m_members != nullptr && m_impl != nullptr && m_members != &Scratch()) {
      if (m_members != m_impl->CachedMembers()) {
        delete m_impl->CachedMembers();
        m_impl->SetCachedMembers(m_members);
      }
      if (m_impl->IsConnected()) {
        if (m_impl->TraceFlag() != 0) {
          const gbb_FamilyNames& names = gbb_NamesOf<F>();
          aio_cerr.print(names.impl).print("::CommitMembers: saving ").print(names.members);
          aio_cerr.print("\n");
        }
        m_impl->SaveMembers();
      }
    }
    m_members = nullptr;
  }

 private:
  // What an access without an object edits: a record no object reads.
  static Record& Scratch() {
    static Record scratch;
    return scratch;
  }

  Object* m_impl;
  Record* m_members;
};

// ----- the implementation -------------------------------------------------------

// What every implementation holds and does: its outer interface, path,
// group, trace flag, connection state and cached value record; loading,
// saving and copying the record; the class and traversal steps. XImpl
// derives from it and adds its sub-objects, arrays and constructors.
template <class F>
class gbb_SchemaImpl : public F::Outer, public F {
 public:
  typedef typename F::Record Record;

  ~gbb_SchemaImpl() override { delete m_members; }

  gbb_Class Class() override { return F::Outer::StaticClass(); }

  typename F::Outer* Interface() const { return m_outer; }
  gbb_Path Path() const { return &m_path; }
  bool IsConnected() const { return m_connected; }
  int TraceFlag() const { return m_trace; }

  // The cached value record, loaded or created on first use.
  Record& Members() {
    if (m_members == nullptr) m_members = m_connected ? LoadMembers() : CreateMembers();
    return *m_members;
  }
  Record* CachedMembers() const { return m_members; }
  void SetCachedMembers(Record* members) { m_members = members; }
  Record* CreateMembers() {
    Trace("::CreateMembers: creating ");
    return static_cast<typename F::Object*>(this)->NewMembers();
  }
  Record* CopyMembers() {
    Trace("::CopyMembers: copying ");
    return new Record(*m_members);
  }
  Record* LoadMembers() {
    Trace("::LoadMembers: loading ");
    gbb_MembersBuffer bytes(gbb_FetchMembers(m_group));
    Record* members = new Record();
    gbb_MemoryStream stream(bytes, gbb_ResolveService(&m_path).Context());
    int status = gbb_ReadMemberRecords(stream, [&stream, members](int index) {
      // A record of an index that is not a simple member of the class is skipped.
      Record::Visit(*members, [&stream, index](int member, auto& value) {
        if (member == index) gbb_ReadMemberValue(stream, value);
      });
    });
    if (status != 0) gbb_ReportLoadError(gbb_NamesOf<F>().impl, status);
    return members;
  }
  void SaveMembers() {
    gbb_MemoryStream stream(gbb_ResolveService(&m_path).Context());
    Record::Visit(static_cast<const Record&>(Members()), [&stream](int index, const auto& value) {
      gbb_WriteMemberRecord(stream, index, value);
    });
    gbb_StoreMembers(m_group, stream, gbb_NamesOf<F>().impl);
  }
  void BindMembers() {
    if (m_members == nullptr) m_members = CreateMembers();
    Trace("::BindMembers: saving ");
    m_group.CreateDataset(kMembersDataset);
    SaveMembers();
  }

 protected:
  // A new object (not connected) or one on a stored group (connected).
  gbb_SchemaImpl(typename F::Outer* outer, gbb_Path parent, gbb_Root root, int index, int traceFlag)
      : m_outer(outer != nullptr ? outer : this),
        m_path(parent, root, index),
        m_trace(traceFlag),
        m_connected(false),
        m_members(nullptr) {}
  gbb_SchemaImpl(typename F::Outer* outer, gbb_Path parent, gbb_Root root, int index,
                 const gbb_Group& group, int traceFlag)
      : m_outer(outer != nullptr ? outer : this),
        m_path(parent, root, index),
        m_group(group),
        m_trace(traceFlag),
        m_connected(true),
        m_members(nullptr) {}

  // The record of a new object; XImpl hides it when the class has required members.
  Record* NewMembers() { return new Record(); }

  typename F::Handle Self() { return F::Handle::Of(static_cast<typename F::Object*>(this)); }

  // The first steps of Bind: the trace line, and the refusal of a connected
  // object ("** ERROR XImpl::Bind: called for a connected object").
  bool BeginBind() {
    if (m_trace != 0) aio_cerr.print(gbb_NamesOf<F>().impl).print("::Bind\n");
    if (m_connected) {
      aio_cerr.print("** ERROR ")
          .print(gbb_NamesOf<F>().impl)
          .print("::Bind: called for a connected object\n");
      return false;
    }
    return true;
  }
  // Bind's step onto `group`: the group and the class identifier.
  void BindGroup(const gbb_Group& group) {
    m_group = group;
    m_group.WriteClassID(Class().ClassID());
  }

  // Whether the traversal's current step names the member (by index or name).
  static bool Selects(gbb_TraverseContext& context, int index, const char* name) {
    int kind = context.CurrentKind();
    return (kind == gbb_TraverseContext::kByNumber && context.CurrentIndex() == index) ||
           (kind == gbb_TraverseContext::kByName && context.CurrentNameIs(name));
  }
  // The traversal step into a sub-object or an array member: `load` (the
  // member's accessor) runs first unless the traversal must not load; a
  // sub-object not resolved, or an array not opened, answers "not loaded".
  template <class THolder, class TLoad>
  gbb_Handle EnterSubobject(gbb_TraverseContext& context, THolder& holder, TLoad load) {
    Load(context, load);
    return Enter(context, holder, holder.IsResolved());
  }
  template <class THolder, class TLoad>
  gbb_Handle EnterArray(gbb_TraverseContext& context, THolder& holder, TLoad load) {
    Load(context, load);
    return Enter(context, holder, !holder.IsEmpty());
  }
  static gbb_Handle NothingThere(gbb_TraverseContext& context) {
    context.SetStatus(gbb_TraverseContext::kNothingThere);
    return gbb_Handle();
  }

  typename F::Outer* m_outer;
  gbb_PathImpl m_path;
  gbb_Group m_group;
  int m_trace;
  bool m_connected;
  Record* m_members;

 private:
  gbb_SchemaImpl(const gbb_SchemaImpl&) = delete;
  gbb_SchemaImpl& operator=(const gbb_SchemaImpl&) = delete;

  void Trace(const char* step) {
    if (m_trace == 0) return;
    const gbb_FamilyNames& names = gbb_NamesOf<F>();
    aio_cerr.print(names.impl).print(step).print(names.members).print("\n");
  }
  template <class TLoad>
  void Load(gbb_TraverseContext& context, TLoad load) {
    if ((context.Flags() & gbb_TraverseContext::kNoLoad) != 0) return;
    (static_cast<typename F::Object*>(this)->*load)();
  }
  template <class THolder>
  static gbb_Handle Enter(gbb_TraverseContext& context, THolder& holder, bool present) {
    if (!present) {
      context.SetStatus(gbb_TraverseContext::kNotLoaded);
      return gbb_Handle();
    }
    return holder.Traverse(context);
  }
};

#endif  // DDB_PERSISTENCE_GBB_SCHEMAFAMILY_H_
