// The conversions' big integers against a 128-bit integer model, and the
// allocation rules of the fpc context (arena first, free lists per class,
// large integers from the memory context).
#include <string>

#include <random>

#include <gtest/gtest.h>

#include "internal/fpc_bigint.h"
#include "numbers/numbers_support.h"

using kt::internal::Big;
using kt::internal::Bigint;
using numtest::Fpc;

namespace {

__extension__ typedef unsigned __int128 u128;

u128 value_of(const Bigint* b) {
    u128 v = 0;
    for (int i = b->wds - 1; i >= 0; i--)
        v = (v << 32) | b->x[i];
    return v;
}

// Word by word: b = (b << 32) + w, from the top word down.
void set(Big& b, u128 v) {
    kt::internal::big_set_u64(b, 0);
    for (int shift = 96; shift >= 0; shift -= 32) {
        kt::internal::big_lshift(b, 32);
        kt::internal::big_multadd(b, 1, static_cast<uint32_t>(v >> shift));
    }
}

u128 random_value(std::mt19937_64& rng, int maxBits) {
    int bits = static_cast<int>(rng() % maxBits) + 1;
    u128 v = (static_cast<u128>(rng()) << 64) | rng();
    return bits >= 128 ? v : v & ((static_cast<u128>(1) << bits) - 1);
}

int bit_length(u128 v) {
    int n = 0;
    for (; v != 0; v >>= 1)
        n++;
    return n;
}

std::string decimal(u128 v) {
    std::string s;
    do {
        s.insert(s.begin(), static_cast<char>('0' + static_cast<int>(v % 10)));
        v /= 10;
    } while (v != 0);
    return s;
}

TEST(FpcBigint, ArithmeticMatchesModel) {
    Fpc fpc;
    std::mt19937_64 rng(2024);
    Big a(&fpc.ctx), c(&fpc.ctx), out(&fpc.ctx);
    for (int i = 0; i < 20000; i++) {
        u128 x = random_value(rng, 128), y = random_value(rng, 64);
        set(a, x);
        ASSERT_EQ(value_of(a.get()), x);
        ASSERT_EQ(kt::internal::big_is_zero(a.get()), x == 0);

        // multadd within 128 bits
        u128 small = random_value(rng, 90);
        uint32_t m = static_cast<uint32_t>(rng()), add = static_cast<uint32_t>(rng());
        set(a, small);
        kt::internal::big_multadd(a, m, add);
        ASSERT_EQ(value_of(a.get()), small * m + add);

        // mult of two 64-bit values
        u128 p = random_value(rng, 64), q = random_value(rng, 64);
        set(a, p);
        set(c, q);
        kt::internal::big_mult(out, a.get(), c.get());
        ASSERT_EQ(value_of(out.get()), p * q);

        // diff and cmp
        set(a, x);
        set(c, y);
        kt::internal::big_diff(out, a.get(), c.get());
        ASSERT_EQ(value_of(out.get()), x >= y ? x - y : y - x);
        ASSERT_EQ(out->sign, x < y ? 1 : 0);
        int cmp = kt::internal::big_cmp(a.get(), c.get());
        ASSERT_EQ(cmp < 0, x < y);
        ASSERT_EQ(cmp == 0, x == y);

        // lshift within 128 bits
        u128 s = random_value(rng, 64);
        int k = static_cast<int>(rng() % 64);
        set(a, s);
        kt::internal::big_lshift(a, k);
        ASSERT_EQ(value_of(a.get()), s << k);
        ASSERT_EQ(kt::internal::big_bit_length(a.get()), bit_length(s << k));

        // decimal digits
        kt::internal::big_set_digits(a, decimal(x).c_str(), static_cast<int>(decimal(x).size()));
        ASSERT_EQ(value_of(a.get()), x);
    }
}

// quorem gives the quotient digit for b < 10 * S once S is normalised.
TEST(FpcBigint, QuoremGivesDigitAndRemainder) {
    Fpc fpc;
    std::mt19937_64 rng(7);
    Big b(&fpc.ctx), s(&fpc.ctx);
    for (int i = 0; i < 20000; i++) {
        u128 divisor = random_value(rng, 90) | 1;
        set(s, divisor);
        int shift = kt::internal::big_quorem_shift(s.get());
        u128 normalised = divisor << shift;
        if ((normalised >> 124) != 0)
            continue;  // keep 10 * S within the model
        kt::internal::big_lshift(s, shift);
        ASSERT_EQ(s->x[s->wds - 1] >> 27, 1u);
        u128 numerator = normalised * (rng() % 10) + random_value(rng, 120) % normalised;
        set(b, numerator);
        int digit = kt::internal::big_quorem(b.get(), s.get());
        ASSERT_EQ(static_cast<u128>(digit), numerator / normalised);
        ASSERT_EQ(value_of(b.get()), numerator % normalised);
    }
}

TEST(FpcBigint, PowersOfFiveAreCachedAndExact) {
    Fpc fpc;
    Big b(&fpc.ctx);
    u128 five = 1;
    for (int k = 0; k <= 55; k++) {
        kt::internal::big_set_u64(b, 3);
        kt::internal::big_pow5mult(b, k);
        ASSERT_EQ(value_of(b.get()), 3 * five) << k;
        five *= 5;
    }
    // The cache holds 5^4, 5^8, 5^16, 5^32.
    const Bigint* p = fpc.ctx.powersOfFive;
    u128 expected = 625;
    int links = 0;
    for (; p != nullptr && links < 4; p = p->next, links++) {
        if (links < 3) {
            EXPECT_EQ(value_of(p), expected);
            expected *= expected;
        }
    }
    EXPECT_EQ(links, 4);
}

// Arena first, then a released integer is reused from its class's list;
// integers above class 7 come from the memory context and go back to it.
TEST(FpcBigint, AllocationOrder) {
    Fpc fpc;
    long before = numtest::live_blocks();
    Bigint* first = kt::internal::bigint_alloc(&fpc.ctx, 2);
    EXPECT_TRUE(kt::internal::bigint_in_arena(&fpc.ctx, first));
    EXPECT_EQ(first->maxwds, 4);
    kt::internal::bigint_free(&fpc.ctx, first);
    EXPECT_EQ(fpc.ctx.freeLists[2], first);
    Bigint* again = kt::internal::bigint_alloc(&fpc.ctx, 2);
    EXPECT_EQ(again, first);
    // Exhaust the arena with class-7 integers (528 bytes each).
    Bigint* held[8];
    for (int i = 0; i < 8; i++)
        held[i] = kt::internal::bigint_alloc(&fpc.ctx, 7);
    EXPECT_FALSE(kt::internal::bigint_in_arena(&fpc.ctx, held[7]));
    EXPECT_GT(numtest::live_blocks(), before);
    Bigint* huge = kt::internal::bigint_alloc(&fpc.ctx, 9);
    EXPECT_EQ(huge->maxwds, 512);
    long withHuge = numtest::live_blocks();
    kt::internal::bigint_free(&fpc.ctx, huge);
    EXPECT_EQ(numtest::live_blocks(), withHuge - 1);
    for (Bigint* b : held)
        kt::internal::bigint_free(&fpc.ctx, b);
    kt::internal::bigint_free(&fpc.ctx, again);
}

}  // namespace
