// The C conversion functions and FromUTF16Converter against ICU called
// directly and against glibc's iconv, on random text of every plane. The
// bounded forms at every capacity, guarded against writes past it, are
// fuzz/unicode_fuzz.cpp's (all of them share one implementation).
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <random>
#include <string>

#include "i18n/encoding_peers.h"
#include "kt/encodings.h"
#include "kt/memory.h"

namespace {

using Quivera::I18N::AutoRestoreUnicodeConverterName;
using Quivera::I18N::FromUTF16Converter;

template <class Unit>
std::basic_string<Unit> Take(Unit* text) {  // the text of a ktMalloc result, freed
  std::unique_ptr<Unit, void (*)(void*)> owned(text, ktFree);
  return text ? std::basic_string<Unit>(text) : std::basic_string<Unit>(3, Unit('?'));
}

int Len(const std::string& s) { return static_cast<int>(s.size()); }
int Len(const std::u16string& s) { return static_cast<int>(s.size()); }

// Random repertoire text, 0 to 3000 characters (short, around the inline
// buffers, and beyond the 1024-unit first buffer), both ways: the bytes
// equal ICU's and iconv's, and decode back to the text. Results with zero bytes
// (UTF-16, UTF-32) cannot come back NUL-terminated and go through the
// bounded forms only.
TEST(Conversions, RoundTripsAgreeWithIcuAndIconv) {
  std::mt19937 rng(7);
  for (const char* e : peers::kEncodings) {
    SCOPED_TRACE(e);
    bool zeroBytes = std::strncmp(e, "UTF-16", 6) == 0 || std::strncmp(e, "UTF-32", 6) == 0;
    peers::Converter icu = peers::Open(e);
    for (int round = 0; round < 12; ++round) {
      size_t chars = rng() % (round < 4 ? 40 : round < 8 ? 400 : 3000);
      std::u16string text = peers::RandomText(e, chars, rng);
      std::string bytes = peers::IcuFromUtf16(icu.get(), text), theirs;
      ASSERT_TRUE(peers::Iconv("UTF-16LE", e, peers::AsBytes(text), &theirs));
      ASSERT_EQ(bytes, theirs);
      ASSERT_EQ(peers::IcuToUtf16(icu.get(), bytes), text);
      ASSERT_EQ(Take(enc_to_utf16(e, bytes.data(), Len(bytes))), text);
      if (zeroBytes) continue;
      ASSERT_EQ(Take(utf16_to_enc(e, text.data(), Len(text))), bytes);
      ASSERT_EQ(Take(utf16_to_enc(e, text.c_str(), -1)), bytes);
      ASSERT_EQ(Take(enc_to_utf16(e, bytes.c_str(), -1)), text);
      AutoRestoreUnicodeConverterName scope(e);
      ASSERT_EQ(Take(utf16_to_lcp(text.data(), Len(text))), bytes);
      ASSERT_EQ(Take(lcp_to_utf16(bytes.data(), Len(bytes))), text);
      std::unique_ptr<kt_utf16[]> mt(lcp_to_utf16_mt(bytes.data(), Len(bytes)));
      ASSERT_EQ(std::u16string(mt.get()), text);
      if (std::strcmp(e, "UTF-8") != 0) continue;
      ASSERT_EQ(Take(utf16_to_utf8(text.data(), Len(text))), bytes);
      ASSERT_EQ(Take(utf8_to_utf16(bytes.data(), Len(bytes))), text);
      std::u16string units(text.size(), u'#');
      int capacity = Len(text);
      ASSERT_EQ(utf8_to_utf16_n(&units[0], &capacity, bytes.data(), Len(bytes)), Len(text));
      ASSERT_EQ(units, text);
    }
  }
}

// Null sources convert as empty (allocated), other negative lengths than
// -1 convert nothing, a null capacity measures.
TEST(Conversions, NullSourcesAndOddLengths) {
  EXPECT_EQ(Take(utf8_to_utf16(nullptr, 0)), u"");
  EXPECT_EQ(Take(enc_to_utf16("Shift_JIS", nullptr, 3)), u"");
  EXPECT_EQ(Take(utf16_to_enc("GB18030", nullptr, -1)), "");
  EXPECT_EQ(Take(utf8_to_utf16("abc", -7)), u"");
  EXPECT_EQ(Take(utf16_to_enc("windows-1252", u"x\u20ac", -2)), "");
  EXPECT_EQ(utf8_to_utf16_n(nullptr, nullptr, "abcd", 4), 4);
  char one[1] = {'#'};
  int capacity = 1;
  EXPECT_EQ(utf16_to_lcp_n(one, &capacity, nullptr, 9), 0);
  EXPECT_EQ(one[0], '\0');
  EXPECT_EQ(std::unique_ptr<kt_utf16[]>(lcp_to_utf16_mt(nullptr, 0))[0], 0);
}

// The inline buffer is offered 1024 / (maximum bytes per character), kept
// conservative on purpose: overflow starts at 341 units for UTF-8, 512 for
// Shift_JIS, 256 for GB18030, 1024 for Latin-1. copy_to gives the whole
// text either way.
TEST(FromUTF16Converter, InlineCapacityIsConservative) {
  const std::pair<const char*, int> cases[] = {
      {"UTF-8", 341}, {"Shift_JIS", 512}, {"GB18030", 256}, {"ISO-8859-1", 1024}};
  for (const auto& c : cases) {
    for (int units : {c.second, c.second + 1}) {
      std::u16string text(static_cast<size_t>(units), u'q');
      FromUTF16Converter conversion(text.data(), units, c.first);
      EXPECT_EQ(conversion.overflowed(), units > c.second) << c.first << " " << units;
      EXPECT_EQ(conversion.length(), units);
      std::string out = "old";
      conversion.copy_to(out);
      EXPECT_EQ(out, std::string(static_cast<size_t>(units), 'q'));
    }
  }
  std::string out = "old";
  FromUTF16Converter(nullptr, 99, "UTF-8").copy_to(out);
  EXPECT_EQ(out, "");
}

TEST(Char8Hasher, KnownAnswers) {  // computed apart from the library
  using Quivera::I18N::char8_hasher;
  for (auto empty : {char8_hasher(nullptr, 5), char8_hasher("", 5), char8_hasher("abc", 0)})
    EXPECT_EQ(empty, 0xF1F35EC9u);
  EXPECT_EQ(char8_hasher("a", 1), 0xD2866770u);
  EXPECT_EQ(char8_hasher("abcdef", 3), 0xB849C599u);        // stops after `length` bytes
  EXPECT_EQ(char8_hasher("abc\0def", 7), 0xB849C599u);      // ... or at a zero byte
  EXPECT_EQ(char8_hasher("\xe2\x82\xac", 3), 0x8F17A3C5u);  // bytes are unsigned
}

}  // namespace
