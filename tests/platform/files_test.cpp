// Log directory, log files and paths through libkt.so: each rule as a table
// of cases, on real files in a scratch directory.
#include "kt/files.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace {

namespace fs = std::filesystem;

// Sets (or, for null, unsets) an environment variable while in scope.
struct ScopedEnv {
  ScopedEnv(const char* name, const char* value) : variable(name) {
    if (const char* was = std::getenv(name)) old = was;
    Set(name, value);
  }
  ~ScopedEnv() { Set(variable, old ? old->c_str() : nullptr); }
  static void Set(const char* name, const char* value) {
    if (value != nullptr) setenv(name, value, 1);
    else unsetenv(name);
  }
  const char* variable;
  std::optional<std::string> old;
};

struct Scratch {  // a directory of the test's own, removed with its contents
  Scratch() {
    char pattern[] = "/tmp/kt_files_XXXXXX";
    path = fs::canonical(mkdtemp(pattern)).string();
  }
  ~Scratch() { fs::remove_all(path); }
  std::string operator/(const std::string& name) const { return path + "/" + name; }
  std::string path;
};

void Touch(const std::string& path) { fclose(fopen(path.c_str(), "w")); }

TEST(LogDirectory, DefaultIsHomeElseTheTemporaryDirectory) {
  Scratch scratch;
  std::string file = scratch / "not-a-directory";
  Touch(file);
  const struct {
    const char *home, *tmpdir;  // null: unset
    std::string expected;
  } cases[] = {{"/home/someone", scratch.path.c_str(), "/home/someone"}, {nullptr, nullptr, "/tmp"},
               {"", scratch.path.c_str(), scratch.path},
               {nullptr, file.c_str(), "/tmp"}};  // TMPDIR that is no directory
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.home ? c.home : "(unset)") + " " + (c.tmpdir ? c.tmpdir : "(unset)"));
    ScopedEnv home("HOME", c.home), tmpdir("TMPDIR", c.tmpdir);
    ktRegisterLogDirectory(nullptr);
    EXPECT_EQ(ktGetLogDirectory(), c.expected);
    ktRegisterLogDirectory("");
    EXPECT_EQ(ktGetLogDirectory(), c.expected) << "an empty registration means the default";
  }
}

TEST(LogDirectory, RegistrationIsCopiedAndCutTo4095Bytes) {
  const char* buffer = ktGetLogDirectory();
  for (size_t length : {2u, 100u, 4094u, 4095u, 4096u, 5000u}) {
    std::string directory(length, 'd');
    directory[0] = '/';
    directory[length - 1] = 'e';
    ktRegisterLogDirectory(directory.c_str());
    directory[0] = 'x';  // the library keeps its own copy
    EXPECT_EQ(ktGetLogDirectory(), buffer) << "one shared buffer";
    EXPECT_EQ(std::strlen(buffer), std::min<size_t>(length, 4095));
    EXPECT_EQ(buffer[0], '/');
    EXPECT_EQ(buffer[std::strlen(buffer) - 1], length <= 4095 ? 'e' : 'd');
  }
  ktRegisterLogDirectory(nullptr);
}

TEST(LogFiles, PathIsDirectoryNameAndProcessId) {
  Scratch scratch;
  std::string pid = std::to_string(getpid());
  const struct {
    std::string directory;
    const char* name;
    std::string expected;
    bool opens;
  } cases[] = {
      {scratch.path, "timing_log", scratch / ("timing_log." + pid), true},
      {scratch.path + "/", "perf_log", scratch / ("perf_log." + pid), true},
      {scratch.path, nullptr, scratch / ("." + pid), true},
      {scratch / "missing", "timing_log", scratch / ("missing/timing_log." + pid), false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.expected);
    ktRegisterLogDirectory(c.directory.c_str());
    if (c.opens) std::ofstream(c.expected) << "old content";  // to be truncated
    errno = 0;
    auto [path, file] = ktOpenLogFile(c.name);
    EXPECT_EQ(path, c.expected) << "the path is filled in either way";
    ASSERT_EQ(file != nullptr, c.opens);
    if (!c.opens) {
      EXPECT_EQ(errno, ENOENT);
      continue;
    }
    char text[32] = {};
    EXPECT_EQ(fread(text, 1, sizeof text, file), 0u) << "truncated";
    fputs("written", file);  // "w+": written and read back
    rewind(file);
    EXPECT_STREQ(fgets(text, sizeof text, file), "written");
    fclose(file);
  }
  ktRegisterLogDirectory(nullptr);
}

// Names are full paths in the temporary directory, unique, not taken, and
// each thread has its own buffer.
TEST(Tmpnam, FreshNamesInPerThreadBuffers) {
  Scratch scratch;
  ScopedEnv tmpdir("TMPDIR", scratch.path.c_str());
  std::set<std::string> names;
  const char* own = ktTmpnam(nullptr);
  for (int i = 0; i < 200; ++i) {
    char buffer[KT_TMPNAM_BUFFER_SIZE];
    ASSERT_EQ(ktTmpnam(buffer), buffer);
    names.insert(buffer);
    EXPECT_EQ(ktTmpnam(nullptr), own) << "the thread's buffer is reused";
    names.insert(own);
    EXPECT_EQ(std::string(own).rfind(scratch.path + "/", 0), 0u) << own;
    EXPECT_FALSE(fs::exists(own));
  }
  EXPECT_EQ(names.size(), 400u);
  std::string mine = own;

  std::thread([own] {
    const char* buffer = ktTmpnam(nullptr);
    EXPECT_NE(buffer, own);
    EXPECT_EQ(ktTmpnam(nullptr), buffer);
  }).join();
  EXPECT_EQ(own, mine) << "other threads left it alone";
}

// The rule against a model on arbitrary maps and paths is
// fuzz/automount_fuzz.cpp's; here the public function's own paths.
TEST(AutoMount, PrefixRewriteFollowsTheMap) {
  const struct {
    const char* map;  // null: AUTOMOUNT_MAP unset
    const char* path;
    const char* expected;
  } cases[] = {{nullptr, "/a/b", "/a/b"}, {nullptr, "", "/"}, {"/tmp_mnt", "", "/"},
               {"/tmp_mnt\t ->\t /net \n", "/tmp_mnt/x", "/net/x"},
               {"/s -> /a/much/longer/root", "/s/t", "/a/much/longer/root/t"}};
  for (const auto& c : cases) {
    ScopedEnv map("AUTOMOUNT_MAP", c.map);
    char buffer[64];
    std::strcpy(buffer, c.path);
    EXPECT_EQ(ktFixAutoMountPrefix(buffer), buffer);
    EXPECT_STREQ(buffer, c.expected) << (c.map ? c.map : "(unset)") << " | " << c.path;
  }
  EXPECT_EQ(ktFixAutoMountPrefix(nullptr), nullptr);
}

TEST(AutoMount, GetcwdIsRewrittenAndFitsItsBuffer) {
  Scratch scratch;
  std::string start = fs::current_path();
  fs::current_path(scratch.path);
  std::string mapped = "/mapped/by/the/automounter";
  char buffer[4096];
  {
    ScopedEnv map("AUTOMOUNT_MAP", nullptr);
    EXPECT_EQ(ktGetcwd(buffer, sizeof buffer), buffer);
    EXPECT_EQ(buffer, scratch.path);
  }
  ScopedEnv map("AUTOMOUNT_MAP", (scratch.path + " -> " + mapped).c_str());
  EXPECT_EQ(ktGetcwd(buffer, sizeof buffer), buffer);
  EXPECT_EQ(buffer, mapped);
  char* allocated = ktGetcwd(nullptr, 0);  // grown for the longer text
  ASSERT_NE(allocated, nullptr);
  EXPECT_EQ(allocated, mapped);
  free(allocated);
  for (size_t size : {mapped.size() + 1, mapped.size()}) {  // fits, one byte short
    std::vector<char> exact(size);
    errno = 0;
    EXPECT_EQ(ktGetcwd(exact.data(), size) != nullptr, size > mapped.size());
    EXPECT_EQ(errno, size > mapped.size() ? 0 : ERANGE);
  }
  fs::current_path(start);
}

TEST(LinkStatus, HardLinkCountComesBeforeTheType) {
  Scratch scratch;
  Touch(scratch / "file");
  Touch(scratch / "linked");
  ASSERT_EQ(link((scratch / "linked").c_str(), (scratch / "second-name").c_str()), 0);
  ASSERT_EQ(symlink("file", (scratch / "symlink").c_str()), 0);
  ASSERT_EQ(symlink("missing", (scratch / "dangling").c_str()), 0);
  ASSERT_EQ(symlink("file", (scratch / "linked-symlink").c_str()), 0);
  // link(2) does not follow a symbolic link: the link itself gets a name.
  ASSERT_EQ(link((scratch / "linked-symlink").c_str(), (scratch / "its-second").c_str()), 0);
  const std::pair<std::string, int> cases[] = {
      {scratch / "file", KT_LINK_STATUS_SINGLE},        {scratch / "linked", KT_LINK_STATUS_HARD},
      {scratch / "second-name", KT_LINK_STATUS_HARD},   {scratch / "symlink", KT_LINK_STATUS_SYMBOLIC},
      {scratch / "dangling", KT_LINK_STATUS_SYMBOLIC},
      {scratch / "linked-symlink", KT_LINK_STATUS_HARD},  // the count wins
      {scratch.path, KT_LINK_STATUS_HARD},                // "." counts as a link
      {scratch / "missing", KT_LINK_STATUS_UNKNOWN},    {"", KT_LINK_STATUS_UNKNOWN}};
  for (const auto& [path, expected] : cases) EXPECT_EQ(ktGetFileLinkStatus(path.c_str()), expected) << path;
  EXPECT_EQ(ktGetFileLinkStatus(nullptr), KT_LINK_STATUS_UNKNOWN);
}

}  // namespace
