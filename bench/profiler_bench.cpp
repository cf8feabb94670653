// The profiler's per-event cost with a cheap clock injected: an entry and
// exit pair for a function seen before (called from a function on the
// stack, among 1000 known functions), and a line event in a running
// function.
#include <benchmark/benchmark.h>

#include "kt/contexts.h"
#include "kt/profiler.h"

namespace {

double gTicks = 0;
double CheapClock() { return gTicks += 1e-9; }

char gFunctions[1000];

// A logging profiler that knows every function, with the first running.
ktProfiler* WarmProfiler() {
  ktProfiler* p = ktProfNewProfiler(ktGetMemoryContext(), "bench", nullptr, nullptr, nullptr,
                                    nullptr);
  p->clock = CheapClock;
  ktProfStartLogging(p);
  for (char& f : gFunctions) {
    ktProfLogFunctionEntry(p, &f, nullptr);
    ktProfLogFunctionExit(p, &f, nullptr);
  }
  ktProfLogFunctionEntry(p, &gFunctions[0], nullptr);
  return p;
}

void BM_ProfilerEntryExit(benchmark::State& state) {
  ktProfiler* p = WarmProfiler();
  size_t i = 1;
  for (auto _ : state) {
    ktProfLogFunctionEntry(p, &gFunctions[i], nullptr);
    ktProfLogFunctionExit(p, &gFunctions[i], nullptr);
    i = i == 1 ? 2 : 1;  // two callees: each call finds its link near the front
  }
  ktProfDeleteProfiler(p);
}
BENCHMARK(BM_ProfilerEntryExit);

void BM_ProfilerLineEvent(benchmark::State& state) {
  ktProfiler* p = WarmProfiler();
  int32_t line = 0;
  for (auto _ : state) {
    ktProfLogLineNumberEvent(p, 10 + line);
    line = (line + 1) & 31;
  }
  ktProfDeleteProfiler(p);
}
BENCHMARK(BM_ProfilerLineEvent);

}  // namespace
