// Handles, classes, paths and links on small test classes written against
// the framework alone, and the link-text grammar with its normalisation.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "persistence/gbb_Class.h"
#include "persistence/gbb_DistributionService.h"
#include "persistence/gbb_Group.h"
#include "persistence/gbb_Handle.h"
#include "persistence/gbb_Link.h"
#include "persistence/gbb_Path.h"
#include "persistence/gbb_TraverseContext.h"
#include "platform/core/aio_ostream.h"
#include "support/capture.h"

namespace {

gbb_Class BaseClass() {
  static gbb_ClassDescriptor d;
  return gbb_DescribeClass(d, "test.Base", nullptr, nullptr);
}
gbb_Class DerivedClass() {
  static gbb_ClassDescriptor d;
  return gbb_DescribeClass(d, "test.Derived", &BaseClass, nullptr);
}
int g_opened = 0;
gbb_ObjectInterface* OpenOther(gbb_Path, int index, const gbb_Group&, int) {
  g_opened = index;
  return nullptr;
}
gbb_Class OtherClass() {
  static gbb_ClassDescriptor d;
  return gbb_DescribeClass(d, "test.Other", nullptr, &OpenOther);
}

TEST(ClassID, ComparesUpToTheTerminatorOnly) {
  gbb_ClassID a("com.trevolo.Mesh");
  gbb_ClassID b("com.trevolo.Mesh");
  b.Bytes()[40] = 'x';  // after the terminator
  EXPECT_EQ(BtreeCompare(a, b), 0);
  EXPECT_LT(BtreeCompare(gbb_ClassID("com.a"), gbb_ClassID("com.b")), 0);
  EXPECT_GT(BtreeCompare(gbb_ClassID("com.ab"), gbb_ClassID("com.a")), 0);
  EXPECT_EQ(gbb_ClassID().Length(), 0);
  // strncpy semantics: truncated at 80, no terminator; comparison stays bounded.
  std::string longText(100, 'q');
  gbb_ClassID full(longText.c_str());
  EXPECT_EQ(full.Length(), 80);
  EXPECT_EQ(BtreeCompare(full, gbb_ClassID(longText.c_str())), 0);
  CaptureErr err;
  aio_cerr << full;
  EXPECT_EQ(err.Take(), std::string(80, 'q'));
}

TEST(Class, IsAFollowsTheBaseChainByIdentity) {
  EXPECT_TRUE(DerivedClass().IsA(DerivedClass()));
  EXPECT_TRUE(DerivedClass().IsA(BaseClass()));
  EXPECT_FALSE(BaseClass().IsA(DerivedClass()));
  EXPECT_FALSE(gbb_Class().IsA(gbb_Class()));
  EXPECT_FALSE(gbb_Class().IsA(BaseClass()));
  EXPECT_EQ(DerivedClass(), DerivedClass());
  EXPECT_STREQ(DerivedClass().ClassID().Bytes(), "test.Derived");
  EXPECT_EQ(gbb_Class().ClassID().Length(), 0);
}

TEST(Class, OpenReportsNullAndAbstractClasses) {
  CaptureErr err;
  gbb_Group noGroup;
  EXPECT_EQ(gbb_Class().Open(gbb_Path(), 0, noGroup, 0), nullptr);
  EXPECT_EQ(err.Take(), "**ERROR: gbb_Class::Open: called on an uninitialized class handle\n");
  EXPECT_EQ(BaseClass().Open(gbb_Path(), 0, noGroup, 0), nullptr);
  EXPECT_EQ(err.Take(), "**ERROR: gbb_Class::Open: called on an abstract class\n");
  EXPECT_EQ(OtherClass().Open(gbb_Path(), 5, noGroup, 0), nullptr);
  EXPECT_EQ(g_opened, 5);
  EXPECT_EQ(err.Take(), "");
}

TEST(Handle, EmptinessIsJudgedByThePayloadAlone) {
  gbb_Handle none;
  EXPECT_TRUE(!none);
  gbb_Handle zeroBytes(nullptr, 0, BaseClass());
  EXPECT_TRUE(zeroBytes.IsEmpty());
  EXPECT_EQ(zeroBytes.Class(), BaseClass());
  int object = 0;
  gbb_Handle a(&object, BaseClass());
  gbb_Handle b(&object, OtherClass());
  EXPECT_TRUE(a.Equal(b));  // classes are not compared
  EXPECT_FALSE(a.IsEmpty());
  EXPECT_EQ(a.Pointer(), &object);
}

TEST(Handle, OversizeDataIsReportedAndCut) {
  unsigned char big[200];
  std::memset(big, 0xAB, sizeof big);
  CaptureErr err;
  gbb_Handle exact(big, 128, BaseClass());
  EXPECT_EQ(err.Take(), "");
  gbb_Handle h(big, 200, BaseClass());
  EXPECT_EQ(
      err.Take(),
      "** ERROR: gbb_Handle::gbb_Handle: size of data 200 larger than the maximum size 128\n");
  EXPECT_TRUE(h.Equal(exact));
}

TEST(DistributionService, TravelsWholeInAHandle) {
  gbb_DistributionService invalid;
  EXPECT_FALSE(invalid.IsValid());
  EXPECT_TRUE(gbb_Handle(invalid).IsEmpty());
  gbb_DistributionService service(QELSimContextID(12, 1));
  gbb_Handle h = service;
  EXPECT_EQ(h.Class(), gbb_DistributionService::StaticClass());
  EXPECT_STREQ(h.Class().ClassID().Bytes(), "com.trevolo.DistributionService");
  gbb_DistributionService back(h);
  EXPECT_EQ(back.Context(), QELSimContextID(12, 1));
  // A handle of another class gives an invalid service.
  gbb_Handle other(h.Payload(), 16, BaseClass());
  EXPECT_FALSE(gbb_DistributionService(other).IsValid());
}

// A root that answers the step by number 0 with a fixed value object.
class TestRoot : public gbb_RootImpl {
 public:
  int traversals = 0;
  gbb_Handle Traverse(gbb_TraverseContext& context) override {
    ++traversals;
    if (context.Advance() && context.CurrentKind() == 1 && context.CurrentIndex() == 0) {
      return gbb_TraverseLeaf(context, gbb_DistributionService(QELSimContextID(5)));
    }
    context.SetStatus(3);
    return gbb_Handle();
  }
};

TEST(Link, ResolvesCachesAndReportsAnEmptyRoot) {
  TestRoot root;
  gbb_PathImpl sim(gbb_Path(), gbb_Root(&root), 0);
  gbb_SimpleLink good(&sim, "#");
  EXPECT_EQ(good.Stale(), 1);
  EXPECT_EQ(gbb_DistributionService(good.Get(0)).Context(), QELSimContextID(5));
  EXPECT_EQ(good.Stale(), 0);
  EXPECT_FALSE(good.Get(gbb_TraverseContext::kUseCache).IsEmpty());
  EXPECT_EQ(root.traversals, 1);  // answered from the cache

  gbb_SimpleLink pastLeaf(&sim, "#/x");
  EXPECT_TRUE(pastLeaf.Get(0).IsEmpty());
  EXPECT_EQ(pastLeaf.Stale(), 3);
  pastLeaf.Get(gbb_TraverseContext::kUseCache);
  EXPECT_EQ(root.traversals, 3);  // a failed resolution is not cached

  CaptureErr err;
  gbb_PathImpl orphan;
  gbb_LinkHolder holder(new gbb_SimpleLink(&orphan, "#"));
  EXPECT_TRUE(holder.Get()->Get(0).IsEmpty());
  EXPECT_EQ(err.Take(), "**ERROR gbb_LinkImpl::Get: root is empty\n");
  EXPECT_EQ(holder.Get()->Stale(), 1);
  gbb_TraverseContext c(gbb_Path(), "#", 0, nullptr);
  EXPECT_TRUE(gbb_Root().Traverse(c).IsEmpty());
  EXPECT_EQ(err.Take(), "** ERROR gbb_RootImpl::Traverse: called on an empty handle\n");
}

// A chain of path records: records[0] is the top object (a sim), each next
// one a child of the previous.
struct Chain {
  explicit Chain(std::vector<int> indices) {
    records.reserve(indices.size());
    for (size_t i = 0; i < indices.size(); ++i) {
      gbb_Path parent = i == 0 ? gbb_Path() : gbb_Path(&records[i - 1]);
      records.emplace_back(parent, gbb_Root(), indices[i]);
    }
  }
  gbb_Path Leaf() const { return records.empty() ? gbb_Path() : gbb_Path(&records.back()); }
  std::vector<gbb_PathImpl> records;
};

struct Expected {
  const char* text;
  std::vector<int> chain;
  std::vector<int> indices;
  std::vector<std::string> names;      // normalised steps
  std::vector<std::string> arguments;  // "-" for a missing argument
};

std::string Argument(const gbb_TraverseContext& c, int i) {
  cow_String a = c.ComponentArgument(i);
  return a.HasBuffer() ? std::string(a.c_str(), a.length()) : std::string("-");
}

TEST(LinkGrammar, NormalisesAsTheTableSays) {
  const std::vector<int> sab = {7, 1, 2};  // [s, a, b]
  const std::vector<int> mesh = {7, 0, 6};
  const Expected cases[] = {
      {"#/distributionService", sab, {7}, {"distributionService"}, {"-"}},
      {"#", sab, {7, 1, 2}, {}, {}},
      {"#/", sab, {7}, {}, {}},
      {"#../..", sab, {7}, {}, {}},
      {"alias:run1#/mesh", sab, {}, {"alias", "mesh"}, {"run1", "-"}},
      {"#../../../..", mesh, {7}, {}, {}},
      {"#a/./b//c", sab, {7, 1, 2}, {"a", "b", "c"}, {"-", "-", "-"}},
      {"#a/b/c", sab, {7, 1, 2}, {"a", "b", "c"}, {"-", "-", "-"}},
      {"#a/../b", sab, {7, 1, 2}, {"b"}, {"-"}},
      {"#a/../../x", sab, {7, 1}, {"x"}, {"-"}},
      {"#..", sab, {7, 1}, {}, {}},
      {"#/systems:2/", mesh, {7}, {"systems"}, {"2"}},
      {"#/:2", mesh, {7}, {""}, {"2"}},
      {"#/:", mesh, {7}, {""}, {""}},
      {"#/schemaSnapshot", {}, {}, {"", "schemaSnapshot"}, {"-", "-"}},
      {"file:/tmp/x.sim", sab, {}, {"file"}, {"/tmp/x.sim"}},
      {"", sab, {7, 1, 2}, {}, {}},
  };
  for (const Expected& e : cases) {
    Chain chain(e.chain);
    gbb_TraverseContext c(chain.Leaf(), e.text, 0, nullptr);
    SCOPED_TRACE(e.text);
    std::vector<int> indices;
    for (int i = 0; i < c.IndexCount(); ++i) indices.push_back(c.IndexAt(i));
    EXPECT_EQ(indices, e.indices);
    std::vector<std::string> names, arguments;
    for (int i = 0; i < c.ComponentCount(); ++i) {
      names.push_back(c.ComponentName(i).c_str());
      arguments.push_back(Argument(c, i));
    }
    EXPECT_EQ(names, e.names);
    EXPECT_EQ(arguments, e.arguments);
  }
}

TEST(LinkGrammar, StepsWalkTheChainThenTheComponents) {
  Chain chain({3, 0, 6});
  gbb_TraverseContext c(chain.Leaf(), cow_String("#systems:2/:4/name/:/x:"), 0, nullptr);
  EXPECT_EQ(c.CurrentKind(), 0);  // nothing current before the first step
  EXPECT_EQ(c.CurrentIndex(), 0);
  const int kinds[] = {1, 1, 1, 3, 1, 2, 1, 2};
  const int numbers[] = {3, 0, 6, 0, 4, 0, -1, 0};
  const char* names[] = {"", "", "", "systems", "", "name", "", "x"};
  for (int step = 0; step < 8; ++step) {
    ASSERT_TRUE(c.Advance()) << step;
    EXPECT_EQ(c.CurrentKind(), kinds[step]) << step;
    EXPECT_EQ(c.CurrentIndex(), numbers[step]) << step;
    EXPECT_STREQ(c.CurrentName().c_str(), names[step]) << step;
  }
  EXPECT_FALSE(c.Advance());
  EXPECT_EQ(c.CurrentKind(), 0);
}

TEST(LinkGrammar, ArgumentsConvertLikeAtoiWithoutOverflow) {
  Chain chain({1});
  gbb_TraverseContext c(chain.Leaf(), "#a:12x/b/c:99999999999", 0, nullptr);
  c.Advance();  // the sim's number
  EXPECT_EQ(c.CurrentArgumentAsInt(), 0);
  EXPECT_STREQ(c.CurrentArgument().c_str(), "");
  c.Advance();
  EXPECT_EQ(c.CurrentArgumentAsInt(), 12);
  EXPECT_TRUE(c.CurrentNameIs("a"));
  EXPECT_FALSE(c.CurrentNameIs("ab"));
  c.Advance();
  EXPECT_EQ(c.CurrentArgumentAsInt(), 0);  // no argument
  c.Advance();
  EXPECT_EQ(c.CurrentArgumentAsInt(), 2147483647);
}

}  // namespace
