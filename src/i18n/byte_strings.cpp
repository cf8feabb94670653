// Byte-string utilities with fixed rules for null pointers and cuts:
// copies, duplicates, backward search, ASCII lowering, conversion to and
// from blank-padded fixed fields, and line reading with any line end.
#include <cstdio>
#include <cstring>

#include "kt/memory.h"
#include "kt/strings.h"

namespace {

char AsciiLower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

// Length of the field once its blanks are dealt with: up to the first
// blank, or without the trailing ones.
size_t FixedFieldLength(const char* fixed, size_t length, bool trim) {
  if (!trim) {
    const void* blank = std::memchr(fixed, ' ', length);
    return blank ? static_cast<size_t>(static_cast<const char*>(blank) - fixed) : length;
  }
  while (length > 0 && fixed[length - 1] == ' ') --length;
  return length;
}

}  // namespace

extern "C" {

size_t ktStrlen(const char* text) { return text ? std::strlen(text) : 0; }

char* ktStrcpy(char* dst, const char* src) { return std::strcpy(dst, src ? src : ""); }

char* ktStrncpy(char* dst, const char* src, size_t n) {
  return std::strncpy(dst, src ? src : "", n);
}

char* ktStrdup(const char* text) {
  if (text == nullptr) return nullptr;
  return ktStrndup(text, std::strlen(text));
}

char* ktStrndup(const char* text, size_t n) {
  if (text == nullptr) return nullptr;
  size_t length = strnlen(text, n);
  auto* copy = static_cast<char*>(ktMalloc(length + 1));
  if (copy == nullptr) return nullptr;
  std::memcpy(copy, text, length);
  copy[length] = '\0';
  return copy;
}

char* ktStrrep(int from, int to, char* text) {
  if (text == nullptr) return nullptr;
  for (char* p = text; *p != '\0'; ++p)
    if (*p == static_cast<char>(from)) *p = static_cast<char>(to);
  return text;
}

char* ktStrrstr(const char* haystack, const char* needle) {
  if (haystack == nullptr || needle == nullptr) return nullptr;
  size_t length = std::strlen(haystack);
  size_t needleLength = std::strlen(needle);
  if (needleLength > length) return nullptr;
  for (const char* p = haystack + (length - needleLength);; --p) {
    if (std::memcmp(p, needle, needleLength) == 0) return const_cast<char*>(p);
    if (p == haystack) return nullptr;
  }
}

char* ktStrncpyWithEllipses(char* dst, const char* src, size_t n) {
  if (n == 0) return dst;
  if (src == nullptr) src = "";
  size_t length = strnlen(src, n);
  if (length < n) return static_cast<char*>(std::memcpy(dst, src, length + 1));
  if (n < 4) return static_cast<char*>(std::memcpy(dst, src, n));  // unterminated, as strncpy
  std::memcpy(dst, src, n - 4);
  std::memcpy(dst + n - 4, "...", 4);
  return dst;
}

char* ktLowerCase(char* text) {
  if (text == nullptr) return nullptr;
  for (char* p = text; *p != '\0'; ++p) *p = AsciiLower(*p);
  return text;
}

char* ktLowerCaseCopy(char* dst, const char* src, size_t capacity) {
  if (dst == nullptr) return nullptr;
  size_t n = 0;
  // A capacity of 0 still gets its NUL: callers count on an empty string
  // back, and the rule has stood too long to change.
  if (src != nullptr)
    for (; n + 1 < capacity && src[n] != '\0'; ++n) dst[n] = AsciiLower(src[n]);
  dst[n] = '\0';
  return dst;
}

char* ktF2cstr(const char* fixed, size_t length, char* dst, size_t capacity, int trim) {
  if (dst == nullptr || capacity == 0) return dst;
  size_t n = fixed ? FixedFieldLength(fixed, length, trim != 0) : 0;
  if (n > capacity - 1) n = capacity - 1;
  if (n > 0) std::memcpy(dst, fixed, n);
  dst[n] = '\0';
  return dst;
}

char* ktC2fstr(const char* text, char* dst, size_t length) {
  if (dst == nullptr) return nullptr;
  size_t n = text ? strnlen(text, length) : 0;
  if (n > 0) std::memcpy(dst, text, n);
  std::memset(dst + n, ' ', length - n);
  return dst;
}

char* ktFgets(char* buffer, int size, FILE* stream) {
  if (size < 1 || buffer == nullptr || stream == nullptr) return nullptr;
  int n = 0;
  flockfile(stream);
  while (n < size - 1) {
    int c = getc_unlocked(stream);
    if (c == EOF) break;
    if (c == '\r') {  // CR alone or CR LF: one LF either way
      int next = getc_unlocked(stream);
      if (next != '\n' && next != EOF) ungetc(next, stream);
      c = '\n';
    }
    buffer[n++] = static_cast<char>(c);
    if (c == '\n') break;
  }
  funlockfile(stream);
  if (n == 0 && size > 1) return nullptr;
  buffer[n] = '\0';
  return buffer;
}

}  // extern "C"
