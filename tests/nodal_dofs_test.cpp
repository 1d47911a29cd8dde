// The nodal DOF numbering on small hand-checked meshes, and the ways it
// stops the process on inconsistent input.
#include <gtest/gtest.h>

#include <initializer_list>
#include <vector>

#include "fes/dpa/impl/fesD_NodalDofDefinition.h"
#include "platform/mem.h"

namespace {

// A mask array from the suite allocator, as the adopting constructor wants.
int* Masks(std::initializer_list<int> values) {
  int* masks = static_cast<int*>(mem_OperatorNewThrowBuiltin(mem_ArraySize(values.size(), 4)));
  int i = 0;
  for (int v : values) masks[i++] = v;
  return masks;
}

std::vector<int> Mapping(const fesD_NodalDofDefinition& def) {
  std::vector<int> out(def.NumberOfDofs());
  def.MappingToSolverDofs(out.data());
  return out;
}

std::vector<int> SolverOrder(const fesD_NodalDofDefinition& def) {
  std::vector<int> order;
  for (int i = 0; i < def.NumberOfDofs(); ++i) order.push_back(def.SystemDofFromSolverDof(i));
  return order;
}

using Ints = std::vector<int>;

// SolverDofIdFromSystemDofId then SystemDofIdFromSolverDofId, for every DOF id.
Ints SolverDofIdMaps(const fesD_NodalDofDefinition& def) {
  Ints maps;
  for (int d = 0; d < def.MaxNodalDof(); ++d) maps.push_back(def.SolverDofIdFromSystemDofId(d));
  for (int d = 0; d < def.MaxNodalDof(); ++d) maps.push_back(def.SystemDofIdFromSolverDofId(d));
  return maps;
}

// Node 0 carries labels 1, 2; node 1 labels 1, 3.
TEST(NodalDofs, TwoNodesWithDifferentLabels) {
  fesD_NodalDofDefinition def(Masks({0b011, 0b101}), 2, 0, false);
  EXPECT_EQ(def.NumberOfNodes(), 2);
  EXPECT_EQ(def.MaxNodalDof(), 3);
  EXPECT_EQ(def.NumberOfDofs(), 4);
  EXPECT_EQ(def.SystemDofId(1), 0);
  EXPECT_EQ(def.SystemDofId(2), 1);
  EXPECT_EQ(def.SystemDofId(3), 2);
  EXPECT_EQ(def.DofLabel(2), 3);

  // System DOFs (node, label): (0,1), (0,2), (1,1), (1,3); codes 128, 129, 256, 258.
  const int nodes[] = {0, 0, 1, 1}, labels[] = {1, 2, 1, 3};
  for (int s = 0; s < 4; ++s) {
    fesD_NodeDof nd = def.NodeDofFromSystemDof(s);
    EXPECT_EQ(nd.node, nodes[s]) << s;
    EXPECT_EQ(def.DofLabel(nd.dof), labels[s]) << s;
    EXPECT_EQ(def.SystemOrdinal(nd.node, nd.dof), s);
  }
  EXPECT_EQ(def.NodeDofFromSystemDof(3).dof, 2);
  EXPECT_EQ(def.SystemOrdinal(1, 1), -1);

  int count = -1;
  const int* ids = def.NodalDofIds(1, count);
  ASSERT_EQ(count, 2);
  EXPECT_EQ(Ints(ids, ids + count), Ints({0, 2}));

  int flat[] = {0, 1, 2, 3, 4, 5};
  def.MaxDofToSystemOrdinals(flat, 6);
  EXPECT_EQ(Ints(flat, flat + 6), Ints({0, 1, -1, 2, -1, 3}));

  bool second[] = {false, true};
  int* dofs = def.SystemDofsFromNodes(second, count);
  EXPECT_EQ(Ints(dofs, dofs + count), Ints({2, 3}));
  mem_Free(dofs);
}

TEST(NodalDofs, SingleLabelGetsDofIdZero) {
  fesD_NodalDofDefinition def(Masks({0b1000, 0b1000}), 2, 0, false);
  EXPECT_EQ(def.MaxNodalDof(), 1);
  EXPECT_EQ(def.NumberOfDofs(), 2);
  EXPECT_EQ(def.SystemDofId(4), 0);
  EXPECT_EQ(def.DofLabel(0), 4);
  EXPECT_EQ(def.NodeDofFromSystemDof(1).node, 1);
}

TEST(NodalDofs, MaskPreparation) {
  struct Case {
    int mask, shift;
    bool label10;
    int prepared;
  } cases[] = {
      {0x80, 0, true, 0x280},              // acoustic label 8 brings label 10
      {0x80, 0, false, 0x80},              //
      {0x3, 16, false, 0x30003},           // labels 1, 2 bring 17, 18
      {0x3, 48, false, 0x30003},           // the shift counts modulo 32
      {0x3, 32, false, 0x3},               //
      {0x80, 1, true, 0x780},              // label 10 is added before the shift
      {0x40000001, 2, false, 0x40000005},  // label 31 + 2 falls off the word
      {0x2, -1, false, 0x2},               // -1 is 31 modulo 32: label 33 is lost
      {0x1, -31, false, 0x3},              // -31 is 1 modulo 32
  };
  for (const Case& c : cases) {
    fesD_NodalDofDefinition def(Masks({c.mask}), 1, c.shift, c.label10);
    EXPECT_EQ(def.ActivityMasks()[0], c.prepared) << c.mask << " << " << c.shift;
  }
}

TEST(NodalDofs, NoNodes) {
  fesD_NodalDofDefinition def(nullptr, 0, 0, false);
  EXPECT_EQ(def.NumberOfDofs(), 0);
  EXPECT_EQ(def.MaxNodalDof(), 0);
  def.SetupSolverDofs(0, nullptr);
  EXPECT_EQ(def.NumberOfSolverDofs(), 0);
  def.SetupSolverDofs(nullptr, nullptr);
  EXPECT_EQ(def.NumberOfSolverDofs(), 0);
  int count = -1;
  int* dofs = def.SolverDofsFromNodes(nullptr, count);
  EXPECT_EQ(count, 0);
  EXPECT_NE(dofs, nullptr);
  mem_Free(dofs);
}

TEST(NodalDofs, ZeroMaskNodeHasNoDofs) {
  fesD_NodalDofDefinition def(Masks({0b11, 0, 0b10}), 3, 0, false);
  EXPECT_EQ(def.NumberOfDofs(), 3);
  EXPECT_EQ(def.SystemOrdinal(1, 0), -1);
  EXPECT_EQ(def.SystemOrdinal(1, 1), -1);
  EXPECT_EQ(def.SystemOrdinal(2, 1), 2);
  int count = -1;
  const int* first = def.NodalDofIds(0, count);
  EXPECT_EQ(count, 2);
  const int* empty = def.NodalDofIds(1, count);
  EXPECT_EQ(count, 0);
  EXPECT_EQ(empty, first);  // the object's buffer either way
}

TEST(NodalDofs, SolverOrderingFromArray) {
  fesD_NodalDofDefinition def(Masks({0b011, 0b101}), 2, 0, false);
  const int order[] = {3, 0};
  def.SetupSolverDofs(2, order);
  EXPECT_EQ(def.NumberOfSolverDofs(), 2);
  EXPECT_EQ(SolverOrder(def), Ints({3, 0, 1, 2}));
  EXPECT_EQ(Mapping(def), Ints({1, 2, 3, 0}));
  EXPECT_EQ(def.NodeDofFromSolverDof(0).node, 1);
  EXPECT_EQ(def.NodeDofFromSolverDof(0).dof, 2);
  // Labels 3 and 1 are used: DOF ids 0 and 2.
  EXPECT_EQ(SolverDofIdMaps(def), Ints({0, -1, 1, 0, 2, -1}));

  int values[] = {0, 3, 2};
  def.MapToSolverDofs(values, 3);
  EXPECT_EQ(Ints(values, values + 3), Ints({1, 0, 3}));
  bool both[] = {true, true}, second[] = {false, true};
  int count = -1;
  int* positions = def.SolverDofsFromNodes(second, count);
  EXPECT_EQ(Ints(positions, positions + count), Ints({0, 3}));
  mem_Free(positions);
  positions = def.SolverDofsFromNodes(both, count);
  EXPECT_EQ(Ints(positions, positions + count), Ints({0, 1, 2, 3}));
  mem_Free(positions);

  // Null keeps the system order for the solver's part.
  def.SetupSolverDofs(3, nullptr);
  EXPECT_EQ(SolverOrder(def), Ints({0, 1, 2, 3}));
  EXPECT_EQ(def.NumberOfSolverDofs(), 3);
  EXPECT_EQ(SolverDofIdMaps(def), Ints({0, 1, -1, 0, 1, -1}));  // labels 1 and 2 only
}

TEST(NodalDofs, SolverOrderingFromNodeMasks) {
  fesD_NodalDofDefinition def(Masks({0b011, 0b101}), 2, 0, false);
  const int rank[] = {2, 1}, solverMasks[] = {0b001, 0b101};
  def.SetupSolverDofs(rank, solverMasks);
  EXPECT_EQ(def.NumberOfSolverDofs(), 3);
  EXPECT_EQ(SolverOrder(def), Ints({2, 3, 0, 1}));
  EXPECT_EQ(Mapping(def), Ints({2, 3, 0, 1}));
  EXPECT_EQ(SolverDofIdMaps(def), Ints({0, -1, 1, 0, 2, -1}));

  // Without ranks the nodes come in index order.
  def.SetupSolverDofs(nullptr, solverMasks);
  EXPECT_EQ(SolverOrder(def), Ints({0, 2, 3, 1}));
}

TEST(NodalDofs, AcousticCountOnlyFromTheArrayForm) {
  // Labels 1 and 8 at node 0, 8 at node 1: system DOFs 0 (1), 1 (8), 2 (8).
  fesD_NodalDofDefinition fresh(Masks({0x81, 0x80}), 2, 0, false);
  const int solverMasks[] = {0x81, 0x80};
  fresh.SetupSolverDofs(nullptr, solverMasks);
  EXPECT_EQ(fresh.NumberOfSolverDofs(), 3);
  EXPECT_EQ(fresh.NumberOfSolverAcousticDofs(), 0);

  fesD_NodalDofDefinition def(Masks({0x81, 0x80}), 2, 0, false);
  const int order[] = {2, 0};
  def.SetupSolverDofs(2, order);
  EXPECT_EQ(def.NumberOfSolverAcousticDofs(), 1);
  def.SetupSolverDofs(3, nullptr);
  EXPECT_EQ(def.NumberOfSolverAcousticDofs(), 2);
  const int onlyStructural[] = {0x1, 0x0};
  def.SetupSolverDofs(nullptr, onlyStructural);
  EXPECT_EQ(def.NumberOfSolverDofs(), 1);
  EXPECT_EQ(def.NumberOfSolverAcousticDofs(), 2);  // kept from the array form
}

TEST(NodalDofs, RepeatedSetupsReleaseSupersededTables) {
  int* masks = Masks({0b011, 0b101, 0b111});
  mem_Statistics before = mem_GetStatistics();
  {
    fesD_NodalDofDefinition def(masks, 3, 0, false);
    const int solverMasks[] = {0b001, 0b100, 0b010};
    for (int round = 0; round < 3; ++round) {
      def.SetupSolverDofs(4, nullptr);
      def.SetupSolverDofs(nullptr, solverMasks);
    }
  }
  mem_Statistics after = mem_GetStatistics();
  // Everything allocated since, and the adopted mask array, went back.
  EXPECT_EQ(after.frees - before.frees, after.allocations - before.allocations + 1);
}

TEST(NodalDofsDeathTest, SolverQueriesBeforeSetupStop) {
  fesD_NodalDofDefinition def(Masks({0b1}), 1, 0, false);
  const char* kAssert = "Assertion failed: m_solverToSystemId\n";
  int out[1] = {0};
  bool selected[1] = {true};
  int count = 0;
  EXPECT_DEATH(def.NumberOfSolverDofs(), kAssert);
  EXPECT_DEATH(def.NumberOfSolverAcousticDofs(), kAssert);
  EXPECT_DEATH(def.SystemDofFromSolverDof(0), kAssert);
  EXPECT_DEATH(def.NodeDofFromSolverDof(0), kAssert);
  EXPECT_DEATH(def.SolverDofIdFromSystemDofId(0), kAssert);
  EXPECT_DEATH(def.SystemDofIdFromSolverDofId(0), kAssert);
  EXPECT_DEATH(def.MappingToSolverDofs(out), kAssert);
  EXPECT_DEATH(def.MapToSolverDofs(out, 1), kAssert);
  EXPECT_DEATH(def.SolverDofsFromNodes(selected, count), kAssert);
}

TEST(NodalDofsDeathTest, ArrayFormRejectsOrderingsThatAreNoPermutation) {
  fesD_NodalDofDefinition def(Masks({0b011, 0b101}), 2, 0, false);
  const char* kCount = "THE SOLVER AND FE MESH HAVE AN INCONSISTENT NUMBER OF DOFS\\.\n";
  const char* kNotActive = "ATTEMPTED TO SET SOLVER DOF THAT IS NOT AN ACTIVE MESH DOF\\.\n";
  const int duplicate[] = {1, 1}, beyond[] = {0, 4}, negative[] = {-1}, huge[] = {1 << 30};
  EXPECT_DEATH(def.SetupSolverDofs(2, duplicate), kCount);
  EXPECT_DEATH(def.SetupSolverDofs(2, beyond), kNotActive);
  EXPECT_DEATH(def.SetupSolverDofs(1, negative), kNotActive);
  EXPECT_DEATH(def.SetupSolverDofs(1, huge), kNotActive);
  EXPECT_DEATH(def.SetupSolverDofs(5, nullptr), kCount);  // more than there are
  EXPECT_DEATH(def.SetupSolverDofs(-1, nullptr), kCount);
}

TEST(NodalDofsDeathTest, NodeMaskFormRejectsLabelsTheNodeLacks) {
  fesD_NodalDofDefinition def(Masks({0b011, 0b101}), 2, 0, false);
  // Label 2 exists at node 0 only.
  const int lacking[] = {0b001, 0b010};
  EXPECT_DEATH(def.SetupSolverDofs(nullptr, lacking),
               "ATTEMPTED TO ACTIVATE AN INVALID NODAL DOF\\.\nSOLVER/MESH DOF MASK: 2 / 5\n");
  // Label 4 exists nowhere; label 32 never.
  const int unknown[] = {0b1000, 0}, sign[] = {0, -2147483647 - 1};
  EXPECT_DEATH(def.SetupSolverDofs(nullptr, unknown),
               "ATTEMPTED TO ACTIVATE AN INVALID NODAL DOF\\.\nSOLVER/MESH DOF MASK: 8 / 3\n");
  EXPECT_DEATH(def.SetupSolverDofs(nullptr, sign),
               "ATTEMPTED TO ACTIVATE AN INVALID NODAL DOF\\.\n"
               "SOLVER/MESH DOF MASK: -2147483648 / 5\n");
}

TEST(NodalDofsDeathTest, NodeMaskFormRejectsRanksThatAreNoPermutation) {
  fesD_NodalDofDefinition def(Masks({0b1, 0b1, 0b1}), 3, 0, false);
  const int solverMasks[] = {1, 1, 1};
  const int repeated[] = {1, 3, 1}, zero[] = {1, 0, 2}, beyond[] = {1, 2, 4};
  EXPECT_DEATH(def.SetupSolverDofs(repeated, solverMasks),
               "INVALID NODE RANK IN THE SOLVER NODE ORDER\\.\nNODE / RANK: 2 / 1\n");
  EXPECT_DEATH(def.SetupSolverDofs(zero, solverMasks),
               "INVALID NODE RANK IN THE SOLVER NODE ORDER\\.\nNODE / RANK: 1 / 0\n");
  EXPECT_DEATH(def.SetupSolverDofs(beyond, solverMasks),
               "INVALID NODE RANK IN THE SOLVER NODE ORDER\\.\nNODE / RANK: 2 / 4\n");
}

TEST(NodalDofsDeathTest, ConstructionRejectsLabel32AndBadNodeCounts) {
  EXPECT_DEATH(fesD_NodalDofDefinition(Masks({0b1, 0, -2147483647}), 3, 0, false),
               "NODAL DOF MASK WITH LABEL 32 SET\\.\nNODE / MASK: 2 / -2147483647\n");
  // Label 31 shifted by one lands on label 32.
  EXPECT_DEATH(fesD_NodalDofDefinition(Masks({0x40000000}), 1, 1, false),
               "NODAL DOF MASK WITH LABEL 32 SET\\.\nNODE / MASK: 0 / -1073741824\n");
  EXPECT_DEATH(fesD_NodalDofDefinition(Masks({0x40000000}), 1, -31, false),
               "NODAL DOF MASK WITH LABEL 32 SET\\.\nNODE / MASK: 0 / -1073741824\n");
  EXPECT_DEATH(fesD_NodalDofDefinition(nullptr, -1, 0, false),
               "NODE COUNT OUTSIDE THE RANGE OF THE NODAL DOF NUMBERING\\.\n"
               "NODES / LIMIT: -1 / 16777215\n");
  // Refused before the masks are read, so a short array does not matter here.
  EXPECT_DEATH(fesD_NodalDofDefinition(nullptr, 16777216, 0, false),
               "NODE COUNT OUTSIDE THE RANGE OF THE NODAL DOF NUMBERING\\.\n"
               "NODES / LIMIT: 16777216 / 16777215\n");
}

}  // namespace
