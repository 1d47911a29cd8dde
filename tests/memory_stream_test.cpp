// gbb_MemoryStream: the byte format checked against byte sequences written
// out by hand (both directions), the sticky error states, the header and
// limit rules, and GetBuffer's restart.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "containers/ada_string.h"
#include "persistence/gbb_MemoryStream.h"
#include "platform/core/mem.h"

namespace {

typedef std::vector<unsigned char> ByteVector;
typedef gbb_MemoryStream S;

const QELSimContextID kContext(5);
const ByteVector kCollectionForm = {1, 0, 0, 0, 1, 0, 0, 0, 4, 3, 2, 1};  // minor 0x01020304

ByteVector Concat(std::initializer_list<ByteVector> parts) {
  ByteVector all;
  for (const ByteVector& p : parts) all.insert(all.end(), p.begin(), p.end());
  return all;
}

// The bytes with a correct header in front.
ByteVector WithHeader(const ByteVector& body) {
  uint32_t n = static_cast<uint32_t>(body.size() + 4);
  return Concat({{static_cast<unsigned char>(n), static_cast<unsigned char>(n >> 8),
                  static_cast<unsigned char>(n >> 16), static_cast<unsigned char>(n >> 24)},
                 body});
}

S::Buffer ToBuffer(const ByteVector& bytes) {
  S::Buffer buffer;
  if (!bytes.empty()) buffer.appendRange(bytes.data(), static_cast<int>(bytes.size()));
  return S::Buffer(static_cast<S::Buffer::gbb_AutoArrayMoveSrc>(buffer));
}

ByteVector Taken(S& stream) {
  S::Buffer buffer(stream.GetBuffer());
  ByteVector bytes;
  for (int i = 0; i < buffer.count(); ++i) bytes.push_back(buffer[i]);
  return bytes;
}

TEST(MemoryStream, FreshWriterHandsOutOnlyTheHeaderAndRestarts) {
  S s(kContext);
  EXPECT_EQ(s.Position(), 4);
  EXPECT_EQ(Taken(s), (ByteVector{4, 0, 0, 0}));
  s.Write(1);
  EXPECT_EQ(Taken(s), (ByteVector{8, 0, 0, 0, 1, 0, 0, 0}));
  EXPECT_EQ(Taken(s), (ByteVector{4, 0, 0, 0}));
}

// Each scalar kind: what the writer produces and what the reader gets back.
TEST(MemoryStream, ScalarValuesInBothDirections) {
  const ByteVector body = {
      0x03, 0xFE, 0xFF, 0xFF, 0xFF,                        // int -2
      0x06, 0,    0,    0,    0,    0,   0,   0xF8, 0x3F,  // double 1.5
      0x07, 3,    0,    0,    0,    'a', 'b', 'c',         // string "abc"
      0x07, 0,    0,    0,    0,                           // empty string
      1,    0,    200,                                     // true, false, byte 200
  };
  S w(kContext);
  w.WriteTag(S::ShapeScalar, S::BaseInt);
  w.Write(-2);
  w.WriteTag(S::ShapeScalar, S::BaseDouble);
  w.Write(1.5);
  w.WriteTag(S::ShapeScalar, S::BaseString);
  w.Write(ada_string("abc"));
  w.WriteTag(S::ShapeScalar, S::BaseString);
  w.Write(ada_string());
  w.Write(true);
  w.Write(false);
  w.Write(static_cast<unsigned char>(200));
  EXPECT_EQ(w.Status(), 0);
  EXPECT_EQ(Taken(w), WithHeader(body));

  S r(ToBuffer(WithHeader(body)), kContext);
  EXPECT_EQ(r.Limit(), static_cast<int>(body.size()) + 4);
  int i = 0;
  double d = 0;
  ada_string text, empty("x");
  bool t = false, f = true;
  unsigned char byte = 0;
  EXPECT_TRUE(r.Read(S::ShapeScalar, S::BaseInt) && r.Read(i));
  EXPECT_TRUE(r.Read(S::ShapeScalar, S::BaseDouble) && r.Read(d));
  EXPECT_TRUE(r.Read(S::ShapeScalar, S::BaseString) && r.Read(text));
  EXPECT_TRUE(r.Read(S::ShapeScalar, S::BaseString) && r.Read(empty));
  EXPECT_TRUE(r.Read(t) && r.Read(f) && r.Read(byte));
  EXPECT_EQ(i, -2);
  EXPECT_EQ(d, 1.5);
  EXPECT_STREQ(text.cStr(), "abc");
  EXPECT_EQ(empty.byteCount(), 0);
  EXPECT_TRUE(t);
  EXPECT_FALSE(f);
  EXPECT_EQ(byte, 200);
  EXPECT_TRUE(r.AtEnd());
  EXPECT_EQ(r.Status(), 0);
}

TEST(MemoryStream, StoredNulCutsTheStringAndAnyNonZeroByteIsTrue) {
  S r(ToBuffer(WithHeader({3, 0, 0, 0, 'a', 0, 'b', 7, 0x03})), kContext);
  ada_string text;
  bool flag = false;
  EXPECT_TRUE(r.Read(text));
  EXPECT_STREQ(text.cStr(), "a");
  EXPECT_EQ(r.Position(), 11);  // the whole stored string was consumed
  EXPECT_TRUE(r.Read(flag));
  EXPECT_TRUE(flag);
  EXPECT_TRUE(r.Read(S::ShapeScalar, S::BaseInt));
  EXPECT_TRUE(r.AtEnd());
}

// The mesh's "nodes" member: number 12, a collection identifier.
TEST(MemoryStream, MeshNodesRecord) {
  const ByteVector body = Concat({{0x03, 0x0C, 0, 0, 0, 0x08, 0x0C, 0, 0, 0}, kCollectionForm});
  S w(kContext);
  w.WriteTag(S::ShapeScalar, S::BaseInt);
  w.Write(12);
  w.WriteTag(S::ShapeScalar, S::BaseCollectionID);
  w.Write(QELSimCollectionID(5, 0x01020304));
  EXPECT_EQ(Taken(w), WithHeader(body));

  S r(ToBuffer(WithHeader(body)), QELSimContextID(9));
  int index = 0;
  QELSimCollectionID id;
  EXPECT_TRUE(r.Read(S::ShapeScalar, S::BaseInt) && r.Read(index));
  EXPECT_TRUE(r.Read(S::ShapeScalar, S::BaseCollectionID) && r.Read(id));
  EXPECT_EQ(index, 12);
  EXPECT_EQ(id, QELSimCollectionID(9, 0x01020304));  // the reader's context
  EXPECT_TRUE(r.AtEnd());
}

TEST(MemoryStream, IdentifierOfEachKind) {
  const ByteVector body = {
      16, 0, 0, 0, 2, 0, 0, 0, 1, 0, 0, 0, 7,    0,    0,    0,    8, 0, 0, 0,  // set 7/8
      12, 0, 0, 0, 3, 0, 0, 0, 1, 0, 0, 0, 9,    0,    0,    0,                 // distribution 9
      12, 0, 0, 0, 4, 0, 0, 0, 1, 0, 0, 0, 0xA,  0,    0,    0,                 // data set 10
      12, 0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF,              // null collection
  };
  S w(kContext);
  w.Write(QELSimCSetID(5, 7, 8));
  w.Write(QELSimDistributionID(5, 9));
  w.Write(QELSimDSetID(5, 10));
  w.Write(QELSimCollectionID());  // missing: context -1 is no obstacle
  EXPECT_EQ(w.Status(), 0);
  EXPECT_EQ(Taken(w), WithHeader(body));

  S r(ToBuffer(WithHeader(body)), kContext);
  QELSimCSetID cset;
  QELSimDistributionID distribution;
  QELSimDSetID dset;
  QELSimCollectionID missing(1, 1);
  EXPECT_TRUE(r.Read(cset) && r.Read(distribution) && r.Read(dset) && r.Read(missing));
  EXPECT_EQ(cset, QELSimCSetID(5, 7, 8));
  EXPECT_EQ(distribution, QELSimDistributionID(5, 9));
  EXPECT_EQ(dset, QELSimDSetID(5, 10));
  EXPECT_FALSE(missing.IsValid());
  EXPECT_EQ(missing.ContextNumber(), 5);
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

}  // namespace
