// Heap wrappers, the out-of-memory exception, and memory contexts raising
// OUT_OF_MEMORY through an error context.
#include "kt/memory.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <functional>
#include <map>
#include <new>
#include <random>
#include <string>
#include <vector>

#include "kt/errors.h"
#include "kt/messages.h"
#include "support/counting_context.h"

// Huge requests must fail with null rather than end the test under ASan.
extern "C" __attribute__((visibility("default"), used)) const char* __asan_default_options() {
  return "allocator_may_return_null=1";
}

namespace {

constexpr size_t kImpossible = SIZE_MAX / 2;

TEST(HeapWrappers, ZeroSizesGiveNull) {
  EXPECT_EQ(ktMalloc(0), nullptr);
  EXPECT_EQ(ktMallocWithCheck(0), nullptr);
  EXPECT_EQ(ktCalloc(0, 8), nullptr);
  EXPECT_EQ(ktCalloc(8, 0), nullptr);
  EXPECT_EQ(ktCallocWithCheck(0, 8), nullptr);
  EXPECT_EQ(ktRealloc(nullptr, 0), nullptr);
  void* p = ktMalloc(10);
  ASSERT_NE(p, nullptr);
  EXPECT_EQ(ktRealloc(p, 0), nullptr);  // released (ASan would report a leak otherwise)
  p = ktMallocWithCheck(10);
  EXPECT_EQ(ktReallocWithCheck(p, 0), nullptr);
}

TEST(HeapWrappers, CallocZeroesAndReallocKeepsContents) {
  auto* z = static_cast<unsigned char*>(ktCalloc(100, 3));
  ASSERT_NE(z, nullptr);
  for (int i = 0; i < 300; ++i) ASSERT_EQ(z[i], 0);
  std::memset(z, 0x5A, 300);
  z = static_cast<unsigned char*>(ktRealloc(z, 5000));
  ASSERT_NE(z, nullptr);
  for (int i = 0; i < 300; ++i) ASSERT_EQ(z[i], 0x5A);
  ktFree(z);
}

TEST(HeapWrappers, PlainVariantsReturnNullOnExhaustion) {
  EXPECT_EQ(ktMalloc(kImpossible), nullptr);
  EXPECT_EQ(ktCalloc(kImpossible, 4), nullptr);
  void* p = ktMalloc(16);
  std::memcpy(p, "still here", 11);
  EXPECT_EQ(ktRealloc(p, kImpossible), nullptr);
  EXPECT_STREQ(static_cast<char*>(p), "still here");  // the old block stays valid
  ktFree(p);
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
  }
  EXPECT_STREQ(static_cast<char*>(p), "keep");
  ktFree(p);
}

TEST(HeapWrappers, OutOfMemoryExceptionClonesAndRethrows) {
  util::detail::legacy_bad_alloc_impl e =
      bedrock::core::except::detail::legacy(bedrock::core::except::bad_alloc());
  bedrock::core::except::IException* copy = e.clone();
  EXPECT_EQ(copy->GetID(), "ZENTRA:nomem");
  EXPECT_EQ(copy->GetUnicodeMessageTxt(), e.GetUnicodeMessageTxt());
  EXPECT_THROW(copy->rethrow(), util::detail::legacy_bad_alloc_impl);
  delete copy;
}

TEST(HeapWrappers, DeprecatedZeroingAllocators) {
  auto* a = static_cast<unsigned char*>(ktNewZero_deprecated(64));
  for (int i = 0; i < 64; ++i) ASSERT_EQ(a[i], 0);
  ::operator delete(a);
  auto* b = static_cast<unsigned char*>(ktNewArrayZero_deprecated(33));
  for (int i = 0; i < 33; ++i) ASSERT_EQ(b[i], 0);
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

// Runs `body` under a frame that accepts every raise: the raised code (0 for
// none), the raise count and the text the frame formats.
struct Raised {
  int code = 0;
  int raises = 0;
  std::string text;
};
template <class Body>
Raised CatchRaise(kt_error_context* ec, Body body) {
  struct Job {
    Body* body;
    Raised raised;
  } job{&body, {}};
  job.raised.code = kt_try_catch(ec, &job, [](kt_error_context*, void* data) {
    (*static_cast<Job*>(data)->body)();
  }, [](kt_error_context* context, void* data, int code, va_list args) {
    char text[256];
    kt_vsprintm(context->messageContext, text, sizeof text, code, args);
    static_cast<Job*>(data)->raised.text = text;
    ++static_cast<Job*>(data)->raised.raises;
    return 1;
  });
  return job.raised;
}

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
    Raised r = CatchRaise(&c.errors, [&] {
      ledger.failAfter = 0;
      entries[i]();
      ADD_FAILURE() << "entry " << i << " returned after a raise";
    });
    ledger.failAfter = -1;
    EXPECT_EQ(r.code, KT_OUT_OF_MEMORY) << i;
    EXPECT_EQ(r.raises, 1) << i;
    EXPECT_EQ(r.text, "Error: Out of memory.") << i;
  }
  EXPECT_EQ(c.errors.top, nullptr);
  ledger.failAfter = 0;
  EXPECT_EQ(kt_mem_alloc(&mem, 0), nullptr) << "size 0 never calls allocate";
}

TEST_F(MemoryContext, ReallocToZeroReleasesEvenNull) {
  size_t releases = ledger.releases, allocations = ledger.allocations;
  EXPECT_EQ(kt_mem_realloc(&mem, nullptr, 0), nullptr);
  EXPECT_EQ(ledger.releases, releases + 1) << "release(null) is called";
  void* p = kt_mem_alloc(&mem, 10);
  EXPECT_EQ(kt_mem_realloc(&mem, p, 0), nullptr);
  EXPECT_EQ(ledger.releases, releases + 2);
  EXPECT_EQ(ledger.allocations, allocations + 1);
}

TEST_F(MemoryContext, CallocZeroFillsExactlyAndStrdupCopies) {
  // Dirty a block, free it, and ask again: calloc must clear what it hands out.
  for (size_t n : {1u, 7u, 64u, 1000u}) {
    auto* p = static_cast<unsigned char*>(kt_mem_calloc(&mem, n));
    for (size_t i = 0; i < n; ++i) ASSERT_EQ(p[i], 0) << n;
    std::memset(p, 0xFF, n);
    kt_mem_free(&mem, p);
  }
  char* s = kt_mem_strdup(&mem, "duplicate me");
  EXPECT_STREQ(s, "duplicate me");
  kt_mem_free(&mem, s);
}

TEST_F(MemoryContext, RandomAllocationModel) {
  std::mt19937 rng(7);
  std::map<unsigned char*, std::pair<size_t, unsigned char>> model;
  for (int step = 0; step < 2000; ++step) {
    int op = static_cast<int>(rng() % 3);
    if (op == 0 || model.empty()) {
      size_t n = rng() % 200;
      auto* p = static_cast<unsigned char*>(kt_mem_alloc(&mem, n));
      if (n == 0) {
        EXPECT_EQ(p, nullptr);
        continue;
      }
      unsigned char fill = static_cast<unsigned char>(rng());
      std::memset(p, fill, n);
      model[p] = {n, fill};
    } else {
      auto it = model.begin();
      std::advance(it, static_cast<long>(rng() % model.size()));
      for (size_t i = 0; i < it->second.first; ++i) ASSERT_EQ(it->first[i], it->second.second);
      if (op == 1) {
        kt_mem_free(&mem, it->first);
        model.erase(it);
      } else {
        size_t n = 1 + rng() % 300;
        unsigned char* block = it->first;
        auto [old, fill] = it->second;
        model.erase(it);
        auto* q = static_cast<unsigned char*>(kt_mem_realloc(&mem, block, n));
        size_t keep = old < n ? old : n;
        for (size_t i = 0; i < keep; ++i) ASSERT_EQ(q[i], fill);
        std::memset(q, fill, n);
        model[q] = {n, fill};
      }
    }
  }
  for (auto& [p, info] : model) kt_mem_free(&mem, p);
}

TEST_F(MemoryContext, NewAndDeleteUseTheGivenFunctions) {
  size_t releases = ledger.releases;
  kt_mem_context* m = kt_new_memory_context(&c.errors, kttest::CountingAllocate,
                                            kttest::CountingReallocate, kttest::CountingRelease);
  EXPECT_EQ(c.LiveBlocks(), 1u);
  EXPECT_EQ(m->release, &kttest::CountingRelease);
  kt_delete_memory_context(m);
  EXPECT_EQ(ledger.releases, releases + 1);
}

// A malformed table registered through a memory context becomes a raised
// module-0 error with the explaining numbers.
const int kBadCodes[] = {(5 << 16) | 1, (5 << 16) | 7, -1};
const char* const kBadMnemonics[] = {"A", "B"};
const char* const kBadTexts[] = {"a", "b"};
const kt_message_table kBadTable = {2, 5, kBadCodes, kBadMnemonics, kBadTexts, "bad"};

TEST_F(MemoryContext, MalformedTableIsRaisedAsExplainingMessage) {
  Raised r = CatchRaise(&c.errors, [&] { kt_mem_add_primary_message_table(&mem, &kBadTable); });
  EXPECT_EQ(r.code, KT_WRONG_CODE);
  EXPECT_EQ(r.text, "Internal Error: Module 5 has a wrong code at entry 2.");
  EXPECT_NE(kt_get_message(&c.messages, (5 << 16) | 1), nullptr);  // a refused table stays registered
}

TEST_F(MemoryContext, RemovingAnUnknownTableRaises) {
  Raised r = CatchRaise(&c.errors, [&] { kt_mem_remove_primary_message_table(&mem, &kBadTable); });
  EXPECT_EQ(r.code, KT_NO_MEMORY_FOR_MESSAGE_CONTEXT);  // -1 reads as the memory failure
}

}  // namespace
