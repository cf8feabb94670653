// Shortest digits of a double with 64-bit arithmetic (see fpc_shortest.h).
//
// With v = c * 2^q, the interval of decimals that read back to v runs from
// (c - 1/2) * 2^q to (c + 1/2) * 2^q (a quarter below for the first double
// of a binade), ends included when c is even. Multiplying 4c and the ends
// by 10^-k (k = floor(log10(2^q)), so that the results have at most 17-18
// digits) through the table value g, rounded to odd so that exact and
// inexact products stay distinguishable, gives vb, vbl and vbr in units of
// a quarter. Then: a multiple of ten inside the interval wins (fewest
// digits); else the one of s = floor(vb/4) and s + 1 that lies inside; else
// the nearer of the two, ties to even.
#include <string.h>

#include "internal/fpc_fastpaths.h"

namespace kt {
namespace internal {
namespace {

__extension__ typedef unsigned __int128 u128;

const int kMinBinaryExponent = -1074;
const uint64_t kHiddenBit = uint64_t(1) << 52;
const uint64_t kLow63 = (uint64_t(1) << 63) - 1;

// floor(q * log10(2)), floor(q * log10(2) + log10(3/4)), floor(e * log2(10))
// over the exponent ranges of doubles (multipliers from the method's paper,
// checked exhaustively against exact arithmetic).
int floor_log10_pow2(int q) { return static_cast<int>((q * 661971961083LL) >> 41); }
int floor_log10_three_quarters_pow2(int q) {
    return static_cast<int>((q * 661971961083LL - 274743187321LL) >> 41);
}
int floor_log2_pow10(int e) { return static_cast<int>((e * 913124641741LL) >> 38); }

uint64_t multiply_high(uint64_t a, uint64_t b) {
    return static_cast<uint64_t>((static_cast<u128>(a) * b) >> 64);
}

// The 126-bit g = g1 * 2^63 + g0 times cp, divided by 2^127 and rounded to
// odd (the lowest bit is set when the division was inexact).
uint64_t round_to_odd(uint64_t g1, uint64_t g0, uint64_t cp) {
    uint64_t x1 = multiply_high(g0, cp);
    uint64_t y0 = g1 * cp;
    uint64_t y1 = multiply_high(g1, cp);
    uint64_t z = (y0 >> 1) + x1;
    uint64_t vbp = y1 + (z >> 63);
    return vbp | (((z & kLow63) + kLow63) >> 63);
}

void decide(int q, uint64_t c, uint64_t* digits, int* exponent) {
    uint64_t out = c & 1;
    uint64_t cb = c << 2;
    uint64_t cbr = cb + 2;
    uint64_t cbl;
    int k;
    if (c != kHiddenBit || q == kMinBinaryExponent) {
        cbl = cb - 2;
        k = floor_log10_pow2(q);
    } else {
        cbl = cb - 1;  // the gap below is half as wide
        k = floor_log10_three_quarters_pow2(q);
    }
    int h = q + floor_log2_pow10(-k) + 2;
    const uint64_t* g = kScaledPowersOfTen[k - kScaledPowersMinExponent];
    uint64_t vb = round_to_odd(g[0], g[1], cb << h);
    uint64_t vbl = round_to_odd(g[0], g[1], cbl << h);
    uint64_t vbr = round_to_odd(g[0], g[1], cbr << h);

    uint64_t s = vb >> 2;
    // Fewest digits first: one of the multiples of ten around s, when it
    // alone lies inside (the interval is narrower than ten units).
    {
        uint64_t sp10 = 10 * (s / 10);
        uint64_t tp10 = sp10 + 10;
        bool upin = vbl + out <= sp10 << 2;
        bool wpin = (tp10 << 2) + out <= vbr;
        if (upin != wpin) {
            *digits = upin ? sp10 : tp10;
            *exponent = k;
            return;
        }
    }
    uint64_t t = s + 1;
    bool uin = vbl + out <= s << 2;
    bool win = (t << 2) + out <= vbr;
    *exponent = k;
    if (uin != win) {
        *digits = uin ? s : t;
        return;
    }
    // Both or neither inside: the nearer, ties to even.
    int64_t cmp = static_cast<int64_t>(vb - ((s + t) << 1));
    *digits = (cmp < 0 || (cmp == 0 && (s & 1) == 0)) ? s : t;
}

}  // namespace

void shortest_digits(uint64_t bits, uint64_t* digits, int* exponent) {
    int biased = static_cast<int>((bits >> 52) & 0x7ff);
    uint64_t fraction = bits & (kHiddenBit - 1);
    if (biased == 0) {
        decide(kMinBinaryExponent, fraction, digits, exponent);
        return;
    }
    uint64_t c = fraction | kHiddenBit;
    int q = biased - 1075;
    // Integers below 2^53: the integer itself is the shortest form.
    if (q < 0 && q > -53) {
        uint64_t f = c >> -q;
        if ((f << -q) == c) {
            *digits = f;
            *exponent = 0;
            return;
        }
    }
    decide(q, c, digits, exponent);
}

}  // namespace internal
}  // namespace kt
