// omi_Btree: the balancing rule and its shapes, removal, the default slot,
// copies, the iterator, the allocation promises, and a randomized comparison
// with std::map that checks the tree's structure after every batch; then
// what ada_MapInt and ada_MapString add on top of it (insert-or-replace,
// key ownership, sets, swap).
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "containers/ada_MapInt.h"
#include "containers/ada_MapString.h"
#include "containers/omi_Btree.h"
#include "platform/core/mem.h"

namespace {

typedef omi_Btree<ada_MapIntKey, int> IntTree;
typedef omi_BtreeNode<ada_MapIntKey, int> IntNode;

std::string KeyText(const ada_MapIntKey& k) {
  return std::to_string(k.key);
}
std::string KeyText(const ada_string& k) {
  return std::string("\"") + k.cStr() + "\"";
}

// "key:height" for a leaf, "key:height(left,right)" otherwise, "-" for an
// absent child.
template <class Node>
std::string Shape(const Node* n) {
  if (n == nullptr) return "-";
  std::string s = KeyText(n->ConstGetKey()) + ":" + std::to_string(n->Height());
  if (n->Left() == nullptr && n->Right() == nullptr) return s;
  return s + "(" + Shape(n->Left()) + "," + Shape(n->Right()) + ")";
}

std::vector<int> Ascending(const IntTree& tree) {
  std::vector<int> keys;
  omi_BtreeIterator<ada_MapIntKey, int> it(tree);
  for (it.First(); !it.IsDone(); it.Next()) keys.push_back(it.CurrentKey().key);
  return keys;
}

IntTree TreeOf(std::initializer_list<int> keys) {
  IntTree t;
  // Values are ten times the key (wrapping, for the extreme keys).
  for (int k : keys) t.Insert(k, static_cast<int>(static_cast<unsigned>(k) * 10u));
  return t;
}

long long LiveBlocks() {
  mem_Statistics s = mem_GetStatistics();
  return s.allocations - s.frees;
}

// Shapes after inserting `keys` in order, then inserting each positive
// `edits` entry and removing each negative one.
TEST(Btree, ShapesAfterInsertsRotationsAndRemovals) {
  struct Case {
    std::vector<int> keys, edits;
    const char* shape;
    const char* why;
  } cases[] = {
      {{1, 2, 3}, {}, "1:2(-,2:1(-,3:0))", "a chain of three stands"},
      {{1, 2, 3, 4}, {}, "2:2(1:0,3:1(-,4:0))", "the fourth rotates at the root"},
      {{4, 3, 2, 1}, {}, "3:2(2:1(1:0,-),4:0)", "the mirror image rotates the other way"},
      {{10, 5, 20, 3, 7, 15, 12}, {}, "10:3(5:1(3:0,7:0),20:2(15:1(12:0,-),-))", "before removal"},
      // 15 (the lifted key's old parent) is recomputed, while 20, on the way
      // between, keeps its old height 2 until something passes through it.
      {{10, 5, 20, 3, 7, 15, 12},
       {-10},
       "12:3(5:1(3:0,7:0),20:2(15:0,-))",
       "removing a node with two children lifts the smallest key on its right"},
      {{10, 5, 20, 3, 7, 15, 12},
       {-10, 25},
       "12:2(5:1(3:0,7:0),20:1(15:0,25:0))",
       "the next change below 20 recomputes it"},
      {{2, 1, 3, 4}, {-2}, "3:1(1:0,4:0)", "the right child, the smallest, takes the place"},
      // 3 -> 4 -> 5 stands as a chain; the root sees 0 against 2 and rotates.
      {{2, 1, 3, 4, 5}, {}, "3:2(2:1(1:0,-),4:1(-,5:0))", "rebalancing on the way back up"},
      {{2, 1, 3, 4, 5, 6}, {}, "3:3(2:1(1:0,-),4:2(-,5:1(-,6:0)))", "before removing 1"},
      {{2, 1, 3, 4, 5, 6},
       {-1},
       "4:2(3:1(2:0,-),5:1(-,6:0))",
       "removing 1 leaves 2 childless (0) against 4's height 2: the root rotates"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    IntTree t;
    std::set<int> keys;
    for (int k : c.keys) EXPECT_TRUE(t.Insert(k, k * 10));
    keys.insert(c.keys.begin(), c.keys.end());
    for (int e : c.edits) {
      EXPECT_TRUE(e > 0 ? t.Insert(e, e * 10) : t.Remove(-e));
      if (e > 0) {
        keys.insert(e);
      } else {
        keys.erase(-e);
      }
    }
    EXPECT_EQ(Shape(t.Root()), c.shape);
    EXPECT_EQ(t.Count(), static_cast<int>(keys.size()));
    EXPECT_EQ(Ascending(t), std::vector<int>(keys.begin(), keys.end()));
  }
}

TEST(Btree, PresentKeysAreNotReplacedAndAbsentOnesNotRemoved) {
  IntTree t;
  EXPECT_FALSE(t.Remove(1));
  t = TreeOf({5, 3, 8});
  EXPECT_FALSE(t.Insert(3, 99));
  EXPECT_FALSE(t.Remove(2));
  EXPECT_EQ(t.Count(), 3);
  EXPECT_EQ(t.ConstGet(3), 30);
  IntTree one = TreeOf({1});
  EXPECT_TRUE(one.Remove(1));
  EXPECT_EQ(one.Root(), nullptr);
  EXPECT_EQ(one.Count(), 0);
  EXPECT_FALSE(one.Remove(1));
}

TEST(Btree, MissesReturnTheWritableDefaultSlot) {
  IntTree t;
  EXPECT_EQ(t.ConstGet(1), 0);
  t.Get(1) = 7;  // an empty tree still hands out its slot
  t.Insert(2, 20);
  EXPECT_EQ(t.ConstGet(3), 7);
  EXPECT_EQ(t.Get(4), 7);
  EXPECT_FALSE(t.IsMember(1));
  EXPECT_EQ(t.ConstGet(2), 20);
  EXPECT_EQ(t.DefaultValue(), 7);
  // Removal builds its stand-in parent from the default; nothing leaks into the tree.
  EXPECT_TRUE(t.Remove(2));
  EXPECT_EQ(t.Count(), 0);

  omi_Btree<ada_MapIntKey, double> d;
  omi_Btree<ada_MapIntKey, bool> b;
  omi_Btree<ada_MapIntKey, ada_string> s;
  omi_Btree<ada_MapIntKey, QELSimCSetID> id;
  EXPECT_EQ(d.ConstGet(1), 0.0);
  EXPECT_FALSE(b.ConstGet(1));
  EXPECT_STREQ(s.ConstGet(1).cStr(), "");
  EXPECT_EQ(id.ConstGet(1), QELSimCSetID());
}

// Keys less than 2^31 apart are in the usual order (see the comparison with
// std::map below); beyond that, the difference wraps.
TEST(Btree, IntKeysCompareByWrappingDifference) {
  // INT_MAX - (-1) wraps negative: INT_MAX is taken as less than -1.
  IntTree w = TreeOf({-1, INT_MAX});
  EXPECT_EQ(Ascending(w), (std::vector<int>{INT_MAX, -1}));
  EXPECT_TRUE(w.IsMember(INT_MAX));
  EXPECT_EQ(BtreeCompare(ada_MapIntKey(INT_MIN), ada_MapIntKey(INT_MAX)), -1);
}

TEST(Btree, IteratorStatesDirectionsAndLinks) {
  IntTree empty;
  omi_BtreeIterator<ada_MapIntKey, int> none(empty);
  EXPECT_TRUE(none.IsDone());
  none.First();
  EXPECT_TRUE(none.IsDone());
  none.Last();
  EXPECT_TRUE(none.IsDone());

  IntTree t = TreeOf({4, 2, 6, 1, 3, 5, 7});
  long long live = LiveBlocks();
  {
    omi_BtreeIterator<ada_MapIntKey, int> it(t);
    EXPECT_TRUE(it.IsDone());
    it.First();
    EXPECT_EQ(LiveBlocks(), live + 3);  // one link per level: 4, 2, 1
    it.Last();                          // restarting drops the old stack
    EXPECT_EQ(it.CurrentKey().key, 7);
    EXPECT_EQ(it.CurrentValue(), 70);
    // Back and forth across the root; First restarts. (Whole walks both ways
    // are compared with std::map below.)
    it.First();
    it.Next();
    it.Next();
    it.Next();
    it.Previous();
    it.Next();
    it.Next();
    EXPECT_EQ(it.CurrentKey().key, 5);
    it.First();
    EXPECT_EQ(it.CurrentKey().key, 1);
    it.Previous();
    EXPECT_TRUE(it.IsDone());
  }
  EXPECT_EQ(LiveBlocks(), live);
}

TEST(Btree, CopiesHaveTheSameShapeAndShareNoNode) {
  IntTree* source = new IntTree(TreeOf({10, 5, 20, 3, 7, 15, 12}));
  source->Remove(10);  // leaves a stale height, which the copy keeps too
  source->Get(99) = -1;
  IntTree copy(*source);
  EXPECT_EQ(Shape(copy.Root()), Shape(source->Root()));
  EXPECT_EQ(copy.Count(), source->Count());
  EXPECT_EQ(copy.ConstGet(98), -1);
  EXPECT_NE(copy.Root(), source->Root());
  EXPECT_NE(copy.Root()->Left(), source->Root()->Left());
  std::string shape = Shape(copy.Root());
  delete source;
  EXPECT_EQ(Shape(copy.Root()), shape);
}

TEST(Btree, CopyAssignmentReplacesAndReleasesTheOldNodes) {
  IntTree a = TreeOf({1, 2, 3});
  IntTree b = TreeOf({7, 8});
  b.Get(0) = 5;
  long long live = LiveBlocks();
  a = b;
  EXPECT_EQ(LiveBlocks(), live - 3 + 2);
  EXPECT_EQ(Shape(a.Root()), Shape(b.Root()));
  EXPECT_EQ(a.Count(), 2);
  EXPECT_EQ(a.ConstGet(1), 5);
  a = a;
  EXPECT_EQ(Ascending(a), (std::vector<int>{7, 8}));
  b.Clear();
  EXPECT_EQ(Ascending(a), (std::vector<int>{7, 8}));

  omi_Btree<ada_MapIntKey, ada_string> s, t;
  t.Insert(1, "one");
  t.Get(2) = "fallback";
  s.Insert(9, "nine");
  s = t;
  EXPECT_STREQ(s.ConstGet(1).cStr(), "one");
  EXPECT_STREQ(s.ConstGet(9).cStr(), "fallback");
  EXPECT_NE(s.ConstGet(1).cStr(), t.ConstGet(1).cStr());
}

TEST(Btree, LookupsDoNotAllocateAndInsertAllocatesOneNode) {
  IntTree t = TreeOf({1, 2, 3, 4, 5});
  long long before = mem_GetStatistics().allocations;
  EXPECT_TRUE(t.IsMember(3));
  EXPECT_EQ(t.ConstGet(6), 0);
  t.Remove(3);
  t.Remove(42);
  EXPECT_EQ(mem_GetStatistics().allocations, before);
  t.Insert(9, 90);
  EXPECT_EQ(mem_GetStatistics().allocations, before + 1);
  t.Insert(9, 91);
  EXPECT_EQ(mem_GetStatistics().allocations, before + 1);
}

// ---- randomized comparison with std::map ----

// Checks order and heights of a subtree and returns its real depth (number
// of levels). Every stored height is at least what its children's stored
// heights give; where no two-child removal has left a stale height behind,
// exactly that.
template <class Node>
int CheckSubtree(const Node* n, bool exactHeights, int* nodes) {
  if (n == nullptr) return 0;
  ++*nodes;
  if (n->Left() != nullptr) {
    EXPECT_LT(BtreeCompare(n->ConstGetKey(), n->Left()->ConstGetKey()), 0);
  }
  if (n->Right() != nullptr) {
    EXPECT_GT(BtreeCompare(n->ConstGetKey(), n->Right()->ConstGetKey()), 0);
  }
  int lh = n->Left() != nullptr ? n->Left()->Height() + 1 : 0;
  int rh = n->Right() != nullptr ? n->Right()->Height() + 1 : 0;
  int rule = lh > rh ? lh : rh;
  if (exactHeights) {
    EXPECT_EQ(n->Height(), rule) << "at " << KeyText(n->ConstGetKey());
  } else {
    EXPECT_GE(n->Height(), rule) << "at " << KeyText(n->ConstGetKey());
  }
  int l = CheckSubtree(n->Left(), exactHeights, nodes);
  int r = CheckSubtree(n->Right(), exactHeights, nodes);
  return 1 + (l > r ? l : r);
}

template <class Map, class Tree>
void CheckStructure(const Map& expected, const Tree& tree, bool exactHeights) {
  int nodes = 0;
  int depth = CheckSubtree(tree.Root(), exactHeights, &nodes);
  ASSERT_EQ(nodes, static_cast<int>(expected.size()));
  ASSERT_EQ(tree.Count(), static_cast<int>(expected.size()));
  // Shallow: within twice the depth of a perfect tree, plus slack for tiny ones.
  double perfect = std::log2(static_cast<double>(nodes) + 1);
  EXPECT_LE(depth, 2 * perfect + 2) << nodes << " nodes";
}

// The two key families of the maps, for the comparison below.
struct IntKeys {
  typedef int Key;
  typedef ada_MapInt<int> Map;
  typedef ada_MapIntIterator<int> Iterator;
  // Spread around zero; far below 2^31 apart, so the order is the usual one.
  static int Make(int k) { return (k - 1500) * 7919; }
  static int Arg(int key) { return key; }
  static int Back(int key) { return key; }
};

struct StringKeys {
  typedef std::string Key;
  typedef ada_MapString<int> Map;
  typedef ada_MapStringIterator<int> Iterator;
  // Base-3 texts over 'a', 'b' and a high byte: the empty text, many
  // prefixes, and bytes above 0x7F.
  static std::string Make(int k) {
    static const char kDigits[] = {'a', 'b', '\xe9'};
    std::string s;
    for (; k > 0; k /= 3) s += kDigits[k % 3];
    return s;
  }
  static ada_string Arg(const std::string& key) { return ada_string(key.c_str()); }
  static std::string Back(const ada_string& key) { return key.cStr(); }
};

template <class Keys>
void CheckWalks(const std::map<typename Keys::Key, int>& expected, const typename Keys::Map& map) {
  typename Keys::Iterator it(map);
  auto e = expected.begin();
  for (it.first(); !it.isDone(); it.next(), ++e) {
    ASSERT_NE(e, expected.end());
    ASSERT_EQ(Keys::Back(it.key()), e->first);
    ASSERT_EQ(it.value(), e->second);
  }
  ASSERT_EQ(e, expected.end());
  auto r = expected.rbegin();
  for (it.last(); !it.isDone(); it.previous(), ++r) {
    ASSERT_NE(r, expected.rend());
    ASSERT_EQ(Keys::Back(it.key()), r->first);
  }
  ASSERT_EQ(r, expected.rend());
}

// Random inserts, overwrites, lookups and (in the second half of the rounds)
// removals, checked after every round. Without removals no height can be
// stale, so the first half checks heights exactly.
template <class Keys>
void RunDifferential(unsigned seed, int rounds, int keySpace) {
  std::mt19937 rng(seed);
  typename Keys::Map map;
  std::map<typename Keys::Key, int> expected;
  for (int round = 0; round < rounds; ++round) {
    bool removals = round >= rounds / 2;
    for (int step = 0; step < 500; ++step) {
      typename Keys::Key key = Keys::Make(static_cast<int>(rng() % unsigned(keySpace)));
      int value = static_cast<int>(rng() % 1000);
      unsigned op = rng() % 10;
      if (removals && op < 4) {
        map.remove(Keys::Arg(key));
        expected.erase(key);
      } else if (op < 8) {
        map.insert(Keys::Arg(key), value);
        expected[key] = value;
      } else {
        auto found = expected.find(key);
        bool present = found != expected.end();
        ASSERT_EQ(map.isMember(Keys::Arg(key)), present);
        ASSERT_EQ(map.get(Keys::Arg(key)), present ? found->second : 0);
      }
    }
    ASSERT_EQ(map.count(), static_cast<int>(expected.size()));
    CheckStructure(expected, map.tree(), !removals);
    CheckWalks<Keys>(expected, map);
    if (::testing::Test::HasFailure()) return;
  }
  // Drain to empty: every removal keeps the structure sound.
  while (!expected.empty()) {
    auto victim = expected.begin();
    std::advance(victim, rng() % expected.size());
    map.remove(Keys::Arg(victim->first));
    expected.erase(victim);
    if (expected.size() % 97 == 0) CheckStructure(expected, map.tree(), false);
  }
  EXPECT_EQ(map.count(), 0);
  EXPECT_EQ(map.tree().Root(), nullptr);
}

TEST(BtreeDifferential, IntKeysAgainstStdMap) {
  RunDifferential<IntKeys>(20240611u, 40, 3000);
}

TEST(BtreeDifferential, StringKeysAgainstStdMap) {
  RunDifferential<StringKeys>(77u, 40, 3000);
}

TEST(BtreeDifferential, AscendingAndDescendingRunsStayShallow) {
  std::map<int, int> expected;
  ada_MapInt<int> map;
  for (int i = 0; i < 4096; ++i) {
    map.insert(i, i);
    expected[i] = i;
  }
  CheckStructure(expected, map.tree(), true);
  for (int i = -1; i >= -4096; --i) {
    map.insert(i, i);
    expected[i] = i;
  }
  CheckStructure(expected, map.tree(), true);
  for (int i = -4096; i < 0; ++i) {
    map.remove(i);
    expected.erase(i);
  }
  CheckStructure(expected, map.tree(), false);
}

// ---- the maps ----
// Their ordering, overwriting, lookups of absent keys, silent removal and
// whole walks both ways (to done past either end) are part of the
// comparison with std::map above.

// Insert on a present key keeps the node's own key object and releases the
// old value's text: one block in, one out.
TEST(Maps, InsertOnAPresentKeyKeepsTheKeyAndReleasesTheOldText) {
  ada_MapString<ada_string> m;
  ada_string k1("key"), k2("key");
  m.insert(k1, "first");
  const char* stored = m.tree().Root()->ConstGetKey().cStr();
  EXPECT_NE(stored, k1.cStr());  // the node owns a copy
  long long live = LiveBlocks();
  m.insert(k2, "second");
  EXPECT_EQ(LiveBlocks(), live);
  EXPECT_EQ(m.tree().Root()->ConstGetKey().cStr(), stored);
  EXPECT_EQ(m.count(), 1);
  EXPECT_STREQ(m.get("key").cStr(), "second");
  // An iterator's key is the node's own object, not a copy.
  ada_MapStringIterator<ada_string> it(m);
  it.first();
  EXPECT_EQ(&it.key(), &m.tree().Root()->ConstGetKey());
}

// A set has its own insert: there is nothing to replace.
TEST(Maps, NoneValuesMakeASet) {
  ada_MapInt<ada_none> set;
  set.insert(7, ada_none());
  set.insert(7, ada_none());
  EXPECT_EQ(set.count(), 1);
  EXPECT_TRUE(set.isMember(7));
  EXPECT_FALSE(set.isMember(8));
  ada_MapString<ada_none> names;
  names.insert("n", ada_none());
  names.insert("n", ada_none());
  EXPECT_EQ(names.count(), 1);
}

// The default slot (the tree's, reached through the map) travels with swap,
// and clear and copies keep it; the const get answers it too.
TEST(Maps, SwapExchangesEverythingWithoutAllocatingAndTheDefaultSlotTravels) {
  ada_MapString<ada_string> a, b;
  a.insert("k1", "v1");
  a.insert("k2", "v2");
  a.get("none") = "A-default";
  b.insert("other", "w");
  b.get("none") = "B-default";
  EXPECT_EQ(b.count(), 1);  // writing the default slot adds no key
  EXPECT_FALSE(b.isMember("none"));
  mem_Statistics before = mem_GetStatistics();
  a.swap(b);
  mem_Statistics after = mem_GetStatistics();
  EXPECT_EQ(after.allocations, before.allocations);
  EXPECT_EQ(after.frees, before.frees);
  EXPECT_EQ(a.count(), 1);
  EXPECT_EQ(b.count(), 2);
  EXPECT_STREQ(a.get("other").cStr(), "w");
  EXPECT_STREQ(b.get("k2").cStr(), "v2");
  EXPECT_STREQ(a.get("missing").cStr(), "B-default");
  EXPECT_STREQ(b.get("missing").cStr(), "A-default");
  a.clear();
  ada_MapString<ada_string> copy(a);
  const ada_MapString<ada_string>& constant = a;
  EXPECT_STREQ(constant.get("other").cStr(), "B-default");
  EXPECT_STREQ(copy.get("x").cStr(), "B-default");

  ada_MapInt<int> x, y;
  x.insert(1, 10);
  x.swap(y);
  EXPECT_EQ(Ascending(x.tree()), std::vector<int>{});
  EXPECT_EQ(Ascending(y.tree()), std::vector<int>{1});
  const ada_MapInt<int>& constantY = y;
  EXPECT_EQ(constantY.get(1), 10);
  EXPECT_EQ(constantY.get(2), 0);
}

}  // namespace
