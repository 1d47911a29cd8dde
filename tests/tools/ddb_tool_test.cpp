// The ddb tool, run as a user runs it: on databases made by the crash
// workload, on tampered copies, and on files that are no database at all.
#include <gtest/gtest.h>
#include <hdf5.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdio>
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
         "(msfD_MeshImpl, stream error 2)\n");

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
           "diff " + a + " " + a + " --rel alpha=x"}) {
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
