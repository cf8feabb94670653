// The load-failure diagnosis of a library with 30 dependencies (which also
// need each other) and one missing: wall time, commands run and libraries
// probed, against ldd listing the same file.
#include <string>

#include <benchmark/benchmark.h>

#include "dynload/dynload.h"
#include "internal/process_runner.h"
#include "kt/loading.h"

namespace {

const std::string kFan = std::string(KT_DYNLOAD_FIXTURE_DIR) + "/libkt_fan.so";

void BM_Diagnose_Fan30(benchmark::State& state) {
  const cx::ustring path(kFan.begin(), kFan.end());
  for (auto _ : state) {
    try {
      kt::internal::dynload::DiagnoseLoadFailure(path, u"bench");
    } catch (const MissingDependency&) {
    }
  }
  kt::internal::dynload::DiagnosisStats stats = kt::internal::dynload::LastDiagnosisStats();
  state.counters["spawns"] = stats.spawns;
  state.counters["libraries"] = stats.records;
}

void BM_Ldd_Fan30(benchmark::State& state) {
  std::string out, err;
  for (auto _ : state)
    bedrock::core::process::run("ldd " + bedrock::core::process::shell_quote(kFan), out, err);
  state.counters["spawns"] = 1;
}

BENCHMARK(BM_Diagnose_Fan30)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_Ldd_Fan30)->Unit(benchmark::kMillisecond)->Iterations(10);

}  // namespace
