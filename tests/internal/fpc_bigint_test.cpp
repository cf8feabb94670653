// The conversions' big integers against a 128-bit integer model, and the
// allocation rules of the fpc context (arena first, free lists per class,
// large integers from the memory context).
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "internal/fpc_bigint.h"
#include "numbers/numbers_support.h"

using namespace kt::internal;
using numtest::Fpc;

namespace {

__extension__ typedef unsigned __int128 u128;

std::mt19937_64 rng(2024);

u128 value_of(const Bigint* b) {
    u128 v = 0;
    for (int i = b->wds - 1; i >= 0; i--)
        v = (v << 32) | b->x[i];
    return v;
}

// Word by word: b = (b << 32) + w, from the top word down.
void set(Big& b, u128 v) {
    big_set_u64(b, 0);
    for (int shift = 96; shift >= 0; shift -= 32) {
        big_lshift(b, 32);
        big_multadd(b, 1, static_cast<uint32_t>(v >> shift));
    }
}

u128 random_value(int maxBits) {
    int bits = static_cast<int>(rng() % maxBits) + 1;
    u128 v = (static_cast<u128>(rng()) << 64) | rng();
    return bits >= 128 ? v : v & ((static_cast<u128>(1) << bits) - 1);
}

int bit_length(u128 v) {
    uint64_t high = static_cast<uint64_t>(v >> 64), low = static_cast<uint64_t>(v);
    return high != 0 ? 128 - __builtin_clzll(high) : low != 0 ? 64 - __builtin_clzll(low) : 0;
}

// Every operation on random operands within 128 bits; quorem gives the
// quotient digit and remainder for b < 10 * S once S is normalised.
TEST(FpcBigint, ArithmeticMatchesModel) {
    Fpc fpc;
    Big a(&fpc.ctx), c(&fpc.ctx), out(&fpc.ctx);
    for (int i = 0; i < 20000; i++) {
        u128 x = random_value(128), y = random_value(64), small = random_value(90), s = random_value(64);
        uint32_t m = static_cast<uint32_t>(rng()), add = static_cast<uint32_t>(rng());
        int k = static_cast<int>(rng() % 64);
        std::string digits = std::to_string(static_cast<uint64_t>(x));
        big_set_digits(a, digits.c_str(), static_cast<int>(digits.size()));
        ASSERT_EQ(value_of(a.get()), static_cast<uint64_t>(x));
        set(a, x);
        ASSERT_EQ(value_of(a.get()), x);
        set(c, y);
        ASSERT_EQ(value_of(c.get()), y);
        ASSERT_EQ(big_is_zero(c.get()), y == 0);
        big_diff(out, a.get(), c.get());
        ASSERT_EQ(value_of(out.get()), x >= y ? x - y : y - x);
        ASSERT_EQ(out->sign, x < y ? 1 : 0);
        int cmp = big_cmp(a.get(), c.get());
        ASSERT_EQ(cmp < 0 ? -1 : cmp > 0, x < y ? -1 : x > y);
        set(a, s);
        big_mult(out, a.get(), c.get());
        ASSERT_EQ(value_of(out.get()), s * y);
        big_lshift(a, k);
        ASSERT_EQ(value_of(a.get()), s << k);
        ASSERT_EQ(big_bit_length(a.get()), bit_length(s << k));
        set(a, small);
        big_multadd(a, m, add);
        ASSERT_EQ(value_of(a.get()), small * m + add);

        u128 divisor = small | 1;
        set(c, divisor);
        int shift = big_quorem_shift(c.get());
        u128 normalised = divisor << shift;
        if ((normalised >> 124) != 0)
            continue;  // keep 10 * S within the model
        big_lshift(c, shift);
        ASSERT_EQ(c->x[c->wds - 1] >> 27, 1u);
        u128 numerator = normalised * (rng() % 10) + x % normalised;
        set(a, numerator);
        ASSERT_EQ(static_cast<u128>(big_quorem(a.get(), c.get())), numerator / normalised);
        ASSERT_EQ(value_of(a.get()), numerator % normalised);
    }
}

TEST(FpcBigint, PowersOfFiveAreCachedAndExact) {
    Fpc fpc;
    Big b(&fpc.ctx);
    u128 five = 1;
    for (int k = 0; k <= 55; k++, five *= 5) {
        big_set_u64(b, 3);
        big_pow5mult(b, k);
        ASSERT_EQ(value_of(b.get()), 3 * five) << k;
    }
    // The cache holds 5^4, 5^8, 5^16, 5^32.
    const Bigint* p = fpc.ctx.powersOfFive;
    u128 expected = 625;
    for (int link = 0; link < 4; link++, p = p->next, expected *= expected) {
        ASSERT_NE(p, nullptr);
        EXPECT_EQ(value_of(p), expected);
    }
}

// Arena first, then a released integer is reused from its class's list;
// integers above class 7 come from the memory context and go back to it.
TEST(FpcBigint, AllocationOrder) {
    Fpc fpc;
    Bigint* first = bigint_alloc(&fpc.ctx, 2);
    EXPECT_TRUE(bigint_in_arena(&fpc.ctx, first));
    EXPECT_EQ(first->maxwds, 4);
    bigint_free(&fpc.ctx, first);
    EXPECT_EQ(fpc.ctx.freeLists[2], first);
    EXPECT_EQ(bigint_alloc(&fpc.ctx, 2), first);
    // Exhaust the arena with class-7 integers (528 bytes each).
    Bigint* held[8];
    for (Bigint*& b : held)
        b = bigint_alloc(&fpc.ctx, 7);
    EXPECT_FALSE(bigint_in_arena(&fpc.ctx, held[7]));
    EXPECT_GT(fpc.contexts.LiveBlocks(), 0u);
    Bigint* huge = bigint_alloc(&fpc.ctx, 9);
    EXPECT_EQ(huge->maxwds, 512);
    size_t withHuge = fpc.contexts.LiveBlocks();
    bigint_free(&fpc.ctx, huge);
    EXPECT_EQ(fpc.contexts.LiveBlocks(), withHuge - 1);
    for (Bigint* b : held)
        bigint_free(&fpc.ctx, b);
    bigint_free(&fpc.ctx, first);
}

}  // namespace
