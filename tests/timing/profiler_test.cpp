// The function profiler against the model of profiler_model.h: named
// traces with answers worked out by hand, and a trace run once per
// allocation with that allocation failing (each failure must leave a
// cleared profiler, the right message on the console and no leak); then the
// failures the model does not cover. Random traces against the model are
// fuzz/profiler_fuzz.cpp's.
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <functional>
#include <string>
#include <vector>

#include "kt/clocks.h"
#include "kt/profiler.h"
#include "support/console_capture.h"
#include "support/counting_context.h"
#include "timing/profiler_model.h"

namespace {

using namespace profmodel;
using kttest::Ledger;

// The counting contexts with errors printed on the console, and profilers
// on them with the model's callbacks and clock.
class ProfilerTest : public ::testing::Test {
protected:
  void SetUp() override {
    kt_mem_context plain;  // registers the profiler's table with the messages' own heap
    kt_initialize_memory_context(&plain, &c_.errors, std::malloc, std::realloc, std::free);
    ktProfDeleteProfiler(ktProfNewProfiler(&plain, "", nullptr, nullptr, nullptr, nullptr));
    c_.errors.output = [](void*, const char* text, int length) { return ktPutsn(text, length); };
    gSkip[0] = gSkip[1] = 0, gOwner = ~0u, gClock = 0;
  }
  void TearDown() override { EXPECT_TRUE(c_.LiveBlocks() == 0 && c_.BadFrees() == 0); }
  ktProfiler* New(ktProfSkipFunction skip = Skip) {
    ktProfiler* p = ktProfNewProfiler(&c_.memory, "test", skip, OwnsLines, nullptr, nullptr);
    p->clock = Clock;
    return p;
  }
  // Checks every step against a fresh model (with `everyStep` false, the
  // profile only at the end); returns the index of the step that ran out of
  // memory (the trace stops there), -1 at the end, -2 on a difference.
  long Run(ktProfiler* p, const std::vector<Step>& steps, const std::string& name, bool everyStep = true) {
    Model m;
    for (size_t i = 0; i < steps.size(); ++i) {
      bool failed = false, last = i + 1 == steps.size();
      std::string difference = Check(p, m, steps[i], console_.text, &failed, everyStep || last);
      EXPECT_EQ(difference, "") << name << ", step " << i;
      if (failed || !difference.empty()) return difference.empty() ? static_cast<long>(i) : -2;
    }
    return -1;
  }

  kttest::ConsoleCapture console_;
  kttest::Contexts c_;
};

const ktProfFunctionRecord* Find(const ktProfiler* p, int function) {
  void* key[2] = {&kFunctions[function], nullptr};
  return static_cast<const ktProfFunctionRecord*>(
      kt_ghash_query_element(const_cast<kt_ghash_table*>(&p->functionTable), key));
}

double LineTime(const ktProfiler* p, int function, uint32_t line) {
  return ktProfLookupLinenumRecord(const_cast<ktProfFunctionRecord*>(Find(p, function)), line)->time;
}

Step E(int f, int data = 0) { return {kEntry, f, data}; }
Step X(int f) { return {kExit, f, 0}; }
Step L(int line) { return {kLine, line, 0}; }
Step Do(Op op) { return {op, 0, 0}; }

struct NamedTrace {
  const char* name;
  uint32_t skipInner, skipOuter, owner;
  std::vector<Step> steps;
  std::function<void(const ktProfiler*)> known;
};

TEST_F(ProfilerTest, NamedTracesAgreeWithTheModelAndKnownAnswers) {
  const NamedTrace traces[] = {
      {"recursion f>f>f", 0, 0, ~0u, {E(0), E(0), E(0), X(0), X(0), X(0)},
       [](const ktProfiler* p) {  // entries at 1, 2, 3; exits at 4, 5, 6; total: the outermost
         const ktProfFunctionRecord* f = Find(p, 0);
         EXPECT_TRUE(f->totalTime == 6 - 1 && f->selfTime == 5 + 3 + 1 && f->children->time == 3 + 1);
         EXPECT_TRUE(f->callCount == 3 && f->activeCount == 0 && f->parents->count == 2);
       }},
      {"mutual recursion f>g>f>g", 0, 0, ~0u, {E(0), E(1), E(0), E(1), X(1), X(0), X(1), X(0)},
       [](const ktProfiler* p) { EXPECT_TRUE(Find(p, 0)->selfTime == 7 + 3 && Find(p, 1)->totalTime == 5); }},
      {"skipped calls move the depth", 0b10, 0b100, ~0u,
       {E(0), E(1), E(2), X(2), X(1), X(0), E(2), X(2)},
       [](const ktProfiler* p) {  // the second call was outermost again; its exit met an empty stack
         EXPECT_TRUE(Find(p, 2)->callCount == 1 && p->depth == 1);
       }},
      {"exit on an empty stack", 0, 0, ~0u, {X(0), E(0), X(0), X(0), X(2)},
       [](const ktProfiler* p) { EXPECT_TRUE(p->depth == 0 && p->now == 2); }},
      {"lines 50, 10, 300", 0, 0, ~0u, {E(0), L(50), L(10), L(300), X(0)},
       [](const ktProfiler* p) {
         EXPECT_TRUE(Find(p, 0)->firstLine == 10 && Find(p, 0)->lastLine == 300 && Find(p, 0)->lineCapacity == 582);
       }},
      {"line -7 is line 7", 0, 0, ~0u, {E(0), L(-7), L(7), X(0)},
       [](const ktProfiler* p) { EXPECT_EQ(Find(p, 0)->lines[0].count, 2u); }},
      {"suspend ends a non-empty stack", 0, 0, ~0u,
       {Do(kStart), E(0), L(5), E(1), E(1), L(9), Do(kSuspend), Do(kResume), E(2)},
       [](const ktProfiler* p) { EXPECT_TRUE(Find(p, 1)->totalTime == 7 - 3 && LineTime(p, 1, 9) == 6 - 5); }},
      {"lines of a deeper owner", 0, 0, 0b01, {E(0), L(5), E(1), L(6), L(7), X(1), L(8), X(0)},
       [](const ktProfiler* p) {  // line 6 ended through g's current line; g's exit misses line 7
         EXPECT_TRUE(LineTime(p, 0, 6) == 1 && LineTime(p, 0, 7) == -5 && Find(p, 1)->lines == nullptr);
       }},
      {"one record per function information", 0, 0, ~0u, {E(3, 1), X(3), E(3, 0), X(3)},
       [](const ktProfiler* p) { EXPECT_EQ(Find(p, 3)->data, &kData[1]); }},
      {"history switch", 0, 0, ~0u,
       {Do(kHistoryOn), Do(kStart), E(0), Do(kHistoryOff), Do(kHistoryOn), Do(kSuspend),
        Do(kHistoryOn), Do(kResume), Do(kHistoryOn), Do(kReset), E(1), X(1)},
       [](const ktProfiler* p) { EXPECT_EQ(ktProfNumberOfEventRecords(p), 2u); }},
  };
  for (const NamedTrace& t : traces) {
    SCOPED_TRACE(t.name);
    gSkip[0] = t.skipInner, gSkip[1] = t.skipOuter, gOwner = t.owner, gClock = 0;
    ktProfiler* p = New();
    if (Run(p, t.steps, t.name) == -1) t.known(p);
    ktProfDeleteProfiler(p);
  }
}

// Table growth, front and back line growth, history blocks (one spilling
// during a suspend) and the shrinking of a grown table, with logging off
// and on.
std::vector<Step> FailureTrace() {
  std::vector<Step> steps = {Do(kHistoryOn), E(0), L(50), L(10), L(300), Do(kStart)};
  for (int i = 0; i < 130; ++i) {
    steps.insert(steps.end(), {E(i), L(-i), E(0), X(0)});
    if (i % 2) steps.push_back(X(i));
  }
  steps.insert(steps.end(), {Do(kSuspend), Do(kResume), Do(kStart), E(1), Do(kSuspend)});
  return steps;
}

TEST_F(ProfilerTest, FailureAtEveryAllocationClearsAndTellsWhy) {
  const std::vector<Step> steps = FailureTrace();
  for (long n = 0, failedAt = 0; failedAt != -1; ++n) {
    ktProfiler* p = New();
    gClock = 0, Ledger().failAfter = n;
    failedAt = Run(p, steps, "allocation " + std::to_string(n), false);
    Ledger().failAfter = -1;
    ktProfDeleteProfiler(p);
    ASSERT_TRUE(c_.LiveBlocks() == 0 && failedAt != -2) << "allocation " << n;
  }
}

TEST_F(ProfilerTest, FailuresTheModelDoesNotCoverAlsoClear) {
  // A line table too long to count is exhaustion before any allocation.
  ktProfiler* p = New();
  EXPECT_EQ(Run(p, {Do(kStart), E(0), L(0), L(INT32_MIN)}, "long line"), 3);
  ktProfDeleteProfiler(p);
  // Any other error under a logging call clears the profile silently.
  static kt_error_context* errors;
  errors = &c_.errors;
  p = New([](void*, void*, bool) -> bool { kt_error(errors, KT_PROFILE_INVALID_ARGUMENTS); });
  console_.text.clear();
  EXPECT_EQ(c_.Catch([&] { ktProfLogFunctionEntry(p, &kFunctions[0], nullptr); }),
            KT_PROFILE_INVALID_ARGUMENTS);
  EXPECT_TRUE(!ktProfIsInitialized(p) && console_.text.empty());
  ktProfStartLogging(p);  // a cleared profiler stays cleared
  EXPECT_FALSE(ktProfIsInitialized(p) || ktProfIsFunctionLoggingEnabled(p));
  ktProfDeleteProfiler(p);
  // Initialisation failures release everything.
  for (long n = 0, code = -1; code != 0; ++n) {
    Ledger().failAfter = n, p = nullptr;
    code = c_.Catch([&] { p = New(); });
    Ledger().failAfter = -1;
    ktProfDeleteProfiler(p);
    ASSERT_TRUE(c_.LiveBlocks() == 0 && (code == 0 || code == KT_OUT_OF_MEMORY)) << "allocation " << n;
  }
}

TEST_F(ProfilerTest, DefaultsAndHelpers) {
  ktProfiler* p = ktProfNewProfiler(&c_.memory, nullptr, nullptr, nullptr, nullptr, nullptr);
  EXPECT_STREQ(ktProfProfilerName(p), "");
  EXPECT_TRUE(p->clock == ktCPUtime && p->processorFrequency == 1 && p->initialTableSize == 199 &&
              p->historyCapacity == 10000 && p->historyBlockSize == 500);
  EXPECT_TRUE(!p->skip(nullptr, nullptr, true) && p->lineOwner(nullptr, nullptr));
  EXPECT_EQ(p->mapFunctionInfo(&kFunctions[2], nullptr), &kFunctions[2]);
  EXPECT_EQ(ktProfFunctionInfoToTypename(p, nullptr, nullptr), nullptr);
  p->typeName = [](void* info, void*) { return static_cast<const char*>(info); };
  EXPECT_STREQ(ktProfFunctionInfoToTypename(p, const_cast<char*>("f"), nullptr), "f");
  ktProfDeleteProfiler(p);
  double step = ktProfCpuTimeGranularity();
  EXPECT_TRUE(step > 0 && std::isfinite(step));
}

}  // namespace
