// The streaming commands' inputs and Ctrl-C, on the library's signal
// wrappers and interrupt state.
#include "input.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "commands.h"

#include "kt/interrupts.h"
#include "kt/signals.h"

namespace kttool {
namespace {

// Runs in the signal handler: only the compare-and-swap on the flag byte.
void OnSigint(int, siginfo_t*, void*) { ktSetInterruptPending(true); }

// The thread's signal mask while it waits: the blocked mask without SIGINT.
sigset_t gWaitMask;

}  // namespace

void CatchCtrlC() {
  ktPendingFlagAddress();  // the state exists before a handler can need it
  sigset_t sigint;
  sigemptyset(&sigint);
  sigaddset(&sigint, SIGINT);
  ktInstallHandler(SIGINT, OnSigint);  // also unblocks SIGINT ...
  pthread_sigmask(SIG_BLOCK, &sigint, &gWaitMask);  // ... which waits alone let through
  sigdelset(&gWaitMask, SIGINT);
}

ssize_t ReadOrInterrupt(int fd, void* buffer, size_t size) {
  // SIGINT can arrive only inside ppoll, so a signal between the check and
  // the wait cannot be missed.
  pollfd wait = {fd, POLLIN, 0};
  for (;;) {
    if (ktIsInterruptPending()) {
      errno = EINTR;
      return -1;
    }
    int ready = ppoll(&wait, 1, nullptr, &gWaitMask);
    if (ready < 0 && errno == EINTR) continue;  // the check above decides
    if (ready < 0) return -1;
    ssize_t got = read(fd, buffer, size);
    if (got < 0 && errno == EINTR) continue;
    return got;
  }
}

bool InterruptRequested() { return ktHandlePendingInterrupt(); }

int OpenInput(const char* name) {
  if (std::strcmp(name, "-") == 0) return STDIN_FILENO;
  int fd = open(name, O_RDONLY | O_CLOEXEC);
  if (fd < 0) Complain("%s: %s", name, std::strerror(errno));
  return fd;
}

void CloseInput(int fd) {
  if (fd != STDIN_FILENO) close(fd);
}

const char* InputName(const char* name) {
  return std::strcmp(name, "-") == 0 ? "standard input" : name;
}

}  // namespace kttool
