// lcp_strchr and mpath_pathname_index in multibyte default encodings,
// against a model that decodes one character at a time with ICU's
// ucnv_getNextUChar and so knows where every character starts.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "i18n/encoding_peers.h"
#include "kt/encodings.h"

namespace {

using Quivera::I18N::AutoRestoreUnicodeConverterName;

// Where the characters equal to `c` start, decoding one character at a
// time; false when `strict` and a sequence does not decode (otherwise ICU
// substitutes it).
bool Starts(const char* encoding, const std::string& bytes, bool strict, UChar32 c,
            std::vector<int>* starts) {
  peers::Converter converter = peers::Open(encoding);
  UErrorCode status = U_ZERO_ERROR;
  if (strict)
    ucnv_setToUCallBack(converter.get(), UCNV_TO_U_CALLBACK_STOP, nullptr, nullptr, nullptr,
                        &status);
  for (const char *p = bytes.data(), *end = p + bytes.size(); p < end;) {
    int start = static_cast<int>(p - bytes.data());
    status = U_ZERO_ERROR;
    if (ucnv_getNextUChar(converter.get(), &p, end, &status) == c) starts->push_back(start);
    if (U_FAILURE(status)) return false;
  }
  return true;
}

int ModelLastSlash(const char* encoding, const std::string& bytes) {
  std::vector<int> starts;
  return Starts(encoding, bytes, true, '/', &starts) && !starts.empty() ? starts.back() : -1;
}

int ModelStrchr(const char* encoding, const std::string& bytes, int c) {
  std::vector<int> starts;
  if (c < 0 || c > 127) return -1;
  if (c == 0) return static_cast<int>(bytes.size());
  Starts(encoding, bytes, false, c, &starts);
  return starts.empty() ? -1 : starts.front();
}

// Characters whose encoding holds a 7-bit byte that is not the character
// itself: a byte-wise search would find '\', '/', '@' or a digit in them.
std::vector<char32_t> Lookalikes(const peers::Encoding& e) {
  peers::Converter c = peers::Open(e.icu);
  std::vector<char32_t> found;
  for (char32_t cp : peers::Repertoire(e)) {
    std::u16string one;
    peers::Append(&one, cp);
    std::string bytes = peers::IcuFromUtf16(c.get(), one);
    if (cp >= 0x80 && std::any_of(bytes.begin(), bytes.end(), [](char b) { return b >= 0; }))
      found.push_back(cp);
  }
  return found;
}

// Text mixing separators, lookalikes and other characters, sometimes with
// a stray byte that does not decode; `ascii` keeps it 7-bit.
std::string RandomBytes(const peers::Encoding& e, const std::vector<char32_t>& lookalikes,
                        bool ascii, std::mt19937& rng) {
  static const char kSeparators[] = "/\\@A05|";
  const auto& pool = peers::Repertoire(e);
  std::u16string text;
  size_t chars = rng() % 600;
  for (size_t i = 0; i < chars; ++i) {
    unsigned pick = rng() % 3;
    if (ascii || pick == 0)
      text += static_cast<char16_t>(kSeparators[rng() % (sizeof kSeparators - 1)]);
    else if (pick == 1 && !lookalikes.empty())
      peers::Append(&text, lookalikes[rng() % lookalikes.size()]);
    else
      peers::Append(&text, pool[rng() % pool.size()]);
  }
  std::string bytes = peers::IcuFromUtf16(peers::Open(e.icu).get(), text);
  if (!ascii && rng() % 4 == 0 && !bytes.empty())
    bytes.insert(rng() % bytes.size(), 1, static_cast<char>(0x80 + rng() % 0x80));
  return bytes;
}

TEST(ConverterSearch, MatchesCharacterModelInMultibyteDefaults) {
  std::mt19937 rng(17);
  const struct {
    const char* name;
    bool lookalikes;  // has 7-bit bytes inside other characters
  } cases[] = {{"Shift_JIS", true}, {"GB18030", true}, {"Big5", true},
               {"UTF-16LE", true},  {"EUC-JP", false}, {"UTF-8", false}};
  for (const auto& c : cases) {
    const char* name = c.name;
    SCOPED_TRACE(name);
    const peers::Encoding* e = nullptr;
    for (const auto& candidate : peers::Encodings())
      if (std::strcmp(candidate.icu, name) == 0) e = &candidate;
    std::vector<char32_t> lookalikes = Lookalikes(*e);
    ASSERT_EQ(!lookalikes.empty(), c.lookalikes);
    AutoRestoreUnicodeConverterName scope(name);
    for (int round = 0; round < 300; ++round) {
      std::string bytes = RandomBytes(*e, lookalikes, round % 10 == 0, rng);
      SCOPED_TRACE(round);
      ASSERT_EQ(mpath_pathname_index(bytes.data(), static_cast<int>(bytes.size())),
                ModelLastSlash(name, bytes));
      if (bytes.find('\0') != std::string::npos) continue;  // UTF-16
      ASSERT_EQ(mpath_pathname_index(bytes.c_str(), -1), ModelLastSlash(name, bytes));
      for (int ch : std::vector<int>{'/', '\\', '@', 'A', '0', '5', '|', 0, 200, -1}) {
        const char* hit = lcp_strchr(bytes.c_str(), ch);
        ASSERT_EQ(hit ? static_cast<int>(hit - bytes.c_str()) : -1, ModelStrchr(name, bytes, ch))
            << "c=" << ch;
      }
    }
  }
}

TEST(ConverterSearch, EdgeCases) {
  AutoRestoreUnicodeConverterName scope("Shift_JIS");
  const std::string table = "\x95\x5c/";  // U+8868 (trail byte '\') then '/'
  EXPECT_EQ(lcp_strchr(table.c_str(), '\\'), nullptr);
  EXPECT_EQ(lcp_strchr(table.c_str(), '/'), table.c_str() + 2);
  EXPECT_EQ(mpath_pathname_index(table.c_str(), -1), 2);
  EXPECT_EQ(mpath_pathname_index(table.c_str(), 2), -1);    // the length bounds the text
  EXPECT_EQ(mpath_pathname_index("a/b\x95", -1), -1);       // incomplete character
  EXPECT_EQ(mpath_pathname_index(nullptr, 4), -1);
  EXPECT_EQ(mpath_pathname_index("a/b", -2), -1);
  EXPECT_EQ(lcp_strchr(nullptr, '/'), nullptr);
}

}  // namespace
