#!/usr/bin/env bash
# kt --timing[=perf] COMMAND: the command's own output and status are
# unchanged, and the timing log (and perf log) named on standard error lie
# in the log directory ($HOME, else the temporary directory) and hold the
# opening rows and the command's stages, nested, in the layout of the log.
source "$(dirname "${BASH_SOURCE[0]}")/../support/tool_checks.sh"

mkdir "$tmp/home" "$tmp/tmpdir"
printf 'abc' >"$tmp/abc"

num='-?[0-9]+\.[0-9]{2}'
row="^ *$num +$num +$num   "  # total, item and gap before the description
# has_row FILE DESCRIPTION: a row whose description column (40 wide at
# depths 0 and 1) holds DESCRIPTION.
has_row() { grep -Eq "$row$(printf '%-40s' "$2")( |\$)" "$1"; }

# check_log FILE COMMAND PERF: the layout and rows of one timing log.
check_log() {
  local file=$1 command=$2 perf=$3 rule=57
  [ "$perf" = 1 ] && rule=125
  [ "$(head -1 "$file")" = "    ZENTRA Startup Performance Metrics (In Seconds)" ] || fail "$file: title"
  [ "$(grep -c "^$(printf '=%.0s' $(seq $rule))\$" "$file")" = 2 ] || fail "$file: two rules of $rule"
  for stage in "ZENTRA script" main "Session Initialize" "parse arguments" "run $command" "kt $command"; do
    has_row "$file" "$stage" || fail "$file: no row '$stage'"
  done
  # The stages come in toc order: inner ones before the command's row.
  local order
  order=$(grep -Eo "(parse arguments|run $command|kt $command)" "$file" | tr '\n' '|')
  [ "$order" = "parse arguments|run $command|kt $command|" ] || fail "$file: stage order $order"
  grep -Eq '^Items shown account for [ 0-9.]+% of total startup time$' "$file" ||
    fail "$file: no closing share"
}

# Plain mode, log directory from HOME.
out=$(HOME="$tmp/home" kt --timing md5 abc 2>"$tmp/err") || fail "status $?"
[ "$out" = "$(md5sum abc)" ] || fail "md5 output changed: $out"
log=$(sed -n 's/^kt: timing log: //p' "$tmp/err")
[[ "$log" =~ ^$tmp/home/timing_log\.[0-9]+$ ]] || fail "timing log path: $(cat "$tmp/err")"
[ -f "$log" ] && check_log "$log" md5 0
grep -q 'perf log' "$tmp/err" && fail "a perf log without =perf"

# Performance mode, HOME unset: the temporary directory; the command's
# failure status passes through and the log is still complete.
env -u HOME TMPDIR="$tmp/tmpdir" "$KT_TOOL" --timing=perf crc32 "$tmp/abc" "$tmp/missing" \
  >/dev/null 2>"$tmp/err"
status=$?
[ $status -eq 1 ] || fail "perf: status $status"
log=$(sed -n 's/^kt: timing log: //p' "$tmp/err")
perf=$(sed -n 's/^kt: perf log: //p' "$tmp/err")
[[ "$log" =~ ^$tmp/tmpdir/timing_log\.[0-9]+$ ]] || fail "perf timing log path: $(cat "$tmp/err")"
[ "$perf" = "${log/timing_log/perf_log}" ] || fail "perf log path '$perf'"
if [ -f "$log" ] && [ -f "$perf" ]; then
  check_log "$log" crc32 1
  grep -Eq "^ *$num {18}--FINAL-- {12} +0" "$log" || fail "no --FINAL-- line"
  [ "$(head -1 "$perf")" = "total,item,gap,description,readops,readbytes,othorops,otherbytes,pagefaults,vm(k),cpu" ] ||
    fail "perf header"
  grep -Eq "^[0-9.]+,[0-9.]+,-?[0-9.]+,'$(printf '%-40s' 'run crc32')',0,0,0,0,0,0,[0-9.]+\$" "$perf" ||
    fail "no CSV row for the command"
  grep -Eq "^[0-9.]+,0\.0,0\.0,'FINAL {15}',0,0,0,0,0,0,[0-9.]+\$" "$perf" || fail "no CSV FINAL"
fi

# A log directory that cannot hold the file: a complaint, the command runs.
out=$(HOME="$tmp/missing-home" "$KT_TOOL" --timing crc32 "$tmp/abc" 2>"$tmp/err")
status=$?
[ $status -eq 0 ] && [ -n "$out" ] || fail "untimed run: status $status, output '$out'"
grep -q "^kt: cannot open the timing log in $tmp/missing-home: No such file" "$tmp/err" ||
  fail "no complaint: $(cat "$tmp/err")"

# An unknown mode is a usage error.
HOME="$tmp/home" "$KT_TOOL" --timing=fast md5 "$tmp/abc" >/dev/null 2>"$tmp/err"
[ $? -eq 2 ] && grep -q "unknown timing mode" "$tmp/err" || fail "bad mode: $(cat "$tmp/err")"

finish "kt --timing: all checks passed"
