// Heap wrappers, the out-of-memory exception, and memory contexts raising
// OUT_OF_MEMORY through an error context.
#include "kt/memory.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <new>
#include <random>
#include <vector>

#include "support/counting_context.h"

// Huge requests must fail with null rather than end the test under ASan.
extern "C" __attribute__((visibility("default"), used)) const char* __asan_default_options() {
  return "allocator_may_return_null=1";
}

namespace {

constexpr size_t kImpossible = SIZE_MAX / 2;

bool AllBytes(const void* p, size_t n, unsigned char value) {
  auto* b = static_cast<const unsigned char*>(p);
  return std::all_of(b, b + n, [value](unsigned char c) { return c == value; });
}

TEST(HeapWrappers, ZeroSizesGiveNull) {
  EXPECT_EQ(ktMalloc(0), nullptr);
  EXPECT_EQ(ktMallocWithCheck(0), nullptr);
  EXPECT_EQ(ktCalloc(0, 8), nullptr);
  EXPECT_EQ(ktCalloc(8, 0), nullptr);
  EXPECT_EQ(ktCallocWithCheck(0, 8), nullptr);
  EXPECT_EQ(ktRealloc(nullptr, 0), nullptr);
  // Both blocks are released (ASan would report a leak otherwise).
  EXPECT_EQ(ktRealloc(ktMalloc(10), 0), nullptr);
  EXPECT_EQ(ktReallocWithCheck(ktMallocWithCheck(10), 0), nullptr);
}

TEST(HeapWrappers, CallocZeroesReallocKeepsAndPlainVariantsReturnNull) {
  auto* z = static_cast<unsigned char*>(ktCalloc(100, 3));
  ASSERT_NE(z, nullptr);
  EXPECT_TRUE(AllBytes(z, 300, 0));
  std::memset(z, 0x5A, 300);
  z = static_cast<unsigned char*>(ktRealloc(z, 5000));
  ASSERT_NE(z, nullptr);
  EXPECT_TRUE(AllBytes(z, 300, 0x5A));
  EXPECT_EQ(ktMalloc(kImpossible), nullptr);
  EXPECT_EQ(ktCalloc(kImpossible, 4), nullptr);
  EXPECT_EQ(ktRealloc(z, kImpossible), nullptr);
  EXPECT_TRUE(AllBytes(z, 300, 0x5A)) << "the old block stays valid";
  ktFree(z);
}

TEST(HeapWrappers, CheckedVariantsThrowTheProductExceptionCatchableBothWays) {
  EXPECT_THROW(ktMallocWithCheck(kImpossible), std::bad_alloc);
  EXPECT_THROW(ktCallocWithCheck(kImpossible, 2), bedrock::core::except::IUserException);
  void* p = ktMalloc(8);
  std::memcpy(p, "keep", 5);
  try {
    ktReallocWithCheck(p, kImpossible);
    FAIL() << "no exception";
  } catch (const util::detail::legacy_bad_alloc_impl& e) {
    EXPECT_EQ(e.GetID(), "ZENTRA:nomem");
    EXPECT_FALSE(e.GetUnicodeMessageTxt().empty());
    EXPECT_STREQ(e.what(), std::bad_alloc().what());  // answered by the base
    std::unique_ptr<bedrock::core::except::IException> copy(e.clone());
    EXPECT_EQ(copy->GetID(), "ZENTRA:nomem");
    EXPECT_EQ(copy->GetUnicodeMessageTxt(), e.GetUnicodeMessageTxt());
    EXPECT_THROW(copy->rethrow(), util::detail::legacy_bad_alloc_impl);
  }
  EXPECT_STREQ(static_cast<char*>(p), "keep");
  ktFree(p);
}

TEST(HeapWrappers, DeprecatedZeroingAllocators) {
  void* a = ktNewZero_deprecated(64);
  EXPECT_TRUE(AllBytes(a, 64, 0));
  ::operator delete(a);
  auto* b = static_cast<unsigned char*>(ktNewArrayZero_deprecated(33));
  EXPECT_TRUE(AllBytes(b, 33, 0));
  ::operator delete[](b);
  void* z1 = ktNewZero_deprecated(0);
  void* z2 = ktNewZero_deprecated(0);
  EXPECT_NE(z1, nullptr);
  EXPECT_NE(z1, z2);
  ::operator delete(z1);
  ::operator delete(z2);
  EXPECT_THROW(ktNewArrayZero_deprecated(kImpossible), util::detail::legacy_bad_alloc_impl);
}

// ---- memory contexts ----------------------------------------------------------

// A memory context over the counting heap of the test support: leaks,
// double and foreign frees are checked after every test.
class MemoryContext : public ::testing::Test {
 protected:
  void TearDown() override {
    ledger.failAfter = -1;
    EXPECT_EQ(c.LiveBlocks(), 0u) << "leaked blocks";
    EXPECT_EQ(c.BadFrees(), 0);
  }
  kttest::Contexts c;
  kt_mem_context& mem = c.memory;
  kttest::HeapLedger& ledger = kttest::Ledger();
};

// Every allocating entry raises OUT_OF_MEMORY once, with its text, when the
// allocator fails, and never returns to its caller; size 0 never allocates.
TEST_F(MemoryContext, EveryAllocatingEntryRaisesOutOfMemoryOnce) {
  EXPECT_STREQ(kt_get_message_mnemonic(&c.messages, KT_OUT_OF_MEMORY), "OUT_OF_MEMORY");
  kt_mem_context* m = &mem;
  std::vector<std::function<void*()>> entries = {
      [m] { return kt_mem_alloc(m, 100); },
      [m] { return kt_mem_calloc(m, 7); },
      [m] { return kt_mem_realloc(m, nullptr, 10); },
      [m] { return kt_mem_strdup(m, "text"); },
      [m] { return kt_new_memory_context(m->errorContext, kttest::CountingAllocate,
                                         kttest::CountingReallocate, kttest::CountingRelease); },
  };
  for (size_t i = 0; i < entries.size(); ++i) {
    int code = c.Catch([&] {
      ledger.failAfter = 0;
      entries[i]();
      ADD_FAILURE() << "entry " << i << " returned after a raise";
    });
    ledger.failAfter = -1;
    EXPECT_EQ(code, KT_OUT_OF_MEMORY) << i;
    EXPECT_EQ(c.raises, 1) << i;
    EXPECT_EQ(c.raisedText, "Error: Out of memory.") << i;
  }
  EXPECT_EQ(c.errors.top, nullptr);
  ledger.failAfter = 0;
  EXPECT_EQ(kt_mem_alloc(&mem, 0), nullptr) << "size 0 never calls allocate";
}

// Realloc to 0 releases (even null); strdup copies; a new context keeps
// the given functions and deleting it releases its one block.
TEST_F(MemoryContext, ReallocToZeroStrdupAndNewContext) {
  size_t releases = ledger.releases, allocations = ledger.allocations;
  EXPECT_EQ(kt_mem_realloc(&mem, nullptr, 0), nullptr);
  EXPECT_EQ(ledger.releases, releases + 1) << "release(null) is called";
  void* p = kt_mem_alloc(&mem, 10);
  EXPECT_EQ(kt_mem_realloc(&mem, p, 0), nullptr);
  EXPECT_EQ(ledger.releases, releases + 2);
  EXPECT_EQ(ledger.allocations, allocations + 1);
  char* s = kt_mem_strdup(&mem, "duplicate me");
  EXPECT_STREQ(s, "duplicate me");
  kt_mem_free(&mem, s);
  kt_mem_context* m = kt_new_memory_context(&c.errors, kttest::CountingAllocate,
                                            kttest::CountingReallocate, kttest::CountingRelease);
  EXPECT_EQ(c.LiveBlocks(), 1u);
  EXPECT_EQ(m->release, &kttest::CountingRelease);
  kt_delete_memory_context(m);
  EXPECT_EQ(ledger.releases, releases + 4);
}

// Blocks from alloc and calloc (which must clear what it hands out, often
// a block freed dirty just before), freed and resized at random, keep
// their contents.
TEST_F(MemoryContext, RandomAllocationModel) {
  std::mt19937 rng(7);
  std::map<unsigned char*, std::pair<size_t, unsigned char>> model;
  for (int step = 0; step < 2000; ++step) {
    int op = static_cast<int>(rng() % 3);
    if (op == 0 || model.empty()) {
      size_t n = rng() % 200;
      bool zeroed = rng() % 2 == 0;
      auto* p = static_cast<unsigned char*>(zeroed ? kt_mem_calloc(&mem, n) : kt_mem_alloc(&mem, n));
      if (n == 0) {
        EXPECT_EQ(p, nullptr);
        continue;
      }
      ASSERT_TRUE(!zeroed || AllBytes(p, n, 0)) << "calloc of " << n;
      unsigned char fill = static_cast<unsigned char>(rng());
      std::memset(p, fill, n);
      model[p] = {n, fill};
      continue;
    }
    auto it = std::next(model.begin(), static_cast<long>(rng() % model.size()));
    auto [block, info] = *it;
    ASSERT_TRUE(AllBytes(block, info.first, info.second));
    model.erase(it);
    if (op == 1) {
      kt_mem_free(&mem, block);
      continue;
    }
    size_t n = 1 + rng() % 300;
    auto* q = static_cast<unsigned char*>(kt_mem_realloc(&mem, block, n));
    ASSERT_TRUE(AllBytes(q, std::min(info.first, n), info.second));
    std::memset(q, info.second, n);
    model[q] = {n, info.second};
  }
  for (auto& [p, info] : model) kt_mem_free(&mem, p);
}

// A malformed table registered through a memory context becomes a raised
// module-0 error with the explaining numbers; removing an unknown table
// raises too.
const int kBadCodes[] = {(5 << 16) | 1, (5 << 16) | 7, -1};
const char* const kBadMnemonics[] = {"A", "B"};
const char* const kBadTexts[] = {"a", "b"};
const kt_message_table kBadTable = {2, 5, kBadCodes, kBadMnemonics, kBadTexts, "bad"};

TEST_F(MemoryContext, MalformedOrUnknownTableIsRaisedAsExplainingMessage) {
  EXPECT_EQ(c.Catch([&] { kt_mem_add_primary_message_table(&mem, &kBadTable); }), KT_WRONG_CODE);
  EXPECT_EQ(c.raisedText, "Internal Error: Module 5 has a wrong code at entry 2.");
  EXPECT_NE(kt_get_message(&c.messages, (5 << 16) | 1), nullptr);  // a refused table stays registered
  kt_message_table other = kBadTable;
  other.module = 6;
  // -1 reads as the memory failure.
  EXPECT_EQ(c.Catch([&] { kt_mem_remove_primary_message_table(&mem, &other); }),
            KT_NO_MEMORY_FOR_MESSAGE_CONTEXT);
}

}  // namespace
