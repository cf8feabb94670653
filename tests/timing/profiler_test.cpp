// The function profiler against the model of profiler_model.h: named
// traces with answers worked out by hand, random traces (small history
// capacities included), and a trace run once per allocation with that allocation failing (each
// failure must leave a cleared profiler, the right message on the console
// and no leak); then the failures the model does not cover.
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <functional>
#include <random>
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
  // Checks every step against the model (with `everyStep` false, the
  // profile only at the end); returns the index of the step that ran out of
  // memory (the trace stops there), -1 at the end, -2 on a difference.
  long Run(ktProfiler* p, Model& m, const std::vector<Step>& steps, const std::string& name,
           bool everyStep = true) {
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
       [](const ktProfiler* p) {  // entries at 1, 2, 3; exits at 4, 5, 6
         const ktProfFunctionRecord* f = Find(p, 0);
         EXPECT_EQ(f->totalTime, 6 - 1);  // the outermost call only
         EXPECT_EQ(f->selfTime, 5 + 3 + 1);
         EXPECT_TRUE(f->callCount == 3 && f->activeCount == 0 && f->parents->count == 2);
         EXPECT_EQ(f->children->time, 3 + 1);
       }},
      {"mutual recursion f>g>f>g", 0, 0, ~0u, {E(0), E(1), E(0), E(1), X(1), X(0), X(1), X(0)},
       [](const ktProfiler* p) {
         EXPECT_EQ(Find(p, 0)->selfTime, 7 + 3);
         EXPECT_EQ(Find(p, 1)->totalTime, 5);
       }},
      {"skipped calls move the depth", 0b10, 0b100, ~0u,
       {E(0), E(1), E(2), X(2), X(1), X(0), E(2), X(2)},
       [](const ktProfiler* p) {
         EXPECT_EQ(Find(p, 2)->callCount, 1u);  // the second call was outermost again
         EXPECT_EQ(p->depth, 1u);               // its exit met an empty stack
       }},
      {"exit on an empty stack", 0, 0, ~0u, {X(0), E(0), X(0), X(0), X(2)},
       [](const ktProfiler* p) { EXPECT_TRUE(p->depth == 0 && p->now == 2); }},
      {"lines 50, 10, 300", 0, 0, ~0u, {E(0), L(50), L(10), L(300), X(0)},
       [](const ktProfiler* p) {
         const ktProfFunctionRecord* f = Find(p, 0);
         EXPECT_TRUE(f->firstLine == 10 && f->lastLine == 300 && f->lineCapacity == 582);
       }},
      {"line -7 is line 7", 0, 0, ~0u, {E(0), L(-7), L(7), X(0)},
       [](const ktProfiler* p) { EXPECT_EQ(Find(p, 0)->lines[0].count, 2u); }},
      {"suspend ends a non-empty stack", 0, 0, ~0u,
       {Do(kStart), E(0), L(5), E(1), E(1), L(9), Do(kSuspend), Do(kResume), E(2)},
       [](const ktProfiler* p) {
         EXPECT_EQ(Find(p, 1)->totalTime, 7 - 3);
         EXPECT_EQ(LineTime(p, 1, 9), 6 - 5);
       }},
      {"lines of a deeper owner", 0, 0, 0b01, {E(0), L(5), E(1), L(6), L(7), X(1), L(8), X(0)},
       [](const ktProfiler* p) {
         EXPECT_EQ(LineTime(p, 0, 6), 1);   // ended through g's current line
         EXPECT_EQ(LineTime(p, 0, 7), -5);  // never ended: g's exit misses it
         EXPECT_EQ(Find(p, 1)->lines, nullptr);
       }},
      {"one record per function information", 0, 0, ~0u, {E(3, 1), X(3), E(3, 0), X(3)},
       [](const ktProfiler* p) { EXPECT_EQ(Find(p, 3)->data, &kData[1]); }},
      {"history switch", 0, 0, ~0u,
       {Do(kHistoryOn), Do(kStart), E(0), Do(kHistoryOff), Do(kHistoryOn), Do(kSuspend),
        Do(kHistoryOn), Do(kResume), Do(kHistoryOn), Do(kReset), E(1), X(1)},
       [](const ktProfiler* p) { EXPECT_EQ(ktProfNumberOfEventRecords(p), 2u); }},
  };
  for (const NamedTrace& t : traces) {
    gSkip[0] = t.skipInner, gSkip[1] = t.skipOuter, gOwner = t.owner, gClock = 0;
    ktProfiler* p = New();
    Model m;
    if (Run(p, m, t.steps, t.name) == -1) {
      SCOPED_TRACE(t.name);
      t.known(p);
    }
    ktProfDeleteProfiler(p);
  }
}

TEST_F(ProfilerTest, RandomTracesAgreeWithTheModel) {
  std::mt19937 random(20261201);
  for (int trace = 0; trace < 60; ++trace) {
    gSkip[0] = random() & random(), gSkip[1] = random() & random(), gOwner = random() | random();
    gClock = 0;
    std::vector<Step> steps;
    for (int i = 0; i < 400; ++i) {
      uint32_t r = random() % 100;
      int f = static_cast<int>(random() % 5);
      if (r < 30) steps.push_back(E(f, static_cast<int>(random() % 2)));
      else if (r < 55) steps.push_back(X(f));
      else if (r < 85) steps.push_back(L(static_cast<int>(random() % 400) - 150));
      else if (r < 90) steps.push_back({kJump, static_cast<int32_t>(random() % 1000), 0});
      else steps.push_back(Do(static_cast<Op>(kStart + random() % (kReset + 1 - kStart))));
    }
    ktProfiler* p = New();
    Model m;
    p->historyCapacity = m.historyCapacity = 20 + random() % 200;  // reached, and again
    EXPECT_EQ(Run(p, m, steps, "random trace " + std::to_string(trace)), -1);
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
  for (long n = 0;; ++n) {
    ktProfiler* p = New();
    Model m;
    gClock = 0;
    Ledger().failAfter = n;
    long failedAt = Run(p, m, steps, "allocation " + std::to_string(n), false);
    Ledger().failAfter = -1;
    ktProfDeleteProfiler(p);
    ASSERT_EQ(c_.LiveBlocks(), 0u) << "allocation " << n;
    ASSERT_NE(failedAt, -2);
    if (failedAt == -1) break;
  }
}

TEST_F(ProfilerTest, FailuresTheModelDoesNotCoverAlsoClear) {
  // A line table too long to count is exhaustion before any allocation.
  ktProfiler* p = New();
  Model m;
  EXPECT_EQ(Run(p, m, {Do(kStart), E(0), L(0), L(INT32_MIN)}, "long line"), 3);
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
  for (long n = 0;; ++n) {
    Ledger().failAfter = n;
    p = nullptr;
    int code = c_.Catch([&] { p = New(); });
    Ledger().failAfter = -1;
    ktProfDeleteProfiler(p);
    ASSERT_EQ(c_.LiveBlocks(), 0u) << "allocation " << n;
    if (code == 0) break;
    EXPECT_EQ(code, KT_OUT_OF_MEMORY);
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
