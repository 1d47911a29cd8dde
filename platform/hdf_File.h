// hdf_File: one open HDF5 file, and when what is written to it becomes durable.
//
// Durability: every attribute or dataset write through the wrapper is
// followed by a flush of its file, so a completed write survives the process
// being killed. A caller that makes several writes as one step wraps them in
// an hdf_WriteBatch and pays for one flush at its end. SetFlushAfterWrites
// switches the policy off for the whole process (bulk loads that flush
// themselves, and measuring what the policy costs).
//
// A file stays open while any copy of it, or any object opened in it, lives
// (HDF5's usual rule). Close() ends all of that at once.
#ifndef DDB_PLATFORM_HDF_FILE_H_
#define DDB_PLATFORM_HDF_FILE_H_

#include "platform/cow_String.h"
#include "platform/ddb_export.h"
#include "platform/hdf_Group.h"
#include "platform/hdf_Id.h"

class DDB_API hdf_File {
 public:
  // 0 refuses to overwrite: creating a file that exists fails, which keeps a
  // database from being destroyed by a mistaken create.
  enum CreateFlags { Exclusive = 0, Truncate = 1 };
  enum OpenFlags { ReadWrite = 0, ReadOnly = 1 };

  hdf_File() {}
  static hdf_File Create(const char* name, CreateFlags flags);
  static hdf_File Open(const char* name, OpenFlags flags);

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
  // Gives a file access property list the settings every file of the wrapper
  // is opened with (a small fixed metadata cache, see hdf_File.cpp), so that
  // code using HDF5 directly can compare like with like.
  static bool ConfigureAccess(hid_t fileAccess);

 private:
  hdf_Id m_id;
};

// Defers the flushes of the wrapper's writes until the batch ends; then
// flushes `file` once. Batches may nest; writes are deferred while any is open.
class DDB_API hdf_WriteBatch {
 public:
  explicit hdf_WriteBatch(const hdf_File& file);
  ~hdf_WriteBatch();
  hdf_WriteBatch(const hdf_WriteBatch&) = delete;
  hdf_WriteBatch& operator=(const hdf_WriteBatch&) = delete;

 private:
  hdf_File m_file;
};

#endif  // DDB_PLATFORM_HDF_FILE_H_
