#include "support/killed_writer.h"

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <time.h>

#include <cstdlib>

namespace {
int g_reportFd = -1;  // the child's end of the pipe

void WriteAll(int fd, const std::string& bytes) {
  size_t done = 0;
  while (done < bytes.size()) {
    ssize_t n = ::write(fd, bytes.data() + done, bytes.size() - done);
    if (n <= 0) _exit(3);
    done += static_cast<size_t>(n);
  }
}
}  // namespace

void WaitToBeKilled() {
  WriteAll(g_reportFd, "#done\n");
  for (;;) pause();
}

namespace {

// Forks a child that runs `write` with its reports going down a pipe; returns
// the child and the pipe's reading end.
pid_t StartWriter(const std::function<void(const ReportFunction&)>& write, int* reading) {
  int fds[2];
  if (pipe(fds) != 0) std::abort();
  pid_t child = fork();
  if (child == 0) {
    close(fds[0]);
    g_reportFd = fds[1];
    write([](const std::string& line) { WriteAll(g_reportFd, line + "\n"); });
    WaitToBeKilled();  // a writer that returned has closed its objects already
  }
  close(fds[1]);
  *reading = fds[0];
  return child;
}

// Hands every reported line to `take` until it returns false or the child is
// gone and all it wrote has been read.
void ReadReports(int fd, const std::function<bool(const std::string&)>& take) {
  std::string pending;
  char buffer[4096];
  for (;;) {
    ssize_t n = read(fd, buffer, sizeof buffer);
    if (n <= 0) return;
    pending.append(buffer, static_cast<size_t>(n));
    size_t end;
    while ((end = pending.find('\n')) != std::string::npos) {
      std::string line = pending.substr(0, end);
      pending.erase(0, end + 1);
      if (!take(line)) return;
    }
  }
}

void Finish(pid_t child, int fd) {
  kill(child, SIGKILL);
  int status = 0;
  waitpid(child, &status, 0);
  close(fd);
}

}  // namespace

std::vector<std::string> RunAndKill(const std::function<void(const ReportFunction&)>& write) {
  int fd = -1;
  pid_t child = StartWriter(write, &fd);
  std::vector<std::string> lines;
  ReadReports(fd, [&](const std::string& line) {
    if (line == "#done") return false;
    lines.push_back(line);
    return true;
  });
  Finish(child, fd);
  return lines;
}

int KillAfter(const std::function<void(const ReportFunction&)>& write, int reports,
              int delayMicros) {
  int fd = -1;
  pid_t child = StartWriter(write, &fd);
  int lines = 0;
  bool killed = false;
  ReadReports(fd, [&](const std::string& line) {
    if (line != "#done") ++lines;
    if (!killed && (lines >= reports || line == "#done")) {
      struct timespec delay = {0, 1000L * delayMicros};
      nanosleep(&delay, nullptr);
      kill(child, SIGKILL);
      killed = true;
    }
    return true;  // what is already on its way still counts
  });
  Finish(child, fd);
  return lines;
}

int RunToEnd(const std::function<void()>& body) {
  pid_t child = fork();
  if (child == 0) {
    body();
    _exit(0);
  }
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}
