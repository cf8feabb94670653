// kt_dtoa: decimal digits of a double, after David M. Gay's dtoa.
//
// The value v = f * 2^e is scaled to r/s = v / 10^k with big integers, and
// digits are the successive quotients of r by s. Mode 0 stops as soon as the
// digits read back to v: the margins m- and m+ are half the gaps to the
// neighbouring doubles, included when f is even (round-half-even reading).
// Modes 2 and 3 produce a fixed count of digits and round the rest, ties to
// even. Trailing zeros are never produced.
#include <stdint.h>
#include <string.h>

#include "internal/double_bits.h"
#include "internal/fpc_bigint.h"
#include "internal/fpc_fastpaths.h"
#include "kt/numbers.h"

using kt::internal::bits_of;
using kt::internal::Big;
using kt::internal::Bigint;
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

// Bounded digit output.
struct DigitBuffer {
    char* buf;
    size_t cap;  // bytes, including room for the NUL
    size_t len;
    bool overflow;

    void put(char c) {
        if (len + 1 >= cap) {
            overflow = true;
            return;
        }
        buf[len++] = c;
    }
};

// Adds one unit in the last digit; "999" becomes "1" with k one higher.
void round_up(DigitBuffer& out, int& k) {
    while (out.len > 0 && out.buf[out.len - 1] == '9')
        out.len--;
    if (out.len == 0) {
        out.put('1');
        k++;
        return;
    }
    out.buf[out.len - 1]++;
}

void strip_trailing_zeros(DigitBuffer& out) {
    while (out.len > 1 && out.buf[out.len - 1] == '0')
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
// mhi / s the half-gaps to the neighbours (mode 0 and 1 only).
struct Scaled {
    Big r;
    Big s;
    Big mlo;
    Big mhi;
    bool haveMargins;
    bool mhiDoubled;  // mhi = 2 * mlo
    explicit Scaled(kt_fpc_context* ctx) : r(ctx), s(ctx), mlo(ctx), mhi(ctx),
                                           haveMargins(false), mhiDoubled(false) {}
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
    sc.mhiDoubled = d.lowerGapSmaller;
    big_copy(sc.mhi, sc.mlo.get());
    if (sc.mhiDoubled)
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

// Step 2 for modes 0 and 1: digits until they read back to v, or until
// `limit` digits (mode 1) followed by rounding.
void shortest_digits(Scaled& sc, const Decomposed& d, int limit, DigitBuffer& out, int& k) {
    kt_fpc_context* ctx = sc.r.ctx();
    Big delta(ctx);
    bool even = (d.f & 1) == 0;
    for (int count = 1;; count++) {
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
        if (count == limit || out.overflow)
            break;
        times_ten(sc);
    }
    // Mode 1 ran out of digits: round what is left, ties to even.
    big_lshift(sc.r, 1);
    int j = big_cmp(sc.r.get(), sc.s.get());
    int last = out.buf[out.len - 1] - '0';
    if (j > 0 || (j == 0 && (last & 1)))
        round_up(out, k);
    strip_trailing_zeros(out);
}

// Step 2 for modes 2 and 3: `limit` digits (at least 1), correctly rounded.
void fixed_digits(Scaled& sc, int limit, DigitBuffer& out, int& k) {
    int dig = 0;
    for (int count = 1;; count++) {
        dig = big_quorem(sc.r.get(), sc.s.get());
        out.put(static_cast<char>('0' + dig));
        if (big_is_zero(sc.r.get()) || out.overflow) {
            strip_trailing_zeros(out);
            return;
        }
        if (count == limit)
            break;
        times_ten(sc);
    }
    big_lshift(sc.r, 1);
    int j = big_cmp(sc.r.get(), sc.s.get());
    if (j > 0 || (j == 0 && (dig & 1)))
        round_up(out, k);
    strip_trailing_zeros(out);
}

// Mode 3 when no digit position is left (limit <= 0): the value rounds to
// nothing, or, when above half of 10^(k+1) with limit 0, to a single "1".
void no_digits_or_one(Scaled& sc, int limit, int ndigits, DigitBuffer& out, int& k) {
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
    if (mode >= 6)
        mode -= 4;
    if (mode >= 4)
        mode -= 2;
    return mode;
}

char* finish(DigitBuffer& out, int decimalPoint, int* decpt, char** rve) {
    if (out.overflow)
        return nullptr;
    out.buf[out.len] = '\0';
    if (decpt != nullptr)
        *decpt = decimalPoint;
    if (rve != nullptr)
        *rve = out.buf + out.len;
    return out.buf;
}

char* special(DigitBuffer& out, const char* text, int value, int* decpt, char** rve) {
    for (const char* p = text; *p != '\0'; p++)
        out.put(*p);
    return finish(out, value, decpt, rve);
}

// Mode 0 through the 64-bit fast path: the same digits as the big-integer
// loop, an order of magnitude sooner.
char* shortest_fast(uint64_t u, DigitBuffer& out, int* decpt, char** rve) {
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
    return finish(out, n + e, decpt, rve);
}

}  // namespace

char* kt_dtoa(kt_fpc_context* ctx, double x, char* buf, size_t bufsize, int mode, int ndigits,
              int* decpt, int* sign, char** rve) {
    uint64_t u = bits_of(x);
    uint64_t magnitude = u & ~(uint64_t(1) << 63);
    bool inFastRange = magnitude != 0 && (magnitude >> 52) != 0x7ff;
    if (buf == nullptr || normalise_mode(mode) != 0 || !inFastRange)
        return kt::internal::dtoa_reference(ctx, x, buf, bufsize, mode, ndigits, decpt, sign, rve);
    DigitBuffer out = {buf, bufsize, 0, false};
    if (sign != nullptr)
        *sign = static_cast<int>(u >> 63);
    return shortest_fast(magnitude, out, decpt, rve);
}

char* kt::internal::dtoa_reference(kt_fpc_context* ctx, double x, char* buf, size_t bufsize,
                                   int mode, int ndigits, int* decpt, int* sign, char** rve) {
    DigitBuffer out = {buf, bufsize, 0, false};
    if (buf == nullptr)
        return nullptr;
    uint64_t u = bits_of(x);
    int negative = static_cast<int>(u >> 63);
    u &= ~(uint64_t(1) << 63);
    if (sign != nullptr)
        *sign = negative;
    if ((u >> 52) == 0x7ff) {
        if ((u & kFractionMask) != 0) {
            // NaN: no sign, whatever its sign bit (callers print it bare).
            if (sign != nullptr)
                *sign = 0;
            return special(out, "NaN", KT_DTOA_SPECIAL_DECPT, decpt, rve);
        }
        return special(out, "Inf", KT_DTOA_SPECIAL_DECPT, decpt, rve);
    }
    if (u == 0)
        return special(out, "0", 1, decpt, rve);

    mode = normalise_mode(mode);
    Decomposed d = decompose(u);
    int k = upper_decimal_exponent(d);
    bool margins = mode <= 1;
    Scaled sc(ctx);
    scale(sc, d, k, margins);

    // Step 1b: k may be one too high; then scale r (and margins) by ten.
    Big delta(ctx);
    int check = margins ? compare_high(sc, delta) : big_cmp(sc.r.get(), sc.s.get());
    bool tooHigh = margins ? ((d.f & 1) == 0 ? check < 0 : check <= 0) : check < 0;
    if (tooHigh) {
        k--;
        times_ten(sc);
    }

    if (mode <= 1) {
        int limit = mode == 1 ? (ndigits > 0 ? ndigits : 1) : -1;
        shortest_digits(sc, d, limit, out, k);
        return finish(out, k + 1, decpt, rve);
    }
    int limit = mode == 2 ? (ndigits > 0 ? ndigits : 1) : k + 1 + ndigits;
    if (limit <= 0) {
        no_digits_or_one(sc, limit, ndigits, out, k);
        return finish(out, k + 1, decpt, rve);
    }
    fixed_digits(sc, limit, out, k);
    return finish(out, k + 1, decpt, rve);
}
