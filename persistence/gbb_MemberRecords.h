// The member-record layer: how every schema class saves and loads its
// simple-typed members through a gbb_MemoryStream, written once.
//
// A member record is
//
//   0x03, int member index       the member's tag: its index in the class
//   tag (shape * 16 + base)      the value's type
//   the value                    a scalar as the stream writes it; a map as
//                                an int count, then count pairs of key and
//                                value in iteration order, with no tag
//                                before either
//
// gbb_MemberType<T> maps each member type to its (shape, base) and knows how
// to put its value on the stream and take it off again. The schema classes
// write one gbb_WriteMemberRecord per member and load with
// gbb_ReadMemberRecords, dispatching each index to gbb_ReadMemberValue.
#ifndef DDB_PERSISTENCE_GBB_MEMBERRECORDS_H_
#define DDB_PERSISTENCE_GBB_MEMBERRECORDS_H_

#include "containers/ada_MapInt.h"
#include "containers/ada_MapString.h"
#include "containers/ada_string.h"
#include "persistence/gbb_MemoryStream.h"
#include "platform/service/QELSimIDs.h"

// A value the stream carries as one item, and its base.
template <class T, gbb_MemoryStream::Base B>
struct gbb_ScalarMemberType {
  static constexpr gbb_MemoryStream::Shape kShape = gbb_MemoryStream::ShapeScalar;
  static constexpr gbb_MemoryStream::Base kBase = B;
  static void Write(gbb_MemoryStream& stream, const T& value) { stream.Write(value); }
  static bool Read(gbb_MemoryStream& stream, T& value) { return stream.Read(value); }
};

// Only the types below are member types; any other is a compile error.
template <class T>
struct gbb_MemberType;

template <>
struct gbb_MemberType<int> : gbb_ScalarMemberType<int, gbb_MemoryStream::BaseInt> {};
template <>
struct gbb_MemberType<double> : gbb_ScalarMemberType<double, gbb_MemoryStream::BaseDouble> {};
template <>
struct gbb_MemberType<ada_string> : gbb_ScalarMemberType<ada_string, gbb_MemoryStream::BaseString> {
};
template <>
struct gbb_MemberType<QELSimCollectionID>
    : gbb_ScalarMemberType<QELSimCollectionID, gbb_MemoryStream::BaseCollectionID> {};
template <>
struct gbb_MemberType<QELSimCSetID>
    : gbb_ScalarMemberType<QELSimCSetID, gbb_MemoryStream::BaseCSetID> {};
template <>
struct gbb_MemberType<QELSimDistributionID>
    : gbb_ScalarMemberType<QELSimDistributionID, gbb_MemoryStream::BaseDistributionID> {};

// A map: shape by key kind, base of its values. Pairs are inserted one by
// one with the map's insert, so a map that occurs twice in a stream gets the
// entries of both records. Reading stops at the count or at the first pair
// that cannot be read, keeping the pairs before it; nothing is reserved for
// the count, so a damaged count costs no more memory than the pairs present.
template <class Map, class Key, class Value, gbb_MemoryStream::Shape S>
struct gbb_MapMemberType {
  static_assert(gbb_MemberType<Value>::kShape == gbb_MemoryStream::ShapeScalar,
                "map values are scalars");
  static constexpr gbb_MemoryStream::Shape kShape = S;
  static constexpr gbb_MemoryStream::Base kBase = gbb_MemberType<Value>::kBase;

  // Pairs in key order, walked over the tree's nodes directly: the map's
  // iterator would allocate a stack link per step.
  static void Write(gbb_MemoryStream& stream, const Map& map) {
    stream.Write(map.count());
    WriteInOrder(stream, map.tree().Root());
  }

  template <class Node>
  static void WriteInOrder(gbb_MemoryStream& stream, const Node* node) {
    for (; node != nullptr; node = node->Right()) {
      WriteInOrder(stream, node->Left());
      stream.Write(KeyOf(node->ConstGetKey()));
      gbb_MemberType<Value>::Write(stream, node->ConstGetValue());
    }
  }
  static int KeyOf(const ada_MapIntKey& key) { return key.key; }
  static const ada_string& KeyOf(const ada_string& key) { return key; }

  static bool Read(gbb_MemoryStream& stream, Map& map) {
    int count = 0;
    if (!stream.Read(count)) return false;
    Key key;
    Value value;
    for (int i = 0; i < count; ++i) {
      if (!stream.Read(key) || !gbb_MemberType<Value>::Read(stream, value)) return false;
      map.insert(key, value);
    }
    return true;
  }
};

template <class X>
struct gbb_MemberType<ada_MapString<X>>
    : gbb_MapMemberType<ada_MapString<X>, ada_string, X, gbb_MemoryStream::ShapeMapString> {};
template <class X>
struct gbb_MemberType<ada_MapInt<X>>
    : gbb_MapMemberType<ada_MapInt<X>, int, X, gbb_MemoryStream::ShapeMapInt> {};

// Writes one member record: tag 0x03 and the index, then the value's tag and value.
template <class T>
void gbb_WriteMemberRecord(gbb_MemoryStream& stream, int index, const T& value) {
  stream.WriteTag(gbb_MemoryStream::ShapeScalar, gbb_MemoryStream::BaseInt);
  stream.Write(index);
  stream.WriteTag(gbb_MemberType<T>::kShape, gbb_MemberType<T>::kBase);
  gbb_MemberType<T>::Write(stream, value);
}

// Reads a member's value after its index: the value's tag (ErrorTagMismatch
// when it is not T's) and the value. False when the stream failed; a scalar
// is then untouched, a map keeps the pairs read so far.
template <class T>
bool gbb_ReadMemberValue(gbb_MemoryStream& stream, T& value) {
  return stream.Read(gbb_MemberType<T>::kShape, gbb_MemberType<T>::kBase) &&
         gbb_MemberType<T>::Read(stream, value);
}

// The load loop: while the stream is sound and not at its end, reads a
// record's tag and index and calls readValueOfIndex(index), which reads the
// value when the index is one of the class's simple-typed members and does
// nothing otherwise (the next tag read then normally fails). Returns the
// stream's final status.
template <class F>
int gbb_ReadMemberRecords(gbb_MemoryStream& stream, F readValueOfIndex) {
  while (stream.Status() == gbb_MemoryStream::ErrorNone && !stream.AtEnd()) {
    int index = 0;
    if (!stream.Read(gbb_MemoryStream::ShapeScalar, gbb_MemoryStream::BaseInt) ||
        !stream.Read(index)) {
      break;
    }
    readValueOfIndex(index);
  }
  return stream.Status();
}

#endif  // DDB_PERSISTENCE_GBB_MEMBERRECORDS_H_
