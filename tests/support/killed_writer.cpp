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

std::vector<std::string> RunAndKill(const std::function<void(const ReportFunction&)>& write) {
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
  std::vector<std::string> lines;
  std::string pending;
  char buffer[256];
  bool done = false;
  while (!done) {
    ssize_t n = read(fds[0], buffer, sizeof buffer);
    if (n <= 0) break;  // the child died early: return what it reported
    pending.append(buffer, static_cast<size_t>(n));
    size_t end;
    while ((end = pending.find('\n')) != std::string::npos) {
      std::string line = pending.substr(0, end);
      pending.erase(0, end + 1);
      if (line == "#done") {
        done = true;
      } else {
        lines.push_back(line);
      }
    }
  }
  kill(child, SIGKILL);
  int status = 0;
  waitpid(child, &status, 0);
  close(fds[0]);
  return lines;
}

int KillAfter(const std::function<void(const ReportFunction&)>& write, int reports,
              int delayMicros) {
  int fds[2];
  if (pipe(fds) != 0) std::abort();
  pid_t child = fork();
  if (child == 0) {
    close(fds[0]);
    g_reportFd = fds[1];
    write([](const std::string& line) { WriteAll(g_reportFd, line + "\n"); });
    WaitToBeKilled();
  }
  close(fds[1]);
  int lines = 0;
  bool killed = false;
  std::string pending;
  char buffer[4096];
  for (;;) {
    ssize_t n = read(fds[0], buffer, sizeof buffer);
    if (n <= 0) break;  // the child is gone and everything it wrote is read
    pending.append(buffer, static_cast<size_t>(n));
    size_t end;
    while ((end = pending.find('\n')) != std::string::npos) {
      if (pending.compare(0, end, "#done") != 0) ++lines;
      pending.erase(0, end + 1);
    }
    if (!killed && lines >= reports) {
      struct timespec delay = {0, 1000L * delayMicros};
      nanosleep(&delay, nullptr);
      kill(child, SIGKILL);
      killed = true;
    }
  }
  if (!killed) kill(child, SIGKILL);
  int status = 0;
  waitpid(child, &status, 0);
  close(fds[0]);
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
