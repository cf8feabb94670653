// The process-ending reports of panics and fatal reach the console through
// the system logger, at level Severe.
#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>

#include "kt/errors.h"
#include "kt/logging.h"
#include "kt/output.h"

using namespace Quivera::System;

// ---- The process-ending report through the system logger ------------------

namespace {

int to_stderr(const char* text, void*)
{
    return std::fputs(text, stderr);
}

}  // namespace

TEST(Reports, ProcessEndingReportReachesConsoleAtSevere)
{
    EXPECT_EXIT(
        {
            ktSetVprintfCallbacks(to_stderr, nullptr, nullptr);
            panics(3, "boom");
        },
        ::testing::ExitedWithCode(3),
        "^Severe:\nboom\nThe program '\\[[0-9]+\\] : Native' has exited with code 3 "
        "\\(0x3\\)\\.\n$");
    EXPECT_EXIT(
        {
            ktSetVprintfCallbacks(to_stderr, nullptr, nullptr);
            Logger::getLogger(nullptr).setLevel(Level(Level::Off));
            panics(4, "silenced");
        },
        ::testing::ExitedWithCode(4), "^$");
}

TEST(Reports, FatalReportsAndAborts)
{
    EXPECT_EXIT(
        {
            ktSetVprintfCallbacks(to_stderr, nullptr, nullptr);
            fatal();
        },
        ::testing::KilledBySignal(SIGABRT),
        "^Severe:\nThe program '\\[[0-9]+\\] : Native' has exited with code 2 \\(0x2\\)\\.\n$");
}
