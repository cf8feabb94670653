// Big integers of the decimal conversions: little-endian arrays of 32-bit
// words, allocated from an fpc context (its private arena first, then free
// lists per size class, then its memory context).
//
// Every big integer a conversion uses is owned by a Big handle, so that an
// OUT_OF_MEMORY raised half-way (which unwinds as a C++ exception) returns
// all of them to the context. The arithmetic updates handles in place: when
// a result needs more words, a larger integer replaces the old one.
#ifndef KT_INTERNAL_FPC_BIGINT_H
#define KT_INTERNAL_FPC_BIGINT_H

#include <stddef.h>
#include <stdint.h>

#include "kt/numbers.h"

// The record itself. `x` really holds `maxwds` words (2^k); the storage is
// allocated that long.
struct _fpc_bigint {
    struct _fpc_bigint* next;  // free-list or power-of-five chain link
    int k;                     // size class: capacity 2^k words
    int maxwds;
    int sign;                  // used by differences only
    int wds;                   // words in use; x[wds-1] != 0 unless the value is 0
    uint32_t x[1];
};

namespace kt {
namespace internal {

using Bigint = _fpc_bigint;

Bigint* bigint_alloc(kt_fpc_context* ctx, int k);
void bigint_free(kt_fpc_context* ctx, Bigint* b);
// Whether `b` was carved from the context's private arena.
bool bigint_in_arena(const kt_fpc_context* ctx, const Bigint* b);

// Owns one big integer of a context; frees it when destroyed or reset.
class Big {
public:
    explicit Big(kt_fpc_context* ctx) : ctx_(ctx), b_(nullptr) {}
    ~Big() { bigint_free(ctx_, b_); }
    Big(const Big&) = delete;
    Big& operator=(const Big&) = delete;

    Bigint* get() const { return b_; }
    Bigint* operator->() const { return b_; }
    kt_fpc_context* ctx() const { return ctx_; }
    void reset(Bigint* b) {
        if (b != b_)
            bigint_free(ctx_, b_);
        b_ = b;
    }
    // Gives up ownership without freeing.
    Bigint* release() {
        Bigint* b = b_;
        b_ = nullptr;
        return b;
    }
    void swap(Big& other) {
        Bigint* t = b_;
        b_ = other.b_;
        other.b_ = t;
    }

private:
    kt_fpc_context* ctx_;
    Bigint* b_;
};

// Constructors: each replaces the handle's integer.
void big_set_u64(Big& b, uint64_t value);
void big_copy(Big& dst, const Bigint* src);
// The integer written by `count` decimal digits ('0'-'9').
void big_set_digits(Big& b, const char* digits, int count);

// In place: b = b * m + a.
void big_multadd(Big& b, uint32_t m, uint32_t a);
// In place: b = b * 5^k, b = b * 2^k (k >= 0). pow5 uses the context's cache.
void big_pow5mult(Big& b, int k);
void big_lshift(Big& b, int k);
// out = a * c (out must not alias a or c).
void big_mult(Big& out, const Bigint* a, const Bigint* c);
// out = |a - c|, out->sign = 1 when a < c.
void big_diff(Big& out, const Bigint* a, const Bigint* c);
// Compare magnitudes: negative, zero or positive.
int big_cmp(const Bigint* a, const Bigint* c);
bool big_is_zero(const Bigint* a);
// For b < 10 * S with S's top word at least 2^27 ... (S normalised by the
// caller, see big_shift_for_quorem): returns floor(b / S) and leaves b mod S.
int big_quorem(Bigint* b, const Bigint* S);
// The left shift (0-31) that puts the top bit of S's top word at bit 27,
// which keeps big_quorem's quotient estimate within one of the truth.
int big_quorem_shift(const Bigint* S);
// Number of significant bits.
int big_bit_length(const Bigint* a);

}  // namespace internal
}  // namespace kt

#endif  // KT_INTERNAL_FPC_BIGINT_H
