// Collections and ordered sets of the simulation-database service.
//
// A collection is a number of members, 0 .. size-1 (nodes, DOFs ...); an
// ordered set picks members of one collection in a given order (a solver's
// DOF order, for instance). Both are made once and never change.
//
// Every call checks its identifier: a context that is not open, or minor
// parts that name nothing in it, give one message and an empty result
// (0, a null identifier, nothing written). Making objects needs a context
// opened for update; each completed call is durable (flushed) on return.
#ifndef DDB_PLATFORM_SERVICE_QELSIMCOLLECTION_H_
#define DDB_PLATFORM_SERVICE_QELSIMCOLLECTION_H_

#include <functional>

#include "platform/core/ddb_export.h"
#include "platform/hdf/hdf_Dataset.h"
#include "platform/hdf/hdf_Group.h"
#include "platform/service/QELSimIDs.h"

class DDB_API QELSimCollectionRef {
 public:
  // A new collection of `size` members (size >= 0) in the context's file.
  static QELSimCollectionID Create(QELSimContextID context, int size);

  explicit QELSimCollectionRef(QELSimCollectionID collection);
  QELSimCollectionID ID() const { return m_id; }
  int Size() const;
  // A new ordered set of `count` distinct members of this collection, in the
  // order given.
  QELSimCSetID CreateOrderedCSet(const int* members, int count);

 private:
  bool Resolve(const char* operation) const;

  QELSimCollectionID m_id;
  mutable int m_state;  // 0 not looked up, 1 found, -1 reported missing
  mutable int m_size;
  mutable hdf_Group m_group;
};

class DDB_API QELSimCSet {
 public:
  explicit QELSimCSet(QELSimCSetID set);
  QELSimCSetID ID() const { return m_id; }
  int Size() const;
  // The Size() members in their order.
  void OrderedMembers(int* out) const;
  // Size() and OrderedMembers() in one pass over the set's bytes: the
  // members into `allocate(count)`, a buffer of the caller's for all of
  // them, checked as they are read. False after a message when the set is
  // refused (the buffer, when made, is then partly written) or `allocate`
  // gives none.
  bool ReadMembers(const std::function<int*(int count)>& allocate) const;

 private:
  bool Resolve(const char* operation) const;

  QELSimCSetID m_id;
  mutable int m_state;  // as in QELSimCollectionRef
  mutable int m_size;
  mutable hdf_Dataset m_members;
};

#endif  // DDB_PLATFORM_SERVICE_QELSIMCOLLECTION_H_
