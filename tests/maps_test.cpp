// ada_MapInt and ada_MapString: insert-or-replace, the default slot, silent
// removal, sets, key order, swap, deep copies and the iterator's states.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "containers/ada_MapInt.h"
#include "containers/ada_MapString.h"
#include "platform/core/mem.h"

namespace {

template <class T>
std::vector<std::string> Keys(const ada_MapString<T>& map, bool descending = false) {
  std::vector<std::string> keys;
  ada_MapStringIterator<T> it(map);
  if (descending) {
    for (it.last(); !it.isDone(); it.previous()) keys.push_back(it.key().cStr());
  } else {
    for (it.first(); !it.isDone(); it.next()) keys.push_back(it.key().cStr());
  }
  return keys;
}

template <class T>
std::vector<int> Keys(const ada_MapInt<T>& map) {
  std::vector<int> keys;
  ada_MapIntIterator<T> it(map);
  for (it.first(); !it.isDone(); it.next()) keys.push_back(it.key());
  return keys;
}

TEST(Maps, InsertReplacesAndCountsOnlyNewKeys) {
  ada_MapInt<int> m;
  m.insert(3, 1);
  m.insert(3, 2);
  EXPECT_EQ(m.count(), 1);
  EXPECT_EQ(m.get(3), 2);

  ada_MapInt<ada_string> s;
  s.insert(3, "first");
  // Replacing a text releases the old one: one block in, one out.
  long long live = mem_GetStatistics().allocations - mem_GetStatistics().frees;
  s.insert(3, "second");
  EXPECT_EQ(mem_GetStatistics().allocations - mem_GetStatistics().frees, live);
  EXPECT_EQ(s.count(), 1);
  EXPECT_STREQ(s.get(3).cStr(), "second");
}

TEST(Maps, StringMapKeepsTheFirstKeyObject) {
  ada_MapString<double> m;
  ada_string k1("key"), k2("key");
  m.insert(k1, 1.5);
  const char* stored = m.tree().Root()->ConstGetKey().cStr();
  EXPECT_NE(stored, k1.cStr());  // the node owns a copy
  m.insert(k2, 2.5);
  EXPECT_EQ(m.tree().Root()->ConstGetKey().cStr(), stored);
  EXPECT_EQ(m.get("key"), 2.5);
}

TEST(Maps, AbsentKeysYieldTheTypesDefault) {
  ada_MapInt<int> i;
  ada_MapString<ada_string> s;
  ada_MapString<QELSimCSetID> sets;
  i.insert(5, 50);
  s.insert("x", "y");
  EXPECT_EQ(i.get(4), 0);
  EXPECT_FALSE(i.isMember(4));
  EXPECT_STREQ(s.get("z").cStr(), "");
  EXPECT_FALSE(s.isMember("z"));
  EXPECT_EQ(sets.get("n"), QELSimCSetID());
  const ada_MapInt<int>& ci = i;
  EXPECT_EQ(ci.get(5), 50);
  EXPECT_EQ(ci.get(6), 0);
}

TEST(Maps, WritingTheDefaultSlotChangesEveryLaterMiss) {
  ada_MapString<int> m;
  m.get("absent") = 7;
  EXPECT_EQ(m.count(), 0);
  EXPECT_FALSE(m.isMember("absent"));
  EXPECT_EQ(m.get("other"), 7);
  m.clear();  // clear keeps it
  EXPECT_EQ(m.get("other"), 7);
  ada_MapString<int> copy(m);
  EXPECT_EQ(copy.get("x"), 7);
}

TEST(Maps, RemoveIsSilentAndTheLastRemovalEmptiesTheMap) {
  ada_MapInt<int> m;
  m.remove(4);
  m.insert(1, 10);
  m.remove(4);
  EXPECT_EQ(m.count(), 1);
  m.remove(1);
  EXPECT_EQ(m.count(), 0);
  ada_MapIntIterator<int> it(m);
  it.first();
  EXPECT_TRUE(it.isDone());
  it.last();
  EXPECT_TRUE(it.isDone());
}

TEST(Maps, StringKeysRunInUnsignedByteOrderPrefixFirst) {
  ada_MapString<int> m;
  for (const char* k : {"b", "a", "ab", "", "Z", "A", "\xc3\xa9"}) m.insert(k, 1);
  EXPECT_EQ(Keys(m), (std::vector<std::string>{"", "A", "Z", "a", "ab", "b", "\xc3\xa9"}));
  EXPECT_EQ(Keys(m, true), (std::vector<std::string>{"\xc3\xa9", "b", "ab", "a", "Z", "A", ""}));
  EXPECT_TRUE(m.isMember(""));
  m.remove("");
  EXPECT_FALSE(m.isMember(""));
  EXPECT_EQ(m.count(), 6);
}

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

TEST(Maps, SwapExchangesEverythingWithoutAllocating) {
  ada_MapString<ada_string> a, b;
  a.insert("k1", "v1");
  a.insert("k2", "v2");
  a.get("none") = "A-default";
  b.insert("other", "w");
  b.get("none") = "B-default";
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

  ada_MapInt<int> x, y;
  x.insert(1, 1);
  x.swap(y);
  EXPECT_EQ(Keys(x), std::vector<int>{});
  EXPECT_EQ(Keys(y), std::vector<int>{1});
}

TEST(Maps, CopiesAreUnaffectedByLaterChangesToTheSource) {
  ada_MapString<ada_string> source;
  source.insert("a", "1");
  source.insert("b", "2");
  source.insert("c", "3");
  ada_MapString<ada_string> copy(source);
  source.insert("a", "changed");
  source.remove("b");
  source.insert("d", "4");
  EXPECT_EQ(Keys(copy), (std::vector<std::string>{"a", "b", "c"}));
  EXPECT_STREQ(copy.get("a").cStr(), "1");
  source.clear();
  EXPECT_EQ(source.count(), 0);
  EXPECT_EQ(copy.count(), 3);
  EXPECT_STREQ(copy.get("c").cStr(), "3");
}

TEST(Maps, WholeMapAssignmentGoesThroughTheTree) {
  ada_MapInt<int> a, b;
  a.insert(1, 1);
  b.insert(2, 2);
  b.insert(3, 3);
  a.tree() = b.tree();
  EXPECT_EQ(Keys(a), (std::vector<int>{2, 3}));
  EXPECT_EQ(a.count(), 2);
}

TEST(Maps, IteratorIsDoneUntilPositioned) {
  ada_MapString<bool> m;
  m.insert("x", true);
  m.insert("y", false);
  ada_MapStringIterator<bool> it(m);
  EXPECT_TRUE(it.isDone());
  it.last();
  ASSERT_FALSE(it.isDone());
  EXPECT_STREQ(it.key().cStr(), "y");
  EXPECT_FALSE(it.value());
  it.previous();
  EXPECT_STREQ(it.key().cStr(), "x");
  EXPECT_TRUE(it.value());
  it.previous();
  EXPECT_TRUE(it.isDone());
  // The key is the node's own object, not a copy.
  it.first();
  EXPECT_EQ(&it.key(), &m.tree().Root()->ConstGetKey());

  ada_MapInt<int> ints;
  ints.insert(5, 1);
  ints.insert(-3, 2);
  ada_MapIntIterator<int> walk(ints);
  EXPECT_TRUE(walk.isDone());
  walk.first();
  EXPECT_EQ(walk.key(), -3);
  EXPECT_EQ(walk.value(), 2);
}

}  // namespace
