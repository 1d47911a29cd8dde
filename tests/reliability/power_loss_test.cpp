// Power loss, acted out through the journal's file interface (crash_io.h):
// at every sync point of representative commits and of a replay, each write
// not yet synced is kept, lost or torn, and the machine "stops". With
// SyncCommits the database must reopen at the last completed commit or the
// one in flight; without it, a reopen must still never crash, and the test
// says how often the state was a committed one.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <functional>
#include <map>
#include <string>

#include <DDB_PDM_Core.h>

#include "platform/hdf/hdf_File.h"
#include "platform/service/QELSimManager.h"
#include "reliability/crash_io.h"
#include "reliability/crash_workload.h"
#include "support/scratch_dir.h"

namespace {

const int kCommits[] = {11, 13, 16, 18};
const int kLast = 18;

class PowerLoss : public testing::Test {
 protected:
  void SetUp() override {
    path = dir.File("db.sim");
    journal = path + "-journal";
    RunWorkload(dir.File("reference.sim"), kLast, [&](int c, const Facts& f) { after[c] = f; });
  }
  void TearDown() override { SetWorkloadOption(0); }

  void Remove() {
    unlink(path.c_str());
    unlink(journal.c_str());
  }

  // Runs the workload to `commit` - 1, then loses power at the `point`-th
  // sync point (or change) of commit `commit`. -1 when the power went.
  int CommitWithPowerLoss(int commit, long point, bool atChange) {
    Remove();
    return RunToEnd([&] {
      RunWorkload(
          path, commit,
          [&](int c, const Facts&) {
            if (c == commit - 1) PowerLossAt(point, atChange, uint64_t(commit) * 7919 + point);
          },
          [] { _exit(0); });
    });
  }

  // In a child: the facts of the reopened database, written down a pipe,
  // or "crashed" when the reading process did not end normally.
  std::string Reopen(bool readOnly) {
    int out[2];
    if (pipe(out) != 0) return "no pipe";
    pid_t child = fork();
    if (child == 0) {
      close(out[0]);
      Facts found = ReadFacts(path, readOnly);
      std::string text;
      for (const auto& f : found) text += f.first + "=" + f.second + "\n";
      ssize_t ignored = write(out[1], text.data(), text.size());
      (void)ignored;
      _exit(0);
    }
    close(out[1]);
    std::string text;
    char chunk[4096];
    ssize_t n;
    while ((n = read(out[0], chunk, sizeof chunk)) > 0) text.append(chunk, static_cast<size_t>(n));
    close(out[0]);
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0 ? text : "crashed";
  }

  static std::string Text(const Facts& facts) {
    std::string text;
    for (const auto& f : facts) text += f.first + "=" + f.second + "\n";
    return text;
  }

  ScratchDir dir;
  std::string path, journal;
  std::map<int, Facts> after;
};

TEST_F(PowerLoss, WithSyncCommitsEveryCompletedCommitSurvivesAtEverySyncPoint) {
  SetWorkloadOption(QELSimManager::SyncCommits);
  for (int commit : kCommits) {
    int points = 0;
    while (CommitWithPowerLoss(commit, points + 1, false) == -1) {
      ++points;
      Facts found = ReadFacts(path, points % 2 == 0);
      EXPECT_TRUE(found == after[commit - 1] || found == after[commit])
          << "commit " << commit << ", power lost at sync point " << points << ":\n"
          << FactsDiff(after[commit], found);
    }
    EXPECT_GE(points, 1) << "the file's new bytes (when there are), then the journal";
    printf("commit %d (SyncCommits): power lost at each of its %d sync points\n", commit, points);
  }
}

TEST_F(PowerLoss, WithSyncCommitsAReplayCutByPowerLossLosesNothing) {
  SetWorkloadOption(QELSimManager::SyncCommits);
  // Killed as the journal holds commit 16 and the file does not.
  Remove();
  ASSERT_EQ(RunToEnd([&] {
              RunWorkload(
                  path, 16,
                  [&](int c, const Facts&) {
                    if (c == 15) CrashAt(1, false, ".sim", "-journal");
                  },
                  [] { _exit(0); });
            }),
            -1);
  const std::string db = ReadWholeFile(path), pending = ReadWholeFile(journal);
  int points = 0;
  for (;; ++points) {
    WriteWholeFile(path, db);
    WriteWholeFile(journal, pending);
    int status = RunToEnd([&] {
      PowerLossAt(points + 1, false, uint64_t(points) * 104729 + 1);
      msfD_Root root(0);
      root.closeSim(root.openSim(path.c_str(), "", QELSimManager::SyncCommits));
    });
    if (status != -1) break;
    Facts found = ReadFacts(path, points % 2 == 1);
    EXPECT_EQ(found, after[16]) << "power lost at sync point " << points + 1 << "\n"
                                << FactsDiff(after[16], found);
  }
  EXPECT_GE(points, 2);
  printf("replay (SyncCommits): power lost at each of its %d sync points\n", points);
}

// Without SyncCommits nothing reaches the disk in order: what a reopen finds
// may be older, or damaged, but it reads without crashing.
TEST_F(PowerLoss, WithoutSyncCommitsAReopenNeverCrashes) {
  int changes = 0, committed = 0;
  for (int commit : {13, 18}) {
    for (int at = 1;; ++at) {
      if (CommitWithPowerLoss(commit, at, true) != -1) break;
      ++changes;
      std::string found = Reopen(at % 2 == 0);
      ASSERT_NE(found, "crashed") << "commit " << commit << ", power lost at change " << at;
      for (int c = 0; c <= commit; ++c) {
        if (after.count(c) != 0 && found == Text(after[c])) {
          ++committed;
          break;
        }
      }
    }
  }
  EXPECT_GT(changes, 0);
  printf("without SyncCommits: %d power losses, %d reopened at a committed state, none crashed\n",
         changes, committed);
}

}  // namespace
