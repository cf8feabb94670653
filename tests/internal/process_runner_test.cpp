// The process runner: outputs and status captured, hostile text quoted so
// that it never runs, no temporary file left behind, concurrent runs kept
// apart.
#include "internal/process_runner.h"

#include <unistd.h>

#include <regex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

using bedrock::core::process::run;
using bedrock::core::process::shell_quote;

namespace {

// The temporary files of a run, as its script names them: the script is
// "$0" and holds the names of the two output files.
std::set<std::string> TempFilesOf(const std::string& script) {
  std::set<std::string> names;
  std::regex name("/tmp/tmp\\.[A-Za-z0-9]{6}");
  for (std::sregex_iterator it(script.begin(), script.end(), name), end; it != end; ++it)
    names.insert(it->str());
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
  for (const auto& c : cases) {
    std::string out = "stale", err = "stale";
    EXPECT_EQ(run(c.command, out, err), c.status) << c.command;
    EXPECT_EQ(out, c.out) << c.command;
    if (c.err) EXPECT_EQ(err, c.err) << c.command;
    else EXPECT_NE(err, "") << c.command;
  }
}

// The script and both output files are gone after the run, whether the
// command succeeded, failed or was killed.
TEST(ProcessRunner, RemovesItsTemporaryFiles) {
  for (const char* ending : {"", "; exit 4", "; kill -9 $$"}) {
    std::string out, err;
    run(std::string("echo \"$0\" >&2; cat \"$0\" >&2") + ending, out, err);
    std::set<std::string> files = TempFilesOf(err);
    EXPECT_EQ(files.size(), 3u) << err;
    for (const std::string& file : files) EXPECT_NE(access(file.c_str(), F_OK), 0) << file;
  }
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
