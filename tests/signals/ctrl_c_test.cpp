// Ctrl-C end to end: a real SIGINT sent to the process reaches a handler
// installed with ktInstallHandler, which sets the pending bit, and a loop
// polling under an enabled ktInterruptMode leaves with the raised error
// (when a catch frame accepts it) or with InterruptException (when the
// host's throw hook has seen the error and returned). Guards a fault seen
// before: the flags were read before the interrupt was taken, so a Ctrl-C
// landing in between was raised as no Ctrl-C.
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <thread>

#include <gtest/gtest.h>

#include "kt/contexts.h"
#include "kt/interrupts.h"
#include "kt/signals.h"

namespace {

void SetPendingOnSigint(int, siginfo_t*, void*) { ktSetInterruptPending(true); }

// Sends SIGINT to the process from a thread that blocks it, so that the
// polling thread takes it.
std::thread CtrlCSoon() {
  return std::thread([] {
    sigset_t sigint;
    sigemptyset(&sigint);
    sigaddset(&sigint, SIGINT);
    pthread_sigmask(SIG_BLOCK, &sigint, nullptr);
    usleep(20000);
    kill(getpid(), SIGINT);
  });
}

[[noreturn]] void PollForEver(kt_error_context*, void*) {
  ktInterruptMode enabled(INTERRUPTS_ENABLED);
  for (;;) ktInterruptState::ThrowIfInterruptPending();
}

int AcceptInterrupt(kt_error_context*, void* seen, int code, va_list) {
  *static_cast<int*>(seen) = code;
  return code == KT_ERR_SIGNAL_INTERRUPT;
}

int CountAndReturn(void* calls, const char*, int code, const char*) {
  EXPECT_EQ(code, KT_ERR_SIGNAL_INTERRUPT);
  return ++*static_cast<int*>(calls);
}

}  // namespace

TEST(CtrlC, RealSigintEndsAPollingLoop) {
  ktPendingFlagAddress();  // the state exists before the handler needs it
  ktInstallHandler(SIGINT, SetPendingOnSigint);

  int seen = 0;
  std::thread sender = CtrlCSoon();
  EXPECT_EQ(kt_try_catch(ktGetErrorContext(), &seen, PollForEver, AcceptInterrupt),
            KT_ERR_SIGNAL_INTERRUPT);
  sender.join();
  EXPECT_EQ(seen, KT_ERR_SIGNAL_INTERRUPT) << "the catch frame saw the error";
  EXPECT_FALSE(ktIsInterruptPending()) << "taken";

  static ktBasicContexts host;
  int hookCalls = 0;
  ASSERT_EQ(ktInitializeBasicContexts(&host, CountAndReturn, &hookCalls), 0);
  ktBasicContexts* previous = ktInstallBasicContexts(&host);
  sender = CtrlCSoon();
  try {
    PollForEver(nullptr, nullptr);
  } catch (const Quivera::System::InterruptException& e) {
    EXPECT_TRUE(e.ctrlC);
  }
  sender.join();
  EXPECT_EQ(hookCalls, 1) << "the error was raised before the exception";
  ktInstallBasicContexts(previous);
  ktClearBasicContexts(&host);
  ktRestoreDefaultHandler(SIGINT);
}
