// The member-record layer: every record kind against bytes written out by
// hand (saved and loaded), and the load loop's behaviour on records out of
// order, repeated, unknown, cut short or lying about their size.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <initializer_list>
#include <vector>

#include "persistence/gbb_MemberRecords.h"
#include "platform/core/mem.h"
#include "support/sample_members.h"

namespace {

typedef std::vector<unsigned char> ByteVector;
typedef gbb_MemoryStream S;

const QELSimContextID kContext(5);

ByteVector Concat(std::initializer_list<ByteVector> parts) {
  ByteVector all;
  for (const ByteVector& p : parts) all.insert(all.end(), p.begin(), p.end());
  return all;
}

ByteVector Int(int value) {
  uint32_t v = static_cast<uint32_t>(value);
  return {static_cast<unsigned char>(v), static_cast<unsigned char>(v >> 8),
          static_cast<unsigned char>(v >> 16), static_cast<unsigned char>(v >> 24)};
}

// A record's head: tag 0x03, the index, the value's tag.
ByteVector Head(int index, unsigned char tag) {
  return Concat({{0x03}, Int(index), {tag}});
}

// Length-prefixed external forms (kind, version 1, minor parts).
ByteVector Distribution(int minor) {
  return Concat({Int(12), Int(3), Int(1), Int(minor)});
}
ByteVector CSet(int collection, int cset) {
  return Concat({Int(16), Int(2), Int(1), Int(collection), Int(cset)});
}
ByteVector Collection(uint32_t minor) {
  return Concat({Int(12), Int(1), Int(1), Int(static_cast<int>(minor))});
}

ByteVector WithHeader(const ByteVector& body) {
  return Concat({Int(static_cast<int>(body.size()) + 4), body});
}

ByteVector Saved(S& stream) {
  S::Buffer buffer(stream.GetBuffer());
  return ByteVector(buffer.data(), buffer.data() + buffer.count());
}

S::Buffer ToBuffer(const ByteVector& bytes) {
  S::Buffer buffer;
  buffer.appendRange(bytes.data(), static_cast<int>(bytes.size()));
  return S::Buffer(static_cast<S::Buffer::gbb_AutoArrayMoveSrc>(buffer));
}

int LoadInto(SampleMembers& members, const ByteVector& bytes) {
  S stream(ToBuffer(bytes), kContext);
  return members.Load(stream);
}

SampleMembers Filled() {
  SampleMembers m;
  m.count = 7;
  m.fields.insert(2, QELSimDistributionID(5, 1));
  m.fields.insert(-1, QELSimDistributionID(5, 2));
  m.name = "ab";
  m.namedFields.insert("b", QELSimDistributionID(5, 3));
  m.namedFields.insert("a", QELSimDistributionID(5, 4));
  m.nodeSet = QELSimCSetID(5, 7, 8);
  m.nodes = QELSimCollectionID(5, 0x01020304);
  m.scale = 0.25;
  m.temperature = QELSimDistributionID(5, 9);
  return m;
}

// Filled()'s records, one per element.
const std::vector<ByteVector> kFilledRecords = {
    Concat({Head(0, 0x03), Int(7)}),  // count
    Concat({Head(1, 0x39), Int(0)}),  // elementSets, empty
    // fields, in key order -1, 2
    Concat({Head(2, 0x4A), Int(2), Int(-1), Distribution(2), Int(2), Distribution(1)}),
    Concat({Head(4, 0x07), Int(2), {'a', 'b'}}),  // name
    // namedFields, in key order "a", "b"
    Concat({Head(5, 0x3A), Int(2), Int(1), {'a'}, Distribution(4), Int(1), {'b'}, Distribution(3)}),
    Concat({Head(6, 0x09), CSet(7, 8)}),                      // nodeSet
    Concat({Head(7, 0x08), Collection(0x01020304)}),          // nodes
    Concat({Head(8, 0x06), {0, 0, 0, 0, 0, 0, 0xD0, 0x3F}}),  // scale 0.25
    Concat({Head(9, 0x0A), Distribution(9)}),                 // temperature
};

ByteVector FilledBody() {
  ByteVector all;
  for (const ByteVector& record : kFilledRecords)
    all.insert(all.end(), record.begin(), record.end());
  return all;
}
const ByteVector kFilledBody = FilledBody();

TEST(MemberRecords, EveryKindOfMemberInBothDirections) {
  S w(kContext);
  Filled().Save(w);
  EXPECT_EQ(w.Status(), 0);
  EXPECT_EQ(Saved(w), WithHeader(kFilledBody));

  SampleMembers m;
  EXPECT_EQ(LoadInto(m, WithHeader(kFilledBody)), 0);
  EXPECT_EQ(m.count, 7);
  EXPECT_EQ(m.elementSets.count(), 0);
  EXPECT_EQ(m.fields.count(), 2);
  EXPECT_EQ(m.fields.get(-1), QELSimDistributionID(5, 2));
  EXPECT_EQ(m.fields.get(2), QELSimDistributionID(5, 1));
  EXPECT_STREQ(m.name.cStr(), "ab");
  EXPECT_EQ(m.namedFields.count(), 2);
  EXPECT_EQ(m.namedFields.get("a"), QELSimDistributionID(5, 4));
  EXPECT_EQ(m.namedFields.get("b"), QELSimDistributionID(5, 3));
  EXPECT_EQ(m.nodeSet, QELSimCSetID(5, 7, 8));
  EXPECT_EQ(m.nodes, QELSimCollectionID(5, 0x01020304));
  EXPECT_EQ(m.scale, 0.25);
  EXPECT_EQ(m.temperature, QELSimDistributionID(5, 9));
}

TEST(MemberRecords, MapsOfTheOtherKindsAndTheMeshNodesRecord) {
  ada_MapString<QELSimCSetID> sets;
  sets.insert("x", QELSimCSetID(5, 1, 2));
  ada_MapInt<QELSimDistributionID> none;
  S w(kContext);
  gbb_WriteMemberRecord(w, 1, sets);
  gbb_WriteMemberRecord(w, 2, none);
  gbb_WriteMemberRecord(w, 12, QELSimCollectionID(5, 0x01020304));
  EXPECT_EQ(Saved(w), WithHeader(Concat({Head(1, 0x39),
                                         Int(1),
                                         Int(1),
                                         {'x'},
                                         CSet(1, 2),
                                         Head(2, 0x4A),
                                         Int(0),
                                         // 03 0C 00 00 00 08 0C 00 00 00 + 12 bytes
                                         {0x03, 0x0C, 0, 0, 0, 0x08},
                                         Collection(0x01020304)})));
}

TEST(MemberRecords, RecordsInAnyOrderLaterScalarsWinAndMapsMerge) {
  const ByteVector body = Concat({
      Head(2, 0x4A), Int(1), Int(4), Distribution(40),  // fields {4}
      Head(0, 0x03), Int(1),                            // count 1
      Head(2, 0x4A), Int(1), Int(5), Distribution(50),  // fields {5}
      Head(0, 0x03), Int(2),                            // count 2
  });
  SampleMembers m;
  EXPECT_EQ(LoadInto(m, WithHeader(body)), 0);
  EXPECT_EQ(m.count, 2);
  EXPECT_EQ(m.fields.count(), 2);
  EXPECT_EQ(m.fields.get(5), QELSimDistributionID(5, 50));
}

TEST(MemberRecords, UnknownIndexReadsNoValue) {
  // The unknown member's value tag is taken for the next record's tag:
  // a double's 0x06 ends the load with a tag mismatch ...
  SampleMembers m;
  EXPECT_EQ(LoadInto(m, WithHeader(Concat({Head(0, 0x03), Int(5), Head(42, 0x06), Int(0)}))),
            S::ErrorTagMismatch);
  EXPECT_EQ(m.count, 5);
  // ... while a following 0x03 carries on (the mesh index 3 also reads nothing).
  SampleMembers n;
  EXPECT_EQ(
      LoadInto(n, WithHeader(Concat({{0x03}, Int(42), {0x03}, Int(3), Head(0, 0x03), Int(9)}))), 0);
  EXPECT_EQ(n.count, 9);
}

TEST(MemberRecords, ValueTagMismatchLeavesTheMemberAlone) {
  SampleMembers m;
  m.count = 4;
  EXPECT_EQ(LoadInto(m, WithHeader(Concat({Head(0, 0x06), Int(9)}))), S::ErrorTagMismatch);
  EXPECT_EQ(m.count, 4);
}

// Cutting the stream anywhere gives a clean load at record boundaries and
// an overrun everywhere else.
TEST(MemberRecords, CutStreamsOverrunExceptAtRecordBoundaries) {
  std::vector<size_t> boundaries = {0};
  for (const ByteVector& record : kFilledRecords)
    boundaries.push_back(boundaries.back() + record.size());
  for (size_t cut = 0; cut < kFilledBody.size(); ++cut) {
    ByteVector body(kFilledBody.begin(), kFilledBody.begin() + static_cast<long>(cut));
    SampleMembers m;
    bool boundary = std::find(boundaries.begin(), boundaries.end(), cut) != boundaries.end();
    EXPECT_EQ(LoadInto(m, WithHeader(body)), boundary ? 0 : S::ErrorOverrun) << cut;
  }
}

TEST(MemberRecords, MapsKeepThePairsReadUntilTheCountOrAFailure) {
  // Room for one pair of the string map: a larger count reads that pair,
  // then overruns; nothing is reserved for the count.
  for (int count : {0x7FFFFFFF, 2}) {
    ByteVector body = Concat({Head(1, 0x39), Int(count), Int(0), Int(0), Int(0)});
    SampleMembers m;
    long long allocations = mem_GetStatistics().allocations;
    EXPECT_EQ(LoadInto(m, WithHeader(body)), S::ErrorOverrun) << count;
    EXPECT_LE(mem_GetStatistics().allocations, allocations + 4) << count;
    EXPECT_EQ(m.elementSets.count(), 1);
  }
  // A negative count reads no pair; the records after it still load.
  {
    ByteVector body = Concat({Head(1, 0x39), Int(-1), Head(2, 0x4A), Int(0)});
    SampleMembers m;
    EXPECT_EQ(LoadInto(m, WithHeader(body)), 0);
    EXPECT_EQ(m.elementSets.count(), 0);
  }
  // A pair that fails half-way keeps the pairs before it.
  SampleMembers m;
  EXPECT_EQ(LoadInto(m, WithHeader(Concat({Head(2, 0x4A), Int(2), Int(1), Distribution(1), Int(2),
                                           Int(65), ByteVector(65, 0)}))),
            S::ErrorForeignID);
  EXPECT_EQ(m.fields.count(), 1);
}

}  // namespace
