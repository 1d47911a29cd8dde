// Test helper: runs a writer in a child process and kills it (SIGKILL)
// after it has reported what it wrote, before it can close anything.
//
// The child calls `write(report)`; each report(...) line goes to the parent
// at once. The writer ends by calling WaitToBeKilled() while its files and
// objects are still open (returning from `write` would close them). The
// parent collects the lines, kills the child and returns them. Whatever the
// reports name must then be found in the files on disk.
#ifndef DDB_TESTS_SUPPORT_KILLED_WRITER_H_
#define DDB_TESTS_SUPPORT_KILLED_WRITER_H_

#include <functional>
#include <string>
#include <vector>

typedef std::function<void(const std::string& line)> ReportFunction;

// Tells the parent the writer is done, then sleeps until killed.
[[noreturn]] void WaitToBeKilled();

std::vector<std::string> RunAndKill(const std::function<void(const ReportFunction&)>& write);

// Runs `write` in a child and kills it `delayMicros` after its `reports`-th
// report line arrived (or when it is done, or at once when it died). Returns
// how many lines it reported in all, those already on their way included.
int KillAfter(const std::function<void(const ReportFunction&)>& write, int reports,
              int delayMicros);

// Runs `body` in a child process that then exits with 0. Returns the child's
// exit status, or -1 when it was killed (by SIGKILL or another signal).
int RunToEnd(const std::function<void()>& body);

#endif  // DDB_TESTS_SUPPORT_KILLED_WRITER_H_
