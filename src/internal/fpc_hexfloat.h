// Hexadecimal forms read by kt_strtod: floating text such as "0x1.8p-2"
// and the payload of "nan(7ff)".
#ifndef KT_INTERNAL_FPC_HEXFLOAT_H
#define KT_INTERNAL_FPC_HEXFLOAT_H

#include <stdint.h>

namespace kt {
namespace internal {

// Reads hexadecimal floating text at `p` (after any space and sign): "0x"
// or "0X", hex digits with at most one ".", at least one digit, then an
// optional binary exponent "p" or "P" with an optional sign and decimal
// digits. Returns false when `p` does not start such a text. Otherwise
// sets `*value` to its magnitude rounded to the nearest double (ties to
// even, subnormals included), `*end` after the last character used, and
// `*status` to KT_STRTOD_OVERFLOW when the result is infinite or
// KT_STRTOD_UNDERFLOW when a nonzero text rounds to zero (unchanged
// otherwise).
bool scan_hex_float(const char* p, double* value, const char** end, int* status);

// The value of [begin, end) when it is an optional "0x" or "0X" and one
// or more hex digits, modulo 2^64; false for anything else.
bool scan_hex_payload(const char* begin, const char* end, uint64_t* payload);

}  // namespace internal
}  // namespace kt

#endif  // KT_INTERNAL_FPC_HEXFLOAT_H
