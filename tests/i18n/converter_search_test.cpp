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

// The model: where the characters equal to `c` start, decoding one
// character at a time; none when `strict` and a sequence does not decode
// (otherwise ICU substitutes it).
std::vector<int> Starts(const char* encoding, const std::string& bytes, bool strict, UChar32 c) {
  peers::Converter converter = peers::Open(encoding);
  UErrorCode status = U_ZERO_ERROR;
  if (strict)
    ucnv_setToUCallBack(converter.get(), UCNV_TO_U_CALLBACK_STOP, nullptr, nullptr, nullptr,
                        &status);
  std::vector<int> starts;
  for (const char *p = bytes.data(), *end = p + bytes.size(); p < end && U_SUCCESS(status);) {
    int start = static_cast<int>(p - bytes.data());
    if (ucnv_getNextUChar(converter.get(), &p, end, &status) == c) starts.push_back(start);
  }
  return strict && U_FAILURE(status) ? std::vector<int>() : starts;
}

int ModelLastSlash(const char* encoding, const std::string& bytes) {
  std::vector<int> starts = Starts(encoding, bytes, true, '/');
  return starts.empty() ? -1 : starts.back();
}

int ModelStrchr(const char* encoding, const std::string& bytes, int c) {
  if (c <= 0 || c > 127) return c == 0 ? static_cast<int>(bytes.size()) : -1;
  std::vector<int> starts = Starts(encoding, bytes, false, c);
  return starts.empty() ? -1 : starts.front();
}

// Characters whose encoding holds a 7-bit byte that is not the character
// itself: a byte-wise search would find '\\', '/', '@' or a digit in them.
std::vector<char32_t> Lookalikes(const char* encoding) {
  peers::Converter c = peers::Open(encoding);
  std::vector<char32_t> found;
  for (char32_t cp : peers::Repertoire(encoding)) {
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
std::string RandomBytes(const char* encoding, const std::vector<char32_t>& lookalikes,
                        bool ascii, std::mt19937& rng) {
  static const char kSeparators[] = "/\\@A05|";
  const auto& pool = peers::Repertoire(encoding);
  std::u16string text;
  for (size_t i = rng() % 600; i > 0; --i) {
    unsigned pick = rng() % 3;
    if (ascii || pick == 0)
      text += static_cast<char16_t>(kSeparators[rng() % (sizeof kSeparators - 1)]);
    else
      peers::Append(&text, pick == 1 && !lookalikes.empty() ? lookalikes[rng() % lookalikes.size()]
                                                            : pool[rng() % pool.size()]);
  }
  std::string bytes = peers::IcuFromUtf16(peers::Open(encoding).get(), text);
  if (!ascii && rng() % 4 == 0 && !bytes.empty())
    bytes.insert(rng() % bytes.size(), 1, static_cast<char>(0x80 + rng() % 0x80));
  return bytes;
}

TEST(ConverterSearch, MatchesCharacterModelInMultibyteDefaults) {
  std::mt19937 rng(17);
  // The first four have 7-bit bytes inside other characters.
  for (const char* name : {"Shift_JIS", "GB18030", "Big5", "UTF-16LE", "EUC-JP", "UTF-8"}) {
    SCOPED_TRACE(name);
    std::vector<char32_t> lookalikes = Lookalikes(name);
    ASSERT_EQ(lookalikes.empty(), name[0] == 'E' || std::strcmp(name, "UTF-8") == 0);
    AutoRestoreUnicodeConverterName scope(name);
    for (int round = 0; round < 300; ++round) {
      std::string bytes = RandomBytes(name, lookalikes, round % 10 == 0, rng);
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
