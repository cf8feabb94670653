// The process-wide log directory, the per-process log-file opener and
// fresh temporary names.
#include "kt/files.h"

#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>

#include <boost/filesystem.hpp>

namespace fs = boost::filesystem;

namespace {

// Recursive: ktGetLogDirectory installs the default through
// ktRegisterLogDirectory while it holds the lock.
std::recursive_mutex logDirectoryMutex;
char logDirectory[KT_LOG_DIRECTORY_SIZE];

// Copies `text` into `buffer` of `size` bytes, cut to size - 1 bytes.
void CopyCut(char* buffer, size_t size, const std::string& text) {
  size_t length = text.size() < size ? text.size() : size - 1;
  std::memcpy(buffer, text.data(), length);
  buffer[length] = '\0';
}

// The system's temporary directory: TMPDIR and its kin when one is set,
// else /tmp; /tmp also when the chosen one is not a directory. On this
// platform the native narrow form already is the file-system encoding.
std::string TemporaryDirectory() {
  boost::system::error_code error;
  fs::path directory = fs::temp_directory_path(error);
  return error ? std::string("/tmp") : directory.native();
}

std::string DefaultLogDirectory() {
  const char* home = std::getenv("HOME");
  if (home != nullptr && home[0] != '\0') return home;
  return TemporaryDirectory();
}

// A name in the temporary directory that nothing is known to occupy.
// Collisions of 64 random bits are tried again rather than assumed away;
// an entry that cannot be examined counts as free.
std::string FreshTemporaryName() {
  fs::path pattern = fs::path(TemporaryDirectory()) / "kt-%%%%-%%%%-%%%%-%%%%";
  fs::path name;
  boost::system::error_code error;
  for (int tries = 0; tries < 100; ++tries) {
    name = fs::unique_path(pattern, error);
    if (error || !fs::exists(fs::symlink_status(name, error))) break;
  }
  return name.native();
}

}  // namespace

extern "C" void ktRegisterLogDirectory(const char* directory) {
  std::lock_guard<std::recursive_mutex> lock(logDirectoryMutex);
  CopyCut(logDirectory, sizeof logDirectory,
          directory != nullptr ? std::string(directory) : DefaultLogDirectory());
}

extern "C" const char* ktGetLogDirectory(void) {
  std::lock_guard<std::recursive_mutex> lock(logDirectoryMutex);
  if (logDirectory[0] == '\0') ktRegisterLogDirectory(nullptr);
  return logDirectory;
}

std::pair<std::string, FILE*> ktOpenLogFile(const char* name) {
  std::string directory = ktGetLogDirectory();
  std::string file = std::string(name != nullptr ? name : "") + "." + std::to_string(getpid());
  std::string path = (fs::path(directory) / file).native();
  return {path, std::fopen(path.c_str(), "w+")};
}

extern "C" char* ktTmpnam(char* buffer) {
  thread_local std::unique_ptr<char[]> own;
  if (buffer == nullptr) {
    if (!own) own.reset(new char[KT_TMPNAM_BUFFER_SIZE]);
    buffer = own.get();
  }
  CopyCut(buffer, KT_TMPNAM_BUFFER_SIZE, FreshTemporaryName());
  return buffer;
}
