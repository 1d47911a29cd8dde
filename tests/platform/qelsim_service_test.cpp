// The simulation-database service: its identifiers and their external byte
// form; contexts, collections, ordered sets and distributions; storage that
// survives reopening; read-only contexts; and identifiers that name nothing.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>
#include <vector>

#include "platform/service/QELSimIDExternal.h"
#include "platform/service/QELSimIDs.h"
#include "platform/service/QELSimService.h"
#include "support/capture.h"
#include "support/h5_raw.h"
#include "support/scratch_dir.h"

namespace {

std::vector<unsigned char> FormBytes(const QELSimIDExternal& e) {
  return std::vector<unsigned char>(e.Bytes(), e.Bytes() + e.Length());
}

TEST(QELSimIDs, DefaultsAreTheNullIdentifiers) {
  const QELSimContextID context;
  const QELSimCollectionID collection;
  const QELSimCSetID cset;
  const QELSimDistributionID distribution;
  const QELSimDSetID dset;
  EXPECT_EQ(context.Number(), -1);
  EXPECT_TRUE(context.IsNull());
  EXPECT_EQ(collection.ContextNumber(), -1);
  EXPECT_FALSE(collection.IsValid());
  EXPECT_FALSE(cset.IsValid());
  EXPECT_FALSE(distribution.IsValid());
  EXPECT_FALSE(dset.IsValid());
  // Missing is judged by the last word alone.
  EXPECT_FALSE(QELSimCSetID(4, 7, kQELSimNoMinor).IsValid());
  EXPECT_TRUE(QELSimCSetID(-1, kQELSimNoMinor, 0).IsValid());
  EXPECT_EQ(QELSimDistributionID(2, 5), QELSimDistributionID(2, 5));
  EXPECT_NE(QELSimDistributionID(2, 5), QELSimDistributionID(3, 5));
  EXPECT_EQ(sizeof(QELSimContextID), 8u);
}

TEST(QELSimIDExternal, FormsAreLittleEndianWordsWithoutContextReadWithinTheirLength) {
  QELSimIDExternal c(QELSimCollectionID(9, 0x01020304));
  EXPECT_EQ(FormBytes(c), (std::vector<unsigned char>{1, 0, 0, 0, 1, 0, 0, 0, 4, 3, 2, 1}));
  EXPECT_EQ(c.CollectionIDMinor(), 0x01020304u);
  EXPECT_EQ(c.CSetIDMinor(), kQELSimNoMinor);

  QELSimIDExternal s(QELSimCSetID(9, 5, 6));
  EXPECT_EQ(FormBytes(s),
            (std::vector<unsigned char>{2, 0, 0, 0, 1, 0, 0, 0, 5, 0, 0, 0, 6, 0, 0, 0}));
  EXPECT_EQ(s.CollectionIDMinor(), 5u);
  EXPECT_EQ(s.CSetIDMinor(), 6u);

  QELSimIDExternal d{QELSimDistributionID()};
  EXPECT_EQ(d.Length(), 12);
  EXPECT_EQ(d.DistributionIDMinor(), kQELSimNoMinor);
  EXPECT_EQ(QELSimIDExternal(QELSimDSetID(1, 8)).DSetIDMinor(), 8u);

  // Arbitrary lengths never read past the form.
  QELSimIDExternal e;
  e.SetLength(1000);
  EXPECT_EQ(e.Length(), QELSimIDExternal::kMaxLength);
  e.SetLength(-3);
  EXPECT_EQ(e.Length(), 0);
  EXPECT_EQ(e.CollectionIDMinor(), kQELSimNoMinor);
  QELSimIDExternal shortSet(QELSimCSetID(1, 2, 3));
  shortSet.SetLength(12);  // the set word is cut off
  EXPECT_EQ(shortSet.CSetIDMinor(), kQELSimNoMinor);
  EXPECT_EQ(shortSet.CollectionIDMinor(), 2u);
  QELSimIDExternal wrongKind(QELSimDistributionID(1, 2));
  EXPECT_EQ(wrongKind.CollectionIDMinor(), kQELSimNoMinor);
}

long OpenObjects() {
  return static_cast<long>(H5Fget_obj_count(H5F_OBJ_ALL, H5F_OBJ_ALL));
}

QELSimContextID Create(const std::string& path) {
  return QELSimManager::CreateContext(path.c_str(), hdf_File::Exclusive, 102, false, 1);
}
QELSimContextID Open(const std::string& path, hdf_File::OpenFlags flags) {
  return QELSimManager::OpenContext(path.c_str(), flags, 102, false, 1);
}

// Reads a distribution the way the DOF numbering does.
std::vector<int> ReadInt32(QELSimDistributionID id) {
  QELSimDistributionRef distribution(id);
  QELSimArray<QELSimPersistentDrawerDesc> drawers(1);
  distribution.QueryDrawers(drawers);
  QELSimCSetID set = drawers[0].DimensionSets()[0];
  std::vector<int> values(static_cast<size_t>(drawers[0].DataSizeItems(0)) + 1, -7);
  QELSimTransfer t(id);
  t.SetRead();
  t.SetBufferPadding(false);
  t.SetDim(0, set);
  t.CheckView();
  t.SetBuffer(0, values.data(), (values.size() - 1) * 4);
  EXPECT_TRUE(t.ExecRead());
  t.RelinquishBuffers();
  EXPECT_EQ(values.back(), -7);  // nothing past the buffer
  values.pop_back();
  return values;
}

std::vector<int> Members(QELSimCSetID id) {
  QELSimCSet set(id);
  std::vector<int> members(static_cast<size_t>(set.Size()));
  set.OrderedMembers(members.data());
  return members;
}

struct Made {
  QELSimCollectionID collection;
  QELSimCSetID set;
  QELSimDistributionID distribution;
};

Made MakeSample(QELSimContextID context) {
  Made m;
  m.collection = QELSimCollectionRef::Create(context, 10);
  QELSimCollectionRef collection(m.collection);
  const int order[3] = {3, 0, 7};
  m.set = collection.CreateOrderedCSet(order, 3);
  const int values[3] = {30, 0, -70};
  m.distribution = QELSimDistributionRef::CreateInt32(m.set, values);
  return m;
}

class QELSimService : public testing::Test {
 protected:
  ScratchDir dir;
  std::string path = dir.File("db.h5");
};

TEST_F(QELSimService, StoresCollectionsSetsAndDistributionsAcrossReopening) {
  QELSimContextID context = Create(path);
  ASSERT_FALSE(context.IsNull());
  Made m = MakeSample(context);
  EXPECT_EQ(m.collection, QELSimCollectionID(context.Number(), 0));
  EXPECT_EQ(m.set, QELSimCSetID(context.Number(), 0, 0));
  EXPECT_EQ(m.distribution, QELSimDistributionID(context.Number(), 0));
  QELSimCollectionID second = QELSimCollectionRef::Create(context, 0);
  EXPECT_EQ(second, QELSimCollectionID(context.Number(), 1));
  QELSimCSetID empty = QELSimCollectionRef(second).CreateOrderedCSet(nullptr, 0);
  QELSimDistributionID none = QELSimDistributionRef::CreateInt32(empty, nullptr);
  QELSimCSetID again = QELSimCollectionRef(m.collection).CreateOrderedCSet(nullptr, 0);
  EXPECT_EQ(again, QELSimCSetID(context.Number(), 0, 1));
  QELSimManager::CloseContext(context);
  EXPECT_EQ(OpenObjects(), 0);

  QELSimContextID reopened = Open(path, hdf_File::ReadOnly);
  ASSERT_FALSE(reopened.IsNull());
  EXPECT_NE(reopened.Number(), context.Number());
  int n = reopened.Number();
  EXPECT_EQ(QELSimCollectionRef(QELSimCollectionID(n, 0)).Size(), 10);
  EXPECT_EQ(QELSimCollectionRef(QELSimCollectionID(n, 1)).Size(), 0);
  EXPECT_EQ(Members(QELSimCSetID(n, 0, 0)), (std::vector<int>{3, 0, 7}));
  EXPECT_EQ(Members(QELSimCSetID(n, 1, 0)), std::vector<int>());

  EXPECT_EQ(QELSimDistributionRef(QELSimDistributionID(n, 0)).NumDrawers(), 1);
  EXPECT_EQ(ReadInt32(QELSimDistributionID(n, 0)), (std::vector<int>{30, 0, -70}));
  EXPECT_EQ(ReadInt32(QELSimDistributionID(n, none.DistributionMinor())), std::vector<int>());
  QELSimManager::CloseContext(reopened);
}

TEST_F(QELSimService, ContextsAreDistinctAndClosingOneClosesItsFileCompletely) {
  QELSimContextID a = Create(path);
  QELSimContextID b = Create(dir.File("other.h5"));
  EXPECT_NE(a, b);
  EXPECT_NE(a, QELSimContextID());
  // What a sim keeps while it is open: its group, released after the context.
  hdf_Group sim = QELSimContextRef(a).File().RootGroup().GroupCreate("sim", 0);
  MakeSample(a);
  QELSimCSet(QELSimCSetID(a.Number(), 0, 0)).Size();
  QELSimManager::CloseContext(a);
  EXPECT_FALSE(sim.IsValid());
  EXPECT_FALSE(QELSimContextRef(b).File().RootGroup().GetObjinfoExists("sim"));
  QELSimManager::CloseContext(b);
  EXPECT_EQ(OpenObjects(), 0);

  // Another program could open the file now; so can this one, for update.
  QELSimContextID c = Open(path, hdf_File::ReadWrite);
  EXPECT_NE(c, a);
  EXPECT_TRUE(QELSimContextRef(c).File().RootGroup().GetObjinfoExists("sim"));
  EXPECT_EQ(QELSimCollectionRef::Create(c, 4), QELSimCollectionID(c.Number(), 1));
  QELSimManager::CloseContext(c);

  CaptureErr err;
  QELSimManager::CloseContext(QELSimContextID());
  EXPECT_EQ(err.Take(), "");
  QELSimManager::CloseContext(c);
  EXPECT_EQ(err.Take(), "**ERROR QELSimManager::CloseContext: no open context " +
                            std::to_string(c.Number()) + "\n");
  EXPECT_FALSE(QELSimContextRef(QELSimContextID()).File().IsValid());
  EXPECT_EQ(err.Take(), "");
  EXPECT_FALSE(QELSimContextRef(c).File().IsValid());
  EXPECT_EQ(err.Take(),
            "**ERROR QELSimContextRef::File: no open context " + std::to_string(c.Number()) + "\n");
}

TEST_F(QELSimService, ServiceDataLieBesideTheSimAndReadOnlyContextsLeaveThemAlone) {
  QELSimContextID writer = Create(path);
  QELSimContextRef(writer).File().RootGroup().GroupCreate("sim", 0);
  MakeSample(writer);
  QELSimManager::CloseContext(writer);
  // The service's data lie beside the sim.
  typedef std::vector<std::string> Names;
  EXPECT_EQ(RawChildren(path, "/"), (Names{"QELSim", "sim"}));
  EXPECT_EQ(RawChildren(path, "/QELSim"), (Names{"collections", "distributions"}));
  EXPECT_EQ(RawChildren(path, "/QELSim/collections/0"), Names{"0"});
  EXPECT_EQ(RawDatasetBytes(path, "/QELSim/collections/0/0"), (Bytes{3, 0, 7}));
  EXPECT_EQ(RawDatasetBytes(path, "/QELSim/distributions/0").size(), 3u);
  struct stat before;
  ASSERT_EQ(stat(path.c_str(), &before), 0);
  std::string bytes = ReadWholeFile(path);

  QELSimContextID reader = Open(path, hdf_File::ReadOnly);
  int n = reader.Number();
  std::string ctx = std::to_string(n);
  EXPECT_TRUE(QELSimContextRef(reader).IsReadOnly());
  EXPECT_TRUE(QELSimContextRef(reader).File().IsReadOnly());
  EXPECT_EQ(ReadInt32(QELSimDistributionID(n, 0)), (std::vector<int>{30, 0, -70}));
  CaptureErr err;
  EXPECT_EQ(QELSimCollectionRef::Create(reader, 5), QELSimCollectionID());
  EXPECT_EQ(err.Take(), "**ERROR QELSimCollectionRef::Create: context " + ctx + " is read-only\n");
  const int one[1] = {1};
  EXPECT_EQ(QELSimCollectionRef(QELSimCollectionID(n, 0)).CreateOrderedCSet(one, 1),
            QELSimCSetID());
  EXPECT_EQ(err.Take(),
            "**ERROR QELSimCollectionRef::CreateOrderedCSet: context " + ctx + " is read-only\n");
  EXPECT_EQ(QELSimDistributionRef::CreateInt32(QELSimCSetID(n, 0, 0), one), QELSimDistributionID());
  EXPECT_EQ(err.Take(),
            "**ERROR QELSimDistributionRef::CreateInt32: context " + ctx + " is read-only\n");
  QELSimManager::CloseContext(reader);

  struct stat after;
  ASSERT_EQ(stat(path.c_str(), &after), 0);
  EXPECT_EQ(ReadWholeFile(path), bytes);
  EXPECT_EQ(after.st_mtim.tv_sec, before.st_mtim.tv_sec);
  EXPECT_EQ(after.st_mtim.tv_nsec, before.st_mtim.tv_nsec);
}

TEST_F(QELSimService, ReadOnlyContextOnAFileWithoutServiceDataFindsNothing) {
  hdf_File::Create(path.c_str(), hdf_File::Exclusive).RootGroup().GroupCreate("sim", 0);
  std::string bytes = ReadWholeFile(path);
  QELSimContextID reader = Open(path, hdf_File::ReadOnly);
  CaptureErr err;
  EXPECT_EQ(QELSimCollectionRef(QELSimCollectionID(reader.Number(), 0)).Size(), 0);
  EXPECT_EQ(err.Take(), "**ERROR QELSimCollectionRef::Size: no collection 0 in context " +
                            std::to_string(reader.Number()) + "\n");
  QELSimManager::CloseContext(reader);
  EXPECT_EQ(ReadWholeFile(path), bytes);
}

TEST_F(QELSimService, IdentifiersThatNameNothingGiveOneMessageAndEmptyResults) {
  QELSimContextID context = Create(path);
  Made m = MakeSample(context);
  int n = context.Number();
  std::string in = " in context " + std::to_string(n) + "\n";
  CaptureErr err;

  QELSimCollectionRef unknown(QELSimCollectionID(n, 5));
  EXPECT_EQ(unknown.Size(), 0);
  EXPECT_EQ(unknown.Size(), 0);  // reported once per object
  EXPECT_EQ(err.Take(), "**ERROR QELSimCollectionRef::Size: no collection 5" + in);
  EXPECT_EQ(QELSimCollectionRef(QELSimCollectionID(n, 0xFFFFFFF0u)).CreateOrderedCSet(nullptr, 0),
            QELSimCSetID());
  EXPECT_EQ(err.Take(),
            "**ERROR QELSimCollectionRef::CreateOrderedCSet: no collection 4294967280" + in);

  QELSimCSet set(QELSimCSetID(n, 0, 9));
  int sentinel[2] = {-5, -5};
  EXPECT_EQ(set.Size(), 0);
  set.OrderedMembers(sentinel);
  EXPECT_EQ(sentinel[0], -5);
  EXPECT_EQ(err.Take(), "**ERROR QELSimCSet::Size: no set 9 of collection 0" + in);
  QELSimCSet(QELSimCSetID(n, 3, 0)).OrderedMembers(sentinel);
  EXPECT_EQ(err.Take(), "**ERROR QELSimCSet::OrderedMembers: no set 0 of collection 3" + in);
  EXPECT_EQ(QELSimDistributionRef::CreateInt32(QELSimCSetID(n, 0, 4), sentinel),
            QELSimDistributionID());
  EXPECT_EQ(err.Take(),
            "**ERROR QELSimDistributionRef::CreateInt32: no set 4 of collection 0" + in);

  QELSimDistributionRef distribution(QELSimDistributionID(n, 1));
  EXPECT_EQ(distribution.NumDrawers(), 0);
  QELSimArray<QELSimPersistentDrawerDesc> drawers(1);
  drawers.Append(QELSimPersistentDrawerDesc());
  distribution.QueryDrawers(drawers);
  EXPECT_EQ(drawers.Size(), 0);
  EXPECT_EQ(err.Take(), "**ERROR QELSimDistributionRef::NumDrawers: no distribution 1" + in);

  // A context that was never opened, and the null identifiers.
  EXPECT_EQ(QELSimCollectionRef(QELSimCollectionID(n + 1000, 0)).Size(), 0);
  EXPECT_EQ(err.Take(), "**ERROR QELSimCollectionRef::Size: no open context " +
                            std::to_string(n + 1000) + "\n");
  EXPECT_EQ(QELSimCollectionRef::Create(QELSimContextID(), 3), QELSimCollectionID());
  EXPECT_EQ(err.Take(), "**ERROR QELSimCollectionRef::Create: no open context -1\n");
  EXPECT_EQ(QELSimCSet(QELSimCSetID()).Size(), 0);
  EXPECT_EQ(err.Take(), "**ERROR QELSimCSet::Size: null set identifier\n");
  EXPECT_EQ(QELSimDistributionRef(QELSimDistributionID()).NumDrawers(), 0);
  EXPECT_EQ(err.Take(),
            "**ERROR QELSimDistributionRef::NumDrawers: null distribution identifier\n");

  // After closing, the context's identifiers reach nothing.
  QELSimManager::CloseContext(context);
  EXPECT_EQ(QELSimCSet(m.set).Size(), 0);
  EXPECT_EQ(err.Take(), "**ERROR QELSimCSet::Size: no open context " + std::to_string(n) + "\n");
}

TEST_F(QELSimService, DamagedServiceDataIsReportedNotTrusted) {
  {
    hdf_File file = hdf_File::Create(path.c_str(), hdf_File::Exclusive);
    hdf_Group service = file.RootGroup().GroupCreate("QELSim", 0);
    int version = 1;
    service.AttributeCreate("formatVersion", hdf_Datatype::NATIVE_INT(), hdf_Dataspace({1}))
        .Write(hdf_Datatype::NATIVE_INT(), &version);
    hdf_Group collections = service.GroupCreate("collections", 0);
    hdf_Group distributions = service.GroupCreate("distributions", 0);
    collections.GroupCreate("0", 0);  // no "size"
    hdf_PropListDatasetCreation plain;
    int values[6] = {1, 2, 3, 4, 5, 6};
    unsigned five[5] = {0, 0, 0, 0, 0};
    hdf_Dataset wide =
        distributions.DatasetCreate("0", hdf_Datatype::NATIVE_INT(), hdf_Dataspace({3}), plain);
    wide.Write(hdf_Datatype::NATIVE_INT(), hdf_Dataspace({3}), hdf_Dataspace({3}), values);
    wide.AttributeCreate("dimensionSet", hdf_Datatype::NATIVE_UINT(), hdf_Dataspace({5}))
        .Write(hdf_Datatype::NATIVE_UINT(), five);
    hdf_Dataset flat =
        distributions.DatasetCreate("1", hdf_Datatype::NATIVE_INT(), hdf_Dataspace({2, 3}), plain);
    flat.AttributeCreate("dimensionSet", hdf_Datatype::NATIVE_UINT(), hdf_Dataspace({2}))
        .Write(hdf_Datatype::NATIVE_UINT(), five);
  }
  QELSimContextID context = Open(path, hdf_File::ReadOnly);
  int n = context.Number();
  std::string in = " in context " + std::to_string(n) + "\n";
  CaptureErr err;
  EXPECT_EQ(QELSimCollectionRef(QELSimCollectionID(n, 0)).Size(), 0);
  EXPECT_EQ(err.Take(),
            "**ERROR hdf_Group::AttributeOpen: cannot open attribute size in "
            "/QELSim/collections/0 of file " +
                path + "\n**ERROR QELSimCollectionRef::Size: no collection 0" + in);
  EXPECT_EQ(QELSimDistributionRef(QELSimDistributionID(n, 0)).NumDrawers(), 0);
  EXPECT_EQ(err.Take(), "**ERROR QELSimDistributionRef::NumDrawers: no distribution 0" + in);
  EXPECT_EQ(QELSimDistributionRef(QELSimDistributionID(n, 1)).NumDrawers(), 0);
  EXPECT_EQ(err.Take(), "**ERROR QELSimDistributionRef::NumDrawers: no distribution 1" + in);
  QELSimManager::CloseContext(context);
}

// Replaces an int dataset of a closed file, or with `attribute` an int attribute, through HDF5.
void RawReplaceInts(const std::string& path, const char* object, const std::vector<int>& values,
                    const char* attribute = nullptr) {
  hid_t f = H5Fopen(path.c_str(), H5F_ACC_RDWR, H5P_DEFAULT);
  hsize_t n = values.size();
  hid_t space = H5Screate_simple(1, &n, nullptr);
  if (attribute == nullptr) {
    H5Ldelete(f, object, H5P_DEFAULT);
    hid_t d = H5Dcreate2(f, object, H5T_NATIVE_INT, space, H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT);
    H5Dwrite(d, H5T_NATIVE_INT, H5S_ALL, H5S_ALL, H5P_DEFAULT, values.data());
    H5Dclose(d);
  } else {
    hid_t o = H5Oopen(f, object, H5P_DEFAULT);
    if (H5Aexists(o, attribute) > 0) H5Adelete(o, attribute);
    if (!values.empty()) {
      hid_t a = H5Acreate2(o, attribute, H5T_NATIVE_INT, space, H5P_DEFAULT, H5P_DEFAULT);
      H5Awrite(a, H5T_NATIVE_INT, values.data());
      H5Aclose(a);
    }
    H5Oclose(o);
  }
  H5Sclose(space);
  H5Fclose(f);
}

TEST_F(QELSimService, InconsistentServiceDataIsRefusedWithAMessage) {
  Made m;
  {
    QELSimContextID context = Create(path);
    m = MakeSample(context);
    QELSimManager::CloseContext(context);
  }
  CaptureErr err;
  // The set's size and the distribution's drawers, then what was said.
  auto check = [&]() {
    QELSimContextID context = Open(path, hdf_File::ReadOnly);
    int n = context.Number();
    int size = QELSimCSet(QELSimCSetID(n, 0, 0)).Size();
    int drawers = QELSimDistributionRef(QELSimDistributionID(n, 0)).NumDrawers();
    QELSimManager::CloseContext(context);
    return "sizes " + std::to_string(size) + " " + std::to_string(drawers) + "\n" + err.Take();
  };
  const std::string set = "/QELSim/collections/0/0";
  const std::string setOf = "set 0 of collection 0 (size 10) ";
  // A member outside the collection: the set is refused wherever its members
  // would be handed out, first looked up or reached from the distribution;
  // the distribution's values do not depend on them and read back whole.
  auto outside = [&](const std::vector<int>& members, const std::string& member) {
    RawReplaceInts(path, set.c_str(), members);
    const std::string refused = "**ERROR QELSimCSet::Size: " + setOf +
                                "has a member outside its collection: " + member + "\n";
    EXPECT_EQ(check(), "sizes 0 1\n" + refused);
    QELSimContextID context = Open(path, hdf_File::ReadOnly);
    const int n = context.Number();
    EXPECT_EQ(ReadInt32(QELSimDistributionID(n, 0)), (std::vector<int>{30, 0, -70}));
    EXPECT_EQ(QELSimCSet(QELSimCSetID(n, 0, 0)).Size(), 0);
    QELSimManager::CloseContext(context);
    EXPECT_EQ(err.Take(), refused);
  };
  outside({3, 12, 7}, "12 at position 1");
  outside({-1, 0, 7}, "-1 at position 0");
  RawReplaceInts(path, set.c_str(), std::vector<int>(11, 1));
  std::string more =
      "**ERROR QELSimCSet::Size: " + setOf + "has more members than its collection\n";
  EXPECT_EQ(check().substr(0, 10 + more.size()), "sizes 0 0\n" + more);
  RawReplaceInts(path, set.c_str(), {3, 0, 7});
  const char* distribution = "/QELSim/distributions/0";
  RawReplaceInts(path, distribution, {30, 0});
  RawReplaceInts(path, distribution, {0, 0}, "dimensionSet");
  EXPECT_EQ(check(),
            "sizes 3 0\n**ERROR QELSimDistributionRef::NumDrawers: distribution 0 holds 2 values "
            "for the 3 members of its set\n");
  RawReplaceInts(path, distribution, {30, 0, -70});
  RawReplaceInts(path, distribution, {0, 0}, "dimensionSet");
  EXPECT_EQ(check(), "sizes 3 1\n");
  QELSimContextID context = Open(path, hdf_File::ReadOnly);
  EXPECT_EQ(ReadInt32(QELSimDistributionID(context.Number(), 0)), (std::vector<int>{30, 0, -70}));
  QELSimManager::CloseContext(context);

  // A format this service does not know: its data are offered to no one.
  RawReplaceInts(path, "/QELSim", {2}, "formatVersion");
  const std::string foreign = "**ERROR QELSimManager::OpenContext: file " + path +
                              ": service data of format version 2, not 1\n";
  EXPECT_EQ(check(), "sizes 0 0\n" + foreign +
                         "**ERROR QELSimCSet::Size: the file's service data are of another "
                         "format\n**ERROR QELSimDistributionRef::NumDrawers: the file's service "
                         "data are of another format\n");
  RawReplaceInts(path, "/QELSim", {}, "formatVersion");
  context = Open(path, hdf_File::ReadWrite);
  EXPECT_EQ(err.Take(), "**ERROR QELSimManager::OpenContext: file " + path +
                            ": service data without a format version, not 1\n");
  EXPECT_EQ(QELSimCollectionRef::Create(context, 3), QELSimCollectionID());
  EXPECT_EQ(err.Take(),
            "**ERROR QELSimCollectionRef::Create: the file's service data are of "
            "another format\n");
  QELSimManager::CloseContext(context);
}

// Large sets are checked a piece at a time: a member outside the collection
// is found, with its position, in any piece, the last partial one included,
// and sound members read back whole.
TEST_F(QELSimService, LargeSetsAreCheckedInEveryPiece) {
  const int size = 200000;  // more than three pieces
  std::vector<int> members(size);
  for (int k = 0; k < size; ++k) members[static_cast<size_t>(k)] = size - 1 - k;
  {
    QELSimContextID context = Create(path);
    QELSimCollectionRef collection(QELSimCollectionRef::Create(context, size));
    QELSimCSetID set = collection.CreateOrderedCSet(members.data(), size);
    ASSERT_TRUE(QELSimDistributionRef::CreateInt32(set, members.data()).IsValid());
    QELSimManager::CloseContext(context);
  }
  CaptureErr err;
  auto check = [&]() {
    QELSimContextID context = Open(path, hdf_File::ReadOnly);
    int n = context.Number();
    QELSimCSet set(QELSimCSetID(n, 0, 0));
    std::string said = "size " + std::to_string(set.Size());
    if (set.Size() == size) {
      said += Members(QELSimCSetID(n, 0, 0)) == members ? ", members equal" : ", members differ";
      said += ReadInt32(QELSimDistributionID(n, 0)) == members ? ", values equal" : ", differ";
    }
    QELSimManager::CloseContext(context);
    return said + "\n" + err.Take();
  };
  EXPECT_EQ(check(), "size 200000, members equal, values equal\n");
  const char* stored = "/QELSim/collections/0/0";
  auto outside = [&](int member, int position) {
    return "size 0\n**ERROR QELSimCSet::Size: set 0 of collection 0 (size 200000) has a member "
           "outside its collection: " +
           std::to_string(member) + " at position " + std::to_string(position) + "\n";
  };
  for (int position : {0, 65535, 65536, 150001, size - 1}) {
    for (int member : {size, -1}) {
      std::vector<int> damaged = members;
      damaged[static_cast<size_t>(position)] = member;
      RawReplaceInts(path, stored, damaged);
      EXPECT_EQ(check(), outside(member, position)) << position;
    }
  }
  // Two outside: the first is named.
  std::vector<int> damaged = members;
  damaged[199990] = 2 * size;
  damaged[70000] = size + 5;
  RawReplaceInts(path, stored, damaged);
  EXPECT_EQ(check(), outside(size + 5, 70000));
}

// ReadMembers reads a set once, into the caller's buffer, checking each
// piece as it lands: sound sets arrive whole (also after a distribution's
// lookup kept the set unchecked, and once checked without a second check),
// a member outside is named with its position in any piece, the last
// partial one included, and the buffer comes from the caller, once.
TEST_F(QELSimService, ReadMembersReadsAndChecksInOnePass) {
  const int size = (1 << 21) + 1000;  // two whole pieces and a partial one
  std::vector<int> members(size);
  for (int k = 0; k < size; ++k) members[static_cast<size_t>(k)] = (k * 11 + 3) % size;
  {
    QELSimContextID context = Create(path);
    QELSimCollectionRef collection(QELSimCollectionRef::Create(context, size));
    QELSimCSetID set = collection.CreateOrderedCSet(members.data(), size);
    ASSERT_TRUE(QELSimDistributionRef::CreateInt32(set, members.data()).IsValid());
    const int none[1] = {0};
    ASSERT_TRUE(collection.CreateOrderedCSet(none, 0).IsValid());
    QELSimManager::CloseContext(context);
  }
  CaptureErr err;
  // What ReadMembers of set `minor` gave, after the distribution's lookup
  // when `viaDistribution`, then Size() and what was said.
  auto read = [&](int minor, bool viaDistribution) {
    QELSimContextID context = Open(path, hdf_File::ReadOnly);
    const int n = context.Number();
    if (viaDistribution) {
      EXPECT_EQ(QELSimDistributionRef(QELSimDistributionID(n, 0)).NumDrawers(), 1);
    }
    std::vector<int> out;
    int calls = 0;
    bool ok = QELSimCSet(QELSimCSetID(n, 0, minor)).ReadMembers([&](int count) {
      ++calls;
      out.assign(static_cast<size_t>(count), -1);
      return out.data();
    });
    std::string said = std::string(ok ? "read" : "refused") + " " + std::to_string(calls) + " " +
                       std::to_string(out.size()) +
                       (out == members ? " equal"
                        : out.empty()  ? ""
                                       : " differ") +
                       ", size " + std::to_string(QELSimCSet(QELSimCSetID(n, 0, minor)).Size());
    QELSimManager::CloseContext(context);
    return said + "\n" + err.Take();
  };
  const std::string whole =
      "read 1 " + std::to_string(size) + " equal, size " + std::to_string(size) + "\n";
  EXPECT_EQ(read(0, false), whole);
  EXPECT_EQ(read(0, true), whole);
  EXPECT_EQ(read(1, false), "read 1 0, size 0\n");

  const char* stored = "/QELSim/collections/0/0";
  for (int position : {0, (1 << 20) - 1, 1 << 20, (1 << 21) + 7, size - 1}) {
    std::vector<int> damaged = members;
    damaged[static_cast<size_t>(position)] = -5;
    RawReplaceInts(path, stored, damaged);
    const std::string why = "set 0 of collection 0 (size " + std::to_string(size) +
                            ") has a member outside its collection: -5 at position " +
                            std::to_string(position) + "\n";
    EXPECT_EQ(read(0, position % 2 == 0), "refused 1 " + std::to_string(size) +
                                              " differ, size 0\n**ERROR QELSimCSet::ReadMembers: " +
                                              why + "**ERROR QELSimCSet::Size: " + why)
        << position;
  }
  RawReplaceInts(path, stored, members);

  QELSimContextID context = Open(path, hdf_File::ReadOnly);
  EXPECT_FALSE(QELSimCSet(QELSimCSetID(context.Number(), 0, 0)).ReadMembers([](int) {
    return static_cast<int*>(nullptr);
  }));
  EXPECT_EQ(err.Take(), "**ERROR QELSimCSet::ReadMembers: no buffer given\n");
  EXPECT_FALSE(QELSimCSet(QELSimCSetID(context.Number(), 0, 9)).ReadMembers([](int) {
    ADD_FAILURE() << "no buffer for a set that is not there";
    return static_cast<int*>(nullptr);
  }));
  EXPECT_EQ(err.Take(), "**ERROR QELSimCSet::ReadMembers: no set 9 of collection 0 in context " +
                            std::to_string(context.Number()) + "\n");
  QELSimManager::CloseContext(context);
}

TEST_F(QELSimService, OrderedSetsHoldDistinctMembersOfTheirCollection) {
  QELSimContextID context = Create(path);
  QELSimCollectionRef collection(QELSimCollectionRef::Create(context, 4));
  CaptureErr err;
  auto refused = [&](const int* members, int count) {
    EXPECT_EQ(collection.CreateOrderedCSet(members, count), QELSimCSetID());
    return err.Take();
  };
  const std::string said = "**ERROR QELSimCollectionRef::CreateOrderedCSet: ";
  const std::string of = " (collection 0 of size 4)\n";
  const int outside[3] = {0, 4, 1}, twice[3] = {2, 0, 2}, negative[1] = {-1};
  EXPECT_EQ(refused(outside, 3), said + "member 4 at position 1 is outside the collection" + of);
  EXPECT_EQ(refused(twice, 3), said + "member 2 at position 2 occurs twice" + of);
  EXPECT_EQ(refused(negative, 1), said + "member -1 at position 0 is outside the collection" + of);
  EXPECT_EQ(refused(nullptr, 2), said + "no members given" + of);
  EXPECT_EQ(refused(twice, -1), said + "negative count -1\n");
  EXPECT_EQ(QELSimCollectionRef::Create(context, -2), QELSimCollectionID());
  EXPECT_EQ(err.Take(), "**ERROR QELSimCollectionRef::Create: negative size -2\n");
  EXPECT_EQ(QELSimDistributionRef::CreateInt32(collection.CreateOrderedCSet(outside, 1), nullptr),
            QELSimDistributionID());
  EXPECT_EQ(err.Take(), "**ERROR QELSimDistributionRef::CreateInt32: no values given\n");

  // The refusals used no names: the next set is still number 0... after the one above.
  const int all[4] = {3, 2, 1, 0};
  QELSimCSetID reversed = collection.CreateOrderedCSet(all, 4);
  EXPECT_EQ(reversed, QELSimCSetID(context.Number(), 0, 1));
  EXPECT_EQ(Members(reversed), (std::vector<int>{3, 2, 1, 0}));
  QELSimManager::CloseContext(context);
}

// Large sets are checked in blocks; the first fault is named wherever it
// lies: a repeat of an earlier block's member, a repeat within a block, a
// member outside, at block edges, and the first of two faults.
TEST_F(QELSimService, LargeOrderedSetsNameTheirFirstFaultWhereverItLies) {
  QELSimContextID context = Create(path);
  const int size = 20000;
  QELSimCollectionRef collection(QELSimCollectionRef::Create(context, size));
  CaptureErr err;
  std::vector<int> all(static_cast<size_t>(size));
  for (int i = 0; i < size; ++i) all[static_cast<size_t>(i)] = (7919 * i) % size;  // a permutation
  const std::string said = "**ERROR QELSimCollectionRef::CreateOrderedCSet: member ";
  const std::string of = " (collection 0 of size 20000)\n";
  struct Fault {
    int position, member;
    const char* problem;
  };
  auto at = [&](int i) { return all[static_cast<size_t>(i)]; };
  const Fault faults[] = {
      {4096, at(0), "occurs twice"},       // first of a block, repeating the first
      {4096, at(4095), "occurs twice"},    // first of a block, repeating block 0's last
      {12000, at(11999), "occurs twice"},  // within a block
      {8191, at(100), "occurs twice"},     // repeats an earlier block's member
      {19999, at(0), "occurs twice"},      // the very last
      {8192, size, "is outside the collection"},
      {5000, -3, "is outside the collection"},
      {0, size + 1, "is outside the collection"},
  };
  for (const Fault& f : faults) {
    std::vector<int> members = all;
    members[static_cast<size_t>(f.position)] = f.member;
    EXPECT_EQ(collection.CreateOrderedCSet(members.data(), size), QELSimCSetID());
    EXPECT_EQ(err.Take(), said + std::to_string(f.member) + " at position " +
                              std::to_string(f.position) + " " + f.problem + of);
  }
  // Of two faults the earlier position is named, whatever their kinds.
  std::vector<int> two = all;
  two[9000] = at(1);
  two[9500] = -1;
  two[4100] = size;
  EXPECT_EQ(collection.CreateOrderedCSet(two.data(), size), QELSimCSetID());
  EXPECT_EQ(err.Take(), said + "20000 at position 4100 is outside the collection" + of);
  two[4100] = at(4100);
  EXPECT_EQ(collection.CreateOrderedCSet(two.data(), size), QELSimCSetID());
  EXPECT_EQ(err.Take(), said + std::to_string(at(1)) + " at position 9000 occurs twice" + of);

  QELSimCSetID whole = collection.CreateOrderedCSet(all.data(), size);
  EXPECT_EQ(whole, QELSimCSetID(context.Number(), 0, 0));
  EXPECT_EQ(Members(whole), all);
  QELSimManager::CloseContext(context);
}

// Blocks that are runs of consecutive members, rising or falling, are
// marked a word at a time: runs across partial words are accepted, and a
// run that meets an earlier member is refused at that member, named as any
// other repeat.
TEST_F(QELSimService, OrderedSetsInRunsAreCheckedLikeAnyOther) {
  QELSimContextID context = Create(path);
  const int size = 20000;
  QELSimCollectionRef collection(QELSimCollectionRef::Create(context, size));
  CaptureErr err;
  auto run = [](std::vector<int>* to, int first, int last) {
    const int step = last >= first ? 1 : -1;
    for (int m = first; m != last + step; m += step) to->push_back(m);
  };
  std::vector<int> runs;  // three blocks of 4096: up, down, up
  run(&runs, 5, 4100);
  run(&runs, 8196, 4101);
  run(&runs, 8197, 12292);
  QELSimCSetID made = collection.CreateOrderedCSet(runs.data(), static_cast<int>(runs.size()));
  EXPECT_NE(made, QELSimCSetID());
  EXPECT_EQ(Members(made), runs);
  EXPECT_EQ(err.Take(), "");

  const std::string said = "**ERROR QELSimCollectionRef::CreateOrderedCSet: member ";
  const std::string of = " occurs twice (collection 0 of size 20000)\n";
  auto refused = [&](const std::vector<int>& members) {
    EXPECT_EQ(collection.CreateOrderedCSet(members.data(), static_cast<int>(members.size())),
              QELSimCSetID());
    return err.Take();
  };
  std::vector<int> intoFirst(runs.begin(), runs.begin() + 8192);
  run(&intoFirst, 4000, 8095);  // meets the first block's 4000 at once
  EXPECT_EQ(refused(intoFirst), said + "4000 at position 8192" + of);

  std::vector<int> scattered;  // 8192 .. 12287 in no order
  for (int i = 0; i < 4096; ++i) scattered.push_back(8192 + (7919 * i) % 4096);
  run(&scattered, 4146, 8241);  // rising into it
  EXPECT_EQ(refused(scattered), said + "8192 at position 8142" + of);
  scattered.resize(4096);
  run(&scattered, 12337, 8242);  // falling into it from above
  EXPECT_EQ(refused(scattered), said + "12287 at position 4146" + of);

  for (int edge : {5, 4100, 4101, 8196, 8197, 12292}) {  // each run's ends
    std::vector<int> again = runs;
    again.push_back(edge);
    EXPECT_EQ(refused(again), said + std::to_string(edge) + " at position 12288" + of);
  }
  std::vector<int> shortRun = runs;
  run(&shortRun, 4160, 4162);  // within one word, inside the second block's range
  EXPECT_EQ(refused(shortRun), said + "4160 at position 12288" + of);

  // The marks are cleared after each set, whole or word by word: sets of a
  // large collection, few members or many, are each checked from scratch.
  QELSimCollectionRef large(QELSimCollectionRef::Create(context, 10000000));
  const std::vector<int> few = {5, 9999999, 640, 6400000};
  std::vector<int> many;
  run(&many, 9999999, 0);
  const std::vector<int>* sets[] = {&few, &few, &many, &few, &many};
  for (const std::vector<int>* members : sets) {
    EXPECT_NE(large.CreateOrderedCSet(members->data(), static_cast<int>(members->size())),
              QELSimCSetID());
  }
  EXPECT_EQ(err.Take(), "");
  QELSimManager::CloseContext(context);
}

TEST_F(QELSimService, TransfersReportTheirProblemsAndNeverOverrunTheBuffer) {
  QELSimContextID context = Create(path);
  Made m = MakeSample(context);
  QELSimCSetID other =
      QELSimCollectionRef(m.collection).CreateOrderedCSet(std::vector<int>{1, 2, 3}.data(), 3);
  CaptureErr err;
  int buffer[4] = {-1, -1, -1, -1};
  const std::string said = "**ERROR QELSimTransfer::";

  QELSimTransfer notRead(m.distribution);
  notRead.SetDim(0, m.set);
  notRead.SetBuffer(0, buffer, sizeof buffer);
  EXPECT_FALSE(notRead.CheckView());
  EXPECT_FALSE(notRead.ExecRead());  // the same problem is not repeated
  EXPECT_EQ(err.Take(), said + "CheckView: SetRead was not called\n");

  QELSimTransfer t(m.distribution);
  t.SetRead();
  EXPECT_FALSE(t.CheckView());
  EXPECT_EQ(err.Take(), said + "CheckView: no set given for dimension 0\n");
  t.SetDim(1, m.set);
  EXPECT_EQ(err.Take(), said + "SetDim: dimension 1 out of range: distributions have one\n");
  t.SetDim(0, other);
  EXPECT_FALSE(t.CheckView());
  EXPECT_EQ(err.Take(), said + "CheckView: set 1 of collection 0 in context " +
                            std::to_string(context.Number()) +
                            " is not the dimension set of distribution 0\n");
  t.SetDim(0, m.set);
  t.SetBufferPadding(true);
  EXPECT_FALSE(t.CheckView());
  EXPECT_EQ(err.Take(), said + "CheckView: padded buffers are not supported\n");
  t.SetBufferPadding(false);
  EXPECT_TRUE(t.CheckView());
  t.SetBuffer(2, buffer, sizeof buffer);
  EXPECT_EQ(err.Take(), said + "SetBuffer: drawer 2 out of range: distributions have one\n");
  EXPECT_FALSE(t.ExecRead());
  EXPECT_EQ(err.Take(), said + "ExecRead: buffer of 0 bytes cannot hold 3 values of 4 bytes\n");
  t.SetBuffer(0, buffer, 11);
  EXPECT_FALSE(t.ExecRead());
  EXPECT_EQ(err.Take(), said + "ExecRead: buffer of 11 bytes cannot hold 3 values of 4 bytes\n");
  EXPECT_EQ(buffer[0], -1);
  t.SetBuffer(0, buffer, 12);
  EXPECT_TRUE(t.ExecRead());
  EXPECT_EQ(err.Take(), "");
  EXPECT_EQ(std::vector<int>(buffer, buffer + 4), (std::vector<int>{30, 0, -70, -1}));

  QELSimTransfer missing(QELSimDistributionID(context.Number(), 8));
  missing.SetRead();
  missing.SetDim(0, m.set);
  EXPECT_FALSE(missing.CheckView());
  missing.SetBuffer(0, buffer, sizeof buffer);
  EXPECT_FALSE(missing.ExecRead());
  EXPECT_EQ(err.Take(), said + "CheckView: no distribution 8 in context " +
                            std::to_string(context.Number()) + "\n");
  QELSimManager::CloseContext(context);
}

TEST_F(QELSimService, OneFileUnderTwoNamesIsSharedBetweenItsContexts) {
  CaptureErr err;
  // Contexts that cannot be made are null, and the open one unharmed. (The
  // file's own messages are pinned in the wrapper test.)
  EXPECT_TRUE(Open(dir.File("missing.h5"), hdf_File::ReadWrite).IsNull());
  QELSimContextID reader;
  {
    QELSimContextID a = Create(path);
    EXPECT_TRUE(Create(path).IsNull());
    EXPECT_NE(err.Take(), "");
    Made m = MakeSample(a);
    EXPECT_EQ(m.collection, QELSimCollectionID(a.Number(), 0));
    // One writer per file: a second context for update is refused.
    const std::string same = dir.Path() + "/./db.h5";
    EXPECT_TRUE(Open(same, hdf_File::ReadWrite).IsNull());
    EXPECT_EQ(err.Take(), "**ERROR QELSimManager::OpenContext: cannot open file " + same +
                              " for update: it is open for update in context " +
                              std::to_string(a.Number()) + "\n");
    QELSimContextID b = Open(same, hdf_File::ReadOnly);
    ASSERT_FALSE(b.IsNull());
    EXPECT_NE(a, b);
    // A reader beside it sees, and numbers, the same objects.
    EXPECT_EQ(QELSimCollectionRef(QELSimCollectionID(b.Number(), 0)).Size(), 10);
    EXPECT_EQ(QELSimCollectionRef::Create(a, 2), QELSimCollectionID(a.Number(), 1));
    EXPECT_EQ(QELSimCollectionRef(QELSimCollectionID(b.Number(), 1)).Size(), 2);
    EXPECT_EQ(QELSimCollectionRef::Create(a, 2), QELSimCollectionID(a.Number(), 2));
    QELSimManager::CloseContext(a);
    EXPECT_EQ(ReadInt32(QELSimDistributionID(b.Number(), m.distribution.DistributionMinor())),
              (std::vector<int>{30, 0, -70}));
    QELSimManager::CloseContext(b);
    EXPECT_EQ(OpenObjects(), 0);
    reader = Open(path, hdf_File::ReadOnly);
  }
  std::string other = dir.Path() + "//db.h5";
  EXPECT_TRUE(Open(other, hdf_File::ReadWrite).IsNull());
  EXPECT_EQ(err.Take(), "**ERROR QELSimManager::OpenContext: cannot open file " + other +
                            " for update: it is open read-only in context " +
                            std::to_string(reader.Number()) + "\n");
  QELSimContextID second = Open(other, hdf_File::ReadOnly);
  EXPECT_EQ(QELSimCollectionRef(QELSimCollectionID(second.Number(), 2)).Size(), 2);
  QELSimManager::CloseContext(reader);
  QELSimManager::CloseContext(second);
  EXPECT_EQ(OpenObjects(), 0);
}

TEST(QELSimArrayTest, GrowsCopiesAndChecksEveryAccess) {
  QELSimArray<int> a(1);
  EXPECT_EQ(a.Size(), 0);
  for (int i = 0; i < 100; ++i) a.Append(i * i);
  QELSimArray<int> b(a);
  a[0] = -1;
  EXPECT_EQ(b.Size(), 100);
  EXPECT_EQ(b[0], 0);
  EXPECT_EQ(b[99], 9801);
  QELSimArray<QELSimPersistentDrawerDesc> drawers(1);
  drawers.Append(QELSimPersistentDrawerDesc(QELSimCSetID(1, 2, 3), 4));
  QELSimArray<QELSimPersistentDrawerDesc> copy;
  copy = drawers;
  EXPECT_EQ(copy[0].DimensionSets()[0], QELSimCSetID(1, 2, 3));
  EXPECT_EQ(copy[0].DataSizeItems(0), 4);

  EXPECT_DEATH(
      QELSimArray<int>(1)[0],
      "^\\*\\*ERROR QELSimAssert: i >=0 && i < m_Size failed at .*QELSimArray\\.h:[0-9]+\n$");
  EXPECT_DEATH(b[100], "i >=0 && i < m_Size failed");
  EXPECT_DEATH(b[-1], "i >=0 && i < m_Size failed");
  EXPECT_DEATH(drawers[0].DimensionSets()[1], "i >=0 && i < m_Size failed");
}

}  // namespace
