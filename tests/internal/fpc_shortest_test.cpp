// The mode-0 fast path against the big-integer reference (and both against
// std::to_chars), over the classes where scaling by a rounded power of ten
// is most fragile: subnormals with tiny significands, first doubles of a
// binade, integers around 2^53, and random bit patterns.
#include <math.h>

#include <random>
#include <string>

#include <gtest/gtest.h>

#include "internal/fpc_shortest.h"
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

TEST(FpcShortest, FastPathEqualsReferenceOnEdgeClasses) {
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

TEST(FpcShortest, FastPathEqualsReferenceOnRandomDoubles) {
    Fpc fpc;
    std::mt19937_64 rng(6060);
    for (int i = 0; i < 100000; i++)
        expect_agree(&fpc.ctx, numtest::interesting_double(rng));
}

}  // namespace
