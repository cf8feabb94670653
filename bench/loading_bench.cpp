// ktLoadLibrary + ktUnloadLibrary against dlopen + dlclose of the same
// library in the same mode, diagnostics off: a library mapped and unmapped
// every time (held=0), and one the process already holds, so that only its
// reference count moves (held=1).
#include <dlfcn.h>

#include <string>

#include <benchmark/benchmark.h>

#include "kt/loading.h"

namespace {

const std::string kLibrary = std::string(KT_DYNLOAD_FIXTURE_DIR) + "/libkt_good.so";
const cx::ustring kLibrary16(kLibrary.begin(), kLibrary.end());

template <class Body>
void LoadLoop(benchmark::State& state, Body body) {
  void* held = state.range(0) != 0 ? dlopen(kLibrary.c_str(), RTLD_NOW) : nullptr;
  for (auto _ : state) {
    if (!body()) {
      state.SkipWithError("load failed");
      break;
    }
  }
  if (held != nullptr) dlclose(held);
}

void BM_Load_dlopen(benchmark::State& state) {
  LoadLoop(state, [] {
    void* handle = dlopen(kLibrary.c_str(), RTLD_NOW | RTLD_GLOBAL);
    benchmark::DoNotOptimize(handle);
    return handle != nullptr && dlclose(handle) == 0;
  });
}

void BM_Load_ktLoadLibrary(benchmark::State& state) {
  LoadLoop(state, [] {
    int status = 0;
    void* handle = ktLoadLibrary(kLibrary.c_str(), &status);
    benchmark::DoNotOptimize(handle);
    return handle != nullptr && ktUnloadLibrary(handle) == 0;
  });
}

void BM_Load_ktLoadLibrary16(benchmark::State& state) {
  LoadLoop(state, [] {
    int status = 0;
    void* handle = ktLoadLibrary(kLibrary16, &status);
    benchmark::DoNotOptimize(handle);
    return handle != nullptr && ktUnloadLibrary(handle) == 0;
  });
}

BENCHMARK(BM_Load_dlopen)->ArgName("held")->Arg(0)->Arg(1);
BENCHMARK(BM_Load_ktLoadLibrary)->ArgName("held")->Arg(0)->Arg(1);
BENCHMARK(BM_Load_ktLoadLibrary16)->ArgName("held")->Arg(0)->Arg(1);

}  // namespace
