// The exported instantiations of the tree: int keys, the twelve element types.
#include "containers/omi_Btree.h"

#include "containers/omi_Btree_impl.h"

#define OMI_DEFINE_BTREE(V)                           \
  template class omi_BtreeNode<ada_MapIntKey, V>;     \
  template class omi_Btree<ada_MapIntKey, V>;         \
  template class omi_BtreeNodeLink<ada_MapIntKey, V>; \
  template class omi_BtreeIterator<ada_MapIntKey, V>;
ADA_FOR_EACH_ELEMENT_TYPE(OMI_DEFINE_BTREE)
#undef OMI_DEFINE_BTREE
