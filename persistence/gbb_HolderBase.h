// The ownership contract of every persistent object's holder.
//
// A holder is the single owner of an implementation object: a pointer and a
// flags word (1: resolved, its content is valid even if null; 2: the object
// was made around a caller-supplied outer interface). Ownership leaves a
// holder only as a token {pointer, flags}; a holder adopts a token. A schema
// class's XHolder derives from gbb_HolderBase<XImpl> and XHolderMoveSrc is
// gbb_HolderToken<XImpl>, so the contract is written once here.
//
// TImpl must offer Interface() (its outer interface), Traverse() and
// Class() through that interface.
#ifndef DDB_PERSISTENCE_GBB_HOLDERBASE_H_
#define DDB_PERSISTENCE_GBB_HOLDERBASE_H_

#include "persistence/gbb_Class.h"
#include "persistence/gbb_Handle.h"
#include "persistence/gbb_TraverseContext.h"
#include "platform/core/aio_ostream.h"

// The handle of an implementation's outer interface, with that interface's
// class (an empty handle for no implementation or no interface).
template <class TImpl>
gbb_Handle gbb_OuterHandle(TImpl* impl) {
  if (impl == nullptr || impl->Interface() == nullptr) return gbb_Handle();
  auto* outer = impl->Interface();
  return gbb_Handle(static_cast<gbb_ObjectInterface*>(outer), outer->Class());
}

template <class TImpl>
struct gbb_HolderToken {
  gbb_HolderToken(TImpl* o, unsigned f) : object(o), flags(f) {}
  TImpl* object;
  unsigned flags;
};

template <class TImpl>
class gbb_HolderBase {
 public:
  enum { kResolved = 1, kOuterSupplied = 2 };

  TImpl* Object() const { return m_object; }
  unsigned Flags() const { return m_flags; }
  bool IsResolved() const { return (m_flags & kResolved) != 0; }
  bool IsEmpty() const { return m_object == nullptr; }

  // Destroys the owned object: the implementation itself when it was made
  // for a supplied outer interface, otherwise its outer interface (which, for
  // a derived system's part, is the whole derived object).
  void Close() {
    TImpl* object = m_object;
    unsigned flags = m_flags;
    m_object = nullptr;
    m_flags = 0;
    if (object == nullptr) return;
    if ((flags & kOuterSupplied) != 0) {
      delete static_cast<gbb_ObjectInterface*>(object);
    } else {
      delete static_cast<gbb_ObjectInterface*>(object->Interface());
    }
  }

 protected:
  gbb_HolderBase() : m_object(nullptr), m_flags(0) {}
  gbb_HolderBase(TImpl* object, unsigned flags) : m_object(object), m_flags(flags) {}
  ~gbb_HolderBase() { Close(); }

  // Moves the pair out, leaving this holder empty and unresolved.
  gbb_HolderToken<TImpl> Release() {
    gbb_HolderToken<TImpl> token(m_object, m_flags);
    m_object = nullptr;
    m_flags = 0;
    return token;
  }
  // Closes what this holder owns, then takes the token's pair and clears it.
  void Adopt(gbb_HolderToken<TImpl>& token) {
    if (token.object == m_object && token.object != nullptr) return;
    Close();
    m_object = token.object;
    m_flags = token.flags;
    token.object = nullptr;
    token.flags = 0;
  }

  // The handle of the owned object: its outer interface and that interface's class.
  gbb_Handle MakeHandle() const { return gbb_OuterHandle(m_object); }

  // The holder's step of a path resolution. A part of a derived object (flag
  // 2) takes the current step itself; any other object is shown to the
  // visitor, and a further step goes to its outer interface.
  gbb_Handle TraverseStep(gbb_TraverseContext& context, const char* holderName) {
    if ((m_flags & kOuterSupplied) != 0) {
      if (m_object == nullptr) {
        aio_cerr.print("**ERROR ")
            .print(holderName)
            .print("::Traverse: called on an empty base holder\n");
        return gbb_Handle();
      }
      return m_object->Traverse(context);
    }
    gbb_Handle handle = MakeHandle();
    gbb_TraverseVisitor* visitor = context.Visitor();
    if (visitor != nullptr && !visitor->Visit(context, handle)) return handle;
    if (!context.Advance()) return handle;
    if (m_object == nullptr || m_object->Interface() == nullptr) {
      context.SetStatus(gbb_TraverseContext::kNothingThere);
      return gbb_Handle();
    }
    return m_object->Interface()->Traverse(context);
  }

  // "called on an empty holder" messages of Bind and SetPath.
  bool CheckNotEmpty(const char* holderName, const char* operation) const {
    if (m_object != nullptr) return true;
    aio_cerr.print("**ERROR ")
        .print(holderName)
        .print("::")
        .print(operation)
        .print(": called on an empty holder\n");
    return false;
  }

  TImpl* m_object;
  unsigned m_flags;

 private:
  gbb_HolderBase(const gbb_HolderBase&) = delete;
  gbb_HolderBase& operator=(const gbb_HolderBase&) = delete;
};

#endif  // DDB_PERSISTENCE_GBB_HOLDERBASE_H_
