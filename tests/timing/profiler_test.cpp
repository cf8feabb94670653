// The function profiler on synthetic call traces against the model of
// profiler_model.h (named traces with known answers, random traces), the
// history cap, the history switch, failures at every allocation of a trace
// (each must leave a cleared profiler, the right printed message and no
// leak), and the record's lifecycle.
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

const std::string kCleared =
    "Error: Profiler logs have been cleared because a memory allocation failure";
const std::string kDisabled = kCleared + ";\nProfiler is now disabled";
const std::string kHistoryFull = "Warning: Profiler history table is full\n";

// Contexts over the counting heap whose errors print through the console
// hook, and a profiler on them with the model's callbacks and clock.
class ProfilerTest : public ::testing::Test {
protected:
  void SetUp() override {
    int status = 0;
    kt_initialize_message_context(&status, &messages_, kttest::CountingAllocate,
                                  kttest::CountingReallocate);
    auto console = [](void*, const char* text, int length) { return ktPutsn(text, length); };
    kt_initialize_error_context(&status, &errors_, &messages_, console, nullptr);
    kt_initialize_memory_context(&memory_, &errors_, kttest::CountingAllocate,
                                 kttest::CountingReallocate, kttest::CountingRelease);
    ktProfDeleteProfiler(New());  // the tables are registered before the baseline
    Ledger().failAfter = -1;
    baseline_ = Ledger().live.size();
    gSkip[0] = gSkip[1] = 0, gOwner = 0xFF, gClock = 0;
  }
  void TearDown() override {
    EXPECT_EQ(Ledger().live.size(), baseline_) << "blocks leaked";
    kt_clear_message_context(&messages_, kttest::CountingRelease);
  }
  ktProfiler* New(ktProfSkipFunction skip = Skip, ktProfLineOwnerFunction owner = OwnsLines) {
    ktProfiler* p = ktProfNewProfiler(&memory_, "test", skip, owner, nullptr, nullptr);
    p->clock = Clock;
    return p;
  }
  int Catch(const std::function<void()>& body) {
    auto run = [](kt_error_context*, void* d) { (*static_cast<std::function<void()>*>(d))(); };
    auto accept = [](kt_error_context*, void*, int, va_list) { return 1; };
    return kt_try_catch(&errors_, const_cast<std::function<void()>*>(&body), run, accept);
  }
  // Applies every step to the profiler and the model, comparing after each.
  void Run(ktProfiler* p, Model& m, const std::vector<Step>& steps, const char* name) {
    for (size_t i = 0; i < steps.size(); ++i) {
      ASSERT_EQ(ApplyToProfiler(p, steps[i]), m.Apply(steps[i])) << name << " step " << i;
      ASSERT_EQ(Compare(p, m), "") << name << " after step " << i;
    }
  }

  kt_message_context messages_{};
  kt_error_context errors_{};
  kt_mem_context memory_{};
  size_t baseline_ = 0;
};

const ktProfFunctionRecord* Find(const ktProfiler* p, int function) {
  void* key[2] = {&kFunctions[function], nullptr};
  return static_cast<const ktProfFunctionRecord*>(
      kt_ghash_query_element(const_cast<kt_ghash_table*>(&p->functionTable), key));
}

double LineTime(const ktProfiler* p, int function, uint32_t line) {
  auto* f = const_cast<ktProfFunctionRecord*>(Find(p, function));
  return ktProfLookupLinenumRecord(f, line)->time;
}

Step E(int f, int data = 0) { return {kEntry, f, data}; }
Step X(int f) { return {kExit, f, 0}; }
Step L(int line) { return {kLine, line, 0}; }
Step Do(Op op) { return {op, 0, 0}; }

struct NamedTrace {
  const char* name;
  uint32_t skipInner, skipOuter, owner;
  std::vector<Step> steps;
  std::function<void(const ktProfiler*)> known;  // answers worked out by hand
};

TEST_F(ProfilerTest, NamedTracesAgreeWithTheModelAndKnownAnswers) {
  const NamedTrace traces[] = {
      {"recursion f>f>f", 0, 0, 0xFF, {E(0), E(0), E(0), X(0), X(0), X(0)},
       [](const ktProfiler* p) {  // entries at 1, 2, 3; exits at 4, 5, 6
         const ktProfFunctionRecord* f = Find(p, 0);
         EXPECT_EQ(f->totalTime, 5);  // the outermost call only
         EXPECT_EQ(f->selfTime, 5 + 3 + 1);
         EXPECT_EQ(f->callCount, 3u);
         EXPECT_EQ(f->activeCount, 0u);
         EXPECT_EQ(f->children->count, 2u);
         EXPECT_EQ(f->children->time, 3 + 1);
         EXPECT_EQ(f->parents->count, 2u);
       }},
      {"mutual recursion f>g>f>g", 0, 0, 0xFF, {E(0), E(1), E(0), E(1), X(1), X(0), X(1), X(0)},
       [](const ktProfiler* p) {
         EXPECT_EQ(Find(p, 0)->totalTime, 7);
         EXPECT_EQ(Find(p, 0)->selfTime, 7 + 3);
         EXPECT_EQ(Find(p, 1)->totalTime, 5);
         EXPECT_EQ(Find(p, 1)->selfTime, 5 + 1);
         EXPECT_EQ(Find(p, 0)->children->time, 5 + 1);
         EXPECT_EQ(Find(p, 1)->children->time, 3);
       }},
      {"inner calls of g skipped", 0b10, 0, 0xFF, {E(0), E(1), L(3), X(1), X(0)},
       [](const ktProfiler* p) {
         EXPECT_EQ(p->functionCount, 1u);
         EXPECT_EQ(Find(p, 0)->children, nullptr);
         EXPECT_EQ(Find(p, 0)->totalTime, 2);  // g read no clock
       }},
      {"skipped calls move the depth", 0b10, 0b100, 0xFF,
       {E(0), E(1), E(2), X(2), X(1), X(0), E(2), X(2)},
       [](const ktProfiler* p) {
         EXPECT_EQ(Find(p, 2)->callCount, 1u);  // the second call was outermost again
         EXPECT_EQ(p->depth, 1u);  // its exit met an empty stack
       }},
      {"exit on an empty stack", 0, 0, 0xFF, {X(0), E(0), X(0), X(0), X(2)},
       [](const ktProfiler* p) { EXPECT_EQ(p->depth, 0u); }},
      {"lines 50, 10, 300", 0, 0, 0xFF, {E(0), L(50), L(10), L(300), X(0)},
       [](const ktProfiler* p) {
         const ktProfFunctionRecord* f = Find(p, 0);
         EXPECT_EQ(f->firstLine, 10u);
         EXPECT_EQ(f->lastLine, 300u);
         EXPECT_EQ(f->lineCapacity, 2 * 291u);
       }},
      {"line -7 is line 7", 0, 0, 0xFF, {E(0), L(-7), L(7), X(0)},
       [](const ktProfiler* p) {
         auto* f = const_cast<ktProfFunctionRecord*>(Find(p, 0));
         EXPECT_EQ(ktProfLookupLinenumRecord(f, 7)->count, 2u);
       }},
      {"suspend closes a non-empty stack", 0, 0, 0xFF,
       {Do(kStart), E(0), L(5), E(1), E(1), L(9), Do(kSuspend), Do(kResume), E(2)},
       [](const ktProfiler* p) {
         EXPECT_EQ(Find(p, 1)->totalTime, 7 - 3);
         EXPECT_EQ(LineTime(p, 1, 9), 6 - 5);
         EXPECT_EQ(LineTime(p, 0, 5), 8 - 2);
       }},
      {"lines of a deeper owner", 0, 0, 0b01, {E(0), L(5), E(1), L(6), L(7), X(1), L(8), X(0)},
       [](const ktProfiler* p) {
         EXPECT_EQ(LineTime(p, 0, 6), 1);    // ended through g's current line
         EXPECT_EQ(LineTime(p, 0, 7), -5);   // never ended: g's exit misses it
         EXPECT_EQ(LineTime(p, 0, 5), 7 - 2); // f's own line ends at its next
         EXPECT_EQ(Find(p, 1)->lines, nullptr);
       }},
      {"one record per function information", 0, 0, 0xFF, {E(3, 1), X(3), E(3, 0), X(3)},
       [](const ktProfiler* p) {
         EXPECT_EQ(Find(p, 3)->data, &kData[1]);
         EXPECT_EQ(Find(p, 3)->callCount, 2u);
       }},
      {"history switch", 0, 0, 0xFF,
       {Do(kHistoryOn), Do(kStart), E(0), Do(kHistoryOff), Do(kHistoryOn), Do(kSuspend),
        Do(kHistoryOn), Do(kReset), E(1), X(1)},
       [](const ktProfiler* p) { EXPECT_EQ(ktProfNumberOfEventRecords(p), 2u); }},
  };
  for (const NamedTrace& t : traces) {
    gSkip[0] = t.skipInner, gSkip[1] = t.skipOuter, gOwner = t.owner, gClock = 0;
    ktProfiler* p = New();
    Model m;
    Run(p, m, t.steps, t.name);
    if (HasFatalFailure()) return;
    SCOPED_TRACE(t.name);
    t.known(p);
    ktProfDeleteProfiler(p);
  }
}

TEST_F(ProfilerTest, HistorySwitchRaisesOnlyWhileLoggingWithoutHistory) {
  ktProfiler* p = New();
  ktProfStartLogging(p);
  EXPECT_EQ(Catch([&] { ktProfEnableHistoryTracking(p, true); }), KT_PROFILE_HISTORY_ERROR);
  EXPECT_FALSE(ktProfIsHistoryTrackingEnabled(p));
  ktProfSuspendLogging(p);
  EXPECT_EQ(Catch([&] { ktProfEnableHistoryTracking(p, true); }), 0);
  ktProfResumeLogging(p);
  EXPECT_EQ(Catch([&] { ktProfEnableHistoryTracking(p, true); }), 0);  // already on
  EXPECT_TRUE(ktProfIsHistoryTrackingEnabled(p) && ktProfIsFunctionLoggingEnabled(p));
  ktProfDeleteProfiler(p);
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
    Run(p, m, steps, ("random trace " + std::to_string(trace)).c_str());
    ktProfDeleteProfiler(p);
  }
}

TEST_F(ProfilerTest, HistoryStopsAtItsCapacityWithOneWarning) {
  kttest::ConsoleCapture console;
  ktProfiler* p = New();
  Model m;
  std::vector<Step> steps = {Do(kHistoryOn), Do(kStart)};
  for (int i = 0; i < KT_PROF_HISTORY_CAPACITY / 2 + 3; ++i)
    steps.insert(steps.end(), {E(i % 3), X(i % 3)});
  for (const Step& s : steps) m.Apply(s), ApplyToProfiler(p, s);
  EXPECT_EQ(Compare(p, m), "");
  EXPECT_EQ(m.historyFullPrints, 1u);
  EXPECT_EQ(console.text, kHistoryFull);
  EXPECT_EQ(p->historyCount, unsigned{KT_PROF_HISTORY_CAPACITY});
  EXPECT_FALSE(ktProfIsHistoryTrackingEnabled(p));
  ktProfDeleteProfiler(p);
}

// Runs the trace with the n-th allocation failing, for every n until the
// trace completes: each failure clears the profiler and prints the message
// for the logging state of the failing call.
TEST_F(ProfilerTest, FailureAtEveryAllocationClearsAndTellsWhy) {
  static char many[130];
  auto info = [](int i) -> void* { return &many[i]; };
  std::vector<std::function<void(ktProfiler*)>> trace = {
      [](ktProfiler* p) { ktProfEnableHistoryTracking(p, true); },
      [&](ktProfiler* p) { ktProfLogFunctionEntry(p, info(0), nullptr); },
      [](ktProfiler* p) { ktProfLogLineNumberEvent(p, 50); },
      [](ktProfiler* p) { ktProfLogLineNumberEvent(p, 10); },
      [](ktProfiler* p) { ktProfLogLineNumberEvent(p, 300); },
      [](ktProfiler* p) { ktProfStartLogging(p); },
  };
  for (int i = 0; i < 130; ++i) {  // grows the table; leaves 65 calls running
    trace.push_back([&, i](ktProfiler* p) { ktProfLogFunctionEntry(p, info(i), nullptr); });
    trace.push_back([i](ktProfiler* p) { ktProfLogLineNumberEvent(p, -i); });
    trace.push_back([&](ktProfiler* p) { ktProfLogFunctionEntry(p, info(0), nullptr); });
    trace.push_back([&](ktProfiler* p) { ktProfLogFunctionExit(p, info(0), nullptr); });
    if (i % 2) trace.push_back([&](ktProfiler* p) { ktProfLogFunctionExit(p, info(i), nullptr); });
  }
  trace.push_back([](ktProfiler* p) { ktProfSuspendLogging(p); });  // into a second block
  trace.push_back([](ktProfiler* p) { ktProfResumeLogging(p); });
  trace.push_back([](ktProfiler* p) { ktProfStartLogging(p); });  // shrinks the grown table
  trace.push_back([&](ktProfiler* p) { ktProfLogFunctionEntry(p, info(1), nullptr); });
  trace.push_back([](ktProfiler* p) { ktProfSuspendLogging(p); });
  for (long n = 0;; ++n) {
    kttest::ConsoleCapture console;
    ktProfiler* p = New(nullptr, nullptr);
    Ledger().failAfter = n;
    std::string expected;
    for (auto& step : trace) {
      bool logging = p->logging;
      int code = Catch([&] { step(p); });
      if (code == 0) continue;
      ASSERT_EQ(code, KT_OUT_OF_MEMORY) << "allocation " << n;
      expected = (logging ? kDisabled : kCleared) + "\n";
      break;
    }
    Ledger().failAfter = -1;
    bool failed = !expected.empty();
    EXPECT_EQ(console.text, expected) << "allocation " << n;
    if (failed) {
      EXPECT_FALSE(ktProfIsInitialized(p));
      Model cleared;
      cleared.Clear(false);
      cleared.history = p->history;
      EXPECT_EQ(Compare(p, cleared), "") << "allocation " << n;
      EXPECT_TRUE(p->stack == nullptr && p->historyBlocks == nullptr && p->name == nullptr);
    }
    ktProfDeleteProfiler(p);
    ASSERT_EQ(Ledger().live.size(), baseline_) << "allocation " << n;
    if (!failed) break;
  }
}

TEST_F(ProfilerTest, FailuresOutsideAllocationAlsoClear) {
  kttest::ConsoleCapture console;
  // A line table too long to count is exhaustion before any allocation.
  ktProfiler* p = New();
  ktProfStartLogging(p);
  ktProfLogFunctionEntry(p, &kFunctions[0], nullptr);
  ktProfLogLineNumberEvent(p, 0);
  EXPECT_EQ(Catch([&] { ktProfLogLineNumberEvent(p, INT32_MIN); }), KT_OUT_OF_MEMORY);
  EXPECT_EQ(console.text, kDisabled + "\n");
  EXPECT_FALSE(ktProfIsInitialized(p));
  ktProfLogFunctionEntry(p, &kFunctions[0], nullptr);  // a cleared profiler ignores events
  ktProfStartLogging(p);
  ktProfResetProfiler(p);
  EXPECT_FALSE(ktProfIsInitialized(p) || ktProfIsFunctionLoggingEnabled(p));
  ktProfDeleteProfiler(p);
  // Any other error raised under a logging call clears without a message.
  static kt_error_context* errors;
  errors = &errors_;
  p = New([](void*, void*, bool) -> bool { kt_error(errors, KT_PROFILE_INVALID_ARGUMENTS); });
  EXPECT_EQ(Catch([&] { ktProfLogFunctionEntry(p, &kFunctions[0], nullptr); }),
            KT_PROFILE_INVALID_ARGUMENTS);
  EXPECT_FALSE(ktProfIsInitialized(p));
  EXPECT_EQ(console.text, kDisabled + "\n");
  ktProfDeleteProfiler(p);
}

TEST_F(ProfilerTest, InitialisationFailuresLeaveNothing) {
  for (long n = 0;; ++n) {
    Ledger().failAfter = n;
    ktProfiler* p = nullptr;
    int code = Catch([&] { p = New(); });
    Ledger().failAfter = -1;
    ktProfDeleteProfiler(p);
    ASSERT_EQ(Ledger().live.size(), baseline_) << "allocation " << n;
    if (code == 0)
      break;
    EXPECT_EQ(code, KT_OUT_OF_MEMORY);
  }
}

TEST_F(ProfilerTest, NewRecordDefaultsAndHelpers) {
  ktProfiler* p = ktProfNewProfiler(&memory_, nullptr, nullptr, nullptr, nullptr, nullptr);
  EXPECT_STREQ(ktProfProfilerName(p), "");
  EXPECT_TRUE(p->clock == ktCPUtime && p->processorFrequency == 1 && p->typeName == nullptr);
  EXPECT_EQ(p->functionTable.numBuckets, KT_PROF_INITIAL_TABLE_SIZE);
  EXPECT_EQ(p->historyCapacity, unsigned{KT_PROF_HISTORY_CAPACITY});
  EXPECT_EQ(p->historyBlockSize, unsigned{KT_PROF_HISTORY_BLOCK_SIZE});
  EXPECT_FALSE(p->skip(nullptr, nullptr, true));
  EXPECT_TRUE(p->lineOwner(nullptr, nullptr));
  EXPECT_EQ(p->mapFunctionInfo(&kFunctions[2], nullptr), &kFunctions[2]);
  EXPECT_EQ(ktProfFunctionInfoToTypename(p, nullptr, nullptr), nullptr);
  p->typeName = [](void* info, void*) { return static_cast<const char*>(info); };
  EXPECT_STREQ(ktProfFunctionInfoToTypename(p, const_cast<char*>("f"), nullptr), "f");
  ktProfDeleteProfiler(p);
  ktProfDeleteProfiler(nullptr);
  EXPECT_FALSE(ktProfIsInitialized(nullptr));
  double step = ktProfCpuTimeGranularity();
  EXPECT_TRUE(step > 0 && std::isfinite(step));
}

}  // namespace
