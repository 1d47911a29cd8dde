// The C++ emitter of the schema generator: a class's header and source.
//
// What every family has in common lives in persistence/gbb_SchemaFamily.h;
// the emitter writes only what needs the table's names: the family record,
// the value record with its member list, the interface, the implementation's
// constructors, Bind, SetPath, Traverse and accessors, the handle's getters
// and setters, and the holder's and access's names. CppClass is the table
// seen the way both halves of the emitter need it.
#ifndef DDB_TOOLS_SCHEMAGEN_EMIT_CPP_H_
#define DDB_TOOLS_SCHEMAGEN_EMIT_CPP_H_

#include <sstream>
#include <string>
#include <vector>

#include "schema_table.h"

struct CppClass {
  explicit CppClass(const Table& table);

  const Table& t;
  std::string X;  // the class name
  std::vector<const Member*> simple, required, subobjects, arrays, services;

  bool Derived() const { return t.Derived(); }
  bool Root() const { return t.root; }
  bool HasRecord() const { return !simple.empty(); }
  // The folder the class's headers live in (fes, sim_schema).
  std::string Layer() const;

  // "<X>_<Member>Array": the array member's handle type.
  std::string ArrayType(const Member& m) const;
  // The named constant of a member's index ("kNodes").
  static std::string IndexName(const Member& m);
  // The parameters of New, and the same names as arguments: the base's
  // required members, then the class's own, each followed by ", ".
  std::string NewParams() const;
  std::string NewArgs() const;
  // The base class's name without its prefix (fesD_FESystem: FESystem).
  std::string BaseShortName() const;
};

std::string Upper(const std::string& s);
// How a simple member's value is returned and passed.
std::string GetterType(const Member& m);
std::string SetterParam(const Member& m);

// The two generated files; the header ends with the class's reflection.
std::string EmitHeader(const CppClass& c);
void EmitReflection(std::ostringstream& o, const CppClass& c);
std::string EmitSource(const CppClass& c);

#endif  // DDB_TOOLS_SCHEMAGEN_EMIT_CPP_H_
