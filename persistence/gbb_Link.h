// Links: a text resolved relative to the place of the object that owns it.
//
// gbb_LinkImpl keeps the result of its last resolution and the status it
// ended with; gbb_SimpleLink is the plain link made of an owner path and a
// text (generated objects build them on the fly to reach
// "#/distributionService" and "#/schemaSnapshot"); gbb_LinkHolder owns a
// heap link.
#ifndef DDB_PERSISTENCE_GBB_LINK_H_
#define DDB_PERSISTENCE_GBB_LINK_H_

#include "persistence/gbb_Handle.h"
#include "persistence/gbb_Path.h"
#include "platform/core/cow_String.h"
#include "platform/core/ddb_export.h"
#include "platform/core/mem.h"

class DDB_API gbb_LinkImpl : public mem_AllocationOperators {
 public:
  gbb_LinkImpl() : m_stale(1), m_cached() {}
  virtual ~gbb_LinkImpl();
  virtual gbb_Path OwnerPath() const = 0;
  virtual gbb_String LinkText() const = 0;

  // Resolves the link (or, with flags bit 1 and a valid cache, answers from
  // the cache). The context's final status becomes the link's status.
  gbb_Handle Get(unsigned flags);

  // 0 valid, 1 not resolved yet, 2 wrong class (set by typed links), 3 or 4
  // traversal failures.
  int Stale() const { return m_stale; }
  void SetStale(int stale) { m_stale = stale; }

 private:
  int m_stale;
  gbb_Handle m_cached;
};

class DDB_API gbb_SimpleLink : public gbb_LinkImpl {
 public:
  gbb_SimpleLink(gbb_Path owner, gbb_String text);
  ~gbb_SimpleLink() override;
  gbb_Path OwnerPath() const override { return m_owner; }
  gbb_String LinkText() const override { return m_text; }

 private:
  gbb_Path m_owner;
  gbb_String m_text;
};

// Owns one heap link; moves, never copies.
class DDB_API gbb_LinkHolder {
 public:
  gbb_LinkHolder() : m_link(nullptr) {}
  explicit gbb_LinkHolder(gbb_LinkImpl* link) : m_link(link) {}
  gbb_LinkHolder(gbb_LinkHolder&& other) noexcept : m_link(other.m_link) { other.m_link = nullptr; }
  gbb_LinkHolder& operator=(gbb_LinkHolder&& other) noexcept {
    if (this != &other) {
      Delete();
      m_link = other.m_link;
      other.m_link = nullptr;
    }
    return *this;
  }
  ~gbb_LinkHolder() { Delete(); }

  gbb_LinkImpl* Get() const { return m_link; }

 private:
  gbb_LinkHolder(const gbb_LinkHolder&) = delete;
  gbb_LinkHolder& operator=(const gbb_LinkHolder&) = delete;
  void Delete();

  gbb_LinkImpl* m_link;
};

#endif  // DDB_PERSISTENCE_GBB_LINK_H_
