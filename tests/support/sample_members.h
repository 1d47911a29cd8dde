// A value record with one member of every kind a schema class can store,
// saved and loaded the way the generated classes do it. Shared by the
// member-record tests and the stream fuzzer.
//
// Member indices follow the byte-sorted member names; "mesh" (3) stands for
// a sub-object member: it has an index but no record of its own.
#ifndef DDB_TESTS_SUPPORT_SAMPLE_MEMBERS_H_
#define DDB_TESTS_SUPPORT_SAMPLE_MEMBERS_H_

#include "containers/ada_MapInt.h"
#include "containers/ada_MapString.h"
#include "containers/ada_string.h"
#include "persistence/gbb_MemberRecords.h"
#include "persistence/gbb_MemoryStream.h"
#include "platform/service/QELSimIDs.h"

struct SampleMembers {
  enum Index {
    kCount = 0,
    kElementSets = 1,
    kFields = 2,
    kMesh = 3,
    kName = 4,
    kNamedFields = 5,
    kNodeSet = 6,
    kNodes = 7,
    kScale = 8,
    kTemperature = 9
  };

  int count = 0;
  ada_MapString<QELSimCSetID> elementSets;
  ada_MapInt<QELSimDistributionID> fields;
  ada_string name;
  ada_MapString<QELSimDistributionID> namedFields;
  QELSimCSetID nodeSet;
  QELSimCollectionID nodes;
  double scale = 0.0;
  QELSimDistributionID temperature;

  void Save(gbb_MemoryStream& stream) const {
    gbb_WriteMemberRecord(stream, kCount, count);
    gbb_WriteMemberRecord(stream, kElementSets, elementSets);
    gbb_WriteMemberRecord(stream, kFields, fields);
    gbb_WriteMemberRecord(stream, kName, name);
    gbb_WriteMemberRecord(stream, kNamedFields, namedFields);
    gbb_WriteMemberRecord(stream, kNodeSet, nodeSet);
    gbb_WriteMemberRecord(stream, kNodes, nodes);
    gbb_WriteMemberRecord(stream, kScale, scale);
    gbb_WriteMemberRecord(stream, kTemperature, temperature);
  }

  // Returns the stream's final status.
  int Load(gbb_MemoryStream& stream) {
    return gbb_ReadMemberRecords(stream, [&](int index) {
      switch (index) {
        case kCount:
          gbb_ReadMemberValue(stream, count);
          break;
        case kElementSets:
          gbb_ReadMemberValue(stream, elementSets);
          break;
        case kFields:
          gbb_ReadMemberValue(stream, fields);
          break;
        case kName:
          gbb_ReadMemberValue(stream, name);
          break;
        case kNamedFields:
          gbb_ReadMemberValue(stream, namedFields);
          break;
        case kNodeSet:
          gbb_ReadMemberValue(stream, nodeSet);
          break;
        case kNodes:
          gbb_ReadMemberValue(stream, nodes);
          break;
        case kScale:
          gbb_ReadMemberValue(stream, scale);
          break;
        case kTemperature:
          gbb_ReadMemberValue(stream, temperature);
          break;
        default:
          break;  // not a simple-typed member: nothing to read
      }
    });
  }
};

#endif  // DDB_TESTS_SUPPORT_SAMPLE_MEMBERS_H_
