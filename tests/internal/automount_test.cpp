// The automounter rewrite's guard on the prefix length, which no real
// environment value can reach: a prefix view of PTRDIFF_MAX bytes ends the
// process with the failed assertion before a byte of it is read.
#include <cstdint>
#include <string_view>

#include <gtest/gtest.h>

#include "platform/paths.h"

TEST(AutoMountDeathTest, PrefixOfPtrdiffMaxBytesIsAFailedAssertion) {
  static const char kText[] = "/tmp_mnt";
  kt::internal::AutoMountMap map{std::string_view(kText, PTRDIFF_MAX), "/"};
  EXPECT_DEATH(kt::internal::ApplyAutoMountMap(&map, "/tmp_mnt/x"),
               "Assertion failed: oldlen < PTRDIFF_MAX \\(getcwd:[0-9]+ char\\* "
               "ktFixAutoMountPrefix\\(char\\*\\)\\)");
}
