// Start-up counting of the library and its modules. Each test file runs in
// its own process, so the counters start at zero here; the tests run in order
// and leave the library finalised.
#include <gtest/gtest.h>

#include "frame/DDB_PDM_Core_startup.h"
#include "platform/core/suite_startup.h"

namespace {

TEST(Startup, FirstInitialiseCountsLibraryModulesAndSuiteLibraries) {
  int count = 0;
  DDB_PDM_Core_initialize(count);
  // The library, four suite libraries and four modules.
  EXPECT_EQ(count, 9);
  int again = 0;
  DDB_PDM_Core_initialize(again);
  EXPECT_EQ(again, 0);
  int down = 0;
  DDB_PDM_Core_finalize(down);
  EXPECT_EQ(down, 0);  // still referenced once
  DDB_PDM_Core_finalize(down);
  EXPECT_EQ(down, -9);
}

TEST(Startup, ModuleInitialisedBeforeLibraryIsSharedAndFinalisedLast) {
  int count = 0;
  msfD_initialize(count);
  EXPECT_EQ(count, 1);
  count = 0;
  DDB_PDM_Core_initialize(count);
  EXPECT_EQ(count, 8);  // msfD was already up
  count = 0;
  DDB_PDM_Core_finalize(count);
  EXPECT_EQ(count, -8);  // msfD still held by its direct user
  count = 0;
  msfD_finalize(count);
  EXPECT_EQ(count, -1);
}

TEST(Startup, UnguardedFinaliseGoesNegativeAndTheNextInitialiseDoesNotCount) {
  int count = 0;
  msfD_finalize(count);  // counter -1
  EXPECT_EQ(count, 0);
  msfD_initialize(count);  // back to 0: not counted
  EXPECT_EQ(count, 0);
  msfD_initialize(count);  // 0 -> 1: counted
  EXPECT_EQ(count, 1);
  msfD_finalize(count);
  EXPECT_EQ(count, 0);
}

TEST(Startup, RepeatedStartAndStopCycles) {
  for (int i = 0; i < 3; ++i) {
    int count = 0;
    DDB_PDM_Core_initialize(count);
    EXPECT_EQ(count, 9);
    DDB_PDM_Core_finalize(count);
    EXPECT_EQ(count, 0);
  }
}

}  // namespace
