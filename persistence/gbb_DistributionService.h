// gbb_DistributionService: how every object of a sim learns the sim's
// database context.
//
// A 16-byte value (the context, then a reserved pointer that is always
// null) that travels whole inside a gbb_Handle. Every sim answers its member
// "distributionService" with one; objects reach it through the link
// "#/distributionService". A context number of 0xFFFFFFFF means invalid.
#ifndef DDB_PERSISTENCE_GBB_DISTRIBUTIONSERVICE_H_
#define DDB_PERSISTENCE_GBB_DISTRIBUTIONSERVICE_H_

#include "persistence/gbb_Handle.h"
#include "platform/core/ddb_export.h"
#include "platform/service/QELSimIDs.h"

class gbb_TraverseContext;

class DDB_API gbb_DistributionService {
 public:
  gbb_DistributionService() : m_context(), m_reserved(nullptr) {}
  explicit gbb_DistributionService(QELSimContextID context)
      : m_context(context), m_reserved(nullptr) {}
  // Invalid unless the handle's class is (derived from) this class.
  gbb_DistributionService(const gbb_Handle& handle);  // NOLINT: a checked conversion
  // Invalid services give an empty handle.
  operator gbb_Handle() const;

  QELSimContextID Context() const { return m_context; }
  bool IsValid() const { return m_context.Number() != -1; }
  bool operator!() const { return !IsValid(); }

  // "com.trevolo.DistributionService": no base, cannot be opened.
  static gbb_Class StaticClass();

 private:
  QELSimContextID m_context;
  [[maybe_unused]] void* m_reserved;  // keeps the layout room for a later field
};

// The step of a leaf value object in a path resolution: offered to the
// visitor, then, since nothing lies below a value, any further step fails
// with status 3 and an empty handle.
DDB_API gbb_Handle gbb_TraverseLeaf(gbb_TraverseContext& context, const gbb_Handle& handle);

#endif  // DDB_PERSISTENCE_GBB_DISTRIBUTIONSERVICE_H_
