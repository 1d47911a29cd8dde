// Distributions of the simulation-database service, and reading them.
//
// A distribution holds values over the members of an ordered set (its
// dimension set), in the set's order. This service makes one kind: one
// drawer of 32-bit integers, one per member. A reader asks for the drawers
// (QueryDrawers), learns the dimension set and the number of items, and reads
// the values with a QELSimTransfer:
//
//   QELSimTransfer t(distribution);
//   t.SetRead(); t.SetBufferPadding(false); t.SetDim(0, set); t.CheckView();
//   t.SetBuffer(0, values, count * 4); t.ExecRead(); t.RelinquishBuffers();
//
// Identifiers are checked as for collections (QELSimCollection.h): one
// message and an empty result. A transfer never writes past its buffer.
#ifndef DDB_PLATFORM_SERVICE_QELSIMDISTRIBUTION_H_
#define DDB_PLATFORM_SERVICE_QELSIMDISTRIBUTION_H_

#include <cstddef>

#include "platform/core/ddb_export.h"
#include "platform/service/QELSimArray.h"
#include "platform/service/QELSimIDs.h"

struct QELSimStoredDistribution;

// What one drawer of a distribution holds: its dimension sets and the
// number of items along each.
class QELSimPersistentDrawerDesc {
 public:
  QELSimPersistentDrawerDesc() : m_dimensionSets(1), m_items(1) {}
  // A drawer of one dimension.
  QELSimPersistentDrawerDesc(QELSimCSetID set, int items) : m_dimensionSets(1), m_items(1) {
    m_dimensionSets.Append(set);
    m_items.Append(items);
  }

  int NumDimensions() const { return m_items.Size(); }
  // Items along `dimension`; 0 for a dimension the drawer does not have.
  int DataSizeItems(int dimension) const {
    return dimension >= 0 && dimension < m_items.Size() ? m_items[dimension] : 0;
  }
  QELSimArray<QELSimCSetID>& DimensionSets() { return m_dimensionSets; }
  const QELSimArray<QELSimCSetID>& DimensionSets() const { return m_dimensionSets; }

 private:
  QELSimArray<QELSimCSetID> m_dimensionSets;
  QELSimArray<int> m_items;
};

class DDB_API QELSimDistributionRef {
 public:
  // A new distribution of one int32 per member of `dimensionSet`, in the set's
  // order; `values` holds that many.
  static QELSimDistributionID CreateInt32(QELSimCSetID dimensionSet, const int* values);

  explicit QELSimDistributionRef(QELSimDistributionID distribution);
  QELSimDistributionID ID() const { return m_id; }
  // 1 for a distribution of this service; 0 after a message when the
  // identifier names none.
  int NumDrawers() const;
  // Replaces the contents of `out` by the NumDrawers() drawer descriptions.
  void QueryDrawers(QELSimArray<QELSimPersistentDrawerDesc>& out) const;

 private:
  QELSimDistributionID m_id;
  mutable int m_state;  // 0 not looked up, 1 found, -1 reported missing
  mutable QELSimCSetID m_set;
  mutable int m_count;
  bool Resolve(const char* operation) const;
};

class DDB_API QELSimTransfer {
 public:
  explicit QELSimTransfer(QELSimDistributionID distribution);

  // Reading is the only direction this service offers; it must be chosen.
  void SetRead();
  // Only unpadded buffers (items packed, 4 bytes each) are supported.
  void SetBufferPadding(bool padding);
  // The order of the values: the distribution's own dimension set.
  void SetDim(int dimension, QELSimCSetID set);
  // Whether the view set up so far can be read; a message when not.
  bool CheckView();
  // The buffer of `drawer`, `bytes` long.
  void SetBuffer(int drawer, void* buffer, size_t bytes);
  // Reads the values into the buffer; false after a message, the buffer untouched.
  bool ExecRead();
  // Forgets the buffer.
  void RelinquishBuffers();

 private:
  enum Problem { kNone, kMissing, kNotRead, kPadded, kNoView, kWrongView, kSmallBuffer };
  // Whether the transfer can run, with the distribution found; a message when not.
  bool Check(const char* operation, bool needBuffer, QELSimStoredDistribution* stored);
  Problem Diagnose(const char* operation, bool needBuffer, QELSimStoredDistribution* stored);
  void Report(const char* operation, Problem problem, const QELSimStoredDistribution& stored) const;
  // Forgets that `changed` was reported, so that it is reported again.
  void Rearm(Problem changed);

  QELSimDistributionID m_id;
  Problem m_reported;  // the problem printed last
  bool m_read;
  bool m_padding;
  bool m_dimensionGiven;
  QELSimCSetID m_view;
  void* m_buffer;
  size_t m_bytes;
};

#endif  // DDB_PLATFORM_SERVICE_QELSIMDISTRIBUTION_H_
