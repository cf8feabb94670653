#!/usr/bin/env bash
# kt conv against glibc's iconv: random text of a dozen encodings, large
# enough that characters straddle the tool's 64 KiB reads, both ways;
# invalid, unconvertible and truncated input with the same byte positions
# and statuses as iconv; -c; unknown names; kt encodings.
source "$(dirname "${BASH_SOURCE[0]}")/../support/tool_checks.sh"
command -v iconv >/dev/null && command -v python3 >/dev/null || { echo "iconv/python3 missing: skipped"; exit 0; }

encodings="ISO-8859-1 ISO-8859-15 CP1252 SHIFT_JIS EUC-JP GB18030 BIG5 KOI8-R UTF-16BE UTF-16LE UTF-32 UTF-8"

# For each encoding, about 300 KB of random UTF-8 text (sample.ENC) from the
# characters it holds: candidates from every plane that both tools convert
# alike, one per line, and not to nothing.
python3 - $encodings <<'PY' || fail "building the corpus"
import os, random, subprocess, sys
r = random.Random(9)
ranges = [(0x20, 0x7E), (0xA0, 0x24F), (0x370, 0x4FF), (0x2010, 0x2044), (0x20AC, 0x20AC),
          (0x3000, 0x30FF), (0x4E00, 0x9FFF), (0xAC00, 0xD7A3), (0xFF01, 0xFF9F),
          (0x1F300, 0x1F64F), (0x20000, 0x2A6DF)]
chars = sorted({c for lo, hi in ranges for c in r.sample(range(lo, hi + 1), min(hi - lo + 1, 400))})
candidates = "\n".join(map(chr, chars)).encode("utf-8")
def lines(command):
    return subprocess.run(command, input=candidates, capture_output=True).stdout.split(b"\n")
for enc in sys.argv[1:]:
    pool = [chr(c) for c in chars]
    if not enc.startswith("UTF"):
        ours = lines([os.environ["KT_TOOL"], "conv", "-c", "-f", "UTF-8", "-t", enc])
        theirs = lines(["iconv", "-c", "-f", "UTF-8", "-t", enc])
        pool = [c for c, a, b in zip(pool, ours, theirs) if a and a == b]
    if len(pool) < 150:
        sys.exit("%s: only %d characters" % (enc, len(pool)))
    text = []
    while sum(map(len, text)) < 120000:
        text.append("".join(r.choice(pool) for _ in range(r.randint(0, 80))) + "\n")
    open("sample." + enc, "w", encoding="utf-8").write("".join(text))
PY

for enc in $encodings; do
  iconv -f UTF-8 -t "$enc" "sample.$enc" >want.enc || fail "$enc: iconv refused the sample"
  kt conv -f UTF-8 -t "$enc" "sample.$enc" >got.enc || fail "$enc: kt conv to $enc failed"
  cmp -s want.enc got.enc || fail "$enc: UTF-8 -> $enc differs from iconv"
  kt conv -f "$enc" -t UTF-8 <want.enc >back.utf8 || fail "$enc: kt conv from $enc failed"
  cmp -s "sample.$enc" back.utf8 || fail "$enc: $enc -> UTF-8 does not give the text back"
done
# Neither side UTF-8, and several files in one run.
iconv -f UTF-8 -t UTF-16BE sample.GB18030 >a.utf16
kt conv -f UTF-16BE -t GB18030 a.utf16 a.utf16 >both.gb || fail "UTF-16BE -> GB18030 of two files"
cat sample.GB18030 sample.GB18030 | iconv -f UTF-8 -t GB18030 | cmp -s - both.gb ||
  fail "UTF-16BE -> GB18030 differs from iconv"

# Bad input: the output up to the fault, the byte position (where iconv
# gives one) and the status are iconv's. Faults sit before, at and beyond
# the first 64 KiB read. (iconv -c's status for dropped unconvertible
# characters varies with its buffering; kt's is 0.)
position() { grep -o 'position [0-9]*' "$1" | head -1; }
check_fault() {  # name status-too? from to file [-c]
  local name=$1 status=$2 from=$3 to=$4 file=$5; shift 5
  iconv "$@" -f "$from" -t "$to" "$file" >want.out 2>want.err; local want=$?
  kt conv "$@" -f "$from" -t "$to" "$file" >got.out 2>got.err; local got=$?
  [ "$status" = no ] || [ $want -eq $got ] || fail "$name: status $got, iconv $want"
  [ "$status" = no ] && [ $got -ne 0 ] && fail "$name: status $got"
  cmp -s want.out got.out || fail "$name: output differs from iconv"
  [ -z "$(position want.err)" ] || [ "$(position want.err)" = "$(position got.err)" ] ||
    fail "$name: '$(position got.err)' where iconv says '$(position want.err)'"
}
ascii() { head -c "$1" /dev/zero | tr '\0' 'a'; }
for at in 0 5 65535 65536 100000; do
  { ascii $at; printf '\xffrest'; } >bad.$at
  check_fault "invalid byte at $at" yes UTF-8 UTF-16LE bad.$at
  check_fault "invalid byte at $at, -c" yes UTF-8 UTF-16LE bad.$at -c
  { ascii $at; printf '\xe2\x82\xac'; } >euro.$at
  check_fault "unconvertible at $at" yes UTF-8 ISO-8859-1 euro.$at
  check_fault "unconvertible at $at, -c" no UTF-8 ISO-8859-1 euro.$at -c
  { ascii $at; printf '\xe2\x82'; } >cut.$at
  check_fault "incomplete at the end after $at" yes UTF-8 UTF-16LE cut.$at
  check_fault "incomplete at the end after $at, -c" yes UTF-8 UTF-16LE cut.$at -c
done
grep -q 'position 65536' <(kt conv -f UTF-8 -t UTF-16LE bad.65536 2>&1 >/dev/null) ||
  fail "invalid input message does not give the byte position"
# A character split by the 64 KiB read converts whole.
{ ascii 65535; printf '\xe2\x82\xac'; } | kt conv -f UTF-8 -t UTF-16BE | tail -c 2 | od -An -tx1 |
  grep -q '20 ac' || fail "character across the read boundary"

# Unknown encodings are named; status 1.
kt conv -f NO-SUCH -t UTF-8 </dev/null 2>err; [ $? -eq 1 ] || fail "unknown FROM status"
grep -q "NO-SUCH" err || fail "unknown FROM not named: $(cat err)"
kt conv -f UTF-8 -t NOPE </dev/null 2>err; [ $? -eq 1 ] || fail "unknown TO status"
grep -q "NOPE" err || fail "unknown TO not named: $(cat err)"
kt conv -x 2>/dev/null </dev/null; [ $? -eq 2 ] || fail "bad option status"
kt conv -f 2>/dev/null </dev/null; [ $? -eq 2 ] || fail "missing FROM value status"

# Constant memory: a large stream under a small address-space limit.
if [ -z "${KT_SANITIZE:-}" ]; then
  n=$( (ulimit -v 400000; head -c 200000000 /dev/zero | kt conv -f ISO-8859-1 -t UTF-16LE | wc -c) )
  [ "$n" = 400000000 ] || fail "200 MB stream under a 400 MB address-space limit: $n bytes out"
fi

# kt encodings: names of one encoding, and the list.
kt encodings sjis cp1252 >names || fail "kt encodings sjis cp1252"
grep -q '^sjis: canonical ibm-943_P15A-2003; standard Shift_JIS; MIME Shift_JIS;' names ||
  fail "sjis names: $(cat names)"
grep -q '^cp1252: canonical ibm-5348_P100-1997; standard windows-1252; MIME -; IANA windows-1252;' names ||
  fail "cp1252 names: $(cat names)"
kt encodings utf8 bogus >/dev/null 2>err; [ $? -eq 1 ] || fail "kt encodings with an unknown name"
grep -q bogus err || fail "unknown name not reported"
kt encodings >list
grep -qx 'UTF-8' list && grep -qx 'gb18030' list && [ "$(wc -l <list)" -gt 100 ] ||
  fail "kt encodings list"

finish "kt conv and kt encodings: all checks passed"
