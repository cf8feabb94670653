// Recovery points for segmentation faults: a per-thread stack of jump
// buffers that a SIGSEGV handler can siglongjmp back to.
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "internal/fpu.h"
#include "kt/signals.h"

namespace Quivera::System::Unix {

namespace {

// The thread's innermost live SegvCleanup. Read by fault handlers on the
// same thread, so the writes below are ordered against them with signal
// fences.
thread_local SegvCleanup* innermost = nullptr;

std::atomic<bool> longjmpDisabled{false};
std::once_flag environmentOnce;

// QV_DISABLE_THROW_SEGV_LONGJMP disables jumps when its text starts with
// "1" ("10" too; "0", "yes" and an empty text leave them enabled).
void ReadEnvironment() {
  const char* value = std::getenv("QV_DISABLE_THROW_SEGV_LONGJMP");
  longjmpDisabled.store(value != nullptr && value[0] == '1', std::memory_order_relaxed);
}

}  // namespace

SegvCleanup::SegvCleanup() : previous_(innermost) {
  std::call_once(environmentOnce, ReadEnvironment);
  std::memset(&buffer_, 0, sizeof buffer_);
  std::atomic_signal_fence(std::memory_order_seq_cst);
  innermost = this;
}

SegvCleanup::~SegvCleanup() {
  innermost = previous_;
  std::atomic_signal_fence(std::memory_order_seq_cst);
}

bool SegvCleanup::continuable() {
  // The chain first: a thread with a live object has passed the
  // environment's once-region, so the flag is settled for it.
  return innermost != nullptr && !longjmpDisabled.load(std::memory_order_relaxed);
}

bool SegvCleanup::longjmp() noexcept {
  if (!continuable())
    return false;
  kt::internal::ResetFpu();
  siglongjmp(innermost->buffer_, 1);
}

}  // namespace Quivera::System::Unix
