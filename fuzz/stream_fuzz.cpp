// libFuzzer target: arbitrary bytes into a reading gbb_MemoryStream and the
// member-loading loop over a record with every kind of member.
//
// Beyond "no crash, hang, leak or sanitizer report" it checks three
// promises: the status is one of the stream's four; whatever a load produced
// saves cleanly and loads again without error; and, leaving the int-keyed
// map aside, saving is a fixed point (load(save(m)) saves the same bytes).
// That map orders keys by their wrapping difference, which is no total order
// for keys 2^31 or more apart, so its walk may depend on insertion order.
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "persistence/gbb_MemoryStream.h"
#include "support/sample_members.h"

namespace {

typedef gbb_MemoryStream::Buffer Buffer;

const QELSimContextID kContext(3);

Buffer Copy(const unsigned char* bytes, size_t size) {
  Buffer buffer;
  buffer.appendRange(bytes, static_cast<int>(size));
  return Buffer(static_cast<Buffer::gbb_AutoArrayMoveSrc>(buffer));
}

Buffer Saved(const SampleMembers& members) {
  gbb_MemoryStream stream(kContext);
  members.Save(stream);
  if (stream.Status() != gbb_MemoryStream::ErrorNone) __builtin_trap();
  return stream.GetBuffer();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > (1u << 20)) return 0;
  gbb_MemoryStream stream(Copy(data, size), kContext);
  SampleMembers loaded;
  int status = loaded.Load(stream);
  if (status < gbb_MemoryStream::ErrorNone || status > gbb_MemoryStream::ErrorForeignID) {
    __builtin_trap();
  }

  Buffer first = Saved(loaded);
  gbb_MemoryStream again(Copy(first.data(), static_cast<size_t>(first.count())), kContext);
  SampleMembers reloaded;
  if (reloaded.Load(again) != gbb_MemoryStream::ErrorNone) __builtin_trap();

  loaded.fields.clear();
  reloaded.fields.clear();
  first = Saved(loaded);
  Buffer second = Saved(reloaded);
  if (second.count() != first.count() ||
      std::memcmp(first.data(), second.data(), static_cast<size_t>(first.count())) != 0) {
    __builtin_trap();
  }
  return 0;
}
