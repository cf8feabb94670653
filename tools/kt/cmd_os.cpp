// kt os: what the library finds out about the machine and the process.
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "commands.h"
#include "kt/memory.h"
#include "kt/sysinfo.h"

namespace kttool {
namespace {

// The thread recommendation as a fresh process with ZENTRA_PROCESSOR_ENUM_MODE
// set to `mode` makes it: it is computed once per process, so each mode
// needs a process of its own (a forked child, whose cache starts empty as
// long as this process has not filled its own).
bool CountInChild(const char* mode, uint64_t* count) {
  int fds[2];
  if (pipe(fds) != 0) return false;
  std::fflush(nullptr);
  pid_t pid = fork();
  if (pid == 0) {
    close(fds[0]);
    setenv("ZENTRA_PROCESSOR_ENUM_MODE", mode, 1);
    uint64_t n = ktGetNumAllCores();
    _exit(write(fds[1], &n, sizeof n) == static_cast<ssize_t>(sizeof n) ? 0 : 1);
  }
  close(fds[1]);
  bool ok = pid > 0 && read(fds[0], count, sizeof *count) == static_cast<ssize_t>(sizeof *count);
  close(fds[0]);
  int status = 0;
  if (pid > 0)
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
  return ok;
}

}  // namespace

int RunOs(int argc, char** argv) {
  if (argc >= 2 && (std::strcmp(argv[1], "--help") == 0 || std::strcmp(argv[1], "-h") == 0)) {
    std::printf("Usage: kt os\nPrints the operating system, the distribution, the window system, "
                "the number of\nworker threads recommended with and without SMT siblings, and "
                "whether a\nmemory-diagnostic tool runs.\n");
    return 0;
  }
  if (argc > 1) {
    Complain("os: unexpected argument '%s' (try 'kt os --help')", argv[1]);
    return 2;
  }
  uint64_t withoutSmt = 0, withSmt = 0;
  if (!CountInChild("0", &withoutSmt) || !CountInChild("1", &withSmt)) {
    Complain("os: cannot start a process to count threads: %s", std::strerror(errno));
    return 1;
  }
  char* compat = ktGetOSCompat();
  std::printf("OS:                     %s\n", ktGetOS());
  std::printf("OS compatibility:       %s\n", compat != nullptr ? compat : "");
  std::printf("Window system:          %s\n", ktGetWinSys());
  std::printf("Threads without SMT:    %" PRIu64 "\n", withoutSmt);
  std::printf("Threads with SMT:       %" PRIu64 "\n", withSmt);
  std::printf("Memory-diagnostic tool: %s\n", ktIsMemoryDiagnosticToolRunning() ? "yes" : "no");
  ktFree(compat);
  return 0;
}

}  // namespace kttool
