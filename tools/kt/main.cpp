// kt: command-line front end to libkt's own functions.
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "commands.h"
#include "timing_option.h"

namespace kttool {
namespace {

const Command kCommands[] = {
    {"demo", "", "a host's start-up and checksums on built-in inputs (the default)", RunDemo},
    {"crc32", "[FILE...]", "print the CRC-32 of each FILE (or standard input)", RunCrc32},
    {"md5", "[FILE...]", "print the MD5 digest of each FILE (or standard input)", RunMd5},
    {"fmt", "NUMBER...", "print each NUMBER in the shortest text that reads back to it", RunFmt},
    {"dtoa", "[--mode M] [--digits N] NUMBER...", "print the decimal digits of each NUMBER", RunDtoa},
    {"conv", "-f FROM -t TO [-c] [FILE...]", "convert text between encodings, as iconv does", RunConv},
    {"encodings", "[NAME...]", "canonical and standard names of encodings (all when none)",
     RunEncodings},
    {"linecol", "[--link] FILE OFFSET...", "print FILE:LINE:COLUMN of each byte OFFSET", RunLinecol},
    {"profile", "[--cpu] [N]", "profile a built-in recursive program and print the profile", RunProfile},
    {"os", "", "the OS, the thread recommendation and memory-diagnostic tools", RunOs},
    {"diagnose", "LIB...", "load each LIB; say why one does not (chains, symbols)", RunDiagnose},
};

void PrintHelp() {
  std::printf("Usage: kt [COMMAND [ARGS...]]\n"
              "Command-line front end to the libkt base library.\n\n"
              "Commands:\n");
  for (const Command& c : kCommands) {
    char head[64];
    std::snprintf(head, sizeof head, "%s %s", c.name, c.usage);
    if (std::strlen(head) > 22)
      std::printf("  %s\n  %-22s %s\n", head, "", c.summary);
    else
      std::printf("  %-22s %s\n", head, c.summary);
  }
  std::printf("\nWith no command, kt runs `demo`. A FILE of - means standard input.\n"
              "Options: --help, --version\n"
              "  --timing[=perf] COMMAND [ARGS...]\n"
              "                         run COMMAND with its stages timed into timing_log.PID\n"
              "                         (and perf_log.PID) in $HOME or the temporary directory\n");
}

const Command* FindCommand(const char* name) {
  for (const Command& c : kCommands)
    if (std::strcmp(c.name, name) == 0)
      return &c;
  return nullptr;
}

}  // namespace

void Complain(const char* format, ...) {
  std::fflush(stdout);
  std::fputs("kt: ", stderr);
  va_list args;
  va_start(args, format);
  std::vfprintf(stderr, format, args);
  va_end(args);
  std::fputc('\n', stderr);
}

}  // namespace kttool

namespace kttool {

Invocation ParseCommandLine(int argc, char** argv) {
  if (argc < 2)
    return {RunDemo, "demo", 1, argv, 0};
  const char* name = argv[1];
  if (std::strcmp(name, "--help") == 0 || std::strcmp(name, "-h") == 0 ||
      std::strcmp(name, "help") == 0) {
    PrintHelp();
    return {nullptr, name, 0, nullptr, 0};
  }
  if (std::strcmp(name, "--version") == 0) {
    std::printf("kt (libkt) %s\n", KT_VERSION_STRING);
    return {nullptr, name, 0, nullptr, 0};
  }
  const Command* command = FindCommand(name);
  if (command == nullptr) {
    Complain("unknown command '%s' (try 'kt --help')", name);
    return {nullptr, name, 0, nullptr, 2};
  }
  return {command->run, command->name, argc - 1, argv + 1, 0};
}

int Run(const Invocation& invocation) {
  if (invocation.run == nullptr)
    return invocation.status;
  return invocation.run(invocation.argc, invocation.argv);
}

}  // namespace kttool

int main(int argc, char** argv) {
  using namespace kttool;
  std::chrono::steady_clock::time_point mainStart = std::chrono::steady_clock::now();
  if (argc >= 2 && IsTimingOption(argv[1]))
    return RunTimed(argv[1], argc - 1, argv + 1, mainStart);
  return Run(ParseCommandLine(argc, argv));
}
