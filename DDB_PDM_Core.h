// The whole public interface of the library, in one include:
//   #include <DDB_PDM_Core/DDB_PDM_Core.h>
// Layers, bottom up: platform stand-ins, containers, persistence framework,
// finite-element system schema, simulation database schema, frame.
#ifndef DDB_PDM_CORE_H_
#define DDB_PDM_CORE_H_

#include <hdf5.h>

#include "containers/containers.h"
#include "fes/fes.h"
#include "frame/frame.h"
#include "persistence/persistence.h"
#include "platform/platform.h"
#include "sim_schema/sim_schema.h"

#endif  // DDB_PDM_CORE_H_
