#!/usr/bin/env bash
# kt profile: the built-in program's profile under the virtual clock (one
# microsecond per executed line) against closed forms in N -- fib(N) makes
# 2F(N+1)-1 calls and runs 6F(N+1)-4 lines, the whole program 6F(N+1)+4N+3
# lines -- plus callers and callees, recursion in the self-inclusive time,
# the CPU clock and bad arguments.
source "$(dirname "${BASH_SOURCE[0]}")/../support/tool_checks.sh"

row() { awk -v f="$1" '$1 == f' <<<"$2"; }  # the table row of a function

for n in 0 1 5 10 16; do
  out=$("$KT_TOOL" profile "$n") || { fail "profile $n: status $?"; continue; }
  F=$(awk -v n="$n" 'BEGIN { a = 0; b = 1; for (i = 0; i <= n; i++) { t = a + b; a = b; b = t } print a }')
  want_main=$(printf '%.6f' "$(awk -v F="$F" -v n="$n" 'BEGIN { print (6*F + 4*n + 3) / 1e6 }')")
  want_fib=$(printf '%.6f' "$(awk -v F="$F" 'BEGIN { print (6*F - 4) / 1e6 }')")
  read -r _ calls total self callers <<<"$(row main "$out")"
  [ "$calls $total $self" = "1 $want_main $want_main" ] || fail "main row for $n: $(row main "$out")"
  read -r _ calls total self <<<"$(row fib "$out")"
  [ "$calls $total" = "$((2 * F - 1)) $want_fib" ] || fail "fib row for $n: $(row fib "$out")"
  read -r _ even _ <<<"$(row is_even "$out")"
  read -r _ odd _ <<<"$(row is_odd "$out")"
  [ "$even $odd" = "$((n + 1)) $((n + 1))" ] || fail "even/odd calls for $n: $even $odd"
done

out=$("$KT_TOOL" profile)
grep -q '^fib(10), is_even(21); clock: 1 us per executed line$' <<<"$out" || fail "heading: $out"
row fib "$out" | grep -q ' main(1) fib(176) *fib(176)$' || fail "fib links: $(row fib "$out")"
row is_odd "$out" | grep -q ' is_even(11) *is_even(10)$' || fail "is_odd links: $(row is_odd "$out")"
read -r _ _ total self _ <<<"$(row fib "$out")"
awk -v t="$total" -v s="$self" 'BEGIN { exit !(s > 6 * t) }' || fail "fib self-inclusive $self vs total $total"
sed -n '/^hottest lines/,$p' <<<"$out" | sed -n 2p | grep -q '^fib:12 *88 ' || fail "hottest line: $out"

"$KT_TOOL" profile --cpu 3 | grep -q 'clock: CPU time, steps of' || fail "--cpu"
"$KT_TOOL" profile --help | grep -q '^Usage: kt profile' || fail "--help"
for bad in 31 -1 x 5x; do
  "$KT_TOOL" profile "$bad" 2>err >/dev/null; status=$?
  [ $status -eq 2 ] && grep -q "'$bad' is not a size" err || fail "bad size $bad: status $status"
done

finish "kt profile: all checks passed"
