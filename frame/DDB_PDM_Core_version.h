// The version of the library, as built.
//
// A function rather than a macro: a program asks the library it actually
// loaded, which after an upgrade of the shared library may be newer than
// the headers it was compiled against. The text is the project's version
// ("0.1.0"); the build passes it in, so it has one source.
#ifndef DDB_FRAME_DDB_PDM_CORE_VERSION_H_
#define DDB_FRAME_DDB_PDM_CORE_VERSION_H_

#include "platform/core/ddb_export.h"

DDB_API const char* DDB_PDM_Core_version();

#endif  // DDB_FRAME_DDB_PDM_CORE_VERSION_H_
