#!/usr/bin/env bash
# The main job from a fresh Debian 12 machine: installs what is missing,
# builds libkt and the kt tool, and runs kt on its built-in default input
# (extra arguments are passed to kt instead).
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$root"
bash scripts/deps.sh
cmake -S . -B build/release -G Ninja -Wno-dev -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build/release --target kt-tool -j "$(nproc)" >/dev/null
exec build/release/tools/kt/kt "$@"
