#include "persistence/gbb_TraverseContext.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

namespace {

struct Part {
  int nameBegin, nameEnd, argBegin, argEnd;
};

// Splits text[begin, end) at its first ':'.
Part Split(const char* text, int begin, int end) {
  const void* colon = std::memchr(text + begin, ':', static_cast<size_t>(end - begin));
  if (colon == nullptr) return Part{begin, end, -1, -1};
  int c = static_cast<int>(static_cast<const char*>(colon) - text);
  return Part{begin, c, c + 1, end};
}

// No name and no argument at all: ":" alone has an (empty) argument and is a
// step by number.
bool IsEmpty(const Part& p) {
  return p.nameEnd == p.nameBegin && p.argBegin < 0;
}

bool NameIs(const char* text, const Part& p, const char* name) {
  size_t n = std::strlen(name);
  return static_cast<size_t>(p.nameEnd - p.nameBegin) == n &&
         std::memcmp(text + p.nameBegin, name, n) == 0;
}

// atoi without its undefined behaviour on overflow: the value saturates.
int ToInt(const char* text, int begin, int end) {
  char digits[32];
  int n = end - begin;
  if (n <= 0) return 0;
  if (n > static_cast<int>(sizeof digits) - 1) n = static_cast<int>(sizeof digits) - 1;
  std::memcpy(digits, text + begin, static_cast<size_t>(n));
  digits[n] = '\0';
  errno = 0;
  long v = std::strtol(digits, nullptr, 10);
  if (v > INT_MAX) return INT_MAX;
  if (v < INT_MIN) return INT_MIN;
  return static_cast<int>(v);
}

}  // namespace

gbb_TraverseContext::gbb_TraverseContext(gbb_Path base, const char* text, unsigned flags,
                                         gbb_TraverseVisitor* visitor)
    : m_text(text != nullptr ? text : ""),
      m_flags(flags),
      m_phase(0),
      m_position(-1),
      m_visitor(visitor),
      m_status(0) {
  Build(base);
}

gbb_TraverseContext::gbb_TraverseContext(gbb_Path base, const cow_String& text, unsigned flags,
                                         gbb_TraverseVisitor* visitor)
    : m_text(text), m_flags(flags), m_phase(0), m_position(-1), m_visitor(visitor), m_status(0) {
  Build(base);
}

void gbb_TraverseContext::Build(gbb_Path base) {
  // Parse: the root part, then the steps after '#'.
  const char* text = m_text.c_str();
  const int length = m_text.length();
  ada_List<int> parsed;  // four offsets per part
  const void* hash = std::memchr(text, '#', static_cast<size_t>(length));
  int rootEnd = hash != nullptr ? static_cast<int>(static_cast<const char*>(hash) - text) : length;
  Part root = Split(text, 0, rootEnd);
  int parts = 0;
  auto add = [&parsed, &parts](const Part& p) {
    parsed.append(p.nameBegin, 1);
    parsed.append(p.nameEnd, 1);
    parsed.append(p.argBegin, 1);
    parsed.append(p.argEnd, 1);
    ++parts;
  };
  add(root);
  for (int pos = rootEnd + 1; hash != nullptr && pos < length;) {
    const void* slash = std::memchr(text + pos, '/', static_cast<size_t>(length - pos));
    int end = slash != nullptr ? static_cast<int>(static_cast<const char*>(slash) - text) : length;
    add(Split(text, pos, end));
    pos = end + 1;
  }
  auto part = [&parsed](int i) {
    return Part{parsed[4 * i], parsed[4 * i + 1], parsed[4 * i + 2], parsed[4 * i + 3]};
  };

  // The base path's index chain, top object first.
  int depth = 0;
  for (gbb_Path p = base; !p.IsEmpty(); p = p.Parent()) ++depth;
  ada_List<int> chain;
  chain.append(0, depth);
  int at = depth;
  for (gbb_Path p = base; !p.IsEmpty(); p = p.Parent()) chain[--at] = p.Index();

  // Normalise. Steps are kept on a stack so that ".." removes the step it
  // follows, or, with no step left, climbs one level of the chain (never
  // above the sim's own number).
  int keep = depth;
  int first = 1;
  if (!IsEmpty(root)) {
    keep = 0;  // an explicit root part: the walk starts at the root
  } else if (parts > 1 && IsEmpty(part(1))) {
    keep = depth > 0 ? 1 : 0;  // "#/": absolute within the sim
    first = 2;
  }
  ada_List<int> kept;  // stack of part numbers; `top` is its height
  int top = 0;
  for (int i = first; i < parts; ++i) {
    Part p = part(i);
    if (NameIs(text, p, "..")) {
      if (top > 0) {
        --top;
      } else if (keep > 1) {
        --keep;
      }
    } else if (!IsEmpty(p) && !NameIs(text, p, ".")) {
      if (top < kept.count()) {
        kept[top] = i;
      } else {
        kept.append(i, 1);
      }
      ++top;
    }
  }

  m_indices.reserve(keep);
  for (int i = 0; i < keep; ++i) m_indices.append(chain[i], 1);
  // The empty root part stays as the first step only when the walk starts
  // at the root.
  auto emit = [this](const Part& p) {
    m_components.append(p.nameBegin, 1);
    m_components.append(p.nameEnd, 1);
    m_components.append(p.argBegin, 1);
    m_components.append(p.argEnd, 1);
  };
  if (keep == 0) emit(root);
  for (int k = 0; k < top; ++k) emit(part(kept[k]));
}

bool gbb_TraverseContext::Advance() {
  ++m_position;
  if (m_phase == 0 && m_position >= m_indices.count()) {
    m_phase = 1;
    m_position = 0;
  }
  if (m_phase == 1 && m_position >= ComponentCount()) {
    m_phase = 0;
    m_position = -1;
  }
  return m_position >= 0;
}

int gbb_TraverseContext::CurrentKind() const {
  if (m_position < 0) return kNone;
  if (m_phase == 0) return kByNumber;
  int i = m_position;
  if (NameEnd(i) == NameBegin(i)) return kByNumber;
  return ArgEnd(i) > ArgBegin(i) ? kByNameWithArgument : kByName;
}

int gbb_TraverseContext::CurrentIndex() const {
  if (m_position < 0) return 0;
  if (m_phase == 0) return m_indices[m_position];
  int i = m_position;
  if (NameEnd(i) > NameBegin(i)) return 0;
  if (ArgEnd(i) <= ArgBegin(i)) return -1;
  return ToInt(m_text.c_str(), ArgBegin(i), ArgEnd(i));
}

cow_String gbb_TraverseContext::CurrentName() const {
  return InComponents() ? ComponentName(m_position) : cow_String("");
}

cow_String gbb_TraverseContext::CurrentArgument() const {
  return InComponents() ? ComponentArgument(m_position) : cow_String("");
}

int gbb_TraverseContext::CurrentArgumentAsInt() const {
  if (!InComponents() || ArgBegin(m_position) < 0) return 0;
  return ToInt(m_text.c_str(), ArgBegin(m_position), ArgEnd(m_position));
}

bool gbb_TraverseContext::CurrentNameIs(const char* name) const {
  if (!InComponents()) return false;
  int i = m_position;
  Part p{NameBegin(i), NameEnd(i), ArgBegin(i), ArgEnd(i)};
  return p.nameEnd > p.nameBegin && NameIs(m_text.c_str(), p, name);
}

cow_String gbb_TraverseContext::ComponentName(int i) const {
  return cow_String(m_text.c_str() + NameBegin(i), NameEnd(i) - NameBegin(i));
}

cow_String gbb_TraverseContext::ComponentArgument(int i) const {
  if (ArgBegin(i) < 0) return cow_String();
  return cow_String(m_text.c_str() + ArgBegin(i), ArgEnd(i) - ArgBegin(i));
}
