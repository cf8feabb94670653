// Test support: a message, error and memory context trio whose memory
// context counts live blocks, so that a test can assert that everything
// it allocated was released exactly once.
#ifndef KT_TESTS_SUPPORT_COUNTING_CONTEXTS_H
#define KT_TESTS_SUPPORT_COUNTING_CONTEXTS_H

#include <atomic>
#include <cstdlib>
#include <set>
#include <mutex>

#include "kt/errors.h"
#include "kt/memory.h"
#include "kt/messages.h"

namespace kttest {

// Live-block bookkeeping shared by the counting functions: a release of a
// block that is not live (a double free) is recorded as a fault.
struct BlockLedger {
  std::mutex mutex;
  std::set<void*> live;
  int faults = 0;

  static BlockLedger& Get() {
    static BlockLedger ledger;
    return ledger;
  }
};

inline void* CountingAllocate(size_t size) {
  void* p = std::malloc(size);
  if (p) {
    auto& l = BlockLedger::Get();
    std::lock_guard<std::mutex> lock(l.mutex);
    l.live.insert(p);
  }
  return p;
}

inline void CountingRelease(void* p) {
  if (p == nullptr)
    return;
  auto& l = BlockLedger::Get();
  {
    std::lock_guard<std::mutex> lock(l.mutex);
    if (l.live.erase(p) == 0)
      ++l.faults;
  }
  std::free(p);
}

inline void* CountingReallocate(void* p, size_t size) {
  void* q = std::realloc(p, size);
  if (q) {
    auto& l = BlockLedger::Get();
    std::lock_guard<std::mutex> lock(l.mutex);
    if (p) l.live.erase(p);
    l.live.insert(q);
  }
  return q;
}

inline int SilentOutput(void*, const char*, int length) { return length; }

// The three contexts, initialised in dependency order; the memory context
// counts. Errors raised without a frame end the process, as in production.
struct CountingContexts {
  kt_message_context messages{};
  kt_error_context errors{};
  kt_mem_context memory{};

  CountingContexts() {
    int status = 0;
    kt_initialize_message_context(&status, &messages, std::malloc, std::realloc);
    kt_initialize_error_context(&status, &errors, &messages, SilentOutput, nullptr);
    kt_initialize_memory_context(&memory, &errors, CountingAllocate, CountingReallocate,
                                 CountingRelease);
  }
  ~CountingContexts() { kt_clear_message_context(&messages, std::free); }

  static size_t LiveBlocks() {
    auto& l = BlockLedger::Get();
    std::lock_guard<std::mutex> lock(l.mutex);
    return l.live.size();
  }
  static int Faults() {
    auto& l = BlockLedger::Get();
    std::lock_guard<std::mutex> lock(l.mutex);
    return l.faults;
  }
};

}  // namespace kttest

#endif  // KT_TESTS_SUPPORT_COUNTING_CONTEXTS_H
