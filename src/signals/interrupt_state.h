// Shared by the interrupt-state and interrupt-mode components.
#ifndef KT_SIGNALS_INTERRUPT_STATE_H
#define KT_SIGNALS_INTERRUPT_STATE_H

#include <cstdint>

namespace kt::internal {

// Logs to "ktsignal", raises ERR_SIGNAL_INTERRUPT through the current
// error context and, when that returns, throws
// Quivera::System::InterruptException with ctrlC = bit 0 of `flags` (the
// pending byte as it was before the interrupt was taken).
[[noreturn]] void ThrowPendingInterrupts(uint8_t flags);

}  // namespace kt::internal

#endif  // KT_SIGNALS_INTERRUPT_STATE_H
