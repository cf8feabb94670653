// Heap wrappers, the out-of-memory exception, and memory contexts raising
// OUT_OF_MEMORY through an error context.
#include "kt/memory.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <map>
#include <new>
#include <random>
#include <string>

#include "kt/errors.h"
#include "kt/messages.h"

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

// ---- memory contexts -------------------------------------------------------

// A counting allocator: catches leaks, double frees and foreign pointers,
// and fails on demand.
struct Ledger {
  std::map<void*, size_t> live;
  int allocations = 0;
  int releases = 0;
  int nullReleases = 0;
  bool failNext = false;
  bool doubleFree = false;
};
Ledger* g_ledger = nullptr;

void* LedgerAlloc(size_t n) {
  if (g_ledger->failNext) return nullptr;
  void* p = std::malloc(n);
  g_ledger->live[p] = n;
  ++g_ledger->allocations;
  return p;
}
void* LedgerRealloc(void* p, size_t n) {
  if (g_ledger->failNext) return nullptr;
  if (p && !g_ledger->live.erase(p)) g_ledger->doubleFree = true;
  void* q = std::realloc(p, n);
  g_ledger->live[q] = n;
  return q;
}
void LedgerRelease(void* p) {
  ++g_ledger->releases;
  if (p == nullptr) {
    ++g_ledger->nullReleases;
    return;
  }
  if (!g_ledger->live.erase(p)) g_ledger->doubleFree = true;
  std::free(p);
}

struct Raised {
  int code = 0;
  int raises = 0;
  std::string text;
};

int Printed(void* data, const char* text, int length) {
  static_cast<std::string*>(data)->append(text, static_cast<size_t>(length));
  return length;
}

class MemoryContext : public ::testing::Test {
 protected:
  void SetUp() override {
    g_ledger = &ledger;
    int status = 0;
    ASSERT_EQ(kt_initialize_message_context(&status, &mc, ktMalloc, ktRealloc), 0);
    ASSERT_EQ(kt_initialize_error_context(&status, &ec, &mc, Printed, &printed), 0);
    kt_initialize_memory_context(&mem, &ec, LedgerAlloc, LedgerRealloc, LedgerRelease);
  }
  void TearDown() override {
    kt_clear_message_context(&mc, ktFree);
    EXPECT_TRUE(ledger.live.empty()) << "leaked blocks";
    EXPECT_FALSE(ledger.doubleFree);
    g_ledger = nullptr;
  }
  Ledger ledger;
  std::string printed;
  kt_message_context mc;
  kt_error_context ec;
  kt_mem_context mem;
};

int AcceptAll(kt_error_context*, void* data, int code, va_list) {
  auto* r = static_cast<Raised*>(data);
  r->code = code;
  ++r->raises;
  return 1;
}

TEST_F(MemoryContext, RecordIsFilledAndTableRegistered) {
  EXPECT_EQ(mem.errorContext, &ec);
  EXPECT_EQ(mem.errorContextCopy, &ec);
  EXPECT_STREQ(kt_get_message(&mc, KT_OUT_OF_MEMORY), "Error: Out of memory.");
  EXPECT_STREQ(kt_get_message_mnemonic(&mc, KT_OUT_OF_MEMORY), "OUT_OF_MEMORY");
}

TEST_F(MemoryContext, FailingAllocateRaisesOutOfMemoryExactlyOnce) {
  struct Job {
    kt_mem_context* mem;
    size_t size;
    Raised r;
  } job{&mem, 0, {}};
  auto body = [](kt_error_context*, void* data) {
    auto* j = static_cast<Job*>(data);
    g_ledger->failNext = true;
    void* p = kt_mem_alloc(j->mem, j->size);
    g_ledger->failNext = false;
    if (j->size != 0) ADD_FAILURE() << "kt_mem_alloc returned after a raise";
    EXPECT_EQ(p, nullptr);
  };
  auto accept = [](kt_error_context* c, void* data, int raised, va_list a) {
    return AcceptAll(c, &static_cast<Job*>(data)->r, raised, a);
  };
  // Size 0 never calls allocate, even one that would fail.
  EXPECT_EQ(kt_try_catch(&ec, &job, body, accept), 0);
  EXPECT_EQ(job.r.raises, 0);
  job.size = 100;
  int code = kt_try_catch(&ec, &job, body, accept);
  ledger.failNext = false;
  EXPECT_EQ(code, 0x20001);
  EXPECT_EQ(job.r.raises, 1);
  EXPECT_EQ(ec.top, nullptr);
}

TEST_F(MemoryContext, OutOfMemoryTextReachesTheFrame) {
  struct Job {
    kt_mem_context* mem;
    std::string text;
  } job{&mem, {}};
  int code = kt_try_catch(&ec, &job, [](kt_error_context*, void* data) {
    g_ledger->failNext = true;
    kt_mem_realloc(static_cast<Job*>(data)->mem, nullptr, 10);
  }, [](kt_error_context* c, void* data, int raised, va_list a) {
    char buf[128];
    kt_vsprintm(c->messageContext, buf, sizeof buf, raised, a);
    static_cast<Job*>(data)->text = buf;
    return 1;
  });
  ledger.failNext = false;
  EXPECT_EQ(code, KT_OUT_OF_MEMORY);
  EXPECT_EQ(job.text, "Error: Out of memory.");
}

TEST_F(MemoryContext, ReallocToZeroReleasesEvenNull) {
  EXPECT_EQ(kt_mem_realloc(&mem, nullptr, 0), nullptr);
  EXPECT_EQ(ledger.nullReleases, 1);
  void* p = kt_mem_alloc(&mem, 10);
  EXPECT_EQ(kt_mem_realloc(&mem, p, 0), nullptr);
  EXPECT_EQ(ledger.releases, 2);
  EXPECT_EQ(kt_mem_alloc(&mem, 0), nullptr);
  EXPECT_EQ(ledger.allocations, 1);
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
  EXPECT_EQ(ledger.live.size(), 0u);
}

TEST_F(MemoryContext, NewAndDeleteUseTheGivenFunctions) {
  kt_mem_context* m = kt_new_memory_context(&ec, LedgerAlloc, LedgerRealloc, LedgerRelease);
  EXPECT_EQ(ledger.allocations, 1);
  EXPECT_EQ(m->release, &LedgerRelease);
  kt_delete_memory_context(m);
  EXPECT_EQ(ledger.releases, 1);
}

TEST_F(MemoryContext, NewWithFailingAllocateRaises) {
  Raised r;
  int code = kt_try_catch(&ec, &r, [](kt_error_context* c, void*) {
    g_ledger->failNext = true;
    kt_new_memory_context(c, LedgerAlloc, LedgerRealloc, LedgerRelease);
  }, AcceptAll);
  ledger.failNext = false;
  EXPECT_EQ(code, KT_OUT_OF_MEMORY);
  EXPECT_EQ(r.raises, 1);
}

// A malformed table registered through a memory context becomes a raised
// module-0 error with the explaining numbers.
const int kBadCodes[] = {(5 << 16) | 1, (5 << 16) | 7, -1};
const char* const kBadMnemonics[] = {"A", "B"};
const char* const kBadTexts[] = {"a", "b"};
const kt_message_table kBadTable = {2, 5, kBadCodes, kBadMnemonics, kBadTexts, "bad"};

TEST_F(MemoryContext, MalformedTableIsRaisedAsExplainingMessage) {
  struct Job {
    kt_mem_context* mem;
    std::string text;
  } job{&mem, {}};
  int code = kt_try_catch(&ec, &job, [](kt_error_context*, void* data) {
    kt_mem_add_primary_message_table(static_cast<Job*>(data)->mem, &kBadTable);
  }, [](kt_error_context* c, void* data, int raised, va_list a) {
    char buf[256];
    kt_vsprintm(c->messageContext, buf, sizeof buf, raised, a);
    static_cast<Job*>(data)->text = buf;
    return 1;
  });
  EXPECT_EQ(code, KT_WRONG_CODE);
  EXPECT_EQ(job.text, "Internal Error: Module 5 has a wrong code at entry 2.");
  EXPECT_NE(kt_get_message(&mc, (5 << 16) | 1), nullptr);  // a refused table stays registered
}

TEST_F(MemoryContext, RemovingAnUnknownTableRaises) {
  int code = kt_try_catch(&ec, &mem, [](kt_error_context*, void* data) {
    kt_mem_remove_primary_message_table(static_cast<kt_mem_context*>(data), &kBadTable);
  }, [](kt_error_context*, void*, int, va_list) { return 1; });
  EXPECT_EQ(code, KT_NO_MEMORY_FOR_MESSAGE_CONTEXT);  // -1 reads as the memory failure
}

}  // namespace
