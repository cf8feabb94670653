// Hexadecimal floating text (see fpc_hexfloat.h). The first 16 significant
// hex digits are kept exactly in 64 bits; later ones only matter as
// "something nonzero follows" (a sticky bit), since a double needs 53 bits
// and one rounding bit. Rounding is then one shift with round, sticky and
// ties to even, at the precision the binade leaves (fewer bits for
// subnormals).
#include "internal/fpc_hexfloat.h"

#include "internal/double_bits.h"
#include "kt/numbers.h"

namespace kt {
namespace internal {
namespace {

const uint64_t kInfinityBits = uint64_t(0x7ff) << 52;

int hex_value(char c) {
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

bool has_hex_prefix(const char* p) { return p[0] == '0' && (p[1] == 'x' || p[1] == 'X'); }

// value = bits * 2^exponent, plus less than one unit when sticky.
struct HexMantissa {
    uint64_t bits;
    int64_t exponent;
    bool sticky;
    int kept;       // significant digits in `bits`
    bool sawDigit;

    void add(int digit, bool inFraction) {
        sawDigit = true;
        if (kept == 16) {  // beyond 64 bits: scale and remember
            sticky = sticky || digit != 0;
            if (!inFraction)
                exponent += 4;
            return;
        }
        if (inFraction)
            exponent -= 4;
        if (kept > 0 || digit != 0) {
            bits = bits << 4 | static_cast<uint64_t>(digit);
            kept++;
        }
    }
};

// The optional binary exponent at `p`; moves `*p` past it when present.
int64_t scan_binary_exponent(const char** p) {
    const char* q = *p;
    if (*q != 'p' && *q != 'P')
        return 0;
    q++;
    bool negative = *q == '-';
    if (*q == '-' || *q == '+')
        q++;
    if (*q < '0' || *q > '9')
        return 0;
    int64_t e = 0;
    for (; *q >= '0' && *q <= '9'; q++) {
        if (e < 1000000000)
            e = e * 10 + (*q - '0');
    }
    *p = q;
    return negative ? -e : e;
}

// Rounds bits * 2^exponent (+ sticky) to a double's bit pattern.
uint64_t round_to_double(uint64_t bits, int64_t exponent, bool sticky) {
    int lead = __builtin_clzll(bits);
    bits <<= lead;
    int64_t top = exponent - lead + 63;  // 2^top <= value < 2^(top + 1)
    if (top > 1023)
        return kInfinityBits;
    if (top < -1075)
        return 0;  // below half the smallest subnormal
    int shift = top >= -1022 ? 11 : static_cast<int>(11 - 1022 - top);
    uint64_t q = shift == 64 ? 0 : bits >> shift;
    uint64_t dropped = shift == 64 ? bits : bits << (64 - shift);
    bool half = (dropped >> 63) != 0;
    bool rest = (dropped << 1) != 0 || sticky;
    if (half && (rest || (q & 1) != 0))
        q++;
    // A normal q carries the hidden bit into the exponent field, and a
    // carry out of the top rounds into the next binade (or infinity).
    uint64_t result = top >= -1022 ? (static_cast<uint64_t>(top + 1022) << 52) + q : q;
    return result > kInfinityBits ? kInfinityBits : result;
}

}  // namespace

bool scan_hex_float(const char* p, double* value, const char** end, int* status) {
    if (!has_hex_prefix(p))
        return false;
    const char* q = p + 2;
    HexMantissa m = {0, 0, false, 0, false};
    for (; hex_value(*q) >= 0; q++)
        m.add(hex_value(*q), false);
    if (*q == '.') {
        for (q++; hex_value(*q) >= 0; q++)
            m.add(hex_value(*q), true);
    }
    if (!m.sawDigit)
        return false;
    m.exponent += scan_binary_exponent(&q);
    *end = q;
    if (m.bits == 0) {
        *value = 0.0;
        return true;
    }
    uint64_t result = round_to_double(m.bits, m.exponent, m.sticky);
    if (result == kInfinityBits)
        *status = KT_STRTOD_OVERFLOW;
    else if (result == 0)
        *status = KT_STRTOD_UNDERFLOW;
    *value = from_bits(result);
    return true;
}

bool scan_hex_payload(const char* begin, const char* end, uint64_t* payload) {
    if (end - begin > 2 && has_hex_prefix(begin))
        begin += 2;
    if (begin == end)
        return false;
    uint64_t v = 0;
    for (const char* p = begin; p < end; p++) {
        int digit = hex_value(*p);
        if (digit < 0)
            return false;
        v = v << 4 | static_cast<uint64_t>(digit);
    }
    *payload = v;
    return true;
}

}  // namespace internal
}  // namespace kt
