// The link-text grammar and its normalisation, and the context's steps.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "persistence/gbb_Path.h"
#include "persistence/gbb_TraverseContext.h"

namespace {

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

TEST(Paths, IndexParentAndRoot) {
  EXPECT_EQ(gbb_Path().Index(), -1);
  EXPECT_TRUE(gbb_Path().Root().IsEmpty());
  EXPECT_TRUE(gbb_Path().Parent().IsEmpty());
  gbb_RootImpl* fakeRoot = reinterpret_cast<gbb_RootImpl*>(0x1000);  // identity only
  gbb_PathImpl sim(gbb_Path(), gbb_Root(fakeRoot), 4);
  gbb_PathImpl model(&sim, gbb_Root(), 0);
  gbb_PathImpl mesh(&model, gbb_Root(), 6);
  gbb_PathImpl systems(&mesh, gbb_Root(), 18);
  gbb_Path p(&systems);
  EXPECT_EQ(p.Index(), 18);
  EXPECT_EQ(p.Parent().Index(), 6);
  EXPECT_EQ(p.Root().Impl(), fakeRoot);
  sim.Set(gbb_Path(), gbb_Root(fakeRoot), 2);  // renumbering is seen below
  gbb_TraverseContext c(p, "#", 0, nullptr);
  EXPECT_EQ(c.IndexAt(0), 2);
}

}  // namespace
