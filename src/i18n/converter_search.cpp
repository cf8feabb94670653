// Searches in text of the thread's default encoding that stay correct for
// multibyte encodings: the text is decoded, and a match is reported as the
// byte offset where the matching character starts, so a trail byte that
// happens to equal '\' or '/' never matches.
#include <climits>
#include <cstring>

#include <unicode/ucnv.h>

#include "i18n/converter_cache.h"
#include "kt/encodings.h"

using kt::internal::ThreadConverter;

namespace {

enum class Walk { kStopped, kFinished, kInvalid };

// Decodes `length` bytes of `text` with `converter` in chunks of units and
// calls visit(unit, offset) for each UTF-16 unit in order, `offset` being
// where the unit's character starts in `text`, until visit returns true.
// With `strict` a byte sequence that does not decode ends the walk as
// kInvalid; otherwise ICU substitutes it. The converter is reset before
// and after.
template <class Visit>
Walk WalkUnits(UConverter* converter, const char* text, int length, bool strict, Visit visit) {
  UConverterToUCallback oldAction = nullptr;
  const void* oldContext = nullptr;
  UErrorCode status = U_ZERO_ERROR;
  if (strict)
    ucnv_setToUCallBack(converter, UCNV_TO_U_CALLBACK_STOP, nullptr, &oldAction, &oldContext,
                        &status);
  ucnv_resetToUnicode(converter);

  constexpr int kChunk = 256;
  UChar units[kChunk];
  int32_t offsets[kChunk];
  const char* source = text;
  const char* end = text + length;
  int characterStart = 0;
  Walk result = Walk::kFinished;
  for (bool more = true; more && result == Walk::kFinished;) {
    const char* chunkStart = source;
    UChar* target = units;
    status = U_ZERO_ERROR;
    ucnv_toUnicode(converter, &target, units + kChunk, &source, end, offsets, true, &status);
    for (int i = 0; i < target - units; ++i) {
      // -1 marks the rest of a character whose first units ended the
      // previous chunk.
      if (offsets[i] >= 0)
        characterStart = static_cast<int>(chunkStart - text) + offsets[i];
      if (visit(units[i], characterStart)) {
        result = Walk::kStopped;
        break;
      }
    }
    more = status == U_BUFFER_OVERFLOW_ERROR;
    if (result == Walk::kFinished && U_FAILURE(status) && !more)
      result = Walk::kInvalid;
  }

  ucnv_resetToUnicode(converter);
  if (strict) {
    status = U_ZERO_ERROR;
    ucnv_setToUCallBack(converter, oldAction, oldContext, nullptr, nullptr, &status);
  }
  return result;
}

bool IsSevenBit(const char* text, size_t length) {
  for (size_t i = 0; i < length; ++i)
    if (static_cast<unsigned char>(text[i]) >= 0x80)
      return false;
  return true;
}

}  // namespace

extern "C" {

// Surrogates never equal a 7-bit character, so comparing units compares
// code points.
char* lcp_strchr(const char* text, int c) {
  if (text == nullptr || c < 0 || c > 127)
    return nullptr;
  size_t length = std::strlen(text);
  if (c == 0)
    return const_cast<char*>(text + length);
  if (IsSevenBit(text, length))
    return static_cast<char*>(std::memchr(const_cast<char*>(text), c, length));
  int found = -1;
  int bytes = length > INT_MAX ? INT_MAX : static_cast<int>(length);
  WalkUnits(ThreadConverter(nullptr), text, bytes, false, [&](UChar unit, int offset) {
    if (unit != c)
      return false;
    found = offset;
    return true;
  });
  return found >= 0 ? const_cast<char*>(text + found) : nullptr;
}

// The last '/' is found walking forwards (it is the same character the
// walk from the end meets first), so the whole text is decoded anyway and a
// text that does not decode is always refused.
int mpath_pathname_index(const char* text, int length) {
  if (text == nullptr || length < -1)
    return -1;
  if (length == -1) {
    size_t measured = std::strlen(text);
    length = measured > INT_MAX ? INT_MAX : static_cast<int>(measured);
  }
  int last = -1;
  Walk walk = WalkUnits(ThreadConverter(nullptr), text, length, true, [&](UChar unit, int offset) {
    if (unit == u'/')
      last = offset;
    return false;
  });
  return walk == Walk::kInvalid ? -1 : last;
}

}  // extern "C"
