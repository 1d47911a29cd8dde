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

#include <algorithm>
#include <cstdio>
#include <memory>
#include <numeric>
#include <string>
#include <vector>

#include "support/fe_deck.h"
#include "support/h5_raw.h"

namespace {

typedef std::vector<int> Ints;

// The values as a distribution over a new collection of their own size.
QELSimDistributionID Store(QELSimContextID context, const Ints& values) {
  const int n = static_cast<int>(values.size());
  Ints members(values.size());
  std::iota(members.begin(), members.end(), 0);
  QELSimCSetID set = QELSimCollectionRef(QELSimCollectionRef::Create(context, n))
                         .CreateOrderedCSet(members.data(), n);
  return QELSimDistributionRef::CreateInt32(set, values.data());
}

// A result array of the library, and how many entries it has (the count is
// filled by the call that makes the array, so it is read only afterwards).
Ints Adopt(int* values, const int& count) {
  Ints out(values, values + count);
  mem_Free(values);
  return out;
}

// The selection the tests use: every node with an even index.
std::unique_ptr<bool[]> EvenNodes(int nodes) {
  std::unique_ptr<bool[]> even(new bool[static_cast<size_t>(nodes)]);
  for (int i = 0; i < nodes; ++i) even[i] = i % 2 == 0;
  return even;
}

// Every answer of the numbering that the Python tests compare, by name.
void Answers(const fesD_NodalDofDefinition& def, ada_MapString<QELSimDistributionID>& out,
             QELSimContextID context) {
  const int nodes = def.NumberOfNodes(), dofs = def.NumberOfDofs(), width = def.MaxNodalDof();
  Ints node(dofs), dof(dofs), labels(width), flat(static_cast<size_t>(nodes) * width);
  for (int s = 0; s < dofs; ++s) {
    node[s] = def.NodeDofFromSystemDof(s).node;
    dof[s] = def.NodeDofFromSystemDof(s).dof;
  }
  for (int d = 0; d < width; ++d) labels[d] = def.DofLabel(d);
  std::iota(flat.begin(), flat.end(), 0);
  def.MaxDofToSystemOrdinals(flat.data(), static_cast<int>(flat.size()));
  std::unique_ptr<bool[]> even = EvenNodes(nodes);
  int count = 0;
  Ints evenDofs = Adopt(def.SystemDofsFromNodes(even.get(), count), count);
  out.insert("node_of_dof", Store(context, node));
  out.insert("dof_of_dof", Store(context, dof));
  out.insert("dof_labels", Store(context, labels));
  out.insert("system_ordinals", Store(context, flat));
  out.insert("system_dofs_of_even_nodes", Store(context, evenDofs));
}

// The solver's answers after one of its setups, under `prefix`.
void SolverAnswers(const fesD_NodalDofDefinition& def, const std::string& prefix,
                   ada_MapString<QELSimDistributionID>& out, QELSimContextID context) {
  const int dofs = def.NumberOfDofs(), width = def.MaxNodalDof();
  Ints order(def.NumberOfSolverDofs()), mapping(dofs), ids(width), back(width);
  for (int i = 0; i < def.NumberOfSolverDofs(); ++i) order[i] = def.SystemDofFromSolverDof(i);
  def.MappingToSolverDofs(mapping.data());
  for (int d = 0; d < width; ++d) {
    ids[d] = def.SolverDofIdFromSystemDofId(d);
    back[d] = def.SystemDofIdFromSolverDofId(d);
  }
  std::unique_ptr<bool[]> even = EvenNodes(def.NumberOfNodes());
  int count = 0;
  Ints evenSolver = Adopt(def.SolverDofsFromNodes(even.get(), count), count);
  out.insert((prefix + "solver_to_system").c_str(), Store(context, order));
  out.insert((prefix + "mapping").c_str(), Store(context, mapping));
  out.insert((prefix + "solver_dof_ids").c_str(), Store(context, ids));
  out.insert((prefix + "system_dof_ids").c_str(), Store(context, back));
  out.insert((prefix + "solver_dofs_of_even_nodes").c_str(), Store(context, evenSolver));
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
  QELSimContextID context = sim.distributionService().Context();
  QELSimCollectionID nodes = QELSimCollectionRef::Create(context, n);
  Ints order(n);
  std::iota(order.begin(), order.end(), 0);
  QELSimCSetID all = QELSimCollectionRef(nodes).CreateOrderedCSet(order.data(), n);
  QELSimDistributionID labels = QELSimDistributionRef::CreateInt32(all, deck.nodeLabels.data());
  QELSimDistributionID masks = QELSimDistributionRef::CreateInt32(all, deck.masks.data());
  msfD_DiscreteModel model = sim.DiscreteModel(msfD_DiscreteModel::New(nodes, nodes, 0));
  msfD_Mesh mesh =
      model.Mesh(msfD_Mesh::New(nodes, QELSimCollectionRef::Create(context, deck.elements), 0));

  fesD_NodalDofDefinition def(masks, 0, false);
  QELSimCollectionID dofs = QELSimCollectionRef::Create(context, def.NumberOfDofs());
  fesD_ModalSystemHolder holder = fesD_ModalSystem::New("deck", labels, masks, dofs,
                                                        QELSimCollectionRef::Create(context, 1), 0);
  fesD_ModalSystem system = holder.Get();
  ada_MapString<QELSimDistributionID> answers;
  Answers(def, answers, context);

  // The node-mask form: each node's highest label left out, nodes in reverse order.
  Ints solverMasks(n), rank(n);
  for (int i = 0; i < n; ++i) {
    unsigned mask = static_cast<unsigned>(deck.masks[i]);
    solverMasks[i] = mask == 0 ? 0 : static_cast<int>(mask & ~(1u << (31 - __builtin_clz(mask))));
    rank[i] = n - i;
  }
  def.SetupSolverDofs(rank.data(), solverMasks.data());
  SolverAnswers(def, "g_", answers, context);
  // The array form: every other system DOF, last first; its permutation is stored.
  Ints solver;
  for (int s = def.NumberOfDofs() - 1; s >= 0; s -= 2) solver.push_back(s);
  def.SetupSolverDofs(static_cast<int>(solver.size()), solver.data());
  SolverAnswers(def, "e_", answers, context);
  system.SolverDofOrdering(def.WritePermutation(dofs));

  int count = 0, maxLabel = 0;
  fesD_FESystem base = system;
  int* user = fesD_Utilities::InternalToUserNodes(base, count);
  answers.insert("internal_to_user", Store(context, Adopt(user, count)));
  int* internal = fesD_Utilities::UserToInternalNodes(base, maxLabel);
  Ints inverse = Adopt(internal, maxLabel + 1);
  answers.insert("user_to_internal", Store(context, inverse));
  system.UserDistributions(answers);
  mesh.systems().add(holder.ReleaseAsFESystem());
  std::printf("%d nodes, %d DOFs\n", n, def.NumberOfDofs());
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
