// The maps' insert-or-replace, shared by the int- and string-keyed maps.
//
// The tree's own Insert keeps a present key's value; the maps replace it.
// A string value is copied before the lookup and swapped into place, so the
// old text goes only once the new one exists. A set (ada_none values) has
// nothing to replace.
#ifndef DDB_CONTAINERS_ADA_MAPINSERT_H_
#define DDB_CONTAINERS_ADA_MAPINSERT_H_

#include "containers/omi_Btree.h"

template <class K, class V>
void ada_MapInsert(omi_Btree<K, V>& tree, const K& key, const V& value) {
  if (tree.Insert(key, value)) return;
  tree.Get(key) = value;
}

template <class K>
void ada_MapInsert(omi_Btree<K, ada_string>& tree, const K& key, const ada_string& value) {
  if (tree.Insert(key, value)) return;
  ada_string text(value);
  tree.Get(key).swap(text);
}

template <class K>
void ada_MapInsert(omi_Btree<K, ada_none>& tree, const K& key, const ada_none& value) {
  tree.Insert(key, value);
}

#endif  // DDB_CONTAINERS_ADA_MAPINSERT_H_
