#!/usr/bin/env bash
# kt linecol: known answers, the hyperlinked form with a quote in the file
# name, and errors. (The map itself is tested against a model in
# tests/annotations/.)
source "$(dirname "${BASH_SOURCE[0]}")/../support/tool_checks.sh"

# Known answers: CR LF is one line end (its LF is still on the first line),
# a lone CR ends a line, tabs stop every 8 columns, the end is an offset.
printf 'ab\r\ncd\n\tx\rabc\ty' >k.txt
got=$("$KT_TOOL" linecol k.txt 0 2 3 4 7 8 9 10 14 15)
want=$'k.txt:1:1\nk.txt:1:3\nk.txt:1:4\nk.txt:2:1\nk.txt:3:1\nk.txt:3:9\nk.txt:3:10\nk.txt:4:1\nk.txt:4:9\nk.txt:4:10'
[ "$got" = "$want" ] || fail "known answers:"$'\n'"$got"
[ "$(printf 'a\nb' | kt linecol - 3)" = "-:2:2" ] || fail "standard input"

# The console's form: the file name's single quote doubled inside the link.
printf 'x\n\ty\n' >"it's.txt"
got=$("$KT_TOOL" linecol --link "it's.txt" 3 0)
want=$'<a href="zentra: opentoline(\'it\'\'s.txt\',2,9)">it\'s.txt:2:9</a>\n<a href="zentra: opentoline(\'it\'\'s.txt\',1,1)">it\'s.txt:1:1</a>'
[ "$got" = "$want" ] || fail "--link:"$'\n'"$got"

# Errors: the other offsets are still answered, status 1; usage status 2.
out=$("$KT_TOOL" linecol k.txt 1 16 -1 2x 0 2>err)
[ $? -eq 1 ] || fail "status for bad offsets"
[ "$out" = $'k.txt:1:2\nk.txt:1:1' ] || fail "good offsets around bad ones: $out"
grep -q "offset 16 is past the end of 'k.txt' (15 bytes)" err || fail "past the end: $(cat err)"
grep -q "'-1' is not a byte offset" err && grep -q "'2x' is not a byte offset" err ||
  fail "bad offsets: $(cat err)"
"$KT_TOOL" linecol missing.txt 0 2>err; [ $? -eq 1 ] || fail "missing file status"
grep -q "cannot read 'missing.txt'" err || fail "missing file: $(cat err)"
"$KT_TOOL" linecol k.txt 2>/dev/null; [ $? -eq 2 ] || fail "no offset status"
"$KT_TOOL" linecol --link 2>/dev/null; [ $? -eq 2 ] || fail "no file status"
"$KT_TOOL" linecol --help | grep -q 'Usage: kt linecol' || fail "--help"

finish "kt linecol: all checks passed"
