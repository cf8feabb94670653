// The current directory with the automounter prefix rewrite, and the link
// status of a path.
#include "platform/paths.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "internal/diag.h"
#include "kt/files.h"

namespace kt::internal {
namespace {

constexpr const char* kModule = "getcwd";
constexpr const char* kFixFunction = "char* ktFixAutoMountPrefix(char*)";

bool IsSpace(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}

std::string_view TrimRight(std::string_view text) {
  while (!text.empty() && IsSpace(text.back())) text.remove_suffix(1);
  return text;
}

std::string_view TrimLeft(std::string_view text) {
  while (!text.empty() && IsSpace(text.front())) text.remove_prefix(1);
  return text;
}

}  // namespace

bool ParseAutoMountMap(std::string_view value, AutoMountMap* map) {
  size_t arrow = value.find("->");
  if (arrow == std::string_view::npos) return false;
  // Only the blanks before the arrow go: leading ones belong to the prefix.
  map->prefix = TrimRight(value.substr(0, arrow));
  map->replacement = TrimRight(TrimLeft(value.substr(arrow + 2)));
  return !map->prefix.empty();
}

std::string ApplyAutoMountMap(const AutoMountMap* map, std::string_view path) {
  std::string result(path);
  if (map != nullptr) {
    size_t oldlen = map->prefix.size();
    if (!(oldlen < static_cast<size_t>(PTRDIFF_MAX)))
      diag::AssertionFailed("oldlen < PTRDIFF_MAX", kModule, __LINE__, kFixFunction);
    if (path.substr(0, oldlen) == map->prefix)
      result = std::string(map->replacement) + std::string(path.substr(oldlen));
  }
  if (result.empty()) result = "/";
  return result;
}

}  // namespace kt::internal

namespace {

// The rewrite of `path` by the current AUTOMOUNT_MAP.
std::string RewriteByEnvironment(const char* path) {
  kt::internal::AutoMountMap map;
  const char* value = std::getenv("AUTOMOUNT_MAP");
  bool active = value != nullptr && kt::internal::ParseAutoMountMap(value, &map);
  return kt::internal::ApplyAutoMountMap(active ? &map : nullptr, path);
}

}  // namespace

extern "C" char* ktFixAutoMountPrefix(char* path) {
  if (path == nullptr) return nullptr;
  std::string fixed = RewriteByEnvironment(path);
  std::memcpy(path, fixed.c_str(), fixed.size() + 1);
  return path;
}

extern "C" char* ktGetcwd(char* buffer, size_t size) {
  char* cwd = getcwd(buffer, size);
  if (cwd == nullptr) return nullptr;
  std::string fixed = RewriteByEnvironment(cwd);
  if (buffer == nullptr && size == 0) {
    // getcwd allocated just what the unrewritten path needed.
    char* grown = static_cast<char*>(std::realloc(cwd, fixed.size() + 1));
    if (grown == nullptr) {
      std::free(cwd);
      errno = ENOMEM;
      return nullptr;
    }
    cwd = grown;
  } else if (fixed.size() >= size) {
    if (buffer == nullptr) std::free(cwd);
    errno = ERANGE;
    return nullptr;
  }
  std::memcpy(cwd, fixed.c_str(), fixed.size() + 1);
  return cwd;
}

extern "C" int ktGetFileLinkStatus(const char* path) {
  struct stat info;
  if (path == nullptr || lstat(path, &info) != 0) return KT_LINK_STATUS_UNKNOWN;
  // The hard-link count is looked at before the type, so a symbolic link
  // with several hard links reports 2. Callers rely on that order.
  if (info.st_nlink > 1) return KT_LINK_STATUS_HARD;
  if (S_ISLNK(info.st_mode)) return KT_LINK_STATUS_SYMBOLIC;
  return KT_LINK_STATUS_SINGLE;
}
