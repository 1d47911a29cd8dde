// QELSimAssert: how the service stops the process when a caller breaks a
// precondition it cannot recover from (an element access out of range).
#ifndef DDB_PLATFORM_SERVICE_QELSIMASSERT_H_
#define DDB_PLATFORM_SERVICE_QELSIMASSERT_H_

#include "platform/core/ddb_export.h"

class DDB_API QELSimAssert {
 public:
  // Prints "**ERROR QELSimAssert: <condition> failed at <file>:<line>\n" on
  // aio_cerr, flushes it and aborts.
  [[noreturn]] static void ReportValidationFailure(const char* condition, const char* file,
                                                   int line);
};

#endif  // DDB_PLATFORM_SERVICE_QELSIMASSERT_H_
