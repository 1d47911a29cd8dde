// The write-ahead journal, deterministically: the process dies at every
// change to the files during a commit and during a replay (cleanly or in
// the middle of a write), a journal damaged at every length and byte of its
// last transaction, bulk data written once, snapshots that a writer's
// commits never change until it has to overwrite them, and one writer per
// database while readers are never refused.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "platform/hdf/hdf_File.h"
#include "platform/hdf/hdf_Journal.h"
#include "platform/service/QELSimService.h"
#include "reliability/crash_io.h"
#include "reliability/crash_workload.h"
#include "support/capture.h"
#include "support/scratch_dir.h"

namespace {

uint64_t Get64(const std::string& bytes, size_t at) {
  uint64_t value = 0;
  for (int i = 7; i >= 0; --i) value = (value << 8) | static_cast<unsigned char>(bytes[at + i]);
  return value;
}

// Where each transaction of a journal starts, by the lengths in their
// headers (the first page is the journal's own).
std::vector<size_t> TransactionStarts(const std::string& journal) {
  std::vector<size_t> starts;
  for (size_t at = 4096; at + 32 <= journal.size() && journal.compare(at, 6, "DDBTXN") == 0;) {
    starts.push_back(at);
    uint64_t length = Get64(journal, at + 24);
    if (length == 0 || length > journal.size() - at) break;
    at += static_cast<size_t>(length);
  }
  return starts;
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
  int CommitWithCrash(int commit, long change, bool torn, const char* suffix = nullptr,
                      const char* after = nullptr) {
    Remove();
    return RunToEnd([&] {
      RunWorkload(
          path, commit,
          [&](int c, const Facts&) {
            if (c == commit - 1) CrashAt(change, torn, suffix, after);
          },
          [] { _exit(0); });  // nothing of closing counts
    });
  }

  // Leaves `commit` committed in the journal and nothing of it copied into
  // the file: the writer dies as it would start the copy (the file's first
  // change after the journal's).
  void PendingCommit(int commit) {
    ASSERT_EQ(CommitWithCrash(commit, 1, false, ".sim", "-journal"), -1);
    ASSERT_TRUE(hdf_File::JournalPending(path.c_str()));
    db = ReadWholeFile(path);
    pending = ReadWholeFile(journal);
    std::vector<size_t> starts = TransactionStarts(pending);
    ASSERT_FALSE(starts.empty());
    last = starts.back();
    lastEnd = last + static_cast<size_t>(Get64(pending, last + 24));
  }

  void Restore(const std::string& journalBytes) {
    WriteWholeFile(path, db);
    WriteWholeFile(journal, journalBytes);
  }

  ScratchDir dir;
  std::string path, journal;
  std::map<int, Facts> after;
  std::string db, pending;       // a database with a committed, uncopied transaction
  size_t last = 0, lastEnd = 0;  // where that transaction lies in `pending`
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
      EXPECT_GE(changes, 3) << "journal, live state, copy: at least that many changes";
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
        CrashAt(changes + 1, torn);
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

TEST_F(Journal, ADamagedTransactionIsDiscardedWithAMessageAndNothingCommittedIsLost) {
  PendingCommit(13);
  const std::string message =
      "**ERROR hdf_Journal::Open: discarded an incomplete transaction of journal " + journal + "\n";
  CaptureErr err;
  // The file an open for update leaves from `bytes`.
  auto settle = [&](const std::string& bytes) {
    Restore(bytes);
    const char* reason = nullptr;
    hdf_Journal* opened = hdf_Journal::Open(path.c_str(), hdf_Journal::kReadWrite, false, &reason);
    EXPECT_NE(opened, nullptr) << reason;
    if (opened != nullptr) hdf_Journal::Release(opened);
    EXPECT_FALSE(hdf_File::JournalPending(path.c_str()));
    return ReadWholeFile(path);
  };
  // Without its last transaction the journal settles to commit 12.
  const std::string committed = settle(pending.substr(0, last));
  EXPECT_EQ(err.Take(), "");
  auto check = [&](const std::string& bytes, const std::string& what) {
    EXPECT_TRUE(settle(bytes) == committed) << what;
    EXPECT_EQ(err.Take(), message) << what;
  };
  for (size_t length = last + 1; length < lastEnd; ++length) {
    check(pending.substr(0, length), "cut to " + std::to_string(length));
  }
  for (size_t at = last; at < lastEnd; ++at) {
    std::string flipped = pending;
    flipped[at] = static_cast<char>(flipped[at] ^ 0x20);
    check(flipped, "byte " + std::to_string(at) + " flipped");
  }
  WriteWholeFile(path, committed);
  EXPECT_EQ(ReadFacts(path, true), after[12]);
  // A damaged first page loses at most the transaction not yet copied.
  for (size_t at = 0; at < 4096; ++at) {
    if (pending[at] == 0) continue;
    std::string flipped = pending;
    flipped[at] = static_cast<char>(flipped[at] ^ 0x20);
    Restore(flipped);
    Facts found = ReadFacts(path, false);
    EXPECT_TRUE(found == after[12] || found == after[13]) << "byte " << at << " flipped\n"
                                                          << FactsDiff(after[13], found);
  }
  printf("a transaction of %zu bytes: discarded at every length and every flipped byte\n",
         lastEnd - last);
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

// Bulk data goes once, straight into the file: the journal holds the
// transaction's record, not its values, and a kill anywhere leaves all or none.
TEST_F(Journal, BulkDataIsWrittenOnceAndAKillAnywhereLeavesAllOrNone) {
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
      CrashAt(change, true);
      QELSimDistributionRef::CreateInt32(set, members.data());
      if (change == 0) {
        // What the commit left in the journal beside the file.
        struct stat info;
        if (stat(journal.c_str(), &info) != 0 || info.st_size > 64 * 1024) _exit(3);
        _exit(0);
      }
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
  EXPECT_EQ(bulk(0), 0) << "2.4 MB of values and a journal of at most 64 KB";
  int changes = 0;
  while (bulk(changes + 1) == -1) {
    ++changes;
    bool pending = hdf_File::JournalPending(path.c_str());
    std::string readOnly = values(true);
    EXPECT_TRUE(readOnly == "none" || readOnly == "all") << readOnly << " at change " << changes;
    EXPECT_EQ(values(false), readOnly) << "at change " << changes << ", pending " << pending;
  }
  EXPECT_GE(changes, 3);
  EXPECT_EQ(values(false), "all");
  printf("a distribution of %d values written once: cut at each of its %d changes\n", kSize,
         changes);
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

  // Killed once the journal holds the commit, before the file changed.
  ASSERT_EQ(RunToEnd([&] {
              const char* why = nullptr;
              hdf_Journal* w =
                  hdf_Journal::Open(path.c_str(), hdf_Journal::kReadWrite, false, &why);
              if (w == nullptr || !w->Write(0, kBlock, second.data())) _exit(1);
              CrashAt(1, false, ".db", "-journal");
              w->Commit();
              _exit(2);
            }),
            -1);
  EXPECT_TRUE(ReadWholeFile(path) == first);
  const size_t journaled = ReadWholeFile(journal).size() - 4096;
  EXPECT_LT(journaled, 1024u) << "four changed granules, not the 64 KB block";
  j = hdf_Journal::Open(path.c_str(), hdf_Journal::kReadWrite, false, &reason);
  ASSERT_NE(j, nullptr) << reason;
  EXPECT_TRUE(ReadWholeFile(path) == second) << "replayed at the open";
  ASSERT_TRUE(hdf_Journal::Release(j));
  printf("a 64 KB rewrite with 4 changed bytes: a %zu-byte transaction\n", journaled);
}

// A snapshot holds what was committed when it opened, whatever the writer
// commits after, until the journal outgrows its bound: then the snapshot's
// next read fails with one message, and never returns other bytes.
TEST(JournalSnapshots, HoldTheirCommitUntilTheWriterMustOverwriteThem) {
  ScratchDir dir;
  const std::string path = dir.File("live.db"), journal = path + "-journal";
  const size_t kBlock = 1 << 20;
  auto fill = [&](char c) { return std::string(kBlock, c); };
  auto look = [&](hdf_Journal* r) {
    std::string bytes(kBlock, '\0');
    return r->Read(0, kBlock, &bytes[0]) ? bytes : std::string("failed");
  };
  auto open = [&](hdf_Journal::Mode mode) {
    const char* reason = nullptr;
    hdf_Journal* opened = hdf_Journal::Open(path.c_str(), mode, false, &reason);
    EXPECT_NE(opened, nullptr) << reason;
    return opened;
  };
  CaptureErr err;
  hdf_Journal* w = open(hdf_Journal::kCreateExclusive);
  ASSERT_TRUE(w->Write(0, kBlock, fill('a').data()) && w->Commit());
  hdf_Journal* first = open(hdf_Journal::kReadOnly);
  ASSERT_TRUE(w->Write(0, kBlock, fill('b').data()) && w->Commit());
  hdf_Journal* second = open(hdf_Journal::kReadOnly);
  EXPECT_TRUE(look(first) == fill('a'));
  EXPECT_TRUE(look(second) == fill('b'));

  // One writer per database, in this process as in any other.
  const char* reason = nullptr;
  EXPECT_EQ(hdf_Journal::Open(path.c_str(), hdf_Journal::kReadWrite, false, &reason), nullptr);
  EXPECT_STREQ(reason, "open for update in this process");

  // Every commit rewrites the whole block: the journal grows by 1 MiB each.
  struct stat info;
  uint64_t most = 0;
  int commits = 2;
  for (; look(first) == fill('a'); ++commits) {
    ASSERT_LT(commits, 100) << "the journal must stay bounded";
    EXPECT_TRUE(look(second) == fill('b')) << "at commit " << commits;
    ASSERT_TRUE(w->Write(0, kBlock, fill(static_cast<char>('a' + commits % 26)).data()));
    ASSERT_TRUE(w->Commit());
    ASSERT_EQ(stat(journal.c_str(), &info), 0);
    most = std::max<uint64_t>(most, static_cast<uint64_t>(info.st_blocks) * 512);
  }
  const std::string said = "**ERROR hdf_Journal::Read: the writer of " + path +
                           " overwrote this snapshot: open it again\n";
  EXPECT_EQ(err.Take(), said);
  EXPECT_EQ(look(second), "failed");
  EXPECT_EQ(err.Take(), said);
  EXPECT_EQ(look(first), "failed") << "a snapshot once overwritten stays failed";
  EXPECT_EQ(err.Take(), "");
  EXPECT_LE(most, uint64_t(66) << 20) << "64 MiB held for readers, and what is in flight";
  printf("a reader held its snapshot for %d commits of 1 MiB; the journal took at most %.1f MiB\n",
         commits, static_cast<double>(most) / (1 << 20));

  // A reader opened now sees the last commit; closing everything leaves no journal.
  hdf_Journal* third = open(hdf_Journal::kReadOnly);
  EXPECT_TRUE(look(third) == fill(static_cast<char>('a' + (commits - 1) % 26)));
  for (hdf_Journal* r : {first, second, third}) hdf_Journal::Release(r);
  EXPECT_TRUE(hdf_Journal::Release(w));
  EXPECT_EQ(access(journal.c_str(), F_OK), -1);
}

// A reader holds the journal byte while it opens. Commits made meanwhile
// neither wait for it nor hide from it: they stay in the journal, readers see
// them, and the next commit after the open copies them into the file.
TEST(JournalSnapshots, AReaderOpeningNeverHoldsACommitUp) {
  ScratchDir dir;
  const std::string path = dir.File("opening.db");
  const size_t kBlock = 64 << 10;
  auto fill = [&](char c) { return std::string(kBlock, c); };
  auto inFile = [&] {
    std::string bytes = ReadWholeFile(path);
    return bytes.substr(0, std::min(bytes.size(), kBlock));
  };
  const char* reason = nullptr;
  hdf_Journal* w = hdf_Journal::Open(path.c_str(), hdf_Journal::kCreateExclusive, false, &reason);
  ASSERT_NE(w, nullptr) << reason;
  ASSERT_TRUE(w->Write(0, kBlock, fill('a').data()) && w->Commit());
  ASSERT_TRUE(inFile() == fill('a'));

  int opening = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  struct flock lock = {};
  lock.l_type = F_RDLCK;
  lock.l_whence = SEEK_SET;
  lock.l_start = static_cast<off_t>((uint64_t(1) << 62) + 1);
  lock.l_len = 1;
  ASSERT_EQ(fcntl(opening, F_OFD_SETLK, &lock), 0);
  alarm(60);  // a writer that waited for the reader would hang here
  for (char c : {'b', 'c', 'd'}) {
    ASSERT_TRUE(w->Write(0, kBlock, fill(c).data()) && w->Commit());
  }
  alarm(0);
  EXPECT_TRUE(inFile() == fill('a')) << "the copies wait for the reader";
  hdf_Journal* r = hdf_Journal::Open(path.c_str(), hdf_Journal::kReadOnly, false, &reason);
  ASSERT_NE(r, nullptr) << reason;
  std::string seen(kBlock, '\0');
  EXPECT_TRUE(r->Read(0, kBlock, &seen[0]) && seen == fill('d')) << "and the commits do not";
  hdf_Journal::Release(r);

  close(opening);
  ASSERT_TRUE(w->Write(0, kBlock, fill('e').data()) && w->Commit());
  EXPECT_TRUE(inFile() == fill('e')) << "the next commit copies everything";
  EXPECT_TRUE(hdf_Journal::Release(w));
}

// Readers make the journal's first page when there is none; the last one
// to close takes it away again, also through the wrapper's read-only open.
TEST(JournalSnapshots, TheLastReaderTakesTheJournalAway) {
  ScratchDir dir;
  const std::string path = dir.File("read.db"), journal = path + "-journal";
  const char* reason = nullptr;
  hdf_Journal* w = hdf_Journal::Open(path.c_str(), hdf_Journal::kCreateExclusive, false, &reason);
  ASSERT_NE(w, nullptr) << reason;
  ASSERT_TRUE(w->Write(0, 4096, std::string(4096, 'w').data()) && w->Commit());
  ASSERT_TRUE(hdf_Journal::Release(w));
  ASSERT_EQ(access(journal.c_str(), F_OK), -1);
  hdf_Journal* first = hdf_Journal::Open(path.c_str(), hdf_Journal::kReadOnly, false, &reason);
  hdf_Journal* second = hdf_Journal::Open(path.c_str(), hdf_Journal::kReadOnly, false, &reason);
  ASSERT_TRUE(first != nullptr && second != nullptr);
  EXPECT_EQ(access(journal.c_str(), F_OK), 0) << "made by the first reader";
  hdf_Journal::Release(first);
  EXPECT_EQ(access(journal.c_str(), F_OK), 0) << "a reader is left";
  hdf_Journal::Release(second);
  EXPECT_EQ(access(journal.c_str(), F_OK), -1) << "the last reader took it away";

  RunWorkload(dir.File("workload.sim"), 3);
  const std::string before = ReadWholeFile(dir.File("workload.sim"));
  {
    hdf_File file = hdf_File::Open(dir.File("workload.sim").c_str(), hdf_File::ReadOnly);
    ASSERT_TRUE(file.IsValid());
  }
  EXPECT_EQ(access((dir.File("workload.sim") + "-journal").c_str(), F_OK), -1);
  EXPECT_TRUE(ReadWholeFile(dir.File("workload.sim")) == before) << "and changed no byte";
}

TEST_F(Journal, AWriterIsAloneAndReadersAreNeverRefusedEvenWithoutHdf5FileLocking) {
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
    EXPECT_EQ(hdf_File::Open(path.c_str(), hdf_File::ReadWrite).IsValid(), holderReadOnly == 1)
        << "a writer is alone";
    EXPECT_EQ(err.Take(), holderReadOnly ? "" : refused);
    hdf_File reader = hdf_File::Open(path.c_str(), hdf_File::ReadOnly);
    EXPECT_TRUE(reader.IsValid()) << "a reader is never refused";
    EXPECT_EQ(err.Take(), "");
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
