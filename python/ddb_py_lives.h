// The lives of the Python module's handles.
//
// A Python object never owns library memory through a raw pointer alone: it
// carries a Life that says whether what it designates still exists. A sim
// and everything reached from it share the sim's life, which ends when the
// sim or its root is closed; an object made by `new` has a life of its own
// (ddb_py_ownership.h). Every access checks the life first, so a handle
// used after its database was closed raises ddb.Error instead of touching
// freed memory.
#ifndef DDB_PYTHON_DDB_PY_LIVES_H_
#define DDB_PYTHON_DDB_PY_LIVES_H_

#include <memory>
#include <string>
#include <vector>

namespace ddb_py {

// Where an identifier passed from Python came from: its database's service
// context and file (see ddb_py_checks.h).
struct Origin {
  int context;
  std::string file;
};

// What the life of a sim tells about its database.
struct DatabaseFacts {
  int context = -1;
  std::string file;
  bool readOnly = false;
};

class Life;

// Changes of a database (defined in ddb_py_checks.cpp). Every conversion of
// an identifier from Python notes where it came from; a change then checks
// its target: in a database, Error unless it is open for update and every
// noted identifier is of its own service context ("<what>: ..."); under an
// object made by new and not stored yet, the origins are kept with that
// object and checked when it is stored.
void NoteOrigin(const Life& life);
void ForgetOrigins();  // a conversion failed, or a change begins
std::vector<Origin> TakeOrigins();
void CheckChange(const Life& target, const std::vector<Origin>& origins, const char* what);

class Life {
 public:
  virtual ~Life();
  virtual bool Alive() const = 0;
  // The database this life is the life of (false: not a sim's).
  virtual bool Facts(DatabaseFacts&) const { return false; }
  // Why handles under this life may not be used ("its database was closed").
  virtual std::string Why() const = 0;
  // The life this one follows (a handed-over object follows its owner).
  virtual const Life* Next() const { return nullptr; }
};
typedef std::shared_ptr<Life> LifePtr;

// Raises Error "<what> used after <why>" unless `life` is alive.
void RequireAlive(const Life& life, const char* what);

}  // namespace ddb_py

#endif  // DDB_PYTHON_DDB_PY_LIVES_H_
