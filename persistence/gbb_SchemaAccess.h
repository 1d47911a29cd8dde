// The editing object of a schema class family (XAccess derives from it):
// edits a copy or the cached value record, and commit() stores it. Also the
// family's message names (gbb_NamesOf). See gbb_SchemaFamily.h.
//
// Several accesses may be open on one object at once, beside setters (each
// an access of its own), getters, Bind and the closing of the object's
// holder. The record an access edits is therefore shared bookkeeping: every
// open access of an object is linked into a list the object keeps, and a
// value record leaves memory only when neither the object's cache nor any
// open access refers to it. An access whose record stops being the stored
// one under it (another commit replaces it, another access discards it, the
// object is destroyed) keeps editing its own record, which a later commit
// stores, and the line "**ERROR XAccess: an open access's working record was
// replaced" (or "...'s object was destroyed") is printed where it happened,
// after whatever the operation prints itself.
#ifndef DDB_PERSISTENCE_GBB_SCHEMAACCESS_H_
#define DDB_PERSISTENCE_GBB_SCHEMAACCESS_H_

#include "persistence/gbb_SchemaSupport.h"
#include "platform/core/aio_ostream.h"

template <class F>
const gbb_FamilyNames& gbb_NamesOf() {
  static const gbb_FamilyNames names(F::kName);
  return names;
}

template <class F>
class gbb_SchemaImpl;

// Edits the value record; edits are stored by commit() and dropped otherwise.
template <class F>
class gbb_SchemaAccess {
  typedef typename F::Object Object;
  typedef typename F::Record Record;

 public:
  explicit gbb_SchemaAccess(Object* impl)
      : m_impl(impl), m_members(nullptr), m_prev(nullptr), m_next(nullptr) {
    if (m_impl != nullptr) {
      m_next = Base()->m_accesses;
      if (m_next != nullptr) m_next->m_prev = this;
      Base()->m_accesses = this;
    }
  }
  explicit gbb_SchemaAccess(const typename F::Handle& handle) : gbb_SchemaAccess(handle.Impl()) {}
  // Without commit the edits are dropped; a working record that was the
  // cached one is discarded, so the next read reloads it.
  ~gbb_SchemaAccess() {
    Record* members = Working();
    m_members = nullptr;
    if (members != nullptr) {
      if (m_impl != nullptr && Base()->m_members == members) {
        Base()->m_members = nullptr;
        ReportHolders(members, kReplaced);
      }
      Forget(members);
    }
    Unlink();
  }
  gbb_SchemaAccess(const gbb_SchemaAccess&) = delete;
  gbb_SchemaAccess& operator=(const gbb_SchemaAccess&) = delete;

  Record& members() {
    if (m_impl == nullptr) {
      aio_cerr.print("**ERROR ")
          .print(gbb_NamesOf<F>().access)
          .print("::members: called on an empty object\n");
      if (m_members == nullptr) m_members = &Scratch();
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
    Record* members = Working();
    m_members = nullptr;
    if (members == nullptr) return;
    if (m_impl == nullptr) {  // the object was destroyed under this access
      Forget(members);
      return;
    }
    Record* replaced = Base()->m_members;
    Base()->m_members = members;
    int holders = 0;
    if (replaced != members && replaced != nullptr) {
      holders = CountHolders(replaced);
      if (holders == 0) delete replaced;
    }
    if (m_impl->IsConnected()) {
      if (m_impl->TraceFlag() != 0) {
        const gbb_FamilyNames& names = gbb_NamesOf<F>();
        aio_cerr.print(names.impl).print("::CommitMembers: saving ").print(names.members);
        aio_cerr.print("\n");
      }
      m_impl->SaveMembers();
    }
    for (int i = 0; i < holders; ++i) Report(kReplaced);
  }

 private:
  friend class gbb_SchemaImpl<F>;
  enum Event { kReplaced, kDestroyed };

  // What an access without an object edits: a record no object reads.
  static Record& Scratch() {
    static Record scratch;
    return scratch;
  }
  static void Report(Event event) {
    aio_cerr.print("**ERROR ")
        .print(gbb_NamesOf<F>().access)
        .print(event == kReplaced ? ": an open access's working record was replaced\n"
                                  : ": an open access's object was destroyed\n");
  }

  // The object's framework part (its cache and list of accesses).
  gbb_SchemaImpl<F>* Base() const { return m_impl; }
  // The record this access owns a share of (not the scratch record).
  Record* Working() const { return m_members == &Scratch() ? nullptr : m_members; }
  gbb_SchemaAccess* First() {
    gbb_SchemaAccess* first = this;
    while (first->m_prev != nullptr) first = first->m_prev;
    return first;
  }
  // The other open accesses of the object that edit `members`.
  int CountHolders(const Record* members) {
    int count = 0;
    for (gbb_SchemaAccess* a = First(); a != nullptr; a = a->m_next) {
      if (a != this && a->m_members == members) ++count;
    }
    return count;
  }
  void ReportHolders(const Record* members, Event event) {
    for (int n = CountHolders(members); n > 0; --n) Report(event);
  }
  // This access no longer edits `members`: it is destroyed unless it is
  // still cached or another access edits it.
  void Forget(Record* members) {
    if (m_impl != nullptr && Base()->m_members == members) return;
    if (CountHolders(members) == 0) delete members;
  }
  void Unlink() {
    if (m_prev != nullptr) {
      m_prev->m_next = m_next;
    } else if (m_impl != nullptr) {
      Base()->m_accesses = m_next;
    }
    if (m_next != nullptr) m_next->m_prev = m_prev;
    m_prev = m_next = nullptr;
  }

  Object* m_impl;
  Record* m_members;
  // The object's other open accesses (a list the object heads while it lives).
  gbb_SchemaAccess* m_prev;
  gbb_SchemaAccess* m_next;
};

#endif  // DDB_PERSISTENCE_GBB_SCHEMAACCESS_H_
