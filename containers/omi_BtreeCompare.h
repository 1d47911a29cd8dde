// The key types of the library's search trees and their orders.
//
// omi_Btree finds its comparison by overload: BtreeCompare(nodeKey,
// searchedKey) returns a negative number to go left, a positive one to go
// right, zero on a match. Any key type that brings its own overload can be
// used (the class registry and the database root add theirs).
#ifndef DDB_CONTAINERS_OMI_BTREECOMPARE_H_
#define DDB_CONTAINERS_OMI_BTREECOMPARE_H_

#include <cstdint>
#include <cstring>

#include "containers/ada_string.h"
#include "platform/core/ddb_export.h"

// The key of the int-keyed maps. A struct rather than a bare int so that its
// order is chosen by overload, like every other key's.
struct DDB_API ada_MapIntKey {
  ada_MapIntKey() : key(0) {}
  ada_MapIntKey(int k) : key(k) {}  // NOLINT: implicit, an int is a key
  int key;
};

// The 32-bit wrapping difference searched - node. Keys 2^31 or more apart
// therefore compare by the wrapped difference (INT_MAX sorts below -1); the
// stored order of existing files depends on it, so it is kept.
inline int BtreeCompare(const ada_MapIntKey& node, const ada_MapIntKey& searched) {
  return static_cast<int32_t>(static_cast<uint32_t>(searched.key) -
                              static_cast<uint32_t>(node.key));
}

// Unsigned byte order of the texts, a prefix before its extensions; the
// result is -1, 0 or +1.
inline int BtreeCompare(const ada_string& node, const ada_string& searched) {
  int c = std::strcmp(searched.cStr(), node.cStr());
  return (c > 0) - (c < 0);
}

#endif  // DDB_CONTAINERS_OMI_BTREECOMPARE_H_
