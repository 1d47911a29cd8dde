// What the binding templates of ddb_py_members.h share out of line.
#include "python/ddb_py_members.h"

#include <string>

namespace ddb_py {

int ArrayIndex(py::ssize_t index, int count) {
  py::ssize_t i = index < 0 ? index + count : index;
  if (i < 0 || i >= count) {
    throw py::index_error("index " + std::to_string(index) + " out of range for " +
                          std::to_string(count) + " elements");
  }
  return static_cast<int>(i);
}

}  // namespace ddb_py
