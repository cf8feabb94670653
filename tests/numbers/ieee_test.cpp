// IEEE constants and predicates against the C library's classification,
// the format and data-size tables, and ktDblIsInt's errno rules.
#include <errno.h>
#include <float.h>
#include <math.h>

#include <limits>
#include <random>

#include <gtest/gtest.h>

#include "numbers/numbers_support.h"

using numtest::bits_of;
using numtest::from_bits;

namespace {

TEST(Ieee, ConstantsHaveTheirBitPatterns) {
    EXPECT_EQ(ktGetEps(), ldexp(1.0, -52));
    EXPECT_EQ(ktGetSingleEps(), ldexp(1.0, -23));
    EXPECT_EQ(ktGetInf(), std::numeric_limits<double>::infinity());
    EXPECT_EQ(ktGetMinusInf(), -std::numeric_limits<double>::infinity());
    EXPECT_EQ(ktGetPI(), M_PI);
    EXPECT_EQ(ktGetRealMax(), 1.7976931348623157e308);
    EXPECT_EQ(ktGetRealMin(), 2.2250738585072014e-308);
    // The processor's default NaN: sign bit set, quiet.
    EXPECT_EQ(bits_of(ktGetNaN()), 0xfff8000000000000ULL);
    EXPECT_EQ(ktSignBit(ktGetNaN()), 1);
    EXPECT_EQ(bits_of(ktGetNaN()), bits_of(ktGetInf() - ktGetInf()));
}

// Each predicate agrees with the C library's classification on special
// values and on random bit patterns (NaNs of both signs included).
TEST(Ieee, PredicatesMatchTheCLibrary) {
    std::vector<double> values = {0.0, -0.0, 1.0, -1.0, DBL_MIN, -DBL_MIN, 5e-324, -5e-324,
                                  DBL_MAX, -DBL_MAX, HUGE_VAL, -HUGE_VAL, NAN, -NAN,
                                  from_bits(0x7ff0000000000001ULL), from_bits(0xfff4000000000000ULL)};
    std::mt19937_64 rng(3);
    for (int i = 0; i < 20000; i++)
        values.push_back(from_bits(rng()));
    for (double x : values) {
        SCOPED_TRACE(testing::Message() << std::hex << bits_of(x));
        EXPECT_EQ(ktIsNaN(x), isnan(x) != 0);
        EXPECT_EQ(ktIsInf(x), isinf(x) != 0);
        EXPECT_EQ(ktIsPlusInf(x), isinf(x) && x > 0);
        EXPECT_EQ(ktIsMinusInf(x), isinf(x) && x < 0);
        EXPECT_EQ(ktFinite(x), isfinite(x) != 0);
        EXPECT_EQ(ktDoubleScalarIsfinite(x), isfinite(x) != 0);
        EXPECT_EQ(ktSignBit(x), signbit(x) ? 1 : 0);
        EXPECT_EQ(ktIsMinusZero(x), x == 0 && signbit(x));
        double y = from_bits(rng());
        EXPECT_EQ(bits_of(ktCopySign(x, y)), bits_of(copysign(x, y)));
    }
}

TEST(Ieee, EqualWithinEpsScalesWithSecondArgumentOnly) {
    EXPECT_TRUE(ktEqualWithinEps(1.0, 1.0));
    EXPECT_TRUE(ktEqualWithinEps(1.0 + DBL_EPSILON, 1.0));
    EXPECT_FALSE(ktEqualWithinEps(1.0 + 4 * DBL_EPSILON, 1.0));
    EXPECT_FALSE(ktEqualWithinEps(1e-20, 0.0));
    EXPECT_TRUE(ktEqualWithinEps(0.0, 0.0));
    EXPECT_TRUE(ktEqualWithinEps(1e300, 1e300 * (1 + DBL_EPSILON)));
    // Asymmetric: the tolerance follows b, so swapping can change the answer.
    double small = 2.0 - 2 * DBL_EPSILON, large = 2.0;
    EXPECT_EQ(fabs(small - large) <= DBL_EPSILON * fabs(large), ktEqualWithinEps(small, large));
    EXPECT_EQ(fabs(large - small) <= DBL_EPSILON * fabs(small), ktEqualWithinEps(large, small));
    EXPECT_NE(ktEqualWithinEps(small, large), ktEqualWithinEps(large, small));
    EXPECT_FALSE(ktEqualWithinEps(NAN, NAN));
}

TEST(Ieee, DblIsIntAndItsErrnoRules) {
    errno = 0;
    EXPECT_TRUE(ktDblIsInt(0.0));
    EXPECT_TRUE(ktDblIsInt(-7.0));
    EXPECT_TRUE(ktDblIsInt(2147483647.0));
    EXPECT_TRUE(ktDblIsInt(-2147483648.0));
    EXPECT_FALSE(ktDblIsInt(0.5));
    EXPECT_FALSE(ktDblIsInt(-0.0));  // deliberately not an integer
    EXPECT_EQ(errno, 0);             // untouched on those paths
    EXPECT_FALSE(ktDblIsInt(3e9));
    EXPECT_EQ(errno, ERANGE);
    errno = 0;
    EXPECT_FALSE(ktDblIsInt(-2147483649.0));
    EXPECT_EQ(errno, ERANGE);
    errno = 0;
    EXPECT_FALSE(ktDblIsInt(HUGE_VAL));
    EXPECT_EQ(errno, ERANGE);
    errno = 0;
    EXPECT_FALSE(ktDblIsInt(NAN));
    EXPECT_EQ(errno, EDOM);
    // Model: the integers in range, random.
    std::mt19937_64 rng(17);
    errno = 0;
    for (int i = 0; i < 10000; i++) {
        double x = static_cast<double>(static_cast<int64_t>(rng() % 8000000000ULL) - 4000000000LL) /
                   ((rng() % 4) + 1);
        bool inRange = x >= -2147483648.0 && x <= 2147483647.0;
        bool want = inRange && x == floor(x) && !(x == 0 && signbit(x));
        EXPECT_EQ(ktDblIsInt(x), want) << x;
    }
}

TEST(Formats, TablesAndNativeProbe) {
    EXPECT_EQ(ktGetNumFormatTypes(), 6);
    const char* names[] = {"ieee-le", "ieee-be", "obsolete", "obsolete", "obsolete", "unknown_fmt"};
    int endians[] = {0, 1, -1, -1, -1, 0};
    for (int i = 0; i < 6; i++) {
        EXPECT_STREQ(ktGetFormatTypeName(i), names[i]);
        EXPECT_EQ(ktGetFormatEndian(i), endians[i]);
    }
    EXPECT_EQ(ktGetNumDataSizeTypes(), 8);
    const char* sizeNames[] = {"ieee-le", "ieee-be", "obsolete", "obsolete",
                               "obsolete", "ieee-le.l64", "ieee-be.l64", "unknown_fmt"};
    int sizeEndians[] = {0, 1, -1, -1, -1, 0, 1, 0};
    for (int i = 0; i < 8; i++) {
        EXPECT_STREQ(ktGetDataSizeTypeName(i), sizeNames[i]);
        EXPECT_EQ(ktGetDataEndianType(i), sizeEndians[i]);
    }
    EXPECT_STREQ(ktGetDataSizeTypeName(99), "unknown_fmt");
    EXPECT_STREQ(ktGetDataSizeTypeName(-1), "unknown_fmt");
    EXPECT_EQ(ktGetDataEndianType(8), 0);
    // This machine is little-endian IEEE.
    EXPECT_EQ(ktGetFormatType(), 0);
    EXPECT_EQ(ktGetDataSizeType(), 5);
}

TEST(Formats, DataClassSizesAndSigns) {
    //                 class:  1  2  3  4  5  6  7  8  9 10 11 12
    const int plain[13] = {0, 1, 2, 1, 2, 4, 4, 1, 2, 4, 4, 4, 8};
    const int l64[13] = {0, 1, 2, 1, 2, 4, 8, 1, 2, 4, 8, 4, 8};
    const int sign[13] = {-1, -1, 1, 1, 1, 1, 1, 0, 0, 0, 0, 1, 1};
    for (int type = -2; type <= 9; type++) {
        for (int c = -1; c <= 14; c++) {
            int want = 0;
            if (type >= 0 && type < 7 && c >= 1 && c <= 12)
                want = (type == 5 || type == 6) ? l64[c] : plain[c];
            EXPECT_EQ(ktDconvertSize(type, c), want) << "type " << type << " class " << c;
        }
    }
    EXPECT_EQ(ktDconvertSize(7, 1), 0);
    EXPECT_EQ(ktDconvertSize(5, 6), 8);
    EXPECT_EQ(ktDconvertSize(0, 6), 4);
    for (int c = -1; c <= 14; c++)
        EXPECT_EQ(ktDconvertSign(c), (c >= 1 && c <= 12) ? sign[c] : -1) << c;
}

}  // namespace
