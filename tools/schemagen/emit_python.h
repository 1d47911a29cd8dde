// The Python emitter of the schema generator: the pybind11 bindings of every
// schema class and the .pyi stub that describes them, from the member
// tables. What the bindings share (lives, conversions, how a member kind
// becomes a property) is written once in python/ (ddb_py.h lists it); per class the
// emitter writes only declarations: the class's traits, its `new` and one
// line per member.
//
// It reads the tables as the C++ emitter does (schema_table.h), linked to
// their bases among themselves (LinkAmong: each base before its derived
// classes), and names members with the same helpers.
#ifndef DDB_TOOLS_SCHEMAGEN_EMIT_PYTHON_H_
#define DDB_TOOLS_SCHEMAGEN_EMIT_PYTHON_H_

#include <string>
#include <vector>

#include "schema_table.h"

namespace emit_python {

// The Python name of a class (the part after the module prefix) and of a
// member (snake_case; a Python keyword gets a trailing underscore).
std::string PythonClassName(const std::string& cppName);
std::string PythonMemberName(const Member& member);

// The C++ source that defines ddb_py::BindSchema for all classes, given
// linked and ordered by LinkAmong.
std::string BindingSource(const std::vector<Table>& classes);

// The stub ddb_pdm.pyi: `prelude` (the hand-written part of the module),
// then one declaration per class and per array member.
std::string Stub(const std::vector<Table>& classes, const std::string& prelude);

}  // namespace emit_python

#endif  // DDB_TOOLS_SCHEMAGEN_EMIT_PYTHON_H_
