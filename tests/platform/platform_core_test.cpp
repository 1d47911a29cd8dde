// The platform core: the error stream (numbers, chaining, long output), its
// scoped captures and how they nest, the reference-counted string, and the
// allocator's sizes that saturate instead of wrapping.
#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "platform/core/aio_capture.h"
#include "platform/core/aio_ostream.h"
#include "platform/core/cow_String.h"
#include "platform/core/mem.h"
#include "platform/core/mem_SmallBlocks.h"
#include "support/capture.h"

namespace {

TEST(AioOstream, ChainsTextNumbersCharactersAndStrings) {
  CaptureErr err;
  aio_cerr.print("a ").print_int(0).put(' ').print_int(-17).put(' ').print_int(INT_MIN);
  aio_cerr.put(' ').print_int(INT_MAX).put(' ') << cow_String("cow");
  aio_cerr.print(nullptr);
  EXPECT_EQ(err.Text(), "a 0 -17 -2147483648 2147483647 cow");
}

TEST(AioOstream, LongOutputPassesThroughWhole) {
  CaptureErr err;
  std::string big(10000, 'x');
  aio_cerr.print("<").print(big.c_str()).print(">\n");
  EXPECT_EQ(err.Text(), "<" + big + ">\n");
}

// Captures nest: each takes what is printed while it is the innermost, and
// its end hands the stream back to exactly the sink it replaced (another
// capture, a sink of someone else's, in the end the file descriptor).
TEST(AioCapture, NestedCapturesHandTheStreamBackToWhatTheyReplaced) {
  aio_ostream stream(2);
  std::string below;
  aio_SinkFunction append = [](void* to, const char* bytes, int count) {
    static_cast<std::string*>(to)->append(bytes, static_cast<size_t>(count));
  };
  stream.SetSink(append, &below);
  stream.print("pending");  // not this capture's: flushed where it was going
  {
    aio_Capture outer(stream);
    EXPECT_EQ(below, "pending");
    stream.print("outer 1\n");
    {
      aio_Capture inner(stream);
      stream.print("inner\n");
      EXPECT_EQ(outer.Text(), "outer 1\n");
      EXPECT_EQ(inner.Take(), "inner\n");
      stream.print("inner again\n");
      EXPECT_EQ(inner.Text(), "inner again\n");
    }
    stream.print("outer 2\n");
    EXPECT_EQ(outer.Take(), "outer 1\nouter 2\n");
    stream.print("outer 3\n");
  }
  EXPECT_EQ(stream.Sink(), append);
  EXPECT_EQ(stream.SinkContext(), &below);
  stream.print("below\n");
  EXPECT_EQ(below, "pendingbelow\n");
  stream.SetSink(nullptr, nullptr);
  {
    CaptureErr err;  // the tests' name for the same capture, on aio_cerr
    EXPECT_NE(aio_cerr.Sink(), nullptr);
  }
  EXPECT_EQ(aio_cerr.Sink(), nullptr);
  EXPECT_EQ(aio_cerr.SinkContext(), nullptr);
}

TEST(CowString, CopiesShareAndCompareByContent) {
  cow_String none;
  EXPECT_FALSE(none.HasBuffer());
  EXPECT_STREQ(none.c_str(), "");
  cow_String empty("");
  EXPECT_TRUE(empty.HasBuffer());
  EXPECT_TRUE(empty.empty());
  EXPECT_EQ(none, empty);

  gbb_String a("file.sim");
  gbb_String b = a;
  EXPECT_EQ(a.c_str(), b.c_str());  // shared buffer
  EXPECT_EQ(a.length(), 8);
  b = cow_String("other");
  EXPECT_STREQ(a.c_str(), "file.sim");
  EXPECT_NE(a, b);
  EXPECT_EQ(cow_String("ab\0c", 4).length(), 4);
}

TEST(Mem, SaturatedSizesFailInsteadOfWrapping) {
  EXPECT_EQ(mem_ArraySize(-1, 4), SIZE_MAX);
  EXPECT_EQ(mem_ArraySize(static_cast<long long>(SIZE_MAX / 2), 4), SIZE_MAX);
  EXPECT_EQ(mem_ArraySize(3, 4), 12u);
  EXPECT_THROW(mem_OperatorNewThrowBuiltin(SIZE_MAX), mem_Exhausted);
  EXPECT_THROW(mem_Realloc(nullptr, SIZE_MAX), mem_Exhausted);
}

bool AllZero(const unsigned char* p, size_t size) {
  return size == 0 || (p[0] == 0 && std::memcmp(p, p + 1, size - 1) == 0);
}

// Large zeroed blocks (slot tables) are pages of their own: zero every time,
// however often one is freed and made again, grown with their contents kept,
// and freed like any other block; beyond the blocks it lists, calloc serves.
TEST(Mem, LargeZeroedBlocksAreZeroEveryTimeAndGrowAndFreeLikeOthers) {
  const size_t kLarge = size_t{4} << 20;
  for (int round = 0; round < 3; ++round) {
    auto* p = static_cast<unsigned char*>(mem_OperatorNewZeroedThrow(kLarge));
    ASSERT_TRUE(AllZero(p, kLarge)) << "round " << round;
    std::memset(p, 0xAB, kLarge);  // what a reused heap block would still hold
    mem_Free(p);
  }
  auto* p = static_cast<unsigned char*>(mem_OperatorNewZeroedThrow(kLarge));
  p[0] = 1;
  p[kLarge - 1] = 2;
  auto* grown = static_cast<unsigned char*>(mem_Realloc(p, 2 * kLarge));
  EXPECT_EQ(grown[0], 1);
  EXPECT_EQ(grown[kLarge - 1], 2);
  EXPECT_TRUE(AllZero(grown + 1, kLarge - 2));
  auto* shrunk = static_cast<unsigned char*>(mem_Realloc(grown, 16));
  EXPECT_EQ(shrunk[0], 1);
  mem_Free(shrunk);

  std::vector<unsigned char*> many;
  for (int i = 0; i < 70; ++i) {
    many.push_back(static_cast<unsigned char*>(mem_OperatorNewZeroedThrow(size_t{1} << 20)));
    EXPECT_TRUE(AllZero(many.back(), size_t{1} << 20)) << "block " << i;
  }
  for (unsigned char* block : many) mem_Free(block);
}

// A large block handed back all zero is kept, pages and all: the next zeroed
// request it fits gets it again (the smallest spare that fits), zero; one
// it does not fit gets a block of its own.
TEST(Mem, LargeBlocksHandedBackZeroAreHandedOutAgain) {
  const size_t kLarge = size_t{4} << 20;
  auto* small = static_cast<unsigned char*>(mem_OperatorNewZeroedThrow(kLarge));
  auto* big = static_cast<unsigned char*>(mem_OperatorNewZeroedThrow(2 * kLarge));
  small[12345] = 7;  // used, then cleared by its owner
  small[12345] = 0;
  long long frees = mem_GetStatistics().frees;
  mem_FreeZeroed(big);
  mem_FreeZeroed(small);
  EXPECT_EQ(mem_GetStatistics().frees, frees + 2);

  auto* again = static_cast<unsigned char*>(mem_OperatorNewZeroedThrow(kLarge - 4096));
  EXPECT_EQ(again, small);
  EXPECT_TRUE(AllZero(again, kLarge));
  auto* larger = static_cast<unsigned char*>(mem_OperatorNewZeroedThrow(3 * kLarge));
  EXPECT_NE(larger, big);
  EXPECT_TRUE(AllZero(larger, 3 * kLarge));
  auto* second = static_cast<unsigned char*>(mem_OperatorNewZeroedThrow(kLarge));
  EXPECT_EQ(second, big);
  larger[0] = 1;
  mem_Free(larger);  // not known to be zero: unmapped
  mem_FreeZeroed(again);
  mem_FreeZeroed(second);

  // Two are kept, the newest: the older ones are unmapped as newer come.
  std::vector<unsigned char*> blocks;
  for (int i = 0; i < 4; ++i)
    blocks.push_back(static_cast<unsigned char*>(mem_OperatorNewZeroedThrow(kLarge)));
  for (unsigned char* block : blocks) mem_FreeZeroed(block);
  std::vector<unsigned char*> next;
  for (int i = 0; i < 4; ++i) {
    next.push_back(static_cast<unsigned char*>(mem_OperatorNewZeroedThrow(kLarge)));
    EXPECT_TRUE(AllZero(next.back(), kLarge)) << "block " << i;
  }
  EXPECT_EQ(next[0], blocks[2]);
  EXPECT_EQ(next[1], blocks[3]);
  for (unsigned char* block : next) mem_Free(block);

  // A small block goes back to the heap as any other.
  mem_FreeZeroed(mem_OperatorNewZeroedThrow(64));
  mem_FreeZeroed(nullptr);
}

// Small blocks: every size up to the limit is aligned for any object and
// usable to its last byte; a freed block is handed out again to its size
// class, growing keeps the contents, and the counters count as for the
// heap. (Under the sanitizers the heap serves, and the checks that need the
// size classes are skipped.)
TEST(Mem, SmallBlocksAreAlignedUsableAndRecycledByClass) {
  std::vector<unsigned char*> blocks;
  for (size_t size = 0; size <= kMemSmallMax; ++size) {
    auto* p = static_cast<unsigned char*>(mem_OperatorNewThrow(size));
    EXPECT_EQ(reinterpret_cast<uintptr_t>(p) % 16, 0u) << size;
    std::memset(p, static_cast<int>(size), size);
    blocks.push_back(p);
  }
  for (size_t size = 0; size <= kMemSmallMax; ++size) {
    const unsigned char* p = blocks[size];
    for (size_t i = 0; i < size; ++i) ASSERT_EQ(p[i], static_cast<unsigned char>(size)) << size;
  }
  const bool classes = mem_SmallSize(blocks[100]) != 0;
  if (classes) {
    EXPECT_EQ(mem_SmallSize(blocks[100]), 112u);
  }
  EXPECT_EQ(mem_SmallSize(blocks.data()), 0u);

  mem_Statistics before = mem_GetStatistics();
  unsigned char* freed = blocks[40];
  mem_Free(freed);
  auto* again = static_cast<unsigned char*>(mem_OperatorNewThrowBuiltin(33));
  if (classes) {
    EXPECT_EQ(again, freed);  // 33 and 40 bytes share a class
  }
  blocks[40] = again;

  std::memcpy(again, "0123456789abcdef0123456789abcdef!", 33);
  auto* grown = static_cast<unsigned char*>(mem_Realloc(again, 48));
  if (classes) {
    EXPECT_EQ(grown, again);  // still fits its class
  }
  grown = static_cast<unsigned char*>(mem_Realloc(grown, 1000));
  EXPECT_EQ(std::memcmp(grown, "0123456789abcdef0123456789abcdef!", 33), 0);
  grown = static_cast<unsigned char*>(mem_Realloc(grown, 20));
  EXPECT_EQ(std::memcmp(grown, "0123456789abcdef0123", 20), 0);
  blocks[40] = grown;
  mem_Statistics after = mem_GetStatistics();
  EXPECT_EQ(after.allocations, before.allocations + 1);
  EXPECT_EQ(after.reallocations, before.reallocations + 3);
  EXPECT_EQ(after.frees, before.frees + 1);
  for (unsigned char* p : blocks) mem_Free(p);
}

}  // namespace
