// The finite-element system schema, the DOF numbering and node labels.
#ifndef DDB_FES_FES_H_
#define DDB_FES_FES_H_

#include "fes/dpa/impl/fesD_NodalDofDefinition.h"

#endif  // DDB_FES_FES_H_
