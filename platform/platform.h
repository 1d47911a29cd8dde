// The platform stand-ins: allocation, error stream, strings, the HDF5
// wrapper, the simulation-database service and the suite's start-up pairs.
#ifndef DDB_PLATFORM_PLATFORM_H_
#define DDB_PLATFORM_PLATFORM_H_

#include "platform/QELSimIDExternal.h"
#include "platform/QELSimIDs.h"
#include "platform/QELSimService.h"
#include "platform/aio_ostream.h"
#include "platform/cow_String.h"
#include "platform/ddb_export.h"
#include "platform/hdf.h"
#include "platform/mem.h"
#include "platform/suite_startup.h"

#endif  // DDB_PLATFORM_PLATFORM_H_
