// kt_strtod against exact expectations built from midpoints between
// neighbouring doubles (printed exactly by glibc in long double), and on
// ranges, ends and special texts against known answers and glibc strtod
// (fuzz/strtod_fuzz.cpp compares any text with glibc).
#include <errno.h>
#include <float.h>
#include <math.h>
#include <stdio.h>
#include <stdlib.h>

#include <random>
#include <string>

#include <gtest/gtest.h>

#include "numbers/numbers_support.h"

using numtest::bits_of;
using numtest::Fpc;
using numtest::from_bits;

namespace {

// The exact decimal text of a long double (glibc prints exactly), or just
// above it (a 1 after `zeros` more zeros), or just below it (the last digit
// lowered, then nines).
std::string exact_decimal(long double v, int direction = 0, int zeros = 20) {
    char text[1300];
    snprintf(text, sizeof text, "%.1100Le", v);
    std::string s(text), exponent = s.substr(s.find('e'));
    s.erase(s.find('e'));
    while (s.back() == '0')
        s.pop_back();  // a bare "5." stays: digits appended land after the point
    if (direction > 0)
        s += std::string(zeros, '0') + "1";
    if (direction < 0) {
        s.back() = static_cast<char>(s.back() - 1);
        s += "99999999999999999999";
    }
    return s + exponent;
}

// Exactly halfway between two neighbours, the even one wins; a digit more
// or less anywhere decides for the nearer one. The midpoints have up to
// ~770 significant digits, so this also drives the big-integer path.
TEST(Strtod, HalfwayCasesRoundToEven) {
    Fpc fpc;
    std::mt19937_64 rng(99);
    for (int i = 0; i < 3000; i++) {
        double lo = numtest::interesting_double(rng);
        double hi = from_bits(bits_of(lo) + 1);
        long double mid = (static_cast<long double>(lo) + hi) / 2;
        for (int direction : {-1, 0, 1}) {
            std::string text = exact_decimal(mid, direction, i % 10 == 0 ? 3000 : 20);
            double want = direction < 0 ? lo : direction > 0 ? hi : (bits_of(lo) & 1) == 0 ? lo : hi;
            ASSERT_EQ(bits_of(kt_strtod(&fpc.ctx, text.c_str(), nullptr, nullptr)), bits_of(want)) << text;
        }
    }
}

TEST(Strtod, RangeErrorsAndStatus) {
    Fpc fpc;
    // At the midpoint between DBL_MAX and 2^1024 the result overflows (ties
    // to even); just below it stays finite. Half the smallest subnormal ties
    // to zero; a nonzero digit 3000 places on does not.
    long double top = (static_cast<long double>(DBL_MAX) + ldexpl(1.0L, 1024)) / 2;
    struct Case { std::string text; double value; int status; } cases[] = {
        {"1e309", HUGE_VAL, KT_STRTOD_OVERFLOW},     {"-1e400000000000", -HUGE_VAL, KT_STRTOD_OVERFLOW},
        {"1.7976931348623157e308", DBL_MAX, KT_STRTOD_OK},   {"0e999999", 0.0, KT_STRTOD_OK},
        {"2.4703282292062328e-324", 4.9406564584124654e-324, KT_STRTOD_OK},
        {"2.2250738585072011e-308", 2.2250738585072009e-308, KT_STRTOD_OK},
        {exact_decimal(top), HUGE_VAL, KT_STRTOD_OVERFLOW}, {exact_decimal(top, -1), DBL_MAX, KT_STRTOD_OK},
        {exact_decimal(ldexpl(1.0L, -1075)), 0.0, KT_STRTOD_UNDERFLOW},
        {exact_decimal(ldexpl(1.0L, -1075), 1, 3000), 4.9406564584124654e-324, KT_STRTOD_OK},
        {"1." + std::string(5000, '0') + "1", 1.0, KT_STRTOD_OK},
        {"0." + std::string(4000, '0') + "17e4010", 1.7e9, KT_STRTOD_OK},
        {"9007199254740993." + std::string(900, '0') + "1", 9007199254740994.0, KT_STRTOD_OK},
        {"9007199254740993", 9007199254740992.0, KT_STRTOD_OK},
        // Fault: hexadecimal text was read as "0" followed by junk. It rounds
        // like decimal text (ties to even, however long), on the same conventions.
        {"0x1.00000000000008p0", 1.0, KT_STRTOD_OK}, {"0x1.00000000000018p0", 1.0000000000000004, KT_STRTOD_OK},
        {"0x1.000000000000080000000000000000001p0", 1.0000000000000002, KT_STRTOD_OK},
        {"0x8.0000000000003fffffffffffffffffffp-3", 1.0, KT_STRTOD_OK},
        {"0x1p1024", HUGE_VAL, KT_STRTOD_OVERFLOW}, {"0x1.fffffffffffff8p1023", HUGE_VAL, KT_STRTOD_OVERFLOW},
        {"0x1.fffffffffffff7ffffp1023", DBL_MAX, KT_STRTOD_OK},
        {"0x1p-1074", 4.9406564584124654e-324, KT_STRTOD_OK}, {"0x1p-1075", 0.0, KT_STRTOD_UNDERFLOW},
        {"-0x1p-99999999999", -0.0, KT_STRTOD_UNDERFLOW},     {"0x0p99999", 0.0, KT_STRTOD_OK},
        {"0x1.000000000000000000001p-1075", 4.9406564584124654e-324, KT_STRTOD_OK},
        {"0x1.8p-1074", 2 * 4.9406564584124654e-324, KT_STRTOD_OK},
        {"0x0." + std::string(64, '0') + "1p+260", 1.0, KT_STRTOD_OK},
    };
    for (const Case& c : cases) {
        int status = -1;
        errno = 0;
        double x = kt_strtod(&fpc.ctx, c.text.c_str(), nullptr, &status);
        EXPECT_EQ(bits_of(x), bits_of(c.value)) << c.text;
        EXPECT_EQ(status, c.status) << c.text;
        EXPECT_EQ(errno, 0) << c.text;
        EXPECT_EQ(bits_of(x), bits_of(strtod(c.text.c_str(), nullptr))) << c.text << " (glibc)";
    }
}

// Where parsing stops, and NaN payloads. Any other text's value and end
// pointer are compared with glibc in fuzz/strtod_fuzz.cpp, whose seeds start
// it on decimal, hexadecimal, infinite and NaN texts.
TEST(Strtod, EndPointerAndSpecialTexts) {
    Fpc fpc;
    struct Case { const char* text; uint64_t bits; int used; } cases[] = {  // used: characters consumed
        {"", 0, 0},             {"-.e1", 0, 0},               {"1e+", 0x3ff0000000000000, 1},
        {"  -0", 0x8000000000000000, 4},                      {"5.", 0x4014000000000000, 2},
        {"infinit", 0x7ff0000000000000, 3},                   {"in", 0, 0},
        // Fault: hexadecimal text and NaN payloads were not read.
        {"-0X.8P+1x", 0xbff0000000000000, 8},                 {"0x1P-", 0x3ff0000000000000, 3},
        {"0x", 0, 1},           {"0x.p1", 0, 1},
        {"nan", 0x7ff8000000000000, 3},                       {"-NaN", 0xfff8000000000000, 4},
        {"nan(123)", 0x7ff0000000000123, 8},                  {"-nan(0x7FF)", 0xfff00000000007ff, 11},
        {"nan(8000000000001)", 0x7ff8000000000001, 18},       {"nan(0)", 0x7ff8000000000000, 6},
        {"nan(fedcba9876543210)", 0x7ffcba9876543210, 21},    {"nan(abc_1)x", 0x7ff8000000000000, 10},
        {"nan(", 0x7ff8000000000000, 3},                      {"nan(1 2)", 0x7ff8000000000000, 3},
    };
    for (const Case& c : cases) {
        char *end = nullptr, *glibcEnd = nullptr;
        double x = kt_strtod(&fpc.ctx, c.text, &end, nullptr);
        EXPECT_EQ(bits_of(x), c.bits) << "'" << c.text << "'";
        EXPECT_EQ(end - c.text, c.used) << "'" << c.text << "'";
        double peer = strtod(c.text, &glibcEnd);  // same extent; NaN payloads read differently
        EXPECT_EQ(end, glibcEnd) << c.text;
        EXPECT_EQ(isnan(x), isnan(peer)) << c.text;
    }
    char nothing = 0;
    char* nullEnd = &nothing;
    int status = -1;
    EXPECT_EQ(kt_strtod(&fpc.ctx, nullptr, &nullEnd, &status), 0.0);
    EXPECT_EQ(nullEnd, nullptr);
    EXPECT_EQ(status, KT_STRTOD_OK);
}

}  // namespace
