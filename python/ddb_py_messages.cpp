// The Python module's errors and messages (ddb_py_messages.h): the library's
// error stream collected per call through aio_Capture, trace lines passed
// on to sys.stderr, the rest raised as ddb.Error or warned as
// DatabaseWarning.
#include "python/ddb_py_messages.h"

#include <unistd.h>

#include <cctype>

namespace ddb_py {
namespace {

aio_Capture* g_capture = nullptr;  // the outer Messages scope's, which every scope takes from
PyObject* g_warning = nullptr;     // ddb_pdm.DatabaseWarning, kept for the process

// What the end of a call leaves goes where the library would have written it.
void WriteStandardError(const char* bytes, size_t count) {
  while (count > 0) {
    ssize_t written = ::write(2, bytes, count);
    if (written <= 0) return;
    bytes += written;
    count -= static_cast<size_t>(written);
  }
}

// A trace line ("msfD_Root::createSim run1.sim") names a function in its
// first word; messages start with "**" or are plain sentences.
bool IsTraceLine(const std::string& line) {
  if (line.empty() || !std::isalpha(static_cast<unsigned char>(line[0]))) return false;
  size_t word = line.find(' ');
  return line.substr(0, word).find("::") != std::string::npos;
}

}  // namespace

Messages::Messages() {
  if (g_capture != nullptr) return;
  m_capture.emplace();  // what is pending from before is not this call's
  g_capture = &*m_capture;
}

Messages::~Messages() {
  if (!m_capture) return;
  std::string left = m_capture->Take();
  m_capture.reset();
  g_capture = nullptr;
  // Left when the call ended by an exception: not lost, shown as the library would.
  WriteStandardError(left.data(), left.size());
}

std::string Messages::Take() {
  const std::string text = g_capture->Take();
  std::string messages, trace;
  size_t start = 0;
  while (start < text.size()) {
    size_t end = text.find('\n', start);
    if (end == std::string::npos) end = text.size();
    std::string line = text.substr(start, end - start);
    std::string& to = IsTraceLine(line) ? trace : messages;
    to += (to.empty() ? "" : "\n") + line;
    start = end + 1;
  }
  if (!trace.empty()) {
    py::module_::import("sys").attr("stderr").attr("write")(trace + "\n");
  }
  return messages;
}

void BindMessages(py::module_& m) {
  py::register_exception<Error>(m, "Error", PyExc_RuntimeError);
  g_warning = PyErr_NewExceptionWithDoc("ddb_pdm.DatabaseWarning",
                                        "What the library reports beside an answer.",
                                        PyExc_UserWarning, nullptr);
  if (g_warning == nullptr) throw py::error_already_set();
  m.attr("DatabaseWarning") = py::handle(g_warning);
}

void Warn(const std::string& text) {
  if (PyErr_WarnEx(g_warning, text.c_str(), 1) != 0) throw py::error_already_set();
}

void Settle(const std::string& messages, bool empty) {
  if (messages.empty()) return;
  if (empty) throw Error(messages);
  Warn(messages);
}

void SettleChange(const std::string& messages) {
  if (!messages.empty()) throw Error(messages);
}

}  // namespace ddb_py
