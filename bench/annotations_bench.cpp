// Line and column lookups through the line map against the direct scanner
// at random offsets of source-like text (1 KB, 1 MB, 10 MB), and building
// the map (from the C heap, and from warm memory) against one memchr pass
// that counts the LFs of the same text.
#include <cstring>
#include <map>
#include <random>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "kt/annotations.h"
#include "kt/contexts.h"

namespace {

// Lines of 0 to 100 characters, some indented by tabs, most ending in LF
// and some in CR LF: roughly what a source file holds.
const std::string& SourceText(size_t size) {
  static std::map<size_t, std::string> texts;
  std::string& text = texts[size];
  if (!text.empty()) return text;
  std::mt19937_64 rng(size);
  while (text.size() < size) {
    if (rng() % 10 == 0) text.append(1 + rng() % 2, '\t');
    size_t length = rng() % 101;
    for (size_t i = 0; i < length; ++i) text += static_cast<char>(' ' + rng() % 95);
    text += rng() % 10 == 0 ? "\r\n" : "\n";
  }
  text.resize(size);
  return text;
}

std::vector<size_t> RandomOffsets(size_t size) {
  std::mt19937_64 rng(7);
  std::vector<size_t> offsets(4096);
  for (size_t& o : offsets) o = rng() % (size + 1);
  return offsets;
}

void BM_LookupMap(benchmark::State& state) {
  const std::string& text = SourceText(static_cast<size_t>(state.range(0)));
  std::vector<size_t> offsets = RandomOffsets(text.size());
  kt_lineno_map map;
  kt_initialize_lineno_map(&map, ktGetMemoryContext(), text.data(), text.size());
  size_t i = 0, column = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(kt_find_line_and_column(&column, &map, offsets[i++ % offsets.size()]));
    benchmark::DoNotOptimize(column);
  }
  kt_clear_lineno_map(&map);
}

void BM_LookupDirectScan(benchmark::State& state) {
  const std::string& text = SourceText(static_cast<size_t>(state.range(0)));
  std::vector<size_t> offsets = RandomOffsets(text.size());
  size_t i = 0, column = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(kt_line_col(&column, text.data(), offsets[i++ % offsets.size()]));
    benchmark::DoNotOptimize(column);
  }
}

void BM_BuildMap(benchmark::State& state) {
  const std::string& text = SourceText(static_cast<size_t>(state.range(0)));
  for (auto _ : state) {
    kt_lineno_map map;
    kt_initialize_lineno_map(&map, ktGetMemoryContext(), text.data(), text.size());
    benchmark::DoNotOptimize(map.lineStarts);
    kt_clear_lineno_map(&map);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}

// Building into memory that is already mapped: a bump arena over a warm
// buffer, so that the figure is the scan alone, without the page faults of
// first touching a fresh array from the C heap.
struct WarmArena {
  std::vector<uint64_t> words = std::vector<uint64_t>(8 << 20, 1);  // 64 MB, touched
  size_t used = 0;
};
WarmArena& Arena() {
  static WarmArena arena;
  return arena;
}
void* ArenaAllocate(size_t size) {
  WarmArena& a = Arena();
  uint64_t* block = a.words.data() + a.used;
  block[0] = size;  // each block keeps its size in the word before it
  a.used += 1 + (size + 7) / 8;
  return block + 1;
}
void* ArenaReallocate(void* p, size_t size) {
  if (p == nullptr) return ArenaAllocate(size);
  size_t old = static_cast<uint64_t*>(p)[-1];
  if (size <= old) return p;
  void* moved = ArenaAllocate(size);
  std::memcpy(moved, p, old);
  return moved;
}
void ArenaRelease(void*) {}

void BM_BuildMapWarmMemory(benchmark::State& state) {
  const std::string& text = SourceText(static_cast<size_t>(state.range(0)));
  kt_mem_context memory;
  kt_initialize_memory_context(&memory, ktGetErrorContext(), ArenaAllocate, ArenaReallocate,
                               ArenaRelease);
  for (auto _ : state) {
    Arena().used = 0;
    kt_lineno_map map;
    kt_initialize_lineno_map(&map, &memory, text.data(), text.size());
    benchmark::DoNotOptimize(map.lineStarts);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}

// The floor for building: one memchr pass counting the LFs.
void BM_MemchrPass(benchmark::State& state) {
  const std::string& text = SourceText(static_cast<size_t>(state.range(0)));
  for (auto _ : state) {
    size_t lines = 0;
    const char* end = text.data() + text.size();
    for (const char* p = text.data(); (p = static_cast<const char*>(std::memchr(p, '\n', end - p)));
         ++p)
      ++lines;
    benchmark::DoNotOptimize(lines);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}

}  // namespace

BENCHMARK(BM_LookupMap)->Arg(1 << 10)->Arg(1 << 20)->Arg(10 << 20);
BENCHMARK(BM_LookupDirectScan)->Arg(1 << 10)->Arg(1 << 20)->Arg(10 << 20);
BENCHMARK(BM_BuildMap)->Arg(1 << 20)->Arg(10 << 20);
BENCHMARK(BM_BuildMapWarmMemory)->Arg(1 << 20)->Arg(10 << 20);
BENCHMARK(BM_MemchrPass)->Arg(1 << 20)->Arg(10 << 20);
