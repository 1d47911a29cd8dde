// The Python emitter of the schema generator: the pybind11 bindings of every
// schema class and the .pyi stub that describes them, from the member
// tables. What the bindings share (lives, conversions, how a member kind
// becomes a property) is written once in python/ddb_py.h; per class the
// emitter writes only declarations: the class's traits, its `new` and one
// line per member.
//
// It reads the tables through this small view, so that it does not depend
// on how the generator parses and models them.
#ifndef DDB_TOOLS_SCHEMAGEN_EMIT_PYTHON_H_
#define DDB_TOOLS_SCHEMAGEN_EMIT_PYTHON_H_

#include <string>
#include <vector>

#include "schema_table.h"  // MemberKind

namespace emit_python {

struct Member {
  MemberKind kind = MemberKind::kSimple;
  std::string name;  // as in the table (camelCase)
  std::string type;  // C++ type (simple, service) or class name (subobject, array)
  bool required = false;
};

struct Class {
  std::string source;   // the table's path, for the generated files' headers
  std::string name;     // C++ class, e.g. fesD_ModalSystem
  std::string base;     // its base class, or empty
  std::string comment;  // the table's leading comment, one paragraph
  bool root = false;    // the top object of a database (the sim)
  std::vector<Member> members;
};

// The Python name of a class (the part after the module prefix) and of a
// member (snake_case; a Python keyword gets a trailing underscore).
std::string PythonClassName(const std::string& cppName);
std::string PythonMemberName(const Member& member);

// The C++ source that defines ddb_py::BindSchema for all classes. A class
// whose base is missing from `classes` ends the generator with a message.
std::string BindingSource(const std::vector<Class>& classes);

// The stub ddb_pdm.pyi: `prelude` (the hand-written part of the module),
// then one declaration per class and per array member.
std::string Stub(const std::vector<Class>& classes, const std::string& prelude);

}  // namespace emit_python

#endif  // DDB_TOOLS_SCHEMAGEN_EMIT_PYTHON_H_
