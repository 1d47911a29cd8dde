// The schema end to end: a database built through the root, closed,
// reopened, and read back lazily, member by member.
#include <gtest/gtest.h>

#include <string>

#include "fes/fes.h"
#include "sim_schema/sim_schema.h"
#include "support/capture.h"
#include "support/scratch_dir.h"

namespace {

class Schema : public testing::Test {
 protected:
  ScratchDir dir;
  std::string file = dir.File("db.sim");
};

TEST_F(Schema, BuildsClosesReopensAndReadsBack) {
  CaptureErr err;
  {
    msfD_Root root(0);
    msfD_Sim sim = root.createSim(file.c_str(), "run1", 0);
    ASSERT_FALSE(!sim);
    EXPECT_EQ(root.count(), 1);
    int ctx = sim.distributionService().Context().Number();
    EXPECT_FALSE(!sim.discreteModel() == false);  // none yet
    msfD_DiscreteModel model = sim.DiscreteModel(
        msfD_DiscreteModel::New(QELSimCollectionID(ctx, 1), QELSimCollectionID(ctx, 2), 0));
    ASSERT_FALSE(!model);
    msfD_Mesh mesh =
        model.Mesh(msfD_Mesh::New(QELSimCollectionID(ctx, 3), QELSimCollectionID(ctx, 4), 0));
    ASSERT_FALSE(!mesh);
    ada_MapString<QELSimCSetID> sets;
    sets.insert("top", QELSimCSetID(ctx, 3, 7));
    sets.insert("bottom", QELSimCSetID(ctx, 3, 8));
    mesh.NodeSets(sets);
    mesh.Regions(QELSimCollectionID(ctx, 9));
    fesD_FESystem system = mesh.systems().add(fesD_FESystem::New(
        "structure", QELSimDistributionID(ctx, 11), QELSimDistributionID(ctx, 12), 0));
    ASSERT_FALSE(!system);
    EXPECT_EQ(mesh.systems().count(), 1);
    EXPECT_STREQ(system.systemName().cStr(), "structure");
  }
  EXPECT_EQ(err.Take(), "");
  {
    msfD_Root root(0);
    msfD_Sim sim = root.openSimReadOnly(file.c_str(), "again", 0);
    ASSERT_FALSE(!sim);
    int ctx = sim.distributionService().Context().Number();
    msfD_Mesh mesh = sim.discreteModel().mesh();
    ASSERT_FALSE(!mesh);
    EXPECT_EQ(mesh.nodes(), QELSimCollectionID(ctx, 3));
    EXPECT_EQ(mesh.regions(), QELSimCollectionID(ctx, 9));
    EXPECT_FALSE(mesh.faces().IsValid());
    EXPECT_EQ(mesh.nodeSets().count(), 2);
    EXPECT_EQ(mesh.nodeSets().get("top"), QELSimCSetID(ctx, 3, 7));
    EXPECT_EQ(sim.discreteModel().vectors(), QELSimCollectionID(ctx, 1));
    ASSERT_EQ(mesh.systems().count(), 1);
    fesD_FESystem system = mesh.systems().get(0);
    EXPECT_STREQ(system.systemName().cStr(), "structure");
    EXPECT_EQ(system.nodalActivityMask(), QELSimDistributionID(ctx, 12));
  }
  EXPECT_EQ(err.Take(), "");
}

}  // namespace
