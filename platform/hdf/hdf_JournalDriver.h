// hdf_JournalDriver: the HDF5 virtual file driver that puts every file of the
// wrapper behind its write-ahead journal (see hdf_Journal.h).
//
// HDF5 sees an ordinary POSIX file: the driver answers reads and writes
// through the journal's overlay and makes each HDF5 flush a commit. The
// file's format is HDF5's own (no driver information is stored in it), so a
// database without a pending journal is a plain HDF5 file for every tool.
#ifndef DDB_PLATFORM_HDF_HDF_JOURNALDRIVER_H_
#define DDB_PLATFORM_HDF_HDF_JOURNALDRIVER_H_

#include <hdf5.h>

class hdf_JournalDriver {
 public:
  // Makes files opened with `fileAccess` go through the journal; `durable`
  // syncs each commit to the disk (see hdf_Journal.h).
  static bool Use(hid_t fileAccess, bool durable);
  // Why the last open through the driver failed ("in use by another
  // process"), null when it succeeded or the driver did not get to say.
  static const char* LastFailure();
};

#endif  // DDB_PLATFORM_HDF_HDF_JOURNALDRIVER_H_
