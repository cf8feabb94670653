// CRC-32 register stepping: bytewise reference, slicing-by-8, and the
// choice between those and carry-less-multiply folding (crc32_fold.cpp).
#include "internal/crc32.h"

#include <cstring>

#include "internal/crc32_fold.h"

namespace kt::internal {
namespace {

constexpr Crc32Tables BuildTables() {
  Crc32Tables t{};
  for (uint32_t i = 0; i < 256; ++i) {
    uint32_t reg = i;
    for (int bit = 0; bit < 8; ++bit)
      reg = (reg & 1) ? (reg >> 1) ^ kCrc32Polynomial : reg >> 1;
    t.slice[0][i] = reg;
  }
  for (int k = 1; k < 8; ++k)
    for (int i = 0; i < 256; ++i) {
      uint32_t prev = t.slice[k - 1][i];
      t.slice[k][i] = (prev >> 8) ^ t.slice[0][prev & 0xFF];
    }
  return t;
}

}  // namespace

constexpr Crc32Tables kCrc32Tables = BuildTables();
static_assert(kCrc32Tables.slice[0][1] == 0x77073096u, "CRC-32 table");

uint32_t Crc32RegisterBytewise(uint32_t reg, const unsigned char* data, size_t length) {
  const uint32_t* table = kCrc32Tables.slice[0];
  for (size_t i = 0; i < length; ++i)
    reg = table[(reg ^ data[i]) & 0xFF] ^ (reg >> 8);
  return reg;
}

uint32_t Crc32RegisterSliced(uint32_t reg, const unsigned char* data, size_t length) {
  const auto& t = kCrc32Tables.slice;
  while (length >= 8) {
    uint64_t word;
    std::memcpy(&word, data, 8);  // little-endian host
    word ^= reg;
    reg = t[7][word & 0xFF] ^ t[6][(word >> 8) & 0xFF] ^
          t[5][(word >> 16) & 0xFF] ^ t[4][(word >> 24) & 0xFF] ^
          t[3][(word >> 32) & 0xFF] ^ t[2][(word >> 40) & 0xFF] ^
          t[1][(word >> 48) & 0xFF] ^ t[0][word >> 56];
    data += 8;
    length -= 8;
  }
  return Crc32RegisterBytewise(reg, data, length);
}

namespace {

// Shortest inputs the folding methods take; shorter ones use the tables.
constexpr size_t kFold128Minimum = 64;
constexpr size_t kFold512Minimum = 256;

Crc32Method DetectBestMethod() {
  Crc32FoldSupport support = Crc32DetectFoldSupport();
  if (support.fold512)
    return Crc32Method::kFold512;
  if (support.fold128)
    return Crc32Method::kFold128;
  return Crc32Method::kSliced;
}

}  // namespace

Crc32Method Crc32BestMethod() {
  static const Crc32Method best = DetectBestMethod();
  return best;
}

bool Crc32MethodAvailable(Crc32Method method) { return method <= Crc32BestMethod(); }

uint32_t Crc32RegisterWith(Crc32Method method, uint32_t reg, const unsigned char* data,
                           size_t length) {
  if (method == Crc32Method::kBytewise)
    return Crc32RegisterBytewise(reg, data, length);
  size_t folded = length & ~size_t{15};
  if (method == Crc32Method::kFold512 && length >= kFold512Minimum)
    reg = Crc32Fold512(reg, data, folded);
  else if (method >= Crc32Method::kFold128 && length >= kFold128Minimum)
    reg = Crc32Fold128(reg, data, folded);
  else
    folded = 0;
  return Crc32RegisterSliced(reg, data + folded, length - folded);
}

uint32_t Crc32Register(uint32_t reg, const unsigned char* data, size_t length) {
  return Crc32RegisterWith(Crc32BestMethod(), reg, data, length);
}

}  // namespace kt::internal
