// The simulation-database service's client interface: contexts on files,
// collections, ordered sets and distributions, and the checked array and
// assertion they use.
#ifndef DDB_PLATFORM_QELSIMSERVICE_H_
#define DDB_PLATFORM_QELSIMSERVICE_H_

#include "platform/QELSimArray.h"
#include "platform/QELSimAssert.h"
#include "platform/QELSimCollection.h"
#include "platform/QELSimDistribution.h"
#include "platform/QELSimManager.h"

#endif  // DDB_PLATFORM_QELSIMSERVICE_H_
