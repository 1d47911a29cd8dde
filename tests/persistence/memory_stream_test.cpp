// gbb_MemoryStream and the member-record layer on top of it: the byte format
// checked against byte sequences written out by hand (both directions), the
// sticky error states, the header and limit rules, GetBuffer's restart, and
// the load loop's behaviour on records out of order, repeated, unknown, cut
// short or lying about their size.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

#include "containers/ada_string.h"
#include "persistence/gbb_MemberRecords.h"
#include "persistence/gbb_MemoryStream.h"
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

// The bytes with a correct header in front.
ByteVector WithHeader(const ByteVector& body) {
  return Concat({Int(static_cast<int>(body.size()) + 4), body});
}

S::Buffer ToBuffer(const ByteVector& bytes) {
  S::Buffer buffer;
  if (!bytes.empty()) buffer.appendRange(bytes.data(), static_cast<int>(bytes.size()));
  return S::Buffer(static_cast<S::Buffer::gbb_AutoArrayMoveSrc>(buffer));
}

ByteVector Taken(S& stream) {
  S::Buffer buffer(stream.GetBuffer());
  return ByteVector(buffer.data(), buffer.data() + buffer.count());
}

int LoadInto(SampleMembers& members, const ByteVector& bytes) {
  S stream(ToBuffer(bytes), kContext);
  return members.Load(stream);
}

TEST(MemoryStream, FreshWriterHandsOutOnlyTheHeaderAndRestarts) {
  S s(kContext);
  EXPECT_EQ(s.Position(), 4);
  EXPECT_EQ(Taken(s), (ByteVector{4, 0, 0, 0}));
  s.Write(1);
  EXPECT_EQ(Taken(s), (ByteVector{8, 0, 0, 0, 1, 0, 0, 0}));
  EXPECT_EQ(Taken(s), (ByteVector{4, 0, 0, 0}));
}

// The scalars the sample's member records (below) do not use: the empty
// string, bools and bytes. Ints, doubles, texts and identifiers are there.
TEST(MemoryStream, EmptyStringBoolsAndBytesInBothDirections) {
  const ByteVector body = {0x07, 0, 0, 0, 0, 1, 0, 200};  // "", true, false, byte 200
  S w(kContext);
  w.WriteTag(S::ShapeScalar, S::BaseString);
  w.Write(ada_string());
  w.Write(true);
  w.Write(false);
  w.Write(static_cast<unsigned char>(200));
  EXPECT_EQ(w.Status(), 0);
  EXPECT_EQ(Taken(w), WithHeader(body));

  // A stored NUL cuts a string, whose stored bytes are all consumed; any
  // non-zero byte is true.
  S r(ToBuffer(WithHeader(Concat({body, {3, 0, 0, 0, 'a', 0, 'b', 7}}))), kContext);
  EXPECT_EQ(r.Limit(), 20);
  ada_string empty("x"), cut;
  bool t = false, f = true, seven = false;
  unsigned char byte = 0;
  EXPECT_TRUE(r.Read(S::ShapeScalar, S::BaseString) && r.Read(empty));
  EXPECT_TRUE(r.Read(t) && r.Read(f) && r.Read(byte));
  EXPECT_EQ(empty.byteCount(), 0);
  EXPECT_TRUE(t);
  EXPECT_FALSE(f);
  EXPECT_EQ(byte, 200);
  EXPECT_TRUE(r.Read(cut));
  EXPECT_STREQ(cut.cStr(), "a");
  EXPECT_EQ(r.Position(), 19);
  EXPECT_TRUE(r.Read(seven));
  EXPECT_TRUE(seven);
  EXPECT_TRUE(r.AtEnd());
  EXPECT_EQ(r.Status(), 0);
}

// Identifiers are written without their context and read into the reader's.
TEST(MemoryStream, IdentifierOfEachKind) {
  const ByteVector dsetForm = Concat({Int(12), Int(4), Int(1), Int(10)});
  const ByteVector body = Concat(
      {CSet(7, 8), Distribution(9), dsetForm, Collection(0xFFFFFFFF), Collection(0x01020304)});
  S w(kContext);
  w.Write(QELSimCSetID(5, 7, 8));
  w.Write(QELSimDistributionID(5, 9));
  w.Write(QELSimDSetID(5, 10));
  w.Write(QELSimCollectionID());  // missing: context -1 is no obstacle
  w.Write(QELSimCollectionID(5, 0x01020304));
  EXPECT_EQ(w.Status(), 0);
  EXPECT_EQ(Taken(w), WithHeader(body));

  S r(ToBuffer(WithHeader(body)), QELSimContextID(9));
  QELSimCSetID cset;
  QELSimDistributionID distribution;
  QELSimDSetID dset;
  QELSimCollectionID missing(1, 1), collection;
  EXPECT_TRUE(r.Read(cset) && r.Read(distribution) && r.Read(dset) && r.Read(missing));
  EXPECT_TRUE(r.Read(collection));
  EXPECT_EQ(cset, QELSimCSetID(9, 7, 8));
  EXPECT_EQ(distribution, QELSimDistributionID(9, 9));
  EXPECT_EQ(dset, QELSimDSetID(9, 10));
  EXPECT_FALSE(missing.IsValid());
  EXPECT_EQ(missing.ContextNumber(), 9);
  EXPECT_EQ(collection, QELSimCollectionID(9, 0x01020304));
  EXPECT_TRUE(r.AtEnd());
}

TEST(MemoryStream, ForeignIdentifierFreezesTheWriter) {
  S w(kContext);
  w.Write(1);
  w.Write(2);
  w.Write(QELSimDistributionID(6, 1));
  EXPECT_EQ(w.Status(), S::ErrorForeignID);
  w.Write(3);
  w.Write(QELSimDistributionID(5, 1));
  // What was written before the failure still comes out, with its length.
  EXPECT_EQ(Taken(w), (ByteVector{12, 0, 0, 0, 1, 0, 0, 0, 2, 0, 0, 0}));
  // The restart appended its placeholder while the status stood: no bytes.
  EXPECT_EQ(w.Status(), 0);
  EXPECT_EQ(w.Position(), 4);
  EXPECT_EQ(Taken(w), ByteVector{});
  // An invalid identifier of another context is written.
  S other(kContext);
  other.Write(QELSimDistributionID(6, kQELSimNoMinor));
  EXPECT_EQ(other.Status(), 0);
}

TEST(MemoryStream, ExternalFormOf64BytesIsAcceptedAnd65IsForeign) {
  ByteVector form64(64, 0);
  form64[0] = 3;  // distribution, version 1, minor 0x2A
  form64[4] = 1;
  form64[8] = 0x2A;
  S r(ToBuffer(WithHeader(Concat({{64, 0, 0, 0}, form64, {65, 0, 0, 0}, form64, {0}}))), kContext);
  QELSimDistributionID id;
  EXPECT_TRUE(r.Read(id));
  EXPECT_EQ(id, QELSimDistributionID(5, 0x2A));
  QELSimDistributionID untouched(1, 2);
  EXPECT_FALSE(r.Read(untouched));
  EXPECT_EQ(r.Status(), S::ErrorForeignID);
  EXPECT_EQ(untouched, QELSimDistributionID(1, 2));
}

TEST(MemoryStream, TagMismatchIsStickyAndLeavesOutputsAlone) {
  S r(ToBuffer(WithHeader({0x08, 1, 0, 0, 0})), kContext);
  EXPECT_FALSE(r.Read(S::ShapeScalar, S::BaseCSetID));
  EXPECT_EQ(r.Status(), S::ErrorTagMismatch);
  int value = 77;
  EXPECT_FALSE(r.Read(value));
  EXPECT_EQ(value, 77);
  EXPECT_EQ(r.Position(), 5);
}

// The header says where the data end; the buffer says where reading must stop.
TEST(MemoryStream, LimitComesFromTheHeaderButNeverPassesTheBuffer) {
  S longer(ToBuffer({100, 0, 0, 0, 1, 0, 0, 0, 2, 0}), kContext);
  EXPECT_EQ(longer.Limit(), 100);
  int a = 0, b = 0;
  EXPECT_TRUE(longer.Read(a));
  EXPECT_EQ(a, 1);
  EXPECT_FALSE(longer.AtEnd());
  EXPECT_EQ(longer.Remaining(), 2);
  EXPECT_FALSE(longer.Read(b));
  EXPECT_EQ(longer.Status(), S::ErrorOverrun);
  EXPECT_EQ(b, 0);

  // A stale tail after the recorded length is ignored.
  S shorter(ToBuffer({8, 0, 0, 0, 1, 0, 0, 0, 9, 9, 9, 9}), kContext);
  EXPECT_TRUE(shorter.Read(a));
  EXPECT_TRUE(shorter.AtEnd());
  EXPECT_FALSE(shorter.Read(b));
  EXPECT_EQ(shorter.Status(), S::ErrorOverrun);
}

TEST(MemoryStream, ShortOrBogusHeadersAreOverruns) {
  // Fewer than 4 bytes: the header itself cannot be read.
  for (const ByteVector& bytes : {ByteVector{}, ByteVector{4, 0, 0}}) {
    S r(ToBuffer(bytes), kContext);
    EXPECT_EQ(r.Status(), S::ErrorOverrun) << bytes.size();
  }
  // A header below 4 is taken as the limit; the first read fails, not the constructor.
  for (const ByteVector& bytes :
       {ByteVector{3, 0, 0, 0, 7}, ByteVector{0xFF, 0xFF, 0xFF, 0xFF, 0}}) {
    S r(ToBuffer(bytes), kContext);
    EXPECT_EQ(r.Status(), 0);
    EXPECT_EQ(r.Limit(), bytes[0] == 3 ? 3 : -1);
    unsigned char byte = 0;
    EXPECT_FALSE(r.Read(byte));
    EXPECT_EQ(r.Status(), S::ErrorOverrun);
  }
  S exact(ToBuffer({4, 0, 0, 0}), kContext);
  EXPECT_EQ(exact.Status(), 0);
  EXPECT_TRUE(exact.AtEnd());
}

TEST(MemoryStream, BadStringLengthsAreOverrunsWithoutAllocating) {
  const ByteVector cases[] = {{0xFF, 0xFF, 0xFF, 0xFF},       // negative
                              {0xFF, 0xFF, 0xFF, 0x7F, 'a'},  // far beyond the buffer
                              {2, 0, 0, 0, 'a'}};             // one byte short
  for (const ByteVector& body : cases) {
    S r(ToBuffer(WithHeader(body)), kContext);
    ada_string text("kept");
    long long allocations = mem_GetStatistics().allocations;
    EXPECT_FALSE(r.Read(text));
    EXPECT_EQ(mem_GetStatistics().allocations, allocations);
    EXPECT_EQ(r.Status(), S::ErrorOverrun);
    EXPECT_STREQ(text.cStr(), "kept");
  }
}

TEST(MemoryStream, ReadingTakesTheCallersBufferOver) {
  S::Buffer buffer = ToBuffer(WithHeader({5, 0, 0, 0}));
  S r(buffer, kContext);
  EXPECT_EQ(buffer.count(), 0);
  EXPECT_EQ(buffer.data(), nullptr);
  int value = 0;
  EXPECT_TRUE(r.Read(value));
  EXPECT_EQ(value, 5);
  EXPECT_EQ(r.Context(), kContext);
}

TEST(MemoryStream, LongStringsRoundTrip) {
  std::string text(1000, 'q');
  S w(kContext);
  w.Write(ada_string(text.c_str()));
  S r(w.GetBuffer(), kContext);
  ada_string back;
  EXPECT_TRUE(r.Read(back));
  EXPECT_EQ(std::string(back.cStr()), text);
  EXPECT_TRUE(r.AtEnd());
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
  EXPECT_EQ(Taken(w), WithHeader(kFilledBody));

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

TEST(MemberRecords, UnknownIndexReadsNoValueAndAWrongTagLeavesTheMemberAlone) {
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
  // A value of the wrong tag leaves the member alone.
  EXPECT_EQ(LoadInto(n, WithHeader(Concat({Head(0, 0x06), Int(4)}))), S::ErrorTagMismatch);
  EXPECT_EQ(n.count, 9);
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
