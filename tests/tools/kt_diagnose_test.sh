#!/usr/bin/env bash
# kt diagnose on the loading tests' fixture libraries: the exact report of
# each cause (dependency tree, symbols grouped by the library that needs
# them, the loader's text), exit statuses, LD_LIBRARY_PATH in the child.
set -uo pipefail
: "${KT_TOOL:?path to the kt tool}" "${KT_LIB:?path to libkt.so}"

fixtures=$(cd "$(dirname "$KT_LIB")/../tests/so/dynload" && pwd) || { echo "no fixtures" >&2; exit 1; }
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
cd "$fixtures"
failures=0
fail() { echo "FAIL: $*" >&2; failures=$((failures + 1)); }
expect() {  # name, expected status, expected output, command...
  local name=$1 want_status=$2 want=$3; shift 3
  local got status
  got=$("$@" 2>&1); status=$?
  [ "$status" -eq "$want_status" ] || fail "$name: status $status, expected $want_status"
  [ "$got" = "$want" ] || fail "$name:"$'\n'"$got"$'\n'"--- expected:"$'\n'"$want"
}

expect "good" 0 "libkt_good.so: loads" "$KT_TOOL" diagnose libkt_good.so

expect "chain" 1 "libkt_chain_a.so: missing libraries
  libkt_chain_a.so
    libkt_chain_b.so
      libkt_absent.so (not found)
  loader: libkt_absent.so: cannot open shared object file: No such file or directory" \
  "$KT_TOOL" diagnose libkt_chain_a.so

expect "both, after a good one" 1 "$fixtures/libkt_good.so: loads
$fixtures/libkt_both.so: missing libraries and symbols
  libkt_both.so
    libkt_absent.so (not found)
  libkt_both.so needs:
    kt_test_undefined_function
  loader: libkt_absent.so: cannot open shared object file: No such file or directory" \
  "$KT_TOOL" diagnose "$fixtures/libkt_good.so" "$fixtures/libkt_both.so"

expect "symbol through \$ORIGIN" 1 "libkt_origin.so: missing symbols
  libkt_origin.so -> libkt_origin_dep.so needs:
    kt_test_origin_missing
  loader: $fixtures/./origin_sub/libkt_origin_dep.so: undefined symbol: kt_test_origin_missing" \
  "$KT_TOOL" diagnose libkt_origin.so

# The loader sees LD_LIBRARY_PATH only at start-up: a child started with it.
expect "LD_LIBRARY_PATH" 1 "libkt_ldpath.so: missing symbols
  libkt_ldpath.so -> libkt_ldpath_dep.so needs:
    kt_test_ldpath_missing
  loader: $fixtures/ldpath_dir/libkt_ldpath_dep.so: undefined symbol: kt_test_ldpath_missing" \
  env LD_LIBRARY_PATH="$fixtures/ldpath_dir" "$KT_TOOL" diagnose libkt_ldpath.so
expect "without LD_LIBRARY_PATH" 1 "libkt_ldpath.so: missing libraries
  libkt_ldpath.so
    libkt_ldpath_dep.so (not found)
  loader: libkt_ldpath_dep.so: cannot open shared object file: No such file or directory" \
  env -u LD_LIBRARY_PATH "$KT_TOOL" diagnose libkt_ldpath.so

printf 'just text\n' >"$tmp/notes.so"
expect "text file" 1 "$tmp/notes.so: not a shared library (not an ELF file)
  loader: $tmp/notes.so: file too short" "$KT_TOOL" diagnose "$tmp/notes.so"
if [ -e libkt_m32.so ]; then
  expect "32-bit" 1 "libkt_m32.so: wrong architecture (an ELF file, but not 64-bit)
  loader: ./libkt_m32.so: wrong ELF class: ELFCLASS32" "$KT_TOOL" diagnose libkt_m32.so
fi
expect "nothing there" 1 "$tmp/none.so: does not load; nothing wrong found beyond the loader's message
  loader: $tmp/none.so: cannot open shared object file: No such file or directory" \
  "$KT_TOOL" diagnose "$tmp/none.so"

"$KT_TOOL" diagnose >/dev/null 2>&1; [ $? -eq 2 ] || fail "no library: status"
"$KT_TOOL" diagnose --help | grep -q 'Usage: kt diagnose' || fail "--help"

[ $failures -eq 0 ] && echo "kt diagnose: all cases pass"
exit $((failures > 0))
