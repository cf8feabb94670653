// ktPrintf formats on the stack up to 1022 bytes and grows a heap buffer
// above that. The test interposes realloc (which ktRealloc calls) to see
// the growth steps; sanitizer builds bring their own allocator, so there
// the test only checks the text.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "kt/output.h"
#include "support/console_capture.h"

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

[[maybe_unused]] std::vector<size_t> GrowthFor(size_t length) {
  std::vector<size_t> sizes;
  std::string text(length, 'q');
  kttest::ConsoleCapture console;
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

TEST(PrintfGrowth, StackUpTo1022BytesThenDoublingOrExactFit) {
#ifndef KT_COUNT_REALLOC
  GTEST_SKIP() << "allocator interposition is not possible under sanitizers";
#else
  EXPECT_EQ(GrowthFor(1022), std::vector<size_t>{});
  EXPECT_EQ(GrowthFor(1023), std::vector<size_t>{2046});
  EXPECT_EQ(GrowthFor(2045), std::vector<size_t>{2046});
  // At least twice the old size: straight to n + 1.
  EXPECT_EQ(GrowthFor(2046), std::vector<size_t>{2047});
  EXPECT_EQ(GrowthFor(10000), std::vector<size_t>{10001});
#endif
}

}  // namespace
