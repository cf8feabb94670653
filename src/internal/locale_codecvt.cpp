// ICU-based code-page conversion standing in for the in-house i18n library.
#include "internal/locale_codecvt.h"

#include <langinfo.h>
#include <locale.h>

#include <climits>
#include <cstdint>
#include <cstring>
#include <mutex>

#include <unicode/ucnv.h>
#include <unicode/ustring.h>
#include <unicode/utypes.h>

namespace cx::i18n {
namespace {

// The codeset the C library reports for the process locale; while the
// process is still in the "C" locale, the one its environment asks for.
std::string QueryCodeset() {
  const char* current = setlocale(LC_CTYPE, nullptr);
  bool plain = current == nullptr || std::strcmp(current, "C") == 0 ||
               std::strcmp(current, "POSIX") == 0;
  if (!plain) return nl_langinfo(CODESET);
  locale_t env = newlocale(LC_CTYPE_MASK, "", static_cast<locale_t>(0));
  if (env == static_cast<locale_t>(0)) return nl_langinfo(CODESET);
  std::string name = nl_langinfo_l(CODESET, env);
  freelocale(env);
  return name;
}

std::string& CachedCodepage() {
  static std::string name;
  return name;
}

std::once_flag& CodepageOnce() {
  static std::once_flag once;
  return once;
}

cx::ustring Latin1ToUstring(const char* text, size_t length) {
  cx::ustring out(length, u'\0');
  for (size_t i = 0; i < length; ++i) out[i] = static_cast<unsigned char>(text[i]);
  return out;
}

}  // namespace

const std::string& system_codepage() {
  std::call_once(CodepageOnce(), [] { CachedCodepage() = QueryCodeset(); });
  return CachedCodepage();
}

void set_system_codepage(const char* name) {
  system_codepage();  // run the one-time query first so it cannot overwrite us
  CachedCodepage() = name ? name : "";
}

cx::ustring codecvt_string_to_ustring(const char* text, size_t length,
                                      const std::string& codepage) {
  if (length == 0) return cx::ustring();
  UErrorCode status = U_ZERO_ERROR;
  UConverter* conv = ucnv_open(codepage.c_str(), &status);
  if (U_FAILURE(status) || length > static_cast<size_t>(INT32_MAX)) {
    if (conv) ucnv_close(conv);
    return Latin1ToUstring(text, length);
  }
  // Any code page yields at most two UTF-16 units per byte.
  cx::ustring out(2 * length + 1, u'\0');
  int32_t n = ucnv_toUChars(conv, reinterpret_cast<UChar*>(&out[0]),
                            static_cast<int32_t>(out.size()), text,
                            static_cast<int32_t>(length), &status);
  ucnv_close(conv);
  if (U_FAILURE(status)) return Latin1ToUstring(text, length);
  out.resize(static_cast<size_t>(n));
  return out;
}

std::string ustring_to_utf8(const char16_t* text, size_t length) {
  if (length == 0 || length > static_cast<size_t>(INT32_MAX) / 3) return std::string();
  std::string out(3 * length + 1, '\0');
  int32_t n = 0;
  UErrorCode status = U_ZERO_ERROR;
  u_strToUTF8WithSub(&out[0], static_cast<int32_t>(out.size()), &n,
                     reinterpret_cast<const UChar*>(text), static_cast<int32_t>(length),
                     0xFFFD, nullptr, &status);
  if (U_FAILURE(status)) return std::string();
  out.resize(static_cast<size_t>(n));
  return out;
}

// Well-formed UTF-8 by the Unicode definition (no overlong forms, no
// surrogates, nothing above U+10FFFF). It never calls invalid text valid,
// so ICU only has to confirm the rare negative answers.
bool is_well_formed_utf8(const char* text, size_t n) {
  const unsigned char* s = reinterpret_cast<const unsigned char*>(text);
  size_t i = 0;
  while (i < n) {
    // Eight ASCII bytes at a time: the common case.
    while (i + 8 <= n) {
      uint64_t word;
      std::memcpy(&word, s + i, 8);
      if (word & 0x8080808080808080ULL) break;
      i += 8;
    }
    if (i >= n) break;
    unsigned char c = s[i];
    if (c < 0x80) {
      ++i;
      continue;
    }
    size_t extra;
    unsigned char lo = 0x80, hi = 0xBF;
    if (c >= 0xC2 && c <= 0xDF) {
      extra = 1;
    } else if (c >= 0xE0 && c <= 0xEF) {
      extra = 2;
      if (c == 0xE0) lo = 0xA0;
      if (c == 0xED) hi = 0x9F;
    } else if (c >= 0xF0 && c <= 0xF4) {
      extra = 3;
      if (c == 0xF0) lo = 0x90;
      if (c == 0xF4) hi = 0x8F;
    } else {
      return false;
    }
    if (extra >= n - i) return false;  // cut short
    if (s[i + 1] < lo || s[i + 1] > hi) return false;
    for (size_t k = 2; k <= extra; ++k) {
      if ((s[i + k] & 0xC0) != 0x80) return false;
    }
    i += extra + 1;
  }
  return true;
}

bool is_valid_utf8(const char* text, size_t length) {
  if (is_well_formed_utf8(text, length)) return true;
  if (length > static_cast<size_t>(INT32_MAX)) return false;
  int32_t needed = 0;
  UErrorCode status = U_ZERO_ERROR;
  u_strFromUTF8(nullptr, 0, &needed, text, static_cast<int32_t>(length), &status);
  return status != U_INVALID_CHAR_FOUND;
}

}  // namespace cx::i18n
