// The generated source: the interface's class descriptor, New, and the
// implementation's constructors, destructor, Bind, SetPath, Traverse and
// member accessors. Everything else comes from persistence/gbb_SchemaFamily.h.
#include <sstream>

#include "emit_cpp.h"

namespace {

void Interface(std::ostringstream& o, const CppClass& c) {
  const std::string& X = c.X;
  o << X << "Interface::~" << X << "Interface() {}\n\n";
  o << "gbb_Class " << X
    << "Interface::StaticClass() {\n  static gbb_ClassDescriptor descriptor;\n";
  o << "  return gbb_DescribeClass(descriptor, \"" << c.t.id << "\", "
    << (c.Derived() ? "&" + c.t.base + "Interface::StaticClass" : "nullptr") << ", "
    << (c.Root() ? "nullptr" : "&gbb_OpenStored<" + X + "Impl>") << ");\n}\n\n";
}

void New(std::ostringstream& o, const CppClass& c) {
  const std::string& X = c.X;
  const std::string H = X + "Holder";
  // The holder's flags (gbb_HolderBase.h): resolved, and for the overload
  // taking an outer interface also "outer supplied", even when it is null.
  o << H << " " << X << "::New(" << c.NewParams() << "int traceFlag) {\n";
  o << "  return " << H << "(" << X << "HolderMoveSrc(new " << X << "Impl(nullptr, " << c.NewArgs()
    << "traceFlag), " << H << "::kResolved));\n}\n\n";
  o << H << " " << X << "::New(" << X << "Interface* outer, " << c.NewParams()
    << "int traceFlag) {\n";
  o << "  return " << H << "(" << X << "HolderMoveSrc(new " << X << "Impl(outer, " << c.NewArgs()
    << "traceFlag),\n"
    << "      " << H << "::kResolved | " << H << "::kOuterSupplied));\n}\n\n";
}

// The handle's operations and the holder's: each one step of the family's templates.
void Handle(std::ostringstream& o, const CppClass& c) {
  const std::string& X = c.X;
  const std::string M = X + "Members";
  const std::string I = X + "Impl";
  o << X << "::operator gbb_Handle() const {\n  return gbb_OuterHandle(Impl());\n}\n\n";
  for (const Member* m : c.simple) {
    o << GetterType(*m) << " " << X << "::" << m->name << "() const {\n  return Get(&" << M
      << "::" << m->name << ", \"" << m->name << "\");\n}\n";
    o << "void " << X << "::" << Capital(m->name) << "(" << SetterParam(*m) << ") const {\n  Set(&"
      << M << "::" << m->name << ", \"" << Capital(m->name) << "\", value);\n}\n\n";
  }
  auto reach = [&](const std::string& type, const std::string& name, const std::string& step,
                   const std::string& param, const std::string& arg) {
    o << type << " " << X << "::" << name << "(" << param << ") const {\n  return Reach(\"" << name
      << "\", &" << I << "::" << step << arg << ");\n}\n";
  };
  for (const Member* m : c.subobjects) {
    reach(m->type, m->name, m->name, "", "");
    reach(m->type, Capital(m->name), "Set" + Capital(m->name), m->type + "Holder holder",
          ", holder");
    o << "\n";
  }
  for (const Member* m : c.arrays) reach(c.ArrayType(*m), m->name, m->name, "", "");
  for (const Member* m : c.services) reach(m->type, m->name, m->name, "", "");
  if (!c.arrays.empty() || !c.services.empty()) o << "\n";
  const std::string H = X + "Holder";
  o << X << " " << H << "::Get() const {\n  return gbb_SchemaHolder::Get();\n}\n";
  o << "gbb_Handle " << H << "::Traverse(gbb_TraverseContext& context) {\n"
    << "  return gbb_SchemaHolder::Traverse(context);\n}\n\n";
  if (c.Derived()) {
    o << "const " << c.t.base << "Holder& " << H << "::" << c.BaseShortName()
      << "Subobject() const {\n  return BasePart(\"" << c.BaseShortName() << "Subobject\");\n}\n\n";
  }
}

// The root's holder: binding and placing take the service context and root.
void RootHolder(std::ostringstream& o, const CppClass& c) {
  const std::string& X = c.X;
  const std::string H = X + "Holder";
  auto forward = [&](const char* op, const char* params, const char* args) {
    o << "void " << H << "::" << op << "(" << params << ") {\n";
    o << "  if (!CheckNotEmpty(gbb_NamesOf<" << X << "Family>().holder, \"" << op
      << "\")) return;\n";
    o << "  if (Supplied()) {\n    m_object->" << X << "Impl::" << op << "(" << args << ");\n"
      << "  } else if (m_object->Interface() != nullptr) {\n    m_object->Interface()->" << op
      << "(" << args << ");\n  }\n}\n\n";
  };
  forward("Bind", "QELSimContextID context, const gbb_Group& group", "context, group");
  forward("SetPath", "gbb_Root root, int index", "root, index");
  o << H << " " << H << "::Open(gbb_Root root, int index, QELSimContextID context, "
    << "const gbb_Group& group, int traceFlag) {\n";
  o << "  return " << H << "(" << X << "HolderMoveSrc(new " << X
    << "Impl(nullptr, root, index, context, group, traceFlag), " << H << "::kResolved));\n}\n\n";
  o << H << " " << H << "::Open(" << X << "Interface* outer, gbb_Root root, int index, "
    << "QELSimContextID context, const gbb_Group& group, int traceFlag) {\n";
  o << "  return " << H << "(" << X << "HolderMoveSrc(new " << X
    << "Impl(outer, root, index, context, group, traceFlag),\n      " << H << "::kResolved | " << H
    << "::kOuterSupplied));\n}\n\n";
}

void Constructors(std::ostringstream& o, const CppClass& c) {
  const std::string& X = c.X;
  const std::string I = X + "Impl";
  // The members that the two constructors initialise differently.
  auto holders = [&](bool fresh) {
    std::string s;
    if (c.Derived()) {
      std::string baseArgs;
      for (const Member& m : c.t.baseRequired) baseArgs += m.name + ", ";
      s += fresh ? ",\n      m_base(" + c.t.base + "::New(m_outer, " + baseArgs + "traceFlag))"
                 : ",\n      m_base(" + c.t.base +
                       "Holder::Open(m_outer, parent, index, group.OpenGroup(\"#base\"), "
                       "traceFlag))";
    }
    if (fresh) {
      for (const Member* m : c.subobjects) {
        s += ",\n      m_" + m->name + "(" + m->type + "HolderMoveSrc(nullptr, " + m->type +
             "Holder::kResolved))";
      }
      for (const Member* m : c.arrays) {
        s += ",\n      m_" + m->name + "(" + c.ArrayType(*m) + "::New(traceFlag))";
      }
      for (const Member* m : c.required) s += ",\n      m_new_" + m->name + "(" + m->name + ")";
    }
    return s;
  };
  if (c.Root()) {
    o << I << "::" << I << "(" << X << "Interface* outer, int traceFlag)\n"
      << "    : gbb_SchemaImpl(outer, gbb_Path(), gbb_Root(), -1, traceFlag)" << holders(true)
      << " {\n  RegisterClasses();\n}\n\n";
    o << I << "::" << I << "(" << X << "Interface* outer, gbb_Root root, int index, "
      << "QELSimContextID context, const gbb_Group& group, int traceFlag)\n"
      << "    : gbb_SchemaImpl(outer, gbb_Path(), root, index, group, traceFlag),\n"
      << "      m_servicePath(&m_path, gbb_Root(), 1),\n      m_context(context)" << holders(false)
      << " {\n  m_snapshot.PathRecord().Set(&m_path, gbb_Root(), 2);\n"
      << "  RegisterClasses();\n}\n\n";
    o << "void " << I << "::RegisterClasses() {\n";
    for (const std::string& r : c.t.registered) {
      o << "  m_snapshot.Register(" << r << "Interface::StaticClass());\n";
    }
    o << "}\n\n";
    return;
  }
  o << I << "::" << I << "(" << X << "Interface* outer, " << c.NewParams() << "int traceFlag)\n"
    << "    : gbb_SchemaImpl(outer, gbb_Path(), gbb_Root(), -1, traceFlag)" << holders(true)
    << " {\n";
  for (const Member* m : c.arrays) {
    o << "  m_" << m->name << ".SetPath(&m_path, " << c.IndexName(*m) << ");\n";
  }
  o << "}\n\n";
  o << I << "::" << I << "(" << X << "Interface* outer, gbb_Path parent, int index, "
    << "const gbb_Group& group, int traceFlag)\n"
    << "    : gbb_SchemaImpl(outer, parent, gbb_Root(), index, group, traceFlag)" << holders(false)
    << " {}\n\n";
}

void Lifecycle(std::ostringstream& o, const CppClass& c) {
  const std::string& X = c.X;
  const std::string I = X + "Impl";
  // Destructor: sub-objects last to first, then the base part; the value
  // record goes with the framework's part.
  if (c.Derived() || c.Root() || !c.subobjects.empty() || !c.arrays.empty()) {
    o << I << "::~" << I << "() {\n";
    for (auto m = c.t.members.rbegin(); m != c.t.members.rend(); ++m) {
      if (m->kind == MemberKind::kSubobject || m->kind == MemberKind::kArray) {
        o << "  m_" << m->name << ".Close();\n";
      }
    }
    if (c.Derived()) o << "  m_base.Close();\n";
    if (c.Root()) {
      o << "  m_group = gbb_Group();  // let the file close completely\n";
      o << "  QELSimManager::CloseContext(m_context);\n";
    }
    o << "}\n\n";
  }
  // Bind: the base part first, then the object, its record and its members.
  o << "void " << I << "::Bind("
    << (c.Root() ? "QELSimContextID context, const gbb_Group& group" : "const gbb_Group& group")
    << ") {\n";
  if (c.Derived()) o << "  m_base.Bind(group.CreateGroup(\"#base\"));\n";
  o << "  if (!BeginBind()) return;\n";
  if (c.Root()) o << "  m_context = context;\n";
  o << "  BindGroup(group);\n";
  if (c.HasRecord()) o << "  BindMembers();\n";
  for (const Member& m : c.t.members) {
    if (m.kind == MemberKind::kArray) {
      o << "  m_" << m.name << ".Bind(m_group.CreateRepository(\"" << m.name << "\"));\n";
    } else if (m.kind == MemberKind::kSubobject) {
      o << "  if (!m_" << m.name << ".IsEmpty()) m_" << m.name << ".Bind(m_group.CreateGroup(\""
        << m.name << "\"));\n";
    }
  }
  o << "  m_connected = true;\n}\n\n";
  if (c.Root()) {
    o << "void " << I << "::SetPath(gbb_Root root, int index) {\n"
      << "  m_path.Set(gbb_Path(), root, index);\n}\n\n";
  } else {
    o << "void " << I << "::SetPath(gbb_Path parent, int index) {\n";
    if (c.Derived()) o << "  m_base.SetPath(parent, index);\n";
    o << "  m_path.Set(parent, gbb_Root(), index);\n}\n\n";
  }
  if (c.Derived()) {
    o << c.t.base << " " << I << "::Impl() {\n  return m_base.Get();\n}\n\n";
    o << X << " " << I << "::DerivedImpl() {\n  return Self();\n}\n\n";
  } else {
    o << X << " " << I << "::Impl() {\n  return Self();\n}\n\n";
  }
}

void Traverse(std::ostringstream& o, const CppClass& c) {
  const std::string I = c.X + "Impl";
  o << "gbb_Handle " << I << "::Traverse(gbb_TraverseContext& context) {\n";
  for (const Member& m : c.t.members) {
    if (m.kind == MemberKind::kSimple) continue;
    o << "  if (Selects(context, " << c.IndexName(m) << ", \"" << m.name << "\")) {\n    return ";
    if (m.kind == MemberKind::kSubobject) {
      o << "EnterSubobject(context, m_" << m.name << ", &" << I << "::" << m.name << ");\n";
    } else if (m.kind == MemberKind::kArray) {
      o << "EnterArray(context, m_" << m.name << ", &" << I << "::" << m.name << ");\n";
    } else {
      o << "gbb_TraverseLeaf(context, " << m.name << "());\n";
    }
    o << "  }\n";
  }
  if (c.Derived()) {
    o << "  return m_base.Traverse(context);  // every other step belongs to the " << c.t.base
      << " part\n}\n\n";
  } else {
    o << "  return NothingThere(context);\n}\n\n";
  }
}

void Accessors(std::ostringstream& o, const CppClass& c) {
  const std::string I = c.X + "Impl";
  for (const Member* m : c.subobjects) {
    std::string where = "\"" + m->name + "\", &m_path, " + c.IndexName(*m);
    o << m->type << " " << I << "::" << m->name << "() {\n";
    o << "  return gbb_LoadSubobject(m_" << m->name << ", m_group, " << where
      << ", m_trace);\n}\n\n";
    o << m->type << " " << I << "::Set" << Capital(m->name) << "(" << m->type
      << "Holder& offered) {\n";
    o << "  return gbb_SetSubobject(m_" << m->name << ", offered, m_connected, m_group, " << where
      << ",\n                          \"**ERROR:" << I << "::" << Capital(m->name)
      << ": already exists\\n\");\n}\n\n";
  }
  for (const Member* m : c.arrays) {
    o << c.ArrayType(*m) << " " << I << "::" << m->name << "() {\n";
    o << "  return gbb_LoadArray(m_" << m->name << ", m_group, \"" << m->name << "\", &m_path, "
      << c.IndexName(*m) << ", m_trace);\n}\n\n";
  }
}

}  // namespace

std::string EmitSource(const CppClass& c) {
  std::ostringstream o;
  o << "// Generated by ddb_schemagen from " << c.t.source << ": do not edit.\n";
  o << "#include \"" << c.Layer() << "/" << c.X << ".h\"\n\n";
  for (const std::string& h : c.t.cppIncludes) o << "#include \"" << h << "\"\n";
  if (!c.t.cppIncludes.empty()) o << "\n";
  for (const Member* m : c.arrays) {
    o << "template class gbb_Array<" << m->type << ", " << m->type << "Holder, gbb_Repository, "
      << c.X << ">;\n\n";
  }
  Interface(o, c);
  New(o, c);
  Handle(o, c);
  if (c.Root()) RootHolder(o, c);
  Constructors(o, c);
  Lifecycle(o, c);
  Traverse(o, c);
  Accessors(o, c);
  return o.str();
}
