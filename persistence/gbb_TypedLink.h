// gbb_TypedLink<T>: a link whose target is expected to be a T.
//
// Resolution goes through the link (see gbb_Link.h); the result converts
// with T's class test. A target of another class gives an empty T and
// status 2. The typed link refers to a link owned elsewhere (for example by
// a gbb_LinkHolder); without one its status is 1.
#ifndef DDB_PERSISTENCE_GBB_TYPEDLINK_H_
#define DDB_PERSISTENCE_GBB_TYPEDLINK_H_

#include "persistence/gbb_Handle.h"
#include "persistence/gbb_Link.h"

template <class T>
class gbb_TypedLink {
 public:
  gbb_TypedLink() : m_link(nullptr) {}
  explicit gbb_TypedLink(gbb_LinkImpl* link) : m_link(link) {}

  int status() const { return m_link != nullptr ? m_link->Stale() : 1; }

  T get(unsigned flags) const {
    if (m_link == nullptr) return T();
    gbb_Handle handle = m_link->Get(flags);
    T result(handle);
    if (!handle.IsEmpty() && !result) m_link->SetStale(2);
    return result;
  }

 private:
  gbb_LinkImpl* m_link;
};

#endif  // DDB_PERSISTENCE_GBB_TYPEDLINK_H_
