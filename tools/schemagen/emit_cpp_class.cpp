// A member table as the C++ emitter sees it (see emit_cpp.h).
#include "emit_cpp.h"

std::string Upper(const std::string& s) {
  std::string t;
  for (char c : s) t += (c >= 'a' && c <= 'z') ? static_cast<char>(c - 'a' + 'A') : c;
  return t;
}

std::string GetterType(const Member& m) {
  return IsMap(m.type) ? "const " + m.type + "&" : m.type;
}

std::string SetterParam(const Member& m) {
  return IsMap(m.type) ? "const " + m.type + "& value" : m.type + " value";
}

CppClass::CppClass(const Table& table)
    : t(table),
      X(table.name),
      simple(table.Of(MemberKind::kSimple)),
      required(table.Required()),
      subobjects(table.Of(MemberKind::kSubobject)),
      arrays(table.Of(MemberKind::kArray)),
      services(table.Of(MemberKind::kService)) {}

std::string CppClass::Layer() const {
  const std::string& s = t.source;
  size_t slash = s.find_last_of('/');
  std::string dir = slash == std::string::npos ? "" : s.substr(0, slash);
  size_t prev = dir.find_last_of('/');
  return prev == std::string::npos ? dir : dir.substr(prev + 1);
}

std::string CppClass::ArrayType(const Member& m) const {
  return X + "_" + Capital(m.name) + "Array";
}

std::string CppClass::IndexName(const Member& m) {
  return "k" + Capital(m.name);
}

std::string CppClass::NewParams() const {
  std::string s;
  for (const Member& m : t.baseRequired) s += m.type + " " + m.name + ", ";
  for (const Member* m : required) s += m->type + " " + m->name + ", ";
  return s;
}

std::string CppClass::NewArgs() const {
  std::string s;
  for (const Member& m : t.baseRequired) s += m.name + ", ";
  for (const Member* m : required) s += m->name + ", ";
  return s;
}

std::string CppClass::BaseShortName() const {
  return ShortName(t.base);
}
