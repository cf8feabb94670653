// kt_dtoa: every mode against an exact free-format model (Steele and
// White's digit generation in big-integer rationals) on random doubles;
// known answers; buffer bounds; mode 0 against std::to_chars (long run).
// kt_g_fmt: layout known answers and the bounded-buffer rule.
#include <math.h>

#include <algorithm>
#include <memory>
#include <random>
#include <string>

#include <boost/multiprecision/cpp_int.hpp>
#include <gtest/gtest.h>

#include "numbers/numbers_support.h"

using boost::multiprecision::cpp_int;
using numtest::Digits;
using numtest::Fpc;
using numtest::run_dtoa;

namespace {

// ---- the model ---------------------------------------------------------------
// A positive double v = f * 2^e. At a digit position 10^j, v / 10^j = a / b
// exactly, and the half-gaps to the neighbours are hi / b above and lo / b
// below (all scaled by 4 to stay integral).
struct Model {
    cpp_int f;
    int e;
    bool narrowBelow;  // first double of a binade: the gap below is half as wide
    int k;             // floor(log10(v))

    explicit Model(double x) {
        int binaryExponent;
        double m = frexp(x, &binaryExponent);
        e = binaryExponent - 53 < -1074 ? -1074 : binaryExponent - 53;
        f = cpp_int(ldexp(m, binaryExponent - e));
        narrowBelow = m == 0.5 && e > -1074;
        k = static_cast<int>(floor(log10(x)));
        while (floor_at(k) == 0)
            k--;
        while (floor_at(k + 1) != 0)
            k++;
    }
    struct Frame { cpp_int a, b, hi, lo; };
    Frame at(int j) const {
        Frame r;
        cpp_int g = cpp_int(4) << (e > 0 ? e : 0);
        r.b = cpp_int(4) << (e < 0 ? -e : 0);
        (j < 0 ? g : r.b) *= boost::multiprecision::pow(cpp_int(10), j < 0 ? -j : j);
        r.a = f * g;
        r.hi = g / 2;
        r.lo = narrowBelow ? g / 4 : g / 2;
        return r;
    }
    cpp_int floor_at(int j) const { return at(j).a / at(j).b; }
    static Digits form(cpp_int n, int j) {
        if (n == 0)
            return {"", j, 0};
        std::string s = n.str();
        int decpt = static_cast<int>(s.size()) + j;
        while (s.size() > 1 && s.back() == '0')
            s.pop_back();
        return {s, decpt, 0};
    }
    // v rounded to a multiple of 10^j, ties to even.
    Digits rounded(int j) const {
        Frame r = at(j);
        cpp_int d = r.a / r.b, twice = 2 * (r.a - d * r.b);
        return form(twice > r.b || (twice == r.b && d % 2 == 1) ? d + 1 : d, j);
    }
    // Free format: at each length n the truncation d or d + 1 is taken as
    // soon as one of them reads back (strictly inside the rounding
    // interval; its ends too when `inclusive` and f is even), the nearer
    // one when both do. *steps receives n.
    Digits shortest(bool inclusive, int* steps) const {
        bool closed = inclusive && f % 2 == 0;
        for (int n = 1;; n++) {
            Frame r = at(k + 1 - n);
            cpp_int d = r.a / r.b, below = r.a - d * r.b, above = r.b - below;
            bool low = closed ? below <= r.lo : below < r.lo;
            bool high = closed ? above <= r.hi : above < r.hi;
            if (!low && !high)
                continue;
            *steps = n;
            bool up = high && (!low || 2 * below > r.b || (2 * below == r.b && d % 2 == 1));
            return form(up ? d + 1 : d, k + 1 - n);
        }
    }
    Digits mode(int mode, int ndigits) const {
        int steps = 0;
        Digits free = shortest(mode != 1, &steps);
        int limit = mode % 2 == 0 ? (ndigits > 0 ? ndigits : 1) : k + 1 + ndigits;
        if (mode <= 1 || (mode >= 4 && limit > 0 && steps <= limit))
            return free;
        return rounded(mode % 2 == 0 ? k + 1 - limit : -ndigits);
    }
};

// The buffer rule: with `size` bytes the result is null exactly when the
// final digits and their NUL do not fit, else those digits; nothing outside
// the buffer is touched (heap-exact for ASan, and inside guard bytes).
void expect_buffer_rule(kt_fpc_context* ctx, double x, int mode, int ndigits, size_t size,
                        const Digits& full) {
    std::unique_ptr<char[]> exact(new char[size]);
    char guarded[800];
    memset(guarded, '#', sizeof guarded);
    for (char* buf : {exact.get(), guarded + 8}) {
        int decpt = -7;
        char* got = kt_dtoa(ctx, x, buf, size, mode, ndigits, &decpt, nullptr, nullptr);
        ASSERT_EQ(got != nullptr, size > full.text.size()) << x << " mode " << mode << " size " << size;
        ASSERT_TRUE(got == nullptr || Digits({got, decpt, 0}) == full) << x << " mode " << mode;
    }
    ASSERT_EQ(std::string(guarded, 8) + guarded[8 + size], "#########") << x << " mode " << mode;
}

// Every mode, ndigits from deep negative to the full expansion, on doubles
// of every class (modes 6 to 9 are 2 to 5), and the buffer rule at the
// sizes around the result.
TEST(Dtoa, EveryModeMatchesExactModel) {
    Fpc fpc;
    std::mt19937_64 rng(20261123);
    for (int i = 0; i < 2000; i++) {
        double x = numtest::interesting_double(rng);
        Model model(x);
        for (int mode = 0; mode <= 9; mode++) {
            int ndigits = static_cast<int>(rng() % 40) - 12;
            if (rng() % 16 == 0)
                ndigits = static_cast<int>(rng() % 1100) - 350;
            Digits want = model.mode(mode >= 6 ? mode - 4 : mode, ndigits);
            ASSERT_EQ(run_dtoa(&fpc.ctx, x, mode, ndigits), want)
                << std::hexfloat << x << " mode " << mode << " ndigits " << ndigits;
            for (size_t size : {size_t(0), size_t(1), want.text.size(), want.text.size() + 1})
                expect_buffer_rule(&fpc.ctx, x, mode, ndigits, size, want);
        }
    }
}

// Mode 0 against std::to_chars on ten million doubles; not part of the
// default run (the fast-path tests compare a sample):
//   build/tests/numbers_dtoa_test --gtest_also_run_disabled_tests
//     --gtest_filter=Dtoa.DISABLED_ShortestMatchesToCharsTenMillion
TEST(Dtoa, DISABLED_ShortestMatchesToCharsTenMillion) {
    Fpc fpc;
    std::mt19937_64 rng(std::random_device{}());
    for (long i = 0; i < 10000000; i++) {
        double x = numtest::interesting_double(rng);
        ASSERT_EQ(run_dtoa(&fpc.ctx, x, 0, 0), numtest::shortest_reference(x)) << std::hexfloat << x;
    }
}

// Known answers that also pin the model down.
TEST(Dtoa, KnownAnswers) {
    Fpc fpc;
    struct Case { double x; int mode, ndigits; const char* digits; int decpt, sign; } cases[] = {
        {0.0, 0, 0, "0", 1, 0}, {-0.0, 2, 5, "0", 1, 1}, {-HUGE_VAL, 0, 0, "Inf", 9999, 1}, {-2.5, 0, 0, "25", 1, 1},
        {-NAN, 3, 2, "NaN", 9999, 0}, {numtest::from_bits(0x7ff0000000000001), 0, 0, "NaN", 9999, 0},  // unsigned
        // Fault: mode 1 was mode 0 capped at ndigits; it ignores ndigits and
        // never reads a boundary back (Steele and White), unlike mode 0.
        {123.456, 1, 1, "123456", 3, 0}, {1e23, 1, 0, "9999999999999999", 23, 0}, {1e23, 0, 0, "1", 24, 0},
        // Fault: modes 4 and 5 were 2 and 3; they return mode 0's digits when shorter.
        {0.3, 4, 17, "3", 0, 0},   {0.3, 2, 17, "29999999999999999", 0, 0},   {1e23, 4, 20, "1", 24, 0},
        {1e23, 5, -2, "1", 24, 0}, {1e23, 3, -2, "999999999999999916114", 23, 0}, {2.0 / 3, 5, 2, "67", 0, 0},
        {1234.5, 3, -2, "12", 4, 0}, {50.0, 3, -2, "", 2, 0}, {0.5, 3, 0, "", 0, 0}, {999.5, 2, 3, "1", 4, 0},
        {5e-324, 0, 0, "5", -323, 0}, {1.7976931348623157e308, 0, 0, "17976931348623157", 309, 0},
    };
    for (const Case& c : cases) {
        Digits r = run_dtoa(&fpc.ctx, c.x, c.mode, c.ndigits);
        Digits want = {c.digits, c.decpt, c.sign};
        EXPECT_EQ(r, want) << c.x << " mode " << c.mode << " ndigits " << c.ndigits;
        EXPECT_EQ(r.sign, c.sign) << c.x;
        if (c.decpt != 9999 && c.x != 0) {
            EXPECT_EQ(Model(fabs(c.x)).mode(c.mode, c.ndigits), want) << c.x << " (model)";
        }
    }
}

// Fault: small buffers. Mode 1 read the byte before a buffer of 0 or 1
// bytes, mode 3 wrote a NUL into a buffer of 0, and digits that overflowed
// before rounding shortened them ("999" -> "1") gave null although the
// final text fit.
TEST(Dtoa, ResultDependsOnlyOnWhetherFinalTextFits) {
    Fpc fpc;
    struct Case { double x; int mode, ndigits; } cases[] = {
        {1.0 / 3, 1, 0}, {0.001, 3, 1},   {0.0006, 3, 3}, {9.9999, 2, 3},  {9.9999, 3, 2},
        {99.96, 4, 3},   {HUGE_VAL, 0, 0}, {0.0, 5, 0},   {5e-324, 2, 800}};
    for (const Case& c : cases) {
        Digits full = run_dtoa(&fpc.ctx, c.x, c.mode, c.ndigits);
        for (size_t size = 0; size <= full.text.size() + 1; size++)
            expect_buffer_rule(&fpc.ctx, c.x, c.mode, c.ndigits, size, full);
    }
    EXPECT_EQ(kt_dtoa(&fpc.ctx, 1.0, nullptr, 10, 0, 0, nullptr, nullptr, nullptr), nullptr);
}

// ---- kt_g_fmt (fuzz/dtoa_fuzz.cpp checks its round trip through both parsers) ----

TEST(GFmt, LayoutKnownAnswers) {
    Fpc fpc;
    struct Case { double x; const char* text; } cases[] = {
        {0.0, "0.0"},           {-0.0, "-0.0"},           {1.0, "1.0"},
        {-1.5, "-1.5"},         {123456.0, "123456.0"},   {1234567.0, "1234567.0"},
        {100000.0, "100000.0"}, {1e7, "1e+07"},           {1e6, "1e+06"},
        {1.5e7, "1.5e+07"},     {1.25e7, "12500000.0"},   {1.25e12, "1.25e+12"},
        {0.001, ".001"},        {0.0001, ".0001"},        {0.00012, ".00012"},
        {0.00001, "1e-05"},     {1.5e-7, "1.5e-07"},      {1e100, "1e+100"},
        {-1e-100, "-1e-100"},   {123.456, "123.456"},     {0.30000000000000004, ".30000000000000004"},
        {5e-324, "5e-324"},     {1.7976931348623157e308, "1.7976931348623157e+308"},
        {HUGE_VAL, "Inf"},      {-HUGE_VAL, "-Inf"},      {NAN, "NaN"},
        {-NAN, "NaN"},          {12345678901234567.0, "12345678901234568.0"},
    };
    for (const Case& c : cases) {
        char buf[40];
        EXPECT_STREQ(kt_g_fmt(&fpc.ctx, c.x, buf, sizeof buf), c.text) << std::hexfloat << c.x;
    }
}

// Characters are stored only while room remains; the NUL only after a
// text that leaves room for it, so an exact fit stays unterminated.
TEST(GFmt, BoundedBufferLeavesExactFitUnterminated) {
    Fpc fpc;
    // The buffer afterwards: '#' untouched, '$' the NUL.
    struct Case { double x; size_t size; std::string stored; } cases[] = {{1.5, 3, "1.5#"}, {1.5, 4, "1.5$#"}, {-123.25, 5, "-123.#"}, {2.0, 0, "#"}};
    for (const Case& c : cases) {
        char buf[8];
        memset(buf, '#', sizeof buf);
        EXPECT_EQ(kt_g_fmt(&fpc.ctx, c.x, buf, c.size), buf);
        std::string seen(buf, c.stored.size());
        std::replace(seen.begin(), seen.end(), '\0', '$');
        EXPECT_EQ(seen, c.stored) << c.x << " in " << c.size;
    }
    EXPECT_EQ(kt_g_fmt(&fpc.ctx, 2.0, nullptr, 8), nullptr);
}

}  // namespace
