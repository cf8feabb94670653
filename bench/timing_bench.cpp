// One tic/toc pair of the start-up timing log: with the log closed (the row
// reaches no file), and open in both layouts (the row formatted, written
// and flushed; the performance layout also reads the CPU time and writes
// the perf log). Peers: the bare clock readings and lock of a pair, and
// the same row written and flushed with fprintf.
#include <stdlib.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <mutex>
#include <string>

#include <benchmark/benchmark.h>

#include "kt/files.h"
#include "kt/timing.h"

namespace {

using Clock = std::chrono::steady_clock;

// A log directory in /tmp for the run, removed after it.
class ScratchLogDirectory {
public:
  ScratchLogDirectory() {
    char pattern[] = "/tmp/kt_timing_bench_XXXXXX";
    path_ = mkdtemp(pattern);
    ktRegisterLogDirectory(path_.c_str());
  }
  ~ScratchLogDirectory() {
    ktRegisterLogDirectory(nullptr);
    std::filesystem::remove_all(path_);
  }

private:
  std::string path_;
};

void BM_TicToc_LogClosed(benchmark::State& state) {
  ktCloseTimingLog();
  for (auto _ : state) {
    ktTicImpl();
    ktTocImpl("stage");
  }
}
BENCHMARK(BM_TicToc_LogClosed);

void TicTocLogOpen(benchmark::State& state, bool perf) {
  ScratchLogDirectory directory;
  Clock::time_point now = Clock::now();
  if (!ktOpenTimingLog(now, now, now, now, perf)) state.SkipWithError("cannot open the log");
  for (auto _ : state) {
    ktTicImpl();
    ktTocImpl("stage");
  }
  ktCloseTimingLog();
}

void BM_TicToc_LogOpen(benchmark::State& state) { TicTocLogOpen(state, false); }
BENCHMARK(BM_TicToc_LogOpen);

void BM_TicToc_LogOpenPerf(benchmark::State& state) { TicTocLogOpen(state, true); }
BENCHMARK(BM_TicToc_LogOpenPerf);

// Peer of the closed log: the two clock readings and the lock of a pair.
void BM_TicToc_PeerClockAndLock(benchmark::State& state) {
  std::mutex mutex;
  for (auto _ : state) {
    Clock::time_point start = Clock::now();
    std::lock_guard<std::mutex> lock(mutex);
    benchmark::DoNotOptimize(Clock::now() - start);
  }
}
BENCHMARK(BM_TicToc_PeerClockAndLock);

// Peer of the open log: the same row through fprintf and fflush.
void BM_TicToc_PeerFprintf(benchmark::State& state) {
  ScratchLogDirectory directory;
  auto [path, file] = ktOpenLogFile("peer_log");
  for (auto _ : state) {
    Clock::time_point start = Clock::now();
    double item = std::chrono::duration<double>(Clock::now() - start).count();
    std::fprintf(file, "%5.2f  %5.2f   %5.2f   %s%-*.*s\n", item, item, 0.0, "", 40, 40, "stage");
    std::fflush(file);
  }
  std::fclose(file);
}
BENCHMARK(BM_TicToc_PeerFprintf);

}  // namespace
