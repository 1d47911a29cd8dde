#include "fe_deck.h"

#include <sys/stat.h>
#include <zlib.h>

#include <cctype>
#include <cstdlib>
#include <unordered_map>
#include <utility>

namespace {

std::string Upper(std::string s) {
  for (char& c : s) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return s;
}

// The comma-separated fields of a line, blanks removed ("*NODE PRINT" reads
// as "*NODEPRINT", so it is no *NODE block).
std::vector<std::string> Fields(const std::string& line) {
  std::vector<std::string> fields(1);
  for (char c : line) {
    if (c == ',') {
      fields.emplace_back();
    } else if (!std::isspace(static_cast<unsigned char>(c))) {
      fields.back() += c;
    }
  }
  return fields;
}

// The value of KEY=VALUE among a keyword line's parameters, or "".
std::string Parameter(const std::vector<std::string>& fields, const std::string& key) {
  for (size_t i = 1; i < fields.size(); ++i) {
    if (Upper(fields[i].substr(0, key.size() + 1)) == key + "=") {
      return fields[i].substr(key.size() + 1);
    }
  }
  return std::string();
}

struct Reader {
  FeDeck* deck;
  std::unordered_map<int, int> nodeIndex;         // user label -> node index
  std::vector<std::pair<int, int>> elementNodes;  // (user label, mask)
  enum { kNone, kNodes, kElements } block = kNone;
  int elementMask = 0;
  int nodesPerElement = 0;
  std::vector<int> record;  // element fields read so far

  bool ReadFile(const std::string& path, std::string* error);
  bool Line(const std::string& line, const std::string& folder, std::string* error);
};

bool Reader::ReadFile(const std::string& path, std::string* error) {
  gzFile file = gzopen(path.c_str(), "rb");
  if (file == nullptr) {
    *error = "cannot open " + path;
    return false;
  }
  std::string folder = path.substr(0, path.find_last_of('/') + 1);
  std::string line;
  char buffer[4096];
  bool ok = true;
  while (ok && gzgets(file, buffer, sizeof buffer) != nullptr) {
    line += buffer;
    if (line.back() != '\n' && !gzeof(file)) continue;  // a line longer than the buffer
    ok = Line(line, folder, error);
    line.clear();
  }
  gzclose(file);
  return ok;
}

bool Reader::Line(const std::string& line, const std::string& folder, std::string* error) {
  std::vector<std::string> fields = Fields(line);
  const std::string name = Upper(fields[0]);
  if ((fields.size() == 1 && name.empty()) || name.compare(0, 2, "**") == 0) return true;
  if (name[0] == '*') {
    block = kNone;
    record.clear();
    if (name == "*INCLUDE") {
      std::string input = Parameter(fields, "INPUT");
      return ReadFile(input[0] == '/' ? input : folder + input, error);
    }
    if (name == "*NODE") block = kNodes;
    if (name != "*ELEMENT") return true;
    if (FeDeckElementType(Parameter(fields, "TYPE"), &elementMask, &nodesPerElement)) {
      block = kElements;
    } else {
      ++deck->skippedElementBlocks;
    }
  } else if (block == kNodes) {
    int label = std::atoi(fields[0].c_str());
    if (nodeIndex.emplace(label, static_cast<int>(deck->nodeLabels.size())).second) {
      deck->nodeLabels.push_back(label);
    }
  } else if (block == kElements) {
    for (const std::string& f : fields) {
      if (f.empty()) continue;  // the trailing comma of a continued record
      record.push_back(std::atoi(f.c_str()));
      if (static_cast<int>(record.size()) < nodesPerElement + 1) continue;
      for (int i = 1; i <= nodesPerElement; ++i) elementNodes.emplace_back(record[i], elementMask);
      ++deck->elements;
      record.clear();
    }
  }
  return true;
}

}  // namespace

bool FeDeckElementType(const std::string& type, int* mask, int* nodesPerElement) {
  const std::string t = Upper(type);
  const int kTranslations = 0x7, kTranslationsAndRotations = 0x3F;
  static const std::pair<std::string, int> kFamilies[] = {
      {"C3D", kTranslations},           {"CPS", kTranslations},           {"CPE", kTranslations},
      {"CAX", kTranslations},           {"T2D", kTranslations},           {"T3D", kTranslations},
      {"S", kTranslationsAndRotations}, {"B", kTranslationsAndRotations},
  };
  for (const auto& family : kFamilies) {
    if (t.compare(0, family.first.size(), family.first) != 0) continue;
    int n = std::atoi(t.c_str() + family.first.size());
    // Beams are named by order, not node count: B31 has 2 nodes, B32 3.
    if (family.first == "B") n = (n == 31) ? 2 : (n == 32) ? 3 : 0;
    if (n <= 0) return false;
    *mask = family.second;
    *nodesPerElement = n;
    return true;
  }
  return false;
}

bool ReadFeDeck(const std::string& path, FeDeck* deck, std::string* error) {
  *deck = FeDeck();
  Reader reader;
  reader.deck = deck;
  if (!reader.ReadFile(path, error)) return false;
  deck->masks.assign(deck->nodeLabels.size(), 0);
  for (const auto& node : reader.elementNodes) {
    auto it = reader.nodeIndex.find(node.first);
    if (it == reader.nodeIndex.end()) {
      ++deck->undefinedNodeReferences;
    } else {
      deck->masks[it->second] |= node.second;
    }
  }
  return true;
}

std::string FeDeckFolder() {
  const char* env = std::getenv("DDB_FE_DECKS");
#ifdef DDB_FE_DECKS_DIR
  std::string folder = env != nullptr ? env : DDB_FE_DECKS_DIR;
#else
  std::string folder = env != nullptr ? env : "";
#endif
  struct stat info;
  if (folder.empty() || stat(folder.c_str(), &info) != 0 || !S_ISDIR(info.st_mode)) return "";
  return folder;
}
