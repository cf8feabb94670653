// The bit pattern of a double and back, for the numbers family.
#ifndef KT_INTERNAL_DOUBLE_BITS_H
#define KT_INTERNAL_DOUBLE_BITS_H

#include <stdint.h>
#include <string.h>

namespace kt {
namespace internal {

inline uint64_t bits_of(double x) {
    uint64_t u;
    memcpy(&u, &x, sizeof u);
    return u;
}

inline double from_bits(uint64_t u) {
    double x;
    memcpy(&x, &u, sizeof x);
    return x;
}

}  // namespace internal
}  // namespace kt

#endif  // KT_INTERNAL_DOUBLE_BITS_H
