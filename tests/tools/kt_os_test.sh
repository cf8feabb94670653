#!/usr/bin/env bash
# kt os against the system's own view: uname for the OS text, lsb_release
# for the distribution (the uname text when it is not on PATH), nproc and
# the kernel's sibling lists for the thread counts, taskset for a narrower
# affinity mask.
source "$(dirname "${BASH_SOURCE[0]}")/../support/tool_checks.sh"

field() { sed -n "s/^$1: *//p" <<<"$2"; }

out=$("$KT_TOOL" os) || fail "kt os status $?"
os=$(uname -srvm)
compat=$os
if distro=$(lsb_release -ds 2>/dev/null) && [ -n "$distro" ]; then compat=$distro; fi
want="$os|$compat|unknown|no|$(env -u OMP_NUM_THREADS -u OMP_THREAD_LIMIT nproc)"
got="$(field OS "$out")|$(field 'OS compatibility' "$out")|$(field 'Window system' "$out")"
got+="|$(field 'Memory-diagnostic tool' "$out")|$(field 'Threads with SMT' "$out")"
[ "$got" = "$want" ] || fail "kt os, want '$want':"$'\n'"$out"
# Without SMT: one thread per distinct sibling list in the affinity mask.
if command -v python3 >/dev/null; then
  cores=$(python3 -c 'import os
print(len({open("/sys/devices/system/cpu/cpu%d/topology/thread_siblings_list" % c).read()
           for c in os.sched_getaffinity(0)}))')
  [ "$(field 'Threads without SMT' "$out")" = "$cores" ] || fail "threads without SMT, want $cores"
fi
if command -v taskset >/dev/null; then
  one=$(taskset -c 0 "$KT_TOOL" os)
  [ "$(field 'Threads with SMT' "$one"),$(field 'Threads without SMT' "$one")" = "1,1" ] ||
    fail "one CPU allowed: $one"
fi

finish "kt os: all checks passed"
