// Internal CRC-32 engine shared by the checksum and hashing families.
//
// The functions here work on the raw CRC register: no inversion on entry
// or exit. kt_crc_update wraps them with the IEEE inversions; the seeded
// hash family of the containers uses the register as it is.
#ifndef KT_INTERNAL_CRC32_H
#define KT_INTERNAL_CRC32_H

#include <cstddef>
#include <cstdint>

namespace kt::internal {

// The reflected CRC-32 polynomial: bit i holds the coefficient of x^(31-i)
// (x^32 is implied).
constexpr uint32_t kCrc32Polynomial = 0xEDB88320u;

// slice[0] is the standard reflected CRC-32 table for kCrc32Polynomial
// (entry 1 is 0x77073096); slice[k] advances a table entry by k further
// zero bytes, for eight-bytes-at-a-time stepping. Some hash functions read
// the bytes of slice[0] directly, so its layout (256 little-endian 32-bit
// words) is fixed.
struct Crc32Tables {
  uint32_t slice[8][256];
};
extern const Crc32Tables kCrc32Tables;

// One table step per byte: the reference every faster method must match.
uint32_t Crc32RegisterBytewise(uint32_t reg, const unsigned char* data, size_t length);

// Same result as Crc32RegisterBytewise, eight bytes per step through
// eight derived tables.
uint32_t Crc32RegisterSliced(uint32_t reg, const unsigned char* data, size_t length);

// The ways of stepping the register, slowest first. Each method's
// processor requirements include those of the one before it:
//   kFold128  carry-less multiplication on 128-bit lanes (PCLMULQDQ, SSE4.1),
//   kFold512  the same on 512-bit lanes (VPCLMULQDQ, AVX-512 F/BW/VL, and
//             an OS that saves the ZMM registers).
// The folding methods take inputs of 64 (kFold128) or 256 (kFold512)
// bytes and more; shorter inputs, and the last 0..15 bytes of longer ones,
// go through the sliced tables.
enum class Crc32Method { kBytewise, kSliced, kFold128, kFold512 };

// The fastest method this processor and OS support: the one
// Crc32Register uses. Detected once, thread-safely, on first use.
Crc32Method Crc32BestMethod();

// True when `method` can run here (it is no faster than Crc32BestMethod).
bool Crc32MethodAvailable(Crc32Method method);

// Crc32Register with `method` forced, so that tests and benchmarks reach
// every fallback on any machine. `method` must be available.
uint32_t Crc32RegisterWith(Crc32Method method, uint32_t reg, const unsigned char* data,
                           size_t length);

// Same result as Crc32RegisterBytewise, by the fastest available method.
uint32_t Crc32Register(uint32_t reg, const unsigned char* data, size_t length);

}  // namespace kt::internal

#endif  // KT_INTERNAL_CRC32_H
