#include "support/scratch_dir.h"

#include <ftw.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>

namespace {
int RemoveOne(const char* path, const struct stat*, int, struct FTW*) {
  return std::remove(path);
}
}  // namespace

ScratchDir::ScratchDir() {
  const char* base = std::getenv("DDB_TEST_DATA");
  std::string pattern = std::string(base != nullptr ? base : "/tmp") + "/scratch_XXXXXX";
  char* made = mkdtemp(&pattern[0]);
  if (made == nullptr) std::abort();  // no place to work; never fall back to a shared directory
  m_path = made;
}

ScratchDir::~ScratchDir() {
  nftw(m_path.c_str(), RemoveOne, 16, FTW_DEPTH | FTW_PHYS);
}

std::string ReadWholeFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream bytes;
  bytes << in.rdbuf();
  return bytes.str();
}

void WriteWholeFile(const std::string& path, const std::string& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << bytes;
}
