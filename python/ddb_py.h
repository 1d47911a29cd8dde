// The Python module ddb_pdm: its parts, and everything the generated
// bindings of the schema classes use.
//
// The module is split by concern:
//   ddb_py_messages   errors and messages: ddb.Error, DatabaseWarning, the
//                     Messages scope and the Read / Change patterns
//   ddb_py_lives      the lives that keep handles safe
//   ddb_py_objects    ddb.Object, the Obj<X> of each schema class, how
//                     Python may construct
//   ddb_py_ownership  objects made by `new` and their hand-over
//   ddb_py_values     how each member type crosses (Convert, Held)
//   ddb_py_numpy      bulk data as numpy arrays
//   ddb_py_members    the binding templates of the generated code
//   ddb_py_checks     what is refused before the library sees it
// and the parts below, each bound by a file of its own.
#ifndef DDB_PYTHON_DDB_PY_H_
#define DDB_PYTHON_DDB_PY_H_

#include <pybind11/pybind11.h>

#include <filesystem>

#include "DDB_PDM_Core.h"
#include "python/ddb_py_lives.h"
#include "python/ddb_py_members.h"
#include "python/ddb_py_messages.h"
#include "python/ddb_py_numpy.h"
#include "python/ddb_py_objects.h"
#include "python/ddb_py_ownership.h"
#include "python/ddb_py_values.h"

namespace ddb_py {

// ---- the module's parts -----------------------------------------------------------

void BindIdentifiers(py::module_& m);  // Collection, OrderedSet, Distribution, Service, ...
void BindRoot(py::module_& m);         // Root and ddb.open
void BindFollow(py::module_& m);       // ddb.follow
void BindSchema(py::module_& m);       // generated from the member tables
void BindNumbering(py::module_& m);    // DOF numbering and node labels

// A database opened read-only with a root of its own, as ddb.open(file) gives it.
py::object OpenReadOnly(const std::filesystem::path& file);
// Closes every root (at interpreter exit, before the library is finalised);
// what the library says goes where it writes it.
void CloseRoots();

// The first drawer of a distribution (with its dimension set), or Error
// with the service's text.
QELSimPersistentDrawerDesc Drawer(const QELSimDistributionID& id);

}  // namespace ddb_py

#endif  // DDB_PYTHON_DDB_PY_H_
