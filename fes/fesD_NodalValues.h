// Reading one 32-bit value per node from a distribution of the service.
//
// The nodal distributions of an FE system (activity masks, user labels)
// are all read the same way: the first drawer's first dimension set gives
// the node order and count, and one transfer fills an array. Internal to the
// library.
#ifndef DDB_FES_FESD_NODALVALUES_H_
#define DDB_FES_FESD_NODALVALUES_H_

#include "platform/service/QELSimService.h"

// A new array (mem_OperatorNewThrowBuiltin) of `count` values of `id`, in the
// order of `drawer`'s first dimension set. It is zeroed first, so a read that
// fails after the service's message leaves zeros, not leftovers.
int* fesD_ReadNodalValues(QELSimDistributionID id, QELSimPersistentDrawerDesc& drawer, int count);

#endif  // DDB_FES_FESD_NODALVALUES_H_
