#include "support/capture.h"

#include "platform/core/aio_ostream.h"

CaptureErr::CaptureErr() {
  aio_cerr.SetSink(&CaptureErr::Sink, this);
}

CaptureErr::~CaptureErr() {
  aio_cerr.SetSink(nullptr, nullptr);
}

const std::string& CaptureErr::Text() {
  aio_cerr.flush();
  return m_text;
}

std::string CaptureErr::Take() {
  aio_cerr.flush();
  std::string t;
  t.swap(m_text);
  return t;
}

void CaptureErr::Sink(void* self, const char* bytes, int count) {
  static_cast<CaptureErr*>(self)->m_text.append(bytes, static_cast<size_t>(count));
}
