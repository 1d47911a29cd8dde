// A write that has returned survives the process being killed, through the
// HDF5 wrapper and through the service: a child writes and reports, is
// SIGKILLed with the file still open, and the parent finds every reported
// write in the file.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "platform/service/QELSimService.h"
#include "platform/hdf/hdf.h"
#include "support/killed_writer.h"
#include "support/scratch_dir.h"

namespace {

TEST(HdfDurability, CompletedWritesSurviveAKill) {
  ScratchDir dir;
  std::string path = dir.File("killed.h5");
  std::vector<std::string> reported = RunAndKill([&](const ReportFunction& report) {
    hdf_File file = hdf_File::Create(path.c_str(), hdf_File::Exclusive);
    hdf_Group sim = file.RootGroup().GroupCreate("sim", 0);
    hdf_PropListDatasetCreation chunked;
    chunked.SetChunk({1024});
    for (int i = 0; i < 12; ++i) {
      hdf_Group g = sim.GroupCreate(std::to_string(i).c_str(), 0);
      hdf_Attribute a = g.AttributeCreate("n", hdf_Datatype::NATIVE_INT(), hdf_Dataspace({1}));
      if (!a.Write(hdf_Datatype::NATIVE_INT(), &i)) return;
      hdf_Dataset d = g.DatasetCreate("bytes", hdf_Datatype::NATIVE_UCHAR(),
                                      hdf_Dataspace({0}, {hdf_Unlimited}), chunked);
      std::vector<unsigned char> bytes(static_cast<size_t>(100 * i + 1),
                                       static_cast<unsigned char>(i));
      hsize_t n = bytes.size();
      d.Extend({n});
      hdf_Dataspace fileSpace = d.Space();
      fileSpace.SelectHyperslab({0}, {n});
      if (!d.Write(hdf_Datatype::NATIVE_UCHAR(), hdf_Dataspace({n}), fileSpace, &bytes[0])) return;
      report(std::to_string(i));
    }
    WaitToBeKilled();
  });
  ASSERT_EQ(reported.size(), 12u);

  hdf_File file = hdf_File::Open(path.c_str(), hdf_File::ReadOnly);
  ASSERT_TRUE(file.IsValid());
  hdf_Group sim = file.RootGroup().GroupOpen("sim");
  for (const std::string& name : reported) {
    int i = std::stoi(name);
    hdf_Group g = sim.GroupOpen(name.c_str());
    int n = -1;
    EXPECT_TRUE(g.AttributeOpen("n").Read(hdf_Datatype::NATIVE_INT(), &n));
    EXPECT_EQ(n, i);
    hdf_Dataset d = g.DatasetOpen("bytes");
    hsize_t size = d.Space().Dimensions()[0];
    ASSERT_EQ(size, static_cast<hsize_t>(100 * i + 1));
    std::vector<unsigned char> bytes(size);
    EXPECT_TRUE(d.Read(hdf_Datatype::NATIVE_UCHAR(), hdf_Dataspace({size}), d.Space(), &bytes[0]));
    EXPECT_EQ(bytes, std::vector<unsigned char>(size, static_cast<unsigned char>(i)));
  }
}

TEST(ServiceDurability, CompletedServiceCallsSurviveAKill) {
  ScratchDir dir;
  std::string path = dir.File("killed_service.h5");
  // Each report: collection minor, set minor, distribution minor, size.
  std::vector<std::string> reported = RunAndKill([&](const ReportFunction& report) {
    QELSimContextID context =
        QELSimManager::CreateContext(path.c_str(), hdf_File::Exclusive, 102, false, 1);
    for (int i = 0; i < 8; ++i) {
      int size = 50 * i;
      QELSimCollectionID c = QELSimCollectionRef::Create(context, size);
      std::vector<int> members(static_cast<size_t>(size));
      for (int k = 0; k < size; ++k) members[static_cast<size_t>(k)] = size - 1 - k;
      QELSimCSetID s = QELSimCollectionRef(c).CreateOrderedCSet(members.data(), size);
      std::vector<int> values(static_cast<size_t>(size), i);
      QELSimDistributionID d = QELSimDistributionRef::CreateInt32(s, values.data());
      if (!d.IsValid()) return;
      report(std::to_string(c.CollectionMinor()) + " " + std::to_string(s.CSetMinor()) + " " +
             std::to_string(d.DistributionMinor()) + " " + std::to_string(size));
    }
    WaitToBeKilled();
  });
  ASSERT_EQ(reported.size(), 8u);

  QELSimContextID context =
      QELSimManager::OpenContext(path.c_str(), hdf_File::ReadOnly, 102, false, 1);
  ASSERT_FALSE(context.IsNull());
  int n = context.Number();
  for (size_t i = 0; i < reported.size(); ++i) {
    unsigned c = 0, s = 0, d = 0;
    int size = -1;
    ASSERT_EQ(std::sscanf(reported[i].c_str(), "%u %u %u %d", &c, &s, &d, &size), 4);
    EXPECT_EQ(QELSimCollectionRef(QELSimCollectionID(n, c)).Size(), size);
    QELSimCSet set(QELSimCSetID(n, c, s));
    ASSERT_EQ(set.Size(), size);
    std::vector<int> members(static_cast<size_t>(size) + 1, -1);
    set.OrderedMembers(members.data());
    EXPECT_EQ(members[0], size > 0 ? size - 1 : -1);
    EXPECT_EQ(members[static_cast<size_t>(size)], -1);
    QELSimTransfer t(QELSimDistributionID(n, d));
    std::vector<int> values(static_cast<size_t>(size) + 1, -1);
    t.SetRead();
    t.SetDim(0, QELSimCSetID(n, c, s));
    t.SetBuffer(0, values.data(), static_cast<size_t>(size) * 4);
    EXPECT_TRUE(t.ExecRead());
    values.pop_back();
    EXPECT_EQ(values, std::vector<int>(static_cast<size_t>(size), static_cast<int>(i)));
  }
  QELSimManager::CloseContext(context);
}

}  // namespace
