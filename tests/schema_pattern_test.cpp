// The generated pattern, observed through the mesh, the discrete model and
// the sim: messages, trace lines, lazy loading, the access's commit and
// discard rules, sub-object setters, open by stored class, and the exact
// bytes of the members dataset.
#include <gtest/gtest.h>

#include <string>

#include "support/capture.h"
#include "support/sample_sim.h"

namespace {

using Pattern = SampleSim;

TEST(Holders, TokensMoveOwnershipAndCloseDestroys) {
  msfD_MeshHolder empty;
  msfD_MeshHolderMoveSrc token = empty;
  EXPECT_EQ(token.object, nullptr);
  EXPECT_EQ(token.flags, 0u);
  msfD_MeshHolder adopted(token);
  EXPECT_TRUE(adopted.IsEmpty());

  msfD_MeshHolder a = msfD_Mesh::New(QELSimCollectionID(), QELSimCollectionID(), 0);
  EXPECT_EQ(a.Flags(), 1u);
  msfD_MeshHolder b(a);  // ownership moves
  EXPECT_TRUE(a.IsEmpty());
  EXPECT_FALSE(!b.Get());
  long long freesBefore = mem_GetStatistics().frees;
  b = msfD_Mesh::New(QELSimCollectionID(), QELSimCollectionID(), 0);  // the first is destroyed
  EXPECT_GT(mem_GetStatistics().frees, freesBefore);
  b.Close();
  EXPECT_TRUE(b.IsEmpty());
  b.Close();  // nothing left
}

TEST(NewObjects, AnswerTheirRequiredValuesAndTraceTheirRecord) {
  CaptureErr err;
  msfD_MeshHolder holder = msfD_Mesh::New(QELSimCollectionID(0, 5), QELSimCollectionID(0, 6), 1);
  msfD_Mesh mesh = holder.Get();
  EXPECT_EQ(mesh.nodes(), QELSimCollectionID(0, 5));
  EXPECT_EQ(err.Take(), "msfD_MeshImpl::CreateMembers: creating msfD_MeshMembers\n");
  EXPECT_EQ(mesh.elements(), QELSimCollectionID(0, 6));
  EXPECT_FALSE(mesh.faces().IsValid());
  EXPECT_FALSE(mesh.lagrangeNodes().IsValid());
  EXPECT_EQ(mesh.systems().count(), 0);

  // An access on an unconnected object with a cached record edits a copy:
  // the getter sees the old value until commit.
  {
    msfD_MeshAccess access(mesh);
    access.members().faces = QELSimCollectionID(0, 9);
    EXPECT_EQ(err.Take(), "msfD_MeshImpl::CopyMembers: copying msfD_MeshMembers\n");
    EXPECT_FALSE(mesh.faces().IsValid());
    access.commit();
  }
  EXPECT_EQ(mesh.faces(), QELSimCollectionID(0, 9));
  {
    msfD_MeshAccess access(mesh);
    access.members().faces = QELSimCollectionID(0, 10);
  }  // dropped
  EXPECT_EQ(mesh.faces(), QELSimCollectionID(0, 9));
  EXPECT_EQ(err.Take(), "msfD_MeshImpl::CopyMembers: copying msfD_MeshMembers\n");
}

TEST_F(Pattern, ConnectedEditsAreStoredAndUncommittedOnesReloaded) {
  Build();
  msfD_Root root(1);
  CaptureErr err;
  msfD_Sim sim = Open(root, false);
  EXPECT_EQ(err.Take(), "msfD_Root::openSim " + file + "\n");
  msfD_DiscreteModel model = sim.discreteModel();
  EXPECT_EQ(err.Take(), "");  // opened, but nothing read yet
  EXPECT_EQ(model.vectors().CollectionMinor(), 1u);
  EXPECT_EQ(err.Take(), "msfD_DiscreteModelImpl::LoadMembers: loading msfD_DiscreteModelMembers\n");
  model.Frames(C(7));
  EXPECT_EQ(err.Take(),
            "msfD_DiscreteModelImpl::CommitMembers: saving msfD_DiscreteModelMembers\n");
  {
    msfD_DiscreteModelAccess access(model);
    access.members().frames = C(8);
    EXPECT_EQ(model.frames().CollectionMinor(), 8u);  // the cached record itself
  }
  EXPECT_EQ(model.frames().CollectionMinor(), 7u);  // dropped: reloaded from storage
  EXPECT_EQ(err.Take(), "msfD_DiscreteModelImpl::LoadMembers: loading msfD_DiscreteModelMembers\n");
  EXPECT_EQ(model.mesh().nodes().CollectionMinor(), 3u);
  EXPECT_EQ(err.Take(), "msfD_MeshImpl::LoadMembers: loading msfD_MeshMembers\n");
  msfD_DiscreteModelHolder again;
  root.closeSim(sim);
  EXPECT_EQ(err.Take(), "msfD_Root::closeSim\n");
}

TEST_F(Pattern, BindingTracesInOrderAndRefusesASecondBind) {
  msfD_Root root(0);
  msfD_Sim sim = Create(root);
  CaptureErr err;
  msfD_DiscreteModelHolder model = msfD_DiscreteModel::New(C(1), C(2), 1);
  model.Get().Mesh(msfD_Mesh::New(C(3), C(4), 1));
  EXPECT_EQ(err.Take(), "");
  msfD_DiscreteModel bound = sim.DiscreteModel(model);
  EXPECT_TRUE(model.IsEmpty());
  EXPECT_EQ(err.Take(),
            "msfD_DiscreteModelImpl::Bind\n"
            "msfD_DiscreteModelImpl::CreateMembers: creating msfD_DiscreteModelMembers\n"
            "msfD_DiscreteModelImpl::BindMembers: saving msfD_DiscreteModelMembers\n"
            "msfD_MeshImpl::Bind\n"
            "msfD_MeshImpl::CreateMembers: creating msfD_MeshMembers\n"
            "msfD_MeshImpl::BindMembers: saving msfD_MeshMembers\n"
            "gbb_ArrayImpl::Bind\n");
  EXPECT_EQ(RawChildren(file, "/sim"), std::vector<std::string>{"discreteModel"});
  EXPECT_EQ(RawChildren(file, "/sim/discreteModel"),
            (std::vector<std::string>{"#simpleTypeMembers", "mesh"}));
  EXPECT_EQ(RawChildren(file, "/sim/discreteModel/mesh"),
            (std::vector<std::string>{"#simpleTypeMembers", "systems"}));
  EXPECT_EQ(RawClass(file, "/sim"), "com.trevolo.Sim");
  EXPECT_EQ(RawClass(file, "/sim/discreteModel/mesh"), "com.trevolo.Mesh");

  // A second model is refused and destroyed; the first stays.
  msfD_DiscreteModel second = sim.DiscreteModel(msfD_DiscreteModel::New(C(9), C(9), 0));
  EXPECT_EQ(err.Take(), "**ERROR:msfD_SimImpl::DiscreteModel: already exists\n");
  EXPECT_TRUE(second.IsSame(bound));
  EXPECT_EQ(second.vectors().CollectionMinor(), 1u);
}

TEST_F(Pattern, RecordsLoadInAnyOrderAndAStrayIndexStopsTheLoad) {
  Build();
  // Regions first, nodes twice (the later value wins), no elements.
  const Records valid = Records().Collection(15, 21).Collection(12, 30).Collection(12, 31);
  // Systems (18) is not a stream member: nothing is read for it.
  const Bytes stray = Records(valid).Collection(18, 5).Stream();
  Bytes cut = valid.Stream();
  cut.resize(cut.size() - 3);
  cut[0] = static_cast<unsigned char>(cut.size());  // a header that matches, a record cut short
  const struct {
    Bytes bytes;
    unsigned nodes;  // 0: not looked at
    const char* printed;
  } cases[] = {
      {valid.Stream(), 31, ""},
      {stray, 31, "**ERROR msfD_MeshImpl::LoadMembers: error 1 loading class data\n"},
      {cut, 0, "**ERROR msfD_MeshImpl::LoadMembers: error 2 loading class data\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.printed);
    RawWriteDataset(file, kMesh + "/#simpleTypeMembers", c.bytes);
    msfD_Root root(0);
    CaptureErr err;
    msfD_Mesh mesh = Open(root).discreteModel().mesh();
    EXPECT_EQ(mesh.regions().CollectionMinor(), 21u);  // read before any damage
    if (c.nodes != 0) {
      EXPECT_EQ(mesh.nodes().CollectionMinor(), c.nodes);
    }
    EXPECT_FALSE(mesh.elements().IsValid());  // its record is missing
    EXPECT_EQ(err.Take(), c.printed);
  }
}

TEST_F(Pattern, StoredClassesAreCheckedAgainstTheSnapshot) {
  Build();
  struct Case {
    const char* id;
    const char* message;
  } cases[] = {
      {"com.trevolo.DiscreteModel",
       "**ERROR msfD_MeshHolder::Open: unrelated class com.trevolo.DiscreteModel\n"},
      {"com.trevolo.Sim",
       "**ERROR msfD_MeshHolder::Open: class com.trevolo.Sim is not registered\n"},
      {"com.example.Unknown",
       "**ERROR msfD_MeshHolder::Open: class com.example.Unknown is not registered\n"},
      {"", "**ERROR msfD_MeshHolder::Open: class  is not registered\n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.id);
    RawWriteClass(file, "/sim/discreteModel/mesh", c.id);
    msfD_Root root(0);
    CaptureErr err;
    msfD_DiscreteModel model = Open(root).discreteModel();
    EXPECT_TRUE(!model.mesh());
    EXPECT_TRUE(!model.mesh());  // the member stays unresolved: tried again
    EXPECT_EQ(err.Take(), std::string(c.message) + c.message);
  }
}

TEST_F(Pattern, PathsResolveFromTheRootByNumberAndName) {
  Build();
  msfD_Root root(0);
  msfD_Sim other = root.createSim(dir.File("other.sim").c_str(), "other", 0);
  msfD_Sim sim = root.openSim(file.c_str(), "main", 0);
  ASSERT_EQ(sim.Path().Index(), 1);
  msfD_Mesh mesh = sim.discreteModel().mesh();
  struct Case {
    const char* text;
    bool mesh;
  } cases[] = {
      {"#/:0/:6", true},
      {"#/discreteModel/mesh", true},
      {"alias:main#/discreteModel/mesh", true},
      {"#/discreteModel/./x/../mesh", true},
      {"#/:0/:7", false},
      {"alias:nobody#/discreteModel", false},
      {"#/mesh", false},
      {"#/discreteModel:3/mesh", false},
  };
  gbb_PathImpl top(gbb_Path(), gbb_Root(&root), 1);  // a place inside sim 1
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    gbb_SimpleLink link(&top, c.text);
    msfD_Mesh found(link.Get(0));
    EXPECT_EQ(!found, !c.mesh);
    if (c.mesh) {
      EXPECT_TRUE(found.IsSame(mesh));
    }
  }
  gbb_SimpleLink service(&top, "#/distributionService");
  EXPECT_EQ(gbb_DistributionService(service.Get(0)).Context(), sim.distributionService().Context());
  gbb_SimpleLink past(&top, "#/distributionService/x");
  EXPECT_TRUE(past.Get(0).IsEmpty());
  EXPECT_EQ(past.Stale(), 3);
  gbb_SimpleLink snapshot(&top, "#/schemaSnapshot");
  gbb_SchemaSnapshot s(snapshot.Get(0));
  ASSERT_FALSE(!s);
  EXPECT_EQ(s.Impl()->Count(), 8);
  EXPECT_EQ(s.GetClass(gbb_ClassID("com.trevolo.Mesh")), msfD_MeshInterface::StaticClass());
  EXPECT_TRUE(s.GetClass(gbb_ClassID("com.trevolo.Sim")).IsNull());
  (void)other;
}

TEST_F(Pattern, ReadsBeforeWritingAreNotLoadedByNoLoadResolutions) {
  Build();
  msfD_Root root(0);
  ASSERT_FALSE(!root.openSimReadOnly(file.c_str(), "", 0));
  gbb_PathImpl top(gbb_Path(), gbb_Root(&root), 0);
  gbb_SimpleLink link(&top, "#/discreteModel/mesh");
  EXPECT_TRUE(link.Get(gbb_TraverseContext::kNoLoad).IsEmpty());
  EXPECT_EQ(link.Stale(), 4);
  EXPECT_FALSE(link.Get(0).IsEmpty());
  EXPECT_FALSE(link.Get(gbb_TraverseContext::kNoLoad).IsEmpty());  // now in memory
}

}  // namespace
