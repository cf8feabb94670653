// kt_ghash: raised bound errors, exhaustion, sizing, callbacks, cursors and
// statistics. Random operation sequences against std::unordered_map live in
// fuzz/ghash_fuzz.cpp, over every table shape: it also guards the fault
// where a key-only table (data size 0) whose data offset lies after the key
// copied bytes from past the element instead of the key.
#include <cmath>
#include <cstring>
#include <string>
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
      kt_ghash_set_bounds(t, 3, k.lower, k.upper);  // the same bounds on a live table
      kt_delete_ghash_table(t);
    }
    // On caller storage the partly built record is cleared.
    kt_ghash_table local;
    code = c.Catch([&] {
      kt_initialize_ghash_table(&local, &c.memory, nullptr, nullptr, nullptr, nullptr, nullptr,
                                nullptr, 8, 8, 8, 16, nullptr, 10, k.lower, k.upper);
    });
    EXPECT_EQ(code, k.code);
    EXPECT_EQ(local.numBuckets, code ? -1 : 11);
    if (code == 0)
      kt_clear_ghash_table(&local);
    EXPECT_EQ(c.LiveBlocks(), 0u);
  }
  // The hash tool's messages, raised by code.
  EXPECT_STREQ(kt_get_message(&c.messages, 0x30001),
               "Internal Error: Load factor lower bound must be greater than or equal to 0.");
  EXPECT_STREQ(kt_get_message(&c.messages, 0x30002),
               "Internal Error: Load factor upper bound must be greater than 0.");
  EXPECT_STREQ(kt_get_message(&c.messages, 0x30003),
               "Internal Error: Load factor upper bound must be greater than lower bound.");
  EXPECT_STREQ(kt_get_message_mnemonic(&c.messages, 0x30002), "HASH_INVALID_UPPER_LOAD_BOUND");
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

TEST(Ghash, SizingEmptyAndClear) {
  Contexts c;
  for (auto [initial, buckets] : std::vector<std::pair<int32_t, int32_t>>{
           {0, 2}, {1, 2}, {-5, 2}, {7, 7}, {1023, 1031}, {1000, 1009}}) {
    kt_ghash_table* t = NewIntTable(c, initial, 1.0f, 2.0f);
    EXPECT_EQ(t->numBuckets, buckets);
    EXPECT_EQ(t->minBuckets, buckets);
    kt_delete_ghash_table(t);
  }
  kt_ghash_table* t = NewIntTable(c, 11, 0.5f, 1.0f);
  for (uint64_t k = 0; k < 5000; ++k)
    kt_ghash_insert(t, &k, &k);
  EXPECT_GT(t->numBuckets, 2500);
  for (uint64_t k = 0; k < 5000; ++k) {
    ASSERT_EQ(kt_ghash_remove_element(t, &k), 1);
    ASSERT_GE(t->numBuckets, 11);  // shrinking stops at the minimum
  }
  EXPECT_EQ(t->numBuckets, 11);
  kt_ghash_set_bounds(t, 100, 0.5f, 1.0f);  // a minimum above the count re-sizes up to it
  EXPECT_EQ(t->numBuckets, 101);
  kt_ghash_empty(t, 20);
  EXPECT_EQ(t->numBuckets, 23);
  EXPECT_EQ(t->minBuckets, 23);
  kt_clear_ghash_table(t);
  EXPECT_EQ(t->numBuckets, -1);
  EXPECT_EQ(t->snapshotCount, -1);
  EXPECT_EQ(t->memoryContext, nullptr);
  kt_mem_free(&c.memory, t);
  kt_delete_ghash_table(nullptr);
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
  EXPECT_STREQ(stored->value, "two");
  const char* canonical = nullptr;
  EXPECT_EQ(kt_ghash_uniquify(t, &key, &canonical), 1);
  EXPECT_EQ(canonical, stored->key);
  for (int i = 0; i < 200; ++i) {  // through several re-sizes
    std::string k = "key" + std::to_string(i);
    const char* kp = k.c_str();
    kt_ghash_replace(t, &kp, &one);
    kt_ghash_replace(t, &kp, &two);
    if (i % 3 == 0)
      kt_ghash_remove_element(t, &kp);  // deletes key and data
  }
  kt_ghash_empty(t, 0);
  kt_ghash_insert(t, &key, &one);
  kt_delete_ghash_table(t);
  EXPECT_EQ(c.LiveBlocks(), 0u);
  EXPECT_EQ(c.BadFrees(), 0);

  // Case-insensitive string keys with 4-byte data.
  t = kt_new_ghash_table(&c.memory, kt_ghash_stringi_key, kt_ghash_compare_stringi_keys,
                         kt_ghash_copy_string_key, kt_ghash_delete_string_key, nullptr, nullptr,
                         8, 8, 4, 16, &c.memory, 1023, 0.5f, 1.0f);
  const char* mixed = "Warning:Name";
  const char* lower = "warning:name";
  EXPECT_EQ(kt_ghash_insert(t, &mixed, &mixed), 0);
  EXPECT_EQ(kt_ghash_insert(t, &lower, &lower), 1);
  kt_delete_ghash_table(t);
  EXPECT_EQ(c.LiveBlocks(), 0u);
}

TEST(Ghash, SortedCursorApplyQueryByDataAndStatistics) {
  Contexts c;
  kt_ghash_table* t = NewIntTable(c, 7, 0.5f, 1.0f);
  for (uint64_t k = 1; k <= 500; ++k) {
    uint64_t key = k * 0x9E3779B97F4A7C15ull, data = k;
    kt_ghash_insert(t, &key, &data);
  }
  // The fingerprint folds the element addresses in plain iteration order.
  kt_ghash_cursor cursor;
  kt_ghash_cursor_init(t, &cursor);
  void* element;
  uint64_t fingerprint = 0;
  while (kt_ghash_iterate(t, &cursor, &element, nullptr))
    fingerprint = ((fingerprint << 1) | (fingerprint >> 63)) ^ reinterpret_cast<uint64_t>(element);
  auto byKey = [](void*, const void* a, const void* b) { return std::memcmp(a, b, 8); };
  kt_ghash_sorted_cursor_init(t, &cursor, nullptr, byKey);
  EXPECT_EQ(cursor.fingerprint, fingerprint);
  EXPECT_EQ(t->fingerprint, fingerprint);
  EXPECT_EQ(t->snapshotCount, 500);

  // apply stops at the first zero result.
  auto countTo = [](kt_ghash_table*, void* argument, void*, void*) {
    return --*static_cast<int*>(argument) > 0 ? 1 : 0;
  };
  int left = 3;
  EXPECT_EQ(kt_ghash_apply(t, countTo, &left), 0);
  EXPECT_EQ(left, 0);
  left = 501;
  EXPECT_EQ(kt_ghash_apply(t, countTo, &left), 1);
  EXPECT_EQ(left, 1);

  uint64_t wanted = 7, missing = 501, key = 7 * 0x9E3779B97F4A7C15ull;
  EXPECT_EQ(kt_ghash_query_by_data(t, &wanted), kt_ghash_query_element(t, &key));
  EXPECT_EQ(kt_ghash_query_by_data(t, &missing), nullptr);

  // Statistics count the record, the buckets and a node per element (the
  // chains are checked against a walk in the fuzz target).
  size_t bytes = 0, bytesToo = 0;
  kt_ghash_stats(t, &bytes, &bytesToo, nullptr);
  EXPECT_EQ(bytes, sizeof(kt_ghash_table) + 8 * static_cast<size_t>(t->numBuckets) + 32 * 500);
  EXPECT_EQ(bytesToo, bytes);
  int32_t minimum = 0;
  float lower = 0, upper = 0;
  kt_ghash_get_bounds(t, &minimum, &lower, &upper);
  EXPECT_EQ(minimum, 7);
  EXPECT_EQ(lower, 0.5f);
  EXPECT_EQ(upper, 1.0f);
  kt_ghash_get_bounds(t, nullptr, nullptr, nullptr);
  kt_delete_ghash_table(t);
  EXPECT_EQ(c.LiveBlocks(), 0u);
}

}  // namespace
