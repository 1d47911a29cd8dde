// Objects made by `new` in Python, and how they are handed over.
//
// Such an object has a life of its own that owns it (through a Box holding
// the holder `New` returned) until an assignment or an append hands it over
// to the library; from then on it follows its new owner's life. Should the
// library refuse it, the library has destroyed it, and the Python object
// says so when used.
#ifndef DDB_PYTHON_DDB_PY_OWNERSHIP_H_
#define DDB_PYTHON_DDB_PY_OWNERSHIP_H_

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "python/ddb_py_lives.h"
#include "python/ddb_py_messages.h"
#include "python/ddb_py_objects.h"

namespace ddb_py {

// Owns an object made by `new` until it is handed over.
class Box {
 public:
  virtual ~Box();
  // The outer interface of the object it owns.
  const void* Identity() const { return m_identity; }

 protected:
  Box() : m_identity(nullptr) {}
  const void* m_identity;
};

class DetachedLife : public Life {
 public:
  explicit DetachedLife(std::unique_ptr<Box> box) : m_box(std::move(box)) {}
  bool Alive() const override { return m_owner ? m_owner->Alive() : m_box != nullptr; }
  std::string Why() const override;
  const Life* Next() const override { return m_owner.get(); }
  // Null once the object was handed over or destroyed.
  Box* box() const { return m_box.get(); }
  // The object now belongs to what `owner` is the life of.
  void HandOver(LifePtr owner);
  // The library destroyed the object (it refused to take it).
  void Destroyed();
  // Where the identifiers stored in the object so far came from, its
  // sub-objects' included (checked when it is stored in a database).
  std::vector<Origin>& origins() { return m_origins; }

 private:
  std::unique_ptr<Box> m_box;
  LifePtr m_owner;
  std::vector<Origin> m_origins;
};

// An object made by `new` that can be given up as a holder of S.
template <class S>
class OwnedAs : public virtual Box {
 public:
  virtual typename Schema<S>::Holder::Token Release(S* tag) = 0;
};

template <class X, class B>
class Owned : public OwnedAs<X>, public OwnedAs<B> {
 public:
  explicit Owned(typename Schema<X>::Holder& holder) : m_holder(holder) {
    this->m_identity = static_cast<gbb_Handle>(m_holder.Get()).Pointer();
  }
  typename Schema<X>::Holder::Token Release(X*) override { return m_holder; }
  typename Schema<B>::Holder::Token Release(B*) override {
    return Schema<X>::ReleaseAsBase(m_holder);
  }

 private:
  typename Schema<X>::Holder m_holder;
};

template <class X>
class Owned<X, void> : public OwnedAs<X> {
 public:
  explicit Owned(typename Schema<X>::Holder& holder) : m_holder(holder) {
    this->m_identity = static_cast<gbb_Handle>(m_holder.Get()).Pointer();
  }
  typename Schema<X>::Holder::Token Release(X*) override { return m_holder; }

 private:
  typename Schema<X>::Holder m_holder;
};

// The Python object of a new object: it owns the holder `New` returned.
template <class X>
py::object New(typename Schema<X>::Holder holder) {
  X handle = holder.Get();
  auto box = std::make_unique<Owned<X, typename Schema<X>::Base>>(holder);
  auto life = std::make_shared<DetachedLife>(std::move(box));
  life->origins() = TakeOrigins();  // of the identifiers `new` was given
  return py::cast(Obj<X>(handle, std::move(life)));
}

// The detached life of `item`, checked for being handed over under
// `owner` ("assigned", "appended"): its own (made by `new` and not handed
// over yet, not merely reached from such an object), and not something
// `owner` lives in.
DetachedLife& Detached(const Object& item, const Life& owner, const char* verb);

// Hands `item` over to `store` as a holder token of S. `store` returns the
// handle the library answers; the item then follows `owner`, or is marked
// destroyed when the library refused it. Messages raise Error.
template <class S, class Store>
py::object HandOver(Obj<S>& item, const LifePtr& owner, const char* verb, Store store) {
  DetachedLife& detached = Detached(item, *owner, verb);
  auto* owned = dynamic_cast<OwnedAs<S>*>(detached.box());
  if (owned == nullptr) throw py::type_error(std::string(item.Name()) + " cannot be " + verb);
  CheckChange(*owner, detached.origins(), item.Name());
  typename Schema<S>::Holder::Token token = owned->Release(static_cast<S*>(nullptr));
  // From here the object is the library's: should the call below end by an
  // exception, the Python object must not think it still owns it.
  detached.Destroyed();
  Messages messages;
  S stored = store(token);
  std::string text = messages.Take();
  if (!!stored && static_cast<gbb_Handle>(stored).Pointer() == item.Identity()) {
    detached.HandOver(owner);
  }
  SettleChange(text);
  return MakeObject(stored, owner);
}

}  // namespace ddb_py

#endif  // DDB_PYTHON_DDB_PY_OWNERSHIP_H_
