// Derived systems and typed links, end to end through a mesh: the FE
// system part in "#base", conversions guarded by the stored class, and a
// typed link that checks what it reaches.
#include <gtest/gtest.h>

#include <string>

#include "fes/fes.h"
#include "persistence/gbb_TypedLink.h"
#include "sim_schema/sim_schema.h"
#include "support/capture.h"
#include "support/h5_raw.h"
#include "support/scratch_dir.h"

namespace {

TEST(DerivedSystems, RoundTripThroughTheMeshArray) {
  ScratchDir dir;
  std::string file = dir.File("d.sim");
  {
    msfD_Root root(0);
    msfD_Sim sim = root.createSim(file.c_str(), "", 0);
    int c = sim.distributionService().Context().Number();
    msfD_Mesh mesh =
        sim.DiscreteModel(msfD_DiscreteModel::New(QELSimCollectionID(), QELSimCollectionID(), 0))
            .Mesh(msfD_Mesh::New(QELSimCollectionID(), QELSimCollectionID(), 0));
    fesD_ModalSystemHolder modal =
        fesD_ModalSystem::New("modal", QELSimDistributionID(c, 1), QELSimDistributionID(c, 2),
                              QELSimCollectionID(c, 3), QELSimCollectionID(c, 4), 0);
    modal.Get().PropertyEvaluation(2.5);
    modal.Get().events().add(
        fesD_ModalEvent::New("e0", -7, QELSimCollectionID(c, 5), QELSimCollectionID(c, 6), 0));
    fesD_FESystem added = mesh.systems().add(modal.ReleaseAsFESystem());
    EXPECT_TRUE(modal.IsEmpty());
    fesD_ModalSystem back(added);
    ASSERT_FALSE(!back);
    EXPECT_EQ(back.propertyEvaluation(), 2.5);
    back.SystemName("renamed");
    fesD_SubstructureSystemHolder sub = fesD_SubstructureSystem::New(
        "sub", QELSimDistributionID(), QELSimDistributionID(), QELSimCollectionID(c, 7),
        QELSimCollectionID(c, 8), QELSimCollectionID(c, 9), 0);
    sub.Get().Damping(fesD_SubDamp::New(0)).Alpha(0.25);
    mesh.systems().add(sub.ReleaseAsFESystem());
    mesh.systems().add(fesD_GenericSystem::New("gen", QELSimDistributionID(),
                                               QELSimDistributionID(), QELSimCollectionID(c, 10),
                                               QELSimCollectionID(c, 11), 0)
                           .ReleaseAsFESystem());
  }
  const std::string systems = "/sim/discreteModel/mesh/systems";
  EXPECT_EQ(RawClass(file, systems + "/0"), "com.trevolo.ModalSystem");
  EXPECT_EQ(RawClass(file, systems + "/0/#base"), "com.trevolo.FESystem");
  EXPECT_EQ(RawChildren(file, systems + "/0"),
            (std::vector<std::string>{"#base", "#simpleTypeMembers", "events"}));
  EXPECT_EQ(RawChildren(file, systems + "/1"),
            (std::vector<std::string>{"#base", "#simpleTypeMembers", "damping"}));

  msfD_Root root(0);
  CaptureErr err;
  msfD_Sim sim = root.openSimReadOnly(file.c_str(), "", 0);
  auto array = sim.discreteModel().mesh().systems();
  fesD_FESystem first = array.get(0);
  EXPECT_STREQ(first.systemName().cStr(), "renamed");
  fesD_ModalSystem modal(first);
  ASSERT_FALSE(!modal);
  EXPECT_TRUE(!fesD_GenericSystem(first));
  EXPECT_EQ(modal.propertyEvaluation(), 2.5);
  EXPECT_EQ(modal.events().get(0).eventTypeID(), -7);
  EXPECT_STREQ(modal.systemName().cStr(), "renamed");
  fesD_SubstructureSystem sub(array.get(1));
  EXPECT_EQ(sub.damping().alpha(), 0.25);
  EXPECT_EQ(sub.dofs().CollectionMinor(), 8u);
  fesD_GenericSystem gen(array.get(2));
  EXPECT_EQ(gen.loads().CollectionMinor(), 11u);
  EXPECT_TRUE(!fesD_ModalSystem(fesD_FESystem()));

  // Typed links check the class of their target.
  gbb_PathImpl place(gbb_Path(), gbb_Root(&root), 0);
  gbb_LinkHolder toEvent(new gbb_SimpleLink(&place, "#/discreteModel/mesh/systems/:0/events/:0"));
  gbb_LinkHolder toDamping(new gbb_SimpleLink(&place, "#/discreteModel/mesh/systems/:1/damping"));
  gbb_LinkHolder toSim(new gbb_SimpleLink(&place, "#/"));
  EXPECT_STREQ(gbb_TypedLink<fesD_ModalEvent>(toEvent.Get()).get(0).eventName().cStr(), "e0");
  EXPECT_EQ(gbb_TypedLink<fesD_SubDamp>(toDamping.Get()).get(0).alpha(), 0.25);
  gbb_TypedLink<msfD_Mesh> wrong(toSim.Get());
  EXPECT_TRUE(!wrong.get(0));
  EXPECT_EQ(wrong.status(), 2);
  EXPECT_EQ(gbb_TypedLink<msfD_Mesh>().status(), 1);
  EXPECT_TRUE(!gbb_TypedLink<msfD_Mesh>().get(0));
  EXPECT_EQ(err.Take(), "");
}

}  // namespace
