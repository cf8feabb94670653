// kt_ghash against std::unordered_map under operation sequences decoded
// from the input. The input first picks the table's shape: key size, data
// size (0 too, with the data offset at, after or past the key), a
// degenerate hash that forces collisions, load bounds and initial size.
//
// Checked after every step: every answer and every copied-out value (the
// key when there is no data part) matches the model; the count, the prime
// bucket count and both thresholds are consistent; a walk visits exactly
// the model, each element in bucket hash % buckets, and the collision
// statistics match its chains; a sorted cursor yields the keys in order.
#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <unordered_map>
#include <vector>

#include "kt/containers.h"
#include "kt/contexts.h"

namespace {

using Model = std::unordered_map<std::string, std::string>;

void Fail(const char* what) {
  std::fprintf(stderr, "ghash_fuzz: %s\n", what);
  std::abort();
}

uint32_t Degenerate(void*, const void* key) { return *static_cast<const uint8_t*>(key) & 3; }

int CompareKeys(void* keySize, const void* a, const void* b) {
  return std::memcmp(a, b, *static_cast<uint64_t*>(keySize));
}

struct Fixture {
  kt_ghash_table* t;
  bool degenerate;
  const char* element(const void* e) const { return static_cast<const char*>(e); }
  std::string key(const void* e) const { return std::string(element(e), t->keySize); }
  // What the query functions copy out: the data part, or else the key.
  std::string copied(const std::string& key, const std::string& data) const {
    return t->dataSize ? data : key;
  }
};

void CheckSizing(const kt_ghash_table* t, const Model& model) {
  if (t->count != static_cast<int32_t>(model.size()) || !kt_hash_is_quasiprime(t->numBuckets))
    Fail("count or bucket count");
  float n = static_cast<float>(t->numBuckets);
  int32_t shrink = t->numBuckets == t->minBuckets ? 0 : static_cast<int32_t>(n * t->lowerBound);
  if (t->growThreshold != static_cast<int32_t>(n * t->upperBound) || t->shrinkThreshold != shrink)
    Fail("thresholds");
}

// The statistics against the chain lengths seen by a walk: collisions are
// nodes after the first; the per-bucket counts compare with n + 1.
void CheckStatistics(kt_ghash_table* t, const std::vector<int>& nodes) {
  int collisions = 0, reported = -1;
  for (int k : nodes)
    collisions += k > 1 ? k - 1 : 0;
  kt_ghash_stats(t, nullptr, nullptr, &reported);
  for (int n = -1; n < 3; ++n) {
    int exact = 0, atLeast = 0, gotExact = -1, gotAtLeast = -1;
    for (int k : nodes) {
      exact += (k > 0 ? k - 1 : 0) == n + 1;
      atLeast += (k > 0 ? k - 1 : 0) >= n + 1;
    }
    kt_ghash_collision_stats(t, 1, n, &gotExact);
    kt_ghash_collision_stats(t, 0, n, &gotAtLeast);
    if (gotExact != exact || gotAtLeast != atLeast || reported != collisions)
      Fail("collision statistics");
  }
}

void CheckWalk(const Fixture& f, const Model& model) {
  kt_ghash_cursor cursor;
  kt_ghash_cursor_init(f.t, &cursor);
  void* element;
  void* data;
  size_t seen = 0;
  std::vector<int> nodes(static_cast<size_t>(f.t->numBuckets));
  for (; kt_ghash_iterate(f.t, &cursor, &element, &data); ++seen) {
    ++nodes[static_cast<size_t>(cursor.position)];
    auto it = model.find(f.key(element));
    uint32_t hash = f.degenerate ? Degenerate(nullptr, element)
                                 : kt_hash_n_bytes(0, f.t->keySize, element);
    if (it == model.end() || static_cast<uint32_t>(cursor.position) != hash % f.t->numBuckets)
      Fail("walk: unknown element or wrong bucket");
    if (data != f.element(element) + f.t->dataOffset ||
        std::memcmp(data, it->second.data(), f.t->dataSize) != 0)
      Fail("walk: data");
  }
  if (seen != model.size() || kt_ghash_iterate(f.t, &cursor, &element, &data) || element || data)
    Fail("walk: count or end");
  CheckStatistics(f.t, nodes);
  std::map<std::string, std::string> sorted(model.begin(), model.end());
  kt_ghash_sorted_cursor_init(f.t, &cursor, &f.t->keySize, CompareKeys);
  for (auto& [key, value] : sorted)
    if (!kt_ghash_iterate(f.t, &cursor, &element, nullptr) || f.key(element) != key)
      Fail("sorted cursor order");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
  static const float kBounds[][2] = {{0.25f, 1.0f}, {0.5f, 1.0f}, {1.0f, 2.0f},
                                     {0.1f, 0.5f},  {0.5f, 3.0f}, {0.03f, 3.0f}};
  FuzzedDataProvider in(bytes, size);
  uint64_t keySize = in.PickValueInArray({1, 3, 4, 8, 12});
  uint64_t dataSize = in.PickValueInArray({0, 0, 4, 8});
  uint32_t offset = static_cast<uint32_t>(keySize) + in.ConsumeIntegralInRange<uint32_t>(0, 9);
  if (dataSize == 0 && in.ConsumeBool())
    offset = 0;
  uint64_t elementSize = std::max<uint64_t>(keySize, dataSize ? offset + dataSize : keySize);
  Fixture f{nullptr, in.ConsumeBool()};
  const float* b = kBounds[in.ConsumeIntegralInRange<int>(0, 5)];
  f.t = kt_new_ghash_table(ktGetMemoryContext(), f.degenerate ? Degenerate : nullptr, nullptr,
                           nullptr, nullptr, nullptr, nullptr, keySize, offset, dataSize,
                           elementSize, nullptr, in.ConsumeIntegralInRange<int32_t>(-2, 40), b[0],
                           b[1]);
  Model model;
  std::vector<char> out(f.t->copySize);  // exactly what a query may copy out
  while (in.remaining_bytes() > 0) {
    int op = in.ConsumeIntegralInRange<int>(0, 15);
    uint16_t id = in.ConsumeIntegral<uint16_t>() % 1500;
    std::string key(keySize, '\0');
    for (size_t i = 0; i < keySize; ++i)
      key[i] = static_cast<char>(i % 2 ? id >> 8 : id ^ i);
    uint64_t value = in.ConsumeIntegral<uint64_t>();
    std::string data(reinterpret_cast<const char*>(&value), dataSize);
    auto it = model.find(key);
    int present = it != model.end();
    std::string old = present ? it->second : data;
    int answer = -1;
    std::string expected;  // what `out` must hold afterwards, if anything
    switch (op) {
      case 0: answer = kt_ghash_replace(f.t, key.data(), data.data()); model[key] = data; break;
      case 1: answer = kt_ghash_query_insert(f.t, key.data(), data.data(), out.data());
              model.emplace(key, data); expected = f.copied(key, old); break;
      case 2: answer = kt_ghash_query_replace(f.t, key.data(), data.data(), out.data());
              model[key] = data; expected = f.copied(key, old); break;
      case 3: { std::vector<char> canonical(keySize);
                answer = kt_ghash_uniquify(f.t, key.data(), canonical.data());
                if (std::string(canonical.begin(), canonical.end()) != key) Fail("uniquify");
                model.emplace(key, std::string(dataSize, '\0')); break; }  // new data is zeroed
      case 4: answer = kt_ghash_query(f.t, key.data(), out.data());
              expected = present ? f.copied(key, old) : ""; break;
      case 5: answer = kt_ghash_remove_element(f.t, key.data()); model.erase(key); break;
      case 6: answer = kt_ghash_query_remove(f.t, key.data(), out.data());
              expected = present ? f.copied(key, old) : ""; model.erase(key); break;
      case 7: { const float* nb = kBounds[value % 6];
                kt_ghash_set_bounds(f.t, static_cast<int32_t>(value % 60), nb[0], nb[1]); break; }
      case 8: kt_ghash_empty(f.t, static_cast<int32_t>(value % 30)); model.clear(); break;
      case 9: CheckWalk(f, model); break;
      default: answer = kt_ghash_insert(f.t, key.data(), data.data()); model.emplace(key, data);
    }
    if (answer != -1 && answer != present) Fail("existed/found answer");
    if (!expected.empty() && std::memcmp(out.data(), expected.data(), out.size()) != 0)
      Fail("copied-out value");
    void* element = kt_ghash_query_element(f.t, key.data());
    void* stored = kt_ghash_query_data(f.t, key.data());
    if ((element != nullptr) != (model.count(key) != 0) ||
        (element && (f.key(element) != key || stored != f.element(element) + offset)))
      Fail("lookup after the step");
    if (element && dataSize && std::memcmp(stored, model[key].data(), dataSize) != 0)
      Fail("stored data");
    CheckSizing(f.t, model);
    if ((op <= 3 || op >= 10) && f.t->count > f.t->growThreshold)
      Fail("no growth above the grow threshold");
  }
  CheckWalk(f, model);
  kt_delete_ghash_table(f.t);
  return 0;
}
