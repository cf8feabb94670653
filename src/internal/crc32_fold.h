// Carry-less-multiply folding of the CRC-32 register, used by crc32.cpp
// for long inputs. Same register semantics as Crc32RegisterBytewise.
#ifndef KT_INTERNAL_CRC32_FOLD_H
#define KT_INTERNAL_CRC32_FOLD_H

#include <cstddef>
#include <cstdint>

namespace kt::internal {

// What the processor (cpuid) and the OS (XCR0) allow.
struct Crc32FoldSupport {
  bool fold128;  // PCLMULQDQ and SSE4.1
  bool fold512;  // fold128, VPCLMULQDQ, AVX-512 F/BW/VL and the ZMM state
};
Crc32FoldSupport Crc32DetectFoldSupport();

// Fold `length` bytes at `p` into the register. `length` is a multiple of
// 16 and at least 64 (Crc32Fold128) or 256 (Crc32Fold512); call each only
// when Crc32DetectFoldSupport allows it.
uint32_t Crc32Fold128(uint32_t reg, const unsigned char* p, size_t length);
uint32_t Crc32Fold512(uint32_t reg, const unsigned char* p, size_t length);

}  // namespace kt::internal

#endif  // KT_INTERNAL_CRC32_FOLD_H
