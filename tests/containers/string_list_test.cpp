// ada_string and ada_List: ownership, growth, copying, the out-of-bounds
// message, and the allocation promises (checked through mem_GetStatistics).
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "containers/ada_List.h"
#include "containers/ada_string.h"
#include "platform/core/mem.h"
#include "support/capture.h"

namespace {

long long Allocations() {
  return mem_GetStatistics().allocations;
}
long long Frees() {
  return mem_GetStatistics().frees;
}

TEST(AdaString, EmptyTextsOwnNoBuffer) {
  long long before = Allocations();
  ada_string fromEmpty("");
  ada_string fromNull(nullptr);
  ada_string byDefault;
  ada_string copy(fromEmpty);
  EXPECT_EQ(Allocations(), before);
  for (const ada_string* s : {&fromEmpty, &fromNull, &byDefault, &copy}) {
    ASSERT_NE(s->cStr(), nullptr);
    EXPECT_EQ(s->cStr()[0], '\0');
    EXPECT_EQ(s->byteCount(), 0);
  }
  // All empty strings share one zero byte.
  EXPECT_EQ(fromEmpty.cStr(), fromNull.cStr());
}

TEST(AdaString, CopiesAreDeepAssignmentIsSafeAndSwapAllocatesNothing) {
  long long before = Allocations();
  ada_string abc("abc");
  EXPECT_EQ(Allocations(), before + 1);
  EXPECT_EQ(abc.byteCount(), 3);
  ada_string copy(abc);
  EXPECT_NE(copy.cStr(), abc.cStr());
  EXPECT_STREQ(copy.cStr(), "abc");
  copy = copy;  // self-assignment keeps the text
  EXPECT_STREQ(copy.cStr(), "abc");
  ada_string other("xy");
  copy = other;
  EXPECT_STREQ(copy.cStr(), "xy");
  EXPECT_STREQ(abc.cStr(), "abc");

  // Swap exchanges the buffers without allocating.
  const char* buffer = abc.cStr();
  before = Allocations();
  abc.swap(other);
  EXPECT_EQ(Allocations(), before);
  EXPECT_STREQ(abc.cStr(), "xy");
  EXPECT_EQ(other.cStr(), buffer);
}

TEST(AdaList, GrowthStartsAtSixteenOrTheReserveAndDoubles) {
  ada_List<int> list;
  EXPECT_EQ(list.count(), 0);
  EXPECT_EQ(list.capacity(), 0);
  EXPECT_EQ(list.data(), nullptr);
  list.clear();  // nothing to do
  list.append(1, 1);
  EXPECT_EQ(list.capacity(), 16);
  list.append(2, 15);
  EXPECT_EQ(list.capacity(), 16);
  list.append(3, 1);
  EXPECT_EQ(list.capacity(), 32);
  EXPECT_EQ(list.count(), 17);
  EXPECT_EQ(list[0], 1);
  EXPECT_EQ(list[15], 2);
  EXPECT_EQ(list[16], 3);

  ada_List<int> bulk;
  bulk.append(9, 40);
  EXPECT_EQ(bulk.capacity(), 64);
  EXPECT_EQ(bulk.count(), 40);

  // An exact reserve, then doubling from there; reserve never shrinks.
  ada_List<double> reserved;
  reserved.reserve(10);
  EXPECT_EQ(reserved.capacity(), 10);
  reserved.append(0.5, 10);
  EXPECT_EQ(reserved.capacity(), 10);
  reserved.append(1.5, 1);
  EXPECT_EQ(reserved.capacity(), 20);
  reserved.reserve(5);
  EXPECT_EQ(reserved.capacity(), 20);
}

TEST(AdaList, CopyTakesTheCountAsCapacity) {
  ada_List<int> source;
  for (int i = 0; i < 5; ++i) source.append(i, 1);
  ada_List<int> copy(source);
  EXPECT_EQ(copy.count(), 5);
  EXPECT_EQ(copy.capacity(), 5);
  EXPECT_NE(copy.data(), source.data());
  for (int i = 0; i < 5; ++i) EXPECT_EQ(copy[i], i);

  ada_List<int> empty;
  long long before = Allocations();
  ada_List<int> emptyCopy(empty);
  EXPECT_EQ(Allocations(), before);
  EXPECT_EQ(emptyCopy.capacity(), 0);
}

TEST(AdaList, ClearDestroysEachElementOnceAndReleasesUsedStorageOnly) {
  ada_List<ada_string> list;
  list.append(ada_string("a"), 1);
  list.append(ada_string("bb"), 2);
  long long freesBefore = Frees();
  list.clear();
  // Three string buffers and the block.
  EXPECT_EQ(Frees(), freesBefore + 4);
  EXPECT_EQ(list.count(), 0);
  EXPECT_EQ(list.capacity(), 0);
  EXPECT_EQ(list.data(), nullptr);

  // A reserved but empty list keeps its storage through clear.
  ada_List<int> reserved;
  reserved.reserve(16);
  reserved.clear();
  EXPECT_EQ(reserved.capacity(), 16);
  EXPECT_NE(reserved.data(), nullptr);
  // The block is deliberately never released; free it here to keep the
  // sanitizer build's leak check meaningful for everything else.
  mem_Free(const_cast<int*>(reserved.data()));
}

TEST(AdaList, StringElementsAreDeepCopiesAndSurviveRelocation) {
  ada_List<ada_string> list;
  ada_string text("persistent");
  for (int i = 0; i < 100; ++i) list.append(text, 1);  // several reallocations
  for (int i = 0; i < 100; ++i) {
    EXPECT_STREQ(list[i].cStr(), "persistent");
    EXPECT_NE(list[i].cStr(), text.cStr());
  }
  // Appending an element of the list to itself across a reallocation.
  ada_List<ada_string> self;
  self.append(ada_string("x"), 16);
  self.append(self[3], 1);
  EXPECT_STREQ(self[16].cStr(), "x");
}

TEST(AdaList, SwapAndNoneElements) {
  ada_List<int> a, b;
  a.append(1, 3);
  long long before = Allocations();
  a.swap(b);
  EXPECT_EQ(Allocations(), before);
  EXPECT_EQ(a.count(), 0);
  EXPECT_EQ(b.count(), 3);

  ada_List<ada_none> nothing;
  nothing.append(ada_none(), 20);
  EXPECT_EQ(nothing.count(), 20);
  EXPECT_EQ(nothing.capacity(), 32);
  EXPECT_EQ(&nothing[1] - &nothing[0], 1);  // one byte per slot

  // A negative n is not guarded against: a list of nothing counts down.
  nothing.append(ada_none(), -5);
  EXPECT_EQ(nothing.count(), 15);
  EXPECT_EQ(nothing.capacity(), 32);
  ada_List<int> ints;
  ints.append(7, 2);
  ints.append(7, -1);
  EXPECT_EQ(ints.count(), 2);
}

// Out of range, both operators print and answer the slot computed from the
// storage, as for a valid index: end pointers work. Only addresses are
// compared; reading such a slot is the caller's business. A list without
// storage answers a scratch slot holding the type's default.
TEST(AdaList, OutOfRangeIndicesPrintAndAnswerTheComputedSlot) {
  CaptureErr err;
  ada_List<QELSimCSetID> ids;
  ids.append(QELSimCSetID(3, 4, 5), 2);
  const ada_List<QELSimCSetID>& constant = ids;
  EXPECT_EQ(&ids[2], ids.data() + 2);
  EXPECT_EQ(&constant[-1], ids.data() - 1);
  EXPECT_EQ(&constant[40], ids.data() + 40);
  EXPECT_EQ(err.Take(),
            "** ERROR ada_List::operator[]: index 2 is out of bounds\n"
            "** ERROR ada_List::operator[]: index -1 is out of bounds\n"
            "** ERROR ada_List::operator[]: index 40 is out of bounds\n");
  ada_List<ada_string> strings;
  EXPECT_STREQ(strings[0].cStr(), "");
  EXPECT_EQ(err.Take(), "** ERROR ada_List::operator[]: index 0 is out of bounds\n");
  strings.append(ada_string("a"), 1);
  EXPECT_EQ(&strings[-1], strings.data() - 1);
  EXPECT_EQ(err.Take(), "** ERROR ada_List::operator[]: index -1 is out of bounds\n");
  EXPECT_EQ(&strings[1], strings.data() + 1);
  EXPECT_EQ(err.Take(), "** ERROR ada_List::operator[]: index 1 is out of bounds\n");
  EXPECT_STREQ(strings[0].cStr(), "a");
  EXPECT_EQ(err.Text(), "");
}

}  // namespace
