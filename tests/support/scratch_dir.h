// Test helper: a fresh directory for the files a test makes, removed with
// everything in it when the helper goes.
#ifndef DDB_TESTS_SUPPORT_SCRATCH_DIR_H_
#define DDB_TESTS_SUPPORT_SCRATCH_DIR_H_

#include <string>

class ScratchDir {
 public:
  ScratchDir();
  ~ScratchDir();
  ScratchDir(const ScratchDir&) = delete;
  ScratchDir& operator=(const ScratchDir&) = delete;

  const std::string& Path() const { return m_path; }
  // Path of `name` inside the directory.
  std::string File(const std::string& name) const { return m_path + "/" + name; }

 private:
  std::string m_path;
};

// Whole contents of a file ("" when it cannot be read).
std::string ReadWholeFile(const std::string& path);
void WriteWholeFile(const std::string& path, const std::string& bytes);

#endif  // DDB_TESTS_SUPPORT_SCRATCH_DIR_H_
