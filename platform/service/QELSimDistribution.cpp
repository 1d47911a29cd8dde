#include "platform/service/QELSimDistribution.h"

#include <cstdio>

#include "platform/service/QELSimStorage.h"

namespace {
const int kItemBytes = 4;

// Distributions here have one drawer of one dimension: index 0 is the only one.
bool OnlyOne(const char* operation, const char* what, int index) {
  if (index == 0) return true;
  QELSimError(operation).print(what).put(' ').print_int(index);
  aio_cerr.print(" out of range: distributions have one\n");
  return false;
}

aio_ostream& PrintSize(size_t n) {
  char text[24];
  int length = std::snprintf(text, sizeof text, "%zu", n);
  return aio_cerr << cow_String(text, length);
}
}  // namespace

QELSimDistributionID QELSimDistributionRef::CreateInt32(QELSimCSetID dimensionSet,
                                                        const int* values) {
  const char* operation = "QELSimDistributionRef::CreateInt32";
  QELSimStorage* storage = nullptr;
  hdf_Dataset members;
  int count = 0;
  if (!QELSimLookupSet(dimensionSet, true, operation, &storage, &members, &count)) {
    return QELSimDistributionID();
  }
  if (count > 0 && values == nullptr) {
    QELSimError(operation).print("no values given\n");
    return QELSimDistributionID();
  }
  hdf_WriteBatch batch(storage->File());
  uint32_t minor = storage->NextDistribution();
  hsize_t n = static_cast<hsize_t>(count);
  hdf_Dataspace space({n});
  hdf_Dataset d =
      storage->Distributions().DatasetCreate(QELSimMinorName(minor), hdf_Datatype::NATIVE_INT(),
                                             space, hdf_PropListDatasetCreation::Default());
  if (!d.IsValid()) return QELSimDistributionID();
  storage->DistributionAdded();  // the name is taken, whatever follows
  uint32_t set[2] = {dimensionSet.CollectionMinor(), dimensionSet.CSetMinor()};
  if (!d.AttributeCreate("dimensionSet", hdf_Datatype::NATIVE_UINT(), hdf_Dataspace({2}))
           .Write(hdf_Datatype::NATIVE_UINT(), set) ||
      (n > 0 && !d.Write(hdf_Datatype::NATIVE_INT(), space, space, values))) {
    return QELSimDistributionID();
  }
  return QELSimDistributionID(dimensionSet.ContextNumber(), minor);
}

QELSimDistributionRef::QELSimDistributionRef(QELSimDistributionID distribution)
    : m_id(distribution), m_state(0), m_count(0) {}

bool QELSimDistributionRef::Resolve(const char* operation) const {
  if (m_state == 0) {
    QELSimStoredDistribution stored;
    m_state = QELSimLookupDistribution(m_id, operation, &stored) ? 1 : -1;
    m_set = stored.dimensionSet;
    m_count = stored.count;
  }
  return m_state > 0;
}

int QELSimDistributionRef::NumDrawers() const {
  return Resolve("QELSimDistributionRef::NumDrawers") ? 1 : 0;
}

void QELSimDistributionRef::QueryDrawers(QELSimArray<QELSimPersistentDrawerDesc>& out) const {
  out.Clear();
  if (Resolve("QELSimDistributionRef::QueryDrawers")) {
    out.Append(QELSimPersistentDrawerDesc(m_set, m_count));
  }
}

QELSimTransfer::QELSimTransfer(QELSimDistributionID distribution)
    : m_id(distribution),
      m_reported(kNone),
      m_read(false),
      m_padding(false),
      m_dimensionGiven(false),
      m_buffer(nullptr),
      m_bytes(0) {}

void QELSimTransfer::SetRead() {
  m_read = true;
  Rearm(kNotRead);
}

void QELSimTransfer::SetBufferPadding(bool padding) {
  m_padding = padding;
  Rearm(kPadded);
}

void QELSimTransfer::SetDim(int dimension, QELSimCSetID set) {
  if (!OnlyOne("QELSimTransfer::SetDim", "dimension", dimension)) return;
  m_view = set;
  m_dimensionGiven = true;
  Rearm(kNoView);
  Rearm(kWrongView);
}

bool QELSimTransfer::CheckView() {
  QELSimStoredDistribution stored;
  return Check("QELSimTransfer::CheckView", false, &stored);
}

void QELSimTransfer::SetBuffer(int drawer, void* buffer, size_t bytes) {
  if (!OnlyOne("QELSimTransfer::SetBuffer", "drawer", drawer)) return;
  m_buffer = buffer;
  m_bytes = bytes;
  Rearm(kSmallBuffer);
}

bool QELSimTransfer::ExecRead() {
  QELSimStoredDistribution stored;
  if (!Check("QELSimTransfer::ExecRead", true, &stored)) return false;
  if (stored.count == 0) return true;
  // The whole dataset: its own space (everything selected) serves both sides.
  return stored.values.Read(hdf_Datatype::NATIVE_INT(), stored.space, stored.space, m_buffer);
}

void QELSimTransfer::RelinquishBuffers() {
  m_buffer = nullptr;
  m_bytes = 0;
}

void QELSimTransfer::Rearm(Problem changed) {
  if (m_reported == changed) m_reported = kNone;
}

bool QELSimTransfer::Check(const char* operation, bool needBuffer,
                           QELSimStoredDistribution* stored) {
  // A problem already reported (CheckView, then ExecRead) is not repeated
  // until the call it is about is made again (Rearm).
  Problem problem = Diagnose(operation, needBuffer, stored);
  if (problem != kNone && problem != m_reported) Report(operation, problem, *stored);
  m_reported = problem;
  return problem == kNone;
}

QELSimTransfer::Problem QELSimTransfer::Diagnose(const char* operation, bool needBuffer,
                                                 QELSimStoredDistribution* stored) {
  if (m_reported == kMissing) return kMissing;  // the identifier will not change
  if (!QELSimLookupDistribution(m_id, operation, stored)) return kMissing;
  if (!m_read) return kNotRead;
  if (m_padding) return kPadded;
  if (!m_dimensionGiven) return kNoView;
  if (m_view != stored->dimensionSet) return kWrongView;
  size_t needed = static_cast<size_t>(stored->count) * kItemBytes;
  if (needBuffer && needed > 0 && (m_buffer == nullptr || m_bytes < needed)) return kSmallBuffer;
  return kNone;
}

void QELSimTransfer::Report(const char* operation, Problem problem,
                            const QELSimStoredDistribution& stored) const {
  if (problem == kMissing) return;  // the lookup has said so
  QELSimError(operation);
  switch (problem) {
    case kNotRead:
      aio_cerr.print("SetRead was not called\n");
      break;
    case kPadded:
      aio_cerr.print("padded buffers are not supported\n");
      break;
    case kNoView:
      aio_cerr.print("no set given for dimension 0\n");
      break;
    case kWrongView:
      aio_cerr.print("set ");
      QELSimPrintMinor(m_view.CSetMinor()).print(" of collection ");
      QELSimPrintMinor(m_view.CollectionMinor()).print(" in context ");
      aio_cerr.print_int(m_view.ContextNumber())
          .print(" is not the dimension set of distribution ");
      QELSimPrintMinor(m_id.DistributionMinor()).put('\n');
      break;
    default:
      aio_cerr.print("buffer of ");
      PrintSize(m_buffer == nullptr ? 0 : m_bytes).print(" bytes cannot hold ");
      aio_cerr.print_int(stored.count).print(" values of 4 bytes\n");
      break;
  }
}
