// The simulation-database service's client interface: contexts on files,
// collections, ordered sets and distributions, and the checked array and
// assertion they use.
#ifndef DDB_PLATFORM_SERVICE_QELSIMSERVICE_H_
#define DDB_PLATFORM_SERVICE_QELSIMSERVICE_H_

#include "platform/service/QELSimArray.h"
#include "platform/service/QELSimAssert.h"
#include "platform/service/QELSimCollection.h"
#include "platform/service/QELSimDistribution.h"
#include "platform/service/QELSimManager.h"

#endif  // DDB_PLATFORM_SERVICE_QELSIMSERVICE_H_
