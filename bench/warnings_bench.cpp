// ktGetWarningStatus on a manager of 1e4 identifiers against a
// case-insensitive std::unordered_map lookup of the same identifiers.
#include <cctype>
#include <string>
#include <unordered_map>
#include <vector>

#include <benchmark/benchmark.h>

#include "kt/contexts.h"
#include "kt/warnings.h"

namespace {

std::vector<std::string> Identifiers() {
  std::vector<std::string> ids;
  for (int i = 0; i < 10000; ++i)
    ids.push_back("Component" + std::to_string(i % 97) + ":warningNumber" + std::to_string(i));
  return ids;
}

struct CaseInsensitiveHash {
  size_t operator()(const std::string& s) const {
    size_t h = 1469598103934665603ull;
    for (unsigned char c : s) h = (h ^ static_cast<size_t>(std::tolower(c))) * 1099511628211ull;
    return h;
  }
};
struct CaseInsensitiveEqual {
  bool operator()(const std::string& a, const std::string& b) const {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i)
      if (std::tolower(static_cast<unsigned char>(a[i])) !=
          std::tolower(static_cast<unsigned char>(b[i])))
        return false;
    return true;
  }
};

void BM_WarningStatus_kt(benchmark::State& state) {
  auto ids = Identifiers();
  ktWarningManagerContext* m = ktNewWarningManager(ktGetMemoryContext());
  for (size_t i = 0; i < ids.size(); ++i)
    ktSetWarningStatus(m, ids[i].c_str(), static_cast<int>(i % 3));
  size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(ktGetWarningStatus(m, ids[i].c_str()));
    i = (i + 7919) % ids.size();
  }
  ktDeleteWarningManager(m);
}

void BM_WarningStatus_unordered_map(benchmark::State& state) {
  auto ids = Identifiers();
  std::unordered_map<std::string, int, CaseInsensitiveHash, CaseInsensitiveEqual> map;
  for (size_t i = 0; i < ids.size(); ++i)
    map[ids[i]] = static_cast<int>(i % 3);
  size_t i = 0;
  for (auto _ : state) {
    // The map's best case: the key is already a std::string.
    auto it = map.find(ids[i]);
    benchmark::DoNotOptimize(it == map.end() ? 1 : it->second);
    i = (i + 7919) % ids.size();
  }
}

}  // namespace

BENCHMARK(BM_WarningStatus_kt);
BENCHMARK(BM_WarningStatus_unordered_map);
