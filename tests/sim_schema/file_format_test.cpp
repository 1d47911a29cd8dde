// The HDF5 file format of databases. New files are written in HDF5's 1.8
// format with a small chunk index (hdf_File.cpp says why), which HDF5's own
// tools read; a database that an earlier version wrote in the original
// format (tests/data/original_format.sim, with the facts it holds in
// original_format.facts) still opens, reads and updates, and stays in its
// format.
#include <gtest/gtest.h>
#include <hdf5.h>

#include <cstdio>
#include <fstream>
#include <string>

#include "fes/fes.h"
#include "platform/service/QELSimService.h"
#include "reliability/crash_workload.h"
#include "sim_schema/sim_schema.h"
#include "support/scratch_dir.h"

namespace {

// The superblock's version and the chunk index's K, as "superblock 2, K 4".
std::string FormatOf(const std::string& path) {
  hid_t f = H5Fopen(path.c_str(), H5F_ACC_RDONLY, H5P_DEFAULT);
  if (f < 0) return "does not open";
  H5F_info2_t info;
  std::string format = H5Fget_info2(f, &info) >= 0
                           ? "superblock " + std::to_string(info.super.version)
                           : "superblock unknown";
  unsigned chunkIndexK = 0;
  hid_t creation = H5Fget_create_plist(f);
  H5Pget_istore_k(creation, &chunkIndexK);
  H5Pclose(creation);
  H5Fclose(f);
  return format + ", K " + std::to_string(chunkIndexK);
}

// The facts file: one "key<TAB>value" per line.
Facts FixtureFacts() {
  Facts facts;
  std::ifstream in(std::string(DDB_TESTS_DIR) + "/data/original_format.facts");
  for (std::string line; std::getline(in, line);) {
    size_t tab = line.find('\t');
    if (tab != std::string::npos) facts[line.substr(0, tab)] = line.substr(tab + 1);
  }
  return facts;
}

// h5dump (HDF5's tool, not the library) reads every object and every
// members dataset of the file.
void ExpectH5DumpReads(const std::string& path) {
  ASSERT_EQ(std::string(DDB_H5DUMP).find("NOTFOUND"), std::string::npos)
      << "h5dump (hdf5-tools) is needed";
  std::FILE* pipe = popen((std::string(DDB_H5DUMP) + " " + path + " 2>&1").c_str(), "r");
  ASSERT_NE(pipe, nullptr);
  std::string out;
  char buffer[4096];
  for (size_t n; (n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;) out.append(buffer, n);
  EXPECT_EQ(pclose(pipe), 0) << out.substr(0, 2000);
  EXPECT_NE(out.find("GROUP \"systems\""), std::string::npos);
  EXPECT_NE(out.find("DATASET \"#simpleTypeMembers\""), std::string::npos);
  EXPECT_EQ(out.find("error"), std::string::npos) << out.substr(0, 2000);
}

TEST(FileFormat, NewDatabasesAreInThe18FormatAndHdf5ToolsReadThem) {
  ScratchDir dir;
  std::string path = dir.File("new.sim");
  Facts last;
  RunWorkload(path, 23, [&](int, const Facts& facts) { last = facts; });
  EXPECT_EQ(ReadFacts(path, true), last) << FactsDiff(last, ReadFacts(path, true));
  EXPECT_EQ(FormatOf(path), "superblock 2, K 4");
  ExpectH5DumpReads(path);
}

TEST(FileFormat, OriginalFormatDatabaseOpensReadsAndUpdates) {
  ScratchDir dir;
  std::string path = dir.File("original.sim");
  WriteWholeFile(path, ReadWholeFile(std::string(DDB_TESTS_DIR) + "/data/original_format.sim"));
  Facts expected = FixtureFacts();
  ASSERT_EQ(expected.size(), 37u);
  ASSERT_EQ(FormatOf(path), "superblock 0, K 32");
  Facts read = ReadFacts(path, true);
  EXPECT_EQ(read, expected) << FactsDiff(expected, read);

  // Updated through the library: a new collection, a new FE system, a setter.
  {
    msfD_Root root(0);
    msfD_Sim sim = root.openSim(path.c_str(), "", 0);
    ASSERT_TRUE(!!sim);
    QELSimContextID context = sim.distributionService().Context();
    QELSimCollectionRef::Create(context, 9);
    auto systems = sim.discreteModel().mesh().systems();
    systems.add(fesD_FESystem::New("added", QELSimDistributionID(context.Number(), 0),
                                   QELSimDistributionID(context.Number(), 1), 0));
    systems.get(0).SystemName("renamed");
    root.closeSim(sim);
  }
  expected["C3"] = "size 9";
  expected["sys[0].name"] = "renamed";
  for (const auto& fact :
       Facts{{"class", "F"}, {"labels", "D0"}, {"masks", "D1"}, {"name", "added"}, {"user", ""}}) {
    expected["sys[4]." + fact.first] = fact.second;
  }
  expected["systems"] = "5";
  read = ReadFacts(path, false);
  EXPECT_EQ(read, expected) << FactsDiff(expected, read);
  EXPECT_EQ(FormatOf(path), "superblock 0, K 32");
  ExpectH5DumpReads(path);
}

}  // namespace
