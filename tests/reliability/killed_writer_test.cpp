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
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "platform/hdf/hdf_File.h"
#include "reliability/crash_workload.h"
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

// Runs the workload on `path` in a child that reports each commit that
// returned (one byte down a pipe) and kills it `delayMicros` after the
// `target`-th report, before it can close anything. Returns how many commits
// it reported in all, those already on their way included.
int KillAfter(const std::string& path, int target, int delayMicros) {
  int pipeFds[2];
  if (pipe(pipeFds) != 0) abort();
  pid_t child = fork();
  if (child == 0) {
    close(pipeFds[0]);
    auto report = [&](int, const Facts&) {
      if (write(pipeFds[1], "c", 1) != 1) _exit(3);
    };
    RunWorkload(path, kCommits, report);
    _exit(0);  // all commits done and the database closed
  }
  close(pipeFds[1]);
  int reported = 0;
  char buffer[4096];
  for (ssize_t n; (n = read(pipeFds[0], buffer, sizeof buffer)) > 0;) {
    if (reported < target && reported + n >= target) {
      usleep(static_cast<useconds_t>(delayMicros));
      kill(child, SIGKILL);
    }
    reported += static_cast<int>(n);
  }
  waitpid(child, nullptr, 0);
  close(pipeFds[0]);
  return reported;
}

// The facts after `commits` commits, for the message of a failure.
Facts FactsAfter(const std::string& path, int commits) {
  Facts result{{"open", "failed"}};
  RunWorkload(path, commits, [&](int, const Facts& facts) { result = facts; });
  return result;
}

TEST(KilledWriter, EveryReportedCommitSurvivesAndNothingBeyondTheOneInFlight) {
  if (getenv("DDB_NO_JOURNAL") != nullptr) hdf_File::SetJournaling(false);
  ScratchDir dir;
  std::vector<uint64_t> digest(kCommits + 1);
  digest[0] = FactsDigest({{"open", "failed"}});
  RunWorkload(dir.File("reference.sim"), kCommits, [&](int c, const Facts& facts) {
    digest[static_cast<size_t>(c)] = FactsDigest(facts);
  });

  std::mt19937 random(20261123);
  std::uniform_int_distribution<int> target(1, kCommits);
  std::uniform_int_distribution<int> delay(0, 400);
  const int kills = Kills();
  int atReported = 0, inFlight = 0, lost = 0, reopenedReadOnly = 0;
  for (int k = 0; k < kills; ++k) {
    std::string path = dir.File("killed.sim");
    unlink(path.c_str());
    unlink((path + "-journal").c_str());
    int reported = KillAfter(path, target(random), delay(random));
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
