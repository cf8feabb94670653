// kt_strtod against glibc strtod on arbitrary text: decimal and
// hexadecimal numbers, "inf"/"infinity", "nan" and "nan(chars)", with
// space, signs and junk around them. Input: the text (up to its first NUL).
//
// Checked: the value bit for bit, or for a NaN its NaN-ness and sign (a
// payload reads as hexadecimal here, as a C integer constant in glibc); the
// end pointer; overflow and underflow to zero reported exactly when glibc
// reports ERANGE with an infinite or zero result; and the big-integer
// reference path agrees with the fast paths. The fuzzer runs in the C
// locale, so both sides take only "." as the decimal point.
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "internal/fpc_fastpaths.h"
#include "kt/contexts.h"
#include "kt/numbers.h"

namespace {

uint64_t Bits(double x) {
  uint64_t u;
  std::memcpy(&u, &x, sizeof u);
  return u;
}

void Fail(const std::string& text, const char* what) {
  std::fprintf(stderr, "strtod_fuzz: %s on \"%s\"\n", what, text.c_str());
  std::abort();
}

bool SameDouble(double a, double b) {
  if (std::isnan(a) || std::isnan(b))
    return std::isnan(a) && std::isnan(b) && std::signbit(a) == std::signbit(b);
  return Bits(a) == Bits(b);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string text(reinterpret_cast<const char*>(data), size);
  text = text.c_str();
  kt_fpc_context* fpc = ktGetFpcContext();

  char* end = nullptr;
  int status = -1;
  double got = kt_strtod(fpc, text.c_str(), &end, &status);
  char* peerEnd = nullptr;
  errno = 0;
  double want = std::strtod(text.c_str(), &peerEnd);
  bool rangeError = errno == ERANGE;

  if (!SameDouble(got, want)) Fail(text, "value differs from glibc");
  if (end != peerEnd) Fail(text, "end pointer differs from glibc");
  bool overflow = rangeError && std::isinf(want);
  bool underflow = rangeError && want == 0;
  if ((status == KT_STRTOD_OVERFLOW) != overflow) Fail(text, "overflow report differs");
  if ((status == KT_STRTOD_UNDERFLOW) != underflow) Fail(text, "underflow report differs");

  char* refEnd = nullptr;
  int refStatus = -1;
  double ref = kt::internal::strtod_reference(fpc, text.c_str(), &refEnd, &refStatus);
  if (!SameDouble(ref, got) || refEnd != end || refStatus != status)
    Fail(text, "fast paths differ from the big-integer reference");
  return 0;
}
