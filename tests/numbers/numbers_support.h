// Shared fixtures of the numbers tests: a runtime (message, error and
// memory contexts) whose allocator counts live blocks, so tests can check
// that an fpc context returns everything it took; random doubles of the
// interesting classes; and helpers to compare digit strings.
#ifndef KT_TESTS_NUMBERS_SUPPORT_H
#define KT_TESTS_NUMBERS_SUPPORT_H

#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <atomic>
#include <charconv>
#include <random>
#include <string>

#include "kt/errors.h"
#include "kt/memory.h"
#include "kt/messages.h"
#include "kt/numbers.h"

namespace numtest {

// Live blocks of the counting allocator, and an optional failure point:
// when `failAfter` reaches zero, allocation fails (OUT_OF_MEMORY is raised).
inline std::atomic<long>& live_blocks() {
    static std::atomic<long> n{0};
    return n;
}
inline std::atomic<long>& fail_after() {
    static std::atomic<long> n{-1};
    return n;
}

inline void* counting_alloc(size_t size) {
    long left = fail_after().load();
    if (left == 0)
        return nullptr;
    if (left > 0)
        fail_after().store(left - 1);
    void* p = malloc(size);
    if (p != nullptr)
        live_blocks()++;
    return p;
}
// Only the message context reallocates (its own arrays, released with
// plain free): not counted.
inline void* counting_realloc(void* p, size_t size) { return realloc(p, size); }
inline void counting_free(void* p) {
    if (p != nullptr)
        live_blocks()--;
    free(p);
}

inline int swallow_output(void*, const char*, int length) { return length; }

// Message, error and memory contexts for one thread.
struct Runtime {
    kt_message_context messages;
    kt_error_context errors;
    kt_mem_context memory;

    Runtime() {
        int status = 0;
        kt_initialize_message_context(&status, &messages, malloc, realloc);
        kt_initialize_error_context(&status, &errors, &messages, swallow_output, nullptr);
        kt_initialize_memory_context(&memory, &errors, counting_alloc, counting_realloc,
                                     counting_free);
    }
    ~Runtime() { kt_clear_message_context(&messages, free); }
    Runtime(const Runtime&) = delete;
    Runtime& operator=(const Runtime&) = delete;
};

// An fpc context on a counting runtime, cleared at the end.
struct Fpc {
    Runtime runtime;
    kt_fpc_context ctx;
    Fpc() { kt_initialize_fpc_context(&ctx, &runtime.memory); }
    ~Fpc() { kt_clear_fpc_context(&ctx); }
    Fpc(const Fpc&) = delete;
    Fpc& operator=(const Fpc&) = delete;
};

inline double from_bits(uint64_t u) {
    double x;
    memcpy(&x, &u, sizeof x);
    return x;
}
inline uint64_t bits_of(double x) {
    uint64_t u;
    memcpy(&u, &x, sizeof u);
    return u;
}

// Positive finite doubles drawn from the classes where conversions go
// wrong: any bit pattern, subnormals, powers of two (the narrow lower
// gap), neighbours of powers of two and of ten, integers, short decimals.
inline double interesting_double(std::mt19937_64& rng) {
    switch (rng() % 8) {
    case 0:
    case 1:
        break;
    case 2:
        return from_bits(rng() % (uint64_t(1) << 52) + 1);  // subnormal
    case 3:
        return from_bits((rng() % 2046 + 1) << 52);  // power of two
    case 4: {
        uint64_t u = (rng() % 2046 + 1) << 52;
        return from_bits(u + (rng() % 3) - 1 + (u == (uint64_t(1) << 52) ? 1 : 0));
    }
    case 5:
        return static_cast<double>((rng() >> (rng() % 64)) + 1);  // integer
    case 6: {
        char text[40];
        snprintf(text, sizeof text, "%llue%d", static_cast<unsigned long long>(rng() % 100000000 + 1),
                 static_cast<int>(rng() % 600) - 300);
        return strtod(text, nullptr);
    }
    default: {
        // Near a power of ten.
        char text[40];
        snprintf(text, sizeof text, "1e%d", static_cast<int>(rng() % 616) - 307);
        uint64_t u = bits_of(strtod(text, nullptr)) + rng() % 5 - 2;
        return from_bits(u);
    }
    }
    for (;;) {
        double x = from_bits(rng() & ~(uint64_t(1) << 63));
        if (x == x && x <= 1.7976931348623157e308 && x != 0)
            return x;
    }
}

// Digits and decimal point of std::to_chars' shortest form.
struct DecimalForm {
    std::string digits;
    int decpt;
};

// Splits "d.ddde[+-]xx" (scientific text) into digits and decimal point,
// dropping trailing zeros as kt_dtoa does.
inline DecimalForm from_scientific(const char* text) {
    DecimalForm f;
    const char* p = text;
    if (*p == '-')
        p++;
    for (; *p != 'e' && *p != '\0'; p++) {
        if (*p != '.')
            f.digits += *p;
    }
    f.decpt = (*p == 'e' ? atoi(p + 1) : 0) + 1;
    while (f.digits.size() > 1 && f.digits.back() == '0')
        f.digits.pop_back();
    return f;
}

inline DecimalForm shortest_reference(double x) {
    char text[64];
    auto r = std::to_chars(text, text + sizeof text - 1, x, std::chars_format::scientific);
    *r.ptr = '\0';
    return from_scientific(text);
}

}  // namespace numtest

#endif  // KT_TESTS_NUMBERS_SUPPORT_H
