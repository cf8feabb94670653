// Matching text: the wildcard pattern match, whole-word and blank tests,
// and case-insensitive search, all byte-wise with the C locale tables.
#include <strings.h>

#include <cctype>
#include <cstring>

#include "kt/strings.h"

namespace {

const char* SkipSpace(const char* p) {
  while (std::isspace(static_cast<unsigned char>(*p))) ++p;
  return p;
}

// One pattern byte against one text byte. Only the text side is lowered:
// patterns are written in lower case, and an upper-case pattern byte has
// always matched just itself.
bool BytesMatch(char pattern, char text, bool exact) {
  if (pattern == text) return true;
  return !exact && static_cast<unsigned char>(pattern) ==
                       std::tolower(static_cast<unsigned char>(text));
}

bool UpperEqual(const char* a, const char* b, size_t n) {
  for (size_t i = 0; i < n; ++i)
    if (std::toupper(static_cast<unsigned char>(a[i])) !=
        std::toupper(static_cast<unsigned char>(b[i])))
      return false;
  return true;
}

}  // namespace

extern "C" {

// "*" may match any run, tried at every position. Trying them by recursion
// is exponential in the number of stars, so the match keeps one resume
// point instead: the position after the latest star and the text position
// that star's run ends at. On a mismatch that run grows by one byte and
// matching resumes from there. Earlier stars never need revisiting: any
// text a later segment could match after a longer run of an earlier star,
// the later star's own run can absorb. Time is O(pattern x text) at worst,
// stack constant.
int ktPatternMatch(const char* pattern, const char* text, int exact) {
  if (pattern == nullptr || *pattern == '\0') return 1;
  if (text == nullptr) text = "";
  const char* p = pattern;
  const char* t = text;
  const char* resumePattern = nullptr;  // just after the latest star
  const char* resumeText = nullptr;     // where that star's run ends
  while (*t != '\0') {
    if (*p == '*') {
      while (*p == '*') ++p;  // a run of stars is one star
      if (*p == '\0') return 1;
      resumePattern = p;
      resumeText = t;
    } else if (*p != '\0' && BytesMatch(*p, *t, exact != 0)) {
      ++p;
      ++t;
    } else if (resumePattern != nullptr) {
      p = resumePattern;
      t = ++resumeText;
    } else {
      return 0;
    }
  }
  while (*p == '*') ++p;  // trailing stars match the empty rest
  return *p == '\0';
}

int ktStrmatchi(const char* text, const char* word) {
  if (text == nullptr) text = "";
  if (word == nullptr) word = "";
  text = SkipSpace(text);
  size_t length = std::strlen(word);
  if (strncasecmp(text, word, length) != 0) return 0;
  return *SkipSpace(text + length) == '\0';
}

int ktIsEmptyString(const char* text) {
  return text == nullptr || *SkipSpace(text) == '\0';
}

char* lcp_stristr(const char* haystack, const char* needle) {
  if (needle == nullptr || *needle == '\0' || needle == haystack)
    return const_cast<char*>(haystack);
  if (haystack == nullptr) return nullptr;  // empty: no needle fits
  size_t length = std::strlen(haystack);
  size_t needleLength = std::strlen(needle);
  for (size_t i = 0; i + needleLength <= length; ++i)
    if (UpperEqual(haystack + i, needle, needleLength)) return const_cast<char*>(haystack + i);
  return nullptr;
}

}  // extern "C"
