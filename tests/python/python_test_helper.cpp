// The C++ side of the Python module's tests (tests/python/).
//
//   python_test_helper damage FILE      damages a database made by the tests: the members of
//                                       system 0 cut short, system 1 of an unknown class, the
//                                       first member of the first set (of 3) outside its
//                                       collection
//   python_test_helper damaged-copies DIR FLIPS
//                                       the reliability suite's database (every class, with
//                                       mask distributions) in DIR/pristine.sim, and damaged
//                                       copies of it beside: 20 truncations, FLIPS flipped bits
//                                       (the suite's seed), and per stored distribution one
//                                       whose first value is -1 (negative-<minor>.sim)
#include <DDB_PDM_Core.h>
#include <hdf5.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "reliability/crash_workload.h"
#include "support/h5_raw.h"

namespace {

std::string ReadAll(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void WriteAll(const std::string& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

// The names of the service's stored distributions.
std::vector<std::string> Distributions(const std::string& file) {
  std::vector<std::string> names;
  hid_t f = H5Fopen(file.c_str(), H5F_ACC_RDONLY, H5P_DEFAULT);
  hid_t g = H5Gopen2(f, "/QELSim/distributions", H5P_DEFAULT);
  H5Literate(
      g, H5_INDEX_NAME, H5_ITER_NATIVE, nullptr,
      [](hid_t, const char* name, const H5L_info_t*, void* out) {
        static_cast<std::vector<std::string>*>(out)->push_back(name);
        return 0;
      },
      &names);
  H5Gclose(g);
  H5Fclose(f);
  return names;
}

// Sets the first value of a stored distribution to -1.
void Negate(const std::string& file, const std::string& distribution) {
  hid_t f = H5Fopen(file.c_str(), H5F_ACC_RDWR, H5P_DEFAULT);
  hid_t d = H5Dopen2(f, ("/QELSim/distributions/" + distribution).c_str(), H5P_DEFAULT);
  hid_t space = H5Dget_space(d);
  std::vector<int> values(static_cast<size_t>(H5Sget_simple_extent_npoints(space)));
  if (!values.empty()) {
    H5Dread(d, H5T_NATIVE_INT, H5S_ALL, H5S_ALL, H5P_DEFAULT, values.data());
    values[0] = -1;
    H5Dwrite(d, H5T_NATIVE_INT, H5S_ALL, H5S_ALL, H5P_DEFAULT, values.data());
  }
  H5Sclose(space);
  H5Dclose(d);
  H5Fclose(f);
}

int DamagedCopies(const std::string& dir, int flips) {
  const std::string pristine = dir + "/pristine.sim";
  RunWorkload(pristine, 40);
  const std::string bytes = ReadAll(pristine);
  for (int i = 1; i <= 20; ++i) {
    WriteAll(dir + "/cut-" + std::to_string(i) + ".sim",
             bytes.substr(0, bytes.size() * static_cast<size_t>(i) / 21));
  }
  std::mt19937 random(20261124);
  for (int i = 0; i < flips; ++i) {
    std::string flipped = bytes;
    size_t at = random() % bytes.size();
    flipped[at] =
        static_cast<char>(static_cast<unsigned char>(flipped[at]) ^ (1u << (random() % 8)));
    WriteAll(dir + "/flip-" + std::to_string(i) + ".sim", flipped);
  }
  for (const std::string& minor : Distributions(pristine)) {
    const std::string copy = dir + "/negative-" + minor + ".sim";
    WriteAll(copy, bytes);
    Negate(copy, minor);
  }
  return 0;
}

int Damage(const std::string& file) {
  const std::string systems = "/sim/discreteModel/mesh/systems/";
  RawWriteDataset(file, systems + "0/#simpleTypeMembers", Bytes{1, 2, 3});
  RawWriteClass(file, systems + "1", "com.trevolo.Unknown");
  RawWriteDataset(file, "/QELSim/collections/0/0", Bytes{9, 1, 2});
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  int startups = 0;
  DDB_PDM_Core_initialize(startups);
  int status = 2;
  if (argc == 3 && std::string(argv[1]) == "damage") {
    status = Damage(argv[2]);
  } else if (argc == 3 && std::string(argv[1]) == "plain") {
    // An HDF5 file that is no database: no group "sim".
    hid_t file = H5Fcreate(argv[2], H5F_ACC_TRUNC, H5P_DEFAULT, H5P_DEFAULT);
    status = file >= 0 && H5Fclose(file) >= 0 ? 0 : 1;
  } else if (argc == 4 && std::string(argv[1]) == "damaged-copies") {
    status = DamagedCopies(argv[2], std::atoi(argv[3]));
  } else {
    std::fprintf(stderr,
                 "usage: python_test_helper damage FILE | plain FILE | damaged-copies DIR FLIPS\n");
  }
  DDB_PDM_Core_finalize(startups);
  return status;
}
