// fesD_Utilities: conversions between the internal node numbering of an FE
// system (a node's position in the system's nodal distributions, from 0) and
// the user's node labels, which the system keeps in its `nodalLabels`
// distribution.
//
// Both conversions return a new int array from the suite allocator
// (mem_OperatorNewThrowBuiltin) that the caller releases with mem_Free.
// A system without a readable labels distribution gets a message and an
// empty result (no nodes), never a crash.
#ifndef DDB_FES_FESD_UTILITIES_H_
#define DDB_FES_FESD_UTILITIES_H_

#include "fes/fesD_FESystem.h"
#include "platform/core/ddb_export.h"

class DDB_API fesD_Utilities {
 public:
  // Entry [internal node] = that node's user label; `count` receives the
  // number of nodes.
  static int* InternalToUserNodes(fesD_FESystem system, int& count);
  // Entry [user label] = the internal node that carries it, or -1; the array
  // has maxLabel + 1 entries. Labels 0 and below are not entered; of two
  // nodes with the same label the later one wins. Entry 0 is always -1.
  static int* UserToInternalNodes(fesD_FESystem system, int& maxLabel);
};

#endif  // DDB_FES_FESD_UTILITIES_H_
