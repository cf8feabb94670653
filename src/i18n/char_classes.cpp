// Unicode character classes and case mapping of single code points.
#include <unicode/uchar.h>

#include <cstdint>

#include "kt/strings.h"

namespace {

// Sets of general categories (u_charType values) as bit masks over the
// category number.
// Letters, marks, numbers (1-11), punctuation and symbols (19-30).
constexpr uint32_t kGraphCategories = 0x7FF80FFEu;
// Dash, open, close, connector, other (19-23), initial, final (28, 29).
constexpr uint32_t kPunctCategories = 0x30F80000u;

int InCategories(int c, uint32_t mask) {
  int category = u_charType(c);  // 0 (unassigned) outside the code space
  return (mask >> category) & 1u;
}

}  // namespace

extern "C" {

int qvu_isalnum(int c) { return u_isalnum(c) ? 1 : 0; }
int qvu_isalpha(int c) { return u_isalpha(c) ? 1 : 0; }
int qvu_iscntrl(int c) { return u_iscntrl(c) ? 1 : 0; }
int qvu_isdigit(int c) { return u_isdigit(c) ? 1 : 0; }
int qvu_isgraph(int c) { return InCategories(c, kGraphCategories); }
int qvu_islower(int c) { return u_islower(c) ? 1 : 0; }
int qvu_isprint(int c) { return u_isprint(c) ? 1 : 0; }
int qvu_ispunct(int c) { return InCategories(c, kPunctCategories); }
int qvu_isspace(int c) { return u_isUWhiteSpace(c) ? 1 : 0; }
int qvu_isbreakablespace(int c) { return u_isWhitespace(c) ? 1 : 0; }
int qvu_isupper(int c) { return u_isupper(c) ? 1 : 0; }
int qvu_isxdigit(int c) { return u_digit(c, 16) != -1 ? 1 : 0; }
int qvu_tolower(int c) { return u_tolower(c); }
int qvu_toupper(int c) { return u_toupper(c); }

}  // extern "C"
