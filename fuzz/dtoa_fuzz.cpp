// kt_dtoa in every mode, and kt_g_fmt, on fuzzed doubles. Input: 8 bytes of
// double bits, then mode, ndigits (2 bytes) and buffer size (2 bytes).
//
// Checked: with a buffer of exactly the fuzzed size (so ASan sees any
// access outside it), the result is null exactly when the final digits and
// their NUL do not fit, and otherwise the digits of a roomy buffer; mode 0
// is the shortest std::to_chars form, the big-integer reference agrees, and
// modes 0 and 1 read back to the double; modes 2 and 3 are printf's %.*e
// and %.*f (correctly rounded) with trailing zeros dropped; modes 4 and 5
// give mode 0's digits whenever the mode 2/3 digits read back, else one of
// the two; kt_g_fmt's text (at most 25 characters) reads back through both
// parsers, and a small buffer holds a prefix of the same text.
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "internal/fpc_fastpaths.h"
#include "kt/contexts.h"
#include "kt/numbers.h"

namespace {

struct Digits {
  std::string text;
  int decpt = 0;
  bool operator==(const Digits& o) const { return text == o.text && decpt == o.decpt; }
};

void Fail(double x, int mode, int ndigits, const char* what) {
  std::fprintf(stderr, "dtoa_fuzz: %s (%a, mode %d, ndigits %d)\n", what, x, mode, ndigits);
  std::abort();
}

Digits Dtoa(double x, int mode, int ndigits, bool reference = false) {
  static char buf[1200];
  Digits d;
  char* end = nullptr;
  auto dtoa = reference ? kt::internal::dtoa_reference : kt_dtoa;
  dtoa(ktGetFpcContext(), x, buf, sizeof buf, mode, ndigits, &d.decpt, nullptr, &end);
  d.text.assign(buf, end);
  return d;
}

// Digits and decimal point of printf text ("1.2500e+03" or "0012.340"),
// leading and trailing zeros dropped; all zeros give "" at -places.
Digits FromPrintf(const char* text, int places) {
  Digits d;
  const char* p = text;
  int before = 0;
  for (; *p != '\0' && *p != 'e'; p++) {
    if (*p == '.') continue;
    if (d.text.empty() && *p == '0') { before--; continue; }
    d.text += *p;
  }
  const char* point = std::strchr(text, '.');
  d.decpt = (point ? static_cast<int>(point - text) : static_cast<int>(p - text)) + before;
  if (*p == 'e') d.decpt += std::atoi(p + 1);
  while (!d.text.empty() && d.text.back() == '0') d.text.pop_back();
  if (d.text.empty()) d.decpt = -places;
  return d;
}

bool ReadsBack(const Digits& d, double x) {
  std::string text = "." + d.text + "e" + std::to_string(d.decpt);
  return std::strtod(text.c_str(), nullptr) == x &&
         kt_strtod(ktGetFpcContext(), text.c_str(), nullptr, nullptr) == x;
}

void CheckDigits(double x, int mode, int ndigits, const Digits& got) {
  static char text[2000];
  if (mode == 0) {
    *std::to_chars(text, text + 63, x, std::chars_format::scientific).ptr = '\0';
    if (!(got == FromPrintf(text, 0))) Fail(x, mode, ndigits, "mode 0 is not the shortest form");
    if (!(got == Dtoa(x, 0, 0, true))) Fail(x, mode, ndigits, "fast path differs from reference");
  }
  if (mode <= 1 && !ReadsBack(got, x)) Fail(x, mode, ndigits, "digits do not read back");
  // printf's %.*e and %.*f are correctly rounded, where they apply.
  if (mode == 2 && ndigits <= 800) {
    std::snprintf(text, sizeof text, "%.*e", (ndigits > 0 ? ndigits : 1) - 1, x);
    if (!(got == FromPrintf(text, 0))) Fail(x, mode, ndigits, "differs from printf %e");
  }
  if (mode == 3 && ndigits >= 0 && ndigits <= 1100 && x <= 1e300) {
    std::snprintf(text, sizeof text, "%.*f", ndigits, x);
    if (!(got == FromPrintf(text, ndigits))) Fail(x, mode, ndigits, "differs from printf %f");
  }
  if (mode == 4 || mode == 5) {
    Digits fixed = Dtoa(x, mode - 2, ndigits), shortest = Dtoa(x, 0, 0);
    if (ReadsBack(fixed, x) ? !(got == shortest) : !(got == shortest || got == fixed))
      Fail(x, mode, ndigits, "neither mode 0 nor the fixed digits");
  }
}

void CheckGFmt(double x, size_t size) {
  char full[32];
  kt_g_fmt(ktGetFpcContext(), x, full, sizeof full);
  if (std::strlen(full) > 25) Fail(x, -1, 0, "g_fmt text longer than 25 characters");
  double back = std::strtod(full, nullptr), ours = kt_strtod(ktGetFpcContext(), full, nullptr, nullptr);
  if (!std::isnan(x) && (std::memcmp(&back, &x, 8) != 0 || std::memcmp(&ours, &x, 8) != 0))
    Fail(x, -1, 0, "g_fmt text does not read back");
  std::unique_ptr<char[]> small(new char[size]);
  kt_g_fmt(ktGetFpcContext(), x, small.get(), size);
  size_t len = std::strlen(full), stored = size < len ? size : len;
  if (std::memcmp(small.get(), full, stored) != 0 || (size > len && small[len] != '\0'))
    Fail(x, -1, static_cast<int>(size), "g_fmt into a small buffer");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 13) return 0;
  double x;
  std::memcpy(&x, data, sizeof x);
  int mode = data[8] % 12 - 1;  // -1 and 10 act as mode 0
  int ndigits = static_cast<int16_t>(data[9] << 8 | data[10]) % 1200;
  size_t bufsize = (static_cast<size_t>(data[11]) << 8 | data[12]) % 800;

  Digits full = Dtoa(x, mode, ndigits);
  std::unique_ptr<char[]> exact(new char[bufsize]);
  int decpt = 0;
  char* end = nullptr;
  char* got = kt_dtoa(ktGetFpcContext(), x, exact.get(), bufsize, mode, ndigits, &decpt, nullptr, &end);
  bool fits = full.text.size() < bufsize;
  if ((got != nullptr) != fits) Fail(x, mode, ndigits, "null result does not match the fit");
  if (got && (std::string(got, end) != full.text || decpt != full.decpt || *end != '\0'))
    Fail(x, mode, ndigits, "small buffer got other digits");

  double magnitude = std::fabs(x);
  if (std::isfinite(x) && x != 0) {
    int normal = mode < 0 || mode > 9 ? 0 : (mode >= 6 ? mode - 4 : mode);
    CheckDigits(magnitude, normal, ndigits, Dtoa(magnitude, mode, ndigits));
  }
  CheckGFmt(x, bufsize % 40);
  return 0;
}
