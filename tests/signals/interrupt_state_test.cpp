// Interrupt state and modes: every operation against an independent model
// (random sequences and the known edge cases), the ways a raised interrupt
// leaves, per-context state, and flags set at once by threads and a signal
// handler.
#include "kt/interrupts.h"

#include <signal.h>
#include <sys/time.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "kt/contexts.h"
#include "kt/diagnostics.h"
#include "kt/vmcontext.h"

namespace {

using State = std::shared_ptr<InterruptStateData>;
using S = ktInterruptState;

// A new virtual-machine context entered for the scope: its state starts
// all zero.
struct FreshContext {
  kt_vm_context* vm = ktNewVmContext();
  FreshContext() { ktEnterVmContext(vm); }
  ~FreshContext() { ktLeaveVmContext(), ktDeleteVmContext(vm); }
};

struct HostError { std::string identifier; int code; };
int ThrowHostError(void*, const char* id, int code, const char*) { throw HostError{id, code}; }
int CountAndReturn(void* calls, const char*, int, const char*) { return ++*static_cast<int*>(calls); }

// A basic-contexts record of the test's own, installed for the scope.
struct OwnRecord {
  ktBasicContexts record, *previous;
  OwnRecord(ktBasicThrowFunction hook, void* data) {
    EXPECT_EQ(ktInitializeBasicContexts(&record, hook, data), 0);
    previous = ktInstallBasicContexts(&record);
  }
  ~OwnRecord() { ktInstallBasicContexts(previous), ktClearBasicContexts(&record); }
};

// The first seven set (arg 1) or clear (arg 0) the flag of kBits[op].
enum Op {
  kInterrupt, kIqm, kPause, kMemoryEvent, kPeek, kProfiler, kBreakpoint, kIsPending, kHandle,
  kDefer, kHandleDeferred, kThrowIf, kSetHandled, kWasHandled, kIsPause, kIsMemoryEvent,
  kHandlePeek, kPeekIfPending, kSetMode, kPushGuard, kPopGuard, kGuardThrow, kCEnable,
  kCRestore, kCIsEnabled, kStickyDeferred, kCallback, kCalls, kOpCount
};
const uint8_t kBits[] = {0x01, 0x04, 0x08, 0x40, 0x02, 0x10, 0x20};
constexpr int kThrew = 2;                            // a raise: kThrew + ctrlC
constexpr int kAlive = 0, kEmpty = 1, kDropped = 2;  // kCallback arguments

struct Model {
  uint8_t pending = 0, deferred = 0;
  int mode = 0, callback = kAlive, calls = 0;
  bool handled = false;
  std::vector<int> saved;  // the modes the open guards found

  int Bit(uint8_t bit, bool on) {
    int was = (pending & bit) != 0;
    pending = on ? (pending | bit) : (pending & ~bit);
    return was;
  }
  void Service() { calls += (pending & 0x40) && mode != 0 && callback == kAlive; }
  int Handle() {
    Service();
    handled = handled || (pending & 5);
    return Bit(5, false);
  }
  int Redeliver() {  // all deferred bits come back; only interrupts leave
    pending |= deferred;
    return std::exchange(deferred, deferred & ~5) & 5 ? 1 : 0;
  }
  int SetMode(int m) {
    int old = std::exchange(mode, m);
    if (old == 0 && m == 1) Redeliver();
    return old;
  }
  int Apply(Op op, int arg) {
    uint8_t snapshot = pending;
    if (op <= kBreakpoint) return Bit(kBits[op], arg);
    switch (op) {
      case kIsPending: Service(); return (pending & 5) != 0;
      case kHandle: return Handle();
      case kDefer: deferred |= pending & 5; pending &= ~5; return 0;
      case kHandleDeferred: return Redeliver();
      case kThrowIf: Service(); snapshot = pending; return mode != 0 && Handle() ? kThrew + (snapshot & 1) : 0;
      case kSetHandled: return std::exchange(handled, arg != 0);
      case kWasHandled: return handled;
      case kIsPause: return (pending & 0x08) != 0;
      case kIsMemoryEvent: return (pending & 0x40) != 0;
      case kHandlePeek: case kPeekIfPending: return Bit(0x02, false);
      case kSetMode: return SetMode(arg);
      case kPushGuard: saved.push_back(mode); mode = arg; if (saved.back() == 0 && arg == 1) Redeliver(); return 0;
      case kPopGuard:
        if (!saved.empty() && saved.back() == 1 && mode == 0) Redeliver();
        if (!saved.empty()) mode = saved.back(), saved.pop_back();
        return 0;
      case kGuardThrow:
        if (saved.empty() || saved.back() != 1) return 0;
        Service();
        return (pending & 5) != 0 && Handle() ? kThrew + (snapshot & 1) : 0;
      case kCEnable: return SetMode(arg) == 1;
      case kCRestore: SetMode(arg); return 0;
      case kCIsEnabled: return mode != 0;
      case kStickyDeferred: deferred |= arg; return 0;
      case kCallback: callback = arg; return 0;
      case kCalls: return calls;
      default: return -1;
    }
  }
};

// The library through the stateless forms and the C interface (st true),
// or the explicit forms; raises made to throw InterruptException.
struct Real {
  State sp;
  std::vector<std::unique_ptr<ktInterruptMode>> guards;
  int calls = 0;
  std::shared_ptr<std::function<void()>> callback;
  explicit Real(State state) : sp(std::move(state)) {}
  ~Real() { while (!guards.empty()) guards.pop_back(); }  // innermost first

  template <class Raise>
  static int Raising(Raise raise) try {
    return raise(), 0;
  } catch (const Quivera::System::InterruptException& e) {
    return kThrew + e.ctrlC;
  }
  int Apply(Op op, int arg, bool st) {
    auto mode = static_cast<InterruptMode>(arg);
    switch (op) {
      case kInterrupt: return st ? ktSetInterruptPending(arg) : S::SetInterruptPending(sp, arg);
      case kIqm: return st ? S::SetIqmInterruptPending(arg) : S::SetIqmInterruptPending(sp, arg);
      case kPause: return st ? ktSetPauseMsgPending(arg) : S::SetPauseMsgPending(sp, arg);
      case kMemoryEvent: return st ? S::SetMemoryEventPending(arg) : S::SetMemoryEventPending(sp, arg);
      case kPeek: return st ? S::SetPeekMsgPending(arg) : S::SetPeekMsgPending(sp, arg);
      case kProfiler:
        if (arg) return st ? S::SetProfilerSamplePending() : S::SetProfilerSamplePending(sp);
        return st ? S::ClearProfilerSamplePending() : S::ClearProfilerSamplePending(sp);
      case kBreakpoint:
        if (arg) return st ? S::SetBreakpointRequestPending() : S::SetBreakpointRequestPending(sp);
        return st ? S::ClearBreakpointRequestPending() : S::ClearBreakpointRequestPending(sp);
      case kIsPending: return st ? ktIsInterruptPending() : S::IsInterruptPending(sp);
      case kHandle: return st ? ktHandlePendingInterrupt() : S::HandlePendingInterrupt(sp);
      case kDefer: st ? S::DeferPendingInterrupt() : S::DeferPendingInterrupt(sp); return 0;
      case kHandleDeferred: return st ? S::HandleDeferredInterrupt() : S::HandleDeferredInterrupt(sp);
      case kThrowIf: return Raising([&] { st ? ktLongjmpIfInterruptPending() : S::ThrowIfInterruptPending(sp); });
      case kSetHandled: return st ? ktSetInterruptHandled(arg) : S::SetInterruptHandled(sp, arg);
      case kWasHandled: return st ? ktWasInterruptHandled() : S::WasInterruptHandled(sp);
      case kIsPause: return st ? S::IsPauseMsgPending() : S::IsPauseMsgPending(sp);
      case kIsMemoryEvent: return st ? S::IsMemoryEventPending() : S::IsMemoryEventPending(sp);
      case kHandlePeek: return st ? S::HandlePeekMsgPending() : S::HandlePeekMsgPending(sp);
      case kPeekIfPending: return st ? S::PeekMessageIfPending() : S::PeekMessageIfPending(sp);
      case kSetMode: return st ? ktInterruptMode::SetMode(mode) : ktInterruptMode::SetMode(sp, mode);
      case kPushGuard:
        guards.push_back(st ? std::make_unique<ktInterruptMode>(mode)
                            : std::make_unique<ktInterruptMode>(sp, mode));
        return 0;
      case kPopGuard: if (!guards.empty()) guards.pop_back(); return 0;
      case kGuardThrow:
        if (guards.empty()) return 0;
        return Raising([&] { guards.back()->throwIfInterruptsPendingAndOriginallyEnabled(); });
      case kCEnable: return st ? ktSetInterruptEnabled(arg) : ktInterruptMode::SetMode(sp, mode) == 1;
      case kCRestore: st ? ktRestoreInterruptEnabled(arg) : (void)ktInterruptMode::SetMode(sp, mode); return 0;
      case kCIsEnabled: return st ? ktIsInterruptEnabled() : ktInterruptMode::isInterruptEnabled(sp);
      case kStickyDeferred: sp->deferred.fetch_or(static_cast<uint8_t>(arg)); return 0;
      case kCallback:
        callback = arg == kDropped ? nullptr
                   : arg == kEmpty ? std::make_shared<std::function<void()>>()
                                   : std::make_shared<std::function<void()>>([this] { ++calls; });
        st ? S::SetMemoryEventCallback(callback) : S::SetMemoryEventCallback(sp, callback);
        return 0;
      case kCalls: return calls;
      default: return -1;
    }
  }
};

struct Step { Op op; int arg, expect; };  // expect -1: compared with the model only

// Runs the steps on the model and on a fresh state: the current context's
// through the stateless forms, or a state of its own through the explicit
// ones (the current one must stay untouched). Stops at the first
// disagreement; open guards are closed at the end.
void RunAgainstModel(std::vector<Step> steps, bool stateless) {
  FreshContext context;
  int hookCalls = 0;
  OwnRecord record(CountAndReturn, &hookCalls);
  Real real(stateless ? ktGetInterruptStateData() : std::make_shared<InterruptStateData>());
  Model model;
  real.Apply(kCallback, kAlive, stateless);
  steps.insert(steps.end(), 4, Step{kPopGuard, 0, -1});
  for (size_t i = 0; i < steps.size(); ++i) {
    const Step& s = steps[i];
    SCOPED_TRACE(testing::Message() << "step " << i << ": op " << s.op << " arg " << s.arg);
    int got = real.Apply(s.op, s.arg, stateless);
    ASSERT_EQ(got, model.Apply(s.op, s.arg));
    ASSERT_TRUE(s.expect < 0 || got == s.expect) << got;
    const InterruptStateData& r = *real.sp;  // the last: memory-event callbacks
    ASSERT_EQ(std::make_tuple(int(r.pending), int(r.deferred), int(r.mode), r.handled, real.calls),
              std::make_tuple(int(model.pending), int(model.deferred), model.mode, model.handled, model.calls));
  }
  const InterruptStateData& current = *ktGetInterruptStateData();
  EXPECT_TRUE(stateless || current.pending + current.deferred + current.mode + current.handled == 0);
}

TEST(InterruptState, RandomOperationSequencesMatchTheModel) {
  std::mt19937 rng(20240613);
  const int stickyBits[] = {0x02, 0x08, 0x10, 0x20, 0x40};
  for (int sequence = 0; sequence < 300 && !HasFatalFailure(); ++sequence) {
    std::vector<Step> steps;
    for (int i = 0; i < 150; ++i) {
      auto op = static_cast<Op>(rng() % kOpCount);
      int arg = static_cast<int>(rng() % 3);  // modes 0, 1, 2; callback states
      if (op == kStickyDeferred) arg = stickyBits[rng() % 5];
      if (op <= kBreakpoint || op == kSetHandled || op == kCEnable || op == kCRestore) arg &= 1;
      steps.push_back({op, arg, -1});
    }
    SCOPED_TRACE("sequence " + std::to_string(sequence));
    RunAgainstModel(steps, sequence % 2);
  }
}

TEST(InterruptState, EdgeCases) {
  const struct {
    const char* name;
    std::vector<Step> steps;
  } cases[] = {
      {"setting twice reports false, then true", {{kInterrupt, 1, 0}, {kInterrupt, 1, 1}}},
      {"disabled: no raise, still pending", {{kInterrupt, 1, 0}, {kThrowIf, 0, 0}, {kIsPending, 0, 1}}},
      {"deferred while disabled, pending again under an enabled guard",
       {{kInterrupt, 1, 0}, {kDefer, 0, 0}, {kIsPending, 0, 0}, {kPushGuard, 1, 0}, {kIsPending, 0, 1},
        {kHandle, 0, 1}, {kWasHandled, 0, 1}}},
      {"IQM alone is pending and raises without ctrl-C",
       {{kPushGuard, 1, 0}, {kIqm, 1, 0}, {kIsPending, 0, 1}, {kThrowIf, 0, kThrew}}},
      {"enabling from the initial state reports false", {{kCEnable, 1, 0}, {kCEnable, 1, 1}}},
      {"a profiler sample survives a handled interrupt",
       {{kProfiler, 1, 0}, {kInterrupt, 1, 0}, {kHandle, 0, 1}, {kProfiler, 0, 1}}},
      {"nested guards restore what they found",
       {{kPushGuard, 1, 0}, {kPushGuard, 0, 0}, {kCIsEnabled, 0, 0}, {kPopGuard, 0, 0},
        {kCIsEnabled, 0, 1}, {kPopGuard, 0, 0}, {kCIsEnabled, 0, 0}}},
      {"leaving a disabled guard for an enabled one re-applies deferred interrupts",
       {{kPushGuard, 1, 0}, {kPushGuard, 0, 0}, {kIqm, 1, 0}, {kDefer, 0, 0}, {kPopGuard, 0, 0},
        {kIsPending, 0, 1}}},
      {"a guard raises when it found exactly 1, even while disabled",
       {{kSetMode, 1, 0}, {kPushGuard, 0, 0}, {kInterrupt, 1, 0}, {kGuardThrow, 0, kThrew + 1}}},
      {"mode 2 is enabled but transfers nothing",
       {{kInterrupt, 1, 0}, {kDefer, 0, 0}, {kSetMode, 2, 0}, {kCIsEnabled, 0, 1}, {kPushGuard, 1, 0},
        {kIsPending, 0, 0}, {kGuardThrow, 0, 0}, {kSetMode, 0, 1}, {kSetMode, 1, 0}, {kIsPending, 0, 1}}},
      {"memory events call back only while enabled and stay set",
       {{kMemoryEvent, 1, 0}, {kIsPending, 0, 0}, {kCalls, 0, 0}, {kSetMode, 1, 0}, {kIsPending, 0, 0},
        {kCalls, 0, 1}, {kIsMemoryEvent, 0, 1}, {kCallback, kEmpty, 0}, {kHandle, 0, 0}, {kCalls, 0, 1}}},
      {"non-interrupt bits stay deferred and come back each time",
       {{kStickyDeferred, 0x10, 0}, {kHandleDeferred, 0, 0}, {kProfiler, 0, 1}, {kHandleDeferred, 0, 0},
        {kProfiler, 0, 1}}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    RunAgainstModel(c.steps, true);
    RunAgainstModel(c.steps, false);
  }
}

int AcceptInterrupt(kt_error_context*, void*, int code, va_list) { return code == KT_ERR_SIGNAL_INTERRUPT; }

TEST(InterruptRaise, CatchFrameOrHostExceptionOrInterruptException) {
  FreshContext context;
  ktSetInterruptEnabled(true);
  ktSetInterruptPending(true);
  EXPECT_EQ(kt_try_catch(ktGetErrorContext(), nullptr,
                         [](kt_error_context*, void*) { ktLongjmpIfInterruptPending(); }, AcceptInterrupt),
            KT_ERR_SIGNAL_INTERRUPT);
  EXPECT_TRUE(ktWasInterruptHandled());
  {
    OwnRecord record(ThrowHostError, nullptr);
    ktSetInterruptPending(true);
    try {
      ktLongjmpIfInterruptPending();
      ADD_FAILURE() << "returned";
    } catch (const HostError& e) {
      EXPECT_TRUE(e.identifier == "ZENTRA:ERR_SIGNAL_INTERRUPT" && e.code == KT_ERR_SIGNAL_INTERRUPT) << e.identifier;
    }
  }
  // A throw hook that returns; the diagnostic record with each flag mask.
  const std::string where = " ktsignal:512 void kt::internal::ThrowPendingInterrupts(uint8_t):";
  const struct {
    bool (*set)(bool);
    bool ctrlC;
    const char16_t* text;
    unsigned mask;
    std::string record;  // written to standard error
  } rows[] = {
      {ktSetInterruptPending, true, u"InterruptException(ctrl-c)", 0, ""},
      {S::SetIqmInterruptPending, false, u"InterruptException", 0x1, "ktsignal [0x1]" + where + "\n"},
      {ktSetInterruptPending, true, u"InterruptException(ctrl-c)", 0x3,
       "ktsignal [0x2]" + where + " isCtrlCPending=true\n"},
      {S::SetIqmInterruptPending, false, u"InterruptException", 0x2,
       "ktsignal [0x2]" + where + " isCtrlCPending=false\n"},
  };
  for (const auto& row : rows) {
    int hookCalls = 0;
    OwnRecord record(CountAndReturn, &hookCalls);
    unsigned oldMask = ktSetDiagnosticMask("ktsignal", row.mask);
    row.set(true);
    testing::internal::CaptureStderr();
    try {
      ktLongjmpIfInterruptPending();
      ADD_FAILURE() << "returned";
    } catch (const Quivera::System::InterruptException& e) {
      EXPECT_EQ(e.ctrlC, row.ctrlC);
      EXPECT_EQ(e.ToUstringImpl(), row.text);
      std::unique_ptr<bedrock::core::except::IException> copy(e.clone());
      EXPECT_THROW(copy->rethrow(), Quivera::System::InterruptException);
    }
    std::string written = testing::internal::GetCapturedStderr();
    ktSetDiagnosticMask("ktsignal", oldMask);
    EXPECT_EQ(hookCalls, 1) << "the error was raised first";
    EXPECT_EQ(written, row.record);
  }
}

TEST(InterruptContexts, EachContextHasOneStateForAllItsThreads) {
  const volatile unsigned char* outside = ktPendingFlagAddress();
  kt_vm_context* a = ktNewVmContext();
  kt_vm_context* b = ktNewVmContext();
  ktEnterVmContext(a);
  const volatile unsigned char* inA = ktPendingFlagAddress();
  ktSetInterruptPending(true);
  ktEnterVmContext(b);
  EXPECT_FALSE(ktIsInterruptPending());
  ktSetPauseMsgPending(true);
  ktLeaveVmContext();
  EXPECT_EQ(ktPendingFlagAddress(), inA);
  EXPECT_EQ(*inA, KT_PENDING_INTERRUPT) << "b's pause flag stayed in b";
  std::thread([&] {
    EXPECT_EQ(ktPendingFlagAddress(), outside) << "threads outside contexts share one state";
    ktEnterVmContext(a);
    EXPECT_TRUE(ktIsInterruptPending()) << "threads in one context share its state";
    ktLeaveVmContext();
  }).join();
  ktLeaveVmContext();
  EXPECT_FALSE(ktIsInterruptPending());
  EXPECT_EQ(ktDeleteVmContext(a), 0);
  kt_vm_context* c = ktNewVmContext();  // may reuse a's memory
  ktEnterVmContext(c);
  EXPECT_FALSE(ktIsInterruptPending()) << "a deleted context's state is not found again";
  ktLeaveVmContext();
  ktDeleteVmContext(c);
  ktDeleteVmContext(b);
}

State gShared;
std::atomic<int> gTicks{0}, gTickErrors{0};
std::atomic<bool> gInHandler{false};
bool gMemoryEventModel = false;  // guarded by gInHandler

// Process-directed: it may run on two threads at once; a busy handler lets
// the tick pass.
void OnTimer(int) {
  if (gInHandler.exchange(true, std::memory_order_acquire)) return;
  bool on = !gMemoryEventModel;
  gTickErrors += S::SetMemoryEventPending(gShared, on) != gMemoryEventModel;
  gMemoryEventModel = on;
  ++gTicks;
  gInHandler.store(false, std::memory_order_release);
}

TEST(InterruptStateConcurrency, ThreadsAndASignalHandlerLoseNoBit) {
  gShared = std::make_shared<InterruptStateData>();
  gTicks = 0;
  gMemoryEventModel = false;
  const State& sp = gShared;
  std::atomic<bool> stop{false};
  std::atomic<int> errors{0}, taken{0};
  bool finalBit[kBreakpoint + 1] = {};
  int rises = 0;
  std::vector<std::thread> threads;
  for (Op op : {kPause, kPeek, kProfiler, kBreakpoint})  // one owner per bit
    threads.emplace_back([&, op] {
      Real real(sp);
      std::mt19937 rng(op);
      bool model = false;
      for (int i = 0; i < 20000 || !stop; ++i) {
        bool on = rng() & 1;
        errors += real.Apply(op, on, false) != model;  // no other thread moves the bit
        model = on;
      }
      finalBit[op] = model;
    });
  threads.emplace_back([&] {  // raises one interrupt at a time
    while (!stop) {
      if (taken != rises) continue;
      errors += S::SetInterruptPending(*sp, true);  // the last one was taken
      ++rises;
    }
  });
  threads.emplace_back([&] {  // takes them, after a round trip through deferral
    for (int i = 0; i < 20000 || !stop; ++i) {
      S::DeferPendingInterrupt(sp);
      S::HandleDeferredInterrupt(sp);
      taken += S::HandlePendingInterrupt(sp);
    }
  });
  struct sigaction action = {};
  action.sa_handler = OnTimer;
  action.sa_flags = SA_RESTART;
  sigaction(SIGALRM, &action, nullptr);
  itimerval every = {{0, 200}, {0, 200}}, off = {};
  setitimer(ITIMER_REAL, &every, nullptr);
  while (gTicks < 400) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  stop = true;
  for (auto& thread : threads) thread.join();
  setitimer(ITIMER_REAL, &off, nullptr);
  signal(SIGALRM, SIG_IGN);  // a tick still queued must not end the process

  EXPECT_EQ(errors, 0) << "a setter reported a previous value its thread did not leave";
  EXPECT_EQ(gTickErrors, 0);
  uint8_t pending = sp->pending;
  for (Op op : {kPause, kPeek, kProfiler, kBreakpoint}) EXPECT_EQ((pending & kBits[op]) != 0, finalBit[op]);
  EXPECT_EQ((pending & 0x40) != 0, gMemoryEventModel);
  EXPECT_EQ(sp->deferred, 0);
  EXPECT_EQ(rises, taken + (pending & 1)) << "an interrupt was lost";
}

}  // namespace
