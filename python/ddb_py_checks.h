// The Python module's checks of what it passes on: input the library would
// stop the process on, or would take only in part, is refused before the
// library sees it, so that in Python an exception means nothing changed.
//
// Three families live here, apart from the bindings that use them: the
// masks of the DOF numbering (ValueError for an argument, ddb.Error with the
// library's own lines for stored masks), texts (no NUL), and changes of a
// database (it must be open for update, and every identifier stored in it
// must come from its own service context).
#ifndef DDB_PYTHON_DDB_PY_CHECKS_H_
#define DDB_PYTHON_DDB_PY_CHECKS_H_

#include <string>
#include <vector>

#include "python/ddb_py.h"

namespace ddb_py {

// ---- the DOF numbering -----------------------------------------------------------

// ValueError unless 0 <= shift <= 31 (the library would take it modulo 32).
void CheckShift(long long shift);
// ValueError naming the first node whose mask is negative, or that gains
// label 32 when prepared with `shift` and `addLabel10`.
void CheckMaskArgument(const int32_t* masks, long long count, int shift, bool addLabel10);
// ddb.Error with the lines the library would print before stopping
// ("NODAL DOF MASK WITH LABEL 32 SET." and "NODE / MASK: n / m") when a
// stored mask distribution prepares to a mask with label 32.
void CheckStoredMasks(const QELSimDistributionID& id, const QELSimPersistentDrawerDesc& drawer,
                      int count, int shift, bool addLabel10);

// ---- texts -------------------------------------------------------------------------

// ValueError when `text` holds a NUL character (the library would cut it there).
void CheckText(const std::string& text, const char* what);

// ---- argument types -----------------------------------------------------------------

// Re-words, for every function, method and property setter of the module,
// pybind11's TypeError for arguments that match no overload: what was
// expected in the module's names, and what came (ddb_py_arguments.cpp).
void TranslateArgumentErrors(py::module_& m);

// The checks of changes of a database (NoteOrigin, CheckChange) are
// declared in ddb_py_lives.h, whose users' templates call them; they are
// defined here.

}  // namespace ddb_py

#endif  // DDB_PYTHON_DDB_PY_CHECKS_H_
