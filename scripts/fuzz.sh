#!/usr/bin/env bash
# Builds the libFuzzer targets of fuzz/ with clang 14 (ASan + UBSan) and runs
# each for a bounded time, starting from its seed corpus in fuzz/corpus/.
#
#   scripts/fuzz.sh [SECONDS [TARGET...]]
#
# SECONDS per target (default 30); TARGETs are names such as strtod_fuzz
# (default: all). Targets run $(nproc) at a time. New inputs go to a scratch
# corpus under build/fuzz/work/, never into the repository; a crash, leak,
# sanitizer report or time-out leaves its input in build/fuzz/findings/ and
# fails the run. A long run: scripts/fuzz.sh 3600
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$root"
bash scripts/deps.sh
seconds=${1:-30}
shift || true

dir=build/fuzz
CC=clang-14 CXX=clang++-14 cmake -S . -B "$dir" -G Ninja -Wno-dev \
  -DCMAKE_BUILD_TYPE=RelWithDebInfo -DKT_BUILD_FUZZ=ON -DKT_BUILD_TESTS=OFF \
  -DKT_BUILD_BENCH=OFF -DKT_BUILD_TOOLS=OFF >/dev/null
cmake --build "$dir" -j "$(nproc)"

targets=("$@")
if [ ${#targets[@]} -eq 0 ]; then
  for src in fuzz/*_fuzz.cpp; do targets+=("$(basename "$src" .cpp)"); done
fi

run_one() {  # target seconds
  local name=$1 secs=$2 corpus=fuzz/corpus/${1%_fuzz}
  local work=build/fuzz/work/$name findings=build/fuzz/findings/$name
  rm -rf "$work"; mkdir -p "$work" "$findings"
  local seeds=(); [ -d "$corpus" ] && seeds=("$corpus")
  if build/fuzz/fuzz/"$name" "$work" "${seeds[@]}" -max_total_time="$secs" \
       -timeout=20 -rss_limit_mb=2048 -print_final_stats=1 \
       -artifact_prefix="$findings/" >"build/fuzz/$name.log" 2>&1; then
    echo "$name: $(grep -m1 -o 'stat::number_of_executed_units: *[0-9]*' "build/fuzz/$name.log" |
                   grep -o '[0-9]*$') runs, no finding"
  else
    echo "$name: FINDING (log build/fuzz/$name.log)"; tail -n 40 "build/fuzz/$name.log"
    return 1
  fi
}
export -f run_one

printf '%s\n' "${targets[@]}" |
  xargs -P "$(nproc)" -I{} bash -c 'run_one "$1" "$2"' _ {} "$seconds"
