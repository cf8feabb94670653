#!/usr/bin/env bash
# The dynamic symbol table of libkt.so must equal the checked-in list in
# abi/*.symbols, both ways: a missing export and an unexpected one (an
# internal helper, a stand-in service, a leaked Boost/ICU/std symbol) both
# fail. C++ names are compared demangled.
set -euo pipefail
: "${KT_LIB:?path to libkt.so}" "${KT_SOURCE_DIR:?source tree}"

tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT

cat "$KT_SOURCE_DIR"/abi/*.symbols | sed '/^[[:space:]]*$/d; /^#/d' | LC_ALL=C sort -u >"$tmp/expected"
nm -D --defined-only "$KT_LIB" | cut -d' ' -f3- | c++filt | LC_ALL=C sort -u >"$tmp/actual"

if ! diff -u "$tmp/expected" "$tmp/actual" >"$tmp/diff"; then
  echo "Exported symbols differ from abi/*.symbols" >&2
  echo "('-' listed but not exported, '+' exported but not listed):" >&2
  grep -E '^[-+][^-+]' "$tmp/diff" >&2
  exit 1
fi
echo "exports match: $(wc -l <"$tmp/expected") symbols"
