// kt_qsort against std::sort, and the temporary element's memory context.
// fuzz/qsort_fuzz.cpp drives fuzzed element sizes and comparisons that are
// not consistent orders (only 0 and 1, constant, not transitive, random):
// the array is allocated at its exact size, every address handed to the
// comparison must be an element, and no element may be lost.
#include <algorithm>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/counting_context.h"
#include "kt/containers.h"
#include "kt/contexts.h"

namespace {

int Key(const void* element) {
  int key;
  std::memcpy(&key, element, sizeof key);
  return key;
}

int CompareKeys(void*, const void* a, const void* b) {
  int x = Key(a), y = Key(b);
  return x < y ? -1 : (x > y ? 1 : 0);
}

TEST(Qsort, MatchesStdSort) {
  std::mt19937 rng(81);
  for (int n : {0, 1, 2, 3, 4, 5, 7, 16, 100, 1000, 20000}) {
    for (int pattern = 0; pattern < 5; ++pattern) {  // random, sorted, reversed, few values, organ pipe
      std::vector<int> v(static_cast<size_t>(n));
      for (int i = 0; i < n; ++i) {
        int values[] = {static_cast<int>(rng()), i, n - i, static_cast<int>(rng() % 3), i % 2 ? i : n - i};
        v[static_cast<size_t>(i)] = values[pattern];
      }
      std::vector<int> expected = v;
      std::sort(expected.begin(), expected.end());
      kt_qsort(v.data(), n, sizeof(int), nullptr, CompareKeys);
      ASSERT_EQ(v, expected) << n << " " << pattern;
    }
  }
}

void SortFifty(kt_error_context*, void* data) {
  auto* array = static_cast<std::string*>(data);
  kt_qsort(&(*array)[0], 50, array->size() / 50, nullptr, CompareKeys);
}

// Fault: only elements above 256 bytes took their temporary from the
// default memory context, so a host counting or limiting that context did
// not see the others and their allocation could not fail.
TEST(Qsort, TemporaryComesFromTheDefaultMemoryContextForEverySize) {
  kt_mem_context* memory = ktGetMemoryContext();
  kt_mem_context saved = *memory;
  memory->allocate = kttest::CountingAllocate;
  memory->reallocate = kttest::CountingReallocate;
  memory->release = kttest::CountingRelease;
  kttest::HeapLedger& ledger = kttest::Ledger();
  auto accept = [](kt_error_context*, void*, int, va_list) { return 1; };
  std::mt19937 rng(3);
  for (size_t size : {4u, 8u, 12u, 256u, 300u}) {
    std::string array(50 * size, '\0'), before;
    for (char& ch : array)
      ch = static_cast<char>(rng());
    before = array;
    // Exhaustion raises OUT_OF_MEMORY before anything moves.
    ledger.failAfter = 0;
    EXPECT_EQ(kt_try_catch(ktGetErrorContext(), &array, SortFifty, accept), KT_OUT_OF_MEMORY);
    ledger.failAfter = -1;
    EXPECT_EQ(array, before) << size;
    size_t allocations = ledger.allocations, live = ledger.live.size();
    SortFifty(nullptr, &array);
    EXPECT_EQ(ledger.allocations, allocations + 1) << size;
    EXPECT_EQ(ledger.lastSize, size);
    EXPECT_EQ(ledger.live.size(), live);
  }
  *memory = saved;
}

}  // namespace
