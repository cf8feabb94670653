// Containers and hashing, side by side with their standard-library peers:
// kt_ghash vs std::unordered_map, the hash family vs a one-lookup-per-byte
// CRC loop, kt_namehash vs interning in std::unordered_set<std::string>,
// kt_fsi vs std::set<int>, kt_qsort vs qsort.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <random>
#include <set>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include <benchmark/benchmark.h>

#include "kt/containers.h"
#include "kt/errors.h"
#include "kt/hashing.h"
#include "kt/memory.h"
#include "kt/messages.h"

namespace {

// ---- allocation accounting ----------------------------------------------------

size_t g_bytes = 0;  // bytes requested and not yet released, both sides

void* CountedMalloc(size_t n) {
  void* p = std::malloc(n + 16);
  if (p == nullptr)
    return nullptr;
  std::memcpy(p, &n, sizeof n);
  g_bytes += n;
  return static_cast<char*>(p) + 16;
}

void CountedFree(void* p) {
  if (p == nullptr)
    return;
  char* base = static_cast<char*>(p) - 16;
  size_t n;
  std::memcpy(&n, base, sizeof n);
  g_bytes -= n;
  std::free(base);
}

void* CountedRealloc(void* p, size_t n) {
  if (p == nullptr)
    return CountedMalloc(n);
  char* base = static_cast<char*>(p) - 16;
  size_t old;
  std::memcpy(&old, base, sizeof old);
  char* fresh = static_cast<char*>(std::realloc(base, n + 16));
  if (fresh == nullptr)
    return nullptr;
  std::memcpy(fresh, &n, sizeof n);
  g_bytes += n - old;
  return fresh + 16;
}

template <typename T>
struct CountingAllocator {
  using value_type = T;
  CountingAllocator() = default;
  template <typename U>
  CountingAllocator(const CountingAllocator<U>&) {}
  T* allocate(size_t n) { return static_cast<T*>(CountedMalloc(n * sizeof(T))); }
  void deallocate(T* p, size_t) { CountedFree(p); }
  bool operator==(const CountingAllocator&) const { return true; }
  bool operator!=(const CountingAllocator&) const { return false; }
};

struct Contexts {
  kt_message_context messages{};
  kt_error_context errors{};
  kt_mem_context memory{};
  Contexts() {
    int status = 0;
    kt_initialize_message_context(&status, &messages, std::malloc, std::realloc);
    kt_initialize_error_context(&status, &errors, &messages, nullptr, nullptr);
    kt_initialize_memory_context(&memory, &errors, CountedMalloc, CountedRealloc, CountedFree);
  }
};

kt_mem_context* Memory() {
  static Contexts* contexts = new Contexts;
  return &contexts->memory;
}

// ---- keys ----------------------------------------------------------------------

const std::vector<uint64_t>& IntKeys(size_t n, unsigned salt) {
  static std::unordered_map<uint64_t, std::vector<uint64_t>> cache;
  auto& keys = cache[n * 4 + salt];
  if (keys.empty()) {
    std::mt19937_64 rng(n * 7919 + salt);
    keys.resize(n);
    for (auto& k : keys)
      k = rng() | 1;  // odd: the "missing" set uses even keys
    if (salt == 1)
      for (auto& k : keys)
        k &= ~uint64_t{1};
  }
  return keys;
}

const std::vector<std::string>& StringKeys(size_t n, unsigned salt) {
  static std::unordered_map<uint64_t, std::vector<std::string>> cache;
  auto& keys = cache[n * 4 + salt];
  if (keys.empty()) {
    std::mt19937_64 rng(n * 104729 + salt);
    keys.resize(n);
    for (auto& k : keys) {
      k.resize(8 + rng() % 33);  // 8 to 40 bytes
      for (char& c : k)
        c = static_cast<char>('a' + rng() % 26);
      k[0] = salt ? 'A' : 'a';  // disjoint sets for failed finds
    }
  }
  return keys;
}

// ---- kt_ghash vs std::unordered_map, 8-byte integer keys ----------------------------

kt_ghash_table* NewIntTable() {
  return kt_new_ghash_table(Memory(), nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, 8, 8,
                            8, 16, nullptr, 7, 0.5f, 1.0f);
}

using IntMap = std::unordered_map<uint64_t, uint64_t, std::hash<uint64_t>, std::equal_to<uint64_t>,
                                  CountingAllocator<std::pair<const uint64_t, uint64_t>>>;

void BM_GhashIntInsert(benchmark::State& state) {
  const auto& keys = IntKeys(static_cast<size_t>(state.range(0)), 0);
  double bytes = 0;
  for (auto _ : state) {
    size_t base = g_bytes;
    kt_ghash_table* t = NewIntTable();
    for (uint64_t k : keys)
      kt_ghash_insert(t, &k, &k);
    bytes = static_cast<double>(g_bytes - base) / static_cast<double>(keys.size());
    kt_delete_ghash_table(t);
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * keys.size()));
  state.counters["bytes_per_elem"] = bytes;
}

void BM_StdIntInsert(benchmark::State& state) {
  const auto& keys = IntKeys(static_cast<size_t>(state.range(0)), 0);
  double bytes = 0;
  for (auto _ : state) {
    size_t base = g_bytes;
    IntMap* m = new IntMap;
    for (uint64_t k : keys)
      m->emplace(k, k);
    bytes = static_cast<double>(g_bytes - base) / static_cast<double>(keys.size());
    delete m;
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * keys.size()));
  state.counters["bytes_per_elem"] = bytes;
}

template <bool kHit>
void BM_GhashIntFind(benchmark::State& state) {
  size_t n = static_cast<size_t>(state.range(0));
  kt_ghash_table* t = NewIntTable();
  for (uint64_t k : IntKeys(n, 0))
    kt_ghash_insert(t, &k, &k);
  std::vector<uint64_t> probes = IntKeys(n, kHit ? 0 : 1);
  std::shuffle(probes.begin(), probes.end(), std::mt19937(1));
  for (auto _ : state) {
    uint64_t sum = 0;
    for (uint64_t k : probes)
      sum += kt_ghash_query_data(t, &k) != nullptr;
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * n));
  kt_delete_ghash_table(t);
}

template <bool kHit>
void BM_StdIntFind(benchmark::State& state) {
  size_t n = static_cast<size_t>(state.range(0));
  IntMap m;
  for (uint64_t k : IntKeys(n, 0))
    m.emplace(k, k);
  std::vector<uint64_t> probes = IntKeys(n, kHit ? 0 : 1);
  std::shuffle(probes.begin(), probes.end(), std::mt19937(1));
  for (auto _ : state) {
    uint64_t sum = 0;
    for (uint64_t k : probes)
      sum += m.find(k) != m.end();
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * n));
}

void BM_GhashIntRemove(benchmark::State& state) {
  const auto& keys = IntKeys(static_cast<size_t>(state.range(0)), 0);
  for (auto _ : state) {
    state.PauseTiming();
    kt_ghash_table* t = NewIntTable();
    for (uint64_t k : keys)
      kt_ghash_insert(t, &k, &k);
    state.ResumeTiming();
    for (uint64_t k : keys)
      kt_ghash_remove_element(t, &k);
    state.PauseTiming();
    kt_delete_ghash_table(t);
    state.ResumeTiming();
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * keys.size()));
}

void BM_StdIntRemove(benchmark::State& state) {
  const auto& keys = IntKeys(static_cast<size_t>(state.range(0)), 0);
  for (auto _ : state) {
    state.PauseTiming();
    IntMap* m = new IntMap;
    for (uint64_t k : keys)
      m->emplace(k, k);
    state.ResumeTiming();
    for (uint64_t k : keys)
      m->erase(k);
    state.PauseTiming();
    delete m;
    state.ResumeTiming();
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * keys.size()));
}

// ---- string keys (8 to 40 bytes) ---------------------------------------------------

kt_ghash_table* NewStringTable() {
  return kt_new_ghash_table(Memory(), kt_ghash_string_key, kt_ghash_compare_string_keys,
                            kt_ghash_copy_string_key, kt_ghash_delete_string_key, nullptr,
                            nullptr, 8, 8, 8, 16, Memory(), 7, 0.5f, 1.0f);
}

using CountedString = std::basic_string<char, std::char_traits<char>, CountingAllocator<char>>;
struct CountedStringHash {
  size_t operator()(const CountedString& s) const {
    return std::hash<std::string_view>()(std::string_view(s.data(), s.size()));
  }
};
using StringMap =
    std::unordered_map<CountedString, uint64_t, CountedStringHash, std::equal_to<CountedString>,
                       CountingAllocator<std::pair<const CountedString, uint64_t>>>;

std::vector<CountedString> Counted(const std::vector<std::string>& keys) {
  std::vector<CountedString> out;
  for (const auto& k : keys)
    out.emplace_back(k.data(), k.size());
  return out;
}

void BM_GhashStringInsert(benchmark::State& state) {
  const auto& keys = StringKeys(static_cast<size_t>(state.range(0)), 0);
  double bytes = 0;
  for (auto _ : state) {
    size_t base = g_bytes;
    kt_ghash_table* t = NewStringTable();
    uint64_t v = 0;
    for (const auto& k : keys) {
      const char* p = k.c_str();
      kt_ghash_insert(t, &p, &v);
    }
    bytes = static_cast<double>(g_bytes - base) / static_cast<double>(keys.size());
    kt_delete_ghash_table(t);
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * keys.size()));
  state.counters["bytes_per_elem"] = bytes;
}

void BM_StdStringInsert(benchmark::State& state) {
  const auto keys = Counted(StringKeys(static_cast<size_t>(state.range(0)), 0));
  double bytes = 0;
  for (auto _ : state) {
    size_t base = g_bytes;
    StringMap* m = new StringMap;
    for (const auto& k : keys)
      m->emplace(k, 0);
    bytes = static_cast<double>(g_bytes - base) / static_cast<double>(keys.size());
    delete m;
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * keys.size()));
  state.counters["bytes_per_elem"] = bytes;
}

template <bool kHit>
void BM_GhashStringFind(benchmark::State& state) {
  size_t n = static_cast<size_t>(state.range(0));
  kt_ghash_table* t = NewStringTable();
  uint64_t v = 0;
  for (const auto& k : StringKeys(n, 0)) {
    const char* p = k.c_str();
    kt_ghash_insert(t, &p, &v);
  }
  std::vector<std::string> probes = StringKeys(n, kHit ? 0 : 1);
  std::shuffle(probes.begin(), probes.end(), std::mt19937(1));
  for (auto _ : state) {
    uint64_t sum = 0;
    for (const auto& k : probes) {
      const char* p = k.c_str();
      sum += kt_ghash_query_data(t, &p) != nullptr;
    }
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * n));
  kt_delete_ghash_table(t);
}

template <bool kHit>
void BM_StdStringFind(benchmark::State& state) {
  size_t n = static_cast<size_t>(state.range(0));
  StringMap m;
  for (const auto& k : Counted(StringKeys(n, 0)))
    m.emplace(k, 0);
  std::vector<CountedString> probes = Counted(StringKeys(n, kHit ? 0 : 1));
  std::shuffle(probes.begin(), probes.end(), std::mt19937(1));
  for (auto _ : state) {
    uint64_t sum = 0;
    for (const auto& k : probes)
      sum += m.find(k) != m.end();
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * n));
}

void BM_GhashStringRemove(benchmark::State& state) {
  const auto& keys = StringKeys(static_cast<size_t>(state.range(0)), 0);
  for (auto _ : state) {
    state.PauseTiming();
    kt_ghash_table* t = NewStringTable();
    uint64_t v = 0;
    for (const auto& k : keys) {
      const char* p = k.c_str();
      kt_ghash_insert(t, &p, &v);
    }
    state.ResumeTiming();
    for (const auto& k : keys) {
      const char* p = k.c_str();
      kt_ghash_remove_element(t, &p);
    }
    state.PauseTiming();
    kt_delete_ghash_table(t);
    state.ResumeTiming();
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * keys.size()));
}

void BM_StdStringRemove(benchmark::State& state) {
  const auto keys = Counted(StringKeys(static_cast<size_t>(state.range(0)), 0));
  for (auto _ : state) {
    state.PauseTiming();
    StringMap* m = new StringMap;
    for (const auto& k : keys)
      m->emplace(k, 0);
    state.ResumeTiming();
    for (const auto& k : keys)
      m->erase(k);
    state.PauseTiming();
    delete m;
    state.ResumeTiming();
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * keys.size()));
}

#define KT_GHASH_SIZES ->Arg(1000)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMicrosecond)

BENCHMARK(BM_GhashIntInsert) KT_GHASH_SIZES;
BENCHMARK(BM_StdIntInsert) KT_GHASH_SIZES;
BENCHMARK_TEMPLATE(BM_GhashIntFind, true) KT_GHASH_SIZES;
BENCHMARK_TEMPLATE(BM_StdIntFind, true) KT_GHASH_SIZES;
BENCHMARK_TEMPLATE(BM_GhashIntFind, false) KT_GHASH_SIZES;
BENCHMARK_TEMPLATE(BM_StdIntFind, false) KT_GHASH_SIZES;
BENCHMARK(BM_GhashIntRemove) KT_GHASH_SIZES;
BENCHMARK(BM_StdIntRemove) KT_GHASH_SIZES;
BENCHMARK(BM_GhashStringInsert) KT_GHASH_SIZES;
BENCHMARK(BM_StdStringInsert) KT_GHASH_SIZES;
BENCHMARK_TEMPLATE(BM_GhashStringFind, true) KT_GHASH_SIZES;
BENCHMARK_TEMPLATE(BM_StdStringFind, true) KT_GHASH_SIZES;
BENCHMARK_TEMPLATE(BM_GhashStringFind, false) KT_GHASH_SIZES;
BENCHMARK_TEMPLATE(BM_StdStringFind, false) KT_GHASH_SIZES;
BENCHMARK(BM_GhashStringRemove) KT_GHASH_SIZES;
BENCHMARK(BM_StdStringRemove) KT_GHASH_SIZES;

// ---- hash functions vs one table lookup per byte ------------------------------------

uint32_t g_table[256];

uint32_t BytewiseCrc(uint32_t h, const unsigned char* p, size_t n) {
  for (size_t i = 0; i < n; ++i)
    h = (h >> 8) ^ g_table[(h ^ p[i]) & 0xFF];
  return h;
}

std::string HashInput(size_t n) {
  for (int i = 0; i < 256; ++i)
    g_table[i] = kt_hash_byte(0, static_cast<unsigned char>(i));
  std::string s(n, 'x');
  std::mt19937 rng(static_cast<unsigned>(n));
  for (char& c : s)
    c = static_cast<char>('a' + rng() % 26);
  return s;
}

void BM_KtHashNBytes(benchmark::State& state) {
  std::string s = HashInput(static_cast<size_t>(state.range(0)));
  uint32_t h = 0;
  for (auto _ : state)
    benchmark::DoNotOptimize(h = kt_hash_n_bytes(h, s.size(), s.data()));
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * s.size()));
}

void BM_KtHashString(benchmark::State& state) {
  std::string s = HashInput(static_cast<size_t>(state.range(0)));
  uint32_t h = 0;
  for (auto _ : state)
    benchmark::DoNotOptimize(h = kt_hash_string(h, s.c_str()));
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * s.size()));
}

void BM_BytewiseLoop(benchmark::State& state) {
  std::string s = HashInput(static_cast<size_t>(state.range(0)));
  uint32_t h = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(s.data());
    benchmark::DoNotOptimize(
        h = BytewiseCrc(h, reinterpret_cast<const unsigned char*>(s.data()), s.size()));
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * s.size()));
}

BENCHMARK(BM_KtHashNBytes)->Arg(16)->Arg(256)->Arg(65536);
BENCHMARK(BM_KtHashString)->Arg(16)->Arg(256)->Arg(65536);
BENCHMARK(BM_BytewiseLoop)->Arg(16)->Arg(256)->Arg(65536);

// ---- name hash vs std::unordered_set<std::string> ------------------------------------

const std::vector<std::string>& Names() {
  static std::vector<std::string> names = [] {
    std::vector<std::string> out;
    std::mt19937 rng(7);
    for (int i = 0; i < 500000; ++i)
      out.push_back("sym_" + std::to_string(rng()) + "_" + std::to_string(i));
    for (int i = 0; i < 500000; ++i)
      out.push_back(out[rng() % 500000]);  // half repeated
    std::shuffle(out.begin(), out.end(), rng);
    return out;
  }();
  return names;
}

void BM_NamehashAdd(benchmark::State& state) {
  const auto& names = Names();
  for (auto _ : state) {
    kt_namehash* nh = kt_new_namehash(Memory(), 1023);
    for (const auto& n : names)
      benchmark::DoNotOptimize(kt_namehash_add(nh, n.c_str()));
    kt_delete_namehash(nh);
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * names.size()));
}

void BM_StdSetIntern(benchmark::State& state) {
  const auto& names = Names();
  for (auto _ : state) {
    auto* set = new std::unordered_set<std::string>;
    for (const auto& n : names)
      benchmark::DoNotOptimize(set->insert(n).first->c_str());
    delete set;
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * names.size()));
}

BENCHMARK(BM_NamehashAdd)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_StdSetIntern)->Unit(benchmark::kMillisecond);

// ---- interval set vs std::set<int> -----------------------------------------------------

// A pool of numbers: take the lowest n times, then give them back shuffled.
void BM_FsiPool(benchmark::State& state) {
  int n = static_cast<int>(state.range(0));
  std::vector<int> order(static_cast<size_t>(n));
  for (int i = 0; i < n; ++i)
    order[static_cast<size_t>(i)] = i;
  std::shuffle(order.begin(), order.end(), std::mt19937(3));
  kt_fsi* pool = kt_fsi_new(Memory());
  kt_fsi_insert_interval(pool, 0, n);
  for (auto _ : state) {
    for (int i = 0; i < n; ++i)
      benchmark::DoNotOptimize(kt_fsi_delete_first(pool));
    for (int v : order)
      kt_fsi_insert(pool, v);
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * n * 2);
  kt_fsi_delete(pool);
}

void BM_StdSetPool(benchmark::State& state) {
  int n = static_cast<int>(state.range(0));
  std::vector<int> order(static_cast<size_t>(n));
  for (int i = 0; i < n; ++i)
    order[static_cast<size_t>(i)] = i;
  std::shuffle(order.begin(), order.end(), std::mt19937(3));
  std::set<int> pool(order.begin(), order.end());
  for (auto _ : state) {
    for (int i = 0; i < n; ++i) {
      benchmark::DoNotOptimize(*pool.begin());
      pool.erase(pool.begin());
    }
    for (int v : order)
      pool.insert(v);
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * n * 2);
}

BENCHMARK(BM_FsiPool)->Arg(100000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_StdSetPool)->Arg(100000)->Unit(benchmark::kMillisecond);

// ---- kt_qsort vs qsort ---------------------------------------------------------------------

int CompareWithContext(void*, const void* a, const void* b) {
  int x = *static_cast<const int*>(a), y = *static_cast<const int*>(b);
  return (x > y) - (x < y);
}

int CompareWithoutContext(const void* a, const void* b) { return CompareWithContext(nullptr, a, b); }

std::vector<int> SortInput(size_t n) {
  std::vector<int> v(n);
  std::mt19937 rng(9);
  for (int& x : v)
    x = static_cast<int>(rng());
  return v;
}

void BM_KtQsort(benchmark::State& state) {
  const auto input = SortInput(static_cast<size_t>(state.range(0)));
  std::vector<int> v;
  for (auto _ : state) {
    state.PauseTiming();
    v = input;
    state.ResumeTiming();
    kt_qsort(v.data(), static_cast<int>(v.size()), sizeof(int), nullptr, CompareWithContext);
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * input.size()));
}

void BM_LibcQsort(benchmark::State& state) {
  const auto input = SortInput(static_cast<size_t>(state.range(0)));
  std::vector<int> v;
  for (auto _ : state) {
    state.PauseTiming();
    v = input;
    state.ResumeTiming();
    std::qsort(v.data(), v.size(), sizeof(int), CompareWithoutContext);
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * input.size()));
}

BENCHMARK(BM_KtQsort)->Arg(100000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LibcQsort)->Arg(100000)->Unit(benchmark::kMillisecond);

}  // namespace
