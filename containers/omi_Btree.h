// omi_Btree<K,V>: the ordered associative store under the maps and the
// library's registries.
//
// A binary search tree, one key and one value per node, kept shallow by its
// own rule: a node is rotated (single rotations only) when the stored heights
// of its two children differ by more than one, an absent child and a
// childless one both counting 0. Rebalancing happens on the way back up the
// changed path. Nodes carry no parent link; the iterator walks with an
// explicit stack of heap links instead.
//
// A lookup that misses returns the tree's default value by reference, and the
// non-const lookup hands that slot out writable: a caller who writes into it
// changes what every later miss returns. Callers that care test IsMember.
//
// Member definitions live in omi_Btree_impl.h, which library code includes to
// instantiate the tree for its own keys. The instantiations for ada_MapIntKey
// and the twelve element types are exported and declared extern below.
#ifndef DDB_CONTAINERS_OMI_BTREE_H_
#define DDB_CONTAINERS_OMI_BTREE_H_

#include "containers/ada_element_types.h"
#include "containers/omi_BtreeCompare.h"
#include "platform/core/ddb_export.h"

template <class K, class V>
class omi_Btree;

template <class K, class V>
class omi_BtreeNode {
 public:
  omi_BtreeNode(const K& key, const V& value);
  // Destroys and releases both subtrees.
  ~omi_BtreeNode();

  // The node with an equal key in the subtree headed here, or null.
  omi_BtreeNode* Find(const K& key) const;
  // The recursive steps of omi_Btree::Insert and omi_Btree::Remove; parent is
  // the node whose left or right child this node is.
  bool Insert(const K& key, const V& value);
  bool Remove(const K& key, omi_BtreeNode& parent);

  const K& ConstGetKey() const { return m_key; }
  const V& ConstGetValue() const { return m_value; }
  V& GetValue() { return m_value; }
  const omi_BtreeNode* Left() const { return m_left; }
  const omi_BtreeNode* Right() const { return m_right; }
  // 0 without children, else 1 + the greatest height of the children.
  int Height() const { return m_height; }

 private:
  friend class omi_Btree<K, V>;
  omi_BtreeNode& operator=(const omi_BtreeNode&) = delete;

  // Deep copy: same shape, same stored heights.
  DDB_LOCAL omi_BtreeNode(const omi_BtreeNode& other);

  // Allocation with the memory service; a failed construction releases its block.
  DDB_LOCAL static omi_BtreeNode* New(const K& key, const V& value);
  DDB_LOCAL static omi_BtreeNode* NewCopy(const omi_BtreeNode& other);
  DDB_LOCAL static void Delete(omi_BtreeNode* node);

  DDB_LOCAL void UpdateHeight();
  // c is the comparison that chose the path down from here.
  DDB_LOCAL void PrefetchSibling(int c) const;
  // Rotates the subtree headed by n if its children's heights are too far
  // apart; returns the new head, or null when nothing changed.
  DDB_LOCAL static omi_BtreeNode* Balance(omi_BtreeNode* n);
  // Puts replacement where child was, then destroys child.
  DDB_LOCAL void ReplaceChild(omi_BtreeNode* child, omi_BtreeNode* replacement);

  V m_value;
  K m_key;
  omi_BtreeNode* m_left;
  omi_BtreeNode* m_right;
  int m_height;
};

template <class K, class V>
class omi_Btree {
 public:
  omi_Btree();
  omi_Btree(const omi_Btree& other);
  // Copies first, so a failed copy leaves this tree as it was.
  omi_Btree& operator=(const omi_Btree& other);
  ~omi_Btree();

  // Adds the pair and returns true, or returns false and keeps the stored value.
  bool Insert(const K& key, const V& value);
  bool Remove(const K& key);
  bool IsMember(const K& key) const;
  V& Get(const K& key);
  const V& ConstGet(const K& key) const;
  // Destroys every node; the default value stays.
  void Clear();
  // Exchanges root, count and default value; touches no node.
  void Swap(omi_Btree& other);

  int Count() const { return m_count; }
  const omi_BtreeNode<K, V>* Root() const { return m_root; }
  const V& DefaultValue() const { return m_default; }

 private:
  typedef omi_BtreeNode<K, V> Node;

  Node* m_root;
  int m_count;
  V m_default;
};

// One cell of an iterator's stack.
template <class K, class V>
class omi_BtreeNodeLink {
 public:
  omi_BtreeNodeLink(const omi_BtreeNode<K, V>* node, omi_BtreeNodeLink* next)
      : m_node(node), m_next(next) {}
  ~omi_BtreeNodeLink() {}
  const omi_BtreeNode<K, V>* Node() const { return m_node; }
  omi_BtreeNodeLink* Next() const { return m_next; }

 private:
  const omi_BtreeNode<K, V>* m_node;
  omi_BtreeNodeLink* m_next;
};

// Walks a tree in key order. The stack holds the path from the root to the
// current node (minus the ancestors already passed on the left); each step
// allocates or releases one link per level moved. Done exactly when the stack
// is empty, which it is until First or Last. Any change to the tree
// invalidates the iterator until the next First or Last.
template <class K, class V>
class omi_BtreeIterator {
 public:
  explicit omi_BtreeIterator(const omi_Btree<K, V>& tree);
  ~omi_BtreeIterator();

  void First();
  void Last();
  // Unguarded: the iterator must not be done.
  void Next();
  void Previous();

  bool IsDone() const { return m_top == nullptr; }
  const K& CurrentKey() const { return m_top->Node()->ConstGetKey(); }
  const V& CurrentValue() const { return m_top->Node()->ConstGetValue(); }

 private:
  typedef omi_BtreeNode<K, V> Node;
  typedef omi_BtreeNodeLink<K, V> Link;

  omi_BtreeIterator(const omi_BtreeIterator&) = delete;
  omi_BtreeIterator& operator=(const omi_BtreeIterator&) = delete;

  DDB_LOCAL void Push(const Node* n);
  DDB_LOCAL void Pop();
  DDB_LOCAL void PopAll();
  // Pushes n, then follows its children on one side down to the end.
  DDB_LOCAL void Descend(const Node* n, bool rightward);
  // One step to the neighbour on one side: Next is rightward.
  DDB_LOCAL void Step(bool rightward);

  const omi_Btree<K, V>* m_tree;
  Link* m_top;
};

#define OMI_DECLARE_BTREE(V)                                         \
  extern template class DDB_API omi_BtreeNode<ada_MapIntKey, V>;     \
  extern template class DDB_API omi_Btree<ada_MapIntKey, V>;         \
  extern template class DDB_API omi_BtreeNodeLink<ada_MapIntKey, V>; \
  extern template class DDB_API omi_BtreeIterator<ada_MapIntKey, V>;
ADA_FOR_EACH_ELEMENT_TYPE(OMI_DECLARE_BTREE)
#undef OMI_DECLARE_BTREE

#endif  // DDB_CONTAINERS_OMI_BTREE_H_
