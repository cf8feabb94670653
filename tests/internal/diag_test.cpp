// Diagnostic channels: masks from the environment and at run time, the
// record format, filtering by flag, concurrent writers, and the fatal paths.
#include "internal/diag.h"

#include <atomic>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "support/diag_sink.h"

using namespace kt::internal::diag;

namespace {

int gEvaluated = 0;
int Costly() { return ++gEvaluated; }

}  // namespace

TEST(Diag, ConfigurationTable) {
  struct Case {
    const char* spec;
    bool valid;
    uint32_t ktsignal, dynload, other;
  } cases[] = {
      {"ktsignal:all,util::dynload:0x20a", true, kAllFlags, 0x20a, 0},
      {"*:4,ktsignal:0", true, 0, 4, 4},
      {"util::dynload:18,", true, 0, 18, 0},
      {"", true, 0, 0, 0},
      {"ktsignal", false, 0, 0, 0},
      {"ktsignal:x", false, 0, 0, 0},
      {":5", false, 0, 0, 0},
      {"ktsignal:0x100000000", false, 0, 0, 0},
  };
  for (const Case& c : cases) {
    ASSERT_TRUE(Configure("ktsignal:1,util::dynload:1,*:1"));
    EXPECT_EQ(Configure(c.spec), c.valid) << c.spec;
    uint32_t unchanged = c.valid ? 0 : 1;
    EXPECT_EQ(GetChannel("ktsignal").mask(), c.valid ? c.ktsignal : unchanged) << c.spec;
    EXPECT_EQ(GetChannel("util::dynload").mask(), c.valid ? c.dynload : unchanged) << c.spec;
    EXPECT_EQ(GetChannel("diag_test::other").mask(), c.valid ? c.other : unchanged) << c.spec;
  }
  Configure("");
}

TEST(Diag, OnlyFlagsInTheMaskAreWrittenAndDisabledRecordsAreNotFormatted) {
  kttest::DiagSink sink;
  Channel& channel = GetChannel("diag_test::mask");
  EXPECT_EQ(&GetChannel("diag_test::mask"), &channel) << "one channel per name";
  channel.SetMask(0x6);
  gEvaluated = 0;
  for (uint32_t flag : {1u, 2u, 4u, 8u, 0x200u})
    if (Record record = channel.Open(flag, "mod", 42, "void f()"))
      record.stream() << "flag " << flag << " n=" << Costly();
  channel.Write(2, "mod", 7, "g", "plain");
  EXPECT_EQ(gEvaluated, 2) << "the texts of disabled records are never built";
  std::vector<std::string> expected = {"diag_test::mask [0x2] mod:42 void f():flag 2 n=1",
                                       "diag_test::mask [0x4] mod:42 void f():flag 4 n=2",
                                       "diag_test::mask [0x2] mod:7 g:plain"};
  EXPECT_EQ(sink.Lines(), expected);
  EXPECT_EQ(channel.SetMask(0), 0x6u);
  EXPECT_FALSE(channel.Enabled(2));
}

TEST(Diag, ConcurrentWritersWriteWholeLines) {
  kttest::DiagSink sink;
  Channel& channel = GetChannel("diag_test::threads");
  channel.SetMask(kAllFlags);
  std::atomic<bool> stop{false};
  std::thread toggler([&] {
    Channel& other = GetChannel("diag_test::toggled");
    for (uint32_t i = 0; !stop; ++i) other.SetMask(i);
  });
  std::vector<std::thread> writers;
  for (int t = 0; t < 4; ++t)
    writers.emplace_back([&channel, t] {
      for (int i = 0; i < 200; ++i)
        if (Record record = channel.Open(1, "mod", t, "w")) record.stream() << "line " << i;
    });
  for (auto& w : writers) w.join();
  stop = true;
  toggler.join();
  std::vector<std::string> lines = sink.Lines();
  ASSERT_EQ(lines.size(), 800u);
  for (const std::string& line : lines)
    ASSERT_EQ(line.rfind("diag_test::threads [0x1] mod:", 0), 0u) << line;
  channel.SetMask(0);
}

TEST(Diag, FatalSwitchIsOnByDefault) {
  EXPECT_TRUE(FatalDiagnosticsEnabled());
  EXPECT_TRUE(SetFatalDiagnosticsEnabled(false));
  EXPECT_FALSE(FatalDiagnosticsEnabled());
  EXPECT_FALSE(SetFatalDiagnosticsEnabled(true));
}

// The environment is read once, when the first channel is made: checked in
// a fresh process of this test binary.
TEST(DiagDeathTest, EnvironmentSetsMasksAtFirstUse) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        setenv("KT_DIAGNOSTICS", "ktsignal:all,util::dynload:0x20a", 1);
        bool ok = GetChannel("util::dynload").mask() == 0x20a &&
                  GetChannel("diag_test::unlisted").mask() == 0;
        GetChannel("ktsignal").Write(0x4, "ktsignal", 512, "h()", " isCtrlCPending=true");
        std::exit(ok ? 0 : 1);
      },
      ::testing::ExitedWithCode(0), "ktsignal \\[0x4\\] ktsignal:512 h\\(\\): isCtrlCPending=true");
}

TEST(DiagDeathTest, TerminateAndAssertionEndTheProcessWithTheirLocation) {
  EXPECT_DEATH(Terminate("it broke.", "ktsignal", 220, "void f()"),
               "^Fatal diagnostic: it broke\\. \\(ktsignal:220 void f\\(\\)\\)\n$");
  EXPECT_DEATH(AssertionFailed("status == 0", "ktsignal", 75, "g"),
               "Fatal diagnostic: Assertion failed: status == 0 \\(ktsignal:75 g\\)");
}
