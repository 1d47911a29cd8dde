// gbb_SchemaSnapshot: the classes a database knows, by identifier.
//
// Each sim fills one when it is constructed (it is never stored) and its
// objects reach it through the link "#/schemaSnapshot": a stored object is
// opened by looking up the identifier recorded in its group. The snapshot
// lives inside the sim's implementation; the handle is one pointer and
// travels in a gbb_Handle as that pointer.
#ifndef DDB_PERSISTENCE_GBB_SCHEMASNAPSHOT_H_
#define DDB_PERSISTENCE_GBB_SCHEMASNAPSHOT_H_

#include "containers/omi_Btree.h"
#include "persistence/gbb_Class.h"
#include "persistence/gbb_Handle.h"
#include "persistence/gbb_Path.h"
#include "platform/core/ddb_export.h"

class DDB_API gbb_SchemaSnapshotImpl {
 public:
  gbb_SchemaSnapshotImpl();
  ~gbb_SchemaSnapshotImpl();

  // The snapshot's place: the sim's path as parent, index 2.
  gbb_PathImpl& PathRecord() { return m_path; }
  // Adds the class under its identifier; an identifier already present keeps
  // its first class.
  void Register(gbb_Class cls);
  // The class registered under `id`, or the null class.
  gbb_Class GetClass(const gbb_ClassID& id) const;
  int Count() const;

 private:
  gbb_SchemaSnapshotImpl(const gbb_SchemaSnapshotImpl&) = delete;
  gbb_SchemaSnapshotImpl& operator=(const gbb_SchemaSnapshotImpl&) = delete;

  gbb_PathImpl m_path;
  omi_Btree<gbb_ClassID, gbb_Class> m_classes;
};

class DDB_API gbb_SchemaSnapshot {
 public:
  gbb_SchemaSnapshot() : m_impl(nullptr) {}
  explicit gbb_SchemaSnapshot(gbb_SchemaSnapshotImpl* impl) : m_impl(impl) {}
  // Empty unless the handle's class is (derived from) this class.
  gbb_SchemaSnapshot(const gbb_Handle& handle);  // NOLINT: a checked conversion
  operator gbb_Handle() const;
  bool operator!() const { return m_impl == nullptr; }

  // The registered class, or the null class; an empty handle prints a message.
  gbb_Class GetClass(const gbb_ClassID& id) const;
  gbb_SchemaSnapshotImpl* Impl() const { return m_impl; }

  // "com.trevolo.SchemaSnapshot": no base, cannot be opened.
  static gbb_Class StaticClass();

 private:
  gbb_SchemaSnapshotImpl* m_impl;
};

#endif  // DDB_PERSISTENCE_GBB_SCHEMASNAPSHOT_H_
