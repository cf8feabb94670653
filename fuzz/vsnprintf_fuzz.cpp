// ktVSNprintf and ktVprintf with arbitrary text, valid UTF-8 or not, at
// every capacity. Input: two bytes of capacity, then the text.
//
// Checked: nothing is written outside the buffer (it is allocated at its
// exact size); a capacity of 0 touches nothing; the result is always
// terminated inside the buffer; well-formed UTF-8 that fits comes back
// unchanged with its length, cut ASCII as its prefix; ktVprintf hands the hook what ktVSNprintf
// gives in a buffer large enough for any re-encoding.
#include <unicode/ustring.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "kt/output.h"

namespace {

bool IcuAcceptsUtf8(const std::string& text) {
  UErrorCode status = U_ZERO_ERROR;
  int32_t units = 0;
  u_strFromUTF8(nullptr, 0, &units, text.data(), static_cast<int32_t>(text.size()), &status);
  return status == U_BUFFER_OVERFLOW_ERROR || U_SUCCESS(status);
}

std::string g_captured;
int Capture(const char* text, void*) {
  g_captured = text;
  return 0;
}

void Fail(const char* what) {
  std::fprintf(stderr, "vsnprintf_fuzz: %s\n", what);
  std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 2) return 0;
  size_t capacity = (static_cast<size_t>(data[0]) << 8 | data[1]) % 5000;
  std::string text(reinterpret_cast<const char*>(data + 2), size - 2);
  text = text.c_str();  // "%s" stops at the first NUL anyway

  // Step 1: the bounded form, into a buffer of exactly `capacity` bytes.
  std::unique_ptr<char[]> buffer(new char[capacity ? capacity : 1]);
  buffer[0] = '#';
  int n = ktSNprintf(capacity ? buffer.get() : nullptr, capacity, "%s", text.c_str());
  if (capacity == 0) {
    if (n != static_cast<int>(text.size())) Fail("capacity 0 must return the count");
    return 0;
  }
  if (std::memchr(buffer.get(), '\0', capacity) == nullptr) Fail("text not terminated");
  bool fits = text.size() < capacity;
  if (IcuAcceptsUtf8(text) && fits) {
    if (n != static_cast<int>(text.size()) || text != buffer.get())
      Fail("well-formed text that fits must come back unchanged");
  }
  bool ascii = std::all_of(text.begin(), text.end(), [](char c) { return c > 0; });
  if (ascii && !fits) {
    if (n != static_cast<int>(text.size()) || text.compare(0, capacity - 1, buffer.get()) != 0)
      Fail("cut ASCII text must keep its first capacity - 1 bytes and the full count");
  }

  // Step 2: the console path, against a buffer large enough for anything
  // (a byte re-encodes to at most three).
  size_t roomy = 3 * text.size() + 1;
  std::unique_ptr<char[]> whole(new char[roomy]);
  int expected = ktSNprintf(whole.get(), roomy, "%s", text.c_str());
  ktSetVprintfCallbacks(Capture, nullptr, nullptr);
  g_captured.clear();
  int printed = ktPrintf("%s", text.c_str());
  ktSetVprintfCallbacks(nullptr, nullptr, nullptr);
  if (printed != expected || g_captured != whole.get()) Fail("ktPrintf differs from ktVSNprintf");
  return 0;
}
