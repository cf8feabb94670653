// kt_dtoa against trusted peers: std::to_chars (shortest, and with a
// precision) and glibc's %.*e / %.*f, on random doubles of every class.
#include <math.h>
#include <stdio.h>

#include <charconv>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "numbers/numbers_support.h"

using numtest::DecimalForm;
using numtest::Fpc;

namespace {

struct Result {
    std::string digits;
    int decpt;
    int sign;
    bool ok;
};

Result run_dtoa(kt_fpc_context* ctx, double x, int mode, int ndigits) {
    char buf[1200];
    Result r;
    char* end = nullptr;
    char* s = kt_dtoa(ctx, x, buf, sizeof buf, mode, ndigits, &r.decpt, &r.sign, &end);
    r.ok = s == buf && end != nullptr;
    if (r.ok)
        r.digits.assign(buf, end);
    return r;
}

// Digits of fixed text ("-0012.3400"), leading and trailing zeros dropped;
// an all-zero text gives "" with decimal point -precision, as mode 3 does.
DecimalForm from_fixed(const char* text, int precision) {
    DecimalForm f;
    const char* p = text;
    if (*p == '-')
        p++;
    int integerDigits = 0;
    bool inFraction = false;
    for (; *p != '\0'; p++) {
        if (*p == '.') {
            inFraction = true;
            continue;
        }
        f.digits += *p;
        if (!inFraction)
            integerDigits++;
    }
    f.decpt = integerDigits;
    size_t lead = 0;
    while (lead < f.digits.size() && f.digits[lead] == '0')
        lead++;
    f.digits.erase(0, lead);
    f.decpt -= static_cast<int>(lead);
    while (!f.digits.empty() && f.digits.back() == '0')
        f.digits.pop_back();
    if (f.digits.empty())
        f.decpt = -precision;
    return f;
}

// Mode 0 over `count` doubles; returns the number of mismatches (the first
// few are reported).
long check_shortest(kt_fpc_context* ctx, long count, uint64_t seed) {
    std::mt19937_64 rng(seed);
    long failures = 0;
    for (long i = 0; i < count; i++) {
        double x = numtest::interesting_double(rng);
        Result got = run_dtoa(ctx, x, 0, 0);
        DecimalForm want = numtest::shortest_reference(x);
        if (got.ok && got.digits == want.digits && got.decpt == want.decpt)
            continue;
        if (failures++ < 10)
            ADD_FAILURE() << "mode 0 of " << std::hexfloat << x << ": got " << got.digits
                          << " @" << got.decpt << ", want " << want.digits << " @" << want.decpt;
    }
    return failures;
}

// Mode 0 digits equal those of the shortest std::to_chars (the digits
// that read back, nearest to the value) for ~100k doubles of all classes.
TEST(Dtoa, ShortestMatchesToCharsSample) {
    Fpc fpc;
    EXPECT_EQ(check_shortest(&fpc.ctx, 100000, 20261122), 0);
}

// The long run: at least 10 million doubles. Not part of the default run;
// run it with
//   build/tests/numbers_dtoa_test --gtest_also_run_disabled_tests
//     --gtest_filter=Dtoa.DISABLED_ShortestMatchesToCharsTenMillion
TEST(Dtoa, DISABLED_ShortestMatchesToCharsTenMillion) {
    Fpc fpc;
    EXPECT_EQ(check_shortest(&fpc.ctx, 10000000, std::random_device{}()), 0);
    // Every power of two, and the subnormals next to the extremes.
    long failures = 0;
    for (int e = -1074; e <= 1023; e++) {
        double x = ldexp(1.0, e);
        Result got = run_dtoa(&fpc.ctx, x, 0, 0);
        DecimalForm want = numtest::shortest_reference(x);
        failures += !(got.digits == want.digits && got.decpt == want.decpt);
    }
    EXPECT_EQ(failures, 0);
}

// Modes 2 and 3 are the correctly rounded (ties to even) digits that
// std::to_chars with a precision and glibc's printf produce, trailing
// zeros aside.
TEST(Dtoa, FixedDigitModesMatchToCharsAndPrintf) {
    Fpc fpc;
    std::mt19937_64 rng(77);
    char text[2000];
    int failures = 0;
    for (int i = 0; i < 30000 && failures < 10; i++) {
        double x = numtest::interesting_double(rng);
        // Mostly short precisions, sometimes the full expansion.
        int n = (i % 50 == 0) ? static_cast<int>(rng() % 800) + 1 : static_cast<int>(rng() % 20) + 1;

        Result m2 = run_dtoa(&fpc.ctx, x, 2, n);
        auto r = std::to_chars(text, text + sizeof text - 1, x, std::chars_format::scientific, n - 1);
        *r.ptr = '\0';
        DecimalForm want = numtest::from_scientific(text);
        if (!m2.ok || m2.digits != want.digits || m2.decpt != want.decpt) {
            failures++;
            ADD_FAILURE() << "mode 2, " << n << " digits, " << std::hexfloat << x << ": got "
                          << m2.digits << " @" << m2.decpt << ", to_chars " << text;
        }
        snprintf(text, sizeof text, "%.*e", n - 1, x);
        DecimalForm printed = numtest::from_scientific(text);
        EXPECT_EQ(printed.digits, want.digits) << "printf and to_chars disagree on " << x;

        // Mode 3: keep the fixed text within bounds (at most ~400 places).
        int places = static_cast<int>(rng() % 25);
        if (x > 1e300 || (x < 1e-30 && rng() % 4 != 0))
            continue;
        Result m3 = run_dtoa(&fpc.ctx, x, 3, places);
        r = std::to_chars(text, text + sizeof text - 1, x, std::chars_format::fixed, places);
        *r.ptr = '\0';
        want = from_fixed(text, places);
        if (!m3.ok || m3.digits != want.digits || m3.decpt != want.decpt) {
            failures++;
            ADD_FAILURE() << "mode 3, " << places << " places, " << std::hexfloat << x
                          << ": got '" << m3.digits << "' @" << m3.decpt << ", to_chars " << text;
        }
        snprintf(text, sizeof text, "%.*f", places, x);
        DecimalForm printedFixed = from_fixed(text, places);
        EXPECT_EQ(printedFixed.digits, want.digits) << "printf and to_chars disagree on " << x;
    }
}

// Mode 1 is the shortest form when that has at most ndigits digits, and
// the mode-2 rounding otherwise.
TEST(Dtoa, ModeOneIsShortestCappedByDigits) {
    Fpc fpc;
    std::mt19937_64 rng(5);
    for (int i = 0; i < 20000; i++) {
        double x = numtest::interesting_double(rng);
        int n = static_cast<int>(rng() % 18) + 1;
        Result shortest = run_dtoa(&fpc.ctx, x, 0, 0);
        Result capped = run_dtoa(&fpc.ctx, x, 1, n);
        Result rounded = run_dtoa(&fpc.ctx, x, 2, n);
        const Result& want = shortest.digits.size() <= static_cast<size_t>(n) ? shortest : rounded;
        ASSERT_EQ(capped.digits, want.digits) << std::hexfloat << x << " n=" << n;
        ASSERT_EQ(capped.decpt, want.decpt) << std::hexfloat << x << " n=" << n;
    }
}

TEST(Dtoa, SpecialValuesAndSigns) {
    Fpc fpc;
    Result r = run_dtoa(&fpc.ctx, 0.0, 0, 0);
    EXPECT_EQ(r.digits, "0");
    EXPECT_EQ(r.decpt, 1);
    EXPECT_EQ(r.sign, 0);
    r = run_dtoa(&fpc.ctx, -0.0, 2, 5);
    EXPECT_EQ(r.digits, "0");
    EXPECT_EQ(r.decpt, 1);
    EXPECT_EQ(r.sign, 1);
    r = run_dtoa(&fpc.ctx, -HUGE_VAL, 0, 0);
    EXPECT_EQ(r.digits, "Inf");
    EXPECT_EQ(r.decpt, 9999);
    EXPECT_EQ(r.sign, 1);
    // A NaN never reports a sign, whatever its sign bit.
    for (uint64_t bits : {0x7ff8000000000000ULL, 0xfff8000000000000ULL, 0x7ff0000000000001ULL,
                          0xffffffffffffffffULL}) {
        r = run_dtoa(&fpc.ctx, numtest::from_bits(bits), 3, 2);
        EXPECT_EQ(r.digits, "NaN");
        EXPECT_EQ(r.decpt, 9999);
        EXPECT_EQ(r.sign, 0);
    }
    r = run_dtoa(&fpc.ctx, -2.5, 0, 0);
    EXPECT_EQ(r.digits, "25");
    EXPECT_EQ(r.decpt, 1);
    EXPECT_EQ(r.sign, 1);
}

// Known answers where the peers cannot be asked: negative ndigits in mode
// 3, values that round to nothing or to a single "1", ties to even.
TEST(Dtoa, RoundingKnownAnswers) {
    Fpc fpc;
    struct Case {
        double x;
        int mode, ndigits;
        const char* digits;
        int decpt;
    } cases[] = {
        {1234.5, 3, -2, "12", 4},   {50.0, 3, -2, "", 2},        {150.0, 3, -2, "2", 3},
        {250.0, 3, -2, "2", 3},     {251.0, 3, -2, "3", 3},      {0.5, 3, 0, "", 0},
        {1.5, 3, 0, "2", 1},        {2.5, 3, 0, "2", 1},         {0.0004, 3, 3, "", -3},
        {0.0006, 3, 3, "1", -2},    {9.96, 3, 1, "1", 2},        {999.5, 2, 3, "1", 4},
        {0.125, 2, 2, "12", 0},     {0.375, 2, 2, "38", 0},      {1e23, 0, 0, "1", 24},
        {5e-324, 0, 0, "5", -323},  {1.7976931348623157e308, 0, 0, "17976931348623157", 309},
        {123456.0, 2, 0, "1", 6},   {9.5, 2, -4, "1", 2},        {0.001, 3, -5, "", 5},
    };
    for (const Case& c : cases) {
        Result r = run_dtoa(&fpc.ctx, c.x, c.mode, c.ndigits);
        EXPECT_EQ(r.digits, c.digits) << c.x << " mode " << c.mode << " ndigits " << c.ndigits;
        EXPECT_EQ(r.decpt, c.decpt) << c.x << " mode " << c.mode << " ndigits " << c.ndigits;
    }
}

// Too small a buffer is refused (null), never overrun; the exact size
// needed (digits plus the NUL) is accepted.
TEST(Dtoa, BufferBoundsAreRespected) {
    Fpc fpc;
    char buf[32];
    int decpt, sign;
    char* end;
    memset(buf, 'x', sizeof buf);
    EXPECT_EQ(kt_dtoa(&fpc.ctx, 0.1 + 0.2, buf, 17, 0, 0, &decpt, &sign, &end), nullptr);
    EXPECT_EQ(buf[17], 'x');
    ASSERT_EQ(kt_dtoa(&fpc.ctx, 0.1 + 0.2, buf, 18, 0, 0, &decpt, &sign, &end), buf);
    EXPECT_STREQ(buf, "30000000000000004");
    EXPECT_EQ(end, buf + 17);
    EXPECT_EQ(kt_dtoa(&fpc.ctx, HUGE_VAL, buf, 3, 0, 0, &decpt, &sign, &end), nullptr);
    EXPECT_EQ(kt_dtoa(&fpc.ctx, 1.0 / 3, buf, 10, 2, 40, &decpt, &sign, &end), nullptr);
    EXPECT_EQ(kt_dtoa(&fpc.ctx, 1.0, nullptr, 10, 0, 0, &decpt, &sign, &end), nullptr);
    // Null out pointers are allowed.
    EXPECT_STREQ(kt_dtoa(&fpc.ctx, 2.0, buf, sizeof buf, 0, 0, nullptr, nullptr, nullptr), "2");
}

}  // namespace
