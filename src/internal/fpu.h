// Floating-point unit reset: the stand-in for the floating-point library's
// reset facility, used before a fault handler jumps back into running code.
#ifndef KT_INTERNAL_FPU_H
#define KT_INTERNAL_FPU_H

namespace kt::internal {

// Puts the calling thread's floating-point control state back to the
// process defaults: round to nearest, every exception masked and no
// exception flag raised, in both the x87 control word (extended precision)
// and the SSE MXCSR (no flush-to-zero, no denormals-are-zero). The x87
// register stack is emptied as well. Async-signal-safe: a few instructions,
// no library calls on x86-64.
void ResetFpu() noexcept;

}  // namespace kt::internal

#endif  // KT_INTERNAL_FPU_H
