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

// slice[0] is the standard reflected CRC-32 table for polynomial
// 0xEDB88320 (entry 1 is 0x77073096); slice[k] advances a table entry by
// k further zero bytes, for eight-bytes-at-a-time stepping. Some hash
// functions read the bytes of slice[0] directly, so its layout (256
// little-endian 32-bit words) is fixed.
struct Crc32Tables {
  uint32_t slice[8][256];
};
extern const Crc32Tables kCrc32Tables;

// One table step per byte: the reference every faster method must match.
uint32_t Crc32RegisterBytewise(uint32_t reg, const unsigned char* data, size_t length);

// Same result as Crc32RegisterBytewise, eight bytes per step through
// eight derived tables.
uint32_t Crc32RegisterSliced(uint32_t reg, const unsigned char* data, size_t length);

// Same result again; uses carry-less multiplication (PCLMULQDQ) for long
// inputs when the processor has it, the sliced method otherwise.
uint32_t Crc32Register(uint32_t reg, const unsigned char* data, size_t length);

// True when Crc32Register can take the carry-less multiply path here.
bool Crc32HasClmul();

}  // namespace kt::internal

#endif  // KT_INTERNAL_CRC32_H
