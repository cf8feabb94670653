# Test support sourced first by the kt tool's script tests: strict mode,
# a scratch directory made the working directory (removed at exit), kt to
# run the tool, fail to count a failure, finish to report and set the status.
set -uo pipefail
: "${KT_TOOL:?path to the kt tool}"
export KT_TOOL
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
cd "$tmp" || exit 1
failures=0
fail() { echo "FAIL: $*" >&2; failures=$((failures + 1)); }
kt() { "$KT_TOOL" "$@"; }
# finish SUMMARY: the summary line when every check passed, else the count.
finish() {
  [ $failures -eq 0 ] || { echo "$failures failure(s)"; exit 1; }
  echo "$1"
  exit 0
}
