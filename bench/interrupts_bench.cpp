// The poll of a long-running loop: ktIsInterruptPending() (a call that
// finds the current context's state) against reading the flag byte from
// ktPendingFlagAddress() directly.
#include <benchmark/benchmark.h>

#include "kt/interrupts.h"

namespace {

void BM_InterruptPending_kt(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(ktIsInterruptPending());
}
BENCHMARK(BM_InterruptPending_kt);

void BM_InterruptPending_flagLoad(benchmark::State& state) {
  const volatile unsigned char* flags = ktPendingFlagAddress();
  for (auto _ : state)
    benchmark::DoNotOptimize((__atomic_load_n(flags, __ATOMIC_RELAXED) & KT_PENDING_INTERRUPT_MASK) != 0);
}
BENCHMARK(BM_InterruptPending_flagLoad);

}  // namespace
