// Bulk data as numpy arrays (ddb_py_numpy.h).
#include "python/ddb_py_numpy.h"

#include <climits>
#include <string>

#include "platform/core/mem.h"

namespace ddb_py {

py::array_t<int32_t> NewInt32Array(py::ssize_t n) {
  return py::array_t<int32_t>(n);
}

py::array_t<int32_t> Adopt(int* values, py::ssize_t count) {
  py::capsule owner(values, [](void* p) { mem_Free(p); });
  return py::array_t<int32_t>(count, values, owner);
}

py::array_t<int32_t, py::array::c_style | py::array::forcecast> Int32Array(py::handle values,
                                                                           const char* what) {
  typedef py::array_t<int32_t, py::array::c_style | py::array::forcecast> Out;
  py::array array = py::array::ensure(values);
  if (!array) throw py::type_error(std::string(what) + ": an array of integers is expected");
  const char kind = array.dtype().kind();
  if (array.size() == 0) return Out(0);  // an empty list reads as floats
  if (kind != 'i' && kind != 'u' && kind != 'b') {
    throw py::type_error(std::string(what) + ": an array of integers is expected");
  }
  if (array.ndim() != 1) {
    throw py::value_error(std::string(what) + ": a one-dimensional array is expected");
  }
  if (!array.dtype().is(py::dtype::of<int32_t>()) && kind != 'b') {
    py::int_ low = array.attr("min")(), high = array.attr("max")();
    if (low < py::int_(INT32_MIN) || high > py::int_(INT32_MAX)) {
      throw py::value_error(std::string(what) + ": values outside the 32-bit integer range");
    }
  }
  return Out::ensure(array);
}

}  // namespace ddb_py
