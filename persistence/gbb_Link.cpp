#include "persistence/gbb_Link.h"

#include "persistence/gbb_TraverseContext.h"
#include "platform/core/aio_ostream.h"

gbb_LinkImpl::~gbb_LinkImpl() {}

gbb_Handle gbb_LinkImpl::Get(unsigned flags) {
  if ((flags & gbb_TraverseContext::kUseCache) != 0 && m_stale == 0) return m_cached;
  gbb_Root root = OwnerPath().Root();
  if (root.IsEmpty()) {
    aio_cerr.print("**ERROR gbb_LinkImpl::Get: root is empty\n");
    return gbb_Handle();
  }
  gbb_TraverseContext context(OwnerPath(), LinkText(), flags, nullptr);
  m_cached = root.Traverse(context);
  m_stale = context.Status();
  return m_cached;
}

gbb_SimpleLink::gbb_SimpleLink(gbb_Path owner, gbb_String text) : m_owner(owner), m_text(text) {}

gbb_SimpleLink::~gbb_SimpleLink() {}

void gbb_LinkHolder::Delete() {
  delete m_link;
  m_link = nullptr;
}
