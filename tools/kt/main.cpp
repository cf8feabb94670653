// kt: command-line front end to libkt's own functions.
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "commands.h"

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
              "Options: --help, --version\n");
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

int main(int argc, char** argv) {
  using namespace kttool;
  if (argc < 2)
    return RunDemo(1, argv);
  const char* name = argv[1];
  if (std::strcmp(name, "--help") == 0 || std::strcmp(name, "-h") == 0 ||
      std::strcmp(name, "help") == 0) {
    PrintHelp();
    return 0;
  }
  if (std::strcmp(name, "--version") == 0) {
    std::printf("kt (libkt) %s\n", KT_VERSION_STRING);
    return 0;
  }
  const Command* command = FindCommand(name);
  if (command == nullptr) {
    Complain("unknown command '%s' (try 'kt --help')", name);
    return 2;
  }
  return command->run(argc - 1, argv + 1);
}
