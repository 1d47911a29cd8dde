// Test helper: the database the schema tests start from, made in a scratch
// directory, and the expected form of a members dataset.
#ifndef DDB_TESTS_SUPPORT_SAMPLE_SIM_H_
#define DDB_TESTS_SUPPORT_SAMPLE_SIM_H_

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "fes/fes.h"
#include "sim_schema/sim_schema.h"
#include "support/h5_raw.h"
#include "support/scratch_dir.h"

inline const std::string kModel = "/sim/discreteModel";
inline const std::string kMesh = "/sim/discreteModel/mesh";
inline const std::string kSystems = "/sim/discreteModel/mesh/systems";

// An int32 distribution of `values`, one per member of a new collection of
// values.size(), over all its members in order (node labels, masks).
QELSimDistributionID StoreInts(QELSimContextID context, const std::vector<int>& values);

// Positions in the mesh's systems array of the sample database.
enum SampleSystem { kPlain, kGeneric, kModal, kSub, kBareSub, kSystemCount };

// The substructure's damping coefficients: values a lossy save would not bring back.
constexpr double kAlpha = 0.1, kBeta = -2.5, kStructural = 5e-324, kMass = 1.7976931348623157e308,
                 kVolume = 1.0 / 3.0;

class SampleSim : public testing::Test {
 protected:
  // Identifiers in the context of the sim created or opened last.
  QELSimDistributionID D(unsigned minor) const { return QELSimDistributionID(context, minor); }
  QELSimCollectionID C(unsigned minor) const { return QELSimCollectionID(context, minor); }
  QELSimCSetID S(unsigned collection, unsigned set) const {
    return QELSimCSetID(context, collection, set);
  }

  msfD_Sim Create(msfD_Root& root);
  msfD_Sim Open(msfD_Root& root, bool readOnly = true);
  msfD_Mesh_SystemsArray Systems(msfD_Root& root, bool readOnly = true) {
    return Open(root, readOnly).discreteModel().mesh().systems();
  }
  // An empty model and mesh in `sim`, with invalid identifiers.
  static msfD_Mesh NewMesh(msfD_Sim sim);

  // Makes the sample database in `file` and closes it: a model and a mesh
  // with sets and fields, then in the mesh's systems a plain FE system, a
  // generic one, a modal one with two events, a substructure with damping
  // and one without. Every value within an object is distinct, and some
  // members are set before their object is stored, some after.
  void Build();

  ScratchDir dir;
  std::string file = dir.File("sample.sim");
  int context = -1;
};

// Expected member records, one per call, in the order they are made. Each
// record is the member tag (0x03 and the index), the value's type byte and
// the value; the type byte of each kind of value is spelled out here.
class Records {
 public:
  typedef std::pair<unsigned, unsigned> SetId;  // collection, set

  Records& Int(int index, int value) {
    Tag(index, 0x03);
    PutInt(m_body, value);
    return *this;
  }
  Records& Real(int index, double value) {
    Tag(index, 0x06);
    PutDouble(m_body, value);
    return *this;
  }
  Records& Text(int index, const std::string& value) {
    Tag(index, 0x07);
    PutString(m_body, value);
    return *this;
  }
  // Identifiers: a collection (kind 1), a set (2) or a distribution (3).
  Records& Collection(int index, unsigned minor) { return Id(index, 0x08, 1, minor); }
  Records& Set(int index, SetId id) { return Id(index, 0x09, 2, id.first, id.second); }
  Records& Distribution(int index, unsigned minor) { return Id(index, 0x0A, 3, minor); }
  // Maps: the count, then key and value per entry in key order. String-keyed
  // maps of sets, of distributions, and int-keyed maps of distributions.
  Records& SetsByName(int index, const std::vector<std::pair<std::string, SetId>>& entries) {
    return Map(index, 0x39, entries);
  }
  Records& FieldsByName(int index, const std::vector<std::pair<std::string, unsigned>>& entries) {
    return Map(index, 0x3A, entries);
  }
  Records& FieldsByNumber(int index, const std::vector<std::pair<int, unsigned>>& entries) {
    return Map(index, 0x4A, entries);
  }
  Bytes Stream() const { return ::Stream(m_body); }

 private:
  void Tag(int index, unsigned char type) {
    m_body.push_back(0x03);
    PutInt(m_body, index);
    m_body.push_back(type);
  }
  Records& Id(int index, unsigned char type, int kind, unsigned first, unsigned second = 0) {
    Tag(index, type);
    PutId(m_body, kind, first, second);
    return *this;
  }
  template <class K, class V>
  Records& Map(int index, unsigned char type, const std::vector<std::pair<K, V>>& entries) {
    Tag(index, type);
    PutInt(m_body, static_cast<int>(entries.size()));
    for (const auto& e : entries) {
      Key(e.first);
      Value(e.second);
    }
    return *this;
  }
  void Key(const std::string& key) { PutString(m_body, key); }
  void Key(int key) { PutInt(m_body, key); }
  void Value(SetId id) { PutId(m_body, 2, id.first, id.second); }
  void Value(unsigned distribution) { PutId(m_body, 3, distribution); }
  Bytes m_body;
};

#endif  // DDB_TESTS_SUPPORT_SAMPLE_SIM_H_
