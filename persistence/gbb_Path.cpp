#include "persistence/gbb_Path.h"

#include "persistence/gbb_Handle.h"
#include "platform/core/aio_ostream.h"

gbb_Handle gbb_Root::Traverse(gbb_TraverseContext& context) const {
  if (m_impl == nullptr) {
    aio_cerr.print("** ERROR gbb_RootImpl::Traverse: called on an empty handle\n");
    return gbb_Handle();
  }
  return m_impl->Traverse(context);
}
