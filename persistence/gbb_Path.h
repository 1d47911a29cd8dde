// Where a persistent object is: its parent, its number within the parent,
// and, for a top object (a sim), the root that holds it.
//
// Objects never point at each other; they only know their place. A gbb_Path
// designates the path record embedded in an object (so renumbering a parent
// is seen by its whole subtree), and a gbb_Root the database root at the top.
#ifndef DDB_PERSISTENCE_GBB_PATH_H_
#define DDB_PERSISTENCE_GBB_PATH_H_

#include "platform/core/ddb_export.h"
#include "platform/core/mem.h"

class gbb_Handle;
class gbb_PathImpl;
class gbb_RootImpl;
class gbb_TraverseContext;

// The root of every path: the database root that holds the open sims.
// Its one operation takes the first step of a path resolution.
class gbb_RootImpl : public mem_AllocationOperatorsTiny {
 public:
  virtual gbb_Handle Traverse(gbb_TraverseContext& context) = 0;

 protected:
  ~gbb_RootImpl() {}
};

class DDB_API gbb_Root {
 public:
  gbb_Root() : m_impl(nullptr) {}
  gbb_Root(gbb_RootImpl* impl) : m_impl(impl) {}  // NOLINT: a root pointer is a root

  bool IsEmpty() const { return m_impl == nullptr; }
  gbb_RootImpl* Impl() const { return m_impl; }
  // Lets the root take the first step; an empty root prints a message and
  // yields an empty handle.
  gbb_Handle Traverse(gbb_TraverseContext& context) const;

  friend bool operator==(gbb_Root a, gbb_Root b) { return a.m_impl == b.m_impl; }

 private:
  gbb_RootImpl* m_impl;
};

class DDB_API gbb_Path {
 public:
  gbb_Path() : m_impl(nullptr) {}
  gbb_Path(const gbb_PathImpl* impl) : m_impl(impl) {}  // NOLINT: designates the record

  bool IsEmpty() const { return m_impl == nullptr; }
  const gbb_PathImpl* Impl() const { return m_impl; }
  // The number within the parent; -1 for an empty path.
  int Index() const;
  // The parent's path; empty for an empty path or a top object.
  gbb_Path Parent() const;
  // The root field of the topmost record; empty for an empty path.
  gbb_Root Root() const;

 private:
  const gbb_PathImpl* m_impl;
};

// The record embedded in every implementation object.
class gbb_PathImpl {
 public:
  gbb_PathImpl() : m_parent(), m_root(), m_index(-1) {}
  gbb_PathImpl(gbb_Path parent, gbb_Root root, int index)
      : m_parent(parent), m_root(root), m_index(index) {}

  gbb_Path Parent() const { return m_parent; }
  gbb_Root Root() const { return m_root; }
  int Index() const { return m_index; }
  void Set(gbb_Path parent, gbb_Root root, int index) {
    m_parent = parent;
    m_root = root;
    m_index = index;
  }

 private:
  gbb_Path m_parent;
  gbb_Root m_root;
  int m_index;
};

inline int gbb_Path::Index() const {
  return m_impl != nullptr ? m_impl->Index() : -1;
}

inline gbb_Path gbb_Path::Parent() const {
  return m_impl != nullptr ? m_impl->Parent() : gbb_Path();
}

inline gbb_Root gbb_Path::Root() const {
  for (const gbb_PathImpl* p = m_impl; p != nullptr; p = p->Parent().Impl()) {
    if (!p->Root().IsEmpty()) return p->Root();
  }
  return gbb_Root();
}

#endif  // DDB_PERSISTENCE_GBB_PATH_H_
