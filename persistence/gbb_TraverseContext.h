// gbb_TraverseContext: the state of one path resolution.
//
// A link text such as "#/distributionService" or "alias:run1#/mesh" is
// resolved relative to a base path: the context holds the base path's index
// chain (top object first) and the parsed, normalised steps of the text, and
// hands them out one at a time as the root and then each object along the
// way take their step. Grammar: an optional root part, "#", then steps
// separated by "/"; every part splits at its first ":" into a name and an
// argument. ".." climbs, "." and empty steps vanish, "#/" starts at the sim.
#ifndef DDB_PERSISTENCE_GBB_TRAVERSECONTEXT_H_
#define DDB_PERSISTENCE_GBB_TRAVERSECONTEXT_H_

#include "containers/ada_List.h"
#include "persistence/gbb_Path.h"
#include "platform/core/cow_String.h"
#include "platform/core/ddb_export.h"

class gbb_Handle;
class gbb_TraverseContext;

// Shown every object a resolution reaches; returning false stops the walk there.
class gbb_TraverseVisitor {
 public:
  virtual bool Visit(gbb_TraverseContext& context, gbb_Handle handle) = 0;

 protected:
  ~gbb_TraverseVisitor() {}
};

class DDB_API gbb_TraverseContext {
 public:
  enum Flags {
    kNoLoad = 1,    // do not load objects that are not in memory
    kUseCache = 2,  // a link may answer from its cache
  };
  enum Kind { kNone = 0, kByNumber = 1, kByName = 2, kByNameWithArgument = 3 };
  enum Status { kOk = 0, kNothingThere = 3, kNotLoaded = 4 };

  gbb_TraverseContext(gbb_Path base, const char* text, unsigned flags,
                      gbb_TraverseVisitor* visitor);
  gbb_TraverseContext(gbb_Path base, const cow_String& text, unsigned flags,
                      gbb_TraverseVisitor* visitor);

  // Moves to the next step; false when there is none (and the walk ends).
  bool Advance();
  int CurrentKind() const;
  int CurrentIndex() const;
  cow_String CurrentName() const;
  cow_String CurrentArgument() const;
  int CurrentArgumentAsInt() const;
  // True when the current step is by name and the name is `name` exactly.
  bool CurrentNameIs(const char* name) const;

  int Status() const { return m_status; }
  void SetStatus(int status) { m_status = status; }
  unsigned Flags() const { return m_flags; }
  gbb_TraverseVisitor* Visitor() const { return m_visitor; }

  // The normalised chain and steps, for inspection.
  int IndexCount() const { return m_indices.count(); }
  int IndexAt(int i) const { return m_indices[i]; }
  int ComponentCount() const { return m_components.count() / 4; }
  cow_String ComponentName(int i) const;
  cow_String ComponentArgument(int i) const;

 private:
  gbb_TraverseContext(const gbb_TraverseContext&) = delete;
  gbb_TraverseContext& operator=(const gbb_TraverseContext&) = delete;

  void Build(gbb_Path base);
  // Offsets of component i's name and argument; argument begin -1 when absent.
  int NameBegin(int i) const { return m_components[4 * i]; }
  int NameEnd(int i) const { return m_components[4 * i + 1]; }
  int ArgBegin(int i) const { return m_components[4 * i + 2]; }
  int ArgEnd(int i) const { return m_components[4 * i + 3]; }
  bool InComponents() const { return m_phase == 1 && m_position >= 0; }

  cow_String m_text;
  ada_List<int> m_indices;
  ada_List<int> m_components;  // four offsets per step into m_text
  unsigned m_flags;
  int m_phase;
  int m_position;
  gbb_TraverseVisitor* m_visitor;
  int m_status;
};

#endif  // DDB_PERSISTENCE_GBB_TRAVERSECONTEXT_H_
