// kt_strtod bit for bit against glibc strtod and std::from_chars on random
// decimal texts, and against exact expectations built from midpoints
// between neighbouring doubles (printed exactly by glibc in long double).
#include <errno.h>
#include <float.h>
#include <math.h>
#include <stdio.h>
#include <stdlib.h>

#include <charconv>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "numbers/numbers_support.h"

using numtest::bits_of;
using numtest::Fpc;
using numtest::from_bits;

namespace {

std::string random_digits(std::mt19937_64& rng, int n) {
    std::string s;
    for (int i = 0; i < n; i++)
        s += static_cast<char>('0' + rng() % 10);
    return s;
}

// A random decimal text: optional space and sign, leading zeros, 1 to 40
// (sometimes up to 900) digits around an optional point, an exponent that
// lands anywhere from deep underflow to overflow, and sometimes junk.
std::string random_decimal(std::mt19937_64& rng) {
    std::string s;
    if (rng() % 8 == 0)
        s += " \t";
    switch (rng() % 4) {
    case 0: s += '-'; break;
    case 1: s += '+'; break;
    default: break;
    }
    if (rng() % 4 == 0)
        s += std::string(rng() % 5, '0');
    int n = (rng() % 10 == 0) ? static_cast<int>(rng() % 900) + 20 : static_cast<int>(rng() % 40) + 1;
    std::string digits = random_digits(rng, n);
    if (rng() % 3 == 0)
        digits.insert(rng() % (digits.size() + 1), ".");
    s += digits;
    if (rng() % 5 != 0) {
        s += (rng() % 2) ? 'e' : 'E';
        int e = static_cast<int>(rng() % 720) - 360 - (n > 40 ? n / 2 : 0);
        if (e >= 0 && rng() % 2)
            s += '+';
        s += std::to_string(e);
    }
    static const char* const kJunk[] = {"", "", "", "x", "e", "e+", "e-x", ".", "..5", " 1", "E+", "f"};
    s += kJunk[rng() % (sizeof kJunk / sizeof kJunk[0])];
    return s;
}

TEST(Strtod, MatchesGlibcAndFromCharsOnRandomText) {
    Fpc fpc;
    std::mt19937_64 rng(1122);
    int failures = 0;
    for (int i = 0; i < 60000 && failures < 10; i++) {
        std::string text = random_decimal(rng);
        char* end = nullptr;
        double got = kt_strtod(&fpc.ctx, text.c_str(), &end, nullptr);
        char* glibcEnd = nullptr;
        double want = strtod(text.c_str(), &glibcEnd);
        if (bits_of(got) != bits_of(want) || end != glibcEnd) {
            failures++;
            ADD_FAILURE() << "'" << text << "': got " << std::hexfloat << got << " end "
                          << (end - text.c_str()) << ", glibc " << want << " end "
                          << (glibcEnd - text.c_str());
        }
        // from_chars takes neither space nor '+', and reports range errors
        // without a value.
        const char* first = text.c_str();
        if (*first == ' ' || *first == '+')
            continue;
        double peer = 0;
        auto r = std::from_chars(first, first + text.size(), peer);
        if (r.ec != std::errc())
            continue;
        EXPECT_EQ(bits_of(got), bits_of(peer)) << "'" << text << "' vs from_chars";
        EXPECT_EQ(end, r.ptr) << "'" << text << "' end vs from_chars";
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
        if (lo == 1.7976931348623157e308)
            continue;
        double hi = from_bits(bits_of(lo) + 1);
        long double mid = (static_cast<long double>(lo) + hi) / 2;
        std::string text = exact_decimal(mid);
        double even = (bits_of(lo) & 1) == 0 ? lo : hi;
        ASSERT_EQ(kt_strtod(&fpc.ctx, text.c_str(), nullptr, nullptr), even) << text;

        // Just above the midpoint: a 1 appended far beyond the last digit.
        size_t e = text.find('e');
        std::string above = text.substr(0, e) + "0000000000000000000001" + text.substr(e);
        ASSERT_EQ(kt_strtod(&fpc.ctx, above.c_str(), nullptr, nullptr), hi) << above;
        // Just below: the last digit lowered by one, then a row of nines.
        std::string below = text.substr(0, e);
        below.back() = static_cast<char>(below.back() - 1);
        below += "99999999999999999999" + text.substr(e);
        ASSERT_EQ(kt_strtod(&fpc.ctx, below.c_str(), nullptr, nullptr), lo) << below;
    }
}

TEST(Strtod, RangeErrorsAndStatus) {
    Fpc fpc;
    struct Case {
        const char* text;
        double value;
        int status;
    } cases[] = {
        {"1e309", HUGE_VAL, KT_STRTOD_OVERFLOW},
        {"-1e400000000000", -HUGE_VAL, KT_STRTOD_OVERFLOW},
        {"1.7976931348623157e308", 1.7976931348623157e308, KT_STRTOD_OK},
        {"2.4703282292062328e-324", 4.9406564584124654e-324, KT_STRTOD_OK},
        {"4.9406564584124654e-324", 4.9406564584124654e-324, KT_STRTOD_OK},
        {"2.2250738585072011e-308", 2.2250738585072009e-308, KT_STRTOD_OK},
        {"0e999999", 0.0, KT_STRTOD_OK},
        {"0.000", 0.0, KT_STRTOD_OK},
    };
    // At the midpoint between DBL_MAX and 2^1024 the result overflows (ties
    // to even); just below it stays finite. Half the smallest subnormal ties
    // to zero; a hair more does not.
    std::string top = exact_decimal((static_cast<long double>(DBL_MAX) + ldexpl(1.0L, 1024)) / 2);
    std::string bottom = exact_decimal(ldexpl(1.0L, -1075));
    size_t e = top.find('e');
    std::string belowTop = top.substr(0, e - 1) + static_cast<char>(top[e - 1] - 1) + top.substr(e);
    Case computed[] = {
        {top.c_str(), HUGE_VAL, KT_STRTOD_OVERFLOW},
        {belowTop.c_str(), DBL_MAX, KT_STRTOD_OK},
        {bottom.c_str(), 0.0, KT_STRTOD_UNDERFLOW},
    };
    for (const Case& c : computed) {
        int status = -1;
        double x = kt_strtod(&fpc.ctx, c.text, nullptr, &status);
        EXPECT_EQ(bits_of(x), bits_of(c.value)) << c.text;
        EXPECT_EQ(status, c.status) << c.text;
    }
    for (const Case& c : cases) {
        int status = -1;
        errno = 0;
        double x = kt_strtod(&fpc.ctx, c.text, nullptr, &status);
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
        double value;
        int used;  // characters consumed
    } cases[] = {
        {"", 0, 0},           {"   ", 0, 0},           {"+", 0, 0},
        {"-", 0, 0},          {".", 0, 0},            {"e5", 0, 0},
        {"-.e1", 0, 0},       {"1e", 1, 1},           {"1e+", 1, 1},
        {"1.5x", 1.5, 3},     {"  -0", -0.0, 4},      {"5.", 5, 2},
        {".5", 0.5, 2},       {"0x10", 0, 1},         {"12e-1junk", 1.2, 5},
        {"inf", HUGE_VAL, 3}, {"-Infinity", -HUGE_VAL, 9}, {"infinit", HUGE_VAL, 3},
        {"  +INF!", HUGE_VAL, 6}, {"in", 0, 0},       {"1 2", 1, 1},
    };
    for (const Case& c : cases) {
        char* end = nullptr;
        double x = kt_strtod(&fpc.ctx, c.text, &end, nullptr);
        EXPECT_EQ(bits_of(x), bits_of(c.value)) << "'" << c.text << "'";
        EXPECT_EQ(end - c.text, c.used) << "'" << c.text << "'";
    }
    char nothing = 0;
    char* nullEnd = &nothing;
    int status = -1;
    EXPECT_EQ(kt_strtod(&fpc.ctx, nullptr, &nullEnd, &status), 0.0);
    EXPECT_EQ(nullEnd, nullptr);
    EXPECT_EQ(status, KT_STRTOD_OK);
    struct NanCase {
        const char* text;
        int used;
        int sign;
    } nans[] = {{"nan", 3, 0}, {"-NaN", 4, 1}, {"nan(123)", 8, 0}, {"nan(abc_1)x", 10, 0},
                {"nan(", 3, 0}, {"nan(1 2)", 3, 0}};
    for (const NanCase& c : nans) {
        char* end = nullptr;
        double x = kt_strtod(&fpc.ctx, c.text, &end, nullptr);
        EXPECT_TRUE(isnan(x)) << c.text;
        EXPECT_EQ(signbit(x) != 0, c.sign != 0) << c.text;
        EXPECT_EQ(end - c.text, c.used) << c.text;
        // glibc agrees on the extent.
        char* glibcEnd = nullptr;
        strtod(c.text, &glibcEnd);
        EXPECT_EQ(end, glibcEnd) << c.text;
    }
}

// Very long texts: only the first ~800 digits are kept, the rest decide
// as "something nonzero follows".
TEST(Strtod, LongMantissasKeepOnlyWhatMatters) {
    Fpc fpc;
    std::string ones = "1." + std::string(5000, '0') + "1";
    EXPECT_EQ(kt_strtod(&fpc.ctx, ones.c_str(), nullptr, nullptr), 1.0);
    // 2^-1075 followed by a faraway nonzero digit rounds up to the minimum.
    std::string halfMin = exact_decimal(ldexpl(1.0L, -1075));
    size_t e = halfMin.find('e');
    std::string nudged = halfMin.substr(0, e) + std::string(3000, '0') + "1" + halfMin.substr(e);
    EXPECT_EQ(kt_strtod(&fpc.ctx, nudged.c_str(), nullptr, nullptr), 4.9406564584124654e-324);
    EXPECT_EQ(kt_strtod(&fpc.ctx, halfMin.c_str(), nullptr, nullptr), 0.0);
    // Leading zeros do not count as digits.
    std::string zeros = "0." + std::string(4000, '0') + "17e4010";
    EXPECT_EQ(kt_strtod(&fpc.ctx, zeros.c_str(), nullptr, nullptr), 1.7e9);
    // Huge integer part with a fraction: ties broken by the fraction.
    std::string big = "9007199254740993" + std::string(1, '.') + std::string(900, '0') + "1";
    EXPECT_EQ(kt_strtod(&fpc.ctx, big.c_str(), nullptr, nullptr), 9007199254740994.0);
    EXPECT_EQ(kt_strtod(&fpc.ctx, "9007199254740993", nullptr, nullptr), 9007199254740992.0);
}

}  // namespace
