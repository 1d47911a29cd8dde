// ddb.follow: a database that another process writes, followed as a series
// of read-only snapshots, a fresh one each time a commit lands, until its
// writer closes it.
#include <pybind11/stl/filesystem.h>
#include <unistd.h>

#include <filesystem>
#include <memory>

#include "python/ddb_py.h"

namespace ddb_py {
namespace {

// Following a database that another process writes: a fresh read-only
// snapshot each time a commit lands, until its writer closes it.
struct Follower {
  std::filesystem::path file;
  double interval = 0.1;
  unsigned long long mark = 0;
  bool started = false, ended = false;
  py::object current = py::none();  // the snapshot handed out last

  void CloseCurrent() {
    if (!current.is_none()) current.attr("close")();
    current = py::none();
  }
  py::object Next() {
    for (;;) {
      if (ended) {
        CloseCurrent();
        throw py::stop_iteration();
      }
      unsigned long long now = 0;
      bool writing = false;
      if (!hdf_File::Watch(file.c_str(), &now, &writing)) {
        throw Error("follow: cannot open file " + file.string());
      }
      if (!started || now != mark) {
        started = true;
        mark = now;
        ended = !writing;  // the final state, handed out once
        CloseCurrent();
        current = OpenReadOnly(file);
        return current;
      }
      if (!writing) ended = true;
      {
        py::gil_scoped_release release;
        usleep(static_cast<useconds_t>(interval * 1e6));
      }
      if (PyErr_CheckSignals() != 0) throw py::error_already_set();
    }
  }
};

}  // namespace

void BindFollow(py::module_& m) {
  py::class_<Follower, std::shared_ptr<Follower>> follower(
      m, "Follower", "An iterator over the snapshots of a database as its writer commits.");
  RefuseNew(follower);  // only ddb.follow makes one
  follower.def("__iter__", [](py::object self) { return self; })
      .def("__next__", &Follower::Next)
      .def("close", &Follower::CloseCurrent, "Closes the snapshot handed out last.");
  m.def(
      "follow",
      [](const std::filesystem::path& file, double interval) {
        if (!(interval > 0 && interval <= 3600)) {
          throw py::value_error("follow: interval must be a number of seconds in (0, 3600]");
        }
        auto follower = std::make_shared<Follower>();
        follower->file = file;
        follower->interval = interval;
        return follower;
      },
      py::arg("file"), py::arg("interval") = 0.1,
      "A read-only snapshot of the database now, then a fresh one each time a commit lands "
      "(looked for every `interval` seconds), until its writer closes it. Each snapshot is "
      "closed when the next one is handed out.");
}

}  // namespace ddb_py
