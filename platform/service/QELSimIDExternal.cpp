#include "platform/service/QELSimIDExternal.h"

namespace {
constexpr uint32_t kFormVersion = 1;

uint32_t LoadLE(const unsigned char* p) {
  return static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 |
         static_cast<uint32_t>(p[2]) << 16 | static_cast<uint32_t>(p[3]) << 24;
}
}  // namespace

QELSimIDExternal::QELSimIDExternal(QELSimCollectionID id) : m_length(0), m_bytes{} {
  Start(kCollection);
  Append(id.CollectionMinor());
}

QELSimIDExternal::QELSimIDExternal(QELSimCSetID id) : m_length(0), m_bytes{} {
  Start(kCSet);
  Append(id.CollectionMinor());
  Append(id.CSetMinor());
}

QELSimIDExternal::QELSimIDExternal(QELSimDistributionID id) : m_length(0), m_bytes{} {
  Start(kDistribution);
  Append(id.DistributionMinor());
}

QELSimIDExternal::QELSimIDExternal(QELSimDSetID id) : m_length(0), m_bytes{} {
  Start(kDSet);
  Append(id.DSetMinor());
}

void QELSimIDExternal::SetLength(int length) {
  m_length = length < 0 ? 0 : (length > kMaxLength ? kMaxLength : length);
}

uint32_t QELSimIDExternal::CollectionIDMinor() const {
  uint32_t fromSet = Word(kCSet, 2);
  return fromSet != kQELSimNoMinor ? fromSet : Word(kCollection, 2);
}
uint32_t QELSimIDExternal::CSetIDMinor() const {
  return Word(kCSet, 3);
}
uint32_t QELSimIDExternal::DistributionIDMinor() const {
  return Word(kDistribution, 2);
}
uint32_t QELSimIDExternal::DSetIDMinor() const {
  return Word(kDSet, 2);
}

void QELSimIDExternal::Start(Kind kind) {
  m_length = 0;
  Append(static_cast<uint32_t>(kind));
  Append(kFormVersion);
}

void QELSimIDExternal::Append(uint32_t word) {
  for (int i = 0; i < 4; ++i) m_bytes[m_length++] = static_cast<unsigned char>(word >> (8 * i));
}

uint32_t QELSimIDExternal::Word(Kind kind, int index) const {
  if (m_length < 4 * (index + 1) || LoadLE(m_bytes) != static_cast<uint32_t>(kind) ||
      LoadLE(m_bytes + 4) != kFormVersion) {
    return kQELSimNoMinor;
  }
  return LoadLE(m_bytes + 4 * index);
}
