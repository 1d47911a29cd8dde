// The platform stand-ins: allocation, error stream, strings, the HDF5
// wrapper, the simulation-database service and the suite's start-up pairs.
#ifndef DDB_PLATFORM_PLATFORM_H_
#define DDB_PLATFORM_PLATFORM_H_

#include "platform/core/aio_ostream.h"
#include "platform/core/cow_String.h"
#include "platform/core/ddb_export.h"
#include "platform/core/mem.h"
#include "platform/core/suite_startup.h"
#include "platform/hdf/hdf.h"
#include "platform/service/QELSimIDExternal.h"
#include "platform/service/QELSimIDs.h"
#include "platform/service/QELSimService.h"

#endif  // DDB_PLATFORM_PLATFORM_H_
