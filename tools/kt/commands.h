// Subcommands of the kt tool. Each family's commands live in one
// cmd_<family>.cpp; main.cpp holds the table that names them.
#ifndef KT_TOOL_COMMANDS_H
#define KT_TOOL_COMMANDS_H

namespace kttool {

// A subcommand gets its own arguments (argv[0] is the subcommand name) and
// returns the process exit status.
using CommandFunction = int (*)(int argc, char** argv);

struct Command {
  const char* name;
  const char* usage;    // arguments, shown after the name
  const char* summary;  // one line for `kt --help`
  CommandFunction run;
};

// Checksums (cmd_checksum.cpp).
int RunCrc32(int argc, char** argv);
int RunMd5(int argc, char** argv);

// Decimal conversion (cmd_numbers.cpp).
int RunFmt(int argc, char** argv);
int RunDtoa(int argc, char** argv);

// Encodings (cmd_conv.cpp).
int RunConv(int argc, char** argv);
int RunEncodings(int argc, char** argv);

// Line and column of byte offsets (cmd_linecol.cpp).
int RunLinecol(int argc, char** argv);

// The profiler on a built-in program (cmd_profile.cpp).
int RunProfile(int argc, char** argv);

// OS and processor information (cmd_os.cpp).
int RunOs(int argc, char** argv);

// Library loading (cmd_diagnose.cpp).
int RunDiagnose(int argc, char** argv);

// The guided tour run by `kt` with no arguments (cmd_demo.cpp).
int RunDemo(int argc, char** argv);

// Prints "kt: " and the formatted message to standard error.
void Complain(const char* format, ...) __attribute__((format(printf, 1, 2)));

}  // namespace kttool

#endif  // KT_TOOL_COMMANDS_H
