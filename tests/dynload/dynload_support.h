// Test support for the loading tests: fixture paths, ASCII UTF-16, a
// temporary directory, the /tmp names the process runner uses.
#ifndef KT_TESTS_DYNLOAD_SUPPORT_H
#define KT_TESTS_DYNLOAD_SUPPORT_H

#include <dirent.h>
#include <stdlib.h>
#include <unistd.h>

#include <fstream>
#include <set>
#include <string>

#include <gtest/gtest.h>

#include "kt/errors.h"

namespace kttest {

inline std::string Fixture(const std::string& name) {
  return std::string(KT_DYNLOAD_FIXTURE_DIR) + "/" + name;
}

// ASCII text both ways (test names and paths are ASCII).
inline cx::ustring U(const std::string& ascii) { return cx::ustring(ascii.begin(), ascii.end()); }
inline std::string A(const cx::ustring& text) { return std::string(text.begin(), text.end()); }

// A fresh directory, removed with everything in it at the end of the scope.
class TempDir {
public:
  TempDir() {
    std::string pattern = ::testing::TempDir() + "kt_dynload_XXXXXX";
    path_ = mkdtemp(&pattern[0]) != nullptr ? pattern : std::string();
  }
  ~TempDir() {
    if (!path_.empty()) std::system(("rm -rf '" + path_ + "'").c_str());
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  const std::string& path() const { return path_; }

private:
  std::string path_;
};

inline void CopyFile(const std::string& from, const std::string& to) {
  std::ifstream in(from, std::ios::binary);
  std::ofstream out(to, std::ios::binary);
  out << in.rdbuf();
}

// The runner's "/tmp/tmp.XXXXXX" files present now.
inline std::set<std::string> RunnerTempFiles() {
  std::set<std::string> names;
  if (DIR* dir = opendir("/tmp")) {
    while (dirent* entry = readdir(dir)) {
      std::string name = entry->d_name;
      if (name.size() == 10 && name.rfind("tmp.", 0) == 0) names.insert(name);
    }
    closedir(dir);
  }
  return names;
}

// The runner files that appeared since `before` and are still there after
// five seconds: ours, left behind. Only the names present at the first look
// are waited for, so the steady stream of files of other test processes
// running the tools at the same time cannot keep the answer non-empty; a
// file we leave behind never goes away.
inline std::set<std::string> LeftBehind(const std::set<std::string>& before) {
  std::set<std::string> left;
  for (const std::string& name : RunnerTempFiles())
    if (before.count(name) == 0) left.insert(name);
  for (int wait = 0; wait < 50 && !left.empty(); ++wait) {
    usleep(100000);
    std::set<std::string> now = RunnerTempFiles(), still;
    for (const std::string& name : left)
      if (now.count(name) != 0) still.insert(name);
    left.swap(still);
  }
  return left;
}

}  // namespace kttest

#endif  // KT_TESTS_DYNLOAD_SUPPORT_H
