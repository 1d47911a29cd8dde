// Identifiers of the simulation-database service.
//
// The library stores these but never interprets them. Each is a small plain
// value: the number of the context (open database file) it belongs to, then
// the service's own numbers ("minor parts") of the object inside that file.
// A default identifier is the service's null identifier: context -1 and every
// minor part 0xFFFFFFFF. An identifier whose last 32-bit word is 0xFFFFFFFF
// counts as missing, whatever its context.
#ifndef DDB_PLATFORM_SERVICE_QELSIMIDS_H_
#define DDB_PLATFORM_SERVICE_QELSIMIDS_H_

#include <cstdint>

constexpr uint32_t kQELSimNoMinor = 0xFFFFFFFFu;

// An open database file. 8 bytes: the context number, one byte of open mode.
class QELSimContextID {
 public:
  constexpr QELSimContextID() : m_number(-1), m_mode(0) {}
  constexpr explicit QELSimContextID(int number, unsigned char mode = 0)
      : m_number(number), m_mode(mode) {}
  constexpr int Number() const { return m_number; }
  constexpr unsigned char Mode() const { return m_mode; }
  constexpr bool IsNull() const { return m_number == -1; }
  friend constexpr bool operator==(QELSimContextID a, QELSimContextID b) {
    return a.m_number == b.m_number && a.m_mode == b.m_mode;
  }
  friend constexpr bool operator!=(QELSimContextID a, QELSimContextID b) { return !(a == b); }

 private:
  int m_number;
  unsigned char m_mode;
};

// A collection of entities (nodes, elements, DOFs ...).
class QELSimCollectionID {
 public:
  constexpr QELSimCollectionID() : m_context(-1), m_collection(kQELSimNoMinor) {}
  constexpr QELSimCollectionID(int context, uint32_t collection)
      : m_context(context), m_collection(collection) {}
  constexpr int ContextNumber() const { return m_context; }
  constexpr uint32_t CollectionMinor() const { return m_collection; }
  constexpr bool IsValid() const { return m_collection != kQELSimNoMinor; }
  friend constexpr bool operator==(QELSimCollectionID a, QELSimCollectionID b) {
    return a.m_context == b.m_context && a.m_collection == b.m_collection;
  }
  friend constexpr bool operator!=(QELSimCollectionID a, QELSimCollectionID b) { return !(a == b); }

 private:
  int m_context;
  uint32_t m_collection;
};

// A set of members of a collection (ordered or not).
class QELSimCSetID {
 public:
  constexpr QELSimCSetID() : m_context(-1), m_collection(kQELSimNoMinor), m_cset(kQELSimNoMinor) {}
  constexpr QELSimCSetID(int context, uint32_t collection, uint32_t cset)
      : m_context(context), m_collection(collection), m_cset(cset) {}
  constexpr int ContextNumber() const { return m_context; }
  constexpr uint32_t CollectionMinor() const { return m_collection; }
  constexpr uint32_t CSetMinor() const { return m_cset; }
  constexpr bool IsValid() const { return m_cset != kQELSimNoMinor; }
  friend constexpr bool operator==(QELSimCSetID a, QELSimCSetID b) {
    return a.m_context == b.m_context && a.m_collection == b.m_collection && a.m_cset == b.m_cset;
  }
  friend constexpr bool operator!=(QELSimCSetID a, QELSimCSetID b) { return !(a == b); }

 private:
  int m_context;
  uint32_t m_collection;
  uint32_t m_cset;
};

// Values over a collection.
class QELSimDistributionID {
 public:
  constexpr QELSimDistributionID() : m_context(-1), m_distribution(kQELSimNoMinor) {}
  constexpr QELSimDistributionID(int context, uint32_t distribution)
      : m_context(context), m_distribution(distribution) {}
  constexpr int ContextNumber() const { return m_context; }
  constexpr uint32_t DistributionMinor() const { return m_distribution; }
  constexpr bool IsValid() const { return m_distribution != kQELSimNoMinor; }
  friend constexpr bool operator==(QELSimDistributionID a, QELSimDistributionID b) {
    return a.m_context == b.m_context && a.m_distribution == b.m_distribution;
  }
  friend constexpr bool operator!=(QELSimDistributionID a, QELSimDistributionID b) {
    return !(a == b);
  }

 private:
  int m_context;
  uint32_t m_distribution;
};

// A data set of the service.
class QELSimDSetID {
 public:
  constexpr QELSimDSetID() : m_context(-1), m_dset(kQELSimNoMinor) {}
  constexpr QELSimDSetID(int context, uint32_t dset) : m_context(context), m_dset(dset) {}
  constexpr int ContextNumber() const { return m_context; }
  constexpr uint32_t DSetMinor() const { return m_dset; }
  constexpr bool IsValid() const { return m_dset != kQELSimNoMinor; }
  friend constexpr bool operator==(QELSimDSetID a, QELSimDSetID b) {
    return a.m_context == b.m_context && a.m_dset == b.m_dset;
  }
  friend constexpr bool operator!=(QELSimDSetID a, QELSimDSetID b) { return !(a == b); }

 private:
  int m_context;
  uint32_t m_dset;
};

#endif  // DDB_PLATFORM_SERVICE_QELSIMIDS_H_
