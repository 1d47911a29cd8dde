// hdf_File: one open HDF5 file, and when what is written to it becomes durable.
//
// Durability: every attribute or dataset write through the wrapper is
// followed by a flush of its file, and every flush is a commit of the file's
// write-ahead journal (hdf_Journal.h): a completed write survives the process
// being killed, and the file reopens in the state of the last completed
// flush, never between two. A caller that makes several writes as one step
// wraps them in an hdf_WriteBatch: one flush, one transaction at its end.
// SetFlushAfterWrites switches the policy off for the whole process (bulk
// loads that flush themselves, and measuring what the policy costs).
//
// A file stays open while any copy of it, or any object opened in it, lives
// (HDF5's usual rule). Close() ends all of that at once.
#ifndef DDB_PLATFORM_HDF_HDF_FILE_H_
#define DDB_PLATFORM_HDF_HDF_FILE_H_

#include "platform/core/cow_String.h"
#include "platform/core/ddb_export.h"
#include "platform/hdf/hdf_Group.h"
#include "platform/hdf/hdf_Id.h"

class DDB_API hdf_File {
 public:
  // 0 refuses to overwrite: creating a file that exists fails, which keeps a
  // database from being destroyed by a mistaken create.
  enum CreateFlags { Exclusive = 0, Truncate = 1 };
  enum OpenFlags { ReadWrite = 0, ReadOnly = 1 };
  // Options of Create and Open. SyncCommits makes every commit durable
  // against power loss too (the journal and then the file are synced to the
  // disk), at the cost of two disk syncs per commit.
  enum Options { NoOptions = 0, SyncCommits = 1 };

  hdf_File() {}
  static hdf_File Create(const char* name, CreateFlags flags, unsigned options = NoOptions);
  static hdf_File Open(const char* name, OpenFlags flags, unsigned options = NoOptions);
  // The file that holds `object` (a group, dataset or attribute).
  static hdf_File Of(hid_t object);

  bool IsValid() const { return m_id.IsValid(); }
  hid_t Id() const { return m_id.Get(); }
  hdf_Group RootGroup() const;
  // Writes everything HDF5 holds for this file to the operating system.
  bool Flush();
  bool IsReadOnly() const;
  // The name the file was opened with.
  cow_String Name() const;
  // Closes every group, dataset and attribute opened in this file and then the
  // file itself, whoever still holds them: they, and all copies of this file,
  // become invalid. Afterwards the file can be opened again, by anyone.
  void Close();

  static void SetFlushAfterWrites(bool on);
  static bool FlushAfterWrites();
  // Files opened from now on go through the journal (the default) or
  // straight to HDF5's POSIX driver, without crash consistency: only for
  // measuring what the journal costs.
  static void SetJournaling(bool on);
  // The file `name` has a journal that holds bytes: it was not closed by
  // the library. Opening it once through the wrapper settles it; until then
  // other HDF5 programs may see an older or a damaged state.
  static bool JournalPending(const char* name);
  // Where the database `name` stands, without opening it through HDF5:
  // *mark changes whenever a commit lands, *writing says whether a writer
  // has it open. Cheap enough to poll. False when the file does not open.
  static bool Watch(const char* name, unsigned long long* mark, bool* writing);
  // Gives a file access property list the settings every file of the wrapper
  // is opened with (a small fixed metadata cache, see hdf_File.cpp, and the
  // journal while journaling is on), and a file creation property list those
  // every file is created with, so that code using HDF5 directly can compare
  // like with like.
  static bool ConfigureAccess(hid_t fileAccess);
  static bool ConfigureCreation(hid_t fileCreation);

 private:
  hdf_Id m_id;
};

// Defers the flushes of the wrapper's writes until the batch ends; then
// flushes `file` once. Batches may nest; writes are deferred while any is
// open, and a batch nested in one on the same file leaves the flush to it.
class DDB_API hdf_WriteBatch {
 public:
  explicit hdf_WriteBatch(const hdf_File& file);
  // The batch of the file that holds `object` (a group, dataset or attribute).
  explicit hdf_WriteBatch(hid_t object);
  ~hdf_WriteBatch();
  hdf_WriteBatch(const hdf_WriteBatch&) = delete;
  hdf_WriteBatch& operator=(const hdf_WriteBatch&) = delete;

 private:
  hdf_File m_file;
  bool m_flushes;  // no enclosing batch flushes the same file
  bool m_pushed;
};

#endif  // DDB_PLATFORM_HDF_HDF_FILE_H_
