// Decimal conversion against the C library and <charconv>, on the same
// inputs in the same run: kt_strtod vs strtod and std::from_chars on a
// fixed mix of short and long decimal texts; kt_g_fmt and kt_dtoa (mode 0)
// vs snprintf("%.17g") and the shortest std::to_chars.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <charconv>
#include <random>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "kt/contexts.h"
#include "kt/numbers.h"

namespace {

// The default basic contexts' fpc context, as a product host would use.
kt_fpc_context* Fpc() { return ktGetFpcContext(); }

double RandomDouble(std::mt19937_64& rng) {
  for (;;) {
    uint64_t u = rng();
    double x;
    memcpy(&x, &u, sizeof x);
    if (x == x && x - x == 0)
      return x;
  }
}

// Half short texts as people write them, half long: 17 significant digits
// (the round-trip form of any double) and 20-30 digit mantissas.
const std::vector<std::string>& Texts() {
  static std::vector<std::string> texts = [] {
    std::vector<std::string> v;
    std::mt19937_64 rng(11);
    char buf[64];
    for (int i = 0; i < 1024; i++) {
      switch (i % 4) {
      case 0:
        snprintf(buf, sizeof buf, "%d.%d", static_cast<int>(rng() % 10000), static_cast<int>(rng() % 1000));
        break;
      case 1:
        snprintf(buf, sizeof buf, "%de%d", static_cast<int>(rng() % 1000), static_cast<int>(rng() % 40) - 20);
        break;
      case 2:
        snprintf(buf, sizeof buf, "%.17g", RandomDouble(rng));
        break;
      default:
        snprintf(buf, sizeof buf, "%llu%llu.5e%d", static_cast<unsigned long long>(rng() % 1000000000000ULL),
                 static_cast<unsigned long long>(rng() % 100000000000ULL), static_cast<int>(rng() % 200) - 100);
        break;
      }
      v.push_back(buf);
    }
    return v;
  }();
  return texts;
}

// Random bit patterns and short decimals, as printed in practice.
const std::vector<double>& Doubles() {
  static std::vector<double> values = [] {
    std::vector<double> v;
    std::mt19937_64 rng(12);
    for (int i = 0; i < 1024; i++)
      v.push_back(i % 2 ? RandomDouble(rng) : static_cast<double>(rng() % 100000) / 100);
    return v;
  }();
  return values;
}

void SetItems(benchmark::State& state, size_t perIteration) {
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * perIteration));
}

void BM_Strtod_kt(benchmark::State& state) {
  kt_fpc_context* fpc = Fpc();
  for (auto _ : state)
    for (const std::string& t : Texts())
      benchmark::DoNotOptimize(kt_strtod(fpc, t.c_str(), nullptr, nullptr));
  SetItems(state, Texts().size());
}

void BM_Strtod_glibc(benchmark::State& state) {
  for (auto _ : state)
    for (const std::string& t : Texts())
      benchmark::DoNotOptimize(strtod(t.c_str(), nullptr));
  SetItems(state, Texts().size());
}

void BM_Strtod_from_chars(benchmark::State& state) {
  for (auto _ : state)
    for (const std::string& t : Texts()) {
      double x;
      std::from_chars(t.data(), t.data() + t.size(), x);
      benchmark::DoNotOptimize(x);
    }
  SetItems(state, Texts().size());
}

void BM_Format_kt_g_fmt(benchmark::State& state) {
  kt_fpc_context* fpc = Fpc();
  char buf[32];
  for (auto _ : state)
    for (double x : Doubles()) {
      kt_g_fmt(fpc, x, buf, sizeof buf);
      benchmark::DoNotOptimize(buf);
    }
  SetItems(state, Doubles().size());
}

void BM_Format_kt_dtoa_mode0(benchmark::State& state) {
  kt_fpc_context* fpc = Fpc();
  char buf[32];
  int decpt, sign;
  for (auto _ : state)
    for (double x : Doubles()) {
      kt_dtoa(fpc, x, buf, sizeof buf, 0, 0, &decpt, &sign, nullptr);
      benchmark::DoNotOptimize(buf);
    }
  SetItems(state, Doubles().size());
}

void BM_Format_snprintf_17g(benchmark::State& state) {
  char buf[32];
  for (auto _ : state)
    for (double x : Doubles()) {
      snprintf(buf, sizeof buf, "%.17g", x);
      benchmark::DoNotOptimize(buf);
    }
  SetItems(state, Doubles().size());
}

void BM_Format_to_chars_shortest(benchmark::State& state) {
  char buf[32];
  for (auto _ : state)
    for (double x : Doubles()) {
      std::to_chars(buf, buf + sizeof buf, x);
      benchmark::DoNotOptimize(buf);
    }
  SetItems(state, Doubles().size());
}

BENCHMARK(BM_Strtod_kt);
BENCHMARK(BM_Strtod_glibc);
BENCHMARK(BM_Strtod_from_chars);
BENCHMARK(BM_Format_kt_g_fmt);
BENCHMARK(BM_Format_kt_dtoa_mode0);
BENCHMARK(BM_Format_snprintf_17g);
BENCHMARK(BM_Format_to_chars_shortest);

}  // namespace
