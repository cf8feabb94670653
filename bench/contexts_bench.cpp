// Runtime core against the C library doing the same work:
//   ktPrintf into a counting hook  vs  vsnprintf into a buffer + the hook;
//   kt_sprintm of a two-hole message  vs  snprintf of the same text;
//   kt_mem_alloc/kt_mem_free  vs  malloc/free.
#include <benchmark/benchmark.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "kt/contexts.h"
#include "kt/errors.h"
#include "kt/memory.h"
#include "kt/messages.h"
#include "kt/output.h"

namespace {

long g_bytes = 0;
int CountingHook(const char* text, void*) {
  g_bytes += static_cast<long>(text[0]);
  return 0;
}

// The peer: what a caller without libkt would write.
__attribute__((format(printf, 1, 2))) int PeerPrintf(const char* format, ...) {
  char buffer[8192];
  va_list args;
  va_start(args, format);
  int n = std::vsnprintf(buffer, sizeof buffer, format, args);
  va_end(args);
  CountingHook(buffer, nullptr);
  return n;
}

struct HookScope {
  ktVprintfFunction o;
  void* d;
  ktPrintfHotFunction h;
  HookScope() {
    ktGetVprintfCallbacks(&o, &d, &h);
    ktSetVprintfCallbacks(CountingHook, nullptr, nullptr);
  }
  ~HookScope() { ktSetVprintfCallbacks(o, d, h); }
};

void BM_ktPrintf_Short(benchmark::State& state) {
  HookScope scope;
  for (auto _ : state) benchmark::DoNotOptimize(ktPrintf("%s: %d items\n", "queue", 42));
}
BENCHMARK(BM_ktPrintf_Short);

void BM_Peer_vsnprintf_Short(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(PeerPrintf("%s: %d items\n", "queue", 42));
}
BENCHMARK(BM_Peer_vsnprintf_Short);

const std::string& Text4K() {
  static const std::string text(4096, 'x');
  return text;
}

void BM_ktPrintf_4KiB(benchmark::State& state) {
  HookScope scope;
  const char* t = Text4K().c_str();
  for (auto _ : state) benchmark::DoNotOptimize(ktPrintf("%s", t));
}
BENCHMARK(BM_ktPrintf_4KiB);

void BM_Peer_vsnprintf_4KiB(benchmark::State& state) {
  const char* t = Text4K().c_str();
  for (auto _ : state) benchmark::DoNotOptimize(PeerPrintf("%s", t));
}
BENCHMARK(BM_Peer_vsnprintf_4KiB);

// A message context with one two-hole message.
const int kCodes[] = {(50 << 16) | 1, -1};
const char* const kMnemonics[] = {"FILE_LINE"};
const char* const kTexts[] = {"Cannot open file \"%s\" at line %d."};
const kt_message_table kTable = {1, 50, kCodes, kMnemonics, kTexts, "bench"};

kt_message_context* BenchMessages() {
  static kt_message_context* mc = [] {
    static kt_message_context c;
    int status;
    kt_initialize_message_context(&status, &c, ktMalloc, ktRealloc);
    kt_add_primary_message_table(&status, &c, &kTable, ktRealloc);
    return &c;
  }();
  return mc;
}

void BM_kt_sprintm_TwoHoles(benchmark::State& state) {
  kt_message_context* mc = BenchMessages();
  char buffer[256];
  for (auto _ : state)
    benchmark::DoNotOptimize(kt_sprintm(mc, buffer, sizeof buffer, (50 << 16) | 1, "data.csv", 118));
}
BENCHMARK(BM_kt_sprintm_TwoHoles);

void BM_Peer_snprintf_TwoHoles(benchmark::State& state) {
  char buffer[256];
  for (auto _ : state)
    benchmark::DoNotOptimize(std::snprintf(buffer, sizeof buffer,
                                           "Cannot open file \"%s\" at line %d.", "data.csv", 118));
}
BENCHMARK(BM_Peer_snprintf_TwoHoles);

// The default basic contexts' memory context: ktMalloc and ktFree.
kt_mem_context* BenchMemory() { return ktGetMemoryContext(); }

void BM_kt_mem_alloc_free(benchmark::State& state) {
  kt_mem_context* mem = BenchMemory();
  size_t size = static_cast<size_t>(state.range(0));
  for (auto _ : state) {
    void* p = kt_mem_alloc(mem, size);
    benchmark::DoNotOptimize(p);
    kt_mem_free(mem, p);
  }
}
BENCHMARK(BM_kt_mem_alloc_free)->Arg(16)->Arg(256)->Arg(4096);

void BM_Peer_malloc_free(benchmark::State& state) {
  size_t size = static_cast<size_t>(state.range(0));
  for (auto _ : state) {
    void* p = std::malloc(size);
    benchmark::DoNotOptimize(p);
    std::free(p);
  }
}
BENCHMARK(BM_Peer_malloc_free)->Arg(16)->Arg(256)->Arg(4096);

}  // namespace
