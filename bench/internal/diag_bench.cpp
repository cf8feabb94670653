// A diagnostic record on a disabled channel against no record at all: the
// cost that tracing leaves in every instrumented function when it is off.
#include <benchmark/benchmark.h>

#include "internal/diag.h"

namespace {

using kt::internal::diag::Channel;
using kt::internal::diag::GetChannel;

void BM_DiagDisabledRecord(benchmark::State& state) {
  Channel& channel = GetChannel("bench::disabled");
  channel.SetMask(0);
  int value = 0;
  for (auto _ : state) {
    if (auto record = channel.Open(0x8, "bench", __LINE__, __func__))
      record.stream() << " value=" << value;
    benchmark::DoNotOptimize(++value);
  }
}
BENCHMARK(BM_DiagDisabledRecord);

void BM_Peer_NoRecord(benchmark::State& state) {
  int value = 0;
  for (auto _ : state) benchmark::DoNotOptimize(++value);
}
BENCHMARK(BM_Peer_NoRecord);

}  // namespace
