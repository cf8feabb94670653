// kt fmt / kt dtoa: decimal conversion of numbers given on the command
// line, through the library's own fpc context.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "commands.h"
#include "kt/errors.h"
#include "kt/memory.h"
#include "kt/messages.h"
#include "kt/numbers.h"

namespace kttool {
namespace {

int DropOutput(void*, const char*, int length) { return length; }

// The contexts a conversion needs: messages, errors, memory, fpc.
class Converter {
public:
  Converter() {
    int status = 0;
    kt_initialize_message_context(&status, &messages_, ktMalloc, ktRealloc);
    kt_initialize_error_context(&status, &errors_, &messages_, DropOutput, nullptr);
    kt_initialize_memory_context(&memory_, &errors_, ktMalloc, ktRealloc, ktFree);
    kt_initialize_fpc_context(&fpc_, &memory_);
  }
  ~Converter() {
    kt_clear_fpc_context(&fpc_);
    kt_clear_message_context(&messages_, ktFree);
  }
  Converter(const Converter&) = delete;
  Converter& operator=(const Converter&) = delete;

  // Parses all of `text`; false (after a message) when it is not wholly
  // one number.
  bool Parse(const char* command, const char* text, double* value) {
    char* end = nullptr;
    *value = kt_strtod(&fpc_, text, &end, nullptr);
    if (end != text && *end == '\0')
      return true;
    size_t at = static_cast<size_t>(end - text);
    if (end == text)
      Complain("%s: '%s' is not a number (no number at character 1)", command, text);
    else
      Complain("%s: '%s' is not a number (parsing stopped at character %zu, before '%s')",
               command, text, at + 1, end);
    return false;
  }

  kt_fpc_context* fpc() { return &fpc_; }

private:
  kt_message_context messages_;
  kt_error_context errors_;
  kt_mem_context memory_;
  kt_fpc_context fpc_;
};

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
  Converter converter;
  int status = 0;
  for (int i = 1; i < argc; ++i) {
    double x;
    if (!converter.Parse("fmt", argv[i], &x)) {
      status = 1;
      continue;
    }
    char text[32];
    kt_g_fmt(converter.fpc(), x, text, sizeof text);
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
                  "for each NUMBER: mode 0 shortest, 1 shortest within N digits, 2 N significant\n"
                  "digits, 3 N digits after the point.\n");
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
  Converter converter;
  int status = 0;
  std::string buffer(4096, '\0');
  for (int i = first; i < argc; ++i) {
    double x;
    if (!converter.Parse("dtoa", argv[i], &x)) {
      status = 1;
      continue;
    }
    int decpt = 0, sign = 0;
    char* out = kt_dtoa(converter.fpc(), x, &buffer[0], buffer.size(), mode, digits, &decpt,
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
