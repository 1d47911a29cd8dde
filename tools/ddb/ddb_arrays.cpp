#include "ddb_arrays.h"

#include <algorithm>

namespace {

void AppendValues(const std::vector<int>& items, size_t from, size_t to, std::string* text) {
  for (size_t i = from; i < to; ++i) {
    if (i > from) *text += ' ';
    *text += std::to_string(items[i]);
  }
}

}  // namespace

std::string DdbArrayText(const DdbArray& array, bool full) {
  const std::vector<int>& items = *array.items;
  std::string text = array.head + " [";
  if (full || items.size() <= kDdbShownValues) {
    AppendValues(items, 0, items.size(), &text);
    return text + "]";
  }
  AppendValues(items, 0, kDdbEndValues, &text);
  text += " ... ";
  AppendValues(items, items.size() - kDdbEndValues, items.size(), &text);
  auto range = std::minmax_element(items.begin(), items.end());
  return text + "] (" + std::to_string(items.size()) + " values, min " +
         std::to_string(*range.first) + ", max " + std::to_string(*range.second) + ")";
}

std::string DdbValueText(const DdbObject& o, const std::string& name, const std::string& value,
                         bool full) {
  auto array = o.arrays.find(name);
  return array == o.arrays.end() ? value : DdbArrayText(array->second, full);
}

DdbArrayDifference DdbCompareArrays(const DdbArray& a, const DdbArray& b,
                                    bool (*same)(double, double, const void*),
                                    const void* context) {
  DdbArrayDifference d;
  d.heads = a.head != b.head;
  const std::vector<int>&x = *a.items, &y = *b.items;
  d.counts = x.size() != y.size();
  size_t n = std::min(x.size(), y.size());
  for (size_t i = 0; i < n; ++i) {
    if (x[i] == y[i] || same(x[i], y[i], context)) continue;
    if (d.differing++ == 0) {
      d.first = i;
      d.a = x[i];
      d.b = y[i];
    }
  }
  return d;
}

std::string DdbDifferenceText(const DdbArray& a, const DdbArray& b, const DdbArrayDifference& d) {
  std::string text;
  auto part = [&text](const std::string& more) { text += (text.empty() ? "" : "; ") + more; };
  if (d.heads) part(a.head + " | " + b.head);
  size_t x = a.items->size(), y = b.items->size();
  if (d.counts) part(std::to_string(x) + " | " + std::to_string(y) + " values");
  if (d.differing > 0) {
    part(std::to_string(d.differing) + " of " + std::to_string(std::min(x, y)) +
         " values differ, first at [" + std::to_string(d.first) + "]: " + std::to_string(d.a) +
         " | " + std::to_string(d.b));
  }
  return text;
}
