#!/usr/bin/env bash
# The committed table of scaled powers of ten is exactly what the exact
# integer generator produces.
set -euo pipefail
: "${KT_SOURCE_DIR:?source tree}"
diff <(python3 "$KT_SOURCE_DIR/scripts/gen_pow10_table.py") "$KT_SOURCE_DIR/src/numbers/pow10_table.cpp"
echo "pow10 table matches its generator"
