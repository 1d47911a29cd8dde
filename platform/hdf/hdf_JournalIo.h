// hdf_JournalIo: every call the journal makes on its files, behind one small
// interface, so that a test can stand between the journal and the disk.
//
// The class itself is the POSIX implementation. A test derives from it to
// kill the process at a chosen change to a file, or to act out a power loss
// at a sync point (every write not yet synced is then kept, lost or torn),
// and installs it for the journals opened from then on. Nothing else in the
// journal touches a file descriptor.
//
// Locks are open-file-description byte-range locks: owned by the open file,
// not the process, so two opens in one process exclude each other as two
// processes do, and a process that dies releases every lock it held.
#ifndef DDB_PLATFORM_HDF_HDF_JOURNALIO_H_
#define DDB_PLATFORM_HDF_HDF_JOURNALIO_H_

#include <sys/types.h>

#include <cstddef>
#include <cstdint>

#include "platform/core/ddb_export.h"

class DDB_API hdf_JournalIo {
 public:
  enum LockType { kShared, kExclusive };
  enum LockResult { kLocked, kFree, kBusy, kNoLocks };

  virtual ~hdf_JournalIo();

  // open(2); -1 with errno set on failure.
  virtual int Open(const char* name, int flags, mode_t mode);
  virtual void Close(int fd);
  // What the file holds of [offset, offset + size); beyond its end, zeros.
  virtual bool Read(int fd, void* bytes, size_t size, uint64_t offset);
  virtual bool Write(int fd, const void* bytes, size_t size, uint64_t offset);
  virtual bool Size(int fd, uint64_t* size);
  virtual bool SetLength(int fd, uint64_t length);
  // Makes the file's data durable: the journal's sync points.
  virtual bool Sync(int fd);
  // Gives the blocks of [offset, offset + length) back (they read as
  // zeros). False where the file system cannot: the bytes then stay.
  virtual bool Punch(int fd, uint64_t offset, uint64_t length);
  virtual bool Unlink(const char* name);
  // Makes a new or removed entry in the directory of `name` durable.
  virtual bool SyncDirectory(const char* name);

  // Takes a lock on [start, start + length) of `fd`, waiting for it when
  // `wait`; kNoLocks where the file system has none.
  virtual LockResult Lock(int fd, LockType type, uint64_t start, uint64_t length, bool wait);
  virtual void Unlock(int fd, uint64_t start, uint64_t length);
  // kBusy when an open other than `fd` holds a lock in the range that would
  // conflict with `type` (*at is then where that lock starts), else kFree.
  virtual LockResult Test(int fd, LockType type, uint64_t start, uint64_t length, uint64_t* at);

  // A shared, read-only view of the first `size` bytes of the file, which
  // follows every write to it; null where there is none (the journal then
  // reads instead).
  virtual const void* Map(int fd, size_t size);
  virtual void Unmap(const void* view, size_t size);

  // The I/O of journals opened from now on.
  static hdf_JournalIo* Current();
  // Test seam: puts `io` under the journals opened from now on (null: the
  // POSIX one again). The caller keeps it alive while they are open.
  static void Install(hdf_JournalIo* io);
};

#endif  // DDB_PLATFORM_HDF_HDF_JOURNALIO_H_
