// Big-integer arithmetic for the decimal conversions (see fpc_bigint.h).
#include "internal/fpc_bigint.h"

#include <string.h>

namespace kt {
namespace internal {
namespace {

const size_t kHeaderBytes = offsetof(Bigint, x);

// Words are reached through a plain pointer: `x` is declared with one
// element but allocated with 2^k.
inline uint32_t* words(Bigint* b) { return b->x; }
inline const uint32_t* words(const Bigint* b) { return b->x; }

// Storage of a class-k integer, in doubles (the arena's unit).
size_t class_doubles(int k) {
    size_t bytes = kHeaderBytes + (sizeof(uint32_t) << k);
    return (bytes + sizeof(double) - 1) / sizeof(double);
}

int class_for_words(int n) {
    int k = 0;
    while ((1 << k) < n)
        k++;
    return k;
}

Bigint* carve(kt_fpc_context* ctx, int k) {
    if (k > KT_FPC_KMAX)
        return nullptr;
    size_t need = class_doubles(k);
    size_t used = static_cast<size_t>(ctx->arenaNext - ctx->arena);
    if (used + need > KT_FPC_ARENA_DOUBLES)
        return nullptr;
    Bigint* b = reinterpret_cast<Bigint*>(ctx->arenaNext);
    ctx->arenaNext += need;
    return b;
}

// Makes sure `b` holds at least `n` words, keeping its value.
void reserve(Big& b, int n) {
    if (b.get() != nullptr && b->maxwds >= n)
        return;
    Bigint* grown = bigint_alloc(b.ctx(), class_for_words(n));
    if (b.get() != nullptr) {
        grown->sign = b->sign;
        grown->wds = b->wds;
        memcpy(words(grown), words(b.get()), sizeof(uint32_t) * b->wds);
    }
    b.reset(grown);
}

void trim(Bigint* b) {
    while (b->wds > 0 && words(b)[b->wds - 1] == 0)
        b->wds--;
}

// The cached chain 5^4, 5^8, 5^16, ...: returns the first link, creating it.
Bigint* first_power_of_five(kt_fpc_context* ctx) {
    if (ctx->powersOfFive == nullptr) {
        Bigint* p = bigint_alloc(ctx, 0);
        words(p)[0] = 625;
        p->wds = 1;
        p->next = nullptr;
        ctx->powersOfFive = p;
    }
    return ctx->powersOfFive;
}

Bigint* next_power_of_five(kt_fpc_context* ctx, Bigint* p) {
    if (p->next == nullptr) {
        Big square(ctx);
        big_mult(square, p, p);
        square->next = nullptr;
        p->next = square.release();  // the chain owns it from now on
    }
    return p->next;
}

}  // namespace

Bigint* bigint_alloc(kt_fpc_context* ctx, int k) {
    Bigint* b = nullptr;
    if (k <= KT_FPC_KMAX && ctx->freeLists[k] != nullptr) {
        b = ctx->freeLists[k];
        ctx->freeLists[k] = b->next;
    } else {
        b = carve(ctx, k);
        if (b == nullptr)
            b = static_cast<Bigint*>(
                kt_mem_alloc(ctx->memoryContext, class_doubles(k) * sizeof(double)));
        b->k = k;
        b->maxwds = 1 << k;
    }
    b->next = nullptr;
    b->sign = 0;
    b->wds = 0;
    return b;
}

void bigint_free(kt_fpc_context* ctx, Bigint* b) {
    if (b == nullptr)
        return;
    if (b->k > KT_FPC_KMAX) {
        kt_mem_free(ctx->memoryContext, b);
        return;
    }
    b->next = ctx->freeLists[b->k];
    ctx->freeLists[b->k] = b;
}

bool bigint_in_arena(const kt_fpc_context* ctx, const Bigint* b) {
    const char* p = reinterpret_cast<const char*>(b);
    const char* start = reinterpret_cast<const char*>(ctx->arena);
    return p >= start && p < start + sizeof ctx->arena;
}

void big_set_u64(Big& b, uint64_t value) {
    reserve(b, 2);
    words(b.get())[0] = static_cast<uint32_t>(value);
    words(b.get())[1] = static_cast<uint32_t>(value >> 32);
    b->wds = 2;
    b->sign = 0;
    trim(b.get());
}

void big_copy(Big& dst, const Bigint* src) {
    Bigint* copy = bigint_alloc(dst.ctx(), class_for_words(src->wds));
    copy->sign = src->sign;
    copy->wds = src->wds;
    memcpy(words(copy), words(src), sizeof(uint32_t) * src->wds);
    dst.reset(copy);
}

void big_set_digits(Big& b, const char* digits, int count) {
    // Nine digits at a time: 10^9 < 2^32.
    big_set_u64(b, 0);
    reserve(b, count / 9 + 2);
    int i = 0;
    while (i < count) {
        uint32_t chunk = 0;
        uint32_t scale = 1;
        for (int j = 0; j < 9 && i < count; j++, i++) {
            chunk = chunk * 10 + static_cast<uint32_t>(digits[i] - '0');
            scale *= 10;
        }
        big_multadd(b, scale, chunk);
    }
}

void big_multadd(Big& b, uint32_t m, uint32_t a) {
    Bigint* p = b.get();
    uint64_t carry = a;
    uint32_t* x = words(p);
    for (int i = 0; i < p->wds; i++) {
        uint64_t t = static_cast<uint64_t>(x[i]) * m + carry;
        x[i] = static_cast<uint32_t>(t);
        carry = t >> 32;
    }
    if (carry == 0) {
        trim(p);
        return;
    }
    reserve(b, b->wds + 1);
    words(b.get())[b->wds] = static_cast<uint32_t>(carry);
    b->wds++;
}

void big_mult(Big& out, const Bigint* a, const Bigint* c) {
    if (a->wds < c->wds) {
        const Bigint* t = a;
        a = c;
        c = t;
    }
    int n = a->wds + c->wds;
    Bigint* r = bigint_alloc(out.ctx(), class_for_words(n));
    uint32_t* z = words(r);
    memset(z, 0, sizeof(uint32_t) * n);
    const uint32_t* xa = words(a);
    const uint32_t* xc = words(c);
    for (int j = 0; j < c->wds; j++) {
        uint64_t y = xc[j];
        if (y == 0)
            continue;
        uint64_t carry = 0;
        for (int i = 0; i < a->wds; i++) {
            uint64_t t = xa[i] * y + z[i + j] + carry;
            z[i + j] = static_cast<uint32_t>(t);
            carry = t >> 32;
        }
        z[j + a->wds] = static_cast<uint32_t>(carry);
    }
    r->wds = n;
    trim(r);
    out.reset(r);
}

void big_pow5mult(Big& b, int k) {
    static const uint32_t kSmall[3] = {5, 25, 125};
    if ((k & 3) != 0)
        big_multadd(b, kSmall[(k & 3) - 1], 0);
    k >>= 2;
    if (k == 0)
        return;
    kt_fpc_context* ctx = b.ctx();
    Bigint* p5 = first_power_of_five(ctx);
    Big product(ctx);
    for (;;) {
        if (k & 1) {
            big_mult(product, b.get(), p5);
            b.swap(product);
        }
        k >>= 1;
        if (k == 0)
            break;
        p5 = next_power_of_five(ctx, p5);
    }
}

void big_lshift(Big& b, int k) {
    if (k <= 0 || big_is_zero(b.get()))
        return;
    int wordShift = k >> 5;
    int bitShift = k & 31;
    int oldWds = b->wds;
    reserve(b, oldWds + wordShift + 1);
    uint32_t* x = words(b.get());
    x[oldWds + wordShift] = 0;
    if (bitShift == 0) {
        memmove(x + wordShift, x, sizeof(uint32_t) * oldWds);
    } else {
        for (int i = oldWds - 1; i >= 0; i--) {
            x[i + wordShift + 1] |= x[i] >> (32 - bitShift);
            x[i + wordShift] = x[i] << bitShift;
        }
    }
    memset(x, 0, sizeof(uint32_t) * wordShift);
    b->wds = oldWds + wordShift + 1;
    trim(b.get());
}

int big_cmp(const Bigint* a, const Bigint* c) {
    if (a->wds != c->wds)
        return a->wds < c->wds ? -1 : 1;
    const uint32_t* xa = words(a);
    const uint32_t* xc = words(c);
    for (int i = a->wds - 1; i >= 0; i--) {
        if (xa[i] != xc[i])
            return xa[i] < xc[i] ? -1 : 1;
    }
    return 0;
}

bool big_is_zero(const Bigint* a) { return a->wds == 0; }

void big_diff(Big& out, const Bigint* a, const Bigint* c) {
    int sign = 0;
    if (big_cmp(a, c) < 0) {
        const Bigint* t = a;
        a = c;
        c = t;
        sign = 1;
    }
    Bigint* r = bigint_alloc(out.ctx(), class_for_words(a->wds > 0 ? a->wds : 1));
    const uint32_t* xa = words(a);
    const uint32_t* xc = words(c);
    uint32_t* z = words(r);
    int64_t borrow = 0;
    for (int i = 0; i < a->wds; i++) {
        int64_t t = static_cast<int64_t>(xa[i]) - (i < c->wds ? xc[i] : 0) - borrow;
        borrow = t < 0 ? 1 : 0;
        z[i] = static_cast<uint32_t>(t);
    }
    r->wds = a->wds;
    r->sign = sign;
    trim(r);
    out.reset(r);
}

int big_quorem_shift(const Bigint* S) {
    uint32_t top = words(S)[S->wds - 1];
    int lead = __builtin_clz(top);  // top != 0 for a normalised integer
    return (lead - 4) & 31;
}

int big_quorem(Bigint* b, const Bigint* S) {
    int n = S->wds;
    if (b->wds < n)
        return 0;
    uint32_t* xb = words(b);
    const uint32_t* xs = words(S);
    // Under-estimate from the top words, then correct by subtraction.
    uint32_t q = xb[n - 1] / (xs[n - 1] + 1);
    if (b->wds > n)
        q = static_cast<uint32_t>(
            ((static_cast<uint64_t>(xb[n]) << 32) | xb[n - 1]) / (static_cast<uint64_t>(xs[n - 1]) + 1));
    if (q != 0) {
        uint64_t carry = 0;
        int64_t borrow = 0;
        for (int i = 0; i < b->wds; i++) {
            uint64_t product = (i < n ? static_cast<uint64_t>(xs[i]) * q : 0) + carry;
            carry = product >> 32;
            int64_t t = static_cast<int64_t>(xb[i]) - static_cast<uint32_t>(product) - borrow;
            borrow = t < 0 ? 1 : 0;
            xb[i] = static_cast<uint32_t>(t);
        }
        trim(b);
    }
    while (big_cmp(b, S) >= 0) {
        int64_t borrow = 0;
        for (int i = 0; i < b->wds; i++) {
            int64_t t = static_cast<int64_t>(xb[i]) - (i < n ? xs[i] : 0) - borrow;
            borrow = t < 0 ? 1 : 0;
            xb[i] = static_cast<uint32_t>(t);
        }
        trim(b);
        q++;
    }
    return static_cast<int>(q);
}

int big_bit_length(const Bigint* a) {
    if (a->wds == 0)
        return 0;
    return 32 * (a->wds - 1) + (32 - __builtin_clz(words(a)[a->wds - 1]));
}

}  // namespace internal
}  // namespace kt
