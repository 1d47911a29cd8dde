#include "persistence/gbb_DistributionService.h"

#include <cstring>

#include "persistence/gbb_TraverseContext.h"

namespace {
// The 16 payload bytes: context number, context mode byte, three zero
// bytes, the reserved (null) pointer.
enum { kSize = 16 };
}  // namespace

gbb_DistributionService::gbb_DistributionService(const gbb_Handle& handle)
    : m_context(), m_reserved(nullptr) {
  if (!handle.Class().IsA(StaticClass())) return;
  const unsigned char* p = handle.Payload();
  int number;
  std::memcpy(&number, p, sizeof number);
  m_context = QELSimContextID(number, p[4]);
}

gbb_DistributionService::operator gbb_Handle() const {
  if (!IsValid()) return gbb_Handle();
  unsigned char bytes[kSize] = {};
  int number = m_context.Number();
  std::memcpy(bytes, &number, sizeof number);
  bytes[4] = m_context.Mode();
  return gbb_Handle(bytes, kSize, StaticClass());
}

gbb_Class gbb_DistributionService::StaticClass() {
  static gbb_ClassDescriptor descriptor;
  return gbb_DescribeClass(descriptor, "com.trevolo.DistributionService", nullptr, nullptr);
}

gbb_Handle gbb_TraverseLeaf(gbb_TraverseContext& context, const gbb_Handle& handle) {
  gbb_TraverseVisitor* visitor = context.Visitor();
  if (visitor != nullptr && !visitor->Visit(context, handle)) return handle;
  if (context.Advance()) {
    context.SetStatus(gbb_TraverseContext::kNothingThere);
    return gbb_Handle();
  }
  return handle;
}
