// The member stream on a large value record: 20 scalars and two maps of
// 1,000 identifiers each, written, read (maps parsed, not built) and loaded
// (maps built), each against a minimal hand-written encoder or decoder of
// the same bytes into the same values.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <type_traits>
#include <utility>
#include <vector>

#include "bench_util.h"
#include "containers/ada_MapInt.h"
#include "containers/ada_MapString.h"
#include "persistence/gbb_MemberRecords.h"
#include "persistence/gbb_MemoryStream.h"

namespace {

typedef gbb_MemoryStream S;

const QELSimContextID kContext(1);
const int kEntries = 1000;
const int kRounds = 200;

struct BenchRecord {
  int ints[5] = {};
  double doubles[5] = {};
  ada_string strings[3];
  QELSimCollectionID collections[3];
  QELSimCSetID sets[2];
  QELSimDistributionID fields[2];
  ada_MapString<QELSimCSetID> namedSets;
  ada_MapInt<QELSimDistributionID> numberedFields;

  void Save(S& stream) const {
    int index = 0;
    for (int v : ints) gbb_WriteMemberRecord(stream, index++, v);
    for (double v : doubles) gbb_WriteMemberRecord(stream, index++, v);
    for (const ada_string& v : strings) gbb_WriteMemberRecord(stream, index++, v);
    for (QELSimCollectionID v : collections) gbb_WriteMemberRecord(stream, index++, v);
    for (QELSimCSetID v : sets) gbb_WriteMemberRecord(stream, index++, v);
    for (QELSimDistributionID v : fields) gbb_WriteMemberRecord(stream, index++, v);
    gbb_WriteMemberRecord(stream, index++, namedSets);
    gbb_WriteMemberRecord(stream, index++, numberedFields);
  }

  // buildMaps false: the map records are parsed pair by pair but not stored.
  int Load(S& stream, bool buildMaps) {
    return gbb_ReadMemberRecords(stream, [&](int i) {
      if (i < 5) {
        gbb_ReadMemberValue(stream, ints[i]);
      } else if (i < 10) {
        gbb_ReadMemberValue(stream, doubles[i - 5]);
      } else if (i < 13) {
        gbb_ReadMemberValue(stream, strings[i - 10]);
      } else if (i < 16) {
        gbb_ReadMemberValue(stream, collections[i - 13]);
      } else if (i < 18) {
        gbb_ReadMemberValue(stream, sets[i - 16]);
      } else if (i < 20) {
        gbb_ReadMemberValue(stream, fields[i - 18]);
      } else if (i == 20) {
        buildMaps ? gbb_ReadMemberValue(stream, namedSets) : Scan<ada_string, QELSimCSetID>(stream);
      } else if (i == 21) {
        buildMaps ? gbb_ReadMemberValue(stream, numberedFields)
                  : Scan<int, QELSimDistributionID>(stream);
      }
    });
  }

  template <class Key, class Value>
  static bool Scan(S& stream) {
    typedef gbb_MemberType<Value> Type;
    int count = 0;
    const S::Shape shape = std::is_same<Key, int>::value ? S::ShapeMapInt : S::ShapeMapString;
    if (!stream.Read(shape, Type::kBase) || !stream.Read(count)) {
      return false;
    }
    Key key;
    Value value;
    for (int i = 0; i < count; ++i) {
      if (!stream.Read(key) || !Type::Read(stream, value)) return false;
    }
    return true;
  }
};

// The minimal hand-written encoder of the same bytes: a growing buffer
// written through a pointer with plain little-endian stores (the host's
// order here), one room check per value, and the maps walked over their
// tree nodes as the stream does.
struct MinimalEncoder {
  std::vector<unsigned char> out;
  unsigned char* p = nullptr;
  unsigned char* end = nullptr;

  void Room(size_t n) {
    if (static_cast<size_t>(end - p) >= n) return;
    size_t used = out.empty() ? 0 : static_cast<size_t>(p - out.data());
    out.resize(std::max<size_t>(2 * out.size(), std::max<size_t>(used + n, 256)));
    p = out.data() + used;
    end = out.data() + out.size();
  }
  template <size_t N>
  void Store(const void* v) {
    std::memcpy(p, v, N);
    p += N;
  }
  void Bytes(const void* v, size_t n) {
    Room(n);
    std::memcpy(p, v, n);
    p += n;
  }
  void Int(int v) {
    Room(4);
    Store<4>(&v);
  }
  void Value(int v) { Int(v); }
  void Value(double v) {
    Room(8);
    Store<8>(&v);
  }
  void Value(const ada_string& v) {
    Int(v.byteCount());
    Bytes(v.cStr(), static_cast<size_t>(v.byteCount()));
  }
  // An identifier's form: length, kind, version 1, the minor words.
  template <size_t N>
  void Form(const uint32_t (&words)[N]) {
    Room(4 * (N + 1));
    const uint32_t length = 4 * N;
    Store<4>(&length);
    Store<4 * N>(words);
  }
  void Value(QELSimCollectionID id) { Form({1, 1, id.CollectionMinor()}); }
  void Value(QELSimCSetID id) { Form({2, 1, id.CollectionMinor(), id.CSetMinor()}); }
  void Value(QELSimDistributionID id) { Form({3, 1, id.DistributionMinor()}); }
  void Head(int index, int tag) {
    Room(6);
    const unsigned char head[6] = {0x03,
                                   static_cast<unsigned char>(index),
                                   static_cast<unsigned char>(index >> 8),
                                   static_cast<unsigned char>(index >> 16),
                                   static_cast<unsigned char>(index >> 24),
                                   static_cast<unsigned char>(tag)};
    Store<6>(head);
  }
  template <class T>
  void Record(int index, int tag, const T& value) {
    Head(index, tag);
    Value(value);
  }
  template <class Node>
  void Pairs(const Node* node) {
    for (; node != nullptr; node = node->Right()) {
      Pairs(node->Left());
      Key(node->ConstGetKey());
      Value(node->ConstGetValue());
    }
  }
  void Key(const ada_MapIntKey& key) { Int(key.key); }
  void Key(const ada_string& key) { Value(key); }
  template <class Map>
  void MapRecord(int index, int tag, const Map& map) {
    Head(index, tag);
    Int(map.count());
    Pairs(map.tree().Root());
  }

  std::vector<unsigned char> Encode(const BenchRecord& r) {
    Int(0);
    int index = 0;
    for (int v : r.ints) Record(index++, 0x03, v);
    for (double v : r.doubles) Record(index++, 0x06, v);
    for (const ada_string& v : r.strings) Record(index++, 0x07, v);
    for (QELSimCollectionID v : r.collections) Record(index++, 0x08, v);
    for (QELSimCSetID v : r.sets) Record(index++, 0x09, v);
    for (QELSimDistributionID v : r.fields) Record(index++, 0x0A, v);
    MapRecord(index++, 0x39, r.namedSets);
    MapRecord(index++, 0x4A, r.numberedFields);
    const int n = static_cast<int>(p - out.data());
    std::memcpy(out.data(), &n, 4);
    out.resize(static_cast<size_t>(n));
    return std::move(out);
  }
};

// The minimal decoder of those bytes into the same fields, with the checks
// any reader of untrusted bytes needs (bounds, tags, identifier forms).
class MinimalDecoder {
 public:
  MinimalDecoder(const std::vector<unsigned char>& bytes, int context)
      : m_p(bytes.data()), m_end(bytes.data() + bytes.size()), m_context(context) {}

  bool Decode(BenchRecord& r, bool buildMaps) {
    int header = 0;
    if (!Read(header)) return false;
    while (m_p < m_end) {
      unsigned char tag = 0, type = 0;
      int i = 0;
      if (!Read(tag) || tag != 0x03 || !Read(i) || !Read(type)) return false;
      bool ok =
          i < 5     ? type == 0x03 && Read(r.ints[i])
          : i < 10  ? type == 0x06 && Read(r.doubles[i - 5])
          : i < 13  ? type == 0x07 && Read(r.strings[i - 10])
          : i < 16  ? type == 0x08 && Read(r.collections[i - 13])
          : i < 18  ? type == 0x09 && Read(r.sets[i - 16])
          : i < 20  ? type == 0x0A && Read(r.fields[i - 18])
          : i == 20 ? type == 0x39 && ReadMap<ada_string, QELSimCSetID>(r.namedSets, buildMaps)
          : i == 21
              ? type == 0x4A && ReadMap<int, QELSimDistributionID>(r.numberedFields, buildMaps)
              : false;
      if (!ok) return false;
    }
    return true;
  }

 private:
  bool Take(void* out, size_t n) {
    if (static_cast<size_t>(m_end - m_p) < n) return false;
    std::memcpy(out, m_p, n);
    m_p += n;
    return true;
  }
  bool Read(unsigned char& v) { return Take(&v, 1); }
  bool Read(int& v) { return Take(&v, 4); }
  bool Read(double& v) { return Take(&v, 8); }
  bool Read(ada_string& v) {
    int n = 0;
    if (!Read(n) || n < 0 || m_end - m_p < n) return false;
    char text[256];
    if (n >= static_cast<int>(sizeof text)) return false;
    std::memcpy(text, m_p, static_cast<size_t>(n));
    text[n] = '\0';
    m_p += n;
    ada_string(text).swap(v);
    return true;
  }
  // An identifier's form: its length, kind and version, then `minors` words.
  bool Form(uint32_t kind, int minors, uint32_t* words) {
    int length = 0;
    uint32_t head[2];
    if (!Read(length) || length != 4 * (2 + minors) || !Take(head, 8) || head[0] != kind ||
        head[1] != 1) {
      return false;
    }
    return Take(words, 4 * static_cast<size_t>(minors));
  }
  bool Read(QELSimCollectionID& id) {
    uint32_t w[1];
    if (!Form(1, 1, w)) return false;
    id = QELSimCollectionID(m_context, w[0]);
    return true;
  }
  bool Read(QELSimCSetID& id) {
    uint32_t w[2];
    if (!Form(2, 2, w)) return false;
    id = QELSimCSetID(m_context, w[0], w[1]);
    return true;
  }
  bool Read(QELSimDistributionID& id) {
    uint32_t w[1];
    if (!Form(3, 1, w)) return false;
    id = QELSimDistributionID(m_context, w[0]);
    return true;
  }
  template <class Key, class Value, class Map>
  bool ReadMap(Map& map, bool build) {
    int count = 0;
    if (!Read(count)) return false;
    Key key;
    Value value;
    for (int k = 0; k < count; ++k) {
      if (!Read(key) || !Read(value)) return false;
      if (build) map.insert(key, value);
    }
    return true;
  }

  const unsigned char* m_p;
  const unsigned char* m_end;
  int m_context;
};

void Check(bool ok, const char* what) {
  if (!ok) {
    std::fprintf(stderr, "stream_bench: %s failed\n", what);
    std::exit(1);
  }
}

struct Pair {
  double base = 1e300, ours = 1e300;
};

// kRounds calls of each side per run, the two sides taking turns run by
// run so that a change of load hits both; the best run of each counts.
template <class Base, class Ours>
Pair Paired(int runs, Base base, Ours ours) {
  Pair p;
  for (int r = 0; r < runs; ++r) {
    p.base = std::min(p.base, bench::BestOf(1, [&] {
                        for (int k = 0; k < kRounds; ++k) base();
                      }));
    p.ours = std::min(p.ours, bench::BestOf(1, [&] {
                        for (int k = 0; k < kRounds; ++k) ours();
                      }));
  }
  return p;
}

S::Buffer Copy(const std::vector<unsigned char>& bytes) {
  S::Buffer buffer;
  buffer.appendRange(bytes.data(), static_cast<int>(bytes.size()));
  return S::Buffer(static_cast<S::Buffer::gbb_AutoArrayMoveSrc>(buffer));
}

}  // namespace

int main() {
  int runs = bench::Runs(7);

  std::vector<ada_string> keys;
  std::vector<QELSimCSetID> setValues;
  std::vector<QELSimDistributionID> fieldValues;
  char text[32];
  for (int i = 0; i < kEntries; ++i) {
    std::snprintf(text, sizeof text, "set-%05d", (i * 7919) % kEntries);
    keys.emplace_back(text);
    setValues.emplace_back(1, 100, static_cast<uint32_t>(i));
    fieldValues.emplace_back(1, static_cast<uint32_t>(i + 5000));
  }

  BenchRecord record;
  for (int i = 0; i < 5; ++i) {
    record.ints[i] = i * 1000;
    record.doubles[i] = i * 0.5;
  }
  record.strings[0] = "discrete model";
  record.strings[1] = "mesh";
  record.strings[2] = "static step";
  for (int i = 0; i < 3; ++i)
    record.collections[i] = QELSimCollectionID(1, static_cast<uint32_t>(i));
  for (int i = 0; i < 2; ++i) {
    record.sets[i] = QELSimCSetID(1, 2, static_cast<uint32_t>(i));
    record.fields[i] = QELSimDistributionID(1, static_cast<uint32_t>(i));
  }
  for (int i = 0; i < kEntries; ++i) {
    record.namedSets.insert(keys[i], setValues[i]);
    record.numberedFields.insert((i * 7919) % kEntries, fieldValues[i]);
  }

  S probe(kContext);
  record.Save(probe);
  S::Buffer saved(probe.GetBuffer());
  std::vector<unsigned char> bytes(saved.data(), saved.data() + saved.count());
  const size_t n = bytes.size();
  std::printf("record: 20 scalars + 2 maps x %d entries = %zu bytes\n", kEntries, n);

  Check(MinimalEncoder().Encode(record) == bytes, "the minimal encoder writes the same bytes");
  {
    BenchRecord decoded;
    Check(MinimalDecoder(bytes, 1).Decode(decoded, true) && decoded.namedSets.count() == kEntries &&
              decoded.numberedFields.count() == kEntries,
          "the minimal decoder reads the bytes");
  }

  // Each figure is paired with its baseline run by run (see Paired).
  std::vector<unsigned char> target(n);
  double memcpyTime = bench::BestOf(runs, [&] {
    for (int r = 0; r < kRounds; ++r) {
      std::memcpy(target.data(), bytes.data(), n);
      bench::Keep(target[r % n]);
    }
  });
  Pair write = Paired(
      runs,
      [&] {
        MinimalEncoder encoder;
        std::vector<unsigned char> out = encoder.Encode(record);
        bench::Keep(out[0]);
      },
      [&] {
        S stream(kContext);
        record.Save(stream);
        S::Buffer out(stream.GetBuffer());
        bench::Keep(out[0]);
      });
  // Reading, with the maps parsed only or built.
  auto read = [&](bool buildMaps) {
    return Paired(
        runs,
        [&] {
          BenchRecord into;
          if (!MinimalDecoder(bytes, 1).Decode(into, buildMaps)) std::abort();
        },
        [&] {
          S stream(Copy(bytes), kContext);
          BenchRecord into;
          if (into.Load(stream, buildMaps) != 0) std::abort();
          if (buildMaps && into.namedSets.count() != kEntries) std::abort();
        });
  };
  Pair scan = read(false);
  Pair load = read(true);

  bench::Header("member stream, per record of 20 scalars and 2 maps x 1,000 entries",
                "53 KB record");
  bench::InfoRow("memcpy of the bytes (for scale)", memcpyTime, kRounds, write.base);
  bench::BaselineRow("minimal encoder: write the record", write.base, kRounds);
  bench::Row("member stream: write record + GetBuffer", write.ours, kRounds, write.base, 3);
  bench::BaselineRow("minimal decoder: read the record, maps not built", scan.base, kRounds);
  bench::Row("member stream: copy in + read, maps not built", scan.ours, kRounds, scan.base, 3);
  bench::BaselineRow("minimal decoder: read the record, maps built", load.base, kRounds);
  bench::Row("member stream: copy in + load with maps", load.ours, kRounds, load.base, 3);
  return 0;
}
