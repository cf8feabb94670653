// kt_strtod bit for bit against glibc strtod on random decimal and
// hexadecimal texts, and against exact expectations built from midpoints
// between neighbouring doubles (printed exactly by glibc in long double).
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

std::string random_digits(std::mt19937_64& rng, int n, int base) {
    std::string s;
    for (int i = 0; i < n; i++)
        s += "0123456789abcdef"[rng() % base];
    return s;
}

// A random decimal text: optional space and sign, leading zeros, 1 to 40
// (sometimes up to 900) digits around an optional point, an exponent that
// lands anywhere from deep underflow to overflow, and sometimes junk.
std::string random_decimal(std::mt19937_64& rng) {
    int n = (rng() % 10 == 0) ? static_cast<int>(rng() % 900) + 20 : static_cast<int>(rng() % 40) + 1;
    std::string digits = std::string(rng() % 4 == 0 ? rng() % 5 : 0, '0') + random_digits(rng, n, 10);
    if (rng() % 3 == 0)
        digits.insert(rng() % (digits.size() + 1), ".");
    if (rng() % 5 != 0) {
        int e = static_cast<int>(rng() % 720) - 360 - (n > 40 ? n / 2 : 0);
        digits += ((rng() % 2) ? "e" : "E") + std::string(e >= 0 && rng() % 2 ? "+" : "") + std::to_string(e);
    }
    return digits;
}

// A random hexadecimal text: 53 significant bits and a rounding digit that
// is often exactly a half (ties to even), or a half and a hair, then an
// exponent from below the subnormals to overflow.
std::string random_hex(std::mt19937_64& rng) {
    static const char* const kTails[] = {"", "8", "7", "9", "8000000000000001", "80", "ff"};
    std::string s = (rng() % 2 ? "0x" : "0X") + std::string(rng() % 3, '0');
    s += random_digits(rng, static_cast<int>(rng() % 3), 16) + ".";
    s += random_digits(rng, static_cast<int>(rng() % 15), 16) + kTails[rng() % 7];
    if (rng() % 6 != 0)
        s += (rng() % 2 ? "p" : "P") + std::to_string(static_cast<int>(rng() % 2200) - 1140);
    return s;
}

// Fault: hexadecimal text was read as "0" followed by junk. Both kinds of
// text, with space, sign and junk around them, against glibc.
TEST(Strtod, MatchesGlibcOnRandomText) {
    Fpc fpc;
    std::mt19937_64 rng(1122);
    static const char* const kPrefixes[] = {"", "", "-", "+", " \t-"};
    static const char* const kJunk[] = {"", "", "x", "e", "e+", "p", "p-", "..5", " 1", "f"};
    for (int i = 0; i < 80000; i++) {
        std::string text = kPrefixes[rng() % 5] + (i % 2 ? random_hex(rng) : random_decimal(rng)) +
                           kJunk[rng() % 10];
        char *end = nullptr, *glibcEnd = nullptr;
        int status = -1;
        double got = kt_strtod(&fpc.ctx, text.c_str(), &end, &status);
        double want = strtod(text.c_str(), &glibcEnd);
        ASSERT_EQ(bits_of(got), bits_of(want)) << text << ": got " << std::hexfloat << got;
        ASSERT_EQ(end, glibcEnd) << text;
        ASSERT_EQ(status == KT_STRTOD_OVERFLOW, isinf(got) != 0) << text;
    }
}

// The exact decimal of a long double, all digits (glibc prints exactly).
std::string exact_decimal(long double v) {
    char text[1300];
    snprintf(text, sizeof text, "%.1100Le", v);
    std::string s(text);
    size_t e = s.find('e');
    std::string mantissa = s.substr(0, e);
    while (mantissa.back() == '0')
        mantissa.pop_back();
    // A bare "5." stays: digits appended to the text land after the point.
    return mantissa + s.substr(e);
}

// Exactly halfway between two neighbours, the even one wins; a digit more
// or less anywhere decides for the nearer one. The midpoints have up to
// ~770 significant digits, so this also drives the big-integer path.
TEST(Strtod, HalfwayCasesRoundToEven) {
    Fpc fpc;
    std::mt19937_64 rng(99);
    for (int i = 0; i < 3000; i++) {
        double lo = numtest::interesting_double(rng);
        if (lo == DBL_MAX)
            continue;
        double hi = from_bits(bits_of(lo) + 1);
        std::string text = exact_decimal((static_cast<long double>(lo) + hi) / 2);
        double even = (bits_of(lo) & 1) == 0 ? lo : hi;
        ASSERT_EQ(kt_strtod(&fpc.ctx, text.c_str(), nullptr, nullptr), even) << text;
        // Just above: a 1 far beyond the last digit. Just below: the last
        // digit lowered by one, then a row of nines.
        size_t e = text.find('e');
        std::string above = text.substr(0, e) + "0000000000000000000001" + text.substr(e);
        ASSERT_EQ(kt_strtod(&fpc.ctx, above.c_str(), nullptr, nullptr), hi) << above;
        std::string below = text.substr(0, e);
        below.back() = static_cast<char>(below.back() - 1);
        below += "99999999999999999999" + text.substr(e);
        ASSERT_EQ(kt_strtod(&fpc.ctx, below.c_str(), nullptr, nullptr), lo) << below;
    }
}

TEST(Strtod, RangeErrorsAndStatus) {
    Fpc fpc;
    // At the midpoint between DBL_MAX and 2^1024 the result overflows (ties
    // to even); just below it stays finite. Half the smallest subnormal ties
    // to zero; a hair more does not.
    std::string top = exact_decimal((static_cast<long double>(DBL_MAX) + ldexpl(1.0L, 1024)) / 2);
    std::string bottom = exact_decimal(ldexpl(1.0L, -1075));
    size_t e = top.find('e');
    std::string belowTop = top.substr(0, e - 1) + static_cast<char>(top[e - 1] - 1) + top.substr(e);
    std::string nudged = bottom.substr(0, bottom.find('e')) + std::string(3000, '0') + "1" +
                         bottom.substr(bottom.find('e'));
    struct Case {
        std::string text;
        double value;
        int status;
    } cases[] = {
        {"1e309", HUGE_VAL, KT_STRTOD_OVERFLOW},
        {"-1e400000000000", -HUGE_VAL, KT_STRTOD_OVERFLOW},
        {"1.7976931348623157e308", DBL_MAX, KT_STRTOD_OK},
        {"2.4703282292062328e-324", 4.9406564584124654e-324, KT_STRTOD_OK},
        {"2.2250738585072011e-308", 2.2250738585072009e-308, KT_STRTOD_OK},
        {"0e999999", 0.0, KT_STRTOD_OK},
        {top, HUGE_VAL, KT_STRTOD_OVERFLOW},
        {belowTop, DBL_MAX, KT_STRTOD_OK},
        {bottom, 0.0, KT_STRTOD_UNDERFLOW},
        {nudged, 4.9406564584124654e-324, KT_STRTOD_OK},  // a nonzero digit 3000 places on
        {"1." + std::string(5000, '0') + "1", 1.0, KT_STRTOD_OK},
        {"0." + std::string(4000, '0') + "17e4010", 1.7e9, KT_STRTOD_OK},
        {"9007199254740993." + std::string(900, '0') + "1", 9007199254740994.0, KT_STRTOD_OK},
        {"9007199254740993", 9007199254740992.0, KT_STRTOD_OK},
        // Hexadecimal text rounds the same way, on the same conventions.
        {"0x1p1024", HUGE_VAL, KT_STRTOD_OVERFLOW},
        {"0x1.fffffffffffff8p1023", HUGE_VAL, KT_STRTOD_OVERFLOW},
        {"0x1.fffffffffffff7ffffp1023", DBL_MAX, KT_STRTOD_OK},
        {"0x1p-1074", 4.9406564584124654e-324, KT_STRTOD_OK},
        {"0x1p-1075", 0.0, KT_STRTOD_UNDERFLOW},
        {"-0x1p-99999999999", -0.0, KT_STRTOD_UNDERFLOW},
        {"0x1.000000000000000000001p-1075", 4.9406564584124654e-324, KT_STRTOD_OK},
        {"0x1.8p-1074", 2 * 4.9406564584124654e-324, KT_STRTOD_OK},
        {"0x0.00000000000000000000000000000000000000000000000000000000000000001p+260", 1.0, KT_STRTOD_OK},
        {"0x0p99999", 0.0, KT_STRTOD_OK},
    };
    for (const Case& c : cases) {
        int status = -1;
        errno = 0;
        double x = kt_strtod(&fpc.ctx, c.text.c_str(), nullptr, &status);
        EXPECT_EQ(bits_of(x), bits_of(c.value)) << c.text;
        EXPECT_EQ(status, c.status) << c.text;
        EXPECT_EQ(errno, 0) << c.text;
    }
}

// Where parsing stops, and what non-numbers give.
TEST(Strtod, EndPointerAndSpecialTexts) {
    Fpc fpc;
    struct Case {
        const char* text;
        uint64_t bits;
        int used;  // characters consumed
    } cases[] = {
        {"", 0, 0},             {"   ", 0, 0},                {"-", 0, 0},
        {".", 0, 0},            {"e5", 0, 0},                 {"-.e1", 0, 0},
        {"1e+", 0x3ff0000000000000, 1},                       {"  -0", 0x8000000000000000, 4},
        {"5.", 0x4014000000000000, 2},                        {"1 2", 0x3ff0000000000000, 1},
        {"-Infinity", 0xfff0000000000000, 9},                 {"infinit", 0x7ff0000000000000, 3},
        {"  +INF!", 0x7ff0000000000000, 6},                   {"in", 0, 0},
        // Fault: hexadecimal text and NaN payloads were not read.
        {"0x1p3", 0x4020000000000000, 5},                     {"0x1.8p-2", 0x3fd8000000000000, 8},
        {"-0X.8P+1x", 0xbff0000000000000, 8},                 {"0x10", 0x4030000000000000, 4},
        {"0x1p", 0x3ff0000000000000, 3},                      {"0x1P-", 0x3ff0000000000000, 3},
        {"0x", 0, 1},           {"0x.p1", 0, 1},              {"0xg", 0, 1},
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
