// The interrupt state: one flag byte per context changed by
// compare-and-swap, its per-thread lookup, the operations on it, the raise
// of a taken interrupt and InterruptException.
#include "signals/interrupt_state.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <utility>

#include "contexts/error_raise.h"
#include "internal/diag.h"
#include "internal/slot_store.h"
#include "kt/contexts.h"
#include "kt/interrupts.h"

using kt::internal::CurrentContextStore;
using kt::internal::ThisThreadContextEpoch;

static_assert(std::atomic<uint8_t>::is_always_lock_free,
              "signal handlers update the flag bytes: they must be lock-free");

namespace {

constexpr uint8_t kInterruptBits = KT_PENDING_INTERRUPT_MASK;

// ---- the current context's state ---------------------------------------------

// The slot kept in each context's store.
struct InterruptStateSlot {
  std::shared_ptr<InterruptStateData> data = std::make_shared<InterruptStateData>();
};

// This thread's last lookup: the slot found while the thread's context
// epoch was `epoch`. Slots never move and a context's store outlives every
// thread's stay in it, so the pointer holds until the epoch moves.
// Constant-initialised and trivial, so that reading it from a signal
// handler runs no constructor.
struct CachedLookup {
  uint64_t epoch;
  std::shared_ptr<InterruptStateData>* data;
};

constexpr uint64_t kNoEpoch = UINT64_MAX;  // epochs count up from 0
// In the static TLS block, like the context epoch it is checked against:
// the poll reads both on every call.
thread_local CachedLookup tLookup __attribute__((tls_model("initial-exec"))) = {kNoEpoch, nullptr};

// A signal handler that interrupts this update sees the pair either old,
// invalid or new, never mixed: the compiler may not reorder the writes.
__attribute__((noinline)) std::shared_ptr<InterruptStateData>& LookUp(uint64_t epoch) {
  std::shared_ptr<InterruptStateData>& data =
      CurrentContextStore().FindOrInsert<InterruptStateSlot>().data;
  tLookup.epoch = kNoEpoch;
  std::atomic_signal_fence(std::memory_order_seq_cst);
  tLookup.data = &data;
  std::atomic_signal_fence(std::memory_order_seq_cst);
  tLookup.epoch = epoch;
  return data;
}

// ---- flag bytes ------------------------------------------------------------

// Sets (on) or clears the bits of `mask` by compare-and-swap on the whole
// byte and returns the byte as it was. Nothing is written when no bit
// would change.
uint8_t UpdateBits(std::atomic<uint8_t>& flags, uint8_t mask, bool on) {
  uint8_t old = flags.load(std::memory_order_acquire);
  for (;;) {
    uint8_t desired = on ? static_cast<uint8_t>(old | mask) : static_cast<uint8_t>(old & ~mask);
    if (desired == old) return old;
    if (flags.compare_exchange_weak(old, desired, std::memory_order_acq_rel,
                                    std::memory_order_acquire))
      return old;
  }
}

bool UpdateBit(std::atomic<uint8_t>& flags, uint8_t bit, bool on) {
  return (UpdateBits(flags, bit, on) & bit) != 0;
}

bool TestBit(const std::atomic<uint8_t>& flags, uint8_t bit) {
  return (flags.load(std::memory_order_acquire) & bit) != 0;
}

// The callback runs only while interrupts are enabled. The flag is left
// set on purpose: its owner clears it with SetMemoryEventPending(false).
void ServiceMemoryEvent(InterruptStateData& data) {
  if (!TestBit(data.pending, KT_PENDING_MEMORY_EVENT)) return;
  if (data.mode == INTERRUPTS_DISABLED) return;
  std::shared_ptr<std::function<void()>> callback = data.memoryEventCallback.lock();
  if (callback && *callback) (*callback)();
}

}  // namespace

std::shared_ptr<InterruptStateData>& ktGetInterruptStateData() {
  uint64_t epoch = ThisThreadContextEpoch();
  if (tLookup.epoch == epoch) return *tLookup.data;
  return LookUp(epoch);
}

// ---- raising a taken interrupt -------------------------------------------------

namespace kt::internal {

void ThrowPendingInterrupts(uint8_t flags) {
  static diag::Channel& channel = diag::GetChannel("ktsignal");
  bool ctrlC = (flags & KT_PENDING_INTERRUPT) != 0;
  uint32_t flag = channel.Enabled(0x2) ? 0x2 : 0x1;
  if (auto record = channel.Open(flag, "ktsignal", 512, __PRETTY_FUNCTION__)) {
    if (flag == 0x2) record.stream() << " isCtrlCPending=" << (ctrlC ? "true" : "false");
  }
  RaiseOrReturn(ktGetErrorContext(), KT_ERR_SIGNAL_INTERRUPT);
  throw Quivera::System::InterruptException(ctrlC);
}

}  // namespace kt::internal

// ---- flag setters ------------------------------------------------------------------

using Data = std::shared_ptr<InterruptStateData>;

bool ktInterruptState::SetInterruptPending(InterruptStateData& data, bool on) {
  return UpdateBit(data.pending, KT_PENDING_INTERRUPT, on);
}
bool ktInterruptState::SetInterruptPending(Data const& sp, bool on) {
  return SetInterruptPending(*sp, on);
}
bool ktInterruptState::SetInterruptPending(bool on) {
  return SetInterruptPending(ktGetInterruptStateData(), on);
}

bool ktInterruptState::SetIqmInterruptPending(Data const& sp, bool on) {
  return UpdateBit(sp->pending, KT_PENDING_IQM_INTERRUPT, on);
}
bool ktInterruptState::SetIqmInterruptPending(bool on) {
  return SetIqmInterruptPending(ktGetInterruptStateData(), on);
}

bool ktInterruptState::SetPauseMsgPending(Data const& sp, bool on) {
  return UpdateBit(sp->pending, KT_PENDING_PAUSE_MSG, on);
}
bool ktInterruptState::SetPauseMsgPending(bool on) {
  return SetPauseMsgPending(ktGetInterruptStateData(), on);
}

bool ktInterruptState::SetMemoryEventPending(Data const& sp, bool on) {
  return UpdateBit(sp->pending, KT_PENDING_MEMORY_EVENT, on);
}
bool ktInterruptState::SetMemoryEventPending(bool on) {
  return SetMemoryEventPending(ktGetInterruptStateData(), on);
}

bool ktInterruptState::SetPeekMsgPending(Data const& sp, bool on) {
  return UpdateBit(sp->pending, KT_PENDING_PEEK_MSG, on);
}
bool ktInterruptState::SetPeekMsgPending(bool on) {
  return SetPeekMsgPending(ktGetInterruptStateData(), on);
}

bool ktInterruptState::SetProfilerSamplePending(Data const& sp) {
  return UpdateBit(sp->pending, KT_PENDING_PROFILER_SAMPLE, true);
}
bool ktInterruptState::SetProfilerSamplePending() {
  return SetProfilerSamplePending(ktGetInterruptStateData());
}
bool ktInterruptState::ClearProfilerSamplePending(Data const& sp) {
  return UpdateBit(sp->pending, KT_PENDING_PROFILER_SAMPLE, false);
}
bool ktInterruptState::ClearProfilerSamplePending() {
  return ClearProfilerSamplePending(ktGetInterruptStateData());
}

bool ktInterruptState::SetBreakpointRequestPending(Data const& sp) {
  return UpdateBit(sp->pending, KT_PENDING_BREAKPOINT_REQUEST, true);
}
bool ktInterruptState::SetBreakpointRequestPending() {
  return SetBreakpointRequestPending(ktGetInterruptStateData());
}
bool ktInterruptState::ClearBreakpointRequestPending(Data const& sp) {
  return UpdateBit(sp->pending, KT_PENDING_BREAKPOINT_REQUEST, false);
}
bool ktInterruptState::ClearBreakpointRequestPending() {
  return ClearBreakpointRequestPending(ktGetInterruptStateData());
}

// ---- polling, handling and deferring ---------------------------------------------

bool ktInterruptState::IsInterruptPending(Data const& sp) {
  InterruptStateData& data = *sp;
  uint8_t flags = data.pending.load(std::memory_order_acquire);
  if ((flags & KT_PENDING_MEMORY_EVENT) == 0) return (flags & kInterruptBits) != 0;
  ServiceMemoryEvent(data);
  return TestBit(data.pending, kInterruptBits);
}
bool ktInterruptState::IsInterruptPending() {
  return IsInterruptPending(ktGetInterruptStateData());
}

uint8_t kt::internal::TakeInterrupts(InterruptStateData& data) {
  ServiceMemoryEvent(data);
  uint8_t old = UpdateBits(data.pending, kInterruptBits, false);
  if ((old & kInterruptBits) == 0) return 0;
  data.handled = true;
  return old;
}

bool ktInterruptState::HandlePendingInterrupt(Data const& sp) {
  return kt::internal::TakeInterrupts(*sp) != 0;
}
bool ktInterruptState::HandlePendingInterrupt() {
  return HandlePendingInterrupt(ktGetInterruptStateData());
}

// Taking the bits out of `pending` and reading them is one atomic step, so
// that an interrupt arriving meanwhile is either deferred or left pending.
void ktInterruptState::DeferPendingInterrupt(Data const& sp) {
  uint8_t taken = UpdateBits(sp->pending, kInterruptBits, false) & kInterruptBits;
  if (taken != 0) sp->deferred.fetch_or(taken, std::memory_order_acq_rel);
}
void ktInterruptState::DeferPendingInterrupt() {
  DeferPendingInterrupt(ktGetInterruptStateData());
}

// Every bit of `deferred` goes back to `pending`, but only the interrupt
// bits leave `deferred`: any other bit found there is applied again on
// each call. Kept on purpose: only the interrupt bits are handed back once.
bool ktInterruptState::HandleDeferredInterrupt(Data const& sp) {
  uint8_t deferred = UpdateBits(sp->deferred, kInterruptBits, false);
  if (deferred != 0) sp->pending.fetch_or(deferred, std::memory_order_acq_rel);
  return (deferred & kInterruptBits) != 0;
}
bool ktInterruptState::HandleDeferredInterrupt() {
  return HandleDeferredInterrupt(ktGetInterruptStateData());
}

// Taking the interrupt services the memory event once more: the callback
// may run twice here.
void ktInterruptState::ThrowIfInterruptPending(Data const& sp) {
  ServiceMemoryEvent(*sp);
  if (sp->mode == INTERRUPTS_DISABLED) return;
  if (uint8_t taken = kt::internal::TakeInterrupts(*sp)) kt::internal::ThrowPendingInterrupts(taken);
}
void ktInterruptState::ThrowIfInterruptPending() {
  ThrowIfInterruptPending(ktGetInterruptStateData());
}

// ---- single flags and the handled mark ----------------------------------------------

bool ktInterruptState::SetInterruptHandled(Data const& sp, bool handled) {
  return std::exchange(sp->handled, handled);
}
bool ktInterruptState::SetInterruptHandled(bool handled) {
  return SetInterruptHandled(ktGetInterruptStateData(), handled);
}
bool ktInterruptState::WasInterruptHandled(Data const& sp) { return sp->handled; }
bool ktInterruptState::WasInterruptHandled() {
  return WasInterruptHandled(ktGetInterruptStateData());
}

bool ktInterruptState::IsPauseMsgPending(Data const& sp) {
  return TestBit(sp->pending, KT_PENDING_PAUSE_MSG);
}
bool ktInterruptState::IsPauseMsgPending() { return IsPauseMsgPending(ktGetInterruptStateData()); }

bool ktInterruptState::IsMemoryEventPending(Data const& sp) {
  return TestBit(sp->pending, KT_PENDING_MEMORY_EVENT);
}
bool ktInterruptState::IsMemoryEventPending() {
  return IsMemoryEventPending(ktGetInterruptStateData());
}

bool ktInterruptState::HandlePeekMsgPending(Data const& sp) {
  return UpdateBit(sp->pending, KT_PENDING_PEEK_MSG, false);
}
bool ktInterruptState::HandlePeekMsgPending() {
  return HandlePeekMsgPending(ktGetInterruptStateData());
}

bool ktInterruptState::PeekMessageIfPending(Data const& sp) {
  if (!TestBit(sp->pending, KT_PENDING_PEEK_MSG)) return false;
  HandlePeekMsgPending(sp);
  return true;
}
bool ktInterruptState::PeekMessageIfPending() {
  return PeekMessageIfPending(ktGetInterruptStateData());
}

void ktInterruptState::SetMemoryEventCallback(Data const& sp,
                                              std::weak_ptr<std::function<void()>> callback) {
  sp->memoryEventCallback = std::move(callback);
}
void ktInterruptState::SetMemoryEventCallback(std::weak_ptr<std::function<void()>> callback) {
  SetMemoryEventCallback(ktGetInterruptStateData(), std::move(callback));
}

// ---- InterruptException ------------------------------------------------------------

namespace Quivera {
namespace System {

InterruptException::InterruptException(bool isCtrlC) : ctrlC(isCtrlC) {}
InterruptException::InterruptException(const InterruptException& other) = default;
InterruptException::~InterruptException() = default;

InterruptException* InterruptException::clone() const { return new InterruptException(*this); }

void InterruptException::rethrow() const { throw InterruptException(*this); }

const char* InterruptException::what() const noexcept {
  return ctrlC ? "InterruptException(ctrl-c)" : "InterruptException";
}

cx::ustring InterruptException::ToUstringImpl() const {
  return ctrlC ? u"InterruptException(ctrl-c)" : u"InterruptException";
}

}  // namespace System
}  // namespace Quivera

// ---- C interface -------------------------------------------------------------------

extern "C" {

bool ktIsInterruptPending(void) { return ktInterruptState::IsInterruptPending(); }

bool ktSetInterruptPending(bool on) { return ktInterruptState::SetInterruptPending(on); }

bool ktSetPauseMsgPending(bool on) { return ktInterruptState::SetPauseMsgPending(on); }

bool ktHandlePendingInterrupt(void) { return ktInterruptState::HandlePendingInterrupt(); }

bool ktSetInterruptHandled(bool handled) { return ktInterruptState::SetInterruptHandled(handled); }

bool ktWasInterruptHandled(void) { return ktInterruptState::WasInterruptHandled(); }

void ktLongjmpIfInterruptPending(void) { ktInterruptState::ThrowIfInterruptPending(); }

// std::atomic<uint8_t> is a plain byte in memory: pollers may read it.
const volatile unsigned char* ktPendingFlagAddress(void) {
  static_assert(sizeof(std::atomic<uint8_t>) == 1, "the pending flags are one byte");
  return reinterpret_cast<const volatile unsigned char*>(&ktGetInterruptStateData()->pending);
}

}  // extern "C"
