// The AUTOMOUNT_MAP rewrite of ktFixAutoMountPrefix, against a model built
// from the rule's wording with std::string searches. Input: the map value,
// a NUL, then the path; without a NUL the variable is unset and the whole
// input is the path.
//
// Checked: the internal parse-and-apply and the public function (reading
// the real environment, writing into a buffer of exactly the room the
// result needs) both give the model's result.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "kt/files.h"
#include "platform/paths.h"

namespace {

const char* const kBlanks = " \t\n\v\f\r";

std::string Model(const std::string* map, const std::string& path) {
  std::string result = path;
  size_t arrow = map != nullptr ? map->find("->") : std::string::npos;
  if (arrow != std::string::npos) {
    std::string prefix = map->substr(0, arrow);
    prefix.erase(prefix.find_last_not_of(kBlanks) + 1);
    std::string replacement = map->substr(arrow + 2);
    replacement.erase(0, replacement.find_first_not_of(kBlanks));
    replacement.erase(replacement.find_last_not_of(kBlanks) + 1);
    if (!prefix.empty() && path.compare(0, prefix.size(), prefix) == 0)
      result = replacement + path.substr(prefix.size());
  }
  return result.empty() ? "/" : result;
}

// The variable lives in this buffer (putenv keeps the pointer), so setting
// it allocates nothing per run.
char g_env[1 << 16] = "AUTOMOUNT_MAP=";

void SetMap(const std::string* map) {
  if (map == nullptr) {
    unsetenv("AUTOMOUNT_MAP");
    return;
  }
  std::snprintf(g_env, sizeof g_env, "AUTOMOUNT_MAP=%s", map->c_str());
  putenv(g_env);
}

void Fail(const char* what, const std::string& got, const std::string& want) {
  std::fprintf(stderr, "automount_fuzz: %s: got '%s', want '%s'\n", what, got.c_str(), want.c_str());
  std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string input(reinterpret_cast<const char*>(data), size);
  size_t split = input.find('\0');
  std::string mapText = input.substr(0, split);
  const std::string* map = split != std::string::npos ? &mapText : nullptr;
  std::string path = map != nullptr ? input.substr(split + 1) : input;
  path = path.c_str();  // a C string ends at its first NUL
  std::string want = Model(map, path);

  kt::internal::AutoMountMap parsed;
  bool active = map != nullptr && kt::internal::ParseAutoMountMap(*map, &parsed);
  std::string got = kt::internal::ApplyAutoMountMap(active ? &parsed : nullptr, path);
  if (got != want) Fail("internal rewrite", got, want);

  if (map != nullptr && map->size() + 15 > sizeof g_env) return 0;
  SetMap(map);
  size_t room = (path.size() > want.size() ? path.size() : want.size()) + 1;
  std::unique_ptr<char[]> buffer(new char[room]);
  std::memcpy(buffer.get(), path.c_str(), path.size() + 1);
  if (ktFixAutoMountPrefix(buffer.get()) != buffer.get()) Fail("result pointer", "", "");
  if (want != buffer.get()) Fail("ktFixAutoMountPrefix", buffer.get(), want);
  return 0;
}
