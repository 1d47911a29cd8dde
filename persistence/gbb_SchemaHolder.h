// The owning holder of a schema class family (XHolder derives from it):
// moves, binding and placing through the outer interface, opening a stored
// object by its recorded class, and a derived class's base part. See
// gbb_SchemaFamily.h and, for the ownership contract, gbb_HolderBase.h.
#ifndef DDB_PERSISTENCE_GBB_SCHEMAHOLDER_H_
#define DDB_PERSISTENCE_GBB_SCHEMAHOLDER_H_

#include <type_traits>
#include "persistence/gbb_Group.h"
#include "persistence/gbb_HolderBase.h"
#include "persistence/gbb_Path.h"
#include "persistence/gbb_SchemaAccess.h"
#include "persistence/gbb_SchemaSupport.h"
#include "persistence/gbb_TraverseContext.h"
#include "platform/core/aio_ostream.h"

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
      return Holder(Token(nullptr, Base::kResolved));
    }
    return Holder(Token(ImplOf(outer), Base::kResolved));
  }
  // An implementation on a stored group, made for a supplied outer interface.
  static Holder Open(typename F::Outer* outer, gbb_Path parent, int index, const gbb_Group& group,
                     int traceFlag) {
    return Holder(Token(new ImplType(outer, parent, index, group, traceFlag),
                        Base::kResolved | Base::kOuterSupplied));
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
    return BaseToken(part, Base::kResolved);
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

#endif  // DDB_PERSISTENCE_GBB_SCHEMAHOLDER_H_
