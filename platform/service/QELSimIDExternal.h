// QELSimIDExternal: the external byte form of a service identifier.
//
// This is how identifiers are stored inside objects' member streams, so the
// form is part of the file format: little-endian 32-bit words, at most 64
// bytes, and no context number (a reader attaches its own context):
//
//   word 0      kind: 1 collection, 2 set, 3 distribution, 4 data set
//   word 1      form version, 1
//   word 2...   the minor parts: collection; collection, set; distribution; data set
//
// so a collection, distribution or data-set identifier takes 12 bytes and a
// set identifier 16. A form read back from a stream may hold any bytes; the
// minor accessors then answer kQELSimNoMinor for what the form does not hold.
#ifndef DDB_PLATFORM_SERVICE_QELSIMIDEXTERNAL_H_
#define DDB_PLATFORM_SERVICE_QELSIMIDEXTERNAL_H_

#include <cstdint>

#include "platform/core/ddb_export.h"
#include "platform/service/QELSimIDs.h"

class DDB_API QELSimIDExternal {
 public:
  enum { kMaxLength = 64 };
  enum Kind { kCollection = 1, kCSet = 2, kDistribution = 3, kDSet = 4 };

  QELSimIDExternal() : m_length(0), m_bytes{} {}
  explicit QELSimIDExternal(QELSimCollectionID id);
  explicit QELSimIDExternal(QELSimCSetID id);
  explicit QELSimIDExternal(QELSimDistributionID id);
  explicit QELSimIDExternal(QELSimDSetID id);

  const unsigned char* Bytes() const { return m_bytes; }
  unsigned char* Bytes() { return m_bytes; }
  int Length() const { return m_length; }
  // Clamped to 0 .. kMaxLength.
  void SetLength(int length);

  uint32_t CollectionIDMinor() const;
  uint32_t CSetIDMinor() const;
  uint32_t DistributionIDMinor() const;
  uint32_t DSetIDMinor() const;

 private:
  void Start(Kind kind);
  void Append(uint32_t word);
  // Word `index` when the form is of `kind` and long enough, else kQELSimNoMinor.
  uint32_t Word(Kind kind, int index) const;

  int m_length;
  unsigned char m_bytes[kMaxLength];
};

#endif  // DDB_PLATFORM_SERVICE_QELSIMIDEXTERNAL_H_
