// Shared by the interrupt-state and interrupt-mode components.
#ifndef KT_SIGNALS_INTERRUPT_STATE_H
#define KT_SIGNALS_INTERRUPT_STATE_H

#include <cstdint>

struct InterruptStateData;

namespace kt::internal {

// HandlePendingInterrupt that returns the pending byte as it was when the
// interrupt bits were taken (0 when none was set). Interrupts are raised
// with these flags rather than with a copy read before the take: a Ctrl-C
// that lands between the two would otherwise be raised as no Ctrl-C.
uint8_t TakeInterrupts(InterruptStateData& data);

// Logs to "ktsignal", raises ERR_SIGNAL_INTERRUPT through the current
// error context and, when that returns, throws
// Quivera::System::InterruptException with ctrlC = bit 0 of `flags` (the
// pending byte as TakeInterrupts found it).
[[noreturn]] void ThrowPendingInterrupts(uint8_t flags);

}  // namespace kt::internal

#endif  // KT_SIGNALS_INTERRUPT_STATE_H
