// kt_ghash against std::unordered_map in long random operation sequences,
// plus the raised bound errors, string-keyed tables, cursors and statistics.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <map>
#include <random>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include <gtest/gtest.h>

#include "support/counting_context.h"
#include "kt/containers.h"

namespace {

using kttest::Contexts;

// Elements: an 8-byte key, then an 8-byte data part.
struct Element {
  uint64_t key;
  uint64_t data;
};

kt_ghash_table* NewIntTable(Contexts& c, int32_t initial, float lower, float upper) {
  return kt_new_ghash_table(&c.memory, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, 8,
                            8, 8, sizeof(Element), nullptr, initial, lower, upper);
}

// The bucket count is a quasiprime at or above the minimum, and both
// thresholds follow from it and the bounds.
void ExpectSizingInvariants(const kt_ghash_table* t, bool checkMinimum = true) {
  ASSERT_EQ(kt_hash_is_quasiprime(t->numBuckets), 1) << t->numBuckets;
  if (checkMinimum) {
    ASSERT_GE(t->numBuckets, t->minBuckets);
  }
  int32_t shrink = t->numBuckets == t->minBuckets
                       ? 0
                       : static_cast<int32_t>(static_cast<float>(t->numBuckets) * t->lowerBound);
  ASSERT_EQ(t->shrinkThreshold, shrink);
  ASSERT_EQ(t->growThreshold,
            static_cast<int32_t>(static_cast<float>(t->numBuckets) * t->upperBound));
}

// Walks the table: every element sits in bucket (hash % buckets) and the
// contents equal the model.
void ExpectSameContents(kt_ghash_table* t, const std::unordered_map<uint64_t, uint64_t>& model) {
  kt_ghash_cursor cursor;
  kt_ghash_cursor_init(t, &cursor);
  void* element;
  void* data;
  size_t seen = 0;
  while (kt_ghash_iterate(t, &cursor, &element, &data)) {
    auto* e = static_cast<Element*>(element);
    ASSERT_EQ(data, &e->data);
    uint32_t hash = kt_hash_n_bytes(0, 8, &e->key);
    ASSERT_EQ(static_cast<uint32_t>(cursor.position), hash % static_cast<uint32_t>(t->numBuckets));
    auto it = model.find(e->key);
    ASSERT_NE(it, model.end());
    ASSERT_EQ(it->second, e->data);
    ++seen;
  }
  ASSERT_EQ(seen, model.size());
  ASSERT_EQ(cursor.position, t->numBuckets);
}

struct Bounds {
  float lower;
  float upper;
};

Bounds RandomBounds(std::mt19937& rng) {
  static const Bounds kChoices[] = {{0.25f, 1.0f}, {0.5f, 1.0f}, {1.0f, 2.0f},
                                    {0.1f, 0.5f},  {0.5f, 3.0f}, {0.03f, 3.0f}};
  return kChoices[rng() % (sizeof kChoices / sizeof kChoices[0])];
}

TEST(Ghash, ModelBasedRandomOperations) {
  Contexts c;
  std::mt19937 rng(11);
  Bounds b = RandomBounds(rng);
  kt_ghash_table* t = NewIntTable(c, 7, b.lower, b.upper);
  std::unordered_map<uint64_t, uint64_t> model;
  // kt_ghash_set_bounds re-sizes for a new minimum only when the count is
  // below it (it compares elements with buckets), so until the next re-size
  // the bucket count may stay under a raised minimum.
  bool minimumPending = false;
  int32_t lastBuckets = t->numBuckets;
  int resizes = 0;
  size_t largest = 0;
  auto randomKey = [&] { return static_cast<uint64_t>(rng() % 3000) * 0x9E3779B97F4A7C15ull; };

  for (int step = 0; step < 60000; ++step) {
    // Phases that mostly grow and mostly shrink, so both re-size paths run.
    bool growing = (step / 5000) % 2 == 0;
    unsigned op = rng() % 100;
    uint64_t key = randomKey();
    uint64_t value = rng();
    uint64_t out = 0xDEAD;
    bool present = model.count(key) != 0;
    if (op < (growing ? 40u : 15u)) {
      ASSERT_EQ(kt_ghash_insert(t, &key, &value), present);
      model.emplace(key, value);
    } else if (op < 50) {
      ASSERT_EQ(kt_ghash_replace(t, &key, &value), present);
      model[key] = value;
    } else if (op < 55) {
      ASSERT_EQ(kt_ghash_query_insert(t, &key, &value, &out), present);
      model.emplace(key, value);
      ASSERT_EQ(out, model[key]);
    } else if (op < 60) {
      uint64_t old = present ? model[key] : value;
      ASSERT_EQ(kt_ghash_query_replace(t, &key, &value, &out), present);
      ASSERT_EQ(out, old);
      model[key] = value;
    } else if (op < 70) {
      ASSERT_EQ(kt_ghash_query(t, &key, &out), present);
      if (present) {
        ASSERT_EQ(out, model[key]);
      }
      void* data = kt_ghash_query_data(t, &key);
      void* element = kt_ghash_query_element(t, &key);
      ASSERT_EQ(data != nullptr, present);
      if (present) {
        ASSERT_EQ(static_cast<char*>(element) + 8, data);
        ASSERT_EQ(static_cast<Element*>(element)->key, key);
      }
    } else if (op < (growing ? 85u : 95u)) {
      ASSERT_EQ(kt_ghash_query_remove(t, &key, &out), present);
      if (present) {
        ASSERT_EQ(out, model[key]);
      }
      model.erase(key);
    } else if (op < 97) {
      ASSERT_EQ(kt_ghash_remove_element(t, &key), present);
      model.erase(key);
    } else if (op < 99) {
      b = RandomBounds(rng);
      kt_ghash_set_bounds(t, static_cast<int32_t>(rng() % 50), b.lower, b.upper);
      minimumPending = t->numBuckets < t->minBuckets;
    } else if (rng() % 20 == 0) {
      kt_ghash_empty(t, static_cast<int32_t>(rng() % 30));
      model.clear();
    }
    if (t->numBuckets != lastBuckets) {
      minimumPending = false;
      lastBuckets = t->numBuckets;
      ++resizes;
    }
    largest = std::max(largest, model.size());
    ASSERT_EQ(t->count, static_cast<int32_t>(model.size()));
    ASSERT_NO_FATAL_FAILURE(ExpectSizingInvariants(t, !minimumPending));
    if (op < 60) {
      ASSERT_LE(t->count, t->growThreshold);
    }
    if (step % 997 == 0) {
      ASSERT_NO_FATAL_FAILURE(ExpectSameContents(t, model));
    }
  }
  ASSERT_NO_FATAL_FAILURE(ExpectSameContents(t, model));
  EXPECT_GT(resizes, 50);  // both directions ran many times
  EXPECT_GT(largest, 1000u);
  kt_delete_ghash_table(t);
  EXPECT_EQ(c.LiveBlocks(), 0u);
  EXPECT_EQ(c.BadFrees(), 0);
}

TEST(Ghash, InvalidBoundsRaiseWithoutLeaks) {
  struct Case {
    float lower, upper;
    int code;
  };
  const Case cases[] = {
      {0.0f, 1.0f, 0x30001},  {-1.0f, 1.0f, 0x30001}, {NAN, 1.0f, 0x30001},
      {0.5f, 3.01f, 0x30002}, {0.5f, 0.0f, 0x30002},  {0.5f, NAN, 0x30002},
      {1.0f, 1.0f, 0x30003},  {2.0f, 1.0f, 0x30003},  {0.01f, 1.5f, 0x30003},
      {0.5f, 3.0f, 0},        {0.01f, 1.0f, 0},       {0.25f, 1.0f, 0},
  };
  Contexts c;
  for (const Case& k : cases) {
    kt_ghash_table* t = nullptr;
    int code = c.Catch([&] { t = NewIntTable(c, 100, k.lower, k.upper); });
    EXPECT_EQ(code, k.code) << k.lower << " " << k.upper;
    if (code == 0) {
      // The same bounds through set_bounds on a live table.
      kt_ghash_set_bounds(t, 3, k.lower, k.upper);
      kt_delete_ghash_table(t);
    }
    EXPECT_EQ(c.LiveBlocks(), 0u);

    // On caller storage the partly built record is cleared.
    kt_ghash_table local;
    code = c.Catch([&] {
      kt_initialize_ghash_table(&local, &c.memory, nullptr, nullptr, nullptr, nullptr, nullptr,
                                nullptr, 8, 8, 8, 16, nullptr, 10, k.lower, k.upper);
    });
    EXPECT_EQ(code, k.code);
    if (code != 0) {
      EXPECT_EQ(local.numBuckets, -1);
      EXPECT_EQ(local.lowerBound, -1.0f);
    } else {
      kt_clear_ghash_table(&local);
    }
  }
  // A failing set_bounds leaves the table as it was.
  kt_ghash_table* t = NewIntTable(c, 100, 0.5f, 1.0f);
  EXPECT_EQ(c.Catch([&] { kt_ghash_set_bounds(t, 5, 0.5f, 0.5f); }), 0x30003);
  EXPECT_EQ(t->lowerBound, 0.5f);
  EXPECT_EQ(t->upperBound, 1.0f);
  kt_delete_ghash_table(t);
  EXPECT_EQ(c.LiveBlocks(), 0u);
  EXPECT_EQ(c.BadFrees(), 0);
}

TEST(Ghash, ExhaustionRaisesOutOfMemoryWithoutLeaks) {
  Contexts c;
  // Fail each allocation in turn while building and filling a table: the
  // raise leaves a consistent table that deletes without leaks.
  for (long fail = 0; fail < 14; ++fail) {
    kttest::Ledger().failAfter = fail;
    kt_ghash_table* t = nullptr;
    int inserted = 0;
    int code = c.Catch([&] {
      t = NewIntTable(c, 2, 0.5f, 1.0f);
      for (uint64_t k = 0; k < 8; ++k, ++inserted)
        kt_ghash_insert(t, &k, &k);
    });
    kttest::Ledger().failAfter = -1;
    EXPECT_TRUE(code == 0 || code == 0x20001) << code;
    if (t != nullptr) {
      // A failed node allocation adds nothing; a failed re-size keeps the
      // element that triggered it.
      EXPECT_GE(t->count, inserted);
      EXPECT_LE(t->count, inserted + 1);
      kt_ghash_cursor cursor;
      kt_ghash_cursor_init(t, &cursor);
      int seen = 0;
      while (kt_ghash_iterate(t, &cursor, nullptr, nullptr))
        ++seen;
      EXPECT_EQ(seen, t->count);
      kt_delete_ghash_table(t);
    }
    EXPECT_EQ(c.LiveBlocks(), 0u) << fail;
  }
  EXPECT_EQ(c.BadFrees(), 0);
}

TEST(Ghash, InitialSizesAndEmpty) {
  Contexts c;
  for (auto [initial, buckets] : std::vector<std::pair<int32_t, int32_t>>{
           {0, 2}, {1, 2}, {-5, 2}, {7, 7}, {1023, 1031}, {1000, 1009}}) {
    kt_ghash_table* t = NewIntTable(c, initial, 1.0f, 2.0f);
    EXPECT_EQ(t->numBuckets, buckets);
    EXPECT_EQ(t->minBuckets, buckets);
    EXPECT_EQ(t->growThreshold, buckets * 2);
    EXPECT_EQ(t->shrinkThreshold, 0);
    kt_delete_ghash_table(t);
  }
  kt_ghash_table* t = NewIntTable(c, 3, 0.5f, 1.0f);
  for (uint64_t k = 0; k < 100; ++k)
    kt_ghash_insert(t, &k, &k);
  kt_ghash_empty(t, 0);  // keeps the bucket count
  EXPECT_EQ(t->count, 0);
  EXPECT_GT(t->numBuckets, 3);
  kt_ghash_empty(t, 20);
  EXPECT_EQ(t->numBuckets, 23);
  EXPECT_EQ(t->minBuckets, 23);
  uint64_t k = 5;
  EXPECT_EQ(kt_ghash_query(t, &k, nullptr), 0);
  kt_clear_ghash_table(t);
  EXPECT_EQ(t->numBuckets, -1);
  EXPECT_EQ(t->snapshotCount, -1);
  EXPECT_EQ(t->memoryContext, nullptr);
  kt_mem_free(&c.memory, t);
  kt_delete_ghash_table(nullptr);
  EXPECT_EQ(c.LiveBlocks(), 0u);
}

TEST(Ghash, ShrinkNeverGoesBelowMinimum) {
  Contexts c;
  kt_ghash_table* t = NewIntTable(c, 11, 0.5f, 1.0f);
  for (uint64_t k = 0; k < 5000; ++k)
    kt_ghash_insert(t, &k, &k);
  int32_t grown = t->numBuckets;
  EXPECT_GT(grown, 2500);
  for (uint64_t k = 0; k < 5000; ++k) {
    ASSERT_EQ(kt_ghash_remove_element(t, &k), 1);
    ASSERT_GE(t->numBuckets, 11);
    ASSERT_NO_FATAL_FAILURE(ExpectSizingInvariants(t));
  }
  EXPECT_EQ(t->numBuckets, 11);
  // A minimum above the count re-sizes up to it.
  kt_ghash_set_bounds(t, 100, 0.5f, 1.0f);
  EXPECT_EQ(t->numBuckets, 101);
  kt_delete_ghash_table(t);
  EXPECT_EQ(c.LiveBlocks(), 0u);
}

TEST(Ghash, InsertKeepsAndReplaceDeletesData) {
  // String keys with string data: the delete callbacks must see each old
  // value exactly once, which the ledger checks.
  Contexts c;
  struct Pair {
    char* key;
    char* value;
  };
  auto copyValue = [](void* context, void* destination, const void* source) {
    char* copy = kt_mem_strdup(static_cast<kt_mem_context*>(context),
                               *static_cast<char* const*>(source));
    std::memcpy(destination, &copy, sizeof copy);
  };
  auto deleteValue = [](void* context, void* address) {
    kt_mem_free(static_cast<kt_mem_context*>(context), *static_cast<char**>(address));
  };
  kt_ghash_table* t = kt_new_ghash_table(
      &c.memory, kt_ghash_string_key, kt_ghash_compare_string_keys, kt_ghash_copy_string_key,
      kt_ghash_delete_string_key, copyValue, deleteValue, 8, 8, 8, sizeof(Pair), &c.memory, 7,
      0.5f, 1.0f);
  std::string keyText = "alpha";
  const char* key = keyText.c_str();
  const char* one = "one";
  const char* two = "two";
  EXPECT_EQ(kt_ghash_insert(t, &key, &one), 0);
  EXPECT_EQ(kt_ghash_insert(t, &key, &two), 1);
  auto* stored = static_cast<Pair*>(kt_ghash_query_element(t, &key));
  ASSERT_NE(stored, nullptr);
  EXPECT_NE(stored->key, key);  // the table owns a copy
  EXPECT_STREQ(stored->value, "one");
  EXPECT_EQ(kt_ghash_replace(t, &key, &two), 1);
  EXPECT_STREQ(static_cast<Pair*>(kt_ghash_query_element(t, &key))->value, "two");
  const char* canonical = nullptr;
  EXPECT_EQ(kt_ghash_uniquify(t, &key, &canonical), 1);
  EXPECT_EQ(canonical, stored->key);
  for (int i = 0; i < 200; ++i) {
    std::string k = "key" + std::to_string(i);
    const char* kp = k.c_str();
    kt_ghash_replace(t, &kp, &one);
    kt_ghash_replace(t, &kp, &two);
  }
  const char* k7 = "key7";
  EXPECT_EQ(kt_ghash_remove_element(t, &k7), 1);
  kt_ghash_empty(t, 0);
  for (int i = 0; i < 50; ++i) {
    std::string k = "again" + std::to_string(i);
    const char* kp = k.c_str();
    kt_ghash_insert(t, &kp, &one);
  }
  kt_delete_ghash_table(t);
  EXPECT_EQ(c.LiveBlocks(), 0u);
  EXPECT_EQ(c.BadFrees(), 0);
}

TEST(Ghash, CaseInsensitiveStringTable) {
  Contexts c;
  kt_ghash_table* t = kt_new_ghash_table(
      &c.memory, kt_ghash_stringi_key, kt_ghash_compare_stringi_keys, kt_ghash_copy_string_key,
      kt_ghash_delete_string_key, nullptr, nullptr, 8, 8, 4, 16, &c.memory, 1023, 0.5f, 1.0f);
  EXPECT_EQ(t->numBuckets, 1031);
  const char* mixed = "Warning:Name";
  const char* lower = "warning:name";
  int32_t on = 1;
  EXPECT_EQ(kt_ghash_insert(t, &mixed, &on), 0);
  EXPECT_EQ(kt_ghash_insert(t, &lower, &on), 1);
  int32_t out = 0;
  EXPECT_EQ(kt_ghash_query(t, &lower, &out), 1);
  EXPECT_EQ(out, 1);
  kt_delete_ghash_table(t);
  EXPECT_EQ(c.LiveBlocks(), 0u);
}

TEST(Ghash, KeyOnlyTableCopiesKeyToOut) {
  Contexts c;
  kt_ghash_table* t = kt_new_ghash_table(&c.memory, nullptr, nullptr, nullptr, nullptr, nullptr,
                                         nullptr, 8, 0, 0, 8, nullptr, 5, 0.5f, 1.0f);
  EXPECT_EQ(t->copySize, 8u);
  uint64_t key = 0x1122334455667788ull;
  void* data = reinterpret_cast<void*>(1);
  EXPECT_EQ(kt_ghash_insert_key(t, &key, nullptr, &data), 0);
  EXPECT_EQ(data, nullptr);
  uint64_t out = 0;
  EXPECT_EQ(kt_ghash_query(t, &key, &out), 1);
  EXPECT_EQ(out, key);
  out = 0;
  EXPECT_EQ(kt_ghash_query_remove(t, &key, &out), 1);
  EXPECT_EQ(out, key);
  EXPECT_EQ(kt_ghash_query_remove(t, &key, &out), 0);
  kt_delete_ghash_table(t);
  EXPECT_EQ(c.LiveBlocks(), 0u);
}

TEST(Ghash, IterationSortedCursorAndApply) {
  Contexts c;
  kt_ghash_table* t = NewIntTable(c, 7, 0.5f, 1.0f);
  std::mt19937 rng(5);
  std::set<uint64_t> keys;
  for (int i = 0; i < 500; ++i) {
    uint64_t k = rng();
    uint64_t d = k * 3;
    kt_ghash_insert(t, &k, &d);
    keys.insert(k);
  }
  // Plain cursor: fingerprint of the addresses in iteration order.
  kt_ghash_cursor cursor;
  kt_ghash_cursor_init(t, &cursor);
  void* element;
  uint64_t fingerprint = 0;
  while (kt_ghash_iterate(t, &cursor, &element, nullptr))
    fingerprint = ((fingerprint << 1) | (fingerprint >> 63)) ^ reinterpret_cast<uint64_t>(element);
  void* data = &cursor;
  for (int again = 0; again < 3; ++again) {
    EXPECT_EQ(kt_ghash_iterate(t, &cursor, &element, &data), 0);
    EXPECT_EQ(element, nullptr);
    EXPECT_EQ(data, nullptr);
  }

  auto descending = [](void*, const void* a, const void* b) {
    uint64_t x, y;
    std::memcpy(&x, a, 8);
    std::memcpy(&y, b, 8);
    return x > y ? -1 : (x < y ? 1 : 0);
  };
  kt_ghash_sorted_cursor_init(t, &cursor, nullptr, descending);
  EXPECT_EQ(cursor.fingerprint, fingerprint);
  EXPECT_EQ(t->fingerprint, fingerprint);
  EXPECT_EQ(t->snapshotCount, 500);
  std::vector<uint64_t> order;
  while (kt_ghash_iterate(t, &cursor, &element, &data)) {
    order.push_back(static_cast<Element*>(element)->key);
    EXPECT_EQ(static_cast<Element*>(element)->data, order.back() * 3);
  }
  EXPECT_EQ(kt_ghash_iterate(t, &cursor, &element, &data), 0);
  EXPECT_TRUE(std::equal(order.begin(), order.end(), keys.rbegin(), keys.rend()));

  // apply stops at the first zero result.
  int visits = 0;
  auto countAll = [](kt_ghash_table*, void* argument, void*, void*) {
    ++*static_cast<int*>(argument);
    return 1;
  };
  EXPECT_EQ(kt_ghash_apply(t, countAll, &visits), 1);
  EXPECT_EQ(visits, 500);
  auto stopAtThird = [](kt_ghash_table*, void* argument, void*, void*) {
    return ++*static_cast<int*>(argument) < 3 ? 1 : 0;
  };
  visits = 0;
  EXPECT_EQ(kt_ghash_apply(t, stopAtThird, &visits), 0);
  EXPECT_EQ(visits, 3);

  // query_by_data finds the first match in bucket order.
  uint64_t wanted = *keys.begin() * 3;
  auto* found = static_cast<Element*>(kt_ghash_query_by_data(t, &wanted));
  ASSERT_NE(found, nullptr);
  EXPECT_EQ(found->key, *keys.begin());
  uint64_t missing = 1;
  EXPECT_EQ(kt_ghash_query_by_data(t, &missing), nullptr);
  kt_delete_ghash_table(t);
  EXPECT_EQ(c.LiveBlocks(), 0u);
}

TEST(Ghash, Statistics) {
  Contexts c;
  kt_ghash_table* t = NewIntTable(c, 101, 0.1f, 3.0f);
  for (uint64_t k = 0; k < 250; ++k)
    kt_ghash_insert(t, &k, &k);
  ASSERT_EQ(t->numBuckets, 101);  // 250 stays under 3.0 * 101
  // Chain lengths per bucket, from the hash of each key.
  std::map<uint32_t, int> chain;
  for (uint64_t k = 0; k < 250; ++k)
    chain[kt_hash_n_bytes(0, 8, &k) % 101]++;
  int collisions = 0;
  for (auto& [bucket, length] : chain)
    collisions += length - 1;
  size_t bytes = 0, bytesToo = 0;
  int reported = -1;
  kt_ghash_stats(t, &bytes, &bytesToo, &reported);
  EXPECT_EQ(bytes, sizeof(kt_ghash_table) + 8 * 101 + (16 + 16) * 250);
  EXPECT_EQ(bytesToo, bytes);
  EXPECT_EQ(reported, collisions);
  kt_ghash_stats(t, nullptr, nullptr, nullptr);
  for (int n = -1; n < 6; ++n) {
    int exact = 0, atLeast = 0;
    for (int b = 0; b < 101; ++b) {
      int after = chain.count(static_cast<uint32_t>(b)) ? chain[static_cast<uint32_t>(b)] - 1 : 0;
      exact += after == n + 1;
      atLeast += after >= n + 1;
    }
    int count = -1;
    kt_ghash_collision_stats(t, 1, n, &count);
    EXPECT_EQ(count, exact) << n;
    kt_ghash_collision_stats(t, 0, n, &count);
    EXPECT_EQ(count, atLeast) << n;
  }
  int32_t minimum = 0;
  float lower = 0, upper = 0;
  kt_ghash_get_bounds(t, &minimum, &lower, &upper);
  EXPECT_EQ(minimum, 101);
  EXPECT_EQ(lower, 0.1f);
  EXPECT_EQ(upper, 3.0f);
  kt_ghash_get_bounds(t, nullptr, nullptr, nullptr);
  kt_delete_ghash_table(t);
}

}  // namespace

namespace {

// Default callbacks over keys that are not 8 bytes long take the general
// path: byte-wise hash over the key size and memcmp.
TEST(Ghash, DefaultCallbacksOnOddKeySizes) {
  Contexts c;
  for (uint64_t keySize : {1u, 3u, 12u, 40u}) {
    kt_ghash_table* t = kt_new_ghash_table(&c.memory, nullptr, nullptr, nullptr, nullptr, nullptr,
                                           nullptr, keySize, 40, 4, 44, nullptr, 3, 0.5f, 2.0f);
    std::map<std::string, int32_t> model;
    std::mt19937 rng(static_cast<unsigned>(keySize));
    for (int step = 0; step < 3000; ++step) {
      std::string key(keySize, '\0');
      for (char& ch : key)
        ch = static_cast<char>(rng() % 7);  // few distinct keys: many repeats
      int32_t value = static_cast<int32_t>(rng());
      if (rng() % 3) {
        ASSERT_EQ(kt_ghash_replace(t, key.data(), &value), model.count(key) ? 1 : 0);
        model[key] = value;
      } else {
        int32_t out = 0;
        ASSERT_EQ(kt_ghash_query_remove(t, key.data(), &out), model.count(key) ? 1 : 0);
        if (model.count(key)) {
          ASSERT_EQ(out, model[key]);
        }
        model.erase(key);
      }
      ASSERT_EQ(t->count, static_cast<int32_t>(model.size()));
    }
    kt_ghash_cursor cursor;
    kt_ghash_cursor_init(t, &cursor);
    void* element;
    void* data;
    size_t seen = 0;
    while (kt_ghash_iterate(t, &cursor, &element, &data)) {
      std::string key(static_cast<const char*>(element), keySize);
      uint32_t hash = kt_hash_n_bytes(0, keySize, element);
      ASSERT_EQ(static_cast<uint32_t>(cursor.position), hash % static_cast<uint32_t>(t->numBuckets));
      ASSERT_EQ(model.at(key), *static_cast<int32_t*>(data));
      ++seen;
    }
    EXPECT_EQ(seen, model.size());
    kt_delete_ghash_table(t);
  }
  EXPECT_EQ(c.LiveBlocks(), 0u);
}

}  // namespace

namespace {

int PutsnToStderr(void*, const char* text, int length) {
  return static_cast<int>(fwrite(text, 1, static_cast<size_t>(length), stderr));
}

// With no catch frame a bound error is printed and ends the process.
TEST(GhashDeathTest, UncaughtBoundErrorEndsProcess) {
  auto body = [] {
    static kt_message_context messages;
    static kt_error_context errors;
    static kt_mem_context memory;
    int status = 0;
    kt_initialize_message_context(&status, &messages, malloc, realloc);
    kt_initialize_error_context(&status, &errors, &messages, PutsnToStderr, nullptr);
    kt_initialize_memory_context(&memory, &errors, malloc, realloc, free);
    kt_new_ghash_table(&memory, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, 8, 0, 0, 8,
                       nullptr, 7, 0.0f, 1.0f);
  };
  EXPECT_DEATH(body(), "Internal Error: Load factor lower bound must be greater than or equal to 0\\.");
}

}  // namespace

namespace {

// The raised bound errors carry the hash tool's identifiers and texts.
TEST(Ghash, BoundErrorIdentifiersAndTexts) {
  Contexts c;
  struct Seen {
    std::string identifier;
    int code = 0;
  } seen;
  auto body = [](kt_error_context*, void* data) {
    auto* contexts = static_cast<Contexts*>(*static_cast<void**>(data));
    kt_ghash_table table;
    kt_initialize_ghash_table(&table, &contexts->memory, nullptr, nullptr, nullptr, nullptr,
                              nullptr, nullptr, 8, 0, 0, 8, nullptr, 7, 0.5f, 5.0f);
  };
  auto accept = [](kt_error_context*, void* data, const char* identifier, int code, va_list) {
    auto* s = static_cast<Seen*>(static_cast<void**>(data)[1]);
    s->identifier = identifier;
    s->code = code;
    return 1;
  };
  void* data[2] = {&c, &seen};
  EXPECT_EQ(kt_try_catch_id(&c.errors, data, body, accept), 0x30002);
  EXPECT_EQ(seen.identifier, "ZENTRA:HASH_INVALID_UPPER_LOAD_BOUND");
  EXPECT_STREQ(kt_get_message(&c.messages, 0x30001),
               "Internal Error: Load factor lower bound must be greater than or equal to 0.");
  EXPECT_STREQ(kt_get_message(&c.messages, 0x30003),
               "Internal Error: Load factor upper bound must be greater than lower bound.");
  EXPECT_STREQ(kt_get_message_mnemonic(&c.messages, 0x30003), "HASH_INVALID_LOAD_BOUND_RANGE");
  EXPECT_EQ(c.LiveBlocks(), 0u);
}

}  // namespace
