// ddb_arrays: how the ddb tool shows and compares the arrays of numbers a
// database holds (ordered sets' members, distributions' values).
//
// A mesh of 10,000 nodes has arrays of 10,000 values: printed whole they
// bury everything else, and two that differ in one value say nothing about
// where. So an array longer than kDdbShownValues is shown as its first and
// last few values with its count, minimum and maximum, and a comparison
// counts the values that differ and names the first.
#ifndef DDB_TOOLS_DDB_DDB_ARRAYS_H_
#define DDB_TOOLS_DDB_DDB_ARRAYS_H_

#include <cstddef>
#include <string>

#include "ddb_reader.h"

// Arrays of up to this many values are shown whole.
constexpr size_t kDdbShownValues = 20;
// A summary shows this many values at either end.
constexpr size_t kDdbEndValues = 5;

// "set 0/1 [0 1 2 3 4 ... 9995 9996 9997 9998 9999] (10000 values, min 0, max 9999)"
// for a long array, "set 0/1 [0 3 4 7]" for a short one or when `full`.
std::string DdbArrayText(const DdbArray& array, bool full);

// The text of the value `name` of `o` as the tool shows it: arrays
// summarised unless `full`, anything else as read.
std::string DdbValueText(const DdbObject& o, const std::string& name, const std::string& value,
                         bool full);

// How two arrays differ: their heads ("distribution 3"), counts, and the
// values at common indices that are not the same by `same`.
struct DdbArrayDifference {
  size_t differing = 0;  // values at common indices that differ
  size_t first = 0;      // the first such index (when differing > 0)
  int a = 0, b = 0;      // the values there
  bool heads = false;    // the heads differ
  bool counts = false;   // the counts differ
  bool Any() const { return differing > 0 || heads || counts; }
};
DdbArrayDifference DdbCompareArrays(const DdbArray& a, const DdbArray& b,
                                    bool (*same)(double, double, const void*), const void* context);

// The difference in words: "1 of 6 values differ, first at [2]: 3 | 30",
// with "set 0/1 | set 0/2" and "6 | 7 values" before it where those differ.
std::string DdbDifferenceText(const DdbArray& a, const DdbArray& b, const DdbArrayDifference& d);

#endif  // DDB_TOOLS_DDB_DDB_ARRAYS_H_
