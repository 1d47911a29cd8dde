// Start-up and shut-down of the library and of its four modules.
//
// Each function takes the caller's running count of components actually
// brought up or taken down (see platform/core/startup_counter.h). The library
// pair brings up the suite's libraries and then the modules ada, gbb, fesD,
// msfD; the last finalise takes them down in exact reverse.
#ifndef DDB_FRAME_DDB_PDM_CORE_STARTUP_H_
#define DDB_FRAME_DDB_PDM_CORE_STARTUP_H_

#include "platform/core/ddb_export.h"

DDB_API void DDB_PDM_Core_initialize(int& count);
DDB_API void DDB_PDM_Core_finalize(int& count);

DDB_API void ada_initialize(int& count);
DDB_API void ada_finalize(int& count);
DDB_API void gbb_initialize(int& count);
DDB_API void gbb_finalize(int& count);
DDB_API void fesD_initialize(int& count);
DDB_API void fesD_finalize(int& count);
DDB_API void msfD_initialize(int& count);
DDB_API void msfD_finalize(int& count);

#endif  // DDB_FRAME_DDB_PDM_CORE_STARTUP_H_
