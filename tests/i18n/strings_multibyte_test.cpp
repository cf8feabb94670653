// The multibyte stepping and search functions in real locales, against a
// model that cuts random valid and invalid byte strings into characters
// with mbrtowc. In the single-byte locales that model makes every byte a
// character, so there they must be the plain byte operations.
#include <cctype>
#include <climits>
#include <clocale>
#include <cstring>
#include <cwchar>
#include <random>
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

// Bytes of the character at text[i], decoding from the whole rest.
size_t ModelLength(const std::string& text, size_t i) {
  std::mbstate_t state{};
  size_t n = std::mbrtowc(nullptr, text.data() + i, text.size() - i, &state);
  return n == 0 || n > text.size() ? 1 : n;  // invalid (-1) or cut short (-2): one byte
}

// Characters from several scripts, now and then cut short, between ASCII
// bytes and stray high bytes; no zero bytes.
std::string RandomText(std::mt19937& rng) {
  static const std::pair<wchar_t, wchar_t> ranges[] = {
      {0xA0, 0xFF}, {0x391, 0x451}, {0x3041, 0x30FF}, {0x4E00, 0x9FFF}, {0xFF61, 0xFF9F},
      {0x10000, 0x2FFFF}};
  std::string text;
  for (int k = rng() % 12; k > 0; --k) {
    if (rng() % 2) {
      text += rng() % 2 ? "Az\\@|~"[rng() % 6] : static_cast<char>(0x80 + rng() % 128);
      continue;
    }
    const auto& range = ranges[rng() % 6];
    char bytes[MB_LEN_MAX];
    std::mbstate_t state{};
    size_t n = std::wcrtomb(bytes, range.first + rng() % (range.second - range.first), &state);
    if (n != static_cast<size_t>(-1)) text.append(bytes, rng() % 8 ? n : 1 + rng() % n);
  }
  return text;
}

void CheckAgainstModel(const std::string& text, std::mt19937& rng, bool multibyte) {
  const char* s = text.c_str();
  std::vector<size_t> starts;  // of every character, then the end
  for (size_t i = 0; i < text.size(); i += ModelLength(text, i)) starts.push_back(i);
  starts.push_back(text.size());
  ASSERT_TRUE(multibyte || starts.size() == text.size() + 1) << "model in a single-byte locale";

  for (size_t p = 0, k = 0; p <= text.size(); ++p) {
    while (k + 1 < starts.size() && starts[k + 1] < p) ++k;  // starts[k] < p <= starts[k + 1]
    size_t next = p == text.size() ? p : p + ModelLength(text, p);
    ASSERT_EQ(ktMultiByteNextChar(s + p), s + next) << "next at " << p;
    ASSERT_EQ(ktMultiBytePrevChar(s, s + p), s + (p ? starts[k] : 0)) << "prev at " << p;
  }

  size_t from = text.empty() ? 0 : rng() % text.size();
  std::string needle = text.substr(from, 1 + rng() % 4);
  char wanted[] = {'\0', text.empty() ? 'A' : text[from], "Az\\"[rng() % 3]};
  for (char c : wanted) {
    const char *first = c ? nullptr : s + text.size(), *last = first, *found = nullptr;
    for (size_t k = 0; k + 1 < starts.size(); ++k) {
      const char* at = s + starts[k];
      if (starts[k + 1] - starts[k] == 1 && *at == c) last = at, first = first ? first : at;
      if (!found && std::strncmp(at, needle.c_str(), needle.size()) == 0) found = at;
    }
    ASSERT_EQ(ktMultiByteStrChr(s, c), first) << "byte " << int(c);
    ASSERT_EQ(ktMultiByteStrrChr(s, c), last) << "byte " << int(c);
    ASSERT_EQ(ktMultiByteStrStr(s, needle.c_str()), needle.empty() ? s : found) << from;
  }
}

class MultiByte : public ::testing::TestWithParam<LocaleCase> {
 protected:
  void SetUp() override {
    if (std::setlocale(LC_ALL, GetParam().name) == nullptr)
      GTEST_SKIP() << "locale " << GetParam().name << " missing (scripts/deps.sh generates it)";
  }
  void TearDown() override { std::setlocale(LC_ALL, "C"); }
};

}  // namespace

TEST_P(MultiByte, StepsAndSearchesLikeTheModelOnRandomText) {
  std::mt19937 rng(11);
  for (int round = 0; round < 3000 && !HasFatalFailure(); ++round) {
    std::string text = RandomText(rng);
    SCOPED_TRACE(::testing::PrintToString(text));
    CheckAgainstModel(text, rng, GetParam().multibyte);
  }
}

TEST_P(MultiByte, CharacterSetLeadBytesAndTrailTraps) {
  const LocaleCase& locale = GetParam();
  EXPECT_EQ(ktIsMultiByteCharSet(), locale.multibyte ? 1 : 0);
  for (const auto& lead : locale.leads)
    EXPECT_EQ(ktIsMultiByteLead(lead.first), lead.second) << std::hex << lead.first;
  if (const char* trap = locale.trailTrap) {
    const char* backslash = trap + std::strlen(trap) - 1;
    EXPECT_EQ(ktMultiByteStrChr(trap, '\\'), backslash);
    EXPECT_EQ(ktMultiByteStrStr(trap, "\\"), backslash);
    EXPECT_EQ(ktMultiBytePrevChar(trap, backslash), trap);
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
