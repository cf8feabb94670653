#!/usr/bin/env python3
"""Writes src/numbers/pow10_table.cpp: the scaled powers of ten used by the
shortest-digits fast path of decimal conversion, computed with exact integer
arithmetic. Usage: gen_pow10_table.py > src/numbers/pow10_table.cpp"""

MIN_EXPONENT, MAX_EXPONENT = -324, 292


def floor_log2_pow10(e):
    """floor(e * log2(10)), exactly."""
    if e >= 0:
        return (10 ** e).bit_length() - 1
    return -(10 ** -e).bit_length()  # 10^|e| is never a power of two for |e| >= 1


def scaled(k):
    """floor(10^-k * 2^(125 - floor(-k * log2(10)))) + 1."""
    e = -k
    shift = 125 - floor_log2_pow10(e)
    if e >= 0:
        g = (10 ** e << shift) if shift >= 0 else (10 ** e >> -shift)
    else:
        g = (1 << shift) // 10 ** -e
    return g + 1


def main():
    print("""// Powers of ten for the shortest-digits fast path: entry k + 324 holds
// g = floor(10^-k * 2^(125 - floor(-k * log2(10)))) + 1, a 126-bit value in
// [2^125, 2^126), split as g1 = g >> 63 and g0 = g mod 2^63, for the decimal
// exponents k = -324 .. 292 that doubles need. Generated with exact integer
// arithmetic by scripts/gen_pow10_table.py; a test regenerates and compares.
#include "internal/fpc_fastpaths.h"

namespace kt {
namespace internal {

const uint64_t kScaledPowersOfTen[kScaledPowersCount][2] = {""")
    for k in range(MIN_EXPONENT, MAX_EXPONENT + 1):
        g = scaled(k)
        assert (1 << 125) <= g < (1 << 126), k
        print("    {0x%016xULL, 0x%016xULL},  // %d" % (g >> 63, g & ((1 << 63) - 1), k))
    print("""};

}  // namespace internal
}  // namespace kt""")


if __name__ == "__main__":
    main()
