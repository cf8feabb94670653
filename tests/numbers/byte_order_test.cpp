// Byte-order conversion against a byte-reversing model, and which format
// pairs flip.
#include <stdint.h>
#include <string.h>

#include <random>
#include <vector>

#include <gtest/gtest.h>

#include "kt/contexts.h"
#include "numbers/numbers_support.h"

namespace {

// The model: reverse each item's bytes one by one.
template <class T>
std::vector<T> reversed_items(const std::vector<T>& items) {
    std::vector<T> out(items.size());
    for (size_t i = 0; i < items.size(); i++) {
        unsigned char in[sizeof(T)], rev[sizeof(T)];
        memcpy(in, &items[i], sizeof(T));
        for (size_t b = 0; b < sizeof(T); b++)
            rev[b] = in[sizeof(T) - 1 - b];
        memcpy(&out[i], rev, sizeof(T));
    }
    return out;
}

template <class T>
std::vector<T> random_items(std::mt19937_64& rng, size_t n) {
    std::vector<T> v(n);
    for (T& x : v)
        x = static_cast<T>(rng());
    return v;
}

TEST(ByteOrder, FlipsReverseEveryItemAndAreInvolutions) {
    std::mt19937_64 rng(12);
    for (size_t n : {0, 1, 2, 3, 17, 1000}) {
        auto a = random_items<uint16_t>(rng, n);
        auto b = random_items<uint32_t>(rng, n);
        auto c = random_items<uint64_t>(rng, n);
        auto a0 = a;
        auto b0 = b;
        auto c0 = c;
        ktFlipTwoBytes(n, a.data());
        ktFlipFourBytes(n, b.data());
        ktFlipEightBytes(n, c.data());
        EXPECT_EQ(a, reversed_items(a0));
        EXPECT_EQ(b, reversed_items(b0));
        EXPECT_EQ(c, reversed_items(c0));
        ktFlipTwoBytes(n, a.data());
        ktFlipFourBytes(n, b.data());
        ktFlipEightBytes(n, c.data());
        EXPECT_EQ(a, a0);
        EXPECT_EQ(b, b0);
        EXPECT_EQ(c, c0);
    }
    // A count of 0 touches nothing, not even through a null pointer.
    ktFlipEightBytes(0, nullptr);
}

TEST(ByteOrder, FourByteIntLoadAndStoreAtAnyAlignment) {
    unsigned char bytes[12] = {0};
    for (int offset = 0; offset < 8; offset++) {
        ktPutFourByteInt(bytes + offset, -123456789);
        EXPECT_EQ(ktGetFourByteInt(bytes + offset), -123456789);
        int32_t native;
        memcpy(&native, bytes + offset, sizeof native);
        EXPECT_EQ(native, -123456789);
    }
}

// The integer converters flip exactly when the two byte orders differ:
// by format type (0 le, 1 be, 2-4 obsolete, 5 le) or by data size type.
TEST(ByteOrder, IntegerConvertersFlipWhenOrdersDiffer) {
    std::mt19937_64 rng(13);
    for (int from = 0; from < 6; from++) {
        for (int to = 0; to < 6; to++) {
            bool flips = ktGetFormatEndian(from) != ktGetFormatEndian(to);
            auto i32 = random_items<int32_t>(rng, 9);
            auto u32 = random_items<uint32_t>(rng, 9);
            auto i16 = random_items<int16_t>(rng, 9);
            auto u16 = random_items<uint16_t>(rng, 9);
            auto w32 = flips ? reversed_items(i32) : i32;
            auto wu32 = flips ? reversed_items(u32) : u32;
            auto w16 = flips ? reversed_items(i16) : i16;
            auto wu16 = flips ? reversed_items(u16) : u16;
            ktFourByteIntConvert(from, to, i32.data(), i32.size());
            ktFourByteUIntConvert(from, to, u32.data(), u32.size());
            ktTwoByteIntConvert(from, to, i16.data(), i16.size());
            ktTwoByteUIntConvert(from, to, u16.data(), u16.size());
            EXPECT_EQ(i32, w32) << from << "->" << to;
            EXPECT_EQ(u32, wu32) << from << "->" << to;
            EXPECT_EQ(i16, w16) << from << "->" << to;
            EXPECT_EQ(u16, wu16) << from << "->" << to;
        }
    }
    EXPECT_EQ(ktGetFormatEndian(5), 0);  // unknown_fmt counts as little-endian
    for (int from = 0; from < 8; from++) {
        for (int to = 0; to < 8; to++) {
            bool flips = ktGetDataEndianType(from) != ktGetDataEndianType(to);
            auto i32 = random_items<int32_t>(rng, 5);
            auto i16 = random_items<int16_t>(rng, 5);
            auto w32 = flips ? reversed_items(i32) : i32;
            auto w16 = flips ? reversed_items(i16) : i16;
            ktFourByteIntConvertData(from, to, i32.data(), i32.size());
            ktTwoByteIntConvertData(from, to, i16.data(), i16.size());
            EXPECT_EQ(i32, w32) << from << "->" << to;
            EXPECT_EQ(i16, w16) << from << "->" << to;
        }
    }
}

// From the IEEE data size types 0, 1, 5 and 6 the floating converters flip
// whatever the target, even between two little-endian types (deliberate);
// equal types leave the data alone.
TEST(ByteOrder, FloatingConvertersFlipUnconditionallyFromIeeeTypes) {
    std::mt19937_64 rng(14);
    for (int from : {0, 1, 5, 6}) {
        for (int to = -1; to < 9; to++) {
            auto d = random_items<uint64_t>(rng, 7);
            auto f = random_items<uint32_t>(rng, 7);
            std::vector<double> doubles(d.size());
            std::vector<float> floats(f.size());
            memcpy(doubles.data(), d.data(), d.size() * 8);
            memcpy(floats.data(), f.data(), f.size() * 4);
            ktDoubleConvert(from, to, doubles.data(), doubles.size());
            ktSingleConvert(from, to, floats.data(), floats.size());
            auto wantD = from == to ? d : reversed_items(d);
            auto wantF = from == to ? f : reversed_items(f);
            EXPECT_EQ(memcmp(doubles.data(), wantD.data(), d.size() * 8), 0) << from << "->" << to;
            EXPECT_EQ(memcmp(floats.data(), wantF.data(), f.size() * 4), 0) << from << "->" << to;
        }
    }
}

struct ConvertCall {
    int from, to;
    bool single;
    double d[2];
    float f[2];
};

void run_convert(kt_error_context*, void* data) {
    ConvertCall* call = static_cast<ConvertCall*>(data);
    if (call->single)
        ktSingleConvert(call->from, call->to, call->f, 2);
    else
        ktDoubleConvert(call->from, call->to, call->d, 2);
}

int accept_error(kt_error_context*, void*, int, va_list) { return 1; }

// Other source types (obsolete VAX/Cray layouts, unknown) raise
// ERR_UNSUPPORTED_FP_FMT through the current error context and leave the
// data untouched; equal types are still a no-op.
TEST(ByteOrder, UnsupportedSourceFormatRaises) {
    for (int from : {-1, 2, 3, 4, 7, 8}) {
        for (bool single : {false, true}) {
            ConvertCall call = {from, 0, single, {1.5, 2.5}, {1.5f, 2.5f}};
            int code = kt_try_catch(ktGetErrorContext(), &call, run_convert, accept_error);
            EXPECT_EQ(code, KT_ERR_UNSUPPORTED_FP_FMT) << from;
            EXPECT_EQ(call.d[0], 1.5);
            EXPECT_EQ(call.f[1], 2.5f);
        }
        ConvertCall same = {from, from, false, {1.5, 2.5}, {1.5f, 2.5f}};
        EXPECT_EQ(kt_try_catch(ktGetErrorContext(), &same, run_convert, accept_error), 0);
    }
    EXPECT_STREQ(kt_get_message(ktGetMessageContext(), KT_ERR_UNSUPPORTED_FP_FMT),
                 "Encountered unsupported floating point format. Expected IEEE little endian or "
                 "big endian format, encountered VAX or Cray floating point format.");
}

// With no frame to catch it, the raise ends the process through the default
// throw hook, which prints the message.
TEST(ByteOrderDeathTest, UncaughtUnsupportedFormatEndsTheProcess) {
    double data[1] = {1.0};
    EXPECT_EXIT(ktDoubleConvert(2, 0, data, 1), testing::ExitedWithCode(1),
                "Encountered unsupported floating point format");
}

}  // namespace
