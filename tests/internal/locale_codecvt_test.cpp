// Code-page conversion stand-ins, checked against a UTF-8 encoder written
// here from the definition, and the message catalogue.
#include "internal/locale_codecvt.h"

#include <gtest/gtest.h>

#include <random>
#include <unicode/ustring.h>
#include <string>

#include "internal/message_catalog.h"

namespace {

// Reference UTF-16 -> UTF-8 encoder (unpaired surrogates become U+FFFD).
std::string ReferenceUtf8(const std::u16string& s) {
  std::string out;
  auto put = [&](char32_t c) {
    if (c < 0x80) {
      out += static_cast<char>(c);
    } else if (c < 0x800) {
      out += static_cast<char>(0xC0 | (c >> 6));
      out += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
      out += static_cast<char>(0xE0 | (c >> 12));
      out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
      out += static_cast<char>(0xF0 | (c >> 18));
      out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
      out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (c & 0x3F));
    }
  };
  for (size_t i = 0; i < s.size(); ++i) {
    char16_t u = s[i];
    if (u >= 0xD800 && u < 0xDC00 && i + 1 < s.size() && s[i + 1] >= 0xDC00 && s[i + 1] < 0xE000) {
      put(0x10000 + ((static_cast<char32_t>(u) - 0xD800) << 10) + (s[i + 1] - 0xDC00));
      ++i;
    } else if (u >= 0xD800 && u < 0xE000) {
      put(0xFFFD);
    } else {
      put(u);
    }
  }
  return out;
}

TEST(LocaleCodecvt, Utf16ToUtf8MatchesReferenceOnRandomText) {
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
    EXPECT_EQ(cx::i18n::ustring_to_utf8(s), ReferenceUtf8(s)) << round;
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

TEST(LocaleCodecvt, Utf8Validity) {
  EXPECT_TRUE(cx::i18n::is_valid_utf8("plain", 5));
  EXPECT_TRUE(cx::i18n::is_valid_utf8("\xC3\xA9", 2));
  EXPECT_FALSE(cx::i18n::is_valid_utf8("\xE9", 1));
  EXPECT_FALSE(cx::i18n::is_valid_utf8("\xC3", 1));
  EXPECT_FALSE(cx::i18n::is_valid_utf8("\xED\xA0\x80", 3));  // an encoded surrogate
}

// The hand-written validator must agree with ICU's u_strFromUTF8 on
// random byte strings biased towards the tricky lead and trail bytes.
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
