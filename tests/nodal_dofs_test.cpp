// The nodal DOF numbering's edge cases (mask preparation, no nodes, table
// reuse) and the ways it stops the process on inconsistent input. The
// numbering itself is checked against a reference in
// nodal_dofs_reference_test.cpp.
#include <gtest/gtest.h>

#include <initializer_list>

#include "fes/dpa/impl/fesD_NodalDofDefinition.h"
#include "platform/core/mem.h"

namespace {

// A mask array from the suite allocator, as the adopting constructor wants.
int* Masks(std::initializer_list<int> values) {
  int* masks = static_cast<int*>(mem_OperatorNewThrowBuiltin(mem_ArraySize(values.size(), 4)));
  int i = 0;
  for (int v : values) masks[i++] = v;
  return masks;
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
  // The C runtime's own report: "<program>: <file>:<line>: <function>: Assertion `...' failed."
  const char* kAssert =
      "^nodal_dofs_test: [^\n]*/fes/dpa/impl/fesD_NodalDofDefinition\\.h:[0-9]+: void "
      "fesD_NodalDofDefinition::RequireSolverDofs\\(\\) const: "
      "Assertion `m_solverToSystemId' failed\\.\n";
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
