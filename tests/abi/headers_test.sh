#!/usr/bin/env bash
# Every public header compiles on its own, warning-free, as C11 (callers
# include the procedural families from C) and as C++17.
set -uo pipefail
: "${KT_SOURCE_DIR:?source tree}"
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
failures=0
for header in "$KT_SOURCE_DIR"/include/kt/*.h; do
  name=$(basename "$header")
  printf '#include <kt/%s>\n#include <kt/%s>\nint kt_header_test_anchor;\n' "$name" "$name" >"$tmp/use.c"  # twice: guards
  gcc -std=c11 -Wall -Wextra -Wpedantic -Werror -fsyntax-only -I"$KT_SOURCE_DIR/include" \
    -x c "$tmp/use.c" || { echo "FAIL: $name as C" >&2; failures=$((failures + 1)); }
  g++ -std=c++17 -Wall -Wextra -Wpedantic -Wshadow -Werror -fsyntax-only \
    -I"$KT_SOURCE_DIR/include" -x c++ "$tmp/use.c" ||
    { echo "FAIL: $name as C++" >&2; failures=$((failures + 1)); }
done
[ $failures -eq 0 ] && echo "all public headers stand alone in C and C++"
exit $((failures > 0))
