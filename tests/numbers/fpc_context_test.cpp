// The fpc context's life cycle: the arena is used first, clearing returns
// every block to the memory context, exhaustion is raised without leaking,
// and threads with their own contexts agree.
#include <math.h>
#include <stdio.h>

#include <random>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "kt/contexts.h"
#include "numbers/numbers_support.h"

using numtest::Fpc;

namespace {

// Conversions that need big integers of every size class and beyond.
void heavy_work(kt_fpc_context* ctx) {
    char buf[1200];
    kt_dtoa(ctx, 5e-324, buf, sizeof buf, 2, 800, nullptr, nullptr, nullptr);
    kt_dtoa(ctx, 1.7976931348623157e308, buf, sizeof buf, 1, 0, nullptr, nullptr, nullptr);
    kt_dtoa(ctx, 2.2250738585072014e-308, buf, sizeof buf, 3, 1000, nullptr, nullptr, nullptr);
    std::string digits = "1." + std::string(700, '3') + "e-300";
    kt_strtod(ctx, digits.c_str(), nullptr, nullptr);
    std::string tiny = "2.47032822920623272088284396434110686182529901307162382212792841250337753635104375932649918180817996189898282347722858865463328355177969898199387398005390939063150356595155702263922908583924491051844359318028499365361525003193704576782492193656236698636584807570015857692699037063119282795585513329278343384093519780155312465972635795746227664652728272200563740064854999770965994704540208281662262378573934507363390079677619305775067401763246736009689513405355374585166611342237666786041621596804619144672918403005300575308490487653917113865916462395249126236538818796362393732804238910186723484976682350898633885879256283027559956575244555072551893136908362547791869486679949683240497058210285131854513962138377228261454376934125320985913276672363281255e-324";
    kt_strtod(ctx, tiny.c_str(), nullptr, nullptr);
}

// Small conversions live entirely in the private arena. Clearing after
// heavy ones returns every block taken from the memory context (the cached
// powers of five too) and zeroes the record, which can be initialised again.
TEST(FpcContext, ArenaFirstThenClearFreesEverythingAndZeroes) {
    kttest::Contexts contexts;
    kt_fpc_context ctx, zero;
    memset(&ctx, 0x5a, sizeof ctx);
    memset(&zero, 0, sizeof zero);
    kt_initialize_fpc_context(&ctx, &contexts.memory);
    EXPECT_EQ(ctx.memoryContext, &contexts.memory);
    EXPECT_EQ(ctx.arenaNext, ctx.arena);
    EXPECT_EQ(memcmp(&ctx.freeLists, &zero.freeLists, sizeof ctx.freeLists + sizeof ctx.powersOfFive), 0);
    EXPECT_EQ(sizeof ctx.arena, 2304u);
    char buf[32];
    for (double x : {1.5, 0.1, 123456.789, 1e22, 3.0e-5}) {
        kt_dtoa(&ctx, x, buf, sizeof buf, 2, 17, nullptr, nullptr, nullptr);
        kt_strtod(&ctx, "0.1000000000000000055511151231257827", nullptr, nullptr);
    }
    EXPECT_EQ(contexts.LiveBlocks(), 0u);
    EXPECT_GT(ctx.arenaNext, ctx.arena);
    for (int round = 0; round < 2; round++) {
        heavy_work(&ctx);
        EXPECT_GT(contexts.LiveBlocks(), 0u);  // beyond the arena
        kt_clear_fpc_context(&ctx);
        EXPECT_EQ(contexts.LiveBlocks(), 0u);
        EXPECT_EQ(memcmp(&ctx, &zero, sizeof ctx), 0);
        kt_initialize_fpc_context(&ctx, &contexts.memory);
    }
    kt_fpc_context* heap = kt_new_fpc_context(&contexts.memory);
    EXPECT_EQ(heap->memoryContext, &contexts.memory);
    heavy_work(heap);
    kt_delete_fpc_context(heap);
    EXPECT_EQ(contexts.LiveBlocks(), 0u);
    EXPECT_EQ(contexts.BadFrees(), 0);
}

// Running out of memory at any allocation raises OUT_OF_MEMORY through the
// memory context; big integers held by the interrupted conversion go back
// to the context, which stays usable and frees everything when cleared.
TEST(FpcContext, OutOfMemoryIsRaisedWithoutLeaking) {
    kttest::Contexts contexts;
    int raised = 0;
    for (long failAt = 0; failAt < 60; failAt++) {
        kt_fpc_context ctx;
        kt_initialize_fpc_context(&ctx, &contexts.memory);
        kttest::Ledger().failAfter = failAt;
        int code = contexts.Catch([&ctx] { heavy_work(&ctx); });
        kttest::Ledger().failAfter = -1;
        EXPECT_TRUE(code == 0 || code == KT_OUT_OF_MEMORY) << code;
        raised += code != 0;
        char buf[32];
        EXPECT_STREQ(kt_g_fmt(&ctx, 0.1, buf, sizeof buf), ".1");
        EXPECT_EQ(kt_strtod(&ctx, "2.5e-300", nullptr, nullptr), 2.5e-300);
        kt_clear_fpc_context(&ctx);
        EXPECT_EQ(contexts.LiveBlocks(), 0u) << "failing at allocation " << failAt;
    }
    EXPECT_GT(raised, 0);
}

// Two threads, each with its own context, produce exactly the results of
// a single-threaded run.
TEST(FpcContext, ConcurrentContextsAgree) {
    std::mt19937_64 rng(8);
    std::vector<double> values;
    for (int i = 0; i < 4000; i++)
        values.push_back(numtest::interesting_double(rng));
    auto convert_all = [&values](std::vector<std::string>* out) {
        kt_fpc_context fpc;
        kt_initialize_fpc_context(&fpc, ktGetMemoryContext());
        char text[64], digits[64];
        for (double x : values) {
            kt_g_fmt(&fpc, x, text, sizeof text);
            double back = kt_strtod(&fpc, text, nullptr, nullptr);
            kt_dtoa(&fpc, x, digits, sizeof digits, 2, 12, nullptr, nullptr, nullptr);
            out->push_back(std::string(text) + ' ' + digits + (back == x ? " ok" : " bad"));
        }
        kt_clear_fpc_context(&fpc);
    };
    std::vector<std::string> reference, first, second;
    convert_all(&reference);
    std::thread a(convert_all, &first);
    std::thread b(convert_all, &second);
    a.join();
    b.join();
    EXPECT_EQ(first, reference);
    EXPECT_EQ(second, reference);
    // The basic contexts carry a ready one bound to their memory context.
    kt_fpc_context* basic = ktGetFpcContext();
    EXPECT_EQ(basic->memoryContext, ktGetMemoryContext());
    char buf[32];
    EXPECT_STREQ(kt_g_fmt(basic, 1e7, buf, sizeof buf), "1e+07");
    EXPECT_EQ(kt_strtod(basic, "1e+07", nullptr, nullptr), 1e7);
}

}  // namespace
