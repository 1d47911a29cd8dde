// Names and failure lines of the HDF5 wrapper (internal to the library).
//
// Every failing HDF5 call of the wrapper prints exactly one line that names
// the operation, the object and the file, for example
//   **ERROR hdf_Group::GroupOpen: cannot open group mesh in /sim of file a.h5
// and, when a write failed because the file was opened read-only, the suffix
// ": file is read-only". HDF5's own error stack is never printed.
#ifndef DDB_PLATFORM_HDF_HDF_REPORT_H_
#define DDB_PLATFORM_HDF_HDF_REPORT_H_

#include <hdf5.h>

#include "platform/core/cow_String.h"

// Path of an object inside its file ("/sim/mesh"); for an attribute, the
// path of the object it belongs to. Empty when HDF5 cannot tell.
cow_String hdf_ObjectPath(hid_t id);
// Name of the file that holds the object.
cow_String hdf_FileName(hid_t id);
// Name of an attribute.
cow_String hdf_AttributeName(hid_t attribute);

// "**ERROR <operation>: cannot <action>[ <name>] in <path of where> of file <file>[: file is
// read-only]\n", the suffix only when `writing` and the file is read-only. A null
// `name` leaves out the name and " in": "cannot <action> <path> of file <file>".
void hdf_ReportFailure(const char* operation, const char* action, const char* name, hid_t where,
                       bool writing);

// Makes what the wrapper wrote to the file of `object` durable, unless flushing
// is switched off or deferred (see hdf_File::SetFlushAfterWrites, hdf_WriteBatch).
void hdf_FlushAfterWrite(hid_t object);

#endif  // DDB_PLATFORM_HDF_HDF_REPORT_H_
