// The Python module's errors and messages.
//
// Every binding call runs the library inside a Messages scope: what the
// library prints on aio_cerr is collected instead of reaching standard
// error, and settles the call afterwards. An answer the library marks as
// empty (a null handle or identifier, a refused change) raises ddb.Error
// with the library's text; any other message becomes a DatabaseWarning.
// Read, ReadCount and Change wrap a call of the library in that pattern.
#ifndef DDB_PYTHON_DDB_PY_MESSAGES_H_
#define DDB_PYTHON_DDB_PY_MESSAGES_H_

#include <pybind11/pybind11.h>

#include <optional>
#include <stdexcept>
#include <string>
#include <type_traits>

#include "DDB_PDM_Core.h"
#include "platform/core/aio_capture.h"

namespace ddb_py {
namespace py = pybind11;

// ddb.Error in Python (a RuntimeError).
class Error : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Collects what the library prints while it lives. Scopes do not nest: an
// inner scope leaves the collecting to the outer one (and takes from it).
class Messages {
 public:
  Messages();
  ~Messages();
  // The messages collected so far, without trace lines (those go to
  // sys.stderr as they are), and forgets them.
  std::string Take();

 private:
  Messages(const Messages&) = delete;
  Messages& operator=(const Messages&) = delete;
  std::optional<aio_Capture> m_capture;  // only in the outer scope
};

// Registers ddb.Error and ddb.DatabaseWarning in the module.
void BindMessages(py::module_& m);

// Messages after a read: with an empty answer they raise Error, otherwise
// they become a warning.
void Settle(const std::string& messages, bool empty);
// Messages after a change: any message raises Error.
void SettleChange(const std::string& messages);
// `text` as a DatabaseWarning.
void Warn(const std::string& text);

// The identifiers of the simulation-database service that cross to Python.
template <class T>
struct IsServiceId
    : std::integral_constant<bool, std::is_same<T, QELSimCollectionID>::value ||
                                       std::is_same<T, QELSimCSetID>::value ||
                                       std::is_same<T, QELSimDistributionID>::value> {};

// What counts as an empty answer. Identifiers: empty when invalid.
template <class Id>
auto IsEmptyAnswer(const Id& id) -> typename std::enable_if<IsServiceId<Id>::value, bool>::type {
  return !id.IsValid();
}
// Handles: empty when they designate nothing.
template <class T, class = typename std::enable_if<!std::is_arithmetic<T>::value>::type>
auto IsEmptyAnswer(const T& handle) -> decltype(!handle) {
  return !handle;
}
// Values, texts and maps are answers even after a message: any other type
// reaches this overload through a conversion, the worst match.
struct AnyAnswer {
  template <class T>
  AnyAnswer(const T&) {}  // NOLINT: converts anything
};
inline bool IsEmptyAnswer(AnyAnswer) {
  return false;
}

// Runs a read of the library and settles its messages.
template <class F>
auto Read(F&& call) {
  Messages messages;
  auto result = call();
  Settle(messages.Take(), IsEmptyAnswer(result));
  return result;
}

// The same for a count, which the library answers with 0 when it cannot.
template <class F>
int ReadCount(F&& call) {
  Messages messages;
  int count = call();
  Settle(messages.Take(), count == 0);
  return count;
}

// Runs a change of the library and settles its messages.
template <class F>
void Change(F&& call) {
  Messages messages;
  call();
  SettleChange(messages.Take());
}

}  // namespace ddb_py

#endif  // DDB_PYTHON_DDB_PY_MESSAGES_H_
