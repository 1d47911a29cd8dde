// The database root: its tables, refusals, closing and renumbering, and the
// first step of every path.
#include <gtest/gtest.h>
#include <hdf5.h>

#include <string>

#include "sim_schema/sim_schema.h"
#include "support/capture.h"
#include "support/h5_raw.h"
#include "support/scratch_dir.h"

namespace {

class Root : public testing::Test {
 protected:
  std::string File(const char* name) { return dir.File(name); }
  ScratchDir dir;
};

TEST_F(Root, RefusesAFileOrAnAliasThatIsAlreadyOpen) {
  msfD_Root root(0);
  CaptureErr err;
  std::string a = File("a.sim"), b = File("b.sim");
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
  ASSERT_FALSE(!root.createSim(File("c.sim").c_str(), "", 0));
  EXPECT_TRUE(!root.getByAlias(""));
  EXPECT_TRUE(root.getByAlias("run").IsSame(root.get(0)));
  EXPECT_TRUE(!root.getByAlias("nobody"));
  EXPECT_EQ(root.count(), 3);
  EXPECT_TRUE(!root.get(3));
  EXPECT_EQ(err.Take(), "");
}

TEST_F(Root, ClosingRenumbersTheOthersAndTheirObjects) {
  msfD_Root root(0);
  msfD_Sim first = root.createSim(File("1.sim").c_str(), "one", 0);
  msfD_Sim second = root.createSim(File("2.sim").c_str(), "two", 0);
  msfD_Sim third = root.createSim(File("3.sim").c_str(), "three", 0);
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
  root.closeSim(first);  // no longer open, or of another root: ignored silently
  EXPECT_EQ(err.Take(), "");
  EXPECT_EQ(root.count(), 2);
}

TEST_F(Root, FirstStepsByIndexAliasAndFile) {
  msfD_Root root(0);
  std::string a = File("a.sim");
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
  std::string a = File("a.sim");
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
