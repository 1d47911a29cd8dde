// The HDF5 wrapper: round trips, value semantics and closing, and the one
// line each failure prints (HDF5's own error stack never shows). The
// platform core beneath it is pinned in platform_core_test.cpp.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "platform/core/aio_ostream.h"
#include "platform/core/cow_String.h"
#include "platform/hdf/hdf.h"
#include "support/capture.h"
#include "support/scratch_dir.h"

namespace {

long OpenObjects() {
  return static_cast<long>(H5Fget_obj_count(H5F_OBJ_ALL, H5F_OBJ_ALL));
}

class HdfWrapper : public testing::Test {
 protected:
  ScratchDir dir;
  std::string path = dir.File("w.h5");
};

TEST_F(HdfWrapper, AttributesAndExtensibleDatasetsAreStoredAsCreated) {
  {
    hdf_File file = hdf_File::Create(path.c_str(), hdf_File::Exclusive);
    ASSERT_TRUE(file.IsValid());
    EXPECT_FALSE(file.IsReadOnly());
    EXPECT_EQ(file.Name(), cow_String(path.c_str()));
    hdf_Group sim = file.RootGroup().GroupCreate("sim", 0);
    EXPECT_EQ(sim.Name(), cow_String("/sim"));

    int type[2] = {1523728409, 0};
    hdf_Attribute a = sim.AttributeCreate("type", hdf_Datatype::NATIVE_INT(), hdf_Dataspace({2}));
    EXPECT_TRUE(a.Write(hdf_Datatype::NATIVE_INT(), type));
    EXPECT_EQ(a.Name(), cow_String("type"));

    hdf_PropListDatasetCreation chunked;
    EXPECT_TRUE(chunked.SetChunk({1024}));
    hdf_Dataset d = sim.DatasetCreate("#simpleTypeMembers", hdf_Datatype::NATIVE_UCHAR(),
                                      hdf_Dataspace({0}, {hdf_Unlimited}), chunked);
    ASSERT_TRUE(d.IsValid());
    EXPECT_EQ(d.Space().Dimensions(), hdf_DimensionList({0}));
    EXPECT_EQ(d.Space().MaxDimensions(), hdf_DimensionList({hdf_Unlimited}));

    // Extend never shrinks. (Writing and reading through hyperslabs is
    // checked with the C API in the storage-group test.)
    EXPECT_TRUE(d.Extend({50}));
    EXPECT_TRUE(d.Extend({10}));
    EXPECT_EQ(d.Space().Dimensions(), hdf_DimensionList({50}));
  }
  EXPECT_EQ(OpenObjects(), 0);

  hdf_File file = hdf_File::Open(path.c_str(), hdf_File::ReadOnly);
  ASSERT_TRUE(file.IsValid());
  EXPECT_TRUE(file.IsReadOnly());
  hdf_Group root = file.RootGroup();
  EXPECT_TRUE(root.GetObjinfoExists("sim"));
  EXPECT_TRUE(root.GetObjinfoExists("sim/#simpleTypeMembers"));
  EXPECT_EQ(root.NumObjects(), 1);
  hdf_Group sim = root.GroupOpen("sim");
  EXPECT_TRUE(sim.AttributeExists("type"));
  hdf_Attribute a = sim.AttributeOpen("type");
  EXPECT_TRUE(a.Type().Equal(hdf_Datatype::NATIVE_INT()));
  EXPECT_FALSE(a.Type().Equal(hdf_Datatype::NATIVE_UCHAR()));
  EXPECT_EQ(a.Space().Dimensions(), hdf_DimensionList({2}));
  int type[2] = {0, 7};
  EXPECT_TRUE(a.Read(hdf_Datatype::NATIVE_INT(), type));
  EXPECT_EQ(type[0], 1523728409);
  EXPECT_EQ(type[1], 0);

  hdf_Dataset d = sim.DatasetOpen("#simpleTypeMembers");
  EXPECT_TRUE(d.Type().Equal(hdf_Datatype::NATIVE_UCHAR()));
  EXPECT_EQ(d.Name(), cow_String("/sim/#simpleTypeMembers"));
  EXPECT_EQ(d.Space().Dimensions(), hdf_DimensionList({50}));
}

TEST_F(HdfWrapper, CopiesShareTheObjectAndTheLastOneClosesIt) {
  hdf_Group kept;
  {
    hdf_File file = hdf_File::Create(path.c_str(), hdf_File::Exclusive);
    kept = file.RootGroup().GroupCreate("sim", 0);
  }
  // The group keeps its file open, as HDF5 does.
  ASSERT_TRUE(kept.IsValid());
  EXPECT_TRUE(kept.GroupCreate("child", 0).IsValid());
  hdf_Group copy = kept;
  kept = hdf_Group();
  EXPECT_FALSE(kept.IsValid());
  EXPECT_TRUE(copy.GetObjinfoExists("child"));
  EXPECT_GT(OpenObjects(), 0);
  copy = hdf_Group();
  EXPECT_EQ(OpenObjects(), 0);
}

TEST_F(HdfWrapper, CloseEndsEveryObjectAndCopyOfTheFile) {
  hdf_File file = hdf_File::Create(path.c_str(), hdf_File::Exclusive);
  hdf_File copy = file;
  hdf_Group sim = file.RootGroup().GroupCreate("sim", 0);
  hdf_Attribute a = sim.AttributeCreate("type", hdf_Datatype::NATIVE_INT(), hdf_Dataspace({2}));
  hdf_PropListDatasetCreation plain;
  hdf_Dataset d = sim.DatasetCreate("d", hdf_Datatype::NATIVE_INT(), hdf_Dataspace({3}), plain);
  ASSERT_TRUE(d.IsValid());

  file.Close();
  EXPECT_EQ(OpenObjects(), 0);
  EXPECT_FALSE(copy.IsValid());
  EXPECT_FALSE(sim.IsValid());
  EXPECT_FALSE(a.IsValid());
  EXPECT_FALSE(d.IsValid());

  // Stale objects do nothing and say nothing.
  CaptureErr err;
  int v[3] = {1, 2, 3};
  EXPECT_FALSE(sim.GroupCreate("x", 0).IsValid());
  EXPECT_FALSE(sim.GroupOpen("x").IsValid());
  EXPECT_FALSE(sim.GetObjinfoExists("d"));
  EXPECT_FALSE(a.Write(hdf_Datatype::NATIVE_INT(), v));
  EXPECT_FALSE(d.Write(hdf_Datatype::NATIVE_INT(), hdf_Dataspace({3}), hdf_Dataspace({3}), v));
  EXPECT_FALSE(d.Extend({5}));
  EXPECT_FALSE(copy.Flush());
  EXPECT_FALSE(copy.RootGroup().IsValid());
  EXPECT_EQ(copy.Name(), cow_String());
  EXPECT_EQ(err.Take(), "");

  // Closed completely: the same file opens again at once.
  EXPECT_TRUE(hdf_File::Open(path.c_str(), hdf_File::ReadWrite).IsValid());
}

TEST_F(HdfWrapper, DefaultObjectsAreInvalidAndHarmless) {
  CaptureErr err;
  hdf_File file;
  hdf_Group group;
  hdf_Dataset dataset;
  hdf_Attribute attribute;
  hdf_Dataspace space;
  hdf_Datatype type;
  int v = 0;
  EXPECT_FALSE(file.IsValid() || group.IsValid() || dataset.IsValid() || attribute.IsValid() ||
               space.IsValid() || type.IsValid());
  EXPECT_FALSE(file.RootGroup().IsValid());
  EXPECT_FALSE(file.IsReadOnly());
  EXPECT_FALSE(group.AttributeExists("a"));
  EXPECT_FALSE(group.DatasetOpen("d").IsValid());
  EXPECT_EQ(group.NumObjects(), 0);
  EXPECT_FALSE(attribute.Read(hdf_Datatype::NATIVE_INT(), &v));
  EXPECT_FALSE(dataset.Read(hdf_Datatype::NATIVE_INT(), space, space, &v));
  EXPECT_FALSE(dataset.Space().IsValid());
  EXPECT_EQ(space.Dimensions().Count(), 0);
  EXPECT_FALSE(space.SelectHyperslab({0}, {1}));
  EXPECT_FALSE(type.Equal(type));
  EXPECT_EQ(err.Take(), "");
}

TEST_F(HdfWrapper, FailingCallsPrintOneLineAndProbesNothing) {
  hdf_File file = hdf_File::Create(path.c_str(), hdf_File::Exclusive);
  hdf_Group sim = file.RootGroup().GroupCreate("sim", 0);
  hdf_PropListDatasetCreation plain;
  sim.DatasetCreate("d", hdf_Datatype::NATIVE_INT(), hdf_Dataspace({3}), plain);
  const std::string of = " of file " + path + "\n";

  CaptureErr err;
  EXPECT_FALSE(sim.GetObjinfoExists("discreteModel"));
  EXPECT_FALSE(sim.GetObjinfoExists("a/b/c"));
  EXPECT_FALSE(sim.GetObjinfoExists(""));
  EXPECT_FALSE(sim.AttributeExists("class"));
  EXPECT_FALSE(sim.TryGroupOpen("discreteModel").IsValid());
  EXPECT_FALSE(sim.TryDatasetOpen("x").IsValid());
  EXPECT_TRUE(sim.TryDatasetOpen("d").IsValid());
  EXPECT_EQ(err.Take(), "");

  // A call that fails: what it printed.
  auto failed = [&](bool succeeded) {
    EXPECT_FALSE(succeeded);
    return err.Take();
  };
  EXPECT_EQ(failed(sim.GroupOpen("discreteModel").IsValid()),
            "**ERROR hdf_Group::GroupOpen: cannot open group discreteModel in /sim" + of);
  EXPECT_EQ(failed(file.RootGroup().GroupCreate("sim", 0).IsValid()),
            "**ERROR hdf_Group::GroupCreate: cannot create group sim in /" + of);
  EXPECT_EQ(failed(sim.AttributeOpen("class").IsValid()),
            "**ERROR hdf_Group::AttributeOpen: cannot open attribute class in /sim" + of);
  EXPECT_EQ(failed(sim.DatasetOpen("x").IsValid()),
            "**ERROR hdf_Group::DatasetOpen: cannot open dataset x in /sim" + of);
  EXPECT_EQ(
      failed(
          sim.DatasetCreate("d", hdf_Datatype::NATIVE_INT(), hdf_Dataspace({3}), plain).IsValid()),
      "**ERROR hdf_Group::DatasetCreate: cannot create dataset d in /sim" + of);

  hdf_Dataset d = sim.DatasetOpen("d");
  int four[4] = {};
  // Contiguous: cannot grow.
  EXPECT_EQ(failed(d.Extend({5})), "**ERROR hdf_Dataset::Extend: cannot extend /sim/d" + of);
  EXPECT_EQ(failed(d.Write(hdf_Datatype::NATIVE_INT(), hdf_Dataspace({4}), d.Space(), four)),
            "**ERROR hdf_Dataset::Write: cannot write /sim/d" + of);
  EXPECT_EQ(failed(d.Read(hdf_Datatype::NATIVE_INT(), hdf_Dataspace({4}), d.Space(), four)),
            "**ERROR hdf_Dataset::Read: cannot read /sim/d" + of);

  hdf_Attribute a = sim.AttributeCreate("a", hdf_Datatype::NATIVE_INT(), hdf_Dataspace({1}));
  EXPECT_EQ(failed(a.Write(hdf_Datatype::NATIVE_INT(), nullptr)),
            "**ERROR hdf_Attribute::Write: cannot write attribute a in /sim" + of);
  EXPECT_EQ(failed(a.Read(hdf_Datatype(), four)),
            "**ERROR hdf_Attribute::Read: cannot read attribute a in /sim" + of);

  EXPECT_EQ(failed(hdf_Dataspace({2}, {1, 1}).IsValid()),
            "**ERROR hdf_Dataspace::hdf_Dataspace: 1 current but 2 maximum dimensions\n");
  EXPECT_EQ(failed(hdf_Dataspace({3}, {2}).IsValid()),
            "**ERROR hdf_Dataspace::hdf_Dataspace: cannot make a dataspace of rank 1\n");
  EXPECT_EQ(failed(hdf_Dataspace({3}).SelectHyperslab({0, 0}, {1, 1})),
            "**ERROR hdf_Dataspace::SelectHyperslab: cannot select 2-dimensional block at "
            "2-dimensional start in a dataspace of rank 1\n");
  hdf_PropListDatasetCreation chunks;
  EXPECT_EQ(failed(chunks.SetChunk({})),
            "**ERROR hdf_PropListDatasetCreation::SetChunk: cannot use chunks of rank 0\n");
}

TEST_F(HdfWrapper, WritesToAReadOnlyFileSayWhyAndLeaveItAlone) {
  hdf_File::Create(path.c_str(), hdf_File::Exclusive).RootGroup().GroupCreate("sim", 0);
  std::string before = ReadWholeFile(path);
  {
    hdf_File file = hdf_File::Open(path.c_str(), hdf_File::ReadOnly);
    hdf_Group sim = file.RootGroup().GroupOpen("sim");
    CaptureErr err;
    EXPECT_FALSE(sim.GroupCreate("x", 0).IsValid());
    EXPECT_EQ(err.Take(), "**ERROR hdf_Group::GroupCreate: cannot create group x in /sim of file " +
                              path + ": file is read-only\n");
    EXPECT_FALSE(
        sim.AttributeCreate("a", hdf_Datatype::NATIVE_INT(), hdf_Dataspace({1})).IsValid());
    EXPECT_EQ(err.Take(),
              "**ERROR hdf_Group::AttributeCreate: cannot create attribute a in /sim of file " +
                  path + ": file is read-only\n");
  }
  EXPECT_EQ(ReadWholeFile(path), before);
}

TEST_F(HdfWrapper, HdfErrorStackNeverReachesStandardError) {
  hdf_File file = hdf_File::Create(path.c_str(), hdf_File::Exclusive);
  testing::internal::CaptureStderr();
  file.RootGroup().GroupOpen("missing");
  hdf_File::Open(dir.File("none.h5").c_str(), hdf_File::ReadOnly);
  aio_cerr.flush();
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "**ERROR hdf_Group::GroupOpen: cannot open group missing in / of file " + path +
                "\n**ERROR hdf_File::Open: cannot open file " + dir.File("none.h5") +
                ": no such file\n");
}

// Bad files given to Open, for reading or for update: each refused with its
// reason, nothing crashes; a cut-short file is refused at every cut.
TEST_F(HdfWrapper, OpeningWhatIsNotAWholeHdf5FileIsRefused) {
  {
    hdf_File file = hdf_File::Create(path.c_str(), hdf_File::Exclusive);
    hdf_Group g = file.RootGroup().GroupCreate("sim", 0);
    int v[256] = {};
    hdf_PropListDatasetCreation plain;
    g.DatasetCreate("d", hdf_Datatype::NATIVE_INT(), hdf_Dataspace({256}), plain)
        .Write(hdf_Datatype::NATIVE_INT(), hdf_Dataspace({256}), hdf_Dataspace({256}), v);
  }
  std::string whole = ReadWholeFile(path);
  ASSERT_GT(whole.size(), 1500u);
  WriteWholeFile(dir.File("text.h5"), "this is not an HDF5 file at all\n");
  WriteWholeFile(dir.File("empty.h5"), "");
  struct Case {
    std::string name, reason;
  };
  std::vector<Case> cases = {{dir.File("missing.h5"), "no such file"},
                             {dir.Path(), "it is a directory"},
                             {dir.File("text.h5"), "not an HDF5 file"},
                             {dir.File("empty.h5"), "not an HDF5 file"},
                             {"", "no file name"}};
  for (size_t cut : {size_t{4}, size_t{8}, size_t{40}, size_t{96}, size_t{500}, size_t{1000},
                     whole.size() - 1}) {
    std::string name = dir.File("cut" + std::to_string(cut) + ".h5");
    WriteWholeFile(name, whole.substr(0, cut));
    cases.push_back({name, cut < 8 ? "not an HDF5 file" : "damaged or truncated HDF5 file"});
  }
  CaptureErr err;
  for (const Case& c : cases) {
    for (hdf_File::OpenFlags flags : {hdf_File::ReadOnly, hdf_File::ReadWrite}) {
      EXPECT_FALSE(hdf_File::Open(c.name.c_str(), flags).IsValid()) << c.name;
      EXPECT_EQ(err.Take(),
                "**ERROR hdf_File::Open: cannot open file " + c.name + ": " + c.reason + "\n");
    }
  }
  EXPECT_FALSE(hdf_File::Open(nullptr, hdf_File::ReadOnly).IsValid());
  EXPECT_EQ(err.Take(), "**ERROR hdf_File::Open: cannot open file : no file name\n");
  EXPECT_EQ(OpenObjects(), 0);
}

TEST_F(HdfWrapper, CreationIsRefusedWhereItCannotOrMustNotHappen) {
  CaptureErr err;
  // Creates `name`, expecting a refusal; answers the refusal's reason.
  auto refused = [&](const std::string& name, hdf_File::CreateFlags flags) {
    EXPECT_FALSE(hdf_File::Create(name.c_str(), flags).IsValid()) << name;
    return err.Take();
  };
  auto because = [](const std::string& name, const char* reason) {
    return "**ERROR hdf_File::Create: cannot create file " + name + ": " + reason + "\n";
  };
  const char* busy = "HDF5 refused (no permission, or the file is open)";
  std::string nested = dir.File("no/such/dir/x.h5");
  EXPECT_EQ(refused(nested, hdf_File::Exclusive), because(nested, "no such directory"));
  EXPECT_EQ(refused("/proc/ddb_test.h5", hdf_File::Truncate), because("/proc/ddb_test.h5", busy));
  EXPECT_EQ(refused(dir.Path(), hdf_File::Truncate), because(dir.Path(), "it is a directory"));

  hdf_File open = hdf_File::Create(path.c_str(), hdf_File::Exclusive);
  ASSERT_TRUE(open.IsValid());
  EXPECT_EQ(refused(path, hdf_File::Exclusive), because(path, "it exists"));
  // Even when overwriting is asked for, a file that is open stays untouched.
  EXPECT_EQ(refused(path, hdf_File::Truncate), because(path, "open for update in this process"));
  EXPECT_TRUE(open.RootGroup().GroupCreate("still", 0).IsValid());
  open.Close();
  EXPECT_TRUE(hdf_File::Create(path.c_str(), hdf_File::Truncate).IsValid());

  if (geteuid() != 0) {
    std::string inside = dir.File("locked") + "/x.h5";
    mkdir(dir.File("locked").c_str(), 0555);
    EXPECT_EQ(refused(inside, hdf_File::Exclusive), because(inside, busy));
  }
}

}  // namespace
