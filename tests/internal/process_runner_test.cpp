// The process runner: outputs and status captured, hostile text quoted so
// that it never runs, no temporary file left behind, concurrent runs kept
// apart.
#include "internal/process_runner.h"

#include <dirent.h>
#include <unistd.h>

#include <fstream>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

using bedrock::core::process::run;
using bedrock::core::process::shell_quote;

namespace {

std::set<std::string> TempNames() {
  std::set<std::string> names;
  if (DIR* dir = opendir("/tmp")) {
    while (dirent* entry = readdir(dir))
      if (std::string(entry->d_name).rfind("tmp.", 0) == 0) names.insert(entry->d_name);
    closedir(dir);
  }
  return names;
}

}  // namespace

TEST(ProcessRunner, StatusAndBothOutputs) {
  const struct {
    const char* command;
    int status;
    const char* out;
    const char* err;
  } cases[] = {
      {"echo hello; echo oops >&2", 0, "hello\n", "oops\n"},
      {"printf 'a\\tb'; exit 3", 3, "a\tb", ""},
      {"kill -9 $$", 128 + 9, "", ""},
      {"no_such_command_for_kt_tests", 127, "", nullptr},  // the shell's complaint
  };
  std::set<std::string> before = TempNames();
  for (const auto& c : cases) {
    std::string out = "stale", err = "stale";
    EXPECT_EQ(run(c.command, out, err), c.status) << c.command;
    EXPECT_EQ(out, c.out) << c.command;
    if (c.err) EXPECT_EQ(err, c.err) << c.command;
    else EXPECT_NE(err, "") << c.command;
  }
  EXPECT_EQ(TempNames(), before) << "the script and output files are removed";
}

// Text quoted for the shell is one word whatever it holds: nothing in it
// runs (no marker file appears) and it comes back unchanged.
TEST(ProcessRunner, QuotedTextNeverRuns) {
  std::string marker = ::testing::TempDir() + "kt_runner_marker";
  std::remove(marker.c_str());
  const std::string hostile[] = {
      "with space", "it's", "a\"b", "; touch " + marker, "| touch " + marker,
      "$(touch " + marker + ")", "`touch " + marker + "`", "x\ntouch " + marker, "'; touch " + marker + "; '",
      "$HOME", "*", "-n",
  };
  for (const std::string& word : hostile) {
    std::string out, err;
    EXPECT_EQ(run("printf '%s' " + shell_quote(word), out, err), 0) << word;
    EXPECT_EQ(out, word);
    EXPECT_NE(access(marker.c_str(), F_OK), 0) << "ran: " << word;
  }
}

TEST(ProcessRunner, ConcurrentRunsKeepTheirOutputs) {
  std::vector<std::thread> threads;
  std::vector<int> wrong(4, 0);
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([t, &wrong] {
      for (int i = 0; i < 10; ++i) {
        std::string out, err, expected = std::to_string(t) + "-" + std::to_string(i);
        if (run("echo " + expected, out, err) != 0 || out != expected + "\n") ++wrong[t];
      }
    });
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(wrong, std::vector<int>(4, 0));
}
