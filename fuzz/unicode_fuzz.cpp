// Arbitrary bytes through the conversion functions for a fuzzed encoding,
// against ICU called directly on a converter of our own. Input: encoding
// index, two bytes of capacity, a mode byte, then the text (bytes, or
// UTF-16 units for the modes going out of UTF-16).
//
// Checked: the allocating forms return ICU's result, terminated; the
// bounded forms return and store the full length, write exactly what ICU
// writes at that capacity and nothing past it.
#include <unicode/ucnv.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "kt/encodings.h"
#include "kt/memory.h"

namespace {

const char* const kEncodings[] = {"ISO-8859-1", "ISO-8859-15", "windows-1252", "Shift_JIS",
                                  "EUC-JP",     "GB18030",     "Big5",         "KOI8-R",
                                  "UTF-16BE",   "UTF-16LE",    "UTF-32",       "UTF-8"};

void Fail(const char* what) {
  std::fprintf(stderr, "unicode_fuzz: %s\n", what);
  std::abort();
}

struct Icu {
  explicit Icu(const char* name) {
    UErrorCode status = U_ZERO_ERROR;
    converter = ucnv_open(name, &status);
    if (U_FAILURE(status)) Fail("ICU cannot open a listed encoding");
  }
  ~Icu() { ucnv_close(converter); }
  UConverter* converter;
};

// ICU's conversion at `capacity` (a negative capacity measures only).
template <class Unit>
int IcuInto(UConverter* c, std::vector<Unit>* out, int capacity, const void* text, int length) {
  out->assign(capacity > 0 ? capacity : 0, Unit('#'));
  UErrorCode status = U_ZERO_ERROR;
  Unit* d = out->empty() ? nullptr : out->data();
  int room = static_cast<int>(out->size());
  if constexpr (sizeof(Unit) == 2)
    return ucnv_toUChars(c, d, room, static_cast<const char*>(text), length, &status);
  else
    return ucnv_fromUChars(c, d, room, static_cast<const UChar*>(text), length, &status);
}

// The destination carries eight guard units past the capacity: ICU is not
// instrumented, so a write beyond it would go unseen otherwise.
template <class Unit, class Call>
void CheckBounded(UConverter* c, int capacity, const void* text, int length, Call call) {
  std::vector<Unit> want;
  int full = IcuInto(c, &want, capacity, text, length);
  want.resize(static_cast<size_t>(capacity) + 8, Unit('#'));
  std::vector<Unit> ours(want.size(), Unit('#'));
  int inOut = capacity;
  int got = call(capacity ? ours.data() : nullptr, &inOut);
  if (got != full || inOut != full || ours != want) Fail("bounded form differs from ICU");
}

template <class Unit>
void CheckAllocated(UConverter* c, Unit* got, const void* text, int length) {
  std::vector<Unit> want;
  int full = IcuInto(c, &want, -1, text, length);
  IcuInto(c, &want, full + 1, text, length);
  bool same = got && std::memcmp(got, want.data(), (full + 1) * sizeof(Unit)) == 0;
  ktFree(got);
  if (!same) Fail("allocating form differs from ICU");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 4) return 0;
  const char* encoding = kEncodings[data[0] % (sizeof kEncodings / sizeof kEncodings[0])];
  int capacity = (data[1] << 8 | data[2]) % 3000;
  int mode = data[3] % 4;
  std::string bytes(reinterpret_cast<const char*>(data + 4), size - 4);
  std::u16string units(bytes.size() / 2, u'\0');
  std::memcpy(&units[0], bytes.data(), units.size() * 2);
  int byteLength = static_cast<int>(bytes.size());
  int unitLength = static_cast<int>(units.size());
  Icu icu(encoding);

  switch (mode) {
    case 0:
      CheckAllocated(icu.converter, enc_to_utf16(encoding, bytes.data(), byteLength),
                     bytes.data(), byteLength);
      break;
    case 1:
      CheckBounded<UChar>(icu.converter, capacity, bytes.data(), byteLength,
                          [&](UChar* d, int* c) {
                            return enc_to_utf16_n(encoding, d, c, bytes.data(), byteLength);
                          });
      break;
    case 2:
      CheckAllocated(icu.converter, utf16_to_enc(encoding, units.data(), unitLength),
                     units.data(), unitLength);
      break;
    default: {
      Quivera::I18N::AutoRestoreUnicodeConverterName scope(encoding);
      CheckBounded<char>(icu.converter, capacity, units.data(), unitLength,
                         [&](char* d, int* c) {
                           return utf16_to_lcp_n(d, c, units.data(), unitLength);
                         });
    }
  }
  return 0;
}
