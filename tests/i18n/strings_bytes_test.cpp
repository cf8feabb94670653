// Byte-string utilities: the null, length and cut rules by tables, the
// pattern match's degenerate patterns and the line reader over every line
// end (fuzz/strings_fuzz.cpp checks the pattern match against a
// dynamic-programming model, the line reader on arbitrary text and the
// cuts of the fixed-field and ellipsis copies at every size).
#include <cstdio>
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "kt/memory.h"
#include "kt/strings.h"

namespace {

std::string S(const char* s) { return s ? s : "<null>"; }

}  // namespace

TEST(PatternMatch, NullEmptyAndManyStars) {
  EXPECT_TRUE(ktPatternMatch(nullptr, "x", 1) && ktPatternMatch("", "x", 1));
  EXPECT_TRUE(ktPatternMatch("*", nullptr, 1) && ktPatternMatch("a*", "A", 0));
  EXPECT_FALSE(ktPatternMatch("a", nullptr, 1) || ktPatternMatch("a*", "A", 1));
  // Would take 2^40 steps tried star by star, and a deep stack by recursion.
  std::string stars, text(5000, 'a');
  for (int i = 0; i < 40; ++i) stars += "*a";
  EXPECT_FALSE(ktPatternMatch((stars + "b").c_str(), text.c_str(), 1));
  EXPECT_TRUE(ktPatternMatch((std::string(100000, '*') + "a").c_str(), text.c_str(), 1));
}

TEST(Fgets, EveryLineEndBecomesOneLfAtEverySize) {
  char input[] = "ab\r\ncd\ref\n\rgh\r\rij\r\n";
  FILE* f = fmemopen(input, sizeof input - 1, "r");
  char line[16] = "#";
  for (const char* expected : {"ab\n", "cd\n", "ef\n", "\n", "gh\n", "\n", "ij\n"})
    EXPECT_EQ(S(ktFgets(line, sizeof line, f)), expected);
  EXPECT_EQ(ktFgets(line, sizeof line, f), nullptr);
  rewind(f);
  for (const char* expected : {"ab", "\n", "cd", "\n"})  // cut before the CR LF and the CR
    EXPECT_EQ(S(ktFgets(line, 3, f)), expected);
  EXPECT_EQ(ktFgets(line, 0, f), nullptr);
  EXPECT_EQ(ktFgets(line, 1, f), line);
  EXPECT_EQ(line[0] | (ktFgets(line, 3, nullptr) != nullptr), 0);
  fclose(f);
}

TEST(ByteStrings, EllipsesCopiesDuplicatesAndSearches) {
  using namespace std::string_literals;
  char buffer[16];
  struct { const char* src; size_t n; std::string written; } cuts[] = {  // return values
      {"0123456789", 8, "0123...\0"s}, {"0123456789", 11, "0123456789\0"s},
      {"0123456789", 3, "012"} /* below 4: unterminated */, {nullptr, 5, "\0"s}};
  for (const auto& c : cuts) {
    std::memset(buffer, '#', sizeof buffer);
    EXPECT_EQ(ktStrncpyWithEllipses(buffer, c.src, c.n), buffer);
    EXPECT_EQ(std::string(buffer, c.written.size() + 1), c.written + '#') << S(c.src) << c.n;
  }
  EXPECT_EQ(ktStrlen(nullptr) + ktStrlen(ktStrcpy(buffer, nullptr)), 0u);
  std::memset(buffer, '#', sizeof buffer);
  EXPECT_EQ(std::string(ktStrncpy(buffer, nullptr, 3), 4), std::string("\0\0\0#", 4));

  struct { const char* text; size_t n; const char* expected; } dups[] = {
      {"hello", 3, "hel"}, {"hi", 9, "hi"}, {"hi", 0, ""}, {nullptr, 3, nullptr}};
  for (const auto& d : dups) {
    char* copy = ktStrndup(d.text, d.n);
    EXPECT_EQ(S(copy), S(d.expected));
    ktFree(copy);
  }
  char* copy = ktStrdup("teXt");
  EXPECT_EQ(S(ktLowerCase(ktStrrep('t', 'T', copy))), "text");
  ktFree(copy);
  EXPECT_EQ(ktStrdup(nullptr), nullptr);

  const char* hay = "abcabcab";
  struct { const char* hay; const char* needle; const char* last; const char* upper; } finds[] = {
      {hay, "ab", hay + 6, hay}, {hay, "abcabc", hay, hay}, {hay, "CABCAB", nullptr, hay + 2},
      {hay, "", hay + 8, hay},   {hay, "abcabcabc", nullptr, nullptr}, {hay, nullptr, nullptr, hay},
      {nullptr, "a", nullptr, nullptr}, {"x\xE9y", "\xC9", nullptr, nullptr}, {hay, hay, hay, hay}};
  for (const auto& f : finds) {
    EXPECT_EQ(ktStrrstr(f.hay, f.needle), f.last) << S(f.needle);
    EXPECT_EQ(lcp_stristr(f.hay, f.needle), f.upper) << S(f.needle);
  }
}

TEST(ByteStrings, WordBlankCaseAndFixedFieldRules) {
  struct { const char* text; const char* word; int expected; } words[] = {
      {"  Yes \t", "yes", 1}, {"yes", "YES", 1}, {"yesno", "yes", 0}, {"yes x", "yes", 0},
      {" \n", nullptr, 1},    {nullptr, "", 1},  {nullptr, "a", 0},   {"ye", "yes", 0}};
  for (const auto& w : words) EXPECT_EQ(ktStrmatchi(w.text, w.word), w.expected) << S(w.text);
  EXPECT_EQ(ktIsEmptyString(nullptr) + ktIsEmptyString("") + ktIsEmptyString(" \t\r\n\v\f"), 3);
  EXPECT_EQ(ktIsEmptyString(" x "), 0);

  char out[8];
  struct { const char* src; size_t capacity; const char* expected; } lower[] = {
      {"AbC\xC9Z", 8, "abc\xC9z"}, {"ABCDEFGHIJ", 4, "abc"}, {"AB", 0, ""}, {nullptr, 8, ""}};
  for (const auto& l : lower) EXPECT_EQ(S(ktLowerCaseCopy(out, l.src, l.capacity)), l.expected);

  EXPECT_EQ(S(ktF2cstr(nullptr, 4, out, 8, 1)), "");
  EXPECT_EQ(S(ktF2cstr("ab", 2, out, 0, 1)), "");  // capacity 0: the "" stored before stays
  std::memset(out, '#', sizeof out);
  EXPECT_EQ(std::string(ktC2fstr(nullptr, out, 2), 3), "  #");
}
