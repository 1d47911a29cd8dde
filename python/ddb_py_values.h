// How each member type of the schema crosses between Python and the library.
//
// Convert<T> names what Python passes for a T (In), makes the Python value
// of a T (Out) and the library's value of what Python passed (Value).
// Values that designate something of a database (service identifiers, the
// service context, arrays, the schema snapshot) cross as Held<T>, with the
// life of what they came from; identifiers note where they came from on
// the way in (ddb_py_lives.h).
#ifndef DDB_PYTHON_DDB_PY_VALUES_H_
#define DDB_PYTHON_DDB_PY_VALUES_H_

#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <map>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>

#include "DDB_PDM_Core.h"
#include "python/ddb_py_lives.h"
#include "python/ddb_py_messages.h"

namespace ddb_py {
namespace py = pybind11;

// What each kind of held value is called in messages.
inline const char* HeldName(const QELSimCollectionID*) {
  return "Collection";
}
inline const char* HeldName(const QELSimCSetID*) {
  return "OrderedSet";
}
inline const char* HeldName(const QELSimDistributionID*) {
  return "Distribution";
}
inline const char* HeldName(const QELSimContextID*) {
  return "Service";
}
inline const char* HeldName(const gbb_SchemaSnapshot*) {
  return "SchemaSnapshot";
}
template <class T, class THolder, class TRepository, class TOwner>
const char* HeldName(const gbb_Array<T, THolder, TRepository, TOwner>*) {
  return "array";
}

// A value of the library that designates something of a database (a
// service identifier, the service context, an array, the schema snapshot)
// with the life of what it came from.
template <class T>
class Held {
 public:
  Held(const T& value, LifePtr life) : m_value(value), m_life(std::move(life)) {}
  // The value, after checking that it may be used.
  const T& get() const {
    RequireAlive(*m_life, HeldName(static_cast<const T*>(nullptr)));
    return m_value;
  }
  // The value as it was, for comparing.
  const T& raw() const { return m_value; }
  const LifePtr& life() const { return m_life; }

 private:
  T m_value;
  LifePtr m_life;
};

template <class Id>
using IdRef = Held<Id>;

template <class T, class Enable = void>
struct Convert;

template <>
struct Convert<int> {
  typedef int In;
  static py::object Out(int value, const LifePtr&) { return py::int_(value); }
  static int Value(int value) { return value; }
};

template <>
struct Convert<double> {
  typedef double In;
  static py::object Out(double value, const LifePtr&) { return py::float_(value); }
  static double Value(double value) { return value; }
};

template <>
struct Convert<ada_string> {
  typedef std::string In;
  static py::object Out(const ada_string& value, const LifePtr&);
  static ada_string Value(const std::string& value);
};

template <class Id>
struct Convert<Id, typename std::enable_if<IsServiceId<Id>::value>::type> {
  typedef std::optional<IdRef<Id>> In;
  // Missing identifiers read as None.
  static py::object Out(const Id& id, const LifePtr& life) {
    return id.IsValid() ? py::cast(IdRef<Id>(id, life)) : py::none();
  }
  static Id Value(const In& value) {
    if (!value) return Id();
    try {
      Id id = value->get();
      NoteOrigin(*value->life());
      return id;
    } catch (...) {
      ForgetOrigins();
      throw;
    }
  }
};

template <class V>
struct Convert<ada_MapString<V>> {
  typedef std::map<std::string, typename Convert<V>::In> In;
  static py::object Out(const ada_MapString<V>& map, const LifePtr& life) {
    py::dict out;
    ada_MapStringIterator<V> it(map);
    for (it.first(); !it.isDone(); it.next()) {
      out[Convert<ada_string>::Out(it.key(), life)] = Convert<V>::Out(it.value(), life);
    }
    return std::move(out);
  }
  static void Value(const In& in, ada_MapString<V>& map) {
    for (const auto& pair : in) {
      map.insert(Convert<ada_string>::Value(pair.first), Convert<V>::Value(pair.second));
    }
  }
};

template <class V>
struct Convert<ada_MapInt<V>> {
  typedef std::map<int, typename Convert<V>::In> In;
  static py::object Out(const ada_MapInt<V>& map, const LifePtr& life) {
    py::dict out;
    ada_MapIntIterator<V> it(map);
    for (it.first(); !it.isDone(); it.next())
      out[py::int_(it.key())] = Convert<V>::Out(it.value(), life);
    return std::move(out);
  }
  static void Value(const In& in, ada_MapInt<V>& map) {
    for (const auto& pair : in) map.insert(pair.first, Convert<V>::Value(pair.second));
  }
};

template <class T>
struct IsMap : std::false_type {};
template <class V>
struct IsMap<ada_MapString<V>> : std::true_type {};
template <class V>
struct IsMap<ada_MapInt<V>> : std::true_type {};

// The library's value of what Python passed for a member of type T.
template <class T>
T ValueOf(const typename Convert<T>::In& in) {
  if constexpr (IsMap<T>::value) {
    T map;
    Convert<T>::Value(in, map);
    return map;
  } else {
    return Convert<T>::Value(in);
  }
}

}  // namespace ddb_py

#endif  // DDB_PYTHON_DDB_PY_VALUES_H_
