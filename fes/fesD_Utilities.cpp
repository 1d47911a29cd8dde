// Node label conversions. The labels are read the way every nodal
// distribution of a system is read: the drawer description gives the
// dimension set and the node count, one transfer fills the array.
#include "fes/fesD_Utilities.h"

#include <cstring>

#include "platform/QELSimService.h"
#include "platform/aio_ostream.h"
#include "platform/mem.h"

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
  QELSimPersistentDrawerDesc& drawer = drawers[0];
  const QELSimCSetID nodeOrder = drawer.DimensionSets()[0];
  const int n = drawer.DataSizeItems(0);
  const size_t bytes = mem_ArraySize(n, sizeof(int));
  int* user = NewInts(n);
  // A read that fails (after the service's message) leaves labels 0, which
  // the inverse skips, rather than whatever the allocator left.
  std::memset(user, 0, bytes);
  QELSimTransfer transfer(labels);
  transfer.SetRead();
  transfer.SetBufferPadding(false);
  transfer.SetDim(0, nodeOrder);
  transfer.CheckView();
  transfer.SetBuffer(0, user, bytes);
  transfer.ExecRead();
  transfer.RelinquishBuffers();
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
