// Log directory, log files and paths through libkt.so: each rule as a table
// of cases, on real files in a scratch directory.
#include "kt/files.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace {

namespace fs = std::filesystem;

// Sets (or, for null, unsets) an environment variable while in scope.
class ScopedEnv {
public:
  ScopedEnv(const char* name, const char* value) : name_(name) {
    if (const char* old = std::getenv(name)) old_ = old;
    Set(value);
  }
  ~ScopedEnv() { Set(old_ ? old_->c_str() : nullptr); }

private:
  void Set(const char* value) {
    if (value != nullptr) setenv(name_, value, 1);
    else unsetenv(name_);
  }
  const char* name_;
  std::optional<std::string> old_;
};

class Scratch {
public:
  Scratch() {
    char pattern[] = "/tmp/kt_files_XXXXXX";
    path_ = fs::canonical(mkdtemp(pattern)).string();
  }
  ~Scratch() { fs::remove_all(path_); }
  const std::string& path() const { return path_; }
  std::string operator/(const std::string& name) const { return path_ + "/" + name; }

private:
  std::string path_;
};

TEST(LogDirectory, DefaultIsHomeElseTheTemporaryDirectory) {
  Scratch scratch;
  std::string file = scratch / "not-a-directory";
  fclose(fopen(file.c_str(), "w"));
  struct Case {
    const char* home;    // null: unset
    const char* tmpdir;  // null: unset
    std::string expected;
  } cases[] = {
      {"/home/someone", scratch.path().c_str(), "/home/someone"},
      {nullptr, nullptr, "/tmp"},
      {"", scratch.path().c_str(), scratch.path()},
      {nullptr, file.c_str(), "/tmp"},  // TMPDIR that is no directory
  };
  for (const Case& c : cases) {
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
  struct Case {
    std::string directory;
    const char* name;
    std::string expected;
    bool opens;
  } cases[] = {
      {scratch.path(), "timing_log", scratch / ("timing_log." + pid), true},
      {scratch.path() + "/", "perf_log", scratch / ("perf_log." + pid), true},
      {scratch.path(), nullptr, scratch / ("." + pid), true},
      {scratch / "missing", "timing_log", scratch / ("missing/timing_log." + pid), false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.expected);
    ktRegisterLogDirectory(c.directory.c_str());
    if (c.opens) {  // an existing file is truncated
      FILE* old = fopen(c.expected.c_str(), "w");
      fputs("old content", old);
      fclose(old);
    }
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
  ScopedEnv tmpdir("TMPDIR", scratch.path().c_str());
  std::set<std::string> names;
  const char* own = ktTmpnam(nullptr);
  for (int i = 0; i < 200; ++i) {
    char buffer[KT_TMPNAM_BUFFER_SIZE];
    ASSERT_EQ(ktTmpnam(buffer), buffer);
    names.insert(buffer);
    EXPECT_EQ(ktTmpnam(nullptr), own) << "the thread's buffer is reused";
    names.insert(own);
    EXPECT_EQ(std::string(own).rfind(scratch.path() + "/", 0), 0u) << own;
    EXPECT_FALSE(fs::exists(own));
  }
  EXPECT_EQ(names.size(), 400u);
  std::string mine = own;

  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([own] {
      const char* buffer = ktTmpnam(nullptr);
      EXPECT_NE(buffer, own);
      EXPECT_EQ(ktTmpnam(nullptr), buffer);
    });
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(own, mine) << "other threads left it alone";
}

TEST(AutoMount, PrefixRewriteFollowsTheMap) {
  struct Case {
    const char* map;  // null: AUTOMOUNT_MAP unset
    const char* path;
    const char* expected;
  } cases[] = {  // the fuzz target compares many more with a model
      {nullptr, "/a/b", "/a/b"},
      {nullptr, "", "/"},
      {"/tmp_mnt -> ", "/tmp_mnt/home/u", "/home/u"},
      {"/tmp_mnt", "/tmp_mnt/home/u", "/tmp_mnt/home/u"},  // no arrow
      {"/tmp_mnt", "", "/"},
      {"/tmp_mnt\t ->\t /net \n", "/tmp_mnt/x", "/net/x"},
      {" /tmp_mnt -> /net", "/tmp_mnt/x", "/tmp_mnt/x"},  // leading blanks belong to the prefix
      {" -> /net", "", "/"},                              // empty prefix
      {"/a -> /b", "/ab/c", "/bb/c"},                     // bytes, not path components
      {"/a ->", "/a", "/"},
      {"/a -> /b -> /c", "/a/x", "/b -> /c/x"},  // the first arrow splits
      {"/s -> /a/much/longer/root", "/s/t", "/a/much/longer/root/t"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.map ? c.map : "(unset)") + " | " + c.path);
    ScopedEnv map("AUTOMOUNT_MAP", c.map);
    char buffer[64];
    std::strcpy(buffer, c.path);
    EXPECT_EQ(ktFixAutoMountPrefix(buffer), buffer);
    EXPECT_STREQ(buffer, c.expected);
  }
  EXPECT_EQ(ktFixAutoMountPrefix(nullptr), nullptr);
}

TEST(AutoMount, GetcwdIsRewrittenAndFitsItsBuffer) {
  Scratch scratch;
  std::string start = fs::current_path();
  fs::current_path(scratch.path());
  std::string mapped = "/mapped/by/the/automounter";
  char buffer[4096];
  {
    ScopedEnv map("AUTOMOUNT_MAP", nullptr);
    EXPECT_EQ(ktGetcwd(buffer, sizeof buffer), buffer);
    EXPECT_EQ(buffer, scratch.path());
  }
  ScopedEnv map("AUTOMOUNT_MAP", (scratch.path() + " -> " + mapped).c_str());
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
  fclose(fopen((scratch / "file").c_str(), "w"));
  fclose(fopen((scratch / "linked").c_str(), "w"));
  ASSERT_EQ(link((scratch / "linked").c_str(), (scratch / "second-name").c_str()), 0);
  ASSERT_EQ(symlink("file", (scratch / "symlink").c_str()), 0);
  ASSERT_EQ(symlink("missing", (scratch / "dangling").c_str()), 0);
  ASSERT_EQ(symlink("file", (scratch / "linked-symlink").c_str()), 0);
  // link(2) does not follow a symbolic link: the link itself gets a name.
  ASSERT_EQ(link((scratch / "linked-symlink").c_str(), (scratch / "its-second").c_str()), 0);
  struct Case {
    std::string path;
    int expected;
  } cases[] = {
      {scratch / "file", KT_LINK_STATUS_SINGLE},
      {scratch / "linked", KT_LINK_STATUS_HARD},
      {scratch / "second-name", KT_LINK_STATUS_HARD},
      {scratch / "symlink", KT_LINK_STATUS_SYMBOLIC},
      {scratch / "dangling", KT_LINK_STATUS_SYMBOLIC},
      {scratch / "linked-symlink", KT_LINK_STATUS_HARD},  // the count wins
      {scratch.path(), KT_LINK_STATUS_HARD},              // "." counts as a link
      {scratch / "missing", KT_LINK_STATUS_UNKNOWN},
      {"", KT_LINK_STATUS_UNKNOWN},
  };
  for (const Case& c : cases) EXPECT_EQ(ktGetFileLinkStatus(c.path.c_str()), c.expected) << c.path;
  EXPECT_EQ(ktGetFileLinkStatus(nullptr), KT_LINK_STATUS_UNKNOWN);
}

}  // namespace
