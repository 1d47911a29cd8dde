// The ddb tool, run as a user runs it: on databases made by the crash
// workload, on tampered copies, and on files that are no database at all.
#include <DDB_PDM_Core.h>
#include <gtest/gtest.h>
#include <hdf5.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "frame/DDB_PDM_Core_version.h"
#include "reliability/crash_workload.h"
#include "support/h5_raw.h"
#include "support/scratch_dir.h"

namespace {

struct Ran {
  int status;
  std::string out;
};

// Runs ddb with `arguments`; standard error goes to `err` (or is dropped).
Ran Ddb(const std::string& arguments, const std::string& err = "/dev/null") {
  std::string command = std::string(DDB_TOOL) + " " + arguments + " 2>" + err;
  FILE* pipe = popen(command.c_str(), "r");
  Ran run{-1, ""};
  char buffer[4096];
  for (size_t n; (n = fread(buffer, 1, sizeof buffer, pipe)) > 0;) run.out.append(buffer, n);
  int status = pclose(pipe);
  run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return run;
}

// A database of its own: a mesh of `nodes` nodes with the node sets "all"
// and "first20", then `systems` FE systems sharing one distribution of
// labels (1, 2, ...; 1000 more at each index of `changed`) and one of masks.
// `added(i)` is called after the i-th system is committed.
void MakeMesh(const std::string& path, int nodes, int systems, const std::vector<int>& changed = {},
              const std::function<void(int)>& added = nullptr) {
  msfD_Root root(0);
  msfD_Sim sim = root.createSim(path.c_str(), "m", 0);
  QELSimContextID context = sim.distributionService().Context();
  QELSimCollectionID c = QELSimCollectionRef::Create(context, nodes);
  std::vector<int> all(static_cast<size_t>(nodes)), labels(all.size()), masks(all.size(), 7);
  for (int i = 0; i < nodes; ++i) all[static_cast<size_t>(i)] = i;
  for (int i = 0; i < nodes; ++i) labels[static_cast<size_t>(i)] = i + 1;
  for (int i : changed) labels[static_cast<size_t>(i)] += 1000;
  QELSimCSetID set = QELSimCollectionRef(c).CreateOrderedCSet(all.data(), nodes);
  QELSimDistributionID l = QELSimDistributionRef::CreateInt32(set, labels.data());
  QELSimDistributionID m = QELSimDistributionRef::CreateInt32(set, masks.data());
  msfD_Mesh mesh =
      sim.DiscreteModel(msfD_DiscreteModel::New(c, c, 0)).Mesh(msfD_Mesh::New(c, c, 0));
  ada_MapString<QELSimCSetID> sets;
  sets.insert("all", set);
  sets.insert("first20", QELSimCollectionRef(c).CreateOrderedCSet(all.data(), 20));
  mesh.NodeSets(sets);
  for (int i = 0; i < systems; ++i) {
    mesh.systems().add(fesD_FESystem::New(("s" + std::to_string(i)).c_str(), l, m, 0));
    if (added) added(i);
  }
  root.closeSim(sim);
}

class DdbTool : public testing::Test {
 protected:
  // Plain, modal (two events) and substructure systems; b's damping has one
  // more commit: alpha 17 -> 18.5.
  static void SetUpTestSuite() {
    s_dir = new ScratchDir();
    RunWorkload(
        s_dir->File("a.sim"), 18, [](int, const Facts&) {}, [] {});
    RunWorkload(
        s_dir->File("b.sim"), 19, [](int, const Facts&) {}, [] {});
  }
  static void TearDownTestSuite() { delete s_dir; }
  static std::string File(const char* name) { return s_dir->File(name); }
  // Runs ddb and expects its exit status and its whole output.
  static void Expect(const std::string& arguments, int status, const std::string& out) {
    SCOPED_TRACE("ddb " + arguments);
    Ran run = Ddb(arguments);
    EXPECT_EQ(run.status, status);
    EXPECT_EQ(run.out, out);
  }
  static ScratchDir* s_dir;
};
ScratchDir* DdbTool::s_dir = nullptr;

TEST_F(DdbTool, CheckFindsAHealthyDatabaseCleanAndEachProblemWithItsPlace) {
  Expect("check " + File("a.sim"), 0, File("a.sim") + ": clean\n");

  // An unknown class at the first FE system: one problem, where it is.
  std::string bad = File("bad.sim");
  WriteWholeFile(bad, ReadWholeFile(File("a.sim")));
  RawWriteClass(bad, "/sim/discreteModel/mesh/systems/0", "com.trevolo.Unknown");
  Expect("check " + bad, 1,
         "#/discreteModel/mesh/systems/:0: the object cannot be opened\n"
         "#/discreteModel/mesh/systems/:0: **ERROR fesD_FESystemHolder::Open: class "
         "com.trevolo.Unknown is not registered\n");
  nlohmann::json json = nlohmann::json::parse(Ddb("check --json " + bad).out);
  EXPECT_EQ(json["problems"].size(), 2u);
  EXPECT_EQ(json["problems"][0]["link"], "#/discreteModel/mesh/systems/:0");

  // A members record that stops decoding: the library's line, then where it stopped.
  std::string cut = File("cut.sim");
  WriteWholeFile(cut, ReadWholeFile(File("a.sim")));
  Bytes body = {0x03};
  PutInt(body, 12);  // the mesh's "nodes": a collection identifier, cut after its kind
  body.push_back(0x08);
  PutInt(body, 1);
  RawWriteDataset(cut, "/sim/discreteModel/mesh/#simpleTypeMembers", Stream(body));
  Expect("check " + cut, 1,
         "#/discreteModel/mesh: **ERROR msfD_MeshImpl::LoadMembers: error 2 loading class "
         "data\n#/discreteModel/mesh: the members record stops decoding at byte 14 "
         "(msfD_MeshImpl, stream error 2: the bytes end inside a value)\n");
  // The other stream errors, in words: a value of another type, an
  // identifier longer than any.
  body = {0x03};
  PutInt(body, 12);
  body.push_back(0x06);
  RawWriteDataset(cut, "/sim/discreteModel/mesh/#simpleTypeMembers", Stream(body));
  Expect("check " + cut, 1,
         "#/discreteModel/mesh: **ERROR msfD_MeshImpl::LoadMembers: error 1 loading class "
         "data\n#/discreteModel/mesh: the members record stops decoding at byte 10 "
         "(msfD_MeshImpl, stream error 1: a type tag that does not match)\n");
  body = {0x03};
  PutInt(body, 12);
  body.push_back(0x08);
  PutInt(body, 65);
  RawWriteDataset(cut, "/sim/discreteModel/mesh/#simpleTypeMembers", Stream(body));
  Expect("check " + cut, 1,
         "#/discreteModel/mesh: **ERROR msfD_MeshImpl::LoadMembers: error 3 loading class "
         "data\n#/discreteModel/mesh: the members record stops decoding at byte 14 "
         "(msfD_MeshImpl, stream error 3: an identifier longer than 64 bytes)\n");

  // An empty class identifier is named as such, not as an unknown class.
  std::string none = File("none.sim");
  WriteWholeFile(none, ReadWholeFile(File("a.sim")));
  RawWriteClass(none, "/sim/discreteModel/mesh/systems/1", "");
  Expect("check " + none, 1,
         "#/discreteModel/mesh/systems/:1: the object cannot be opened: no class identifier\n");

  // A pending journal is something a host must settle first.
  WriteWholeFile(bad + "-journal", "DDBJRNL\x02 and whatever follows");
  Ran pending = Ddb("check " + bad);
  EXPECT_EQ(pending.status, 1);
  // What the library says on opening belongs to the sim too.
  const std::string said =
      "#: a journal is pending: the database was not closed by the library\n"
      "#: **ERROR hdf_Journal::Open: discarded an incomplete transaction of journal " +
      bad + "-journal\n#/";
  EXPECT_EQ(pending.out.substr(0, said.size()), said);
}

TEST_F(DdbTool, FilesThatAreNoDatabaseExitWithTwo) {
  WriteWholeFile(File("text.sim"), "not a database\n");
  hid_t f = H5Fcreate(File("plain.h5").c_str(), H5F_ACC_TRUNC, H5P_DEFAULT, H5P_DEFAULT);
  H5Fclose(f);
  for (const char* file : {"missing.sim", "text.sim", "plain.h5"}) {
    std::string err = File("err.txt");
    for (const char* command : {"check", "tree", "info", "dot"}) {
      Ran run = Ddb(std::string(command) + " " + File(file), err);
      EXPECT_EQ(run.status, 2) << command << " " << file;
      EXPECT_EQ(ReadWholeFile(err).substr(0, 5), "ddb: ") << command << " " << file;
    }
    EXPECT_EQ(Ddb("get " + File(file) + " '#'", err).status, 2) << file;  // a link's way in
  }
  EXPECT_EQ(ReadWholeFile(File("err.txt")),
            "ddb: **ERROR hdf_Group::GroupOpen: cannot open group sim in / of file " +
                File("plain.h5") + "\n");
}

TEST_F(DdbTool, TreeGetAndJsonShowWhatAHostReads) {
  Ran tree = Ddb("tree " + File("a.sim"));
  EXPECT_EQ(tree.status, 0);
  EXPECT_NE(tree.out.find("  discreteModel: com.trevolo.DiscreteModel  #/discreteModel\n"
                          "    vectors = collection 0 of 6\n"),
            std::string::npos);
  EXPECT_NE(tree.out.find("      systems[1]: com.trevolo.ModalSystem  "
                          "#/discreteModel/mesh/systems/:1\n        systemName = \"m15\"\n"),
            std::string::npos);
  nlohmann::json json = nlohmann::json::parse(Ddb("tree --json " + File("a.sim")).out);
  EXPECT_EQ(json["class"], "com.trevolo.Sim");
  EXPECT_EQ(json["children"][0]["children"][0]["members"]["nodes"], "collection 0 of 6");

  Expect("get " + File("a.sim") + " '#/discreteModel/mesh/systems/:2/damping'", 0,
         "sim: com.trevolo.SubDamp  #/discreteModel/mesh/systems/:2/damping\n"
         "  alpha = 17\n  beta = 0\n  structural = 0\n  mass = 0\n  volume = 0\n");
  EXPECT_EQ(Ddb("get " + File("a.sim") + " '#/discreteModel/mesh/systems/:99'").status, 1);
  // Every class shows its members wherever the reading starts, and --depth
  // counts from there.
  const std::string model =
      "sim: com.trevolo.DiscreteModel  #/discreteModel\n  vectors = collection 0 of 6\n"
      "  localNodes = collection 0 of 6\n";
  EXPECT_EQ(Ddb("get " + File("a.sim") + " '#/discreteModel'").out.substr(0, model.size()), model);
  Ran mesh = Ddb("tree " + File("a.sim") + " '#/discreteModel/mesh' --depth 1");
  EXPECT_NE(
      mesh.out.find("\n  systems[0]: com.trevolo.FESystem  #/discreteModel/mesh/systems/:0\n"),
      std::string::npos)
      << mesh.out;
  EXPECT_EQ(mesh.out.find("events["), std::string::npos) << mesh.out;
  Expect("tree " + File("a.sim") + " --depth 1", 0,
         "sim: com.trevolo.Sim  #\n  discreteModel: com.trevolo.DiscreteModel  #/discreteModel\n"
         "    vectors = collection 0 of 6\n    localNodes = collection 0 of 6\n"
         "    localFaces = -\n    frames = -\n    integrationPoints = -\n"
         "    sectionPoints = -\n    components = -\n");
}

TEST_F(DdbTool, DiffComparesMemberByMemberWithTolerances) {
  const std::string a = File("a.sim"), ab = a + " " + File("b.sim");
  const std::string alpha = "#/discreteModel/mesh/systems/:2/damping alpha: 17 | 18.5\n";
  Expect("diff " + a + " " + a, 0, "");
  Expect("diff " + ab, 1, alpha);
  Expect("diff --quiet " + ab, 1, "");
  Expect("diff --abs 2 " + ab, 0, "");
  Expect("diff --rel alpha=0.1 " + ab, 0, "");
  Expect("diff --rel beta=0.5 " + ab, 1, alpha);
  nlohmann::json json = nlohmann::json::parse(Ddb("diff --json " + ab).out);
  EXPECT_EQ(json["differences"][0]["second"], "18.5");
}

TEST_F(DdbTool, InfoAndAGraphThatGraphvizRenders) {
  Ran info = Ddb("info " + File("a.sim"));
  EXPECT_EQ(info.status, 0);
  EXPECT_NE(info.out.find("  2 x com.trevolo.ModalEvent\n"), std::string::npos) << info.out;
  EXPECT_NE(info.out.find("  HDF5 superblock version 2: the 1.8 format; "
                          "read with HDF5 1.10.8\n  journal none\n"),
            std::string::npos)
      << info.out;
  EXPECT_EQ(nlohmann::json::parse(Ddb("info --json " + File("a.sim")).out)["journal_pending"],
            false);
  Ran svg = Ddb("dot " + File("a.sim") + " | dot -Tsvg");
  EXPECT_EQ(svg.status, 0);
  EXPECT_NE(svg.out.find("<svg"), std::string::npos);
  EXPECT_NE(svg.out.find("com.trevolo.SubDamp"), std::string::npos);
}

TEST_F(DdbTool, UsageErrorsExitWithTwoAndTheUsageLine) {
  const std::string usage =
      "usage: ddb {tree|get|check|diff|dot|info} FILE... [options]  (ddb --help for more)\n";
  const std::string err = File("usage_err.txt"), a = File("a.sim");
  Ran none = Ddb("", err);
  EXPECT_EQ(none.status, 2);
  EXPECT_EQ(none.out, "");
  EXPECT_EQ(ReadWholeFile(err), "ddb: A subcommand is required\n" + usage);
  for (const std::string& arguments : std::vector<std::string>{
           "frobnicate " + a, "tree", "tree " + a + " --bogus", "tree " + a + " --depth x",
           "get " + a, "diff " + a, "diff " + a + " " + a + " --abs -1",
           "diff " + a + " " + a + " --rel alpha=x", "info " + a + " --follow --interval 0",
           "tree " + a + " --follow --interval x", "check " + a + " --follow",
           "get " + a + " '#' --interval 1", "info " + a + " --interval 1"}) {
    SCOPED_TRACE("ddb " + arguments);
    Ran run = Ddb(arguments, err);
    EXPECT_EQ(run.status, 2);
    EXPECT_EQ(run.out, "");
    std::string said = ReadWholeFile(err);
    EXPECT_EQ(said.substr(0, 5), "ddb: ");
    ASSERT_GE(said.size(), usage.size());
    EXPECT_EQ(said.substr(said.size() - usage.size()), usage);
    EXPECT_EQ(std::count(said.begin(), said.end(), '\n'), 2);
  }
}

TEST_F(DdbTool, HelpAndVersionExitWithZero) {
  unsigned major = 0, minor = 0, release = 0;
  H5get_libversion(&major, &minor, &release);
  EXPECT_STREQ(DDB_PDM_Core_version(), DDB_PROJECT_VERSION);
  Expect("--version", 0,
         std::string("DDB_PDM_Core ") + DDB_PROJECT_VERSION + " (HDF5 " + std::to_string(major) +
             "." + std::to_string(minor) + "." + std::to_string(release) + ")\n");
  for (const char* arguments : {"help", "--help", "tree --help", "diff -h"}) {
    SCOPED_TRACE(arguments);
    Ran run = Ddb(arguments);
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out.find("Usage: ddb "), run.out.find("Usage: "));
    EXPECT_NE(run.out.find("Usage: ddb "), std::string::npos);
  }
}

}  // namespace

namespace {

TEST_F(DdbTool, LongArraysAreSummarisedUnlessFull) {
  const std::string mesh = File("mesh21.sim");
  MakeMesh(mesh, 21, 1);
  const std::string summary =
      "sim: com.trevolo.Mesh  #/discreteModel/mesh\n  nodes = collection 0 of 21\n";
  Ran tree = Ddb("tree " + mesh + " '#/discreteModel/mesh'");
  EXPECT_EQ(tree.status, 0);
  EXPECT_EQ(tree.out.substr(0, summary.size()), summary);
  EXPECT_NE(tree.out.find("\n  nodeSets[all] = set 0/0 [0 1 2 3 4 ... 16 17 18 19 20] "
                          "(21 values, min 0, max 20)\n"
                          "  nodeSets[first20] = set 0/1 [0 1 2 3 4 5 6 7 8 9 10 11 12 13 14 "
                          "15 16 17 18 19]\n"),
            std::string::npos)
      << tree.out;
  Expect("get " + mesh + " '#/discreteModel/mesh/systems/:0'", 0,
         "sim: com.trevolo.FESystem  #/discreteModel/mesh/systems/:0\n  systemName = \"s0\"\n"
         "  nodalLabels = distribution 0 [1 2 3 4 5 ... 17 18 19 20 21] "
         "(21 values, min 1, max 21)\n"
         "  nodalActivityMask = distribution 1 [7 7 7 7 7 ... 7 7 7 7 7] "
         "(21 values, min 7, max 7)\n");
  std::string whole;
  for (int i = 1; i <= 21; ++i) whole += (i > 1 ? " " : "") + std::to_string(i);
  Ran full = Ddb("get --full " + mesh + " '#/discreteModel/mesh/systems/:0'");
  EXPECT_NE(full.out.find("nodalLabels = distribution 0 [" + whole + "]\n"), std::string::npos)
      << full.out;
  nlohmann::json json = nlohmann::json::parse(Ddb("tree --json " + mesh).out);
  EXPECT_EQ(json["children"][0]["children"][0]["members"]["nodeSets[all]"],
            "set 0/0 [0 1 2 3 4 ... 16 17 18 19 20] (21 values, min 0, max 20)");
}

}  // namespace

namespace {

TEST_F(DdbTool, DiffCountsDifferingValuesAndShowsObjectsOfOneFileWhole) {
  const std::string m1 = File("m1.sim"), m2 = File("m2.sim"), m3 = File("m3.sim");
  MakeMesh(m1, 21, 1);
  MakeMesh(m2, 21, 2, {17, 19});
  MakeMesh(m3, 22, 1);
  const std::string systems = "#/discreteModel/mesh systems: 1 | 2\n";
  const std::string only =
      "#/discreteModel/mesh/systems/:1 (object): (absent) | com.trevolo.FESystem\n"
      "  systemName = \"s1\"\n"
      "  nodalLabels = distribution 0 [1 2 3 4 5 ... 17 1018 19 1020 21] "
      "(21 values, min 1, max 1020)\n"
      "  nodalActivityMask = distribution 1 [7 7 7 7 7 ... 7 7 7 7 7] (21 values, min 7, max 7)\n";
  const std::string labels =
      "#/discreteModel/mesh/systems/:0 nodalLabels: 2 of 21 values differ, first at [17]: "
      "18 | 1018\n";
  Expect("diff " + m1 + " " + m2, 1, systems + labels + only);
  // Per element within the tolerances of the member.
  Expect("diff --abs nodalLabels=1000 " + m1 + " " + m2, 1, systems + only);
  Expect("diff --abs nodalLabels=999 " + m1 + " " + m2, 1, systems + labels + only);
  Expect("diff --rel nodalLabels=0.99 " + m1 + " " + m2, 1, systems + only);
  // The other way round the object is in the first file only.
  Ran reversed = Ddb("diff " + m2 + " " + m1);
  EXPECT_NE(reversed.out.find(
                "#/discreteModel/mesh/systems/:1 (object): com.trevolo.FESystem | (absent)\n"
                "  systemName = \"s1\"\n"),
            std::string::npos)
      << reversed.out;
  // Counts that differ, values that agree as far as both go.
  Expect("diff " + m1 + " " + m3, 1,
         "#/discreteModel localNodes: collection 0 of 21 | collection 0 of 22\n"
         "#/discreteModel vectors: collection 0 of 21 | collection 0 of 22\n"
         "#/discreteModel/mesh elements: collection 0 of 21 | collection 0 of 22\n"
         "#/discreteModel/mesh nodeSets[all]: 21 | 22 values\n"
         "#/discreteModel/mesh nodes: collection 0 of 21 | collection 0 of 22\n"
         "#/discreteModel/mesh/systems/:0 nodalActivityMask: 21 | 22 values\n"
         "#/discreteModel/mesh/systems/:0 nodalLabels: 21 | 22 values\n");
  nlohmann::json json = nlohmann::json::parse(Ddb("diff --json " + m1 + " " + m2).out);
  const nlohmann::json& d = json["differences"][1];
  EXPECT_EQ(d["member"], "nodalLabels");
  EXPECT_EQ(d["counts"], nlohmann::json({21, 21}));
  EXPECT_EQ(d["differing"], 2);
  EXPECT_EQ(d["first_index"], 17);
  EXPECT_EQ(d["values_at_first_index"], nlohmann::json({18, 1018}));
  EXPECT_EQ(d["text"], "2 of 21 values differ, first at [17]: 18 | 1018");
  EXPECT_EQ(d["first"], "distribution 0 [1 2 3 4 5 ... 17 18 19 20 21] (21 values, min 1, max 21)");
  EXPECT_EQ(json["differences"][2]["object"]["members"]["systemName"], "\"s1\"");
  // --full: the arrays whole in what is shown.
  Ran full = Ddb("diff --full " + m1 + " " + m2);
  EXPECT_NE(full.out.find("  nodalLabels = distribution 0 [1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 "
                          "17 1018 19 1020 21]\n"),
            std::string::npos)
      << full.out;
}

}  // namespace

namespace {

TEST_F(DdbTool, TolerancesOfUnknownMembersOrNoNumberAreRefused) {
  const std::string usage =
      "usage: ddb {tree|get|check|diff|dot|info} FILE... [options]  (ddb --help for more)\n";
  const std::string err = File("tolerance_err.txt"), aa = File("a.sim") + " " + File("a.sim");
  const std::string names =
      "; the names are acousticModes, activeModes, alpha, beta, cases, components, "
      "distributions, dofTypes, dofs, elementFields, elementSets, elements, eventName, "
      "eventTypeID, events, faces, frameFields, frames, instanceSets, instances, "
      "integrationPoints, lagrangeNodes, loads, localFaces, localNodeFields, localNodeSets, "
      "localNodes, mass, meshFields, modes, nodalActivityMask, nodalLabels, nodeFields, "
      "nodeSets, nodes, propertyEvaluation, recoveryElements, recoveryNodes, regionFields, "
      "regionSets, regions, residualModeDofs, residualModes, retainedDofs, retainedNodes, "
      "sectionPointSets, sectionPoints, selectiveRecoveryNodes, solverDofOrdering, structural, "
      "structuralModes, surfaceFields, surfaces, systemName, systems, userDistributions, "
      "vectors, volume\n";
  const std::string number = ": a tolerance is a finite non-negative number, or NAME=number\n";
  const std::vector<std::pair<std::string, std::string>> refused = {
      {"--rel property_evaluation=1e-9",
       "ddb: --rel property_evaluation=1e-9: no member is named property_evaluation (the "
       "tool's name is propertyEvaluation)" +
           names},
      {"--abs nonsense=1", "ddb: --abs nonsense=1: no member is named nonsense" + names},
      {"--abs =1", "ddb: --abs =1: no member is named " + names},
      {"--abs nan", "ddb: --abs nan" + number},
      {"--rel inf", "ddb: --rel inf" + number},
      {"--abs 1e999", "ddb: --abs 1e999" + number},
      {"--rel alpha=-0.5", "ddb: --rel alpha=-0.5" + number},
      {"--abs alpha=NaN", "ddb: --abs alpha=NaN" + number},
      {"--abs alpha=", "ddb: --abs alpha=" + number},
      {"--abs 2 --rel 0.1 --rel beta=1x", "ddb: --rel beta=1x" + number}};
  for (const auto& r : refused) {
    SCOPED_TRACE(r.first);
    Ran run = Ddb("diff " + aa + " " + r.first, err);
    EXPECT_EQ(run.status, 2);
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(ReadWholeFile(err), r.second + usage);
  }
  // Names of every kind of member are taken: values, identifiers, maps, arrays.
  for (const char* taken : {"alpha=0", "nodeSets=1", "nodalLabels=2", "systems=0", "0"}) {
    EXPECT_EQ(Ddb("diff " + aa + " --abs " + taken + " --rel " + taken).status, 0) << taken;
  }
}

}  // namespace

namespace {

TEST_F(DdbTool, DotDrawsALongArrayAsOneNodeWithItsCount) {
  const std::string five = File("five.sim");
  MakeMesh(five, 21, 5);
  const std::string head =
      "digraph database {\n  node [shape=box];\n  \"sim\" [label=\"sim\\ncom.trevolo.Sim\"];\n"
      "  \"sim\" -> \"sim/0\";\n"
      "  \"sim/0\" [label=\"discreteModel\\ncom.trevolo.DiscreteModel\"];\n"
      "  \"sim/0\" -> \"sim/0/0\";\n  \"sim/0/0\" [label=\"mesh\\ncom.trevolo.Mesh\"];\n"
      "  \"sim/0/0\" -> \"sim/0/0/systems\";\n";
  Expect("dot " + five, 0,
         head +
             "  \"sim/0/0/systems\" [label=\"systems\\n5 elements\\n5 x "
             "com.trevolo.FESystem\"];\n}\n");
  // An element that cannot be opened marks the node.
  std::string broken = File("five_broken.sim");
  WriteWholeFile(broken, ReadWholeFile(five));
  RawWriteClass(broken, "/sim/discreteModel/mesh/systems/3", "");
  Expect("dot " + broken, 0,
         head +
             "  \"sim/0/0/systems\" [label=\"systems\\n5 elements\\n1 x (none)\\n4 x "
             "com.trevolo.FESystem\", color=red];\n}\n");
  Ran svg = Ddb("dot " + broken + " | dot -Tsvg");
  EXPECT_EQ(svg.status, 0);
  EXPECT_NE(svg.out.find("5 elements"), std::string::npos);
}

}  // namespace

namespace {

// Runs ddb with `arguments` beside a writer process that adds 8 systems,
// one commit every 150 ms; ddb starts after the first.
Ran BesideAWriter(const std::string& path, const std::string& arguments) {
  int ready[2];
  if (pipe(ready) != 0) return {-1, ""};
  pid_t writer = fork();
  if (writer == 0) {
    close(ready[0]);
    MakeMesh(path, 21, 8, {}, [&](int i) {
      if (i == 0 && write(ready[1], "w", 1) != 1) _exit(1);
      usleep(150000);
    });
    _exit(0);
  }
  close(ready[1]);
  char byte = 0;
  bool started = read(ready[0], &byte, 1) == 1;
  close(ready[0]);
  Ran run = started ? Ddb(arguments + " --follow " + path) : Ran{-1, ""};
  int status = -1;
  waitpid(writer, &status, 0);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  return run;
}

std::vector<std::string> Split(const std::string& text, const std::string& separator) {
  std::vector<std::string> parts;
  size_t start = 0;
  for (size_t at; (at = text.find(separator, start)) != std::string::npos;) {
    parts.push_back(text.substr(start, at - start));
    start = at + separator.size();
  }
  parts.push_back(text.substr(start));
  return parts;
}

TEST_F(DdbTool, FollowReprintsAtEachCommitUntilTheWriterCloses) {
  const std::string closed = "--- the writer closed the database ---\n";
  // info: each showing a snapshot of one more system, separated by numbered lines.
  const std::string live = File("live.sim");
  Ran info = BesideAWriter(live, "info --interval 0.02");
  EXPECT_EQ(info.status, 0);
  ASSERT_GE(info.out.size(), closed.size()) << info.out;
  EXPECT_EQ(info.out.substr(info.out.size() - closed.size()), closed);
  std::vector<std::string> shown =
      Split(info.out.substr(0, info.out.size() - closed.size()), "--- snapshot ");
  ASSERT_GE(shown.size(), 3u) << info.out;  // the first and at least two more
  EXPECT_NE(shown[0].find("  journal in use: a writer has the database open\n"), std::string::npos)
      << shown[0];
  int last = 0;
  for (size_t i = 0; i < shown.size(); ++i) {
    SCOPED_TRACE(shown[i]);
    std::string text = shown[i];
    if (i > 0) {
      std::string numbered = std::to_string(i + 1) + " ---\n";
      EXPECT_EQ(text.substr(0, numbered.size()), numbered);
      text = text.substr(numbered.size());
    }
    EXPECT_EQ(text.substr(0, live.size() + 1), live + "\n");
    size_t at = text.find(" x com.trevolo.FESystem\n");
    ASSERT_NE(at, std::string::npos);
    int systems = std::stoi(text.substr(text.rfind("\n  ", at) + 3));
    EXPECT_GE(systems, last);  // snapshots never go back
    last = systems;
  }
  EXPECT_EQ(last, 8);

  // tree: the whole tree each time; the last one holds every system.
  const std::string tree = File("live_tree.sim");
  Ran trees = BesideAWriter(tree, "tree --depth 3 --interval 0.02");
  EXPECT_EQ(trees.status, 0);
  EXPECT_NE(trees.out.find("--- snapshot 2 ---\nsim: com.trevolo.Sim  #\n"), std::string::npos);
  EXPECT_EQ(trees.out.substr(trees.out.size() - closed.size()), closed);
  EXPECT_NE(trees.out.rfind("      systems[7]: com.trevolo.FESystem  "
                            "#/discreteModel/mesh/systems/:7\n        systemName = \"s7\"\n"),
            std::string::npos);

  // --json: one document a line, nothing else.
  const std::string json = File("live_json.sim");
  Ran lines = BesideAWriter(json, "info --json --interval 0.02");
  EXPECT_EQ(lines.status, 0);
  std::vector<std::string> documents = Split(lines.out, "\n");
  EXPECT_EQ(documents.back(), "");
  documents.pop_back();
  EXPECT_GE(documents.size(), 3u);
  for (const std::string& d : documents) EXPECT_EQ(nlohmann::json::parse(d)["file"], json);
  EXPECT_EQ(nlohmann::json::parse(documents.back())["classes"]["com.trevolo.FESystem"], 8);

  // No writer: one showing, as without --follow.
  Expect("info --follow " + File("a.sim"), 0, Ddb("info " + File("a.sim")).out);
  const std::string err = File("follow_err.txt");
  for (const char* command : {"info", "tree"}) {
    Ran missing = Ddb(std::string(command) + " --follow " + File("missing.sim"), err);
    EXPECT_EQ(missing.status, 2);
    EXPECT_EQ(missing.out, "");
    EXPECT_EQ(ReadWholeFile(err), "ddb: no such file: " + File("missing.sim") + "\n");
  }
}

}  // namespace
