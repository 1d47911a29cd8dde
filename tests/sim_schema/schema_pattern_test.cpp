// The generated pattern, observed through the mesh, the discrete model and
// the sim: trace lines, lazy loading, the access's commit and discard rules,
// sub-object setters, open by stored class, records in any order, and paths
// from the root. Then the database root itself: its tables, refusals,
// closing and renumbering, and the first step of every path.
#include <gtest/gtest.h>
#include <hdf5.h>

#include <string>

#include "support/capture.h"
#include "support/sample_sim.h"

namespace {

using Pattern = SampleSim;
using Root = SampleSim;

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

// Counts what a traversal shows its visitor.
struct Shown : gbb_TraverseVisitor {
  bool Visit(gbb_TraverseContext&, gbb_Handle) override {
    ++count;
    return true;
  }
  int count = 0;
};

TEST(Holders, NewWithAnOuterInterfaceIsMarkedSuppliedEvenForANullOne) {
  const QELSimCollectionID none;
  fesD_ModalSystemHolder plain =
      fesD_ModalSystem::New("m", QELSimDistributionID(), QELSimDistributionID(), none, none, 0);
  fesD_ModalSystemHolder supplied = fesD_ModalSystem::New(nullptr, "m", QELSimDistributionID(),
                                                          QELSimDistributionID(), none, none, 0);
  EXPECT_EQ(plain.Flags(), 1u);
  EXPECT_EQ(supplied.Flags(), 3u);
  EXPECT_EQ(fesD_SubDamp::New(nullptr, 0).Flags(), 3u);

  // The holder step differs: a plain holder shows its object and goes on
  // with the next step; a supplied one hands the current step (here none)
  // to its object, which finds nothing there.
  Shown shownPlain, shownSupplied;
  gbb_TraverseContext first(gbb_Path(), "events", 0, &shownPlain);
  gbb_Handle events = plain.Traverse(first);
  EXPECT_FALSE(events.IsEmpty());
  EXPECT_EQ(shownPlain.count, 2);  // the system, then its events
  EXPECT_EQ(first.Status(), 0);
  gbb_TraverseContext second(gbb_Path(), "events", 0, &shownSupplied);
  EXPECT_TRUE(supplied.Traverse(second).IsEmpty());
  EXPECT_EQ(shownSupplied.count, 0);
  EXPECT_EQ(second.Status(), gbb_TraverseContext::kNothingThere);
  supplied.Close();  // destroys the object it was made for
  EXPECT_TRUE(supplied.IsEmpty());
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
}

// (An occupied sub-object slot refuses a second object:
// DerivedSystems.DampingIsBoundWithItsSubstructureOrAtOnce.)
TEST_F(Pattern, BindingTracesInOrder) {
  msfD_Root root(0);
  msfD_Sim sim = Create(root);
  CaptureErr err;
  msfD_DiscreteModelHolder model = msfD_DiscreteModel::New(C(1), C(2), 1);
  model.Get().Mesh(msfD_Mesh::New(C(3), C(4), 1));
  EXPECT_EQ(err.Take(), "");
  sim.DiscreteModel(model);
  EXPECT_TRUE(model.IsEmpty());
  EXPECT_EQ(err.Take(),
            "msfD_DiscreteModelImpl::Bind\n"
            "msfD_DiscreteModelImpl::CreateMembers: creating msfD_DiscreteModelMembers\n"
            "msfD_DiscreteModelImpl::BindMembers: saving msfD_DiscreteModelMembers\n"
            "msfD_MeshImpl::Bind\n"
            "msfD_MeshImpl::CreateMembers: creating msfD_MeshMembers\n"
            "msfD_MeshImpl::BindMembers: saving msfD_MeshMembers\n"
            "gbb_ArrayImpl::Bind\n");
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
  gbb_PathImpl top(gbb_Path(), gbb_Root(&root), 1);  // a place inside sim 1
  // Not read yet: a resolution that may not load stops at the model.
  gbb_SimpleLink link(&top, "#/discreteModel/mesh");
  EXPECT_TRUE(link.Get(gbb_TraverseContext::kNoLoad).IsEmpty());
  EXPECT_EQ(link.Stale(), 4);
  EXPECT_FALSE(link.Get(0).IsEmpty());
  EXPECT_FALSE(link.Get(gbb_TraverseContext::kNoLoad).IsEmpty());  // now in memory
  msfD_Mesh mesh = sim.discreteModel().mesh();
  struct Case {
    const char* text;
    bool mesh;
  } cases[] = {
      {"#/:0/:6", true},
      {"#/discreteModel/mesh", true},
      {"alias:main#/discreteModel/mesh", true},
      {"#/:0/:7", false},
      {"#/mesh", false},
      {"#/discreteModel:3/mesh", false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    gbb_SimpleLink byText(&top, c.text);
    msfD_Mesh found(byText.Get(0));
    EXPECT_EQ(!found, !c.mesh);
    if (c.mesh) {
      EXPECT_TRUE(found.IsSame(mesh));
    }
  }
  gbb_SimpleLink service(&top, "#/distributionService");
  EXPECT_EQ(gbb_DistributionService(service.Get(0)).Context(), sim.distributionService().Context());
  gbb_SimpleLink snapshot(&top, "#/schemaSnapshot");
  gbb_SchemaSnapshot s(snapshot.Get(0));
  ASSERT_FALSE(!s);
  EXPECT_EQ(s.Impl()->Count(), 8);
  EXPECT_EQ(s.GetClass(gbb_ClassID("com.trevolo.Mesh")), msfD_MeshInterface::StaticClass());
  EXPECT_TRUE(s.GetClass(gbb_ClassID("com.trevolo.Sim")).IsNull());
  (void)other;
}

// Renumbering, seen by the paths below a sim: Root.ClosingRenumbersTheOthersAndTheirObjects.
TEST(Paths, AnEmptyPathHasNoIndexParentOrRoot) {
  EXPECT_EQ(gbb_Path().Index(), -1);
  EXPECT_TRUE(gbb_Path().Root().IsEmpty());
  EXPECT_TRUE(gbb_Path().Parent().IsEmpty());
}

TEST_F(Root, RefusesAFileOrAnAliasThatIsAlreadyOpen) {
  msfD_Root root(0);
  CaptureErr err;
  std::string a = dir.File("a.sim"), b = dir.File("b.sim");
  ASSERT_FALSE(!root.createSim(a.c_str(), "run", 0));
  EXPECT_TRUE(!root.createSim(a.c_str(), "other", 0));
  EXPECT_EQ(err.Take(), "**ERROR msfD_Root::createSim: file " + a + " already opened\n");
  EXPECT_TRUE(!root.openSimReadOnly(a.c_str(), "", 0));  // read-only too: same text
  EXPECT_EQ(err.Take(), "**ERROR msfD_Root::openSimReadOnly: file " + a + " already opened\n");
  EXPECT_TRUE(!root.createSim(b.c_str(), "run", 0));
  EXPECT_EQ(err.Take(), "**ERROR msfD_Root::createSim: database with alias run already exists\n");
  EXPECT_TRUE(!root.openSim(b.c_str(), "run", 0));
  EXPECT_EQ(err.Take(), "**ERROR msfD_Root::openSim: database with alias run already exists\n");
  // Empty aliases are never entered, so they never clash.
  ASSERT_FALSE(!root.createSim(b.c_str(), "", 0));
  ASSERT_FALSE(!root.createSim(dir.File("c.sim").c_str(), "", 0));
  EXPECT_TRUE(!root.getByAlias(""));
  EXPECT_TRUE(root.getByAlias("run").IsSame(root.get(0)));
  EXPECT_TRUE(!root.getByAlias("nobody"));
  EXPECT_EQ(root.count(), 3);
  EXPECT_TRUE(!root.get(3));
  EXPECT_EQ(err.Take(), "");
}

TEST_F(Root, ClosingRenumbersTheOthersAndTheirObjects) {
  msfD_Root root(0);
  msfD_Sim first = root.createSim(dir.File("1.sim").c_str(), "one", 0);
  msfD_Sim second = root.createSim(dir.File("2.sim").c_str(), "two", 0);
  msfD_Sim third = root.createSim(dir.File("3.sim").c_str(), "three", 0);
  int c = third.distributionService().Context().Number();
  msfD_DiscreteModel model = third.DiscreteModel(
      msfD_DiscreteModel::New(QELSimCollectionID(c, 1), QELSimCollectionID(c, 2), 0));
  root.closeSim(first);
  EXPECT_EQ(root.count(), 2);
  EXPECT_TRUE(root.get(0).IsSame(second));
  EXPECT_EQ(second.Path().Index(), 0);
  EXPECT_EQ(third.Path().Index(), 1);
  EXPECT_TRUE(!root.getByAlias("one"));
  // A path step by index 1 now reaches the former third sim.
  gbb_PathImpl place(gbb_Path(), gbb_Root(&root), 1);
  gbb_SimpleLink link(&place, "#/discreteModel");
  EXPECT_TRUE(msfD_DiscreteModel(link.Get(0)).IsSame(model));
  // Its objects see the new index: their saves still find the service.
  model.Frames(QELSimCollectionID(c, 5));
  EXPECT_EQ(model.frames().CollectionMinor(), 5u);
  CaptureErr err;
  root.closeSim(msfD_Sim());  // its path is asked for, then nothing happens
  EXPECT_EQ(err.Take(), "**ERROR msfD_Sim::Path: called on an empty handle\n");
  EXPECT_EQ(root.count(), 2);
}

// closeSim goes by the sim's own path index, whichever root the sim is
// open in: the entries of that sim leave this root's tables (it has none
// here), and this root's holder at that index closes. An index beyond this
// root's sims closes nothing after the trace line.
TEST_F(Root, ClosingASimOfAnotherRootGoesByItsIndex) {
  msfD_Root mine(1), other(0);
  CaptureErr err;
  std::string b0 = dir.File("b0.sim"), b1 = dir.File("b1.sim");
  msfD_Sim kept = mine.createSim(b0.c_str(), "b0", 0);
  ASSERT_FALSE(!mine.createSim(b1.c_str(), "b1", 0));
  msfD_Sim foreign[3];
  for (int i = 0; i < 3; ++i) {
    foreign[i] = other.createSim(dir.File("a" + std::to_string(i) + ".sim").c_str(),
                                 ("a" + std::to_string(i)).c_str(), 0);
  }
  err.Take();
  long files = static_cast<long>(H5Fget_obj_count(H5F_OBJ_ALL, H5F_OBJ_FILE));

  mine.closeSim(foreign[1]);
  EXPECT_EQ(err.Take(), "msfD_Root::closeSim\n");
  EXPECT_EQ(mine.count(), 1);
  EXPECT_TRUE(mine.get(0).IsSame(kept));
  EXPECT_EQ(H5Fget_obj_count(H5F_OBJ_ALL, H5F_OBJ_FILE), files - 1);  // b1.sim closed
  // The other root and its sim are untouched.
  EXPECT_EQ(other.count(), 3);
  EXPECT_TRUE(other.get(1).IsSame(foreign[1]));
  EXPECT_TRUE(other.getByAlias("a1").IsSame(foreign[1]));
  EXPECT_EQ(foreign[1].Path().Index(), 1);
  // Only entries naming foreign[1] were looked for: b1's stay behind.
  EXPECT_TRUE(!mine.openSim(b1.c_str(), "", 0));
  EXPECT_EQ(err.Take(), "**ERROR msfD_Root::openSim: file " + b1 + " already opened\n");
  EXPECT_TRUE(!mine.openSim(dir.File("b2.sim").c_str(), "b1", 0));
  EXPECT_EQ(err.Take(), "**ERROR msfD_Root::openSim: database with alias b1 already exists\n");

  mine.closeSim(foreign[2]);  // index 2: no such position here
  EXPECT_EQ(err.Take(), "msfD_Root::closeSim\n");
  EXPECT_EQ(mine.count(), 1);
  EXPECT_EQ(other.count(), 3);
  EXPECT_EQ(H5Fget_obj_count(H5F_OBJ_ALL, H5F_OBJ_FILE), files - 1);
}

TEST_F(Root, FirstStepsByIndexAliasAndFile) {
  msfD_Root root(0);
  std::string a = dir.File("a.sim");
  msfD_Sim sim = root.createSim(a.c_str(), "main", 0);
  struct Case {
    std::string text;
    bool found;
  } cases[] = {
      {"alias:main", true}, {"file:" + a, true},   {"alias:none", false},
      {"file:x", false},    {"other:main", false}, {"main", false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    gbb_TraverseContext context(gbb_Path(), c.text.c_str(), 0, nullptr);
    gbb_Handle h = gbb_Root(&root).Traverse(context);
    EXPECT_EQ(msfD_Sim(h).IsSame(sim), c.found);
    EXPECT_EQ(context.Status(), c.found ? 0 : 3);
  }
}

TEST_F(Root, ClosingReleasesTheFileForImmediateReuse) {
  std::string a = dir.File("a.sim");
  {
    msfD_Root root(1);
    CaptureErr err;
    msfD_Sim sim = root.createSim(a.c_str(), "x", 0);
    EXPECT_EQ(err.Take(), "msfD_Root::createSim " + a + "\nmsfD_SimImpl::Bind\n");
    root.closeSim(sim);
    EXPECT_EQ(err.Take(), "msfD_Root::closeSim\n");
    EXPECT_EQ(H5Fget_obj_count(H5F_OBJ_ALL, H5F_OBJ_ALL), 0);
    ASSERT_FALSE(!root.openSim(a.c_str(), "x", 0));
    err.Take();
  }  // the root's destruction closes it again, without a trace line
  EXPECT_EQ(H5Fget_obj_count(H5F_OBJ_ALL, H5F_OBJ_ALL), 0);
  EXPECT_EQ(RawClass(a, "/sim"), "com.trevolo.Sim");
}

}  // namespace
