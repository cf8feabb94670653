// Test support: a memory context whose allocate/reallocate/release track
// every live block, so tests can assert no leaks, catch double or foreign
// frees, fail an allocation on demand, and run bodies under kt_try_catch.
// The ledger is not locked: tests allocate from one thread at a time.
#ifndef KT_TESTS_SUPPORT_COUNTING_CONTEXT_H
#define KT_TESTS_SUPPORT_COUNTING_CONTEXT_H

#include <cstdlib>
#include <functional>
#include <map>
#include <string>

#include <gtest/gtest.h>

#include "kt/errors.h"
#include "kt/hashing.h"
#include "kt/memory.h"
#include "kt/messages.h"

namespace kttest {

struct HeapLedger {
  std::map<void*, size_t> live;  // block -> size
  size_t allocations = 0;        // successful allocate/reallocate-from-null calls
  size_t releases = 0;           // release calls, null included
  size_t lastSize = 0;           // size of the latest request
  int badFrees = 0;              // frees of blocks not live (double or foreign)
  long failAfter = -1;           // fail the request after this many more; -1 never
};

inline HeapLedger& Ledger() {
  static HeapLedger ledger;
  return ledger;
}

inline bool ShouldFail() {
  HeapLedger& l = Ledger();
  if (l.failAfter < 0)
    return false;
  if (l.failAfter == 0)
    return true;
  --l.failAfter;
  return false;
}

inline void* CountingAllocate(size_t size) {
  Ledger().lastSize = size;
  if (ShouldFail())
    return nullptr;
  void* p = std::malloc(size);
  Ledger().live[p] = size;
  Ledger().allocations++;
  return p;
}

inline void CountingRelease(void* p) {
  Ledger().releases++;
  if (p == nullptr)
    return;
  if (Ledger().live.erase(p) == 0) {
    Ledger().badFrees++;
    return;  // never hand a foreign pointer to free()
  }
  std::free(p);
}

inline void* CountingReallocate(void* p, size_t size) {
  Ledger().lastSize = size;
  if (p != nullptr && Ledger().live.count(p) == 0) {
    Ledger().badFrees++;
    return nullptr;
  }
  if (ShouldFail())
    return nullptr;
  void* q = std::realloc(p, size);
  if (q == nullptr)
    return nullptr;
  if (p != nullptr)
    Ledger().live.erase(p);
  else
    Ledger().allocations++;
  Ledger().live[q] = size;
  return q;
}

inline int AppendToString(void* data, const char* text, int length) {
  static_cast<std::string*>(data)->append(text, static_cast<size_t>(length));
  return length;
}

// Message, error and memory contexts for one test, with the hash-tool table
// registered before the leak baseline is taken.
class Contexts {
public:
  Contexts() {
    int status = 0;
    kt_initialize_message_context(&status, &messages, std::malloc, std::realloc);
    kt_initialize_error_context(&status, &errors, &messages, AppendToString, &printed);
    kt_initialize_memory_context(&memory, &errors, CountingAllocate, CountingReallocate,
                                 CountingRelease);
    kt_initialize_hashtool_messages(&memory);
    Ledger().failAfter = -1;
    baseline = Ledger().live.size();
    badFreesBefore = Ledger().badFrees;
  }
  ~Contexts() { kt_clear_message_context(&messages, std::free); }

  size_t LiveBlocks() const { return Ledger().live.size() - baseline; }
  int BadFrees() const { return Ledger().badFrees - badFreesBefore; }

  // Runs `body` under kt_try_catch with a frame that accepts every error;
  // returns 0 or the raised code. `raises` counts the errors the frame was
  // offered and `raisedText` holds the last one's formatted message.
  int Catch(const std::function<void()>& body) {
    struct Job {
      const std::function<void()>* body;
      Contexts* self;
    } job{&body, this};
    auto run = [](kt_error_context*, void* data) { (*static_cast<Job*>(data)->body)(); };
    auto accept = [](kt_error_context* context, void* data, int code, va_list args) {
      Contexts* self = static_cast<Job*>(data)->self;
      char text[512];
      kt_vsprintm(context->messageContext, text, sizeof text, code, args);
      self->raisedText = text;
      ++self->raises;
      return 1;
    };
    raises = 0;
    raisedText.clear();
    return kt_try_catch(&errors, &job, run, accept);
  }

  kt_message_context messages{};
  kt_error_context errors{};
  kt_mem_context memory{};
  std::string printed;
  std::string raisedText;
  int raises = 0;
  size_t baseline = 0;
  int badFreesBefore = 0;
};

}  // namespace kttest

#endif  // KT_TESTS_SUPPORT_COUNTING_CONTEXT_H
