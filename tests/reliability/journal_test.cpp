// The write-ahead journal, deterministically: the process dies at every
// change to the files during a commit and during a replay (cleanly or in
// the middle of a write), journals damaged at every length and byte, reading
// through a pending journal, and the lock that keeps a second process out.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "platform/hdf/hdf_File.h"
#include "platform/hdf/hdf_Journal.h"
#include "platform/service/QELSimService.h"
#include "reliability/crash_workload.h"
#include "support/capture.h"
#include "support/scratch_dir.h"

namespace {

// Runs `body` in a child process that then exits with 0. Returns the child's
// exit status, or -1 when it was killed (by the crash hook or another signal).
int RunToEnd(const std::function<void()>& body) {
  pid_t child = fork();
  if (child == 0) {
    body();
    _exit(0);
  }
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// Commits whose every change is cut: a distribution of the service, a map
// edit, a modal system with an event, a substructure with damping.
const int kCommits[] = {11, 13, 16, 18};
const int kLast = 18;

class Journal : public testing::Test {
 protected:
  void SetUp() override {
    path = dir.File("db.sim");
    journal = path + "-journal";
    RunWorkload(dir.File("reference.sim"), kLast, [&](int c, const Facts& f) { after[c] = f; });
  }

  void Remove() {
    unlink(path.c_str());
    unlink(journal.c_str());
  }

  // Runs the workload to commit `commit` - 1 in a child that then arms the
  // crash hook and goes on with `commit`. Returns the child's exit status
  // (-1 when the hook killed it).
  int CommitWithCrash(int commit, long change, bool torn) {
    Remove();
    return RunToEnd([&] {
      RunWorkload(
          path, commit,
          [&](int c, const Facts&) {
            if (c == commit - 1) hdf_Journal::CrashAt(change, torn);
          },
          [] { _exit(0); });  // nothing of closing counts
    });
  }

  // Leaves `commit` committed in the journal and nothing of it in the file.
  void PendingCommit(int commit) {
    ASSERT_EQ(CommitWithCrash(commit, 2, false), -1);  // change 1 writes the journal
    ASSERT_TRUE(hdf_File::JournalPending(path.c_str()));
    db = ReadWholeFile(path);
    pending = ReadWholeFile(journal);
    // The transaction's length is in its header; older bytes may follow it.
    uint64_t length = 0;
    for (int i = 23; i >= 16; --i) length = (length << 8) | static_cast<unsigned char>(pending[i]);
    ASSERT_LE(length, pending.size());
    transaction = length;
  }

  void Restore(const std::string& journalBytes) {
    WriteWholeFile(path, db);
    WriteWholeFile(journal, journalBytes);
  }

  ScratchDir dir;
  std::string path, journal;
  std::map<int, Facts> after;
  std::string db, pending;  // a database with a committed, uncopied transaction
  size_t transaction = 0;   // its length at the start of `pending`
};

TEST_F(Journal, DyingAtAnyChangeOfACommitLeavesTheStateBeforeOrAfterIt) {
  for (int commit : kCommits) {
    for (bool torn : {false, true}) {
      int changes = 0;
      while (CommitWithCrash(commit, changes + 1, torn) == -1) {
        ++changes;
        Facts found = ReadFacts(path, changes % 2 == 0);
        EXPECT_TRUE(found == after[commit - 1] || found == after[commit])
            << "commit " << commit << " cut at change " << changes << (torn ? " (torn)" : "")
            << ":\n"
            << FactsDiff(after[commit], found);
      }
      EXPECT_GE(changes, 4) << "journal, file, reset: at least that many changes";
      EXPECT_FALSE(hdf_File::JournalPending(path.c_str())) << "a completed commit leaves none";
      printf("commit %d%s: cut at each of its %d changes\n", commit, torn ? " (torn writes)" : "",
             changes);
      EXPECT_EQ(ReadFacts(path, false), after[commit]);
    }
  }
}

TEST_F(Journal, DyingAtAnyChangeOfAReplayLosesNothing) {
  PendingCommit(16);
  for (bool torn : {false, true}) {
    int changes = 0;
    for (;; ++changes) {
      Restore(pending);
      int status = RunToEnd([&] {
        hdf_Journal::CrashAt(changes + 1, torn);
        ReadFacts(path, false);
      });
      if (status != -1) break;
      // Replayed again, by an open for update or through the journal.
      EXPECT_EQ(ReadFacts(path, changes % 2 == 1), after[16]) << "cut at change " << changes + 1;
    }
    EXPECT_GE(changes, 3);
    printf("replay%s: cut at each of its %d changes\n", torn ? " (torn writes)" : "", changes);
  }
}

TEST_F(Journal, ADamagedJournalIsDiscardedWithAMessageAndTheFileIsUntouched) {
  PendingCommit(13);
  const std::string message =
      "**ERROR hdf_Journal::Open: discarded an incomplete transaction of journal " + journal + "\n";
  CaptureErr err;
  auto openAndCheck = [&](const std::string& bytes, const std::string& what) {
    Restore(bytes);
    const char* reason = nullptr;
    hdf_Journal* opened = hdf_Journal::Open(path.c_str(), hdf_Journal::kReadWrite, false, &reason);
    ASSERT_NE(opened, nullptr) << what;
    EXPECT_TRUE(ReadWholeFile(path) == db) << what;
    EXPECT_FALSE(hdf_File::JournalPending(path.c_str())) << what;
    hdf_Journal::Release(opened);
    EXPECT_EQ(err.Take(), bytes.empty() ? "" : message) << what;
  };
  for (size_t length = 0; length < transaction; ++length) {
    openAndCheck(pending.substr(0, length), "cut to " + std::to_string(length));
  }
  for (size_t at = 0; at < transaction; ++at) {
    std::string flipped = pending;
    flipped[at] = static_cast<char>(flipped[at] ^ 0x20);
    openAndCheck(flipped, "byte " + std::to_string(at) + " flipped");
  }
  EXPECT_EQ(ReadFacts(path, true), after[12]);
  printf("transaction of %zu bytes: discarded at every length and every flipped byte\n",
         transaction);
}

TEST_F(Journal, AReadOnlyOpenReadsThroughAPendingJournalAndChangesNoByte) {
  PendingCommit(18);
  Facts found = ReadFacts(path, true);
  EXPECT_EQ(found, after[18]) << FactsDiff(after[18], found);
  EXPECT_TRUE(ReadWholeFile(path) == db);
  EXPECT_TRUE(ReadWholeFile(journal) == pending);
  // An open for update settles it; a closed database leaves no journal behind.
  EXPECT_EQ(ReadFacts(path, false), after[18]);
  EXPECT_EQ(access(journal.c_str(), F_OK), -1);
}

// Bulk data larger than what a transaction keeps in memory goes to the
// journal file as it is written; the commit then completes it in place.
TEST_F(Journal, ATransactionSpilledToTheJournalIsAsAtomicAsOneInMemory) {
  const int kSize = 600000;  // 2.4 MB of values
  auto bulk = [&](long change) {
    Remove();
    return RunToEnd([&] {
      QELSimContextID context =
          QELSimManager::CreateContext(path.c_str(), hdf_File::Exclusive, 102, false, 1);
      QELSimCollectionID nodes = QELSimCollectionRef::Create(context, kSize);
      std::vector<int> members(kSize);
      for (int k = 0; k < kSize; ++k) members[static_cast<size_t>(k)] = kSize - 1 - k;
      QELSimCSetID set = QELSimCollectionRef(nodes).CreateOrderedCSet(members.data(), kSize);
      hdf_Journal::CrashAt(change, true);
      QELSimDistributionRef::CreateInt32(set, members.data());
      _exit(0);
    });
  };
  auto values = [&](bool readOnly) {
    CaptureErr err;
    QELSimContextID context = QELSimManager::OpenContext(
        path.c_str(), readOnly ? hdf_File::ReadOnly : hdf_File::ReadWrite, 102, false, 1);
    std::vector<int> read(kSize, -1);
    QELSimTransfer t(QELSimDistributionID(context.Number(), 0));
    t.SetRead();
    t.SetBufferPadding(false);
    t.SetDim(0, QELSimCSetID(context.Number(), 0, 0));
    t.SetBuffer(0, read.data(), read.size() * 4);
    bool found = t.ExecRead();
    QELSimManager::CloseContext(context);
    if (!found) return std::string("none");
    for (int k = 0; k < kSize; ++k) {
      if (read[static_cast<size_t>(k)] != kSize - 1 - k) return "wrong at " + std::to_string(k);
    }
    return std::string("all");
  };
  int changes = 0;
  while (bulk(changes + 1) == -1) {
    ++changes;
    bool pending = hdf_File::JournalPending(path.c_str());
    std::string readOnly = values(true);
    EXPECT_TRUE(readOnly == "none" || readOnly == "all") << readOnly << " at change " << changes;
    EXPECT_EQ(values(false), readOnly) << "at change " << changes << ", pending " << pending;
  }
  EXPECT_GE(changes, 4);
  EXPECT_EQ(values(false), "all");
  printf("a transaction of %d values through the journal file: cut at each of its %d changes\n",
         kSize, changes);
}

// HDF5 rewrites a whole metadata block for a small change (a 64 KB heap
// block for one new link): a large write over committed bytes goes into the
// transaction as the runs that differ, reads see every byte written, and a
// kill between journal and file replays to the same bytes.
TEST(JournalChanges, ALargeRewriteJournalsTheRunsThatDifferAndReplaysToTheSameBytes) {
  ScratchDir dir;
  const std::string path = dir.File("blocks.db"), journal = path + "-journal";
  const size_t kBlock = 64 * 1024;
  std::string first(kBlock, 'a'), second = first;
  for (size_t at : {size_t{5}, size_t{4096}, size_t{40000}, kBlock - 1}) second[at] = 'b';
  auto content = [&](hdf_Journal* j) {
    std::string bytes(kBlock, '\0');
    EXPECT_TRUE(j->Read(0, kBlock, &bytes[0]));
    return bytes;
  };
  const char* reason = nullptr;
  hdf_Journal* j = hdf_Journal::Open(path.c_str(), hdf_Journal::kCreateExclusive, false, &reason);
  ASSERT_NE(j, nullptr) << reason;
  ASSERT_TRUE(j->Write(0, kBlock, first.data()) && j->Commit());
  ASSERT_TRUE(j->Write(0, kBlock, second.data()));
  EXPECT_TRUE(content(j) == second);
  ASSERT_TRUE(j->Commit());
  EXPECT_TRUE(ReadWholeFile(path) == second);
  // Written twice in one transaction, the second time back to what is committed.
  ASSERT_TRUE(j->Write(0, kBlock, first.data()) && j->Write(0, kBlock, second.data()));
  EXPECT_TRUE(content(j) == second);
  ASSERT_TRUE(j->Write(0, kBlock, first.data()) && j->Commit());
  EXPECT_TRUE(ReadWholeFile(path) == first);
  ASSERT_TRUE(hdf_Journal::Release(j));

  // Killed once the journal holds the commit (change 1), before the file changed.
  ASSERT_EQ(RunToEnd([&] {
              const char* why = nullptr;
              hdf_Journal* w =
                  hdf_Journal::Open(path.c_str(), hdf_Journal::kReadWrite, false, &why);
              if (w == nullptr || !w->Write(0, kBlock, second.data())) _exit(1);
              hdf_Journal::CrashAt(2, false);
              w->Commit();
              _exit(2);
            }),
            -1);
  EXPECT_TRUE(ReadWholeFile(path) == first);
  const size_t journaled = ReadWholeFile(journal).size();
  EXPECT_LT(journaled, 1024u) << "four changed granules, not the 64 KB block";
  j = hdf_Journal::Open(path.c_str(), hdf_Journal::kReadWrite, false, &reason);
  ASSERT_NE(j, nullptr) << reason;
  EXPECT_TRUE(ReadWholeFile(path) == second) << "replayed at the open";
  ASSERT_TRUE(hdf_Journal::Release(j));
  printf("a 64 KB rewrite with 4 changed bytes: a %zu-byte transaction\n", journaled);
}

TEST_F(Journal, ASecondProcessIsKeptOutEvenWithoutHdf5FileLocking) {
  setenv("HDF5_USE_FILE_LOCKING", "FALSE", 1);
  RunWorkload(path, 5);
  for (int holderReadOnly = 0; holderReadOnly < 2; ++holderReadOnly) {
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    pid_t holder = fork();
    if (holder == 0) {
      hdf_File file =
          hdf_File::Open(path.c_str(), holderReadOnly ? hdf_File::ReadOnly : hdf_File::ReadWrite);
      char byte = file.IsValid() ? 1 : 0;
      if (write(ready[1], &byte, 1) != 1) _exit(1);
      for (;;) pause();
    }
    char byte = 0;
    ASSERT_EQ(read(ready[0], &byte, 1), 1);
    ASSERT_EQ(byte, 1);
    CaptureErr err;
    const std::string refused =
        "**ERROR hdf_File::Open: cannot open file " + path + ": in use by another process\n";
    EXPECT_FALSE(hdf_File::Open(path.c_str(), hdf_File::ReadWrite).IsValid());
    EXPECT_EQ(err.Take(), refused);
    hdf_File reader = hdf_File::Open(path.c_str(), hdf_File::ReadOnly);
    EXPECT_EQ(reader.IsValid(), holderReadOnly == 1) << "readers share, a writer is alone";
    EXPECT_EQ(err.Take(), holderReadOnly ? "" : refused);
    reader.Close();
    kill(holder, SIGKILL);
    waitpid(holder, nullptr, 0);
    close(ready[0]);
    close(ready[1]);
  }
  hdf_File file = hdf_File::Open(path.c_str(), hdf_File::ReadWrite);
  EXPECT_TRUE(file.IsValid()) << "a dead holder's lock is gone";
  unsetenv("HDF5_USE_FILE_LOCKING");
}

}  // namespace
