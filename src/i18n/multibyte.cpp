// Stepping through and searching text in the locale's code page. In a
// multibyte locale characters are decoded with mbrtowc so that searches
// never stop on a trail byte that happens to equal the byte sought (GBK
// and GB18030 trail bytes include ASCII letters and '\\'); in a
// single-byte locale every byte is a character and the C library's own
// functions do the work.
#include <cstdlib>
#include <cstring>
#include <cwchar>

#include "kt/strings.h"

namespace {

bool MultiByteLocale() { return MB_CUR_MAX > 1; }

// Bytes of the character at `p`, decoding from no more than `available`
// bytes. A sequence mbrtowc rejects, cannot finish within those bytes or
// reads as the null character counts as one byte.
size_t DecodedLength(const char* p, size_t available) {
  std::mbstate_t state{};
  size_t n = std::mbrtowc(nullptr, p, available, &state);
  if (n == static_cast<size_t>(-1) || n == static_cast<size_t>(-2) || n == 0) return 1;
  return n;
}

// The same inside a NUL-terminated string: the character may not run into
// the terminator. A zero byte is one character.
size_t CharLength(const char* p) { return DecodedLength(p, strnlen(p, MB_CUR_MAX)); }

char* Mutable(const char* p) { return const_cast<char*>(p); }

}  // namespace

extern "C" {

int ktIsMultiByteCharSet(void) { return MultiByteLocale() ? 1 : 0; }

int ktIsMultiByteLead(int byte) {
  if (!MultiByteLocale()) return 0;
  const char pair[2] = {static_cast<char>(byte), static_cast<char>(0xA1)};
  std::mbstate_t state{};
  return std::mbrtowc(nullptr, pair, 2, &state) == 2 ? 1 : 0;
}

char* ktMultiByteNextChar(const char* p) {
  if (p == nullptr) return nullptr;
  if (*p == '\0') return Mutable(p);
  return Mutable(MultiByteLocale() ? p + CharLength(p) : p + 1);
}

char* ktMultiBytePrevChar(const char* start, const char* p) {
  if (p <= start) return Mutable(start);
  if (!MultiByteLocale()) return Mutable(p - 1);
  // Boundaries are only known from the front: walk from `start` to the
  // character that reaches `p`.
  const char* q = start;
  for (;;) {
    const char* next = q + CharLength(q);
    if (next >= p) return Mutable(q);
    q = next;
  }
}

char* ktMultiByteStrChr(const char* text, int c) {
  if (text == nullptr) return nullptr;
  if (!MultiByteLocale()) return std::strchr(Mutable(text), c);
  char wanted = static_cast<char>(c);
  if (wanted == '\0') return Mutable(text + std::strlen(text));
  for (const char* p = text; *p != '\0';) {
    size_t length = CharLength(p);
    if (length == 1 && *p == wanted) return Mutable(p);
    p += length;
  }
  return nullptr;
}

char* ktMultiByteStrrChr(const char* text, int c) {
  if (text == nullptr) return nullptr;
  if (!MultiByteLocale()) return std::strrchr(Mutable(text), c);
  char wanted = static_cast<char>(c);
  if (wanted == '\0') return Mutable(text + std::strlen(text));
  const char* last = nullptr;
  for (const char* p = text; *p != '\0';) {
    size_t length = CharLength(p);
    if (length == 1 && *p == wanted) last = p;
    p += length;
  }
  return Mutable(last);
}

char* ktMultiByteStrStr(const char* haystack, const char* needle) {
  if (haystack == nullptr || needle == nullptr) return nullptr;
  if (!MultiByteLocale()) return std::strstr(Mutable(haystack), needle);
  size_t length = std::strlen(needle);
  if (length == 0) return Mutable(haystack);
  for (const char* p = haystack; *p != '\0'; p += CharLength(p))
    if (std::strncmp(p, needle, length) == 0) return Mutable(p);
  return nullptr;
}

}  // extern "C"
