// The automounter prefix rewrite, split into its pure steps for the tests
// and the fuzz target.
#ifndef KT_PLATFORM_PATHS_H
#define KT_PLATFORM_PATHS_H

#include <string>
#include <string_view>

namespace kt::internal {

// The two sides of an AUTOMOUNT_MAP value "PREFIX -> REPLACEMENT": the
// prefix without its trailing white space, the replacement without
// leading and trailing white space. Both view the parsed value.
struct AutoMountMap {
  std::string_view prefix;
  std::string_view replacement;
};

// Splits `value` at its first "->". False when there is no arrow or the
// prefix is empty: such a map rewrites nothing.
bool ParseAutoMountMap(std::string_view value, AutoMountMap* map);

// `path` with `map` applied: the replacement and the rest of the path when
// the path begins with the prefix, else the path itself; "/" for an empty
// result. A null map rewrites nothing. A prefix of PTRDIFF_MAX bytes or
// more is a failed assertion that ends the process.
std::string ApplyAutoMountMap(const AutoMountMap* map, std::string_view path);

}  // namespace kt::internal

#endif  // KT_PLATFORM_PATHS_H
