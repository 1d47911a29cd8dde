// The editing object of a schema class family (XAccess derives from it):
// edits a copy or the cached value record, and commit() stores it. Also the
// family's message names (gbb_NamesOf). See gbb_SchemaFamily.h.
#ifndef DDB_PERSISTENCE_GBB_SCHEMAACCESS_H_
#define DDB_PERSISTENCE_GBB_SCHEMAACCESS_H_

#include "persistence/gbb_SchemaSupport.h"
#include "platform/core/aio_ostream.h"

template <class F>
const gbb_FamilyNames& gbb_NamesOf() {
  static const gbb_FamilyNames names(F::kName);
  return names;
}

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

#endif  // DDB_PERSISTENCE_GBB_SCHEMAACCESS_H_
