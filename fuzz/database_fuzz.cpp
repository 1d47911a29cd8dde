// Fuzzes whole database files: each input is taken as the bytes of a
// database and walked completely through the library (every getter, array
// element, map entry and service identifier; tests/reliability/walk.h).
//
// The image goes through the library's own open path, journal and checks
// included, from a file in memory-backed /dev/shm rather than through HDF5's
// core driver, so that what is fuzzed is what a host runs. Messages are
// dropped; any crash, sanitizer report, leak or timeout is a finding.
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

#include "platform/core/aio_ostream.h"
#include "reliability/walk.h"

namespace {
void Drop(void*, const char*, int) {}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const std::string path = "/dev/shm/ddb_database_fuzz_" + std::to_string(getpid()) + ".sim";
  std::FILE* file = std::fopen(path.c_str(), "wb");
  if (file == nullptr) return 0;
  bool written = std::fwrite(data, 1, size, file) == size;
  std::fclose(file);
  unlink((path + "-journal").c_str());
  if (!written) return 0;
  aio_cerr.SetSink(&Drop, nullptr);
  WalkDatabase(path);
  aio_cerr.SetSink(nullptr, nullptr);
  return 0;
}
