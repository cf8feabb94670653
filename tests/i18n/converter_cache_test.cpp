// The per-thread converter cache, the per-thread default encoding and the
// standard names, through the exported interface.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "i18n/encoding_peers.h"
#include "kt/encodings.h"
#include "kt/memory.h"

namespace {

using Quivera::I18N::AutoRestoreUnicodeConverterName;
using Quivera::I18N::InvalidCharacterSetException;
using Quivera::I18N::UnicodeConverterX;

std::string DefaultEncoding() { return UnicodeConverterX::getThreadSpecific_defaultEncoding(); }
UnicodeConverterX* Cached(const char* name) { return UnicodeConverterX::getThreadSpecific(name); }

TEST(ConverterCache, AliasesShareOneConverterPerThread) {
  UnicodeConverterX* utf8 = Cached("UTF-8");
  UnicodeConverterX* sjis = Cached("sjis");
  EXPECT_NE(sjis, utf8);
  for (int i = 0; i < 2; ++i) {  // in turns, past the last-used shortcut
    EXPECT_EQ(Cached("utf8"), utf8);
    EXPECT_EQ(Cached("Shift_JIS"), sjis);
    EXPECT_EQ(Cached("ibm-1208"), utf8);
    EXPECT_EQ(Cached("sjis"), sjis);
  }
  EXPECT_EQ(Cached(nullptr), Cached(ucnv_getDefaultName()));
  EXPECT_EQ(Cached(""), Cached(nullptr));
  UnicodeConverterX* other = nullptr;
  std::thread([&] {
    other = Cached("utf8");
    EXPECT_EQ(Cached("UTF-8"), other);
  }).join();
  EXPECT_NE(other, utf8);
}

// The thread's default encoding: named canonically, no stack behind push
// and pop (a pop goes back to ICU's default), scopes that nest and
// restore, other threads unaffected, and used by the lcp conversions.
TEST(ConverterCache, ThreadDefaultEncoding) {
  UnicodeConverterX::pushTssDefaultConvName("sjis");
  EXPECT_EQ(DefaultEncoding(), "ibm-943_P15A-2003");  // canonical, not as pushed
  EXPECT_EQ(Cached(nullptr), Cached("Shift_JIS"));
  UnicodeConverterX::pushTssDefaultConvName("GB18030");
  UnicodeConverterX::popTssDefaultConvName();
  EXPECT_EQ(DefaultEncoding(), ucnv_getDefaultName());
  EXPECT_EQ(Cached(nullptr), Cached(ucnv_getDefaultName()));
  {
    AutoRestoreUnicodeConverterName outer("KOI8-R");
    {
      AutoRestoreUnicodeConverterName inner("GB18030");
      EXPECT_EQ(DefaultEncoding(), "gb18030");
    }
    EXPECT_EQ(DefaultEncoding(), "ibm-878_P100-1996");
    EXPECT_THROW(AutoRestoreUnicodeConverterName bad("no-such-set"), InvalidCharacterSetException);
    std::string seen;
    std::thread([&] {
      seen = DefaultEncoding();
      UnicodeConverterX::pushTssDefaultConvName("Big5");
    }).join();
    EXPECT_EQ(seen, ucnv_getDefaultName());
    EXPECT_EQ(DefaultEncoding(), "ibm-878_P100-1996");
    std::unique_ptr<char, void (*)(void*)> koi(utf16_to_lcp(u"\u0416", 1), ktFree);
    EXPECT_STREQ(koi.get(), "\xf6");
  }
  EXPECT_EQ(DefaultEncoding(), ucnv_getDefaultName());
}

TEST(ConverterCache, UnknownNamesThrowEverywhere) {
  const char* bad = "no-such-set";
  EXPECT_THROW(UnicodeConverterX::create(bad), InvalidCharacterSetException);
  EXPECT_THROW(Cached(bad), InvalidCharacterSetException);
  EXPECT_THROW(UnicodeConverterX::pushTssDefaultConvName(bad), InvalidCharacterSetException);
  EXPECT_THROW(UnicodeConverterX::getStdEncodingName(bad), InvalidCharacterSetException);
  EXPECT_THROW(enc_to_utf16(bad, "x", 1), InvalidCharacterSetException);
  EXPECT_THROW(enc_to_utf16_n(bad, nullptr, nullptr, "x", 1), InvalidCharacterSetException);
  EXPECT_THROW(utf16_to_enc(bad, u"x", 1), InvalidCharacterSetException);
  EXPECT_EQ(DefaultEncoding(), ucnv_getDefaultName());
  try {
    Cached(bad);
  } catch (const Quivera::System::Throwable_DEPRECATED& e) {
    EXPECT_NE(std::strstr(e.what(), bad), nullptr);
    std::unique_ptr<Quivera::System::Throwable_DEPRECATED> copy(e.clone());
    EXPECT_THROW(copy->rethrow(), InvalidCharacterSetException);
  }
}

TEST(EncodingNames, StandardNames) {
  const std::pair<const char*, const char*> cases[] = {
      {"cp1252", "windows-1252"},  // canonical ibm-5348_P100-1997, found as ibm-5348
      {"sjis", "Shift_JIS"},       // ibm-943_P15A-2003, found as ibm-943
      {"KOI8-R", "KOI8-R"},        // ibm-878_P100-1996
      {"latin1", "ISO-8859-1"},    // no IBM variant: the canonical name
      {"GB18030", "gb18030"},      // the canonical name, not the MIME one
      {"EUC-JP", "euc-jp-2007"}};
  for (const auto& c : cases)
    EXPECT_STREQ(UnicodeConverterX::getStdEncodingName(c.first), c.second) << c.first;
  EXPECT_EQ(UnicodeConverterX::getStdEncodingName(nullptr), nullptr);
  EXPECT_EQ(UnicodeConverterX::getStdEncodingName(""), nullptr);
  // getName asks the standards directly: MIME, then IANA, then WINDOWS.
  EXPECT_STREQ(Cached("GB18030")->getName(), "GB18030");
  EXPECT_STREQ(Cached("cp1252")->getName(), "windows-1252");
  EXPECT_STREQ(Cached("latin1")->getName(), "ISO-8859-1");
  UErrorCode status = U_ZERO_ERROR;
  EXPECT_STREQ(UnicodeConverterX::getDefaultName(),
               ucnv_getStandardName(ucnv_getDefaultName(), "MIME", &status));
}

// Many threads convert at once, each with its own default encoding, and
// get what ICU gives; run under ThreadSanitizer by the test script.
TEST(ConverterThreads, ConcurrentConversionsAgree) {
  struct Job {
    const char* encoding;
    std::u16string text;
    std::string bytes;
  };
  std::mt19937 rng(3);
  std::vector<Job> jobs;
  for (const char* e : peers::kEncodings)
    if (std::strncmp(e, "UTF-16", 6) != 0 && std::strncmp(e, "UTF-32", 6) != 0) {
      std::u16string text = peers::RandomText(e, 200 + rng() % 1500, rng);
      jobs.push_back({e, text, peers::IcuFromUtf16(peers::Open(e).get(), text)});
    }
  std::atomic<int> failures{0};
  std::vector<std::thread> threads;
  for (size_t t = 0; t < 2 * jobs.size(); ++t) {
    threads.emplace_back([&, t] {
      const Job& mine = jobs[t % jobs.size()];
      AutoRestoreUnicodeConverterName scope(mine.encoding);
      for (size_t round = 0; round < 30; ++round) {
        const Job& any = jobs[(t + round) % jobs.size()];
        kt_utf16* wide =
            enc_to_utf16(any.encoding, any.bytes.data(), static_cast<int>(any.bytes.size()));
        char* lcp = utf16_to_lcp(mine.text.data(), static_cast<int>(mine.text.size()));
        if (wide != any.text || lcp != mine.bytes) failures++;
        ktFree(wide);
        ktFree(lcp);
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(failures.load(), 0);
}

}  // namespace
