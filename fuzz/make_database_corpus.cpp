// Writes the seed corpus of the database fuzzer into the directory given as
// argument: databases made by the crash workload after a few numbers of
// commits, so that every class and the service's data are in the seeds.
#include <cstdio>
#include <string>

#include "reliability/crash_workload.h"

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: make_database_corpus <directory>\n");
    return 2;
  }
  for (int commits : {1, 5, 12, 24}) {
    std::string path = std::string(argv[1]) + "/seed" + std::to_string(commits) + ".sim";
    std::remove(path.c_str());
    RunWorkload(path, commits);
  }
  return 0;
}
