// Console output hook and the formatting entry points in front of it.
#include "kt/output.h"
#include "support/console_capture.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdarg>
#include <cstring>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace {

using Capture = kttest::ConsoleCapture;

bool AlwaysHot(void*) { return true; }
bool HotWhenDataIsOne(void* data) { return *static_cast<int*>(data) == 1; }

TEST(Output, NullOutputIsTheDefaultAndTheHotQuerySeesTheCurrentData) {
  Capture restore;  // puts the previous hook back
  ktVprintfFunction defaultOutput, out;
  void* data;
  ktPrintfHotFunction hot;
  ktSetVprintfCallbacks(nullptr, nullptr, nullptr);
  ktGetVprintfCallbacks(&defaultOutput, &data, &hot);
  EXPECT_NE(defaultOutput, nullptr);
  int one = 1, two = 2;
  ktSetVprintfCallbacks(nullptr, &one, HotWhenDataIsOne);
  ktGetVprintfCallbacks(&out, &data, &hot);
  EXPECT_EQ(out, defaultOutput);
  EXPECT_EQ(data, &one);
  EXPECT_TRUE(ktPrintfIsHot());
  ktSetVprintfCallbacks(nullptr, &two, HotWhenDataIsOne);
  EXPECT_FALSE(ktPrintfIsHot());
  ktSetVprintfCallbacks(nullptr, &one, nullptr);
  EXPECT_FALSE(ktPrintfIsHot()) << "no query: not hot";
}

TEST(Output, SwapReturnsPreviousValuesAndNullStoresDefault) {
  Capture c(AlwaysHot);
  ktVprintfFunction out = nullptr;
  void* data = nullptr;
  ktPrintfHotFunction hot = nullptr;
  ktSwapVprintfCallbacks(&out, &data, &hot);
  EXPECT_EQ(out, &Capture::Hook);  // the caller receives the previous function
  EXPECT_EQ(data, &c);
  EXPECT_EQ(hot, &AlwaysHot);
  ktVprintfFunction now;
  void* nowData;
  ktPrintfHotFunction nowHot;
  ktGetVprintfCallbacks(&now, &nowData, &nowHot);
  EXPECT_NE(now, nullptr);  // the default, not null
  EXPECT_EQ(nowData, nullptr);
  EXPECT_FALSE(ktPrintfIsHot());
  // Swapping back restores exactly what was there.
  ktSwapVprintfCallbacks(&out, &data, &hot);
  EXPECT_EQ(out, now);
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
        if (variant != 1) {
          ASSERT_EQ(n, static_cast<int>(length + 2)) << "length " << length;
        }
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

TEST(Output, FailingOutputFunctionMakesPrintfReturnZero) {
  Capture c;
  c.result = -5;
  EXPECT_EQ(ktPrintf("abc"), 0);
  EXPECT_EQ(ktPuts("abc"), -5);  // ktPuts hands the result on
  c.result = 3;
  EXPECT_EQ(ktPrintf("abcd"), 4);
}

TEST(Output, PutsnWritesExactlyLengthBytes) {
  Capture c;
  ktPutsn("hello world", 5);
  ktPutsn("xyz", 0);
  EXPECT_EQ(c.text, "hello");
  EXPECT_EQ(c.calls, 2);
}

TEST(Output, NullStreamsGoToTheHook) {
  Capture c;
  fpts(nullptr, "one ");
  fprntf(nullptr, "%s %d", "two", 3);
  EXPECT_EQ(c.text, "one two 3");
}

TEST(Output, StreamFunctionsWriteToTheStream) {
  Capture c;
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
  EXPECT_EQ(c.text, "");
}

// Capacities, cut text and well-formed UTF-8 are covered by the fuzz
// target; here, that a byte which is not UTF-8 is read in the locale's code
// page and comes back as valid UTF-8 (whatever character the page maps it to).
TEST(Output, VSNprintfReencodesInvalidText) {
  char buf[64];
  int n = ktSNprintf(buf, sizeof buf, "caf%c!", 0xE9);
  EXPECT_EQ(n, static_cast<int>(std::strlen(buf)));
  EXPECT_EQ(std::string(buf, 3), "caf");
  EXPECT_EQ(buf[n - 1], '!');
  for (int i = 0; buf[i]; ++i) EXPECT_NE(static_cast<unsigned char>(buf[i]), 0xE9u);
}

int CountingPutsn(void* data, const char* text, int length) {
  static_cast<std::string*>(data)->append(text, static_cast<size_t>(length));
  return length;
}
int NegativePutsn(void*, const char*, int) { return -9; }
int CollectPuts(const char* text, void* data) {
  *static_cast<std::string*>(data) += text;
  return 1;
}

TEST(Output, AdaptersRoundTrip) {
  std::string got;
  kt_putsn_pair inner = {CountingPutsn, &got};
  kt_puts_pair outer = {kt_putsn_to_puts, &inner};
  // putsn -> puts -> putsn: the counted text arrives unchanged.
  EXPECT_EQ(kt_puts_to_putsn(&outer, "abcdef", 4), 4);
  EXPECT_EQ(got, "abcd");
  kt_putsn_pair failing = {NegativePutsn, nullptr};
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
  ktVprintfFunction o;
  void* d;
  ktPrintfHotFunction h;
  ktGetVprintfCallbacks(&o, &d, &h);
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
    ktVprintfFunction f = (i % 2) ? CountingHook : nullptr;
    void* data = nullptr;
    ktPrintfHotFunction hot = (i % 3) ? AlwaysHot : nullptr;
    ktSwapVprintfCallbacks(&f, &data, &hot);
  }
  stop.store(true);
  for (auto& t : printers) t.join();
  ktVprintfFunction now;
  void* nd;
  ktPrintfHotFunction nh;
  ktGetVprintfCallbacks(&now, &nd, &nh);
  EXPECT_NE(now, nullptr);
  ktSetVprintfCallbacks(o, d, h);
}

}  // namespace
