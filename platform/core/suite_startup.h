// Start-up pairs of the suite's libraries that this library depends on.
//
// The real libraries are not available here; these stand-ins keep their
// counting convention (see startup_counter.h) and hold no other state.
#ifndef DDB_PLATFORM_CORE_SUITE_STARTUP_H_
#define DDB_PLATFORM_CORE_SUITE_STARTUP_H_

#include "platform/core/ddb_export.h"

DDB_API void UTI_CoreUtils_initialize(int& count);
DDB_API void UTI_CoreUtils_finalize(int& count);
DDB_API void UTI_BasicUtils_initialize(int& count);
DDB_API void UTI_BasicUtils_finalize(int& count);
DDB_API void UTI_QELSimDynamicAPI_initialize(int& count);
DDB_API void UTI_QELSimDynamicAPI_finalize(int& count);
DDB_API void DDB_HdxInterface_initialize(int& count);
DDB_API void DDB_HdxInterface_finalize(int& count);

#endif  // DDB_PLATFORM_CORE_SUITE_STARTUP_H_
