// Floating-point unit reset (see fpu.h).
#include "internal/fpu.h"

#if !defined(__x86_64__)
#error "the floating-point reset is written for x86-64"
#endif

namespace kt::internal {

void ResetFpu() noexcept {
  // fninit loads the x87 power-on state: control word 0x037F (all six
  // exceptions masked, round to nearest, 64-bit significand), status word
  // clear, every register tagged empty. 0x1F80 is the SSE equivalent.
  const unsigned int defaultMxcsr = 0x1F80;
  __asm__ volatile("fninit" ::: "memory");
  __asm__ volatile("ldmxcsr %0" : : "m"(defaultMxcsr) : "memory");
}

}  // namespace kt::internal
