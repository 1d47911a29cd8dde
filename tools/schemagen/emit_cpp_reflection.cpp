// The generated reflection of a class (see persistence/gbb_Reflection.h):
// its members in save order, a visit of an object's members, and for the
// root class the classes of its schema. Written at the end of the header, so
// that every class of the family is complete.
#include <sstream>

#include "emit_cpp.h"

namespace {

// Indexed by MemberKind (simple, subobject, array, service): the visitor's
// call for the member, and its reflected kind (a simple member's is by type).
const char* const kVisitorCalls[] = {"Simple", "Subobject", "Array", "Service"};
const char* const kReflectedKinds[] = {"", "kSubobject", "kArray", "kService"};

std::string KindOf(const Member& m) {
  if (m.kind != MemberKind::kSimple) return kReflectedKinds[static_cast<int>(m.kind)];
  if (IsMap(m.type)) return "kMap";
  return m.type.rfind("QELSim", 0) == 0 ? "kIdentifier" : "kValue";
}

}  // namespace

void EmitReflection(std::ostringstream& o, const CppClass& c) {
  const std::string& X = c.X;
  if (c.Root()) {
    for (const std::string& r : c.t.registered) o << "class " << r << ";\n";
    o << "\n";
  }
  int count = static_cast<int>(c.t.members.size()) + (c.Derived() ? 1 : 0);
  o << "// The members of " << X << " in save order (see persistence/gbb_Reflection.h).\n";
  o << "template <>\nstruct gbb_Reflection<" << X << "> {\n";
  o << "  static constexpr const char* kName = \"" << X << "\";\n";
  o << "  static gbb_Class Class() { return " << X << "Interface::StaticClass(); }\n";
  if (c.Root()) {
    o << "  // This class and the classes of its schema snapshot.\n";
    o << "  typedef gbb_ClassList<" << X;
    for (const std::string& r : c.t.registered) o << ", " << r;
    o << "> Classes;\n";
  }
  o << "  static constexpr int kCount = " << count << ";\n";
  if (count == 0) {
    o << "  static constexpr const gbb_MemberInfo* kMembers = nullptr;\n";
  } else {
    o << "  static constexpr gbb_MemberInfo kMembers[kCount] = {\n";
    if (c.Derived()) {
      o << "      {\"#base\", gbb_MemberKind::kBase, \"" << c.t.base << "\", -1},\n";
    }
    for (const Member& m : c.t.members) {
      o << "      {\"" << m.name << "\", gbb_MemberKind::" << KindOf(m) << ", \"" << m.type
        << "\", " << X << "Family::" << c.IndexName(m) << "},\n";
    }
    o << "  };\n";
  }
  o << "\n  // Hands every member of `object` to the visitor, in save order.\n";
  o << "  template <class V>\n  static void Visit(const " << X << "& " << (count ? "object" : "")
    << ", V&& " << (count ? "visitor" : "") << ") {\n";
  int at = 0;
  if (c.Derived()) {
    o << "    visitor.Base(kMembers[0], static_cast<const " << c.t.base << "&>(object));\n";
    ++at;
  }
  for (const Member& m : c.t.members) {
    o << "    visitor." << kVisitorCalls[static_cast<int>(m.kind)] << "(kMembers[" << at++
      << "], object." << m.name << "());\n";
  }
  o << "  }\n};\n\n";
}
