// ktPrintf's first attempt formats with room to spare and reuses that text
// when it is complete: the printed text and result must be exactly those
// of formatting into a buffer that fits, for every length around the
// first size (1023), the growth sizes and the spare room (8192), with and
// without bytes that are not UTF-8.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "kt/output.h"

namespace {

std::string gPrinted;
int Capture(const char* text, void*) {
  gPrinted = text;
  return 0;
}

// What printing must produce: formatting into a buffer that fits.
std::string Reference(const char* format, const std::string& arg) {
  std::vector<char> buffer(arg.size() * 3 + 64);
  ktSNprintf(buffer.data(), buffer.size(), format, arg.c_str());
  return buffer.data();
}

}  // namespace

TEST(PrintfFirstAttempt, MatchesAFittingBufferAtEveryBoundary) {
  ktVprintfFunction oldOut;
  void* oldData;
  ktPrintfHotFunction oldHot;
  ktGetVprintfCallbacks(&oldOut, &oldData, &oldHot);
  ktSetVprintfCallbacks(Capture, nullptr, nullptr);

  std::vector<size_t> lengths;
  for (size_t center : {1023u, 2046u, 4092u, 8192u, 16384u})
    for (size_t d = 0; d < 6; ++d) {
      lengths.push_back(center - 3 + d);
    }
  for (size_t length : lengths)
    for (int variant = 0; variant < 3; ++variant) {
      std::string arg(length, 'a');
      if (variant == 1) arg[length / 2] = '\xE9';  // not UTF-8: re-encoded
      if (variant == 2) arg.replace(length - 2, 2, "\xC3\xA9");  // UTF-8 at the end
      gPrinted.clear();
      int n = ktPrintf("<%s>", arg.c_str());
      std::string expected = Reference("<%s>", arg);
      ASSERT_EQ(gPrinted, expected) << "length " << length << " variant " << variant;
      if (variant != 1) {
        ASSERT_EQ(n, static_cast<int>(length + 2)) << "length " << length;
      }
    }
  ktSetVprintfCallbacks(oldOut, oldData, oldHot);
}
