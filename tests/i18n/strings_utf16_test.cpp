// Character classes against ICU over the whole code space, and the UTF-16
// functions' own rules (nulls, limits, truncation, orderings) by tables.
#include <unicode/uchar.h>

#include <string>

#include <gtest/gtest.h>

#include "kt/memory.h"
#include "kt/strings.h"

namespace {

using Class = int (*)(int);
uint32_t Category(int c) { return U_MASK(u_charType(c)); }

// Ours beside the oracle: ICU's predicates, and for isgraph and ispunct the
// sets built from ICU's named category masks.
const std::pair<Class, Class> kClasses[] = {
    {qvu_isalnum, [](int c) -> int { return u_isalnum(c); }},
    {qvu_isalpha, [](int c) -> int { return u_isalpha(c); }},
    {qvu_iscntrl, [](int c) -> int { return u_iscntrl(c); }},
    {qvu_isdigit, [](int c) -> int { return u_isdigit(c); }},
    {qvu_isgraph, [](int c) -> int { return (Category(c) & (U_GC_L_MASK | U_GC_M_MASK |
                       U_GC_N_MASK | U_GC_P_MASK | U_GC_S_MASK)) != 0; }},
    {qvu_islower, [](int c) -> int { return u_islower(c); }},
    {qvu_isprint, [](int c) -> int { return u_isprint(c); }},
    {qvu_ispunct, [](int c) -> int { return (Category(c) & U_GC_P_MASK) != 0; }},
    {qvu_isspace, [](int c) -> int { return u_isUWhiteSpace(c); }},
    {qvu_isbreakablespace, [](int c) -> int { return u_isWhitespace(c); }},
    {qvu_isupper, [](int c) -> int { return u_isupper(c); }},
    {qvu_isxdigit, [](int c) -> int { return u_isxdigit(c); }},
    {qvu_tolower, [](int c) -> int { return u_tolower(c); }},
    {qvu_toupper, [](int c) -> int { return u_toupper(c); }}};

std::u16string Str(const kt_utf16* s) { return s ? std::u16string(s) : u"<null>"; }

}  // namespace

TEST(CharClasses, MatchIcuOverTheWholeCodeSpaceAndBeyond) {
  EXPECT_EQ(qvu_isgraph(' ') + qvu_isgraph(0xE000), 0);  // separator, private use
  EXPECT_EQ(qvu_isgraph('$') + qvu_ispunct('!') + qvu_isgraph(0x0301), 3);
  for (size_t k = 0; k < std::size(kClasses); ++k)
    for (int c = -2; c <= 0x110001; ++c)
      if (kClasses[k].first(c) != kClasses[k].second(c))
        FAIL() << "class " << k << " of U+" << std::hex << c << ": " << kClasses[k].first(c);
}

TEST(Utf16, LengthsCopiesAndDuplicates) {
  const kt_utf16 text[] = u"abc\0de";
  EXPECT_EQ(utf16_strlen_lim(nullptr, 0) + utf16_strlen_lim(nullptr, -4), 0);
  EXPECT_EQ(utf16_strlen_lim(text, 2), 2);
  EXPECT_EQ(utf16_strlen_lim(text, 9), 3);  // the zero unit ends it
  EXPECT_EQ(utf16_strlen(text) + utf8_strlen(nullptr) + utf8_strlen("h\xC3\xA9"), 6);

  struct { const kt_utf16* text; int n; const char16_t* expected; } dups[] = {
      {text, 2, u"ab"}, {text, 6, u"abc"}, {text, 0, u""}, {text, -1, nullptr},
      {nullptr, 3, nullptr}};
  for (const auto& d : dups) {
    kt_utf16* copy = utf16_strndup(d.text, d.n);
    EXPECT_EQ(Str(copy), Str(d.expected)) << d.n;
    ktFree(copy);
  }
  kt_utf16* whole = utf16_strdup(u"\U0001F600x");
  EXPECT_EQ(Str(whole), u"\U0001F600x");
  ktFree(whole);
  EXPECT_EQ(utf16_strdup(nullptr), nullptr);

  kt_utf16 buffer[8] = u"#######";
  utf16_strncpy(buffer, u"xyz", 2);  // cut copy: no terminator
  EXPECT_EQ(Str(buffer), u"xy#####");
  utf16_strcpy(buffer, u"ab");
  EXPECT_EQ(Str(utf16_strncat(buffer, u"cdef", 2)), u"abcd");
}

TEST(Utf16, OrderingsAndSearches) {
  const kt_utf16 pair[] = u"\U0001F600";  // D83D DE00: below U+FFFD by units, above by code point
  EXPECT_LT(utf16_strcmp(pair, u"\uFFFD"), 0);
  EXPECT_GT(utf16_strcmp_n_codepoint(pair, -1, u"\uFFFD", -1), 0);
  EXPECT_EQ(utf16_strcmp_n_codepoint(u"abX", 2, u"abY", 2), 0);
  EXPECT_EQ(utf16_stricmp(u"Stra\u00DFe", u"STRASSE") | utf16_strnicmp(u"abC", u"ABc", 3), 0);
  EXPECT_EQ(utf16_strncmp(u"abC", u"abc", 2), 0);
  EXPECT_NE(utf16_strncmp(u"abC", u"abc", 3), 0);

  const kt_utf16 text[] = u"a\U0001F600ba\U0001F600b";
  const kt_utf16 smile[] = u"\U0001F600b";
  struct { kt_utf16* found; int offset; } searches[] = {
      {utf16_strchr(text, 0x1F600), 1}, {utf16_strchr(text, 0xDE00), -1},
      {utf16_strchr(text, 0), 8},       {utf16_strnchr(text, u'a', 8), 0},
      {utf16_strnrchr(text, u'a', 8), 4}, {utf16_strnrchr(text, u'a', 4), 0},
      {utf16_strnchr(text, u'a', 0), -1}, {utf16_strnstr(text, -1, smile, -1), 1},
      {utf16_strnrstr(text, -1, smile, -1), 5},
      {utf16_strnrstr(text, 7, smile, -1), 1},  // the last one is cut off
      {utf16_strnstr(text, -1, u"\xDE00" "b", -1), -1},   // would split a pair
      {utf16_strnstr(text, -1, u"", 0), 0}, {utf16_strnstr(nullptr, -1, u"a", -1), -1}};
  for (size_t k = 0; k < std::size(searches); ++k)
    EXPECT_EQ(searches[k].found, searches[k].offset < 0 ? nullptr : text + searches[k].offset) << k;
}

TEST(Utf16, FormattingReturnsTheWholeLengthWhenCutAndScans) {
  kt_utf16 buffer[8];
  std::fill(buffer, buffer + 8, u'#');
  EXPECT_EQ(utf16_snprintf(buffer, 4, "%d-%S", 12345, u"ab"), 8);  // ICU alone says 7
  EXPECT_EQ(std::u16string(buffer, 5), u"1234#");                   // and no terminator
  EXPECT_EQ(utf16_snprintf(buffer, 8, "%s%C", "x", u'\u00E9'), 2);
  EXPECT_EQ(Str(buffer), u"x\u00E9");

  int number = 0;
  kt_utf16 word[8];
  EXPECT_EQ(utf16_sscanf(u" 42 w\u00F6rd", "%d %S", &number, word), 2);
  EXPECT_EQ(number, 42);
  EXPECT_EQ(Str(word), u"w\u00F6rd");
}

TEST(SevenBit, LengthNullAndTerminatorRules) {
  struct { const char* text; const kt_utf16* units; int length; int expected; } cases[] = {
      {"abc", u"abc", -1, 1},     {"ab\x80", u"ab\u0080", -1, 0}, {"ab\x80", u"ab\u0080", 2, 1},
      {"ab\xFF", u"ab\u00FF", 3, 0}, {nullptr, nullptr, 5, 1},      {nullptr, nullptr, -1, 1},
      {"\x80", u"\u0100", 0, 1},  {"\x80", u"\u0100", -7, 1}};
  for (const auto& c : cases) {
    EXPECT_EQ(lcp_is_7bit(c.text, c.length), c.expected) << c.length;
    EXPECT_EQ(utf16_is_7bit(c.units, c.length), c.expected) << c.length;
  }
}
