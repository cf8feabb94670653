// Shared fixtures of the numbers tests: an fpc context on counting
// contexts; random doubles of the interesting classes; kt_dtoa's results
// and std::to_chars' shortest form.
#ifndef KT_TESTS_NUMBERS_SUPPORT_H
#define KT_TESTS_NUMBERS_SUPPORT_H

#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <charconv>
#include <ostream>
#include <random>
#include <string>

#include "kt/numbers.h"
#include "support/counting_context.h"

namespace numtest {

// An fpc context on the counting contexts of tests/support, cleared at the
// end. Those contexts keep an unlocked ledger: one thread at a time.
struct Fpc {
    kttest::Contexts contexts;
    kt_fpc_context ctx;
    Fpc() { kt_initialize_fpc_context(&ctx, &contexts.memory); }
    ~Fpc() { kt_clear_fpc_context(&ctx); }
};

inline double from_bits(uint64_t u) { double x; memcpy(&x, &u, sizeof x); return x; }
inline uint64_t bits_of(double x) { uint64_t u; memcpy(&u, &x, sizeof u); return u; }

// Positive finite doubles drawn from the classes where conversions go
// wrong: any bit pattern, subnormals, powers of two (the narrow lower
// gap) and their neighbours, integers, short decimals, neighbours of
// powers of ten.
inline double interesting_double(std::mt19937_64& rng) {
    char text[40];
    switch (rng() % 8) {
    case 2: return from_bits(rng() % (uint64_t(1) << 52) + 1);  // subnormal
    case 3: return from_bits((rng() % 2046 + 1) << 52);  // power of two
    case 4: return from_bits(((rng() % 2045 + 2) << 52) + rng() % 3 - 1);
    case 5: return static_cast<double>((rng() >> (rng() % 64)) + 1);  // integer
    case 6:
        snprintf(text, sizeof text, "%llue%d", static_cast<unsigned long long>(rng() % 100000000 + 1),
                 static_cast<int>(rng() % 600) - 300);
        return strtod(text, nullptr);
    case 7:
        snprintf(text, sizeof text, "1e%d", static_cast<int>(rng() % 616) - 307);
        return from_bits(bits_of(strtod(text, nullptr)) + rng() % 5 - 2);
    default:
        for (;;) {
            double x = from_bits(rng() >> 1);
            if (x > 0 && x <= 1.7976931348623157e308)
                return x;
        }
    }
}

// Digits, decimal point and sign as kt_dtoa reports them ("?" for null).
struct Digits {
    std::string text;
    int decpt, sign;
    bool operator==(const Digits& o) const { return text == o.text && decpt == o.decpt; }
};
inline std::ostream& operator<<(std::ostream& os, const Digits& d) {
    return os << '"' << d.text << "\" @" << d.decpt;
}

using DtoaFunction = char* (*)(kt_fpc_context*, double, char*, size_t, int, int, int*, int*, char**);

inline Digits run_dtoa(kt_fpc_context* ctx, double x, int mode, int ndigits,
                       DtoaFunction dtoa = kt_dtoa) {
    char buf[1200];
    Digits d = {"?", 0, -1};
    char* end = nullptr;
    if (dtoa(ctx, x, buf, sizeof buf, mode, ndigits, &d.decpt, &d.sign, &end) == buf)
        d.text.assign(buf, end);
    return d;
}

// The shortest round-trip digits of a positive double by std::to_chars.
inline Digits shortest_reference(double x) {
    char text[64];
    *std::to_chars(text, text + 63, x, std::chars_format::scientific).ptr = '\0';
    Digits d = {"", atoi(strchr(text, 'e') + 1) + 1, 0};
    for (const char* p = text; *p != 'e'; p++) {
        if (*p != '.')
            d.text += *p;
    }
    return d;
}

}  // namespace numtest

#endif  // KT_TESTS_NUMBERS_SUPPORT_H
