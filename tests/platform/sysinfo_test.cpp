// OS and processor queries through the exported API. The cached queries
// are only ever called in forked children, which start with empty caches
// and their own environment; this process never fills them.
#include "kt/sysinfo.h"

#include <dlfcn.h>
#include <sys/stat.h>
#include <sys/utsname.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "kt/diagnostics.h"
#include "kt/memory.h"

namespace {

// Runs `body` in a forked child and returns the text it returned.
std::string InChild(const std::function<std::string()>& body) {
  int fds[2];
  if (pipe(fds) != 0) return "pipe failed";
  std::fflush(nullptr);
  pid_t pid = fork();
  if (pid == 0) {
    std::string result = body();
    _exit(write(fds[1], result.data(), result.size()) == ssize_t(result.size()) ? 0 : 1);
  }
  close(fds[1]);
  std::string text;
  char buffer[512];
  for (ssize_t n; (n = read(fds[0], buffer, sizeof buffer)) > 0;) text.append(buffer, size_t(n));
  close(fds[0]);
  int status = 0;
  waitpid(pid, &status, 0);
  return WIFEXITED(status) && WEXITSTATUS(status) == 0 ? text : "child failed: " + text;
}

std::string UnameText() {
  struct utsname u;
  if (uname(&u) != 0) return "unknown";
  return std::string(u.sysname) + " " + u.release + " " + u.version + " " + u.machine;
}

std::string TakeOsCompat() {
  char* text = ktGetOSCompat();
  std::string copy = text != nullptr ? text : "(null)";
  ktFree(text);
  return copy;
}

// In a child: every record of both channels from now on, and standard
// error, captured for GetCapturedStderr.
void CaptureDiagnostics() {
  ktSetDiagnosticMask("sysinfo", ~0u);
  ktSetDiagnosticMask("thread_recommendation", ~0u);
  testing::internal::CaptureStderr();
}

}  // namespace

// A fake lsb_release as the only command on PATH, next to a fake uname:
// the fallback must come from the system call.
TEST(Sysinfo, OsCompatFromLsbRelease) {
  const std::string uname = UnameText();
  const struct {
    const char* script;  // the fake lsb_release's body; null: none on PATH
    std::string result;
    const char* logged;  // expected on the "sysinfo" channel besides " osName="
  } cases[] = {
      // quotes kept, one newline removed, the argument passed
      {"printf '\"Fake %s\"\\n\\n' \"$*\"", "\"Fake -ds\"\n", nullptr},
      {"echo desc; echo warning >&2", "desc", "Unexpected output to stderr. unexpected=warning"},
      {"echo desc; exit 1", uname, nullptr},
      {"echo", uname, nullptr},
      {nullptr, uname, "Unexpected output to stderr. unexpected="},  // the shell's "not found"
  };
  std::string dir = ::testing::TempDir() + "kt_fake_path_" + std::to_string(getpid());
  for (const auto& c : cases) {
    std::filesystem::remove_all(dir);
    std::filesystem::create_directories(dir);
    std::ofstream(dir + "/uname") << "#!/bin/sh\necho fake uname\n";
    if (c.script) std::ofstream(dir + "/lsb_release") << "#!/bin/sh\n" << c.script << "\n";
    for (const char* tool : {"/uname", "/lsb_release"}) chmod((dir + tool).c_str(), 0755);
    std::string got = InChild([&] {
      CaptureDiagnostics();
      setenv("PATH", dir.c_str(), 1);
      std::string result = TakeOsCompat();
      std::string log = testing::internal::GetCapturedStderr();
      if (log.find(" osName=" + result) == std::string::npos ||
          (c.logged != nullptr && log.find(c.logged) == std::string::npos))
        return "diagnostics missing: " + log;
      return result;
    });
    EXPECT_EQ(got, c.result) << (c.script ? c.script : "no lsb_release");
  }
  std::filesystem::remove_all(dir);
}

TEST(Sysinfo, ConcurrentFirstCallsComputeOnce) {
  std::string got = InChild([] {
    CaptureDiagnostics();
    std::vector<std::string> answers(8);
    std::atomic<bool> go{false};
    std::vector<std::thread> threads;
    for (std::string& answer : answers)
      threads.emplace_back([&answer, &go] {
        while (!go.load()) std::this_thread::yield();
        answer = std::to_string(ktGetNumAllCores()) + "|" + TakeOsCompat() + "|" +
                 std::to_string(reinterpret_cast<uintptr_t>(ktGetOS()));
      });
    go = true;
    for (std::thread& thread : threads) thread.join();
    for (const std::string& answer : answers)
      if (answer != answers[0]) return "disagree: " + answer + " vs " + answers[0];
    std::string log = testing::internal::GetCapturedStderr();
    for (const char* record : {" osName=", " include_smt="})
      if (log.find(record) == std::string::npos || log.find(record) != log.rfind(record))
        return "not computed once: " + log;
    return std::string("ok");
  });
  EXPECT_EQ(got, "ok");
}

// The tools' query functions are found in the global scope only; this
// test program defines none of them.
TEST(Sysinfo, MemoryToolQueries) {
  const struct {
    int loadFlags;  // how the fake tools' library is loaded; 0: not at all
    const char* answers;
  } cases[] = {{0, "0 0 0 0 0 "}, {RTLD_NOW | RTLD_LOCAL, "0 0 0 0 0 "},
               {RTLD_NOW | RTLD_GLOBAL, "11 22 33 0 1 "}};
  for (const auto& c : cases) {
    std::string got = InChild([&c] {
      if (c.loadFlags && !dlopen(KT_TEST_SO_DIR "/libmemory_tools_so.so", c.loadFlags))
        return std::string(dlerror());
      std::string text;
      for (int answer : {ktIsPurifyRunning(), ktIsQuantifyRunning(), ktIsCoverageRunning(),
                         ktIsValgrindRunning(), ktIsMemoryDiagnosticToolRunning()})
        text += std::to_string(answer) + " ";
      return text;
    });
    EXPECT_EQ(got, c.answers) << c.loadFlags;
  }
}
