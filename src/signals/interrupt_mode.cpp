// Interrupt modes: the scope guard that enables or disables interrupts and
// restores what it found, the mode setter, and their C interface.
#include <memory>
#include <utility>

#include "kt/interrupts.h"
#include "signals/interrupt_state.h"

namespace {

// Entering the enabled mode from the disabled one re-applies the
// interrupts deferred meanwhile, before enabled code can poll. Only the
// exact values count here, unlike for isInterruptEnabled.
bool Enables(InterruptMode from, InterruptMode to) {
  return from == INTERRUPTS_DISABLED && to == INTERRUPTS_ENABLED;
}

}  // namespace

ktInterruptMode::ktInterruptMode(std::shared_ptr<InterruptStateData> sp, InterruptMode mode)
    : data_(std::move(sp)), previousMode_(data_->mode) {
  data_->mode = mode;
  if (Enables(previousMode_, mode)) ktInterruptState::HandleDeferredInterrupt(data_);
}

ktInterruptMode::ktInterruptMode(InterruptMode mode)
    : ktInterruptMode(ktGetInterruptStateData(), mode) {}

// Leaving a disabled scope for an enabled one re-applies deferred
// interrupts first, so that the restored enabled mode sees them.
ktInterruptMode::~ktInterruptMode() {
  if (Enables(data_->mode, previousMode_)) ktInterruptState::HandleDeferredInterrupt(data_);
  data_->mode = previousMode_;
}

InterruptMode ktInterruptMode::SetMode(std::shared_ptr<InterruptStateData> const& sp,
                                       InterruptMode mode) {
  InterruptMode old = std::exchange(sp->mode, mode);
  if (Enables(old, mode)) ktInterruptState::HandleDeferredInterrupt(sp);
  return old;
}

InterruptMode ktInterruptMode::SetMode(InterruptMode mode) {
  return SetMode(ktGetInterruptStateData(), mode);
}

bool ktInterruptMode::isInterruptEnabled(std::shared_ptr<InterruptStateData> const& sp) {
  return sp->mode != INTERRUPTS_DISABLED;
}

bool ktInterruptMode::isInterruptEnabled() { return isInterruptEnabled(ktGetInterruptStateData()); }

void ktInterruptMode::throwIfInterruptsPendingAndOriginallyEnabled() {
  if (previousMode_ != INTERRUPTS_ENABLED) return;
  if (!ktInterruptState::IsInterruptPending(data_)) return;
  if (uint8_t taken = kt::internal::TakeInterrupts(*data_))
    kt::internal::ThrowPendingInterrupts(taken);
}

extern "C" {

bool ktSetInterruptEnabled(bool enabled) {
  InterruptMode mode = enabled ? INTERRUPTS_ENABLED : INTERRUPTS_DISABLED;
  return ktInterruptMode::SetMode(mode) == INTERRUPTS_ENABLED;
}

void ktRestoreInterruptEnabled(bool enabled) {
  ktInterruptMode::SetMode(enabled ? INTERRUPTS_ENABLED : INTERRUPTS_DISABLED);
}

bool ktIsInterruptEnabled(void) { return ktInterruptMode::isInterruptEnabled(); }

}  // extern "C"
