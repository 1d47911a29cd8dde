// Start-up counting of the library and its modules. Each test file runs in
// its own process, so the counters start at zero here; the steps run in order
// and leave the library finalised.
#include <gtest/gtest.h>

#include "frame/DDB_PDM_Core_startup.h"
#include "platform/core/suite_startup.h"

namespace {

TEST(Startup, CountsOfEachInitialiseAndFinaliseInTurn) {
  struct Step {
    void (*call)(int&);
    int counted;
    const char* why;
  } steps[] = {
      {DDB_PDM_Core_initialize, 9, "first: the library, four suite libraries and four modules"},
      {DDB_PDM_Core_initialize, 0, "again"},
      {DDB_PDM_Core_finalize, 0, "still referenced once"},
      {DDB_PDM_Core_finalize, -9, "the last reference"},
      // A module initialised before the library is shared and finalised last.
      {msfD_initialize, 1, "a module first"},
      {DDB_PDM_Core_initialize, 8, "msfD was already up"},
      {DDB_PDM_Core_finalize, -8, "msfD still held by its direct user"},
      {msfD_finalize, -1, "the module's direct user lets go"},
      // An unguarded finalise goes negative; the next initialise does not count.
      {msfD_finalize, 0, "counter -1"},
      {msfD_initialize, 0, "back to 0: not counted"},
      {msfD_initialize, 1, "0 -> 1: counted"},
      {msfD_finalize, -1, "1 -> 0"},
      // Repeated start and stop cycles.
      {DDB_PDM_Core_initialize, 9, "cycle 1"},
      {DDB_PDM_Core_finalize, -9, "cycle 1"},
      {DDB_PDM_Core_initialize, 9, "cycle 2"},
      {DDB_PDM_Core_finalize, -9, "cycle 2"},
      {DDB_PDM_Core_initialize, 9, "cycle 3"},
      {DDB_PDM_Core_finalize, -9, "cycle 3"},
  };
  int step = 0;
  for (const Step& s : steps) {
    SCOPED_TRACE(testing::Message() << "step " << step++ << ": " << s.why);
    int count = 0;
    s.call(count);
    EXPECT_EQ(count, s.counted);
  }
}

}  // namespace
