#!/usr/bin/env bash
# The whole test suite from a fresh Debian 12 machine: installs what is
# missing, then builds and tests
#   1. the normal build (all tests, then install + example consumers),
#   2. a ThreadSanitizer build (the concurrency tests),
#   3. an AddressSanitizer + UndefinedBehaviorSanitizer build (all tests),
#   4. every libFuzzer target of fuzz/ for 30 seconds (clang, ASan + UBSan);
# any failure, sanitizer report or fuzzing finding fails the run.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$root"
bash scripts/deps.sh
jobs=$(nproc)

configure_and_build() {  # dir, extra cmake args...
  local dir=$1; shift
  cmake -S . -B "$dir" -G Ninja -Wno-dev "$@" >/dev/null
  cmake --build "$dir" -j "$jobs"
}

echo "== normal build =="
configure_and_build build/release -DCMAKE_BUILD_TYPE=RelWithDebInfo
ctest --test-dir build/release --output-on-failure -j "$jobs"

echo "== install and example consumers =="
rm -rf build/install
cmake --install build/release --prefix "$root/build/install" >/dev/null
bash examples/build_consumers.sh "$root/build/install" "$root/build/consumers"

echo "== ThreadSanitizer build (concurrency tests) =="
configure_and_build build/tsan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DKT_SANITIZE=thread \
  -DKT_BUILD_BENCH=OFF
TSAN_OPTIONS="halt_on_error=1 second_deadlock_stack=1" \
  ctest --test-dir build/tsan --output-on-failure -j "$jobs" -R 'Concurren|Thread'

echo "== AddressSanitizer + UndefinedBehaviorSanitizer build =="
configure_and_build build/asan -DCMAKE_BUILD_TYPE=Debug -DKT_SANITIZE=address \
  -DKT_BUILD_BENCH=OFF
ASAN_OPTIONS="detect_leaks=1 halt_on_error=1" UBSAN_OPTIONS="print_stacktrace=1 halt_on_error=1" \
  ctest --test-dir build/asan --output-on-failure -j "$jobs"

echo "== fuzz targets, 30 s each =="
bash scripts/fuzz.sh 30
