#include "containers/ada_MapInt.h"

#include "containers/ada_MapInsert.h"

template <class T>
ada_MapInt<T>::ada_MapInt() {}

template <class T>
ada_MapInt<T>::ada_MapInt(const ada_MapInt<T>& other) : m_tree(other.m_tree) {}

template <class T>
ada_MapInt<T>::~ada_MapInt() {}

template <class T>
int ada_MapInt<T>::count() const {
  return m_tree.Count();
}

template <class T>
bool ada_MapInt<T>::isMember(int key) const {
  return m_tree.IsMember(key);
}

template <class T>
T& ada_MapInt<T>::get(int key) {
  return m_tree.Get(key);
}

template <class T>
const T& ada_MapInt<T>::get(int key) const {
  return m_tree.ConstGet(key);
}

template <class T>
void ada_MapInt<T>::insert(int key, const T& value) {
  ada_MapInsert(m_tree, ada_MapIntKey(key), value);
}

template <class T>
void ada_MapInt<T>::remove(int key) {
  m_tree.Remove(key);
}

template <class T>
void ada_MapInt<T>::clear() {
  m_tree.Clear();
}

template <class T>
void ada_MapInt<T>::swap(ada_MapInt<T>& other) {
  m_tree.Swap(other.m_tree);
}

template <class T>
ada_MapIntIterator<T>::ada_MapIntIterator(const ada_MapInt<T>& map) : m_walk(map.tree()) {}

template <class T>
ada_MapIntIterator<T>::~ada_MapIntIterator() {}

template <class T>
void ada_MapIntIterator<T>::first() {
  m_walk.First();
}

template <class T>
void ada_MapIntIterator<T>::last() {
  m_walk.Last();
}

template <class T>
void ada_MapIntIterator<T>::next() {
  m_walk.Next();
}

template <class T>
void ada_MapIntIterator<T>::previous() {
  m_walk.Previous();
}

template <class T>
bool ada_MapIntIterator<T>::isDone() const {
  return m_walk.IsDone();
}

template <class T>
int ada_MapIntIterator<T>::key() const {
  return m_walk.CurrentKey().key;
}

template <class T>
const T& ada_MapIntIterator<T>::value() const {
  return m_walk.CurrentValue();
}

#define ADA_DEFINE_MAPINT(T)    \
  template class ada_MapInt<T>; \
  template class ada_MapIntIterator<T>;
ADA_FOR_EACH_ELEMENT_TYPE(ADA_DEFINE_MAPINT)
#undef ADA_DEFINE_MAPINT
