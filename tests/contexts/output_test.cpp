// Console output hook and the formatting entry points in front of it. The
// re-encoding of text that is not UTF-8 is checked in
// tests/internal/vsnprintf_reencode_test.cpp, under a fixed code page.
#include "kt/output.h"
#include "support/console_capture.h"
#include "support/counting_context.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <thread>
#include <vector>

// realloc (which ktRealloc calls) is interposed to see ktPrintf's growth
// steps; sanitizer builds bring their own allocator, so there the growth
// test only checks the text.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
#define KT_COUNT_REALLOC 1
extern "C" void* __libc_realloc(void*, size_t);
namespace {
bool g_recording = false;
std::vector<size_t>* g_sizes = nullptr;
}  // namespace
extern "C" void* realloc(void* p, size_t n) {
  if (g_recording && g_sizes) {
    g_recording = false;  // the vector may allocate
    g_sizes->push_back(n);
    g_recording = true;
  }
  return __libc_realloc(p, n);
}
#endif

namespace {

using Capture = kttest::ConsoleCapture;

bool AlwaysHot(void*) { return true; }
bool HotWhenDataIsOne(void* data) { return *static_cast<int*>(data) == 1; }

struct Callbacks {
  ktVprintfFunction output = nullptr;
  void* data = nullptr;
  ktPrintfHotFunction hot = nullptr;
};

Callbacks Current() {
  Callbacks now;
  ktGetVprintfCallbacks(&now.output, &now.data, &now.hot);
  return now;
}

// A null output stores the default; the hot query is asked about the
// current data; a swap hands back the previous triple.
TEST(Output, SetGetAndSwapCallbacks) {
  Capture c(AlwaysHot);
  Callbacks swapped;
  ktSwapVprintfCallbacks(&swapped.output, &swapped.data, &swapped.hot);
  EXPECT_EQ(swapped.output, &Capture::Hook);
  EXPECT_EQ(swapped.data, &c);
  EXPECT_EQ(swapped.hot, &AlwaysHot);
  Callbacks fallback = Current();
  EXPECT_NE(fallback.output, nullptr) << "null stores the default";
  EXPECT_EQ(fallback.data, nullptr);
  EXPECT_FALSE(ktPrintfIsHot()) << "no query: not hot";
  int one = 1, two = 2;
  ktSetVprintfCallbacks(nullptr, &one, HotWhenDataIsOne);
  EXPECT_EQ(Current().output, fallback.output);
  EXPECT_EQ(Current().data, &one);
  EXPECT_TRUE(ktPrintfIsHot());
  ktSetVprintfCallbacks(nullptr, &two, HotWhenDataIsOne);
  EXPECT_FALSE(ktPrintfIsHot());
  ktSetVprintfCallbacks(nullptr, nullptr, nullptr);
  ktSwapVprintfCallbacks(&swapped.output, &swapped.data, &swapped.hot);  // restores exactly
  EXPECT_EQ(swapped.output, fallback.output);
  ktPrintf("x");
  EXPECT_EQ(c.text, "x");
  EXPECT_TRUE(ktPrintfIsHot());
}

// ktPrintf's first attempt formats with room to spare and reuses that text
// when it is complete: what is printed, and the result, must be exactly
// those of formatting into a buffer that fits, around the first size
// (1023), the growth sizes and the spare room (8192), with and without
// bytes that are not UTF-8.
TEST(Output, PrintfMatchesAFittingBufferAtEveryBoundary) {
  for (size_t center : {1023u, 2046u, 4092u, 8192u, 16384u})
    for (size_t length = center - 3; length < center + 3; ++length)
      for (int variant = 0; variant < 3; ++variant) {
        std::string arg(length, 'a');
        if (variant == 1) arg[length / 2] = '\xE9';                // re-encoded
        if (variant == 2) arg.replace(length - 2, 2, "\xC3\xA9");  // UTF-8 at the end
        std::vector<char> fitting(arg.size() * 3 + 64);
        ktSNprintf(fitting.data(), fitting.size(), "<%s>", arg.c_str());
        Capture c;
        int n = ktPrintf("<%s>", arg.c_str());
        ASSERT_EQ(c.text, fitting.data()) << "length " << length << " variant " << variant;
        ASSERT_EQ(c.calls, 1);
        ASSERT_TRUE(variant == 1 || n == static_cast<int>(length + 2)) << "length " << length;
      }
}

// The realloc sizes of one ktPrintf of `length` bytes.
std::vector<size_t> GrowthFor(size_t length) {
  std::vector<size_t> sizes;
  std::string text(length, 'q');
  Capture console;
#ifdef KT_COUNT_REALLOC
  sizes.reserve(16);
  g_sizes = &sizes;
  g_recording = true;
#endif
  int n = ktPrintf("%s", text.c_str());
#ifdef KT_COUNT_REALLOC
  g_recording = false;
  g_sizes = nullptr;
#endif
  EXPECT_EQ(n, static_cast<int>(length));
  EXPECT_EQ(console.text, text);
  EXPECT_EQ(console.calls, 1);
  return sizes;
}

// The stack holds up to 1022 bytes; above, the heap buffer doubles, or
// goes straight to n + 1 when that is at least twice the old size.
TEST(Output, PrintfGrowthStackThenDoublingOrExactFit) {
  const std::pair<size_t, std::vector<size_t>> cases[] = {
      {1022, {}}, {1023, {2046}}, {2045, {2046}}, {2046, {2047}}, {10000, {10001}}};
  for (const auto& [length, sizes] : cases) {
    std::vector<size_t> seen = GrowthFor(length);
#ifdef KT_COUNT_REALLOC
    EXPECT_EQ(seen, sizes) << length;
#endif
  }
}

TEST(Output, RandomFormatsMatchSnprintf) {
  std::mt19937 rng(12345);
  for (int round = 0; round < 300; ++round) {
    int width = static_cast<int>(rng() % 3000);
    int value = static_cast<int>(rng());
    double d = static_cast<double>(rng()) / 7.0;
    char expected[8192];
    std::snprintf(expected, sizeof expected, "[%*d|%.3f|%x]", width, value, d,
                  static_cast<unsigned>(value));
    Capture c;
    int r = ktPrintf("[%*d|%.3f|%x]", width, value, d, static_cast<unsigned>(value));
    EXPECT_EQ(r, static_cast<int>(std::strlen(expected)));
    EXPECT_EQ(c.text, expected);
  }
}

// A failing hook makes ktPrintf return 0 and ktPuts hand the result on;
// ktPutsn writes exactly its length; a null stream means the hook, a real
// one the stream.
TEST(Output, PutsPutsnAndStreams) {
  Capture c;
  c.result = -5;
  EXPECT_EQ(ktPrintf("abc"), 0);
  EXPECT_EQ(ktPuts("abc"), -5);
  c.result = 3;
  EXPECT_EQ(ktPrintf("abcd"), 4);
  c.text.clear();
  c.calls = 0;
  ktPutsn("hello world", 5);
  ktPutsn("xyz", 0);
  EXPECT_EQ(c.calls, 2);
  fpts(nullptr, " one ");
  fprntf(nullptr, "%s %d", "two", 3);
  EXPECT_EQ(c.text, "hello one two 3");
  FILE* f = std::tmpfile();
  ASSERT_NE(f, nullptr);
  fpts(f, "a");
  fprntf(f, "%d", 12);
  EXPECT_EQ(kt_fputsn(f, "xyzzy", 3), 3);
  EXPECT_EQ(kt_fputsn(f, "ignored", 0), 0);
  EXPECT_EQ(kt_fputsn(f, "ignored", -4), 0);
  std::rewind(f);
  char buf[64] = {};
  ASSERT_NE(std::fgets(buf, sizeof buf, f), nullptr);
  std::fclose(f);
  EXPECT_STREQ(buf, "a12xyz");
  EXPECT_EQ(c.text, "hello one two 3");
}

int CollectPuts(const char* text, void* data) {
  *static_cast<std::string*>(data) += text;
  return 1;
}

TEST(Output, AdaptersRoundTrip) {
  std::string got;
  kt_putsn_pair inner = {kttest::AppendToString, &got};
  kt_puts_pair outer = {kt_putsn_to_puts, &inner};
  // putsn -> puts -> putsn: the counted text arrives unchanged.
  EXPECT_EQ(kt_puts_to_putsn(&outer, "abcdef", 4), 4);
  EXPECT_EQ(got, "abcd");
  kt_putsn_pair failing = {[](void*, const char*, int) { return -9; }, nullptr};
  EXPECT_EQ(kt_putsn_to_puts("x", &failing), -1);
  std::string collected;
  kt_puts_pair direct = {CollectPuts, &collected};
  EXPECT_EQ(kt_puts_to_putsn(&direct, "zz", 0), 1);
  EXPECT_EQ(collected, "");
}

// Printers on several threads while another swaps the hook back and forth
// (including to null): nothing crashes, and every piece lands in one of
// the hooks or the default (which is silenced here by printing nothing).
std::atomic<long> g_counted{0};
int CountingHook(const char*, void*) {
  g_counted.fetch_add(1);
  return 0;
}

TEST(Output, ConcurrentSwapWhilePrinting) {
  Capture restore;  // puts the previous hook back
  ktSetVprintfCallbacks(CountingHook, nullptr, nullptr);
  std::atomic<bool> stop{false};
  std::vector<std::thread> printers;
  for (int t = 0; t < 3; ++t) {
    printers.emplace_back([&] {
      while (!stop.load()) {
        ktPrintf("%s", "");  // empty text: the default prints nothing visible
        ktPuts("");
        (void)ktPrintfIsHot();
      }
    });
  }
  for (int i = 0; i < 2000; ++i) {
    Callbacks next{(i % 2) ? CountingHook : nullptr, nullptr, (i % 3) ? AlwaysHot : nullptr};
    ktSwapVprintfCallbacks(&next.output, &next.data, &next.hot);
  }
  stop.store(true);
  for (auto& t : printers) t.join();
  EXPECT_NE(Current().output, nullptr);
}

}  // namespace
