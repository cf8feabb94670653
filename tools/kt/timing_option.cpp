// kt --timing[=perf] COMMAND ...: the library's start-up timing log around
// any command. The three stages before the log opens are the process's
// start-up up to main (from /proc), main up to the option, and opening the
// log; then "parse arguments" and "run COMMAND" nested in "kt COMMAND".
#include "timing_option.h"

#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>

#include "kt/files.h"
#include "kt/timing.h"

namespace kttool {
namespace {

using Clock = std::chrono::steady_clock;

// 0 for the plain layout, 1 for the performance layout, -1 for a mode
// that is neither.
int TimingMode(const char* option) {
  const char* mode = option + std::strlen("--timing");
  if (*mode == '\0' || std::strcmp(mode, "=plain") == 0)
    return 0;
  return std::strcmp(mode, "=perf") == 0 ? 1 : -1;
}

// When the process started, on the steady clock: its age by the boot-time
// clock (field 22 of /proc/self/stat, in clock ticks) taken back from now.
// Never later than `mainStart`, which also stands in when /proc is mute.
Clock::time_point ProcessStart(Clock::time_point mainStart) {
  std::ifstream file("/proc/self/stat");
  std::string text;
  std::getline(file, text);
  size_t close = text.rfind(')');  // the command name may hold anything
  if (close == std::string::npos)
    return mainStart;
  std::istringstream fields(text.substr(close + 1));
  std::string field;
  for (int i = 3; i <= 22; ++i)  // fields 3 (state) to 22 (starttime)
    if (!(fields >> field))
      return mainStart;
  timespec boot;
  clock_gettime(CLOCK_BOOTTIME, &boot);
  double age = double(boot.tv_sec) + double(boot.tv_nsec) * 1e-9 -
               std::stod(field) / double(sysconf(_SC_CLK_TCK));
  auto start = Clock::now() - std::chrono::duration_cast<Clock::duration>(
                                  std::chrono::duration<double>(age));
  return start < mainStart ? start : mainStart;
}

// The command line with its stages bracketed; returns its status.
int RunStages(int argc, char** argv) {
  ktTicImpl();
  ktTicImpl();
  Invocation invocation = ParseCommandLine(argc, argv);
  ktTocImpl("parse arguments");
  int status = invocation.status;
  std::string name = invocation.name;
  if (invocation.run != nullptr) {
    ktTicImpl();
    status = Run(invocation);
    ktTocImpl(("run " + name).c_str());
  }
  ktTocImpl(("kt " + name).c_str());
  return status;
}

}  // namespace

bool IsTimingOption(const char* arg) {
  return std::strncmp(arg, "--timing", 8) == 0 && (arg[8] == '\0' || arg[8] == '=');
}

int RunTimed(const char* option, int argc, char** argv, Clock::time_point mainStart) {
  int mode = TimingMode(option);
  if (mode < 0) {
    Complain("unknown timing mode in '%s' (use --timing or --timing=perf)", option);
    return 2;
  }
  Clock::time_point initStart = Clock::now();
  Clock::time_point scriptStart = ProcessStart(mainStart);
  if (!ktOpenTimingLog(scriptStart, mainStart, initStart, Clock::now(), mode == 1)) {
    int error = errno;
    Complain("cannot open the timing log in %s: %s", ktGetLogDirectory(), std::strerror(error));
    return Run(ParseCommandLine(argc, argv));
  }
  int status = RunStages(argc, argv);
  std::string perfPath = ktGetPerfLogInfo();
  std::string timingPath;
  ktCloseTimingLogImpl(&timingPath);
  std::fflush(stdout);
  std::fprintf(stderr, "kt: timing log: %s\n", timingPath.c_str());
  if (!perfPath.empty())
    std::fprintf(stderr, "kt: perf log: %s\n", perfPath.c_str());
  return status;
}

}  // namespace kttool
