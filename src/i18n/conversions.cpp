// The C conversion functions between UTF-16 and UTF-8, the thread's
// default encoding or a named encoding, and the UTF-8 hash.
#include <climits>
#include <cstdint>
#include <cstring>

#include <unicode/ucnv.h>
#include <unicode/ustring.h>

#include "i18n/converter_cache.h"
#include "kt/encodings.h"
#include "kt/memory.h"

using kt::internal::SourceLength;
using kt::internal::ThreadConverter;
using Quivera::I18N::FromUTF16Converter;

namespace {

constexpr int kStackUnits = 1024;
const char kUtf8[] = "UTF-8";

int MeasuredLength(const char* text, int length) {
  if (length != -1)
    return SourceLength(length);
  size_t measured = std::strlen(text);
  return measured > INT_MAX ? -1 : static_cast<int>(measured);
}

// Gives back the unused end of a block sized for the longest possible
// result (in place, for the C heap); keeps the block if that fails.
template <class Unit>
Unit* Shrink(Unit* block, int used) {
  void* smaller = ktRealloc(block, static_cast<size_t>(used) * sizeof(Unit));
  return smaller ? static_cast<Unit*>(smaller) : block;
}

// The converters that never give more than one UTF-16 unit per byte.
bool AtMostOneUnitPerByte(const UConverter* converter) {
  UConverterType type = ucnv_getType(converter);
  return type == UCNV_UTF8 || type == UCNV_LATIN_1 || type == UCNV_US_ASCII;
}

kt_utf16* NewUnits(int count) {
  return static_cast<kt_utf16*>(ktMalloc(static_cast<size_t>(count) * sizeof(kt_utf16)));
}

// One pass into an allocation of the largest possible size.
kt_utf16* NewUtf16Once(UConverter* converter, const char* text, int length) {
  kt_utf16* out = NewUnits(length + 1);
  if (out == nullptr)
    return nullptr;
  UErrorCode status = U_ZERO_ERROR;
  int units = ucnv_toUChars(converter, out, length + 1, text, length, &status);
  out[units] = 0;
  return Shrink(out, units + 1);
}

// Converts into a stack buffer first; a longer result is converted a
// second time straight into its allocation. Long texts of converters with
// a known bound skip the first attempt, which could only overflow, and
// convert once instead.
kt_utf16* NewUtf16(UConverter* converter, const char* text, int length) {
  if (text == nullptr) {
    text = "";
    length = 0;
  }
  length = MeasuredLength(text, length);
  if (length > kStackUnits && AtMostOneUnitPerByte(converter))
    return NewUtf16Once(converter, text, length);
  UChar stack[kStackUnits];
  UErrorCode status = U_ZERO_ERROR;
  int units = ucnv_toUChars(converter, stack, kStackUnits, text, length, &status);
  kt_utf16* out = NewUnits(units + 1);
  if (out == nullptr)
    return nullptr;
  if (status == U_BUFFER_OVERFLOW_ERROR) {
    status = U_ZERO_ERROR;
    ucnv_toUChars(converter, out, units + 1, text, length, &status);
  } else {
    std::memcpy(out, stack, static_cast<size_t>(units) * sizeof(kt_utf16));
  }
  out[units] = 0;
  return out;
}

// The room a bounded form may write into: none without a destination.
int Room(const void* destination, const int* capacity) {
  return capacity != nullptr && destination != nullptr && *capacity > 0 ? *capacity : 0;
}

// The bounded forms: ICU's preflighting rules, with the caller's capacity
// in and the full length out.
int Utf16Into(UConverter* converter, kt_utf16* destination, int* capacity, const char* text,
              int length) {
  int room = Room(destination, capacity);
  UErrorCode status = U_ZERO_ERROR;
  int units = ucnv_toUChars(converter, room ? destination : nullptr, room, text ? text : "",
                            text ? SourceLength(length) : 0, &status);
  if (capacity != nullptr)
    *capacity = units;
  return units;
}

// One pass into an allocation of the largest possible size.
char* NewBytesOnce(UConverter* converter, const kt_utf16* text, int length, int64_t bound) {
  auto* out = static_cast<char*>(ktMalloc(static_cast<size_t>(bound) + 1));
  if (out == nullptr)
    return nullptr;
  UErrorCode status = U_ZERO_ERROR;
  int bytes = ucnv_fromUChars(converter, out, static_cast<int>(bound) + 1, text, length, &status);
  out[bytes] = '\0';
  return Shrink(out, bytes + 1);
}

// Through FromUTF16Converter's inline buffer; a text too long for it
// converts once into an allocation of the largest possible size instead
// (the inline attempt could only overflow and convert a second time).
char* NewBytes(const char* encoding, const kt_utf16* text, int length) {
  if (text != nullptr)
    length = length == -1 ? u_strlen(text) : SourceLength(length);
  // Short texts (at most four bytes per unit in most encodings) go the
  // inline way without a look at the converter here.
  if (text != nullptr && length > FromUTF16Converter::kInlineBytes / 4) {
    UConverter* converter = ThreadConverter(encoding);
    int perUnit = ucnv_getMaxCharSize(converter);
    int64_t bound = (static_cast<int64_t>(length) + 10) * perUnit;  // UCNV_GET_MAX_BYTES_FOR_STRING
    if (length > FromUTF16Converter::kInlineBytes / perUnit && bound < INT_MAX)
      return NewBytesOnce(converter, text, length, bound);
  }
  FromUTF16Converter conversion(text, length, encoding);
  int bytes = conversion.length();
  auto* out = static_cast<char*>(ktMalloc(static_cast<size_t>(bytes) + 1));
  if (out == nullptr)
    return nullptr;
  if (conversion.overflowed())
    conversion._do_conversion(out, bytes);
  else
    std::memcpy(out, conversion.data(), static_cast<size_t>(bytes));
  out[bytes] = '\0';
  return out;
}

}  // namespace

extern "C" {

kt_utf16* utf8_to_utf16(const char* text, int length) {
  return NewUtf16(ThreadConverter(kUtf8), text, length);
}

kt_utf16* lcp_to_utf16(const char* text, int length) {
  return NewUtf16(ThreadConverter(nullptr), text, length);
}

kt_utf16* enc_to_utf16(const char* encoding, const char* text, int length) {
  return NewUtf16(ThreadConverter(encoding), text, length);
}

int utf8_to_utf16_n(kt_utf16* destination, int* capacity, const char* text, int length) {
  return Utf16Into(ThreadConverter(kUtf8), destination, capacity, text, length);
}

int lcp_to_utf16_n(kt_utf16* destination, int* capacity, const char* text, int length) {
  return Utf16Into(ThreadConverter(nullptr), destination, capacity, text, length);
}

int enc_to_utf16_n(const char* encoding, kt_utf16* destination, int* capacity, const char* text,
                   int length) {
  return Utf16Into(ThreadConverter(encoding), destination, capacity, text, length);
}

kt_utf16* lcp_to_utf16_mt(const char* text, int length) {
  int units = 0;
  lcp_to_utf16_n(nullptr, &units, text, length);
  auto* out = new kt_utf16[static_cast<size_t>(units) + 1];
  int capacity = units + 1;
  lcp_to_utf16_n(out, &capacity, text, length);
  out[units] = 0;
  return out;
}

char* utf16_to_utf8(const kt_utf16* text, int length) {
  return NewBytes(kUtf8, text, length);
}

char* utf16_to_lcp(const kt_utf16* text, int length) {
  return NewBytes(nullptr, text, length);
}

char* utf16_to_enc(const char* encoding, const kt_utf16* text, int length) {
  return NewBytes(encoding, text, length);
}

int utf16_to_lcp_n(char* destination, int* capacity, const kt_utf16* text, int length) {
  static const kt_utf16 empty[1] = {0};
  if (text == nullptr)
    text = empty;
  int room = Room(destination, capacity);
  UErrorCode status = U_ZERO_ERROR;
  int bytes = ucnv_fromUChars(ThreadConverter(nullptr), room ? destination : nullptr, room, text,
                              text == empty ? 0 : SourceLength(length), &status);
  if (capacity != nullptr)
    *capacity = bytes;
  return bytes;
}

}  // extern "C"

namespace Quivera {
namespace I18N {

uint32_t char8_hasher(const char* text, size_t length) {
  uint32_t h = 97169;
  if (text != nullptr) {
    for (size_t i = 0; i < length && text[i] != '\0'; ++i)
      h = 17 * (h ^ static_cast<unsigned char>(text[i]));
  }
  return h * 9987001u;
}

}  // namespace I18N
}  // namespace Quivera
