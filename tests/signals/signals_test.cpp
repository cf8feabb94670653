// The signal layer through libkt.so: real signals, the blocking calls
// against a model, real segmentation faults, Ctrl-C ending a polling loop,
// and the signal thread's never-reset state machine, one child process per
// sequence.
#include "kt/signals.h"

#include <dlfcn.h>
#include <fenv.h>
#include <sys/mman.h>
#include <unistd.h>
#include <xmmintrin.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "kt/contexts.h"
#include "kt/diagnostics.h"
#include "kt/interrupts.h"
#include "kt/vmcontext.h"

using Quivera::System::Unix::SegvCleanup;

namespace {
// When set, runs once at this thread's next operator new: the race tests
// pause the library's calls at their allocations.
thread_local void (*pauseAtNextNew)() = nullptr;
}  // namespace

// Forwards to the next definition (the C++ library's or a sanitizer's).
__attribute__((visibility("default"))) void* operator new(std::size_t size) {
  static auto* const next = reinterpret_cast<void* (*)(std::size_t)>(dlsym(RTLD_NEXT, "_Znwm"));
  if (void (*pause)() = std::exchange(pauseAtNextNew, nullptr)) pause();
  return next(size);
}

namespace {

using namespace std::chrono_literals;
const int kAsync[] = {SIGINT, SIGTSTP, SIGWINCH};

template <class F>
void* Address(F function) {
  return reinterpret_cast<void*>(function);
}

bool Blocked(int sig) {
  sigset_t mask;
  sigprocmask(SIG_BLOCK, nullptr, &mask);
  return sigismember(&mask, sig) == 1;
}

std::string Members(const sigset_t& set) {
  std::string text;
  for (int sig = 1; sig < NSIG; ++sig)
    if (sigismember(&set, sig) == 1) text += std::to_string(sig) + " ";
  return text;
}

std::string Number(void* address) { return std::to_string(reinterpret_cast<uintptr_t>(address)); }

// The handler, flags and mask of `sig` (without the kernel's SA_RESTORER).
std::string Disposition(int sig) {
  struct sigaction now;
  sigaction(sig, nullptr, &now);
  return Number(Address(now.sa_sigaction)) + " flags " + std::to_string(now.sa_flags & ~0x04000000) + " mask " +
         Members(now.sa_mask);
}

// The query returns `expected` and changes nothing.
void ExpectQuery(int sig, void* expected) {
  std::string before = Disposition(sig);
  EXPECT_EQ(Address(ktQueryHandler(sig)), expected);
  EXPECT_EQ(Disposition(sig), before);
}

struct SavedAction {  // puts a disposition back as the test found it
  explicit SavedAction(int signal) : sig(signal) { sigaction(sig, nullptr, &saved); }
  ~SavedAction() { sigaction(sig, &saved, nullptr); }
  int sig;
  struct sigaction saved;
};

std::atomic<int> handledCount{0};
volatile sig_atomic_t handledCode = 0;
sigset_t maskInHandler;

void Recording(int sig, siginfo_t* info, void*) {
  handledCode = info->si_signo == sig ? info->si_code : -1;
  pthread_sigmask(SIG_BLOCK, nullptr, &maskInHandler);
  handledCount.fetch_add(1);
}

TEST(SignalHandlers, RealSignalsReachTheHandlerWithTheAsyncSignalsBlocked) {
  const std::string policy = " mask 2 20 28 ";
  for (int sig : {SIGUSR1, SIGINT, SIGWINCH}) {
    SCOPED_TRACE(sig);
    SavedAction saved(sig);
    sigset_t only;
    sigemptyset(&only);
    sigaddset(&only, sig);
    sigprocmask(SIG_BLOCK, &only, nullptr);  // installing unblocks it again
    ktRestoreDefaultHandler(sig);
    EXPECT_FALSE(Blocked(sig));
    EXPECT_EQ(Disposition(sig), "0 flags 0" + policy);
    ExpectQuery(sig, Address(SIG_DFL));

    EXPECT_EQ(Address(ktInstallHandler(sig, Recording)), Address(SIG_DFL));
    EXPECT_EQ(Disposition(sig), Number(Address(Recording)) + " flags 4" + policy);
    ExpectQuery(sig, Address(Recording));
    handledCount = 0;
    raise(sig);
    EXPECT_TRUE(handledCount.load() == 1 && handledCode == SI_TKILL);
    for (int async : kAsync) sigaddset(&only, async);
    EXPECT_EQ(Members(maskInHandler), Members(only));

    EXPECT_EQ(Address(ktIgnoreSignal(sig)), Address(Recording));
    ExpectQuery(sig, Address(SIG_IGN));
    raise(sig);
    EXPECT_EQ(handledCount.load(), 1);
    EXPECT_EQ(Address(ktInstallHandler(sig, Recording)), Address(SIG_IGN));
    EXPECT_EQ(Address(ktInstallHandler(sig, Recording)), Address(Recording));
  }
}

TEST(SignalHandlersDeathTest, RefusedInstallationIsAFailedAssertion) {
  const char* pattern = "^Fatal diagnostic: Assertion failed: status == 0 \\(ktsignal:75 ";
  EXPECT_DEATH(ktInstallHandler(SIGKILL, Recording), pattern);
  EXPECT_DEATH(ktRestoreDefaultHandler(SIGSTOP), pattern);
}

// Blocks exactly the members of `bits` among kAsync (bit i for kAsync[i]),
// and SIGUSR1, which no call here may touch.
void SetAsyncMask(int bits) {
  sigset_t block, unblock;
  sigemptyset(&block), sigemptyset(&unblock);
  sigaddset(&block, SIGUSR1);
  for (int i = 0; i < 3; ++i) sigaddset((bits >> i & 1) ? &block : &unblock, kAsync[i]);
  sigprocmask(SIG_UNBLOCK, &unblock, nullptr);
  sigprocmask(SIG_BLOCK, &block, nullptr);
}

// Every initial mask, every mask that code in between may leave, and the
// three ways of blocking. The restore only unblocks what was not blocked
// before the block call; it never blocks.
TEST(AsyncSignalBlocking, BlockAndRestoreFollowTheModel) {
  sigset_t original;
  sigprocmask(SIG_BLOCK, nullptr, &original);
  for (int initial = 0; initial < 8; ++initial)
    for (int between = 0; between < 8; ++between)
      for (int way = 0; way < 3; ++way) {  // Block, Maybe(true), Maybe(false)
        SCOPED_TRACE(testing::Message() << initial << " " << between << " " << way);
        SetAsyncMask(initial);
        sigset_t saved;
        EXPECT_EQ(way == 0 ? ktBlockAsyncSignals(&saved) : ktMaybeBlockAsyncSignals(&saved, way == 1), 0);
        for (int i = 0; i < 3; ++i) {
          bool was = (initial >> i & 1) != 0;
          EXPECT_EQ(Blocked(kAsync[i]), was || kAsync[i] != SIGINT || way != 2);
          EXPECT_EQ(sigismember(&saved, kAsync[i]) == 1, was);
        }
        SetAsyncMask(between);
        EXPECT_EQ(ktRestoreAsyncSignals(&saved), 0);
        for (int i = 0; i < 3; ++i)
          EXPECT_EQ(Blocked(kAsync[i]), ((initial & between) >> i & 1) != 0) << kAsync[i];
        EXPECT_TRUE(Blocked(SIGUSR1));
      }
  sigprocmask(SIG_SETMASK, &original, nullptr);
}

void TouchFaultingPage() {
  static void* const page = mmap(nullptr, 4096, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  (void)*static_cast<volatile const char*>(page);
}

volatile sig_atomic_t segvCount = 0;

// The kernel starts a handler with a fresh floating-point state, so the
// handler dirties its own to show that the jump resets it.
void OnSegv(int, siginfo_t*, void*) {
  ++segvCount;
  fesetround(FE_TOWARDZERO);
  feenableexcept(FE_DIVBYZERO);
  if (!SegvCleanup::longjmp()) ktRestoreDefaultHandler(SIGSEGV);  // the access repeats and ends the process
}

// Runs `body` under a new recovery point: true when a fault came back.
template <class F>
bool FaultedUnder(F body) {
  SegvCleanup cleanup;
  if (sigsetjmp(cleanup.buffer(), 1) != 0) return true;
  body();
  return false;
}

// Round to nearest and no exception unmasked in the x87 control word
// (fegetround, fegetexcept) and in MXCSR (its sticky flags aside).
bool FpuIsDefault() {
  return fegetround() == FE_TONEAREST && fegetexcept() == 0 && (_mm_getcsr() & ~0x3Fu) == 0x1F80;
}

TEST(SegvCleanup, FaultsResumeAtTheInnermostRecoveryPointWithADefaultFpu) {
  SavedAction saved(SIGSEGV);
  ktInstallHandler(SIGSEGV, OnSegv);
  segvCount = 0;
  EXPECT_FALSE(SegvCleanup::continuable());
  EXPECT_TRUE(FaultedUnder([] {
    EXPECT_TRUE(SegvCleanup::continuable());
    EXPECT_TRUE(FaultedUnder([] {
      fesetround(FE_UPWARD);
      TouchFaultingPage();
    }));
    EXPECT_TRUE(FpuIsDefault() && segvCount == 1);
    TouchFaultingPage();  // SIGSEGV is unblocked again, the outer point innermost
  }));
  EXPECT_TRUE(FpuIsDefault() && segvCount == 2 && !SegvCleanup::continuable());
  fesetenv(FE_DFL_ENV);
}

TEST(SegvCleanup, RecoveryPointsArePerThread) {
  SegvCleanup mine;
  std::thread([] {
    EXPECT_FALSE(SegvCleanup::continuable() || SegvCleanup::longjmp());
    SegvCleanup theirs;
    EXPECT_TRUE(SegvCleanup::continuable());
  }).join();
  EXPECT_TRUE(SegvCleanup::continuable());
}

// The variable is read at the process's first SegvCleanup: one fresh child
// per value. Disabled, the handler has nowhere to go and the fault kills.
TEST(SegvCleanupDeathTest, EnvironmentDisablesJumpsWhenItStartsWithOne) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  for (const char* value : {"1", "10", "0", "yes", "", static_cast<const char*>(nullptr)}) {
    bool disabled = value != nullptr && value[0] == '1';
    auto child = [&] {
      value ? setenv("QV_DISABLE_THROW_SEGV_LONGJMP", value, 1) : unsetenv("QV_DISABLE_THROW_SEGV_LONGJMP");
      ktInstallHandler(SIGSEGV, OnSegv);
      bool faulted = FaultedUnder([&] {
        if (SegvCleanup::continuable() == disabled) _exit(3);
        TouchFaultingPage();
      });
      _exit(faulted ? 0 : 4);
    };
    if (disabled) EXPECT_EXIT(child(), ::testing::KilledBySignal(SIGSEGV), "") << value;
    else EXPECT_EXIT(child(), ::testing::ExitedWithCode(0), "") << (value ? value : "unset");
  }
}

// Ctrl-C end to end: a real SIGINT reaches a handler installed with
// ktInstallHandler, which sets the pending bit, and a loop polling under an
// enabled ktInterruptMode leaves with InterruptException once the host's
// throw hook has seen the error and returned. Guards a fault seen before:
// the flags were read before the interrupt was taken, so a Ctrl-C landing
// in between was raised as no Ctrl-C.
void SetPendingOnSigint(int, siginfo_t*, void*) { ktSetInterruptPending(true); }

int CountAndReturn(void* calls, const char*, int code, const char*) {
  EXPECT_EQ(code, KT_ERR_SIGNAL_INTERRUPT);
  return ++*static_cast<int*>(calls);
}

TEST(CtrlC, RealSigintEndsAPollingLoop) {
  SavedAction saved(SIGINT);
  ktPendingFlagAddress();  // the state exists before the handler needs it
  ktInstallHandler(SIGINT, SetPendingOnSigint);
  static ktBasicContexts host;
  int hookCalls = 0;
  ASSERT_EQ(ktInitializeBasicContexts(&host, CountAndReturn, &hookCalls), 0);
  ktBasicContexts* previous = ktInstallBasicContexts(&host);
  std::thread sender([] {  // blocks SIGINT, so that the polling thread takes it
    sigset_t sigint;
    sigemptyset(&sigint), sigaddset(&sigint, SIGINT);
    pthread_sigmask(SIG_BLOCK, &sigint, nullptr);
    std::this_thread::sleep_for(20ms);
    kill(getpid(), SIGINT);
  });
  try {
    ktInterruptMode enabled(INTERRUPTS_ENABLED);
    for (;;) ktInterruptState::ThrowIfInterruptPending();
  } catch (const Quivera::System::InterruptException& e) {
    EXPECT_TRUE(e.ctrlC);
  }
  sender.join();
  EXPECT_EQ(hookCalls, 1) << "the error was raised before the exception";
  EXPECT_FALSE(ktIsInterruptPending()) << "taken";
  ktInstallBasicContexts(previous);
  ktClearBasicContexts(&host);
}

std::atomic<pthread_t> receivedOn{};

void RecordReceiver(int, siginfo_t*, void*) { receivedOn.store(pthread_self()); }

TEST(SignalThread, KillReachesTheDesignatedThread) {
  SavedAction saved(SIGUSR2);
  ktInstallHandler(SIGUSR2, RecordReceiver);
  std::atomic<int> designated{0};  // 1 designated, 2 and it is the signal thread
  std::thread receiver([&] {
    ktSetSignalThread();
    designated = ktIsSignalThread() ? 2 : 1;
    while (receivedOn.load() == pthread_t{}) std::this_thread::sleep_for(1ms);
  });
  pthread_t receiverId = receiver.native_handle();
  while (designated == 0) std::this_thread::sleep_for(1ms);
  EXPECT_FALSE(ktIsSignalThread());
  EXPECT_EQ(ktKillSignalThread(SIGUSR2), 0);
  receiver.join();
  EXPECT_TRUE(designated.load() == 2 && pthread_equal(receivedOn.load(), receiverId));
  kt_vm_context* vm = ktNewVmContext();
  ktEnterVmContext(vm);
  EXPECT_TRUE(ktIsSignalThread());  // inside a context, on any thread
  ktLeaveVmContext();
  ktDeleteVmContext(vm);
}

// A fatal diagnostic's whole standard-error output, as a pattern.
std::string Fatal(const char* text, int line, const char* function) {
  std::string output = "Fatal diagnostic: " + std::string(text) + " (ktsignal:" + std::to_string(line) + " " +
                       function + ")\n";
  std::string pattern = "^";
  for (char ch : output) {
    if (std::string("\\^$.|?*+()[]{}").find(ch) != std::string::npos) pattern += '\\';
    pattern += ch;
  }
  return pattern + "$";
}

const std::string kCalledTwice =
    Fatal("ktSetSignalThread may not be called more than once.", 220, "void ktSetSignalThread()");
const std::string kKillFirst =
    Fatal("ktKillSignalThread called without calling ktSetSignalThread or concurrently calling "
          "ktSetSignalThread.",
          305, "void ktKillSignalThread(int)");

enum Step {
  kOutside,          // ktSetSignalThread with no context
  kInside,           // the same inside one context, on this thread
  kInsideElsewhere,  // on a new thread inside a context of its own
  kKill,             // ktKillSignalThread(0): only the target check
};

void EnterAndSet(kt_vm_context* vm) {
  ktEnterVmContext(vm);
  ktSetSignalThread();
  ktLeaveVmContext();
}

// Exits 10 when this thread ended up the signal thread, 11 when not.
void RunSteps(const std::vector<Step>& steps, bool diagnostics) {
  ktSetFatalDiagnosticsEnabled(diagnostics ? 1 : 0);
  kt_vm_context* vm = ktNewVmContext();
  for (Step step : steps) {
    if (step == kOutside) ktSetSignalThread();
    else if (step == kInside) EnterAndSet(vm);
    else if (step == kInsideElsewhere) std::thread([] {
        kt_vm_context* own = ktNewVmContext();
        EnterAndSet(own);
        ktDeleteVmContext(own);
      }).join();
    else if (ktKillSignalThread(0) != 0) _exit(6);
  }
  ktDeleteVmContext(vm);
  std::exit(ktIsSignalThread() ? 10 : 11);
}

TEST(SignalDesignationDeathTest, SequencesEndAsTheStateMachineSays) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const std::string none = "^$";
  struct {
    std::vector<Step> steps;
    bool diagnostics;
    int exitCode;  // 0: killed, by SIGABRT with diagnostics on, else SIGILL
    const std::string& output;
  } const cases[] = {
      {{kOutside, kKill}, true, 10, none},
      {{kOutside, kOutside}, true, 0, kCalledTwice},
      {{kOutside, kInside}, true, 0, kCalledTwice},
      {{kInside, kOutside}, true, 0, kCalledTwice},
      {{kInside, kInside, kInsideElsewhere, kInside, kKill}, true, 10, none},
      {{kInsideElsewhere, kInside}, true, 11, none},  // the first caller stays
      {{kInsideElsewhere, kOutside}, true, 0, kCalledTwice},
      {{kKill}, true, 0, kKillFirst},
      {{kOutside, kOutside, kInside}, false, 10, none},
      {{kInside, kOutside}, false, 10, none},
      {{kKill}, false, 0, none},  // the trap after the silent diagnostic
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << &c - cases);
    if (c.exitCode != 0)
      EXPECT_EXIT(RunSteps(c.steps, c.diagnostics), testing::ExitedWithCode(c.exitCode), none);
    else
      EXPECT_EXIT(RunSteps(c.steps, c.diagnostics), testing::KilledBySignal(c.diagnostics ? SIGABRT : SIGILL),
                  c.output);
  }
}

// Only racing first calls reach the other two diagnostics. Each race is
// made deterministic by pausing one call at its first allocation after it
// read the state: the inside call as it records itself in its context,
// the outside call as its setup makes the kill target.
void InsideCallOvertakenByOutsideSetup() {
  ktEnterVmContext(ktNewVmContext());
  pauseAtNextNew = [] { std::thread(ktSetSignalThread).join(); };
  ktSetSignalThread();
}

std::atomic<pid_t> insideTid{0};

// Starts an inside call and returns once it sleeps, waiting for the setup
// that the calling thread is running, after it has claimed the state.
void InsideCallWaitingForTheSetup() {
  std::thread([] {
    ktEnterVmContext(ktNewVmContext());
    pauseAtNextNew = [] { insideTid = gettid(); };
    ktSetSignalThread();
  }).detach();
  while (insideTid == 0) std::this_thread::sleep_for(1ms);
  std::string path = "/proc/self/task/" + std::to_string(insideTid) + "/stat";
  for (int tries = 0; tries < 10000; ++tries, std::this_thread::sleep_for(1ms)) {
    std::ifstream file(path);
    std::string stat;
    std::getline(file, stat);
    size_t end = stat.rfind(')');  // the state letter follows the command name
    if (end != std::string::npos && stat.compare(end, 3, ") S") == 0) return;
  }
}

TEST(SignalDesignationDeathTest, RacingFirstCallsReportWhichCameFirst) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(InsideCallOvertakenByOutsideSetup(), testing::KilledBySignal(SIGABRT),
              Fatal("ktSetSignalThread was called with a RSM ZVM context active after it was "
                    "already called without an active context.",
                    238, "void ktSetSignalThread()"));
  EXPECT_EXIT(
      {
        pauseAtNextNew = InsideCallWaitingForTheSetup;
        ktSetSignalThread();
      },
      testing::KilledBySignal(SIGABRT),
      Fatal("ktSetSignalThread was called without a RSM ZVM context active after it was "
            "already called with an active context.",
            270, "ktSetSignalThread()::<lambda()> mutable"));
}

}  // namespace
