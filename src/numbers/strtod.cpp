// kt_strtod: decimal text to the nearest double, after David M. Gay's strtod.
//
// Named steps:
//   1. scan the text: sign, significant digits, decimal exponent, end
//      (hexadecimal text and "inf"/"nan" forms are read apart);
//   2. quick answers: zero, certain overflow or underflow, and the exact
//      case of at most 15 digits with a small power of ten (one correctly
//      rounded IEEE operation on exact operands);
//   3. an approximation in extended precision, accepted when its error
//      bound cannot straddle a rounding boundary of the double;
//   4. otherwise big-integer correction: starting from the approximation,
//      compare the exact decimal value with the midpoints to the
//      neighbouring doubles and step one ulp at a time; ties go to even.
// Step 4 is the reference: steps 2 and 3 give identical results whenever
// they answer.
#include <float.h>
#include <stdint.h>
#include <string.h>

#include "internal/double_bits.h"
#include "internal/fpc_bigint.h"
#include "internal/fpc_fastpaths.h"
#include "internal/fpc_hexfloat.h"
#include "kt/numbers.h"

using kt::internal::bits_of;
using kt::internal::from_bits;
using kt::internal::Big;
using kt::internal::big_cmp;
using kt::internal::big_copy;
using kt::internal::big_lshift;
using kt::internal::big_mult;
using kt::internal::big_pow5mult;
using kt::internal::big_set_digits;
using kt::internal::big_set_u64;

namespace {

// A double's midpoints have at most 768 significant digits, so digits past
// this many only matter as "something nonzero follows": one sticky digit.
const int kMaxDigits = 800;

struct Scanned {
    const char* end;       // after the last character used
    char digits[kMaxDigits + 2];
    int count;             // significant digits kept (no leading/trailing zeros)
    int64_t exponent;      // value = digits * 10^exponent
    bool sawDigit;         // any digit at all, zeros included
};

bool is_space(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}

bool is_digit(char c) { return c >= '0' && c <= '9'; }

char lower(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c; }

// Case-insensitive prefix match; returns the end of the match or null.
const char* match_word(const char* p, const char* word) {
    for (; *word != '\0'; p++, word++) {
        if (lower(*p) != *word)
            return nullptr;
    }
    return p;
}

// Appends one digit of the mantissa, tracking zeros so that neither
// leading nor trailing zeros are stored. `pendingZeros` counts zeros seen
// after the last nonzero digit; they are stored only if another nonzero
// digit follows.
struct DigitSink {
    Scanned& sc;
    int64_t pendingZeros;
    int64_t dropped;  // nonzero-run digits beyond kMaxDigits
    bool stickyNonzero;

    void add(char c) {
        sc.sawDigit = true;
        if (c == '0') {
            if (sc.count > 0)
                pendingZeros++;
            return;
        }
        while (pendingZeros > 0 && sc.count < kMaxDigits) {
            sc.digits[sc.count++] = '0';
            pendingZeros--;
        }
        if (sc.count < kMaxDigits && pendingZeros == 0) {
            sc.digits[sc.count++] = c;
            return;
        }
        // Past the limit: remember the position and that it was nonzero.
        dropped += pendingZeros + 1;
        pendingZeros = 0;
        stickyNonzero = true;
    }
};

// Optional white space and sign; returns what follows.
const char* skip_space_and_sign(const char* s, bool* negative) {
    while (is_space(*s))
        s++;
    *negative = *s == '-';
    if (*s == '-' || *s == '+')
        s++;
    return s;
}

// Step 1. Reads the mantissa and exponent at `p` (after space and sign);
// leaves sc.end at `s` when there is no number.
void scan(const char* s, const char* p, Scanned& sc) {
    sc.count = 0;
    sc.exponent = 0;
    sc.sawDigit = false;
    sc.end = s;
    DigitSink sink = {sc, 0, 0, false};
    int64_t fractionDigits = 0;
    while (is_digit(*p))
        sink.add(*p++);
    if (*p == '.') {
        p++;
        while (is_digit(*p)) {
            sink.add(*p++);
            fractionDigits++;
        }
    }
    if (!sc.sawDigit)
        return;
    sc.end = p;
    // Trailing zeros never stored: they and dropped digits scale the value.
    int64_t scale = sink.pendingZeros + sink.dropped - fractionDigits;
    if (sink.stickyNonzero) {
        sc.digits[sc.count++] = '1';
        scale--;
    }
    if (*p == 'e' || *p == 'E') {
        const char* q = p + 1;
        bool negativeExponent = false;
        if (*q == '-' || *q == '+') {
            negativeExponent = *q == '-';
            q++;
        }
        if (is_digit(*q)) {
            int64_t e = 0;
            while (is_digit(*q)) {
                if (e < 1000000000)
                    e = e * 10 + (*q - '0');
                q++;
            }
            scale += negativeExponent ? -e : e;
            sc.end = q;
        }
    }
    sc.exponent = scale;
}

// "inf", "infinity", "nan", "nan(chars)" at `p` (after space and sign),
// case-insensitively; the caller applies the sign. In "nan(chars)" the chars are letters, digits and '_'; when they are a
// hexadecimal number (optionally "0x"-prefixed) its low 52 bits become the
// fraction of the NaN, as written (the quiet bit is not forced). A zero
// fraction, or chars of any other kind, give the default quiet NaN.
bool scan_special(const char* p, double* value, const char** end) {
    const char* q = match_word(p, "inf");
    if (q != nullptr) {
        const char* longer = match_word(q, "inity");
        *end = longer != nullptr ? longer : q;
        *value = __builtin_inf();
        return true;
    }
    q = match_word(p, "nan");
    if (q == nullptr)
        return false;
    uint64_t fraction = 0;
    if (*q == '(') {
        const char* r = q + 1;
        while (is_digit(*r) || (lower(*r) >= 'a' && lower(*r) <= 'z') || *r == '_')
            r++;
        if (*r == ')') {
            if (kt::internal::scan_hex_payload(q + 1, r, &fraction))
                fraction &= (uint64_t(1) << 52) - 1;
            q = r + 1;
        }
    }
    *end = q;
    *value = fraction != 0 ? from_bits(uint64_t(0x7ff) << 52 | fraction) : __builtin_nan("");
    return true;
}

// ---- step 2: exact quick path ----------------------------------------------

const double kExactTens[23] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                               1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
                               1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};

uint64_t leading_value(const Scanned& sc, int n) {
    uint64_t v = 0;
    for (int i = 0; i < n; i++)
        v = v * 10 + static_cast<uint64_t>(sc.digits[i] - '0');
    return v;
}

bool exact_quick(const Scanned& sc, double* result) {
    if (sc.count > 15)
        return false;
    double m = static_cast<double>(leading_value(sc, sc.count));
    int64_t e = sc.exponent;
    if (e >= 0 && e <= 22) {
        *result = m * kExactTens[e];
        return true;
    }
    if (e < 0 && e >= -22) {
        *result = m / kExactTens[-e];
        return true;
    }
    // m * 10^(e - 22) is still an exact integer below 10^15.
    if (e > 22 && e <= 22 + 15 - sc.count) {
        *result = (m * kExactTens[e - 22]) * kExactTens[22];
        return true;
    }
    return false;
}

// ---- step 3: extended-precision approximation ------------------------------

// 10^n in long double: exact for n <= 27 (5^27 < 2^64); 10^(28j) is
// correctly rounded by the compiler.
long double power_of_ten(int n) {
    static const long double kSmall[28] = {
        1e0L,  1e1L,  1e2L,  1e3L,  1e4L,  1e5L,  1e6L,  1e7L,  1e8L,  1e9L,
        1e10L, 1e11L, 1e12L, 1e13L, 1e14L, 1e15L, 1e16L, 1e17L, 1e18L, 1e19L,
        1e20L, 1e21L, 1e22L, 1e23L, 1e24L, 1e25L, 1e26L, 1e27L};
    static const long double kBig[13] = {1e0L,   1e28L,  1e56L,  1e84L,  1e112L,
                                         1e140L, 1e168L, 1e196L, 1e224L, 1e252L,
                                         1e280L, 1e308L, 1e336L};
    return kSmall[n % 28] * kBig[n / 28];
}

struct Approximation {
    long double value;
    bool truncated;  // digits beyond the 19th were left out
};

Approximation approximate(const Scanned& sc) {
    int n = sc.count < 19 ? sc.count : 19;
    int64_t e = sc.exponent + (sc.count - n);
    long double m = static_cast<long double>(leading_value(sc, n));
    Approximation a;
    a.truncated = n < sc.count;
    a.value = e >= 0 ? m * power_of_ten(static_cast<int>(e))
                     : m / power_of_ten(static_cast<int>(-e));
    return a;
}

// Whether rounding the approximation to double is certainly the correct
// rounding of the exact value: the result is comfortably normal and the 11
// bits dropped are farther from the halfway pattern than the error bound.
bool rounding_is_certain(const Approximation& a) {
    unsigned char raw[sizeof(long double)];
    memcpy(raw, &a.value, sizeof raw);
    uint64_t mantissa;
    uint16_t exponentField;
    memcpy(&mantissa, raw, 8);
    memcpy(&exponentField, raw + 8, 2);
    int exponent = (exponentField & 0x7fff) - 16383;
    if (exponent < -1021 || exponent > 1022)
        return false;
    int64_t dropped = static_cast<int64_t>(mantissa & 0x7ff);
    int64_t bound = a.truncated ? 32 : 8;
    int64_t distance = dropped - 0x400;
    if (distance < 0)
        distance = -distance;
    return distance > bound;
}

// ---- step 4: big-integer correction ----------------------------------------

// Compares digits * 10^exponent with odd * 2^binaryExponent exactly.
struct ExactComparer {
    Big digits5;  // digits * 5^max(exponent, 0)
    Big five;     // 5^max(-exponent, 0)
    int64_t digits2;
    int64_t other2;
    bool haveFive;
    Big left;
    Big right;
    Big odd;

    ExactComparer(kt_fpc_context* ctx, const Scanned& sc)
        : digits5(ctx), five(ctx), digits2(0), other2(0), haveFive(false), left(ctx),
          right(ctx), odd(ctx) {
        big_set_digits(digits5, sc.digits, sc.count);
        if (sc.exponent >= 0) {
            big_pow5mult(digits5, static_cast<int>(sc.exponent));
            digits2 = sc.exponent;
        } else {
            big_set_u64(five, 1);
            big_pow5mult(five, static_cast<int>(-sc.exponent));
            haveFive = true;
            other2 = -sc.exponent;
        }
    }

    int compare(uint64_t oddFactor, int binaryExponent) {
        big_set_u64(odd, oddFactor);
        if (haveFive)
            big_mult(right, odd.get(), five.get());
        else
            right.swap(odd);
        int64_t r2 = other2 + binaryExponent;
        int64_t l2 = digits2;
        int64_t low = l2 < r2 ? l2 : r2;
        big_copy(left, digits5.get());
        big_lshift(left, static_cast<int>(l2 - low));
        big_lshift(right, static_cast<int>(r2 - low));
        return big_cmp(left.get(), right.get());
    }
};

// The candidate x = m * 2^E as integers.
void split(double x, uint64_t* m, int* e) {
    uint64_t u = bits_of(x);
    int biased = static_cast<int>(u >> 52);
    uint64_t fraction = u & ((uint64_t(1) << 52) - 1);
    if (biased == 0) {
        *m = fraction;
        *e = -1074;
    } else {
        *m = fraction | (uint64_t(1) << 52);
        *e = biased - 1075;
    }
}

double correct(kt_fpc_context* ctx, const Scanned& sc, double start) {
    if (start == 0)
        start = from_bits(1);
    if (start > DBL_MAX)
        start = DBL_MAX;
    ExactComparer cmp(ctx, sc);
    double x = start;
    for (;;) {
        uint64_t m;
        int e;
        split(x, &m, &e);
        bool even = (m & 1) == 0;
        // Upper midpoint: (2m + 1) * 2^(e - 1).
        int above = cmp.compare(2 * m + 1, e - 1);
        if (above > 0 || (above == 0 && !even)) {
            x = from_bits(bits_of(x) + 1);
            if (above == 0 || x > DBL_MAX)
                return x;
            continue;
        }
        if (above == 0)
            return x;
        // Lower midpoint; a binade's first double has a gap half as wide below.
        bool narrow = m == (uint64_t(1) << 52) && e > -1074;
        int below = narrow ? cmp.compare(4 * m - 1, e - 2) : cmp.compare(2 * m - 1, e - 1);
        if (below < 0 || (below == 0 && !even)) {
            x = from_bits(bits_of(x) - 1);
            if (below == 0 || x == 0)
                return x;
            continue;
        }
        return x;
    }
}

double magnitude(kt_fpc_context* ctx, const Scanned& sc, int* status, bool fastPaths) {
    if (sc.count == 0)
        return 0.0;
    int64_t decimalExponent = sc.count + sc.exponent;  // value < 10^this
    if (decimalExponent > 310) {
        *status = KT_STRTOD_OVERFLOW;
        return __builtin_inf();
    }
    if (decimalExponent <= -324) {
        *status = KT_STRTOD_UNDERFLOW;
        return 0.0;
    }
    double quick;
    if (fastPaths && exact_quick(sc, &quick))
        return quick;
    Approximation a = approximate(sc);
    if (fastPaths && rounding_is_certain(a))
        return static_cast<double>(a.value);
    double x = correct(ctx, sc, static_cast<double>(a.value));
    if (x > DBL_MAX)
        *status = KT_STRTOD_OVERFLOW;
    else if (x == 0)
        *status = KT_STRTOD_UNDERFLOW;
    return x;
}

double convert(kt_fpc_context* ctx, const char* s, char** end, int* status, bool fastPaths) {
    int localStatus = KT_STRTOD_OK;
    if (status == nullptr)
        status = &localStatus;
    *status = KT_STRTOD_OK;
    if (s == nullptr) {
        if (end != nullptr)
            *end = nullptr;
        return 0.0;
    }
    bool negative = false;
    const char* body = skip_space_and_sign(s, &negative);
    double x = 0.0;
    const char* stop = s;
    if (!kt::internal::scan_hex_float(body, &x, &stop, status)) {
        Scanned sc;
        scan(s, body, sc);
        if (sc.sawDigit) {
            x = magnitude(ctx, sc, status, fastPaths);
            stop = sc.end;
        } else if (!scan_special(body, &x, &stop)) {
            stop = s;
            negative = false;  // no number: a plain 0
        }
    }
    if (end != nullptr)
        *end = const_cast<char*>(stop);
    return negative ? -x : x;
}

}  // namespace

double kt_strtod(kt_fpc_context* ctx, const char* s, char** end, int* status) {
    return convert(ctx, s, end, status, true);
}

double kt::internal::strtod_reference(kt_fpc_context* ctx, const char* s, char** end,
                                      int* status) {
    return convert(ctx, s, end, status, false);
}
