// Node label conversions. The labels are read the way every nodal
// distribution of a system is read: the drawer description gives the
// dimension set and the node count, one transfer fills the array.
#include "fes/fesD_Utilities.h"

#include "fes/fesD_NodalValues.h"
#include "platform/core/aio_ostream.h"
#include "platform/core/mem.h"
#include "platform/service/QELSimService.h"

namespace {

int* NewInts(long long count) {
  return static_cast<int*>(mem_OperatorNewThrowBuiltin(mem_ArraySize(count, sizeof(int))));
}

}  // namespace

int* fesD_Utilities::InternalToUserNodes(fesD_FESystem system, int& count) {
  const QELSimDistributionID labels = system.nodalLabels();
  if (!labels.IsValid()) {
    aio_cerr.print("User node labels distribution not found!\n").flush();
  }
  QELSimDistributionRef distribution(labels);
  QELSimArray<QELSimPersistentDrawerDesc> drawers(1);
  distribution.QueryDrawers(drawers);
  count = 0;
  // The service has said why it found no drawer; no nodes is the answer
  // that lets the caller go on.
  if (drawers.Size() == 0) return NewInts(0);
  const int n = drawers[0].DataSizeItems(0);
  int* user = fesD_ReadNodalValues(labels, drawers[0], n);
  count = n;
  return user;
}

int* fesD_Utilities::UserToInternalNodes(fesD_FESystem system, int& maxLabel) {
  int n = 0;
  int* user = InternalToUserNodes(system, n);
  maxLabel = 0;
  for (int i = 0; i < n; ++i) {
    if (user[i] > maxLabel) maxLabel = user[i];
  }
  int* internal = nullptr;
  try {
    // Widened: the largest int label needs one more entry than an int counts.
    internal = NewInts(static_cast<long long>(maxLabel) + 1);
  } catch (...) {
    mem_Free(user);
    throw;
  }
  for (long long label = 0; label <= maxLabel; ++label) internal[label] = -1;
  for (int i = 0; i < n; ++i) {
    if (user[i] > 0) internal[user[i]] = i;
  }
  mem_Free(user);
  return internal;
}
