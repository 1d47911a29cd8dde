// hdf_Journal: a database file and its write-ahead journal, so that the file
// only ever moves from one committed state to the next, one process writes
// it, and any number of others read the last commit while it does.
//
// HDF5 carries out a flush as many separate writes (raw data, object
// headers, B-tree nodes, heaps, superblock); a process that dies between two
// of them leaves a torn file. So no byte that a commit (or a reader's
// snapshot) may still need is overwritten in place:
//  - Bytes at or beyond the safe end (the largest end of file of any state
//    a reader may hold) belong to nobody yet. The writer puts them straight
//    into the database file: bulk data is written once.
//  - Every other write goes into the transaction (in memory, spilled to the
//    journal beyond 1 MiB). A commit appends it to the journal "<name>-journal"
//    with a commit record: its extents (address, length, journal position, or
//    zeros for bytes a truncation took away), the new end of file and safe
//    end, and a crc32 chained from the previous transaction's.
//  - A checkpoint copies committed transactions into the database file, as
//    far as every reader's snapshot allows, and gives their journal blocks
//    back once no reader reads them there; with no reader left it restarts
//    the journal (a new random salt, so that no stale byte is ever taken for
//    a transaction of the new run).
//
// A reader's snapshot is the database file plus the journal's transactions
// up to the last complete one when it opened; its end of file is that
// transaction's. Readers mark their snapshots with shared locks on the
// database file (see kSeenMarks in hdf_Journal.cpp): the number of the last
// transaction they see, and of the last one already in the file when they
// opened. The writer never copies or frees past a mark, unless the journal
// outgrows kJournalBound; it then says so in a header that every reader
// checks after each read, and a reader whose snapshot was overwritten fails
// that read with one message, never returning other data. A reader killed
// by a signal releases its marks by dying.
//
// Journal file (little-endian):
//   0     recovery header, two slots of 64 bytes written in turn (a torn
//         write leaves the other): magic "DDBJRNL\3", version, salt, the
//         number, position, end of file and chained crc of the last
//         transaction copied into the database file, the safe end, crc32.
//         Written when the journal restarts and after a checkpoint.
//   1024  live state for readers and pollers: salt, restart count, last
//         transaction, its end, the checkpoint's limit, the last transaction
//         freed, the last one copied, where the next starts, the end of file
//         it left and its chained crc, whether commits are synced and
//         whether the writer closed the database, the safe end, crc32.
//         Never synced: after a kill it tells a recovery where to start,
//         after a power loss (of a writer with durable commits) the header.
//   4096  transactions, one after the other:
//         header   "DDBTXN\0\1", u64 salt, u64 number, u64 length (set last
//                  when the transaction went to the journal in pieces)
//         data     the transaction's bytes, in the order they were written
//         commit   u64 extent count n, u64 end of file, u64 safe end,
//                  n x (u64 address, u64 length, u64 position; 0: zeros)
//         trailer  u64 position of the commit record, u64 number, u32 crc32
//                  (chained; over all before it but the length), "DDBC"
// Transactions are numbered on from the readers' marks, so a mark is always
// comparable with the transactions in the journal.
//
// Durability: a kill never loses a commit, since the operating system keeps
// every completed write. Against power loss, `durable` syncs the database
// file's new bytes before the commit record and the journal after it, and
// the database file after a checkpoint before its header says so.
//
// Locking: a writer holds an exclusive lock on one byte of the database file
// far beyond its data; a second writer, in this process or another, is
// refused. Readers never take it and are never refused.
#ifndef DDB_PLATFORM_HDF_HDF_JOURNAL_H_
#define DDB_PLATFORM_HDF_HDF_JOURNAL_H_

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <utility>
#include <vector>

#include "platform/core/ddb_export.h"
#include "platform/hdf/hdf_JournalIo.h"

class DDB_API hdf_Journal {
 public:
  enum Mode { kReadOnly, kReadWrite, kCreateExclusive, kCreateTruncate };

  // Opens the database `name`: for update, recovering its journal, or as a
  // snapshot of its last commit. Null on failure, with *reason saying why in
  // a few words ("in use by another process"). Messages go to aio_cerr.
  static hdf_Journal* Open(const char* name, Mode mode, bool durable, const char** reason);
  // Commits what is pending and closes. False when the last commit failed.
  static bool Release(hdf_Journal* journal);

  bool Read(uint64_t address, size_t size, void* bytes);
  bool Write(uint64_t address, size_t size, const void* bytes);
  // The logical end of the file, pending writes and truncations included.
  uint64_t EndOfFile() const { return m_eof; }
  bool Truncate(uint64_t eof);
  // The commit point: makes everything written so far one transaction of
  // the database file. Nothing to do when nothing changed.
  bool Commit();

  bool Writable() const { return m_writable; }
  dev_t Device() const { return m_device; }
  ino_t Inode() const { return m_inode; }
  int* DatabaseDescriptor() { return &m_db; }

  // Why the last change to a database or journal file failed, in the
  // system's words ("No space left on device"); null before any failed.
  static const char* LastFailure();

  // "<name>-journal".
  static std::vector<char> JournalName(const char* name);
  // The journal beside `name` holds transactions not yet in the file,
  // complete or not: other programs reading the file alone may see an older
  // or a damaged state.
  static bool Pending(const char* name);
  // Where the database `name` stands, cheaply (no HDF5): *mark changes with
  // every commit; *writing says whether a writer has it open. False when the
  // file cannot be opened.
  static bool Watch(const char* name, uint64_t* mark, bool* writing);

 private:
  struct Extent {
    uint64_t end;       // one past the last address
    uint64_t position;  // where the bytes start in the journal (zeros: of
                        // the transaction that wrote them)
    bool zeros;
  };
  typedef std::map<uint64_t, Extent> Overlay;  // by address; never overlapping
  // One committed transaction not yet freed.
  struct Transaction {
    uint64_t number;
    uint64_t end;                   // journal position after it
    uint64_t eof;                   // the end of file it leaves
    uint32_t crc;                   // chained crc at its end
    std::vector<uint64_t> extents;  // address, length, position triples
  };
  // What the recovery header (or the live state) says.
  struct Base {
    uint64_t salt = 0;
    uint64_t copied = 0;   // the last transaction in the database file
    uint64_t next = 0;     // the journal position after it
    uint64_t size = 0;     // the end of file it left
    uint32_t crc = 0;      // the chained crc after it
    uint64_t safe = 0;     // the safe end then (no snapshot reaches beyond)
    uint64_t version = 0;  // of the recovery header slot
  };
  // What the live state says.
  struct Live {
    Base base;
    uint64_t restarts = 0;
    uint64_t last = 0;     // the last committed transaction
    uint64_t limit = 0;    // the file may hold transactions up to this one
    uint64_t freed = 0;    // the journal no longer holds those up to this one
    bool durable = false;  // written by a writer that syncs its commits
    bool closed = false;   // by a writer that closed the database
  };

  hdf_Journal() {}
  ~hdf_Journal();
  bool OpenWriter(const char* name, Mode mode, const char** reason);
  bool OpenReader(const char* name, const char** reason);
  bool OpenDatabase(const char* name, int flags, const char** reason);
  bool OpenJournal(bool create);
  bool ReadBase(Base* base);
  bool ReadLive(Live* live);
  // The journal holds nothing: no transaction after its base.
  bool Settled();
  bool HoldsAnything();
  // A writer has the database open (in this process or another).
  bool Writing();
  bool StartJournal(uint64_t firstNumber);
  bool WriteBase();
  void WriteLive();
  // Reads the transactions from the base on; reports a damaged tail.
  bool ReadTransactions(bool report);
  void Visible(const Transaction& transaction, uint64_t start);
  void Report(const char* what);
  bool ReadJournal(uint64_t position, size_t size, void* bytes);
  bool ReadDatabase(uint64_t address, size_t size, unsigned char* bytes);
  bool SnapshotIntact();

  void Begin();
  void Append(const void* bytes, size_t size);
  bool Unwritten(uint64_t address, uint64_t end) const;
  bool WriteChanges(uint64_t address, size_t size, const unsigned char* bytes);
  bool WriteExtent(uint64_t address, size_t size, const void* bytes);
  bool WriteZeros(uint64_t address, uint64_t end);
  bool Spill();
  static void Place(Overlay* overlay, uint64_t address, const Extent& extent);

  // Checkpoints: copies what the readers' marks allow (or everything); to
  // settle, makes the header say so, frees what readers no longer read
  // there (or everything), and restarts the journal when none is left.
  // kWhenNoneOpening is kAsReadersAllow without waiting for readers that are
  // opening: a commit leaves its copy to a later one rather than wait, so
  // that readers opening one after another never hold the writer up.
  enum Force { kAsReadersAllow, kWhenNoneOpening, kOverwriteReaders };
  bool Checkpoint(Force force, bool settle);
  bool CopyThrough(uint64_t number);
  bool Free(uint64_t number);
  bool Restart();
  uint64_t LowestMark(uint64_t region, uint64_t below);
  bool Marked(uint64_t region, uint64_t below);
  bool AnyMark();
  uint64_t HighestMark();
  bool Close();
  // Marks the journal failed (no further writes) and keeps the reason.
  bool Fail();

  hdf_JournalIo* m_io = nullptr;
  std::vector<char> m_name;         // the database file's name
  std::vector<char> m_journalName;  // and its journal's
  int m_db = -1;
  int m_journal = -1;
  const unsigned char* m_view = nullptr;  // the journal's first page, shared
  dev_t m_device = 0;
  ino_t m_inode = 0;
  bool m_writable = false;
  bool m_durable = false;
  bool m_guarded = false;         // locks work here
  bool m_failed = false;          // a commit failed, or the snapshot was overwritten
  bool m_closed = false;          // the writer closed the database
  hdf_Journal* m_next = nullptr;  // the process's writers

  // The journal: its base, the transactions since, where the next goes.
  Base m_base;
  std::vector<Transaction> m_transactions;  // after m_base.copied, in order
  uint64_t m_last = 0;                      // the last committed transaction
  uint64_t m_end = 0;                       // the journal position after it
  uint32_t m_chain = 0;                     // its chained crc
  uint64_t m_freed = 0;                     // transactions up to this one are freed
  uint64_t m_freedEnd = 0;                  // and the journal before this position
  uint64_t m_limit = 0;                     // published: the file may hold up to this one
  uint64_t m_settled = 0;                   // the journal's end at the last settling
  uint64_t m_written = 0;                   // the last transaction the newer header slot names
  uint64_t m_olderCopied = 0;               // and the older one
  std::deque<std::pair<uint64_t, uint64_t>> m_copiedEnds;  // copied, not freed
  uint64_t m_restarts = 0;

  // What reads see: the newest journal bytes of every address, over the
  // database file; and the transaction in flight (the writer's).
  Overlay m_overlay;
  Overlay m_pending;
  uint64_t m_eof = 0;
  uint64_t m_safe = 0;  // the safe end (see above)
  bool m_dirty = false;
  bool m_direct = false;  // the transaction wrote the database file itself
  // The transaction's journal bytes: [m_end, m_spilled) are in the journal
  // file, then m_buffer.
  uint64_t m_spilled = 0;
  std::vector<unsigned char> m_buffer;
  // The journal bytes of the last transaction written whole from memory,
  // from m_recentAt: its copy into the database file needs no read back.
  uint64_t m_recentAt = 0;
  std::vector<unsigned char> m_recent;
  bool m_liveBehind = false;             // the live state does not show the last commit yet
  std::vector<unsigned char> m_compare;  // committed bytes under a large write
  uint32_t m_crc = 0;

  // A reader's marks.
  uint64_t m_seen = 0;    // the last transaction of its snapshot
  uint64_t m_copied = 0;  // the last one already in the file when it opened
};

#endif  // DDB_PLATFORM_HDF_HDF_JOURNAL_H_
