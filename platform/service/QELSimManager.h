// QELSimManager and QELSimContextRef: open and close the database files of
// the simulation-database service, and reach a context's HDF5 file.
//
// A context is one open use of a file. Its number is unique in the process
// and never handed out again, so an identifier of a closed context cannot
// reach another file. Everything the service stores lives in the context's
// HDF5 file (see QELSimCollection.h, QELSimDistribution.h); closing the last
// context on a file closes that file completely.
#ifndef DDB_PLATFORM_SERVICE_QELSIMMANAGER_H_
#define DDB_PLATFORM_SERVICE_QELSIMMANAGER_H_

#include "platform/core/ddb_export.h"
#include "platform/hdf/hdf_File.h"
#include "platform/service/QELSimIDs.h"

class DDB_API QELSimManager {
 public:
  // A bit of the last argument of CreateContext and OpenContext: every
  // commit of the file is also made durable against power loss (see
  // hdf_File::SyncCommits). Without it, commits survive the death of the
  // process, not of the machine.
  static const int SyncCommits = 0x100;

  // A new file; with flags 0 (hdf_File::Exclusive) an existing file is left
  // alone and the call fails. The int, bool and int arguments are part of the
  // suite's calling convention; of the last, only the bit SyncCommits is used.
  // Returns a context numbered -1 after a message when the file cannot be made.
  static QELSimContextID CreateContext(const char* name, hdf_File::CreateFlags flags, int, bool,
                                       int);
  // An existing file, for update (0) or read-only (1). A file already open in
  // another context is shared with it; it cannot be opened for update while
  // it is open read-only. A read-only context never changes the file; when it
  // shares a file open for update, the service still refuses its writes, but
  // the hdf_File it hands out is the writable one.
  static QELSimContextID OpenContext(const char* name, hdf_File::OpenFlags flags, int, bool, int);
  // Silent for the null context; a message for one that is not open.
  static void CloseContext(QELSimContextID context);
};

class DDB_API QELSimContextRef {
 public:
  QELSimContextRef(const QELSimContextID& context);  // NOLINT: used as a conversion
  // The context's file; invalid for the null context (silently) and, after a
  // message, for a context that is not open.
  hdf_File File() const;
  bool IsReadOnly() const;

 private:
  QELSimContextID m_context;
};

#endif  // DDB_PLATFORM_SERVICE_QELSIMMANAGER_H_
