// Soak: many cycles of create, fill, close, reopen, walk, close in one
// process. Open HDF5 identifiers, file descriptors and resident memory must
// stay flat; the first and last figures are printed.
//
//   DDB_SOAK_CYCLES=1000 build/release/tests/soak_test   (the test command runs 100)
#include <dirent.h>
#include <gtest/gtest.h>
#include <hdf5.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "reliability/crash_workload.h"
#include "reliability/walk.h"
#include "support/scratch_dir.h"

namespace {

struct Figures {
  long identifiers;
  long descriptors;
  long residentKiB;
};

Figures Measure() {
  Figures f{static_cast<long>(H5Fget_obj_count(H5F_OBJ_ALL, H5F_OBJ_ALL)), 0, 0};
  if (DIR* fds = opendir("/proc/self/fd")) {
    while (readdir(fds) != nullptr) ++f.descriptors;
    closedir(fds);
  }
  long pages = 0, resident = 0;
  if (FILE* statm = fopen("/proc/self/statm", "r")) {
    if (fscanf(statm, "%ld %ld", &pages, &resident) != 2) resident = 0;
    fclose(statm);
  }
  f.residentKiB = resident * (getpagesize() / 1024);
  return f;
}

TEST(Soak, IdentifiersDescriptorsAndMemoryStayFlatOverManyCycles) {
  const char* text = getenv("DDB_SOAK_CYCLES");
  const int cycles = text != nullptr ? atoi(text) : 100;
  ScratchDir dir;
  std::string path = dir.File("soak.sim");
  Figures first{0, 0, 0};
  size_t walked = 0;
  for (int cycle = 0; cycle < cycles; ++cycle) {
    unlink(path.c_str());
    RunWorkload(path, 30);
    std::string walk = WalkDatabase(path);
    if (cycle == 0) walked = walk.size();
    ASSERT_EQ(walk.size(), walked) << "cycle " << cycle;
    // Allocators settle during the first cycles; measure from the tenth.
    if (cycle == std::min(9, cycles - 1)) first = Measure();
  }
  Figures last = Measure();
  printf(
      "soak, %d cycles: HDF5 identifiers %ld -> %ld, descriptors %ld -> %ld, resident %ld KiB -> "
      "%ld KiB\n",
      cycles, first.identifiers, last.identifiers, first.descriptors, last.descriptors,
      first.residentKiB, last.residentKiB);
  EXPECT_EQ(last.identifiers, first.identifiers);
  EXPECT_EQ(last.descriptors, first.descriptors);
#if !defined(__SANITIZE_ADDRESS__)  // its quarantine keeps freed memory resident by design
  EXPECT_LT(last.residentKiB - first.residentKiB, 8 * 1024) << "resident memory grew";
#endif
}

}  // namespace
