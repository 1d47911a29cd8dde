// Numbers the degrees of freedom of a database's first FE system and writes
// the solver's permutation back as an ordered set of a new collection.
//
//   number_dofs FILE
#include <DDB_PDM_Core/DDB_PDM_Core.h>

#include <cstdio>
#include <vector>

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: number_dofs FILE\n");
    return 2;
  }
  int count = 0;
  DDB_PDM_Core_initialize(count);
  int status = 1;
  {
    msfD_Root root(0);
    msfD_Sim sim = root.openSim(argv[1], "", 0);  // for update: the permutation is written
    fesD_FESystem system = !sim ? fesD_FESystem() : sim.discreteModel().mesh().systems().get(0);
    if (!!system) {
      // One active-DOF mask per node (bit b: DOF label b + 1); no shift, no label 10.
      fesD_NodalDofDefinition dofs(system.nodalActivityMask(), 0, false);
      // The solver takes every DOF in the system's own order here.
      std::vector<int> identity(static_cast<size_t>(dofs.NumberOfDofs()));
      for (size_t i = 0; i < identity.size(); ++i) identity[i] = static_cast<int>(i);
      dofs.SetupSolverDofs(dofs.NumberOfDofs(), identity.data());
      QELSimCollectionID solver =
          QELSimCollectionRef::Create(sim.distributionService().Context(), dofs.NumberOfDofs());
      QELSimCSetID permutation = dofs.WritePermutation(solver);
      std::printf("%d nodes, %d DOFs, permutation of %d written\n", dofs.NumberOfNodes(),
                  dofs.NumberOfDofs(), QELSimCSet(permutation).Size());
      status = permutation.IsValid() ? 0 : 1;
    }
  }
  DDB_PDM_Core_finalize(count);
  return status;
}
