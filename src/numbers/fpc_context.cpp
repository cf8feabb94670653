// The fpc context: life cycle of the state of the decimal conversions.
#include <string.h>

#include "internal/fpc_bigint.h"
#include "kt/numbers.h"

using kt::internal::Bigint;

namespace {

void free_unless_in_arena(kt_fpc_context* ctx, Bigint* b) {
    if (!kt::internal::bigint_in_arena(ctx, b))
        kt_mem_free(ctx->memoryContext, b);
}

}  // namespace

void kt_initialize_fpc_context(kt_fpc_context* ctx, kt_mem_context* memctx) {
    memset(ctx, 0, sizeof *ctx);
    ctx->memoryContext = memctx;
    ctx->arenaNext = ctx->arena;
}

kt_fpc_context* kt_new_fpc_context(kt_mem_context* memctx) {
    kt_fpc_context* ctx = static_cast<kt_fpc_context*>(kt_mem_alloc(memctx, sizeof *ctx));
    try {
        kt_initialize_fpc_context(ctx, memctx);
    } catch (...) {
        kt_mem_free(memctx, ctx);
        throw;
    }
    return ctx;
}

void kt_clear_fpc_context(kt_fpc_context* ctx) {
    for (int k = 0; k <= KT_FPC_KMAX; k++) {
        Bigint* b = ctx->freeLists[k];
        while (b != nullptr) {
            Bigint* next = b->next;
            free_unless_in_arena(ctx, b);
            b = next;
        }
    }
    // The cached powers of five are not on the free lists; release them
    // too, so that a cleared context owns nothing.
    Bigint* p = ctx->powersOfFive;
    while (p != nullptr) {
        Bigint* next = p->next;
        if (p->k > KT_FPC_KMAX || !kt::internal::bigint_in_arena(ctx, p))
            kt_mem_free(ctx->memoryContext, p);
        p = next;
    }
    memset(ctx, 0, sizeof *ctx);
}

void kt_delete_fpc_context(kt_fpc_context* ctx) {
    if (ctx == nullptr)
        return;
    kt_mem_context* memctx = ctx->memoryContext;
    kt_clear_fpc_context(ctx);
    kt_mem_free(memctx, ctx);
}
