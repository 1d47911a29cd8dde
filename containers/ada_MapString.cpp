#include "containers/ada_MapString.h"

#include "containers/ada_MapInsert.h"
#include "containers/omi_Btree_impl.h"

template <class T>
ada_MapString<T>::ada_MapString() {}

template <class T>
ada_MapString<T>::ada_MapString(const ada_MapString<T>& other) : m_tree(other.m_tree) {}

template <class T>
ada_MapString<T>::~ada_MapString() {}

template <class T>
int ada_MapString<T>::count() const {
  return m_tree.Count();
}

template <class T>
bool ada_MapString<T>::isMember(const ada_string& key) const {
  return m_tree.IsMember(key);
}

template <class T>
T& ada_MapString<T>::get(const ada_string& key) {
  return m_tree.Get(key);
}

template <class T>
const T& ada_MapString<T>::get(const ada_string& key) const {
  return m_tree.ConstGet(key);
}

template <class T>
void ada_MapString<T>::insert(const ada_string& key, const T& value) {
  ada_MapInsert(m_tree, key, value);
}

template <class T>
void ada_MapString<T>::remove(const ada_string& key) {
  m_tree.Remove(key);
}

template <class T>
void ada_MapString<T>::clear() {
  m_tree.Clear();
}

template <class T>
void ada_MapString<T>::swap(ada_MapString<T>& other) {
  m_tree.Swap(other.m_tree);
}

template <class T>
ada_MapStringIterator<T>::ada_MapStringIterator(const ada_MapString<T>& map) : m_walk(map.tree()) {}

template <class T>
ada_MapStringIterator<T>::~ada_MapStringIterator() {}

template <class T>
void ada_MapStringIterator<T>::first() {
  m_walk.First();
}

template <class T>
void ada_MapStringIterator<T>::last() {
  m_walk.Last();
}

template <class T>
void ada_MapStringIterator<T>::next() {
  m_walk.Next();
}

template <class T>
void ada_MapStringIterator<T>::previous() {
  m_walk.Previous();
}

template <class T>
bool ada_MapStringIterator<T>::isDone() const {
  return m_walk.IsDone();
}

template <class T>
const ada_string& ada_MapStringIterator<T>::key() const {
  return m_walk.CurrentKey();
}

template <class T>
const T& ada_MapStringIterator<T>::value() const {
  return m_walk.CurrentValue();
}

#define ADA_DEFINE_MAPSTRING(T)    \
  template class ada_MapString<T>; \
  template class ada_MapStringIterator<T>;
ADA_FOR_EACH_ELEMENT_TYPE(ADA_DEFINE_MAPSTRING)
#undef ADA_DEFINE_MAPSTRING
