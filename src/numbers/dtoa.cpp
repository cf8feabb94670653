// kt_dtoa: decimal digits of a double, after David M. Gay's dtoa.
//
// The value v = f * 2^e is scaled to r/s = v / 10^k with big integers, and
// digits are the successive quotients of r by s. The margins m- and m+ are
// half the gaps to the neighbouring doubles. Modes:
//   0: stop as soon as the digits read back to v; a boundary counts as
//      reading back when f is even (round-half-even reading);
//   1: the same with boundaries never counting (the Steele and White
//      stopping rule), so 1e23 prints as 9.999999999999999e22;
//   2, 3: a fixed count of significant or fractional digits, rounded with
//      ties to even;
//   4, 5: as 2 and 3, but stopping early with mode 0's rule.
// Trailing zeros are never produced. The digits are built in a local buffer
// and handed over only when they fit the caller's, so the outcome depends
// only on the final text.
#include <limits.h>
#include <stdint.h>
#include <string.h>

#include "internal/double_bits.h"
#include "internal/fpc_bigint.h"
#include "internal/fpc_fastpaths.h"
#include "kt/numbers.h"

using kt::internal::bits_of;
using kt::internal::Big;
using kt::internal::big_cmp;
using kt::internal::big_copy;
using kt::internal::big_diff;
using kt::internal::big_is_zero;
using kt::internal::big_lshift;
using kt::internal::big_multadd;
using kt::internal::big_pow5mult;
using kt::internal::big_quorem;
using kt::internal::big_set_u64;

namespace {

const uint64_t kFractionMask = (uint64_t(1) << 52) - 1;
const uint64_t kHiddenBit = uint64_t(1) << 52;
// The exact decimal expansion of a double has at most 767 significant
// digits, so no mode ever produces more than this.
const int kMaxDigits = 800;

// A positive finite double as f * 2^e with f an integer.
struct Decomposed {
    uint64_t f;
    int e;
    bool lowerGapSmaller;  // f is a power of two above the smallest binade
};

Decomposed decompose(uint64_t u) {
    Decomposed d;
    int biased = static_cast<int>((u >> 52) & 0x7ff);
    uint64_t fraction = u & kFractionMask;
    if (biased == 0) {
        d.f = fraction;
        d.e = -1074;
    } else {
        d.f = fraction | kHiddenBit;
        d.e = biased - 1075;
    }
    d.lowerGapSmaller = fraction == 0 && biased > 1;
    return d;
}

// Everything a conversion reports, before any of it reaches the caller.
struct Conversion {
    char digits[kMaxDigits];
    int len;
    int decpt;
    int sign;

    void put(char c) {
        if (len < kMaxDigits)
            digits[len++] = c;
    }
};

// Adds one unit in the last digit; "999" becomes "1" with k one higher.
void round_up(Conversion& out, int& k) {
    while (out.len > 0 && out.digits[out.len - 1] == '9')
        out.len--;
    if (out.len == 0) {
        out.put('1');
        k++;
        return;
    }
    out.digits[out.len - 1]++;
}

void strip_trailing_zeros(Conversion& out) {
    while (out.len > 1 && out.digits[out.len - 1] == '0')
        out.len--;
}

// floor(log10(v)) is k_est or k_est + 1, where k_est = floor(log10(2^E))
// and E = floor(log2(v)). 78913 / 2^18 approximates log10(2) closely enough
// to be exact over the whole double range.
int upper_decimal_exponent(const Decomposed& d) {
    int bitLength = 64 - __builtin_clzll(d.f);
    int binaryExponent = d.e + bitLength - 1;
    return ((binaryExponent * 78913) >> 18) + 1;
}

// The scaled quantities of the digit loop: r / s = v / 10^k, and mlo / s,
// mhi / s the half-gaps to the neighbours (modes 0, 1, 4 and 5 only).
struct Scaled {
    Big r;
    Big s;
    Big mlo;
    Big mhi;
    bool haveMargins;
    explicit Scaled(kt_fpc_context* ctx)
        : r(ctx), s(ctx), mlo(ctx), mhi(ctx), haveMargins(false) {}
};

// Step 1: build r, s and the margins from v = f * 2^e and the decimal
// exponent k, keeping powers of two aside until the end so that each
// integer is shifted once, with s's top word normalised for quorem.
void scale(Scaled& sc, const Decomposed& d, int k, bool margins) {
    int r2 = d.e, s2 = 0, m2 = d.e;
    int r5 = 0, s5 = 0, m5 = 0;
    // Doubling everything makes the half-gap 2^(e-1) integral: mlo = 2^e.
    // A lower gap half as wide (2^(e-2)) needs one more doubling, after
    // which mlo is again 2^e and mhi twice that.
    int extra = (margins && d.lowerGapSmaller) ? 2 : 1;
    r2 += extra;
    s2 += extra;
    if (k >= 0) {
        s5 += k;
        s2 += k;
    } else {
        r5 -= k;
        r2 -= k;
        m5 -= k;
        m2 -= k;
    }
    int lowest = r2 < s2 ? r2 : s2;
    if (margins && m2 < lowest)
        lowest = m2;
    r2 -= lowest;
    s2 -= lowest;
    m2 -= lowest;

    big_set_u64(sc.s, 1);
    big_pow5mult(sc.s, s5);
    // Normalise: the top bit of s's top word goes to bit 27.
    int sBits = kt::internal::big_bit_length(sc.s.get()) + s2;
    int shift = ((28 - sBits) % 32 + 32) % 32;
    r2 += shift;
    s2 += shift;
    m2 += shift;
    big_lshift(sc.s, s2);

    big_set_u64(sc.r, d.f);
    big_pow5mult(sc.r, r5);
    big_lshift(sc.r, r2);

    sc.haveMargins = margins;
    if (!margins)
        return;
    big_set_u64(sc.mlo, 1);
    big_pow5mult(sc.mlo, m5);
    big_lshift(sc.mlo, m2);
    big_copy(sc.mhi, sc.mlo.get());
    if (d.lowerGapSmaller)
        big_lshift(sc.mhi, 1);
}

void times_ten(Scaled& sc) {
    big_multadd(sc.r, 10, 0);
    if (!sc.haveMargins)
        return;
    big_multadd(sc.mlo, 10, 0);
    big_multadd(sc.mhi, 10, 0);
}

// Compare r + mhi with s, as r with s - mhi.
int compare_high(Scaled& sc, Big& delta) {
    big_diff(delta, sc.s.get(), sc.mhi.get());
    if (delta->sign)
        return 1;
    return big_cmp(sc.r.get(), delta.get());
}

// Rounds the digits so far by the remainder r / s: up above one half,
// ties to an even last digit.
void round_remainder(Scaled& sc, Conversion& out, int& k) {
    big_lshift(sc.r, 1);
    int j = big_cmp(sc.r.get(), sc.s.get());
    int last = out.digits[out.len - 1] - '0';
    if (j > 0 || (j == 0 && (last & 1)))
        round_up(out, k);
    strip_trailing_zeros(out);
}

// Step 2 for modes 0, 1, 4 and 5: digits until they read back to v (the
// boundaries included when `inclusive` and f is even), or until `limit`
// digits followed by rounding.
void shortest_digits(Scaled& sc, const Decomposed& d, bool inclusive, int64_t limit,
                     Conversion& out, int& k) {
    Big delta(sc.r.ctx());
    bool even = inclusive && (d.f & 1) == 0;
    for (int64_t count = 1;; count++) {
        int dig = big_quorem(sc.r.get(), sc.s.get());
        int low = big_cmp(sc.r.get(), sc.mlo.get());
        int high = compare_high(sc, delta);
        bool lowOk = even ? low <= 0 : low < 0;
        bool highOk = even ? high >= 0 : high > 0;
        if (lowOk || highOk) {
            bool up = highOk;
            if (lowOk && highOk) {
                big_lshift(sc.r, 1);
                int j = big_cmp(sc.r.get(), sc.s.get());
                up = j > 0 || (j == 0 && (dig & 1));
            }
            out.put(static_cast<char>('0' + dig));
            if (up)
                round_up(out, k);
            return;
        }
        out.put(static_cast<char>('0' + dig));
        if (count == limit)
            break;
        times_ten(sc);
    }
    round_remainder(sc, out, k);
}

// Step 2 for modes 2 and 3: `limit` digits (at least 1), correctly rounded;
// fewer when the expansion ends sooner.
void fixed_digits(Scaled& sc, int64_t limit, Conversion& out, int& k) {
    for (int64_t count = 1;; count++) {
        int dig = big_quorem(sc.r.get(), sc.s.get());
        out.put(static_cast<char>('0' + dig));
        if (big_is_zero(sc.r.get())) {
            strip_trailing_zeros(out);
            return;
        }
        if (count == limit)
            break;
        times_ten(sc);
    }
    round_remainder(sc, out, k);
}

// Modes 3 and 5 when no digit position is left (limit <= 0): the value
// rounds to nothing, or, when above half of 10^(k+1) with limit 0, to a
// single "1".
void no_digits_or_one(Scaled& sc, int64_t limit, int ndigits, Conversion& out, int& k) {
    if (limit == 0) {
        big_multadd(sc.s, 5, 0);
        if (big_cmp(sc.r.get(), sc.s.get()) > 0) {
            out.put('1');
            k++;
            return;
        }
    }
    k = -1 - ndigits;
}

int normalise_mode(int mode) {
    if (mode < 0 || mode > 9)
        return 0;
    return mode >= 6 ? mode - 4 : mode;
}

void special(Conversion& out, const char* text, int decpt) {
    for (const char* p = text; *p != '\0'; p++)
        out.put(*p);
    out.decpt = decpt;
}

// Mode 0 through the 64-bit fast path: the same digits as the big-integer
// loop, an order of magnitude sooner.
void shortest_fast(uint64_t u, Conversion& out) {
    uint64_t f;
    int e;
    kt::internal::shortest_digits(u, &f, &e);
    while (f % 10 == 0) {
        f /= 10;
        e++;
    }
    char reversed[24];
    int n = 0;
    for (; f != 0; f /= 10)
        reversed[n++] = static_cast<char>('0' + f % 10);
    for (int i = n - 1; i >= 0; i--)
        out.put(reversed[i]);
    out.decpt = n + e;
}

// Step 3 for a positive finite nonzero double: the digits of `mode`.
void finite_digits(kt_fpc_context* ctx, uint64_t u, int mode, int ndigits, Conversion& out) {
    Decomposed d = decompose(u);
    int k = upper_decimal_exponent(d);
    bool margins = mode != 2 && mode != 3;
    Scaled sc(ctx);
    scale(sc, d, k, margins);
    // k may be one too high; then scale r (and the margins) by ten.
    if (big_cmp(sc.r.get(), sc.s.get()) < 0) {
        k--;
        times_ten(sc);
    }
    if (ndigits < -INT_MAX)
        ndigits = -INT_MAX;  // keeps -ndigits representable below
    int64_t limit = INT64_MAX;
    if (mode == 2 || mode == 4)
        limit = ndigits > 0 ? ndigits : 1;
    else if (mode == 3 || mode == 5)
        limit = int64_t(k) + 1 + ndigits;
    if (limit <= 0)
        no_digits_or_one(sc, limit, ndigits, out, k);
    else if (margins)
        shortest_digits(sc, d, mode != 1, limit, out, k);
    else
        fixed_digits(sc, limit, out, k);
    out.decpt = k + 1;
}

void convert(kt_fpc_context* ctx, double x, int mode, int ndigits, bool fastPath,
             Conversion& out) {
    uint64_t u = bits_of(x);
    out.len = 0;
    out.sign = static_cast<int>(u >> 63);
    u &= ~(uint64_t(1) << 63);
    mode = normalise_mode(mode);
    if ((u >> 52) == 0x7ff) {
        bool nan = (u & kFractionMask) != 0;
        // A NaN reports no sign, whatever its sign bit (callers print it bare).
        if (nan)
            out.sign = 0;
        special(out, nan ? "NaN" : "Inf", KT_DTOA_SPECIAL_DECPT);
    } else if (u == 0) {
        special(out, "0", 1);
    } else if (fastPath && mode == 0) {
        shortest_fast(u, out);
    } else {
        finite_digits(ctx, u, mode, ndigits, out);
    }
}

// Hands the digits over when they and their NUL fit; otherwise nothing is
// stored and the result is null.
char* deliver(const Conversion& c, char* buf, size_t bufsize, int* decpt, int* sign,
              char** rve) {
    if (static_cast<size_t>(c.len) >= bufsize)
        return nullptr;
    memcpy(buf, c.digits, static_cast<size_t>(c.len));
    buf[c.len] = '\0';
    if (decpt != nullptr)
        *decpt = c.decpt;
    if (sign != nullptr)
        *sign = c.sign;
    if (rve != nullptr)
        *rve = buf + c.len;
    return buf;
}

char* dtoa(kt_fpc_context* ctx, double x, char* buf, size_t bufsize, int mode, int ndigits,
           int* decpt, int* sign, char** rve, bool fastPath) {
    if (buf == nullptr)
        return nullptr;
    Conversion out;
    convert(ctx, x, mode, ndigits, fastPath, out);
    return deliver(out, buf, bufsize, decpt, sign, rve);
}

}  // namespace

char* kt_dtoa(kt_fpc_context* ctx, double x, char* buf, size_t bufsize, int mode, int ndigits,
              int* decpt, int* sign, char** rve) {
    return dtoa(ctx, x, buf, bufsize, mode, ndigits, decpt, sign, rve, true);
}

char* kt::internal::dtoa_reference(kt_fpc_context* ctx, double x, char* buf, size_t bufsize,
                                   int mode, int ndigits, int* decpt, int* sign, char** rve) {
    return dtoa(ctx, x, buf, bufsize, mode, ndigits, decpt, sign, rve, false);
}
