// The process-ending reports of panics and fatal reach the console through
// the system logger, at level Severe.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>

#include "kt/errors.h"
#include "kt/logging.h"
#include "kt/output.h"

using namespace Quivera::System;

namespace {

void ConsoleToStderr() {
  ktSetVprintfCallbacks([](const char* text, void*) { return std::fputs(text, stderr); }, nullptr,
                        nullptr);
}

}  // namespace

TEST(Reports, ProcessEndingReportReachesConsoleAtSevere) {
  EXPECT_EXIT({ ConsoleToStderr(); panics(3, "boom"); }, ::testing::ExitedWithCode(3),
              "^Severe:\nboom\nThe program '\\[[0-9]+\\] : Native' has exited with code 3 "
              "\\(0x3\\)\\.\n$");
  EXPECT_EXIT(
      {
        ConsoleToStderr();
        Logger::getLogger(nullptr).setLevel(Level(Level::Off));
        panics(4, "silenced");
      },
      ::testing::ExitedWithCode(4), "^$");
}

// Regression: fatal aborted with its report still in the buffer of a
// standard output redirected to a file or a pipe.
TEST(Reports, FatalReportReachesAFileBeforeTheAbort) {
  std::string path = ::testing::TempDir() + "fatal_report.txt";
  EXPECT_EXIT(
      {
        if (std::freopen(path.c_str(), "w", stdout) == nullptr) std::exit(9);
        fatal();
      },
      ::testing::KilledBySignal(SIGABRT), "");
  std::ifstream in(path);
  std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  EXPECT_THAT(text, ::testing::MatchesRegex("Severe:\nThe program '\\[[0-9]+\\] : Native' "
                                            "has exited with code 2 \\(0x2\\)\\.\n"));
  std::remove(path.c_str());
}
