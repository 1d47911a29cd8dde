// What the writer benchmarks start from: a sim with a discrete model and a
// mesh over node and element collections of 100 members, and the two
// distributions every FE system they add names.
#ifndef DDB_BENCH_BENCH_MESH_H_
#define DDB_BENCH_BENCH_MESH_H_

#include <string>

#include "fes/fes.h"
#include "platform/service/QELSimService.h"
#include "sim_schema/sim_schema.h"

namespace bench {

struct Mesh {
  msfD_Mesh_SystemsArray systems;
  QELSimDistributionID labels, masks;
};

inline Mesh MakeMesh(msfD_Sim& sim) {
  QELSimContextID context = sim.distributionService().Context();
  QELSimCollectionID nodes = QELSimCollectionRef::Create(context, 100);
  sim.DiscreteModel(msfD_DiscreteModel::New(nodes, nodes, 0));
  msfD_Mesh mesh = sim.discreteModel().Mesh(msfD_Mesh::New(nodes, nodes, 0));
  return {mesh.systems(), QELSimDistributionID(context.Number(), 1),
          QELSimDistributionID(context.Number(), 2)};
}

// FE system i as the benchmarks add it.
inline fesD_FESystemHolder System(const Mesh& mesh, int i) {
  return fesD_FESystem::New(("system " + std::to_string(i)).c_str(), mesh.labels, mesh.masks, 0);
}

}  // namespace bench

#endif  // DDB_BENCH_BENCH_MESH_H_
