#!/usr/bin/env bash
# Builds the benchmarks in release mode and runs them: libkt and its peers
# side by side in one process. Extra arguments go to Google Benchmark
# (e.g. --benchmark_filter=Crc). The benchmarks of hidden internals run
# second, from their own binary.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$root"
bash scripts/deps.sh
cmake -S . -B build/bench -G Ninja -Wno-dev -DCMAKE_BUILD_TYPE=Release -DKT_BUILD_TESTS=OFF >/dev/null
cmake --build build/bench --target kt_bench kt_bench_internal -j "$(nproc)" >/dev/null
build/bench/bench/kt_bench "$@"
exec build/bench/bench/kt_bench_internal "$@"
