// ddb: looks inside, checks and compares simulation databases.
//
//   ddb tree FILE [LINK] [--depth N]   the object tree, every member decoded by name
//   ddb get FILE LINK                  the object a link text names
//   ddb check FILE                     what a host would trip over, one line each
//   ddb diff FILE1 FILE2               differences member by member
//   ddb dot FILE                       the object tree as a Graphviz graph
//   ddb info FILE                      classes, counts, sizes, format, journal
//
// Every command takes --json. Databases are opened read-only, through the
// library, so what is shown is what a host sees; nothing is ever written.
// Exit status: 0 clean or equal, 1 problems found or different, 2 the file
// cannot be opened at all or the command line is wrong (then with the usage
// line). `ddb --help` and `ddb help` describe the commands, `ddb --version`
// names the library's version.
#include <sys/stat.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <map>
#include <nlohmann/json.hpp>
#include <string>

#include "ddb_reader.h"
#include "frame/DDB_PDM_Core_version.h"
#include "platform/hdf/hdf_File.h"

namespace {

using nlohmann::json;

enum Exit { kClean = 0, kProblems = 1, kCannotOpen = 2, kUsage = 2 };

const char kUsageLine[] =
    "usage: ddb {tree|get|check|diff|dot|info} FILE... [options]  (ddb --help for more)";

// The library's version and the HDF5 it runs with.
std::string VersionText() {
  unsigned majorVersion = 0, minorVersion = 0, release = 0;
  H5get_libversion(&majorVersion, &minorVersion, &release);
  return std::string("DDB_PDM_Core ") + DDB_PDM_Core_version() + " (HDF5 " +
         std::to_string(majorVersion) + "." + std::to_string(minorVersion) + "." +
         std::to_string(release) + ")";
}

json ToJson(const DdbObject& o) {
  json j = {{"class", o.cls}, {"link", o.link}, {"name", o.name}};
  json values = json::object();
  for (const auto& v : o.values) values[v.first] = v.second;
  j["members"] = values;
  if (!o.messages.empty()) j["messages"] = o.messages;
  json children = json::array();
  for (const DdbObject& c : o.children) children.push_back(ToJson(c));
  j["children"] = children;
  return j;
}

void PrintTree(const DdbObject& o, int indent) {
  std::string pad(static_cast<size_t>(indent) * 2, ' ');
  std::cout << pad << (o.name.empty() ? "sim" : o.name) << ": "
            << (o.cls.empty() ? "(none)" : o.cls) << "  " << o.link << "\n";
  for (const auto& v : o.values) std::cout << pad << "  " << v.first << " = " << v.second << "\n";
  for (const DdbObject& c : o.children) PrintTree(c, indent + 1);
}

int CannotOpen(const std::string& why, bool asJson) {
  if (asJson) {
    std::cout << json{{"error", why}}.dump(2) << "\n";
  } else {
    std::cerr << "ddb: " << why << "\n";
  }
  return kCannotOpen;
}

bool Read(const std::string& file, int depth, DdbObject* sim, std::string* why) {
  struct stat info;
  if (stat(file.c_str(), &info) != 0) {
    *why = "no such file: " + file;
    return false;
  }
  return DdbRead(file, depth, sim, why);
}

// --- check -------------------------------------------------------------------

struct Problem {
  std::string link, what;
};

void CollectProblems(const DdbObject& o, void* context) {
  auto* problems = static_cast<std::vector<Problem>*>(context);
  if (o.cls.empty()) problems->push_back({o.link, "the object cannot be opened"});
  for (const std::string& m : o.messages) problems->push_back({o.link, m});
  for (const std::string& u : o.undecoded) {
    problems->push_back({o.link, "the members record stops decoding " + u});
  }
  for (const auto& v : o.values) {
    if (v.second.find("unreadable") != std::string::npos) {
      problems->push_back({o.link, v.first + " names a distribution that cannot be read"});
    }
  }
}

int Check(const std::string& file, bool asJson) {
  DdbObject sim;
  std::string why;
  bool tty = isatty(2) != 0;
  if (tty) std::cerr << "ddb: reading " << file << " ...\r" << std::flush;
  if (!Read(file, -1, &sim, &why)) return CannotOpen(why, asJson);
  if (tty) std::cerr << std::string(40, ' ') << "\r" << std::flush;
  std::vector<Problem> problems;
  if (hdf_File::JournalPending(file.c_str())) {
    problems.push_back({"#", "a journal is pending: the database was not closed by the library"});
  }
  DdbVisit(sim, &CollectProblems, &problems);
  if (asJson) {
    json list = json::array();
    for (const Problem& p : problems) list.push_back({{"link", p.link}, {"problem", p.what}});
    std::cout << json{{"file", file}, {"problems", list}}.dump(2) << "\n";
  } else {
    for (const Problem& p : problems) std::cout << p.link << ": " << p.what << "\n";
    if (problems.empty()) std::cout << file << ": clean\n";
  }
  return problems.empty() ? kClean : kProblems;
}

// --- diff ----------------------------------------------------------------------

struct Tolerances {
  double abs = 0, rel = 0;
  std::map<std::string, double> absByName, relByName;
};

// Numbers compare within the tolerances; anything else exactly.
bool Same(const std::string& name, const std::string& a, const std::string& b,
          const Tolerances& t) {
  if (a == b) return true;
  char* endA = nullptr;
  char* endB = nullptr;
  double x = std::strtod(a.c_str(), &endA), y = std::strtod(b.c_str(), &endB);
  if (a.empty() || b.empty() || *endA != '\0' || *endB != '\0') return false;
  std::string base = name.substr(0, name.find('['));
  double abs = t.absByName.count(base) ? t.absByName.at(base) : t.abs;
  double rel = t.relByName.count(base) ? t.relByName.at(base) : t.rel;
  double d = std::fabs(x - y);
  return d <= abs || d <= rel * std::max(std::fabs(x), std::fabs(y));
}

void Compare(const DdbObject& a, const DdbObject& b, const Tolerances& t, json* out) {
  if (a.cls != b.cls)
    out->push_back({{"link", a.link}, {"member", "class"}, {"first", a.cls}, {"second", b.cls}});
  std::map<std::string, std::string> first(a.values.begin(), a.values.end());
  std::map<std::string, std::string> second(b.values.begin(), b.values.end());
  for (const auto& v : first) {
    auto w = second.find(v.first);
    std::string other = w == second.end() ? "(absent)" : w->second;
    if (w == second.end() || !Same(v.first, v.second, other, t)) {
      out->push_back(
          {{"link", a.link}, {"member", v.first}, {"first", v.second}, {"second", other}});
    }
  }
  for (const auto& w : second) {
    if (!first.count(w.first)) {
      out->push_back(
          {{"link", a.link}, {"member", w.first}, {"first", "(absent)"}, {"second", w.second}});
    }
  }
  size_t n = std::max(a.children.size(), b.children.size());
  for (size_t i = 0; i < n; ++i) {
    if (i >= a.children.size() || i >= b.children.size()) {
      const DdbObject& only = i < a.children.size() ? a.children[i] : b.children[i];
      out->push_back({{"link", only.link},
                      {"member", "(object)"},
                      {"first", i < a.children.size() ? only.cls : "(absent)"},
                      {"second", i < b.children.size() ? only.cls : "(absent)"}});
      continue;
    }
    Compare(a.children[i], b.children[i], t, out);
  }
}

bool ParseTolerances(const std::vector<std::string>& specs, double* all,
                     std::map<std::string, double>* byName) {
  for (const std::string& s : specs) {
    size_t eq = s.find('=');
    char* end = nullptr;
    std::string number = eq == std::string::npos ? s : s.substr(eq + 1);
    double value = std::strtod(number.c_str(), &end);
    if (number.empty() || *end != '\0' || value < 0) return false;
    if (eq == std::string::npos) {
      *all = value;
    } else {
      (*byName)[s.substr(0, eq)] = value;
    }
  }
  return true;
}

// --- dot and info ----------------------------------------------------------------

void Dot(const DdbObject& o, const std::string& id, std::ostream& out) {
  std::string label = (o.name.empty() ? "sim" : o.name) + "\\n" + o.cls;
  out << "  \"" << id << "\" [label=\"" << label << "\""
      << (o.messages.empty() ? "" : ", color=red") << "];\n";
  for (size_t i = 0; i < o.children.size(); ++i) {
    std::string child = id + "/" + std::to_string(i);
    out << "  \"" << id << "\" -> \"" << child << "\";\n";
    Dot(o.children[i], child, out);
  }
}

// The file format, from the superblock's version: -1 when HDF5 cannot tell
// (a pending journal: the file alone may not be the committed state).
int SuperblockVersion(const std::string& file) {
  if (hdf_File::JournalPending(file.c_str())) return -1;
  int version = -1;
  H5E_BEGIN_TRY {
    hid_t f = H5Fopen(file.c_str(), H5F_ACC_RDONLY, H5P_DEFAULT);
    H5F_info2_t info;
    if (f >= 0 && H5Fget_info2(f, &info) >= 0) version = static_cast<int>(info.super.version);
    if (f >= 0) H5Fclose(f);
  }
  H5E_END_TRY;
  return version;
}

const char* FormatName(int superblock) {
  switch (superblock) {
    case 0:
    case 1:
      return "the original format (HDF5 1.0 and later)";
    case 2:
      return "the 1.8 format";
    case 3:
      return "the 1.10 format";
    default:
      return "unknown";
  }
}

void CountClasses(const DdbObject& o, void* context) {
  (*static_cast<std::map<std::string, int>*>(context))[o.cls.empty() ? "(none)" : o.cls]++;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{
      "Looks inside, checks and compares simulation databases.\n"
      "Exit status: 0 clean or equal, 1 problems found or different, 2 the file cannot "
      "be opened at all or the command line is wrong."};
  app.name("ddb");
  app.require_subcommand(1);
  app.set_version_flag("--version", VersionText(), "print the library's version");
  bool asJson = false;
  app.add_flag("--json", asJson, "print JSON for scripts");
  std::string file, file2, link;
  int depth = -1;
  bool quiet = false;
  std::vector<std::string> absSpecs, relSpecs;

  CLI::App* tree = app.add_subcommand("tree", "the object tree with every member decoded");
  tree->add_option("FILE", file)->required();
  tree->add_option("LINK", link, "start at the object this link text names");
  tree->add_option("--depth", depth, "levels of objects below the sim (default: all)");
  CLI::App* get = app.add_subcommand("get", "the object a link text names");
  get->add_option("FILE", file)->required();
  get->add_option("LINK", link)->required();
  CLI::App* check = app.add_subcommand("check", "what a host would trip over");
  check->add_option("FILE", file)->required();
  CLI::App* diff = app.add_subcommand("diff", "differences member by member");
  diff->add_option("FILE1", file)->required();
  diff->add_option("FILE2", file2)->required();
  diff->add_option("--abs", absSpecs, "absolute tolerance, or NAME=tolerance for one member");
  diff->add_option("--rel", relSpecs, "relative tolerance, or NAME=tolerance for one member");
  diff->add_flag("--quiet", quiet, "print nothing, only set the exit status");
  CLI::App* dot = app.add_subcommand("dot", "the object tree as a Graphviz graph");
  dot->add_option("FILE", file)->required();
  CLI::App* info = app.add_subcommand("info", "classes, counts, sizes, format, journal");
  info->add_option("FILE", file)->required();
  for (CLI::App* sub : {tree, get, check, diff, dot, info}) {
    sub->add_flag("--json", asJson, "print JSON for scripts");
  }
  if (argc == 2 && std::string(argv[1]) == "help") {
    std::cout << app.help();
    return kClean;
  }
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    if (e.get_exit_code() == 0) return app.exit(e);  // --help, --version
    std::cerr << "ddb: " << e.what() << "\n" << kUsageLine << "\n";
    return kUsage;
  }

  if (*check) return Check(file, asJson);

  DdbObject root;
  std::string why;
  if (*get || (*tree && !link.empty())) {
    struct stat st;
    if (stat(file.c_str(), &st) != 0) return CannotOpen("no such file: " + file, asJson);
    if (!DdbReadLink(file, link, *get ? 0 : depth, &root, &why)) {
      if (why.rfind("link ", 0) == 0) {
        std::cerr << "ddb: " << why << "\n";
        return kProblems;
      }
      return CannotOpen(why, asJson);
    }
  } else if (!Read(file, *tree ? depth : -1, &root, &why)) {
    return CannotOpen(why, asJson);
  }

  if (*tree || *get) {
    if (asJson) {
      std::cout << ToJson(root).dump(2) << "\n";
    } else {
      PrintTree(root, 0);
    }
    return kClean;
  }
  if (*dot) {
    if (asJson) {
      std::cout << ToJson(root).dump(2) << "\n";
      return kClean;
    }
    std::cout << "digraph database {\n  node [shape=box];\n";
    Dot(root, "sim", std::cout);
    std::cout << "}\n";
    return kClean;
  }
  if (*info) {
    std::map<std::string, int> classes;
    DdbVisit(root, &CountClasses, &classes);
    int objects = 0;
    for (const auto& c : classes) objects += c.second;
    struct stat st;
    stat(file.c_str(), &st);
    bool pending = hdf_File::JournalPending(file.c_str());
    unsigned majorVersion = 0, minorVersion = 0, release = 0;
    H5get_libversion(&majorVersion, &minorVersion, &release);
    int superblock = SuperblockVersion(file);
    if (asJson) {
      std::cout << json{{"file", file},
                        {"bytes", static_cast<long long>(st.st_size)},
                        {"objects", objects},
                        {"classes", classes},
                        {"bytes_per_object", objects > 0 ? st.st_size / objects : 0},
                        {"superblock_version", superblock},
                        {"journal_pending", pending}}
                       .dump(2)
                << "\n";
    } else {
      std::cout << file << "\n  " << st.st_size << " bytes, " << objects << " objects, "
                << (objects > 0 ? st.st_size / objects : 0) << " bytes per object\n";
      for (const auto& c : classes) std::cout << "  " << c.second << " x " << c.first << "\n";
      std::cout << "  HDF5 superblock version " << superblock << ": " << FormatName(superblock)
                << "; read with HDF5 " << majorVersion << "." << minorVersion << "." << release
                << "\n  journal " << (pending ? "pending: open once with the library" : "none")
                << "\n";
    }
    return kClean;
  }
  // diff
  Tolerances t;
  if (!ParseTolerances(absSpecs, &t.abs, &t.absByName) ||
      !ParseTolerances(relSpecs, &t.rel, &t.relByName)) {
    std::cerr << "ddb: a tolerance is a non-negative number, or NAME=number\n"
              << kUsageLine << "\n";
    return kUsage;
  }
  DdbObject other;
  if (!Read(file2, -1, &other, &why)) return CannotOpen(why, asJson);
  json differences = json::array();
  Compare(root, other, t, &differences);
  if (!quiet) {
    if (asJson) {
      std::cout << json{{"first", file}, {"second", file2}, {"differences", differences}}.dump(2)
                << "\n";
    } else {
      for (const json& d : differences) {
        std::cout << d["link"].get<std::string>() << " " << d["member"].get<std::string>() << ": "
                  << d["first"].get<std::string>() << " | " << d["second"].get<std::string>()
                  << "\n";
      }
    }
  }
  return differences.empty() ? kClean : kProblems;
}
