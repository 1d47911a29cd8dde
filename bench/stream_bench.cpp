// The member stream on a large value record: 20 scalars and two maps of
// 1,000 identifiers each. Writing and scanning are compared with memcpy of
// the same bytes; loading (which builds the maps) with inserting the same
// pairs into the maps directly.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <type_traits>
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

S::Buffer Copy(const std::vector<unsigned char>& bytes) {
  S::Buffer buffer;
  buffer.appendRange(bytes.data(), static_cast<int>(bytes.size()));
  return S::Buffer(static_cast<S::Buffer::gbb_AutoArrayMoveSrc>(buffer));
}

}  // namespace

int main() {
  const int kRounds = 200;
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

  std::vector<unsigned char> target(n);
  double memcpyTime = bench::BestOf(runs, [&] {
    for (int r = 0; r < kRounds; ++r) {
      std::memcpy(target.data(), bytes.data(), n);
      bench::Keep(target[r % n]);
    }
  });
  double writeTime = bench::BestOf(runs, [&] {
    for (int r = 0; r < kRounds; ++r) {
      S stream(kContext);
      record.Save(stream);
      S::Buffer out(stream.GetBuffer());
      bench::Keep(out[0]);
    }
  });
  double scanTime = bench::BestOf(runs, [&] {
    for (int r = 0; r < kRounds; ++r) {
      S stream(Copy(bytes), kContext);
      BenchRecord into;
      if (into.Load(stream, false) != 0) std::abort();
    }
  });
  double insertTime = bench::BestOf(runs, [&] {
    for (int r = 0; r < kRounds; ++r) {
      ada_MapString<QELSimCSetID> sets;
      ada_MapInt<QELSimDistributionID> fields;
      for (int i = 0; i < kEntries; ++i) {
        sets.insert(keys[i], setValues[i]);
        fields.insert((i * 7919) % kEntries, fieldValues[i]);
      }
      bench::Keep(sets);
      bench::Keep(fields);
    }
  });
  double loadTime = bench::BestOf(runs, [&] {
    for (int r = 0; r < kRounds; ++r) {
      S stream(Copy(bytes), kContext);
      BenchRecord into;
      if (into.Load(stream, true) != 0 || into.namedSets.count() != kEntries) std::abort();
    }
  });

  bench::Header("member stream, per record (baseline: memcpy of the same bytes)");
  bench::Row("memcpy (baseline)", memcpyTime, kRounds, memcpyTime);
  bench::Row("write record + GetBuffer", writeTime, kRounds, memcpyTime);
  bench::Row("copy in + read records, maps not built", scanTime, kRounds, memcpyTime);
  bench::Header("loading the maps (baseline: direct inserts of the same pairs)");
  bench::Row("insert 2 x 1,000 pairs (baseline)", insertTime, kRounds, insertTime);
  bench::Row("copy in + load record with its maps", loadTime, kRounds, insertTime);
  return 0;
}
