// The generated header: the family record, the value record, then the
// interface, the implementation, the handle, the holder and the access, in
// the order in which each needs the one before complete.
#include <algorithm>
#include <sstream>

#include "emit_cpp.h"

namespace {

std::string InitialValue(const Member& m) {
  if (m.type == "int") return " = 0";
  if (m.type == "double") return " = 0.0";
  return "";
}

void Family(std::ostringstream& o, const CppClass& c) {
  const std::string& X = c.X;
  o << "// The family of " << X << " (see persistence/gbb_SchemaFamily.h).\n";
  o << "struct " << X << "Family {\n";
  o << "  typedef " << X << " Handle;\n  typedef " << X << "Holder Holder;\n";
  o << "  typedef " << X << "Impl Object;\n  typedef " << X << "Interface Outer;\n";
  o << "  typedef " << (c.HasRecord() ? X + "Members" : "gbb_Members") << " Record;\n";
  o << "  static constexpr bool kDerived = " << (c.Derived() ? "true" : "false") << ";\n";
  o << "  static constexpr const char kName[] = \"" << X << "\";\n";
  if (!c.t.members.empty()) {
    std::vector<const Member*> byIndex;
    for (const Member& m : c.t.members) byIndex.push_back(&m);
    std::sort(byIndex.begin(), byIndex.end(),
              [](const Member* a, const Member* b) { return a->index < b->index; });
    o << "  // Member indices: each name's position among the class's member names,\n"
         "  // sorted by their bytes. They tag stored records and number path steps.\n";
    o << "  enum MemberIndex {\n";
    for (const Member* m : byIndex) o << "    " << c.IndexName(*m) << " = " << m->index << ",\n";
    o << "  };\n";
  }
  o << "};\n\n";
}

void Record(std::ostringstream& o, const CppClass& c) {
  const std::string M = c.X + "Members";
  o << "// The value record: every simple-typed member, in save order.\n";
  o << "class DDB_API " << M << " : public gbb_Members {\n public:\n";
  o << "  " << M << "() {}\n";
  if (!c.required.empty()) {
    std::string params, inits;
    for (const Member* m : c.required) {
      params += (params.empty() ? "" : ", ") + m->type + " " + m->name;
      inits += (inits.empty() ? "" : ", ") + m->name + "(" + m->name + ")";
    }
    o << "  " << M << "(" << params << ") : " << inits << " {}\n";
  }
  o << "\n";
  for (const Member* m : c.simple)
    o << "  " << m->type << " " << m->name << InitialValue(*m) << ";\n";
  o << "\n  // Calls visit(index, member) for every member, in save order.\n";
  o << "  template <class R, class V>\n  static void Visit(R& record, V&& visit) {\n";
  for (const Member* m : c.simple) {
    o << "    visit(" << c.X << "Family::" << c.IndexName(*m) << ", record." << m->name << ");\n";
  }
  o << "  }\n};\n\n";
}

void Interface(std::ostringstream& o, const CppClass& c) {
  const std::string& X = c.X;
  std::string parent = c.Derived() ? c.t.base + "Interface" : "gbb_ObjectInterface";
  o << "class DDB_API " << X << "Interface : public " << parent << " {\n public:\n";
  o << "  ~" << X << "Interface() override;\n";
  if (c.Derived()) {
    o << "  virtual " << X << " DerivedImpl() = 0;\n";
  } else {
    if (c.Root()) {
      o << "  virtual void Bind(QELSimContextID context, const gbb_Group& group) = 0;\n";
      o << "  virtual void SetPath(gbb_Root root, int index) = 0;\n";
    } else {
      o << "  virtual void Bind(const gbb_Group& group) = 0;\n";
      o << "  virtual void SetPath(gbb_Path parent, int index) = 0;\n";
    }
    o << "  virtual gbb_Handle Traverse(gbb_TraverseContext& context) = 0;\n";
    o << "  virtual gbb_Class Class() = 0;\n";
    o << "  virtual " << X << " Impl() = 0;\n";
  }
  o << "  static gbb_Class StaticClass();\n};\n\n";
}

void Impl(std::ostringstream& o, const CppClass& c) {
  const std::string& X = c.X;
  const std::string I = X + "Impl";
  o << "class DDB_API " << I << " : public gbb_SchemaImpl<" << X << "Family> {\n public:\n";
  if (c.Root()) {
    o << "  " << I << "(" << X << "Interface* outer, int traceFlag);\n";
    o << "  " << I << "(" << X << "Interface* outer, gbb_Root root, int index, "
      << "QELSimContextID context, const gbb_Group& group, int traceFlag);\n";
  } else {
    o << "  " << I << "(" << X << "Interface* outer, " << c.NewParams() << "int traceFlag);\n";
    o << "  " << I << "(" << X << "Interface* outer, gbb_Path parent, int index, "
      << "const gbb_Group& group, int traceFlag);\n";
  }
  bool owns = c.Derived() || c.Root() || !c.subobjects.empty() || !c.arrays.empty();
  if (owns) o << "  ~" << I << "() override;\n";
  o << "\n";
  if (c.Root()) {
    o << "  void Bind(QELSimContextID context, const gbb_Group& group) override;\n";
    o << "  void SetPath(gbb_Root root, int index) override;\n";
  } else {
    o << "  void Bind(const gbb_Group& group) override;\n";
    o << "  void SetPath(gbb_Path parent, int index) override;\n";
  }
  o << "  gbb_Handle Traverse(gbb_TraverseContext& context) override;\n";
  o << "  " << (c.Derived() ? c.t.base : X) << " Impl() override;\n";
  if (c.Derived()) o << "  " << X << " DerivedImpl() override;\n";
  if (!c.required.empty()) {
    std::string args;
    for (const Member* m : c.required) args += (args.empty() ? "m_new_" : ", m_new_") + m->name;
    o << "  " << X << "Members* NewMembers() { return new " << X << "Members(" << args << "); }\n";
  }
  if (c.Derived()) o << "  const " << c.t.base << "Holder& Subobject() const { return m_base; }\n";
  o << "\n";
  for (const Member* m : c.subobjects) {
    o << "  " << m->type << " " << m->name << "();\n";
    o << "  " << m->type << " Set" << Capital(m->name) << "(" << m->type << "Holder& offered);\n";
  }
  for (const Member* m : c.arrays) o << "  " << c.ArrayType(*m) << " " << m->name << "();\n";
  if (c.Root()) {
    o << "  QELSimContextID Context() const { return m_context; }\n";
    o << "  gbb_SchemaSnapshotImpl& Snapshot() { return m_snapshot; }\n";
    o << "  gbb_DistributionService distributionService() const {\n"
         "    return gbb_DistributionService(m_context);\n  }\n";
    o << "  gbb_SchemaSnapshot schemaSnapshot() { return gbb_SchemaSnapshot(&m_snapshot); }\n";
    o << "\n private:\n  void RegisterClasses();\n\n";
    o << "  gbb_PathImpl m_servicePath;\n  QELSimContextID m_context;\n";
    o << "  gbb_SchemaSnapshotImpl m_snapshot;\n";
  } else if (c.Derived() || !c.subobjects.empty() || !c.arrays.empty() || !c.required.empty()) {
    o << "\n private:\n";
  }
  if (c.Derived()) o << "  " << c.t.base << "Holder m_base;\n";
  for (const Member* m : c.subobjects) o << "  " << m->type << "Holder m_" << m->name << ";\n";
  for (const Member* m : c.arrays)
    o << "  " << c.ArrayType(*m) << "::Holder m_" << m->name << ";\n";
  for (const Member* m : c.required) o << "  " << m->type << " m_new_" << m->name << ";\n";
  o << "};\n\n";
}

void Handle(std::ostringstream& o, const CppClass& c) {
  const std::string& X = c.X;
  std::string base = c.Derived() ? "gbb_DerivedHandle<" + X + "Family, " + c.t.base + ">"
                                 : "gbb_SchemaHandle<" + X + "Family>";
  std::string baseName = c.Derived() ? "gbb_DerivedHandle" : "gbb_SchemaHandle";
  o << "class DDB_API " << X << " : public " << base << " {\n public:\n";
  o << "  using " << baseName << "::" << baseName << ";\n";
  if (c.Root()) o << "  using " << baseName << "::Path;\n";
  o << "  operator gbb_Handle() const;\n";
  o << "\n  static " << X << "Holder New(" << c.NewParams() << "int traceFlag);\n";
  o << "  static " << X << "Holder New(" << X << "Interface* outer, " << c.NewParams()
    << "int traceFlag);\n\n";
  for (const Member* m : c.simple) {
    o << "  " << GetterType(*m) << " " << m->name << "() const;\n";
    o << "  void " << Capital(m->name) << "(" << SetterParam(*m) << ") const;\n";
  }
  for (const Member* m : c.subobjects) {
    o << "  " << m->type << " " << m->name << "() const;\n";
    o << "  " << m->type << " " << Capital(m->name) << "(" << m->type << "Holder holder) const;\n";
  }
  for (const Member* m : c.arrays) o << "  " << c.ArrayType(*m) << " " << m->name << "() const;\n";
  for (const Member* m : c.services) o << "  " << m->type << " " << m->name << "() const;\n";
  o << "};\n\n";
}

void Holder(std::ostringstream& o, const CppClass& c) {
  const std::string& X = c.X;
  const std::string H = X + "Holder";
  o << "// Owns one " << X << " (see gbb_HolderBase.h).\n";
  o << "class DDB_API " << H << " : public gbb_SchemaHolder<" << X << "Family> {\n public:\n";
  o << "  using gbb_SchemaHolder::gbb_SchemaHolder;\n  using gbb_SchemaHolder::operator=;\n\n";
  o << "  " << X << " Get() const;\n  gbb_Handle Traverse(gbb_TraverseContext& context);\n";
  if (c.Root()) {
    o << "\n  void Bind(QELSimContextID context, const gbb_Group& group);\n";
    o << "  void SetPath(gbb_Root root, int index);\n";
    o << "  static " << H << " Open(gbb_Root root, int index, QELSimContextID context, "
      << "const gbb_Group& group, int traceFlag);\n";
    o << "  static " << H << " Open(" << X << "Interface* outer, gbb_Root root, int index, "
      << "QELSimContextID context, const gbb_Group& group, int traceFlag);\n";
  }
  if (c.Derived()) {
    const std::string& B = c.t.base;
    o << "\n  // The " << B << " part (stored in \"#base\").\n";
    o << "  const " << B << "Holder& " << c.BaseShortName() << "Subobject() const;\n";
    o << "  // Moves the whole object out as a holder of its " << B << " part (for an\n"
      << "  // array of " << B << "); closing that holder destroys the whole object.\n";
    o << "  " << B << "HolderMoveSrc ReleaseAs" << c.BaseShortName()
      << "() { return ReleaseAsBase(); }\n";
  }
  o << "};\n\n";
}

void Access(std::ostringstream& o, const CppClass& c) {
  const std::string& X = c.X;
  o << "// Edits the value record; edits are stored by commit() and dropped otherwise.\n";
  o << "class DDB_API " << X << "Access : public gbb_SchemaAccess<" << X << "Family> {\n"
    << " public:\n";
  o << "  explicit " << X << "Access(" << X << " handle) : gbb_SchemaAccess(handle) {}\n};\n\n";
}

}  // namespace

std::string EmitHeader(const CppClass& c) {
  std::ostringstream o;
  const std::string& X = c.X;
  std::string guard = "DDB_GENERATED_" + Upper(X) + "_H_";
  o << "// Generated by ddb_schemagen from " << c.t.source << ": do not edit.\n";
  for (const std::string& line : c.t.comment) o << "// " << line << "\n";
  o << "#ifndef " << guard << "\n#define " << guard << "\n\n";
  o << "#include \"persistence/gbb_Schema.h\"\n";
  for (const std::string& h : c.t.headers) o << "#include \"" << h << "\"\n";
  o << "\nclass " << X << ";\nclass " << X << "Holder;\nclass " << X << "Impl;\nclass " << X
    << "Interface;\n";
  if (c.HasRecord()) o << "class " << X << "Members;\n";
  o << "typedef gbb_HolderToken<" << X << "Impl> " << X << "HolderMoveSrc;\n";
  for (const Member* m : c.arrays) {
    std::string array =
        "gbb_Array<" + m->type + ", " + m->type + "Holder, gbb_Repository, " + X + ">";
    o << "typedef " << array << " " << c.ArrayType(*m) << ";\n";
    // One instantiation, in the library, so that the array's class is one object.
    o << "extern template class DDB_API " << array << ";\n";
  }
  o << "\n";
  Family(o, c);
  if (c.HasRecord()) Record(o, c);
  Interface(o, c);
  Impl(o, c);
  Handle(o, c);
  Holder(o, c);
  if (c.HasRecord()) Access(o, c);
  EmitReflection(o, c);
  o << "#endif  // " << guard << "\n";
  return o.str();
}
