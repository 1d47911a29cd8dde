// Killed writers: a child runs thousands of commits of every kind and
// reports each one that returned; the parent kills it with SIGKILL at a
// random moment (fixed seed), reopens the file and checks that it holds
// every reported commit and nothing beyond the one in flight.
//
//   DDB_KILLS=1000 build/release/tests/killed_writer_test   (the full run;
//   the test command runs 100 kills, 30 under the sanitizers)
//
// DDB_NO_JOURNAL=1 runs the same without the journal, to see what it prevents.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "platform/hdf/hdf_File.h"
#include "reliability/crash_workload.h"
#include "support/killed_writer.h"
#include "support/scratch_dir.h"

namespace {

const int kCommits = 3000;

int Kills() {
  const char* text = getenv("DDB_KILLS");
  if (text != nullptr) return atoi(text);
#if defined(__SANITIZE_ADDRESS__)
  return 30;
#else
  return 100;
#endif
}

// The facts after `commits` commits, for the message of a failure.
Facts FactsAfter(const std::string& path, int commits) {
  Facts result{{"open", "failed"}};
  RunWorkload(
      path, commits,
      [&](int c, const Facts& facts) {
        if (c == commits) result = facts;
      },
      [] {});
  return result;
}

TEST(KilledWriter, EveryReportedCommitSurvivesAndNothingBeyondTheOneInFlight) {
  if (getenv("DDB_NO_JOURNAL") != nullptr) hdf_File::SetJournaling(false);
  ScratchDir dir;
  std::vector<uint64_t> digest(kCommits + 1);
  digest[0] = FactsDigest({{"open", "failed"}});
  RunWorkload(
      dir.File("reference.sim"), kCommits,
      [&](int c, const Facts& facts) { digest[static_cast<size_t>(c)] = FactsDigest(facts); },
      [] {});

  std::mt19937 random(20261123);
  std::uniform_int_distribution<int> target(1, kCommits);
  std::uniform_int_distribution<int> delay(0, 400);
  const int kills = Kills();
  int atReported = 0, inFlight = 0, lost = 0, reopenedReadOnly = 0;
  for (int k = 0; k < kills; ++k) {
    std::string path = dir.File("killed.sim");
    unlink(path.c_str());
    unlink((path + "-journal").c_str());
    int reported = KillAfter(
        [&](const ReportFunction& report) {
          RunWorkload(
              path, kCommits, [&](int c, const Facts&) { report(std::to_string(c)); }, [] {});
        },
        target(random), delay(random));
    // Half the files are settled by an open for update, half read through
    // their journal without a byte changed.
    bool readOnly = k % 2 == 1;
    reopenedReadOnly += readOnly;
    Facts facts = ReadFacts(path, readOnly);
    uint64_t found = FactsDigest(facts);
    if (found == digest[static_cast<size_t>(reported)]) {
      ++atReported;
    } else if (reported < kCommits && found == digest[static_cast<size_t>(reported) + 1]) {
      ++inFlight;
    } else {
      if (lost++ == 0) {
        ADD_FAILURE() << "kill " << k << " after commit " << reported << " (read-only " << readOnly
                      << "), against that commit:\n"
                      << FactsDiff(FactsAfter(dir.File("diagnosis.sim"), reported), facts);
      }
    }
  }
  printf("killed writers: %d kills, %d files reopened (%d read-only), commits lost: %d\n", kills,
         kills, reopenedReadOnly, lost);
  printf("  state at the last reported commit: %d, with the commit in flight: %d\n", atReported,
         inFlight);
  EXPECT_EQ(lost, 0);
}

}  // namespace
