// UTF-16 string functions over ICU's u_str* and io library, the byte
// length of UTF-8 text and the 7-bit tests.
#include <unicode/ustdio.h>
#include <unicode/ustring.h>

#include <cstring>

#include "kt/memory.h"
#include "kt/strings.h"

extern "C" {

int utf16_strlen(const kt_utf16* text) { return u_strlen(text); }

int utf16_strlen_lim(const kt_utf16* text, int limit) {
  int n = 0;
  while (n < limit && text[n] != 0) ++n;
  return n;
}

kt_utf16* utf16_strcpy(kt_utf16* dst, const kt_utf16* src) { return u_strcpy(dst, src); }

kt_utf16* utf16_strncpy(kt_utf16* dst, const kt_utf16* src, int n) {
  return u_strncpy(dst, src, n);
}

kt_utf16* utf16_strncat(kt_utf16* dst, const kt_utf16* src, int n) {
  return u_strncat(dst, src, n);
}

kt_utf16* utf16_strndup(const kt_utf16* text, int n) {
  if (text == nullptr || n < 0) return nullptr;
  size_t units = static_cast<size_t>(n) + 1;
  auto* copy = static_cast<kt_utf16*>(ktMalloc(units * sizeof(kt_utf16)));
  if (copy == nullptr) return nullptr;
  copy[n] = 0;  // u_strncpy leaves a full copy unterminated
  return u_strncpy(copy, text, n);
}

kt_utf16* utf16_strdup(const kt_utf16* text) {
  if (text == nullptr) return nullptr;
  return utf16_strndup(text, u_strlen(text));
}

int utf16_strcmp(const kt_utf16* a, const kt_utf16* b) { return u_strcmp(a, b); }

int utf16_stricmp(const kt_utf16* a, const kt_utf16* b) {
  return u_strcasecmp(a, b, U_FOLD_CASE_DEFAULT);
}

int utf16_strncmp(const kt_utf16* a, const kt_utf16* b, int n) { return u_strncmp(a, b, n); }

int utf16_strnicmp(const kt_utf16* a, const kt_utf16* b, int n) {
  return u_strncasecmp(a, b, n, U_FOLD_CASE_DEFAULT);
}

int utf16_strcmp_n_codepoint(const kt_utf16* a, int aLength, const kt_utf16* b, int bLength) {
  return u_strCompare(a, aLength, b, bLength, true);
}

kt_utf16* utf16_strchr(const kt_utf16* text, int c) { return u_strchr32(text, c); }

kt_utf16* utf16_strnchr(const kt_utf16* text, kt_utf16 c, int n) {
  return u_memchr(text, c, n);
}

kt_utf16* utf16_strnrchr(const kt_utf16* text, kt_utf16 c, int n) {
  return u_memrchr(text, c, n);
}

kt_utf16* utf16_strnstr(const kt_utf16* text, int length, const kt_utf16* sub, int subLength) {
  return u_strFindFirst(text, length, sub, subLength);
}

kt_utf16* utf16_strnrstr(const kt_utf16* text, int length, const kt_utf16* sub, int subLength) {
  return u_strFindLast(text, length, sub, subLength);
}

int utf16_vsnprintf(kt_utf16* buffer, int count, const char* format, va_list args) {
  va_list again;
  va_copy(again, args);
  int n = u_vsnprintf(buffer, count, format, args);
  // When the text is cut, ICU's count is sometimes the units written and
  // sometimes less than the whole length; measuring alone is exact.
  if (count > 0 && n >= count) n = u_vsnprintf(nullptr, 0, format, again);
  va_end(again);
  return n;
}

int utf16_snprintf(kt_utf16* buffer, int count, const char* format, ...) {
  va_list args;
  va_start(args, format);
  int n = utf16_vsnprintf(buffer, count, format, args);
  va_end(args);
  return n;
}

int utf16_vsscanf(const kt_utf16* text, const char* format, va_list args) {
  return u_vsscanf(text, format, args);
}

int utf16_sscanf(const kt_utf16* text, const char* format, ...) {
  va_list args;
  va_start(args, format);
  int n = utf16_vsscanf(text, format, args);
  va_end(args);
  return n;
}

int utf8_strlen(const char* text) {
  return text == nullptr ? 0 : static_cast<int>(std::strlen(text));
}

int lcp_is_7bit(const char* text, int length) {
  if (text == nullptr) return 1;
  if (length == -1) length = static_cast<int>(std::strlen(text));
  for (int i = 0; i < length; ++i)
    if (static_cast<unsigned char>(text[i]) >= 0x80) return 0;
  return 1;
}

int utf16_is_7bit(const kt_utf16* text, int length) {
  if (text == nullptr) return 1;
  if (length == -1) length = u_strlen(text);
  for (int i = 0; i < length; ++i)
    if (text[i] >= 128) return 0;
  return 1;
}

}  // extern "C"
