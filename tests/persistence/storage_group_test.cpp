// Storage groups on a real file: the on-file layout is checked with the
// HDF5 C API directly, independent of the wrapper, and tampered files give
// messages or the documented empty results, never a crash.
#include <gtest/gtest.h>
#include <hdf5.h>

#include <string>
#include <vector>

#include "persistence/gbb_Group.h"
#include "platform/hdf/hdf.h"
#include "support/capture.h"
#include "support/scratch_dir.h"

namespace {

// An attribute of `object`, read with the C API: its type and dimensions,
// then its values ("int[2] 1523728409 0"), bytes as they are ("uchar[80] "
// and the 80 bytes). Empty when the attribute is missing.
std::string Attribute(const std::string& file, const char* object, const char* name) {
  std::string text;
  hid_t f = H5Fopen(file.c_str(), H5F_ACC_RDONLY, H5P_DEFAULT);
  hid_t o = H5Oopen(f, object, H5P_DEFAULT);
  if (H5Aexists(o, name) > 0) {
    hid_t a = H5Aopen(o, name, H5P_DEFAULT);
    hid_t t = H5Aget_type(a);
    hid_t s = H5Aget_space(a);
    bool isInt = H5Tequal(t, H5T_NATIVE_INT) > 0;
    text = isInt ? "int[" : H5Tequal(t, H5T_NATIVE_UCHAR) > 0 ? "uchar[" : "other[";
    hsize_t dims[4] = {};
    int rank = H5Sget_simple_extent_dims(s, dims, nullptr);
    for (int i = 0; i < rank; ++i) text += (i > 0 ? "x" : "") + std::to_string(dims[i]);
    size_t n = static_cast<size_t>(H5Sget_simple_extent_npoints(s));
    text += "] ";
    if (isInt) {
      std::vector<int> ints(n);
      H5Aread(a, H5T_NATIVE_INT, ints.data());
      for (size_t i = 0; i < n; ++i) text += (i > 0 ? " " : "") + std::to_string(ints[i]);
    } else {
      std::string bytes(n, '\0');
      H5Aread(a, H5T_NATIVE_UCHAR, &bytes[0]);
      text += bytes;
    }
    H5Sclose(s);
    H5Tclose(t);
    H5Aclose(a);
  }
  H5Oclose(o);
  H5Fclose(f);
  return text;
}

class StorageGroups : public testing::Test {
 protected:
  void SetUp() override {
    file = hdf_File::Create(path.c_str(), hdf_File::Exclusive);
    ASSERT_TRUE(file.IsValid());
    sim = gbb_Group(file.RootGroup().GroupCreate("sim", 0), kSimFileType);
  }
  void Reopen() {
    sim = gbb_Group();
    file.Close();
  }
  ScratchDir dir;
  std::string path = dir.File("groups.h5");
  hdf_File file;
  gbb_Group sim;
};

TEST_F(StorageGroups, ObjectGroupsCarryTypeOnlyWithATagAndAnEmptyClass) {
  gbb_Group child = sim.CreateGroup("discreteModel");
  ASSERT_TRUE(child.IsValid());
  EXPECT_TRUE(sim.Exists("discreteModel"));
  EXPECT_FALSE(sim.Exists("mesh"));
  EXPECT_TRUE(child.ReadClassID().IsEmpty());
  child.WriteClassID(gbb_ClassID("com.trevolo.DiscreteModel"));
  EXPECT_STREQ(child.ReadClassID().Bytes(), "com.trevolo.DiscreteModel");
  Reopen();

  EXPECT_EQ(Attribute(path, "/sim", "type"), "int[2] 1523728409 0");
  EXPECT_EQ(Attribute(path, "/sim", "class"), "uchar[80] " + std::string(80, '\0'));
  EXPECT_EQ(Attribute(path, "/sim/discreteModel", "type"), "");
  EXPECT_EQ(Attribute(path, "/sim/discreteModel", "class"),
            "uchar[80] com.trevolo.DiscreteModel" + std::string(80 - 25, '\0'));
}

TEST_F(StorageGroups, RepositoriesCountTheirElements) {
  gbb_Repository systems = sim.CreateRepository("systems");
  EXPECT_EQ(systems.ReadSize(), 0);
  gbb_Group first = systems.CreateElement(0);
  systems.CreateElement(1);
  systems.WriteSize(2);
  EXPECT_EQ(systems.ReadSize(), 2);
  EXPECT_TRUE(systems.OpenElement(1).IsValid());
  EXPECT_TRUE(first.ReadClassID().IsEmpty());
  Reopen();
  EXPECT_EQ(Attribute(path, "/sim/systems", "#size"), "int[1x1] 2");
  EXPECT_EQ(Attribute(path, "/sim/systems", "class"), "");
  EXPECT_EQ(Attribute(path, "/sim/systems/0", "class"), "uchar[80] " + std::string(80, '\0'));
  EXPECT_EQ(Attribute(path, "/sim/systems/1", "class"), "uchar[80] " + std::string(80, '\0'));
}

TEST_F(StorageGroups, MembersDatasetIsChunkedExtensibleBytes) {
  gbb_Dataset created = sim.CreateDataset("#simpleTypeMembers");
  EXPECT_EQ(created.Size(), 0);
  gbb_Dataset data = sim.OpenDataset("#simpleTypeMembers");
  std::vector<unsigned char> fifty(50), ten(10, 7), back(100, 0xEE);
  for (int i = 0; i < 50; ++i) fifty[static_cast<size_t>(i)] = static_cast<unsigned char>(i);
  EXPECT_EQ(data.Write(fifty.data(), 50, 0), 50);
  EXPECT_EQ(data.Write(ten.data(), 10, 0), 10);
  EXPECT_EQ(data.Size(), 50);  // datasets only grow
  EXPECT_EQ(data.Read(back.data(), 100, 50), 0);
  EXPECT_EQ(data.Read(back.data(), 100, 60), 0);
  EXPECT_EQ(data.Read(back.data(), 100, 40), 10);
  EXPECT_EQ(back[0], 40);
  EXPECT_EQ(back[10], 0xEE);  // nothing written past what was read
  EXPECT_EQ(data.Read(back.data(), 100, 0), 50);
  EXPECT_EQ(back[9], 7);
  EXPECT_EQ(back[10], 10);
  Reopen();

  hid_t f = H5Fopen(path.c_str(), H5F_ACC_RDONLY, H5P_DEFAULT);
  hid_t d = H5Dopen2(f, "/sim/#simpleTypeMembers", H5P_DEFAULT);
  hid_t t = H5Dget_type(d);
  EXPECT_GT(H5Tequal(t, H5T_NATIVE_UCHAR), 0);
  hid_t s = H5Dget_space(d);
  hsize_t dims[1], maxdims[1];
  EXPECT_EQ(H5Sget_simple_extent_dims(s, dims, maxdims), 1);
  EXPECT_EQ(dims[0], 50u);
  EXPECT_EQ(maxdims[0], H5S_UNLIMITED);
  hid_t p = H5Dget_create_plist(d);
  EXPECT_EQ(H5Pget_layout(p), H5D_CHUNKED);
  hsize_t chunk[1] = {0};
  EXPECT_EQ(H5Pget_chunk(p, 1, chunk), 1);
  EXPECT_EQ(chunk[0], 1024u);
  H5Pclose(p);
  H5Sclose(s);
  H5Tclose(t);
  H5Dclose(d);
  H5Fclose(f);
}

// Tampers with a group through the C API.
void Tamper(const std::string& path, void (*edit)(hid_t group)) {
  hid_t f = H5Fopen(path.c_str(), H5F_ACC_RDWR, H5P_DEFAULT);
  hid_t g = H5Gopen2(f, "/sim/x", H5P_DEFAULT);
  edit(g);
  H5Gclose(g);
  H5Fclose(f);
}

// Every byte of the new attribute is `fill`.
void ReplaceAttribute(hid_t g, const char* name, hid_t type, std::vector<hsize_t> dims,
                      unsigned char fill = 'z') {
  if (H5Aexists(g, name) > 0) H5Adelete(g, name);
  hid_t s = H5Screate_simple(static_cast<int>(dims.size()), dims.data(), nullptr);
  hid_t a = H5Acreate2(g, name, type, s, H5P_DEFAULT, H5P_DEFAULT);
  std::vector<unsigned char> junk(4096, fill);
  H5Awrite(a, type, junk.data());
  H5Aclose(a);
  H5Sclose(s);
}

TEST_F(StorageGroups, TamperedClassAttributesGiveAnEmptyIdentifier) {
  sim.CreateGroup("x");
  Reopen();
  struct Case {
    const char* what;
    void (*edit)(hid_t);
    bool empty;
  } cases[] = {
      {"missing", [](hid_t g) { H5Adelete(g, "class"); }, true},
      {"longer than 80", [](hid_t g) { ReplaceAttribute(g, "class", H5T_NATIVE_UCHAR, {100}); },
       true},
      {"two-dimensional",
       [](hid_t g) {
         ReplaceAttribute(g, "class", H5T_NATIVE_UCHAR, {80, 2});
       },
       true},
      {"a string type",
       [](hid_t g) {
         hid_t t = H5Tcopy(H5T_C_S1);
         H5Tset_size(t, 80);
         ReplaceAttribute(g, "class", t, {1});
         H5Tclose(t);
       },
       true},
      {"not terminated", [](hid_t g) { ReplaceAttribute(g, "class", H5T_NATIVE_UCHAR, {80}); },
       false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    Tamper(path, c.edit);
    hdf_File reopened = hdf_File::Open(path.c_str(), hdf_File::ReadOnly);
    gbb_Group x(reopened.RootGroup().GroupOpen("sim").GroupOpen("x"));
    CaptureErr err;
    gbb_ClassID id = x.ReadClassID();
    EXPECT_EQ(id.IsEmpty(), c.empty);
    if (!c.empty) {
      EXPECT_EQ(id.Length(), 80);
    }
  }
}

TEST_F(StorageGroups, TamperedSizeAttributesCountAsEmptyWithAMessage) {
  sim.CreateRepository("x");
  Reopen();
  struct Case {
    const char* what;
    void (*edit)(hid_t);
    std::string message;
  } cases[] = {
      {"wrong shape",
       [](hid_t g) {
         ReplaceAttribute(g, "#size", H5T_NATIVE_INT, {2, 1});
       },
       "**ERROR gbb_Repository::ReadSize: \"#size\" does not hold one integer in /sim/x\n"},
      {"negative",
       [](hid_t g) {
         ReplaceAttribute(g, "#size", H5T_NATIVE_INT, {1, 1}, 0xFF);
       },
       "**ERROR gbb_Repository::ReadSize: \"#size\" is negative in /sim/x\n"},
      {"missing", [](hid_t g) { H5Adelete(g, "#size"); },
       "**ERROR hdf_Group::AttributeOpen: cannot open attribute #size in /sim/x of file " + path +
           "\n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    Tamper(path, c.edit);
    hdf_File reopened = hdf_File::Open(path.c_str(), hdf_File::ReadOnly);
    gbb_Repository x(reopened.RootGroup().GroupOpen("sim").GroupOpen("x"));
    CaptureErr err;
    EXPECT_EQ(x.ReadSize(), 0);
    EXPECT_EQ(err.Take(), c.message);
  }
}

TEST_F(StorageGroups, DatasetsOfAnotherShapeAreRefusedWithAMessage) {
  // A members dataset of ints with the given dimensions, in a new group.
  auto groupWithInts = [&](const char* name, std::vector<hsize_t> dims) {
    gbb_Group g = sim.CreateGroup(name);
    hid_t s = H5Screate_simple(static_cast<int>(dims.size()), dims.data(), nullptr);
    H5Dclose(H5Dcreate2(g.Platform().Id(), "#simpleTypeMembers", H5T_NATIVE_INT, s, H5P_DEFAULT,
                        H5P_DEFAULT, H5P_DEFAULT));
    H5Sclose(s);
    return g;
  };
  gbb_Group x = groupWithInts("x", {4, 4});
  CaptureErr err;
  gbb_Dataset data = x.OpenDataset("#simpleTypeMembers");
  unsigned char bytes[64];
  EXPECT_EQ(data.Size(), 0);
  EXPECT_EQ(data.Read(bytes, 64, 0), 0);
  EXPECT_EQ(data.Write(bytes, 4, 0), 0);
  EXPECT_EQ(err.Take(),
            "**ERROR gbb_Dataset::Size: members dataset is not one-dimensional in /sim/x\n"
            "**ERROR gbb_Dataset::Read: members dataset is not one-dimensional in /sim/x\n"
            "**ERROR gbb_Dataset::Write: members dataset is not one-dimensional in /sim/x\n");
  EXPECT_EQ(gbb_Group().OpenDataset("#simpleTypeMembers").Size(), 0);

  gbb_Group y = groupWithInts("y", {4});
  EXPECT_EQ(y.OpenDataset("#simpleTypeMembers").Read(bytes, 64, 0), 0);
  EXPECT_EQ(err.Take(),
            "**ERROR gbb_Dataset::Read: members dataset does not hold bytes in /sim/y\n");
}

}  // namespace
