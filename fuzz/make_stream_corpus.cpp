// Writes the seed corpus of the stream fuzzer: valid member streams of
// several shapes, one file each, into the directory given as argument.
#include <cstdio>
#include <string>

#include "persistence/gbb_MemoryStream.h"
#include "support/sample_members.h"

namespace {

const QELSimContextID kContext(3);

bool WriteSeed(const std::string& path, const SampleMembers& members) {
  gbb_MemoryStream stream(kContext);
  members.Save(stream);
  gbb_MemoryStream::Buffer bytes(stream.GetBuffer());
  std::FILE* file = std::fopen(path.c_str(), "wb");
  if (file == nullptr) return false;
  bool ok = std::fwrite(bytes.data(), 1, static_cast<size_t>(bytes.count()), file) ==
            static_cast<size_t>(bytes.count());
  return std::fclose(file) == 0 && ok;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s corpus-directory\n", argv[0]);
    return 2;
  }
  std::string dir = argv[1];
  bool ok = true;

  SampleMembers empty;
  ok &= WriteSeed(dir + "/empty", empty);

  SampleMembers scalars;
  scalars.count = 42;
  scalars.name = "mesh-1";
  scalars.nodeSet = QELSimCSetID(3, 1, 2);
  scalars.nodes = QELSimCollectionID(3, 1);
  scalars.scale = -0.5;
  scalars.temperature = QELSimDistributionID(3, 9);
  ok &= WriteSeed(dir + "/scalars", scalars);

  SampleMembers maps;
  maps.elementSets.insert("left", QELSimCSetID(3, 4, 5));
  maps.elementSets.insert("", QELSimCSetID(3, 4, 6));
  for (int i = -2; i < 5; ++i) maps.fields.insert(i * 1000, QELSimDistributionID(3, i + 10));
  maps.namedFields.insert("stress", QELSimDistributionID(3, 20));
  maps.namedFields.insert("Strain", QELSimDistributionID());
  ok &= WriteSeed(dir + "/maps", maps);

  return ok ? 0 : 1;
}
