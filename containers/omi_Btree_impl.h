// Member definitions of omi_Btree and its node and iterator.
//
// Included by library code that instantiates the tree for a key of its own
// (with that key's BtreeCompare overload in scope). Clients of the installed
// library use the exported instantiations declared in omi_Btree.h instead.
#ifndef DDB_CONTAINERS_OMI_BTREE_IMPL_H_
#define DDB_CONTAINERS_OMI_BTREE_IMPL_H_

#include <new>
#include <utility>

#include "containers/omi_Btree.h"
#include "platform/core/mem.h"

// ---- node ----

template <class K, class V>
omi_BtreeNode<K, V>::omi_BtreeNode(const K& key, const V& value)
    : m_value(value), m_key(key), m_left(nullptr), m_right(nullptr), m_height(0) {}

template <class K, class V>
omi_BtreeNode<K, V>::omi_BtreeNode(const omi_BtreeNode& other)
    : m_value(other.m_value),
      m_key(other.m_key),
      m_left(nullptr),
      m_right(nullptr),
      m_height(other.m_height) {
  if (other.m_left != nullptr) m_left = NewCopy(*other.m_left);
  if (other.m_right != nullptr) {
    try {
      m_right = NewCopy(*other.m_right);
    } catch (...) {
      // The destructor will not run for a half-built node.
      Delete(m_left);
      throw;
    }
  }
}

template <class K, class V>
omi_BtreeNode<K, V>::~omi_BtreeNode() {
  Delete(m_left);
  Delete(m_right);
}

template <class K, class V>
omi_BtreeNode<K, V>* omi_BtreeNode<K, V>::New(const K& key, const V& value) {
  void* block = mem_OperatorNewThrow(sizeof(omi_BtreeNode));
  try {
    return new (block) omi_BtreeNode(key, value);
  } catch (...) {
    mem_Free(block);
    throw;
  }
}

template <class K, class V>
omi_BtreeNode<K, V>* omi_BtreeNode<K, V>::NewCopy(const omi_BtreeNode& other) {
  void* block = mem_OperatorNewThrow(sizeof(omi_BtreeNode));
  try {
    return new (block) omi_BtreeNode(other);
  } catch (...) {
    mem_Free(block);
    throw;
  }
}

template <class K, class V>
void omi_BtreeNode<K, V>::Delete(omi_BtreeNode* node) {
  if (node == nullptr) return;
  node->~omi_BtreeNode();
  mem_Free(node);
}

template <class K, class V>
omi_BtreeNode<K, V>* omi_BtreeNode<K, V>::Find(const K& key) const {
  const omi_BtreeNode* n = this;
  while (n != nullptr) {
    // A key that lives outside the node (a string's text) costs a second
    // miss per level; fetching both children meanwhile overlaps the two.
    __builtin_prefetch(n->m_left);
    __builtin_prefetch(n->m_right);
    int c = BtreeCompare(n->m_key, key);
    if (c == 0) return const_cast<omi_BtreeNode*>(n);
    n = c < 0 ? n->m_left : n->m_right;
  }
  return nullptr;
}

template <class K, class V>
void omi_BtreeNode<K, V>::UpdateHeight() {
  int lh = m_left != nullptr ? m_left->m_height + 1 : 0;
  int rh = m_right != nullptr ? m_right->m_height + 1 : 0;
  m_height = lh > rh ? lh : rh;
}

template <class K, class V>
void omi_BtreeNode<K, V>::PrefetchSibling(int c) const {
  // On the way back up, Balance and UpdateHeight read the height of the child
  // not taken; fetching it now overlaps that miss with the descent.
  __builtin_prefetch(c < 0 ? m_right : m_left);
}

template <class K, class V>
omi_BtreeNode<K, V>* omi_BtreeNode<K, V>::Balance(omi_BtreeNode* n) {
  // Stored heights, an absent child counting like a childless one: this lets
  // a chain of three stand, which the rotation below would not improve.
  int lh = n->m_left != nullptr ? n->m_left->m_height : 0;
  int rh = n->m_right != nullptr ? n->m_right->m_height : 0;
  int d = rh - lh;
  if (d > 1) {
    omi_BtreeNode* r = n->m_right;
    n->m_right = r->m_left;
    r->m_left = n;
    n->UpdateHeight();
    r->UpdateHeight();
    return r;
  }
  if (d < -1) {
    omi_BtreeNode* l = n->m_left;
    n->m_left = l->m_right;
    l->m_right = n;
    n->UpdateHeight();
    l->UpdateHeight();
    return l;
  }
  return nullptr;
}

template <class K, class V>
void omi_BtreeNode<K, V>::ReplaceChild(omi_BtreeNode* child, omi_BtreeNode* replacement) {
  if (m_right == child) {
    m_right = replacement;
  } else {
    m_left = replacement;
  }
  Delete(child);
  UpdateHeight();
}

template <class K, class V>
bool omi_BtreeNode<K, V>::Insert(const K& key, const V& value) {
  int c = BtreeCompare(m_key, key);
  if (c == 0) return false;
  omi_BtreeNode*& slot = c < 0 ? m_left : m_right;
  PrefetchSibling(c);
  if (slot == nullptr) {
    slot = New(key, value);
    UpdateHeight();
    return true;
  }
  if (!slot->Insert(key, value)) return false;
  if (omi_BtreeNode* head = Balance(slot)) slot = head;
  UpdateHeight();
  return true;
}

template <class K, class V>
bool omi_BtreeNode<K, V>::Remove(const K& key, omi_BtreeNode& parent) {
  int c = BtreeCompare(m_key, key);
  if (c != 0) {
    omi_BtreeNode*& slot = c < 0 ? m_left : m_right;
    PrefetchSibling(c);
    bool removed = slot != nullptr && slot->Remove(key, *this);
    // The recursion may have emptied or replaced the slot.
    if (removed && slot != nullptr) {
      if (omi_BtreeNode* head = Balance(slot)) slot = head;
      UpdateHeight();
    }
    return removed;
  }

  // This node goes; s takes its place.
  omi_BtreeNode* s;
  if (m_right == nullptr) {
    s = m_left;
  } else if (m_left == nullptr) {
    s = m_right;
  } else {
    // The smallest key on the right. Only p and s get fresh heights; the
    // nodes between the right child and p keep theirs until a later change
    // passes through them.
    omi_BtreeNode* p = nullptr;
    s = m_right;
    while (s->m_left != nullptr) {
      __builtin_prefetch(s->m_right);  // p's height is recomputed from it
      p = s;
      s = s->m_left;
    }
    if (p != nullptr) {
      p->m_left = s->m_right;
      s->m_right = m_right;
      p->UpdateHeight();
    }
    s->m_left = m_left;
    s->UpdateHeight();
  }
  m_left = nullptr;
  m_right = nullptr;
  parent.ReplaceChild(this, s);
  return true;
}

// ---- tree ----

template <class K, class V>
omi_Btree<K, V>::omi_Btree() : m_root(nullptr), m_count(0), m_default() {}

template <class K, class V>
omi_Btree<K, V>::omi_Btree(const omi_Btree& other)
    : m_root(nullptr), m_count(other.m_count), m_default(other.m_default) {
  if (other.m_root != nullptr) m_root = Node::NewCopy(*other.m_root);
}

template <class K, class V>
omi_Btree<K, V>& omi_Btree<K, V>::operator=(const omi_Btree& other) {
  if (this == &other) return *this;
  Node* copy = other.m_root != nullptr ? Node::NewCopy(*other.m_root) : nullptr;
  V defaultCopy(other.m_default);
  Node::Delete(m_root);
  m_root = copy;
  m_count = other.m_count;
  m_default = std::move(defaultCopy);
  return *this;
}

template <class K, class V>
omi_Btree<K, V>::~omi_Btree() {
  Node::Delete(m_root);
}

template <class K, class V>
bool omi_Btree<K, V>::Insert(const K& key, const V& value) {
  if (m_root == nullptr) {
    m_root = Node::New(key, value);
    m_count = 1;
    return true;
  }
  if (!m_root->Insert(key, value)) return false;
  ++m_count;
  if (Node* head = Node::Balance(m_root)) m_root = head;
  return true;
}

template <class K, class V>
bool omi_Btree<K, V>::Remove(const K& key) {
  if (m_root == nullptr) return false;
  // A stand-in parent above the root, so that replacing the root is the
  // same step as replacing any other child.
  Node top(K(), m_default);
  top.m_left = m_root;
  bool removed = m_root->Remove(key, top);
  // The stand-in must not take the tree with it when it goes.
  m_root = top.m_left;
  top.m_left = nullptr;
  if (removed) {
    --m_count;
    if (m_root != nullptr) {
      if (Node* head = Node::Balance(m_root)) m_root = head;
    }
  }
  return removed;
}

template <class K, class V>
bool omi_Btree<K, V>::IsMember(const K& key) const {
  return m_root != nullptr && m_root->Find(key) != nullptr;
}

template <class K, class V>
V& omi_Btree<K, V>::Get(const K& key) {
  Node* n = m_root != nullptr ? m_root->Find(key) : nullptr;
  return n != nullptr ? n->m_value : m_default;
}

template <class K, class V>
const V& omi_Btree<K, V>::ConstGet(const K& key) const {
  const Node* n = m_root != nullptr ? m_root->Find(key) : nullptr;
  return n != nullptr ? n->m_value : m_default;
}

template <class K, class V>
void omi_Btree<K, V>::Clear() {
  Node::Delete(m_root);
  m_root = nullptr;
  m_count = 0;
}

template <class K, class V>
void omi_Btree<K, V>::Swap(omi_Btree& other) {
  std::swap(m_root, other.m_root);
  std::swap(m_count, other.m_count);
  // Every value type moves without allocating (ada_string moves its pointer).
  std::swap(m_default, other.m_default);
}

// ---- iterator ----

template <class K, class V>
omi_BtreeIterator<K, V>::omi_BtreeIterator(const omi_Btree<K, V>& tree)
    : m_tree(&tree), m_top(nullptr) {}

template <class K, class V>
omi_BtreeIterator<K, V>::~omi_BtreeIterator() {
  PopAll();
}

template <class K, class V>
void omi_BtreeIterator<K, V>::Push(const Node* n) {
  void* block = mem_OperatorNewThrow(sizeof(Link));
  m_top = new (block) Link(n, m_top);
}

template <class K, class V>
void omi_BtreeIterator<K, V>::Pop() {
  Link* link = m_top;
  m_top = link->Next();
  link->~Link();
  mem_Free(link);
}

template <class K, class V>
void omi_BtreeIterator<K, V>::PopAll() {
  while (m_top != nullptr) Pop();
}

template <class K, class V>
void omi_BtreeIterator<K, V>::Descend(const Node* n, bool rightward) {
  while (n != nullptr) {
    Push(n);
    n = rightward ? n->Right() : n->Left();
  }
}

template <class K, class V>
void omi_BtreeIterator<K, V>::Step(bool rightward) {
  const Node* t = m_top->Node();
  const Node* child = rightward ? t->Right() : t->Left();
  if (child != nullptr) {
    // The neighbour is the outermost node of that subtree on the other side.
    Descend(child, !rightward);
    return;
  }
  // Climb while coming back from the side we are moving towards.
  for (;;) {
    const Node* m = m_top->Node();
    Pop();
    if (m_top == nullptr) return;
    const Node* back = rightward ? m_top->Node()->Right() : m_top->Node()->Left();
    if (back != m) return;
  }
}

template <class K, class V>
void omi_BtreeIterator<K, V>::First() {
  PopAll();
  Descend(m_tree->Root(), false);
}

template <class K, class V>
void omi_BtreeIterator<K, V>::Last() {
  PopAll();
  Descend(m_tree->Root(), true);
}

template <class K, class V>
void omi_BtreeIterator<K, V>::Next() {
  Step(true);
}

template <class K, class V>
void omi_BtreeIterator<K, V>::Previous() {
  Step(false);
}

#endif  // DDB_CONTAINERS_OMI_BTREE_IMPL_H_
