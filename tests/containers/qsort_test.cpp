// kt_qsort against std::sort, with comparisons that are not consistent
// orders, and the temporary element's memory context. fuzz/qsort_fuzz.cpp
// drives fuzzed element sizes and comparisons under the sanitizers.
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

// A comparison that records any element address outside the array and
// answers as its mode says.
struct Probe {
  const char* begin;
  const char* end;
  size_t size;
  int mode;
  std::mt19937 rng;
  bool strayed = false;
};

int Inconsistent(void* context, const void* a, const void* b) {
  auto* p = static_cast<Probe*>(context);
  for (const void* e : {a, b}) {
    auto* q = static_cast<const char*>(e);
    if (q < p->begin || q >= p->end || (q - p->begin) % static_cast<long>(p->size) != 0)
      p->strayed = true;
  }
  if (p->strayed)
    return 0;  // never read through a stray address
  int x = Key(a), y = Key(b);
  switch (p->mode) {
    case 0: return x > y;  // only 0 and 1
    case 1: return 1;
    case 2: return -1;
    case 3: return (((x - y) % 3 + 3) % 3 + 1) % 3 - 1;  // cyclic, not transitive
    default: return static_cast<int>(p->rng() % 3) - 1;  // random
  }
}

std::vector<std::string> SortedElements(const char* array, int n, size_t size) {
  std::vector<std::string> elements;
  for (int i = 0; i < n; ++i)
    elements.emplace_back(array + static_cast<size_t>(i) * size, size);
  std::sort(elements.begin(), elements.end());
  return elements;
}

// Fault: a comparison that is not a consistent three-way order (`a > b`,
// not transitive, random) made the scans run outside the array, and
// elements were lost.
TEST(Qsort, InconsistentComparisonStaysInsideAndKeepsEveryElement) {
  std::mt19937 rng(7);
  for (size_t size : {4u, 8u, 12u, 300u}) {
    for (int mode = 0; mode < 5; ++mode) {
      for (int n : {2, 3, 4, 5, 9, 100, 2000}) {
        // One guard element on each side of the array.
        std::string storage((static_cast<size_t>(n) + 2) * size, '#');
        char* array = &storage[size];
        for (size_t i = 0; i < static_cast<size_t>(n) * size; ++i)
          array[i] = static_cast<char>(i % size < 4 ? rng() % 16 : rng());
        std::vector<std::string> before = SortedElements(array, n, size);
        Probe probe{array, array + static_cast<size_t>(n) * size, size, mode, std::mt19937(n)};
        kt_qsort(array, n, size, &probe, Inconsistent);
        ASSERT_FALSE(probe.strayed) << size << " " << mode << " " << n;
        ASSERT_EQ(storage.substr(0, size), std::string(size, '#'));
        ASSERT_EQ(storage.substr(storage.size() - size), std::string(size, '#'));
        ASSERT_EQ(SortedElements(array, n, size), before) << size << " " << mode << " " << n;
      }
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
