// Test helper: collects what the library prints on aio_cerr.
//
// While a CaptureErr lives, aio_cerr writes into it instead of where it
// wrote before; Text() flushes the stream first, so it holds every byte
// printed so far. It is the library's own scoped capture (aio_Capture),
// under the name the tests have always used.
#ifndef DDB_TESTS_SUPPORT_CAPTURE_H_
#define DDB_TESTS_SUPPORT_CAPTURE_H_

#include "platform/core/aio_capture.h"

typedef aio_Capture CaptureErr;

#endif  // DDB_TESTS_SUPPORT_CAPTURE_H_
