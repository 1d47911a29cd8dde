// The C++ side of the Python module's tests (tests/python/).
//
//   python_test_helper deck DECK FILE   a database holding a finite-element deck's mesh as a
//                                       modal system, and what the C++ DOF numbering and the
//                                       node label conversions answer on it
//   python_test_helper damage FILE      damages a database made by the tests: the members of
//                                       system 0 cut short, system 1 of an unknown class
//
// Each answer of the numbering is stored as an int32 distribution in the
// system's userDistributions under its own name, so that the Python side
// reads the C++ results through the module it checks, from a database the
// C++ side wrote.
#include <DDB_PDM_Core.h>

#include <cstdio>
#include <memory>
#include <numeric>
#include <string>
#include <vector>

#include "fe_deck.h"
#include "support/h5_raw.h"

namespace {

typedef std::vector<int> Ints;

// An ordered set of every member of a new collection of `n`.
QELSimCSetID All(QELSimCollectionID collection, int n) {
  Ints members(n);
  std::iota(members.begin(), members.end(), 0);
  return QELSimCollectionRef(collection).CreateOrderedCSet(members.data(), n);
}

// The answers by name, each over a new collection of its own size.
struct Answers {
  QELSimContextID context;
  ada_MapString<QELSimDistributionID> stored;

  void Put(const std::string& name, const Ints& values) {
    const int n = static_cast<int>(values.size());
    QELSimCSetID set = All(QELSimCollectionRef::Create(context, n), n);
    stored.insert(name.c_str(), QELSimDistributionRef::CreateInt32(set, values.data()));
  }
  // A result array of the library, released once stored. The count is filled
  // by the call that makes the array, so it is taken by reference.
  void Adopt(const std::string& name, int* values, const int& count) {
    Put(name, Ints(values, values + count));
    mem_Free(values);
  }
};

// The solver's answers after one of its setups, under `prefix`.
void SolverAnswers(const fesD_NodalDofDefinition& def, const std::string& prefix,
                   const bool* evenNodes, Answers& out) {
  const int width = def.MaxNodalDof();
  Ints order(def.NumberOfSolverDofs()), mapping(def.NumberOfDofs()), ids(width), back(width);
  for (int i = 0; i < def.NumberOfSolverDofs(); ++i) order[i] = def.SystemDofFromSolverDof(i);
  def.MappingToSolverDofs(mapping.data());
  for (int d = 0; d < width; ++d) {
    ids[d] = def.SolverDofIdFromSystemDofId(d);
    back[d] = def.SystemDofIdFromSolverDofId(d);
  }
  out.Put(prefix + "solver_to_system", order);
  out.Put(prefix + "mapping", mapping);
  out.Put(prefix + "solver_dof_ids", ids);
  out.Put(prefix + "system_dof_ids", back);
  int count = 0;
  out.Adopt(prefix + "solver_dofs_of_even_nodes", def.SolverDofsFromNodes(evenNodes, count), count);
}

int Deck(const std::string& deckFile, const std::string& file) {
  FeDeck deck;
  std::string error;
  if (!ReadFeDeck(deckFile, &deck, &error)) {
    std::fprintf(stderr, "%s\n", error.c_str());
    return 1;
  }
  const int n = static_cast<int>(deck.masks.size());
  msfD_Root root(0);
  msfD_Sim sim = root.createSim(file.c_str(), "deck", 0);
  if (!sim) return 1;
  Answers answers{sim.distributionService().Context(), {}};
  const QELSimContextID context = answers.context;
  QELSimCollectionID nodes = QELSimCollectionRef::Create(context, n);
  QELSimCSetID all = All(nodes, n);
  QELSimDistributionID labels = QELSimDistributionRef::CreateInt32(all, deck.nodeLabels.data());
  QELSimDistributionID masks = QELSimDistributionRef::CreateInt32(all, deck.masks.data());
  msfD_Mesh mesh =
      sim.DiscreteModel(msfD_DiscreteModel::New(nodes, nodes, 0))
          .Mesh(msfD_Mesh::New(nodes, QELSimCollectionRef::Create(context, deck.elements), 0));

  fesD_NodalDofDefinition def(masks, 0, false);
  const int dofs = def.NumberOfDofs(), width = def.MaxNodalDof();
  QELSimCollectionID dofCollection = QELSimCollectionRef::Create(context, dofs);
  fesD_ModalSystemHolder holder = fesD_ModalSystem::New("deck", labels, masks, dofCollection,
                                                        QELSimCollectionRef::Create(context, 1), 0);
  fesD_ModalSystem system = holder.Get();

  Ints node(dofs), dof(dofs), dofLabels(width), flat(static_cast<size_t>(n) * width);
  for (int s = 0; s < dofs; ++s) {
    node[s] = def.NodeDofFromSystemDof(s).node;
    dof[s] = def.NodeDofFromSystemDof(s).dof;
  }
  for (int d = 0; d < width; ++d) dofLabels[d] = def.DofLabel(d);
  std::iota(flat.begin(), flat.end(), 0);
  def.MaxDofToSystemOrdinals(flat.data(), static_cast<int>(flat.size()));
  answers.Put("node_of_dof", node);
  answers.Put("dof_of_dof", dof);
  answers.Put("dof_labels", dofLabels);
  answers.Put("system_ordinals", flat);
  std::unique_ptr<bool[]> even(new bool[static_cast<size_t>(n)]);
  for (int i = 0; i < n; ++i) even[i] = i % 2 == 0;
  int count = 0;
  answers.Adopt("system_dofs_of_even_nodes", def.SystemDofsFromNodes(even.get(), count), count);

  // The node-mask form: each node's highest label left out, nodes in reverse order.
  Ints solverMasks(n), rank(n);
  for (int i = 0; i < n; ++i) {
    unsigned mask = static_cast<unsigned>(deck.masks[i]);
    solverMasks[i] = mask == 0 ? 0 : static_cast<int>(mask & ~(1u << (31 - __builtin_clz(mask))));
    rank[i] = n - i;
  }
  def.SetupSolverDofs(rank.data(), solverMasks.data());
  SolverAnswers(def, "g_", even.get(), answers);
  // The array form: every other system DOF, last first; its permutation is stored.
  Ints solver;
  for (int s = dofs - 1; s >= 0; s -= 2) solver.push_back(s);
  def.SetupSolverDofs(static_cast<int>(solver.size()), solver.data());
  SolverAnswers(def, "e_", even.get(), answers);
  system.SolverDofOrdering(def.WritePermutation(dofCollection));

  int maxLabel = 0;
  answers.Adopt("internal_to_user", fesD_Utilities::InternalToUserNodes(system, count), count);
  int* internal = fesD_Utilities::UserToInternalNodes(system, maxLabel);
  answers.Adopt("user_to_internal", internal, maxLabel + 1);
  system.UserDistributions(answers.stored);
  mesh.systems().add(holder.ReleaseAsFESystem());
  std::printf("%d nodes, %d DOFs\n", n, dofs);
  return 0;
}

int Damage(const std::string& file) {
  const std::string systems = "/sim/discreteModel/mesh/systems/";
  RawWriteDataset(file, systems + "0/#simpleTypeMembers", Bytes{1, 2, 3});
  RawWriteClass(file, systems + "1", "com.trevolo.Unknown");
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  int startups = 0;
  DDB_PDM_Core_initialize(startups);
  int status = 2;
  if (argc == 4 && std::string(argv[1]) == "deck") {
    status = Deck(argv[2], argv[3]);
  } else if (argc == 3 && std::string(argv[1]) == "damage") {
    status = Damage(argv[2]);
  } else {
    std::fprintf(stderr, "usage: python_test_helper deck DECK FILE | damage FILE\n");
  }
  DDB_PDM_Core_finalize(startups);
  return status;
}
