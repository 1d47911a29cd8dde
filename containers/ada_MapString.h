// ada_MapString<T>: an ordered dictionary keyed by ada_string, and its iterator.
//
// The same policy as ada_MapInt (insert replaces, silent removal, writable
// default slot, ada_none values make a set), over one tree keyed by an owned
// ada_string. A node keeps the key object stored first. Keys are ordered by
// their unsigned bytes, a prefix before its extensions: "", "A", "Z", "a",
// "ab". Exported for the twelve types of ada_element_types.h; the tree under
// it is internal to the library.
#ifndef DDB_CONTAINERS_ADA_MAPSTRING_H_
#define DDB_CONTAINERS_ADA_MAPSTRING_H_

#include "containers/ada_element_types.h"
#include "containers/ada_string.h"
#include "containers/omi_Btree.h"
#include "platform/core/ddb_export.h"

template <class T>
class ada_MapString {
 public:
  ada_MapString();
  // Deep copy with the same tree shape and default value.
  ada_MapString(const ada_MapString<T>& other);
  ~ada_MapString();

  int count() const;
  bool isMember(const ada_string& key) const;
  T& get(const ada_string& key);
  const T& get(const ada_string& key) const;
  void insert(const ada_string& key, const T& value);
  void remove(const ada_string& key);
  // Keeps the default value.
  void clear();
  // Constant time, allocates nothing: how a freshly built map is moved in.
  void swap(ada_MapString<T>& other);

  // The tree underneath, for inspection through its inline accessors and,
  // inside the library, for whole-map assignment.
  const omi_Btree<ada_string, T>& tree() const { return m_tree; }
  omi_Btree<ada_string, T>& tree() { return m_tree; }

 private:
  ada_MapString& operator=(const ada_MapString&) = delete;

  omi_Btree<ada_string, T> m_tree;
};

// Walks a map in key order; the same contract as ada_MapIntIterator. key()
// refers to the key inside the map's node.
template <class T>
class ada_MapStringIterator {
 public:
  explicit ada_MapStringIterator(const ada_MapString<T>& map);
  ~ada_MapStringIterator();

  void first();
  void last();
  void next();
  void previous();
  bool isDone() const;
  const ada_string& key() const;
  const T& value() const;

 private:
  omi_BtreeIterator<ada_string, T> m_walk;
};

#define ADA_DECLARE_MAPSTRING(T)                  \
  extern template class DDB_API ada_MapString<T>; \
  extern template class DDB_API ada_MapStringIterator<T>;
ADA_FOR_EACH_ELEMENT_TYPE(ADA_DECLARE_MAPSTRING)
#undef ADA_DECLARE_MAPSTRING

#endif  // DDB_CONTAINERS_ADA_MAPSTRING_H_
