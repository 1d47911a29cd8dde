// The journal's files under a test's control: the process dies at a chosen
// change to a file (cleanly, or in the middle of a write), or the machine
// "loses power" at a chosen sync point.
//
// A power loss is acted out as a disk would suffer it: every write and
// change of length made since a file's last sync is, independently, kept,
// lost, or torn (only some of its 512-byte sectors reach the disk), the
// files are left so, and the process is killed. What was synced stays.
// The choices come from a seed, so every run is repeatable.
#ifndef DDB_TESTS_RELIABILITY_CRASH_IO_H_
#define DDB_TESTS_RELIABILITY_CRASH_IO_H_

#include <cstdint>
#include <functional>

// Kills the process (SIGKILL) at the `change`-th change to a database or
// journal file from now (a write, a change of length or a freed range,
// counted from 1), after writing half of its bytes when `torn`; with
// `suffix`, only changes to the files whose names end so count, and with
// `after`, only those once a file whose name ends so has changed. 0 switches
// it off. Returns the number of changes counted since the last call.
long CrashAt(long change, bool torn, const char* suffix = nullptr, const char* after = nullptr);

// Loses power at the `sync`-th sync point from now (before that sync), or
// with `atChange`, at the `sync`-th change: the files keep what was synced
// and a random part of the rest (see above). Returns the number of sync
// points (or changes) counted since the last call.
long PowerLossAt(long sync, bool atChange, uint64_t seed);

// Runs `body` in a child process that then exits with 0. Returns the child's
// exit status, or -1 when it was killed (by a hook above or another signal).
int RunToEnd(const std::function<void()>& body);

#endif  // DDB_TESTS_RELIABILITY_CRASH_IO_H_
