// IEEE 754 double constants and predicates.
#include <errno.h>
#include <float.h>
#include <stdint.h>
#include <string.h>

#include "internal/double_bits.h"
#include "kt/numbers.h"

using kt::internal::bits_of;
using kt::internal::from_bits;

namespace {

double magnitude(double x) { return from_bits(bits_of(x) & ~(uint64_t(1) << 63)); }

}  // namespace

double ktGetEps(void) { return DBL_EPSILON; }
double ktGetSingleEps(void) { return FLT_EPSILON; }
double ktGetInf(void) { return from_bits(0x7ff0000000000000ULL); }
double ktGetMinusInf(void) { return from_bits(0xfff0000000000000ULL); }
double ktGetPI(void) { return 3.141592653589793; }
double ktGetRealMax(void) { return DBL_MAX; }
double ktGetRealMin(void) { return DBL_MIN; }

// The sign bit is set on purpose: this is the processor's default NaN, the
// one arithmetic produces, so values compare bit for bit with computed NaNs.
double ktGetNaN(void) { return from_bits(0xfff8000000000000ULL); }

bool ktIsNaN(double x) { return x != x; }
bool ktIsInf(double x) { return magnitude(x) > DBL_MAX; }
bool ktIsPlusInf(double x) { return x == ktGetInf(); }
bool ktIsMinusInf(double x) { return x == ktGetMinusInf(); }
bool ktFinite(double x) { return magnitude(x) <= DBL_MAX; }
bool ktDoubleScalarIsfinite(double x) { return magnitude(x) <= DBL_MAX; }
int ktSignBit(double x) { return static_cast<int>(bits_of(x) >> 63); }

double ktCopySign(double x, double y) {
    uint64_t sign = bits_of(y) & (uint64_t(1) << 63);
    return from_bits((bits_of(x) & ~(uint64_t(1) << 63)) | sign);
}

bool ktIsMinusZero(double x) { return x == 0 && ktSignBit(x); }

// The tolerance scales with b only; callers rely on the asymmetry (with
// b = 0 only a = 0 passes).
bool ktEqualWithinEps(double a, double b) {
    return magnitude(a - b) <= DBL_EPSILON * magnitude(b);
}

bool ktDblIsInt(double x) {
    if (x != x) {
        errno = EDOM;
        return false;
    }
    if (x > 2147483647.0 || x < -2147483648.0) {
        errno = ERANGE;
        return false;
    }
    int32_t truncated = static_cast<int32_t>(x);
    if (static_cast<double>(truncated) != x)
        return false;
    // -0.0 is not an integer here, deliberately: callers use this to decide
    // whether a value prints as an integer, and -0 must keep its sign.
    return !ktIsMinusZero(x);
}
