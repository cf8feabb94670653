#!/usr/bin/env bash
# The kt tool's checksum commands against coreutils' md5sum and gzip's
# CRC-32 trailer, plus its error handling and exit statuses.
source "$(dirname "${BASH_SOURCE[0]}")/../support/tool_checks.sh"

: >empty
printf 'abc' >abc
head -c 3000000 /dev/urandom >random.bin
names=(empty abc random.bin 'back\slash' $'new\nline')
printf 'x' >"${names[3]}"
printf 'y' >"${names[4]}"

# MD5: byte-for-byte the output of md5sum, including escaped names and stdin.
expected=$(md5sum "${names[@]}")
actual=$(kt md5 "${names[@]}")
[ "$expected" = "$actual" ] || fail "md5 differs from md5sum:"$'\n'"$expected"$'\n'"$actual"
[ "$(md5sum <random.bin)" = "$("$KT_TOOL" md5 <random.bin)" ] || fail "md5 of stdin"
[ "$(md5sum - <abc)" = "$("$KT_TOOL" md5 - <abc)" ] || fail "md5 of -"

# CRC-32: gzip stores the CRC-32 of the data little-endian in its trailer.
gzip_crc() { gzip -c <"$1" | tail -c 8 | head -c 4 | od -An -tx4 | tr -d ' \n'; }
for f in empty abc random.bin; do
  [ "$(kt crc32 "$f")" = "$(gzip_crc "$f")  $f" ] || fail "crc32 $f: $(kt crc32 "$f")"
done
[ "$("$KT_TOOL" crc32 <abc)" = "$(gzip_crc abc)  -" ] || fail "crc32 of stdin"

# A missing file and a directory are named on stderr; the rest is still
# processed; the status is 1.
out=$("$KT_TOOL" md5 abc missing-file . empty 2>err)
status=$?
[ $status -eq 1 ] || fail "status with a missing file: $status"
grep -q 'missing-file: No such file or directory' err || fail "no message naming the missing file: $(cat err)"
grep -q '\.: Is a directory' err || fail "no message naming the directory: $(cat err)"
[ "$out" = "$(md5sum abc empty)" ] || fail "other files not processed: $out"

# Options and usage errors.
"$KT_TOOL" --version | grep -q '^kt (libkt) [0-9]' || fail "--version"
"$KT_TOOL" --help | grep -q 'crc32' || fail "--help lists commands"
"$KT_TOOL" no-such-command 2>/dev/null; [ $? -eq 2 ] || fail "unknown command status"
demo=$("$KT_TOOL") || fail "default action"
grep -q 'caught ZENTRA:FILE_NOT_READABLE' <<<"$demo" || fail "demo: the host's error was not caught"
grep -q 'Demo:deprecatedOption is error' <<<"$demo" || fail "demo: warning not switched to error"

# Large inputs are streamed: 512 MiB under a 256 MiB address-space limit
# (only without sanitizers, whose shadow memory needs the address space).
if [ -z "${KT_SANITIZE:-}" ]; then
  truncate -s 512M big.bin
  want="$(md5sum big.bin)"
  got=$(ulimit -v 262144; "$KT_TOOL" md5 big.bin) || fail "md5 of a large file under a memory limit"
  [ "$want" = "$got" ] || fail "md5 of a large file"
fi

finish "kt cli: all checks passed"
