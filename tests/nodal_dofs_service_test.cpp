// The nodal DOF numbering on a real database file: masks read from an int32
// distribution, a solver ordering read from an ordered set, and the solver
// ordering written back as an ordered set that survives reopening.
#include <gtest/gtest.h>

#include <numeric>
#include <random>
#include <vector>

#include "fes/dpa/impl/fesD_NodalDofDefinition.h"
#include "platform/service/QELSimService.h"
#include "platform/core/mem.h"
#include "support/scratch_dir.h"

namespace {

using Ints = std::vector<int>;

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
  void Reopen() {
    QELSimManager::CloseContext(m_context);
    m_context = QELSimManager::OpenContext(m_file.c_str(), hdf_File::ReadWrite, 0, false, 0);
    ASSERT_NE(m_context.Number(), -1);
  }

  ScratchDir m_dir;
  std::string m_file;
  QELSimContextID m_context;
};

Ints SolverOrder(const fesD_NodalDofDefinition& def) {
  Ints order;
  for (int i = 0; i < def.NumberOfDofs(); ++i) order.push_back(def.SystemDofFromSolverDof(i));
  return order;
}

Ints Members(QELSimCSetID id) {
  QELSimCSet set(id);
  Ints members(set.Size());
  set.OrderedMembers(members.data());
  return members;
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

TEST_F(MaskDatabase, NoNodes) {
  fesD_NodalDofDefinition def(StoreMasks({}), 0, false);
  EXPECT_EQ(def.NumberOfNodes(), 0);
  EXPECT_EQ(def.NumberOfDofs(), 0);
  def.SetupSolverDofs(StoreOrdering(0, {}));
  EXPECT_EQ(def.NumberOfSolverDofs(), 0);
}

TEST_F(MaskDatabase, OrderingFromAnOrderedSetAndWrittenBack) {
  fesD_NodalDofDefinition def(StoreMasks({0b011, 0b101}), 0, false);
  def.SetupSolverDofs(StoreOrdering(4, {3, 0}));
  EXPECT_EQ(def.NumberOfSolverDofs(), 2);
  EXPECT_EQ(SolverOrder(def), Ints({3, 0, 1, 2}));

  // Only the solver's part is written, in solver order.
  QELSimCollectionID dofs = QELSimCollectionRef::Create(m_context, def.NumberOfDofs());
  QELSimCSetID written = def.WritePermutation(dofs);
  EXPECT_EQ(Members(written), Ints({3, 0}));
  Reopen();
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
  int* copy = static_cast<int*>(mem_OperatorNewThrowBuiltin(mem_ArraySize(masks.size(), 4)));
  std::copy(masks.begin(), masks.end(), copy);
  fesD_NodalDofDefinition fromArray(copy, static_cast<int>(masks.size()), 0, true);
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

using MaskDatabaseDeathTest = MaskDatabase;

TEST_F(MaskDatabaseDeathTest, DistributionMustHaveOneDrawer) {
  // The null identifier names no distribution: the service reports it and
  // counts no drawers.
  EXPECT_DEATH(fesD_NodalDofDefinition(QELSimDistributionID(), 0, false),
               "\\*\\*ERROR QELSimDistributionRef::NumDrawers: null distribution identifier\n"
               "nodal_dofs_service_test: [^\n]*/fes/dpa/impl/fesD_NodalDofDefinition\\.cpp:[0-9]+: "
               "fesD_NodalDofDefinition::fesD_NodalDofDefinition\\(QELSimDistributionID, int, "
               "bool\\): Assertion `distribution\\.NumDrawers\\(\\) == 1' failed\\.\n");
}

TEST_F(MaskDatabaseDeathTest, OrderingNamingDofsTheMeshLacks) {
  fesD_NodalDofDefinition def(StoreMasks({0b011, 0b101}), 0, false);
  QELSimCSetID beyond = StoreOrdering(10, {1, 7});
  EXPECT_DEATH(def.SetupSolverDofs(beyond),
               "ATTEMPTED TO SET SOLVER DOF THAT IS NOT AN ACTIVE MESH DOF\\.\n");
}

TEST_F(MaskDatabaseDeathTest, WritePermutationNeedsAnOrdering) {
  fesD_NodalDofDefinition def(StoreMasks({0b1}), 0, false);
  QELSimCollectionID dofs = QELSimCollectionRef::Create(m_context, 1);
  EXPECT_DEATH(def.WritePermutation(dofs), ": Assertion `m_solverToSystemId' failed\\.\n");
}

}  // namespace
