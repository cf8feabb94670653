#!/usr/bin/env bash
# Ctrl-C stops the long-running commands (md5, crc32, conv) cleanly:
# SIGINT sent to a kt reading a pipe that never ends makes it name what it
# was reading on standard error and exit with status 130, whether the input
# is standard input or a named file.
source "$(dirname "${BASH_SOURCE[0]}")/../support/tool_checks.sh"

trap 'exec 3>&-; rm -rf "$tmp"' EXIT

mkfifo "$tmp/never"
exec 3<>"$tmp/never"  # a writer that never writes: reads block for ever

# interrupt INPUT COMMAND... -- runs the command in the background on INPUT
# (given here: a background job's standard input would be /dev/null), sends
# SIGINT once it is blocked reading, and prints "<status>|<standard error>".
interrupt() {
  local input=$1
  shift
  "$@" <"$input" 2>"$tmp/err" &
  local pid=$! tries=0
  # Send SIGINT once kt catches it (bit 2 of SigCgt in its status): before
  # that the background job would ignore it or die of it unhandled.
  until caught=$(awk '/^SigCgt/ {print $2}' "/proc/$pid/status" 2>/dev/null) &&
        (( 0x${caught:-0} & 2 )) || [ $tries -ge 100 ]; do
    sleep 0.1
    tries=$((tries + 1))
  done
  kill -INT "$pid"
  wait "$pid"
  echo "$?|$(cat "$tmp/err")"
}

for command in md5 crc32 "conv -f UTF-8 -t UTF-16LE"; do
  # shellcheck disable=SC2086 # the command's words
  got=$(interrupt "$tmp/never" "$KT_TOOL" $command)
  [ "$got" = "130|kt: interrupted while reading standard input" ] ||
    fail "$command on standard input: $got"
  # shellcheck disable=SC2086
  got=$(interrupt /dev/null "$KT_TOOL" $command "$tmp/never")
  [ "$got" = "130|kt: interrupted while reading $tmp/never" ] || fail "$command on a file: $got"
done

finish "Ctrl-C stops md5, crc32 and conv with status 130"
