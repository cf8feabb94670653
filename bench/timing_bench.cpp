// One tic/toc pair of the start-up timing log: with the log closed (the row
// reaches no file), and open in both layouts (the row formatted, written
// and flushed; the performance layout also reads the CPU time and writes
// the perf log).
#include <stdlib.h>

#include <chrono>
#include <filesystem>
#include <string>

#include <benchmark/benchmark.h>

#include "kt/files.h"
#include "kt/timing.h"

namespace {

void BM_TicToc_LogClosed(benchmark::State& state) {
  ktCloseTimingLog();
  for (auto _ : state) {
    ktTicImpl();
    ktTocImpl("stage");
  }
}
BENCHMARK(BM_TicToc_LogClosed);

// A log in a scratch directory, opened for the run and removed after it.
void TicTocLogOpen(benchmark::State& state, bool perf) {
  char pattern[] = "/tmp/kt_timing_bench_XXXXXX";
  std::string directory = mkdtemp(pattern);
  ktRegisterLogDirectory(directory.c_str());
  auto now = std::chrono::steady_clock::now();
  if (!ktOpenTimingLog(now, now, now, now, perf)) state.SkipWithError("cannot open the log");
  for (auto _ : state) {
    ktTicImpl();
    ktTocImpl("stage");
  }
  ktCloseTimingLog();
  ktRegisterLogDirectory(nullptr);
  std::filesystem::remove_all(directory);
}

void BM_TicToc_LogOpen(benchmark::State& state) { TicTocLogOpen(state, false); }
BENCHMARK(BM_TicToc_LogOpen);

void BM_TicToc_LogOpenPerf(benchmark::State& state) { TicTocLogOpen(state, true); }
BENCHMARK(BM_TicToc_LogOpenPerf);

}  // namespace
