// The C conversion functions and FromUTF16Converter against ICU called
// directly and against glibc's iconv, on random text of every plane.
#include <gtest/gtest.h>

#include <algorithm>
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
// buffers, and beyond the 1024-unit first buffer), both ways: the bytes equal ICU's and iconv's, and they
// decode back to the text. Results with zero bytes (UTF-16, UTF-32) cannot
// come back NUL-terminated and go through the bounded forms only.
TEST(Conversions, RoundTripsAgreeWithIcuAndIconv) {
  std::mt19937 rng(7);
  for (const auto& e : peers::Encodings()) {
    SCOPED_TRACE(e.icu);
    bool zeroBytes = std::strncmp(e.icu, "UTF-16", 6) == 0 || std::strncmp(e.icu, "UTF-32", 6) == 0;
    peers::Converter icu = peers::Open(e.icu);
    for (int round = 0; round < 12; ++round) {
      size_t chars = rng() % (round < 4 ? 40 : round < 8 ? 400 : 3000);
      std::u16string text = peers::RandomText(e, chars, rng);
      std::string bytes = peers::IcuFromUtf16(icu.get(), text), theirs;
      ASSERT_TRUE(peers::Iconv("UTF-16LE", e.iconv, peers::AsBytes(text), &theirs));
      ASSERT_EQ(bytes, theirs);
      ASSERT_EQ(peers::IcuToUtf16(icu.get(), bytes), text);
      ASSERT_EQ(Take(enc_to_utf16(e.icu, bytes.data(), Len(bytes))), text);
      if (zeroBytes) continue;
      ASSERT_EQ(Take(utf16_to_enc(e.icu, text.data(), Len(text))), bytes);
      ASSERT_EQ(Take(utf16_to_enc(e.icu, text.c_str(), -1)), bytes);
      ASSERT_EQ(Take(enc_to_utf16(e.icu, bytes.c_str(), -1)), text);
      AutoRestoreUnicodeConverterName scope(e.icu);
      ASSERT_EQ(Take(utf16_to_lcp(text.data(), Len(text))), bytes);
      ASSERT_EQ(Take(lcp_to_utf16(bytes.data(), Len(bytes))), text);
      std::unique_ptr<kt_utf16[]> mt(lcp_to_utf16_mt(bytes.data(), Len(bytes)));
      ASSERT_EQ(std::u16string(mt.get()), text);
      if (std::strcmp(e.icu, "UTF-8") != 0) continue;
      ASSERT_EQ(Take(utf16_to_utf8(text.data(), Len(text))), bytes);
      ASSERT_EQ(Take(utf8_to_utf16(bytes.data(), Len(bytes))), text);
    }
  }
}

// A bounded form returns and stores the full length and leaves what ICU
// itself leaves at that capacity. The destinations carry a guard of eight
// units after the capacity (ICU is not instrumented, so AddressSanitizer
// would not see it write too far).
template <class Unit, class Ours, class Icu>
void CheckBoundedForm(int full, Ours ours, Icu icu) {
  for (int capacity : {0, 1, full / 2, full - 1, full, full + 1}) {
    if (capacity < 0) continue;
    SCOPED_TRACE(capacity);
    std::basic_string<Unit> got(capacity + 8, Unit('#')), want(got);
    int inOut = capacity;
    ASSERT_EQ(ours(capacity ? &got[0] : nullptr, &inOut), full);
    ASSERT_EQ(inOut, full);
    icu(capacity ? &want[0] : nullptr, capacity);
    ASSERT_EQ(got, want);
  }
}

TEST(Conversions, BoundedFormsReportFullLengthAndStayInside) {
  std::mt19937 rng(11);
  for (const auto& e : peers::Encodings()) {
    SCOPED_TRACE(e.icu);
    peers::Converter icu = peers::Open(e.icu);
    for (size_t chars : {0, 1, 9, 700, 1500}) {
      std::u16string text = peers::RandomText(e, chars, rng);
      std::string bytes = peers::IcuFromUtf16(icu.get(), text);
      auto toUtf16 = [&](kt_utf16* d, int c) {
        UErrorCode s = U_ZERO_ERROR;
        ucnv_toUChars(icu.get(), d, c, bytes.data(), Len(bytes), &s);
      };
      auto fromUtf16 = [&](char* d, int c) {
        UErrorCode s = U_ZERO_ERROR;
        ucnv_fromUChars(icu.get(), d, c, text.data(), Len(text), &s);
      };
      CheckBoundedForm<kt_utf16>(Len(text), [&](kt_utf16* d, int* c) {
        return enc_to_utf16_n(e.icu, d, c, bytes.data(), Len(bytes));
      }, toUtf16);
      AutoRestoreUnicodeConverterName scope(e.icu);
      CheckBoundedForm<kt_utf16>(Len(text), [&](kt_utf16* d, int* c) {
        return lcp_to_utf16_n(d, c, bytes.data(), Len(bytes));
      }, toUtf16);
      CheckBoundedForm<char>(Len(bytes), [&](char* d, int* c) {
        return utf16_to_lcp_n(d, c, text.data(), Len(text));
      }, fromUtf16);
      if (std::strcmp(e.icu, "UTF-8") == 0)
        CheckBoundedForm<kt_utf16>(Len(text), [&](kt_utf16* d, int* c) {
          return utf8_to_utf16_n(d, c, bytes.data(), Len(bytes));
        }, toUtf16);
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
  EXPECT_EQ(char8_hasher(nullptr, 5), 0xF1F35EC9u);
  EXPECT_EQ(char8_hasher("", 5), 0xF1F35EC9u);
  EXPECT_EQ(char8_hasher("abc", 0), 0xF1F35EC9u);
  EXPECT_EQ(char8_hasher("a", 1), 0xD2866770u);
  EXPECT_EQ(char8_hasher("abcdef", 3), 0xB849C599u);        // stops after `length` bytes
  EXPECT_EQ(char8_hasher("abc\0def", 7), 0xB849C599u);      // ... or at a zero byte
  EXPECT_EQ(char8_hasher("\xe2\x82\xac", 3), 0x8F17A3C5u);  // bytes are unsigned
}

}  // namespace
