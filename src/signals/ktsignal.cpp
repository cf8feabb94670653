// The POSIX signal layer: handler wrappers with one fixed policy, blocking
// of the asynchronous signals, and the designated signal thread.
#include "kt/signals.h"

#include <pthread.h>

#include <atomic>
#include <cstdint>
#include <mutex>

#include "internal/diag.h"
#include "internal/slot_store.h"

namespace {

constexpr const char* kModule = "ktsignal";

// ---- Handler wrappers -------------------------------------------------------

// SIGINT, SIGTSTP and SIGWINCH, the signals blocked and unblocked as a group.
sigset_t AsyncSignals(bool includeSigint) {
  sigset_t set;
  sigemptyset(&set);
  if (includeSigint)
    sigaddset(&set, SIGINT);
  sigaddset(&set, SIGTSTP);
  sigaddset(&set, SIGWINCH);
  return set;
}

// The installation steps every wrapper shares: the fixed mask, sigaction,
// and unblocking `sig` in this thread. `action` brings handler and flags.
void Install(int sig, struct sigaction* action, struct sigaction* old, const char* function) {
  action->sa_mask = AsyncSignals(true);
  if (sigaction(sig, action, old) != 0)
    kt::internal::diag::AssertionFailed("status == 0", kModule, 75, function);
  sigset_t only;
  sigemptyset(&only);
  sigaddset(&only, sig);
  if (sigprocmask(SIG_UNBLOCK, &only, nullptr) != 0)
    kt::internal::diag::AssertionFailed("status == 0", kModule, 84, function);
}

// ---- Signal thread ----------------------------------------------------------

// The thread recorded in a virtual-machine context by ktSetSignalThread.
struct SignalThreadData {
  pthread_t thread;
};

// signalThreadState values. The state only ever leaves kNotSet, once.
constexpr int32_t kNotSet = 0;
constexpr int32_t kSetInContext = 1;
constexpr int32_t kSetWithoutContext = 2;

std::atomic<int32_t> signalThreadState{kNotSet};
std::atomic<pthread_t> signalThreadId{};
// Published once by the setup, never freed, so a concurrent
// ktKillSignalThread sees either nothing or a complete cell.
std::atomic<pthread_t*> killTarget{nullptr};
std::once_flag setupOnce;

struct FatalText {
  const char* text;
  int line;
  const char* function;
};

constexpr FatalText kCalledTwice = {
    "ktSetSignalThread may not be called more than once.", 220, "void ktSetSignalThread()"};
constexpr FatalText kInContextAfterWithout = {
    "ktSetSignalThread was called with a RSM ZVM context active after it was already "
    "called without an active context.",
    238, "void ktSetSignalThread()"};
constexpr FatalText kWithoutContextAfterIn = {
    "ktSetSignalThread was called without a RSM ZVM context active after it was already "
    "called with an active context.",
    270, "ktSetSignalThread()::<lambda()> mutable"};
constexpr FatalText kKillBeforeSet = {
    "ktKillSignalThread called without calling ktSetSignalThread or concurrently calling "
    "ktSetSignalThread.",
    305, "void ktKillSignalThread(int)"};

// Ends the process when fatal diagnostics are on; otherwise returns and the
// caller goes on.
void ReportIfEnabled(const FatalText& fault) {
  if (kt::internal::diag::FatalDiagnosticsEnabled())
    kt::internal::diag::Terminate(fault.text, kModule, fault.line, fault.function);
}

// A call inside a context: records the thread there and claims the state
// for "set in a context" unless a call without a context got there first.
void RecordInContext() {
  pthread_t self = pthread_self();
  kt::internal::CurrentContextStore().Insert<SignalThreadData>(SignalThreadData{self});
  int32_t expected = kNotSet;
  if (!signalThreadState.compare_exchange_strong(expected, kSetInContext) &&
      expected == kSetWithoutContext) {
    ReportIfEnabled(kInContextAfterWithout);
    ReportIfEnabled(kCalledTwice);
  }
}

// The once-only setup, run by the first caller: the process-wide thread id
// and the kill target, then the state for "set without a context" unless
// a call in a context claimed it already.
void SetUpOnce(bool active) {
  pthread_t self = pthread_self();
  signalThreadId.store(self, std::memory_order_release);
  killTarget.exchange(new pthread_t(self), std::memory_order_acq_rel);
  int32_t expected = kNotSet;
  if (signalThreadState.compare_exchange_strong(expected, kSetWithoutContext))
    return;
  if (expected == kSetInContext && active)
    return;
  ReportIfEnabled(kWithoutContextAfterIn);
}

}  // namespace

extern "C" {

ktSignalHandler ktInstallHandler(int sig, ktSignalHandler handler) {
  struct sigaction action = {};
  action.sa_sigaction = handler;
  action.sa_flags = SA_SIGINFO;
  struct sigaction old = {};
  Install(sig, &action, &old, "ktSignalHandler ktInstallHandler(int, ktSignalHandler)");
  return old.sa_sigaction;
}

void ktRestoreDefaultHandler(int sig) {
  struct sigaction action = {};
  action.sa_handler = SIG_DFL;
  action.sa_flags = 0;
  Install(sig, &action, nullptr, "void ktRestoreDefaultHandler(int)");
}

ktSignalHandler ktQueryHandler(int sig) {
  struct sigaction old = {};
  sigaction(sig, nullptr, &old);
  return old.sa_sigaction;
}

ktSignalDisposition ktIgnoreSignal(int sig) { return signal(sig, SIG_IGN); }

int ktMaybeBlockAsyncSignals(sigset_t* saved, bool includeSigint) {
  sigset_t block = AsyncSignals(includeSigint);
  return sigprocmask(SIG_BLOCK, &block, saved);
}

int ktBlockAsyncSignals(sigset_t* saved) { return ktMaybeBlockAsyncSignals(saved, true); }

// Only unblocks, deliberately, so it is not the inverse of the block call:
// a signal that was blocked before that call keeps its current state, one
// that was not becomes unblocked, and nothing is ever masked here.
int ktRestoreAsyncSignals(const sigset_t* saved) {
  sigset_t unblock;
  sigemptyset(&unblock);
  for (int sig : {SIGINT, SIGTSTP, SIGWINCH})
    if (sigismember(saved, sig) == 0)
      sigaddset(&unblock, sig);
  return sigprocmask(SIG_UNBLOCK, &unblock, nullptr);
}

void ktSetSignalThread(void) {
  bool active = kt::internal::RequiredContextActive();
  int32_t state = signalThreadState.load(std::memory_order_acquire);
  // Repeated calls are fine only while every call is made in a context.
  if (state != kNotSet && !(state == kSetInContext && active))
    ReportIfEnabled(kCalledTwice);
  if (active)
    RecordInContext();
  // std::call_once throws std::system_error when it cannot run the setup.
  std::call_once(setupOnce, [active]() mutable { SetUpOnce(active); });
}

bool ktIsSignalThread(void) {
  // Inside a context every thread counts as the signal thread, on purpose:
  // the context's own threads all take signals for it.
  if (kt::internal::RequiredContextActive())
    return true;
  return pthread_equal(pthread_self(), signalThreadId.load(std::memory_order_acquire)) != 0;
}

int ktKillSignalThread(int sig) {
  pthread_t* target = killTarget.load(std::memory_order_acquire);
  if (target == nullptr) {
    ReportIfEnabled(kKillBeforeSet);
    // With diagnostics off the process still stops here, deliberately,
    // instead of sending to a thread that does not exist.
    __builtin_trap();
  }
  return pthread_kill(*target, sig);
}

}  // extern "C"
