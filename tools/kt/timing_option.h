// The command line as main.cpp parses it, and the global option
// `--timing[=perf]` (timing_option.cpp) that runs any command with its
// stages timed into the library's start-up timing log.
#ifndef KT_TOOL_TIMING_OPTION_H
#define KT_TOOL_TIMING_OPTION_H

#include <chrono>

#include "commands.h"

namespace kttool {

// What a command line asks for: a command with its own arguments (argv[0]
// its name), or nothing more to run (help, version, an unknown command),
// with the exit status to end with.
struct Invocation {
  CommandFunction run;  // null when nothing is left to run
  const char* name;     // the command, or the option that was handled
  int argc;
  char** argv;
  int status;  // when run is null
};

// Parses argv (argv[0] the program) into an invocation, printing help,
// the version or the complaint about an unknown command on the way
// (main.cpp).
Invocation ParseCommandLine(int argc, char** argv);

// Runs the invocation; returns its exit status (main.cpp).
int Run(const Invocation& invocation);

// Whether `arg` is the timing option: "--timing" or "--timing=MODE".
bool IsTimingOption(const char* arg);

// `kt --timing[=perf] COMMAND ARGS...`: opens the timing log (the perf log
// too with =perf) in the log directory, runs the command line argv
// (argv[0] the option) with the stages "parse arguments" and
// "run COMMAND" nested in "kt COMMAND", closes the log and prints the
// paths of the files on standard error. Returns the command's status; 2
// for an unknown MODE. When the log cannot be opened the command runs
// untimed after a complaint.
int RunTimed(const char* option, int argc, char** argv,
             std::chrono::steady_clock::time_point mainStart);

}  // namespace kttool

#endif  // KT_TOOL_TIMING_OPTION_H
