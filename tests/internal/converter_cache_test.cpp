// The per-thread converter caches own their converters: one per canonical
// name while the thread lives, none after it exits.
#include "i18n/converter_cache.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "kt/encodings.h"

namespace {

using kt::internal::CachedConverterCount;
using kt::internal::ThreadConverter;

TEST(ConverterCacheCount, ThreadExitClosesItsConverters) {
  ThreadConverter("UTF-8");  // this thread's own entries stay for the whole test
  const int before = CachedConverterCount();
  std::vector<std::thread> threads;
  for (int t = 0; t < 16; ++t) {
    threads.emplace_back([before] {
      const char* names[] = {"utf8", "UTF-8", "ibm-1208", "latin1", "ISO-8859-1",
                             "sjis", "Shift_JIS", nullptr, ""};
      for (const char* name : names) ThreadConverter(name);
      EXPECT_THROW(ThreadConverter("no-such-set"), Quivera::I18N::InvalidCharacterSetException);
      // Three canonical names (UTF-8 is also the default here); another
      // thread may hold its own at the same time.
      EXPECT_GE(CachedConverterCount(), before + 3);
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(CachedConverterCount(), before);
  std::thread([before] {
    ThreadConverter("GB18030");
    ThreadConverter("gb18030");
    ThreadConverter("Big5");
    EXPECT_EQ(CachedConverterCount(), before + 2);
  }).join();
  EXPECT_EQ(CachedConverterCount(), before);
}

}  // namespace
