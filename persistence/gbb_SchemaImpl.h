// The implementation of a schema class family (XImpl derives from it): what
// every implementation holds, the value record's life (create, copy, load,
// save), and the common steps of Bind and Traverse. See gbb_SchemaFamily.h.
#ifndef DDB_PERSISTENCE_GBB_SCHEMAIMPL_H_
#define DDB_PERSISTENCE_GBB_SCHEMAIMPL_H_

#include "persistence/gbb_Class.h"
#include "persistence/gbb_Group.h"
#include "persistence/gbb_Handle.h"
#include "persistence/gbb_MemberRecords.h"
#include "persistence/gbb_MemoryStream.h"
#include "persistence/gbb_Path.h"
#include "persistence/gbb_SchemaAccess.h"
#include "persistence/gbb_SchemaSupport.h"
#include "persistence/gbb_TraverseContext.h"
#include "platform/core/aio_ostream.h"

// A class's open function: an implementation on a stored group.
template <class TImpl>
gbb_ObjectInterface* gbb_OpenStored(gbb_Path parent, int index, const gbb_Group& group,
                                    int traceFlag) {
  return new TImpl(nullptr, parent, index, group, traceFlag);
}

// What every implementation holds and does: its outer interface, path,
// group, trace flag, connection state and cached value record; loading,
// saving and copying the record; the class and traversal steps. XImpl
// derives from it and adds its sub-objects, arrays and constructors.
template <class F>
class gbb_SchemaImpl : public F::Outer, public F {
 public:
  typedef typename F::Record Record;

  // Open accesses keep the record they edit (and print that the object went
  // away under them); the cached record goes with the object otherwise.
  ~gbb_SchemaImpl() override {
    bool held = false;
    for (gbb_SchemaAccess<F>* access = m_accesses; access != nullptr; access = access->m_next) {
      if (access->m_members != nullptr)
        gbb_SchemaAccess<F>::Report(gbb_SchemaAccess<F>::kDestroyed);
      if (access->m_members == m_members) held = true;
      access->m_impl = nullptr;
    }
    if (!held) delete m_members;
  }

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
    if (status != 0) gbb_ReportLoadError(gbb_NamesOf<F>().impl, status, stream.Position());
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
        m_members(nullptr),
        m_accesses(nullptr) {}
  gbb_SchemaImpl(typename F::Outer* outer, gbb_Path parent, gbb_Root root, int index,
                 const gbb_Group& group, int traceFlag)
      : m_outer(outer != nullptr ? outer : this),
        m_path(parent, root, index),
        m_group(group),
        m_trace(traceFlag),
        m_connected(true),
        m_members(nullptr),
        m_accesses(nullptr) {}

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
  friend class gbb_SchemaAccess<F>;
  // The open accesses of this object, newest first (see gbb_SchemaAccess.h).
  gbb_SchemaAccess<F>* m_accesses;

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

#endif  // DDB_PERSISTENCE_GBB_SCHEMAIMPL_H_
