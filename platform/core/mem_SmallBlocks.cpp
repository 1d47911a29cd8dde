// Size classes carved from one reserved address range; see the header.
#include "platform/core/mem_SmallBlocks.h"

#include <sys/mman.h>

#include <cstdint>

#if defined(__has_include)
#if __has_include(<valgrind/valgrind.h>)
#include <valgrind/valgrind.h>
#endif
#endif

namespace {

constexpr size_t kGrain = 16;
constexpr int kClasses = static_cast<int>(kMemSmallMax / kGrain);
// Address space only: pages become usable kCommitStep at a time, and cost
// memory once touched. 16 GiB is some fifteen million loaded FE systems; past
// that, and where a limit on address space refuses the reservation, the
// heap serves.
constexpr size_t kReserve = size_t{16} << 30;
constexpr size_t kCommitStep = size_t{1} << 20;
constexpr size_t kRun = size_t{64} << 10;
constexpr size_t kRuns = kReserve / kRun;

struct FreeBlock {
  FreeBlock* next;
};

struct Pool {
  enum State { kUnused, kOn, kOff };
  State state = kUnused;
  char* base = nullptr;
  char* committed = nullptr;  // end of the read-write part
  char* carved = nullptr;     // end of the runs given to classes
  FreeBlock* free[kClasses] = {};
  char* next[kClasses] = {};  // the class's current run: next block, end
  char* end[kClasses] = {};
};
Pool g_pool;
unsigned char g_classOfRun[kRuns];  // untouched pages cost nothing

bool Sanitized() {
#if defined(__SANITIZE_ADDRESS__)
  return true;
#elif defined(RUNNING_ON_VALGRIND)
  return RUNNING_ON_VALGRIND != 0;
#else
  return false;
#endif
}

bool Start() {
  g_pool.state = Pool::kOff;
  if (Sanitized()) return false;
  // Reserved inaccessible, so that no memory is promised for it yet.
  void* p = mmap(nullptr, kReserve, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (p == MAP_FAILED) return false;
  g_pool.base = g_pool.committed = g_pool.carved = static_cast<char*>(p);
  g_pool.state = Pool::kOn;
  return true;
}

// A fresh run of 64 KiB for class c.
bool NewRun(int c) {
  if (g_pool.carved == g_pool.committed) {
    if (g_pool.committed == g_pool.base + kReserve) return false;
    if (mprotect(g_pool.committed, kCommitStep, PROT_READ | PROT_WRITE) != 0) return false;
    g_pool.committed += kCommitStep;
  }
  g_classOfRun[static_cast<size_t>(g_pool.carved - g_pool.base) / kRun] =
      static_cast<unsigned char>(c);
  g_pool.next[c] = g_pool.carved;
  g_pool.end[c] = g_pool.carved + kRun;
  g_pool.carved += kRun;
  return true;
}

bool IsSmall(const void* pointer) {
  return reinterpret_cast<uintptr_t>(pointer) - reinterpret_cast<uintptr_t>(g_pool.base) <
         static_cast<uintptr_t>(g_pool.carved - g_pool.base);
}

// The class of a small block: its run's.
int ClassOf(const void* pointer) {
  return g_classOfRun[static_cast<size_t>(static_cast<const char*>(pointer) - g_pool.base) / kRun];
}

}  // namespace

void* mem_SmallAllocate(size_t size) {
  if (g_pool.state != Pool::kOn && (g_pool.state == Pool::kOff || !Start())) return nullptr;
  int c = size == 0 ? 0 : static_cast<int>((size - 1) / kGrain);
  if (FreeBlock* block = g_pool.free[c]) {
    g_pool.free[c] = block->next;
    return block;
  }
  const size_t blockSize = kGrain * static_cast<size_t>(c + 1);
  if (static_cast<size_t>(g_pool.end[c] - g_pool.next[c]) < blockSize && !NewRun(c)) return nullptr;
  void* block = g_pool.next[c];
  g_pool.next[c] += blockSize;
  return block;
}

size_t mem_SmallSize(const void* pointer) {
  if (!IsSmall(pointer)) return 0;
  return kGrain * static_cast<size_t>(ClassOf(pointer) + 1);
}

bool mem_SmallFree(void* pointer) {
  if (!IsSmall(pointer)) return false;
  const int c = ClassOf(pointer);
  FreeBlock* block = static_cast<FreeBlock*>(pointer);
  block->next = g_pool.free[c];
  g_pool.free[c] = block;
  return true;
}
