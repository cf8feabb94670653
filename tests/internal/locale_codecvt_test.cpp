// Code-page conversion stand-ins, checked against ICU, and the message
// catalogue.
#include "internal/locale_codecvt.h"

#include <gtest/gtest.h>

#include <random>
#include <unicode/ustring.h>
#include <string>

#include "internal/message_catalog.h"

namespace {

// ICU's UTF-16 -> UTF-8 conversion, unpaired surrogates becoming U+FFFD.
std::string IcuUtf8(const std::u16string& s) {
  std::string out(3 * s.size() + 1, '\0');
  int32_t length = 0;
  UErrorCode status = U_ZERO_ERROR;
  u_strToUTF8WithSub(&out[0], static_cast<int32_t>(out.size()), &length, s.data(),
                     static_cast<int32_t>(s.size()), 0xFFFD, nullptr, &status);
  out.resize(U_SUCCESS(status) ? static_cast<size_t>(length) : 0);
  return out;
}

TEST(LocaleCodecvt, Utf16ToUtf8MatchesIcuOnRandomText) {
  std::mt19937 rng(5);
  for (int round = 0; round < 500; ++round) {
    std::u16string s;
    size_t n = rng() % 40;
    for (size_t i = 0; i < n; ++i) {
      switch (rng() % 4) {
        case 0: s += static_cast<char16_t>(1 + rng() % 0x7F); break;
        case 1: s += static_cast<char16_t>(0x80 + rng() % 0x780); break;
        case 2: s += static_cast<char16_t>(0xD800 + rng() % 0x800); break;  // surrogates, paired or not
        default: s += static_cast<char16_t>(0xE000 + rng() % 0x1FFF); break;
      }
    }
    EXPECT_EQ(cx::i18n::ustring_to_utf8(s), IcuUtf8(s)) << round;
  }
}

TEST(LocaleCodecvt, Latin1RoundTripsThroughUtf16) {
  std::string all;
  for (int b = 1; b < 256; ++b) all += static_cast<char>(b);
  cx::ustring u = cx::i18n::codecvt_string_to_ustring(all, "ISO-8859-1");
  ASSERT_EQ(u.size(), all.size());
  for (size_t i = 0; i < u.size(); ++i) EXPECT_EQ(u[i], static_cast<unsigned char>(all[i]));
  EXPECT_EQ(cx::i18n::ustring_to_utf8(cx::i18n::codecvt_string_to_ustring("caf\xE9", "ISO-8859-1")),
            "caf\xC3\xA9");
  // An unknown code page reads as Latin-1 rather than losing the text.
  EXPECT_EQ(cx::i18n::codecvt_string_to_ustring("\xE9", "no-such-codepage"), u"\u00E9");
  EXPECT_TRUE(cx::i18n::codecvt_string_to_ustring("", "UTF-8").empty());
}

// The hand-written validators must agree with ICU's u_strFromUTF8 on
// random byte strings biased towards the tricky lead and trail bytes
// (overlong forms, encoded surrogates, cut sequences, bytes past F4).
bool IcuValid(const std::string& s) {
  int32_t needed = 0;
  UErrorCode status = U_ZERO_ERROR;
  u_strFromUTF8(nullptr, 0, &needed, s.data(), static_cast<int32_t>(s.size()), &status);
  return status != U_INVALID_CHAR_FOUND;
}

TEST(LocaleCodecvt, WellFormedUtf8AgreesWithIcu) {
  std::mt19937 rng(11);
  const unsigned char interesting[] = {0x41, 0x7F, 0x80, 0x8F, 0x90, 0x9F, 0xA0, 0xBF, 0xC0,
                                       0xC1, 0xC2, 0xDF, 0xE0, 0xED, 0xEF, 0xF0, 0xF4, 0xF5, 0xFF};
  int invalid = 0;
  for (int round = 0; round < 20000; ++round) {
    std::string s;
    size_t n = rng() % 24;
    for (size_t i = 0; i < n; ++i) {
      unsigned char b = rng() % 2 ? interesting[rng() % sizeof interesting]
                                  : static_cast<unsigned char>(1 + rng() % 255);
      s += static_cast<char>(b);
    }
    bool icu = IcuValid(s);
    invalid += icu ? 0 : 1;
    EXPECT_EQ(cx::i18n::is_well_formed_utf8(s.data(), s.size()), icu) << round;
    EXPECT_EQ(cx::i18n::is_valid_utf8(s.data(), s.size()), icu) << round;
  }
  EXPECT_GT(invalid, 1000);  // both answers were exercised
  std::string ascii(1000, 'a');
  EXPECT_TRUE(cx::i18n::is_well_formed_utf8(ascii.data(), ascii.size()));
}

TEST(LocaleCodecvt, SystemCodepageIsQueriedOnceAndCanBeReplaced) {
  const std::string& first = cx::i18n::system_codepage();
  EXPECT_FALSE(first.empty());
  EXPECT_EQ(&cx::i18n::system_codepage(), &first);
  std::string saved = first;
  cx::i18n::set_system_codepage("ISO-8859-1");
  EXPECT_EQ(cx::i18n::system_codepage(), "ISO-8859-1");
  cx::i18n::set_system_codepage(saved.c_str());
}

TEST(MessageCatalog, KnownAndUnknownKeys) {
  EXPECT_TRUE(cx::i18n::MessageCatalog::has_message("bedrock_legacy:messages", "nomem"));
  EXPECT_FALSE(cx::i18n::MessageCatalog::get_message("bedrock_legacy:messages", "nomem").empty());
  EXPECT_FALSE(cx::i18n::MessageCatalog::has_message("bedrock_legacy:messages", "nope"));
  EXPECT_EQ(cx::i18n::MessageCatalog::get_message("cat", "nope"), u"cat/nope");
}

}  // namespace
