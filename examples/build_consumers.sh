#!/usr/bin/env bash
# Builds and runs the example consumers against an installed libkt, once
# through the CMake package (find_package) and once through pkg-config.
# Usage: examples/build_consumers.sh <install-prefix> <work-dir>
set -euo pipefail
prefix=$(realpath "$1")
work=$2
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
libdir=$(ls -d "$prefix"/lib*/ | head -1)
rm -rf "$work" && mkdir -p "$work"

# The installed library carries no RPATH/RUNPATH.
if readelf -d "$libdir"/libkt.so.1 | grep -qE 'RPATH|RUNPATH'; then
  echo "installed libkt.so.1 has an RPATH" >&2
  exit 1
fi

cmake -S "$here/consumer" -B "$work/cmake" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$work/cmake" >/dev/null
LD_LIBRARY_PATH="$libdir" "$work/cmake/kt_consumer"

export PKG_CONFIG_PATH="$libdir/pkgconfig"
# shellcheck disable=SC2046
g++ -std=c++17 -o "$work/kt_consumer_pc" "$here/consumer/main.cpp" $(pkg-config --cflags --libs libkt)
LD_LIBRARY_PATH="$libdir" "$work/kt_consumer_pc"
# shellcheck disable=SC2046
gcc -std=c11 -Wall -Wextra -Werror -o "$work/kt_consumer_c" "$here/consumer/main.c" $(pkg-config --cflags --libs libkt)
LD_LIBRARY_PATH="$libdir" "$work/kt_consumer_c"

# The example host: own record, throw hook, message table, warnings.
cmake -S "$here/host" -B "$work/host" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$work/host" >/dev/null
LD_LIBRARY_PATH="$libdir" "$work/host/kt_host"

LD_LIBRARY_PATH="$libdir" "$prefix/bin/kt" --version
echo "example consumers: find_package, pkg-config (C++ and C) and the example host ran"
