// The Python module's checks before it calls the library (ddb_py_checks.h).
#include "python/ddb_py_checks.h"

#include <string>
#include <vector>

namespace ddb_py {
namespace {

constexpr uint32_t kLabel8 = 1u << 7, kLabel32 = 1u << 31;

// A mask as the numbering prepares it: label 8 drags in label 10 on
// request, then every label L drags in L + shift.
uint32_t Prepared(int32_t mask, int shift, bool addLabel10) {
  uint32_t m = static_cast<uint32_t>(mask);
  if (addLabel10) m |= (m & kLabel8) << 2;
  return m | (m << shift);
}

std::vector<Origin>& Noted() {
  static std::vector<Origin> noted;
  return noted;
}

// The last life in the chain of `life`: a sim's, or that of an object made
// by new that nothing stores yet.
const Life& Outermost(const Life& life) {
  const Life* last = &life;
  while (last->Next() != nullptr) last = last->Next();
  return *last;
}

}  // namespace

void CheckShift(long long shift) {
  if (shift < 0 || shift > 31) {
    throw py::value_error("shift: " + std::to_string(shift) + " is outside 0 .. 31");
  }
}

void CheckMaskArgument(const int32_t* masks, long long count, int shift, bool addLabel10) {
  for (long long node = 0; node < count; ++node) {
    if (masks[node] < 0) {
      throw py::value_error("masks: the mask of node " + std::to_string(node) + " is negative (" +
                            std::to_string(masks[node]) + "); labels are 1 .. 31");
    }
    if ((Prepared(masks[node], shift, addLabel10) & kLabel32) != 0) {
      throw py::value_error("masks: the mask of node " + std::to_string(node) + " (" +
                            std::to_string(masks[node]) + ") reaches label 32 with shift " +
                            std::to_string(shift) + "; labels are 1 .. 31");
    }
  }
}

void CheckStoredMasks(const QELSimDistributionID& id, const QELSimPersistentDrawerDesc& drawer,
                      int count, int shift, bool addLabel10) {
  // Read as the numbering reads them: what cannot be read stays 0, and the
  // numbering's own read reports it.
  std::vector<int32_t> masks(static_cast<size_t>(count), 0);
  {
    Messages quiet;
    QELSimTransfer transfer(id);
    transfer.SetRead();
    transfer.SetBufferPadding(false);
    transfer.SetDim(0, drawer.DimensionSets()[0]);
    transfer.CheckView();
    transfer.SetBuffer(0, masks.data(), masks.size() * sizeof(int32_t));
    transfer.ExecRead();
    transfer.RelinquishBuffers();
    quiet.Take();
  }
  for (int node = 0; node < count; ++node) {
    uint32_t m = Prepared(masks[node], shift, addLabel10);
    if ((m & kLabel32) != 0) {
      throw Error("NODAL DOF MASK WITH LABEL 32 SET.\nNODE / MASK: " + std::to_string(node) +
                  " / " + std::to_string(static_cast<int32_t>(m)));
    }
  }
}

void CheckText(const std::string& text, const char* what) {
  if (text.find('\0') != std::string::npos) {
    throw py::value_error(std::string(what) +
                          ": a text of the database cannot hold a NUL character");
  }
}

void NoteOrigin(const Life& life) {
  const Life& last = Outermost(life);
  DatabaseFacts facts;
  if (last.Facts(facts)) {
    Noted().push_back(Origin{facts.context, facts.file});
  } else if (auto* detached = dynamic_cast<const DetachedLife*>(&last)) {
    // Read from an object made by new: it came from wherever its values came from.
    auto& origins = const_cast<DetachedLife*>(detached)->origins();
    Noted().insert(Noted().end(), origins.begin(), origins.end());
  }
}

void ForgetOrigins() {
  Noted().clear();
}

std::vector<Origin> TakeOrigins() {
  std::vector<Origin> taken;
  taken.swap(Noted());
  return taken;
}

void CheckChange(const Life& target, const std::vector<Origin>& origins, const char* what) {
  const Life& last = Outermost(target);
  DatabaseFacts facts;
  if (!last.Facts(facts)) {
    if (auto* detached = dynamic_cast<const DetachedLife*>(&last)) {
      auto& kept = const_cast<DetachedLife*>(detached)->origins();
      kept.insert(kept.end(), origins.begin(), origins.end());
    }
    return;
  }
  if (facts.readOnly) {
    throw Error(std::string(what) + ": " + facts.file + " is open read-only; nothing was changed");
  }
  for (const Origin& origin : origins) {
    if (origin.context != facts.context) {
      throw Error(std::string(what) + ": an identifier of " + origin.file +
                  " cannot be stored in " + facts.file + "; nothing was changed");
    }
  }
}

}  // namespace ddb_py
