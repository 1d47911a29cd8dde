// Creates a small simulation database, as a host component would.
//
//   create_database FILE
//
// Bulk data goes into the simulation-database service through its client
// API (collections of nodes and elements, ordered sets, one int32 value per
// node); the persistent objects keep only the service's identifiers. Every
// call that changes the database commits at once: if this program were
// killed half-way, the file would reopen in the state of the last call.
#include <DDB_PDM_Core/DDB_PDM_Core.h>

#include <cstdio>
#include <vector>

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: create_database FILE\n");
    return 2;
  }
  int count = 0;
  DDB_PDM_Core_initialize(count);
  int status = 0;
  {
    msfD_Root root(0);
    msfD_Sim sim = root.createSim(argv[1], "example", 0);
    if (!sim) return 1;  // the library has said why
    QELSimContextID context = sim.distributionService().Context();

    // Four nodes, one element; every node carries ux, uy, uz (mask 7).
    const int kNodes = 4;
    QELSimCollectionID nodes = QELSimCollectionRef::Create(context, kNodes);
    QELSimCollectionID elements = QELSimCollectionRef::Create(context, 1);
    std::vector<int> order = {0, 1, 2, 3};
    QELSimCSetID all = QELSimCollectionRef(nodes).CreateOrderedCSet(order.data(), kNodes);
    std::vector<int> labels = {101, 102, 103, 104}, masks(kNodes, 7);
    QELSimDistributionID userLabels = QELSimDistributionRef::CreateInt32(all, labels.data());
    QELSimDistributionID activity = QELSimDistributionRef::CreateInt32(all, masks.data());

    // The object tree: a discrete model, its mesh, one FE system.
    msfD_DiscreteModel model = sim.DiscreteModel(msfD_DiscreteModel::New(nodes, nodes, 0));
    msfD_Mesh mesh = model.Mesh(msfD_Mesh::New(nodes, elements, 0));
    ada_MapString<QELSimCSetID> nodeSets;
    nodeSets.insert("all", all);
    mesh.NodeSets(nodeSets);  // a setter: the mesh's members are stored again
    fesD_FESystem system =
        mesh.systems().add(fesD_FESystem::New("structure", userLabels, activity, 0));
    status = !system ? 1 : 0;
    root.closeSim(sim);  // nothing is left to write: every call above committed
  }
  DDB_PDM_Core_finalize(count);
  return status;
}
