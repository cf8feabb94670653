// IEEE constants and predicates against the C library's classification,
// ktDblIsInt's errno rules, the format and data-size tables, and byte-order
// conversion against a byte-reversing model.
#include <errno.h>
#include <float.h>
#include <math.h>

#include <algorithm>
#include <functional>
#include <limits>
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include "kt/contexts.h"
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

// The tolerance follows b only (asymmetric on purpose): with b = 0 only
// a = 0 passes, and swapping the arguments can change the answer.
TEST(Ieee, EqualWithinEpsScalesWithSecondArgumentOnly) {
    double below2 = 2.0 - 2 * DBL_EPSILON;
    struct Case { double a, b; bool equal; } cases[] = {
        {1.0, 1.0, true},    {1.0 + DBL_EPSILON, 1.0, true}, {1.0 + 4 * DBL_EPSILON, 1.0, false},
        {1e-20, 0.0, false}, {0.0, 0.0, true},              {1e300, 1e300 * (1 + DBL_EPSILON), true},
        {below2, 2.0, true}, {2.0, below2, false},          {NAN, NAN, false}};
    for (const Case& c : cases)
        EXPECT_EQ(ktEqualWithinEps(c.a, c.b), c.equal) << c.a << " " << c.b;
}

// Integers in the 32-bit range, -0.0 excepted (deliberately); errno is set
// to ERANGE out of range and EDOM for NaN, and left alone otherwise.
TEST(Ieee, DblIsIntAndItsErrnoRules) {
    struct Case { double x; bool isInt; int error; } cases[] = {
        {0.0, true, 0},    {-7.0, true, 0},      {2147483647.0, true, 0}, {-2147483648.0, true, 0},
        {0.5, false, 0},   {-0.0, false, 0},     {3e9, false, ERANGE},    {-2147483649.0, false, ERANGE},
        {HUGE_VAL, false, ERANGE},               {NAN, false, EDOM}};
    for (const Case& c : cases) {
        errno = 0;
        EXPECT_EQ(ktDblIsInt(c.x), c.isInt) << c.x;
        EXPECT_EQ(errno, c.error) << c.x;
    }
    std::mt19937_64 rng(17);
    for (int i = 0; i < 10000; i++) {
        double x = (static_cast<double>(rng() % 8000000000ULL) - 4e9) / (rng() % 4 + 1);
        bool inRange = x >= -2147483648.0 && x <= 2147483647.0;
        EXPECT_EQ(ktDblIsInt(x), inRange && x == floor(x) && !(x == 0 && signbit(x))) << x;
    }
}

// The data size types; format types 0-4 are the same rows, 5 is the last.
TEST(Formats, TablesAndNativeProbe) {
    const char* names[] = {"ieee-le", "ieee-be", "obsolete", "obsolete",
                           "obsolete", "ieee-le.l64", "ieee-be.l64", "unknown_fmt"};
    int endians[] = {0, 1, -1, -1, -1, 0, 1, 0};
    EXPECT_EQ(ktGetNumFormatTypes(), 6);
    EXPECT_EQ(ktGetNumDataSizeTypes(), 8);
    for (int i = 0; i < 8; i++) {
        EXPECT_STREQ(ktGetDataSizeTypeName(i), names[i]);
        EXPECT_EQ(ktGetDataEndianType(i), endians[i]);
        if (i < 6) {
            EXPECT_STREQ(ktGetFormatTypeName(i), names[i < 5 ? i : 7]);
            EXPECT_EQ(ktGetFormatEndian(i), endians[i < 5 ? i : 7]);
        }
    }
    EXPECT_STREQ(ktGetDataSizeTypeName(99), "unknown_fmt");
    EXPECT_STREQ(ktGetDataSizeTypeName(-1), "unknown_fmt");
    EXPECT_EQ(ktGetDataEndianType(8), 0);
    EXPECT_EQ(ktGetFormatType(), 0);  // this machine is little-endian IEEE
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
    for (int c = -1; c <= 14; c++)
        EXPECT_EQ(ktDconvertSign(c), (c >= 1 && c <= 12) ? sign[c] : -1) << c;
}

// ---- byte order ----------------------------------------------------------------

std::mt19937_64 byteRng(12);

// Converts random items with `convert` and compares with the model: each
// item's bytes reversed when `flips`, else untouched.
template <class T, class F>
void expect_converted(F convert, bool flips, size_t n = 9) {
    std::vector<T> items(n);
    for (T& x : items)
        x = static_cast<T>(byteRng());
    std::vector<T> want(items);
    for (T& item : want) {
        unsigned char* bytes = reinterpret_cast<unsigned char*>(&item);
        std::reverse(bytes, flips ? bytes + sizeof(T) : bytes);
    }
    convert(items.data(), n);
    EXPECT_TRUE(n == 0 || memcmp(items.data(), want.data(), n * sizeof(T)) == 0);
}

TEST(ByteOrder, FlipsReverseEveryItem) {
    for (size_t n : {0, 1, 2, 3, 17, 1000}) {
        expect_converted<uint16_t>([](uint16_t* p, size_t c) { ktFlipTwoBytes(c, p); }, true, n);
        expect_converted<uint32_t>([](uint32_t* p, size_t c) { ktFlipFourBytes(c, p); }, true, n);
        expect_converted<uint64_t>([](uint64_t* p, size_t c) { ktFlipEightBytes(c, p); }, true, n);
    }
    ktFlipEightBytes(0, nullptr);  // a count of 0 touches nothing
}

TEST(ByteOrder, FourByteIntLoadAndStoreAtAnyAlignment) {
    unsigned char bytes[12] = {0};
    for (int offset = 0; offset < 8; offset++) {
        int32_t native;
        ktPutFourByteInt(bytes + offset, -123456789 - offset);
        memcpy(&native, bytes + offset, sizeof native);
        EXPECT_EQ(native, -123456789 - offset);
        EXPECT_EQ(ktGetFourByteInt(bytes + offset), -123456789 - offset);
    }
}

// The integer converters flip exactly when the two byte orders differ:
// by format type (0 le, 1 be, 2-4 obsolete, 5 le) or by data size type.
TEST(ByteOrder, IntegerConvertersFlipWhenOrdersDiffer) {
    for (int from = 0; from < 8; from++) {
        for (int to = 0; to < 8; to++) {
            SCOPED_TRACE(testing::Message() << from << "->" << to);
            bool flips = ktGetDataEndianType(from) != ktGetDataEndianType(to);
            expect_converted<int32_t>([&](int32_t* p, size_t n) { ktFourByteIntConvertData(from, to, p, n); }, flips);
            expect_converted<int16_t>([&](int16_t* p, size_t n) { ktTwoByteIntConvertData(from, to, p, n); }, flips);
            if (from > 5 || to > 5)
                continue;
            flips = ktGetFormatEndian(from) != ktGetFormatEndian(to);
            expect_converted<int32_t>([&](int32_t* p, size_t n) { ktFourByteIntConvert(from, to, p, n); }, flips);
            expect_converted<uint32_t>([&](uint32_t* p, size_t n) { ktFourByteUIntConvert(from, to, p, n); }, flips);
            expect_converted<int16_t>([&](int16_t* p, size_t n) { ktTwoByteIntConvert(from, to, p, n); }, flips);
            expect_converted<uint16_t>([&](uint16_t* p, size_t n) { ktTwoByteUIntConvert(from, to, p, n); }, flips);
        }
    }
    EXPECT_EQ(ktGetFormatEndian(5), 0);  // unknown_fmt counts as little-endian
}

// From the IEEE data size types 0, 1, 5 and 6 the floating converters flip
// whatever the target, even between two little-endian types (deliberate);
// equal types leave the data alone.
TEST(ByteOrder, FloatingConvertersFlipUnconditionallyFromIeeeTypes) {
    for (int from : {0, 1, 5, 6}) {
        for (int to = -1; to < 9; to++) {
            SCOPED_TRACE(testing::Message() << from << "->" << to);
            expect_converted<double>([&](double* p, size_t n) { ktDoubleConvert(from, to, p, n); }, from != to);
            expect_converted<float>([&](float* p, size_t n) { ktSingleConvert(from, to, p, n); }, from != to);
        }
    }
}

// Runs `body` in a frame of the current error context; 0 or the raised code.
int raised_by(std::function<void()> body) {
    auto run = [](kt_error_context*, void* f) { (*static_cast<std::function<void()>*>(f))(); };
    auto accept = [](kt_error_context*, void*, int, va_list) { return 1; };
    return kt_try_catch(ktGetErrorContext(), &body, run, accept);
}

// Other source types (obsolete VAX/Cray layouts, unknown) raise
// ERR_UNSUPPORTED_FP_FMT through the current error context and leave the
// data untouched; equal types are still a no-op.
TEST(ByteOrder, UnsupportedSourceFormatRaises) {
    for (int from : {-1, 2, 3, 4, 7, 8}) {
        double d[2] = {1.5, 2.5};
        float f[2] = {1.5f, 2.5f};
        EXPECT_EQ(raised_by([&] { ktDoubleConvert(from, 0, d, 2); }), KT_ERR_UNSUPPORTED_FP_FMT);
        EXPECT_EQ(raised_by([&] { ktSingleConvert(from, 0, f, 2); }), KT_ERR_UNSUPPORTED_FP_FMT);
        EXPECT_EQ(raised_by([&] { ktDoubleConvert(from, from, d, 2); }), 0);
        EXPECT_TRUE(d[0] == 1.5 && f[1] == 2.5f) << from;
    }
    EXPECT_STREQ(kt_get_message(ktGetMessageContext(), KT_ERR_UNSUPPORTED_FP_FMT),
                 "Encountered unsupported floating point format. Expected IEEE little endian or "
                 "big endian format, encountered VAX or Cray floating point format.");
}

}  // namespace
