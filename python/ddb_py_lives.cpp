// The lives of the module's handles and the ownership of objects made by
// `new` (ddb_py_lives.h, ddb_py_ownership.h).
#include <string>
#include <utility>

#include "python/ddb_py_lives.h"
#include "python/ddb_py_ownership.h"

namespace ddb_py {

Life::~Life() {}
Box::~Box() {}

void RequireAlive(const Life& life, const char* what) {
  if (!life.Alive()) throw Error(std::string(what) + " used after " + life.Why());
}

std::string DetachedLife::Why() const {
  if (m_owner) return m_owner->Why();
  return "the library destroyed it (it refused to take it)";
}

void DetachedLife::HandOver(LifePtr owner) {
  m_box.reset();  // its holder is empty: the object is the owner's now
  m_owner = std::move(owner);
}

void DetachedLife::Destroyed() {
  m_box.reset();
  m_owner.reset();
}

DetachedLife& Detached(const Object& item, const Life& owner, const char* verb) {
  item.Require();
  auto* detached = dynamic_cast<DetachedLife*>(item.life().get());
  if (detached == nullptr || detached->box() == nullptr ||
      detached->box()->Identity() != item.Identity()) {
    throw Error(std::string(item.Name()) +
                " is stored already: only an object made by new can be " + verb);
  }
  for (const Life* life = &owner; life != nullptr; life = life->Next()) {
    if (life == detached) {
      throw Error(std::string(item.Name()) + " cannot be " + verb + " inside itself");
    }
  }
  return *detached;
}

}  // namespace ddb_py
