#include "fes/fesD_NodalValues.h"

#include <cstring>

#include "platform/core/mem.h"

int* fesD_ReadNodalValues(QELSimDistributionID id, QELSimPersistentDrawerDesc& drawer, int count) {
  const QELSimCSetID nodeOrder = drawer.DimensionSets()[0];
  const size_t bytes = mem_ArraySize(count, sizeof(int));
  int* values = static_cast<int*>(mem_OperatorNewThrowBuiltin(bytes));
  std::memset(values, 0, bytes);
  QELSimTransfer transfer(id);
  transfer.SetRead();
  transfer.SetBufferPadding(false);
  transfer.SetDim(0, nodeOrder);
  transfer.CheckView();
  transfer.SetBuffer(0, values, bytes);
  transfer.ExecRead();
  transfer.RelinquishBuffers();
  return values;
}
