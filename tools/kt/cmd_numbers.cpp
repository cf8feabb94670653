// kt fmt / kt dtoa: decimal conversion of numbers given on the command
// line, through the fpc context of the library's basic contexts.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "commands.h"
#include "kt/contexts.h"
#include "kt/numbers.h"

namespace kttool {
namespace {

// Parses all of `text` with `fpc`; false (after a message naming the text
// and where parsing stopped) when it is not wholly one number.
bool ParseNumber(kt_fpc_context* fpc, const char* command, const char* text, double* value) {
  char* end = nullptr;
  *value = kt_strtod(fpc, text, &end, nullptr);
  if (end != text && *end == '\0')
    return true;
  size_t at = static_cast<size_t>(end - text);
  if (end == text)
    Complain("%s: '%s' is not a number (no number at character 1)", command, text);
  else
    Complain("%s: '%s' is not a number (parsing stopped at character %zu, before '%s')", command,
             text, at + 1, end);
  return false;
}

// Reads an integer option value; false when `text` is not one.
bool ParseInt(const char* text, int* out) {
  char* end = nullptr;
  errno = 0;
  long v = std::strtol(text, &end, 10);
  if (end == text || *end != '\0' || errno != 0 || v < -100000 || v > 100000)
    return false;
  *out = static_cast<int>(v);
  return true;
}

}  // namespace

int RunFmt(int argc, char** argv) {
  if (argc >= 2 && (std::strcmp(argv[1], "--help") == 0 || std::strcmp(argv[1], "-h") == 0)) {
    std::printf("Usage: kt fmt NUMBER...\nReads each NUMBER as a double and prints the shortest "
                "text that reads back to it (1.0, .001, 1e+07, Inf, NaN).\n");
    return 0;
  }
  if (argc < 2) {
    Complain("fmt: no NUMBER given (try 'kt fmt --help')");
    return 2;
  }
  kt_fpc_context* fpc = ktGetFpcContext();
  int status = 0;
  for (int i = 1; i < argc; ++i) {
    double x;
    if (!ParseNumber(fpc, "fmt", argv[i], &x)) {
      status = 1;
      continue;
    }
    char text[32];
    kt_g_fmt(fpc, x, text, sizeof text);
    std::printf("%s\n", text);
  }
  return status;
}

int RunDtoa(int argc, char** argv) {
  int mode = 0;
  int digits = 0;
  int first = 1;
  for (; first < argc; ++first) {
    const char* arg = argv[first];
    if (std::strcmp(arg, "--help") == 0 || std::strcmp(arg, "-h") == 0) {
      std::printf("Usage: kt dtoa [--mode M] [--digits N] NUMBER...\n"
                  "Prints the decimal digits, decimal point position and sign that kt_dtoa gives\n"
                  "for each NUMBER: mode 0 shortest, 1 shortest never relying on ties (N ignored),\n"
                  "2 N significant digits, 3 N digits after the point.\n");
      return 0;
    }
    bool isMode = std::strcmp(arg, "--mode") == 0;
    bool isDigits = std::strcmp(arg, "--digits") == 0;
    if (!isMode && !isDigits)
      break;
    if (first + 1 >= argc || !ParseInt(argv[first + 1], isMode ? &mode : &digits)) {
      Complain("dtoa: %s needs an integer value", arg);
      return 2;
    }
    ++first;
  }
  if (mode < 0 || mode > 3) {
    Complain("dtoa: --mode must be 0, 1, 2 or 3");
    return 2;
  }
  if (first >= argc) {
    Complain("dtoa: no NUMBER given (try 'kt dtoa --help')");
    return 2;
  }
  kt_fpc_context* fpc = ktGetFpcContext();
  int status = 0;
  std::string buffer(4096, '\0');
  for (int i = first; i < argc; ++i) {
    double x;
    if (!ParseNumber(fpc, "dtoa", argv[i], &x)) {
      status = 1;
      continue;
    }
    int decpt = 0, sign = 0;
    char* out = kt_dtoa(fpc, x, &buffer[0], buffer.size(), mode, digits, &decpt,
                        &sign, nullptr);
    if (out == nullptr) {
      Complain("dtoa: '%s': too many digits", argv[i]);
      status = 1;
      continue;
    }
    std::printf("digits=%s decpt=%d sign=%d\n", out, decpt, sign);
  }
  return status;
}

}  // namespace kttool
