// The fast paths of the decimal conversions, and the big-integer
// references they must agree with (tests compare the two).
//
// kt_strtod answers exact cases with one IEEE operation and most others
// from an extended-precision approximation whose error bound provably
// cannot cross a rounding boundary; the rest go through big-integer
// correction, which strtod_reference uses for every text.
//
// The fast path scales the value and the ends of its rounding interval by
// a 126-bit approximation of a power of ten (the Schubfach method of
// R. Giulietti), which decides the shortest correctly rounded digits with
// 64-bit integer arithmetic. It answers for every positive finite double;
// the big-integer digit generation remains the reference and serves all
// other modes.
#ifndef KT_INTERNAL_FPC_FASTPATHS_H
#define KT_INTERNAL_FPC_FASTPATHS_H

#include <stddef.h>
#include <stdint.h>

#include "kt/numbers.h"

namespace kt {
namespace internal {

const int kScaledPowersMinExponent = -324;
const int kScaledPowersCount = 617;  // exponents -324 .. 292
extern const uint64_t kScaledPowersOfTen[kScaledPowersCount][2];

// For a positive finite nonzero double (as its bits): the shortest digits
// that read back to it, nearest to it (ties to even), as value = digits *
// 10^exponent. `digits` may carry trailing zeros.
void shortest_digits(uint64_t bits, uint64_t* digits, int* exponent);

// kt_dtoa without the fast path: big integers in every mode.
char* dtoa_reference(kt_fpc_context* ctx, double x, char* buf, size_t bufsize, int mode,
                     int ndigits, int* decpt, int* sign, char** rve);

// kt_strtod with every nonzero finite result decided by big-integer
// correction (from the same starting approximation).
double strtod_reference(kt_fpc_context* ctx, const char* s, char** end, int* status);

}  // namespace internal
}  // namespace kt

#endif  // KT_INTERNAL_FPC_FASTPATHS_H
