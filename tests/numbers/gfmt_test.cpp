// kt_g_fmt: its layout rules on known answers, the bounded-buffer rule,
// and the round trip through kt_strtod and glibc strtod.
#include <math.h>
#include <stdlib.h>

#include <random>
#include <string>

#include <gtest/gtest.h>

#include "numbers/numbers_support.h"

using numtest::bits_of;
using numtest::Fpc;

namespace {

std::string g_fmt(kt_fpc_context* ctx, double x) {
    char buf[40];
    kt_g_fmt(ctx, x, buf, sizeof buf);
    return buf;
}

TEST(GFmt, LayoutKnownAnswers) {
    Fpc fpc;
    struct Case {
        double x;
        const char* text;
    } cases[] = {
        {0.0, "0.0"},           {-0.0, "-0.0"},           {1.0, "1.0"},
        {1.5, "1.5"},           {-1.5, "-1.5"},           {123456.0, "123456.0"},
        {1234567.0, "1234567.0"}, {100000.0, "100000.0"}, {1e7, "1e+07"},
        {1e6, "1e+06"},         {1.5e7, "1.5e+07"},       {1.25e7, "12500000.0"},
        {1.25e12, "1.25e+12"},  {0.001, ".001"},          {0.0001, ".0001"},
        {0.00012, ".00012"},    {0.00001, "1e-05"},       {1.5e-7, "1.5e-07"},
        {1e100, "1e+100"},      {-1e-100, "-1e-100"},     {0.1, ".1"},
        {123.456, "123.456"},   {0.30000000000000004, ".30000000000000004"},
        {5e-324, "5e-324"},     {1.7976931348623157e308, "1.7976931348623157e+308"},
        {HUGE_VAL, "Inf"},      {-HUGE_VAL, "-Inf"},      {NAN, "NaN"},
        {-NAN, "NaN"},          {2.5e-3, ".0025"},        {12345678901234567.0, "12345678901234568.0"},
    };
    for (const Case& c : cases)
        EXPECT_EQ(g_fmt(&fpc.ctx, c.x), c.text) << std::hexfloat << c.x;
}

// Characters are stored only while room remains; the NUL only after a
// text that leaves room for it.
TEST(GFmt, BoundedBufferLeavesExactFitUnterminated) {
    Fpc fpc;
    char buf[8];
    memset(buf, '#', sizeof buf);
    EXPECT_EQ(kt_g_fmt(&fpc.ctx, 1.5, buf, 3), buf);
    EXPECT_EQ(std::string(buf, 4), "1.5#");
    memset(buf, '#', sizeof buf);
    kt_g_fmt(&fpc.ctx, 1.5, buf, 4);
    EXPECT_STREQ(buf, "1.5");
    memset(buf, '#', sizeof buf);
    kt_g_fmt(&fpc.ctx, -123.25, buf, 5);
    EXPECT_EQ(std::string(buf, 6), "-123.#");
    memset(buf, '#', sizeof buf);
    kt_g_fmt(&fpc.ctx, 2.0, buf, 0);
    EXPECT_EQ(buf[0], '#');
    EXPECT_EQ(kt_g_fmt(&fpc.ctx, 2.0, nullptr, 8), nullptr);
}

// Every finite double reads back exactly, through our parser and glibc's;
// and no shorter text of the same layout would: the digits are mode 0's.
TEST(GFmt, RoundTripsThroughStrtod) {
    Fpc fpc;
    std::mt19937_64 rng(314);
    for (int i = 0; i < 50000; i++) {
        double x = numtest::interesting_double(rng);
        if (rng() % 2)
            x = -x;
        char buf[32];
        kt_g_fmt(&fpc.ctx, x, buf, sizeof buf);
        ASSERT_LT(strlen(buf), 26u) << buf;
        char* end = nullptr;
        double back = kt_strtod(&fpc.ctx, buf, &end, nullptr);
        ASSERT_EQ(bits_of(back), bits_of(x)) << buf;
        ASSERT_EQ(*end, '\0') << buf;
        ASSERT_EQ(bits_of(strtod(buf, nullptr)), bits_of(x)) << buf;
    }
}

}  // namespace
