// The fast paths against their big-integer references (and both against a
// trusted peer). kt_dtoa mode 0 vs std::to_chars, over the classes where
// scaling by a rounded power of ten is most fragile: subnormals with tiny
// significands, first doubles of a binade, doubles around 2^53, random bit
// patterns. kt_strtod vs glibc strtod, on texts whose value sits next to
// rounding boundaries and across the subnormal and overflow edges.
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

struct Digits {
    std::string text;
    int decpt;
    bool operator==(const Digits& o) const { return text == o.text && decpt == o.decpt; }
};

Digits reference(kt_fpc_context* ctx, double x) {
    char buf[40];
    int decpt = 0, sign = 0;
    char* end = nullptr;
    kt::internal::dtoa_reference(ctx, x, buf, sizeof buf, 0, 0, &decpt, &sign, &end);
    return {std::string(buf, end), decpt};
}

Digits fast(kt_fpc_context* ctx, double x) {
    char buf[40];
    int decpt = 0, sign = 0;
    char* end = nullptr;
    kt_dtoa(ctx, x, buf, sizeof buf, 0, 0, &decpt, &sign, &end);
    return {std::string(buf, end), decpt};
}

void expect_agree(kt_fpc_context* ctx, double x) {
    Digits r = reference(ctx, x);
    Digits f = fast(ctx, x);
    numtest::DecimalForm peer = numtest::shortest_reference(x);
    ASSERT_EQ(f.text, r.text) << std::hexfloat << x;
    ASSERT_EQ(f.decpt, r.decpt) << std::hexfloat << x;
    ASSERT_EQ(r.text, peer.digits) << std::hexfloat << x;
    ASSERT_EQ(r.decpt, peer.decpt) << std::hexfloat << x;
}

TEST(FpcFastPaths, FastPathEqualsReferenceOnEdgeClasses) {
    Fpc fpc;
    for (uint64_t m = 1; m < 3000; m++)
        expect_agree(&fpc.ctx, numtest::from_bits(m));  // smallest subnormals
    for (uint64_t m = (uint64_t(1) << 52) - 1000; m < (uint64_t(1) << 52) + 1000; m++)
        expect_agree(&fpc.ctx, numtest::from_bits(m));  // around the smallest normal
    for (int e = -1074; e <= 1023; e++) {
        expect_agree(&fpc.ctx, ldexp(1.0, e));
        expect_agree(&fpc.ctx, nextafter(ldexp(1.0, e), 0));
    }
    // Doubles across 2^53, where the integer shortcut ends.
    uint64_t twoTo53 = numtest::bits_of(9007199254740992.0);
    for (uint64_t u = twoTo53 - 2000; u < twoTo53 + 2000; u++)
        expect_agree(&fpc.ctx, numtest::from_bits(u));
    expect_agree(&fpc.ctx, 1.7976931348623157e308);
}

TEST(FpcFastPaths, FastPathEqualsReferenceOnRandomDoubles) {
    Fpc fpc;
    std::mt19937_64 rng(6060);
    for (int i = 0; i < 100000; i++)
        expect_agree(&fpc.ctx, numtest::interesting_double(rng));
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
    for (int i = 0; i < 60000; i++) {
        std::string text = near_boundary_text(rng);
        char *fastEnd, *refEnd;
        int fastStatus, refStatus;
        double fast = kt_strtod(&fpc.ctx, text.c_str(), &fastEnd, &fastStatus);
        double ref = kt::internal::strtod_reference(&fpc.ctx, text.c_str(), &refEnd, &refStatus);
        ASSERT_EQ(numtest::bits_of(fast), numtest::bits_of(ref)) << text;
        ASSERT_EQ(numtest::bits_of(ref), numtest::bits_of(strtod(text.c_str(), nullptr))) << text;
        ASSERT_EQ(fastEnd, refEnd) << text;
        ASSERT_EQ(fastStatus, refStatus) << text;
    }
    for (const char* text : {"1e-400", "1e400", "0.5", "123", "4.9e-324", "2.4703282292062328e-324"}) {
        int fastStatus, refStatus;
        double fast = kt_strtod(&fpc.ctx, text, nullptr, &fastStatus);
        double ref = kt::internal::strtod_reference(&fpc.ctx, text, nullptr, &refStatus);
        EXPECT_EQ(numtest::bits_of(fast), numtest::bits_of(ref)) << text;
        EXPECT_EQ(fastStatus, refStatus) << text;
    }
}

}  // namespace
