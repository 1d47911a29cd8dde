// Readers beside a writer: a writer process runs the crash workload's
// commits of every kind and reports each one that returned; reader
// processes open the database read-only, walk it completely and close it,
// over and over, the whole time. Every snapshot must equal the writer's
// state after some commit k, with k at least the last commit reported
// before the reader opened; no open may be refused. Then the writer is
// killed at random moments with readers attached, readers are killed at
// random moments too, and a new writer recovers while the readers go on.
//
// The full run:
//   DDB_LIVE_COMMITS=3000 DDB_LIVE_READERS=16 DDB_LIVE_KILLS=1000
//   build/release/tests/live_readers_test
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "reliability/crash_workload.h"
#include "support/scratch_dir.h"

namespace {

int Setting(const char* name, int fast, int sanitized) {
  const char* text = getenv(name);
  if (text != nullptr) return atoi(text);
#if defined(__SANITIZE_ADDRESS__)
  (void)fast;
  return sanitized;
#else
  (void)sanitized;
  return fast;
#endif
}

// Shared by the writer, the readers and the test, in memory they all map.
struct Board {
  std::atomic<long> reported;  // the last commit that returned to the writer
  std::atomic<int> stop;
  std::atomic<int> phase;  // 0 the writer runs, 1 it was killed, 2 a new one recovers
  std::atomic<long> snapshots, walks, mismatches, refused;
};

class LiveReaders : public testing::Test {
 protected:
  void SetUp() override {
    commits = Setting("DDB_LIVE_COMMITS", 1000, 300);
    readers = Setting("DDB_LIVE_READERS", 4, 4);
    path = dir.File("live.sim");
    // The facts after each commit, from a run of its own.
    RunWorkload(dir.File("reference.sim"), commits,
                [&](int c, const Facts& f) { digests[c] = FactsDigest(f); });
    void* shared =
        mmap(nullptr, sizeof(Board), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(shared, MAP_FAILED);
    board = new (shared) Board();
  }
  void TearDown() override { munmap(board, sizeof(Board)); }

  // A reader: open, walk, close, until told to stop.
  pid_t StartReader() {
    pid_t child = fork();
    if (child != 0) return child;
    while (board->stop.load() == 0) {
      long floor = board->reported.load();
      int phase = board->phase.load();
      if (floor < 1) {
        usleep(1000);  // the database is not made yet
        continue;
      }
      Facts facts = ReadFacts(path, true);
      board->snapshots.fetch_add(1);
      if (facts.size() == 1 && facts.count("open") != 0) {
        board->refused.fetch_add(1);
        continue;
      }
      uint64_t digest = FactsDigest(facts);
      bool found = false;
      for (long c = floor; c <= commits && !found; ++c) found = digests[c] == digest;
      if (found) {
        board->walks.fetch_add(1);
      } else if (board->mismatches.fetch_add(1) == 0) {
        fprintf(stderr, "a snapshot opened in phase %d matches no commit from %ld on:\n", phase,
                floor);
        for (const auto& f : facts)
          fprintf(stderr, "  %s = %s\n", f.first.c_str(), f.second.c_str());
      }
    }
    _exit(0);
  }

  pid_t StartWriter() {
    pid_t child = fork();
    if (child != 0) return child;
    // A short pause after each commit lets the readers' walks interleave
    // with many commits rather than with a few.
    RunWorkload(path, commits, [&](int c, const Facts&) {
      board->reported.store(c);
      usleep(100);
    });
    _exit(0);
  }

  void StopReaders(std::vector<pid_t>& pids) {
    board->stop.store(1);
    for (pid_t p : pids) waitpid(p, nullptr, 0);
    pids.clear();
    board->stop.store(0);
  }

  ScratchDir dir;
  std::string path;
  int commits = 0, readers = 0;
  std::map<long, uint64_t> digests;
  Board* board = nullptr;
};

TEST_F(LiveReaders, EverySnapshotIsACommitAtLeastAsNewAsTheLastReported) {
  std::vector<pid_t> pids;
  for (int r = 0; r < readers; ++r) pids.push_back(StartReader());
  pid_t writer = StartWriter();
  int status = 0;
  waitpid(writer, &status, 0);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  StopReaders(pids);
  EXPECT_EQ(board->mismatches.load(), 0);
  EXPECT_EQ(board->refused.load(), 0);
  EXPECT_GE(board->walks.load(), 2 * readers);
  printf("%d commits beside %d readers: %ld snapshots, %ld walks, %ld mismatches, %ld refused\n",
         commits, readers, board->snapshots.load(), board->walks.load(), board->mismatches.load(),
         board->refused.load());
}

// Writers killed with readers attached lose no commit; readers killed at
// random never stop a writer, its checkpoints or a recovery.
TEST_F(LiveReaders, KilledWritersAndReadersLoseNothing) {
  const int kills = Setting("DDB_LIVE_KILLS", 20, 6);
  std::mt19937 random(20261125);
  long lost = 0, readerKills = 0;
  for (int k = 0; k < kills; ++k) {
    unlink(path.c_str());
    unlink((path + "-journal").c_str());
    board->reported.store(0);
    std::vector<pid_t> pids;
    for (int r = 0; r < readers; ++r) pids.push_back(StartReader());
    board->phase.store(0);
    pid_t writer = StartWriter();
    // Kill it after a random number of commits, a reader now and then.
    long target = 1 + static_cast<long>(random() % static_cast<unsigned>(commits - 1));
    while (board->reported.load() < target) {
      usleep(200);
      if (random() % 50 == 0) {
        size_t victim = random() % pids.size();
        kill(pids[victim], SIGKILL);
        waitpid(pids[victim], nullptr, 0);
        pids[victim] = StartReader();
        ++readerKills;
      }
    }
    kill(writer, SIGKILL);
    waitpid(writer, nullptr, 0);
    long last = board->reported.load();
    board->phase.store(1);
    // Readers still see at least the last reported commit; an open for
    // update recovers beside them.
    usleep(2000);
    board->phase.store(2);
    Facts found = ReadFacts(path, false);
    uint64_t digest = FactsDigest(found);
    if (digest != digests[last] && digest != digests[last + 1]) ++lost;
    StopReaders(pids);
  }
  EXPECT_EQ(lost, 0);
  EXPECT_EQ(board->mismatches.load(), 0);
  EXPECT_EQ(board->refused.load(), 0);
  printf(
      "%d writers killed beside %d readers (%ld readers killed): %ld snapshots, %ld walks, "
      "%ld commits lost, %ld mismatches, %ld refused\n",
      kills, readers, readerKills, board->snapshots.load(), board->walks.load(), lost,
      board->mismatches.load(), board->refused.load());
}

}  // namespace
