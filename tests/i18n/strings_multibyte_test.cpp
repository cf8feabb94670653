// The multibyte stepping and search functions in real locales: the lead
// bytes, traps where a trail byte equals the byte sought, and every byte a
// character in the single-byte locales. Stepping and searching on arbitrary
// text against an mbrtowc model is fuzz/strings_fuzz.cpp's.
#include <cctype>
#include <clocale>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "kt/strings.h"

namespace {

struct LocaleCase {
  const char* name;
  bool multibyte;
  std::vector<std::pair<int, int>> leads;  // byte, ktIsMultiByteLead
  const char* trailTrap;                    // a character ending in '\\', then '\\'
};

class MultiByte : public ::testing::TestWithParam<LocaleCase> {
 protected:
  void SetUp() override {
    if (std::setlocale(LC_ALL, GetParam().name) == nullptr)
      GTEST_SKIP() << "locale " << GetParam().name << " missing (scripts/deps.sh generates it)";
  }
  void TearDown() override { std::setlocale(LC_ALL, "C"); }
};

}  // namespace

TEST_P(MultiByte, CharacterSetLeadBytesAndTrailTraps) {
  const LocaleCase& locale = GetParam();
  EXPECT_EQ(ktIsMultiByteCharSet(), locale.multibyte ? 1 : 0);
  for (const auto& lead : locale.leads)
    EXPECT_EQ(ktIsMultiByteLead(lead.first), lead.second) << std::hex << lead.first;
  if (const char* trap = locale.trailTrap) {
    const char* backslash = trap + std::strlen(trap) - 1;
    EXPECT_EQ(ktMultiByteStrChr(trap, '\\'), backslash);
    EXPECT_EQ(ktMultiByteStrrChr(trap, '\\'), backslash);
    EXPECT_EQ(ktMultiByteStrStr(trap, "\\"), backslash);
    EXPECT_EQ(ktMultiBytePrevChar(trap, backslash), trap);
    EXPECT_EQ(ktMultiBytePrevChar(trap, trap + 1), trap) << "from inside a character";
  }
  if (!locale.multibyte) {  // high bytes that would lead a character elsewhere
    const char* text = "\xC3\xA9\x81\\\xA4";
    for (int i = 0; i < 5; ++i) {
      EXPECT_EQ(ktMultiByteNextChar(text + i), text + i + 1);
      EXPECT_EQ(ktMultiBytePrevChar(text, text + i + 1), text + i);
    }
    EXPECT_EQ(ktMultiByteStrChr(text, '\\'), text + 3);
  }
  EXPECT_EQ(ktMultiByteNextChar(nullptr), nullptr);
  EXPECT_EQ(ktMultiByteStrChr(nullptr, 'a'), nullptr);
  EXPECT_EQ(ktMultiByteStrStr("a", nullptr), nullptr);
}

INSTANTIATE_TEST_SUITE_P(
    Locales, MultiByte,
    ::testing::Values(
        LocaleCase{"ja_JP.EUC-JP", true, {{0xA4, 1}, {0x8E, 1}, {0x8F, 0}, {'A', 0}}, nullptr},
        LocaleCase{"zh_CN.GB18030", true, {{0x81, 1}, {0xFE, 1}, {0x80, 0}, {'\\', 0}},
                   "\x81\x5C\\"},
        LocaleCase{"en_US.UTF-8", true, {{0xC3, 1}, {0xE3, 0}, {0xA1, 0}}, nullptr},
        LocaleCase{"en_US.ISO-8859-1", false, {{0xA4, 0}, {0xC3, 0}}, nullptr},
        LocaleCase{"C", false, {{0xA4, 0}}, nullptr}),
    [](const ::testing::TestParamInfo<LocaleCase>& p) {
      std::string name = p.param.name;
      for (char& c : name) c = std::isalnum(static_cast<unsigned char>(c)) ? c : '_';
      return name;
    });
