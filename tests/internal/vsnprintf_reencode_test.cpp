// ktVSNprintf re-encodes text that is not UTF-8 from the locale's code
// page. The code page is fixed to Latin-1 here through the stand-in.
#include <gtest/gtest.h>

#include <cstdarg>
#include <cstring>
#include <string>

#include "internal/locale_codecvt.h"
#include "kt/output.h"

namespace {

class Latin1Locale : public ::testing::Test {
 protected:
  void SetUp() override {
    saved = cx::i18n::system_codepage();
    cx::i18n::set_system_codepage("ISO-8859-1");
  }
  void TearDown() override { cx::i18n::set_system_codepage(saved.c_str()); }
  std::string saved;
};

TEST_F(Latin1Locale, InvalidUtf8IsReencodedAndCounted) {
  char buf[32];
  EXPECT_EQ(ktSNprintf(buf, sizeof buf, "caf%c", 0xE9), 5);  // the UTF-8 length
  EXPECT_STREQ(buf, "caf\xC3\xA9");
}

TEST_F(Latin1Locale, ReencodedTextIsCutToTheCapacity) {
  char buf[5];
  std::memset(buf, '#', sizeof buf);
  // "\xE9\xE9\xE9" fits the formatter (3 bytes) but its UTF-8 (6) does not.
  EXPECT_EQ(ktSNprintf(buf, sizeof buf, "%s", "\xE9\xE9\xE9"), 6);
  EXPECT_STREQ(buf, "\xC3\xA9\xC3\xA9");
}

TEST_F(Latin1Locale, CutTextReturnsTheFormatterCount) {
  char buf[4];
  EXPECT_EQ(ktSNprintf(buf, sizeof buf, "%s", "ab\xE9xyz"), 6);
  EXPECT_STREQ(buf, "ab\xC3");  // re-encoded "ab\xC3\xA9", cut to 3 bytes
}

}  // namespace
