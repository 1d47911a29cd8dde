#include "reliability/walk.h"

#include "ddb_reader.h"

namespace {

void Render(const DdbObject& o, const std::string& prefix, std::string* out) {
  std::string at = prefix + (o.name.empty() ? "sim" : o.name) + ".";
  *out += at + "class = " + o.cls + "\n";
  for (const auto& v : o.values) *out += at + v.first + " = " + v.second + "\n";
  for (const std::string& m : o.messages) {
    *out += at + "! " + m;
    if (m.empty() || m.back() != '\n') *out += '\n';
  }
  for (const DdbObject& child : o.children) Render(child, at, out);
}

}  // namespace

std::string WalkDatabase(const std::string& path) {
  DdbObject sim;
  std::string why;
  if (!DdbRead(path, -1, &sim, &why)) return "";
  std::string text;
  Render(sim, "", &text);
  return text;
}
