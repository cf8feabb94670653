// The fast paths against their big-integer references (and both against a
// trusted peer). kt_dtoa mode 0 vs std::to_chars, over the classes where
// scaling by a rounded power of ten is most fragile: the smallest
// subnormals, around the smallest normal, powers of two and the doubles
// below them, across 2^53 (where the integer shortcut ends). kt_strtod vs
// glibc strtod, on texts whose value sits next to rounding boundaries and
// across the subnormal and overflow edges. Random doubles of every class
// are compared the same way by fuzz/dtoa_fuzz.cpp, and against an exact
// model in tests/numbers/dtoa_test.cpp.
#include <math.h>
#include <stdio.h>
#include <stdlib.h>

#include <random>
#include <string>

#include <gtest/gtest.h>

#include "internal/fpc_fastpaths.h"
#include "numbers/numbers_support.h"

using numtest::Fpc;

namespace {

void expect_agree(kt_fpc_context* ctx, double x) {
    numtest::Digits fast = numtest::run_dtoa(ctx, x, 0, 0);
    ASSERT_EQ(fast, numtest::run_dtoa(ctx, x, 0, 0, kt::internal::dtoa_reference)) << std::hexfloat << x;
    ASSERT_EQ(fast, numtest::shortest_reference(x)) << std::hexfloat << x;
}

TEST(FpcFastPaths, FastPathEqualsReferenceOnEdgeClasses) {
    Fpc fpc;
    uint64_t minNormal = uint64_t(1) << 52, twoTo53 = numtest::bits_of(9007199254740992.0);
    uint64_t ranges[][2] = {{1, 3000}, {minNormal - 1000, 2000}, {twoTo53 - 2000, 4000}, {0x7fefffffffffffff, 1}};
    for (const auto& range : ranges) {
        for (uint64_t u = range[0]; u < range[0] + range[1]; u++)
            expect_agree(&fpc.ctx, numtest::from_bits(u));
    }
    for (int e = -1074; e <= 1023; e++) {
        expect_agree(&fpc.ctx, ldexp(1.0, e));
        expect_agree(&fpc.ctx, nextafter(ldexp(1.0, e), 0));
    }
}

// Texts near rounding boundaries: the round-trip digits of a double with
// the last digits replaced, so the value lands anywhere within an ulp.
std::string near_boundary_text(std::mt19937_64& rng) {
    double x = numtest::interesting_double(rng);
    char text[64];
    snprintf(text, sizeof text, "%.*e", static_cast<int>(rng() % 22) + 14, x);
    std::string s(text);
    size_t e = s.find('e');
    for (size_t i = e - 1, n = rng() % 6; n > 0 && s[i] != '.'; i--, n--)
        s[i] = static_cast<char>('0' + rng() % 10);
    if (rng() % 4 == 0)
        s.insert(e, "5000000000000000000000001");
    return s;
}

TEST(FpcFastPaths, StrtodFastPathsEqualReference) {
    Fpc fpc;
    std::mt19937_64 rng(4242);
    for (int i = 0; i < 60006; i++) {
        static const char* const kEdges[] = {"1e-400", "1e400", "0.5", "123", "4.9e-324",
                                             "2.4703282292062328e-324"};
        std::string text = i < 6 ? kEdges[i] : near_boundary_text(rng);
        char *fastEnd, *refEnd;
        int fastStatus, refStatus;
        double fast = kt_strtod(&fpc.ctx, text.c_str(), &fastEnd, &fastStatus);
        double ref = kt::internal::strtod_reference(&fpc.ctx, text.c_str(), &refEnd, &refStatus);
        ASSERT_EQ(numtest::bits_of(fast), numtest::bits_of(ref)) << text;
        ASSERT_EQ(numtest::bits_of(ref), numtest::bits_of(strtod(text.c_str(), nullptr))) << text;
        ASSERT_EQ(fastEnd, refEnd) << text;
        ASSERT_EQ(fastStatus, refStatus) << text;
    }
}

}  // namespace
