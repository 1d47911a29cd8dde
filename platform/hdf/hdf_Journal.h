// hdf_Journal: a database file and its write-ahead journal, so that the file
// only ever moves from one committed state to the next.
//
// HDF5 carries out a flush as many separate writes (raw data, object
// headers, B-tree nodes, heaps, superblock); a process that dies between two
// of them leaves a torn file. Here no write reaches the database file
// directly. Between two commits the bytes are kept in an overlay (in memory,
// spilled to the journal file "<name>-journal" when a transaction grows
// large), and reads see the newest bytes. A commit appends a commit record to
// the journal (the transaction's extents, the new end of file and a crc32 of
// the whole transaction), then copies the extents into the database file,
// then empties the journal. Opening a database with a journal replays a
// complete transaction (replay is idempotent, so dying during it is harmless)
// and discards an incomplete one with a message. A read-only open changes no
// byte of either file: it reads through the journal's overlay instead.
//
// Journal file (little-endian), one transaction from its start:
//   header   "DDBJRNL\2", u64 sequence number, u64 length of the transaction
//            (written when it commits)
//   data     the transaction's bytes, in the order they were written
//   commit   u64 extent count n, u64 cut, u64 end of file,
//            n x (u64 address, u64 length, u64 journal position), by address
//   trailer  u64 position of the commit record, u64 sequence number, u32
//            crc32 of all before the trailer but the length field, "DDBC"
// Eight zero bytes over the magic mark the journal empty; whatever follows
// them is left over and never read.
// Replaying cuts the database file to `cut` when it is longer (bytes the
// transaction truncated away read as zeros afterwards), writes the extents,
// and sets the file's length to the end of file.
//
// Durability: a kill never loses a commit, since the operating system keeps
// every completed write. Against power loss, `durable` syncs the journal at
// the commit record and the database after the copy.
//
// Locking: a writer holds an exclusive, a reader a shared open-file-description
// lock on the database file, whatever HDF5's own file locking is set to, so
// two processes never write one database at once. Within one process the
// same file is opened once and shared.
#ifndef DDB_PLATFORM_HDF_HDF_JOURNAL_H_
#define DDB_PLATFORM_HDF_HDF_JOURNAL_H_

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <vector>

#include "platform/core/ddb_export.h"

class DDB_API hdf_Journal {
 public:
  enum Mode { kReadOnly, kReadWrite, kCreateExclusive, kCreateTruncate };

  // Opens the database `name` and recovers its journal, or shares the
  // journal that this process already has open for the same file. Null on
  // failure, with *reason saying why in a few words ("in use by another
  // process"). Messages about the journal go to aio_cerr.
  static hdf_Journal* Open(const char* name, Mode mode, bool durable, const char** reason);
  // Commits what is pending and closes when the last sharer releases.
  // False when the last commit failed.
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

  // "<name>-journal".
  static std::vector<char> JournalName(const char* name);
  // The journal beside `name` holds a transaction, complete or not: the
  // database was not closed by the library, and other programs must not read
  // it before the library opened it once.
  static bool Pending(const char* name);

  // Test hook: the process kills itself (SIGKILL) at the `operation`-th
  // change to a database or journal file from now (a write or a change of
  // length, counted from 1), after writing half of its bytes when `torn`.
  // 0 switches the hook off. Returns the number of changes counted since
  // the last call.
  static long CrashAt(long operation, bool torn);

 private:
  struct Extent {
    uint64_t end;       // one past the last address
    uint64_t position;  // where the bytes start in the journal
  };
  // One parsed commit record.
  struct Transaction {
    std::vector<uint64_t> extents;  // address, length, position triples
    uint64_t cut;
    uint64_t eof;
  };
  enum Recovered { kEmpty, kComplete, kIncomplete };

  hdf_Journal() {}
  ~hdf_Journal();
  bool OpenFiles(const char* name, Mode mode, const char** reason);
  bool Recover(const char** reason);
  Recovered Parse(Transaction* transaction);
  bool Apply(const Transaction& transaction);
  bool ReadJournal(uint64_t position, size_t size, void* bytes);
  bool ReadDatabase(uint64_t address, size_t size, unsigned char* bytes);
  void Begin();
  void Append(const void* bytes, size_t size);
  // [address, end) reads from the database file as the last commit left it:
  // below the cut, and not written since.
  bool Unwritten(uint64_t address, uint64_t end) const;
  // HDF5 writes a metadata block whole when any byte of it changed (the
  // fractal heap's block of up to 64 KB for one new link), and a commit
  // takes a crc of what was written and copies it twice (journal, file): a
  // large write over unwritten committed bytes is compared with them, and
  // only the runs of granules that differ become extents.
  bool WriteChanges(uint64_t address, size_t size, const unsigned char* bytes);
  // Puts [address, address + size) into the transaction.
  bool WriteExtent(uint64_t address, size_t size, const void* bytes);
  bool Spill();
  void Overlay(uint64_t address, uint64_t end, uint64_t position);
  bool ResetJournal();
  bool Close();

  std::vector<char> m_name;         // the database file's name
  std::vector<char> m_journalName;  // and its journal's
  int m_db = -1;
  int m_journal = -1;
  dev_t m_device = 0;
  ino_t m_inode = 0;
  bool m_writable = false;
  bool m_durable = false;
  bool m_failed = false;  // a commit failed: no further writes
  int m_sharers = 0;
  hdf_Journal* m_next = nullptr;  // the process's open journals

  // The database file as the last commit left it.
  uint64_t m_dbSize = 0;
  // The transaction in flight: database bytes from `m_cut` on are gone.
  uint64_t m_cut = 0;
  uint64_t m_eof = 0;
  bool m_dirty = false;
  std::map<uint64_t, Extent> m_overlay;  // by address; never overlapping
  // The journal's bytes: [0, m_spilled) are in the journal file,
  // [m_spilled, m_spilled + m_buffer.size()) in m_buffer.
  uint64_t m_spilled = 0;
  std::vector<unsigned char> m_buffer;
  std::vector<unsigned char> m_compare;  // committed bytes under a large write
  uint32_t m_crc = 0;
  uint64_t m_sequence = 0;  // of the transaction in flight
};

#endif  // DDB_PLATFORM_HDF_HDF_JOURNAL_H_
