// The C++ side of the Python module's tests (tests/python/).
//
//   python_test_helper damage FILE      damages a database made by the tests: the members of
//                                       system 0 cut short, system 1 of an unknown class
#include <DDB_PDM_Core.h>

#include <cstdio>
#include <string>

#include "support/h5_raw.h"

namespace {

int Damage(const std::string& file) {
  const std::string systems = "/sim/discreteModel/mesh/systems/";
  RawWriteDataset(file, systems + "0/#simpleTypeMembers", Bytes{1, 2, 3});
  RawWriteClass(file, systems + "1", "com.trevolo.Unknown");
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  int startups = 0;
  DDB_PDM_Core_initialize(startups);
  int status = 2;
  if (argc == 3 && std::string(argv[1]) == "damage") {
    status = Damage(argv[2]);
  } else {
    std::fprintf(stderr, "usage: python_test_helper damage FILE\n");
  }
  DDB_PDM_Core_finalize(startups);
  return status;
}
