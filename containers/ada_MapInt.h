// ada_MapInt<T>: an ordered int-keyed dictionary, and its iterator.
//
// A value wrapper over exactly one omi_Btree<ada_MapIntKey, T>. Insertion
// replaces, removal of an absent key is silent, and a lookup that misses
// returns the map's default slot, writable through the non-const get(): a
// write there changes what every later miss returns (and travels with the
// map through swap and copies). Test isMember to tell a stored default from
// a missing key. With ada_none values the map is a set.
//
// Keys are ordered by their 32-bit wrapping difference: ascending for keys
// less than 2^31 apart. Exported for the twelve types of ada_element_types.h.
#ifndef DDB_CONTAINERS_ADA_MAPINT_H_
#define DDB_CONTAINERS_ADA_MAPINT_H_

#include "containers/ada_element_types.h"
#include "containers/omi_Btree.h"
#include "platform/core/ddb_export.h"

template <class T>
class ada_MapIntIterator;

template <class T>
class ada_MapInt {
 public:
  ada_MapInt();
  // Deep copy with the same tree shape and default value.
  ada_MapInt(const ada_MapInt<T>& other);
  ~ada_MapInt();

  int count() const;
  bool isMember(int key) const;
  T& get(int key);
  const T& get(int key) const;
  void insert(int key, const T& value);
  void remove(int key);
  // Keeps the default value.
  void clear();
  // Constant time, allocates nothing: how a freshly built map is moved in.
  void swap(ada_MapInt<T>& other);

  // The tree underneath: for inspection, and for whole-map assignment
  // (a.tree() = b.tree()), which the map itself does not offer.
  const omi_Btree<ada_MapIntKey, T>& tree() const { return m_tree; }
  omi_Btree<ada_MapIntKey, T>& tree() { return m_tree; }

 private:
  ada_MapInt& operator=(const ada_MapInt&) = delete;

  omi_Btree<ada_MapIntKey, T> m_tree;
};

// Walks a map in key order. Done until first() or last(); any change to the
// map invalidates it until the next first() or last(). next(), previous(),
// key() and value() require a current pair.
template <class T>
class ada_MapIntIterator {
 public:
  explicit ada_MapIntIterator(const ada_MapInt<T>& map);
  ~ada_MapIntIterator();

  void first();
  void last();
  void next();
  void previous();
  bool isDone() const;
  int key() const;
  const T& value() const;

 private:
  omi_BtreeIterator<ada_MapIntKey, T> m_walk;
};

#define ADA_DECLARE_MAPINT(T)                  \
  extern template class DDB_API ada_MapInt<T>; \
  extern template class DDB_API ada_MapIntIterator<T>;
ADA_FOR_EACH_ELEMENT_TYPE(ADA_DECLARE_MAPINT)
#undef ADA_DECLARE_MAPINT

#endif  // DDB_CONTAINERS_ADA_MAPINT_H_
