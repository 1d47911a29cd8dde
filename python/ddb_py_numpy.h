// Bulk data as numpy arrays: int32 arrays from whatever integer array-like
// Python passes, and new arrays for the library's answers.
#ifndef DDB_PYTHON_DDB_PY_NUMPY_H_
#define DDB_PYTHON_DDB_PY_NUMPY_H_

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <cstdint>

namespace ddb_py {
namespace py = pybind11;

// A 1-D int32 array of `values` (any integer array-like; values outside
// int32 raise ValueError), copied only when its type or layout needs it.
py::array_t<int32_t, py::array::c_style | py::array::forcecast> Int32Array(py::handle values,
                                                                           const char* what);
// A new 1-D int32 array of n elements.
py::array_t<int32_t> NewInt32Array(py::ssize_t n);
// An int array of the suite allocator, handed to numpy without a copy (numpy
// frees it with mem_Free).
py::array_t<int32_t> Adopt(int* values, py::ssize_t count);

}  // namespace ddb_py

#endif  // DDB_PYTHON_DDB_PY_NUMPY_H_
