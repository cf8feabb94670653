#!/usr/bin/env bash
# The kt tool's decimal-conversion commands: known answers, agreement with
# Python's float (shortest repr, correctly rounded '%.*e') on random
# numbers, and the handling of texts that are not numbers.
source "$(dirname "${BASH_SOURCE[0]}")/../support/tool_checks.sh"

# Known answers of kt fmt, one per line, in argument order.
want=$'1.0\n123456.0\n1234567.0\n1e+07\n.001\n.0001\n1e-05\n-0.0\nInf\n-Inf\nNaN\n1.5e-07\n1e+100\n.1\nInf\n0.0'
got=$("$KT_TOOL" fmt 1 123456 1234567 1e7 0.001 0.0001 0.00001 -0 inf -Infinity -nan 1.5e-7 1e100 \
      0.1000000000000000000000000001 1e999 1e-999)
[ "$got" = "$want" ] || fail "fmt known answers:"$'\n'"$got"

# kt dtoa: digits, decimal point and sign.
got=$("$KT_TOOL" dtoa 1.5)
[ "$got" = "digits=15 decpt=1 sign=0" ] || fail "dtoa 1.5: $got"
got=$("$KT_TOOL" dtoa --mode 3 --digits 2 -0.004 -0.006)
[ "$got" = $'digits= decpt=-2 sign=1\ndigits=1 decpt=-1 sign=1' ] || fail "dtoa mode 3: $got"
got=$("$KT_TOOL" dtoa --mode 2 --digits 3 2.675 inf nan)
[ "$got" = $'digits=267 decpt=1 sign=0\ndigits=Inf decpt=9999 sign=0\ndigits=NaN decpt=9999 sign=0' ] \
  || fail "dtoa mode 2: $got"

# Texts that are not wholly a number: named with where parsing stopped;
# the other arguments are still converted; status 1.
out=$("$KT_TOOL" fmt 2.5 12abc 7 2>err)
status=$?
[ $status -eq 1 ] || fail "status for a bad number: $status"
[ "$out" = $'2.5\n7.0' ] || fail "good arguments around a bad one: $out"
grep -q "'12abc' is not a number (parsing stopped at character 3, before 'abc')" err \
  || fail "message for 12abc: $(cat err)"
"$KT_TOOL" dtoa --mode 0 x 2>err; [ $? -eq 1 ] || fail "dtoa bad number status"
grep -q "'x' is not a number" err || fail "dtoa message: $(cat err)"
"$KT_TOOL" dtoa --mode 7 1 2>/dev/null; [ $? -eq 2 ] || fail "bad mode status"
"$KT_TOOL" dtoa --digits 2>/dev/null; [ $? -eq 2 ] || fail "missing option value status"
"$KT_TOOL" fmt 2>/dev/null; [ $? -eq 2 ] || fail "fmt without numbers status"
"$KT_TOOL" fmt --help | grep -q 'Usage: kt fmt' || fail "fmt --help"

# Random numbers against Python's float, when Python is there.
if command -v python3 >/dev/null; then
  mapfile -t numbers < <(python3 -c '
import random, struct
r = random.Random(5)
for _ in range(400):
    x = struct.unpack("<d", struct.pack("<Q", r.getrandbits(64)))[0]
    if x == x and abs(x) != float("inf"):
        print(repr(x))
for _ in range(100):
    print("%d.%de%d" % (r.getrandbits(40), r.getrandbits(70), r.randint(-345, 290)))')
  "$KT_TOOL" fmt "${numbers[@]}" >fmt.out || fail "fmt of random numbers"
  printf '%s\n' "${numbers[@]}" >numbers.in
  python3 - numbers.in fmt.out <<'PY' || fail "fmt disagrees with Python's float"
import sys
ok = True
for text, shown in zip(open(sys.argv[1]).read().split(), open(sys.argv[2]).read().split()):
    x = float(text)
    # Same value, and the same significant digits as the shortest repr.
    sig = lambda s: s.lstrip("-").split("e")[0].replace(".", "").strip("0")
    if float(shown) != x or sig(shown) != sig(repr(x)):
        print("mismatch", text, shown, repr(x)); ok = False
sys.exit(0 if ok else 1)
PY
  "$KT_TOOL" dtoa --mode 2 --digits 9 "${numbers[@]}" >dtoa.out || fail "dtoa of random numbers"
  python3 - numbers.in dtoa.out <<'PY' || fail "dtoa mode 2 disagrees with Python's %.8e"
import math, sys
ok = True
for text, line in zip(open(sys.argv[1]).read().split(), open(sys.argv[2]).read().splitlines()):
    x = float(text)
    mant, exp = ("%.8e" % abs(x)).split("e")
    want = mant.replace(".", "").rstrip("0") or "0"
    fields = dict(f.split("=") for f in line.split())
    if fields["digits"] != want or int(fields["decpt"]) != int(exp) + 1 or int(fields["sign"]) != (math.copysign(1, x) < 0):
        print("mismatch", text, line, want, exp); ok = False
sys.exit(0 if ok else 1)
PY
fi

finish "kt numbers commands: all checks passed"
