// Classes of persistent objects and of value objects that travel in handles.
//
// A class is a handle on one static descriptor: the class identifier (an
// 80-byte NUL-padded text such as "com.trevolo.Mesh"), the base class, and
// the function that opens a stored object of the class. Descriptors are
// filled on the first StaticClass() call, never at load time, and live until
// the process ends. Classes compare by identity; IsA walks the base chain.
#ifndef DDB_PERSISTENCE_GBB_CLASS_H_
#define DDB_PERSISTENCE_GBB_CLASS_H_

#include "persistence/gbb_Path.h"
#include "platform/core/ddb_export.h"
#include "platform/core/mem.h"

class gbb_Group;

// The fixed 80-byte class identifier.
class DDB_API gbb_ClassID {
 public:
  enum { kSize = 80 };
  constexpr gbb_ClassID() : m_bytes{} {}
  // Copied with strncpy semantics: truncated at 80 bytes, the rest NUL.
  explicit gbb_ClassID(const char* text);

  // The identifier's bytes (kSize of them; not terminated when all are used).
  const char* Bytes() const { return m_bytes; }
  char* Bytes() { return m_bytes; }
  // Bytes before the first NUL, at most kSize.
  int Length() const;
  bool IsEmpty() const { return m_bytes[0] == '\0'; }

 private:
  char m_bytes[kSize];
};

// Compares as unsigned bytes up to and including the first NUL of `a`
// (bounded by the 80 bytes); bytes after the terminator are never looked at.
DDB_API int BtreeCompare(const gbb_ClassID& a, const gbb_ClassID& b);

// Prints the identifier's text (bounded by its 80 bytes).
class aio_ostream;
DDB_API aio_ostream& operator<<(aio_ostream& stream, const gbb_ClassID& id);

// Root of every persistent object's interface: what a class's open function
// returns, so that holders of a base class can take objects of derived ones.
class gbb_ObjectInterface : public mem_AllocationOperatorsTiny {
 public:
  virtual ~gbb_ObjectInterface() {}
};

// Opens a stored object of a class: (parent path, index, group, trace flag).
typedef gbb_ObjectInterface* (*gbb_OpenFunction)(gbb_Path parent, int index, const gbb_Group& group,
                                                 int traceFlag);

struct gbb_ClassDescriptor;

class DDB_API gbb_Class {
 public:
  constexpr gbb_Class() : m_descriptor(nullptr) {}
  explicit gbb_Class(gbb_ClassDescriptor* descriptor) : m_descriptor(descriptor) {}

  bool IsNull() const { return m_descriptor == nullptr; }
  // This class or one of its bases is `other` (false for a null class).
  bool IsA(gbb_Class other) const;
  // A copy of the identifier; empty for a null class.
  gbb_ClassID ClassID() const;
  // Opens a stored object through the class's open function. Null class or
  // a class without one: a message and null.
  gbb_ObjectInterface* Open(gbb_Path parent, int index, const gbb_Group& group,
                            int traceFlag) const;

  friend bool operator==(gbb_Class a, gbb_Class b) { return a.m_descriptor == b.m_descriptor; }
  friend bool operator!=(gbb_Class a, gbb_Class b) { return a.m_descriptor != b.m_descriptor; }

 private:
  gbb_ClassDescriptor* m_descriptor;
};

// One per class, as a function-local static of its StaticClass(); plain data
// so that it is constant-initialised.
struct gbb_ClassDescriptor {
  bool initialized;
  gbb_ClassID id;
  gbb_Class base;
  gbb_OpenFunction open;
};

// The body of every StaticClass(): fills `descriptor` on the first call
// (the base class accessor is called then, not before) and returns its class.
DDB_API gbb_Class gbb_DescribeClass(gbb_ClassDescriptor& descriptor, const char* id,
                                    gbb_Class (*baseClass)(), gbb_OpenFunction open);

#endif  // DDB_PERSISTENCE_GBB_CLASS_H_
