// utf8_to_utf16 and utf16_to_utf8 against ICU called directly on a
// converter the caller keeps, producing the same thing (a new terminated
// string), on ASCII, Latin-1-heavy and CJK text of 64 B, 4 KiB and 1 MiB
// of UTF-8; and the cost of a converter-cache lookup.
#include <cstdlib>
#include <random>
#include <string>

#include <benchmark/benchmark.h>
#include <unicode/ucnv.h>

#include "kt/encodings.h"
#include "kt/memory.h"

namespace {

const char* const kKinds[] = {"ascii", "latin1-heavy", "cjk"};

// Random text of one kind, `bytes` long in UTF-8 (cut at a character).
std::string MakeUtf8(int kind, size_t bytes) {
  std::mt19937 rng(static_cast<unsigned>(kind * 7919 + bytes));
  std::u16string text;
  while (text.size() < bytes) {
    char16_t c = static_cast<char16_t>(u'a' + rng() % 26);
    if (kind == 1 && rng() % 3 == 0) c = static_cast<char16_t>(0xC0 + rng() % 0x40);
    if (kind == 2 && rng() % 8 != 0) c = static_cast<char16_t>(0x4E00 + rng() % 0x5000);
    text += c;
  }
  std::string utf8;
  for (char16_t c : text) {
    if (c < 0x80) {
      utf8 += static_cast<char>(c);
    } else if (c < 0x800) {
      utf8 += static_cast<char>(0xC0 | (c >> 6));
      utf8 += static_cast<char>(0x80 | (c & 0x3F));
    } else {
      utf8 += static_cast<char>(0xE0 | (c >> 12));
      utf8 += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
      utf8 += static_cast<char>(0x80 | (c & 0x3F));
    }
    if (utf8.size() >= bytes) break;
  }
  return utf8;
}

std::u16string ToUtf16(const std::string& utf8) {
  kt_utf16* wide = utf8_to_utf16(utf8.data(), static_cast<int>(utf8.size()));
  std::u16string out(wide);
  ktFree(wide);
  return out;
}

UConverter* KeptUtf8Converter() {
  static UConverter* converter = [] {
    UErrorCode status = U_ZERO_ERROR;
    return ucnv_open("UTF-8", &status);
  }();
  return converter;
}

void Setup(benchmark::State& state, size_t bytes) {
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(bytes));
  state.SetLabel(kKinds[state.range(0)]);
}

void BM_Utf8ToUtf16_kt(benchmark::State& state) {
  std::string text = MakeUtf8(static_cast<int>(state.range(0)), static_cast<size_t>(state.range(1)));
  for (auto _ : state) {
    kt_utf16* out = utf8_to_utf16(text.data(), static_cast<int>(text.size()));
    benchmark::DoNotOptimize(out);
    ktFree(out);
  }
  Setup(state, text.size());
}

// One pass into an allocation of the largest possible size (a UTF-8 byte
// never gives more than one UTF-16 unit).
void BM_Utf8ToUtf16_icu(benchmark::State& state) {
  std::string text = MakeUtf8(static_cast<int>(state.range(0)), static_cast<size_t>(state.range(1)));
  UConverter* converter = KeptUtf8Converter();
  int length = static_cast<int>(text.size());
  for (auto _ : state) {
    auto* out = static_cast<UChar*>(std::malloc((text.size() + 1) * sizeof(UChar)));
    UErrorCode status = U_ZERO_ERROR;
    ucnv_toUChars(converter, out, length + 1, text.data(), length, &status);
    benchmark::DoNotOptimize(out);
    std::free(out);
  }
  Setup(state, text.size());
}

void BM_Utf16ToUtf8_kt(benchmark::State& state) {
  std::u16string text =
      ToUtf16(MakeUtf8(static_cast<int>(state.range(0)), static_cast<size_t>(state.range(1))));
  for (auto _ : state) {
    char* out = utf16_to_utf8(text.data(), static_cast<int>(text.size()));
    benchmark::DoNotOptimize(out);
    ktFree(out);
  }
  Setup(state, text.size() * 2);
}

// One pass into an allocation of the largest possible size (three bytes
// per unit).
void BM_Utf16ToUtf8_icu(benchmark::State& state) {
  std::u16string text =
      ToUtf16(MakeUtf8(static_cast<int>(state.range(0)), static_cast<size_t>(state.range(1))));
  UConverter* converter = KeptUtf8Converter();
  int length = static_cast<int>(text.size());
  for (auto _ : state) {
    auto* out = static_cast<char*>(std::malloc(3 * text.size() + 1));
    UErrorCode status = U_ZERO_ERROR;
    ucnv_fromUChars(converter, out, 3 * length + 1, text.data(), length, &status);
    benchmark::DoNotOptimize(out);
    std::free(out);
  }
  Setup(state, text.size() * 2);
}

void ConversionArgs(benchmark::internal::Benchmark* b) {
  for (int kind = 0; kind < 3; ++kind)
    for (int bytes : {64, 4 << 10, 1 << 20}) b->Args({kind, bytes});
}

// The cache: the same name as last time, two names in turn, the default.
void BM_ConverterCache_sameName(benchmark::State& state) {
  for (auto _ : state)
    benchmark::DoNotOptimize(Quivera::I18N::UnicodeConverterX::getThreadSpecific("UTF-8"));
}

void BM_ConverterCache_alternating(benchmark::State& state) {
  for (auto _ : state) {
    benchmark::DoNotOptimize(Quivera::I18N::UnicodeConverterX::getThreadSpecific("UTF-8"));
    benchmark::DoNotOptimize(Quivera::I18N::UnicodeConverterX::getThreadSpecific("Shift_JIS"));
  }
}

void BM_ConverterCache_default(benchmark::State& state) {
  for (auto _ : state)
    benchmark::DoNotOptimize(Quivera::I18N::UnicodeConverterX::getThreadSpecific(nullptr));
}

}  // namespace

BENCHMARK(BM_Utf8ToUtf16_kt)->Apply(ConversionArgs);
BENCHMARK(BM_Utf8ToUtf16_icu)->Apply(ConversionArgs);
BENCHMARK(BM_Utf16ToUtf8_kt)->Apply(ConversionArgs);
BENCHMARK(BM_Utf16ToUtf8_icu)->Apply(ConversionArgs);
BENCHMARK(BM_ConverterCache_sameName);
BENCHMARK(BM_ConverterCache_alternating);
BENCHMARK(BM_ConverterCache_default);
