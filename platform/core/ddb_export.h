// Symbol visibility for the shared library.
//
// The library is built with hidden visibility; only what carries DDB_API is
// part of its binary interface. The same attribute serves when compiling the
// library and when a client includes the headers (ELF needs no import marker).
#ifndef DDB_PLATFORM_CORE_DDB_EXPORT_H_
#define DDB_PLATFORM_CORE_DDB_EXPORT_H_

#define DDB_API __attribute__((visibility("default")))
// Keeps one member of an exported class template out of the interface.
#define DDB_LOCAL __attribute__((visibility("hidden")))

#endif  // DDB_PLATFORM_CORE_DDB_EXPORT_H_
