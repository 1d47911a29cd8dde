// The finite-element system schema, the DOF numbering and node labels.
#ifndef DDB_FES_FES_H_
#define DDB_FES_FES_H_

#include "fes/dpa/impl/fesD_NodalDofDefinition.h"
#include "fes/fesD_FESystem.h"
#include "fes/fesD_GenericSystem.h"
#include "fes/fesD_ModalEvent.h"
#include "fes/fesD_ModalSystem.h"
#include "fes/fesD_SubDamp.h"
#include "fes/fesD_SubstructureSystem.h"
#include "fes/fesD_Utilities.h"

#endif  // DDB_FES_FES_H_
