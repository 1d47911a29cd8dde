// gbb_AutoArray: transfer on copy, growth, the count-based destruction rule,
// and holder take-over on append, checked with bytes and a small holder type.
#include <gtest/gtest.h>

#include <new>
#include <vector>

#include "persistence/gbb_AutoArray.h"
#include "platform/core/mem.h"

namespace {

struct Owner {};
typedef gbb_AutoArray<unsigned char, Owner> Bytes;

// Every closed object records its id here, in closing order.
std::vector<int>& Closed() {
  static std::vector<int> closed;
  return closed;
}

struct Object {
  int id;
};

// The shape of a generated holder: object pointer plus flags, closed on
// destruction, never copied.
class TestHolder {
 public:
  TestHolder() : m_object(nullptr), m_flags(0) {}
  TestHolder(int id, unsigned flags) : m_object(new Object{id}), m_flags(flags) {}
  TestHolder(const TestHolder&) = delete;
  TestHolder& operator=(const TestHolder&) = delete;
  ~TestHolder() { Close(); }
  void Close() {
    if (m_object != nullptr) {
      Closed().push_back(m_object->id);
      delete m_object;
    }
    m_object = nullptr;
    m_flags = 0;
  }
  int id() const { return m_object != nullptr ? m_object->id : -1; }
  unsigned flags() const { return m_flags; }

 private:
  Object* m_object;
  unsigned m_flags;
};
typedef gbb_AutoArray<TestHolder, Owner> Holders;

long long Frees() {
  return mem_GetStatistics().frees;
}

TEST(AutoArray, GrowsFrom16ByDoublingAndReserveNeverShrinks) {
  Bytes a;
  EXPECT_EQ(a.capacity(), 0);
  a.append(1, 1);
  EXPECT_EQ(a.capacity(), 16);
  for (int i = 1; i < 17; ++i) a.append(static_cast<unsigned char>(i + 1), 1);
  EXPECT_EQ(a.count(), 17);
  EXPECT_EQ(a.capacity(), 32);
  for (int i = 0; i < 17; ++i) EXPECT_EQ(a[i], i + 1);
  a.reserve(8);
  EXPECT_EQ(a.capacity(), 32);

  Bytes b(10);
  EXPECT_EQ(b.capacity(), 10);
  EXPECT_EQ(b.count(), 0);
  b.append(7, 11);  // 10 does not fit 11: doubles once
  EXPECT_EQ(b.capacity(), 20);
  b.append(b[0], 30);  // the value lives in the storage that moves
  EXPECT_EQ(b.count(), 41);
  EXPECT_EQ(b.capacity(), 80);
  EXPECT_EQ(b[40], 7);
}

TEST(AutoArray, CopyAndAssignmentTransfer) {
  Bytes a;
  unsigned char x = 9;
  a.append(x, 3);
  unsigned char* storage = a.data();

  Bytes b(a);
  EXPECT_EQ(a.count(), 0);
  EXPECT_EQ(a.capacity(), 0);
  EXPECT_EQ(a.data(), nullptr);
  EXPECT_EQ(b.count(), 3);
  EXPECT_EQ(b.data(), storage);

  Bytes::gbb_AutoArrayMoveSrc record = b;
  EXPECT_EQ(b.count(), 0);
  EXPECT_EQ(record.data, storage);
  Bytes c(record);
  EXPECT_EQ(c.count(), 3);
  EXPECT_EQ(c.capacity(), 16);

  Bytes d;
  d.append(x, 1);
  long long frees = Frees();
  d = c;  // d's own block goes first
  EXPECT_EQ(Frees(), frees + 1);
  EXPECT_EQ(d.data(), storage);
  EXPECT_EQ(c.count(), 0);
}

// Assignment destroys its own contents first, as the destructor does, and
// then takes the other array over: assigned to itself, an array ends empty.
TEST(AutoArray, AssigningAnArrayToItselfEmptiesIt) {
  Bytes d;
  unsigned char x = 4;
  d.append(x, 3);
  Bytes& alias = d;
  long long frees = Frees();
  d = alias;
  EXPECT_EQ(Frees(), frees + 1);
  EXPECT_EQ(d.count(), 0);
  EXPECT_EQ(d.capacity(), 0);
  EXPECT_EQ(d.data(), nullptr);

  Closed().clear();
  Holders h;
  for (int id = 1; id <= 3; ++id) {
    TestHolder one(id, 1);
    h.append(one, 1);
  }
  Holders& same = h;
  h = same;
  EXPECT_EQ(Closed(), (std::vector<int>{3, 2, 1}));  // closed last first
  EXPECT_EQ(h.count(), 0);
  EXPECT_EQ(h.data(), nullptr);

  // Only reserved room: the destructor's rule keeps it, and so does this.
  Bytes r(8);
  unsigned char* storage = r.data();
  Bytes& room = r;
  r = room;
  EXPECT_EQ(r.data(), storage);
  EXPECT_EQ(r.capacity(), 8);
  EXPECT_EQ(r.count(), 0);
  mem_Free(storage);  // the destructor leaves reserved room alone
}

TEST(AutoArray, DestructionLooksAtTheCountNotTheStorage) {
  alignas(Bytes) unsigned char place[sizeof(Bytes)];
  Bytes* a = new (place) Bytes(8);
  void* storage = a->data();
  ASSERT_NE(storage, nullptr);
  long long frees = Frees();
  a->~Bytes();
  EXPECT_EQ(Frees(), frees);  // reserved but never used: kept, deliberately
  mem_Free(storage);

  Bytes b;
  unsigned char x = 1;
  b.append(x, 2);
  b.truncate(5);
  EXPECT_EQ(b.count(), 0);
  EXPECT_EQ(b.capacity(), 0);
  EXPECT_EQ(b.data(), nullptr);
}

TEST(AutoArray, AppendTakesTheHolderOverAndFillsTheRestEmpty) {
  Closed().clear();
  {
    Holders a;
    TestHolder h(1, 3);
    a.append(h, 3);
    EXPECT_EQ(h.id(), -1);
    EXPECT_EQ(h.flags(), 0u);
    h.Close();
    EXPECT_TRUE(Closed().empty());
    ASSERT_EQ(a.count(), 3);
    EXPECT_EQ(a[0].id(), 1);
    EXPECT_EQ(a[0].flags(), 3u);
    EXPECT_EQ(a[1].id(), -1);
    EXPECT_EQ(a[2].flags(), 0u);
    for (int id = 2; id <= 20; ++id) {
      TestHolder more(id, 1);
      a.append(more, 1);  // crosses the first growth: holders move bitwise
    }
    EXPECT_EQ(a[21].id(), 20);
  }
  std::vector<int> lastFirst;
  for (int id = 20; id >= 1; --id) lastFirst.push_back(id);
  EXPECT_EQ(Closed(), lastFirst);
}

// A stored array's slots: n empty holders in exactly n zeroed slots, one
// block; an array that has storage already is left alone.
TEST(AutoArray, AssignZeroedMakesEmptyHoldersInOneBlock) {
  Closed().clear();
  {
    Holders a;
    long long allocations = mem_GetStatistics().allocations;
    a.assignZeroed(5);
    EXPECT_EQ(mem_GetStatistics().allocations, allocations + 1);
    ASSERT_EQ(a.count(), 5);
    EXPECT_EQ(a.capacity(), 5);
    for (int i = 0; i < 5; ++i) EXPECT_EQ(a[i].id(), -1);
    for (int i = 0; i < 5; ++i) EXPECT_EQ(a[i].flags(), 0u);
    a.assignZeroed(9);
    EXPECT_EQ(a.count(), 5);

    Holders none;
    none.assignZeroed(0);
    EXPECT_EQ(none.data(), nullptr);
  }
  EXPECT_TRUE(Closed().empty());
}

// Letting go of slots known to be zero frees the block and runs no
// destructor; the array is empty afterwards and can grow again.
TEST(AutoArray, ReleaseZeroedFreesTheBlockUnread) {
  Closed().clear();
  Holders a;
  a.assignZeroed(1000);
  new (&a[10]) TestHolder(3, 1);  // a slot its owner filled,
  a[10].Close();                  // then closed
  a.zeroSlot(10);
  long long frees = Frees();
  a.releaseZeroed();
  EXPECT_EQ(Frees(), frees + 1);
  EXPECT_EQ(a.count(), 0);
  EXPECT_EQ(a.capacity(), 0);
  EXPECT_EQ(a.data(), nullptr);
  TestHolder h(7, 0);
  a.append(h, 1);
  EXPECT_EQ(a[0].id(), 7);
  a.truncate(1);
  EXPECT_EQ(Closed(), (std::vector<int>{3, 7}));
}

TEST(AutoArray, TruncateAndRemoveDestroyOnlyWhatTheyTake) {
  Closed().clear();
  Holders a;
  for (int id = 0; id < 6; ++id) {
    TestHolder h(id, 1);
    a.append(h, 1);
  }
  a.truncate(0);
  EXPECT_EQ(a.count(), 6);
  a.truncate(2);
  EXPECT_EQ(Closed(), (std::vector<int>{5, 4}));
  ASSERT_EQ(a.count(), 4);

  Closed().clear();
  a.remove(1, 2);
  EXPECT_EQ(Closed(), (std::vector<int>{2, 1}));
  ASSERT_EQ(a.count(), 2);
  EXPECT_EQ(a[0].id(), 0);
  EXPECT_EQ(a[1].id(), 3);

  Closed().clear();
  a.remove(1, 100);  // clamped to the tail
  EXPECT_EQ(Closed(), (std::vector<int>{3}));
  EXPECT_EQ(a.count(), 1);

  Bytes b;
  for (int i = 0; i < 5; ++i) b.append(static_cast<unsigned char>(i), 1);
  b.remove(0, 2);
  ASSERT_EQ(b.count(), 3);
  EXPECT_EQ(b[0], 2);
  EXPECT_EQ(b[2], 4);
}

}  // namespace
