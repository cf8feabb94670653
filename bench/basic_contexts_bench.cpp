// Cost of the basic-context accessors once the default record exists.
#include <benchmark/benchmark.h>

#include "kt/contexts.h"

namespace {

template <class Accessor>
void RunAccessor(benchmark::State& state, Accessor accessor) {
  ktGetBasicContexts();  // build the default first
  for (auto _ : state)
    benchmark::DoNotOptimize(accessor());
}

void BM_ktGetBasicContexts(benchmark::State& s) { RunAccessor(s, ktGetBasicContexts); }
void BM_ktGetMessageContext(benchmark::State& s) { RunAccessor(s, ktGetMessageContext); }
void BM_ktGetErrorContext(benchmark::State& s) { RunAccessor(s, ktGetErrorContext); }
void BM_ktGetMemoryContext(benchmark::State& s) { RunAccessor(s, ktGetMemoryContext); }
void BM_ktGetNamehashContext(benchmark::State& s) { RunAccessor(s, ktGetNamehashContext); }
void BM_ktGetFpcContext(benchmark::State& s) { RunAccessor(s, ktGetFpcContext); }
void BM_ktGetWarningContext(benchmark::State& s) { RunAccessor(s, ktGetWarningContext); }

}  // namespace

BENCHMARK(BM_ktGetBasicContexts);
BENCHMARK(BM_ktGetMessageContext);
BENCHMARK(BM_ktGetErrorContext);
BENCHMARK(BM_ktGetMemoryContext);
BENCHMARK(BM_ktGetNamehashContext);
BENCHMARK(BM_ktGetFpcContext);
BENCHMARK(BM_ktGetWarningContext);
