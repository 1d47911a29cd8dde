// The nodal DOF numbering's edge cases (mask preparation, no nodes, table
// reuse), the ways it stops the process on inconsistent input, and the
// numbering on a real database file: masks read from an int32 distribution,
// a solver ordering read from an ordered set and written back as one. The
// numbering itself is checked against a reference in
// nodal_dofs_reference_test.cpp.
#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "fes/dpa/impl/fesD_NodalDofDefinition.h"
#include "platform/core/mem.h"
#include "platform/service/QELSimService.h"
#include "support/scratch_dir.h"

namespace {

using Ints = std::vector<int>;

// A mask array from the suite allocator, as the adopting constructor wants.
int* Masks(const Ints& values) {
  int* masks = static_cast<int*>(mem_OperatorNewThrowBuiltin(mem_ArraySize(values.size(), 4)));
  std::copy(values.begin(), values.end(), masks);
  return masks;
}

Ints SolverOrder(const fesD_NodalDofDefinition& def) {
  Ints order;
  for (int i = 0; i < def.NumberOfDofs(); ++i) order.push_back(def.SystemDofFromSolverDof(i));
  return order;
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

// A database file holding the masks of a mesh as the FE system keeps them:
// a node collection, the node order as an ordered set, one int32 per node.
class MaskDatabase : public ::testing::Test {
 protected:
  void SetUp() override {
    m_file = m_dir.File("masks.h5");
    m_context = QELSimManager::CreateContext(m_file.c_str(), hdf_File::Exclusive, 0, false, 0);
    ASSERT_NE(m_context.Number(), -1);
  }
  void TearDown() override { QELSimManager::CloseContext(m_context); }

  QELSimDistributionID StoreMasks(const Ints& masks) {
    const int n = static_cast<int>(masks.size());
    QELSimCollectionRef nodes(QELSimCollectionRef::Create(m_context, n));
    Ints order(n);
    std::iota(order.begin(), order.end(), 0);
    return QELSimDistributionRef::CreateInt32(nodes.CreateOrderedCSet(order.data(), n),
                                              masks.data());
  }
  // An ordered set of `members` of a new collection of `size` DOFs.
  QELSimCSetID StoreOrdering(int size, const Ints& members) {
    QELSimCollectionRef dofs(QELSimCollectionRef::Create(m_context, size));
    return dofs.CreateOrderedCSet(members.data(), static_cast<int>(members.size()));
  }
  static Ints Members(QELSimCSetID id) {
    QELSimCSet set(id);
    Ints members(set.Size());
    set.OrderedMembers(members.data());
    return members;
  }

  ScratchDir m_dir;
  std::string m_file;
  QELSimContextID m_context;
};

// Both constructors, and every setup form, on a mesh without nodes.
TEST_F(MaskDatabase, NoNodes) {
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

  fesD_NodalDofDefinition stored(StoreMasks({}), 0, false);
  EXPECT_EQ(stored.NumberOfNodes(), 0);
  EXPECT_EQ(stored.NumberOfDofs(), 0);
  stored.SetupSolverDofs(StoreOrdering(0, {}));
  EXPECT_EQ(stored.NumberOfSolverDofs(), 0);
}

TEST_F(MaskDatabase, MasksFromADistribution) {
  QELSimDistributionID masks = StoreMasks({0b011, 0b101});
  fesD_NodalDofDefinition def(masks, 0, false);
  EXPECT_EQ(def.NumberOfNodes(), 2);
  EXPECT_EQ(def.MaxNodalDof(), 3);
  EXPECT_EQ(def.NumberOfDofs(), 4);
  EXPECT_EQ(def.SystemOrdinal(1, 1), -1);
  EXPECT_EQ(def.NodeDofFromSystemDof(3).node, 1);
  EXPECT_EQ(def.NodeDofFromSystemDof(3).dof, 2);

  // The stored masks are prepared on reading, not changed in the file.
  fesD_NodalDofDefinition acoustic(StoreMasks({0x80, 0x3}), 16, true);
  EXPECT_EQ(Ints(acoustic.ActivityMasks(), acoustic.ActivityMasks() + 2),
            Ints({0x2800280, 0x30003}));
  fesD_NodalDofDefinition again(masks, 0, false);
  EXPECT_EQ(Ints(again.ActivityMasks(), again.ActivityMasks() + 2), Ints({0b011, 0b101}));
}

TEST_F(MaskDatabase, OrderingFromAnOrderedSetAndWrittenBack) {
  fesD_NodalDofDefinition def(StoreMasks({0b011, 0b101}), 0, false);
  def.SetupSolverDofs(StoreOrdering(4, {3, 0}));
  EXPECT_EQ(def.NumberOfSolverDofs(), 2);
  EXPECT_EQ(SolverOrder(def), Ints({3, 0, 1, 2}));

  // Only the solver's part is written, in solver order.
  QELSimCSetID written =
      def.WritePermutation(QELSimCollectionRef::Create(m_context, def.NumberOfDofs()));
  EXPECT_EQ(Members(written), Ints({3, 0}));
  QELSimManager::CloseContext(m_context);
  m_context = QELSimManager::OpenContext(m_file.c_str(), hdf_File::ReadWrite, 0, false, 0);
  ASSERT_NE(m_context.Number(), -1);
  // Identifiers are stored without their context; they come back in the new one.
  const QELSimCSetID reopened(m_context.Number(), written.CollectionMinor(), written.CSetMinor());
  EXPECT_EQ(Members(reopened), Ints({3, 0}));

  // Read back, the set gives the same ordering.
  fesD_NodalDofDefinition reread(StoreMasks({0b011, 0b101}), 0, false);
  reread.SetupSolverDofs(reopened);
  EXPECT_EQ(SolverOrder(reread), Ints({3, 0, 1, 2}));
}

// The ordered-set form is the array form with the set's members.
TEST_F(MaskDatabase, OrderedSetFormMatchesArrayForm) {
  std::mt19937 rng(11);
  Ints masks(500);
  for (int& m : masks) m = static_cast<int>(rng() & 0x80BF);  // labels 1-6, 8 and 16
  fesD_NodalDofDefinition fromSet(StoreMasks(masks), 0, true);
  fesD_NodalDofDefinition fromArray(Masks(masks), static_cast<int>(masks.size()), 0, true);
  ASSERT_EQ(fromSet.NumberOfDofs(), fromArray.NumberOfDofs());

  Ints ordering(fromSet.NumberOfDofs());
  std::iota(ordering.begin(), ordering.end(), 0);
  std::shuffle(ordering.begin(), ordering.end(), rng);
  ordering.resize(ordering.size() * 2 / 3);
  fromSet.SetupSolverDofs(StoreOrdering(fromSet.NumberOfDofs(), ordering));
  fromArray.SetupSolverDofs(static_cast<int>(ordering.size()), ordering.data());
  EXPECT_EQ(SolverOrder(fromSet), SolverOrder(fromArray));
  EXPECT_EQ(fromSet.NumberOfSolverAcousticDofs(), fromArray.NumberOfSolverAcousticDofs());
  EXPECT_GT(fromSet.NumberOfSolverAcousticDofs(), 0);
  for (int d = 0; d < fromSet.MaxNodalDof(); ++d) {
    EXPECT_EQ(fromSet.SolverDofIdFromSystemDofId(d), fromArray.SolverDofIdFromSystemDofId(d));
  }

  QELSimCSetID written =
      fromSet.WritePermutation(QELSimCollectionRef::Create(m_context, fromSet.NumberOfDofs()));
  EXPECT_EQ(Members(written), ordering);
}

// The C runtime's own report: "<program>: <file>:<line>: <function>: Assertion `...' failed."
const std::string kFailed = "nodal_dofs_test: [^\n]*/fes/dpa/impl/fesD_NodalDofDefinition\\.";
const char* kCount = "THE SOLVER AND FE MESH HAVE AN INCONSISTENT NUMBER OF DOFS\\.\n";
const char* kNotActive = "ATTEMPTED TO SET SOLVER DOF THAT IS NOT AN ACTIVE MESH DOF\\.\n";

TEST(NodalDofsDeathTest, SolverQueriesBeforeSetupStop) {
  fesD_NodalDofDefinition def(Masks({0b1}), 1, 0, false);
  const std::string kAssert = "^" + kFailed +
                              "h:[0-9]+: void fesD_NodalDofDefinition::RequireSolverDofs\\(\\) "
                              "const: Assertion `m_solverToSystemId' failed\\.\n";
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
  // Label 2 exists at node 0 only; label 4 exists nowhere; label 32 never.
  const int lacking[] = {0b001, 0b010}, unknown[] = {0b1000, 0}, sign[] = {0, -2147483647 - 1};
  const std::string kInvalid =
      "ATTEMPTED TO ACTIVATE AN INVALID NODAL DOF\\.\nSOLVER/MESH DOF MASK: ";
  EXPECT_DEATH(def.SetupSolverDofs(nullptr, lacking), kInvalid + "2 / 5\n");
  EXPECT_DEATH(def.SetupSolverDofs(nullptr, unknown), kInvalid + "8 / 3\n");
  EXPECT_DEATH(def.SetupSolverDofs(nullptr, sign), kInvalid + "-2147483648 / 5\n");
}

TEST(NodalDofsDeathTest, NodeMaskFormRejectsRanksThatAreNoPermutation) {
  fesD_NodalDofDefinition def(Masks({0b1, 0b1, 0b1}), 3, 0, false);
  const int solverMasks[] = {1, 1, 1};
  const int repeated[] = {1, 3, 1}, zero[] = {1, 0, 2}, beyond[] = {1, 2, 4};
  const std::string kRank = "INVALID NODE RANK IN THE SOLVER NODE ORDER\\.\nNODE / RANK: ";
  EXPECT_DEATH(def.SetupSolverDofs(repeated, solverMasks), kRank + "2 / 1\n");
  EXPECT_DEATH(def.SetupSolverDofs(zero, solverMasks), kRank + "1 / 0\n");
  EXPECT_DEATH(def.SetupSolverDofs(beyond, solverMasks), kRank + "2 / 4\n");
}

TEST(NodalDofsDeathTest, ConstructionRejectsLabel32AndBadNodeCounts) {
  const std::string kLabel32 = "NODAL DOF MASK WITH LABEL 32 SET\\.\nNODE / MASK: ";
  EXPECT_DEATH(fesD_NodalDofDefinition(Masks({0b1, 0, -2147483647}), 3, 0, false),
               kLabel32 + "2 / -2147483647\n");
  // Label 31 shifted by one lands on label 32.
  EXPECT_DEATH(fesD_NodalDofDefinition(Masks({0x40000000}), 1, 1, false),
               kLabel32 + "0 / -1073741824\n");
  EXPECT_DEATH(fesD_NodalDofDefinition(Masks({0x40000000}), 1, -31, false),
               kLabel32 + "0 / -1073741824\n");
  // Refused before the masks are read, so a short array does not matter here.
  const std::string kNodes =
      "NODE COUNT OUTSIDE THE RANGE OF THE NODAL DOF NUMBERING\\.\nNODES / LIMIT: ";
  EXPECT_DEATH(fesD_NodalDofDefinition(nullptr, -1, 0, false), kNodes + "-1 / 16777215\n");
  EXPECT_DEATH(fesD_NodalDofDefinition(nullptr, 16777216, 0, false),
               kNodes + "16777216 / 16777215\n");
}

using MaskDatabaseDeathTest = MaskDatabase;

TEST_F(MaskDatabaseDeathTest, DistributionMustHaveOneDrawer) {
  // The null identifier names no distribution: the service reports it and
  // counts no drawers.
  EXPECT_DEATH(fesD_NodalDofDefinition(QELSimDistributionID(), 0, false),
               "\\*\\*ERROR QELSimDistributionRef::NumDrawers: null distribution identifier\n" +
                   kFailed +
                   "cpp:[0-9]+: fesD_NodalDofDefinition::fesD_NodalDofDefinition\\("
                   "QELSimDistributionID, int, bool\\): Assertion "
                   "`distribution\\.NumDrawers\\(\\) == 1' failed\\.\n");
}

TEST_F(MaskDatabaseDeathTest, OrderingNamingDofsTheMeshLacks) {
  fesD_NodalDofDefinition def(StoreMasks({0b011, 0b101}), 0, false);
  QELSimCSetID beyond = StoreOrdering(10, {1, 7});
  EXPECT_DEATH(def.SetupSolverDofs(beyond), kNotActive);
}

TEST_F(MaskDatabaseDeathTest, WritePermutationNeedsAnOrdering) {
  fesD_NodalDofDefinition def(StoreMasks({0b1}), 0, false);
  QELSimCollectionID dofs = QELSimCollectionRef::Create(m_context, 1);
  EXPECT_DEATH(def.WritePermutation(dofs), ": Assertion `m_solverToSystemId' failed\\.\n");
}

}  // namespace
